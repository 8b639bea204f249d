// The bundled sample (examples/sample): its sources assemble into a disc
// that reports cleanly and disassembles back into the same sources.
#include <fstream>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;

TEST(ToolSample, AssemblesReportsAndIsAFixedPoint) {
    TT_REQUIRE_KESTRO();
    fs::path sample = fs::path(KESTRO_SOURCE_DIR) / "examples/sample";
    if (!fs::exists(sample / "vobs.txt")) GTEST_SKIP() << "no sample in " << sample;
    kt::TempDir work;
    fs::path disc = work.path() / "VIDEO_TS";
    fs::create_directories(disc);
    fs::create_directories(work.path() / "again");
    std::ifstream vobs(sample / "vobs.txt");
    std::string name;
    unsigned long long bytes = 0;
    while (vobs >> name >> bytes) {
        std::ofstream(disc / name).close();
        fs::resize_file(disc / name, bytes);
    }

    std::vector<fs::path> sources;
    for (auto& e : fs::directory_iterator(sample))
        if (e.path().extension() == ".ini") sources.push_back(e.path());
    std::sort(sources.begin(), sources.end());
    ASSERT_GE(sources.size(), 3u);
    for (const auto& src : sources) {
        std::string ifo = (disc / (src.stem().string() + ".IFO")).string();
        tt::Result r = tt::Kestro({"asm", src.string(), "-o", ifo});
        ASSERT_EQ(r.code, 0) << src << ": " << r.err;
        EXPECT_TRUE(r.err.empty()) << r.err;
    }
    tt::Result r = tt::Kestro({"report", work.path().string()});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("VMG First Play PGC:"), std::string::npos);
    for (const auto& src : sources) {
        std::string again = (work.path() / "again" / src.filename()).string();
        std::string ifo = (disc / (src.stem().string() + ".IFO")).string();
        ASSERT_EQ(tt::Kestro({"disasm", ifo, "-o", again}).code, 0);
        EXPECT_EQ(kt::ReadText(again), kt::ReadText(src.string())) << src;
    }
    if (!tt::HaveTool("lsdvd")) return;
    auto titles = tt::Lsdvd(work.path());
    EXPECT_EQ(titles.size(), 3u);
}

}  // namespace
