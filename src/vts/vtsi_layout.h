// The layout of VTSI_MAT, the first sector of VTS_nn_0.IFO, shared by its
// loader, report, source writer and assembler.
#ifndef KESTRO_SRC_VTS_VTSI_LAYOUT_H
#define KESTRO_SRC_VTS_VTSI_LAYOUT_H

#include <cstddef>
#include <cstdint>

namespace kestro {
namespace vtsi {

constexpr const char* kSection = "vtsi_mat";
constexpr const char kVtsId[] = "DVDVIDEO-VTS";
constexpr size_t kIdSize = 12;

// Field offsets (all integers big-endian in the file).
constexpr size_t kVtsEa = 12;        // last sector of the title set
constexpr size_t kVtsiEa = 28;       // last sector of the IFO file
constexpr size_t kVern = 32;         // byte 33: major << 4 | minor
constexpr size_t kVtsCat = 34;
constexpr size_t kVtsiMatEa = 128;   // 2047 when assembled
constexpr size_t kVtsmVobsSa = 192;  // counted from the title set's first sector
constexpr size_t kVtsttVobsSa = 196;
constexpr size_t kPttSrptSa = 200;
constexpr size_t kPgcitSa = 204;
constexpr size_t kVtsmPgciUtSa = 208;
constexpr size_t kTmaptSa = 212;
constexpr size_t kVtsmCadtSa = 216;
constexpr size_t kVtsmAdmapSa = 220;
constexpr size_t kVtsCadtSa = 224;
constexpr size_t kVtsAdmapSa = 228;
constexpr size_t kVtsmVatr = 256;
constexpr size_t kVtsmAstNs = 258;   // count in the low byte (259)
constexpr size_t kVtsmAstAtr = 260;
constexpr size_t kVtsmSpstNs = 340;  // count in 341
constexpr size_t kVtsmSpstAtr = 342;
constexpr size_t kVtsVatr = 512;
constexpr size_t kVtsAstNs = 514;    // count in 515
constexpr size_t kVtsAstAtrt = 516;  // 8 bytes per stream
constexpr size_t kVtsSpstNs = 596;   // count in 597
constexpr size_t kVtsSpstAtrt = 598; // 6 bytes per stream
constexpr size_t kVtsMuAstAtrt = 792;  // 24 bytes per stream, 8 streams
constexpr int kMultichannelStreams = 8;

// The fields Load converts to host order (held least significant byte
// first) and the assembler stores big-endian.
constexpr size_t kAddressFields[] = {kVtsEa,       kVtsiEa,      kVtsCat,     kVtsiMatEa,
                                     kVtsmVobsSa,  kVtsttVobsSa, kPttSrptSa,  kPgcitSa,
                                     kVtsmPgciUtSa, kTmaptSa,    kVtsmCadtSa, kVtsmAdmapSa,
                                     kVtsCadtSa,   kVtsAdmapSa};

// The ten start sectors in field order: source key, report line and the
// message of an assembler that requires the statement.
struct StartSector {
    size_t offset;
    const char* key;
    const char* report;
    const char* missing;
};
constexpr StartSector kStartSectors[] = {
    {kVtsmVobsSa, "vtsm_vobs_sa", "Start sector address of VTSM_VOBS: %d",
     "[vtsm_vobs_sa] Statement missing in vtsi_mat"},
    {kVtsttVobsSa, "vtstt_vobs_sa", "Start sector address of VTSTT_VOBS: %d",
     "[vtstt_vobs_sa] Statement missing in vtsi_mat"},
    {kPttSrptSa, "vts_ptt_srpt_sa", "Start sector address of VTS_PTT_SRPT: %d",
     "[vts_ptt_srpt_sa] Statement missing in vtsi_mat"},
    {kPgcitSa, "vts_pgcit_sa", "Start sector address of VTS_PGCIT: %d",
     "[vts_pgcit_sa] Statement missing in vtsi_mat"},
    {kVtsmPgciUtSa, "vtsm_pgci_ut_sa", "Start sector address of VTSM_PGCI_UT: %d",
     "[vtsm_pgci_ut_sa] Statement missing in vtsi_mat"},
    {kTmaptSa, "vts_tmapt_sa", "Start sector address of VTS_TMAPT: %d",
     "[vts_tmapt_sa] Statement missing in vtsi_mat"},
    {kVtsmCadtSa, "vtsm_c_adt_sa", "Start sector address of VTSM_C_ADT: %d",
     "[vtsm_c_adt_sa] Statement missing in vtsi_mat"},
    {kVtsmAdmapSa, "vtsm_vobu_admap_sa", "Start sector address of VTSM_VOBU_ADMAP: %d",
     "[vtsm_vobu_admap_sa] Statement missing in vtsi_mat"},
    {kVtsCadtSa, "vts_c_adt_sa", "Start sector address of VTS_C_ADT: %d",
     "[vts_c_adt_sa] Statement missing in vtsi_mat"},
    {kVtsAdmapSa, "vts_vobu_admap_sa", "Start sector address of VTS_VOBU_ADMAP: %d",
     "[vts_vobu_admap_sa] Statement missing in vtsi_mat"},
};

// The layout order of the sub-tables after the management table (the
// start sectors from VTS_PTT_SRPT on, in field order).
constexpr size_t kFirstTableSa = 2;  // index of VTS_PTT_SRPT in kStartSectors
constexpr size_t kTableCount = 8;

// Fields as held after Load: least significant byte first.
inline uint32_t GetHeld32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline void PutHeld32(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
    p[2] = uint8_t(v >> 16);
    p[3] = uint8_t(v >> 24);
}

}  // namespace vtsi
}  // namespace kestro

#endif
