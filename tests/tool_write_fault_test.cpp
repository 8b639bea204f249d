// Writing subcommands on a failing disk (fault_shim.cpp) or killed: outputs old or complete.
#include <chrono>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using Args = std::vector<std::string>;

// Everything below `dir`, hidden or not: relative path -> content ("<dir>"; a VOB file's size).
std::map<std::string, std::string> Snapshot(const fs::path& dir) {
    std::map<std::string, std::string> out;
    std::error_code ec;
    for (auto& e : fs::recursive_directory_iterator(dir, ec))
        out[fs::relative(e.path(), dir)] = e.is_directory() ? "<dir>"
                                           : e.path().extension() == ".VOB"
                                               ? std::to_string(e.file_size())
                                               : kt::ReadText(e.path());
    return out;
}

// The command line that runs the kestro command with `args`, after `prefix`.
std::string Line(const std::string& prefix, const Args& args) {
    std::string line = prefix + tt::Quote(tt::KestroBinary());
    for (const auto& a : args) line += " " + tt::Quote(a);
    return line;
}

// Runs the command with the shim preloaded, set by `faults` (KESTRO_FAULT_* assignments).
tt::Result KestroWithFaults(const Args& args, const std::string& faults) {
    std::string asan = "verify_asan_link_order=0";  // the shim is loaded before the runtime
    if (const char* given = std::getenv("ASAN_OPTIONS")) asan = std::string(given) + ":" + asan;
    const std::string env = "env LD_PRELOAD=" + tt::Quote(KESTRO_FAULT_SHIM) + " ASAN_OPTIONS=";
    return tt::Shell(Line(env + tt::Quote(asan) + " " + faults + " ", args));
}

// The sample disc assembled (empty VOB files of the sizes it records), and an IFO-only copy.
class WriteFaults : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        KestroWithFaults({"--version"}, "KESTRO_FAULT_LOADED=" + tt::Quote(work_ / "loaded"));
        if (!fs::exists(work_ / "loaded"))
            GTEST_SKIP() << "a statically linked kestro cannot take the fault library";
        fs::create_directories(bare_ + "/VIDEO_TS");
        for (const auto& source : tt::AssembleSample(disc_ + "/VIDEO_TS"))
            fs::copy_file(disc_ + "/VIDEO_TS/" + source.stem().string() + ".IFO",
                          bare_ + "/VIDEO_TS/" + source.stem().string() + ".IFO");
    }
    std::map<std::string, std::string> MakeOld() {
        fs::remove_all(old_);
        fs::create_directories(old_ + "/VIDEO_TS");
        kt::WriteText(old_ + "/VIDEO_TS/VIDEO_TS.IFO", "the old disc\n");
        return Snapshot(old_);
    }

    kt::TempDir work_;
    const std::string disc_ = work_ / "disc", bare_ = work_ / "ifo-only", out_ = work_ / "out",
                      fresh_ = out_ + "/new", old_ = out_ + "/old";
};

// Each run with its Nth write failing, N = 1, 2, ... until it succeeds, below the output (and "/"
// for asm and disasm), then on a device full at once or after 3000 bytes or failing syncs: it
// exits 1 naming output and reason, and leaves the output folder exactly as it was.
TEST_F(WriteFaults, EveryWritingSubcommandKeepsEveryFileWhenAWriteFails) {
    const std::string source = tt::SampleDir() / "VTS_01_0.ini",
                      ifo = disc_ + "/VIDEO_TS/VTS_01_0.IFO", ini = out_ + "/S/x.ini";
    const std::vector<Args> runs = {{"asm", source, "-o", out_ + "/V/VTS_01_0.IFO", "--force"},
                                    {"asm", source, "-o", out_ + "/V/VTS_01_0 new.IFO"},
                                    {"disasm", ifo, "-o", ini, "--force"},
                                    {"disasm", ifo, "-o", ini, "--side-files", "ini", "--force"},
                                    {"disasm", ifo, "-o", ini, "--side-files", "bin", "--force"},
                                    {"rebuild", disc_, "-o", fresh_, "-q"},
                                    {"rebuild", disc_, "-o", fresh_ + "/a/VIDEO_TS", "-q"},
                                    {"rebuild", disc_, "-o", old_, "-q", "--force"},
                                    {"rebuild", disc_, "-o", fresh_, "-q", "--copy-vobs"},
                                    {"rebuild", bare_, "-o", fresh_, "-q", "--placeholder-vobs"}};
    std::map<std::string, std::string> before;
    auto reset = [&] {  // the output folder as each run finds it
        fs::remove_all(out_);
        MakeOld();
        fs::create_directories(out_ + "/S"), fs::create_directories(out_ + "/V");
        for (const char* name : {"V/VTS_01_0.IFO", "V/VTS_01_0.BUP", "S/x.ini", "S/x tmap.bin",
                                 "S/x vts_vobu_admap.bin", "S/x TmapTable1.ini"})
            kt::WriteText(out_ + "/" + name, "old\n");
        before = Snapshot(out_);
    };
    reset();
    for (const Args& args : runs) {
        // Runs with `fault` below `dir`: false when it succeeded all the same.
        auto fails = [&](const std::string& dir, const std::string& fault, bool eio) {
            const std::string faults = "KESTRO_FAULT_DIR=" + tt::Quote(dir) + " KESTRO_FAULT_" +
                                       fault + (eio ? " KESTRO_FAULT_ERRNO=EIO" : "");
            SCOPED_TRACE(Line(faults + ": ", args));
            const tt::Result r = KestroWithFaults(args, faults);
            if (r.code == 0 && fault[0] == 'W') return false;
            const char* why = eio ? "Input/output error" : "No space left on device";
            EXPECT_TRUE(r.code == 1 && r.err.find(out_) != r.err.npos &&
                        r.err.find(why) != r.err.npos)
                << r.code << ": " << r.err;
            EXPECT_EQ(Snapshot(out_), before) << "changed or left files";
            return true;
        };
        for (const std::string& dir : {out_, std::string("/")}) {
            if (dir == "/" && args[0] == "rebuild") break;
            long n = 1;
            while (n < 200 && fails(dir, "WRITE=" + std::to_string(n), n % 2 == 0)) ++n;
            EXPECT_TRUE(n > 1 && n < 200) << dir << ": " << n;
            reset();
        }
        for (const char* device : {"BYTES=0", "BYTES=3000", "FSYNC=1"})
            fails(out_, device, device[0] == 'F');
        reset();
    }
}

// A rebuild killed at any moment leaves its output absent or complete, an old folder it replaces
// old or new, never a mix; the next run removes what killed runs left beside the output.
TEST_F(WriteFaults, AKilledRebuildLeavesItsOutputAbsentOrComplete) {
    fs::resize_file(disc_ + "/VIDEO_TS/VTS_01_1.VOB", 96u << 20);  // a copy long enough to cut
    using namespace std::chrono;
    const auto start = steady_clock::now();
    ASSERT_EQ(tt::Kestro({"rebuild", disc_, "-o", fresh_, "-q", "--copy-vobs"}).code, 0);
    const long took = duration_cast<microseconds>(steady_clock::now() - start).count();
    const auto complete = Snapshot(fresh_), oldShape = MakeOld();
    fs::remove_all(fresh_);
    auto killed = [](long us, const Args& args) {  // true when cut short after `us` microseconds
        const std::string after = std::to_string(us / 1e6);  // seconds, to the microsecond
        return tt::Shell(Line("timeout --foreground -s KILL " + after + " ", args)).code != 0;
    };
    int cut = 0;
    for (long run = 0; run < 24; ++run) {
        const long us = 1 + took * 12 / 10 * run / 24;  // from the start to past the end
        SCOPED_TRACE("killed after " + std::to_string(us) + " us");
        cut += killed(us, {"rebuild", disc_, "-o", fresh_, "-q", "--copy-vobs"});
        EXPECT_TRUE(!fs::exists(fresh_) || Snapshot(fresh_) == complete);
        fs::remove_all(fresh_);
        killed(us, {"rebuild", disc_, "-o", old_, "-q", "--copy-vobs", "--force"});
        const auto now = Snapshot(old_);
        EXPECT_TRUE(now == oldShape || now == complete) << "the old folder is gone or a mix";
        MakeOld();
    }
    EXPECT_GT(cut, 0) << "no run was cut short";
    ASSERT_EQ(tt::Kestro({"rebuild", disc_, "-o", fresh_, "-q"}).code, 0);
    ASSERT_EQ(tt::Kestro({"rebuild", disc_, "-o", old_, "-q", "--force"}).code, 0);
    for (auto& e : fs::directory_iterator(out_))
        EXPECT_TRUE(e.path() == fresh_ || e.path() == old_) << e.path() << " was left behind";
}

}  // namespace
