// Menu PGC information unit tables and their language units, both pairs; PGC command tables.
#include <cstring>

#include "tables_util.h"

namespace {

// A pair; texts in the video manager form become the title set's by T().
template <class TableT, class UnitsT, bool kVmgm>
struct Pair {
    using Table = TableT;
    using Units = UnitsT;
    static constexpr bool vmgm = kVmgm;
    static std::string T(std::string s) {
        for (auto [from, to] : {std::pair{"VMGM", "VTSM"},
                                {"vmgm", "vtsm"},
                                {"Video Manager Menu", "Video Title Set Menu"}})
            for (size_t at; !kVmgm && (at = s.find(from)) != std::string::npos;)
                s.replace(at, std::strlen(from), to);
        return s;
    }
};
unsigned long Sa(CKestro_VMGM_PGCI& t, int i, int s) { return t.GetVMGM_LU_SA(i, s); }
unsigned long Sa(CKestro_VTSM_PGCI& t, int i, int s) { return t.GetVTSM_LU_SA(i, s); }
template <class Units, class Table>
std::string LuReport(Units& lu, CKestro_PGCI& codec, Table& t, int sector) {
    return tt::Report(
        tt::TableOps{"", [&](char* b, int l) { return lu.Details(b, l, &codec, &t, sector); }, {}});
}

template <class P>
class MenuPgc : public ::testing::Test {};
using Pairs = ::testing::Types<Pair<CKestro_VMGM_PGCI, CKestro_VMGM_LU, true>,
                               Pair<CKestro_VTSM_PGCI, CKestro_VTSM_LU, false>>;
TYPED_TEST_SUITE(MenuPgc, Pairs);

// Both pairs report their tables and come back byte for byte through the source. The table:
// units "en" and "fr", each with PGCs of 300 and 500 bytes (236 + 8 + 8n: n pre commands only).
TYPED_TEST(MenuPgc, ReportsAndByteExactRoundTripThroughSource) {
    using P = TypeParam;
    tt::Bytes unit = tt::Bytes().be16s({2, 0}).be32s({823, 0x81000000, 24, 0x82000000, 324});
    for (int n : {7, 32}) {
        const size_t at = unit.size();
        unit.zeros(236)[at + 163] = 255, unit[at + 165] = 0xEB, unit[at + 229] = 236;
        unit.be16s({uint32_t(n), 0, 0, uint32_t(8 * n + 7)});
        for (int i = 0; i < n; ++i) unit.be32(0x30020000).be32(uint32_t(i) << 16);
    }
    tt::Bytes table = tt::Bytes().be16s({2, 0}).be32s({1671, 0x656E0080, 24, 0x66720080, 848});
    kt::TempDir dir;
    const std::string ini = dir / "s.ini";
    tt::File f(tt::PutTable(dir, table.add(unit).add(unit), 2));
    typename P::Table t, fresh;
    typename P::Units lu;
    CKestro_PGCI codec;
    ASSERT_EQ(t.Load(f, 2), 1);
    EXPECT_EQ(
        tt::Report(t),
        P::T("Number of VMGM_PGCI_LUs: 2\r\nEnd byte address of VMGM_PGCI_LUs table: 1671\r\n"
             "  Video Manager Menu Language Code 1: en\r\n  Video Manager Menu Existence 1: 80\r\n"
             "  Video Manager Menu Language Start Address 1: 24\r\n"
             "  Video Manager Menu Language Code 2: fr\r\n  Video Manager Menu Existence 2: 80\r\n"
             "  Video Manager Menu Language Start Address 2: 848\r\n"));
    EXPECT_EQ(std::make_pair(Sa(t, 1, 2), Sa(t, 500, 2)), std::make_pair(2ul * 2048 + 848, 0ul));
    ASSERT_EQ(lu.Load(0, 2, &t), 1);
    // VMGM opens with the unit count and numbers the byte-address lines by the category line's
    // length + 1; VTSM breaks the line after each unit's end address.
    const std::string r = LuReport(lu, codec, t, 2),
                      start = (P::vmgm ? "There are 2 LU PGCs\r\n \r\n" : "") +
                              P::T(
                                  "LU 1 Number of VMGM_PGCI_SRP: 2\r\nLU 1 End byte address of "
                                  "VMGM_LU_EA table: 823\r\n") +
                              (P::vmgm ? "" : "\r\n") +
                              P::T("  VMGM_PGC Category 1: 81000000\r\n  VMGM_PGCI byte address ") +
                              (P::vmgm ? "32" : "1") + ": 24\r\n    PGC: Number of Programs: 0\r\n";
    EXPECT_EQ(r.substr(0, start.size()), start);
    for (std::string part : {P::T("  VMGM_PGCI byte address ") + (P::vmgm ? "32" : "2") + ": 324",
                             P::T("LU 2 Number of VMGM_PGCI_SRP: 2")})
        EXPECT_NE(r.find(part), std::string::npos) << part;
    ASSERT_TRUE(t.Disasm(ini.c_str()) && tt::LuDisasm(lu, ini.c_str(), codec, t, 2));
    ASSERT_TRUE(fresh.Asm(ini.c_str(), &codec)) << tt::Error(fresh);
    EXPECT_EQ(tt::Value(ini, P::T("vmgm_lu02_02"), P::T("vmgm_lui_pgc_cat")), "82000000");
    tt::ExpectWritesOnce(fresh, dir / "o.bin", table);
}

// Refused sources (one table of messages; an empty table writes nothing) and damaged binary
// tables: unit 1 starts far beyond the file; unit 2 claims 110 PGCs that run off the end of the
// 32,768-byte unit buffer; unit 3 is not defined.
TYPED_TEST(MenuPgc, BadSourcesAndDamagedTables) {
    using P = TypeParam;
    const std::string head = "[vmgm_pgci_ut]\nvmgm_lu_ns=",
                      srp = "vmgm_lu_srp01_lcd=e\nvmgm_lu_srp01_exst=8\n",
                      unit = P::vmgm ? "" : "[%] Illegal source format!";
    const std::pair<std::string, std::string> failures[] = {
        // sources and messages in the VMGM form
        {"", ""},
        {head + "1\n", "VMGM_PGCI_UT is missing AN vmgm_lu_srpnn_lcd statuement"},
        {head + "1\nvmgm_lu_srp01_lcd=en\n",
         "VMGM_PGCI_UT is missing an vmgm_lu_srpnn_exst statuement"},
        {head + "1\n" + srp, "VMGM_LU: is missing the vmgm_lui01_pgci_srp_ns statement"},
        {head + "1\n" + srp + "[vmgm_lu]\nvmgm_lui01_pgci_srp_ns=1\n",
         "VMGM_LU: is missing the vmgm_lui_pgc_cat statement"},
        {head + "17\n", "[vmgm_lu_ns] 17 language units in vmgm_pgci_ut: a table holds 0 to 16"},
        {head + "2\n[vmgm_lu]\nvmgm_lui02_pgci_srp_ns=100\n",
         "[vmgm_lui02_pgci_srp_ns] 100 PGCs in language unit 2: a unit holds 0 to 99"},
        {head + "0\n", "-"},
    };
    kt::TempDir dir;
    const std::string ini = dir / "a.ini";
    CKestro_PGCI codec;
    for (auto [source, error] : failures) {
        kt::WriteText(ini, P::T(source));
        typename P::Table t;
        EXPECT_EQ(t.Asm(ini.c_str(), &codec), error == "-") << source;
        if (error.rfind("VMGM_LU:", 0) == 0 && !unit.empty())
            error = std::string(unit).replace(unit.find('%'), 1, error);
        EXPECT_TRUE(error != "-" || tt::Written(t, dir / "o.bin").empty());
        EXPECT_EQ(tt::Error(t), P::T(error == "-" ? "" : error));
    }

    tt::Bytes damaged = tt::Bytes().be16s({3, 0}).be32(0xFFFFFF);
    damaged.be32s({0x656E0000, 0x7FFFFFF0, 0x64650000, 32, 0x66720000, 0, 110 << 16, 40000});
    for (int i = 0; i < 110; ++i) damaged.be32(0x80000000u).be32(32700 + i);
    tt::File f(tt::PutTable(dir, damaged));
    typename P::Table t;
    typename P::Units lu;
    ASSERT_EQ(t.Load(f, 1) + lu.Load(0, 1, &t), 2);
    EXPECT_EQ(Sa(t, 2, 1), 0u);
    const std::string r = LuReport(lu, codec, t, 1);
    for (std::string part :
         {P::T("LU 1 Number of VMGM_PGCI_SRP: 0"), P::T("LU 2 Number of VMGM_PGCI_SRP: 110"),
          std::string("Table\r\n") + (P::vmgm ? " \r\n" : "\r\n") +
              "Language Unit 3 is not defined.\r\n"})
        EXPECT_NE(r.find(part), std::string::npos) << part;
    EXPECT_TRUE(t.Disasm(ini.c_str()) && tt::LuDisasm(lu, ini.c_str(), codec, t, 1));
}

// A command table whose commands stop part-way keeps the commands read, but its header stays
// the one of the last complete table.
TEST(PgcCommandRows, ACommandTableCutShortKeepsTheLastCompleteHeader) {
    kt::TempDir dir;
    const std::string src = dir / "p.ini";
    CKestro_PGCI codec;
    kt::WriteText(src, "[p]\ncmdt_pre_ns=1\npre1=0102030405060708\n");
    ASSERT_TRUE(codec.AsmPGC_CMDT(src.c_str(), "p", ""));
    kt::WriteText(src, "[p]\ncmdt_pre_ns=2\ncmdt_cell_ns=1\npre1=1112131415161718\n");
    EXPECT_FALSE(codec.AsmPGC_CMDT(src.c_str(), "p", ""));
    std::vector<uint8_t> pgc(252);
    ASSERT_TRUE(codec.GetPGCISize() == 252 && codec.GetPGCData(pgc.data(), pgc.size()));
    // Pre, post and cell counts and end address of the first table; the one command read.
    EXPECT_EQ(tt::Slice(pgc, 236, 16),
              tt::Bytes().be16s({1, 0, 0, 15}).be32s({0x11121314, 0x15161718}));
}

}  // namespace
