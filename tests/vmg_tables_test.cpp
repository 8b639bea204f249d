// Parental management, title set attribute and text data tables.
#include <cstring>

#include "kestro/vmg.h"
#include "vmg_test_util.h"

namespace {

// Loads a table placed on sector 1 of a file made from `table`.
template <class T>
struct Loaded {
    kt::TempDir dir;
    std::string file = dir / "t.ifo";
    std::unique_ptr<vt::Handle> h;
    T table;
    explicit Loaded(const std::vector<uint8_t>& bytes) {
        kt::WriteBytes(file, vt::Image(2, 1, bytes));
        h = std::make_unique<vt::Handle>(vt::OpenRead(file));
        EXPECT_EQ(table.Load(*h, 1), 1);
    }
};

// ---- PTL_MAIT ----------------------------------------------------------------

TEST(VmgMait, ReportAndSourceOfALoadedTable) {
    Loaded<CKestro_VMG_MAIT> t({0x00, 0x01, 0x00, 0x03, 0x00, 0x00, 0x00, 0x27,  //
                                0x64, 0x65, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00});
    EXPECT_EQ(vt::Report(t.table),
              "Number of Countries: 1\r\n"
              "Number of Video Title Sets: 3\r\n"
              "End byte address of PTL_MAIT table: 39\r\n"
              "  Country Code of 1: de\r\n"
              "  Start byte address of PTL_MAI of 1: 16\r\n");
    std::string ini = t.dir / "m.ini";
    EXPECT_TRUE(t.table.Disasm(ini.c_str()));
    EXPECT_EQ(vt::Value(ini, "ptl_mait", "cty_ns"), "1");
    EXPECT_EQ(vt::Value(ini, "ptl_mait", "vts_ns"), "3");
    EXPECT_EQ(vt::Value(ini, "ptl_mait", "ptl_maait_ea"), "39");
    // Per-country statements belong to the title search pointer section.
    EXPECT_EQ(vt::Value(ini, "vmg_ptt_srpt", "ptl_mai_srp01_cty_cd"), "de");
    EXPECT_EQ(vt::Value(ini, "vmg_ptt_srpt", "ptl_mai_srp01_ptl_mai_sa"), "16");
    EXPECT_EQ(vt::Value(ini, "ptl_mait", "ptl_mai_srp01_cty_cd"), "$");
}

TEST(VmgMait, NoCountriesAndTheAssemblyStubs) {
    Loaded<CKestro_VMG_MAIT> t({0, 0, 0, 1, 0, 0, 0, 7});
    std::string ini = t.dir / "m.ini";
    EXPECT_TRUE(t.table.Disasm(ini.c_str()));
    char names[256];
    INIGetSectionNames(ini.c_str(), names, sizeof names);
    EXPECT_STREQ(names, "ptl_mait");
    EXPECT_EQ(names[9], 0);  // no "vmg_ptt_srpt" section
    // Nothing is assembled, whatever the source: Get reports an empty table.
    EXPECT_TRUE(t.table.Asm((t.dir / "none.ini").c_str()));
    unsigned long s = 5, b = 5;
    t.table.Get(&s, &b);
    EXPECT_EQ(s + b, 0u);
}

// ---- VTS_ATRT ----------------------------------------------------------------

std::string AtrtSource(int sets, const char* menuAudio = "x05", const char* videoAttr = "x4100") {
    std::string t = "[vts_atrt]\nvts_ns=" + std::to_string(sets) + "\n";
    for (int i = 1; i <= sets; ++i) {
        char p[32];
        std::snprintf(p, sizeof p, "vts_atrt_srp%03d_", i);
        std::string k = p;
        t += k + "vts_cat=" + std::to_string(i) + "\n";
        t += k + "vtsm_v_atr=" + videoAttr + "\n";
        t += k + "vtsm_ast_ns=1\n" + k + "vtsm_ast_atr01=" + menuAudio + "\n";
        t += k + "vtsm_spst_ns=1\n" + k + "vtsm_spst_atr01=x01\n";
        t += k + "vts_v_atr=x5200\n";
        t += k + "vts_ast_ns=1\n" + k + "vts_ast_atr01=x0102030405060708\n";
        t += k + "vts_spst_ns=2\n" + k + "vts_spst_atr01=xa1a2a3a4a5a6\n" + k +
             "vts_spst_atr02=xb1b2b3b4b5b6\n";
    }
    return t;
}

std::vector<uint8_t> AtrtWrite(const kt::TempDir& dir, const std::string& text, unsigned long* s,
                               unsigned long* b, const char* name = "a.ifo") {
    std::string ini = dir / "a.ini";
    kt::WriteText(ini, text);
    CKestro_VMG_ATRT a;
    EXPECT_TRUE(a.Asm(ini.c_str()));
    a.Get(s, b);
    std::string out = dir / name;
    {
        vt::Handle h(vt::Create(out));
        std::vector<uint8_t> zero(2048, 0);
        kestro::FileWrite(h, zero.data(), zero.size());
        EXPECT_TRUE(a.Write(h));
    }
    auto f = kt::ReadBytes(out);
    return std::vector<uint8_t>(f.begin() + 2048, f.end());
}

TEST(VmgAtrt, AssemblesOneTitleSet) {
    kt::TempDir dir;
    unsigned long s, b;
    auto t = AtrtWrite(dir, AtrtSource(1, "x0c", "4100"), &s, &b);
    EXPECT_EQ(b, 788u);
    EXPECT_EQ(s, 1u);
    ASSERT_EQ(t.size(), 2048u);
    const uint8_t head[] = {0, 1, 0, 0, 0, 0, 0x03, 0x13, 0, 0, 0, 0x0C, 0, 0, 0x03, 0x07, 0, 0, 0, 1};
    EXPECT_EQ(0, std::memcmp(t.data(), head, sizeof head));
    const uint8_t* rec = t.data() + 12;
    EXPECT_EQ(rec[8], 0x41);  // written without the x
    EXPECT_EQ(rec[9], 0x00);
    EXPECT_EQ(rec[11], 1);
    EXPECT_EQ(rec[12], 0);  // x0c read back in decimal
    EXPECT_EQ(rec[93], 1);
    EXPECT_EQ(rec[94], 1);
    EXPECT_EQ(rec[264], 0x52);
    EXPECT_EQ(0, std::memcmp(rec + 268, "\x01\x02\x03\x04\x05\x06\x07\x08", 8));
    EXPECT_EQ(rec[349], 2);
    EXPECT_EQ(0, std::memcmp(rec + 350, "\xa1\xa2\xa3\xa4\xa5\xa6\xb1\xb2\xb3\xb4\xb5\xb6", 12));
    for (size_t i = 12 + 776; i < t.size(); ++i) ASSERT_EQ(t[i], 0) << i;

    // A menu attribute written without the x is decimal: 12 stays 12.
    t = AtrtWrite(dir, AtrtSource(1, "12"), &s, &b);
    EXPECT_EQ(t[12 + 12], 12);
}

TEST(VmgAtrt, SizesAndStartAddresses) {
    kt::TempDir dir;
    unsigned long s, b;
    auto t = AtrtWrite(dir, AtrtSource(3), &s, &b);
    EXPECT_EQ(b, 2348u);
    EXPECT_EQ(s, 2u);
    ASSERT_EQ(t.size(), 4096u);
    EXPECT_EQ(vt::BE32(t, 4), 2347u);
    EXPECT_EQ(vt::BE32(t, 8), 20u);
    EXPECT_EQ(vt::BE32(t, 12), 796u);
    EXPECT_EQ(vt::BE32(t, 16), 1572u);
    EXPECT_EQ(vt::BE32(t, 1572 + 4), 3u);  // category of title set 3

    // An empty table still writes its header and the padding.
    t = AtrtWrite(dir, "[vts_atrt]\nvts_ns=0\n", &s, &b);
    EXPECT_EQ(s + b, 0u);
    EXPECT_EQ(t, std::vector<uint8_t>(2048, 0));
}

TEST(VmgAtrt, MissingStatements) {
    struct Case {
        std::string from, to, message;
        bool result;
    } cases[] = {
        {"vts_ns=2\n", "", "vts_ns", false},
        {"vts_atrt_srp002_vts_v_atr=x5200\n", "",
         "[vts_atrt_srp002_vts_v_atr] Statement missing in vts_atrt!", false},
        {"vts_atrt_srp001_vtsm_ast_atr01=x05\n", "",
         "[vts_atrt_srp001_vtsm_ast_atr01] Statement missing in vts_atrt!", false},
        {"vts_atrt_srp001_vts_spst_ns=2\n", "vts_atrt_srp001_vts_spst_ns=72\n",
         "[vts_atrt_srp001_vts_spst_ns] 72 subpicture streams do not fit a title set attribute "
         "record",
         false},
        {"vts_ns=2\n", "vts_ns=100\n",
         "[vts_ns] 100 title sets exceed the 99 a title set attribute table can hold", false},
        // A missing category ends the table quietly.
        {"vts_atrt_srp002_vts_cat=2\n", "", "", true},
    };
    kt::TempDir dir;
    std::string ini = dir / "a.ini";
    for (const auto& c : cases) {
        std::string text = AtrtSource(2);
        text.replace(text.find(c.from), c.from.size(), c.to);
        kt::WriteText(ini, text);
        CKestro_VMG_ATRT a;
        EXPECT_EQ(a.Asm(ini.c_str()), c.result) << c.message;
        char msg[260];
        a.GetErrorMessage(msg, sizeof msg);
        EXPECT_EQ(msg, c.message);
    }
}

TEST(VmgAtrt, RoundTripAndTheReportPlacements) {
    kt::TempDir dir;
    unsigned long s, b;
    // With two title sets record 1 starts at table offset 16 (body offset
    // 8). The report takes its record at body offset 39 - 8 = 31, record
    // offset 23: its audio count is then menu audio stream 23 (record offset
    // 34) and its end address is made of streams 12 to 15.
    std::string text = AtrtSource(2);
    std::string k = "vts_atrt_srp001_";
    text.replace(text.find(k + "vtsm_ast_ns=1\n"), k.size() + 14, k + "vtsm_ast_ns=29\n");
    for (int j = 2; j <= 29; ++j) {
        char line[64];
        std::snprintf(line, sizeof line, "%svtsm_ast_atr%02d=%d\n", k.c_str(), j, j == 23 ? 2 : 9);
        text += line;
    }
    auto first = AtrtWrite(dir, text, &s, &b);
    ASSERT_EQ(first[16 + 34], 2);

    std::vector<uint8_t> table(first.begin(), first.begin() + long(b));
    Loaded<CKestro_VMG_ATRT> t(table);
    std::string ini = t.dir / "back.ini";
    ASSERT_TRUE(t.table.Disasm(ini.c_str()));
    EXPECT_EQ(vt::Value(ini, "vts_atrt", "vts_atrt_ea"), "1567");
    EXPECT_EQ(vt::Value(ini, "vts_atrt", "vts_atrt_srp002_vts_atr_sa"), "792");
    EXPECT_EQ(vt::Value(ini, "vts_atrt", "vts_atrt_srp002_vts_atr_ea"), "775");
    EXPECT_EQ(vt::Value(ini, "vts_atrt", "vts_atrt_srp001_vtsm_ast_atr23"), "x02");
    EXPECT_EQ(vt::Value(ini, "vts_atrt", "vts_atrt_srp002_vts_ast_atr01"), "x0102030405060708");
    EXPECT_EQ(vt::Value(ini, "vts_atrt", "vts_atrt_srp002_vts_spst_atr02"), "xb1b2b3b4b5b6");
    // Assembled again, the source gives the same table.
    std::string again = kt::ReadText(ini);
    auto second = AtrtWrite(dir, again, &s, &b, "again.ifo");
    EXPECT_EQ(first, second);

    std::string rep = vt::Report(t.table);
    EXPECT_EQ(rep.find("Number of Video Title Sets: 2\r\n"
                       "End byte address of VTS_ATR table: 1567\r\n"
                       "  VTS 1 Attribute start byte address 16\r\n"
                       "    VTS Attribute end byte address 151587081\r\n"),
              0u);
    size_t at = rep.find("    Number of audio streams in VTSM_VOBS: 2\r\n");
    ASSERT_NE(at, std::string::npos);
    at += 45;
    std::string want = "      Audio " + std::to_string(at + 1) + " attributes: 9\r\n";
    EXPECT_EQ(rep.compare(at, want.size(), want), 0) << rep.substr(at, 60);
    // Too small a buffer stops the report.
    bool ok = true;
    vt::Report(t.table, 100, &ok);
    EXPECT_FALSE(ok);
}

// ---- TXTDT_MG ----------------------------------------------------------------

TEST(VmgTxtdt, HeaderReportSourceAndStubs) {
    struct Case {
        std::vector<uint8_t> id;
        const char* text;
    } cases[] = {
        {{'D', 'V', 'D', 'V', 'I', 'D', 'E', 'O', 0, 0, 0, 0}, "DVDVIDEO"},
        {{'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L'}, "ABCDEFGHIJKL"},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> bytes = c.id;
        for (int b : {0xEE, 0xEE, 0x00, 0x02, 0x00, 0x01, 0x00, 0x10, int('Z'), int('Z')}) bytes.push_back(uint8_t(b));
        Loaded<CKestro_VMG_TXTDT> t(bytes);
        EXPECT_EQ(vt::Report(t.table),
                  "Number of Text Language Units 2\r\n"
                  "End byte address of VMG_TXTDT_MGI table: 65552\r\n");
        std::string ini = t.dir / "t.ini";
        EXPECT_TRUE(t.table.Disasm(ini.c_str()));
        EXPECT_EQ(vt::Value(ini, "txtdt_mg", "txtdt_id"), c.text);
        EXPECT_EQ(vt::Value(ini, "txtdt_mg", "txtdt_lu_ns"), "2");
        EXPECT_EQ(vt::Value(ini, "txtdt_mg", "txtdt_mg_ea"), "65552");
        EXPECT_FALSE(t.table.Asm(ini.c_str()));
        EXPECT_FALSE(t.table.Write(*t.h));
        unsigned long a = 3, b = 4;
        t.table.Get(&a, &b);
        EXPECT_EQ(a, 3u);
        EXPECT_EQ(b, 4u);
        EXPECT_EQ(t.table.Load(*t.h, 0), 0);
        EXPECT_EQ(vt::Value(ini, "txtdt_mg", "txtdt_lu_ns"), "2");
    }
}

}  // namespace
