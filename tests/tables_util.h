// Helpers of the shared-table tests.
#ifndef KESTRO_TESTS_TABLES_UTIL_H
#define KESTRO_TESTS_TABLES_UTIL_H

#include <functional>
#include <memory>

#include "kestro/ini.h"
#include "kestro/tables.h"
#include "test_util.h"

namespace tt {

struct File {  // a handle of the library's file layer (created, or opened to read), closed at scope end
    explicit File(const std::string& p, bool create = false)
        : h(create ? kestro::FileCreate(p.c_str(), 0x180) : kestro::FileOpen(p.c_str(), 0x8000)) {}
    ~File() { kestro::FileClose(h); }
    operator int() const { return h; }
    int h;
};

struct Bytes : std::vector<uint8_t> {  // big-endian builder
    Bytes& u8(uint32_t v) { push_back(uint8_t(v)); return *this; }
    Bytes& be16(uint32_t v) { return u8(v >> 8).u8(v); }
    Bytes& be32(uint32_t v) { return be16(v >> 16).be16(v); }
    Bytes& be32s(const std::vector<uint32_t>& v) { for (uint32_t x : v) be32(x); return *this; }
    Bytes& add(const std::vector<uint8_t>& b) { insert(end(), b.begin(), b.end()); return *this; }
    Bytes& zeros(size_t n) { resize(size() + n); return *this; }
};

// A member of a table family: a few texts and its own loader.
template <class Base>
struct Member {
    std::string name, section, text;
    std::function<std::unique_ptr<Base>()> make;
    std::function<int(Base&, int, unsigned long)> load;
};
template <class T, class Base>
Member<Base> Of(std::string name, std::string section, std::string text) {
    return {name, section, text, [] { return std::make_unique<T>(); },
            [](Base& t, int h, unsigned long s) { return static_cast<T&>(t).Load(h, s); }};
}

// Writes `table` at sector `at` of an otherwise zero file, padded to a sector
// unless told otherwise; returns its path.
inline std::string PutTable(const kt::TempDir& dir, const std::vector<uint8_t>& table, size_t at = 1, bool pad = true) {
    std::vector<uint8_t> img(at * 2048, 0);
    img.insert(img.end(), table.begin(), table.end());
    if (pad) img.resize((img.size() + 2047) / 2048 * 2048, 0);
    kt::WriteBytes(dir / "T.IFO", img);
    return dir / "T.IFO";
}

inline std::string Value(const std::string& ini, const std::string& section, const std::string& key) {  // "$" = missing
    char buf[256];
    return INIGetPrivateProfileString(section.c_str(), key.c_str(), "$", buf, sizeof buf, ini.c_str()), buf;
}
// The values of `keys` in one section, each followed by '|'.
inline std::string Values(const std::string& ini, const std::string& section, std::vector<std::string> keys) {
    std::string all;
    for (const auto& k : keys) all += Value(ini, section, k) + "|";
    return all;
}

inline std::pair<unsigned long, unsigned long> Size(CBaseKestro& t) {  // Get's sectors and bytes
    unsigned long sectors = 0, bytes = 0;
    return t.Get(&sectors, &bytes), std::make_pair(sectors, bytes);
}

inline std::string Error(CBaseKestro& t) {
    char buf[KESTRO_ERROR_TEXT + 1];
    return t.GetErrorMessage(buf, sizeof buf), buf;
}

// The report of any object with Details(char*, int, ...) in room + 3 bytes.
template <class T, class... Extra>
std::string Text(T& t, int room = 1 << 20, bool* ok = nullptr, Extra... extra) {
    std::vector<char> buf(size_t(room) + 3, 0);
    const bool r = t.Details(buf.data(), room, extra...);
    if (ok) *ok = r;
    return buf.data();
}

// The whole report; reports cut all through it must be prefixes of it within
// len + 2 characters, in buffers of len + 3 bytes that the sanitizers guard.
inline std::string Report(const std::function<bool(char*, int)>& details) {
    auto run = [&](int len) {
        std::vector<char> buf(size_t(len) + 3, 0);
        details(buf.data(), len);
        return std::string(buf.data());
    };
    std::string whole = run(1 << 20);
    for (int len = 0; len < int(whole.size()); len += 1 + len / 4) {
        std::string cut = run(len);
        EXPECT_TRUE(cut.size() <= size_t(len) + 2 && whole.compare(0, cut.size(), cut) == 0) << len << ": " << cut;
    }
    return whole;
}

inline std::vector<uint8_t> Written(CBaseKestro& t, const std::string& path, bool* ok = nullptr) {
    File out(path, true);
    if (bool r = t.Write(out); ok) *ok = r;
    return kt::ReadBytes(path);
}

// Get counts `want` (it also fills in end addresses), Write puts it padded
// with zeros to whole sectors, a second Write nothing.
inline void ExpectWritesOnce(CBaseKestro& t, const std::string& path, std::vector<uint8_t> want) {
    unsigned long size = want.size();
    want.resize((size + 2047) / 2048 * 2048);
    EXPECT_EQ(Size(t), std::make_pair(want.size() / 2048, size));
    bool ok = false, again = true;
    EXPECT_EQ(Written(t, path, &ok), want);
    EXPECT_TRUE(ok && Written(t, path, &again).empty() && !again);
}

}  // namespace tt

#endif
