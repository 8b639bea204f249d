// How a host drives a whole VIDEO_TS.IFO through the library: load, report
// and disassemble every table, and rebuild the file from the source.
#ifndef KESTRO_TESTS_VMG_HOST_H
#define KESTRO_TESTS_VMG_HOST_H

#include <string>
#include <vector>

#include "kestro/vmg.h"
#include "vmg_test_util.h"

namespace vt {

// The reports of the management table and of every sub-table it holds, in
// file order. `room` is the buffer given to each Details.
inline std::string ReportAll(CKestro_VMG_MAT& mat, int room = 1 << 20) {
    std::vector<char> buf(size_t(room) + 3);
    std::string all;
    auto take = [&](auto&& details) {
        std::fill(buf.begin(), buf.end(), 0);
        details(buf.data(), room);
        all += buf.data();
    };
    CKestro_PGCI codec;
    take([&](char* b, int n) { return mat.Details(b, n); });
    if (auto* t = mat.GetVMG_PTT_SRPT()) take([&](char* b, int n) { return t->Details(b, n); });
    if (auto* t = mat.GetVMGM_PGCI_UT()) take([&](char* b, int n) { return t->Details(b, n); });
    if (auto* lu = mat.GetVMGM_LU())
        take([&](char* b, int n) {
            return lu->Details(b, n, &codec, mat.GetVMGM_PGCI_UT(), mat.GetVMGM_PGCIT_SA());
        });
    if (auto* t = mat.GetVMG_MAIT()) take([&](char* b, int n) { return t->Details(b, n); });
    if (auto* t = mat.GetVMG_ATRT()) take([&](char* b, int n) { return t->Details(b, n); });
    if (auto* t = mat.GetVMG_TXTDT()) take([&](char* b, int n) { return t->Details(b, n); });
    if (auto* t = mat.GetVMGM_C_ADT()) take([&](char* b, int n) { return t->Details(b, n); });
    if (auto* t = mat.GetVMGM_VOBU_ADMAP()) take([&](char* b, int n) { return t->Details(b, n); });
    return all;
}

// The source of a loaded VIDEO_TS.IFO: the management table first (it
// starts a fresh file), then every sub-table adds its sections.
inline void DisasmAll(CKestro_VMG_MAT& mat, const std::string& ini) {
    const char* p = ini.c_str();
    CKestro_PGCI codec;
    mat.Disasm(p);
    if (auto* t = mat.GetVMG_PTT_SRPT()) t->Disasm(p);
    if (auto* t = mat.GetVMGM_PGCI_UT()) t->Disasm(p);
    if (auto* lu = mat.GetVMGM_LU())
        lu->Disasm(p, mat.GetVMGM_PGCIT_SA(), &codec, mat.GetVMGM_PGCI_UT());
    if (auto* t = mat.GetVMG_MAIT()) t->Disasm(p);
    if (auto* t = mat.GetVMG_ATRT()) t->Disasm(p);
    if (auto* t = mat.GetVMG_TXTDT()) t->Disasm(p);
    if (auto* t = mat.GetVMGM_C_ADT()) t->Disasm(p);
    if (auto* t = mat.GetVMGM_VOBU_ADMAP()) t->Disasm(p);
}

// Rebuilds VIDEO_TS.IFO at outPath from a source: each sub-table whose count
// statement the source holds is created and assembled, then the management
// table lays the file out and writes it. The menu VOB file, if any, is
// looked for next to outPath. On failure `error` gets the failing object's
// error text and no file is written by the management table.
inline bool AssembleVmg(const std::string& ini, const std::string& outPath,
                        std::string* error = nullptr) {
    const char* p = ini.c_str();
    CKestro_VMG_MAT mat;
    CKestro_PGCI codec;
    char msg[KESTRO_ERROR_TEXT] = {};
    auto has = [&](const char* section, const char* key) { return Value(ini, section, key) != "$"; };
    auto fail = [&](CBaseKestro& t) {
        t.GetErrorMessage(msg, sizeof msg);
        if (error) *error = msg;
        return false;
    };
    if (has("vmg_ptt_srpt", "vts_ttu_ns")) {
        auto* t = mat.NewVMGM_PTT();
        if (!t->Asm(p)) return fail(*t);
    }
    if (has("vmgm_pgci_ut", "vmgm_lu_ns")) {
        auto* t = mat.NewVMGM_PGCI();
        if (!t->Asm(p, &codec)) return fail(*t);
    }
    if (has("ptl_mait", "cty_ns")) mat.NewVMGM_MAIT()->Asm(p);
    if (has("vts_atrt", "vts_ns")) {
        auto* t = mat.NewVMGM_ATRT();
        if (!t->Asm(p)) return fail(*t);
    }
    if (has("vmgm_c_adt", "vmgm_vob_ns")) {
        auto* t = mat.NewVMGM_C_ADT();
        if (!t->Asm(p)) return fail(*t);
    }
    if (has("vts_vobu_admap", "vobu_sa0001")) {
        auto* t = mat.NewVMGM_VOBU_ADMAP();
        if (!t->Asm(p)) return fail(*t);
    }
    const int h = int(mat.CreateKestroFile(outPath.c_str()));
    if (h < 0) return false;
    const bool ok = mat.Asm(p, h, outPath.c_str());
    mat.CloseKestroFile(h);
    if (!ok) return fail(mat);
    return true;
}

}  // namespace vt

#endif
