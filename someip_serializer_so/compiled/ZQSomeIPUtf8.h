#ifndef ZQ_SOMEIP_UTF8_H
#define ZQ_SOMEIP_UTF8_H

// What counts as UTF-8 text, in one place and header-only: the plain codec checks strings by it, and
// the importer, which links nothing of the library, reads description text by it.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace ZQSomeIP {

// The length (1 to 4) of the well-formed UTF-8 sequence that starts at s[i], or 0 when none does: a
// stray continuation byte, a sequence cut short, an overlong form, a surrogate or a code point past
// U+10FFFF.
inline size_t utf8SequenceLength(std::string_view s, size_t i)
{
    const auto c = static_cast<unsigned char>(s[i]);
    size_t n = 0;
    uint32_t cp = 0;
    if (c < 0x80) {
        return 1;
    } else if ((c & 0xE0) == 0xC0) {
        n = 1;
        cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
        n = 2;
        cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
        n = 3;
        cp = c & 0x07;
    } else {
        return 0;
    }
    if (i + n >= s.size()) {
        return 0;
    }
    for (size_t k = 1; k <= n; ++k) {
        const auto d = static_cast<unsigned char>(s[i + k]);
        if ((d & 0xC0) != 0x80) {
            return 0;
        }
        cp = (cp << 6) | (d & 0x3F);
    }
    const uint32_t least[] = {0, 0x80, 0x800, 0x10000};
    if (cp < least[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        return 0;
    }
    return n + 1;
}

// Where the first byte that is not part of well-formed UTF-8 stands; s.size() when there is none.
inline size_t utf8ValidPrefix(std::string_view s)
{
    size_t i = 0;
    while (i < s.size()) {
        uint64_t eight = 0;  // most text is ASCII: eight bytes without a high bit at a time
        if (i + 8 <= s.size() && (std::memcpy(&eight, s.data() + i, 8), eight & 0x8080808080808080u) == 0) {
            i += 8;
            continue;
        }
        const size_t n = utf8SequenceLength(s, i);
        if (n == 0) {
            return i;
        }
        i += n;
    }
    return s.size();
}

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_UTF8_H
