// Assembly of a whole VIDEO_TS.IFO: the management table from the
// "vmgi_mat" section, the First Play PGC from "fp_pgci", then the layout of
// the sub-tables the host has created and assembled, one after another in
// 2048-byte sectors right after the management table, and the writes.
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/vmg.h"
#include "vmg/vmg_layout.h"

using namespace kestro;
using namespace kestro::vmgi;

namespace {

// The format version is written "%d.%d". The value is cut after its first
// character, so only one-digit major numbers survive; the minor number is
// read from the third character on ("10.2" gives major 1, minor 0).
void StoreVersion(uint8_t* rec, const char* value) {
    char v[Source::kValueSize] = {};
    std::strncpy(v, value, sizeof v - 1);
    v[1] = 0;
    const int major = std::atoi(v);
    const int minor = std::atoi(v + 2);
    rec[kVersion] = static_cast<uint8_t>(uint8_t(major << 4) | (minor & 0x0F));
}

void StoreCategory(uint8_t* rec, const char* value) {
    PutBE32(rec + kCategory, static_cast<uint32_t>(axtoi(value)));
}
void StoreVolumeSet(uint8_t* rec, const char* value) { HexWords(value, rec + kVolumeSet, 4); }
void StoreTitleSets(uint8_t* rec, const char* value) {
    PutBE16(rec + kTitleSets, static_cast<uint32_t>(std::atoi(value)));
}
void StoreProvider(uint8_t* rec, const char* value) {
    std::strncpy(reinterpret_cast<char*>(rec + kProviderId), value, kProviderSize);
}
void StorePosCode(uint8_t* rec, const char* value) { HexBytes(value, rec + kPosCode, 8); }
void StoreMenuVideo(uint8_t* rec, const char* value) { HexBytes(value, rec + kMenuVideo, 2); }
void StoreMenuAudioCount(uint8_t* rec, const char* value) {
    rec[kMenuAudioCount] = static_cast<uint8_t>(std::atoi(value));
}
void StoreMenuAudio(uint8_t* rec, const char* value) { HexBytes(value, rec + kMenuAudio, 8); }
void StoreMenuSubpCount(uint8_t* rec, const char* value) {
    rec[kMenuSubpCount] = static_cast<uint8_t>(std::atoi(value));
}
void StoreMenuSubp(uint8_t* rec, const char* value) { HexBytes(value, rec + kMenuSubp, 6); }

// The statements of "vmgi_mat" in the order they are read, each with the
// message raised when it is missing. The title set count is read as
// "vmg_ns" but reported as "vts_ns". End addresses and start sectors are
// computed, never read.
const struct Statement {
    const char* key;
    const char* missing;
    void (*store)(uint8_t* rec, const char* value);
} kStatements[] = {
    {"vern", "[vern] Statement missing in vmgi_mat", StoreVersion},
    {"vmg_cat", "[vmg_cat] Statement missing in vmgi_mat", StoreCategory},
    {"vlms_id", "[vlms_id] Statement missing in vmgi_mat", StoreVolumeSet},
    {"vmg_ns", "[vts_ns] Statement missing in vmgi_mat", StoreTitleSets},
    {"pvr_id", "[pvr_id] Statement missing in vmgi_mat", StoreProvider},
    {"pos_cd", "[pos_cd] Statement missing in vmgi_mat", StorePosCode},
    {"vmgm_v_atr", "[vmgm_v_atr] Statement missing in vmgi_mat", StoreMenuVideo},
    {"vmgm_ast_ns", "[vmgm_ast_ns] Statement missing in vmgi_mat", StoreMenuAudioCount},
    {"vmgm_ast_atr", "[vmgm_ast_atr] Statement missing in vmgi_mat", StoreMenuAudio},
    {"vmgm_spst_ns", "[vmgm_spst_ns] Statement missing in vmgi_mat", StoreMenuSubpCount},
    {"vmgm_spst_atr", "[vmgm_spst_atr] Statement missing in vmgi_mat", StoreMenuSubp},
};

// Sectors of the menu VOB file that lies next to the IFO file ("VIDEO_TS.IFO"
// gives "VIDEO_TS.vob"; the file layer matches the name case-insensitively).
// False when there is no such file.
bool MenuVobSectors(const char* ifoPath, unsigned long* sectors) {
    *sectors = 0;
    std::string path = ifoPath ? ifoPath : "";
    if (path.size() < 3) return false;
    path.replace(path.size() - 3, 3, "vob");
    if (FileExists(path.c_str(), 0) == -1) return false;
    const int h = FileOpen(path.c_str(), 0x8000);
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
    Source s(iniPath, "vmgi_mat");

    if (!s.Read("vmg_id")) {
        SetError("VMG ID is missing");
        return false;
    }
    if (std::strncmp(s.Value(), "DVDVIDEO-VMG", kIdSize) != 0) {
        SetError("[vmg_id] Illegal VIDEO_TS field");
        return false;
    }
    std::memcpy(rec, s.Value(), kIdSize);

    for (const auto& st : kStatements) {
        if (!s.Read(st.key)) {
            SetError("%s", st.missing);
            return false;
        }
        st.store(rec, s.Value());
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

    // Sectors of the management table: the end address (not the byte count)
    // rounded up to whole sectors. An end address of exactly 2048 therefore
    // counts one sector, as files assembled here have always been laid out.
    m_matEa = matEa;
    m_matSectors = static_cast<uint32_t>(SectorsFor(matEa));

    // The sub-tables in layout order. Absent tables and tables with nothing
    // to write take no sectors and get start sector 0. The language units
    // are part of VMGM_PGCI_UT; the text data manager is never written.
    struct Slot {
        CBaseKestro* table;
        size_t field;
    } const layout[] = {
        {m_ptt.get(), kTtSrptSa},   {m_pgci.get(), kVmgmPgciUtSa}, {m_mait.get(), kPtlMaitSa},
        {m_atrt.get(), kVtsAtrtSa}, {m_cadt.get(), kVmgmCAdtSa},   {m_admap.get(), kVmgmVobuAdmapSa},
    };
    uint32_t next = m_matSectors;
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
