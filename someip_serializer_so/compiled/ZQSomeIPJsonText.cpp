#include "ZQSomeIPJsonText.h"

#include <cstring>

namespace ZQSomeIP {

namespace {

// Whether one of eight bytes is a control character, a quote or a backslash. Exact: the borrow that
// could mark a byte wrongly only ever follows a byte marked rightly.
bool anyToEscape(uint64_t w)
{
    constexpr uint64_t ones = 0x0101010101010101u;
    const uint64_t quote = w ^ (ones * '"');
    const uint64_t backslash = w ^ (ones * '\\');
    return ((((w - ones * 0x20) & ~w) | ((quote - ones) & ~quote) | ((backslash - ones) & ~backslash)) &
            (ones * 0x80)) != 0;
}

} // namespace

void appendJsonString(std::string& out, std::string_view text)
{
    static const char hex[] = "0123456789abcdef";
    out += '"';
    size_t run = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        uint64_t eight = 0;  // most text needs no escape: eight bytes at a time
        while (i + 8 <= text.size() && (memcpy(&eight, text.data() + i, 8), !anyToEscape(eight))) {
            i += 8;
        }
        if (i == text.size()) {
            break;
        }
        const auto u = static_cast<unsigned char>(text[i]);
        if (u >= 0x20 && u != '"' && u != '\\') {
            continue;
        }
        out.append(text.data() + run, i - run);
        run = i + 1;
        switch (u) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        default:
            out += "\\u00";
            out += hex[u >> 4];
            out += hex[u & 15];
        }
    }
    out.append(text.data() + run, text.size() - run);
    out += '"';
}

void appendHex(std::string& out, const uint8_t* data, size_t size)
{
    static const char digits[] = "0123456789abcdef";
    const size_t start = out.size();
    out.resize(start + size * 2);
    char* p = &out[start];
    for (size_t i = 0; i < size; ++i) {
        *p++ = digits[data[i] >> 4];
        *p++ = digits[data[i] & 0x0F];
    }
}

void appendUtf8(std::string& out, uint32_t cp)
{
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

} // namespace ZQSomeIP
