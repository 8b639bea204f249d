// The PGC report: command texts, lines, indentation, room, header conversion, damaged PGCs.
#include <cstring>

#include "kestro/pgc.h"
#include "pgc_fixture.h"

namespace {

const struct {
    uint8_t b[8];
    const char* text;
} kCases[] = {
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
    {{0x30, 0x06, 0, 255, 255, 0x84, 0, 0}, " JmpInSystemSpace To VTS 255 TTN 255Sub-picture Menu"},
    {{0x30, 0x06, 0, 3, 4, 0x82, 0, 0}, " JmpInSystemSpace To VTS 4 TTN 3"},
    {{0x30, 0x06, 0x81, 0x02, 0, 0xC0, 0, 0}, " JmpInSystemSpace To VMGM PGC number 258 "},
    {{0x30, 0x08, 0, 0, 0, 0x03, 0, 0}, " CallInSystemSpace First Play "},
    {{0x30, 0x08, 0, 0, 0, 0x42, 0, 0}, " CallInSystemSpace VMGM Title Menu"},
    {{0x30, 0x08, 0, 0, 0, 0x87, 0, 0}, " CallInSystemSpace VTSM PTT Menu"},
    {{0x30, 0x08, 0x7F, 0xFF, 0, 0xC3, 0, 0}, " CallInSystemSpace VMGM_DOM PGC number 32767 "},
    {{0x10, 0, 0, 0, 0, 0, 0, 0}, " Unsupported by Zintara at this time"},
};

// Every command family and subtype renders as its exact text, replacing what was there.
TEST(PgcCommand, RendersEveryFamilyAndSubtype) {
    CKestro_PGCI codec;
    for (const auto& c : kCases) {
        char out[53];
        std::memset(out, 'Z', sizeof out);
        EXPECT_EQ(codec.DisAssembleCommand(c.b, out), int(std::strlen(c.text))) << c.text;
        EXPECT_STREQ(out, c.text);
    }
}

struct Reported {
    int result;
    std::string text;
    std::vector<std::string> lines;  // whole lines only
};
Reported Report(std::vector<uint8_t>& pgc, unsigned short indent, int room = 1 << 22,
                size_t offset = 0) {
    CKestro_PGCI codec;
    std::vector<char> out(size_t(room) + 512, 0);
    Reported r{codec.DetailsOfPGCI(indent, pgc.data(), offset, out.data(), room, pgc.size()),
               out.data(),
               {}};
    for (size_t at = 0, end; (end = r.text.find("\r\n", at)) != std::string::npos; at = end + 2)
        r.lines.push_back(r.text.substr(at, end - at));
    return r;
}

// The report's lines in order; counts without their tables are reported as errors and the
// report goes on.
TEST(PgcReport, LinesInOrderAndCountsWithoutTables) {
    auto pgc = kt::BuildPgc({{}, {}, {}, false, 1, 1});
    const uint8_t gi[][2] = {{4, 0x01}, {5, 0x23},   {6, 0x45},   {7, 0xE7},
                             {164, 0},  {165, 0xEB}, {166, 0x80}, {167, 0x80}};
    for (const auto& b : gi) pgc[b[0]] = b[1];
    const uint8_t cell[24] = {1, 2, 3, 4,   0,    1, 0x30, 0x40, 0, 0, 0, 100,
                              0, 0, 0, 107, 0x80, 0, 0,    0,    0, 0, 4, 0};
    std::memcpy(&pgc[238], cell, 24);
    auto r = Report(pgc, 2);
    ASSERT_EQ(r.lines.size(), 66u + 2 + 2 + 7 + 2);
    EXPECT_EQ(r.result, int(r.text.size()));
    const std::pair<size_t, const char*> expected[] = {
        {2, "  PGC: Play Back Time: 01:23:45.27"},
        {4, "  PGC: Audio stream 1 status: 555c"},
        {50, "    Color 0: 235-128-128"},
        {67, "      There is no PGC Command Table"},
        {69, "      Entry cell number for Program 1: 1"},
        {72, "      Cell 1 Play Back Time: 00:01:30.00"},
        {75, "      Cell 1 start sector of last VOUB: -2147483648"},
        {78, "      VOB ID number 1 of this Cell 1"}};
    for (const auto& e : expected) EXPECT_EQ(r.lines[e.first], e.second) << e.first;
    for (size_t sa = 228; sa < 236; ++sa) pgc[sa] = 0;
    pgc[2] = 3, pgc[3] = 2;
    r = Report(pgc, 0);
    ASSERT_EQ(r.lines.size(), 77u);
    EXPECT_EQ(r.lines[70], "      This is an ERROR as there are 3 programs");
    EXPECT_EQ(r.lines[73], "      This is an ERROR as there are 2 cells in this program.");
    EXPECT_EQ(r.lines[76], "      This is an ERROR as there are 2 cells");
}

// A command's rendering lands by the indentation; the header is converted in place.
TEST(PgcReport, CommandRenderingByIndentationAndHeaderConversion) {
    const kt::PgcShape shape{
        {kt::Command{0x20, 0x04, 0, 0, 0, 0, 0, 3}}, {kt::Command{}, kt::Command{}}, {}};
    const std::pair<unsigned short, const char*> cases[] = {
        {2, "        1: 2004000000000003 "},
        {3, "         1: 2004000000000003 "},
        {4, "          1: 2004000000000003  Lnk  to PGC 3"},
        {5, "           1: 2004000000000003 Lnk  to PGC 3"}};
    for (const auto& c : cases) {
        auto pgc = kt::BuildPgc(shape);
        auto r = Report(pgc, c.first);
        const std::string in(c.first, ' ');
        EXPECT_EQ(r.lines[67], in + "    There are 1 Pre Commands");
        EXPECT_EQ(r.lines[68], c.second);
        EXPECT_EQ(r.lines[69], in + "    There are 2 Post Commands");
        EXPECT_EQ(r.lines[72], in + "    There are 0 Cell Commands");
        // The header words are left little-endian in the caller's buffer, so a second report
        // reads byte-swapped counts (zeros beyond the buffer).
        EXPECT_EQ(std::vector<uint8_t>(&pgc[236], &pgc[244]),
                  (std::vector<uint8_t>{1, 0, 2, 0, 0, 0, 31, 0}));
        r = Report(pgc, c.first);
        EXPECT_EQ(r.lines[67], in + "    There are 256 Pre Commands");
        EXPECT_EQ(r.lines.size(), 66u + 4 + 256 + 512 + 6);
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
    const auto full = report(5, 1 << 20);
    const std::string last = "    There is no Cell Position Information Table";
    const int before = full.result - int(5 + last.size() + 2);
    EXPECT_EQ(report(5, before + int(last.size()) + 1).result, full.result);
    const auto cut = report(5, before + int(last.size()));
    EXPECT_EQ(cut.result, 0);
    EXPECT_EQ(cut.text, full.text.substr(0, size_t(before)));
    const size_t at = report(2, 1 << 20).text.find("        1: ");
    const int end =
        int(std::strlen("      1: 0000000000000000 ") + 4 + std::strlen(" No Operation"));
    EXPECT_EQ(report(2, int(at) + end).text.size(), at);
    EXPECT_GT(report(2, int(at) + end + 1).text.size(), at);
}

// Damaged PGCs read zeros beyond their bytes and convert only whole header words.
TEST(PgcReport, DamagedPgcsReadZerosBeyondTheData) {
    const auto good = kt::BuildPgc({{kt::Command{}}, {}, {}, false, 0, 2});
    const struct {
        size_t offset, keep, cmdt;
    } cases[] = {{0, 100, 236}, {0, 239, 236}, {5000, 0, 236}, {0, 0, 0xFFF0}};
    for (const auto& c : cases) {
        auto pgc = good;
        pgc[228] = uint8_t(c.cmdt >> 8), pgc[229] = uint8_t(c.cmdt);
        pgc[236] = pgc[237] = 0xFF;
        if (c.keep) pgc.resize(c.keep);
        const auto before = pgc;
        EXPECT_GT(Report(pgc, 5, 1 << 22, c.offset).result, 0) << c.keep;
        for (size_t i = 0; i < pgc.size(); ++i)  // only whole header words are converted
            if (i < c.cmdt || i + 1 >= pgc.size()) {
                EXPECT_EQ(pgc[i], before[i]) << i;
            }
    }
    auto pgc = good;
    EXPECT_GT(Report(pgc, 300).result, 0) << "indentation beyond the line buffer";
}

}  // namespace
