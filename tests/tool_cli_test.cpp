// The kestro command's interface: exit codes, help and version, messages
// naming file and table, and the safety of inputs and existing outputs.
#include <sys/stat.h>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;

// The smallest title set source: a management table and nothing else.
std::string MinimalVtsSource() {
    std::string s =
        "[vtsi_mat]\n"
        "vts_id=DVDVIDEO-VTS\n"
        "vern=1.1\n"
        "vts_cat=00000000\n"
        "vtsm_v_atr=4d01\n"
        "vtsm_ast_ns=0\n"
        "vtsm_ast_atr=0000000000000000\n"
        "vtsm_spst_ns=0\n"
        "vtsm_spst_atr=000000000000\n"
        "vts_v_atr=4d01\n"
        "vts_ast_ns=0\n"
        "vts_spst_ns=0\n";
    for (int k = 1; k <= 8; ++k)
        s += "vts_mu_ast_atrt0" + std::to_string(k) + "=" + std::string(48, '0') + "\n";
    return s;
}

class ToolCli : public ::testing::Test {
protected:
    void SetUp() override {
        if (!fs::exists(tt::KestroBinary()))
            GTEST_SKIP() << "the kestro command is not built (" << tt::KestroBinary() << ")";
    }
    kt::TempDir dir;
};

TEST_F(ToolCli, HelpVersionAndUsageErrors) {
    struct Case {
        std::vector<std::string> args;
        int code;
        const char* needle;  // in stdout (code 0) or stderr
    };
    const Case cases[] = {
        {{"--help"}, 0, "rebuild"},
        {{"report", "--help"}, 0, "PATH"},
        {{"disasm", "--help"}, 0, "--side-files"},
        {{"asm", "--help"}, 0, "--abs"},
        {{"rebuild", "--help"}, 0, "--copy-vobs"},
        {{"--version"}, 0, "kestro "},
        {{}, 2, "subcommand"},
        {{"frobnicate"}, 2, ""},
        {{"asm", "x.ini"}, 2, "--output"},
        {{"disasm", "a.IFO", "--side-files", "xml"}, 2, "xml"},
        {{"report", "--bogus", "x"}, 2, "bogus"},
    };
    for (const auto& c : cases) {
        tt::Result r = tt::Kestro(c.args);
        std::string all = r.out + r.err;
        EXPECT_EQ(r.code, c.code) << all;
        EXPECT_NE(all.find(c.needle), std::string::npos) << all;
    }
}

TEST_F(ToolCli, FailuresNameFileAndTable) {
    std::string junk = dir / "VTS_01_0.IFO";
    kt::WriteText(junk, std::string(4096, 'x'));
    std::string bad = dir / "bad.ini";
    kt::WriteText(bad, "[something]\nkey=1\n");
    std::string noSpst = dir / "nospst.ini";
    std::string src = MinimalVtsSource();
    src.erase(src.find("vts_spst_ns=0\n"), 14);
    kt::WriteText(noSpst, src);

    struct Case {
        std::vector<std::string> args;
        const char* message;
    };
    const Case cases[] = {
        {{"report", junk}, "not a DVD-Video information file"},
        {{"report", dir / "missing.IFO"}, "no such file"},
        {{"disasm", junk, "-o", dir / "j.ini"}, "not a DVD-Video information file"},
        {{"asm", bad, "-o", dir / "VTS_01_0x.IFO"}, "neither a vmgi_mat nor a vtsi_mat"},
        {{"asm", noSpst, "-o", dir / "VTS_02_0.IFO"},
         "nospst.ini: VTSI_MAT: [vts_spst_ns] Statement missing in vtsi_mat"},
    };
    for (const auto& c : cases) {
        tt::Result r = tt::Kestro(c.args);
        EXPECT_EQ(r.code, 1) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    }
    // A PGC whose source is incomplete fails the assembly, naming the table
    // and the user's source file; --lenient writes the file with a warning.
    std::string sample = kt::ReadText(std::string(KESTRO_SOURCE_DIR) +
                                      "/examples/sample/VTS_02_0.ini");
    size_t at = sample.find("vts_pgc_pb_tm=");
    if (at != std::string::npos) {
        std::string pgc = dir / "pgc.ini";
        kt::WriteText(pgc, sample.substr(0, at) + sample.substr(sample.find('\n', at) + 1));
        tt::Result r = tt::Kestro({"asm", pgc, "-o", dir / "VTS_02_0.IFO"});
        EXPECT_EQ(r.code, 1);
        EXPECT_NE(r.err.find("pgc.ini: VTS_PGCIT: [vts_pgc_pb_tm] statement missing from "
                             "section vts_pgcit01 of " + pgc),
                  std::string::npos)
            << r.err;
        r = tt::Kestro({"asm", pgc, "-o", dir / "lenient/VTS_02_0.IFO", "--lenient"});
        EXPECT_EQ(r.code, 1) << "no such folder";
        fs::create_directory(dir / "lenient");
        r = tt::Kestro({"asm", pgc, "-o", dir / "lenient/VTS_02_0.IFO", "--lenient"});
        EXPECT_EQ(r.code, 0) << r.err;
        EXPECT_NE(r.err.find("warning: pgc.ini: VTS_PGCIT: [vts_pgc_pb_tm]"), std::string::npos)
            << r.err;
    }

    // A failed assembly leaves nothing behind, not even a staged file.
    for (auto& e : fs::directory_iterator(dir.path()))
        EXPECT_EQ(e.path().filename().string().find("VTS_02_0"), std::string::npos)
            << e.path();
}

TEST_F(ToolCli, AssemblesWritesBackupAndNeverReplacesWithoutForce) {
    std::string src = dir / "vts.ini";
    kt::WriteText(src, MinimalVtsSource());
    std::string ifo = dir / "VTS_01_0.IFO";
    tt::Result r = tt::Kestro({"asm", src, "-o", ifo});
    ASSERT_EQ(r.code, 0) << r.err;
    std::vector<uint8_t> built = kt::ReadBytes(ifo);
    ASSERT_EQ(built.size(), 2048u);
    EXPECT_EQ(std::string(built.begin(), built.begin() + 12), "DVDVIDEO-VTS");
    EXPECT_EQ(kt::ReadBytes(dir / "VTS_01_0.BUP"), built);

    // Existing IFO, backup and source are kept unless --force is given.
    kt::WriteText(ifo, "precious");
    r = tt::Kestro({"asm", src, "-o", ifo});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("--force"), std::string::npos) << r.err;
    EXPECT_EQ(kt::ReadText(ifo), "precious");
    r = tt::Kestro({"asm", src, "-o", ifo, "--force"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(kt::ReadBytes(ifo), built);

    std::string out = dir / "again.ini";
    kt::WriteText(out, "keep me");
    r = tt::Kestro({"disasm", ifo, "-o", out});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(kt::ReadText(out), "keep me");
    r = tt::Kestro({"disasm", ifo, "-o", out, "-f"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(kt::ReadText(out).find("vts_id=DVDVIDEO-VTS"), std::string::npos);

    // --no-backup writes the IFO file only.
    r = tt::Kestro({"asm", src, "-o", dir / "VTS_03_0.IFO", "--no-backup"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_FALSE(fs::exists(dir / "VTS_03_0.BUP"));
}

TEST_F(ToolCli, RebuildKeepsExistingFoldersAndItsInput) {
    std::string src = dir / "vts.ini";
    kt::WriteText(src, MinimalVtsSource());
    fs::create_directories(dir / "disc/VIDEO_TS");
    ASSERT_EQ(tt::Kestro({"asm", src, "-o", dir / "disc/VIDEO_TS/VTS_01_0.IFO"}).code, 0);
    fs::create_directories(dir / "out");
    kt::WriteText(dir / "out/keep", "x");

    tt::Result r = tt::Kestro({"rebuild", dir / "disc", "-o", dir / "out"});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(fs::exists(dir / "out/keep"));
    for (const char* bad : {"disc", "disc/VIDEO_TS", "disc/new", "."}) {
        r = tt::Kestro({"rebuild", dir / "disc", "-o", dir / bad, "--force"});
        EXPECT_EQ(r.code, 1) << bad;
        EXPECT_NE(r.err.find("outside the input"), std::string::npos) << r.err;
    }
    r = tt::Kestro({"rebuild", dir / "disc", "-o", dir / "out", "--force", "-q"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_FALSE(fs::exists(dir / "out/keep"));
    EXPECT_EQ(kt::ReadBytes(dir / "out/VIDEO_TS/VTS_01_0.IFO"),
              kt::ReadBytes(dir / "disc/VIDEO_TS/VTS_01_0.IFO"));
    EXPECT_TRUE(fs::exists(dir / "out/VIDEO_TS/VTS_01_0.BUP"));
    EXPECT_TRUE(fs::exists(dir / "disc/VIDEO_TS/VTS_01_0.IFO"));
}

TEST_F(ToolCli, InputsStayUntouchedOnReadOnlyMedia) {
    std::string src = dir / "vts.ini";
    kt::WriteText(src, MinimalVtsSource());
    fs::create_directory(dir / "media");
    std::string ifo = dir / "media/VTS_01_0.IFO";
    ASSERT_EQ(tt::Kestro({"asm", src, "-o", ifo}).code, 0);
    std::vector<uint8_t> before = kt::ReadBytes(ifo);
    struct stat st0 {};
    ::stat(ifo.c_str(), &st0);
    fs::permissions(ifo, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    fs::permissions(dir / "media", fs::perms::owner_read | fs::perms::owner_exec);

    EXPECT_EQ(tt::Kestro({"report", ifo}).code, 0);
    EXPECT_EQ(tt::Kestro({"report", dir / "media"}).code, 0);
    EXPECT_EQ(tt::Kestro({"disasm", ifo, "-o", dir / "v.ini"}).code, 0);
    EXPECT_EQ(tt::Kestro({"asm", dir / "v.ini", "-o", dir / "VTS_01_0.IFO"}).code, 0);

    fs::permissions(dir / "media", fs::perms::owner_all);
    struct stat st1 {};
    ::stat(ifo.c_str(), &st1);
    EXPECT_EQ(kt::ReadBytes(ifo), before);
    EXPECT_EQ(st0.st_mtime, st1.st_mtime);
    std::vector<std::string> names;
    for (auto& e : fs::directory_iterator(dir / "media")) names.push_back(e.path().filename());
    EXPECT_EQ(names.size(), 2u);  // the IFO file and its backup, nothing added
}

TEST_F(ToolCli, ReportShowsEveryTableInLoadOrder) {
    std::string src = dir / "vts.ini";
    kt::WriteText(src, MinimalVtsSource());
    std::string ifo = dir / "VTS_01_0.IFO";
    ASSERT_EQ(tt::Kestro({"asm", src, "-o", ifo}).code, 0);
    tt::Result r = tt::Kestro({"report", ifo});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("---- VTSI_MAT ----"), std::string::npos);
    EXPECT_NE(r.out.find("VTS Identifier: DVDVIDEO-VTS"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find('\r'), std::string::npos);

    // A report far larger than the first buffer is complete; a table whose
    // report fails for another reason shows its error text, and the other
    // tables are still reported.
    std::string big = MinimalVtsSource() + "[vts_ptt_srpt]\nvts_ttu_ns=0\n[vts_vobu_admap]\n";
    for (int i = 1; i <= 6000; ++i) big += "vobu_sa" + std::to_string(10000 + i).substr(1) + "=" +
                                           std::to_string(i * 7) + "\n";
    kt::WriteText(dir / "big.ini", big);
    ASSERT_EQ(tt::Kestro({"asm", dir / "big.ini", "-o", dir / "VTS_02_0.IFO"}).code, 0);
    r = tt::Kestro({"report", dir / "VTS_02_0.IFO"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("VTS_02_0.IFO: VTS_PTT_SRPT:   ERROR: vts_ttu_ns = 0"), std::string::npos)
        << r.err;
    EXPECT_NE(r.out.find("Number of Title Unit Serch Pointers TTUs in the VTS: 0"),
              std::string::npos);
    EXPECT_NE(r.out.find("  VOBU 6000 starts at sector 42000\n"), std::string::npos);

    // With the corpus: every table of a real video manager, in load order.
    auto discs = kt::CorpusFiles("VIDEO_TS");
    if (discs.empty()) return;
    r = tt::Kestro({"report", fs::path(discs[0]).parent_path()});
    ASSERT_EQ(r.code, 0) << r.err;
    size_t last = 0;
    for (const char* t : {"VMGI_MAT", "TT_SRPT", "VTS_ATRT", "VTSI_MAT", "VTS_PTT_SRPT",
                          "VTS_PGCIT"}) {
        size_t at = r.out.find(std::string("---- ") + t + " ----", last);
        EXPECT_NE(at, std::string::npos) << t;
        if (at != std::string::npos) last = at;
    }
}

}  // namespace
