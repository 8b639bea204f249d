// How a host drives the table classes: which tables an IFO file has, in which
// order they are reported and written as source, with which PGC codec and
// side files, and how an IFO file is assembled from a source file. These are
// the table classes' own rules, unchanged; lossless.cpp adds what they drop.
#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "disc/driver.h"
#include "kestro/kestro.h"

namespace kestro {
namespace disc {

const char* const kTmapBinSuffix = " tmap.bin";
const char* const kVtsAdmapBinSuffix = " vts_vobu_admap.bin";
const char* const kVtsmAdmapBinSuffix = " vtsm_vobu_admap.bin";

std::string TmapIniSuffix(int map) { return " TmapTable" + std::to_string(map) + ".ini"; }

std::string SideStem(const std::string& source) {
    return source.size() >= 4 ? source.substr(0, source.size() - 4) : std::string();
}

namespace {

namespace fs = std::filesystem;
using Sides = std::vector<std::string>;

std::string ErrorOf(CBaseKestro& table) {
    char buf[KESTRO_ERROR_TEXT + 1];
    table.GetErrorMessage(buf, KESTRO_ERROR_TEXT);
    buf[KESTRO_ERROR_TEXT] = '\0';
    return buf;
}
// The text data manager keeps no error text.
std::string ErrorOf(CKestro_VMG_TXTDT&) { return std::string(); }

template <class T, class F>
int With(T* table, std::string& error, F&& call) {
    if (!table) return LoadedIfo::kAbsent;
    if (call(*table)) return LoadedIfo::kDone;
    error = ErrorOf(*table);
    return LoadedIfo::kFailed;
}

// Both management tables and one PGC codec shared by the tables of a load.
struct Loaded {
    CKestro_VMG_MAT vmg;
    CKestro_VTS_MAT vts;
    CKestro_PGCI pgc;
};

struct TableOps {
    const char* name;
    std::function<int(Loaded&, char*, int, std::string&)> details;
    std::function<int(Loaded&, const std::string&, SideFiles, Sides&, std::string&)> disasm;
};

template <class Get>
TableOps Plain(const char* name, Get get) {
    return {name,
            [get](Loaded& s, char* b, int n, std::string& e) {
                return With(get(s), e, [&](auto& t) { return t.Details(b, n); });
            },
            [get](Loaded& s, const std::string& ini, SideFiles, Sides&, std::string& e) {
                return With(get(s), e, [&](auto& t) { return t.Disasm(ini.c_str()); });
            }};
}

template <class Get, class Disasm>
TableOps WithSideFiles(const char* name, Get get, Disasm disasm) {
    TableOps ops = Plain(name, get);
    ops.disasm = [get, disasm](Loaded& s, const std::string& ini, SideFiles side, Sides& sides,
                               std::string& e) {
        return With(get(s), e, [&](auto& t) { return disasm(t, ini, side, sides); });
    };
    return ops;
}

// Whether a side file is there (an unreadable folder counts as none).
bool Exists(const std::string& path) {
    std::error_code ec;
    return fs::exists(path, ec);
}

// Time maps: joined into the source, kept in TmapTable INI files, or in one
// binary side file.
bool DisasmTimeMaps(CKestro_VTS_TMAP& t, const std::string& ini, SideFiles side, Sides& sides) {
    if (side == SideFiles::Binary) {
        std::string bin = SideStem(ini) + kTmapBinSuffix;
        if (!t.DisasmToFile(ini.c_str(), bin.c_str())) return false;
        sides.push_back(kTmapBinSuffix);
        return true;
    }
    if (!t.Disasm(ini.c_str())) return false;
    int maps = std::atoi(Statement(ini, "vts_tmapt", "vts_tmap_ns", "0").c_str());
    if (side == SideFiles::None) {
        if (!CKestro_VTS_TMAP::JoinTmapSideFiles(ini.c_str())) return false;
        for (int k = 1; k <= maps; ++k) {
            std::string p = SideStem(ini) + TmapIniSuffix(k);
            INIForgetFile(p.c_str());
            std::remove(p.c_str());
        }
        return true;
    }
    for (int k = 1; k <= maps; ++k)
        if (Exists(SideStem(ini) + TmapIniSuffix(k))) sides.push_back(TmapIniSuffix(k));
    return true;
}

// A title set's VOBU map: in source, or in a counted binary side file.
template <class T>
bool DisasmVobuMap(T& t, bool (T::*toFile)(const char*, const char*), const char* suffix,
                   const std::string& ini, SideFiles side, Sides& sides) {
    if (side != SideFiles::Binary) return t.Disasm(ini.c_str());
    std::string bin = SideStem(ini) + suffix;
    if (!(t.*toFile)(ini.c_str(), bin.c_str())) return false;
    sides.push_back(suffix);
    return true;
}

const std::vector<TableOps>& VmgTables() {
    using S = Loaded;
    static const std::vector<TableOps> tables = {
        Plain("VMGI_MAT", [](S& s) { return &s.vmg; }),
        Plain("TT_SRPT", [](S& s) { return s.vmg.GetVMG_PTT_SRPT(); }),
        Plain("VMGM_PGCI_UT", [](S& s) { return s.vmg.GetVMGM_PGCI_UT(); }),
        {"VMGM_LU",
         [](S& s, char* b, int n, std::string& e) {
             return With(s.vmg.GetVMGM_LU(), e, [&](auto& t) {
                 return t.Details(b, n, &s.pgc, s.vmg.GetVMGM_PGCI_UT(), s.vmg.GetVMGM_PGCIT_SA());
             });
         },
         [](S& s, const std::string& ini, SideFiles, Sides&, std::string& e) {
             return With(s.vmg.GetVMGM_LU(), e, [&](auto& t) {
                 return t.Disasm(ini.c_str(), s.vmg.GetVMGM_PGCIT_SA(), &s.pgc,
                                 s.vmg.GetVMGM_PGCI_UT());
             });
         }},
        Plain("PTL_MAIT", [](S& s) { return s.vmg.GetVMG_MAIT(); }),
        Plain("VTS_ATRT", [](S& s) { return s.vmg.GetVMG_ATRT(); }),
        Plain("TXTDT_MG", [](S& s) { return s.vmg.GetVMG_TXTDT(); }),
        Plain("VMGM_C_ADT", [](S& s) { return s.vmg.GetVMGM_C_ADT(); }),
        // The video manager's map has no side-file writer: it stays in source.
        Plain("VMGM_VOBU_ADMAP", [](S& s) { return s.vmg.GetVMGM_VOBU_ADMAP(); }),
    };
    return tables;
}

const std::vector<TableOps>& VtsTables() {
    using S = Loaded;
    static const std::vector<TableOps> tables = {
        Plain("VTSI_MAT", [](S& s) { return &s.vts; }),
        Plain("VTS_PTT_SRPT", [](S& s) { return s.vts.GetVTS_PTT_SRPT(); }),
        {"VTS_PGCIT",
         [](S& s, char* b, int n, std::string& e) {
             return With(s.vts.GetVTS_PGCIT(), e, [&](auto& t) { return t.Details(&s.pgc, b, n); });
         },
         [](S& s, const std::string& ini, SideFiles, Sides&, std::string& e) {
             return With(s.vts.GetVTS_PGCIT(), e,
                         [&](auto& t) { return t.Disasm(ini.c_str(), &s.pgc); });
         }},
        Plain("VTSM_PGCI_UT", [](S& s) { return s.vts.GetVTSM_PGCI_UT(); }),
        {"VTSM_LU",
         [](S& s, char* b, int n, std::string& e) {
             return With(s.vts.GetVTSM_LU(), e, [&](auto& t) {
                 return t.Details(b, n, &s.pgc, s.vts.GetVTSM_PGCI_UT(), s.vts.GetVTSM_PGCIT_SA());
             });
         },
         [](S& s, const std::string& ini, SideFiles, Sides&, std::string& e) {
             return With(s.vts.GetVTSM_LU(), e, [&](auto& t) {
                 return t.Disasm(ini.c_str(), &s.pgc, s.vts.GetVTSM_PGCI_UT(),
                                 s.vts.GetVTSM_PGCIT_SA());
             });
         }},
        WithSideFiles(
            "VTS_TMAPT", [](S& s) { return s.vts.GetVTS_TMAPT(); }, DisasmTimeMaps),
        Plain("VTSM_C_ADT", [](S& s) { return s.vts.GetVTSM_C_ADT(); }),
        WithSideFiles(
            "VTSM_VOBU_ADMAP", [](S& s) { return s.vts.GetVTSM_VOBU_ADMAP(); },
            [](CKestro_VTSM_ADMAP& t, const std::string& ini, SideFiles side, Sides& sides) {
                return DisasmVobuMap(t, &CKestro_VTSM_ADMAP::DisasmToFile, kVtsmAdmapBinSuffix, ini,
                                     side, sides);
            }),
        Plain("VTS_C_ADT", [](S& s) { return s.vts.GetVTS_C_ADT(); }),
        WithSideFiles(
            "VTS_VOBU_ADMAP", [](S& s) { return s.vts.GetVTS_VOBU_ADMAP(); },
            [](CKestro_VTS_ADMAP& t, const std::string& ini, SideFiles side, Sides& sides) {
                return DisasmVobuMap(t, &CKestro_VTS_ADMAP::Disasm_ToFile, kVtsAdmapBinSuffix, ini,
                                     side, sides);
            }),
    };
    return tables;
}

bool HasSection(const std::vector<std::string>& sections, const char* name) {
    for (const auto& s : sections)
        if (strcasecmp(s.c_str(), name) == 0) return true;
    return false;
}

bool HasStatement(const std::string& ini, const char* section, const char* key) {
    return Statement(ini, section, key)[0] != '$';
}

// Assembly stops at the first failure; its message names the table.
struct Failure {
    std::string message;
};

void Require(bool ok, const char* table, const std::string& error) {
    if (!ok)
        throw Failure{std::string(table) + ": " +
                      (error.empty() ? "source statements missing" : error)};
}

// Assembles one table with a PGC codec of its own, so that a message the
// codec leaves belongs to this table. The table itself still succeeds when a
// PGC's source is incomplete (the PGC is then built from what the codec
// read); that fails the assembly unless the caller asked to be lenient.
template <class T>
void AsmWithCodec(T* table, const std::string& ini, const char* name, bool lenient,
                  AsmResult& outcome) {
    CKestro_PGCI pgc;
    Require(table->Asm(ini.c_str(), &pgc), name, ErrorOf(*table));
    std::string codec = ErrorOf(pgc);
    if (!codec.empty() && !lenient)
        throw Failure{std::string(name) + ": " + codec + " (--lenient writes the file anyway)"};
    if (!codec.empty()) outcome.warnings.push_back(std::string(name) + ": " + codec);
    outcome.tables.push_back(name);
}

template <class T>
void AsmPlain(T* table, const std::string& ini, const char* name, AsmResult& outcome) {
    Require(table->Asm(ini.c_str()), name, ErrorOf(*table));
    outcome.tables.push_back(name);
}

// The working folder for the length of a management table's Asm: the title
// set number comes from the IFO file's bare name and the VOB files are
// measured next to it.
class InFolder {
public:
    explicit InFolder(const std::string& dir) {
        std::error_code ec;
        previous_ = fs::current_path(ec);
        fs::current_path(dir, ec);
        if (ec) throw Failure{dir + ": " + ec.message()};
    }
    ~InFolder() {
        std::error_code ec;
        fs::current_path(previous_, ec);
    }
    InFolder(const InFolder&) = delete;
    InFolder& operator=(const InFolder&) = delete;

private:
    fs::path previous_;
};

void AsmVmg(const std::string& ini, const std::vector<std::string>& sections,
            const std::string& out, const std::string& vobDir, const std::string& ifoName,
            bool lenient, AsmResult& outcome) {
    CKestro_VMG_MAT mat;
    // The title search pointer table shares its section with the parental
    // management table's per-country statements: its count statement says
    // whether it is there.
    if (HasStatement(ini, "vmg_ptt_srpt", "vts_ttu_ns"))
        AsmPlain(mat.NewVMGM_PTT(), ini, "TT_SRPT", outcome);
    if (HasSection(sections, "vmgm_pgci_ut"))
        AsmWithCodec(mat.NewVMGM_PGCI(), ini, "VMGM_PGCI_UT", lenient, outcome);
    if (HasSection(sections, "ptl_mait")) AsmPlain(mat.NewVMGM_MAIT(), ini, "PTL_MAIT", outcome);
    // A title set attribute table of no title sets reports no sectors but
    // still writes a header sector, which would shift every table after it:
    // such a table is left out.
    if (HasSection(sections, "vts_atrt") &&
        std::atoi(Statement(ini, "vts_atrt", "vts_ns", "1").c_str()) != 0)
        AsmPlain(mat.NewVMGM_ATRT(), ini, "VTS_ATRT", outcome);
    if (HasSection(sections, "vmgm_c_adt"))
        AsmPlain(mat.NewVMGM_C_ADT(), ini, "VMGM_C_ADT", outcome);
    if (HasSection(sections, "vts_vobu_admap"))
        AsmPlain(mat.NewVMGM_VOBU_ADMAP(), ini, "VMGM_VOBU_ADMAP", outcome);
    if (HasSection(sections, "txtdt_mg"))
        outcome.warnings.push_back("TXTDT_MG: text data is not part of an assembled file");

    int h = int(mat.CreateKestroFile(out.c_str()));
    if (h < 1) throw Failure{out + ": cannot be created"};
    bool ok;
    {
        // The menu VOB file is found next to the IFO file's name.
        InFolder wd(vobDir);
        ok = mat.Asm(ini.c_str(), h, ifoName.c_str());
    }
    mat.CloseKestroFile((unsigned long)h);
    Require(ok, "VMGI_MAT", ErrorOf(mat));
    outcome.tables.insert(outcome.tables.begin(), "VMGI_MAT");
}

void AsmVts(const std::string& ini, const std::vector<std::string>& sections,
            const std::string& out, const std::string& vobDir, const std::string& ifoName,
            bool absolute, bool lenient, AsmResult& outcome) {
    CKestro_VTS_MAT mat;
    const std::string stem = SideStem(ini);
    if (HasSection(sections, "vts_ptt_srpt"))
        AsmPlain(mat.NewVTS_PTT_SRPT(), ini, "VTS_PTT_SRPT", outcome);
    if (HasSection(sections, "vts_pgcit"))
        AsmWithCodec(mat.NewVTS_PGCIT(), ini, "VTS_PGCIT", lenient, outcome);
    if (HasSection(sections, "vtsm_pgci_ut"))
        AsmWithCodec(mat.NewVTSM_PGCI_UT(), ini, "VTSM_PGCI_UT", lenient, outcome);
    if (HasSection(sections, "vts_tmapt")) {
        CKestro_VTS_TMAP* t = mat.NewVTS_TMAPT();
        std::string bin = stem + kTmapBinSuffix;
        bool ok = HasStatement(ini, "vts_tmapti", "vts_tmap01_file_offset") && Exists(bin)
                      ? t->AsmToFile(ini.c_str(), bin.c_str())
                      : t->Asm(ini.c_str());
        // A missing map statement leaves its message and still succeeds.
        std::string error = ErrorOf(*t);
        Require(ok && error.empty(), "VTS_TMAPT", error);
        outcome.tables.push_back("VTS_TMAPT");
    }
    if (HasSection(sections, "vtsm_c_adt"))
        AsmPlain(mat.NewVTSM_C_ADT(), ini, "VTSM_C_ADT", outcome);
    if (HasSection(sections, "vtsm_vobu_admap")) {
        AsmPlain(mat.NewVTSM_VOBU_ADMAP(), ini, "VTSM_VOBU_ADMAP", outcome);
    } else if (Exists(stem + kVtsmAdmapBinSuffix)) {
        // The library writes this side file counted and little-endian, and
        // its counted reader would keep the entries byte-reversed; the plain
        // reader converts them, so it gets the entries without the count.
        std::vector<uint8_t> counted;
        {
            std::ifstream in(stem + kVtsmAdmapBinSuffix, std::ios::binary);
            counted.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        }
        // A scratch file beside the source, checked and removed again.
        struct Scratch {
            std::string path;
            ~Scratch() { std::remove(path.c_str()); }
        } plain{stem + " vtsm_vobu_admap.plain"};
        {
            std::ofstream o(plain.path, std::ios::binary | std::ios::trunc);
            if (counted.size() > 4)
                o.write(reinterpret_cast<const char*>(counted.data() + 4),
                        std::streamsize(counted.size() - 4));
            o.close();
            if (!o) throw Failure{plain.path + ": " + std::strerror(errno)};
        }
        CKestro_VTSM_ADMAP* t = mat.NewVTSM_VOBU_ADMAP();
        Require(t->AsmBinary(ini.c_str(), plain.path.c_str()), "VTSM_VOBU_ADMAP", ErrorOf(*t));
        outcome.tables.push_back("VTSM_VOBU_ADMAP");
    }
    if (HasSection(sections, "vts_c_adt")) AsmPlain(mat.NewVTS_C_ADT(), ini, "VTS_C_ADT", outcome);
    if (HasSection(sections, "vts_vobu_admap")) {
        AsmPlain(mat.NewVTS_VOBU_ADMAP(), ini, "VTS_VOBU_ADMAP", outcome);
    } else if (Exists(stem + kVtsAdmapBinSuffix)) {
        CKestro_VTS_ADMAP* t = mat.NewVTS_VOBU_ADMAP();
        std::string bin = stem + kVtsAdmapBinSuffix;
        Require(t->Asm_FromFile(ini.c_str(), 0, bin.c_str()), "VTS_VOBU_ADMAP", ErrorOf(*t));
        outcome.tables.push_back("VTS_VOBU_ADMAP");
    }

    int h = int(mat.CreateKestroFile(out.c_str()));
    if (h < 1) throw Failure{out + ": cannot be created"};
    bool ok;
    {
        InFolder wd(vobDir);
        ok = absolute ? mat.AsmAbs(ini.c_str(), (unsigned short)h, ifoName.c_str())
                      : mat.Asm(ini.c_str(), h, ifoName.c_str());
    }
    mat.CloseKestroFile((unsigned long)h);
    Require(ok, "VTSI_MAT", ErrorOf(mat));
    outcome.tables.insert(outcome.tables.begin(), "VTSI_MAT");
}

}  // namespace

// ---- LoadedIfo ------------------------------------------------------------------

struct LoadedIfo::State {
    Loaded loaded;
    IfoKind kind = IfoKind::VideoManager;
    int h = -1;
    const std::vector<TableOps>* tables = nullptr;

    ~State() {
        if (h >= 1) loaded.vmg.CloseKestroFile((unsigned long)h);
    }
};

LoadedIfo::LoadedIfo() = default;
LoadedIfo::~LoadedIfo() = default;

bool LoadedIfo::Open(const std::string& ifo, std::string& error) {
    path_ = ifo;
    return Reload(error);
}

bool LoadedIfo::Reload(std::string& error) {
    state_.reset();
    IfoKind kind;
    if (!KindOfFile(path_, kind, error)) return false;
    auto s = std::make_unique<State>();
    s->kind = kind;
    s->tables = kind == IfoKind::VideoManager ? &VmgTables() : &VtsTables();
    CBaseKestro& mat = kind == IfoKind::VideoManager ? static_cast<CBaseKestro&>(s->loaded.vmg)
                                                     : static_cast<CBaseKestro&>(s->loaded.vts);
    s->h = int(mat.OpenKestroFile(path_.c_str()));
    if (s->h < 1) {
        error = path_ + ": cannot be opened";
        return false;
    }
    if (mat.Load(s->h) != 1) {
        error = path_ + ": not a " +
                (kind == IfoKind::VideoManager ? "video manager" : "title set") +
                " information file";
        return false;
    }
    state_ = std::move(s);
    return true;
}

IfoKind LoadedIfo::Kind() const { return state_ ? state_->kind : IfoKind::VideoManager; }
size_t LoadedIfo::TableCount() const { return state_ ? state_->tables->size() : 0; }
// A table index beyond the list (or a file not loaded) is an absent table.
const char* LoadedIfo::TableName(size_t i) const {
    return i < TableCount() ? (*state_->tables)[i].name : "";
}

int LoadedIfo::Details(size_t i, char* buf, int len, std::string& error) {
    if (i >= TableCount()) return kAbsent;
    return (*state_->tables)[i].details(state_->loaded, buf, len, error);
}

int LoadedIfo::Disasm(size_t i, const std::string& ini, SideFiles side,
                      std::vector<std::string>& sides, std::string& error) {
    if (i >= TableCount()) return kAbsent;
    return (*state_->tables)[i].disasm(state_->loaded, ini, side, sides, error);
}

// ---- Shared helpers ----------------------------------------------------------------

bool KindOfFile(const std::string& ifo, IfoKind& kind, std::string& error) {
    std::ifstream in(ifo, std::ios::binary);
    if (!in) {
        error = ifo + ": cannot be read";
        return false;
    }
    char id[12] = {};
    in.read(id, sizeof id);
    if (std::memcmp(id, "DVDVIDEO-VMG", 12) == 0)
        kind = IfoKind::VideoManager;
    else if (std::memcmp(id, "DVDVIDEO-VTS", 12) == 0)
        kind = IfoKind::TitleSet;
    else {
        error = ifo + ": not a DVD-Video information file";
        return false;
    }
    return true;
}

bool LibraryDisasm(const std::string& ifo, const std::string& ini, SideFiles side,
                   DisasmResult& result) {
    LoadedIfo file;
    if (!file.Open(ifo, result.error)) return false;
    // The management table's Disasm starts the file; every other table adds
    // its sections to it.
    for (size_t i = 0; i < file.TableCount(); ++i) {
        std::string error;
        if (file.Disasm(i, ini, side, result.sides, error) == LoadedIfo::kFailed) {
            result.error = std::string(file.TableName(i)) + ": " +
                           (error.empty() ? "source could not be written" : error);
            return false;
        }
    }
    INIFlushFiles();
    return true;
}

bool LibraryAsm(const std::string& ini, const std::string& out, const std::string& vobDir,
                const std::string& ifoName, const AsmOptions& options, AsmResult& result) {
    std::vector<std::string> sections = SectionsOf(ini);
    bool vmg = HasSection(sections, "vmgi_mat");
    bool vts = HasSection(sections, "vtsi_mat");
    try {
        if (vmg == vts)
            throw Failure{ini + (vmg ? ": holds both a vmgi_mat and a vtsi_mat section"
                                     : ": has neither a vmgi_mat nor a vtsi_mat section")};
        if (vmg) {
            if (options.absolute) throw Failure{"--abs applies to title set sources only"};
            result.kind = IfoKind::VideoManager;
            AsmVmg(ini, sections, out, vobDir, ifoName, options.lenient, result);
        } else {
            result.kind = IfoKind::TitleSet;
            AsmVts(ini, sections, out, vobDir, ifoName, options.absolute, options.lenient, result);
        }
    } catch (const Failure& f) {
        result.error = f.message;
        return false;
    }
    return true;
}

std::vector<std::string> SectionsOf(const std::string& ini) {
    std::vector<char> buf(size_t(1) << 16);
    std::vector<std::string> out;
    for (;;) {
        std::fill(buf.begin(), buf.end(), '\0');
        INIGetSectionNames(ini.c_str(), buf.data(), int(buf.size()));
        // The list ends with an empty name; when it filled the buffer, retry.
        size_t pos = 0;
        out.clear();
        while (pos < buf.size() && buf[pos] != '\0') {
            size_t len = strnlen(&buf[pos], buf.size() - pos);
            out.emplace_back(&buf[pos], len);
            pos += len + 1;
        }
        if (pos + 256 < buf.size()) return out;
        buf.resize(buf.size() * 4);
    }
}

std::string Statement(const std::string& ini, const char* section, const char* key,
                      const char* def) {
    char value[256] = {};
    INIGetPrivateProfileString(section, key, def, value, sizeof value, ini.c_str());
    return value;
}

}  // namespace disc
}  // namespace kestro
