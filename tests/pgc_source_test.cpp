// A PGC's source: its keys, the same bytes assembled back (built and real PGCs), the writer's
// buffer check, the reader's checks and messages, the stores' limits.
#include <algorithm>

#include "kestro/ini.h"
#include "kestro/pgc.h"
#include "pgc_fixture.h"
#include "tables_util.h"

namespace {

// Writes the source of `file` (a copy: the writer converts the command table header in place)
// into section "sec" with prefix "p_".
std::string Source(const std::string& ini, std::vector<uint8_t> file, size_t offset = 0) {
    CKestro_PGCI codec;
    EXPECT_TRUE(codec.DisasmPGCI(ini.c_str(), file.data(), offset, "p_", "sec", file.size()));
    return ini;
}
void Set(const std::string& ini, const std::string& key, const char* v) {
    INIWritePrivateProfileString("sec", ("p_" + key).c_str(), v, ini.c_str());
}

std::vector<uint8_t> Assemble(const std::string& ini) {
    CKestro_PGCI codec;
    if (!codec.AsmPGCI(ini.c_str(), "sec", "p_")) return {};
    std::vector<uint8_t> out(codec.GetPGCISize(), 0);
    EXPECT_TRUE(codec.GetPGCData(out.data(), out.size()));
    // The cell entries were consumed: sizing again leaves out the cell tables.
    EXPECT_EQ(codec.GetPGCISize(), kt::Be(out, 232) ? kt::Be(out, 232) : out.size());
    return out;
}

// The source's keys and their values as written.
TEST(PgcSource, KeysAsWritten) {
    kt::TempDir dir;
    const std::string a =
        Source(dir / "a.ini",
               kt::BuildPgc({{kt::Command{0x30, 2, 0, 0, 0, 1, 0, 0}}, {}, {}, false, 2, 3}));
    EXPECT_EQ(
        tt::Values(a, "sec",
                   {"p_cnt", "p_ast_ctlt08", "p_cmdt_sa", "p_pre1", "p_pgmap_prog_entry_cell02",
                    "p_c_pbit_cell001_fvobu_sa", "p_c_posit_cell003_vobid"}),
        "00000203|b7be|236|3002000000010000|3|-1465011529|1|");
    // 64 general and offset keys, 4 of the command table, 2 map entries, 6 + 2 per cell.
    const std::string text = kt::ReadText(a);
    EXPECT_EQ(std::count(text.begin(), text.end(), '='), 64 + 4 + 2 + 3 * 8);
}

// The PGC at `at` of a real file, its parts back to back in the assembler's order and its start
// offsets to match (some discs lay the parts out otherwise).
std::vector<uint8_t> InAssemblerOrder(const std::vector<uint8_t>& file, size_t at) {
    auto part = [&](size_t offsetField) { return at + kt::Be(file, at + offsetField); };
    std::vector<uint8_t> out(file.begin() + long(at),
                             file.begin() + long(std::min(at + 236, file.size())));
    out.resize(236, 0);
    std::fill(out.begin() + 228, out.end(), 0);
    auto append = [&](size_t offsetField, size_t from, size_t size) {
        if (!kt::Be(file, at + offsetField) || size == 0) return;
        kt::PutBe(out, offsetField, uint32_t(out.size()));
        for (size_t i = from; i < from + size; ++i) out.push_back(i < file.size() ? file[i] : 0);
    };
    const size_t cmd = part(228), programs = kt::Be(file, at + 2, 1) & 0x7Fu,
                 cells = kt::Be(file, at + 3, 1);
    append(228, cmd,
           8 + 8 * size_t(kt::Be(file, cmd) + kt::Be(file, cmd + 2) + kt::Be(file, cmd + 4)));
    append(230, part(230), programs);
    if (kt::Be(file, at + 230) && (programs & 1)) out.push_back(0);  // even-length padding
    append(232, part(232), 24 * cells);
    append(234, part(234), 4 * cells);
    return out;
}

// Built PGCs and every real PGC come back byte for byte through the source.
TEST(PgcSource, BuiltAndRealPgcsComeBackByteForByte) {
    kt::TempDir dir;
    const kt::Command jump{0x30, 0x06, 0x00, 0x01, 0x02, 0x83, 0, 0},
        link{0x20, 0x04, 0, 0, 0, 0, 0, 3};
    const std::vector<kt::Command> many(128, link);  // 384 commands: the store's capacity
    const kt::PgcShape shapes[] = {{},
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
    // Every real PGC comes back part by part; most as the very bytes of the file.
    int inOrder = 0, total = 0;
    for (const auto& p : kt::CorpusPgcs()) {
        auto back = Assemble(Source(dir / std::to_string(n++), p.file, p.offset));
        const auto expected = InAssemblerOrder(p.file, p.offset);
        ASSERT_GE(back.size(), 236u) << p.name;
        EXPECT_TRUE(back == expected)
            << p.name << " PGC at byte " << p.offset << ": " << tt::Mismatch(back, expected);
        ++total;
        inOrder += p.offset + back.size() <= p.file.size() &&
                   std::equal(back.begin(), back.end(), p.file.begin() + long(p.offset));
    }
    EXPECT_TRUE(!total || inOrder > total / 2) << "most real PGCs are in the assembler's order";
}

// The writer refuses a buffer one byte short of any part and writes nothing past it.
TEST(PgcSource, WriterChecksEveryPartAgainstTheBuffer) {
    kt::TempDir dir;
    kt::PgcShape shape{{kt::Command{}}, {}, {}, false, 3, 2};
    const std::string ini = Source(dir / "s.ini", kt::BuildPgc(shape));
    CKestro_PGCI codec;
    // One byte short of the end of each part, and below the general information.
    for (unsigned long room : {311ul, 236 + 16 + 4 + 47ul, 236 + 16 + 3ul, 243ul, 235ul}) {
        ASSERT_TRUE(codec.AsmPGCI(ini.c_str(), "sec", "p_"));
        ASSERT_EQ(codec.GetPGCISize(), 312u);
        std::vector<uint8_t> out(room + 1, 0xAA);
        EXPECT_FALSE(codec.GetPGCData(out.data(), room)) << room;
        EXPECT_EQ(out[room], 0xAA) << room;
        EXPECT_EQ(tt::Error(codec), "Internal error, data size exceeds buffer size");
        EXPECT_EQ(codec.GetPGCISize(), 236u + 16 + 4) << "cells released on failure";
    }
}

// Each refused source gives its exact message.
TEST(PgcSource, ChecksAndMessages) {
    kt::TempDir dir;
    const struct {
        int programs, cells, pre;
        const char *key, *value;  // a statement replaced ("$x" reads as missing)
        const char* error;        // "" when the source assembles; "@" stands for the path, "M" for
                                  // the message of a missing statement
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
        {0, 0, 1, "cmdt_pre_ns", "385",
         "In [sec] of @ the command table declares 385 commands, more than the 384 allowed"},
    };
    int n = 0;
    for (const auto& c : cases) {
        kt::PgcShape shape{
            std::vector<kt::Command>(size_t(c.pre)), {}, {}, false, c.programs, c.cells};
        // The last path is long: the message is cut to the error text's 259 characters.
        const std::string ini =
            Source(dir / (++n == int(std::size(cases)) ? std::string(240, 'd') : std::to_string(n)),
                   kt::BuildPgc(shape));
        Set(ini, c.key, c.value);
        CKestro_PGCI codec;
        std::string want = c.error;
        if (want == "M")
            want = "[p_" + std::string(c.key) + "] statement missing from section sec of @";
        if (want.find('@') != std::string::npos) want.replace(want.find('@'), 1, ini);
        EXPECT_EQ(codec.AsmPGCI(ini.c_str(), "sec", "p_"), want.empty()) << c.key;
        EXPECT_EQ(tt::Error(codec), want.substr(0, 259));
        if (c.value == std::string("385")) {
            EXPECT_EQ(codec.GetPGCISize(), 236u) << "no command table kept";
        }
    }
}

// The stores hold 256 cells and 256 program-map bytes; more statements are not read.
TEST(PgcSource, StoreLimits) {
    kt::TempDir dir;
    const std::string ini = Source(dir / "s.ini", kt::BuildPgc({}));
    char key[40];
    for (int i = 1; i <= 257; ++i) {
        std::snprintf(key, sizeof key, "pgmap_prog_entry_cell%02d", i);
        Set(ini, key, "1");
        for (const char* k :
             {"pbit_cell%03d_cat", "pbit_cell%03d_pbtm", "pbit_cell%03d_fvobu_sa",
              "pbit_cell%03d_filvu_ea", "pbit_cell%03d_lvobu_sa", "pbit_cell%03d_lvobu_ea",
              "posit_cell%03d_vobid", "posit_cell%03d_cellid"})
            std::snprintf(key, sizeof key, (std::string("c_") + k).c_str(), i), Set(ini, key, "12");
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
