// Round trips between the payload writer (ZQSomeIPPayloadSerializerGeneral) and the payload reader
// (ZQSomeIPPayloadDeserializerGeneral): what one writes the other must read back, for every container
// and string form, both byte orders, every length field size, alignments and union selector sizes.
// Also the reader's robustness on every prefix and on mutations of a valid payload.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "someip/ZQSomeIPPayloadDeserializerGeneral.h"
#include "someip/ZQSomeIPPayloadSerializerGeneral.h"
#include "someip/zq_someip_log.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Reader = ZQSomeIPPayloadDeserializerGeneral;
using Writer = ZQSomeIPPayloadSerializerGeneral;

struct Combo {
    uint32_t lfs;        // every length field size
    uint32_t order;      // byte order
    uint32_t alignment;
    uint32_t utf;        // string encoding
    uint32_t type_size;  // union selector size
};

std::string describe(const Combo& c)
{
    return "lfs=" + std::to_string(c.lfs) + " order=" + std::to_string(c.order) + " align=" +
           std::to_string(c.alignment) + " utf=" + std::to_string(c.utf) + " tfs=" + std::to_string(c.type_size);
}

ZQSomeIPExtendAttr attr_of(const Combo& c)
{
    ZQSomeIPExtendAttr a;
    a.array_length_field_size = c.lfs;
    a.vector_length_field_size = c.lfs;
    a.struct_length_field_size = c.lfs;
    a.string_length_field_size = c.lfs;
    a.union_length_field_size = c.lfs;
    a.alignment = c.alignment;
    a.byte_order = c.order;
    a.union_type_field_size = c.type_size;
    a.string_utf = c.utf;
    return a;
}

// Bytes after the length field of an encoded string: mark, text, terminator.
uint32_t encoded_size(const std::string& utf8, uint32_t utf)
{
    if (utf != 1) {
        return static_cast<uint32_t>(3 + utf8.size() + 1);
    }
    uint32_t units = 0;
    for (unsigned char ch : utf8) {
        if ((ch & 0xC0) != 0x80) {
            units += ch >= 0xF0 ? 2 : 1;
        }
    }
    return 2 + 2 * units + 2;
}

class EngineRoundTripTest : public ::testing::Test {
protected:
    void SetUp() override { unsetenv("SOMEIPSER_LOG_LEVEL"); }  // keep the many expected failures quiet
};

using RoundTripEngines = EngineRoundTripTest;
using ReaderRobustness = EngineRoundTripTest;

// ------------------------------------------------------------------------------------------------
// The nested scenario, written by the writer and read back by the reader.

const std::string kTop = "top-\xC3\xA9";                        // "top-é"
const std::string kName = "n\xE2\x82\xAC\xF0\x9F\x98\x80";      // "n€😀"
const std::string kElem[2] = {"e0", "elem-1"};
const Bytes kBlock{1, 2, 3, 4, 5};
const Bytes kUnionBlock{7, 8, 9};
const std::vector<signed char> kSmallVectors[2] = {{-1, -2}, {3}};

uint32_t write_scenario(Writer& w, const Combo& c)
{
    const ZQSomeIPExtendAttr A = attr_of(c);
    const bool dyn = c.lfs > 0;
    uint32_t r = 0;
    // Top-level primitives.
    r |= w.write(static_cast<unsigned char>(0xA5));
    r |= w.write(true);
    r |= w.write(static_cast<unsigned short>(0xBEEF));
    r |= w.write(static_cast<short>(-12345));
    r |= w.write(0xDEADBEEFu);
    r |= w.write(-123456789);
    r |= w.write(0x0123456789ABCDEFul);
    r |= w.write(-5l);
    r |= w.write(3.25f);
    r |= w.write(-1e300);
    r |= w.write(static_cast<signed char>(-7));
    r |= w.write_enum(0x1234, 2);
    r |= w.write_enum(0x07, 1);
    r |= w.write_enum(0x01020304, 4);
    // Top-level dynamic string, then an element aligned after it.
    r |= w.write(kTop, &A, dyn);
    r |= w.write(0x11111111u);
    // struct S1
    r |= w.struct_data_begin(nullptr);
    r |= w.write(static_cast<unsigned short>(1));
    r |= w.write(kName, nullptr, dyn);
    r |= w.write(static_cast<unsigned char>(2));
    r |= w.vector_data_begin(nullptr);
    r |= w.write(kBlock);
    r |= w.data_end();
    r |= w.write(3u);
    r |= w.vector_data_begin(nullptr);
    for (int i = 0; i < 2; ++i) {
        r |= w.struct_data_begin(nullptr);
        r |= w.write(static_cast<unsigned int>(100 + i));
        r |= w.write(kElem[i], nullptr, dyn);
        r |= w.data_end();
    }
    r |= w.data_end();
    r |= w.write(static_cast<unsigned short>(4));
    r |= w.data_end();
    // Top-level union, then a byte.
    r |= w.union_data_begin(nullptr, 2);
    r |= w.write(static_cast<unsigned short>(0x1234));
    r |= w.data_end();
    r |= w.write(static_cast<unsigned char>(0x33));
    // struct S2
    r |= w.struct_data_begin(nullptr);
    r |= w.union_data_begin(nullptr, 7);
    r |= w.write(std::string("u"), nullptr, dyn);
    r |= w.data_end();
    r |= w.union_data_begin(nullptr, 1);
    r |= w.struct_data_begin(nullptr);
    r |= w.write(static_cast<unsigned char>(9));
    r |= w.data_end();
    r |= w.data_end();
    r |= w.union_data_begin(nullptr, 3);
    r |= w.vector_data_begin(nullptr);
    r |= w.write(kUnionBlock);
    r |= w.data_end();
    r |= w.data_end();
    r |= w.array_data_begin(nullptr);
    for (unsigned short v : {10, 11, 12}) {
        r |= w.write(v);
    }
    r |= w.data_end();
    r |= w.array_data_begin(nullptr);
    for (const auto& v : kSmallVectors) {
        r |= w.vector_data_begin(nullptr);
        r |= w.write(v);
        r |= w.data_end();
    }
    r |= w.data_end();
    r |= w.write(static_cast<unsigned char>(0x5A));
    r |= w.data_end();
    // Top-level vector of uint16 element by element, then an element aligned after it.
    r |= w.vector_data_begin(nullptr);
    for (unsigned short v : {0x0102, 0x0304, 0x0506}) {
        r |= w.write(v);
    }
    r |= w.data_end();
    r |= w.write(static_cast<unsigned short>(0x7777));
    r |= w.write(0xCAFEBABEu);
    return r;
}

// Replays the reads of write_scenario. With `check` the values are compared and the container ends
// probed; without it the first failing call ends the replay (`stop`) or every call is made anyway.
// Returns the first nonzero code, 0 when every call succeeded.
class Replay {
public:
    Replay(Reader& r, const Combo& c, bool check, bool stop) : r_(r), c_(c), check_(check), stop_(stop) {}

    uint32_t run()
    {
        const ZQSomeIPExtendAttr A = attr_of(c_);
        const bool dyn = c_.lfs > 0;
        const uint32_t L = c_.lfs;
        uint8_t u8 = 0;
        bool b = false;
        uint16_t u16 = 0;
        int16_t i16 = 0;
        uint32_t u32 = 0;
        int32_t i32 = 0;
        uint64_t u64 = 0;
        int64_t i64 = 0;
        float f = 0;
        double d = 0;
        int8_t i8 = 0;
        std::string s;
        Bytes block;
        std::vector<int8_t> sblock;

        if (!step(r_.read(u8)) || !eq(u8, 0xA5)) return first_;
        if (!step(r_.read(b)) || !eq(b, true)) return first_;
        if (!step(r_.read(u16)) || !eq(u16, 0xBEEF)) return first_;
        if (!step(r_.read(i16)) || !eq(i16, -12345)) return first_;
        if (!step(r_.read(u32)) || !eq(u32, 0xDEADBEEFu)) return first_;
        if (!step(r_.read(i32)) || !eq(i32, -123456789)) return first_;
        if (!step(r_.read(u64)) || !eq(u64, 0x0123456789ABCDEFull)) return first_;
        if (!step(r_.read(i64)) || !eq(i64, -5)) return first_;
        if (!step(r_.read(f)) || !eq(f, 3.25f)) return first_;
        if (!step(r_.read(d)) || !eq(d, -1e300)) return first_;
        if (!step(r_.read(i8)) || !eq(i8, -7)) return first_;
        if (!step(r_.read_enum(u32, 2)) || !eq(u32, 0x1234u)) return first_;
        if (!step(r_.read_enum(u32, 1)) || !eq(u32, 0x07u)) return first_;
        if (!step(r_.read_enum(u32, 4)) || !eq(u32, 0x01020304u)) return first_;
        if (!step(r_.read(s, encoded_size(kTop, c_.utf), &A, dyn)) || !eq(s, kTop)) return first_;
        if (!step(r_.read(u32)) || !eq(u32, 0x11111111u)) return first_;

        // struct S1
        if (!step(r_.struct_data_begin(nullptr))) return first_;
        if (!step(r_.read(u16)) || !eq(u16, 1)) return first_;
        if (!step(r_.read(s, encoded_size(kName, c_.utf), nullptr, dyn)) || !eq(s, kName)) return first_;
        if (!step(r_.read(u8)) || !eq(u8, 2)) return first_;
        if (!step(r_.vector_data_begin(nullptr))) return first_;
        if (!step(r_.read(block, static_cast<uint32_t>(kBlock.size()))) || !eq(block, kBlock)) return first_;
        if (!full()) return first_;
        if (!step(r_.data_end())) return first_;
        if (!step(r_.read(u32)) || !eq(u32, 3u)) return first_;
        if (!step(r_.vector_data_begin(nullptr))) return first_;
        for (int i = 0; i < 2; ++i) {
            if (!step(r_.struct_data_begin(nullptr))) return first_;
            if (!step(r_.read(u32)) || !eq(u32, static_cast<uint32_t>(100 + i))) return first_;
            if (!step(r_.read(s, encoded_size(kElem[i], c_.utf), nullptr, dyn)) || !eq(s, kElem[i])) return first_;
            if (!full()) return first_;
            if (!step(r_.data_end())) return first_;
        }
        if (check_ && L > 0 && !eq(r_.struct_data_begin(nullptr), 3u)) return first_;  // vector used up
        if (!step(r_.data_end())) return first_;
        if (!step(r_.read(u16)) || !eq(u16, 4)) return first_;
        if (!full()) return first_;
        if (!step(r_.data_end())) return first_;

        // Top-level union.
        uint32_t type = 0xEEEE;
        if (!step(r_.union_data_begin(nullptr, type)) || !eq(type, c_.type_size ? 2u : 0xEEEEu)) return first_;
        if (!step(r_.read(u16)) || !eq(u16, 0x1234)) return first_;
        if (!full()) return first_;
        if (!step(r_.data_end())) return first_;
        if (!step(r_.read(u8)) || !eq(u8, 0x33)) return first_;

        // struct S2
        if (!step(r_.struct_data_begin(nullptr))) return first_;
        type = 0xEEEE;
        if (!step(r_.union_data_begin(nullptr, type)) || !eq(type, c_.type_size ? 7u : 0xEEEEu)) return first_;
        if (!step(r_.read(s, encoded_size("u", c_.utf), nullptr, dyn)) || !eq(s, std::string("u"))) return first_;
        if (!full()) return first_;
        if (!step(r_.data_end())) return first_;
        type = 0xEEEE;
        if (!step(r_.union_data_begin(nullptr, type)) || !eq(type, c_.type_size ? 1u : 0xEEEEu)) return first_;
        if (!step(r_.struct_data_begin(nullptr))) return first_;
        if (!step(r_.read(u8)) || !eq(u8, 9)) return first_;
        if (!step(r_.data_end())) return first_;
        if (!full()) return first_;
        if (!step(r_.data_end())) return first_;
        type = 0xEEEE;
        if (!step(r_.union_data_begin(nullptr, type)) || !eq(type, c_.type_size ? 3u : 0xEEEEu)) return first_;
        if (!step(r_.vector_data_begin(nullptr))) return first_;
        if (!step(r_.read(block, static_cast<uint32_t>(kUnionBlock.size()))) || !eq(block, kUnionBlock)) return first_;
        if (!step(r_.data_end())) return first_;
        if (!full()) return first_;
        if (!step(r_.data_end())) return first_;
        if (!step(r_.array_data_begin(nullptr))) return first_;
        for (uint16_t v : {10, 11, 12}) {
            if (!step(r_.read(u16)) || !eq(u16, v)) return first_;
        }
        if (!full()) return first_;
        if (!step(r_.data_end())) return first_;
        if (!step(r_.array_data_begin(nullptr))) return first_;
        for (const auto& v : kSmallVectors) {
            if (!step(r_.vector_data_begin(nullptr))) return first_;
            if (!step(r_.read(sblock, static_cast<uint32_t>(v.size()))) || !eq(sblock, std::vector<int8_t>(v.begin(), v.end())))
                return first_;
            if (!step(r_.data_end())) return first_;
        }
        if (!full()) return first_;
        if (!step(r_.data_end())) return first_;
        if (!step(r_.read(u8)) || !eq(u8, 0x5A)) return first_;
        if (!full()) return first_;
        if (!step(r_.data_end())) return first_;

        // Top-level vector element by element.
        if (!step(r_.vector_data_begin(nullptr))) return first_;
        for (uint16_t v : {0x0102, 0x0304, 0x0506}) {
            if (!step(r_.read(u16)) || !eq(u16, v)) return first_;
        }
        if (!full()) return first_;
        if (!step(r_.data_end())) return first_;
        if (!step(r_.read(u16)) || !eq(u16, 0x7777)) return first_;
        if (!step(r_.read(u32)) || !eq(u32, 0xCAFEBABEu)) return first_;
        if (check_) {
            EXPECT_TRUE(r_.is_empty()) << describe(c_);
            EXPECT_EQ(r_.get_index(), r_.get_size()) << describe(c_);
            EXPECT_EQ(r_.data_end(), 2u);
        }
        return first_;
    }

private:
    // Records a result; false ends the replay.
    bool step(uint32_t code)
    {
        EXPECT_LE(code, 3u);
        if (code != 0) {
            if (first_ == 0) {
                first_ = code;
                EXPECT_EQ(r_.get_last_error(), code);
            }
            if (check_) {
                ADD_FAILURE() << "code " << code << " at index " << r_.get_index() << " " << describe(c_);
            }
            return !stop_;
        }
        return true;
    }
    template <typename T, typename U>
    bool eq(const T& got, const U& expected)
    {
        if (check_) {
            EXPECT_EQ(got, static_cast<T>(expected)) << describe(c_);
            return got == static_cast<T>(expected);
        }
        return true;
    }
    // With length fields the innermost length-delimited container is now used up.
    bool full()
    {
        if (check_ && c_.lfs > 0) {
            const uint32_t code = r_.check_length_field();
            EXPECT_EQ(code, 3u) << "at index " << r_.get_index() << " " << describe(c_);
            return code == 3u;
        }
        return true;
    }

    Reader& r_;
    Combo c_;
    bool check_;
    bool stop_;
    uint32_t first_ = 0;
};

std::vector<Combo> all_combos()
{
    std::vector<Combo> out;
    for (uint32_t lfs : {0u, 1u, 2u, 4u}) {
        for (uint32_t order : {0u, 1u}) {
            for (uint32_t alignment : {1u, 2u, 4u, 8u}) {
                for (uint32_t utf : {0u, 1u}) {
                    for (uint32_t tfs : {0u, 1u, 2u, 4u}) {
                        out.push_back({lfs, order, alignment, utf, tfs});
                    }
                }
            }
        }
    }
    return out;
}

Bytes written(const Combo& c)
{
    const ZQSomeIPExtendAttr A = attr_of(c);
    Writer w(&A);
    EXPECT_EQ(write_scenario(w, c), 0u) << describe(c);
    return w.to_buffer();
}

TEST_F(RoundTripEngines, NestedScenarioInEveryCombination)
{
    for (const Combo& c : all_combos()) {
        const Bytes payload = written(c);
        const ZQSomeIPExtendAttr A = attr_of(c);
        Reader r(&A);
        ASSERT_EQ(r.from_buffer(payload), 0u);
        EXPECT_EQ(Replay(r, c, true, true).run(), 0u) << describe(c);
        if (HasFailure()) {
            return;  // one broken combination is enough to look at
        }
    }
}

// Every prefix of a valid payload: the replay must stop at a clean code, never crash or read outside.
TEST_F(ReaderRobustness, EveryPrefixFailsCleanly)
{
    const Combo combos[] = {{4, 0, 8, 1, 4}, {1, 1, 4, 0, 1}, {0, 0, 4, 1, 2}, {2, 1, 2, 0, 0}, {4, 1, 1, 0, 4}};
    for (const Combo& c : combos) {
        const Bytes payload = written(c);
        ASSERT_GT(payload.size(), 100u);
        const ZQSomeIPExtendAttr A = attr_of(c);
        for (size_t n = 0; n < payload.size(); ++n) {
            Reader r(&A);
            ASSERT_EQ(r.from_buffer(Bytes(payload.begin(), payload.begin() + static_cast<long>(n))), 0u);
            const uint32_t code = Replay(r, c, false, true).run();
            EXPECT_TRUE(code == 1u || code == 3u) << "prefix " << n << " code " << code << " " << describe(c);
        }
        for (size_t n = 0; n < payload.size(); ++n) {
            // The same, but every call is made whatever the earlier ones returned.
            Reader r(&A);
            ASSERT_EQ(r.from_buffer(Bytes(payload.begin(), payload.begin() + static_cast<long>(n))), 0u);
            try {
                EXPECT_NE(Replay(r, c, false, false).run(), 0u) << "prefix " << n << " " << describe(c);
            } catch (const std::range_error&) {
                // garbage read as UTF-16 may hold unpaired surrogates
            }
        }
        Reader whole(&A);
        ASSERT_EQ(whole.from_buffer(payload), 0u);
        EXPECT_EQ(Replay(whole, c, false, true).run(), 0u) << describe(c);
    }
}

// Random byte mutations of a valid payload: any code, but no crash and no read outside the buffer.
TEST_F(ReaderRobustness, MutatedPayloads)
{
    std::mt19937 rng(2024);
    const Combo combos[] = {{4, 0, 8, 1, 4}, {1, 1, 4, 0, 1}, {2, 0, 1, 1, 2}};
    for (const Combo& c : combos) {
        const Bytes payload = written(c);
        const ZQSomeIPExtendAttr A = attr_of(c);
        for (int round = 0; round < 400; ++round) {
            Bytes m = payload;
            const int flips = 1 + static_cast<int>(rng() % 4);
            for (int i = 0; i < flips; ++i) {
                const uint32_t pick = rng() % 3;
                m[rng() % m.size()] = pick == 0 ? 0xFF : pick == 1 ? 0x00 : static_cast<uint8_t>(rng());
            }
            if (rng() % 4 == 0) {
                m.resize(rng() % m.size());
            }
            Reader r(&A);
            r.from_buffer(std::move(m));
            try {
                Replay(r, c, false, false).run();
            } catch (const std::range_error&) {
            }
        }
    }
}

// ------------------------------------------------------------------------------------------------
// Focused round trips.

TEST_F(RoundTripEngines, StringsEveryFormAndLengthField)
{
    const std::string texts[] = {"", "A", "Hi", "caf\xC3\xA9", "\xE2\x82\xAC\xF0\x9F\x98\x80z", std::string("a\0b", 3)};
    for (uint32_t lfs : {0u, 1u, 2u, 4u}) {
        for (uint32_t order : {0u, 1u}) {
            for (uint32_t utf : {0u, 1u}) {
                const Combo c{lfs, order, 1, utf, 4};
                const ZQSomeIPExtendAttr A = attr_of(c);
                for (const std::string& t : texts) {
                    Writer w(&A);
                    ASSERT_EQ(w.write(t, &A, lfs > 0), 0u);
                    ASSERT_EQ(w.write(static_cast<unsigned char>(0x42)), 0u);
                    Reader r(&A);
                    ASSERT_EQ(r.from_buffer(w.to_buffer()), 0u);
                    std::string got;
                    ASSERT_EQ(r.read(got, encoded_size(t, utf), &A, lfs > 0), 0u) << describe(c);
                    // UTF-8 stops at an embedded zero; UTF-16 keeps U+0000.
                    const std::string expected = utf == 1 ? t : std::string(t.c_str());
                    EXPECT_EQ(got, expected) << describe(c);
                    uint8_t next = 0;
                    ASSERT_EQ(r.read(next), 0u);
                    EXPECT_EQ(next, 0x42);
                    EXPECT_TRUE(r.is_empty());
                }
            }
        }
    }
}

TEST_F(RoundTripEngines, ContainersEveryLengthFieldSize)
{
    for (uint32_t lfs : {0u, 1u, 2u, 4u}) {
        for (uint32_t order : {0u, 1u}) {
            const Combo c{lfs, order, 1, 0, 4};
            const ZQSomeIPExtendAttr A = attr_of(c);
            Writer w(&A);
            ASSERT_EQ(w.struct_data_begin(nullptr), 0u);
            ASSERT_EQ(w.array_data_begin(nullptr), 0u);
            for (unsigned int v : {1u, 2u}) {
                ASSERT_EQ(w.write(v), 0u);
            }
            ASSERT_EQ(w.data_end(), 0u);
            ASSERT_EQ(w.vector_data_begin(nullptr), 0u);
            ASSERT_EQ(w.write(-1.5), 0u);
            ASSERT_EQ(w.data_end(), 0u);
            ASSERT_EQ(w.union_data_begin(nullptr, 5), 0u);
            ASSERT_EQ(w.write(static_cast<short>(-3)), 0u);
            ASSERT_EQ(w.data_end(), 0u);
            ASSERT_EQ(w.data_end(), 0u);

            Reader r(&A);
            ASSERT_EQ(r.from_buffer(w.to_buffer()), 0u);
            ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
            if (lfs > 0) {
                EXPECT_EQ(r.get_length_field_value(), w.to_buffer().size() - lfs);
            }
            ASSERT_EQ(r.array_data_begin(nullptr), 0u);
            uint32_t u = 0;
            ASSERT_EQ(r.read(u), 0u);
            EXPECT_EQ(u, 1u);
            ASSERT_EQ(r.read(u), 0u);
            EXPECT_EQ(u, 2u);
            ASSERT_EQ(r.data_end(), 0u);
            ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
            double d = 0;
            ASSERT_EQ(r.read(d), 0u);
            EXPECT_EQ(d, -1.5);
            ASSERT_EQ(r.data_end(), 0u);
            uint32_t type = 0;
            ASSERT_EQ(r.union_data_begin(nullptr, type), 0u);
            EXPECT_EQ(type, 5u);
            int16_t s = 0;
            ASSERT_EQ(r.read(s), 0u);
            EXPECT_EQ(s, -3);
            ASSERT_EQ(r.data_end(), 0u);
            ASSERT_EQ(r.data_end(), 0u);
            EXPECT_TRUE(r.is_empty());
        }
    }
}

TEST_F(RoundTripEngines, UnionPaddingMatchesSpecExample)
{
    ZQSomeIPExtendAttr A = attr_of({4, 0, 8, 0, 4});
    Writer w(&A);
    ASSERT_EQ(w.union_data_begin(nullptr, 2), 0u);
    ASSERT_EQ(w.write(static_cast<unsigned short>(0x1234)), 0u);
    ASSERT_EQ(w.data_end(), 0u);
    ASSERT_EQ(w.write(static_cast<unsigned char>(0xAB)), 0u);
    const Bytes expected{0, 0, 0, 8, 0, 0, 0, 2, 0x12, 0x34, 0, 0, 0, 0, 0, 0, 0xAB};
    ASSERT_EQ(w.to_buffer(), expected);
    Reader r(&A);
    ASSERT_EQ(r.from_buffer(w.to_buffer()), 0u);
    uint32_t type = 0;
    ASSERT_EQ(r.union_data_begin(nullptr, type), 0u);
    EXPECT_EQ(type, 2u);
    uint16_t v = 0;
    ASSERT_EQ(r.read(v), 0u);
    EXPECT_EQ(v, 0x1234);
    EXPECT_EQ(r.get_index(), 16u);
    ASSERT_EQ(r.data_end(), 0u);
    uint8_t b = 0;
    ASSERT_EQ(r.read(b), 0u);
    EXPECT_EQ(b, 0xAB);
}

TEST_F(RoundTripEngines, AlignmentAfterVectorsAndDynamicStrings)
{
    for (uint32_t alignment : {2u, 4u, 8u}) {
        for (uint32_t order : {0u, 1u}) {
            const Combo c{4, order, alignment, 0, 4};
            const ZQSomeIPExtendAttr A = attr_of(c);
            Writer w(&A);
            ASSERT_EQ(w.write(std::string("abc"), &A, true), 0u);  // 4 + 7 = 11
            ASSERT_EQ(w.write(static_cast<unsigned char>(1)), 0u);
            ASSERT_EQ(w.struct_data_begin(nullptr), 0u);
            ASSERT_EQ(w.vector_data_begin(nullptr), 0u);
            ASSERT_EQ(w.write(static_cast<unsigned char>(2)), 0u);
            ASSERT_EQ(w.data_end(), 0u);
            ASSERT_EQ(w.write(static_cast<unsigned char>(3)), 0u);
            ASSERT_EQ(w.write(std::string("x"), nullptr, true), 0u);
            ASSERT_EQ(w.write(static_cast<unsigned char>(4)), 0u);
            ASSERT_EQ(w.write(static_cast<unsigned char>(5)), 0u);
            ASSERT_EQ(w.data_end(), 0u);
            const Bytes& payload = w.to_buffer();

            Reader r(&A);
            ASSERT_EQ(r.from_buffer(payload), 0u);
            std::string s;
            ASSERT_EQ(r.read(s, 0, &A, true), 0u);
            EXPECT_EQ(s, "abc");
            uint8_t b = 0;
            ASSERT_EQ(r.read(b), 0u);
            EXPECT_EQ(b, 1);
            EXPECT_EQ((r.get_index() - 1) % alignment, 0u);  // aligned from byte 0
            ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
            const uint32_t struct_begin = r.get_begin_index();
            ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
            ASSERT_EQ(r.read(b), 0u);
            EXPECT_EQ(b, 2);
            ASSERT_EQ(r.data_end(), 0u);
            ASSERT_EQ(r.read(b), 0u);
            EXPECT_EQ(b, 3);
            EXPECT_EQ((r.get_index() - 1 - struct_begin) % alignment, 0u);  // aligned from the struct
            EXPECT_EQ(payload[r.get_index() - 2], 0xFF);                     // the pad is 0xFF
            ASSERT_EQ(r.read(s, 0, nullptr, true), 0u);
            EXPECT_EQ(s, "x");
            ASSERT_EQ(r.read(b), 0u);
            EXPECT_EQ(b, 4);
            EXPECT_EQ((r.get_index() - 1 - struct_begin) % alignment, 0u);
            ASSERT_EQ(r.read(b), 0u);  // no second pad: the flag is consumed in a struct
            EXPECT_EQ(b, 5);
            ASSERT_EQ(r.data_end(), 0u);
            EXPECT_TRUE(r.is_empty());
        }
    }
}

TEST_F(RoundTripEngines, ExplicitRecordsPerElement)
{
    const ZQSomeIPExtendAttr be = attr_of({4, 0, 1, 0, 4});
    const ZQSomeIPExtendAttr le = attr_of({2, 1, 4, 1, 1});
    Writer w(&be);
    ASSERT_EQ(w.write(0x01020304u, &le), 0u);
    ASSERT_EQ(w.write(static_cast<unsigned short>(0x0506)), 0u);  // byte order last set stays in force
    ASSERT_EQ(w.struct_data_begin(&le), 0u);
    ASSERT_EQ(w.write(std::string("le"), nullptr, true), 0u);
    ASSERT_EQ(w.write(0x0708u, &be), 0u);
    ASSERT_EQ(w.data_end(), 0u);
    ASSERT_EQ(w.write(std::string("be"), &be, true), 0u);

    Reader r(&be);
    ASSERT_EQ(r.from_buffer(w.to_buffer()), 0u);
    uint32_t u = 0;
    uint16_t h = 0;
    std::string s;
    ASSERT_EQ(r.read(u, &le), 0u);
    EXPECT_EQ(u, 0x01020304u);
    ASSERT_EQ(r.read(h), 0u);
    EXPECT_EQ(h, 0x0506);
    ASSERT_EQ(r.struct_data_begin(&le), 0u);
    ASSERT_EQ(r.read(s, 0, nullptr, true), 0u);
    EXPECT_EQ(s, "le");
    ASSERT_EQ(r.read(u, &be), 0u);
    EXPECT_EQ(u, 0x0708u);
    ASSERT_EQ(r.data_end(), 0u);
    ASSERT_EQ(r.read(s, 0, &be, true), 0u);
    EXPECT_EQ(s, "be");
    EXPECT_TRUE(r.is_empty());
}

} // namespace
