// Assembly of a whole VIDEO_TS.IFO: the management table from the
// "vmgi_mat" section, the First Play PGC from "fp_pgci", then the layout of
// the sub-tables the host has created and assembled, one after another in
// 2048-byte sectors right after the management table, and the writes.
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/vmg.h"
#include "vmg/vmg_layout.h"

using namespace kestro;
using namespace kestro::vmgi;

namespace {

// The format version is written "%d.%d". Only its first character is read
// as the major number, so only one-digit major numbers survive; the minor
// number is read from the third character on ("10.2" gives major 1, minor 0).
uint8_t Version(const char* v) {
    const int major = std::isdigit(static_cast<unsigned char>(v[0])) ? v[0] - '0' : 0;
    const int minor = v[0] && v[1] ? std::atoi(v + 2) : 0;
    return static_cast<uint8_t>(uint8_t(major << 4) | (minor & 0x0F));
}

// Stores a statement's value into its field as the field's form reads it.
void Store(uint8_t* rec, const Field& f, const char* value) {
    uint8_t* p = rec + f.at;
    switch (f.form) {
    case Form::Text: std::strncpy(reinterpret_cast<char*>(p), value, f.size); break;
    case Form::Dec: PutBE(p, f.size, static_cast<uint32_t>(std::atoi(value))); break;
    case Form::Version: p[0] = Version(value); break;
    case Form::Category: PutBE32(p, static_cast<uint32_t>(axtoi(value))); break;
    case Form::VolumeSet: HexWords(value, p, f.size / 2); break;
    case Form::Bytes: HexBytes(value, p, f.size); break;
    }
}

// Sectors of the menu VOB file that lies next to the IFO file ("VIDEO_TS.IFO"
// gives "VIDEO_TS.vob"; the file layer matches the name case-insensitively).
// False when there is no such file.
bool MenuVobSectors(const char* ifoPath, unsigned long* sectors) {
    *sectors = 0;
    std::string path = ifoPath ? ifoPath : "";
    if (path.size() < 3) return false;
    path.replace(path.size() - 3, 3, "vob");
    if (FileExists(path.c_str(), 0) == -1) return false;
    const int h = FileOpen(path.c_str(), kOpenRead);
    if (h > 0) {
        *sectors = SectorsFor(FileSize(h));
        FileClose(h);
    }
    return true;
}

}  // namespace

bool CKestro_VMG_MAT::Asm(const char* iniPath, int hFile, const char* ifoPath) {
    m_record.fill(0);
    uint8_t* rec = m_record.data();
    Source src(iniPath, "vmgi_mat");

    for (const Field& f : kFields) {
        if (f.reader == Reader::Computed) continue;
        if (!src.Read(f.key)) {
            if (f.missing)
                SetError("%s", f.missing);
            else
                SetError("[%s] Statement missing in vmgi_mat", f.key);
            return false;
        }
        if (f.reader == Reader::Identifier && std::strncmp(src.Value(), kVmgId, f.size) != 0) {
            SetError("[%s] Illegal VIDEO_TS field", f.key);
            return false;
        }
        Store(rec, f, src.Value());
    }

    // The First Play PGC, when the source has one, is built into the record
    // at byte 1024 and may take the 1268 bytes up to the end of the record.
    uint32_t matEa = kNoFirstPlayEa;
    PutBE32(rec + kVmgiMatEa, matEa);
    Source fp(iniPath, "fp_pgci");
    if (fp.Read("pgc_cnt")) {
        CKestro_PGCI codec;
        PutBE32(rec + kFpPgcSa, kFirstPlayStart);
        codec.AsmPGCI(iniPath, "fp_pgci", "pgc_");
        const unsigned long size = codec.GetPGCISize();
        if (size > kFirstPlayMax) {
            SetError("First Play PGC size exceeds maximum size allowed");
            return false;
        }
        codec.GetPGCData(rec + kTableSize, size);
        matEa = kNoFirstPlayEa + uint32_t(size);
        PutBE32(rec + kVmgiMatEa, matEa);
    }
    m_matEa = matEa;

    // The sub-tables in layout order. Absent tables and tables with nothing
    // to write take no sectors and get start sector 0. The language units
    // are part of VMGM_PGCI_UT; the text data manager is never written.
    struct Slot {
        CBaseKestro* table;
        size_t field;
    } const layout[] = {
        {m_ptt.get(), kTtSrptSa},    {m_pgci.get(), kVmgmPgciUtSa},
        {m_mait.get(), kPtlMaitSa},  {m_atrt.get(), kVtsAtrtSa},
        {m_cadt.get(), kVmgmCAdtSa}, {m_admap.get(), kVmgmVobuAdmapSa},
    };
    // The first sub-table follows the management table: its end address (not
    // the byte count) rounded up to whole sectors. An end address of exactly
    // 2048 therefore counts one sector, as files assembled here have always
    // been laid out.
    auto next = static_cast<uint32_t>(SectorsFor(matEa));
    for (const auto& slot : layout) {
        unsigned long sectors = 0, bytes = 0;
        if (slot.table) slot.table->Get(&sectors, &bytes);
        PutBE32(rec + slot.field, sectors ? next : 0);
        next += static_cast<uint32_t>(sectors);
    }
    const uint32_t ifoSectors = next;
    PutBE32(rec + kVmgiEa, ifoSectors - 1);
    PutBE32(rec + kVmgmVobsSa, ifoSectors);

    unsigned long vobSectors = 0;
    if (!MenuVobSectors(ifoPath, &vobSectors)) PutBE32(rec + kVmgmVobsSa, 0);
    // The IFO file, its backup of the same size and the menu VOB file.
    PutBE32(rec + kVmgEa, static_cast<uint32_t>(2 * ifoSectors + vobSectors - 1));

    Write(hFile);
    for (const auto& slot : layout)
        if (slot.table) slot.table->Write(hFile);
    return true;
}
