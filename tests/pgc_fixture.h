// Binary PGCs for the codec tests: built with parts back to back as assembled, and the real ones.
#ifndef KESTRO_TESTS_PGC_FIXTURE_H
#define KESTRO_TESTS_PGC_FIXTURE_H

#include <array>
#include <string>
#include <tuple>
#include <vector>

#include "test_util.h"

namespace kt {

// A big-endian field of n bytes (zeros beyond the data).
inline uint32_t Be(const std::vector<uint8_t>& b, size_t at, int n = 2) {
    return BE32(b, at) >> (32 - 8 * n);
}

using Command = std::array<uint8_t, 8>;
struct PgcShape {
    std::vector<Command> pre, post, cell;
    bool commandTable = false;  // written even without commands
    int programs = 0, cells = 0;
};

// Distinct bytes wherever a field may hold any value (sectors above 2^31 included), zeros where
// the format reserves them; each part's start offset is where the part before it ended.
inline std::vector<uint8_t> BuildPgc(const PgcShape& s) {
    std::vector<uint8_t> b(236, 0);
    for (size_t i = 4; i < 228; ++i) b[i] = uint8_t(i * 7 + 1);
    b[2] = uint8_t(s.programs), b[3] = uint8_t(s.cells);
    const size_t n = s.pre.size() + s.post.size() + s.cell.size();
    if (s.commandTable || n) {
        PutBE(b, 228, uint32_t(b.size()), 2);
        for (size_t v : {s.pre.size(), s.post.size(), s.cell.size(), 8 * n + 7})
            b.insert(b.end(), {uint8_t(v >> 8), uint8_t(v)});
        for (const auto* list : {&s.pre, &s.post, &s.cell})
            for (const auto& c : *list) b.insert(b.end(), c.begin(), c.end());
    }
    if (s.programs) {
        PutBE(b, 230, uint32_t(b.size()), 2);
        for (int p = 0; p < s.programs; ++p) b.push_back(uint8_t(1 + 2 * p));
        if (s.programs & 1) b.push_back(0);
    }
    if (s.cells) {
        PutBE(b, 232, uint32_t(b.size()), 2);
        for (int i = 0; i < 24 * s.cells; ++i) b.push_back(uint8_t(0x80 + i * 5));
        PutBE(b, 234, uint32_t(b.size()), 2);
        for (int c = 0; c < s.cells; ++c)
            b.insert(b.end(), {0, uint8_t(1 + c / 8), 0, uint8_t(c + 1)});
    }
    return b;
}

using CorpusPgc = std::tuple<std::string, std::vector<uint8_t>, size_t>;  // name, file, offset

// The First Play, menu and title PGCs of the real discs. PGC and language-unit tables both have
// an 8-byte header and 8-byte search pointers whose bytes 4-7 give the start.
inline std::vector<CorpusPgc> CorpusPgcs() {
    std::vector<CorpusPgc> out;
    for (const auto& path : CorpusFiles("")) {
        const auto f = ReadBytes(path);
        const bool vmg = path.find("VIDEO_TS") != std::string::npos;
        auto starts = [&](size_t t) {  // what the table at byte t points at
            std::vector<size_t> v;
            for (unsigned i = 0; t && t < f.size() && i < Be(f, t); ++i)
                v.push_back(t + Be(f, t + 12 + 8 * i, 4));
            return v;
        };
        auto add = [&](const char* kind, size_t table) {
            for (size_t at : starts(table))
                if (at + 236 <= f.size()) out.push_back({path + kind, f, at});
        };
        if (vmg) out.push_back({path + " first play", f, Be(f, 0x84, 4)});
        for (size_t lu : starts(2048 * size_t(Be(f, vmg ? 0xC8 : 0xD0, 4)))) add(" menu", lu);
        if (!vmg) add(" title", 2048 * size_t(Be(f, 0xCC, 4)));
    }
    return out;
}

}  // namespace kt

#endif
