#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Inner/Inner_someipDeserializer.h"
#include "Inner/Inner_someipSerializer.h"
#include "conv_test_support.h"
#include "engine_test_support.h"

using namespace convtest;

namespace {

using enginetest::Attr;

// A fresh record is little endian with 4-byte length fields; "bare" structs and arrays have none.
const ZQSomeIPExtendAttr kLittle, kBig = Attr(), kBigBare = Attr().arrayLength(0).structLength(0);

struct Case {
    ZQSomeIPExtendAttr attr;
    const char* list;     // serializing: the parameter list; deserializing: the method format
    const char* payload;  // serializing: what `out`, holding aa before, holds after; deserializing: the input
    const char* result;   // as outcome() names it
    std::vector<const char*> logTails = {};
    std::vector<std::pair<const char*, const char*>> expect = {};  // deserializing: path -> text; "" is the whole text
};

} // namespace

// One serializer takes every case in turn: a failure or a throw must not leak into the next request.
TEST(SerializerWalk, WritesListsAndHandsOutWhatWasWrittenBeforeAFailure)
{
    Case cases[] = {
        {kBig, R"([{"ParamType":"uint32_t"},{"ParamType":"STRING"},{"ParamType":"bool"},{"ParamType":"bool","Value":true},
             {"ParamType":"bool","Value":"1"}])", "00000000 00000004efbbbf00 00 01 00", "ok"},
        {kBig, R"([{"ParamType":"uint8_t","Value":"300"},{"ParamType":"uint8_t","Value":"40000"},
             {"ParamType":"int8_t","Value":"-1"},{"ParamType":"uint8_t","Value":"12abc"},{"ParamType":"float","Value":"1.5"},
             {"ParamType":"int64_t","Value":"-2"},{"ParamType":"uint64_t","Value":"18446744073709551615"},
             {"ParamType":"uint16_t","Value":"258"}])", "2c ff ff 0c 3fc00000 fffffffffffffffe ffffffffffffffff 0102", "ok"},
        {kBig, R"({"b":{"ParamType":"uint8_t","Value":"2"},"a":{"ParamType":"uint8_t","Value":"1"}})", "01 02", "ok"},
        {kBig, R"([{"ParamType":"ARRAY","Value":"4","SubParams":[{"ParamType":"uint8_t","Value":"7"},
             {"ParamType":"uint8_t","Value":"8"}]}])", "00000004 07 08 07 07", "ok",
         {"serialize_array() Warning!!! Array size mismatch. Actual :2, Expected :4 *****"}},
        {kBig, R"([{"ParamType":"VECTOR","SubParams":[{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"ARRAY","Value":"2",
             "SubParams":[{"ParamType":"uint8_t","Value":"5"},{"ParamType":"uint8_t","Value":"6"}]}]}]}])",
         "0000000a 00000006 00000002 0506", "ok", {"serialize_vector() end. Vector Count  = 1 *****"}},
        {kBig, R"([{"ParamType":"VECTOR","SubParams":[]}])", "00000000", "ok", {"serialize_vector() ERROR!!! jsonStr size == 0 *****"}},
        {kBig, R"([{"ParamType":"STRUCTURE","SubParams":[]}])", "00000000", "failed", {"serialize_struct() ERROR!!! jsonStr size == 0 *****"}},
        {kBig, R"([{"ParamType":"ARRAY","Value":"abc","SubParams":[{"ParamType":"uint8_t"}]}])", "00000000", "failed",
         {"serialize_array() ERROR!!! Array size == 0 *****"}},
        // Containers open at the failure are closed on the way up, their length fields patched.
        {kBig, R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint8_t","Value":"1"},{"ParamType":"UINT8"}]},
             {"ParamType":"uint8_t","Value":"3"}])", "00000001 01", "failed",
         {"[serialize_basic]  ***** serialize_basic() type error = UINT8 *****",
          "[serialize_struct]  ***** serialize_struct() exit with Error occurred. *****",
          "[serialize_main]  ***** serialize_main() exit with Error occurred. *****"}},
        {kBig, "[]", "", "failed", {"serialize_main() ERROR!!! jsonStr size == 0 *****"}},
        {kBig, "{", "aa", "failed", {"serialize() : jsonStr parse failed!!! *****"}},
        {kBig, R"([{"ParamType":"uint8_t","Value":"1"},5])", "aa", "throws"},  // an element that is not an object
        {kLittle, R"([{"ParamType":"uint16_t","Value":"258"},{"ParamType":"double","Value":"-2"}])", "0201 00000000000000c0",
         "ok", {"byte_order                 = 1", "serialize_main() end. *****"}},
    };
    ZQSomeIP::Inner_someipSerializer serializer(cases[0].attr);
    for (Case& c : cases) {
        SCOPED_TRACE(c.list);
        LogCapture log;
        serializer.setExtendAttr(c.attr);
        std::string json = c.list, format;
        std::vector<uint8_t> out = {0xAA};
        EXPECT_EQ(outcome([&] { return serializer.serialize(out, json, format); }), c.result);
        EXPECT_EQ(hex(out), hex(bytes(c.payload)));
        for (const char* tail : c.logTails) EXPECT_TRUE(log.has(tail)) << tail;
    }
}

// One deserializer takes every case in turn, as above.
TEST(DeserializerWalk, FillsValuesExpandsContainersAndKeepsPartialResults)
{
    const char* vectorU16 = R"([{"ParamName":"v","ParamType":"VECTOR","SubParams":[{"ParamName":"e","ParamType":"uint16_t"}]}])";
    Case cases[] = {
        {kBigBare, R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint16_t"},{"ParamType":"uint16_t"}]}])", "0001ffff",
         "ok", {"[deserialize_struct]  ***** deserialize_struct() end. *****"}, {{"0/SubParams/0/Value", "1"}, {"0/SubParams/1/Value", "65535"}}},
        {kBig, R"([{"ParamType":"bool"},{"ParamType":"bool"},{"ParamType":"float"},{"ParamType":"int64_t"},
                   {"ParamType":"uint64_t"},{"ParamType":"int8_t"}])", "01 00 3fc00000 fffffffefffffffe 0000000100000002 80", "ok",
         {"deserialize_basic: read uint64_t deserializer : 2 *****"}, {{"0/Value", "true"}, {"1/Value", "false"}, {"2/Value", "1.500000"},
          {"3/Value", "-4294967298"}, {"4/Value", "4294967298"}, {"5/Value", "-128"}}},
        {kBig, vectorU16, "00000006 0001 0002 0003", "ok", {"deserialize_main() vector_Element length is 6 *****"},
         {{"0/Value", "3"}, {"0/SubParams/2/ParamName", "v_2"}, {"0/SubParams/2/Value", "3"}}},
        {kBig, vectorU16, "00000000", "ok", {"deserialize_vector() Return!!! Vector payload Length == 0 *****"},
         {{"0/Value", "null"}, {"0/SubParams/0/ParamName", "e"}}},
        // Every element starts from what the previous one left: names carry over into nested arrays.
        {kBigBare, R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"outer","ParamType":"ARRAY","Value":"2",
             "SubParams":[{"ParamName":"inner","ParamType":"ARRAY","Value":"2","SubParams":[{"ParamType":"uint8_t"}]}]}]}])",
         "01020304", "ok", {"deserialize_array() end. Array Cnt = 2 *****"},
         {{"0/SubParams/0/SubParams/0/ParamName", "outer_0"}, {"0/SubParams/0/SubParams/0/SubParams/1/ParamName", "inner_1"},
          {"0/SubParams/0/SubParams/1/ParamName", "outer_1"}, {"0/SubParams/0/SubParams/1/SubParams/1/ParamName", "outer_0_1"},
          {"0/SubParams/0/SubParams/1/SubParams/1/Value", "4"}}},
        {kBig, R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"ARRAY","Value":"0","SubParams":[{}]}]}])", "00000004 00000000",
         "failed", {"deserialize_array() ERROR!!! array Length == 0 *****"}, {{"0/SubParams/0/Value", "0"}}},
        {kBig, R"([{"ParamType":"uint8_t"},{"ParamType":"UINT8"}])", "0102", "failed", {"deserialize_basic() type error = UINT8 *****"},
         {{"0/Value", "1"}}},
        {kBig, R"([{"ParamType":"uint8_t"},{"ParamType":"uint32_t"}])", "0701", "failed", {"deserialize_basic() read failed: uint32_t *****"},
         {{"0/Value", "7"}, {"1/Value", "null"}}},
        {kBig, R"([{"ParamType":"uint8_t"}])", "", "failed",
         {"[deserialize_main]  ***** deserialize_main() ERROR!!! remain payload Length == 0 *****"}, {{"0/Value", "null"}}},
        {kBig, "{", "01", "failed", {"deserialize() : jsonStr parse failed!!! *****"}, {{"", "kept"}}},
    };
    ZQSomeIP::Inner_someipDeserializer deserializer(cases[0].attr);
    for (Case& c : cases) {
        SCOPED_TRACE(c.list);
        LogCapture log;
        deserializer.setExtendAttr(c.attr);
        std::vector<unsigned char> payload = bytes(c.payload);
        std::string format = c.list, json = "kept";
        EXPECT_EQ(outcome([&] { return deserializer.deserialize(payload, json, format); }), c.result);
        for (const auto& e : c.expect) EXPECT_EQ(*e.first ? at(parse(json), e.first) : json, e.second) << e.first;
        EXPECT_TRUE(log.has(c.logTails[0])) << c.logTails[0];
    }
}
