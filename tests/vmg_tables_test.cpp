// VIDEO_TS.IFO's sub-tables and the messages of every refused video manager source.
#include <map>

#include "vmg_test_util.h"

namespace {

using tt::Loaded;

// tt_pb_ty loses its first character ("3c" is "c", 0xC0); the angle count is a byte; the parental
// ID is written low byte first but read big-endian; the title number within the set is always 1.
TEST(VmgPtt, AssemblyQuirksAndTheWayBack) {
    kt::TempDir dir;
    unsigned long size;
    auto
        first = vt::AsmWrite<CKestro_VMG_PTT>(dir, vt::kTwoTitles, &size),
        want = kt::Hex(
            "0002 0000 0000001f"                // titles, reserved, end address: 8 + 2 * 12 - 1
            "3c 01 000c 0201 01 01 00001000"    // title 1: playback type, angles, parts of title,
            "c0 2c 0001 0000 02 01 00011170");  // parental ID, title set, title in set, start sector
    want.resize(2048);
    EXPECT_TRUE(size == 10032 && first == want) << size << tt::Mismatch(first, want);
    Loaded<CKestro_VMG_PTT> l(first);
    EXPECT_EQ(CKestro_VMG_PTT().Load(l.h, 0), 0);  // sector 0: nothing to load
    ASSERT_TRUE(l.loaded == 1 && l.t.Disasm(l.ini.c_str()));
    EXPECT_EQ(tt::Values(l.ini, "vmg_ptt_srpt",
                         {"tt_ptl_id_fld01", "vts_ttn01", "tt_pb_ty02", "tt_agl_ns02"}),
              "513|1|xc0|44|");
    std::swap(first[12], first[13]);  // 02 01 comes back as 01 02
    EXPECT_EQ(vt::AsmWrite<CKestro_VMG_PTT>(dir, kt::ReadText(l.ini)), first);
    bool ok = false;
    const std::string rep = tt::Text(l.t, 1 << 16, &ok);
    EXPECT_TRUE(ok && rep.substr(rep.size() - 5) == "0\r\n\r\n");  // closing line end
    EXPECT_EQ(
        rep.find(
            "Number of Title Unit Serch Pointers TTUs in the VTS: 2\r\n"
            "End byte address of PTT_SRPT table: 31\r\n"
            "    Title set 1: Title playback type: 3c\r\n"
            "    Title set 1: Number of angles: 1\r\n    Title set 1: Number of PTTs: 12\r\n"
            "    Title set 1: Parental ID field: 513\r\n    Title set 1: Title set number: 1\r\n"
            "    Title set 1: VTS_TTN: 1\r\n"
            "    Title set 1: Title set starting sector number: 4096\r\n"),
        0u);
}

// Records of 776 bytes after an 8-byte header and a start address per set; no sets write one
// blank sector. Menu audio attributes are read as decimal ("x12" is 12). The report reads a
// record 23 bytes into it with two sets (its audio count is menu audio stream 23, its end
// address streams 12 to 15) and numbers streams by report position; the source reads them right.
TEST(VmgAtrt, LayoutDecimalMenuAudioAndTheReportPlacements) {
    kt::TempDir dir;
    unsigned long size;
    auto t = vt::AsmWrite<CKestro_VMG_ATRT>(dir, vt::AtrtSource(3), &size);
    EXPECT_EQ((std::vector<uint32_t>{uint32_t(size), kt::BE32(t, 4), kt::BE32(t, 16)}),
              (std::vector<uint32_t>{22348, 2347, 1572}));
    EXPECT_EQ(vt::AsmWrite<CKestro_VMG_ATRT>(dir, "[vts_atrt]\nvts_ns=0\n", &size),
              std::vector<uint8_t>(2048, 0));
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(vt::AsmWrite<CKestro_VMG_ATRT>(dir, vt::AtrtSource(1, "x12"))[12 + 12], 12);

    std::string text = vt::Replace(vt::AtrtSource(2, "x05", "4100"), "srp001_vtsm_ast_ns=1\n",
                                   "srp001_vtsm_ast_ns=29\n");
    for (int j = 2; j <= 29; ++j)
        text += "vts_atrt_srp001_vtsm_ast_atr" + std::to_string(j / 10) + std::to_string(j % 10) +
                (j == 23 ? "=2\n" : "=9\n");
    const auto first = vt::AsmWrite<CKestro_VMG_ATRT>(dir, text, &size);
    ASSERT_EQ(first[16 + 34], 2);
    Loaded<CKestro_VMG_ATRT> l(tt::Slice(first, 0, size % 10000));
    ASSERT_TRUE(l.t.Disasm(l.ini.c_str()));
    EXPECT_EQ(tt::Values(l.ini, "vts_atrt",
                         {"vts_atrt_ea", "vts_atrt_srp002_vts_atr_sa", "vts_atrt_srp002_vts_atr_ea",
                          "vts_atrt_srp001_vtsm_ast_atr23", "vts_atrt_srp002_vtsm_v_atr"}),
              "1567|792|775|x02|x4100|");
    EXPECT_EQ(vt::AsmWrite<CKestro_VMG_ATRT>(dir, kt::ReadText(l.ini)), first);
    const std::string rep = tt::Text(l.t), count = "Number of audio streams in VTSM_VOBS: 2\r\n";
    EXPECT_EQ(
        rep.find("Number of Video Title Sets: 2\r\nEnd byte address of VTS_ATR table: 1567\r\n"
                 "  VTS 1 Attribute start byte address 16\r\n"
                 "    VTS Attribute end byte address 151587081\r\n"),
        0u);
    const size_t at = rep.find(count) + count.size();
    const std::string want = "      Audio " + std::to_string(at + 1) + " attributes: 9\r\n";
    EXPECT_EQ(rep.compare(at, want.size(), want), 0) << rep.substr(at, 60);
}

// PTL_MAIT and TXTDT_MG are only read (the parental Asm succeeds doing nothing, the text data's
// Asm and Write fail); a country count beyond the body (end address's low 16 bits) reads zeros.
TEST(VmgMaitTxtdt, OnlyReadAndReported) {
    Loaded<CKestro_VMG_MAIT> m(
        kt::Hex("0002 0002 00010007"    // countries, title sets, end address: 7 body bytes
                "6672 0000 0010 00"));  // country 1: "fr", unused, start of PTL_MAI; past body
    Loaded<CKestro_VMG_TXTDT> l(
        kt::Hex("4142434445464748494a4b4c"  // identifier "ABCDEFGHIJKL"
                "eeee 0002 00010010"));     // unused, language units, end address
    ASSERT_EQ(m.loaded, 1);
    EXPECT_EQ(
        tt::Text(m.t) + tt::Text(l.t),
        "Number of Countries: 2\r\nNumber of Video Title Sets: 2\r\n"
        "End byte address of PTL_MAIT table: 65543\r\n"
        "  Country Code of 1: fr\r\n  Start byte address of PTL_MAI of 1: 16\r\n"
        "  Country Code of 2: \r\n  Start byte address of PTL_MAI of 2: 0\r\n"
        "Number of Text Language Units 2\r\nEnd byte address of VMG_TXTDT_MGI table: 65552\r\n");
    EXPECT_TRUE(m.t.Disasm(m.ini.c_str()) && l.t.Disasm(l.ini.c_str()));
    EXPECT_EQ(tt::Values(m.ini, "ptl_mait", {"vts_ns", "ptl_maait_ea"}) +
                  tt::Values(m.ini, "vmg_ptt_srpt",  // the per-country statements go here
                             {"ptl_mai_srp01_cty_cd", "ptl_mai_srp01_ptl_mai_sa",
                              "ptl_mai_srp02_ptl_mai_sa"}) +
                  tt::Values(l.ini, "txtdt_mg", {"txtdt_id", "txtdt_lu_ns", "txtdt_mg_ea"}),
              "2|65543|fr|16|0|ABCDEFGHIJKL|2|65552|");
    EXPECT_TRUE(m.t.Asm((m.dir / "absent.ini").c_str()) && !l.t.Asm(l.ini.c_str()) &&
                !l.t.Write(l.h));
    unsigned long got[4] = {5, 5, 3, 4};  // parental Get: empty; text data Get: unchanged
    m.t.Get(&got[0], &got[1]), l.t.Get(&got[2], &got[3]);
    EXPECT_EQ(std::vector<unsigned long>(got, got + 4), std::vector<unsigned long>({0, 0, 3, 4}));
}

// Refused sources of VMGI_MAT, TT_SRPT and VTS_ATRT: the exact message, no file written. Each
// statement left out in turn is named (in the order read), but for the few listed.
TEST(VmgAsm, RefusedSourcesGiveTheirMessages) {
    const std::string sources[] = {vt::kMatSource, vt::kTwoTitles, vt::AtrtSource(2)},
                      missing[] = {"] Statement missing in vmgi_mat",
                                   "] Statement missing in vmg_ptt_srpt!",
                                   "] Statement missing in vts_atrt!"};
    const std::map<std::string, std::string> odd = {
        {"vmg_id", "VMG ID is missing"},
        {"vmg_ns", "[vts_ns" + missing[0]},
        {"vts_ttu_ns", "Statement missing in vmg_ptt_srpt!"},
        {"vts_ns", "vts_ns"},
        {"vts_atrt_srp001_vts_cat", ""},  // a missing category ends the table quietly
        {"vts_atrt_srp002_vts_cat", ""}};
    std::vector<std::tuple<int, std::string, std::string, std::string>> cases = {
        {0, "DVDVIDEO-VMG", "DVDVIDEO-VTS", "[vmg_id] Illegal VIDEO_TS field"},
        {0, "DVDVIDEO-VMG", "DVDVIDEO", "[vmg_id] Illegal VIDEO_TS field"},
        {1, "tt_pb_ty01=x3c\n", "tt_pb_ty01=$3\n", "[tt_pb_ty01" + missing[1]},
        {1, "ttu_ns=2\n", "ttu_ns=1000\n",
         "[vts_ttu_ns] 1000 titles exceed the 999 a title search pointer table can hold"},
        {2, "srp001_vts_spst_ns=2\n", "srp001_vts_spst_ns=72\n",
         "[vts_atrt_srp001_vts_spst_ns] 72 subpicture streams do not fit a title set attribute "
         "record"},
        {2, "vts_ns=2\n", "vts_ns=100\n",
         "[vts_ns] 100 title sets exceed the 99 a title set attribute table can hold"},
    };
    for (int t = 0; t < 3; ++t)
        for (size_t at = sources[t].find('\n') + 1, end; at < sources[t].size(); at = end + 1) {
            const std::string line = sources[t].substr(at, (end = sources[t].find('\n', at)) - at),
                              key = line.substr(0, line.find('='));
            cases.push_back(
                {t, line + "\n", "", odd.count(key) ? odd.at(key) : "[" + key + missing[t]});
        }
    kt::TempDir dir;
    const std::string ini = dir / "v.ini", out = dir / "VIDEO_TS.IFO";
    for (const auto& [table, from, to, message] : cases) {
        SCOPED_TRACE(from + " -> " + to);
        kt::WriteText(ini, vt::Replace(sources[table], from, to));
        std::string error;
        bool ok = false;
        auto run = [&](auto&& t) { ok = t.Asm(ini.c_str()), error = tt::Error(t); };
        if (table == 0) ok = vt::AssembleVmg(ini, out, &error);
        if (table == 1) run(CKestro_VMG_PTT());
        if (table == 2) run(CKestro_VMG_ATRT());
        EXPECT_TRUE(ok == message.empty() && error == message && kt::ReadBytes(out).empty())
            << error;
    }
}

}  // namespace
