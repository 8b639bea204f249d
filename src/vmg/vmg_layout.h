// The fields of VMGI_MAT, the first 1024 bytes of VIDEO_TS.IFO, that this
// library reads and writes (all multi-byte fields big-endian): one row per
// field drives the report, the source and the assembler. Every other byte
// of the table is written as zero.
#ifndef KESTRO_SRC_VMG_VMG_LAYOUT_H
#define KESTRO_SRC_VMG_VMG_LAYOUT_H

#include <cstddef>

namespace kestro {
namespace vmgi {

constexpr char kVmgId[] = "DVDVIDEO-VMG";
constexpr size_t kIdSize = 12;  // the identifier, no terminator
// The fields the assembler computes or the loader follows.
constexpr size_t kVmgEa = 12;        // last sector of IFO + menu VOBs + backup
constexpr size_t kVmgiEa = 28;       // last sector of the IFO file
constexpr size_t kVmgiMatEa = 128;   // end byte of table + First Play PGC
constexpr size_t kFpPgcSa = 132;     // start byte of the First Play PGC
constexpr size_t kVmgmVobsSa = 192;  // start sectors from here on
constexpr size_t kTtSrptSa = 196;
constexpr size_t kVmgmPgciUtSa = 200;
constexpr size_t kPtlMaitSa = 204;
constexpr size_t kVtsAtrtSa = 208;
constexpr size_t kTxtdtMgSa = 212;
constexpr size_t kVmgmCAdtSa = 216;
constexpr size_t kVmgmVobuAdmapSa = 220;

constexpr unsigned kNoFirstPlayEa = 1023;  // end address without a First Play PGC
constexpr unsigned kFirstPlayStart = 1024;

// How a field's value is shown in the report and the source and stored by
// the assembler.
enum class Form {
    Text,       // characters up to `size`, zero-padded, no terminator of their own
    Dec,        // a big-endian number of `size` bytes, in decimal
    Version,    // major in the high nibble, minor in the low: "%d.%d"
    Category,   // 32 bits: report "%x", source "x%08x"
    VolumeSet,  // four 16-bit words: source "x%04x" each
    Bytes,      // `size` bytes: source "x%02x" each; the report line picks what it shows
};
// How the assembler comes by a field.
enum class Reader {
    Computed,    // laid out by the assembler, never read
    Required,    // read; without it the assembly stops
    Identifier,  // read, and must begin "DVDVIDEO-VMG"
};

// One row per field, in the order the report shows them, the source writes
// them and the assembler reads them.
struct Field {
    const char* key;
    size_t at, size;
    Form form;
    Reader reader;
    const char* line;  // report line, given the value as the form shows it
    // The message when the statement is missing; null for the regular
    // "[key] Statement missing in vmgi_mat".
    const char* missing = nullptr;
    const char* empty = nullptr;  // report line for a text that is empty
    // Stream attributes: the report shows one line per stream, as many as
    // the byte at countAt says, each with one byte of the field.
    size_t countAt = 0;
};
constexpr Field kFields[] = {
    {"vmg_id", 0, kIdSize, Form::Text, Reader::Identifier, "VMG Identifier: %s",
     "VMG ID is missing"},
    {"vmg_ea", kVmgEa, 4, Form::Dec, Reader::Computed, "End address of VMG: %d"},
    {"vmgi_ea", kVmgiEa, 4, Form::Dec, Reader::Computed, "End address of VMGI: %d"},
    {"vern", 33, 1, Form::Version, Reader::Required, "Specification version number: %d.%d"},
    {"vmg_cat", 34, 4, Form::Category, Reader::Required, "VMG Category: %x"},
    // The report shows the disc side as bits 8-9 of the third word.
    {"vlms_id", 38, 8, Form::VolumeSet, Reader::Required,
     "VMG Number of Vols: %d This Vol: %d Disk side ID: %d"},
    // Read as "vmg_ns" but reported missing as "vts_ns".
    {"vmg_ns", 62, 2, Form::Dec, Reader::Required, "VMG Number of Title Sets: %d",
     "[vts_ns] Statement missing in vmgi_mat"},
    {"pvr_id", 64, 32, Form::Text, Reader::Required, "VMG Provider ID: %s", nullptr,
     "VMG No Provider ID available:"},
    // Each byte shown with %x, without its leading zero.
    {"pos_cd", 96, 8, Form::Bytes, Reader::Required, "VMG POS Code: %x%x%x%x%x%x%x%x"},
    {"vmgi_mat_ea", kVmgiMatEa, 4, Form::Dec, Reader::Computed, "End byte address of VMGI_MAT: %d"},
    {"fp_pgci_sa", kFpPgcSa, 4, Form::Dec, Reader::Computed,
     "Start byte address of First Play PGC FP_PGC: %d"},
    {"vmgm_vobs_sa", kVmgmVobsSa, 4, Form::Dec, Reader::Computed,
     "Start sector address of VMGM_VOBS: %d"},
    {"tt_srpt_sa", kTtSrptSa, 4, Form::Dec, Reader::Computed,
     "Start sector address of VMG_PTT_SRPT: %d"},
    {"vmgm_pgci_ut_sa", kVmgmPgciUtSa, 4, Form::Dec, Reader::Computed,
     "Start sector address of VMGM_PGCI_UT: %d"},
    {"ptl_mait_sa", kPtlMaitSa, 4, Form::Dec, Reader::Computed,
     "Start sector address of VMG_PTL_MAIT: %d"},
    {"vts_atrt_sa", kVtsAtrtSa, 4, Form::Dec, Reader::Computed,
     "Start sector address of VMG_VTS_ATRT: %d"},
    {"txtdt_mg_sa", kTxtdtMgSa, 4, Form::Dec, Reader::Computed,
     "Start sector address of VMG_TXTDT_MG: %d"},
    {"vmgm_c_adt_sa", kVmgmCAdtSa, 4, Form::Dec, Reader::Computed,
     "Start sector address of VMGM_C_ADT: %d"},
    {"vmgm_vobu_admap_sa", kVmgmVobuAdmapSa, 4, Form::Dec, Reader::Computed,
     "Start sector address of VMGM_VOBU_ADMAP: %d"},
    {"vmgm_v_atr", 256, 2, Form::Bytes, Reader::Required,
     "Video attributes of VMGM_VOBS: %02x%02x"},
    // The stream counts are the low bytes of the words at 258 and 340.
    {"vmgm_ast_ns", 259, 1, Form::Dec, Reader::Required,
     "Number of audio streams in VMGM_VOBS: %d"},
    // One byte per stream is shown, not the stream's whole attribute.
    {"vmgm_ast_atr", 260, 8, Form::Bytes, Reader::Required, "  Audio %d attributes: %x", nullptr,
     nullptr, 259},
    {"vmgm_spst_ns", 341, 1, Form::Dec, Reader::Required, "VMGM Number of subpicture streams: %d"},
    {"vmgm_spst_atr", 342, 6, Form::Bytes, Reader::Required,
     "  Subpicture stream %d attributes: %x", nullptr, nullptr, 341},
};

}  // namespace vmgi
}  // namespace kestro

#endif
