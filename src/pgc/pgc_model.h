// The in-memory model of one program chain while it is being assembled, and
// the binary layout constants shared by the codec's source files.
#ifndef KESTRO_SRC_PGC_PGC_MODEL_H
#define KESTRO_SRC_PGC_PGC_MODEL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "frame/detail.h"
#include "kestro/pgc.h"

namespace kestro {
namespace pgc {

// PGC general information (PGC_GI): fixed 236-byte block at the PGC start.
constexpr size_t kGiSize = 236;
constexpr size_t kGiCount = 0;     // reserved word, programs, cells
constexpr size_t kGiPrograms = 2;  // low 7 bits count
constexpr size_t kGiCells = 3;
constexpr size_t kGiPlayTime = 4;  // BCD hh mm ss ff (top bits of ff: rate)
constexpr size_t kGiUops = 8;
constexpr size_t kGiAudio = 12;     // 8 x 16 bits
constexpr size_t kGiSubpic = 28;    // 32 x 32 bits
constexpr size_t kGiNav = 156;      // next, prev, go-up, mode/still
constexpr size_t kGiPalette = 164;  // 16 x (0, Y, Cr, Cb)
constexpr size_t kGiCmdtSa = 228;
constexpr size_t kGiPgmapSa = 230;
constexpr size_t kGiCpbitSa = 232;
constexpr size_t kGiCpositSa = 234;

constexpr int kAudioStreams = 8;
constexpr int kSubpicStreams = 32;
constexpr int kPaletteColours = 16;

constexpr size_t kCmdtHeader = 8;  // pre, post, cell counts, end address
constexpr size_t kCommandSize = 8;
constexpr size_t kPbitEntry = 24;
constexpr size_t kPositEntry = 4;
constexpr size_t kMapBytes = 256;

constexpr unsigned kMaxCells = CKestro_PGCI::kMaxCells;
constexpr unsigned kMaxCommands = CKestro_PGCI::kMaxCommands;

// The source keys of the general information, in the order they are written
// and read. Bytes and Words are hexadecimal digit runs (4 bytes, or four
// 16-bit words); Hex16 and Hex32 are one hexadecimal number per key.
enum class GeneralForm { Bytes, Words, Hex16, Hex32 };
struct GeneralKey {
    const char* key;
    size_t at;
    int entries;  // 0: a single key without index
    GeneralForm form;
};
constexpr GeneralKey kGeneralKeys[] = {
    {"%scnt", kGiCount, 0, GeneralForm::Bytes},
    {"%spb_tm", kGiPlayTime, 0, GeneralForm::Bytes},
    {"%suop_ctl", kGiUops, 0, GeneralForm::Hex32},
    {"%sast_ctlt%02d", kGiAudio, kAudioStreams, GeneralForm::Hex16},
    {"%sspst_ctlt%02d", kGiSubpic, kSubpicStreams, GeneralForm::Hex32},
    {"%snv_ctl", kGiNav, 0, GeneralForm::Words},
    {"%ssp_plt%02d", kGiPalette, kPaletteColours, GeneralForm::Hex32},
};

// The three groups of the command table, in file order: the source key of
// the count, the source key of each command and the report's heading.
struct CommandGroup {
    const char* countKey;
    const char* commandKey;
    const char* heading;
};
constexpr CommandGroup kCommandGroups[] = {
    {"%scmdt_pre_ns", "%spre%d", "    There are %d Pre Commands"},
    {"%scmdt_post_ns", "%spost%d", "    There are %d Post Commands"},
    {"%scmdt_cmds_ns", "%scell%d", "    There are %d Cell Commands"},
};

// The source keys of one cell's entry in C_PBIT and in C_POSIT, in the order
// they are written and read. Bytes are four hexadecimal bytes; Sector a
// signed 32-bit, Word a 16-bit and Byte an 8-bit decimal number.
enum class CellForm { Bytes, Sector, Word, Byte };
struct CellKey {
    const char* key;
    size_t at;
    CellForm form;
};
constexpr CellKey kPbitKeys[] = {
    {"%sc_pbit_cell%03d_cat", 0, CellForm::Bytes},
    {"%sc_pbit_cell%03d_pbtm", 4, CellForm::Bytes},
    {"%sc_pbit_cell%03d_fvobu_sa", 8, CellForm::Sector},
    {"%sc_pbit_cell%03d_filvu_ea", 12, CellForm::Sector},
    {"%sc_pbit_cell%03d_lvobu_sa", 16, CellForm::Sector},
    {"%sc_pbit_cell%03d_lvobu_ea", 20, CellForm::Sector},
};
constexpr CellKey kPositKeys[] = {
    {"%sc_posit_cell%03d_vobid", 0, CellForm::Word},
    {"%sc_posit_cell%03d_cellid", 3, CellForm::Byte},
};

// The binary PGC that starts at data + offset, read through a bounded view
// of the dataSize bytes the caller holds: whatever an offset or count points
// at beyond them reads as zero. The unsized entry points trust the caller
// and pass kTrustCaller.
constexpr unsigned long kTrustCaller = ~0UL;

class PgcBytes {
public:
    PgcBytes(unsigned char* data, unsigned long offset, unsigned long dataSize)
        : pgc_(ByteView(data, data ? size_t(dataSize) : 0).From(offset)) {}

    const ByteView& View() const { return pgc_; }
    uint8_t U8(size_t off) const { return pgc_.U8(off); }
    uint16_t BE16(size_t off) const { return pgc_.BE16(off); }
    uint32_t BE32(size_t off) const { return pgc_.BE32(off); }
    unsigned Programs() const { return pgc_.U8(kGiPrograms) & 0x7F; }
    unsigned Cells() const { return pgc_.U8(kGiCells); }

    // Turns the four words of the command-table header at cmdtSa into
    // little-endian words in the caller's buffer (only words that lie wholly
    // inside it) and reads the three counts back as little-endian, in the
    // order of kCommandGroups. Reading the same buffer again therefore gives
    // byte-swapped counts.
    std::array<unsigned, 3> SwapCommandHeader(size_t cmdtSa) {
        uint8_t* p = const_cast<uint8_t*>(pgc_.data());
        for (size_t w = 0; w < 4; ++w) {
            size_t at = cmdtSa + 2 * w;
            if (pgc_.Has(at, 2)) Swap16InPlace(p + at);
        }
        return {pgc_.LE16(cmdtSa), pgc_.LE16(cmdtSa + 2), pgc_.LE16(cmdtSa + 4)};
    }

private:
    ByteView pgc_;
};

}  // namespace pgc
}  // namespace kestro

// What AsmPGCI builds and GetPGCData writes out. The cell entries are held
// by value in vectors, so they are released with the model whatever path
// the codec takes.
struct CKestro_PGCI::Model {
    std::array<uint8_t, kestro::pgc::kGiSize> gi{};
    std::vector<std::array<uint8_t, kestro::pgc::kPositEntry>> posit;  // at most 256
    std::vector<std::array<uint8_t, kestro::pgc::kPbitEntry>> pbit;    // at most 256
    std::array<uint8_t, kestro::pgc::kMapBytes> pgmap{};
    uint16_t pgmapLength = 0;  // even after assembly, padding included
    std::array<uint8_t, kestro::pgc::kCmdtHeader> cmdtHeader{};
    uint16_t commandCount = 0;
    std::array<uint8_t, kestro::pgc::kMaxCommands * kestro::pgc::kCommandSize> commands{};

    void ReleaseCells() {
        posit.clear();
        posit.shrink_to_fit();
        pbit.clear();
        pbit.shrink_to_fit();
    }
};

#endif
