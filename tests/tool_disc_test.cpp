// Whole discs through the kestro command (the authored test disc, the sample, the corpus): a
// rebuild keeps every navigation field as the tests' own reader and lsdvd see it, a second
// rebuild changes no byte, and --library-rules changes only the fields its rules rewrite.
#include <functional>
#include <map>
#include <sstream>

#include "ifo_navigation.h"
#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using tt::Kestro;
using Source = std::map<std::string, std::string>;  // "section/key" -> value

std::vector<std::string> FilesOf(const fs::path& dir, const char* ext) {
    std::vector<std::string> names;
    std::error_code ec;
    for (auto& e : fs::directory_iterator(dir, ec))
        if (e.path().extension() == ext) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

Source Statements(const std::string& path) {
    Source out;
    std::istringstream in(kt::ReadText(path));
    std::string section;
    for (std::string line; std::getline(in, line);) {
        const size_t eq = line.find('=');
        if (line.rfind('[', 0) == 0)
            section = line.substr(1, line.find(']') - 1);
        else if (line.rfind(';', 0) != 0 && eq != std::string::npos)
            out[section + "/" + line.substr(0, eq)] = line.substr(eq + 1);
    }
    return out;
}

// The statements whose values differ from `a` to `b`, less those `allowed` takes, one a line.
std::string Changes(const Source& a, const Source& b,
                    const std::function<bool(const std::string&)>& allowed) {
    Source keys = a;
    keys.insert(b.begin(), b.end());
    std::string out;
    for (const auto& kv : keys) {
        const std::string x = a.count(kv.first) ? a.at(kv.first) : "<absent>",
                          y = b.count(kv.first) ? b.at(kv.first) : "<absent>";
        if (x != y && !allowed(kv.first)) out += kv.first + ": " + x + " -> " + y + "\n";
    }
    return out;
}

// lsdvd's view of a disc: each title's lines, less its number (none without lsdvd).
std::vector<std::string> Lsdvd(const fs::path& disc) {
    std::vector<std::string> titles;
    std::istringstream in(tt::Shell("lsdvd -x " + tt::Quote(disc.string())).out);
    for (std::string line; std::getline(in, line);)
        if (line.rfind("Title: ", 0) == 0)
            titles.push_back(line.substr(line.find(',') + 1));
        else if (!titles.empty() && line.rfind('\t', 0) == 0)
            titles.back() += "\n" + line;
    return titles;
}

// Rebuilds `disc` into `out`, with empty VOB files of the recorded sizes where it has none.
tt::Result Rebuild(const fs::path& disc, const fs::path& out, bool libraryRules = false) {
    std::vector<std::string> args = {"rebuild", disc, "-o", out, "--placeholder-vobs", "-q"};
    if (libraryRules) args.push_back("--library-rules");
    return Kestro(args);
}

// Source statements that --library-rules does not carry from IFO to IFO', and why.
const std::regex kRewrittenByLibraryRules(
    // Tables are packed back to back, so start and end sectors and addresses move.
    "vmgi_mat/(vmg_ea|vmgi_ea|vmgi_mat_ea|.*_sa)|vtsi_mat/(vts_ea|vtsi_ea|vtsi_mat_ea|.*_sa)"
    // PGCs and their parts are packed in the library's order (disc-d lays them out at odd
    // offsets in another): their byte offsets move.
    "|(vts_pgcit|vtsm_lu|vmgm_lu|vtsm_pgci_ut|vmgm_pgci_ut)[\\d_]*/.*_(sa|ea)\\d*"
    "|ptl_mait/.*|vmg_ptt_srpt/ptl_mai_srp.*|txtdt_mg/.*"  // not part of an assembled file
    "|vmg_ptt_srpt/(vts_ttn|tt_ptl_id_fld)\\d+"  // TTN is always 1; parental IDs low byte first
    "|vmg_ptt_srpt/vts_sa\\d+"                   // the title sets move with the video manager
    "|vtsi_mat/vtsm_v_atr"                       // the menu video attribute keeps its low byte only
    "|vmgi_mat/pvr_id"                           // a provider ID of blanks is read back trimmed
    "|vts_atrt/vts_atrt_srp\\d+_vtsm_(ast|spst)_atr\\d+"  // written in hex, read in decimal
    "|(vmgm|vts|vtsm)_c_adt/.*"  // cell address tables keep as many entries as the table names VOBs
    "|(vts|vtsm)_vobu_admap/.*");  // maps of 65,536 bytes or more keep their size modulo 65,536

// A VTS_ATRT menu stream attribute, written in hex and read in decimal, drifts
// every round unless it reads the same both ways (x00 to x09).
bool DriftsUnderLibraryRules(const Source& source) {
    static const std::regex attr("vts_atrt/vts_atrt_srp\\d+_vtsm_(ast|spst)_atr\\d+");
    for (const auto& kv : source)
        if (std::regex_match(kv.first, attr) && kv.second.size() == 3 &&
            std::stoi(kv.second.substr(1), nullptr, 16) != std::stoi(kv.second.substr(1)))
            return true;
    return false;
}

// A rebuild keeps every IFO file's navigation (as lsdvd reads it too), and a second one every
// IFO and BUP byte. By the table classes' rules (IFO -> source -> IFO' -> source' -> IFO''),
// source' differs from source only where the rules rewrite, and IFO'' is IFO' unless the title
// set attributes drift.
void CheckRebuilds(const fs::path& disc) {
    kt::TempDir work;
    const fs::path in = disc / "VIDEO_TS", first = work / "first/VIDEO_TS",
                   second = work / "second/VIDEO_TS", rules = work / "rules/VIDEO_TS",
                   again = work / "again/VIDEO_TS";
    tt::Result r = Rebuild(disc, first.parent_path());
    ASSERT_EQ(r.code, 0) << r.err;
    r = Rebuild(first.parent_path(), second.parent_path());
    ASSERT_EQ(r.code, 0) << r.err;
    r = Rebuild(disc, rules.parent_path(), true);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(Lsdvd(disc), Lsdvd(first.parent_path()));
    for (const char* ext : {".IFO", ".BUP"})
        for (const auto& name : FilesOf(first, ext))
            EXPECT_TRUE(kt::ReadBytes(first / name) == kt::ReadBytes(second / name))
                << name << ": a second rebuild changed bytes";
    fs::create_directories(again);
    for (const auto& vob : FilesOf(rules, ".VOB")) fs::create_symlink(rules / vob, again / vob);
    for (const auto& name : FilesOf(in, ".IFO")) {
        SCOPED_TRACE(name);
        EXPECT_EQ(NavigationDiff(kt::ReadBytes(in / name), kt::ReadBytes(first / name)), "");
        const std::string s0 = work / (name + ".0.ini"), s1 = work / (name + ".1.ini"),
                          s2 = work / (name + ".2.ini");
        ASSERT_EQ(Kestro({"disasm", in / name, "-o", s0, "--library-rules"}).code, 0);
        ASSERT_EQ(Kestro({"disasm", rules / name, "-o", s1, "--library-rules"}).code, 0);
        ASSERT_EQ(Kestro({"asm", s1, "-o", again / name, "--library-rules"}).code, 0);
        ASSERT_EQ(Kestro({"disasm", again / name, "-o", s2, "--library-rules"}).code, 0);
        const Source before = Statements(s0), after = Statements(s1);
        EXPECT_EQ(Changes(before, after,
                          [](const std::string& key) {
                              return std::regex_match(key, kRewrittenByLibraryRules);
                          }),
                  "");
        const bool drifts = DriftsUnderLibraryRules(after);
        EXPECT_EQ(kt::ReadBytes(again / name) == kt::ReadBytes(rules / name), !drifts)
            << (drifts ? "the title set attributes drift, yet IFO'' == IFO'" : "IFO'' != IFO'");
        EXPECT_EQ(Changes(after, Statements(s2),
                          [&](const std::string& key) {
                              return drifts && key.rfind("vts_atrt/", 0) == 0;
                          }),
                  "");
    }
}

// The authored test disc (made once): menus in both domains, two title sets, three titles with
// chapters (two in one set), two audio and one sub-picture stream. It checks clean.
TEST(ToolDisc, AuthoredDiscChecksCleanAndRebuildsLosslessly) {
    TT_REQUIRE_KESTRO();
    TT_REQUIRE_TOOLS("ffmpeg", "spumux", "dvdauthor");
    kt::TempDir work;
    const tt::Result made =
        tt::Shell("bash " + tt::Quote(KESTRO_SOURCE_DIR "/scripts/make-test-disc.sh") + " " +
                  tt::Quote(work / "disc"));
    ASSERT_EQ(made.code, 0) << made.err;
    const tt::Result r = Kestro({"check", work / "disc"});
    EXPECT_EQ(r.code, 0) << r.out;
    EXPECT_NE(r.out.find("3 files checked: 0 errors, 0 warnings"), std::string::npos) << r.out;
    CheckRebuilds(work / "disc");
    if (tt::Shell("command -v lsdvd").code == 0) {
        const auto titles = Lsdvd(work / "disc");
        ASSERT_EQ(titles.size(), 3u);
        EXPECT_NE(titles[1].find("TTN: 02"), std::string::npos) << "no second title in one set";
    }
}

// The sample reports, disassembles into its own sources and rebuilds losslessly; lsdvd plays
// every title as authored (title 2 is the second title of title set 1, not its first again).
using ToolSampleDisc = tt::SampleDisc;

TEST_F(ToolSampleDisc, ReportsDisassemblesAndRebuildsAsAuthored) {
    const tt::Result r = Kestro({"report", root});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("VMG First Play PGC:"), std::string::npos);
    for (const auto& src : sources) {
        const std::string again = work / src.filename().string();
        ASSERT_EQ(Kestro({"disasm", ts / (src.stem().string() + ".IFO"), "-o", again}).code, 0);
        EXPECT_EQ(kt::ReadText(again), kt::ReadText(src)) << src;
    }
    CheckRebuilds(root);
    if (tt::Shell("command -v lsdvd").code == 0) {
        const auto titles = Lsdvd(root);
        ASSERT_EQ(titles.size(), 3u);
        EXPECT_NE(titles[0].find("Chapters: 03, Cells: 03, Audio streams: 02, Subpictures: 01"),
                  std::string::npos)
            << titles[0];
        EXPECT_NE(titles[1].find("Chapters: 02, Cells: 02"), std::string::npos) << titles[1];
        EXPECT_NE(titles[1].find("VTS: 01, TTN: 02"), std::string::npos) << titles[1];
        EXPECT_NE(titles[2].find("VTS: 02, TTN: 01"), std::string::npos) << titles[2];
    }
}

// Every real disc, each copied into a VIDEO_TS folder of its own.
TEST(ToolCorpus, RebuildsLosslessly) {
    TT_REQUIRE_KESTRO();
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
        CheckRebuilds(disc.path());
    }
}

}  // namespace
