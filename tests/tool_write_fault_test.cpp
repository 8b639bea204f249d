// A failed write (made to fail by fault_shim.cpp, each write in turn) makes every writing
// subcommand exit 1 naming the file and why, with every earlier file byte-identical and
// nothing left behind; a rebuild killed at random leaves its output absent or complete.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "tool_support.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Runs = std::vector<std::pair<std::string, std::vector<std::string>>>;

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

struct Faults {
    std::string dir;     // writes below this folder fail ("/": every file)
    long write = 0;      // the Nth write fails
    long bytes = -1;     // or every write after so many bytes
    bool fsync = false;  // or every sync
    std::string error = "ENOSPC";
};

tt::Result KestroWithFaults(const std::vector<std::string>& args, const Faults& f,
                            const std::string& loaded = "") {
    std::string asan = "verify_asan_link_order=0";
    if (const char* given = std::getenv("ASAN_OPTIONS")) asan = std::string(given) + ":" + asan;
    std::string line =
        "env LD_PRELOAD=" + tt::Quote(KESTRO_FAULT_SHIM) + " ASAN_OPTIONS=" + tt::Quote(asan) +
        " KESTRO_FAULT_DIR=" + tt::Quote(f.dir) + " KESTRO_FAULT_WRITE=" + std::to_string(f.write) +
        " KESTRO_FAULT_BYTES=" + std::to_string(f.bytes) +
        " KESTRO_FAULT_FSYNC=" + (f.fsync ? "1" : "0") + " KESTRO_FAULT_ERRNO=" + f.error +
        " KESTRO_FAULT_LOADED=" + tt::Quote(loaded) + " " + tt::Quote(tt::KestroBinary());
    for (const auto& a : args) line += " " + tt::Quote(a);
    return tt::Shell(line);
}

// The sample disc (examples/sample) assembled with empty VOB files of its
// recorded sizes, its sources, and an IFO-only copy of it.
class WriteFaults : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        const std::string loaded = work_ / "loaded";
        KestroWithFaults({"--version"}, {}, loaded);
        if (!fs::exists(loaded))
            GTEST_SKIP() << "the fault library does not reach " << tt::KestroBinary()
                         << " (a statically linked command); configure with KESTRO_STATIC_TOOL=OFF";
        fs::remove(loaded);
        fs::create_directories(ifoOnly_);
        fs::create_directories(src_);
        for (const auto& source : tt::AssembleSample(disc_)) {
            const std::string stem = source.stem().string();
            fs::copy_file(disc_ / (stem + ".IFO"), ifoOnly_ / (stem + ".IFO"));
            fs::copy_file(source, src_ / (stem + ".ini"));
        }
        fs::create_directories(out_);
    }

    // Runs each of `runs` with the Nth write failing, for N = 1, 2, ... until a run succeeds:
    // below out_, and below "/" too when `everyFile` (the library's own writes go to private
    // folders, and are checked there); then on a device that fills up at once or after 3000
    // bytes and on one whose syncs fail. Each failed run exits 1 naming a path below out_ and
    // the reason, and leaves out_ exactly as it was.
    void FailWrites(const Runs& runs, bool everyFile, const std::function<void()>& reset) {
        auto before = Snapshot(out_);
        auto restart = [&] {  // a success may leave new files that reset keeps: they stay
            reset();
            before = Snapshot(out_);
        };
        restart();
        for (const auto& [what, args] : runs) {
            auto fails = [&, &what = what, &args = args](const Faults& f) {
                tt::Result r = KestroWithFaults(args, f);
                if (r.code == 0 && f.write) return false;
                const std::string run = what + " (below " + f.dir + ", write " +
                                        std::to_string(f.write) + ", bytes " +
                                        std::to_string(f.bytes) + (f.fsync ? ", sync): " : "): ");
                EXPECT_EQ(r.code, 1) << run << r.err;
                EXPECT_NE(r.err.find(out_.string()), std::string::npos) << run << r.err;
                const char* reason = !f.write           ? ""
                                     : f.error == "EIO" ? "Input/output error"
                                                        : "No space left on device";
                EXPECT_NE(r.err.find(reason), std::string::npos) << run << r.err;
                EXPECT_EQ(Snapshot(out_), before) << run << "changed or left files";
                return true;
            };
            for (const std::string& dir : {out_.string(), std::string(everyFile ? "/" : "")}) {
                long n = 1;
                while (!dir.empty() && n < 200 &&
                       fails({dir, n, -1, false, n % 2 ? "ENOSPC" : "EIO"}))
                    ++n;
                EXPECT_TRUE(dir.empty() || (n > 1 && n < 200)) << what << ", " << dir << ": " << n;
                restart();
            }
            for (const Faults& f :
                 {Faults{out_, 0, 0}, Faults{out_, 0, 3000}, Faults{out_, 0, -1, true}})
                fails(f);
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
    FailWrites(
        {
            {"asm over an IFO and its BUP",
             {"asm", source, "-o", out_ / "V/VTS_01_0.IFO", "--force"}},
            {"asm into a new file", {"asm", source, "-o", out_ / "V/VTS_01_0 new.IFO"}},
            {"disasm", {"disasm", ifo, "-o", ini, "--force"}},
            {"disasm, ini side files",
             {"disasm", ifo, "-o", ini, "--side-files", "ini", "--force"}},
            {"disasm, bin side files",
             {"disasm", ifo, "-o", ini, "--side-files", "bin", "--force"}},
        },
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
    FailWrites(
        {
            {"rebuild", {"rebuild", disc, "-o", fresh, "-q"}},
            {"rebuild into the VIDEO_TS folder of missing folders",
             {"rebuild", disc, "-o", fresh + "/a/VIDEO_TS", "-q"}},
            {"rebuild --force", {"rebuild", disc, "-o", old, "-q", "--force"}},
            {"rebuild --copy-vobs", {"rebuild", disc, "-o", fresh, "-q", "--copy-vobs"}},
            {"rebuild --placeholder-vobs",
             {"rebuild", bare, "-o", fresh, "-q", "--placeholder-vobs"}},
        },
        false, [&] {
            fs::remove_all(fresh);
            fs::remove_all(old);
            fs::create_directories(out_ / "old/VIDEO_TS");
            kt::WriteText(out_ / "old/VIDEO_TS/VIDEO_TS.IFO", "the old disc\n");
        });
}

// Starts the command and kills it after `delay`; true when it ended by itself first.
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
    const bool spawned = posix_spawn(&pid, cargs[0], &actions, nullptr, cargs.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (!spawned) return false;
    std::this_thread::sleep_for(delay);
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) == pid) return true;
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    return false;
}

// A rebuild killed at any moment leaves its output absent or complete; an old folder replaced
// with --force is the old one or the new one, never a mix.
TEST_F(WriteFaults, AKilledRebuildLeavesItsOutputAbsentOrComplete) {
    fs::resize_file(disc_ / "VTS_01_1.VOB", 96u << 20);  // a copy long enough to be cut
    const fs::path fresh = out_ / "new", old = out_ / "old", reference = work_ / "reference";
    const std::string disc = disc_.parent_path();
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", reference, "-q", "--copy-vobs"}).code, 0);
    const auto complete = Snapshot(reference, true);
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", fresh, "-q", "--copy-vobs"}).code, 0);
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    ASSERT_EQ(Snapshot(fresh, true), complete);
    fs::remove_all(fresh);

    std::mt19937 random(20261123);
    std::uniform_int_distribution<long> when(0, long(took.count() * 12 / 10));
    auto makeOld = [&] {
        fs::remove_all(old);
        fs::create_directories(old / "VIDEO_TS");
        kt::WriteText(old / "VIDEO_TS/VIDEO_TS.IFO", "the old disc\n");
        return Snapshot(old, true);
    };
    const auto oldShape = makeOld();
    int cut = 0;
    for (int run = 0; run < 24; ++run) {
        const std::chrono::microseconds delay(when(random));
        SCOPED_TRACE("killed after " + std::to_string(delay.count()) + " us");
        cut += !RunAndKill({"rebuild", disc, "-o", fresh, "-q", "--copy-vobs"}, delay);
        EXPECT_TRUE(!fs::exists(fresh) || Snapshot(fresh, true) == complete);
        fs::remove_all(fresh);
        RunAndKill({"rebuild", disc, "-o", old, "-q", "--copy-vobs", "--force"}, delay);
        ASSERT_TRUE(fs::exists(old)) << "the old folder is gone";
        const auto now = Snapshot(old, true);
        EXPECT_TRUE(now == oldShape || now == complete) << "a mix";
        makeOld();
    }
    EXPECT_GT(cut, 0) << "no run was cut short";
    // What killed runs left beside the output is removed by the next run.
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", fresh, "-q"}).code, 0);
    ASSERT_EQ(tt::Kestro({"rebuild", disc, "-o", old, "-q", "--force"}).code, 0);
    for (auto& e : fs::directory_iterator(out_))
        EXPECT_TRUE(e.path() == fresh || e.path() == old) << e.path() << " was left behind";
}

}  // namespace
