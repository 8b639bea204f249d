// The management table of VIDEO_TS.IFO: loading, report, source, ownership
// of the sub-tables, and the assembly and layout of the whole file.
#include <cstring>
#include <filesystem>

#include "frame/detail.h"
#include "kestro/vmg.h"
#include "vmg_host.h"
#include "vmg_test_util.h"

using kestro::PutBE16;
using kestro::PutBE32;

namespace {

namespace fs = std::filesystem;

// A binary PGC holding only a command table of k pre commands: 236 + 8 + 8k
// bytes (236 bytes without commands).
std::vector<uint8_t> CommandOnlyPgc(int k) {
    std::vector<uint8_t> p(236 + (k ? 8 + 8 * size_t(k) : 0), 0);
    if (k) {
        PutBE16(&p[228], 236);
        PutBE16(&p[236], uint32_t(k));
        PutBE16(&p[242], uint32_t(8 * k + 7));
        for (int i = 0; i < k; ++i) p[244 + 8 * size_t(i)] = 0x30;  // goto-style command
    }
    return p;
}

// A management table with distinctive fields and no sub-tables.
std::vector<uint8_t> Record() {
    std::vector<uint8_t> r(4096, 0);
    std::memcpy(r.data(), "DVDVIDEO-VMG", 12);
    PutBE32(&r[12], 4896);
    PutBE32(&r[28], 6);
    r[33] = 0x11;
    PutBE32(&r[34], 0x00ab0000);
    PutBE16(&r[38], 1);
    PutBE16(&r[40], 1);
    PutBE16(&r[42], 0x0100);
    PutBE16(&r[62], 1);
    std::memcpy(&r[64], "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345", 32);  // no terminator
    r[96] = 0x01;
    PutBE32(&r[128], 1023);
    PutBE32(&r[192], 7);
    r[256] = 0x41;
    r[259] = 2;
    std::memcpy(&r[260], "\x40\x00\x65\x6e", 4);
    r[341] = 1;
    r[342] = 0x33;
    return r;
}

const char* kReport =
    "VMG Identifier: DVDVIDEO-VMG\r\n"
    "End address of VMG: 4896\r\n"
    "End address of VMGI: 6\r\n"
    "Specification version number: 1.1\r\n"
    "VMG Category: ab0000\r\n"
    "VMG Number of Vols: 1 This Vol: 1 Disk side ID: 1\r\n"
    "VMG Number of Title Sets: 1\r\n"
    "VMG Provider ID: ABCDEFGHIJKLMNOPQRSTUVWXYZ012345\r\n"
    "VMG POS Code: 10000000\r\n"
    "End byte address of VMGI_MAT: 1023\r\n"
    "Start byte address of First Play PGC FP_PGC: 0\r\n"
    "Start sector address of VMGM_VOBS: 7\r\n"
    "Start sector address of VMG_PTT_SRPT: 0\r\n"
    "Start sector address of VMGM_PGCI_UT: 0\r\n"
    "Start sector address of VMG_PTL_MAIT: 0\r\n"
    "Start sector address of VMG_VTS_ATRT: 0\r\n"
    "Start sector address of VMG_TXTDT_MG: 0\r\n"
    "Start sector address of VMGM_C_ADT: 0\r\n"
    "Start sector address of VMGM_VOBU_ADMAP: 0\r\n"
    "Video attributes of VMGM_VOBS: 4100\r\n"
    "Number of audio streams in VMGM_VOBS: 2\r\n"
    "  Audio 1 attributes: 40\r\n"
    "  Audio 2 attributes: 0\r\n"
    "VMGM Number of subpicture streams: 1\r\n"
    "  Subpicture stream 1 attributes: 33\r\n"
    "VMG has no First Play PGC\r\n";

const char* kMatSource =
    "[vmgi_mat]\n"
    "vmg_id=DVDVIDEO-VMG\n"
    "vern=1.1\n"
    "vmg_cat=x00000000\n"
    "vlms_id=x0001000101000000\n"
    "vmg_ns=1\n"
    "pvr_id=KESTRO\n"
    "pos_cd=x0100000000000000\n"
    "vmgm_v_atr=x4100\n"
    "vmgm_ast_ns=1\n"
    "vmgm_ast_atr=x4000656e00000000\n"
    "vmgm_spst_ns=0\n"
    "vmgm_spst_atr=x000000000000\n";

std::string Replace(std::string text, const std::string& from, const std::string& to) {
    size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

// Adds a First Play PGC of k commands to the source.
void AddFirstPlay(const std::string& ini, int k) {
    auto pgc = CommandOnlyPgc(k);
    CKestro_PGCI codec;
    codec.DisasmPGCI(ini.c_str(), pgc.data(), 0, "pgc_", "fp_pgci", pgc.size());
}

// One title set attribute record with one title audio stream.
std::string AtrtOne() {
    return "[vts_atrt]\nvts_ns=1\nvts_atrt_srp001_vts_cat=0\nvts_atrt_srp001_vtsm_v_atr=x4100\n"
           "vts_atrt_srp001_vtsm_ast_ns=0\nvts_atrt_srp001_vtsm_spst_ns=0\n"
           "vts_atrt_srp001_vts_v_atr=x4100\nvts_atrt_srp001_vts_ast_ns=1\n"
           "vts_atrt_srp001_vts_ast_atr01=x4000656e00000000\nvts_atrt_srp001_vts_spst_ns=0\n";
}

struct Assembled {
    bool ok;
    std::string error;
    std::vector<uint8_t> file;
};

// Assembles the management table alone (no sub-tables) into dir/name.
Assembled AsmMat(const kt::TempDir& dir, const std::string& ini, const char* name = "VIDEO_TS.IFO") {
    Assembled a;
    CKestro_VMG_MAT mat;
    std::string out = dir / name;
    {
        vt::Handle h(vt::Create(out));
        a.ok = mat.Asm(ini.c_str(), h, out.c_str());
    }
    char msg[260];
    mat.GetErrorMessage(msg, sizeof msg);
    a.error = msg;
    a.file = kt::ReadBytes(out);
    return a;
}

// ---- Load, report, source --------------------------------------------------------

TEST(VmgMat, ReportAndSourceOfTheManagementTable) {
    kt::TempDir dir;
    std::string file = dir / "VIDEO_TS.IFO";
    kt::WriteBytes(file, Record());
    vt::Handle h(vt::OpenRead(file));
    CKestro_VMG_MAT mat;
    ASSERT_EQ(mat.Load(h), 1);
    EXPECT_EQ(vt::Report(mat), kReport);
    EXPECT_EQ(mat.GetVMGM_PGCIT_SA(), 0u);

    std::string ini = dir / "v.ini";
    kt::WriteText(ini, "[stale]\nkey=1\n");
    EXPECT_TRUE(mat.Disasm(ini.c_str()));
    struct Kv {
        const char* key;
        const char* value;
    } want[] = {{"vmg_id", "DVDVIDEO-VMG"},
                {"vmg_ea", "4896"},
                {"vern", "1.1"},
                {"vmg_cat", "x00ab0000"},
                {"vlms_id", "x0001000101000000"},
                {"pvr_id", "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345"},
                {"pos_cd", "x0100000000000000"},
                {"vmgi_mat_ea", "1023"},
                {"fp_pgci_sa", "0"},
                {"vmgm_vobs_sa", "7"},
                {"vmgm_vobu_admap_sa", "0"},
                {"vmgm_v_atr", "x4100"},
                {"vmgm_ast_ns", "2"},
                {"vmgm_ast_atr", "x4000656e00000000"},
                {"vmgm_spst_atr", "x330000000000"}};
    for (const auto& kv : want) EXPECT_EQ(vt::Value(ini, "vmgi_mat", kv.key), kv.value) << kv.key;
    // A fresh file: nothing of the old one, and no First Play PGC section.
    char names[256];
    INIGetSectionNames(ini.c_str(), names, sizeof names);
    EXPECT_STREQ(names, "vmgi_mat");
    EXPECT_EQ(names[9], 0);

    // The report stops at the first line that does not fit.
    bool ok = true;
    std::string part = vt::Report(mat, 40, &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(part, "VMG Identifier: DVDVIDEO-VMG\r\n");
}

TEST(VmgMat, FirstPlayPgcIsReadFromByte1024AndSwappedInPlace) {
    kt::TempDir dir;
    auto rec = Record();
    PutBE32(&rec[132], 1100);  // the PGC is still taken from byte 1024
    auto pgc = CommandOnlyPgc(2);
    std::copy(pgc.begin(), pgc.end(), rec.begin() + 1024);
    std::string file = dir / "VIDEO_TS.IFO";
    kt::WriteBytes(file, rec);
    vt::Handle h(vt::OpenRead(file));
    CKestro_VMG_MAT mat;
    ASSERT_EQ(mat.Load(h), 1);
    std::string first = vt::Report(mat);
    EXPECT_NE(first.find("Start byte address of First Play PGC FP_PGC: 1100\r\nStart sector"),
              std::string::npos);
    ASSERT_NE(first.find("VMG First Play PGC:\r\n"), std::string::npos);
    EXPECT_GT(first.size(), first.find("VMG First Play PGC:\r\n") + 21);
    // The codec swapped the command-table header in the record: a second
    // report of the same object reads the counts byte-swapped (2 -> 512).
    EXPECT_NE(vt::Report(mat).find("There are 512 Pre Commands"), std::string::npos);
    CKestro_VMG_MAT fresh;
    ASSERT_EQ(fresh.Load(h), 1);
    std::string ini = dir / "v.ini";
    EXPECT_TRUE(fresh.Disasm(ini.c_str()));
    EXPECT_EQ(vt::Value(ini, "fp_pgci", "pgc_cmdt_pre_ns"), "2");
    EXPECT_EQ(vt::Value(ini, "fp_pgci", "pgc_pre1"), "3000000000000000");

    // Assembled back, the PGC comes out as it went in.
    auto a = AsmMat(dir, ini, "back.ifo");
    ASSERT_TRUE(a.ok) << a.error;
    EXPECT_EQ(vt::BE32(a.file, 128), 1023u + 260);
    EXPECT_EQ(vt::BE32(a.file, 132), 1024u);
    EXPECT_TRUE(std::equal(pgc.begin(), pgc.end(), a.file.begin() + 1024));
}

TEST(VmgMat, NotAVideoManagerFile) {
    kt::TempDir dir;
    auto rec = Record();
    std::memcpy(rec.data(), "DVDVIDEO-VTS", 12);
    PutBE32(&rec[196], 1);  // would be a title search pointer table
    std::string file = dir / "VTS_01_0.IFO";
    kt::WriteBytes(file, rec);
    vt::Handle h(vt::OpenRead(file));
    CKestro_VMG_MAT mat;
    EXPECT_EQ(mat.Load(h), 0);
    EXPECT_EQ(mat.GetVMG_PTT_SRPT(), nullptr);
    EXPECT_EQ(mat.GetVMGM_PGCI_UT(), nullptr);
    EXPECT_EQ(mat.GetVMG_TXTDT(), nullptr);
}

// ---- Assembly ---------------------------------------------------------------------

TEST(VmgMatAsm, MissingAndIllegalStatementsWriteNothing) {
    kt::TempDir dir;
    std::string ini = dir / "v.ini";
    auto check = [&](const std::string& text, const std::string& message) {
        kt::WriteText(ini, text);
        auto a = AsmMat(dir, ini);
        EXPECT_FALSE(a.ok) << message;
        EXPECT_EQ(a.error, message);
        EXPECT_TRUE(a.file.empty()) << message;
    };
    // Every statement of the section, left out in turn, in reading order.
    std::string src = kMatSource;
    for (size_t at = src.find('\n') + 1; at < src.size(); at = src.find('\n', at) + 1) {
        const size_t end = src.find('\n', at) + 1;
        std::string key = src.substr(at, src.find('=', at) - at);
        std::string message = key == "vmg_id"   ? "VMG ID is missing"
                              : key == "vmg_ns" ? "[vts_ns] Statement missing in vmgi_mat"
                                                : "[" + key + "] Statement missing in vmgi_mat";
        check(std::string(src).erase(at, end - at), message);
    }
    check(Replace(src, "DVDVIDEO-VMG", "DVDVIDEO-VTS"), "[vmg_id] Illegal VIDEO_TS field");
    check(Replace(src, "DVDVIDEO-VMG", "DVDVIDEO"), "[vmg_id] Illegal VIDEO_TS field");
}

TEST(VmgMatAsm, FieldCodecs) {
    struct Case {
        const char* from;
        const char* to;
        size_t at;
        std::vector<uint8_t> bytes;
    } cases[] = {
        {"vern=1.1", "vern=1.1", 32, {0x00, 0x11}},
        {"vern=1.1", "vern=10.2", 33, {0x10}},
        {"vern=1.1", "vern=1", 33, {0x10}},
        {"vmg_cat=x00000000", "vmg_cat=0", 34, {0, 0, 0, 0}},
        {"vlms_id=x0001000101000000", "vlms_id=0001000201", 38, {0, 1, 0, 2, 0x01, 0, 0, 0}},
        {"pvr_id=KESTRO", "pvr_id=0123456789abcdef0123456789ABCDEFxyz", 64,
         std::vector<uint8_t>(std::begin("0123456789abcdef0123456789ABCDEF"),
                              std::end("0123456789abcdef0123456789ABCDEF") - 1)},
        {"pos_cd=x0100000000000000", "pos_cd=0102", 96, {1, 2, 0, 0, 0, 0, 0, 0}},
        {"vmgm_ast_ns=1", "vmgm_ast_ns=257", 258, {0, 1}},
    };
    kt::TempDir dir;
    std::string ini = dir / "v.ini";
    for (const auto& c : cases) {
        kt::WriteText(ini, Replace(kMatSource, c.from, c.to));
        auto a = AsmMat(dir, ini);
        ASSERT_TRUE(a.ok) << c.to << ": " << a.error;
        ASSERT_EQ(a.file.size(), 2048u);
        EXPECT_EQ(std::vector<uint8_t>(a.file.begin() + long(c.at),
                                       a.file.begin() + long(c.at + c.bytes.size())),
                  c.bytes)
            << c.to;
    }
}

TEST(VmgMatAsm, WithoutFirstPlayPgcOrSubTables) {
    kt::TempDir dir;
    std::string ini = dir / "v.ini";
    kt::WriteText(ini, kMatSource);
    // No menu VOB file next to the output.
    auto a = AsmMat(dir, ini);
    ASSERT_TRUE(a.ok);
    ASSERT_EQ(a.file.size(), 2048u);
    EXPECT_EQ(vt::BE32(a.file, 128), 1023u);  // VMGI_MAT_EA
    EXPECT_EQ(vt::BE32(a.file, 132), 0u);     // no First Play PGC
    EXPECT_EQ(vt::BE32(a.file, 28), 0u);      // VMGI_EA = M - 1
    EXPECT_EQ(vt::BE32(a.file, 192), 0u);     // no menu VOBs
    EXPECT_EQ(vt::BE32(a.file, 12), 1u);      // VMG_EA = 2N - 1
    for (size_t at = 196; at < 224; at += 4) EXPECT_EQ(vt::BE32(a.file, at), 0u) << at;
    for (size_t i = 1024; i < 2048; ++i) ASSERT_EQ(a.file[i], 0) << i;

    // A menu VOB file whose name differs in case is found; 4097 bytes are 3
    // sectors.
    kt::WriteBytes(dir / "video_ts.VOB", std::vector<uint8_t>(4097, 0));
    a = AsmMat(dir, ini);
    ASSERT_TRUE(a.ok);
    EXPECT_EQ(vt::BE32(a.file, 192), 1u);  // VMGM_VOBS right after the IFO
    EXPECT_EQ(vt::BE32(a.file, 12), 4u);   // 2 * 1 + 3 - 1
}

TEST(VmgMatAsm, FirstPlayPgcSizeLimit) {
    struct Case {
        int commands;  // PGC of 244 + 8 * commands bytes
        bool ok;
        uint32_t ea;
        size_t fileSize;
    } cases[] = {
        {128, true, 2291, 4096},  // exactly 1268 bytes: two sectors
        {129, false, 0, 0},       // 1276 bytes: refused, nothing written
        {97, true, 2043, 2048},
        {98, true, 2051, 4096},
    };
    kt::TempDir dir;
    std::string ini = dir / "v.ini";
    for (const auto& c : cases) {
        kt::WriteText(ini, kMatSource);
        AddFirstPlay(ini, c.commands);
        auto a = AsmMat(dir, ini);
        EXPECT_EQ(a.ok, c.ok) << c.commands;
        ASSERT_EQ(a.file.size(), c.fileSize) << c.commands;
        if (!c.ok) {
            EXPECT_EQ(a.error, "First Play PGC size exceeds maximum size allowed");
            continue;
        }
        EXPECT_EQ(vt::BE32(a.file, 128), c.ea);
        EXPECT_EQ(vt::BE32(a.file, 132), 1024u);
        EXPECT_EQ(vt::BE32(a.file, 28), c.fileSize / 2048 - 1);
    }
}

// The layout example: First Play PGC of 300 bytes; TT_SRPT 1 sector,
// VMGM_PGCI_UT 2, PTL_MAIT 0, VTS_ATRT 1, VMGM_C_ADT 1, VMGM_VOBU_ADMAP 1; a
// menu VOB file of 10,000,000 bytes.
TEST(VmgMatAsm, LaysTheFileOutSectorBySector) {
    kt::TempDir dir;
    std::string ini = dir / "v.ini";
    std::string text = kMatSource;
    text +=
        "[vmg_ptt_srpt]\nvts_ttu_ns=1\ntt_pb_ty01=x3c\ntt_agl_ns01=1\ntt_ptt_ns01=1\n"
        "tt_ptl_id_fld01=0\nvtsn01=1\nvts_ttn01=1\nvts_sa01=4900\n"
        "[ptl_mait]\ncty_ns=0\nvts_ns=1\nptl_maait_ea=7\n"
        "[vmgm_c_adt]\nvmgm_vob_ns=1\nc_001_vob001_vts_vob_idn=1\nc_001_vob001_vts_c_idn=1\n"
        "c_001_vob001_vts_cp_sa=0\nc_001_vob001_vts_cp_ea=4882\n"
        "[vts_vobu_admap]\nvobu_sa0001=0\n"
        "[vmgm_pgci_ut]\nvmgm_lu_ns=1\nvmgm_lu_srp01_lcd=en\nvmgm_lu_srp01_exst=80\n"
        "[vmgm_lu]\nvmgm_lui01_pgci_srp_ns=9\n";
    kt::WriteText(ini, text + AtrtOne());
    AddFirstPlay(ini, 7);  // 236 + 8 + 56 = 300 bytes
    // Nine command-less menu PGCs of 236 bytes: 8 + 16 + 9 * 244 = 2220
    // bytes, two sectors.
    auto menu = CommandOnlyPgc(0);
    for (int j = 1; j <= 9; ++j) {
        char section[32];
        std::snprintf(section, sizeof section, "vmgm_lu01_%02d", j);
        INIWritePrivateProfileString(section, "vmgm_lui_pgc_cat", "81000000", ini.c_str());
        CKestro_PGCI codec;
        codec.DisasmPGCI(ini.c_str(), menu.data(), 0, "vmgm_pgc_", section, menu.size());
    }
    kt::WriteBytes(dir / "VIDEO_TS.VOB", {});
    fs::resize_file(dir / "VIDEO_TS.VOB", 10000000);

    std::string out = dir / "VIDEO_TS.IFO";
    std::string error;
    ASSERT_TRUE(vt::AssembleVmg(ini, out, &error)) << error;
    auto f = kt::ReadBytes(out);
    EXPECT_EQ(vt::BE32(f, 128), 1323u);
    const uint32_t starts[] = {1, 2, 0, 4, 5, 6};  // TT_SRPT ... VMGM_VOBU_ADMAP
    const size_t fields[] = {196, 200, 204, 208, 216, 220};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(vt::BE32(f, fields[i]), starts[i]) << fields[i];
    EXPECT_EQ(vt::BE32(f, 212), 0u);  // TXTDT_MG
    EXPECT_EQ(vt::BE32(f, 28), 6u);   // VMGI_EA
    EXPECT_EQ(vt::BE32(f, 192), 7u);  // VMGM_VOBS
    EXPECT_EQ(vt::BE32(f, 12), 4896u);
    ASSERT_EQ(f.size(), 7u * 2048);
    // Every table landed on its sector.
    EXPECT_EQ(vt::BE32(f, 1 * 2048), 0x00010000u);  // TT_SRPT: 1 title
    EXPECT_EQ(vt::BE32(f, 2 * 2048), 0x00010000u);  // VMGM_PGCI_UT: 1 unit
    EXPECT_EQ(vt::BE32(f, 2 * 2048 + 4), 2219u);
    EXPECT_EQ(vt::BE32(f, 4 * 2048), 0x00010000u);  // VTS_ATRT: 1 title set
    EXPECT_EQ(vt::BE32(f, 5 * 2048), 0x00010000u);  // VMGM_C_ADT: 1 VOB
    EXPECT_EQ(vt::BE32(f, 6 * 2048), 7u);           // VMGM_VOBU_ADMAP: 1 entry

    // Loaded again, every table is there and the file is a fixed point.
    vt::Handle h(vt::OpenRead(out));
    CKestro_VMG_MAT mat;
    ASSERT_EQ(mat.Load(h), 1);
    EXPECT_NE(mat.GetVMG_PTT_SRPT(), nullptr);
    EXPECT_NE(mat.GetVMGM_PGCI_UT(), nullptr);
    EXPECT_NE(mat.GetVMGM_LU(), nullptr);
    EXPECT_EQ(mat.GetVMG_MAIT(), nullptr);
    EXPECT_NE(mat.GetVMG_ATRT(), nullptr);
    EXPECT_EQ(mat.GetVMG_TXTDT(), nullptr);
    EXPECT_NE(mat.GetVMGM_C_ADT(), nullptr);
    EXPECT_NE(mat.GetVMGM_VOBU_ADMAP(), nullptr);
    EXPECT_EQ(mat.GetVMGM_PGCIT_SA(), 2u);
    std::string again = dir / "again.ini";
    vt::DisasmAll(mat, again);
    kt::TempDir dir2;
    fs::copy_file(dir / "VIDEO_TS.VOB", dir2 / "VIDEO_TS.VOB");
    ASSERT_TRUE(vt::AssembleVmg(again, dir2 / "VIDEO_TS.IFO", &error)) << error;
    EXPECT_EQ(kt::ReadBytes(dir2 / "VIDEO_TS.IFO"), f);
}

}  // namespace
