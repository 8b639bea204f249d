// The INI store. Each file is parsed once into sections of lines with hash
// indexes by lower-cased name, so any number of keys is read and written in
// linear time overall. A clean cached file is checked against the disk
// (inode, size, modification time) on every call, so a file changed or
// deleted by anyone else is never served stale; a file with pending changes
// is authoritative until flushed.
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "kestro/ini.h"

namespace {

struct Line {
    std::string key;    // empty for comments and blank lines
    std::string value;  // for comments: the whole line as read
    bool isStatement;
    bool shadowed = false;  // a later duplicate of a key: never read
};

struct Section {
    std::string name;
    std::vector<Line> lines;
    std::unordered_map<std::string, size_t> index;  // lower-case key -> line
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
};

struct IniFile {
    std::vector<std::string> preamble;  // lines before the first section
    std::vector<Section> sections;
    std::unordered_map<std::string, size_t> index;  // lower-case section -> index
    Stamp stamp;
    bool dirty = false;
    size_t lastSection = size_t(-1);  // the section found last
};

std::string Lower(const char* s) {
    std::string r = s ? s : "";
    for (auto& c : r)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return r;
}

std::string Trim(const std::string& s, size_t b, size_t e) {
    while (b < e && (s[b] == ' ' || s[b] == '\t')) ++b;
    while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r')) --e;
    return s.substr(b, e - b);
}

std::string NormalisePath(const char* p) {
    std::string r = p ? p : "";
    for (auto& c : r)
        if (c == '\\') c = '/';
    return r;
}

Stamp StampOf(const std::string& path) {
    Stamp s;
    struct stat st;
    if (::stat(path.c_str(), &st) == 0) {
        s.exists = true;
        s.dev = st.st_dev;
        s.ino = st.st_ino;
        s.size = st.st_size;
        s.mtime = st.st_mtim;
    }
    return s;
}

Section& AddSection(IniFile& f, const std::string& name) {
    f.index.emplace(Lower(name.c_str()), f.sections.size());
    f.sections.push_back(Section{name, {}, {}});
    return f.sections.back();
}

void Parse(IniFile& f, const std::string& text) {
    Section* cur = nullptr;
    size_t pos = 0;
    const size_t size = text.size();
    while (pos < size) {
        size_t nl = text.find('\n', pos);
        size_t end = nl == std::string::npos ? size : nl;
        size_t b = pos, e = end;
        pos = nl == std::string::npos ? size : nl + 1;
        while (b < e && (text[b] == ' ' || text[b] == '\t')) ++b;
        while (e > b && (text[e - 1] == ' ' || text[e - 1] == '\t' || text[e - 1] == '\r')) --e;
        if (b < e && text[b] == '[') {
            size_t close = text.find(']', b);
            std::string name = Trim(text, b + 1, close == std::string::npos || close > e ? e : close);
            auto it = f.index.find(Lower(name.c_str()));
            if (it != f.index.end()) {
                cur = &f.sections[it->second];
            } else {
                cur = &AddSection(f, name);
            }
            continue;
        }
        const char* eq = b < e ? static_cast<const char*>(std::memchr(text.data() + b, '=', e - b)) : nullptr;
        bool statement = eq && text[b] != ';' && text[b] != '#';
        if (!cur) {
            f.preamble.push_back(text.substr(b, e - b));
            continue;
        }
        if (!statement) {
            cur->lines.push_back(Line{"", text.substr(b, e - b), false});
            continue;
        }
        size_t at = size_t(eq - text.data());
        std::string key = Trim(text, b, at);
        std::string value = Trim(text, at + 1, e);
        // The first of two equal keys is the one that is read and replaced.
        cur->lines.push_back(Line{std::move(key), std::move(value), true, false});
    }
    // Index each section once its size is known: one allocation, no rehash.
    // The first of two equal keys is the one that is read and replaced.
    for (auto& sec : f.sections) {
        sec.index.reserve(sec.lines.size());
        for (size_t i = 0; i < sec.lines.size(); ++i) {
            Line& l = sec.lines[i];
            if (l.isStatement) l.shadowed = !sec.index.emplace(Lower(l.key.c_str()), i).second;
        }
    }
}

// True when a caller's path names the cached path ('\\' counts as '/').
bool SamePath(const char* given, const std::string& cached) {
    size_t i = 0;
    for (; given[i]; ++i) {
        if (i >= cached.size()) return false;
        char c = given[i] == '\\' ? '/' : given[i];
        if (c != cached[i]) return false;
    }
    return i == cached.size();
}

class Store {
public:
    // Most calls name the file of the call before: that one is found
    // without normalising or hashing the path.
    IniFile* Get(const char* given, bool forWrite) {
        if (given && last_ && SamePath(given, lastPath_)) {
            if (last_->dirty) return last_;
            if (StampOf(lastPath_) == last_->stamp) return last_;
        }
        std::string path = NormalisePath(given);
        IniFile* f = Lookup(path, forWrite);
        last_ = f;
        if (f) lastPath_ = path;
        return f;
    }

    IniFile* Lookup(const std::string& path, bool forWrite) {
        auto it = files_.find(path);
        if (it != files_.end()) {
            IniFile& f = *it->second;
            if (f.dirty) return &f;
            Stamp now = StampOf(path);
            if (now == f.stamp) return &f;
            files_.erase(it);
            last_ = nullptr;
        }
        Stamp st = StampOf(path);
        if (!st.exists && !forWrite) return nullptr;
        auto f = std::make_unique<IniFile>();
        if (st.exists) {
            std::ifstream in(path, std::ios::binary);
            std::ostringstream ss;
            ss << in.rdbuf();
            Parse(*f, ss.str());
        }
        f->stamp = st;
        IniFile* raw = f.get();
        files_[path] = std::move(f);
        return raw;
    }

    void Forget(const std::string& path) {
        files_.erase(path);
        last_ = nullptr;
    }

    void Flush() {
        for (auto& kv : files_) {
            IniFile& f = *kv.second;
            if (!f.dirty) continue;
            if (Save(kv.first, f)) {
                f.dirty = false;
                f.stamp = StampOf(kv.first);
            }
        }
    }

private:
    static bool Save(const std::string& path, const IniFile& f) {
        std::string out;
        for (const auto& l : f.preamble) {
            out += l;
            out += '\n';
        }
        for (const auto& s : f.sections) {
            out += '[';
            out += s.name;
            out += "]\n";
            for (const auto& l : s.lines) {
                if (l.isStatement) {
                    out += l.key;
                    out += '=';
                }
                out += l.value;
                out += '\n';
            }
        }
        std::string tmp = path + ".tmp" + std::to_string(::getpid());
        FILE* fp = std::fopen(tmp.c_str(), "wb");
        if (!fp) return false;
        bool ok = std::fwrite(out.data(), 1, out.size(), fp) == out.size();
        ok = (std::fclose(fp) == 0) && ok;
        if (!ok || std::rename(tmp.c_str(), path.c_str()) != 0) {
            std::remove(tmp.c_str());
            return false;
        }
        return true;
    }

    std::unordered_map<std::string, std::unique_ptr<IniFile>> files_;
    IniFile* last_ = nullptr;
    std::string lastPath_;
};

Store& TheStore() {
    static Store s;
    return s;
}

void CopyOut(const char* value, char* buffer, int size) {
    if (!buffer || size <= 0) return;
    size_t n = value ? std::strlen(value) : 0;
    if (n > size_t(size) - 1) n = size_t(size) - 1;
    if (n) std::memcpy(buffer, value, n);
    buffer[n] = 0;
}

// The statement key names in sec, or null. Assemblers read the keys in the
// order the disassembler wrote them, so the line after the last one found is
// tried before the index.
const Line* FindKey(Section& sec, const char* key) {
    size_t next = sec.cursor + 1;
    if (next < sec.lines.size()) {
        const Line& l = sec.lines[next];
        if (l.isStatement && !l.shadowed && ::strcasecmp(l.key.c_str(), key) == 0) {
            sec.cursor = next;
            return &l;
        }
    }
    auto k = sec.index.find(Lower(key));
    if (k == sec.index.end()) return nullptr;
    sec.cursor = k->second;
    return &sec.lines[k->second];
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

}  // namespace

void INIGetPrivateProfileString(const char* section, const char* key, const char* def,
                                char* buffer, int size, const char* file) {
    IniFile* f = TheStore().Get(file, false);
    if (f && section && key) {
        if (Section* sec = FindSection(*f, section)) {
            if (const Line* l = FindKey(*sec, key)) {
                CopyOut(l->value.c_str(), buffer, size);
                return;
            }
        }
    }
    CopyOut(def, buffer, size);
}

void INIWritePrivateProfileString(const char* section, const char* key, const char* value,
                                  const char* file) {
    if (!section || !key) return;
    IniFile* f = TheStore().Get(file, true);
    if (!f) return;
    auto s = f->index.find(Lower(section));
    Section& sec = s != f->index.end() ? f->sections[s->second] : AddSection(*f, section);
    std::string v = value ? value : "";
    // A value is one line: line breaks would split the statement.
    for (auto& c : v)
        if (c == '\n' || c == '\r') c = ' ';
    std::string lk = Lower(key);
    auto k = sec.index.find(lk);
    if (k != sec.index.end()) {
        sec.lines[k->second].value = std::move(v);
    } else {
        sec.index.emplace(std::move(lk), sec.lines.size());
        sec.lines.push_back(Line{key, std::move(v), true});
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

namespace kestro {

void IniBeginBatch() { ++g_batchDepth; }

void IniEndBatch() {
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
