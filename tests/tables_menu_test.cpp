// Menu PGC information unit tables and their language units, both pairs.
#include <cstring>

#include "tables_util.h"

namespace {

// What the two pairs do differently; texts in the video manager form become the title set's by T().
template <class TableT, class UnitsT, bool kVmgm>
struct Pair {
    using Table = TableT;
    using Units = UnitsT;
    static constexpr bool vmgm = kVmgm;
    static unsigned long Sa(Table& t, unsigned short i, unsigned long s) {
        if constexpr (kVmgm)
            return t.GetVMGM_LU_SA(i, s);
        else
            return t.GetVTSM_LU_SA(i, s);
    }
    static bool Disasm(Units& u, const char* ini, CKestro_PGCI* c, Table& t, unsigned long s) {
        if constexpr (kVmgm)
            return u.Disasm(ini, s, c, &t);
        else
            return u.Disasm(ini, c, &t, s);
    }
    static std::string T(std::string s) {
        for (auto [from, to] : {std::pair{"VMGM", "VTSM"},
                                {"vmgm", "vtsm"},
                                {"Video Manager Menu", "Video Title Set Menu"}})
            for (size_t at; !kVmgm && (at = s.find(from)) != std::string::npos;)
                s.replace(at, std::strlen(from), to);
        return s;
    }
};
template <class P>
class MenuPgc : public ::testing::Test {};
using Pairs = ::testing::Types<Pair<CKestro_VMGM_PGCI, CKestro_VMGM_LU, true>,
                               Pair<CKestro_VTSM_PGCI, CKestro_VTSM_LU, false>>;
TYPED_TEST_SUITE(MenuPgc, Pairs);

// A table laid out back to back: units "en" and "fr", each with PGCs of 300 and 500 bytes
// (236 + 8 + 8n: n pre commands only).
tt::Bytes Table() {
    tt::Bytes unit = tt::Bytes().be16s({2, 0}).be32s({823, 0x81000000, 24, 0x82000000, 324});
    for (int n : {7, 32}) {
        size_t at = unit.size();
        unit.resize(at + 236, 0);
        unit[at + 163] = 255, unit[at + 165] = 0xEB, unit[at + 229] = 236;
        unit.be16s({uint32_t(n), 0, 0, uint32_t(8 * n + 7)});
        for (int i = 0; i < n; ++i) unit.be32(0x30020000).be32(uint32_t(i) << 16);
    }
    tt::Bytes t = tt::Bytes().be16s({2, 0}).be32s({1671, 0x656E0080, 24, 0x66720080, 848});
    return t.add(unit).add(unit);
}

// Both pairs report their tables and come back byte for byte through the source.
TYPED_TEST(MenuPgc, ReportsAndByteExactRoundTripThroughSource) {
    kt::TempDir dir;
    tt::Bytes table = Table();
    tt::File f(tt::PutTable(dir, table, 2));
    typename TypeParam::Table t;
    ASSERT_EQ(t.Load(f, 2), 1);
    EXPECT_EQ(
        tt::Report([&](char* b, int l) { return t.Details(b, l); }),
        TypeParam::T(
            "Number of VMGM_PGCI_LUs: 2\r\nEnd byte address of VMGM_PGCI_LUs table: 1671\r\n"
            "  Video Manager Menu Language Code 1: en\r\n  Video Manager Menu Existence 1: 80\r\n"
            "  Video Manager Menu Language Start Address 1: 24\r\n"
            "  Video Manager Menu Language Code 2: fr\r\n  Video Manager Menu Existence 2: 80\r\n"
            "  Video Manager Menu Language Start Address 2: 848\r\n"));
    EXPECT_EQ(std::make_pair(TypeParam::Sa(t, 1, 2), TypeParam::Sa(t, 500, 2)),
              std::make_pair(2ul * 2048 + 848, 0ul));
    typename TypeParam::Units lu;
    ASSERT_EQ(lu.Load(0, 2, &t), 1);
    CKestro_PGCI codec;
    // VMGM opens with the unit count and numbers the byte-address lines by the category line's
    // length + 1; VTSM breaks the line after each unit's end address.
    std::string r = tt::Report([&](char* b, int l) { return lu.Details(b, l, &codec, &t, 2); });
    std::string start =
        (TypeParam::vmgm ? "There are 2 LU PGCs\r\n \r\n" : "") +
        TypeParam::T(
            "LU 1 Number of VMGM_PGCI_SRP: 2\r\nLU 1 End byte address of VMGM_LU_EA table: "
            "823\r\n") +
        (TypeParam::vmgm ? "" : "\r\n") +
        TypeParam::T("  VMGM_PGC Category 1: 81000000\r\n  VMGM_PGCI byte address ") +
        (TypeParam::vmgm ? "32" : "1") + ": 24\r\n    PGC: Number of Programs: 0\r\n";
    EXPECT_EQ(r.substr(0, start.size()), start);
    for (std::string part :
         {TypeParam::T("  VMGM_PGCI byte address ") + (TypeParam::vmgm ? "32" : "2") + ": 324\r\n",
          TypeParam::T("LU 2 Number of VMGM_PGCI_SRP: 2")})
        EXPECT_NE(r.find(part), std::string::npos) << part;

    const std::string ini = dir / "s.ini";
    typename TypeParam::Table fresh;
    ASSERT_TRUE(t.Disasm(ini.c_str()) && TypeParam::Disasm(lu, ini.c_str(), &codec, t, 2));
    ASSERT_TRUE(fresh.Asm(ini.c_str(), &codec)) << tt::Error(fresh);
    EXPECT_EQ(tt::Values(ini, TypeParam::T("vmgm_lu02_02"), {TypeParam::T("vmgm_lui_pgc_cat")}),
              "82000000|");
    tt::ExpectWritesOnce(fresh, dir / "o.bin", table);
}

// Refused sources (one table of messages) and damaged binary tables.
TYPED_TEST(MenuPgc, BadSourcesAndDamagedTables) {
    kt::TempDir dir;
    std::string ini = dir / "a.ini";
    const std::string head = "[vmgm_pgci_ut]\nvmgm_lu_ns=",
                      srp = "vmgm_lu_srp01_lcd=e\nvmgm_lu_srp01_exst=8\n",
                      unit1 = "[vmgm_lu]\nvmgm_lui01_pgci_srp_ns=1\n",
                      unit = TypeParam::vmgm ? "%s" : "[%s] Illegal source format!";
    const std::pair<std::string, std::string> failures[] = {
        // sources and messages in the VMGM form
        {"", ""},
        {head + "1\n", "VMGM_PGCI_UT is missing AN vmgm_lu_srpnn_lcd statuement"},
        {head + "1\nvmgm_lu_srp01_lcd=en\n",
         "VMGM_PGCI_UT is missing an vmgm_lu_srpnn_exst statuement"},
        {head + "1\n" + srp, "VMGM_LU: is missing the vmgm_lui01_pgci_srp_ns statement"},
        {head + "1\n" + srp + unit1, "VMGM_LU: is missing the vmgm_lui_pgc_cat statement"},
        {head + "17\n", "[vmgm_lu_ns] 17 language units in vmgm_pgci_ut: a table holds 0 to 16"},
        {head + "2\n[vmgm_lu]\nvmgm_lui02_pgci_srp_ns=100\n",
         "[vmgm_lui02_pgci_srp_ns] 100 PGCs in language unit 2: a unit holds 0 to 99"},
    };
    CKestro_PGCI codec;
    for (auto [source, error] : failures) {
        kt::WriteText(ini, TypeParam::T(source));
        typename TypeParam::Table t;
        EXPECT_FALSE(t.Asm(ini.c_str(), &codec)) << source;
        if (error.find("VMGM_LU:") == 0)
            error = std::string(unit).replace(unit.find("%s"), 2, error);
        EXPECT_EQ(tt::Error(t), TypeParam::T(error));
    }
    typename TypeParam::Table t;
    kt::WriteText(ini, TypeParam::T(head + "0\n"));
    EXPECT_TRUE(t.Asm(ini.c_str(), &codec) && tt::Written(t, dir / "o.bin").empty());

    // Unit 1 starts far beyond the file; unit 2 claims 110 PGCs that run off the end of the
    // 32,768-byte unit buffer; unit 3 is not defined.
    tt::Bytes damaged = tt::Bytes().be16s({3, 0}).be32(0xFFFFFF);
    damaged.be32s({0x656E0000, 0x7FFFFFF0, 0x64650000, 32, 0x66720000, 0}).be16s({110, 0});
    damaged.be32(40000);
    for (int i = 0; i < 110; ++i) damaged.be32(0x80000000u).be32(32700 + i);
    tt::File f(tt::PutTable(dir, damaged));
    typename TypeParam::Table table;
    typename TypeParam::Units lu;
    ASSERT_EQ(table.Load(f, 1) + lu.Load(0, 1, &table), 2);
    EXPECT_EQ(TypeParam::Sa(table, 2, 1), 0u);
    std::string r = tt::Report([&](char* b, int l) { return lu.Details(b, l, &codec, &table, 1); });
    for (std::string part : {TypeParam::T("LU 1 Number of VMGM_PGCI_SRP: 0"),
                             TypeParam::T("LU 2 Number of VMGM_PGCI_SRP: 110"),
                             std::string("Table\r\n") + (TypeParam::vmgm ? " \r\n" : "\r\n") +
                                 "Language Unit 3 is not defined.\r\n"})
        EXPECT_NE(r.find(part), std::string::npos) << part;
    EXPECT_TRUE(table.Disasm(ini.c_str()) && TypeParam::Disasm(lu, ini.c_str(), &codec, table, 1));
}

}  // namespace
