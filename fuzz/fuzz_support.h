// What the payload fuzz targets share: the fixed formats and the messages they describe, both classic
// roads, and the rules for what counts as a finding.
//
// Exceptions a host may see, and so the only ones a target lets pass:
//   classic API (load, lookup, decode, encode): Json::LogicError, Json::RuntimeError, std::range_error;
//   plain API and capture reader: none.
// SOMEIP_FUZZ_EXCEPTIONS=1 prints each permitted exception with the operation that threw it, to check
// which operation can throw what.
#pragma once

#include <json/json.h>
#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "ZQSomeIPParser.h"
#include "ZQSomeIPParserAPI.h"
#include "compiled/ZQSomeIPFormatSet.h"
#include "fuzz_common.h"

namespace fuzz {

using Bytes = std::vector<unsigned char>;

struct Message {
    int service, method, type;
};

// Every message of examples/formats and fuzz/formats, and one that none of them describes. New messages go
// at the end: a seed's first byte picks its message by position.
inline const std::vector<Message>& messages()
{
    static const std::vector<Message> list = {
        {4660, 1, 0x00}, {4660, 1, 0x80}, {4660, 2, 0x00}, {4660, 2, 0x80}, {4660, 2, 0x81}, {4660, 32769, 0x02},
        {4660, 3, 0x00}, {4660, 3, 0x80}, {4660, 32770, 0x02}, {4661, 1, 0x00}, {4661, 1, 0x80}, {4661, 2, 0x80},
        {4661, 32769, 0x02}, {4662, 1, 0x00}, {4662, 1, 0x80}, {4662, 2, 0x01}, {4662, 32769, 0x02},
        {257, 1, 0x00}, {257, 1, 0x80}, {257, 2, 0x00}, {257, 2, 0x80}, {257, 32769, 0x02}, {258, 1, 0x00},
        {1, 1, 0x00}, {259, 1, 0x00}, {259, 2, 0x00}, {259, 2, 0x80}, {259, 3, 0x00},
    };
    return list;
}
inline const Message& message(uint8_t selector) { return messages()[selector % messages().size()]; }

inline const char* const kFormatDirs[] = {SOMEIP_FUZZ_EXAMPLES_DIR, SOMEIP_FUZZ_FORMATS_DIR};

// The classic road a host takes (the facade, fast paths on) and the reference converters alone; each
// loaded with the fixed formats once.
struct ClassicPair {
    ZQSomeIP::ZQSomeIPParserAPI api;
    ZQSomeIP::ZQSomeIPParser reference;
    ClassicPair() { reference.setFastPathEnabled(false); }
};
inline ClassicPair& fixedClassic()
{
    static ClassicPair* pair = [] {
        auto* p = new ClassicPair;
        for (const char* dir : kFormatDirs)
            if (p->api.loadFormatJson(dir) != 0 || p->reference.loadFormatJson(dir) != 0) finding(std::string("cannot load ") + dir);
        return p;
    }();
    return *pair;
}

// The fixed formats as plain format sets, one per directory; a message is looked up in the set that
// has it (the first when none does).
inline const ZQSomeIP::ZQSomeIPFormatSet& fixedPlain(const Message& m)
{
    static const std::vector<std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet>> sets = [] {
        std::vector<std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet>> out;
        for (const char* dir : kFormatDirs) {
            ZQSomeIP::ZQSomeIPPlainStatus status;
            out.push_back(ZQSomeIP::ZQSomeIPFormatSet::load(dir, status));
            if (!out.back()) finding(std::string("cannot load ") + dir, status.toJson());
        }
        return out;
    }();
    for (const auto& set : sets)
        if (set->find(m.service, m.method, m.type) != nullptr) return *set;
    return *sets.front();
}

// Runs one classic call: "rc N", or the permitted exception that escaped it. Anything else is a finding.
template <class Call> std::string classicCall(const char* operation, Call call)
{
    auto permitted = [operation](const char* type, const std::exception& e) {
        static const bool report = getenv("SOMEIP_FUZZ_EXCEPTIONS") != nullptr;
        if (report) std::fprintf(stderr, "permitted exception: %s: %s: %s\n", operation, type, e.what());
        return std::string("threw ") + type + ": " + e.what();
    };
    try {
        return "rc " + std::to_string(call());
    } catch (const Json::LogicError& e) {
        return permitted("Json::LogicError", e);
    } catch (const Json::RuntimeError& e) {
        return permitted("Json::RuntimeError", e);
    } catch (const std::range_error& e) {
        return permitted("std::range_error", e);
    } catch (const std::exception& e) {
        finding(std::string(operation) + " threw " + typeid(e).name(), e.what());
    } catch (...) {
        finding(std::string(operation) + " threw something that is not a std::exception");
    }
}

// Both classic roads must leave the same trace: result, output, and what the call left of its input.
inline void agree(const char* operation, const std::string& host, const std::string& reference)
{
    if (host != reference)
        finding(std::string(operation) + ": the fast paths and the reference converters disagree",
                "fast paths:\n" + host + "\nreference:\n" + reference);
}

inline std::string hex(const Bytes& data)
{
    std::string out;
    for (unsigned char b : data) out += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    return out;
}

// Classic decode on both roads; returns the host road's JSON when it succeeded, "" otherwise.
template <class Host, class Reference>
std::string classicDecode(Host& host, Reference& reference, const Message& m, const Bytes& payload)
{
    std::string result;
    auto run = [&](auto& parser) {
        Bytes input = payload;
        std::string json = "<untouched>";
        const std::string rc = classicCall("deserializebyMethodID", [&] {
            return parser.deserializebyMethodID(m.service, m.method, m.type, input, json);
        });
        if (rc == "rc 0") result = json;
        return rc + "\njson: " + json + "\npayload after the call: " + hex(input);
    };
    const std::string a = run(host), b = run(reference);
    agree("deserializebyMethodID", a, b);
    return result;
}

// Classic encode on both roads; returns the host road's payload when it succeeded.
template <class Host, class Reference>
bool classicEncode(Host& host, Reference& reference, const Message& m, const std::string& json, Bytes& payload)
{
    bool ok = false;
    auto run = [&](auto& parser) {
        std::string input = json;
        Bytes out = {0xDE, 0xAD};
        const std::string rc = classicCall("serializebyMethodID", [&] {
            return parser.serializebyMethodID(m.service, m.method, m.type, input, out);
        });
        if (rc == "rc 0") ok = true, payload = out;
        return rc + "\npayload: " + hex(out) + "\njson after the call: " + input;
    };
    const std::string a = run(host), b = run(reference);
    agree("serializebyMethodID", a, b);
    return ok;
}

// A plain call must not throw.
template <class Call> auto plainCall(const char* operation, Call call)
{
    try {
        return call();
    } catch (const std::exception& e) {
        finding(std::string(operation) + " threw " + typeid(e).name(), e.what());
    } catch (...) {
        finding(std::string(operation) + " threw something that is not a std::exception");
    }
}

// A status must carry one of the codes, and a failure must say something.
inline void checkStatus(const char* operation, const ZQSomeIP::ZQSomeIPPlainStatus& status)
{
    const int code = static_cast<int>(status.code);
    if (code < 0 || code > static_cast<int>(ZQSomeIP::ZQSomeIPPlainError::UnskippableMember))
        finding(std::string(operation) + " returned an unknown code " + std::to_string(code));
    if (!status.ok() && status.message.empty()) finding(std::string(operation) + " failed without a message", status.toJson());
}

// `json` is what plainDecode made of a payload: it encodes, and that payload decodes to the same text
// (the payload itself may differ in what decoding does not look at, such as padding). Returns the payload.
inline Bytes plainRoundTrip(const ZQSomeIP::ZQSomeIPFormatSet& set, const Message& m, const std::string& json,
                            const ZQSomeIP::ZQSomeIPPlainOptions& options)
{
    using namespace ZQSomeIP;
    std::vector<uint8_t> payload;
    ZQSomeIPPlainStatus status = plainCall("plainEncode", [&] { return plainEncode(set, m.service, m.method, m.type, json, payload); });
    checkStatus("plainEncode", status);
    if (!status.ok()) finding("a decoded document does not encode again", json + "\n" + status.toJson());
    std::string again;
    status = plainCall("plainDecode", [&] {
        return plainDecode(set, m.service, m.method, m.type, payload.data(), payload.size(), again, options);
    });
    checkStatus("plainDecode", status);
    if (!status.ok() || again != json)
        finding("a payload encoded from a decoded document decodes differently",
                json + "\n" + hex(payload) + "\n" + (status.ok() ? again : status.toJson()));
    return payload;
}

}  // namespace fuzz
