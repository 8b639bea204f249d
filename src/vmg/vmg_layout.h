// Byte offsets of the VMGI_MAT fields this library reads and writes (all
// multi-byte fields big-endian). Every other byte of the 1024-byte table is
// written as zero.
#ifndef KESTRO_SRC_VMG_VMG_LAYOUT_H
#define KESTRO_SRC_VMG_VMG_LAYOUT_H

#include <cstddef>

namespace kestro {
namespace vmgi {

constexpr size_t kIdSize = 12;            // "DVDVIDEO-VMG", no terminator
constexpr size_t kVmgEa = 12;             // last sector of IFO + menu VOBs + backup
constexpr size_t kVmgiEa = 28;            // last sector of the IFO file
constexpr size_t kVersion = 33;           // major in the high nibble, minor in the low
constexpr size_t kCategory = 34;          // 32 bits
constexpr size_t kVolumeSet = 38;         // four 16-bit words
constexpr size_t kTitleSets = 62;         // 16 bits
constexpr size_t kProviderId = 64;        // text, zero-padded
constexpr size_t kProviderSize = 32;
constexpr size_t kPosCode = 96;           // 8 bytes
constexpr size_t kVmgiMatEa = 128;        // end byte of table + First Play PGC
constexpr size_t kFpPgcSa = 132;          // start byte of the First Play PGC
constexpr size_t kVmgmVobsSa = 192;       // start sectors from here on
constexpr size_t kTtSrptSa = 196;
constexpr size_t kVmgmPgciUtSa = 200;
constexpr size_t kPtlMaitSa = 204;
constexpr size_t kVtsAtrtSa = 208;
constexpr size_t kTxtdtMgSa = 212;
constexpr size_t kVmgmCAdtSa = 216;
constexpr size_t kVmgmVobuAdmapSa = 220;
constexpr size_t kMenuVideo = 256;        // 2 bytes
constexpr size_t kMenuAudioCount = 259;   // low byte of the word at 258
constexpr size_t kMenuAudio = 260;        // 8 bytes
constexpr size_t kMenuSubpCount = 341;    // low byte of the word at 340
constexpr size_t kMenuSubp = 342;         // 6 bytes

constexpr unsigned kNoFirstPlayEa = 1023;  // end address without a First Play PGC
constexpr unsigned kFirstPlayStart = 1024;

}  // namespace vmgi
}  // namespace kestro

#endif
