// Part-of-title search pointer table: report, source, assembly and writing.
#include <cstring>

#include "kestro/vts.h"
#include "vts_util.h"

using vt::Bytes;

namespace {

// Two title units of three and two chapters, playing PGC 1 and PGC 2.
std::vector<uint8_t> TwoTitles() {
    Bytes b;
    b.be16(2).be16(0).be32(35).be32(16).be32(28);
    for (int p = 1; p <= 3; ++p) b.be16(1).u8(0).u8(p);
    for (int p = 1; p <= 2; ++p) b.be16(2).u8(0).u8(p);
    return b.v;
}

std::string Report(CKestro_PTT_SRPT& t, int len = 1 << 16, bool* ok = nullptr) {
    std::vector<char> buf(size_t(len) + 3, 0);
    bool r = t.Details(buf.data(), len);
    if (ok) *ok = r;
    return buf.data();
}

TEST(PttSrpt, ReportsTitleUnitsAndTheirChapters) {
    kt::TempDir dir;
    vt::Handle f(vt::PlaceTable(dir, "a.ifo", TwoTitles(), 3));
    CKestro_PTT_SRPT t;
    EXPECT_EQ(t.Load(f.h, 0), 0);
    ASSERT_EQ(t.Load(f.h, 3), 1);
    kestro::FileSeek(f.h, 100, 0);
    bool ok = false;
    EXPECT_EQ(Report(t, 1 << 16, &ok),
              "Number of Title Unit Serch Pointers TTUs in the VTS: 2\r\n"
              "End byte address of PTT_SRPT table: 35\r\n"
              "  Starting memory address of TTU 1: 16\r\n"
              "  Starting memory address of TTU 2: 28\r\n"
              "PTT Number 1:\r\n"
              "    Program chain number (PGCN): 1 Program number (PG): 1\r\n"
              "    Program chain number (PGCN): 1 Program number (PG): 2\r\n"
              "    Program chain number (PGCN): 1 Program number (PG): 3\r\n"
              "PTT Number 2:\r\n"
              "    Program chain number (PGCN): 2 Program number (PG): 1\r\n"
              "    Program chain number (PGCN): 2 Program number (PG): 2\r\n");
    EXPECT_TRUE(ok);
    EXPECT_EQ(kestro::FileTell(f.h), 100u) << "the caller's position is kept";
    // The first line is 54 characters: a room of 54 does not take it.
    EXPECT_EQ(Report(t, 54, &ok), "");
    EXPECT_FALSE(ok);
    EXPECT_EQ(Report(t, 55, &ok), "Number of Title Unit Serch Pointers TTUs in the VTS: 2\r\n");
    EXPECT_FALSE(ok);
}

TEST(PttSrpt, EmptyTableFailsTheReportButDisassembles) {
    kt::TempDir dir;
    vt::Handle f(vt::PlaceTable(dir, "a.ifo", Bytes().be16(0).be16(0).be32(7).v));
    CKestro_PTT_SRPT t;
    ASSERT_EQ(t.Load(f.h, 1), 1);
    bool ok = true;
    EXPECT_EQ(vt::Lines(Report(t, 4096, &ok)).size(), 2u);
    EXPECT_FALSE(ok);
    EXPECT_EQ(vt::ErrorText(t), "  ERROR: vts_ttu_ns = 0");
    std::string ini = dir / "s.ini";
    EXPECT_TRUE(t.Disasm(ini.c_str()));
    EXPECT_EQ(vt::Ini(ini, "vts_ptt_srpt", "vts_ttu_ns"), "0");
    EXPECT_EQ(vt::Ini(ini, "vts_ptt_srpt", "vts_ptt_srpt_ea"), "7");
    EXPECT_EQ(vt::Ini(ini, "vts_ptt_srpt", "ttu_sa01"), "$");
}

TEST(PttSrpt, SourceRoundTripIsByteExact) {
    kt::TempDir dir;
    std::vector<uint8_t> table = TwoTitles();
    vt::Handle f(vt::PlaceTable(dir, "a.ifo", table));
    CKestro_PTT_SRPT loaded;
    ASSERT_EQ(loaded.Load(f.h, 1), 1);
    std::string ini = dir / "s.ini";
    ASSERT_TRUE(loaded.Disasm(ini.c_str()));
    const char* want[][2] = {{"vts_ttu_ns", "2"},         {"vts_ptt_srpt_ea", "35"},
                             {"ttu_sa01", "16"},          {"ttu_sa02", "28"},
                             {"000ptt_srp", "001 001 001"}, {"002ptt_srp", "001 001 003"},
                             {"003ptt_srp", "002 002 001"}, {"004ptt_srp", "002 002 002"}};
    for (auto& kv : want) EXPECT_EQ(vt::Ini(ini, "vts_ptt_srpt", kv[0]), kv[1]) << kv[0];

    CKestro_PTT_SRPT built;
    ASSERT_TRUE(built.Asm(ini.c_str()));
    unsigned long sectors = 9, ea = 9;
    built.Get(&sectors, &ea);
    EXPECT_EQ(sectors, 1u);
    EXPECT_EQ(ea, 35u);
    vt::Output out(dir / "o.bin");
    EXPECT_FALSE(built.Write(out.h)) << "Write reports false after a complete write";
    // A second Write without a new Asm has the header and start addresses only.
    EXPECT_FALSE(built.Write(out.h));
    out.Close();
    std::vector<uint8_t> got = kt::ReadBytes(out.path);
    ASSERT_EQ(got.size(), 4096u);
    table.resize(2048);
    EXPECT_EQ(vt::Slice(got, 0, 2048), table);
    EXPECT_EQ(vt::Slice(got, 2048, 16), vt::Slice(table, 0, 16));
}

struct AsmCase {
    const char* name;
    std::vector<std::pair<std::string, std::string>> statements;
    bool ok;
    uint32_t ea;
    std::vector<uint8_t> body;  // what follows the 8-byte header
    const char* error;
};

TEST(PttSrpt, AssemblesFromFixedColumns) {
    const AsmCase cases[] = {
        {"missing count", {{"000ptt_srp", "001 001 001"}}, false, 0, {},
         "IFO assembler error! In vts_ttu_ns"},
        {"no entries", {{"vts_ttu_ns", "2"}}, true, 15, Bytes().be32(16).be32(16).v, ""},
        {"gap ends the entries",
         {{"vts_ttu_ns", "1"}, {"000ptt_srp", "001 002 003"}, {"001ptt_srp", "001 002 004"},
          {"003ptt_srp", "001 009 009"}},
         true, 19, Bytes().be32(12).be16(2).be16(3).be16(2).be16(4).v, ""},
        {"four-digit field is cut by the columns",
         {{"vts_ttu_ns", "1"}, {"000ptt_srp", "001 1000 001"}}, true, 15,
         Bytes().be32(12).be16(100).be16(1).v, ""},
        {"TTU number beyond the count",
         {{"vts_ttu_ns", "1"}, {"000ptt_srp", "002 001 001"}}, false, 0, {},
         "IFO assembler error! [000ptt_srp] names TTU 2 outside 1 to vts_ttu_ns (1)"},
        {"TTU number zero", {{"vts_ttu_ns", "1"}, {"000ptt_srp", "000 001 001"}}, false, 0, {},
         "IFO assembler error! [000ptt_srp] names TTU 0 outside 1 to vts_ttu_ns (1)"},
        {"too many title units", {{"vts_ttu_ns", "1000"}}, false, 0, {},
         "IFO assembler error! vts_ttu_ns = 1000, at most 999 title units are supported"},
        {"short value reads empty fields", {{"vts_ttu_ns", "1"}, {"000ptt_srp", "1"}}, true, 15,
         Bytes().be32(12).be32(0).v, ""},
    };
    for (const auto& c : cases) {
        kt::TempDir dir;
        std::string ini = dir / "s.ini";
        for (auto& kv : c.statements) vt::SetIni(ini, "vts_ptt_srpt", kv.first.c_str(), kv.second);
        INIFlushFiles();
        CKestro_PTT_SRPT t;
        EXPECT_EQ(t.Asm(ini.c_str()), c.ok) << c.name;
        EXPECT_EQ(vt::ErrorText(t), c.error) << c.name;
        unsigned long sectors = 7, ea = 7;
        t.Get(&sectors, &ea);
        EXPECT_EQ(ea, c.ea) << c.name;
        if (!c.ok) continue;
        vt::Output out(dir / "o.bin");
        t.Write(out.h);
        out.Close();
        std::vector<uint8_t> got = kt::ReadBytes(out.path);
        EXPECT_EQ(vt::Slice(got, 8, c.body.size()), c.body) << c.name;
    }
}

// Unsorted, overlapping and far-away start addresses, an end address far
// beyond the file and a file cut short: reported and disassembled without
// reading foreign memory, and without an endless stream of entries.
TEST(PttSrpt, DamagedTablesStayBounded) {
    kt::TempDir dir;
    const std::vector<uint8_t> tables[] = {
        Bytes().be16(3).be16(0).be32(0xFFFFFFF0u).be32(20).be32(8).be32(0x7FFFFFFF).be32(1).v,
        Bytes().be16(65535).be16(0).be32(40).be32(16).v,
        Bytes().be16(2).be16(0).be32(4000).be32(16).be32(0).v,
    };
    for (const auto& table : tables) {
        vt::Handle f(vt::PlaceTable(dir, "d.ifo", table, 1, false));
        CKestro_PTT_SRPT t;
        ASSERT_EQ(t.Load(f.h, 1), 1);
        std::string text = Report(t, 1 << 20);
        EXPECT_LT(text.size(), 1u << 20);
        std::string ini = dir / "d.ini";
        EXPECT_TRUE(t.Disasm(ini.c_str()));
        kestro::FileDelete(ini.c_str());
    }
}

}  // namespace
