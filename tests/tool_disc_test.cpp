// Whole discs through the kestro command: a disc authored by ffmpeg, spumux and
// dvdauthor, and every real disc of the corpus. For each IFO file: IFO -> source ->
// IFO' -> source' -> IFO''. IFO'' equals IFO' byte for byte and source'' equals
// source' (a fixed point); source' differs from source only in the statements
// rewritten by design (below); lsdvd reads the rebuilt disc as the original.
#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using tt::Kestro;

// Source statements ("section/key" patterns) whose value IFO' does not
// carry over from IFO, and why.
const char* const kRewrittenByDesign[] = {
    // Tables are packed back to back, so start and end sectors and addresses move.
    "vmgi_mat/(vmg_ea|vmgi_ea|vmgi_mat_ea|.*_sa)", "vtsi_mat/(vts_ea|vtsi_ea|vtsi_mat_ea|.*_sa)",
    // Parental management and text data are not part of an assembled file.
    "ptl_mait/.*", "vmg_ptt_srpt/ptl_mai_srp.*", "txtdt_mg/.*",
    "vmg_ptt_srpt/(vts_ttn|tt_ptl_id_fld)\\d+",  // TTN is always 1; parental IDs low byte first
    "vtsi_mat/vtsm_v_atr",                       // the menu video attribute keeps its low byte only
    "vts_atrt/vts_atrt_srp\\d+_vtsm_(ast|spst)_atr\\d+",  // written in hex, read in decimal
    "(vmgm|vts|vtsm)_c_adt/.*",  // cell address tables keep as many entries as the table names VOBs
};

bool RewrittenByDesign(const std::string& key) {
    return std::any_of(std::begin(kRewrittenByDesign), std::end(kRewrittenByDesign),
                       [&](const char* p) { return std::regex_match(key, std::regex(p)); });
}

// Lists the files of `from` with the given extension (sorted), linking them into `linkInto`.
std::vector<std::string> Files(const fs::path& from, const char* ext, const fs::path& linkInto = {}) {
    std::vector<std::string> names;
    for (auto& e : fs::directory_iterator(from))
        if (e.path().extension() == ext) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    if (!linkInto.empty()) fs::create_directories(linkInto);
    for (const auto& n : names)
        if (!linkInto.empty()) fs::create_symlink(from / n, linkInto / n);
    return names;
}

// Rebuilds `disc` into `out`; where a disc lacks VOB files (the corpus holds
// IFO files only), empty ones of the recorded sizes stand in for them.
tt::Result Rebuild(const fs::path& disc, const fs::path& out) {
    return Kestro({"rebuild", disc, "-o", out, "--placeholder-vobs"});
}

// The round trip of every IFO file of one disc folder (holding VIDEO_TS);
// returns the original's report.
std::string RoundTripDisc(const fs::path& disc) {
    kt::TempDir work;
    fs::path in = disc / "VIDEO_TS", first = work / "first/VIDEO_TS", second = work / "second/VIDEO_TS";
    tt::Result r = Rebuild(disc, first.parent_path());
    EXPECT_TRUE(r.code == 0 && r.out.find("bytes") != std::string::npos) << r.out << r.err;
    if (r.code != 0) return {};
    Files(first, ".VOB", second);
    for (const auto& name : Files(in, ".IFO")) {
        SCOPED_TRACE(disc.string() + "/" + name);
        std::string s0 = work / (name + ".0.ini"), s1 = work / (name + ".1.ini"), s2 = work / (name + ".2.ini");
        EXPECT_EQ(Kestro({"disasm", in / name, "-o", s0}).code, 0);
        EXPECT_EQ(Kestro({"disasm", first / name, "-o", s1}).code, 0);
        EXPECT_EQ(Kestro({"asm", s1, "-o", second / name}).code, 0);
        EXPECT_EQ(Kestro({"disasm", second / name, "-o", s2}).code, 0);
        EXPECT_TRUE(kt::ReadBytes(second / name) == kt::ReadBytes(first / name)) << "IFO'' != IFO'";
        EXPECT_EQ(kt::ReadText(s2), kt::ReadText(s1)) << "source'' differs from source'";

        auto before = tt::Statements(s0), after = tt::Statements(s1), keys = before;
        keys.insert(after.begin(), after.end());
        auto value = [](const auto& m, const std::string& k) { return m.count(k) ? m.at(k) : "<absent>"; };
        for (const auto& kv : keys)
            if (value(before, kv.first) != value(after, kv.first) && !RewrittenByDesign(kv.first))
                ADD_FAILURE() << kv.first << ": " << value(before, kv.first) << " -> " << value(after, kv.first);
    }
    // Both discs report completely, every table of every file.
    EXPECT_EQ(Kestro({"report", first.parent_path()}).code, 0);
    r = Kestro({"report", disc});
    EXPECT_EQ(r.code, 0) << r.err;
    return r.out;
}

// lsdvd must read a rebuilt disc as the original, except that every title
// is its set's first title (the rebuilt title search table says TTN 1).
std::vector<tt::LsdvdTitle> LsdvdAgrees(const fs::path& disc) {
    kt::TempDir work;
    tt::Result r = Rebuild(disc, work / "rebuilt");
    EXPECT_EQ(r.code, 0) << r.err;
    std::string rawA, rawB;
    std::vector<tt::LsdvdTitle> a = tt::Lsdvd(disc, &rawA), b = tt::Lsdvd(work / "rebuilt", &rawB);
    EXPECT_FALSE(a.empty()) << rawA;
    EXPECT_EQ(a.size(), b.size()) << rawA << "\n----\n" << rawB;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i) {
        const tt::LsdvdTitle* expect = &a[i];
        for (const auto& t : a)
            if (a[i].ttn != 1 && t.vts == a[i].vts && t.ttn == 1) expect = &t;
        EXPECT_TRUE(b[i].vts == expect->vts && b[i].ttn == 1 && b[i].lines == expect->lines)
            << "title " << i + 1 << "\n" << rawA << "\n----\n" << rawB;
    }
    return a;
}

// The test disc: menus in both domains, two title sets, three titles with
// chapters, two audio streams and a sub-picture stream. Authored once.
class ToolDisc : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        TT_REQUIRE_TOOLS("ffmpeg", "spumux", "dvdauthor");
        static kt::TempDir work;
        static tt::Result made =
            tt::Shell("bash " + tt::Quote(KESTRO_SOURCE_DIR "/scripts/make-test-disc.sh") + " " + tt::Quote(work / "disc"));
        ASSERT_EQ(made.code, 0) << made.err;
        disc = work / "disc";
    }
    fs::path disc;
};

TEST_F(ToolDisc, AuthoredDiscRoundTrips) {
    std::string report = RoundTripDisc(disc);
    for (const char* needle :
         {"VMG First Play PGC:", "---- VMGM_PGCI_UT ----", "---- VTSM_PGCI_UT ----", "---- VTS_TMAPT ----",
          "---- VTSM_VOBU_ADMAP ----", "VTS_02_0.IFO", "Number of audio streams in VTSTT_VOBS: 2",
          "Number of subpicture streams in VTSTT_VOBS: 1"})
        EXPECT_NE(report.find(needle), std::string::npos) << "the test disc lacks " << needle;
}

TEST_F(ToolDisc, LsdvdReadsTheRebuiltDiscAsTheOriginal) {
    TT_REQUIRE_TOOLS("lsdvd");
    auto titles = LsdvdAgrees(disc);
    ASSERT_EQ(titles.size(), 3u);
    EXPECT_NE(titles[0].lines[0].find("Chapters: 03"), std::string::npos);
}

// Time maps and address maps as "ini" and as "bin" side files assemble the
// same IFO file as the single source, and --force guards side files too.
TEST_F(ToolDisc, SideFileFormsAssembleTheSameFile) {
    kt::TempDir work;
    fs::path in = disc / "VIDEO_TS", out = work / "a/VTS_01_0.IFO";
    Files(in, ".VOB", work / "a");
    ASSERT_EQ(Kestro({"disasm", in / "VTS_01_0.IFO", "-o", work / "one.ini"}).code, 0);
    ASSERT_EQ(Kestro({"asm", work / "one.ini", "-o", out, "--no-backup"}).code, 0);
    std::vector<uint8_t> reference = kt::ReadBytes(out);
    for (std::string side : {"ini", "bin"}) {
        SCOPED_TRACE(side);
        std::string src = work / (side + ".ini"), sideFile = src.substr(0, src.size() - 4) + (side == "ini" ? " TmapTable1.ini" : " tmap.bin");
        std::vector<std::string> args = {"disasm", in / "VTS_01_0.IFO", "-o", src, "--side-files", side};
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

// Runs `check` on every real disc, each copied into a VIDEO_TS folder of its own.
void ForEachCorpusDisc(void (*check)(const fs::path&)) {
    auto vmgs = kt::CorpusFiles("VIDEO_TS");
    KT_SKIP_IF_EMPTY(vmgs);
    for (const auto& vmg : vmgs) {
        SCOPED_TRACE(vmg);
        kt::TempDir disc;
        fs::create_directories(disc / "VIDEO_TS");
        for (auto& e : fs::directory_iterator(fs::path(vmg).parent_path()))
            fs::copy_file(e.path(), disc / "VIDEO_TS" / e.path().filename());
        check(disc.path());
    }
}

TEST(ToolCorpus, EveryRealDiscRoundTrips) {
    TT_REQUIRE_KESTRO();
    ForEachCorpusDisc([](const fs::path& disc) {
        std::string report = RoundTripDisc(disc);  // every table, in load order
        size_t at = 0;
        for (const char* t : {"VMGI_MAT", "TT_SRPT", "VTS_ATRT", "VTSI_MAT", "VTS_PTT_SRPT", "VTS_PGCIT"})
            EXPECT_NE(at = report.find(std::string("---- ") + t + " ----", at), std::string::npos) << t;
    });
}

TEST(ToolCorpus, LsdvdReadsEveryRebuiltDiscAsTheOriginal) {
    TT_REQUIRE_KESTRO();
    TT_REQUIRE_TOOLS("lsdvd");
    ForEachCorpusDisc([](const fs::path& disc) { LsdvdAgrees(disc); });
}

}  // namespace
