// Helpers shared by the shared-table tests: table images in files, reports,
// source values and the real-disc tables.
#ifndef KESTRO_TESTS_TABLES_UTIL_H
#define KESTRO_TESTS_TABLES_UTIL_H

#include <algorithm>
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

// A table of a real disc, with a private copy of its file to load from.
struct RealTable {
    std::vector<uint8_t> ifo;  // the file as it is
    uint32_t sector;           // the table's start sector
    std::string ini;           // a fresh source path

    // The table's first n bytes.
    std::vector<uint8_t> Bytes(size_t n) const {
        size_t at = size_t(sector) * 2048;
        return std::vector<uint8_t>(ifo.begin() + long(at), ifo.begin() + long(at + n));
    }
};

// Calls fn(table, handle) for each real-disc file named prefix* whose
// management table holds a start sector (32-bit big-endian) at `pointer`;
// returns how many there were.
template <class F>
int ForEachRealTable(const char* prefix, size_t pointer, F&& fn) {
    int seen = 0;
    for (const auto& path : kt::CorpusFiles(prefix)) {
        RealTable t{kt::ReadBytes(path), 0, ""};
        if (t.ifo.size() >= pointer + 4) t.sector = BE32At(t.ifo, pointer);
        if (!t.sector || size_t(t.sector) * 2048 >= t.ifo.size()) continue;
        SCOPED_TRACE(path);
        ++seen;
        kt::TempDir dir;
        std::string copy = dir / "copy.ifo";
        kt::WriteBytes(copy, t.ifo);
        t.ini = dir / "s.ini";
        File f(copy);
        fn(static_cast<const RealTable&>(t), int(f));
    }
    return seen;
}

// A real table loaded by member m (make, load), written as source, and
// assembled by a fresh object: what that object writes, cut to the size its
// Get reports.
template <class Member>
std::vector<uint8_t> ThroughSource(const Member& m, const RealTable& rt, int hFile) {
    auto loaded = m.make();
    EXPECT_EQ(m.load(*loaded, hFile, rt.sector), 1);
    EXPECT_TRUE(loaded->Disasm(rt.ini.c_str()));
    auto t = m.make();
    EXPECT_TRUE(t->Asm(rt.ini.c_str()));
    unsigned long sectors = 0, bytes = 0;
    t->Get(&sectors, &bytes);
    std::vector<uint8_t> out = Written(*t, rt.ini + ".bin");
    out.resize(std::min<size_t>(bytes, out.size()));
    return out;
}

// The first n bytes of v (all of it when shorter).
inline std::vector<uint8_t> Head(const std::vector<uint8_t>& v, size_t n) {
    return std::vector<uint8_t>(v.begin(), v.begin() + long(std::min(n, v.size())));
}

}  // namespace tt

#endif
