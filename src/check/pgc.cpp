// Checks of every PGC (First Play, menu and title PGCs): its program map,
// its cells against the cell address table, the VOBU map and the VOB set,
// its links to other PGCs, its stream control words, and the targets of
// its navigation commands.
#include <algorithm>
#include <set>

#include "check/checker.h"

namespace kestro {
namespace check {

namespace {

std::string Cell(size_t k) { return "C_PBI " + Num(k + 1); }

size_t MostPgcs(const disc::MenuTable& menus) {
    size_t n = 0;
    for (const auto& u : menus.units) n = std::max(n, u.table.pgcs.size());
    return n;
}

// Registers a command names: 0x00-0x0f general registers, 0x80-0x97
// system parameters.
bool RegisterExists(uint8_t r) { return r & 0x80 ? (r & 0x7f) < 24 : r < 16; }

}  // namespace

const std::vector<Checker::CellRange>& Checker::CellIndex(const disc::CellAddressTable& t) {
    auto it = cellIndex_.find(&t);
    if (it != cellIndex_.end()) return it->second;
    // One range per VOB and cell: an interleaved cell has an entry per unit.
    std::vector<CellRange> all;
    all.reserve(t.cells.size());
    for (const auto& a : t.cells)
        all.push_back({uint32_t(a.vobId) << 8 | a.cellId, a.firstSector, a.lastSector});
    std::sort(all.begin(), all.end(),
              [](const CellRange& x, const CellRange& y) { return x.key < y.key; });
    std::vector<CellRange> merged;
    for (const CellRange& r : all) {
        if (!merged.empty() && merged.back().key == r.key) {
            merged.back().first = std::min(merged.back().first, r.first);
            merged.back().last = std::max(merged.back().last, r.last);
        } else {
            merged.push_back(r);
        }
    }
    return cellIndex_[&t] = std::move(merged);
}

bool Checker::VobusSorted(const disc::VobuMap& m) {
    auto it = vobusSorted_.find(&m);
    if (it != vobusSorted_.end()) return it->second;
    return vobusSorted_[&m] = std::is_sorted(m.sectors.begin(), m.sectors.end());
}

// Does any language unit of `menus` have an entry PGC of menu type `type`?
bool Checker::HasMenu(const disc::MenuTable& menus, int type) {
    auto it = menuTypes_.find(&menus);
    if (it == menuTypes_.end()) {
        uint32_t types = 0;
        for (const auto& u : menus.units)
            for (const auto& p : u.table.pgcs)
                if ((p.category >> 24) & 0x80) types |= 1u << ((p.category >> 24) & 0x0f);
        it = menuTypes_.emplace(&menus, types).first;
    }
    return type >= 0 && type < 16 && (it->second >> type) & 1;
}

size_t Checker::PartsOfPgc(const VtsData& vts, unsigned pgc) {
    auto it = partsByPgc_.find(&vts);
    if (it == partsByPgc_.end()) {
        std::vector<size_t> most(vts.model.titles.pgcs.size() + 1, 0);
        for (const auto& t : vts.model.parts)
            for (const auto& p : t)
                if (p.pgc < most.size()) most[p.pgc] = std::max(most[p.pgc], t.size());
        it = partsByPgc_.emplace(&vts, std::move(most)).first;
    }
    return pgc < it->second.size() ? it->second[pgc] : 0;
}

void Checker::CheckPgcTable(const disc::PgcTable& t, const PgcPlace& place) {
    const std::string& name = place.table_name;
    const uint64_t pointers = 8 + 8 * uint64_t(t.count);
    if (uint64_t(t.endAddress) + 1 < pointers)
        f_.Error("table.end-address", name, 0, "end address",
                 Num(t.endAddress) + " cuts off the PGC search pointers",
                 "at least " + Num(pointers - 1));
    std::set<uint32_t> seen;  // PGCs that share their bytes are checked once
    for (size_t i = 0; i < t.pgcs.size() && !f_.Full(); ++i) {
        const disc::PgcSearchPointer& s = t.pgcs[i];
        if (s.startByte < pointers || s.startByte > t.endAddress) {
            f_.Error("pgc.start", name, int(i + 1), "PGC start byte",
                     Num(s.startByte) + " lies outside the table's PGC area",
                     Range(pointers, t.endAddress));
            continue;
        }
        if (!seen.insert(s.startByte).second) continue;
        PgcPlace p = place;
        p.entry = int(i + 1);
        CheckPgc(s.pgc, p);
    }
}

void Checker::CheckPgc(const disc::Pgc& pgc, const PgcPlace& place) {
    const std::string& T = place.table_name;
    const int E = place.entry;
    const size_t cells = pgc.cellCount, programs = pgc.programCount;

    if (programs > size_t(kMaxPrograms))
        f_.Error("limit.programs", T, E, "number of programs", Num(programs),
                 Range(0, kMaxPrograms));
    if (programs > cells)
        f_.Error("pgc.programs", T, E, "number of programs",
                 Num(programs) + " programs for " + Num(cells) + " cells", "at most one per cell");
    if (cells > 0 && programs == 0)
        f_.Error("pgc.programs", T, E, "number of programs",
                 "0 programs for " + Num(cells) + " cells", "at least 1");
    if (programs > 0 && pgc.programMapAt == 0)
        f_.Error("pgc.offsets", T, E, "PGC_PGMAP_SA", "0", "the program map's byte offset");
    if (cells > 0 && (pgc.cellPlaybackAt == 0 || pgc.cellPositionAt == 0))
        f_.Error("pgc.offsets", T, E, pgc.cellPlaybackAt == 0 ? "C_PBIT_SA" : "C_POSIT_SA", "0",
                 "the cell table's byte offset");
    const size_t commands =
        pgc.preCommands.size() + pgc.postCommands.size() + pgc.cellCommands.size();
    if (commands > size_t(kMaxCommands))
        f_.Error("limit.commands", T, E, "PGC_CMDT", Num(commands) + " commands",
                 "at most " + Num(kMaxCommands));

    // Program map: program 1 starts at cell 1, each next program later, all within the cells.
    for (size_t k = 0; k < pgc.programEntryCells.size(); ++k) {
        const unsigned cell = pgc.programEntryCells[k];
        const std::string field = "program " + Num(k + 1) + " entry cell";
        if (k == 0 && cell != 1)
            f_.Error("pgc.program-map", T, E, field, "cell " + Num(cell), "cell 1");
        else if (k > 0 && cell <= pgc.programEntryCells[k - 1])
            f_.Error("pgc.program-map", T, E, field,
                     "cell " + Num(cell) + " does not follow program " + Num(k) + "'s cell " +
                         Num(pgc.programEntryCells[k - 1]),
                     "a later cell than the program before");
        else if (cell > cells)
            f_.Error("pgc.program-map", T, E, field, "cell " + Num(cell) + " does not exist",
                     Range(1, cells));
    }

    // Links to other PGCs of the same table.
    if (place.table) {
        const size_t n = place.table->pgcs.size();
        // Next and previous PGC drive playback and the Next/Previous keys; the
        // go-up PGC only the Return key, which players ignore when it leads nowhere.
        const struct {
            uint16_t pgc;
            const char* field;
            Severity severity;
        } links[] = {{pgc.nextPgc, "next PGC", Severity::Error},
                     {pgc.previousPgc, "previous PGC", Severity::Error},
                     {pgc.goUpPgc, "go-up PGC", Severity::Warning}};
        for (const auto& l : links)
            if (l.pgc > n)
                f_.Add(l.severity, "pgc.link", T, E, l.field,
                       "PGC " + Num(l.pgc) + " does not exist", "0 or " + Range(1, n));
    }

    // Stream control: a stream marked available must be one the attributes declare.
    for (size_t i = 0; i < pgc.audioControl.size(); ++i)
        if ((pgc.audioControl[i] & 0x8000) && int(i) >= place.audioStreams)
            f_.Error(
                "pgc.audio-stream", T, E, "PGC_AST_CTL " + Num(i),
                "marks audio stream " + Num(i) + " available, the attributes declare " +
                    Num(place.audioStreams),
                place.audioStreams ? "streams 0 to " + Num(place.audioStreams - 1) : "no stream");
    for (size_t i = 0; i < pgc.subpictureControl.size(); ++i)
        if ((pgc.subpictureControl[i] & 0x80000000u) && int(i) >= place.subpictureStreams)
            f_.Error("pgc.subpicture-stream", T, E, "PGC_SPST_CTL " + Num(i),
                     "marks sub-picture stream " + Num(i) + " available, the attributes declare " +
                         Num(place.subpictureStreams),
                     place.subpictureStreams ? "streams 0 to " + Num(place.subpictureStreams - 1)
                                             : "no stream");

    // Cells: sectors in order, inside the VOB set, at VOBU starts, and
    // within the cell address table's entries for their VOB and cell.
    static const std::vector<uint32_t> kNone;
    const auto& vobus = place.vobus ? place.vobus->sectors : kNone;
    const bool sortedVobus = !place.vobus || VobusSorted(*place.vobus);
    for (size_t k = 0; k < pgc.cellPlayback.size() && !f_.Full(); ++k) {
        const disc::CellPlayback& c = pgc.cellPlayback[k];
        const unsigned command = c.category & 0xff;
        if (command > pgc.cellCommands.size())
            f_.Error("pgc.cell-command", T, E, Cell(k) + " cell command",
                     "command " + Num(command) + " does not exist",
                     "0 or " + Range(1, pgc.cellCommands.size()));
        if (c.firstVobuStart > c.lastVobuStart || c.lastVobuStart > c.lastVobuEnd) {
            f_.Error("cell.range", T, E, Cell(k) + " sectors",
                     "first VOBU " + Num(c.firstVobuStart) + ", last VOBU " + Num(c.lastVobuStart) +
                         " to " + Num(c.lastVobuEnd) + " do not rise",
                     "first VOBU start <= last VOBU start <= last VOBU end");
            continue;
        }
        if (place.vobSectors && c.lastVobuEnd >= place.vobSectors) {
            f_.Error("cell.outside-vobs", T, E, Cell(k) + " last VOBU end sector",
                     Num(c.lastVobuEnd) + " lies past the VOB set",
                     "below " + Num(place.vobSectors));
            continue;
        }
        if (sortedVobus && !vobus.empty()) {
            if (!std::binary_search(vobus.begin(), vobus.end(), c.firstVobuStart))
                f_.Error("cell.vobu", T, E, Cell(k) + " first VOBU start sector",
                         Num(c.firstVobuStart) + " is not the start of a VOBU",
                         "a sector the VOBU map lists");
            else if (!std::binary_search(vobus.begin(), vobus.end(), c.lastVobuStart))
                f_.Error("cell.vobu", T, E, Cell(k) + " last VOBU start sector",
                         Num(c.lastVobuStart) + " is not the start of a VOBU",
                         "a sector the VOBU map lists");
        }
        if (k >= pgc.cellPositions.size() || !place.cells) continue;
        const disc::CellPosition& pos = pgc.cellPositions[k];
        const auto& index = CellIndex(*place.cells);
        const uint32_t key = uint32_t(pos.vobId) << 8 | pos.cellId;
        auto at = std::lower_bound(index.begin(), index.end(), key,
                                   [](const CellRange& r, uint32_t k) { return r.key < k; });
        const bool listed = at != index.end() && at->key == key;
        const uint32_t lo = listed ? at->first : 0, hi = listed ? at->last : 0;
        const std::string id = "VOB " + Num(pos.vobId) + " cell " + Num(pos.cellId);
        if (!listed)
            f_.Error("cell.position-missing", T, E, "C_POSI " + Num(k + 1),
                     id + " is not in the cell address table", "a VOB and cell the table lists");
        // An interleaved cell (bit 2 of its category byte) runs through the
        // units of the other angles; authoring tools list only its first
        // unit in the cell address table, so only its start is compared.
        else if (c.firstVobuStart < lo || c.firstVobuStart > hi ||
                 (!((c.category >> 24) & 0x04) && c.lastVobuEnd > hi))
            f_.Error("cell.address-mismatch", T, E, Cell(k) + " sectors",
                     Num(c.firstVobuStart) + " to " + Num(c.lastVobuEnd) + " reach outside " + id +
                         "'s sectors",
                     Range(lo, hi));
    }
    CheckCommands(pgc, place);
}

void Checker::CheckCommands(const disc::Pgc& pgc, const PgcPlace& place) {
    const struct {
        const std::vector<disc::Command>* list;
        const char* name;
    } lists[] = {
        {&pgc.preCommands, "pre"}, {&pgc.postCommands, "post"}, {&pgc.cellCommands, "cell"}};
    for (const auto& l : lists)
        for (size_t i = 0; i < l.list->size() && !f_.Full(); ++i)
            CheckCommand((*l.list)[i], pgc, place, l.name, int(i + 1), int(l.list->size()));
}

// A navigation command is eight bytes. Bits 7-5 of byte 0 give its type:
// 0 special (no operation, goto line, break, temporary parental level), 1
// link (bit 4 clear) or jump/call (bit 4 set), 2 set system parameter, 3
// set general register, 4 to 6 set-and-link forms. Bits 6-4 of byte 1 hold
// a comparison and its low nibble the link or jump operation. A link
// names a PGC, part of title, program or cell of the current domain and
// optionally a highlighted button (bits 7-2 of byte 6); a jump names a
// title, a part of title, a menu or a video manager PGC.
void Checker::CheckCommand(const disc::Command& c, const disc::Pgc& pgc, const PgcPlace& place,
                           const char* list, int line, int lines) {
    const std::string& T = place.table_name;
    const int E = place.entry;
    // Messages are built only for a command that has a finding.
    auto missing = [&](const char* id, const std::string& what, const std::string& expected) {
        if (!f_.Wants(id, T)) return;
        std::string hex;
        for (uint8_t b : c) hex += Hex(b, 2);
        f_.Error(id, T, E, std::string(list) + " command " + Num(line), hex + ": " + what,
                 expected);
    };
    auto reg = [&](uint8_t r) {
        if (!RegisterExists(r))
            missing("command.register", "register " + Hex(r, 2) + " does not exist",
                    "general register 0 to 15 or system parameter 0 to 23");
    };
    const int type = c[0] >> 5;
    const int compare = (c[1] >> 4) & 7;
    const bool immediate = c[1] & 0x80;
    const int op = c[1] & 0x0f;

    // The link part shared by link commands and the set-and-link forms.
    auto link = [&](int linkOp) {
        const int button = c[6] >> 2;
        switch (linkOp) {
        case 4: {
            const unsigned n = ((c[6] & 0x7f) << 8) | c[7];
            if (place.table && (n == 0 || n > place.table->pgcs.size()))
                missing("command.pgc", "links to PGC " + Num(n) + ", which does not exist",
                        Range(1, place.table->pgcs.size()));
            return;
        }
        case 5: {
            const unsigned n = ((c[6] & 0x03) << 8) | c[7];
            if (place.domain == Domain::Title && place.vts) {
                // The titles whose parts name this PGC give how many parts there are.
                const size_t most = PartsOfPgc(*place.vts, unsigned(E));
                if (most && (n == 0 || n > most))
                    missing("command.part",
                            "links to part of title " + Num(n) + ", which does not exist",
                            Range(1, most));
            }
            break;
        }
        case 6:
            if ((c[7] & 0x7f) == 0 || (c[7] & 0x7f) > pgc.programCount)
                missing("command.program",
                        "links to program " + Num(c[7] & 0x7f) + ", which does not exist",
                        Range(1, pgc.programCount));
            break;
        case 7:
            if (c[7] == 0 || c[7] > pgc.cellCount)
                missing("command.cell", "links to cell " + Num(c[7]) + ", which does not exist",
                        Range(1, pgc.cellCount));
            break;
        default: return;
        }
        if (button > kMaxButtons)
            missing("command.button", "highlights button " + Num(button), "0 or 1 to 36");
    };

    if (type == 0) {
        if (compare) {
            reg(c[3]);
            if (!immediate) reg(c[5]);
        }
        if ((op == 1 || op == 3) && (c[7] == 0 || c[7] > lines))
            missing("command.line", "goes to line " + Num(c[7]) + ", which does not exist",
                    Range(1, lines));
        return;
    }
    if (type == 1 && !(c[0] & 0x10)) {
        if (compare) {
            reg(c[3]);
            if (!immediate) reg(c[5]);
        }
        link(op);
        return;
    }
    if (type == 2 || type == 3) {
        if (type == 3 && !(c[0] & 0x10) && (c[0] & 0x0f)) reg(c[5]);
        if (!compare) link(op);
        return;
    }
    if (type != 1) return;

    // Jumps and calls.
    if (compare) {
        reg(c[6]);
        reg(c[7]);
    }
    const VtsData* here = place.vts;
    const int titles = DiscTitles();
    switch (op) {
    case 2: {
        const int ttn = c[5] & 0x7f;
        if (hasVmg_ && (ttn == 0 || ttn > titles))
            missing("command.title", "jumps to title " + Num(ttn) + ", which does not exist",
                    Range(1, titles));
        break;
    }
    case 3:
    case 5: {
        const int ttn = c[5] & 0x7f;
        if (!here) break;
        const auto& parts = here->model.parts;
        if (ttn == 0 || size_t(ttn) > parts.size()) {
            missing("command.title",
                    "jumps to title " + Num(ttn) + " of this title set, which does not exist",
                    Range(1, parts.size()));
        } else if (op == 5) {
            const unsigned ptt = ((c[2] & 0x03) << 8) | c[3];
            if (ptt == 0 || ptt > parts[size_t(ttn - 1)].size())
                missing("command.part",
                        "jumps to part " + Num(ptt) + " of title " + Num(ttn) +
                            ", which does not exist",
                        Range(1, parts[size_t(ttn - 1)].size()));
        }
        break;
    }
    case 6:
    case 8: {
        const int domain = c[5] >> 6, menu = c[5] & 0x0f;
        const char* verb = op == 6 ? "jumps" : "calls";
        if (domain == 0) {
            if (hasVmg_ && vmg_.readable && !vmg_.model.hasFirstPlay)
                missing("command.menu", std::string(verb) + " to First Play, which the disc lacks",
                        "a First Play PGC");
        } else if (domain == 1) {
            if (op == 6 && menu != 2)
                missing("command.menu", "jumps to video manager menu " + Num(menu),
                        "menu 2, the title menu");
            else if (hasVmg_ && vmg_.readable && !HasMenu(vmg_.model.menus, 2))
                missing("command.menu",
                        std::string(verb) + " to the title menu, which the video manager lacks",
                        "an entry PGC of menu type 2");
        } else if (domain == 2) {
            const VtsData* target = here;
            std::string where = "this title set";
            if (op == 6) {
                // The title set and its title number (within the set) whose menus to enter.
                const int vtsn = c[4] & 0x7f, ttn = c[3] & 0x7f;
                where = "title set " + Num(vtsn);
                const int sets = hasVmg_ && vmg_.readable ? vmg_.model.titleSetCount : 0;
                if (hasVmg_ && (vtsn == 0 || vtsn > sets)) {
                    missing("command.title-set",
                            "jumps to title set " + Num(vtsn) + ", which does not exist",
                            Range(1, sets));
                    break;
                }
                target = TitleSet(vtsn);
                if (target && (ttn == 0 || size_t(ttn) > target->model.parts.size())) {
                    missing(
                        "command.title",
                        "jumps to title " + Num(ttn) + " of " + where + ", which does not exist",
                        Range(1, target->model.parts.size()));
                    break;
                }
            }
            if (menu < 3 || menu > 7)
                missing("command.menu", std::string(verb) + " to title set menu " + Num(menu),
                        "3 to 7 (root, sub-picture, audio, angle, part of title)");
            else if (target && !HasMenu(target->model.menus, menu))
                missing("command.menu",
                        std::string(verb) + " to menu " + Num(menu) + " of " + where +
                            ", which has no such menu",
                        "an entry PGC of menu type " + Num(menu));
        } else {
            const unsigned n = ((c[2] & 0x7f) << 8) | c[3];
            const size_t most = hasVmg_ && vmg_.readable ? MostPgcs(vmg_.model.menus) : 0;
            if (hasVmg_ && vmg_.readable && (n == 0 || n > most))
                missing("command.pgc",
                        std::string(verb) + " to video manager PGC " + Num(n) +
                            ", which does not exist",
                        Range(1, most));
        }
        if (op == 8 && c[4] > pgc.cellCount && place.domain == Domain::Title)
            missing("command.cell", "resumes at cell " + Num(c[4]) + ", which does not exist",
                    "0 or " + Range(1, pgc.cellCount));
        break;
    }
    default: break;
    }
}

}  // namespace check
}  // namespace kestro
