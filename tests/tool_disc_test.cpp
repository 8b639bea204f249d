// Whole discs through the kestro command: a disc authored for the test by
// ffmpeg, spumux and dvdauthor, and every real disc of the corpus.
//
// For each IFO file: IFO -> source -> IFO' -> source' -> IFO''. IFO'' must
// equal IFO' byte for byte and source'' must equal source' (the second
// round is a fixed point); source' may differ from source only in the
// statements the library rewrites by design (listed below); and lsdvd must
// read the rebuilt disc as it reads the original (a test of its own, which
// skips when lsdvd is missing).
#include <set>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;

// Source statements whose value IFO' does not carry over from IFO, and why.
// A pattern matches "section/key" by regular expression.
const std::vector<std::pair<const char*, const char*>> kRewrittenByDesign = {
    // The layout is recomputed: tables are packed back to back after the
    // management table, so start sectors, end sectors and end addresses move.
    {"vmgi_mat/(vmg_ea|vmgi_ea|vmgi_mat_ea|.*_sa)", "video manager layout"},
    {"vtsi_mat/(vts_ea|vtsi_ea|vtsi_mat_ea|.*_sa)", "title set layout"},
    // Parental management and text data are not part of an assembled file.
    {"ptl_mait/.*", "PTL_MAIT is not assembled"},
    {"vmg_ptt_srpt/ptl_mai_srp.*", "PTL_MAIT is not assembled"},
    {"txtdt_mg/.*", "TXTDT_MG is not assembled"},
    // Title search pointers: the title number within its set is always 1,
    // the parental ID field is written low byte first, and the title set's
    // start sector follows the title set's recomputed layout.
    {"vmg_ptt_srpt/(vts_ttn|tt_ptl_id_fld)\\d+", "TT_SRPT field written by rule"},
    // The menu video attribute keeps its low byte only.
    {"vtsi_mat/vtsm_v_atr", "VTSM video attribute loses its first byte"},
    // Title set attributes: the menu stream attribute bytes are written in
    // hexadecimal and read back in decimal.
    {"vts_atrt/vts_atrt_srp\\d+_vtsm_(ast|spst)_atr\\d+", "VTS_ATRT menu attributes"},
    // Cell address tables keep as many entries as the table names VOBs, so
    // cells beyond that count are dropped and the end address shrinks.
    {"(vmgm|vts|vtsm)_c_adt/.*", "C_ADT entries beyond the VOB count"},
};

bool RewrittenByDesign(const std::string& key) {
    for (const auto& p : kRewrittenByDesign)
        if (std::regex_match(key, std::regex(p.first))) return true;
    return false;
}

std::vector<std::string> IfoNames(const fs::path& videoTs) {
    std::vector<std::string> names;
    for (auto& e : fs::directory_iterator(videoTs)) {
        std::string n = e.path().filename().string();
        if (n.size() > 4 && n.substr(n.size() - 4) == ".IFO") names.push_back(n);
    }
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return (a == "VIDEO_TS.IFO") != (b == "VIDEO_TS.IFO") ? a == "VIDEO_TS.IFO" : a < b;
    });
    return names;
}

// lsdvd's view of a rebuilt disc must be the original's, except for titles
// whose number within their title set was not 1: the rebuilt title search
// table points every title at its set's first title (see above).
void ExpectSameLsdvd(const fs::path& original, const fs::path& rebuilt) {
    std::string rawA, rawB;
    std::vector<tt::LsdvdTitle> a = tt::Lsdvd(original, &rawA), b = tt::Lsdvd(rebuilt, &rawB);
    ASSERT_FALSE(a.empty()) << rawA;
    ASSERT_EQ(a.size(), b.size()) << rawA << "\n----\n" << rawB;
    for (size_t i = 0; i < a.size(); ++i) {
        const tt::LsdvdTitle* expect = &a[i];
        if (a[i].ttn != 1)
            for (const auto& t : a)
                if (t.vts == a[i].vts && t.ttn == 1) expect = &t;
        EXPECT_EQ(b[i].vts, expect->vts) << "title " << i + 1;
        EXPECT_EQ(b[i].ttn, 1) << "title " << i + 1;
        EXPECT_EQ(b[i].lines, expect->lines) << "title " << i + 1 << "\n" << rawB;
    }
}

// The whole check for one disc folder (holding VIDEO_TS).
void RoundTripDisc(const fs::path& disc, bool placeholders) {
    kt::TempDir work;
    fs::path first = work / "first", second = work / "second";
    std::vector<std::string> args = {"rebuild", disc.string(), "-o", first.string()};
    if (placeholders) args.push_back("--placeholder-vobs");
    tt::Result r = tt::Kestro(args);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("bytes"), std::string::npos) << r.out;

    fs::path in = disc / "VIDEO_TS";
    fs::create_directories(second / "VIDEO_TS");
    for (auto& e : fs::directory_iterator(first / "VIDEO_TS")) {
        std::string n = e.path().filename().string();
        if (n.size() > 4 && n.substr(n.size() - 4) == ".VOB")
            fs::create_symlink(e.path(), second / "VIDEO_TS" / n);
    }
    for (const auto& name : IfoNames(in)) {
        SCOPED_TRACE(disc.string() + "/" + name);
        std::string s0 = work / (name + ".0.ini"), s1 = work / (name + ".1.ini"),
                    s2 = work / (name + ".2.ini");
        fs::path ifo1 = first / "VIDEO_TS" / name, ifo2 = second / "VIDEO_TS" / name;
        ASSERT_EQ(tt::Kestro({"disasm", (in / name).string(), "-o", s0}).code, 0);
        ASSERT_EQ(tt::Kestro({"disasm", ifo1.string(), "-o", s1}).code, 0);
        r = tt::Kestro({"asm", s1, "-o", ifo2.string()});
        ASSERT_EQ(r.code, 0) << r.err;
        ASSERT_EQ(tt::Kestro({"disasm", ifo2.string(), "-o", s2}).code, 0);

        EXPECT_TRUE(kt::ReadBytes(ifo2.string()) == kt::ReadBytes(ifo1.string()))
            << "IFO'' differs from IFO'";
        EXPECT_EQ(kt::ReadText(s2), kt::ReadText(s1)) << "source'' differs from source'";

        auto before = tt::Statements(s0), after = tt::Statements(s1);
        std::set<std::string> keys;
        for (auto& kv : before) keys.insert(kv.first);
        for (auto& kv : after) keys.insert(kv.first);
        for (const auto& k : keys) {
            auto x = before.find(k), y = after.find(k);
            std::string vx = x == before.end() ? "<absent>" : x->second;
            std::string vy = y == after.end() ? "<absent>" : y->second;
            if (vx != vy && !RewrittenByDesign(k))
                ADD_FAILURE() << k << ": " << vx << " -> " << vy;
        }
    }
    // Both discs report completely, every table of every file.
    for (const fs::path& d : {disc, first}) {
        r = tt::Kestro({"report", d.string()});
        EXPECT_EQ(r.code, 0) << d << ": " << r.err;
    }
}

// lsdvd's view of a disc and of its rebuild.
void LsdvdAgrees(const fs::path& disc, bool placeholders) {
    kt::TempDir work;
    std::vector<std::string> args = {"rebuild", disc.string(), "-o", work / "rebuilt", "-q"};
    if (placeholders) args.push_back("--placeholder-vobs");
    tt::Result r = tt::Kestro(args);
    ASSERT_EQ(r.code, 0) << r.err;
    ExpectSameLsdvd(disc, work / "rebuilt");
}

class ToolDisc : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!fs::exists(tt::KestroBinary())) return;
        for (const char* t : {"ffmpeg", "spumux", "dvdauthor"})
            if (!tt::HaveTool(t)) return;
        disc_ = new kt::TempDir;
        std::string script = std::string(KESTRO_SOURCE_DIR) + "/scripts/make-test-disc.sh";
        tt::Result r = tt::Shell("bash " + tt::Quote(script) + " " + tt::Quote(*disc_ / "disc"));
        authored_ = r.code == 0;
        log_ = r.err;
    }
    static void TearDownTestSuite() {
        delete disc_;
        disc_ = nullptr;
    }
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        TT_REQUIRE_TOOLS("ffmpeg", "spumux", "dvdauthor");
        ASSERT_TRUE(authored_) << log_;
    }
    static fs::path Disc() { return fs::path(*disc_ / "disc"); }

    static kt::TempDir* disc_;
    static bool authored_;
    static std::string log_;
};
kt::TempDir* ToolDisc::disc_ = nullptr;
bool ToolDisc::authored_ = false;
std::string ToolDisc::log_;

TEST_F(ToolDisc, AuthoredDiscRoundTrips) { RoundTripDisc(Disc(), false); }

TEST_F(ToolDisc, LsdvdReadsTheRebuiltDiscAsTheOriginal) {
    TT_REQUIRE_TOOLS("lsdvd");
    LsdvdAgrees(Disc(), false);
}

TEST_F(ToolDisc, AuthoredDiscHasWhatTheTestNeeds) {
    // The disc exercises menus in both domains, two title sets, several
    // titles with chapters, two audio streams and a sub-picture stream.
    tt::Result r = tt::Kestro({"report", Disc().string()});
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char* needle :
         {"VMG First Play PGC:", "---- VMGM_PGCI_UT ----", "---- VTSM_PGCI_UT ----",
          "---- VTS_TMAPT ----", "---- VTSM_VOBU_ADMAP ----", "VTS_02_0.IFO",
          "Number of audio streams in VTSTT_VOBS: 2",
          "Number of subpicture streams in VTSTT_VOBS: 1"})
        EXPECT_NE(r.out.find(needle), std::string::npos) << needle;
    TT_REQUIRE_TOOLS("lsdvd");
    auto titles = tt::Lsdvd(Disc());
    ASSERT_EQ(titles.size(), 3u);
    EXPECT_NE(titles[0].lines[0].find("Chapters: 03"), std::string::npos);
}

TEST_F(ToolDisc, SideFileFormsAssembleTheSameFile) {
    kt::TempDir work;
    fs::path in = Disc() / "VIDEO_TS";
    fs::create_directories(work / "a");
    for (auto& e : fs::directory_iterator(in))
        if (e.path().extension() == ".VOB")
            fs::create_symlink(e.path(), work.path() / "a" / e.path().filename());
    const std::string ifo = (in / "VTS_01_0.IFO").string();
    ASSERT_EQ(tt::Kestro({"disasm", ifo, "-o", work / "one.ini"}).code, 0);
    ASSERT_EQ(tt::Kestro({"asm", work / "one.ini", "-o", work / "a/VTS_01_0.IFO"}).code, 0);
    std::vector<uint8_t> reference = kt::ReadBytes(work / "a/VTS_01_0.IFO");
    for (const char* side : {"ini", "bin"}) {
        SCOPED_TRACE(side);
        std::string src = work / (std::string(side) + ".ini");
        tt::Result r = tt::Kestro({"disasm", ifo, "-o", src, "--side-files", side});
        ASSERT_EQ(r.code, 0) << r.err;
        std::string stem = src.substr(0, src.size() - 4);
        EXPECT_TRUE(fs::exists(std::string(side) == std::string("ini") ? stem + " TmapTable1.ini"
                                                                         : stem + " tmap.bin"));
        fs::remove(work / "a/VTS_01_0.IFO");
        r = tt::Kestro({"asm", src, "-o", work / "a/VTS_01_0.IFO", "--no-backup", "-f"});
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_TRUE(kt::ReadBytes(work / "a/VTS_01_0.IFO") == reference);
    }
}

// Runs `check` on every real disc. The corpus folders hold the files
// themselves: each gets a VIDEO_TS folder of its own, and its rebuild gets
// placeholder title VOBs of the recorded sizes.
class ToolCorpus : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        vmgs_ = kt::CorpusFiles("VIDEO_TS");
        KT_SKIP_IF_EMPTY(vmgs_);
    }
    template <class Check>
    void ForEachDisc(Check check) {
        for (const auto& vmg : vmgs_) {
            kt::TempDir disc;
            tt::CopyFolder(fs::path(vmg).parent_path(), disc / "VIDEO_TS");
            SCOPED_TRACE(vmg);
            check(disc.path());
        }
    }
    std::vector<std::string> vmgs_;
};

TEST_F(ToolCorpus, EveryRealDiscRoundTrips) {
    ForEachDisc([](const fs::path& disc) { RoundTripDisc(disc, true); });
}

TEST_F(ToolCorpus, LsdvdReadsEveryRebuiltDiscAsTheOriginal) {
    TT_REQUIRE_TOOLS("lsdvd");
    ForEachDisc([](const fs::path& disc) { LsdvdAgrees(disc, true); });
}

}  // namespace
