#include "xml_input.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <locale.h>

#include "compiled/ZQSomeIPUtf8.h"

namespace ZQSomeIP {
namespace import {

namespace {

// Each byte from `from` on that is not part of well-formed UTF-8 becomes U+FFFD (line breaks stay where
// they are, so lines still count); `count` gets how many.
std::string withReplacements(std::string_view s, size_t from, size_t& count)
{
    std::string out;
    out.reserve(s.size() + 64);
    out.append(s.substr(0, from));
    for (size_t i = from; i < s.size();) {
        const size_t n = utf8SequenceLength(s, i);
        if (n == 0) {
            out += "\xEF\xBF\xBD";
            ++count;
            ++i;
        } else {
            out.append(s.substr(i, n));
            i += n;
        }
    }
    return out;
}

// The parser converts UTF-32 without a check, so a unit that is no character would come out as bytes
// that are not UTF-8. It tells UTF-32 by a byte order mark or a '<' alone in the first unit; so does
// this. The offset of the first such unit, or npos.
size_t badUtf32Unit(std::string_view s)
{
    const std::string_view head = s.substr(0, 4);
    const bool little = head == std::string_view("\xFF\xFE\0\0", 4) || head == std::string_view("<\0\0\0", 4);
    if (!little && head != std::string_view("\0\0\xFE\xFF", 4) && head != std::string_view("\0\0\0<", 4)) {
        return std::string_view::npos;
    }
    for (size_t i = 0; i + 4 <= s.size(); i += 4) {
        uint32_t u = 0;
        for (size_t k = 0; k < 4; ++k) {
            u = (u << 8) | static_cast<unsigned char>(s[i + (little ? 3 - k : k)]);
        }
        if (u > 0x10FFFF || (u >= 0xD800 && u <= 0xDFFF)) {
            return i;
        }
    }
    return std::string_view::npos;
}

// The 1-based line of a byte of `text`.
size_t lineAt(std::string_view text, size_t offset)
{
    return 1 + static_cast<size_t>(std::count(text.begin(), text.begin() + std::min(offset, text.size()), '\n'));
}

}  // namespace

pugi::xml_parse_result XmlInput::load(pugi::xml_encoding encoding)
{
    size_ = buffer_.size();
    // In place: the DOM's strings live in the buffer, so a file costs its size plus the nodes. An
    // element's text is kept in the element (a node less for most elements of a description, a third
    // of the DOM); the readers take text through child_value(), which reads it there.
    return doc_.load_buffer_inplace(buffer_.data(), buffer_.size(), pugi::parse_default | pugi::parse_embed_pcdata,
                                    encoding);
}

std::unique_ptr<XmlInput> XmlInput::parse(std::string name, std::string text, std::string& error)
{
    std::unique_ptr<XmlInput> input(new XmlInput());
    input->name_ = std::move(name);
    if (const size_t bad = badUtf32Unit(text); bad != std::string_view::npos) {
        error = input->name_ + ": not well-formed XML (the UTF-32 unit at byte " + std::to_string(bad) +
                " is no character)";
        return nullptr;
    }
    // Names and texts end up in JSON, whose writer puts U+FFFD for every byte that is not UTF-8: two names
    // apart only there would be written the same after the readers told them apart. So such bytes are
    // read as U+FFFD from the start (an editor writing Latin-1 under a UTF-8 declaration is the usual
    // cause), and the report says so. Other encodings the parser converts itself.
    const size_t firstBad = utf8ValidPrefix(text);
    std::string original;
    if (firstBad != text.size()) {
        original = text;  // the parse below writes into the buffer
    }
    input->buffer_ = std::move(text);
    pugi::xml_parse_result result = input->load(pugi::encoding_auto);
    if (result && !original.empty() && result.encoding == pugi::encoding_utf8) {
        input->buffer_ = withReplacements(original, firstBad, input->notUtf8_.bytes);
        input->notUtf8_.line = lineAt(original, firstBad);
        original = std::string();
        result = input->load(pugi::encoding_utf8);
    }
    if (!result) {
        const size_t line = lineAt(input->buffer_, static_cast<size_t>(std::max<ptrdiff_t>(result.offset, 0)));
        error = input->name_ + ":" + std::to_string(line) + ": not well-formed XML (" + result.description() + ")";
        return nullptr;
    }
    if (!input->root()) {
        error = input->name_ + ": no root element";
        return nullptr;
    }
    return input;
}

size_t XmlInput::line(pugi::xml_node node) const
{
    const ptrdiff_t offset = node.offset_debug();
    if (offset < 0) {
        return 0;
    }
    // The in-place parse writes zeros into the buffer, never over a line break, so lines still count.
    if (lineStarts_.empty()) {
        lineStarts_.push_back(0);
        const char* const begin = buffer_.data();
        const char* const end = begin + size_;
        for (const char* p = begin; (p = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)))) != nullptr;) {
            ++p;
            lineStarts_.push_back(static_cast<size_t>(p - begin));
        }
    }
    return static_cast<size_t>(std::upper_bound(lineStarts_.begin(), lineStarts_.end(), static_cast<size_t>(offset)) -
                               lineStarts_.begin());
}

std::string_view localName(pugi::xml_node node)
{
    std::string_view n = node.name();
    const size_t colon = n.find(':');
    return colon == std::string_view::npos ? n : n.substr(colon + 1);
}

pugi::xml_node child(pugi::xml_node node, std::string_view local)
{
    for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling()) {
        if (c.type() == pugi::node_element && localName(c) == local) {
            return c;
        }
    }
    return {};
}

namespace {
std::string_view trimmed(std::string_view s)
{
    const size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string_view::npos) {
        return {};
    }
    const size_t e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}
}  // namespace

std::string_view textView(pugi::xml_node node) { return trimmed(node.child_value()); }

std::string text(pugi::xml_node node) { return std::string(textView(node)); }

std::string childText(pugi::xml_node node, std::string_view local) { return text(child(node, local)); }

std::string attribute(pugi::xml_node node, std::string_view local)
{
    for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute()) {
        std::string_view n = a.name();
        const size_t colon = n.find(':');
        if ((colon == std::string_view::npos ? n : n.substr(colon + 1)) == local) {
            return std::string(trimmed(a.value()));
        }
    }
    return {};
}

bool parseUnsigned(std::string_view t, uint64_t max, uint64_t& out)
{
    int base = 10;
    if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
        base = 16;
        t.remove_prefix(2);
    }
    if (t.empty() || t.size() > 20) {
        return false;
    }
    uint64_t v = 0;
    for (const char c : t) {
        int d = -1;
        if (c >= '0' && c <= '9') {
            d = c - '0';
        } else if (base == 16 && c >= 'a' && c <= 'f') {
            d = c - 'a' + 10;
        } else if (base == 16 && c >= 'A' && c <= 'F') {
            d = c - 'A' + 10;
        }
        if (d < 0 || v > (max - static_cast<uint64_t>(d)) / static_cast<uint64_t>(base)) {
            return false;
        }
        v = v * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
    }
    out = v;
    return true;
}

bool parseNumber(std::string_view t, double& out)
{
    if (t.empty() || t.size() > 64) {
        return false;
    }
    static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    const std::string s(t);
    char* end = nullptr;
    errno = 0;
    const double v = strtod_l(s.c_str(), &end, c);
    if (end != s.c_str() + s.size() || errno != 0 || !std::isfinite(v)) {
        return false;
    }
    out = v;
    return true;
}

}  // namespace import
}  // namespace ZQSomeIP
