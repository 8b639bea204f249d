// Report lines, source statements and bounded formatting.
#include "frame/detail.h"

#include <cstdio>
#include <cstdlib>

#include "kestro/frame.h"
#include "kestro/ini.h"

namespace kestro {

int FormatV(char* out, size_t size, const char* fmt, va_list ap) {
    if (!out || size == 0) return 0;
    int n = std::vsnprintf(out, size, fmt, ap);
    if (n < 0) {
        out[0] = 0;
        return 0;
    }
    return static_cast<size_t>(n) >= size ? static_cast<int>(size - 1) : n;
}

int Format(char* out, size_t size, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int n = FormatV(out, size, fmt, ap);
    va_end(ap);
    return n;
}

// ---- Report ----------------------------------------------------------------

Report::Report(char* buf, int len) : buf_(buf), len_(len), used_(buf ? std::strlen(buf) : 0) {}

void Report::Sync() { used_ = buf_ ? std::strlen(buf_) : 0; }

bool Report::Text(const char* line) {
    size_t n = std::strlen(line);
    if (!buf_ || len_ < 0 || used_ + n >= size_t(len_)) return false;
    std::memcpy(buf_ + used_, line, n);
    used_ += n;
    std::memcpy(buf_ + used_, "\r\n", 3);
    used_ += 2;
    return true;
}

bool Report::Line(const char* fmt, ...) {
    char line[512];
    va_list ap;
    va_start(ap, fmt);
    FormatV(line, sizeof line, fmt, ap);
    va_end(ap);
    return Text(line);
}

void Report::End() {
    // The closing line end takes no room test, but it must stay inside the
    // three bytes of headroom callers give beyond len: after a last line
    // that used the headroom it is left out.
    if (!buf_ || len_ < 0 || used_ > size_t(len_)) return;
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
