// Shared test helpers: temporary folders, file contents, the real discs (skipped when absent).
#ifndef KESTRO_TESTS_TEST_UTIL_H
#define KESTRO_TESTS_TEST_UTIL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace kt {

namespace fs = std::filesystem;

// A fresh folder removed with everything in it when the test ends.
class TempDir {
public:
    TempDir() {
        std::string tmpl = (fs::temp_directory_path() / "kestro-XXXXXX").string();
        ::mkdtemp(&tmpl[0]);  // on failure the template stays and the test fails on its files
        path_ = tmpl;
    }
    ~TempDir() { fs::remove_all(path_, ec_); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
    std::error_code ec_;
};

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}
inline std::vector<uint8_t> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}
inline void WriteText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}
inline void WriteBytes(const std::string& path, const std::vector<uint8_t>& data) {
    WriteText(path, std::string(data.begin(), data.end()));
}

// Big-endian fields of a file image: zeros read beyond its end, nothing written there.
inline uint32_t BE32(const std::vector<uint8_t>& b, size_t at) {
    uint32_t v = 0;
    for (size_t i = at; i < at + 4; ++i) v = v << 8 | (i < b.size() ? b[i] : 0);
    return v;
}
inline void PutBE(std::vector<uint8_t>& b, size_t at, uint32_t v, int width) {
    for (size_t i = 0; i < size_t(width) && at + i < b.size(); ++i)
        b[at + i] = uint8_t(v >> (8 * (width - 1 - int(i))));
}

// Bytes from hex digits, anything else (spaces between fields) ignored: "0002 0000 0000001f".
inline std::vector<uint8_t> Hex(const std::string& digits) {
    std::vector<uint8_t> v;
    std::string d;
    for (char c : digits)
        if (std::isxdigit(static_cast<unsigned char>(c))) d += c;
    for (size_t i = 0; i + 1 < d.size(); i += 2)
        v.push_back(uint8_t(std::stoul(d.substr(i, 2), nullptr, 16)));
    return v;
}

inline fs::path CorpusDir() { return fs::path(KESTRO_CORPUS_DIR); }

// The real discs' IFO files named `prefix`..., sorted, or none when there are no discs.
inline std::vector<std::string> CorpusFiles(const std::string& prefix) {
    std::vector<std::string> out;
    std::error_code ec;
    for (auto& disc : fs::directory_iterator(CorpusDir(), ec))
        for (auto& f : fs::directory_iterator(disc.path(), ec))
            if (f.path().filename().string().rfind(prefix, 0) == 0 &&
                f.path().extension() == ".IFO")
                out.push_back(f.path().string());
    std::sort(out.begin(), out.end());
    return out;
}

// One file of the real discs ("disc-a/VIDEO_TS.IFO"); tests that need it skip without it.
inline std::vector<uint8_t> Corpus(const std::string& f) { return ReadBytes(CorpusDir() / f); }
#define KT_REQUIRE_CORPUS(file)                    \
    if (!kt::fs::exists(kt::CorpusDir() / (file))) \
    GTEST_SKIP() << "no real discs beside this checkout"
#define KT_SKIP_IF_EMPTY(list) \
    if ((list).empty()) GTEST_SKIP() << "no real discs beside this checkout"

}  // namespace kt

#endif
