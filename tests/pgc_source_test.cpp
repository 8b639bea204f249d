// A PGC's source: its keys, the same bytes assembled back (built and real PGCs), the writer's
// buffer check, the reader's checks and messages, the stores' limits.
#include <algorithm>

#include "kestro/ini.h"
#include "kestro/pgc.h"
#include "pgc_fixture.h"
#include "tables_util.h"

namespace {

// Writes the source of the PGC at `offset` (of a copy: the writer converts the command table
// header in place) into section "sec" with prefix "p_".
std::string Source(const std::string& ini, std::vector<uint8_t> file, size_t offset = 0) {
    CKestro_PGCI codec;
    EXPECT_TRUE(codec.DisasmPGCI(ini.c_str(), file.data(), offset, "p_", "sec", file.size()));
    return ini;
}
void Set(const std::string& ini, const std::string& key, const char* v) {
    INIWritePrivateProfileString("sec", ("p_" + key).c_str(), v, ini.c_str());
}
// Assembles a source; sizing again afterwards leaves out the cell tables, which were consumed.
std::vector<uint8_t> Assemble(const std::string& ini) {
    CKestro_PGCI codec;
    if (!codec.AsmPGCI(ini.c_str(), "sec", "p_")) return {};
    std::vector<uint8_t> out(codec.GetPGCISize(), 0);
    EXPECT_TRUE(codec.GetPGCData(out.data(), out.size()));
    EXPECT_EQ(codec.GetPGCISize(), kt::Be(out, 232) ? kt::Be(out, 232) : out.size());
    return out;
}

// The PGC at `at` of a real file with its parts back to back in the assembler's order and its
// start offsets to match (some discs lay the parts out otherwise).
std::vector<uint8_t> InAssemblerOrder(const std::vector<uint8_t>& file, size_t at) {
    std::vector<uint8_t> out(file.begin() + long(at), file.begin() + long(at + 228));
    out.resize(236, 0);
    const size_t cmd = at + kt::Be(file, at + 228), programs = file[at + 2] & 0x7Fu,
                 cells = file[at + 3];
    const size_t sizes[] = {
        8 * (1 + kt::Be(file, cmd) + kt::Be(file, cmd + 2) + kt::Be(file, cmd + 4)), programs,
        24 * cells, 4 * cells};
    for (size_t part = 0, field = 228; part < 4; ++part, field += 2) {
        const size_t from = at + kt::Be(file, at + field);
        if (from == at || !sizes[part]) continue;
        kt::PutBe(out, field, uint32_t(out.size()));
        for (size_t i = from; i < from + sizes[part]; ++i)
            out.push_back(i < file.size() ? file[i] : 0);
        if (part == 1 && (programs & 1)) out.push_back(0);  // the map's even-length padding
    }
    return out;
}

// Built PGCs and every real PGC come back byte for byte through the source, its keys as written;
// the writer refuses a buffer one byte short of any part and writes nothing past it.
TEST(PgcSource, KeysAsWrittenAndPgcsComeBackByteForByte) {
    kt::TempDir dir;
    const kt::Command jump{0x30, 0x06, 0x00, 0x01, 0x02, 0x83, 0, 0},
        link{0x20, 0x04, 0, 0, 0, 0, 0, 3};
    const std::vector<kt::Command> many(128, link);  // 384 commands: the store's capacity
    const kt::PgcShape shapes[] = {{{kt::Command{0x30, 2, 0, 0, 0, 1, 0, 0}}, {}, {}, false, 2, 3},
                                   {},
                                   {{jump, link}, {link}, {jump, jump, link}, true, 0, 0},
                                   {{}, {}, {}, false, 3, 3},
                                   {{}, {link}, {}, true, 4, 5},
                                   {{jump}, {}, {}, true, 127, 255},
                                   {many, many, many, true, 1, 1}};
    int n = 0;
    for (const auto& s : shapes) {
        auto pgc = kt::BuildPgc(s);
        EXPECT_EQ(Assemble(Source(dir / std::to_string(n++), pgc)), pgc) << n;
    }
    for (const auto& p : kt::CorpusPgcs()) {
        auto back = Assemble(Source(dir / std::to_string(n++), p.file, p.offset));
        const auto want = InAssemblerOrder(p.file, p.offset);
        EXPECT_TRUE(back == want) << p.name << " PGC at byte " << p.offset << ": "
                                  << tt::Mismatch(back, want);
    }
    const std::string first = dir / "0", text = kt::ReadText(first);
    EXPECT_EQ(
        tt::Values(first, "sec",
                   {"p_cnt", "p_ast_ctlt08", "p_cmdt_sa", "p_pre1", "p_pgmap_prog_entry_cell02",
                    "p_c_pbit_cell001_fvobu_sa", "p_c_posit_cell003_vobid"}),
        "00000203|b7be|236|3002000000010000|3|-1465011529|1|");
    // 64 general and offset keys, 4 of the command table, 2 map entries, 6 + 2 per cell.
    EXPECT_EQ(std::count(text.begin(), text.end(), '='), 64 + 4 + 2 + 3 * 8);
    // One byte short of the end of each part (cell positions, playback, map, commands, general).
    CKestro_PGCI codec;
    for (unsigned long room : {337ul, 325ul, 253ul, 251ul, 235ul}) {
        ASSERT_TRUE(codec.AsmPGCI(first.c_str(), "sec", "p_"));
        ASSERT_EQ(codec.GetPGCISize(), 338u);
        std::vector<uint8_t> out(room + 1, 0xAA);
        EXPECT_FALSE(codec.GetPGCData(out.data(), room)) << room;
        EXPECT_EQ(out[room], 0xAA) << room;
        EXPECT_EQ(tt::Error(codec), "Internal error, data size exceeds buffer size");
        EXPECT_EQ(codec.GetPGCISize(), 236u + 16 + 2) << "cells released on failure";
    }
}

// Each refused source gives its exact message.
TEST(PgcSource, ChecksAndMessages) {
    kt::TempDir dir;
    // The PGC's programs, cells and pre-commands, a statement replaced ("$x" reads as missing),
    // the message ("" when it assembles, "M" that of the missing statement, "@" the path).
    const struct {
        int programs, cells, pre;
        const char *key, *value, *error;
    } cases[] = {
        {3, 0, 0, "cnt", "00000400", ""},  // the padding byte counts as a program
        {3, 0, 0, "cnt", "00000200",
         "Number of Programs in cnt [2] not equal to number of programs defined in PGMAP_PROG [4]"},
        {0, 0, 0, "cnt", "00008200",
         "Number of Programs in cnt [2] not equal to number of programs defined in PGMAP_PROG [0]"},
        {0, 4, 0, "c_pbit_cell003_cat", "$x",
         "In [@] at [sec] the number of Cells in cnt not equal to number of cells defined in "
         "C_PBIT. Cell count = 4 and C_PBIT = 2 "},
        {0, 2, 0, "c_pbit_cell002_lvobu_sa", "$x", "M"},
        {0, 1, 0, "c_posit_cell001_cellid", "$x", "M"},
        {0, 0, 2, "pre2", "$x", "M"},
        {0, 0, 0, "sp_plt16", "$x", "M"},
        {0, 0, 0, "cnt", "$", "M"},
        {0, 0, 1, "cmdt_pre_ns", "385",  // a long path: the message is cut to 259 characters
         "In [sec] of @ the command table declares 385 commands, more than the 384 allowed"},
    };
    int n = 0;
    for (const auto& [programs, cells, pre, key, value, error] : cases) {
        const bool last = ++n == int(std::size(cases));
        const std::string ini = Source(
            dir / (last ? std::string(240, 'd') : std::to_string(n)),
            kt::BuildPgc({std::vector<kt::Command>(size_t(pre)), {}, {}, false, programs, cells}));
        Set(ini, key, value);
        std::string want =
            *error == 'M' ? "[p_" + std::string(key) + "] statement missing from section sec of @"
                          : error;
        if (want.find('@') != std::string::npos) want.replace(want.find('@'), 1, ini);
        CKestro_PGCI codec;
        EXPECT_EQ(codec.AsmPGCI(ini.c_str(), "sec", "p_"), want.empty()) << key;
        EXPECT_EQ(tt::Error(codec), want.substr(0, 259));
        EXPECT_TRUE(!last || codec.GetPGCISize() == 236) << "no command table kept";
    }
}

// The stores hold 256 cells and 256 program-map bytes; more statements are not read.
TEST(PgcSource, StoreLimits) {
    kt::TempDir dir;
    const std::string ini = Source(dir / "s.ini", kt::BuildPgc({}));
    for (int i = 1; i <= 257; ++i) {
        Set(ini, "pgmap_prog_entry_cell" + std::string(i < 10, '0') + std::to_string(i), "1");
        const std::string cell = std::string(i < 10 ? 2 : i < 100, '0') + std::to_string(i);
        for (const char* k : {"_cat", "_pbtm", "_fvobu_sa", "_filvu_ea", "_lvobu_sa", "_lvobu_ea"})
            Set(ini, "c_pbit_cell" + cell + k, "12");
        for (const char* k : {"_vobid", "_cellid"}) Set(ini, "c_posit_cell" + cell + k, "12");
    }
    CKestro_PGCI codec;
    EXPECT_FALSE(codec.AsmPGCI(ini.c_str(), "sec", "p_"))
        << "256 cells read, which cnt cannot announce";
    EXPECT_EQ(codec.GetPGCISize(), 236u + 256 + 256 * 24 + 256 * 4);
    Set(ini, "c_pbit_cell256_cat", "$");
    Set(ini, "cnt", "00007fff");
    Set(ini, "pgmap_prog_entry_cell128", "$");
    EXPECT_EQ(kt::Be(Assemble(ini), 232), 236u + 128);  // 127 programs and the padding byte
}

}  // namespace
