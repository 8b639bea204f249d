// Text form of navigation commands: every family and subtype the renderer
// knows, and the fixed texts of those it does not decode.
#include <cstring>

#include "kestro/pgc.h"
#include "test_util.h"

namespace {

struct CommandCase {
    uint8_t b[8];
    const char* text;
};

const CommandCase kCases[] = {
    {{0, 0, 0, 0, 0, 0, 0, 0}, " No Operation"},
    {{0, 0, 0, 0, 0, 0, 0, 1}, " Illegal command"},
    {{0x01, 0x04, 0, 0, 0, 0, 0, 3}, " Illegal command"},
    {{0x20, 0x01, 0, 0, 0, 0, 1, 2}, " Lnk  SIns (additional parameters not decoded)"},
    {{0x20, 0x04, 0, 0, 0, 0, 0xC1, 0x02}, " Lnk  to PGC 258"},
    {{0x20, 0x05, 0, 0, 0, 0, 0x03, 0x01}, " Lnk  to PTT 769 "},
    {{0x20, 0x05, 0, 0, 0, 0, 0x0D, 0x02}, " Lnk  to PTT 258 Highlight: 3"},
    {{0x20, 0x06, 0, 0, 0, 0, 0x00, 0x85}, " Lnk  to Program 5 this PGC"},
    {{0x20, 0x06, 0, 0, 0, 0, 0x08, 0x05}, " Lnk  to Program 5 this PGC, Highlight: 2"},
    {{0x20, 0x07, 0, 0, 0, 0, 0x03, 0x02}, " Lnk  to Cell 2 this PGC"},
    {{0x20, 0x07, 0, 0, 0, 0, 0x04, 0x02}, " Lnk  to Cell 2 this PGC, Highlight: 1"},
    {{0x20, 0x00, 1, 2, 3, 4, 5, 6}, " Lnk "},
    {{0x20, 0x02, 1, 2, 3, 4, 5, 6}, " Lnk "},
    {{0x20, 0x0F, 1, 2, 3, 4, 5, 6}, " Lnk "},
    {{0x21, 0x14, 1, 2, 3, 4, 5, 6}, " CmpLnk "},
    {{0x30, 0x01, 0, 0, 0, 0, 0, 0}, " Jmp to Exit"},
    {{0x30, 0x02, 0, 0, 0, 7, 0, 0}, " Jmp to VTS 7"},
    {{0x30, 0x03, 0, 0, 0, 9, 0, 0}, " Jmp to This VTS Title 9"},
    {{0x30, 0x05, 0x01, 0x05, 0, 2, 0, 0}, " Jmp to This VTS Title 2 Part of Title 1029"},
    {{0x30, 0x04, 1, 2, 3, 4, 5, 6}, " Jmp "},
    {{0x30, 0x09, 1, 2, 3, 4, 5, 6}, " Jmp "},
    {{0x30, 0x91, 1, 2, 3, 4, 5, 6}, " CmpJmp "},
    {{0x30, 0x06, 0, 1, 0, 0x00, 0, 0}, " JmpInSystemSpace To First Play PGC "},
    {{0x30, 0x06, 0, 0, 0, 0x43, 0, 0}, " JmpInSystemSpace To VMGM Menu Root Menu"},
    {{0x30, 0x06, 0, 0, 0, 0x48, 0, 0}, " JmpInSystemSpace To VMGM Menu "},
    {{0x30, 0x06, 0, 1, 2, 0x83, 0, 0}, " JmpInSystemSpace To VTS 2 TTN 1Root Menu"},
    {{0x30, 0x06, 0, 255, 255, 0x84, 0, 0}, " JmpInSystemSpace To VTS 255 TTN 255Sub-picture Menu"},
    {{0x30, 0x06, 0, 3, 4, 0x85, 0, 0}, " JmpInSystemSpace To VTS 4 TTN 3Audio Menu"},
    {{0x30, 0x06, 0, 3, 4, 0x86, 0, 0}, " JmpInSystemSpace To VTS 4 TTN 3Angle Menu"},
    {{0x30, 0x06, 0, 3, 4, 0x82, 0, 0}, " JmpInSystemSpace To VTS 4 TTN 3"},
    {{0x30, 0x06, 0x81, 0x02, 0, 0xC0, 0, 0}, " JmpInSystemSpace To VMGM PGC number 258 "},
    {{0x30, 0x08, 0, 0, 0, 0x03, 0, 0}, " CallInSystemSpace First Play "},
    {{0x30, 0x08, 0, 0, 0, 0x42, 0, 0}, " CallInSystemSpace VMGM Title Menu"},
    {{0x30, 0x08, 0, 0, 0, 0x87, 0, 0}, " CallInSystemSpace VTSM PTT Menu"},
    {{0x30, 0x08, 0x7F, 0xFF, 0, 0xC3, 0, 0}, " CallInSystemSpace VMGM_DOM PGC number 32767 "},
    {{0x10, 0, 0, 0, 0, 0, 0, 0}, " Unsupported by Zintara at this time"},
    {{0x71, 0, 0, 0, 0, 0, 0, 0}, " Unsupported by Zintara at this time"},
    {{0xF0, 0, 0, 0, 0, 0, 0, 0}, " Unsupported by Zintara at this time"},
};

TEST(PgcCommand, RendersEveryFamilyAndSubtype) {
    CKestro_PGCI codec;
    for (const auto& c : kCases) {
        char out[53];
        std::memset(out, 'Z', sizeof out);  // replacing forms drop what was there
        EXPECT_EQ(codec.DisAssembleCommand(c.b, out), int(std::strlen(c.text))) << c.text;
        EXPECT_STREQ(out, c.text);
    }
}

}  // namespace
