// The plain JSON form: every error with its place, lossless floats, messages without parameters, strict
// loading, and one format set used by many threads at once. Round trips over generated formats are the
// version-2 round trip's; agreement with the classic values is checked on the damaged-payload examples.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "compiled/ZQSomeIPFormatSet.h"
#include "conv_test_support.h"

namespace {

using namespace ZQSomeIP;
using Bytes = std::vector<uint8_t>;

using FormatDir = convtest::TempDir;

// One service (0x1234) with one event (1, notification) whose parameters are `details`.
std::string formatFile(const Json::Value& details, const Json::Value& attribute)
{
    Json::Value root;
    Json::Value& service = root["Services"][0];
    service["ServiceID"] = "4660";
    service["Attribute"] = attribute;
    service["Events"][0]["EventID"] = "1";
    service["Events"][0]["Params"][0]["MethodType"] = "event";
    service["Events"][0]["Params"][0]["ParamsDetails"] = details;
    return root.toStyledString();
}

std::shared_ptr<const ZQSomeIPFormatSet> loadOne(const FormatDir& dir, const std::string& text)
{
    ZQSomeIPPlainStatus status;
    auto set = ZQSomeIPFormatSet::load(dir.write("f.json", text), status);
    EXPECT_TRUE(status.ok()) << status.toJson();
    return set;
}

// ---- errors ---------------------------------------------------------------------------------------------

const char* const kRoute = R"([
  {"ParamName":"id","ParamType":"uint8_t"},
  {"ParamName":"points","ParamType":"VECTOR","SubParams":[{"ParamName":"p","ParamType":"STRUCTURE",
    "SubParams":[{"ParamName":"x","ParamType":"int16_t"},{"ParamName":"y","ParamType":"int16_t"}]}]},
  {"ParamName":"fixed","ParamType":"ARRAY","Value":"2","SubParams":[{"ParamName":"f","ParamType":"uint16_t"}]},
  {"ParamName":"name","ParamType":"STRING"}])";

Json::Value bigEndian8()
{
    Json::Value a;
    a["VectorLengthFieldSize"] = "8";
    a["StructLengthFieldSize"] = "0";
    a["ArrayLengthFieldSize"] = "0";
    a["StringLengthFieldSize"] = "8";
    a["ByteOrderEnum"] = "BYTE_ORDER_BIG_ENDIAN";
    return a;
}

TEST(PlainCodec, DecodeErrorsSayWhereAndWhy)
{
    FormatDir dir;
    auto set = loadOne(dir, formatFile(convtest::parse(kRoute), bigEndian8()));
    ASSERT_TRUE(set);
    // id, points [ (1,-2) ], fixed [3,4], name "Hi"
    const std::string good = "07 04 0001 fffe 0003 0004 06 efbbbf 4869 00";
    struct Case {
        const char* what;
        std::string payload;
        ZQSomeIPPlainError code;
        size_t offset;
        int service = 0x1234, method = 1, type = 2;
    };
    const Case cases[] = {
        {"control", good, ZQSomeIPPlainError::Ok, 0},
        {"unknown message", good, ZQSomeIPPlainError::UnknownMessage, 0, 0x1234, 9},
        {"cut inside the array", "07 04 0001 fffe 0003 00", ZQSomeIPPlainError::Truncated, 8},
        {"vector longer than the payload", "07 40 0001", ZQSomeIPPlainError::LengthBeyondData, 1},
        {"vector not a whole element", "07 03 0001 ff 0003 0004 06 efbbbf 4869 00", ZQSomeIPPlainError::LengthMismatch, 4},
        {"string length beyond the data", "07 04 0001 fffe 0003 0004 09 efbbbf 4869 00", ZQSomeIPPlainError::LengthBeyondData, 10},
        {"string without its mark", "07 04 0001 fffe 0003 0004 06 414243 4869 00", ZQSomeIPPlainError::BadString, 10},
        {"string with a zero inside", "07 04 0001 fffe 0003 0004 06 efbbbf 0069 00", ZQSomeIPPlainError::BadString, 10},
        {"string not UTF-8", "07 04 0001 fffe 0003 0004 06 efbbbf c328 00", ZQSomeIPPlainError::BadString, 10},
        {"trailing bytes", good + " 0102", ZQSomeIPPlainError::TrailingBytes, 17},
    };
    ZQSomeIPPlainOptions strict;
    strict.strict = true;
    for (const Case& c : cases) {
        const Bytes payload = convtest::bytes(c.payload);
        std::string out = "untouched";
        const ZQSomeIPPlainStatus s =
            plainDecode(*set, c.service, c.method, c.type, payload.data(), payload.size(), out, strict);
        EXPECT_EQ(plainErrorName(s.code), std::string(plainErrorName(c.code))) << c.what << ": " << s.toJson();
        if (c.code == ZQSomeIPPlainError::Ok) {
            EXPECT_EQ(out, R"({"id":7,"points":[{"x":1,"y":-2}],"fixed":[3,4],"name":"Hi"})");
        } else {
            EXPECT_EQ(s.offset, c.offset) << c.what;
            EXPECT_EQ(out, "untouched") << c.what;
            EXPECT_FALSE(s.message.empty());
        }
    }
    // The report as the tool and the Python module hand it out: scripts match on the code's name.
    const Bytes beyond = convtest::bytes("07 40 0001");
    std::string out;
    EXPECT_EQ(plainDecode(*set, 0x1234, 1, 2, beyond.data(), beyond.size(), out).toJson(),
              R"({"code":"length_beyond_data","offset":1,"message":"points: the vector's length field says 64 bytes, 2 remain"})");
}

TEST(PlainCodec, EncodeErrorsNameTheJsonPath)
{
    FormatDir dir;
    auto set = loadOne(dir, formatFile(convtest::parse(kRoute), bigEndian8()));
    ASSERT_TRUE(set);
    struct Case {
        const char* what;
        const char* json;
        ZQSomeIPPlainError code;
        const char* path;
    };
    const Case cases[] = {
        {"control", R"({"id":7,"points":[{"x":1,"y":-2}],"fixed":[3,4],"name":"Hi"})", ZQSomeIPPlainError::Ok, ""},
        {"not JSON", R"({"id":7,)", ZQSomeIPPlainError::BadJson, "$"},
        {"text for a number", R"({"id":"7","points":[],"fixed":[3,4],"name":""})", ZQSomeIPPlainError::WrongType, "$.id"},
        {"out of range", R"({"id":300,"points":[],"fixed":[3,4],"name":""})", ZQSomeIPPlainError::OutOfRange, "$.id"},
        {"fraction for an integer", R"({"id":1.5,"points":[],"fixed":[3,4],"name":""})", ZQSomeIPPlainError::WrongType, "$.id"},
        {"exponent for an integer", R"({"id":7e0,"points":[],"fixed":[3,4],"name":""})", ZQSomeIPPlainError::WrongType, "$.id"},
        {"member missing", R"({"id":7,"points":[{"x":1}],"fixed":[3,4],"name":""})", ZQSomeIPPlainError::MissingMember, "$.points[0].y"},
        {"member unknown", R"({"id":7,"points":[],"fixed":[3,4],"name":"","extra":1})", ZQSomeIPPlainError::UnknownMember, "$"},
        {"member twice", R"({"id":7,"id":8,"points":[],"fixed":[3,4],"name":""})", ZQSomeIPPlainError::UnknownMember, "$"},
        {"fixed array short", R"({"id":7,"points":[],"fixed":[3],"name":""})", ZQSomeIPPlainError::WrongCount, "$.fixed"},
        {"object for an array", R"({"id":7,"points":{},"fixed":[3,4],"name":""})", ZQSomeIPPlainError::WrongType, "$.points"},
        {"string too long for 8 bits", nullptr, ZQSomeIPPlainError::TooLong, "$.name"},
        {"vector too long for 8 bits", nullptr, ZQSomeIPPlainError::TooLong, "$.points"},
    };
    for (const Case& c : cases) {
        std::string json = c.json ? c.json : "";
        if (!c.json && std::string(c.path) == "$.name") {
            json = R"({"id":7,"points":[],"fixed":[3,4],"name":")" + std::string(300, 'a') + "\"}";
        } else if (!c.json) {
            json = R"({"id":7,"points":[)";
            for (int i = 0; i < 70; ++i) json += std::string(i ? "," : "") + R"({"x":1,"y":2})";
            json += R"(],"fixed":[3,4],"name":""})";
        }
        Bytes payload = {0xAA};
        const ZQSomeIPPlainStatus s = plainEncode(*set, 0x1234, 1, 2, json, payload);
        EXPECT_EQ(plainErrorName(s.code), std::string(plainErrorName(c.code))) << c.what << ": " << s.toJson();
        if (c.code == ZQSomeIPPlainError::Ok) {
            EXPECT_EQ(convtest::hex(payload), "0704" "0001fffe" "00030004" "06efbbbf486900");
        } else {
            EXPECT_EQ(s.path, c.path) << c.what;
            EXPECT_EQ(payload, Bytes{0xAA}) << c.what;  // nothing written on error
        }
    }
}

TEST(PlainCodec, FloatsKeepEveryBit)
{
    FormatDir dir;
    auto set = loadOne(dir, formatFile(convtest::parse(R"([{"ParamName":"f","ParamType":"float"},
                                                          {"ParamName":"d","ParamType":"double"}])"), bigEndian8()));
    ASSERT_TRUE(set);
    struct Case {
        uint32_t f;
        uint64_t d;
        const char* json;
    };
    const Case cases[] = {
        {0x40490fdb, 0x3e112e0be826d695, R"({"f":3.1415927,"d":1e-09})"},
        {0x00000001, 0x0000000000000001, R"({"f":1e-45,"d":5e-324})"},
        {0x7f7fffff, 0x7fefffffffffffff, R"({"f":3.4028235e+38,"d":1.7976931348623157e+308})"},
        {0x80000000, 0x8000000000000000, R"({"f":-0,"d":-0})"},
        {0x7f800000, 0xfff0000000000000, R"({"f":"Infinity","d":"-Infinity"})"},
        {0x7fc00000, 0x7ff8000000000000, R"({"f":"NaN","d":"NaN"})"},
        {0xffc00001, 0x7ff0000000000001, R"({"f":"NaN:0xffc00001","d":"NaN:0x7ff0000000000001"})"},
    };
    for (const Case& c : cases) {
        Bytes payload;
        for (int i = 3; i >= 0; --i) payload.push_back(uint8_t(c.f >> (8 * i)));
        for (int i = 7; i >= 0; --i) payload.push_back(uint8_t(c.d >> (8 * i)));
        std::string out;
        ASSERT_TRUE(plainDecode(*set, 0x1234, 1, 2, payload.data(), payload.size(), out).ok());
        EXPECT_EQ(out, c.json);
        Bytes back;
        ASSERT_TRUE(plainEncode(*set, 0x1234, 1, 2, out, back).ok()) << out;
        EXPECT_EQ(convtest::hex(back), convtest::hex(payload)) << out;
    }
}

TEST(PlainCodec, MessagesWithoutParametersAreEmptyObjects)
{
    FormatDir dir;
    auto set = loadOne(dir, formatFile(Json::Value(Json::arrayValue), bigEndian8()));
    ASSERT_TRUE(set);
    std::string out;
    EXPECT_TRUE(plainDecode(*set, 0x1234, 1, 2, nullptr, 0, out).ok());
    EXPECT_EQ(out, "{}");
    Bytes payload = {1};
    EXPECT_TRUE(plainEncode(*set, 0x1234, 1, 2, " {} ", payload).ok());
    EXPECT_TRUE(payload.empty());
    // A newer peer may append parameters: skipped with a warning, or refused when strict.
    const uint8_t extra[] = {9};
    const ZQSomeIPPlainStatus lenient = plainDecode(*set, 0x1234, 1, 2, extra, 1, out);
    ASSERT_TRUE(lenient.ok());
    EXPECT_EQ(lenient.warningsJson(), R"([{"offset":0,"bytes":1,"message":"payload: 1 bytes after the last parameter skipped"}])");
    ZQSomeIPPlainOptions strict;
    strict.strict = true;
    EXPECT_EQ(plainDecode(*set, 0x1234, 1, 2, extra, 1, out, strict).code, ZQSomeIPPlainError::TrailingBytes);
}

TEST(PlainCodec, PrettyOutputIndentsOneMemberALine)
{
    FormatDir dir;
    auto set = loadOne(dir, formatFile(convtest::parse(kRoute), bigEndian8()));
    const Bytes payload = convtest::bytes("07 04 0001 fffe 0003 0004 06 efbbbf 4869 00");
    std::string out;
    ZQSomeIPPlainOptions pretty;
    pretty.pretty = true;
    ASSERT_TRUE(plainDecode(*set, 0x1234, 1, 2, payload.data(), payload.size(), out, pretty).ok());
    EXPECT_EQ(out, "{\n  \"id\": 7,\n  \"points\": [\n    {\n      \"x\": 1,\n      \"y\": -2\n    }\n  ],\n"
                   "  \"fixed\": [\n    3,\n    4\n  ],\n  \"name\": \"Hi\"\n}\n");
}

TEST(PlainCodec, LoadingIsStrictAndNamesTheFile)
{
    FormatDir dir;
    struct Case {
        const char* what;
        const char* text;
        ZQSomeIPPlainError code;
        const char* message;  // a part of the message
    };
    const Case cases[] = {
        {"not JSON", "{\n  \"Services\": [\n    {,\n", ZQSomeIPPlainError::BadFormatFile, "line 3, column 6"},
        {"root not an object", "[1, 2]", ZQSomeIPPlainError::BadFormatFile, "cannot serve lookups"},
        {"services an object", R"({"Services": {"a": 1}})", ZQSomeIPPlainError::BadFormatFile, "cannot serve lookups"},
        {"no services at all", R"({"Services": []})", ZQSomeIPPlainError::Ok, ""},
    };
    for (const Case& c : cases) {
        const std::string file = dir.write("case.json", c.text);
        ZQSomeIPPlainStatus status;
        const auto set = ZQSomeIPFormatSet::load(file, status);
        EXPECT_EQ(plainErrorName(status.code), std::string(plainErrorName(c.code))) << c.what;
        EXPECT_EQ(set != nullptr, c.code == ZQSomeIPPlainError::Ok) << c.what;
        if (c.code != ZQSomeIPPlainError::Ok) {
            EXPECT_EQ(status.path, file) << c.what;
            EXPECT_NE(status.message.find(c.message), std::string::npos) << c.what << ": " << status.message;
        }
    }
    ZQSomeIPPlainStatus status;
    EXPECT_EQ(ZQSomeIPFormatSet::load(dir.path + "/absent", status), nullptr);
    EXPECT_EQ(status.code, ZQSomeIPPlainError::FileError);

    // A format the plain codec cannot use loads, and says why when it is used.
    auto set = loadOne(dir, formatFile(convtest::parse(R"([{"ParamName":"a","ParamType":"UNION"}])"), bigEndian8()));
    std::string out;
    status = plainDecode(*set, 0x1234, 1, 2, nullptr, 0, out);
    EXPECT_EQ(status.code, ZQSomeIPPlainError::UnsupportedFormat);
    EXPECT_NE(status.message.find("unknown type \"UNION\""), std::string::npos) << status.message;
}

// A lenient load leaves out each broken file, whatever stage finds it, and the others serve; the listing
// names what the loaded files hold.
TEST(PlainCodec, LenientLoadingLeavesBrokenFilesOut)
{
    FormatDir dir;
    const char* const request = R"([{"MethodType":"request","ParamsDetails":[{"ParamName":"x","ParamType":"uint8_t"}]}])";
    const struct {
        const char* file;
        std::string text;
        bool broken;
        bool json;  // for a broken file: whether it is JSON
    } files[] = {
        {"good.json", std::string(R"({"Services":[{"ServiceID":"4660","ServiceName":"Good","Methods":[{"MethodID":"1","Params":)") +
                          request + "}]}]}", false, false},
        {"cut.json", "{\n  \"Services\": [\n    {,\n", true, false},
        {"shape.json", R"({"Services": {"a": 1}})", true, true},
        // Its types check out (it has none); compiling its method finds the name undefined.
        {"types.json", std::string(R"({"FormatVersion":2,"Services":[{"ServiceID":"4661","Methods":[{"MethodID":"1",)"
                                   R"("Params":[{"MethodType":"request","ParamsDetails":[)"
                                   R"({"ParamName":"x","ParamType":"TYPEREF","TypeRef":"Missing"}]}]}]}]})"),
         true, true},
    };
    for (const auto& f : files) {
        dir.write(f.file, f.text);
    }
    ZQSomeIPFormatLoadReport report;
    report.list = true;
    ZQSomeIPPlainStatus status;
    const auto set = ZQSomeIPFormatSet::loadLenient(dir.path, report, status);
    ASSERT_NE(set, nullptr) << status.toJson();
    EXPECT_NE(set->find(4660, 1, 0), nullptr);
    EXPECT_EQ(set->find(4661, 1, 0), nullptr);
    ASSERT_EQ(report.files.size(), 1u);
    ASSERT_EQ(report.services.size(), 1u);
    EXPECT_EQ(report.services[0].name, "Good");
    ASSERT_EQ(report.services[0].entries.size(), 1u);
    // A method's request serves both request types.
    const auto& lookups = report.services[0].entries[0].lookups;
    ASSERT_EQ(lookups.size(), 2u);
    EXPECT_EQ(lookups[0].messageType, 0x00);
    EXPECT_EQ(lookups[1].messageType, 0x01);
    for (const auto& f : files) {
        const auto it = std::find_if(report.broken.begin(), report.broken.end(),
                                     [&](const ZQSomeIPFormatFileProblem& p) { return p.file == dir.path + "/" + f.file; });
        EXPECT_EQ(it != report.broken.end(), f.broken) << f.file;
        if (it != report.broken.end()) {
            EXPECT_EQ(it->json, f.json) << f.file << ": " << it->message;
        }
    }
    // The strict load of the same tree fails on a broken file; a tree of broken files alone loads nothing.
    EXPECT_EQ(ZQSomeIPFormatSet::load(dir.path, status), nullptr);
    std::filesystem::remove(dir.path + "/good.json");
    EXPECT_EQ(ZQSomeIPFormatSet::loadLenient(dir.path, report, status), nullptr);
    EXPECT_EQ(report.broken.size(), 3u);
    EXPECT_EQ(status.code, ZQSomeIPPlainError::BadFormatFile);
}

TEST(PlainCodec, OneFormatSetServesManyThreads)
{
    std::shared_ptr<const ZQSomeIPFormatSet> set;
    {
        ZQSomeIPPlainStatus status;
        set = ZQSomeIPFormatSet::load(SOMEIP_EXAMPLES_DIR, status);
        ASSERT_TRUE(status.ok()) << status.toJson();
    }
    const Bytes payload = convtest::bytes("07 00 00 00 14 00 08 00 64 00 00 00 CE FF FF FF 08 00 EC FF FF FF 2C 01 00 00 "
                                          "FF FF 00 00 48 41");
    std::string expected;
    ASSERT_TRUE(plainDecode(*set, 0x1234, 2, 0x80, payload.data(), payload.size(), expected).ok());
    std::vector<int> mismatches(8, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 300; ++i) {
                std::string out;
                Bytes back;
                const bool same = plainDecode(*set, 0x1234, 2, 0x80, payload.data(), payload.size(), out).ok() &&
                                  out == expected && plainEncode(*set, 0x1234, 2, 0x80, out, back).ok() && back == payload;
                mismatches[t] += same ? 0 : 1;
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(8, 0));
}

} // namespace
