// kestro check on the sample disc, sound and faulty, on one IFO file and on a source: its
// findings, JSON output and exit codes.
#include <nlohmann/json.hpp>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using tt::Kestro;
using tt::Result;

class ToolCheck : public tt::SampleDisc {
protected:
    // Runs check on `args`: exit status `code`, and each of `texts` in what it prints.
    void Expect(std::vector<std::string> args, int code, std::initializer_list<std::string> texts) {
        args.insert(args.begin(), "check");
        const Result r = Kestro(args);
        EXPECT_EQ(r.code, code) << args.back() << ":\n" << r.out << r.err;
        for (const std::string& text : texts)
            EXPECT_NE(r.out.find(text), std::string::npos) << text << ":\n" << r.out;
    }
    // Sets a big-endian field of an IFO file and of its BUP copy alike.
    void Patch(const std::string& name, size_t at, uint32_t value, int width) {
        for (const char* ext : {".IFO", ".BUP"}) {
            auto bytes = kt::ReadBytes(ts / (name + ext));
            kt::PutBE(bytes, at, value, width);
            kt::WriteBytes(ts / (name + ext), bytes);
        }
    }
};

// An error gives its line and exit status 1, a warning alone status 0; --json gives every field
// of every finding. A source is checked assembled next to the VOB files of its folder (or sizes
// given); one IFO file is checked with its neighbours, showing only its own findings.
TEST_F(ToolCheck, FindingsAndExitStatus) {
    const std::string sound = ": 3 files checked: 0 errors, 0 warnings\n";
    Expect({root}, 0, {root.string() + sound});
    Expect({ts}, 0, {ts.string() + sound});
    fs::copy_file(tt::SampleDir() / "VTS_02_0.ini", ts / "VTS_02_0.ini");
    Expect({ts / "VTS_02_0.ini"}, 0, {"1 file checked: 0 errors, 0 warnings"});
    fs::copy_file(tt::SampleDir() / "VTS_02_0.ini", work / "VTS_02_0.ini");
    Expect({work / "VTS_02_0.ini"}, 1, {"[error file.end-address]"});  // no title VOBs beside it
    Expect({"--vob-sizes", tt::SampleDir() / "vobs.txt", tt::SampleDir() / "VTS_01_0.ini",
            work / "VTS_02_0.ini"},
           0,
           {"VTS_01_0.ini: 1 file checked: 0 errors, 0 warnings",
            "VTS_02_0.ini: 1 file checked: 0 errors"});

    fs::rename(ts / "VTS_02_1.VOB", work / "VTS_02_1.VOB");
    const std::string missing = ts / "missing";
    const Result r = Kestro({"check", "--json", root, missing});
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

    const auto ifo = kt::ReadBytes(ts / "VTS_01_0.IFO");
    const size_t pgcit = size_t(kt::BE32(ifo, 204)) * 2048,
                 pgc1 = pgcit + kt::BE32(ifo, pgcit + 12);
    Patch("VTS_01_0", pgc1 + 156, 7, 2);  // next PGC of title PGC 1
    Expect({root}, 1,
           {"VTS_01_0.IFO VTS_PGCIT[1] next PGC: PGC 7 does not exist (0 or 1 to 2)  [error "
            "pgc.link]\n",
            "3 files checked: 1 error, 0 warnings"});
    Patch("VTS_01_0", pgc1 + 156, 0, 2);
    fs::remove(ts / "VTS_02_0.BUP");
    Expect({root}, 0, {"VTS_02_0.BUP: the file is missing"});
    Expect({"--ifo-only", root}, 0, {root.string() + sound});
    Patch("VIDEO_TS", 62, 0, 2);  // no title sets in VMGI_MAT
    Expect({ts / "VTS_02_0.IFO"}, 0, {"1 file checked: 0 errors"});
    Expect({ts / "VIDEO_TS.IFO"}, 1,
           {"VIDEO_TS.IFO VMGI_MAT VMG_NR_OF_TITLE_SETS: 0 title sets (1 to 99)"});
}

}  // namespace
