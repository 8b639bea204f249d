// kestro check: each PATH (a DVD folder, one IFO file, or a source) checked
// through the library's disc checker; findings one a line or as JSON, and a
// summary. A source is assembled first, into a private folder that links
// the VOB files (and the other IFO files) of the source's own folder, so
// that it is laid out against them as `kestro asm` would lay it out there.
#include "check.h"

#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <iostream>

#include "commands.h"
#include "files.h"
#include "host.h"
#include "kestro/check.h"
#include "kestro/ini.h"

namespace kestro_tool {

namespace {

namespace kc = kestro::check;

std::string UpperName(std::string s) {
    for (char& c : s) c = char(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

bool IsSource(const fs::path& p) { return UpperName(p.extension().string()) == ".INI"; }

// The IFO name a source assembles to: its own stem when that is an IFO name,
// else by the kind of its management table.
std::string IfoNameOf(const fs::path& source) {
    const std::string stem = UpperName(source.stem().string());
    const bool vts = stem.size() == 8 && stem.compare(0, 4, "VTS_") == 0 && stem[7] == '0' &&
                     std::isdigit(uint8_t(stem[4])) && std::isdigit(uint8_t(stem[5]));
    if (stem == "VIDEO_TS" || vts) return stem + ".IFO";
    const auto sections = SectionsOf(source);
    for (const auto& s : sections)
        if (s == "vtsi_mat") return "VTS_01_0.IFO";
    return "VIDEO_TS.IFO";
}

kc::Result CheckSource(const fs::path& source, const kc::Options& options,
                       const std::string& vobSizes) {
    PrivateDir work(PrivateDir::InMemory{});
    const fs::path disc = work / "disc";
    fs::create_directories(disc);
    const std::string name = IfoNameOf(source);
    // The neighbours the layout measures: VOB files, and the title sets'
    // IFO files from which a video manager takes its title start sectors.
    std::error_code ec;
    for (fs::directory_iterator it(source.parent_path(), ec), end; !ec && it != end;
         it.increment(ec)) {
        const std::string n = UpperName(it->path().filename().string());
        const std::string ext = n.size() > 4 ? n.substr(n.size() - 4) : "";
        if (n == name || (ext != ".VOB" && ext != ".IFO" && ext != ".BUP")) continue;
        if (ext == ".VOB" && !vobSizes.empty()) continue;
        std::error_code linked;
        fs::create_symlink(fs::absolute(it->path()), disc / n, linked);
    }
    // VOB files of the sizes given, as empty (sparse) files: only their sizes are read.
    if (!vobSizes.empty()) {
        std::ifstream sizes(vobSizes);
        if (!sizes) throw ToolError(vobSizes + ": cannot be read");
        std::string vob;
        for (unsigned long long bytes = 0; sizes >> vob >> bytes;) {
            const fs::path p = disc / UpperName(fs::path(vob).filename().string());
            std::ofstream(p).close();
            fs::resize_file(p, bytes);
        }
    }
    const fs::path ini = work / "src.ini";
    fs::copy_file(source, ini);
    const std::string stem = SideStem(source), into = SideStem(ini);
    for (const std::string& side :
         {TmapIniSuffix(1), std::string(kTmapBinSuffix), std::string(kVtsAdmapBinSuffix),
          std::string(kVtsmAdmapBinSuffix)})
        if (fs::exists(stem + side)) fs::copy_file(stem + side, into + side);
    for (int k = 2; fs::exists(stem + TmapIniSuffix(k)); ++k)
        fs::copy_file(stem + TmapIniSuffix(k), into + TmapIniSuffix(k));
    const fs::path out = disc / name;
    // The INI store keeps a source in memory once read; this one goes with the folder.
    struct Forget {
        const fs::path& ini;
        ~Forget() { INIForgetFile(ini.c_str()); }
    } forget{ini};
    AsmIfo(ini, out, disc, name, false, false);
    fs::copy_file(out, disc / (name.substr(0, name.size() - 4) + ".BUP"),
                  fs::copy_options::overwrite_existing);
    return kc::CheckIfoFile(out.string(), options);
}

kc::Result CheckPath(const std::string& path, const kc::Options& options,
                     const std::string& vobSizes) {
    const fs::path p(path);
    if (fs::is_directory(p)) return kc::CheckFolder(path, options);
    if (!fs::is_regular_file(p)) {
        kc::Result r;
        r.error = path + ": no such file or folder";
        return r;
    }
    if (!IsSource(p)) return kc::CheckIfoFile(path, options);
    try {
        return CheckSource(Absolute(p), options, vobSizes);
    } catch (const std::exception& e) {
        kc::Result r;
        r.error = path + ": cannot be assembled: " + e.what();
        return r;
    }
}

std::string Plural(size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string Summary(const kc::Result& r) {
    return Plural(r.files.size(), "file", "files") +
           " checked: " + Plural(r.Errors(), "error", "errors") + ", " +
           Plural(r.Warnings(), "warning", "warnings");
}

nlohmann::json ToJson(const kc::Finding& f) {
    nlohmann::json j;
    j["severity"] = kc::SeverityName(f.severity);
    j["id"] = f.id;
    j["file"] = f.file;
    j["table"] = f.table;
    j["entry"] = f.entry > 0 ? nlohmann::json(f.entry) : nlohmann::json(nullptr);
    j["field"] = f.field;
    j["problem"] = f.problem;
    j["expected"] = f.expected;
    j["text"] = kc::FormatFinding(f);
    return j;
}

}  // namespace

int RunCheck(const CheckArgs& args) {
    kc::Options options;
    options.companions = !args.ifoOnly;
    bool failed = false;
    size_t errors = 0, warnings = 0;
    nlohmann::json paths = nlohmann::json::array();
    for (const std::string& path : args.paths) {
        const kc::Result r = CheckPath(path, options, args.vobSizes);
        if (!r.ok) {
            failed = true;
            if (args.json)
                paths.push_back({{"path", path}, {"error", r.error}});
            else
                Complain(r.error);
            continue;
        }
        errors += r.Errors();
        warnings += r.Warnings();
        if (args.json) {
            nlohmann::json findings = nlohmann::json::array();
            for (const auto& f : r.findings) findings.push_back(ToJson(f));
            paths.push_back({{"path", path},
                             {"files", r.files},
                             {"findings", findings},
                             {"errors", r.Errors()},
                             {"warnings", r.Warnings()}});
            continue;
        }
        if (!args.quiet)
            for (const auto& f : r.findings)
                std::cout << kc::FormatFinding(f) << "  [" << kc::SeverityName(f.severity) << " "
                          << f.id << "]\n";
        std::cout << path << ": " << Summary(r) << "\n";
    }
    if (args.json) {
        nlohmann::json all = {{"paths", paths}, {"errors", errors}, {"warnings", warnings}};
        std::cout << all.dump(2) << "\n";
    }
    std::cout.flush();
    return failed || errors > 0 ? 1 : 0;
}

}  // namespace kestro_tool
