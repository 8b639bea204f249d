// VTSI_MAT, the management table of a title set information file, and the
// ownership of the file's other tables: loading, report, source and writing.
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/vts.h"
#include "vts/vtsi_layout.h"

using namespace kestro;
using namespace kestro::vtsi;

namespace {

// The text of a field (of a run, entry k) as the report and the source show
// it; the 32-bit fields are read as held.
std::string FieldText(const ByteView& mat, const Field& f, bool report, int k) {
    char text[32] = {};
    const uint32_t held = f.size == 4 ? GetLE32(mat.data() + f.offset) : 0;  // 32-bit fields
    switch (f.form) {
    case Form::Id: {
        // The identifier has no terminator: in the report it runs on into
        // VTS_EA as held (least significant byte first) up to the first
        // zero byte, which is the established text of that line. It never
        // runs past the management table. The source gives 12 characters.
        const char* id = reinterpret_cast<const char*>(mat.data());
        const size_t n = report ? mat.size() : kIdSize;
        const void* end = std::memchr(id, 0, n);
        return std::string(id, end ? size_t(static_cast<const char*>(end) - id) : n);
    }
    case Form::Decimal32: Format(text, sizeof text, "%d", int(held)); break;
    case Form::Hex32: Format(text, sizeof text, "%08x", unsigned(held)); break;
    case Form::Version: {
        const uint8_t v = mat.U8(f.offset + 1);  // major << 4 | minor
        Format(text, sizeof text, "%d.%d", v >> 4, v & 15);
        break;
    }
    case Form::Count: Format(text, sizeof text, "%d", mat.U8(f.offset)); break;
    case Form::HexBytes:
    case Form::MenuVideo: return HexDigits(mat.From(f.offset), f.size);
    case Form::Run: return HexDigits(mat.From(f.offset + f.size * size_t(k - 1)), f.size);
    }
    return text;
}

// A fresh object in a sub-table slot, releasing the one held before.
template <class T>
T* Fresh(std::unique_ptr<T>& slot) {
    slot = std::make_unique<T>();
    return slot.get();
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

// Fields as held: the 32-bit fields least significant byte first after Load.
unsigned long CKestro_VTS_MAT::Held32(size_t offset) const { return GetLE32(&m_mat[offset]); }
unsigned long CKestro_VTS_MAT::GetVTSM_PGCIT_SA() const { return Held32(kVtsmPgciUtSa); }

// ---- Sub-table access ----------------------------------------------------------

CKestro_PTT_SRPT* CKestro_VTS_MAT::NewVTS_PTT_SRPT() { return Fresh(m_ptt); }
CKestro_VTS_PGCIT* CKestro_VTS_MAT::NewVTS_PGCIT() { return Fresh(m_pgcit); }
CKestro_VTSM_PGCI* CKestro_VTS_MAT::NewVTSM_PGCI_UT() {
    m_lu.reset();  // the language units describe the table being replaced
    return Fresh(m_pgciUt);
}
CKestro_VTSM_LU* CKestro_VTS_MAT::NewVTSM_LU() { return Fresh(m_lu); }
CKestro_VTS_TMAP* CKestro_VTS_MAT::NewVTS_TMAPT() { return Fresh(m_tmap); }
CKestro_VTSM_CADT* CKestro_VTS_MAT::NewVTSM_C_ADT() { return Fresh(m_vtsmCadt); }
CKestro_VTSM_ADMAP* CKestro_VTS_MAT::NewVTSM_VOBU_ADMAP() { return Fresh(m_vtsmAdmap); }
CKestro_VTS_CADT* CKestro_VTS_MAT::NewVTS_C_ADT() { return Fresh(m_vtsCadt); }
CKestro_VTS_ADMAP* CKestro_VTS_MAT::NewVTS_VOBU_ADMAP() { return Fresh(m_vtsAdmap); }

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
    for (const Field& f : kFields)
        if (f.form == Form::Decimal32 || f.form == Form::Hex32)
            PutLE32(&m_mat[f.offset], GetBE32(&m_mat[f.offset]));

    DeleteSubTables();
    m_ptt = LoadedOrNull<CKestro_PTT_SRPT>(hFile, Held32(kPttSrptSa));
    m_pgcit = LoadedOrNull<CKestro_VTS_PGCIT>(hFile, Held32(kPgcitSa));
    m_pgciUt = LoadedOrNull<CKestro_VTSM_PGCI>(hFile, GetVTSM_PGCIT_SA());
    if (m_pgciUt) m_lu = LoadedOrNull<CKestro_VTSM_LU>(hFile, GetVTSM_PGCIT_SA(), m_pgciUt.get());
    m_tmap = LoadedOrNull<CKestro_VTS_TMAP>(hFile, Held32(kTmaptSa));
    m_vtsmCadt = LoadedOrNull<CKestro_VTSM_CADT>(hFile, Held32(kVtsmCadtSa));
    m_vtsmAdmap = LoadedOrNull<CKestro_VTSM_ADMAP>(hFile, Held32(kVtsmAdmapSa));
    m_vtsCadt = LoadedOrNull<CKestro_VTS_CADT>(hFile, Held32(kVtsCadtSa));
    m_vtsAdmap = LoadedOrNull<CKestro_VTS_ADMAP>(hFile, Held32(kVtsAdmapSa));
    return 1;
}

// ---- Report and source -------------------------------------------------------------

bool CKestro_VTS_MAT::Details(char* buf, int len) {
    const ByteView mat(m_mat.data(), m_mat.size());
    Report r(buf, len);
    for (const Field& f : kFields) {
        for (int k = 1, n = Statements(f, m_mat.data()); f.report && r.ok() && k <= n; ++k) {
            const std::string text = FieldText(mat, f, true, k);
            if (f.form == Form::Run)
                r.Line(f.report, k, text.c_str());
            else
                r.Line(f.report, text.c_str());
        }
    }
    return r.ok();
}

bool CKestro_VTS_MAT::Disasm(const char* iniPath) {
    FileDelete(iniPath);  // the management table starts a fresh source file
    const ByteView mat(m_mat.data(), m_mat.size());
    Source src(iniPath, kSection);
    for (const Field& f : kFields)
        for (int k = 1, n = Statements(f, m_mat.data()); k <= n; ++k)
            src.WriteRaw(f.form == Form::Run ? src.Key(f.key, k) : f.key,
                         FieldText(mat, f, false, k).c_str());
    INIFlushFiles();
    return true;
}

// ---- Writing -----------------------------------------------------------------------

bool CKestro_VTS_MAT::Write(int hFile) {
    FileWrite(hFile, m_mat.data(), m_mat.size());
    return true;
}

bool CKestro_VTS_MAT::Asm(const char*) { return false; }

void CKestro_VTS_MAT::Get(unsigned long*, unsigned long*) {}
