// The PGC report: command texts, lines, indentation, room, header conversion, damaged PGCs.
#include <cstring>

#include "kestro/pgc.h"
#include "pgc_fixture.h"
#include "tables_util.h"

namespace {

// Every command family and subtype renders as its exact text, replacing what was there.
TEST(PgcCommand, RendersEveryFamilyAndSubtype) {
    const std::pair<kt::Command, const char*> cases[] = {
        {{0, 0, 0, 0, 0, 0, 0, 0}, " No Operation"},
        {{0, 0, 0, 0, 0, 0, 0, 1}, " Illegal command"},
        {{0x01, 0x04, 0, 0, 0, 0, 0, 3}, " Illegal command"},
        {{0x20, 0x01, 0, 0, 0, 0, 1, 2}, " Lnk  SIns (additional parameters not decoded)"},
        {{0x20, 0x04, 0, 0, 0, 0, 0xC1, 0x02}, " Lnk  to PGC 258"},
        {{0x20, 0x05, 0, 0, 0, 0, 0x03, 0x01}, " Lnk  to PTT 769 "},
        {{0x20, 0x05, 0, 0, 0, 0, 0x0D, 0x02}, " Lnk  to PTT 258 Highlight: 3"},
        {{0x20, 0x06, 0, 0, 0, 0, 0x00, 0x85}, " Lnk  to Program 5 this PGC"},
        {{0x20, 0x06, 0, 0, 0, 0, 0x08, 0x05}, " Lnk  to Program 5 this PGC, Highlight: 2"},
        {{0x20, 0x07, 0, 0, 0, 0, 0x04, 0x02}, " Lnk  to Cell 2 this PGC, Highlight: 1"},
        {{0x20, 0x0F, 1, 2, 3, 4, 5, 6}, " Lnk "},
        {{0x21, 0x14, 1, 2, 3, 4, 5, 6}, " CmpLnk "},
        {{0x30, 0x01, 0, 0, 0, 0, 0, 0}, " Jmp to Exit"},
        {{0x30, 0x02, 0, 0, 0, 7, 0, 0}, " Jmp to VTS 7"},
        {{0x30, 0x03, 0, 0, 0, 9, 0, 0}, " Jmp to This VTS Title 9"},
        {{0x30, 0x05, 0x01, 0x05, 0, 2, 0, 0}, " Jmp to This VTS Title 2 Part of Title 1029"},
        {{0x30, 0x09, 1, 2, 3, 4, 5, 6}, " Jmp "},
        {{0x30, 0x91, 1, 2, 3, 4, 5, 6}, " CmpJmp "},
        {{0x30, 0x06, 0, 1, 0, 0x00, 0, 0}, " JmpInSystemSpace To First Play PGC "},
        {{0x30, 0x06, 0, 0, 0, 0x43, 0, 0}, " JmpInSystemSpace To VMGM Menu Root Menu"},
        {{0x30, 0x06, 0, 0, 0, 0x48, 0, 0}, " JmpInSystemSpace To VMGM Menu "},
        {{0x30, 0x06, 0, 1, 2, 0x83, 0, 0}, " JmpInSystemSpace To VTS 2 TTN 1Root Menu"},
        {{0x30, 0x06, 0, 255, 255, 0x84, 0, 0},
         " JmpInSystemSpace To VTS 255 TTN 255Sub-picture Menu"},
        {{0x30, 0x06, 0, 3, 4, 0x82, 0, 0}, " JmpInSystemSpace To VTS 4 TTN 3"},
        {{0x30, 0x06, 0x81, 0x02, 0, 0xC0, 0, 0}, " JmpInSystemSpace To VMGM PGC number 258 "},
        {{0x30, 0x08, 0, 0, 0, 0x03, 0, 0}, " CallInSystemSpace First Play "},
        {{0x30, 0x08, 0, 0, 0, 0x42, 0, 0}, " CallInSystemSpace VMGM Title Menu"},
        {{0x30, 0x08, 0, 0, 0, 0x87, 0, 0}, " CallInSystemSpace VTSM PTT Menu"},
        {{0x30, 0x08, 0x7F, 0xFF, 0, 0xC3, 0, 0}, " CallInSystemSpace VMGM_DOM PGC number 32767 "},
        {{0x10, 0, 0, 0, 0, 0, 0, 0}, " Unsupported by Zintara at this time"},
    };
    CKestro_PGCI codec;
    for (const auto& [command, text] : cases) {
        char out[53];
        std::memset(out, 'Z', sizeof out);
        EXPECT_EQ(codec.DisAssembleCommand(command.data(), out), int(std::strlen(text))) << text;
        EXPECT_STREQ(out, text);
    }
}

// The report of the PGC at `offset` (its command table header converted in place) in room.
std::pair<int, std::string> Report(std::vector<uint8_t>& pgc, unsigned short indent,
                                   int room = 1 << 22, size_t offset = 0) {
    CKestro_PGCI codec;
    std::vector<char> out(size_t(room) + 512, 0);
    const int n = codec.DetailsOfPGCI(indent, pgc.data(), offset, out.data(), room, pgc.size());
    return {n, out.data()};
}

// The report's lines in order at every indentation: a command's rendering lands by it (below 4 it
// is not shown), and the command table header is left converted in place, so a second report
// reads byte-swapped counts (zeros beyond the buffer).
TEST(PgcReport, LinesByIndentationAndHeaderConversion) {
    const std::pair<unsigned short, const char*> commandLines[] = {
        {2, "        1: 2004000000000003 "},
        {3, "         1: 2004000000000003 "},
        {4, "          1: 2004000000000003  Lnk  to PGC 3"},
        {5, "           1: 2004000000000003 Lnk  to PGC 3"}};
    for (const auto& [indent, commandLine] : commandLines) {
        auto pgc = kt::BuildPgc({{kt::Command{0x20, 0x04, 0, 0, 0, 0, 0, 3}},
                                 {kt::Command{}, kt::Command{}},
                                 {},
                                 false,
                                 1,
                                 1});
        std::memcpy(&pgc[4], "\x01\x23\x45\xE7", 4);  // play time 01:23:45, frame 27 and rate bits
        std::memcpy(&pgc[164], "\x00\xEB\x80\x80", 4);  // palette colour 0
        // Cell 1: category, play time, entry point, first ILVU end, last VOBU start, last sector.
        const auto cell = kt::Hex("01020304 00013040 00000064 0000006b 80000000 00000400");
        std::copy(cell.begin(), cell.end(), &pgc[kt::Be(pgc, 232)]);
        auto [result, text] = Report(pgc, indent);
        auto lines = tt::Lines(text);
        ASSERT_EQ(lines.size(), 84u);
        EXPECT_EQ(result, int(text.size()));
        EXPECT_EQ(lines[68], commandLine);
        const std::string in(indent, ' ');
        const std::pair<size_t, const char*> expected[] = {
            {2, "PGC: Play Back Time: 01:23:45.27"},
            {4, "PGC: Audio stream 1 status: 555c"},
            {50, "  Color 0: 235-128-128"},
            {67, "    There are 1 Pre Commands"},
            {69, "    There are 2 Post Commands"},
            {72, "    There are 0 Cell Commands"},
            {74, "    Entry cell number for Program 1: 1"},
            {77, "    Cell 1 Play Back Time: 00:01:30.00"},
            {80, "    Cell 1 start sector of last VOUB: -2147483648"},
            {83, "    VOB ID number 1 of this Cell 1"}};
        for (const auto& [i, line] : expected) EXPECT_EQ(lines[i], in + line) << i;
        EXPECT_EQ(std::vector<uint8_t>(&pgc[236], &pgc[244]), kt::Hex("0100 0200 0000 1f00"));
        lines = tt::Lines(Report(pgc, indent).second);
        EXPECT_EQ(lines[67], in + "    There are 256 Pre Commands");
        EXPECT_EQ(lines.size(), 66u + 4 + 256 + 512 + 11);
    }
}

// The room test counts the text without its indentation; a command line is tested at the
// rendering's position plus its length, shown or not.
TEST(PgcReport, RoomTest) {
    const auto pgc = kt::BuildPgc({{kt::Command{}}, {}, {}, false, 0, 0});
    auto report = [&](unsigned short indent, int room) {
        auto copy = pgc;  // each report converts the header in place
        return Report(copy, indent, room);
    };
    // The last line, "    There is no Cell Position Information Table", has 47 characters.
    const auto [all, full] = report(5, 1 << 20);
    const int before = all - (5 + 47 + 2);
    EXPECT_EQ(report(5, before + 48).first, all);
    EXPECT_EQ(report(5, before + 47), std::make_pair(0, full.substr(0, size_t(before))));
    // "      1: 0000000000000000 " (26 characters), 4 more, then " No Operation" (13).
    const size_t at = report(2, 1 << 20).second.find("        1: ");
    EXPECT_EQ(report(2, int(at) + 43).second.size(), at);
    EXPECT_GT(report(2, int(at) + 44).second.size(), at);
}

// Damaged PGCs read zeros beyond their bytes, leave bytes they cannot convert whole alone, and
// report counts without their tables as errors.
TEST(PgcReport, DamagedPgcsReadZerosBeyondTheData) {
    const auto good = kt::BuildPgc({{kt::Command{}}, {}, {}, false, 0, 2});
    const size_t cases[][3] = {{0, 100, 236}, {0, 239, 236}, {5000, 0, 236}, {0, 0, 0xFFF0}};
    for (const auto& [offset, keep, cmdt] : cases) {  // keep: the bytes held, all when 0
        auto pgc = good;
        kt::PutBe(pgc, 228, uint32_t(cmdt));
        pgc[236] = pgc[237] = 0xFF;
        if (keep) pgc.resize(keep);
        const auto before = pgc;
        EXPECT_GT(Report(pgc, 5, 1 << 22, offset).first, 0) << keep;
        EXPECT_EQ(pgc, before) << keep;
    }
    auto pgc = good;
    EXPECT_GT(Report(pgc, 300).first, 0) << "indentation beyond the line buffer";
    pgc = kt::BuildPgc({{}, {}, {}, false, 3, 2});
    std::fill(&pgc[228], &pgc[236], 0);
    const auto lines = tt::Lines(Report(pgc, 0).second);
    ASSERT_EQ(lines.size(), 77u);
    EXPECT_EQ(lines[67], "    There is no PGC Command Table");
    EXPECT_EQ(lines[70], "      This is an ERROR as there are 3 programs");
    EXPECT_EQ(lines[73], "      This is an ERROR as there are 2 cells in this program.");
    EXPECT_EQ(lines[76], "      This is an ERROR as there are 2 cells");
}

}  // namespace
