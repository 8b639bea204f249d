// Whole discs through the kestro command (the authored test disc, the sample, the corpus): a
// rebuild keeps every navigation field as the tests' own reader and lsdvd see it, a second
// rebuild changes no byte, and --library-rules changes only the fields its rules rewrite.
#include "ifo_navigation.h"
#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using tt::Kestro;

std::vector<std::string> FilesOf(const fs::path& dir, const char* ext) {
    std::vector<std::string> names;
    std::error_code ec;
    for (auto& e : fs::directory_iterator(dir, ec))
        if (e.path().extension() == ext) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// Rebuilds `disc` into `out`, with empty VOB files of the recorded sizes where it has none.
tt::Result Rebuild(const fs::path& disc, const fs::path& out, bool libraryRules = false) {
    std::vector<std::string> args = {"rebuild", disc, "-o", out, "--placeholder-vobs", "-q"};
    if (libraryRules) args.push_back("--library-rules");
    return Kestro(args);
}

// lsdvd reads two discs alike, title by title (where it opens the original at all).
void ExpectLsdvdAgrees(const fs::path& original, const fs::path& rebuilt) {
    if (tt::Shell("command -v lsdvd").code != 0) return;
    std::string rawA, rawB;
    std::vector<tt::LsdvdTitle> a = tt::Lsdvd(original, &rawA), b = tt::Lsdvd(rebuilt, &rawB);
    EXPECT_EQ(a.size(), b.size()) << rawA << "\n----\n" << rawB;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        EXPECT_TRUE(a[i].vts == b[i].vts && a[i].ttn == b[i].ttn && a[i].lines == b[i].lines)
            << "title " << i + 1 << "\n"
            << rawA << "\n----\n"
            << rawB;
}

// A rebuild keeps every IFO file's navigation, and a second one every IFO and BUP byte.
void CheckLosslessRebuild(const fs::path& disc) {
    kt::TempDir work;
    const fs::path first = work / "first", second = work / "second";
    tt::Result r = Rebuild(disc, first);
    ASSERT_EQ(r.code, 0) << r.err;
    r = Rebuild(first, second);
    ASSERT_EQ(r.code, 0) << r.err;
    const fs::path in = tt::VideoTsOf(disc);
    for (const auto& name : FilesOf(in, ".IFO")) {
        SCOPED_TRACE(name);
        EXPECT_EQ(
            NavigationDiff(kt::ReadBytes(in / name), kt::ReadBytes(first / "VIDEO_TS" / name)), "");
    }
    for (const char* ext : {".IFO", ".BUP"})
        for (const auto& name : FilesOf(first / "VIDEO_TS", ext))
            EXPECT_TRUE(kt::ReadBytes(first / "VIDEO_TS" / name) ==
                        kt::ReadBytes(second / "VIDEO_TS" / name))
                << name << ": a second rebuild changed bytes";
    ExpectLsdvdAgrees(disc, first);
}

// Source statements ("section/key" patterns) that the table classes' rules
// do not carry from IFO to IFO', and why.
const char* const kRewrittenByLibraryRules[] = {
    // Tables are packed back to back, so start and end sectors and addresses move.
    "vmgi_mat/(vmg_ea|vmgi_ea|vmgi_mat_ea|.*_sa)", "vtsi_mat/(vts_ea|vtsi_ea|vtsi_mat_ea|.*_sa)",
    // PGCs and their parts are packed in the library's order (disc-d lays
    // them out at odd offsets in another): their byte offsets move.
    "(vts_pgcit|vtsm_lu|vmgm_lu|vtsm_pgci_ut|vmgm_pgci_ut)[\\d_]*/.*_(sa|ea)\\d*",
    // Parental management and text data are not part of an assembled file.
    "ptl_mait/.*", "vmg_ptt_srpt/ptl_mai_srp.*", "txtdt_mg/.*",
    "vmg_ptt_srpt/(vts_ttn|tt_ptl_id_fld)\\d+",  // TTN is always 1; parental IDs low byte first
    "vmg_ptt_srpt/vts_sa\\d+",                   // the title sets move with the video manager
    "vtsi_mat/vtsm_v_atr",                       // the menu video attribute keeps its low byte only
    "vmgi_mat/pvr_id",                           // a provider ID of blanks is read back trimmed
    "vts_atrt/vts_atrt_srp\\d+_vtsm_(ast|spst)_atr\\d+",  // written in hex, read in decimal
    "(vmgm|vts|vtsm)_c_adt/.*",  // cell address tables keep as many entries as the table names VOBs
    "(vts|vtsm)_vobu_admap/.*",  // maps of 65,536 bytes or more keep their size modulo 65,536
};

bool RewrittenByLibraryRules(const std::string& key) {
    return std::any_of(std::begin(kRewrittenByLibraryRules), std::end(kRewrittenByLibraryRules),
                       [&](const char* p) { return std::regex_match(key, std::regex(p)); });
}

// A VTS_ATRT menu stream attribute, written in hex and read in decimal, drifts
// every round unless it reads the same both ways (x00 to x09).
bool DriftsUnderLibraryRules(const std::map<std::string, std::string>& source) {
    static const std::regex attr("vts_atrt/vts_atrt_srp\\d+_vtsm_(ast|spst)_atr\\d+");
    for (const auto& kv : source)
        if (std::regex_match(kv.first, attr) && kv.second.size() == 3 &&
            std::stoi(kv.second.substr(1), nullptr, 16) != std::stoi(kv.second.substr(1)))
            return true;
    return false;
}

// IFO -> source -> IFO' -> source' -> IFO'' through the command by the table
// classes' rules: source' differs only where the rules rewrite, and IFO'' is
// IFO' unless the title set attributes drift.
void CheckLibraryRules(const fs::path& disc) {
    kt::TempDir work;
    const fs::path first = work / "first/VIDEO_TS", second = work / "second/VIDEO_TS";
    tt::Result r = Rebuild(disc, first.parent_path(), true);
    ASSERT_EQ(r.code, 0) << r.err;
    fs::create_directories(second);
    for (const auto& vob : FilesOf(first, ".VOB")) fs::create_symlink(first / vob, second / vob);
    const fs::path in = tt::VideoTsOf(disc);
    for (const auto& name : FilesOf(in, ".IFO")) {
        SCOPED_TRACE(name);
        std::string s0 = work / (name + ".0.ini"), s1 = work / (name + ".1.ini"),
                    s2 = work / (name + ".2.ini");
        ASSERT_EQ(Kestro({"disasm", in / name, "-o", s0, "--library-rules"}).code, 0);
        ASSERT_EQ(Kestro({"disasm", first / name, "-o", s1, "--library-rules"}).code, 0);
        ASSERT_EQ(Kestro({"asm", s1, "-o", second / name, "--library-rules"}).code, 0);
        ASSERT_EQ(Kestro({"disasm", second / name, "-o", s2, "--library-rules"}).code, 0);
        auto before = tt::Statements(s0), after = tt::Statements(s1), again = tt::Statements(s2);
        auto value = [](const auto& m, const std::string& k) {
            return m.count(k) ? m.at(k) : std::string("<absent>");
        };
        auto keys = before;
        keys.insert(after.begin(), after.end());
        for (const auto& kv : keys)
            if (value(before, kv.first) != value(after, kv.first) &&
                !RewrittenByLibraryRules(kv.first))
                ADD_FAILURE() << kv.first << ": " << value(before, kv.first) << " -> "
                              << value(after, kv.first);
        const bool drifts = DriftsUnderLibraryRules(after);
        EXPECT_EQ(kt::ReadBytes(second / name) == kt::ReadBytes(first / name), !drifts)
            << (drifts ? "the title set attributes drift, yet IFO'' == IFO'" : "IFO'' != IFO'");
        for (const auto& kv : again) {
            if (value(after, kv.first) == kv.second) continue;
            EXPECT_TRUE(drifts && kv.first.rfind("vts_atrt/", 0) == 0)
                << kv.first << ": " << value(after, kv.first) << " -> " << kv.second;
        }
    }
}

// The authored test disc (made once): menus in both domains, two title sets, three titles with
// chapters (two in one set), two audio and one sub-picture stream.
class ToolDisc : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        TT_REQUIRE_TOOLS("ffmpeg", "spumux", "dvdauthor");
        static kt::TempDir work;
        static tt::Result made =
            tt::Shell("bash " + tt::Quote(KESTRO_SOURCE_DIR "/scripts/make-test-disc.sh") + " " +
                      tt::Quote(work / "disc"));
        ASSERT_EQ(made.code, 0) << made.err;
        disc = work / "disc";
    }
    fs::path disc;
};

TEST_F(ToolDisc, RebuildKeepsEveryNavigationField) {
    CheckLosslessRebuild(disc);
    if (tt::Shell("command -v lsdvd").code == 0) {
        auto titles = tt::Lsdvd(disc);
        ASSERT_EQ(titles.size(), 3u);
        EXPECT_EQ(titles[1].ttn, 2) << "the test disc lacks a second title in one title set";
    }
}

TEST_F(ToolDisc, LibraryRulesRewriteOnlyTheirFields) { CheckLibraryRules(disc); }

// Maps as "ini" and "bin" side files assemble the same IFO file as one source; --force guards
// side files too.
TEST_F(ToolDisc, SideFileFormsAssembleTheSameFile) {
    kt::TempDir work;
    fs::path in = disc / "VIDEO_TS", out = work / "a/VTS_01_0.IFO";
    fs::create_directories(out.parent_path());
    for (const auto& vob : FilesOf(in, ".VOB"))
        fs::create_symlink(in / vob, out.parent_path() / vob);
    ASSERT_EQ(Kestro({"disasm", in / "VTS_01_0.IFO", "-o", work / "one.ini"}).code, 0);
    ASSERT_EQ(Kestro({"asm", work / "one.ini", "-o", out, "--no-backup"}).code, 0);
    std::vector<uint8_t> reference = kt::ReadBytes(out);
    for (std::string side : {"ini", "bin"}) {
        SCOPED_TRACE(side);
        std::string src = work / (side + ".ini"),
                    sideFile = src.substr(0, src.size() - 4) +
                               (side == "ini" ? " TmapTable1.ini" : " tmap.bin");
        std::vector<std::string> args = {"disasm", in / "VTS_01_0.IFO", "-o",
                                         src,      "--side-files",      side};
        ASSERT_EQ(Kestro(args).code, 0);
        std::string kept = kt::ReadText(sideFile);
        fs::remove(src);
        kt::WriteText(sideFile, "precious");
        EXPECT_EQ(Kestro(args).code, 1);
        EXPECT_EQ(kt::ReadText(sideFile), "precious");
        args.push_back("-f");
        ASSERT_EQ(Kestro(args).code, 0);
        EXPECT_EQ(kt::ReadText(sideFile), kept);
        ASSERT_EQ(Kestro({"asm", src, "-o", out, "--no-backup", "-f"}).code, 0);
        EXPECT_TRUE(kt::ReadBytes(out) == reference);
    }
}

// The bundled sample assembled next to empty VOB files of the sizes it records.
class ToolSampleDisc : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        sources = tt::AssembleSample(work.path() / "VIDEO_TS");
        ASSERT_GE(sources.size(), 3u);
    }
    kt::TempDir work;
    std::vector<fs::path> sources;
};

// The sample reports cleanly and disassembles into its own sources.
TEST_F(ToolSampleDisc, ReportsAndDisassemblesIntoItsOwnSources) {
    tt::Result r = Kestro({"report", work.path()});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("VMG First Play PGC:"), std::string::npos);
    for (const auto& src : sources) {
        const std::string again = work / src.filename().string();
        ASSERT_EQ(Kestro({"disasm", work.path() / "VIDEO_TS" / (src.stem().string() + ".IFO"), "-o",
                          again})
                      .code,
                  0);
        EXPECT_EQ(kt::ReadText(again), kt::ReadText(src)) << src;
    }
}

// The sample plays every title as authored (title 2 is the second title of title set 1, not its
// first again), and keeps it through a rebuild.
TEST_F(ToolSampleDisc, RebuildKeepsEveryNavigationField) {
    CheckLosslessRebuild(work.path());
    if (tt::Shell("command -v lsdvd").code == 0) {
        auto titles = tt::Lsdvd(work.path());
        ASSERT_EQ(titles.size(), 3u);
        EXPECT_NE(
            titles[0].lines[0].find("Chapters: 03, Cells: 03, Audio streams: 02, Subpictures: 01"),
            std::string::npos);
        EXPECT_EQ(titles[1].vts * 10 + titles[1].ttn, 12);
        EXPECT_NE(titles[0].lines, titles[1].lines);
        EXPECT_EQ(titles[2].vts, 2);
    }
}

// Runs `check` on every real disc, each copied into a VIDEO_TS folder of its own.
void ForEachCorpusDisc(void (*check)(const fs::path&)) {
    std::vector<fs::path> discs;
    std::error_code ec;
    for (auto& e : fs::directory_iterator(kt::CorpusDir(), ec))
        if (e.is_directory() && !FilesOf(e.path(), ".IFO").empty()) discs.push_back(e.path());
    std::sort(discs.begin(), discs.end());
    if (discs.empty()) GTEST_SKIP() << "no real discs beside this checkout";
    for (const auto& from : discs) {
        SCOPED_TRACE(from.string());
        kt::TempDir disc;
        fs::create_directories(disc / "VIDEO_TS");
        for (auto& e : fs::directory_iterator(from)) {
            fs::copy_file(e.path(), disc / "VIDEO_TS" / e.path().filename());
            fs::permissions(disc / "VIDEO_TS" / e.path().filename(), fs::perms::owner_write,
                            fs::perm_options::add);
        }
        check(disc.path());
    }
}

TEST(ToolCorpus, RebuildKeepsEveryNavigationField) {
    TT_REQUIRE_KESTRO();
    ForEachCorpusDisc(CheckLosslessRebuild);
}

TEST(ToolCorpus, LibraryRulesRewriteOnlyTheirFields) {
    TT_REQUIRE_KESTRO();
    ForEachCorpusDisc(CheckLibraryRules);
}

}  // namespace
