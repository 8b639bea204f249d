// The checker's entry points: a DVD folder, one IFO file with its
// neighbours, or a disc in memory; and the form of a finding.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "check/checker.h"

namespace kestro {
namespace check {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMaxPerKind = 20, kMaxPerFile = 500;

// No IFO file of a real disc comes near this; a larger file is not read.
constexpr uint64_t kMaxIfoBytes = uint64_t(64) << 20;

std::string Upper(std::string s) {
    for (char& c : s) c = char(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

bool ReadFile(const fs::path& path, std::vector<uint8_t>& out, std::string& error) {
    std::error_code ec;
    const uint64_t size = fs::file_size(path, ec);
    if (ec) {
        error = path.string() + ": " + ec.message();
        return false;
    }
    if (size > kMaxIfoBytes) {
        error = path.string() + ": " + std::to_string(size) + " bytes, more than an IFO file holds";
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    out.resize(size_t(size));
    if (!in || !in.read(reinterpret_cast<char*>(out.data()), std::streamsize(out.size()))) {
        error = path.string() + ": cannot be read";
        return false;
    }
    return true;
}

// "VIDEO_TS" and "VTS_nn_0" IFO names, upper case.
bool IsIfoStem(const std::string& stem) {
    if (stem == "VIDEO_TS") return true;
    return stem.size() == 8 && stem.compare(0, 4, "VTS_") == 0 && std::isdigit(uint8_t(stem[4])) &&
           std::isdigit(uint8_t(stem[5])) && stem[6] == '_' && stem[7] == '0';
}

// Reads the navigation files and the VOB sizes of one folder.
bool LoadFolder(const fs::path& dir, DiscImage& disc, std::string& error) {
    std::error_code ec;
    std::map<std::string, fs::path> files;  // upper-case name -> path
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
        if (it->is_regular_file(ec)) files[Upper(it->path().filename().string())] = it->path();
    if (ec) {
        error = dir.string() + ": " + ec.message();
        return false;
    }
    for (const auto& [name, path] : files) {
        const size_t dot = name.rfind('.');
        if (dot == std::string::npos) continue;
        const std::string stem = name.substr(0, dot), ext = name.substr(dot + 1);
        if (ext == "VOB") {
            disc.vobs.push_back({name, uint64_t(fs::file_size(path, ec))});
        } else if (ext == "IFO" && IsIfoStem(stem)) {
            IfoImage image;
            image.name = name;
            if (!ReadFile(path, image.bytes, error)) return false;
            auto bup = files.find(stem + ".BUP");
            if (bup != files.end()) {
                std::string ignored;
                image.hasBackup = ReadFile(bup->second, image.backup, ignored);
            }
            disc.ifos.push_back(std::move(image));
        }
    }
    if (disc.ifos.empty()) {
        error = dir.string() + ": no IFO file (VIDEO_TS.IFO, VTS_nn_0.IFO)";
        return false;
    }
    return true;
}

// The folder that holds the IFO files: VIDEO_TS below a disc root, or the
// folder itself.
fs::path VideoTsOf(const fs::path& folder) {
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
        if (Upper(it->path().filename().string()) == "VIDEO_TS" && it->is_directory(ec))
            return it->path();
    return folder;
}

Result Finish(const DiscImage& disc, const Options& options, const std::string& only) {
    Result r;
    r.ok = true;
    Checker checker(disc, options, r.findings);
    r.files = checker.Run();
    if (!only.empty()) {
        const std::string stem = only.substr(0, only.size() >= 6 ? 6 : only.size());
        auto foreign = [&](const Finding& f) {
            if (f.file == only) return false;
            const bool vmg = only == "VIDEO_TS.IFO";
            return vmg ? f.file.compare(0, 9, "VIDEO_TS.") != 0 : f.file.compare(0, 6, stem) != 0;
        };
        r.findings.erase(std::remove_if(r.findings.begin(), r.findings.end(), foreign),
                         r.findings.end());
        r.files.assign(1, only);
    }
    return r;
}

}  // namespace

const char* SeverityName(Severity severity) {
    return severity == Severity::Error ? "error" : "warning";
}

std::string FormatFinding(const Finding& f) {
    std::string line = f.file;
    if (!f.table.empty()) line += " " + f.table;
    if (!f.table.empty() && f.entry > 0) line += "[" + std::to_string(f.entry) + "]";
    if (!f.field.empty()) line += " " + f.field;
    line += ": " + f.problem;
    if (!f.expected.empty()) line += " (" + f.expected + ")";
    return line;
}

size_t Result::Errors() const {
    return size_t(std::count_if(findings.begin(), findings.end(),
                                [](const Finding& f) { return f.severity == Severity::Error; }));
}

size_t Result::Warnings() const { return findings.size() - Errors(); }

void Findings::Add(Severity s, const char* id, const std::string& table, int entry,
                   const std::string& field, const std::string& problem,
                   const std::string& expected) {
    if (!Wants(id, table, s)) return;
    ++perFile_[file_];
    ++counts_[file_ + '\n' + table + '\n' + id];
    out_.push_back({s, id, file_, table, entry, field, problem, expected});
}

// A damaged table can repeat one fault in every entry, and a hostile file
// in tens of thousands of tables: the first few findings of a kind say what
// is wrong, the rest would only bury the others. One line says that more
// were left out, with the gravest severity of what it stands for, so that
// the exit status still tells an error.
bool Findings::Wants(const char* id, const std::string& table, Severity s) {
    if (Full()) return false;
    const std::string key = file_ + '\n' + table + '\n' + id;
    auto count = counts_.find(key);
    if (count == counts_.end() || count->second < kMaxPerKind) return true;
    auto it = moreAt_.find(key);
    if (it == moreAt_.end()) {
        it = moreAt_.emplace(key, out_.size()).first;
        out_.push_back({Severity::Warning, "check.more", file_, table, 0, "",
                        "further findings of this kind (" + std::string(id) + ") left out", ""});
    }
    if (s == Severity::Error) out_[it->second].severity = Severity::Error;
    return false;
}

// A file with this many findings is damaged through and through: the line
// that says the rest are left out is an error of its own.
bool Findings::Full() {
    if (perFile_[file_] < kMaxPerFile) return false;
    if (moreAt_.emplace(file_, out_.size()).second)
        out_.push_back({Severity::Error, "check.more", file_, "", 0, "",
                        "more than " + Num(kMaxPerFile) + " findings; the rest are left out", ""});
    return true;
}

std::string Num(uint64_t n) { return std::to_string(n); }

std::string Range(uint64_t first, uint64_t last) {
    if (last < first) return "none";
    if (last == first) return Num(first);
    return Num(first) + " to " + Num(last);
}

std::string Hex(uint64_t n, int digits) {
    static const char kDigits[] = "0123456789abcdef";
    std::string s(size_t(digits), '0');
    for (int i = digits - 1; i >= 0; --i, n >>= 4) s[size_t(i)] = kDigits[n & 15];
    return s;
}

uint64_t VobSet::Sectors() const {
    uint64_t total = 0;
    for (uint64_t b : bytes) total += b / kSectorBytes;
    return total;
}

Result CheckDisc(const DiscImage& disc, const Options& options, const std::string& only) {
    return Finish(disc, options, Upper(only));
}

Result CheckFolder(const std::string& folder, const Options& options) {
    Result r;
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) {
        r.error = folder + ": not a folder";
        return r;
    }
    DiscImage disc;
    if (!LoadFolder(VideoTsOf(folder), disc, r.error)) return r;
    return Finish(disc, options, std::string());
}

Result CheckIfoFile(const std::string& ifo, const Options& options) {
    Result r;
    const fs::path path(ifo);
    const std::string name = Upper(path.filename().string());
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) {
        r.error = ifo + ": no such file";
        return r;
    }
    DiscImage disc;
    const fs::path dir = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::string folderError;
    const bool known = name.size() > 4 && IsIfoStem(name.substr(0, name.size() - 4)) &&
                       name.compare(name.size() - 4, 4, ".IFO") == 0;
    if (!known || !LoadFolder(dir, disc, folderError)) {
        // A file of another name is checked alone, by what it holds.
        std::vector<uint8_t> bytes;
        if (!ReadFile(path, bytes, r.error)) return r;
        return CheckIfoBytes(bytes, name);
    }
    return Finish(disc, options, name);
}

Result CheckIfoBytes(const std::vector<uint8_t>& bytes, const std::string& name) {
    DiscImage disc;
    IfoImage image;
    const bool vts =
        bytes.size() >= 12 && std::equal(bytes.begin(), bytes.begin() + 12, "DVDVIDEO-VTS");
    image.name = name.empty() ? (vts ? "VTS_01_0.IFO" : "VIDEO_TS.IFO") : Upper(name);
    image.bytes = bytes;
    disc.ifos.push_back(std::move(image));
    Options alone;
    alone.companions = false;
    return Finish(disc, alone, std::string());
}

Checker::Checker(const DiscImage& disc, const Options& options, std::vector<Finding>& out)
    : disc_(disc), options_(options), f_(out) {}

std::vector<std::string> Checker::Run() {
    std::vector<std::string> files;
    // Read every file first: the cross-table checks need them all.
    for (const IfoImage& image : disc_.ifos) {
        const std::string stem = image.name.substr(0, image.name.find('.'));
        if (stem == "VIDEO_TS") {
            hasVmg_ = true;
            vmg_.file = image.name;
            vmg_.image = &image;
            vmg_.readable = disc::ReadVideoManager(image.bytes, vmg_.model);
        } else if (stem.size() == 8) {
            VtsData& vts = sets_[(stem[4] - '0') * 10 + (stem[5] - '0')];
            vts.number = (stem[4] - '0') * 10 + (stem[5] - '0');
            vts.file = image.name;
            vts.image = &image;
            vts.readable = disc::ReadTitleSet(image.bytes, vts.model);
        }
    }
    // VOB files by set: VIDEO_TS.VOB; VTS_nn_0.VOB for menus, VTS_nn_1.. for titles.
    vmg_.menuVobs.looked = options_.companions;
    for (auto& [n, vts] : sets_) vts.menuVobs.looked = vts.titleVobs.looked = options_.companions;
    if (options_.companions) {
        std::vector<VobFile> vobs = disc_.vobs;
        std::sort(vobs.begin(), vobs.end(),
                  [](const VobFile& a, const VobFile& b) { return a.name < b.name; });
        for (const VobFile& v : vobs) {
            if (v.name == "VIDEO_TS.VOB") {
                vmg_.menuVobs.names.push_back(v.name);
                vmg_.menuVobs.bytes.push_back(v.bytes);
                continue;
            }
            if (v.name.size() != 12 || v.name.compare(0, 4, "VTS_") != 0 ||
                !std::isdigit(uint8_t(v.name[4])) || !std::isdigit(uint8_t(v.name[5])) ||
                !std::isdigit(uint8_t(v.name[7])))
                continue;
            auto it = sets_.find((v.name[4] - '0') * 10 + (v.name[5] - '0'));
            if (it == sets_.end()) continue;
            VobSet& set = v.name[7] == '0' ? it->second.menuVobs : it->second.titleVobs;
            set.names.push_back(v.name);
            set.bytes.push_back(v.bytes);
        }
    }

    if (hasVmg_) {
        files.push_back(vmg_.file);
        f_.SetFile(vmg_.file);
        CheckVmgFile(vmg_);
    }
    for (auto& [n, vts] : sets_) {
        files.push_back(vts.file);
        f_.SetFile(vts.file);
        CheckVtsFile(vts);
    }
    return files;
}

int Checker::DiscTitles() const { return hasVmg_ ? int(vmg_.model.titles.size()) : 0; }

const VtsData* Checker::TitleSet(int number) const {
    auto it = sets_.find(number);
    return it != sets_.end() && it->second.readable ? &it->second : nullptr;
}

}  // namespace check
}  // namespace kestro
