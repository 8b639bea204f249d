// Assemblies that stop part-way: what the tables and the codec keep of the
// record they were reading, byte for byte.
#include "kestro/pgc.h"
#include "tables_util.h"

namespace {

// A cell entry counts from its first statement on: an entry whose later statement is missing is
// kept with the fields read so far, and Get and Write carry it.
TEST(CellTableRows, AnEntryCutShortIsKeptWithTheFieldsRead) {
    const std::string head = "[vtsm_c_adt]\nvtsm_vob_ns=1\nc_001_vob001_vts_vob_idn=3\n",
                      cell = "c_001_vob001_vts_c_idn=2\n";
    const struct {
        std::string rest;  // statements after the VOB ID
        uint8_t cell;
        uint32_t first;
    } cases[] = {{"", 0, 0}, {cell, 2, 0}, {cell + "c_001_vob001_vts_cp_sa=77\n", 2, 77}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.rest);
        kt::TempDir dir;
        kt::WriteText(dir / "s.ini", head + c.rest);
        CKestro_VTSM_CADT t;
        EXPECT_FALSE(t.Asm((dir / "s.ini").c_str()));
        // VOB count, reserved, end address; VOB ID, cell ID, reserved; first and last sector.
        tt::ExpectWritesOnce(
            t, dir / "o.bin",
            tt::Bytes().be16s({1, 0}).be32(19).be16(3).u8(c.cell).u8(0).be32s({c.first, 0}));
    }
}

// A command table whose commands stop part-way keeps the commands read, but
// its header stays the one of the last complete table.
TEST(PgcCommandRows, ACommandTableCutShortKeepsTheLastCompleteHeader) {
    kt::TempDir dir;
    const std::string src = dir / "p.ini";
    CKestro_PGCI codec;
    kt::WriteText(src, "[p]\ncmdt_pre_ns=1\npre1=0102030405060708\n");
    ASSERT_TRUE(codec.AsmPGC_CMDT(src.c_str(), "p", ""));
    kt::WriteText(src, "[p]\ncmdt_pre_ns=2\ncmdt_cell_ns=1\npre1=1112131415161718\n");
    EXPECT_FALSE(codec.AsmPGC_CMDT(src.c_str(), "p", ""));
    ASSERT_EQ(codec.GetPGCISize(), 236ul + 8 + 8);
    std::vector<uint8_t> pgc(252);
    ASSERT_TRUE(codec.GetPGCData(pgc.data(), pgc.size()));
    // Pre, post and cell counts and end address of the first table; the one command read.
    EXPECT_EQ(tt::Slice(pgc, 236, 16),
              tt::Bytes().be16s({1, 0, 0, 15}).be32s({0x11121314, 0x15161718}));
}

}  // namespace
