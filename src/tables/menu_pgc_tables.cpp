// Menu PGC information unit tables (VMGM_PGCI_UT, VTSM_PGCI_UT) and their
// language units: one behaviour, two descriptions.
//
// Layout: an 8-byte header (unit count, reserved, end address), an 8-byte
// search pointer per language unit (language code, a byte not read, menu
// existence flags, start byte of the unit), then the units. A unit: an
// 8-byte header (PGC count, reserved, end address), an 8-byte search
// pointer per PGC (category, start byte within the unit), then the binary
// PGCs. Every number is big-endian.
#include <algorithm>
#include <climits>
#include <memory>
#include <string>

#include "frame/detail.h"
#include "ini/ini_batch.h"
#include "kestro/ini.h"
#include "kestro/tables.h"
#include "pgc/pgc_header.h"
#include "tables/kinds.h"

using namespace kestro;

namespace {

const MenuPgcKind kVmgmMenus = {
    "vmgm",
    "VMGM",
    "Video Manager",
    /*wrapIllegalFormat=*/false,
    /*clearLoadedViewFirst=*/false,
    /*unitCountPreamble=*/true,
    /*breakAfterUnitEndLine=*/false,
    /*byteAddressNumberedByLine=*/true,
    /*pgcSeparator=*/" \r\n",
};
const MenuPgcKind kVtsmMenus = {
    "vtsm",
    "VTSM",
    "Video Title Set",
    /*wrapIllegalFormat=*/true,
    /*clearLoadedViewFirst=*/true,
    /*unitCountPreamble=*/false,
    /*breakAfterUnitEndLine=*/true,
    /*byteAddressNumberedByLine=*/false,
    /*pgcSeparator=*/"\r\n",
};

// Units and PGCs the language-unit reports and sources walk: the capacity of
// the format (16 units, 99 PGCs each). Counts beyond it come only from
// damaged files; walking them would re-disassemble zeros thousands of times
// (each PGC's source flushes the whole file), so they are cut here. Every
// well-formed table lies within these limits.
constexpr uint32_t kMaxLoadedUnits = CKestroMenuPgcTable::kMaxUnits;
constexpr uint32_t kMaxUnitPgcs = CKestroMenuPgcTable::kMaxPgcs;

// Room a report may use beyond the len its caller gives: the closing line
// break and the terminator.
constexpr size_t kReportHeadroom = 3;
// A PGC report is at most some 200,000 lines of under 128 characters (three
// 16-bit command counts, 255 cells): a room beyond this never cuts one short.
constexpr size_t kMaxPgcReport = size_t(1) << 26;
// What a PGC report may write beyond its room: indentation, line break, NUL.
constexpr size_t kScratchSlack = 16;

// A member's source sections and the key prefix of its PGCs.
std::string TableSection(const MenuPgcKind& k) { return std::string(k.key) + "_pgci_ut"; }
std::string UnitSection(const MenuPgcKind& k) { return std::string(k.key) + "_lu"; }
std::string PgcPrefix(const MenuPgcKind& k) { return std::string(k.key) + "_pgc_"; }

}  // namespace

// ============================================================================
// Unit table
// ============================================================================

CKestroMenuPgcTable::CKestroMenuPgcTable(const MenuPgcKind& kind) : m_kind(&kind), m_header{} {}

CKestroMenuPgcTable::~CKestroMenuPgcTable() = default;

int CKestroMenuPgcTable::LoadTable(int hFile, unsigned long startSector) {
    if (m_kind->clearLoadedViewFirst) m_loaded = LoadedTable();
    if (!m_loaded.LoadTableHeader(hFile, startSector)) return 0;
    m_loaded.bodySize = m_loaded.endAddress & 0xFFFF;
    return 1;
}

unsigned long CKestroMenuPgcTable::UnitPosition(unsigned short index, unsigned long startSector) {
    // Only the one start byte is needed, so only it is read back; a pointer
    // beyond the loaded search pointers reads as 0.
    uint32_t start = 0;
    uint32_t at = 8u * index + 4;
    if (at + 4 <= m_loaded.bodySize) {
        uint32_t saved = uint32_t(FileTell(m_loaded.hFile));
        FileSeek(m_loaded.hFile, m_loaded.bodyPos + at, 0);
        uint8_t b[4] = {};
        FileRead(m_loaded.hFile, b, 4);
        FileSeek(m_loaded.hFile, saved, 0);
        start = GetBE32(b);
    }
    if (start == 0) return 0;
    return uint32_t(startSector * kSector + start);
}

// The unit search pointers listed: those the body really holds, and no more
// than the 16 a table can hold (its units are read no further, and a source
// with more would be refused).
bool CKestroMenuPgcTable::Details(char* buf, int len) {
    BodyScope scope(m_loaded);
    const ByteView srp = scope.View();
    Report r(buf, len);
    const MenuPgcKind& k = *m_kind;
    r.Line("Number of %s_PGCI_LUs: %d", k.name, m_loaded.count);
    r.Line("End byte address of %s_PGCI_LUs table: %d", k.name, int(m_loaded.endAddress));
    for (int i = 1, n = std::min(scope.Held(8), kMaxUnits); r.ok() && i <= n; ++i) {
        const ByteView e = srp.From(8 * size_t(i - 1));
        r.Line("  %s Menu Language Code %d: %c%c", k.menu, i, e.U8(0), e.U8(1));
        r.Line("  %s Menu Existence %d: %x", k.menu, i, unsigned(e.U8(3)));
        r.Line("  %s Menu Language Start Address %d: %d", k.menu, i, int(e.BE32(4)));
    }
    return r.ok();
}

bool CKestroMenuPgcTable::Disasm(const char* iniPath) {
    BodyScope scope(m_loaded);
    const ByteView srp = scope.View();
    const char* const key = m_kind->key;
    Source src(iniPath, TableSection(*m_kind).c_str());
    src.Write(src.Key("%s_lu_ns", key), "%d", m_loaded.count);
    src.Write(src.Key("%s_pgci_lu_ea", key), "%d", int(m_loaded.endAddress));
    for (int i = 1, n = std::min(scope.Held(8), kMaxUnits); i <= n; ++i) {
        const ByteView e = srp.From(8 * size_t(i - 1));
        src.Write(src.Key("%s_lu_srp%02d_lcd", key, i), "%c%c", e.U8(0), e.U8(1));
        src.Write(src.Key("%s_lu_srp%02d_exst", key, i), "%02x", unsigned(e.U8(3)));
        src.Write(src.Key("%s_lu_srp%02d_lu_sa", key, i), "%d", int(e.BE32(4)));
    }
    INIFlushFiles();
    return true;
}

unsigned long CKestroMenuPgcTable::AssembledBytes() const {
    unsigned long total = 8 + 16ul * m_units.size();
    for (const auto& u : m_units)
        for (const auto& p : u.pgcs) total += 8 + p.image.size();
    return total;
}

bool CKestroMenuPgcTable::Asm(const char* iniPath, CKestro_PGCI* pgc) {
    const MenuPgcKind& k = *m_kind;
    m_units.clear();
    std::memset(m_header, 0, sizeof m_header);

    Source table(iniPath, TableSection(k).c_str());
    if (!table.Read(table.Key("%s_lu_ns", k.key))) return false;
    int n = table.Int();
    if (n < 0 || n > kMaxUnits) {
        SetError("[%s] %d language units in %s: a table holds 0 to %d", table.LastKey(), n,
                 table.Section(), kMaxUnits);
        return false;
    }
    // PGC counts beyond the capacity are refused before anything is stored;
    // missing ones are reported in order below.
    Source units(iniPath, UnitSection(k).c_str());
    for (int i = 1; i <= n; ++i) {
        if (!units.Read(units.Key("%s_lui%02d_pgci_srp_ns", k.key, i))) continue;
        int m = units.Int();
        if (m < 0 || m > kMaxPgcs) {
            SetError("[%s] %d PGCs in language unit %d: a unit holds 0 to %d", units.LastKey(), m,
                     i, kMaxPgcs);
            return false;
        }
    }
    PutBE16(m_header, uint32_t(n));
    // Every unit has its records from here on, so a failure part-way leaves
    // a view that Get and Write can still walk.
    m_units.resize(size_t(n));

    for (int i = 1; i <= n; ++i) {
        AssembledUnit& u = m_units[size_t(i - 1)];
        if (!table.Read(table.Key("%s_lu_srp%02d_lcd", k.key, i))) {
            SetError("%s_PGCI_UT is missing AN %s_lu_srpnn_lcd statuement", k.name, k.key);
            return false;
        }
        // The code's first two characters as they stand: a one-character code
        // keeps its terminator as the second byte.
        u.srp[0] = uint8_t(table.Value()[0]);
        u.srp[1] = uint8_t(table.Value()[1]);
        if (!table.Read(table.Key("%s_lu_srp%02d_exst", k.key, i))) {
            SetError("%s_PGCI_UT is missing an %s_lu_srpnn_exst statuement", k.name, k.key);
            return false;
        }
        u.srp[3] = uint8_t(axtoib(table.Value()));
    }
    if (n < 1) return true;

    auto missing = [&](const char* key) {
        char text[KESTRO_ERROR_TEXT];
        Format(text, sizeof text, "%s_LU: is missing the %s statement", k.name, key);
        SetError(k.wrapIllegalFormat ? "[%s] Illegal source format!" : "%s", text);
        return false;
    };

    for (int i = 1; i <= n; ++i) {
        AssembledUnit& u = m_units[size_t(i - 1)];
        if (!units.Read(units.Key("%s_lui%02d_pgci_srp_ns", k.key, i)))
            return missing(units.LastKey());
        int m = units.Int();
        PutBE16(u.header, uint32_t(m));
        u.pgcs.resize(size_t(m));
        for (int j = 1; j <= m; ++j) {
            AssembledPgc& p = u.pgcs[size_t(j - 1)];
            char section[64];
            Format(section, sizeof section, "%s_lu%02d_%02d", k.key, i, j);
            Source one(iniPath, section);
            if (!one.Read(one.Key("%s_lui_pgc_cat", k.key))) return missing(one.LastKey());
            PutBE32(p.srp, uint32_t(axtoi(SkipOptionalX(one.Value()))));
            if (!pgc) {
                SetError("[%s] No PGC codec to assemble %s with", one.LastKey(), section);
                return false;
            }
            pgc->AsmPGCI(iniPath, section, PgcPrefix(k).c_str());
            unsigned long size = pgc->GetPGCISize();
            p.image.assign(size, 0);
            pgc->GetPGCData(p.image.data(), size);
        }
    }
    return true;
}

void CKestroMenuPgcTable::Get(unsigned long* sectors, unsigned long* bytes) {
    unsigned long b = m_units.empty() ? 0 : AssembledBytes();
    if (bytes) *bytes = b;
    if (sectors) *sectors = SectorsFor(b);
}

bool CKestroMenuPgcTable::Write(int hFile) {
    if (m_units.empty()) return false;
    unsigned long total = AssembledBytes();
    std::vector<uint8_t> out;
    out.reserve(total);
    auto put = [&out](const uint8_t* p, size_t n) { out.insert(out.end(), p, p + n); };

    PutBE32(m_header + 4, uint32_t(total - 1));
    put(m_header, 8);
    // Units follow their search pointers back to back; PGCs follow their
    // unit's search pointers back to back. Nothing is aligned inside.
    uint32_t position = uint32_t(8 + 8 * m_units.size());
    for (auto& u : m_units) {
        PutBE32(u.srp + 4, position);
        put(u.srp, 8);
        position += 8;
        for (const auto& p : u.pgcs) position += uint32_t(8 + p.image.size());
    }
    for (auto& u : m_units) {
        uint32_t unitSize = uint32_t(8 + 8 * u.pgcs.size());
        for (const auto& p : u.pgcs) unitSize += uint32_t(p.image.size());
        PutBE32(u.header + 4, unitSize - 1);
        put(u.header, 8);
        uint32_t offset = uint32_t(8 + 8 * u.pgcs.size());
        for (auto& p : u.pgcs) {
            PutBE32(p.srp + 4, offset);
            put(p.srp, 8);
            offset += uint32_t(p.image.size());
        }
        for (const auto& p : u.pgcs) put(p.image.data(), p.image.size());
    }
    WriteSectorPadded(hFile, out);
    m_units.clear();
    return true;
}

CKestro_VMGM_PGCI::CKestro_VMGM_PGCI() : CKestroMenuPgcTable(kVmgmMenus) {}
int CKestro_VMGM_PGCI::Load(int hFile, unsigned long startSector) {
    return LoadTable(hFile, startSector);
}
unsigned short CKestro_VMGM_PGCI::GetVMGMNumOfLus() { return UnitCount(); }
unsigned short CKestro_VMGM_PGCI::GetVMGLuInf() { return LoadedHandle(); }
unsigned long CKestro_VMGM_PGCI::GetVMGM_LU_SA(unsigned short index, unsigned long startSector) {
    return UnitPosition(index, startSector);
}

CKestro_VTSM_PGCI::CKestro_VTSM_PGCI() : CKestroMenuPgcTable(kVtsmMenus) {}
int CKestro_VTSM_PGCI::Load(int hFile, unsigned long startSector) {
    return LoadTable(hFile, startSector);
}
unsigned short CKestro_VTSM_PGCI::GetVTSMNumOfLus() { return UnitCount(); }
unsigned short CKestro_VTSM_PGCI::GetVTSLuInf() { return LoadedHandle(); }
unsigned long CKestro_VTSM_PGCI::GetVTSM_LU_SA(unsigned short index, unsigned long startSector) {
    return UnitPosition(index, startSector);
}

// ============================================================================
// Language units
// ============================================================================

namespace {

// Appends text that the report adds without a room check, as long as it
// stays inside len and the headroom callers give.
void AppendUnchecked(Report& r, const char* text) {
    size_t n = std::strlen(text);
    if (!r.ok() || r.Len() < 0 || r.Used() + n + 1 > size_t(r.Len()) + kReportHeadroom) return;
    std::memcpy(r.Cursor(), text, n + 1);
    r.Sync();
}

// One PGC of a unit in the unit report. As the report rule has it, the PGC
// report gets the whole len as its room and is kept as far as the caller's
// buffer reaches (len plus the headroom). Nearly always it fits what is left
// of the buffer, and is then written there directly, with a room cut by
// what its room test lets it pass (its indentation and the line break): a
// report that fits so is the same text as one given the whole len. Only a
// report that does not fit so is rendered again in scratch and copied. The
// report swaps its PGC's command-table header in the unit's bytes; the
// first attempt's bytes are put back before the second, so that the PGC is
// reported once as far as the bytes can tell.
void ReportUnitPgc(Report& r, CKestro_PGCI& pgc, uint8_t* unit, uint32_t held, uint32_t start,
                   std::unique_ptr<char[]>& scratch, size_t& scratchSize) {
    const int len = r.Len();
    const size_t limit = (len > 0 ? size_t(len) : 0) + kReportHeadroom - 1;
    if (limit > r.Used() + kScratchSlack) {
        const pgc::CommandHeaderBytes header(unit, held, start);
        const size_t room = std::min<size_t>(limit - r.Used() - kScratchSlack, INT_MAX);
        if (pgc.DetailsOfPGCI(4, unit, start, r.Cursor(), int(room), held) > 0) {
            r.Sync();
            return;
        }
        header.Restore();
    }
    size_t room = len > 0 ? std::min<size_t>(size_t(len), kMaxPgcReport) : 0;
    if (scratchSize < room + kScratchSlack) {
        scratchSize = room + kScratchSlack;
        scratch.reset(new char[scratchSize]);
    }
    scratch[0] = 0;
    pgc.DetailsOfPGCI(4, unit, start, scratch.get(), int(room), held);
    size_t n = strnlen(scratch.get(), scratchSize);
    if (r.Used() + n > limit) n = limit > r.Used() ? limit - r.Used() : 0;
    std::memcpy(r.Cursor(), scratch.get(), n);
    r.Cursor()[n] = 0;
    r.Sync();
}

}  // namespace

CKestroLanguageUnits::CKestroLanguageUnits(const MenuPgcKind& kind)
    : m_kind(&kind), m_unit(new uint8_t[kUnitBuffer]), m_unitHeld(0), m_unitCount(0) {}

CKestroLanguageUnits::~CKestroLanguageUnits() = default;

int CKestroLanguageUnits::LoadUnits(unsigned long startSector, CKestroMenuPgcTable* table) {
    if (!table) return 0;
    m_unitCount = table->UnitCount();
    // Loaded when at least one unit is defined.
    for (uint32_t i = 0; i < m_unitCount; ++i)
        if (table->UnitPosition(uint16_t(i), startSector) != 0) return 1;
    return 0;
}

void CKestroLanguageUnits::ReadUnit(CKestroMenuPgcTable* table, unsigned long position) {
    int h = table->LoadedHandle();
    FileSeek(h, position, 0);
    m_unitHeld = uint32_t(FileRead(h, m_unit.get(), kUnitBuffer));
    // The header is read whole whatever the file held.
    if (m_unitHeld < 8) std::fill(m_unit.get() + m_unitHeld, m_unit.get() + 8, 0);
    // The header's count and end address are kept in host (little-endian)
    // order in place (a PGC overlapping them is reported so); the rest stays
    // as the file has it.
    PutLE16(m_unit.get(), GetBE16(m_unit.get()));
    PutLE32(m_unit.get() + 4, GetBE32(m_unit.get() + 4));
}

bool CKestroLanguageUnits::DetailsUnits(char* buf, int len, CKestro_PGCI* pgc,
                                        CKestroMenuPgcTable* table, unsigned long startSector) {
    const MenuPgcKind& k = *m_kind;
    Report r(buf, len);
    if (k.unitCountPreamble) {
        r.Line("There are %d LU PGCs", m_unitCount);
        AppendUnchecked(r, " \r\n");
    }
    if (!table) return r.ok();
    // Scratch for the PGC reports that do not fit in place (below): grown,
    // never cleared (a report writes its own terminator), so a large caller
    // buffer costs no zero-filling.
    std::unique_ptr<char[]> scratch;
    size_t scratchSize = 0;
    const uint32_t units = std::min<uint32_t>(m_unitCount, kMaxLoadedUnits);
    for (uint32_t i = 1; r.ok() && i <= units; ++i) {
        const unsigned long position = table->UnitPosition(uint16_t(i - 1), startSector);
        if (position == 0) {
            r.Line("Language Unit %d is not defined.", int(i));
            continue;
        }
        ReadUnit(table, position);
        const uint16_t count = GetLE16(m_unit.get());
        const ByteView unit(m_unit.get(), m_unitHeld);
        r.Line("LU %d Number of %s_PGCI_SRP: %d", int(i), k.name, count);
        r.Line("LU %d End byte address of %s_LU_EA table: %d", int(i), k.name,
               int(GetLE32(m_unit.get() + 4)));
        if (k.breakAfterUnitEndLine) AppendUnchecked(r, "\r\n");
        for (uint32_t j = 1, n = std::min<uint32_t>(count, kMaxUnitPgcs); r.ok() && j <= n; ++j) {
            const ByteView e = unit.From(8 * size_t(j));
            char line[128];
            const int lineLen = Format(line, sizeof line, "  %s_PGC Category %d: %x", k.name,
                                       int(j), unsigned(e.BE32(0)));
            r.Text(line);
            r.Line("  %s_PGCI byte address %d: %d", k.name,
                   k.byteAddressNumberedByLine ? lineLen + 1 : int(j), int(e.BE32(4)));
            // The PGC report's own refusal does not stop the unit report.
            if (pgc && r.ok())
                ReportUnitPgc(r, *pgc, m_unit.get(), m_unitHeld, e.BE32(4), scratch, scratchSize);
            AppendUnchecked(r, k.pgcSeparator);
        }
    }
    return r.ok();
}

bool CKestroLanguageUnits::DisasmUnits(const char* iniPath, unsigned long startSector,
                                       CKestro_PGCI* pgc, CKestroMenuPgcTable* table) {
    const MenuPgcKind& k = *m_kind;
    if (!table) return false;
    Source units(iniPath, UnitSection(k).c_str());
    const std::string prefix = PgcPrefix(k);
    FlushBatch batch;  // the codec flushes per PGC: write the file once
    for (uint32_t i = 1, n = std::min<uint32_t>(m_unitCount, kMaxLoadedUnits); i <= n; ++i) {
        // An undefined unit (start byte 0) is read from the file's start.
        ReadUnit(table, table->UnitPosition(uint16_t(i - 1), startSector));
        const uint16_t count = GetLE16(m_unit.get());
        const ByteView unit(m_unit.get(), m_unitHeld);
        units.Write(units.Key("%s_lui%02d_pgci_srp_ns", k.key, int(i)), "%d", count);
        units.Write(units.Key("%s_lui%02d_lu_ea", k.key, int(i)), "%d",
                    int(GetLE32(m_unit.get() + 4)));
        for (uint32_t j = 1, n = std::min<uint32_t>(count, kMaxUnitPgcs); j <= n; ++j) {
            const ByteView e = unit.From(8 * size_t(j));
            char section[64];
            Format(section, sizeof section, "%s_lu%02d_%02d", k.key, int(i), int(j));
            Source one(iniPath, section);
            one.Write(one.Key("%s_lui_pgc_cat", k.key), "%08x", unsigned(e.BE32(0)));
            one.Write(one.Key("%s_lui_pgc_pgci_sa", k.key), "%d", int(e.BE32(4)));
            if (pgc)
                pgc->DisasmPGCI(iniPath, m_unit.get(), e.BE32(4), prefix.c_str(), section,
                                m_unitHeld);
        }
    }
    INIFlushFiles();
    return true;
}

CKestro_VMGM_LU::CKestro_VMGM_LU() : CKestroLanguageUnits(kVmgmMenus) {}
bool CKestro_VMGM_LU::Asm(const char*) { return true; }
int CKestro_VMGM_LU::Load(int, unsigned long startSector, CKestro_VMGM_PGCI* table) {
    return LoadUnits(startSector, table);
}
bool CKestro_VMGM_LU::Details(char* buf, int len, CKestro_PGCI* pgc, CKestro_VMGM_PGCI* table,
                              unsigned long startSector) {
    return DetailsUnits(buf, len, pgc, table, startSector);
}
bool CKestro_VMGM_LU::Disasm(const char* iniPath, unsigned long startSector, CKestro_PGCI* pgc,
                             CKestro_VMGM_PGCI* table) {
    return DisasmUnits(iniPath, startSector, pgc, table);
}

CKestro_VTSM_LU::CKestro_VTSM_LU() : CKestroLanguageUnits(kVtsmMenus) {}
void CKestro_VTSM_LU::Get(unsigned long* a, unsigned long* b) {
    if (a) *a = 0;
    if (b) *b = 0;
}
int CKestro_VTSM_LU::Load(int, unsigned long startSector, CKestro_VTSM_PGCI* table) {
    return LoadUnits(startSector, table);
}
bool CKestro_VTSM_LU::Details(char* buf, int len, CKestro_PGCI* pgc, CKestro_VTSM_PGCI* table,
                              unsigned long startSector) {
    return DetailsUnits(buf, len, pgc, table, startSector);
}
bool CKestro_VTSM_LU::Disasm(const char* iniPath, CKestro_PGCI* pgc, CKestro_VTSM_PGCI* table,
                             unsigned long startSector) {
    return DisasmUnits(iniPath, startSector, pgc, table);
}
