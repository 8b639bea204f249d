// Cell address tables (VMGM_C_ADT, VTSM_C_ADT, VTS_C_ADT): one behaviour,
// three descriptions.
//
// Layout: an 8-byte header (VOB count, reserved, end address), then one
// 12-byte entry per cell: VOB ID (16 bits), cell ID (8 bits), a reserved
// byte, first and last sector (32 bits each), all big-endian.
#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/tables.h"
#include "tables/kinds.h"

using namespace kestro;

namespace {

constexpr size_t kEntry = 12;

const CellTableKind kVmgmCells = {
    "vmgm_c_adt",
    "vmgm_vob_ns",
    "vmgm_c_adt_ea",
    "Number of VOBs in VMGM_VOBS %d",
    "End byte address of VMGM_C_ADT table: %d",
    /*bodySize16=*/true,
};
const CellTableKind kVtsCells = {
    "vts_c_adt",
    "vts_vob_ns",
    "vts_c_adt_ea",
    "Number of VOBs in VTS_VOBS: %d",
    "End byte address of VTS_C_ADT table: %d",
    /*bodySize16=*/true,
};
const CellTableKind kVtsmCells = {
    "vtsm_c_adt",
    "vtsm_vob_ns",
    "vtsm_c_adt_ea",
    "Number of VOBs in VTSM_VOBS: %d",
    "End byte address of VTSM_C_ADT table: %d",
    /*bodySize16=*/false,
};

// The fields of an entry, in source order; every member keys them with the
// title set's names, after the cell and VOB IDs ("c_%03d_vob%03d_<key>").
struct EntryField {
    size_t at;
    size_t width;  // 1, 2 or 4 bytes
    const char* key;
};
constexpr EntryField kFields[] = {
    {0, 2, "vts_vob_idn"}, {2, 1, "vts_c_idn"}, {4, 4, "vts_cp_sa"}, {8, 4, "vts_cp_ea"}};
constexpr const char* kFieldKey = "c_%03d_vob%03d_%s";

int FieldOf(const ByteView& e, const EntryField& f) {
    return f.width == 1 ? e.U8(f.at) : f.width == 2 ? e.BE16(f.at) : int(e.BE32(f.at));
}
void PutField(uint8_t* e, const EntryField& f, int value) {
    if (f.width == 1)
        e[f.at] = uint8_t(value);
    else if (f.width == 2)
        PutBE16(e + f.at, uint32_t(value));
    else
        PutBE32(e + f.at, uint32_t(value));
}

// Every member reports a missing entry statement with the VTSM wording.
constexpr const char* kMissingEntry = "[%s] Statement missing in vtsm_c_adt";

}  // namespace

CKestroCellAddressTable::CKestroCellAddressTable(const CellTableKind& kind)
    : m_kind(&kind), m_header{} {}

CKestroCellAddressTable::~CKestroCellAddressTable() = default;

int CKestroCellAddressTable::LoadCells(int hFile, unsigned long startSector) {
    if (!m_loaded.LoadTableHeader(hFile, startSector)) return 0;
    if (m_kind->bodySize16) m_loaded.bodySize = m_loaded.endAddress & 0xFFFF;
    return 1;
}

bool CKestroCellAddressTable::Details(char* buf, int len) {
    BodyScope scope(m_loaded);
    const ByteView body = scope.View();
    Report r(buf, len);
    r.Line(m_kind->countLine, m_loaded.count);
    r.Line(m_kind->endLine, int(m_loaded.endAddress));
    // The entry count follows from the end address (unsigned: a damaged end
    // address below 7 announces a huge table, cut short by the buffer).
    const uint32_t entries = (m_loaded.endAddress - 7) / kEntry;
    for (uint32_t i = 1; r.ok() && i <= entries; ++i) {
        const ByteView e = body.From(kEntry * (i - 1));
        r.Line("  For table entry %d VOB ID %d Cell ID %d.", int(i), e.BE16(0), e.U8(2));
        r.Line("    Start sector address is %d and end sector addres is %d.", int(e.BE32(4)),
               int(e.BE32(8)));
    }
    return r.ok();
}

bool CKestroCellAddressTable::Disasm(const char* iniPath) {
    BodyScope scope(m_loaded);
    Source src(iniPath, m_kind->section);
    src.Write(m_kind->countKey, "%d", m_loaded.count);
    src.Write(m_kind->endAddressKey, "%d", int(m_loaded.endAddress));
    // Only the first VOB-count entries are written, whatever the number of
    // cells; entries are keyed by their own cell and VOB IDs. The count is
    // not clamped to the body: entries beyond it are written as zeros.
    for (uint32_t i = 0; i < m_loaded.count; ++i) {
        const ByteView e = scope.View().From(kEntry * i);
        const int vob = e.BE16(0), cell = e.U8(2);
        for (const EntryField& f : kFields)
            src.Write(src.Key(kFieldKey, cell, vob, f.key), "%d", FieldOf(e, f));
    }
    INIFlushFiles();
    return true;
}

bool CKestroCellAddressTable::Asm(const char* iniPath) {
    m_records.clear();
    std::memset(m_header, 0, sizeof m_header);

    Source src(iniPath, m_kind->section);
    if (!src.Read(m_kind->countKey)) return false;
    PutBE16(m_header, uint32_t(src.Int()));

    // VOBs and their cells are numbered from 1 without gaps: the first VOB
    // without a cell 1 ends the table, the first missing cell ends its VOB.
    for (int v = 1; v <= 256; ++v) {
        if (!src.Read(src.Key(kFieldKey, 1, v, kFields[0].key))) return true;
        for (int c = 1; c <= 99; ++c) {
            if (!src.Read(src.Key(kFieldKey, c, v, kFields[0].key))) break;
            if (m_records.size() >= size_t(kMaxCells)) {
                SetError("[%s] Too many cells in %s: a cell address table holds at most %d",
                         src.LastKey(), m_kind->section, kMaxCells);
                return false;
            }
            // The entry counts from its first statement on, also when a later
            // one is missing.
            uint8_t* e = m_records.emplace_back().data();
            for (const EntryField& f : kFields) {
                // The first field's statement is the one just read.
                if (&f != kFields && !src.Read(src.Key(kFieldKey, c, v, f.key))) {
                    SetError(kMissingEntry, src.LastKey());
                    return false;
                }
                PutField(e, f, src.Int());
            }
        }
    }
    return true;
}

void CKestroCellAddressTable::Get(unsigned long* sectors, unsigned long* bytes) {
    unsigned long b = 0;
    if (!m_records.empty()) {
        b = kEntry * m_records.size() + 8;
        PutBE32(m_header + 4, uint32_t(b - 1));
    }
    if (bytes) *bytes = b;
    if (sectors) *sectors = SectorsFor(b);
}

bool CKestroCellAddressTable::Write(int hFile) {
    if (m_records.empty()) return false;
    std::vector<uint8_t> out(m_header, m_header + sizeof m_header);
    for (const auto& rec : m_records) out.insert(out.end(), rec.begin(), rec.end());
    WriteSectorPadded(hFile, out);
    m_records.clear();
    return true;
}

CKestro_VMG_CADT::CKestro_VMG_CADT() : CKestroCellAddressTable(kVmgmCells) {}
int CKestro_VMG_CADT::Load(int hFile, unsigned long startSector) {
    return LoadCells(hFile, startSector);
}

CKestro_VTS_CADT::CKestro_VTS_CADT() : CKestroCellAddressTable(kVtsCells) {}
int CKestro_VTS_CADT::Load(int hFile, unsigned long startSector) {
    return LoadCells(hFile, startSector);
}

CKestro_VTSM_CADT::CKestro_VTSM_CADT() : CKestroCellAddressTable(kVtsmCells) {}
int CKestro_VTSM_CADT::Load(int hFile, unsigned long startSector) {
    return LoadCells(hFile, startSector);
}
