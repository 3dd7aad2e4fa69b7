#include "ZQSomeIPPlainFormat.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <set>

#include "ZQSomeIPJsonText.h"
#include "format/ZQSomeIPFormatRules.h"
#include "format/ZQSomeIPNumberText.h"

namespace ZQSomeIP {

namespace {

using Param = ZQSomeIPPlainParam;

// Hostile files must not make loading unbounded: shared types can describe a tree far larger than
// the file (a type used twice by a type used twice ...).
const size_t kParamBudget = 1000000;
const int kMaxDepth = 64;
const uint32_t kMaxFixedLength = 1u << 20;

bool isInteger(Param::Kind k) { return k >= Param::UInt8 && k <= Param::Int64; }
bool isSigned(Param::Kind k) { return k >= Param::Int8 && k <= Param::Int64; }
uint32_t widthOf(Param::Kind k)
{
    switch (k) {
    case Param::Bool: case Param::UInt8: case Param::Int8: return 1;
    case Param::UInt16: case Param::Int16: return 2;
    case Param::UInt32: case Param::Int32: case Param::Float: return 4;
    case Param::UInt64: case Param::Int64: case Param::Double: return 8;
    default: return 0;
    }
}

// A member of an object, or null when `v` is not an object (indexing anything else throws).
const Json::Value& get(const Json::Value& v, const char* key)
{
    return v.isObject() ? v[key] : Json::Value::nullSingleton();
}

// An attribute value as the lookup reads it: text, or a number or boolean spelled as text.
std::string text(const Json::Value& v)
{
    if (v.isString()) {
        return v.asString();
    }
    if (v.isBool()) {
        return v.asBool() ? "true" : "false";
    }
    if (v.isIntegral()) {
        return v.asString();
    }
    return std::string();
}

bool flag(const Json::Value& v, bool& out)
{
    const std::string t = text(v);
    if (t == "true" || t == "false") {
        out = t == "true";
        return true;
    }
    return false;
}

// A JSON integer, or an integer written as decimal or 0x-hex text, as a sign and a magnitude.
bool integer(const Json::Value& v, bool& negative, uint64_t& magnitude)
{
    negative = false;
    if (v.isUInt64()) {
        magnitude = v.asUInt64();
        return true;
    }
    if (v.isInt64()) {
        const int64_t x = v.asInt64();
        negative = x < 0;
        magnitude = negative ? uint64_t(0) - static_cast<uint64_t>(x) : static_cast<uint64_t>(x);
        return true;
    }
    if (!v.isString()) {
        return false;
    }
    std::string t = v.asString();
    if (!t.empty() && t[0] == '-') {
        negative = true;
        t.erase(0, 1);
    }
    const bool hex = t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X');
    const std::string digits = hex ? t.substr(2) : t;
    if (digits.empty() || digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos ||
        digits.size() > 20) {
        return false;
    }
    errno = 0;
    magnitude = std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
    return errno == 0;
}

// An integer that fits a field of `bits` bits, signed or not, kept as its 64-bit two's complement.
bool fieldValue(const Json::Value& v, uint32_t bits, bool isSignedField, uint64_t& out)
{
    bool negative = false;
    uint64_t m = 0;
    if (!integer(v, negative, m)) {
        return false;
    }
    if (isSignedField) {
        const uint64_t limit = uint64_t(1) << (bits - 1);  // |min|
        if (negative ? m > limit : m >= limit) {
            return false;
        }
        out = negative ? uint64_t(0) - m : m;
        return true;
    }
    if (negative && m != 0) {
        return false;
    }
    if (bits < 64 && m >> bits != 0) {
        return false;
    }
    out = m;
    return true;
}

bool enumerators(const Json::Value& list, uint32_t bits, bool isSignedField, std::vector<ZQSomeIPPlainEnumerator>& out,
                 std::string& why)
{
    if (!list.isArray()) {
        why = "\"Enumerators\" is not an array";
        return false;
    }
    std::set<std::string> names;
    for (const Json::Value& e : list) {
        ZQSomeIPPlainEnumerator n;
        if (!get(e, "Name").isString()) {
            why = "an enumerator without a \"Name\" text";
            return false;
        }
        n.name = e["Name"].asString();
        if (!names.insert(n.name).second) {
            why = "two enumerators are named \"" + n.name + "\"";
            return false;
        }
        if (!fieldValue(e["Value"], bits, isSignedField, n.first)) {
            why = "enumerator \"" + n.name + "\" has no \"Value\" its type can hold";
            return false;
        }
        n.last = n.first;
        if (e.isMember("ValueEnd") && !fieldValue(e["ValueEnd"], bits, isSignedField, n.last)) {
            why = "enumerator \"" + n.name + "\" has a \"ValueEnd\" its type cannot hold";
            return false;
        }
        const bool ordered = isSignedField ? static_cast<int64_t>(n.first) <= static_cast<int64_t>(n.last)
                                           : n.first <= n.last;
        if (!ordered) {
            why = "enumerator \"" + n.name + "\" ends before it starts";
            return false;
        }
        out.push_back(std::move(n));
    }
    return true;
}

// A non-negative integer no larger than `most` (see integer() for how it may be written).
bool countUpTo(const Json::Value& v, uint64_t most, uint64_t& out)
{
    bool negative = false;
    return integer(v, negative, out) && !negative && out <= most;
}

// The keys only a member of a TLV structure has: its data ID and whether it may be left out.
bool tlvMember(const Json::Value& item, Param& p, std::string& why)
{
    uint64_t id = 0;
    if (!countUpTo(item["DataId"], 4095, id)) {
        why = "TLV member \"" + p.name + "\" has no \"DataId\" from 0 to 4095";
        return false;
    }
    p.dataId = static_cast<int32_t>(id);
    if (item.isMember("Optional") && !flag(item["Optional"], p.optional)) {
        why = "\"Optional\" of \"" + p.name + "\" is neither true nor false";
        return false;
    }
    return true;
}

bool selector(const Json::Value& item, Param& p, std::string& why)
{
    if (item.isMember("Selector")) {
        uint64_t n = 0;
        if (!countUpTo(item["Selector"], 0xFFFFFFFFu, n)) {
            why = "\"Selector\" of \"" + p.name + "\" is not a number from 0 to 4294967295";
            return false;
        }
        p.selector = static_cast<uint32_t>(n);
    }
    return true;
}

// The parameter's kind; an ENUM or a BITFIELD takes the kind of its integer "BaseType".
bool kind(const Json::Value& item, Param& p, std::string& why)
{
    std::string type = item["ParamType"].asString();
    if (type == "ENUM" || type == "BITFIELD") {
        const std::string base = get(item, "BaseType").asString();
        Param::Kind baseKind = Param::Bool;
        if (!plainParamKind(base, baseKind) || !isInteger(baseKind) || (type == "BITFIELD" && isSigned(baseKind))) {
            why = type + " \"" + p.name + "\" needs an " + (type == "ENUM" ? "integer" : "unsigned integer") +
                  " \"BaseType\"";
            return false;
        }
        p.bitfield = type == "BITFIELD";
        type = base;
    }
    if (!plainParamKind(type, p.kind)) {
        why = "parameter \"" + p.name + "\" has the unknown type \"" + type + "\"";
        return false;
    }
    return true;
}

bool enumeratorsOf(const Json::Value& item, uint32_t bits, Param& p, std::string& why)
{
    if (item.isMember("Enumerators")) {
        if (!isInteger(p.kind) || p.bitfield) {
            why = "\"Enumerators\" on \"" + p.name + "\", which is not an integer";
            return false;
        }
        if (!enumerators(item["Enumerators"], bits, isSigned(p.kind), p.enumerators, why)) {
            why = p.name + ": " + why;
            return false;
        }
    }
    return true;
}

bool scale(const Json::Value& item, Param& p, std::string& why)
{
    if (!item.isMember("Scale")) {
        return true;
    }
    const Json::Value& s = item["Scale"];
    if (!(isInteger(p.kind) || p.kind == Param::Float || p.kind == Param::Double) || p.bitfield ||
        !s.isObject() || !get(s, "Factor").isNumeric() || !std::isfinite(s["Factor"].asDouble()) ||
        s["Factor"].asDouble() == 0 || !(get(s, "Offset").isNull() || s["Offset"].isNumeric()) ||
        !(get(s, "Unit").isNull() || s["Unit"].isString())) {
        why = "\"Scale\" of \"" + p.name + "\" is not {\"Factor\": non-zero number, \"Offset\": number, \"Unit\": text} "
              "on a number";
        return false;
    }
    p.scaled = true;
    p.scale.factor = s["Factor"].asDouble();
    p.scale.offset = s.isMember("Offset") ? s["Offset"].asDouble() : 0.0;
    p.scale.unit = s.isMember("Unit") ? s["Unit"].asString() : std::string();
    if (!std::isfinite(p.scale.offset)) {
        why = "\"Scale\" of \"" + p.name + "\" has an offset that is not finite";
        return false;
    }
    return true;
}

// The named bits of a bit field of `bits` bits: each inside the field, none overlapping another.
bool bitField(const Json::Value& item, uint32_t bits, Param& p, std::string& why)
{
    const Json::Value& list = get(item, "Bits");
    if (!list.isArray()) {
        why = "bit field \"" + p.name + "\" has no \"Bits\" array";
        return false;
    }
    uint64_t used = 0;
    std::set<std::string> names;
    for (const Json::Value& b : list) {
        ZQSomeIPPlainBit bit;
        bool negative = false;
        uint64_t at = 0, width = 1;
        if (!get(b, "Name").isString() || !integer(b["Bit"], negative, at) || negative ||
            (b.isMember("Width") && (!integer(b["Width"], negative, width) || negative)) || width == 0 ||
            at >= bits || width > bits - at) {
            why = "bit field \"" + p.name + "\" has a bit without a \"Name\", or outside its " +
                  std::to_string(bits) + " bits";
            return false;
        }
        bit.name = b["Name"].asString();
        const uint64_t mask = (width == 64 ? ~uint64_t(0) : ((uint64_t(1) << width) - 1)) << at;
        if (bit.name == "$raw" || !names.insert(bit.name).second || (used & mask) != 0) {
            why = "bit field \"" + p.name + "\": \"" + bit.name + "\" is named twice, named $raw or overlaps";
            return false;
        }
        used |= mask;
        bit.bit = static_cast<uint32_t>(at);
        bit.width = static_cast<uint32_t>(width);
        appendJsonString(bit.key, bit.name);
        bit.key += ':';
        if (b.isMember("Enumerators") && !enumerators(b["Enumerators"], bit.width, false, bit.enumerators, why)) {
            why = p.name + "." + bit.name + ": " + why;
            return false;
        }
        p.bits.push_back(std::move(bit));
    }
    return true;
}

bool stringLength(const Json::Value& item, bool parentInTlv, Param& p, std::string& why)
{
    if (item.isMember("FixedLength")) {
        const bool utf16 = p.attr.string_utf == ZQ_SOMEIP_PAYLOAD_STRING_UTF16;
        const uint64_t least = (utf16 ? 2 : 1) * ((p.stringBom ? (utf16 ? 1 : 3) : 0) + (p.stringTerminator ? 1 : 0));
        uint64_t length = 0;
        if (!countUpTo(item["FixedLength"], kMaxFixedLength, length) || length == 0 || length < least) {
            why = "\"FixedLength\" of \"" + p.name + "\" is not a byte count from " + std::to_string(std::max<uint64_t>(least, 1)) +
                  " to " + std::to_string(kMaxFixedLength);
            return false;
        }
        p.fixedLength = static_cast<uint32_t>(length);
    } else if (p.attr.string_length_field_size == 0 && !parentInTlv) {
        why = "string \"" + p.name + "\" has no length field (its StringLengthFieldSize is 0)";
        return false;
    }
    return true;
}

bool vectorCounts(const Json::Value& item, bool parentInTlv, Param& p, std::string& why)
{
    if (p.attr.vector_length_field_size == 0 && !parentInTlv) {
        why = "vector \"" + p.name + "\" has no length field (its VectorLengthFieldSize is 0)";
        return false;
    }
    uint64_t n = 0;
    if (item.isMember("MinCount")) {
        if (!countUpTo(item["MinCount"], 0xFFFFFFFFu, n)) {
            why = "\"MinCount\" of \"" + p.name + "\" is not a count";
            return false;
        }
        p.minCount = static_cast<uint32_t>(n);
    }
    if (item.isMember("MaxCount")) {
        if (!countUpTo(item["MaxCount"], 0xFFFFFFFFu, n) || n < p.minCount) {
            why = "\"MaxCount\" of \"" + p.name + "\" is not a count from MinCount up";
            return false;
        }
        p.maxCount = static_cast<uint32_t>(n);
    }
    return true;
}

} // namespace

bool plainParamKind(const std::string& name, ZQSomeIPPlainParam::Kind& kind)
{
    static const std::pair<const char*, Param::Kind> kTypes[] = {
        {"bool", Param::Bool},     {"uint8_t", Param::UInt8},   {"uint16_t", Param::UInt16},
        {"uint32_t", Param::UInt32}, {"uint64_t", Param::UInt64}, {"int8_t", Param::Int8},
        {"int16_t", Param::Int16}, {"int32_t", Param::Int32},   {"int64_t", Param::Int64},
        {"float", Param::Float},   {"double", Param::Double},   {"STRING", Param::String},
        {"STRUCTURE", Param::Structure}, {"ARRAY", Param::Array}, {"VECTOR", Param::Vector},
        {"UNION", Param::Union},
    };
    for (const auto& t : kTypes) {
        if (name == t.first) {
            kind = t.second;
            return true;
        }
    }
    return false;
}

struct ZQSomeIPPlainFormatCompiler::Context {
    ZQSomeIPExtendAttr attr;
    bool typeFirst = false;
    bool dynamicLfs = true;
    bool bom = true;
    bool terminator = true;
    bool utf16Set = false;
    uint32_t utf16Order = 0;
    bool fileScope = false;          // names resolve among the file's types only
    bool inTlv = false;              // the parameters being compiled are members of a TLV structure
    bool underTlv = false;           // ... or lie anywhere below one
    int depth = 0;
    std::vector<std::string> types;  // the types being expanded on the way here
};

int plainFormatVersion(const Json::Value& document, std::string& why)
{
    const Json::Value& v = get(document, "FormatVersion");
    if (v.isNull()) {
        return 1;
    }
    bool negative = false;
    uint64_t version = 0;
    if (!integer(v, negative, version) || negative || version < 1) {
        why = "\"FormatVersion\" is not a version number";
        return -1;
    }
    if (version > 2) {
        why = "\"FormatVersion\" " + std::to_string(version) + " is newer than this library reads (2)";
        return -1;
    }
    return static_cast<int>(version);
}

ZQSomeIPPlainFormatCompiler::ZQSomeIPPlainFormatCompiler(const Json::Value& document) : document_(document)
{
}

bool ZQSomeIPPlainFormatCompiler::attributes(const Json::Value& object, Context& c, std::string& why)
{
    if (object.isNull()) {
        return true;
    }
    if (!object.isObject()) {
        why = "an \"Attribute\" that is not an object";
        return false;
    }
    // The keys of the service attributes, read as the lookup reads them, but only where present.
    for (const FormatRules::AttributeKey& k : FormatRules::kAttributeKeys) {
        if (object.isMember(k.key)) {
            c.attr.*k.field = static_cast<uint32_t>(k.value(text(object[k.key])));
        }
    }
    if (object.isMember("UnionFieldOrder")) {
        const std::string t = text(object["UnionFieldOrder"]);
        if (t != "LENGTH_FIRST" && t != "TYPE_FIRST") {
            why = "\"UnionFieldOrder\" is neither LENGTH_FIRST nor TYPE_FIRST";
            return false;
        }
        c.typeFirst = t == "TYPE_FIRST";
    }
    if (object.isMember("StringUtf16ByteOrder")) {
        const std::string t = text(object["StringUtf16ByteOrder"]);
        if (t != "BYTE_ORDER_BIG_ENDIAN" && t != "BYTE_ORDER_LITTLE_ENDIAN") {
            why = "\"StringUtf16ByteOrder\" is neither BYTE_ORDER_BIG_ENDIAN nor BYTE_ORDER_LITTLE_ENDIAN";
            return false;
        }
        c.utf16Set = true;
        c.utf16Order = static_cast<uint32_t>(FormatRules::byteOrder(t));
    }
    const std::pair<const char*, bool Context::*> flags[] = {
        {"StringBom", &Context::bom},
        {"StringTerminator", &Context::terminator},
        {"DynamicLengthFieldSize", &Context::dynamicLfs},
    };
    for (const auto& f : flags) {
        if (object.isMember(f.first) && !flag(object[f.first], c.*f.second)) {
            why = "\"" + std::string(f.first) + "\" is neither true nor false";
            return false;
        }
    }
    return true;
}

bool ZQSomeIPPlainFormatCompiler::resolve(const Json::Value& item, Json::Value& resolved, Context& c, std::string& why)
{
    resolved = item;
    while (get(resolved, "ParamType").asString() == "TYPEREF") {
        const std::string& user = get(item, "ParamName").asString();
        if (!get(resolved, "TypeRef").isString()) {
            broken_ = "parameter \"" + user + "\" is a TYPEREF without a \"TypeRef\" name";
            why = broken_;
            return false;
        }
        const std::string name = resolved["TypeRef"].asString();
        const Json::Value& serviceTypes = serviceTypes_ != nullptr ? *serviceTypes_ : Json::Value::nullSingleton();
        const Json::Value& fileTypes = get(document_, "Types");
        const Json::Value* type = nullptr;
        bool fromFile = false;
        if (!c.fileScope && serviceTypes.isObject() && serviceTypes.isMember(name)) {
            type = &serviceTypes[name];
        } else if (fileTypes.isObject() && fileTypes.isMember(name)) {
            type = &fileTypes[name];
            fromFile = true;
        } else {
            broken_ = "type \"" + name + "\" (used by \"" + user + "\") is not defined";
            why = broken_;
            return false;
        }
        const std::string qualified = (fromFile ? "file:" : "service:") + name;
        if (std::find(c.types.begin(), c.types.end(), qualified) != c.types.end()) {
            broken_ = "type \"" + name + "\" contains itself";
            why = broken_;
            return false;
        }
        if (!type->isObject() || !(*type)["ParamType"].isString()) {
            broken_ = "type \"" + name + "\" is not a parameter object with a \"ParamType\"";
            why = broken_;
            return false;
        }
        c.types.push_back(qualified);
        c.fileScope = c.fileScope || fromFile;
        // The referring parameter's keys apply on top of the type's; attributes key by key.
        Json::Value merged = *type;
        for (const std::string& key : resolved.getMemberNames()) {
            if (key == "ParamType" || key == "TypeRef") {
                continue;
            }
            if (key == "Attribute" && merged["Attribute"].isObject() && resolved[key].isObject()) {
                for (const std::string& a : resolved[key].getMemberNames()) {
                    merged["Attribute"][a] = resolved[key][a];
                }
            } else {
                merged[key] = resolved[key];
            }
        }
        resolved = std::move(merged);
    }
    return true;
}

bool ZQSomeIPPlainFormatCompiler::list(const Json::Value& items, const Context& parent, std::vector<Param>& out,
                                       std::string& why)
{
    if (!items.isArray()) {
        why = "the parameter list is not an array";
        return false;
    }
    std::set<std::string> names;
    for (const Json::Value& item : items) {
        Param p;
        if (!param(item, parent, p, why)) {
            return false;
        }
        if (!names.insert(p.name).second) {
            why = "two parameters are named \"" + p.name + "\"";
            return false;
        }
        out.push_back(std::move(p));
    }
    if (parent.inTlv) {
        std::set<int32_t> ids;
        for (const Param& p : out) {
            if (!ids.insert(p.dataId).second) {
                why = "two members of a TLV structure have the data ID " + std::to_string(p.dataId);
                return false;
            }
            if (p.attr.byte_order != parent.attr.byte_order) {
                why = "TLV member \"" + p.name + "\" has another byte order than its structure";
                return false;
            }
        }
    }
    return true;
}

bool ZQSomeIPPlainFormatCompiler::param(const Json::Value& given, const Context& parent, Param& p, std::string& why)
{
    if (budget_ == 0 || parent.depth >= kMaxDepth) {
        why = "the format is nested too deeply or too large";
        return false;
    }
    --budget_;
    if (!given.isObject() || !given["ParamName"].isString() || !given["ParamType"].isString()) {
        why = "a parameter without a \"ParamName\" and \"ParamType\" text";
        return false;
    }
    p.name = given["ParamName"].asString();
    appendJsonString(p.key, p.name);
    p.key += ':';

    Context c = parent;
    c.depth = parent.depth + 1;
    c.inTlv = false;
    c.underTlv = parent.inTlv || parent.underTlv;
    Json::Value item;
    if (!resolve(given, item, c, why) || !attributes(get(item, "Attribute"), c, why)) {
        return false;
    }
    takeAttributes(c, p);

    // A TLV member is written apart and then placed behind the length field its size needs, so its
    // bytes must not depend on where it starts.
    if (c.underTlv && p.attr.alignment != ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE) {
        why = "\"" + p.name + "\" lies inside a TLV structure and has a DataAlignment, which TLV does not take";
        return false;
    }
    if ((parent.inTlv && !tlvMember(item, p, why)) || !selector(item, p, why) || !kind(item, p, why)) {
        return false;
    }
    const uint32_t bits = widthOf(p.kind) * 8;
    if (!enumeratorsOf(item, bits, p, why) || !scale(item, p, why) || (p.bitfield && !bitField(item, bits, p, why))) {
        return false;
    }
    switch (p.kind) {
    case Param::String:
        return stringLength(item, parent.inTlv, p, why);
    case Param::Structure:
        return structure(item, c, parent.inTlv, p, why);
    case Param::Array:
    case Param::Vector:
        return sequence(item, c, parent.inTlv, p, why);
    case Param::Union:
        return unionParam(item, c, parent.inTlv, p, why);
    default:
        return true;
    }
}

void ZQSomeIPPlainFormatCompiler::takeAttributes(const Context& c, Param& p)
{
    p.explicitAttr = true;
    p.attr = c.attr;
    p.unionTypeFirst = c.typeFirst;
    p.dynamicLengthFieldSize = c.dynamicLfs;
    p.stringBom = c.bom;
    p.stringTerminator = c.terminator;
    p.stringUtf16ByteOrder = c.utf16Set ? c.utf16Order : c.attr.byte_order;
}

bool ZQSomeIPPlainFormatCompiler::structure(const Json::Value& item, const Context& c, bool parentInTlv, Param& p,
                                            std::string& why)
{
    if (item.isMember("Tlv") && !flag(item["Tlv"], p.tlv)) {
        why = "\"Tlv\" of \"" + p.name + "\" is neither true nor false";
        return false;
    }
    if (p.tlv && p.attr.alignment != ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE) {
        why = "TLV structure \"" + p.name + "\" has a DataAlignment, which TLV does not take";
        return false;
    }
    if (p.tlv && p.attr.struct_length_field_size == 0 && !parentInTlv) {
        why = "TLV structure \"" + p.name + "\" has no length field, so its end is unknown";
        return false;
    }
    Context members = c;
    members.inTlv = p.tlv;
    const Json::Value& sub = get(item, "SubParams");
    return sub.isNull() || list(sub, members, p.members, why);
}

bool ZQSomeIPPlainFormatCompiler::sequence(const Json::Value& item, const Context& c, bool parentInTlv, Param& p,
                                           std::string& why)
{
    if (p.kind == Param::Array) {
        const Json::Value& count = item["Value"];
        if (count.isArray() || count.isObject()) {
            why = "array \"" + p.name + "\" has no element count";
            return false;
        }
        p.count = StringToNum<unsigned int>(count.asString());
    } else if (!vectorCounts(item, parentInTlv, p, why)) {
        return false;
    }
    // The element may be described directly, or inside an object of its own.
    const Json::Value& sub = get(item, "SubParams");
    const Json::Value& element = sub.isObject() ? sub["SubParams"] : sub;
    if (!element.isArray() || element.empty()) {
        why = "parameter \"" + p.name + "\" has no element description";
        return false;
    }
    Param e;
    if (!param(element[0], c, e, why)) {
        return false;
    }
    p.members.push_back(std::move(e));
    return true;
}

bool ZQSomeIPPlainFormatCompiler::unionParam(const Json::Value& item, const Context& c, bool parentInTlv, Param& p,
                                             std::string& why)
{
    if (p.attr.union_type_field_size == 0) {
        why = "union \"" + p.name + "\" has no type field (its UnionTypeSelectorFieldSize is 0)";
        return false;
    }
    if (item.isMember("AllowNull") && !flag(item["AllowNull"], p.allowNull)) {
        why = "\"AllowNull\" of \"" + p.name + "\" is neither true nor false";
        return false;
    }
    if (item.isMember("MaxLength")) {
        uint64_t n = 0;
        if (!countUpTo(item["MaxLength"], kMaxFixedLength, n)) {
            why = "\"MaxLength\" of \"" + p.name + "\" is not a byte count";
            return false;
        }
        p.maxLength = static_cast<uint32_t>(n);
    } else if (p.attr.union_length_field_size == 0 && !parentInTlv) {
        why = "union \"" + p.name + "\" has neither a length field nor a \"MaxLength\"";
        return false;
    }
    if (!list(get(item, "SubParams"), c, p.members, why)) {
        return false;
    }
    std::set<uint32_t> selectors;
    for (const Param& m : p.members) {
        if (m.selector == 0 || !selectors.insert(m.selector).second) {
            why = "union \"" + p.name + "\": member \"" + m.name + "\" has no \"Selector\" of its own above 0";
            return false;
        }
    }
    return true;
}

bool ZQSomeIPPlainFormatCompiler::checkTypes(std::string& why)
{
    auto check = [this, &why](const Json::Value& types, bool fileScope) {
        if (types.isNull()) {
            return true;
        }
        if (!types.isObject()) {
            why = "\"Types\" is not an object";
            return false;
        }
        for (const std::string& name : types.getMemberNames()) {
            Json::Value use(Json::objectValue);
            use["ParamName"] = name;
            use["ParamType"] = "TYPEREF";
            use["TypeRef"] = name;
            Context c;
            c.fileScope = fileScope;
            Param p;
            std::string unused;
            broken_.clear();
            budget_ = kParamBudget;
            param(use, c, p, unused);
            if (!broken_.empty()) {
                why = broken_;
                return false;
            }
        }
        return true;
    };
    serviceTypes_ = nullptr;
    if (!check(get(document_, "Types"), true)) {
        return false;
    }
    const Json::Value& services = get(document_, "Services");
    if (services.isArray()) {
        for (const Json::Value& service : services) {
            serviceTypes_ = &get(service, "Types");
            if (!check(*serviceTypes_, false)) {
                return false;
            }
        }
    }
    serviceTypes_ = nullptr;
    return true;
}

bool ZQSomeIPPlainFormatCompiler::compile(const Json::Value& service, const Json::Value& params,
                                          const ZQSomeIPExtendAttr& lookupAttr, ZQSomeIPPlainMethod& method,
                                          std::string& why)
{
    serviceTypes_ = &get(service, "Types");
    broken_.clear();
    budget_ = kParamBudget;
    method.version2 = true;

    Context c;
    c.attr = lookupAttr;
    std::string unsupported;
    // The new keys are read from the object the lookup took its attributes from.
    const Json::Value& own = get(service, "Attribute");
    const Json::Value& file = get(document_, "Attribute");
    const Json::Value& chosen = own.isObject() ? own
                                : (file.isArray() && !file.empty() && file[0].isObject()) ? file[0]
                                                                                          : Json::Value::nullSingleton();
    bool usable = attributes(chosen, c, unsupported) && attributes(get(params, "Attribute"), c, unsupported);
    if (usable && params.isMember("Tlv") && !flag(params["Tlv"], method.tlv)) {
        unsupported = "\"Tlv\" is neither true nor false";
        usable = false;
    }
    if (usable && method.tlv && c.attr.alignment != ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE) {
        unsupported = "a TLV parameter list has a DataAlignment, which TLV does not take";
        usable = false;
    }
    method.list.kind = Param::Structure;
    method.list.explicitAttr = true;
    method.list.attr = c.attr;
    method.list.attr.struct_length_field_size = 0;
    method.list.tlv = method.tlv;
    if (usable) {
        if (!params.isMember("ParamsDetails")) {
            unsupported = "the format has no \"ParamsDetails\"";
            usable = false;
        } else {
            c.inTlv = method.tlv;
            usable = list(params["ParamsDetails"], c, method.params, unsupported);
        }
    }
    serviceTypes_ = nullptr;
    if (!broken_.empty()) {
        why = broken_;
        return false;
    }
    if (!usable) {
        method.unsupported = unsupported;
        method.params.clear();
    }
    return true;
}

} // namespace ZQSomeIP
