// Round trips between the payload writer (ZQSomeIPPayloadSerializerGeneral) and the payload reader
// (ZQSomeIPPayloadDeserializerGeneral): what one writes the other must read back, for every container
// and string form, both byte orders, every length field size, alignments and union selector sizes.
// Also the reader's robustness on every prefix and on mutations of a valid payload.
#include <random>
#include <stdexcept>
#include <type_traits>

#include "engine_test_support.h"
#include "someip/ZQSomeIPPayloadDeserializerGeneral.h"
#include "someip/ZQSomeIPPayloadSerializerGeneral.h"

namespace {

using namespace enginetest;
using Reader = ZQSomeIPPayloadDeserializerGeneral;
using Writer = ZQSomeIPPayloadSerializerGeneral;

// Bytes after the length field of an encoded string: mark, text, terminator.
uint32_t encoded_size(const std::string& utf8, uint32_t utf)
{
    uint32_t units = 0;
    for (unsigned char ch : utf8) units += (ch & 0xC0) == 0x80 ? 0 : ch >= 0xF0 ? 2 : 1;
    return utf == 1 ? 2 + 2 * units + 2 : static_cast<uint32_t>(3 + utf8.size() + 1);
}

enum Kind { U8, Bool, U16, I16, U32, I32, U64, I64, F32, F64, I8, Enum1, Enum2, Enum4, Str, Block, SBlock,
            Struct, Array, Vector, Union, End };

// One element: `n` an integer value or a union's selector (for Str: 1 = pass the record explicitly),
// `x` a floating value, `s` a string's text or a block's bytes.
struct Item { Kind kind; int64_t n = 0; double x = 0; std::string s = {}; };

// Primitives, strings (dynamic when there are length fields), structs, vectors of blocks and of structs,
// unions holding a primitive, a string, a struct and a vector, arrays, and the alignment after each.
const std::vector<Item> kScenario = {
    {U8, 0xA5}, {Bool, 1}, {U16, 0xBEEF}, {I16, -12345}, {U32, 0xDEADBEEF}, {I32, -123456789},
    {U64, 0x0123456789ABCDEF}, {I64, -5}, {F32, 0, 3.25}, {F64, 0, -1e300}, {I8, -7}, {Enum2, 0x1234}, {Enum1, 7},
    {Enum4, 0x01020304}, {Str, 1, 0, "top-\xC3\xA9"}, {U32, 0x11111111},
    // struct { u16, "", string, u8, vector<u8>, u32, vector<struct { u32, string }>, u16 }, union { u16 }, u8
    {Struct}, {U16, 1}, {Str}, {Str, 0, 0, "n\xE2\x82\xAC\xF0\x9F\x98\x80"}, {U8, 2}, {Vector},
    {Block, 0, 0, "\1\2\3\4\5"}, {End}, {U32, 3}, {Vector}, {Struct}, {U32, 100}, {Str, 0, 0, "e0"}, {End}, {Struct},
    {U32, 101}, {Str, 0, 0, "elem-1"}, {End}, {End}, {U16, 4}, {End}, {Union, 2}, {U16, 0x1234}, {End}, {U8, 0x33},
    // struct { unions of a string, a struct and a vector, array { u16, string, u16, u16 }, array<vector<i8>>, u8 },
    // vector<u16>, u16, u32
    {Struct}, {Union, 7}, {Str, 0, 0, "u"}, {End}, {Union, 1}, {Struct}, {U8, 9}, {End}, {End}, {Union, 3}, {Vector},
    {Block, 0, 0, "\7\10\11"}, {End}, {End}, {Array}, {U16, 10}, {Str, 0, 0, "in-array"}, {U16, 11}, {U16, 12}, {End},
    {Array}, {Vector}, {SBlock, 0, 0, "\xFF\xFE"}, {End}, {Vector}, {SBlock, 0, 0, "\3"}, {End}, {End}, {U8, 0x5A},
    {End}, {Vector}, {U16, 0x0102}, {U16, 0x0304}, {U16, 0x0506}, {End}, {U16, 0x7777}, {U32, 0xCAFEBABE},
};

// Passes `code` on and records whether the value read is the one expected.
template <typename T>
uint32_t same(uint32_t code, const T& got, const T& expected, bool& ok)
{
    ok = got == expected;
    return code;
}

template <typename T>
uint32_t number(Writer* w, Reader* r, const Item& it, bool& ok)
{
    const T value = std::is_floating_point<T>::value ? static_cast<T>(it.x) : static_cast<T>(it.n);
    T got{};
    return w ? w->write(value) : same(r->read(got), got, value, ok);
}

uint32_t (*const kNumbers[])(Writer*, Reader*, const Item&, bool&) = {
    number<uint8_t>, number<bool>, number<uint16_t>, number<int16_t>, number<uint32_t>, number<int32_t>,
    number<uint64_t>, number<int64_t>, number<float>, number<double>, number<int8_t>};

// Writes the element with `w`, or reads it back with `r` and sets `ok` to whether it came back unchanged.
uint32_t transfer(Writer* w, Reader* r, const Item& it, const ZQSomeIPExtendAttr& a, bool& ok)
{
    const ZQSomeIPExtendAttr* record = it.n ? &a : nullptr;
    const uint32_t size = it.kind == Enum1 ? 1 : it.kind == Enum2 ? 2 : 4, selector = static_cast<uint32_t>(it.n);
    const bool dynamic = a.string_length_field_size > 0;
    const Bytes block(it.s.begin(), it.s.end());
    const std::vector<int8_t> sblock(it.s.begin(), it.s.end());
    uint32_t type = 0xEEEE;  // left alone without a selector
    std::string text;
    Bytes got;
    std::vector<int8_t> sgot;
    switch (it.kind) {
    case U8: case Bool: case U16: case I16: case U32: case I32: case U64: case I64: case F32: case F64: case I8:
        return kNumbers[it.kind](w, r, it, ok);
    case Enum1: case Enum2: case Enum4:
        return w ? w->write_enum(selector, size) : same(r->read_enum(type, size), type, selector, ok);
    case Str:
        return w ? w->write(it.s, record, dynamic)
                 : same(r->read(text, encoded_size(it.s, a.string_utf), record, dynamic), text, it.s, ok);
    case Block: return w ? w->write(block) : same(r->read(got, uint32_t(block.size())), got, block, ok);
    case SBlock: return w ? w->write(sblock) : same(r->read(sgot, uint32_t(sblock.size())), sgot, sblock, ok);
    case Struct: return w ? w->struct_data_begin() : r->struct_data_begin();
    case Array: return w ? w->array_data_begin() : r->array_data_begin();
    case Vector: return w ? w->vector_data_begin() : r->vector_data_begin();
    case Union:
        return w ? w->union_data_begin(nullptr, selector)
                 : same(r->union_data_begin(nullptr, type), type, a.union_type_field_size ? selector : 0xEEEEu, ok);
    case End: return w ? w->data_end() : r->data_end();
    }
    return 99;
}

Bytes written(const std::vector<Item>& items, const ZQSomeIPExtendAttr& a)
{
    Writer w(&a);
    bool ok = true;
    for (const Item& it : items) EXPECT_EQ(transfer(&w, nullptr, it, a, ok), 0u);
    return w.to_buffer();
}

enum Mode { Verify, StopAtFailure, KeepGoing };

// Reads `items` back from `payload`. Verify expects every value and, with length fields, every container
// used up at its end, and reports what it misses as test failures; the other modes only want clean codes.
// Returns the last failure code.
uint32_t replay(const std::vector<Item>& items, const Bytes& payload, const ZQSomeIPExtendAttr& a, Mode mode)
{
    Reader r(&a);
    r.from_buffer(Bytes(payload));
    for (size_t i = 0; i < items.size(); ++i) {
        const bool closing = mode == Verify && items[i].kind == End && a.string_length_field_size > 0;
        EXPECT_TRUE(!closing || r.check_length_field() == 3) << "item " << i << ": container not used up";
        bool ok = true;
        const uint32_t code = transfer(nullptr, &r, items[i], a, ok);
        EXPECT_TRUE(code == 0 || (code <= 3 && r.get_last_error() == code)) << code;
        EXPECT_TRUE(mode != Verify || (code == 0 && ok)) << "item " << i << " code " << code;
        if (code != 0 && mode != KeepGoing) return code;
    }
    EXPECT_TRUE(mode != Verify || (r.get_index() == r.get_size() && r.data_end() == 2)) << "payload left over";
    return r.get_last_error();  // no call resets it
}

using RoundTripEngines = EngineTest;
using ReaderRobustness = EngineTest;

TEST_F(RoundTripEngines, NestedScenarioInEveryCombination)
{
    // Bits 0-1 of i: length field size 0, 1, 2 or 4; 2: byte order; 3-4: alignment 1 to 8; 5: UTF-16;
    // 6-7: selector size 0, 1, 2 or 4.
    for (uint32_t i = 0; i < 256 && !HasFailure(); ++i) {
        const ZQSomeIPExtendAttr a = Attr()
                                         .order(i / 4 % 2)
                                         .align(1u << (i / 8 % 4))
                                         .lengths((1u << i % 4) >> 1)
                                         .utf16(i / 32 % 2)
                                         .selector((1u << i / 64) >> 1);
        SCOPED_TRACE("combination " + std::to_string(i));
        replay(kScenario, written(kScenario, a), a, Verify);
    }
}

// Every prefix of a valid payload, and as many copies with a few bytes overwritten: read item by item, a
// prefix stops at a clean code; with every call made whatever the earlier ones returned, no input crashes
// or reads outside the buffer (garbage read as UTF-16 may hold unpaired surrogates and throw).
TEST_F(ReaderRobustness, PrefixesAndMutations)
{
    std::mt19937 rng(2024);
    const ZQSomeIPExtendAttr records[] = {Attr().align(8).utf16(), Attr().little().align(4).lengths(1).selector(1),
                                          Attr().align(4).lengths(0).utf16().selector(2),
                                          Attr().little().align(2).lengths(2).selector(0), Attr().little()};
    for (const ZQSomeIPExtendAttr& a : records) {
        SCOPED_TRACE("record " + std::to_string(&a - records));
        const Bytes payload = written(kScenario, a);
        for (size_t n = 0; n < payload.size(); ++n) {
            const Bytes prefix(payload.begin(), payload.begin() + static_cast<long>(n));
            const uint32_t code = replay(kScenario, prefix, a, StopAtFailure);
            EXPECT_TRUE(code == 1u || code == 3u) << "prefix " << n << " code " << code;
            Bytes mutated = payload;
            for (uint32_t flips = 1 + rng() % 4; flips > 0; --flips)  // mostly 0xFF or 0x00: length fields go wild
                mutated[rng() % mutated.size()] = rng() % 3 == 0 ? 0xFF : rng() % 2 ? 0 : static_cast<uint8_t>(rng());
            for (const Bytes& input : {prefix, mutated}) {
                try {  // only the prefix must fail
                    EXPECT_TRUE(replay(kScenario, input, a, KeepGoing) != 0 || input.size() == payload.size()) << n;
                } catch (const std::range_error&) {
                }
            }
        }
    }
}

} // namespace
