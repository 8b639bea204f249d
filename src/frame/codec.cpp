// Hexadecimal text codecs. The digit test is isalnum, not isxdigit: letters
// beyond f are accepted and give (code - 7) AND 15, and an upper-case X is a
// digit, not a prefix.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/detail.h"
#include "kestro/frame.h"

namespace {

bool IsAlnum(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

unsigned Nibble(unsigned char c) {
    if (c >= '0' && c <= '9') return c & 15u;
    if (c >= 'A' && c <= 'Z') c = static_cast<unsigned char>(c - 'A' + 'a');
    return (c - 7u) & 15u;
}

// Exactly `width` characters; anything that is not a letter or digit counts
// as 0. The scan does not stop at the terminator, but it never reads past
// it either: missing characters count as 0.
unsigned long FixedWidth(const char* text, int width) {
    unsigned long r = 0;
    bool ended = (text == nullptr);
    for (int i = 0; i < width; ++i) {
        r <<= 4;
        if (ended) continue;
        auto c = static_cast<unsigned char>(text[i]);
        if (c == 0) {
            ended = true;
            continue;
        }
        if (IsAlnum(c)) r |= Nibble(c);
    }
    return r;
}

}  // namespace

unsigned long axtoi(const char* text) {
    if (!text) return 0;
    auto n = static_cast<uint16_t>(std::strlen(text));
    uint16_t i = (text[0] == 'x') ? 1 : 0;
    if (i >= n) return 0;
    uint32_t r = 0;
    while (i < n && IsAlnum(static_cast<unsigned char>(text[i]))) {
        r = (r << 4) | Nibble(static_cast<unsigned char>(text[i]));
        ++i;
    }
    return r;
}

unsigned long axtoib(const char* text) { return FixedWidth(text, 2); }
unsigned long axtoiw(const char* text) { return FixedWidth(text, 4); }

namespace kestro {

void HexBytes(const char* value, uint8_t* out, size_t n) {
    const char* p = value && value[0] == 'x' ? value + 1 : value;
    size_t avail = p ? std::strlen(p) : 0;
    for (size_t k = 0; k < n; ++k) {
        size_t at = 2 * k;
        out[k] = static_cast<uint8_t>(at < avail ? axtoib(p + at) : 0);
    }
}

void HexWords(const char* value, uint8_t* out, size_t words) {
    const char* p = value && value[0] == 'x' ? value + 1 : value;
    size_t avail = p ? std::strlen(p) : 0;
    for (size_t k = 0; k < words; ++k) {
        size_t at = 4 * k;
        PutBE16(out + 2 * k, static_cast<uint32_t>(at < avail ? axtoiw(p + at) : 0));
    }
}

const char* SkipOptionalX(const char* value) {
    return (value && value[0] == 'x') ? value + 1 : value;
}

}  // namespace kestro
