#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
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

// The method format that describes a parameter list: values dropped (except array counts), arrays and
// vectors described by their first element.
Json::Value formatOf(const Json::Value& list)
{
    Json::Value format(Json::arrayValue);
    for (const Json::Value& p : list) {
        Json::Value described = p;
        const std::string type = p["ParamType"].asString();
        if (type != "ARRAY") {
            described.removeMember("Value");
        }
        if (isContainer(p)) {
            Json::Value members = formatOf(p["SubParams"]);
            if (type != "STRUCTURE" && members.size() > 1) {
                members.resize(1);
            }
            described["SubParams"] = members;
        }
        format.append(described);
    }
    return format;
}

void leaves(const Json::Value& list, std::vector<std::string>& out)
{
    for (const Json::Value& p : list) {
        if (isContainer(p)) {
            leaves(p["SubParams"], out);
        } else {
            out.push_back(p["Value"].asString());
        }
    }
}

struct Service {
    int id;
    Json::Value attribute;
    std::vector<const char*> methods;  // method i + 1 describes methods[i]
};

Json::Value attribute(const char* order, const char* lengths, const char* align, const char* encoding)
{
    Json::Value a;
    for (const char* key : {"ArrayLengthFieldSize", "VectorLengthFieldSize", "StructLengthFieldSize",
                            "StringLengthFieldSize", "UnionLengthFieldSize"}) {
        a[key] = lengths;
    }
    if (std::string(lengths) == "mixed") {  // containers without length fields where the wire allows it
        a["ArrayLengthFieldSize"] = a["StructLengthFieldSize"] = "0";
        a["VectorLengthFieldSize"] = a["StringLengthFieldSize"] = "16";
    }
    a["DataAlignment"] = align;
    a["ByteOrderEnum"] = order;
    a["StringEncoding"] = encoding;
    return a;
}

class RoundTrip : public ::testing::Test {
protected:
    void load(const std::vector<Service>& services)
    {
        Json::Value root;
        for (const Service& s : services) {
            Json::Value service;
            service["ServiceID"] = std::to_string(s.id);
            service["Attribute"] = s.attribute;
            for (size_t m = 0; m < s.methods.size(); ++m) {
                Json::Value method;
                method["MethodID"] = std::to_string(m + 1);
                method["Params"][0]["MethodType"] = "request";
                method["Params"][0]["ParamsDetails"] = formatOf(parse(s.methods[m]));
                service["Methods"].append(method);
            }
            root["Services"].append(service);
        }
        const std::string path = ::testing::TempDir() + "someip_roundtrip_" + std::to_string(getpid()) + ".json";
        std::ofstream(path) << root.toStyledString();
        ASSERT_EQ(api.loadFormatJson(path), 0);
        std::remove(path.c_str());
    }
    std::vector<unsigned char> encode(int service, int method, std::string json, int expected = 0)
    {
        std::vector<unsigned char> payload;
        EXPECT_EQ(api.serializebyMethodID(service, method, 0, json, payload), expected);
        return payload;
    }
    std::string decode(int service, int method, std::vector<unsigned char> payload, int expected = 0)
    {
        std::string json;
        EXPECT_EQ(api.deserializebyMethodID(service, method, 0, payload, json), expected);
        return json;
    }

    ZQSomeIP::ZQSomeIPParserAPI api;
};

} // namespace

TEST_F(RoundTrip, DecodedDocumentEncodesToTheSamePayload)
{
    std::vector<Service> services;
    for (const char* order : {"BYTE_ORDER_BIG_ENDIAN", "BYTE_ORDER_LITTLE_ENDIAN"}) {
        for (const char* lengths : {"8", "16", "32", "mixed"}) {
            for (const char* align : {"8", "16", "32", "64"}) {
                for (const char* encoding : {"UTF8", "UTF16"}) {
                    std::vector<const char*> methods = {kBasics, kStruct};
                    if (std::string(encoding) == "UTF8") {
                        methods.push_back(kVectors);
                    }
                    services.push_back({static_cast<int>(services.size()) + 1,
                                        attribute(order, lengths, align, encoding), methods});
                }
            }
        }
    }
    load(services);
    for (const Service& s : services) {
        for (size_t m = 0; m < s.methods.size(); ++m) {
            SCOPED_TRACE(s.attribute.toStyledString() + "method " + std::to_string(m + 1));
            const std::vector<unsigned char> payload = encode(s.id, static_cast<int>(m + 1), s.methods[m]);
            const std::string json = decode(s.id, static_cast<int>(m + 1), payload);
            std::vector<std::string> expected, decoded;
            leaves(parse(s.methods[m]), expected);
            leaves(parse(json), decoded);
            EXPECT_EQ(decoded, expected);
            EXPECT_EQ(hex(encode(s.id, static_cast<int>(m + 1), json)), hex(payload));
        }
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
        std::vector<std::string> decodedLeaves;  // checked when decoding succeeds
    };
    const Pin pins[] = {
        {"UTF-16 strings in a vector are accounted as UTF-8", attribute("BYTE_ORDER_BIG_ENDIAN", "32", "8", "UTF16"),
         kVectors, nullptr, -1, {}},
        {"top-level strings are written with a 4-byte length field whatever the format says",
         attribute("BYTE_ORDER_BIG_ENDIAN", "16", "8", "UTF8"), R"([{"ParamType":"STRING","Value":"ab"}])", nullptr, -1, {}},
        {"a string without length field cannot be read back",
         attribute("BYTE_ORDER_BIG_ENDIAN", "0", "8", "UTF8"),
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
    std::vector<Service> services;
    for (const Pin& pin : pins) {
        const char* described = pin.described ? pin.described : pin.list;
        services.push_back({static_cast<int>(services.size()) + 1, pin.attribute, {described}});
    }
    load(services);
    for (size_t i = 0; i < services.size(); ++i) {
        SCOPED_TRACE(pins[i].why);
        const std::vector<unsigned char> payload = encode(services[i].id, 1, pins[i].list);
        const std::string json = decode(services[i].id, 1, payload, pins[i].decodeResult);
        if (pins[i].decodeResult == 0) {
            std::vector<std::string> decoded;
            leaves(parse(json), decoded);
            EXPECT_EQ(decoded, pins[i].decodedLeaves);
            EXPECT_NE(hex(encode(services[i].id, 1, json)), hex(payload));
        }
    }
}

// A top-level array in the nested form decodes, but the writer takes only the flat form.
TEST_F(RoundTrip, TopLevelNestedArrayDoesNotEncode)
{
    ASSERT_EQ(api.loadFormatJson(SOMEIP_EXAMPLES_DIR), 0);
    std::vector<unsigned char> payload = bytes("00000005 01 02 03 04 05");
    std::string json;
    ASSERT_EQ(api.deserializebyMethodID(0x1235, 2, 0x80, payload, json), 0);
    std::vector<unsigned char> again;
    EXPECT_THROW(api.serializebyMethodID(0x1235, 2, 0x80, json, again), Json::LogicError);
}

// What each direction does with the two array forms in each place. "Value" "3" in the nested form
// inside a vector is ignored by the decoder, which reads one element per member of the nested object.
TEST(RoundTripArrayShapes, EachDirectionTakesItsOwnForm)
{
    const std::string flat = R"({"ParamName":"a","ParamType":"ARRAY","Value":"2","SubParams":[{"ParamType":"uint8_t","Value":"1"}]})";
    const std::string nested = R"({"ParamName":"a","ParamType":"ARRAY","Value":"3",
        "SubParams":{"ParamName":"e","SubParams":[{"ParamType":"uint8_t","Value":"1"}]}})";
    struct Shape {
        std::string where;
        std::string list;
        const char* payload;
        bool encodes, decodes;
    };
    const Shape shapes[] = {
        {"top level, flat", "[" + flat + "]", "00000002 0101", true, false},
        {"top level, nested", "[" + nested + "]", "00000003 010101", false, true},
        {"in a struct, flat", R"([{"ParamType":"STRUCTURE","SubParams":[)" + flat + "]}]", "00000006 00000002 0101", true, true},
        {"in a struct, nested", R"([{"ParamType":"STRUCTURE","SubParams":[)" + nested + "]}]", "00000007 00000003 010101", false, false},
        {"in a vector, flat", R"([{"ParamType":"VECTOR","SubParams":[)" + flat + "]}]", "00000006 00000002 0101", true, false},
        {"in a vector, nested", R"([{"ParamType":"VECTOR","SubParams":[)" + nested + "]}]", "00000006 00000002 0101", false, true},
    };
    ZQSomeIPExtendAttr attr;
    attr.byte_order = 0;
    ZQSomeIP::Inner_someipSerializer serializer(attr);
    ZQSomeIP::Inner_someipDeserializer deserializer(attr);
    for (const Shape& s : shapes) {
        SCOPED_TRACE(s.where);
        std::string list = s.list;
        std::string json;
        std::vector<unsigned char> payload;
        if (s.encodes) {
            EXPECT_EQ(serializer.serialize(payload, list, json), 0);
        } else {
            EXPECT_THROW(serializer.serialize(payload, list, json), Json::LogicError);
        }
        payload = bytes(s.payload);
        if (s.decodes) {
            EXPECT_EQ(deserializer.deserialize(payload, json, list), 0);
        } else {
            EXPECT_THROW(deserializer.deserialize(payload, json, list), Json::LogicError);
        }
    }
}
