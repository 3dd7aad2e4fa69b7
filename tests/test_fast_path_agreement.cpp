// Differential test of the compiled fast paths: every lookup, decode and encode must leave exactly the
// same traces (result, output text or bytes, attribute record, escaping exception) with the fast paths
// on as with only the reference converters and the scanning lookup. Cases come from seeded generators;
// a failure names its round's seed, and SOMEIP_AGREEMENT_SEED=<seed> replays that round first.
// SOMEIP_AGREEMENT_CASES sets how many cases each test runs (fewer for slow builds, more to soak).

#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "ZQSomeIPParser.h"
#include "conv_test_support.h"
#include "format_v1_generator.h"
#include "generator_support.h"

using convtest::hex;
using convtest::TempDir;
using ZQSomeIP::ZQSomeIPParser;

namespace {

using namespace gen;    // random choices, seeds, compact JSON
using namespace v1gen;  // formats, values and payloads

const unsigned long kSeed = envNumber("SOMEIP_AGREEMENT_SEED", std::random_device{}());
const size_t kCases = envNumber("SOMEIP_AGREEMENT_CASES", 6000);


// ---- the two parsers ------------------------------------------------------------------------------

std::string attempt(const std::function<int()>& call)
{
    try {
        return "rc " + std::to_string(call());
    } catch (const std::exception& e) {
        return std::string("threw ") + typeid(e).name() + ": " + e.what();
    } catch (...) {
        return "threw something that is not a std::exception";
    }
}

// Every field of the record but the flag, in declaration order.
std::vector<uint32_t*> numbers(ZQSomeIPExtendAttr& a)
{
    return {&a.array_length_field_size, &a.vector_length_field_size, &a.struct_length_field_size,
            &a.string_length_field_size, &a.union_length_field_size, &a.alignment, &a.byte_order,
            &a.union_type_field_size, &a.string_utf, &a.length_field_value, &a.length_field_read};
}

std::string describe(ZQSomeIPExtendAttr a)
{
    std::string out = "dynamic " + std::to_string(a.dynamic_flag) + ", the others";
    for (const uint32_t* field : numbers(a)) out += " " + std::to_string(*field);
    return out;
}

// Not the defaults, so that a field a lookup wrongly writes or wrongly leaves alone shows.
ZQSomeIPExtendAttr scrambledRecord(Rng& rng)
{
    ZQSomeIPExtendAttr a;
    for (uint32_t* field : numbers(a)) *field = static_cast<uint32_t>(below(rng, 9));
    a.dynamic_flag = chance(rng, 50);
    return a;
}

struct Query { int service, method, type; };

const char kSentinel[] = "<untouched>";
const Bytes kSentinelBytes = {0xDE, 0xAD, 0xBE, 0xEF};

// Two parsers that loaded the same files, one with the fast paths and one with the reference path only.
// Every call goes to both in the same order (the scanning lookup writes absent keys into the stored
// documents, so both must see the same history) and must leave the same trace.
struct Parsers {
    ZQSomeIPParser fast, reference;
    Parsers() { fast.setFastPathEnabled(true); reference.setFastPathEnabled(false); }

    template <class Run> bool agree(Run run)
    {
        const std::string fastTrace = run(fast), referenceTrace = run(reference);
        EXPECT_EQ(fastTrace, referenceTrace) << "(left: fast paths on, right: reference only)";
        return fastTrace == referenceTrace;
    }
    bool load(const std::string& path)
    {
        return agree([&](ZQSomeIPParser& p) { return attempt([&] { return p.loadFormatJson(path); }); });
    }
    // `json`, when given, receives the reference's output of a successful decode (empty otherwise).
    bool decode(const Query& q, const Bytes& payload, std::string* json = nullptr)
    {
        return agree([&](ZQSomeIPParser& p) {
            Bytes input = payload;
            std::string out = kSentinel;
            const std::string rc =
                attempt([&] { return p.deserializebyMethodID(q.service, q.method, q.type, input, out); });
            if (json) *json = rc == "rc 0" ? out : "";
            return rc + "\njson: " + out + "\npayload after the call: " + hex(input);
        });
    }
    bool encode(const Query& q, const std::string& json, Bytes* payload = nullptr)
    {
        return agree([&](ZQSomeIPParser& p) {
            std::string input = json;
            Bytes out = kSentinelBytes;
            const std::string rc =
                attempt([&] { return p.serializebyMethodID(q.service, q.method, q.type, input, out); });
            if (payload) *payload = rc == "rc 0" ? out : Bytes();
            return rc + "\npayload: " + hex(out) + "\njson after the call: " + input;
        });
    }
    bool lookup(const Query& q, const ZQSomeIPExtendAttr& start, bool withAttr)
    {
        return agree([&](ZQSomeIPParser& p) {
            std::string format = kSentinel;
            ZQSomeIPExtendAttr attr = start;
            const std::string rc = attempt([&] {
                return withAttr ? p.getMethodFormatbyIDWithAttr(q.service, q.method, q.type, format, attr)
                                : p.getMethodFormatbyID(q.service, q.method, q.type, format);
            });
            return rc + "\nformat: " + format + "\nattributes: " + describe(attr);
        });
    }
};


// ---- JSON text ------------------------------------------------------------------------------------

// JSON text of a value. With `vary`, in ways that must read as the same document: blanks and comments
// between tokens (but no comment between a key and its colon, where the reader refuses one), escaped
// characters (surrogate pairs beyond U+FFFF), "\/", and a decoy under a key given twice (the last counts).
struct Emitter {
    Rng& rng;
    bool vary;

    std::string gap() { return vary && chance(rng, 20) ? pick(rng, {" ", "\n\t", "// c\n", "/* c */", "/**/\n"}) : ""; }
    static std::string unit(unsigned code, bool upper)
    {
        char text[16];
        snprintf(text, sizeof text, upper ? "\\u%04X" : "\\u%04x", code);
        return text;
    }
    std::string quote(const std::string& s)
    {
        const bool upper = chance(rng, 50);
        std::string out = "\"";
        for (size_t i = 0; i < s.size(); ) {
            const unsigned char c = static_cast<unsigned char>(s[i]);
            size_t len = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
            unsigned code = len == 1 ? c : c & (0x7Fu >> len);
            for (size_t k = 1; k < len; ++k) {
                if (i + k < s.size() && (s[i + k] & 0xC0) == 0x80) {
                    code = code << 6 | (s[i + k] & 0x3F);
                } else {
                    len = 1;  // not a whole sequence: its bytes are copied as they are
                }
            }
            if (c == '"' || c == '\\') out += {'\\', static_cast<char>(c)};
            else if (c == '\n') out += "\\n";
            else if (c < 0x20) out += unit(c, upper);
            else if (c == '/' && vary && chance(rng, 30)) out += "\\/";
            else if (len > 1 && vary && chance(rng, 50) && code < 0x10000) out += unit(code, upper);
            else if (len > 1 && vary && code >= 0x10000 && chance(rng, 50))  // a surrogate pair
                out += unit(0xD800 + ((code - 0x10000) >> 10), upper) + unit(0xDC00 + (code & 0x3FF), upper);
            else out.append(s, i, len);
            i += len;
        }
        return out + "\"";
    }
    std::string emit(const Json::Value& v)
    {
        std::string out;
        if (!v.isObject() && !v.isArray()) return v.isString() ? quote(v.asString()) : compact(v);
        for (auto it = v.begin(); it != v.end(); ++it) {  // one random choice a statement: replays stay exact
            out += it == v.begin() ? "" : ",";
            out += gap();
            if (v.isObject()) {
                if (vary && chance(rng, 3)) out += quote(it.name()) + ":\"decoy\",";
                out += quote(it.name());
                out += vary && chance(rng, 20) ? " \n:" : ":";
                out += gap();
            }
            out += emit(*it);
            out += gap();
        }
        return v.isObject() ? "{" + out + "}" : "[" + out + "]";
    }
};

// An encode input derived from a parameter list: one to three changes of its tree (values of other types,
// missing keys, other types, element counts that differ from an ARRAY's "Value", other roots, deep
// nesting), written with lexical variation and sometimes broken as text (cut short, trailing text, a stray
// character, a lone surrogate escape). An ARRAY's "Value" stays at most 16 in every spelling.
std::string mutate(Rng& rng, Json::Value root)
{
    const auto smallCount = [&rng] {
        return pick(rng, {Json::Value("0"), Json::Value("1"), Json::Value("3"), Json::Value("16"), Json::Value(2),
                          Json::Value(" 2"), Json::Value("2x"), Json::Value(true), Json::Value(), Json::Value(""),
                          Json::Value(2.9), Json::Value(Json::arrayValue)});
    };
    for (size_t changes = 1 + below(rng, 3); changes-- > 0;) {
        std::vector<Json::Value*> params;  // the parameter objects, wherever they stand
        const std::function<void(Json::Value&)> collect = [&](Json::Value& node) {
            if (node.isObject() && node.isMember("ParamType")) params.push_back(&node);
            if (node.isObject() || node.isArray())
                for (Json::Value& child : node) collect(child);
        };
        collect(root);
        if (params.empty()) break;
        Json::Value& p = *params[below(rng, params.size())];
        const bool isArray = p["ParamType"] == "ARRAY";
        switch (below(rng, 10)) {
        case 0:
            p["Value"] = isArray ? smallCount()
                                 : pick(rng, {Json::Value(7), Json::Value(-5), Json::Value(3.75), Json::Value(1e300),
                                              Json::Value(true), Json::Value(), Json::Value(""), Json::Value(" 42"),
                                              Json::Value("0x10"), Json::Value("99999999999999999999"),
                                              Json::Value("-0"), Json::Value("1e3"), Json::Value(Json::objectValue),
                                              Json::Value("\xC3\xA9\xF0\x9F\x98\x80")});
            break;
        case 1: p.removeMember(pick(rng, {"Value", "ParamType", "SubParams", "ParamName"})); break;
        case 2:
            p["ParamType"] = pick(rng, {"bool", "uint16_t", "int64_t", "double", "STRING", "STRUCTURE", "VECTOR",
                                        "ARRAY", "Bool", ""});
            if (p["ParamType"] == "ARRAY") p["Value"] = smallCount();
            break;
        case 3:
            if (isArray) p["Value"] = std::to_string(below(rng, 17));
            break;
        case 4:
            if (p["SubParams"].isArray() && !p["SubParams"].empty()) {
                Json::Value dropped;
                if (chance(rng, 50)) p["SubParams"].append(p["SubParams"][0]);
                else p["SubParams"].removeIndex(p["SubParams"].size() - 1, &dropped);
            }
            break;
        case 5: p["SubParams"] = pick(rng, {Json::Value(Json::objectValue), Json::Value("x"), Json::Value(5)}); break;
        case 6:  // deep, within what the JSON reader takes
            for (size_t depth = 20 + below(rng, 80); depth-- > 0 && root.isArray();) {
                Json::Value wrapper(Json::arrayValue);
                wrapper[0]["ParamType"] = "STRUCTURE";
                wrapper[0]["SubParams"].swap(root);
                root.swap(wrapper);
            }
            break;
        case 7:  // an object root: its members are taken in key order
            if (root.isArray()) {
                Json::Value object(Json::objectValue);
                for (Json::ArrayIndex i = 0; i < root.size(); ++i) object["m" + std::to_string(10 + i)] = root[i];
                root.swap(object);
            }
            break;
        case 8: p = pick(rng, {Json::Value(5), Json::Value("x"), Json::Value(), Json::Value(Json::arrayValue)}); break;
        default:
            (chance(rng, 50) ? p : root) =
                pick(rng, {Json::Value(Json::objectValue), Json::Value(Json::arrayValue), Json::Value("x")});
        }
    }
    std::string text = Emitter{rng, chance(rng, 60)}.emit(root);
    if (chance(rng, 12)) {
        const size_t value = text.find("\"Value\"");
        const size_t quote = value == std::string::npos ? value : text.find('"', value + 7);
        switch (below(rng, 4)) {
        case 0: text.resize(below(rng, text.size() + 1)); break;
        case 1: text += pick(rng, {" trailing", "]", "{}", " // end", "\n/* open"}); break;
        case 2:  // no digit or minus sign: an ARRAY's count must not grow
            if (!text.empty()) text[below(rng, text.size())] = pick(rng, {'"', ',', ':', '}', ']', ' ', 'x', '\\'});
            break;
        default:
            if (quote != std::string::npos) text.insert(quote + 1, pick(rng, {"\\ud800", "\\udc00", "\\ud83d\\u0041"}));
        }
    }
    return text;
}

// ---- rounds ---------------------------------------------------------------------------------------

struct Service { Query query; Json::Value format; std::string trace; };

// Writes and loads one file of six services (IDs 1-6), each with method 1 carrying the same generated
// format as request and response, under the service's own attributes, the file's or none.
std::vector<Service> setUpRound(Rng& rng, Parsers& parsers, TempDir& dir, unsigned round)
{
    Json::Value doc(Json::objectValue);
    if (chance(rng, 30)) doc["Attribute"].append(attributes(rng));
    std::vector<Service> services;
    FormatGen gen{rng};
    for (int id = 1; id <= 6; ++id) {
        Json::Value& service = doc["Services"].append(Json::Value(Json::objectValue));
        service["ServiceID"] = std::to_string(id);
        if (chance(rng, 50)) service["Attribute"] = attributes(rng);
        const Json::Value format = gen.topLevel();
        Json::Value& method = service["Methods"].append(Json::Value(Json::objectValue));
        method["MethodID"] = "1";
        for (const char* type : {"request", "response"}) {
            Json::Value& params = method["Params"].append(Json::Value(Json::objectValue));
            params["MethodType"] = type;
            params["ParamsDetails"] = format;
        }
        const Json::Value attrs = service.get("Attribute", doc.get("Attribute", Json::Value()));
        services.push_back({{id, 1, pick(rng, {0, 1, 0x80, 0x81})}, format,
                            "attributes " + compact(attrs) + "\nformat " + compact(format)});
    }
    // Comments in a format file are kept by the store and come back in formats and decoded documents.
    parsers.load(dir.write("round" + std::to_string(round) + ".json", Emitter{rng, chance(rng, 30)}.emit(doc)));
    return services;
}

// Runs rounds, each from a seed of its own, until the case budget is spent or a case disagrees.
template <class Round> void runRounds(const char* test, Round round)
{
    printf("[ agreement ] %s: seed %lu, %zu cases\n", test, kSeed, kCases);
    TempDir dir;
    size_t cases = 0;
    for (unsigned n = 0; cases < kCases && !::testing::Test::HasFailure(); ++n) {
        SCOPED_TRACE("seed " + std::to_string(kSeed + n) + " (SOMEIP_AGREEMENT_SEED replays it)");
        Rng rng(static_cast<Rng::result_type>(kSeed + n));
        round(rng, dir, n, cases);
    }
}

} // namespace

// Encode inputs: values of the format, the same written with lexical variation, the reference's decoded
// document as a host would send it back, and mutations. Decode inputs: what the reference wrote, damaged.
TEST(FastPathAgreement, ConversionsGiveTheSameResults)
{
    runRounds("conversions", [](Rng& rng, TempDir& dir, unsigned round, size_t& cases) {
        Parsers parsers;
        for (const Service& s : setUpRound(rng, parsers, dir, round)) {
            SCOPED_TRACE(s.trace);
            std::vector<Bytes> valid;
            for (int i = 0; i < 3; ++i) {
                Json::Value base = fill(rng, s.format);
                std::vector<std::string> inputs = {compact(base), Emitter{rng, true}.emit(base)};
                SCOPED_TRACE("encoded " + inputs[0]);
                Bytes payload;
                ++cases;
                if (!parsers.encode(s.query, inputs[0], &payload)) return;
                if (!payload.empty()) {
                    valid.push_back(payload);
                    SCOPED_TRACE("payload " + hex(payload));
                    std::string decoded;
                    ++cases;
                    if (!parsers.decode(s.query, payload, &decoded)) return;
                    if (!decoded.empty() && Json::Reader().parse(decoded, base, false)) inputs.push_back(decoded);
                }
                for (int m = 0; m < 8; ++m) inputs.push_back(mutate(rng, base));
                for (size_t k = 1; k < inputs.size(); ++k) {
                    SCOPED_TRACE("input " + inputs[k]);
                    ++cases;
                    if (!parsers.encode(s.query, inputs[k])) return;
                }
            }
            for (const Bytes& payload : payloadsFrom(rng, valid)) {
                SCOPED_TRACE("payload " + hex(payload));
                ++cases;
                if (!parsers.decode(s.query, payload)) return;
            }
        }
    });
}

namespace {

// An ID in the spellings the store reads: text, number, leading blank, trailing letters ("2abc" is 2)
// and hexadecimal text (which reads as 0).
Json::Value idOf(Rng& rng, int id)
{
    const std::string text = std::to_string(id);
    return chance(rng, 50) ? Json::Value(text) : pick(rng, {Json::Value(id), Json::Value(" " + text),
                                                             Json::Value(text + "abc"), Json::Value("0x" + text)});
}

Json::Value entry(Rng& rng, FormatGen& gen, const char* idKey, int id, const char* eventKey = nullptr, int event = 0)
{
    Json::Value e(Json::objectValue);
    e[idKey] = idOf(rng, id);
    if (eventKey != nullptr) e[eventKey] = idOf(rng, event);
    e["Params"] = Json::Value(Json::arrayValue);
    for (const char* type : {"request", "response", "event"}) {
        if (!chance(rng, 75)) continue;
        Json::Value& params = e["Params"].append(Json::Value(Json::objectValue));
        params["MethodType"] = chance(rng, 5) ? "Request" : type;
        params["ParamsDetails"] = gen.topLevel(1);
    }
    return e;
}

// Irregular shapes; most make the scanning lookup throw Json::LogicError once a lookup reaches them.
void makeIrregular(Rng& rng, Json::Value& doc, FormatGen& gen)
{
    Json::Value service = doc["Services"][0];
    Json::Value& methods = service["Methods"];
    if (!methods.isArray() || methods.empty()) methods.append(entry(rng, gen, "MethodID", 1));
    Json::Value& params = methods[0]["Params"];
    Json::Value object(Json::objectValue);
    switch (below(rng, 14)) {
    case 0: doc = Json::Value(Json::arrayValue); doc.append(1); return;
    case 1: doc = "services"; return;
    case 2: doc = Json::Value(); return;
    case 3: object["a"] = service; doc["Services"] = object; return;
    case 4: doc["Services"] = 5; return;
    case 5: doc["Services"].append(pick(rng, {Json::Value("service"), Json::Value()})); return;
    case 6: object["m"] = methods[0]; methods = object; break;
    case 7: object["p"] = params; params = object; break;
    case 8: params.append(object); break;  // neither "MethodType" nor "ParamsDetails"
    case 9: for (Json::Value& direction : params) direction.removeMember("ParamsDetails"); break;
    case 10:
        service["Attribute"] = attributes(rng);
        service["Attribute"]["DataAlignment"] = Json::Value(Json::arrayValue);
        break;
    case 11: doc["Attribute"][0]["ByteOrderEnum"] = Json::Value(Json::arrayValue); return;
    case 12: service["Attribute"] = pick(rng, {Json::Value("UTF16"), Json::Value(Json::arrayValue)}); break;
    default: params.append("request"); break;
    }
    doc["Services"][0] = service;
}

// A file about services 1-3, to be loaded with others describing the same services and methods.
Json::Value lookupDocument(Rng& rng)
{
    FormatGen gen{rng};
    Json::Value doc(Json::objectValue);
    if (chance(rng, 30)) doc["Attribute"].append(attributes(rng));
    for (size_t n = 2 + below(rng, 3); n-- > 0;) {
        Json::Value& service = doc["Services"].append(Json::Value(Json::objectValue));
        service["ServiceID"] = idOf(rng, 1 + int(below(rng, 3)));
        if (chance(rng, 40)) service["Attribute"] = attributes(rng);
        for (size_t k = below(rng, 4); k-- > 0;)
            service["Methods"].append(entry(rng, gen, "MethodID", pick(rng, {1, 2, 7})));
        for (size_t k = below(rng, 3); k-- > 0;)
            service["Events"].append(entry(rng, gen, "EventID", pick(rng, {2, 32769})));
        const int fieldMethod = pick(rng, {1, 7}), fieldEvent = pick(rng, {2, 32770});
        if (chance(rng, 70)) service["Fields"].append(entry(rng, gen, "MethodID", fieldMethod, "EventID", fieldEvent));
    }
    if (chance(rng, 15)) makeIrregular(rng, doc, gen);
    return doc;
}

} // namespace

TEST(FastPathAgreement, LookupFindsTheSameFormatsAndAttributes)
{
    runRounds("lookup", [](Rng& rng, TempDir& dir, unsigned round, size_t& cases) {
        const std::string folder = "r" + std::to_string(round);
        std::vector<std::string> paths;
        std::string files;
        for (size_t f = 0, count = 2 + below(rng, 4); f < count; ++f) {
            const std::string text =
                chance(rng, 5) ? "{\"Services\": [" : Emitter{rng, chance(rng, 30)}.emit(lookupDocument(rng));
            paths.push_back(dir.write(folder + "/f" + std::to_string(f) + ".json", text));
            files += "\n" + paths.back() + ": " + text;
        }
        if (chance(rng, 20)) paths.push_back(dir.path + "/" + folder);  // all once more, in directory order
        SCOPED_TRACE("files, loaded in this order" + files);
        Parsers parsers;
        for (const std::string& path : paths)
            if (!parsers.load(path)) return;
        for (int service : {0, 1, 2, 3})
            for (int method : {0, 1, 2, 7, 32769, 32770})
                for (int type : {0, 1, 2, 0x80, 0x81, 5}) {
                    const Query q{service, method, type};
                    SCOPED_TRACE("service " + std::to_string(service) + " method " + std::to_string(method) +
                                 " type " + std::to_string(type));
                    ++cases;
                    const ZQSomeIPExtendAttr start = scrambledRecord(rng);
                    if (!parsers.lookup(q, start, chance(rng, 75))) return;
                    if (!chance(rng, 25)) continue;
                    // The conversions look the format up on their own.
                    Bytes payload(below(rng, 12));
                    for (unsigned char& b : payload) b = static_cast<unsigned char>(rng());
                    SCOPED_TRACE("payload " + hex(payload));
                    cases += 2;
                    if (!parsers.decode(q, payload) || !parsers.encode(q, R"([{"ParamType":"int16_t","Value":"-2"}])"))
                        return;
                }
    });
}
