// TXTDT_MG, the text data manager of VIDEO_TS.IFO. Only its 20-byte header is
// read: a 12-character identifier, an unused word, the number of text
// language units and the end address. The language units are not
// interpreted and the table is never rebuilt.
#include <cstring>

#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/vmg.h"

using namespace kestro;

namespace {
constexpr size_t kIdSize = 12;
constexpr size_t kUnitsAt = 14;  // number of text language units
constexpr size_t kEndAt = 16;    // end address
}  // namespace

CKestro_VMG_TXTDT::CKestro_VMG_TXTDT() = default;
CKestro_VMG_TXTDT::~CKestro_VMG_TXTDT() = default;

int CKestro_VMG_TXTDT::Load(int hFile, unsigned long startSector) {
    if (startSector == 0) return 0;
    FileSeek(hFile, static_cast<unsigned long>(uint32_t(startSector * kSector)), 0);
    m_header.fill(0);
    FileRead(hFile, m_header.data(), m_header.size());
    m_body.hFile = static_cast<uint16_t>(hFile);
    m_body.bodyPos = static_cast<uint32_t>(FileTell(hFile));
    m_body.bodySize = GetBE32(m_header.data() + kEndAt) & 0xFFFF;
    return 1;
}

bool CKestro_VMG_TXTDT::Details(char* buf, int len) {
    Report r(buf, len);
    // The body is read back as for every loaded table, although neither the
    // report nor the source uses it (a failed read shows in LastFileError).
    BodyScope body(m_body);
    r.Line("Number of Text Language Units %d", GetBE16(m_header.data() + kUnitsAt));
    r.Line("End byte address of VMG_TXTDT_MGI table: %d", int(GetBE32(m_header.data() + kEndAt)));
    // This report ends without the closing line end the other tables write.
    return r.ok();
}

bool CKestro_VMG_TXTDT::Disasm(const char* iniPath) {
    BodyScope body(m_body);
    // The identifier has no terminator of its own: at most its 12 characters.
    char id[kIdSize + 1] = {};
    std::memcpy(id, m_header.data(), kIdSize);
    Source src(iniPath, "txtdt_mg");
    src.WriteRaw("txtdt_id", id);
    src.Write("txtdt_lu_ns", "%d", GetBE16(m_header.data() + kUnitsAt));
    src.Write("txtdt_mg_ea", "%d", int(GetBE32(m_header.data() + kEndAt)));
    INIFlushFiles();
    return true;
}

bool CKestro_VMG_TXTDT::Asm(const char*) { return false; }
bool CKestro_VMG_TXTDT::Write(int) { return false; }
void CKestro_VMG_TXTDT::Get(unsigned long*, unsigned long*) {}
