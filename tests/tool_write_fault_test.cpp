// A failed write (made to fail by fault_shim.cpp, each write in turn) makes every writing
// subcommand exit 1 naming the file and why, with every earlier file byte-identical and
// nothing left behind; a rebuild killed at random leaves its output absent or complete.
#include <chrono>
#include <functional>
#include <map>
#include <random>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using Args = std::vector<std::string>;

// Every file and folder below `dir` (hidden ones included): relative path -> content ("<dir>"
// for folders; with `vobSizes`, a VOB file's size, as they are large).
std::map<std::string, std::string> Snapshot(const fs::path& dir, bool vobSizes = false) {
    std::map<std::string, std::string> out;
    std::error_code ec;
    for (auto& e : fs::recursive_directory_iterator(dir, ec))
        out[fs::relative(e.path(), dir).string()] = e.is_directory() ? "<dir>"
                                                    : vobSizes && e.path().extension() == ".VOB"
                                                        ? std::to_string(e.file_size())
                                                        : kt::ReadText(e.path().string());
    return out;
}

// The command line of the kestro command run with `args`, after `prefix`.
std::string Line(const std::string& prefix, const Args& args) {
    std::string line = prefix + tt::Quote(tt::KestroBinary());
    for (const auto& a : args) line += " " + tt::Quote(a);
    return line;
}

// Runs the command with the shim preloaded, set by `faults` (KESTRO_FAULT_* assignments).
tt::Result KestroWithFaults(const Args& args, const std::string& faults) {
    std::string asan = "verify_asan_link_order=0";
    if (const char* given = std::getenv("ASAN_OPTIONS")) asan = std::string(given) + ":" + asan;
    return tt::Shell(Line("env LD_PRELOAD=" + tt::Quote(KESTRO_FAULT_SHIM) +
                              " ASAN_OPTIONS=" + tt::Quote(asan) + " " + faults + " ",
                          args));
}

// The sample disc (examples/sample) assembled with empty VOB files of its
// recorded sizes, its sources, and an IFO-only copy of it.
class WriteFaults : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        const std::string loaded = work_ / "loaded";
        KestroWithFaults({"--version"}, "KESTRO_FAULT_LOADED=" + tt::Quote(loaded));
        if (!fs::exists(loaded))
            GTEST_SKIP() << "the fault library does not reach " << tt::KestroBinary()
                         << " (a statically linked command); configure with KESTRO_STATIC_TOOL=OFF";
        fs::create_directories(ifoOnly_);
        fs::create_directories(src_);
        for (const auto& source : tt::AssembleSample(disc_)) {
            const std::string stem = source.stem().string();
            fs::copy_file(disc_ / (stem + ".IFO"), ifoOnly_ / (stem + ".IFO"));
            fs::copy_file(source, src_ / (stem + ".ini"));
        }
        fs::create_directories(out_);
    }

    // Runs each of `runs` with the Nth write failing, for N = 1, 2, ... until a run succeeds,
    // below out_ and, with `everyFile`, below "/" (the library's own writes go to private
    // folders, and are checked there); then on a device that fills up at once or after 3000
    // bytes and on one whose syncs fail. Each failed run exits 1 naming a path below out_ and
    // the reason, and leaves out_ exactly as it was.
    void FailWrites(const std::vector<Args>& runs, bool everyFile,
                    const std::function<void()>& reset) {
        std::map<std::string, std::string> before;
        auto restart = [&] {  // a success may leave new files that reset keeps: they stay
            reset();
            before = Snapshot(out_);
        };
        restart();
        for (const Args& args : runs) {
            // Whether the run failed under `faults` (only the Nth write's failure may not come).
            auto fails = [&](const std::string& faults) {
                SCOPED_TRACE(Line(faults + ": ", args));
                const tt::Result r = KestroWithFaults(args, "KESTRO_FAULT_DIR=" + faults);
                if (r.code == 0 && faults.find("_WRITE=") != std::string::npos) return false;
                const bool eio = faults.find("_ERRNO=EIO") != std::string::npos ||
                                 faults.find("_FSYNC=") != std::string::npos;
                EXPECT_TRUE(r.code == 1 && r.err.find(out_.string()) != std::string::npos &&
                            r.err.find(eio ? "Input/output error" : "No space left on device") !=
                                std::string::npos)
                    << r.code << ": " << r.err;
                EXPECT_EQ(Snapshot(out_), before) << "changed or left files";
                return true;
            };
            for (int d = 0; d <= int(everyFile); ++d) {
                const std::string dir = tt::Quote(d ? "/" : out_.string());
                long n = 1;
                while (n < 200 && fails(dir + " KESTRO_FAULT_WRITE=" + std::to_string(n) +
                                        (n % 2 ? "" : " KESTRO_FAULT_ERRNO=EIO")))
                    ++n;
                EXPECT_TRUE(n > 1 && n < 200) << dir << ": " << n;
                restart();
            }
            for (const char* device : {"BYTES=0", "BYTES=3000", "FSYNC=1"})
                fails(tt::Quote(out_) + " KESTRO_FAULT_" + device);
            restart();
        }
    }

    kt::TempDir work_;
    fs::path disc_ = work_.path() / "disc/VIDEO_TS";
    fs::path ifoOnly_ = work_.path() / "ifo-only/VIDEO_TS";
    fs::path src_ = work_.path() / "src";
    fs::path out_ = work_.path() / "out";
};

// asm and disasm keep every file when any write fails, over existing outputs (--force) and
// none at all.
TEST_F(WriteFaults, AsmAndDisasmKeepEveryFileWhenAWriteFails) {
    const std::string source = src_ / "VTS_01_0.ini", ifo = disc_ / "VTS_01_0.IFO",
                      ini = out_ / "S/x.ini";
    FailWrites({{"asm", source, "-o", out_ / "V/VTS_01_0.IFO", "--force"},
                {"asm", source, "-o", out_ / "V/VTS_01_0 new.IFO"},
                {"disasm", ifo, "-o", ini, "--force"},
                {"disasm", ifo, "-o", ini, "--side-files", "ini", "--force"},
                {"disasm", ifo, "-o", ini, "--side-files", "bin", "--force"}},
               true, [&] {
                   fs::create_directories(out_ / "V");
                   fs::create_directories(out_ / "S");
                   fs::remove(out_ / "V/VTS_01_0 new.IFO");
                   fs::remove(out_ / "V/VTS_01_0 new.BUP");
                   for (const char* name : {"V/VTS_01_0.IFO", "V/VTS_01_0.BUP"})
                       fs::copy_file(disc_ / "VTS_02_0.IFO", out_ / name,
                                     fs::copy_options::overwrite_existing);
                   for (const char* name :
                        {"x.ini", "x tmap.bin", "x vts_vobu_admap.bin", "x TmapTable1.ini"})
                       kt::WriteText(out_ / "S" / name, "old\n");
               });
}

// A rebuild whose write fails leaves the output folder as it was.
TEST_F(WriteFaults, RebuildLeavesTheOutputFolderAsItWas) {
    const std::string disc = disc_.parent_path(), bare = ifoOnly_.parent_path(),
                      fresh = out_ / "new", old = out_ / "old";
    FailWrites({{"rebuild", disc, "-o", fresh, "-q"},
                {"rebuild", disc, "-o", fresh + "/a/VIDEO_TS", "-q"},
                {"rebuild", disc, "-o", old, "-q", "--force"},
                {"rebuild", disc, "-o", fresh, "-q", "--copy-vobs"},
                {"rebuild", bare, "-o", fresh, "-q", "--placeholder-vobs"}},
               false, [&] {
                   fs::remove_all(fresh);
                   fs::remove_all(old);
                   fs::create_directories(old + "/VIDEO_TS");
                   kt::WriteText(old + "/VIDEO_TS/VIDEO_TS.IFO", "the old disc\n");
               });
}

// A rebuild killed at any moment leaves its output absent or complete; an old folder replaced
// with --force is the old one or the new one, never a mix; the next run removes what killed
// runs left beside the output.
TEST_F(WriteFaults, AKilledRebuildLeavesItsOutputAbsentOrComplete) {
    fs::resize_file(disc_ / "VTS_01_1.VOB", 96u << 20);  // a copy long enough to be cut
    const std::string disc = disc_.parent_path(), fresh = out_ / "new", old = out_ / "old";
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", fresh, "-q", "--copy-vobs"}).code, 0);
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(
                          std::chrono::steady_clock::now() - start)
                          .count();
    const auto complete = Snapshot(fresh, true);
    fs::remove_all(fresh);
    auto killed = [](long us, const Args& args) {  // true when cut short after `us` microseconds
        char after[32];
        std::snprintf(after, sizeof after, "%ld.%06ld", us / 1000000, us % 1000000);
        return tt::Shell(Line("timeout --foreground -s KILL " + std::string(after) + " ", args))
                   .code != 0;
    };
    auto makeOld = [&] {
        fs::remove_all(old);
        fs::create_directories(old + "/VIDEO_TS");
        kt::WriteText(old + "/VIDEO_TS/VIDEO_TS.IFO", "the old disc\n");
        return Snapshot(old, true);
    };
    const auto oldShape = makeOld();
    std::mt19937 random(20261123);
    std::uniform_int_distribution<long> when(1, took * 12 / 10);
    int cut = 0;
    for (int run = 0; run < 24; ++run) {
        const long us = when(random);
        SCOPED_TRACE("killed after " + std::to_string(us) + " us");
        cut += killed(us, {"rebuild", disc, "-o", fresh, "-q", "--copy-vobs"});
        EXPECT_TRUE(!fs::exists(fresh) || Snapshot(fresh, true) == complete);
        fs::remove_all(fresh);
        killed(us, {"rebuild", disc, "-o", old, "-q", "--copy-vobs", "--force"});
        const auto now = Snapshot(old, true);
        EXPECT_TRUE(now == oldShape || now == complete) << "the old folder is gone or a mix";
        makeOld();
    }
    EXPECT_GT(cut, 0) << "no run was cut short";
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", fresh, "-q"}).code, 0);
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", old, "-q", "--force"}).code, 0);
    for (auto& e : fs::directory_iterator(out_))
        EXPECT_TRUE(e.path() == fresh || e.path() == old) << e.path() << " was left behind";
}

}  // namespace
