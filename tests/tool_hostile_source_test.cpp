// Hostile sources (damaged statements, broken grammar, counts at and beyond every capacity),
// assembled, written and loaded back: nothing may crash, overrun, leak or hang.
#include <functional>
#include <sstream>

#include "support/kestro_drive.h"
#include "test_util.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> SampleSources() {
    std::vector<std::string> out;
    std::error_code ec;
    for (auto& e : fs::directory_iterator(fs::path(KESTRO_SOURCE_DIR) / "examples/sample", ec))
        if (e.path().extension() == ".ini") out.push_back(kt::ReadText(e.path().string()));
    std::sort(out.begin(), out.end());
    return out;
}

class HostileSource : public ::testing::Test {
protected:
    void SetUp() override { handle_ = kdrive::NextHandle(scratch_.Path("probe")); }
    void TearDown() override {
        EXPECT_EQ(kdrive::NextHandle(scratch_.Path("probe")), handle_) << "handle left open";
    }
    void Run(const std::string& text) {  // assembles everything, loads it back
        scratch_.Put("source.ini", reinterpret_cast<const uint8_t*>(text.data()), text.size());
        kdrive::DriveSourceAndReload(scratch_);
        scratch_.Clear();
    }
    kdrive::Scratch scratch_{"hostile-src"};
    int handle_ = 0;
};

// Each variant damages a different third of the statements in one way (a
// value; "" drops the statement; "+" appends 300 digits to the old value).
TEST_F(HostileSource, DamagedStatements) {
    const auto sources = SampleSources();
    if (sources.empty()) GTEST_SKIP() << "no sample sources";
    const std::string damages[] = {"",        "=",
                                   "+",       "=x" + std::string(5000, 'f'),
                                   "=-1",     "=99999999999",
                                   "=zz%s%n", "=xffffffffffffffff",
                                   "=$1"};
    for (size_t s = 0; s < sources.size(); ++s)
        for (const std::string& damage : damages)
            for (size_t phase = 0; phase < 3; ++phase) {
                SCOPED_TRACE("source " + std::to_string(s) + ", damage '" + damage.substr(0, 9) +
                             "', phase " + std::to_string(phase));
                std::string text, line;
                std::istringstream in(sources[s]);
                for (size_t statement = 0; std::getline(in, line);) {
                    const size_t eq = line.find('=');
                    if (eq == std::string::npos || line[0] == '[' || statement++ % 3 != phase)
                        text += line + "\n";
                    else if (damage == "+")
                        text += line + std::string(300, '7') + "\n";
                    else if (!damage.empty())
                        text += line.substr(0, eq) + damage + "\n";
                }
                Run(text);
            }
}

// Empty sections, statements without sections, lines without "=", duplicate
// sections and keys, NUL bytes, CR without LF, a very long line.
TEST_F(HostileSource, BrokenGrammar) {
    const auto sources = SampleSources();
    const std::string first = sources.empty() ? std::string() : sources.front();
    const std::string texts[] = {
        "",
        "\n\n\n",
        "vts_ttu_ns=5\nvobu_sa0001=3\n",
        "[vmgi_mat]\n[vtsi_mat]\n[vts_pgcit]\n[vts_vobu_admap]\n",
        "[vts_vobu_admap\nvobu_sa0001=1\n",
        "[vts_vobu_admap]\nvobu_sa0001\n=5\nvobu_sa0002==7\n",
        std::string("[vts_vobu_admap]\nvobu_sa0001=1\0\nvobu_sa0002=2\n", 40),
        "[vts_vobu_admap]\rvobu_sa0001=1\rvobu_sa0002=2\r",
        "[vts_c_adt]\nvts_vob_ns=1\n[vts_c_adt]\nvts_vob_ns=300\n",
        "[vts_ptt_srpt]\nvts_ttu_ns=1\nttu_sa01=16\n000ptt_srp=\n001ptt_srp=999 999\n",
        "[vts_tmapt]\nvts_tmap_ns=1\n[vts_tmapti]\nvts_tmap01_map_en_ns=70000\n",
        "[vts_pgcit]\n" + std::string(100000, 'k') + "=1\n",
        first + "\n" + first,
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.substr(0, 40));
        Run(text);
    }
}

std::string Fmt(const char* fmt, int a, int b = 0) {
    char buf[128];
    return std::string(buf, size_t(std::snprintf(buf, sizeof buf, fmt, a, b)));
}

// The statements of `fields` for i = 1 to n, each format given i (twice).
std::string Numbered(int n, std::initializer_list<const char*> fields, const std::string& p = "") {
    std::string t;
    for (int i = 1; i <= n; ++i)
        for (const char* f : fields) t += p + Fmt(f, i, i) + "\n";
    return t;
}

// A minimal PGC with `cells` cells and `commands` pre commands under prefix p.
std::string Pgc(const std::string& p, int cells, int commands) {
    std::string t = p + Fmt("cnt=0000%02x", cells > 255 ? 0 : cells) + Fmt("%02x\n", cells & 0xff);
    for (const char* f :
         {"pb_tm=00000000", "uop_ctl=00000000", "cmdt_sa=236", "cmdt_post_ns=0", "cmdt_cmds_ns=0"})
        t += p + f + "\n";
    t += p + Fmt("cmdt_pre_ns=%d\n", commands) + Numbered(commands, {"pre%d=3002000000010000"}, p);
    for (const char* f : {"pgmap_sa=", "c_pbit_sa=", "c_posit_sa="})
        t += p + f + (cells > 0 ? "1\n" : "0\n");
    if (cells > 0) t += p + "pgmap_prog_entry_cell01=1\n";
    for (int c = 1; c <= cells; ++c) {
        for (const char* f : {"cat=02000000", "pbtm=00000100", "fvobu_sa=0", "filvu_ea=0",
                              "lvobu_sa=0", "lvobu_ea=1"})
            t += p + Fmt("c_pbit_cell%03d_", c) + f + "\n";
        t += p + Fmt("c_posit_cell%03d_vobid=1\n", c) + p +
             Fmt("c_posit_cell%03d_cellid=%d\n", c, c & 0xff);
    }
    return t;
}

std::string VmgTitles(int titles) {
    return "[vmg_ptt_srpt]\n" + Fmt("vts_ttu_ns=%d\n", titles) +
           Numbered(titles, {"tt_pb_ty%02d=x3c", "tt_agl_ns%02d=1", "tt_ptt_ns%02d=1",
                             "tt_ptl_id_fld%02d=0", "vtsn%02d=1", "vts_ttn%02d=1", "vts_sa%02d=1"});
}

std::string VtsTitleUnits(int units) {
    std::string t = "[vts_ptt_srpt]\n" + Fmt("vts_ttu_ns=%d\n", units);
    for (int i = 1; i <= units && i <= 256; ++i) t += Fmt("%03dptt_srp=%03d 001 001\n", i - 1, i);
    return t;
}

// A VOB holds at most 99 cells in the source: the cells fill VOB after VOB.
std::string CellTable(const char* section, const char* ns, int cells) {
    std::string t = std::string("[") + section + "]\n" + ns + Fmt("=%d\n", (cells + 98) / 99);
    for (int i = 0; i < cells; ++i)
        for (const char* f : {"vts_vob_idn=%d", "vts_c_idn=%d", "vts_cp_sa=0", "vts_cp_ea=1"})
            t += Fmt("c_%03d_vob%03d_", 1 + i % 99, 1 + i / 99) +
                 Fmt(f, f[4] == 'v' ? 1 + i / 99 : 1 + i % 99) + "\n";
    return t;
}

std::string MenuUnits(const std::string& kind, int units, int pgcs, int cells = 0) {
    std::string t = "[" + kind + "_pgci_ut]\n" + kind + Fmt("_lu_ns=%d\n", units),
                lu = "[" + kind + "_lu]\n", pgc;
    for (int u = 1; u <= units; ++u) {
        t += kind + Fmt("_lu_srp%02d_lcd=en\n", u) + kind + Fmt("_lu_srp%02d_exst=80\n", u);
        lu += kind + Fmt("_lui%02d_pgci_srp_ns=%d\n", u, pgcs);
        for (int p = 1; p <= pgcs; ++p)
            pgc += "[" + kind + Fmt("_lu%02d_%02d]\n", u, p) + kind + "_lui_pgc_cat=82000000\n" +
                   Pgc(kind + "_pgc_", cells, 1);
    }
    return t + lu + pgc;
}

std::string TitlePgcs(int pgcs, int cells, int commands) {
    std::string t = "[vts_pgcit]\n" + Fmt("vts_pgci_srp_ns=%d\n", pgcs) +
                    Numbered(pgcs, {"vts_pgc_cat%02d=81000000"});
    for (int p = 1; p <= pgcs; ++p)
        t += Fmt("[vts_pgcit%02d]\n", p) +
             Pgc("vts_pgc_", p == 1 ? cells : 1, p == 1 ? commands : 0);
    return t;
}

std::string TimeMaps(int maps, int entries) {
    std::string t = "[vts_tmapt]\n" + Fmt("vts_tmap_ns=%d\n", maps) + "[vts_tmapti]\n";
    for (int m = 1; m <= maps; ++m) {
        t += Fmt("vts_tmap%02d_tmu=1\n", m) + Fmt("vts_tmap%02d_map_en_ns=%d\n", m, entries);
        for (int e = 1; e <= entries; ++e)
            t += Fmt("vts_tmap%02d_entry%02d_discon=0\n", m, e) +
                 Fmt("vts_tmap%02d_entry%02d_address=", m, e) + Fmt("%d\n", e);
    }
    return t;
}

// A management-table section so that whole files are laid out too.
const std::string kVmgMat =
    "[vmgi_mat]\nvmg_id=DVDVIDEO-VMG\nvern=1.1\nvmg_cat=x00000000\nvlms_id=x0001000101000000\n"
    "vmg_ns=1\npvr_id=x\npos_cd=x0000000000000000\nvmgm_v_atr=x4300\nvmgm_ast_ns=0\n"
    "vmgm_ast_atr=x0000000000000000\nvmgm_spst_ns=0\nvmgm_spst_atr=x000000000000\n";
const std::string kVtsMat = "[vtsi_mat]\nvts_id=DVDVIDEO-VTS\nvern=1.1\nvts_cat=x00000000\n";

// Whole files at every capacity and one beyond (the refusals and sizes of
// each table are checked in the table tests).
TEST_F(HostileSource, CountsAtAndBeyondCapacity) {
    const struct {
        const char* what;
        int capacity;
        std::function<std::string(int)> make;
    } cases[] = {
        {"titles", 999, [](int n) { return kVmgMat + VmgTitles(n); }},
        {"title units", 999, [](int n) { return kVtsMat + VtsTitleUnits(n); }},
        {"cells", 256, [](int n) { return kVtsMat + CellTable("vts_c_adt", "vts_vob_ns", n); }},
        {"VMGM cells", 256,
         [](int n) { return kVmgMat + CellTable("vmgm_c_adt", "vmgm_vob_ns", n); }},
        {"cells, 1.5 commands each", 256,
         [](int n) { return kVtsMat + TitlePgcs(1, n, n * 3 / 2); }},
        {"PGCs", 256, [](int n) { return kVtsMat + TitlePgcs(n, 1, 0); }},
        {"VMGM units", 16, [](int n) { return kVmgMat + MenuUnits("vmgm", n, 2); }},
        {"VTSM units", 16, [](int n) { return kVtsMat + MenuUnits("vtsm", n, 1); }},
        {"VTSM PGCs", 99, [](int n) { return kVtsMat + MenuUnits("vtsm", 1, n, 2); }},
        {"time maps", 999, [](int n) { return kVtsMat + TimeMaps(n, 1); }},
        {"map entries", 4096, [](int n) { return kVtsMat + TimeMaps(1, n); }},
        {"VOBUs (title map, then menu map)", 65535,
         [](int n) {
             return kVtsMat + (n % 2 ? "[vts_vobu_admap]\n" : "[vtsm_vobu_admap]\n") +
                    Numbered(n, {"vobu_sa%04d=%d"});
         }},
    };
    for (const auto& c : cases)
        for (int n : {c.capacity, c.capacity + 1}) {
            SCOPED_TRACE(std::to_string(n) + " " + c.what);
            Run(c.make(n));
        }
}

}  // namespace
