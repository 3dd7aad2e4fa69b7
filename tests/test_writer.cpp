#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "someip/ZQSomeIPPayloadSerializerGeneral.h"
#include "someip/zq_someip_log.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <codecvt>
#include <locale>
#pragma GCC diagnostic pop

namespace {

using Bytes = std::vector<unsigned char>;
using Writer = ZQSomeIPPayloadSerializerGeneral;
using Script = std::function<uint32_t(Writer&)>;
using u8 = unsigned char;
using u16 = unsigned short;

// "00 0a | FF" -> {0x00, 0x0A, 0xFF}; '|' only groups fields for the reader.
Bytes hex(const std::string& text)
{
    Bytes out;
    std::istringstream in(text);
    for (std::string t; in >> t;) {
        if (t != "|") {
            out.push_back(u8(std::stoul(t, nullptr, 16)));
        }
    }
    return out;
}

// Results of calls listed in a braced list (evaluated left to right): 0 only if all are 0.
uint32_t all(std::initializer_list<uint32_t> results)
{
    uint32_t r = 0;
    for (uint32_t x : results) r |= x;
    return r;
}

// Every length field `length` bytes wide; union type field 4.
ZQSomeIPExtendAttr attr(uint32_t order, uint32_t alignment = 1, uint32_t length = 4, uint32_t utf = 0)
{
    ZQSomeIPExtendAttr a;
    a.array_length_field_size = a.vector_length_field_size = a.struct_length_field_size = length;
    a.string_length_field_size = a.union_length_field_size = length;
    a.byte_order = order;
    a.alignment = alignment;
    a.string_utf = utf;
    return a;
}

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes field(uint32_t size, uint32_t value, uint32_t order)
{
    Bytes out;
    for (uint32_t i = 0; i < size; ++i) out.push_back(u8(value >> 8 * (order ? i : size - 1 - i)));
    return out;
}

std::vector<std::string> g_errors;  // messages of level-4 "ESOMEIP_ERROR" lines
void capture(int32_t level, const char* tag, const char* message)
{
    if (level == 4 && std::string(tag) == "ESOMEIP_ERROR") g_errors.push_back(message);
}

class WriterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_errors.clear();
        setenv("SOMEIPSER_LOG_LEVEL", "1", 1);  // callback only, nothing printed
        zq_someip_set_logfunc_callback(capture);
    }
    void TearDown() override
    {
        zq_someip_set_logfunc_callback(nullptr);
        unsetenv("SOMEIPSER_LOG_LEVEL");
    }
};
using WriterWire = WriterTest;
using WriterFailures = WriterTest;
using WriterStrings = WriterTest;

} // namespace

// The wire format of Parts 3.3-3.4, byte for byte.
TEST_F(WriterWire, ExactBytes)
{
    const auto primitives = [](Writer& w) {
        return all({w.write(true), w.write(static_cast<signed char>(-2)), w.write(u16(0x0102)),
                    w.write(static_cast<short>(-2)), w.write(0x01020304u), w.write(-2), w.write(0x0102030405060708ul),
                    w.write(-2l), w.write(1.5f), w.write(-2.5), w.write_enum(0x12345, 1), w.write_enum(0x12345, 2),
                    w.write_enum(0x12345, 4)});
    };
    struct Case {
        const char* name;
        ZQSomeIPExtendAttr ctor;
        Script script;
        const char* bytes;
    };
    const ZQSomeIPExtendAttr le = attr(1), be = attr(0), be4 = attr(0, 4), be8 = attr(0, 8);
    const Case cases[] = {
        {"primitives big endian", be, primitives,
         "01 FE | 01 02 | FF FE | 01 02 03 04 | FF FF FF FE | 01 02 03 04 05 06 07 08 | FF FF FF FF FF FF FF FE"
         " | 3F C0 00 00 | C0 04 00 00 00 00 00 00 | 45 | 23 45 | 00 01 23 45"},
        {"primitives little endian", le, primitives,
         "01 FE | 02 01 | FE FF | 04 03 02 01 | FE FF FF FF | 08 07 06 05 04 03 02 01 | FE FF FF FF FF FF FF FF"
         " | 00 00 C0 3F | 00 00 00 00 00 00 04 C0 | 45 | 45 23 | 45 23 01 00"},
        {"explicit record wins", be, [&](Writer& w) { return all({w.write(1u), w.write(1u, &le)}); },
         "00 00 00 01 | 01 00 00 00"},
        {"union", be8,
         [](Writer& w) { return all({w.union_data_begin(nullptr, 2), w.write(u16(0x1234)), w.data_end()}); },
         "00 00 00 08 | 00 00 00 02 | 12 34 | 00 00 00 00 00 00"},
        {"union member ending on the alignment", be8,
         [](Writer& w) { return all({w.union_data_begin(nullptr, 1), w.write(0x0102030405060708ul), w.data_end()}); },
         "00 00 00 08 | 00 00 00 01 | 01 02 03 04 05 06 07 08"},
        {"string and array block in unions", be4,
         [](Writer& w) {
             return all({w.union_data_begin(nullptr, 1), w.write("Hi", nullptr, true), w.data_end(),
                         w.union_data_begin(nullptr, 3), w.array_data_begin(), w.vector_data_begin(), w.write(u8(1)),
                         w.data_end(), w.write(Bytes{2, 3}), w.data_end(), w.data_end()});
         },  // the block's frame is in a union: no 0xFF although a vector just ended
         "00 00 00 0C | 00 00 00 01 | 00 00 00 06 EF BB BF 48 69 00 | 00 00 | 00 00 00 0C | 00 00 00 03"
         " | 00 00 00 07 | 00 00 00 01 01 | 02 03 | 00"},
        {"vector inside struct", be4,
         [](Writer& w) {
             return all({w.struct_data_begin(), w.vector_data_begin(), w.write(u8(1)), w.data_end(),
                         w.write(0xAABBCCDDu), w.write(u16(0x1122)), w.data_end()});
         },
         "00 00 00 0E | 00 00 00 01 01 | FF FF FF | AA BB CC DD | 11 22"},
        {"array of vectors", be4,
         [](Writer& w) {
             return all({w.array_data_begin(), w.vector_data_begin(), w.write(u8(1)), w.data_end(),
                         w.vector_data_begin(), w.write(u8(2)), w.write(u8(3)), w.data_end(),
                         w.vector_data_begin(), w.write(u8(4)), w.data_end(), w.data_end()});
         },
         "00 00 00 15 | 00 00 00 01 01 | FF FF FF | 00 00 00 02 02 03 | FF FF | 00 00 00 01 04"},
        {"top level: padding only after dynamic elements", be4,
         [](Writer& w) {
             return all({w.write(u8(1)), w.write(2u), w.write("Hi", nullptr, true), w.write(3u),
                         w.write(u8(4)), w.vector_data_begin(), w.data_end(), w.write(Bytes{5, 5})});
         },
         "01 | 00 00 00 02 | 00 00 00 06 EF BB BF 48 69 00 | FF | 00 00 00 03 | 04 | 00 00 00 00 | FF FF FF | 05 05"},
        {"dynamic strings in a struct", be4,
         [](Writer& w) {
             return all({w.struct_data_begin(), w.write("", nullptr, true), w.write(u8(1)),
                         w.write("x", nullptr, true), w.write(u8(2)), w.data_end()});
         },
         "00 00 00 15 | 00 00 00 04 EF BB BF 00 | 01 | 00 00 00 05 EF BB BF 78 00 | FF FF | 02"},
        {"dynamic strings in an array: no flag", be4,
         [](Writer& w) {
             return all({w.array_data_begin(), w.write("x", nullptr, true), w.write(u8(2)), w.data_end()});
         },
         "00 00 00 0A | 00 00 00 05 EF BB BF 78 00 | 02"},
        {"inherited attributes, struct without length field", be,
         [](Writer& w) {
             ZQSomeIPExtendAttr outer = attr(1, 1, 2);
             outer.struct_length_field_size = 0;
             return all({w.struct_data_begin(&outer), w.vector_data_begin(), w.write(u16(0x0102)),
                         w.data_end(), w.data_end()});
         },
         "02 00 | 02 01"},
        {"top level strings: fixed defaults; in a frame: the writer's", attr(0, 8, 2, 1),
         [](Writer& w) { return all({w.write("A"), w.struct_data_begin(), w.write("A"), w.data_end()}); },
         "00 00 00 05 EF BB BF 41 00 | 00 08 | 00 06 FE FF 00 41 00 00"},
        {"length cut to its width", attr(0, 1, 1),
         [](Writer& w) {
             return all({w.struct_data_begin(), w.write(Bytes(257, 0xAA)), w.data_end(), w.tlv_data_begin(nullptr, 1)});
         },
         nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Writer w(&c.ctor);
        EXPECT_EQ(c.script(w), 0u);
        EXPECT_EQ(w.get_last_error(), 0u);
        EXPECT_EQ(w.data_end(), 2u);  // every container was closed
        if (c.bytes) {
            EXPECT_EQ(w.to_buffer(), hex(c.bytes));
        } else {
            EXPECT_EQ(w.to_buffer(), hex("01") + Bytes(257, 0xAA));
        }
    }
    EXPECT_TRUE(g_errors.empty());
}

TEST_F(WriterWire, LengthAndSelectorFieldsOf0124BytesInBothOrders)
{
    for (int kind = 0; kind < 4; ++kind) {
        for (uint32_t size : {0u, 1u, 2u, 4u}) {
            for (uint32_t order : {0u, 1u}) {
                SCOPED_TRACE(std::to_string(kind) + "/" + std::to_string(size) + "/" + std::to_string(order));
                ZQSomeIPExtendAttr a = attr(order, 1, size);
                a.union_type_field_size = size;
                Writer w(&a);
                const uint32_t begun = kind == 0 ? w.array_data_begin() : kind == 1 ? w.struct_data_begin()
                                     : kind == 2 ? w.vector_data_begin() : w.union_data_begin(nullptr, 0x0A);
                ASSERT_EQ(all({begun, w.write(u16(0x0102)), w.data_end()}), 0u);
                const Bytes expected = field(size, 2, order) + (kind == 3 ? field(size, 0x0A, order) : Bytes{}) +
                                       field(2, 0x0102, order);
                EXPECT_EQ(w.to_buffer(), expected);
            }
        }
    }
}

TEST_F(WriterFailures, CodesBuffersAndMessages)
{
    struct Case {
        const char* name;
        Script act;
        uint32_t result, last_error;
        const char* buffer;
        const char* message;  // tail of the one error line after "[function]"; null: none
    };
    static const unsigned char block[1] = {1};
    const ZQSomeIPExtendAttr three = attr(0, 1, 3), none = attr(0, 4, 0), four = attr(0);
    ZQSomeIPExtendAttr selector3 = attr(0);
    selector3.union_type_field_size = 3;
    const Case cases[] = {
        {"enum size 3", [](Writer& w) { return w.write_enum(5, 3); }, 1, 1, "", "[write_enum]  enum size:[3] error"},
        {"empty block", [](Writer& w) { return w.write(Bytes{}); }, 2, 2, "", "[write]  serialize array is null"},
        {"null block", [](Writer& w) { return w.write(static_cast<const unsigned char*>(nullptr), 4); }, 2, 2, "",
         "[write]  serialize array is null"},
        {"zero length", [](Writer& w) { return w.write(block, 0); }, 2, 2, "", "[write]  serialize array is null"},
        {"end with nothing open", [](Writer& w) { return w.data_end(); }, 2, 2, "", nullptr},
        {"union padding without frame", [](Writer& w) { return w.write_union_padding(nullptr); }, 1, 0, "",
         "[write_union_padding]  write_attr is null"},
        {"struct length 3", [](Writer& w) { return w.struct_data_begin(); }, 1, 1, "", nullptr},
        {"array length 3", [](Writer& w) { return w.array_data_begin(); }, 1, 1, "", nullptr},
        {"vector length 3", [](Writer& w) { return w.vector_data_begin(); }, 1, 1, "", nullptr},
        {"union length 3", [](Writer& w) { return w.union_data_begin(nullptr, 1); }, 1, 1, "", nullptr},
        {"union selector 3", [&](Writer& w) { return w.union_data_begin(&selector3, 1); }, 1, 1, "00 00 00 00",
         nullptr},
        {"string length 3", [&](Writer& w) { return w.write("Hi", &three, false); }, 1, 1, "", nullptr},
        {"dynamic string without length field",
         [&](Writer& w) { return all({w.write(u8(9), &none), w.write("Hi", &none, true), w.write(u8(9), &none)}); },
         1, 1, "09 09", nullptr},
        {"negative length after clear",
         [&](Writer& w) { return all({w.struct_data_begin(&four), w.clear() ? 0u : 9u, w.data_end()}); }, 1, 1, "",
         "[data_end]  length_field value:[-4], error"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Writer w(&three);
        EXPECT_EQ(c.act(w), c.result);
        EXPECT_EQ(w.get_last_error(), c.last_error);
        EXPECT_EQ(w.to_buffer(), hex(c.buffer));
        if (c.message) {
            ASSERT_EQ(g_errors.size(), 1u);
            const std::string& m = g_errors[0];
            EXPECT_EQ(m.rfind(" [", 0), 0u) << m;
            EXPECT_NE(m.find("ZQSomeIPPayloadSerializerGeneral.cpp]["), std::string::npos) << m;
            EXPECT_EQ(m.substr(m.size() - std::string(c.message).size()), c.message) << m;
        } else {
            EXPECT_TRUE(g_errors.empty());
        }
        g_errors.clear();
        // A failed begin pushes nothing; a failed end pops nothing.
        EXPECT_EQ(w.data_end(), std::string(c.name) == "negative length after clear" ? 1u : 2u);
    }
}

TEST_F(WriterFailures, ClearKeepsTheLastError)
{
    Writer w;
    EXPECT_GE(w.to_buffer().capacity(), 4096u);
    ASSERT_EQ(all({w.write(1u), w.write_enum(1, 3)}), 1u);
    EXPECT_TRUE(w.clear());
    EXPECT_TRUE(w.to_buffer().empty());
    EXPECT_EQ(w.write(u8(7)), 0u);  // success does not reset it either
    EXPECT_EQ(w.get_last_error(), 1u);
    EXPECT_EQ(w.to_buffer(), hex("07"));
    EXPECT_EQ(w.set_error_code(0) + w.get_last_error(), 0u);
}

TEST_F(WriterStrings, WireForms)
{
    struct Case {
        const char* text;
        uint32_t utf, order, length;
        bool dynamic;
        const char* bytes;
    };
    const Case cases[] = {
        {"Hi", 0, 0, 4, true, "00 00 00 06 | EF BB BF 48 69 00"},
        {"Hi", 1, 0, 4, true, "00 00 00 08 | FE FF 00 48 00 69 00 00"},
        {"Hi", 1, 1, 4, true, "08 00 00 00 | FF FE 48 00 69 00 00 00"},
        {"", 0, 0, 4, true, "00 00 00 04 | EF BB BF 00"},
        {"", 1, 1, 2, true, "04 00 | FF FE 00 00"},
        {"\xF0\x9F\x98\x80", 1, 0, 4, false, "00 00 00 08 | FE FF D8 3D DE 00 00 00"},
        {"\xF0\x9F\x98\x80", 1, 1, 1, false, "08 | FF FE 3D D8 00 DE 00 00"},
        {"\xC3\xA9\xE2\x82\xAC", 1, 0, 2, false, "00 08 | FE FF 00 E9 20 AC 00 00"},
        {"Hi", 0, 0, 0, false, "EF BB BF 48 69 00"},
        {"Hi", 0, 1, 2, false, "06 00 | EF BB BF 48 69 00"},
        {"\xEF\xBB\xBFHi", 0, 0, 1, false, "09 | EF BB BF EF BB BF 48 69 00"},  // a second mark
        {"\xEF\xBB\xBF", 1, 0, 0, false, "FE FF FE FF 00 00"},
        {"\xFF", 0, 0, 1, false, "05 | EF BB BF FF 00"},  // UTF-8 is not validated
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes);
        const ZQSomeIPExtendAttr a = attr(c.order, 1, c.length, c.utf);
        Writer w;
        EXPECT_EQ(w.write(std::string(c.text), &a, c.dynamic), 0u);
        EXPECT_EQ(w.to_buffer(), hex(c.bytes));
    }
}

TEST_F(WriterStrings, InvalidUtf8InUtf16ModeThrowsAfterFieldAndMark)
{
    // Stray continuation, overlong (2, 3, 4 bytes), surrogates, above U+10FFFF, bad continuation, truncated.
    for (const char* text : {"\x80", "\xFF", "a\xC0\x80", "\xE0\x80\xAF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80",
                             "\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xC3\x28", "abc\xE2\x82",
                             "\xF0\x9F\x98"}) {
        for (uint32_t order : {0u, 1u}) {
            SCOPED_TRACE(text);
            const ZQSomeIPExtendAttr a = attr(order, 1, 4, 1);
            Writer w;
            try {
                w.write(std::string(text), &a, true);
                ADD_FAILURE() << "no exception";
            } catch (const std::range_error& e) {
                EXPECT_STREQ(e.what(), "wstring_convert::from_bytes");
            }
            EXPECT_EQ(w.to_buffer(), hex(order ? "00 00 00 00 FF FE" : "00 00 00 00 FE FF"));
        }
    }
}

namespace {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
// The standard converter: false if it throws or leaves bytes unconverted (a truncated tail).
bool standard_utf16(const std::string& text, std::u16string& units)
{
    static std::wstring_convert<std::codecvt_utf8_utf16<char16_t, 0x10FFFF, std::little_endian>, char16_t> convert;
    try {
        units = convert.from_bytes(text);
    } catch (const std::range_error&) {
        return false;
    }
    return convert.converted() == text.size();
}
#pragma GCC diagnostic pop
} // namespace

// All 1- and 2-byte texts and a spread of 3- and 4-byte ones: the standard converter's code units, and a
// range_error where it throws, truncates, or lets a UTF-8-encoded surrogate (ED A0..BF) through.
TEST_F(WriterStrings, Utf16MatchesTheStandardConverter)
{
    std::vector<std::string> texts;
    const char tails[] = {'\x41', '\x80', '\xBF', '\xC0'};
    for (int c1 = 0; c1 < 256; ++c1) {
        texts.push_back(std::string(1, char(c1)));
        for (int c2 = 0; c2 < 256; ++c2) texts.push_back({char(c1), char(c2)});
        for (int c2 = 0; c1 >= 0xE0 && c1 < 0xF8 && c2 < 256; ++c2) {
            for (char c3 : tails) {
                texts.push_back({char(c1), char(c2), c3});
                for (char c4 : tails) if (c1 >= 0xF0) texts.push_back({char(c1), char(c2), c3, c4});
            }
        }
    }
    const ZQSomeIPExtendAttr a = attr(0, 1, 0, 1);
    Writer w;
    size_t mismatches = 0;
    for (const std::string& text : texts) {
        std::u16string units;
        const bool surrogate = text.size() > 1 && text[0] == '\xED' && u8(text[1]) >= 0xA0;
        const bool valid = standard_utf16(text, units) && !surrogate;
        Bytes expected = hex("FE FF");
        for (char16_t u : units) expected.insert(expected.end(), {u8(u >> 8), u8(u)});
        expected.insert(expected.end(), {0, 0});
        w.clear();
        bool threw = false;
        try {
            w.write(text, &a, false);
        } catch (const std::range_error&) {
            threw = true;
        }
        mismatches += valid ? (threw || w.to_buffer() != expected) : !threw;
    }
    EXPECT_EQ(mismatches, 0u);
}
