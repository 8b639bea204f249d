// What a player or reader takes from an IFO file, as "name=value" lines.
//
// A reading of VIDEO_TS.IFO and VTS_nn_0.IFO of its own, written for tests
// that compare two discs: it does not include or call the library, so a
// fault in the library's reading cannot hide the same fault in its writing.
//
// Every navigation field becomes one line: titles, parts of title, program
// chains wherever they sit (First Play, menus, titles), cells, cell address
// tables, VOBU maps, time maps, stream attributes, parental management and
// text data. Layout is left out: start sectors of tables, end addresses,
// byte offsets of tables and of PGC parts, file sizes. Two files that carry
// the same navigation in another layout therefore give the same lines.
// (Sectors that point into the VOB files, such as a cell's first VOBU, are
// navigation and are kept.)
//
// The file is read through a bounded view: a field past the bytes there are
// reads as zero and is counted, and every count taken from the file is
// clamped to the entries its bytes can hold. A table that lies past the end
// of the file, or that is cut short, gives a "<table>.damaged=..." line.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace ifo_nav {

constexpr size_t kSector = 2048;

inline std::string Num(uint32_t v) { return std::to_string(v); }

inline std::string HexN(uint32_t v, int digits) {
    char s[32];
    std::snprintf(s, sizeof s, "%0*x", digits, unsigned(v));
    return s;
}

// "name[007]" with the index zero-padded (to `width` digits) so the lines sort and read alike.
inline std::string Idx(const std::string& name, size_t i, int width = 3) {
    char s[32];
    std::snprintf(s, sizeof s, "[%0*zu]", width, i);
    return name + s;
}

// A window onto the file's bytes. Reads past its end give zero and are
// counted in `misses`, which the table walker turns into a damaged line.
class View {
public:
    View() = default;
    View(const uint8_t* data, size_t size, size_t* misses)
        : data_(data), size_(size), misses_(misses) {}

    size_t size() const { return size_; }
    bool Has(size_t at, size_t n) const { return at <= size_ && n <= size_ - at; }
    uint8_t U8(size_t at) const { return Has(at, 1) ? data_[at] : Miss(); }
    uint32_t BE16(size_t at) const {
        return Has(at, 2) ? uint32_t(data_[at]) << 8 | data_[at + 1] : Miss();
    }
    uint32_t BE32(size_t at) const { return Has(at, 4) ? BE16(at) << 16 | BE16(at + 2) : Miss(); }
    // n bytes from `at` in lower-case hexadecimal; the first missing byte counts
    // as a miss and ends the text.
    std::string Hex(size_t at, size_t n) const {
        std::string s;
        for (size_t i = 0; i < n; ++i) {
            if (!Has(at + i, 1)) {
                Miss();
                break;
            }
            s += "0123456789abcdef"[data_[at + i] >> 4];
            s += "0123456789abcdef"[data_[at + i] & 15];
        }
        return s;
    }
    // Up to n bytes from `at` as characters, for identifiers.
    std::string Chars(size_t at, size_t n) const {
        std::string s;
        for (size_t i = 0; i < n && Has(at + i, 1); ++i) s += char(data_[at + i]);
        return s;
    }
    // Everything from `at` on (a start past the end gives an empty view and a miss).
    View From(size_t at) const { return at > size_ ? Sub(at, 0) : Sub(at, size_ - at); }
    // The bytes from `at` on as a view of at most `n` bytes (fewer, and a
    // miss, when the file ends first).
    View Sub(size_t at, size_t n) const {
        if (at > size_ || n > size_ - at) Miss();
        if (at > size_) return View(data_, 0, misses_);
        return View(data_ + at, std::min(n, size_ - at), misses_);
    }
    // How many entries of `width` bytes from `at` on the view holds, at most `count`.
    size_t Held(size_t at, size_t width, size_t count) const {
        const size_t room = at <= size_ ? (size_ - at) / width : 0;
        return count > room ? (Miss(), room) : count;
    }

private:
    uint8_t Miss() const {
        if (misses_) ++*misses_;
        return 0;
    }
    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
    size_t* misses_ = nullptr;
};

// Two bytes that should be letters (language or country codes); anything
// else is written in hexadecimal so that a damaged code still compares.
inline std::string Code(const View& v, size_t at) {
    uint8_t a = v.U8(at), b = v.U8(at + 1);
    if (a >= 0x20 && a < 0x7f && b >= 0x20 && b < 0x7f && a != '=' && b != '=')
        return std::string(1, char(a)) + char(b);
    return "x" + HexN(a << 8 | b, 4);
}

// Hexadecimal with trailing zero bytes dropped: an attribute area read to a
// longer or shorter end gives the same value as long as the extra bytes are 0.
inline std::string TrimmedHex(const View& v, size_t at, size_t n) {
    std::string s = v.Hex(at, n);
    while (s.size() >= 2 && s.compare(s.size() - 2, 2, "00") == 0) s.resize(s.size() - 2);
    return s;
}

class Walker {
public:
    explicit Walker(const std::vector<uint8_t>& ifo) : file_(ifo.data(), ifo.size(), &misses_) {}

    std::vector<std::string> lines;

    void Add(const std::string& name, const std::string& value) {
        lines.push_back(name + "=" + value);
    }

    // A table found by its start sector: the view from there to its last byte
    // as its end address gives it (`endAt`: where in the table the address
    // sits; it counts from the table's first byte). False when absent.
    bool Table(uint32_t sector, size_t endAt, View* out) {
        if (sector == 0) return false;
        size_t at = size_t(sector) * kSector;
        View rest = file_.From(at);
        if (rest.size() < endAt + 4) {
            *out = rest;
            return true;
        }
        uint64_t end = rest.BE32(endAt);
        *out = rest.Sub(0, size_t(end) + 1);
        return true;
    }

    // Runs one table's reader and notes when it read past its bytes.
    template <class F>
    void Walk(const std::string& name, uint32_t sector, size_t endAt, F read) {
        View t;
        if (!Table(sector, endAt, &t)) return;
        size_t before = misses_;
        Add(name, "present");
        read(t);
        if (misses_ != before) Add(name + ".damaged", Num(uint32_t(misses_ - before)));
    }

    // A program chain: its general information, commands, program map, cell
    // playback information and cell positions. `v` starts at the PGC and runs
    // to the end of the table that holds it; the parts are found through the
    // start offsets, which themselves are layout and not reported.
    void Pgc(const std::string& p, const View& v) {
        Add(p + ".reserved", v.Hex(0, 2));
        uint32_t programs = v.U8(2), cells = v.U8(3);
        Add(p + ".programs", Num(programs));
        Add(p + ".cells", Num(cells));
        Add(p + ".playback_time", v.Hex(4, 4));
        Add(p + ".prohibited_ops", v.Hex(8, 4));
        for (size_t i = 0; i < 8; ++i) Add(Idx(p + ".audio_control", i + 1), v.Hex(12 + 2 * i, 2));
        for (size_t i = 0; i < 32; ++i)
            Add(Idx(p + ".subpicture_control", i + 1), v.Hex(28 + 4 * i, 4));
        for (auto [link, at] :
             {std::pair{".next_pgc", 156}, {".prev_pgc", 158}, {".goup_pgc", 160}})
            Add(p + link, Num(v.BE16(at)));
        Add(p + ".playback_mode", HexN(v.U8(162), 2));
        Add(p + ".still_time", Num(v.U8(163)));
        for (size_t i = 0; i < 16; ++i) Add(Idx(p + ".palette", i + 1), v.Hex(164 + 4 * i, 4));

        if (uint32_t at = v.BE16(228)) {
            View c = v.From(at);
            uint32_t pre = c.BE16(0), post = c.BE16(2), cell = c.BE16(4);
            Add(p + ".pre_commands", Num(pre));
            Add(p + ".post_commands", Num(post));
            Add(p + ".cell_commands", Num(cell));
            size_t n = c.Held(8, 8, size_t(pre) + post + cell);
            for (size_t i = 0; i < n; ++i) {
                const char* kind = i < pre ? ".pre" : i < pre + post ? ".post" : ".cell_cmd";
                size_t k = i < pre ? i : i < pre + post ? i - pre : i - pre - post;
                Add(Idx(p + kind, k + 1), c.Hex(8 + 8 * i, 8));
            }
        }
        if (uint32_t at = v.BE16(230)) {
            View m = v.From(at);
            size_t n = m.Held(0, 1, programs);
            for (size_t i = 0; i < n; ++i) Add(Idx(p + ".program_entry_cell", i + 1), Num(m.U8(i)));
        } else if (programs) {
            Add(p + ".program_map", "absent");
        }
        if (uint32_t at = v.BE16(232)) {
            View b = v.From(at);
            size_t n = b.Held(0, 24, cells);
            for (size_t i = 0; i < n; ++i) {
                std::string c = Idx(p + ".cell", i + 1);
                size_t e = 24 * i;
                Add(c + ".category", b.Hex(e, 4));
                Add(c + ".playback_time", b.Hex(e + 4, 4));
                for (auto [field, at] : {std::pair{".first_vobu_start", 8},
                                         {".first_ilvu_end", 12},
                                         {".last_vobu_start", 16},
                                         {".last_vobu_end", 20}})
                    Add(c + field, Num(b.BE32(e + at)));
            }
        } else if (cells) {
            Add(p + ".cell_playback", "absent");
        }
        if (uint32_t at = v.BE16(234)) {
            View q = v.From(at);
            size_t n = q.Held(0, 4, cells);
            for (size_t i = 0; i < n; ++i) {
                std::string c = Idx(p + ".cell", i + 1);
                Add(c + ".vob_id", Num(q.BE16(4 * i)));
                Add(c + ".reserved", HexN(q.U8(4 * i + 2), 2));
                Add(c + ".cell_id", Num(q.U8(4 * i + 3)));
            }
        } else if (cells) {
            Add(p + ".cell_position", "absent");
        }
    }

    // A menu PGCI unit table (VMGM_PGCI_UT, VTSM_PGCI_UT): language units,
    // each a list of PGCs with their category.
    void MenuUnits(const std::string& name, const View& t) {
        size_t units = t.Held(8, 8, t.BE16(0));
        Add(name + ".units", Num(t.BE16(0)));
        for (size_t i = 0; i < units; ++i) {
            std::string u = Idx(name + ".lu", i + 1);
            size_t s = 8 + 8 * i;
            Add(u + ".language", Code(t, s));
            Add(u + ".language_extension", HexN(t.U8(s + 2), 2));
            Add(u + ".menu_existence", HexN(t.U8(s + 3), 2));
            View lu = t.From(t.BE32(s + 4));
            size_t pgcs = lu.Held(8, 8, lu.BE16(0));
            Add(u + ".pgcs", Num(lu.BE16(0)));
            for (size_t j = 0; j < pgcs; ++j) {
                std::string pg = Idx(u + ".pgc", j + 1);
                Add(pg + ".category", lu.Hex(8 + 8 * j, 4));
                Pgc(pg, lu.From(lu.BE32(8 + 8 * j + 4)));
            }
        }
    }

    // VMGM_C_ADT, VTSM_C_ADT, VTS_C_ADT: every cell entry the end address holds.
    void CellAddresses(const std::string& name, const View& t) {
        Add(name + ".vobs", Num(t.BE16(0)));
        uint32_t end = t.BE32(4);
        size_t n = t.Held(8, 12, end >= 7 ? (end - 7) / 12 : 0);
        Add(name + ".entries", Num(uint32_t(n)));
        for (size_t i = 0; i < n; ++i) {
            size_t e = 8 + 12 * i;
            Add(Idx(name, i + 1), Num(t.BE16(e)) + " " + Num(t.U8(e + 2)) + " " +
                                      HexN(t.U8(e + 3), 2) + " " + Num(t.BE32(e + 4)) + " " +
                                      Num(t.BE32(e + 8)));
        }
    }

    // VMGM_VOBU_ADMAP, VTSM_VOBU_ADMAP, VTS_VOBU_ADMAP: every VOBU's start sector.
    void VobuMap(const std::string& name, const View& t) {
        uint32_t end = t.BE32(0);
        size_t n = t.Held(4, 4, end >= 3 ? (end - 3) / 4 : 0);
        Add(name + ".entries", Num(uint32_t(n)));
        for (size_t i = 0; i < n; ++i) Add(Idx(name, i + 1, 5), Num(t.BE32(4 + 4 * i)));
    }

    // Identity and stream attributes of a management table. `menuOnly` for
    // the video manager, which has no title streams.
    void Attributes(const std::string& m, bool menuOnly) {
        const View& f = file_;
        Add(m + ".version", HexN(f.BE16(32), 4));
        // A stream list: its count word, then `most` slots of `width` bytes.
        auto streams = [&](const std::string& name, size_t at, uint32_t most, size_t width) {
            Add(m + "." + name + "_streams", HexN(f.BE16(at), 4));
            const uint32_t count = std::min<uint32_t>(f.U8(at + 1), most);
            for (uint32_t k = 0; k < count; ++k)
                Add(Idx(m + "." + name, k + 1), f.Hex(at + 2 + width * k, width));
        };
        Add(m + ".menu_video", f.Hex(256, 2));
        streams("menu_audio", 258, 8, 8);
        streams("menu_subpicture", 340, 28, 6);
        if (menuOnly) return;
        Add(m + ".video", f.Hex(512, 2));
        streams("audio", 514, 8, 8);
        streams("subpicture", 596, 32, 6);
        for (uint32_t k = 0; k < 8; ++k)
            Add(Idx(m + ".multichannel", k + 1), f.Hex(792 + 24 * k, 24));
    }

    // Bytes of the management table outside every field it defines
    // (reserved areas that some authoring tools fill), as "offset:hex" pairs.
    // `fields` lists [from, to) ranges of defined fields.
    void Reserved(const std::string& m, size_t size,
                  const std::vector<std::pair<size_t, size_t>>& fields) {
        std::string s;
        for (size_t at = 0; at < size && file_.Has(at, 1); ++at) {
            bool defined = false;
            for (auto& r : fields) defined = defined || (at >= r.first && at < r.second);
            if (defined || file_.U8(at) == 0) continue;
            s += (s.empty() ? "" : " ") + Num(uint32_t(at)) + ":" + HexN(file_.U8(at), 2);
        }
        Add(m + ".reserved_bytes", s);
    }

    void VideoManager() {
        const View& f = file_;
        Add("kind", "video manager");
        Add("vmgi.id", f.Chars(0, 12));
        Attributes("vmgi", true);
        Add("vmgi.category", HexN(f.BE32(34), 8));
        Add("vmgi.volumes", Num(f.BE16(38)));
        Add("vmgi.this_volume", Num(f.BE16(40)));
        Add("vmgi.disc_side", Num(f.U8(42)));
        Add("vmgi.volume_set_rest", f.Hex(43, 3));
        Add("vmgi.title_sets", Num(f.BE16(62)));
        Add("vmgi.provider", TrimmedHex(f, 64, 32));
        Add("vmgi.pos_code", f.Hex(96, 8));
        Add("vmgi.menu_vobs", f.BE32(192) ? "present" : "absent");
        // A First Play PGC that starts inside the first 1024 bytes (one real
        // disc has it at byte 512) is a field, not reserved bytes.
        size_t fpFrom = f.BE32(132), fpTo = size_t(f.BE32(128)) + 1;
        Reserved("vmgi", 1024,
                 {{0, 16},
                  {28, 46},
                  {62, 104},
                  {128, 136},
                  {192, 224},
                  {256, 268},
                  {340, 348},
                  {fpFrom ? fpFrom : 0, fpFrom ? fpTo : 0}});

        // First Play PGC: where its start byte says, up to the end of the
        // management table (or the file when that end lies before it).
        if (uint32_t at = f.BE32(132)) {
            size_t before = misses_;
            uint32_t end = f.BE32(128);
            Pgc("first_play", end > at ? f.Sub(at, size_t(end) + 1 - at) : f.From(at));
            if (misses_ != before) Add("first_play.damaged", Num(uint32_t(misses_ - before)));
        } else {
            Add("first_play", "absent");
        }

        Walk("tt_srpt", f.BE32(196), 4, [&](const View& t) {
            Add("tt_srpt.titles", Num(t.BE16(0)));
            size_t n = t.Held(8, 12, t.BE16(0));
            for (size_t i = 0; i < n; ++i) {
                std::string p = Idx("title", i + 1);
                size_t e = 8 + 12 * i;
                Add(p + ".playback_type", HexN(t.U8(e), 2));
                Add(p + ".angles", Num(t.U8(e + 1)));
                Add(p + ".parts", Num(t.BE16(e + 2)));
                Add(p + ".parental_id", HexN(t.BE16(e + 4), 4));
                Add(p + ".title_set", Num(t.U8(e + 6)));
                Add(p + ".title_in_set", Num(t.U8(e + 7)));
            }
        });
        Walk("vmgm_pgci_ut", f.BE32(200), 4, [&](const View& t) { MenuUnits("vmgm", t); });
        Walk("ptl_mait", f.BE32(204), 4, [&](const View& t) {
            uint32_t sets = t.BE16(2);
            Add("ptl_mait.countries", Num(t.BE16(0)));
            Add("ptl_mait.title_sets", Num(sets));
            size_t n = t.Held(8, 8, t.BE16(0));
            for (size_t i = 0; i < n; ++i) {
                std::string c = Idx("ptl_mait.country", i + 1);
                size_t e = 8 + 8 * i;
                Add(c + ".code", Code(t, e));
                Add(c + ".reserved", t.Hex(e + 2, 2) + t.Hex(e + 6, 2));
                // Eight parental levels, each a mask word per PGC of the
                // video manager and of every title set.
                View mai = t.Sub(t.BE16(e + 4), 16 * (size_t(sets) + 1));
                for (size_t level = 0; level < 8; ++level) {
                    std::string masks;
                    for (size_t k = 0; k <= sets; ++k)
                        masks += (k ? " " : "") + mai.Hex(2 * (level * (sets + 1) + k), 2);
                    Add(Idx(c + ".level_row", level + 1), masks);
                }
            }
        });
        Walk("vts_atrt", f.BE32(208), 4, [&](const View& t) {
            Add("vts_atrt.title_sets", Num(t.BE16(0)));
            size_t n = t.Held(8, 4, t.BE16(0));
            for (size_t i = 0; i < n; ++i) {
                std::string p = Idx("vts_atrt.vts", i + 1);
                View r = t.From(t.BE32(8 + 4 * i));
                uint32_t end = r.BE32(0);
                Add(p + ".category", HexN(r.BE32(4), 8));
                size_t attrEnd = std::min<size_t>(size_t(end) + 1, r.size());
                Add(p + ".attributes", TrimmedHex(r, 8, attrEnd > 8 ? attrEnd - 8 : 0));
            }
        });
        Walk("txtdt_mg", f.BE32(212), 16, [&](const View& t) {
            Add("txtdt_mg.identifier", t.Hex(0, 12));
            Add("txtdt_mg.reserved", t.Hex(12, 2));
            Add("txtdt_mg.units", Num(t.BE16(14)));
            // The language units' search pointers, item tables and texts as
            // bytes, 32 to a line: their offsets count from the table's own
            // start, so they stay the same wherever the table lies.
            for (size_t at = 20, k = 1; at < t.size(); at += 32, ++k)
                Add(Idx("txtdt_mg.bytes", k), t.Hex(at, std::min<size_t>(32, t.size() - at)));
        });
        Walk("vmgm_c_adt", f.BE32(216), 4, [&](const View& t) { CellAddresses("vmgm_c_adt", t); });
        Walk("vmgm_vobu_admap", f.BE32(220), 0,
             [&](const View& t) { VobuMap("vmgm_vobu_admap", t); });
    }

    void TitleSet() {
        const View& f = file_;
        Add("kind", "title set");
        Add("vtsi.id", f.Chars(0, 12));
        Attributes("vtsi", false);
        Add("vtsi.category", HexN(f.BE32(34), 8));
        Add("vtsi.menu_vobs", f.BE32(192) ? "present" : "absent");
        // Title streams: video 512, audio count 514 and eight slots from
        // 516, sub-picture count 596 and 32 slots from 598, multichannel
        // attributes of the eight audio streams from 792.
        Reserved("vtsi", 2048,
                 {{0, 16},
                  {28, 38},
                  {128, 132},
                  {192, 232},
                  {256, 268},
                  {340, 348},
                  {512, 580},
                  {596, 790},
                  {792, 984}});

        Walk("vts_ptt_srpt", f.BE32(200), 4, [&](const View& t) {
            uint32_t ttus = t.BE16(0);
            Add("vts_ptt_srpt.titles", Num(ttus));
            size_t n = t.Held(8, 4, ttus);
            for (size_t k = 0; k < n; ++k) {
                size_t from = t.BE32(8 + 4 * k);
                size_t to = k + 1 < n ? t.BE32(12 + 4 * k) : t.size();
                if (to < from) to = from;
                View ptts = t.Sub(from, to - from);
                size_t m = ptts.size() / 4;
                std::string p = Idx("vts_title", k + 1);
                Add(p + ".parts", Num(uint32_t(m)));
                for (size_t j = 0; j < m; ++j)
                    Add(Idx(p + ".ptt", j + 1),
                        Num(ptts.BE16(4 * j)) + " " + Num(ptts.BE16(4 * j + 2)));
            }
        });
        Walk("vts_pgcit", f.BE32(204), 4, [&](const View& t) {
            Add("vts_pgcit.pgcs", Num(t.BE16(0)));
            size_t n = t.Held(8, 8, t.BE16(0));
            for (size_t i = 0; i < n; ++i) {
                std::string p = Idx("vts_pgc", i + 1);
                Add(p + ".category", t.Hex(8 + 8 * i, 4));
                Pgc(p, t.From(t.BE32(12 + 8 * i)));
            }
        });
        Walk("vtsm_pgci_ut", f.BE32(208), 4, [&](const View& t) { MenuUnits("vtsm", t); });
        Walk("vts_tmapt", f.BE32(212), 4, [&](const View& t) {
            Add("vts_tmapt.maps", Num(t.BE16(0)));
            size_t n = t.Held(8, 4, t.BE16(0));
            for (size_t i = 0; i < n; ++i) {
                std::string p = Idx("tmap", i + 1);
                View m = t.From(t.BE32(8 + 4 * i));
                Add(p + ".time_unit", Num(m.U8(0)));
                Add(p + ".reserved", HexN(m.U8(1), 2));
                size_t e = m.Held(4, 4, m.BE16(2));
                Add(p + ".entries", Num(m.BE16(2)));
                for (size_t j = 0; j < e; ++j) Add(Idx(p, j + 1, 5), HexN(m.BE32(4 + 4 * j), 8));
            }
        });
        Walk("vtsm_c_adt", f.BE32(216), 4, [&](const View& t) { CellAddresses("vtsm_c_adt", t); });
        Walk("vtsm_vobu_admap", f.BE32(220), 0,
             [&](const View& t) { VobuMap("vtsm_vobu_admap", t); });
        Walk("vts_c_adt", f.BE32(224), 4, [&](const View& t) { CellAddresses("vts_c_adt", t); });
        Walk("vts_vobu_admap", f.BE32(228), 0,
             [&](const View& t) { VobuMap("vts_vobu_admap", t); });
    }

    void Run() {
        if (!file_.Has(0, 12)) {
            Add("kind", "not an IFO file");
            return;
        }
        std::string id = file_.Chars(0, 12);
        if (id == "DVDVIDEO-VMG")
            VideoManager();
        else if (id == "DVDVIDEO-VTS")
            TitleSet();
        else
            Add("kind", "not an IFO file");
        if (misses_) Add("damaged", Num(uint32_t(misses_)));
    }

private:
    size_t misses_ = 0;
    View file_;
};

}  // namespace ifo_nav

// Every navigation field of an IFO file's bytes (VIDEO_TS.IFO or
// VTS_nn_0.IFO), one "name=value" line each, in file order of the tables as
// the management table lists them; layout is left out (see the top of this
// file). Any bytes give lines without reading outside them.
inline std::vector<std::string> NavigationOf(const std::vector<uint8_t>& ifo) {
    ifo_nav::Walker w(ifo);
    w.Run();
    return std::move(w.lines);
}

// Where two readings part, "-" first and "+" second line, at most a screenful;
// empty when both are the same.
inline std::string NavigationDiff(const std::vector<std::string>& a,
                                  const std::vector<std::string>& b) {
    std::string out;
    for (size_t i = 0, shown = 0; i < std::max(a.size(), b.size()) && shown < 24; ++i) {
        const std::string x = i < a.size() ? a[i] : "<none>", y = i < b.size() ? b[i] : "<none>";
        if (x != y) out += "-" + x + "\n+" + y + "\n", ++shown;
    }
    return out;
}

// The same for the navigation of two files' bytes.
inline std::string NavigationDiff(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    return NavigationDiff(NavigationOf(a), NavigationOf(b));
}
