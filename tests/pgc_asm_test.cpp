// Assembly from source: sizes and start offsets of the rebuilt PGC, the
// writer's buffer checks, the reader's checks, messages and limits, and the
// codec's ownership rules.
#include <cstring>
#include <string>
#include <utility>

#include "kestro/ini.h"
#include "kestro/pgc.h"
#include "pgc_fixture.h"

namespace {

// One PGC's section ("sec", prefix "p_") with every general key present.
struct PgcIni {
    explicit PgcIni(std::string p, const char* cnt = "00000000") : path(std::move(p)) {
        Set("cnt", cnt);
        for (const char* k : {"pb_tm", "uop_ctl", "nv_ctl"}) Set(k, "01234567");
        for (int i = 1; i <= 32; ++i) {
            if (i <= 8) Set("ast_ctlt", "8000", i);
            if (i <= 16) Set("sp_plt", "00eb8080", i);
            Set("spst_ctlt", "80000000", i);
        }
    }
    void Set(std::string key, const std::string& value, int index = -1, const char* idx = "%02d") {
        char n[32] = "";
        if (index >= 0) std::snprintf(n, sizeof n, idx, index);
        INIWritePrivateProfileString("sec", ("p_" + key + n).c_str(), value.c_str(), path.c_str());
    }
    void Cells(int n) {
        for (int c = 1; c <= n; ++c) {
            for (const char* k : {"cat", "pbtm", "fvobu_sa", "filvu_ea", "lvobu_sa", "lvobu_ea"})
                Set("c_pbit_cell", "12", c, (std::string("%03d_") + k).c_str());
            Set("c_posit_cell", "1", c, "%03d_vobid");
            Set("c_posit_cell", "2", c, "%03d_cellid");
        }
    }
    void Programs(int n) {
        for (int i = 1; i <= n; ++i) Set("pgmap_prog_entry_cell", "1", i);
    }
    void Commands(int pre, int post, int cell) {
        const struct {
            const char *count, *key;
            int n;
        } groups[] = {{"cmdt_pre_ns", "pre", pre},
                      {"cmdt_post_ns", "post", post},
                      {"cmdt_cmds_ns", "cell", cell}};
        for (const auto& g : groups) {
            Set(g.count, std::to_string(g.n));
            for (int i = 1; i <= g.n; ++i) Set(g.key, "x3002000000010000", i, "%d");
        }
    }
    bool Asm(CKestro_PGCI& codec) { return codec.AsmPGCI(path.c_str(), "sec", "p_"); }
    std::string path;
};

std::string Error(CKestro_PGCI& codec) {
    char msg[300];
    codec.GetErrorMessage(msg, sizeof msg);
    return msg;
}

TEST(PgcAssembly, SizesAndStartOffsets) {
    struct Case {
        int pre, post, cell, programs, cells;
        unsigned long size;
        unsigned sa[4];  // command table, program map, C_PBIT, C_POSIT
    } cases[] = {
        {0, 0, 0, 0, 0, 236, {0, 0, 0, 0}},  // command counts present but 0: no table
        {3, 0, 2, 5, 4, 402, {236, 284, 290, 386}},
        {0, 1, 0, 0, 0, 252, {236, 0, 0, 0}},
        {0, 0, 0, 2, 1, 266, {0, 236, 238, 262}},
        {128, 128, 128, 0, 0, 236 + 8 + 3072, {236, 0, 0, 0}},
    };
    kt::TempDir dir;
    for (const auto& c : cases) {
        char cnt[9];
        std::snprintf(cnt, sizeof cnt, "0000%02x%02x", c.programs, c.cells);
        PgcIni ini(dir / (std::string(cnt) + std::to_string(c.size)), cnt);
        ini.Commands(c.pre, c.post, c.cell);
        ini.Programs(c.programs);
        ini.Cells(c.cells);
        CKestro_PGCI codec;
        ASSERT_TRUE(ini.Asm(codec)) << Error(codec);
        std::vector<uint8_t> out(codec.GetPGCISize(), 0);
        EXPECT_EQ(out.size(), c.size);
        ASSERT_TRUE(codec.GetPGCData(out.data(), out.size()));
        for (int i = 0; i < 4; ++i) EXPECT_EQ(kt::Be(out, 228 + 2 * i), c.sa[i]) << c.size;
        if (c.sa[0]) {
            EXPECT_EQ(kt::Be(out, 242), 8u * (c.pre + c.post + c.cell) + 7);
        }
        // The cell entries were consumed: sizing again leaves out the cell tables.
        EXPECT_EQ(codec.GetPGCISize(), c.cells ? c.sa[2] : c.size);
    }
}

TEST(PgcAssembly, WriterChecksEveryPartAgainstTheBuffer) {
    kt::TempDir dir;
    PgcIni ini(dir / "short", "00000302");
    ini.Commands(1, 0, 0);
    ini.Programs(3);
    ini.Cells(2);
    CKestro_PGCI codec;
    const unsigned long size = 236 + 16 + 4 + 48 + 8;
    // One byte short of the end of each part, and below the general information.
    for (unsigned long room : {size - 1, 236 + 16 + 4 + 47ul, 236 + 16 + 3ul, 243ul, 235ul}) {
        ASSERT_TRUE(ini.Asm(codec));
        ASSERT_EQ(codec.GetPGCISize(), size);
        std::vector<uint8_t> out(room + 1, 0xAA);
        EXPECT_FALSE(codec.GetPGCData(out.data(), room)) << room;
        EXPECT_EQ(out[room], 0xAA) << room;
        EXPECT_EQ(Error(codec), "Internal error, data size exceeds buffer size");
        EXPECT_EQ(codec.GetPGCISize(), 236u + 16 + 4) << "cells released on failure";
    }
}

TEST(PgcAssembly, ChecksAndMessages) {
    kt::TempDir dir;
    const struct Case {
        const char* cnt;
        int programs, cells, pre;
        const char* setKey;  // a statement overwritten with "$x" (missing) or a count
        const char* error;   // "" when the source assembles; "@" stands for the path
    } cases[] = {
        {"00000300", 3, 0, 0, "", ""},
        {"00000400", 3, 0, 0, "", ""},
        {"00000200", 3, 0, 0, "",
         "Number of Programs in cnt [2] not equal to number of programs defined in PGMAP_PROG [4]"},
        {"00008200", 0, 0, 0, "",
         "Number of Programs in cnt [2] not equal to number of programs defined in PGMAP_PROG [0]"},
        {"00000003", 0, 4, 0, "c_pbit_cell003_cat",
         "In [@] at [sec] the number of Cells in cnt not equal to number of cells defined in "
         "C_PBIT. Cell count = 3 and C_PBIT = 2 "},
        {"00000002", 0, 2, 0, "c_pbit_cell002_lvobu_sa",
         "[p_c_pbit_cell002_lvobu_sa] statement missing from section sec of @"},
        {"00000001", 0, 1, 0, "c_posit_cell001_cellid",
         "[p_c_posit_cell001_cellid] statement missing from section sec of @"},
        {"00000000", 0, 0, 2, "pre2", "[p_pre2] statement missing from section sec of @"},
        {"00000000", 0, 0, 0, "sp_plt16", "[p_sp_plt16] statement missing from section sec of @"},
        {"00000000", 0, 0, 385, "",
         "In [sec] of @ the command table declares 385 commands, more than the 384 allowed"},
    };
    int n = 0;
    for (const auto& c : cases) {
        PgcIni ini(dir / std::to_string(n++), c.cnt);
        ini.Programs(c.programs);
        ini.Cells(c.cells);
        ini.Commands(c.pre, 0, 0);
        if (*c.setKey) ini.Set(c.setKey, "$x");
        CKestro_PGCI codec;
        std::string want = c.error;
        if (want.find('@') != std::string::npos) want.replace(want.find('@'), 1, ini.path);
        EXPECT_EQ(ini.Asm(codec), want.empty()) << c.cnt << ' ' << c.setKey;
        EXPECT_EQ(Error(codec), want);
        if (c.pre > 384) {
            EXPECT_EQ(codec.GetPGCISize(), 236u) << "no command table kept";
        }
    }
    // A message with a long path is cut to the error text's 259 characters.
    PgcIni ini(dir / std::string(240, 'd'));
    ini.Set("cnt", "$");
    CKestro_PGCI codec;
    EXPECT_FALSE(ini.Asm(codec));
    EXPECT_EQ(Error(codec),
              ("[p_cnt] statement missing from section sec of " + ini.path).substr(0, 259));
}

TEST(PgcAssembly, ShortHexValuesAndTheStoreLimits) {
    kt::TempDir dir;
    PgcIni ini(dir / "limits");
    ini.Set("pb_tm", "x01");                  // missing digits count as 0
    ini.Set("nv_ctl", "0001000200030004ff");  // cut to the field
    ini.Cells(257);
    ini.Programs(257);
    CKestro_PGCI codec;
    EXPECT_FALSE(ini.Asm(codec)) << "256 cells read, which cnt cannot announce";
    EXPECT_EQ(codec.GetPGCISize(), 236u + 256 + 256 * 24 + 256 * 4);
    ini.Set("c_pbit_cell", "$", 256, "%03d_cat");
    ini.Set("cnt", "00007fff");
    ini.Set("pgmap_prog_entry_cell", "$", 128);
    ASSERT_TRUE(ini.Asm(codec)) << Error(codec);
    std::vector<uint8_t> out(codec.GetPGCISize());
    ASSERT_TRUE(codec.GetPGCData(out.data(), out.size()));
    EXPECT_EQ(kt::Be(out, 4, 4), 0x01000000u);
    EXPECT_EQ(kt::Be(out, 156, 4), 0x00010002u);
    EXPECT_EQ(kt::Be(out, 160, 4), 0x00030004u);
    EXPECT_EQ(kt::Be(out, 230), 236u);
    EXPECT_EQ(kt::Be(out, 232), 236u + 128);  // 127 programs and the padding byte
}

TEST(PgcAssembly, MovedCodecsKeepTheirCellsAndStayUsable) {
    kt::TempDir dir;
    PgcIni ini(dir / "move", "00000001");
    ini.Cells(1);
    CKestro_PGCI a, c;
    ASSERT_TRUE(ini.Asm(a));
    CKestro_PGCI b(std::move(a));
    EXPECT_EQ(b.GetPGCISize(), 236u + 28);
    EXPECT_EQ(a.GetPGCISize(), 236u);  // a moved-from codec starts afresh
    ASSERT_TRUE(ini.Asm(a));
    c = std::move(a);
    c = std::move(b);
    std::vector<uint8_t> out(236 + 28);
    EXPECT_TRUE(c.GetPGCData(out.data(), out.size()));
    EXPECT_TRUE(ini.Asm(a));
}

}  // namespace
