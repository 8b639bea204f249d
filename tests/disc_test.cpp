// The disc module: its model of any bytes, and a lossless round trip of what the tables drop.
#include <cstring>
#include <iomanip>
#include <map>

#include "ifo_navigation.h"
#include "kestro/disc.h"
#include "kestro/ini.h"
#include "test_util.h"

namespace {

namespace fs = std::filesystem;
namespace kd = kestro::disc;
using Bytes = std::vector<uint8_t>;
using kt::Corpus;

// A working folder: sources and IFO files are written here, next to its VOB files.
struct Work {
    kt::TempDir dir;

    std::string Disasm(const Bytes& ifo, const std::string& name, bool libraryRules = false,
                       kd::SideFiles sideFiles = kd::SideFiles::None) {
        const std::string in = dir / (name + ".in"), ini = dir / (name + ".ini");
        kt::WriteBytes(in, ifo);
        kd::DisasmResult r = kd::DisassembleIfo(in, ini, sideFiles, libraryRules);
        EXPECT_TRUE(r.ok) << r.error;
        return ini;
    }
    // The IFO file `name` assembled from `ini` in the folder `vobs` (default: here).
    Bytes Asm(const std::string& ini, const std::string& name, bool libraryRules = false,
              std::string vobs = "") {
        if (vobs.empty()) vobs = dir.path().string();
        std::ofstream(vobs + "/" + name).close();
        kd::AsmResult r = kd::AssembleIfo(ini, vobs + "/" + name, vobs, name,
                                          kd::AsmOptions{false, false, libraryRules});
        EXPECT_TRUE(r.ok) << r.error;
        return kt::ReadBytes(vobs + "/" + name);
    }
    Bytes RoundTrip(const Bytes& ifo, const std::string& name) {
        return Asm(Disasm(ifo, name), name);
    }
    void MenuVobOfDiscA() {
        fs::copy_file(kt::CorpusDir() / "disc-a/VIDEO_TS.VOB", dir / "VIDEO_TS.VOB");
    }
};

// Sets statements of a source, drops sections and adds `more`; the store forgets its copy.
void EditSource(const std::string& ini, const std::map<std::string, std::string>& values,
                const std::vector<std::string>& dropSections = {}, const std::string& more = "") {
    std::istringstream in(kt::ReadText(ini));
    std::string out, section;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line[0] == '[') section = line.substr(1, line.find(']') - 1);
        if (std::find(dropSections.begin(), dropSections.end(), section) != dropSections.end())
            continue;
        const std::string key = line.substr(0, line.find('='));
        out += (values.count(key) ? key + "=" + values.at(key) : line) + "\n";
    }
    kt::WriteText(ini, out + more);
    INIForgetFile(ini.c_str());
}

// What the corpus README says of its discs, read back by the model.
TEST(DiscModel, ReadsTheCorpusDiscsAsDescribed) {
    KT_REQUIRE_CORPUS("disc-d/VTS_01_0.IFO");
    kd::TitleSet d, c8;
    ASSERT_TRUE(kd::ReadTitleSet(Corpus("disc-d/VTS_01_0.IFO"), d));
    EXPECT_EQ(d.titleVobus.sectors.size(), 16496u);  // beyond a 16-bit map size
    EXPECT_EQ(d.menuVobus.sectors.size(), 1862u);
    EXPECT_EQ(d.parts.size(), 8u);
    EXPECT_TRUE(d.problems.empty());
    ASSERT_TRUE(kd::ReadTitleSet(Corpus("disc-c/VTS_08_0.IFO"), c8));
    ASSERT_EQ(c8.parts.size(), 1u);
    EXPECT_EQ(c8.parts[0].size(), 52u);
    EXPECT_EQ(c8.titleVobus.sectors.size(), 12389u);
    EXPECT_FALSE(kd::ReadTitleSet(Corpus("disc-e/VIDEO_TS.IFO"), c8));

    kd::VideoManager e;
    ASSERT_TRUE(kd::ReadVideoManager(Corpus("disc-e/VIDEO_TS.IFO"), e));
    std::string set2;
    for (const auto& t : e.titles)
        if (t.titleSet == 2) set2 += std::to_string(t.titleInSet);
    EXPECT_EQ(e.titles.size(), 9u);
    EXPECT_EQ(set2, "12345");
}

// Cut files and maximal counts give a partial model and problems, never a read outside the bytes.
TEST(DiscModel, DamagedFilesGiveAPartialModelAndProblems) {
    KT_REQUIRE_CORPUS("disc-c/VIDEO_TS.IFO");
    for (const char* file : {"disc-c/VIDEO_TS.IFO", "disc-c/VTS_01_0.IFO", "disc-d/VTS_01_0.IFO"}) {
        SCOPED_TRACE(file);
        const Bytes whole = Corpus(file);
        auto problems = [vmg = whole[10] == 'M'](const Bytes& b) {
            kd::VideoManager v;
            kd::TitleSet t;
            return vmg ? (kd::ReadVideoManager(b, v), v.problems)
                       : (kd::ReadTitleSet(b, t), t.problems);
        };
        for (size_t cut = 12; cut < whole.size(); cut = cut < 2048 ? cut + 509 : cut + 2048)
            EXPECT_FALSE(problems(Bytes(whole.begin(), whole.begin() + long(cut))).empty())
                << "cut at " << cut;
        // Every 16- and 32-bit field of every table sector set to its largest value.
        for (size_t sector = 1; sector < whole.size() / 2048; ++sector) {
            Bytes hostile = whole;
            std::fill(hostile.begin() + sector * 2048, hostile.begin() + sector * 2048 + 16, 0xff);
            problems(hostile);
        }
    }
}

// 300 cells of one VOB (beyond the library's keys) and VOBU maps of 16,384 and 65,535 entries
// are kept whole, in the source and in a binary side file; the title VOBs move after them.
TEST(DiscLossless, LargeCellTablesAndVobuMapsAreKept) {
    KT_REQUIRE_CORPUS("disc-b/VTS_01_0.IFO");
    Bytes vts = Corpus("disc-b/VTS_01_0.IFO"), cells(4096, 0);
    const uint32_t cellsAt = kt::BE32(vts, 224), mapAt = kt::BE32(vts, 228);
    ASSERT_EQ(mapAt, cellsAt + 1);
    kt::PutBE(cells, 0, 1, 2);                 // one VOB
    kt::PutBE(cells, 4, 8 + 12 * 300 - 1, 4);  // end address: 300 cells
    for (uint32_t c = 1; c <= 300; ++c) {
        const size_t e = 8 + 12 * (c - 1);  // VOB 1, cell ID (wrapping above 255 as bytes do)
        kt::PutBE(cells, e, 1, 2), cells[e + 2] = uint8_t(c);
        kt::PutBE(cells, e + 4, 10 * c, 4), kt::PutBE(cells, e + 8, 10 * c + 9, 4);
    }
    Bytes grown(vts.begin(), vts.begin() + cellsAt * 2048);
    grown.insert(grown.end(), cells.begin(), cells.end());
    grown.insert(grown.end(), vts.begin() + mapAt * 2048, vts.end());
    kt::PutBE(grown, 228, mapAt + 1, 4);
    kt::PutBE(grown, 28, kt::BE32(vts, 28) + 1, 4);
    kt::PutBE(grown, 196, kt::BE32(vts, 196) + 1, 4);
    Work w;
    const Bytes rebuilt = w.RoundTrip(grown, "VTS_01_0.IFO");
    EXPECT_EQ(NavigationDiff(grown, rebuilt), "");
    EXPECT_EQ(rebuilt.size(), grown.size());
    EXPECT_TRUE(w.RoundTrip(rebuilt, "VTS_01_0.IFO") == rebuilt) << "not a fixed point";

    for (int entries : {16384, 65535}) {
        SCOPED_TRACE(entries);
        std::string ini = w.Disasm(grown, "VTS_01_0.IFO");
        std::ostringstream map;
        map << "[vts_vobu_admap]\n";
        for (int k = 1; k <= entries; ++k)
            map << "vobu_sa" << std::setw(4) << std::setfill('0') << k << "=" << 3 * k << "\n";
        EditSource(ini, {}, {"vts_vobu_admap"}, map.str());
        const Bytes big = w.Asm(ini, "VTS_01_0.IFO");
        const std::string bin = w.Disasm(big, "bin", false, kd::SideFiles::Binary);
        kd::TitleSet t;
        for (const Bytes& b : {big, w.RoundTrip(big, "VTS_01_0.IFO"), w.Asm(bin, "VTS_01_0.IFO")}) {
            ASSERT_TRUE(kd::ReadTitleSet(b, t));
            ASSERT_EQ(t.titleVobus.sectors.size(), size_t(entries));
            EXPECT_EQ(t.titleVobus.sectors.back(), uint32_t(3 * entries));
            EXPECT_EQ(t.titleCells.cells.size(), 300u);
            EXPECT_EQ(kt::BE32(b, 196), kt::BE32(b, 28) + 1) << "title VOBs start after the IFO";
        }
        // The table classes' rules alone keep the map's size modulo 65,536 bytes.
        ASSERT_TRUE(
            kd::ReadTitleSet(w.Asm(w.Disasm(big, "lib.IFO", true), "VTS_01_0.IFO", true), t));
        EXPECT_EQ(t.titleVobus.sectors.size(), size_t(entries % 16384));
    }
}

// Parental management, text data (on no corpus disc) and a First Play PGC at byte 512 (as on one
// real disc; it moves to 1024) are kept, and an edited parental level takes effect.
TEST(DiscLossless, ParentalManagementTextDataAndFirstPlayAtAnotherByteAreKept) {
    KT_REQUIRE_CORPUS("disc-a/VIDEO_TS.IFO");
    Bytes vmg = Corpus("disc-a/VIDEO_TS.IFO");
    const uint32_t end = kt::BE32(vmg, 128), sectors = uint32_t(vmg.size() / 2048);
    ASSERT_LT(end - 1024, 512u);  // the last byte of the First Play PGC at 1024
    std::copy(vmg.begin() + 1024, vmg.begin() + end + 1, vmg.begin() + 512);
    std::fill(vmg.begin() + 1024, vmg.begin() + 2048, 0);
    kt::PutBE(vmg, 132, 512, 4);
    kt::PutBE(vmg, 128, end - 512, 4);
    // Two countries ("us", masks at 24; "de", at 56), one title set, end address 87; text data.
    Bytes ptl(2048, 0), txt(2048, 0);
    std::memcpy(ptl.data(), "\0\2\0\1\0\0\0\127us\0\0\0\30\0\0de\0\0\0\70", 22);
    for (size_t k = 0; k < 32; ++k) kt::PutBE(ptl, 24 + 2 * k, uint32_t(0x8000 >> (k % 16)), 2);
    std::memcpy(txt.data(), "DVDTEXT-TEST\0\0\0\1\0\0\0\77", 20);  // 1 unit, end address 63
    for (size_t k = 20; k < 64; ++k) txt[k] = uint8_t('a' + k % 26);
    vmg.insert(vmg.end(), ptl.begin(), ptl.end());
    vmg.insert(vmg.end(), txt.begin(), txt.end());
    kt::PutBE(vmg, 204, sectors, 4);
    kt::PutBE(vmg, 212, sectors + 1, 4);
    kt::PutBE(vmg, 28, sectors + 1, 4);

    Work w;
    w.MenuVobOfDiscA();
    const std::string ini = w.Disasm(vmg, "VIDEO_TS.IFO");
    const Bytes rebuilt = w.Asm(ini, "VIDEO_TS.IFO");
    EXPECT_EQ(NavigationDiff(vmg, rebuilt), "");
    EXPECT_EQ(kt::BE32(rebuilt, 132), 1024u);
    EXPECT_TRUE(w.RoundTrip(rebuilt, "VIDEO_TS.IFO") == rebuilt) << "not a fixed point";

    EditSource(ini, {{"country02_level1_vts000", "xffff,x0001"}});
    kd::VideoManager v;
    ASSERT_TRUE(kd::ReadVideoManager(w.Asm(ini, "VIDEO_TS.IFO"), v));
    ASSERT_EQ(v.parental.countries.size(), 2u);
    EXPECT_EQ(v.parental.countries[1].levels[7], (std::vector<uint16_t>{0xffff, 0x0001}));
    EXPECT_EQ(v.text.bytes, Bytes(txt.begin(), txt.begin() + 64));
}

// Edits take effect in either's sections; a source without the module's keeps the library's rules.
TEST(DiscLossless, EditedStatementsTakeEffectAndOldSourcesKeepTheLibraryRules) {
    KT_REQUIRE_CORPUS("disc-e/VIDEO_TS.IFO");
    Work w;
    std::string ini = w.Disasm(Corpus("disc-e/VIDEO_TS.IFO"), "VIDEO_TS.IFO");
    EditSource(ini, {{"vts_ttn03", "4"}, {"tt_ptl_id_fld01", "32768"}});
    kd::VideoManager v;
    ASSERT_TRUE(kd::ReadVideoManager(w.Asm(ini, "VIDEO_TS.IFO"), v));
    EXPECT_EQ(v.titles[2].titleInSet, 4);
    EXPECT_EQ(v.titles[0].parentalIdField, 0x8000);

    std::string vts = w.Disasm(Corpus("disc-c/VTS_01_0.IFO"), "VTS_01_0.IFO");
    EditSource(vts, {{"vtsm_v_atr", "4e01"}});
    kd::TitleSet t;
    ASSERT_TRUE(kd::ReadTitleSet(w.Asm(vts, "VTS_01_0.IFO"), t));
    EXPECT_EQ(t.table[256] * 256 + t.table[257], 0x4e01);

    const Bytes library = w.Asm(ini, "VIDEO_TS.IFO", true);
    EditSource(ini, {}, {"lossless", "lossless_vmgi_mat", "lossless_vts_atrt"});
    EXPECT_TRUE(w.Asm(ini, "VIDEO_TS.IFO") == library);
    ASSERT_TRUE(kd::ReadVideoManager(library, v));
    EXPECT_EQ(v.titles[2].titleInSet, 1);  // the library's rule: title 1 of its set
}

// Counts no file can hold in the module's sections are refused or cut, never allocated.
TEST(DiscLossless, HostileModuleStatementsStayBounded) {
    KT_REQUIRE_CORPUS("disc-a/VIDEO_TS.IFO");
    Work w;
    w.MenuVobOfDiscA();
    const std::string ini = w.Disasm(Corpus("disc-a/VIDEO_TS.IFO"), "VIDEO_TS.IFO");
    EditSource(ini, {}, {},
               "[ptl_mait]\ncty_ns=65535\n[parental_levels]\ntitle_sets=99\n"
               "[text_data]\nsize=99999999999\nbytes000000=xzz\n"
               "[lossless_vmgm_c_adt]\ncell_ns=2000000000\ncell0001=1 1 0 9\n"
               "[lossless_vmgi_mat]\nbyte1020=xffffffffffffffff\n");
    kd::VideoManager v;
    ASSERT_TRUE(kd::ReadVideoManager(w.Asm(ini, "VIDEO_TS.IFO"), v));
    EXPECT_FALSE(v.parental.present);
    EXPECT_FALSE(v.text.present);
    EXPECT_EQ(v.menuCells.cells.size(), 1u);
    EXPECT_EQ(v.table[1023], 0xff);
}

// Title start sectors follow the title sets beside the video manager, else the source's.
TEST(DiscLossless, TitleStartSectorsFollowTheTitleSets) {
    KT_REQUIRE_CORPUS("disc-c/VIDEO_TS.IFO");
    Work w;
    const Bytes original = Corpus("disc-c/VIDEO_TS.IFO");
    kd::VideoManager before, after;
    ASSERT_TRUE(kd::ReadVideoManager(original, before));
    // The menu VOB file that the video manager records, here and in `sets`.
    const std::string sets = w.dir / "sets";
    fs::create_directories(sets);
    for (const std::string& dir : {w.dir.path().string(), sets}) {
        std::ofstream(dir + "/VIDEO_TS.VOB").close();
        fs::resize_file(dir + "/VIDEO_TS.VOB",
                        (before.vmgEndSector + 1 - 2 * original.size() / 2048) * 2048);
    }
    const std::string ini = w.Disasm(original, "VIDEO_TS.IFO");
    ASSERT_TRUE(kd::ReadVideoManager(w.Asm(ini, "VIDEO_TS.IFO"), after));
    for (size_t i = 0; i < after.titles.size(); ++i)
        EXPECT_EQ(after.titles[i].titleSetStartSector, before.titles[i].titleSetStartSector);

    for (int k = 1; k <= 9; ++k) {
        Bytes vts = Corpus("disc-c/VTS_0" + std::to_string(k) + "_0.IFO");
        if (k == 1) kt::PutBE(vts, 12, kt::BE32(vts, 12) + 10, 4);  // title set 1: 10 sectors more
        kt::WriteBytes(sets + "/VTS_0" + std::to_string(k) + "_0.IFO", vts);
    }
    ASSERT_TRUE(kd::ReadVideoManager(w.Asm(ini, "VIDEO_TS.IFO", false, sets), after));
    for (size_t i = 0; i < after.titles.size(); ++i)
        EXPECT_EQ(after.titles[i].titleSetStartSector,
                  before.titles[i].titleSetStartSector + (after.titles[i].titleSet > 1 ? 10 : 0));
}

}  // namespace
