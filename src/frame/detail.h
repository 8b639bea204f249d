// Internal helpers shared by every table: byte order, bounded reading of
// binary bodies, sector padding, report lines and source statements. Each
// concern lives here once so the tables never open-code it.
#ifndef KESTRO_SRC_FRAME_DETAIL_H
#define KESTRO_SRC_FRAME_DETAIL_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kestro/frame.h"
#include "kestro/ini.h"
// Flush batches (FlushBatch) belong to the INI store; the tables reach them
// through here.
#include "ini/ini_batch.h"

namespace kestro {

// ---- Byte order ------------------------------------------------------------
// IFO files store every multi-byte integer most significant byte first.
inline uint16_t GetBE16(const uint8_t* p) { return uint16_t((p[0] << 8) | p[1]); }
inline uint32_t GetBE32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}
inline void PutBE16(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v >> 8);
    p[1] = uint8_t(v);
}
inline void PutBE32(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v >> 24);
    p[1] = uint8_t(v >> 16);
    p[2] = uint8_t(v >> 8);
    p[3] = uint8_t(v);
}
// A few fields are stored least significant byte first: the parental ID
// field of a title search pointer, the VOBU map's entry count as the
// library keeps it, the command-table header once the codec has swapped it.
inline uint16_t GetLE16(const uint8_t* p) { return uint16_t(p[0] | (p[1] << 8)); }
inline uint32_t GetLE32(const uint8_t* p) {
    return p[0] | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline void PutLE16(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void PutLE32(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
    p[2] = uint8_t(v >> 16);
    p[3] = uint8_t(v >> 24);
}
// Swaps the two bytes of a 16-bit word in place (the command-table header
// is turned into little-endian words this way by the PGC report and source).
inline void Swap16InPlace(uint8_t* p) {
    uint8_t t = p[0];
    p[0] = p[1];
    p[1] = t;
}

// ---- Bounded reading ---------------------------------------------------------
// A view of bytes that were actually read or allocated. Every read beyond the
// end yields zeros, so counts and offsets taken from a damaged file can never
// reach foreign memory.
class ByteView {
public:
    ByteView() = default;
    ByteView(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    explicit ByteView(const std::vector<uint8_t>& v) : data_(v.data()), size_(v.size()) {}

    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    bool Has(size_t off, size_t n) const { return off <= size_ && n <= size_ - off; }

    uint8_t U8(size_t off) const { return off < size_ ? data_[off] : 0; }
    uint16_t BE16(size_t off) const { return uint16_t((U8(off) << 8) | U8(off + 1)); }
    uint32_t BE32(size_t off) const {
        return (uint32_t(U8(off)) << 24) | (uint32_t(U8(off + 1)) << 16) |
               (uint32_t(U8(off + 2)) << 8) | U8(off + 3);
    }
    uint16_t LE16(size_t off) const { return uint16_t(U8(off) | (U8(off + 1) << 8)); }
    // Copies n bytes from off into out, zero-filling what lies beyond the end.
    void Copy(size_t off, uint8_t* out, size_t n) const {
        for (size_t i = 0; i < n; ++i) out[i] = U8(off + i);
    }
    // The view from off on (empty when off is beyond the end).
    ByteView From(size_t off) const {
        return off < size_ ? ByteView(data_ + off, size_ - off) : ByteView();
    }

private:
    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
};

// The entries of `entrySize` bytes that `bytes` bytes really hold (a last
// partial entry counts: its missing bytes read as zeros), at most `count`.
// Every count taken from a file goes through here before a loop walks it: a
// damaged count cannot make a report or source list tens of thousands of
// entries read as zeros past the body. A well-formed table holds its count.
inline size_t HeldEntries(size_t count, size_t bytes, size_t entrySize) {
    const size_t held = (bytes + entrySize - 1) / entrySize;
    return held < count ? held : count;
}
inline int HeldEntries(const LoadedTable& t, size_t entrySize) {
    return int(HeldEntries(t.count, t.body.size(), entrySize));
}

// A loaded table's body, read back from its file for one Details or Disasm
// call and released when the scope ends, on every path out of it.
class BodyScope {
public:
    explicit BodyScope(LoadedTable& t) : t_(t) { t_.ReadBody(); }
    ~BodyScope() { t_.FreeBody(); }
    BodyScope(const BodyScope&) = delete;
    BodyScope& operator=(const BodyScope&) = delete;

    ByteView View() const { return ByteView(t_.body); }
    // Entries of entrySize bytes the body holds, at most the table's count.
    int Held(size_t entrySize) const { return HeldEntries(t_, entrySize); }

private:
    LoadedTable& t_;
};

// A sub-table object that its loader accepted, or null: an absent table
// (start sector 0) or one its loader refused leaves no object behind.
template <class T, class... Args>
std::unique_ptr<T> LoadedOrNull(Args... args) {
    auto t = std::make_unique<T>();
    if (!t->Load(args...)) t.reset();
    return t;
}

// ---- Sectors -----------------------------------------------------------------
constexpr uint32_t kSector = 2048;
// Sectors needed for a number of bytes, rounded up.
inline unsigned long SectorsFor(unsigned long bytes) {
    return bytes / kSector + (bytes % kSector ? 1 : 0);
}
// Writes zero bytes from the file's current position up to the next absolute
// 2048-byte boundary (nothing when already on one).
void PadToSector(int hFile);
// Writes n bytes at the file's current position, then pads to the next
// sector boundary: how every table ends its written form.
void WriteSectorPadded(int hFile, const void* data, size_t n);
inline void WriteSectorPadded(int hFile, const std::vector<uint8_t>& bytes) {
    WriteSectorPadded(hFile, bytes.data(), bytes.size());
}

// ---- File-open modes -------------------------------------------------------------
// The flag words FileOpen and FileCreate take (binary read, binary
// read-write, plain read-write; a new file readable and writable by its
// owner).
constexpr unsigned kOpenRead = 0x8000;
constexpr unsigned kOpenReadWrite = 0x8002;
constexpr unsigned kOpenTextReadWrite = 0x0002;
constexpr unsigned kCreateOwnerRW = 0x180;

// ---- Formatting ----------------------------------------------------------------
// printf into a fixed buffer, always terminated, never overrunning.
int FormatV(char* out, size_t size, const char* fmt, va_list ap);
int Format(char* out, size_t size, const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

// Writes value as %d does (at most 11 characters) and returns the end.
char* PutDecimal(char* out, int value);

// ---- Report lines ----------------------------------------------------------------
// The rule of every Details(buf, len): a line is appended as "%s\r\n" unless
// the characters already in buf plus the line's length reach len, in which
// case the report stops with false. Neither the line break nor the NUL is
// counted, so callers give buf three bytes of headroom beyond len. The
// length of buf is measured once and then tracked, so long reports stay
// linear.
//
// The report keeps its first refusal: once a line did not fit, ok() is false
// and every later append (lines, the closing line end) does nothing, so a
// Details writes its lines one after another and ends with `return r.ok();`.
// Code that must not run once the buffer is full (a nested PGC report written
// at Cursor(), an error text) checks ok() first.
class Report {
public:
    Report(char* buf, int len);
    // False once a line did not fit (a report without a buffer fits no line).
    bool ok() const { return ok_; }
    // Formats and appends one line; false when it does not fit.
    bool Line(const char* fmt, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;
    // Line("<head>%d<mid>%d", a, b) for literal head and mid, done without
    // reading a format: the form of every line of VOBU and time maps.
    template <size_t H, size_t M>
    bool Numbers(const char (&head)[H], int a, const char (&mid)[M], int b) {
        static_assert(H + M + 2 * 11 < kLine, "a line is at most 511 characters");
        if (!ok_) return false;
        char aside[kLine];
        char* const start = LineStart(aside);
        char* at = start;
        std::memcpy(at, head, H - 1);
        at = PutDecimal(at + H - 1, a);
        std::memcpy(at, mid, M - 1);
        at = PutDecimal(at + M - 1, b);
        return LineEnd(start, at, aside);
    }
    // Appends a text that is already formatted, under the same rule.
    bool Text(const char* line);
    // Appends "\r\n" without the room test (the closing line end), as long
    // as it stays within the caller's three bytes of headroom and no line
    // was refused.
    void End();
    // Re-measures buf after someone else appended to it.
    void Sync();
    // Where the next line goes and what has been written so far.
    char* Cursor() const { return buf_ + used_; }
    size_t Used() const { return used_; }
    // What the report has written so far, counting text a ReportStream was
    // handed: what Used() would be without the stream.
    size_t Written() const { return handed_ + used_; }
    int Len() const { return len_; }

private:
    // Lines are cut at 511 characters.
    static constexpr size_t kLine = 512;
    // Where a line of at most kLine bytes is built: in place when it is
    // certain to fit, otherwise `aside`.
    char* LineStart(char* aside) const {
        return buf_ && len_ >= 0 && size_t(len_) > used_ + kLine ? buf_ + used_ : aside;
    }
    // Completes the line built from start to end under the report rule.
    bool LineEnd(char* start, char* end, const char* aside);
    bool Append(const char* line, size_t n);

    // With a ReportStream in force: at a line end, hands the buffer's text
    // on once a piece has built up, and starts the buffer again, as long as
    // the report stays within the stream's limit.
    void Spill() {
        if (stream_ && used_ >= stream_->Piece() && handed_ + used_ <= stream_->Limit()) {
            stream_->Hand(buf_, used_);
            handed_ += used_;
            used_ = 0;
            buf_[0] = '\0';
        }
    }

    char* buf_;
    int len_;
    size_t used_;
    bool ok_ = true;
    size_t handed_ = 0;
    const ReportStream* stream_;
};

// ---- Source statements --------------------------------------------------------------
// One section of an INI source file. Keys are formatted into a key buffer,
// values into a 256-character value buffer; reading uses the default "$", so
// a value beginning with "$" is a missing statement.
class Source {
public:
    static constexpr int kValueSize = 256;

    Source(const char* iniPath, const char* section);

    // Formats a key into the key buffer and returns it.
    const char* Key(const char* fmt, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;
    const char* LastKey() const { return key_; }

    // Reads key (usually the result of Key()); false when missing. The value
    // stays in Value() until the next read.
    bool Read(const char* key);
    const char* Value() const { return value_; }
    // Decimal value as atoi reads it.
    int Int() const;

    // Formats a value and writes key=value.
    void Write(const char* key, const char* fmt, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 3, 4)))
#endif
        ;
    void WriteRaw(const char* key, const char* value);

    const char* Path() const { return path_; }
    const char* Section() const { return section_; }
    void SetSection(const char* section);

private:
    IniOperation operation_;  // the file is checked against the disk once per source in use
    const char* path_;
    char section_[64];
    char key_[256];
    char value_[kValueSize];
};

// Hexadecimal byte string: skips one leading "x", then converts two
// characters at a time into out[0..n); digits missing at the end count as 0
// and never read past the value's terminator.
void HexBytes(const char* value, uint8_t* out, size_t n);
// The same, four characters at a time into n big-endian 16-bit words.
void HexWords(const char* value, uint8_t* out, size_t words);
// A value written with a leading x read by skipping the first character only
// when it is a lower-case x (way b of the source grammar).
const char* SkipOptionalX(const char* value);

// ---- vmg: hex digit runs, numbers by width ----------------------------------
// The first n bytes of v as two lower-case hex digits each ("%02x" per
// byte): how attribute bytes are shown in reports and, after an x, sources.
inline std::string HexDigits(const ByteView& v, size_t n) {
    static const char kDigits[] = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < n; ++i) {
        out += kDigits[v.U8(i) >> 4];
        out += kDigits[v.U8(i) & 15];
    }
    return out;
}
// A big-endian number of 1, 2 or 4 bytes, as table rows give a field's width.
inline uint32_t GetBE(const ByteView& v, size_t off, size_t size) {
    return size == 1 ? v.U8(off) : size == 2 ? v.BE16(off) : v.BE32(off);
}
inline void PutBE(uint8_t* p, size_t size, uint32_t v) {
    if (size == 1)
        p[0] = uint8_t(v);
    else if (size == 2)
        PutBE16(p, v);
    else
        PutBE32(p, v);
}

// ---- Tables: bounded reads ------------------------------------------------------
// Reads up to `want` bytes at hFile's current position, never more than the
// file holds from there; `into` holds exactly what was read.
void ReadBounded(int hFile, uint32_t want, std::vector<uint8_t>& into);

}  // namespace kestro

#endif
