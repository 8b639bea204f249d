// Whole discs through the kestro command (the authored test disc, the sample, the corpus): their
// rebuilds and checks, where rebuild puts its folder, what VOB stand-ins keep, how its summary
// names bytes, what killed runs left, and side files.
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <set>
#include <sstream>

#include "ifo_navigation.h"
#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using tt::Kestro;
using Source = std::set<std::string>;  // "section/key=value", sorted

Source Statements(const std::string& path) {
    Source out;
    std::istringstream in(kt::ReadText(path));
    std::string section;
    for (std::string line; std::getline(in, line);) {
        const size_t eq = line.find('=');
        if (line.rfind('[', 0) == 0)
            section = line.substr(1, line.find(']') - 1);
        else if (line.rfind(';', 0) != 0 && eq != std::string::npos)
            out.insert(section + "/" + line);
    }
    return out;
}

// The statements of `a` and of `b` that the other lacks, less those whose key `allowed` takes.
std::string Changes(const Source& a, const Source& b, const std::regex& allowed) {
    std::vector<std::string> both;
    std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(both));
    std::string out;
    for (const std::string& statement : both)
        if (!std::regex_match(statement.substr(0, statement.find('=')), allowed))
            out += statement + "\n";
    return out;
}

// lsdvd's reading of a disc (nothing without lsdvd).
std::string Lsdvd(const fs::path& disc) { return tt::Shell("lsdvd -x " + tt::Quote(disc)).out; }

// Runs the command, expecting success.
bool Ok(const std::vector<std::string>& args) {
    const tt::Result r = Kestro(args);
    EXPECT_EQ(r.code, 0) << args[0] << " " << args[1] << ": " << r.err;
    return r.code == 0;
}

// Statements that --library-rules does not carry from IFO to IFO', and why.
const std::regex kRewrittenByLibraryRules(
    // Tables are packed back to back, so start and end sectors and addresses move.
    "vmgi_mat/(vmg_ea|vmgi_ea|vmgi_mat_ea|.*_sa)|vtsi_mat/(vts_ea|vtsi_ea|vtsi_mat_ea|.*_sa)"
    // PGCs and their parts are packed in the library's order (disc-d lays them out at odd
    // offsets in another): their byte offsets move.
    "|(vts_pgcit|vtsm_lu|vmgm_lu|vtsm_pgci_ut|vmgm_pgci_ut)[\\d_]*/.*_(sa|ea)\\d*"
    "|ptl_mait/.*|vmg_ptt_srpt/ptl_mai_srp.*|txtdt_mg/.*"  // not part of an assembled file
    // TTN is always 1, parental IDs are read low byte first, title sets move with the manager.
    "|vmg_ptt_srpt/(vts_ttn|tt_ptl_id_fld|vts_sa)\\d+"
    "|vtsi_mat/vtsm_v_atr"  // the menu video attribute keeps its low byte only
    "|vmgi_mat/pvr_id"      // a provider ID of blanks is read back trimmed
    "|vts_atrt/vts_atrt_srp\\d+_vtsm_(ast|spst)_atr\\d+"  // written in hex, read in decimal
    "|(vmgm|vts|vtsm)_c_adt/.*"    // kept with as many entries as the table names VOBs
    "|(vts|vtsm)_vobu_admap/.*");  // maps of 65,536 bytes or more keep their size modulo 65,536

// A VTS_ATRT menu stream attribute, written in hex and read in decimal, drifts every round
// unless it reads the same both ways (x00 to x09).
bool DriftsUnderLibraryRules(const Source& source) {
    static const std::regex attr("vts_atrt/vts_atrt_srp\\d+_vtsm_(?:ast|spst)_atr\\d+=.(..)");
    std::smatch m;
    for (const std::string& statement : source)
        if (std::regex_match(statement, m, attr) && std::stoi(m[1], nullptr, 16) != std::stoi(m[1]))
            return true;
    return false;
}

// A rebuild (empty VOB files standing in for missing ones) keeps every IFO file's navigation, as
// lsdvd reads it too (one title for each of `titles`, in order), and a second one every byte. By
// the library's rules (IFO -> source -> IFO' -> source' -> IFO''), source' differs only where
// the rules rewrite, and IFO'' is IFO' unless the title set attributes drift.
void CheckRebuilds(const fs::path& disc, const std::vector<std::string>& titles = {}) {
    kt::TempDir work;
    const fs::path in = disc / "VIDEO_TS", first = work / "first/VIDEO_TS",
                   second = work / "second/VIDEO_TS", rules = work / "rules/VIDEO_TS";
    ASSERT_TRUE(
        Ok({"rebuild", disc, "-o", work / "first", "--placeholder-vobs", "-q"}) &&
        Ok({"rebuild", work / "first", "-o", work / "second", "--placeholder-vobs", "-q"}) &&
        Ok({"rebuild", disc, "-o", work / "rules", "--placeholder-vobs", "--library-rules"}));
    const std::string read = Lsdvd(disc);
    EXPECT_EQ(read, Lsdvd(first.parent_path()));
    if (!titles.empty() && tt::Shell("command -v lsdvd").code == 0) {
        size_t at = 0;
        for (const std::string& text : titles)
            EXPECT_NE(at = read.find(text, at), std::string::npos) << text << "\n" << read;
        EXPECT_EQ(read.find("\nTitle: ", at), std::string::npos) << "more titles:\n" << read;
    }
    for (auto& e : fs::directory_iterator(first)) {
        if (e.path().extension() == ".VOB") continue;
        EXPECT_TRUE(kt::ReadBytes(e.path()) == kt::ReadBytes(second / e.path().filename()))
            << e.path() << ": a second rebuild changed bytes";
    }
    for (auto& e : fs::directory_iterator(in)) {
        const std::string name = e.path().filename().string();
        if (e.path().extension() != ".IFO") continue;
        SCOPED_TRACE(name);
        EXPECT_EQ(NavigationDiff(kt::ReadBytes(in / name), kt::ReadBytes(first / name)), "");
        const std::string s0 = work / (name + ".0.ini"), s1 = work / (name + ".1.ini"),
                          s2 = work / (name + ".2.ini");
        const std::vector<uint8_t> once = kt::ReadBytes(rules / name);
        ASSERT_TRUE(Ok({"disasm", in / name, "-o", s0, "--library-rules"}) &&
                    Ok({"disasm", rules / name, "-o", s1, "--library-rules"}) &&
                    Ok({"asm", s1, "-o", rules / name, "--library-rules", "-f"}) &&
                    Ok({"disasm", rules / name, "-o", s2, "--library-rules"}));
        const Source after = Statements(s1);
        EXPECT_EQ(Changes(Statements(s0), after, kRewrittenByLibraryRules), "");
        const bool drifts = DriftsUnderLibraryRules(after);
        EXPECT_EQ(kt::ReadBytes(rules / name) == once, !drifts)
            << (drifts ? "the title set attributes drift, yet IFO'' == IFO'" : "IFO'' != IFO'");
        EXPECT_EQ(Changes(after, Statements(s2), std::regex(drifts ? "vts_atrt/.*" : "")), "");
    }
}

// The test disc authored by dvdauthor: menus in both domains, two title sets, three titles with
// chapters (two in one set), two audio and one sub-picture stream. It checks clean too.
TEST(ToolDisc, AuthoredDiscChecksCleanAndRebuildsLosslessly) {
    TT_REQUIRE_KESTRO();
    for (const char* tool : {"ffmpeg", "spumux", "dvdauthor"})
        if (tt::Shell(std::string("command -v ") + tool).code != 0) GTEST_SKIP() << "no " << tool;
    kt::TempDir work;
    const fs::path disc = work / "disc";
    const tt::Result made =
        tt::Shell("bash " + tt::Quote(KESTRO_SOURCE_DIR "/scripts/make-test-disc.sh") + " " +
                  tt::Quote(disc));
    ASSERT_EQ(made.code, 0) << made.err;
    const tt::Result r = Kestro({"check", disc});
    EXPECT_EQ(r.code, 0) << r.out;
    EXPECT_NE(r.out.find("3 files checked: 0 errors, 0 warnings"), std::string::npos) << r.out;
    CheckRebuilds(disc, {"\tVTS: 01, TTN: 01", "\tVTS: 01, TTN: 02", "\tVTS: 02, TTN: 01"});
}

// Runs check on `args`: exit status `code`, and each of `texts` in what it prints.
void ExpectCheck(std::vector<std::string> args, int code,
                 std::initializer_list<std::string> texts) {
    args.insert(args.begin(), "check");
    const tt::Result r = Kestro(args);
    EXPECT_EQ(r.code, code) << args.back() << ":\n" << r.out << r.err;
    for (const std::string& text : texts)
        EXPECT_NE(r.out.find(text), std::string::npos) << text << ":\n" << r.out;
}

using ToolCheck = tt::SampleDisc;

// The sample reports, disassembles into its own sources, rebuilds losslessly and plays every
// title as authored (title 2 is the second of title set 1). check: an error exits 1, a warning
// alone 0; --json holds every field; a source is assembled beside its folder's VOB files (or
// sizes given); one IFO file is checked with its neighbours, showing only its own findings.
TEST_F(ToolCheck, SampleRoundTripsAndChecks) {
    const tt::Result report = Kestro({"report", root});
    EXPECT_EQ(report.code, 0) << report.err;
    EXPECT_NE(report.out.find("VMG First Play PGC:"), std::string::npos);
    for (const auto& src : sources) {
        const std::string again = work / src.filename().string();
        ASSERT_TRUE(Ok({"disasm", ts / (src.stem().string() + ".IFO"), "-o", again}));
        EXPECT_EQ(kt::ReadText(again), kt::ReadText(src)) << src;
    }
    CheckRebuilds(
        root, {"Chapters: 03, Cells: 03, Audio streams: 02, Subpictures: 01\n\tVTS: 01, TTN: 01",
               "Chapters: 02, Cells: 02, Audio streams: 02, Subpictures: 01\n\tVTS: 01, TTN: 02",
               "\tVTS: 02, TTN: 01"});
    const std::string sound = ": 3 files checked: 0 errors, 0 warnings\n";
    ExpectCheck({root}, 0, {root.string() + sound});
    fs::copy_file(tt::SampleDir() / "VTS_02_0.ini", ts / "VTS_02_0.ini");
    ExpectCheck({ts / "VTS_02_0.ini"}, 0, {"1 file checked: 0 errors, 0 warnings"});
    ExpectCheck({work / "VTS_02_0.ini"}, 1, {"[error file.end-address]"});  // disassembled, no VOBs
    ExpectCheck({"--vob-sizes", tt::SampleDir() / "vobs.txt", tt::SampleDir() / "VTS_01_0.ini",
                 work / "VTS_02_0.ini"},
                0,
                {"VTS_01_0.ini: 1 file checked: 0 errors, 0 warnings",
                 "VTS_02_0.ini: 1 file checked: 0 errors"});

    fs::rename(ts / "VTS_02_1.VOB", work / "VTS_02_1.VOB");
    const std::string missing = ts / "missing";
    const tt::Result r = Kestro({"check", "--json", root, missing});
    EXPECT_EQ(r.code, 1);
    const std::string why =
        "the first title VOB file of 111 sectors in all, as VTS_02_0.IFO "
        "VTSI_MAT VTS_EA gives";
    auto expected = nlohmann::json::parse(R"j({"errors": 1, "warnings": 0, "paths": [
        {"errors": 1, "warnings": 0, "files": ["VIDEO_TS.IFO", "VTS_01_0.IFO", "VTS_02_0.IFO"],
         "findings": [{"entry": null, "field": "", "file": "VTS_02_1.VOB", "id": "vob.missing",
                       "problem": "the file is missing", "severity": "error", "table": ""}]}]})j");
    expected["paths"][0]["path"] = root.string();
    expected["paths"][0]["findings"][0]["expected"] = why;
    expected["paths"][0]["findings"][0]["text"] = "VTS_02_1.VOB: the file is missing (" + why + ")";
    expected["paths"].push_back(
        {{"path", missing}, {"error", missing + ": no such file or folder"}});
    EXPECT_EQ(nlohmann::json::parse(r.out), expected);
    fs::rename(work / "VTS_02_1.VOB", ts / "VTS_02_1.VOB");

    fs::remove(ts / "VTS_02_0.BUP");
    ExpectCheck({root}, 0, {"VTS_02_0.BUP: the file is missing"});
    ExpectCheck({"--ifo-only", root}, 0, {root.string() + sound});
    for (const std::string name : {"VTS_01_0.IFO", "VTS_01_0.BUP"}) {  // next PGC of title PGC 1
        auto b = kt::ReadBytes(ts / name);
        const size_t pgcit = size_t(kt::BE32(b, 204)) * 2048;
        kt::PutBE(b, pgcit + kt::BE32(b, pgcit + 12) + 156, 7, 2);
        kt::WriteBytes(ts / name, b);
    }
    ExpectCheck({root}, 1,
                {"VTS_01_0.IFO VTS_PGCIT[1] next PGC: PGC 7 does not exist (0 or 1 to 2)  [error "
                 "pgc.link]\n",
                 "3 files checked: 1 error, 1 warning"});
    ExpectCheck({ts / "VTS_01_0.IFO"}, 1, {"1 file checked: 1 error, 0 warnings"});
    ExpectCheck({ts / "VTS_02_0.IFO"}, 0, {"1 file checked: 0 errors"});
}

// Finding IDs, sorted, each with its count when it repeats: "pgc.link*8 vob.missing".
std::string Ids(const nlohmann::json& findings) {
    std::map<std::string, int> n;
    for (const auto& f : findings) ++n[f.at("id").get<std::string>()];
    std::string ids;
    for (const auto& [id, k] : n)
        ids += (ids.empty() ? "" : " ") + id + (k > 1 ? "*" + std::to_string(k) : "");
    return ids;
}

// Every real disc rebuilds losslessly; check reports what it lacks (VOB, BUP files, disc-e's title
// sets) and its navigation faults, warnings alone (--ifo-only): disc-d's menu unit declares only
// its root menu but holds four more menu types' entry PGCs, and three titles point at program 1
// of command-only PGCs; disc-e's menus name go-up PGC 65535.
TEST(ToolCorpus, EveryDiscRebuildsLosslesslyAndChecksItsRealFaults) {
    TT_REQUIRE_KESTRO();
    KT_REQUIRE_CORPUS("disc-e");
    // Per disc: the findings of the whole disc, and of its IFO files alone.
    const std::map<std::string, std::pair<std::string, std::string>> expected = {
        {"disc-a", {"file.backup-missing*2 vob.missing", ""}},
        {"disc-b", {"file.backup-missing*2 vob.missing*2", ""}},
        {"disc-c", {"vob.missing*19", ""}},
        {"disc-d",
         {"file.backup-missing menu.undeclared*4 ptt.program*3 vob.missing*2",
          "menu.undeclared*4 ptt.program*3"}},
        {"disc-e", {"pgc.link*8 title.vts-missing*5 vob.missing", "pgc.link*8"}},
    };
    for (const auto& [name, ids] : expected) {
        SCOPED_TRACE(name);
        kt::TempDir disc;
        fs::copy(kt::CorpusDir() / name, disc / "VIDEO_TS");
        for (bool ifoOnly : {false, true}) {
            const tt::Result r =
                Kestro({"check", "--json", ifoOnly ? "--ifo-only" : "--", disc.path()});
            const auto j = nlohmann::json::parse(r.out);
            EXPECT_EQ(Ids(j["paths"][0]["findings"]), ifoOnly ? ids.second : ids.first) << ifoOnly;
            EXPECT_EQ(r.code, j["errors"] > 0 ? 1 : 0);
            EXPECT_TRUE(!ifoOnly || j["errors"] == 0) << "read alone, faults are warnings";
        }
        CheckRebuilds(disc.path());
    }
}

using ToolRebuild = tt::SampleDisc;

// The summary names a byte by the file's own layout (First Play PGC moved from 1024 to 512, over
// the menu sub-picture attributes); -o names the VIDEO_TS folder, missing folders made (gone on
// failure); a menu VOB of no sectors (end addresses leave it none) keeps its start sector.
TEST_F(ToolRebuild, OutputFoldersSummaryAndPlaceholderVobs) {
    auto vmg = kt::ReadBytes(ts / "VIDEO_TS.IFO");
    const uint32_t fp = kt::BE32(vmg, 132), size = kt::BE32(vmg, 128) - fp + 1;
    ASSERT_EQ(fp, 1024u);
    std::copy(vmg.begin() + fp, vmg.begin() + fp + size, vmg.begin() + 512);
    std::fill(vmg.begin() + 512 + size, vmg.begin() + fp + size, 0);
    kt::PutBE(vmg, 132, 512, 4);
    kt::PutBE(vmg, 128, 512 + size - 1, 4);
    kt::WriteBytes(ts / "VIDEO_TS.IFO", vmg);
    const fs::path videoTs = work / "c/d/VIDEO_TS", bare = work / "bare";
    const tt::Result r = Kestro({"rebuild", root, "-o", videoTs});
    ASSERT_EQ(r.code, 0) << r.err;
    const size_t at = r.out.find("  VMGI_MAT");
    const std::string line = r.out.substr(at, r.out.find('\n', at) - at);
    EXPECT_TRUE(line.find("(fp_pgc)") != line.npos && line.find("vmgm_spst_atr") == line.npos)
        << line;
    for (const char* name : {"VIDEO_TS.IFO", "VTS_01_0.BUP", "VTS_02_1.VOB"})
        EXPECT_TRUE(fs::is_regular_file(videoTs / name)) << name;
    EXPECT_FALSE(fs::exists(videoTs / "VIDEO_TS"));
    EXPECT_EQ(fs::status(videoTs).permissions() & fs::perms::others_read, fs::perms::others_read);

    kt::PutBE(vmg, 12, 2 * (kt::BE32(vmg, 28) + 1) - 1, 4);  // VMG_EA: IFO and BUP only
    fs::create_directories(bare);
    kt::WriteBytes(bare / "VIDEO_TS.IFO", vmg);
    ASSERT_EQ(Kestro({"rebuild", bare, "-o", work / "out", "-q", "--placeholder-vobs"}).code, 0);
    const auto rebuilt = kt::ReadBytes(work / "out/VIDEO_TS/VIDEO_TS.IFO");
    EXPECT_EQ(kt::BE32(rebuilt, 192), kt::BE32(rebuilt, 28) + 1) << "menu VOB start sector";
    EXPECT_EQ(fs::file_size(work / "out/VIDEO_TS/VIDEO_TS.VOB"), 0u);

    kt::WriteText(ts / "VTS_02_0.IFO", "not an IFO file");
    EXPECT_EQ(Kestro({"rebuild", root, "-o", work / "e/f/VIDEO_TS", "-q"}).code, 1);
    EXPECT_FALSE(fs::exists(work / "e"));
}

// An old folder a killed --force rebuild left aside (where folders cannot be swapped in one
// step) is put back by the next run, not cleared away.
TEST_F(ToolRebuild, AFolderMovedAsideByAKilledRunComesBack) {
    const pid_t ended = fork();
    if (ended == 0) _exit(0);
    waitpid(ended, nullptr, 0);
    const fs::path aside = work / (".out.kestro-" + std::to_string(ended) + "-Xy12Ab/old");
    fs::create_directories(aside / "VIDEO_TS");
    kt::WriteText(aside / "VIDEO_TS/VIDEO_TS.IFO", "the old disc\n");
    const tt::Result r = Kestro({"rebuild", root, "-o", work / "out", "-q"});
    EXPECT_TRUE(r.code == 1 && r.err.find("exists") != std::string::npos) << r.err;
    EXPECT_EQ(kt::ReadText(work / "out/VIDEO_TS/VIDEO_TS.IFO"), "the old disc\n");
    EXPECT_FALSE(fs::exists(aside.parent_path()));
}

// Maps as "ini" or "bin" side files assemble the same IFO file as one source; disasm --force
// removes the side files of the source it replaces.
TEST_F(ToolRebuild, SideFilesAssembleTheSameFile) {
    const fs::path ifo = ts / "VTS_01_0.IFO";
    const std::vector<uint8_t> reference = kt::ReadBytes(ifo);
    for (const std::string side : {"ini", "bin"}) {
        ASSERT_TRUE(Ok({"disasm", ifo, "-o", work / (side + ".ini"), "--side-files", side}) &&
                    Ok({"asm", work / (side + ".ini"), "-o", ifo, "--no-backup", "-f"}));
        EXPECT_TRUE(kt::ReadBytes(ifo) == reference) << side;
    }
    ASSERT_TRUE(fs::exists(work / "bin tmap.bin") && fs::exists(work / "ini TmapTable1.ini"));
    ASSERT_TRUE(Ok({"disasm", ts / "VTS_02_0.IFO", "-o", work / "bin.ini", "--force"}));
    for (auto& e : fs::directory_iterator(work.path()))
        EXPECT_NE(e.path().filename().string().rfind("bin ", 0), 0u) << e.path() << " was left";
}

}  // namespace
