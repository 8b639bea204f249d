// Title search pointer table: the assembly quirks, and the way back through
// a written file. (Real discs' tables come back byte for byte within the
// whole-file round trip.)
#include <algorithm>
#include <cstring>

#include "vmg_test_util.h"

namespace {

// Assembles ini and returns its Write after a first sector of zeros.
std::vector<uint8_t> AsmAndWrite(const std::string& ini, const std::string& out, unsigned long* sb = nullptr) {
    CKestro_VMG_PTT ptt;
    EXPECT_TRUE(ptt.Asm(ini.c_str()));
    unsigned long dummy[2];
    ptt.Get(sb ? sb : dummy, sb ? sb + 1 : dummy + 1);
    {
        vt::Handle h(vt::Create(out));
        kestro::FileWrite(h, std::vector<uint8_t>(2048, 0).data(), 2048);
        EXPECT_TRUE(ptt.Write(h));
        EXPECT_TRUE(ptt.Write(h));  // the assembled view is gone: nothing more
    }
    return kt::ReadBytes(out);
}

// tt_pb_ty loses its first character whatever it is ("3c" is "c", 0xC0);
// the angle count is a byte; the parental ID is written low byte first but
// read big-endian; the title number within the set is always 1.
TEST(VmgPtt, AssemblyQuirksAndTheWayBack) {
    kt::TempDir dir;
    const std::string ini = dir / "src.ini", back = dir / "back.ini";
    kt::WriteText(ini, vt::kTwoTitles);
    unsigned long sb[2];
    auto first = AsmAndWrite(ini, dir / "out.ifo", sb);
    EXPECT_EQ(sb[0] * 100 + sb[1], 132u);  // 1 sector, 32 bytes
    ASSERT_EQ(first.size(), 4096u);
    const uint8_t want[] = {
        0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x1F,                          // header, ea 31
        0x3C, 0x01, 0x00, 0x0C, 0x02, 0x01, 0x01, 0x01, 0x00, 0x00, 0x10, 0x00,  // title 1
        0xC0, 0x2C, 0x00, 0x01, 0x00, 0x00, 0x02, 0x01, 0x00, 0x01, 0x11, 0x70,  // title 2
    };
    EXPECT_EQ(0, std::memcmp(first.data() + 2048, want, sizeof want));
    EXPECT_EQ(std::count(first.begin() + 2048 + sizeof want, first.end(), 0), long(2048 - sizeof want));

    vt::Handle h(vt::OpenRead(dir / "out.ifo"));
    CKestro_VMG_PTT loaded;
    EXPECT_EQ(loaded.Load(h, 0), 0);
    ASSERT_EQ(loaded.Load(h, 1), 1);
    EXPECT_TRUE(loaded.Disasm(back.c_str()));
    for (auto kv : {std::make_pair("vts_ptt_srpt_ea", "31"), {"tt_pb_ty01", "x3c"}, {"tt_ptl_id_fld01", "513"},
                    {"vts_ttn01", "1"}, {"tt_pb_ty02", "xc0"}, {"tt_agl_ns02", "44"}, {"vts_sa02", "70000"}})
        EXPECT_EQ(vt::Value(back, "vmg_ptt_srpt", kv.first), kv.second) << kv.first;
    std::swap(first[2048 + 12], first[2048 + 13]);  // 02 01 comes back as 01 02
    EXPECT_EQ(AsmAndWrite(back, dir / "again.ifo"), first);

    bool ok = false;
    const std::string rep = vt::Report(loaded, 1 << 16, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(rep.find("Number of Title Unit Serch Pointers TTUs in the VTS: 2\r\n"
                       "End byte address of PTT_SRPT table: 31\r\n    Title set 1: Title playback type: 3c\r\n"
                       "    Title set 1: Number of angles: 1\r\n    Title set 1: Number of PTTs: 12\r\n"
                       "    Title set 1: Parental ID field: 513\r\n    Title set 1: Title set number: 1\r\n"
                       "    Title set 1: VTS_TTN: 1\r\n    Title set 1: Title set starting sector number: 4096\r\n"),
              0u);
    EXPECT_EQ(rep.substr(rep.size() - 5), "0\r\n\r\n");  // closing line end

    // A refused count stores nothing; a missing source fails.
    kt::WriteText(ini, "[vmg_ptt_srpt]\nvts_ttu_ns=1000\n");
    CKestro_VMG_PTT refused;
    EXPECT_FALSE(refused.Asm(ini.c_str()));
    refused.Get(sb, sb + 1);
    EXPECT_EQ(sb[0] + sb[1], 0u);
    EXPECT_FALSE(refused.Asm((dir / "absent.ini").c_str()));
}

}  // namespace
