// The PGC codec: command texts, the report's lines and room, the source and its checks, limits.
#include <algorithm>
#include <cstring>

#include "kestro/ini.h"
#include "kestro/pgc.h"
#include "pgc_fixture.h"
#include "tables_util.h"

namespace {

// The source of the PGC at `offset` of a copy (its header is converted), as "sec", prefix "p_".
std::string Source(const std::string& ini, std::vector<uint8_t> file, size_t offset = 0) {
    CKestro_PGCI codec;
    EXPECT_TRUE(codec.DisasmPGCI(ini.c_str(), file.data(), offset, "p_", "sec", file.size()));
    return ini;
}
void Set(const std::string& ini, const std::string& key, const char* v) {
    INIWritePrivateProfileString("sec", ("p_" + key).c_str(), v, ini.c_str());
}
// Assembles a source; sizing again afterwards leaves out the cell tables, which were consumed.
std::vector<uint8_t> Assemble(const std::string& ini) {
    CKestro_PGCI codec;
    if (!codec.AsmPGCI(ini.c_str(), "sec", "p_")) return {};
    std::vector<uint8_t> out(codec.GetPGCISize(), 0);
    EXPECT_TRUE(codec.GetPGCData(out.data(), out.size()));
    EXPECT_EQ(codec.GetPGCISize(), kt::Be(out, 232) ? kt::Be(out, 232) : out.size());
    return out;
}

// The PGC at `at` of a real file, its parts back to back in the assembler's order and offsets.
std::vector<uint8_t> InAssemblerOrder(const std::vector<uint8_t>& f, size_t at) {
    std::vector<uint8_t> out(f.begin() + long(at), f.begin() + long(at + 228));
    out.resize(236, 0);
    const size_t cmd = at + kt::Be(f, at + 228), programs = f[at + 2] & 0x7Fu, cells = f[at + 3];
    const size_t sizes[] = {8 * (1 + kt::Be(f, cmd) + kt::Be(f, cmd + 2) + kt::Be(f, cmd + 4)),
                            programs + (programs & 1), 24 * cells, 4 * cells};
    for (size_t part = 0, field = 228; part < 4; ++part, field += 2) {
        const size_t from = at + kt::Be(f, at + field);
        if (from == at || !sizes[part]) continue;
        kt::PutBE(out, field, uint32_t(out.size()), 2);
        for (size_t i = from; i < from + sizes[part]; ++i)  // the map's padding byte is zero
            out.push_back(i < f.size() && (part != 1 || i < from + programs) ? f[i] : 0);
    }
    return out;
}

// Built and real PGCs come back byte for byte; the writer refuses a buffer short of any part.
TEST(PgcSource, PgcsComeBackByteForByte) {
    kt::TempDir dir;
    const kt::Command jump{0x30, 6, 0, 1, 2, 0x83, 0, 0}, link{0x20, 4, 0, 0, 0, 0, 0, 3};
    const std::vector<kt::Command> many(128, link);  // 384 commands: the store's capacity
    const kt::PgcShape shapes[] = {{{kt::Command{0x30, 2, 0, 0, 0, 1, 0, 0}}, {}, {}, false, 2, 3},
                                   {},
                                   {{jump, link}, {link}, {jump, jump, link}, true, 0, 0},
                                   {{}, {link}, {}, true, 4, 5},
                                   {{jump}, {}, {}, true, 127, 255},
                                   {many, many, many, true, 1, 1}};
    int n = 0;
    for (const auto& s : shapes)
        EXPECT_EQ(Assemble(Source(dir / std::to_string(n++), kt::BuildPgc(s))), kt::BuildPgc(s));
    size_t total = 0, asInFile = 0;
    for (const auto& [name, file, offset] : kt::CorpusPgcs()) {
        auto back = Assemble(Source(dir / std::to_string(n++), file, offset));
        const auto want = InAssemblerOrder(file, offset);
        EXPECT_TRUE(back == want) << name << " PGC at byte " << offset << ": "
                                  << tt::Mismatch(back, want);
        ++total;
        asInFile += std::equal(back.begin(), back.end(), file.begin() + long(offset),
                               file.begin() + long(std::min(file.size(), offset + back.size())));
    }
    EXPECT_GT(2 * asInFile, total) << "most real PGCs come back as the file's own bytes";
    const std::string first = dir / "0";  // sectors above 2^31 are written signed
    EXPECT_EQ(tt::Value(first, "sec", "p_c_pbit_cell001_fvobu_sa"), "-1465011529");
    // One byte short of each part's end (cell positions, playback, map, commands, general).
    CKestro_PGCI codec;
    for (unsigned long room : {337ul, 325ul, 253ul, 251ul, 235ul}) {
        ASSERT_TRUE(codec.AsmPGCI(first.c_str(), "sec", "p_"));  // 338 bytes
        std::vector<uint8_t> out(room + 1, 0xAA);
        EXPECT_FALSE(codec.GetPGCData(out.data(), room) || out[room] != 0xAA) << room;
        EXPECT_EQ(tt::Error(codec), "Internal error, data size exceeds buffer size");
        EXPECT_EQ(codec.GetPGCISize(), 236u + 16 + 2) << "cells released on failure";
    }
}

// Each refused source gives its exact message; the stores stop reading at their capacity.
TEST(PgcSource, ChecksMessagesAndLimits) {
    kt::TempDir dir;
    // A statement replaced ("$x": missing); the error ("": none, "M": missing statement, "@": path)
    const struct {
        int programs, cells, pre;
        const char *key, *value, *error;
    } cases[] = {
        {3, 0, 0, "cnt", "00000400", ""},  // the padding byte counts as a program
        {3, 0, 0, "cnt", "00008200",       // the high bit of the program count is not read
         "Number of Programs in cnt [2] not equal to number of programs defined in PGMAP_PROG [4]"},
        {0, 4, 0, "c_pbit_cell003_cat", "$x",
         "In [@] at [sec] the number of Cells in cnt not equal to number of cells defined in "
         "C_PBIT. Cell count = 4 and C_PBIT = 2 "},
        {0, 2, 0, "c_pbit_cell002_lvobu_sa", "$x", "M"},
        {0, 1, 0, "c_posit_cell001_cellid", "$x", "M"},
        {0, 0, 2, "pre2", "$x", "M"},
        {0, 0, 0, "sp_plt16", "$x", "M"},
        {0, 0, 0, "cnt", "$", "M"},
        {0, 0, 1, "cmdt_pre_ns", "385",  // a long path: the message is cut to 259 characters
         "In [sec] of @ the command table declares 385 commands, more than the 384 allowed"},
    };
    int n = 0;
    for (const auto& [programs, cells, pre, key, value, error] : cases) {
        const bool last = ++n == int(std::size(cases));
        const std::string ini = Source(
            dir / (last ? std::string(240, 'd') : std::to_string(n)),
            kt::BuildPgc({std::vector<kt::Command>(size_t(pre)), {}, {}, false, programs, cells}));
        Set(ini, key, value);
        const std::string m =
            "[p_" + std::string(key) + "] statement missing from section sec of @";
        std::string want = *error == 'M' ? m : error;
        if (want.find('@') != std::string::npos) want.replace(want.find('@'), 1, ini);
        CKestro_PGCI codec;
        EXPECT_EQ(codec.AsmPGCI(ini.c_str(), "sec", "p_"), want.empty()) << key;
        EXPECT_EQ(tt::Error(codec), want.substr(0, 259));
        EXPECT_TRUE(!last || codec.GetPGCISize() == 236) << "no command table kept";
    }
    // The stores hold 256 cells and 256 program-map bytes; more statements are not read.
    const std::string ini = Source(dir / "s.ini", kt::BuildPgc({}));
    for (int i = 1; i <= 257; ++i) {
        Set(ini, "pgmap_prog_entry_cell" + std::string(i < 10, '0') + std::to_string(i), "1");
        const std::string cell = std::string(i < 10 ? 2 : i < 100, '0') + std::to_string(i);
        for (const char* k : {"_cat", "_pbtm", "_fvobu_sa", "_filvu_ea", "_lvobu_sa", "_lvobu_ea"})
            Set(ini, "c_pbit_cell" + cell + k, "12");
        for (const char* k : {"_vobid", "_cellid"}) Set(ini, "c_posit_cell" + cell + k, "12");
    }
    CKestro_PGCI codec;
    EXPECT_FALSE(codec.AsmPGCI(ini.c_str(), "sec", "p_"))
        << "256 cells read, which cnt cannot announce";
    EXPECT_EQ(codec.GetPGCISize(), 236u + 256 + 256 * 24 + 256 * 4);
}

// Every command family and subtype renders as its exact text, replacing what was there.
TEST(PgcCommand, RendersEveryFamilyAndSubtype) {
    const std::pair<kt::Command, const char*> cases[] = {
        {{0, 0, 0, 0, 0, 0, 0, 0}, " No Operation"},
        {{0, 0, 0, 0, 0, 0, 0, 1}, " Illegal command"},
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

// The report of the PGC at `offset` in room; the bytes with their command table header converted.
std::pair<int, std::string> Report(std::vector<uint8_t> pgc, unsigned short indent,
                                   int room = 1 << 22, size_t offset = 0,
                                   std::vector<uint8_t>* converted = nullptr) {
    CKestro_PGCI codec;
    std::vector<char> out(size_t(room) + 512, 0);
    const int n = codec.DetailsOfPGCI(indent, pgc.data(), offset, out.data(), room, pgc.size());
    if (converted) *converted = pgc;
    return {n, out.data()};
}

// Lines in order at any indentation, commands' renderings placed by it (hidden below 4); room
// counts a line without its indentation, a command line to its rendering's end, shown or not; the
// command table header is left little-endian.
TEST(PgcReport, LinesRoomAndHeaderConversion) {
    const kt::Command nop{}, link{0x20, 0x04, 0, 0, 0, 0, 0, 3};
    const std::pair<unsigned short, const char*> commandLines[] = {
        {3, "         1: 2004000000000003 "},
        {4, "          1: 2004000000000003  Lnk  to PGC 3"},
        {5, "           1: 2004000000000003 Lnk  to PGC 3"}};
    for (const auto& [indent, commandLine] : commandLines) {
        auto pgc = kt::BuildPgc({{link}, {nop, nop}, {}, false, 1, 1});
        std::memcpy(&pgc[4], "\x01\x23\x45\xE7", 4);  // play time 01:23:45, frame 27 and rate bits
        std::memcpy(&pgc[164], "\x00\xEB\x80\x80", 4);  // palette colour 0
        // Cell 1: category, play time, entry point, first ILVU end, last VOBU start, last sector.
        const auto cell = kt::Hex("01020304 00013040 00000064 0000006b 80000000 00000400");
        std::copy(cell.begin(), cell.end(), &pgc[kt::Be(pgc, 232)]);
        const auto [result, text] = Report(pgc, indent);
        auto lines = tt::Lines(text);
        ASSERT_EQ(lines.size(), 84u);
        EXPECT_EQ(result, int(text.size()));
        const std::string in(indent, ' ');
        const std::pair<size_t, std::string> expected[] = {
            {2, "PGC: Play Back Time: 01:23:45.27"},
            {4, "PGC: Audio stream 1 status: 555c"},
            {50, "  Color 0: 235-128-128"},
            {67, "    There are 1 Pre Commands"},
            {68, std::string(commandLine).substr(indent)},
            {69, "    There are 2 Post Commands"},
            {72, "    There are 0 Cell Commands"},
            {74, "    Entry cell number for Program 1: 1"},
            {77, "    Cell 1 Play Back Time: 00:01:30.00"},
            {80, "    Cell 1 start sector of last VOUB: -2147483648"},
            {83, "    VOB ID number 1 of this Cell 1"}};
        for (const auto& [i, line] : expected) EXPECT_EQ(lines[i], in + line) << i;
        // The last line has 34 characters; a command line 26, 4 more and its rendering's 14.
        const int before = result - (indent + 34 + 2), at = int(text.find(commandLine));
        EXPECT_EQ(Report(pgc, indent, before + 35).first, result);
        EXPECT_EQ(Report(pgc, indent, before + 34),
                  std::make_pair(0, text.substr(0, size_t(before))));
        EXPECT_EQ(Report(pgc, indent, at + 44).second, text.substr(0, size_t(at)));
        EXPECT_GT(Report(pgc, indent, at + 45).second.size(), size_t(at));
        Report(pgc, indent, 1 << 20, 0, &pgc);
        EXPECT_EQ(std::vector<uint8_t>(&pgc[236], &pgc[244]), kt::Hex("0100 0200 0000 1f00"));
    }
}

// Damaged PGCs read zeros past their bytes, convert only whole words, report counts without tables.
TEST(PgcReport, DamagedPgcsReadZerosBeyondTheData) {
    const auto good = kt::BuildPgc({{kt::Command{}}, {}, {}, false, 0, 2});
    const size_t cases[][3] = {{0, 100, 236}, {0, 239, 236}, {5000, 0, 236}, {0, 0, 0xFFF0}};
    for (const auto& [offset, keep, cmdt] : cases) {  // keep: the bytes held, all when 0
        auto pgc = good;
        kt::PutBE(pgc, 228, uint32_t(cmdt), 2);
        pgc[236] = pgc[237] = pgc[238] = 0xFF;
        if (keep) pgc.resize(keep);
        std::vector<uint8_t> after;
        EXPECT_GT(Report(pgc, 5, 1 << 22, offset, &after).first, 0) << keep;
        EXPECT_EQ(after, pgc) << keep;
    }
    EXPECT_GT(Report(good, 300).first, 0) << "indentation beyond the line buffer";
    auto pgc = kt::BuildPgc({{}, {}, {}, false, 3, 2});
    std::fill(&pgc[228], &pgc[236], 0);
    const auto lines = tt::Lines(Report(pgc, 0).second);
    ASSERT_EQ(lines.size(), 77u);
    EXPECT_EQ(lines[67], "    There is no PGC Command Table");
    EXPECT_EQ(lines[70], "      This is an ERROR as there are 3 programs");
    EXPECT_EQ(lines[73], "      This is an ERROR as there are 2 cells in this program.");
    EXPECT_EQ(lines[76], "      This is an ERROR as there are 2 cells");
}

}  // namespace
