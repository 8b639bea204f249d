// Damaged IFO files and sources, driven as a host does: no crash, overrun, leak, hang or open file.
#include <map>
#include <sstream>

#include "kestro/disc.h"
#include "support/kestro_drive.h"
#include "tables_util.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using Files = std::map<std::string, Bytes>;

std::map<std::string, std::string> SampleSources() {
    std::map<std::string, std::string> out;
    for (auto& e : fs::directory_iterator(fs::path(KESTRO_SOURCE_DIR) / "examples/sample"))
        if (e.path().extension() == ".ini") out[e.path()] = kt::ReadText(e.path().string());
    return out;
}

// The real discs' files, the sample's sources assembled and a variant, of one kind (true: VMG).
const Files& Bases(bool vmg) {
    static Files bases[2];
    [[maybe_unused]] static const bool read = [] {
        for (bool vmg : {false, true})
            for (const auto& p : kt::CorpusFiles(vmg ? "VIDEO_TS" : "VTS_"))
                bases[vmg][p] = kt::ReadBytes(p);
        kdrive::Scratch s("hostile-base");
        for (const auto& [path, text] : SampleSources()) {
            const bool vmg = text.rfind("[vmgi_mat]", 0) == 0;
            s.Put("source.ini", reinterpret_cast<const uint8_t*>(text.data()), text.size());
            kdrive::DriveSource(s);
            const Bytes b = kt::ReadBytes(s.Path(kdrive::IfoName(vmg)));
            if (b.size() >= 2048) bases[vmg][path] = b;
            s.Clear();
        }
        // Five menu audio and sub-picture streams in VTS_ATRT's first record, read by its report
        // at the length of its "  VTS 1 Attribute start byte address N" line (37 + N's), less 8.
        for (const auto& [name, bytes] : Files(bases[true])) {
            const size_t atrt = size_t(kt::BE32(bytes, 208)) * 2048;
            const size_t rec = atrt + std::to_string(kt::BE32(bytes, atrt + 8)).size() + 37;
            if (!atrt || !kt::BE32(bytes, atrt + 8) || rec + 94 >= bytes.size()) continue;
            Bytes& b = bases[true][name + " (menu streams)"] = bytes;
            b[rec + 11] = b[rec + 93] = 5;
        }
        return true;
    }();
    return bases[vmg];
}

// A scratch folder, and a check that the test leaves no file handle open.
class Hostile : public ::testing::Test {
protected:
    ~Hostile() override { EXPECT_EQ(kdrive::NextHandle(scratch_.Path("probe")), handle_); }
    void Run(const std::string& text) {  // assembles everything from a source, loads it back
        scratch_.Put("source.ini", reinterpret_cast<const uint8_t*>(text.data()), text.size());
        kdrive::DriveSourceAndReload(scratch_);
        scratch_.Clear();
    }
    kdrive::Scratch scratch_{"hostile"};
    const int handle_ = kdrive::NextHandle(scratch_.Path("probe"));
};
class HostileSource : public Hostile {};

// Each table's report keeps to its 3 bytes of headroom past len, for every len near its start and
// end and some between; streamed in 100-byte pieces it reads as whole (loaded anew: it may vary).
void Append(void* to, char* text, size_t size) {  // a piece of a streamed report
    EXPECT_GE(size, 100u);
    static_cast<std::string*>(to)->append(text, size);
}

template <class Mat>
void CheckReports(const Bytes& bytes) {
    tt::Loaded<Mat> whole(bytes, 0, false), streamed(bytes, 0, false);
    CKestro_PGCI codecs[2];
    const auto a = tt::TablesOf(whole.t, codecs[0]), b = tt::TablesOf(streamed.t, codecs[1]);
    ASSERT_TRUE(whole.loaded == 1 && streamed.loaded == 1 && a.size() == b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        SCOPED_TRACE(a[i].name);
        bool ok = false;
        const std::string report = tt::Text(a[i], (1 << 22) - 3, &ok);
        const int full = int(report.size());
        for (int len = 1; len <= full + 8;
             len += len < 300 || len > full - 300 ? 1 : std::max(1, full / 1000)) {
            std::vector<char> guarded(size_t(len) + 3 + 256, 'G');
            std::memset(guarded.data(), 0, size_t(len) + 3);
            a[i].Details(guarded.data(), len);
            ASSERT_EQ(std::count(guarded.begin() + len + 3, guarded.end(), 'G'), 256) << len;
        }
        std::string pieces;
        kestro::ReportStream stream(Append, &pieces, 100);
        std::vector<char> buf(1 << 18, '\0');  // a piece, or any PGC's report
        EXPECT_EQ(b[i].Details(buf.data(), int(buf.size()) - 3), ok);
        EXPECT_EQ(pieces + buf.data(), report);
    }
}

class HostileIfo : public Hostile, public ::testing::WithParamInterface<bool> {
protected:
    // Loads, reports in `room` bytes (streamed in pieces of `piece` unless 0), disassembles.
    void Drive(const Bytes& b, int room, size_t piece, bool disasm = true, bool other = false) {
        kdrive::LoadedRun run;
        run.reportRoom = room, run.streamPiece = piece, run.disasm = disasm;
        scratch_.Clear();  // what the run before left
        kdrive::DriveBytes(scratch_, GetParam() != other, b.data(), b.size(), run);
    }
    void DriveWith(const Bytes& bytes, size_t at, uint32_t v, int width, int room, size_t piece) {
        Bytes b = bytes;
        kt::PutBE(b, at, v, width);
        Drive(b, room, piece);
    }
    // Each start-sector field of the management table and the byte its table starts at.
    template <class F>
    void EachTableField(const Bytes& b, F&& f) {
        for (size_t at = GetParam() ? 0xc4 : 0xc8; at <= (GetParam() ? 0xdcu : 0xe4u); at += 4)
            f(at, size_t(kt::BE32(b, at)) * 2048);
    }
    const Files& bases_ = Bases(GetParam());
};
INSTANTIATE_TEST_SUITE_P(Kinds, HostileIfo, ::testing::Bool(),
                         [](const auto& kind) { return kind.param ? "VideoManager" : "TitleSet"; });

// Of the other kind, cut anywhere, header fields at extremes, every table on a sector of all ones.
TEST_P(HostileIfo, DamagedFilesAreReadWithinThem) {
    for (const auto& [name, bytes] : bases_) {
        Bytes other = bytes;
        std::memcpy(other.data(), GetParam() ? "DVDVIDEO-VTS" : "DVDVIDEO-VMG", 12);
        Drive(other, 1 << 18, 0, true, true);
        Drive(other, 200, 400, false, true);
        const size_t size = bytes.size();
        std::vector<size_t> cuts = {0, 1, 11, 12, 13, 128, 255, 512, 1023, 1024, 1025, 2047};
        for (size_t sector = 2048; sector < size; sector += 2048)
            for (size_t d : {0, 1, 8, 100}) cuts.push_back(std::min(sector + d, size - 1));
        cuts.push_back(size - 1);  // only the last byte missing
        for (size_t cut : cuts) {
            const Bytes b(bytes.begin(), bytes.begin() + long(cut));
            Drive(b, 1 << 18, 0);
            Drive(b, 1 + int(cut % 97), (1 + cut % 97) % 3 * 200, false);
        }
        Bytes oneSector = bytes;
        oneSector.resize(std::max<size_t>(size, 2 * 2048));
        int i = 0;  // each variant streamed or not, in a small room or not
        auto vary = [&, &bytes = bytes](size_t at, uint32_t v, int width) {
            DriveWith(bytes, at, v, width, i % 2 ? 1 << 18 : 64, i % 3 ? 0 : 600), ++i;
        };
        EachTableField(bytes, [&](size_t field, size_t table) {
            for (uint32_t v : {uint32_t(size / 2048 + 1), 1u, 0xffffffffu}) vary(field, v, 4);
            if (table && table + 8 <= size) vary(table, 0xffff, 2), vary(table + 4, 0xffffffff, 4);
            kt::PutBE(oneSector, field, 1, 4);
        });
        std::fill(oneSector.begin() + 2048, oneSector.begin() + 2 * 2048, 0xff);
        Drive(oneSector, 64, 600);
        Drive({oneSector.begin(), oneSector.end() - 1}, 1 << 18, 0);
    }
}

// Regression (fuzzing): an end address below the header made a streamed report endless.
TEST_P(HostileIfo, Regression_EndAddressBelowTheHeaderEndsTheStreamedReport) {
    for (const auto& [name, bytes] : bases_)
        EachTableField(bytes, [&, &bytes = bytes](size_t, size_t table) {
            if (table && table + 8 <= bytes.size()) DriveWith(bytes, table + 4, 3, 4, 64, 600);
        });
}

// Regression (fuzzing): all-ones menu unit and PGC counts made Disasm write 187,298 statements;
// at most 16 units of 99 PGCs are covered.
TEST_P(HostileIfo, Regression_AllOnesMenuUnitCountsWroteHundredsOfThousandsOfStatements) {
    for (const auto& [name, bytes] : bases_) {
        const size_t table = size_t(kt::BE32(bytes, GetParam() ? 0xc8 : 0xd0)) * 2048;
        if (table == 0 || table + 16 > bytes.size()) continue;
        SCOPED_TRACE(name);
        Bytes b = bytes;
        kt::PutBE(b, table, 0xffff, 2);                               // units
        kt::PutBE(b, table + kt::BE32(b, table + 8 + 4), 0xffff, 2);  // the first unit's PGCs
        Drive(b, 1 << 18, 0);
        const std::string source = kt::ReadText(scratch_.Ini());
        for (const char* beyond : {"_lu_srp17_", "m_lu17_", "_100]"})
            EXPECT_EQ(source.find(beyond), std::string::npos) << beyond;
    }
}

// Regression (fuzzing): 64 KB of records pointing at one long run took seconds and gigabytes to
// read into the disc model; the run is read once over.
TEST(HostileIfoModel, Regression_OverlappingRecordsWereReadOncePerRecord) {
    Bytes vts(32 * 2048, 0);
    std::memcpy(vts.data(), "DVDVIDEO-VTS", 12);
    kt::PutBE(vts, 200, 1, 4);                                     // VTS_PTT_SRPT at sector 1
    kt::PutBE(vts, 212, 1, 4);                                     // VTS_TMAPT at the same sector
    kt::PutBE(vts, 2048, 8000, 2);                                 // 8000 title units / time maps
    kt::PutBE(vts, 2048 + 4, uint32_t(vts.size() - 2048 - 1), 4);  // end address: the file's end
    for (size_t i = 0; i < 8000; ++i) kt::PutBE(vts, 2048 + 8 + 4 * i, 8, 4);  // each starts at 8
    kestro::disc::TitleSet t;
    kestro::disc::ReadTitleSet(vts, t);
    size_t parts = 0, entries = 0;
    for (const auto& p : t.parts) parts += p.size();
    for (const auto& m : t.timeMaps) entries += m.entries.size();
    EXPECT_LE(std::max(parts, entries), vts.size() / 4 + 64);
    EXPECT_NE(testing::PrintToString(t.problems).find("records overlap"), std::string::npos);
}

// Regression: VMGI_MAT gave the First Play PGC report the room len, not len - used, and TT_SRPT
// closed with an unchecked "\r\n" after a line that used the headroom.
TEST_P(HostileIfo, Regression_FirstPlayPgcAndTtSrptReportsWrotePastTheHeadroom) {
    for (const auto& [name, bytes] : bases_) {
        SCOPED_TRACE(name);
        GetParam() ? CheckReports<CKestro_VMG_MAT>(bytes) : CheckReports<CKestro_VTS_MAT>(bytes);
    }
}

// A third of the sample's statements damaged one way ("+" appends digits); then broken grammar.
TEST_F(HostileSource, DamagedStatementsAndBrokenGrammar) {
    std::vector<std::string> sources,
        damages = {"", "=", "+", "=-1", "=99999999999", "=$1", "=zz%s%n", "=xffffffffffffffff"};
    for (const auto& [path, text] : SampleSources()) sources.push_back(text);
    damages.push_back("=x" + std::string(5000, 'f'));
    for (const std::string& damage : damages)
        for (size_t i = 0; i < 3 * sources.size(); ++i) {
            std::string text, line;
            std::istringstream in(sources[i / 3]);
            for (size_t statement = 0; std::getline(in, line); text += line + "\n") {
                const size_t eq = line.find('=');
                if (eq != std::string::npos && line[0] != '[' && statement++ % 3 == i % 3)
                    line = damage == "+"    ? line + std::string(300, '7')
                           : damage.empty() ? ""
                                            : line.substr(0, eq) + damage;
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
        sources.front() + "\n" + sources.front()};
    for (const std::string& text : texts) Run(text);
}

// printf with positional arguments (%1$d): a format may use a value several times.
template <class... A>
std::string Fmt(const char* fmt, A... a) {
    char buf[1024];
    const int n = std::snprintf(buf, sizeof buf, fmt, a...);
    return std::string(buf, size_t(std::clamp(n, 0, int(sizeof buf) - 1)));
}

// `fmt` for i = 1 to n, given i, i - 1 and `more`.
template <class... A>
std::string Numbered(int n, const char* fmt, A... more) {
    std::string t;
    for (int i = 1; i <= n; ++i) t += Fmt(fmt, i, i - 1, more...);
    return t;
}

// A minimal PGC with `cells` cells and `commands` pre commands, its keys after prefix p.
std::string Pgc(const std::string& p, int cells, int commands) {
    const char* k = p.c_str();
    return Fmt("%1$scnt=0000%2$02x%3$02x\n%1$spb_tm=00000000\n%1$suop_ctl=00000000\n"
               "%1$scmdt_sa=236\n%1$scmdt_post_ns=0\n%1$scmdt_cmds_ns=0\n%1$scmdt_pre_ns=%4$d\n",
               k, cells > 255 ? 0 : cells, cells & 0xff, commands) +
           Numbered(commands, "%3$spre%1$d=3002000000010000\n", k) +
           Fmt("%1$spgmap_sa=%2$d\n%1$sc_pbit_sa=%2$d\n%1$sc_posit_sa=%2$d\n", k, int(cells > 0)) +
           (cells > 0 ? p + "pgmap_prog_entry_cell01=1\n" : "") +
           Numbered(cells,  // the cell number as a byte: %hhu
                    "%3$sc_pbit_cell%1$03d_cat=02000000\n%3$sc_pbit_cell%1$03d_pbtm=00000100\n"
                    "%3$sc_pbit_cell%1$03d_fvobu_sa=0\n%3$sc_pbit_cell%1$03d_filvu_ea=0\n"
                    "%3$sc_pbit_cell%1$03d_lvobu_sa=0\n%3$sc_pbit_cell%1$03d_lvobu_ea=1\n"
                    "%3$sc_posit_cell%1$03d_vobid=1\n%3$sc_posit_cell%1$03d_cellid=%1$hhu\n",
                    k);
}

// A cell address table of `kind` ("vts", "vmgm"): 99 cells to a VOB, VOB after VOB.
std::string CellTable(const char* kind, int cells) {
    std::string t = Fmt("[%1$s_c_adt]\n%1$s_vob_ns=%2$d\n", kind, (cells + 98) / 99);
    for (int i = 0; i < cells; ++i)
        t +=
            Fmt("c_%1$03d_vob%2$03d_vts_vob_idn=%2$d\nc_%1$03d_vob%2$03d_vts_c_idn=%1$d\n"
                "c_%1$03d_vob%2$03d_vts_cp_sa=0\nc_%1$03d_vob%2$03d_vts_cp_ea=1\n",
                1 + i % 99, 1 + i / 99);
    return t;
}

// The menu PGC units of `kind` ("vmgm", "vtsm"), each of `pgcs` PGCs of `cells` cells.
std::string MenuUnits(const char* kind, int units, int pgcs, int cells = 0) {
    std::string t = Fmt("[%1$s_pgci_ut]\n%1$s_lu_ns=%2$d\n", kind, units) +
                    Numbered(units, "%3$s_lu_srp%1$02d_lcd=en\n%3$s_lu_srp%1$02d_exst=80\n", kind) +
                    Fmt("[%s_lu]\n", kind) +
                    Numbered(units, "%3$s_lui%1$02d_pgci_srp_ns=%4$d\n", kind, pgcs);
    for (int u = 1; u <= units; ++u)
        for (int p = 1; p <= pgcs; ++p)
            t += Fmt("[%1$s_lu%2$02d_%3$02d]\n%1$s_lui_pgc_cat=82000000\n", kind, u, p) +
                 Pgc(kind + std::string("_pgc_"), cells, 1);
    return t;
}

// Title PGCs, the first of `cells` cells and `commands` commands, the others of one cell.
std::string TitlePgcs(int pgcs, int cells, int commands) {
    std::string t = Fmt("[vts_pgcit]\nvts_pgci_srp_ns=%d\n", pgcs) +
                    Numbered(pgcs, "vts_pgc_cat%02d=81000000\n");
    for (int p = 1; p <= pgcs; ++p)
        t += Fmt("[vts_pgcit%02d]\n", p) + Pgc("vts_pgc_", p == 1 ? cells : 1, (p == 1) * commands);
    return t;
}

std::string TimeMaps(int maps, int entries) {
    std::string t = Fmt("[vts_tmapt]\nvts_tmap_ns=%d\n[vts_tmapti]\n", maps);
    for (int m = 1; m <= maps; ++m)
        t += Fmt("vts_tmap%1$02d_tmu=1\nvts_tmap%1$02d_map_en_ns=%2$d\n", m, entries) +
             Numbered(entries,
                      "vts_tmap%3$02d_entry%1$02d_discon=0\n"
                      "vts_tmap%3$02d_entry%1$02d_address=%1$d\n",
                      m);
    return t;
}

const std::string kVmgMat =
    "[vmgi_mat]\nvmg_id=DVDVIDEO-VMG\nvern=1.1\nvmg_cat=x00000000\nvlms_id=x0001000101000000\n"
    "vmg_ns=1\npvr_id=x\npos_cd=x0000000000000000\nvmgm_v_atr=x4300\nvmgm_ast_ns=0\n"
    "vmgm_ast_atr=x0000000000000000\nvmgm_spst_ns=0\nvmgm_spst_atr=x000000000000\n";
const std::string kVtsMat = "[vtsi_mat]\nvts_id=DVDVIDEO-VTS\nvern=1.1\nvts_cat=x00000000\n";

TEST_F(HostileSource, CountsAtAndBeyondCapacity) {
    const std::pair<int, std::string (*)(int)> cases[] = {
        {999,
         [](int n) {
             return kVmgMat + Fmt("[vmg_ptt_srpt]\nvts_ttu_ns=%d\n", n) +
                    Numbered(n,
                             "tt_pb_ty%1$02d=x3c\ntt_agl_ns%1$02d=1\ntt_ptt_ns%1$02d=1\n"
                             "tt_ptl_id_fld%1$02d=0\nvtsn%1$02d=1\nvts_ttn%1$02d=1\n"
                             "vts_sa%1$02d=1\n");
         }},
        {999,
         [](int n) {
             return kVtsMat + Fmt("[vts_ptt_srpt]\nvts_ttu_ns=%d\n", n) +
                    Numbered(std::min(n, 256), "%2$03dptt_srp=%1$03d 001 001\n");
         }},
        {256, [](int n) { return kVtsMat + CellTable("vts", n); }},
        {256, [](int n) { return kVmgMat + CellTable("vmgm", n); }},
        {256, [](int n) { return kVtsMat + TitlePgcs(1, n, n * 3 / 2); }},  // 1.5 commands a cell
        {256, [](int n) { return kVtsMat + TitlePgcs(n, 1, 0); }},
        {16, [](int n) { return kVmgMat + MenuUnits("vmgm", n, 2); }},
        {16, [](int n) { return kVtsMat + MenuUnits("vtsm", n, 1); }},
        {99, [](int n) { return kVtsMat + MenuUnits("vtsm", 1, n, 2); }},
        {999, [](int n) { return kVtsMat + TimeMaps(n, 1); }},
        {4096, [](int n) { return kVtsMat + TimeMaps(1, n); }},
        {65535, [](int n) {
             return kVtsMat + (n % 2 ? "[vts_vobu_admap]\n" : "[vtsm_vobu_admap]\n") +
                    Numbered(n, "vobu_sa%1$04d=%1$d\n");
         }}};
    for (const auto& [capacity, make] : cases)
        for (int n : {capacity, capacity + 1}) Run(make(n));
}

}  // namespace
