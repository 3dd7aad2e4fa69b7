// The FIBEX 4 reader: service interfaces with their methods, events and fields, and the data types and
// codings their parameters refer to, as version-2 format entries and shared types.
//
// FIBEX states serialization where a value is used: a parameter's or member's utilization carries its
// byte order and the sizes of its length and type fields, the data type only its structure and coding.
// So a data type becomes one shared type, and each use site adds what it states as an "Attribute" on
// its reference. Since the format's attributes reach everything below an element while FIBEX's apply
// to the element alone (unless it passes them on), a use-site size that would reach a nested element
// relying on the default is reported and its element skipped rather than written wrongly.
//
// Elements are found by local name: exporters bind fx:, ho: and service: to prefixes of their choice.
#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

#include "fibex_coding.h"
#include "readers.h"

namespace ZQSomeIP {
namespace import {

namespace {

struct Ref {
    const XmlInput* in = nullptr;
    pugi::xml_node node;
    explicit operator bool() const { return in != nullptr; }
    Place place(const std::string& path) const { return in->place(node, path); }
};

// What a value ends up as on the wire, for the attribute keys that apply to it.
enum class Kind { Basic, String, Struct, Union, Array, Vector };

// The length and type field keys, as bits of a mask (the leak check below works on sets of them).
enum : unsigned { kArrayKey = 1, kVectorKey = 2, kStructKey = 4, kStringKey = 8, kUnionKey = 16, kUnionTypeKey = 32 };
const std::pair<unsigned, const char*> kLengthKeys[] = {
    {kArrayKey, "ArrayLengthFieldSize"},   {kVectorKey, "VectorLengthFieldSize"}, {kStructKey, "StructLengthFieldSize"},
    {kStringKey, "StringLengthFieldSize"}, {kUnionKey, "UnionLengthFieldSize"},   {kUnionTypeKey, "UnionTypeSelectorFieldSize"}};

// What a use site's utilization says (sizes in bits, as FIBEX gives them).
struct Utilization {
    std::optional<bool> bigEndian;
    pugi::xml_node coding;  // replaces the data type's coding
    std::string codingId;
    std::optional<uint64_t> bitLength;
    std::optional<uint64_t> lengthField, arrayLengthField, typeField;
    std::optional<bool> bom;
    bool passOn = false;
};

// A data type as a parameter object without its name: inline for basic types, else a reference to a
// shared type; `attribute` is the shared type's own "Attribute" (what the value has before its use site).
struct Value {
    Json::Value json;
    Kind kind = Kind::Basic;
    Json::Value attribute;
};

struct Dimension {
    uint64_t index = 0;
    std::optional<uint64_t> min, max;
    bool fixed() const { return min && max && *min == *max; }
};

// Attributes as the type's "Attribute" leaves them over `a` (the keys a shared type states).
Attributes overlay(Attributes a, const Json::Value& attribute)
{
    if (attribute.isMember("StringLengthFieldSize")) {
        a.stringLength = static_cast<uint32_t>(std::stoul(attribute["StringLengthFieldSize"].asString()) / 8);
    }
    if (attribute.isMember("StringEncoding")) {
        a.utf16 = attribute["StringEncoding"] == "UTF16";
    }
    return a;
}

void merge(Json::Value& json, const char* key, const Json::Value& more)
{
    if (!more.isObject()) {
        return;
    }
    for (const std::string& k : more.getMemberNames()) {
        json[key][k] = more[k];
    }
}

class FibexReader {
public:
    FibexReader(FormatBuilder& out, Report& report) : out_(out), report_(report) {}

    void read(const std::vector<const XmlInput*>& inputs)
    {
        for (const XmlInput* in : inputs) {
            index(in);
        }
        for (const Ref& si : services_) {
            service(si);
        }
    }

private:
    void index(const XmlInput* in)
    {
        const pugi::xml_node root = in->root();
        const pugi::xml_node elements = child(root, "ELEMENTS"), processing = child(root, "PROCESSING-INFORMATION");
        forChildren(child(elements, "DATATYPES"), "DATATYPE", [&](pugi::xml_node n) { add(datatypes_, in, n); });
        forChildren(child(processing, "CODINGS"), "CODING", [&](pugi::xml_node n) { add(codings_, in, n); });
        // Units stand in a UNITS list, directly under the processing information or in the group an
        // exporter wraps around it; found either way, whatever the group is called.
        auto units = [&](pugi::xml_node holder) {
            forChildren(child(holder, "UNITS"), "UNIT", [&](pugi::xml_node n) { add(units_, in, n); });
        };
        units(processing);
        for (pugi::xml_node group = processing.first_child(); group; group = group.next_sibling()) {
            if (group.type() == pugi::node_element && localName(group) != "UNITS") {
                units(group);
            }
        }
        forChildren(child(elements, "SERVICE-INTERFACES"), "SERVICE-INTERFACE",
                    [&](pugi::xml_node n) { services_.push_back({in, n}); });
    }

    // IDs are global across files (references cross them); a second description of one ID replaces the first.
    void add(std::unordered_map<std::string, Ref>& map, const XmlInput* in, pugi::xml_node node)
    {
        const std::string id = attribute(node, "ID");
        if (id.empty()) {
            return;
        }
        Ref& slot = map[id];
        if (slot) {
            report_.duplicate(in->place(node, "/" + childText(node, "SHORT-NAME")),
                              "ID \"" + id + "\" is described again; the later description is used");
        }
        slot = {in, node};
    }

    static Ref find(const std::unordered_map<std::string, Ref>& map, const std::string& id)
    {
        const auto it = map.find(id);
        return it == map.end() ? Ref{} : it->second;
    }

    std::string unitName(const std::string& id) const
    {
        const Ref u = find(units_, id);
        const std::string display = childText(u.node, "DISPLAY-NAME");
        return display.empty() ? childText(u.node, "SHORT-NAME") : display;
    }

    // ---- services ------------------------------------------------------------------------------

    void service(const Ref& si)
    {
        const std::string name = childText(si.node, "SHORT-NAME"), path = "/" + name;
        const Place at = si.place(path);
        uint64_t id = 0, major = 0;
        const std::string idText = childText(si.node, "SERVICE-IDENTIFIER");
        if (!parseUnsigned(idText, 0xFFFF, id)) {
            report_.skipped(at, "service ID \"" + idText + "\" is not a number from 0 to 65535; the service is skipped");
            return;
        }
        const std::string majorText = childText(child(si.node, "API-VERSION"), "MAJOR");
        if (!majorText.empty() && !parseUnsigned(majorText, 0xFF, major)) {
            report_.skipped(at, "major version \"" + majorText + "\" is not a number from 0 to 255; the service is skipped");
            return;
        }
        const size_t s = out_.service(at, static_cast<uint16_t>(id), majorText.empty() ? -1 : static_cast<int>(major), name,
                                      Attributes{});
        parameters_ = 0;
        std::set<uint64_t> methodIds, eventIds;
        forChildren(child(si.node, "METHODS"), "METHOD", [&](pugi::xml_node m) { method({si.in, m}, s, path, methodIds); });
        forChildren(child(si.node, "EVENTS"), "EVENT", [&](pugi::xml_node e) { event({si.in, e}, s, path, eventIds); });
        forChildren(child(si.node, "FIELDS"), "FIELD", [&](pugi::xml_node f) { field({si.in, f}, s, path, methodIds, eventIds); });
        forChildren(child(si.node, "EVENT-GROUPS"), "EVENT-GROUP", [&](pugi::xml_node) { ++report_.data().eventGroups; });
    }

    // An entry's ID, checked for range and for its use by an earlier entry of the service.
    bool entryId(const Place& at, const std::string& text, const char* what, std::set<uint64_t>& used, uint64_t& id)
    {
        if (!parseUnsigned(text, 0xFFFF, id)) {
            report_.skipped(at, std::string(what) + " ID \"" + text + "\" is not a number from 0 to 65535; skipped");
            return false;
        }
        if (!used.insert(id).second) {
            report_.duplicate(at, std::string(what) + " ID " + std::to_string(id) + " is used before in this service; this one is skipped");
            return false;
        }
        return true;
    }

    void method(const Ref& m, size_t s, const std::string& servicePath, std::set<uint64_t>& ids)
    {
        const std::string name = childText(m.node, "SHORT-NAME"), path = servicePath + "/" + name;
        const Place at = m.place(path);
        uint64_t id = 0;
        if (!entryId(at, childText(m.node, "METHOD-IDENTIFIER"), "method", ids, id)) {
            return;
        }
        const std::string semantic = childText(m.node, "CALL-SEMANTIC");
        const bool fireAndForget = semantic == "FIRE_AND_FORGET" || semantic == "FIRE-AND-FORGET";
        FormatBuilder::List request, response;
        const pugi::xml_node returns = child(m.node, "RETURN-PARAMETERS");
        if (!list({m.in, child(m.node, "INPUT-PARAMETERS")}, "INPUT-PARAMETER", path, request) ||
            (!fireAndForget && !list({m.in, returns}, "RETURN-PARAMETER", path, response))) {
            report_.skipped(at, "method \"" + name + "\" is skipped: one of its parameters cannot be written");
            return;
        }
        if (fireAndForget && child(returns, "RETURN-PARAMETER")) {
            report_.skipped(at, "the return parameters of fire-and-forget method \"" + name + "\" are not written: it has no response");
        }
        out_.method(s, name, static_cast<uint16_t>(id), request, fireAndForget ? nullptr : &response);
    }

    void event(const Ref& e, size_t s, const std::string& servicePath, std::set<uint64_t>& ids)
    {
        const std::string name = childText(e.node, "SHORT-NAME"), path = servicePath + "/" + name;
        const Place at = e.place(path);
        uint64_t id = 0;
        if (!entryId(at, childText(e.node, "METHOD-IDENTIFIER"), "event", ids, id)) {
            return;
        }
        FormatBuilder::List params;
        if (!list({e.in, child(e.node, "INPUT-PARAMETERS")}, "INPUT-PARAMETER", path, params)) {
            report_.skipped(at, "event \"" + name + "\" is skipped: one of its parameters cannot be written");
            return;
        }
        out_.event(s, name, static_cast<uint16_t>(id), params);
    }

    void field(const Ref& f, size_t s, const std::string& servicePath, std::set<uint64_t>& methodIds, std::set<uint64_t>& eventIds)
    {
        const std::string name = childText(f.node, "SHORT-NAME"), path = servicePath + "/" + name;
        const Place at = f.place(path);
        // The field's accessors, each present or not; an ID that is out of range or used skips the field.
        const struct {
            const char* element;
            const char* idElement;
            const char* what;
            std::set<uint64_t>* used;
        } accessors[] = {{"GETTER", "METHOD-IDENTIFIER", "getter", &methodIds},
                         {"SETTER", "METHOD-IDENTIFIER", "setter", &methodIds},
                         {"NOTIFIER", "NOTIFICATION-IDENTIFIER", "notifier", &eventIds}};
        int ids[3] = {-1, -1, -1};
        for (size_t i = 0; i < 3; ++i) {
            const pugi::xml_node a = child(f.node, accessors[i].element);
            if (!a) {
                continue;
            }
            uint64_t id = 0;
            if (!entryId(at, childText(a, accessors[i].idElement), accessors[i].what, *accessors[i].used, id)) {
                return;
            }
            ids[i] = static_cast<int>(id);
        }
        FormatBuilder::List value;
        Json::Value p;
        if (!element({f.in, f.node}, name, path, 0, Attributes{}, p)) {
            report_.skipped(at, "field \"" + name + "\" is skipped: its value cannot be written");
            return;
        }
        value.params.append(std::move(p));
        out_.field(s, name, ids[0], ids[1], ids[2], value);
    }

    bool list(const Ref& container, const char* item, const std::string& path, FormatBuilder::List& out)
    {
        bool tlv = false;
        if (!members(container, item, "POSITION", path, 0, out.params, tlv)) {
            return false;
        }
        if (tlv) {
            out.keys["Tlv"] = true;
        }
        return true;
    }

    // ---- members and parameters ----------------------------------------------------------------

    // The items of `container` in the order of their `orderBy` (POSITION; INDEX for unions, which
    // becomes the selector), converted; TLV when they carry data IDs.
    bool members(const Ref& container, const char* item, const char* orderBy, const std::string& path, int depth,
                 Json::Value& params, bool& tlv)
    {
        const bool selectors = std::string(orderBy) == "INDEX";
        std::vector<std::pair<uint64_t, pugi::xml_node>> items;
        size_t tagged = 0;
        bool ok = true;
        forChildren(container.node, item, [&](pugi::xml_node n) {
            const std::string order = childText(n, orderBy);
            uint64_t key = items.size();
            if (ok && (selectors || !order.empty()) && !parseUnsigned(order, selectors ? 0xFFFFFFFFu : UINT64_MAX, key)) {
                report_.skipped(container.in->place(n, path + "/" + childText(n, "SHORT-NAME")),
                                selectors ? "a union member without an INDEX from 1 on (its selector)"
                                          : "position \"" + order + "\" is not a number");
                ok = false;
            }
            tagged += child(n, "DATA-ID") ? 1 : 0;
            items.emplace_back(key, n);
        });
        if (!ok) {
            return false;
        }
        std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        tlv = tagged != 0;
        if (tlv && tagged != items.size()) {
            report_.skipped(container.place(path), "some members carry a data ID and others none: TLV needs one on each");
            return false;
        }
        std::set<std::string> names;
        for (size_t i = 0; i < items.size(); ++i) {
            const pugi::xml_node n = items[i].second;
            const std::string name = childText(n, "SHORT-NAME"), at = path + "/" + name;
            const Place place = container.in->place(n, at);
            if (i > 0 && items[i - 1].first == items[i].first) {
                report_.skipped(place, std::string("two members at ") + orderBy + " " + std::to_string(items[i].first));
                return false;
            }
            if (selectors && items[i].first == 0) {
                report_.skipped(place, "union member at INDEX 0: selector 0 means an empty union");
                return false;
            }
            if (name.empty() || !names.insert(name).second) {
                report_.skipped(place, name.empty() ? "a member without a short name" : "a second member named \"" + name + "\"");
                return false;
            }
            Json::Value p;
            if (!element({container.in, n}, name, at, depth, Attributes{}, p)) {
                return false;
            }
            if (selectors) {
                p["Selector"] = static_cast<Json::UInt64>(items[i].first);
            }
            if (tlv) {
                uint64_t id = 0;
                const std::string idText = childText(n, "DATA-ID");
                if (!parseUnsigned(idText, 4095, id)) {
                    report_.skipped(place, "data ID \"" + idText + "\" is not a number from 0 to 4095");
                    return false;
                }
                p["DataId"] = static_cast<Json::UInt64>(id);
                if (fibexBool(childText(n, "MANDATORY")) == false) {
                    p["Optional"] = true;
                }
            }
            params.append(std::move(p));
        }
        return true;
    }

    // ---- use sites -------------------------------------------------------------------------------

    bool bitsField(const Place& at, pugi::xml_node sa, const char* name, bool alignment, std::optional<uint64_t>& out)
    {
        const std::string t = childText(sa, name);
        if (t.empty()) {
            return true;
        }
        uint64_t bits = 0;
        const bool ok = parseUnsigned(t, 64, bits) && bits % 8 == 0 && (alignment ? bits <= 8 : Attributes::fieldSize(bits / 8));
        if (!ok) {
            report_.skipped(at, alignment ? "bit alignment " + t + " is not supported (only none)"
                                          : std::string(name) + " " + t + " is not a size the format has (0, 8, 16, 32 bits)");
            return false;
        }
        out = bits;
        return true;
    }

    bool utilization(const Ref& use, const Place& at, Utilization& u)
    {
        const pugi::xml_node ut = child(use.node, "UTILIZATION");
        const std::string order = childText(ut, "IS-HIGH-LOW-BYTE-ORDER");
        u.bigEndian = fibexBool(order);
        if (!order.empty() && !u.bigEndian) {
            report_.skipped(at, "IS-HIGH-LOW-BYTE-ORDER \"" + order + "\" is not a boolean");
            return false;
        }
        u.codingId = attribute(child(ut, "CODING-REF"), "ID-REF");
        if (!u.codingId.empty()) {
            u.coding = find(codings_, u.codingId).node;
            if (!u.coding) {
                report_.unresolved(at, "coding \"" + u.codingId + "\" is not described");
                return false;
            }
        }
        const std::string bitLength = childText(ut, "BIT-LENGTH");
        uint64_t bits = 0;
        if (!bitLength.empty()) {
            if (!parseUnsigned(bitLength, 1u << 30, bits)) {
                report_.skipped(at, "bit length \"" + bitLength + "\" is not a number");
                return false;
            }
            u.bitLength = bits;
        }
        const pugi::xml_node sa = child(ut, "SERIALIZATION-ATTRIBUTES");
        std::optional<uint64_t> alignment;
        u.passOn = fibexBool(childText(sa, "PASS-ON-TO-SUBELEMENTS")).value_or(false);
        u.bom = fibexBool(childText(sa, "BYTE-ORDER-MARK"));
        return bitsField(at, sa, "LENGTH-FIELD-SIZE", false, u.lengthField) &&
               bitsField(at, sa, "ARRAY-LENGTH-FIELD-SIZE", false, u.arrayLengthField) &&
               bitsField(at, sa, "TYPE-FIELD-SIZE", false, u.typeField) && bitsField(at, sa, "BIT-ALIGNMENT", true, alignment);
    }

    bool dimensions(const Ref& use, const Place& at, std::vector<Dimension>& dims)
    {
        bool ok = true;
        forChildren(child(use.node, "ARRAY-DECLARATION"), "ARRAY-DIMENSION", [&](pugi::xml_node d) {
            Dimension dim;
            uint64_t v = 0;
            for (const auto& [name, slot] : {std::pair{"MINIMUM-SIZE", &dim.min}, std::pair{"MAXIMUM-SIZE", &dim.max}}) {
                const std::string t = childText(d, name);
                if (ok && !t.empty()) {
                    if (!parseUnsigned(t, 0xFFFFFFFFu, v)) {
                        report_.skipped(at, std::string(name) + " \"" + t + "\" is not a count up to 4294967295");
                        ok = false;
                    }
                    *slot = v;
                }
            }
            std::optional<uint64_t> alignment;
            ok = ok && bitsField(at, d, "BIT-ALIGNMENT", true, alignment);
            if (ok && !parseUnsigned(childText(d, "DIMENSION"), 0xFFFF, dim.index)) {
                report_.skipped(at, "an array dimension without a DIMENSION number");
                ok = false;
            }
            if (ok && dim.fixed() && *dim.max > kMaxArrayElements) {
                report_.skipped(at, "an array of " + std::to_string(*dim.max) + " elements (more than " +
                                        std::to_string(kMaxArrayElements) + ")");
                ok = false;
            }
            if (ok && dim.min && dim.max && *dim.min > *dim.max) {
                report_.skipped(at, "an array whose minimum size is above its maximum");
                ok = false;
            }
            dims.push_back(dim);
        });
        std::stable_sort(dims.begin(), dims.end(), [](const Dimension& a, const Dimension& b) { return a.index < b.index; });
        for (size_t i = 1; ok && i < dims.size(); ++i) {
            if (dims[i].index == dims[i - 1].index) {
                report_.skipped(at, "array dimension " + std::to_string(dims[i].index) + " is declared twice");
                ok = false;
            }
        }
        return ok;
    }

    // A parameter, member or field: its data type, with what its utilization and array declaration
    // say, as a named parameter object whose attributes are stated against `context`.
    bool element(const Ref& use, const std::string& name, const std::string& path, int depth, const Attributes& context,
                 Json::Value& out)
    {
        const Place at = use.place(path);
        if (depth > kMaxNesting) {
            report_.skipped(at, "data types nested deeper than " + std::to_string(kMaxNesting) + " levels");
            return false;
        }
        if (++parameters_ > kMaxParameters) {
            if (parameters_ == kMaxParameters + 1) {
                report_.skipped(at, "more than " + std::to_string(kMaxParameters) + " parameters in one service");
            }
            return false;
        }
        const std::string ref = attribute(child(use.node, "DATATYPE-REF"), "ID-REF");
        const Ref type = find(datatypes_, ref);
        if (!type) {
            report_.unresolved(at, ref.empty() ? "no data type reference" : "data type \"" + ref + "\" is not described");
            return false;
        }
        Utilization u;
        std::vector<Dimension> dims;
        Value v;
        if (!utilization(use, at, u) || !dimensions(use, at, dims) || !value(type, u, at, depth, v)) {
            return false;
        }

        // The outermost element (the array when there is one) takes the byte order, which reaches the
        // values and length fields inside, and the array length fields; the value its own length and
        // type fields, stated against what its type already says.
        Attributes outer = context;
        outer.bigEndian = u.bigEndian.value_or(context.bigEndian);
        for (const Dimension& d : dims) {
            if (u.arrayLengthField) {
                (d.fixed() ? outer.arrayLength : outer.vectorLength) = static_cast<uint32_t>(*u.arrayLengthField / 8);
            }
        }
        const Attributes typed = overlay(dims.empty() ? context : outer, v.attribute);
        Attributes own = typed;
        if (!ownFields(v, u, at, dims.empty(), outer.bigEndian, own)) {
            return false;
        }
        merge(v.json, "Attribute", own.differences(typed));
        if (u.bom && v.kind == Kind::String) {
            v.json["Attribute"]["StringBom"] = *u.bom;
        }
        const unsigned valueKeys = keysOf(v.json);
        v.json["ParamName"] = dims.empty() ? name : "element";
        const Json::Value valueElement = v.json;
        wrap(v.json, dims, name, outer.differences(context));
        // FIBEX states sizes for this element alone unless it passes them on; the format's reach
        // everything below. Where that would change an element inside, it cannot be written.
        const unsigned arrayKeys = keysOf(v.json) & (kArrayKey | kVectorKey);
        const bool valueReached = !dims.empty() && (keysUsed(kindOf(valueElement, 0)) & arrayKeys & ~(valueKeys | typeKeys(valueElement))) != 0;
        if (!u.passOn && (valueReached || below(valueElement, arrayKeys | valueKeys, depth))) {
            report_.skipped(at, "a length or type field size stated here would also reach elements inside it that rely on "
                                "the default, while FIBEX states it for this element alone");
            return false;
        }
        out = std::move(v.json);
        return true;
    }

    // The length and type fields of a value (the byte order given), stated at its use; false, reported,
    // for a union the format cannot describe.
    bool ownFields(const Value& v, const Utilization& u, const Place& at, bool noDimensions, bool bigEndian, Attributes& own)
    {
        own.bigEndian = bigEndian;
        const uint32_t length = static_cast<uint32_t>(u.lengthField.value_or(0) / 8);
        switch (v.kind) {
        case Kind::Struct: own.structLength = u.lengthField ? length : own.structLength; break;
        case Kind::Union: own.unionLength = u.lengthField ? length : own.unionLength; break;
        case Kind::String: own.stringLength = u.lengthField ? length : own.stringLength; break;
        case Kind::Array:  // a typedef of an array, used without arrays of its own
        case Kind::Vector:
            if (noDimensions && u.arrayLengthField) {
                (v.kind == Kind::Array ? own.arrayLength : own.vectorLength) = static_cast<uint32_t>(*u.arrayLengthField / 8);
            }
            break;
        case Kind::Basic: break;
        }
        if (v.kind == Kind::Union) {
            own.unionType = u.typeField ? static_cast<uint32_t>(*u.typeField / 8) : own.unionType;
            if (own.unionType == 0 || own.unionLength == 0) {
                report_.skipped(at, own.unionType == 0 ? "a union without a type field"
                                                       : "a union without a length field (the size its members are padded to is not described)");
                return false;
            }
        }
        const auto def = types_.find(v.json.get("TypeRef", "").asString());
        if (v.kind == Kind::Struct && own.structLength == 0 && def != types_.end() && def->second.json["Tlv"] == true) {
            own.structLength = 4;  // a TLV structure always carries its length: 32 bits unless stated
        }
        return true;
    }

    // `json` as the element of its array dimensions, innermost first; the outermost takes `attribute`.
    static void wrap(Json::Value& json, const std::vector<Dimension>& dims, const std::string& name, const Json::Value& attribute)
    {
        for (size_t i = dims.size(); i-- > 0;) {
            const Dimension& d = dims[i];
            Json::Value a(Json::objectValue);
            a["ParamName"] = i == 0 ? name : "element";
            a["ParamType"] = d.fixed() ? "ARRAY" : "VECTOR";
            if (d.fixed()) {
                a["Value"] = static_cast<Json::UInt64>(*d.max);
            } else {
                if (d.min && *d.min != 0) {
                    a["MinCount"] = static_cast<Json::UInt64>(*d.min);
                }
                if (d.max) {
                    a["MaxCount"] = static_cast<Json::UInt64>(*d.max);
                }
            }
            if (i == 0) {
                merge(a, "Attribute", attribute);
            }
            a["SubParams"].append(std::move(json));
            json = std::move(a);
        }
    }

    // ---- data types ------------------------------------------------------------------------------

    // A string type as its coding describes it.
    static bool string(const FibexCoding& c, Json::Value& def)
    {
        def["ParamType"] = "STRING";
        if (c.fixed) {
            def["FixedLength"] = static_cast<Json::UInt64>(c.fixedBytes);
        }
        Attributes a;
        a.utf16 = c.utf16;
        a.stringLength = c.lengthBytes.value_or(a.stringLength);
        merge(def, "Attribute", a.differences(Attributes{}));
        if (c.terminator == false) {
            def["Attribute"]["StringTerminator"] = false;
        }
        if (c.utf16LittleEndian) {
            def["Attribute"]["StringUtf16ByteOrder"] = *c.utf16LittleEndian ? "BYTE_ORDER_LITTLE_ENDIAN" : "BYTE_ORDER_BIG_ENDIAN";
        }
        return true;
    }

    bool value(const Ref& type, const Utilization& u, const Place& at, int depth, Value& v)
    {
        const std::string xsiType = attribute(type.node, "type");
        const std::string typeClass = xsiType.substr(xsiType.find(':') == std::string::npos ? 0 : xsiType.find(':') + 1);
        const std::string id = attribute(type.node, "ID"), name = childText(type.node, "SHORT-NAME");
        if (typeClass == "COMPLEX-DATATYPE-TYPE" || child(type.node, "COMPLEX-DATATYPE-CLASS")) {
            return complex(type, id, name, depth, v);
        }
        pugi::xml_node coding = u.coding;
        std::string codingId = u.codingId;
        if (!coding) {
            codingId = attribute(child(type.node, "CODING-REF"), "ID-REF");
            coding = find(codings_, codingId).node;
            if (!coding) {
                report_.unresolved(type.place("/" + name), codingId.empty() ? "data type \"" + name + "\" has no coding"
                                                                             : "coding \"" + codingId + "\" is not described");
                return false;
            }
        }
        const FibexCoding c = readFibexCoding(coding, u.bitLength, [this](const std::string& ref) { return unitName(ref); });
        if (c.kind == FibexCoding::Unsupported) {
            report_.skipped(at, "data type \"" + name + "\": " + c.reason);
            return false;
        }
        if (!c.approximation.empty() && approximated_.insert(codingId).second) {
            report_.approximated(find(codings_, codingId).place("/" + childText(coding, "SHORT-NAME")), c.approximation);
        }
        const std::string key = "fibex:" + id + "|" + codingId + "|" + (u.bitLength ? std::to_string(*u.bitLength) : "");
        if (typeClass == "ENUM-DATATYPE-TYPE" || child(type.node, "ENUMERATION-ELEMENTS")) {
            return shared(type, key, Kind::Basic, v, [&](Json::Value& def) { return enumeration(type, name, c, def); });
        }
        if (c.kind == FibexCoding::String) {
            return shared(type, key, Kind::String, v, [&](Json::Value& def) { return string(c, def); });
        }
        if (c.kind == FibexCoding::Bitfield && !c.bits.empty()) {
            return shared(type, key, Kind::Basic, v, [&](Json::Value& def) {
                def["ParamType"] = "BITFIELD";
                def["BaseType"] = c.paramType;
                def["Bits"] = c.bits;
                return true;
            });
        }
        // Basic numbers are written inline, with their conversion.
        v.json = Json::Value(Json::objectValue);
        v.json["ParamType"] = c.paramType;
        if (!c.scale.isNull()) {
            v.json["Scale"] = c.scale;
        }
        if (!c.enumerators.isNull()) {
            v.json["Enumerators"] = c.enumerators;
        }
        v.kind = Kind::Basic;
        return true;
    }

    bool enumeration(const Ref& type, const std::string& name, const FibexCoding& c, Json::Value& def)
    {
        const Place at = type.place("/" + name);
        if (c.kind != FibexCoding::Number || c.paramType.find("int") == std::string::npos) {
            report_.skipped(at, "enumeration \"" + name + "\" is not coded as an integer");
            return false;
        }
        def["ParamType"] = "ENUM";
        def["BaseType"] = c.paramType;
        def["Enumerators"] = Json::Value(Json::arrayValue);
        bool ok = true;
        forChildren(child(type.node, "ENUMERATION-ELEMENTS"), "ENUM-ELEMENT", [&](pugi::xml_node e) {
            Json::Value item(Json::objectValue), value;
            item["Name"] = childText(e, "SYNONYM");
            ok = ok && !item["Name"].asString().empty() && parseInteger(childText(e, "VALUE"), value);
            item["Value"] = value;
            def["Enumerators"].append(std::move(item));
        });
        if (!ok || !enumeratorsFit(def["Enumerators"], c.paramType)) {
            report_.skipped(at, "enumeration \"" + name + "\" has an element without a name, or a value that is no " + c.paramType);
            return false;
        }
        return true;
    }

    bool complex(const Ref& type, const std::string& id, const std::string& name, int depth, Value& v)
    {
        const std::string cls = childText(type.node, "COMPLEX-DATATYPE-CLASS"), path = "/" + name;
        const Ref membersNode{type.in, child(type.node, "MEMBERS")};
        if (cls == "STRUCTURE" || cls == "UNION") {
            const bool isUnion = cls == "UNION";
            return shared(type, "fibex:" + id, isUnion ? Kind::Union : Kind::Struct, v, [&](Json::Value& def) {
                bool tlv = false;
                def["ParamType"] = cls;
                def["SubParams"] = Json::Value(Json::arrayValue);
                if (!members(membersNode, "MEMBER", isUnion ? "INDEX" : "POSITION", path, depth + 1, def["SubParams"], tlv)) {
                    return false;
                }
                if (tlv && isUnion) {
                    report_.skipped(type.place(path), "union members with data IDs: TLV applies to structures");
                    return false;
                }
                if (tlv) {
                    def["Tlv"] = true;
                }
                return true;
            });
        }
        if (cls == "TYPEDEF") {
            // A typedef names the one member it holds, with that member's utilization and arrays.
            const bool ok = shared(type, "fibex:" + id, Kind::Basic, v, [&](Json::Value& def) {
                const pugi::xml_node member = child(membersNode.node, "MEMBER");
                if (!member) {
                    report_.skipped(type.place(path), "typedef \"" + name + "\" without a member");
                    return false;
                }
                if (!element({type.in, member}, "", path, depth + 1, Attributes{}, def)) {
                    return false;
                }
                def.removeMember("ParamName");
                return true;
            });
            if (ok) {  // it ends as what its member ends as
                v.kind = types_.at(v.json["TypeRef"].asString()).kind = kindOf(v.json, 0);
            }
            return ok;
        }
        report_.skipped(type.place(path), "complex data type class \"" + cls + "\" is not one of STRUCTURE, UNION, TYPEDEF");
        return false;
    }

    // The one definition of a shared type: built the first time it is used, referred to after.
    template <typename Build>
    bool shared(const Ref& type, const std::string& key, Kind kind, Value& v, Build build)
    {
        if (failed_.count(key) != 0) {
            return false;
        }
        const std::string name = out_.typeName(key, childText(type.node, "SHORT-NAME"));
        auto known = types_.find(name);
        if (known == types_.end()) {
            if (!building_.insert(key).second) {
                report_.skipped(type.place("/" + childText(type.node, "SHORT-NAME")),
                                "data type \"" + childText(type.node, "SHORT-NAME") + "\" contains itself");
                failed_.insert(key);
                return false;
            }
            Json::Value def(Json::objectValue);
            const bool ok = build(def);
            building_.erase(key);
            if (!ok) {
                failed_.insert(key);
                return false;
            }
            known = types_.emplace(name, SharedType{kind, def}).first;
            out_.defineType(name, std::move(def));
        }
        v.json = FormatBuilder::typeRef("", name);
        v.kind = known->second.kind;
        v.attribute = known->second.json["Attribute"];
        return true;
    }

    // ---- what a use site's sizes reach -------------------------------------------------------------

    unsigned keysOf(const Json::Value& element) const
    {
        const Json::Value& attribute = element["Attribute"];
        unsigned keys = 0;
        for (const auto& [bit, name] : kLengthKeys) {
            keys |= attribute.isObject() && attribute.isMember(name) ? bit : 0;
        }
        return keys;
    }

    Kind kindOf(const Json::Value& element, int depth) const
    {
        const std::string t = element["ParamType"].asString();
        if (t == "TYPEREF") {
            const auto it = types_.find(element["TypeRef"].asString());
            return it == types_.end() || depth > kMaxNesting ? Kind::Basic : kindOf(it->second.json, depth + 1);
        }
        return t == "STRUCTURE" ? Kind::Struct
               : t == "UNION"   ? Kind::Union
               : t == "STRING"  ? (element.isMember("FixedLength") ? Kind::Basic : Kind::String)
               : t == "ARRAY"   ? Kind::Array
               : t == "VECTOR"  ? Kind::Vector
                                : Kind::Basic;
    }

    static unsigned keysUsed(Kind k)
    {
        switch (k) {
        case Kind::Struct: return kStructKey;
        case Kind::Union: return kUnionKey | kUnionTypeKey;
        case Kind::String: return kStringKey;
        case Kind::Array: return kArrayKey;
        case Kind::Vector: return kVectorKey;
        default: return 0;
        }
    }

    // Whether `keys`, stated above `body`, reach an element below it that uses one of them without
    // stating it. TLV members are exempt: they carry the TLV length field in place of their own.
    bool below(const Json::Value& body, unsigned keys, int depth)
    {
        if (keys == 0 || depth > 2 * kMaxNesting) {
            return false;
        }
        if (body["ParamType"] == "TYPEREF") {
            const auto it = types_.find(body["TypeRef"].asString());
            if (it == types_.end()) {
                return false;
            }
            const unsigned left = keys & ~keysOf(it->second.json);
            const std::string memo = it->first + "#" + std::to_string(left);
            if (noLeak_.count(memo) != 0) {
                return false;
            }
            if (below(it->second.json, left, depth + 1)) {
                return true;
            }
            noLeak_.insert(memo);  // types are shared: a DAG of them is walked once per key set
            return false;
        }
        const bool tlv = body["Tlv"] == true;
        for (const Json::Value& sub : body["SubParams"]) {
            const unsigned stated = keysOf(sub) | typeKeys(sub);
            if ((!tlv && (keysUsed(kindOf(sub, 0)) & keys & ~stated) != 0) || below(sub, keys & ~stated, depth + 1)) {
                return true;
            }
        }
        return false;
    }

    unsigned typeKeys(const Json::Value& ref) const
    {
        if (ref["ParamType"] != "TYPEREF") {
            return 0;
        }
        const auto it = types_.find(ref["TypeRef"].asString());
        return it == types_.end() ? 0 : keysOf(it->second.json);
    }

    struct SharedType {
        Kind kind;
        Json::Value json;
    };

    FormatBuilder& out_;
    Report& report_;
    std::unordered_map<std::string, Ref> datatypes_, codings_, units_;
    std::vector<Ref> services_;
    std::map<std::string, SharedType> types_;  // defined so far, by type name
    std::set<std::string> building_, failed_, approximated_, noLeak_;
    uint64_t parameters_ = 0;
};

}  // namespace

void readFibex(const std::vector<const XmlInput*>& inputs, FormatBuilder& out, Report& report)
{
    FibexReader(out, report).read(inputs);
}

}  // namespace import
}  // namespace ZQSomeIP
