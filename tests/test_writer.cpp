// Unit tests of the payload writer engine (ZQSomeIPPayloadSerializerGeneral): exact bytes and failures.
#include <functional>
#include <initializer_list>
#include <stdexcept>

#include "engine_test_support.h"
#include "someip/ZQSomeIPPayloadSerializerGeneral.h"

namespace {

using namespace enginetest;
using Writer = ZQSomeIPPayloadSerializerGeneral;
using Script = std::function<uint32_t(Writer&)>;
using u8 = unsigned char;
using u16 = unsigned short;

// Results of calls listed in a braced list (evaluated left to right): 0 only if all are 0.
uint32_t all(std::initializer_list<uint32_t> results)
{
    uint32_t r = 0;
    for (uint32_t x : results) r |= x;
    return r;
}

using WriterWire = EngineTest;

// Each script runs on a fresh writer: what it returns, the last error, the bytes, the one error line it logs,
// and data_end() afterwards (2: every container was closed; a failed begin pushes nothing, a failed end pops nothing).
TEST_F(WriterWire, BytesCodesAndMessages)
{
    const auto primitives = [](Writer& w) {
        return all({w.write(true), w.write(static_cast<signed char>(-2)), w.write(u16(0x0102)), w.write(short(-2)),
                    w.write(0x01020304u), w.write(-2), w.write(0x0102030405060708ul), w.write(-2l), w.write(1.5f),
                    w.write(-2.5), w.write_enum(0x12345, 1), w.write_enum(0x12345, 2), w.write_enum(0x12345, 4)});
    };
    struct Case {
        const char* name;
        ZQSomeIPExtendAttr ctor;
        Script script;
        const char* bytes;  // null: a 1-byte length field and 257 bytes 0xAA
        uint32_t result = 0, last_error = 0, end = 2;
        const char* message = nullptr;
    };
    // `outer`: no struct length field, the rest inherited.
    const ZQSomeIPExtendAttr le = Attr().little(), be = Attr(), be4 = Attr().align(4);
    const ZQSomeIPExtendAttr outer = Attr().little().lengths(2).structLength(0);
    const ZQSomeIPExtendAttr three = Attr().lengths(3), none = Attr().align(4).lengths(0), sel3 = Attr().selector(3);
    const ZQSomeIPExtendAttr utf16 = Attr().utf16();
    const auto text = [](std::string t, ZQSomeIPExtendAttr a, bool dynamic) -> Script {
        return [=](Writer& w) { return w.write(t, &a, dynamic); };
    };
    const char* const nothing = "serialize array is null";
    const Case cases[] = {
        {"primitives big endian", be, primitives,
         "01 FE | 01 02 | FF FE | 01 02 03 04 | FF FF FF FE | 01 02 03 04 05 06 07 08 | FF FF FF FF FF FF FF FE"
         " | 3F C0 00 00 | C0 04 00 00 00 00 00 00 | 45 | 23 45 | 00 01 23 45"},
        {"primitives little endian", le, primitives,
         "01 FE | 02 01 | FE FF | 04 03 02 01 | FE FF FF FF | 08 07 06 05 04 03 02 01 | FE FF FF FF FF FF FF FF"
         " | 00 00 C0 3F | 00 00 00 00 00 00 04 C0 | 45 | 45 23 | 45 23 01 00"},
        {"explicit record wins", be, [&](Writer& w) { return all({w.write(1u), w.write(1u, &le)}); },
         "00 00 00 01 | 01 00 00 00"},
        {"union member ending on the alignment", Attr().align(8), [](Writer& w) {
             return all({w.union_data_begin(nullptr, 1), w.write(0x0102030405060708ul), w.data_end()}); },
         "00 00 00 08 | 00 00 00 01 | 01 02 03 04 05 06 07 08"},
        {"string and array block in unions", be4, [](Writer& w) {  // no 0xFF before the block: its frame is in a union
             return all({w.union_data_begin(nullptr, 1), w.write("Hi", nullptr, true), w.data_end(),
                         w.union_data_begin(nullptr, 3), w.array_data_begin(), w.vector_data_begin(), w.write(u8(1)),
                         w.data_end(), w.write(Bytes{2, 3}), w.data_end(), w.data_end()}); },
         "00 00 00 0C | 00 00 00 01 | 00 00 00 06 EF BB BF 48 69 00 | 00 00 | 00 00 00 0C | 00 00 00 03"
         " | 00 00 00 07 | 00 00 00 01 01 | 02 03 | 00"},
        {"vector inside struct", be4, [](Writer& w) { return all({w.struct_data_begin(), w.vector_data_begin(),
             w.write(u8(1)), w.data_end(), w.write(0xAABBCCDDu), w.write(u16(0x1122)), w.data_end()}); },
         "00 00 00 0E | 00 00 00 01 01 | FF FF FF | AA BB CC DD | 11 22"},
        {"array of vectors", be4, [](Writer& w) { return all({w.array_data_begin(), w.vector_data_begin(),
             w.write(u8(1)), w.data_end(), w.vector_data_begin(), w.write(u8(2)), w.write(u8(3)), w.data_end(),
             w.vector_data_begin(), w.write(u8(4)), w.data_end(), w.data_end()}); },
         "00 00 00 15 | 00 00 00 01 01 | FF FF FF | 00 00 00 02 02 03 | FF FF | 00 00 00 01 04"},
        {"top level: padding only after dynamic elements", be4, [](Writer& w) { return all({w.write(u8(1)),
             w.write(2u), w.write("Hi", nullptr, true), w.write(3u), w.write(u8(4)), w.vector_data_begin(),
             w.data_end(), w.write(Bytes{5, 5})}); },
         "01 | 00 00 00 02 | 00 00 00 06 EF BB BF 48 69 00 | FF | 00 00 00 03 | 04 | 00 00 00 00 | FF FF FF | 05 05"},
        {"dynamic strings in a struct", be4, [](Writer& w) { return all({w.struct_data_begin(),
             w.write("", nullptr, true), w.write(u8(1)), w.write("x", nullptr, true), w.write(u8(2)), w.data_end()}); },
         "00 00 00 15 | 00 00 00 04 EF BB BF 00 | 01 | 00 00 00 05 EF BB BF 78 00 | FF FF | 02"},
        {"dynamic strings in an array: no flag", be4, [](Writer& w) {
             return all({w.array_data_begin(), w.write("x", nullptr, true), w.write(u8(2)), w.data_end()}); },
         "00 00 00 0A | 00 00 00 05 EF BB BF 78 00 | 02"},
        {"inherited attributes, struct without length field", be, [&](Writer& w) { return all({
             w.struct_data_begin(&outer), w.vector_data_begin(), w.write(u16(0x0102)), w.data_end(), w.data_end()}); },
         "02 00 | 02 01"},
        {"top level strings: fixed defaults; in a frame: the writer's", Attr().align(8).lengths(2).utf16(),
         [](Writer& w) { return all({w.write(std::string("A")), w.struct_data_begin(), w.write(std::string("A")), w.data_end()}); },
         "00 00 00 05 EF BB BF 41 00 | 00 08 | 00 06 FE FF 00 41 00 00"},
        {"length cut to its width", Attr().lengths(1), [](Writer& w) { return all({w.struct_data_begin(),
             w.write(Bytes(257, 0xAA)), w.data_end(), w.tlv_data_begin(nullptr, 1)}); }, nullptr},
        // Strings. UTF-16 units come from the standard converter; these pin their framing and byte order.
        {"UTF-16 big endian, a surrogate pair", be, text("A\xF0\x9F\x98\x80", utf16, true),
         "00 00 00 0A | FE FF 00 41 D8 3D DE 00 00 00"},
        {"UTF-16 little endian", be, text("Hi", Attr().little().utf16(), true), "08 00 00 00 | FF FE 48 00 69 00 00 00"},
        {"UTF-16 of what the converter refuses: it throws after the length field and the mark", be, [&](Writer& w) {
             try { return w.write("\xFF", &utf16, true); } catch (const std::range_error&) { return 7u; } },
         "00 00 00 00 FE FF", 7},
        {"no length field", be, text("Hi", Attr().lengths(0), false), "EF BB BF 48 69 00"},
        {"a second mark", be, text("\xEF\xBB\xBFHi", Attr().little().lengths(2), false), "09 00 | EF BB BF EF BB BF 48 69 00"},
        {"mark as text", be, text("\xEF\xBB\xBF", Attr().lengths(0).utf16(), false), "FE FF FE FF 00 00"},
        {"UTF-8 is not validated", be, text("\xFF", Attr().lengths(1), false), "05 | EF BB BF FF 00"},
        // Failures.
        {"enum size 3", be, [](Writer& w) { return w.write_enum(5, 3); }, "", 1, 1, 2, "enum size:[3] error"},
        {"empty block", be, [](Writer& w) { return w.write(Bytes{}); }, "", 2, 2, 2, nothing},
        {"null block", be, [](Writer& w) { return w.write(static_cast<const u8*>(nullptr), 4); }, "", 2, 2, 2, nothing},
        {"zero length", be, [](Writer& w) { return w.write(Bytes{1}.data(), 0); }, "", 2, 2, 2, nothing},
        {"end with nothing open", be, [](Writer& w) { return w.data_end(); }, "", 2, 2},
        {"every container with length 3", three, [](Writer& w) { return w.struct_data_begin() + w.array_data_begin() +
             w.vector_data_begin() + w.union_data_begin(nullptr, 1); }, "", 4, 1},  // each of the four fails with 1
        {"union selector 3", be, [&](Writer& w) { return w.union_data_begin(&sel3, 1); }, "00 00 00 00", 1, 1},
        {"string length 3", be, [&](Writer& w) { return w.write("Hi", &three, false); }, "", 1, 1},
        {"dynamic string without length field", be, [&](Writer& w) {
             return all({w.write(u8(9), &none), w.write("Hi", &none, true), w.write(u8(9), &none)}); }, "09 09", 1, 1},
        {"clear keeps the last error", be, [](Writer& w) { return all({w.write(1u), w.write_enum(1, 3),
             w.clear() ? 0u : 9u, w.write(u8(7))}); }, "07", 1, 1, 2, "enum size:[3] error"},
        {"negative length after clear", be, [](Writer& w) { return all({w.struct_data_begin(), w.clear() ? 0u : 9u,
             w.data_end()}); }, "", 1, 1, 1, "length_field value:[-4], error"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Writer w(&c.ctor);
        EXPECT_EQ(c.script(w), c.result);
        EXPECT_EQ(w.get_last_error(), c.last_error);
        EXPECT_EQ(w.to_buffer(), c.bytes ? hex(c.bytes) : hex("01") + Bytes(257, 0xAA));
        EXPECT_EQ(errors.size(), c.message ? 1u : 0u);
        EXPECT_TRUE(!c.message || logged("ZQSomeIPPayloadSerializerGeneral.cpp", c.message)) << c.message;
        errors.clear();
        EXPECT_EQ(w.data_end(), c.end);
    }
}

TEST_F(WriterWire, LengthAndSelectorFieldsOf0124BytesInBothOrders)
{
    for (int i = 0; i < 32; ++i) {
        const int kind = i % 4;
        const uint32_t size = i / 8 == 3 ? 4 : i / 8, order = i / 4 % 2;
        SCOPED_TRACE(std::to_string(kind) + "/" + std::to_string(size) + "/" + std::to_string(order));
        const ZQSomeIPExtendAttr a = Attr().order(order).lengths(size).selector(size);
        Writer w(&a);
        const uint32_t begun = kind == 0 ? w.array_data_begin() : kind == 1 ? w.struct_data_begin()
                             : kind == 2 ? w.vector_data_begin() : w.union_data_begin(nullptr, 0x0A);
        ASSERT_EQ(all({begun, w.write(u16(0x0102)), w.data_end()}), 0u);
        EXPECT_EQ(w.to_buffer(), field(size, 2, order) + (kind == 3 ? field(size, 0x0A, order) : Bytes{}) +
                                     field(2, 0x0102, order));
    }
}

} // namespace
