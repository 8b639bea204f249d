// Title sets: VTSI_MAT and its tables, whole title sets beside their VOB files, real ones rebuilt.
#include <sstream>
#include <tuple>

#include "ifo_navigation.h"
#include "pgc_fixture.h"
#include "tables_util.h"

namespace {

using tt::Bytes;

CKestro_PGCI codec;

// The PGC table reports through the codec.
std::string Report(CKestro_VTS_PGCIT& t, int room = 1 << 20, bool* ok = nullptr) {
    return tt::Text(tt::TableOps{"", [&](char* b, int n) { return t.Details(&codec, b, n); }, {}},
                    room, ok);
}

// A management table with the given start sectors, 2 audio and 1 sub-picture streams.
std::vector<uint8_t> SyntheticMat(const std::vector<uint32_t>& sa) {
    std::vector<uint8_t> m(2048, 0);
    std::copy_n("DVDVIDEO-VTS", 12, m.begin());
    for (auto [at, v] : {std::pair<size_t, uint32_t>{12, 127906}, {28, 9}, {34, 1}, {128, 2047}})
        kt::PutBE(m, at, v, 4);
    for (size_t i = 0; i < sa.size(); ++i) kt::PutBE(m, 192 + 4 * i, sa[i], 4);
    m[33] = 0x11, m[256] = 0x4d, m[257] = 0x01, m[259] = 1, m[341] = 1, m[512] = 0x53, m[515] = 2,
    m[597] = 1;
    for (int i = 0; i < 16; ++i)
        m[260 + i % 8] = uint8_t(0x10 + i % 8), m[516 + i] = uint8_t(0x30 + 16 * (i / 8) + i % 8);
    for (int i = 0; i < 6; ++i) m[342 + i] = uint8_t(0x20 + i), m[598 + i] = uint8_t(0x50 + i);
    for (int i = 0; i < 24 * 8; ++i) m[792 + i] = uint8_t(i);
    return m;
}

// A small title set: the management table, then every table (1, 2, 1, ... sectors).
std::vector<uint8_t> SyntheticVtsi(bool menuTable = true) {
    // Nine PGCs: eight bare ones, then one with a pre command, two programs and two cells.
    const auto last = kt::BuildPgc({{kt::Command{0x30, 2, 0, 0, 0, 1, 0, 0}}, {}, {}, false, 2, 2});
    Bytes pgcit, ut;
    pgcit.be16(9).be16(0).be32(uint32_t(80 + 8 * 236 + last.size() - 1));
    for (int i = 0; i < 9; ++i) pgcit.be32(0x81000000u + uint32_t(i)).be32(80 + 236 * i);
    for (uint32_t i = 0; i < 8; ++i) pgcit.add(Bytes().zeros(4).be32(0x100 * i).zeros(228));
    pgcit.add(last);
    ut.be16(1).be16(0).be32(16 + 8 + 8 + 236 - 1).u8('e').u8('n').u8(0).u8(0x80).be32(16);
    ut.be16(1).be16(0).be32(8 + 8 + 236 - 1).be32(0x83000000u).be32(16).zeros(236);
    const std::vector<uint8_t> tables[] = {
        // title units at bytes 16 and 28: PGC 1, programs 1 to 3; PGC 2, programs 1 and 2
        kt::Hex(
            "0002 0000 00000023 00000010 0000001c 00010001 00010002 00010003 00020001 00020002"),
        pgcit, ut,
        // time maps at bytes 16 and 28: 1 s units, a discontinuity at 4660, then 4700; 2 s, none
        kt::Hex("0002 0000 0000001f 00000010 0000001c 01 00 0002 80001234 0000125c 02 00 0000"),
        Bytes().be16(1).be16(0).be32(19).be16(1).u8(1).u8(0).be32(0).be32(9),
        Bytes().be32(7).be32(0),
        Bytes().be16(1).be16(0).be32(19).be16(1).u8(1).u8(0).be32(0).be32(999),
        Bytes().be32(11).be32(0).be32(500)};
    std::vector<uint8_t> file = SyntheticMat({0, 10, 1, 2, menuTable ? 4u : 0u, 5, 6, 7, 8, 9});
    for (auto& t : tables) {
        file.insert(file.end(), t.begin(), t.end());
        file.resize((file.size() + 2047) / 2048 * 2048, 0);
    }
    return file;
}

// Loads `from`, disassembles it into ini ([vtsi_mat] `key` set to `value`), rebuilds it at ifo.
bool Rebuild(const std::string& from, const std::string& ini, const std::string& ifo, bool absolute,
             std::string* error, const char* key = nullptr, const char* value = "$") {
    CKestro_VTS_MAT in, out;
    tt::File f(from);
    if (in.Load(f.h) != 1) return false;
    tt::Walk(in, (1 << 22) - 3, ini, true);
    if (key) INIWritePrivateProfileString("vtsi_mat", key, value, ini.c_str());
    const char* p = ini.c_str();
    if (in.GetVTS_PTT_SRPT()) out.NewVTS_PTT_SRPT()->Asm(p);
    if (in.GetVTS_PGCIT()) out.NewVTS_PGCIT()->Asm(p, &codec);
    if (in.GetVTSM_PGCI_UT()) out.NewVTSM_PGCI_UT()->Asm(p, &codec);
    if (in.GetVTS_TMAPT()) out.NewVTS_TMAPT()->Asm(p);
    if (in.GetVTSM_C_ADT()) out.NewVTSM_C_ADT()->Asm(p);
    if (in.GetVTSM_VOBU_ADMAP()) out.NewVTSM_VOBU_ADMAP()->Asm(p);
    if (in.GetVTS_C_ADT()) out.NewVTS_C_ADT()->Asm(p);
    if (in.GetVTS_VOBU_ADMAP()) out.NewVTS_VOBU_ADMAP()->Asm(p);
    tt::File file(ifo, true);
    const bool ok = file.h != -1 && (absolute ? out.AsmAbs(p, (unsigned short)file.h, ifo.c_str())
                                              : out.Asm(p, file.h, ifo.c_str()));
    *error = tt::Error(out);
    return ok;
}

void MakeVob(const std::string& path, uint64_t bytes) {
    kt::WriteBytes(path, {});
    kt::fs::resize_file(path, bytes);  // sparse: only the size matters
}

class VtsMat : public ::testing::Test {  // the synthetic title set; Build rebuilds it in `out`
protected:
    std::vector<uint8_t> Build(bool absolute, std::string* error, const char* key = nullptr,
                               const char* value = "$", const std::string& ifo = "VTS_01_0.IFO") {
        const bool ok = Rebuild(l.file, l.ini, out / ifo, absolute, error, key, value);
        auto got = kt::ReadBytes(out / ifo);
        EXPECT_EQ(ok, !got.empty()) << "nothing is written on failure";
        return got;
    }
    tt::Loaded<CKestro_VTS_MAT> l{SyntheticVtsi()};  // kept open: its tables re-read the file
    kt::TempDir out;
};

// VTSI_MAT's report, source (a fresh file) and write (fields as held); its tables' owner.
TEST_F(VtsMat, ReportSourceWriteAndTables) {
    bool ok = false;
    const auto lines = tt::Lines(tt::Text(l.t, 1 << 16, &ok));
    ASSERT_TRUE(l.loaded == 1 && ok && lines.size() == 27u);
    std::string picked;  // the identifier runs on into VTS_EA as held up to its zero byte
    for (size_t i : {0, 3, 10, 16, 20, 24, 26}) picked += lines[i] + "|";
    EXPECT_EQ(picked,
              "VTS Identifier: DVDVIDEO-VTS\xa2\xf3\x01|Specification version number: 1.1|"
              "Start sector address of VTSM_PGCI_UT: 4|Video attributes of VTSM_VOBS: 4d01|"
              "VTSM subpicture attributes: 202122232425|  Audio 2 attributes: 4041424344454647|"
              "  Subpicture stream 1 attributes: 505152535455|");
    kt::WriteText(l.ini, "[left_over]\nkey=1\n");
    ASSERT_TRUE(l.t.Disasm(l.ini.c_str()));
    EXPECT_EQ(tt::Value(l.ini, "left_over", "key"), "$") << "the section starts a fresh file";
    auto held = tt::Slice(kt::ReadBytes(l.file), 0, 2048);  // 32-bit fields low byte first
    for (size_t at : {12, 28, 34, 128, 192, 196, 200, 204, 208, 212, 216, 220, 224, 228})
        std::reverse(held.begin() + long(at), held.begin() + long(at) + 4);
    EXPECT_EQ(tt::Written(l.t, l.dir / "o.bin", &ok), held);
    EXPECT_TRUE(ok);

    std::vector<uint8_t> wide = SyntheticMat({});  // 255 streams, an identifier without end
    for (size_t i = 12; i < 2048; ++i) wide[i] = wide[i] ? wide[i] : 'A';
    wide[515] = wide[597] = 255;
    tt::Loaded<CKestro_VTS_MAT> w(wide), noMenus(SyntheticVtsi(false)),
        junk(std::vector<uint8_t>(4096, 7)), cut(tt::Slice(SyntheticMat({}), 0, 100), 0, false);
    const auto all = tt::Lines(tt::Text(w.t, 1 << 16, &ok));
    EXPECT_TRUE(ok && all[0].rfind("VTS Identifier: DVDVIDEO-VTS", 0) == 0);
    EXPECT_EQ(all.back(), "  Subpicture stream 255 attributes: 000000000000");
    ASSERT_TRUE(w.t.Disasm(w.ini.c_str()));
    EXPECT_EQ(tt::Value(w.ini, "vtsi_mat", "vts_ast_atrt255"), "0000000000000000");
    EXPECT_TRUE(noMenus.t.GetVTS_TMAPT() && !noMenus.t.GetVTSM_PGCI_UT() &&
                !noMenus.t.GetVTSM_LU());
    EXPECT_TRUE(cut.loaded == 1 && !cut.t.GetVTS_PTT_SRPT()) << "start sector 0: no table";
    ASSERT_TRUE(l.t.GetVTSM_LU() && l.t.GetVTS_VOBU_ADMAP() && l.t.Load(l.h) == 1);
    CKestro_PTT_SRPT* before = l.t.GetVTS_PTT_SRPT();
    EXPECT_TRUE(l.t.Load(junk.h) == 0 && l.t.GetVTS_PTT_SRPT() == before) << "not a title set";
    const CKestro_VTSM_PGCI* fresh = l.t.NewVTSM_PGCI_UT();
    EXPECT_TRUE(l.t.GetVTSM_PGCI_UT() == fresh && !l.t.GetVTSM_LU()) << "its units go with it";
    l.t.DeleteVTS_C_ADT(), l.t.DeleteVTS_C_ADT();
    EXPECT_EQ(l.t.GetVTS_C_ADT(), nullptr);
}

// A missing statement (AsmAbs reads all, Asm those marked) stops assembly; VOB files are measured.
TEST_F(VtsMat, AssemblyMeasuresTheVobsAndReadsTheStatements) {
    std::istringstream keys(  // "+": read by Asm too
        "vts_id+ vts_ea vtsi_ea vern+ vts_cat+ vtsi_mat_ea vtsm_vobs_sa vtstt_vobs_sa "
        "vts_ptt_srpt_sa vts_pgcit_sa vtsm_pgci_ut_sa vts_tmapt_sa vtsm_c_adt_sa vts_c_adt_sa "
        "vtsm_vobu_admap_sa vts_vobu_admap_sa vtsm_v_atr+ vtsm_ast_ns+ vtsm_ast_atr+ vts_v_atr+ "
        "vtsm_spst_ns+ vtsm_spst_atr+ vts_ast_ns+ vts_ast_atrt02+ vts_spst_ns+ vts_spst_atrt01+ "
        "vts_mu_ast_atrt08+");
    for (std::string key; keys >> key;) {
        const bool asmReads = key.back() == '+';
        if (asmReads) key.pop_back();
        for (bool absolute : {false, true}) {
            std::string want = "[" + key + "] Statement missing in vtsi_mat", error;
            if (key == "vts_id") want = "VTS ID is missing";
            if (key == "vts_spst_ns" && absolute) want = "vts_spst_ns";
            if (!absolute && !asmReads) want = "";
            Build(absolute, &error, key.c_str());
            EXPECT_EQ(error, want) << key << (absolute ? " (AsmAbs)" : " (Asm)");
        }
    }
    std::string error;
    EXPECT_TRUE(Build(false, &error, "vts_id", "DVDVIDEO-VMG").empty());
    EXPECT_EQ(error, "[DVDVIDEO-VTS] missing Illegal VTS_ID field");
    const struct {
        std::vector<std::pair<std::string, uint64_t>> vobs;  // name, sectors (0: 2049 bytes)
        uint32_t menuSa, titleSa, vtsEa;
        const char* failing = nullptr;  // the VOB refused
        const char* ifo = "VTS_01_0.IFO";
    } cases[] = {
        {{}, 0, 10, 19},
        {{{"vts_01_0.vob", 10}}, 10, 20, 29},
        {{{"VTS_01_0.VOB", 10}, {"VTS_01_1.VOB", 1000}}, 10, 20, 1029},
        {{{"vts_01_1.vob", 100}, {"vts_01_3.vob", 500}}, 0, 10, 119},  // a gap ends them
        {{}, 0, 10, 28},              // ten title VOBs of a sector: nine are counted
        {{}, 0, 10, 19 + (1 << 19)},  // five 1 GiB VOBs: their 32-bit byte total wraps, no limit
        // The title set number comes from the file name, in either case.
        {{{"vts_07_1.vob", 50}, {"vts_01_1.vob", 5}}, 0, 10, 69, nullptr, "VTS_07_0.IFO"},
        {{{"vts_07_1.vob", 50}, {"vts_01_1.vob", 5}}, 0, 10, 24, nullptr, "vts_01_0.ifo"},
        {{{"vts_01_0.vob", 0}}, 0, 0, 0, "vts_01_0.vob"},
        {{{"vts_01_1.vob", 3}, {"vts_01_2.vob", 0}}, 0, 0, 0, "vts_01_2.vob"}};
    for (bool absolute : {false, true}) {
        for (auto c : cases) {
            SCOPED_TRACE(std::to_string(c.vtsEa) + (absolute ? " (AsmAbs)" : " (Asm)"));
            const int n = c.vobs.empty() && c.vtsEa > 19 ? (c.vtsEa == 28 ? 10 : 5) : 0;
            for (int i = 1; i <= n; ++i)  // n VOBs of a sector (10) or of 1 GiB (5)
                c.vobs.push_back({"vts_01_" + std::to_string(i) + ".vob", n == 10 ? 1 : 1 << 19});
            for (auto& e : kt::fs::directory_iterator(out.path())) kt::fs::remove(e.path());
            for (auto& v : c.vobs) MakeVob(out / v.first, v.second ? v.second * 2048 : 2049);
            std::string error;
            // AsmAbs keeps the menu VOBs' start sector when there are none
            const std::vector<uint8_t> got = Build(absolute, &error, "vtsm_vobs_sa", "77", c.ifo);
            if (c.failing) {  // the message names the VOB refused
                EXPECT_EQ(error,
                          (absolute ? "Warning! VOB file " : "VOB file ") + (out / c.failing) +
                              " is not divisble by 2048, a requirement of DVD-Video standards.");
            }
            auto want = c.failing ? std::vector<uint8_t>() : kt::ReadBytes(l.file);
            kt::PutBE(want, 12, c.vtsEa, 4);
            kt::PutBE(want, 192, absolute && !c.menuSa ? 77u : c.menuSa, 4);
            kt::PutBE(want, 196, c.titleSa, 4);
            kt::PutBE(want, 256, 0, 1);  // the menu video attribute's high byte
            EXPECT_EQ(got, want) << tt::Mismatch(got, want);
        }
    }
}

// A real title set as rebuilt: no menu video high byte, cell entries up to the VOB count, VOBU map
// entries modulo 16,384 (disc-d: 16,496 -> 112), VTS_EA from a title byte total wrapping at 4 GiB.
std::vector<uint8_t> ByTheRules(std::vector<uint8_t> f, uint64_t titleSectors) {
    f.at(256) = 0;
    kt::PutBE(f, 12, kt::BE32(f, 12) - uint32_t((titleSectors * 2048 >> 32) << 21), 4);
    for (size_t field : {216, 224}) {
        const size_t t = size_t(kt::BE32(f, field)) * 2048, vobs = kt::BE32(f, t) >> 16;
        const size_t end = kt::BE32(f, t + 4), entries = end >= 7 ? (end - 7) / 12 : 0;
        if (!t || entries <= vobs) continue;
        kt::PutBE(f, t + 4, uint32_t(12 * vobs + 7), 4);
        std::fill(f.begin() + long(std::min(t + 8 + 12 * vobs, f.size())),
                  f.begin() + long(std::min(t + 8 + 12 * entries, f.size())), 0);
    }
    for (size_t field : {220, 228})
        if (const size_t t = size_t(kt::BE32(f, field)) * 2048; t && kt::BE32(f, t) >= 65539)
            kt::PutBE(f, t, (kt::BE32(f, t) - 3) / 4 % 16384 * 4 + 3, 4);
    return f;
}

// Real title sets rebuild by the rules: every field, every byte where laid out alike, twice.
TEST(VtsRealDiscs, EveryTitleSetIsReportedAndRebuiltExactly) {
    std::vector<std::string> files = kt::CorpusFiles("VTS_");
    KT_SKIP_IF_EMPTY(files);
    size_t comparedWhole = 0;
    for (const auto& original : files) {
        SCOPED_TRACE(original);
        const std::vector<uint8_t> bytes = kt::ReadBytes(original);
        kt::TempDir work;
        const uint32_t menuSa = kt::BE32(bytes, 192), titleSa = kt::BE32(bytes, 196);
        const uint64_t titleSectors = kt::BE32(bytes, 12) - kt::BE32(bytes, 28) - titleSa;
        if (menuSa) MakeVob(work / "vts_01_0.vob", (titleSa - menuSa) * 2048ull);
        uint64_t left = titleSectors;  // in VOBs under 1 GiB each
        for (int i = 1; left > 0; ++i) {
            const uint64_t n = std::min<uint64_t>(left, 524287);
            MakeVob(work / ("vts_01_" + std::to_string(i) + ".vob"), n * 2048);
            left -= n;
        }
        const std::string ini = work / "s.ini", ifo = work / "VTS_01_0.IFO", first = work / "1.ifo";
        const auto want = ByTheRules(bytes, titleSectors);
        for (bool absolute : {false, true}) {
            SCOPED_TRACE(absolute ? "AsmAbs" : "Asm");
            std::string error;
            ASSERT_TRUE(Rebuild(original, ini, ifo, absolute, &error)) << error;
            const auto got = kt::ReadBytes(ifo);
            EXPECT_EQ(NavigationDiff(got, want), "");
            const bool sameLayout = tt::Slice(got, 192, 40) == tt::Slice(bytes, 192, 40);
            comparedWhole += sameLayout;  // the original's layout kept: the same bytes
            EXPECT_TRUE(!sameLayout || got == want);
            kt::fs::rename(ifo, first);
            ASSERT_TRUE(Rebuild(first, ini, ifo, absolute, &error)) << error;
            EXPECT_TRUE(kt::ReadBytes(ifo) == got) << "a second trip changes nothing";
        }
    }
    EXPECT_GT(comparedWhole, 0u) << "no title set was compared byte for byte";
}

// Reports keep the file position; a line reaching the room ends them, false, with what fitted.
TEST_F(VtsMat, TableReports) {
    bool ok = false;
    CBaseKestro *ptt = l.t.GetVTS_PTT_SRPT(), *tmap = l.t.GetVTS_TMAPT();
    kestro::FileSeek(l.h, 100, 0);
    const std::string pgc = "    Program chain number (PGCN): ";
    EXPECT_EQ(tt::Text(*ptt),
              "Number of Title Unit Serch Pointers TTUs in the VTS: 2\r\n"
              "End byte address of PTT_SRPT table: 35\r\n  Starting memory address of TTU 1: 16\r\n"
              "  Starting memory address of TTU 2: 28\r\nPTT Number 1:\r\n" +
                  pgc + "1 Program number (PG): 1\r\n" + pgc + "1 Program number (PG): 2\r\n" +
                  pgc + "1 Program number (PG): 3\r\nPTT Number 2:\r\n" + pgc +
                  "2 Program number (PG): 1\r\n" + pgc + "2 Program number (PG): 2\r\n");
    EXPECT_EQ(kestro::FileTell(l.h), 100u) << "the caller's position is kept";
    EXPECT_EQ(tt::Text(*tmap),
              "Number of VTS_TMAPS: 2\r\nEnd byte address of VTS_TMAPT_EA table: 31\r\n"
              "  Time map 1 byte start address 16.\r\n"
              "  Time map 1 contains 2 entries using time unit of 1 seconds.\r\n"
              "    Discontinuity Entry 1 at sector address 4660\r\n"
              "    Entry 2 at sector address 4700\r\n  Time map 2 byte start address 28.\r\n"
              "  Time map 2 contains 0 entries using time unit of 2 seconds.\r\n");
    for (CBaseKestro* t : {(CBaseKestro*)&l.t, ptt, tmap}) {
        const std::string full = tt::Text(*t);
        for (size_t room = 0, used = 0; room <= full.size() + 2; ++room) {
            for (size_t end; (end = full.find("\r\n", used)) < room;) used = end + 2;
            EXPECT_EQ(tt::Text(*t, int(room), &ok), full.substr(0, used)) << room;
            EXPECT_EQ(ok, used == full.size()) << room;
        }
    }
    tt::Loaded<CKestro_PTT_SRPT> empty(kt::Hex("0000 0000 00000007"));  // errs when its lines fit
    EXPECT_TRUE(tt::Text(empty.t, 20, &ok).empty() && !ok && tt::Error(empty.t).empty());
    EXPECT_TRUE(tt::Lines(tt::Text(empty.t, 4096, &ok)).size() == 2 && !ok);
    EXPECT_EQ(tt::Error(empty.t), "  ERROR: vts_ttu_ns = 0");
    // PGC reports: indented by five, followed by a blank line, left out when they do not fit.
    auto& pgcit = *l.t.GetVTS_PGCIT();
    const std::string full = Report(pgcit);
    EXPECT_EQ(full.substr(0, 197),
              "Number of VTS_PGCI_SRP: 9\r\nEnd byte address of VTS_PGCI table: 2277\r\n"
              "  VTS_PGC Category 1: 81000000\r\n  VTS_PGCI memory offset address 1: 80\r\n"
              "    Program Chain Information Table (PGCI) 1\r\n     PGC: ");
    EXPECT_NE(full.find("\r\n \r\n  VTS_PGC Category 2: 81000001\r\n"), std::string::npos);
    EXPECT_EQ(full.substr(full.size() - 3), " \r\n");
    EXPECT_NE(full.find("\r\n           1: 3002000000010000 "), std::string::npos);
    EXPECT_FALSE(Report(pgcit, int(full.size()) - 3, &ok) == full && ok);
    EXPECT_TRUE(Report(pgcit, int(full.size()) - 2, &ok) == full && ok);
}

// Time-map entries go to side files (or a binary file) for Asm, byte for byte.
TEST(VtsTables, TimeMapSourcesAreByteExact) {
    Bytes maps;  // time units 1, 2 and 10 s; 2, 0 and 60,000 entries (bit 31: a discontinuity)
    maps.be16(3).be16(0).be32(240039).be32s({20, 32, 36});
    maps.add(kt::Hex("01 00 0002 80001234 0000125c 02 00 0000 0a 00 ea60"));
    for (uint32_t j = 0; j < 60000; ++j) maps.be32(j * 3 | (j % 97 ? 0 : 0x80000000u));
    tt::Loaded<CKestro_VTS_TMAP> tmap(maps);
    const std::string ini = tmap.dir / "x.ini", bin = tmap.dir / "x.bin";
    CKestro_VTS_TMAP before, back, fromBin;
    ASSERT_TRUE(tmap.t.Disasm(ini.c_str()));
    EXPECT_EQ(tt::Value(ini, "vts_tmapti", "vts_tmap01_sa"), "20.");
    for (int m : {1, 2, 3})  // a map without entries has no side file
        EXPECT_EQ(kt::fs::exists(tmap.dir / ("x TmapTable" + std::to_string(m) + ".ini")), m != 2)
            << m;
    ASSERT_TRUE(before.Asm(ini.c_str()));  // each map stops at its first missing entry
    EXPECT_EQ(tt::Error(before), "[vts_tmap03_entry01_discon] Statement missing in vts_tmapti");
    ASSERT_TRUE(CKestro_VTS_TMAP::JoinTmapSideFiles(ini.c_str()) && back.Asm(ini.c_str()));
    tt::ExpectWritesOnce(back, tmap.dir / "o.bin", maps);
    ASSERT_TRUE(tmap.t.DisasmToFile(ini.c_str(), bin.c_str()));
    EXPECT_EQ(tt::Slice(kt::ReadBytes(bin), 0, 8), kt::Hex("34120080 5c120000"));
    ASSERT_TRUE(fromBin.AsmToFile(ini.c_str(), bin.c_str()));
    tt::ExpectWritesOnce(fromBin, tmap.dir / "o.bin", maps);
}

// Refusals, messages, what an incomplete source writes; title units are read by column to a gap.
TEST(VtsTables, AssemblyRulesAndMessages) {
    // table ('p' PTT_SRPT, 'g' PGCIT, 't' TMAPT), source lines, result, message, written (hex)
    const std::vector<std::tuple<char, std::string, bool, std::string, const char*>> cases = {
        {'p', "000ptt_srp=001 001 001", false, "IFO assembler error! In vts_ttu_ns", ""},
        {'p', "vts_ttu_ns=2", true, "", "0002 0000 0000000f 00000010 00000010"},
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
        // A missing entry keeps the map's count and zeros; the next map lacks its time unit.
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

// Pointers, addresses and counts out of range read as zeros; a cut body lists its whole entries.
TEST(VtsTables, DamagedTablesStayInsideTheirBodies) {
    // 127 programs and 255 cells; its command table, program map and cell tables at 2,000 to 60,000
    const auto pgc =
        Bytes().add(kt::Hex("0000 7f ff")).zeros(224).add(kt::Hex("07d0 0bb8 0fa0 ea60"));
    // Each image: count, reserved, end address, then pointers and entries.
    const std::vector<uint8_t> tables[] = {
        // an end address near 4 GiB, pointers into the header and 2 GiB out
        kt::Hex("0003 0000 fffffff0 00000014 00000008 7fffffff 00000001"),
        kt::Hex("ffff 0000 00000028 00000010"),           // 65535 announced, one pointer
        kt::Hex("0002 0000 00000fa0 00000010 00000000"),  // end 4,000 of 20 bytes, a pointer 0
        // an end address of 2 GiB, pointers into the header and near 4 GiB
        Bytes().add(kt::Hex("0003 0000 7fffffff 00000001 fffffff0 00000002 00000003")).zeros(800),
        // a PGC whose parts lie past its end
        Bytes().add(kt::Hex("0001 0000 0000012c 00000000 00000010")).add(pgc).zeros(300),
        Bytes().add(kt::Hex("ea60 0000 00004e20")).zeros(20000),  // 60,000 over 20,000 zeros
        // every map points at one region announcing 65535 entries
        kt::Hex("0004 0000 7fffffff 00000018 00000018 00000018 00000018 01 00 ffff 00000001"),
        kt::Hex("0003 0000 00000064 00000000 00000004 ffffffff"),  // to 0, the header, 4 GiB
        kt::Hex("ffff 0000 0000000b 0000000c")};  // 65535 announced, ending after one pointer
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
        header(2).be32s({0x81000000, 24, 0x82000000, 24}).zeros(246), 1, false);
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
