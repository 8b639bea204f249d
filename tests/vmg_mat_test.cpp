// VIDEO_TS.IFO's management table: report, source, First Play PGC, the whole file's layout.
#include <algorithm>
#include <cstring>
#include <filesystem>

#include "frame/detail.h"
#include "vmg_test_util.h"

using kestro::PutBE16;
using kestro::PutBE32;

namespace {

// A PGC of k goto pre commands (244 + 8k bytes; 236 for none), disassembled into ini if given.
std::vector<uint8_t> AddPgc(const std::string& ini, int k, const char* prefix = "",
                            const char* section = "") {
    std::vector<uint8_t> p(236 + (k ? 8 + 8 * size_t(k) : 0), 0);
    if (k)
        PutBE16(&p[228], 236), PutBE16(&p[236], uint32_t(k)), PutBE16(&p[242], uint32_t(8 * k + 7));
    for (int i = 0; i < k; ++i) p[244 + 8 * size_t(i)] = 0x30;
    if (!ini.empty())
        CKestro_PGCI().DisasmPGCI(ini.c_str(), p.data(), 0, prefix, section, p.size());
    return p;
}

// A management table with distinctive fields and no sub-tables but TT_SRPT.
std::vector<uint8_t> Record(const char* id = "DVDVIDEO-VMG") {
    std::vector<uint8_t> r(4096, 0);  // TT_SRPT's sector 1 is zeros
    std::memcpy(r.data(), id, 12);
    std::memcpy(&r[64], "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345", 32);  // no terminator
    std::memcpy(&r[256], "\x41\x00\x00\x02\x40\x00\x65\x6e", 8);
    PutBE32(&r[12], 4896), PutBE32(&r[28], 6), PutBE32(&r[34], 0x00ab0000), PutBE32(&r[128], 1023);
    PutBE32(&r[192], 7), PutBE16(&r[38], 1), PutBE16(&r[40], 1), PutBE16(&r[42], 0x0100),
        PutBE16(&r[62], 1);
    r[33] = 0x11, r[96] = 0x01, r[341] = 1, r[342] = 0x33, r[199] = 1;
    return r;
}

// VMGI_MAT's report stops at the first line that does not fit; its source starts a fresh file.
// The First Play PGC is read from byte 1024 whatever its start says, and the codec swaps its
// command header in place (a second report reads 2 as 512). A title set's file is refused.
TEST(VmgMat, ReportSourceAndFirstPlayPgc) {
    tt::Loaded<CKestro_VMG_MAT> l(Record());
    ASSERT_EQ(l.loaded, 1);
    const std::string report = tt::Text(l.t);
    for (const char* lines :
         {"VMG Identifier: DVDVIDEO-VMG\r\nEnd address of VMG: 4896\r\nEnd address of VMGI: 6\r\n"
          "Specification version number: 1.1\r\nVMG Category: ab0000\r\nVMG Number of Vols: 1 "
          "This Vol: 1 Disk side ID: 1\r\nVMG Number of Title Sets: 1\r\nVMG Provider ID: "
          "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345\r\nVMG POS Code: 10000000\r\n",
          "VMGM_VOBU_ADMAP: 0\r\nVideo attributes of VMGM_VOBS: 4100\r\nNumber of audio streams in "
          "VMGM_VOBS: 2\r\n  Audio 1 attributes: 40\r\n  Audio 2 attributes: 0\r\nVMGM Number of "
          "subpicture streams: 1\r\n  Subpicture stream 1 attributes: 33\r\nVMG has no First Play "
          "PGC\r\n"})
        EXPECT_NE(report.find(lines), std::string::npos) << lines;
    bool ok = true;
    EXPECT_EQ(tt::Text(l.t, 40, &ok), "VMG Identifier: DVDVIDEO-VMG\r\n");
    EXPECT_FALSE(ok);
    kt::WriteText(l.ini, "[stale]\nkey=1\n");
    EXPECT_TRUE(l.t.Disasm(l.ini.c_str()));
    char names[256] = {};
    INIGetSectionNames(l.ini.c_str(), names, sizeof names);
    EXPECT_EQ(std::string(names, 10), std::string("vmgi_mat\0\0", 10));

    auto rec = Record(), pgc = AddPgc("", 2);
    PutBE32(&rec[132], 1100);
    rec.insert(rec.begin() + 1024, pgc.begin(), pgc.end());
    tt::Loaded<CKestro_VMG_MAT> fp(rec);
    CKestro_VMG_MAT fresh;
    ASSERT_EQ(fp.loaded, 1);
    const std::string first = tt::Text(fp.t);
    for (const char* line : {"First Play PGC FP_PGC: 1100\r\nStart sector",
                             "VMG First Play PGC:\r\n", "There are 2 Pre Commands"})
        EXPECT_NE(first.find(line), std::string::npos) << line;
    EXPECT_NE(tt::Text(fp.t).find("There are 512 Pre Commands"), std::string::npos);
    ASSERT_EQ(fresh.Load(fp.h), 1);
    EXPECT_TRUE(fresh.Disasm(fp.ini.c_str()));
    EXPECT_EQ(tt::Value(fp.ini, "fp_pgci", "pgc_pre1"), "3000000000000000");

    tt::Loaded<CKestro_VMG_MAT> vts(Record("DVDVIDEO-VTS"));  // refused, its tables not taken
    EXPECT_EQ(vts.loaded, 0);
    EXPECT_EQ(vts.t.GetVMG_PTT_SRPT(), nullptr);
}

// Alone, the First Play PGC (up to 1268 bytes, from byte 1024) and the menu VOB file (any case
// of its name) decide the end addresses; without sub-tables every start sector is 0. The
// version's major number is its first character, the minor (low 4 bits) its third on; the
// provider ID keeps 32 characters.
TEST(VmgMatAsm, FirstPlayPgcAndMenuVobsDecideTheEndAddresses) {
    const struct {
        int commands;  // -1: no First Play PGC
        size_t vobBytes, fileSize;
        uint32_t matEa, fpSa, vobsSa, vmgEa;
        const char* version;
        int versionByte;
    } cases[] = {{-1, 0, 2048, 1023, 0, 0, 1, "1.1", 0x11},
                 {-1, 4097, 2048, 1023, 0, 1, 4, "10.2", 0x10},
                 {97, 0, 2048, 2043, 1024, 0, 1, "2.15", 0x2F},
                 {98, 0, 4096, 2051, 1024, 0, 3, "1.-1", 0x1F},
                 {128, 0, 4096, 2291, 1024, 0, 3, "1", 0x10},
                 {-1, 0, 2048, 1023, 0, 0, 1, "", 0},
                 {-1, 0, 2048, 1023, 0, 0, 1, "x1.1", 0},
                 {-1, 0, 2048, 1023, 0, 0, 1, "+3.4", 0},
                 {129, 0, 0, 0, 0, 0, 0, "1.1", 0}};
    const std::string id = "0123456789abcdef0123456789ABCDEF";
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.commands) + " " + c.version);
        kt::TempDir dir;
        std::string ini = dir / "v.ini", out = dir / "VIDEO_TS.IFO", error;
        kt::WriteText(ini, vt::Replace(vt::Replace(vt::kMatSource, "=KESTRO", "=" + id + "xyz"),
                                       "vern=1.1", std::string("vern=") + c.version));
        if (c.commands >= 0) AddPgc(ini, c.commands, "pgc_", "fp_pgci");
        if (c.vobBytes) kt::WriteBytes(dir / "video_ts.VOB", std::vector<uint8_t>(c.vobBytes, 0));
        EXPECT_EQ(vt::AssembleVmg(ini, out, &error), c.fileSize > 0);
        auto f = kt::ReadBytes(out);
        ASSERT_EQ(f.size(), c.fileSize);
        EXPECT_EQ(error, c.fileSize ? "" : "First Play PGC size exceeds maximum size allowed");
        if (!c.fileSize) continue;
        const uint32_t fields[] = {kt::BE32(f, 128), kt::BE32(f, 132), kt::BE32(f, 28),
                                   kt::BE32(f, 192), kt::BE32(f, 12),  f[33]},
                       want[] = {c.matEa,  c.fpSa,  uint32_t(c.fileSize / 2048 - 1),
                                 c.vobsSa, c.vmgEa, uint32_t(c.versionByte)};
        EXPECT_EQ(std::vector<uint32_t>(fields, fields + 6), std::vector<uint32_t>(want, want + 6));
        EXPECT_EQ(std::string(f.begin() + 64, f.begin() + 96), id);
        for (size_t at = 196; at < 224; at += 4) EXPECT_EQ(kt::BE32(f, at), 0u) << at;
        // nothing after the table
        EXPECT_TRUE(c.commands >= 0 || std::count(f.begin() + 1024, f.end(), 0) == 1024);
    }
}

// First Play PGC of 300 bytes; TT_SRPT 1 sector, VMGM_PGCI_UT 2, PTL_MAIT 0, VTS_ATRT 1,
// VMGM_C_ADT 1, VMGM_VOBU_ADMAP 1; a 10,000,000-byte menu VOB file. The file is then a fixed
// point (with parental IDs 0: others come back byte-swapped).
TEST(VmgMatAsm, LaysTheFileOutSectorBySector) {
    kt::TempDir dir, dir2;
    std::string ini = dir / "v.ini", out = dir / "VIDEO_TS.IFO", again = dir / "again.ini", error;
    kt::WriteText(
        ini, vt::kMatSource + vt::Replace(vt::kTwoTitles, "=258", "=0") + vt::AtrtSource(1) +
                 "[ptl_mait]\ncty_ns=0\nvts_ns=1\nptl_maait_ea=7\n[vmgm_c_adt]\nvmgm_vob_ns=1\n"
                 "c_001_vob001_vts_vob_idn=1\nc_001_vob001_vts_c_idn=1\nc_001_vob001_vts_cp_sa=0\n"
                 "c_001_vob001_vts_cp_ea=4882\n[vts_vobu_admap]\nvobu_sa0001=0\n[vmgm_pgci_ut]\n"
                 "vmgm_lu_ns=1\nvmgm_lu_srp01_lcd=en\nvmgm_lu_srp01_exst=80\n"
                 "[vmgm_lu]\nvmgm_lui01_pgci_srp_ns=9\n");
    AddPgc(ini, 7, "pgc_", "fp_pgci");
    for (int j = 1; j <= 9; ++j) {  // nine command-less menu PGCs: 8 + 16 + 9 * 244 = 2220 bytes
        const std::string section = "vmgm_lu01_0" + std::to_string(j);
        INIWritePrivateProfileString(section.c_str(), "vmgm_lui_pgc_cat", "81000000", ini.c_str());
        AddPgc(ini, 0, "vmgm_pgc_", section.c_str());
    }
    kt::WriteBytes(dir / "VIDEO_TS.VOB", {});
    std::filesystem::resize_file(dir / "VIDEO_TS.VOB", 10000000);
    ASSERT_TRUE(vt::AssembleVmg(ini, out, &error)) << error;
    const auto f = kt::ReadBytes(out);
    ASSERT_EQ(f.size(), 7u * 2048);
    // Offset, value: end addresses, the start sectors, then each table's head on its sector.
    const uint32_t fields[] = {
        128,  1323,     28,      6,        12,      4896,     196,      1,       200,
        2,    204,      0,       208,      4,       212,      0,        216,     5,
        220,  6,        192,     7,        2048,    0x20000,  2 * 2048, 0x10000, 2 * 2048 + 4,
        2219, 4 * 2048, 0x10000, 5 * 2048, 0x10000, 6 * 2048, 7};
    for (size_t i = 0; i < std::size(fields); i += 2)
        EXPECT_EQ(kt::BE32(f, fields[i]), fields[i + 1]) << fields[i];

    tt::Loaded<CKestro_VMG_MAT> l(f);
    tt::Walk(l.t, 0, again);
    std::filesystem::copy_file(dir / "VIDEO_TS.VOB", dir2 / "VIDEO_TS.VOB");
    ASSERT_TRUE(vt::AssembleVmg(again, dir2 / "VIDEO_TS.IFO", &error)) << error;
    EXPECT_EQ(kt::ReadBytes(dir2 / "VIDEO_TS.IFO"), f);
}

}  // namespace
