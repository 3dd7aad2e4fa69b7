// The FIBEX reader: each sample in import/fibex/ against the format file expected of it, with payloads
// written by hand from the sample's wire rules; broken descriptions through the report.
#include "import_test_support.h"

namespace {

using importtest::Case;

TEST(ImportFibex, Samples)
{
    const Case cases[] = {
        {.inputs = {"fibex/basics.xml"},
         .expected = "fibex/basics.json",
         .payloads =
             {
                 // pos 0x0102, speed 5, offset -2 little endian (its utilization), request
                 {.service = 0x1234, .method = 1, .type = 0x00, .hex = "0102 05 feffffff",
                  .json = R"({"pos":258,"speed":5,"offset":-2})"},
                 {.service = 0x1234, .method = 1, .type = 0x80, .hex = "01 3fc00000", .json = R"({"ok":true,"angle":1.5})"},
                 // fire-and-forget through a typedef chain to uint32
                 {.service = 0x1234, .method = 2, .type = 0x01, .hex = "0000002a", .json = R"({"handle":42})"},
                 // temp raw 65 (scaled 25 degC), mode 1 named AUTO
                 {.service = 0x1234, .method = 0x8001, .type = 0x02, .hex = "41 01", .json = R"({"temp":65,"mode":"AUTO"})"},
                 {.service = 0x1234, .method = 3, .type = 0x80, .hex = "0007", .json = R"({"Height":7})"},
                 {.service = 0x1234, .method = 4, .type = 0x00, .hex = "0007", .json = R"({"Height":7})"},
                 {.service = 0x1234, .method = 0x8002, .type = 0x02, .hex = "0007", .json = R"({"Height":7})"},
             },
         .reported = {}},
        {.inputs = {"fibex/types.xml"},
         .expected = "fibex/types.json",
         .payloads =
             {
                 // profile {id 1, name "hi"} behind its 16-bit length; gear 3; choice: 8-bit length, 8-bit
                 // selector 1, 42; matrix 2x3; samples: 8-bit length, [1, 2]; code "AB" in 8 bytes;
                 // title "A" in UTF-16 big endian after an 8-bit length, without BOM or terminator
                 {.service = 0x4242, .method = 1, .type = 0x00,
                  .hex = "0009 01 0006 efbbbf 6869 00 03 01 01 2a 010203 040506 04 0001 0002 efbbbf 4142 00 0000 02 0041",
                  .json = R"({"profile":{"id":1,"name":"hi"},"gear":"DRIVE","choice":{"small":42},"matrix":[[1,2,3],[4,5,6]],)"
                          R"("samples":[1,2],"code":"AB","title":"A"})"},
                 // lamps left and fog; extras: a TLV structure (32-bit length) with speed (ID 1) alone
                 {.service = 0x4242, .method = 1, .type = 0x80, .hex = "09 00000004 1001 1234",
                  .json = R"({"lamps":{"left":true,"right":false,"fog":true,"$raw":9},"extras":{"speed":4660}})"},
             },
         .reported = {}},
    };
    for (const Case& c : cases) {
        importtest::check(c);
    }
}

}  // namespace

namespace {

// One service "S" (ID `serviceId`) whose method "M" takes one parameter "p" of data type `type`, with
// `use` inside the parameter, the data types `types` beside the basic ones, and codings of 8 and 12
// bits and a non-linear conversion.
std::string fibex(const std::string& type, const std::string& use = "", const std::string& types = "",
                  const std::string& serviceId = "256")
{
    return R"(<fx:FIBEX xmlns:fx="f" xmlns:ho="h" xmlns:s="s" xmlns:xsi="x"><fx:ELEMENTS>
<fx:SERVICE-INTERFACES><fx:SERVICE-INTERFACE><ho:SHORT-NAME>S</ho:SHORT-NAME>
<fx:SERVICE-IDENTIFIER>)" + serviceId + R"(</fx:SERVICE-IDENTIFIER><s:METHODS><s:METHOD><ho:SHORT-NAME>M</ho:SHORT-NAME>
<s:METHOD-IDENTIFIER>1</s:METHOD-IDENTIFIER><s:INPUT-PARAMETERS><s:INPUT-PARAMETER><ho:SHORT-NAME>p</ho:SHORT-NAME>
<fx:DATATYPE-REF ID-REF=")" + type + R"("/>)" + use + R"(</s:INPUT-PARAMETER></s:INPUT-PARAMETERS></s:METHOD></s:METHODS>
</fx:SERVICE-INTERFACE></fx:SERVICE-INTERFACES><fx:DATATYPES>
<fx:DATATYPE ID="u8" xsi:type="fx:COMMON-DATATYPE-TYPE"><ho:SHORT-NAME>U8</ho:SHORT-NAME><fx:CODING-REF ID-REF="c8"/></fx:DATATYPE>
<fx:DATATYPE ID="u12" xsi:type="fx:COMMON-DATATYPE-TYPE"><ho:SHORT-NAME>U12</ho:SHORT-NAME><fx:CODING-REF ID-REF="c12"/></fx:DATATYPE>
<fx:DATATYPE ID="curve" xsi:type="fx:COMMON-DATATYPE-TYPE"><ho:SHORT-NAME>Curve</ho:SHORT-NAME><fx:CODING-REF ID-REF="cc"/></fx:DATATYPE>
)" + types + R"(</fx:DATATYPES></fx:ELEMENTS><fx:PROCESSING-INFORMATION><fx:CODINGS>
<fx:CODING ID="c8"><ho:CODED-TYPE ho:BASE-DATA-TYPE="A_UINT8"/></fx:CODING>
<fx:CODING ID="c12"><ho:CODED-TYPE ho:BASE-DATA-TYPE="A_UINT16"><ho:BIT-LENGTH>12</ho:BIT-LENGTH></ho:CODED-TYPE></fx:CODING>
<fx:CODING ID="cc"><ho:SHORT-NAME>CurveCoding</ho:SHORT-NAME><ho:CODED-TYPE ho:BASE-DATA-TYPE="A_UINT8"/><ho:COMPU-METHODS><ho:COMPU-METHOD>
<ho:CATEGORY>RAT-FUNC</ho:CATEGORY></ho:COMPU-METHOD></ho:COMPU-METHODS></fx:CODING>
</fx:CODINGS></fx:PROCESSING-INFORMATION></fx:FIBEX>)";
}

std::string structure(const std::string& id, const std::string& members, const char* cls = "STRUCTURE")
{
    return R"(<fx:DATATYPE ID=")" + id + R"(" xsi:type="fx:COMPLEX-DATATYPE-TYPE"><ho:SHORT-NAME>)" + id +
           "</ho:SHORT-NAME><fx:COMPLEX-DATATYPE-CLASS>" + cls + "</fx:COMPLEX-DATATYPE-CLASS><fx:MEMBERS>" + members +
           "</fx:MEMBERS></fx:DATATYPE>";
}

std::string member(const std::string& name, const std::string& type, const std::string& more = "")
{
    return "<fx:MEMBER><ho:SHORT-NAME>" + name + R"(</ho:SHORT-NAME><fx:DATATYPE-REF ID-REF=")" + type + R"("/>)" + more +
           "</fx:MEMBER>";
}

std::string sizes(const std::string& inner) { return "<fx:UTILIZATION><fx:SERIALIZATION-ATTRIBUTES>" + inner + "</fx:SERIALIZATION-ATTRIBUTES></fx:UTILIZATION>"; }

std::string dimension(const std::string& min, const std::string& max)
{
    return "<fx:ARRAY-DECLARATION><fx:ARRAY-DIMENSION><fx:DIMENSION>1</fx:DIMENSION><fx:MINIMUM-SIZE>" + min +
           "</fx:MINIMUM-SIZE><fx:MAXIMUM-SIZE>" + max + "</fx:MAXIMUM-SIZE></fx:ARRAY-DIMENSION></fx:ARRAY-DECLARATION>";
}

// 60 typedefs, each of the next: deeper than any format may nest.
std::string typedefChain()
{
    std::string types;
    for (int i = 0; i < 60; ++i) {
        types += structure("t" + std::to_string(i), member("v", i == 59 ? "u8" : "t" + std::to_string(i + 1)), "TYPEDEF");
    }
    return types;
}

// Units are found in their list directly under the processing information or inside whatever group an
// exporter wraps around it.
TEST(ImportFibex, UnitsInAGroupOfTheirOwn)
{
    std::string text = importtest::readText(importtest::sample("fibex/basics.xml"));
    const size_t begin = text.find("<ho:UNITS>"), end = text.find("</ho:UNITS>");
    ASSERT_NE(end, std::string::npos);
    const auto flat = ZQSomeIP::importDescriptions(std::vector<ZQSomeIP::ZQSomeIPImportSource>{{"in.xml", text}});
    text.insert(end + 11, "</ho:UNIT-GROUP>");
    text.insert(begin, "<ho:UNIT-GROUP>");
    const auto grouped = ZQSomeIP::importDescriptions(std::vector<ZQSomeIP::ZQSomeIPImportSource>{{"in.xml", text}});
    ASSERT_TRUE(flat.ok && grouped.ok);
    EXPECT_NE(flat.formatText.find(R"("Unit": "degC")"), std::string::npos);
    EXPECT_EQ(grouped.formatText, flat.formatText);
}

TEST(ImportFibex, BrokenDescriptionsAreReportedAndTheirElementsSkipped)
{
    const struct {
        const char* what;
        std::string document;
        const char* list;    // the report list expected to hold the entry
        const char* reason;  // part of its reason
        const char* path;    // its short-name path
        bool methodWritten;  // whether method M still is
    } cases[] = {
        {"dangling reference", fibex("nowhere"), "unresolved", "data type \"nowhere\" is not described", "/S/M/p", false},
        {"cycle", fibex("A", "", structure("A", member("self", "A"))), "skipped", "contains itself", "/A", false},
        {"service ID out of range", fibex("u8", "", "", "70000"), "skipped", "service ID \"70000\" is not a number", "/S", false},
        {"absurd array", fibex("u8", dimension("1000000000000", "1000000000000")), "skipped", "not a count up to", "/S/M/p", false},
        {"huge fixed array", fibex("u8", dimension("2000000", "2000000")), "skipped", "an array of 2000000 elements", "/S/M/p", false},
        {"deep nesting", fibex("t0", "", typedefChain()), "skipped", "nested deeper than 48 levels", "/t48", false},
        {"12-bit integer", fibex("u12"), "skipped", "a 12-bit integer", "/S/M/p", false},
        {"union member without index", fibex("U", sizes(""), structure("U", member("a", "u8"), "UNION")), "skipped",
         "without an INDEX", "/U/a", false},
        {"a size that would reach a nested structure", fibex("Outer", sizes("<fx:LENGTH-FIELD-SIZE>32</fx:LENGTH-FIELD-SIZE>"),
                                                             structure("Inner", member("x", "u8")) +
                                                                 structure("Outer", member("inner", "Inner"))),
         "skipped", "would also reach elements inside it", "/S/M/p", false},
        {"non-linear conversion", fibex("curve"), "approximated", "the RAT-FUNC conversion is left out", "/CurveCoding", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const auto r = ZQSomeIP::importDescriptions(std::vector<ZQSomeIP::ZQSomeIPImportSource>{{"in.xml", c.document}});
        ASSERT_TRUE(r.ok) << r.error;
        const auto& list = std::string(c.list) == "unresolved" ? r.report.unresolved
                           : std::string(c.list) == "approximated" ? r.report.approximated
                                                                   : r.report.skipped;
        const auto found = std::find_if(list.begin(), list.end(), [&](const auto& i) { return i.reason.find(c.reason) != std::string::npos; });
        ASSERT_NE(found, list.end()) << importtest::reasons(r.report);
        EXPECT_EQ(found->path, c.path);
        EXPECT_EQ(found->file, "in.xml");
        EXPECT_GT(found->line, 0u);
        EXPECT_EQ(r.report.methods, c.methodWritten ? 1u : 0u) << importtest::reasons(r.report);
    }
    // The same service, data types and codings described again in another file: the later wins, reported.
    const auto twice = ZQSomeIP::importDescriptions(
        std::vector<ZQSomeIP::ZQSomeIPImportSource>{{"a.xml", fibex("u8")}, {"b.xml", fibex("u8")}});
    EXPECT_EQ(twice.report.services, 1u);
    ASSERT_EQ(twice.report.duplicates.size(), 7u);  // the service, three data types, three codings
    const auto& service = twice.report.duplicates.back();
    EXPECT_EQ(service.file + ":" + std::to_string(service.line) + " " + service.path, "b.xml:2 /S");
}

}  // namespace
