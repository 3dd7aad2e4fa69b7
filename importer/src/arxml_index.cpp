#include "arxml_index.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <utility>

namespace ZQSomeIP {
namespace import {

PathIndex::PathIndex(const std::vector<const XmlInput*>& inputs, const std::vector<std::string_view>& collect,
                     Report& report)
    : report_(report)
{
    for (std::string_view kind : collect) {
        kinds_[std::string(kind)];
    }
    // About one element with a short name in every few hundred bytes of a description.
    size_t bytes = 0;
    for (const XmlInput* input : inputs) {
        bytes += input->bytes();
    }
    size_t slots = 64;
    while (slots < bytes / 128) {
        slots *= 2;
    }
    byPath_.assign(slots, 0);
    // Paths are kept whole, so names nested deep under long names could make them far larger than
    // the description; real ones take a fraction of it. The budget also keeps every offset into them
    // within 32 bits.
    pathBudget_ = std::min<size_t>(2 * bytes + (1u << 20), UINT32_MAX - 2 * kBlock);
    for (const XmlInput* input : inputs) {
        walk(input);
    }
    // Paths asked for while the index grew may have been answered by an ancestor's.
    std::fill(recent_.begin(), recent_.end(), Recent{});
}

void PathIndex::walk(const XmlInput* input)
{
    // Depth first without recursion (a hostile file may nest far deeper than the stack takes), one
    // path string grown and cut back on the way, so that no element costs a copy of its path.
    struct Open {
        size_t pathLength, levels;
    };
    std::vector<Open> open;
    std::string path;
    size_t levels = 0;
    size_t refusedAt = SIZE_MAX;  // depth of an element refused: nothing below it is indexed
    const pugi::xml_node root = input->root();
    pugi::xml_node n = root;
    while (n) {
        open.push_back({path.size(), levels});
        const Element e{input, n};
        if (refusedAt >= open.size() && !enter(e, path, levels)) {
            refusedAt = open.size();
        }
        const auto listed = refusedAt <= open.size() ? kinds_.end() : kinds_.find(localName(n));
        if (listed != kinds_.end()) {
            listed->second.push_back(e);
        }
        pugi::xml_node next = n.find_child([](pugi::xml_node c) { return c.type() == pugi::node_element; });
        // Done with n and its children: up until a sibling follows.
        while (!next && n) {
            path.resize(open.back().pathLength);
            levels = open.back().levels;
            if (refusedAt == open.size()) {
                refusedAt = SIZE_MAX;
            }
            open.pop_back();
            if (n == root) {
                n = pugi::xml_node();
                break;
            }
            for (next = n.next_sibling(); next && next.type() != pugi::node_element; next = next.next_sibling()) {
            }
            if (!next) {
                n = n.parent();
            }
        }
        if (next) {
            n = next;
        }
    }
}

bool PathIndex::enter(const Element& e, std::string& path, size_t& levels)
{
    const std::string_view name = shortNameView(e.node);
    if (name.empty()) {
        return true;
    }
    if (pathBytes_ + path.size() + 1 + name.size() > pathBudget_) {
        if (!overBudget_) {
            report_.skipped(place(e), "the element paths grow past twice the size of the description; "
                                      "neither this element nor any later one is indexed");
            overBudget_ = true;
        }
        return false;
    }
    if (name.size() > kMaxShortName || levels == kMaxPathLevels) {
        report_.skipped(place(e), name.size() > kMaxShortName
                                      ? "SHORT-NAME of " + std::to_string(name.size()) + " characters (more than " +
                                            std::to_string(kMaxShortName) + "); neither it nor what it holds is indexed"
                                      : "short names nest deeper than " + std::to_string(kMaxPathLevels) +
                                            " levels; neither this element nor what it holds is indexed");
        return false;
    }
    path += '/';
    path += name;
    ++levels;
    add(e, path);
    return true;
}

void PathIndex::add(const Element& e, const std::string& path)
{
    if (2 * (list_.size() + 1) > byPath_.size()) {
        grow();
    }
    const size_t slot = pathSlot(path);
    const bool fresh = byPath_[slot] == 0;
    if (fresh) {
        // Numbered in 32 bits: every path takes tens of input bytes, so 2^32 of them would take far
        // more input than memory holds.
        list_.push_back({store(path), static_cast<uint32_t>(path.size()), e});
        byPath_[slot] = static_cast<uint32_t>(list_.size());
    }
    Path& at = list_[byPath_[slot] - 1];
    if (!fresh && localName(e.node) != "AR-PACKAGE") {
        report_.duplicate(place(e), "the path is defined again (first at " + at.element.input->name() + ":" +
                                        std::to_string(at.element.input->line(at.element.node)) +
                                        "); the later definition is used");
        at.element = e;
    }
}

uint32_t PathIndex::store(std::string_view path)
{
    if (blocks_.empty() || used_ + path.size() > kBlock) {
        blocks_.emplace_back(new char[kBlock]);
        used_ = 0;
    }
    const size_t begin = (blocks_.size() - 1) * kBlock + used_;
    std::copy(path.begin(), path.end(), blocks_.back().get() + used_);
    used_ += path.size();
    pathBytes_ += path.size();
    return static_cast<uint32_t>(begin);
}

size_t PathIndex::pathSlot(std::string_view path) const
{
    const size_t mask = byPath_.size() - 1;
    for (size_t i = std::hash<std::string_view>{}(path) & mask;; i = (i + 1) & mask) {
        if (byPath_[i] == 0 || text(list_[byPath_[i] - 1]) == path) {
            return i;
        }
    }
}

// The table twice the size, kept at most half full so that probes stay short.
void PathIndex::grow()
{
    byPath_.assign(byPath_.size() * 2, 0);
    for (size_t i = 0; i < list_.size(); ++i) {
        byPath_[pathSlot(text(list_[i]))] = static_cast<uint32_t>(i + 1);
    }
}

Element PathIndex::find(std::string_view path) const
{
    const uint32_t at = byPath_[pathSlot(path)];
    return at == 0 ? Element{} : list_[at - 1].element;
}

const std::vector<Element>& PathIndex::all(std::string_view kind) const
{
    static const std::vector<Element> none;
    const auto at = kinds_.find(kind);
    return at == kinds_.end() ? none : at->second;
}

std::string_view PathIndex::pathOf(pugi::xml_node node) const
{
    // The short names from the element up to the root, looked for only so far up, since a hostile
    // file may nest without end. An element that was not indexed (no short name, or refused) takes
    // its nearest indexed ancestor's path: the longest of the spelled prefixes the index holds.
    Recent& known = recent_[(reinterpret_cast<uintptr_t>(node.internal_object()) >> 6) % recent_.size()];
    if (node && known.node == node.internal_object()) {
        return known.path == 0 ? std::string_view() : text(list_[known.path - 1]);
    }
    known = {node.internal_object(), 0};
    std::string_view names[kMaxPathLevels];
    size_t count = 0, steps = 0;
    pugi::xml_node n = node;
    for (; n && n.type() == pugi::node_element && steps < 256; n = n.parent(), ++steps) {
        const std::string_view name = shortNameView(n);
        if (!name.empty()) {
            // Deeper than the index goes: only the outermost levels can have been indexed.
            std::move(names + (count == kMaxPathLevels ? 1 : 0), names + count, names);
            count -= count == kMaxPathLevels ? 1 : 0;
            names[count++] = name;
        }
    }
    if (n && n.type() == pugi::node_element) {
        return {};
    }
    size_t ends[kMaxPathLevels];
    spelled_.clear();
    for (size_t i = count; i-- > 0;) {
        spelled_ += '/';
        spelled_ += names[i];
        ends[count - 1 - i] = spelled_.size();
    }
    for (size_t k = count; k-- > 0;) {
        const uint32_t at = byPath_[pathSlot(std::string_view(spelled_).substr(0, ends[k]))];
        if (at != 0) {
            known.path = at;
            return text(list_[at - 1]);
        }
    }
    return {};
}

std::string PathIndex::absolute(const Element& ref, const std::string& text, std::string& why) const
{
    if (text.empty()) {
        why = "is empty";
        return {};
    }
    if (text[0] == '/') {
        return text;
    }
    // A relative reference continues the package its base names: the base labelled as the BASE
    // attribute says, else the default one, searched from the innermost package outwards.
    const std::string base = attribute(ref.node, "BASE");
    for (pugi::xml_node n = ref.node.parent(); n; n = n.parent()) {
        if (localName(n) != "AR-PACKAGE") {
            continue;
        }
        pugi::xml_node found;
        forChildren(child(n, "REFERENCE-BASES"), "REFERENCE-BASE", [&](pugi::xml_node b) {
            if (!found && (base.empty() ? isTrue(childText(b, "IS-DEFAULT")) : childText(b, "SHORT-LABEL") == base)) {
                found = b;
            }
        });
        if (found) {
            const std::string package = childText(found, "PACKAGE-REF");
            if (package.empty() || package[0] != '/') {
                why = "is relative to reference base \"" + childText(found, "SHORT-LABEL") +
                      "\", whose PACKAGE-REF is not an absolute path";
                return {};
            }
            return package + "/" + text;
        }
    }
    why = base.empty() ? "is relative, and no package above it declares a default reference base"
                       : "names reference base \"" + base + "\", which no package above it declares";
    return {};
}

Element PathIndex::resolve(const Element& ref) const
{
    const std::string text = import::text(ref.node);
    std::string why;
    const std::string path = absolute(ref, text, why);
    Element target = path.empty() ? Element{} : find(path);
    if (!path.empty() && !target) {
        why = "names no element";
    }
    const std::string dest = attribute(ref.node, "DEST");
    if (target && !dest.empty() && target.kind() != dest) {
        why = "names a " + std::string(target.kind()) + ", not the " + dest + " its DEST says";
        target = {};
    }
    if (!target) {
        report_.unresolved(place(ref), std::string(ref.kind()) + " \"" + text + "\" " + why);
    }
    return target;
}

Element PathIndex::resolveChild(const Element& owner, std::string_view refName) const
{
    const pugi::xml_node ref = child(owner.node, refName);
    return ref ? resolve({owner.input, ref}) : Element{};
}

}  // namespace import
}  // namespace ZQSomeIP
