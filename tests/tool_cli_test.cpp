// The kestro command's interface: exit codes and messages, --force on every output, the safety
// of inputs, and reports of every size, with their carriage returns squeezed out in place.
#include <random>

#include "kestro/kestro.h"
#include "line_ends.h"
#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using tt::Kestro;

// The smallest title set source: the sample's management table and nothing else.
std::string MinimalVtsSource() {
    const std::string s = kt::ReadText(tt::SampleDir() / "VTS_01_0.ini");
    return s.substr(0, s.find("\n[") + 1);
}

// `source` less the statement of `key`.
std::string Without(std::string source, const std::string& key) {
    const size_t at = source.find("\n" + key + "=") + 1;
    return source.erase(at, source.find('\n', at) + 1 - at);
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
    kt::TempDir dir;
    std::string src = dir / "vts.ini", ifo = dir / "disc/VIDEO_TS/VTS_01_0.IFO";
};

// Exit codes 0, 1 and 2, messages naming file and table; reports far past the first buffer come
// out whole or stop at 256 MiB with a message, and a failing table leaves the others reported.
TEST_F(ToolCli, ExitCodesAndMessagesNamingFileAndTable) {
    const std::string junk = dir / "VTS_01_0.IFO", bad = dir / "bad.ini",
                      noSpst = dir / "nospst.ini", pgc = dir / "pgc.ini", big = dir / "big.ini";
    kt::WriteText(junk, std::string(4096, 'x'));
    kt::WriteText(bad, "[something]\nkey=1\n");
    kt::WriteText(noSpst, Without(MinimalVtsSource(), "vts_spst_ns"));
    kt::WriteText(pgc, Without(kt::ReadText(tt::SampleDir() / "VTS_02_0.ini"), "vts_pgc_pb_tm"));
    std::string s = MinimalVtsSource() + "[vts_ptt_srpt]\nvts_ttu_ns=0\n[vts_vobu_admap]\n";
    for (int i = 1; i <= 6000; ++i)
        s += "vobu_sa" + std::to_string(10000 + i).substr(1) + "=" + std::to_string(i * 7) + "\n";
    kt::WriteText(big, s);
    ASSERT_EQ(Kestro({"asm", big, "-o", dir / "VTS_03_0.IFO"}).code, 0);
    // A cell address table whose end address is below 7 announces some 357 million entries.
    const std::string vmg = dir / "VIDEO_TS.IFO";
    ASSERT_EQ(Kestro({"asm", tt::SampleDir() / "VIDEO_TS.ini", "-o", vmg}).code, 0);
    auto b = kt::ReadBytes(vmg);
    kt::PutBE(b, size_t(kt::BE32(b, 0xD8)) * 2048 + 4, 3, 4);
    kt::WriteBytes(vmg, b);
    const struct {
        std::vector<std::string> args;
        int code;
        std::vector<std::string> texts;  // in stdout or stderr
    } cases[] = {
        {{"--help"}, 0, {"rebuild"}},
        {{"--version"}, 0, {"kestro "}},
        {{}, 2, {"subcommand"}},
        {{"frobnicate"}, 2, {}},
        {{"check"}, 2, {"PATH is required"}},
        {{"check", "--no-such-option", "x"}, 2, {"not expected: --no-such-option"}},
        {{"asm", "x.ini"}, 2, {"--output"}},
        {{"disasm", "a.IFO", "--side-files", "xml"}, 2, {"xml"}},
        {{"report", "--bogus", "x"}, 2, {"bogus"}},
        {{"asm", "x.ini", "-o", "a", "--output=b"}, 2, {"--output: At Most 1"}},
        {{"asm", "x.ini", "-oa", "--force=yes"}, 2, {"force was given a disallowed flag override"}},
        {{"asm", "x.ini", "--output", "--force"}, 2, {"--output: needs a value, not '--force'"}},
        {{"rebuild", "x", "--output", "-q"}, 2, {"--output: needs a value, not '-q'"}},
        {{"rebuild", "x", "-o", "y", "-qz"}, 2, {"not expected: -z"}},
        {{"rebuild", dir / "disc", "-o", dir / "combined", "-qf"}, 0, {}},
        {{"rebuild", "a", "b", "-o", "c"}, 2, {"not expected: b"}},
        {{"disasm", "--help"}, 0, {"--library-rules"}},
        {{"asm", "--help"}, 0, {"--library-rules"}},
        {{"rebuild", "--help"}, 0, {"--library-rules"}},
        {{"rebuild", "x", "-o", "y", "--library-rules=no"}, 2, {"library-rules"}},
        {{"report", "--", "--bogus"}, 1, {"--bogus: no such file"}},
        {{"disasm", junk, "--output=" + (dir / "j.ini")}, 1, {"not a DVD-Video information file"}},
        {{"asm", bad, "-o", dir / "VTS_01_0x.IFO"}, 1, {"neither a vmgi_mat nor a vtsi_mat"}},
        {{"asm", noSpst, "-o", dir / "VTS_02_0.IFO"},
         1,
         {"nospst.ini: VTSI_MAT: [vts_spst_ns] Statement missing in vtsi_mat"}},
        {{"asm", pgc, "-o", dir / "VTS_02_0.IFO"},
         1,
         {"pgc.ini: VTS_PGCIT: [vts_pgc_pb_tm] statement missing from section vts_pgcit01 of " +
          pgc}},
        {{"asm", pgc, "-o", dir / "none/VTS_02_0.IFO", "--lenient"}, 1, {"none"}},
        {{"asm", pgc, "-o", dir / "disc/VIDEO_TS/VTS_02_0.IFO", "--lenient"},
         0,
         {"warning: pgc.ini: VTS_PGCIT: [vts_pgc_pb_tm]"}},
        {{"report", dir / "VTS_03_0.IFO"},
         1,
         {"VTS_03_0.IFO: VTS_PTT_SRPT:   ERROR: vts_ttu_ns = 0",
          "Number of Title Unit Serch Pointers TTUs in the VTS: 0",
          "  VOBU 6000 starts at sector 42000\n"}},
        {{"report", vmg},
         1,
         {"VIDEO_TS.IFO: VMGM_C_ADT: report stopped after 256 MiB", "---- VMGM_VOBU_ADMAP ----"}},
    };
    for (const auto& c : cases) {
        const tt::Result r = Kestro(c.args);
        SCOPED_TRACE(std::to_string(r.code) + ": " + r.err + r.out.substr(0, 4000));
        EXPECT_EQ(r.code, c.code);
        for (const std::string& text : c.texts)
            EXPECT_NE((r.out + r.err).find(text), std::string::npos) << text;
        EXPECT_TRUE(r.out.find('\r') == std::string::npos && r.out.size() < (size_t(300) << 20));
    }
    // A failing table's message goes to stderr, apart from the report text.
    EXPECT_NE(Kestro({"report", dir / "VTS_03_0.IFO"})
                  .err.find("VTS_03_0.IFO: VTS_PTT_SRPT:   ERROR: vts_ttu_ns = 0"),
              std::string::npos);
    // A failed assembly leaves nothing behind, not even a staged file.
    for (auto& e : fs::directory_iterator(dir.path()))
        EXPECT_EQ(e.path().filename().string().find("VTS_02_0"), std::string::npos) << e.path();
}

// --force guards every kind of output, side files of a source (which asm would read with it)
// too, and rebuild never writes into its input. Read-only inputs are read and left untouched.
TEST_F(ToolCli, ForceGuardsEveryOutputAndInputsStayUntouched) {
    const fs::path media = dir / "disc/VIDEO_TS";
    const std::vector<uint8_t> built = kt::ReadBytes(ifo);
    EXPECT_EQ(kt::ReadBytes(media / "VTS_01_0.BUP"), built);
    const auto modified = fs::last_write_time(ifo);
    fs::permissions(ifo, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    fs::permissions(media, fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(Kestro({"report", ifo}).code, 0);
    EXPECT_EQ(Kestro({"report", media}).code, 0);
    EXPECT_EQ(Kestro({"disasm", ifo, "-o", dir / "v.ini"}).code, 0);
    EXPECT_EQ(Kestro({"asm", dir / "v.ini", "-o", dir / "VTS_01_0.IFO"}).code, 0);
    fs::permissions(media, fs::perms::owner_all);

    const struct {
        std::string existing;
        std::vector<std::string> args;
    } cases[] = {
        {dir / "out/VTS_01_0.IFO", {"asm", src, "-o", dir / "out/VTS_01_0.IFO"}},
        {dir / "out/VTS_02_0.BUP", {"asm", src, "-o", dir / "out/VTS_02_0.IFO"}},
        {dir / "out/v.ini", {"disasm", ifo, "-o", dir / "out/v.ini"}},
        {dir / "out/v tmap.bin", {"disasm", ifo, "-o", dir / "out/v.ini", "--side-files", "bin"}},
        {dir / "out/w TmapTable1.ini",
         {"disasm", ifo, "-o", dir / "out/w.ini", "--side-files", "ini"}},
        {dir / "out/x vts_vobu_admap.bin", {"disasm", ifo, "-o", dir / "out/x.ini"}},
        {dir / "rebuilt/keep", {"rebuild", dir / "disc", "-o", dir / "rebuilt", "-q"}},
    };
    for (auto c : cases) {
        fs::create_directories(fs::path(c.existing).parent_path());
        kt::WriteText(c.existing, "precious");
        const tt::Result r = Kestro(c.args);
        EXPECT_TRUE(r.code == 1 && r.err.find("--force") != std::string::npos) << r.err;
        EXPECT_EQ(kt::ReadText(c.existing), "precious");
        c.args.push_back("--force");
        EXPECT_EQ(Kestro(c.args).code, 0) << c.existing;
        EXPECT_NE(kt::ReadText(c.existing), "precious");
    }
    EXPECT_EQ(kt::ReadBytes(dir / "out/VTS_01_0.IFO"), built);
    EXPECT_EQ(kt::ReadBytes(dir / "rebuilt/VIDEO_TS/VTS_01_0.IFO"), built);
    EXPECT_EQ(Kestro({"asm", src, "-o", dir / "out/VTS_03_0.IFO", "--no-backup"}).code, 0);
    EXPECT_FALSE(fs::exists(dir / "out/VTS_03_0.BUP"));
    for (const char* inside : {"disc", "disc/VIDEO_TS", "disc/new", "."}) {
        const tt::Result r = Kestro({"rebuild", dir / "disc", "-o", dir / inside, "--force"});
        EXPECT_TRUE(r.code == 1 && r.err.find("outside the input") != std::string::npos)
            << inside << ": " << r.err;
    }
    EXPECT_EQ(kt::ReadBytes(ifo), built);
    EXPECT_EQ(fs::last_write_time(ifo), modified);
    EXPECT_EQ(std::distance(fs::directory_iterator(media), fs::directory_iterator()), 2);
}

// A PGC of 65,535 pre commands (zeros past the file) makes megabytes of report, which come
// out once and whole, as into a buffer large enough.
TEST_F(ToolCli, OnePgcLargerThanTheFirstBufferIsReportedOnce) {
    const std::string vts = dir / "VTS_02_0.IFO";
    ASSERT_EQ(Kestro({"asm", tt::SampleDir() / "VTS_02_0.ini", "-o", vts}).code, 0);
    auto b = kt::ReadBytes(vts);
    const size_t pgcit = size_t(kt::BE32(b, 0xCC)) * 2048, pgc = pgcit + kt::BE32(b, pgcit + 12);
    kt::PutBE(b, pgc + (kt::BE32(b, pgc + 0xE4) >> 16), 0xFFFF, 2);  // pre command count
    kt::WriteBytes(vts, b);
    CKestro_VTS_MAT mat;
    CKestro_PGCI codec;
    const unsigned long h = mat.OpenKestroFile(vts.c_str());
    ASSERT_EQ(mat.Load(int(h)), 1);
    std::vector<char> big(size_t(1) << 25, '\0');
    ASSERT_TRUE(mat.GetVTS_PGCIT()->Details(&codec, big.data(), int(big.size()) - 3));
    mat.CloseKestroFile(h);
    const std::string expected =
        "---- VTS_PGCIT ----\n" + std::regex_replace(big.data(), std::regex("\r"), "");
    ASSERT_GT(expected.size(), size_t(2) << 20);
    const tt::Result r = Kestro({"report", vts});
    EXPECT_EQ(r.code, 0) << r.err;
    const size_t from = r.out.find("---- VTS_PGCIT ----\n");
    EXPECT_EQ(r.out.substr(from, r.out.find("---- ", from + 1) - from), expected);
}

// The command squeezes the "\r" out of report text in place, sixteen bytes at a time once it
// runs far enough behind: texts of every length and density of "\r" against the plain reading.
TEST(LineEnds, SqueezeLeavesOutEveryCarriageReturnAndNothingElse) {
    std::mt19937 random(7);
    for (const std::string alphabet :
         {"\r\n", "ab\r\n", "abcdefgh\r", "abcdefghijklmnopqrstuvwxyz0123456789\r"})
        for (size_t size : {0, 1, 15, 16, 17, 31, 32, 33, 47, 100, 1000, 40000}) {
            std::string text, expected;
            for (size_t i = 0; i < size; ++i) text += alphabet[random() % alphabet.size()];
            std::remove_copy(text.begin(), text.end(), std::back_inserter(expected), '\r');
            text += std::string(16, 'G');  // nothing is written past the text
            const size_t n = kestro_tool::SqueezeCarriageReturns(&text[0], size);
            EXPECT_EQ(text.substr(0, n) + text.substr(size), expected + std::string(16, 'G'))
                << alphabet.size() << " " << size;
        }
}

}  // namespace
