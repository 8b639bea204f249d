// Binary PGC to source and back: the source keys as written, and the
// assembler rebuilding the same bytes for PGCs laid out as it lays them out,
// including every such PGC of the real discs.
#include <cstring>
#include <string>

#include "kestro/ini.h"
#include "kestro/pgc.h"
#include "pgc_fixture.h"

namespace {

std::string Get(const std::string& ini, const char* section, const std::string& key) {
    char v[256];
    INIGetPrivateProfileString(section, key.c_str(), "$", v, 256, ini.c_str());
    return v;
}

int KeysInSection(const std::string& ini, const std::string& section) {
    std::string text = kt::ReadText(ini);
    size_t at = text.find("[" + section + "]");
    if (at == std::string::npos) return -1;
    size_t end = text.find("\n[", at + 1);
    int n = 0;
    for (size_t i = at; i < text.size() && i < end; ++i) n += text[i] == '=';
    return n;
}

// Source written by DisasmPGCI, rebuilt by the assembler.
std::vector<uint8_t> RoundTrip(const std::vector<uint8_t>& file, size_t offset, size_t length,
                               const std::string& ini, std::string* error = nullptr) {
    std::vector<uint8_t> copy(file);  // the writer byte-swaps the command-table header
    CKestro_PGCI codec;
    EXPECT_TRUE(codec.DisasmPGCI(ini.c_str(), copy.data(), offset, "vts_pgc_", "vts_pgcit01",
                                 copy.size()));
    if (!codec.AsmPGCI(ini.c_str(), "vts_pgcit01", "vts_pgc_")) {
        char msg[300];
        codec.GetErrorMessage(msg, sizeof msg);
        if (error) *error = msg;
        return {};
    }
    std::vector<uint8_t> out(codec.GetPGCISize(), 0);
    EXPECT_TRUE(codec.GetPGCData(out.data(), out.size()));
    EXPECT_EQ(out.size(), length);
    return out;
}

TEST(PgcSource, KeysOfTheDocumentedExample) {
    kt::TempDir dir;
    const std::string ini = dir / "src.ini";
    kt::PgcShape shape;
    shape.programs = 2;
    shape.cells = 3;
    shape.pre = {kt::Command{0x30, 0x02, 0, 0, 0, 1, 0, 0}};
    auto pgc = kt::BuildPgc(shape);
    pgc.bytes[4] = 0x00; pgc.bytes[5] = 0x01; pgc.bytes[6] = 0x30; pgc.bytes[7] = 0x40;
    CKestro_PGCI codec;
    ASSERT_TRUE(codec.DisasmPGCI(ini.c_str(), pgc.bytes.data(), 0, "vts_pgc_", "vts_pgcit01"));
    const char* s = "vts_pgcit01";
    EXPECT_EQ(Get(ini, s, "vts_pgc_cnt"), "00000203");
    EXPECT_EQ(Get(ini, s, "vts_pgc_pb_tm"), "00013040");
    EXPECT_EQ(Get(ini, s, "vts_pgc_uop_ctl"), "00a1b2c3");
    EXPECT_EQ(Get(ini, s, "vts_pgc_ast_ctlt02"), "8101");
    EXPECT_EQ(Get(ini, s, "vts_pgc_spst_ctlt32"), "801f001f");
    EXPECT_EQ(Get(ini, s, "vts_pgc_nv_ctl"), "00020003000481ff");
    EXPECT_EQ(Get(ini, s, "vts_pgc_sp_plt16"), "001f8f4f");
    EXPECT_EQ(Get(ini, s, "vts_pgc_cmdt_sa"), "236");
    EXPECT_EQ(Get(ini, s, "vts_pgc_cmdt_pre_ns"), "1");
    EXPECT_EQ(Get(ini, s, "vts_pgc_cmdt_post_ns"), "0");
    EXPECT_EQ(Get(ini, s, "vts_pgc_cmdt_cmds_ns"), "0");
    EXPECT_EQ(Get(ini, s, "vts_pgc_pre1"), "3002000000010000");
    EXPECT_EQ(Get(ini, s, "vts_pgc_pgmap_sa"), "252");
    EXPECT_EQ(Get(ini, s, "vts_pgc_pgmap_prog_entry_cell01"), "1");
    EXPECT_EQ(Get(ini, s, "vts_pgc_pgmap_prog_entry_cell02"), "3");
    EXPECT_EQ(Get(ini, s, "vts_pgc_c_pbit_sa"), "254");
    EXPECT_EQ(Get(ini, s, "vts_pgc_c_pbit_cell001_cat"), "00020004");
    EXPECT_EQ(Get(ini, s, "vts_pgc_c_pbit_cell003_lvobu_ea"), "3099");
    EXPECT_EQ(Get(ini, s, "vts_pgc_c_posit_sa"), "326");
    EXPECT_EQ(Get(ini, s, "vts_pgc_c_posit_cell003_cellid"), "3");
    EXPECT_EQ(Get(ini, s, "vts_pgc_c_posit_cell004_vobid"), "$");
    // 64 general keys, 4 command-table keys, 2 map entries, 3 x 6 + 3 x 2 cell keys.
    EXPECT_EQ(KeysInSection(ini, s), 64 + 4 + 2 + 18 + 6);
}

TEST(PgcSource, WhatIsWrittenDependsOnThePartsPresent) {
    kt::TempDir dir;
    CKestro_PGCI codec;
    struct Case {
        const char* name;
        kt::PgcShape shape;
        bool dropCellTables;  // clear the C_PBIT and C_POSIT offsets afterwards
        int keys;
    } cases[] = {
        {"bare", {}, false, 64},
        {"empty command table", {{}, {}, {}, true, 0, 0}, false, 64 + 3},
        {"cells but no cell tables", {{}, {}, {}, false, 0, 3}, true, 64},
    };
    for (auto& c : cases) {
        const std::string ini = dir / (std::string(c.name) + ".ini");
        auto pgc = kt::BuildPgc(c.shape);
        if (c.dropCellTables) kt::PutBE32(pgc.bytes, 232, 0);
        codec.DisasmPGCI(ini.c_str(), pgc.bytes.data(), 0, "p_", "s", pgc.bytes.size());
        EXPECT_EQ(KeysInSection(ini, "s"), c.keys) << c.name;
    }
    // Program 150's key simply grows a digit.
    kt::PgcShape many;
    many.programs = 127;
    auto pgc = kt::BuildPgc(many);
    const std::string ini = dir / "many.ini";
    codec.DisasmPGCI(ini.c_str(), pgc.bytes.data(), 0, "p_", "s", pgc.bytes.size());
    EXPECT_EQ(Get(ini, "s", "p_pgmap_prog_entry_cell127"), "253");
}

TEST(PgcSource, SecondWriteOfTheSameBufferSeesTheSwappedHeader) {
    kt::TempDir dir;
    const std::string ini = dir / "twice.ini";
    kt::PgcShape shape;
    shape.pre = {kt::Command{}};
    auto pgc = kt::BuildPgc(shape);
    CKestro_PGCI codec;
    codec.DisasmPGCI(ini.c_str(), pgc.bytes.data(), 0, "p_", "s");
    EXPECT_EQ(Get(ini, "s", "p_cmdt_pre_ns"), "1");
    EXPECT_EQ(pgc.bytes[236], 1);  // left little-endian in the caller's buffer
    // The swapped counts now point beyond the buffer: only the sized form
    // may read them (as zeros).
    codec.DisasmPGCI(ini.c_str(), pgc.bytes.data(), 0, "p_", "s", pgc.bytes.size());
    EXPECT_EQ(Get(ini, "s", "p_cmdt_pre_ns"), "256");
    EXPECT_EQ(Get(ini, "s", "p_pre256"), "0000000000000000");
}

TEST(PgcRoundTrip, BuiltPgcsComeBackByteForByte) {
    kt::TempDir dir;
    const kt::Command jump{0x30, 0x06, 0x00, 0x01, 0x02, 0x83, 0, 0};
    const kt::Command link{0x20, 0x04, 0, 0, 0, 0, 0, 3};
    struct Case {
        const char* name;
        kt::PgcShape shape;
    } cases[] = {
        {"general information only", {}},
        {"commands in every group", {{jump, link}, {link}, {jump, jump, link}, true, 0, 0}},
        {"odd program count", {{}, {}, {}, false, 3, 3}},
        {"even program count, post commands only", {{}, {link}, {}, true, 4, 5}},
        {"255 cells", {{jump}, {}, {}, true, 1, 255}},
        {"sectors beyond 2^31", {{}, {}, {}, false, 1, 2, 0x80000000u}},
    };
    for (const auto& c : cases) {
        auto pgc = kt::BuildPgc(c.shape);
        auto back = RoundTrip(pgc.bytes, 0, pgc.bytes.size(), dir / (std::string(c.name) + ".ini"));
        EXPECT_EQ(back, pgc.bytes) << c.name;
    }
}

TEST(PgcRoundTrip, RealDiscPgcsInAssemblyOrderComeBackByteForByte) {
    auto pgcs = kt::CorpusPgcs();
    KT_SKIP_IF_EMPTY(pgcs);
    kt::TempDir dir;
    int checked = 0;
    for (size_t i = 0; i < pgcs.size(); ++i) {
        const auto& p = pgcs[i];
        size_t length = kt::InOrderLength(p.file, p.offset);
        if (length == 0) continue;
        std::vector<uint8_t> want(p.file.begin() + long(p.offset),
                                  p.file.begin() + long(p.offset + length));
        std::string error;
        auto back = RoundTrip(p.file, p.offset, length, dir / ("pgc" + std::to_string(i) + ".ini"),
                              &error);
        EXPECT_EQ(back, want) << p.name << ' ' << error;
        ++checked;
    }
    EXPECT_GT(checked, 0);
}

}  // namespace
