#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Inner/Inner_someipDeserializer.h"
#include "Inner/Inner_someipSerializer.h"
#include "ZQSomeIPParserAPI.h"
#include "conv_test_support.h"

using namespace convtest;

namespace {

// Parameter lists with values. Element names do not matter: the decoded document is compared by
// its leaf values and by what it encodes to. Values are written the way the decoder prints them.
const char* const kBasics = R"([
  {"ParamType":"bool","Value":"true"}, {"ParamType":"uint8_t","Value":"255"}, {"ParamType":"int8_t","Value":"-128"},
  {"ParamType":"uint16_t","Value":"65535"}, {"ParamType":"int16_t","Value":"-32768"},
  {"ParamType":"uint32_t","Value":"4294967295"}, {"ParamType":"int32_t","Value":"-2147483648"},
  {"ParamType":"uint64_t","Value":"18446744073709551615"}, {"ParamType":"int64_t","Value":"-9223372036854775808"},
  {"ParamType":"float","Value":"-1024.125000"}, {"ParamType":"double","Value":"12345.678901"}])";

const char* const kStruct = R"([{"ParamType":"STRUCTURE","SubParams":[
  {"ParamType":"STRING","Value":"Hello, world"}, {"ParamType":"bool","Value":"false"},
  {"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint8_t","Value":"7"},
    {"ParamName":"a","ParamType":"ARRAY","Value":"3","SubParams":[{"ParamType":"int16_t","Value":"-1"},
      {"ParamType":"int16_t","Value":"2"},{"ParamType":"int16_t","Value":"-3"}]}]},
  {"ParamName":"v","ParamType":"VECTOR","SubParams":[{"ParamType":"uint32_t","Value":"1"},
    {"ParamType":"uint32_t","Value":"2"},{"ParamType":"uint32_t","Value":"3"}]},
  {"ParamType":"uint16_t","Value":"513"}, {"ParamType":"double","Value":"-0.500000"}]},
  {"ParamType":"uint8_t","Value":"9"}])";

// Strings inside a vector: decodable only in UTF-8 (the vector's content is accounted in UTF-8 sizes).
const char* const kVectors = R"([
  {"ParamName":"recs","ParamType":"VECTOR","SubParams":[
    {"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint32_t","Value":"1"},{"ParamType":"STRING","Value":"one"}]},
    {"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint32_t","Value":"2"},{"ParamType":"STRING","Value":"two"}]}]},
  {"ParamType":"uint8_t","Value":"5"},
  {"ParamName":"bytes","ParamType":"VECTOR","SubParams":[{"ParamType":"uint8_t","Value":"1"},
    {"ParamType":"uint8_t","Value":"2"},{"ParamType":"uint8_t","Value":"3"}]},
  {"ParamType":"uint8_t","Value":"6"},
  {"ParamType":"STRUCTURE","SubParams":[{"ParamName":"rows","ParamType":"ARRAY","Value":"2","SubParams":[
    {"ParamName":"row","ParamType":"VECTOR","SubParams":[{"ParamType":"int16_t","Value":"-1"},{"ParamType":"int16_t","Value":"1"}]},
    {"ParamName":"row","ParamType":"VECTOR","SubParams":[{"ParamType":"int16_t","Value":"300"}]}]}]}])";

bool isContainer(const Json::Value& p)
{
    const std::string type = p["ParamType"].asString();
    return type == "STRUCTURE" || type == "ARRAY" || type == "VECTOR";
}

// The method format of a parameter list: values dropped (but array counts), arrays and vectors
// described by their first element.
Json::Value formatOf(const Json::Value& list)
{
    Json::Value format(Json::arrayValue);
    for (Json::Value p : list) {
        if (isContainer(p)) {
            p["SubParams"] = formatOf(p["SubParams"]);
            if (p["ParamType"] != "STRUCTURE" && p["SubParams"].size() > 1) {
                p["SubParams"].resize(1);
            }
        }
        if (p["ParamType"] != "ARRAY") {
            p.removeMember("Value");
        }
        format.append(p);
    }
    return format;
}

// Values of the basic parameters in document order.
std::vector<std::string> leaves(const Json::Value& list)
{
    std::vector<std::string> out;
    for (const Json::Value& p : list) {
        if (isContainer(p)) {
            const std::vector<std::string> inner = leaves(p["SubParams"]);
            out.insert(out.end(), inner.begin(), inner.end());
        } else {
            out.push_back(p["Value"].asString());
        }
    }
    return out;
}

// Length field sizes: "8", "16", "32", "0", or "mixed" (structs and arrays without length fields).
Json::Value attribute(const char* order, std::string lengths, const char* align, const char* encoding)
{
    Json::Value a;
    const bool mixed = lengths == "mixed";
    a["ArrayLengthFieldSize"] = a["StructLengthFieldSize"] = mixed ? "0" : lengths;
    a["VectorLengthFieldSize"] = a["StringLengthFieldSize"] = a["UnionLengthFieldSize"] = mixed ? "16" : lengths;
    a["DataAlignment"] = align;
    a["ByteOrderEnum"] = order;
    a["StringEncoding"] = encoding;
    return a;
}

// Loads one service per attribute record, service i + 1 with method 1 describing lists[i].
class RoundTrip : public ::testing::Test {
protected:
    void load(const std::vector<std::pair<Json::Value, const char*>>& services)
    {
        Json::Value root;
        for (const auto& s : services) {
            Json::Value& service = root["Services"].append(Json::Value());
            service["ServiceID"] = root["Services"].size();
            service["Attribute"] = s.first;
            service["Methods"][0]["MethodID"] = "1";
            service["Methods"][0]["Params"][0]["MethodType"] = "request";
            service["Methods"][0]["Params"][0]["ParamsDetails"] = formatOf(parse(s.second));
        }
        const std::string path = ::testing::TempDir() + "someip_roundtrip_" + std::to_string(getpid()) + ".json";
        std::ofstream(path) << root.toStyledString();
        ASSERT_EQ(api.loadFormatJson(path), 0);
        std::remove(path.c_str());
    }
    std::vector<unsigned char> encode(int service, std::string json)
    {
        std::vector<unsigned char> payload;
        EXPECT_EQ(api.serializebyMethodID(service, 1, 0, json, payload), 0);
        return payload;
    }
    std::string decode(int service, std::vector<unsigned char> payload, int expected)
    {
        std::string json;
        EXPECT_EQ(api.deserializebyMethodID(service, 1, 0, payload, json), expected);
        return json;
    }

    ZQSomeIP::ZQSomeIPParserAPI api;
};

} // namespace

TEST_F(RoundTrip, DecodedDocumentEncodesToTheSamePayload)
{
    std::vector<std::pair<Json::Value, const char*>> services;
    for (const char* order : {"BYTE_ORDER_BIG_ENDIAN", "BYTE_ORDER_LITTLE_ENDIAN"}) {
        for (const char* lengths : {"8", "16", "32", "mixed"}) {
            for (const char* align : {"8", "16", "32", "64"}) {
                for (const char* list : {kBasics, kStruct, kVectors}) {
                    services.push_back({attribute(order, lengths, align, "UTF8"), list});
                    if (list != kVectors) {
                        services.push_back({attribute(order, lengths, align, "UTF16"), list});
                    }
                }
            }
        }
    }
    load(services);
    for (size_t i = 0; i < services.size(); ++i) {
        SCOPED_TRACE(services[i].first.toStyledString() + services[i].second);
        const int id = static_cast<int>(i + 1);
        const std::vector<unsigned char> payload = encode(id, services[i].second);
        const std::string json = decode(id, payload, 0);
        EXPECT_EQ(leaves(parse(json)), leaves(parse(services[i].second)));
        EXPECT_EQ(hex(encode(id, json)), hex(payload));
    }
}

// Where the two directions do not meet, what each one does.
TEST_F(RoundTrip, PinnedBreaks)
{
    struct Pin {
        const char* why;
        Json::Value attribute;
        const char* list;
        const char* described;  // the list the method format is made from, when it is not `list`
        int decodeResult;
        std::vector<std::string> decodedLeaves;  // when decoding succeeds; the document then encodes differently
    };
    const Pin pins[] = {
        {"UTF-16 strings in a vector are accounted as UTF-8", attribute("BYTE_ORDER_BIG_ENDIAN", "32", "8", "UTF16"),
         kVectors, nullptr, -1, {}},
        {"top-level strings are written with a 4-byte length field whatever the format says",
         attribute("BYTE_ORDER_BIG_ENDIAN", "16", "8", "UTF8"), R"([{"ParamType":"STRING","Value":"ab"}])", nullptr, -1, {}},
        {"a string without length field cannot be read back", attribute("BYTE_ORDER_BIG_ENDIAN", "0", "8", "UTF8"),
         R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"STRING","Value":"ab"}]}])", nullptr, -1, {}},
        {"a vector without length field reads as empty; the next value takes its first byte",
         attribute("BYTE_ORDER_BIG_ENDIAN", "0", "8", "UTF8"),
         R"([{"ParamType":"VECTOR","SubParams":[{"ParamType":"uint8_t","Value":"1"},{"ParamType":"uint8_t","Value":"2"}]},
             {"ParamType":"uint8_t","Value":"9"}])", nullptr, 0, {"", "1"}},
        {"an empty vector keeps its description, which encodes as one element",
         attribute("BYTE_ORDER_BIG_ENDIAN", "32", "8", "UTF8"),
         R"([{"ParamType":"VECTOR","SubParams":[]},{"ParamType":"uint8_t","Value":"9"}])",
         R"([{"ParamType":"VECTOR","SubParams":[{"ParamType":"uint8_t"}]},{"ParamType":"uint8_t"}])", 0, {"", "9"}},
        {"after a top-level vector, a top-level container ends the writer's alignment but not the reader's",
         attribute("BYTE_ORDER_BIG_ENDIAN", "32", "32", "UTF8"),
         R"([{"ParamType":"VECTOR","SubParams":[{"ParamType":"uint8_t","Value":"1"}]},
             {"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint8_t","Value":"2"}]},
             {"ParamType":"uint8_t","Value":"3"}])", nullptr, -1, {}},
    };
    std::vector<std::pair<Json::Value, const char*>> services;
    for (const Pin& pin : pins) {
        services.push_back({pin.attribute, pin.described ? pin.described : pin.list});
    }
    load(services);
    for (size_t i = 0; i < services.size(); ++i) {
        SCOPED_TRACE(pins[i].why);
        const int id = static_cast<int>(i + 1);
        const std::vector<unsigned char> payload = encode(id, pins[i].list);
        const std::string json = decode(id, payload, pins[i].decodeResult);
        if (pins[i].decodeResult == 0) {
            EXPECT_EQ(leaves(parse(json)), pins[i].decodedLeaves);
            EXPECT_NE(hex(encode(id, json)), hex(payload));
        }
    }
}

// What each direction does with the two array forms in each place. "Value" "3" in the nested form
// inside a vector is ignored by the decoder, which reads one element per member of the nested object.
TEST(RoundTripArrayShapes, EachDirectionTakesItsOwnForm)
{
    const std::string flat = R"({"ParamName":"a","ParamType":"ARRAY","Value":"2",
        "SubParams":[{"ParamType":"uint8_t","Value":"1"}]})";
    const std::string nested = R"({"ParamName":"a","ParamType":"ARRAY","Value":"3",
        "SubParams":{"ParamName":"e","SubParams":[{"ParamType":"uint8_t","Value":"1"}]}})";
    const std::string inStruct = R"([{"ParamType":"STRUCTURE","SubParams":[)", inVector = R"([{"ParamType":"VECTOR","SubParams":[)";
    struct Shape {
        std::string list;
        const char* payload;
        const char* encode;
        const char* decode;
    };
    const Shape shapes[] = {
        {"[" + flat + "]", "00000002 0101", "ok", "throws"},
        {"[" + nested + "]", "00000003 010101", "throws", "ok"},
        {inStruct + flat + "]}]", "00000006 00000002 0101", "ok", "ok"},
        {inStruct + nested + "]}]", "00000007 00000003 010101", "throws", "throws"},
        {inVector + flat + "]}]", "00000006 00000002 0101", "ok", "throws"},
        {inVector + nested + "]}]", "00000006 00000002 0101", "throws", "ok"},
    };
    auto outcome = [](const std::function<int()>& call) -> std::string {
        try {
            return call() == 0 ? "ok" : "failed";
        } catch (const Json::LogicError&) {
            return "throws";
        }
    };
    ZQSomeIPExtendAttr attr;
    attr.byte_order = 0;
    ZQSomeIP::Inner_someipSerializer serializer(attr);
    ZQSomeIP::Inner_someipDeserializer deserializer(attr);
    for (const Shape& s : shapes) {
        SCOPED_TRACE(s.list);
        std::string list = s.list, json;
        std::vector<unsigned char> payload = bytes(s.payload), written;
        EXPECT_EQ(outcome([&] { return serializer.serialize(written, list, json); }), s.encode);
        EXPECT_EQ(outcome([&] { return deserializer.deserialize(payload, json, list); }), s.decode);
    }
}
