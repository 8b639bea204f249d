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

// A run's entries: the count its count byte gives, or its fixed number.
int RunCount(const ByteView& mat, const Field& f) {
    return f.countAt ? mat.U8(f.countAt) : f.fixedCount;
}

// The text of a field (of a run, entry k) as the report and the source show
// it; the 32-bit fields are read as held.
std::string FieldText(const ByteView& mat, const Field& f, bool report, int k = 1) {
    char text[32];
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
        case Form::Decimal32: Format(text, sizeof text, "%d", int(GetLE32(mat.data() + f.offset))); break;
        case Form::Hex32: Format(text, sizeof text, "%08x", GetLE32(mat.data() + f.offset)); break;
        case Form::Version:
            Format(text, sizeof text, "%d.%d", mat.U8(f.offset + 1) >> 4, mat.U8(f.offset + 1) & 15);
            break;
        case Form::Count: Format(text, sizeof text, "%d", mat.U8(f.offset)); break;
        case Form::HexBytes:
        case Form::MenuVideo: return HexRun(mat, f.offset, f.size);
        case Form::Run: return HexRun(mat, f.offset + f.size * size_t(k - 1), f.size);
    }
    return text;
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
        if (!f.report) continue;
        if (f.form != Form::Run) r.Line(f.report, FieldText(mat, f, true).c_str());
        for (int k = 1, n = f.form == Form::Run ? RunCount(mat, f) : 0; r.ok() && k <= n; ++k)
            r.Line(f.report, k, FieldText(mat, f, true, k).c_str());
    }
    return r.ok();
}

bool CKestro_VTS_MAT::Disasm(const char* iniPath) {
    FileDelete(iniPath);  // the management table starts a fresh source file
    const ByteView mat(m_mat.data(), m_mat.size());
    Source src(iniPath, kSection);
    for (const Field& f : kFields) {
        if (f.form != Form::Run) src.WriteRaw(f.key, FieldText(mat, f, false).c_str());
        for (int k = 1, n = f.form == Form::Run ? RunCount(mat, f) : 0; k <= n; ++k)
            src.WriteRaw(src.Key(f.key, k), FieldText(mat, f, false, k).c_str());
    }
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
