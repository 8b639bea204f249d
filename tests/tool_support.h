// Helpers of the kestro command's tests: running it and other tools, and the sample disc.
#ifndef KESTRO_TESTS_TOOL_SUPPORT_H
#define KESTRO_TESTS_TOOL_SUPPORT_H

#include <sys/wait.h>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "test_util.h"

namespace tt {

namespace fs = std::filesystem;

inline std::string Quote(const std::string& s) {
    return "'" + std::regex_replace(s, std::regex("'"), "'\\''") + "'";
}

inline std::string KestroBinary() { return std::string(KESTRO_BINARY_DIR) + "/tools/kestro"; }

struct Result {
    int code = -1;
    std::string out, err;
};

// Runs a shell command line, capturing stdout and stderr.
inline Result Shell(const std::string& line) {
    kt::TempDir io;
    int rc = std::system(
        (line + " >" + Quote(io / "out") + " 2>" + Quote(io / "err") + " </dev/null").c_str());
    return {WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, kt::ReadText(io / "out"),
            kt::ReadText(io / "err")};
}

inline Result Kestro(const std::vector<std::string>& args) {
    std::string line = Quote(KestroBinary());
    for (const auto& a : args) line += " " + Quote(a);
    return Shell(line);
}

#define TT_REQUIRE_KESTRO()              \
    if (!fs::exists(tt::KestroBinary())) \
    GTEST_SKIP() << "the kestro command is not built: " << tt::KestroBinary()

// The bundled sample disc, a small disc with VOB files.
inline fs::path SampleDir() { return fs::path(KESTRO_SOURCE_DIR) / "examples/sample"; }

// Assembles every source of the sample into `videoTs`, next to empty VOB files of the sizes the
// sample records; the source paths, sorted.
inline std::vector<fs::path> AssembleSample(const fs::path& videoTs) {
    fs::create_directories(videoTs);
    std::ifstream vobs(SampleDir() / "vobs.txt");
    std::string name;
    for (unsigned long long bytes = 0; vobs >> name >> bytes;)
        std::ofstream(videoTs / name).close(), fs::resize_file(videoTs / name, bytes);
    std::vector<fs::path> sources;
    for (auto& e : fs::directory_iterator(SampleDir()))
        if (e.path().extension() == ".ini") sources.push_back(e.path());
    std::sort(sources.begin(), sources.end());
    for (const auto& src : sources) {
        const Result r = Kestro({"asm", src, "-o", videoTs / (src.stem().string() + ".IFO")});
        EXPECT_TRUE(r.code == 0 && r.err.empty()) << src << ": " << r.err;
    }
    return sources;
}

// The sample assembled into a fresh disc folder: root, its VIDEO_TS folder ts, and the sources.
class SampleDisc : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        sources = AssembleSample(ts);
    }
    kt::TempDir work;
    fs::path root = work.path() / "disc", ts = root / "VIDEO_TS";
    std::vector<fs::path> sources;
};

}  // namespace tt

#endif
