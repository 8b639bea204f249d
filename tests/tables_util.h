// Table test helpers: byte images, tables placed in files and loaded, a host's walk over them.
#ifndef KESTRO_TESTS_TABLES_UTIL_H
#define KESTRO_TESTS_TABLES_UTIL_H

#include <cstring>
#include <functional>

#include "kestro/kestro.h"
#include "test_util.h"

namespace tt {

// A handle of the library's file layer (created, or opened to read), closed at scope end.
struct File {
    explicit File(const std::string& p, bool create = false)
        : h(create ? kestro::FileCreate(p.c_str(), 0x180) : kestro::FileOpen(p.c_str(), 0x8000)) {}
    ~File() { kestro::FileClose(h); }
    operator int() const { return h; }
    int h;
};

struct Bytes : std::vector<uint8_t> {  // big-endian builder
    Bytes& u8(uint32_t v) { return push_back(uint8_t(v)), *this; }
    Bytes& be16(uint32_t v) { return u8(v >> 8).u8(v); }
    Bytes& be32(uint32_t v) { return be16(v >> 16).be16(v); }
    Bytes& be16s(const std::vector<uint32_t>& v) { return each(v, &Bytes::be16); }
    Bytes& be32s(const std::vector<uint32_t>& v) { return each(v, &Bytes::be32); }
    Bytes& add(const std::vector<uint8_t>& b) { return insert(end(), b.begin(), b.end()), *this; }
    Bytes& zeros(size_t n) { return resize(size() + n), *this; }
    Bytes& each(const std::vector<uint32_t>& v, Bytes& (Bytes::*put)(uint32_t)) {
        for (uint32_t x : v) (this->*put)(x);
        return *this;
    }
};

// A member of a table family: a few texts and its own loader.
template <class Base>
struct Member {
    std::string name, section, text;
    std::function<std::unique_ptr<Base>()> make;
    std::function<int(Base&, int, unsigned long)> load;
    friend void PrintTo(const Member& m, std::ostream* os) { *os << m.name; }
};
template <class T, class Base>
Member<Base> Of(std::string name, std::string section, std::string text) {
    return {name, section, text, [] { return std::make_unique<T>(); },
            [](Base& t, int h, unsigned long s) { return static_cast<T&>(t).Load(h, s); }};
}

// Writes `table` at sector `at` of an otherwise zero file, padded to sectors; returns its path.
inline std::string PutTable(const kt::TempDir& dir, const std::vector<uint8_t>& table,
                            size_t at = 1, bool pad = true) {
    std::vector<uint8_t> img(at * 2048, 0);
    img.insert(img.end(), table.begin(), table.end());
    if (pad) img.resize((img.size() + 2047) / 2048 * 2048, 0);
    kt::WriteBytes(dir / "T.IFO", img);
    return dir / "T.IFO";
}

// A value of a source ("$" when missing), and the values of `keys`, each followed by '|'.
inline std::string Value(const std::string& ini, const std::string& section,
                         const std::string& key) {
    char buf[256];
    INIGetPrivateProfileString(section.c_str(), key.c_str(), "$", buf, sizeof buf, ini.c_str());
    return buf;
}
inline std::string Values(const std::string& ini, const std::string& section,
                          std::vector<std::string> keys) {
    std::string all;
    for (const auto& k : keys) all += Value(ini, section, k) + "|";
    return all;
}

inline std::pair<unsigned long, unsigned long> Size(CBaseKestro& t) {  // Get's sectors and bytes
    std::pair<unsigned long, unsigned long> size{};
    return t.Get(&size.first, &size.second), size;
}

inline std::string Error(CBaseKestro& t) {
    char buf[KESTRO_ERROR_TEXT + 1];
    t.GetErrorMessage(buf, sizeof buf);
    return buf;
}

// The report of any object with Details(char*, int, ...) in room + 3 bytes.
template <class T, class... Extra>
std::string Text(T&& t, int room = 1 << 20, bool* ok = nullptr, Extra... extra) {
    std::vector<char> buf(size_t(room) + 3, 0);
    if (const bool r = t.Details(buf.data(), room, extra...); ok) *ok = r;
    return buf.data();
}

// The whole report; cut all through it (in len + 3 bytes), each is a prefix within len + 2.
template <class T>
std::string Report(T&& t) {
    const std::string whole = Text(t);
    for (int len = 0; len < int(whole.size()); len += 1 + len / 4) {
        const std::string cut = Text(t, len);
        EXPECT_TRUE(cut.size() <= size_t(len) + 2 && whole.compare(0, cut.size(), cut) == 0)
            << len << ": " << cut;
    }
    return whole;
}

inline std::vector<uint8_t> Written(CBaseKestro& t, const std::string& path, bool* ok = nullptr) {
    File out(path, true);
    if (bool r = t.Write(out); ok) *ok = r;
    return kt::ReadBytes(path);
}

// Get counts `want` (and fills in end addresses); Write puts it padded to sectors, again nothing.
inline void ExpectWritesOnce(CBaseKestro& t, const std::string& path, std::vector<uint8_t> want) {
    unsigned long size = want.size();
    want.resize((size + 2047) / 2048 * 2048);
    EXPECT_EQ(Size(t), std::make_pair(want.size() / 2048, size));
    bool ok = false, again = true;
    EXPECT_EQ(Written(t, path, &ok), want);
    EXPECT_TRUE(ok && Written(t, path, &again).empty() && !again);
}

// Bytes [from, from + n) of v, as many as it holds.
inline std::vector<uint8_t> Slice(const std::vector<uint8_t>& v, size_t from, size_t n) {
    from = std::min(from, v.size());
    return {v.begin() + long(from), v.begin() + long(from + std::min(n, v.size() - from))};
}

// A report's lines without their line breaks.
inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> out;
    for (size_t at = 0, end; at < text.size(); at = end + 2)
        out.push_back(text.substr(at, (end = std::min(text.find("\r\n", at), text.size())) - at));
    return out;
}

// Where two byte images or line lists part, for a failure message that can be read.
inline std::string Show(uint8_t b) { return std::to_string(b); }
inline std::string Show(const std::string& line) { return line; }
template <class V>
std::string Mismatch(const V& got, const V& want) {
    size_t i = 0;
    while (i < got.size() && i < want.size() && got[i] == want[i]) ++i;
    return std::to_string(got.size()) + " and " + std::to_string(want.size()) +
           " items, first difference at " + std::to_string(i) + ": " +
           (i < got.size() ? Show(got[i]) : "(none)") + ", expected " +
           (i < want.size() ? Show(want[i]) : "(none)");
}

// A table loaded from `bytes` at `sector` of dir/T.IFO, kept open (management tables: sector 0).
template <class T>
struct Loaded {
    static constexpr bool kMat =
        std::is_same_v<T, CKestro_VMG_MAT> || std::is_same_v<T, CKestro_VTS_MAT>;
    explicit Loaded(const std::vector<uint8_t>& bytes, unsigned long sector = kMat ? 0 : 1,
                    bool pad = true)
        : file(PutTable(dir, bytes, sector, pad)), h(file), loaded(LoadAt(sector)) {}
    int LoadAt(unsigned long sector) {
        if constexpr (kMat)
            return t.Load(h);
        else
            return t.Load(h, sector);
    }
    kt::TempDir dir;
    std::string file, ini = dir / "t.ini", out = dir / "out.ifo";
    File h;
    T t;
    int loaded;
};

struct TableOps {  // one table of a loaded file, as a host drives it
    const char* name;
    std::function<bool(char*, int)> report;
    std::function<bool(const char*)> source;
    bool Details(char* buf, int len) const { return report(buf, len); }
    bool Disasm(const char* ini) const { return source(ini); }
};

// Language units' Disasm (its arguments come in another order in a title set).
inline bool LuDisasm(CKestro_VMGM_LU& lu, const char* ini, CKestro_PGCI& codec,
                     CKestro_VMGM_PGCI& ut, unsigned long sa) {
    return lu.Disasm(ini, sa, &codec, &ut);
}
inline bool LuDisasm(CKestro_VTSM_LU& lu, const char* ini, CKestro_PGCI& codec,
                     CKestro_VTSM_PGCI& ut, unsigned long sa) {
    return lu.Disasm(ini, &codec, &ut, sa);
}

// Every table of a loaded file, management table first (its Disasm starts a fresh source).
template <class Mat>
std::vector<TableOps> TablesOf(Mat& m, CKestro_PGCI& codec) {
    std::vector<TableOps> out;
    auto add = [&](const char* name, auto* t) {
        if (t)
            out.push_back({name, [t](char* b, int n) { return t->Details(b, n); },
                           [t](const char* ini) { return t->Disasm(ini); }});
    };
    auto units = [&](const char* name, auto* lu, auto* ut, unsigned long sa) {
        if (lu)
            out.push_back(
                {name, [=, &codec](char* b, int n) { return lu->Details(b, n, &codec, ut, sa); },
                 [=, &codec](const char* ini) { return LuDisasm(*lu, ini, codec, *ut, sa); }});
    };
    if constexpr (std::is_same_v<Mat, CKestro_VMG_MAT>) {
        add("VMGI_MAT", &m), add("TT_SRPT", m.GetVMG_PTT_SRPT());
        add("VMGM_PGCI_UT", m.GetVMGM_PGCI_UT());
        units("VMGM_LU", m.GetVMGM_LU(), m.GetVMGM_PGCI_UT(), m.GetVMGM_PGCIT_SA());
        add("PTL_MAIT", m.GetVMG_MAIT()), add("VTS_ATRT", m.GetVMG_ATRT());
        add("TXTDT_MG", m.GetVMG_TXTDT()), add("VMGM_C_ADT", m.GetVMGM_C_ADT());
        add("VMGM_VOBU_ADMAP", m.GetVMGM_VOBU_ADMAP());
    } else {
        add("VTSI_MAT", &m), add("VTS_PTT_SRPT", m.GetVTS_PTT_SRPT());
        if (auto* t = m.GetVTS_PGCIT())
            out.push_back({"VTS_PGCIT",
                           [t, &codec](char* b, int n) { return t->Details(&codec, b, n); },
                           [t, &codec](const char* ini) { return t->Disasm(ini, &codec); }});
        add("VTSM_PGCI_UT", m.GetVTSM_PGCI_UT());
        units("VTSM_LU", m.GetVTSM_LU(), m.GetVTSM_PGCI_UT(), m.GetVTSM_PGCIT_SA());
        if (auto* t = m.GetVTS_TMAPT())
            out.push_back({"VTS_TMAPT", [t](char* b, int n) { return t->Details(b, n); },
                           [t](const char* ini) {
                               return t->Disasm(ini) && CKestro_VTS_TMAP::JoinTmapSideFiles(ini);
                           }});
        add("VTSM_C_ADT", m.GetVTSM_C_ADT()), add("VTSM_VOBU_ADMAP", m.GetVTSM_VOBU_ADMAP());
        add("VTS_C_ADT", m.GetVTS_C_ADT()), add("VTS_VOBU_ADMAP", m.GetVTS_VOBU_ADMAP());
    }
    return out;
}

// Every table's report (room > 0) and source; `check`: all succeed (but units' and maps' sources).
template <class Mat>
std::string Walk(Mat& m, int room, const std::string& ini = "", bool check = false) {
    CKestro_PGCI codec;
    std::string all;
    for (const auto& t : TablesOf(m, codec)) {
        bool ok = true;
        if (room > 0) all += Text(t, room, &ok);
        EXPECT_TRUE(ok || !check) << t.name;
        const bool written = ini.empty() || t.Disasm(ini.c_str());
        EXPECT_TRUE(written || !check || std::strstr(t.name, "_LU") || std::strstr(t.name, "ADMAP"))
            << t.name;
    }
    return all;
}

}  // namespace tt

#endif
