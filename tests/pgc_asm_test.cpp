// Assembly from source: sizes and start offsets of the rebuilt PGC, the
// writer's buffer checks, the checks and messages of the reader, its limits,
// and the ownership rules of the codec object.
#include <cstring>
#include <string>
#include <utility>

#include "kestro/ini.h"
#include "kestro/pgc.h"
#include "pgc_fixture.h"

namespace {

// A source section for one PGC, written through the INI store.
class PgcIni {
public:
    explicit PgcIni(const std::string& path, const char* section = "sec", const char* prefix = "p_")
        : path_(path), section_(section), prefix_(prefix) {}

    void Set(const std::string& key, const std::string& value) {
        INIWritePrivateProfileString(section_, (prefix_ + key).c_str(), value.c_str(),
                                     path_.c_str());
    }
    // Every general-information key, "cnt" as given.
    void General(const std::string& cnt) {
        Set("cnt", cnt);
        Set("pb_tm", "01234567");
        Set("uop_ctl", "0000ffff");
        for (int i = 1; i <= 8; ++i) Set(Indexed("ast_ctlt", i), "8000");
        for (int i = 1; i <= 32; ++i) Set(Indexed("spst_ctlt", i), "80000000");
        Set("nv_ctl", "0001000200030405");
        for (int i = 1; i <= 16; ++i) Set(Indexed("sp_plt", i), "00eb8080");
    }
    void Cell(int n) {
        char k[64];
        const char* parts[][2] = {{"cat", "00000000"}, {"pbtm", "00001025"}, {"fvobu_sa", "0"},
                                  {"filvu_ea", "0"},   {"lvobu_sa", "10"},   {"lvobu_ea", "20"}};
        for (auto& p : parts) {
            std::snprintf(k, sizeof k, "c_pbit_cell%03d_%s", n, p[0]);
            Set(k, p[1]);
        }
        std::snprintf(k, sizeof k, "c_posit_cell%03d_vobid", n);
        Set(k, "1");
        std::snprintf(k, sizeof k, "c_posit_cell%03d_cellid", n);
        Set(k, std::to_string(n));
    }
    void Programs(int n) {
        for (int i = 1; i <= n; ++i) Set(Indexed("pgmap_prog_entry_cell", i), std::to_string(i));
    }
    void Commands(int pre, int post, int cell) {
        Set("cmdt_pre_ns", std::to_string(pre));
        Set("cmdt_post_ns", std::to_string(post));
        Set("cmdt_cmds_ns", std::to_string(cell));
        for (int i = 1; i <= pre; ++i) Set("pre" + std::to_string(i), "3002000000010000");
        for (int i = 1; i <= post; ++i) Set("post" + std::to_string(i), "2004000000000003");
        for (int i = 1; i <= cell; ++i) Set("cell" + std::to_string(i), "0000000000000000");
    }
    bool Asm(CKestro_PGCI& codec) { return codec.AsmPGCI(path_.c_str(), section_, prefix_.c_str()); }
    const std::string& Path() const { return path_; }

private:
    static std::string Indexed(const char* base, int i) {
        char k[64];
        std::snprintf(k, sizeof k, "%s%02d", base, i);
        return k;
    }
    std::string path_;
    const char* section_;
    std::string prefix_;
};

std::string Error(CKestro_PGCI& codec) {
    char msg[300];
    codec.GetErrorMessage(msg, sizeof msg);
    return msg;
}

TEST(PgcAssembly, SizesAndStartOffsets) {
    struct Case {
        const char* name;
        int pre, post, cell, programs, cells;
        unsigned long size;
        unsigned cmdt, pgmap, pbit, posit;
    } cases[] = {
        {"nothing but general information", 0, 0, 0, 0, 0, 236, 0, 0, 0, 0},
        {"command table declared empty", 0, 0, 0, 0, 0, 236, 0, 0, 0, 0},
        {"commands, odd programs, cells", 3, 0, 2, 5, 4, 402, 236, 284, 290, 386},
        {"one post command only", 0, 1, 0, 0, 0, 252, 236, 0, 0, 0},
        {"even programs, no commands", 0, 0, 0, 2, 1, 266, 0, 236, 238, 262},
        {"full command store", 128, 128, 128, 0, 0, 236 + 8 + 3072, 236, 0, 0, 0},
    };
    kt::TempDir dir;
    for (const auto& c : cases) {
        PgcIni ini(dir / (std::string(c.name) + ".ini"));
        char cnt[9];
        std::snprintf(cnt, sizeof cnt, "0000%02x%02x", c.programs, c.cells);
        ini.General(cnt);
        if (std::string(c.name) == "command table declared empty") ini.Commands(0, 0, 0);
        else if (c.pre + c.post + c.cell) ini.Commands(c.pre, c.post, c.cell);
        ini.Programs(c.programs);
        for (int i = 1; i <= c.cells; ++i) ini.Cell(i);

        CKestro_PGCI codec;
        ASSERT_TRUE(ini.Asm(codec)) << c.name << ": " << Error(codec);
        const unsigned long size = codec.GetPGCISize();
        EXPECT_EQ(size, c.size) << c.name;
        std::vector<uint8_t> out(size, 0);
        ASSERT_TRUE(codec.GetPGCData(out.data(), out.size())) << c.name;
        EXPECT_EQ(kt::BE16(out, 228), c.cmdt) << c.name;
        EXPECT_EQ(kt::BE16(out, 230), c.pgmap) << c.name;
        EXPECT_EQ(kt::BE16(out, 232), c.pbit) << c.name;
        EXPECT_EQ(kt::BE16(out, 234), c.posit) << c.name;
        if (c.cmdt) {
            EXPECT_EQ(kt::BE16(out, c.cmdt), c.pre) << c.name;
            EXPECT_EQ(kt::BE16(out, c.cmdt + 6), 8 * (c.pre + c.post + c.cell) + 7) << c.name;
        }
        // The cell entries are consumed: a second size lacks the cell tables.
        EXPECT_EQ(codec.GetPGCISize(), c.cells ? c.pbit : c.size) << c.name;
    }
}

TEST(PgcAssembly, WriterRefusesShortBuffersAndConsumesTheCells) {
    kt::TempDir dir;
    PgcIni ini(dir / "short.ini");
    ini.General("00000302");
    ini.Commands(1, 0, 0);
    ini.Programs(3);
    ini.Cell(1);
    ini.Cell(2);
    CKestro_PGCI codec;
    ASSERT_TRUE(ini.Asm(codec));
    const unsigned long size = codec.GetPGCISize();
    ASSERT_EQ(size, 236u + 16 + 4 + 48 + 8);
    // Each part's own check: one byte short of the end of each part.
    for (unsigned long shortBy : {1ul, 8ul + 1, 8 + 48ul + 1, 8 + 48 + 4ul + 1, 8 + 48 + 4 + 8ul + 1,
                                  8 + 48 + 4 + 16ul + 1}) {
        ASSERT_TRUE(ini.Asm(codec));
        codec.GetPGCISize();
        std::vector<uint8_t> out(size - shortBy, 0);
        EXPECT_FALSE(codec.GetPGCData(out.data(), out.size())) << shortBy;
        EXPECT_EQ(Error(codec), "Internal error, data size exceeds buffer size");
        EXPECT_EQ(codec.GetPGCISize(), 236u + 16 + 4) << "cells released after failure";
    }
    ASSERT_TRUE(ini.Asm(codec));
    std::vector<uint8_t> out(codec.GetPGCISize() + 10, 0xAA);
    EXPECT_TRUE(codec.GetPGCData(out.data(), out.size()));
    EXPECT_EQ(out[size], 0xAA) << "nothing written past the PGC";
}

TEST(PgcAssembly, CountChecksAndTheirMessages) {
    kt::TempDir dir;
    struct Case {
        const char* cnt;
        int programs;
        int cells;     // cells 1..cells are written
        int skipCell;  // a cell whose keys are left out (0 = none)
        const char* error;  // nullptr: assembles
    } cases[] = {
        {"00000300", 3, 0, 0, nullptr},
        {"00000400", 3, 0, 0, nullptr},
        {"00000200", 3, 0, 0,
         "Number of Programs in cnt [2] not equal to number of programs defined in PGMAP_PROG [4]"},
        {"00008200", 0, 0, 0,
         "Number of Programs in cnt [2] not equal to number of programs defined in PGMAP_PROG [0]"},
        {"00008200", 2, 0, 0, nullptr},
        {"00000003", 0, 4, 3, "CELLS"},
    };
    int n = 0;
    for (const auto& c : cases) {
        PgcIni ini(dir / ("count" + std::to_string(n++) + ".ini"));
        ini.General(c.cnt);
        ini.Programs(c.programs);
        for (int i = 1; i <= c.cells; ++i)
            if (i != c.skipCell) ini.Cell(i);
        CKestro_PGCI codec;
        bool ok = ini.Asm(codec);
        if (!c.error) {
            EXPECT_TRUE(ok) << c.cnt << ' ' << Error(codec);
        } else if (std::string(c.error) == "CELLS") {
            EXPECT_FALSE(ok);
            EXPECT_EQ(Error(codec), "In [" + ini.Path() +
                                        "] at [sec] the number of Cells in cnt not equal to number "
                                        "of cells defined in C_PBIT. Cell count = 3 and C_PBIT = 2 ");
        } else {
            EXPECT_FALSE(ok);
            EXPECT_EQ(Error(codec), c.error);
        }
    }
}

TEST(PgcAssembly, MissingStatementsNameTheKey) {
    kt::TempDir dir;
    struct Case {
        const char* dropKey;  // written as "$" (a value beginning with $ is missing)
        const char* named;
    } cases[] = {
        {"cnt", "p_cnt"},
        {"sp_plt16", "p_sp_plt16"},
        {"nv_ctl", "p_nv_ctl"},
        {"c_pbit_cell002_lvobu_sa", "p_c_pbit_cell002_lvobu_sa"},
        {"c_posit_cell001_cellid", "p_c_posit_cell001_cellid"},
        {"pre2", "p_pre2"},
    };
    int n = 0;
    for (const auto& c : cases) {
        PgcIni ini(dir / ("missing" + std::to_string(n++) + ".ini"));
        ini.General("00000002");
        ini.Cell(1);
        ini.Cell(2);
        ini.Commands(2, 0, 0);
        ini.Set(c.dropKey, "$x");
        CKestro_PGCI codec;
        EXPECT_FALSE(ini.Asm(codec)) << c.dropKey;
        EXPECT_EQ(Error(codec), std::string("[") + c.named + "] statement missing from section sec of " +
                                    ini.Path());
    }
    // Long messages are cut to the error text's 259 characters.
    std::string deep = dir / std::string(200, 'd');
    PgcIni ini(deep + ".ini");
    CKestro_PGCI codec;
    EXPECT_FALSE(ini.Asm(codec));
    std::string msg = Error(codec);
    EXPECT_EQ(msg.size(), 259u);
    EXPECT_EQ(msg.rfind("[p_cnt] statement missing from section sec of ", 0), 0u);
}

TEST(PgcAssembly, HexValuesWithOrWithoutXAndShortValues) {
    kt::TempDir dir;
    PgcIni a(dir / "a.ini"), b(dir / "b.ini");
    a.General("00000000");
    a.Commands(1, 0, 0);
    b.General("x00000000");
    b.Commands(1, 0, 0);
    a.Set("pre1", "3002000000010000");
    b.Set("pre1", "x3002000000010000");
    a.Set("pb_tm", "01");        // the missing digits count as 0
    b.Set("pb_tm", "x01000000123");  // cut to the field
    a.Set("nv_ctl", "00010002");
    b.Set("nv_ctl", "x0001000200000000");
    std::vector<uint8_t> out[2];
    int i = 0;
    for (PgcIni* ini : {&a, &b}) {
        CKestro_PGCI codec;
        ASSERT_TRUE(ini->Asm(codec)) << Error(codec);
        out[i].assign(codec.GetPGCISize(), 0);
        ASSERT_TRUE(codec.GetPGCData(out[i].data(), out[i].size()));
        ++i;
    }
    EXPECT_EQ(out[0], out[1]);
    EXPECT_EQ(kt::BE32(out[0], 4), 0x01000000u);
    EXPECT_EQ(kt::BE32(out[0], 244), 0x30020000u);
}

TEST(PgcAssembly, LimitsOfTheStores) {
    kt::TempDir dir;
    // 257 cells and 257 map entries in the source: only 256 are read.
    PgcIni ini(dir / "big.ini");
    for (int i = 1; i <= 257; ++i) ini.Cell(i);
    ini.Programs(257);
    CKestro_PGCI codec;
    EXPECT_TRUE(codec.AsmPGC_C_PBIT(ini.Path().c_str(), "sec", "p_"));
    EXPECT_TRUE(codec.AsmPGC_C_POSIT(ini.Path().c_str(), "sec", "p_"));
    EXPECT_TRUE(codec.AsmPGC_PGMAP(ini.Path().c_str(), "sec", "p_"));
    EXPECT_EQ(codec.GetPGCISize(), 236u + 256 + 256 * 24 + 256 * 4);

    // More commands than the store holds are refused as a whole.
    PgcIni many(dir / "many.ini");
    many.General("00000000");
    many.Commands(200, 100, 85);
    EXPECT_FALSE(many.Asm(codec));
    EXPECT_EQ(Error(codec), "In [sec] of " + many.Path() +
                                " the command table declares 385 commands, more than the 384 allowed");
    EXPECT_EQ(codec.GetPGCISize(), 236u) << "no command table left behind";
    many.Set("cmdt_cmds_ns", "84");
    EXPECT_TRUE(many.Asm(codec)) << Error(codec);
    EXPECT_EQ(codec.GetPGCISize(), 236u + 8 + 384 * 8);
}

TEST(PgcAssembly, MovedCodecsKeepTheirCellsAndStayUsable) {
    kt::TempDir dir;
    PgcIni ini(dir / "move.ini");
    ini.General("00000001");
    ini.Cell(1);
    CKestro_PGCI a;
    ASSERT_TRUE(ini.Asm(a));
    CKestro_PGCI b(std::move(a));
    EXPECT_EQ(b.GetPGCISize(), 236u + 28);
    EXPECT_EQ(a.GetPGCISize(), 236u);  // NOLINT: a moved-from codec starts afresh
    ASSERT_TRUE(ini.Asm(a));
    CKestro_PGCI c;
    c = std::move(a);
    c = std::move(b);
    EXPECT_EQ(c.GetPGCISize(), 236u + 28);
    std::vector<uint8_t> out(236 + 28);
    EXPECT_TRUE(c.GetPGCData(out.data(), out.size()));
    EXPECT_TRUE(a.AsmPGCI(ini.Path().c_str(), "sec", "p_"));  // NOLINT
}

}  // namespace
