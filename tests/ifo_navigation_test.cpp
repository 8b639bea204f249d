// The reader that tests compare discs with sees a change in every kind of table, within the bytes.
#include "ifo_navigation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "test_util.h"

namespace {

using Bytes = std::vector<uint8_t>;

// disc-e's video manager with parental management and text data after it (no corpus disc has
// them): one country ("fr", masks at byte 16 of all zeros) for two title sets, and 44 text bytes.
Bytes WithParentalAndText() {
    Bytes ifo = kt::Corpus("disc-e/VIDEO_TS.IFO"), t(2 * 2048, 0);
    const uint32_t sector = uint32_t(ifo.size() / 2048);
    std::memcpy(t.data(), "\0\1\0\2\0\0\0\77fr\0\0\0\20", 14);  // end address: 16 + 8 x 3 x 2 - 1
    std::memcpy(t.data() + 2048, "DVDTEXT-TEST\0\0\0\1\0\0\0\77", 20);  // units, end address 63
    ifo.insert(ifo.end(), t.begin(), t.end());
    kt::PutBE(ifo, 204, sector, 4);
    kt::PutBE(ifo, 212, sector + 1, 4);
    return ifo;
}

// A change to one navigation byte shows as a change in exactly its line, in every kind of table.
TEST(IfoNavigation, AChangedFieldChangesItsLine) {
    // The byte at `at` of the record that the word at `pointer` (if not 0) of the table whose
    // start sector is at `field` (if not 0) points at; "+" is WithParentalAndText.
    const struct {
        const char *file, *line;
        size_t field, pointer, at;
    } cases[] = {
        {"disc-c/VIDEO_TS.IFO", "vmgi.title_sets", 0, 0, 63},
        {"disc-e/VIDEO_TS.IFO", "first_play.palette[002]", 0, 132, 164 + 4 + 1},
        {"disc-e/VIDEO_TS.IFO", "title[002].title_in_set", 196, 0, 8 + 12 + 7},
        {"disc-c/VIDEO_TS.IFO", "vmgm.lu[001].menu_existence", 200, 0, 8 + 3},
        {"+", "ptl_mait.country[001].level_row[008]", 204, 0, 16 + 2 * (7 * 3 + 1) + 1},
        {"disc-c/VIDEO_TS.IFO", "vts_atrt.vts[001].attributes", 208, 8, 12},
        {"+", "txtdt_mg.bytes[002]", 212, 0, 20 + 33},
        {"disc-c/VIDEO_TS.IFO", "vmgm_c_adt[001]", 216, 0, 8 + 11},
        {"disc-c/VTS_01_0.IFO", "vtsi.reserved_bytes", 0, 0, 1500},
        {"disc-d/VTS_01_0.IFO", "vts_title[001].ptt[001]", 200, 8, 3},
        {"disc-d/VTS_01_0.IFO", "vts_pgc[001].palette[002]", 204, 12, 164 + 4 + 1},
        {"disc-c/VTS_01_0.IFO", "vtsm.lu[001].language", 208, 0, 8 + 1},
        {"disc-d/VTS_01_0.IFO", "tmap[001].time_unit", 212, 8, 0},
        {"disc-c/VTS_01_0.IFO", "vtsm_vobu_admap[00001]", 220, 0, 4 + 3},
        {"disc-d/VTS_01_0.IFO", "vts_c_adt[001]", 224, 0, 8 + 11},
        {"disc-d/VTS_01_0.IFO", "vts_vobu_admap[16496]", 228, 0, 4 * 16496 + 3},
    };
    KT_REQUIRE_CORPUS("disc-c/VIDEO_TS.IFO");
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " " + c.line);
        Bytes ifo = *c.file == '+' ? WithParentalAndText() : kt::Corpus(c.file);
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

// A sound file reads whole; one cut anywhere reads within its bytes and is never a shorter
// reading passed off as whole (a rebuild that lost a table would compare equal).
TEST(IfoNavigation, CutFilesAreReadWithinTheirBytesAndFlagged) {
    auto files = kt::CorpusFiles("");
    KT_SKIP_IF_EMPTY(files);
    std::vector<std::pair<std::string, Bytes>> ifos = {{"+", WithParentalAndText()}};
    for (const auto& path : files) ifos.emplace_back(path, kt::ReadBytes(path));
    for (const auto& [name, ifo] : ifos) {
        SCOPED_TRACE(name);
        auto whole = NavigationOf(ifo);
        for (const auto& l : whole) EXPECT_EQ(l.find("damaged"), std::string::npos) << l;
        for (size_t cut = 12; cut < ifo.size(); cut += 512) {
            auto lines = NavigationOf(Bytes(ifo.begin(), ifo.begin() + long(cut)));
            EXPECT_TRUE(lines.back().rfind("damaged=", 0) == 0 || lines == whole) << "cut " << cut;
        }
    }
    EXPECT_EQ(NavigationOf({}), std::vector<std::string>{"kind=not an IFO file"});
}

}  // namespace
