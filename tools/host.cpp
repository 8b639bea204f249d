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

const char* const kTmapBinSuffix = kestro::disc::kTmapBinSuffix;
const char* const kVtsAdmapBinSuffix = kestro::disc::kVtsAdmapBinSuffix;
const char* const kVtsmAdmapBinSuffix = kestro::disc::kVtsmAdmapBinSuffix;

namespace {

using kestro::disc::LoadedIfo;

// An IFO file loaded through the library's module for the length of one
// report; the module knows which tables the file has and in which order.
struct Session {
    LoadedIfo file;
    explicit Session(const fs::path& ifo) {
        std::string error;
        if (!file.Open(ifo.string(), error)) throw ToolError(error);
    }
};

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
    char* canary;         // kLongestLine / 2 before the end of the room
    size_t passedBefore;  // characters of the report earlier tries passed on
    size_t handed = 0;    // characters of the report this try has reached
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
void ReportOne(const fs::path& ifo, std::unique_ptr<Session>& session, size_t table,
               ReportBuffer& buffer, ReportSink& sink) {
    const char* const name = session->file.TableName(table);
    const bool management = session->file.IsManagement(table);
    // Room for any PGC report the format allows (255 cells and hundreds of
    // commands come to well under 200,000 characters) besides a piece:
    // pages of the buffer that reports do not reach are never touched.
    constexpr size_t kStart = size_t(1) << 20;
    constexpr size_t kLimit = size_t(1) << 30;
    size_t passed = 0;
    bool again = false;
    for (size_t size = std::max(kStart, buffer.Room());; size *= 2, again = true) {
        if (again && management) {
            session.reset();
            session = std::make_unique<Session>(ifo);
        }
        // The room given to the library is `size` less the three bytes the
        // report rule needs beyond it; the rest of the buffer is a guard.
        char* buf = buffer.Prepare(size);
        const int len = int(size - 3);
        char* canary = buf + len - kLongestLine / 2;
        std::memcpy(canary, StreamedTry::kCanary, sizeof StreamedTry::kCanary);
        StreamedTry attempt{sink, name, canary, passed};
        std::string error;
        int run;
        {
            kestro::ReportStream stream(&StreamedTry::Hand, &attempt, kReportPiece, kReportLimit);
            run = session->file.Details(table, buf, len, error);
        }
        if (run == LoadedIfo::kAbsent) return;
        const size_t used = strnlen(buf, size);
        const bool nearFull = attempt.Overflowed() || used + kLongestLine >= size_t(len);
        // Past the limit the stream hands nothing on and the report fills
        // the buffer: no larger buffer would help.
        const bool atLimit = run != LoadedIfo::kDone && attempt.handed + used > kReportLimit;
        if (nearFull && !atLimit && size < kLimit) {
            passed = std::max(passed, attempt.handed);
            continue;
        }
        if (!attempt.overflow) attempt.Pass(buf, used);
        if (run == LoadedIfo::kDone && !attempt.overflow) return sink.Done(name, true, error);
        sink.Done(name, false,
                  atLimit ? "report stopped after 256 MiB (the table's counts look damaged)"
                  : !error.empty() ? error
                  : nearFull       ? "report larger than the largest buffer tried"
                                   : "report failed");
        return;
    }
}

void ReportAll(const fs::path& ifo, ReportBuffer& buffer, ReportSink& sink) {
    auto session = std::make_unique<Session>(ifo);
    for (size_t i = 0, n = session->file.TableCount(); i < n; ++i)
        ReportOne(ifo, session, i, buffer, sink);
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

const char* KindName(IfoKind kind) { return kind == IfoKind::Vmg ? "video manager" : "title set"; }

std::string TmapIniSuffix(int map) { return kestro::disc::TmapIniSuffix(map); }

std::string SideStem(const fs::path& source) { return kestro::disc::SideStem(source.string()); }

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

void ReportIfo(const fs::path& ifo, IfoKind, ReportBuffer& buffer, ReportSink& sink) {
    ReportAll(ifo, buffer, sink);
}

std::vector<std::string> DisasmIfo(const fs::path& ifo, const fs::path& ini, SideFiles side,
                                   bool libraryRules) {
    KindOfIfo(ifo);
    kestro::disc::DisasmResult r =
        kestro::disc::DisassembleIfo(ifo.string(), ini.string(), side, libraryRules);
    if (!r.ok) throw ToolError(r.error);
    return r.sides;
}

std::vector<std::string> SectionsOf(const fs::path& ini) {
    return kestro::disc::SectionsOf(ini.string());
}

std::string Statement(const fs::path& ini, const char* section, const char* key, const char* def) {
    return kestro::disc::Statement(ini.string(), section, key, def);
}

AsmOutcome AsmIfo(const fs::path& ini, const fs::path& out, const fs::path& vobDir,
                  const std::string& ifoName, bool absolute, bool lenient, bool libraryRules) {
    kestro::disc::AsmOptions options;
    options.absolute = absolute;
    options.lenient = lenient;
    options.libraryRules = libraryRules;
    kestro::disc::AsmResult r =
        kestro::disc::AssembleIfo(ini.string(), out.string(), vobDir.string(), ifoName, options);
    if (!r.ok) throw ToolError(r.error);
    AsmOutcome outcome;
    outcome.kind = r.kind == kestro::disc::IfoKind::VideoManager ? IfoKind::Vmg : IfoKind::Vts;
    outcome.tables = std::move(r.tables);
    outcome.warnings = std::move(r.warnings);
    return outcome;
}

}  // namespace kestro_tool
