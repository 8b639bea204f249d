// How the kestro command drives the library: which tables an IFO file has,
// in which order they are reported and written as source, and how an IFO
// file is assembled from a source file.
#ifndef KESTRO_TOOLS_HOST_H
#define KESTRO_TOOLS_HOST_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "files.h"
#include "kestro/disc.h"

namespace kestro_tool {

enum class IfoKind { Vmg, Vts };

// Reads the 12-character identifier; throws ToolError for other files.
IfoKind KindOfIfo(const fs::path& ifo);
const char* KindName(IfoKind kind);

// Receives the reports of a file's tables as they are made: each table's
// text in one or more pieces (lines end "\r\n"; a title set's maps run to
// megabytes, which are never held whole), then its outcome. Tables the file
// does not have are left out.
class ReportSink {
public:
    virtual ~ReportSink() = default;
    // A piece of the report of `table` (a name such as "VTSI_MAT"); valid
    // only during the call, and the receiver may rewrite it in place.
    virtual void Text(const char* table, char* text, size_t size) = 0;
    // The report of `table` is complete, or failed with `error`.
    virtual void Done(const char* table, bool ok, const std::string& error) = 0;
};

// The buffer the library writes reports into, kept for a whole command so
// that every table after the first reuses memory already mapped. It only
// grows (by doubling) and is never cleared: a report needs nothing but an
// empty text at its start.
class ReportBuffer {
public:
    // A buffer whose first `room` bytes are the report's and whose rest
    // (as many bytes again) is a guard; its text is empty.
    char* Prepare(size_t room);
    size_t Room() const { return room_; }

private:
    std::unique_ptr<char[]> data_;
    size_t room_ = 0;
};

// Reports every table of the file to `sink`, management table first, the
// others in load order. `ifo` must open for writing (the library opens IFO
// files so; a report only reads them).
void ReportIfo(const fs::path& ifo, IfoKind kind, ReportBuffer& buffer, ReportSink& sink);

// Where time map entries and VOBU maps go when a file is disassembled, and
// the names of the side files (the library's module defines both).
using SideFiles = kestro::disc::SideFiles;

// Side files belong to a source file by name: the source path with its last
// four characters (".ini") replaced by one of these suffixes.
std::string TmapIniSuffix(int map);            // " TmapTable<k>.ini"
extern const char* const kTmapBinSuffix;       // " tmap.bin"
extern const char* const kVtsAdmapBinSuffix;   // " vts_vobu_admap.bin"
extern const char* const kVtsmAdmapBinSuffix;  // " vtsm_vobu_admap.bin"
std::string SideStem(const fs::path& source);  // the path less its last four characters

// Writes the source of `ifo` (a private copy) into `ini`, whose name must
// end in ".ini"; returns the suffixes of the side files written next to it.
// The source carries every navigation field of the file unless
// `libraryRules`, which gives the table classes' source unchanged.
std::vector<std::string> DisasmIfo(const fs::path& ifo, const fs::path& ini, SideFiles side,
                                   bool libraryRules = false);

struct AsmOutcome {
    IfoKind kind = IfoKind::Vmg;
    std::vector<std::string> tables;    // tables assembled, in layout order
    std::vector<std::string> warnings;  // messages that did not stop assembly
};

// Assembles the IFO file described by `ini` (a private copy, with its side
// files beside it under the same stem) into `out`. `ifoName` is the file
// name the IFO file will have in `vobDir`, where its VOB files are measured.
// A PGC whose source is incomplete fails the assembly unless `lenient`.
// What the table classes' rules drop is restored from the source unless
// `libraryRules` (then the output is exactly the table classes' output); a
// video manager takes its title start sectors from the title set IFO files
// already in `vobDir` when they are all there.
AsmOutcome AsmIfo(const fs::path& ini, const fs::path& out, const fs::path& vobDir,
                  const std::string& ifoName, bool absolute, bool lenient,
                  bool libraryRules = false);

// Section names of a source file, in file order.
std::vector<std::string> SectionsOf(const fs::path& ini);
// One statement of a source file, or `def` when it is missing.
std::string Statement(const fs::path& ini, const char* section, const char* key,
                      const char* def = "$");

}  // namespace kestro_tool

#endif
