// Binary PGCs for the codec tests: a builder that lays the parts out back to
// back as the assembler does, and the PGCs of the real discs.
#ifndef KESTRO_TESTS_PGC_FIXTURE_H
#define KESTRO_TESTS_PGC_FIXTURE_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "test_util.h"

namespace kt {

inline uint16_t BE16(const std::vector<uint8_t>& b, size_t at) {
    return at + 1 < b.size() ? uint16_t((b[at] << 8) | b[at + 1]) : 0;
}
inline uint32_t BE32(const std::vector<uint8_t>& b, size_t at) {
    return (uint32_t(BE16(b, at)) << 16) | BE16(b, at + 2);
}
inline void PutBE16(std::vector<uint8_t>& b, size_t at, uint32_t v) {
    b[at] = uint8_t(v >> 8);
    b[at + 1] = uint8_t(v);
}
inline void PutBE32(std::vector<uint8_t>& b, size_t at, uint32_t v) {
    PutBE16(b, at, v >> 16);
    PutBE16(b, at + 2, v);
}

using Command = std::array<uint8_t, 8>;

// What a test PGC holds. A command table is written when withCommandTable is
// set (or any command is given); the program map has one entry per program
// plus the padding byte; C_PBIT and C_POSIT have one entry per cell.
struct PgcShape {
    std::vector<Command> pre, post, cell;
    bool withCommandTable = false;
    int programs = 0;
    int cells = 0;
    uint32_t firstSector = 100;  // cell sectors count up from here
};

struct BuiltPgc {
    std::vector<uint8_t> bytes;
    size_t cmdt = 0, pgmap = 0, pbit = 0, posit = 0;
};

// Every general-information field gets a distinct non-zero value so that a
// field written to the wrong place shows up.
inline BuiltPgc BuildPgc(const PgcShape& s) {
    BuiltPgc out;
    std::vector<uint8_t>& b = out.bytes;
    b.assign(236, 0);
    b[2] = uint8_t(s.programs);
    b[3] = uint8_t(s.cells);
    b[4] = 0x01; b[5] = 0x23; b[6] = 0x45; b[7] = 0xE7;
    PutBE32(b, 8, 0x00A1B2C3);
    for (int i = 0; i < 8; ++i) PutBE16(b, 12 + 2 * i, 0x8000 | (i << 8) | i);
    for (int i = 0; i < 32; ++i) PutBE32(b, 28 + 4 * i, 0x80000000u | (i << 16) | i);
    PutBE16(b, 156, 2); PutBE16(b, 158, 3); PutBE16(b, 160, 4);
    b[162] = 0x81; b[163] = 0xFF;
    for (int i = 0; i < 16; ++i) PutBE32(b, 164 + 4 * i, (0x10u + i) << 16 | (0x80u + i) << 8 | (0x40u + i));

    size_t ncmd = s.pre.size() + s.post.size() + s.cell.size();
    if (s.withCommandTable || ncmd) {
        out.cmdt = b.size();
        b.resize(b.size() + 8, 0);
        PutBE16(b, out.cmdt, uint32_t(s.pre.size()));
        PutBE16(b, out.cmdt + 2, uint32_t(s.post.size()));
        PutBE16(b, out.cmdt + 4, uint32_t(s.cell.size()));
        PutBE16(b, out.cmdt + 6, uint32_t(8 * ncmd + 7));
        for (const auto* list : {&s.pre, &s.post, &s.cell})
            for (const auto& c : *list) b.insert(b.end(), c.begin(), c.end());
    }
    if (s.programs) {
        out.pgmap = b.size();
        for (int p = 0; p < s.programs; ++p) b.push_back(uint8_t(1 + 2 * p));
        if (s.programs & 1) b.push_back(0);
    }
    if (s.cells) {
        out.pbit = b.size();
        for (int c = 0; c < s.cells; ++c) {
            size_t e = b.size();
            b.resize(e + 24, 0);
            b[e] = uint8_t(c & 3); b[e + 1] = 0x02; b[e + 2] = uint8_t(c); b[e + 3] = 0x04;
            b[e + 4] = 0x00; b[e + 5] = 0x01; b[e + 6] = 0x30; b[e + 7] = 0x40;
            uint32_t first = s.firstSector + 1000u * uint32_t(c);
            PutBE32(b, e + 8, first);
            PutBE32(b, e + 12, first + 7);
            PutBE32(b, e + 16, first + 900);
            PutBE32(b, e + 20, first + 999);
        }
        out.posit = b.size();
        for (int c = 0; c < s.cells; ++c) {
            size_t e = b.size();
            b.resize(e + 4, 0);
            PutBE16(b, e, uint32_t(1 + c / 4));
            b[e + 3] = uint8_t(1 + c);
        }
    }
    PutBE16(b, 228, uint32_t(out.cmdt));
    PutBE16(b, 230, uint32_t(out.pgmap));
    PutBE16(b, 232, uint32_t(out.pbit));
    PutBE16(b, 234, uint32_t(out.posit));
    return out;
}

// One PGC of a real disc: the whole file and where the PGC starts in it.
struct CorpusPgc {
    std::string name;
    std::vector<uint8_t> file;
    size_t offset;
};

// End of the last part of a PGC when its parts lie in the order general
// information, command table, program map, C_PBIT, C_POSIT without gaps
// (the order the assembler uses); 0 when they do not.
inline size_t InOrderLength(const std::vector<uint8_t>& f, size_t at) {
    size_t pos = 236;
    size_t cmdt = BE16(f, at + 228), map = BE16(f, at + 230);
    size_t pbit = BE16(f, at + 232), posit = BE16(f, at + 234);
    unsigned programs = f[at + 2] & 0x7F, cells = f[at + 3];
    if (cmdt) {
        size_t n = size_t(BE16(f, at + cmdt)) + BE16(f, at + cmdt + 2) + BE16(f, at + cmdt + 4);
        if (cmdt != pos || n == 0) return 0;
        pos += 8 + 8 * n;
    }
    if (map) {
        if (map != pos || programs == 0) return 0;
        pos += programs + (programs & 1);
    }
    if (pbit) {
        if (pbit != pos || cells == 0) return 0;
        pos += 24 * cells;
    }
    if (posit) {
        if (posit != pos || cells == 0) return 0;
        pos += 4 * cells;
    }
    return at + pos <= f.size() ? pos : 0;
}

// Every PGC of the real discs: First Play, menu PGCs of both kinds of file
// and the title PGCs.
inline std::vector<CorpusPgc> CorpusPgcs() {
    std::vector<CorpusPgc> out;
    auto add = [&](const std::string& name, const std::vector<uint8_t>& f, size_t at) {
        if (at + 236 <= f.size()) out.push_back({name, f, at});
    };
    // A table of language units (8-byte header, 8-byte search pointers whose
    // bytes 4-7 give each unit's start), each unit a PGC table.
    auto pgcTable = [&](const std::string& name, const std::vector<uint8_t>& f, size_t t) {
        for (unsigned j = 0; j < BE16(f, t); ++j)
            add(name + " pgc" + std::to_string(j + 1), f, t + BE32(f, t + 8 + 8 * j + 4));
    };
    auto menus = [&](const std::string& name, const std::vector<uint8_t>& f, size_t saAt) {
        size_t t = size_t(BE32(f, saAt)) * 2048;
        if (t == 0 || t >= f.size()) return;
        for (unsigned i = 0; i < BE16(f, t); ++i)
            pgcTable(name + " lu" + std::to_string(i + 1), f, t + BE32(f, t + 8 + 8 * i + 4));
    };
    for (const auto& path : CorpusFiles("VIDEO_TS")) {
        auto f = ReadBytes(path);
        add(path + " first play", f, 0x400);
        menus(path + " menu", f, 0xC8);
    }
    for (const auto& path : CorpusFiles("VTS_")) {
        auto f = ReadBytes(path);
        menus(path + " menu", f, 0xD0);
        size_t t = size_t(BE32(f, 0xCC)) * 2048;
        if (t && t < f.size()) pgcTable(path + " title", f, t);
    }
    return out;
}

}  // namespace kt

#endif
