// Cell address tables (VMGM_C_ADT, VTSM_C_ADT, VTS_C_ADT): one behaviour,
// three descriptions.
#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/tables.h"
#include "tables/kinds.h"

using namespace kestro;

namespace {

constexpr size_t kEntry = 12;

const CellTableKind kVmgmCells = {
    "vmgm_c_adt", "vmgm_vob_ns", "vmgm_c_adt_ea",
    "Number of VOBs in VMGM_VOBS %d", "End byte address of VMGM_C_ADT table: %d",
    /*bodySize16=*/true, /*keepBodyOnFirstLineRefusal=*/true, /*writeReleasesVobSlots=*/true,
};
const CellTableKind kVtsCells = {
    "vts_c_adt", "vts_vob_ns", "vts_c_adt_ea",
    "Number of VOBs in VTS_VOBS: %d", "End byte address of VTS_C_ADT table: %d",
    true, false, false,
};
const CellTableKind kVtsmCells = {
    "vtsm_c_adt", "vtsm_vob_ns", "vtsm_c_adt_ea",
    "Number of VOBs in VTSM_VOBS: %d", "End byte address of VTSM_C_ADT table: %d",
    false, false, false,
};

// Every member reports a missing entry statement with the VTSM wording.
constexpr const char* kMissingEntry = "[%s] Statement missing in vtsm_c_adt";

}  // namespace

CKestroCellAddressTable::CKestroCellAddressTable(const CellTableKind& kind)
    : m_kind(&kind), m_header{}, m_records{}, m_vobCounter(0), m_recordCount(0) {}

CKestroCellAddressTable::~CKestroCellAddressTable() = default;

int CKestroCellAddressTable::LoadCells(int hFile, unsigned long startSector) {
    if (!m_loaded.LoadTableHeader(hFile, startSector)) return 0;
    if (m_kind->bodySize16) m_loaded.bodySize = m_loaded.endAddress & 0xFFFF;
    return 1;
}

void CKestroCellAddressTable::ReleaseRecords(uint32_t slots) {
    for (uint32_t i = 0; i < slots && i < m_records.size(); ++i) m_records[i].reset();
}

bool CKestroCellAddressTable::Details(char* buf, int len) {
    m_loaded.ReadBody();
    Report r(buf, len);
    if (!r.Line(m_kind->countLine, m_loaded.count)) {
        if (!m_kind->keepBodyOnFirstLineRefusal) m_loaded.FreeBody();
        return false;
    }
    bool ok = r.Line(m_kind->endLine, int(m_loaded.endAddress));
    // The entry count follows from the end address (unsigned: a damaged end
    // address below 7 announces a huge table, cut short by the buffer).
    uint32_t entries = (m_loaded.endAddress - 7) / kEntry;
    ByteView body(m_loaded.body);
    for (uint32_t i = 1; ok && i <= entries; ++i) {
        size_t e = kEntry * (i - 1);
        ok = r.Line("  For table entry %d VOB ID %d Cell ID %d.", int(i), body.BE16(e),
                    body.U8(e + 2)) &&
             r.Line("    Start sector address is %d and end sector addres is %d.",
                    int(body.BE32(e + 4)), int(body.BE32(e + 8)));
    }
    m_loaded.FreeBody();
    return ok;
}

bool CKestroCellAddressTable::Disasm(const char* iniPath) {
    m_loaded.ReadBody();
    Source src(iniPath, m_kind->section);
    src.Write(m_kind->countKey, "%d", m_loaded.count);
    src.Write(m_kind->endAddressKey, "%d", int(m_loaded.endAddress));
    // Only the first VOB-count entries are written, whatever the number of
    // cells; entries are keyed by their own cell and VOB IDs.
    ByteView body(m_loaded.body);
    for (uint32_t i = 0; i < m_loaded.count; ++i) {
        size_t e = kEntry * i;
        int vob = body.BE16(e), cell = body.U8(e + 2);
        src.Write(src.Key("c_%03d_vob%03d_vts_vob_idn", cell, vob), "%d", vob);
        src.Write(src.Key("c_%03d_vob%03d_vts_c_idn", cell, vob), "%d", cell);
        src.Write(src.Key("c_%03d_vob%03d_vts_cp_sa", cell, vob), "%d", int(body.BE32(e + 4)));
        src.Write(src.Key("c_%03d_vob%03d_vts_cp_ea", cell, vob), "%d", int(body.BE32(e + 8)));
    }
    m_loaded.FreeBody();
    INIFlushFiles();
    return true;
}

bool CKestroCellAddressTable::Asm(const char* iniPath) {
    ReleaseRecords(m_recordCount);
    m_vobCounter = 0;
    m_recordCount = 0;
    std::memset(m_header, 0, sizeof m_header);

    Source src(iniPath, m_kind->section);
    if (!src.Read(m_kind->countKey)) return false;
    PutBE16(m_header, uint32_t(src.Int()));

    // VOBs and their cells are numbered from 1 without gaps: the first VOB
    // without a cell 1 ends the table, the first missing cell ends its VOB.
    for (int v = 1; v <= 256; ++v) {
        if (!src.Read(src.Key("c_001_vob%03d_vts_vob_idn", v))) return true;
        ++m_vobCounter;
        for (int c = 1; c <= 99; ++c) {
            if (!src.Read(src.Key("c_%03d_vob%03d_vts_vob_idn", c, v))) break;
            if (m_recordCount >= uint32_t(kMaxCells)) {
                SetError("[%s] Too many cells in %s: a cell address table holds at most %d",
                         src.LastKey(), m_kind->section, kMaxCells);
                return false;
            }
            auto& rec = m_records[m_recordCount];
            rec = std::make_unique<std::array<uint8_t, 12>>();
            rec->fill(0);
            PutBE16(rec->data(), uint32_t(src.Int()));
            ++m_recordCount;
            if (!src.Read(src.Key("c_%03d_vob%03d_vts_c_idn", c, v))) {
                SetError(kMissingEntry, src.LastKey());
                return false;
            }
            (*rec)[2] = uint8_t(src.Int());
            if (!src.Read(src.Key("c_%03d_vob%03d_vts_cp_sa", c, v))) {
                SetError(kMissingEntry, src.LastKey());
                return false;
            }
            PutBE32(rec->data() + 4, uint32_t(src.Int()));
            if (!src.Read(src.Key("c_%03d_vob%03d_vts_cp_ea", c, v))) {
                SetError(kMissingEntry, src.LastKey());
                return false;
            }
            PutBE32(rec->data() + 8, uint32_t(src.Int()));
        }
    }
    return true;
}

void CKestroCellAddressTable::Get(unsigned long* sectors, unsigned long* bytes) {
    unsigned long b = 0;
    if (m_recordCount) {
        b = kEntry * m_recordCount + 8;
        PutBE32(m_header + 4, uint32_t(b - 1));
    }
    if (bytes) *bytes = b;
    if (sectors) *sectors = SectorsFor(b);
}

bool CKestroCellAddressTable::Write(int hFile) {
    if (!m_recordCount) return false;
    std::vector<uint8_t> out(m_header, m_header + sizeof m_header);
    out.reserve(8 + kEntry * m_recordCount);
    for (uint32_t i = 0; i < m_recordCount; ++i) {
        if (m_records[i]) out.insert(out.end(), m_records[i]->begin(), m_records[i]->end());
        else out.insert(out.end(), kEntry, 0);
    }
    FileWrite(hFile, out.data(), out.size());
    PadToSector(hFile);
    ReleaseRecords(m_kind->writeReleasesVobSlots ? m_vobCounter : m_recordCount);
    m_vobCounter = 0;
    m_recordCount = 0;
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
