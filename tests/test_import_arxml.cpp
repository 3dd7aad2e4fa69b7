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
    };
    for (const Case& c : cases) {
        importtest::check(c);
    }
}

}  // namespace
