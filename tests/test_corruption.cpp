// Damaged payloads through every public decode road: every prefix and every single-bit flip of valid
// payloads ends in a result the host was told to expect (0 or -1 and the documented exceptions from the
// classic API, a decode code from the plain one), never a crash or a hang, and both classic roads agree.
// The intact payloads give the same values in the plain form as in the classic one.
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "ZQSomeIPParser.h"
#include "compiled/ZQSomeIPFormatSet.h"
#include "conv_test_support.h"

namespace {

using namespace ZQSomeIP;
using Bytes = std::vector<unsigned char>;

struct Case {
    const char* name;
    int service, method, type;
    const char* hex;    // a payload as written in the README,
    const char* plain;  // or plain values, encoded when the test runs
};

const Case kCases[] = {
    {"route response (README)", 0x1234, 2, 0x80, "07 00 00 00 14 00 08 00 64 00 00 00 ce ff ff ff 08 00 ec ff ff ff 2c 01 00 00 ff ff 00 00 48 41", nullptr},
    {"destination request, aligned", 0x1234, 1, 0x00, nullptr,
     R"({"name":"Z\u00fcrich","position":{"latitude":47.37,"longitude":8.54},"priority":3})"},
    {"track info, UTF-16 strings", 0x1235, 1, 0x80, nullptr,
     R"({"title":"A\u00f1o","artist":"\ud83c\udfb5","durationMs":1000,"rating":{"stars":4,"scores":[1,2,3]}})"},
    {"equalizer, top-level array", 0x1235, 2, 0x80, nullptr, R"({"bands":[1,-2,3,-4,5]})"},
    // An ASCII title with a backslash, which every road must escape.
    {"now playing, 64-bit values", 0x1235, 0x8001, 0x02, nullptr, R"({"title":"x\\y","positionMs":18446744073709551615,"offsetMs":-1})"},
    {"trouble codes, 8-bit lengths", 0x1236, 1, 0x80, nullptr,
     R"({"dtcs":[{"code":4294967295,"status":2},{"code":3,"status":4}],"more":true})"},
};

// The codes a plain decode may give.
const std::set<ZQSomeIPPlainError> kDecodeCodes = {
    ZQSomeIPPlainError::Ok, ZQSomeIPPlainError::Truncated, ZQSomeIPPlainError::LengthBeyondData,
    ZQSomeIPPlainError::LengthMismatch, ZQSomeIPPlainError::BadString, ZQSomeIPPlainError::TrailingBytes};

// "rc 0" or "rc -1" with the output, or the documented exception that escaped; anything else fails.
std::string classicDecode(ZQSomeIPParser& parser, const Case& c, Bytes payload)
{
    std::string json;
    try {
        const int rc = parser.deserializebyMethodID(c.service, c.method, c.type, payload, json);
        EXPECT_TRUE(rc == 0 || rc == -1) << rc;
        return "rc " + std::to_string(rc) + " " + json;
    } catch (const Json::LogicError& e) {
        return std::string("Json::LogicError ") + e.what();
    } catch (const Json::RuntimeError& e) {
        return std::string("Json::RuntimeError ") + e.what();
    } catch (const std::range_error& e) {
        return std::string("std::range_error ") + e.what();
    } catch (const std::exception& e) {
        ADD_FAILURE() << "undocumented exception: " << e.what();
        return "";
    }
}

// The classic decoder's "Value" text of a plain value, where the two forms must agree.
void expectSameValues(const Json::Value& classic, const Json::Value& plain, const std::string& where)
{
    for (const Json::Value& p : classic) {
        const std::string name = p["ParamName"].asString(), type = p["ParamType"].asString();
        const Json::Value& v = plain[name];
        if (type == "STRUCTURE") {
            expectSameValues(p["SubParams"], v, where + "." + name);
        } else if (type == "float" || type == "double") {
            EXPECT_EQ(p["Value"].asString(), std::to_string(type == "float" ? double(float(v.asDouble())) : v.asDouble()))
                << where << "." << name;
        } else if (type == "bool" || type == "STRING") {
            EXPECT_EQ(p["Value"].asString(), v.isBool() ? (v.asBool() ? "true" : "false") : v.asString()) << where << "." << name;
        } else if (type != "ARRAY" && type != "VECTOR") {
            EXPECT_EQ(p["Value"].asString(), v.asString()) << where << "." << name;
        }
    }
}

TEST(Corruption, PrefixesAndBitFlipsOfValidPayloadsFailCleanlyOnEveryRoad)
{
    ZQSomeIPPlainStatus status;
    const auto formats = ZQSomeIPFormatSet::load(SOMEIP_EXAMPLES_DIR, status);
    ASSERT_TRUE(formats) << status.toJson();
    ZQSomeIPParser fast, reference;
    reference.setFastPathEnabled(false);
    ASSERT_EQ(fast.loadFormatJson(SOMEIP_EXAMPLES_DIR), 0);
    ASSERT_EQ(reference.loadFormatJson(SOMEIP_EXAMPLES_DIR), 0);

    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        Bytes valid;
        if (c.hex) valid = convtest::bytes(c.hex);
        else ASSERT_TRUE(plainEncode(*formats, c.service, c.method, c.type, c.plain, valid).ok());
        // Control: the intact payload decodes on every road, to the same values.
        std::string json;
        const std::string classic = classicDecode(fast, c, valid);
        ASSERT_EQ(classic.substr(0, 5), "rc 0 ");
        ASSERT_TRUE(plainDecode(*formats, c.service, c.method, c.type, valid.data(), valid.size(), json).ok());
        expectSameValues(convtest::parse(classic.substr(5)), convtest::parse(json), "$");

        std::vector<std::pair<std::string, Bytes>> inputs;
        for (size_t n = 0; n < valid.size(); ++n) inputs.emplace_back("prefix " + std::to_string(n), Bytes(valid.begin(), valid.begin() + n));
        for (size_t bit = 0; bit < 8 * valid.size(); ++bit) {
            inputs.emplace_back("bit " + std::to_string(bit), valid);
            inputs.back().second[bit / 8] ^= static_cast<unsigned char>(1u << bit % 8);
        }
        for (const auto& [label, input] : inputs) {
            EXPECT_EQ(classicDecode(fast, c, input), classicDecode(reference, c, input)) << label;
            const ZQSomeIPPlainStatus s = plainDecode(*formats, c.service, c.method, c.type, input.data(), input.size(), json);
            EXPECT_TRUE(kDecodeCodes.count(s.code)) << label << " " << s.toJson();
            EXPECT_TRUE(s.ok() || !s.message.empty()) << label;
            if (label[0] == 'p') {
                EXPECT_FALSE(s.ok()) << label << ": a cut payload decoded as " << json;
            }
        }
    }
}

}  // namespace
