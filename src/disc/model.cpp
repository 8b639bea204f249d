// The whole-disc model, read straight from the bytes of an IFO file.
//
// Every table is found through its start sector, every count is taken at its
// full width, and every entry is read only where the bytes hold it: a table
// that runs past the end of the file, or a count that announces more entries
// than the bytes can hold, gives the entries that are there and a problem
// line, never a read outside the file.
#include <algorithm>
#include <cstring>

#include "frame/detail.h"
#include "kestro/disc.h"

namespace kestro {
namespace disc {

namespace {

constexpr size_t kSectorBytes = 2048;

// The reader of one table: a view of the file from the table's first byte
// on, and the list the problems go to.
class TableReader {
public:
    TableReader(const std::vector<uint8_t>& file, uint32_t startSector, const char* name,
                std::vector<std::string>& problems)
        : name_(name), problems_(problems) {
        const uint64_t at = uint64_t(startSector) * kSectorBytes;
        if (startSector == 0) return;
        if (at >= file.size()) {
            Problem("starts past the end of the file");
            return;
        }
        view_ = ByteView(file.data() + at, file.size() - at);
        present_ = true;
    }
    TableReader(ByteView view, const char* name, std::vector<std::string>& problems)
        : view_(view), name_(name), problems_(problems), present_(view.size() > 0) {}

    bool present() const { return present_; }
    const ByteView& view() const { return view_; }

    // How many entries of `size` bytes from `at` on the file holds, at most
    // `want`; a shortfall is a problem.
    size_t Held(size_t at, uint64_t want, size_t size) {
        const size_t room = view_.size() > at ? (view_.size() - at) / size : 0;
        if (want > room) {
            Problem("announces " + std::to_string(want) + " entries, the file holds " +
                    std::to_string(room));
            return room;
        }
        return size_t(want);
    }
    void Problem(const std::string& what) { problems_.push_back(std::string(name_) + ": " + what); }

private:
    ByteView view_;
    const char* name_;
    std::vector<std::string>& problems_;
    bool present_ = false;
};

Command CommandAt(const ByteView& v, size_t at) {
    Command c{};
    v.Copy(at, c.data(), c.size());
    return c;
}

// One PGC from `at` of `v`; its parts are found through their offsets.
Pgc ReadPgc(const ByteView& v, const char* name, std::vector<std::string>& problems) {
    Pgc p;
    TableReader r(v, name, problems);
    if (!v.Has(0, 236)) r.Problem("PGC cut short");
    p.programCount = v.U8(2);
    p.cellCount = v.U8(3);
    p.playbackTime = v.BE32(4);
    p.prohibitedOperations = v.BE32(8);
    for (size_t i = 0; i < 8; ++i) p.audioControl[i] = v.BE16(12 + 2 * i);
    for (size_t i = 0; i < 32; ++i) p.subpictureControl[i] = v.BE32(28 + 4 * i);
    p.nextPgc = v.BE16(156);
    p.previousPgc = v.BE16(158);
    p.goUpPgc = v.BE16(160);
    p.stillTime = v.U8(162);
    p.playbackMode = v.U8(163);
    for (size_t i = 0; i < 16; ++i) p.palette[i] = v.BE32(164 + 4 * i);
    p.commandsAt = v.BE16(228);
    p.programMapAt = v.BE16(230);
    p.cellPlaybackAt = v.BE16(232);
    p.cellPositionAt = v.BE16(234);
    if (p.commandsAt) {
        const size_t at = p.commandsAt;
        const size_t pre = v.BE16(at), post = v.BE16(at + 2), cell = v.BE16(at + 4);
        size_t n = r.Held(at + 8, uint64_t(pre) + post + cell, 8);
        size_t k = 0;
        for (size_t i = 0; i < pre && k < n; ++i, ++k)
            p.preCommands.push_back(CommandAt(v, at + 8 + 8 * k));
        for (size_t i = 0; i < post && k < n; ++i, ++k)
            p.postCommands.push_back(CommandAt(v, at + 8 + 8 * k));
        for (size_t i = 0; i < cell && k < n; ++i, ++k)
            p.cellCommands.push_back(CommandAt(v, at + 8 + 8 * k));
    }
    if (p.programMapAt)
        for (size_t i = 0, n = r.Held(p.programMapAt, p.programCount, 1); i < n; ++i)
            p.programEntryCells.push_back(v.U8(p.programMapAt + i));
    if (p.cellPlaybackAt)
        for (size_t i = 0, n = r.Held(p.cellPlaybackAt, p.cellCount, 24); i < n; ++i) {
            const size_t e = p.cellPlaybackAt + 24 * i;
            p.cellPlayback.push_back({v.BE32(e), v.BE32(e + 4), v.BE32(e + 8), v.BE32(e + 12),
                                      v.BE32(e + 16), v.BE32(e + 20)});
        }
    if (p.cellPositionAt)
        for (size_t i = 0, n = r.Held(p.cellPositionAt, p.cellCount, 4); i < n; ++i) {
            const size_t e = p.cellPositionAt + 4 * i;
            p.cellPositions.push_back({v.BE16(e), v.U8(e + 3)});
        }
    return p;
}

// How many PGCs a model reads at most. Search pointers of a damaged file can
// point many times at the same bytes (thousands of language units of
// thousands of PGCs each); a well-formed file holds a PGC in every 236 bytes
// at most, and a few times that many reads cover PGCs shared by several
// pointers.
struct Budget {
    size_t pgcsLeft;
    explicit Budget(size_t fileSize) : pgcsLeft(fileSize / 236 * 4 + 64) {}
};

// Entries of tables whose records may point into each other's bytes (parts
// of title per title, time map entries per map, parental masks per
// country). In a sound file no two records share bytes, so all of them
// together hold at most the file's bytes; a hostile file whose records all
// point at the same long run would otherwise cost the square of its size.
class EntryBudget {
public:
    EntryBudget(size_t fileSize, size_t entryBytes) : left_(fileSize / entryBytes + 64) {}
    // How many of `want` entries may still be read; a shortfall is told once.
    size_t Take(size_t want, TableReader& r) {
        const size_t n = want < left_ ? want : left_;
        left_ -= n;
        if (n < want && !told_) {
            r.Problem("records overlap: more entries than the file holds; the rest are left out");
            told_ = true;
        }
        return n;
    }

private:
    size_t left_;
    bool told_ = false;
};

// A PGC table (VTS_PGCIT or a language unit) whose first byte `v` starts at.
PgcTable ReadPgcTable(TableReader& r, const char* name, std::vector<std::string>& problems,
                      Budget& budget) {
    PgcTable t;
    const ByteView& v = r.view();
    t.count = v.BE16(0);
    t.endAddress = v.BE32(4);
    for (size_t i = 0, n = r.Held(8, t.count, 8); i < n; ++i) {
        PgcSearchPointer s;
        s.category = v.BE32(8 + 8 * i);
        s.startByte = v.BE32(12 + 8 * i);
        if (budget.pgcsLeft == 0) {
            r.Problem("more PGCs than the file can hold; the rest are left out");
            break;
        }
        --budget.pgcsLeft;
        if (s.startByte >= v.size())
            r.Problem("PGC " + std::to_string(i + 1) + " lies outside the file");
        else
            s.pgc = ReadPgc(v.From(s.startByte), name, problems);
        t.pgcs.push_back(std::move(s));
    }
    return t;
}

MenuTable ReadMenus(const std::vector<uint8_t>& file, uint32_t sector, const char* name,
                    std::vector<std::string>& problems, Budget& budget) {
    MenuTable m;
    TableReader r(file, sector, name, problems);
    if (!r.present()) return m;
    const ByteView& v = r.view();
    m.present = true;
    m.count = v.BE16(0);
    m.endAddress = v.BE32(4);
    for (size_t i = 0, n = r.Held(8, m.count, 8); i < n; ++i) {
        MenuLanguageUnit u;
        u.language = v.BE16(8 + 8 * i);
        u.menuExists = v.U8(11 + 8 * i);
        u.startByte = v.BE32(12 + 8 * i);
        if (u.startByte >= v.size()) {
            r.Problem("language unit " + std::to_string(i + 1) + " lies outside the file");
        } else {
            TableReader unit(v.From(u.startByte), name, problems);
            u.table = ReadPgcTable(unit, name, problems, budget);
        }
        m.units.push_back(std::move(u));
    }
    return m;
}

CellAddressTable ReadCells(const std::vector<uint8_t>& file, uint32_t sector, const char* name,
                           std::vector<std::string>& problems) {
    CellAddressTable t;
    TableReader r(file, sector, name, problems);
    if (!r.present()) return t;
    const ByteView& v = r.view();
    t.present = true;
    t.vobCount = v.BE16(0);
    t.endAddress = v.BE32(4);
    const uint64_t entries = t.endAddress >= 7 ? (uint64_t(t.endAddress) + 1 - 8) / 12 : 0;
    for (size_t i = 0, n = r.Held(8, entries, 12); i < n; ++i) {
        const size_t e = 8 + 12 * i;
        t.cells.push_back({v.BE16(e), v.U8(e + 2), v.BE32(e + 4), v.BE32(e + 8)});
    }
    return t;
}

VobuMap ReadVobus(const std::vector<uint8_t>& file, uint32_t sector, const char* name,
                  std::vector<std::string>& problems) {
    VobuMap m;
    TableReader r(file, sector, name, problems);
    if (!r.present()) return m;
    const ByteView& v = r.view();
    m.present = true;
    m.endAddress = v.BE32(0);
    const uint64_t entries = m.endAddress >= 3 ? (uint64_t(m.endAddress) + 1 - 4) / 4 : 0;
    const size_t n = r.Held(4, entries, 4);
    m.sectors.reserve(n);
    for (size_t i = 0; i < n; ++i) m.sectors.push_back(v.BE32(4 + 4 * i));
    return m;
}

// The management table at the file's start, kept whole (zero past a file cut
// short); false when the file does not start with the identifier of its kind.
bool ReadManagementTable(const std::vector<uint8_t>& ifo, const char* id, const char* name,
                         size_t size, std::vector<uint8_t>& table,
                         std::vector<std::string>& problems) {
    if (ifo.size() < 12 || std::memcmp(ifo.data(), id, 12) != 0) return false;
    table.assign(size, 0);
    ByteView(ifo).Copy(0, table.data(), table.size());
    if (ifo.size() < size) problems.push_back(std::string(name) + ": cut short");
    return true;
}

}  // namespace

bool ReadVideoManager(const std::vector<uint8_t>& ifo, VideoManager& out) {
    out = VideoManager();
    ByteView f(ifo);
    if (!ReadManagementTable(ifo, "DVDVIDEO-VMG", "VMGI_MAT", 1024, out.table, out.problems))
        return false;
    out.vmgEndSector = f.BE32(12);
    out.vmgiEndSector = f.BE32(28);
    out.titleSetCount = f.BE16(62);
    out.matEndByte = f.BE32(128);
    out.firstPlayByte = f.BE32(132);
    auto& s = out.start;
    s.menuVobs = f.BE32(192);
    s.titles = f.BE32(196);
    s.menus = f.BE32(200);
    s.parental = f.BE32(204);
    s.titleSetAttributes = f.BE32(208);
    s.textData = f.BE32(212);
    s.menuCells = f.BE32(216);
    s.menuVobus = f.BE32(220);
    auto& problems = out.problems;

    if (out.firstPlayByte != 0) {
        out.hasFirstPlay = true;
        if (out.firstPlayByte >= ifo.size())
            problems.push_back("FP_PGC: lies outside the file");
        else
            out.firstPlay = ReadPgc(f.From(out.firstPlayByte), "FP_PGC", problems);
    }

    TableReader tt(ifo, s.titles, "TT_SRPT", problems);
    if (tt.present()) {
        const ByteView& v = tt.view();
        for (size_t i = 0, n = tt.Held(8, v.BE16(0), 12); i < n; ++i) {
            const size_t e = 8 + 12 * i;
            out.titles.push_back({v.U8(e), v.U8(e + 1), v.BE16(e + 2), v.BE16(e + 4), v.U8(e + 6),
                                  v.U8(e + 7), v.BE32(e + 8)});
        }
    }
    Budget budget(ifo.size());
    out.menus = ReadMenus(ifo, s.menus, "VMGM_PGCI_UT", problems, budget);

    TableReader pm(ifo, s.parental, "PTL_MAIT", problems);
    if (pm.present()) {
        const ByteView& v = pm.view();
        auto& p = out.parental;
        p.present = true;
        p.titleSets = v.BE16(2);
        p.endAddress = v.BE32(4);
        EntryBudget entries(ifo.size(), 2);
        for (size_t i = 0, n = pm.Held(8, v.BE16(0), 8); i < n; ++i) {
            ParentalCountry c;
            c.countryCode = v.BE16(8 + 8 * i);
            c.startByte = v.BE16(12 + 8 * i);
            const size_t masks = size_t(p.titleSets) + 1;
            const size_t held = entries.Take(pm.Held(c.startByte, 8 * masks, 2), pm);
            for (size_t k = 0; k < held; ++k)
                c.levels[k / masks].push_back(v.BE16(c.startByte + 2 * k));
            p.countries.push_back(std::move(c));
        }
    }

    TableReader at(ifo, s.titleSetAttributes, "VTS_ATRT", problems);
    if (at.present()) {
        const ByteView& v = at.view();
        for (size_t i = 0, n = at.Held(8, v.BE16(0), 4); i < n; ++i) {
            const uint32_t start = v.BE32(8 + 4 * i);
            TitleSetAttributes a;
            if (!v.Has(start, 776)) at.Problem("record " + std::to_string(i + 1) + " cut short");
            a.endAddress = v.BE32(start);
            a.category = v.BE32(size_t(start) + 4);
            a.attributes.assign(768, 0);
            v.Copy(size_t(start) + 8, a.attributes.data(), a.attributes.size());
            out.titleSetAttributes.push_back(std::move(a));
        }
    }

    TableReader tx(ifo, s.textData, "TXTDT_MG", problems);
    if (tx.present()) {
        const ByteView& v = tx.view();
        out.text.present = true;
        const uint64_t want = uint64_t(v.BE32(16)) + 1;
        const size_t n = tx.Held(0, want, 1);
        out.text.bytes.assign(v.data(), v.data() + n);
    }
    out.menuCells = ReadCells(ifo, s.menuCells, "VMGM_C_ADT", problems);
    out.menuVobus = ReadVobus(ifo, s.menuVobus, "VMGM_VOBU_ADMAP", problems);
    return true;
}

bool ReadTitleSet(const std::vector<uint8_t>& ifo, TitleSet& out) {
    out = TitleSet();
    ByteView f(ifo);
    if (!ReadManagementTable(ifo, "DVDVIDEO-VTS", "VTSI_MAT", 2048, out.table, out.problems))
        return false;
    out.vtsEndSector = f.BE32(12);
    out.vtsiEndSector = f.BE32(28);
    out.matEndByte = f.BE32(128);
    auto& s = out.start;
    s.menuVobs = f.BE32(192);
    s.titleVobs = f.BE32(196);
    s.parts = f.BE32(200);
    s.titles = f.BE32(204);
    s.menus = f.BE32(208);
    s.timeMaps = f.BE32(212);
    s.menuCells = f.BE32(216);
    s.menuVobus = f.BE32(220);
    s.titleCells = f.BE32(224);
    s.titleVobus = f.BE32(228);
    auto& problems = out.problems;

    TableReader pt(ifo, s.parts, "VTS_PTT_SRPT", problems);
    if (pt.present()) {
        const ByteView& v = pt.view();
        const size_t n = pt.Held(8, v.BE16(0), 4);
        const uint64_t end = uint64_t(v.BE32(4)) + 1;
        EntryBudget entries(ifo.size(), 4);
        for (size_t i = 0; i < n; ++i) {
            const uint64_t from = v.BE32(8 + 4 * i);
            const uint64_t to = i + 1 < n ? v.BE32(8 + 4 * (i + 1)) : end;
            std::vector<PartOfTitle> parts;
            if (to > from) {
                for (size_t k = 0, m = entries.Take(pt.Held(size_t(from), (to - from) / 4, 4), pt);
                     k < m; ++k)
                    parts.push_back(
                        {v.BE16(size_t(from) + 4 * k), v.BE16(size_t(from) + 4 * k + 2)});
            }
            out.parts.push_back(std::move(parts));
        }
    }
    Budget budget(ifo.size());
    TableReader pg(ifo, s.titles, "VTS_PGCIT", problems);
    if (pg.present()) {
        out.hasTitles = true;
        out.titles = ReadPgcTable(pg, "VTS_PGCIT", problems, budget);
    }
    out.menus = ReadMenus(ifo, s.menus, "VTSM_PGCI_UT", problems, budget);
    TableReader tm(ifo, s.timeMaps, "VTS_TMAPT", problems);
    if (tm.present()) {
        const ByteView& v = tm.view();
        EntryBudget entries(ifo.size(), 4);
        for (size_t i = 0, n = tm.Held(8, v.BE16(0), 4); i < n; ++i) {
            const uint32_t at = v.BE32(8 + 4 * i);
            TimeMap m;
            m.unitSeconds = v.U8(at);
            for (size_t k = 0,
                        e = entries.Take(tm.Held(size_t(at) + 4, v.BE16(size_t(at) + 2), 4), tm);
                 k < e; ++k)
                m.entries.push_back(v.BE32(size_t(at) + 4 + 4 * k));
            out.timeMaps.push_back(std::move(m));
        }
    }
    out.menuCells = ReadCells(ifo, s.menuCells, "VTSM_C_ADT", problems);
    out.menuVobus = ReadVobus(ifo, s.menuVobus, "VTSM_VOBU_ADMAP", problems);
    out.titleCells = ReadCells(ifo, s.titleCells, "VTS_C_ADT", problems);
    out.titleVobus = ReadVobus(ifo, s.titleVobus, "VTS_VOBU_ADMAP", problems);
    return true;
}

}  // namespace disc
}  // namespace kestro
