// The PGC report: its lines, the placement of command renderings by
// indentation, the room test, the in-place header conversion, bounded
// reading of damaged PGCs, and the report of a real title PGC.
#include <cctype>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "kestro/pgc.h"
#include "pgc_fixture.h"

namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> out;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find("\r\n", at);
        EXPECT_NE(end, std::string::npos) << "every line ends in CR LF";
        if (end == std::string::npos) break;
        out.push_back(text.substr(at, end - at));
        at = end + 2;
    }
    return out;
}

struct Reported {
    int result;
    std::string text;
};

Reported Report(std::vector<uint8_t>& pgc, unsigned short indent, int room = 1 << 20,
                size_t offset = 0, long size = -1) {
    CKestro_PGCI codec;
    std::vector<char> out(size_t(room > 0 ? room : 0) + 256, 0);
    int n = size < 0 ? codec.DetailsOfPGCI(indent, pgc.data(), offset, out.data(), room)
                     : codec.DetailsOfPGCI(indent, pgc.data(), offset, out.data(), room,
                                           (unsigned long)size);
    return {n, std::string(out.data())};
}

TEST(PgcReport, LinesOfAPgcWithoutParts) {
    auto pgc = kt::BuildPgc({}).bytes;
    pgc[164 + 1] = 0xEB; pgc[164 + 2] = 0x80; pgc[164 + 3] = 0x80;
    auto r = Report(pgc, 2);
    auto lines = Lines(r.text);
    ASSERT_EQ(lines.size(), 74u);
    EXPECT_EQ(r.result, int(r.text.size()));
    const std::pair<size_t, const char*> expected[] = {
        {0, "  PGC: Number of Programs: 0"},
        {1, "  PGC: Number of Cells: 0"},
        {2, "  PGC: Play Back Time: 01:23:45.27"},
        {3, "  PGC: Prohibited user operations: 00a1b2c3"},
        {5, "  PGC: Audio stream 2 status: 8101"},
        {43, "  PGC: Sub-Picture stream 32 status: 801f001f"},
        {44, "  PGC: Next PGC number: 2"},
        {46, "  PGC: Go Up PGC number: 4"},
        {47, "  PGC: PG Play back mode: 81"},
        {48, "  PGC: Still time in seconds (255 = infinite): 255"},
        {49, "  PGC: Sub-Picture palette as YCrCb:"},
        {50, "    Color 0: 235-128-128"},
        {65, "    Color 15: 031-143-079"},
        {66, "  PGC: Memory offset of PGC Command Table: 0"},
        {67, "      There is no PGC Command Table"},
        {68, "  PGC: Memory offset of PGC Program Map: 0"},
        {69, "      There is no PGC Program Map"},
        {71, "      There is no PGC Playback Information Table"},
        {73, "      There is no Cell Position Information Table"},
    };
    for (const auto& e : expected) EXPECT_EQ(lines[e.first], e.second) << e.first;

    // Counts without their tables are reported as errors and the report goes on.
    pgc[2] = 3;
    pgc[3] = 2;
    lines = Lines(Report(pgc, 0).text);
    ASSERT_EQ(lines.size(), 77u);
    EXPECT_EQ(lines[70], "      This is an ERROR as there are 3 programs");
    EXPECT_EQ(lines[73], "      This is an ERROR as there are 2 cells in this program.");
    EXPECT_EQ(lines[76], "      This is an ERROR as there are 2 cells");
}

TEST(PgcReport, TablesAndCommandRenderingByIndentation) {
    kt::PgcShape shape;
    shape.pre = {kt::Command{0x20, 0x04, 0, 0, 0, 0, 0, 3}};
    shape.cell = {kt::Command{0x30, 0x01, 0, 0, 0, 0, 0, 0}, kt::Command{}};
    shape.programs = 1;
    shape.cells = 1;
    struct Case {
        unsigned short indent;
        const char* pre1;
        const char* cell2;
    } cases[] = {
        {2, "        1: 2004000000000003 ", "        2: 0000000000000000 "},
        {3, "         1: 2004000000000003 ", "         2: 0000000000000000 "},
        {4, "          1: 2004000000000003  Lnk  to PGC 3",
         "          2: 0000000000000000  No Operation"},
        {5, "           1: 2004000000000003 Lnk  to PGC 3",
         "           2: 0000000000000000 No Operation"},
    };
    for (const auto& c : cases) {
        auto pgc = kt::BuildPgc(shape).bytes;
        auto lines = Lines(Report(pgc, c.indent).text);
        const std::string in(c.indent, ' ');
        ASSERT_EQ(lines.size(), 66u + 1 + 3 + 3 + 1 + 1 + 1 + 6 + 1 + 1) << c.indent;
        EXPECT_EQ(lines[66], in + "PGC: Memory offset of PGC Command Table: 236");
        EXPECT_EQ(lines[67], in + "    There are 1 Pre Commands");
        EXPECT_EQ(lines[68], c.pre1);
        EXPECT_EQ(lines[69], in + "    There are 0 Post Commands");
        EXPECT_EQ(lines[70], in + "    There are 2 Cell Commands");
        EXPECT_EQ(lines[72], c.cell2);
        EXPECT_EQ(lines[73], in + "PGC: Memory offset of PGC Program Map: 268");
        EXPECT_EQ(lines[74], in + "    Entry cell number for Program 1: 1");
        EXPECT_EQ(lines[75], in + "PGC: Memory offset of Cell Playback Information Table: 270");
        EXPECT_EQ(lines[76], in + "    Cell 1 category: 0 2 0 4");
        EXPECT_EQ(lines[77], in + "    Cell 1 Play Back Time: 00:01:30.00");
        EXPECT_EQ(lines[78], in + "    Cell 1 entry point sector: 100");
        EXPECT_EQ(lines[79], in + "    Cell 1 first ILVU VOBU end sector: 107");
        EXPECT_EQ(lines[80], in + "    Cell 1 start sector of last VOUB: 1000");
        EXPECT_EQ(lines[81], in + "    Cell 1 last sector of this cell: 1099");
        EXPECT_EQ(lines[82], in + "PGC: Memory offset of Cell Position Information Table: 294");
        EXPECT_EQ(lines[83], in + "    VOB ID number 1 of this Cell 1");
    }
}

TEST(PgcReport, RoomTestAllowsTheIndentationPlusThree) {
    kt::PgcShape shape;
    shape.cells = 1;
    auto pgc = kt::BuildPgc(shape).bytes;
    const unsigned short indent = 5;
    const auto full = Report(pgc, indent);
    const std::string last = "    VOB ID number 1 of this Cell 1";
    const int before = full.result - int(indent + last.size() + 2);
    // The last line fits while its text, without indentation, plus what was
    // written stays below room.
    auto fits = Report(pgc, indent, before + int(last.size()) + 1);
    EXPECT_EQ(fits.result, full.result);
    EXPECT_EQ(fits.text, full.text);
    auto misses = Report(pgc, indent, before + int(last.size()));
    EXPECT_EQ(misses.result, 0);
    EXPECT_EQ(misses.text, full.text.substr(0, size_t(before)));
    // Nothing at all fits.
    auto none = Report(pgc, indent, int(std::strlen("PGC: Number of Programs: 0")));
    EXPECT_EQ(none.result, 0);
    EXPECT_EQ(none.text, "");

    // A command line is tested with its rendering's position and length.
    kt::PgcShape cmd;
    cmd.pre = {kt::Command{}};
    pgc = kt::BuildPgc(cmd).bytes;
    const auto withCmd = Report(pgc, 2);
    const size_t at = withCmd.text.find("        1: 0000000000000000 \r\n");
    ASSERT_NE(at, std::string::npos);
    const int L = int(std::strlen("      1: 0000000000000000 "));
    const int renderingEnd = L + 4 + int(std::strlen(" No Operation"));
    pgc = kt::BuildPgc(cmd).bytes;
    EXPECT_EQ(Report(pgc, 2, int(at) + renderingEnd).text, withCmd.text.substr(0, at));
    pgc = kt::BuildPgc(cmd).bytes;
    EXPECT_EQ(Report(pgc, 2, int(at) + renderingEnd + 1).text.size(), at + 2 + size_t(L) + 2);
}

TEST(PgcReport, HeaderIsConvertedInTheCallersBuffer) {
    kt::PgcShape shape;
    shape.pre = {kt::Command{}};
    shape.post = {kt::Command{}, kt::Command{}};
    auto pgc = kt::BuildPgc(shape).bytes;
    auto first = Report(pgc, 4).text;
    EXPECT_NE(first.find("There are 1 Pre Commands"), std::string::npos);
    const uint8_t swapped[8] = {1, 0, 2, 0, 0, 0, 31, 0};
    EXPECT_EQ(std::memcmp(&pgc[236], swapped, 8), 0);
    // A second report of the same buffer reads the counts byte-swapped; the
    // commands it then lists lie beyond the buffer and read as zeros.
    auto second = Report(pgc, 4, 1 << 20, 0, long(pgc.size())).text;
    EXPECT_NE(second.find("There are 256 Pre Commands"), std::string::npos);
    EXPECT_NE(second.find("There are 512 Post Commands"), std::string::npos);
    EXPECT_NE(second.find("          512: 0000000000000000  No Operation"), std::string::npos);
}

TEST(PgcReport, DamagedPgcsReadZerosBeyondTheData) {
    kt::PgcShape shape;
    shape.pre = {kt::Command{0x30, 0x01, 0, 0, 0, 0, 0, 0}};
    shape.programs = 1;
    shape.cells = 2;
    auto good = kt::BuildPgc(shape).bytes;
    struct Case {
        const char* name;
        size_t offset;
        size_t keep;  // bytes of the PGC handed over
        size_t cmdtAt;
    } cases[] = {
        {"cut inside the general information", 0, 100, 236},
        {"cut inside the command header", 0, 239, 236},
        {"offset beyond the data", 5000, 0, 236},
        {"command table far away", 0, 0, 0xFFF0},
    };
    for (const auto& c : cases) {
        auto pgc = good;
        kt::PutBE16(pgc, 228, uint32_t(c.cmdtAt));
        kt::PutBE16(pgc, 236, 0xFFFF);  // a huge pre-command count
        std::vector<uint8_t> held(pgc.begin(), pgc.begin() + long(c.keep ? c.keep : pgc.size()));
        const std::vector<uint8_t> before = held;
        auto r = Report(held, 5, 1 << 22, c.offset, long(held.size()));
        EXPECT_GT(r.result, 0) << c.name;
        EXPECT_NE(r.text.find("PGC: Memory offset of Cell Position Information Table"),
                  std::string::npos)
            << c.name;
        // Only the header words wholly inside the data are swapped.
        for (size_t i = 0; i < held.size(); ++i)
            if (i < c.cmdtAt || i >= c.cmdtAt + 8 || c.offset >= held.size()) {
                EXPECT_EQ(held[i], before[i]) << c.name << " byte " << i;
            }
    }
    // An indentation beyond the line buffer neither overflows nor crashes.
    auto pgc = good;
    auto wide = Report(pgc, 300);
    EXPECT_GT(wide.result, 0);
}

TEST(PgcReport, RealTitlePgc) {
    auto pgcs = kt::CorpusPgcs();
    KT_SKIP_IF_EMPTY(pgcs);
    int reported = 0;
    for (auto& p : pgcs) {
        if (p.name.find(" title") == std::string::npos) continue;
        auto& f = p.file;
        const size_t at = p.offset;
        const unsigned programs = f[at + 2] & 0x7F, cells = f[at + 3];
        const size_t cmdt = kt::BE16(f, at + 228);
        const unsigned commands = cmdt ? unsigned(kt::BE16(f, at + cmdt)) + kt::BE16(f, at + cmdt + 2) +
                                             kt::BE16(f, at + cmdt + 4)
                                       : 0;
        auto r = Report(f, 5, 1 << 20, at, long(f.size()));
        auto lines = Lines(r.text);
        ASSERT_GT(r.result, 0) << p.name;
        EXPECT_EQ(lines.size(), 66u + (cmdt ? 4 + commands : 2) + 1 + programs + 1 + 6 * cells +
                                    1 + cells)
            << p.name;
        EXPECT_EQ(lines[0], "     PGC: Number of Programs: " + std::to_string(programs));
        // Every command line carries its rendering right after the bytes.
        int commandLines = 0;
        for (const auto& l : lines)
            if (l.size() > 12 && l.compare(0, 11, "           ") == 0 && std::isdigit(l[11])) {
                ++commandLines;
                EXPECT_GT(l.size(), 31u) << l;
                EXPECT_EQ(l[30], ' ') << l;
                EXPECT_NE(l[31], ' ') << l;
            }
        EXPECT_EQ(unsigned(commandLines), commands) << p.name;
        ++reported;
    }
    EXPECT_GT(reported, 0);
}

}  // namespace
