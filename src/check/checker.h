// The disc checker's state and its parts: the files of a disc read into the
// whole-disc model, and the findings collected about them. Each .cpp of
// src/check adds one group of checks.
#ifndef KESTRO_SRC_CHECK_CHECKER_H
#define KESTRO_SRC_CHECK_CHECKER_H

#include <map>
#include <string>
#include <vector>

#include "kestro/check.h"
#include "kestro/disc.h"

namespace kestro {
namespace check {

// DVD-Video limits.
constexpr int kMaxTitleSets = 99;
constexpr int kMaxTitles = 99;
constexpr int kMaxParts = 999;
constexpr int kMaxPrograms = 99;
constexpr int kMaxCells = 255;
constexpr int kMaxCommands = 128;
constexpr int kMaxAngles = 9;
constexpr int kMaxAudio = 8;
constexpr int kMaxSubpictures = 32;
constexpr int kMaxButtons = 36;
constexpr uint64_t kSectorBytes = 2048;
constexpr uint64_t kMaxVobBytes = uint64_t(1) << 30;  // one VOB file holds at most 1 GiB

// Appends findings; `file` is set once per file checked.
class Findings {
public:
    explicit Findings(std::vector<Finding>& out) : out_(out) {}
    void SetFile(const std::string& file) { file_ = file; }
    // False once findings of this kind (or of the file) are no longer kept:
    // loops over a damaged table's entries stop building messages then.
    bool Wants(const char* id, const std::string& table, Severity s = Severity::Error);
    bool Full();
    const std::string& File() const { return file_; }
    void Error(const char* id, const std::string& table, int entry, const std::string& field,
               const std::string& problem, const std::string& expected = std::string()) {
        Add(Severity::Error, id, table, entry, field, problem, expected);
    }
    void Warning(const char* id, const std::string& table, int entry, const std::string& field,
                 const std::string& problem, const std::string& expected = std::string()) {
        Add(Severity::Warning, id, table, entry, field, problem, expected);
    }
    void Add(Severity s, const char* id, const std::string& table, int entry,
             const std::string& field, const std::string& problem, const std::string& expected);

private:
    std::vector<Finding>& out_;
    std::string file_;
    std::map<std::string, size_t> counts_;  // findings so far by file, table and identifier
    std::map<std::string, size_t> perFile_;
    std::map<std::string, size_t> moreAt_;  // where each "left out" line is
};

// A count or range in words: "1 to 7", "none" for an empty range.
std::string Range(uint64_t first, uint64_t last);
std::string Num(uint64_t n);
std::string Hex(uint64_t n, int digits);

// The VOB files of one VOB set, as the folder holds them.
struct VobSet {
    bool looked = false;             // the folder was searched for them
    std::vector<std::string> names;  // present, in order
    std::vector<uint64_t> bytes;
    uint64_t Sectors() const;
};

struct VmgData {
    std::string file = "VIDEO_TS.IFO";
    const IfoImage* image = nullptr;
    bool readable = false;
    disc::VideoManager model;
    VobSet menuVobs;
};

struct VtsData {
    int number = 0;
    std::string file;
    const IfoImage* image = nullptr;
    bool readable = false;
    disc::TitleSet model;
    VobSet menuVobs, titleVobs;
};

// What a navigation command may name, for the domain its PGC lies in.
enum class Domain { FirstPlay, VideoManagerMenu, TitleSetMenu, Title };

// One PGC and where it lies, for the PGC and command checks.
struct PgcPlace {
    Domain domain = Domain::Title;
    const VtsData* vts = nullptr;           // title and title set menu domains
    const disc::PgcTable* table = nullptr;  // the PGC's table (null for First Play)
    const disc::CellAddressTable* cells = nullptr;
    const disc::VobuMap* vobus = nullptr;
    const VobSet* vobSet = nullptr;
    uint64_t vobSectors = 0;  // sectors of the VOB set (0: not known)
    int audioStreams = 0, subpictureStreams = 0;
    std::string table_name;
    int entry = 0;
};

class Checker {
public:
    Checker(const DiscImage& disc, const Options& options, std::vector<Finding>& out);
    // Every check, file by file; the names of the files checked.
    std::vector<std::string> Run();

private:
    // files.cpp
    void CheckVmgFile(VmgData& vmg);
    void CheckVtsFile(VtsData& vts);
    void CheckBackup(const IfoImage& image, bool videoManager);
    void CheckVmgLayout(const VmgData& vmg);
    void CheckVtsLayout(const VtsData& vts);
    void CheckVmgVobs(const VmgData& vmg);
    void CheckVtsVobs(const VtsData& vts);
    // tables.cpp
    void CheckVmgTables(const VmgData& vmg);
    void CheckVtsTables(const VtsData& vts);
    void CheckMenus(const disc::MenuTable& menus, const char* name, bool titleSetMenus,
                    PgcPlace place);
    void CheckCellTable(const disc::CellAddressTable& t, const char* name, uint64_t vobSectors);
    void CheckVobuMap(const disc::VobuMap& m, const char* name, uint64_t vobSectors);
    // pgc.cpp
    void CheckPgcTable(const disc::PgcTable& t, const PgcPlace& place);
    void CheckPgc(const disc::Pgc& pgc, const PgcPlace& place);
    void CheckCommands(const disc::Pgc& pgc, const PgcPlace& place);
    void CheckCommand(const disc::Command& c, const disc::Pgc& pgc, const PgcPlace& place,
                      const char* list, int line, int lines);
    // cross.cpp
    void CheckTitles(const VmgData& vmg);
    void CheckTitleSetAttributes(const VmgData& vmg);
    void CheckParts(const VtsData& vts);

    // Titles of the disc the VMG's TT_SRPT lists (0 when there is no video
    // manager); title set number -> titles within it.
    int DiscTitles() const;
    const VtsData* TitleSet(int number) const;

    // Indexes built once per table, so that a PGC's cells and a command's
    // targets are looked up rather than searched: a hostile file can hold
    // millions of cell entries and tens of thousands of PGCs.
    struct CellRange {
        uint32_t key;  // VOB_IDN << 8 | C_IDN
        uint32_t first, last;
    };
    const std::vector<CellRange>& CellIndex(const disc::CellAddressTable& t);
    bool VobusSorted(const disc::VobuMap& m);
    bool HasMenu(const disc::MenuTable& menus, int type);
    size_t PartsOfPgc(const VtsData& vts, unsigned pgc);  // most parts of a title using it; 0: none
    std::map<const void*, std::vector<CellRange>> cellIndex_;
    std::map<const void*, bool> vobusSorted_;
    std::map<const void*, uint32_t> menuTypes_;
    std::map<const void*, std::vector<size_t>> partsByPgc_;

    const DiscImage& disc_;
    Options options_;
    Findings f_;
    bool hasVmg_ = false;
    VmgData vmg_;
    std::map<int, VtsData> sets_;
};

// Audio and sub-picture stream counts of a management table's attribute
// area (a VMGI_MAT has menu streams only).
int MenuAudioStreams(const std::vector<uint8_t>& mat);
int MenuSubpictureStreams(const std::vector<uint8_t>& mat);
int TitleAudioStreams(const std::vector<uint8_t>& mat);
int TitleSubpictureStreams(const std::vector<uint8_t>& mat);

}  // namespace check
}  // namespace kestro

#endif
