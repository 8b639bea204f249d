// The whole-disc module: a model of an IFO file read straight from its bytes,
// the table classes driven as a host drives them (which tables a file has,
// their order, the PGC codec, side files), and disassembly and assembly that
// keep every navigation field of the original.
//
// The table classes follow their own rules, and some of those rules lose
// what a player needs (every title written as title 1 of its set, cell and
// VOBU entries cut to 16-bit sizes, the parental and text tables dropped, a
// few attribute bytes changed). By default the operations here restore them:
// the source keeps the true values in the library's own statements where the
// library writes them, completes entries in the library's own key patterns
// where its Asm reads more than its Disasm writes, and holds the rest in
// sections the library never reads (their names start "lossless_", or are
// "parental_levels" and "text_data"). After the table classes have written a
// file, the module applies those values, lays the tables out again and writes
// the final bytes with checked writes. With `libraryRules` the output is
// exactly the table classes' output.
#ifndef KESTRO_DISC_H
#define KESTRO_DISC_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kestro/export.h"

namespace kestro {
namespace disc {

// ---- The model -----------------------------------------------------------------
// Every count is read at its full width and every entry is read only where
// the bytes loaded hold it: a damaged or hostile file gives a partial model
// and a list of problems, never a read outside the bytes.

using Command = std::array<uint8_t, 8>;

struct CellPlayback {
    uint32_t category = 0;      // cell type, block, seamless flags, still time, command
    uint32_t playbackTime = 0;  // BCD hours, minutes, seconds, frames
    uint32_t firstVobuStart = 0, firstIluEnd = 0, lastVobuStart = 0, lastVobuEnd = 0;
};

struct CellPosition {
    uint16_t vobId = 0;
    uint8_t cellId = 0;
};

struct Pgc {
    uint8_t programCount = 0, cellCount = 0;
    uint32_t playbackTime = 0;
    uint32_t prohibitedOperations = 0;
    std::array<uint16_t, 8> audioControl{};
    std::array<uint32_t, 32> subpictureControl{};
    uint16_t nextPgc = 0, previousPgc = 0, goUpPgc = 0;
    uint8_t stillTime = 0, playbackMode = 0;
    std::array<uint32_t, 16> palette{};
    std::vector<Command> preCommands, postCommands, cellCommands;
    std::vector<uint8_t> programEntryCells;  // program map: first cell of each program
    std::vector<CellPlayback> cellPlayback;
    std::vector<CellPosition> cellPositions;
    // Where the parts lie, in bytes from the PGC's start (layout).
    uint16_t commandsAt = 0, programMapAt = 0, cellPlaybackAt = 0, cellPositionAt = 0;
};

struct PgcSearchPointer {
    uint32_t category = 0;   // entry flag, title number or menu type, parental mask
    uint32_t startByte = 0;  // layout
    Pgc pgc;
};

// VTS_PGCIT, or one language unit of a menu table.
struct PgcTable {
    uint16_t count = 0;
    uint32_t endAddress = 0;
    std::vector<PgcSearchPointer> pgcs;
};

struct MenuLanguageUnit {
    uint16_t language = 0;   // ISO 639 code, two characters
    uint8_t menuExists = 0;  // which menus the unit has
    uint32_t startByte = 0;  // layout
    PgcTable table;
};

// VMGM_PGCI_UT or VTSM_PGCI_UT.
struct MenuTable {
    bool present = false;
    uint16_t count = 0;
    uint32_t endAddress = 0;
    std::vector<MenuLanguageUnit> units;
};

struct CellAddress {
    uint16_t vobId = 0;
    uint8_t cellId = 0;
    uint32_t firstSector = 0, lastSector = 0;
};

// VMGM_C_ADT, VTSM_C_ADT or VTS_C_ADT.
struct CellAddressTable {
    bool present = false;
    uint16_t vobCount = 0;
    uint32_t endAddress = 0;
    std::vector<CellAddress> cells;  // (endAddress + 1 - 8) / 12 entries
};

// VMGM_VOBU_ADMAP, VTSM_VOBU_ADMAP or VTS_VOBU_ADMAP.
struct VobuMap {
    bool present = false;
    uint32_t endAddress = 0;
    std::vector<uint32_t> sectors;  // (endAddress + 1 - 4) / 4 entries
};

struct TitleSearchPointer {
    uint8_t playbackType = 0, angleCount = 0;
    uint16_t partCount = 0;
    uint16_t parentalIdField = 0;
    uint8_t titleSet = 0, titleInSet = 0;
    uint32_t titleSetStartSector = 0;
};

// PTL_MAIT: per country eight parental levels, each a mask for the video
// manager and every title set.
struct ParentalCountry {
    uint16_t countryCode = 0;                     // two characters
    uint16_t startByte = 0;                       // layout
    std::array<std::vector<uint16_t>, 8> levels;  // levels[0] is level 8, levels[7] level 1
};
struct ParentalManagement {
    bool present = false;
    uint16_t titleSets = 0;
    uint32_t endAddress = 0;
    std::vector<ParentalCountry> countries;
};

// One record of VTS_ATRT: a title set's category and a copy of its VTSI_MAT
// attribute area (bytes 256 to 1023 of the title set's management table).
struct TitleSetAttributes {
    uint32_t endAddress = 0;
    uint32_t category = 0;
    std::vector<uint8_t> attributes;
};

// TXTDT_MG: kept as the bytes of the table, up to its end address.
struct TextData {
    bool present = false;
    std::vector<uint8_t> bytes;
};

struct VideoManager {
    std::vector<uint8_t> table;  // the 1024 bytes of VMGI_MAT
    uint32_t vmgEndSector = 0, vmgiEndSector = 0, matEndByte = 0, firstPlayByte = 0;
    uint16_t titleSetCount = 0;
    struct StartSectors {
        uint32_t menuVobs = 0, titles = 0, menus = 0, parental = 0, titleSetAttributes = 0,
                 textData = 0, menuCells = 0, menuVobus = 0;
    } start;
    bool hasFirstPlay = false;
    Pgc firstPlay;
    std::vector<TitleSearchPointer> titles;
    MenuTable menus;
    ParentalManagement parental;
    std::vector<TitleSetAttributes> titleSetAttributes;
    TextData text;
    CellAddressTable menuCells;
    VobuMap menuVobus;
    std::vector<std::string> problems;  // what could not be read whole
};

struct PartOfTitle {
    uint16_t pgc = 0;
    uint16_t program = 0;
};

struct TimeMap {
    uint8_t unitSeconds = 0;
    std::vector<uint32_t> entries;  // sector with the discontinuity flag in bit 31
};

struct TitleSet {
    std::vector<uint8_t> table;  // the 2048 bytes of VTSI_MAT
    uint32_t vtsEndSector = 0, vtsiEndSector = 0, matEndByte = 0;
    struct StartSectors {
        uint32_t menuVobs = 0, titleVobs = 0, parts = 0, titles = 0, menus = 0, timeMaps = 0,
                 menuCells = 0, menuVobus = 0, titleCells = 0, titleVobus = 0;
    } start;
    std::vector<std::vector<PartOfTitle>> parts;  // per title of the set
    PgcTable titles;
    bool hasTitles = false;
    MenuTable menus;
    std::vector<TimeMap> timeMaps;
    CellAddressTable menuCells, titleCells;
    VobuMap menuVobus, titleVobus;
    std::vector<std::string> problems;
};

// False when the bytes are not a video manager (title set) information file;
// otherwise the model of whatever the bytes hold, with `problems` naming
// every table that was cut short or lies outside the file.
KESTRO_API bool ReadVideoManager(const std::vector<uint8_t>& ifo, VideoManager& out);
KESTRO_API bool ReadTitleSet(const std::vector<uint8_t>& ifo, TitleSet& out);

// ---- Driving the table classes ---------------------------------------------------------

enum class IfoKind { VideoManager, TitleSet };

// Where time map entries and VOBU maps go when a file is disassembled.
enum class SideFiles {
    None,    // one self-contained source
    Ini,     // time map entries in the library's TmapTable INI side files
    Binary,  // time maps and the title set's VOBU maps in binary side files
};

// Side files belong to a source by name: the source path less its last four
// characters, followed by one of these.
KESTRO_API std::string TmapIniSuffix(int map);            // " TmapTable<k>.ini"
KESTRO_API extern const char* const kTmapBinSuffix;       // " tmap.bin"
KESTRO_API extern const char* const kVtsAdmapBinSuffix;   // " vts_vobu_admap.bin"
KESTRO_API extern const char* const kVtsmAdmapBinSuffix;  // " vtsm_vobu_admap.bin"
KESTRO_API std::string SideStem(const std::string& source);

// An IFO file opened and loaded through the table classes, its tables listed
// in load order with the management table first. The management table's
// Details and Disasm byte-swap the First Play PGC's command header in the
// loaded record, so a file is loaded afresh for every report or source run
// of that table (Reload).
class KESTRO_API LoadedIfo {
public:
    // Results of a table operation.
    static constexpr int kAbsent = -1, kFailed = 0, kDone = 1;

    LoadedIfo();
    ~LoadedIfo();
    LoadedIfo(const LoadedIfo&) = delete;
    LoadedIfo& operator=(const LoadedIfo&) = delete;

    // Opens (read/write, as the library opens IFO files) and loads `ifo`;
    // false with `error` naming the path otherwise.
    bool Open(const std::string& ifo, std::string& error);
    bool Reload(std::string& error);
    IfoKind Kind() const;

    size_t TableCount() const;
    const char* TableName(size_t i) const;
    bool IsManagement(size_t i) const { return i == 0; }
    // The table's report into buf (len as Details takes it), or its source
    // into `ini` with the side-file suffixes written appended to `sides`.
    int Details(size_t i, char* buf, int len, std::string& error);
    int Disasm(size_t i, const std::string& ini, SideFiles side, std::vector<std::string>& sides,
               std::string& error);

private:
    struct State;
    std::unique_ptr<State> state_;
    std::string path_;
};

struct DisasmResult {
    bool ok = false;
    std::string error;               // "<TABLE>: <reason>" or "<path>: <reason>"
    std::vector<std::string> sides;  // suffixes of the side files written
};

// Writes the source of `ifo` into `ini` (whose name ends in ".ini"). The
// table classes open `ifo` as they open every IFO file, for reading and
// writing, so hosts pass a private copy. Without libraryRules the source
// also carries what the table classes' rules drop.
KESTRO_API DisasmResult DisassembleIfo(const std::string& ifo, const std::string& ini,
                                       SideFiles side, bool libraryRules);

struct AsmOptions {
    bool absolute = false;      // title sets: the start sector statements required (AsmAbs)
    bool lenient = false;       // an incomplete PGC source is a warning, not a failure
    bool libraryRules = false;  // exactly the table classes' output
};

struct AsmResult {
    bool ok = false;
    std::string error;
    IfoKind kind = IfoKind::VideoManager;
    std::vector<std::string> tables;    // tables assembled, in layout order
    std::vector<std::string> warnings;  // messages that did not stop assembly
};

// Assembles the IFO file described by `ini` (side files beside it under the
// same stem) into `out`. `ifoName` is the name the file will have in
// `vobDir`, where its VOB files are measured (and, for a video manager, the
// title set IFO files already assembled there, which give the title start
// sectors). The final bytes are written with checked writes and synced; any
// failure fails the operation with the path and the system's reason. The
// working folder is `vobDir` while the management table is assembled (the
// table classes take the title set number from the bare file name).
KESTRO_API AsmResult AssembleIfo(const std::string& ini, const std::string& out,
                                 const std::string& vobDir, const std::string& ifoName,
                                 const AsmOptions& options);

// Section names of a source file in file order, and one statement (or `def`).
KESTRO_API std::vector<std::string> SectionsOf(const std::string& ini);
KESTRO_API std::string Statement(const std::string& ini, const char* section, const char* key,
                                 const char* def = "$");

}  // namespace disc
}  // namespace kestro

#endif
