// Checks across tables and files: the video manager's titles against the
// title sets, where each title set begins on the disc, VTS_ATRT against each
// title set's VTSI_MAT, and a title set's parts of title against its PGCs
// and their programs.
#include <algorithm>

#include "check/checker.h"
#include "frame/detail.h"

namespace kestro {
namespace check {

namespace {

std::string TitleSetName(int n) {
    std::string s = "VTS_00_0.IFO";
    s[4] = char('0' + n / 10 % 10);
    s[5] = char('0' + n % 10);
    return s;
}

// Angles of a title: the longest angle block of the PGCs its parts name
// (bits 7-6 of a cell's category byte give its place in a block, first 1
// to last 3; bits 5-4 the block's type, 1 for angles), 1 without blocks.
int AnglesOf(const disc::TitleSet& vts, const std::vector<disc::PartOfTitle>& parts) {
    int most = 1;
    std::vector<uint16_t> pgcs;
    for (const auto& p : parts) pgcs.push_back(p.pgc);
    std::sort(pgcs.begin(), pgcs.end());
    pgcs.erase(std::unique(pgcs.begin(), pgcs.end()), pgcs.end());
    for (uint16_t n : pgcs) {
        if (n == 0 || n > vts.titles.pgcs.size()) continue;
        int run = 0;
        for (const auto& c : vts.titles.pgcs[n - 1].pgc.cellPlayback) {
            const int mode = (c.category >> 30) & 3, type = (c.category >> 28) & 3;
            if (type != 1 || mode == 0) {
                run = 0;
                continue;
            }
            run = mode == 1 ? 1 : run + 1;
            most = std::max(most, run);
        }
    }
    return most;
}

}  // namespace

void Checker::CheckTitles(const VmgData& vmg) {
    const disc::VideoManager& m = vmg.model;
    // Where each title set begins: right after the video manager, then
    // each after the one before it, as long as every one before is known.
    std::map<int, uint64_t> starts;
    uint64_t next = uint64_t(m.vmgEndSector) + 1;
    for (int n = 1; n <= m.titleSetCount; ++n) {
        const VtsData* vts = TitleSet(n);
        if (!vts) break;
        starts[n] = next;
        next += uint64_t(vts->model.vtsEndSector) + 1;
    }
    std::vector<bool> reported(size_t(kMaxTitleSets) + 256, false);
    std::map<std::pair<int, int>, bool> reached;
    std::map<std::pair<int, int>, int> angles;
    for (size_t i = 0; i < m.titles.size() && !f_.Full(); ++i) {
        const disc::TitleSearchPointer& t = m.titles[i];
        const int E = int(i + 1);
        if (t.titleSet == 0 || t.titleSet > m.titleSetCount) {
            f_.Error("title.vts-missing", "TT_SRPT", E, "VTSN",
                     "title set " + Num(t.titleSet) + " does not exist", Range(1, m.titleSetCount));
            continue;
        }
        if (t.partCount == 0 || t.partCount > kMaxParts)
            f_.Error("limit.parts", "TT_SRPT", E, "number of parts of title", Num(t.partCount),
                     Range(1, kMaxParts));
        if (t.angleCount == 0 || t.angleCount > kMaxAngles)
            f_.Error("limit.angles", "TT_SRPT", E, "number of angles", Num(t.angleCount),
                     Range(1, kMaxAngles));
        const VtsData* vts = TitleSet(t.titleSet);
        if (!vts) {
            if (options_.companions && !reported[t.titleSet]) {
                reported[t.titleSet] = true;
                f_.Error(
                    "title.vts-missing", "TT_SRPT", E, "VTSN",
                    "title set " + Num(t.titleSet) + " has no readable " + TitleSetName(t.titleSet),
                    "the title set's IFO file in the folder");
            }
            continue;
        }
        auto start = starts.find(t.titleSet);
        if (start != starts.end() && t.titleSetStartSector != start->second)
            f_.Error("title.start-sector", "TT_SRPT", E, "VTS start sector",
                     "sector " + Num(t.titleSetStartSector),
                     Num(start->second) + ", where " + TitleSetName(t.titleSet) +
                         " begins after the files before it");
        const auto& parts = vts->model.parts;
        if (t.titleInSet == 0 || t.titleInSet > parts.size()) {
            f_.Error("title.vts-title-missing", "TT_SRPT", E, "VTS_TTN",
                     "title " + Num(t.titleInSet) + " of title set " + Num(t.titleSet) +
                         " does not exist",
                     "the set has " + (parts.size() == 1 ? std::string("1 title")
                                                         : Num(parts.size()) + " titles"));
            continue;
        }
        reached[{t.titleSet, t.titleInSet}] = true;
        const auto& own = parts[t.titleInSet - 1];
        if (t.partCount != own.size())
            f_.Error("title.parts", "TT_SRPT", E, "number of parts of title", Num(t.partCount),
                     Num(own.size()) + ", as " + TitleSetName(t.titleSet) + " VTS_PTT_SRPT lists");
        // Titles can share a title of the set; its angles are counted once.
        auto known = angles.find({t.titleSet, t.titleInSet});
        if (known == angles.end())
            known = angles
                        .emplace(std::make_pair(int(t.titleSet), int(t.titleInSet)),
                                 AnglesOf(vts->model, own))
                        .first;
        const int angleCount = known->second;
        if (t.angleCount != angleCount)
            f_.Warning("title.angles", "TT_SRPT", E, "number of angles", Num(t.angleCount),
                       Num(angleCount) + ", as the title's angle blocks have");
    }
    for (const auto& [n, vts] : sets_) {
        if (!vts.readable) continue;
        if (n > m.titleSetCount) {
            f_.Warning("title.vts-extra", "VMGI_MAT", 0, "VMG_NR_OF_TITLE_SETS",
                       Num(m.titleSetCount) + " title sets, but the folder holds " + vts.file,
                       "at least " + Num(n));
            continue;
        }
        if (m.start.titles == 0) continue;
        for (size_t k = 1; k <= vts.model.parts.size(); ++k)
            if (!reached.count({n, int(k)}) &&
                f_.Wants("title.unreachable", "TT_SRPT", Severity::Warning))
                f_.Warning("title.unreachable", "TT_SRPT", 0, "",
                           "no title names title " + Num(k) + " of title set " + Num(n) +
                               ": only jumps within the set reach it",
                           "a title search pointer for every title of every title set");
    }
}

void Checker::CheckTitleSetAttributes(const VmgData& vmg) {
    const disc::VideoManager& m = vmg.model;
    const uint32_t sector = m.start.titleSetAttributes;
    if (sector == 0 || uint64_t(sector) * kSectorBytes >= vmg.image->bytes.size()) return;
    const ByteView v = ByteView(vmg.image->bytes).From(uint64_t(sector) * kSectorBytes);
    const uint16_t count = v.BE16(0);
    const uint32_t end = v.BE32(4);
    if (count != m.titleSetCount)
        f_.Error("atrt.count", "VTS_ATRT", 0, "number of title sets", Num(count),
                 Num(m.titleSetCount) + ", as VMGI_MAT gives");
    for (size_t i = 0; i < m.titleSetAttributes.size(); ++i) {
        const int E = int(i + 1);
        const uint32_t at = v.BE32(8 + 4 * i);
        if (at < 8 + 4 * uint64_t(count) || uint64_t(at) + 776 > uint64_t(end) + 1) {
            f_.Error("atrt.record", "VTS_ATRT", E, "start byte",
                     Num(at) + " puts the 776-byte record outside the table",
                     Range(8 + 4 * uint64_t(count), end >= 775 ? end - 775 : 0));
            continue;
        }
        const VtsData* vts = TitleSet(E);
        if (!vts) continue;
        const disc::TitleSetAttributes& a = m.titleSetAttributes[i];
        const ByteView mat(vts->model.table);
        if (a.category != mat.BE32(0x22))
            f_.Error("atrt.mismatch", "VTS_ATRT", E, "VTS_CAT", Hex(a.category, 8),
                     Hex(mat.BE32(0x22), 8) + ", as " + vts->file + " VTSI_MAT holds");
        // The record copies VTSI_MAT from byte 256: compare the fields a player uses,
        // the stream attributes only for the streams declared.
        const ByteView rec(a.attributes);
        const int menuAudio = std::min(MenuAudioStreams(vts->model.table), 1);
        const int menuSub = std::min(MenuSubpictureStreams(vts->model.table), 1);
        const int audio = std::min(TitleAudioStreams(vts->model.table), kMaxAudio);
        const int sub = std::min(TitleSubpictureStreams(vts->model.table), kMaxSubpictures);
        const struct {
            const char* field;
            size_t at, size;
        } fields[] = {
            {"VTSM_V_ATR", 0x100, 2},
            {"VTSM_AST_NS", 0x102, 2},
            {"VTSM_AST_ATR", 0x104, size_t(8 * menuAudio)},
            {"VTSM_SPST_NS", 0x154, 2},
            {"VTSM_SPST_ATR", 0x156, size_t(6 * menuSub)},
            {"VTS_V_ATR", 0x200, 2},
            {"VTS_AST_NS", 0x202, 2},
            {"VTS_AST_ATRT", 0x204, size_t(8 * audio)},
            {"VTS_SPST_NS", 0x254, 2},
            {"VTS_SPST_ATRT", 0x256, size_t(6 * sub)},
        };
        for (const auto& fd : fields) {
            size_t k = 0;
            while (k < fd.size && rec.U8(fd.at - 256 + k) == mat.U8(fd.at + k)) ++k;
            if (k == fd.size) continue;
            std::string ours, theirs;
            for (size_t b = 0; b < fd.size && b < 16; ++b) {
                ours += Hex(rec.U8(fd.at - 256 + b), 2);
                theirs += Hex(mat.U8(fd.at + b), 2);
            }
            f_.Error("atrt.mismatch", "VTS_ATRT", E, fd.field, ours,
                     theirs + ", as " + vts->file + " VTSI_MAT holds");
        }
    }
}

void Checker::CheckParts(const VtsData& vts) {
    const disc::TitleSet& m = vts.model;
    if (m.start.parts == 0 || uint64_t(m.start.parts) * kSectorBytes >= vts.image->bytes.size())
        return;
    const ByteView v = ByteView(vts.image->bytes).From(uint64_t(m.start.parts) * kSectorBytes);
    const uint16_t count = v.BE16(0);
    const uint32_t end = v.BE32(4);
    if (count == 0 || count > kMaxTitles)
        f_.Error("limit.titles", "VTS_PTT_SRPT", 0, "number of titles", Num(count),
                 Range(1, kMaxTitles));
    const uint64_t pointers = 8 + 4 * uint64_t(count);
    if (uint64_t(end) + 1 < pointers)
        f_.Error("table.end-address", "VTS_PTT_SRPT", 0, "end address",
                 Num(end) + " cuts off the title pointers", "at least " + Num(pointers - 1));
    for (size_t i = 0; i < m.parts.size() && !f_.Full(); ++i) {
        const int E = int(i + 1);
        const uint32_t at = v.BE32(8 + 4 * i);
        if (at < pointers || at > end) {
            f_.Error("ptt.offset", "VTS_PTT_SRPT", E, "start byte",
                     Num(at) + " lies outside the table's part area", Range(pointers, end));
            continue;
        }
        if (i > 0 && at < v.BE32(4 + 4 * i))
            f_.Error("ptt.offset", "VTS_PTT_SRPT", E, "start byte",
                     Num(at) + " lies before the previous title's parts", "rising start bytes");
        const auto& parts = m.parts[i];
        if (parts.empty() || parts.size() > size_t(kMaxParts))
            f_.Error("limit.parts", "VTS_PTT_SRPT", E, "number of parts", Num(parts.size()),
                     Range(1, kMaxParts));
        for (size_t k = 0; k < parts.size(); ++k) {
            const auto& p = parts[k];
            const bool pgcMissing = p.pgc == 0 || p.pgc > m.titles.pgcs.size();
            if (!pgcMissing && p.program >= 1 &&
                p.program <= m.titles.pgcs[p.pgc - 1].pgc.programCount)
                continue;
            if (!f_.Wants(pgcMissing ? "ptt.pgc" : "ptt.program", "VTS_PTT_SRPT")) continue;
            const std::string field = "part " + Num(k + 1);
            if (pgcMissing) {
                f_.Error("ptt.pgc", "VTS_PTT_SRPT", E, field + " PGCN",
                         "PGC " + Num(p.pgc) + " does not exist", Range(1, m.titles.pgcs.size()));
                continue;
            }
            const disc::Pgc& pgc = m.titles.pgcs[p.pgc - 1].pgc;
            const unsigned programs = pgc.programCount;
            // A PGC without cells only runs its commands (a title that
            // branches elsewhere); players start it whatever the part says.
            if (p.program == 0 || p.program > programs)
                f_.Add(pgc.cellCount ? Severity::Error : Severity::Warning, "ptt.program",
                       "VTS_PTT_SRPT", E, field + " PGN",
                       "program " + Num(p.program) + " of PGC " + Num(p.pgc) + " does not exist",
                       Range(1, programs));
        }
    }
    // Every title begins at an entry PGC that names it (bit 7 of the
    // category's first byte marks an entry PGC, bits 6-0 its title).
    if (!m.hasTitles) return;
    std::vector<bool> entered(m.parts.size() + 1, false);
    for (size_t i = 0; i < m.titles.pgcs.size(); ++i) {
        const uint8_t cat = uint8_t(m.titles.pgcs[i].category >> 24);
        if (!(cat & 0x80)) continue;
        const unsigned title = cat & 0x7f;
        if (title == 0 || title > m.parts.size())
            f_.Error("pgc.title", "VTS_PGCIT", int(i + 1), "title number",
                     "title " + Num(title) + " does not exist in the title set",
                     Range(1, m.parts.size()));
        else
            entered[title] = true;
    }
    for (size_t t = 1; t < entered.size(); ++t)
        if (!entered[t])
            f_.Warning("pgc.title-entry", "VTS_PGCIT", 0, "", "no entry PGC for title " + Num(t),
                       "an entry PGC whose title number is " + Num(t));
}

}  // namespace check
}  // namespace kestro
