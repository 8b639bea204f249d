// Lossless disassembly and assembly: the table classes do the work by their
// own rules, and this module restores what those rules drop.
//
// On the way to source, the original's values that the source would not
// bring back are added to it: cell and VOBU entries beyond what the tables'
// Disasm writes, in the tables' own key patterns; and, in sections the
// library never reads, the bytes of the management tables and title set
// attribute records that no statement carries, the parental levels and the
// text data. A section "lossless" marks a source written so.
//
// On the way back, the table classes assemble the file; then the module
// reads it, takes the true values from the statements that hold them (title
// numbers, parental ID fields, menu attributes), applies its own sections,
// lays out again the tables whose size changed or that the library leaves
// out, and writes the final bytes with checked writes.
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

#include "disc/driver.h"
#include "frame/detail.h"
#include "kestro/frame.h"
#include "kestro/ini.h"
#include "kestro/tables.h"

namespace kestro {
namespace disc {

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr size_t kSectorBytes = 2048;
constexpr const char* kMarkerSection = "lossless";
constexpr const char* kVmgBytesSection = "lossless_vmgi_mat";
constexpr const char* kVtsBytesSection = "lossless_vtsi_mat";
constexpr const char* kAtrtBytesSection = "lossless_vts_atrt";
constexpr const char* kParentalSection = "parental_levels";
constexpr const char* kTextSection = "text_data";
// Longest hexadecimal run in one statement (the store reads 255 characters).
constexpr size_t kRunBytes = 64;

// ---- Files -----------------------------------------------------------------------------

bool ReadFile(const std::string& path, Bytes& out, std::string& error) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    out.clear();
    uint8_t buf[1 << 16];
    for (;;) {
        const ssize_t got = ::read(fd, buf, sizeof buf);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            error = path + ": " + std::strerror(errno);
            ::close(fd);
            return false;
        }
        if (got == 0) break;
        out.insert(out.end(), buf, buf + got);
    }
    ::close(fd);
    return true;
}

// Replaces the content of `path` with `bytes`: every write checked, the file
// synced and closed with its result checked.
bool WriteFileChecked(const std::string& path, const Bytes& bytes, std::string& error) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    auto fail = [&](int fdToClose) {
        error = path + ": " + std::strerror(errno);
        if (fdToClose >= 0) ::close(fdToClose);
        return false;
    };
    if (fd < 0) return fail(-1);
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t put = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) {
            if (put == 0) errno = EIO;
            return fail(fd);
        }
        done += size_t(put);
    }
    if (::fsync(fd) != 0) return fail(fd);
    if (::close(fd) != 0) return fail(-1);
    return true;
}

// ---- Statements ---------------------------------------------------------------------------

std::string Key(const char* fmt, int a, int b = 0) {
    char k[96];
    Format(k, sizeof k, fmt, a, b);
    return k;
}

bool Has(const std::string& ini, const char* section, const std::string& key) {
    return Statement(ini, section, key.c_str())[0] != '$';
}

void Put(const std::string& ini, const char* section, const std::string& key,
         const std::string& value) {
    INIWritePrivateProfileString(section, key.c_str(), value.c_str(), ini.c_str());
}

std::string Hex(const uint8_t* p, size_t n) {
    static const char digits[] = "0123456789abcdef";
    std::string s = "x";
    for (size_t i = 0; i < n; ++i) {
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
    return s;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Bytes written as hexadecimal digit pairs, in groups separated by blanks or
// commas, each group with an optional x in front; false on anything else.
bool ParseHex(const std::string& text, Bytes& out) {
    out.clear();
    for (size_t i = 0; i < text.size();) {
        if (text[i] == ' ' || text[i] == ',') {
            ++i;
            if (i < text.size() && (text[i] == 'x' || text[i] == 'X')) ++i;
            continue;
        }
        if (i == 0 && (text[i] == 'x' || text[i] == 'X')) {
            ++i;
            continue;
        }
        if (i + 1 >= text.size()) return false;
        const int hi = HexDigit(text[i]), lo = HexDigit(text[i + 1]);
        if (hi < 0 || lo < 0) return false;
        out.push_back(uint8_t(hi << 4 | lo));
        i += 2;
    }
    return true;
}

// Bytes as text a person can read and edit: printable characters as they
// are, a backslash doubled, every other byte (and a blank at either end,
// which the store would trim, or a $ in front) as \xNN.
std::string Escape(const uint8_t* p, size_t n) {
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        const uint8_t c = p[i];
        // A value that starts with $ reads as a missing statement.
        const bool blankAtEnd = (c == ' ' && (i == 0 || i + 1 == n)) || (c == '$' && i == 0);
        if (c == '\\')
            s += "\\\\";
        else if (c >= 0x20 && c < 0x7f && !blankAtEnd)
            s += char(c);
        else
            s += std::string("\\x") + digits[c >> 4] + digits[c & 15];
    }
    return s;
}

bool Unescape(const std::string& text, Bytes& out) {
    out.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out.push_back(uint8_t(text[i]));
        } else if (i + 1 < text.size() && text[i + 1] == '\\') {
            out.push_back('\\');
            ++i;
        } else if (i + 3 < text.size() && text[i + 1] == 'x' && HexDigit(text[i + 2]) >= 0 &&
                   HexDigit(text[i + 3]) >= 0) {
            out.push_back(uint8_t(HexDigit(text[i + 2]) << 4 | HexDigit(text[i + 3])));
            i += 3;
        } else {
            return false;
        }
    }
    return true;
}

bool StatementHex(const std::string& ini, const char* section, const std::string& key, size_t n,
                  uint8_t* out) {
    Bytes b;
    const std::string v = Statement(ini, section, key.c_str());
    if (v[0] == '$' || !ParseHex(v, b) || b.size() != n) return false;
    std::memcpy(out, b.data(), n);
    return true;
}

bool StatementInt(const std::string& ini, const char* section, const std::string& key,
                  long long& out) {
    const std::string v = Statement(ini, section, key.c_str());
    if (v[0] == '$') return false;
    char* end = nullptr;
    out = std::strtoll(v.c_str(), &end, 10);
    return end != v.c_str();
}

// ---- Bytes no statement carries -----------------------------------------------------------

struct Range {
    size_t from, to;  // inclusive
};

using Carried = std::vector<bool>;

Carried CarriedBy(size_t size, std::initializer_list<Range> ranges) {
    Carried c(size, false);
    for (const auto& r : ranges)
        for (size_t i = r.from; i <= r.to && i < size; ++i) c[i] = true;
    return c;
}

void Carry(Carried& c, size_t from, size_t n) {
    for (size_t i = from; i < from + n && i < c.size(); ++i) c[i] = true;
}

// Writes the runs of bytes that are not carried and not zero as statements
// "byte<offset>" (offsets in decimal, runs of at most kRunBytes).
void WriteUncarried(const std::string& ini, const char* section, const std::string& prefix,
                    const uint8_t* bytes, const Carried& carried) {
    for (size_t i = 0; i < carried.size();) {
        if (carried[i] || bytes[i] == 0) {
            ++i;
            continue;
        }
        size_t j = i;
        while (j < carried.size() && !carried[j] && j - i < kRunBytes) ++j;
        while (j > i && bytes[j - 1] == 0) --j;
        Put(ini, section, prefix + Key("byte%04d", int(i)), Hex(bytes + i, j - i));
        i = j;
    }
}

// Applies the "byte<offset>" statements of `prefix` to `bytes` (size n), each
// byte only where the table classes wrote zero: a value a person gave a
// statement of the library wins.
void ApplyUncarried(const std::string& ini, const char* section, const std::string& prefix,
                    uint8_t* bytes, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        const std::string key = prefix + Key("byte%04d", int(i));
        const std::string v = Statement(ini, section, key.c_str());
        if (v[0] == '$') continue;
        Bytes run;
        if (!ParseHex(v, run)) continue;
        for (size_t k = 0; k < run.size() && i + k < n; ++k)
            if (bytes[i + k] == 0) bytes[i + k] = run[k];
    }
}

// ---- Tables of the file as laid out ----------------------------------------------------------

// A table slot of the management table: the field holding its start sector
// and its name.
struct Slot {
    size_t field;
    const char* name;
};

// The library's layout order, with the tables it never writes at the places
// the format gives them.
const Slot kVmgLayout[] = {
    {196, "TT_SRPT"},  {200, "VMGM_PGCI_UT"}, {204, "PTL_MAIT"},        {208, "VTS_ATRT"},
    {212, "TXTDT_MG"}, {216, "VMGM_C_ADT"},   {220, "VMGM_VOBU_ADMAP"},
};
const Slot kVtsLayout[] = {
    {200, "VTS_PTT_SRPT"}, {204, "VTS_PGCIT"},       {208, "VTSM_PGCI_UT"}, {212, "VTS_TMAPT"},
    {216, "VTSM_C_ADT"},   {220, "VTSM_VOBU_ADMAP"}, {224, "VTS_C_ADT"},    {228, "VTS_VOBU_ADMAP"},
};

// An IFO file taken apart into its management table (with whatever lies
// before the first table) and one block of whole sectors per table.
struct LaidOut {
    Bytes head;
    std::map<size_t, Bytes> tables;  // by start sector field
    uint32_t sectors = 0;            // of the whole file
};

template <size_t N>
LaidOut TakeApart(const Bytes& file, const Slot (&layout)[N]) {
    LaidOut l;
    l.sectors = uint32_t(file.size() / kSectorBytes);
    std::vector<std::pair<uint32_t, size_t>> starts;
    for (const auto& s : layout) {
        const uint32_t sa = GetBE32(file.data() + s.field);
        if (sa != 0 && sa < l.sectors) starts.push_back({sa, s.field});
    }
    std::sort(starts.begin(), starts.end());
    const uint32_t first = starts.empty() ? l.sectors : starts.front().first;
    l.head.assign(file.begin(), file.begin() + size_t(first) * kSectorBytes);
    for (size_t i = 0; i < starts.size(); ++i) {
        const uint32_t end = i + 1 < starts.size() ? starts[i + 1].first : l.sectors;
        l.tables[starts[i].second].assign(file.begin() + size_t(starts[i].first) * kSectorBytes,
                                          file.begin() + size_t(end) * kSectorBytes);
    }
    return l;
}

void PadToSectors(Bytes& b) {
    b.resize((b.size() + kSectorBytes - 1) / kSectorBytes * kSectorBytes, 0);
}

// Lays the file out again: the management table, then every table in layout
// order, each start sector set and the last sector of the IFO file. Returns
// the change in the file's sectors.
template <size_t N>
Bytes PutTogether(LaidOut& l, const Slot (&layout)[N], size_t lastSectorField, int64_t& delta) {
    Bytes out = l.head;
    for (const auto& s : layout) {
        auto it = l.tables.find(s.field);
        if (it == l.tables.end() || it->second.empty()) {
            PutBE32(out.data() + s.field, 0);
            continue;
        }
        PadToSectors(it->second);
        PutBE32(out.data() + s.field, uint32_t(out.size() / kSectorBytes));
        out.insert(out.end(), it->second.begin(), it->second.end());
    }
    const uint32_t sectors = uint32_t(out.size() / kSectorBytes);
    PutBE32(out.data() + lastSectorField, sectors - 1);
    delta = int64_t(sectors) - int64_t(l.sectors);
    return out;
}

void AddBE32(uint8_t* p, int64_t delta) { PutBE32(p, uint32_t(int64_t(GetBE32(p)) + delta)); }

// ---- Cell address tables and VOBU maps -------------------------------------------------------

struct CellKind {
    const char* section;   // the library's section
    const char* lossless;  // the module's section when the library's keys cannot hold it
    size_t field;          // start sector field
};
const CellKind kVmgmCells = {"vmgm_c_adt", "lossless_vmgm_c_adt", 216};
const CellKind kVtsmCells = {"vtsm_c_adt", "lossless_vtsm_c_adt", 216};
const CellKind kVtsCells = {"vts_c_adt", "lossless_vts_c_adt", 224};

// Whether the library's keys (cells 1 to 99 of VOBs 1 to 256, numbered
// without gaps, in that order, 256 entries at most) bring the table back.
bool LibraryKeysHold(const CellAddressTable& t) {
    if (t.cells.size() > size_t(CKestroCellAddressTable::kMaxCells)) return false;
    uint16_t vob = 0;
    uint8_t cell = 0;
    for (const auto& c : t.cells) {
        if (c.vobId == vob && c.cellId == cell + 1) {
            cell = c.cellId;
        } else if (c.vobId == vob + 1 && c.cellId == 1) {
            vob = c.vobId;
            cell = 1;
        } else {
            return false;
        }
        if (vob > 256 || cell > 99) return false;
    }
    return true;
}

void CompleteCells(const std::string& ini, const CellAddressTable& t, const CellKind& kind) {
    if (!t.present || t.cells.empty()) return;
    if (LibraryKeysHold(t)) {
        // Every entry under the library's keys; those its Disasm wrote are
        // rewritten with the same values.
        for (const auto& c : t.cells) {
            const int cell = c.cellId, vob = c.vobId;
            Put(ini, kind.section, Key("c_%03d_vob%03d_vts_vob_idn", cell, vob),
                std::to_string(vob));
            Put(ini, kind.section, Key("c_%03d_vob%03d_vts_c_idn", cell, vob),
                std::to_string(cell));
            Put(ini, kind.section, Key("c_%03d_vob%03d_vts_cp_sa", cell, vob),
                std::to_string(c.firstSector));
            Put(ini, kind.section, Key("c_%03d_vob%03d_vts_cp_ea", cell, vob),
                std::to_string(c.lastSector));
        }
        return;
    }
    // Otherwise the whole table, in its order, in the module's section; it
    // replaces what the library assembles from its own section.
    Put(ini, kind.lossless, "cell_ns", std::to_string(t.cells.size()));
    for (size_t i = 0; i < t.cells.size(); ++i) {
        const auto& c = t.cells[i];
        Put(ini, kind.lossless, Key("cell%04d", int(i + 1)),
            std::to_string(c.vobId) + " " + std::to_string(c.cellId) + " " +
                std::to_string(c.firstSector) + " " + std::to_string(c.lastSector));
    }
}

// The table from the module's section, or nothing when the source has none.
bool CellsFromSource(const std::string& ini, const CellKind& kind, Bytes& table) {
    long long n = 0;
    if (!StatementInt(ini, kind.lossless, "cell_ns", n) || n <= 0) return false;
    long long vobs = 0;
    StatementInt(ini, kind.section,
                 kind.section == std::string("vmgm_c_adt")   ? "vmgm_vob_ns"
                 : kind.section == std::string("vtsm_c_adt") ? "vtsm_vob_ns"
                                                             : "vts_vob_ns",
                 vobs);
    table.assign(8, 0);
    PutBE16(table.data(), uint32_t(vobs));
    for (long long i = 1; i <= n; ++i) {
        const std::string v = Statement(ini, kind.lossless, Key("cell%04d", int(i)).c_str());
        if (v[0] == '$') break;
        unsigned long vob = 0, cell = 0, first = 0, last = 0;
        if (std::sscanf(v.c_str(), "%lu %lu %lu %lu", &vob, &cell, &first, &last) != 4) break;
        uint8_t e[12] = {};
        PutBE16(e, uint32_t(vob));
        e[2] = uint8_t(cell);
        PutBE32(e + 4, uint32_t(first));
        PutBE32(e + 8, uint32_t(last));
        table.insert(table.end(), e, e + 12);
    }
    PutBE32(table.data() + 4, uint32_t(table.size() - 1));
    return true;
}

// The entries of a VOBU map beyond the ones the table's Disasm wrote (its
// 16-bit size keeps a map of 65,536 bytes or more short), under the
// library's keys, up to the 65,535 its Asm reads.
void CompleteVobus(const std::string& ini, const VobuMap& m, const char* section) {
    const size_t n = std::min<size_t>(m.sectors.size(), 0xFFFF);
    size_t i = 1;
    while (i <= n && Has(ini, section, Key("vobu_sa%04d", int(i)))) ++i;
    for (; i <= n; ++i)
        Put(ini, section, Key("vobu_sa%04d", int(i)), std::to_string(int(m.sectors[i - 1])));
}

// ---- Video manager --------------------------------------------------------------------------------

Carried VmgCarried(const VideoManager& v, const std::string& ini) {
    Carried c = CarriedBy(1024, {{0, 15},
                                 {28, 31},
                                 {33, 45},
                                 {62, 63},
                                 {96, 103},
                                 {128, 135},
                                 {192, 223},
                                 {256, 257},
                                 {259, 267},
                                 {341, 347}});
    // The provider ID comes back as far as the statement holds it (the store
    // trims blanks, and a NUL ends the text).
    std::string provider = Statement(ini, "vmgi_mat", "pvr_id", "");
    provider.erase(0, provider.find_first_not_of(" \t"));
    provider.erase(provider.find_last_not_of(" \t") + 1);
    for (size_t i = 0; i < 32; ++i)
        c[64 + i] = (i < provider.size() ? uint8_t(provider[i]) : 0) == v.table[64 + i];
    // A First Play PGC inside the table's bytes is not part of the table.
    if (v.firstPlayByte && v.firstPlayByte < 1024)
        Carry(c, v.firstPlayByte,
              size_t(std::min<uint32_t>(v.matEndByte, 1023)) + 1 - v.firstPlayByte);
    return c;
}

Carried AtrtCarried(const TitleSetAttributes& a) {
    // Record offsets: end address, category, menu video, menu audio count and
    // one byte per stream, menu sub-picture count and one byte per stream,
    // title video, title audio and sub-picture streams in full.
    Bytes rec(776, 0);
    std::copy(a.attributes.begin(), a.attributes.end(), rec.begin() + 8);
    Carried c = CarriedBy(776, {{0, 9}, {11, 11}, {93, 93}, {264, 265}, {267, 267}, {349, 349}});
    Carry(c, 12, rec[11]);
    Carry(c, 94, rec[93]);
    Carry(c, 268, 8 * size_t(rec[267]));
    Carry(c, 350, 6 * size_t(rec[349]));
    return c;
}

void DisasmVmgExtras(const std::string& ini, const VideoManager& v) {
    WriteUncarried(ini, kVmgBytesSection, "", v.table.data(), VmgCarried(v, ini));
    for (size_t i = 0; i < v.titleSetAttributes.size(); ++i) {
        const auto& a = v.titleSetAttributes[i];
        Bytes rec(776, 0);
        std::copy(a.attributes.begin(), a.attributes.end(), rec.begin() + 8);
        WriteUncarried(ini, kAtrtBytesSection, Key("vts_atrt_srp%03d_", int(i + 1)), rec.data(),
                       AtrtCarried(a));
    }
    if (v.parental.present) {
        // Masks of the video manager and each title set per level, 32 to a
        // statement: "country01_level8_vts000=xffff,..." covers the video
        // manager and title sets 1 to 31.
        Put(ini, kParentalSection, "title_sets", std::to_string(v.parental.titleSets));
        for (size_t i = 0; i < v.parental.countries.size(); ++i) {
            const auto& c = v.parental.countries[i];
            for (int level = 8; level >= 1; --level) {
                const auto& masks = c.levels[size_t(8 - level)];
                for (size_t from = 0; from < masks.size(); from += 32) {
                    std::string value;
                    for (size_t k = from; k < masks.size() && k < from + 32; ++k) {
                        uint8_t b[2];
                        PutBE16(b, masks[k]);
                        value += (value.empty() ? "" : ",") + Hex(b, 2).substr(1);
                    }
                    Put(ini, kParentalSection,
                        Key("country%02d_level%d", int(i + 1), level) + Key("_vts%03d", int(from)),
                        value);
                }
            }
        }
    }
    if (v.text.present) {
        // The table's bytes as text, 32 to a statement (offsets in decimal).
        Put(ini, kTextSection, "size", std::to_string(v.text.bytes.size()));
        for (size_t at = 0; at < v.text.bytes.size(); at += 32)
            Put(ini, kTextSection, Key("bytes%06d", int(at)),
                Escape(v.text.bytes.data() + at, std::min<size_t>(32, v.text.bytes.size() - at)));
    }
    CompleteCells(ini, v.menuCells, kVmgmCells);
    CompleteVobus(ini, v.menuVobus, "vts_vobu_admap");
}

bool ParentalFromSource(const std::string& ini, Bytes& table) {
    long long countries = 0, titleSets = 0;
    if (!StatementInt(ini, "ptl_mait", "cty_ns", countries) || countries <= 0 ||
        !StatementInt(ini, kParentalSection, "title_sets", titleSets) || titleSets < 0)
        return false;
    // The format's limits: 99 title sets, and every country's masks must
    // start at a byte a 16-bit field can hold.
    const size_t masks = size_t(titleSets) + 1;
    if (titleSets > 99 || countries > 0xFFFF ||
        8 + 8 * uint64_t(countries) + uint64_t(countries - 1) * 16 * masks > 0xFFFF)
        return false;
    table.assign(8 + 8 * size_t(countries), 0);
    PutBE16(table.data(), uint32_t(countries));
    PutBE16(table.data() + 2, uint32_t(titleSets));
    for (long long i = 1; i <= countries; ++i) {
        const std::string code =
            Statement(ini, "vmg_ptt_srpt", Key("ptl_mai_srp%02d_cty_cd", int(i)).c_str(), "");
        uint8_t* p = table.data() + 8 * i;
        p[0] = code.size() > 0 ? uint8_t(code[0]) : 0;
        p[1] = code.size() > 1 ? uint8_t(code[1]) : 0;
        PutBE16(p + 4, uint32_t(8 + 8 * countries + (i - 1) * 16 * int64_t(masks)));
    }
    for (long long i = 1; i <= countries; ++i)
        for (int level = 8; level >= 1; --level) {
            std::vector<uint16_t> row(masks, 0);
            for (size_t from = 0; from < masks; from += 32) {
                Bytes b;
                const std::string v = Statement(
                    ini, kParentalSection,
                    (Key("country%02d_level%d", int(i), level) + Key("_vts%03d", int(from)))
                        .c_str());
                if (v[0] == '$' || !ParseHex(v, b)) continue;
                for (size_t k = 0; k + 1 < b.size() && from + k / 2 < masks; k += 2)
                    row[from + k / 2] = GetBE16(b.data() + k);
            }
            for (uint16_t m : row) {
                uint8_t e[2];
                PutBE16(e, m);
                table.insert(table.end(), e, e + 2);
            }
        }
    PutBE32(table.data() + 4, uint32_t(table.size() - 1));
    return true;
}

bool TextFromSource(const std::string& ini, Bytes& table) {
    long long size = 0;
    if (!StatementInt(ini, kTextSection, "size", size) || size <= 0 || size > (1 << 24))
        return false;
    table.assign(size_t(size), 0);
    for (long long at = 0; at < size; at += 32) {
        Bytes b;
        if (!Unescape(Statement(ini, kTextSection, Key("bytes%06d", int(at)).c_str(), ""), b))
            continue;
        for (size_t k = 0; k < b.size() && size_t(at) + k < table.size(); ++k)
            table[size_t(at) + k] = b[k];
    }
    return true;
}

// Sectors of a title set as its IFO file in `dir` records them (VTS_EA + 1),
// or 0 when there is no such file.
uint64_t TitleSetSectors(const std::string& dir, int n) {
    char name[32];
    Format(name, sizeof name, "VTS_%02d_0.IFO", n);
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
        const fs::directory_entry& e = *it;
        if (strcasecmp(e.path().filename().c_str(), name) != 0) continue;
        Bytes head;
        std::string error;
        if (!ReadFile(e.path().string(), head, error) || head.size() < 16 ||
            std::memcmp(head.data(), "DVDVIDEO-VTS", 12) != 0)
            return 0;
        return uint64_t(GetBE32(head.data() + 12)) + 1;
    }
    return 0;
}

void RestoreVmg(const std::string& ini, const std::string& vobDir, Bytes& file, AsmResult& result) {
    LaidOut l = TakeApart(file, kVmgLayout);
    uint8_t* mat = l.head.data();
    ApplyUncarried(ini, kVmgBytesSection, "", mat, std::min<size_t>(l.head.size(), 1024));

    // Title numbers and parental ID fields as their statements hold them.
    auto tt = l.tables.find(196);
    if (tt != l.tables.end()) {
        Bytes& t = tt->second;
        const size_t n = std::min<size_t>(GetBE16(t.data()), (t.size() - 8) / 12);
        for (size_t i = 1; i <= n; ++i) {
            uint8_t* e = t.data() + 8 + 12 * (i - 1);
            long long v = 0;
            if (StatementInt(ini, "vmg_ptt_srpt", Key("vts_ttn%02d", int(i)), v)) e[7] = uint8_t(v);
            if (StatementInt(ini, "vmg_ptt_srpt", Key("tt_ptl_id_fld%02d", int(i)), v))
                PutBE16(e + 4, uint32_t(v));
        }
    }
    // Title set attributes: the record end address and the menu stream
    // attributes as their statements hold them, the rest of the record from
    // the module's section.
    auto at = l.tables.find(208);
    if (at != l.tables.end()) {
        Bytes& t = at->second;
        const size_t n = GetBE16(t.data());
        for (size_t i = 1; i <= n; ++i) {
            const size_t start = 8 + 4 * n + 776 * (i - 1);
            if (start + 776 > t.size()) break;
            uint8_t* rec = t.data() + start;
            long long v = 0;
            if (StatementInt(ini, "vts_atrt", Key("vts_atrt_srp%03d_vts_atr_ea", int(i)), v))
                PutBE32(rec, uint32_t(v));
            for (int j = 1; j <= rec[11]; ++j)
                StatementHex(ini, "vts_atrt", Key("vts_atrt_srp%03d_vtsm_ast_atr%02d", int(i), j),
                             1, rec + 11 + j);
            for (int j = 1; j <= rec[93]; ++j)
                StatementHex(ini, "vts_atrt", Key("vts_atrt_srp%03d_vtsm_spst_atr%02d", int(i), j),
                             1, rec + 93 + j);
            ApplyUncarried(ini, kAtrtBytesSection, Key("vts_atrt_srp%03d_", int(i)), rec, 776);
        }
    }
    Bytes table;
    if (ParentalFromSource(ini, table)) l.tables[204] = table;
    if (TextFromSource(ini, table)) {
        l.tables[212] = table;
        auto& w = result.warnings;
        w.erase(std::remove(w.begin(), w.end(),
                            std::string("TXTDT_MG: text data is not part of an assembled file")),
                w.end());
    }
    if (CellsFromSource(ini, kVmgmCells, table)) l.tables[216] = table;

    int64_t delta = 0;
    file = PutTogether(l, kVmgLayout, 28, delta);
    mat = file.data();
    if (GetBE32(mat + 192)) PutBE32(mat + 192, GetBE32(mat + 28) + 1);
    AddBE32(mat + 12, 2 * delta);

    // Title start sectors: from the title sets assembled beside the file when
    // they are all there, else the source's values moved by the change in
    // the video manager's size.
    const uint32_t ttAt = GetBE32(mat + 196);
    if (!ttAt) return;
    uint8_t* t = file.data() + size_t(ttAt) * kSectorBytes;
    const size_t n =
        std::min<size_t>(GetBE16(t), (file.size() - size_t(ttAt) * kSectorBytes - 8) / 12);
    const int sets = GetBE16(mat + 62);
    std::vector<uint64_t> starts(size_t(sets) + 2, 0);
    bool all = sets > 0;
    starts[1] = uint64_t(GetBE32(mat + 12)) + 1;
    for (int k = 1; all && k <= sets; ++k) {
        const uint64_t s = TitleSetSectors(vobDir, k);
        all = s != 0;
        starts[size_t(k) + 1] = starts[size_t(k)] + s;
    }
    long long before = 0;
    const bool shift = StatementInt(ini, "vmgi_mat", "vmg_ea", before);
    for (size_t i = 0; i < n; ++i) {
        uint8_t* e = t + 8 + 12 * i;
        const int set = e[6];
        if (all && set >= 1 && set <= sets)
            PutBE32(e + 8, uint32_t(starts[size_t(set)]));
        else if (shift)
            AddBE32(e + 8, int64_t(GetBE32(mat + 12)) - before);
    }
}

// ---- Title set --------------------------------------------------------------------------------------

Carried VtsCarried(const TitleSet& v) {
    const uint8_t* m = v.table.data();
    Carried c = CarriedBy(2048, {{0, 15},
                                 {28, 31},
                                 {33, 37},
                                 {128, 131},
                                 {192, 231},
                                 {256, 257},
                                 {259, 267},
                                 {341, 347},
                                 {512, 513},
                                 {515, 515},
                                 {597, 597},
                                 {792, 983}});
    Carry(c, 516, 8 * size_t(m[515]));
    Carry(c, 598, 6 * size_t(m[597]));
    return c;
}

bool DisasmVtsExtras(const std::string& ini, const TitleSet& v, SideFiles side,
                     std::string& error) {
    WriteUncarried(ini, kVtsBytesSection, "", v.table.data(), VtsCarried(v));
    CompleteCells(ini, v.menuCells, kVtsmCells);
    CompleteCells(ini, v.titleCells, kVtsCells);
    if (side != SideFiles::Binary) {
        CompleteVobus(ini, v.menuVobus, "vtsm_vobu_admap");
        CompleteVobus(ini, v.titleVobus, "vts_vobu_admap");
        return true;
    }
    // Binary side files: the table classes write the count they read, which
    // keeps a map of 65,536 bytes or more short. The title map's file is
    // written again whole (a 32-bit little-endian count, the entries as the
    // IFO holds them), as its counted reader takes up to 65,535 entries. The
    // menu map's file is read back through a reader whose size is 16 bits, so
    // a menu map that long goes into the source instead, which a source's own
    // entries take precedence over.
    if (v.titleVobus.sectors.size() > 16383) {
        const size_t n = std::min<size_t>(v.titleVobus.sectors.size(), 0xFFFF);
        Bytes file(4 + 4 * n);
        file[0] = uint8_t(n), file[1] = uint8_t(n >> 8);
        for (size_t i = 0; i < n; ++i) PutBE32(file.data() + 4 + 4 * i, v.titleVobus.sectors[i]);
        if (!WriteFileChecked(SideStem(ini) + kVtsAdmapBinSuffix, file, error)) return false;
    }
    if (v.menuVobus.sectors.size() > 16383) CompleteVobus(ini, v.menuVobus, "vtsm_vobu_admap");
    return true;
}

// Bytes of the title set's title VOB files in `dir` (VTS_nn_1.VOB on, up to
// the first one missing), counted in 64 bits.
uint64_t TitleVobBytes(const std::string& dir, const std::string& ifoName) {
    if (ifoName.size() < 6) return 0;
    const int set = std::atoi(ifoName.substr(4, 2).c_str());
    std::map<std::string, uint64_t> sizes;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
        std::string name = it->path().filename().string();
        for (auto& c : name) c = char(std::toupper(static_cast<unsigned char>(c)));
        std::error_code sized;
        const uint64_t size = it->file_size(sized);
        if (!sized) sizes[name] = size;
    }
    uint64_t total = 0;
    for (int i = 1; i <= 9; ++i) {
        char name[32];
        Format(name, sizeof name, "VTS_%02d_%d.VOB", set, i);
        auto it = sizes.find(name);
        if (it == sizes.end()) break;
        total += it->second;
    }
    return total;
}

void RestoreVts(const std::string& ini, const std::string& vobDir, const std::string& ifoName,
                Bytes& file) {
    // The table classes count the title VOB bytes in 32 bits, so the last
    // sector of a title set above 4 GiB wraps; it is counted in full here.
    const uint64_t titleBytes = TitleVobBytes(vobDir, ifoName);
    AddBE32(file.data() + 12,
            int64_t(titleBytes / kSectorBytes) - int64_t(uint32_t(titleBytes) / kSectorBytes));

    LaidOut l = TakeApart(file, kVtsLayout);
    uint8_t* mat = l.head.data();
    // The menu video attributes as the statement holds them (both bytes).
    StatementHex(ini, "vtsi_mat", "vtsm_v_atr", 2, mat + 256);
    ApplyUncarried(ini, kVtsBytesSection, "", mat, std::min<size_t>(l.head.size(), 2048));
    Bytes table;
    bool changed = false;
    if (CellsFromSource(ini, kVtsmCells, table)) l.tables[216] = table, changed = true;
    if (CellsFromSource(ini, kVtsCells, table)) l.tables[224] = table, changed = true;
    if (!changed) {
        std::copy(l.head.begin(), l.head.end(), file.begin());
        return;
    }
    int64_t delta = 0;
    file = PutTogether(l, kVtsLayout, 28, delta);
    mat = file.data();
    if (GetBE32(mat + 192)) PutBE32(mat + 192, GetBE32(mat + 28) + 1);
    AddBE32(mat + 196, delta);
    AddBE32(mat + 12, 2 * delta);
}

}  // namespace

// ---- The operations -------------------------------------------------------------------------------

DisasmResult DisassembleIfo(const std::string& ifo, const std::string& ini, SideFiles side,
                            bool libraryRules) {
    DisasmResult result;
    if (libraryRules) {
        result.ok = LibraryDisasm(ifo, ini, side, result);
        return result;
    }
    Bytes original;
    if (!ReadFile(ifo, original, result.error)) return result;
    VideoManager vmg;
    TitleSet vts;
    const bool isVmg = ReadVideoManager(original, vmg);
    const bool isVts = !isVmg && ReadTitleSet(original, vts);

    // The table classes read the First Play PGC at byte 1024 whatever its
    // start byte says; one that lies elsewhere (a real disc has it at 512)
    // is moved there in a copy for them, and the rebuilt file has it at 1024.
    std::string input = ifo;
    std::string moved;
    if (isVmg && vmg.firstPlayByte && vmg.firstPlayByte != 1024 &&
        vmg.firstPlayByte < original.size()) {
        // Only the PGC's own bytes (up to the table's end address) are moved,
        // and no further than the first sector: the next one holds a table.
        Bytes copy = original;
        if (copy.size() < 2048) copy.resize(2048, 0);
        const uint64_t pgcBytes = vmg.matEndByte >= vmg.firstPlayByte
                                      ? uint64_t(vmg.matEndByte) + 1 - vmg.firstPlayByte
                                      : 0;
        const size_t n = size_t(
            std::min<uint64_t>({1024, pgcBytes, uint64_t(original.size() - vmg.firstPlayByte)}));
        std::fill(copy.begin() + 1024, copy.begin() + 2048, 0);
        std::memmove(copy.data() + 1024, original.data() + vmg.firstPlayByte, n);
        moved = ini + ".first-play.ifo";
        const int fd = ::open(moved.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0) {
            result.error = moved + ": " + std::strerror(errno);
            return result;
        }
        ::close(fd);
        if (!WriteFileChecked(moved, copy, result.error)) {
            std::remove(moved.c_str());
            return result;
        }
        input = moved;
    }
    const bool ok = LibraryDisasm(input, ini, side, result);
    if (!moved.empty()) std::remove(moved.c_str());
    if (!ok) return result;

    Put(ini, kMarkerSection, "restore", "yes");
    if (isVmg) DisasmVmgExtras(ini, vmg);
    if (isVts && !DisasmVtsExtras(ini, vts, side, result.error)) return result;
    INIFlushFiles();
    result.ok = true;
    return result;
}

AsmResult AssembleIfo(const std::string& ini, const std::string& out, const std::string& vobDir,
                      const std::string& ifoName, const AsmOptions& options) {
    AsmResult result;
    // The file layer does not report a failed write to the table that made
    // it; it keeps the system's error of the last failed call. A read through
    // no file puts a known value there first, so any failure while the table
    // classes write shows as another one.
    uint8_t probe = 0;
    FileRead(-1, &probe, 1);
    const uint32_t before = LastFileError();
    if (!LibraryAsm(ini, out, vobDir, ifoName, options, result)) return result;
    if (LastFileError() != before) {
        result.error = out + ": " + std::strerror(int(LastFileError()));
        return result;
    }
    // Sources without the marker (written by hand or by an earlier version)
    // assemble by the library's rules alone.
    if (options.libraryRules || !Has(ini, kMarkerSection, "restore")) {
        result.ok = true;
        return result;
    }
    Bytes file;
    if (!ReadFile(out, file, result.error)) return result;
    const size_t need = result.kind == IfoKind::VideoManager ? 1024 : 2048;
    if (file.size() < need || file.size() % kSectorBytes ||
        file.size() < (uint64_t(GetBE32(file.data() + 28)) + 1) * kSectorBytes) {
        result.error = out + ": the assembled file is incomplete";
        return result;
    }
    if (result.kind == IfoKind::VideoManager)
        RestoreVmg(ini, vobDir, file, result);
    else
        RestoreVts(ini, vobDir, ifoName, file);
    if (!WriteFileChecked(out, file, result.error)) return result;
    result.ok = true;
    return result;
}

}  // namespace disc
}  // namespace kestro
