// The ARXML reader: one sample per group of mapping rules, each beside the format file expected of
// it, with payloads written by hand from the description's wire rules; broken descriptions through
// the report.
#include <gtest/gtest.h>

#include "import_test_support.h"

namespace {

using importtest::Case;

TEST(ImportArxml, Samples)
{
    const Case cases[] = {
        // Interface, types and deployment in three files, joined by paths (relative ones through
        // reference bases); a second interface of the same short names stays apart.
        {.inputs = {"arxml/seat/interface.arxml", "arxml/seat/types.arxml", "arxml/seat/deployment.arxml"},
         .expected = "arxml/seat/expected.json",
         .payloads = {{0x1234, 0x8001, 0x02, "0005 fffffffe 07", R"({"Moved":{"x":-2,"tilt":7}})"},
                      {0x1234, 1, 0x00, "03 03", R"({"level":3,"gear":"DRIVE"})"},
                      {0x1234, 1, 0x80, "00 01", R"({"gear":"PARK","done":true})"},
                      {0x1234, 2, 0x01, "", "{}"},
                      {0x1234, 0x11, 0x00, "0190", R"({"Height":400})"},
                      {0x1234, 0x8010, 0x02, "0190", R"({"Height":400})"},
                      {0x1235, 0x8001, 0x02, "2a", R"({"Moved":42})"}},
         .reported = {}},
        // Arrays, vectors, strings, a variant, a union and a map under compact little-endian properties
        // (1-byte array and string length fields, 2-byte union length, 1-byte selector), an argument's
        // 2-byte string length override, and an event's legacy strings (no BOM, no terminator).
        {.inputs = {"arxml/containers/containers.arxml"},
         .expected = "arxml/containers/expected.json",
         .payloads = {{0x2000, 1, 0x00, "03 010203  08 0600 efbbbf 6869 00  02 0500  0100 01 07  07 01 05 efbbbf 61 00",
                       R"({"codes":[1,2,3],"names":["hi"],"limits":[5],"choice":{"uint8_t":7},"table":[{"key":1,"value":"a"}]})"},
                      {0x2000, 1, 0x80, "0100 01 09", R"({"status":{"code":9}})"},
                      {0x2000, 0x8001, 0x02, "00000002 6869", R"({"Label":"hi"})"}},
         .reported = {}},
        // TLV: a structure's members by data ID (an optional one absent in the second payload; the
        // string's own 1-byte length field makes wire type 5), arguments by data ID with wire type 4.
        {.inputs = {"arxml/tlv/tlv.arxml"},
         .expected = "arxml/tlv/expected.json",
         .payloads = {{0x3000, 0x8001, 0x02, "0010 1001 0015 5002 06 efbbbf 6162 00 0003 02",
                       R"({"Changed":{"temp":21,"label":"ab","fan":2}})"},
                      {0x3000, 0x8001, 0x02, "0007 1001 0015 0003 02", R"({"Changed":{"temp":21,"fan":2}})"},
                      {0x3000, 1, 0x00, "000a 05 400b 00000005 efbbbf 78 00", R"({"mode":5,"note":"x"})"}},
         .reported = {}},
        // 32-bit alignment (0xFF pads the vector's end to offset 8) and UTF-16 strings, a named value
        // beside a scaling, a structure whose members describe their own structure and fixed array.
        {.inputs = {"arxml/values/values.arxml"},
         .expected = "arxml/values/expected.json",
         .payloads = {{0x5000, 1, 0x01, "00000001 07 ffffff  ff  01 02 0000  00000006 feff 0041 0000",
                       R"({"pattern":[7],"level":"UNKNOWN","layout":{"origin":{"x":1,"y":2},"pad":[0,0]},"name":"A"})"}},
         .reported = {"/Lamp/LevelValues: the scaling's quotient is not exact in binary"}},
        // Each broken element is left out with its reason; what stands is imported.
        {.inputs = {"arxml/broken/broken.arxml"},
         .expected = "arxml/broken/expected.json",
         .payloads = {{0x4000, 1, 0x00, "07", R"({"x":7})"},
                      {0x4000, 3, 0x80, "07", R"({"Half":7})"},
                      {0x4000, 0x8008, 0x02, "07", R"({"Raw":7})"}},
         .reported = {"SERVICE-INTERFACE-ID 70000 is out of range", "METHOD-ID 40000 is out of range",
                      "TYPE-TREF \"/Nowhere/Type\" names no element", "/Bad/LoopA: the type contains itself",
                      "/Bad/Node: the type contains itself", "a fixed array of 1000000000000 elements",
                      "encoded \"BCD-P\" is not one the format has", "not the SW-BASE-TYPE its DEST says",
                      "reference base \"missing\", which no package", "Undeployed: the event has no SOME/IP event deployment",
                      "SIZE-OF-STRING-LENGTH-FIELD 3 is not a size", "OddProps: its serialization properties",
                      "no ID for HAS-SETTER", "/Bad/Orphan: the service interface has no SOME/IP deployment",
                      "/Bad/Orphan is not an element of the deployed interface", "\"RAT_FUNC\" is not one the format",
                      "/Bad/uint8_t: the path is defined again", "Twin: ID 1 is already used by /Bad/Broken/Fine",
                      "/Bad/AppRecord: an application data type"}},
    };
    for (const Case& c : cases) {
        importtest::check(c);
    }
}

TEST(ImportArxml, DeepDescriptionsAreCutOffAndReported)
{
    // A chain of structures each holding the next, deeper than any format may nest.
    std::string types;
    for (int i = 0; i < 60; ++i) {
        types += "<STD-CPP-IMPLEMENTATION-DATA-TYPE><SHORT-NAME>S" + std::to_string(i) +
                 "</SHORT-NAME><CATEGORY>STRUCTURE</CATEGORY><SUB-ELEMENTS><CPP-IMPLEMENTATION-DATA-TYPE-ELEMENT>"
                 "<SHORT-NAME>m</SHORT-NAME><TYPE-REFERENCE><TYPE-REFERENCE-REF>/P/" +
                 (i == 59 ? std::string("u") : "S" + std::to_string(i + 1)) +
                 "</TYPE-REFERENCE-REF></TYPE-REFERENCE></CPP-IMPLEMENTATION-DATA-TYPE-ELEMENT></SUB-ELEMENTS>"
                 "</STD-CPP-IMPLEMENTATION-DATA-TYPE>\n";
    }
    const std::string text =
        "<AUTOSAR><AR-PACKAGES><AR-PACKAGE><SHORT-NAME>P</SHORT-NAME><ELEMENTS>\n" + types +
        "<STD-CPP-IMPLEMENTATION-DATA-TYPE><SHORT-NAME>u</SHORT-NAME><CATEGORY>VALUE</CATEGORY></STD-CPP-IMPLEMENTATION-DATA-TYPE>"
        "<SERVICE-INTERFACE><SHORT-NAME>I</SHORT-NAME><EVENTS><VARIABLE-DATA-PROTOTYPE><SHORT-NAME>E</SHORT-NAME>"
        "<TYPE-TREF>/P/S0</TYPE-TREF></VARIABLE-DATA-PROTOTYPE></EVENTS></SERVICE-INTERFACE>"
        "<SOMEIP-SERVICE-INTERFACE-DEPLOYMENT><SHORT-NAME>D</SHORT-NAME><EVENT-DEPLOYMENTS><SOMEIP-EVENT-DEPLOYMENT>"
        "<SHORT-NAME>E</SHORT-NAME><EVENT-REF>/P/I/E</EVENT-REF><EVENT-ID>1</EVENT-ID></SOMEIP-EVENT-DEPLOYMENT>"
        "</EVENT-DEPLOYMENTS><SERVICE-INTERFACE-REF>/P/I</SERVICE-INTERFACE-REF><SERVICE-INTERFACE-ID>1</SERVICE-INTERFACE-ID>"
        "</SOMEIP-SERVICE-INTERFACE-DEPLOYMENT></ELEMENTS></AR-PACKAGE></AR-PACKAGES></AUTOSAR>";
    const auto r = ZQSomeIP::importDescriptions(std::vector<ZQSomeIP::ZQSomeIPImportSource>{{"deep.arxml", text}});
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.report.events, 0u);
    EXPECT_NE(importtest::reasons(r.report).find("types nest deeper than 48 levels"), std::string::npos)
        << importtest::reasons(r.report);

    // Packages nested past any real path, and a name past any identifier, are not indexed.
    std::string nested = "<AUTOSAR>";
    for (int i = 0; i < 100; ++i) {
        nested += "<AR-PACKAGE><SHORT-NAME>p</SHORT-NAME><AR-PACKAGES>";
    }
    nested += "<AR-PACKAGE><SHORT-NAME>" + std::string(200, 'n') + "</SHORT-NAME></AR-PACKAGE>";
    for (int i = 0; i < 100; ++i) {
        nested += "</AR-PACKAGES></AR-PACKAGE>";
    }
    const auto deep = ZQSomeIP::importDescriptions(std::vector<ZQSomeIP::ZQSomeIPImportSource>{{"nested.arxml", nested + "</AUTOSAR>"}});
    ASSERT_TRUE(deep.ok) << deep.error;
    ASSERT_EQ(deep.report.skipped.size(), 1u) << importtest::reasons(deep.report);
    EXPECT_EQ(deep.report.skipped[0].reason, "short names nest deeper than 64 levels; neither this element nor what it holds is indexed");

    // Long names nested under long names, many times over: their paths would outgrow the description
    // many times, so indexing stops at a bound proportional to it.
    std::string chain;
    for (int level = 0; level < 60; ++level) {
        chain += "<AR-PACKAGE><SHORT-NAME>" + std::string(120, 'n') + std::to_string(level) + "</SHORT-NAME><AR-PACKAGES>";
    }
    for (int level = 0; level < 60; ++level) {
        chain += "</AR-PACKAGES></AR-PACKAGE>";
    }
    std::string wide = "<AUTOSAR><AR-PACKAGES>";
    for (int i = 0; i < 200; ++i) {
        wide += "<AR-PACKAGE><SHORT-NAME>p" + std::to_string(i) + "</SHORT-NAME><AR-PACKAGES>" + chain + "</AR-PACKAGES></AR-PACKAGE>";
    }
    const auto paths = ZQSomeIP::importDescriptions(std::vector<ZQSomeIP::ZQSomeIPImportSource>{{"wide.arxml", wide + "</AR-PACKAGES></AUTOSAR>"}});
    ASSERT_TRUE(paths.ok) << paths.error;
    ASSERT_EQ(paths.report.skipped.size(), 1u) << importtest::reasons(paths.report);
    EXPECT_EQ(paths.report.skipped[0].reason.rfind("the element paths grow past twice the size of the description", 0), 0u);
}

}  // namespace
