// Assemblies that stop part-way: what the tables and the codec keep of the
// record they were reading, byte for byte.
#include "kestro/pgc.h"
#include "tables_util.h"

namespace {

// A cell entry counts from its first statement on: an entry whose later
// statement is missing is kept, its fields read so far in place, and Get and
// Write carry it.
TEST(CellTableRows, AnEntryCutShortIsKeptWithTheFieldsRead) {
    const std::string head = "[vtsm_c_adt]\nvtsm_vob_ns=1\nc_001_vob001_vts_vob_idn=3\n";
    const struct {
        const char* rest;  // statements after the VOB ID
        uint8_t cell;
        uint32_t first;
    } cases[] = {
        {"", 0, 0},
        {"c_001_vob001_vts_c_idn=2\n", 2, 0},
        {"c_001_vob001_vts_c_idn=2\nc_001_vob001_vts_cp_sa=77\n", 2, 77},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.rest);
        kt::TempDir dir;
        const std::string src = dir / "s.ini";
        kt::WriteText(src, head + c.rest);
        CKestro_VTSM_CADT t;
        EXPECT_FALSE(t.Asm(src.c_str()));
        EXPECT_EQ(tt::Size(t), std::make_pair(1ul, 20ul));
        tt::ExpectWritesOnce(t, dir / "o.bin",
                             tt::Bytes()
                                 .be16(1)
                                 .be16(0)
                                 .be32(19)  // VOB count, reserved, end address
                                 .be16(3)
                                 .u8(c.cell)
                                 .u8(0)  // VOB ID, cell ID, reserved
                                 .be32(c.first)
                                 .be32(0));  // first sector, last sector (missing)
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
    EXPECT_EQ(std::vector<uint8_t>(pgc.begin() + 236, pgc.end()),
              tt::Bytes()
                  .be16(1)
                  .be16(0)
                  .be16(0)
                  .be16(15)  // pre, post, cell counts, end address
                  .be32(0x11121314)
                  .be32(0x15161718));  // the one command read
}

}  // namespace
