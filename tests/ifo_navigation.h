// What a player or reader takes from an IFO file (VIDEO_TS.IFO, VTS_nn_0.IFO), as "name=value"
// lines: a reading of its own for tests that compare two discs. It does not use the library, so
// a fault in the library's reading cannot hide the same fault in its writing.
//
// Every navigation field is one line (titles, parts, PGCs wherever they sit, cells, cell address
// tables, VOBU and time maps, stream attributes, parental management, text data). Layout is left
// out (start sectors and offsets of tables and PGC parts, end addresses, file sizes), so the same
// navigation laid out otherwise gives the same lines; sectors into the VOB files are kept.
//
// Reads go through a bounded view: past the bytes they give zero and are counted, every count
// from the file is clamped to what its bytes hold, and a table read past its bytes (cut short,
// or past the file's end) gives a "<table>.damaged=..." line.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
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

// A window onto the file's bytes: reads past its end give zero and count in `misses`.
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
    // n bytes from `at` in lower-case hex; the first missing byte is a miss and ends the text.
    std::string Hex(size_t at, size_t n) const {
        std::string s;
        for (size_t i = 0; i < n && (Has(at + i, 1) || Miss()); ++i) s += HexN(data_[at + i], 2);
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
    // At most `n` bytes from `at` on (fewer, and a miss, when the view ends first).
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

// Two letters (a language or country code); anything else in hex, so a damaged code compares.
inline std::string Code(const View& v, size_t at) {
    uint8_t a = v.U8(at), b = v.U8(at + 1);
    if (a >= 0x20 && a < 0x7f && b >= 0x20 && b < 0x7f && a != '=' && b != '=')
        return std::string(1, char(a)) + char(b);
    return "x" + HexN(a << 8 | b, 4);
}

// Hex without trailing zero bytes: an attribute area read to another end by zeros reads alike.
inline std::string TrimmedHex(const View& v, size_t at, size_t n) {
    std::string s = v.Hex(at, n);
    while (s.size() >= 2 && s.compare(s.size() - 2, 2, "00") == 0) s.resize(s.size() - 2);
    return s;
}

// One field of a record: decimal, hexadecimal number, bytes in hex, or bytes in hex with
// trailing zero bytes dropped.
enum Form { kNum, kHexNum, kBytes, kTrimmed };
struct Field {
    const char* name;
    size_t at, width;
    Form form;
};

inline std::string ValueOf(const View& v, size_t at, size_t width, Form form) {
    if (form == kBytes) return v.Hex(at, width);
    if (form == kTrimmed) return TrimmedHex(v, at, width);
    const uint32_t n = width == 1 ? v.U8(at) : width == 2 ? v.BE16(at) : v.BE32(at);
    return form == kNum ? Num(n) : HexN(n, int(2 * width));
}

class Walker {
public:
    explicit Walker(const std::vector<uint8_t>& ifo) : file_(ifo.data(), ifo.size(), &misses_) {}

    std::vector<std::string> lines;

    void Add(const std::string& name, const std::string& value) {
        lines.push_back(name + "=" + value);
    }
    // One line per field of the record at `at` of `v`, each named `p` + its name.
    void Fields(const std::string& p, const View& v, size_t at, std::initializer_list<Field> rows) {
        for (const Field& r : rows) Add(p + r.name, ValueOf(v, at + r.at, r.width, r.form));
    }
    // `count` slots of `width` bytes from `at`, as name[001], name[002], ...
    void Slots(const std::string& name, const View& v, size_t at, size_t count, size_t width) {
        for (size_t i = 0; i < count; ++i) Add(Idx(name, i + 1), v.Hex(at + width * i, width));
    }

    // A table found by its start sector, as a view up to the last byte its end address (at
    // `endAt` in the table) gives; runs `read` on it and notes when it read past its bytes.
    template <class F>
    void Walk(const std::string& name, uint32_t sector, size_t endAt, F read) {
        if (sector == 0) return;
        View t = file_.From(size_t(sector) * kSector);
        if (t.size() >= endAt + 4) t = t.Sub(0, size_t(t.BE32(endAt)) + 1);
        size_t before = misses_;
        Add(name, "present");
        read(t);
        if (misses_ != before) Add(name + ".damaged", Num(uint32_t(misses_ - before)));
    }

    // A program chain: general information, commands, program map, cell playback information
    // and cell positions. `v` runs from the PGC to the end of its table; the parts are found
    // through their start offsets, which are layout and not reported.
    void Pgc(const std::string& p, const View& v) {
        uint32_t programs = v.U8(2), cells = v.U8(3);
        Fields(p, v, 0,
               {{".reserved", 0, 2, kBytes},
                {".programs", 2, 1, kNum},
                {".cells", 3, 1, kNum},
                {".playback_time", 4, 4, kBytes},
                {".prohibited_ops", 8, 4, kBytes}});
        Slots(p + ".audio_control", v, 12, 8, 2);
        Slots(p + ".subpicture_control", v, 28, 32, 4);
        Fields(p, v, 0,
               {{".next_pgc", 156, 2, kNum},
                {".prev_pgc", 158, 2, kNum},
                {".goup_pgc", 160, 2, kNum},
                {".playback_mode", 162, 1, kHexNum},
                {".still_time", 163, 1, kNum}});
        Slots(p + ".palette", v, 164, 16, 4);

        if (uint32_t at = v.BE16(228)) {
            View c = v.From(at);
            uint32_t pre = c.BE16(0), post = c.BE16(2);
            Fields(p, c, 0,
                   {{".pre_commands", 0, 2, kNum},
                    {".post_commands", 2, 2, kNum},
                    {".cell_commands", 4, 2, kNum}});
            size_t n = c.Held(8, 8, size_t(pre) + post + c.BE16(4));
            for (size_t i = 0; i < n; ++i) {
                const char* kind = i < pre ? ".pre" : i < pre + post ? ".post" : ".cell_cmd";
                size_t k = i < pre ? i : i < pre + post ? i - pre : i - pre - post;
                Add(Idx(p + kind, k + 1), c.Hex(8 + 8 * i, 8));
            }
        }
        // Program map (one entry cell a program), cell playback (24 bytes a cell) and cell
        // positions (4 bytes a cell); a list that is announced but has no offset is noted.
        if (uint32_t at = v.BE16(230)) {
            View m = v.From(at);
            for (size_t i = 0, n = m.Held(0, 1, programs); i < n; ++i)
                Add(Idx(p + ".program_entry_cell", i + 1), Num(m.U8(i)));
        } else if (programs) {
            Add(p + ".program_map", "absent");
        }
        if (uint32_t at = v.BE16(232)) {
            View b = v.From(at);
            for (size_t i = 0, n = b.Held(0, 24, cells); i < n; ++i)
                Fields(Idx(p + ".cell", i + 1), b, 24 * i,
                       {{".category", 0, 4, kBytes},
                        {".playback_time", 4, 4, kBytes},
                        {".first_vobu_start", 8, 4, kNum},
                        {".first_ilvu_end", 12, 4, kNum},
                        {".last_vobu_start", 16, 4, kNum},
                        {".last_vobu_end", 20, 4, kNum}});
        } else if (cells) {
            Add(p + ".cell_playback", "absent");
        }
        if (uint32_t at = v.BE16(234)) {
            View q = v.From(at);
            for (size_t i = 0, n = q.Held(0, 4, cells); i < n; ++i)
                Fields(Idx(p + ".cell", i + 1), q, 4 * i,
                       {{".vob_id", 0, 2, kNum},
                        {".reserved", 2, 1, kHexNum},
                        {".cell_id", 3, 1, kNum}});
        } else if (cells) {
            Add(p + ".cell_position", "absent");
        }
    }

    // A list of PGCs (VTS_PGCIT, a menu language unit): a count, then per PGC its category
    // and the offset of the PGC.
    void Pgcs(const std::string& count, const std::string& name, const View& t) {
        Add(count, Num(t.BE16(0)));
        for (size_t i = 0, n = t.Held(8, 8, t.BE16(0)); i < n; ++i) {
            Add(Idx(name, i + 1) + ".category", t.Hex(8 + 8 * i, 4));
            Pgc(Idx(name, i + 1), t.From(t.BE32(12 + 8 * i)));
        }
    }

    // A menu PGCI unit table (VMGM_PGCI_UT, VTSM_PGCI_UT): language units of PGCs.
    void MenuUnits(const std::string& name, const View& t) {
        Add(name + ".units", Num(t.BE16(0)));
        for (size_t i = 0, n = t.Held(8, 8, t.BE16(0)); i < n; ++i) {
            std::string u = Idx(name + ".lu", i + 1);
            Add(u + ".language", Code(t, 8 + 8 * i));
            Fields(u, t, 8 + 8 * i,
                   {{".language_extension", 2, 1, kHexNum}, {".menu_existence", 3, 1, kHexNum}});
            Pgcs(u + ".pgcs", u + ".pgc", t.From(t.BE32(8 + 8 * i + 4)));
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

    // Identity and stream attributes of a management table; the video manager (`menuOnly`)
    // has no title streams.
    void Attributes(const std::string& m, bool menuOnly) {
        const View& f = file_;
        Add(m + ".version", HexN(f.BE16(32), 4));
        // A stream list: its count word, then `most` slots of `width` bytes.
        auto streams = [&](const std::string& name, size_t at, uint32_t most, size_t width) {
            Add(m + "." + name + "_streams", HexN(f.BE16(at), 4));
            Slots(m + "." + name, f, at + 2, std::min<uint32_t>(f.U8(at + 1), most), width);
        };
        Add(m + ".menu_video", f.Hex(256, 2));
        streams("menu_audio", 258, 8, 8);
        streams("menu_subpicture", 340, 28, 6);
        if (menuOnly) return;
        Add(m + ".video", f.Hex(512, 2));
        streams("audio", 514, 8, 8);
        streams("subpicture", 596, 32, 6);
        Slots(m + ".multichannel", f, 792, 8, 24);
    }

    // Bytes of the management table outside every field (reserved areas that some authoring
    // tools fill), as "offset:hex" pairs; `fields` holds [from, to) pairs of defined fields.
    void Reserved(const std::string& m, size_t size, const std::vector<size_t>& fields) {
        std::string s;
        for (size_t at = 0; at < size && file_.Has(at, 1); ++at) {
            bool defined = false;
            for (size_t k = 0; k + 1 < fields.size(); k += 2)
                defined = defined || (at >= fields[k] && at < fields[k + 1]);
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
        Fields("vmgi", f, 0,
               {{".category", 34, 4, kHexNum},
                {".volumes", 38, 2, kNum},
                {".this_volume", 40, 2, kNum},
                {".disc_side", 42, 1, kNum},
                {".volume_set_rest", 43, 3, kBytes},
                {".title_sets", 62, 2, kNum},
                {".provider", 64, 32, kTrimmed},
                {".pos_code", 96, 8, kBytes}});
        Add("vmgi.menu_vobs", f.BE32(192) ? "present" : "absent");
        // A First Play PGC that starts inside the first 1024 bytes (one real disc has it at
        // byte 512) is a field, not reserved bytes.
        size_t fpFrom = f.BE32(132), fpTo = size_t(f.BE32(128)) + 1;
        Reserved("vmgi", 1024,
                 {0, 16, 28, 46, 62, 104, 128, 136, 192, 224, 256, 268, 340, 348,
                  fpFrom ? fpFrom : 0, fpFrom ? fpTo : 0});

        // First Play PGC: from its start byte to the end of the management table (or of the
        // file when that end lies before it).
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
            for (size_t i = 0, n = t.Held(8, 12, t.BE16(0)); i < n; ++i)
                Fields(Idx("title", i + 1), t, 8 + 12 * i,
                       {{".playback_type", 0, 1, kHexNum},
                        {".angles", 1, 1, kNum},
                        {".parts", 2, 2, kNum},
                        {".parental_id", 4, 2, kHexNum},
                        {".title_set", 6, 1, kNum},
                        {".title_in_set", 7, 1, kNum}});
        });
        Walk("vmgm_pgci_ut", f.BE32(200), 4, [&](const View& t) { MenuUnits("vmgm", t); });
        Walk("ptl_mait", f.BE32(204), 4, [&](const View& t) {
            uint32_t sets = t.BE16(2);
            Fields("ptl_mait", t, 0, {{".countries", 0, 2, kNum}, {".title_sets", 2, 2, kNum}});
            for (size_t i = 0, n = t.Held(8, 8, t.BE16(0)); i < n; ++i) {
                std::string c = Idx("ptl_mait.country", i + 1);
                size_t e = 8 + 8 * i;
                Add(c + ".code", Code(t, e));
                Add(c + ".reserved", t.Hex(e + 2, 2) + t.Hex(e + 6, 2));
                // Eight parental levels, each a mask word per PGC of the video manager and of
                // every title set.
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
            for (size_t i = 0, n = t.Held(8, 4, t.BE16(0)); i < n; ++i) {
                std::string p = Idx("vts_atrt.vts", i + 1);
                View r = t.From(t.BE32(8 + 4 * i));
                size_t attrEnd = std::min<size_t>(size_t(r.BE32(0)) + 1, r.size());
                Add(p + ".category", HexN(r.BE32(4), 8));
                Add(p + ".attributes", TrimmedHex(r, 8, attrEnd > 8 ? attrEnd - 8 : 0));
            }
        });
        Walk("txtdt_mg", f.BE32(212), 16, [&](const View& t) {
            Fields("txtdt_mg", t, 0,
                   {{".identifier", 0, 12, kBytes},
                    {".reserved", 12, 2, kBytes},
                    {".units", 14, 2, kNum}});
            // The language units' search pointers, item tables and texts as bytes, 32 to a
            // line: their offsets count from the table's start, wherever the table lies.
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
        // Title streams: video 512, audio count 514 and eight slots from 516, sub-picture
        // count 596 and 32 slots from 598, multichannel attributes from 792.
        Reserved(
            "vtsi", 2048,
            {0, 16, 28, 38, 128, 132, 192, 232, 256, 268, 340, 348, 512, 580, 596, 790, 792, 984});

        Walk("vts_ptt_srpt", f.BE32(200), 4, [&](const View& t) {
            Add("vts_ptt_srpt.titles", Num(t.BE16(0)));
            for (size_t k = 0, n = t.Held(8, 4, t.BE16(0)); k < n; ++k) {
                // A title's parts run to the next title's (the last to the table's end).
                size_t from = t.BE32(8 + 4 * k);
                size_t to = std::max(from, k + 1 < n ? size_t(t.BE32(12 + 4 * k)) : t.size());
                View ptts = t.Sub(from, to - from);
                std::string p = Idx("vts_title", k + 1);
                Add(p + ".parts", Num(uint32_t(ptts.size() / 4)));
                for (size_t j = 0; j < ptts.size() / 4; ++j)
                    Add(Idx(p + ".ptt", j + 1),
                        Num(ptts.BE16(4 * j)) + " " + Num(ptts.BE16(4 * j + 2)));
            }
        });
        Walk("vts_pgcit", f.BE32(204), 4,
             [&](const View& t) { Pgcs("vts_pgcit.pgcs", "vts_pgc", t); });
        Walk("vtsm_pgci_ut", f.BE32(208), 4, [&](const View& t) { MenuUnits("vtsm", t); });
        Walk("vts_tmapt", f.BE32(212), 4, [&](const View& t) {
            Add("vts_tmapt.maps", Num(t.BE16(0)));
            for (size_t i = 0, n = t.Held(8, 4, t.BE16(0)); i < n; ++i) {
                std::string p = Idx("tmap", i + 1);
                View m = t.From(t.BE32(8 + 4 * i));
                Fields(p, m, 0,
                       {{".time_unit", 0, 1, kNum},
                        {".reserved", 1, 1, kHexNum},
                        {".entries", 2, 2, kNum}});
                for (size_t j = 0, e = m.Held(4, 4, m.BE16(2)); j < e; ++j)
                    Add(Idx(p, j + 1, 5), HexN(m.BE32(4 + 4 * j), 8));
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
        const std::string id = file_.Has(0, 12) ? file_.Chars(0, 12) : "";
        if (id == "DVDVIDEO-VMG")
            VideoManager();
        else if (id == "DVDVIDEO-VTS")
            TitleSet();
        else
            return Add("kind", "not an IFO file");
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
