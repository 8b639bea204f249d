// Whole title-set information files: every real VTS_nn_0.IFO is loaded,
// reported and disassembled table by table, assembled back from its source
// (time-map entries joined into the source), and a second round from the
// rebuilt file comes back byte for byte.
#include <cstring>

#include "kestro/vts.h"
#include "vts_host.h"

namespace {

using vt::AsmAll;
using vt::DisasmAll;
using vt::ReportAll;

struct Round {
    std::string report;
    std::vector<uint8_t> rebuilt;
};

// Load `ifo`, report, disassemble into `work`/name.ini, rebuild into
// `work`/out/VTS_01_0.IFO.
Round OneRound(const std::string& ifo, const kt::TempDir& work, const std::string& name,
               bool absolute) {
    Round r;
    vt::Handle f(ifo);
    EXPECT_NE(f.h, -1) << ifo;
    CKestro_VTS_MAT mat;
    EXPECT_EQ(mat.Load(f.h), 1) << ifo;
    CKestro_PGCI codec;
    std::vector<bool> ok;
    r.report = ReportAll(mat, codec, ok);
    for (size_t i = 0; i < ok.size(); ++i) EXPECT_TRUE(ok[i]) << ifo << " report " << i;
    std::string ini = work / (name + ".ini");
    DisasmAll(mat, codec, ini);
    kt::fs::create_directories(work.path() / name);
    std::string outPath = work / (name + "/VTS_01_0.IFO");
    CKestro_VTS_MAT built;
    EXPECT_TRUE(AsmAll(mat, built, codec, ini, outPath, absolute)) << vt::ErrorText(built);
    r.rebuilt = kt::ReadBytes(outPath);
    return r;
}

class VtsRoundTrip : public ::testing::TestWithParam<bool> {};

TEST_P(VtsRoundTrip, EveryRealTitleSetComesBackByteForByte) {
    std::vector<std::string> files = kt::CorpusFiles("VTS_");
    KT_SKIP_IF_EMPTY(files);
    const bool absolute = GetParam();
    for (const auto& original : files) {
        SCOPED_TRACE(original);
        const std::vector<uint8_t> before = kt::ReadBytes(original);
        kt::TempDir work;
        std::string copy = work / "VTS_01_0.IFO";
        kt::fs::copy_file(original, copy);
        Round first = OneRound(copy, work, "first", absolute);
        ASSERT_FALSE(first.rebuilt.empty());
        EXPECT_EQ(first.rebuilt.size() % 2048, 0u);
        EXPECT_NE(first.report.find("VTS Identifier: DVDVIDEO-VTS"), std::string::npos);
        Round second = OneRound(work / "first/VTS_01_0.IFO", work, "second", absolute);
        EXPECT_EQ(second.rebuilt, first.rebuilt);
        EXPECT_EQ(kt::ReadBytes(original), before) << "the corpus is never written";
    }
}

// Beside VOB files of the sizes the original management table implies (sparse
// files: only their sizes are read), the first rebuild of each real title set
// is the original file itself: these discs keep their tables back to back
// and carry no menu video attribute that the source form would shorten.
TEST(VtsRealDiscs, BesideItsVobsARealTitleSetIsRebuiltExactly) {
    std::vector<std::string> files = kt::CorpusFiles("VTS_");
    KT_SKIP_IF_EMPTY(files);
    for (const auto& original : files) {
        SCOPED_TRACE(original);
        const std::vector<uint8_t> bytes = kt::ReadBytes(original);
        ASSERT_GE(bytes.size(), 2048u);
        auto be32 = [&](size_t at) {
            return uint32_t(bytes[at]) << 24 | uint32_t(bytes[at + 1]) << 16 |
                   uint32_t(bytes[at + 2]) << 8 | bytes[at + 3];
        };
        const uint32_t vtsEa = be32(12), vtsiEa = be32(28), menuSa = be32(192),
                       titleSa = be32(196);
        kt::TempDir work;
        kt::fs::create_directories(work.path() / "out");
        auto vob = [&](const std::string& name, uint64_t sectors) {
            std::string path = work / ("out/" + name);
            kt::WriteBytes(path, {});
            kt::fs::resize_file(path, sectors * 2048);
        };
        if (menuSa) vob("vts_01_0.vob", titleSa - menuSa);
        uint64_t title = vtsEa - vtsiEa - titleSa;
        for (int i = 1; title > 0 && i <= 9; ++i) {
            uint64_t part = title < 524287 ? title : 524287;  // under 1 GiB each
            vob("vts_01_" + std::to_string(i) + ".vob", part);
            title -= part;
        }
        ASSERT_EQ(title, 0u);

        vt::Handle f(original, 0x8000);
        CKestro_VTS_MAT mat;
        ASSERT_EQ(mat.Load(f.h), 1);
        CKestro_PGCI codec;
        std::string ini = work / "s.ini";
        DisasmAll(mat, codec, ini);
        CKestro_VTS_MAT built;
        std::string rebuilt = work / "out/VTS_01_0.IFO";
        ASSERT_TRUE(AsmAll(mat, built, codec, ini, rebuilt, false)) << vt::ErrorText(built);
        EXPECT_EQ(kt::ReadBytes(rebuilt), bytes);
    }
}

INSTANTIATE_TEST_SUITE_P(AsmAndAsmAbs, VtsRoundTrip, ::testing::Values(false, true));

}  // namespace
