#include "host.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>

#include "kestro/kestro.h"

namespace kestro_tool {

const char* const kTmapBinSuffix = " tmap.bin";
const char* const kVtsAdmapBinSuffix = " vts_vobu_admap.bin";
const char* const kVtsmAdmapBinSuffix = " vtsm_vobu_admap.bin";

namespace {

// Outcome of one table operation: the table is absent, or it ran and
// succeeded or failed (with its error text).
enum Run { kAbsent = -1, kFailed = 0, kDone = 1 };

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
    if (!table) return kAbsent;
    if (call(*table)) return kDone;
    error = ErrorOf(*table);
    return kFailed;
}

// An IFO file opened and loaded for the length of one operation: the
// report of all its tables or the source run of all its tables. The other
// tables read their bodies back from the open file on every call, but the
// management table's Details and Disasm byte-swap the First Play PGC's
// command header in the loaded record, so the management table must not be
// reported or disassembled twice from one load.
template <class Mat>
struct Session {
    Mat mat;
    CKestro_PGCI pgc;
    int h = -1;

    explicit Session(const fs::path& ifo) {
        h = int(mat.OpenKestroFile(ifo.c_str()));
        if (h < 1) throw ToolError(ifo.string() + ": cannot be opened");
        if (mat.Load(h) != 1) {
            mat.CloseKestroFile((unsigned long)h);
            throw ToolError(ifo.string() + ": not a " +
                            (std::is_same<Mat, CKestro_VMG_MAT>::value
                                 ? "video manager" : "title set") +
                            " information file");
        }
    }
    ~Session() { mat.CloseKestroFile((unsigned long)h); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
};
using VmgSession = Session<CKestro_VMG_MAT>;
using VtsSession = Session<CKestro_VTS_MAT>;

using Sides = std::vector<std::string>;

template <class S>
struct TableOps {
    const char* name;
    // Details into buf (len as the library takes it); kAbsent when the file
    // has no such table.
    std::function<int(S&, char*, int, std::string&)> details;
    // Disasm into ini; side-file suffixes written are appended to `sides`.
    std::function<int(S&, const fs::path&, SideFiles, std::vector<std::string>&, std::string&)>
        disasm;
    // The management table: a second report needs a fresh load.
    bool management = false;
};

template <class S>
TableOps<S> Management(TableOps<S> ops) {
    ops.management = true;
    return ops;
}

// A table reached through `get` whose Details and Disasm take the plain
// arguments; `disasm` replaces the plain Disasm where side files are made.
template <class S, class Get>
TableOps<S> Plain(const char* name, Get get) {
    return {name,
            [get](S& s, char* b, int n, std::string& e) {
                return With(get(s), e, [&](auto& t) { return t.Details(b, n); });
            },
            [get](S& s, const fs::path& ini, SideFiles, Sides&, std::string& e) {
                return With(get(s), e, [&](auto& t) { return t.Disasm(ini.c_str()); });
            }};
}

template <class S, class Get, class Disasm>
TableOps<S> WithSideFiles(const char* name, Get get, Disasm disasm) {
    TableOps<S> ops = Plain<S>(name, get);
    ops.disasm = [get, disasm](S& s, const fs::path& ini, SideFiles side, Sides& sides,
                               std::string& e) {
        return With(get(s), e, [&](auto& t) { return disasm(t, ini, side, sides); });
    };
    return ops;
}

// Time maps: joined into the source, kept in TmapTable INI files, or in one
// binary side file.
bool DisasmTimeMaps(CKestro_VTS_TMAP& t, const fs::path& ini, SideFiles side, Sides& sides) {
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
        if (fs::exists(SideStem(ini) + TmapIniSuffix(k))) sides.push_back(TmapIniSuffix(k));
    return true;
}

// A title set's VOBU map: in source, or in a counted binary side file.
template <class T>
bool DisasmVobuMap(T& t, bool (T::*toFile)(const char*, const char*), const char* suffix,
                   const fs::path& ini, SideFiles side, Sides& sides) {
    if (side != SideFiles::Binary) return t.Disasm(ini.c_str());
    std::string bin = SideStem(ini) + suffix;
    if (!(t.*toFile)(ini.c_str(), bin.c_str())) return false;
    sides.push_back(suffix);
    return true;
}

const std::vector<TableOps<VmgSession>>& VmgTables() {
    using S = VmgSession;
    static const std::vector<TableOps<S>> tables = {
        Management(Plain<S>("VMGI_MAT", [](S& s) { return &s.mat; })),
        Plain<S>("TT_SRPT", [](S& s) { return s.mat.GetVMG_PTT_SRPT(); }),
        Plain<S>("VMGM_PGCI_UT", [](S& s) { return s.mat.GetVMGM_PGCI_UT(); }),
        {"VMGM_LU",
         [](S& s, char* b, int n, std::string& e) {
             return With(s.mat.GetVMGM_LU(), e, [&](auto& t) {
                 return t.Details(b, n, &s.pgc, s.mat.GetVMGM_PGCI_UT(),
                                  s.mat.GetVMGM_PGCIT_SA());
             });
         },
         [](S& s, const fs::path& ini, SideFiles, Sides&, std::string& e) {
             return With(s.mat.GetVMGM_LU(), e, [&](auto& t) {
                 return t.Disasm(ini.c_str(), s.mat.GetVMGM_PGCIT_SA(), &s.pgc,
                                 s.mat.GetVMGM_PGCI_UT());
             });
         }},
        Plain<S>("PTL_MAIT", [](S& s) { return s.mat.GetVMG_MAIT(); }),
        Plain<S>("VTS_ATRT", [](S& s) { return s.mat.GetVMG_ATRT(); }),
        Plain<S>("TXTDT_MG", [](S& s) { return s.mat.GetVMG_TXTDT(); }),
        Plain<S>("VMGM_C_ADT", [](S& s) { return s.mat.GetVMGM_C_ADT(); }),
        // The video manager's map has no side-file writer: it stays in source.
        Plain<S>("VMGM_VOBU_ADMAP", [](S& s) { return s.mat.GetVMGM_VOBU_ADMAP(); }),
    };
    return tables;
}

const std::vector<TableOps<VtsSession>>& VtsTables() {
    using S = VtsSession;
    static const std::vector<TableOps<S>> tables = {
        Management(Plain<S>("VTSI_MAT", [](S& s) { return &s.mat; })),
        Plain<S>("VTS_PTT_SRPT", [](S& s) { return s.mat.GetVTS_PTT_SRPT(); }),
        {"VTS_PGCIT",
         [](S& s, char* b, int n, std::string& e) {
             return With(s.mat.GetVTS_PGCIT(), e,
                         [&](auto& t) { return t.Details(&s.pgc, b, n); });
         },
         [](S& s, const fs::path& ini, SideFiles, Sides&, std::string& e) {
             return With(s.mat.GetVTS_PGCIT(), e,
                         [&](auto& t) { return t.Disasm(ini.c_str(), &s.pgc); });
         }},
        Plain<S>("VTSM_PGCI_UT", [](S& s) { return s.mat.GetVTSM_PGCI_UT(); }),
        {"VTSM_LU",
         [](S& s, char* b, int n, std::string& e) {
             return With(s.mat.GetVTSM_LU(), e, [&](auto& t) {
                 return t.Details(b, n, &s.pgc, s.mat.GetVTSM_PGCI_UT(),
                                  s.mat.GetVTSM_PGCIT_SA());
             });
         },
         [](S& s, const fs::path& ini, SideFiles, Sides&, std::string& e) {
             return With(s.mat.GetVTSM_LU(), e, [&](auto& t) {
                 return t.Disasm(ini.c_str(), &s.pgc, s.mat.GetVTSM_PGCI_UT(),
                                 s.mat.GetVTSM_PGCIT_SA());
             });
         }},
        WithSideFiles<S>("VTS_TMAPT", [](S& s) { return s.mat.GetVTS_TMAPT(); },
                         DisasmTimeMaps),
        Plain<S>("VTSM_C_ADT", [](S& s) { return s.mat.GetVTSM_C_ADT(); }),
        WithSideFiles<S>("VTSM_VOBU_ADMAP", [](S& s) { return s.mat.GetVTSM_VOBU_ADMAP(); },
                         [](CKestro_VTSM_ADMAP& t, const fs::path& ini, SideFiles side,
                            Sides& sides) {
                             return DisasmVobuMap(t, &CKestro_VTSM_ADMAP::DisasmToFile,
                                                  kVtsmAdmapBinSuffix, ini, side, sides);
                         }),
        Plain<S>("VTS_C_ADT", [](S& s) { return s.mat.GetVTS_C_ADT(); }),
        WithSideFiles<S>("VTS_VOBU_ADMAP", [](S& s) { return s.mat.GetVTS_VOBU_ADMAP(); },
                         [](CKestro_VTS_ADMAP& t, const fs::path& ini, SideFiles side,
                            Sides& sides) {
                             return DisasmVobuMap(t, &CKestro_VTS_ADMAP::Disasm_ToFile,
                                                  kVtsAdmapBinSuffix, ini, side, sides);
                         }),
    };
    return tables;
}

// The report is streamed in pieces of this size: what the buffer holds at
// a time stays in the processor's caches, and a map's report of megabytes
// needs no more memory than this.
constexpr size_t kReportPiece = size_t(1) << 15;
// A report that stops more than this before the end of its buffer failed
// for a reason other than room.
constexpr size_t kLongestLine = 4096;
// The longest report a table is allowed. The largest well-formed ones (a
// title set's time maps, a PGC table of hundreds of PGCs) stay far below;
// a damaged table can announce hundreds of millions of entries, and its
// report is stopped here rather than printing gigabytes of zeros.
constexpr size_t kReportLimit = size_t(1) << 28;

// One try at a table's report, streamed to the sink. A PGC report nested in
// a table's report that does not fit what is left of the buffer is cut
// short or left out without failing the table's report; either way it has
// written up to near the end of the buffer. A canary placed there tells:
// once it is overwritten, nothing more is passed on and the try is redone
// with a larger buffer. A report is the same text at any buffer size, so
// the redo passes on only what no earlier try passed on.
struct StreamedTry {
    static constexpr unsigned char kCanary[8] = {0x01, 0xFF, 0x02, 0xFE, 0x03, 0xFD, 0x04, 0xFC};

    ReportSink& sink;
    const char* table;
    char* canary;           // kLongestLine / 2 before the end of the room
    size_t passedBefore;    // characters of the report earlier tries passed on
    size_t handed = 0;      // characters of the report this try has reached
    bool overflow = false;

    bool Overflowed() {
        if (!overflow && std::memcmp(canary, kCanary, sizeof kCanary) != 0) overflow = true;
        return overflow;
    }
    static void Hand(void* context, char* text, size_t size) {
        auto& t = *static_cast<StreamedTry*>(context);
        if (!t.Overflowed()) t.Pass(text, size);
    }
    void Pass(char* text, size_t size) {
        size_t skip = passedBefore > handed ? std::min(size, passedBefore - handed) : 0;
        handed += size;
        if (size > skip) sink.Text(table, text + skip, size - skip);
    }
};

// Reports one table, growing the buffer until the report fits. The room
// starts at what the previous tables needed, so a file's large PGC reports
// grow the buffer once per command rather than once per table.
template <class S>
void ReportOne(const fs::path& ifo, std::unique_ptr<S>& session, const TableOps<S>& ops,
               ReportBuffer& buffer, ReportSink& sink) {
    // Room for any PGC report the format allows (255 cells and hundreds of
    // commands come to well under 200,000 characters) besides a piece:
    // pages of the buffer that reports do not reach are never touched.
    constexpr size_t kStart = size_t(1) << 20;
    constexpr size_t kLimit = size_t(1) << 30;
    size_t passed = 0;
    bool again = false;
    for (size_t size = std::max(kStart, buffer.Room());; size *= 2, again = true) {
        if (again && ops.management) {
            session.reset();
            session = std::make_unique<S>(ifo);
        }
        // The room given to the library is `size` less the three bytes the
        // report rule needs beyond it; the rest of the buffer is a guard.
        char* buf = buffer.Prepare(size);
        const int len = int(size - 3);
        char* canary = buf + len - kLongestLine / 2;
        std::memcpy(canary, StreamedTry::kCanary, sizeof StreamedTry::kCanary);
        StreamedTry attempt{sink, ops.name, canary, passed};
        std::string error;
        int run;
        {
            kestro::ReportStream stream(&StreamedTry::Hand, &attempt, kReportPiece, kReportLimit);
            run = ops.details(*session, buf, len, error);
        }
        if (run == kAbsent) return;
        const size_t used = strnlen(buf, size);
        const bool nearFull = attempt.Overflowed() || used + kLongestLine >= size_t(len);
        // Past the limit the stream hands nothing on and the report fills
        // the buffer: no larger buffer would help.
        const bool atLimit = run != kDone && attempt.handed + used > kReportLimit;
        if (nearFull && !atLimit && size < kLimit) {
            passed = std::max(passed, attempt.handed);
            continue;
        }
        if (!attempt.overflow) attempt.Pass(buf, used);
        if (run == kDone && !attempt.overflow) return sink.Done(ops.name, true, error);
        sink.Done(ops.name, false,
                  atLimit          ? "report stopped after 256 MiB (the table's counts look damaged)"
                  : !error.empty() ? error
                  : nearFull       ? "report larger than the largest buffer tried"
                                   : "report failed");
        return;
    }
}

template <class S>
void ReportAll(const fs::path& ifo, const std::vector<TableOps<S>>& tables, ReportBuffer& buffer,
               ReportSink& sink) {
    auto session = std::make_unique<S>(ifo);
    for (const auto& ops : tables) ReportOne(ifo, session, ops, buffer, sink);
}

template <class S>
std::vector<std::string> DisasmAll(const fs::path& ifo, const fs::path& ini, SideFiles side,
                                   const std::vector<TableOps<S>>& tables) {
    S session(ifo);
    std::vector<std::string> sides;
    // The management table's Disasm starts the file; every other table adds
    // its sections to it.
    for (const auto& ops : tables) {
        std::string error;
        int run = ops.disasm(session, ini, side, sides, error);
        if (run == kFailed)
            throw ToolError(std::string(ops.name) + ": " +
                            (error.empty() ? "source could not be written" : error));
    }
    INIFlushFiles();
    return sides;
}

bool HasSection(const std::vector<std::string>& sections, const char* name) {
    for (const auto& s : sections)
        if (strcasecmp(s.c_str(), name) == 0) return true;
    return false;
}

bool HasStatement(const fs::path& ini, const char* section, const char* key) {
    return Statement(ini, section, key)[0] != '$';
}

void Require(bool ok, const char* table, const std::string& error) {
    if (!ok)
        throw ToolError(std::string(table) + ": " +
                        (error.empty() ? "source statements missing" : error));
}

// Assembles one table with a PGC codec of its own, so that a message the
// codec leaves belongs to this table.
// The table itself still succeeds when a PGC's source is incomplete (the
// PGC is then built from what the codec read); that fails the assembly
// unless the caller asked to be lenient.
template <class T>
void AsmWithCodec(T* table, const fs::path& ini, const char* name, bool lenient,
                  AsmOutcome& outcome) {
    CKestro_PGCI pgc;
    Require(table->Asm(ini.c_str(), &pgc), name, ErrorOf(*table));
    std::string codec = ErrorOf(pgc);
    if (!codec.empty() && !lenient)
        throw ToolError(std::string(name) + ": " + codec + " (--lenient writes the file anyway)");
    if (!codec.empty()) outcome.warnings.push_back(std::string(name) + ": " + codec);
    outcome.tables.push_back(name);
}

template <class T>
void AsmPlain(T* table, const fs::path& ini, const char* name, AsmOutcome& outcome) {
    Require(table->Asm(ini.c_str()), name, ErrorOf(*table));
    outcome.tables.push_back(name);
}

void AsmVmg(const fs::path& ini, const std::vector<std::string>& sections, const fs::path& out,
            const fs::path& vobDir, const std::string& ifoName, bool lenient,
            AsmOutcome& outcome) {
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
    if (h < 1) throw ToolError(out.string() + ": cannot be created");
    bool ok;
    {
        // The menu VOB file is found next to the IFO file's name.
        WorkingDirectory wd(vobDir);
        ok = mat.Asm(ini.c_str(), h, ifoName.c_str());
    }
    mat.CloseKestroFile((unsigned long)h);
    Require(ok, "VMGI_MAT", ErrorOf(mat));
    outcome.tables.insert(outcome.tables.begin(), "VMGI_MAT");
}

void AsmVts(const fs::path& ini, const std::vector<std::string>& sections, const fs::path& out,
            const fs::path& vobDir, const std::string& ifoName, bool absolute, bool lenient,
            AsmOutcome& outcome) {
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
        bool ok = HasStatement(ini, "vts_tmapti", "vts_tmap01_file_offset") && fs::exists(bin)
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
    } else if (fs::exists(stem + kVtsmAdmapBinSuffix)) {
        // The library writes this side file counted and little-endian, and
        // its counted reader would keep the entries byte-reversed; the plain
        // reader converts them, so it gets the entries without the count.
        std::vector<unsigned char> counted = ReadAll(stem + kVtsmAdmapBinSuffix);
        std::string plain = stem + " vtsm_vobu_admap.plain";
        {
            std::ofstream o(plain, std::ios::binary | std::ios::trunc);
            if (counted.size() > 4)
                o.write(reinterpret_cast<const char*>(counted.data() + 4),
                        std::streamsize(counted.size() - 4));
        }
        CKestro_VTSM_ADMAP* t = mat.NewVTSM_VOBU_ADMAP();
        Require(t->AsmBinary(ini.c_str(), plain.c_str()), "VTSM_VOBU_ADMAP", ErrorOf(*t));
        outcome.tables.push_back("VTSM_VOBU_ADMAP");
    }
    if (HasSection(sections, "vts_c_adt")) AsmPlain(mat.NewVTS_C_ADT(), ini, "VTS_C_ADT", outcome);
    if (HasSection(sections, "vts_vobu_admap")) {
        AsmPlain(mat.NewVTS_VOBU_ADMAP(), ini, "VTS_VOBU_ADMAP", outcome);
    } else if (fs::exists(stem + kVtsAdmapBinSuffix)) {
        CKestro_VTS_ADMAP* t = mat.NewVTS_VOBU_ADMAP();
        std::string bin = stem + kVtsAdmapBinSuffix;
        Require(t->Asm_FromFile(ini.c_str(), 0, bin.c_str()), "VTS_VOBU_ADMAP", ErrorOf(*t));
        outcome.tables.push_back("VTS_VOBU_ADMAP");
    }

    int h = int(mat.CreateKestroFile(out.c_str()));
    if (h < 1) throw ToolError(out.string() + ": cannot be created");
    bool ok;
    {
        // The title set's number comes from the IFO file's name and its VOB
        // files are measured in the working folder: give the bare name.
        WorkingDirectory wd(vobDir);
        ok = absolute ? mat.AsmAbs(ini.c_str(), (unsigned short)h, ifoName.c_str())
                      : mat.Asm(ini.c_str(), h, ifoName.c_str());
    }
    mat.CloseKestroFile((unsigned long)h);
    Require(ok, "VTSI_MAT", ErrorOf(mat));
    outcome.tables.insert(outcome.tables.begin(), "VTSI_MAT");
}

}  // namespace

IfoKind KindOfIfo(const fs::path& ifo) {
    const int fd = ::open(ifo.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw ToolError(ifo.string() + ": cannot be read");
    char id[12] = {};
    const ssize_t got = ::read(fd, id, sizeof id);
    ::close(fd);
    if (got < 0) throw ToolError(ifo.string() + ": cannot be read");
    if (std::memcmp(id, "DVDVIDEO-VMG", 12) == 0) return IfoKind::Vmg;
    if (std::memcmp(id, "DVDVIDEO-VTS", 12) == 0) return IfoKind::Vts;
    throw ToolError(ifo.string() + ": not a DVD-Video information file");
}

const char* KindName(IfoKind kind) {
    return kind == IfoKind::Vmg ? "video manager" : "title set";
}

std::string TmapIniSuffix(int map) { return " TmapTable" + std::to_string(map) + ".ini"; }

std::string SideStem(const fs::path& source) {
    std::string s = source.string();
    return s.size() >= 4 ? s.substr(0, s.size() - 4) : std::string();
}

char* ReportBuffer::Prepare(size_t room) {
    if (room > room_) {
        // Not value-initialised: the pages are touched only as far as the
        // reports reach.
        data_.reset(new char[room * 2]);
        room_ = room;
    }
    data_[0] = '\0';
    return data_.get();
}

void ReportIfo(const fs::path& ifo, IfoKind kind, ReportBuffer& buffer, ReportSink& sink) {
    if (kind == IfoKind::Vmg)
        ReportAll(ifo, VmgTables(), buffer, sink);
    else
        ReportAll(ifo, VtsTables(), buffer, sink);
}

std::vector<std::string> DisasmIfo(const fs::path& ifo, const fs::path& ini, SideFiles side) {
    return KindOfIfo(ifo) == IfoKind::Vmg ? DisasmAll(ifo, ini, side, VmgTables())
                                          : DisasmAll(ifo, ini, side, VtsTables());
}

std::vector<std::string> SectionsOf(const fs::path& ini) {
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

std::string Statement(const fs::path& ini, const char* section, const char* key,
                      const char* def) {
    char value[256] = {};
    INIGetPrivateProfileString(section, key, def, value, sizeof value, ini.c_str());
    return value;
}

AsmOutcome AsmIfo(const fs::path& ini, const fs::path& out, const fs::path& vobDir,
                  const std::string& ifoName, bool absolute, bool lenient) {
    std::vector<std::string> sections = SectionsOf(ini);
    AsmOutcome outcome;
    bool vmg = HasSection(sections, "vmgi_mat");
    bool vts = HasSection(sections, "vtsi_mat");
    if (vmg == vts)
        throw ToolError(ini.string() + (vmg ? ": holds both a vmgi_mat and a vtsi_mat section"
                                            : ": has neither a vmgi_mat nor a vtsi_mat section"));
    if (vmg) {
        if (absolute) throw ToolError("--abs applies to title set sources only");
        outcome.kind = IfoKind::Vmg;
        AsmVmg(ini, sections, out, vobDir, ifoName, lenient, outcome);
    } else {
        outcome.kind = IfoKind::Vts;
        AsmVts(ini, sections, out, vobDir, ifoName, absolute, lenient, outcome);
    }
    return outcome;
}

}  // namespace kestro_tool
