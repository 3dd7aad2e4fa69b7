#include "arxml_types.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace ZQSomeIP {
namespace import {

namespace {

// A size in bytes the format can state for a length or type field.
bool readSize(pugi::xml_node props, const char* name, bool typeField, std::optional<uint32_t>& out, std::string& why)
{
    const pugi::xml_node n = child(props, name);
    if (!n) {
        return true;
    }
    uint64_t v = 0;
    if (!parseUnsigned(text(n), 0xFFFFFFFF, v) || !Attributes::fieldSize(v) || (typeField && v == 0)) {
        why = std::string(name) + " " + text(n) + " is not a size in bytes the format can state (" +
              (typeField ? "1, 2 or 4" : "0, 1, 2 or 4") + ")";
        return false;
    }
    out = static_cast<uint32_t>(v);
    return true;
}

// The platform types, by the names both AUTOSAR platforms give them.
const char* platformType(const std::string& name)
{
    static const std::map<std::string, const char*> names = {
        {"uint8_t", "uint8_t"},   {"uint16_t", "uint16_t"}, {"uint32_t", "uint32_t"}, {"uint64_t", "uint64_t"},
        {"int8_t", "int8_t"},     {"int16_t", "int16_t"},   {"int32_t", "int32_t"},   {"int64_t", "int64_t"},
        {"uint8", "uint8_t"},     {"uint16", "uint16_t"},   {"uint32", "uint32_t"},   {"uint64", "uint64_t"},
        {"sint8", "int8_t"},      {"sint16", "int16_t"},    {"sint32", "int32_t"},    {"sint64", "int64_t"},
        {"float32", "float"},     {"float64", "double"},    {"float", "float"},       {"double", "double"},
        {"boolean", "bool"},      {"bool", "bool"}};
    const auto at = names.find(name);
    return at == names.end() ? nullptr : at->second;
}

bool isInteger(const std::string& basic) { return basic.find("int") != std::string::npos; }

// An integer limit of a compu scale within the base type's range.
bool readLimit(pugi::xml_node n, const std::string& basic, Json::Value& out)
{
    std::string t = text(n);
    const bool negative = !t.empty() && t[0] == '-';
    uint64_t v = 0;
    if (!parseUnsigned(negative ? std::string_view(t).substr(1) : std::string_view(t), UINT64_MAX, v)) {
        return false;
    }
    const bool isSigned = basic[0] == 'i';
    const int bits = std::atoi(basic.c_str() + (isSigned ? 3 : 4));
    const uint64_t limit = isSigned ? (uint64_t{1} << (bits - 1)) - (negative ? 0 : 1)
                                    : (bits == 64 ? UINT64_MAX : (uint64_t{1} << bits) - 1);
    if ((negative && !isSigned) || v > limit) {
        return false;
    }
    out = negative ? Json::Value(static_cast<Json::Int64>(0 - v)) : Json::Value(static_cast<Json::UInt64>(v));
    return true;
}

// A member's parameter as JSON, by the name it has in its type.
Json::Value asJson(const std::string& name, const FormatBuilder::Param& p)
{
    if (p.shared) {
        return FormatBuilder::typeRef(name, p.type);
    }
    Json::Value out(Json::objectValue);
    out["ParamName"] = name;
    out["ParamType"] = p.type;
    return out;
}

}  // namespace

pugi::xml_node definitionProperty(pugi::xml_node owner, std::string_view name)
{
    return child(child(child(child(owner, "SW-DATA-DEF-PROPS"), "SW-DATA-DEF-PROPS-VARIANTS"), "SW-DATA-DEF-PROPS-CONDITIONAL"),
                 name);
}

SerializationProps SerializationProps::read(const PathIndex& index, const Element& props, Report& report)
{
    SerializationProps p;
    const pugi::xml_node n = props.node;
    std::string why;
    p.ok = readSize(n, "SIZE-OF-ARRAY-LENGTH-FIELD", false, p.arrayLength, why) &&
           readSize(n, "SIZE-OF-STRING-LENGTH-FIELD", false, p.stringLength, why) &&
           readSize(n, "SIZE-OF-STRUCT-LENGTH-FIELD", false, p.structLength, why) &&
           readSize(n, "SIZE-OF-UNION-LENGTH-FIELD", false, p.unionLength, why) &&
           readSize(n, "SIZE-OF-UNION-TYPE-SELECTOR-FIELD", true, p.unionType, why);
    if (const pugi::xml_node a = child(n, "ALIGNMENT"); p.ok && a) {
        // Given in bits, unlike the sizes.
        uint64_t bits = 0;
        p.ok = parseUnsigned(text(a), 64, bits) && (bits == 0 || Attributes::alignmentSize(bits / 8)) && bits % 8 == 0;
        p.alignment = static_cast<uint32_t>(bits == 0 ? 1 : bits / 8);
        why = "ALIGNMENT " + text(a) + " is not 8, 16, 32 or 64 bits";
    }
    if (const std::string order = childText(n, "BYTE-ORDER"); p.ok && !order.empty() && order != "OPAQUE") {
        p.ok = order == "MOST-SIGNIFICANT-BYTE-FIRST" || order == "MOST-SIGNIFICANT-BYTE-LAST";
        p.bigEndian = order == "MOST-SIGNIFICANT-BYTE-FIRST";
        why = "BYTE-ORDER " + order + " is not known";
    }
    if (const std::string encoding = childText(n, "STRING-ENCODING"); p.ok && !encoding.empty()) {
        p.ok = encoding == "UTF-8" || encoding == "UTF-16";
        p.utf16 = encoding == "UTF-16";
        why = "STRING-ENCODING " + encoding + " is neither UTF-8 nor UTF-16";
    }
    if (const pugi::xml_node d = child(n, "IS-DYNAMIC-LENGTH-FIELD-SIZE")) {
        p.dynamicLengthFieldSize = isTrue(text(d));
    }
    if (const pugi::xml_node l = child(n, "IMPLEMENTS-LEGACY-STRING-SERIALIZATION")) {
        p.legacyStrings = isTrue(text(l));
    }
    if (!p.ok) {
        report.skipped(index.place(props), why + "; what uses these properties is left out");
    }
    return p;
}

Attributes SerializationProps::over(Attributes a) const
{
    if (arrayLength) {
        // One setting for arrays of either kind and maps, which the format keeps apart.
        a.arrayLength = a.vectorLength = *arrayLength;
    }
    a.stringLength = stringLength.value_or(a.stringLength);
    a.structLength = structLength.value_or(a.structLength);
    a.unionLength = unionLength.value_or(a.unionLength);
    a.unionType = unionType.value_or(a.unionType);
    a.alignment = alignment.value_or(a.alignment);
    a.bigEndian = bigEndian.value_or(a.bigEndian);
    a.utf16 = utf16.value_or(a.utf16);
    return a;
}

Json::Value SerializationProps::attribute(const Attributes& mine, const Attributes& inherited, bool tlv) const
{
    Json::Value a = mine == inherited ? Json::Value() : mine.differences(inherited);
    if (legacyStrings.value_or(false)) {
        a["StringBom"] = false;
        a["StringTerminator"] = false;
    }
    // Without the setting, members take wire type 4 (our default is 5..7), so a TLV list says it.
    if (tlv || dynamicLengthFieldSize) {
        a["DynamicLengthFieldSize"] = dynamicLengthFieldSize.value_or(false);
    }
    return a;
}

bool TypeWriter::fail(const Element& at, const std::string& reason)
{
    report_.skipped(index_.place(at), reason);
    return false;
}

bool TypeWriter::overrideAttribute(const Element& at, std::string_view path, const Use& use, Json::Value& attribute)
{
    const auto found = overrides_.find(use.root);
    if (found == overrides_.end()) {
        return true;
    }
    for (const Override& o : found->second) {
        if ((o.target.empty() ? use.root : o.target) == path) {
            ++overridesApplied_;
            if (!o.props->ok) {
                return fail(at, "the serialization properties overriding it cannot be written");
            }
            Json::Value a = o.props->attribute(o.props->over(use.list), use.list, false);
            if (!a.isNull()) {
                attribute = std::move(a);
            }
        }
    }
    return true;
}

bool TypeWriter::prototype(const Element& proto, const Use& use, FormatBuilder::Param& out)
{
    const Element type = index_.resolveChild(proto, "TYPE-TREF");
    if (!type) {
        return child(proto.node, "TYPE-TREF") ? false : fail(proto, "has no TYPE-TREF");
    }
    if (!named(type, use, 0, out)) {
        return false;
    }
    out.name = PathIndex::shortName(proto.node);
    return overrideAttribute(proto, use.root, use, out.attribute);
}

// A named data type: basic ones written inline, the others as shared types, defined once for each
// context that changes what they say (TLV data IDs, overrides inside them).
bool TypeWriter::named(const Element& type, const Use& use, int depth, FormatBuilder::Param& out)
{
    if (depth > kMaxNesting) {
        return fail(type, "types nest deeper than " + std::to_string(kMaxNesting) + " levels");
    }
    // Application data types describe values, not their bytes: the bytes come from the implementation
    // data type mapped to them, which a data prototype names in its own right.
    if (type.kind().rfind("APPLICATION-", 0) == 0) {
        return fail(type, "an application data type, which does not describe the wire; the import reads "
                          "implementation data types");
    }
    const std::string_view path = index_.pathOf(type.node);
    if (open_.count(type.node.internal_object()) != 0) {
        return fail(type, "the type contains itself, which a format cannot describe");
    }
    const std::string category = childText(type.node, "CATEGORY");
    const bool hasCompu = static_cast<bool>(definitionProperty(type.node, "COMPU-METHOD-REF"));
    if (category == "TYPE_REFERENCE" && !hasCompu) {
        const Element target = referenced(type);
        if (!target) {
            return false;
        }
        open_.insert(type.node.internal_object());
        const bool ok = named(target, use, depth + 1, out);
        open_.erase(type.node.internal_object());
        return ok;
    }
    if (category == "VALUE" && !hasCompu) {
        out.shared = false;
        return scalar(type, use, depth, out.type);
    }
    const SharedType& shared = define(type, use, depth, path);
    if (shared.name.empty()) {
        return false;
    }
    out.shared = true;
    out.type = shared.name;
    return true;
}

// A named type written once under its key (however often used), and the name it was given (empty when
// it could not be written).
const TypeWriter::SharedType& TypeWriter::define(const Element& type, const Use& use, int depth, std::string_view path)
{
    // An override of a member inside makes the type the root's own; which types hold one shows only
    // once they are written, so under such a root a type is written before it is looked up.
    std::string plain(path);
    plain += '|';
    plain += use.tlvKey;
    const auto overridden = overrides_.empty() ? overrides_.end() : overrides_.find(use.root);
    const bool inside = overridden != overrides_.end() &&
                        std::any_of(overridden->second.begin(), overridden->second.end(),
                                    [](const Override& o) { return !o.target.empty(); });
    const auto ownKey = [&] { return (plain + "|").append(use.root); };
    auto known = done_.find(inside ? ownKey() : plain);
    if (known == done_.end()) {
        const std::string own = ownKey();
        Json::Value definition;
        const size_t before = overridesApplied_;
        open_.insert(type.node.internal_object());
        const bool ok = body(type, use, depth + 1, definition);
        open_.erase(type.node.internal_object());
        const bool applied = overridesApplied_ != before;
        const std::string key = applied ? own : plain;
        known = done_.find(key);
        if (known == done_.end()) {
            SharedType shared{std::string(), applied};
            if (ok) {
                shared.name = out_.typeName(key, PathIndex::shortName(type.node));
                out_.defineType(shared.name, std::move(definition));
            }
            known = done_.emplace(key, shared).first;
        }
        if (inside && !applied) {
            done_.emplace(own, known->second);
        }
    } else if (known->second.overridden) {
        ++overridesApplied_;  // the enclosing type holds an override too
    }
    return known->second;
}

// The type a TYPE_REFERENCE names: TYPE-REFERENCE-REF (directly or in TYPE-REFERENCE) in the C++
// form, IMPLEMENTATION-DATA-TYPE-REF in the definition properties in the older one.
Element TypeWriter::referenced(const Element& type)
{
    pugi::xml_node ref = child(type.node, "TYPE-REFERENCE-REF");
    ref = ref ? ref : child(child(type.node, "TYPE-REFERENCE"), "TYPE-REFERENCE-REF");
    ref = ref ? ref : definitionProperty(type.node, "IMPLEMENTATION-DATA-TYPE-REF");
    if (!ref) {
        fail(type, "refers to a type but names none");
        return {};
    }
    return index_.resolve({type.input, ref});
}

std::vector<Element> TypeWriter::templateArguments(const Element& type) const
{
    std::vector<Element> args;
    forChildren(child(type.node, "TEMPLATE-ARGUMENTS"), "CPP-TEMPLATE-ARGUMENT", [&](pugi::xml_node a) {
        args.push_back({type.input, a});
    });
    return args;
}

std::vector<Element> TypeWriter::subElements(const Element& type) const
{
    std::vector<Element> list;
    for (pugi::xml_node c = child(type.node, "SUB-ELEMENTS").first_child(); c; c = c.next_sibling()) {
        if (c.type() == pugi::node_element) {
            list.push_back({type.input, c});
        }
    }
    return list;
}

// What a type (named, or a member that describes its own) is, by its category, without a name.
bool TypeWriter::body(const Element& type, const Use& use, int depth, Json::Value& out)
{
    if (depth > kMaxNesting) {
        return fail(type, "types nest deeper than " + std::to_string(kMaxNesting) + " levels");
    }
    const std::string category = childText(type.node, "CATEGORY");
    out = Json::Value(Json::objectValue);
    if (category == "VALUE" || category == "TYPE_REFERENCE") {
        return value(type, use, depth, out);
    }
    if (category == "STRUCTURE") {
        return structure(type, use, depth, out);
    }
    if (category == "STRING") {
        out["ParamType"] = "STRING";
        return true;
    }
    if (category == "ARRAY" || category == "VECTOR") {
        return array(type, use, depth, out);
    }
    if (category == "UNION" || category == "VARIANT") {
        return variant(type, use, depth, out);
    }
    if (category == "ASSOCIATIVE_MAP") {
        return map(type, use, depth, out);
    }
    return fail(type, "category \"" + category + "\" is not a data type the format can describe");
}

bool TypeWriter::value(const Element& type, const Use& use, int depth, Json::Value& out)
{
    std::string basic;
    if (!scalar(type, use, depth, basic)) {
        return false;
    }
    out["ParamType"] = basic;
    const pugi::xml_node method = definitionProperty(type.node, "COMPU-METHOD-REF");
    if (!method) {
        return true;
    }
    const Element m = index_.resolve({type.input, method});
    return m && compu(m, basic, out);
}

bool TypeWriter::structure(const Element& type, const Use& use, int depth, Json::Value& out)
{
    out["ParamType"] = "STRUCTURE";
    if (!members(subElements(type), use, depth, out["SubParams"])) {
        return false;
    }
    bool optional = false;
    size_t withId = 0;
    for (const Json::Value& p : out["SubParams"]) {
        withId += p.isMember("DataId") ? 1 : 0;
        optional = optional || p.isMember("Optional");
    }
    const bool tlv = withId != 0;
    if (tlv && withId != out["SubParams"].size()) {
        return fail(type, "only some members of the structure have TLV data IDs");
    }
    if (optional && !tlv) {
        return fail(type, "the structure has optional members but no TLV data IDs, without which the wire cannot "
                          "tell a member's absence");
    }
    if (tlv) {
        out["Tlv"] = true;
    }
    return true;
}

bool TypeWriter::variant(const Element& type, const Use& use, int depth, Json::Value& out)
{
    std::vector<Element> list = templateArguments(type);
    if (list.empty()) {
        list = subElements(type);
    }
    if (list.empty()) {
        return fail(type, "the union has no members");
    }
    out["ParamType"] = "UNION";
    if (!members(list, use, depth, out["SubParams"])) {
        return false;
    }
    for (Json::ArrayIndex i = 0; i < out["SubParams"].size(); ++i) {
        out["SubParams"][i]["Selector"] = i + 1;
    }
    return true;
}

bool TypeWriter::map(const Element& type, const Use& use, int depth, Json::Value& out)
{
    const std::vector<Element> args = templateArguments(type);
    if (args.size() != 2) {
        return fail(type, "the map has " + std::to_string(args.size()) + " template arguments, not a key and a value");
    }
    // On the wire a map is a sequence of key and value pairs, without a length field of their own.
    Json::Value entry(Json::objectValue);
    entry["ParamName"] = "entry";
    entry["ParamType"] = "STRUCTURE";
    entry["Attribute"]["StructLengthFieldSize"] = "0";
    for (size_t i = 0; i < 2; ++i) {
        Json::Value p;
        if (!member(args[i], use, depth + 1, p)) {
            return false;
        }
        p["ParamName"] = i == 0 ? "key" : "value";
        entry["SubParams"].append(std::move(p));
    }
    out["ParamType"] = "VECTOR";
    out["SubParams"].append(std::move(entry));
    return true;
}

bool TypeWriter::members(const std::vector<Element>& list, const Use& use, int depth, Json::Value& out)
{
    out = Json::Value(Json::arrayValue);
    std::set<std::string> names;
    for (const Element& e : list) {
        Json::Value p;
        if (!member(e, use, depth + 1, p)) {
            return false;
        }
        if (!names.insert(p["ParamName"].asString()).second) {
            return fail(e, "a second member named \"" + p["ParamName"].asString() + "\"");
        }
        out.append(std::move(p));
    }
    return true;
}

// A structure or union member, an array's element, or a template argument.
bool TypeWriter::member(const Element& element, const Use& use, int depth, Json::Value& out)
{
    if (element.kind() == "CPP-TEMPLATE-ARGUMENT") {
        const Element type = index_.resolveChild(element, "TEMPLATE-TYPE-REF");
        if (!type) {
            return child(element.node, "TEMPLATE-TYPE-REF") ? false : fail(element, "has no TEMPLATE-TYPE-REF");
        }
        FormatBuilder::Param p;
        if (!named(type, use, depth, p)) {
            return false;
        }
        out = asJson(PathIndex::shortName(type.node), p);
        return true;
    }
    const std::string name = PathIndex::shortName(element.node);
    if (name.empty()) {
        return fail(element, "a member without SHORT-NAME");
    }
    const std::string category = childText(element.node, "CATEGORY");
    if (child(element.node, "TYPE-REFERENCE") || category == "TYPE_REFERENCE") {
        const Element type = referenced(element);
        FormatBuilder::Param p;
        if (!type || !named(type, use, depth, p)) {
            return false;
        }
        out = asJson(name, p);
    } else {
        if (!body(element, use, depth, out)) {
            return false;
        }
        out["ParamName"] = name;
    }
    const std::string_view path = index_.pathOf(element.node);
    if (use.dataIds != nullptr) {
        const auto id = use.dataIds->find(path);
        if (id != use.dataIds->end()) {
            out["DataId"] = id->second;
        }
    }
    if (isTrue(childText(element.node, "IS-OPTIONAL"))) {
        out["Optional"] = true;
    }
    Json::Value attribute;
    if (!overrideAttribute(element, path, use, attribute)) {
        return false;
    }
    if (!attribute.isNull()) {
        out["Attribute"] = std::move(attribute);
    }
    return true;
}

// Arrays: fixed ones (ARRAY-SIZE, FIXED-SIZE semantics) and those of variable size up to ARRAY-SIZE,
// their element a template argument or the single sub-element; vectors.
bool TypeWriter::array(const Element& type, const Use& use, int depth, Json::Value& out)
{
    const std::vector<Element> args = templateArguments(type);
    Element element = args.empty() ? Element{} : args.front();
    if (!element) {
        const pugi::xml_node sub = child(type.node, "SUB-ELEMENTS").find_child([](pugi::xml_node n) {
            return n.type() == pugi::node_element;
        });
        element = sub ? Element{type.input, sub} : Element{};
    }
    if (!element) {
        return fail(type, "the array has no element type");
    }
    // The size and its meaning stand on the type, or, in the older form, on its element.
    const pugi::xml_node sizeOwner = child(type.node, "ARRAY-SIZE") ? type.node : element.node;
    const std::string sizeText = childText(sizeOwner, "ARRAY-SIZE");
    const bool variable = childText(type.node, "CATEGORY") == "VECTOR" ||
                          childText(sizeOwner, "ARRAY-SIZE-SEMANTICS") == "VARIABLE-SIZE";
    uint64_t size = 0;
    if (!sizeText.empty() && !parseUnsigned(sizeText, UINT64_MAX, size)) {
        return fail(type, "ARRAY-SIZE \"" + sizeText + "\" is not a number");
    }
    if (!variable && (sizeText.empty() || size > kMaxArrayElements)) {
        return fail(type, sizeText.empty() ? "a fixed array without ARRAY-SIZE"
                                           : "a fixed array of " + sizeText + " elements (more than " +
                                                 std::to_string(kMaxArrayElements) + " are not written)");
    }
    Json::Value e;
    if (!member(element, use, depth, e)) {
        return false;
    }
    out["ParamType"] = variable ? "VECTOR" : "ARRAY";
    if (!variable) {
        out["Value"] = std::to_string(size);
    } else if (!sizeText.empty()) {
        out["MaxCount"] = static_cast<Json::UInt64>(size);
    }
    out["SubParams"].append(std::move(e));
    return true;
}

// The basic type of a VALUE (its SW-BASE-TYPE, else its name among the platform types) or of what a
// TYPE_REFERENCE leads to.
bool TypeWriter::scalar(const Element& type, const Use& use, int depth, std::string& basic)
{
    if (childText(type.node, "CATEGORY") == "TYPE_REFERENCE") {
        FormatBuilder::Param target;
        const Element t = referenced(type);
        if (!t || !named(t, use, depth + 1, target)) {
            return false;
        }
        if (target.shared) {
            return fail(type, "a compu method on a type that is not a number");
        }
        basic = std::move(target.type);
        return true;
    }
    if (const pugi::xml_node ref = definitionProperty(type.node, "BASE-TYPE-REF")) {
        const Element base = index_.resolve({type.input, ref});
        if (!base) {
            return false;
        }
        const std::string encoding = childText(base.node, "BASE-TYPE-ENCODING");
        const std::string size = childText(base.node, "BASE-TYPE-SIZE");
        if (encoding == "BOOLEAN" && (size == "8" || size == "1")) {
            basic = "bool";
        } else if (encoding == "IEEE754" && (size == "32" || size == "64")) {
            basic = size == "32" ? "float" : "double";
        } else if ((encoding == "2C" || encoding == "NONE" || encoding.empty()) &&
                   (size == "8" || size == "16" || size == "32" || size == "64")) {
            basic = (encoding == "2C" ? "int" : "uint") + size + "_t";
        } else {
            return fail(base, "base type of " + size + " bits encoded \"" + encoding + "\" is not one the format has");
        }
        return true;
    }
    const char* platform = platformType(PathIndex::shortName(type.node));
    if (platform == nullptr) {
        return fail(type, "a VALUE type with neither a BASE-TYPE-REF nor a platform type's name");
    }
    basic = platform;
    return true;
}

namespace {

// The numbers of a COMPU-NUMERATOR or COMPU-DENOMINATOR.
bool coefficients(pugi::xml_node list, std::vector<double>& out)
{
    bool ok = true;
    forChildren(list, "V", [&](pugi::xml_node v) {
        double x = 0;
        ok = ok && parseNumber(text(v), x);
        out.push_back(x);
    });
    return ok;
}

}  // namespace

// A TEXTTABLE scale: an enumerator of an integer, one value or a range.
bool TypeWriter::enumerator(pugi::xml_node scale, pugi::xml_node vt, const std::string& basic, Json::Value& out)
{
    Json::Value e(Json::objectValue), upper;
    e["Name"] = text(vt);
    const bool ok = isInteger(basic) && !text(vt).empty() && readLimit(child(scale, "LOWER-LIMIT"), basic, e["Value"]) &&
                    (!child(scale, "UPPER-LIMIT") || readLimit(child(scale, "UPPER-LIMIT"), basic, upper));
    if (ok && !upper.isNull() && upper != e["Value"]) {
        e["ValueEnd"] = upper;
    }
    out.append(std::move(e));
    return ok;
}

// A LINEAR scale's coefficients as a factor and an offset.
bool TypeWriter::rational(const Element& method, pugi::xml_node coeffs, Json::Value& scale)
{
    std::vector<double> n, d;
    const bool read = coefficients(child(coeffs, "COMPU-NUMERATOR"), n) && coefficients(child(coeffs, "COMPU-DENOMINATOR"), d);
    const double denominator = d.empty() ? 1 : d[0];
    if (!read || n.size() != 2 || d.size() > 1 || n[1] == 0 || denominator == 0) {
        return false;
    }
    scale["Factor"] = n[1] / denominator;
    scale["Offset"] = n[0] / denominator;
    // fma gives quotient * denominator - numerator unrounded: zero only for exact quotients.
    if (std::fma(n[1] / denominator, denominator, -n[1]) != 0 || std::fma(n[0] / denominator, denominator, -n[0]) != 0) {
        report_.approximated(index_.place(method), "the scaling's quotient is not exact in binary; "
                                                   "written as the nearest factor and offset");
    }
    return true;
}

// TEXTTABLE scales become enumerators, one LINEAR scale a "Scale"; both together an integer carrying
// both. Anything else changes how values read, so it is reported and the values are left raw.
bool TypeWriter::compu(const Element& method, const std::string& basic, Json::Value& out)
{
    const std::string category = childText(method.node, "CATEGORY");
    if (category == "IDENTICAL") {
        return true;
    }
    Json::Value enumerators(Json::arrayValue), scale;
    size_t linear = 0;
    bool ok = category == "TEXTTABLE" || category == "LINEAR" || category == "SCALE_LINEAR_AND_TEXTTABLE";
    forChildren(child(child(method.node, "COMPU-INTERNAL-TO-PHYS"), "COMPU-SCALES"), "COMPU-SCALE", [&](pugi::xml_node s) {
        if (!ok) {
            return;
        }
        if (const pugi::xml_node vt = child(child(s, "COMPU-CONST"), "VT")) {
            ok = enumerator(s, vt, basic, enumerators);
        } else if (const pugi::xml_node coeffs = child(s, "COMPU-RATIONAL-COEFFS")) {
            ok = ++linear == 1 && rational(method, coeffs, scale);
        }
    });
    if (!ok || (enumerators.empty() && scale.isNull())) {
        report_.approximated(index_.place(method), "compu method of category \"" + category +
                                                           "\" is not one the format can state (one LINEAR scale, "
                                                           "TEXTTABLE entries of integers); values are left raw");
        return true;
    }
    if (!scale.isNull()) {
        const Element unit = index_.resolveChild(method, "UNIT-REF");
        if (unit) {
            const std::string display = childText(unit.node, "DISPLAY-NAME");
            scale["Unit"] = display.empty() ? PathIndex::shortName(unit.node) : display;
        }
        out["Scale"] = scale;
    }
    if (!enumerators.empty()) {
        if (scale.isNull()) {
            out["ParamType"] = "ENUM";
            out["BaseType"] = basic;
        }
        out["Enumerators"] = enumerators;
    }
    return true;
}

}  // namespace import
}  // namespace ZQSomeIP
