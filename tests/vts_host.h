// Title-set test helpers: a bare PGC and a synthetic title set with every table.
#ifndef KESTRO_TESTS_VTS_HOST_H
#define KESTRO_TESTS_VTS_HOST_H

#include <cstring>

#include "pgc_fixture.h"
#include "tables_util.h"

namespace vt {

using tt::Bytes;

// A PGC of the 236-byte general information only.
inline std::vector<uint8_t> BarePgc(uint32_t playTime = 0x00013040) {
    return Bytes().zeros(4).be32(playTime).zeros(228);
}

// A management table with the given start sectors, 2 audio and 1 sub-picture streams.
inline std::vector<uint8_t> SyntheticMat(const std::vector<uint32_t>& sa) {
    std::vector<uint8_t> m(2048, 0);
    std::memcpy(m.data(), "DVDVIDEO-VTS", 12);
    std::vector<std::pair<size_t, uint32_t>> words = {{12, 127906}, {28, 9}, {34, 1}, {128, 2047}};
    for (size_t i = 0; i < sa.size(); ++i) words.push_back({192 + 4 * i, sa[i]});
    for (auto [at, v] : words) kt::PutBE(m, at, v, 4);
    m[33] = 0x11, m[256] = 0x4d, m[257] = 0x01, m[259] = 1, m[341] = 1, m[512] = 0x53, m[515] = 2,
    m[597] = 1;
    for (int i = 0; i < 16; ++i)
        m[260 + i % 8] = uint8_t(0x10 + i % 8), m[516 + i] = uint8_t(0x30 + 16 * (i / 8) + i % 8);
    for (int i = 0; i < 6; ++i) m[342 + i] = uint8_t(0x20 + i), m[598 + i] = uint8_t(0x50 + i);
    for (int i = 0; i < 24 * 8; ++i) m[792 + i] = uint8_t(i);
    return m;
}

// A small title set: the management table, then every table (1, 2, 1, ... sectors).
inline std::vector<uint8_t> SyntheticVtsi(bool menuTable = true) {
    // Nine PGCs: eight bare ones, then one with a pre command, two programs and two cells.
    const auto last = kt::BuildPgc({{kt::Command{0x30, 2, 0, 0, 0, 1, 0, 0}}, {}, {}, false, 2, 2});
    Bytes pgcit, ut;
    pgcit.be16(9).be16(0).be32(uint32_t(80 + 8 * 236 + last.size() - 1));
    for (int i = 0; i < 9; ++i) pgcit.be32(0x81000000u + uint32_t(i)).be32(80 + 236 * i);
    for (int i = 0; i < 8; ++i) pgcit.add(BarePgc(0x00000100u * uint32_t(i)));
    pgcit.add(last);
    ut.be16(1).be16(0).be32(16 + 8 + 8 + 236 - 1).u8('e').u8('n').u8(0).u8(0x80).be32(16);
    ut.be16(1).be16(0).be32(8 + 8 + 236 - 1).be32(0x83000000u).be32(16).add(BarePgc());
    const std::vector<uint8_t> tables[] = {
        kt::Hex("0002 0000 00000023"          // title units, reserved, end address
                "00000010 0000001c"           // units 1 and 2 start at bytes 16 and 28
                "00010001 00010002 00010003"  // unit 1: PGC 1, programs 1 to 3
                "00020001 00020002"),         // unit 2: PGC 2, programs 1 and 2
        pgcit,
        ut,
        kt::Hex("0002 0000 0000001f"     // time maps, reserved, end address
                "00000010 0000001c"      // maps 1 and 2 start at bytes 16 and 28
                "01 00 0002 80001234"    // map 1: time unit 1 s, 2 entries: a discontinuity at 4660
                "0000125c 02 00 0000"),  // then 4700; map 2: time unit 2 s, no entries
        Bytes().be16(1).be16(0).be32(19).be16(1).u8(1).u8(0).be32(0).be32(9),
        Bytes().be32(7).be32(0),
        Bytes().be16(1).be16(0).be32(19).be16(1).u8(1).u8(0).be32(0).be32(999),
        Bytes().be32(11).be32(0).be32(500)};
    std::vector<uint8_t> file = SyntheticMat({0, 10, 1, 2, menuTable ? 4u : 0u, 5, 6, 7, 8, 9});
    for (auto& t : tables) {
        file.insert(file.end(), t.begin(), t.end());
        file.resize((file.size() + 2047) / 2048 * 2048, 0);
    }
    return file;
}

}  // namespace vt

#endif
