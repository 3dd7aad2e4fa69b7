// Unit tests of the payload reader engine (ZQSomeIPPayloadDeserializerGeneral) on hand-made bytes.
#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "engine_test_support.h"
#include "someip/ZQSomeIPPayloadDeserializerGeneral.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <codecvt>
#include <locale>

namespace {

using namespace enginetest;
using Reader = ZQSomeIPPayloadDeserializerGeneral;

// What a failing read must leave in its output: every number byte 0x5A, strings "keep", blocks {0x99}.
constexpr uint64_t kKeep = 0x5A5A5A5A5A5A5A5AULL;
const char* const kSource = "ZQSomeIPPayloadDeserializerGeneral.cpp";

// The calls up to Raw store a failure in the last error; Count, Check and At are probes that do not.
enum Op { U8, Bool, U16, U32, F32, F64, Str, DynStr, Struct, Array, Vector, Union, End, Block, Raw, Count, Check, At };

// One call and its outcome. `value`: a number's bit image, a union's type, or what a probe returns;
// `text`: a string's value, or a block's bytes in hex; `len`: the length or size argument (Count:
// the byte count); `log`: an error text the call logs, "" when it logs nothing.
struct Step {
    Op op;
    uint32_t code = 0;
    uint64_t value = 0;
    std::string text = {};
    uint32_t len = 0;
    const char* log = nullptr;
    const ZQSomeIPExtendAttr* attr = nullptr;
};

struct Case {
    const char* name;
    const ZQSomeIPExtendAttr* ctor;
    const char* bytes;
    std::vector<Step> steps;
};

// Reads a number into storage holding kKeep and checks what it holds afterwards.
template <typename T>
uint32_t number(Reader& r, const Step& s)
{
    T v;
    std::memcpy(&v, &kKeep, sizeof v);
    const uint32_t code = r.read(v, s.attr);
    uint64_t got = 0;
    std::memcpy(&got, &v, sizeof v);
    EXPECT_EQ(got, s.code ? kKeep >> (64 - 8 * sizeof v) : s.value);
    return code;
}

uint32_t (*const kNumbers[])(Reader&, const Step&) = {number<uint8_t>, number<bool>, number<uint16_t>,
                                                     number<uint32_t>, number<float>, number<double>};

class ReaderTest : public EngineTest {
protected:
    void run(const std::vector<Case>& cases)
    {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.name);
            Reader r(c.ctor);
            if (*c.bytes) { ASSERT_EQ(r.from_buffer(hex(c.bytes)), 0u); }
            for (const Step& s : c.steps) {
                SCOPED_TRACE("step " + std::to_string(&s - c.steps.data()));
                errors.clear();
                uint32_t code = 0, out = static_cast<uint32_t>(kKeep);
                std::string str = "keep";
                Bytes block(s.op == Raw ? std::min(s.len, 64u) : 1, 0x99);
                switch (s.op) {
                case U8: case Bool: case U16: case U32: case F32: case F64: code = kNumbers[s.op](r, s); break;
                case Union: code = r.union_data_begin(s.attr, out); break;
                case Str: case DynStr: code = r.read(str, s.len, s.attr, s.op == DynStr); break;
                case Struct: code = r.struct_data_begin(s.attr); break;
                case Array: code = r.array_data_begin(s.attr); break;
                case Vector: code = r.vector_data_begin(s.attr); break;
                case End: code = r.data_end(); break;
                case Block: code = r.read(block, s.len, s.attr); break;
                case Raw: code = r.read(block.data(), s.len, s.attr); break;
                case Count: code = r.modify_length_field_read(s.len); break;
                case Check: code = r.check_length_field(); break;
                case At: code = r.get_index(); break;
                }
                EXPECT_EQ(code, s.op < At ? s.code : s.value);
                if (code != 0 && s.op < Count) { EXPECT_EQ(r.get_last_error(), code); }
                if (s.op == Union) { EXPECT_EQ(out, static_cast<uint32_t>(s.code ? kKeep : s.value)); }
                if (s.op == Str || s.op == DynStr) { EXPECT_EQ(str, s.code ? "keep" : s.text); }
                if (s.op == Block || (s.op == Raw && code == 0)) { EXPECT_EQ(block, code ? Bytes{0x99} : hex(s.text)); }
                EXPECT_TRUE(!s.log || (*s.log ? logged(kSource, s.log) : errors.empty())) << s.log;
            }
        }
    }
};
using ReaderCore = ReaderTest;
using ReaderContainers = ReaderTest;

const ZQSomeIPExtendAttr le = Attr().little(), nolen = Attr().lengths(0), a4 = Attr().align(4), a8 = Attr().align(8);
const ZQSomeIPExtendAttr a4len1 = Attr().align(4).lengths(1), le2 = Attr().little().lengths(2);
const ZQSomeIPExtendAttr u16be = Attr().utf16(), u16le = Attr().little().utf16();
const char *const kNoMark = "string bom is not utf8", *const kNotBE = "string bom is not UTF16BE";

TEST_F(ReaderCore, ValuesAndStrings)
{
    run({
        {"byte order: explicit record, then sticky at top level", nullptr, "34 12 | 00 00 C0 3F | 78 56",
         {{U16, 0, 0x1234, "", 0, nullptr, &le}, {F32, 0, 0x3FC00000, "", 0, nullptr, &le}, {U16, 0, 0x5678}}},
        {"float images bit for bit", nullptr, "7F 80 00 01 | 7F F0 00 00 00 00 00 01 | 01 00 80 7F",
         {{F32, 0, 0x7F800001}, {F64, 0, 0x7FF0000000000001}, {F32, 0, 0x7F800001, "", 0, nullptr, &le}}},
        {"bool is the lowest bit", nullptr, "01 03 02 FE FF 00",
         {{Bool, 0, 1}, {Bool, 0, 1}, {Bool, 0, 0}, {Bool, 0, 0}, {Bool, 0, 1}, {Bool, 0, 0}}},
        {"truncated reads fail without moving", nullptr, "AA BB CC",
         {{U16, 0, 0xAABB}, {U16, 1, 0, "", 0, "parameters error or out of memory, m_index:[2], size:[2], m_size:[3]"},
          {At, 0, 2}, {F64, 1}, {U8, 0, 0xCC}, {U8, 1}}},
        {"null record: arrays without length field, the rest 4 bytes, big endian", nullptr,
         "00 00 00 01 | AA | 00 00 00 02 | 00 00 00 09 | 12 34",
         {{Array}, {Vector}, {Block, 0, 0, "AA"}, {End}, {End}, {Union, 0, 9}, {U16, 0, 0x1234}, {End}}},
        // Strings.
        {"UTF-8; no terminator", nullptr, "00 00 00 08 EF BB BF 41 42 43 44 00 | 00 00 00 07 EF BB BF 41 42 43 44",
         {{Str, 0, 0, "ABCD"}, {At, 0, 12}, {Str, 1, 0, "", 0, "string does not end with '\\0'"}, {At, 0, 16}}},
        {"an embedded zero ends the value", &nolen, "EF BB BF 41 00 42 00 99", {{Str, 0, 0, "A", 7}, {At, 0, 7}}},
        {"bad mark", nullptr, "00 00 00 05 EF BB BE 78 00", {{Str, 1, 0, "", 0, kNoMark}, {At, 0, 4}}},
        {"lengths 0 and 3", nullptr, "00 00 00 00 | 00 00 00 03 | EF BB BF 00",
         {{Str, 1, 0, "", 0, kNoMark}, {Str, 1, 0, "", 0, kNoMark}}},
        {"length 2 at the end of the buffer", &nolen, "EF BB", {{Str, 1, 0, "", 2, kNoMark}}},
        {"length beyond the buffer, wrapping around", nullptr, "FF FF FF FF | EF BB BF 61 00",
         {{Str, 1, 0, "", 0, "Out of memory, m_index:[4], read_size:[-1], m_size:[9]"}, {At, 0, 4}}},
        {"dynamic without length field, silently", &nolen, "EF BB BF 00",
         {{DynStr, 1, 0, "", 4, ""}, {Str, 0, 0, "", 4}}},
        {"UTF-16 odd length: the last byte is left", &u16be, "00 00 00 09 | FE FF 00 4F 00 4B 00 00 | 5C",
         {{Str, 0, 0, "OK"}, {At, 0, 12}, {U8, 0, 0x5C}}},
        {"UTF-16 BE meets FF FE", &u16be, "00 00 00 06 | FF FE 61 00 00 00", {{Str, 1, 0, "", 0, kNotBE}}},
        {"UTF-16 LE meets FE FF", &u16le, "06 00 00 00 | FE FF 00 61 00 00",
         {{Str, 1, 0, "", 0, "string bom is not UTF16LE"}}},
        {"UTF-16 terminator checked before the mark", &u16be, "00 00 00 06 | FF FE 00 61 00 01",
         {{Str, 1, 0, "", 0, "string does not end with '\\0\\0'"}, {At, 0, 4}}},
        {"UTF-16 surrogate pair, both orders", &u16be, "00 00 00 08 | FE FF D8 3D DE 00 00 00 | 08 00 00 00 | FF FE 3D D8 00 DE 00 00",
         {{Str, 0, 0, "\xF0\x9F\x98\x80"}, {Str, 0, 0, "\xF0\x9F\x98\x80", 0, nullptr, &u16le}}},
        {"UTF-16 lengths 0 and 3", &u16be, "00 00 00 00 | 00 00 00 03 | FE FF 00 00",
         {{Str, 1, 0, "", 0, kNotBE}, {Str, 1, 0, "", 0, kNotBE}}},
        {"top level: a dynamic string aligns the next element, a fixed one does not", &a4,
         "00 00 00 05 EF BB BF 78 00 | FF FF FF | 00 00 00 01 | 00 00 00 05 EF BB BF 79 00 | 00 00 00 02",
         {{DynStr, 0, 0, "x"}, {U32, 0, 1}, {Str, 0, 0, "y"}, {U32, 0, 2}}},
        {"a fixed one reads its length field too", &le2, "06 00 | EF BB BF 68 69 00", {{Str, 0, 0, "hi", 1000}}},
        {"overrunning its container", nullptr, "00 00 00 06 | 00 00 00 05 EF BB BF 7A 00", {{Struct}, {Str, 1}}},
    });
}

// Loading, the field and copy building blocks, and argument checks outside the table's reach.
TEST_F(ReaderCore, BuildingBlocksAndLoading)
{
    Reader r;
    const Bytes empty;
    EXPECT_EQ(r.from_buffer(nullptr, 5), 1u);
    EXPECT_EQ(r.get_last_error(), 0u);  // the pointer form does not store
    EXPECT_EQ(r.from_buffer(empty), 1u);
    EXPECT_EQ(r.get_last_error(), 1u);  // the vector form does
    ASSERT_EQ(r.from_buffer(hex("09 08 07")), 0u);
    r.set_error_code(2);
    uint32_t v = 0, size = 1;
    uint8_t out[4] = {}, *data = nullptr;
    EXPECT_EQ(r.read_data(0, &v) + r.read_length_field(1, nullptr) + r.read_type_field(1, nullptr) +
                  r.read_enum(v, 3) + r.read_payload(out, 4) + r.read_payload(nullptr, 1), 6u);  // each fails
    EXPECT_EQ(r.get_last_error(), 2u);  // none of these stores its code
    EXPECT_EQ(r.read_payload(out, 3), 0u);
    ASSERT_EQ(r.from_buffer(hex("01 02 03 04")), 0u);  // the position stays until clear()
    ASSERT_EQ(r.read(out[0]), 0u);
    EXPECT_EQ(out[0], 4);
    EXPECT_TRUE(r.clear());
    ASSERT_EQ(r.read(out[0]), 0u);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(r.read(&data, &size), 1u);
    ASSERT_EQ(r.vector_data_begin(&nolen), 0u);
    EXPECT_EQ(r.read(nullptr, &size) + r.read(&data, nullptr), 2u);
    EXPECT_EQ(r.read(static_cast<uint8_t*>(nullptr), 1), 1u);
    // No string frame is ever opened, yet its length field size is known by kind.
    const ZQSomeIPInternalAttr frame{ZQ_SOMEIP_CONTAINER_STRING, Attr().stringLength(2)};
    EXPECT_EQ(r.get_length_field_size(&frame) + r.get_length_field_size(nullptr), 2u);
    EXPECT_EQ(r.from_buffer(Bytes{}), 0u);  // an empty vector moved in is accepted
    EXPECT_TRUE(r.is_empty());
    for (const char* text : {"parameters error, buffer is null or size is 0", "length is 0", "enum size:[3] error",
                             "parameters error, size is null", "parameters error, type is null", "m_attr_list is empty",
                             "parameters error, data or size is null", "parameters error, data is null", "attr null"})
        EXPECT_TRUE(logged(kSource, text)) << text;
}

TEST_F(ReaderContainers, Frames)
{
    const ZQSomeIPExtendAttr mixed = Attr().lengths(2).arrayLength(1).structLength(4);
    const ZQSomeIPExtendAttr odd = Attr().arrayLength(3).selector(3), vectors = Attr().align(4).lengths(1).arrayLength(0);
    ZQSomeIPExtendAttr inner = Attr().little().lengths(2);
    inner.length_field_read = 50;  // a new frame counts from 0 whatever the record says
    run({
        {"nothing open", nullptr, "", {{End, 2}, {Check, 0}, {Count, 0, 0, "", 0xFFFFFFFF}}},
        {"exactly full struct refuses every read with 3", nullptr, "00 00 00 06 | 00 00 00 01 | 00 02 | 00 03",
         {{Struct}, {U32, 0, 1}, {U16, 0, 2}, {U16, 3}, {Str, 3}, {Struct, 3}, {Block, 3}, {Raw, 3, 0, "", 1},
          {At, 0, 10}, {End}, {U16, 0, 3}, {End, 2}}},
        {"overrun: the read fails while accounting, no rollback", nullptr, "00 00 00 06 | 00 00 00 01 | 00 00 00 02",
         {{Struct}, {U32, 0, 1}, {U32, 1}, {At, 0, 12}, {End}, {End, 2}}},
        {"frames inside the overrun one keep their count", nullptr, "00 00 00 0A 00 00 00 08 00 00 00 01 00 00 00 02",
         {{Struct}, {Struct}, {U32, 0, 1}, {U32, 1}, {U8, 3}, {End}, {Count, 0, 0, "", 2}, {Check, 3},
          {Count, 1, 0, "", 1}, {End}}},
        {"only the innermost length is checked before a read", nullptr, "00 00 00 06 | 00 00 00 0A | 00 01 | 00 02",
         {{Struct}, {Struct}, {U16, 0, 1}, {U16, 1}}},
        {"a huge count does not wrap", nullptr, "00 00 00 08 | 01 02 03 04",
         {{Struct}, {Count, 0, 0, "", 4}, {Count, 1, 0, "", 0xFFFFFFFE}, {Check, 0}}},
        {"unread bytes are not skipped", nullptr, "00 00 00 0A | 00 00 00 01 | 09 09 09 09 09 09",
         {{Struct}, {U32, 0, 1}, {End}, {At, 0, 8}}},
        {"length and type fields of 3 bytes", &odd, "00 00 00 01 00 00 00 00",
         {{Array, 1}, {At}, {End, 2}, {Union, 1}, {At, 0, 4}, {End, 2}}},
        {"truncated length field", nullptr, "00 00 00", {{Vector, 1}, {End, 2}}},
        {"sizes by kind; a block's size from its length field", &mixed,
         "00 00 00 13 | 04 | 00 02 AA BB | 00 01 | 00 00 00 07 | 41 | 00 05 EF BB BF 78 00",
         {{Struct}, {Array}, {Vector}, {Block, 0, 0, "AA BB", 99}, {End}, {End}, {Union, 0, 7}, {U8, 0, 0x41}, {End},
          {Str, 0, 0, "x"}, {Check, 3}, {End}, {At, 0, 23}}},
        {"explicit record overrides inheritance", nullptr, "00 00 00 06 | 04 00 | 34 12 | 78 56",
         {{Struct}, {Struct, 0, 0, "", 0, nullptr, &inner}, {U16, 0, 0x1234}, {U16, 0, 0x5678}, {U16, 3}, {End},
          {U16, 3}, {End}}},
        {"top level: no pad before a container, but before the next primitive", &a4len1, "02 A1 A2 | FF 00 | 07 01 42",
         {{Vector}, {Block, 0, 0, "A1 A2"}, {End}, {Struct}, {At, 0, 4}, {U8, 0, 0}, {End}, {U8, 1}}},
        {"array of vectors: every later vector aligned, an empty one full", &vectors, "01 AA FF FF | 01 BB FF FF | 00",
         {{Array}, {Vector}, {Block, 0, 0, "AA"}, {End}, {Vector}, {Block, 0, 0, "BB"}, {End}, {Vector}, {At, 0, 9},
          {Block, 3}, {End}, {End}}},
        {"block without length field", &nolen, "01 02 03", {{Vector}, {Block, 0, 0, "01 02", 2}, {Block, 1, 0, "", 2},
         {Block, 1, 0, "", 0, "read array without length field and size is 0, error."}}},
        {"block length beyond the buffer", nullptr, "00 00 00 04 | 01 02 03", {{Vector}, {Block, 1}, {At, 0, 4}}},
        {"block length wrapping around", nullptr, "FF FF FF FC | 01 02 03", {{Vector}, {Block, 1}, {At, 0, 4}}},
        {"raw copies", nullptr, "00 00 00 03 07 08 09 01", {{Raw, 1, 0, "", 2, "m_attr_list is empty"}, {Struct},
         {Raw, 0, 0, "07 08", 2}, {Raw, 1, 0, "", 2}, {At, 0, 8}, {Raw, 1, 0, "", 1}, {Raw, 1, 0, "", 0xFFFFFFFF}}},
        {"alignment skip past the end", &a8, "00 00 00 01 11 22", {{Vector}, {U8, 0, 0x11}, {End}, {U8, 1}, {At, 0, 8},
         {U32, 1}, {Str, 1}, {Struct, 1}, {Array, 0, 0, "", 0, nullptr, &nolen}, {Raw, 1, 0, "", 1}, {Block, 1},
         {Str, 1, 0, "", 4, "Out of memory, m_index:[8], read_size:[4], m_size:[6]", &nolen}, {End}}},
    });
}

// Every text of up to three code units drawn from the boundary values, in both byte orders: well-formed
// UTF-16 converts as the standard converter does; an unpaired surrogate throws and leaves the output alone.
// The standard converter stops silently before a trailing high surrogate; the reader rejects that too.
TEST_F(ReaderCore, Utf16LoneSurrogateThrowsAndLeavesTheText)
{
    // A low surrogate without its high one: the standard converter refuses it, and the reader lets
    // that through and writes nothing.
    Reader r(&u16be);
    ASSERT_EQ(r.from_buffer(hex("00 00 00 06 | FE FF DC 00 00 00")), 0u);
    std::string got = "keep";
    EXPECT_THROW(r.read(got, 0), std::range_error);
    EXPECT_EQ(got, "keep");
}

} // namespace

#pragma GCC diagnostic pop
