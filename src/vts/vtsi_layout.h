// The layout of VTSI_MAT, the first sector of VTS_nn_0.IFO: one row per
// field drives its report line, its source statement and its assembly.
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
constexpr size_t kVtsiMatEa = 128;   // 2047 when assembled
constexpr size_t kVtsmVobsSa = 192;  // counted from the title set's first sector
constexpr size_t kVtsttVobsSa = 196;
// The eight sub-tables' start sectors follow one another in layout order
// (VTS_PTT_SRPT, VTS_PGCIT, VTSM_PGCI_UT, VTS_TMAPT, VTSM_C_ADT,
// VTSM_VOBU_ADMAP, VTS_C_ADT, VTS_VOBU_ADMAP).
constexpr size_t kPttSrptSa = 200;
constexpr size_t kPgcitSa = 204;
constexpr size_t kVtsmPgciUtSa = 208;
constexpr size_t kTmaptSa = 212;
constexpr size_t kVtsmCadtSa = 216;
constexpr size_t kVtsmAdmapSa = 220;
constexpr size_t kVtsCadtSa = 224;
constexpr size_t kVtsAdmapSa = 228;
constexpr size_t kTableCount = 8;

// How a field reads in the report and the source, and how the assembler
// stores its statement.
enum class Form {
    Id,         // the 12-character identifier (see Details and ReadSource)
    Decimal32,  // %d of the field as held; atoi, stored big-endian
    Hex32,      // %08x of the field as held; axtoi, stored big-endian
    Version,    // "M.m" from byte 1; read with the major number's second character cut
    Count,      // %d of one byte; atoi, low byte stored
    HexBytes,   // two hexadecimal digits per byte; an optional leading x is skipped
    MenuVideo,  // as HexBytes, but assembled through axtoi: byte 0 cleared, byte 1 the low byte
    Run,        // numbered statements of `size` hexadecimal bytes each
};

struct Field {
    const char* key;     // runs: the pattern of the numbered keys
    const char* report;  // the report line, the value as %s (runs: %d, then %s); null: none
    Form form;
    size_t offset;
    size_t size;                // bytes of the field, or of each run entry
    bool absoluteOnly = false;  // read by AsmAbs only (Asm computes the field)
    size_t countAt = 0;         // runs: the byte holding their count (0: fixedCount)
    int fixedCount = 0;
    // The message of a missing statement is "[key] Statement missing in
    // vtsi_mat" unless a row spells out another (missingAbsolute for AsmAbs
    // alone, falling back to missing).
    const char* missing = nullptr;
    const char* missingAbsolute = nullptr;
};

// An address or start sector: decimal, 32 bits, written by Asm itself and
// read from the source by AsmAbs only.
constexpr Field Address(const char* key, const char* report, size_t offset) {
    return {key, report, Form::Decimal32, offset, 4, /*absoluteOnly=*/true};
}

// Every field in report, source and reading order.
constexpr Field kFields[] = {
    {"vts_id", "VTS Identifier: %s", Form::Id, 0, kIdSize, false, 0, 0,
     /*missing=*/"VTS ID is missing"},
    Address("vts_ea", "End address of VTS: %s", kVtsEa),
    Address("vtsi_ea", "End address of VTSI: %s", kVtsiEa),
    {"vern", "Specification version number: %s", Form::Version, 32, 2},
    {"vts_cat", "VTS Category: %s", Form::Hex32, 34, 4},
    Address("vtsi_mat_ea", "End byte address of VTSI_MAT: %s", kVtsiMatEa),
    Address("vtsm_vobs_sa", "Start sector address of VTSM_VOBS: %s", kVtsmVobsSa),
    Address("vtstt_vobs_sa", "Start sector address of VTSTT_VOBS: %s", kVtsttVobsSa),
    Address("vts_ptt_srpt_sa", "Start sector address of VTS_PTT_SRPT: %s", kPttSrptSa),
    Address("vts_pgcit_sa", "Start sector address of VTS_PGCIT: %s", kPgcitSa),
    Address("vtsm_pgci_ut_sa", "Start sector address of VTSM_PGCI_UT: %s", kVtsmPgciUtSa),
    Address("vts_tmapt_sa", "Start sector address of VTS_TMAPT: %s", kTmaptSa),
    Address("vtsm_c_adt_sa", "Start sector address of VTSM_C_ADT: %s", kVtsmCadtSa),
    Address("vtsm_vobu_admap_sa", "Start sector address of VTSM_VOBU_ADMAP: %s", kVtsmAdmapSa),
    Address("vts_c_adt_sa", "Start sector address of VTS_C_ADT: %s", kVtsCadtSa),
    Address("vts_vobu_admap_sa", "Start sector address of VTS_VOBU_ADMAP: %s", kVtsAdmapSa),
    {"vtsm_v_atr", "Video attributes of VTSM_VOBS: %s", Form::MenuVideo, 256, 2},
    // The stream counts are 16-bit fields (at 258, 340, 514, 596) read and
    // written in their low byte.
    {"vtsm_ast_ns", "Number of audio streams in VTSM_VOBS: %s", Form::Count, 259, 1},
    {"vtsm_ast_atr", "VTSM Audio attributes: %s", Form::HexBytes, 260, 8},
    {"vtsm_spst_ns", "Number of VTSM subpicture streams: %s", Form::Count, 341, 1},
    {"vtsm_spst_atr", "VTSM subpicture attributes: %s", Form::HexBytes, 342, 6},
    {"vts_v_atr", "Video attributes of VTSTT_VOBS: %s", Form::HexBytes, 512, 2},
    {"vts_ast_ns", "Number of audio streams in VTSTT_VOBS: %s", Form::Count, 515, 1},
    // Counts above 8 run past the audio area (and above 190 past the table:
    // reported and written as zeros, dropped when assembled).
    {"vts_ast_atrt%02d", "  Audio %d attributes: %s", Form::Run, 516, 8, false, /*countAt=*/515},
    {"vts_spst_ns", "Number of subpicture streams in VTSTT_VOBS: %s", Form::Count, 597, 1, false, 0,
     0, nullptr, /*missingAbsolute=*/"vts_spst_ns"},
    {"vts_spst_atrt%02d", "  Subpicture stream %d attributes: %s", Form::Run, 598, 6, false,
     /*countAt=*/597},
    // Multichannel audio attributes: not reported.
    {"vts_mu_ast_atrt%02d", nullptr, Form::Run, 792, 24, false, 0, /*fixedCount=*/8},
};

// The statements (and report lines) a row stands for: one, or a run's count,
// read from the table as it stands (a count statement comes before its run).
inline int Statements(const Field& f, const uint8_t* mat) {
    return f.form != Form::Run ? 1 : f.countAt ? mat[f.countAt] : f.fixedCount;
}

}  // namespace vtsi
}  // namespace kestro

#endif
