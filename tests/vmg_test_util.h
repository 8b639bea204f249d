// Helpers shared by the video manager tests.
#ifndef KESTRO_TESTS_VMG_TEST_UTIL_H
#define KESTRO_TESTS_VMG_TEST_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "kestro/frame.h"
#include "kestro/ini.h"
#include "test_util.h"

namespace vt {

// A file handle of the library's file layer, closed at scope end.
class Handle {
public:
    explicit Handle(int h) : h_(h) {}
    ~Handle() {
        if (h_ > 0) kestro::FileClose(h_);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    int get() const { return h_; }
    operator int() const { return h_; }

private:
    int h_;
};

inline int OpenRead(const std::string& path) { return kestro::FileOpen(path.c_str(), 0x8000); }
inline int Create(const std::string& path) { return kestro::FileCreate(path.c_str(), 0x180); }

inline std::string Value(const std::string& ini, const char* section, const char* key) {
    char buf[256];
    INIGetPrivateProfileString(section, key, "$", buf, sizeof buf, ini.c_str());
    return buf;
}

// The report of any object with Details(char*, int), into a roomy buffer.
template <class T>
std::string Report(T& table, int room = 1 << 20, bool* ok = nullptr) {
    std::vector<char> buf(size_t(room) + 3, 0);
    bool r = table.Details(buf.data(), room);
    if (ok) *ok = r;
    return buf.data();
}

// An IFO-like file: `sectors` zero sectors, with `table` placed at sector `at`.
inline std::vector<uint8_t> Image(size_t sectors, size_t at, const std::vector<uint8_t>& table) {
    std::vector<uint8_t> img(sectors * 2048, 0);
    if (img.size() < at * 2048 + table.size()) img.resize(at * 2048 + table.size(), 0);
    std::copy(table.begin(), table.end(), img.begin() + long(at * 2048));
    return img;
}

inline uint32_t BE32(const std::vector<uint8_t>& b, size_t at) {
    return (uint32_t(b[at]) << 24) | (uint32_t(b[at + 1]) << 16) | (uint32_t(b[at + 2]) << 8) |
           b[at + 3];
}

}  // namespace vt

#endif
