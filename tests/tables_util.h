// Helpers shared by the shared-table tests: table images in files, reports,
// source values and the real-disc tables.
#ifndef KESTRO_TESTS_TABLES_UTIL_H
#define KESTRO_TESTS_TABLES_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "kestro/frame.h"
#include "kestro/ini.h"
#include "kestro/tables.h"
#include "test_util.h"

namespace tt {

// A file of the library's file layer, closed at scope end.
class File {
public:
    explicit File(const std::string& path, bool create = false)
        : h_(create ? kestro::FileCreate(path.c_str(), 0x180)
                    : kestro::FileOpen(path.c_str(), 0x8002)) {}
    ~File() {
        if (h_ > 0) kestro::FileClose(h_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    operator int() const { return h_; }

private:
    int h_;
};

// Big-endian byte builder.
struct Bytes : std::vector<uint8_t> {
    Bytes& u8(uint32_t v) { push_back(uint8_t(v)); return *this; }
    Bytes& be16(uint32_t v) { return u8(v >> 8).u8(v); }
    Bytes& be32(uint32_t v) { return be16(v >> 16).be16(v); }
    Bytes& zeros(size_t n) { insert(end(), n, 0); return *this; }
    Bytes& add(const std::vector<uint8_t>& b) { insert(end(), b.begin(), b.end()); return *this; }
};

// Writes `table` at sector `at` of an otherwise zero file and returns its path.
inline std::string PutTable(const kt::TempDir& dir, const std::vector<uint8_t>& table,
                            size_t at = 1, const char* name = "T.IFO") {
    std::vector<uint8_t> img(at * 2048 + table.size(), 0);
    std::copy(table.begin(), table.end(), img.begin() + long(at * 2048));
    img.resize((img.size() + 2047) / 2048 * 2048, 0);
    std::string path = dir / name;
    kt::WriteBytes(path, img);
    return path;
}

inline std::string Value(const std::string& ini, const char* section, const char* key) {
    char buf[256];
    INIGetPrivateProfileString(section, key, "$", buf, sizeof buf, ini.c_str());
    return buf;
}

inline std::string Error(CBaseKestro& t) {
    char buf[KESTRO_ERROR_TEXT + 1];
    t.GetErrorMessage(buf, sizeof buf);
    return buf;
}

// Report into a buffer with the three bytes of headroom the report rule asks.
template <class F>
std::string Report(F&& details, int len = 1 << 20, bool* ok = nullptr) {
    std::vector<char> buf(size_t(len) + 3, 0);
    bool r = details(buf.data(), len);
    if (ok) *ok = r;
    return buf.data();
}

// Writes an object's assembled table into a fresh file and returns its bytes.
inline std::vector<uint8_t> Written(CBaseKestro& t, const std::string& path, bool* ok = nullptr) {
    {
        File out(path, true);
        bool r = t.Write(out);
        if (ok) *ok = r;
    }
    return kt::ReadBytes(path);
}

inline uint32_t BE32At(const std::vector<uint8_t>& b, size_t at) {
    return (uint32_t(b[at]) << 24) | (uint32_t(b[at + 1]) << 16) | (uint32_t(b[at + 2]) << 8) |
           b[at + 3];
}

// A table of a real disc: the start sector stored at `pointer` of the file's
// management table (32-bit big-endian) and the table's bytes, `size` of them
// counted from its first byte by the caller's rule. 0 when absent.
inline uint32_t StartSector(const std::vector<uint8_t>& ifo, size_t pointer) {
    return ifo.size() >= pointer + 4 ? BE32At(ifo, pointer) : 0;
}

}  // namespace tt

#endif
