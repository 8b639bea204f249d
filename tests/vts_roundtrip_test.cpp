// Whole title-set information files: every real VTS_nn_0.IFO is loaded,
// reported and disassembled table by table, assembled back from its source
// (time-map entries joined into the source), and a second round from the
// rebuilt file comes back byte for byte.
#include <cstring>

#include "kestro/vts.h"
#include "vts_util.h"

namespace {

// What a host does to report every table of a loaded driver. Returns the
// whole report; each table's own result is collected in `ok`.
std::string ReportAll(CKestro_VTS_MAT& mat, CKestro_PGCI& codec, std::vector<bool>& ok) {
    std::vector<char> buf(1 << 22);
    const int len = int(buf.size()) - 3;
    std::string all;
    auto take = [&](bool r) {
        ok.push_back(r);
        all += buf.data();
        buf[0] = 0;
    };
    take(mat.Details(buf.data(), len));
    if (auto* t = mat.GetVTS_PTT_SRPT()) take(t->Details(buf.data(), len));
    if (auto* t = mat.GetVTS_PGCIT()) take(t->Details(&codec, buf.data(), len));
    if (auto* t = mat.GetVTSM_PGCI_UT()) {
        take(t->Details(buf.data(), len));
        if (auto* lu = mat.GetVTSM_LU())
            take(lu->Details(buf.data(), len, &codec, t, mat.GetVTSM_PGCIT_SA()));
    }
    if (auto* t = mat.GetVTS_TMAPT()) take(t->Details(buf.data(), len));
    if (auto* t = mat.GetVTSM_C_ADT()) take(t->Details(buf.data(), len));
    if (auto* t = mat.GetVTSM_VOBU_ADMAP()) take(t->Details(buf.data(), len));
    if (auto* t = mat.GetVTS_C_ADT()) take(t->Details(buf.data(), len));
    if (auto* t = mat.GetVTS_VOBU_ADMAP()) take(t->Details(buf.data(), len));
    return all;
}

// The driver's section first (it starts a fresh file), then every table's,
// then the time-map entries joined into the source so that Asm finds them.
void DisasmAll(CKestro_VTS_MAT& mat, CKestro_PGCI& codec, const std::string& ini) {
    const char* p = ini.c_str();
    ASSERT_TRUE(mat.Disasm(p));
    if (auto* t = mat.GetVTS_PTT_SRPT()) {
        EXPECT_TRUE(t->Disasm(p));
    }
    if (auto* t = mat.GetVTS_PGCIT()) {
        EXPECT_TRUE(t->Disasm(p, &codec));
    }
    if (auto* t = mat.GetVTSM_PGCI_UT()) {
        EXPECT_TRUE(t->Disasm(p));
        if (auto* lu = mat.GetVTSM_LU()) lu->Disasm(p, &codec, t, mat.GetVTSM_PGCIT_SA());
    }
    if (auto* t = mat.GetVTS_TMAPT()) {
        EXPECT_TRUE(t->Disasm(p));
        EXPECT_TRUE(CKestro_VTS_TMAP::JoinTmapSideFiles(p));
    }
    if (auto* t = mat.GetVTSM_C_ADT()) {
        EXPECT_TRUE(t->Disasm(p));
    }
    if (auto* t = mat.GetVTSM_VOBU_ADMAP()) t->Disasm(p);
    if (auto* t = mat.GetVTS_C_ADT()) {
        EXPECT_TRUE(t->Disasm(p));
    }
    if (auto* t = mat.GetVTS_VOBU_ADMAP()) t->Disasm(p);
}

// Creates in `out` each table `loaded` holds, assembles it from the source,
// and builds the whole file at ifoPath.
bool AsmAll(const CKestro_VTS_MAT& loaded, CKestro_VTS_MAT& out, CKestro_PGCI& codec,
            const std::string& ini, const std::string& ifoPath, bool absolute) {
    const char* p = ini.c_str();
    if (loaded.GetVTS_PTT_SRPT()) out.NewVTS_PTT_SRPT()->Asm(p);
    if (loaded.GetVTS_PGCIT()) out.NewVTS_PGCIT()->Asm(p, &codec);
    if (loaded.GetVTSM_PGCI_UT()) out.NewVTSM_PGCI_UT()->Asm(p, &codec);
    if (loaded.GetVTS_TMAPT()) out.NewVTS_TMAPT()->Asm(p);
    if (loaded.GetVTSM_C_ADT()) out.NewVTSM_C_ADT()->Asm(p);
    if (loaded.GetVTSM_VOBU_ADMAP()) out.NewVTSM_VOBU_ADMAP()->Asm(p);
    if (loaded.GetVTS_C_ADT()) out.NewVTS_C_ADT()->Asm(p);
    if (loaded.GetVTS_VOBU_ADMAP()) out.NewVTS_VOBU_ADMAP()->Asm(p);
    vt::Output file(ifoPath);
    if (file.h == -1) return false;
    return absolute ? out.AsmAbs(p, static_cast<unsigned short>(file.h), ifoPath.c_str())
                    : out.Asm(p, file.h, ifoPath.c_str());
}

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

INSTANTIATE_TEST_SUITE_P(AsmAndAsmAbs, VtsRoundTrip, ::testing::Values(false, true));

}  // namespace
