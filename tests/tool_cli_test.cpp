// The kestro command's interface: exit codes and messages, --force on every
// output, the safety of inputs, and reports of every size.
#include <sys/stat.h>

#include "kestro/kestro.h"
#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using tt::Kestro;

// The smallest title set source: a management table and nothing else.
std::string MinimalVtsSource() {
    std::string s =
        "[vtsi_mat]\nvts_id=DVDVIDEO-VTS\nvern=1.1\nvts_cat=00000000\nvtsm_v_atr=4d01\n"
        "vtsm_ast_ns=0\nvtsm_ast_atr=0000000000000000\nvtsm_spst_ns=0\n"
        "vtsm_spst_atr=000000000000\nvts_v_atr=4d01\nvts_ast_ns=0\nvts_spst_ns=0\n";
    for (int k = 1; k <= 8; ++k)
        s += "vts_mu_ast_atrt0" + std::to_string(k) + "=" + std::string(48, '0') + "\n";
    return s;
}

// Every test starts from the minimal source and a disc assembled from it.
class ToolCli : public ::testing::Test {
protected:
    void SetUp() override {
        TT_REQUIRE_KESTRO();
        kt::WriteText(src, MinimalVtsSource());
        fs::create_directories(dir / "disc/VIDEO_TS");
        ASSERT_EQ(Kestro({"asm", src, "-o", ifo}).code, 0);
    }
    // Assembles the sample's `name` source into the test folder and lets `patch` damage it.
    std::string Sample(const std::string& name, void (*patch)(std::vector<uint8_t>&)) {
        const std::string to = dir / (name + ".IFO");
        EXPECT_EQ(Kestro({"asm", (tt::SampleDir() / (name + ".ini")).string(), "-o", to}).code, 0);
        std::vector<uint8_t> b = kt::ReadBytes(to);
        patch(b);
        kt::WriteBytes(to, b);
        return to;
    }
    kt::TempDir dir;
    std::string src = dir / "vts.ini", ifo = dir / "disc/VIDEO_TS/VTS_01_0.IFO";
};

// Exit codes 0, 1 and 2, and messages that name the file and the table.
TEST_F(ToolCli, ExitCodesAndMessagesNamingFileAndTable) {
    std::string junk = dir / "VTS_01_0.IFO", bad = dir / "bad.ini", noSpst = dir / "nospst.ini",
                pgc = dir / "pgc.ini";
    kt::WriteText(junk, std::string(4096, 'x'));
    kt::WriteText(bad, "[something]\nkey=1\n");
    std::string s = MinimalVtsSource();
    kt::WriteText(noSpst, s.erase(s.find("vts_spst_ns=0\n"), 14));
    // A PGC whose source lacks a statement: the table and the user's file
    // are named; --lenient writes the file with a warning.
    s = kt::ReadText((tt::SampleDir() / "VTS_02_0.ini").string());
    size_t at = s.find("vts_pgc_pb_tm=");
    ASSERT_NE(at, std::string::npos);
    kt::WriteText(pgc, s.erase(at, s.find('\n', at) + 1 - at));
    fs::create_directory(dir / "lenient");

    const struct {
        std::vector<std::string> args;
        int code;
        std::string needle;  // in stdout or stderr
    } cases[] = {
        {{"--help"}, 0, "rebuild"},
        {{"--version"}, 0, "kestro "},
        {{}, 2, "subcommand"},
        {{"frobnicate"}, 2, ""},
        {{"asm", "x.ini"}, 2, "--output"},
        {{"disasm", "a.IFO", "--side-files", "xml"}, 2, "xml"},
        {{"report", "--bogus", "x"}, 2, "bogus"},
        {{"asm", "x.ini", "-o", "a", "--output=b"}, 2, "--output: At Most 1"},
        {{"asm", "x.ini", "-oa", "--force=yes"}, 2, "force was given a disallowed flag override"},
        {{"asm", "x.ini", "--output", "--force"}, 2, "--output: needs a value, not '--force'"},
        {{"rebuild", "x", "--output", "-q"}, 2, "--output: needs a value, not '-q'"},
        {{"rebuild", "x", "-o", "y", "-qz"}, 2, "not expected: -z"},
        {{"rebuild", dir / "disc", "-o", dir / "combined", "-qf"}, 0, ""},
        {{"rebuild", "a", "b", "-o", "c"}, 2, "not expected: b"},
        {{"disasm", "--help"}, 0, "--library-rules"},
        {{"asm", "--help"}, 0, "--library-rules"},
        {{"rebuild", "--help"}, 0, "--library-rules"},
        {{"asm", "x.ini", "-o", "a", "--library-rules"}, 1, "x.ini"},
        {{"rebuild", "x", "-o", "y", "--library-rules=no"}, 2, "library-rules"},
        {{"report", "--", "--bogus"}, 1, "--bogus: no such file"},
        {{"disasm", junk, "--output=" + (dir / "j.ini")}, 1, "not a DVD-Video information file"},
        {{"report", junk}, 1, "not a DVD-Video information file"},
        {{"report", dir / "missing.IFO"}, 1, "no such file"},
        {{"disasm", junk, "-o", dir / "j.ini"}, 1, "not a DVD-Video information file"},
        {{"asm", bad, "-o", dir / "VTS_01_0x.IFO"}, 1, "neither a vmgi_mat nor a vtsi_mat"},
        {{"asm", noSpst, "-o", dir / "VTS_02_0.IFO"},
         1,
         "nospst.ini: VTSI_MAT: [vts_spst_ns] Statement missing in vtsi_mat"},
        {{"asm", pgc, "-o", dir / "VTS_02_0.IFO"},
         1,
         "pgc.ini: VTS_PGCIT: [vts_pgc_pb_tm] statement missing from section vts_pgcit01 of " +
             pgc},
        {{"asm", pgc, "-o", dir / "none/VTS_02_0.IFO", "--lenient"}, 1, "none"},
        {{"asm", pgc, "-o", dir / "lenient/VTS_02_0.IFO", "--lenient"},
         0,
         "warning: pgc.ini: VTS_PGCIT: [vts_pgc_pb_tm]"},
    };
    for (const auto& c : cases) {
        tt::Result r = Kestro(c.args);
        EXPECT_TRUE(r.code == c.code && (r.out + r.err).find(c.needle) != std::string::npos)
            << "expected " << c.code << " and '" << c.needle << "', got " << r.code << ": " << r.out
            << r.err;
    }
    // A failed assembly leaves nothing behind, not even a staged file.
    for (auto& e : fs::directory_iterator(dir.path()))
        EXPECT_EQ(e.path().filename().string().find("VTS_02_0"), std::string::npos) << e.path();
}

// --force guards every kind of output, and rebuild never writes into its input.
TEST_F(ToolCli, ForceGuardsEveryOutputKind) {
    std::vector<uint8_t> built = kt::ReadBytes(ifo);
    EXPECT_EQ(kt::ReadBytes(dir / "disc/VIDEO_TS/VTS_01_0.BUP"), built);
    const struct {
        std::string existing;
        std::vector<std::string> args;
    } cases[] = {
        {dir / "out/VTS_01_0.IFO", {"asm", src, "-o", dir / "out/VTS_01_0.IFO"}},
        {dir / "out/VTS_02_0.BUP", {"asm", src, "-o", dir / "out/VTS_02_0.IFO"}},
        {dir / "out/v.ini", {"disasm", ifo, "-o", dir / "out/v.ini"}},
        {dir / "rebuilt/keep", {"rebuild", dir / "disc", "-o", dir / "rebuilt", "-q"}},
    };
    for (auto c : cases) {
        fs::create_directories(fs::path(c.existing).parent_path());
        kt::WriteText(c.existing, "precious");
        tt::Result r = Kestro(c.args);
        EXPECT_TRUE(r.code == 1 && r.err.find("--force") != std::string::npos) << r.err;
        EXPECT_EQ(kt::ReadText(c.existing), "precious");
        c.args.push_back("--force");
        EXPECT_EQ(Kestro(c.args).code, 0) << c.existing;
        EXPECT_NE(kt::ReadText(c.existing), "precious");
    }
    EXPECT_EQ(kt::ReadBytes(dir / "out/VTS_01_0.IFO"), built);
    EXPECT_EQ(kt::ReadBytes(dir / "rebuilt/VIDEO_TS/VTS_01_0.IFO"), built);
    // --no-backup writes the IFO file only.
    EXPECT_EQ(Kestro({"asm", src, "-o", dir / "out/VTS_03_0.IFO", "--no-backup"}).code, 0);
    EXPECT_FALSE(fs::exists(dir / "out/VTS_03_0.BUP"));
    for (const char* inside : {"disc", "disc/VIDEO_TS", "disc/new", "."}) {
        tt::Result r = Kestro({"rebuild", dir / "disc", "-o", dir / inside, "--force"});
        EXPECT_TRUE(r.code == 1 && r.err.find("outside the input") != std::string::npos)
            << inside << ": " << r.err;
    }
    EXPECT_EQ(kt::ReadBytes(ifo), built);
}

// Inputs on read-only media are read and left untouched (IFO and BUP alone stay).
TEST_F(ToolCli, InputsStayUntouchedOnReadOnlyMedia) {
    fs::path media = dir / "disc/VIDEO_TS";
    std::vector<uint8_t> before = kt::ReadBytes(ifo);
    struct stat st0 {
    }, st1{};
    ::stat(ifo.c_str(), &st0);
    fs::permissions(ifo, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    fs::permissions(media, fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(Kestro({"report", ifo}).code, 0);
    EXPECT_EQ(Kestro({"report", media}).code, 0);
    EXPECT_EQ(Kestro({"disasm", ifo, "-o", dir / "v.ini"}).code, 0);
    EXPECT_EQ(Kestro({"asm", dir / "v.ini", "-o", dir / "VTS_01_0.IFO"}).code, 0);
    fs::permissions(media, fs::perms::owner_all);
    ::stat(ifo.c_str(), &st1);
    EXPECT_EQ(kt::ReadBytes(ifo), before);
    EXPECT_EQ(st0.st_mtime, st1.st_mtime);
    EXPECT_EQ(std::distance(fs::directory_iterator(media), fs::directory_iterator()), 2);
}

// A report far larger than the first buffer is complete; a table whose report fails for
// another reason shows its error text, and the others are still reported.
TEST_F(ToolCli, ReportsGrowTheirBuffer) {
    std::string big = MinimalVtsSource() + "[vts_ptt_srpt]\nvts_ttu_ns=0\n[vts_vobu_admap]\n";
    for (int i = 1; i <= 6000; ++i)
        big += "vobu_sa" + std::to_string(10000 + i).substr(1) + "=" + std::to_string(i * 7) + "\n";
    kt::WriteText(dir / "big.ini", big);
    ASSERT_EQ(Kestro({"asm", dir / "big.ini", "-o", dir / "VTS_02_0.IFO"}).code, 0);
    tt::Result r = Kestro({"report", dir / "VTS_02_0.IFO"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("VTS_02_0.IFO: VTS_PTT_SRPT:   ERROR: vts_ttu_ns = 0"), std::string::npos)
        << r.err;
    for (const char* line : {"---- VTSI_MAT ----", "VTS Identifier: DVDVIDEO-VTS",
                             "Number of Title Unit Serch Pointers TTUs in the VTS: 0",
                             "  VOBU 6000 starts at sector 42000\n"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line;
    EXPECT_EQ(r.out.find('\r'), std::string::npos);
}

// A PGC of 65,535 pre commands (zeros past the file) makes megabytes of report, which come
// out once and whole, as into a buffer large enough.
TEST_F(ToolCli, OnePgcLargerThanTheFirstBufferIsReportedOnce) {
    const std::string vts = Sample("VTS_02_0", [](std::vector<uint8_t>& b) {
        const size_t pgcit = size_t(kt::BE32(b, 0xCC)) * 2048,
                     pgc = pgcit + kt::BE32(b, pgcit + 12);
        kt::PutBE(b, pgc + (kt::BE32(b, pgc + 0xE4) >> 16), 0xFFFF, 2);
    });
    CKestro_VTS_MAT mat;
    CKestro_PGCI codec;
    unsigned long h = mat.OpenKestroFile(vts.c_str());
    ASSERT_EQ(mat.Load(int(h)), 1);
    std::vector<char> big(size_t(1) << 25, '\0');
    ASSERT_TRUE(mat.GetVTS_PGCIT()->Details(&codec, big.data(), int(big.size()) - 3));
    mat.CloseKestroFile(h);
    std::string expected =
        "---- VTS_PGCIT ----\n" + std::regex_replace(big.data(), std::regex("\r"), "");
    ASSERT_GT(expected.size(), size_t(2) << 20);

    tt::Result r = Kestro({"report", vts});
    EXPECT_EQ(r.code, 0) << r.err;
    size_t from = r.out.find("---- VTS_PGCIT ----\n");
    ASSERT_NE(from, std::string::npos);
    EXPECT_EQ(r.out.substr(from, r.out.find("---- ", from + 1) - from), expected);
}

// A cell address table whose end address is below 7 announces some 357 million entries: the
// report stops at 256 MiB with a message, and the other tables are still reported.
TEST_F(ToolCli, AReportOfADamagedTableStopsWithAMessage) {
    const std::string vmg = Sample("VIDEO_TS", [](std::vector<uint8_t>& b) {
        const size_t cadt = size_t(kt::BE32(b, 0xD8)) * 2048;
        ASSERT_TRUE(cadt != 0 && cadt + 8 <= b.size());
        kt::PutBE(b, cadt + 4, 3, 4);
    });
    tt::Result r = Kestro({"report", vmg});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("VIDEO_TS.IFO: VMGM_C_ADT: report stopped after 256 MiB"),
              std::string::npos)
        << r.err;
    EXPECT_LT(r.out.size(), size_t(300) << 20);
    EXPECT_NE(r.out.find("---- VMGM_VOBU_ADMAP ----"), std::string::npos);
}

}  // namespace
