// VOBU address maps: the three members, their side files, sizes and the
// speed of large maps.
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>

#include "tables_util.h"

namespace {

struct Member {
    const char* name;
    const char* section;
    const char* header;  // first report line for 2 entries, or ""
    std::function<std::unique_ptr<CKestroVobuAddressMap>()> make;
    std::function<int(CKestroVobuAddressMap&, int, unsigned long)> load;
};

template <class T>
Member Of(const char* name, const char* section, const char* header) {
    return {name, section, header, [] { return std::make_unique<T>(); },
            [](CKestroVobuAddressMap& t, int h, unsigned long s) {
                return static_cast<T&>(t).Load(h, s);
            }};
}

const Member kMembers[] = {
    Of<CKestro_VMGM_ADMAP>("VMGM", "vts_vobu_admap",
                           "VMGM VOBU Address Map Information: 2 entries\r\n"),
    Of<CKestro_VTS_ADMAP>("VTS", "vts_vobu_admap", ""),
    Of<CKestro_VTSM_ADMAP>("VTSM", "vtsm_vobu_admap", ""),
};

tt::Bytes Map(const std::vector<uint32_t>& entries, uint32_t end = 0) {
    tt::Bytes b;
    b.be32(end ? end : uint32_t(4 * entries.size() + 3));
    for (uint32_t e : entries) b.be32(e);
    return b;
}

std::string Source(const char* section, int first, int last, int step = 1) {
    std::string s = std::string("[") + section + "]\n";
    char line[64];
    for (int i = first; i <= last; ++i) {
        std::snprintf(line, sizeof line, "vobu_sa%04d=%d\n", i, i * step);
        s += line;
    }
    return s;
}

TEST(VobuMaps, ReportAndSourceOfALoadedMap) {
    for (const auto& m : kMembers) {
        SCOPED_TRACE(m.name);
        kt::TempDir dir;
        // End address 11: two entries, whatever follows.
        tt::File f(tt::PutTable(dir, Map({0, 0x12345, 77}, 11), 2));
        auto t = m.make();
        EXPECT_EQ(m.load(*t, f, 0), 0);
        ASSERT_EQ(m.load(*t, f, 2), 1);
        EXPECT_EQ(tt::Report([&](char* b, int l) { return t->Details(b, l); }),
                  std::string(m.header) +
                      "  VOBU 1 starts at sector 0\r\n  VOBU 2 starts at sector 74565\r\n");
        std::string ini = dir / "s.ini";
        ASSERT_TRUE(t->Disasm(ini.c_str()));
        EXPECT_EQ(tt::Value(ini, m.section, "vobu_sa0002"), "74565");
        EXPECT_EQ(tt::Value(ini, m.section, "vobu_sa0003"), "$");
        // The map buffered by a VTSM Load still reports after Disasm.
        EXPECT_NE(tt::Report([&](char* b, int l) { return t->Details(b, l); }).find("VOBU 2"),
                  std::string::npos);
    }
}

TEST(VobuMaps, AssemblySizesAndPlacement) {
    const struct {
        int entries;
        unsigned long bytes, sectors;
    } sizes[] = {{3, 16, 1}, {511, 2048, 1}, {512, 2052, 2}};
    for (const auto& m : kMembers) {
        for (const auto& z : sizes) {
            SCOPED_TRACE(std::string(m.name) + " " + std::to_string(z.entries));
            kt::TempDir dir;
            std::string ini = dir / "a.ini";
            // A gap after the run ends the map.
            kt::WriteText(ini, Source(m.section, 1, z.entries, 3) + "vobu_sa" +
                                   std::to_string(z.entries + 2) + "=5\n");
            auto t = m.make();
            ASSERT_TRUE(t->Asm(ini.c_str()));
            unsigned long s = 0, b = 0;
            t->Get(&s, &b);
            EXPECT_EQ(b, z.bytes);
            EXPECT_EQ(s, z.sectors);
            auto out = tt::Written(*t, dir / "o.bin");
            ASSERT_EQ(out.size(), z.sectors * 2048);
            EXPECT_EQ(tt::BE32At(out, 0), 4u * z.entries + 3);
            EXPECT_EQ(tt::BE32At(out, 4), 3u);
            EXPECT_EQ(tt::BE32At(out, 4 * size_t(z.entries)), 3u * z.entries);
            EXPECT_EQ(std::count(out.begin() + long(z.bytes), out.end(), 0),
                      long(out.size() - z.bytes));
            bool ok = true;
            EXPECT_TRUE(tt::Written(*t, dir / "o2.bin", &ok).empty());
            EXPECT_FALSE(ok);
        }
        kt::TempDir dir;
        auto t = m.make();
        EXPECT_FALSE(t->Asm((dir / "none.ini").c_str()));
        EXPECT_EQ(tt::Error(*t), "");
    }
}

// Side files: name of the writer and readers per member, and what each does
// to the byte order.
TEST(VobuMaps, SideFiles) {
    kt::TempDir dir;
    tt::File f(tt::PutTable(dir, Map({0x01020304, 0x0A0B0C0D})));
    auto rawCounted = [](uint32_t n, std::vector<uint8_t> entries) {
        std::vector<uint8_t> b = {uint8_t(n), uint8_t(n >> 8), 0, 0};
        b.insert(b.end(), entries.begin(), entries.end());
        return b;
    };
    auto entriesOf = [&](CBaseKestro& t) {
        auto out = tt::Written(t, dir / "w.bin");
        return std::vector<uint8_t>(out.begin() + 4, out.begin() + 12);
    };
    const std::vector<uint8_t> be = {1, 2, 3, 4, 10, 11, 12, 13};
    const std::vector<uint8_t> le = {4, 3, 2, 1, 13, 12, 11, 10};

    // VTS: counted file keeps the IFO byte order, and reads back intact.
    CKestro_VTS_ADMAP vts;
    ASSERT_EQ(vts.Load(f, 1), 1);
    std::string side = dir / "vts.bin";
    ASSERT_TRUE(vts.Disasm_ToFile("ignored", side.c_str()));
    EXPECT_EQ(kt::ReadBytes(side), rawCounted(2, be));
    CKestro_VTS_ADMAP vtsIn;
    ASSERT_TRUE(vtsIn.Asm_FromFile(nullptr, 0, side.c_str()));
    EXPECT_EQ(entriesOf(vtsIn), be);
    CKestro_VMGM_ADMAP vmgmIn;  // the same counted reader under its VMGM name
    ASSERT_TRUE(vmgmIn.AsmBinaryNT(nullptr, 0, side.c_str()));
    EXPECT_EQ(entriesOf(vmgmIn), be);

    // VTSM: the writer turns entries little-endian and the reader keeps them
    // so: the map comes back byte-reversed.
    CKestro_VTSM_ADMAP vtsm;
    ASSERT_EQ(vtsm.Load(f, 1), 1);
    side = dir / "vtsm.bin";
    ASSERT_TRUE(vtsm.DisasmToFile(nullptr, side.c_str()));
    EXPECT_EQ(kt::ReadBytes(side), rawCounted(2, le));
    CKestro_VTSM_ADMAP vtsmIn;
    ASSERT_TRUE(vtsmIn.AsmFromFile(nullptr, side.c_str()));
    EXPECT_EQ(entriesOf(vtsmIn), le);

    // Plain files: little-endian entries, count from the size (10 bytes: 2).
    side = dir / "plain.bin";
    std::vector<uint8_t> plain = le;
    plain.push_back(0xEE);
    plain.push_back(0xEE);
    kt::WriteBytes(side, plain);
    std::function<bool(const char*)> plainReaders[] = {
        [&](const char* p) { CKestro_VMGM_ADMAP t; return t.AsmBinary(nullptr, 0, p) && entriesOf(t) == be; },
        [&](const char* p) { CKestro_VTS_ADMAP t; return t.Asm_Binary(nullptr, 0, p) && entriesOf(t) == be; },
        [&](const char* p) { CKestro_VTSM_ADMAP t; return t.AsmBinary(nullptr, p) && entriesOf(t) == be; },
    };
    for (auto& read : plainReaders) {
        EXPECT_TRUE(read(side.c_str()));
        EXPECT_FALSE(read((dir / "missing.bin").c_str()));
    }
    kt::WriteBytes(side, {1, 2, 3});
    for (auto& read : plainReaders) EXPECT_FALSE(read(side.c_str()));

    // A side file that cannot be created.
    std::string bad = dir / "no/such/dir/x.bin";
    EXPECT_FALSE(vts.Disasm_ToFile(nullptr, bad.c_str()));
    EXPECT_EQ(tt::Error(vts), "Can not create input ADMAP file [" + bad + "]. This file is required.");
}

TEST(VobuMaps, AMapThatCannotBeBuffered) {
    // End address 1: the announced size wraps round to almost 4 GiB.
    kt::TempDir dir;
    tt::File f(tt::PutTable(dir, Map({}, 1)));
    std::string ini = dir / "s.ini";
    CKestro_VMGM_ADMAP vmgm;
    ASSERT_EQ(vmgm.Load(f, 1), 1);
    EXPECT_FALSE(vmgm.Disasm(ini.c_str()));
    EXPECT_EQ(tt::Error(vmgm), "");
    CKestro_VTS_ADMAP vts;
    ASSERT_EQ(vts.Load(f, 1), 1);
    EXPECT_FALSE(vts.Disasm(ini.c_str()));
    EXPECT_EQ(tt::Error(vts), "ERROR: Could not aquire memory for VTSM_VOBU_ADMAP");
    EXPECT_FALSE(vts.Disasm_ToFile(nullptr, (dir / "x.bin").c_str()));
    CKestro_VTSM_ADMAP vtsm;
    EXPECT_EQ(vtsm.Load(f, 1), 0);
}

TEST(VobuMaps, LargestMapStaysFast) {
    // 65,535 entries, as many as the 16-bit count holds. A loaded map keeps
    // its size in 16 bits too, so disassembly shows (size mod 65,536) / 4 =
    // 16,383 of them; a source of all 65,535 assembles whole.
    std::vector<uint32_t> entries(0xFFFF);
    for (size_t i = 0; i < entries.size(); ++i) entries[i] = uint32_t((i + 1) * 7);
    kt::TempDir dir;
    tt::File f(tt::PutTable(dir, Map(entries)));
    std::string shown = dir / "shown.ini", whole = dir / "whole.ini";
    kt::WriteText(whole, Source("vts_vobu_admap", 1, 0xFFFF, 7));

    auto t0 = std::chrono::steady_clock::now();
    CKestro_VTS_ADMAP loaded;
    ASSERT_EQ(loaded.Load(f, 1), 1);
    ASSERT_TRUE(loaded.Disasm(shown.c_str()));
    CKestro_VTS_ADMAP t;
    ASSERT_TRUE(t.Asm(whole.c_str()));
    auto out = tt::Written(t, dir / "o.bin");
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                  std::chrono::steady_clock::now() - t0).count();

    EXPECT_EQ(tt::Value(shown, "vts_vobu_admap", "vobu_sa16383"), std::to_string(16383 * 7));
    EXPECT_EQ(tt::Value(shown, "vts_vobu_admap", "vobu_sa16384"), "$");
    auto in = kt::ReadBytes(dir / "T.IFO");
    ASSERT_EQ(out.size(), in.size() - 2048);
    EXPECT_TRUE(std::equal(out.begin(), out.end(), in.begin() + 2048));
    // Linear work takes tens of milliseconds here (bench/vobu_bench.cpp
    // measures it); anything quadratic in the entries takes seconds. The
    // bound leaves room for a loaded machine and sanitizers.
    EXPECT_LT(ms, 1500) << "disassembling, assembling and writing 65,535 entries";
}

TEST(VobuMaps, RealDiscMapsRoundTrip) {
    const struct {
        const char* prefix;
        size_t pointer;
        const Member& m;
    } where[] = {{"VIDEO_TS", 0xDC, kMembers[0]}, {"VTS_", 0xE4, kMembers[1]},
                 {"VTS_", 0xDC, kMembers[2]}};
    int seen = 0;
    for (const auto& w : where) {
        seen += tt::ForEachRealTable(w.prefix, w.pointer, [&](const tt::RealTable& rt, int f) {
            SCOPED_TRACE(w.m.name);
            auto out = tt::ThroughSource(w.m, rt, f);
            EXPECT_EQ(out.size(), tt::BE32At(rt.ifo, size_t(rt.sector) * 2048) + 1);
            EXPECT_EQ(out, rt.Bytes(out.size()));
        });
    }
    if (!seen) GTEST_SKIP() << "no real discs beside this checkout";
}

}  // namespace
