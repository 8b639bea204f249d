// kestro rebuild: where the new folder goes, what empty stand-ins for missing
// VOB files keep, how the summary names changed bytes, and what earlier and
// killed runs left beside an output.
#include <sys/wait.h>
#include <unistd.h>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;

class ToolRebuild : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        tt::AssembleSample(disc_);
    }
    kt::TempDir work_;
    fs::path disc_ = work_.path() / "disc/VIDEO_TS";
};

// -o names the disc root or its VIDEO_TS folder; missing folders are made (and go on failure).
TEST_F(ToolRebuild, OutputNamesTheDiscRootOrItsVideoTsFolderAndMissingFoldersAreMade) {
    const fs::path root = work_.path() / "a/b/disc", videoTs = work_.path() / "c/d/VIDEO_TS";
    ASSERT_EQ(tt::Kestro({"rebuild", disc_.parent_path(), "-o", root, "-q"}).code, 0);
    ASSERT_EQ(tt::Kestro({"rebuild", disc_.parent_path(), "-o", videoTs, "-q"}).code, 0);
    for (const char* name : {"VIDEO_TS.IFO", "VTS_01_0.BUP", "VTS_02_1.VOB"}) {
        EXPECT_TRUE(fs::is_regular_file(root / "VIDEO_TS" / name)) << name;
        EXPECT_TRUE(fs::is_regular_file(videoTs / name)) << name;
    }
    EXPECT_FALSE(fs::exists(videoTs / "VIDEO_TS"));
    EXPECT_EQ(fs::status(videoTs).permissions() & fs::perms::others_read, fs::perms::others_read);
    // A rebuild that fails leaves no folder it made.
    const fs::path failed = work_.path() / "e/f/VIDEO_TS";
    kt::WriteText((disc_ / "VTS_02_0.IFO").string(), "not an IFO file");
    EXPECT_EQ(tt::Kestro({"rebuild", disc_.parent_path(), "-o", failed, "-q"}).code, 1);
    EXPECT_FALSE(fs::exists(work_.path() / "e"));
}

// A placeholder menu VOB of no sectors keeps the menu VOB start sector.
TEST_F(ToolRebuild, PlaceholderVobsKeepAMenuVobOfNoSectors) {
    // An IFO-only folder whose video manager records a menu VOB start but
    // end addresses that leave the menu VOB no sectors.
    const fs::path bare = work_.path() / "bare";
    fs::create_directories(bare);
    auto vmg = kt::ReadBytes((disc_ / "VIDEO_TS.IFO").string());
    ASSERT_NE(kt::BE32(vmg, 192), 0u);
    kt::PutBE(vmg, 12, 2 * (kt::BE32(vmg, 28) + 1) - 1, 4);  // VMG_EA: IFO and BUP only
    kt::WriteBytes((bare / "VIDEO_TS.IFO").string(), vmg);
    const fs::path out = work_.path() / "out";
    ASSERT_EQ(tt::Kestro({"rebuild", bare, "-o", out, "-q", "--placeholder-vobs"}).code, 0);
    const auto rebuilt = kt::ReadBytes((out / "VIDEO_TS/VIDEO_TS.IFO").string());
    EXPECT_EQ(kt::BE32(rebuilt, 192), kt::BE32(rebuilt, 28) + 1) << "menu VOB start sector";
    EXPECT_EQ(fs::file_size(out / "VIDEO_TS/VIDEO_TS.VOB"), 0u);
}

// The summary names a changed byte by the field the file's own layout puts there.
TEST_F(ToolRebuild, SummaryNamesBytesByTheFilesOwnLayout) {
    // The First Play PGC moved from byte 1024 to byte 512, over the bytes
    // where the menu sub-picture attributes would be.
    auto vmg = kt::ReadBytes((disc_ / "VIDEO_TS.IFO").string());
    const uint32_t fp = kt::BE32(vmg, 132), end = kt::BE32(vmg, 128);
    ASSERT_EQ(fp, 1024u);
    const uint32_t size = end - fp + 1;
    std::copy(vmg.begin() + fp, vmg.begin() + fp + size, vmg.begin() + 512);
    std::fill(vmg.begin() + 512 + size, vmg.begin() + fp + size, 0);
    kt::PutBE(vmg, 132, 512, 4);
    kt::PutBE(vmg, 128, 512 + size - 1, 4);
    kt::WriteBytes((disc_ / "VIDEO_TS.IFO").string(), vmg);
    tt::Result r = tt::Kestro({"rebuild", disc_.parent_path(), "-o", work_.path() / "out"});
    ASSERT_EQ(r.code, 0) << r.err;
    const std::string line =
        r.out.substr(r.out.find("  VMGI_MAT"),
                     r.out.find('\n', r.out.find("  VMGI_MAT")) - r.out.find("  VMGI_MAT"));
    EXPECT_NE(line.find("(fp_pgc)"), std::string::npos) << line;
    EXPECT_EQ(line.find("vmgm_spst_atr"), std::string::npos) << line;
}

// An old folder a killed --force rebuild left aside (where folders cannot be swapped in one
// step) is put back by the next run, not cleared away.
TEST_F(ToolRebuild, AFolderMovedAsideByAKilledRunComesBack) {
    const pid_t ended = fork();
    if (ended == 0) _exit(0);
    waitpid(ended, nullptr, 0);
    const fs::path out = work_.path() / "out";
    const fs::path aside =
        work_.path() / (".out.kestro-" + std::to_string(ended) + "-Xy12Ab") / "old";
    fs::create_directories(aside / "VIDEO_TS");
    kt::WriteText((aside / "VIDEO_TS/VIDEO_TS.IFO").string(), "the old disc\n");
    tt::Result r = tt::Kestro({"rebuild", disc_.parent_path(), "-o", out, "-q"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("exists"), std::string::npos) << r.err;
    EXPECT_EQ(kt::ReadText((out / "VIDEO_TS/VIDEO_TS.IFO").string()), "the old disc\n");
    EXPECT_FALSE(fs::exists(aside.parent_path()));
}

// Side files of an earlier source of the same name, which asm would read
// with the new source, go when disasm --force replaces it.
TEST_F(ToolRebuild, DisasmForceRemovesSideFilesOfTheSourceItReplaces) {
    const std::string src = (work_.path() / "x.ini").string();
    ASSERT_EQ(tt::Kestro({"disasm", disc_ / "VTS_01_0.IFO", "-o", src, "--side-files", "bin"}).code,
              0);
    ASSERT_TRUE(fs::exists(work_.path() / "x tmap.bin"));
    ASSERT_EQ(tt::Kestro({"disasm", disc_ / "VTS_02_0.IFO", "-o", src, "--force"}).code, 0);
    for (auto& e : fs::directory_iterator(work_.path()))
        EXPECT_EQ(e.path().filename().string().rfind("x ", 0), std::string::npos)
            << e.path() << " was left";
    // Without --force nothing is replaced or removed.
    kt::WriteText((work_.path() / "y vts_vobu_admap.bin").string(), "old");
    tt::Result r =
        tt::Kestro({"disasm", disc_ / "VTS_02_0.IFO", "-o", (work_.path() / "y.ini").string()});
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_EQ(kt::ReadText((work_.path() / "y vts_vobu_admap.bin").string()), "old");
}

}  // namespace
