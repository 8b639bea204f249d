// PTT_SRPT, VTS_PGCIT and VTS_TMAPT: reports, round trips, assembly, damage.
#include <chrono>
#include <tuple>

#include "vts_host.h"

using vt::Bytes;

namespace {

CKestro_PGCI codec;

// The PGC table reports through the codec.
std::string Report(CKestro_VTS_PGCIT& t, int room = 1 << 20, bool* ok = nullptr) {
    return tt::Text(tt::TableOps{"", [&](char* b, int n) { return t.Details(&codec, b, n); }, {}},
                    room, ok);
}

// Reports keep the caller's file position and are true only when whole; a line that does not fit
// (text before it plus the line reach the room) ends the report.
TEST(VtsTables, Reports) {
    tt::Loaded<CKestro_VTS_MAT> mat(vt::SyntheticVtsi());
    CBaseKestro *ptt = mat.t.GetVTS_PTT_SRPT(), *tmap = mat.t.GetVTS_TMAPT();
    kestro::FileSeek(mat.h, 100, 0);
    const std::string pgc = "    Program chain number (PGCN): ";
    EXPECT_EQ(tt::Text(*ptt),
              "Number of Title Unit Serch Pointers TTUs in the VTS: 2\r\n"
              "End byte address of PTT_SRPT table: 35\r\n  Starting memory address of TTU 1: 16\r\n"
              "  Starting memory address of TTU 2: 28\r\nPTT Number 1:\r\n" +
                  pgc + "1 Program number (PG): 1\r\n" + pgc + "1 Program number (PG): 2\r\n" +
                  pgc + "1 Program number (PG): 3\r\nPTT Number 2:\r\n" + pgc +
                  "2 Program number (PG): 1\r\n" + pgc + "2 Program number (PG): 2\r\n");
    EXPECT_EQ(kestro::FileTell(mat.h), 100u) << "the caller's position is kept";
    EXPECT_EQ(tt::Text(*tmap),
              "Number of VTS_TMAPS: 2\r\nEnd byte address of VTS_TMAPT_EA table: 31\r\n"
              "  Time map 1 byte start address 16.\r\n"
              "  Time map 1 contains 2 entries using time unit of 1 seconds.\r\n"
              "    Discontinuity Entry 1 at sector address 4660\r\n"
              "    Entry 2 at sector address 4700\r\n  Time map 2 byte start address 28.\r\n"
              "  Time map 2 contains 0 entries using time unit of 2 seconds.\r\n");
    for (CBaseKestro* t : {(CBaseKestro*)&mat.t, ptt, tmap}) {
        const std::string full = tt::Text(*t);
        for (size_t room = 0, used = 0; room <= full.size() + 2; ++room) {
            for (size_t end; (end = full.find("\r\n", used)) < room;) used = end + 2;
            bool ok = false;
            EXPECT_EQ(tt::Text(*t, int(room), &ok), full.substr(0, used)) << room;
            EXPECT_EQ(ok, used == full.size()) << room;
        }
    }
    tt::Loaded<CKestro_PTT_SRPT> empty(kt::Hex("0000 0000 00000007"));
    bool ok = true;  // an empty table sets its error only when its lines fit
    EXPECT_TRUE(tt::Text(empty.t, 20, &ok).empty() && !ok && tt::Error(empty.t).empty());
    EXPECT_TRUE(tt::Lines(tt::Text(empty.t, 4096, &ok)).size() == 2 && !ok);
    EXPECT_EQ(tt::Error(empty.t), "  ERROR: vts_ttu_ns = 0");
    // PGC reports: indented by five, followed by a blank line, left out when they do not fit.
    auto& pgcit = *mat.t.GetVTS_PGCIT();
    const std::string full = Report(pgcit);
    const std::vector<std::string> lines = tt::Lines(full);
    ASSERT_GT(lines.size(), 82u);
    EXPECT_EQ(full.find("Number of VTS_PGCI_SRP: 9\r\nEnd byte address of VTS_PGCI table: 2277\r\n"
                        "  VTS_PGC Category 1: 81000000\r\n  VTS_PGCI memory offset address 1: 80"
                        "\r\n    Program Chain Information Table (PGCI) 1\r\n"
                        "     PGC: Number of Programs: 0\r\n"),
              0u);
    EXPECT_EQ(lines[5 + 74] + lines[5 + 75] + lines.back(), "   VTS_PGC Category 2: 81000001 ")
        << "74 lines for a bare PGC";
    EXPECT_NE(full.find("\r\n           1: 3002000000010000 "), std::string::npos);
    for (int len : {0, 400, int(full.size()) - 3, int(full.size()) - 2}) {
        bool ok = false;
        const std::string cut = Report(pgcit, len, &ok);
        EXPECT_EQ(ok && cut == full, len == int(full.size()) - 2) << len;
    }
}

// Time-map entries go to side files (or a binary file) for Asm, byte for byte, in linear time.
TEST(VtsTables, TimeMapSourcesAreByteExact) {
    kt::TempDir dir;
    const std::string ini = dir / "x.ini", bin = dir / "x.bin";
    Bytes maps;  // maps of time units 1, 2 and 10 s with 2, 0 and 60,000 entries (bit 31: discon)
    maps.be16(3).be16(0).be32(240039).be32s({20, 32, 36});
    maps.add(kt::Hex("01 00 0002 80001234 0000125c 02 00 0000 0a 00 ea60"));
    for (uint32_t j = 0; j < 60000; ++j) maps.be32(j * 3 | (j % 97 ? 0 : 0x80000000u));
    tt::Loaded<CKestro_VTS_TMAP> tmap(maps);
    CKestro_VTS_TMAP before, back, fromBin;
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_TRUE(tmap.t.Disasm(ini.c_str()));
    EXPECT_EQ(tt::Value(ini, "vts_tmapti", "vts_tmap01_sa"), "20.");
    EXPECT_TRUE(kt::fs::exists(dir / "x TmapTable1.ini") &&
                kt::fs::exists(dir / "x TmapTable3.ini"));
    EXPECT_FALSE(kt::fs::exists(dir / "x TmapTable2.ini")) << "a map without entries has none";
    ASSERT_TRUE(before.Asm(ini.c_str()));  // each map stops at its first missing entry
    EXPECT_EQ(tt::Error(before), "[vts_tmap03_entry01_discon] Statement missing in vts_tmapti");
    ASSERT_TRUE(CKestro_VTS_TMAP::JoinTmapSideFiles(ini.c_str()) && back.Asm(ini.c_str()));
    tt::ExpectWritesOnce(back, dir / "o.bin", maps);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 30.0);
    ASSERT_TRUE(tmap.t.DisasmToFile(ini.c_str(), bin.c_str()));
    EXPECT_EQ(tt::Slice(kt::ReadBytes(bin), 0, 8), kt::Hex("34120080 5c120000"));
    ASSERT_TRUE(fromBin.AsmToFile(ini.c_str(), bin.c_str()));
    tt::ExpectWritesOnce(fromBin, dir / "o.bin", maps);
}

// Refusals, messages, and what an incomplete source writes.
TEST(VtsTables, AssemblyRulesAndMessages) {
    // Table ('p' PTT_SRPT, 'g' PGCIT, 't' TMAPT), its section's lines (';' between them), result,
    // message, and the start of what Write puts out (hex).
    const std::vector<std::tuple<char, std::string, bool, std::string, const char*>> cases = {
        {'p', "000ptt_srp=001 001 001", false, "IFO assembler error! In vts_ttu_ns", ""},
        {'p', "vts_ttu_ns=2", true, "", "0002 0000 0000000f 00000010 00000010"},
        // A gap ends the entries; fields are read from fixed columns.
        {'p', "vts_ttu_ns=1;000ptt_srp=001 1000 003;001ptt_srp=1;003ptt_srp=001 009 009", true, "",
         "0001 0000 00000013 0000000c 0064 0003 00000000"},
        {'p', "vts_ttu_ns=1;000ptt_srp=002 001 001", false,
         "IFO assembler error! [000ptt_srp] names TTU 2 outside 1 to vts_ttu_ns (1)", ""},
        {'p', "vts_ttu_ns=1000", false,
         "IFO assembler error! vts_ttu_ns = 1000, at most 999 title units are supported", ""},
        {'g', "", false, "[vts_pgci_srp_ns] Statement missing in vts_pgciti", ""},
        {'g', "vts_pgci_srp_ns=3;vts_pgc_cat01=81000000;vts_pgc_cat03=0", false,
         "[vts_pgc_cat02] Statement missing in vts_pgciti", ""},
        {'g', "vts_pgci_srp_ns=257", false,
         "[vts_pgci_srp_ns] 257 PGCs in vts_pgciti, at most 256 are supported", ""},
        {'t', "vts_tmap_ns=0", true, "", ""},
        {'t', "vts_tmap_ns=1000", false,
         "[vts_tmap_ns] 1000 time maps in vts_tmapt, at most 999 are supported", ""},
        {'t', "vts_tmap_ns=1;[vts_tmapti];vts_tmap01_tmu=4", true,
         "[vts_tmap01_map_en_ns] Statement missing in vts_tmapti", ""},
        // A missing entry: the map keeps its count and zeros, the next map goes on and lacks its
        // time unit.
        {'t',
         "vts_tmap_ns=3;[vts_tmapti];vts_tmap01_tmu=4;vts_tmap01_map_en_ns=3;"
         "vts_tmap01_entry01_discon=1;vts_tmap01_entry01_address=5;vts_tmap01_entry02_discon=0;"
         "vts_tmap01_entry03_discon=0;vts_tmap01_entry03_address=7;vts_tmap02_tmu=1;"
         "vts_tmap02_map_en_ns=0",
         true, "[vts_tmap03_tmu] Statement missing in vts_tmapti",
         "0003 0000 00000023 00000010 00000020 04 00 0003 80000005 00000000 00000000 01 00 0000"}};
    for (const auto& [kind, source, ok, error, written] : cases) {
        SCOPED_TRACE(kind + source);
        kt::TempDir dir;
        const std::string ini = dir / "s.ini";
        auto section = kind == 'p' ? "vts_ptt_srpt" : kind == 'g' ? "vts_pgcit" : "vts_tmapt";
        std::string text = "[" + (section + ("];" + source));
        std::replace(text.begin(), text.end(), ';', '\n');
        kt::WriteText(ini, text + "\n");
        CKestro_PTT_SRPT ptt;
        CKestro_VTS_PGCIT pgcit;
        CKestro_VTS_TMAP tmap;
        CBaseKestro& t = kind == 'p' ? (CBaseKestro&)ptt : kind == 'g' ? (CBaseKestro&)pgcit : tmap;
        EXPECT_EQ(kind == 'g' ? pgcit.Asm(ini.c_str(), &codec) : t.Asm(ini.c_str()), ok);
        EXPECT_EQ(tt::Error(t), error);
        if (!ok && kind != 't') continue;
        tt::Size(t);
        bool wrote = false;  // PTT_SRPT's Write reports false even after a complete write
        const auto got = tt::Written(t, dir / "o.bin", &wrote), want = kt::Hex(written);
        EXPECT_EQ(wrote, kind == 't' && !want.empty());
        EXPECT_EQ(tt::Slice(got, 0, want.size()), want);
        EXPECT_EQ(got.size(), want.empty() ? 0u : 2048u);
    }
}

// Pointers, addresses and counts outside the table are read as zeros, never endlessly; a body cut
// inside its start addresses or PGCs lists only its whole ones.
TEST(VtsTables, DamagedTablesStayInsideTheirBodies) {
    const std::vector<uint8_t> pgc =
        Bytes().add(kt::Hex("0000 7f ff")).zeros(224).add(kt::Hex("07d0 0bb8 0fa0 ea60"));
    // Each image: count, reserved, end address, then pointers and entries.
    const std::vector<uint8_t> tables[] = {
        // an end address near 4 GiB, pointers into the header and 2 GiB out
        kt::Hex("0003 0000 fffffff0 00000014 00000008 7fffffff 00000001"),
        kt::Hex("ffff 0000 00000028 00000010"),  // 65535 announced, one pointer
        // an end address of 4,000 over a 20-byte table, a pointer of 0
        kt::Hex("0002 0000 00000fa0 00000010 00000000"),
        // an end address of 2 GiB, pointers into the header and near 4 GiB
        Bytes().add(kt::Hex("0003 0000 7fffffff 00000001 fffffff0 00000002 00000003")).zeros(800),
        // a PGC whose parts lie past its end
        Bytes().add(kt::Hex("0001 0000 0000012c 00000000 00000010")).add(pgc).zeros(300),
        // 60,000 entries announced over 20,000 zero bytes
        Bytes().add(kt::Hex("ea60 0000 00004e20")).zeros(20000),
        // every map points at one region announcing 65535 entries
        kt::Hex("0004 0000 7fffffff 00000018 00000018 00000018 00000018 01 00 ffff 00000001"),
        // pointers of 0, into the header and at 4 GiB
        kt::Hex("0003 0000 00000064 00000000 00000004 ffffffff"),
        // 65535 announced, an end address right after one pointer
        kt::Hex("ffff 0000 0000000b 0000000c")};
    for (const auto& table : tables) {
        tt::Loaded<CKestro_PTT_SRPT> ptt(table, 1, false);
        tt::Loaded<CKestro_VTS_PGCIT> pgcit(table, 1, false);
        tt::Loaded<CKestro_VTS_TMAP> tmap(table, 1, false);
        const std::string ini = ptt.dir / "d.ini", bin = ptt.dir / "d.bin";
        ASSERT_EQ(ptt.loaded + pgcit.loaded + tmap.loaded, 3);
        EXPECT_LT(tt::Text(ptt.t).size() + Report(pgcit.t).size() + tt::Text(tmap.t).size(),
                  3u << 20);
        EXPECT_TRUE(ptt.t.Disasm(ini.c_str()) && pgcit.t.Disasm(ini.c_str(), &codec));
        EXPECT_TRUE(tmap.t.Disasm(ini.c_str()) && tmap.t.DisasmToFile(ini.c_str(), bin.c_str()));
        EXPECT_LE(kt::ReadBytes(bin).size(), table.size());
    }
    const auto header = [](uint32_t n) { return Bytes().be16(n).be16(0).be32(0x1000); };
    tt::Loaded<CKestro_PTT_SRPT> ptt(header(3).be32(20).be32(24).be16(0), 1, false);   // 2.5 TTUs
    tt::Loaded<CKestro_VTS_TMAP> tmap(header(3).be32(20).be32(20).be16(0), 1, false);  // 2.5 maps
    // search pointers 1 and 2, PGC 1 whole, 10 bytes of PGC 2
    tt::Loaded<CKestro_VTS_PGCIT> pgcit(
        header(2).be32s({0x81000000, 24, 0x82000000, 24}).add(vt::BarePgc()).zeros(10), 1, false);
    const std::string ini = ptt.ini, report = tt::Text(ptt.t) + tt::Text(tmap.t) + Report(pgcit.t);
    ASSERT_TRUE(ptt.t.Disasm(ini.c_str()) && tmap.t.Disasm(ini.c_str()) &&
                pgcit.t.Disasm(ini.c_str(), &codec));
    for (const char* whole : {"address of TTU 2:", "Time map 2 contains", "Category 1:"})
        EXPECT_NE(report.find(whole), std::string::npos) << whole;
    for (const char* cut : {"TTU 3", "Time map 3", "Category 2"})
        EXPECT_EQ(report.find(cut), std::string::npos) << cut;
    EXPECT_EQ(tt::Values(ini, "vts_ptt_srpt", {"ttu_sa02", "ttu_sa03"}) +
                  tt::Values(ini, "vts_tmapti", {"vts_tmap02_sa", "vts_tmap03_sa"}) +
                  tt::Values(ini, "vts_pgcit", {"vts_pgc_cat01", "vts_pgc_cat02"}),
              "24|$|20.|$|81000000|$|");
}

}  // namespace
