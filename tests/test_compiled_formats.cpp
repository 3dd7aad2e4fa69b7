// Which method formats the fast paths take on, and that they stay out of the way while logging is on.
// Agreement of the results themselves is proven by the fast-path agreement test.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "ZQSomeIPFormatAnalyzer.h"
#include "ZQSomeIPParser.h"
#include "compiled/ZQSomeIPCompiledFormat.h"
#include "conv_test_support.h"

namespace {

using ZQSomeIP::ZQSomeIPCompiledFormat;

std::string styled(const std::string& details)
{
    return convtest::parse(details).toStyledString();
}

TEST(CompiledFormat, TakesOnWhatItReproducesAndLeavesTheRest)
{
    // `details` is given as the lookup renders it (styled), except where the test is about the text itself.
    struct Case {
        const char* what;
        const char* details;
        bool compiles;
        bool verbatim = false;
    };
    const Case cases[] = {
        {"basic values with extra keys", R"([{"ParamName":"a","ParamType":"uint8_t","Unit":"km","Scale":2},
                                             {"ParamName":"b","ParamType":"STRING","Value":""}])", true},
        {"struct of basics", R"([{"ParamName":"s","ParamType":"STRUCTURE","SubParams":[{"ParamName":"x","ParamType":"int16_t"}]}])", true},
        {"vector of structs", R"([{"ParamName":"v","ParamType":"VECTOR","SubParams":[{"ParamName":"e","ParamType":"STRUCTURE",
                                   "SubParams":[{"ParamName":"x","ParamType":"double"}]}]}])", true},
        {"top-level array, object form", R"([{"ParamName":"a","ParamType":"ARRAY","Value":"3",
                                             "SubParams":{"ParamName":"p","SubParams":[{"ParamName":"e","ParamType":"bool"}]}}])", true},
        {"array in a struct, list form", R"([{"ParamName":"s","ParamType":"STRUCTURE","SubParams":[{"ParamName":"a","ParamType":"ARRAY",
                                             "Value":2,"SubParams":[{"ParamName":"e","ParamType":"uint32_t"}]}]}])", true},
        {"array of arrays", R"([{"ParamName":"s","ParamType":"STRUCTURE","SubParams":[{"ParamName":"a","ParamType":"ARRAY","Value":"2",
                                 "SubParams":[{"ParamName":"b","ParamType":"ARRAY","Value":"2","SubParams":[{"ParamName":"e","ParamType":"bool"}]}]}]}])", false},
        {"vector in a vector element", R"([{"ParamName":"v","ParamType":"VECTOR","SubParams":[{"ParamName":"e","ParamType":"STRUCTURE",
                                           "SubParams":[{"ParamName":"w","ParamType":"VECTOR","SubParams":[{"ParamName":"x","ParamType":"bool"}]}]}]}])", false},
        {"top-level array in list form", R"([{"ParamName":"a","ParamType":"ARRAY","Value":"2","SubParams":[{"ParamName":"e","ParamType":"bool"}]}])", false},
        {"array without a count", R"([{"ParamName":"a","ParamType":"ARRAY","Value":"0",
                                      "SubParams":{"ParamName":"p","SubParams":[{"ParamName":"e","ParamType":"bool"}]}}])", false},
        {"two element descriptions", R"([{"ParamName":"v","ParamType":"VECTOR","SubParams":[{"ParamName":"e","ParamType":"bool"},
                                         {"ParamName":"f","ParamType":"bool"}]}])", false},
        {"unknown type", R"([{"ParamName":"a","ParamType":"UNION"}])", false},
        {"type missing", R"([{"ParamName":"a"}])", false},
        {"extra key holding an object", R"([{"ParamName":"a","ParamType":"bool","Range":{"min":0}}])", false},
        {"comment", "[{\"ParamName\":\"a\", // the flag\n\"ParamType\":\"bool\"}]", false, true},
        {"empty list", "[]", false},
        {"no list", "null", false},
    };
    for (const Case& c : cases) {
        const std::string text = c.verbatim ? std::string(c.details) : styled(c.details);
        EXPECT_EQ(ZQSomeIPCompiledFormat::compile(text) != nullptr, c.compiles) << c.what;
    }
}

TEST(CompiledFormat, EveryExampleMessageIsServedByTheIndexAndCompiles)
{
    struct Message {
        int service, method, type;
    };
    const Message messages[] = {
        {0x1234, 1, 0x00}, {0x1234, 1, 0x80}, {0x1234, 2, 0x80}, {0x1234, 32769, 0x02}, {0x1234, 3, 0x00},
        {0x1235, 1, 0x00}, {0x1235, 2, 0x80}, {0x1235, 32769, 0x02}, {0x1236, 1, 0x00}, {0x1236, 32769, 0x02},
    };
    ZQSomeIP::ZQSomeIPFormatAnalyzer analyzer;
    ASSERT_EQ(analyzer.loadFormatJson(SOMEIP_EXAMPLES_DIR), 0);
    for (const Message& m : messages) {
        std::string format;
        ZQSomeIPExtendAttr attr;
        const ZQSomeIP::ZQSomeIPIndexedMethod* method = nullptr;
        ASSERT_EQ(analyzer.findMethodFormat(m.service, m.method, m.type, format, attr, method), 0) << m.method;
        ASSERT_NE(method, nullptr) << m.method;
        EXPECT_NE(ZQSomeIPCompiledFormat::of(*method), nullptr) << m.method;
    }
}

TEST(CompiledFormat, WithLoggingOnTheReferenceWritesTheLines)
{
    auto run = [](bool fast) {
        ZQSomeIP::ZQSomeIPParser parser;
        parser.setFastPathEnabled(fast);
        parser.loadFormatJson(SOMEIP_EXAMPLES_DIR);
        convtest::LogCapture capture;
        std::vector<unsigned char> payload = convtest::bytes("07 00 00 00 14 00 08 00 64 00 00 00 CE FF FF FF 08 00 EC FF "
                                                             "FF FF 2C 01 00 00 FF FF 00 00 48 41");
        std::string json;
        const int decoded = parser.deserializebyMethodID(0x1234, 2, 0x80, payload, json);
        std::vector<unsigned char> out;
        const int encoded = parser.serializebyMethodID(0x1234, 2, 0x80, json, out);
        std::vector<std::string> lines = convtest::g_lines;
        lines.push_back(std::to_string(decoded) + " " + std::to_string(encoded) + " " + convtest::hex(out));
        // The file and line of each message differ between the two roads only if the roads differ.
        return lines;
    };
    const std::vector<std::string> fast = run(true), reference = run(false);
    EXPECT_GT(fast.size(), 20u);
    EXPECT_EQ(fast, reference);
}

} // namespace
