// Generated version-2 formats using every construct, nested (unions in arrays, TLV in unions, chains of
// shared types, byte orders and length field sizes per element), random values for them in every form
// encode accepts with the text a decode must give back, and damaged payloads. Shared by the round trip
// test of the plain codec and the differential test of its compiled decoder.
#pragma once

#include <json/json.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "generator_support.h"

namespace v2gen {

using namespace gen;  // random choices, compact JSON

using Rng = std::mt19937_64;
using Bytes = std::vector<uint8_t>;

inline uint64_t mask(unsigned bits) { return bits >= 64 ? ~uint64_t(0) : (uint64_t(1) << bits) - 1; }

inline const char* const kIntegers[] = {"uint8_t", "uint16_t", "uint32_t", "uint64_t", "int8_t", "int16_t", "int32_t", "int64_t"};
inline unsigned widthOf(const std::string& integer) { return unsigned(std::stoul(integer.substr(integer[0] == 'i' ? 3 : 4))); }

// ---- the model of a generated format: what its values look like -----------------------------------------

struct Enumerator {
    std::string name;
    int64_t first, last;
};
struct Field {
    std::string name;
    unsigned bit, width;
    std::vector<Enumerator> names;
};
struct Node {
    std::string name, type;  // a basic type, or ENUM, BITFIELD, STRING, STRUCTURE, ARRAY, VECTOR, UNION
    std::string base;        // the integer type of an ENUM or BITFIELD
    std::vector<Enumerator> names;
    std::vector<Field> fields;
    bool scaled = false, optional = false, allowNull = false;
    bool utf16 = false, bom = true, terminator = true;  // strings: the rules in force at the element
    unsigned fixedLength = 0, count = 0, minCount = 0, maxCount = 3;
    std::vector<Node> kids;  // members, or the one element
};

// What an element inherits from where it stands.
struct Env {
    bool utf16 = false, bom = true, terminator = true;
    unsigned unionLength = 32;
    bool underTlv = false;  // no byte order or alignment of its own below a TLV container
};

struct Generator {
    Rng& rng;
    bool canonical;  // no bool, TLV, union or alignment: every value has exactly one encoding
    Json::Value fileTypes{Json::objectValue}, serviceTypes{Json::objectValue};
    std::set<std::string> serviceNames;

    Generator(Rng& r, bool oneEncoding) : rng(r), canonical(oneEncoding) {}

    Json::Value flag(bool on) { return chance(rng, 50) ? Json::Value(on) : Json::Value(on ? "true" : "false"); }

    void attributes(Env& env, Json::Value& p)
    {
        if (!chance(rng, 35)) return;
        Json::Value a(Json::objectValue);
        for (size_t n = 1 + below(rng, 3); n > 0; --n) {
            switch (below(rng, 11)) {
            case 0:
                if (!env.underTlv) a["ByteOrderEnum"] = pick(rng, {"BYTE_ORDER_BIG_ENDIAN", "BYTE_ORDER_LITTLE_ENDIAN"});
                break;
            case 1: env.utf16 = chance(rng, 50), a["StringEncoding"] = env.utf16 ? "UTF16" : "UTF8"; break;
            case 2: env.bom = chance(rng, 50), a["StringBom"] = flag(env.bom); break;
            case 3: env.terminator = chance(rng, 50), a["StringTerminator"] = flag(env.terminator); break;
            case 4: a["StringUtf16ByteOrder"] = pick(rng, {"BYTE_ORDER_BIG_ENDIAN", "BYTE_ORDER_LITTLE_ENDIAN"}); break;
            case 5: a[pick(rng, {"VectorLengthFieldSize", "StringLengthFieldSize"})] = pick(rng, {"8", "16", "32"}); break;
            case 6: a[pick(rng, {"ArrayLengthFieldSize", "StructLengthFieldSize"})] = pick(rng, {"0", "8", "16", "32"}); break;
            case 7:
                a["UnionLengthFieldSize"] = pick(rng, {"0", "8", "16", "32"});
                env.unionLength = unsigned(std::stoul(a["UnionLengthFieldSize"].asString()));
                a["UnionTypeSelectorFieldSize"] = pick(rng, {"8", "16", "32"});
                break;
            case 8: a["UnionFieldOrder"] = pick(rng, {"LENGTH_FIRST", "TYPE_FIRST"}); break;
            case 9: a["DynamicLengthFieldSize"] = flag(chance(rng, 50)); break;
            case 10:
                if (!env.underTlv && !canonical) a["DataAlignment"] = pick(rng, {"8", "16", "32", "64"});
                break;
            }
        }
        if (!a.empty()) p["Attribute"] = a;
    }

    std::vector<Enumerator> enumerators(bool isSigned, int64_t limit, Json::Value& p)
    {
        std::vector<Enumerator> out;
        Json::Value list(Json::arrayValue);
        int64_t v = isSigned ? -int64_t(below(rng, 4)) : int64_t(below(rng, 2));
        for (size_t i = 0, n = 1 + below(rng, 4); i < n; ++i) {
            const int64_t last = chance(rng, 25) ? v + 1 + int64_t(below(rng, 4)) : v;
            if (last > limit) break;
            out.push_back({"N" + std::to_string(i), v, last});
            Json::Value& e = list.append(Json::Value());
            e["Name"] = out.back().name;
            e["Value"] = chance(rng, 50) ? Json::Value(Json::Int64(v)) : Json::Value(std::to_string(v));
            if (last != v) e["ValueEnd"] = Json::Int64(last);
            v = last + 1 + int64_t(below(rng, 3));
        }
        if (!out.empty()) p["Enumerators"] = list;
        return out;
    }

    // The members of a structure, union or parameter list, each passed through `share`.
    void members(const Env& env, Node& n, Json::Value& list, bool tlv, bool selectors, int depth)
    {
        std::set<size_t> ids;
        for (size_t i = 0, count = 1 + below(rng, 4); i < count; ++i) {
            Json::Value m;
            Node k = param(env, "m" + std::to_string(i), depth + 1, tlv, m);
            if (tlv) {
                size_t id = below(rng, 4096);
                while (!ids.insert(id).second) id = below(rng, 4096);
                m["DataId"] = Json::UInt(id);
                if (chance(rng, 30)) m["Optional"] = k.optional = true;
            }
            if (selectors) m["Selector"] = Json::UInt(i * 3 + 1 + below(rng, 3));
            list.append(share(m));
            n.kids.push_back(k);
        }
    }

    Node param(Env env, const std::string& name, int depth, bool tlvMember, Json::Value& p)
    {
        Node n;
        n.name = name;
        p["ParamName"] = name;
        attributes(env, p);
        size_t kind = below(rng, depth >= 3 ? 7 : 11);
        if (kind == 10 && canonical) kind = 7;
        if (kind == 0 || kind == 6) {
            const char* basics[] = {"bool", "uint8_t", "uint16_t", "uint32_t", "uint64_t", "int8_t", "int16_t", "int32_t",
                                    "int64_t", "float", "double"};
            n.type = basics[canonical ? 1 + below(rng, 10) : below(rng, 11)];
            p["ParamType"] = n.type;
            if (n.type != "bool" && chance(rng, 30)) {
                n.scaled = true;
                Json::Value& s = p["Scale"];
                s["Factor"] = pick(rng, {0.5, 2.0, 0.1});
                s["Offset"] = pick(rng, {0.0, -40.0, 10.0});
                if (chance(rng, 50)) s["Unit"] = "km/h";
            }
        } else if (kind == 1 || kind == 2) {
            n.base = kIntegers[below(rng, 8)];
            n.type = kind == 1 ? "ENUM" : n.base;
            p["ParamType"] = n.type;
            if (kind == 1) p["BaseType"] = n.base;
            n.names = enumerators(n.base[0] == 'i', 100, p);
        } else if (kind == 3) {
            n.type = "BITFIELD";
            n.base = pick(rng, {"uint8_t", "uint16_t", "uint32_t", "uint64_t"});
            p["ParamType"] = "BITFIELD";
            p["BaseType"] = n.base;
            const unsigned width = widthOf(n.base);
            for (unsigned bit = unsigned(below(rng, 3)), i = 0; i < 4 && bit < width; ++i) {
                Field f{"b" + std::to_string(i), bit, 1 + unsigned(below(rng, std::min(8u, width - bit))), {}};
                Json::Value& j = p["Bits"].append(Json::Value());
                j["Name"] = f.name;
                j["Bit"] = f.bit;
                if (f.width > 1 || chance(rng, 30)) j["Width"] = f.width;
                if (f.width > 1 && chance(rng, 40)) f.names = enumerators(false, int64_t(mask(f.width)), j);
                n.fields.push_back(f);
                bit += f.width + unsigned(below(rng, 3));
            }
        } else if (kind == 4 || kind == 5) {
            n.type = "STRING";
            p["ParamType"] = "STRING";
            n.utf16 = env.utf16, n.bom = env.bom, n.terminator = env.terminator;
            if (kind == 5) p["FixedLength"] = n.fixedLength = 8 + 2 * unsigned(below(rng, 9));
        } else if (kind == 7) {
            n.type = "STRUCTURE";
            p["ParamType"] = "STRUCTURE";
            const bool tlv = !canonical && chance(rng, 30);
            if (tlv) {  // TLV needs a length field of its own and no alignment inside
                p["Tlv"] = flag(true);
                p["Attribute"]["StructLengthFieldSize"] = pick(rng, {"8", "16", "32"});
                p["Attribute"]["DataAlignment"] = "8";
                env.underTlv = true;
            }
            members(env, n, p["SubParams"], tlv, false, depth);
        } else if (kind == 8 || kind == 9) {
            n.type = kind == 8 ? "ARRAY" : "VECTOR";
            p["ParamType"] = n.type;
            if (kind == 8) p["Value"] = std::to_string(n.count = 1 + unsigned(below(rng, 3)));
            if (kind == 9 && chance(rng, 40)) {
                p["MinCount"] = n.minCount = unsigned(below(rng, 2));
                p["MaxCount"] = n.maxCount = n.minCount + unsigned(below(rng, 3));
            }
            Json::Value e;
            n.kids.push_back(param(env, "e", depth + 1, false, e));
            p["SubParams"].append(share(e));
        } else {
            n.type = "UNION";
            p["ParamType"] = "UNION";
            if (tlvMember && env.unionLength == 0) {  // the TLV length replaces the union's: keep MaxLength out of it
                p["Attribute"]["UnionLengthFieldSize"] = "16";
                env.unionLength = 16;
            }
            if (env.unionLength == 0) p["MaxLength"] = 24 + Json::UInt(below(rng, 40));
            if (chance(rng, 30)) p["AllowNull"] = n.allowNull = true;
            members(env, n, p["SubParams"], false, true, depth);
        }
        return n;
    }

    bool refersToService(const Json::Value& v) const
    {
        if (v.isObject() && v["ParamType"] == "TYPEREF" && serviceNames.count(v["TypeRef"].asString())) return true;
        if (v.isObject() || v.isArray()) {
            for (const Json::Value& child : v)
                if (refersToService(child)) return true;
        }
        return false;
    }

    std::string define(const Json::Value& body)
    {
        const bool fileLevel = !refersToService(body) && chance(rng, 50);
        const std::string name = "T" + std::to_string(fileTypes.size() + serviceTypes.size());
        (fileLevel ? fileTypes : serviceTypes)[name] = body;
        if (!fileLevel) serviceNames.insert(name);
        return name;
    }

    // Sometimes a parameter becomes a shared type (perhaps through a chain of them), some of its keys
    // staying on the use site.
    Json::Value share(Json::Value p)
    {
        if (!chance(rng, 25)) return p;
        Json::Value use;
        use["ParamName"] = p["ParamName"];
        use["ParamType"] = "TYPEREF";
        p.removeMember("ParamName");
        for (const char* key : {"DataId", "Optional", "Selector", "Scale"}) {
            if (p.isMember(key) && chance(rng, 50)) use[key] = p[key], p.removeMember(key);
        }
        if (p.isMember("Attribute") && chance(rng, 50)) {
            for (const std::string& key : p["Attribute"].getMemberNames()) {
                if (chance(rng, 50)) use["Attribute"][key] = p["Attribute"][key], p["Attribute"].removeMember(key);
            }
        }
        std::string name = define(p);
        while (chance(rng, 30)) {
            Json::Value link;
            link["ParamType"] = "TYPEREF";
            link["TypeRef"] = name;
            name = define(link);
        }
        use["TypeRef"] = name;
        return use;
    }
};

struct Generated {
    std::string file;
    Node list;  // a STRUCTURE standing for the parameter list
    bool canonical;
};

inline Generated generate(Rng& rng)
{
    Generator g{rng, chance(rng, 35)};
    Env env;
    Json::Value a;
    a["ByteOrderEnum"] = pick(rng, {"BYTE_ORDER_BIG_ENDIAN", "BYTE_ORDER_LITTLE_ENDIAN"});
    for (const char* key : {"VectorLengthFieldSize", "StringLengthFieldSize"}) a[key] = pick(rng, {"8", "16", "32"});
    for (const char* key : {"ArrayLengthFieldSize", "StructLengthFieldSize", "UnionLengthFieldSize"}) a[key] = pick(rng, {"0", "8", "16", "32"});
    env.unionLength = unsigned(std::stoul(a["UnionLengthFieldSize"].asString()));
    a["UnionTypeSelectorFieldSize"] = pick(rng, {"8", "16", "32"});
    env.utf16 = chance(rng, 30);
    a["StringEncoding"] = env.utf16 ? "UTF16" : "UTF8";
    if (!g.canonical && chance(rng, 30)) a["DataAlignment"] = pick(rng, {"8", "16", "32", "64"});

    Json::Value root, entry;
    root["FormatVersion"] = chance(rng, 50) ? Json::Value(2) : Json::Value("2");
    Json::Value& service = root["Services"][0];
    service["ServiceID"] = "4660";
    (chance(rng, 50) ? root["Attribute"][0] : service["Attribute"]) = a;
    entry["MethodType"] = "event";
    g.attributes(env, entry);
    const bool tlv = !g.canonical && chance(rng, 20);
    if (tlv) {
        entry["Tlv"] = true;
        entry["Attribute"]["DataAlignment"] = "8";
        env.underTlv = true;
    }
    Generated out{"", Node(), g.canonical};
    out.list.type = "STRUCTURE";
    g.members(env, out.list, entry["ParamsDetails"], tlv, false, 0);
    service["Events"][0]["EventID"] = "1";
    service["Events"][0]["Params"][0] = entry;
    if (!g.fileTypes.empty()) root["Types"] = g.fileTypes;
    if (!g.serviceTypes.empty()) service["Types"] = g.serviceTypes;
    out.file = root.toStyledString();
    return out;
}

// ---- values: what to encode, and what a decode must give back ----------------------------------------

struct Sample {
    Json::Value canonical, input;  // as the default decode writes it; in any form encode accepts
    bool ranged = false;           // holds a named range's later value: its name alone encodes the first
};

inline Json::Value integer(Rng& rng, const std::string& type)
{
    const unsigned width = widthOf(type);
    const uint64_t bits = rng() & (chance(rng, 30) ? 0xff : ~uint64_t(0)) & mask(width);
    return type[0] == 'u' ? Json::Value(Json::UInt64(bits)) : Json::Value(Json::Int64(int64_t(bits << (64 - width)) >> (64 - width)));
}

inline const Enumerator* named(const std::vector<Enumerator>& names, const Json::Value& raw)
{
    for (const Enumerator& e : names)
        if (raw.isInt64() && raw.asInt64() >= e.first && raw.asInt64() <= e.last) return &e;
    return nullptr;
}

// A raw value of an enumerated integer, named more often than not.
inline Json::Value enumeratedRaw(Rng& rng, const std::vector<Enumerator>& names, const std::string& type)
{
    if (names.empty() || chance(rng, 40)) return integer(rng, type);
    const Enumerator& e = names[below(rng, names.size())];
    return Json::Int64(e.first + int64_t(below(rng, size_t(e.last - e.first + 1))));
}

inline Sample enumerated(Rng& rng, const std::vector<Enumerator>& names, const Json::Value& raw)
{
    const Enumerator* e = named(names, raw);
    Sample s{e ? Json::Value(e->name) : raw, raw, e && raw.asInt64() != e->first};
    if (names.empty()) return s;  // a plain integer: numbers only
    const bool first = e && raw.asInt64() == e->first;  // a name alone means a range's first value
    switch (below(rng, 5)) {
    case 0: break;
    case 1: if (first) s.input = e->name; break;
    case 2: if (first) s.input = Json::objectValue, s.input["name"] = e->name; break;
    case 3: s.input = Json::objectValue, s.input["value"] = raw; break;
    case 4: if (e) s.input = Json::objectValue, s.input["name"] = e->name, s.input["value"] = raw; break;
    }
    return s;
}

inline size_t wireSize(const Node& n, const std::string& text)
{
    size_t units = 0;
    for (unsigned char c : text) units += n.utf16 ? ((c & 0xC0) != 0x80 ? (c >= 0xF0 ? 4 : 2) : 0) : 1;
    return units + (n.bom ? (n.utf16 ? 2 : 3) : 0) + (n.terminator ? (n.utf16 ? 2 : 1) : 0);
}

inline Sample bitfield(Rng& rng, const Node& n)
{
    uint64_t raw = rng() & mask(widthOf(n.base));
    const size_t form = below(rng, 3);  // every field and $raw, $raw alone, some fields alone
    std::vector<bool> given(n.fields.size(), true);
    if (form == 2) {
        uint64_t covered = 0;
        for (size_t i = 0; i < n.fields.size(); ++i) {
            given[i] = chance(rng, 60);
            if (given[i]) covered |= mask(n.fields[i].width) << n.fields[i].bit;
        }
        raw &= covered;
    }
    Sample s{Json::objectValue, Json::objectValue};
    for (size_t i = 0; i < n.fields.size(); ++i) {
        const Field& f = n.fields[i];
        const uint64_t v = (raw >> f.bit) & mask(f.width);
        Sample field = f.width == 1 ? Sample{v == 1, v == 1} : enumerated(rng, f.names, Json::UInt64(v));
        s.canonical[f.name] = field.canonical;
        s.ranged = s.ranged || field.ranged;
        if (form != 1 && given[i]) s.input[f.name] = field.input;
    }
    s.canonical["$raw"] = Json::UInt64(raw);
    if (form != 2) s.input["$raw"] = Json::UInt64(raw);
    return s;
}

inline Sample value(Rng& rng, const Node& n)
{
    if (n.type == "STRUCTURE" || n.type == "ARRAY" || n.type == "VECTOR") {
        const bool object = n.type == "STRUCTURE";
        Sample s{object ? Json::objectValue : Json::arrayValue, object ? Json::objectValue : Json::arrayValue};
        const size_t count = object ? n.kids.size() : n.type == "ARRAY" ? n.count : n.minCount + below(rng, n.maxCount - n.minCount + 1);
        for (size_t i = 0; i < count; ++i) {
            const Node& k = n.kids[object ? i : 0];
            if (k.optional && chance(rng, 30)) continue;
            Sample m = value(rng, k);
            (object ? s.canonical[k.name] : s.canonical.append(Json::Value())) = m.canonical;
            (object ? s.input[k.name] : s.input.append(Json::Value())) = m.input;
            s.ranged = s.ranged || m.ranged;
        }
        return s;
    }
    if (n.type == "UNION") {
        if (n.allowNull && chance(rng, 25)) return {Json::Value(), Json::Value()};
        const Node& k = n.kids[below(rng, n.kids.size())];
        Sample m = value(rng, k), s{Json::objectValue, Json::objectValue};
        s.canonical[k.name] = m.canonical;
        s.input[k.name] = m.input;
        s.ranged = m.ranged;
        return s;
    }
    if (n.type == "STRING") {
        std::string text = randomText(rng);
        for (int tries = 0; n.fixedLength && wireSize(n, text) > n.fixedLength; ++tries) text = tries < 20 ? randomText(rng) : "";
        return {text, text};
    }
    if (n.type == "BITFIELD") return bitfield(rng, n);
    if (!n.base.empty()) return enumerated(rng, n.names, enumeratedRaw(rng, n.names, n.base));
    Json::Value v;
    if (n.type == "bool") v = chance(rng, 50);
    else if (n.type == "float") v = std::ldexp(double(float(int(rng() % 2000000) - 1000000)), int(below(rng, 40)) - 30);
    else if (n.type == "double") v = std::ldexp(double(int64_t(rng())), int(below(rng, 200)) - 100);
    else v = integer(rng, n.type);
    Sample s{v, v};
    if (n.scaled && chance(rng, 40)) {  // an object is read in any style: "raw" when present
        s.input = Json::objectValue;
        s.input["raw"] = v;
        if (chance(rng, 50)) s.input["value"] = 12345;
    }
    return s;
}

inline Bytes damaged(Rng& rng, Bytes b)
{
    const size_t kind = below(rng, 4);  // bytes changed, cut, one inserted, some appended
    for (size_t n = 1 + below(rng, 2); kind == 0 && n > 0 && !b.empty(); --n) b[below(rng, b.size())] = uint8_t(rng());
    if (kind == 1) b.resize(below(rng, b.size() + 1));
    if (kind == 2) b.insert(b.begin() + std::ptrdiff_t(below(rng, b.size() + 1)), uint8_t(rng()));
    for (size_t n = 1 + below(rng, 3); kind == 3 && n > 0; --n) b.push_back(uint8_t(rng()));
    return b;
}

}  // namespace v2gen
