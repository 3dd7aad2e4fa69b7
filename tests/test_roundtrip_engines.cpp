// Round trips between the payload writer (ZQSomeIPPayloadSerializerGeneral) and the payload reader
// (ZQSomeIPPayloadDeserializerGeneral): what one writes the other must read back, for every container
// and string form, both byte orders, every length field size, alignments and union selector sizes.
// Also the reader's robustness on every prefix and on mutations of a valid payload.
#include <cstdio>
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

struct Combo {
    uint32_t lfs, order, alignment, utf, type_size;  // one length field size for every kind
    ZQSomeIPExtendAttr attr() const { return enginetest::attr(order, alignment, lfs, utf, type_size); }
    std::string describe() const
    {
        char text[80];
        snprintf(text, sizeof text, "lfs=%u order=%u align=%u utf=%u tfs=%u", lfs, order, alignment, utf, type_size);
        return text;
    }
};

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
struct Item {
    Kind kind;
    int64_t n = 0;
    double x = 0;
    std::string s = {};
};

// Primitives, strings (dynamic when there are length fields), structs, vectors of blocks and of structs,
// unions holding a primitive, a string, a struct and a vector, arrays, and the alignment after each.
const std::vector<Item> kScenario = {
    {U8, 0xA5}, {Bool, 1}, {U16, 0xBEEF}, {I16, -12345}, {U32, 0xDEADBEEF}, {I32, -123456789},
    {U64, 0x0123456789ABCDEF}, {I64, -5}, {F32, 0, 3.25}, {F64, 0, -1e300}, {I8, -7}, {Enum2, 0x1234}, {Enum1, 7},
    {Enum4, 0x01020304}, {Str, 1, 0, "top-\xC3\xA9"}, {U32, 0x11111111},
    // struct { u16, "", string, u8, vector<u8>, u32, vector<struct { u32, string }>, u16 }
    {Struct}, {U16, 1}, {Str}, {Str, 0, 0, "n\xE2\x82\xAC\xF0\x9F\x98\x80"}, {U8, 2},
    {Vector}, {Block, 0, 0, "\1\2\3\4\5"}, {End}, {U32, 3}, {Vector}, {Struct}, {U32, 100}, {Str, 0, 0, "e0"}, {End},
    {Struct}, {U32, 101}, {Str, 0, 0, "elem-1"}, {End}, {End}, {U16, 4}, {End},
    {Union, 2}, {U16, 0x1234}, {End}, {U8, 0x33},
    // struct { unions of a string, a struct and a vector, array<u16>, array<vector<i8>>, u8 }
    {Struct}, {Union, 7}, {Str, 0, 0, "u"}, {End}, {Union, 1}, {Struct}, {U8, 9}, {End}, {End},
    {Union, 3}, {Vector}, {Block, 0, 0, "\7\10\11"}, {End}, {End}, {Array}, {U16, 10}, {U16, 11}, {U16, 12}, {End},
    {Array}, {Vector}, {SBlock, 0, 0, "\xFF\xFE"}, {End}, {Vector}, {SBlock, 0, 0, "\3"}, {End}, {End},
    {U8, 0x5A}, {End},
    {Vector}, {U16, 0x0102}, {U16, 0x0304}, {U16, 0x0506}, {End}, {U16, 0x7777}, {U32, 0xCAFEBABE},
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

// Writes the element with `w`, or reads it back with `r` and sets `ok` to whether it came back unchanged.
uint32_t transfer(Writer* w, Reader* r, const Item& it, const Combo& c, bool& ok)
{
    const ZQSomeIPExtendAttr a = c.attr();
    const ZQSomeIPExtendAttr* record = it.n ? &a : nullptr;
    const uint32_t size = it.kind == Enum1 ? 1 : it.kind == Enum2 ? 2 : 4, selector = static_cast<uint32_t>(it.n);
    const Bytes block(it.s.begin(), it.s.end());
    uint32_t type = 0xEEEE;  // left alone without a selector
    std::string text;
    Bytes got;
    std::vector<int8_t> sgot;
    switch (it.kind) {
    case U8: return number<uint8_t>(w, r, it, ok);
    case Bool: return number<bool>(w, r, it, ok);
    case U16: return number<uint16_t>(w, r, it, ok);
    case I16: return number<int16_t>(w, r, it, ok);
    case U32: return number<uint32_t>(w, r, it, ok);
    case I32: return number<int32_t>(w, r, it, ok);
    case U64: return number<uint64_t>(w, r, it, ok);
    case I64: return number<int64_t>(w, r, it, ok);
    case F32: return number<float>(w, r, it, ok);
    case F64: return number<double>(w, r, it, ok);
    case I8: return number<int8_t>(w, r, it, ok);
    case Enum1: case Enum2: case Enum4:
        return w ? w->write_enum(selector, size) : same(r->read_enum(type, size), type, selector, ok);
    case Str:
        return w ? w->write(it.s, record, c.lfs > 0)
                 : same(r->read(text, encoded_size(it.s, c.utf), record, c.lfs > 0), text, it.s, ok);
    case Block: return w ? w->write(block) : same(r->read(got, uint32_t(block.size())), got, block, ok);
    case SBlock:
        return w ? w->write(std::vector<signed char>(it.s.begin(), it.s.end()))
                 : same(r->read(sgot, uint32_t(it.s.size())), sgot, std::vector<int8_t>(it.s.begin(), it.s.end()), ok);
    case Struct: return w ? w->struct_data_begin() : r->struct_data_begin();
    case Array: return w ? w->array_data_begin() : r->array_data_begin();
    case Vector: return w ? w->vector_data_begin() : r->vector_data_begin();
    case Union:
        return w ? w->union_data_begin(nullptr, selector)
                 : same(r->union_data_begin(nullptr, type), type, c.type_size ? selector : 0xEEEEu, ok);
    case End: return w ? w->data_end() : r->data_end();
    }
    return 99;
}

Bytes written(const std::vector<Item>& items, const Combo& c)
{
    const ZQSomeIPExtendAttr a = c.attr();
    Writer w(&a);
    bool ok = true;
    for (const Item& it : items) EXPECT_EQ(transfer(&w, nullptr, it, c, ok), 0u) << c.describe();
    return w.to_buffer();
}

enum Mode { Verify, StopAtFailure, KeepGoing };

// Reads `items` back from `payload`. Verify expects every value and, with length fields, every container
// used up at its end; the other modes only want clean codes. Returns the last failure code.
uint32_t replay(const std::vector<Item>& items, const Bytes& payload, const Combo& c, Mode mode)
{
    const ZQSomeIPExtendAttr a = c.attr();
    Reader r(&a);
    r.from_buffer(Bytes(payload));
    for (size_t i = 0; i < items.size(); ++i) {
        if (mode == Verify && items[i].kind == End && c.lfs > 0) {
            EXPECT_EQ(r.check_length_field(), 3u) << "item " << i << " " << c.describe();
        }
        bool ok = true;
        const uint32_t code = transfer(nullptr, &r, items[i], c, ok);
        EXPECT_TRUE(code == 0 || (code <= 3 && r.get_last_error() == code)) << code;
        if (mode == Verify && (code != 0 || !ok)) {
            ADD_FAILURE() << "item " << i << " code " << code << " " << c.describe();
            return code;
        }
        if (code != 0 && mode == StopAtFailure) return code;
    }
    if (mode == Verify) {
        EXPECT_TRUE(r.is_empty() && r.get_index() == r.get_size()) << c.describe();
        EXPECT_EQ(r.data_end(), 2u);
        return 0;
    }
    return r.get_last_error();  // no call resets it
}

using RoundTripEngines = EngineTest;
using ReaderRobustness = EngineTest;

TEST_F(RoundTripEngines, NestedScenarioInEveryCombination)
{
    for (uint32_t i = 0; i < 256 && !HasFailure(); ++i) {
        const uint32_t sizes[] = {0, 1, 2, 4};
        const Combo c{sizes[i % 4], i / 4 % 2, 1u << (i / 8 % 4), i / 32 % 2, sizes[i / 64]};
        EXPECT_EQ(replay(kScenario, written(kScenario, c), c, Verify), 0u) << c.describe();
    }
}

// The plain string forms and a padded union, byte for byte, written and read back.
TEST_F(RoundTripEngines, WireExamples)
{
    struct Case {
        std::vector<Item> items;
        Combo combo;
        const char* bytes;
    };
    const Case cases[] = {
        {{{Str, 1, 0, "Hi"}}, {4, 0, 1, 0, 4}, "00 00 00 06 | EF BB BF 48 69 00"},
        {{{Str, 1, 0, "Hi"}}, {4, 0, 1, 1, 4}, "00 00 00 08 | FE FF 00 48 00 69 00 00"},
        {{{Str, 1, 0, "Hi"}}, {4, 1, 1, 1, 4}, "08 00 00 00 | FF FE 48 00 69 00 00 00"},
        {{{Str, 1, 0, "\xF0\x9F\x98\x80"}}, {4, 0, 1, 1, 4}, "00 00 00 08 | FE FF D8 3D DE 00 00 00"},
        {{{Str, 1, 0, ""}}, {4, 0, 1, 0, 4}, "00 00 00 04 | EF BB BF 00"},
        // A union member is written directly, then zeros up to the alignment counted from the length field.
        {{{Union, 2}, {U16, 0x1234}, {End}, {U8, 0xAB}}, {4, 0, 8, 0, 4},
         "00 00 00 08 | 00 00 00 02 | 12 34 | 00 00 00 00 00 00 | AB"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes);
        EXPECT_EQ(written(c.items, c.combo), hex(c.bytes));
        EXPECT_EQ(replay(c.items, hex(c.bytes), c.combo, Verify), 0u);
    }
}

const Combo kRobustnessCombos[] = {{4, 0, 8, 1, 4}, {1, 1, 4, 0, 1}, {0, 0, 4, 1, 2}, {2, 1, 2, 0, 0}, {4, 1, 1, 0, 4}};

// Every prefix of a valid payload: the replay stops at a clean code, never crashes or reads outside.
TEST_F(ReaderRobustness, EveryPrefixFailsCleanly)
{
    for (const Combo& c : kRobustnessCombos) {
        const Bytes payload = written(kScenario, c);
        for (size_t n = 0; n < payload.size(); ++n) {
            const Bytes prefix(payload.begin(), payload.begin() + static_cast<long>(n));
            const uint32_t code = replay(kScenario, prefix, c, StopAtFailure);
            EXPECT_TRUE(code == 1u || code == 3u) << "prefix " << n << " code " << code << " " << c.describe();
            try {  // the same, every call made whatever the earlier ones returned
                EXPECT_NE(replay(kScenario, prefix, c, KeepGoing), 0u) << "prefix " << n << " " << c.describe();
            } catch (const std::range_error&) {
                // garbage read as UTF-16 may hold unpaired surrogates
            }
        }
    }
}

// Random byte mutations of a valid payload: any code, but no crash and no read outside the buffer.
TEST_F(ReaderRobustness, MutatedPayloads)
{
    std::mt19937 rng(2024);
    for (const Combo& c : kRobustnessCombos) {
        const Bytes payload = written(kScenario, c);
        for (int round = 0; round < 300; ++round) {
            Bytes m = payload;
            for (uint32_t flips = 1 + rng() % 4; flips > 0; --flips) {
                m[rng() % m.size()] = rng() % 3 == 0 ? 0xFF : rng() % 2 ? 0x00 : static_cast<uint8_t>(rng());
            }
            if (rng() % 4 == 0) m.resize(rng() % m.size());
            try {
                replay(kScenario, m, c, KeepGoing);
            } catch (const std::range_error&) {
            }
        }
    }
}

} // namespace
