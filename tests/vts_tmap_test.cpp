// Time map table: report, source with its side files, the binary side file,
// assembly with its missing-statement rules, size and writing.
#include <chrono>
#include <cstring>

#include "kestro/vts.h"
#include "vts_util.h"

using vt::Bytes;

namespace {

struct MapSpec {
    uint8_t tmu;
    std::vector<uint32_t> entries;
};

std::vector<uint8_t> TmapTable(const std::vector<MapSpec>& maps) {
    uint32_t size = 8 + 4 * uint32_t(maps.size());
    for (auto& m : maps) size += 4 + 4 * uint32_t(m.entries.size());
    Bytes b;
    b.be16(uint32_t(maps.size())).be16(0).be32(size - 1);
    uint32_t at = 8 + 4 * uint32_t(maps.size());
    for (auto& m : maps) {
        b.be32(at);
        at += 4 + 4 * uint32_t(m.entries.size());
    }
    for (auto& m : maps) {
        b.u8(m.tmu).u8(0).be16(uint32_t(m.entries.size()));
        for (uint32_t e : m.entries) b.be32(e);
    }
    return b.v;
}

const std::vector<MapSpec> kThreeMaps = {
    {1, {0x80000000u | 4660, 4700, 4800}}, {2, {}}, {10, {7, 8}}};

std::vector<uint8_t> WrittenBy(CKestro_VTS_TMAP& t, const std::string& path, bool* wrote = nullptr) {
    unsigned long sectors = 0, bytes = 0;
    t.Get(&sectors, &bytes);
    vt::Output out(path);
    bool w = t.Write(out.h);
    if (wrote) *wrote = w;
    out.Close();
    return kt::ReadBytes(path);
}

TEST(VtsTmap, ReportsMapsAndDiscontinuities) {
    kt::TempDir dir;
    vt::Handle f(vt::PlaceTable(dir, "a.ifo", TmapTable(kThreeMaps), 4));
    CKestro_VTS_TMAP t;
    EXPECT_EQ(t.Load(f.h, 0), 0);
    ASSERT_EQ(t.Load(f.h, 4), 1);
    std::vector<char> buf(4096);
    ASSERT_TRUE(t.Details(buf.data(), 4000));
    EXPECT_EQ(std::string(buf.data()),
              "Number of VTS_TMAPS: 3\r\n"
              "End byte address of VTS_TMAPT_EA table: 51\r\n"
              "  Time map 1 byte start address 20.\r\n"
              "  Time map 1 contains 3 entries using time unit of 1 seconds.\r\n"
              "    Discontinuity Entry 1 at sector address 4660\r\n"
              "    Entry 2 at sector address 4700\r\n"
              "    Entry 3 at sector address 4800\r\n"
              "  Time map 2 byte start address 36.\r\n"
              "  Time map 2 contains 0 entries using time unit of 2 seconds.\r\n"
              "  Time map 3 byte start address 40.\r\n"
              "  Time map 3 contains 2 entries using time unit of 10 seconds.\r\n"
              "    Entry 1 at sector address 7\r\n"
              "    Entry 2 at sector address 8\r\n");
    buf.assign(4096, 0);
    EXPECT_FALSE(t.Details(buf.data(), 100));
    EXPECT_EQ(vt::Lines(buf.data()).size(), 2u);
}

TEST(VtsTmap, SideFilesRoundTripThroughTheJoinedSource) {
    kt::TempDir dir;
    std::vector<uint8_t> table = TmapTable(kThreeMaps);
    vt::Handle f(vt::PlaceTable(dir, "a.ifo", table));
    CKestro_VTS_TMAP loaded;
    ASSERT_EQ(loaded.Load(f.h, 1), 1);
    std::string ini = dir / "x.ini";
    ASSERT_TRUE(loaded.Disasm(ini.c_str()));
    EXPECT_EQ(vt::Ini(ini, "vts_tmapti", "vts_tmap01_sa"), "20.");
    EXPECT_EQ(vt::Ini(ini, "vts_tmapti", "vts_tmap03_tmu"), "10");
    EXPECT_EQ(vt::Ini(ini, "vts_tmapti", "vts_tmap01_map_en_ns"), "3");
    EXPECT_EQ(vt::Ini(ini, "vts_tmapti", "vts_tmap01_entry01_discon"), "$");
    std::string side1 = dir / "x TmapTable1.ini";
    EXPECT_EQ(vt::Ini(side1, "vts_tmapti", "vts_tmap01_entry01_discon"), "1");
    EXPECT_EQ(vt::Ini(side1, "vts_tmapti", "vts_tmap01_entry01_address"), "4660");
    EXPECT_EQ(vt::Ini(side1, "vts_tmapti", "vts_tmap01_entry02_discon"), "0");
    EXPECT_EQ(vt::Ini(dir / "x TmapTable3.ini", "vts_tmapti", "vts_tmap03_entry02_address"), "8");
    EXPECT_FALSE(kt::fs::exists(dir / "x TmapTable2.ini")) << "a map without entries has none";

    // Asm reads the given source only; joined, the entries come back.
    CKestro_VTS_TMAP before;
    ASSERT_TRUE(before.Asm(ini.c_str()));
    // Each map stops at its first missing entry; the last message stays.
    EXPECT_EQ(vt::ErrorText(before), "[vts_tmap03_entry01_discon] Statement missing in vts_tmapti");
    ASSERT_TRUE(CKestro_VTS_TMAP::JoinTmapSideFiles(ini.c_str()));
    CKestro_VTS_TMAP built;
    ASSERT_TRUE(built.Asm(ini.c_str()));
    EXPECT_EQ(vt::ErrorText(built), "");
    table.resize(2048);
    EXPECT_EQ(WrittenBy(built, dir / "o.bin"), table);
}

TEST(VtsTmap, BinarySideFileRoundTrip) {
    kt::TempDir dir;
    std::vector<uint8_t> table = TmapTable(kThreeMaps);
    vt::Handle f(vt::PlaceTable(dir, "a.ifo", table));
    CKestro_VTS_TMAP loaded;
    ASSERT_EQ(loaded.Load(f.h, 1), 1);
    std::string ini = dir / "x.ini", bin = dir / "x.bin";
    ASSERT_TRUE(loaded.DisasmToFile(ini.c_str(), bin.c_str()));
    EXPECT_EQ(vt::Ini(ini, "vts_tmapti", "vts_tmap01_file_offset"), "0");
    EXPECT_EQ(vt::Ini(ini, "vts_tmapti", "vts_tmap03_file_offset"), "12");
    std::vector<uint8_t> want = {0x34, 0x12, 0, 0x80, 0x5c, 0x12, 0, 0, 0xc0, 0x12, 0, 0,
                                 7, 0, 0, 0, 8, 0, 0, 0};
    EXPECT_EQ(kt::ReadBytes(bin), want);

    CKestro_VTS_TMAP built;
    ASSERT_TRUE(built.AsmToFile(ini.c_str(), bin.c_str()));
    table.resize(2048);
    EXPECT_EQ(WrittenBy(built, dir / "o.bin"), table);

    CKestro_VTS_TMAP none;
    EXPECT_FALSE(none.AsmToFile(ini.c_str(), (dir / "absent.bin").c_str()));
    EXPECT_EQ(vt::ErrorText(none), "");
    std::string bad = dir / "no-such-folder/x.bin";
    EXPECT_FALSE(loaded.DisasmToFile(ini.c_str(), bad.c_str()));
    EXPECT_EQ(vt::ErrorText(loaded),
              "Can not create input TMAP file [" + bad + "]. This file is required.");
}

struct AsmCase {
    const char* name;
    std::vector<std::pair<const char*, const char*>> statements;
    bool ok;
    const char* error;
    std::vector<uint8_t> written;  // empty: Write writes nothing and fails
};

TEST(VtsTmap, MissingStatementsKeepWhatWasAssembled) {
    const AsmCase cases[] = {
        {"no count", {{"vts_tmap01_tmu", "1"}}, false, "", {}},
        {"count zero", {{"vts_tmap_ns", "0"}}, true, "", {}},
        {"too many maps", {{"vts_tmap_ns", "1000"}}, false,
         "[vts_tmap_ns] 1000 time maps in vts_tmapt, at most 999 are supported", {}},
        {"second map without time unit",
         {{"vts_tmap_ns", "2"}, {"vts_tmap01_tmu", "4"}, {"vts_tmap01_map_en_ns", "1"},
          {"vts_tmap01_entry01_discon", "0"}, {"vts_tmap01_entry01_address", "99"}},
         true, "[vts_tmap02_tmu] Statement missing in vts_tmapti",
         Bytes().be16(2).be16(0).be32(19).be32(12).u8(4).u8(0).be16(1).be32(99).v},
        {"first map without entry count",
         {{"vts_tmap_ns", "1"}, {"vts_tmap01_tmu", "4"}}, true,
         "[vts_tmap01_map_en_ns] Statement missing in vts_tmapti", {}},
        {"entry missing: the map keeps its count, zeros, the next map goes on",
         {{"vts_tmap_ns", "2"}, {"vts_tmap01_tmu", "4"}, {"vts_tmap01_map_en_ns", "3"},
          {"vts_tmap01_entry01_discon", "1"}, {"vts_tmap01_entry01_address", "5"},
          {"vts_tmap01_entry02_discon", "0"}, {"vts_tmap01_entry03_discon", "0"},
          {"vts_tmap01_entry03_address", "7"},
          {"vts_tmap02_tmu", "1"}, {"vts_tmap02_map_en_ns", "0"}},
         true, "[vts_tmap01_entry02_address] Statement missing in vts_tmapti",
         Bytes().be16(2).be16(0).be32(35).be32(16).be32(32).u8(4).u8(0).be16(3)
             .be32(0x80000005u).be32(0).be32(0).u8(1).u8(0).be16(0).v},
    };
    for (const auto& c : cases) {
        kt::TempDir dir;
        std::string ini = dir / "s.ini";
        vt::SetIni(ini, "other", "k", "v");
        for (auto& kv : c.statements)
            vt::SetIni(ini, std::strcmp(kv.first, "vts_tmap_ns") ? "vts_tmapti" : "vts_tmapt",
                       kv.first, kv.second);
        INIFlushFiles();
        CKestro_VTS_TMAP t;
        EXPECT_EQ(t.Asm(ini.c_str()), c.ok) << c.name;
        EXPECT_EQ(vt::ErrorText(t), c.error) << c.name;
        bool wrote = false;
        std::vector<uint8_t> got = WrittenBy(t, dir / "o.bin", &wrote);
        EXPECT_EQ(wrote, !c.written.empty()) << c.name;
        EXPECT_EQ(vt::Slice(got, 0, c.written.size()), c.written) << c.name;
        EXPECT_EQ(got.size(), c.written.empty() ? 0u : 2048u) << c.name;
    }
}

// A map of 60,000 entries (three-digit and longer entry numbers in its
// keys) goes through the side file, the join and the assembly in linear time.
TEST(VtsTmap, LongMapsStayLinear) {
    kt::TempDir dir;
    MapSpec big{1, {}};
    for (uint32_t j = 0; j < 60000; ++j) big.entries.push_back(j * 3 | (j % 97 ? 0 : 0x80000000u));
    std::vector<uint8_t> table = TmapTable({big, {2, {1, 2}}});
    vt::Handle f(vt::PlaceTable(dir, "a.ifo", table));
    CKestro_VTS_TMAP loaded;
    ASSERT_EQ(loaded.Load(f.h, 1), 1);
    std::string ini = dir / "big.ini";
    auto t0 = std::chrono::steady_clock::now();
    ASSERT_TRUE(loaded.Disasm(ini.c_str()));
    EXPECT_EQ(vt::Ini(dir / "big TmapTable1.ini", "vts_tmapti", "vts_tmap01_entry100_address"),
              "297");
    ASSERT_TRUE(CKestro_VTS_TMAP::JoinTmapSideFiles(ini.c_str()));
    CKestro_VTS_TMAP built;
    ASSERT_TRUE(built.Asm(ini.c_str()));
    EXPECT_EQ(vt::ErrorText(built), "");
    std::vector<uint8_t> got = WrittenBy(built, dir / "o.bin");
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    table.resize((table.size() + 2047) / 2048 * 2048);
    EXPECT_EQ(got, table);
    EXPECT_LT(seconds, 30.0);
}

TEST(VtsTmap, DamagedTablesStayBounded) {
    kt::TempDir dir;
    const std::vector<uint8_t> tables[] = {
        // every map points at one region announcing 65535 entries
        Bytes().be16(4).be16(0).be32(0x7FFFFFFF).be32(24).be32(24).be32(24).be32(24)
            .u8(1).u8(0).be16(65535).be32(1).v,
        // start addresses before the table and far beyond it
        Bytes().be16(3).be16(0).be32(100).be32(0).be32(4).be32(0xFFFFFFFF).v,
        // a count far beyond the body
        Bytes().be16(65535).be16(0).be32(11).be32(12).v,
    };
    for (const auto& table : tables) {
        vt::Handle f(vt::PlaceTable(dir, "d.ifo", table, 1, false));
        CKestro_VTS_TMAP t;
        ASSERT_EQ(t.Load(f.h, 1), 1);
        std::vector<char> buf(1 << 20);
        t.Details(buf.data(), int(buf.size()) - 3);
        std::string ini = dir / "d.ini";
        EXPECT_TRUE(t.Disasm(ini.c_str()));
        EXPECT_TRUE(t.DisasmToFile(ini.c_str(), (dir / "d.bin").c_str()));
        EXPECT_LE(kt::ReadBytes(dir / "d.bin").size(), table.size());
    }
}

}  // namespace
