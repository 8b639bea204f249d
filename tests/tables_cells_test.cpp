// Cell address tables: the three members, loaded, reported, written as
// source, assembled, sized and written.
#include "tables_util.h"

namespace {

using Cells = CKestroCellAddressTable;
// name: key stem; text: the report's first lines for 2 VOBs.
const tt::Member<Cells> kMembers[] = {
    tt::Of<CKestro_VMG_CADT, Cells>("vmgm", "vmgm_c_adt", "Number of VOBs in VMGM_VOBS 2\r\nEnd byte address of VMGM_C_ADT"),
    tt::Of<CKestro_VTS_CADT, Cells>("vts", "vts_c_adt", "Number of VOBs in VTS_VOBS: 2\r\nEnd byte address of VTS_C_ADT"),
    tt::Of<CKestro_VTSM_CADT, Cells>("vtsm", "vtsm_c_adt", "Number of VOBs in VTSM_VOBS: 2\r\nEnd byte address of VTSM_C_ADT"),
};

// Source: the count, then (vob, cell) entries starting at sector 1000v + 10c.
std::string CellSource(const tt::Member<Cells>& m, std::vector<std::pair<int, int>> cells) {
    std::string s = "[" + m.section + "]\n" + m.name + "_vob_ns=7\n";
    char k[200];
    for (auto [v, c] : cells)
        s.append(k, size_t(std::snprintf(k, sizeof k, "c_%03d_vob%03d_vts_vob_idn=%d\nc_%03d_vob%03d_vts_c_idn=%d\n"
                                         "c_%03d_vob%03d_vts_cp_sa=%d\nc_%03d_vob%03d_vts_cp_ea=%d9\n",
                                         c, v, v, c, v, c, c, v, v * 1000 + c * 10, c, v, v * 1000 + c * 10)));
    return s;
}

TEST(CellTables, MembersLoadReportWriteSourceAndAssemble) {
    tt::Bytes five, wide;  // 2 VOBs with 5 cells; and a 16-bit body size cutting entry 1
    five.be16(2).be16(0).be32(12 * 5 + 7);
    for (int i = 0; i < 5; ++i) five.be16(1 + i / 2).u8(1 + i % 2).u8(0).be32(100 * i).be32(i == 4 ? 70000 : 100 * i + 99);
    wide.be16(1).be16(0).be32(0x10000 + 11).be16(1).u8(1).u8(0).be32(5).be32(0x105);
    for (const auto& m : kMembers) {
        SCOPED_TRACE(m.name);
        kt::TempDir dir;
        std::string ini = dir / "s.ini", src = dir / "a.ini";
        tt::File f(tt::PutTable(dir, five, 3));
        auto t = m.make();
        EXPECT_EQ(m.load(*t, f, 0), 0);
        ASSERT_EQ(m.load(*t, f, 3), 1);
        const std::string head = m.text + " table: 67\r\n  For table entry 1 VOB ID 1 Cell ID 1.\r\n"
                                          "    Start sector address is 0 and end sector addres is 99.\r\n",
                          tail = "  For table entry 5 VOB ID 3 Cell ID 1.\r\n"
                                 "    Start sector address is 400 and end sector addres is 70000.\r\n";
        std::string r = tt::Report([&](char* b, int l) { return t->Details(b, l); });
        EXPECT_EQ(r.substr(0, head.size()) + r.substr(r.size() - tail.size()), head + tail);
        EXPECT_TRUE(t->Disasm(ini.c_str()));  // only as many entries as there are VOBs
        EXPECT_EQ(tt::Values(ini, m.section, {m.name + "_vob_ns", m.section + "_ea", "c_002_vob001_vts_cp_ea",
                                              "c_001_vob002_vts_vob_idn"}),
                  "2|67|199|$|");
        tt::File g(tt::PutTable(dir, wide));  // VMG and VTS keep the end address's low 16 bits only
        ASSERT_EQ(m.load(*t, g, 1), 1);
        r = tt::Report([&](char* b, int l) { return t->Details(b, l); });
        EXPECT_NE(r.find(m.name == "vtsm" ? "addres is 261." : "addres is 256."), std::string::npos);

        t = m.make();
        EXPECT_FALSE(t->Asm((dir / "none.ini").c_str()));  // no source: no count, no message
        EXPECT_EQ(tt::Error(*t), "");
        // VOB 1: cells 1, 2 and 4 after a gap; VOB 2: cell 1; VOB 4 after a gap.
        kt::WriteText(src, CellSource(m, {{1, 1}, {1, 2}, {1, 4}, {2, 1}, {4, 1}}));
        ASSERT_TRUE(t->Asm(src.c_str()));
        tt::Bytes want;
        want.be16(7).be16(0).be32(43);
        for (auto [v, c] : {std::pair{1, 1}, {1, 2}, {2, 1}}) want.be16(v).u8(c).u8(0).be32(v * 1000 + c * 10).be32(v * 10000 + c * 100 + 9);
        tt::ExpectWritesOnce(*t, dir / "o.bin", want);
        std::string s = CellSource(m, {{1, 1}, {1, 2}});  // every member names the same table
        kt::WriteText(src, s.erase(s.find("c_002_vob001_vts_cp_sa"), 28));
        EXPECT_FALSE(t->Asm(src.c_str()));
        EXPECT_EQ(tt::Error(*t), "[c_002_vob001_vts_cp_sa] Statement missing in vtsm_c_adt");
    }
}

// The capacity of 256 cells; the cells read before a refusal stay.
TEST(CellTables, AtMost256Cells) {
    kt::TempDir dir;
    std::string ini = dir / "a.ini";
    for (int cells : {256, 257}) {
        std::vector<std::pair<int, int>> list;
        for (int i = 0; i < cells; ++i) list.push_back({1 + i / 99, 1 + i % 99});
        kt::WriteText(ini, CellSource(kMembers[0], list));
        auto t = kMembers[0].make();
        EXPECT_EQ(t->Asm(ini.c_str()), cells == 256);
        unsigned long sectors = 0, bytes = 0;
        t->Get(&sectors, &bytes);
        EXPECT_EQ(sectors * 10000 + bytes, 23080u);
        EXPECT_EQ(tt::Error(*t), cells == 256 ? "" : "[c_059_vob003_vts_vob_idn] Too many cells in vmgm_c_adt: "
                                                     "a cell address table holds at most 256");
    }
}

TEST(CellTables, RealDiscTablesRoundTrip) {
    int seen = tt::MemberRoundTrips(kMembers[0], "VIDEO_TS", 0xD8, 4) + tt::MemberRoundTrips(kMembers[1], "VTS_", 0xE0, 4) +
               tt::MemberRoundTrips(kMembers[2], "VTS_", 0xD8, 4);
    if (!seen) GTEST_SKIP() << "no real discs beside this checkout";
}

}  // namespace
