// The management table VTSI_MAT: loading and ownership of the file's tables,
// report, source and writing, and the assembly of a whole file: its layout,
// the VOB files measured beside it, the statements Asm and AsmAbs read, and
// the real discs rebuilt byte for byte.
#include <sstream>

#include "vts_host.h"

namespace {

std::string Details(CKestro_VTS_MAT& mat, int len = 1 << 16, bool* ok = nullptr) {
    std::vector<char> buf(size_t(len) + 3, 0);
    const bool r = mat.Details(buf.data(), len);
    if (ok) *ok = r;
    return buf.data();
}

// A MAT loaded from dir/VTS_01_0.IFO, kept open: its tables re-read the file.
struct Loaded {
    explicit Loaded(const std::vector<uint8_t>& file) : path(dir / "VTS_01_0.IFO") {
        kt::WriteBytes(path, file);
        f = std::make_unique<vt::Handle>(path);
        result = mat.Load(f->h);
    }
    kt::TempDir dir;
    std::string path, ini = dir / "s.ini";
    std::unique_ptr<vt::Handle> f;
    CKestro_VTS_MAT mat;
    int result;
};

TEST(VtsMat, ReportSourceAndWrite) {
    Loaded l(vt::SyntheticVtsi());
    ASSERT_EQ(l.result, 1);
    bool ok = false;
    const auto lines = vt::Lines(Details(l.mat, 1 << 16, &ok));
    EXPECT_TRUE(ok);
    ASSERT_EQ(lines.size(), 27u);
    // The identifier runs on into VTS_EA as held (127906 = 0x1F3A2, least
    // significant byte first) up to its zero byte.
    const std::pair<size_t, const char*> want[] = {
        {0, "VTS Identifier: DVDVIDEO-VTS\xa2\xf3\x01"}, {3, "Specification version number: 1.1"},
        {10, "Start sector address of VTSM_PGCI_UT: 4"}, {16, "Video attributes of VTSM_VOBS: 4d01"},
        {19, "Number of VTSM subpicture streams: 1"}, {20, "VTSM subpicture attributes: 202122232425"},
        {24, "  Audio 2 attributes: 4041424344454647"}, {26, "  Subpicture stream 1 attributes: 505152535455"}};
    for (const auto& w : want) EXPECT_EQ(lines[w.first], w.second);
    EXPECT_EQ(vt::Lines(Details(l.mat, 100, &ok)).size(), 3u);
    EXPECT_FALSE(ok);
    kt::WriteText(l.ini, "[left_over]\nkey=1\n");
    ASSERT_TRUE(l.mat.Disasm(l.ini.c_str()));
    EXPECT_EQ(vt::Ini(l.ini, "left_over", "key"), "$") << "the section starts a fresh file";
    const char* keys[][2] = {{"vts_id", "DVDVIDEO-VTS"}, {"vts_ea", "127906"}, {"vern", "1.1"},
                             {"vts_cat", "00000001"}, {"vtsm_ast_atr", "1011121314151617"},
                             {"vts_ast_atrt02", "4041424344454647"}, {"vts_mu_ast_atrt09", "$"},
                             {"vts_mu_ast_atrt08", "a8a9aaabacadaeafb0b1b2b3b4b5b6b7b8b9babbbcbdbebf"}};
    for (auto& kv : keys) EXPECT_EQ(vt::Ini(l.ini, "vtsi_mat", kv[0]), kv[1]) << kv[0];
    // Write puts out the table as held: address fields least significant byte first.
    vt::Handle out(l.dir / "o.bin", true);
    EXPECT_TRUE(l.mat.Write(out.h));
    out.Close();
    const auto got = kt::ReadBytes(out.path), file = kt::ReadBytes(l.path);
    ASSERT_EQ(got.size(), 2048u);
    EXPECT_EQ(vt::Slice(got, 12, 4), (std::vector<uint8_t>{0xa2, 0xf3, 0x01, 0x00}));
    EXPECT_EQ(vt::Slice(got, 256, 2048), vt::Slice(file, 256, 2048 - 256));
}

// Load creates the tables the file has; a second Load releases them; a file
// that is no title set leaves them alone; New replaces (and releases) a
// table and Delete releases it. The sanitizer build reports leaks and
// dangling uses.
TEST(VtsMat, LoadCreatesTheTablesTheFileHasAndOwnsThem) {
    Loaded noMenus(vt::SyntheticVtsi(false)), cut(vt::Slice(vt::SyntheticMat({}), 0, 100));
    EXPECT_TRUE(noMenus.mat.GetVTS_TMAPT() && !noMenus.mat.GetVTSM_PGCI_UT() && !noMenus.mat.GetVTSM_LU());
    EXPECT_TRUE(cut.result == 1 && !cut.mat.GetVTS_PTT_SRPT() && !cut.mat.GetVTS_PGCIT()) << "start sector 0: no table";
    Loaded l(vt::SyntheticVtsi());
    ASSERT_TRUE(l.mat.GetVTSM_LU() && l.mat.GetVTS_VOBU_ADMAP());
    kt::WriteBytes(l.dir / "junk", std::vector<uint8_t>(4096, 7));
    vt::Handle junk(l.dir / "junk");
    ASSERT_EQ(l.mat.Load(l.f->h), 1);
    CKestro_PTT_SRPT* before = l.mat.GetVTS_PTT_SRPT();
    EXPECT_EQ(l.mat.Load(junk.h), 0);
    EXPECT_EQ(l.mat.GetVTS_PTT_SRPT(), before);
    const CKestro_VTSM_PGCI* fresh = l.mat.NewVTSM_PGCI_UT();
    EXPECT_EQ(l.mat.GetVTSM_PGCI_UT(), fresh);
    EXPECT_EQ(l.mat.GetVTSM_LU(), nullptr) << "units of the replaced table go with it";
    l.mat.DeleteVTS_C_ADT(), l.mat.DeleteVTS_C_ADT();
    EXPECT_EQ(l.mat.GetVTS_C_ADT(), nullptr);
}

// Stream counts of 255 and an identifier without any zero byte after it:
// the report and the source stay inside the 2048-byte table.
TEST(VtsMat, ExtremeFieldsStayInsideTheTable) {
    std::vector<uint8_t> file = vt::SyntheticMat({});
    for (size_t i = 12; i < 2048; ++i) file[i] = file[i] ? file[i] : 'A';
    file[515] = file[597] = 255;
    Loaded l(file);
    bool ok = false;
    const auto lines = vt::Lines(Details(l.mat, 1 << 16, &ok));
    EXPECT_TRUE(ok);
    EXPECT_EQ(lines.back(), "  Subpicture stream 255 attributes: 000000000000");
    EXPECT_EQ(lines[0].rfind("VTS Identifier: DVDVIDEO-VTS", 0), 0u);
    ASSERT_TRUE(l.mat.Disasm(l.ini.c_str()));
    EXPECT_EQ(vt::Ini(l.ini, "vtsi_mat", "vts_ast_atrt255"), "0000000000000000");
}

void MakeVob(const kt::TempDir& dir, const std::string& name, uint64_t bytes) {
    kt::WriteBytes(dir / name, {});
    kt::fs::resize_file(dir / name, bytes);  // sparse: only the size matters
}

// The synthetic title set disassembled into one source; Build assembles its
// tables and the file in the folder `out`.
class VtsAssembly : public ::testing::Test {
protected:
    void SetUp() override { vt::DisasmAll(l.mat, codec, l.ini); }
    std::vector<uint8_t> Build(bool absolute, std::string* error = nullptr, const std::string& ifo = "VTS_01_0.IFO") {
        CKestro_VTS_MAT mat;
        const bool ok = vt::AsmAll(l.mat, mat, codec, l.ini, out / ifo, absolute);
        if (error) *error = vt::ErrorText(mat);
        auto got = kt::ReadBytes(out / ifo);
        EXPECT_EQ(ok, !got.empty()) << "nothing is written on failure";
        return got;
    }
    // Replaces statements of "vtsi_mat"; returns what they were.
    std::vector<std::pair<const char*, std::string>> Set(const std::vector<std::pair<const char*, std::string>>& kv) {
        std::vector<std::pair<const char*, std::string>> old;
        for (auto& e : kv) old.emplace_back(e.first, vt::Ini(l.ini, "vtsi_mat", e.first)), vt::SetIni(l.ini, "vtsi_mat", e.first, e.second);
        INIFlushFiles();
        return old;
    }
    Loaded l{vt::SyntheticVtsi()};
    kt::TempDir out;
    CKestro_PGCI codec;
};

// The file is laid out sector by sector: the tables come back as they were
// at the start sectors they had, VTS_EA counts the VOB files' sectors.
TEST_F(VtsAssembly, MeasuresTheVobFilesBesideTheIfo) {
    const struct {
        std::vector<std::pair<std::string, uint64_t>> vobs;  // name, sectors (0: 2049 bytes)
        uint32_t menuSa, titleSa, vtsEa;
        const char* failing;  // the VOB refused, or nullptr
        const char* ifo;
    } cases[] = {
        {{}, 0, 10, 19, nullptr, "VTS_01_0.IFO"},
        {{{"vts_01_0.vob", 10}}, 10, 20, 29, nullptr, "VTS_01_0.IFO"},
        {{{"VTS_01_0.VOB", 10}, {"VTS_01_1.VOB", 1000}}, 10, 20, 1029, nullptr, "VTS_01_0.IFO"},
        {{{"vts_01_1.vob", 100}, {"vts_01_3.vob", 500}}, 0, 10, 119, nullptr, "VTS_01_0.IFO"},  // a gap ends them
        {{}, 0, 10, 28, nullptr, "VTS_01_0.IFO"},  // ten title VOBs of a sector: nine are counted
        // The 32-bit byte total of five 1 GiB VOBs wraps; VTS_EA follows it, no size limit fires.
        {{}, 0, 10, 19 + (1 << 19), nullptr, "VTS_01_0.IFO"},
        // The title set number comes from the file name, in either case.
        {{{"vts_07_1.vob", 50}, {"vts_01_1.vob", 5}}, 0, 10, 69, nullptr, "VTS_07_0.IFO"},
        {{{"vts_07_1.vob", 50}, {"vts_01_1.vob", 5}}, 0, 10, 24, nullptr, "vts_01_0.ifo"},
        {{{"vts_01_0.vob", 0}}, 0, 0, 0, "vts_01_0.vob", "VTS_01_0.IFO"},
        {{{"vts_01_1.vob", 3}, {"vts_01_2.vob", 0}}, 0, 0, 0, "vts_01_2.vob", "VTS_01_0.IFO"},
    };
    const std::vector<uint8_t> original = vt::SyntheticVtsi();
    Set({{"vtsm_vobs_sa", "77"}});  // AsmAbs keeps it when there is no menu VOB
    for (bool absolute : {false, true}) {
        for (auto c : cases) {
            SCOPED_TRACE(std::to_string(c.vtsEa) + (absolute ? " (AsmAbs)" : " (Asm)"));
            for (int i = 1, many = c.vobs.empty() && c.vtsEa > 19; many && i <= 10; ++i)
                c.vobs.push_back({"vts_01_" + std::to_string(i) + ".vob", c.vtsEa == 28 ? 1 : (i <= 5 ? 1 << 19 : 0)});
            for (auto& e : kt::fs::directory_iterator(out.path())) kt::fs::remove(e.path());
            for (auto& v : c.vobs)
                if (v.second || c.failing) MakeVob(out, v.first, v.second ? v.second * 2048 : 2049);
            std::string error;
            const std::vector<uint8_t> got = Build(absolute, &error, c.ifo);
            if (c.failing) {
                EXPECT_EQ(error, (absolute ? "Warning! VOB file " : "VOB file ") + (out / c.failing) +
                                     " is not divisble by 2048, a requirement of DVD-Video standards.");
                continue;
            }
            EXPECT_EQ(vt::Be32(got, 192), absolute && !c.menuSa ? 77u : c.menuSa);
            EXPECT_EQ(vt::Be32(got, 196), c.titleSa);
            EXPECT_EQ(vt::Be32(got, 12), c.vtsEa);
            EXPECT_EQ(vt::Be32(got, 28), 9u);  // VTSI_EA; the start sectors of the tables and the tables follow
            EXPECT_EQ(vt::Slice(got, 200, 32), vt::Slice(original, 200, 32));
            EXPECT_EQ(vt::Slice(got, 2048, original.size()), vt::Slice(original, 2048, original.size()));
            EXPECT_EQ(vt::Slice(got, 256, 2), (std::vector<uint8_t>{0x00, 0x01})) << "menu video attribute: low byte";
        }
    }
}

// Every statement in reading order and whether Asm reads it (AsmAbs reads
// them all): a missing one stops assembly before anything is written. Then
// values read with their own codecs, and a wrong identifier.
TEST_F(VtsAssembly, StatementsReadAndTheirMessages) {
    std::istringstream keys(  // "+": read by Asm too
        "vts_id+ vts_ea vtsi_ea vern+ vts_cat+ vtsi_mat_ea vtsm_vobs_sa vtstt_vobs_sa vts_ptt_srpt_sa vts_pgcit_sa "
        "vtsm_pgci_ut_sa vts_tmapt_sa vtsm_c_adt_sa vtsm_vobu_admap_sa vts_c_adt_sa vts_vobu_admap_sa vtsm_v_atr+ "
        "vtsm_ast_ns+ vtsm_ast_atr+ vtsm_spst_ns+ vtsm_spst_atr+ vts_v_atr+ vts_ast_ns+ vts_ast_atrt02+ vts_spst_ns+ "
        "vts_spst_atrt01+ vts_mu_ast_atrt08+");
    for (std::string key; keys >> key;) {
        const bool asmReads = key.back() == '+';
        if (asmReads) key.pop_back();
        for (bool absolute : {false, true}) {
            std::string want = "[" + key + "] Statement missing in vtsi_mat", error;
            if (key == "vts_id") want = "VTS ID is missing";
            if (key == "vts_spst_ns" && absolute) want = "vts_spst_ns";
            if (!absolute && !asmReads) want = "";
            auto old = Set({{key.c_str(), "$" + vt::Ini(l.ini, "vtsi_mat", key.c_str())}});  // "$..." reads as missing
            Build(absolute, &error);
            EXPECT_EQ(error, want) << key << (absolute ? " (AsmAbs)" : " (Asm)");
            Set(old);
        }
    }
    const struct {
        std::vector<std::pair<const char*, std::string>> statements;
        size_t at;
        std::vector<uint8_t> bytes;
        const char* error;
    } values[] = {
        {{{"vern", "2.13"}}, 32, {0x00, 0x2d}, ""},
        {{{"vtsm_v_atr", "x4d01"}, {"vtsm_ast_ns", "257"}}, 256, {0, 1, 0, 1}, ""},  // low bytes kept
        {{{"vts_ast_ns", "0"}, {"vts_ast_atrt01", "$"}, {"vts_ast_atrt02", "$"}}, 514, {0, 0, 0, 0}, ""},
        {{{"vts_id", "DVDVIDEO-VTS and more"}}, 0, {'D', 'V', 'D', 'V', 'I', 'D', 'E', 'O', '-', 'V', 'T', 'S', 0}, ""},
        {{{"vts_id", "DVDVIDEO-VMG"}}, 0, {}, "[DVDVIDEO-VTS] missing Illegal VTS_ID field"},
    };
    for (const auto& c : values) {
        auto old = Set(c.statements);
        std::string error;
        EXPECT_EQ(vt::Slice(Build(false, &error), c.at, c.bytes.size()), c.bytes) << c.at;
        EXPECT_EQ(error, c.error) << c.at;
        Set(old);
    }
}

// 255 title audio and sub-picture streams with every attribute statement:
// the attributes run on through the table; what lies past its 2048 bytes is
// dropped.
TEST_F(VtsAssembly, StreamCountsBeyondTheTableStayInside) {
    std::vector<std::pair<const char*, std::string>> kv = {{"vts_ast_ns", "255"}, {"vts_spst_ns", "255"}};
    std::vector<std::string> keys;
    for (int k = 1; k <= 255; ++k)
        for (std::string f : {"vts_ast_atrt", "vts_spst_atrt"}) keys.push_back(f + (k < 10 ? "0" : "") + std::to_string(k));
    for (size_t i = 0; i < keys.size(); ++i) kv.push_back({keys[i].c_str(), i % 2 ? "eeeeeeeeeeee" : "ffffffffffffffff"});
    Set(kv);
    const std::vector<uint8_t> got = Build(false);
    ASSERT_EQ(got.size(), 10u * 2048);
    EXPECT_EQ(got[515], 255);
    EXPECT_EQ(got[597], 255) << "read after the audio attributes ran over it";
    EXPECT_EQ(got[2047], 0xee);
    EXPECT_EQ(vt::Slice(got, 2048, 16), vt::Slice(vt::SyntheticVtsi(), 2048, 16));
}

// Real title-set information files: every table is reported and disassembled
// into one source, and beside VOB files of the sizes the original implies
// (sparse: only sizes are read) Asm and AsmAbs both rebuild it byte for byte.
// These discs keep their tables back to back and carry no menu video
// attribute that the source form would shorten.
TEST(VtsRealDiscs, EveryTitleSetIsReportedAndRebuiltExactly) {
    std::vector<std::string> files = kt::CorpusFiles("VTS_");
    KT_SKIP_IF_EMPTY(files);
    for (const auto& original : files) {
        SCOPED_TRACE(original);
        const std::vector<uint8_t> bytes = kt::ReadBytes(original);
        ASSERT_GE(bytes.size(), 2048u);
        kt::TempDir work;
        kt::fs::create_directories(work.path() / "out");
        auto vob = [&](const std::string& name, uint64_t sectors) {
            kt::WriteBytes(work / ("out/" + name), {});
            kt::fs::resize_file(work / ("out/" + name), sectors * 2048);
        };
        const uint32_t menuSa = vt::Be32(bytes, 192), titleSa = vt::Be32(bytes, 196);
        if (menuSa) vob("vts_01_0.vob", titleSa - menuSa);
        uint64_t title = vt::Be32(bytes, 12) - vt::Be32(bytes, 28) - titleSa;
        for (int i = 1; title > 0 && i <= 9; ++i) {
            uint64_t part = title < 524287 ? title : 524287;  // under 1 GiB each
            vob("vts_01_" + std::to_string(i) + ".vob", part);
            title -= part;
        }
        ASSERT_EQ(title, 0u);
        const std::string copy = work / "VTS_01_0.IFO", ini = work / "s.ini", rebuilt = work / "out/VTS_01_0.IFO";
        kt::fs::copy_file(original, copy);
        for (bool absolute : {false, true}) {
            vt::Handle f(copy);
            CKestro_VTS_MAT mat, built;
            ASSERT_EQ(mat.Load(f.h), 1);
            CKestro_PGCI codec;
            EXPECT_EQ(vt::DisasmAll(mat, codec, ini).rfind("VTS Identifier: DVDVIDEO-VTS", 0), 0u);
            ASSERT_TRUE(vt::AsmAll(mat, built, codec, ini, rebuilt, absolute)) << vt::ErrorText(built);
            EXPECT_EQ(kt::ReadBytes(rebuilt), bytes) << (absolute ? "AsmAbs" : "Asm");
        }
    }
}

}  // namespace
