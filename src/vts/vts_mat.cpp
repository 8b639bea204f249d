// VTSI_MAT, the management table of a title set information file, and the
// ownership of the file's other tables: loading, report, source and writing.
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/vts.h"
#include "vts/vtsi_layout.h"

using namespace kestro;
using namespace kestro::vtsi;

namespace {

// Loads one sub-table into its slot; a table that is absent (start sector 0)
// does not stay.
template <class T, class... Args>
void LoadSubTable(std::unique_ptr<T>& slot, Args... args) {
    slot = std::make_unique<T>();
    if (!slot->Load(args...)) slot.reset();
}

// "%02x" for each of n bytes of the table, bytes beyond it reading as zero.
std::string HexRun(const ByteView& mat, size_t offset, size_t n) {
    static const char digits[] = "0123456789abcdef";
    std::string s;
    s.reserve(2 * n);
    for (size_t i = 0; i < n; ++i) {
        uint8_t b = mat.U8(offset + i);
        s += digits[b >> 4];
        s += digits[b & 15];
    }
    return s;
}

}  // namespace

CKestro_VTS_MAT::CKestro_VTS_MAT() : m_mat{} {}

CKestro_VTS_MAT::~CKestro_VTS_MAT() { DeleteSubTables(); }

void CKestro_VTS_MAT::DeleteSubTables() {
    m_ptt.reset();
    m_pgcit.reset();
    m_pgciUt.reset();
    m_lu.reset();
    m_tmap.reset();
    m_vtsmCadt.reset();
    m_vtsmAdmap.reset();
    m_vtsCadt.reset();
    m_vtsAdmap.reset();
}

// ---- Fields as held --------------------------------------------------------

unsigned long CKestro_VTS_MAT::Held32(size_t offset) const {
    return GetHeld32(m_mat.data() + offset);
}
unsigned long CKestro_VTS_MAT::GetVTS_PTT_SRPT_SA() const { return Held32(kPttSrptSa); }
unsigned long CKestro_VTS_MAT::GetVTS_PGCIT_SA() const { return Held32(kPgcitSa); }
unsigned long CKestro_VTS_MAT::GetVTSM_PGCIT_SA() const { return Held32(kVtsmPgciUtSa); }
unsigned long CKestro_VTS_MAT::GetVTS_TMAP_SA() const { return Held32(kTmaptSa); }
unsigned long CKestro_VTS_MAT::GetVTSM_C_ADT_SA() const { return Held32(kVtsmCadtSa); }
unsigned long CKestro_VTS_MAT::GetVTSM_VOUB_ADMAP_SA() const { return Held32(kVtsmAdmapSa); }
unsigned long CKestro_VTS_MAT::GetVTS_C_ADT_SA() const { return Held32(kVtsCadtSa); }
unsigned long CKestro_VTS_MAT::GetVTS_VOUB_ADMAP_SA() const { return Held32(kVtsAdmapSa); }
bool CKestro_VTS_MAT::LoadVTSM_VOBS() const { return Held32(kVtsmVobsSa) != 0; }
bool CKestro_VTS_MAT::LoadVTSTT_VOBS() const { return Held32(kVtsttVobsSa) != 0; }

// ---- Sub-table access ----------------------------------------------------------

CKestro_PTT_SRPT* CKestro_VTS_MAT::NewVTS_PTT_SRPT() {
    m_ptt = std::make_unique<CKestro_PTT_SRPT>();
    return m_ptt.get();
}
CKestro_VTS_PGCIT* CKestro_VTS_MAT::NewVTS_PGCIT() {
    m_pgcit = std::make_unique<CKestro_VTS_PGCIT>();
    return m_pgcit.get();
}
CKestro_VTSM_PGCI* CKestro_VTS_MAT::NewVTSM_PGCI_UT() {
    m_lu.reset();  // the language units describe the table being replaced
    m_pgciUt = std::make_unique<CKestro_VTSM_PGCI>();
    return m_pgciUt.get();
}
CKestro_VTSM_LU* CKestro_VTS_MAT::NewVTSM_LU() {
    m_lu = std::make_unique<CKestro_VTSM_LU>();
    return m_lu.get();
}
CKestro_VTS_TMAP* CKestro_VTS_MAT::NewVTS_TMAPT() {
    m_tmap = std::make_unique<CKestro_VTS_TMAP>();
    return m_tmap.get();
}
CKestro_VTSM_CADT* CKestro_VTS_MAT::NewVTSM_C_ADT() {
    m_vtsmCadt = std::make_unique<CKestro_VTSM_CADT>();
    return m_vtsmCadt.get();
}
CKestro_VTSM_ADMAP* CKestro_VTS_MAT::NewVTSM_VOBU_ADMAP() {
    m_vtsmAdmap = std::make_unique<CKestro_VTSM_ADMAP>();
    return m_vtsmAdmap.get();
}
CKestro_VTS_CADT* CKestro_VTS_MAT::NewVTS_C_ADT() {
    m_vtsCadt = std::make_unique<CKestro_VTS_CADT>();
    return m_vtsCadt.get();
}
CKestro_VTS_ADMAP* CKestro_VTS_MAT::NewVTS_VOBU_ADMAP() {
    m_vtsAdmap = std::make_unique<CKestro_VTS_ADMAP>();
    return m_vtsAdmap.get();
}

void CKestro_VTS_MAT::DeleteVTS_PTT_SRPT() { m_ptt.reset(); }
void CKestro_VTS_MAT::DeleteVTS_PGCIT() { m_pgcit.reset(); }
void CKestro_VTS_MAT::DeleteVTSM_PGCI_UT() { m_pgciUt.reset(); }
void CKestro_VTS_MAT::DeleteVTSM_LU() { m_lu.reset(); }
void CKestro_VTS_MAT::DeleteVTS_TMAPT() { m_tmap.reset(); }
void CKestro_VTS_MAT::DeleteVTSM_C_ADT() { m_vtsmCadt.reset(); }
void CKestro_VTS_MAT::DeleteVTSM_VOBU_ADMAP() { m_vtsmAdmap.reset(); }
void CKestro_VTS_MAT::DeleteVTS_C_ADT() { m_vtsCadt.reset(); }
void CKestro_VTS_MAT::DeleteVTS_VOBU_ADMAP() { m_vtsAdmap.reset(); }

// ---- Load ------------------------------------------------------------------------

int CKestro_VTS_MAT::Load(int hFile) {
    m_mat.fill(0);
    FileSeek(hFile, 0, 0);
    FileRead(hFile, m_mat.data(), m_mat.size());  // a short file leaves zeros
    if (std::memcmp(m_mat.data(), kVtsId, kIdSize) != 0) return 0;

    for (size_t offset : kAddressFields) PutHeld32(&m_mat[offset], GetBE32(&m_mat[offset]));
    LoadVTSM_VOBS();
    LoadVTSTT_VOBS();

    DeleteSubTables();
    LoadSubTable(m_ptt, hFile, GetVTS_PTT_SRPT_SA());
    LoadSubTable(m_pgcit, hFile, GetVTS_PGCIT_SA());
    LoadSubTable(m_pgciUt, hFile, GetVTSM_PGCIT_SA());
    if (m_pgciUt) LoadSubTable(m_lu, hFile, GetVTSM_PGCIT_SA(), m_pgciUt.get());
    LoadSubTable(m_tmap, hFile, GetVTS_TMAP_SA());
    LoadSubTable(m_vtsmCadt, hFile, GetVTSM_C_ADT_SA());
    LoadSubTable(m_vtsmAdmap, hFile, GetVTSM_VOUB_ADMAP_SA());
    LoadSubTable(m_vtsCadt, hFile, GetVTS_C_ADT_SA());
    LoadSubTable(m_vtsAdmap, hFile, GetVTS_VOUB_ADMAP_SA());
    return 1;
}

// ---- Report ----------------------------------------------------------------------

bool CKestro_VTS_MAT::Details(char* buf, int len) {
    ByteView mat(m_mat.data(), m_mat.size());
    Report out(buf, len);
    // The identifier has no terminator: printed as a string it runs on into
    // VTS_EA as held (least significant byte first) up to the first zero
    // byte, which is the established text of this line. It never runs past
    // the management table.
    const char* id = reinterpret_cast<const char*>(m_mat.data());
    const void* end = std::memchr(id, 0, m_mat.size());
    std::string idText(id, end ? size_t(static_cast<const char*>(end) - id) : m_mat.size());
    if (!out.Line("VTS Identifier: %s", idText.c_str())) return false;
    if (!out.Line("End address of VTS: %d", int(Held32(kVtsEa)))) return false;
    if (!out.Line("End address of VTSI: %d", int(Held32(kVtsiEa)))) return false;
    if (!out.Line("Specification version number: %d.%d", m_mat[kVern + 1] >> 4,
                  m_mat[kVern + 1] & 15))
        return false;
    if (!out.Line("VTS Category: %08x", unsigned(Held32(kVtsCat)))) return false;
    if (!out.Line("End byte address of VTSI_MAT: %d", int(Held32(kVtsiMatEa)))) return false;
    for (const auto& sa : kStartSectors)
        if (!out.Line(sa.report, int(Held32(sa.offset)))) return false;
    const uint8_t* m = m_mat.data();
    if (!out.Line("Video attributes of VTSM_VOBS: %02x%02x", m[256], m[257])) return false;
    if (!out.Line("Number of audio streams in VTSM_VOBS: %d", m[259])) return false;
    if (!out.Line("VTSM Audio attributes: %02x%02x%02x%02x%02x%02x%02x%02x", m[260], m[261],
                  m[262], m[263], m[264], m[265], m[266], m[267]))
        return false;
    if (!out.Line("Number of VTSM subpicture streams: %d", m[341])) return false;
    if (!out.Line("VTSM subpicture attributes: %02x%02x%02x%02x%02x%02x", m[342], m[343],
                  m[344], m[345], m[346], m[347]))
        return false;
    if (!out.Line("Video attributes of VTSTT_VOBS: %02x%02x", m[512], m[513])) return false;
    int audio = m[515];
    if (!out.Line("Number of audio streams in VTSTT_VOBS: %d", audio)) return false;
    for (int k = 1; k <= audio; ++k) {
        // Counts above 8 run past the audio area (and above 190 past the
        // table, read as zeros).
        size_t a = kVtsAstAtrt + 8 * size_t(k - 1);
        if (!out.Line("  Audio %d attributes: %02x%02x%02x%02x%02x%02x%02x%02x", k, mat.U8(a),
                      mat.U8(a + 1), mat.U8(a + 2), mat.U8(a + 3), mat.U8(a + 4), mat.U8(a + 5),
                      mat.U8(a + 6), mat.U8(a + 7)))
            return false;
    }
    int subpictures = m[597];
    if (!out.Line("Number of subpicture streams in VTSTT_VOBS: %d", subpictures)) return false;
    for (int k = 1; k <= subpictures; ++k) {
        size_t a = kVtsSpstAtrt + 6 * size_t(k - 1);
        if (!out.Line("  Subpicture stream %d attributes: %02x%02x%02x%02x%02x%02x", k, mat.U8(a),
                      mat.U8(a + 1), mat.U8(a + 2), mat.U8(a + 3), mat.U8(a + 4), mat.U8(a + 5)))
            return false;
    }
    return true;
}

// ---- Source ----------------------------------------------------------------------

bool CKestro_VTS_MAT::Disasm(const char* iniPath) {
    FileDelete(iniPath);  // the management table starts a fresh source file
    ByteView mat(m_mat.data(), m_mat.size());
    Source src(iniPath, kSection);
    src.Write("vts_id", "%.12s", reinterpret_cast<const char*>(m_mat.data()));
    src.Write("vts_ea", "%d", int(Held32(kVtsEa)));
    src.Write("vtsi_ea", "%d", int(Held32(kVtsiEa)));
    src.Write("vern", "%d.%d", m_mat[kVern + 1] >> 4, m_mat[kVern + 1] & 15);
    src.Write("vts_cat", "%08x", unsigned(Held32(kVtsCat)));
    src.Write("vtsi_mat_ea", "%d", int(Held32(kVtsiMatEa)));
    for (const auto& sa : kStartSectors) src.Write(sa.key, "%d", int(Held32(sa.offset)));
    src.WriteRaw("vtsm_v_atr", HexRun(mat, kVtsmVatr, 2).c_str());
    src.Write("vtsm_ast_ns", "%d", mat.U8(kVtsmAstNs + 1));
    src.WriteRaw("vtsm_ast_atr", HexRun(mat, kVtsmAstAtr, 8).c_str());
    src.Write("vtsm_spst_ns", "%d", mat.U8(kVtsmSpstNs + 1));
    src.WriteRaw("vtsm_spst_atr", HexRun(mat, kVtsmSpstAtr, 6).c_str());
    src.WriteRaw("vts_v_atr", HexRun(mat, kVtsVatr, 2).c_str());
    int audio = mat.U8(kVtsAstNs + 1);
    src.Write("vts_ast_ns", "%d", audio);
    for (int k = 1; k <= audio; ++k)
        src.WriteRaw(src.Key("vts_ast_atrt%02d", k),
                     HexRun(mat, kVtsAstAtrt + 8 * size_t(k - 1), 8).c_str());
    int subpictures = mat.U8(kVtsSpstNs + 1);
    src.Write("vts_spst_ns", "%d", subpictures);
    for (int k = 1; k <= subpictures; ++k)
        src.WriteRaw(src.Key("vts_spst_atrt%02d", k),
                     HexRun(mat, kVtsSpstAtrt + 6 * size_t(k - 1), 6).c_str());
    for (int k = 1; k <= kMultichannelStreams; ++k)
        src.WriteRaw(src.Key("vts_mu_ast_atrt%02d", k),
                     HexRun(mat, kVtsMuAstAtrt + 24 * size_t(k - 1), 24).c_str());
    INIFlushFiles();
    return true;
}

// ---- Writing -----------------------------------------------------------------------

bool CKestro_VTS_MAT::Write(int hFile) {
    FileWrite(hFile, m_mat.data(), m_mat.size());
    return true;
}

void CKestro_VTS_MAT::WriteAsmVTSI_MAT(unsigned short hFile) {
    FileWrite(hFile, m_mat.data(), m_mat.size());
}

bool CKestro_VTS_MAT::Asm(const char*) { return false; }

void CKestro_VTS_MAT::Get(unsigned long*, unsigned long*) {}
