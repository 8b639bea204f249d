// What the members of each shared-table family do differently. Every
// behaviour of a family is written once, against one of these descriptions.
#ifndef KESTRO_SRC_TABLES_KINDS_H
#define KESTRO_SRC_TABLES_KINDS_H

#include <cstdint>

namespace kestro {

struct CellTableKind {
    const char* section;        // source section
    const char* countKey;       // number of VOBs
    const char* endAddressKey;  // end byte address
    const char* countLine;      // report line 1
    const char* endLine;        // report line 2
    bool bodySize16;            // loader keeps only the end address's low 16 bits
};

struct VobuMapKind {
    const char* section;        // source section
    const char* headerLine;     // first report line, or nullptr
    bool mapReadAtLoad;         // Load buffers the whole map; Details uses it
    bool silentBufferFailure;   // Disasm without a buffer sets no message
    bool sideFileLittleEndian;  // side-file writer converts the entries
};

// The two menu tables name everything alike: every section and key starts
// with `key`, every table named in a report line or message with `name`.
struct MenuPgcKind {
    const char* key;                 // "vmgm" or "vtsm"
    const char* name;                // "VMGM" or "VTSM"
    const char* menu;                // whose menus the report lines of the search pointers name
    bool wrapIllegalFormat;          // missing unit key wrapped in "[%s] Illegal source format!"
    bool clearLoadedViewFirst;       // Load empties the loaded view before anything else
    bool unitCountPreamble;          // "There are %d LU PGCs" and " \r\n" first
    bool breakAfterUnitEndLine;      // "\r\n" after the end-address line
    bool byteAddressNumberedByLine;  // numbered by category line length + 1, not j
    const char* pgcSeparator;        // appended after each PGC report
};

}  // namespace kestro

#endif
