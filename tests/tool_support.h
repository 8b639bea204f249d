// Helpers of the kestro command's tests: running the command and the disc
// tools, authoring a test disc, and reading a disc back with lsdvd.
#ifndef KESTRO_TESTS_TOOL_SUPPORT_H
#define KESTRO_TESTS_TOOL_SUPPORT_H

#include <sys/wait.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "test_util.h"

namespace tt {

namespace fs = std::filesystem;

inline std::string Quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

inline std::string KestroBinary() { return std::string(KESTRO_BINARY_DIR) + "/tools/kestro"; }

struct Result {
    int code = -1;
    std::string out, err;
};

// Runs a shell command line; stdout and stderr are captured.
inline Result Shell(const std::string& line) {
    kt::TempDir io;
    std::string full = line + " >" + Quote(io / "out") + " 2>" + Quote(io / "err") + " </dev/null";
    int rc = std::system(full.c_str());
    Result r;
    r.code = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    r.out = kt::ReadText(io / "out");
    r.err = kt::ReadText(io / "err");
    return r;
}

inline Result Kestro(const std::vector<std::string>& args) {
    std::string line = Quote(KestroBinary());
    for (const auto& a : args) line += " " + Quote(a);
    return Shell(line);
}

inline bool HaveTool(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

#define TT_REQUIRE_TOOLS(...)                                                         \
    for (const char* tool_ : {__VA_ARGS__})                                           \
        if (!tt::HaveTool(tool_)) GTEST_SKIP() << tool_ << " is not installed"

#define TT_REQUIRE_KESTRO()                                                 \
    if (!fs::exists(tt::KestroBinary()))                                    \
    GTEST_SKIP() << "the kestro command is not built (" << tt::KestroBinary() << ")"

// Copies a folder's files (not the folder itself) into `to`.
inline void CopyFolder(const fs::path& from, const fs::path& to) {
    fs::create_directories(to);
    for (auto& e : fs::directory_iterator(from)) {
        fs::copy_file(e.path(), to / e.path().filename(), fs::copy_options::overwrite_existing);
        fs::permissions(to / e.path().filename(), fs::perms::owner_write, fs::perm_options::add);
    }
}

// INI statements of a source file as "section/key" -> value (the file
// grammar the INI store reads: "[section]" and "key=value" lines).
inline std::map<std::string, std::string> Statements(const std::string& path) {
    std::map<std::string, std::string> out;
    std::istringstream in(kt::ReadText(path));
    std::string line, section;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == ';') continue;
        if (line[0] == '[') {
            section = line.substr(1, line.find(']') - 1);
            continue;
        }
        auto eq = line.find('=');
        if (eq != std::string::npos) out[section + "/" + line.substr(0, eq)] = line.substr(eq + 1);
    }
    return out;
}

// What lsdvd reports of a disc, one entry per title: the title line (less
// its number) and its VTS, audio, chapter, cell and sub-picture lines.
struct LsdvdTitle {
    int vts = 0, ttn = 0;
    std::vector<std::string> lines;
};

inline std::vector<LsdvdTitle> Lsdvd(const fs::path& disc, std::string* raw = nullptr) {
    Result r = Shell("lsdvd -x " + Quote(disc.string()));
    if (raw) *raw = r.out + r.err;
    std::vector<LsdvdTitle> titles;
    std::istringstream in(r.out);
    std::string line;
    static const std::regex title("^Title: \\d+, (.*)$");
    static const std::regex vts("^\\s*VTS: (\\d+), TTN: (\\d+), (.*)$");
    std::smatch m;
    while (std::getline(in, line)) {
        if (std::regex_match(line, m, title)) {
            titles.push_back({});
            titles.back().lines.push_back(m[1]);
        } else if (titles.empty()) {
            continue;
        } else if (std::regex_match(line, m, vts)) {
            titles.back().vts = std::stoi(m[1]);
            titles.back().ttn = std::stoi(m[2]);
            titles.back().lines.push_back(m[3]);
        } else if (line.rfind("\t", 0) == 0) {
            titles.back().lines.push_back(line.substr(1));
        }
    }
    return titles;
}

}  // namespace tt

#endif
