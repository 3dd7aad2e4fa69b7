#include "xml_input.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <locale.h>

namespace ZQSomeIP {
namespace import {

std::unique_ptr<XmlInput> XmlInput::parse(std::string name, std::string text, std::string& error)
{
    std::unique_ptr<XmlInput> input(new XmlInput());
    input->name_ = std::move(name);
    input->buffer_ = std::move(text);
    input->size_ = input->buffer_.size();
    // In place: the DOM's strings live in the buffer, so a file costs its size plus the nodes. An
    // element's text is kept in the element (a node less for most elements of a description, a third
    // of the DOM); the readers take text through child_value(), which reads it there.
    const pugi::xml_parse_result result = input->doc_.load_buffer_inplace(input->buffer_.data(), input->buffer_.size(),
                                                                          pugi::parse_default | pugi::parse_embed_pcdata);
    if (!result) {
        const size_t offset = std::min<size_t>(static_cast<size_t>(std::max<ptrdiff_t>(result.offset, 0)), input->size_);
        const size_t line = 1 + static_cast<size_t>(std::count(input->buffer_.begin(),
                                                               input->buffer_.begin() + static_cast<ptrdiff_t>(offset), '\n'));
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
