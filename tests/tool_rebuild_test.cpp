// kestro rebuild and disasm beside other files: where the new folder goes, what empty stand-ins
// for missing VOB files keep, how the summary names bytes, what killed runs left, side files.
#include <sys/wait.h>
#include <unistd.h>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using tt::Kestro;
using ToolRebuild = tt::SampleDisc;

// -o names the disc root or its VIDEO_TS folder; missing folders are made (and go on failure).
// The summary names a changed byte by the field the file's own layout puts there: with the First
// Play PGC moved from byte 1024 to 512, over the menu sub-picture attributes, it is the PGC's.
// A placeholder menu VOB of no sectors (the video manager records a menu VOB start, but end
// addresses that leave it no sectors) keeps the menu VOB start sector.
TEST_F(ToolRebuild, OutputFoldersSummaryAndPlaceholderVobs) {
    auto vmg = kt::ReadBytes(ts / "VIDEO_TS.IFO");
    const uint32_t fp = kt::BE32(vmg, 132), size = kt::BE32(vmg, 128) - fp + 1;
    ASSERT_EQ(fp, 1024u);
    std::copy(vmg.begin() + fp, vmg.begin() + fp + size, vmg.begin() + 512);
    std::fill(vmg.begin() + 512 + size, vmg.begin() + fp + size, 0);
    kt::PutBE(vmg, 132, 512, 4);
    kt::PutBE(vmg, 128, 512 + size - 1, 4);
    kt::WriteBytes(ts / "VIDEO_TS.IFO", vmg);
    const fs::path disc = work / "a/b/disc", videoTs = work / "c/d/VIDEO_TS", bare = work / "bare";
    const tt::Result r = Kestro({"rebuild", root, "-o", disc});
    ASSERT_EQ(r.code, 0) << r.err;
    const size_t at = r.out.find("  VMGI_MAT");
    const std::string line = r.out.substr(at, r.out.find('\n', at) - at);
    EXPECT_TRUE(line.find("(fp_pgc)") != line.npos && line.find("vmgm_spst_atr") == line.npos)
        << line;
    ASSERT_EQ(Kestro({"rebuild", root, "-o", videoTs, "-q"}).code, 0);
    for (const char* name : {"VIDEO_TS.IFO", "VTS_01_0.BUP", "VTS_02_1.VOB"})
        EXPECT_TRUE(fs::is_regular_file(disc / "VIDEO_TS" / name) &&
                    fs::is_regular_file(videoTs / name))
            << name;
    EXPECT_FALSE(fs::exists(videoTs / "VIDEO_TS"));
    EXPECT_EQ(fs::status(videoTs).permissions() & fs::perms::others_read, fs::perms::others_read);

    ASSERT_NE(kt::BE32(vmg, 192), 0u);
    kt::PutBE(vmg, 12, 2 * (kt::BE32(vmg, 28) + 1) - 1, 4);  // VMG_EA: IFO and BUP only
    fs::create_directories(bare);
    kt::WriteBytes(bare / "VIDEO_TS.IFO", vmg);
    ASSERT_EQ(Kestro({"rebuild", bare, "-o", work / "out", "-q", "--placeholder-vobs"}).code, 0);
    const auto rebuilt = kt::ReadBytes(work / "out/VIDEO_TS/VIDEO_TS.IFO");
    EXPECT_EQ(kt::BE32(rebuilt, 192), kt::BE32(rebuilt, 28) + 1) << "menu VOB start sector";
    EXPECT_EQ(fs::file_size(work / "out/VIDEO_TS/VIDEO_TS.VOB"), 0u);

    kt::WriteText(ts / "VTS_02_0.IFO", "not an IFO file");
    EXPECT_EQ(Kestro({"rebuild", root, "-o", work / "e/f/VIDEO_TS", "-q"}).code, 1);
    EXPECT_FALSE(fs::exists(work / "e"));
}

// An old folder a killed --force rebuild left aside (where folders cannot be swapped in one
// step) is put back by the next run, not cleared away.
TEST_F(ToolRebuild, AFolderMovedAsideByAKilledRunComesBack) {
    const pid_t ended = fork();
    if (ended == 0) _exit(0);
    waitpid(ended, nullptr, 0);
    const fs::path aside = work / (".out.kestro-" + std::to_string(ended) + "-Xy12Ab/old");
    fs::create_directories(aside / "VIDEO_TS");
    kt::WriteText(aside / "VIDEO_TS/VIDEO_TS.IFO", "the old disc\n");
    const tt::Result r = Kestro({"rebuild", root, "-o", work / "out", "-q"});
    EXPECT_TRUE(r.code == 1 && r.err.find("exists") != std::string::npos) << r.err;
    EXPECT_EQ(kt::ReadText(work / "out/VIDEO_TS/VIDEO_TS.IFO"), "the old disc\n");
    EXPECT_FALSE(fs::exists(aside.parent_path()));
}

// Maps as "ini" or "bin" side files assemble the same IFO file as one source. --force guards
// side files, and removes those of the source it replaces, which asm would read with the new one.
TEST_F(ToolRebuild, SideFilesAssembleTheSameFileAndForceGuardsThem) {
    const fs::path ifo = ts / "VTS_01_0.IFO";
    const std::vector<uint8_t> reference = kt::ReadBytes(ifo);
    for (std::string side : {"ini", "bin"}) {
        SCOPED_TRACE(side);
        const std::string src = work / (side + ".ini"),
                          sideFile =
                              work / (side + (side == "ini" ? " TmapTable1.ini" : " tmap.bin"));
        std::vector<std::string> args = {"disasm", ifo, "-o", src, "--side-files", side};
        kt::WriteText(sideFile, "precious");
        EXPECT_EQ(Kestro(args).code, 1);
        EXPECT_EQ(kt::ReadText(sideFile), "precious");
        args.push_back("-f");
        ASSERT_TRUE(Kestro(args).code == 0 &&
                    Kestro({"asm", src, "-o", ifo, "--no-backup", "-f"}).code == 0);
        EXPECT_TRUE(kt::ReadBytes(ifo) == reference);
    }
    ASSERT_EQ(Kestro({"disasm", ts / "VTS_02_0.IFO", "-o", work / "bin.ini", "--force"}).code, 0);
    for (auto& e : fs::directory_iterator(work.path()))
        EXPECT_NE(e.path().filename().string().rfind("bin ", 0), 0u) << e.path() << " was left";
    kt::WriteText(work / "y vts_vobu_admap.bin", "old");
    EXPECT_EQ(Kestro({"disasm", ts / "VTS_02_0.IFO", "-o", work / "y.ini"}).code, 1);
    EXPECT_EQ(kt::ReadText(work / "y vts_vobu_admap.bin"), "old");
}

}  // namespace
