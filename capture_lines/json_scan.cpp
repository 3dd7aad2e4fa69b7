#include "json_scan.h"

#include <charconv>

#include "compiled/ZQSomeIPJsonText.h"

namespace capture_lines {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

} // namespace

bool JsonScanner::take(char c)
{
    if (peek() != c) {
        return false;
    }
    ++at_;
    return true;
}

bool JsonScanner::literal(std::string_view word)
{
    skipBlanks();
    if (text_.substr(at_, word.size()) != word) {
        return false;
    }
    at_ += word.size();
    return true;
}

bool JsonScanner::string(std::string& scratch, std::string_view& out)
{
    if (!take('"')) {
        return false;
    }
    const size_t begin = at_;
    while (at_ < text_.size()) {
        const char c = text_[at_];
        if (c == '"') {
            out = text_.substr(begin, at_ - begin);
            ++at_;
            return true;
        }
        if (c == '\\') {
            if (!unescape(begin, scratch)) {
                return false;
            }
            out = scratch;
            return true;
        }
        ++at_;
    }
    return false;
}

bool JsonScanner::hex4(uint32_t& unit)
{
    if (text_.size() - at_ < 4) {
        return false;
    }
    unit = 0;
    for (int k = 0; k < 4; ++k) {
        const char c = text_[at_++];
        const uint32_t v = isDigit(c) ? uint32_t(c - '0')
                           : (c >= 'a' && c <= 'f') ? uint32_t(c - 'a' + 10)
                           : (c >= 'A' && c <= 'F') ? uint32_t(c - 'A' + 10) : 16u;
        if (v > 15) {
            return false;
        }
        unit = unit * 16 + v;
    }
    return true;
}

// The rest of a string that holds an escape, from `begin` (after the opening quote) into `scratch`.
bool JsonScanner::unescape(size_t begin, std::string& scratch)
{
    scratch.assign(text_.data() + begin, at_ - begin);
    while (at_ < text_.size()) {
        const char c = text_[at_++];
        if (c == '"') {
            return true;
        }
        if (c != '\\') {
            scratch += c;
            continue;
        }
        if (at_ >= text_.size()) {
            return false;
        }
        const char e = text_[at_++];
        switch (e) {
        case '"': case '\\': case '/': scratch += e; break;
        case 'n': scratch += '\n'; break;
        case 'r': scratch += '\r'; break;
        case 't': scratch += '\t'; break;
        case 'b': scratch += '\b'; break;
        case 'f': scratch += '\f'; break;
        case 'u': {
            uint32_t unit = 0;
            if (!hex4(unit)) {
                return false;
            }
            // A surrogate pair makes one code point; a lone surrogate stands for U+FFFD, as a decoder
            // replacing what it cannot represent would write it.
            if (unit >= 0xD800 && unit < 0xDC00 && text_.substr(at_, 2) == "\\u") {
                const size_t mark = at_;
                at_ += 2;
                uint32_t low = 0;
                if (hex4(low) && low >= 0xDC00 && low < 0xE000) {
                    unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                } else {
                    at_ = mark;
                }
            }
            ZQSomeIP::appendUtf8(scratch, unit >= 0xD800 && unit < 0xE000 ? 0xFFFDu : unit);
            break;
        }
        default:
            return false;
        }
    }
    return false;
}

bool JsonScanner::number(JsonNumber& out)
{
    skipBlanks();
    const size_t begin = at_;
    size_t p = at_;
    if (p < text_.size() && text_[p] == '-') {
        ++p;
    }
    const size_t digits = p;
    while (p < text_.size() && isDigit(text_[p])) {
        ++p;
    }
    if (p == digits) {
        return false;
    }
    bool integer = true;
    if (p < text_.size() && text_[p] == '.') {
        integer = false;
        for (++p; p < text_.size() && isDigit(text_[p]);) {
            ++p;
        }
    }
    if (p < text_.size() && (text_[p] == 'e' || text_[p] == 'E')) {
        integer = false;
        ++p;
        if (p < text_.size() && (text_[p] == '+' || text_[p] == '-')) {
            ++p;
        }
        for (; p < text_.size() && isDigit(text_[p]);) {
            ++p;
        }
    }
    const char* first = text_.data() + begin;
    const char* last = text_.data() + p;
    at_ = p;
    if (integer) {
        if (std::from_chars(first, last, out.i).ec == std::errc()) {
            out.kind = JsonNumber::Int;
            out.d = static_cast<double>(out.i);
            return true;
        }
        if (*first != '-' && std::from_chars(first, last, out.u).ec == std::errc()) {
            out.kind = JsonNumber::UInt;
            out.d = static_cast<double>(out.u);
            return true;
        }
    }
    out.kind = JsonNumber::Real;
    const auto res = std::from_chars(first, last, out.d);
    return res.ptr == last && (res.ec == std::errc() || res.ec == std::errc::result_out_of_range);
}

bool JsonScanner::skipValue(std::string_view& span, int depth)
{
    const char c = peek();
    const size_t begin = at_;
    std::string_view s;
    bool ok = true;
    if (c == '{' || c == '[') {
        if (depth >= kMaxDepth) {
            return false;
        }
        const char close = c == '{' ? '}' : ']';
        ++at_;
        if (!take(close)) {
            do {
                std::string_view inner;
                if (c == '{' && !(string(skipScratch_, s) && take(':'))) {
                    return false;
                }
                if (!skipValue(inner, depth + 1)) {
                    return false;
                }
            } while (take(','));
            ok = take(close);
        }
    } else if (c == '"') {
        ok = string(skipScratch_, s);
    } else if (c == 't' || c == 'f' || c == 'n') {
        ok = literal("true") || literal("false") || literal("null");
    } else {
        JsonNumber n;
        ok = number(n);
    }
    span = text_.substr(begin, at_ - begin);
    return ok;
}

namespace {

// The members or elements of a container after its opening bracket, up to its closing one.
bool walkItems(JsonScanner& scanner, JsonVisitor& visitor, std::string& scratch, int depth, bool object)
{
    const char close = object ? '}' : ']';
    if (scanner.take(close)) {
        return true;
    }
    std::string_view name;
    do {
        if (object) {
            if (!scanner.string(scratch, name) || !scanner.take(':')) {
                return false;
            }
            visitor.key(name);
        }
        if (!walkValue(scanner, visitor, scratch, depth + 1)) {
            return false;
        }
    } while (scanner.take(','));
    return scanner.take(close);
}

} // namespace

bool walkValue(JsonScanner& scanner, JsonVisitor& visitor, std::string& scratch, int depth)
{
    const char c = scanner.peek();
    if (c == '{' || c == '[') {
        const bool object = c == '{';
        if (depth >= JsonScanner::kMaxDepth) {
            return false;
        }
        scanner.take(c);
        object ? visitor.beginObject() : visitor.beginArray();
        if (!walkItems(scanner, visitor, scratch, depth, object)) {
            return false;
        }
        object ? visitor.endObject() : visitor.endArray();
        return true;
    }
    if (c == '"') {
        std::string_view s;
        if (!scanner.string(scratch, s)) {
            return false;
        }
        visitor.string(s);
        return true;
    }
    if (c == 't' || c == 'f') {
        if (!scanner.literal(c == 't' ? "true" : "false")) {
            return false;
        }
        visitor.boolean(c == 't');
        return true;
    }
    if (scanner.literal("null")) {
        visitor.null();
        return true;
    }
    JsonNumber n;
    if (!scanner.number(n)) {
        return false;
    }
    visitor.number(n);
    return true;
}

bool walkJson(std::string_view text, JsonVisitor& visitor)
{
    JsonScanner scanner(text);
    std::string scratch;
    return walkValue(scanner, visitor, scratch) && scanner.atEnd();
}

} // namespace capture_lines
