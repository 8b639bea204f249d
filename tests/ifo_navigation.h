// The tests' own reading of an IFO file's navigation, apart from the library, to compare discs.
// Layout (where tables lie, end addresses, sizes) is left out; reads past the bytes count as damage.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace ifo_nav {

template <class... A>
std::string Format(const char* format, A... args) {
    char s[160];
    std::snprintf(s, sizeof s, format, args...);
    return s;
}
inline std::string Num(uint32_t v) { return std::to_string(v); }
inline std::string HexN(uint32_t v, int digits) { return Format("%0*x", digits, unsigned(v)); }
// "name[007]": the index zero-padded so that the lines sort and read alike.
inline std::string Idx(const std::string& name, size_t i, int width = 3) {
    return name + Format("[%0*zu]", width, i);
}

// A window onto the file's bytes: reads past its end give zero and count in `misses`.
struct View {
    const uint8_t* data;
    size_t size;
    size_t* misses;

    bool Has(size_t at, size_t n) const { return at <= size && n <= size - at; }
    uint8_t U8(size_t at) const { return Has(at, 1) ? data[at] : Miss(); }
    uint32_t BE16(size_t at) const { return Has(at, 2) ? U8(at) << 8 | U8(at + 1) : Miss(); }
    uint32_t BE32(size_t at) const { return Has(at, 4) ? BE16(at) << 16 | BE16(at + 2) : Miss(); }
    std::string Hex(size_t at, size_t n) const {
        std::string s;
        for (size_t i = 0; i < n && (Has(at + i, 1) || Miss()); ++i) s += HexN(data[at + i], 2);
        return s;
    }
    View From(size_t at) const { return Sub(at, at > size ? 0 : size - at); }
    // At most n bytes from `at` on (a miss when the view ends first).
    View Sub(size_t at, size_t n) const {
        if (at > size || n > size - at) Miss();
        return at > size ? View{data, 0, misses} : View{data + at, std::min(n, size - at), misses};
    }
    // How many entries of `width` bytes from `at` on the view holds, at most `count`.
    size_t Held(size_t at, size_t width, size_t count) const {
        const size_t room = at <= size ? (size - at) / width : 0;
        return count > room ? (Miss(), room) : count;
    }
    uint8_t Miss() const { return misses && ++*misses, 0; }
};

struct Walker {
    size_t misses_ = 0;
    View f;  // the whole file
    std::vector<std::string> lines;

    explicit Walker(const std::vector<uint8_t>& ifo) : f{ifo.data(), ifo.size(), &misses_} {
        const std::string id(f.data, f.data + (f.Has(0, 12) ? 12 : 0));
        if (id == "DVDVIDEO-VMG" || id == "DVDVIDEO-VTS") Management(id == "DVDVIDEO-VMG");
        if (lines.empty()) Add("kind", "not an IFO file");
        if (misses_) Add("damaged", Num(uint32_t(misses_)));
    }

    void Add(const std::string& name, const std::string& v) { lines.push_back(name + "=" + v); }
    // Lines `p`.name ("-": `p`) for "name offset width form" rows at `at`: d(ecimal), h(ex), x
    // (bytes), t (bytes less trailing zeros), c (two letters), "s w"/"a w" (w-byte slots/streams).
    void Fields(const std::string& p, const View& v, size_t at, const std::string& layout) {
        std::istringstream rows(layout);
        std::string name, s;
        size_t from, n, w;
        char form, comma;
        for (; rows >> name >> from >> n >> form; rows >> comma) {
            const std::string q = name == "-" ? p : p + "." + name;
            from += at;
            if (form == 'a') Add(q + "_streams", HexN(v.BE16(from), 4));
            if (form == 'a') n = std::min<size_t>(v.U8(from + 1), n), from += 2, form = 's';
            if (form == 's' && rows >> w) {
                for (size_t i = 0; i < n; ++i) Add(Idx(q, i + 1), v.Hex(from + w * i, w));
                continue;
            }
            if (form == 'c') {
                const uint8_t a = v.U8(from), b = v.U8(from + 1);  // else hex, so damage compares
                const bool text = a >= 32 && a < 127 && b >= 32 && b < 127 && a != '=' && b != '=';
                s = text ? std::string{char(a), char(b)} : "x" + HexN(a << 8 | b, 4);
            } else if (form == 'd' || form == 'h') {
                const uint32_t x = n == 1 ? v.U8(from) : n == 2 ? v.BE16(from) : v.BE32(from);
                s = form == 'd' ? Num(x) : HexN(x, int(2 * n));
            } else {
                s = v.Hex(from, n);
            }
            if (form == 't') s.resize((s.find_last_not_of('0') + 2) / 2 * 2);
            Add(q, s);
        }
    }

    // Notes how many reads since `before` fell past the bytes.
    void Damage(const std::string& name, size_t before) {
        if (misses_ != before) Add(name + ".damaged", Num(uint32_t(misses_ - before)));
    }
    // f(number from 1, offset) for each `width`-byte entry from byte 8, as many as the count at 0.
    template <class F>
    void Each(const std::string& countName, const View& t, size_t width, F f) {
        if (!countName.empty()) Add(countName, Num(t.BE16(0)));
        for (size_t i = 0, n = t.Held(8, width, t.BE16(0)); i < n; ++i) f(i + 1, 8 + width * i);
    }

    // A program chain, `v` running from it to the end of its table.
    void Pgc(const std::string& p, const View& v) {
        const uint32_t programs = v.U8(2), cells = v.U8(3);
        Fields(p, v, 0,
               "reserved 0 2 x, programs 2 1 d, cells 3 1 d, playback_time 4 4 x, "
               "prohibited_ops 8 4 x, audio_control 12 8 s 2, subpicture_control 28 32 s 4, "
               "next_pgc 156 2 d, prev_pgc 158 2 d, goup_pgc 160 2 d, playback_mode 162 1 h, "
               "still_time 163 1 d, palette 164 16 s 4");
        if (const uint32_t at = v.BE16(228)) {
            const View c = v.From(at);
            size_t pre = c.BE16(0), post = c.BE16(2), n = c.Held(8, 8, pre + post + c.BE16(4));
            pre = std::min(pre, n), post = std::min(post, n - pre);
            Fields(p, c, 0,
                   Format("pre_commands 0 2 d, post_commands 2 2 d, cell_commands 4 2 d, "
                          "pre 8 %zu s 8, post %zu %zu s 8, cell_cmd %zu %zu s 8",
                          pre, 8 + 8 * pre, post, 8 + 8 * (pre + post), n - pre - post));
        }
        // Program map, cell playback and cell positions; announced without an offset: "absent".
        auto part = [&](size_t offsetAt, size_t width, uint32_t count, const char* item,
                        const char* layout, const char* absent) {
            const uint32_t at = v.BE16(offsetAt);
            const View m = v.From(at);
            if (!at && count) Add(p + absent, "absent");
            for (size_t i = 0, n = at ? m.Held(0, width, count) : 0; i < n; ++i)
                Fields(Idx(p + item, i + 1), m, width * i, layout);
        };
        part(230, 1, programs, ".program_entry_cell", "- 0 1 d", ".program_map");
        part(232, 24, cells, ".cell",
             "category 0 4 x, playback_time 4 4 x, first_vobu_start 8 4 d, first_ilvu_end 12 4 d, "
             "last_vobu_start 16 4 d, last_vobu_end 20 4 d",
             ".cell_playback");
        part(234, 4, cells, ".cell", "vob_id 0 2 d, reserved 2 1 h, cell_id 3 1 d",
             ".cell_position");
    }

    // VTS_PGCIT or a menu language unit: a count, then a category and an offset per PGC.
    void Pgcs(const std::string& count, const std::string& name, const View& t) {
        Each(count, t, 8, [&](size_t i, size_t e) {
            Fields(Idx(name, i), t, e, "category 0 4 x");
            Pgc(Idx(name, i), t.From(t.BE32(e + 4)));
        });
    }

    void Table(const std::string& name, const View& t) {
        const bool cells = name.find("_c_adt") != std::string::npos;
        if (cells || name.find("vobu") != std::string::npos) {
            // Cell entries (12 bytes from 8) or VOBU start sectors (4 from 4) to the end address.
            const size_t first = cells ? 8 : 4, width = cells ? 12 : 4;
            if (cells) Add(name + ".vobs", Num(t.BE16(0)));
            const uint32_t end = t.BE32(first - 4);
            const size_t n = t.Held(first, width, end >= first - 1 ? (end - first + 1) / width : 0);
            Add(name + ".entries", Num(uint32_t(n)));
            for (size_t i = 0, e = first; i < n; ++i, e += width)
                Add(Idx(name, i + 1, cells ? 3 : 5),
                    cells ? Format("%u %u %02x %u %u", t.BE16(e), t.U8(e + 2), t.U8(e + 3),
                                   t.BE32(e + 4), t.BE32(e + 8))
                          : Num(t.BE32(e)));
        } else if (name == "vmgm_pgci_ut" || name == "vtsm_pgci_ut") {
            const std::string m = name.substr(0, 4);
            Each(m + ".units", t, 8, [&](size_t i, size_t e) {
                const std::string u = Idx(m + ".lu", i);
                Fields(u, t, e, "language 0 2 c, language_extension 2 1 h, menu_existence 3 1 h");
                Pgcs(u + ".pgcs", u + ".pgc", t.From(t.BE32(e + 4)));
            });
        } else if (name == "vts_pgcit") {
            Pgcs("vts_pgcit.pgcs", "vts_pgc", t);
        } else if (name == "tt_srpt") {
            Each("tt_srpt.titles", t, 12, [&](size_t i, size_t e) {
                Fields(Idx("title", i), t, e,
                       "playback_type 0 1 h, angles 1 1 d, parts 2 2 d, parental_id 4 2 h, "
                       "title_set 6 1 d, title_in_set 7 1 d");
            });
        } else if (name == "ptl_mait") {
            const uint32_t sets = t.BE16(2);
            Fields("ptl_mait", t, 0, "countries 0 2 d, title_sets 2 2 d");
            Each("", t, 8, [&](size_t i, size_t e) {
                const std::string c = Idx("ptl_mait.country", i);
                Fields(c, t, e, "code 0 2 c");
                Add(c + ".reserved", t.Hex(e + 2, 2) + t.Hex(e + 6, 2));
                // Eight levels of a mask word for the video manager and each title set.
                const View mai = t.Sub(t.BE16(e + 4), 16 * (size_t(sets) + 1));
                std::string row;
                for (size_t w = 0, k = sets + 1; w < 8 * k; ++w) {
                    row += (w % k ? " " : "") + mai.Hex(2 * w, 2);
                    if (w % k == sets) Add(Idx(c + ".level_row", w / k + 1), row), row.clear();
                }
            });
        } else if (name == "vts_atrt") {
            Each("vts_atrt.title_sets", t, 4, [&](size_t i, size_t e) {
                const View r = t.From(t.BE32(e));
                const size_t end = std::min<size_t>(size_t(r.BE32(0)) + 1, r.size);
                Fields(Idx("vts_atrt.vts", i), r, 0,
                       Format("category 4 4 h, attributes 8 %zu t", end > 8 ? end - 8 : 0));
            });
        } else if (name == "txtdt_mg") {
            Fields("txtdt_mg", t, 0, "identifier 0 12 x, reserved 12 2 x, units 14 2 d");
            // Language units as bytes, 32 a line: their offsets count from the table's start.
            for (size_t at = 20, k = 1; at < t.size; at += 32, ++k)
                Add(Idx("txtdt_mg.bytes", k), t.Hex(at, std::min<size_t>(32, t.size - at)));
        } else if (name == "vts_ptt_srpt") {
            Each("vts_ptt_srpt.titles", t, 4, [&](size_t k, size_t e) {
                // A title's parts run to the next title's (the last to the table's end).
                const size_t from = t.BE32(e), n = std::min<size_t>(t.BE16(0), (t.size - 8) / 4);
                const size_t to = std::max(from, k < n ? size_t(t.BE32(e + 4)) : t.size);
                const View ptts = t.Sub(from, to - from);
                const std::string p = Idx("vts_title", k);
                Add(p + ".parts", Num(uint32_t(ptts.size / 4)));
                for (size_t j = 0; j < ptts.size / 4; ++j)
                    Add(Idx(p + ".ptt", j + 1),
                        Format("%u %u", ptts.BE16(4 * j), ptts.BE16(4 * j + 2)));
            });
        } else if (name == "vts_tmapt") {
            Each("vts_tmapt.maps", t, 4, [&](size_t i, size_t e) {
                const std::string p = Idx("tmap", i);
                const View m = t.From(t.BE32(e));
                Fields(p, m, 0, "time_unit 0 1 d, reserved 1 1 h, entries 2 2 d");
                for (size_t j = 0, n = m.Held(4, 4, m.BE16(2)); j < n; ++j)
                    Add(Idx(p, j + 1, 5), HexN(m.BE32(4 + 4 * j), 8));
            });
        }
    }

    // The tables whose start sectors lie at 196, 200, ... ("" for none), each to its end address.
    void Tables(const std::vector<const char*>& names) {
        for (size_t k = 0; k < names.size(); ++k) {
            const std::string name = names[k];
            const uint32_t sector = name.empty() ? 0 : f.BE32(196 + 4 * k);
            if (sector == 0) continue;
            const size_t endAt = name == "txtdt_mg" ? 16 : name.find("vobu") == name.npos ? 4 : 0;
            View t = f.From(size_t(sector) * 2048);
            if (t.size >= endAt + 4) t = t.Sub(0, size_t(t.BE32(endAt)) + 1);
            Add(name, "present");
            const size_t before = misses_;
            Table(name, t);
            Damage(name, before);
        }
    }

    // Nonzero bytes outside the [from, to) pairs `d` (some authoring tools fill reserved areas).
    void Reserved(const std::string& m, size_t size, const std::vector<size_t>& d) {
        std::string s;
        for (size_t at = 0; at < size && f.Has(at, 1); ++at) {
            bool defined = false;
            for (size_t k = 0; k + 1 < d.size(); k += 2) defined |= at >= d[k] && at < d[k + 1];
            if (defined || f.U8(at) == 0) continue;
            s += (s.empty() ? "" : " ") + Num(uint32_t(at)) + ":" + HexN(f.U8(at), 2);
        }
        Add(m + ".reserved_bytes", s);
    }

    // The management table (VMGI_MAT or VTSI_MAT) and the tables it lists.
    void Management(bool vmg) {
        const std::string m = vmg ? "vmgi" : "vtsi";
        Add("kind", vmg ? "video manager" : "title set");
        Add(m + ".id", std::string(f.data, f.data + 12));
        // Stream attributes (the video manager has no title streams), then the rest.
        Fields(m, f, 0,
               std::string("version 32 2 h, menu_video 256 2 x, menu_audio 258 8 a 8, "
                           "menu_subpicture 340 28 a 6, ") +
                   (vmg ? "category 34 4 h, volumes 38 2 d, this_volume 40 2 d, disc_side 42 1 d, "
                          "volume_set_rest 43 3 x, title_sets 62 2 d, provider 64 32 t, "
                          "pos_code 96 8 x"
                        : "video 512 2 x, audio 514 8 a 8, subpicture 596 32 a 6, "
                          "multichannel 792 8 s 24, category 34 4 h"));
        Add(m + ".menu_vobs", f.BE32(192) ? "present" : "absent");
        if (!vmg) {
            Reserved("vtsi", 2048,
                     {0, 16, 28, 38, 128, 132, 192, 232, 256, 268, 340, 348, 512, 580, 596, 790,
                      792, 984});
            return Tables({"", "vts_ptt_srpt", "vts_pgcit", "vtsm_pgci_ut", "vts_tmapt",
                           "vtsm_c_adt", "vtsm_vobu_admap", "vts_c_adt", "vts_vobu_admap"});
        }
        // The First Play PGC (at byte 512 on one real disc) runs to the table's or file's end.
        const size_t fpFrom = f.BE32(132), fpTo = size_t(f.BE32(128)) + 1;
        Reserved("vmgi", 1024,
                 {0, 16, 28, 46, 62, 104, 128, 136, 192, 224, 256, 268, 340, 348, fpFrom,
                  fpFrom ? fpTo : 0});
        const uint32_t fp = f.BE32(132), end = fp ? f.BE32(128) : 0;
        const size_t before = misses_;
        if (!fp) Add("first_play", "absent");
        if (fp) Pgc("first_play", end > fp ? f.Sub(fp, size_t(end) + 1 - fp) : f.From(fp));
        Damage("first_play", before);
        Tables({"tt_srpt", "vmgm_pgci_ut", "ptl_mait", "vts_atrt", "txtdt_mg", "vmgm_c_adt",
                "vmgm_vobu_admap"});
    }
};

}  // namespace ifo_nav

// Every navigation field of an IFO file's bytes as a "name=value" line, in the file's order.
inline std::vector<std::string> NavigationOf(const std::vector<uint8_t>& ifo) {
    return ifo_nav::Walker(ifo).lines;
}

// Where two readings part ("-" first, "+" second line), at most 24 pairs; empty when the same.
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
