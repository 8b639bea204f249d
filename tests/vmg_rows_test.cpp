// Rules of the video manager's field rows that no other test pins: how the
// format version is read back, and how far the parental table is walked.
#include "vmg_test_util.h"

namespace {

// The version statement is read by its first character for the major number
// and from its third on for the minor one, whose low four bits are kept.
TEST(VmgRows, VersionTakesOneCharacterOfMajorAndTheLowNibbleOfMinor) {
    const std::pair<const char*, int> cases[] = {
        {"1.1", 0x11}, {"10.2", 0x10}, {"2.15", 0x2F}, {"1.-1", 0x1F},
        {"1", 0x10},   {"", 0x00},     {"x1.1", 0x00}, {"+3.4", 0x00},
    };
    kt::TempDir dir;
    const std::string ini = dir / "v.ini", out = dir / "VIDEO_TS.IFO";
    for (const auto& [value, byte] : cases) {
        SCOPED_TRACE(value);
        kt::WriteText(ini, vt::Replace(vt::kMatSource, "vern=1.1", std::string("vern=") + value));
        std::string error;
        ASSERT_TRUE(vt::AssembleVmg(ini, out, &error)) << error;
        EXPECT_EQ(kt::ReadBytes(out).at(33), byte);
    }
}

// A country count beyond the pointers the body holds is listed whole, the
// pointers past the body reading as zeros: the loader keeps the end
// address's low 16 bits as the body size (7 bytes here, one pointer).
TEST(VmgRows, ParentalTableListsEveryCountryItsCountAnnounces) {
    const std::vector<uint8_t> table = {
        0,   2,                   // countries, more than the body holds
        0,   2,                   // title sets
        0,   1,   0, 7,           // end address: its low 16 bits give the body size
        'f', 'r', 0, 0, 0, 0x10,  // country 1: code, unused, PTL_MAI start 16
        0,                        // a byte past the body
    };
    tt::Loaded<CKestro_VMG_MAIT> m(table);
    ASSERT_EQ(m.loaded, 1);
    EXPECT_EQ(tt::Text(m.t),
              "Number of Countries: 2\r\nNumber of Video Title Sets: 2\r\n"
              "End byte address of PTL_MAIT table: 65543\r\n"
              "  Country Code of 1: fr\r\n  Start byte address of PTL_MAI of 1: 16\r\n"
              "  Country Code of 2: \r\n  Start byte address of PTL_MAI of 2: 0\r\n");
    ASSERT_TRUE(m.t.Disasm(m.ini.c_str()));
    EXPECT_EQ(tt::Value(m.ini, "vmg_ptt_srpt", "ptl_mai_srp01_cty_cd"), "fr");
    EXPECT_EQ(tt::Value(m.ini, "vmg_ptt_srpt", "ptl_mai_srp02_ptl_mai_sa"), "0");
}

}  // namespace
