// Real title-set information files: every table is reported and disassembled
// into one source, and beside VOB files of the sizes the original implies
// (sparse: only sizes are read) Asm and AsmAbs both rebuild it byte for byte.
// These discs keep their tables back to back and carry no menu video
// attribute that the source form would shorten.
#include "vts_host.h"

namespace {

TEST(VtsRealDiscs, EveryTitleSetIsReportedAndRebuiltExactly) {
    std::vector<std::string> files = kt::CorpusFiles("VTS_");
    KT_SKIP_IF_EMPTY(files);
    for (const auto& original : files) {
        SCOPED_TRACE(original);
        const std::vector<uint8_t> bytes = kt::ReadBytes(original);
        ASSERT_GE(bytes.size(), 2048u);
        kt::TempDir work;
        kt::fs::create_directories(work.path() / "out");
        auto vob = [&](const std::string& name, uint64_t sectors) {
            kt::WriteBytes(work / ("out/" + name), {});
            kt::fs::resize_file(work / ("out/" + name), sectors * 2048);
        };
        const uint32_t menuSa = vt::Be32(bytes, 192), titleSa = vt::Be32(bytes, 196);
        if (menuSa) vob("vts_01_0.vob", titleSa - menuSa);
        uint64_t title = vt::Be32(bytes, 12) - vt::Be32(bytes, 28) - titleSa;
        for (int i = 1; title > 0 && i <= 9; ++i) {
            uint64_t part = title < 524287 ? title : 524287;  // under 1 GiB each
            vob("vts_01_" + std::to_string(i) + ".vob", part);
            title -= part;
        }
        ASSERT_EQ(title, 0u);
        const std::string copy = work / "VTS_01_0.IFO", ini = work / "s.ini", rebuilt = work / "out/VTS_01_0.IFO";
        kt::fs::copy_file(original, copy);
        for (bool absolute : {false, true}) {
            vt::Handle f(copy);
            CKestro_VTS_MAT mat, built;
            ASSERT_EQ(mat.Load(f.h), 1);
            CKestro_PGCI codec;
            EXPECT_EQ(vt::DisasmAll(mat, codec, ini).rfind("VTS Identifier: DVDVIDEO-VTS", 0), 0u);
            ASSERT_TRUE(vt::AsmAll(mat, built, codec, ini, rebuilt, absolute)) << vt::ErrorText(built);
            EXPECT_EQ(kt::ReadBytes(rebuilt), bytes) << (absolute ? "AsmAbs" : "Asm");
        }
    }
}

}  // namespace
