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
         .reported = {"1 event groups are not written"}},
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
