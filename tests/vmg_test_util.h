// Video manager test helpers: sources, and a whole VIDEO_TS.IFO rebuilt as a host does.
#ifndef KESTRO_TESTS_VMG_TEST_UTIL_H
#define KESTRO_TESTS_VMG_TEST_UTIL_H

#include "kestro/vmg.h"
#include "tables_util.h"

namespace vt {

inline std::string Replace(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

// Sources: the management table, two titles, `sets` (at most 9) attribute records.
const char* const kMatSource =
    "[vmgi_mat]\nvmg_id=DVDVIDEO-VMG\nvern=1.1\nvmg_cat=x00000000\nvlms_id=x0001000101000000\n"
    "vmg_ns=1\npvr_id=KESTRO\npos_cd=x0100000000000000\nvmgm_v_atr=x4100\nvmgm_ast_ns=1\n"
    "vmgm_ast_atr=x4000656e00000000\nvmgm_spst_ns=0\nvmgm_spst_atr=x000000000000\n";
const char* const kTwoTitles =
    "[vmg_ptt_srpt]\nvts_ttu_ns=2\ntt_pb_ty01=x3c\ntt_agl_ns01=1\ntt_ptt_ns01=12\n"
    "tt_ptl_id_fld01=258\nvtsn01=1\nvts_ttn01=5\nvts_sa01=4096\ntt_pb_ty02=3c\ntt_agl_ns02=300\n"
    "tt_ptt_ns02=1\ntt_ptl_id_fld02=0\nvtsn02=2\nvts_ttn02=1\nvts_sa02=70000\n";
inline std::string AtrtSource(int sets, const char* menuAudio = "x05",
                              const char* video = "x4100") {
    std::string t = "[vts_atrt]\nvts_ns=" + std::to_string(sets);
    for (int i = 1; i <= sets; ++i) {
        const std::string k = "\nvts_atrt_srp00" + std::to_string(i) + "_";
        t += k + "vts_cat=" + std::to_string(i) + k + "vtsm_v_atr=" + video + k + "vtsm_ast_ns=1" +
             k + "vtsm_ast_atr01=" + menuAudio + k + "vtsm_spst_ns=1" + k + "vtsm_spst_atr01=x01" +
             k + "vts_v_atr=x5200" + k + "vts_ast_ns=1" + k + "vts_ast_atr01=x0102030405060708" +
             k + "vts_spst_ns=2" + k + "vts_spst_atr01=xa1a2a3a4a5a6" + k +
             "vts_spst_atr02=xb1b2b3b4b5b6";
    }
    return t + "\n";
}

// A sub-table assembled from `text` and written (a title table's second Write adds nothing);
// size gets 10000 * sectors + bytes.
template <class T>
std::vector<uint8_t> AsmWrite(const kt::TempDir& dir, const std::string& text,
                              unsigned long* size = nullptr) {
    T t;
    kt::WriteText(dir / "w.ini", text);
    EXPECT_TRUE(t.Asm((dir / "w.ini").c_str()));
    const auto [sectors, bytes] = tt::Size(t);  // Get also fills in the end addresses
    if (size) *size = sectors * 10000 + bytes;
    const auto written = tt::Written(t, dir / "w.ifo");
    EXPECT_TRUE(!(std::is_same_v<T, CKestro_VMG_PTT>) || tt::Written(t, dir / "w2.ifo").empty());
    return written;
}

// Rebuilds VIDEO_TS.IFO at out as a host does: each sub-table whose count the source holds, then
// the management table lays out and writes the file. On failure `error` gets the error text.
inline bool AssembleVmg(const std::string& ini, const std::string& out,
                        std::string* error = nullptr) {
    CKestro_VMG_MAT mat;
    CKestro_PGCI codec;
    bool ok = true;
    auto check = [&](CBaseKestro& t, bool result) {
        if (!result && error) *error = tt::Error(t);
        ok = ok && result;
    };
    auto sub = [&](const char* section, const char* key, auto make, auto... extra) {
        if (!ok || tt::Value(ini, section, key) == "$") return;
        auto* t = (mat.*make)();
        check(*t, t->Asm(ini.c_str(), extra...));
    };
    using M = CKestro_VMG_MAT;
    sub("vmg_ptt_srpt", "vts_ttu_ns", &M::NewVMGM_PTT);
    sub("vmgm_pgci_ut", "vmgm_lu_ns", &M::NewVMGM_PGCI, &codec);
    sub("ptl_mait", "cty_ns", &M::NewVMGM_MAIT), sub("vts_atrt", "vts_ns", &M::NewVMGM_ATRT);
    sub("vmgm_c_adt", "vmgm_vob_ns", &M::NewVMGM_C_ADT);
    sub("vts_vobu_admap", "vobu_sa0001", &M::NewVMGM_VOBU_ADMAP);
    const int h = ok ? int(mat.CreateKestroFile(out.c_str())) : -1;
    if (h < 0) return false;
    check(mat, mat.Asm(ini.c_str(), h, out.c_str()));
    mat.CloseKestroFile(h);
    return ok;
}

}  // namespace vt

#endif
