// Menu PGC information unit tables and their language units, both pairs:
// loading, reports, source in both directions, placement and writing.
#include <cstring>
#include <functional>
#include <memory>

#include "tables_util.h"

namespace {

// A binary PGC of 236 + 8 + 8n bytes: n pre commands and nothing else.
tt::Bytes Pgc(int commands, uint8_t seed) {
    tt::Bytes b;
    b.zeros(236);
    b[163] = 255;  // still time
    b[165] = 0xEB, b[166] = 0x80, b[167] = 0x80;
    b[8] = seed;
    if (commands) {
        b[228] = 0, b[229] = 236;
        b.be16(commands).be16(0).be16(0).be16(8 * commands + 7);
        for (int i = 0; i < commands; ++i) b.u8(0x30).u8(0x02).be16(0).u8(0).u8(uint8_t(i + seed)).be16(0);
    }
    return b;
}

struct Unit {
    char lang[2];
    uint8_t exst;
    bool defined;
    std::vector<std::pair<uint32_t, tt::Bytes>> pgcs;  // category, image
};

// Lays a table out as this library does: back to back, no alignment.
tt::Bytes Table(const std::vector<Unit>& units) {
    std::vector<tt::Bytes> bodies;
    for (const auto& u : units) {
        tt::Bytes body;
        size_t size = 8 + 8 * u.pgcs.size();
        for (auto& p : u.pgcs) size += p.second.size();
        body.be16(uint32_t(u.pgcs.size())).be16(0).be32(uint32_t(size - 1));
        uint32_t at = uint32_t(8 + 8 * u.pgcs.size());
        for (auto& p : u.pgcs) {
            body.be32(p.first).be32(at);
            at += uint32_t(p.second.size());
        }
        for (auto& p : u.pgcs) body.add(p.second);
        bodies.push_back(body);
    }
    size_t total = 8 + 8 * units.size();
    for (auto& b : bodies) total += b.size();
    tt::Bytes t;
    t.be16(uint32_t(units.size())).be16(0).be32(uint32_t(total - 1));
    uint32_t at = uint32_t(8 + 8 * units.size());
    for (size_t i = 0; i < units.size(); ++i) {
        t.u8(uint8_t(units[i].lang[0])).u8(uint8_t(units[i].lang[1])).u8(0).u8(units[i].exst);
        t.be32(units[i].defined ? at : 0);
        at += uint32_t(bodies[i].size());
    }
    for (auto& b : bodies) t.add(b);
    return t;
}

// One member pair seen through one shape: the differences are data.
struct Texts {
    const char* name;
    const char* tableSection;
    const char* unitSection;
    const char* pgcSection11;
    const char* countKey;
    const char* lcdKey1;
    const char* exstKey1;
    const char* pgcCountKey1;
    const char* categoryKey;
    const char* tableReport;  // for the two-unit table below
    const char* unitStart;    // the unit report up to its first PGC report
    const char* afterPgc;     // separator then the next unit's line
    const char* missingLcd;
    const char* missingExst;
    const char* missingCount;
    const char* missingCategory;
};
struct Pair : Texts {
    std::function<std::unique_ptr<CKestroMenuPgcTable>()> makeTable;
    std::function<int(CKestroMenuPgcTable&, int, unsigned long)> loadTable;
    std::function<unsigned long(CKestroMenuPgcTable&, unsigned short, unsigned long)> unitSa;
    std::function<std::unique_ptr<CBaseKestro>()> makeUnits;
    std::function<int(CBaseKestro&, unsigned long, CKestroMenuPgcTable&)> loadUnits;
    std::function<bool(CBaseKestro&, char*, int, CKestro_PGCI*, CKestroMenuPgcTable&,
                       unsigned long)> details;
    std::function<bool(CBaseKestro&, const char*, CKestro_PGCI*, CKestroMenuPgcTable&,
                       unsigned long)> disasm;
};

template <class T, class LU>
Pair Of(const Texts& texts, unsigned long (T::*sa)(unsigned short, unsigned long),
        std::function<bool(LU&, const char*, CKestro_PGCI*, T*, unsigned long)> disasm) {
    Pair p;
    static_cast<Texts&>(p) = texts;
    p.makeTable = [] { return std::make_unique<T>(); };
    p.loadTable = [](CKestroMenuPgcTable& t, int h, unsigned long s) {
        return static_cast<T&>(t).Load(h, s);
    };
    p.unitSa = [sa](CKestroMenuPgcTable& t, unsigned short i, unsigned long s) {
        return (static_cast<T&>(t).*sa)(i, s);
    };
    p.makeUnits = [] { return std::make_unique<LU>(); };
    p.loadUnits = [](CBaseKestro& u, unsigned long s, CKestroMenuPgcTable& t) {
        return static_cast<LU&>(u).Load(0, s, &static_cast<T&>(t));
    };
    p.details = [](CBaseKestro& u, char* b, int l, CKestro_PGCI* c, CKestroMenuPgcTable& t,
                   unsigned long s) {
        return static_cast<LU&>(u).Details(b, l, c, &static_cast<T&>(t), s);
    };
    p.disasm = [disasm](CBaseKestro& u, const char* ini, CKestro_PGCI* c, CKestroMenuPgcTable& t,
                        unsigned long s) {
        return disasm(static_cast<LU&>(u), ini, c, &static_cast<T&>(t), s);
    };
    return p;
}

const Pair& Vmgm() {
    static const Pair p = Of<CKestro_VMGM_PGCI, CKestro_VMGM_LU>(
        {"VMGM", "vmgm_pgci_ut", "vmgm_lu", "vmgm_lu01_01", "vmgm_lu_ns", "vmgm_lu_srp01_lcd",
         "vmgm_lu_srp01_exst", "vmgui01", "vmgm_lui_pgc_cat",
         "Number of VMGM_PGCI_LUs: 2\r\n"
         "End byte address of VMGM_PGCI_LUs table: 855\r\n"
         "  Video Manager Menu Language Code 1: en\r\n"
         "  Video Manager Menu Existence 1: 80\r\n"
         "  Video Manager Menu Language Start Address 1: 24\r\n"
         "  Video Manager Menu Language Code 2: fr\r\n"
         "  Video Manager Menu Existence 2: 0\r\n"
         "  Video Manager Menu Language Start Address 2: 0\r\n",
         "There are 2 LU PGCs\r\n \r\n"
         "LU 1 Number of VMGM_PGCI_SRP: 2\r\n"
         "LU 1 End byte address of VMGM_LU_EA table: 823\r\n"
         "  VMGM_PGC Category 1: 81000000\r\n"
         "  VMGM_PGCI byte address 32: 24\r\n"
         "    PGC: Number of Programs: 0\r\n",
         "Table\r\n \r\nLanguage Unit 2 is not defined.\r\n",
         "VMGM_PGCI_UT is missing AN vmgm_lu_srpnn_lcd statuement",
         "VMGM_PGCI_UT is missing an vmgm_lu_srpnn_exst statuement",
         "VMGM_LU: is missing the vmgm_lui01_pgci_srp_ns statement",
         "VMGM_LU: is missing the vmgm_lui_pgc_cat statement"},
        &CKestro_VMGM_PGCI::GetVMGM_LU_SA,
        std::function<bool(CKestro_VMGM_LU&, const char*, CKestro_PGCI*, CKestro_VMGM_PGCI*,
                           unsigned long)>(
            [](CKestro_VMGM_LU& u, const char* ini, CKestro_PGCI* c, CKestro_VMGM_PGCI* t,
               unsigned long s) { return u.Disasm(ini, s, c, t); }));
    return p;
}

const Pair& Vtsm() {
    static const Pair p = Of<CKestro_VTSM_PGCI, CKestro_VTSM_LU>(
        {"VTSM", "vtsm_pgci_ut", "vtsm_lu", "vtsm_lu01_01", "vtsm_lu_ns", "vtsm_lu_srp01_lcd",
         "vtsm_lu_srp01_exst", "vtsmi01", "vtsm_lui_pgc_cat",
         "Number of VTSM_PGCI_LUs: 2\r\n"
         "End byte address of VTSM_PGCI_LUs table: 855\r\n"
         "  Video Title Set Menu Language Code 1: en\r\n"
         "  Video Title Set Menu Existence 1: 80\r\n"
         "  Video Title Set Menu Language Start Address 1: 24\r\n"
         "  Video Title Set Menu Language Code 2: fr\r\n"
         "  Video Title Set Menu Existence 2: 0\r\n"
         "  Video Title Set Menu Language Start Address 2: 0\r\n",
         "LU 1 Number of VTSM_PGCI_SRP: 2\r\n"
         "LU 1 End byte address of VTSM_LU_EA table: 823\r\n\r\n"
         "  VTSM_PGC Category 1: 81000000\r\n"
         "  VTSM_PGCI byte address 1: 24\r\n"
         "    PGC: Number of Programs: 0\r\n",
         "Table\r\n\r\nLanguage Unit 2 is not defined.\r\n",
         "VTSM_PGCI_UT is missing AN vtsm_lu_srpnn_lcd statuement",
         "VTSM_PGCI_UT is missing an vtsm_lu_srpnn_exst statuement",
         "[VTSM_LU: is missing the vtsm_lui01_pgci_srp_ns statement] Illegal source format!",
         "[VTSM_LU: is missing the vtsm_lui_pgc_cat statement] Illegal source format!"},
        &CKestro_VTSM_PGCI::GetVTSM_LU_SA,
        std::function<bool(CKestro_VTSM_LU&, const char*, CKestro_PGCI*, CKestro_VTSM_PGCI*,
                           unsigned long)>(
            [](CKestro_VTSM_LU& u, const char* ini, CKestro_PGCI* c, CKestro_VTSM_PGCI* t,
               unsigned long s) { return u.Disasm(ini, c, t, s); }));
    return p;
}

const Pair* const kPairs[] = {&Vmgm(), &Vtsm()};

// One unit with PGCs of 300 and 500 bytes, and an undefined second unit.
std::vector<Unit> TwoUnits() {
    return {{{'e', 'n'}, 0x80, true, {{0x81000000, Pgc(7, 1)}, {0x82000000, Pgc(32, 9)}}},
            {{'f', 'r'}, 0x00, false, {}}};
}

TEST(MenuPgcTables, ReportsOfTableAndUnits) {
    for (const Pair* p : kPairs) {
        SCOPED_TRACE(p->name);
        kt::TempDir dir;
        tt::Bytes table = Table(TwoUnits());
        table.zeros(16);  // the undefined unit's 16 bytes of search pointers (none)
        tt::File f(tt::PutTable(dir, table, 2));
        auto t = p->makeTable();
        EXPECT_EQ(p->loadTable(*t, f, 0), 0);
        ASSERT_EQ(p->loadTable(*t, f, 2), 1);
        EXPECT_EQ(tt::Report([&](char* b, int l) { return t->Details(b, l); }), p->tableReport);
        EXPECT_EQ(p->unitSa(*t, 0, 2), 2u * 2048 + 24);
        EXPECT_EQ(p->unitSa(*t, 1, 2), 0u);
        EXPECT_EQ(p->unitSa(*t, 500, 2), 0u);  // beyond the search pointers

        auto lu = p->makeUnits();
        ASSERT_EQ(p->loadUnits(*lu, 2, *t), 1);
        CKestro_PGCI codec;
        std::string r = tt::Report([&](char* b, int l) { return p->details(*lu, b, l, &codec, *t, 2); });
        EXPECT_EQ(r.substr(0, std::strlen(p->unitStart)), p->unitStart);
        EXPECT_NE(r.find(p->afterPgc), std::string::npos);
        EXPECT_EQ(r.find("Number of Programs"), r.rfind("Number of Programs", r.find("PGC Category 2")));
        EXPECT_NE(r.find(std::string(p->name) + "_PGCI byte address " +
                         (p == &Vmgm() ? "32" : "2") + ": 324"),
                  std::string::npos);
        EXPECT_NE(r.find("There are 32 Pre Commands"), std::string::npos);

        // Never past len + 3, whatever len is.
        for (int len = 0; len < int(r.size()) + 8; len += 37) {
            bool ok = true;
            std::string cut = tt::Report(
                [&](char* b, int l) { return p->details(*lu, b, l, &codec, *t, 2); }, len, &ok);
            EXPECT_LE(cut.size(), size_t(len) + 2);
            EXPECT_EQ(cut, r.substr(0, cut.size()));
        }
    }
}

TEST(MenuPgcTables, UnitsLoadOnlyWhenOneIsDefined) {
    for (const Pair* p : kPairs) {
        SCOPED_TRACE(p->name);
        kt::TempDir dir;
        std::vector<Unit> none = {{{'e', 'n'}, 0, false, {}}};
        tt::File f(tt::PutTable(dir, Table(none)));
        auto t = p->makeTable();
        ASSERT_EQ(p->loadTable(*t, f, 1), 1);
        auto lu = p->makeUnits();
        EXPECT_EQ(p->loadUnits(*lu, 1, *t), 0);
    }
    CKestro_VMGM_LU vmgm;
    CKestro_VTSM_LU vtsm;
    unsigned long a = 7, b = 7;
    vtsm.Get(&a, &b);
    EXPECT_EQ(a + b, 0u);
    EXPECT_TRUE(vmgm.Asm("x"));
    EXPECT_FALSE(vtsm.Asm("x"));
}

// Source to binary and back: the written table equals the one laid out
// above (unit at 16, PGCs at 24 and 324, unit end 823, table end 839).
TEST(MenuPgcTables, RoundTripThroughSourceIsByteExact) {
    for (const Pair* p : kPairs) {
        SCOPED_TRACE(p->name);
        kt::TempDir dir;
        std::vector<Unit> one = {TwoUnits()[0]};
        tt::Bytes table = Table(one);
        ASSERT_EQ(table.size(), 840u);
        EXPECT_EQ(tt::BE32At(table, 8 + 4), 16u);
        EXPECT_EQ(tt::BE32At(table, 16 + 4), 823u);
        EXPECT_EQ(tt::BE32At(table, 16 + 8 + 4), 24u);
        EXPECT_EQ(tt::BE32At(table, 16 + 16 + 4), 324u);
        tt::File f(tt::PutTable(dir, table, 3));
        std::string ini = dir / "s.ini";
        CKestro_PGCI codec;
        auto t = p->makeTable();
        ASSERT_EQ(p->loadTable(*t, f, 3), 1);
        ASSERT_TRUE(t->Disasm(ini.c_str()));
        auto lu = p->makeUnits();
        ASSERT_EQ(p->loadUnits(*lu, 3, *t), 1);
        ASSERT_TRUE(p->disasm(*lu, ini.c_str(), &codec, *t, 3));
        EXPECT_EQ(tt::Value(ini, p->tableSection, p->lcdKey1), "en");
        EXPECT_EQ(tt::Value(ini, p->tableSection, p->exstKey1), "80");
        EXPECT_EQ(tt::Value(ini, p->pgcSection11, p->categoryKey), "81000000");

        auto fresh = p->makeTable();
        ASSERT_TRUE(fresh->Asm(ini.c_str(), &codec));
        unsigned long sectors = 0, bytes = 0;
        fresh->Get(&sectors, &bytes);
        EXPECT_EQ(bytes, 840u);
        EXPECT_EQ(sectors, 1u);
        bool ok = false;
        auto out = tt::Written(*fresh, dir / "o.bin", &ok);
        ASSERT_TRUE(ok);
        ASSERT_EQ(out.size(), 2048u);
        EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 840), table);
        EXPECT_EQ(std::count(out.begin() + 840, out.end(), 0), 1208);
        // Write discards the assembled view.
        fresh->Get(&sectors, &bytes);
        EXPECT_EQ(bytes, 0u);
        EXPECT_TRUE(tt::Written(*fresh, dir / "o2.bin", &ok).empty());
        EXPECT_FALSE(ok);
    }
}

TEST(MenuPgcTables, AssemblyMessagesAndLimits) {
    for (const Pair* p : kPairs) {
        SCOPED_TRACE(p->name);
        kt::TempDir dir;
        std::string ini = dir / "a.ini";
        const std::string pre = std::string(p->name).substr(0, 4) == "VMGM" ? "vmgm" : "vtsm";
        auto head = [&](const std::string& units) {
            return "[" + pre + "_pgci_ut]\n" + pre + "_lu_ns=" + units + "\n";
        };
        const std::string srp1 = pre + "_lu_srp01_lcd=e\n" + pre + "_lu_srp01_exst=8\n";
        const std::string lu1 = "[" + pre + "_lu]\n" + pre + "_lui01_pgci_srp_ns=";
        const std::string pgc1 = "[" + pre + "_lu01_01]\n" + pre + "_lui_pgc_cat=x81000000\n";
        struct Case {
            std::string source;
            bool ok;
            std::string error;
        };
        const Case cases[] = {
            {"", false, ""},
            {head("0"), true, ""},
            {head("1"), false, p->missingLcd},
            {head("1") + pre + "_lu_srp01_lcd=en\n", false, p->missingExst},
            {head("1") + srp1, false, p->missingCount},
            {head("1") + srp1 + lu1 + "1\n", false, p->missingCategory},
            {head("1") + srp1 + lu1 + "1\n" + pgc1, true, ""},
            {head("17"), false, "[" + pre + "_lu_ns] 17 language units in " + pre +
                                    "_pgci_ut: a table holds 0 to 16"},
            // Refused before anything else is read or stored.
            {head("2") + "[" + pre + "_lu]\n" + pre + "_lui02_pgci_srp_ns=100\n", false,
             "[" + pre + "_lui02_pgci_srp_ns] 100 PGCs in language unit 2: a unit holds 0 to 99"},
        };
        for (const auto& c : cases) {
            SCOPED_TRACE(c.source);
            kt::WriteText(ini, c.source);
            CKestro_PGCI codec;
            auto t = p->makeTable();
            EXPECT_EQ(t->Asm(ini.c_str(), &codec), c.ok);
            EXPECT_EQ(tt::Error(*t), c.error);
            if (!c.ok && c.error.find("holds 0 to") != std::string::npos) {
                unsigned long s = 1, b = 1;
                t->Get(&s, &b);
                EXPECT_EQ(s + b, 0u);  // refused before anything is stored
            }
        }
        // "e" keeps its terminator as the code's second byte; "8" reads as 0x80.
        CKestro_PGCI codec;
        auto t = p->makeTable();
        kt::WriteText(ini, head("1") + srp1 + lu1 + "1\n" + pgc1);
        ASSERT_TRUE(t->Asm(ini.c_str(), &codec));
        unsigned long s = 0, b = 0;
        t->Get(&s, &b);
        auto out = tt::Written(*t, dir / "o.bin");
        const uint8_t srp[] = {'e', 0, 0, 0x80, 0, 0, 0, 16};
        EXPECT_EQ(std::vector<uint8_t>(out.begin() + 8, out.begin() + 16),
                  std::vector<uint8_t>(srp, srp + 8));
        EXPECT_EQ(tt::BE32At(out, 24), 0x81000000u);  // category, with or without x
        EXPECT_EQ(b, 8 + 16 + 8 + 236u);
    }
}

TEST(MenuPgcTables, DamagedTablesReadZeros) {
    for (const Pair* p : kPairs) {
        SCOPED_TRACE(p->name);
        kt::TempDir dir;
        // Unit 1 starts far beyond the file; unit 2 claims 110 PGCs that run
        // off the end of the unit buffer.
        tt::Bytes t;
        t.be16(2).be16(0).be32(0xFFFFFF).u8('e').u8('n').be16(0).be32(0x7FFFFFF0);
        t.u8('d').u8('e').be16(0).be32(24);
        t.be16(110).be16(0).be32(40000);
        for (int i = 0; i < 110; ++i) t.be32(0x80000000u).be32(32700 + i);
        tt::File f(tt::PutTable(dir, t));
        auto table = p->makeTable();
        ASSERT_EQ(p->loadTable(*table, f, 1), 1);
        auto lu = p->makeUnits();
        ASSERT_EQ(p->loadUnits(*lu, 1, *table), 1);
        CKestro_PGCI codec;
        std::string r = tt::Report(
            [&](char* b, int l) { return p->details(*lu, b, l, &codec, *table, 1); }, 200000);
        EXPECT_NE(r.find("LU 1 Number of " + std::string(p->name) + "_PGCI_SRP: 0"), std::string::npos);
        EXPECT_NE(r.find("LU 2 Number of " + std::string(p->name) + "_PGCI_SRP: 110"), std::string::npos);
        std::string ini = dir / "s.ini";
        EXPECT_TRUE(table->Disasm(ini.c_str()));
        EXPECT_TRUE(p->disasm(*lu, ini.c_str(), &codec, *table, 1));
    }
}

// Real discs: both tables with their units to source and back, byte for byte.
TEST(MenuPgcTables, RealDiscTablesRoundTrip) {
    const struct {
        const char* prefix;
        size_t pointer;
        const Pair& p;
    } where[] = {{"VIDEO_TS", 0xC8, Vmgm()}, {"VTS_", 0xD0, Vtsm()}};
    int seen = 0;
    for (const auto& w : where) {
        seen += tt::ForEachRealTable(w.prefix, w.pointer, [&](const tt::RealTable& rt, int f) {
            const Pair& p = w.p;
            const char* ini = rt.ini.c_str();
            CKestro_PGCI codec;
            auto t = p.makeTable();
            ASSERT_EQ(p.loadTable(*t, f, rt.sector), 1);
            ASSERT_TRUE(t->Disasm(ini));
            auto lu = p.makeUnits();
            ASSERT_EQ(p.loadUnits(*lu, rt.sector, *t), 1);
            ASSERT_TRUE(p.disasm(*lu, ini, &codec, *t, rt.sector));
            std::string report = tt::Report(
                [&](char* b, int l) { return p.details(*lu, b, l, &codec, *t, rt.sector); });
            EXPECT_NE(report.find("PGC: Number of Cells"), std::string::npos);

            auto fresh = p.makeTable();
            ASSERT_TRUE(fresh->Asm(ini, &codec)) << tt::Error(*fresh);
            unsigned long s = 0, b = 0;
            fresh->Get(&s, &b);
            ASSERT_EQ(b, tt::BE32At(rt.ifo, size_t(rt.sector) * 2048 + 4) + 1);
            EXPECT_EQ(tt::Head(tt::Written(*fresh, rt.ini + ".bin"), b), rt.Bytes(b));
        });
    }
    if (!seen) GTEST_SKIP() << "no real discs beside this checkout";
}

}  // namespace
