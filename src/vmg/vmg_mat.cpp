// VMGI_MAT, the management table of VIDEO_TS.IFO, with its First Play PGC,
// and the ownership of every other table of the file.
//
// The record is the file's bytes 0-2291: the 1024-byte management table and
// a 1268-byte area for the First Play PGC, which always lies at byte 1024.
// It is kept in file byte order; the fields are decoded where they are used.
#include <algorithm>
#include <cstring>

#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/vmg.h"
#include "vmg/vmg_layout.h"

using namespace kestro;
using namespace kestro::vmgi;

namespace {

const char kVmgId[] = "DVDVIDEO-VMG";

// A sub-table object that its loader accepted, or null.
template <class T, class... Args>
std::unique_ptr<T> Loaded(Args... args) {
    auto t = std::make_unique<T>();
    if (!t->Load(args...)) t.reset();
    return t;
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
uint16_t CKestro_VMG_MAT::Field16(size_t at) const { return GetBE16(m_record.data() + at); }

unsigned long CKestro_VMG_MAT::GetVMGM_PGCIT_SA() const { return Field32(kVmgmPgciUtSa); }
unsigned long CKestro_VMG_MAT::GetVMG_PTT_SRPT_SA() const { return Field32(kTtSrptSa); }
unsigned long CKestro_VMG_MAT::GetVMG_MAIT_SA() const { return Field32(kPtlMaitSa); }
unsigned long CKestro_VMG_MAT::GetVMG_ATRT_SA() const { return Field32(kVtsAtrtSa); }
unsigned long CKestro_VMG_MAT::GetVMG_TXTDT_SA() const { return Field32(kTxtdtMgSa); }
unsigned long CKestro_VMG_MAT::GetVMG_C_ADT_SA() const { return Field32(kVmgmCAdtSa); }
unsigned long CKestro_VMG_MAT::GetVMGM_VOBU_ADMAP_SA() const { return Field32(kVmgmVobuAdmapSa); }
bool CKestro_VMG_MAT::LoadVMGM_VOBS() const { return Field32(kVmgmVobsSa) != 0; }
bool CKestro_VMG_MAT::HasFirstPlayPGC() const { return Field32(kFpPgcSa) != 0; }

// ---- Sub-table ownership ------------------------------------------------------

CKestro_VMG_PTT* CKestro_VMG_MAT::NewVMGM_PTT() {
    m_ptt = std::make_unique<CKestro_VMG_PTT>();
    return m_ptt.get();
}
CKestro_VMGM_PGCI* CKestro_VMG_MAT::NewVMGM_PGCI() {
    // The language units describe the table being replaced.
    m_lu.reset();
    m_pgci = std::make_unique<CKestro_VMGM_PGCI>();
    return m_pgci.get();
}
CKestro_VMG_MAIT* CKestro_VMG_MAT::NewVMGM_MAIT() {
    m_mait = std::make_unique<CKestro_VMG_MAIT>();
    return m_mait.get();
}
CKestro_VMG_ATRT* CKestro_VMG_MAT::NewVMGM_ATRT() {
    m_atrt = std::make_unique<CKestro_VMG_ATRT>();
    return m_atrt.get();
}
CKestro_VMG_CADT* CKestro_VMG_MAT::NewVMGM_C_ADT() {
    m_cadt = std::make_unique<CKestro_VMG_CADT>();
    return m_cadt.get();
}
CKestro_VMGM_ADMAP* CKestro_VMG_MAT::NewVMGM_VOBU_ADMAP() {
    m_admap = std::make_unique<CKestro_VMGM_ADMAP>();
    return m_admap.get();
}

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

    LoadVMGM_VOBS();  // the menu VOB file itself is not opened
    // Each loader seeks to its start sector itself; a table whose start
    // sector is 0 (absent) or whose loader refuses stays null.
    m_ptt = Loaded<CKestro_VMG_PTT>(hFile, GetVMG_PTT_SRPT_SA());
    m_pgci = Loaded<CKestro_VMGM_PGCI>(hFile, GetVMGM_PGCIT_SA());
    // The language units are read through the unit table object, so they
    // exist only when that table loaded.
    if (m_pgci) m_lu = Loaded<CKestro_VMGM_LU>(hFile, GetVMGM_PGCIT_SA(), m_pgci.get());
    m_mait = Loaded<CKestro_VMG_MAIT>(hFile, GetVMG_MAIT_SA());
    m_atrt = Loaded<CKestro_VMG_ATRT>(hFile, GetVMG_ATRT_SA());
    m_txtdt = Loaded<CKestro_VMG_TXTDT>(hFile, GetVMG_TXTDT_SA());
    m_cadt = Loaded<CKestro_VMG_CADT>(hFile, GetVMG_C_ADT_SA());
    m_admap = Loaded<CKestro_VMGM_ADMAP>(hFile, GetVMGM_VOBU_ADMAP_SA());
    return 1;
}

// ---- Details ----------------------------------------------------------------------

bool CKestro_VMG_MAT::Details(char* buf, int len) {
    const uint8_t* rec = m_record.data();
    Report r(buf, len);
    // Neither text has a terminator of its own in the record.
    char id[kIdSize + 1] = {};
    std::memcpy(id, rec, kIdSize);
    char provider[kProviderSize + 1] = {};
    std::memcpy(provider, rec + kProviderId, kProviderSize);

    if (!r.Line("VMG Identifier: %s", id) ||
        !r.Line("End address of VMG: %d", int(Field32(kVmgEa))) ||
        !r.Line("End address of VMGI: %d", int(Field32(kVmgiEa))) ||
        !r.Line("Specification version number: %d.%d", rec[kVersion] >> 4, rec[kVersion] & 0x0F) ||
        !r.Line("VMG Category: %x", Field32(kCategory)) ||
        !r.Line("VMG Number of Vols: %d This Vol: %d Disk side ID: %d", Field16(kVolumeSet),
                Field16(kVolumeSet + 2), (Field16(kVolumeSet + 4) >> 8) & 3) ||
        !r.Line("VMG Number of Title Sets: %d", Field16(kTitleSets)))
        return false;
    if (rec[kProviderId] != 0 ? !r.Line("VMG Provider ID: %s", provider)
                              : !r.Line("VMG No Provider ID available:"))
        return false;
    const uint8_t* pos = rec + kPosCode;
    if (!r.Line("VMG POS Code: %x%x%x%x%x%x%x%x", pos[0], pos[1], pos[2], pos[3], pos[4], pos[5],
                pos[6], pos[7]) ||
        !r.Line("End byte address of VMGI_MAT: %d", int(Field32(kVmgiMatEa))) ||
        !r.Line("Start byte address of First Play PGC FP_PGC: %d", int(Field32(kFpPgcSa))))
        return false;
    static const struct {
        size_t at;
        const char* line;
    } kStartSectors[] = {
        {kVmgmVobsSa, "Start sector address of VMGM_VOBS: %d"},
        {kTtSrptSa, "Start sector address of VMG_PTT_SRPT: %d"},
        {kVmgmPgciUtSa, "Start sector address of VMGM_PGCI_UT: %d"},
        {kPtlMaitSa, "Start sector address of VMG_PTL_MAIT: %d"},
        {kVtsAtrtSa, "Start sector address of VMG_VTS_ATRT: %d"},
        {kTxtdtMgSa, "Start sector address of VMG_TXTDT_MG: %d"},
        {kVmgmCAdtSa, "Start sector address of VMGM_C_ADT: %d"},
        {kVmgmVobuAdmapSa, "Start sector address of VMGM_VOBU_ADMAP: %d"},
    };
    for (const auto& s : kStartSectors) {
        char line[96];
        Format(line, sizeof line, s.line, int(Field32(s.at)));
        if (!r.Text(line)) return false;
    }
    if (!r.Line("Video attributes of VMGM_VOBS: %02x%02x", rec[kMenuVideo], rec[kMenuVideo + 1]))
        return false;
    // One byte per stream is shown, not the stream's whole attribute.
    if (!r.Line("Number of audio streams in VMGM_VOBS: %d", rec[kMenuAudioCount])) return false;
    for (int k = 1; k <= rec[kMenuAudioCount]; ++k)
        if (!r.Line("  Audio %d attributes: %x", k, rec[kMenuAudio + k - 1])) return false;
    if (!r.Line("VMGM Number of subpicture streams: %d", rec[kMenuSubpCount])) return false;
    for (int k = 1; k <= rec[kMenuSubpCount]; ++k)
        if (!r.Line("  Subpicture stream %d attributes: %x", k, rec[kMenuSubp + k - 1]))
            return false;

    if (!HasFirstPlayPGC()) return r.Line("VMG has no First Play PGC");
    if (!r.Line("VMG First Play PGC:")) return false;
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
    Source s(iniPath, "vmgi_mat");

    char id[kIdSize + 1] = {};
    std::memcpy(id, rec, kIdSize);
    char provider[kProviderSize + 1] = {};
    std::memcpy(provider, rec + kProviderId, kProviderSize);

    s.WriteRaw("vmg_id", id);
    s.Write("vmg_ea", "%d", int(Field32(kVmgEa)));
    s.Write("vmgi_ea", "%d", int(Field32(kVmgiEa)));
    s.Write("vern", "%d.%d", rec[kVersion] >> 4, rec[kVersion] & 0x0F);
    s.Write("vmg_cat", "x%08x", Field32(kCategory));
    s.Write("vlms_id", "x%04x%04x%04x%04x", Field16(kVolumeSet), Field16(kVolumeSet + 2),
            Field16(kVolumeSet + 4), Field16(kVolumeSet + 6));
    s.Write("vmg_ns", "%d", Field16(kTitleSets));
    s.WriteRaw("pvr_id", provider);
    const uint8_t* pos = rec + kPosCode;
    s.Write("pos_cd", "x%02x%02x%02x%02x%02x%02x%02x%02x", pos[0], pos[1], pos[2], pos[3], pos[4],
            pos[5], pos[6], pos[7]);
    s.Write("vmgi_mat_ea", "%d", int(Field32(kVmgiMatEa)));
    s.Write("fp_pgci_sa", "%d", int(Field32(kFpPgcSa)));
    static const struct {
        const char* key;
        size_t at;
    } kStartSectors[] = {
        {"vmgm_vobs_sa", kVmgmVobsSa},   {"tt_srpt_sa", kTtSrptSa},
        {"vmgm_pgci_ut_sa", kVmgmPgciUtSa}, {"ptl_mait_sa", kPtlMaitSa},
        {"vts_atrt_sa", kVtsAtrtSa},     {"txtdt_mg_sa", kTxtdtMgSa},
        {"vmgm_c_adt_sa", kVmgmCAdtSa},  {"vmgm_vobu_admap_sa", kVmgmVobuAdmapSa},
    };
    for (const auto& k : kStartSectors) s.Write(k.key, "%d", int(Field32(k.at)));
    s.Write("vmgm_v_atr", "x%02x%02x", rec[kMenuVideo], rec[kMenuVideo + 1]);
    s.Write("vmgm_ast_ns", "%d", rec[kMenuAudioCount]);
    const uint8_t* a = rec + kMenuAudio;
    s.Write("vmgm_ast_atr", "x%02x%02x%02x%02x%02x%02x%02x%02x", a[0], a[1], a[2], a[3], a[4], a[5],
            a[6], a[7]);
    s.Write("vmgm_spst_ns", "%d", rec[kMenuSubpCount]);
    const uint8_t* sp = rec + kMenuSubp;
    s.Write("vmgm_spst_atr", "x%02x%02x%02x%02x%02x%02x", sp[0], sp[1], sp[2], sp[3], sp[4], sp[5]);

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
    FileWrite(hFile, m_record.data(), n);
    PadToSector(hFile);
    return true;
}
