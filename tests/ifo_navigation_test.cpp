// The navigation reader that the real-disc tests compare discs with: it must
// see every field, ignore layout, and survive any bytes.
#include "ifo_navigation.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "test_util.h"

namespace {

// Every table of a real disc reads whole, and its BUP copy reads the same.
TEST(IfoNavigation, RealDiscsReadWholeAndLikeTheirBackups) {
    auto files = kt::CorpusFiles("");
    KT_SKIP_IF_EMPTY(files);
    for (const auto& path : files) {
        SCOPED_TRACE(path);
        auto lines = NavigationOf(kt::ReadBytes(path));
        for (const auto& l : lines) EXPECT_EQ(l.find("damaged"), std::string::npos) << l;
        const char* main =
            lines[0] == "kind=video manager" ? "tt_srpt=present" : "vts_pgcit=present";
        EXPECT_NE(std::find(lines.begin(), lines.end(), main), lines.end());

        std::string bup = path.substr(0, path.size() - 3) + "BUP";
        if (kt::fs::exists(bup)) {
            auto backup = NavigationOf(kt::ReadBytes(bup));
            EXPECT_EQ(lines, backup) << NavigationDiff(lines, backup);
        }
    }
}

// Where a table lies is layout: every table of every real file, moved in turn to the end of
// the file (its start sector patched), reads the same.
TEST(IfoNavigation, MovedTablesGiveTheSameLines) {
    auto files = kt::CorpusFiles("");
    KT_SKIP_IF_EMPTY(files);
    for (const auto& path : files) {
        auto ifo = kt::ReadBytes(path);
        auto lines = NavigationOf(ifo);
        const bool vmg = ifo[11] == 'G';  // DVDVIDEO-VMG: start sectors at 196-220, else 200-228
        size_t first = vmg ? 196 : 200, last = vmg ? 220 : 228;
        for (size_t field = first; field <= last; field += 4) {
            uint32_t sector = kt::BE32(ifo, field);
            if (sector == 0 || size_t(sector) * 2048 >= ifo.size()) continue;
            SCOPED_TRACE(path + " start sector at byte " + std::to_string(field));
            // The table and all after it copied past a one-sector gap; the old copy wiped.
            std::vector<uint8_t> moved(ifo);
            moved.resize(moved.size() + 2048, 0);
            uint32_t to = uint32_t(moved.size() / 2048);
            moved.insert(moved.end(), ifo.begin() + size_t(sector) * 2048, ifo.end());
            std::fill(moved.begin() + size_t(sector) * 2048, moved.begin() + ifo.size(), 0x5a);
            for (size_t other = first; other <= last; other += 4) {
                uint32_t s = kt::BE32(ifo, other);
                if (s >= sector) kt::PutBE(moved, other, to + (s - sector), 4);
            }
            auto after = NavigationOf(moved);
            EXPECT_EQ(lines, after) << NavigationDiff(lines, after);
        }
    }
}

// A change to one navigation field shows as a change in exactly its line.
TEST(IfoNavigation, AChangedFieldChangesItsLine) {
    const struct {
        const char *file, *line;  // the line that must change
        size_t field;    // where the start sector of the table holding the byte is (0: none)
        size_t pointer;  // if not 0: the byte is in the record the table's word here points at
        size_t at;
    } cases[] = {
        {"disc-e/VIDEO_TS.IFO", "title[002].title_in_set", 196, 0, 8 + 12 + 7},
        {"disc-e/VIDEO_TS.IFO", "title[001].parental_id", 196, 0, 8 + 4},
        {"disc-d/VTS_01_0.IFO", "vts_vobu_admap[16496]", 228, 0, 4 * 16496 + 3},
        {"disc-d/VTS_01_0.IFO", "vts_c_adt[001]", 224, 0, 8 + 11},
        {"disc-d/VTS_01_0.IFO", "vts_title[001].ptt[001]", 200, 8, 3},
        {"disc-d/VTS_01_0.IFO", "vts_pgc[001].palette[002]", 204, 12, 164 + 4 + 1},
        {"disc-d/VTS_01_0.IFO", "tmap[001].time_unit", 212, 8, 0},
        {"disc-c/VIDEO_TS.IFO", "vts_atrt.vts[001].attributes", 208, 8, 12},
        {"disc-c/VTS_01_0.IFO", "vtsi.reserved_bytes", 0, 0, 1500},
    };
    for (const auto& c : cases) {
        KT_REQUIRE_CORPUS(c.file);
        SCOPED_TRACE(std::string(c.file) + " " + c.line);
        auto ifo = kt::Corpus(c.file);
        auto before = NavigationOf(ifo);
        const size_t table = c.field ? size_t(kt::BE32(ifo, c.field)) * 2048 : 0;
        const size_t at = table + (c.pointer ? kt::BE32(ifo, table + c.pointer) : 0) + c.at;
        ASSERT_LT(at, ifo.size());
        ifo[at] ^= 0x01;
        auto after = NavigationOf(ifo);
        ASSERT_EQ(before.size(), after.size());
        std::string diff = NavigationDiff(before, after);
        EXPECT_EQ(std::count(diff.begin(), diff.end(), '\n'), 2) << diff;
        EXPECT_EQ(diff.find("+" + std::string(c.line) + "="), diff.find('+')) << diff;
    }
}

// PTL_MAIT (on no corpus disc) added to a real video manager is read mask by mask.
TEST(IfoNavigation, ParentalManagementIsReadMaskByMask) {
    KT_REQUIRE_CORPUS("disc-e/VIDEO_TS.IFO");
    auto ifo = kt::Corpus("disc-e/VIDEO_TS.IFO");
    const uint32_t sector = uint32_t(ifo.size() / 2048);
    std::vector<uint8_t> t = {0,   1,           // one country
                              0,   2,           // two title sets
                              0,   0,   0, 63,  // end address: 16 + 8 levels x 3 words x 2 - 1
                              'f', 'r', 0, 0,  0, 16, 0, 0};  // France, its masks at byte 16
    for (int level = 0; level < 8; ++level)
        for (int k = 0; k < 3; ++k) t.insert(t.end(), {uint8_t(level), uint8_t(0x10 * k + 1)});
    t.resize(2048, 0);
    ifo.insert(ifo.end(), t.begin(), t.end());
    kt::PutBE(ifo, 204, sector, 4);
    const auto lines = NavigationOf(ifo);
    for (const char* want :
         {"ptl_mait=present", "ptl_mait.countries=1", "ptl_mait.title_sets=2",
          "ptl_mait.country[001].code=fr", "ptl_mait.country[001].level_row[001]=0001 0011 0021",
          "ptl_mait.country[001].level_row[008]=0701 0711 0721"})
        EXPECT_NE(std::find(lines.begin(), lines.end(), want), lines.end()) << want;
    for (const auto& l : lines) EXPECT_EQ(l.find("damaged"), std::string::npos) << l;
}

// A cut file reads within its bytes and is never a shorter reading passed off as whole (a
// rebuild that lost a table would compare equal).
TEST(IfoNavigation, DamagedFilesAreReadWithinTheirBytes) {
    auto files = kt::CorpusFiles("");
    KT_SKIP_IF_EMPTY(files);
    for (const auto& path : files) {
        SCOPED_TRACE(path);
        auto ifo = kt::ReadBytes(path);
        auto whole = NavigationOf(ifo);
        for (size_t cut = 0; cut < ifo.size(); cut += 2048 / 4) {
            std::vector<uint8_t> part(ifo.begin(), ifo.begin() + cut);
            // The whole reading (the cut fell in padding), or a damaged line.
            auto lines = NavigationOf(part);
            bool damaged = lines.back().rfind("damaged=", 0) == 0;
            EXPECT_TRUE(cut < 12 || damaged || lines == whole) << "cut at " << cut;
        }
    }
    EXPECT_EQ(NavigationOf({}), std::vector<std::string>{"kind=not an IFO file"});
}

}  // namespace
