// The kestro subcommands. Each returns the process exit code (0 success,
// 1 failure) and reports failures on stderr; ToolError escapes only for
// failures that end the whole command.
#ifndef KESTRO_TOOLS_COMMANDS_H
#define KESTRO_TOOLS_COMMANDS_H

#include <string>
#include <vector>

#include "host.h"

namespace kestro_tool {

struct ReportArgs {
    std::vector<std::string> paths;
};
int RunReport(const ReportArgs& args);

struct DisasmArgs {
    std::string ifo;
    std::string output;  // empty: <IFO name>.ini in the working folder
    SideFiles side = SideFiles::None;
    bool libraryRules = false;  // the table classes' output unchanged (not lossless)
    bool force = false;
};
int RunDisasm(const DisasmArgs& args);

struct AsmArgs {
    std::string source;
    std::string output;
    bool absolute = false;
    bool lenient = false;
    bool backup = true;
    bool libraryRules = false;
    bool force = false;
};
int RunAsm(const AsmArgs& args);

struct RebuildArgs {
    std::string input;
    std::string output;
    bool copyVobs = false;
    bool placeholderVobs = false;
    bool absolute = false;
    bool lenient = false;
    bool libraryRules = false;
    bool force = false;
    bool quiet = false;
};
int RunRebuild(const RebuildArgs& args);

// "kestro: " + message on stderr.
void Complain(const std::string& message);

// Differences between two IFO files of the same kind, table by table: one
// line per table ("  VTS_PGCIT    changed: 0x0004-0x0007 ..."), using each
// file's own layout so that a table that moved is compared with itself.
std::vector<std::string> CompareIfo(const std::vector<unsigned char>& before,
                                    const std::vector<unsigned char>& after, IfoKind kind);

// The copy of an IFO file's name with the backup extension (.BUP, keeping
// the case of the original extension).
fs::path BackupPathOf(const fs::path& ifo);

}  // namespace kestro_tool

#endif
