// VTSI_MAT: its tables, report, source and write; whole title sets assembled and real ones rebuilt.
#include <sstream>

#include "ifo_navigation.h"

#include "vts_host.h"

namespace {

using Loaded = tt::Loaded<CKestro_VTS_MAT>;  // kept open: its tables re-read the file

// Loads `from`, reports and disassembles every table into ini, gives [vtsi_mat] `key` the value
// `value` when asked, and assembles the tables it had and the whole file at ifo.
bool Rebuild(const std::string& from, const std::string& ini, const std::string& ifo, bool absolute,
             std::string* error, const char* key = nullptr, const char* value = "$") {
    CKestro_PGCI codec;
    CKestro_VTS_MAT in, out;
    tt::File f(from);
    if (in.Load(f.h) != 1) return false;
    tt::Walk(in, (1 << 22) - 3, ini, true);
    if (key) INIWritePrivateProfileString("vtsi_mat", key, value, ini.c_str());
    const char* p = ini.c_str();
    if (in.GetVTS_PTT_SRPT()) out.NewVTS_PTT_SRPT()->Asm(p);
    if (in.GetVTS_PGCIT()) out.NewVTS_PGCIT()->Asm(p, &codec);
    if (in.GetVTSM_PGCI_UT()) out.NewVTSM_PGCI_UT()->Asm(p, &codec);
    if (in.GetVTS_TMAPT()) out.NewVTS_TMAPT()->Asm(p);
    if (in.GetVTSM_C_ADT()) out.NewVTSM_C_ADT()->Asm(p);
    if (in.GetVTSM_VOBU_ADMAP()) out.NewVTSM_VOBU_ADMAP()->Asm(p);
    if (in.GetVTS_C_ADT()) out.NewVTS_C_ADT()->Asm(p);
    if (in.GetVTS_VOBU_ADMAP()) out.NewVTS_VOBU_ADMAP()->Asm(p);
    tt::File file(ifo, true);
    const bool ok = file.h != -1 && (absolute ? out.AsmAbs(p, (unsigned short)file.h, ifo.c_str())
                                              : out.Asm(p, file.h, ifo.c_str()));
    *error = tt::Error(out);
    return ok;
}

void MakeVob(const std::string& path, uint64_t bytes) {
    kt::WriteBytes(path, {});
    kt::fs::resize_file(path, bytes);  // sparse: only the size matters
}

// The synthetic title set loaded; Build rebuilds it into `out`.
class VtsMat : public ::testing::Test {
protected:
    std::vector<uint8_t> Build(bool absolute, std::string* error, const char* key = nullptr,
                               const char* value = "$", const std::string& ifo = "VTS_01_0.IFO") {
        const bool ok = Rebuild(l.file, l.ini, out / ifo, absolute, error, key, value);
        auto got = kt::ReadBytes(out / ifo);
        EXPECT_EQ(ok, !got.empty()) << "nothing is written on failure";
        return got;
    }
    Loaded l{vt::SyntheticVtsi()};
    kt::TempDir out;
};

// VTSI_MAT's report, source (a fresh file) and write (address fields as held); the tables Load
// creates, a second Load releases and New and Delete replace (sanitizer: leaks). Stream counts
// of 255, an identifier without a zero byte after it, a table cut short stay inside the table.
TEST_F(VtsMat, ReportSourceWriteAndTables) {
    bool ok = false;
    const auto lines = tt::Lines(tt::Text(l.t, 1 << 16, &ok));
    ASSERT_TRUE(l.loaded == 1 && ok && lines.size() == 27u);
    std::string picked;  // the identifier runs on into VTS_EA as held up to its zero byte
    for (size_t i : {0, 3, 10, 16, 19, 20, 24, 26}) picked += lines[i] + "|";
    EXPECT_EQ(picked,
              "VTS Identifier: DVDVIDEO-VTS\xa2\xf3\x01|Specification version number: 1.1|"
              "Start sector address of VTSM_PGCI_UT: 4|Video attributes of VTSM_VOBS: 4d01|"
              "Number of VTSM subpicture streams: 1|VTSM subpicture attributes: 202122232425|"
              "  Audio 2 attributes: 4041424344454647|"
              "  Subpicture stream 1 attributes: 505152535455|");
    kt::WriteText(l.ini, "[left_over]\nkey=1\n");
    ASSERT_TRUE(l.t.Disasm(l.ini.c_str()));
    EXPECT_EQ(tt::Value(l.ini, "left_over", "key"), "$") << "the section starts a fresh file";
    auto held = tt::Slice(kt::ReadBytes(l.file), 0, 2048);  // 32-bit fields low byte first
    for (size_t at : {12, 28, 34, 128, 192, 196, 200, 204, 208, 212, 216, 220, 224, 228})
        std::reverse(held.begin() + long(at), held.begin() + long(at) + 4);
    EXPECT_EQ(tt::Written(l.t, l.dir / "o.bin", &ok), held);
    EXPECT_TRUE(ok);

    std::vector<uint8_t> wide = vt::SyntheticMat({});
    for (size_t i = 12; i < 2048; ++i) wide[i] = wide[i] ? wide[i] : 'A';
    wide[515] = wide[597] = 255;
    Loaded w(wide), noMenus(vt::SyntheticVtsi(false)), junk(std::vector<uint8_t>(4096, 7)),
        cut(tt::Slice(vt::SyntheticMat({}), 0, 100), 0, false);
    const auto all = tt::Lines(tt::Text(w.t, 1 << 16, &ok));
    EXPECT_TRUE(ok && all[0].rfind("VTS Identifier: DVDVIDEO-VTS", 0) == 0);
    EXPECT_EQ(all.back(), "  Subpicture stream 255 attributes: 000000000000");
    ASSERT_TRUE(w.t.Disasm(w.ini.c_str()));
    EXPECT_EQ(tt::Value(w.ini, "vtsi_mat", "vts_ast_atrt255"), "0000000000000000");
    EXPECT_TRUE(noMenus.t.GetVTS_TMAPT() && !noMenus.t.GetVTSM_PGCI_UT() &&
                !noMenus.t.GetVTSM_LU());
    EXPECT_TRUE(cut.loaded == 1 && !cut.t.GetVTS_PTT_SRPT()) << "start sector 0: no table";
    ASSERT_TRUE(l.t.GetVTSM_LU() && l.t.GetVTS_VOBU_ADMAP() && l.t.Load(l.h) == 1);
    CKestro_PTT_SRPT* before = l.t.GetVTS_PTT_SRPT();
    EXPECT_TRUE(l.t.Load(junk.h) == 0 && l.t.GetVTS_PTT_SRPT() == before) << "not a title set";
    const CKestro_VTSM_PGCI* fresh = l.t.NewVTSM_PGCI_UT();
    EXPECT_TRUE(l.t.GetVTSM_PGCI_UT() == fresh && !l.t.GetVTSM_LU()) << "its units go with it";
    l.t.DeleteVTS_C_ADT(), l.t.DeleteVTS_C_ADT();
    EXPECT_EQ(l.t.GetVTS_C_ADT(), nullptr);
}

// Tables come back at their start sectors, the rest as held but the menu video attribute's high
// byte; VTS_EA counts the VOB files' sectors.
TEST_F(VtsMat, MeasuresTheVobFilesBesideTheIfo) {
    const struct {
        std::vector<std::pair<std::string, uint64_t>> vobs;  // name, sectors (0: 2049 bytes)
        uint32_t menuSa, titleSa, vtsEa;
        const char* failing = nullptr;  // the VOB refused
        const char* ifo = "VTS_01_0.IFO";
    } cases[] = {
        {{}, 0, 10, 19},
        {{{"vts_01_0.vob", 10}}, 10, 20, 29},
        {{{"VTS_01_0.VOB", 10}, {"VTS_01_1.VOB", 1000}}, 10, 20, 1029},
        {{{"vts_01_1.vob", 100}, {"vts_01_3.vob", 500}}, 0, 10, 119},  // a gap ends them
        {{}, 0, 10, 28},  // ten title VOBs of a sector: nine are counted
        // The 32-bit byte total of five 1 GiB VOBs wraps; VTS_EA follows it, no size limit fires.
        {{}, 0, 10, 19 + (1 << 19)},
        // The title set number comes from the file name, in either case.
        {{{"vts_07_1.vob", 50}, {"vts_01_1.vob", 5}}, 0, 10, 69, nullptr, "VTS_07_0.IFO"},
        {{{"vts_07_1.vob", 50}, {"vts_01_1.vob", 5}}, 0, 10, 24, nullptr, "vts_01_0.ifo"},
        {{{"vts_01_0.vob", 0}}, 0, 0, 0, "vts_01_0.vob"},
        {{{"vts_01_1.vob", 3}, {"vts_01_2.vob", 0}}, 0, 0, 0, "vts_01_2.vob"}};
    const std::vector<uint8_t> original = vt::SyntheticVtsi();
    for (bool absolute : {false, true}) {
        for (auto c : cases) {
            SCOPED_TRACE(std::to_string(c.vtsEa) + (absolute ? " (AsmAbs)" : " (Asm)"));
            for (int i = 1, many = c.vobs.empty() && c.vtsEa > 19; many && i <= 10; ++i)
                c.vobs.push_back({"vts_01_" + std::to_string(i) + ".vob",
                                  c.vtsEa == 28 ? 1 : (i <= 5 ? 1 << 19 : 0)});
            for (auto& e : kt::fs::directory_iterator(out.path())) kt::fs::remove(e.path());
            for (auto& v : c.vobs)
                if (v.second || c.failing)
                    MakeVob(out / v.first, v.second ? v.second * 2048 : 2049);
            std::string error;
            // AsmAbs keeps the menu VOBs' start sector when there are none
            const std::vector<uint8_t> got = Build(absolute, &error, "vtsm_vobs_sa", "77", c.ifo);
            if (c.failing) {
                EXPECT_EQ(error,
                          (absolute ? "Warning! VOB file " : "VOB file ") + (out / c.failing) +
                              " is not divisble by 2048, a requirement of DVD-Video standards.");
                continue;
            }
            std::vector<uint8_t> want = original;
            kt::PutBE(want, 12, c.vtsEa, 4);
            kt::PutBE(want, 192, absolute && !c.menuSa ? 77u : c.menuSa, 4);
            kt::PutBE(want, 196, c.titleSa, 4);
            want[256] = 0;
            EXPECT_EQ(got, want) << tt::Mismatch(got, want);
        }
    }
}

// A missing statement (AsmAbs reads all, Asm those marked) or a wrong identifier stops assembly.
TEST_F(VtsMat, StatementsReadAndTheirMessages) {
    std::istringstream keys(  // "+": read by Asm too
        "vts_id+ vts_ea vtsi_ea vern+ vts_cat+ vtsi_mat_ea vtsm_vobs_sa vtstt_vobs_sa "
        "vts_ptt_srpt_sa vts_pgcit_sa vtsm_pgci_ut_sa vts_tmapt_sa vtsm_c_adt_sa vts_c_adt_sa "
        "vtsm_vobu_admap_sa vts_vobu_admap_sa vtsm_v_atr+ vtsm_ast_ns+ vtsm_ast_atr+ vts_v_atr+ "
        "vtsm_spst_ns+ vtsm_spst_atr+ vts_ast_ns+ vts_ast_atrt02+ vts_spst_ns+ vts_spst_atrt01+ "
        "vts_mu_ast_atrt08+");
    for (std::string key; keys >> key;) {
        const bool asmReads = key.back() == '+';
        if (asmReads) key.pop_back();
        for (bool absolute : {false, true}) {
            std::string want = "[" + key + "] Statement missing in vtsi_mat", error;
            if (key == "vts_id") want = "VTS ID is missing";
            if (key == "vts_spst_ns" && absolute) want = "vts_spst_ns";
            if (!absolute && !asmReads) want = "";
            Build(absolute, &error, key.c_str());
            EXPECT_EQ(error, want) << key << (absolute ? " (AsmAbs)" : " (Asm)");
        }
    }
    std::string error;
    EXPECT_TRUE(Build(false, &error, "vts_id", "DVDVIDEO-VMG").empty());
    EXPECT_EQ(error, "[DVDVIDEO-VTS] missing Illegal VTS_ID field");
}

// A real title set as rebuilt: no menu video attribute high byte, a cell address table holding
// as many entries as VOBs, a VOBU map its entries modulo 16,384 (disc-d: 16,496 -> 112), VTS_EA
// from a title byte total that wraps at 4 GiB.
std::vector<uint8_t> ByTheRules(std::vector<uint8_t> f, uint64_t titleSectors) {
    f.at(256) = 0;
    kt::PutBE(f, 12, kt::BE32(f, 12) - uint32_t((titleSectors * 2048 >> 32) << 21), 4);
    for (size_t field : {216, 224}) {
        const size_t t = size_t(kt::BE32(f, field)) * 2048, vobs = kt::BE32(f, t) >> 16;
        const size_t end = kt::BE32(f, t + 4), entries = end >= 7 ? (end - 7) / 12 : 0;
        if (!t || entries <= vobs) continue;
        kt::PutBE(f, t + 4, uint32_t(12 * vobs + 7), 4);
        std::fill(f.begin() + long(std::min(t + 8 + 12 * vobs, f.size())),
                  f.begin() + long(std::min(t + 8 + 12 * entries, f.size())), 0);
    }
    for (size_t field : {220, 228})
        if (const size_t t = size_t(kt::BE32(f, field)) * 2048; t && kt::BE32(f, t) >= 65539)
            kt::PutBE(f, t, (kt::BE32(f, t) - 3) / 4 % 16384 * 4 + 3, 4);
    return f;
}

// Real title sets rebuilt beside sparse VOB files: every field as the rules make it, the same
// bytes where the layout is the original's (all but disc-d), and a second trip changes nothing.
TEST(VtsRealDiscs, EveryTitleSetIsReportedAndRebuiltExactly) {
    std::vector<std::string> files = kt::CorpusFiles("VTS_");
    KT_SKIP_IF_EMPTY(files);
    size_t comparedWhole = 0;
    for (const auto& original : files) {
        SCOPED_TRACE(original);
        const std::vector<uint8_t> bytes = kt::ReadBytes(original);
        kt::TempDir work;
        const uint32_t menuSa = kt::BE32(bytes, 192), titleSa = kt::BE32(bytes, 196);
        const uint64_t titleSectors = kt::BE32(bytes, 12) - kt::BE32(bytes, 28) - titleSa;
        if (menuSa) MakeVob(work / "vts_01_0.vob", (titleSa - menuSa) * 2048ull);
        uint64_t title = titleSectors;  // in VOBs under 1 GiB each
        for (int i = 1; title > 0 && i <= 9; ++i, title -= std::min<uint64_t>(title, 524287))
            MakeVob(work / ("vts_01_" + std::to_string(i) + ".vob"),
                    std::min<uint64_t>(title, 524287) * 2048);
        ASSERT_EQ(title, 0u);
        const std::string ini = work / "s.ini", ifo = work / "VTS_01_0.IFO", first = work / "1.ifo";
        const auto want = ByTheRules(bytes, titleSectors);
        for (bool absolute : {false, true}) {
            SCOPED_TRACE(absolute ? "AsmAbs" : "Asm");
            std::string error;
            ASSERT_TRUE(Rebuild(original, ini, ifo, absolute, &error)) << error;
            const auto got = kt::ReadBytes(ifo);
            EXPECT_EQ(NavigationDiff(got, want), "");
            const bool sameLayout = tt::Slice(got, 192, 40) == tt::Slice(bytes, 192, 40);
            comparedWhole += sameLayout;  // the original's layout kept: the same bytes
            EXPECT_TRUE(!sameLayout || got == want);
            kt::fs::rename(ifo, first);
            ASSERT_TRUE(Rebuild(first, ini, ifo, absolute, &error)) << error;
            EXPECT_TRUE(kt::ReadBytes(ifo) == got) << "a second trip changes nothing";
        }
    }
    EXPECT_GT(comparedWhole, 0u) << "no title set was compared byte for byte";
}

}  // namespace
