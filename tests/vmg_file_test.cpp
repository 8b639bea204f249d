// Whole VIDEO_TS.IFO files: real discs loaded, reported, disassembled and
// rebuilt; damaged files that must never fault.
#include <cstring>
#include <filesystem>

#include "kestro/vmg.h"
#include "vmg_host.h"
#include "vmg_test_util.h"

namespace {

namespace fs = std::filesystem;

// Copies the IFO file (and the menu VOB file beside it, if any) into dir.
std::string CopyDisc(const std::string& ifo, const fs::path& dir) {
    fs::copy_file(ifo, dir / "VIDEO_TS.IFO");
    fs::permissions(dir / "VIDEO_TS.IFO", fs::perms::owner_read | fs::perms::owner_write);
    fs::path vob = fs::path(ifo).replace_extension(".VOB");
    if (fs::exists(vob)) fs::copy_file(vob, dir / "VIDEO_TS.VOB");
    return (dir / "VIDEO_TS.IFO").string();
}

// Loads path, reports every table and writes the whole source into ini.
std::string LoadReportDisasm(const std::string& path, const std::string& ini) {
    CKestro_VMG_MAT mat;
    const int h = int(mat.OpenKestroFile(path.c_str()));
    EXPECT_GT(h, 0) << path;
    EXPECT_EQ(mat.Load(h), 1) << path;
    std::string report = vt::ReportAll(mat);
    // The report swapped the First Play PGC's command header in place: the
    // source is taken from a fresh load, as hosts do.
    CKestro_VMG_MAT fresh;
    EXPECT_EQ(fresh.Load(h), 1);
    vt::DisasmAll(fresh, ini);
    mat.CloseKestroFile(h);
    return report;
}

TEST(VmgFile, RealDiscsRoundTripToAFixedPoint) {
    auto files = kt::CorpusFiles("VIDEO_TS");
    KT_SKIP_IF_EMPTY(files);
    for (const auto& orig : files) {
        SCOPED_TRACE(orig);
        kt::TempDir in, r1, r2;
        std::string copy = CopyDisc(orig, in.path());
        std::string a = in / "a.ini";
        std::string report = LoadReportDisasm(copy, a);
        EXPECT_EQ(report.find("VMG Identifier: DVDVIDEO-VMG\r\n"), 0u);
        EXPECT_NE(report.find("Number of Title Unit Serch Pointers TTUs in the VTS: 1"),
                  std::string::npos);
        EXPECT_NE(report.find("Number of VMGM_PGCI_LUs:"), std::string::npos);
        EXPECT_NE(report.find("Number of Video Title Sets: 1"), std::string::npos);

        // First round: the source of the real disc assembled.
        if (fs::exists(in.path() / "VIDEO_TS.VOB")) {
            fs::copy_file(in.path() / "VIDEO_TS.VOB", r1.path() / "VIDEO_TS.VOB");
            fs::copy_file(in.path() / "VIDEO_TS.VOB", r2.path() / "VIDEO_TS.VOB");
        }
        std::string error;
        ASSERT_TRUE(vt::AssembleVmg(a, r1 / "VIDEO_TS.IFO", &error)) << error;
        auto first = kt::ReadBytes(r1 / "VIDEO_TS.IFO");
        auto real = kt::ReadBytes(copy);
        ASSERT_GE(first.size(), 2048u);
        // The title search pointers and the menu attributes are carried over.
        EXPECT_EQ(std::memcmp(first.data() + 256, real.data() + 256, 96), 0);
        EXPECT_EQ(std::memcmp(first.data() + 32, real.data() + 32, 14), 0);

        // Second round: the rebuilt file loaded, disassembled and assembled
        // again comes back byte for byte.
        std::string b = r1 / "b.ini";
        std::string report1 = LoadReportDisasm(r1 / "VIDEO_TS.IFO", b);
        ASSERT_TRUE(vt::AssembleVmg(b, r2 / "VIDEO_TS.IFO", &error)) << error;
        EXPECT_EQ(kt::ReadBytes(r2 / "VIDEO_TS.IFO"), first);
        std::string c = r2 / "c.ini";
        EXPECT_EQ(LoadReportDisasm(r2 / "VIDEO_TS.IFO", c), report1);
        EXPECT_EQ(kt::ReadText(c), kt::ReadText(b));
    }
}

// Real files cut short at many lengths, and with start sectors beyond their
// end: loading, every report and every source must stay memory-safe.
TEST(VmgFile, TruncatedAndDamagedFilesNeverFault) {
    auto files = kt::CorpusFiles("VIDEO_TS");
    std::vector<std::vector<uint8_t>> samples;
    for (const auto& f : files) samples.push_back(kt::ReadBytes(f));
    // Without real discs, a made-up header still exercises the paths.
    std::vector<uint8_t> made(3 * 2048, 0);
    std::memcpy(made.data(), "DVDVIDEO-VMG", 12);
    for (size_t at = 192; at < 224; at += 4) made[at + 3] = 1;  // all tables on sector 1
    made[203] = 0;  // except the menu PGC table, whose units are tested with it
    std::memset(made.data() + 2048, 0xFF, 2048);                 // with absurd counts
    samples.push_back(made);  // last: its absurd counts make every source large

    kt::TempDir dir;
    std::string path = dir / "VIDEO_TS.IFO";
    std::string ini = dir / "d.ini";
    for (const auto& full : samples) {
        const size_t cuts[] = {12, 100, 1024, 1100, 2048, 2100, 4096, 5000, 8200, full.size() - 1};
        const bool madeUp = &full == &samples.back();
        for (size_t cut : cuts) {
            if (cut > full.size() || (madeUp && cut != full.size() - 1)) continue;
            SCOPED_TRACE(cut);
            kt::WriteBytes(path, std::vector<uint8_t>(full.begin(), full.begin() + long(cut)));
            vt::Handle h(vt::OpenRead(path));
            CKestro_VMG_MAT mat;
            ASSERT_EQ(mat.Load(h), 1);
            vt::ReportAll(mat, 1 << 16);
            vt::ReportAll(mat, 200);  // reports cut short
            vt::DisasmAll(mat, ini);
        }
        // Start sectors far beyond the end of the file.
        auto moved = full;
        for (size_t at = 196; at < 224; at += 4) moved[at + 1] = 0x10;
        kt::WriteBytes(path, moved);
        vt::Handle h(vt::OpenRead(path));
        CKestro_VMG_MAT mat;
        ASSERT_EQ(mat.Load(h), 1);
        vt::ReportAll(mat);
        vt::DisasmAll(mat, ini);
        // Loading again releases the tables held from the first load.
        ASSERT_EQ(mat.Load(h), 1);
    }
}

}  // namespace
