// Helpers of the title-set tests: building binary tables, placing them in a
// file at a given sector, reading reports and source statements.
#ifndef KESTRO_TESTS_VTS_UTIL_H
#define KESTRO_TESTS_VTS_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "kestro/frame.h"
#include "kestro/ini.h"
#include "test_util.h"

namespace vt {

// Big-endian byte builder.
struct Bytes {
    std::vector<uint8_t> v;
    Bytes& u8(uint32_t x) { v.push_back(uint8_t(x)); return *this; }
    Bytes& be16(uint32_t x) { return u8(x >> 8).u8(x); }
    Bytes& be32(uint32_t x) { return be16(x >> 16).be16(x); }
    Bytes& raw(const std::vector<uint8_t>& b) { v.insert(v.end(), b.begin(), b.end()); return *this; }
    Bytes& zeros(size_t n) { v.resize(v.size() + n); return *this; }
};

// Writes `table` at `sector` of a new file (zero sectors before it), padded
// to a whole sector unless told otherwise; returns the path.
inline std::string PlaceTable(const kt::TempDir& dir, const std::string& name,
                              const std::vector<uint8_t>& table, unsigned sector = 1,
                              bool pad = true) {
    std::vector<uint8_t> file(size_t(sector) * 2048, 0);
    file.insert(file.end(), table.begin(), table.end());
    if (pad) file.resize((file.size() + 2047) / 2048 * 2048, 0);
    std::string path = dir / name;
    kt::WriteBytes(path, file);
    return path;
}

// An open file handle closed at the end of the scope.
struct Handle {
    explicit Handle(const std::string& path, unsigned flags = 0x8002)
        : h(kestro::FileOpen(path.c_str(), flags)) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { if (h != -1) kestro::FileClose(h); }
    int h;
};

// A newly created output file.
struct Output {
    explicit Output(const std::string& p) : path(p), h(kestro::FileCreate(p.c_str(), 0x180)) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() { Close(); }
    void Close() { if (h != -1) kestro::FileClose(h); h = -1; }
    std::string path;
    int h;
};

inline std::string Ini(const std::string& path, const char* section, const char* key) {
    char v[256];
    INIGetPrivateProfileString(section, key, "$", v, sizeof v, path.c_str());
    return v;
}

inline void SetIni(const std::string& path, const char* section, const char* key,
                   const std::string& value) {
    INIWritePrivateProfileString(section, key, value.c_str(), path.c_str());
}

inline std::string ErrorText(CBaseKestro& t) {
    char buf[300];
    t.GetErrorMessage(buf, sizeof buf);
    return buf;
}

// Splits a report into its lines (without the line breaks).
inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> out;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find("\r\n", at);
        if (end == std::string::npos) end = text.size();
        out.push_back(text.substr(at, end - at));
        at = end + 2;
    }
    return out;
}

inline std::vector<uint8_t> Slice(const std::vector<uint8_t>& v, size_t from, size_t n) {
    if (from >= v.size()) return {};
    return std::vector<uint8_t>(v.begin() + from, v.begin() + std::min(v.size(), from + n));
}

}  // namespace vt

#endif
