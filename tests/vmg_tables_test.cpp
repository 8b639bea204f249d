// Parental management, title set attribute and text data tables, and the
// messages of every refused video manager source.
#include <algorithm>
#include <memory>

#include "vmg_test_util.h"

namespace {

// A table loaded from sector 1 of a file made from `bytes`.
template <class T>
struct Loaded {
    kt::TempDir dir;
    std::string ini = dir / "t.ini";
    std::unique_ptr<vt::Handle> h;
    T table;
    explicit Loaded(std::vector<uint8_t> bytes) {
        bytes.insert(bytes.begin(), 2048, 0);
        bytes.resize(std::max<size_t>(bytes.size(), 4096), 0);
        kt::WriteBytes(dir / "t.ifo", bytes);
        h = std::make_unique<vt::Handle>(vt::OpenRead(dir / "t.ifo"));
        EXPECT_EQ(table.Load(*h, 1), 1);
    }
};

// Assembled only to be reported: the per-country statements go to the title
// search pointer section, and nothing is assembled whatever the source.
TEST(VmgMait, ReportSourceAndTheAssemblyStubs) {
    Loaded<CKestro_VMG_MAIT> t({0, 1, 0, 3, 0, 0, 0, 0x27, 'd', 'e', 0, 0, 0, 0x10, 0, 0});
    EXPECT_EQ(vt::Report(t.table), "Number of Countries: 1\r\nNumber of Video Title Sets: 3\r\nEnd byte address of "
                                   "PTL_MAIT table: 39\r\n  Country Code of 1: de\r\n  Start byte address of PTL_MAI "
                                   "of 1: 16\r\n");
    EXPECT_TRUE(t.table.Disasm(t.ini.c_str()));
    EXPECT_EQ(vt::Value(t.ini, "ptl_mait", "vts_ns") + vt::Value(t.ini, "ptl_mait", "ptl_maait_ea"), "339");
    EXPECT_EQ(vt::Value(t.ini, "vmg_ptt_srpt", "ptl_mai_srp01_cty_cd"), "de");
    EXPECT_EQ(vt::Value(t.ini, "vmg_ptt_srpt", "ptl_mai_srp01_ptl_mai_sa"), "16");
    EXPECT_TRUE(t.table.Asm((t.dir / "absent.ini").c_str()));
    unsigned long s = 5, b = 5;
    t.table.Get(&s, &b);
    EXPECT_EQ(s + b, 0u);
}

// Assembles an attribute table source; returns what Write put after a first
// sector, and the size in sectors * 10000 + bytes.
std::vector<uint8_t> AtrtWrite(const kt::TempDir& dir, const std::string& text, unsigned long* size = nullptr) {
    const std::string ini = dir / "a.ini", out = dir / "a.ifo";
    kt::WriteText(ini, text);
    CKestro_VMG_ATRT a;
    EXPECT_TRUE(a.Asm(ini.c_str()));
    unsigned long s, b;
    a.Get(&s, &b);
    if (size) *size = s * 10000 + b;
    {
        vt::Handle h(vt::Create(out));
        kestro::FileWrite(h, std::vector<uint8_t>(2048, 0).data(), 2048);
        EXPECT_TRUE(a.Write(h));
    }
    auto f = kt::ReadBytes(out);
    return std::vector<uint8_t>(f.begin() + 2048, f.end());
}

// Records of 776 bytes after an 8-byte header and a start address per set.
// Attributes are hexadecimal, their x optional, but menu audio attributes are
// decimal: "x0c" is 0.
TEST(VmgAtrt, SizesStartAddressesAndTheDecimalMenuAudio) {
    kt::TempDir dir;
    unsigned long size;
    auto t = AtrtWrite(dir, vt::AtrtSource(1, "x0c", "4100"), &size);
    EXPECT_EQ(size, 10788u);
    ASSERT_EQ(t.size(), 2048u);
    const std::vector<uint8_t> head = {0, 1, 0, 0, 0, 0, 3, 0x13, 0, 0, 0, 12, 0, 0, 3, 7, 0, 0, 0, 1, 0x41, 0, 0, 1, 0};
    EXPECT_TRUE(std::equal(head.begin(), head.end(), t.begin()));
    EXPECT_EQ(AtrtWrite(dir, vt::AtrtSource(1, "12"))[24], 12);
    t = AtrtWrite(dir, vt::AtrtSource(3), &size);
    EXPECT_EQ(size, 22348u);
    ASSERT_EQ(t.size(), 4096u);
    for (auto [at, value] : {std::make_pair(4, 2347u), {8, 20u}, {12, 796u}, {16, 1572u}, {1576, 3u}})
        EXPECT_EQ(vt::BE32(t, size_t(at)), value) << at;
    // An empty table still writes its header and the padding.
    EXPECT_EQ(AtrtWrite(dir, "[vts_atrt]\nvts_ns=0\n", &size), std::vector<uint8_t>(2048, 0));
    EXPECT_EQ(size, 0u);
}

// The report reads each record at a fixed place of the table's body rather
// than where it starts: with two sets, record 1 (table offset 16) is reported
// from offset 23 into it, so its audio count is menu audio stream 23 (record
// offset 34) and its end address is made of streams 12 to 15, and the stream
// lines are numbered by report position. The source reads the real places.
TEST(VmgAtrt, RoundTripAndTheReportPlacements) {
    kt::TempDir dir;
    unsigned long size;
    std::string text = vt::Replace(vt::AtrtSource(2), "srp001_vtsm_ast_ns=1\n", "srp001_vtsm_ast_ns=29\n");
    for (int j = 2; j <= 29; ++j)
        text += "vts_atrt_srp001_vtsm_ast_atr" + std::to_string(j / 10) + std::to_string(j % 10) + (j == 23 ? "=2\n" : "=9\n");
    const auto first = AtrtWrite(dir, text, &size);
    ASSERT_EQ(first[16 + 34], 2);

    Loaded<CKestro_VMG_ATRT> t(std::vector<uint8_t>(first.begin(), first.begin() + long(size % 10000)));
    ASSERT_TRUE(t.table.Disasm(t.ini.c_str()));
    for (auto kv : {std::make_pair("vts_atrt_ea", "1567"), {"vts_atrt_srp002_vts_atr_sa", "792"},
                    {"vts_atrt_srp002_vts_atr_ea", "775"}, {"vts_atrt_srp001_vtsm_ast_atr23", "x02"}})
        EXPECT_EQ(vt::Value(t.ini, "vts_atrt", kv.first), kv.second) << kv.first;
    EXPECT_EQ(AtrtWrite(dir, kt::ReadText(t.ini)), first);

    const std::string rep = vt::Report(t.table), count = "    Number of audio streams in VTSM_VOBS: 2\r\n";
    EXPECT_EQ(rep.find("Number of Video Title Sets: 2\r\nEnd byte address of VTS_ATR table: 1567\r\n"
                       "  VTS 1 Attribute start byte address 16\r\n    VTS Attribute end byte address 151587081\r\n"),
              0u);
    const size_t at = rep.find(count) + count.size();
    ASSERT_GT(at, count.size());
    const std::string want = "      Audio " + std::to_string(at + 1) + " attributes: 9\r\n";
    EXPECT_EQ(rep.compare(at, want.size(), want), 0) << rep.substr(at, 60);
    bool ok = true;
    vt::Report(t.table, 100, &ok);
    EXPECT_FALSE(ok);
}

// Text data is only read: the identifier (up to 12 characters), the unit
// count and the end address; Asm and Write fail, Get changes nothing.
TEST(VmgTxtdt, HeaderReportSourceAndStubs) {
    for (std::string id : {std::string("DVDVIDEO\0\0\0\0", 12), std::string("ABCDEFGHIJKL")}) {
        std::vector<uint8_t> bytes(id.begin(), id.end());
        bytes.insert(bytes.end(), {0xEE, 0xEE, 0, 2, 0, 1, 0, 0x10, 'Z', 'Z'});
        Loaded<CKestro_VMG_TXTDT> t(bytes);
        EXPECT_EQ(vt::Report(t.table),
                  "Number of Text Language Units 2\r\nEnd byte address of VMG_TXTDT_MGI table: 65552\r\n");
        EXPECT_TRUE(t.table.Disasm(t.ini.c_str()));
        EXPECT_EQ(vt::Value(t.ini, "txtdt_mg", "txtdt_id"), id.c_str());
        EXPECT_EQ(vt::Value(t.ini, "txtdt_mg", "txtdt_lu_ns") + vt::Value(t.ini, "txtdt_mg", "txtdt_mg_ea"), "265552");
        EXPECT_FALSE(t.table.Asm(t.ini.c_str()));
        EXPECT_FALSE(t.table.Write(*t.h));
        unsigned long a = 3, b = 4;
        t.table.Get(&a, &b);
        EXPECT_EQ(a * 10 + b, 34u);
        EXPECT_EQ(t.table.Load(*t.h, 0), 0);
    }
}

// Every refused source of the management table, the title search pointers
// and the attribute table: the exact message, and no file written.
TEST(VmgAsm, RefusedSourcesGiveTheirMessages) {
    struct Case {
        char table;  // m: VMGI_MAT, p: TT_SRPT, a: VTS_ATRT
        std::string from, to, message;
    };
    std::vector<Case> cases = {
        {'m', "DVDVIDEO-VMG", "DVDVIDEO-VTS", "[vmg_id] Illegal VIDEO_TS field"},
        {'m', "DVDVIDEO-VMG", "DVDVIDEO", "[vmg_id] Illegal VIDEO_TS field"},
        {'p', "vts_ttu_ns=2\n", "", "Statement missing in vmg_ptt_srpt!"},
        {'p', "vts_sa02=70000\n", "", "[vts_sa02] Statement missing in vmg_ptt_srpt!"},
        {'p', "tt_pb_ty01=x3c\n", "tt_pb_ty01=$3\n", "[tt_pb_ty01] Statement missing in vmg_ptt_srpt!"},
        {'p', "vts_ttn01=5\n", "", "[vts_ttn01] Statement missing in vmg_ptt_srpt!"},
        {'p', "ttu_ns=2\n", "ttu_ns=1000\n", "[vts_ttu_ns] 1000 titles exceed the 999 a title search pointer table can hold"},
        {'a', "vts_ns=2\n", "", "vts_ns"},
        {'a', "srp002_vts_v_atr=x5200\n", "", "[vts_atrt_srp002_vts_v_atr] Statement missing in vts_atrt!"},
        {'a', "srp001_vtsm_ast_atr01=x05\n", "", "[vts_atrt_srp001_vtsm_ast_atr01] Statement missing in vts_atrt!"},
        {'a', "srp001_vts_spst_ns=2\n", "srp001_vts_spst_ns=72\n",
         "[vts_atrt_srp001_vts_spst_ns] 72 subpicture streams do not fit a title set attribute record"},
        {'a', "vts_ns=2\n", "vts_ns=100\n", "[vts_ns] 100 title sets exceed the 99 a title set attribute table can hold"},
        {'a', "vts_atrt_srp002_vts_cat=2\n", "", ""},  // a missing category ends the table quietly
    };
    // Every statement of the management table left out in turn: it reads
    // them in this order and names the title set count vts_ns.
    const std::string mat = vt::kMatSource;
    for (size_t at = mat.find('\n') + 1; at < mat.size(); at = mat.find('\n', at) + 1) {
        const std::string line = mat.substr(at, mat.find('\n', at) + 1 - at), key = line.substr(0, line.find('='));
        cases.push_back({'m', line, "", key == "vmg_id"   ? "VMG ID is missing"
                                        : key == "vmg_ns" ? "[vts_ns] Statement missing in vmgi_mat"
                                                          : "[" + key + "] Statement missing in vmgi_mat"});
    }
    kt::TempDir dir;
    const std::string ini = dir / "v.ini", out = dir / "VIDEO_TS.IFO";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.from + " -> " + c.to);
        const std::string base = c.table == 'm' ? vt::kMatSource : c.table == 'p' ? vt::kTwoTitles : vt::AtrtSource(2);
        kt::WriteText(ini, vt::Replace(base, c.from, c.to));
        std::string message;
        bool ok = false;
        auto run = [&](auto&& t) {
            char msg[260] = {};
            ok = t.Asm(ini.c_str());
            t.GetErrorMessage(msg, sizeof msg);
            message = msg;
        };
        if (c.table == 'm') {
            ok = vt::AssembleVmg(ini, out, &message);
            EXPECT_TRUE(kt::ReadBytes(out).empty());
        } else if (c.table == 'p') {
            run(CKestro_VMG_PTT());
        } else {
            run(CKestro_VMG_ATRT());
        }
        EXPECT_EQ(ok, c.message.empty());
        EXPECT_EQ(message, c.message);
    }
}

}  // namespace
