// Generated version-1 method formats (every attribute, nested structs, arrays in both forms, vectors,
// keys left out or of the wrong kind), parameter lists with values that the classic encoder turns into
// payloads, and decode inputs made from those payloads (prefixes, bit flips, lone surrogates, random
// bytes). Shared by the differential tests of the fast paths.
#pragma once

#include <json/json.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "generator_support.h"

namespace v1gen {

using namespace gen;  // random choices, compact JSON

using Rng = std::mt19937;
using Bytes = std::vector<unsigned char>;

inline Json::Value first(const Json::Value& list) { return list.isArray() && !list.empty() ? list[0] : Json::Value(); }

// ---- method formats -------------------------------------------------------------------------------

inline const char* const kBasicTypes[] = {"bool",    "uint8_t", "uint16_t", "uint32_t", "uint64_t", "int8_t",
                                   "int16_t", "int32_t", "int64_t",  "float",    "double",   "STRING"};

// Every listed value of every key, keys left out, and numbers for text.
inline Json::Value attributes(Rng& rng)
{
    Json::Value a(Json::objectValue);
    for (const char* key : {"ArrayLengthFieldSize", "VectorLengthFieldSize", "StructLengthFieldSize",
                            "StringLengthFieldSize", "UnionLengthFieldSize", "UnionTypeSelectorFieldSize"})
        if (chance(rng, 90)) a[key] = pick(rng, {"0", "8", "8", "16", "16", "32", "32", "32"});
    if (chance(rng, 90)) a["DataAlignment"] = pick(rng, {"0", "8", "16", "32", "64"});
    if (chance(rng, 90)) a["ByteOrderEnum"] = pick(rng, {"BYTE_ORDER_BIG_ENDIAN", "BYTE_ORDER_LITTLE_ENDIAN"});
    if (chance(rng, 80)) a["StringEncoding"] = pick(rng, {"UTF8", "UTF16"});
    if (chance(rng, 10)) a[pick(rng, {"StructLengthFieldSize", "DataAlignment"})] = pick(rng, {8, 16, 32});
    return a;
}

enum class Place { Top, Struct, Array, Vector };

// Parameter descriptions, mostly as decoding expects them, with the ARRAY form that does not fit its
// place, extra keys and missing keys mixed in. Counts stay small: nested arrays multiply them.
struct FormatGen {
    Rng& rng;
    int serial = 0;

    Json::Value list(Place place, int depth, size_t count)
    {
        Json::Value out(Json::arrayValue);
        while (count-- > 0) out.append(param(place, depth));
        return out;
    }
    // A "ParamsDetails": an array, now and then empty or an object (its members are taken in key order).
    Json::Value topLevel(int levels = 3)
    {
        Json::Value params = list(Place::Top, 3 - levels, chance(rng, 3) ? 0 : 1 + below(rng, 4));
        if (!chance(rng, 5)) return params;
        Json::Value object(Json::objectValue);
        for (Json::ArrayIndex i = 0; i < params.size(); ++i) object[std::string(1, char('k' - i))] = params[i];
        return object;
    }
    Json::Value param(Place place, int depth)
    {
        Json::Value p(Json::objectValue);
        p["ParamName"] = "p" + std::to_string(serial++);
        const size_t kind = depth >= 3 ? 0 : below(rng, 10);
        if (kind < 6) {
            // Extra strings in containers: only there are they written, and so decoded, in UTF-16.
            p["ParamType"] = place != Place::Top && chance(rng, 20) ? "STRING" : kBasicTypes[below(rng, 12)];
            if (chance(rng, 30)) p["Value"] = pick(rng, {"", "0", "7"});
        } else if (kind < 8) {
            p["ParamType"] = "STRUCTURE";
            p["SubParams"] = list(Place::Struct, depth + 1, 1 + below(rng, 3));
        } else if (kind == 8) {
            p["ParamType"] = "ARRAY";
            p["Value"] = chance(rng, 10) ? Json::Value(2) : Json::Value(std::to_string(1 + below(rng, 3)));
            const Json::Value element = list(Place::Array, depth + 1, 1);
            if ((place == Place::Top || place == Place::Vector) != chance(rng, 15)) {  // the nested form
                p["SubParams"]["ParamName"] = "e" + std::to_string(serial++);
                p["SubParams"]["SubParams"] = element;
                if (chance(rng, 10)) p["SubParams"]["Description"] = "x";
            } else {
                p["SubParams"] = element;
            }
        } else {
            p["ParamType"] = "VECTOR";
            p["SubParams"] = list(Place::Vector, depth + 1, 1);
            if (chance(rng, 30)) p["Value"] = "0";
        }
        if (chance(rng, 15))
            p[pick(rng, {"Description", "Unit", "Default"})] =
                pick(rng, {Json::Value("x"), Json::Value(3), Json::Value(0.5), Json::Value(true), Json::Value()});
        if (chance(rng, 3)) p.removeMember(pick(rng, {"ParamName", "ParamType", "SubParams", "Value"}));
        if (chance(rng, 1)) p["ParamType"] = pick(rng, {"UINT8", "Struct", "string"});
        return p;
    }
};

// ---- values and payloads --------------------------------------------------------------------------

// "Value" text of a basic type. Strings hold non-ASCII text, characters that JSON must escape, and now
// and then bytes that are not UTF-8 (which cannot be written in UTF-16).
inline std::string basicValue(Rng& rng, const std::string& type)
{
    if (type == "bool") return pick(rng, {"true", "false"});
    if (type == "STRING") {
        std::string text;
        for (size_t n = below(rng, 6); n-- > 0;)
            text += pick(rng, {"a", "Z", "0", " ", "\xC3\xA9", "\xE6\x97\xA5\xE6\x9C\xAC", "\xF0\x9F\x98\x80", "\"",
                               "\\", "\n", "\t", "\x01", "\x7F", "/", "\xED\xA0\x80", "\xC3"});
        return text;
    }
    if (type == "float" || type == "double") return std::to_string((double(below(rng, 2000001)) - 1000000) / 64);
    const auto has = [&type](const char* digits) { return type.find(digits) != std::string::npos; };
    const int width = has("8") ? 8 : has("16") ? 16 : has("32") ? 32 : 64;
    uint64_t bits = rng();
    bits = chance(rng, 10) ? uint64_t(below(rng, 4)) << (64 - width) : bits << 32 | rng();
    return type[0] == 'u' ? std::to_string(bits >> (64 - width))
                          : std::to_string(static_cast<int64_t>(bits) >> (64 - width));
}

// A parameter list (or one parameter, at `place`) with values that encodes to what `format` decodes.
// Encoding is self-describing and writes the flat ARRAY form anywhere, so every array is given in that
// form, with as many elements as decoding reads there.
inline Json::Value fill(Rng& rng, const Json::Value& format, Place place = Place::Top, bool list = true)
{
    Json::Value v = format;
    if (list) {
        for (auto it = format.begin(); it != format.end(); ++it)
            (format.isArray() ? v[it.index()] : v[it.name()]) = fill(rng, *it, place, false);
        return v;
    }
    if (!format.isObject()) return v;
    const std::string type = format.get("ParamType", "").asString();
    const Json::Value sub = format.get("SubParams", Json::Value());
    if (type == "STRUCTURE" && sub.isArray()) {
        v["SubParams"] = fill(rng, sub, Place::Struct);
    } else if (type == "ARRAY") {
        const Json::Value element = sub.isObject() ? first(sub.get("SubParams", Json::Value())) : first(sub);
        const int count = place == Place::Vector ? (sub.isObject() ? int(sub.size()) : 1)
                                                 : std::clamp(atoi(format.get("Value", "").asString().c_str()), 1, 16);
        v["SubParams"] = Json::Value(Json::arrayValue);
        for (int i = 0; i < count; ++i) v["SubParams"].append(fill(rng, element, Place::Array, false));
        v["Value"] = std::to_string(count);
    } else if (type == "VECTOR") {
        v["SubParams"] = Json::Value(Json::arrayValue);
        for (size_t n = below(rng, 4); n-- > 0;) v["SubParams"].append(fill(rng, first(sub), Place::Vector, false));
    } else if (!type.empty()) {
        v["Value"] = basicValue(rng, type);
    }
    return v;
}

// Decode inputs made from encoded payloads: each whole, every prefix (of the first, and of short ones; a
// sample of the others'), single-bit flips, lone surrogates, random bytes, and the empty payload.
inline std::vector<Bytes> payloadsFrom(Rng& rng, const std::vector<Bytes>& valid)
{
    std::vector<Bytes> out = {{}};
    for (size_t i = 0; i < valid.size(); ++i) {
        const Bytes& p = valid[i];
        out.push_back(p);
        for (size_t n = 1; n < p.size(); n += i == 0 || p.size() <= 48 ? 1 : 1 + below(rng, 12))
            out.emplace_back(p.begin(), p.begin() + n);
        for (int flips = 0; flips < 6 && !p.empty(); ++flips) {
            out.push_back(p);
            out.back()[below(rng, p.size())] ^= static_cast<unsigned char>(1u << below(rng, 8));
        }
        // Surrogate halves just after UTF-16 byte order marks (at a random place when there is none).
        std::vector<size_t> marks;
        for (size_t k = 0; k + 3 < p.size() && marks.size() < 3; ++k)
            if ((p[k] == 0xFF && p[k + 1] == 0xFE) || (p[k] == 0xFE && p[k + 1] == 0xFF)) marks.push_back(k + 2);
        if (marks.empty() && p.size() >= 2) marks.push_back(below(rng, p.size() - 1));
        for (size_t at : marks)
            for (int half = 0; half < 2; ++half) {
                out.push_back(p);
                out.back()[at + half] = pick<unsigned char>(rng, {0xD8, 0xDC});
                out.back()[at + 1 - half] = 0x00;
            }
    }
    for (int r = 0; r < 2; ++r) {
        out.emplace_back(below(rng, 24));
        for (unsigned char& b : out.back()) b = static_cast<unsigned char>(rng());
    }
    return out;
}

}  // namespace v1gen
