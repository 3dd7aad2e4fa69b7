// Unit tests of the payload reader engine (ZQSomeIPPayloadDeserializerGeneral) on hand-made bytes.
#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>

#include "engine_test_support.h"
#include "someip/ZQSomeIPPayloadDeserializerGeneral.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <codecvt>
#include <locale>

namespace {

using namespace enginetest;
using namespace std::string_literals;
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

template <typename T>
void number(Reader& r, const Step& s)
{
    T v;
    std::memcpy(&v, &kKeep, sizeof v);
    EXPECT_EQ(r.read(v, s.attr), s.code);
    uint64_t got = 0;
    std::memcpy(&got, &v, sizeof v);
    EXPECT_EQ(got, s.code ? kKeep >> (64 - 8 * sizeof v) : s.value);
}

void step(Reader& r, const Step& s)
{
    uint32_t code = 0, out = static_cast<uint32_t>(kKeep);
    std::string str = "keep";
    Bytes block{0x99};
    switch (s.op) {
    case U8: return number<uint8_t>(r, s);
    case Bool: return number<bool>(r, s);
    case U16: return number<uint16_t>(r, s);
    case U32: return number<uint32_t>(r, s);
    case F32: return number<float>(r, s);
    case F64: return number<double>(r, s);
    case Union: code = r.union_data_begin(s.attr, out); break;
    case Str: case DynStr: code = r.read(str, s.len, s.attr, s.op == DynStr); break;
    case Struct: code = r.struct_data_begin(s.attr); break;
    case Array: code = r.array_data_begin(s.attr); break;
    case Vector: code = r.vector_data_begin(s.attr); break;
    case End: code = r.data_end(); break;
    case Block: code = r.read(block, s.len, s.attr); break;
    case Raw:
        block.assign(std::min(s.len, 64u), 0x99);
        code = r.read(block.data(), s.len, s.attr);
        break;
    case Count: code = r.modify_length_field_read(s.len); break;
    case Check: code = r.check_length_field(); break;
    case At: code = r.get_index(); break;
    }
    EXPECT_EQ(code, s.op < At ? s.code : s.value);
    if (code != 0 && s.op < Count) { EXPECT_EQ(r.get_last_error(), code); }
    if (s.op == Union) { EXPECT_EQ(out, static_cast<uint32_t>(s.code ? kKeep : s.value)); }
    if (s.op == Str || s.op == DynStr) { EXPECT_EQ(str, s.code ? "keep" : s.text); }
    if (s.op == Block || (s.op == Raw && code == 0)) { EXPECT_EQ(block, code ? Bytes{0x99} : hex(s.text)); }
}

class ReaderTest : public EngineTest {
protected:
    void run(const std::vector<Case>& cases)
    {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.name);
            Reader r(c.ctor);
            if (*c.bytes) { ASSERT_EQ(r.from_buffer(hex(c.bytes)), 0u); }
            for (size_t i = 0; i < c.steps.size(); ++i) {
                const Step& s = c.steps[i];
                SCOPED_TRACE("step " + std::to_string(i));
                errors().clear();
                step(r, s);
                EXPECT_TRUE(!s.log || (*s.log ? logged(kSource, s.log) : errors().empty())) << s.log;
            }
        }
    }
};
using ReaderCore = ReaderTest;
using ReaderContainers = ReaderTest;
using ReaderStrings = ReaderTest;

const ZQSomeIPExtendAttr le = attr(1), nolen = attr(0, 1, 0), len3 = attr(0, 1, 3), type3 = attr(0, 1, 4, 0, 3);
const ZQSomeIPExtendAttr a4 = attr(0, 4), a8 = attr(0, 8), a4len1 = attr(0, 4, 1), u16be = attr(0, 1, 4, 1);
const ZQSomeIPExtendAttr u16le = attr(1, 1, 4, 1);

ZQSomeIPExtendAttr with(ZQSomeIPExtendAttr a, uint32_t array_lfs, uint32_t struct_lfs, uint32_t type_size)
{
    a.array_length_field_size = array_lfs;
    a.struct_length_field_size = struct_lfs;
    a.union_type_field_size = type_size;
    return a;
}

TEST_F(ReaderCore, Reads)
{
    run({
        {"byte order: explicit record, then sticky at top level", nullptr, "34 12 | 00 00 C0 3F | 78 56",
         {{U16, 0, 0x1234, "", 0, nullptr, &le}, {F32, 0, 0x3FC00000, "", 0, nullptr, &le}, {U16, 0, 0x5678}}},
        {"float images bit for bit", nullptr, "7F 80 00 01 | 7F F0 00 00 00 00 00 01 | 01 00 80 7F",
         {{F32, 0, 0x7F800001}, {F64, 0, 0x7FF0000000000001}, {F32, 0, 0x7F800001, "", 0, nullptr, &le}}},
        {"bool is the lowest bit", nullptr, "01 03 02 FE FF 00",
         {{Bool, 0, 1}, {Bool, 0, 1}, {Bool, 0, 0}, {Bool, 0, 0}, {Bool, 0, 1}, {Bool, 0, 0}}},
        {"truncated reads fail without moving", nullptr, "AA BB CC",
         {{U16, 0, 0xAABB},
          {U16, 1, 0, "", 0, "parameters error or out of memory, m_index:[2], size:[2], m_size:[3]"},
          {At, 0, 2}, {F64, 1}, {U8, 0, 0xCC}, {U8, 1}}},
        {"null record: arrays without length field, the rest 4 bytes, big endian", nullptr,
         "00 00 00 01 | AA | 00 00 00 02 | 00 00 00 09 | 12 34",
         {{Array}, {Vector}, {Block, 0, 0, "AA"}, {End}, {End}, {Union, 0, 9}, {U16, 0, 0x1234}, {End}}},
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
    uint32_t v = 0;
    uint8_t out[4] = {};
    EXPECT_EQ(r.read_data(0, &v) + r.read_length_field(1, nullptr) + r.read_type_field(1, nullptr) +
                  r.read_enum(v, 3) + r.read_payload(out, 4) + r.read_payload(nullptr, 1), 6u);  // each fails
    EXPECT_EQ(r.get_last_error(), 2u);  // none of these stores its code
    EXPECT_TRUE(logged(kSource, "parameters error, buffer is null or size is 0") && logged(kSource, "length is 0"));
    EXPECT_TRUE(logged(kSource, "parameters error, size is null") && logged(kSource, "parameters error, type is null"));
    EXPECT_TRUE(logged(kSource, "enum size:[3] error"));
    EXPECT_EQ(r.read_payload(out, 3), 0u);
    ASSERT_EQ(r.from_buffer(hex("01 02 03 04")), 0u);  // the position stays until clear()
    ASSERT_EQ(r.read(out[0]), 0u);
    EXPECT_EQ(out[0], 4);
    EXPECT_TRUE(r.clear());
    ASSERT_EQ(r.read(out[0]), 0u);
    EXPECT_EQ(out[0], 1);
    uint32_t size = 1;
    uint8_t* data = nullptr;
    EXPECT_EQ(r.read(&data, &size), 1u);
    EXPECT_TRUE(logged(kSource, "m_attr_list is empty"));
    ASSERT_EQ(r.vector_data_begin(&nolen), 0u);
    EXPECT_EQ(r.read(nullptr, &size) + r.read(&data, nullptr), 2u);
    EXPECT_TRUE(logged(kSource, "parameters error, data or size is null"));
    EXPECT_EQ(r.read(static_cast<uint8_t*>(nullptr), 1), 1u);
    EXPECT_TRUE(logged(kSource, "parameters error, data is null"));
    ZQSomeIPInternalAttr frame;  // no string frame is ever opened, yet its length field size is known by kind
    frame.type = ZQ_SOMEIP_CONTAINER_STRING;
    frame.attr.string_length_field_size = 2;
    EXPECT_EQ(r.get_length_field_size(&frame) + r.get_length_field_size(nullptr), 2u);
    EXPECT_TRUE(logged(kSource, "attr null"));
    EXPECT_EQ(r.from_buffer(Bytes{}), 0u);  // an empty vector moved in is accepted
    EXPECT_TRUE(r.is_empty());
}

TEST_F(ReaderContainers, Frames)
{
    const ZQSomeIPExtendAttr mixed = with(attr(0, 1, 2), 1, 4, 4);  // arrays 1, structs 4, the rest 2
    ZQSomeIPExtendAttr inner = attr(1, 1, 2);
    inner.length_field_read = 50;  // a new frame counts from 0 whatever the record says
    const ZQSomeIPExtendAttr union4 = attr(0, 4, 4), vector1 = attr(0, 4, 1);
    const ZQSomeIPExtendAttr bare_union = with(attr(0, 4, 0), 0, 0, 0), array_of_vectors = with(a4len1, 0, 1, 4);
    run({
        {"nothing open", nullptr, "", {{End, 2}, {Check, 0}, {Count, 0, 0, "", 0xFFFFFFFF}}},
        {"exactly full struct refuses every read with 3", nullptr, "00 00 00 06 | 00 00 00 01 | 00 02 | 00 03",
         {{Struct}, {U32, 0, 1}, {U16, 0, 2}, {U16, 3}, {Str, 3}, {Struct, 3}, {Block, 3},
          {Raw, 3, 0, "", 1}, {At, 0, 10}, {End}, {U16, 0, 3}, {End, 2}}},
        {"overrun: the read fails while accounting, no rollback", nullptr, "00 00 00 06 | 00 00 00 01 | 00 00 00 02",
         {{Struct}, {U32, 0, 1}, {U32, 1}, {At, 0, 12}, {End}, {End, 2}}},
        {"frames inside the overrun one keep their count", nullptr,
         "00 00 00 0A | 00 00 00 08 | 00 00 00 01 | 00 00 00 02 | 00 00 00 03",
         {{Struct}, {Struct}, {U32, 0, 1}, {U32, 1}, {U32, 3}, {End}, {Count, 0, 0, "", 2}, {Check, 3},
          {Count, 1, 0, "", 1}, {End}}},
        {"only the innermost length is checked before a read", nullptr, "00 00 00 06 | 00 00 00 0A | 00 01 | 00 02",
         {{Struct}, {Struct}, {U16, 0, 1}, {U16, 1}}},
        {"a huge count does not wrap", nullptr, "00 00 00 08 | 01 02 03 04",
         {{Struct}, {Count, 0, 0, "", 4}, {Count, 1, 0, "", 0xFFFFFFFE}, {Check, 0}}},
        {"unread bytes are not skipped", nullptr, "00 00 00 0A | 00 00 00 01 | 09 09 09 09 09 09",
         {{Struct}, {U32, 0, 1}, {End}, {At, 0, 8}}},
        {"struct without length field", &nolen, "00 01 00 02", {{Struct}, {U16, 0, 1}, {U16, 0, 2}, {Check}, {End}}},
        {"length field of 3 bytes", &len3, "00 00 00 00 00 00", {{Array, 1}, {At}, {End, 2}}},
        {"truncated length field", nullptr, "00 00 00", {{Vector, 1}, {End, 2}}},
        {"type field of 3 bytes", &type3, "00 00 00 01 00 00 00 00", {{Union, 1}, {At, 0, 4}, {End, 2}}},
        {"sizes by kind; a block's size from its length field", &mixed,
         "00 00 00 13 | 04 | 00 02 AA BB | 00 01 | 00 00 00 07 | 41 | 00 05 EF BB BF 78 00",
         {{Struct}, {Array}, {Vector}, {Block, 0, 0, "AA BB", 99}, {End}, {End}, {Union, 0, 7}, {U8, 0, 0x41}, {End},
          {Str, 0, 0, "x"}, {Check, 3}, {End}, {At, 0, 23}}},
        {"explicit record overrides inheritance", nullptr, "00 00 00 06 | 04 00 | 34 12 | 78 56",
         {{Struct}, {Struct, 0, 0, "", 0, nullptr, &inner}, {U16, 0, 0x1234}, {U16, 0, 0x5678}, {U16, 3}, {End},
          {U16, 3}, {End}}},
        {"union pad follows the end of an inner container", &bare_union, "11 00 00 00 22",
         {{Union, 0, kKeep}, {Struct}, {U8, 0, 0x11}, {End}, {At, 0, 4}, {End}, {U8, 0, 0x22}}},
        {"block in a union: the union pad follows the vector's end", nullptr,
         "00 00 00 04 | 00 00 00 01 | 02 0A 0B | 00 | 77",
         {{Union, 0, 1, "", 0, nullptr, &union4}, {Vector, 0, 0, "", 0, nullptr, &vector1}, {Block, 0, 0, "0A 0B"},
          {At, 0, 11}, {End}, {At, 0, 12}, {End}, {U8, 0, 0x77}}},
        {"vector end aligns the next struct member, once", &a4,
         "00 00 00 10 | 00 00 00 03 01 02 03 | FF | 00 00 00 09 | 00 00 00 08",
         {{Struct}, {Vector}, {Block, 0, 0, "01 02 03"}, {End}, {U32, 0, 9}, {U32, 0, 8}, {End}}},
        {"top level: no pad before a container, but before the next primitive", &a4len1, "02 A1 A2 | FF 00 | 07 01 42",
         {{Vector}, {Block, 0, 0, "A1 A2"}, {End}, {Struct}, {At, 0, 4}, {U8, 0, 0}, {End},
          {U16, 1, 0, "", 0, "parameters error or out of memory, m_index:[8], size:[2], m_size:[8]"}}},
        {"array of vectors: every later vector aligned; an empty one is full", &array_of_vectors,
         "01 AA FF FF | 01 BB FF FF | 00",
         {{Array}, {Vector}, {Block, 0, 0, "AA"}, {End}, {Vector}, {Block, 0, 0, "BB"}, {End}, {Vector}, {At, 0, 9},
          {Block, 3}, {End}, {End}}},
        {"block without length field", &nolen, "01 02 03",
         {{Vector}, {Block, 1, 0, "", 0, "read array without length field and size is 0, error."},
          {Block, 0, 0, "01 02", 2},
          {Block, 1, 0, "", 2, "parameters error or out of memory, m_index:[2], size:[2], m_size:[3]"}}},
        {"block length beyond the buffer", nullptr, "00 00 00 04 | 01 02 03", {{Vector}, {Block, 1}, {At, 0, 4}}},
        {"block length wrapping around", nullptr, "FF FF FF FC | 01 02 03", {{Vector}, {Block, 1}, {At, 0, 4}}},
        {"raw copies", nullptr, "00 00 00 03 07 08 09 01",
         {{Raw, 1, 0, "", 2, "m_attr_list is empty"}, {Struct}, {Raw, 0, 0, "07 08", 2}, {Raw, 1, 0, "", 2},
          {At, 0, 8}, {Raw, 1, 0, "", 1, "parameters error or out of memory, m_index:[8], size:[1], m_size:[8]"},
          {Raw, 1, 0, "", 0xFFFFFFFF}}},
        {"alignment skip past the end", &a8, "00 00 00 01 11 22",
         {{Vector}, {U8, 0, 0x11}, {End},
          {U8, 1, 0, "", 0, "parameters error or out of memory, m_index:[8], size:[1], m_size:[6]"}, {At, 0, 8},
          {U32, 1}, {Str, 1}, {Struct, 1}, {Array, 0, 0, "", 0, nullptr, &nolen}, {Raw, 1, 0, "", 1},
          {Block, 1, 0, "", 1}, {Str, 1, 0, "", 4, "Out of memory, m_index:[8], read_size:[4], m_size:[6]", &nolen},
          {End}}},
    });
}

TEST_F(ReaderStrings, Forms)
{
    const ZQSomeIPExtendAttr u16be2 = attr(0, 1, 2, 1), no_frame_lfs = with(a4len1, 0, 0, 4);
    const ZQSomeIPExtendAttr union_type1 = with(a4len1, 0, 1, 1), le2 = attr(1, 1, 2);
    run({
        {"UTF-8 with length field", nullptr, "00 00 00 08 EF BB BF 41 42 43 44 00", {{Str, 0, 0, "ABCD"}, {At, 0, 12}}},
        {"no terminator", nullptr, "00 00 00 07 EF BB BF 41 42 43 44",
         {{Str, 1, 0, "", 0, "string does not end with '\\0'"}, {At, 0, 4}}},
        {"an embedded zero ends the value", &nolen, "EF BB BF 41 00 42 00 99", {{Str, 0, 0, "A", 7}, {At, 0, 7}}},
        {"bad mark", nullptr, "00 00 00 05 EF BB BE 78 00", {{Str, 1, 0, "", 0, "string bom is not utf8"}, {At, 0, 4}}},
        {"lengths 0 and 3", nullptr, "00 00 00 00 | 00 00 00 03 | EF BB BF 00",
         {{Str, 1, 0, "", 0, "string bom is not utf8"}, {Str, 1, 0, "", 0, "string bom is not utf8"}}},
        {"length 2 at the end of the buffer", &nolen, "EF BB", {{Str, 1, 0, "", 2, "string bom is not utf8"}}},
        {"length beyond the buffer, wrapping around", nullptr, "FF FF FF FF | EF BB BF 61 00",
         {{Str, 1, 0, "", 0, "Out of memory, m_index:[4], read_size:[-1], m_size:[9]"}, {At, 0, 4}}},
        {"dynamic without length field, silently", &nolen, "EF BB BF 00",
         {{DynStr, 1, 0, "", 4, ""}, {Str, 0, 0, "", 4}}},
        {"UTF-16: surrogates, U+0000 kept, 2- and 3-byte forms", &u16be2,
         "00 0E | FE FF D8 3D DE 00 00 00 00 E9 20 AC 00 00", {{Str, 0, 0, "\xF0\x9F\x98\x80\0\xC3\xA9\xE2\x82\xAC"s}}},
        {"UTF-16 odd length: the last byte is left", &u16be, "00 00 00 09 | FE FF 00 4F 00 4B 00 00 | 5C",
         {{Str, 0, 0, "OK"}, {At, 0, 12}, {U8, 0, 0x5C}}},
        {"UTF-16 BE meets FF FE", &u16be, "00 00 00 06 | FF FE 61 00 00 00",
         {{Str, 1, 0, "", 0, "string bom is not UTF16BE"}}},
        {"UTF-16 LE meets FE FF", &u16le, "06 00 00 00 | FE FF 00 61 00 00",
         {{Str, 1, 0, "", 0, "string bom is not UTF16LE"}}},
        {"UTF-16 terminator checked before the mark", &u16be, "00 00 00 06 | FF FE 00 61 00 01",
         {{Str, 1, 0, "", 0, "string does not end with '\\0\\0'"}, {At, 0, 4}}},
        {"UTF-16 length 3", &u16be, "00 00 00 03 | FE FF 00 00", {{Str, 1, 0, "", 0, "string bom is not UTF16BE"}}},
        {"UTF-16 length 0", &u16le, "00 00 00 00 | FF FE 00 00", {{Str, 1, 0, "", 0, "string bom is not UTF16LE"}}},
        {"top level: a dynamic string aligns the next element, a fixed one does not", &a4,
         "00 00 00 05 EF BB BF 78 00 | FF FF FF | 00 00 00 01 | 00 00 00 05 EF BB BF 79 00 | 00 00 00 02",
         {{DynStr, 0, 0, "x"}, {U32, 0, 1}, {Str, 0, 0, "y"}, {U32, 0, 2}}},
        {"a fixed one reads its length field too", &le2, "06 00 | EF BB BF 68 69 00", {{Str, 0, 0, "hi", 1000}}},
        {"in a struct it aligns", &no_frame_lfs, "05 EF BB BF 78 00 | FF FF | 42",
         {{Struct}, {DynStr, 0, 0, "x"}, {U8, 0, 0x42}}},
        {"in an array it does not", &no_frame_lfs, "05 EF BB BF 78 00 | 42",
         {{Array}, {DynStr, 0, 0, "x"}, {U8, 0, 0x42}}},
        {"in a union the pad follows", &union_type1, "0A 03 | 06 EF BB BF 75 76 00 | 00 00 00 | 99",
         {{Union, 0, 3}, {DynStr, 0, 0, "uv"}, {At, 0, 12}, {End}, {U8, 0, 0x99}}},
        {"overrunning its container", nullptr, "00 00 00 06 | 00 00 00 05 EF BB BF 7A 00", {{Struct}, {Str, 1}}},
    });
}

// Well-formed UTF-16 converts as the standard converter does; an unpaired surrogate throws and leaves the
// output alone. Byte orders take turns. The standard converter stops silently before a trailing high
// surrogate; the reader rejects that too.
TEST_F(ReaderStrings, Utf16MatchesTheStandardConverter)
{
    std::vector<std::u16string> texts{u"\xD800", u"\xDC00" u"A", u"\xD800" u"A", u"A\xD83D", u"\xD83D\xD83D\xDE00"};
    std::mt19937 rng(12345);
    const char16_t pool[] = {0x0000, 0x0041, 0x007F, 0x0080, 0x07FF, 0x0800, 0xD7FF, 0xE000,
                             0xFFFD, 0xFFFE, 0xFFFF, 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0x1234};
    while (texts.size() < 2000) {
        texts.emplace_back();
        for (uint32_t n = rng() % 8; n > 0; --n) texts.back().push_back(char16_t(rng() % 3 ? pool[rng() % 16] : rng()));
    }
    std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t> standard;
    for (size_t i = 0; i < texts.size(); ++i) {
        const uint32_t order = i % 2;
        std::string expected = "keep", got = "keep";  // "keep": the reader must throw
        try {
            if (texts[i].empty() || (texts[i].back() & 0xFC00) != 0xD800) expected = standard.to_bytes(texts[i]);
        } catch (const std::range_error&) {
        }
        Bytes body = field(2, 0xFEFF, order);
        for (char16_t u : texts[i]) body = body + field(2, u, order);
        Reader r(order ? &u16le : &u16be);
        ASSERT_EQ(r.from_buffer(field(4, body.size() + 2, order) + body + Bytes{0, 0}), 0u);
        try {
            EXPECT_EQ(r.read(got, 0), 0u);
        } catch (const std::range_error& e) {
            EXPECT_STREQ(e.what(), "wstring_convert::to_bytes");
        }
        EXPECT_EQ(got, expected) << i;
    }
}

} // namespace

#pragma GCC diagnostic pop
