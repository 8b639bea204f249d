// VMGI_MAT, the management table of VIDEO_TS.IFO, with its First Play PGC,
// and the ownership of every other table of the file.
//
// The record is the file's bytes 0-2291: the 1024-byte management table and
// a 1268-byte area for the First Play PGC, which always lies at byte 1024.
// It is kept in file byte order; the fields are decoded where they are used.
#include <algorithm>
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/vmg.h"
#include "vmg/vmg_layout.h"

using namespace kestro;
using namespace kestro::vmgi;

namespace {

// A text field: its characters up to the first zero, at most size of them.
std::string TextAt(const uint8_t* p, size_t size) {
    return std::string(p, std::find(p, p + size, 0));
}

// Stores a fresh table in slot, releasing the one it held, and returns it.
template <class T>
T* Fresh(std::unique_ptr<T>& slot) {
    slot = std::make_unique<T>();
    return slot.get();
}

}  // namespace

CKestro_VMG_MAT::CKestro_VMG_MAT() = default;

CKestro_VMG_MAT::~CKestro_VMG_MAT() { DeleteSubTables(); }

void CKestro_VMG_MAT::DeleteSubTables() {
    m_ptt.reset();
    m_pgci.reset();
    m_lu.reset();
    m_mait.reset();
    m_atrt.reset();
    m_txtdt.reset();
    m_cadt.reset();
    m_admap.reset();
}

uint32_t CKestro_VMG_MAT::Field32(size_t at) const { return GetBE32(m_record.data() + at); }
unsigned long CKestro_VMG_MAT::GetVMGM_PGCIT_SA() const { return Field32(kVmgmPgciUtSa); }
bool CKestro_VMG_MAT::HasFirstPlayPGC() const { return Field32(kFpPgcSa) != 0; }

// ---- Sub-table ownership ------------------------------------------------------

CKestro_VMG_PTT* CKestro_VMG_MAT::NewVMGM_PTT() { return Fresh(m_ptt); }
CKestro_VMGM_PGCI* CKestro_VMG_MAT::NewVMGM_PGCI() {
    // The language units describe the table being replaced.
    m_lu.reset();
    return Fresh(m_pgci);
}
CKestro_VMG_MAIT* CKestro_VMG_MAT::NewVMGM_MAIT() { return Fresh(m_mait); }
CKestro_VMG_ATRT* CKestro_VMG_MAT::NewVMGM_ATRT() { return Fresh(m_atrt); }
CKestro_VMG_CADT* CKestro_VMG_MAT::NewVMGM_C_ADT() { return Fresh(m_cadt); }
CKestro_VMGM_ADMAP* CKestro_VMG_MAT::NewVMGM_VOBU_ADMAP() { return Fresh(m_admap); }

void CKestro_VMG_MAT::DeleteVMGM_PTT() { m_ptt.reset(); }
void CKestro_VMG_MAT::DeleteVMGM_PGCI() {
    m_lu.reset();
    m_pgci.reset();
}
void CKestro_VMG_MAT::DeleteVMGM_MAIT() { m_mait.reset(); }
void CKestro_VMG_MAT::DeleteVMGM_ATRT() { m_atrt.reset(); }
void CKestro_VMG_MAT::DeleteVMGM_C_ADT() { m_cadt.reset(); }
void CKestro_VMG_MAT::DeleteVMGM_VOBU_ADMAP() { m_admap.reset(); }

// ---- Load -------------------------------------------------------------------------

int CKestro_VMG_MAT::Load(int hFile) {
    DeleteSubTables();
    // A short file leaves the rest of the record zero.
    m_record.fill(0);
    FileSeek(hFile, 0, 0);
    FileRead(hFile, m_record.data(), m_record.size());
    if (std::memcmp(m_record.data(), kVmgId, kIdSize) != 0) return 0;

    // Each loader seeks to its start sector itself; a table whose start
    // sector is 0 (absent) or whose loader refuses stays null. The menu VOB
    // file is not opened.
    m_ptt = LoadedOrNull<CKestro_VMG_PTT>(hFile, Field32(kTtSrptSa));
    m_pgci = LoadedOrNull<CKestro_VMGM_PGCI>(hFile, GetVMGM_PGCIT_SA());
    // The language units are read through the unit table object, so they
    // exist only when that table loaded.
    if (m_pgci) m_lu = LoadedOrNull<CKestro_VMGM_LU>(hFile, GetVMGM_PGCIT_SA(), m_pgci.get());
    m_mait = LoadedOrNull<CKestro_VMG_MAIT>(hFile, Field32(kPtlMaitSa));
    m_atrt = LoadedOrNull<CKestro_VMG_ATRT>(hFile, Field32(kVtsAtrtSa));
    m_txtdt = LoadedOrNull<CKestro_VMG_TXTDT>(hFile, Field32(kTxtdtMgSa));
    m_cadt = LoadedOrNull<CKestro_VMG_CADT>(hFile, Field32(kVmgmCAdtSa));
    m_admap = LoadedOrNull<CKestro_VMGM_ADMAP>(hFile, Field32(kVmgmVobuAdmapSa));
    return 1;
}

// ---- Details ----------------------------------------------------------------------

bool CKestro_VMG_MAT::Details(char* buf, int len) {
    const uint8_t* rec = m_record.data();
    const ByteView mat(rec, m_record.size());
    Report r(buf, len);
    for (const Field& f : kFields) {
        const uint8_t* p = rec + f.at;
        switch (f.form) {
        case Form::Text:
            if (f.empty && p[0] == 0)
                r.Text(f.empty);
            else
                r.Line(f.line, TextAt(p, f.size).c_str());
            break;
        case Form::Dec: r.Line(f.line, int(GetBE(mat, f.at, f.size))); break;
        case Form::Version: r.Line(f.line, p[0] >> 4, p[0] & 0x0F); break;
        case Form::Category: r.Line(f.line, GetBE32(p)); break;
        case Form::VolumeSet:
            r.Line(f.line, GetBE16(p), GetBE16(p + 2), (GetBE16(p + 4) >> 8) & 3);
            break;
        case Form::Bytes:
            // The line's format takes as many of the bytes as it shows.
            if (!f.countAt) r.Line(f.line, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
            for (int k = 1; f.countAt && r.ok() && k <= rec[f.countAt]; ++k)
                r.Line(f.line, k, p[k - 1]);
            break;
        }
    }
    if (!HasFirstPlayPGC()) {
        r.Line("VMG has no First Play PGC");
        return r.ok();
    }
    r.Line("VMG First Play PGC:");
    if (!r.ok()) return false;  // nothing is written at the cursor once a line was refused
    // The codec byte-swaps the command-table header of the PGC it reports,
    // in the record itself, and leaves it so: a second report or source run
    // of the same loaded object reads those counts byte-swapped (hosts load
    // afresh). The codec reads no further than the record's PGC area.
    uint8_t* pgc = m_record.data() + kTableSize;
    CKestro_PGCI codec;
    // The PGC report's room test leaves its indentation out, so it can write
    // that many characters beyond the room it is given; the room passed is
    // reduced by the indentation to keep it inside the caller's headroom. A
    // PGC report that does not fit is cut short; the result stays true.
    constexpr unsigned short kIndent = 2;
    codec.DetailsOfPGCI(kIndent, pgc, 0, r.Cursor(), r.Len() - int(r.Used()) - kIndent,
                        kFirstPlayMax);
    return true;
}

// ---- Disasm -----------------------------------------------------------------------

bool CKestro_VMG_MAT::Disasm(const char* iniPath) {
    const uint8_t* rec = m_record.data();
    // The management table starts a fresh source file; the sub-tables add
    // their sections to it afterwards.
    FileDelete(iniPath);
    Source src(iniPath, "vmgi_mat");
    const ByteView mat(rec, m_record.size());

    for (const Field& f : kFields) {
        const uint8_t* p = rec + f.at;
        switch (f.form) {
        case Form::Text: src.WriteRaw(f.key, TextAt(p, f.size).c_str()); break;
        case Form::Dec: src.Write(f.key, "%d", int(GetBE(mat, f.at, f.size))); break;
        case Form::Version: src.Write(f.key, "%d.%d", p[0] >> 4, p[0] & 0x0F); break;
        case Form::Category: src.Write(f.key, "x%08x", GetBE32(p)); break;
        case Form::VolumeSet:
            src.Write(f.key, "x%04x%04x%04x%04x", GetBE16(p), GetBE16(p + 2), GetBE16(p + 4),
                      GetBE16(p + 6));
            break;
        case Form::Bytes: src.Write(f.key, "x%s", HexDigits(mat.From(f.at), f.size).c_str()); break;
        }
    }

    if (HasFirstPlayPGC()) {
        // In the record itself, as in Details (the header swap stays).
        CKestro_PGCI codec;
        codec.DisasmPGCI(iniPath, m_record.data() + kTableSize, 0, "pgc_", "fp_pgci",
                         kFirstPlayMax);
    }
    INIFlushFiles();
    return true;
}

// ---- Write ------------------------------------------------------------------------

bool CKestro_VMG_MAT::Write(int hFile) {
    // The management table with the First Play PGC as Asm left it. Before any
    // Asm the end address is 0: one byte and the padding.
    const size_t n = std::min<size_t>(size_t(m_matEa) + 1, m_record.size());
    WriteSectorPadded(hFile, m_record.data(), n);
    return true;
}
