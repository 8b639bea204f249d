// Menu PGC information unit tables and their language units, both pairs:
// loading, reports, source in both directions, placement and writing.
#include "tables_util.h"

namespace {

// What the two pairs do differently; texts are written in the video manager
// form and turned into the title set form by T().
struct VmgmPair {
    using Table = CKestro_VMGM_PGCI;
    using Units = CKestro_VMGM_LU;
    static constexpr bool vmgm = true;
    static unsigned long Sa(Table& t, unsigned short i, unsigned long s) { return t.GetVMGM_LU_SA(i, s); }
    static bool Disasm(Units& u, const char* ini, CKestro_PGCI* c, Table& t, unsigned long s) {
        return u.Disasm(ini, s, c, &t);
    }
    static std::string T(std::string s) { return s; }
    static std::string MissingInUnit(const std::string& key) { return "VMGM_LU: is missing the " + key + " statement"; }
};

struct VtsmPair {
    using Table = CKestro_VTSM_PGCI;
    using Units = CKestro_VTSM_LU;
    static constexpr bool vmgm = false;
    static unsigned long Sa(Table& t, unsigned short i, unsigned long s) { return t.GetVTSM_LU_SA(i, s); }
    static bool Disasm(Units& u, const char* ini, CKestro_PGCI* c, Table& t, unsigned long s) {
        return u.Disasm(ini, c, &t, s);
    }
    static std::string T(std::string s) {
        const std::pair<std::string, std::string> subst[] = {
            {"VMGM", "VTSM"}, {"vmgm", "vtsm"}, {"Video Manager Menu", "Video Title Set Menu"}};
        for (const auto& [from, to] : subst)
            for (size_t at; (at = s.find(from)) != std::string::npos;) s.replace(at, from.size(), to);
        return s;
    }
    static std::string MissingInUnit(const std::string& key) {
        return "[VTSM_LU: is missing the " + key + " statement] Illegal source format!";
    }
};

template <class P>
class MenuPgc : public ::testing::Test {};
using Pairs = ::testing::Types<VmgmPair, VtsmPair>;
TYPED_TEST_SUITE(MenuPgc, Pairs);

// A binary PGC of 236 + 8 + 8n bytes: n pre commands and nothing else.
tt::Bytes Pgc(int commands) {
    tt::Bytes b;
    b.resize(236, 0);
    b[163] = 255, b[165] = 0xEB, b[228] = 0, b[229] = 236;
    b.be16(commands).be16(0).be16(0).be16(8 * commands + 7);
    for (int i = 0; i < commands; ++i) b.be32(0x30020000).be32(uint32_t(i) << 16);
    return b;
}

// A table laid out as this library lays it out: back to back, no alignment.
// Each unit: language code, defined or not, PGCs (category, image).
struct Unit {
    const char* lang;
    bool defined;
    std::vector<std::pair<uint32_t, tt::Bytes>> pgcs;
};
tt::Bytes Table(const std::vector<Unit>& units) {
    tt::Bytes srps, bodies;
    uint32_t at = uint32_t(8 + 8 * units.size());
    for (const auto& u : units) {
        tt::Bytes body;
        uint32_t pgcAt = uint32_t(8 + 8 * u.pgcs.size()), size = pgcAt;
        for (auto& p : u.pgcs) size += uint32_t(p.second.size());
        body.be16(uint32_t(u.pgcs.size())).be16(0).be32(size - 1);
        for (auto& p : u.pgcs) body.be32(p.first).be32(pgcAt), pgcAt += uint32_t(p.second.size());
        for (auto& p : u.pgcs) body.add(p.second);
        srps.u8(u.lang[0]).u8(u.lang[1]).u8(0).u8(0x80).be32(u.defined ? at : 0);
        at += uint32_t(body.size());
        bodies.add(body);
    }
    tt::Bytes t;
    t.be16(uint32_t(units.size())).be16(0).be32(at - 1).add(srps).add(bodies);
    return t;
}

// One unit with PGCs of 300 and 500 bytes.
const Unit kUnit = {"en", true, {{0x81000000, Pgc(7)}, {0x82000000, Pgc(32)}}};

TYPED_TEST(MenuPgc, ReportsOfTableAndUnits) {
    using P = TypeParam;
    kt::TempDir dir;
    tt::File f(tt::PutTable(dir, Table({kUnit, {"fr", false, {}}}), 2));
    typename P::Table t;
    EXPECT_EQ(t.Load(f, 0), 0);
    ASSERT_EQ(t.Load(f, 2), 1);
    EXPECT_EQ(tt::Report([&](char* b, int l) { return t.Details(b, l); }),
              P::T("Number of VMGM_PGCI_LUs: 2\r\nEnd byte address of VMGM_PGCI_LUs table: 855\r\n"
                   "  Video Manager Menu Language Code 1: en\r\n  Video Manager Menu Existence 1: 80\r\n"
                   "  Video Manager Menu Language Start Address 1: 24\r\n"
                   "  Video Manager Menu Language Code 2: fr\r\n  Video Manager Menu Existence 2: 80\r\n"
                   "  Video Manager Menu Language Start Address 2: 0\r\n"));
    EXPECT_EQ(P::Sa(t, 0, 2), 2u * 2048 + 24);
    EXPECT_EQ(P::Sa(t, 1, 2) + P::Sa(t, 500, 2), 0u);  // undefined; beyond the search pointers

    typename P::Units lu;
    ASSERT_EQ(lu.Load(0, 2, &t), 1);
    CKestro_PGCI codec;
    auto details = [&](char* b, int l) { return lu.Details(b, l, &codec, &t, 2); };
    std::string r = tt::Report(details);
    // The VMGM report opens with the unit count and numbers its byte-address
    // lines by the category line's length plus one; the VTSM one breaks the
    // line after each unit's end address and numbers them by PGC.
    std::string start = (P::vmgm ? "There are 2 LU PGCs\r\n \r\n" : "") +
                        P::T("LU 1 Number of VMGM_PGCI_SRP: 2\r\nLU 1 End byte address of VMGM_LU_EA table: 823\r\n") +
                        (P::vmgm ? "" : "\r\n") + P::T("  VMGM_PGC Category 1: 81000000\r\n  VMGM_PGCI byte address ") +
                        (P::vmgm ? "32" : "1") + ": 24\r\n    PGC: Number of Programs: 0\r\n";
    EXPECT_EQ(r.substr(0, start.size()), start);
    EXPECT_NE(r.find(P::T("  VMGM_PGCI byte address ") + (P::vmgm ? "32" : "2") + ": 324\r\n"), std::string::npos);
    EXPECT_NE(r.find("There are 32 Pre Commands"), std::string::npos);
    EXPECT_NE(r.find(std::string("Table\r\n") + (P::vmgm ? " \r\n" : "\r\n") + "Language Unit 2 is not defined.\r\n"),
              std::string::npos);
    // A cut report is a prefix of the whole one and never passes len + 3.
    for (int len = 0; len < int(r.size()) + 8; len += 37) {
        std::string cut = tt::Report(details, len);
        EXPECT_LE(cut.size(), size_t(len) + 2);
        EXPECT_EQ(cut, r.substr(0, cut.size()));
    }
    // No unit defined: the units do not load.
    tt::File g(tt::PutTable(dir, Table({{"en", false, {}}})));
    ASSERT_EQ(t.Load(g, 1), 1);
    EXPECT_EQ(lu.Load(0, 1, &t), 0);
    // Slots of the unit classes: VMGM Asm says true, VTSM Get zeroes.
    unsigned long a = 7, b = 7;
    lu.Get(&a, &b);
    EXPECT_EQ(a + b, P::vmgm ? 14u : 0u);
    EXPECT_EQ(lu.Asm("x"), P::vmgm);
}

// Source to binary and back: the written table equals the one laid out
// above (unit at 16, PGCs at 24 and 324, unit end 823, table end 839).
TYPED_TEST(MenuPgc, RoundTripThroughSourceIsByteExact) {
    using P = TypeParam;
    kt::TempDir dir;
    tt::Bytes table = Table({kUnit});
    ASSERT_EQ(table.size(), 840u);
    EXPECT_EQ(tt::BE32At(table, 12) + tt::BE32At(table, 20) + tt::BE32At(table, 28) + tt::BE32At(table, 36),
              16u + 823 + 24 + 324);
    tt::File f(tt::PutTable(dir, table, 3));
    std::string ini = dir / "s.ini";
    CKestro_PGCI codec;
    typename P::Table t, fresh;
    typename P::Units lu;
    ASSERT_EQ(t.Load(f, 3) + lu.Load(0, 3, &t), 2);
    ASSERT_TRUE(t.Disasm(ini.c_str()));
    ASSERT_TRUE(P::Disasm(lu, ini.c_str(), &codec, t, 3));
    EXPECT_EQ(tt::Value(ini, P::T("vmgm_lu01_02").c_str(), P::T("vmgm_lui_pgc_cat")), "82000000");

    ASSERT_TRUE(fresh.Asm(ini.c_str(), &codec));
    unsigned long bytes = 0;
    bool ok = false;
    auto out = tt::Written(fresh, dir / "o.bin", &bytes, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(bytes, 840u);
    table.resize(2048, 0);
    EXPECT_EQ(out, table);
    EXPECT_TRUE(tt::Written(fresh, dir / "o.bin", &bytes, &ok).empty());  // Write discards the view
    EXPECT_FALSE(ok);
    EXPECT_EQ(bytes, 0u);
}

TYPED_TEST(MenuPgc, AssemblyMessagesAndLimits) {
    using P = TypeParam;
    kt::TempDir dir;
    std::string ini = dir / "a.ini";
    const std::string head = P::T("[vmgm_pgci_ut]\nvmgm_lu_ns="), srp = P::T("vmgm_lu_srp01_lcd=e\nvmgm_lu_srp01_exst=8\n");
    const std::string lu = P::T("[vmgm_lu]\nvmgm_lui01_pgci_srp_ns=1\n"), pgc = P::T("[vmgm_lu01_01]\nvmgm_lui_pgc_cat=x81000000\n");
    const std::pair<std::string, std::string> failures[] = {
        {"", ""},
        {head + "1\n", P::T("VMGM_PGCI_UT is missing AN vmgm_lu_srpnn_lcd statuement")},
        {head + "1\n" + P::T("vmgm_lu_srp01_lcd=en\n"), P::T("VMGM_PGCI_UT is missing an vmgm_lu_srpnn_exst statuement")},
        {head + "1\n" + srp, P::MissingInUnit(P::T("vmgm_lui01_pgci_srp_ns"))},
        {head + "1\n" + srp + lu, P::MissingInUnit(P::T("vmgm_lui_pgc_cat"))},
        // Refused before anything else is read or stored.
        {head + "17\n", P::T("[vmgm_lu_ns] 17 language units in vmgm_pgci_ut: a table holds 0 to 16")},
        {head + "2\n" + P::T("[vmgm_lu]\nvmgm_lui02_pgci_srp_ns=100\n"),
         P::T("[vmgm_lui02_pgci_srp_ns] 100 PGCs in language unit 2: a unit holds 0 to 99")},
    };
    CKestro_PGCI codec;
    for (const auto& [source, error] : failures) {
        kt::WriteText(ini, source);
        typename P::Table t;
        EXPECT_FALSE(t.Asm(ini.c_str(), &codec)) << source;
        EXPECT_EQ(tt::Error(t), error);
    }
    typename P::Table t;
    kt::WriteText(ini, head + "0\n");
    EXPECT_TRUE(t.Asm(ini.c_str(), &codec));
    EXPECT_TRUE(tt::Written(t, dir / "o.bin").empty());
    // "e" keeps its terminator as the code's second byte, "8" reads as 0x80,
    // a category with a leading x as without.
    kt::WriteText(ini, head + "1\n" + srp + lu + pgc);
    ASSERT_TRUE(t.Asm(ini.c_str(), &codec));
    unsigned long bytes = 0;
    auto out = tt::Written(t, dir / "o.bin", &bytes);
    EXPECT_EQ(bytes, 8 + 16 + 8 + 236u);
    EXPECT_EQ(std::vector<uint8_t>(out.begin() + 8, out.begin() + 16), (std::vector<uint8_t>{'e', 0, 0, 0x80, 0, 0, 0, 16}));
    EXPECT_EQ(tt::BE32At(out, 24), 0x81000000u);
}

TYPED_TEST(MenuPgc, DamagedTablesReadZeros) {
    using P = TypeParam;
    kt::TempDir dir;
    // Unit 1 starts far beyond the file; unit 2 claims 110 PGCs that run off
    // the end of the 32,768-byte unit buffer.
    tt::Bytes t;
    t.be16(2).be16(0).be32(0xFFFFFF).be32(0x656E0000).be32(0x7FFFFFF0).be32(0x64650000).be32(24);
    t.be16(110).be16(0).be32(40000);
    for (int i = 0; i < 110; ++i) t.be32(0x80000000u).be32(32700 + i);
    tt::File f(tt::PutTable(dir, t));
    typename P::Table table;
    typename P::Units lu;
    ASSERT_EQ(table.Load(f, 1) + lu.Load(0, 1, &table), 2);
    CKestro_PGCI codec;
    std::string r = tt::Report([&](char* b, int l) { return lu.Details(b, l, &codec, &table, 1); }, 200000);
    EXPECT_NE(r.find(P::T("LU 1 Number of VMGM_PGCI_SRP: 0")), std::string::npos);
    EXPECT_NE(r.find(P::T("LU 2 Number of VMGM_PGCI_SRP: 110")), std::string::npos);
    std::string ini = dir / "s.ini";
    EXPECT_TRUE(table.Disasm(ini.c_str()));
    EXPECT_TRUE(P::Disasm(lu, ini.c_str(), &codec, table, 1));
}

// Real discs: both tables with their units to source and back, byte for byte.
TYPED_TEST(MenuPgc, RealDiscTablesRoundTrip) {
    using P = TypeParam;
    int seen = tt::ForEachRealTable(P::vmgm ? "VIDEO_TS" : "VTS_", P::vmgm ? 0xC8 : 0xD0,
                                    [&](auto& ifo, uint32_t sector, int f, const std::string& ini) {
        CKestro_PGCI codec;
        typename P::Table t, fresh;
        typename P::Units lu;
        ASSERT_EQ(t.Load(f, sector) + lu.Load(0, sector, &t), 2);
        ASSERT_TRUE(t.Disasm(ini.c_str()));
        ASSERT_TRUE(P::Disasm(lu, ini.c_str(), &codec, t, sector));
        EXPECT_NE(tt::Report([&](char* b, int l) { return lu.Details(b, l, &codec, &t, sector); }).find("PGC: Number of Cells"),
                  std::string::npos);
        ASSERT_TRUE(fresh.Asm(ini.c_str(), &codec)) << tt::Error(fresh);
        unsigned long bytes = 0;
        auto out = tt::Written(fresh, ini + ".bin", &bytes);
        ASSERT_EQ(bytes, tt::BE32At(ifo, size_t(sector) * 2048 + 4) + 1);
        out.resize(bytes);
        EXPECT_EQ(out, tt::At(ifo, sector, bytes));
    });
    if (!seen) GTEST_SKIP() << "no real discs beside this checkout";
}

}  // namespace
