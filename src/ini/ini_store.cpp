// The INI store. Each file is read with one system call into a text buffer
// and split into sections of lines that point into that buffer (no string
// per key or value); each section indexes its keys in an open-addressing
// hash table of line numbers, so any number of keys is read and written in
// linear time overall and a 1.3 MB source takes about three times its size.
//
// Coherence with the disk: a clean cached file is checked (inode, size,
// modification time) before it is used, so a file changed or deleted by
// anyone else is never served stale; a file with pending changes is
// authoritative until flushed. Outside an operation every call checks; inside
// one (IniOperation, which the library opens for each source section a call
// reads or writes, thousands of keys at a time) a file is checked when the
// operation first touches it and trusted for the rest of it.
#include <errno.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "ini/ini_batch.h"
#include "kestro/ini.h"

namespace {

// Offsets and lengths into a file's text are 32-bit, which keeps a line at
// 20 bytes; a file's text (as read plus values written since) is held to
// this size: the rest of a larger file is not read, and a write that would
// pass it is dropped.
constexpr uint32_t kMaxText = 0xFFFFFFF0u;

struct Line {
    uint32_t keyAt = 0, keyLen = 0;      // statement key in the file's text
    uint32_t valueAt = 0, valueLen = 0;  // its value; for other lines the whole line
    bool isStatement = false;
    bool shadowed = false;  // a later duplicate of a key: never read
};

// ASCII letters lower-cased through a table: no comparison per byte.
struct LowerTable {
    uint8_t to[256];
    constexpr LowerTable() : to() {
        for (int c = 0; c < 256; ++c) to[c] = uint8_t(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
};
constexpr LowerTable kLower;
inline char LowerChar(char c) { return char(kLower.to[uint8_t(c)]); }

// Names match case-insensitively (ASCII letters) and end at a NUL, as C
// strings read from them would.
inline size_t NameLength(const char* p, size_t n) {
    const void* nul = std::memchr(p, 0, n);
    return nul ? size_t(static_cast<const char*>(nul) - p) : n;
}

// Lower-cases the ASCII capitals of eight bytes at once: a byte gets bit 5
// when its low seven bits lie in 'A'..'Z' and its top bit is clear.
inline uint64_t LowerWord(uint64_t x) {
    const uint64_t ones = 0x0101010101010101ull, high = 0x8080808080808080ull;
    const uint64_t seven = x & ~high;
    const uint64_t atLeastA = seven + (0x80 - 'A') * ones;
    const uint64_t aboveZ = seven + (0x7F - 'Z') * ones;
    return x | ((atLeastA & ~aboveZ & ~x & high) >> 2);
}

// A hash of the lower-cased name, eight bytes at a time.
inline uint32_t HashName(const char* p, size_t n) {
    const uint64_t k = 0x9E3779B97F4A7C15ull;
    uint64_t h = n * k;
    for (; n >= 8; p += 8, n -= 8) {
        uint64_t w;
        std::memcpy(&w, p, 8);
        h = (h ^ LowerWord(w)) * k;
        h ^= h >> 29;
    }
    if (n) {
        uint64_t w = 0;
        std::memcpy(&w, p, n);
        h = (h ^ LowerWord(w)) * k;
    }
    h ^= h >> 32;
    h *= k;
    return uint32_t(h >> 32);
}

inline bool SameName(const char* a, size_t an, const char* b, size_t bn) {
    if (an != bn) return false;
    if (std::memcmp(a, b, an) == 0) return true;  // keys are mostly read as written
    for (size_t i = 0; i < an; ++i)
        if (LowerChar(a[i]) != LowerChar(b[i])) return false;
    return true;
}

// Open addressing over line numbers, at most half full; each slot keeps the
// key's hash so that probes compare keys only when the hashes agree.
class KeyIndex {
public:
    struct Slot {
        uint32_t line;  // line number + 1; 0 is an empty slot
        uint32_t hash;
    };

    void Reserve(size_t keys) {
        size_t want = 16;
        while (want < 2 * keys + 2) want *= 2;
        if (want > slots_.size()) Rehash(want);
    }

    // The line of the key, or -1. `keyOf` gives a line's key as (pointer, length).
    template <class KeyOf>
    long Find(const char* key, size_t len, uint32_t hash, KeyOf keyOf) const {
        if (slots_.empty()) return -1;
        const size_t mask = slots_.size() - 1;
        for (size_t i = hash & mask;; i = (i + 1) & mask) {
            const Slot& s = slots_[i];
            if (s.line == 0) return -1;
            if (s.hash == hash) {
                auto k = keyOf(s.line - 1);
                if (SameName(k.first, k.second, key, len)) return long(s.line - 1);
            }
        }
    }

    // Adds a line under a hash known to be absent.
    void Add(uint32_t line, uint32_t hash) {
        if (2 * (used_ + 1) > slots_.size()) Rehash(slots_.empty() ? 16 : 2 * slots_.size());
        Put(line, hash);
        ++used_;
    }

private:
    void Put(uint32_t line, uint32_t hash) {
        const size_t mask = slots_.size() - 1;
        size_t i = hash & mask;
        while (slots_[i].line != 0) i = (i + 1) & mask;
        slots_[i] = Slot{line + 1, hash};
    }
    void Rehash(size_t size) {
        std::vector<Slot> old(size, Slot{0, 0});
        old.swap(slots_);
        for (const Slot& s : old)
            if (s.line) Put(s.line - 1, s.hash);
    }

    std::vector<Slot> slots_;
    size_t used_ = 0;
};

struct Section {
    std::string name;
    std::vector<Line> lines;
    KeyIndex index;     // first line of each key
    size_t cursor = 0;  // the line found last: assemblers read in file order
};

struct Stamp {
    bool exists = false;
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = 0;
    timespec mtime{};
    bool operator==(const Stamp& o) const {
        return exists == o.exists && dev == o.dev && ino == o.ino && size == o.size &&
               mtime.tv_sec == o.mtime.tv_sec && mtime.tv_nsec == o.mtime.tv_nsec;
    }
    bool operator!=(const Stamp& o) const { return !(*this == o); }
};

struct IniFile {
    std::string text;            // the file as read, then keys and values written since
    size_t garbage = 0;          // bytes of text no line points at any more
    std::vector<Line> preamble;  // lines before the first section
    std::vector<Section> sections;
    std::unordered_map<std::string, size_t> index;  // lower-case section -> index
    Stamp stamp;
    bool dirty = false;
    uint64_t checkedIn = 0;           // the operation that last found it current
    size_t lastSection = size_t(-1);  // the section found last

    const char* At(uint32_t at) const { return text.data() + at; }
    std::pair<const char*, size_t> KeyOf(const Line& l) const {
        return {At(l.keyAt), NameLength(At(l.keyAt), l.keyLen)};
    }
};

std::string Lower(const char* s) {
    std::string r = s ? s : "";
    for (auto& c : r) c = LowerChar(c);
    return r;
}

std::string NormalisePath(const char* p) {
    std::string r = p ? p : "";
    for (auto& c : r)
        if (c == '\\') c = '/';
    return r;
}

Stamp StampOf(const struct stat& st) {
    return Stamp{true, st.st_dev, st.st_ino, st.st_size, st.st_mtim};
}

Stamp StampOf(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? StampOf(st) : Stamp{};
}

Section& AddSection(IniFile& f, const std::string& name) {
    f.index.emplace(Lower(name.c_str()), f.sections.size());
    f.sections.push_back(Section{name, {}, {}});
    return f.sections.back();
}

Section* FindSection(IniFile& f, const char* name) {
    if (f.lastSection < f.sections.size() &&
        ::strcasecmp(f.sections[f.lastSection].name.c_str(), name) == 0)
        return &f.sections[f.lastSection];
    auto s = f.index.find(Lower(name));
    if (s == f.index.end()) return nullptr;
    f.lastSection = s->second;
    return &f.sections[s->second];
}

inline bool Blank(char c) { return c == ' ' || c == '\t'; }

// Splits f.text into lines: blanks around every line, key and value are
// dropped (and a CR before the line end); "[name]" starts a section (a
// repeated name continues the earlier one); "key=value" outside comments
// (";", "#") is a statement; anything else is kept as it stands.
void Parse(IniFile& f) {
    const char* const t = f.text.data();
    const size_t size = f.text.size();
    Section* cur = nullptr;
    size_t pos = 0;
    while (pos < size) {
        const char* nl = static_cast<const char*>(std::memchr(t + pos, '\n', size - pos));
        size_t end = nl ? size_t(nl - t) : size;
        size_t b = pos, e = end;
        pos = nl ? end + 1 : size;
        while (b < e && Blank(t[b])) ++b;
        while (e > b && (Blank(t[e - 1]) || t[e - 1] == '\r')) --e;
        if (b < e && t[b] == '[') {
            const char* close = static_cast<const char*>(std::memchr(t + b, ']', e - b));
            size_t nb = b + 1, ne = close ? size_t(close - t) : e;
            while (nb < ne && Blank(t[nb])) ++nb;
            while (ne > nb && (Blank(t[ne - 1]) || t[ne - 1] == '\r')) --ne;
            std::string name(t + nb, ne - nb);
            auto it = f.index.find(Lower(name.c_str()));
            cur = it != f.index.end() ? &f.sections[it->second] : &AddSection(f, name);
            continue;
        }
        const char* eq = b < e ? static_cast<const char*>(std::memchr(t + b, '=', e - b)) : nullptr;
        Line l;
        l.isStatement = eq && t[b] != ';' && t[b] != '#';
        if (!cur || !l.isStatement) {
            l.isStatement = false;
            l.valueAt = uint32_t(b);
            l.valueLen = uint32_t(e - b);
            (cur ? cur->lines : f.preamble).push_back(l);
            continue;
        }
        size_t at = size_t(eq - t), ke = at, vb = at + 1;
        while (ke > b && (Blank(t[ke - 1]) || t[ke - 1] == '\r')) --ke;
        while (vb < e && Blank(t[vb])) ++vb;
        l.keyAt = uint32_t(b);
        l.keyLen = uint32_t(ke - b);
        l.valueAt = uint32_t(vb);
        l.valueLen = uint32_t(e - vb);
        cur->lines.push_back(l);
    }
    // Each section is indexed once its size is known: one allocation, no
    // rehash. The first of two equal keys is the one that is read and replaced.
    for (auto& sec : f.sections) {
        size_t statements = 0;
        for (const Line& l : sec.lines) statements += l.isStatement;
        sec.index.Reserve(statements);
        auto keyOf = [&](uint32_t i) { return f.KeyOf(sec.lines[i]); };
        for (size_t i = 0; i < sec.lines.size(); ++i) {
            Line& l = sec.lines[i];
            if (!l.isStatement) continue;
            auto k = f.KeyOf(l);
            uint32_t h = HashName(k.first, k.second);
            if (sec.index.Find(k.first, k.second, h, keyOf) >= 0)
                l.shadowed = true;
            else
                sec.index.Add(uint32_t(i), h);
        }
    }
}

enum class Read { kRead, kAbsent, kUnreadable };

// Reads a whole file into f.text (at most kMaxText bytes). `st` is what the
// open file is.
Read ReadText(const std::string& path, IniFile& f, struct stat& st) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT || errno == ENOTDIR ? Read::kAbsent : Read::kUnreadable;
    if (::fstat(fd, &st) != 0) {
        ::close(fd);
        return Read::kUnreadable;
    }
    size_t want = st.st_size > 0 ? size_t(st.st_size) : 0;
    if (want > kMaxText) want = kMaxText;
    f.text.resize(want);
    size_t got = 0;
    while (got < want) {
        ssize_t n = ::read(fd, &f.text[got], want - got);
        if (n <= 0) break;
        got += size_t(n);
    }
    f.text.resize(got);
    ::close(fd);
    return Read::kRead;
}

// Appends bytes to a file's text; the offset they start at, or false when
// the text would pass its limit.
bool Append(IniFile& f, const char* p, size_t n, uint32_t* at) {
    if (n > kMaxText || f.text.size() > kMaxText - n) return false;
    *at = uint32_t(f.text.size());
    f.text.append(p, n);
    return true;
}

// Rebuilds a file's text from the lines that point into it, once values
// replaced many times have left more dead bytes than live ones.
void Compact(IniFile& f) {
    std::string text;
    text.reserve(f.text.size() - f.garbage);
    auto move = [&](uint32_t& at, uint32_t len) {
        uint32_t to = uint32_t(text.size());
        text.append(f.text, at, len);
        at = to;
    };
    auto lines = [&](std::vector<Line>& v) {
        for (Line& l : v) {
            if (l.isStatement) move(l.keyAt, l.keyLen);
            move(l.valueAt, l.valueLen);
        }
    };
    lines(f.preamble);
    for (auto& s : f.sections) lines(s.lines);
    f.text.swap(text);
    f.garbage = 0;
}

// True when a caller's path names the cached path ('\\' counts as '/').
bool SamePath(const char* given, const std::string& cached) {
    const size_t n = std::strlen(given);
    if (n != cached.size()) return false;
    if (std::memcmp(given, cached.data(), n) == 0) return true;
    for (size_t i = 0; i < n; ++i)
        if ((given[i] == '\\' ? '/' : given[i]) != cached[i]) return false;
    return true;
}

// Operations: the depth of nested IniOperation scopes, and the number of the
// outermost one (a file checked in it is not checked again until it ends).
int g_operationDepth = 0;
uint64_t g_operation = 0;

class Store {
public:
    // Most calls name the file of the call before: that one is found
    // without normalising or hashing the path.
    IniFile* Get(const char* given, bool forWrite) {
        if (given && (last_ || lastAbsent_) && SamePath(given, lastPath_)) {
            if (last_ && Current(*last_, lastPath_)) return last_;
            if (lastAbsent_ && !forWrite && KnownAbsent(lastPath_)) return nullptr;
        }
        std::string path = NormalisePath(given);
        IniFile* f = Lookup(path, forWrite);
        last_ = f;
        lastAbsent_ = !f;
        lastPath_.assign(path);  // into the capacity it has: no allocation per call
        return f;
    }

    void Forget(const std::string& path) {
        files_.erase(path);
        absent_.erase(path);
        last_ = nullptr;
        lastAbsent_ = false;
    }

    // The outermost operation ends: what it found absent may appear now.
    void EndOperation() {
        if (!absent_.empty()) absent_.clear();
        lastAbsent_ = false;
    }

    void Flush() {
        for (auto& kv : files_) {
            IniFile& f = *kv.second;
            if (!f.dirty) continue;
            if (Save(kv.first, f)) {
                f.dirty = false;
                f.stamp = StampOf(kv.first);
                f.checkedIn = g_operationDepth > 0 ? g_operation : 0;
            }
        }
    }

private:
    // True when the cached copy may be served: it has pending changes, was
    // found current earlier in this operation, or matches the disk now.
    static bool Current(IniFile& f, const std::string& path) {
        if (f.dirty) return true;
        if (g_operationDepth > 0 && f.checkedIn == g_operation) return true;
        if (StampOf(path) != f.stamp) return false;
        if (g_operationDepth > 0) f.checkedIn = g_operation;
        return true;
    }

    // True when the path was found absent earlier in this operation.
    bool KnownAbsent(const std::string& path) const {
        return g_operationDepth > 0 && !absent_.empty() && absent_.count(path) != 0;
    }

    // The cached copy of a file, read afresh when it is not current; null
    // for a file that does not exist, unless it is to be written. Inside an
    // operation a file found absent is remembered as such until it ends
    // (assemblers probe side files that are not there, key after key).
    IniFile* Lookup(const std::string& path, bool forWrite) {
        auto it = files_.find(path);
        if (it != files_.end()) {
            if (Current(*it->second, path)) return it->second.get();
            files_.erase(it);
        }
        if (!forWrite && KnownAbsent(path)) return nullptr;
        auto f = std::make_unique<IniFile>();
        struct stat st;
        switch (ReadText(path, *f, st)) {
        case Read::kRead:
            f->stamp = StampOf(st);
            Parse(*f);
            break;
        case Read::kAbsent:
            if (!forWrite) {
                if (g_operationDepth > 0) absent_.insert(path);
                return nullptr;
            }
            break;
        case Read::kUnreadable:
            f->stamp = StampOf(path);  // there but unreadable: served empty
            if (!f->stamp.exists && !forWrite) return nullptr;
            break;
        }
        absent_.erase(path);
        if (g_operationDepth > 0) f->checkedIn = g_operation;
        IniFile* raw = f.get();
        files_[path] = std::move(f);
        return raw;
    }

    // Writes a file's lines through a buffer of fixed size, so that saving a
    // large file never holds a second copy of it.
    class Writer {
    public:
        explicit Writer(FILE* fp) : fp_(fp), buf_(kSize) {}
        void Put(const char* p, size_t n) {
            if (used_ + n > kSize) Drain();
            if (n > kSize) {
                ok_ = std::fwrite(p, 1, n, fp_) == n && ok_;
                return;
            }
            std::memcpy(buf_.data() + used_, p, n);
            used_ += n;
        }
        void Put(char c) { Put(&c, 1); }
        bool Finish() {
            Drain();
            return ok_;
        }

    private:
        static constexpr size_t kSize = 1 << 16;
        void Drain() {
            if (used_) ok_ = std::fwrite(buf_.data(), 1, used_, fp_) == used_ && ok_;
            used_ = 0;
        }
        FILE* fp_;
        std::vector<char> buf_;
        size_t used_ = 0;
        bool ok_ = true;
    };

    static void Put(Writer& out, const IniFile& f, const Line& l) {
        if (l.isStatement) {
            out.Put(f.At(l.keyAt), l.keyLen);
            out.Put('=');
        }
        out.Put(f.At(l.valueAt), l.valueLen);
        out.Put('\n');
    }

    static bool Save(const std::string& path, const IniFile& f) {
        std::string tmp = path + ".tmp" + std::to_string(::getpid());
        FILE* fp = std::fopen(tmp.c_str(), "wb");
        if (!fp) return false;
        bool ok;
        {
            Writer out(fp);
            for (const auto& l : f.preamble) Put(out, f, l);
            for (const auto& s : f.sections) {
                out.Put('[');
                out.Put(s.name.data(), s.name.size());
                out.Put("]\n", 2);
                for (const auto& l : s.lines) Put(out, f, l);
            }
            ok = out.Finish();
        }
        ok = (std::fclose(fp) == 0) && ok;
        if (!ok || std::rename(tmp.c_str(), path.c_str()) != 0) {
            std::remove(tmp.c_str());
            return false;
        }
        return true;
    }

    std::unordered_map<std::string, std::unique_ptr<IniFile>> files_;
    std::unordered_set<std::string> absent_;  // found absent in the current operation
    IniFile* last_ = nullptr;
    bool lastAbsent_ = false;  // lastPath_ was found absent (last_ is null)
    std::string lastPath_;
};

Store& TheStore() {
    static Store s;
    return s;
}

// Copies a value (up to a NUL in it) into buffer, cut to size - 1 characters.
void CopyOut(const char* value, size_t n, char* buffer, int size) {
    if (!buffer || size <= 0) return;
    if (n > size_t(size) - 1) n = size_t(size) - 1;
    n = NameLength(value, n);
    if (n) std::memcpy(buffer, value, n);
    buffer[n] = 0;
}

// The statement key names in sec, or null. Assemblers read the keys in the
// order the disassembler wrote them, so the line after the last one found is
// tried before the index.
const Line* FindKey(const IniFile& f, Section& sec, const char* key, size_t len, uint32_t* hash) {
    size_t next = sec.cursor + 1;
    if (next < sec.lines.size()) {
        const Line& l = sec.lines[next];
        if (l.isStatement && !l.shadowed) {
            auto k = f.KeyOf(l);
            if (SameName(k.first, k.second, key, len)) {
                sec.cursor = next;
                return &l;
            }
        }
    }
    *hash = HashName(key, len);
    long i = sec.index.Find(key, len, *hash, [&](uint32_t n) { return f.KeyOf(sec.lines[n]); });
    if (i < 0) return nullptr;
    sec.cursor = size_t(i);
    return &sec.lines[size_t(i)];
}

}  // namespace

void INIGetPrivateProfileString(const char* section, const char* key, const char* def, char* buffer,
                                int size, const char* file) {
    IniFile* f = TheStore().Get(file, false);
    if (f && section && key) {
        if (Section* sec = FindSection(*f, section)) {
            uint32_t hash;
            if (const Line* l = FindKey(*f, *sec, key, std::strlen(key), &hash)) {
                CopyOut(f->At(l->valueAt), l->valueLen, buffer, size);
                return;
            }
        }
    }
    CopyOut(def ? def : "", def ? std::strlen(def) : 0, buffer, size);
}

void INIWritePrivateProfileString(const char* section, const char* key, const char* value,
                                  const char* file) {
    if (!section || !key) return;
    IniFile* f = TheStore().Get(file, true);
    if (!f) return;
    Section* sec = FindSection(*f, section);
    if (!sec) {
        sec = &AddSection(*f, section);
        f->lastSection = f->sections.size() - 1;
    }
    const size_t keyLen = std::strlen(key), valueLen = value ? std::strlen(value) : 0;
    if (f->garbage > (1u << 20) && f->garbage > f->text.size() / 2) Compact(*f);
    uint32_t hash = 0;
    const Line* found = FindKey(*f, *sec, key, keyLen, &hash);
    uint32_t at;
    if (!Append(*f, value ? value : "", valueLen, &at)) return;
    // A value is one line: line breaks would split the statement.
    char* v = &f->text[at];
    if (std::memchr(v, '\n', valueLen) || std::memchr(v, '\r', valueLen))
        for (size_t i = 0; i < valueLen; ++i)
            if (v[i] == '\n' || v[i] == '\r') v[i] = ' ';
    if (found) {
        Line& l = sec->lines[sec->cursor];
        f->garbage += l.valueLen;
        l.valueAt = at;
        l.valueLen = uint32_t(valueLen);
    } else {
        Line l;
        if (!Append(*f, key, keyLen, &l.keyAt)) {
            f->garbage += valueLen;
            return;
        }
        l.keyLen = uint32_t(keyLen);
        l.valueAt = at;
        l.valueLen = uint32_t(valueLen);
        l.isStatement = true;
        sec->index.Add(uint32_t(sec->lines.size()), hash);
        sec->cursor = sec->lines.size();
        sec->lines.push_back(l);
    }
    f->dirty = true;
}

namespace {
int g_batchDepth = 0;
bool g_flushPending = false;
}  // namespace

void INIFlushFiles() {
    // Inside a batch the write is deferred to the batch's end: a table that
    // hands hundreds of PGCs to the codec, which flushes after each, would
    // otherwise rewrite the whole growing file every time.
    if (g_batchDepth > 0) {
        g_flushPending = true;
        return;
    }
    TheStore().Flush();
}

void INIBeginOperation() {
    if (g_operationDepth++ == 0) ++g_operation;
}

void INIEndOperation() {
    if (g_operationDepth > 0 && --g_operationDepth == 0) TheStore().EndOperation();
}

namespace kestro {

void IniBeginBatch() {
    ++g_batchDepth;
    INIBeginOperation();
}

void IniEndBatch() {
    INIEndOperation();
    if (g_batchDepth > 0 && --g_batchDepth == 0 && g_flushPending) {
        g_flushPending = false;
        TheStore().Flush();
    }
}

}  // namespace kestro

void INIForgetFile(const char* file) { TheStore().Forget(NormalisePath(file)); }

int INIGetSectionNames(const char* file, char* buffer, int size) {
    IniFile* f = TheStore().Get(file, false);
    int count = 0;
    size_t used = 0;
    if (buffer && size > 0) buffer[0] = 0;
    if (!f) return 0;
    for (const auto& s : f->sections) {
        ++count;
        if (!buffer || size <= 1) continue;
        size_t n = s.name.size();
        if (used + n + 2 > size_t(size)) continue;
        std::memcpy(buffer + used, s.name.c_str(), n + 1);
        used += n + 1;
        buffer[used] = 0;
    }
    return count;
}
