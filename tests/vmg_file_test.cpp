// Whole VIDEO_TS.IFO files: real discs loaded, reported, disassembled and
// rebuilt to a fixed point; a file of absurd counts that must never fault.
#include <cstring>
#include <filesystem>

#include "vmg_test_util.h"

namespace {

namespace fs = std::filesystem;

// Loads path, returns the report of every table and writes the source into
// ini, from a fresh load as hosts do (the report swaps bytes in place).
std::string LoadReportDisasm(const std::string& path, const std::string& ini) {
    tt::File h(path);
    CKestro_VMG_MAT mat, fresh;
    EXPECT_TRUE(mat.Load(h) == 1 && fresh.Load(h) == 1) << path;
    return vt::Walk(mat, 1 << 20) + vt::Walk(fresh, 0, ini);
}

TEST(VmgFile, RealDiscsRoundTripToAFixedPoint) {
    auto files = kt::CorpusFiles("VIDEO_TS");
    KT_SKIP_IF_EMPTY(files);
    for (const auto& orig : files) {
        SCOPED_TRACE(orig);
        kt::TempDir r1, r2;
        const fs::path vob = fs::path(orig).replace_extension(".VOB");  // the menu VOB file, if any
        for (auto* d : {&r1, &r2})
            if (fs::exists(vob)) fs::copy_file(vob, d->path() / "VIDEO_TS.VOB");
        const std::string a = r1 / "a.ini", b = r1 / "b.ini", c = r2 / "c.ini", ifo1 = r1 / "VIDEO_TS.IFO";
        EXPECT_NE(LoadReportDisasm(orig, a).find("Number of Title Unit Serch Pointers TTUs in the VTS: 1"), std::string::npos);

        // First round: the real disc's source gives the real file back, every
        // table byte for byte, but for the reserved bytes 46-61 and, without
        // the menu VOB file, the end address and the menu VOB start sector.
        std::string error;
        ASSERT_TRUE(vt::AssembleVmg(a, ifo1, &error)) << error;
        const auto first = kt::ReadBytes(ifo1);
        auto mask = [&](std::vector<uint8_t> v) {
            for (size_t i = 12; i < 196 && i < v.size(); ++i)
                if ((i >= 46 && i < 62) || (!fs::exists(vob) && (i < 16 || i >= 192))) v[i] = 0;
            return v;
        };
        EXPECT_EQ(mask(first), mask(kt::ReadBytes(orig)));

        // Second round: the rebuilt file, its report and source are a fixed point.
        const std::string report1 = LoadReportDisasm(ifo1, b);
        ASSERT_TRUE(vt::AssembleVmg(b, r2 / "VIDEO_TS.IFO", &error)) << error;
        EXPECT_EQ(kt::ReadBytes(r2 / "VIDEO_TS.IFO"), first);
        EXPECT_EQ(LoadReportDisasm(r2 / "VIDEO_TS.IFO", c), report1);
        EXPECT_EQ(kt::ReadText(c), kt::ReadText(b));
    }
}

// A made-up file whose tables (all but the menu PGC table) sit on sector 1,
// which holds absurd counts; whole and cut by a byte. Loading, every report
// (also cut short), every source and loading again stay memory-safe. (Real
// files cut and damaged are driven by the hostile-input tests.)
TEST(VmgFile, AbsurdCountsNeverFault) {
    std::vector<uint8_t> made(3 * 2048, 0);
    std::memcpy(made.data(), "DVDVIDEO-VMG", 12);
    for (size_t at = 192; at < 224; at += 4) made[at + 3] = at != 200;
    std::memset(made.data() + 2048, 0xFF, 2048);
    kt::TempDir dir;
    const std::string path = dir / "VIDEO_TS.IFO", ini = dir / "d.ini";
    for (size_t size : {made.size(), made.size() - 1}) {
        kt::WriteBytes(path, {made.begin(), made.begin() + long(size)});
        tt::File h(path);
        CKestro_VMG_MAT mat;
        ASSERT_EQ(mat.Load(h), 1);
        vt::Walk(mat, 200);
        vt::Walk(mat, 1 << 16, ini);
        ASSERT_EQ(mat.Load(h), 1) << size;  // loading again releases the tables held
    }
}

}  // namespace
