#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "ZQSomeIPParserAPI.h"
#include "conv_test_support.h"

using namespace convtest;

namespace {

const int kNavigation = 0x1234;  // little endian, 16-bit length fields, 32-bit alignment, UTF-8
const int kMedia = 0x1235;       // big endian, 32-bit length fields, no alignment, UTF-16
const int kDiagnostics = 0x1236; // big endian, from the file-wide attributes

class ApiTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(api.loadFormatJson(SOMEIP_EXAMPLES_DIR), 0); }

    std::string encode(int service, int method, int type, std::string json, int expected = 0)
    {
        std::vector<unsigned char> payload = {0xAA};
        EXPECT_EQ(api.serializebyMethodID(service, method, type, json, payload), expected);
        return hex(payload);
    }
    Json::Value decode(int service, int method, int type, const char* payloadHex, int expected = 0)
    {
        std::vector<unsigned char> payload = bytes(payloadHex);
        std::string json;
        EXPECT_EQ(api.deserializebyMethodID(service, method, type, payload, json), expected);
        return parse(json);
    }

    ZQSomeIP::ZQSomeIPParserAPI api;
};

} // namespace

TEST_F(ApiTest, ConvertsUnderTheLoadedAttributes)
{
    // A top-level string always gets a 4-byte length field; inside containers the format's sizes apply.
    EXPECT_EQ(encode(kNavigation, 1, 0, R"([{"ParamType":"STRING","Value":"Home"},
        {"ParamType":"STRUCTURE","SubParams":[{"ParamType":"double","Value":"1.5"},{"ParamType":"double","Value":"-2"}]},
        {"ParamType":"uint8_t","Value":"2"}])"),
              "08000000efbbbf486f6d6500" "1000" "000000000000f83f" "00000000000000c0" "02");
    const Json::Value track = decode(kMedia, 1, 0x80,
                                     "00000008 feff 0048 0069 0000  00000004 feff 0000  0000ea60  00000008 04 00000003 010203");
    for (const auto& e : std::vector<std::pair<const char*, const char*>>{
             {"0/Value", "Hi"}, {"1/Value", ""}, {"2/Value", "60000"}, {"3/SubParams/0/Value", "4"}, {"3/SubParams/1/Value", "3"},
             {"3/SubParams/1/SubParams/2/ParamName", "scores_2"}, {"3/SubParams/1/SubParams/2/Value", "3"}}) {
        EXPECT_EQ(at(track, e.first), e.second) << e.first;
    }
    // A top-level array in the nested form: elements named after the nested "ParamName".
    EXPECT_EQ(at(decode(kMedia, 2, 0x81, "00000005 01 ff 02 fe 00"), "0/SubParams/SubParams/4/ParamName"), "band_4");
}

// Each method re-arms the converters with its own attributes, also after a failure; failures hand out
// what was converted before the failing element.
TEST_F(ApiTest, ConvertersAreRearmedForEveryMethodAndFailuresKeepPartialResults)
{
    LogCapture log;
    const std::string json = R"([{"ParamType":"uint32_t","Value":"16909060"})";
    EXPECT_EQ(encode(kNavigation, 2, 0, json + "]"), "04030201");
    EXPECT_EQ(encode(kDiagnostics, 0x8001, 2, json + "]"), "01020304");
    EXPECT_EQ(encode(kNavigation, 2, 0, json + R"(,{"ParamType":"nope"}])", -1), "04030201");
    EXPECT_EQ(at(decode(kDiagnostics, 0x8001, 2, "01020304 00 04efbbbf00"), "0/Value"), "16909060");
    EXPECT_EQ(at(decode(kNavigation, 2, 0x80, "07000000 1400 0800 6400", -1), "0/Value"), "7");
    EXPECT_TRUE(log.has("deserialize_vector() struct_data_begin failed *****"));
    EXPECT_TRUE(log.has("deserialize_main() exit with Error occurred *****"));
}

// Lookups that find no format leave the outputs alone; the entry lines log the method ID in the service
// ID's place.
TEST_F(ApiTest, FacadeLinesAndUnknownMethods)
{
    LogCapture log;
    std::string format = "old", json = "keep";
    std::vector<unsigned char> payload = {1};
    EXPECT_EQ(api.getMethodFormatbyID(kNavigation, 5, 0, format), -1);
    EXPECT_EQ(encode(kNavigation, 99, 0, "[1]", -1), "aa");
    EXPECT_EQ(api.deserializebyMethodID(kNavigation, 98, 0x80, payload, json), -1);
    EXPECT_EQ(format + "," + json, "old,keep");
    for (const char* tail : {"  getMethodFormatbyID() Start. serviceID:[5], methodID:[5], messageType:[0]",
                             "  getMethodFormatbyID() End. serviceID:[5], methodID:[5], messageType:[0]:", "  result json:[old]",
                             "  serializebyMethodID() Start. serviceID:[99], methodID:[99], messageType:[0]",
                             "  ***** serializebyMethodID() End : Find Format Failed *****", "  serializebyMethodID() End",
                             "  result json:[[1]]", "  ***** deserializebyMethodID() End : Find Format Failed *****",
                             "  deserializebyMethodID() Start. serviceID:[98], methodID:[98], messageType:[128], jsonStr:[keep]",
                             "  deserializebyMethodID() End"}) {
        EXPECT_TRUE(log.has(tail)) << tail;
    }
    EXPECT_FALSE(log.has("setExtendAttr() : ZQSomeIPExtendAttr updated!!! *****"));  // no converter was made
}
