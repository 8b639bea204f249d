// Binary PGCs for the codec tests: a builder laying the parts out back to
// back as the assembler does, and every PGC of the real discs.
#ifndef KESTRO_TESTS_PGC_FIXTURE_H
#define KESTRO_TESTS_PGC_FIXTURE_H

#include <array>
#include <string>
#include <vector>

#include "test_util.h"

namespace kt {

// A big-endian field of n bytes (zeros beyond the data), and a 16-bit one written.
inline uint32_t Be(const std::vector<uint8_t>& b, size_t at, int n = 2) {
    return BE32(b, at) >> (32 - 8 * n);
}
inline void PutBe(std::vector<uint8_t>& b, size_t at, uint32_t v) { PutBE(b, at, v, 2); }

using Command = std::array<uint8_t, 8>;
struct PgcShape {
    std::vector<Command> pre, post, cell;
    bool commandTable = false;  // written even without commands
    int programs = 0, cells = 0;
};

// Distinct bytes wherever a field may hold any value (sectors above 2^31
// included), zeros where the format reserves them.
inline std::vector<uint8_t> BuildPgc(const PgcShape& s) {
    std::vector<uint8_t> b(236, 0);
    for (size_t i = 4; i < 228; ++i) b[i] = uint8_t(i * 7 + 1);
    b[2] = uint8_t(s.programs);
    b[3] = uint8_t(s.cells);
    size_t n = s.pre.size() + s.post.size() + s.cell.size();
    if (s.commandTable || n) {
        PutBe(b, 228, uint32_t(b.size()));
        for (size_t v : {s.pre.size(), s.post.size(), s.cell.size(), 8 * n + 7})
            b.insert(b.end(), {uint8_t(v >> 8), uint8_t(v)});
        for (const auto* list : {&s.pre, &s.post, &s.cell})
            for (const auto& c : *list) b.insert(b.end(), c.begin(), c.end());
    }
    if (s.programs) {
        PutBe(b, 230, uint32_t(b.size()));
        for (int p = 0; p < s.programs; ++p) b.push_back(uint8_t(1 + 2 * p));
        if (s.programs & 1) b.push_back(0);
    }
    if (s.cells) {
        PutBe(b, 232, uint32_t(b.size()));
        for (int i = 0; i < 24 * s.cells; ++i) b.push_back(uint8_t(0x80 + i * 5));
        PutBe(b, 234, uint32_t(b.size()));
        for (int c = 0; c < s.cells; ++c)
            b.insert(b.end(), {0, uint8_t(1 + c / 8), 0, uint8_t(c + 1)});
    }
    return b;
}

struct CorpusPgc {
    std::string name;
    std::vector<uint8_t> file;
    size_t offset;
};

// First Play, menu and title PGCs. PGC and language-unit tables both have an
// 8-byte header and 8-byte search pointers whose bytes 4-7 give the start.
inline std::vector<CorpusPgc> CorpusPgcs() {
    std::vector<CorpusPgc> out;
    auto table = [](const std::vector<uint8_t>& f, size_t t, auto&& each) {
        for (unsigned i = 0; t && t < f.size() && i < Be(f, t); ++i)
            each(t + Be(f, t + 12 + 8 * i, 4));
    };
    auto pgcs = [&](const std::string& name, const std::vector<uint8_t>& f, size_t t) {
        table(f, t, [&](size_t at) {
            if (at + 236 <= f.size()) out.push_back({name, f, at});
        });
    };
    auto menus = [&](const std::string& name, const std::vector<uint8_t>& f, size_t saAt) {
        table(f, 2048 * size_t(Be(f, saAt, 4)), [&](size_t lu) { pgcs(name, f, lu); });
    };
    for (const auto& path : CorpusFiles("VIDEO_TS")) {
        auto f = ReadBytes(path);
        out.push_back({path + " first play", f, 0x400});
        menus(path + " menu", f, 0xC8);
    }
    for (const auto& path : CorpusFiles("VTS_")) {
        auto f = ReadBytes(path);
        menus(path + " menu", f, 0xD0);
        pgcs(path + " title", f, 2048 * size_t(Be(f, 0xCC, 4)));
    }
    return out;
}

}  // namespace kt

#endif
