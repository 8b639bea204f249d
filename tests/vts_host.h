// The host side of a whole title set, as a program built on the library
// drives it: report every table, disassemble every table into one source,
// and rebuild the file from that source.
#ifndef KESTRO_TESTS_VTS_HOST_H
#define KESTRO_TESTS_VTS_HOST_H

#include <string>
#include <vector>

#include "kestro/vts.h"
#include "vts_util.h"

namespace vt {

// What a host does to report every table of a loaded driver. Returns the
// whole report; each table's own result is collected in `ok`.
inline std::string ReportAll(CKestro_VTS_MAT& mat, CKestro_PGCI& codec, std::vector<bool>& ok) {
    std::vector<char> buf(1 << 22);
    const int len = int(buf.size()) - 3;
    std::string all;
    auto take = [&](bool r) {
        ok.push_back(r);
        all += buf.data();
        buf[0] = 0;
    };
    take(mat.Details(buf.data(), len));
    if (auto* t = mat.GetVTS_PTT_SRPT()) take(t->Details(buf.data(), len));
    if (auto* t = mat.GetVTS_PGCIT()) take(t->Details(&codec, buf.data(), len));
    if (auto* t = mat.GetVTSM_PGCI_UT()) {
        take(t->Details(buf.data(), len));
        if (auto* lu = mat.GetVTSM_LU())
            take(lu->Details(buf.data(), len, &codec, t, mat.GetVTSM_PGCIT_SA()));
    }
    if (auto* t = mat.GetVTS_TMAPT()) take(t->Details(buf.data(), len));
    if (auto* t = mat.GetVTSM_C_ADT()) take(t->Details(buf.data(), len));
    if (auto* t = mat.GetVTSM_VOBU_ADMAP()) take(t->Details(buf.data(), len));
    if (auto* t = mat.GetVTS_C_ADT()) take(t->Details(buf.data(), len));
    if (auto* t = mat.GetVTS_VOBU_ADMAP()) take(t->Details(buf.data(), len));
    return all;
}

// The driver's section first (it starts a fresh file), then every table's,
// then the time-map entries joined into the source so that Asm finds them.
inline void DisasmAll(CKestro_VTS_MAT& mat, CKestro_PGCI& codec, const std::string& ini) {
    const char* p = ini.c_str();
    ASSERT_TRUE(mat.Disasm(p));
    if (auto* t = mat.GetVTS_PTT_SRPT()) {
        EXPECT_TRUE(t->Disasm(p));
    }
    if (auto* t = mat.GetVTS_PGCIT()) {
        EXPECT_TRUE(t->Disasm(p, &codec));
    }
    if (auto* t = mat.GetVTSM_PGCI_UT()) {
        EXPECT_TRUE(t->Disasm(p));
        if (auto* lu = mat.GetVTSM_LU()) lu->Disasm(p, &codec, t, mat.GetVTSM_PGCIT_SA());
    }
    if (auto* t = mat.GetVTS_TMAPT()) {
        EXPECT_TRUE(t->Disasm(p));
        EXPECT_TRUE(CKestro_VTS_TMAP::JoinTmapSideFiles(p));
    }
    if (auto* t = mat.GetVTSM_C_ADT()) {
        EXPECT_TRUE(t->Disasm(p));
    }
    if (auto* t = mat.GetVTSM_VOBU_ADMAP()) t->Disasm(p);
    if (auto* t = mat.GetVTS_C_ADT()) {
        EXPECT_TRUE(t->Disasm(p));
    }
    if (auto* t = mat.GetVTS_VOBU_ADMAP()) t->Disasm(p);
}

// Creates in `out` each table `loaded` holds, assembles it from the source,
// and builds the whole file at ifoPath.
inline bool AsmAll(const CKestro_VTS_MAT& loaded, CKestro_VTS_MAT& out, CKestro_PGCI& codec,
            const std::string& ini, const std::string& ifoPath, bool absolute) {
    const char* p = ini.c_str();
    if (loaded.GetVTS_PTT_SRPT()) out.NewVTS_PTT_SRPT()->Asm(p);
    if (loaded.GetVTS_PGCIT()) out.NewVTS_PGCIT()->Asm(p, &codec);
    if (loaded.GetVTSM_PGCI_UT()) out.NewVTSM_PGCI_UT()->Asm(p, &codec);
    if (loaded.GetVTS_TMAPT()) out.NewVTS_TMAPT()->Asm(p);
    if (loaded.GetVTSM_C_ADT()) out.NewVTSM_C_ADT()->Asm(p);
    if (loaded.GetVTSM_VOBU_ADMAP()) out.NewVTSM_VOBU_ADMAP()->Asm(p);
    if (loaded.GetVTS_C_ADT()) out.NewVTS_C_ADT()->Asm(p);
    if (loaded.GetVTS_VOBU_ADMAP()) out.NewVTS_VOBU_ADMAP()->Asm(p);
    vt::Output file(ifoPath);
    if (file.h == -1) return false;
    return absolute ? out.AsmAbs(p, static_cast<unsigned short>(file.h), ifoPath.c_str())
                    : out.Asm(p, file.h, ifoPath.c_str());
}

}  // namespace vt

#endif
