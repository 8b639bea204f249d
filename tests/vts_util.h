// Helpers of the title-set tests: building binary tables, placing them in a
// file at a given sector, reading reports and source statements.
#ifndef KESTRO_TESTS_VTS_UTIL_H
#define KESTRO_TESTS_VTS_UTIL_H

#include <cstdint>
#include <cstring>
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

// A bare PGC: the 236-byte general information only.
inline std::vector<uint8_t> BarePgc(uint32_t playTime = 0x00013040) {
    Bytes b;
    b.zeros(4).be32(playTime).zeros(236 - 8);
    return b.v;
}

// A small title set information file built byte by byte: the management
// table and every table of a title set, each at its own sector, with the
// sizes 1, 2, 1, 1, 1, 1, 1, 1 sectors in layout order.
struct SyntheticVtsi {
    uint32_t vtsEa = 127906;
    uint8_t audio = 2;
    uint8_t subpictures = 1;
    bool menuTable = true;  // VTSM_PGCI_UT present

    std::vector<uint8_t> Mat(const std::vector<uint32_t>& sa) const {
        std::vector<uint8_t> m(2048, 0);
        std::memcpy(m.data(), "DVDVIDEO-VTS", 12);
        auto be32 = [&](size_t at, uint32_t v) {
            for (int i = 0; i < 4; ++i) m[at + i] = uint8_t(v >> (24 - 8 * i));
        };
        be32(12, vtsEa);
        be32(28, 9);
        m[33] = 0x11;
        be32(34, 0x00000001);
        be32(128, 2047);
        for (size_t i = 0; i < sa.size(); ++i) be32(192 + 4 * i, sa[i]);
        m[256] = 0x4d; m[257] = 0x01;
        m[259] = 1;
        for (int i = 0; i < 8; ++i) m[260 + i] = uint8_t(0x10 + i);
        m[341] = 1;
        for (int i = 0; i < 6; ++i) m[342 + i] = uint8_t(0x20 + i);
        m[512] = 0x53; m[513] = 0x00;
        m[515] = audio;
        for (int k = 0; k < audio && 516 + 8 * k + 8 <= 2048; ++k)
            for (int i = 0; i < 8; ++i) m[516 + 8 * k + i] = uint8_t(0x30 + 16 * k + i);
        m[597] = subpictures;
        for (int k = 0; k < subpictures && 598 + 6 * k + 6 <= 2048; ++k)
            for (int i = 0; i < 6; ++i) m[598 + 6 * k + i] = uint8_t(0x50 + 16 * k + i);
        for (int i = 0; i < 24 * 8; ++i) m[792 + i] = uint8_t(i);
        return m;
    }

    static std::vector<std::vector<uint8_t>> Tables() {
        std::vector<std::vector<uint8_t>> t;
        t.push_back(Bytes().be16(1).be16(0).be32(15).be32(12).be16(1).be16(1).v);
        Bytes pgcit;
        pgcit.be16(9).be16(0).be32(8 + 72 + 9 * 236 - 1);
        for (int i = 0; i < 9; ++i) pgcit.be32(0x81000000u + uint32_t(i)).be32(80 + 236 * i);
        for (int i = 0; i < 9; ++i) pgcit.raw(BarePgc(0x00000100u * uint32_t(i)));
        t.push_back(pgcit.v);
        Bytes ut;
        ut.be16(1).be16(0).be32(16 + 8 + 8 + 236 - 1).u8('e').u8('n').u8(0).u8(0x80).be32(16);
        ut.be16(1).be16(0).be32(8 + 8 + 236 - 1).be32(0x83000000u).be32(16).raw(BarePgc());
        t.push_back(ut.v);
        t.push_back(Bytes().be16(1).be16(0).be32(23).be32(12).u8(1).u8(0).be16(2).be32(0).be32(5).v);
        t.push_back(Bytes().be16(1).be16(0).be32(19).be16(1).u8(1).u8(0).be32(0).be32(9).v);
        t.push_back(Bytes().be32(7).be32(0).v);
        t.push_back(Bytes().be16(1).be16(0).be32(19).be16(1).u8(1).u8(0).be32(0).be32(999).v);
        t.push_back(Bytes().be32(11).be32(0).be32(500).v);
        return t;
    }

    // The whole file: sector 0 the management table, then the tables.
    std::vector<uint8_t> File() const {
        std::vector<std::vector<uint8_t>> tables = Tables();
        std::vector<uint32_t> sa = {0, 10};  // VTSM_VOBS, VTSTT_VOBS
        uint32_t next = 1;
        for (size_t i = 0; i < tables.size(); ++i) {
            uint32_t sectors = uint32_t((tables[i].size() + 2047) / 2048);
            sa.push_back(i == 2 && !menuTable ? 0 : next);
            next += sectors;
        }
        std::vector<uint8_t> file = Mat(sa);
        for (auto& t : tables) {
            file.insert(file.end(), t.begin(), t.end());
            file.resize((file.size() + 2047) / 2048 * 2048, 0);
        }
        return file;
    }
};

}  // namespace vt

#endif
