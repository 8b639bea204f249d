// Report lines, source statements and bounded formatting.
#include "frame/detail.h"

#include <cstdio>
#include <cstdlib>

#include "kestro/frame.h"
#include "kestro/ini.h"

namespace kestro {

namespace {

// One conversion of a format: "%[-0][width][.precision][hh|h|l|ll|z]conv".
struct Conversion {
    bool left = false, zero = false, hasPrecision = false;
    size_t width = 0, precision = 0;
    int length = 0;  // -2 hh, -1 h, 0 int, 1 long, 2 long long, 3 size_t
    char conv = 0;
};

// Reads the conversion after a '%'. False for anything the formatter below
// does not do itself ('+', ' ', '#' flags, '*' widths, precision on numbers,
// other conversions): such formats go to vsnprintf whole.
bool ParseConversion(const char*& p, Conversion& s) {
    for (;; ++p) {
        if (*p == '-')
            s.left = true;
        else if (*p == '0')
            s.zero = true;
        else
            break;
    }
    while (*p >= '0' && *p <= '9') {
        s.width = s.width * 10 + size_t(*p++ - '0');
        if (s.width > 4096) return false;
    }
    if (*p == '.') {
        s.hasPrecision = true;
        ++p;
        while (*p >= '0' && *p <= '9') {
            s.precision = s.precision * 10 + size_t(*p++ - '0');
            if (s.precision > 4096) return false;
        }
    }
    if (*p == 'h') {
        s.length = p[1] == 'h' ? -2 : -1;
        p += s.length == -2 ? 2 : 1;
    } else if (*p == 'l') {
        s.length = p[1] == 'l' ? 2 : 1;
        p += s.length;
    } else if (*p == 'z') {
        s.length = 3;
        ++p;
    }
    s.conv = *p;
    if (s.conv) ++p;
    switch (s.conv) {
    case '%': return !s.left && !s.zero && !s.width && !s.hasPrecision && !s.length;
    case 'c': return !s.zero && !s.hasPrecision && !s.length;
    case 's': return !s.zero && !s.length;
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X': return !s.hasPrecision;
    default: return false;
    }
}

// The output side: writes what fits (the last byte stays for the NUL) and
// remembers where the first NUL went (a %c of a zero byte), which is where
// the text ends for a reader of C strings. Pieces are short (digits, names):
// plain loops beat library calls.
struct Sink {
    char* at;
    char* end;
    char* firstNul = nullptr;

    void Put(const char* s, size_t n) {
        for (; n && at != end; --n) *at++ = *s++;
    }
    void Fill(char c, size_t n) {
        for (; n && at != end; --n) *at++ = c;
    }
    void Pad(const Conversion& s, size_t n, bool before) {
        if (s.width > n && s.left != before) Fill(' ', s.width - n);
    }
};

// The decimal digit pairs "00" to "99".
constexpr char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes v in decimal so that it ends just before `last`; returns its start.
char* DecimalDigits(unsigned long long v, char* last) {
    char* d = last;
    for (; v >= 100; v /= 100) {
        const unsigned pair = unsigned(v % 100) * 2;
        *--d = kPairs[pair + 1];
        *--d = kPairs[pair];
    }
    if (v >= 10) {
        *--d = kPairs[v * 2 + 1];
        *--d = kPairs[v * 2];
    } else {
        *--d = char('0' + v);
    }
    return d;
}

void PutInteger(Sink& out, const Conversion& s, va_list* ap) {
    unsigned long long v;
    bool negative = false;
    if (s.conv == 'd' || s.conv == 'i') {
        long long sv;
        switch (s.length) {
        case -2: sv = static_cast<signed char>(va_arg(*ap, int)); break;
        case -1: sv = static_cast<short>(va_arg(*ap, int)); break;
        case 1: sv = va_arg(*ap, long); break;
        case 2: sv = va_arg(*ap, long long); break;
        case 3: sv = static_cast<long long>(va_arg(*ap, ptrdiff_t)); break;
        default: sv = va_arg(*ap, int); break;
        }
        negative = sv < 0;
        v = static_cast<unsigned long long>(sv);
        if (negative) v = 0ULL - v;
    } else {
        switch (s.length) {
        case -2: v = static_cast<unsigned char>(va_arg(*ap, unsigned)); break;
        case -1: v = static_cast<unsigned short>(va_arg(*ap, unsigned)); break;
        case 1: v = va_arg(*ap, unsigned long); break;
        case 2: v = va_arg(*ap, unsigned long long); break;
        case 3: v = va_arg(*ap, size_t); break;
        default: v = va_arg(*ap, unsigned); break;
        }
    }
    char digits[24];
    char* const last = digits + sizeof digits;
    char* d = last;
    if (s.conv == 'x' || s.conv == 'X') {
        const char* set = s.conv == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
        do {
            *--d = set[v & 15];
            v >>= 4;
        } while (v);
    } else {
        d = DecimalDigits(v, last);
    }
    const size_t n = size_t(last - d) + (negative ? 1 : 0);
    if (!s.zero || s.left) out.Pad(s, n, true);
    if (negative) out.Put("-", 1);
    if (s.zero && !s.left && s.width > n) out.Fill('0', s.width - n);
    out.Put(d, size_t(last - d));
    out.Pad(s, n, false);
}

// Reports and sources format tens of thousands of short lines made of a few
// conversions (%d, %02x, %s, ...). This formats that subset in one pass, with
// the output vsnprintf gives; false (output incomplete) at the first
// conversion it does not do, and the caller starts over with vsnprintf.
bool FastFormat(Sink& result, const char* fmt, va_list* ap) {
    Sink out = result;  // a local copy keeps the cursor in registers
    for (const char* p = fmt;;) {
        // Literal text is copied as it is scanned: formats are short.
        char c;
        while ((c = *p) != 0 && c != '%') {
            if (out.at != out.end) *out.at++ = c;
            ++p;
        }
        if (!c) break;
        ++p;
        Conversion s;
        if (!ParseConversion(p, s)) return false;
        switch (s.conv) {
        case '%': out.Put("%", 1); break;
        case 'c': {
            const char ch = char(va_arg(*ap, int));
            out.Pad(s, 1, true);
            if (!ch && !out.firstNul && out.at != out.end) out.firstNul = out.at;
            out.Put(&ch, 1);
            out.Pad(s, 1, false);
            break;
        }
        case 's': {
            const char* str = va_arg(*ap, const char*);
            if (!str) str = !s.hasPrecision || s.precision >= 6 ? "(null)" : "";
            const size_t n = s.hasPrecision ? strnlen(str, s.precision) : std::strlen(str);
            out.Pad(s, n, true);
            out.Put(str, n);
            out.Pad(s, n, false);
            break;
        }
        default: PutInteger(out, s, ap); break;
        }
    }
    result = out;
    return true;
}

// Formats into out (size > 0, always terminated); returns the characters
// written and sets *textEnd to the first NUL written.
size_t FormatInto(char* out, size_t size, const char* fmt, va_list ap, char** textEnd) {
    if (!fmt) {
        out[0] = 0;
        *textEnd = out;
        return 0;
    }
    Sink sink{out, out + size - 1};
    va_list fast;
    va_copy(fast, ap);
    const bool done = FastFormat(sink, fmt, &fast);
    va_end(fast);
    if (done) {
        *sink.at = 0;
        *textEnd = sink.firstNul ? sink.firstNul : sink.at;
        return size_t(sink.at - out);
    }
    int n = std::vsnprintf(out, size, fmt, ap);
    if (n < 0) {
        out[0] = 0;
        n = 0;
    }
    const size_t written = size_t(n) >= size ? size - 1 : size_t(n);
    *textEnd = out + strnlen(out, written);
    return written;
}

}  // namespace

namespace {

char* PutPair(char* out, uint32_t pair) {
    std::memcpy(out, kPairs + 2 * pair, 2);
    return out + 2;
}
// 1 to 4 digits of v < 10,000, no leading zeros.
char* PutUpTo4(char* out, uint32_t v) {
    if (v < 100) {
        if (v < 10) {
            *out = char('0' + v);
            return out + 1;
        }
        return PutPair(out, v);
    }
    const uint32_t hi = v / 100;
    if (hi < 10)
        *out++ = char('0' + hi);
    else
        out = PutPair(out, hi);
    return PutPair(out, v % 100);
}
// Exactly 4 digits of v < 10,000.
char* Put4(char* out, uint32_t v) { return PutPair(PutPair(out, v / 100), v % 100); }

}  // namespace

// Map lines put hundreds of thousands of numbers: split by magnitude into
// groups of four digits and written by digit pairs, without a loop.
char* PutDecimal(char* out, int value) {
    if (value < 0) *out++ = '-';
    const uint32_t v = value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    if (v < 10000) return PutUpTo4(out, v);
    if (v < 100000000) return Put4(PutUpTo4(out, v / 10000), v % 10000);
    const uint32_t low = v % 100000000;
    return Put4(Put4(PutUpTo4(out, v / 100000000), low / 10000), low % 10000);
}

int FormatV(char* out, size_t size, const char* fmt, va_list ap) {
    if (!out || size == 0) return 0;
    char* textEnd;
    return int(FormatInto(out, size, fmt, ap, &textEnd));
}

int Format(char* out, size_t size, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int n = FormatV(out, size, fmt, ap);
    va_end(ap);
    return n;
}

// ---- Report ----------------------------------------------------------------

namespace {
thread_local ReportStream* t_stream = nullptr;
}  // namespace

ReportStream::ReportStream(Sink sink, void* context, size_t piece, size_t limit)
    : sink_(sink), context_(context), piece_(piece ? piece : 1), limit_(limit), outer_(t_stream) {
    if (sink_) t_stream = this;
}

ReportStream::~ReportStream() {
    // Unlinked from the thread's chain of streams wherever it stands in it.
    if (t_stream == this) {
        t_stream = outer_;
        return;
    }
    for (ReportStream* s = t_stream; s; s = s->outer_)
        if (s->outer_ == this) {
            s->outer_ = outer_;
            return;
        }
}

const ReportStream* ReportStream::Current() { return t_stream; }

Report::Report(char* buf, int len)
    : buf_(buf),
      len_(len),
      used_(buf ? std::strlen(buf) : 0),
      stream_(buf ? ReportStream::Current() : nullptr) {}

// Sync follows text appended at the cursor by someone else (a PGC report, a
// line break); it is always at a line end.
void Report::Sync() {
    used_ = buf_ ? std::strlen(buf_) : 0;
    Spill();
}

bool Report::Text(const char* line) { return Append(line, std::strlen(line)); }

bool Report::Append(const char* line, size_t n) {
    if (!ok_) return false;
    if (!buf_ || len_ < 0 || used_ + n >= size_t(len_)) {
        ok_ = false;
        return false;
    }
    std::memcpy(buf_ + used_, line, n);
    used_ += n;
    std::memcpy(buf_ + used_, "\r\n", 3);
    used_ += 2;
    Spill();
    return true;
}

bool Report::LineEnd(char* start, char* end, const char* aside) {
    if (start == aside) return Append(aside, size_t(end - aside));
    std::memcpy(end, "\r\n", 3);
    used_ += size_t(end - start) + 2;
    Spill();
    return true;
}

bool Report::Line(const char* fmt, ...) {
    if (!ok_) return false;
    // A NUL formatted into a line (a %c of a zero byte) ends the line there.
    char aside[kLine];
    char* const start = LineStart(aside);
    char* textEnd;
    va_list ap;
    va_start(ap, fmt);
    FormatInto(start, kLine, fmt, ap, &textEnd);
    va_end(ap);
    return LineEnd(start, textEnd, aside);
}

void Report::End() {
    // The closing line end takes no room test, but it must stay inside the
    // three bytes of headroom callers give beyond len: after a last line
    // that used the headroom it is left out.
    if (!ok_ || !buf_ || len_ < 0 || used_ > size_t(len_)) return;
    std::memcpy(buf_ + used_, "\r\n", 3);
    used_ += 2;
}

// ---- Source ------------------------------------------------------------------

Source::Source(const char* iniPath, const char* section) : path_(iniPath), key_{}, value_{} {
    SetSection(section);
}

void Source::SetSection(const char* section) {
    Format(section_, sizeof section_, "%s", section ? section : "");
}

const char* Source::Key(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    FormatV(key_, sizeof key_, fmt, ap);
    va_end(ap);
    return key_;
}

bool Source::Read(const char* key) {
    if (key != key_) Format(key_, sizeof key_, "%s", key);
    INIGetPrivateProfileString(section_, key_, "$", value_, kValueSize, path_);
    return value_[0] != '$';
}

int Source::Int() const { return std::atoi(value_); }

void Source::Write(const char* key, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    FormatV(value_, sizeof value_, fmt, ap);
    va_end(ap);
    WriteRaw(key, value_);
}

void Source::WriteRaw(const char* key, const char* value) {
    INIWritePrivateProfileString(section_, key, value, path_);
}

}  // namespace kestro
