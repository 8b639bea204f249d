// Cell address tables: the three members, loaded, reported, written as
// source, assembled, sized and written.
#include <algorithm>
#include <cstring>
#include <functional>
#include <tuple>
#include <memory>

#include "tables_util.h"

namespace {

struct Member {
    const char* name;
    const char* section;
    const char* countKey;
    const char* endKey;
    const char* line1;  // with 2 VOBs
    const char* line2;  // with end address 67
    bool bodySize16;
    std::function<std::unique_ptr<CKestroCellAddressTable>()> make;
    std::function<int(CKestroCellAddressTable&, int, unsigned long)> load;
};

template <class T>
Member Of(const char* name, const char* section, const char* countKey, const char* endKey,
          const char* line1, const char* line2, bool bodySize16) {
    return {name, section, countKey, endKey, line1, line2, bodySize16,
            [] { return std::make_unique<T>(); },
            [](CKestroCellAddressTable& t, int h, unsigned long s) {
                return static_cast<T&>(t).Load(h, s);
            }};
}

const Member kMembers[] = {
    Of<CKestro_VMG_CADT>("VMGM", "vmgm_c_adt", "vmgm_vob_ns", "vmgm_c_adt_ea",
                         "Number of VOBs in VMGM_VOBS 2", "End byte address of VMGM_C_ADT table: 67",
                         true),
    Of<CKestro_VTS_CADT>("VTS", "vts_c_adt", "vts_vob_ns", "vts_c_adt_ea",
                         "Number of VOBs in VTS_VOBS: 2", "End byte address of VTS_C_ADT table: 67",
                         true),
    Of<CKestro_VTSM_CADT>("VTSM", "vtsm_c_adt", "vtsm_vob_ns", "vtsm_c_adt_ea",
                          "Number of VOBs in VTSM_VOBS: 2",
                          "End byte address of VTSM_C_ADT table: 67", false),
};

// 2 VOBs, 5 cells: (vob, cell, start, end).
tt::Bytes FiveCells() {
    tt::Bytes b;
    b.be16(2).be16(0).be32(12 * 5 + 7);
    const int cells[5][4] = {{1, 1, 0, 99}, {1, 2, 100, 199}, {2, 1, 200, 299},
                             {2, 2, 300, 399}, {2, 3, 400, 70000}};
    for (auto& c : cells) b.be16(c[0]).u8(c[1]).u8(0).be32(c[2]).be32(c[3]);
    return b;
}

std::string CellSource(const char* section, const char* countKey,
                       const std::vector<std::pair<int, int>>& cells, int vobs = 2) {
    std::string s = std::string("[") + section + "]\n" + countKey + "=" + std::to_string(vobs) + "\n";
    for (auto [v, c] : cells) {
        char k[64];
        auto key = [&](const char* f) {
            std::snprintf(k, sizeof k, "c_%03d_vob%03d_vts_%s", c, v, f);
            return std::string(k);
        };
        s += key("vob_idn") + "=" + std::to_string(v) + "\n";
        s += key("c_idn") + "=" + std::to_string(c) + "\n";
        s += key("cp_sa") + "=" + std::to_string(v * 1000 + c * 10) + "\n";
        s += key("cp_ea") + "=" + std::to_string(v * 1000 + c * 10 + 9) + "\n";
    }
    return s;
}

TEST(CellTables, ReportAndSourceOfALoadedTable) {
    for (const auto& m : kMembers) {
        SCOPED_TRACE(m.name);
        kt::TempDir dir;
        tt::File f(tt::PutTable(dir, FiveCells(), 3));
        auto t = m.make();
        EXPECT_EQ(m.load(*t, f, 0), 0);
        ASSERT_EQ(m.load(*t, f, 3), 1);

        std::string want = std::string(m.line1) + "\r\n" + m.line2 + "\r\n" +
                           "  For table entry 1 VOB ID 1 Cell ID 1.\r\n"
                           "    Start sector address is 0 and end sector addres is 99.\r\n";
        std::string all = tt::Report([&](char* b, int l) { return t->Details(b, l); });
        EXPECT_EQ(all.substr(0, want.size()), want);
        EXPECT_NE(all.find("  For table entry 5 VOB ID 2 Cell ID 3.\r\n"
                           "    Start sector address is 400 and end sector addres is 70000.\r\n"),
                  std::string::npos);
        EXPECT_EQ(all.substr(all.size() - 2), "\r\n");  // no closing blank line
        EXPECT_EQ(all.find("entry 6"), std::string::npos);

        // A first line as long as len: nothing appended.
        bool ok = true;
        EXPECT_EQ(tt::Report([&](char* b, int l) { return t->Details(b, l); },
                             int(std::strlen(m.line1)), &ok), "");
        EXPECT_FALSE(ok);

        // Source: only as many entries as there are VOBs.
        std::string ini = dir / "src.ini";
        EXPECT_TRUE(t->Disasm(ini.c_str()));
        EXPECT_EQ(tt::Value(ini, m.section, m.countKey), "2");
        EXPECT_EQ(tt::Value(ini, m.section, m.endKey), "67");
        EXPECT_EQ(tt::Value(ini, m.section, "c_002_vob001_vts_cp_ea"), "199");
        EXPECT_EQ(tt::Value(ini, m.section, "c_002_vob001_vts_c_idn"), "2");
        EXPECT_EQ(tt::Value(ini, m.section, "c_001_vob002_vts_vob_idn"), "$");
    }
}

TEST(CellTables, OnlyTheVtsmLoaderKeepsTheFullBodySize) {
    // End address 0x10000 + 11: the 16-bit body size leaves the first
    // entry's last byte unread.
    tt::Bytes b;
    b.be16(1).be16(0).be32(0x10000 + 11).be16(1).u8(1).u8(0).be32(5).be32(0x105);
    for (const auto& m : kMembers) {
        SCOPED_TRACE(m.name);
        kt::TempDir dir;
        tt::File f(tt::PutTable(dir, b));
        auto t = m.make();
        ASSERT_EQ(m.load(*t, f, 1), 1);
        std::string r = tt::Report([&](char* buf, int l) { return t->Details(buf, l); }, 400);
        EXPECT_NE(r.find(m.bodySize16 ? "end sector addres is 256." : "end sector addres is 261."),
                  std::string::npos);
    }
}

TEST(CellTables, AssemblyFollowsVobsAndCellsWithoutGaps) {
    for (const auto& m : kMembers) {
        SCOPED_TRACE(m.name);
        kt::TempDir dir;
        std::string ini = dir / "a.ini";
        // VOB 1: cells 1, 2, 4 (4 ignored); VOB 2: cell 1; VOB 4 ignored.
        kt::WriteText(ini, CellSource(m.section, m.countKey, {{1, 1}, {1, 2}, {1, 4}, {2, 1}, {4, 1}}, 7));
        auto t = m.make();
        ASSERT_TRUE(t->Asm(ini.c_str()));
        unsigned long sectors = 9, bytes = 9;
        t->Get(&sectors, &bytes);
        EXPECT_EQ(bytes, 44u);
        EXPECT_EQ(sectors, 1u);
        bool ok = false;
        auto out = tt::Written(*t, dir / "o.bin", &ok);
        ASSERT_TRUE(ok);
        ASSERT_EQ(out.size(), 2048u);
        tt::Bytes want;
        want.be16(7).be16(0).be32(43);
        want.be16(1).u8(1).u8(0).be32(1010).be32(1019);
        want.be16(1).u8(2).u8(0).be32(1020).be32(1029);
        want.be16(2).u8(1).u8(0).be32(2010).be32(2019);
        EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 44), want);
        EXPECT_EQ(std::count(out.begin() + 44, out.end(), 0), 2048 - 44);
        // Write empties the assembled view.
        t->Get(&sectors, &bytes);
        EXPECT_EQ(bytes, 0u);
        EXPECT_FALSE(tt::Written(*t, dir / "o2.bin", &ok).size());
        EXPECT_FALSE(ok);
    }
}

TEST(CellTables, SizesAndRefusals) {
    const Member& m = kMembers[0];
    kt::TempDir dir;
    std::string ini = dir / "a.ini";
    auto sized = [&](int cells) {
        std::vector<std::pair<int, int>> list;
        for (int i = 0; i < cells; ++i) list.push_back({1 + i / 99, 1 + i % 99});
        kt::WriteText(ini, CellSource(m.section, m.countKey, list));
        auto t = m.make();
        bool ok = t->Asm(ini.c_str());
        unsigned long s = 0, b = 0;
        t->Get(&s, &b);
        return std::make_tuple(ok, s, b, tt::Error(*t));
    };
    EXPECT_EQ(sized(171), std::make_tuple(true, 2ul, 2060ul, std::string()));
    EXPECT_EQ(sized(256), std::make_tuple(true, 2ul, 3080ul, std::string()));
    auto [ok, s, b, err] = sized(257);
    EXPECT_FALSE(ok);
    EXPECT_NE(err.find("[c_059_vob003_vts_vob_idn]"), std::string::npos) << err;

    // No first entry: nothing assembled, nothing written.
    kt::WriteText(ini, "[vmgm_c_adt]\nvmgm_vob_ns=1\n");
    auto t = m.make();
    EXPECT_TRUE(t->Asm(ini.c_str()));
    unsigned long sectors = 5, bytes = 5;
    t->Get(&sectors, &bytes);
    EXPECT_EQ(sectors + bytes, 0u);
    bool wrote = true;
    EXPECT_TRUE(tt::Written(*t, dir / "o.bin", &wrote).empty());
    EXPECT_FALSE(wrote);
}

TEST(CellTables, MissingStatementsUseTheSharedMessage) {
    for (const auto& m : kMembers) {
        SCOPED_TRACE(m.name);
        kt::TempDir dir;
        std::string ini = dir / "a.ini";
        auto t = m.make();
        EXPECT_FALSE(t->Asm((dir / "none.ini").c_str()));
        EXPECT_EQ(tt::Error(*t), "");  // the missing count sets no message
        std::string s = CellSource(m.section, m.countKey, {{1, 1}, {1, 2}});
        s.erase(s.find("c_002_vob001_vts_cp_sa"), std::strlen("c_002_vob001_vts_cp_sa=1020\n"));
        kt::WriteText(ini, s);
        EXPECT_FALSE(t->Asm(ini.c_str()));
        EXPECT_EQ(tt::Error(*t), "[c_002_vob001_vts_cp_sa] Statement missing in vtsm_c_adt");
    }
}

// Real discs: load, write as source, assemble and write again; the table
// comes back byte for byte.
TEST(CellTables, RealDiscTablesRoundTrip) {
    const struct {
        const char* prefix;
        size_t pointer;
        const Member& m;
    } where[] = {{"VIDEO_TS", 0xD8, kMembers[0]}, {"VTS_", 0xE0, kMembers[1]},
                 {"VTS_", 0xD8, kMembers[2]}};
    int seen = 0;
    for (const auto& w : where) {
        seen += tt::ForEachRealTable(w.prefix, w.pointer, [&](const tt::RealTable& rt, int f) {
            SCOPED_TRACE(w.m.name);
            auto out = tt::ThroughSource(w.m, rt, f);
            EXPECT_EQ(out.size(), tt::BE32At(rt.ifo, size_t(rt.sector) * 2048 + 4) + 1);
            EXPECT_EQ(out, rt.Bytes(out.size()));
        });
    }
    if (!seen) GTEST_SKIP() << "no real discs beside this checkout";
}

}  // namespace
