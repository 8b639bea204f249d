// PTL_MAIT, the parental management information table of VIDEO_TS.IFO.
//
// Layout: number of countries, number of title sets, end address, then one
// 8-byte search pointer per country (country code, unused word, start byte
// of the country's PTL_MAI, unused word). The parental level masks are not
// interpreted and the table is never rebuilt.
#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/vmg.h"

using namespace kestro;

namespace {
constexpr size_t kPointerSize = 8;
}

CKestro_VMG_MAIT::CKestro_VMG_MAIT() = default;
CKestro_VMG_MAIT::~CKestro_VMG_MAIT() = default;

int CKestro_VMG_MAIT::Load(int hFile, unsigned long startSector) {
    if (!m_loaded.LoadTableHeader(hFile, startSector)) return 0;
    // The second header word is the number of title sets here, not a
    // reserved word: host order like the count. Only the low 16 bits of the
    // end address are read back as the body.
    uint8_t raw[2];
    std::memcpy(raw, &m_loaded.reserved, 2);
    m_loaded.reserved = GetBE16(raw);
    m_loaded.bodySize = m_loaded.endAddress & 0xFFFF;
    return 1;
}

bool CKestro_VMG_MAIT::Details(char* buf, int len) {
    Report r(buf, len);
    BodyScope body(m_loaded);
    r.Line("Number of Countries: %d", m_loaded.count);
    r.Line("Number of Video Title Sets: %d", m_loaded.reserved);
    r.Line("End byte address of PTL_MAIT table: %d", int(m_loaded.endAddress));
    // Every country the count announces is listed, zeros past the body
    // included (the loader keeps only the end address's low 16 bits, so a
    // large table is read back cut): the one count not clamped to the body.
    for (int i = 1; r.ok() && i <= m_loaded.count; ++i) {
        ByteView p = body.View().From(kPointerSize * (i - 1));
        r.Line("  Country Code of %d: %c%c", i, p.U8(0), p.U8(1));
        r.Line("  Start byte address of PTL_MAI of %d: %d", i, p.BE16(4));
    }
    // This report ends without the closing line end the other tables write.
    return r.ok();
}

bool CKestro_VMG_MAIT::Disasm(const char* iniPath) {
    BodyScope body(m_loaded);
    Source src(iniPath, "ptl_mait");
    src.Write("cty_ns", "%d", m_loaded.count);
    src.Write("vts_ns", "%d", m_loaded.reserved);
    src.Write("ptl_maait_ea", "%d", int(m_loaded.endAddress));
    // The per-country statements go to the title search pointer section;
    // their keys do not collide with that table's.
    src.SetSection("vmg_ptt_srpt");
    for (int i = 1; i <= m_loaded.count; ++i) {
        ByteView p = body.View().From(kPointerSize * (i - 1));
        src.Write(src.Key("ptl_mai_srp%02d_cty_cd", i), "%c%c", p.U8(0), p.U8(1));
        src.Write(src.Key("ptl_mai_srp%02d_ptl_mai_sa", i), "%d", p.BE16(4));
    }
    INIFlushFiles();
    return true;
}

// The parental table is not carried into an assembled file.
bool CKestro_VMG_MAIT::Asm(const char*) { return true; }
bool CKestro_VMG_MAIT::Write(int) { return true; }

void CKestro_VMG_MAIT::Get(unsigned long* sectors, unsigned long* bytes) {
    if (sectors) *sectors = 0;
    if (bytes) *bytes = 0;
}
