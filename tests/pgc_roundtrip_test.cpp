// Binary PGC to source and back: the keys as written, and the assembler
// rebuilding the same bytes for PGCs laid out as it lays them out, including
// every such PGC of the real discs.
#include <algorithm>
#include <string>

#include "kestro/ini.h"
#include "kestro/pgc.h"
#include "pgc_fixture.h"

namespace {

std::string Get(const std::string& ini, const std::string& key) {
    char v[256];
    INIGetPrivateProfileString("vts_pgcit01", key.c_str(), "$", v, 256, ini.c_str());
    return v;
}

int Keys(const std::string& ini) {
    std::string text = kt::ReadText(ini);
    return int(std::count(text.begin(), text.end(), '='));
}

// Written by DisasmPGCI from a copy (the writer converts the command-table
// header in place), rebuilt by the assembler.
std::vector<uint8_t> RoundTrip(std::vector<uint8_t> file, size_t offset, const std::string& ini) {
    CKestro_PGCI codec;
    EXPECT_TRUE(
        codec.DisasmPGCI(ini.c_str(), file.data(), offset, "vts_pgc_", "vts_pgcit01", file.size()));
    if (!codec.AsmPGCI(ini.c_str(), "vts_pgcit01", "vts_pgc_")) return {};
    std::vector<uint8_t> out(codec.GetPGCISize(), 0);
    EXPECT_TRUE(codec.GetPGCData(out.data(), out.size()));
    return out;
}

TEST(PgcSource, KeysAsWritten) {
    kt::TempDir dir;
    kt::PgcShape shape;
    shape.programs = 2;
    shape.cells = 3;
    shape.pre = {kt::Command{0x30, 0x02, 0, 0, 0, 1, 0, 0}};
    auto pgc = kt::BuildPgc(shape);
    RoundTrip(pgc, 0, dir / "a.ini");
    const std::pair<const char*, const char*> expected[] = {
        {"vts_pgc_cnt", "00000203"},
        {"vts_pgc_pb_tm", "1d242b32"},
        {"vts_pgc_uop_ctl", "3940474e"},
        {"vts_pgc_ast_ctlt08", "b7be"},
        {"vts_pgc_nv_ctl", "454c535a61686f76"},
        {"vts_pgc_sp_plt16", "21282f36"},
        {"vts_pgc_cmdt_sa", "236"},
        {"vts_pgc_cmdt_pre_ns", "1"},
        {"vts_pgc_cmdt_post_ns", "0"},
        {"vts_pgc_pre1", "3002000000010000"},
        {"vts_pgc_pgmap_sa", "252"},
        {"vts_pgc_pgmap_prog_entry_cell02", "3"},
        {"vts_pgc_c_pbit_sa", "254"},
        {"vts_pgc_c_pbit_cell001_cat", "80858a8f"},
        {"vts_pgc_c_pbit_cell001_fvobu_sa", "-1465011529"},
        {"vts_pgc_c_posit_sa", "326"},
        {"vts_pgc_c_posit_cell003_cellid", "3"},
        {"vts_pgc_c_posit_cell003_vobid", "1"}};
    for (const auto& e : expected) EXPECT_EQ(Get(dir / "a.ini", e.first), e.second) << e.first;
    // 64 general and offset keys, 4 of the command table, 2 map entries, 6 + 2 per cell.
    EXPECT_EQ(Keys(dir / "a.ini"), 64 + 4 + 2 + 3 * 8);
    shape = {};
    shape.commandTable = true;
    RoundTrip(kt::BuildPgc(shape), 0, dir / "b.ini");
    EXPECT_EQ(Keys(dir / "b.ini"), 64 + 3);
    EXPECT_EQ(Get(dir / "b.ini", "vts_pgc_cmdt_cmds_ns"), "0");
}

TEST(PgcRoundTrip, BuiltPgcsComeBackByteForByte) {
    kt::TempDir dir;
    const kt::Command jump{0x30, 0x06, 0x00, 0x01, 0x02, 0x83, 0, 0},
        link{0x20, 0x04, 0, 0, 0, 0, 0, 3};
    const kt::PgcShape shapes[] = {
        {},
        {{jump, link}, {link}, {jump, jump, link}, true, 0, 0},
        {{}, {}, {}, false, 3, 3},
        {{}, {link}, {}, true, 4, 5},
        {{jump}, {}, {}, true, 127, 255},
    };
    int n = 0;
    for (const auto& s : shapes) {
        auto pgc = kt::BuildPgc(s);
        EXPECT_EQ(RoundTrip(pgc, 0, dir / std::to_string(n)), pgc) << n;
        ++n;
    }
}

// The real discs lay every PGC out in the assembler's order without gaps, so
// each comes back whole.
TEST(PgcRoundTrip, RealDiscPgcsComeBackByteForByte) {
    auto pgcs = kt::CorpusPgcs();
    KT_SKIP_IF_EMPTY(pgcs);
    kt::TempDir dir;
    int n = 0;
    for (const auto& p : pgcs) {
        auto back = RoundTrip(p.file, p.offset, dir / std::to_string(n++));
        ASSERT_GE(back.size(), 236u) << p.name;
        ASSERT_LE(p.offset + back.size(), p.file.size()) << p.name;
        EXPECT_TRUE(std::equal(back.begin(), back.end(), p.file.begin() + long(p.offset)))
            << p.name;
    }
}

}  // namespace
