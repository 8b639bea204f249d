// kestro rebuild: every IFO file of a DVD folder through source and back
// into a new folder, with a table-by-table account of what changed.
#include <fcntl.h>
#include <stdio.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <sstream>

#include "commands.h"
#include "kestro/kestro.h"

namespace kestro_tool {

namespace {

struct TablePlace {
    unsigned offset;  // of its start sector in the management table
    const char* name;
};

// Where each file kind keeps the start sectors of its tables.
const std::vector<TablePlace>& PlacesOf(IfoKind kind) {
    static const std::vector<TablePlace> vmg = {
        {196, "TT_SRPT"},  {200, "VMGM_PGCI_UT"}, {204, "PTL_MAIT"},        {208, "VTS_ATRT"},
        {212, "TXTDT_MG"}, {216, "VMGM_C_ADT"},   {220, "VMGM_VOBU_ADMAP"},
    };
    static const std::vector<TablePlace> vts = {
        {200, "VTS_PTT_SRPT"}, {204, "VTS_PGCIT"},      {208, "VTSM_PGCI_UT"},
        {212, "VTS_TMAPT"},    {216, "VTSM_C_ADT"},     {220, "VTSM_VOBU_ADMAP"},
        {224, "VTS_C_ADT"},    {228, "VTS_VOBU_ADMAP"},
    };
    return kind == IfoKind::Vmg ? vmg : vts;
}

// Names of the management table's fields, for the summary.
struct Field {
    unsigned offset, width;
    const char* name;
};
const std::vector<Field>& FieldsOf(IfoKind kind) {
    static const std::vector<Field> vmg = {
        {12, 4, "vmg_ea"},           {28, 4, "vmgi_ea"},          {32, 2, "vern"},
        {34, 4, "vmg_cat"},          {38, 8, "vlms_id"},          {62, 2, "vmg_ns"},
        {64, 32, "pvr_id"},          {96, 8, "pos_cd"},           {128, 4, "vmgi_mat_ea"},
        {132, 4, "fp_pgci_sa"},      {192, 4, "vmgm_vobs_sa"},    {196, 4, "tt_srpt_sa"},
        {200, 4, "vmgm_pgci_ut_sa"}, {204, 4, "ptl_mait_sa"},     {208, 4, "vts_atrt_sa"},
        {212, 4, "txtdt_mg_sa"},     {216, 4, "vmgm_c_adt_sa"},   {220, 4, "vmgm_vobu_admap_sa"},
        {256, 2, "vmgm_v_atr"},      {258, 2, "vmgm_ast_ns"},     {260, 64, "vmgm_ast_atr"},
        {340, 2, "vmgm_spst_ns"},    {342, 192, "vmgm_spst_atr"},
    };
    static const std::vector<Field> vts = {
        {12, 4, "vts_ea"},
        {28, 4, "vtsi_ea"},
        {32, 2, "vern"},
        {34, 4, "vts_cat"},
        {128, 4, "vtsi_mat_ea"},
        {192, 4, "vtsm_vobs_sa"},
        {196, 4, "vtstt_vobs_sa"},
        {200, 4, "vts_ptt_srpt_sa"},
        {204, 4, "vts_pgcit_sa"},
        {208, 4, "vtsm_pgci_ut_sa"},
        {212, 4, "vts_tmapt_sa"},
        {216, 4, "vtsm_c_adt_sa"},
        {220, 4, "vtsm_vobu_admap_sa"},
        {224, 4, "vts_c_adt_sa"},
        {228, 4, "vts_vobu_admap_sa"},
        {256, 2, "vtsm_v_atr"},
        {258, 2, "vtsm_ast_ns"},
        {260, 64, "vtsm_ast_atr"},
        {340, 2, "vtsm_spst_ns"},
        {342, 192, "vtsm_spst_atr"},
        {512, 2, "vts_v_atr"},
        {514, 2, "vts_ast_ns"},
        {516, 64, "vts_ast_atrt"},
        {596, 2, "vts_spst_ns"},
        {598, 192, "vts_spst_atrt"},
        {792, 192, "vts_mu_ast_atrt"},
    };
    return kind == IfoKind::Vmg ? vmg : vts;
}

uint32_t BE32(const std::vector<unsigned char>& d, size_t at) {
    if (at + 4 > d.size()) return 0;
    return uint32_t(d[at]) << 24 | uint32_t(d[at + 1]) << 16 | uint32_t(d[at + 2]) << 8 | d[at + 3];
}

struct Extent {
    bool present = false;
    size_t begin = 0, end = 0;  // bytes [begin, end)
};

// Extents of the management table (index 0) and of each table of `places`:
// from its start sector up to the next table's start or the end of file.
std::vector<Extent> LayoutOf(const std::vector<unsigned char>& d, IfoKind kind) {
    const auto& places = PlacesOf(kind);
    std::vector<size_t> starts;
    for (const auto& p : places) {
        size_t at = size_t(BE32(d, p.offset)) * 2048;
        if (at != 0 && at < d.size()) starts.push_back(at);
    }
    starts.push_back(d.size());
    std::sort(starts.begin(), starts.end());
    auto endAfter = [&](size_t at) {
        for (size_t s : starts)
            if (s > at) return s;
        return d.size();
    };
    std::vector<Extent> out;
    out.push_back({!d.empty(), 0, endAfter(0)});
    for (const auto& p : places) {
        size_t at = size_t(BE32(d, p.offset)) * 2048;
        if (at == 0 || at >= d.size())
            out.push_back({});
        else
            out.push_back({true, at, endAfter(at)});
    }
    return out;
}

std::string Hex(size_t v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "0x%04zx", v);
    return buf;
}

// The field of the management table that holds byte `offset`, by the
// file's own layout: the First Play PGC sits where fp_pgci_sa (bytes
// 132-135) puts it, anywhere in the record up to vmgi_mat_ea (bytes
// 128-131), and its bytes are named as the PGC whatever fixed field they
// overlay.
std::string FieldAt(IfoKind kind, const std::vector<unsigned char>& d, size_t offset) {
    if (kind == IfoKind::Vmg) {
        const size_t fp = BE32(d, 132), end = BE32(d, 128);
        if (fp != 0 && offset >= fp && offset <= std::max(end, fp)) return "fp_pgc";
    }
    for (const auto& f : FieldsOf(kind))
        if (offset >= f.offset && offset < f.offset + f.width) return f.name;
    return std::string();
}

}  // namespace

std::vector<std::string> CompareIfo(const std::vector<unsigned char>& before,
                                    const std::vector<unsigned char>& after, IfoKind kind) {
    std::vector<std::string> lines;
    std::vector<Extent> a = LayoutOf(before, kind), b = LayoutOf(after, kind);
    const auto& places = PlacesOf(kind);
    for (size_t i = 0; i < a.size(); ++i) {
        std::string name =
            i == 0 ? (kind == IfoKind::Vmg ? "VMGI_MAT" : "VTSI_MAT") : places[i - 1].name;
        std::ostringstream line;
        line << "  " << name << std::string(name.size() < 16 ? 16 - name.size() : 1, ' ');
        if (!a[i].present && !b[i].present) continue;
        if (!b[i].present) {
            line << "dropped (" << a[i].end - a[i].begin << " bytes at sector " << a[i].begin / 2048
                 << ")";
            lines.push_back(line.str());
            continue;
        }
        if (!a[i].present) {
            line << "added (" << b[i].end - b[i].begin << " bytes at sector " << b[i].begin / 2048
                 << ")";
            lines.push_back(line.str());
            continue;
        }
        size_t la = a[i].end - a[i].begin, lb = b[i].end - b[i].begin;
        size_t n = std::max(la, lb);
        // Differing byte runs, relative to the table's first byte; runs
        // closer than 4 bytes are joined.
        std::vector<std::pair<size_t, size_t>> runs;
        size_t differing = 0;
        for (size_t k = 0; k < n; ++k) {
            int x = k < la ? before[a[i].begin + k] : -1;
            int y = k < lb ? after[b[i].begin + k] : -1;
            if (x == y) continue;
            ++differing;
            if (!runs.empty() && k <= runs.back().second + 4)
                runs.back().second = k;
            else
                runs.push_back({k, k});
        }
        std::vector<std::string> notes;
        if (a[i].begin != b[i].begin)
            notes.push_back("moved from sector " + std::to_string(a[i].begin / 2048) + " to " +
                            std::to_string(b[i].begin / 2048));
        if (la != lb)
            notes.push_back("size " + std::to_string(la) + " -> " + std::to_string(lb) + " bytes");
        if (runs.empty()) {
            line << "identical";
            for (const auto& note : notes) line << "; " << note;
            lines.push_back(line.str());
            continue;
        }
        line << differing << " bytes differ";
        for (const auto& note : notes) line << "; " << note;
        line << ":";
        const size_t shown = 8;
        for (size_t r = 0; r < runs.size() && r < shown; ++r) {
            line << ' ' << Hex(runs[r].first);
            if (runs[r].second != runs[r].first) line << '-' << Hex(runs[r].second);
            if (i == 0) {
                std::string field = FieldAt(kind, before, runs[r].first);
                if (field.empty()) field = FieldAt(kind, after, runs[r].first);
                if (!field.empty()) line << " (" << field << ")";
            }
        }
        if (runs.size() > shown) line << " ... (" << runs.size() - shown << " more ranges)";
        lines.push_back(line.str());
    }
    return lines;
}

namespace {

long SourceNumber(const fs::path& ini, const char* section, const char* key) {
    return std::atol(Statement(ini, section, key, "0").c_str());
}

// Empty VOB files of the sizes the original file records, for inputs that
// come without their VOB files, so that the assembly measures the same
// sizes. Title VOBs are split as on a disc, at most 524,287 sectors a file.
void CreatePlaceholderVobs(const fs::path& ini, IfoKind kind, const std::string& ifoName,
                           const fs::path& dir, const fs::path& shownDir) {
    auto create = [&](const std::string& name, unsigned long long bytes) {
        CreateSizedFile(dir / name, bytes, shownDir / name);
    };
    if (kind == IfoKind::Vmg) {
        long vobs = SourceNumber(ini, "vmgi_mat", "vmgm_vobs_sa");
        long sectors = SourceNumber(ini, "vmgi_mat", "vmg_ea") + 1 -
                       2 * (SourceNumber(ini, "vmgi_mat", "vmgi_ea") + 1);
        // The menu VOB pointer is set whenever the file exists, so a menu
        // VOB of no sectors still gets a (empty) file.
        if (vobs != 0 && !ExistsNoCase(dir, "VIDEO_TS.VOB"))
            create("VIDEO_TS.VOB", (unsigned long long)std::max(sectors, 0L) * 2048);
        return;
    }
    std::string nn = ifoName.size() >= 6 ? ifoName.substr(4, 2) : "01";
    long menu = SourceNumber(ini, "vtsi_mat", "vtsm_vobs_sa");
    long titles = SourceNumber(ini, "vtsi_mat", "vtstt_vobs_sa");
    long last = SourceNumber(ini, "vtsi_mat", "vts_ea");
    long ifoLast = SourceNumber(ini, "vtsi_mat", "vtsi_ea");
    if (menu != 0 && !ExistsNoCase(dir, "VTS_" + nn + "_0.VOB"))
        create("VTS_" + nn + "_0.VOB", (unsigned long long)std::max(titles - menu, 0L) * 2048);
    long long titleSectors = (long long)last - ifoLast - titles;
    if (titleSectors > 0 && !ExistsNoCase(dir, "VTS_" + nn + "_1.VOB")) {
        const long long perFile = 524287;
        for (int part = 1; titleSectors > 0 && part <= 9; ++part) {
            long long n = std::min(titleSectors, perFile);
            create("VTS_" + nn + "_" + std::to_string(part) + ".VOB", (unsigned long long)n * 2048);
            titleSectors -= n;
        }
    }
}

bool IsVob(const fs::path& p) {
    std::string ext = p.extension().string();
    for (char& c : ext) c = char(std::toupper((unsigned char)c));
    return ext == ".VOB";
}

}  // namespace

namespace {

bool IsVideoTsName(const fs::path& p) {
    std::string name = p.filename().string();
    for (char& c : name) c = char(std::toupper((unsigned char)c));
    return name == "VIDEO_TS";
}

// Creates the missing folders above `dir` and removes them again, when they
// are still empty, unless the rebuild completed: a failed rebuild leaves the
// file system as it found it.
class CreatedParents {
public:
    explicit CreatedParents(const fs::path& dir) {
        std::vector<fs::path> missing;
        std::error_code ec;
        for (fs::path p = dir; !p.empty() && !fs::exists(p, ec); p = p.parent_path()) {
            missing.push_back(p);
            if (p == p.parent_path()) break;
        }
        for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
            if (!fs::create_directory(*it, ec) && ec)
                throw ToolError("cannot create the folder " + it->string() + ": " + ec.message());
            created_.push_back(*it);
        }
    }
    ~CreatedParents() {
        std::error_code ec;
        for (auto it = created_.rbegin(); it != created_.rend(); ++it) fs::remove(*it, ec);
    }
    void Keep() { created_.clear(); }

private:
    std::vector<fs::path> created_;
};

// Puts the staged folder in the place of `out`. An existing folder is
// swapped with it in one step where the file system can (so that `out` is
// never missing, even if the process dies), else moved aside first and put
// back when the new one cannot take its place.
void PlaceFolder(PrivateDir& staging, const fs::path& out, bool replacing) {
#ifdef RENAME_EXCHANGE
    if (replacing && ::renameat2(AT_FDCWD, staging.path().c_str(), AT_FDCWD, out.c_str(),
                                 RENAME_EXCHANGE) == 0) {
        SyncFolder(out.parent_path());
        return;  // the old folder is now at the staging path and goes with it
    }
#endif
    std::error_code ec;
    if (replacing) {
        PrivateDir trash(out);
        fs::rename(out, trash / "old", ec);
        if (ec) throw ToolError("cannot replace " + out.string() + ": " + ec.message());
        fs::rename(staging.path(), out, ec);
        if (ec) {
            std::error_code back;
            fs::rename(trash / "old", out, back);
            // The old folder stays where it is rather than go with the trash;
            // the next run for this output puts it back.
            if (back) trash.Release();
            throw ToolError("cannot rename into " + out.string() + ": " + ec.message());
        }
    } else {
        fs::rename(staging.path(), out, ec);
        if (ec) throw ToolError("cannot rename into " + out.string() + ": " + ec.message());
    }
    staging.Release();
    SyncFolder(out.parent_path());
}

}  // namespace

int RunRebuild(const RebuildArgs& args) {
    fs::path in = VideoTsFolderOf(Absolute(args.input));
    fs::path out = Absolute(args.output);
    if (!fs::is_directory(in)) throw ToolError(args.input + ": no such folder");
    std::vector<fs::path> ifos = IfoFilesOf(in);
    if (ifos.empty()) throw ToolError(args.input + ": no IFO files in this folder");
    std::error_code ec;
    // Replacing the input (or a folder around it) would destroy it.
    auto within = [](const fs::path& inner, const fs::path& outer) {
        auto o = outer.begin(), i = inner.begin();
        for (; o != outer.end(); ++o, ++i)
            if (i == inner.end() || *o != *i) return false;
        return true;
    };
    fs::path inRoot = Absolute(args.input);
    if (within(inRoot, out) || within(out, inRoot) || within(in, out))
        throw ToolError(out.string() + ": the output folder must lie outside the input");
    if (fs::is_directory(out.parent_path(), ec)) RemoveStaleSiblings(out);
    const bool replacing = fs::exists(fs::symlink_status(out, ec));
    if (replacing && !args.force)
        throw ToolError(out.string() + " exists (use --force to replace it)");
    if (replacing && !fs::is_directory(fs::symlink_status(out, ec)))
        throw ToolError(out.string() + " is not a folder");
    // The output may name the disc root (which gets a VIDEO_TS folder) or
    // the VIDEO_TS folder itself.
    const bool outIsVideoTs = IsVideoTsName(out);
    CreatedParents parents(out.parent_path());

    // The new folder is built beside its final place and renamed into it.
    PrivateDir staging(out);
    // A private folder is created for its owner only; the output is a
    // folder like any other.
    fs::permissions(staging.path(), fs::perms(0755), ec);
    const fs::path shownDir = outIsVideoTs ? out : out / "VIDEO_TS";
    fs::path videoTs = outIsVideoTs ? staging.path() : staging / "VIDEO_TS";
    if (!outIsVideoTs && !fs::create_directory(videoTs, ec) && ec)
        throw ToolError("cannot write " + shownDir.string() + ": " + ec.message());
    for (auto& e : fs::directory_iterator(in))
        if (e.is_regular_file() && IsVob(e.path()))
            LinkOrCopy(e.path(), videoTs / e.path().filename(), args.copyVobs,
                       shownDir / e.path().filename());

    // Title sets first: the video manager's title search pointers give
    // each title set's start sector on the disc, which follows from the
    // sizes of the title sets as rebuilt.
    std::vector<fs::path> order(ifos.begin(), ifos.end());
    std::stable_partition(order.begin(), order.end(),
                          [](const fs::path& p) { return KindOfIfo(p) == IfoKind::Vts; });
    std::vector<std::string> summaries(ifos.size());
    for (const auto& ifo : order) {
        const std::string name = ifo.filename().string();
        IfoKind kind = KindOfIfo(ifo);
        PrivateDir work(PrivateDir::InMemory{});
        fs::path copy = work / name;
        fs::path ini = work / "src.ini";
        fs::path built = work / "out.ifo";
        LibraryIoWatch watch;
        try {
            CopyFileTo(ifo, copy);
            DisasmIfo(copy, ini, SideFiles::None, args.libraryRules);
            CheckLibraryIo(watch, shownDir / name);
            CheckSourceWritten(ini, shownDir / name);
            if (args.placeholderVobs) CreatePlaceholderVobs(ini, kind, name, videoTs, shownDir);
            bool absolute = args.absolute && kind == IfoKind::Vts;
            AsmOutcome outcome =
                AsmIfo(ini, built, videoTs, name, absolute, args.lenient, args.libraryRules);
            for (const auto& w : outcome.warnings) Complain("warning: " + name + ": " + w);
            CheckLibraryIo(watch, shownDir / name);
        } catch (const ToolError& e) {
            CheckLibraryIo(watch, shownDir / name);
            throw ToolError(name + ": " + e.what());
        }
        INIForgetFile(ini.c_str());
        const std::vector<unsigned char> after = ReadAll(built);
        CheckIfoComplete(after, shownDir / name);
        WriteFileChecked(videoTs / name, after, shownDir / name);
        WriteFileChecked(videoTs / BackupPathOf(name), after, shownDir / BackupPathOf(name));
        if (!args.quiet) {
            std::vector<unsigned char> before = ReadAll(ifo);
            std::string text = name + ": " + std::to_string(before.size()) + " -> " +
                               std::to_string(after.size()) + " bytes\n";
            for (const auto& line : CompareIfo(before, after, kind)) text += line + "\n";
            summaries[size_t(std::find(ifos.begin(), ifos.end(), ifo) - ifos.begin())] = text;
        }
    }
    for (const auto& text : summaries) std::fputs(text.c_str(), stdout);

    SyncFolder(videoTs);
    SyncFolder(staging.path());
    PlaceFolder(staging, out, replacing);
    parents.Keep();
    std::fflush(stdout);
    return 0;
}

}  // namespace kestro_tool
