// The bundled sample (examples/sample): its sources assemble, without a warning, into
// a disc that reports cleanly, disassembles into the same sources and reads in lsdvd.
#include <fstream>

#include "sample_disc.h"

namespace {

namespace fs = std::filesystem;

class ToolSample : public ::testing::Test {
protected:
    // Assembles every source into work/VIDEO_TS, next to empty VOBs of the recorded sizes.
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        sources_ = tt::AssembleSample(disc_);
        ASSERT_GE(sources_.size(), 3u);
    }
    fs::path IfoOf(const fs::path& src) const { return disc_ / (src.stem().string() + ".IFO"); }

    std::vector<fs::path> sources_;
    kt::TempDir work_;
    fs::path disc_ = work_.path() / "VIDEO_TS";
};

TEST_F(ToolSample, AssemblesReportsAndIsAFixedPoint) {
    tt::Result r = tt::Kestro({"report", work_.path()});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("VMG First Play PGC:"), std::string::npos);
    for (const auto& src : sources_) {
        std::string again = work_ / src.filename().string();
        ASSERT_EQ(tt::Kestro({"disasm", IfoOf(src), "-o", again}).code, 0);
        EXPECT_EQ(kt::ReadText(again), kt::ReadText(src)) << src;
    }
}

TEST_F(ToolSample, LsdvdReadsTheAssembledSample) {
    TT_REQUIRE_TOOLS("lsdvd");
    auto titles = tt::Lsdvd(work_.path());
    ASSERT_EQ(titles.size(), 3u);
    EXPECT_NE(titles[0].lines[0].find("Chapters: 03, Cells: 03, Audio streams: 02, Subpictures: 01"), std::string::npos);
    EXPECT_EQ(titles[2].vts, 2);
}

}  // namespace
