// Number text as format description documents hold it (IDs, counts, values of the classic parameter
// list): the one reading rule, StringToNum, and its quick form. No state; the format store, its index
// and compiled/ all read numbers through these.
#ifndef ZQ_SOMEIP_NUMBER_TEXT_H
#define ZQ_SOMEIP_NUMBER_TEXT_H

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>

namespace ZQSomeIP {

// Reads a number of type T from text with an input string stream, and nothing else: decimal only,
// leading blanks skipped, reading stops at the first character that cannot continue the number,
// out-of-range values saturate, "-1" wraps for unsigned types. The stream's state is deliberately not
// examined. The result starts out as the text's length, which is what text made only of blanks yields
// (the stream leaves the value alone when it finds nothing to read).
template <typename T>
T StringToNum(const std::string& text)
{
    std::istringstream stream(text);
    T number = static_cast<T>(text.length());
    stream >> number;
    return number;
}

// The number StringToNum<T> reads from `text`, computed directly when the text is a plain decimal
// that fits T (a string stream costs more than the rest of a lookup or a value write); anything else
// goes through StringToNum itself, whose reading rules are the reference.
template <typename T>
T quickStringToNum(const std::string& text)
{
    const char* p = text.c_str();
    if constexpr (std::is_floating_point<T>::value) {
        // digits, optionally one point and more digits: the stream hands exactly this to strtod.
        const char* q = p + (*p == '-');
        size_t digits = 0;
        while (*q >= '0' && *q <= '9') {
            ++q;
            ++digits;
        }
        if (digits > 0 && *q == '.') {
            ++q;
            while (*q >= '0' && *q <= '9') {
                ++q;
                ++digits;
            }
        }
        if (digits == 0 || *q != '\0' || digits > 40) {
            return StringToNum<T>(text);
        }
        errno = 0;
        char* end = nullptr;
        const T v = std::is_same<T, float>::value ? static_cast<T>(strtof(p, &end)) : static_cast<T>(strtod(p, &end));
        if (errno != 0 || end != q || !std::isfinite(v)) {
            return StringToNum<T>(text);
        }
        return v;
    } else {
        const bool negative = *p == '-';
        if (negative && std::is_unsigned<T>::value) {
            return StringToNum<T>(text);
        }
        const char* q = p + negative;
        // Digits that always fit: 4 for 16 bits, 9 for 32; 64-bit values are checked against the limit.
        const size_t fit = sizeof(T) == 2 ? 4 : sizeof(T) == 4 ? 9 : 20;
        uint64_t v = 0;
        size_t n = 0;
        bool overflow = false;
        while (q[n] >= '0' && q[n] <= '9') {
            overflow |= __builtin_mul_overflow(v, 10u, &v);
            overflow |= __builtin_add_overflow(v, static_cast<uint64_t>(q[n] - '0'), &v);
            ++n;
        }
        const uint64_t limit = std::is_signed<T>::value ? static_cast<uint64_t>(std::numeric_limits<T>::max()) + negative
                                                        : static_cast<uint64_t>(std::numeric_limits<T>::max());
        if (n == 0 || n > fit || q[n] != '\0' || overflow || v > limit) {
            return StringToNum<T>(text);
        }
        return negative ? static_cast<T>(0 - v) : static_cast<T>(v);
    }
}

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_NUMBER_TEXT_H
