// A failed write (made to fail by fault_shim.cpp, each write in turn) makes every writing
// subcommand exit 1 naming the file and why, with every earlier file byte-identical and
// nothing left behind; a rebuild killed at random leaves its output absent or complete.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "tool_support.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

// Every file and folder below `dir` (hidden ones included): relative path ->
// content ("<dir>" for folders; with `vobSizes`, a VOB file's size, as they are large).
std::map<std::string, std::string> Snapshot(const fs::path& dir, bool vobSizes = false) {
    std::map<std::string, std::string> out;
    std::error_code ec;
    for (auto& e : fs::recursive_directory_iterator(dir, ec)) {
        const std::string rel = fs::relative(e.path(), dir).string();
        if (e.is_directory())
            out[rel] = "<dir>";
        else if (vobSizes && e.path().extension() == ".VOB")
            out[rel] = std::to_string(e.file_size());
        else
            out[rel] = kt::ReadText(e.path().string());
    }
    return out;
}

struct Faults {
    std::string dir;     // writes below this folder fail ("/": every file)
    long write = 0;      // the Nth write fails
    long bytes = -1;     // or every write after so many bytes
    bool fsync = false;  // or every sync
    const char* error = "ENOSPC";
};

const char* ReasonOf(const char* error) {
    return std::string(error) == "EIO" ? "Input/output error" : "No space left on device";
}

tt::Result KestroWithFaults(const std::vector<std::string>& args, const Faults& f) {
    std::string asan = "verify_asan_link_order=0";
    if (const char* given = std::getenv("ASAN_OPTIONS")) asan = std::string(given) + ":" + asan;
    std::string line =
        "env LD_PRELOAD=" + tt::Quote(KESTRO_FAULT_SHIM) + " ASAN_OPTIONS=" + tt::Quote(asan) +
        " KESTRO_FAULT_DIR=" + tt::Quote(f.dir) + " KESTRO_FAULT_WRITE=" + std::to_string(f.write) +
        " KESTRO_FAULT_BYTES=" + std::to_string(f.bytes) +
        " KESTRO_FAULT_FSYNC=" + (f.fsync ? "1" : "0") + " KESTRO_FAULT_ERRNO=" + f.error + " " +
        tt::Quote(tt::KestroBinary());
    for (const auto& a : args) line += " " + tt::Quote(a);
    return tt::Shell(line);
}

// The sample disc (examples/sample) assembled with empty VOB files of its
// recorded sizes, its sources, and an IFO-only copy of it.
class WriteFaults : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        kt::TempDir probe;
        const std::string loaded = probe / "loaded";
        tt::Shell("env LD_PRELOAD=" + tt::Quote(KESTRO_FAULT_SHIM) +
                  " ASAN_OPTIONS=verify_asan_link_order=0 KESTRO_FAULT_LOADED=" +
                  tt::Quote(loaded) + " " + tt::Quote(tt::KestroBinary()) + " --version");
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

    // Runs `args` with the Nth write below `faultDir` failing, for N = 1, 2,
    // ... until a run succeeds: each failed run exits 1 naming a path below
    // out_ and the reason, and leaves out_ exactly as it was.
    void FailEveryWrite(const std::string& what, const std::vector<std::string>& args,
                        const std::string& faultDir) {
        const auto before = Snapshot(out_);
        long n = 1;
        for (; n < 200; ++n) {
            Faults f{faultDir, n};
            f.error = n % 2 ? "ENOSPC" : "EIO";
            tt::Result r = KestroWithFaults(args, f);
            if (r.code == 0) break;
            EXPECT_EQ(r.code, 1) << what << ", write " << n << ": " << r.err;
            EXPECT_NE(r.err.find(out_.string()), std::string::npos)
                << what << ", write " << n << ": " << r.err;
            EXPECT_NE(r.err.find(ReasonOf(f.error)), std::string::npos)
                << what << ", write " << n << ": " << r.err;
            ASSERT_EQ(Snapshot(out_), before)
                << what << ": write " << n << " changed or left files";
        }
        EXPECT_GT(n, 1) << what << ": no write was made to fail";
        EXPECT_LT(n, 200) << what << ": never succeeded";
    }

    // The same command on a device that fills up after a few bytes, and on
    // one whose syncs fail: both fail and change nothing.
    void FailFullDeviceAndSync(const std::string& what, const std::vector<std::string>& args) {
        const auto before = Snapshot(out_);
        for (Faults f : {Faults{out_.string(), 0, 0}, Faults{out_.string(), 0, 3000},
                         Faults{out_.string(), 0, -1, true}}) {
            tt::Result r = KestroWithFaults(args, f);
            EXPECT_EQ(r.code, 1) << what << " (bytes " << f.bytes << ", sync " << f.fsync
                                 << "): " << r.err;
            EXPECT_NE(r.err.find(out_.string()), std::string::npos) << what << ": " << r.err;
            ASSERT_EQ(Snapshot(out_), before)
                << what << " (bytes " << f.bytes << ", sync " << f.fsync << ")";
        }
    }

    kt::TempDir work_;
    fs::path disc_ = work_.path() / "disc/VIDEO_TS";
    fs::path ifoOnly_ = work_.path() / "ifo-only/VIDEO_TS";
    fs::path src_ = work_.path() / "src";
    fs::path out_ = work_.path() / "out";
};

// asm and disasm keep every file when any write fails.
TEST_F(WriteFaults, AsmAndDisasmKeepEveryFileWhenAWriteFails) {
    // Existing outputs to be replaced with --force, and none at all; a
    // success leaves new outputs, so each phase starts from the old ones.
    fs::create_directories(out_ / "V");
    fs::create_directories(out_ / "S");
    auto reset = [&] {
        fs::remove(out_ / "V/VTS_01_0 new.IFO");
        fs::remove(out_ / "V/VTS_01_0 new.BUP");
        for (const char* name : {"V/VTS_01_0.IFO", "V/VTS_01_0.BUP"})
            fs::copy_file(disc_ / "VTS_02_0.IFO", out_ / name,
                          fs::copy_options::overwrite_existing);
        for (const char* name : {"x.ini", "x tmap.bin", "x vts_vobu_admap.bin", "x TmapTable1.ini"})
            kt::WriteText((out_ / "S" / name).string(), "old\n");
    };
    reset();
    const std::string source = (src_ / "VTS_01_0.ini").string(),
                      ifo = (disc_ / "VTS_01_0.IFO").string();
    const std::vector<std::pair<std::string, std::vector<std::string>>> runs = {
        {"asm over an IFO and its BUP",
         {"asm", source, "-o", (out_ / "V/VTS_01_0.IFO").string(), "--force"}},
        {"asm into a new file", {"asm", source, "-o", (out_ / "V/VTS_01_0 new.IFO").string()}},
        {"disasm", {"disasm", ifo, "-o", (out_ / "S/x.ini").string(), "--force"}},
        {"disasm, ini side files",
         {"disasm", ifo, "-o", (out_ / "S/x.ini").string(), "--side-files", "ini", "--force"}},
        {"disasm, bin side files",
         {"disasm", ifo, "-o", (out_ / "S/x.ini").string(), "--side-files", "bin", "--force"}},
    };
    for (const auto& [what, args] : runs) {
        FailEveryWrite(what, args, out_.string());
        reset();
        // The library's own writes fail too when every file of the system
        // does: they go to private folders, and are checked there.
        FailEveryWrite(what + " (every file failing)", args, "/");
        reset();
        FailFullDeviceAndSync(what, args);
        reset();
    }
}

// A rebuild whose write fails leaves the output folder as it was.
TEST_F(WriteFaults, RebuildLeavesTheOutputFolderAsItWas) {
    const std::string disc = disc_.parent_path().string(), bare = ifoOnly_.parent_path().string();
    const std::string fresh = (out_ / "new").string(), old = (out_ / "old").string();
    auto reset = [&] {
        fs::remove_all(fresh);
        fs::remove_all(old);
        fs::create_directories(out_ / "old/VIDEO_TS");
        kt::WriteText((out_ / "old/VIDEO_TS/VIDEO_TS.IFO").string(), "the old disc\n");
    };
    reset();
    const std::vector<std::pair<std::string, std::vector<std::string>>> runs = {
        {"rebuild", {"rebuild", disc, "-o", fresh, "-q"}},
        {"rebuild into the VIDEO_TS folder of missing folders",
         {"rebuild", disc, "-o", fresh + "/a/VIDEO_TS", "-q"}},
        {"rebuild --force", {"rebuild", disc, "-o", old, "-q", "--force"}},
        {"rebuild --copy-vobs", {"rebuild", disc, "-o", fresh, "-q", "--copy-vobs"}},
        {"rebuild --placeholder-vobs", {"rebuild", bare, "-o", fresh, "-q", "--placeholder-vobs"}},
    };
    for (const auto& [what, args] : runs) {
        FailEveryWrite(what, args, out_.string());
        reset();
        FailFullDeviceAndSync(what, args);
        reset();
    }
}

// Starts the command and kills it after `delay`; true when it ended by
// itself first.
bool RunAndKill(const std::vector<std::string>& args, std::chrono::microseconds delay) {
    std::vector<std::string> argv = {tt::KestroBinary()};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> cargs;
    for (auto& a : argv) cargs.push_back(a.data());
    cargs.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    if (posix_spawn(&pid, cargs[0], &actions, nullptr, cargs.data(), environ) != 0) return false;
    posix_spawn_file_actions_destroy(&actions);
    std::this_thread::sleep_for(delay);
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) == pid) return true;
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    return false;
}

// A rebuild killed at any moment leaves its output absent or complete.
TEST_F(WriteFaults, AKilledRebuildLeavesItsOutputAbsentOrComplete) {
    // A larger title VOB so that a copy takes long enough to be cut.
    fs::resize_file(disc_ / "VTS_01_1.VOB", 96u << 20);
    const fs::path fresh = out_ / "new", old = out_ / "old", reference = work_.path() / "reference";
    const std::string disc = disc_.parent_path().string();
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", reference.string(), "-q", "--copy-vobs"}).code, 0);
    const auto complete = Snapshot(reference, true);
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", fresh.string(), "-q", "--copy-vobs"}).code, 0);
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    ASSERT_EQ(Snapshot(fresh, true), complete);
    fs::remove_all(fresh);

    std::mt19937 random(20261123);
    std::uniform_int_distribution<long> when(0, long(took.count() * 12 / 10));
    auto makeOld = [&] {
        fs::remove_all(old);
        fs::create_directories(old / "VIDEO_TS");
        kt::WriteText((old / "VIDEO_TS/VIDEO_TS.IFO").string(), "the old disc\n");
    };
    makeOld();
    const auto oldShape = Snapshot(old, true);
    int cut = 0;
    for (int run = 0; run < 24; ++run) {
        const std::chrono::microseconds delay(when(random));
        const bool ended =
            RunAndKill({"rebuild", disc, "-o", fresh.string(), "-q", "--copy-vobs"}, delay);
        cut += !ended;
        if (fs::exists(fresh)) {
            EXPECT_EQ(Snapshot(fresh, true), complete) << "killed after " << delay.count() << " us";
        }
        fs::remove_all(fresh);

        RunAndKill({"rebuild", disc, "-o", old.string(), "-q", "--copy-vobs", "--force"}, delay);
        ASSERT_TRUE(fs::exists(old))
            << "killed after " << delay.count() << " us: the old folder is gone";
        const auto now = Snapshot(old, true);
        EXPECT_TRUE(now == oldShape || now == complete)
            << "killed after " << delay.count() << " us: a mix";
        makeOld();
    }
    EXPECT_GT(cut, 0) << "no run was cut short";
    // What killed runs left beside the output is removed by the next run.
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", fresh.string(), "-q"}).code, 0);
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", old.string(), "-q", "--force"}).code, 0);
    for (auto& e : fs::directory_iterator(out_))
        EXPECT_TRUE(e.path() == fresh || e.path() == old) << e.path() << " was left behind";
}

}  // namespace
