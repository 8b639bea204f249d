// The management table VTSI_MAT and its ownership of the file's tables:
// loading, report, source and writing.
#include "kestro/vts.h"
#include "vts_util.h"

namespace {

std::string Details(CKestro_VTS_MAT& mat, int len = 1 << 16, bool* ok = nullptr) {
    std::vector<char> buf(size_t(len) + 3, 0);
    bool r = mat.Details(buf.data(), len);
    if (ok) *ok = r;
    return buf.data();
}

TEST(VtsMat, ReportOfTheManagementTable) {
    kt::TempDir dir;
    std::string path = dir / "VTS_01_0.IFO";
    kt::WriteBytes(path, vt::SyntheticVtsi().File());
    vt::Handle f(path);
    CKestro_VTS_MAT mat;
    ASSERT_EQ(mat.Load(f.h), 1);
    bool ok = false;
    // The identifier runs on into VTS_EA as held (127906 = 0x1F3A2, least
    // significant byte first) up to its zero byte.
    EXPECT_EQ(Details(mat, 1 << 16, &ok),
              "VTS Identifier: DVDVIDEO-VTS\xa2\xf3\x01\r\n"
              "End address of VTS: 127906\r\n"
              "End address of VTSI: 9\r\n"
              "Specification version number: 1.1\r\n"
              "VTS Category: 00000001\r\n"
              "End byte address of VTSI_MAT: 2047\r\n"
              "Start sector address of VTSM_VOBS: 0\r\n"
              "Start sector address of VTSTT_VOBS: 10\r\n"
              "Start sector address of VTS_PTT_SRPT: 1\r\n"
              "Start sector address of VTS_PGCIT: 2\r\n"
              "Start sector address of VTSM_PGCI_UT: 4\r\n"
              "Start sector address of VTS_TMAPT: 5\r\n"
              "Start sector address of VTSM_C_ADT: 6\r\n"
              "Start sector address of VTSM_VOBU_ADMAP: 7\r\n"
              "Start sector address of VTS_C_ADT: 8\r\n"
              "Start sector address of VTS_VOBU_ADMAP: 9\r\n"
              "Video attributes of VTSM_VOBS: 4d01\r\n"
              "Number of audio streams in VTSM_VOBS: 1\r\n"
              "VTSM Audio attributes: 1011121314151617\r\n"
              "Number of VTSM subpicture streams: 1\r\n"
              "VTSM subpicture attributes: 202122232425\r\n"
              "Video attributes of VTSTT_VOBS: 5300\r\n"
              "Number of audio streams in VTSTT_VOBS: 2\r\n"
              "  Audio 1 attributes: 3031323334353637\r\n"
              "  Audio 2 attributes: 4041424344454647\r\n"
              "Number of subpicture streams in VTSTT_VOBS: 1\r\n"
              "  Subpicture stream 1 attributes: 505152535455\r\n");
    EXPECT_TRUE(ok);
    EXPECT_EQ(mat.GetVTSM_PGCIT_SA(), 4u);
    EXPECT_EQ(vt::Lines(Details(mat, 100, &ok)).size(), 3u);
    EXPECT_FALSE(ok);

    // Write puts out the table as held: the fourteen address fields least
    // significant byte first, everything else as in the file.
    vt::Output out(dir / "o.bin");
    EXPECT_TRUE(mat.Write(out.h));
    out.Close();
    std::vector<uint8_t> got = kt::ReadBytes(out.path), file = kt::ReadBytes(path);
    ASSERT_EQ(got.size(), 2048u);
    EXPECT_EQ(vt::Slice(got, 12, 4), (std::vector<uint8_t>{0xa2, 0xf3, 0x01, 0x00}));
    EXPECT_EQ(vt::Slice(got, 256, 2048), vt::Slice(file, 256, 2048 - 256));
}

TEST(VtsMat, LoadCreatesTheTablesTheFileHas) {
    kt::TempDir dir;
    struct Case {
        const char* name;
        std::vector<uint8_t> file;
        int loaded;
        int tables;  // sub-tables held afterwards
    };
    vt::SyntheticVtsi noMenus;
    noMenus.menuTable = false;
    std::vector<uint8_t> bare = vt::SyntheticVtsi().Mat({});
    std::vector<uint8_t> shortFile(bare.begin(), bare.begin() + 100);
    std::vector<uint8_t> other = bare;
    other[11] = 'G';
    const Case cases[] = {
        {"all tables", vt::SyntheticVtsi().File(), 1, 9},
        {"no menu PGC table: no language units either", noMenus.File(), 1, 7},
        {"every start sector 0", bare, 1, 0},
        {"cut short after the identifier", shortFile, 1, 0},
        {"not a title set", other, 0, 0},
    };
    for (const auto& c : cases) {
        std::string path = dir / "VTS_01_0.IFO";
        kt::WriteBytes(path, c.file);
        vt::Handle f(path);
        CKestro_VTS_MAT mat;
        EXPECT_EQ(mat.Load(f.h), c.loaded) << c.name;
        const void* held[] = {mat.GetVTS_PTT_SRPT(),  mat.GetVTS_PGCIT(),   mat.GetVTSM_PGCI_UT(),
                              mat.GetVTSM_LU(),       mat.GetVTS_TMAPT(),   mat.GetVTSM_C_ADT(),
                              mat.GetVTSM_VOBU_ADMAP(), mat.GetVTS_C_ADT(), mat.GetVTS_VOBU_ADMAP()};
        int n = 0;
        for (const void* p : held) n += p != nullptr;
        EXPECT_EQ(n, c.tables) << c.name;
        EXPECT_FALSE(Details(mat).empty()) << c.name;
    }
}

// A second Load releases what the first created; a file that is no title
// set leaves them alone. New replaces (and releases) a held table; Delete
// releases it. The sanitizer build reports any leak.
TEST(VtsMat, OwnershipNeverLeaksOrDangles) {
    kt::TempDir dir;
    std::string path = dir / "VTS_01_0.IFO";
    kt::WriteBytes(path, vt::SyntheticVtsi().File());
    std::string junk = dir / "junk.bin";
    kt::WriteBytes(junk, std::vector<uint8_t>(4096, 7));
    vt::Handle f(path), j(junk);
    CKestro_VTS_MAT mat;
    ASSERT_EQ(mat.Load(f.h), 1);
    ASSERT_EQ(mat.Load(f.h), 1);
    CKestro_PTT_SRPT* before = mat.GetVTS_PTT_SRPT();
    EXPECT_EQ(mat.Load(j.h), 0);
    EXPECT_EQ(mat.GetVTS_PTT_SRPT(), before);
    ASSERT_NE(mat.GetVTSM_LU(), nullptr);
    CKestro_VTSM_PGCI* fresh = mat.NewVTSM_PGCI_UT();
    EXPECT_EQ(mat.GetVTSM_PGCI_UT(), fresh);
    EXPECT_EQ(mat.GetVTSM_LU(), nullptr) << "units of the replaced table go with it";
    mat.NewVTS_TMAPT();
    mat.NewVTS_TMAPT();
    mat.DeleteVTS_C_ADT();
    EXPECT_EQ(mat.GetVTS_C_ADT(), nullptr);
    mat.DeleteVTS_C_ADT();
}

TEST(VtsMat, SourceSectionStartsAFreshFile) {
    kt::TempDir dir;
    std::string path = dir / "VTS_01_0.IFO";
    vt::SyntheticVtsi big;
    big.audio = 10;
    big.subpictures = 33;
    kt::WriteBytes(path, big.File());
    vt::Handle f(path);
    CKestro_VTS_MAT mat;
    ASSERT_EQ(mat.Load(f.h), 1);
    std::string ini = dir / "s.ini";
    kt::WriteText(ini, "[left_over]\nkey=1\n");
    ASSERT_TRUE(mat.Disasm(ini.c_str()));
    EXPECT_EQ(vt::Ini(ini, "left_over", "key"), "$");
    const char* want[][2] = {
        {"vts_id", "DVDVIDEO-VTS"},  {"vts_ea", "127906"},      {"vtsi_ea", "9"},
        {"vern", "1.1"},             {"vts_cat", "00000001"},   {"vtsi_mat_ea", "2047"},
        {"vtstt_vobs_sa", "10"},     {"vts_vobu_admap_sa", "9"}, {"vtsm_v_atr", "4d01"},
        {"vtsm_ast_ns", "1"},        {"vtsm_ast_atr", "1011121314151617"},
        {"vtsm_spst_atr", "202122232425"}, {"vts_v_atr", "5300"}, {"vts_ast_ns", "10"},
        {"vts_ast_atrt02", "4041424344454647"}, {"vts_ast_atrt10", "c0c1c2c3c4c5c6c7"},
        {"vts_spst_ns", "33"},
        {"vts_mu_ast_atrt01", "000102030405060708090a0b0c0d0e0f1011121314151617"},
        {"vts_mu_ast_atrt08", "a8a9aaabacadaeafb0b1b2b3b4b5b6b7b8b9babbbcbdbebf"},
        {"vts_mu_ast_atrt09", "$"},
    };
    for (auto& kv : want) EXPECT_EQ(vt::Ini(ini, "vtsi_mat", kv[0]), kv[1]) << kv[0];
    // Stream counts beyond their areas list attributes from the bytes that
    // follow: vts_ast_atrt10 lies inside the sub-picture area.
    EXPECT_NE(vt::Ini(ini, "vtsi_mat", "vts_spst_atrt33"), "$");
}

// Stream counts of 255 and an identifier without any zero byte after it:
// the report and the source stay inside the 2048-byte table.
TEST(VtsMat, ExtremeFieldsStayInsideTheTable) {
    kt::TempDir dir;
    vt::SyntheticVtsi s;
    s.audio = 255;
    s.subpictures = 255;
    std::vector<uint8_t> file = s.Mat({});
    for (size_t i = 12; i < 2048; ++i)
        if (file[i] == 0) file[i] = 'A';
    file[515] = 255;
    file[597] = 255;
    std::string path = dir / "VTS_01_0.IFO";
    kt::WriteBytes(path, file);
    vt::Handle f(path);
    CKestro_VTS_MAT mat;
    ASSERT_EQ(mat.Load(f.h), 1);
    bool ok = false;
    std::vector<std::string> lines = vt::Lines(Details(mat, 1 << 16, &ok));
    EXPECT_TRUE(ok);
    EXPECT_EQ(lines.back(), "  Subpicture stream 255 attributes: 000000000000");
    EXPECT_EQ(lines[0].rfind("VTS Identifier: DVDVIDEO-VTS", 0), 0u);
    std::string ini = dir / "s.ini";
    ASSERT_TRUE(mat.Disasm(ini.c_str()));
    EXPECT_EQ(vt::Ini(ini, "vtsi_mat", "vts_ast_atrt255"), "0000000000000000");
}

}  // namespace
