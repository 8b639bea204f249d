// The table families: cell address tables, VOBU address maps (and their side files), menu PGC
// information unit tables with their language units; PGC command tables cut short.
#include <cstring>

#include "tables_util.h"

namespace {

using Cells = CKestroCellAddressTable;  // name: key stem; text: the report's first lines for 2 VOBs
const tt::Member<Cells> kCells[] = {
    tt::Of<CKestro_VMG_CADT, Cells>(
        "vmgm", "vmgm_c_adt", "Number of VOBs in VMGM_VOBS 2\r\nEnd byte address of VMGM_C_ADT"),
    tt::Of<CKestro_VTS_CADT, Cells>(
        "vts", "vts_c_adt", "Number of VOBs in VTS_VOBS: 2\r\nEnd byte address of VTS_C_ADT"),
    tt::Of<CKestro_VTSM_CADT, Cells>(
        "vtsm", "vtsm_c_adt", "Number of VOBs in VTSM_VOBS: 2\r\nEnd byte address of VTSM_C_ADT"),
};

// A source of 7 VOBs with (vob, cell) entries from sector 1000v + 10c to 10000v + 100c + 9.
std::string CellSource(const tt::Member<Cells>& m, std::vector<std::pair<int, int>> cells) {
    std::string s = "[" + m.section + "]\n" + m.name + "_vob_ns=7\n";
    char k[200];
    for (auto [v, c] : cells)
        s.append(k, size_t(std::snprintf(
                        k, sizeof k,
                        "c_%03d_vob%03d_vts_vob_idn=%d\nc_%03d_vob%03d_vts_c_idn=%d\n"
                        "c_%03d_vob%03d_vts_cp_sa=%d\nc_%03d_vob%03d_vts_cp_ea=%d9\n",
                        c, v, v, c, v, c, c, v, v * 1000 + c * 10, c, v, v * 1000 + c * 10)));
    return s;
}
// A cell entry: VOB ID, cell ID, reserved, first and last sector.
tt::Bytes& Cell(tt::Bytes& b, int vob, int cell, uint32_t first, uint32_t last) {
    return b.be16(vob).u8(cell).u8(0).be32(first).be32(last);
}

template <class T>
class Family : public ::testing::TestWithParam<tt::Member<T>> {
protected:
    const tt::Member<T>& m = this->GetParam();
    kt::TempDir dir;
    std::string ini = dir / "s.ini", src = dir / "a.ini";
    std::unique_ptr<T> t = m.make();
};
using CellTables = Family<Cells>;
INSTANTIATE_TEST_SUITE_P(Members, CellTables, ::testing::ValuesIn(kCells),
                         [](const auto& info) { return info.param.name; });

// Reported whole, disassembled up to the VOB count; VMG and VTS take the body size from the end
// address's low 16 bits (here 4 bytes), VTSM from all of it.
TEST_P(CellTables, LoadedAndAssembled) {
    tt::Bytes img = tt::Bytes().be16s({1, 0}).be32(0x10000 + 11);
    Cell(img, 1, 0, 5, 0x105).resize(2 * 2048);
    img.be16s({2, 0}).be32(12 * 5 + 7);  // sector 3: 2 VOBs, 5 cells
    for (int i = 0; i < 5; ++i)
        Cell(img, 1 + i / 2, 1 + i % 2, 100 * i, i == 4 ? 70000 : 100 * i + 99);
    tt::File f(tt::PutTable(dir, img));
    ASSERT_EQ(m.load(*t, f, 1), 1);
    EXPECT_NE(tt::Report(*t).find(m.name == "vtsm" ? "addres is 261." : "addres is 256."),
              std::string::npos);
    ASSERT_EQ(m.load(*(t = m.make()), f, 3), 1);
    const std::string r = tt::Report(*t),
                      head = m.text +
                             " table: 67\r\n  For table entry 1 VOB ID 1 Cell ID 1.\r\n"
                             "    Start sector address is 0 and end sector addres is 99.\r\n",
                      tail =
                          "  For table entry 5 VOB ID 3 Cell ID 1.\r\n"
                          "    Start sector address is 400 and end sector addres is 70000.\r\n";
    EXPECT_EQ(r.substr(0, head.size()) + r.substr(r.size() - tail.size()), head + tail);
    EXPECT_TRUE(t->Disasm(ini.c_str()));
    EXPECT_EQ(tt::Values(ini, m.section,
                         {m.name + "_vob_ns", m.section + "_ea", "c_002_vob001_vts_cp_ea",
                          "c_001_vob002_vts_vob_idn"}),
              "2|67|199|$|");

    // Cells are assembled VOB by VOB up to the first gap and written once; 256 at most (one more
    // is refused, the 256 stay); an entry cut short keeps the fields read, named in one section.
    kt::WriteText(src, CellSource(m, {{1, 1}, {1, 2}, {1, 4}, {2, 1}, {4, 1}}));
    ASSERT_TRUE((t = m.make())->Asm(src.c_str()));
    tt::Bytes want = tt::Bytes().be16s({7, 0}).be32(43);
    for (auto [v, c] : {std::pair{1, 1}, {1, 2}, {2, 1}})
        Cell(want, v, c, v * 1000 + c * 10, v * 10000 + c * 100 + 9);
    tt::ExpectWritesOnce(*t, dir / "o.bin", want);
    std::vector<std::pair<int, int>> many;
    for (int i = 0; i < 257; ++i) many.push_back({1 + i / 99, 1 + i % 99});
    for (long n : {256, 257}) {
        kt::WriteText(src, CellSource(m, {many.begin(), many.begin() + n}));
        EXPECT_EQ((t = m.make())->Asm(src.c_str()), n == 256) << n;
        EXPECT_EQ(tt::Size(*t), std::make_pair(2ul, 3080ul)) << n;
    }
    EXPECT_EQ(tt::Error(*t), "[c_059_vob003_vts_vob_idn] Too many cells in " + m.section +
                                 ": a cell address table holds at most 256");
    for (std::string cut : {"c_idn", "cp_sa", "cp_ea"}) {
        std::string s = CellSource(m, {{1, 1}});
        kt::WriteText(src, s.erase(s.find("c_001_vob001_vts_" + cut)));
        EXPECT_FALSE((t = m.make())->Asm(src.c_str()));
        EXPECT_EQ(tt::Error(*t), "[c_001_vob001_vts_" + cut + "] Statement missing in vtsm_c_adt");
        tt::Bytes want = tt::Bytes().be16s({7, 0}).be32(19);
        tt::ExpectWritesOnce(*t, dir / "o.bin",
                             Cell(want, 1, cut != "c_idn", cut == "cp_ea" ? 1010 : 0, 0));
    }
}

using Maps = CKestroVobuAddressMap;  // text: the report's first line for 2 entries
const tt::Member<Maps> kMaps[] = {
    tt::Of<CKestro_VMGM_ADMAP, Maps>("VMGM", "vts_vobu_admap",
                                     "VMGM VOBU Address Map Information: 2 entries\r\n"),
    tt::Of<CKestro_VTS_ADMAP, Maps>("VTS", "vts_vobu_admap", ""),
    tt::Of<CKestro_VTSM_ADMAP, Maps>("VTSM", "vtsm_vobu_admap", ""),
};
tt::Bytes Map(const std::vector<uint32_t>& entries, uint32_t end) {
    return tt::Bytes().be32(end).be32s(entries);
}
// Entries step, 2 step, ... n step; the statements of entries from vobu_sa<first>.
std::vector<uint32_t> Steps(size_t n, uint32_t step) {
    std::vector<uint32_t> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = uint32_t(i + 1) * step;
    return v;
}
std::string Keys(const std::vector<uint32_t>& entries, size_t first = 1) {
    std::string s;
    char line[40];
    for (size_t i = 0; i < entries.size(); ++i)
        s.append(line, size_t(std::snprintf(line, sizeof line, "vobu_sa%04zu=%u\n", i + first,
                                            entries[i])));
    return s;
}
using VobuMaps = Family<Maps>;
INSTANTIATE_TEST_SUITE_P(Members, VobuMaps, ::testing::ValuesIn(kMaps),
                         [](const auto& info) { return info.param.name; });

// The entries the end address holds are reported and disassembled, again after Disasm; a map
// announced at almost 4 GiB (end address below 3) gets no buffer; a map's size is 16 bits, so
// of 65,535 entries its source shows 65,539 % 65,536 / 4.
TEST_P(VobuMaps, LoadedAndAssembled) {
    tt::Bytes img = Map({}, 1);
    img.resize(2048);
    img.add(Map({0, 0x12345, 77}, 11)).resize(3 * 2048);  // sector 2: 2 entries
    tt::File f(tt::PutTable(dir, img.add(Map(Steps(0xFFFF, 7), 4 * 0xFFFF + 3))));
    ASSERT_EQ(m.load(*t, f, 2), 1);
    const std::string report =
        m.text + "  VOBU 1 starts at sector 0\r\n  VOBU 2 starts at sector 74565\r\n";
    EXPECT_EQ(tt::Report(*t), report);
    ASSERT_TRUE(t->Disasm(ini.c_str()));
    EXPECT_EQ(tt::Values(ini, m.section, {"vobu_sa0002", "vobu_sa0003"}), "74565|$|");
    EXPECT_EQ(tt::Report(*t), report);
    ASSERT_TRUE(m.load(*(t = m.make()), f, 4) && t->Disasm(ini.c_str()));
    EXPECT_EQ(tt::Values(ini, m.section, {"vobu_sa16383", "vobu_sa16384"}), "114681|$|");
    ASSERT_EQ(m.load(*(t = m.make()), f, 1), m.name == "VTSM" ? 0 : 1);
    EXPECT_TRUE(m.name == "VTSM" || !t->Disasm(ini.c_str()));
    EXPECT_EQ(tt::Error(*t),
              m.name == "VTS" ? "ERROR: Could not aquire memory for VTSM_VOBU_ADMAP" : "");

    // Entries run up to the first gap, written once, padded (511 entries fill one sector); 65,535,
    // all the count holds, in linear time (quadratic work would meet the time limit).
    for (uint32_t entries : {3, 511, 512, 0xFFFF}) {
        kt::WriteText(src,
                      "[" + m.section + "]\n" + Keys(Steps(entries, 3)) + Keys({1}, entries + 2));
        ASSERT_TRUE((t = m.make())->Asm(src.c_str())) << entries;
        tt::ExpectWritesOnce(*t, dir / "o.bin", Map(Steps(entries, 3), 4 * entries + 3));
    }
}

// Side files: counted (VTS in IFO order, VTSM little-endian, read so) and plain (little-endian).
TEST(VobuMaps, SideFiles) {
    const tt::Bytes be = Map({0x01020304, 0x0A0B0C0D}, 11), le = Map({0x04030201, 0x0D0C0B0A}, 11);
    kt::TempDir dir;
    tt::File f(tt::PutTable(dir, be));
    const std::string vtsFile = dir / "vts.bin", vtsmFile = dir / "vtsm.bin",
                      plain = dir / "plain.bin", bad = dir / "no/x.bin";
    CKestro_VMGM_ADMAP vmgm;
    CKestro_VTS_ADMAP vts;
    CKestro_VTSM_ADMAP vtsm;
    ASSERT_TRUE(vts.Load(f, 1) + vtsm.Load(f, 1) == 2 &&
                vts.Disasm_ToFile("unused", vtsFile.c_str()) &&
                vtsm.DisasmToFile(nullptr, vtsmFile.c_str()));
    EXPECT_EQ(kt::ReadBytes(vtsFile), tt::Bytes().be32(0x02000000).add(tt::Slice(be, 4, 8)));
    EXPECT_EQ(kt::ReadBytes(vtsmFile), tt::Bytes().be32(0x02000000).add(tt::Slice(le, 4, 8)));
    kt::WriteBytes(plain, {4, 3, 2, 1, 13, 12, 11, 10, 0xEE, 0xEE});  // 10 bytes: 2 entries
    const std::tuple<CBaseKestro*, std::function<bool(const char*)>, std::string, tt::Bytes>
        readers[] = {
            {&vts, [&](const char* p) { return vts.Asm_FromFile(nullptr, 0, p); }, vtsFile, be},
            {&vmgm, [&](const char* p) { return vmgm.AsmBinaryNT(nullptr, 0, p); }, vtsFile, be},
            {&vtsm, [&](const char* p) { return vtsm.AsmFromFile(nullptr, p); }, vtsmFile, le},
            {&vmgm, [&](const char* p) { return vmgm.AsmBinary(nullptr, 0, p); }, plain, be},
            {&vts, [&](const char* p) { return vts.Asm_Binary(nullptr, 0, p); }, plain, be},
            {&vtsm, [&](const char* p) { return vtsm.AsmBinary(nullptr, p); }, plain, be},
        };
    for (const auto& [t, read, file, map] : readers) {
        ASSERT_TRUE(read(file.c_str())) << file;
        EXPECT_EQ(tt::Slice(tt::Written(*t, dir / "w.bin"), 0, map.size()), map) << file;
        EXPECT_FALSE(read((dir / "missing.bin").c_str()));
    }
    kt::WriteBytes(plain, {1, 2, 3});
    for (int i = 3; i < 6; ++i) EXPECT_FALSE(std::get<1>(readers[i])(plain.c_str()));
    EXPECT_FALSE(vts.Disasm_ToFile(nullptr, bad.c_str()));
    EXPECT_EQ(tt::Error(vts),
              "Can not create input ADMAP file [" + bad + "]. This file is required.");
}

// A pair; texts in the video manager form become the title set's by T().
template <class TableT, class UnitsT, bool kVmgm>
struct Pair {
    using Table = TableT;
    using Units = UnitsT;
    static constexpr bool vmgm = kVmgm;
    static std::string T(std::string s) {
        for (auto [from, to] : {std::pair{"VMGM", "VTSM"},
                                {"vmgm", "vtsm"},
                                {"Video Manager Menu", "Video Title Set Menu"}})
            for (size_t at; !kVmgm && (at = s.find(from)) != std::string::npos;)
                s.replace(at, std::strlen(from), to);
        return s;
    }
};
unsigned long Sa(CKestro_VMGM_PGCI& t, int i, int s) { return t.GetVMGM_LU_SA(i, s); }
unsigned long Sa(CKestro_VTSM_PGCI& t, int i, int s) { return t.GetVTSM_LU_SA(i, s); }
template <class Units, class Table>
std::string LuReport(Units& lu, CKestro_PGCI& codec, Table& t, int sector) {
    return tt::Report(
        tt::TableOps{"", [&](char* b, int l) { return lu.Details(b, l, &codec, &t, sector); }, {}});
}

template <class P>
class MenuPgc : public ::testing::Test {};
using Pairs = ::testing::Types<Pair<CKestro_VMGM_PGCI, CKestro_VMGM_LU, true>,
                               Pair<CKestro_VTSM_PGCI, CKestro_VTSM_LU, false>>;
TYPED_TEST_SUITE(MenuPgc, Pairs);

// Both pairs report their tables and come back byte for byte through the source. The table:
// units "en" and "fr", each with PGCs of 300 and 500 bytes (236 + 8 + 8n: n pre commands only).
TYPED_TEST(MenuPgc, ReportsRoundTripsRefusalsAndDamage) {
    using P = TypeParam;
    tt::Bytes unit = tt::Bytes().be16s({2, 0}).be32s({823, 0x81000000, 24, 0x82000000, 324});
    for (int n : {7, 32}) {
        const size_t at = unit.size();
        unit.zeros(236)[at + 163] = 255, unit[at + 165] = 0xEB, unit[at + 229] = 236;
        unit.be16s({uint32_t(n), 0, 0, uint32_t(8 * n + 7)});
        for (int i = 0; i < n; ++i) unit.be32(0x30020000).be32(uint32_t(i) << 16);
    }
    tt::Bytes table = tt::Bytes().be16s({2, 0}).be32s({1671, 0x656E0080, 24, 0x66720080, 848});
    kt::TempDir dir;
    const std::string ini = dir / "s.ini";
    tt::File f(tt::PutTable(dir, table.add(unit).add(unit), 2));
    typename P::Table t, fresh;
    typename P::Units lu;
    CKestro_PGCI codec;
    ASSERT_EQ(t.Load(f, 2), 1);
    EXPECT_EQ(
        tt::Report(t),
        P::T("Number of VMGM_PGCI_LUs: 2\r\nEnd byte address of VMGM_PGCI_LUs table: 1671\r\n"
             "  Video Manager Menu Language Code 1: en\r\n  Video Manager Menu Existence 1: 80\r\n"
             "  Video Manager Menu Language Start Address 1: 24\r\n"
             "  Video Manager Menu Language Code 2: fr\r\n  Video Manager Menu Existence 2: 80\r\n"
             "  Video Manager Menu Language Start Address 2: 848\r\n"));
    EXPECT_EQ(std::make_pair(Sa(t, 1, 2), Sa(t, 500, 2)), std::make_pair(2ul * 2048 + 848, 0ul));
    ASSERT_EQ(lu.Load(0, 2, &t), 1);
    // VMGM opens with the unit count and numbers the byte-address lines by the category line's
    // length + 1; VTSM breaks the line after each unit's end address.
    const std::string r = LuReport(lu, codec, t, 2),
                      start = (P::vmgm ? "There are 2 LU PGCs\r\n \r\n" : "") +
                              P::T(
                                  "LU 1 Number of VMGM_PGCI_SRP: 2\r\nLU 1 End byte address of "
                                  "VMGM_LU_EA table: 823\r\n") +
                              (P::vmgm ? "" : "\r\n") +
                              P::T("  VMGM_PGC Category 1: 81000000\r\n  VMGM_PGCI byte address ") +
                              (P::vmgm ? "32" : "1") + ": 24\r\n    PGC: Number of Programs: 0\r\n";
    EXPECT_EQ(r.substr(0, start.size()), start);
    for (std::string part : {P::T("  VMGM_PGCI byte address ") + (P::vmgm ? "32" : "2") + ": 324",
                             P::T("LU 2 Number of VMGM_PGCI_SRP: 2")})
        EXPECT_NE(r.find(part), std::string::npos) << part;
    ASSERT_TRUE(t.Disasm(ini.c_str()) && tt::LuDisasm(lu, ini.c_str(), codec, t, 2));
    ASSERT_TRUE(fresh.Asm(ini.c_str(), &codec)) << tt::Error(fresh);
    EXPECT_EQ(tt::Value(ini, P::T("vmgm_lu02_02"), P::T("vmgm_lui_pgc_cat")), "82000000");
    tt::ExpectWritesOnce(fresh, dir / "o.bin", table);

    // Refused sources (an empty table writes nothing) and damaged tables: unit 1 starts beyond
    // the file, unit 2 claims 110 PGCs past the 32,768-byte unit buffer, unit 3 is not defined.
    const std::string head = "[vmgm_pgci_ut]\nvmgm_lu_ns=",
                      srp = "vmgm_lu_srp01_lcd=e\nvmgm_lu_srp01_exst=8\n",
                      wrap = P::vmgm ? "" : "[%] Illegal source format!";
    const std::pair<std::string, std::string> failures[] = {
        // sources and messages in the VMGM form
        {"", ""},
        {head + "1\n", "VMGM_PGCI_UT is missing AN vmgm_lu_srpnn_lcd statuement"},
        {head + "1\nvmgm_lu_srp01_lcd=en\n",
         "VMGM_PGCI_UT is missing an vmgm_lu_srpnn_exst statuement"},
        {head + "1\n" + srp, "VMGM_LU: is missing the vmgm_lui01_pgci_srp_ns statement"},
        {head + "1\n" + srp + "[vmgm_lu]\nvmgm_lui01_pgci_srp_ns=1\n",
         "VMGM_LU: is missing the vmgm_lui_pgc_cat statement"},
        {head + "17\n", "[vmgm_lu_ns] 17 language units in vmgm_pgci_ut: a table holds 0 to 16"},
        {head + "2\n[vmgm_lu]\nvmgm_lui02_pgci_srp_ns=100\n",
         "[vmgm_lui02_pgci_srp_ns] 100 PGCs in language unit 2: a unit holds 0 to 99"},
        {head + "0\n", "-"},
    };
    for (auto [source, error] : failures) {
        kt::WriteText(ini, P::T(source));
        typename P::Table refused;
        EXPECT_EQ(refused.Asm(ini.c_str(), &codec), error == "-") << source;
        if (error.rfind("VMGM_LU:", 0) == 0 && !wrap.empty())
            error = std::string(wrap).replace(wrap.find('%'), 1, error);
        EXPECT_TRUE(error != "-" || tt::Written(refused, dir / "o.bin").empty());
        EXPECT_EQ(tt::Error(refused), P::T(error == "-" ? "" : error));
    }
    tt::Bytes damaged = tt::Bytes().be16s({3, 0}).be32(0xFFFFFF);
    damaged.be32s({0x656E0000, 0x7FFFFFF0, 0x64650000, 32, 0x66720000, 0, 110 << 16, 40000});
    for (int i = 0; i < 110; ++i) damaged.be32(0x80000000u).be32(32700 + i);
    tt::File g(tt::PutTable(dir, damaged));
    typename P::Table bad;
    typename P::Units badLu;
    ASSERT_EQ(bad.Load(g, 1) + badLu.Load(0, 1, &bad), 2);
    EXPECT_EQ(Sa(bad, 2, 1), 0u);
    const std::string damage = LuReport(badLu, codec, bad, 1);
    for (std::string part :
         {P::T("LU 1 Number of VMGM_PGCI_SRP: 0"), P::T("LU 2 Number of VMGM_PGCI_SRP: 110"),
          std::string("Table\r\n") + (P::vmgm ? " \r\n" : "\r\n") +
              "Language Unit 3 is not defined.\r\n"})
        EXPECT_NE(damage.find(part), std::string::npos) << part;
    EXPECT_TRUE(bad.Disasm(ini.c_str()) && tt::LuDisasm(badLu, ini.c_str(), codec, bad, 1));
}

// A command table whose commands stop part-way keeps the commands read, but its header stays
// the one of the last complete table.
TEST(PgcCommandRows, ACommandTableCutShortKeepsTheLastCompleteHeader) {
    kt::TempDir dir;
    const std::string src = dir / "p.ini";
    CKestro_PGCI codec;
    kt::WriteText(src, "[p]\ncmdt_pre_ns=1\npre1=0102030405060708\n");
    ASSERT_TRUE(codec.AsmPGC_CMDT(src.c_str(), "p", ""));
    kt::WriteText(src, "[p]\ncmdt_pre_ns=2\ncmdt_cell_ns=1\npre1=1112131415161718\n");
    EXPECT_FALSE(codec.AsmPGC_CMDT(src.c_str(), "p", ""));
    std::vector<uint8_t> pgc(252);
    ASSERT_TRUE(codec.GetPGCISize() == 252 && codec.GetPGCData(pgc.data(), pgc.size()));
    // Pre, post and cell counts and end address of the first table; the one command read.
    EXPECT_EQ(tt::Slice(pgc, 236, 16),
              tt::Bytes().be16s({1, 0, 0, 15}).be32s({0x11121314, 0x15161718}));
}

}  // namespace
