#include "ZQSomeIPJsonText.h"

namespace ZQSomeIP {

void appendJsonString(std::string& out, std::string_view text)
{
    static const char hex[] = "0123456789abcdef";
    out += '"';
    size_t run = 0;
    for (size_t i = 0; i < text.size(); ++i) {
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
