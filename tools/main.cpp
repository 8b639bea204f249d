// kestro: reports, disassembles, assembles and rebuilds the navigation files
// (IFO) of a DVD-Video volume through libkestro.
//
// Exit codes: 0 success, 1 failure (the library's message on stderr, with
// the file and the table), 2 usage error.
#include <CLI/CLI.hpp>

#include <exception>
#include <string>

#include "check.h"
#include "commands.h"

#ifndef KESTRO_VERSION
#define KESTRO_VERSION "unknown"
#endif

namespace {

constexpr const char* kLibraryRulesHelp =
    "Write exactly what the library's table classes write (their format rules drop some "
    "navigation; by default kestro restores it)";

// CLI11 gives an option its next argument whatever it looks like, so that
// "--output --force" would write a file named --force and leave the outputs
// unguarded. A value that looks like an option is refused instead; a file
// whose name starts with '-' is given as ./-name.
const CLI::Validator kNotAnOption(
    [](std::string& value) {
        if (value.size() < 2 || value[0] != '-') return std::string();
        return "needs a value, not '" + value +
               "' (a name that starts with '-' is given as ./-name)";
    },
    "");

}  // namespace

int main(int argc, char** argv) {
    using namespace kestro_tool;

    CLI::App app{"kestro: report, disassemble, assemble and rebuild DVD-Video IFO files", "kestro"};
    app.set_version_flag("--version", std::string("kestro ") + KESTRO_VERSION);
    app.require_subcommand(1, 1);
    app.fallthrough(false);
    // A flag takes no value: "--force=yes" is a usage error rather than a
    // spelling of --force. Subcommands inherit the defaults set here.
    app.option_defaults()->disable_flag_override();

    ReportArgs report;
    auto* cReport = app.add_subcommand(
        "report", "Print the report of every table of IFO files or of a VIDEO_TS folder");
    cReport->add_option("PATH", report.paths, "IFO file or DVD folder")->required();

    DisasmArgs disasm;
    std::string side = "none";
    auto* cDisasm = app.add_subcommand("disasm", "Write the editable source of one IFO file");
    cDisasm->add_option("IFO", disasm.ifo, "VIDEO_TS.IFO or VTS_nn_0.IFO")->required();
    cDisasm
        ->add_option("-o,--output", disasm.output,
                     "Source file to write (default: the IFO's name with .ini, here)")
        ->type_name("SOURCE")
        ->check(kNotAnOption);
    cDisasm
        ->add_option("--side-files", side,
                     "none: one self-contained source; ini: time map entries in TmapTable INI "
                     "files; bin: time maps and the title set's VOBU maps in binary files")
        ->type_name("KIND")
        ->check(CLI::IsMember({"none", "ini", "bin"}));
    cDisasm->add_flag("--library-rules", disasm.libraryRules, kLibraryRulesHelp);
    cDisasm->add_flag("-f,--force", disasm.force, "Replace existing output files");

    AsmArgs assemble;
    bool noBackup = false;
    auto* cAsm = app.add_subcommand("asm", "Assemble an IFO file (and its .BUP copy) from source");
    cAsm->add_option("SOURCE", assemble.source, "Source file written by disasm")->required();
    cAsm->add_option("-o,--output", assemble.output,
                     "IFO file to write; its VOB files are measured in its folder")
        ->type_name("IFO")
        ->check(kNotAnOption)
        ->required();
    cAsm->add_flag("--abs", assemble.absolute,
                   "Title sets: require the absolute address statements (AsmAbs)");
    cAsm->add_flag("--lenient", assemble.lenient,
                   "Write the file even when a PGC's source is incomplete (the PGC is then "
                   "built from what could be read)");
    cAsm->add_flag("--library-rules", assemble.libraryRules, kLibraryRulesHelp);
    cAsm->add_flag("--no-backup", noBackup, "Do not write the .BUP copy");
    cAsm->add_flag("-f,--force", assemble.force, "Replace existing output files");

    RebuildArgs rebuild;
    auto* cRebuild = app.add_subcommand(
        "rebuild", "Disassemble and reassemble every IFO file of a DVD folder into a new folder");
    cRebuild->add_option("DIR", rebuild.input, "DVD folder (or its VIDEO_TS folder)")->required();
    cRebuild
        ->add_option("-o,--output", rebuild.output,
                     "New DVD folder: the disc root (gets a VIDEO_TS folder) or its VIDEO_TS "
                     "folder; missing folders are created")
        ->type_name("DIR")
        ->check(kNotAnOption)
        ->required();
    cRebuild->add_flag("--copy-vobs", rebuild.copyVobs, "Copy the VOB files instead of linking");
    cRebuild->add_flag("--placeholder-vobs", rebuild.placeholderVobs,
                       "Create empty VOB files of the recorded sizes where the input has none");
    cRebuild->add_flag("--abs", rebuild.absolute, "Assemble title sets with AsmAbs");
    cRebuild->add_flag("--lenient", rebuild.lenient,
                       "Write files even when a PGC's source is incomplete");
    cRebuild->add_flag("--library-rules", rebuild.libraryRules, kLibraryRulesHelp);
    cRebuild->add_flag("-q,--quiet", rebuild.quiet, "Print no summary of changes");
    cRebuild->add_flag("-f,--force", rebuild.force, "Replace an existing output folder");

    CheckArgs check;
    auto* cCheck = app.add_subcommand(
        "check", "Find what is wrong with a disc's navigation (exit status 1 when anything is)");
    cCheck->add_option("PATH", check.paths, "DVD folder, IFO file, or source file")->required();
    cCheck->add_flag("--json", check.json, "Write the findings as JSON");
    cCheck->add_flag(
        "--ifo-only", check.ifoOnly,
        "The folders hold navigation files only: say nothing of missing BUP and VOB files");
    cCheck->add_flag("-q,--quiet", check.quiet, "Print the summary lines only");
    cCheck
        ->add_option("--vob-sizes", check.vobSizes,
                     "Sources: a file of 'NAME BYTES' lines giving the VOB files' sizes (instead "
                     "of the VOB files next to the source)")
        ->type_name("FILE")
        ->check(kNotAnOption);

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);  // --help or --version: printed on stdout
    } catch (const CLI::ParseError& e) {
        app.exit(e);  // the message and where help is, on stderr
        return 2;
    }
    disasm.side = side == "ini"   ? SideFiles::Ini
                  : side == "bin" ? SideFiles::Binary
                                  : SideFiles::None;
    assemble.backup = !noBackup;

    try {
        if (cReport->parsed()) return RunReport(report);
        if (cDisasm->parsed()) return RunDisasm(disasm);
        if (cAsm->parsed()) return RunAsm(assemble);
        if (cRebuild->parsed()) return RunRebuild(rebuild);
        if (cCheck->parsed()) return RunCheck(check);
    } catch (const std::exception& e) {
        Complain(e.what());
        return 1;
    }
    return 2;
}
