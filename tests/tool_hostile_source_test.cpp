// Hostile sources (damaged statements, broken grammar, counts at and beyond every capacity),
// assembled, written and loaded back: nothing may crash, overrun, leak or hang.
#include <functional>
#include <sstream>

#include "support/kestro_drive.h"
#include "test_util.h"

namespace {

namespace fs = std::filesystem;

class HostileSource : public ::testing::Test {
protected:
    void SetUp() override { handle_ = kdrive::NextHandle(scratch_.Path("probe")); }
    void TearDown() override {
        EXPECT_EQ(kdrive::NextHandle(scratch_.Path("probe")), handle_) << "handle left open";
    }
    void Run(const std::string& text) {  // assembles everything, loads it back
        SCOPED_TRACE(text.substr(0, 40));
        scratch_.Put("source.ini", reinterpret_cast<const uint8_t*>(text.data()), text.size());
        kdrive::DriveSourceAndReload(scratch_);
        scratch_.Clear();
    }
    kdrive::Scratch scratch_{"hostile-src"};
    int handle_ = 0;
};

// Each variant damages a different third of the sample's statements in one way (a value; ""
// drops the statement; "+" appends 300 digits to the old value). Then broken grammar: empty
// sections, statements without sections, lines without "=", duplicate sections and keys, NUL
// bytes, CR without LF, a very long line.
TEST_F(HostileSource, DamagedStatementsAndBrokenGrammar) {
    std::vector<std::string> sources;
    std::error_code ec;
    for (auto& e : fs::directory_iterator(fs::path(KESTRO_SOURCE_DIR) / "examples/sample", ec))
        if (e.path().extension() == ".ini") sources.push_back(kt::ReadText(e.path().string()));
    if (sources.empty()) GTEST_SKIP() << "no sample sources";
    std::sort(sources.begin(), sources.end());
    std::vector<std::string> damages = {
        "", "=", "+", "=-1", "=99999999999", "=zz%s%n", "=xffffffffffffffff", "=$1"};
    damages.push_back("=x" + std::string(5000, 'f'));
    for (const std::string& damage : damages)
        for (size_t i = 0; i < 3 * sources.size(); ++i) {
            const size_t phase = i % 3;
            SCOPED_TRACE("source " + std::to_string(i / 3) + ", damage '" + damage.substr(0, 9) +
                         "', phase " + std::to_string(phase));
            std::string text, line;
            std::istringstream in(sources[i / 3]);
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
        sources.front() + "\n" + sources.front(),
    };
    for (const std::string& text : texts) Run(text);
}

// printf with positional arguments (%1$d) so that one format can use a number several times.
template <class... A>
std::string Fmt(const char* fmt, A... a) {
    char buf[512];
    const int n = std::snprintf(buf, sizeof buf, fmt, a...);
    return std::string(buf, size_t(std::clamp(n, 0, int(sizeof buf) - 1)));
}

// `fmt` for i = 1 to n, given i and i - 1.
std::string Numbered(int n, const char* fmt) {
    std::string t;
    for (int i = 1; i <= n; ++i) t += Fmt(fmt, i, i - 1);
    return t;
}

// Every line of `text` under prefix p.
std::string Under(const std::string& p, const std::string& text) {
    std::string t;
    for (size_t at = 0, nl; (nl = text.find('\n', at)) != std::string::npos; at = nl + 1)
        t += p + text.substr(at, nl + 1 - at);
    return t;
}

// A minimal PGC with `cells` cells and `commands` pre commands under prefix p.
std::string Pgc(const std::string& p, int cells, int commands) {
    const int any = cells > 0;
    std::string t = Fmt("cnt=0000%02x%02x\npb_tm=00000000\nuop_ctl=00000000\ncmdt_sa=236\n"
                        "cmdt_post_ns=0\ncmdt_cmds_ns=0\ncmdt_pre_ns=%d\n",
                        cells > 255 ? 0 : cells, cells & 0xff, commands) +
                    Numbered(commands, "pre%d=3002000000010000\n") +
                    Fmt("pgmap_sa=%1$d\nc_pbit_sa=%1$d\nc_posit_sa=%1$d\n", any) +
                    (any ? "pgmap_prog_entry_cell01=1\n" : "");
    for (int c = 1; c <= cells; ++c)
        t += Under(Fmt("c_pbit_cell%03d_", c),
                   "cat=02000000\npbtm=00000100\nfvobu_sa=0\n"
                   "filvu_ea=0\nlvobu_sa=0\nlvobu_ea=1\n") +
             Fmt("c_posit_cell%1$03d_vobid=1\nc_posit_cell%1$03d_cellid=%2$d\n", c, c & 0xff);
    return Under(p, t);
}

// A cell address table of `kind` ("vts", "vmgm"): 99 cells to a VOB, VOB after VOB.
std::string CellTable(const char* kind, int cells) {
    std::string t = Fmt("[%1$s_c_adt]\n%1$s_vob_ns=%2$d\n", kind, (cells + 98) / 99);
    for (int i = 0; i < cells; ++i)
        t += Under(Fmt("c_%03d_vob%03d_", 1 + i % 99, 1 + i / 99),
                   Fmt("vts_vob_idn=%d\nvts_c_idn=%d\nvts_cp_sa=0\nvts_cp_ea=1\n", 1 + i / 99,
                       1 + i % 99));
    return t;
}

// The menu PGC units of `kind` ("vmgm", "vtsm"), each of `pgcs` PGCs of `cells` cells.
std::string MenuUnits(const char* kind, int units, int pgcs, int cells = 0) {
    std::string t = Fmt("[%1$s_pgci_ut]\n%1$s_lu_ns=%2$d\n", kind, units),
                lu = Fmt("[%s_lu]\n", kind), pgc;
    for (int u = 1; u <= units; ++u) {
        t += Fmt("%1$s_lu_srp%2$02d_lcd=en\n%1$s_lu_srp%2$02d_exst=80\n", kind, u);
        lu += Fmt("%s_lui%02d_pgci_srp_ns=%d\n", kind, u, pgcs);
        for (int p = 1; p <= pgcs; ++p)
            pgc += Fmt("[%1$s_lu%2$02d_%3$02d]\n%1$s_lui_pgc_cat=82000000\n", kind, u, p) +
                   Pgc(kind + std::string("_pgc_"), cells, 1);
    }
    return t + lu + pgc;
}

// Title PGCs, the first of `cells` cells and `commands` commands, the others of one cell.
std::string TitlePgcs(int pgcs, int cells, int commands) {
    std::string t = Fmt("[vts_pgcit]\nvts_pgci_srp_ns=%d\n", pgcs) +
                    Numbered(pgcs, "vts_pgc_cat%02d=81000000\n");
    for (int p = 1; p <= pgcs; ++p)
        t += Fmt("[vts_pgcit%02d]\n", p) +
             Pgc("vts_pgc_", p == 1 ? cells : 1, p == 1 ? commands : 0);
    return t;
}

std::string TimeMaps(int maps, int entries) {
    std::string t = Fmt("[vts_tmapt]\nvts_tmap_ns=%d\n[vts_tmapti]\n", maps);
    for (int m = 1; m <= maps; ++m)
        t += Fmt("vts_tmap%1$02d_tmu=1\nvts_tmap%1$02d_map_en_ns=%2$d\n", m, entries) +
             Under(Fmt("vts_tmap%02d_entry", m),
                   Numbered(entries, "%1$02d_discon=0\n%1$02d_address=%1$d\n"));
    return t;
}

// Management-table sections so that whole files are laid out too.
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
        {"titles", 999,
         [](int n) {
             return kVmgMat + Fmt("[vmg_ptt_srpt]\nvts_ttu_ns=%d\n", n) +
                    Numbered(n,
                             "tt_pb_ty%1$02d=x3c\ntt_agl_ns%1$02d=1\ntt_ptt_ns%1$02d=1\n"
                             "tt_ptl_id_fld%1$02d=0\nvtsn%1$02d=1\nvts_ttn%1$02d=1\n"
                             "vts_sa%1$02d=1\n");
         }},
        {"title units", 999,
         [](int n) {
             return kVtsMat + Fmt("[vts_ptt_srpt]\nvts_ttu_ns=%d\n", n) +
                    Numbered(std::min(n, 256), "%2$03dptt_srp=%1$03d 001 001\n");
         }},
        {"cells", 256, [](int n) { return kVtsMat + CellTable("vts", n); }},
        {"VMGM cells", 256, [](int n) { return kVmgMat + CellTable("vmgm", n); }},
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
                    Numbered(n, "vobu_sa%1$04d=%1$d\n");
         }},
    };
    for (const auto& c : cases)
        for (int n : {c.capacity, c.capacity + 1}) {
            SCOPED_TRACE(std::to_string(n) + " " + c.what);
            Run(c.make(n));
        }
}

}  // namespace
