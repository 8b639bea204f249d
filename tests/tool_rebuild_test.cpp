// kestro rebuild: where the new folder goes, what empty stand-ins for missing VOB files keep,
// how the summary names changed bytes, and what earlier and killed runs left beside an output.
#include <sys/wait.h>
#include <unistd.h>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using tt::Kestro;

class ToolRebuild : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        tt::AssembleSample(disc_);
    }
    kt::TempDir work_;
    fs::path disc_ = work_.path() / "disc/VIDEO_TS", root_ = disc_.parent_path();
};

// -o names the disc root or its VIDEO_TS folder; missing folders are made (and go on failure).
TEST_F(ToolRebuild, OutputNamesTheDiscRootOrItsVideoTsFolderAndMissingFoldersAreMade) {
    const fs::path root = work_ / "a/b/disc", videoTs = work_ / "c/d/VIDEO_TS";
    ASSERT_EQ(Kestro({"rebuild", root_, "-o", root, "-q"}).code, 0);
    ASSERT_EQ(Kestro({"rebuild", root_, "-o", videoTs, "-q"}).code, 0);
    for (const char* name : {"VIDEO_TS.IFO", "VTS_01_0.BUP", "VTS_02_1.VOB"})
        EXPECT_TRUE(fs::is_regular_file(root / "VIDEO_TS" / name) &&
                    fs::is_regular_file(videoTs / name))
            << name;
    EXPECT_FALSE(fs::exists(videoTs / "VIDEO_TS"));
    EXPECT_EQ(fs::status(videoTs).permissions() & fs::perms::others_read, fs::perms::others_read);
    kt::WriteText(disc_ / "VTS_02_0.IFO", "not an IFO file");
    EXPECT_EQ(Kestro({"rebuild", root_, "-o", work_ / "e/f/VIDEO_TS", "-q"}).code, 1);
    EXPECT_FALSE(fs::exists(work_ / "e"));
}

// A placeholder menu VOB of no sectors (an IFO-only folder whose video manager records a menu
// VOB start, but end addresses that leave it no sectors) keeps the menu VOB start sector.
TEST_F(ToolRebuild, PlaceholderVobsKeepAMenuVobOfNoSectors) {
    const fs::path bare = work_ / "bare", out = work_ / "out";
    fs::create_directories(bare);
    auto vmg = kt::ReadBytes(disc_ / "VIDEO_TS.IFO");
    ASSERT_NE(kt::BE32(vmg, 192), 0u);
    kt::PutBE(vmg, 12, 2 * (kt::BE32(vmg, 28) + 1) - 1, 4);  // VMG_EA: IFO and BUP only
    kt::WriteBytes(bare / "VIDEO_TS.IFO", vmg);
    ASSERT_EQ(Kestro({"rebuild", bare, "-o", out, "-q", "--placeholder-vobs"}).code, 0);
    const auto rebuilt = kt::ReadBytes(out / "VIDEO_TS/VIDEO_TS.IFO");
    EXPECT_EQ(kt::BE32(rebuilt, 192), kt::BE32(rebuilt, 28) + 1) << "menu VOB start sector";
    EXPECT_EQ(fs::file_size(out / "VIDEO_TS/VIDEO_TS.VOB"), 0u);
}

// The summary names a changed byte by the field the file's own layout puts there: with the
// First Play PGC moved from byte 1024 to 512, over where the menu sub-picture attributes
// would be, the byte is the PGC's.
TEST_F(ToolRebuild, SummaryNamesBytesByTheFilesOwnLayout) {
    auto vmg = kt::ReadBytes(disc_ / "VIDEO_TS.IFO");
    const uint32_t fp = kt::BE32(vmg, 132), size = kt::BE32(vmg, 128) - fp + 1;
    ASSERT_EQ(fp, 1024u);
    std::copy(vmg.begin() + fp, vmg.begin() + fp + size, vmg.begin() + 512);
    std::fill(vmg.begin() + 512 + size, vmg.begin() + fp + size, 0);
    kt::PutBE(vmg, 132, 512, 4);
    kt::PutBE(vmg, 128, 512 + size - 1, 4);
    kt::WriteBytes(disc_ / "VIDEO_TS.IFO", vmg);
    tt::Result r = Kestro({"rebuild", root_, "-o", work_ / "out"});
    ASSERT_EQ(r.code, 0) << r.err;
    const size_t at = r.out.find("  VMGI_MAT");
    const std::string line = r.out.substr(at, r.out.find('\n', at) - at);
    EXPECT_NE(line.find("(fp_pgc)"), std::string::npos) << line;
    EXPECT_EQ(line.find("vmgm_spst_atr"), std::string::npos) << line;
}

// An old folder a killed --force rebuild left aside (where folders cannot be swapped in one
// step) is put back by the next run, not cleared away.
TEST_F(ToolRebuild, AFolderMovedAsideByAKilledRunComesBack) {
    const pid_t ended = fork();
    if (ended == 0) _exit(0);
    waitpid(ended, nullptr, 0);
    const fs::path out = work_ / "out",
                   aside = work_ / (".out.kestro-" + std::to_string(ended) + "-Xy12Ab/old");
    fs::create_directories(aside / "VIDEO_TS");
    kt::WriteText(aside / "VIDEO_TS/VIDEO_TS.IFO", "the old disc\n");
    tt::Result r = Kestro({"rebuild", root_, "-o", out, "-q"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("exists"), std::string::npos) << r.err;
    EXPECT_EQ(kt::ReadText(out / "VIDEO_TS/VIDEO_TS.IFO"), "the old disc\n");
    EXPECT_FALSE(fs::exists(aside.parent_path()));
}

// Side files of an earlier source of the same name, which asm would read with the new source,
// go when disasm --force replaces it; without --force nothing is replaced or removed.
TEST_F(ToolRebuild, DisasmForceRemovesSideFilesOfTheSourceItReplaces) {
    const std::string x = work_ / "x.ini";
    ASSERT_EQ(Kestro({"disasm", disc_ / "VTS_01_0.IFO", "-o", x, "--side-files", "bin"}).code, 0);
    ASSERT_TRUE(fs::exists(work_ / "x tmap.bin"));
    ASSERT_EQ(Kestro({"disasm", disc_ / "VTS_02_0.IFO", "-o", x, "--force"}).code, 0);
    for (auto& e : fs::directory_iterator(work_.path()))
        EXPECT_NE(e.path().filename().string().rfind("x ", 0), 0u) << e.path() << " was left";
    kt::WriteText(work_ / "y vts_vobu_admap.bin", "old");
    tt::Result r = Kestro({"disasm", disc_ / "VTS_02_0.IFO", "-o", work_ / "y.ini"});
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_EQ(kt::ReadText(work_ / "y vts_vobu_admap.bin"), "old");
}

}  // namespace
