// Title search pointer table: assembly quirks, sizes, the write, and the way
// back through a real file.
#include <cstring>

#include "kestro/vmg.h"
#include "vmg_test_util.h"

namespace {

const char* kTwoTitles =
    "[vmg_ptt_srpt]\n"
    "vts_ttu_ns=2\n"
    "tt_pb_ty01=x3c\n"
    "tt_agl_ns01=1\n"
    "tt_ptt_ns01=12\n"
    "tt_ptl_id_fld01=258\n"
    "vtsn01=1\n"
    "vts_ttn01=5\n"
    "vts_sa01=4096\n"
    "tt_pb_ty02=3c\n"
    "tt_agl_ns02=300\n"
    "tt_ptt_ns02=1\n"
    "tt_ptl_id_fld02=0\n"
    "vtsn02=2\n"
    "vts_ttn02=1\n"
    "vts_sa02=70000\n";

// Assembles, writes on sector 1 of a fresh file and returns the file.
std::vector<uint8_t> AsmAndWrite(const kt::TempDir& dir, const std::string& ini,
                                 unsigned long* sectors = nullptr, unsigned long* bytes = nullptr,
                                 const char* name = "out.ifo") {
    CKestro_VMG_PTT ptt;
    EXPECT_TRUE(ptt.Asm(ini.c_str()));
    unsigned long s = 99, b = 99;
    ptt.Get(&s, &b);
    if (sectors) *sectors = s;
    if (bytes) *bytes = b;
    std::string out = dir / name;
    {
        vt::Handle h(vt::Create(out));
        std::vector<uint8_t> zero(2048, 0);
        kestro::FileWrite(h, zero.data(), zero.size());
        EXPECT_TRUE(ptt.Write(h));
        EXPECT_TRUE(ptt.Write(h));  // the assembled view is gone: nothing more
    }
    return kt::ReadBytes(out);
}

TEST(VmgPtt, AssemblesTheFieldsWithTheirQuirks) {
    kt::TempDir dir;
    std::string ini = dir / "src.ini";
    kt::WriteText(ini, kTwoTitles);
    unsigned long sectors, bytes;
    auto f = AsmAndWrite(dir, ini, &sectors, &bytes);
    EXPECT_EQ(bytes, 32u);
    EXPECT_EQ(sectors, 1u);
    ASSERT_EQ(f.size(), 4096u);
    const uint8_t want[] = {
        0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x1F,                          // header, ea 31
        0x3C, 0x01, 0x00, 0x0C, 0x02, 0x01, 0x01, 0x01, 0x00, 0x00, 0x10, 0x00,  // title 1
        0xC0, 0x2C, 0x00, 0x01, 0x00, 0x00, 0x02, 0x01, 0x00, 0x01, 0x11, 0x70,  // title 2
    };
    EXPECT_EQ(0, std::memcmp(f.data() + 2048, want, sizeof want));
    for (size_t i = 2048 + sizeof want; i < f.size(); ++i) ASSERT_EQ(f[i], 0) << i;
}

TEST(VmgPtt, MissingStatementsAndRefusedCounts) {
    struct Case {
        const char* drop;     // statement replaced by nothing
        const char* replace;  // what to put in its place
        const char* message;
    } cases[] = {
        {"vts_ttu_ns=2\n", "", "Statement missing in vmg_ptt_srpt!"},
        {"vts_sa02=70000\n", "", "[vts_sa02] Statement missing in vmg_ptt_srpt!"},
        {"tt_pb_ty01=x3c\n", "tt_pb_ty01=$3\n", "[tt_pb_ty01] Statement missing in vmg_ptt_srpt!"},
        {"vts_ttn01=5\n", "", "[vts_ttn01] Statement missing in vmg_ptt_srpt!"},
        {"vts_ttu_ns=2\n", "vts_ttu_ns=1000\n",
         "[vts_ttu_ns] 1000 titles exceed the 999 a title search pointer table can hold"},
    };
    kt::TempDir dir;
    std::string ini = dir / "bad.ini";
    for (const auto& c : cases) {
        std::string text = kTwoTitles;
        text.replace(text.find(c.drop), std::strlen(c.drop), c.replace);
        kt::WriteText(ini, text);
        CKestro_VMG_PTT ptt;
        EXPECT_FALSE(ptt.Asm(ini.c_str()));
        char msg[260];
        ptt.GetErrorMessage(msg, sizeof msg);
        EXPECT_STREQ(msg, c.message);
    }
    // The refused count stores nothing; a missing file fails on the count.
    kt::WriteText(ini, "[vmg_ptt_srpt]\nvts_ttu_ns=1000\n");
    CKestro_VMG_PTT ptt;
    EXPECT_FALSE(ptt.Asm(ini.c_str()));
    unsigned long s = 7, b = 7;
    ptt.Get(&s, &b);
    EXPECT_EQ(s + b, 0u);
    EXPECT_FALSE(ptt.Asm((dir / "absent.ini").c_str()));
}

TEST(VmgPtt, RoundTripThroughARealFile) {
    kt::TempDir dir;
    std::string ini = dir / "src.ini";
    kt::WriteText(ini, kTwoTitles);
    AsmAndWrite(dir, ini);

    vt::Handle h(vt::OpenRead(dir / "out.ifo"));
    CKestro_VMG_PTT loaded;
    EXPECT_EQ(loaded.Load(h, 0), 0);
    ASSERT_EQ(loaded.Load(h, 1), 1);
    std::string back = dir / "back.ini";
    EXPECT_TRUE(loaded.Disasm(back.c_str()));
    struct Kv {
        const char* key;
        const char* value;
    } want[] = {{"vts_ttu_ns", "2"},         {"vts_ptt_srpt_ea", "31"}, {"tt_pb_ty01", "x3c"},
                {"tt_ptt_ns01", "12"},       {"tt_ptl_id_fld01", "513"}, {"vts_ttn01", "1"},
                {"vts_sa01", "4096"},        {"tt_pb_ty02", "xc0"},      {"tt_agl_ns02", "44"},
                {"vts_sa02", "70000"}};
    for (const auto& kv : want)
        EXPECT_EQ(vt::Value(back, "vmg_ptt_srpt", kv.key), kv.value) << kv.key;

    // Disassembling again and assembling reproduces the written table.
    std::vector<uint8_t> first = kt::ReadBytes(dir / "out.ifo");
    auto second = AsmAndWrite(dir, back, nullptr, nullptr, "again.ifo");
    // The parental ID field is read big-endian but written low byte first,
    // so 02 01 comes back as 01 02; everything else is unchanged.
    std::swap(first[2048 + 8 + 4], first[2048 + 8 + 5]);
    EXPECT_EQ(first, second);

    bool ok = false;
    std::string rep = vt::Report(loaded, 1 << 16, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(rep.find("Number of Title Unit Serch Pointers TTUs in the VTS: 2\r\n"
              "End byte address of PTT_SRPT table: 31\r\n"
              "    Title set 1: Title playback type: 3c\r\n"
              "    Title set 1: Number of angles: 1\r\n"
              "    Title set 1: Number of PTTs: 12\r\n"),
              0u);
    EXPECT_NE(rep.find("    Title set 1: Parental ID field: 513\r\n"
                       "    Title set 1: Title set number: 1\r\n"
                       "    Title set 1: VTS_TTN: 1\r\n"
                       "    Title set 1: Title set starting sector number: 4096\r\n"),
              std::string::npos);
    EXPECT_EQ(rep.substr(rep.size() - 5), "0\r\n\r\n");  // closing line end

}

TEST(VmgPtt, CorpusTablesComeBackByteForByte) {
    auto files = kt::CorpusFiles("VIDEO_TS");
    KT_SKIP_IF_EMPTY(files);
    kt::TempDir dir;
    for (const auto& path : files) {
        auto orig = kt::ReadBytes(path);
        ASSERT_GE(orig.size(), 0xC8u);
        const uint32_t sa = vt::BE32(orig, 0xC4);  // TT_SRPT start sector
        ASSERT_NE(sa, 0u) << path;
        vt::Handle h(vt::OpenRead(path));
        CKestro_VMG_PTT ptt;
        ASSERT_EQ(ptt.Load(h, sa), 1);
        std::string ini = dir / "corpus.ini";
        kestro::FileDelete(ini.c_str());
        ASSERT_TRUE(ptt.Disasm(ini.c_str()));
        unsigned long sectors = 0;
        auto out = AsmAndWrite(dir, ini, &sectors);
        ASSERT_EQ(out.size(), 2048 * (1 + sectors)) << path;
        ASSERT_LE(sa * 2048 + sectors * 2048, orig.size());
        EXPECT_TRUE(std::equal(out.begin() + 2048, out.end(), orig.begin() + long(sa) * 2048))
            << path;
    }
}

}  // namespace
