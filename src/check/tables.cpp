// Checks of each table on its own: its counts against the DVD-Video limits
// and against its end address, and its entries against the VOB set they
// describe. PGCs are checked in pgc.cpp, tables against each other in
// cross.cpp.
#include <algorithm>
#include <set>

#include "check/checker.h"
#include "frame/detail.h"

namespace kestro {
namespace check {

namespace {

// Stream counts of a management table's attribute area: menus at 0x102
// (audio) and 0x154 (sub-picture), titles at 0x202 and 0x254.
int Count16(const std::vector<uint8_t>& mat, size_t at) { return ByteView(mat).BE16(at); }

uint64_t Known(const VobSet& set, uint64_t claimed) {
    return set.looked && !set.names.empty() ? set.Sectors() : claimed;
}

// The header of a table whose first byte is at `sector` of `file`: count and end address.
struct Header {
    bool present = false;
    uint32_t count = 0, endAddress = 0;
};
Header HeaderAt(const std::vector<uint8_t>& file, uint32_t sector, size_t countAt, bool count16) {
    Header h;
    const uint64_t at = uint64_t(sector) * kSectorBytes;
    if (sector == 0 || at >= file.size()) return h;
    ByteView v(file);
    h.present = true;
    h.count = count16 ? v.BE16(at + countAt) : v.BE32(at + countAt);
    h.endAddress = v.BE32(at + 4);
    return h;
}

// An end address against the bytes the table's counts need.
void CheckEndAddress(Findings& f, const char* table, uint32_t endAddress, uint64_t needed) {
    const uint64_t have = uint64_t(endAddress) + 1;
    if (have < needed)
        f.Error("table.end-address", table, 0, "end address",
                Num(endAddress) + " cuts off entries its counts announce",
                "at least " + Num(needed - 1));
}

}  // namespace

int MenuAudioStreams(const std::vector<uint8_t>& mat) { return Count16(mat, 0x102); }
int MenuSubpictureStreams(const std::vector<uint8_t>& mat) { return Count16(mat, 0x154); }
int TitleAudioStreams(const std::vector<uint8_t>& mat) { return Count16(mat, 0x202); }
int TitleSubpictureStreams(const std::vector<uint8_t>& mat) { return Count16(mat, 0x254); }

void Checker::CheckVmgTables(const VmgData& vmg) {
    const disc::VideoManager& m = vmg.model;
    const auto& bytes = vmg.image->bytes;
    if (MenuAudioStreams(m.table) > 1)
        f_.Error("limit.streams", "VMGI_MAT", 0, "VMGM_AST_NS",
                 Num(MenuAudioStreams(m.table)) + " menu audio streams", "0 or 1");
    if (MenuSubpictureStreams(m.table) > 1)
        f_.Error("limit.streams", "VMGI_MAT", 0, "VMGM_SPST_NS",
                 Num(MenuSubpictureStreams(m.table)) + " menu sub-picture streams", "0 or 1");

    const Header tt = HeaderAt(bytes, m.start.titles, 0, true);
    if (tt.present) {
        if (tt.count == 0 || tt.count > kMaxTitles)
            f_.Error("limit.titles", "TT_SRPT", 0, "number of titles", Num(tt.count) + " titles",
                     Range(1, kMaxTitles));
        CheckEndAddress(f_, "TT_SRPT", tt.endAddress, 8 + 12 * uint64_t(tt.count));
    }

    const uint64_t menuSectors = Known(vmg.menuVobs, [&] {
        const uint64_t ifo = uint64_t(m.vmgiEndSector) + 1, all = uint64_t(m.vmgEndSector) + 1;
        return all > 2 * ifo ? all - 2 * ifo : 0;
    }());
    PgcPlace place;
    place.domain = Domain::VideoManagerMenu;
    place.cells = &m.menuCells;
    place.vobus = &m.menuVobus;
    place.vobSectors = m.start.menuVobs ? menuSectors : 0;
    place.audioStreams = MenuAudioStreams(m.table);
    place.subpictureStreams = MenuSubpictureStreams(m.table);
    if (m.hasFirstPlay) {
        PgcPlace fp = place;
        fp.domain = Domain::FirstPlay;
        fp.table_name = "FP_PGC";
        CheckPgc(m.firstPlay, fp);
    }
    CheckMenus(m.menus, "VMGM", false, place);
    if (m.start.menuVobs != 0 && !m.menus.present)
        f_.Warning("menu.missing", "VMGI_MAT", 0, "VMGM_PGCI_UT_SA",
                   "0, but the video manager has menu VOBs", "the menus that play them");
    CheckCellTable(m.menuCells, "VMGM_C_ADT", place.vobSectors);
    CheckVobuMap(m.menuVobus, "VMGM_VOBU_ADMAP", place.vobSectors);
}

void Checker::CheckVtsTables(const VtsData& vts) {
    const disc::TitleSet& m = vts.model;
    const auto& bytes = vts.image->bytes;
    const struct {
        int count, limit;
        const char* field;
        const char* what;
    } streams[] = {
        {MenuAudioStreams(m.table), 1, "VTSM_AST_NS", " menu audio streams"},
        {MenuSubpictureStreams(m.table), 1, "VTSM_SPST_NS", " menu sub-picture streams"},
        {TitleAudioStreams(m.table), kMaxAudio, "VTS_AST_NS", " audio streams"},
        {TitleSubpictureStreams(m.table), kMaxSubpictures, "VTS_SPST_NS", " sub-picture streams"},
    };
    for (const auto& s : streams)
        if (s.count > s.limit)
            f_.Error("limit.streams", "VTSI_MAT", 0, s.field, Num(s.count) + s.what,
                     Range(0, s.limit));

    const uint64_t ifo = uint64_t(m.vtsiEndSector) + 1, all = uint64_t(m.vtsEndSector) + 1;
    const uint64_t menuClaim = m.start.titleVobs > ifo ? m.start.titleVobs - ifo : 0;
    const uint64_t titleClaim =
        all > uint64_t(m.start.titleVobs) + ifo ? all - m.start.titleVobs - ifo : 0;

    PgcPlace menus;
    menus.domain = Domain::TitleSetMenu;
    menus.vts = &vts;
    menus.cells = &m.menuCells;
    menus.vobus = &m.menuVobus;
    menus.vobSectors = m.start.menuVobs ? Known(vts.menuVobs, menuClaim) : 0;
    menus.audioStreams = std::min(MenuAudioStreams(m.table), 1);
    menus.subpictureStreams = std::min(MenuSubpictureStreams(m.table), 1);
    CheckMenus(m.menus, "VTSM", true, menus);
    CheckCellTable(m.menuCells, "VTSM_C_ADT", menus.vobSectors);
    CheckVobuMap(m.menuVobus, "VTSM_VOBU_ADMAP", menus.vobSectors);

    PgcPlace titles;
    titles.domain = Domain::Title;
    titles.vts = &vts;
    titles.table = &m.titles;
    titles.cells = &m.titleCells;
    titles.vobus = &m.titleVobus;
    titles.vobSectors = Known(vts.titleVobs, titleClaim);
    titles.audioStreams = std::min(TitleAudioStreams(m.table), kMaxAudio);
    titles.subpictureStreams = std::min(TitleSubpictureStreams(m.table), kMaxSubpictures);
    titles.table_name = "VTS_PGCIT";
    if (m.hasTitles) {
        if (m.titles.count == 0)
            f_.Error("limit.pgcs", "VTS_PGCIT", 0, "number of PGCs", "0", "at least 1");
        CheckPgcTable(m.titles, titles);
    }
    CheckCellTable(m.titleCells, "VTS_C_ADT", titles.vobSectors);
    CheckVobuMap(m.titleVobus, "VTS_VOBU_ADMAP", titles.vobSectors);

    // Time maps: one per title PGC, entries at VOBU starts, rising, inside the title VOBs.
    const Header tm = HeaderAt(bytes, m.start.timeMaps, 0, true);
    if (!tm.present) return;
    if (m.hasTitles && tm.count != m.titles.count)
        f_.Warning("tmap.count", "VTS_TMAPT", 0, "number of time maps", Num(tm.count),
                   Num(m.titles.count) + ", one per title PGC");
    ByteView v = ByteView(bytes).From(uint64_t(m.start.timeMaps) * kSectorBytes);
    uint64_t needed = 8 + 4 * uint64_t(tm.count);
    const auto& vobus = m.titleVobus.sectors;
    const bool sortedVobus = VobusSorted(m.titleVobus);
    std::set<uint32_t> seen;  // maps that share their bytes are checked once
    for (size_t i = 0; i < m.timeMaps.size() && !f_.Full(); ++i) {
        const int entry = int(i + 1);
        const disc::TimeMap& map = m.timeMaps[i];
        const uint32_t at = v.BE32(8 + 4 * i);
        needed = std::max<uint64_t>(needed, uint64_t(at) + 4 + 4 * uint64_t(map.entries.size()));
        if (!seen.insert(at).second) continue;
        if (!map.entries.empty() && map.unitSeconds == 0)
            f_.Error("tmap.unit", "VTS_TMAPT", entry, "time unit", "0 seconds", "1 or more");
        uint32_t last = 0;
        for (size_t k = 0; k < map.entries.size(); ++k) {
            const uint32_t sector = map.entries[k] & 0x7fffffff;
            const uint32_t before = last;
            last = sector;
            const char* id = k > 0 && sector < before                           ? "tmap.order"
                             : titles.vobSectors && sector >= titles.vobSectors ? "tmap.outside"
                             : sortedVobus && !vobus.empty() &&
                                     !std::binary_search(vobus.begin(), vobus.end(), sector)
                                 ? "tmap.vobu"
                                 : nullptr;
            if (!id ||
                !f_.Wants(id, "VTS_TMAPT", id[5] == 'v' ? Severity::Warning : Severity::Error))
                continue;
            const std::string field = "entry " + Num(k + 1);
            if (id[5] == 'o' && id[6] == 'r')
                f_.Error(id, "VTS_TMAPT", entry, field,
                         "sector " + Num(sector) + " lies before the entry above it",
                         "at least " + Num(before));
            else if (id[5] == 'o')
                f_.Error(id, "VTS_TMAPT", entry, field,
                         "sector " + Num(sector) + " lies past the title VOBs",
                         "below " + Num(titles.vobSectors));
            else
                f_.Warning(id, "VTS_TMAPT", entry, field,
                           "sector " + Num(sector) + " is not the start of a VOBU",
                           "a sector VTS_VOBU_ADMAP lists");
        }
    }
    CheckEndAddress(f_, "VTS_TMAPT", tm.endAddress, needed);
}

void Checker::CheckMenus(const disc::MenuTable& menus, const char* name, bool titleSetMenus,
                         PgcPlace place) {
    if (!menus.present) return;
    const std::string table = std::string(name) + "_PGCI_UT";
    if (menus.count == 0)
        f_.Error("menu.units", table, 0, "number of language units", "0", "at least 1");
    CheckEndAddress(f_, table.c_str(), menus.endAddress, 8 + 8 * uint64_t(menus.count));
    // Menu types: 2 title menu (video manager), 3 root, 4 sub-picture, 5
    // audio, 6 angle, 7 part of title; the unit's existence byte has a bit
    // for each of them.
    struct MenuBit {
        uint8_t bit, type;
        const char* name;
    };
    static const MenuBit kVmgm[] = {{0x80, 2, "title menu"}};
    static const MenuBit kVtsm[] = {{0x80, 3, "root menu"},
                                    {0x40, 4, "sub-picture menu"},
                                    {0x20, 5, "audio menu"},
                                    {0x10, 6, "angle menu"},
                                    {0x08, 7, "part-of-title menu"}};
    const MenuBit* bits = titleSetMenus ? kVtsm : kVmgm;
    const size_t nbits = titleSetMenus ? 5 : 1;
    std::set<uint32_t> seen;  // units that share their bytes are checked once
    for (size_t i = 0; i < menus.units.size() && !f_.Full(); ++i) {
        const disc::MenuLanguageUnit& u = menus.units[i];
        if (!seen.insert(u.startByte).second) continue;
        const std::string unit = std::string(name) + "_LU" + Num(i + 1);
        for (size_t b = 0; b < nbits; ++b) {
            bool entry = false, any = false;
            for (const auto& p : u.table.pgcs) {
                const bool isEntry = (p.category >> 24) & 0x80;
                const uint8_t type = uint8_t((p.category >> 24) & 0x0f);
                if (type == bits[b].type) {
                    any = true;
                    entry = entry || isEntry;
                }
            }
            if ((u.menuExists & bits[b].bit) && !entry)
                f_.Error("menu.declared-missing", table, int(i + 1), "menu existence",
                         std::string("declares a ") + bits[b].name +
                             ", the unit has no entry PGC for it",
                         "an entry PGC of menu type " + Num(bits[b].type));
            else if (!(u.menuExists & bits[b].bit) && entry && any)
                f_.Warning("menu.undeclared", table, int(i + 1), "menu existence",
                           std::string("does not declare the ") + bits[b].name +
                               " the unit's entry PGCs hold",
                           "bit " + Hex(bits[b].bit, 2) + " set");
        }
        PgcPlace p = place;
        p.table = &u.table;
        p.table_name = unit;
        CheckPgcTable(u.table, p);
    }
}

void Checker::CheckCellTable(const disc::CellAddressTable& t, const char* name,
                             uint64_t vobSectors) {
    if (!t.present) return;
    if (t.endAddress < 7 || (uint64_t(t.endAddress) + 1 - 8) % 12)
        f_.Warning("table.end-address", name, 0, "end address",
                   Num(t.endAddress) + " does not end on a whole entry", "8 + 12 x entries - 1");
    uint16_t maxVob = 0;
    for (size_t i = 0; i < t.cells.size() && !f_.Full(); ++i) {
        const disc::CellAddress& c = t.cells[i];
        const int entry = int(i + 1);
        maxVob = std::max(maxVob, c.vobId);
        if (c.vobId == 0 || c.cellId == 0)
            f_.Error("cells.id", name, entry, c.vobId == 0 ? "VOB_IDN" : "C_IDN", "0", "1 or more");
        if (c.lastSector < c.firstSector)
            f_.Error("cells.range", name, entry, "last sector",
                     Num(c.lastSector) + " lies before the first sector " + Num(c.firstSector),
                     "at least " + Num(c.firstSector));
        else if (vobSectors && c.lastSector >= vobSectors)
            f_.Error("cells.outside-vobs", name, entry, "last sector",
                     Num(c.lastSector) + " lies past the VOB set", "below " + Num(vobSectors));
        if (i > 0) {
            const disc::CellAddress& p = t.cells[i - 1];
            if (c.vobId < p.vobId || (c.vobId == p.vobId && c.cellId < p.cellId))
                f_.Warning("cells.order", name, entry, "VOB_IDN/C_IDN",
                           "VOB " + Num(c.vobId) + " cell " + Num(c.cellId) + " follows VOB " +
                               Num(p.vobId) + " cell " + Num(p.cellId),
                           "entries sorted by VOB and cell");
        }
    }
    if (maxVob > t.vobCount)
        f_.Error("cells.vob-count", name, 0, "number of VOBs",
                 Num(t.vobCount) + ", but cells lie in VOB " + Num(maxVob),
                 "at least " + Num(maxVob));
}

void Checker::CheckVobuMap(const disc::VobuMap& m, const char* name, uint64_t vobSectors) {
    if (!m.present) return;
    if (m.endAddress < 3 || (uint64_t(m.endAddress) + 1) % 4)
        f_.Warning("table.end-address", name, 0, "end address",
                   Num(m.endAddress) + " does not end on a whole entry", "4 + 4 x entries - 1");
    for (size_t i = 0; i < m.sectors.size() && !f_.Full(); ++i) {
        const int entry = int(i + 1);
        const bool falls = i > 0 && m.sectors[i] <= m.sectors[i - 1];
        const bool past = vobSectors && m.sectors[i] >= vobSectors;
        if (!falls && !past) continue;
        if (!f_.Wants(falls ? "vobu.order" : "vobu.outside-vobs", name)) continue;
        if (falls)
            f_.Error("vobu.order", name, entry, "sector",
                     Num(m.sectors[i]) + " does not rise above the entry before it",
                     "more than " + Num(m.sectors[i - 1]));
        else
            f_.Error("vobu.outside-vobs", name, entry, "sector",
                     Num(m.sectors[i]) + " lies past the VOB set", "below " + Num(vobSectors));
    }
}

}  // namespace check
}  // namespace kestro
