// Title PGC information table: report with the PGC reports, source through
// the codec, assembly, size and writing.
#include <cstring>

#include "kestro/vts.h"
#include "vts_util.h"

using vt::Bytes;

namespace {

// A PGC of the general information only: no programs, cells or tables.
std::vector<uint8_t> BarePgc() {
    Bytes b;
    b.zeros(4).be32(0x00013040).zeros(236 - 8);
    return b.v;
}

// A PGC with one pre command, two programs and two cells: 310 bytes.
std::vector<uint8_t> FullPgc() {
    Bytes b;
    b.be16(0).u8(2).u8(2).be32(0x00012500).be32(0).zeros(16 + 128);
    b.be16(0).be16(0).be16(1).u8(0).u8(255);
    for (int i = 0; i < 16; ++i) b.be32(0x00108080 + i);
    b.be16(236).be16(252).be16(254).be16(302);
    b.be16(1).be16(0).be16(0).be16(15).be32(0x30020000).be32(0x00010000);
    b.u8(1).u8(2);
    for (int c = 0; c < 2; ++c) b.be32(0).be32(0x00003000).be32(100 * c).be32(0).be32(100 * c + 50).be32(100 * c + 99);
    b.be16(1).u8(0).u8(1).be16(1).u8(0).u8(2);
    return b.v;
}

std::vector<uint8_t> TwoPgcTable() {
    std::vector<uint8_t> a = BarePgc(), c = FullPgc();
    Bytes b;
    b.be16(2).be16(0).be32(uint32_t(24 + a.size() + c.size() - 1));
    b.be32(0x81000000).be32(24).be32(0x02000000).be32(uint32_t(24 + a.size()));
    return b.raw(a).raw(c).v;
}

// The report: the table's lines, each PGC's report indented by five, a lone
// blank line after each. Then rooms from nothing to the whole report, in a
// heap buffer of exactly room + 3 bytes: never written past (the sanitizer
// build checks). A PGC
// report that does not fit is dropped and the table's lines go on, so a
// report may succeed without every PGC; from the room that holds the whole
// text (three bytes of headroom) on, the text is complete and unchanged.
TEST(VtsPgcit, ReportWithEachPgcNeverOverrunsTheBuffer) {
    kt::TempDir dir;
    vt::Handle f(vt::PlaceTable(dir, "a.ifo", TwoPgcTable()));
    CKestro_VTS_PGCIT t;
    ASSERT_EQ(t.Load(f.h, 1), 1);
    CKestro_PGCI codec;
    std::vector<char> big(1 << 16);
    ASSERT_TRUE(t.Details(&codec, big.data(), int(big.size()) - 3));
    std::string full = big.data();
    std::vector<std::string> lines = vt::Lines(full);
    ASSERT_GT(lines.size(), 82u);
    const char* head[] = {"Number of VTS_PGCI_SRP: 2", "End byte address of VTS_PGCI table: 569",
                          "  VTS_PGC Category 1: 81000000", "  VTS_PGCI memory offset address 1: 24",
                          "    Program Chain Information Table (PGCI) 1",
                          "     PGC: Number of Programs: 0"};
    for (size_t i = 0; i < 6; ++i) EXPECT_EQ(lines[i], head[i]);
    EXPECT_EQ(lines[5 + 74], " ") << "the bare PGC's report has 74 lines";
    EXPECT_EQ(lines[5 + 75], "  VTS_PGC Category 2: 02000000");
    EXPECT_EQ(lines.back(), " ");
    EXPECT_NE(full.find("\r\n           1: 3002000000010000 "), std::string::npos);
    int total = int(full.size());
    int firstFull = -1;
    for (int len = 0; len <= total + 4; len += (len < 400 || len > total - 400) ? 1 : 13) {
        std::unique_ptr<char[]> buf(new char[size_t(len) + 3]());
        bool ok = t.Details(&codec, buf.get(), len);
        ASSERT_LE(std::strlen(buf.get()), size_t(len) + 2) << len;
        if (ok && full == buf.get() && firstFull < 0) firstFull = len;
        if (firstFull >= 0) {
            EXPECT_EQ(full, buf.get()) << len;
        }
    }
    EXPECT_EQ(firstFull, total - 2);
}

TEST(VtsPgcit, SourceRoundTripIsByteExact) {
    kt::TempDir dir;
    std::vector<uint8_t> table = TwoPgcTable();
    vt::Handle f(vt::PlaceTable(dir, "a.ifo", table));
    CKestro_VTS_PGCIT loaded;
    ASSERT_EQ(loaded.Load(f.h, 1), 1);
    std::string ini = dir / "s.ini";
    CKestro_PGCI codec;
    ASSERT_TRUE(loaded.Disasm(ini.c_str(), &codec));
    EXPECT_EQ(vt::Ini(ini, "vts_pgcit", "vts_pgci_srp_ns"), "2");
    EXPECT_EQ(vt::Ini(ini, "vts_pgcit", "vts_pgcit_ea"), "569");
    EXPECT_EQ(vt::Ini(ini, "vts_pgcit", "vts_pgc_cat02"), "02000000");
    EXPECT_EQ(vt::Ini(ini, "vts_pgcit", "vts_pgci_sa02"), "260");
    EXPECT_EQ(vt::Ini(ini, "vts_pgcit02", "vts_pgc_pre1"), "3002000000010000");
    EXPECT_EQ(vt::Ini(ini, "vts_pgcit01", "vts_pgc_pb_tm"), "00013040");

    CKestro_VTS_PGCIT built;
    ASSERT_TRUE(built.Asm(ini.c_str(), &codec));
    unsigned long sectors = 0, bytes = 0;
    built.Get(&sectors, &bytes);
    EXPECT_EQ(bytes, 570u);
    EXPECT_EQ(sectors, 1u);
    vt::Output out(dir / "o.bin");
    EXPECT_TRUE(built.Write(out.h));
    out.Close();
    table.resize(2048);
    EXPECT_EQ(kt::ReadBytes(out.path), table);
}

struct Refusal {
    const char* name;
    std::vector<std::pair<const char*, const char*>> statements;
    const char* error;
    unsigned long bytes;  // Get afterwards
};

TEST(VtsPgcit, AssemblesOnlyCompleteSources) {
    const Refusal cases[] = {
        {"missing count", {}, "[vts_pgci_srp_ns] Statement missing in vts_pgciti", 8},
        {"no PGCs", {{"vts_pgci_srp_ns", "0"}}, "", 8},
        {"missing category of PGC 2",
         {{"vts_pgci_srp_ns", "3"}, {"vts_pgc_cat01", "81000000"}, {"vts_pgc_cat03", "0"}},
         "[vts_pgc_cat02] Statement missing in vts_pgciti", 8 + 8 + 236},
        {"more than 256 PGCs",
         {{"vts_pgci_srp_ns", "257"}},
         "[vts_pgci_srp_ns] 257 PGCs in vts_pgciti, at most 256 are supported", 8},
    };
    for (const auto& c : cases) {
        kt::TempDir dir;
        std::string ini = dir / "s.ini";
        vt::SetIni(ini, "other", "k", "v");
        for (auto& kv : c.statements) vt::SetIni(ini, "vts_pgcit", kv.first, kv.second);
        INIFlushFiles();
        CKestro_VTS_PGCIT t;
        CKestro_PGCI codec;
        EXPECT_EQ(t.Asm(ini.c_str(), &codec), !*c.error) << c.name;
        EXPECT_EQ(vt::ErrorText(t), c.error) << c.name;
        unsigned long sectors = 0, bytes = 0;
        t.Get(&sectors, &bytes);
        EXPECT_EQ(bytes, c.bytes) << c.name;
    }
}

// Search pointers and PGC contents pointing outside the table: reported and
// disassembled from zeros, never from foreign memory.
TEST(VtsPgcit, DamagedTablesStayInsideTheBody) {
    kt::TempDir dir;
    Bytes pgc;
    pgc.be16(0).u8(0x7F).u8(255).zeros(224).be16(2000).be16(3000).be16(4000).be16(60000);
    const std::vector<uint8_t> tables[] = {
        Bytes().be16(3).be16(0).be32(0x7FFFFFFF).be32(1).be32(0xFFFFFFF0).be32(2).be32(3).zeros(800).v,
        Bytes().be16(1).be16(0).be32(300).be32(0).be32(16).raw(pgc.v).zeros(300).v,
        Bytes().be16(60000).be16(0).be32(20).v,
        Bytes().be16(60000).be16(0).be32(20000).zeros(20000).v,
    };
    for (const auto& table : tables) {
        vt::Handle f(vt::PlaceTable(dir, "d.ifo", table, 1, false));
        CKestro_VTS_PGCIT t;
        ASSERT_EQ(t.Load(f.h, 1), 1);
        CKestro_PGCI codec;
        std::vector<char> buf(1 << 18);
        t.Details(&codec, buf.data(), int(buf.size()) - 3);
        std::string ini = dir / "d.ini";
        EXPECT_TRUE(t.Disasm(ini.c_str(), &codec));
        kestro::FileDelete(ini.c_str());
    }
}

}  // namespace
