// The disc checker: finds what is wrong with a DVD-Video volume's navigation
// before anyone burns, archives or ships it.
//
// A check reads every table of the video manager and of each title set
// through the whole-disc model (<kestro/disc.h>), checks each file on its
// own (identifier, size against its end addresses, its BUP copy, its VOB
// files), each table (where it lies, its end address against its counts,
// the DVD-Video limits) and the tables against each other (titles against
// title sets, parts of title against PGCs and programs, PGCs against cells,
// cell address tables, VOBU maps and the VOB set, navigation commands
// against the titles, menus, PGCs, programs and cells they name).
//
// Every finding names the file, the table, the entry (1-based) and the
// field, says what is wrong and what was expected, and carries a severity
// and a stable identifier that scripts can match. A damaged or hostile file
// gives findings; nothing is read outside the bytes loaded.
#ifndef KESTRO_CHECK_H
#define KESTRO_CHECK_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kestro/export.h"

namespace kestro {
namespace check {

enum class Severity {
    Error,    // a player will misbehave or a reader refuses the disc
    Warning,  // unusual, but a player copes
};

struct Finding {
    Severity severity = Severity::Error;
    std::string id;        // stable identifier, e.g. "title.vts-missing"
    std::string file;      // "VIDEO_TS.IFO", "VTS_01_0.IFO", "VTS_01_1.VOB"...
    std::string table;     // "TT_SRPT", "VTS_PGCIT", "VTSM_LU1" (a menu language unit)...
    int entry = 0;         // 1-based entry of the table; 0 when the table as a whole
    std::string field;     // "next PGC", "C_PBI 3 last VOBU end sector"...
    std::string problem;   // what is wrong
    std::string expected;  // what was expected
};

// "error" or "warning".
KESTRO_API const char* SeverityName(Severity severity);

// One line: "FILE TABLE[entry] field: problem (expected)"; the entry is left
// out when it is 0, the parenthesis when nothing is expected.
KESTRO_API std::string FormatFinding(const Finding& finding);

// A disc held in memory: its IFO files (with their BUP copies where
// present) and the sizes of its VOB files.
struct IfoImage {
    std::string name;  // "VIDEO_TS.IFO" or "VTS_nn_0.IFO", upper case
    std::vector<uint8_t> bytes;
    bool hasBackup = false;
    std::vector<uint8_t> backup;  // the .BUP copy
};
struct VobFile {
    std::string name;  // "VIDEO_TS.VOB", "VTS_nn_m.VOB", upper case
    uint64_t bytes = 0;
};
struct DiscImage {
    std::vector<IfoImage> ifos;
    std::vector<VobFile> vobs;
};

struct Options {
    // Look for the BUP copies and the VOB files and check them. Off for a
    // folder that holds only navigation files (an archive of IFO files):
    // then nothing is said about files that are not there, and sectors are
    // checked against the IFO files' own figures only.
    bool companions = true;
};

struct Result {
    bool ok = false;                 // false when the input could not be read at all
    std::string error;               // why not
    std::vector<std::string> files;  // the files checked, in the order checked
    std::vector<Finding> findings;   // in file order, then table order
    KESTRO_API size_t Errors() const;
    KESTRO_API size_t Warnings() const;
};

// A disc held in memory. When `only` is given, findings are kept only for
// that file and the files that belong to it (its BUP and VOB files).
KESTRO_API Result CheckDisc(const DiscImage& disc, const Options& options = Options(),
                            const std::string& only = std::string());

// A DVD folder: the disc root (which holds VIDEO_TS) or the VIDEO_TS folder.
KESTRO_API Result CheckFolder(const std::string& folder, const Options& options = Options());

// One IFO file, checked with its neighbours in its folder where they are
// there (the video manager for a title set's titles, the title sets for the
// video manager's); the findings are the file's own.
KESTRO_API Result CheckIfoFile(const std::string& ifo, const Options& options = Options());

// The bytes of one IFO file (its kind taken from its identifier) with
// nothing beside it: only what the file alone can tell is checked.
KESTRO_API Result CheckIfoBytes(const std::vector<uint8_t>& bytes,
                                const std::string& name = std::string());

}  // namespace check
}  // namespace kestro

#endif
