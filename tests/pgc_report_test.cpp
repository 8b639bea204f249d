// The PGC report: its lines, where command renderings land by indentation,
// the room test, the in-place header conversion, damaged PGCs, a real disc.
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "kestro/pgc.h"
#include "pgc_fixture.h"

namespace {

struct Reported {
    int result;
    std::string text;
    std::vector<std::string> lines;
};

Reported Report(std::vector<uint8_t>& pgc, unsigned short indent, int room = 1 << 22,
                size_t offset = 0, size_t size = ~size_t(0)) {
    CKestro_PGCI codec;
    std::vector<char> out(size_t(room) + 512, 0);
    Reported r;
    r.result = size == ~size_t(0)
                   ? codec.DetailsOfPGCI(indent, pgc.data(), offset, out.data(), room)
                   : codec.DetailsOfPGCI(indent, pgc.data(), offset, out.data(), room, size);
    r.text = out.data();
    for (size_t at = 0, end; (end = r.text.find("\r\n", at)) != std::string::npos; at = end + 2)
        r.lines.push_back(r.text.substr(at, end - at));
    return r;
}

TEST(PgcReport, LinesInOrder) {
    kt::PgcShape shape;
    shape.programs = 1;
    shape.cells = 1;
    auto pgc = kt::BuildPgc(shape);
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
        {0, "  PGC: Number of Programs: 1"},
        {2, "  PGC: Play Back Time: 01:23:45.27"},
        {4, "  PGC: Audio stream 1 status: 555c"},
        {50, "    Color 0: 235-128-128"},
        {66, "  PGC: Memory offset of PGC Command Table: 0"},
        {67, "      There is no PGC Command Table"},
        {69, "      Entry cell number for Program 1: 1"},
        {71, "      Cell 1 category: 1 2 3 4"},
        {72, "      Cell 1 Play Back Time: 00:01:30.00"},
        {76, "      Cell 1 last sector of this cell: 1024"},
        {75, "      Cell 1 start sector of last VOUB: -2147483648"},
        {78, "      VOB ID number 1 of this Cell 1"}};
    for (const auto& e : expected) EXPECT_EQ(r.lines[e.first], e.second) << e.first;

    // Counts without their tables are reported as errors and the report goes on.
    for (size_t sa = 228; sa < 236; ++sa) pgc[sa] = 0;
    pgc[2] = 3;
    pgc[3] = 2;
    r = Report(pgc, 0);
    ASSERT_EQ(r.lines.size(), 77u);
    EXPECT_EQ(r.lines[70], "      This is an ERROR as there are 3 programs");
    EXPECT_EQ(r.lines[73], "      This is an ERROR as there are 2 cells in this program.");
    EXPECT_EQ(r.lines[76], "      This is an ERROR as there are 2 cells");
}

TEST(PgcReport, CommandRenderingByIndentationAndHeaderConversion) {
    kt::PgcShape shape;
    shape.pre = {kt::Command{0x20, 0x04, 0, 0, 0, 0, 0, 3}};
    shape.post = {kt::Command{}, kt::Command{}};
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
        // The header words are left little-endian in the caller's buffer, so
        // a second report reads byte-swapped counts (zeros beyond the buffer).
        const uint8_t swapped[8] = {1, 0, 2, 0, 0, 0, 31, 0};
        EXPECT_EQ(std::memcmp(&pgc[236], swapped, 8), 0);
        r = Report(pgc, c.first, 1 << 22, 0, pgc.size());
        EXPECT_EQ(r.lines[67], in + "    There are 256 Pre Commands");
        EXPECT_EQ(r.lines.size(), 66u + 4 + 256 + 512 + 1 + 1 + 1 + 1 + 1 + 1);
    }
}

TEST(PgcReport, RoomTestCountsTextWithoutIndentation) {
    kt::PgcShape shape;
    shape.pre = {kt::Command{}};
    const auto pgc = kt::BuildPgc(shape);
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
    const auto none = report(5, int(std::strlen("PGC: Number of Programs: 0")));
    EXPECT_EQ(none.result, 0);
    EXPECT_EQ(none.text, "");
    // A command line is tested at the rendering's position plus its length,
    // even where the rendering is not shown.
    const size_t at = report(2, 1 << 20).text.find("        1: ");
    const int end =
        int(std::strlen("      1: 0000000000000000 ") + 4 + std::strlen(" No Operation"));
    EXPECT_EQ(report(2, int(at) + end).text.size(), at);
    EXPECT_GT(report(2, int(at) + end + 1).text.size(), at);
}

TEST(PgcReport, DamagedPgcsReadZerosBeyondTheData) {
    kt::PgcShape shape;
    shape.pre = {kt::Command{}};
    shape.cells = 2;
    const auto good = kt::BuildPgc(shape);
    const struct {
        size_t offset, keep, cmdt;
    } cases[] = {{0, 100, 236}, {0, 239, 236}, {5000, 0, 236}, {0, 0, 0xFFF0}};
    for (const auto& c : cases) {
        auto pgc = good;
        kt::PutBe(pgc, 228, uint32_t(c.cmdt));
        kt::PutBe(pgc, 236, 0xFFFF);
        if (c.keep) pgc.resize(c.keep);
        const auto before = pgc;
        auto r = Report(pgc, 5, 1 << 22, c.offset, pgc.size());
        EXPECT_GT(r.result, 0) << c.keep;
        for (size_t i = 0; i < pgc.size(); ++i)  // only whole header words are converted
            if (i < c.cmdt || i + 1 >= pgc.size()) {
                EXPECT_EQ(pgc[i], before[i]) << i;
            }
    }
    auto pgc = good;
    EXPECT_GT(Report(pgc, 300).result, 0) << "indentation beyond the line buffer";
}

TEST(PgcReport, RealTitlePgcs) {
    auto pgcs = kt::CorpusPgcs();
    KT_SKIP_IF_EMPTY(pgcs);
    for (auto& p : pgcs) {
        if (p.name.find(" title") == std::string::npos) continue;
        auto& f = p.file;
        const size_t at = p.offset, cmdt = kt::Be(f, at + 228);
        const unsigned programs = f[at + 2] & 0x7F, cells = f[at + 3];
        const unsigned commands =
            cmdt ? kt::Be(f, at + cmdt) + kt::Be(f, at + cmdt + 2) + kt::Be(f, at + cmdt + 4) : 0;
        auto r = Report(f, 5, 1 << 20, at, f.size());
        ASSERT_GT(r.result, 0) << p.name;
        EXPECT_EQ(r.lines.size(),
                  66u + (cmdt ? 4 + commands : 2) + 1 + programs + 1 + 6 * cells + 1 + cells);
        unsigned rendered = 0;  // the rendering replaces the blank after the bytes
        for (const auto& l : r.lines)
            rendered += l.size() > 31 && l.compare(0, 11, std::string(11, ' ')) == 0 &&
                        std::isdigit(l[11]) && l[30] == ' ' && l[31] != ' ';
        EXPECT_EQ(rendered, commands) << p.name;
    }
}

}  // namespace
