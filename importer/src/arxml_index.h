// One index over every ARXML input: each element with a SHORT-NAME under its absolute short-name path
// (/Package/SubPackage/Element/...), and references resolved through it. Joining elements by anything
// but these paths (short names alone, document order) would pair the wrong ones as soon as two packages
// reuse a name, which real exports do all the time.
#ifndef ZQ_SOMEIP_IMPORT_ARXML_INDEX_H
#define ZQ_SOMEIP_IMPORT_ARXML_INDEX_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "format_builder.h"
#include "xml_input.h"

namespace ZQSomeIP {
namespace import {

// An element and the file it stands in (for lines in the report).
struct Element {
    const XmlInput* input = nullptr;
    pugi::xml_node node;
    explicit operator bool() const { return input != nullptr && node; }
    std::string_view kind() const { return localName(node); }
};

// An XML boolean's value ("true" or "1").
inline bool isTrue(const std::string& text) { return text == "true" || text == "1"; }

class PathIndex {
public:
    // Walks every input once. Elements whose local name is in `collect` are also listed by kind, in
    // input and document order. A path defined twice (packages aside, which merge across files) is
    // reported; the later definition wins, as for services.
    PathIndex(const std::vector<const XmlInput*>& inputs, const std::vector<std::string_view>& collect, Report& report);

    // The element at an absolute path; empty when there is none.
    Element find(std::string_view path) const;
    // The element a reference (an element whose text is a path: *-REF, *-TREF) names, relative paths
    // taken against the reference base its BASE attribute (or the default base) names. An empty result
    // has been reported as unresolved, at the reference; so has an element of another kind than the
    // reference's DEST attribute says.
    Element resolve(const Element& ref) const;
    // resolve() on the first child of `owner` with that local name; empty (and not reported) when the
    // child is absent.
    Element resolveChild(const Element& owner, std::string_view refName) const;

    const std::vector<Element>& all(std::string_view kind) const;
    // The short-name path of an element, or of the nearest one above it that has a short name: a view
    // into the index, valid as long as it is.
    std::string_view pathOf(pugi::xml_node node) const;
    Place place(const Element& e) const { return e.input->place(e.node, std::string(pathOf(e.node))); }
    // The schema puts SHORT-NAME first; looking further would make every path lookup through a list of
    // thousands of elements (ELEMENTS, EVENTS) scan the whole list.
    static std::string shortName(pugi::xml_node node) { return std::string(shortNameView(node)); }
    static std::string_view shortNameView(pugi::xml_node node)
    {
        const pugi::xml_node first = node.find_child([](pugi::xml_node c) { return c.type() == pugi::node_element; });
        return localName(first) == "SHORT-NAME" ? textView(first) : std::string_view();
    }

    // Bounds that keep the index linear in the input: AUTOSAR identifiers are at most 128 characters,
    // and real paths a dozen levels deep; beyond either an element is reported and not indexed.
    static constexpr size_t kMaxShortName = 128;
    static constexpr size_t kMaxPathLevels = 64;

private:
    std::string absolute(const Element& ref, const std::string& text, std::string& why) const;

    // Tens of thousands of paths: each is kept once, in blocks of text that never move (nor stand
    // half empty, as a buffer grown by doubling would), and looked up through an
    // open-addressed table of numbers instead of a node and a string apiece. An element's own path is
    // not stored with it: it is spelled again from the short names above it when asked for, and looked
    // up, which costs a little time on the rare question and saves a table as big as the index.
    struct Path {
        uint32_t begin, length;  // in blocks_: block number * kBlock + offset
        Element element;         // the later one of a path defined twice
    };
    static constexpr size_t kBlock = size_t(1) << 20;  // far more than the longest path indexed
    std::string_view text(const Path& p) const
    {
        return std::string_view(blocks_[p.begin / kBlock].get() + p.begin % kBlock, p.length);
    }
    uint32_t store(std::string_view path);
    // Indexing one input: the walk, an element entered (false: refused, with what it holds), a path added.
    void walk(const XmlInput* input);
    bool enter(const Element& e, std::string& path, size_t& levels);
    void add(const Element& e, const std::string& path);
    // The slot of the path's number, or the free slot where it would go.
    size_t pathSlot(std::string_view path) const;
    void grow();

    Report& report_;
    std::vector<std::unique_ptr<char[]>> blocks_;
    size_t used_ = 0;       // in the last block
    size_t pathBytes_ = 0;  // in all
    size_t pathBudget_ = 0;
    bool overBudget_ = false;
    std::deque<Path> list_;
    std::vector<uint32_t> byPath_;  // a path's number + 1; 0: free
    mutable std::string spelled_;   // pathOf's scratch
    // The readers ask for the same few elements' paths again and again (an interface, the element a
    // mapping names): the last answers, by node, in a table of fixed size.
    struct Recent {
        const void* node = nullptr;
        uint32_t path = 0;  // the path's number + 1; 0: none
    };
    mutable std::vector<Recent> recent_ = std::vector<Recent>(65536);
    std::map<std::string, std::vector<Element>, std::less<>> kinds_;
};

}  // namespace import
}  // namespace ZQSomeIP

#endif
