// kestro: reports, disassembles, assembles and rebuilds the navigation files
// (IFO) of a DVD-Video volume through libkestro.
//
// Exit codes: 0 success, 1 failure (the library's message on stderr, with
// the file and the table), 2 usage error.
#include <cstdio>
#include <exception>

#include "args.h"
#include "commands.h"

#ifndef KESTRO_VERSION
#define KESTRO_VERSION "unknown"
#endif

int main(int argc, char** argv) {
    using namespace kestro_tool;

    ReportArgs report;
    DisasmArgs disasm;
    std::string side = "none";
    AsmArgs assemble;
    bool noBackup = false;
    RebuildArgs rebuild;

    enum { kReport, kDisasm, kAsm, kRebuild };
    const ArgProgram program{
        "kestro",
        "kestro: report, disassemble, assemble and rebuild DVD-Video IFO files",
        "kestro " KESTRO_VERSION,
        {
            {"report",
             "Print the report of every table of IFO files or of a VIDEO_TS folder",
             {{"PATH", "IFO file or DVD folder", nullptr, &report.paths}},
             {}},
            {"disasm",
             "Write the editable source of one IFO file",
             {{"IFO", "VIDEO_TS.IFO or VTS_nn_0.IFO", &disasm.ifo}},
             {{"-o,--output", "Source file to write (default: the IFO's name with .ini, here)",
               nullptr, &disasm.output, "SOURCE"},
              {"--side-files",
               "none: one self-contained source; ini: time map entries in TmapTable INI files; "
               "bin: time maps and the title set's VOBU maps in binary files",
               nullptr, &side, "KIND", {"none", "ini", "bin"}},
              {"-f,--force", "Replace existing output files", &disasm.force}}},
            {"asm",
             "Assemble an IFO file (and its .BUP copy) from source",
             {{"SOURCE", "Source file written by disasm", &assemble.source}},
             {{"-o,--output", "IFO file to write; its VOB files are measured in its folder",
               nullptr, &assemble.output, "IFO", {}, true},
              {"--abs", "Title sets: require the absolute address statements (AsmAbs)",
               &assemble.absolute},
              {"--lenient",
               "Write the file even when a PGC's source is incomplete (the PGC is then built "
               "from what could be read)",
               &assemble.lenient},
              {"--no-backup", "Do not write the .BUP copy", &noBackup},
              {"-f,--force", "Replace existing output files", &assemble.force}}},
            {"rebuild",
             "Disassemble and reassemble every IFO file of a DVD folder into a new folder",
             {{"DIR", "DVD folder (or its VIDEO_TS folder)", &rebuild.input}},
             {{"-o,--output", "New DVD folder (gets a VIDEO_TS folder)", nullptr, &rebuild.output,
               "DIR", {}, true},
              {"--copy-vobs", "Copy the VOB files instead of linking", &rebuild.copyVobs},
              {"--placeholder-vobs",
               "Create empty VOB files of the recorded sizes where the input has none",
               &rebuild.placeholderVobs},
              {"--abs", "Assemble title sets with AsmAbs", &rebuild.absolute},
              {"--lenient", "Write files even when a PGC's source is incomplete",
               &rebuild.lenient},
              {"-q,--quiet", "Print no summary of changes", &rebuild.quiet},
              {"-f,--force", "Replace an existing output folder", &rebuild.force}}},
        }};

    int exitCode = 0;
    const int command = ParseArgs(program, argc, argv, exitCode);
    if (command < 0) return exitCode;
    disasm.side = side == "ini" ? SideFiles::Ini : side == "bin" ? SideFiles::Binary : SideFiles::None;
    assemble.backup = !noBackup;

    try {
        switch (command) {
        case kReport: return RunReport(report);
        case kDisasm: return RunDisasm(disasm);
        case kAsm: return RunAsm(assemble);
        case kRebuild: return RunRebuild(rebuild);
        }
    } catch (const std::exception& e) {
        Complain(e.what());
        return 1;
    }
    return 2;
}
