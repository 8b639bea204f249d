// Checks of each file as a whole: its identifier, its size against the end
// addresses of its management table, its BUP copy, where its tables lie,
// and the VOB files its sectors describe.
//
// A video manager on disc is VIDEO_TS.IFO (VMGI_EA + 1 sectors), the menu
// VOB file, then VIDEO_TS.BUP; VMG_EA is the last sector of all three. A
// title set is VTS_nn_0.IFO (VTSI_EA + 1 sectors), the menu VOB file, the
// title VOB files (VTS_nn_1.VOB up to VTS_nn_9.VOB, at most 1 GiB each),
// then the BUP; VTS_EA is the last sector of them all, and the start
// sectors of the two VOB sets count from the IFO's first sector.
#include <algorithm>

#include "check/checker.h"
#include "frame/detail.h"

namespace kestro {
namespace check {

namespace {

// A table of an IFO file and the bytes it claims from its start sector.
struct Extent {
    const char* name;
    const char* field;  // its start sector field in the management table
    uint32_t sector;
    uint64_t bytes;
    bool required;
};

std::string Printable(const std::vector<uint8_t>& bytes, size_t n) {
    std::string s;
    for (size_t i = 0; i < n && i < bytes.size(); ++i)
        s += bytes[i] >= 0x20 && bytes[i] < 0x7f ? char(bytes[i]) : '.';
    return s;
}

// A table's size from the end address at `at` of its header (0 when the
// table is absent or lies outside the file).
uint64_t SizeFromHeader(const std::vector<uint8_t>& file, uint32_t sector, size_t at) {
    if (sector == 0) return 0;
    ByteView v(file);
    return uint64_t(v.BE32(uint64_t(sector) * kSectorBytes + at)) + 1;
}

// The model's problems: tables cut short or lying outside the file.
// An IFO file is whole sectors, as many as its last-sector field
// (`field` of `table`) gives: fewer bytes cut a table off, more are unusual.
void CheckIfoSize(Findings& f, uint64_t size, uint64_t sectors, const char* table,
                  const char* field) {
    if (size % kSectorBytes)
        f.Warning("file.size", "", 0, "", Num(size) + " bytes, not whole sectors",
                  "a multiple of 2048 bytes");
    if (size == sectors * kSectorBytes) return;
    const std::string what =
        "gives " + Num(sectors) + " sectors, the file holds " + Num(size) + " bytes";
    const std::string expected = Num(sectors * kSectorBytes) + " bytes";
    if (size < sectors * kSectorBytes)
        f.Error("file.size", table, 0, field, what, expected);
    else
        f.Warning("file.size", table, 0, field, what, expected);
}

void ReportProblems(Findings& f, const std::vector<std::string>& problems) {
    for (const std::string& p : problems) {
        const size_t colon = p.find(": ");
        f.Error("table.cut-short", p.substr(0, colon), 0, "",
                colon == std::string::npos ? p : p.substr(colon + 2),
                "every entry inside the file");
    }
}

// Start sectors inside the IFO, extents within it, no two tables sharing bytes.
void CheckExtents(Findings& f, const char* mat, uint64_t matBytes, std::vector<Extent> tables,
                  uint64_t ifoSectors) {
    const uint64_t end = ifoSectors * kSectorBytes;
    for (const Extent& t : tables) {
        if (t.sector == 0) {
            if (t.required)
                f.Error("table.missing", mat, 0, t.field,
                        "0: the file has no " + std::string(t.name),
                        "the sector where " + std::string(t.name) + " starts");
            continue;
        }
        if (t.sector >= ifoSectors) {
            f.Error("table.outside", mat, 0, t.field,
                    "sector " + Num(t.sector) + " lies past the IFO's last sector " +
                        Num(ifoSectors - 1),
                    "a sector from 1 to " + Num(ifoSectors - 1));
            continue;
        }
        const uint64_t first = uint64_t(t.sector) * kSectorBytes;
        if (first + t.bytes > end)
            f.Error("table.outside", t.name, 0, "end address",
                    "the table runs to byte " + Num(first + t.bytes - 1) + " of the file",
                    "within the IFO's " + Num(end) + " bytes");
    }
    // The management table holds the first bytes of the file.
    tables.push_back({mat, "", 0, matBytes, false});
    for (size_t i = 0; i < tables.size(); ++i)
        for (size_t k = i + 1; k < tables.size(); ++k) {
            const Extent& a = tables[i];
            const Extent& b = tables[k];
            if ((a.sector == 0 && a.name != mat) || (b.sector == 0 && b.name != mat)) continue;
            if (a.sector >= ifoSectors || b.sector >= ifoSectors) continue;
            const uint64_t a0 = uint64_t(a.sector) * kSectorBytes,
                           a1 = a0 + std::max<uint64_t>(a.bytes, 1);
            const uint64_t b0 = uint64_t(b.sector) * kSectorBytes,
                           b1 = b0 + std::max<uint64_t>(b.bytes, 1);
            if (a0 < b1 && b0 < a1)
                f.Error("table.overlap", b.name == mat ? a.name : b.name, 0, "start sector",
                        "shares bytes " + Num(std::max(a0, b0)) + " to " +
                            Num(std::min(a1, b1) - 1) + " with " +
                            (b.name == mat ? b.name : a.name),
                        "tables that do not overlap");
        }
}

// One VOB set against the sectors the IFO gives it.
void CheckVobSet(Findings& f, const VobSet& set, const std::string& first, uint64_t claimed,
                 const char* mat, const char* field, bool titles) {
    if (!set.looked) return;
    const std::string saved = f.File();
    if (set.names.empty()) {
        if (claimed > 0) {
            f.SetFile(first);
            f.Error("vob.missing", "", 0, "", "the file is missing",
                    (titles ? "the first title VOB file of " : "a VOB file of ") + Num(claimed) +
                        (titles ? " sectors in all" : " sectors") + ", as " + saved + " " + mat +
                        " " + field + " gives");
        }
        f.SetFile(saved);
        return;
    }
    const std::string stem = first.substr(0, 7);
    for (size_t i = 0; i < set.names.size(); ++i) {
        f.SetFile(set.names[i]);
        if (titles && set.names[i] != stem + char('1' + i) + ".VOB")
            f.Error("vob.numbering", "", 0, "", "follows " + (i ? set.names[i - 1] : "no VOB file"),
                    "VOB files numbered from 1 without a gap");
        if (set.bytes[i] % kSectorBytes)
            f.Error("vob.size", "", 0, "", Num(set.bytes[i]) + " bytes, not whole sectors",
                    "a multiple of 2048 bytes");
        if (set.bytes[i] > kMaxVobBytes)
            f.Error("vob.size", "", 0, "", Num(set.bytes[i]) + " bytes",
                    "at most 1 GiB per VOB file");
    }
    f.SetFile(saved);
    const uint64_t sectors = set.Sectors();
    if (sectors != claimed)
        f.Error("vob.size", mat, 0, field,
                "gives " + Num(claimed) + " sectors of " + (titles ? "title" : "menu") +
                    " VOBs, the VOB files hold " + Num(sectors),
                "the sectors of " + first +
                    (titles && set.names.size() > 1 ? " and the files after it" : ""));
}

// What every IFO file is checked for first: its identifier (false when it is
// not its kind's, which ends the file's checks), then what its model found
// while reading and its size against the information end address.
bool CheckFileStart(Findings& f, const IfoImage& image, bool readable,
                    const std::vector<std::string>& problems, uint32_t infoEndSector, bool vmg) {
    const char* mat = vmg ? "VMGI_MAT" : "VTSI_MAT";
    if (!readable) {
        f.Error("file.identifier", mat, 0, vmg ? "VMG_ID" : "VTS_ID",
                "reads \"" + Printable(image.bytes, 12) + "\"",
                vmg ? "DVDVIDEO-VMG" : "DVDVIDEO-VTS");
        return false;
    }
    ReportProblems(f, problems);
    CheckIfoSize(f, image.bytes.size(), uint64_t(infoEndSector) + 1, mat,
                 vmg ? "VMGI_EA" : "VTSI_EA");
    return true;
}

}  // namespace

void Checker::CheckVmgFile(VmgData& vmg) {
    const disc::VideoManager& m = vmg.model;
    if (!CheckFileStart(f_, *vmg.image, vmg.readable, m.problems, m.vmgiEndSector, true)) return;
    const uint64_t sectors = uint64_t(m.vmgiEndSector) + 1;
    if (uint64_t(m.vmgEndSector) + 1 < 2 * sectors)
        f_.Error("file.end-address", "VMGI_MAT", 0, "VMG_EA",
                 "sector " + Num(m.vmgEndSector) + " ends the video manager inside its IFO and BUP",
                 "at least " + Num(2 * sectors - 1));
    if (m.titleSetCount == 0 || m.titleSetCount > kMaxTitleSets)
        f_.Error("limit.title-sets", "VMGI_MAT", 0, "VMG_NR_OF_TITLE_SETS",
                 Num(m.titleSetCount) + " title sets", Range(1, kMaxTitleSets));
    CheckBackup(*vmg.image, true);
    CheckVmgLayout(vmg);
    CheckVmgVobs(vmg);
    CheckVmgTables(vmg);
    CheckTitles(vmg);
    CheckTitleSetAttributes(vmg);
}

void Checker::CheckVtsFile(VtsData& vts) {
    const disc::TitleSet& m = vts.model;
    if (!CheckFileStart(f_, *vts.image, vts.readable, m.problems, m.vtsiEndSector, false)) return;
    CheckBackup(*vts.image, false);
    CheckVtsLayout(vts);
    CheckVtsVobs(vts);
    CheckVtsTables(vts);
    CheckParts(vts);
}

void Checker::CheckBackup(const IfoImage& image, bool videoManager) {
    if (!options_.companions) return;
    const std::string bup = image.name.substr(0, image.name.size() - 4) + ".BUP";
    if (!image.hasBackup) {
        const std::string saved = f_.File();
        f_.SetFile(bup);
        f_.Warning("file.backup-missing", "", 0, "", "the file is missing",
                   "a copy of " + image.name + " for players that cannot read it");
        f_.SetFile(saved);
        return;
    }
    if (image.backup == image.bytes) return;
    // Which tables differ: the management table's start sectors give them.
    std::vector<std::string> problemsIfo, problemsBup;
    std::vector<std::pair<const char*, uint32_t>> starts;
    if (videoManager) {
        disc::VideoManager a, b;
        disc::ReadVideoManager(image.bytes, a);
        const bool readable = disc::ReadVideoManager(image.backup, b);
        problemsIfo = a.problems;
        problemsBup = readable ? b.problems : std::vector<std::string>{"unreadable"};
        const auto& s = a.start;
        starts = {{"TT_SRPT", s.titles},           {"VMGM_PGCI_UT", s.menus},
                  {"PTL_MAIT", s.parental},        {"VTS_ATRT", s.titleSetAttributes},
                  {"TXTDT_MG", s.textData},        {"VMGM_C_ADT", s.menuCells},
                  {"VMGM_VOBU_ADMAP", s.menuVobus}};
    } else {
        disc::TitleSet a, b;
        disc::ReadTitleSet(image.bytes, a);
        const bool readable = disc::ReadTitleSet(image.backup, b);
        problemsIfo = a.problems;
        problemsBup = readable ? b.problems : std::vector<std::string>{"unreadable"};
        const auto& s = a.start;
        starts = {{"VTS_PTT_SRPT", s.parts},   {"VTS_PGCIT", s.titles},
                  {"VTSM_PGCI_UT", s.menus},   {"VTS_TMAPT", s.timeMaps},
                  {"VTSM_C_ADT", s.menuCells}, {"VTSM_VOBU_ADMAP", s.menuVobus},
                  {"VTS_C_ADT", s.titleCells}, {"VTS_VOBU_ADMAP", s.titleVobus}};
    }
    starts.push_back({videoManager ? "VMGI_MAT" : "VTSI_MAT", 0});
    std::sort(starts.begin(), starts.end(),
              [](const auto& x, const auto& y) { return x.second < y.second; });
    // Each table runs from its start sector to the next table's.
    std::vector<std::string> differ;
    const size_t n = std::max(image.bytes.size(), image.backup.size());
    for (size_t i = 0; i < starts.size(); ++i) {
        if (starts[i].second == 0 && i + 1 < starts.size() && starts[i + 1].second == 0) continue;
        const uint64_t from = uint64_t(starts[i].second) * kSectorBytes;
        const uint64_t to =
            i + 1 < starts.size() ? uint64_t(starts[i + 1].second) * kSectorBytes : n;
        for (uint64_t b = from; b < to && b < n; ++b) {
            const int x = b < image.bytes.size() ? image.bytes[b] : -1;
            const int y = b < image.backup.size() ? image.backup[b] : -1;
            if (x != y) {
                differ.push_back(starts[i].first);
                break;
            }
        }
    }
    std::string sound;
    if (problemsIfo.empty() && !problemsBup.empty())
        sound = "the IFO reads whole, the BUP does not";
    else if (!problemsIfo.empty() && problemsBup.empty())
        sound = "the BUP reads whole, the IFO does not";
    else if (problemsIfo.empty())
        sound = "both copies read whole";
    else
        sound = "neither copy reads whole";
    const std::string saved = f_.File();
    f_.SetFile(bup);
    if (image.backup.size() != image.bytes.size())
        f_.Warning("file.backup-differs", "", 0, "size",
                   Num(image.backup.size()) + " bytes, the IFO " + Num(image.bytes.size()),
                   "an identical copy; " + sound);
    for (const std::string& t : differ)
        f_.Warning("file.backup-differs", t, 0, "", "differs from the IFO's",
                   "an identical copy; " + sound);
    f_.SetFile(saved);
}

void Checker::CheckVmgLayout(const VmgData& vmg) {
    const disc::VideoManager& m = vmg.model;
    const auto& bytes = vmg.image->bytes;
    const auto& s = m.start;
    const uint64_t matBytes = std::max<uint64_t>(uint64_t(m.matEndByte) + 1, 1024);
    std::vector<Extent> tables = {
        {"TT_SRPT", "TT_SRPT_SA", s.titles, SizeFromHeader(bytes, s.titles, 4), true},
        {"VMGM_PGCI_UT", "VMGM_PGCI_UT_SA", s.menus,
         m.menus.present ? uint64_t(m.menus.endAddress) + 1 : 0, false},
        {"PTL_MAIT", "PTL_MAIT_SA", s.parental,
         m.parental.present ? uint64_t(m.parental.endAddress) + 1 : 0, false},
        {"VTS_ATRT", "VTS_ATRT_SA", s.titleSetAttributes,
         SizeFromHeader(bytes, s.titleSetAttributes, 4), true},
        {"TXTDT_MG", "TXTDT_MG_SA", s.textData, m.text.bytes.size(), false},
        {"VMGM_C_ADT", "VMGM_C_ADT_SA", s.menuCells,
         m.menuCells.present ? uint64_t(m.menuCells.endAddress) + 1 : 0, s.menuVobs != 0},
        {"VMGM_VOBU_ADMAP", "VMGM_VOBU_ADMAP_SA", s.menuVobus,
         m.menuVobus.present ? uint64_t(m.menuVobus.endAddress) + 1 : 0, s.menuVobs != 0},
    };
    CheckExtents(f_, "VMGI_MAT", matBytes, tables, uint64_t(m.vmgiEndSector) + 1);
    if (m.hasFirstPlay && m.firstPlayByte < 1024)
        f_.Error("table.overlap", "VMGI_MAT", 0, "FP_PGC_SA",
                 "byte " + Num(m.firstPlayByte) + " lies inside the management table's 1024 bytes",
                 "1024 or more");
}

void Checker::CheckVtsLayout(const VtsData& vts) {
    const disc::TitleSet& m = vts.model;
    const auto& bytes = vts.image->bytes;
    const auto& s = m.start;
    const uint64_t matBytes = std::max<uint64_t>(uint64_t(m.matEndByte) + 1, 1024);
    uint64_t tmapBytes = SizeFromHeader(bytes, s.timeMaps, 4);
    std::vector<Extent> tables = {
        {"VTS_PTT_SRPT", "VTS_PTT_SRPT_SA", s.parts, SizeFromHeader(bytes, s.parts, 4), true},
        {"VTS_PGCIT", "VTS_PGCIT_SA", s.titles, m.hasTitles ? uint64_t(m.titles.endAddress) + 1 : 0,
         true},
        {"VTSM_PGCI_UT", "VTSM_PGCI_UT_SA", s.menus,
         m.menus.present ? uint64_t(m.menus.endAddress) + 1 : 0, false},
        {"VTS_TMAPT", "VTS_TMAPTI_SA", s.timeMaps, tmapBytes, false},
        {"VTSM_C_ADT", "VTSM_C_ADT_SA", s.menuCells,
         m.menuCells.present ? uint64_t(m.menuCells.endAddress) + 1 : 0, false},
        {"VTSM_VOBU_ADMAP", "VTSM_VOBU_ADMAP_SA", s.menuVobus,
         m.menuVobus.present ? uint64_t(m.menuVobus.endAddress) + 1 : 0, false},
        {"VTS_C_ADT", "VTS_C_ADT_SA", s.titleCells,
         m.titleCells.present ? uint64_t(m.titleCells.endAddress) + 1 : 0, true},
        {"VTS_VOBU_ADMAP", "VTS_VOBU_ADMAP_SA", s.titleVobus,
         m.titleVobus.present ? uint64_t(m.titleVobus.endAddress) + 1 : 0, true},
    };
    CheckExtents(f_, "VTSI_MAT", matBytes, tables, uint64_t(m.vtsiEndSector) + 1);
}

// The menu VOB sectors the video manager's end addresses give.
static uint64_t VmgMenuSectors(const disc::VideoManager& m) {
    const uint64_t ifo = uint64_t(m.vmgiEndSector) + 1, all = uint64_t(m.vmgEndSector) + 1;
    return all > 2 * ifo ? all - 2 * ifo : 0;
}

void Checker::CheckVmgVobs(const VmgData& vmg) {
    const disc::VideoManager& m = vmg.model;
    const uint64_t ifo = uint64_t(m.vmgiEndSector) + 1;
    const uint64_t menus = VmgMenuSectors(m);
    if (m.start.menuVobs != 0 && m.start.menuVobs != ifo)
        f_.Error("file.vob-start", "VMGI_MAT", 0, "VMGM_VOBS_SA", "sector " + Num(m.start.menuVobs),
                 Num(ifo) + ", the sector after the IFO");
    if (m.start.menuVobs == 0) {
        if (menus > 0)
            f_.Warning("file.end-address", "VMGI_MAT", 0, "VMG_EA",
                       "leaves " + Num(menus) +
                           " sectors between the IFO and the BUP, but the "
                           "video manager has no menu VOBs",
                       Num(2 * ifo - 1));
        if (!vmg.menuVobs.names.empty() && vmg.menuVobs.Sectors() > 0)
            f_.Warning("vob.unused", "VMGI_MAT", 0, "VMGM_VOBS_SA",
                       "0, but VIDEO_TS.VOB holds " + Num(vmg.menuVobs.Sectors()) + " sectors",
                       "the start sector of the menu VOBs");
        return;
    }
    CheckVobSet(f_, vmg.menuVobs, "VIDEO_TS.VOB", menus, "VMGI_MAT", "VMG_EA", false);
}

void Checker::CheckVtsVobs(const VtsData& vts) {
    const disc::TitleSet& m = vts.model;
    const uint64_t ifo = uint64_t(m.vtsiEndSector) + 1, all = uint64_t(m.vtsEndSector) + 1;
    const auto& s = m.start;
    if (s.menuVobs != 0 && s.menuVobs != ifo)
        f_.Error("file.vob-start", "VTSI_MAT", 0, "VTSM_VOBS_SA", "sector " + Num(s.menuVobs),
                 Num(ifo) + ", the sector after the IFO");
    if (s.titleVobs < ifo) {
        f_.Error("file.vob-start", "VTSI_MAT", 0, "VTSTT_VOBS_SA",
                 "sector " + Num(s.titleVobs) + " lies inside the IFO",
                 "at least " + Num(ifo) + ", the sector after the IFO and the menu VOBs");
        return;
    }
    const uint64_t menus = s.titleVobs - ifo;
    if (all < uint64_t(s.titleVobs) + ifo + 1) {
        f_.Error("file.end-address", "VTSI_MAT", 0, "VTS_EA",
                 "sector " + Num(m.vtsEndSector) + " leaves no title VOBs before the BUP",
                 "more than " + Num(uint64_t(s.titleVobs) + ifo - 1));
        return;
    }
    const uint64_t titles = all - s.titleVobs - ifo;
    const std::string stem = vts.file.substr(0, 7);
    if (s.menuVobs == 0 && menus > 0)
        f_.Warning("file.vob-start", "VTSI_MAT", 0, "VTSTT_VOBS_SA",
                   "leaves " + Num(menus) +
                       " sectors after the IFO, but the title set has no "
                       "menu VOBs (VTSM_VOBS_SA 0)",
                   Num(ifo));
    if (s.menuVobs != 0 || !vts.menuVobs.names.empty())
        CheckVobSet(f_, vts.menuVobs, stem + "0.VOB", menus, "VTSI_MAT", "VTSTT_VOBS_SA", false);
    CheckVobSet(f_, vts.titleVobs, stem + "1.VOB", titles, "VTSI_MAT", "VTS_EA", true);
}

}  // namespace check
}  // namespace kestro
