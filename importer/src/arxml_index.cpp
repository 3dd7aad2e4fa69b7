#include "arxml_index.h"

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
    for (const XmlInput* input : inputs) {
        // Iterative: a hostile file may nest elements far deeper than the stack would take.
        std::vector<std::pair<pugi::xml_node, std::string>> todo{{input->root(), std::string()}};
        while (!todo.empty()) {
            const pugi::xml_node node = todo.back().first;
            std::string path = std::move(todo.back().second);
            todo.pop_back();
            const std::string name = shortName(node);
            if (!name.empty()) {
                path += "/" + name;
                const Element e{input, node};
                auto [at, fresh] = paths_.emplace(path, e);
                if (!fresh && localName(node) != "AR-PACKAGE") {
                    report_.duplicate(place(e), "the path is defined again (first at " + at->second.input->name() + ":" +
                                                    std::to_string(at->second.input->line(at->second.node)) +
                                                    "); the later definition is used");
                    at->second = e;
                }
            }
            const auto listed = kinds_.find(localName(node));
            if (listed != kinds_.end()) {
                listed->second.push_back({input, node});
            }
            // Children pushed last first, so that they are visited in document order.
            for (pugi::xml_node c = node.last_child(); c; c = c.previous_sibling()) {
                if (c.type() == pugi::node_element && localName(c) != "SHORT-NAME") {
                    todo.emplace_back(c, path);
                }
            }
        }
    }
}

Element PathIndex::find(const std::string& path) const
{
    const auto at = paths_.find(path);
    return at == paths_.end() ? Element{} : at->second;
}

const std::vector<Element>& PathIndex::all(std::string_view kind) const
{
    static const std::vector<Element> none;
    const auto at = kinds_.find(kind);
    return at == kinds_.end() ? none : at->second;
}

std::string PathIndex::pathOf(pugi::xml_node node)
{
    std::string path;
    for (pugi::xml_node n = node; n && n.type() == pugi::node_element; n = n.parent()) {
        const std::string name = shortName(n);
        if (!name.empty()) {
            path = "/" + name + path;
        }
    }
    return path;
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
            if (!found && (base.empty() ? childText(b, "IS-DEFAULT") == "true" : childText(b, "SHORT-LABEL") == base)) {
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
