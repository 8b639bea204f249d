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
    const char* section;     // source section
    const char* headerLine;  // first report line, or nullptr
    bool mapReadAtLoad;      // Load buffers the whole map; Details uses it
    bool silentBufferFailure;          // Disasm without a buffer sets no message
    bool sideFileLittleEndian;         // side-file writer converts the entries
};

struct MenuPgcKind {
    // Table.
    const char* tableSection;  // "..._pgci_ut"
    const char* unitSection;   // "..._lu"
    const char* pgcSection;    // "..._lu%02d_%02d"
    const char* countKey;
    const char* endAddressKey;
    const char* lcdKey;
    const char* exstKey;
    const char* unitStartKey;
    const char* countLine;
    const char* endLine;
    const char* lcdLine;
    const char* exstLine;
    const char* startLine;
    const char* missingLcd;
    const char* missingExst;
    const char* missingUnitKey;   // "..._LU: is missing the %s statement"
    bool wrapIllegalFormat;       // missing unit key wrapped in "[%s] Illegal source format!"
    bool clearLoadedViewFirst;    // Load empties the loaded view before anything else
    // Units.
    const char* pgcCountKey;   // "..._lui%02d_pgci_srp_ns"
    const char* unitEndKey;    // "..._lui%02d_lu_ea"
    const char* categoryKey;
    const char* pgcStartKey;
    const char* pgcPrefix;
    const char* unitPgcCountLine;
    const char* unitEndLine;
    const char* categoryLine;
    const char* byteAddressLine;
    bool unitCountPreamble;        // "There are %d LU PGCs" and " \r\n" first
    bool breakAfterUnitEndLine;    // "\r\n" after the end-address line
    bool byteAddressNumberedByLine;  // numbered by category line length + 1, not j
    const char* pgcSeparator;      // appended after each PGC report
};

}  // namespace kestro

#endif
