// One description file parsed into a DOM, with what the readers need around it: element names without
// their namespace prefix, children by name, line numbers and places for the report.
#ifndef ZQ_SOMEIP_IMPORT_XML_INPUT_H
#define ZQ_SOMEIP_IMPORT_XML_INPUT_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

#include "ZQSomeIPImport.h"

namespace ZQSomeIP {
namespace import {

// Where an element stands, as the report gives it.
struct Place {
    std::string file;
    size_t line = 0;
    std::string path;
};

class XmlInput {
public:
    // The file read and parsed; null with `error` (file, line, what) when it is not well-formed XML.
    static std::unique_ptr<XmlInput> parse(std::string name, std::string text, std::string& error);

    const std::string& name() const { return name_; }
    pugi::xml_node root() const { return doc_.document_element(); }
    // 1-based line of an element (counted once, on the first call, for the whole file).
    size_t line(pugi::xml_node node) const;
    Place place(pugi::xml_node node, std::string path) const { return {name_, line(node), std::move(path)}; }
    size_t bytes() const { return size_; }
    // Bytes of the file that were not UTF-8 and are read as U+FFFD, and the line of the first.
    struct NotUtf8 {
        size_t bytes = 0;
        size_t line = 0;
    };
    const NotUtf8& notUtf8() const { return notUtf8_; }

private:
    XmlInput() = default;
    pugi::xml_parse_result load(pugi::xml_encoding encoding);
    std::string name_;
    std::string buffer_;  // the DOM's strings point into it
    size_t size_ = 0;
    pugi::xml_document doc_;
    mutable std::vector<size_t> lineStarts_;
    NotUtf8 notUtf8_;
};

// An element's name without its namespace prefix ("fx:SERVICE-INTERFACE" -> "SERVICE-INTERFACE").
std::string_view localName(pugi::xml_node node);
// The first child element of that local name, or an empty node.
pugi::xml_node child(pugi::xml_node node, std::string_view local);
// The text of the first child element of that local name, trimmed; empty when there is none.
std::string childText(pugi::xml_node node, std::string_view local);
// An element's own text, trimmed.
std::string text(pugi::xml_node node);
// The same, as a view into the document.
std::string_view textView(pugi::xml_node node);
// The value of an attribute by its local name.
std::string attribute(pugi::xml_node node, std::string_view local);
// Calls f(child) for every child element of that local name.
template <typename F>
void forChildren(pugi::xml_node node, std::string_view local, F f)
{
    for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling()) {
        if (c.type() == pugi::node_element && localName(c) == local) {
            f(c);
        }
    }
}

// A decimal or 0x-hexadecimal integer up to `max`; false for anything else.
bool parseUnsigned(std::string_view text, uint64_t max, uint64_t& out);
// A decimal number (integer or fraction, optional sign and exponent).
bool parseNumber(std::string_view text, double& out);

}  // namespace import
}  // namespace ZQSomeIP

#endif
