// Helpers of the kestro command's tests: running the command and the disc
// tools, and reading sources and discs back.
#ifndef KESTRO_TESTS_TOOL_SUPPORT_H
#define KESTRO_TESTS_TOOL_SUPPORT_H

#include <sys/wait.h>
#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
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

#define TT_REQUIRE_TOOLS(...)                                        \
    for (const char* tool_ : {__VA_ARGS__})                          \
        if (tt::Shell(std::string("command -v ") + tool_).code != 0) \
    GTEST_SKIP() << tool_ << " is not installed"
#define TT_REQUIRE_KESTRO()              \
    if (!fs::exists(tt::KestroBinary())) \
    GTEST_SKIP() << "the kestro command is not built: " << tt::KestroBinary()

// The folder of a disc that holds its IFO files: VIDEO_TS, or the disc folder when it has none.
inline fs::path VideoTsOf(const fs::path& disc) {
    return fs::is_directory(disc / "VIDEO_TS") ? disc / "VIDEO_TS" : disc;
}

// A source file's statements as "section/key" -> value.
inline std::map<std::string, std::string> Statements(const std::string& path) {
    std::map<std::string, std::string> out;
    std::istringstream in(kt::ReadText(path));
    std::string section;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        size_t eq = line.find('=');
        if (!line.empty() && line[0] == '[')
            section = line.substr(1, line.find(']') - 1);
        else if (!line.empty() && line[0] != ';' && eq != std::string::npos)
            out[section + "/" + line.substr(0, eq)] = line.substr(eq + 1);
    }
    return out;
}

// lsdvd's view of a disc, one entry per title: its VTS and TTN, its title
// line (less the number) and the tab-indented lines below it.
struct LsdvdTitle {
    int vts = 0, ttn = 0;
    std::vector<std::string> lines;
};

inline std::vector<LsdvdTitle> Lsdvd(const fs::path& disc, std::string* raw = nullptr) {
    Result r = Shell("lsdvd -x " + Quote(disc.string()));
    if (raw) *raw = r.out + r.err;
    static const std::regex title("^Title: \\d+, (.*)$"), vts("^\tVTS: (\\d+), TTN: (\\d+), (.*)$");
    std::vector<LsdvdTitle> titles;
    std::istringstream in(r.out);
    std::smatch m;
    for (std::string line; std::getline(in, line);) {
        if (std::regex_match(line, m, title)) {
            titles.push_back({0, 0, {m[1]}});
        } else if (!titles.empty() && line.rfind("\t", 0) == 0) {
            bool isVts = std::regex_match(line, m, vts);
            if (isVts) titles.back().vts = std::stoi(m[1]), titles.back().ttn = std::stoi(m[2]);
            titles.back().lines.push_back(isVts ? m[3].str() : line.substr(1));
        }
    }
    return titles;
}

// The bundled sample disc, a small disc with VOB files.
inline fs::path SampleDir() { return fs::path(KESTRO_SOURCE_DIR) / "examples/sample"; }

// Assembles every source of the sample into `videoTs`, next to empty VOB
// files of the sizes the sample records; the source paths, sorted.
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
        Result r = Kestro(
            {"asm", src.string(), "-o", (videoTs / (src.stem().string() + ".IFO")).string()});
        EXPECT_TRUE(r.code == 0 && r.err.empty()) << src << ": " << r.err;
    }
    return sources;
}

}  // namespace tt

#endif
