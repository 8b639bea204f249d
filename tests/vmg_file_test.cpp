// Whole VIDEO_TS.IFO files: real discs reported, disassembled and rebuilt to a fixed point.
#include <filesystem>

#include "vmg_test_util.h"

namespace {

namespace fs = std::filesystem;

// Every table's report of path, and its source into ini from a fresh load (reports swap bytes).
std::string LoadReportDisasm(const std::string& path, const std::string& ini) {
    tt::File h(path);
    CKestro_VMG_MAT mat, fresh;
    EXPECT_TRUE(mat.Load(h) == 1 && fresh.Load(h) == 1) << path;
    return tt::Walk(mat, 1 << 20) + tt::Walk(fresh, 0, ini);
}

// The library's rules applied to a real VIDEO_TS.IFO's bytes (its layout is the library's):
// every vts_ttn is written as 1; the parental ID is read high byte first and written low byte
// first; an attribute record keeps only the modelled fields, and its menu stream attributes,
// written in hex and read in decimal, drift every trip (disc-c: x80, x50, x32, x20, x14, x0e, x00).
std::vector<uint8_t> ByTheRules(std::vector<uint8_t> f) {
    auto at = [&](size_t i) -> uint8_t& {  // nothing is changed past the file
        static uint8_t beyond;
        return i < f.size() ? f[i] : (beyond = 0);
    };
    const size_t titles = size_t(kt::BE32(f, 196)) * 2048, atrt = size_t(kt::BE32(f, 208)) * 2048;
    for (size_t i = 0, n = titles ? kt::BE32(f, titles) >> 16 : 0; i < n; ++i) {
        std::swap(at(titles + 12 + 12 * i), at(titles + 13 + 12 * i));
        at(titles + 15 + 12 * i) = 1;
    }
    auto decimal = [](uint8_t b) {  // its two hex digits read as a decimal number, as atoi does
        return uint8_t(b >> 4 > 9 ? 0 : (b & 15) > 9 ? b >> 4 : (b >> 4) * 10 + (b & 15));
    };
    for (size_t i = 0, n = atrt ? kt::BE32(f, atrt) >> 16 : 0; i < n; ++i) {
        const size_t record = atrt + kt::BE32(f, atrt + 8 + 4 * i);
        std::vector<uint8_t> r(776, 0);  // made anew from the modelled fields, end address 775
        kt::PutBE(r, 0, 775, 4);
        auto keep = [&](size_t from, size_t size) {
            for (size_t k = from; k < from + size && k < r.size(); ++k) r[k] = at(record + k);
        };
        keep(4, 6);                                      // category, menu video
        for (size_t count : {size_t(11), size_t(93)}) {  // menu audio, menu sub-pictures
            r[count] = at(record + count);
            for (size_t j = 1; j <= r[count]; ++j) r[count + j] = decimal(at(record + count + j));
        }
        keep(264, 2), keep(267, 1), keep(268, 8 * size_t(r[267]));  // title video, audio
        keep(349, 1), keep(350, 6 * size_t(r[349]));                // title sub-pictures
        for (size_t k = 0; k < r.size(); ++k) at(record + k) = r[k];
    }
    return f;
}

// Real discs go through source and back, each round the rules' exact work, to a fixed point
// of file, report and source (several rounds where a rule drifts, as on disc-c).
TEST(VmgFile, RealDiscsRoundTripToAFixedPoint) {
    auto files = kt::CorpusFiles("VIDEO_TS");
    KT_SKIP_IF_EMPTY(files);
    for (const auto& orig : files) {
        SCOPED_TRACE(orig);
        kt::TempDir work;
        const fs::path vob = fs::path(orig).replace_extension(".VOB");  // the menu VOB file, if any
        std::string error, report, source;
        auto round = [&](int k, const std::string& ini) {
            const fs::path dir = work.path() / std::to_string(k);
            fs::create_directories(dir);
            if (fs::exists(vob)) fs::copy_file(vob, dir / "VIDEO_TS.VOB");
            const std::string ifo = (dir / "VIDEO_TS.IFO").string();
            return vt::AssembleVmg(ini, ifo, &error) ? ifo : std::string();
        };
        const auto original = kt::ReadBytes(orig);
        const std::string a = work / "0.ini",
                          titles = std::to_string(
                              kt::BE32(original, kt::BE32(original, 196) * 2048) >> 16);
        EXPECT_NE(LoadReportDisasm(orig, a).find(
                      "Number of Title Unit Serch Pointers TTUs in the VTS: " + titles),
                  std::string::npos);

        // First round: every byte the rules' work (every corpus video manager keeps its tables'
        // sectors), but 46-61 and, without the menu VOB file, the end address and menu VOBs.
        std::string ifo = round(1, a);
        ASSERT_FALSE(ifo.empty()) << error;
        std::vector<uint8_t> last = kt::ReadBytes(ifo);
        auto mask = [&](std::vector<uint8_t> v) {
            for (size_t i = 12; i < 196 && i < v.size(); ++i)
                if ((i >= 46 && i < 62) || (!fs::exists(vob) && (i < 16 || i >= 192))) v[i] = 0;
            return v;
        };
        const auto got = mask(last), want = mask(ByTheRules(original));
        EXPECT_TRUE(got == want) << tt::Mismatch(got, want);

        // Further rounds, each the rules' work on the one before to the byte, then once more to
        // see the same report and source again.
        bool settled = false;
        for (int k = 2; k <= 10 && !settled; ++k) {
            const std::string ini = work / (std::to_string(k) + ".ini");
            report = LoadReportDisasm(ifo, ini);
            source = kt::ReadText(ini);
            ASSERT_FALSE((ifo = round(k, ini)).empty()) << error;
            const auto next = kt::ReadBytes(ifo);
            EXPECT_TRUE(next == ByTheRules(last))
                << "round " << k << ": " << tt::Mismatch(next, ByTheRules(last));
            settled = next == last;
            last = next;
        }
        ASSERT_TRUE(settled) << "no fixed point after ten rounds";
        EXPECT_EQ(LoadReportDisasm(ifo, work / "fixed.ini"), report);
        EXPECT_EQ(kt::ReadText(work / "fixed.ini"), source);
    }
}

}  // namespace
