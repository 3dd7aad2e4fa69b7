#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Inner/Inner_someipDeserializer.h"
#include "Inner/Inner_someipSerializer.h"
#include "conv_test_support.h"

using namespace convtest;
using ZQSomeIP::Inner_someipDeserializer;
using ZQSomeIP::Inner_someipSerializer;

namespace {

// Big endian with 4-byte length fields unless a case says otherwise.
ZQSomeIPExtendAttr attrs(uint32_t order = 0, uint32_t structLength = 4, uint32_t arrayLength = 4)
{
    ZQSomeIPExtendAttr a;
    a.byte_order = order;
    a.struct_length_field_size = structLength;
    a.array_length_field_size = arrayLength;
    return a;
}

} // namespace

TEST(SerializerWalk, WritesParameterListsAndStopsAtTheFirstFailure)
{
    struct Case {
        const char* json;
        uint32_t order;
        const char* payload;
        int rc;
        const char* logTail;
    };
    const Case cases[] = {
        {R"([{"ParamType":"uint16_t","Value":"258"}])", 0, "0102", 0, nullptr},
        {R"([{"ParamType":"uint16_t","Value":"258"}])", 1, "0201", 0, nullptr},
        {R"([{"ParamType":"uint32_t"},{"ParamType":"STRING"},{"ParamType":"bool"}])", 0, "00000000 00000004efbbbf00 00",
         0, nullptr},
        {R"([{"ParamType":"bool","Value":true},{"ParamType":"bool","Value":"1"},{"ParamType":"bool","Value":"TRUE"}])", 0,
         "01 00 00", 0, nullptr},
        {R"([{"ParamType":"uint8_t","Value":"300"},{"ParamType":"uint8_t","Value":"40000"},
             {"ParamType":"int8_t","Value":"-1"},{"ParamType":"uint8_t","Value":"12abc"}])", 0, "2c ff ff 0c", 0, nullptr},
        {R"([{"ParamType":"float","Value":"1.5"},{"ParamType":"double","Value":"-2"},{"ParamType":"int16_t","Value":"-2"},
             {"ParamType":"int32_t","Value":"-2"},{"ParamType":"int64_t","Value":"-2"},
             {"ParamType":"uint64_t","Value":"18446744073709551615"},{"ParamType":"uint16_t","Value":"65535"}])", 0,
         "3fc00000 c000000000000000 fffe fffffffe fffffffffffffffe ffffffffffffffff ffff", 0, nullptr},
        // Object roots are walked in key order.
        {R"({"b":{"ParamType":"uint8_t","Value":"2"},"a":{"ParamType":"uint8_t","Value":"1"}})", 0, "01 02", 0, nullptr},
        {R"([{"ParamType":"ARRAY","Value":"4","SubParams":[{"ParamType":"uint8_t","Value":"7"},{"ParamType":"uint8_t","Value":"8"}]}])",
         0, "00000004 07 08 07 07", 0, "serialize_array() Warning!!! Array size mismatch. Actual :2, Expected :4 *****"},
        {R"([{"ParamType":"ARRAY","Value":"1","SubParams":[{"ParamType":"uint8_t","Value":"7"},{"ParamType":"uint8_t","Value":"8"}]}])",
         0, "00000002 07 08", 0, "Actual :2, Expected :1 *****"},
        {R"([{"ParamType":"VECTOR","SubParams":[{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"ARRAY","Value":"2",
              "SubParams":[{"ParamType":"uint8_t","Value":"5"},{"ParamType":"uint8_t","Value":"6"}]}]}]}])", 0,
         "0000000a 00000006 00000002 0506", 0, "serialize_vector() end. Vector Count  = 1 *****"},
        {R"([{"ParamType":"VECTOR","SubParams":[]}])", 0, "00000000", 0, "serialize_vector() ERROR!!! jsonStr size == 0 *****"},
        {R"([{"ParamType":"STRUCTURE","SubParams":[]}])", 0, "00000000", -1, "serialize_struct() ERROR!!! jsonStr size == 0 *****"},
        {R"([{"ParamType":"ARRAY","Value":"abc","SubParams":[{"ParamType":"uint8_t"}]}])", 0, "00000000", -1,
         "serialize_array() ERROR!!! Array size == 0 *****"},
        {R"([{"ParamType":"uint8_t","Value":"1"},{"ParamType":"UINT8"},{"ParamType":"uint8_t","Value":"3"}])", 0, "01", -1,
         "serialize_basic() type error = UINT8 *****"},
        // Containers open at the failure are closed on the way up, their length fields patched.
        {R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint8_t","Value":"1"},{"ParamType":"x"}]}])", 0,
         "00000001 01", -1, "serialize_struct() exit with Error occurred. *****"},
        {"[]", 0, "", -1, "serialize_main() ERROR!!! jsonStr size == 0 *****"},
        {"{}", 0, "", -1, "serialize_main() ERROR!!! jsonStr size == 0 *****"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.json);
        LogCapture log;
        ZQSomeIPExtendAttr a = attrs(c.order);
        Inner_someipSerializer serializer(a);
        std::string json = c.json;
        std::string format;
        std::vector<uint8_t> out = {0xAA};
        EXPECT_EQ(serializer.serialize(out, json, format), c.rc);
        EXPECT_EQ(hex(out), hex(bytes(c.payload)));
        if (c.logTail) {
            EXPECT_TRUE(log.has(c.logTail)) << c.logTail;
        }
        EXPECT_EQ(log.has("serialize_main() exit with Error occurred. *****"), c.rc != 0 && std::string(c.json).size() > 2);
    }
}

TEST(SerializerEntry, UnparsableTextLeavesOutputAloneAndExceptionsDoNotLeak)
{
    LogCapture log;
    ZQSomeIPExtendAttr a = attrs(1);
    Inner_someipSerializer serializer(a);
    EXPECT_TRUE(log.has("byte_order                 = 1"));
    std::string format;
    std::vector<uint8_t> out = {1, 2, 3};
    std::string json = "not json";
    EXPECT_EQ(serializer.serialize(out, json, format), -1);
    EXPECT_EQ(out, (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_TRUE(log.has("serialize() : jsonStr parse failed!!! *****"));
    // An element that is not an object makes the JSON library throw; the next request starts clean.
    json = "[5]";
    EXPECT_THROW(serializer.serialize(out, json, format), Json::LogicError);
    json = R"([{"ParamType":"uint16_t","Value":"1"}])";
    EXPECT_EQ(serializer.serialize(out, json, format), 0);
    EXPECT_EQ(hex(out), "0100");
}

TEST(DeserializerWalk, FillsValuesExpandsContainersAndKeepsPartialResults)
{
    struct Case {
        ZQSomeIPExtendAttr attr;
        const char* format;
        const char* payload;
        int rc;
        std::vector<std::pair<const char*, const char*>> expect;  // path -> text
        const char* logTail;
    };
    const char* nestedArrays = R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"outer","ParamType":"ARRAY",
        "Value":"2","SubParams":[{"ParamName":"inner","ParamType":"ARRAY","Value":"2",
        "SubParams":[{"ParamName":"x","ParamType":"uint8_t"}]}]}]}])";
    const char* vectorU16 = R"([{"ParamName":"v","ParamType":"VECTOR","SubParams":[{"ParamName":"e","ParamType":"uint16_t"}]}])";
    const Case cases[] = {
        {attrs(0, 0), R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint16_t"},{"ParamType":"uint16_t"}]}])",
         "0001ffff", 0, {{"0/SubParams/0/Value", "1"}, {"0/SubParams/1/Value", "65535"}}, "deserialize_struct() end. *****"},
        {attrs(), R"([{"ParamType":"bool"},{"ParamType":"bool"},{"ParamType":"float"},{"ParamType":"int64_t"},
                      {"ParamType":"uint64_t"},{"ParamType":"int8_t"},{"ParamType":"double"}])",
         "01 00 3fc00000 fffffffefffffffe 0000000100000002 80 4059000000000000", 0,
         {{"0/Value", "true"}, {"1/Value", "false"}, {"2/Value", "1.500000"}, {"3/Value", "-4294967298"},
          {"4/Value", "4294967298"}, {"5/Value", "-128"}, {"6/Value", "100.000000"}},
         "deserialize_basic: read uint64_t deserializer : 2 *****"},
        {attrs(), vectorU16, "00000006 0001 0002 0003", 0,
         {{"0/Value", "3"}, {"0/SubParams/2/ParamName", "v_2"}, {"0/SubParams/2/Value", "3"}},
         "deserialize_main() vector_Element length is 6 *****"},
        {attrs(), vectorU16, "00000000", 0, {{"0/Value", "null\n"}, {"0/SubParams/0/ParamName", "e"}},
         "deserialize_vector() Return!!! Vector payload Length == 0 *****"},
        {attrs(0, 0, 0), nestedArrays, "01020304", 0,
         {{"0/SubParams/0/SubParams/0/ParamName", "outer_0"}, {"0/SubParams/0/SubParams/0/SubParams/1/ParamName", "inner_1"},
          {"0/SubParams/0/SubParams/1/SubParams/0/ParamName", "outer_0_0"},
          {"0/SubParams/0/SubParams/1/SubParams/1/Value", "4"}, {"0/SubParams/0/SubParams/1/ParamName", "outer_1"}},
         "deserialize_array() end. Array Cnt = 2 *****"},
        {attrs(), R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"ARRAY","Value":"0","SubParams":[{"ParamType":"uint8_t"}]}]}])",
         "00000004 00000000", -1, {}, "deserialize_array() ERROR!!! array Length == 0 *****"},
        {attrs(), R"([{"ParamType":"uint8_t"},{"ParamType":"UINT8"}])", "0102", -1, {{"0/Value", "1"}},
         "deserialize_basic() type error = UINT8 *****"},
        {attrs(), R"([{"ParamType":"uint8_t"},{"ParamType":"uint32_t"}])", "0701", -1, {{"0/Value", "7"}, {"1/Value", "null\n"}},
         "deserialize_basic() read failed: uint32_t *****"},
        {attrs(), R"([{"ParamType":"uint8_t"}])", "", -1, {{"0/Value", "null\n"}},
         "deserialize_main() ERROR!!! remain payload Length == 0 *****"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        LogCapture log;
        ZQSomeIPExtendAttr a = c.attr;
        Inner_someipDeserializer deserializer(a);
        std::vector<unsigned char> payload = bytes(c.payload);
        std::string format = c.format;
        std::string json;
        EXPECT_EQ(deserializer.deserialize(payload, json, format), c.rc);
        ASSERT_FALSE(json.empty());
        EXPECT_EQ(json.back(), '\n');
        const Json::Value doc = parse(json);
        for (const auto& e : c.expect) {
            EXPECT_EQ(at(doc, e.first), e.second) << e.first;
        }
        EXPECT_TRUE(log.has(c.logTail)) << c.logTail;
    }
}

TEST(DeserializerEntry, UnparsableFormatLeavesJsonAlone)
{
    LogCapture log;
    ZQSomeIPExtendAttr a = attrs();
    Inner_someipDeserializer deserializer(a);
    EXPECT_EQ(deserializer.NumToString(-42), "-42");
    std::vector<unsigned char> payload = {1};
    std::string format = "{";
    std::string json = "kept";
    EXPECT_EQ(deserializer.deserialize(payload, json, format), -1);
    EXPECT_EQ(json, "kept");
    EXPECT_TRUE(log.has("deserialize() : jsonStr parse failed!!! *****"));
}
