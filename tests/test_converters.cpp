#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Inner/Inner_someipDeserializer.h"
#include "Inner/Inner_someipSerializer.h"
#include "conv_test_support.h"

using namespace convtest;

namespace {

// 4-byte length fields everywhere unless a case says otherwise.
ZQSomeIPExtendAttr attrs(uint32_t order, uint32_t structAndArrayLength = 4)
{
    ZQSomeIPExtendAttr a;
    a.byte_order = order;
    a.struct_length_field_size = a.array_length_field_size = structAndArrayLength;
    return a;
}

} // namespace

TEST(SerializerWalk, WritesListsAndHandsOutWhatWasWrittenBeforeAFailure)
{
    struct Case {
        uint32_t order;
        const char* json;
        const char* payload;
        int rc;
        std::vector<const char*> logTails;
    };
    const Case cases[] = {
        {0, R"([{"ParamType":"uint16_t","Value":"258"}])", "0102", 0, {"serialize_main() end. *****"}},
        {1, R"([{"ParamType":"uint16_t","Value":"258"},{"ParamType":"double","Value":"-2"}])", "0201 00000000000000c0", 0, {}},
        {0, R"([{"ParamType":"uint32_t"},{"ParamType":"STRING"},{"ParamType":"bool"},{"ParamType":"bool","Value":true},
             {"ParamType":"bool","Value":"1"}])", "00000000 00000004efbbbf00 00 01 00", 0, {}},
        {0, R"([{"ParamType":"uint8_t","Value":"300"},{"ParamType":"uint8_t","Value":"40000"},
             {"ParamType":"int8_t","Value":"-1"},{"ParamType":"uint8_t","Value":"12abc"},{"ParamType":"float","Value":"1.5"},
             {"ParamType":"int64_t","Value":"-2"},{"ParamType":"uint64_t","Value":"18446744073709551615"}])",
         "2c ff ff 0c 3fc00000 fffffffffffffffe ffffffffffffffff", 0, {}},
        {0, R"({"b":{"ParamType":"uint8_t","Value":"2"},"a":{"ParamType":"uint8_t","Value":"1"}})", "01 02", 0, {}},
        {0, R"([{"ParamType":"ARRAY","Value":"4","SubParams":[{"ParamType":"uint8_t","Value":"7"},
             {"ParamType":"uint8_t","Value":"8"}]}])", "00000004 07 08 07 07", 0,
         {"serialize_array() Warning!!! Array size mismatch. Actual :2, Expected :4 *****"}},
        {0, R"([{"ParamType":"VECTOR","SubParams":[{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"ARRAY","Value":"2",
             "SubParams":[{"ParamType":"uint8_t","Value":"5"},{"ParamType":"uint8_t","Value":"6"}]}]}]}])",
         "0000000a 00000006 00000002 0506", 0, {"serialize_vector() end. Vector Count  = 1 *****"}},
        {0, R"([{"ParamType":"VECTOR","SubParams":[]}])", "00000000", 0, {"serialize_vector() ERROR!!! jsonStr size == 0 *****"}},
        {0, R"([{"ParamType":"STRUCTURE","SubParams":[]}])", "00000000", -1,
         {"serialize_struct() ERROR!!! jsonStr size == 0 *****"}},
        {0, R"([{"ParamType":"ARRAY","Value":"abc","SubParams":[{"ParamType":"uint8_t"}]}])", "00000000", -1,
         {"serialize_array() ERROR!!! Array size == 0 *****"}},
        // Containers open at the failure are closed on the way up, their length fields patched.
        {0, R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint8_t","Value":"1"},{"ParamType":"UINT8"}]},
             {"ParamType":"uint8_t","Value":"3"}])", "00000001 01", -1,
         {"[serialize_basic]  ***** serialize_basic() type error = UINT8 *****",
          "[serialize_struct]  ***** serialize_struct() exit with Error occurred. *****",
          "[serialize_main]  ***** serialize_main() exit with Error occurred. *****"}},
        {0, "[]", "", -1, {"serialize_main() ERROR!!! jsonStr size == 0 *****"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.json);
        LogCapture log;
        ZQSomeIPExtendAttr a = attrs(c.order);
        ZQSomeIP::Inner_someipSerializer serializer(a);
        std::string json = c.json, format;
        std::vector<uint8_t> out = {0xAA};
        EXPECT_EQ(serializer.serialize(out, json, format), c.rc);
        EXPECT_EQ(hex(out), hex(bytes(c.payload)));
        for (const char* tail : c.logTails) {
            EXPECT_TRUE(log.has(tail)) << tail;
        }
    }
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
    const char* vectorU16 = R"([{"ParamName":"v","ParamType":"VECTOR","SubParams":[{"ParamName":"e","ParamType":"uint16_t"}]}])";
    const Case cases[] = {
        {attrs(0, 0), R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint16_t"},{"ParamType":"uint16_t"}]}])",
         "0001ffff", 0, {{"0/SubParams/0/Value", "1"}, {"0/SubParams/1/Value", "65535"}}, "[deserialize_struct]  ***** deserialize_struct() end. *****"},
        {attrs(0), R"([{"ParamType":"bool"},{"ParamType":"bool"},{"ParamType":"float"},{"ParamType":"int64_t"},
                       {"ParamType":"uint64_t"},{"ParamType":"int8_t"}])",
         "01 00 3fc00000 fffffffefffffffe 0000000100000002 80", 0,
         {{"0/Value", "true"}, {"1/Value", "false"}, {"2/Value", "1.500000"}, {"3/Value", "-4294967298"},
          {"4/Value", "4294967298"}, {"5/Value", "-128"}},
         "deserialize_basic: read uint64_t deserializer : 2 *****"},
        {attrs(0), vectorU16, "00000006 0001 0002 0003", 0,
         {{"0/Value", "3"}, {"0/SubParams/2/ParamName", "v_2"}, {"0/SubParams/2/Value", "3"}},
         "deserialize_main() vector_Element length is 6 *****"},
        {attrs(0), vectorU16, "00000000", 0, {{"0/Value", "null"}, {"0/SubParams/0/ParamName", "e"}},
         "deserialize_vector() Return!!! Vector payload Length == 0 *****"},
        // Every element starts from what the previous one left: names carry over into nested arrays.
        {attrs(0, 0), R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"outer","ParamType":"ARRAY","Value":"2",
             "SubParams":[{"ParamName":"inner","ParamType":"ARRAY","Value":"2","SubParams":[{"ParamType":"uint8_t"}]}]}]}])",
         "01020304", 0,
         {{"0/SubParams/0/SubParams/0/ParamName", "outer_0"}, {"0/SubParams/0/SubParams/0/SubParams/1/ParamName", "inner_1"},
          {"0/SubParams/0/SubParams/1/ParamName", "outer_1"}, {"0/SubParams/0/SubParams/1/SubParams/1/ParamName", "outer_0_1"},
          {"0/SubParams/0/SubParams/1/SubParams/1/Value", "4"}},
         "deserialize_array() end. Array Cnt = 2 *****"},
        {attrs(0), R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"ARRAY","Value":"0","SubParams":[{}]}]}])",
         "00000004 00000000", -1, {}, "deserialize_array() ERROR!!! array Length == 0 *****"},
        {attrs(0), R"([{"ParamType":"uint8_t"},{"ParamType":"UINT8"}])", "0102", -1, {{"0/Value", "1"}},
         "deserialize_basic() type error = UINT8 *****"},
        {attrs(0), R"([{"ParamType":"uint8_t"},{"ParamType":"uint32_t"}])", "0701", -1, {{"0/Value", "7"}, {"1/Value", "null"}},
         "deserialize_basic() read failed: uint32_t *****"},
        {attrs(0), R"([{"ParamType":"uint8_t"}])", "", -1, {{"0/Value", "null"}},
         "[deserialize_main]  ***** deserialize_main() ERROR!!! remain payload Length == 0 *****"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        LogCapture log;
        ZQSomeIPExtendAttr a = c.attr;
        ZQSomeIP::Inner_someipDeserializer deserializer(a);
        std::vector<unsigned char> payload = bytes(c.payload);
        std::string format = c.format, json;
        EXPECT_EQ(deserializer.deserialize(payload, json, format), c.rc);
        ASSERT_EQ(json.back(), '\n');
        for (const auto& e : c.expect) {
            EXPECT_EQ(at(parse(json), e.first), e.second) << e.first;
        }
        EXPECT_TRUE(log.has(c.logTail)) << c.logTail;
    }
}

TEST(SerializerEntry, UnparsableInputLeavesOutputsAloneAndThrowsDoNotLeak)
{
    LogCapture log;
    ZQSomeIPExtendAttr a = attrs(1);
    ZQSomeIP::Inner_someipSerializer serializer(a);
    ZQSomeIP::Inner_someipDeserializer deserializer(a);
    EXPECT_TRUE(log.has("byte_order                 = 1"));
    std::string text = "{", kept = "kept";
    std::vector<uint8_t> out = {1, 2};
    EXPECT_EQ(serializer.serialize(out, text, kept), -1);
    EXPECT_EQ(deserializer.deserialize(out, kept, text), -1);
    EXPECT_EQ(hex(out), "0102");
    EXPECT_EQ(kept, "kept");
    EXPECT_TRUE(log.has("serialize() : jsonStr parse failed!!! *****"));
    EXPECT_TRUE(log.has("deserialize() : jsonStr parse failed!!! *****"));
    // An element that is not an object makes the JSON library throw; the next request starts clean.
    text = "[5]";
    EXPECT_THROW(serializer.serialize(out, text, kept), Json::LogicError);
    text = R"([{"ParamType":"uint16_t","Value":"1"}])";
    EXPECT_EQ(serializer.serialize(out, text, kept), 0);
    EXPECT_EQ(hex(out), "0100");
}
