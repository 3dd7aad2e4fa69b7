// Reading back our own compact JSON (json_scan) and flattening decoded payloads (payload_leaves): what
// the Python objects, the frames and the report are built from.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "capture_lines.h"
#include "json_scan.h"
#include "payload_leaves.h"

using namespace capture_lines;

namespace {

// Every event as a short word, so that a whole walk compares as one string.
struct Trace : JsonVisitor {
    std::string out;
    void beginObject() override { out += "{ "; }
    void key(std::string_view k) override { out += "k:" + std::string(k) + " "; }
    void endObject() override { out += "} "; }
    void beginArray() override { out += "[ "; }
    void endArray() override { out += "] "; }
    void number(const JsonNumber& n) override
    {
        out += n.kind == JsonNumber::Int ? "i:" + std::to_string(n.i)
             : n.kind == JsonNumber::UInt ? "u:" + std::to_string(n.u) : "d:" + std::to_string(n.d);
        out += ' ';
    }
    void string(std::string_view s) override { out += "s:" + std::string(s) + " "; }
    void boolean(bool b) override { out += b ? "true " : "false "; }
    void null() override { out += "null "; }
};

TEST(LinesJson, WalksWhatTheWritersWrite)
{
    struct Case {
        const char* text;
        std::string events;
    };
    const Case cases[] = {
        {R"({"a":1,"b":[true,false,null],"c":{}})", "{ k:a i:1 k:b [ true false null ] k:c { } } "},
        // 64-bit integers keep every digit; above INT64_MAX they are unsigned.
        {"[-9223372036854775808,18446744073709551615,9223372036854775807]",
         "[ i:-9223372036854775808 u:18446744073709551615 i:9223372036854775807 ] "},
        {"[1.5,-0.0,1e300,2E-3]", "[ d:1.500000 d:-0.000000 d:" + std::to_string(1e300) + " d:0.002000 ] "},
        // Escapes as the writers escape; a surrogate pair is one code point, a lone one U+FFFD.
        {R"(["a\"b\\c\nd\u0001","\ud83d\ude00","\ud800x"])",
         "[ s:a\"b\\c\nd\x01 s:\xF0\x9F\x98\x80 s:\xEF\xBF\xBDx ] "},
        {" { \"k\" : [ ] } ", "{ k:k [ ] } "},
    };
    for (const Case& c : cases) {
        Trace t;
        EXPECT_TRUE(walkJson(c.text, t)) << c.text;
        EXPECT_EQ(t.out, c.events) << c.text;
    }
}

TEST(LinesJson, RefusesWhatIsNotOneValue)
{
    const std::string deep(JsonScanner::kMaxDepth + 1, '[');
    for (const std::string text : {"", "{", "[1,]", "{\"a\"1}", "\"open", "\"\\u12\"", "\"\\q\"", "tru", "-",
                                   "1 2", "[1]x", "{\"a\":}", "nul"}) {
        Trace t;
        EXPECT_FALSE(walkJson(text, t)) << text;
    }
    Trace t;
    EXPECT_FALSE(walkJson(deep + std::string(deep.size(), ']'), t));
}

struct Leaves : LeafVisitor {
    std::vector<std::string> out;
    void leaf(const Leaf& l) override
    {
        std::string v = l.kind == Leaf::Number ? std::to_string(l.number.i)
                       : l.kind == Leaf::String ? "'" + std::string(l.text) + "'"
                       : l.kind == Leaf::Bool ? (l.boolean ? "true" : "false")
                       : l.kind == Leaf::List ? "list " + std::string(l.text) : "null";
        out.push_back(std::string(l.path) + "=" + v + (l.param != nullptr ? " <" + l.param->name + ">" : ""));
    }
};

TEST(LinesJson, FlattensAPayloadByItsFormat)
{
    using P = ZQSomeIP::ZQSomeIPPlainParam;
    P u8;
    u8.kind = P::UInt8;
    P x = u8, y = u8, fixed, vec, pos, mode;
    x.name = "x";
    y.name = "y";
    pos.kind = P::Structure;
    pos.name = "pos";
    pos.members = {x, y};
    fixed.kind = P::Array;
    fixed.name = "wheels";
    fixed.count = 2;
    fixed.members = {pos};
    vec.kind = P::Vector;
    vec.name = "path";
    vec.members = {pos};
    mode = u8;
    mode.name = "mode";
    ZQSomeIP::ZQSomeIPPlainMethod method;
    method.params = {fixed, vec, mode};

    Leaves l;
    ASSERT_TRUE(flattenPayload(method,
                               R"({"wheels":[{"x":1,"y":2},{"x":3,"y":4}],"path":[{"x":5,"y":6}],)"
                               R"("mode":{"name":"DRIVE","value":3}})", l));
    const std::vector<std::string> expected = {
        "wheels.0.x=1 <x>", "wheels.0.y=2 <y>", "wheels.1.x=3 <x>", "wheels.1.y=4 <y>",
        // A vector's length varies: one leaf, the whole list.
        R"(path=list [{"x":5,"y":6}] <path>)",
        // An object the decode style adds names the parameter it describes.
        "mode.name='DRIVE' <mode>", "mode.value=3 <mode>"};
    EXPECT_EQ(l.out, expected);
    Leaves broken;
    EXPECT_FALSE(flattenPayload(method, R"({"wheels":[{"x":1)", broken));
}

TEST(CaptureLines, AnEmptyErrorReplyIsNotAFailure)
{
    struct Case {
        const char* name;
        const char* errorParams;  // the "error" entry's parameters; null: the service has none
        uint8_t type;
        size_t payloadSize;
        bool decoded;
        const char* tail;  // how the line ends
    };
    const Case cases[] = {
        {"no error format: no payload member", nullptr, 0x81, 0, true, R"("return_code":1})"},
        {"an error format that takes nothing", "[]", 0x81, 0, true, R"("return_code":1,"payload":{}})"},
        {"an error format that wants bytes: no payload member", R"([{"ParamName":"e","ParamType":"uint8_t"}])", 0x81,
         0, true, R"("return_code":1})"},
        {"an empty response still fails", nullptr, 0x80, 0, false, R"(,"raw":""})"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string entries = R"({"MethodType":"response","ParamsDetails":[{"ParamName":"x","ParamType":"uint8_t"}]})";
        if (c.errorParams != nullptr) {
            entries += std::string(R"(,{"MethodType":"error","ParamsDetails":)") + c.errorParams + "}";
        }
        ZQSomeIP::ZQSomeIPPlainStatus status;
        const auto set = ZQSomeIP::ZQSomeIPFormatSet::loadText(
            R"({"FormatVersion":2,"Services":[{"ServiceID":"4660","Methods":[{"MethodID":"1","Params":[)" + entries + "]}]}]}", "f.json",
            status);
        ASSERT_TRUE(set) << status.message;
        PlainPayloadDecoder decoder(*set);
        CaptureLineWriter writer(decoder);
        ZQSomeIP::capture::Message m;
        m.has_header = true;
        m.header.service = 4660;
        m.header.method = 1;
        m.header.message_type = c.type;
        m.header.return_code = 1;
        const uint8_t none = 0;
        m.payload = &none;
        m.payload_size = c.payloadSize;
        std::string line;
        EXPECT_EQ(writer.append(m, line).decoded, c.decoded);
        EXPECT_EQ(line.substr(line.size() - std::string(c.tail).size()), c.tail) << line;
    }
}

} // namespace
