// The tests' own reading of an IFO file's navigation, apart from the library, to compare discs.
// Layout (where tables and PGC parts lie, end addresses, file sizes) is left out; reads past the
// bytes give zero, counts are clamped to their bytes, and a table read past them is "damaged".
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace ifo_nav {

template <class... A>
std::string Format(const char* format, A... args) {
    char s[64];
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
    View From(size_t at) const { return at > size ? Sub(at, 0) : Sub(at, size - at); }
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

// Two letters (a language or country code); anything else in hex, so a damaged code compares.
inline std::string Code(const View& v, size_t at) {
    const uint8_t a = v.U8(at), b = v.U8(at + 1);
    auto letter = [](uint8_t c) { return c >= 0x20 && c < 0x7f && c != '='; };
    return letter(a) && letter(b) ? std::string{char(a), char(b)} : "x" + HexN(a << 8 | b, 4);
}

// Hex without trailing zero bytes: an attribute area read to another end by zeros reads alike.
inline std::string TrimmedHex(const View& v, size_t at, size_t n) {
    std::string s = v.Hex(at, n);
    while (s.size() >= 2 && s.compare(s.size() - 2, 2, "00") == 0) s.resize(s.size() - 2);
    return s;
}

class Walker {
public:
    explicit Walker(const std::vector<uint8_t>& ifo) : file_{ifo.data(), ifo.size(), &misses_} {}

    std::vector<std::string> lines;

    void Add(const std::string& name, const std::string& v) { lines.push_back(name + "=" + v); }
    // A line `p`.name for each "name offset width form" row of `layout`, for the record at `at`
    // of `v`: a d(ecimal) or h(ex) number, or x bytes in hex, or t bytes without trailing zeros.
    void Fields(const std::string& p, const View& v, size_t at, const char* layout) {
        std::istringstream rows(layout);
        std::string name;
        size_t from, width;
        char form, comma;
        while (rows >> name >> from >> width >> form) {
            from += at;
            auto number = [&] {
                return width == 1 ? v.U8(from) : width == 2 ? v.BE16(from) : v.BE32(from);
            };
            Add(p + "." + name, form == 'x'   ? v.Hex(from, width)
                                : form == 't' ? TrimmedHex(v, from, width)
                                : form == 'd' ? Num(number())
                                              : HexN(number(), int(2 * width)));
            rows >> comma;
        }
    }
    // `count` slots of `width` bytes from `at`, as name[001], name[002], ...
    void Slots(const std::string& name, const View& v, size_t at, size_t count, size_t width) {
        for (size_t i = 0; i < count; ++i) Add(Idx(name, i + 1), v.Hex(at + width * i, width));
    }

    // Runs `read`, noting when it read past its bytes.
    template <class F>
    void Counted(const std::string& name, F read) {
        const size_t before = misses_;
        read();
        if (misses_ != before) Add(name + ".damaged", Num(uint32_t(misses_ - before)));
    }

    // A program chain, `v` running from it to the end of its table.
    void Pgc(const std::string& p, const View& v) {
        const uint32_t programs = v.U8(2), cells = v.U8(3);
        Fields(p, v, 0,
               "reserved 0 2 x, programs 2 1 d, cells 3 1 d, playback_time 4 4 x, prohibited_ops 8 "
               "4 x");
        Slots(p + ".audio_control", v, 12, 8, 2);
        Slots(p + ".subpicture_control", v, 28, 32, 4);
        Fields(p, v, 0,
               "next_pgc 156 2 d, prev_pgc 158 2 d, goup_pgc 160 2 d, playback_mode 162 1 h, "
               "still_time 163 1 d");
        Slots(p + ".palette", v, 164, 16, 4);
        if (uint32_t at = v.BE16(228)) {
            const View c = v.From(at);
            const size_t pre = c.BE16(0), post = c.BE16(2);
            Fields(p, c, 0, "pre_commands 0 2 d, post_commands 2 2 d, cell_commands 4 2 d");
            for (size_t i = 0, n = c.Held(8, 8, pre + post + c.BE16(4)); i < n; ++i) {
                const char* kind = i < pre ? ".pre" : i < pre + post ? ".post" : ".cell_cmd";
                const size_t k = i < pre ? i : i < pre + post ? i - pre : i - pre - post;
                Add(Idx(p + kind, k + 1), c.Hex(8 + 8 * i, 8));
            }
        }
        // Program map, cell playback and cell positions; announced without an offset: "absent".
        const struct {
            size_t offsetAt, width;
            uint32_t count;
            const char *item, *layout, *absent;
        } parts[] = {
            {230, 1, programs, ".program_entry_cell", nullptr, ".program_map"},
            {232, 24, cells, ".cell",
             "category 0 4 x, playback_time 4 4 x, first_vobu_start 8 4 d, first_ilvu_end 12 4 d, "
             "last_vobu_start 16 4 d, last_vobu_end 20 4 d",
             ".cell_playback"},
            {234, 4, cells, ".cell", "vob_id 0 2 d, reserved 2 1 h, cell_id 3 1 d",
             ".cell_position"}};
        for (const auto& l : parts) {
            if (const uint32_t at = v.BE16(l.offsetAt)) {
                const View m = v.From(at);
                for (size_t i = 0, n = m.Held(0, l.width, l.count); i < n; ++i)
                    if (l.layout)
                        Fields(Idx(p + l.item, i + 1), m, l.width * i, l.layout);
                    else
                        Add(Idx(p + l.item, i + 1), Num(m.U8(i)));
            } else if (l.count) {
                Add(p + l.absent, "absent");
            }
        }
    }

    // VTS_PGCIT or a menu language unit: a count, then a category and an offset per PGC.
    void Pgcs(const std::string& count, const std::string& name, const View& t) {
        Add(count, Num(t.BE16(0)));
        for (size_t i = 0, n = t.Held(8, 8, t.BE16(0)); i < n; ++i) {
            Add(Idx(name, i + 1) + ".category", t.Hex(8 + 8 * i, 4));
            Pgc(Idx(name, i + 1), t.From(t.BE32(12 + 8 * i)));
        }
    }

    // VMGM_PGCI_UT, VTSM_PGCI_UT: language units of PGCs.
    void MenuUnits(const std::string& name, const View& t) {
        Add(name + ".units", Num(t.BE16(0)));
        for (size_t i = 0, n = t.Held(8, 8, t.BE16(0)); i < n; ++i) {
            const std::string u = Idx(name + ".lu", i + 1);
            Add(u + ".language", Code(t, 8 + 8 * i));
            Fields(u, t, 8 + 8 * i, "language_extension 2 1 h, menu_existence 3 1 h");
            Pgcs(u + ".pgcs", u + ".pgc", t.From(t.BE32(8 + 8 * i + 4)));
        }
    }

    // VMGM_C_ADT, VTSM_C_ADT, VTS_C_ADT: every cell entry the end address holds.
    void CellAddresses(const std::string& name, const View& t) {
        Add(name + ".vobs", Num(t.BE16(0)));
        const uint32_t end = t.BE32(4);
        const size_t n = t.Held(8, 12, end >= 7 ? (end - 7) / 12 : 0);
        Add(name + ".entries", Num(uint32_t(n)));
        for (size_t e = 8; e < 8 + 12 * n; e += 12)
            Add(Idx(name, (e - 8) / 12 + 1), Format("%u %u %02x %u %u", t.BE16(e), t.U8(e + 2),
                                                    t.U8(e + 3), t.BE32(e + 4), t.BE32(e + 8)));
    }

    // VMGM_VOBU_ADMAP, VTSM_VOBU_ADMAP, VTS_VOBU_ADMAP: every VOBU's start sector.
    void VobuMap(const std::string& name, const View& t) {
        const uint32_t end = t.BE32(0);
        const size_t n = t.Held(4, 4, end >= 3 ? (end - 3) / 4 : 0);
        Add(name + ".entries", Num(uint32_t(n)));
        for (size_t i = 0; i < n; ++i) Add(Idx(name, i + 1, 5), Num(t.BE32(4 + 4 * i)));
    }

    // The tables whose start sectors lie at 196, 200, ... ("" for none), each to its end address.
    void Tables(const std::vector<const char*>& names) {
        for (size_t k = 0; k < names.size(); ++k) {
            const std::string name = names[k];
            const uint32_t sector = name.empty() ? 0 : file_.BE32(196 + 4 * k);
            if (sector == 0) continue;
            const size_t endAt = name.find("vobu") != std::string::npos ? 0
                                 : name == "txtdt_mg"                   ? 16
                                                                        : 4;
            View t = file_.From(size_t(sector) * 2048);
            if (t.size >= endAt + 4) t = t.Sub(0, size_t(t.BE32(endAt)) + 1);
            Add(name, "present");
            Counted(name, [&] { Table(name, t); });
        }
    }

    // Stream attributes; the video manager (`menuOnly`) has no title streams.
    void Attributes(const std::string& m, bool menuOnly) {
        const View& f = file_;
        Add(m + ".version", HexN(f.BE16(32), 4));
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

    // Nonzero bytes outside the [from, to) pairs `f` (some authoring tools fill reserved areas).
    void Reserved(const std::string& m, size_t size, const std::vector<size_t>& f) {
        std::string s;
        for (size_t at = 0; at < size && file_.Has(at, 1); ++at) {
            bool defined = false;
            for (size_t k = 0; k + 1 < f.size(); k += 2) defined |= at >= f[k] && at < f[k + 1];
            if (defined || file_.U8(at) == 0) continue;
            s += (s.empty() ? "" : " ") + Num(uint32_t(at)) + ":" + HexN(file_.U8(at), 2);
        }
        Add(m + ".reserved_bytes", s);
    }

    // The management table (VMGI_MAT or VTSI_MAT) and the tables it lists.
    void Management(bool vmg) {
        const View& f = file_;
        const std::string m = vmg ? "vmgi" : "vtsi";
        Add("kind", vmg ? "video manager" : "title set");
        Add(m + ".id", std::string(f.data, f.data + 12));
        Attributes(m, vmg);
        Fields(m, f, 0,
               vmg ? "category 34 4 h, volumes 38 2 d, this_volume 40 2 d, disc_side 42 1 d, "
                     "volume_set_rest 43 3 x, title_sets 62 2 d, provider 64 32 t, pos_code 96 8 x"
                   : "category 34 4 h");
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
        if (const uint32_t fp = f.BE32(132)) {
            const uint32_t end = f.BE32(128);
            Counted("first_play", [&] {
                Pgc("first_play", end > fp ? f.Sub(fp, size_t(end) + 1 - fp) : f.From(fp));
            });
        } else {
            Add("first_play", "absent");
        }
        Tables({"tt_srpt", "vmgm_pgci_ut", "ptl_mait", "vts_atrt", "txtdt_mg", "vmgm_c_adt",
                "vmgm_vobu_admap"});
    }

    void Table(const std::string& name, const View& t) {
        if (name.find("_c_adt") != std::string::npos) return CellAddresses(name, t);
        if (name.find("vobu") != std::string::npos) return VobuMap(name, t);
        if (name == "vmgm_pgci_ut" || name == "vtsm_pgci_ut")
            return MenuUnits(name.substr(0, 4), t);
        if (name == "vts_pgcit") return Pgcs("vts_pgcit.pgcs", "vts_pgc", t);
        if (name == "tt_srpt") {
            Add("tt_srpt.titles", Num(t.BE16(0)));
            for (size_t i = 0, n = t.Held(8, 12, t.BE16(0)); i < n; ++i)
                Fields(Idx("title", i + 1), t, 8 + 12 * i,
                       "playback_type 0 1 h, angles 1 1 d, parts 2 2 d, parental_id 4 2 h, "
                       "title_set 6 1 d, title_in_set 7 1 d");
        } else if (name == "ptl_mait") {
            const uint32_t sets = t.BE16(2);
            Fields("ptl_mait", t, 0, "countries 0 2 d, title_sets 2 2 d");
            for (size_t i = 0, n = t.Held(8, 8, t.BE16(0)); i < n; ++i) {
                const std::string c = Idx("ptl_mait.country", i + 1);
                const size_t e = 8 + 8 * i;
                Add(c + ".code", Code(t, e));
                Add(c + ".reserved", t.Hex(e + 2, 2) + t.Hex(e + 6, 2));
                // Eight levels of a mask word for the video manager and each title set.
                const View mai = t.Sub(t.BE16(e + 4), 16 * (size_t(sets) + 1));
                for (size_t level = 0; level < 8; ++level) {
                    std::string masks;
                    for (size_t k = 0; k <= sets; ++k)
                        masks += (k ? " " : "") + mai.Hex(2 * (level * (sets + 1) + k), 2);
                    Add(Idx(c + ".level_row", level + 1), masks);
                }
            }
        } else if (name == "vts_atrt") {
            Add("vts_atrt.title_sets", Num(t.BE16(0)));
            for (size_t i = 0, n = t.Held(8, 4, t.BE16(0)); i < n; ++i) {
                const std::string p = Idx("vts_atrt.vts", i + 1);
                const View r = t.From(t.BE32(8 + 4 * i));
                const size_t attrEnd = std::min<size_t>(size_t(r.BE32(0)) + 1, r.size);
                Add(p + ".category", HexN(r.BE32(4), 8));
                Add(p + ".attributes", TrimmedHex(r, 8, attrEnd > 8 ? attrEnd - 8 : 0));
            }
        } else if (name == "txtdt_mg") {
            Fields("txtdt_mg", t, 0, "identifier 0 12 x, reserved 12 2 x, units 14 2 d");
            // Language units as bytes, 32 a line: their offsets count from the table's start.
            for (size_t at = 20, k = 1; at < t.size; at += 32, ++k)
                Add(Idx("txtdt_mg.bytes", k), t.Hex(at, std::min<size_t>(32, t.size - at)));
        } else if (name == "vts_ptt_srpt") {
            Add("vts_ptt_srpt.titles", Num(t.BE16(0)));
            for (size_t k = 0, n = t.Held(8, 4, t.BE16(0)); k < n; ++k) {
                // A title's parts run to the next title's (the last to the table's end).
                const size_t from = t.BE32(8 + 4 * k);
                const size_t to = std::max(from, k + 1 < n ? size_t(t.BE32(12 + 4 * k)) : t.size);
                const View ptts = t.Sub(from, to - from);
                const std::string p = Idx("vts_title", k + 1);
                Add(p + ".parts", Num(uint32_t(ptts.size / 4)));
                for (size_t j = 0; j < ptts.size / 4; ++j)
                    Add(Idx(p + ".ptt", j + 1),
                        Format("%u %u", ptts.BE16(4 * j), ptts.BE16(4 * j + 2)));
            }
        } else if (name == "vts_tmapt") {
            Add("vts_tmapt.maps", Num(t.BE16(0)));
            for (size_t i = 0, n = t.Held(8, 4, t.BE16(0)); i < n; ++i) {
                const std::string p = Idx("tmap", i + 1);
                const View m = t.From(t.BE32(8 + 4 * i));
                Fields(p, m, 0, "time_unit 0 1 d, reserved 1 1 h, entries 2 2 d");
                for (size_t j = 0, e = m.Held(4, 4, m.BE16(2)); j < e; ++j)
                    Add(Idx(p, j + 1, 5), HexN(m.BE32(4 + 4 * j), 8));
            }
        }
    }

    void Run() {
        const std::string id(file_.data, file_.data + (file_.Has(0, 12) ? 12 : 0));
        if (id != "DVDVIDEO-VMG" && id != "DVDVIDEO-VTS") return Add("kind", "not an IFO file");
        Management(id == "DVDVIDEO-VMG");
        if (misses_) Add("damaged", Num(uint32_t(misses_)));
    }

private:
    size_t misses_ = 0;
    View file_;
};

}  // namespace ifo_nav

// Every navigation field of an IFO file's bytes as a "name=value" line, in the file's order.
inline std::vector<std::string> NavigationOf(const std::vector<uint8_t>& ifo) {
    ifo_nav::Walker w(ifo);
    w.Run();
    return std::move(w.lines);
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
