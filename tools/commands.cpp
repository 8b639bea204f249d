#include "commands.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <memory>
#include <optional>

#include "kestro/kestro.h"
#include "line_ends.h"

namespace kestro_tool {

void Complain(const std::string& message) {
    std::fflush(stdout);  // what was said before comes first on a shared terminal
    std::fprintf(stderr, "kestro: %s\n", message.c_str());
}

fs::path BackupPathOf(const fs::path& ifo) {
    std::string ext = ifo.extension().string();
    bool lower = !ext.empty() && std::islower(static_cast<unsigned char>(ext.back()));
    fs::path bup = ifo;
    bup.replace_extension(lower ? ".bup" : ".BUP");
    return bup;
}

namespace {

// Prints the reports of one file: a heading per table, its text, and its
// error on stderr when it failed.
class ReportPrinter : public ReportSink {
public:
    explicit ReportPrinter(const fs::path& ifo) : file_(ifo.filename().string()) {}

    void Text(const char* table, char* text, size_t size) override {
        Head(table);
        size = SqueezeCarriageReturns(text, size);
        if (size == 0) return;
        std::fwrite(text, 1, size, stdout);
        lineOpen_ = text[size - 1] != '\n';
    }

    void Done(const char* table, bool ok, const std::string& error) override {
        Head(table);
        if (lineOpen_) std::putchar('\n');
        headed_ = lineOpen_ = false;
        if (ok) return;
        std::fflush(stdout);
        Complain(file_ + ": " + table + ": " + error);
        failed_ = true;
    }

    bool Failed() const { return failed_; }

private:
    void Head(const char* table) {
        if (headed_) return;
        std::printf("---- %s ----\n", table);
        headed_ = true;
    }

    std::string file_;
    bool headed_ = false, lineOpen_ = false, failed_ = false;
};

// Library messages name the private copy the library was given; the user
// knows the file by its own path.
std::string UserPaths(std::string text, const fs::path& privateCopy, const fs::path& user) {
    const std::string from = privateCopy.string(), to = user.string();
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

// A copy of an input file that is removed when the report is done.
struct PrivateCopy {
    fs::path path;
    PrivateCopy(const fs::path& from, const fs::path& to) : path(to) { CopyFileTo(from, to); }
    ~PrivateCopy() {
        std::error_code ec;
        fs::remove(path, ec);
    }
    PrivateCopy(const PrivateCopy&) = delete;
    PrivateCopy& operator=(const PrivateCopy&) = delete;
};

// Failures of the private steps towards an output are told as failures to
// write it: the user knows the output, not the working folder.
template <class F>
void ForOutput(const fs::path& output, F step) {
    try {
        step();
    } catch (const ToolError& e) {
        throw ToolError("cannot write " + output.string() + ": " + e.what());
    }
}

bool LooksLikeTitleSetName(const std::string& name) {
    return name.size() >= 6 && std::isdigit(static_cast<unsigned char>(name[4])) &&
           std::isdigit(static_cast<unsigned char>(name[5]));
}

// The suffixes of the side files that sit beside `source` (asm reads the
// time map INI files in order up to the first that is missing).
std::vector<std::string> SideSuffixesOf(const fs::path& source) {
    const std::string stem = SideStem(source);
    std::vector<std::string> suffixes;
    for (const char* s : {kTmapBinSuffix, kVtsAdmapBinSuffix, kVtsmAdmapBinSuffix})
        if (fs::exists(stem + s)) suffixes.push_back(s);
    for (int k = 1; k <= CKestro_VTS_TMAP::kMaxMaps; ++k) {
        if (!fs::exists(stem + TmapIniSuffix(k))) break;
        suffixes.push_back(TmapIniSuffix(k));
    }
    return suffixes;
}

// Copies side files of `source` (named by its stem) next to `privateIni`.
void CopySideFiles(const fs::path& source, const fs::path& privateIni) {
    for (const auto& s : SideSuffixesOf(source))
        CopyFileTo(SideStem(source) + s, SideStem(privateIni) + s);
}

}  // namespace

int RunReport(const ReportArgs& args) {
    int status = 0;
    // One report buffer for the whole command. The library opens IFO files
    // for writing (a report only reads them): a file that cannot be opened
    // so (read-only media) is copied into a private folder, reported there
    // and removed again.
    std::unique_ptr<PrivateDir> work;
    ReportBuffer buffer;
    for (const auto& given : args.paths) {
        fs::path path = Absolute(given);
        std::vector<fs::path> ifos;
        if (fs::is_directory(path)) {
            ifos = IfoFilesOf(path);
            if (ifos.empty()) {
                Complain(given + ": no IFO files in this folder");
                status = 1;
                continue;
            }
        } else if (fs::exists(path)) {
            ifos.push_back(path);
        } else {
            Complain(given + ": no such file or folder");
            status = 1;
            continue;
        }
        for (const auto& ifo : ifos) {
            try {
                IfoKind kind = KindOfIfo(ifo);
                std::optional<PrivateCopy> held;
                if (!OpensForWriting(ifo)) {
                    if (!work) work = std::make_unique<PrivateDir>(PrivateDir::InMemory{});
                    held.emplace(ifo, *work / ifo.filename().string());
                }
                std::printf("==== %s (%s information) ====\n", ifo.c_str(), KindName(kind));
                ReportPrinter printer(ifo);
                ReportIfo(held ? held->path : ifo, kind, buffer, printer);
                if (printer.Failed()) status = 1;
                std::fflush(stdout);
            } catch (const ToolError& e) {
                Complain(e.what());
                status = 1;
            }
        }
    }
    return status;
}

int RunDisasm(const DisasmArgs& args) {
    fs::path ifo = Absolute(args.ifo);
    if (!fs::is_regular_file(ifo)) throw ToolError(args.ifo + ": no such file");
    fs::path output = args.output.empty()
                          ? Absolute(fs::path(ifo.filename()).replace_extension(".ini"))
                          : Absolute(args.output);
    KindOfIfo(ifo);
    if (args.side != SideFiles::None && output.filename().string().size() < 5)
        throw ToolError(output.string() +
                        ": side files are named after the source less its last four characters, "
                        "so its name needs at least five");
    // Outputs that exist are refused before any work is done.
    std::vector<std::unique_ptr<StagedFile>> staged;
    staged.push_back(std::make_unique<StagedFile>(output, args.force));

    PrivateDir work(PrivateDir::InMemory{});
    fs::path copy = work / ifo.filename().string();
    ForOutput(output, [&] { CopyFileTo(ifo, copy); });
    // The management table's Disasm deletes the source file before it
    // writes, so it writes into a private file that replaces the output
    // only when it is complete.
    fs::path ini = work / "src.ini";
    std::vector<std::string> sides;
    LibraryIoWatch watch;
    try {
        sides = DisasmIfo(copy, ini, args.side, args.libraryRules);
    } catch (const ToolError& e) {
        // A write that failed in the working folder is the reason.
        CheckLibraryIo(watch, output);
        throw ToolError(ifo.filename().string() + ": " + UserPaths(e.what(), ini, output));
    }
    CheckLibraryIo(watch, output);
    CheckSourceWritten(ini, output);
    for (const auto& s : sides) {
        const fs::path side = SideStem(output) + s;
        if (s.size() > 4 && s.compare(s.size() - 4, 4, ".ini") == 0)
            CheckSourceWritten(SideStem(ini) + s, side);
        staged.push_back(std::make_unique<StagedFile>(side, args.force));
    }
    staged[0]->Write(ReadAll(ini));
    for (size_t k = 0; k < sides.size(); ++k)
        staged[k + 1]->Write(ReadAll(SideStem(ini) + sides[k]));
    // Side files of an earlier source of the same name that this one does
    // not have would be read with it by asm: they go with the commit.
    for (const auto& s : SideSuffixesOf(output))
        if (std::find(sides.begin(), sides.end(), s) == sides.end())
            staged.push_back(std::make_unique<StagedFile>(SideStem(output) + s, args.force,
                                                          StagedFile::Removal{}));
    std::vector<StagedFile*> all;
    for (auto& f : staged) all.push_back(f.get());
    CommitAll(all);
    return 0;
}

int RunAsm(const AsmArgs& args) {
    fs::path source = Absolute(args.source);
    if (!fs::is_regular_file(source)) throw ToolError(args.source + ": no such file");
    fs::path output = Absolute(args.output);

    // Work from a private copy of the source and its side files: the library
    // opens binary side files for writing, and joined time map entries must
    // not change the user's files.
    PrivateDir work(PrivateDir::InMemory{});
    fs::path ini = work / "src.ini";
    ForOutput(output, [&] {
        CopyFileTo(source, ini);
        CopySideFiles(source, ini);
    });
    if (fs::exists(SideStem(ini) + TmapIniSuffix(1)))
        CKestro_VTS_TMAP::JoinTmapSideFiles(ini.c_str());

    StagedFile ifo(output, args.force);
    std::unique_ptr<StagedFile> bup;
    if (args.backup) bup = std::make_unique<StagedFile>(BackupPathOf(output), args.force);

    // The library writes the file into the private folder; it is checked
    // there and then written to its staged name with checked writes.
    const fs::path built = work / "out.ifo";
    AsmOutcome outcome;
    LibraryIoWatch watch;
    try {
        outcome = AsmIfo(ini, built, output.parent_path(), output.filename().string(),
                         args.absolute, args.lenient, args.libraryRules);
    } catch (const ToolError& e) {
        // A write that failed in the working folder is the reason.
        CheckLibraryIo(watch, output);
        throw ToolError(source.filename().string() + ": " +
                        UserPaths(UserPaths(e.what(), ini, source), built, output));
    }
    CheckLibraryIo(watch, output);
    for (const auto& w : outcome.warnings)
        Complain("warning: " + source.filename().string() + ": " + UserPaths(w, ini, source));
    const std::string name = output.filename().string();
    if (outcome.kind == IfoKind::Vts && !LooksLikeTitleSetName(name))
        Complain("warning: " + name +
                 ": the title set number is read from characters 5 and 6 of the IFO file's "
                 "name (VTS_nn_0.IFO), and its VOB files are named after it");
    // The layout counts the VOB files found next to the output.
    std::string vob = outcome.kind == IfoKind::Vmg
                          ? SideStem(name) + ".VOB"
                          : "VTS_" + (name.size() >= 6 ? name.substr(4, 2) : "") + "_1.VOB";
    bool expectVob = outcome.kind == IfoKind::Vts ||
                     std::atol(Statement(ini, "vmgi_mat", "vmgm_vobs_sa", "0").c_str()) != 0;
    if (expectVob && !ExistsNoCase(output.parent_path(), vob))
        Complain("warning: " + name + ": no " + vob + " next to it; the " +
                 (outcome.kind == IfoKind::Vmg ? "menu" : "title") + " VOB addresses count none");
    const std::vector<unsigned char> bytes = ReadAll(built);
    CheckIfoComplete(bytes, output);
    ifo.Write(bytes);
    if (bup) bup->Write(bytes);
    CommitAll({&ifo, bup.get()});
    INIForgetFile(ini.c_str());
    return 0;
}

}  // namespace kestro_tool
