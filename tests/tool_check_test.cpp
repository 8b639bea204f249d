// kestro check on the sample disc (sound and faulty), one IFO file, a source, the corpus and
// the authored disc; its JSON output and exit codes.
#include <nlohmann/json.hpp>

#include <map>
#include <set>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using tt::Kestro;
using tt::Result;

// The sample assembled once into a disc root; tests copy it before changing it.
const fs::path& SampleRoot() {
    static kt::TempDir dir;
    static const bool made = [] {
        tt::AssembleSample(dir.path() / "VIDEO_TS");
        return true;
    }();
    (void)made;
    return dir.path();
}

std::multiset<std::string> Ids(const nlohmann::json& findings) {
    std::multiset<std::string> ids;
    for (const auto& f : findings) ids.insert(f.at("id").get<std::string>());
    return ids;
}

class ToolCheck : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        fs::copy(SampleRoot(), work.path() / "disc", fs::copy_options::recursive);
        disc = work.path() / "disc";
        ts = disc / "VIDEO_TS";
    }
    // Sets a big-endian field of an IFO file and of its BUP copy alike.
    void Patch(const std::string& name, size_t at, uint32_t value, int width) {
        for (const char* ext : {".IFO", ".BUP"}) {
            const fs::path p = ts / (name + ext);
            auto bytes = kt::ReadBytes(p);
            kt::PutBE(bytes, at, value, width);
            kt::WriteBytes(p, bytes);
        }
    }
    kt::TempDir work;
    fs::path disc, ts;
};

// The sound sample: no finding, a summary, exit status 0; usage errors exit with status 2.
TEST_F(ToolCheck, SoundDiscPasses) {
    Result r = Kestro({"check", disc});
    EXPECT_EQ(r.code, 0) << r.out << r.err;
    EXPECT_EQ(r.out, disc.string() + ": 3 files checked: 0 errors, 0 warnings\n");
    EXPECT_EQ(Kestro({"check", ts}).code, 0) << "the VIDEO_TS folder itself";
    EXPECT_EQ(Kestro({"check"}).code, 2);
    EXPECT_EQ(Kestro({"check", "--no-such-option", disc}).code, 2);
}

// An error gives its line and exit status 1; a warning alone leaves status 0.
TEST_F(ToolCheck, ErrorsFailWarningsDoNot) {
    const auto ifo = kt::ReadBytes(ts / "VTS_01_0.IFO");
    const size_t pgcit = size_t(kt::BE32(ifo, 204)) * 2048,
                 pgc1 = pgcit + kt::BE32(ifo, pgcit + 12);
    Patch("VTS_01_0", pgc1 + 156, 7, 2);  // next PGC of title PGC 1
    Result r = Kestro({"check", disc});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.out.find("VTS_01_0.IFO VTS_PGCIT[1] next PGC: PGC 7 does not exist (0 or 1 to 2)"
                         "  [error pgc.link]\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("3 files checked: 1 error, 0 warnings"), std::string::npos) << r.out;

    Patch("VTS_01_0", pgc1 + 156, 0, 2);
    fs::remove(ts / "VTS_02_0.BUP");
    r = Kestro({"check", disc});
    EXPECT_EQ(r.code, 0) << r.out;
    EXPECT_NE(r.out.find("VTS_02_0.BUP: the file is missing"), std::string::npos) << r.out;
    EXPECT_EQ(Kestro({"check", "--ifo-only", disc}).out,
              disc.string() + ": 3 files checked: 0 errors, 0 warnings\n");
}

// One IFO file is checked with its neighbours, and only its own findings are shown.
TEST_F(ToolCheck, OneFileShowsItsOwnFindings) {
    Patch("VIDEO_TS", 62, 0, 2);  // no title sets in VMGI_MAT
    Result vts = Kestro({"check", ts / "VTS_02_0.IFO"});
    EXPECT_EQ(vts.code, 0) << vts.out;
    EXPECT_NE(vts.out.find("1 file checked: 0 errors"), std::string::npos) << vts.out;
    Result vmg = Kestro({"check", ts / "VIDEO_TS.IFO"});
    EXPECT_EQ(vmg.code, 1);
    EXPECT_NE(vmg.out.find("VIDEO_TS.IFO VMGI_MAT VMG_NR_OF_TITLE_SETS: 0 title sets (1 to 99)"),
              std::string::npos)
        << vmg.out;
}

// A source is assembled next to the VOB files of its folder and checked;
// without them its title set holds no title VOBs, which is an error.
TEST_F(ToolCheck, SourceIsAssembledAndChecked) {
    fs::copy_file(tt::SampleDir() / "VTS_02_0.ini", ts / "VTS_02_0.ini");
    Result r = Kestro({"check", ts / "VTS_02_0.ini"});
    EXPECT_EQ(r.code, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("1 file checked: 0 errors, 0 warnings"), std::string::npos) << r.out;
    fs::copy_file(tt::SampleDir() / "VTS_02_0.ini", work.path() / "VTS_02_0.ini");
    r = Kestro({"check", work.path() / "VTS_02_0.ini"});
    EXPECT_EQ(r.code, 1) << r.out;
    EXPECT_NE(r.out.find("[error file.end-address]"), std::string::npos) << r.out;
    // The sizes can be given instead: every title set source of the sample passes.
    r = Kestro({"check", "--vob-sizes", tt::SampleDir() / "vobs.txt",
                tt::SampleDir() / "VTS_01_0.ini", work.path() / "VTS_02_0.ini"});
    EXPECT_EQ(r.code, 0) << r.out << r.err;
}

// --json: one object, findings with every field, counts; jq reads it too.
TEST_F(ToolCheck, JsonParses) {
    fs::remove(ts / "VTS_02_1.VOB");
    Result r = Kestro({"check", "--json", disc, ts / "missing"});
    EXPECT_EQ(r.code, 1);
    const auto j = nlohmann::json::parse(r.out);
    ASSERT_EQ(j.at("paths").size(), 2u);
    const auto& first = j["paths"][0];
    EXPECT_EQ(first.at("errors"), 1);
    EXPECT_EQ(j.at("errors"), 1);
    ASSERT_EQ(first.at("findings").size(), 1u);
    const auto& f = first["findings"][0];
    EXPECT_EQ(f.at("id"), "vob.missing");
    EXPECT_EQ(f.at("severity"), "error");
    EXPECT_EQ(f.at("file"), "VTS_02_1.VOB");
    EXPECT_TRUE(f.at("entry").is_null());
    EXPECT_EQ(f.at("text"),
              "VTS_02_1.VOB: the file is missing (the first title VOB file of 111 sectors in all, "
              "as VTS_02_0.IFO VTSI_MAT VTS_EA gives)");
    EXPECT_TRUE(j["paths"][1].contains("error"));
    if (tt::Shell("command -v jq").code == 0) {
        kt::WriteText(work / "out.json", r.out);
        Result q = tt::Shell("jq -r '.paths[0].findings[].id' " + tt::Quote(work / "out.json"));
        EXPECT_EQ(q.code, 0);
        EXPECT_EQ(q.out, "vob.missing\n");
    }
}

// Every corpus disc reports what it really lacks: VOB files everywhere, BUP files on disc-a, -b
// and -d, disc-e's five title sets. Its navigation faults, which alone (--ifo-only) are all
// warnings: disc-d's menu unit declares only its root menu but holds four more menu types'
// entry PGCs, and three titles point at program 1 of command-only PGCs; disc-e's menus name
// go-up PGC 65535.
TEST(ToolCheckCorpus, EveryDiscReportsItsRealFaults) {
    TT_REQUIRE_KESTRO();
    if (!fs::is_directory(kt::CorpusDir())) GTEST_SKIP() << "no corpus at " << kt::CorpusDir();
    // Finding IDs, each with a count ("id*3") when it repeats.
    auto ids = [](std::initializer_list<std::string> items) {
        std::multiset<std::string> out;
        for (const std::string& item : items) {
            const size_t star = item.find('*');
            const int k = star == std::string::npos ? 1 : std::stoi(item.substr(star + 1));
            for (int i = 0; i < k; ++i) out.insert(item.substr(0, star));
        }
        return out;
    };
    const std::map<std::string, std::multiset<std::string>> whole = {
        {"disc-a", ids({"file.backup-missing*2", "vob.missing"})},
        {"disc-b", ids({"file.backup-missing*2", "vob.missing*2"})},
        {"disc-c", ids({"vob.missing*19"})},
        {"disc-d",
         ids({"file.backup-missing", "vob.missing*2", "menu.undeclared*4", "ptt.program*3"})},
        {"disc-e", ids({"vob.missing", "title.vts-missing*5", "pgc.link*8"})},
    };
    const std::map<std::string, std::multiset<std::string>> alone = {
        {"disc-d", ids({"menu.undeclared*4", "ptt.program*3"})}, {"disc-e", ids({"pgc.link*8"})}};
    for (const auto& e : fs::directory_iterator(kt::CorpusDir())) {
        if (!e.is_directory()) continue;
        const std::string name = e.path().filename().string();
        for (bool ifoOnly : {false, true}) {
            SCOPED_TRACE(name + (ifoOnly ? " --ifo-only" : ""));
            Result r = ifoOnly ? Kestro({"check", "--json", "--ifo-only", e.path()})
                               : Kestro({"check", "--json", e.path()});
            const auto j = nlohmann::json::parse(r.out);
            const auto& expected = ifoOnly ? alone : whole;
            const auto it = expected.find(name);
            EXPECT_EQ(Ids(j["paths"][0]["findings"]),
                      it == expected.end() ? std::multiset<std::string>() : it->second)
                << r.out;
            EXPECT_EQ(r.code, j["errors"] > 0 ? 1 : 0);
            EXPECT_TRUE(!ifoOnly || j["errors"] == 0) << "read alone, faults are warnings";
        }
    }
}

// The disc authored by dvdauthor from generated streams has no fault.
TEST(ToolCheckAuthored, AuthoredDiscPasses) {
    TT_REQUIRE_KESTRO();
    TT_REQUIRE_TOOLS("ffmpeg", "spumux", "dvdauthor");
    kt::TempDir work;
    Result made = tt::Shell("bash " + tt::Quote(KESTRO_SOURCE_DIR "/scripts/make-test-disc.sh") +
                            " " + tt::Quote(work / "disc"));
    ASSERT_EQ(made.code, 0) << made.err;
    Result r = Kestro({"check", work / "disc"});
    EXPECT_EQ(r.code, 0) << r.out;
    EXPECT_NE(r.out.find("3 files checked: 0 errors, 0 warnings"), std::string::npos) << r.out;
}

}  // namespace
