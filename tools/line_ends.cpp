#include "line_ends.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kestro_tool {

// The library writes report lines ending in "\r\n"; the terminal gets "\n".
// The "\r"s are squeezed out in place, so that each piece of a report goes
// out in one write. Reports are hundreds of thousands of short lines, so
// the text is taken sixteen bytes at a time: the bytes between two "\r"s of
// a block go out in one sixteen-byte store, the overshoot being overwritten
// by the next store. That is safe only once the output runs at least
// sixteen bytes behind the input (sixteen "\r"s gone): before, and for the
// last bytes, byte by byte.
size_t SqueezeCarriageReturns(char* text, size_t size) {
    char* out = text;
    size_t i = 0;
#if defined(__SSE2__)
    for (; i < size && text + i - out < 16; ++i)
        if (text[i] != '\r') *out++ = text[i];
    const __m128i cr = _mm_set1_epi8('\r');
    auto copy16 = [&](size_t from) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + from)));
    };
    // Loads reach 15 bytes past the block: stop a block early.
    for (; i + 32 <= size; i += 16) {
        unsigned mask = unsigned(_mm_movemask_epi8(
            _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i)), cr)));
        unsigned from = 0;
        for (; mask; mask &= mask - 1) {
            const unsigned at = unsigned(__builtin_ctz(mask));
            copy16(i + from);
            out += at - from;
            from = at + 1;
        }
        copy16(i + from);
        out += 16 - from;
    }
#endif
    for (; i < size; ++i)
        if (text[i] != '\r') *out++ = text[i];
    return size_t(out - text);
}

}  // namespace kestro_tool
