// Unit tests of the payload reader engine (ZQSomeIPPayloadDeserializerGeneral) on hand-made bytes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "someip/ZQSomeIPPayloadDeserializerGeneral.h"
#include "someip/zq_someip_log.h"

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
#include <codecvt>
#include <locale>

namespace {

using Bytes = std::vector<uint8_t>;
using Reader = ZQSomeIPPayloadDeserializerGeneral;

std::vector<std::string> g_messages;

void capture(int32_t level, const char* tag, const char* message)
{
    if (level == ZQ_SOMEIP_LEVEL_ERROR && std::string(tag) == "ESOMEIP_ERROR") {
        g_messages.push_back(message);
    }
}

// Every reader message has the shape " [<file>][<line>][<function>]  <text>".
bool logged(const std::string& text)
{
    for (const std::string& m : g_messages) {
        const std::string tail = "]  " + text;
        if (m.size() > tail.size() && m.compare(m.size() - tail.size(), tail.size(), tail) == 0 &&
            m.rfind(" [", 0) == 0 && m.find("ZQSomeIPPayloadDeserializerGeneral.cpp][") != std::string::npos) {
            return true;
        }
    }
    return false;
}

ZQSomeIPExtendAttr make_attr(uint32_t byte_order = 0, uint32_t lfs = 4, uint32_t alignment = 1, uint32_t utf = 0)
{
    ZQSomeIPExtendAttr a;
    a.array_length_field_size = lfs;
    a.vector_length_field_size = lfs;
    a.struct_length_field_size = lfs;
    a.string_length_field_size = lfs;
    a.union_length_field_size = lfs;
    a.alignment = alignment;
    a.byte_order = byte_order;
    a.union_type_field_size = 4;
    a.string_utf = utf;
    return a;
}

class ReaderTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_messages.clear();
        setenv("SOMEIPSER_LOG_LEVEL", "1", 1);  // callback gets every message, nothing printed
        zq_someip_set_logfunc_callback(capture);
    }
    void TearDown() override
    {
        zq_someip_set_logfunc_callback(nullptr);
        unsetenv("SOMEIPSER_LOG_LEVEL");
    }
};

using ReaderCore = ReaderTest;
using ReaderContainers = ReaderTest;
using ReaderStrings = ReaderTest;

// ------------------------------------------------------------------------------------------------
// Core

TEST_F(ReaderCore, NullAttributeDefaults)
{
    Reader r(nullptr);
    const ZQSomeIPInternalAttr w = r.get_write_attr(nullptr);
    EXPECT_EQ(w.type, 0u);
    EXPECT_EQ(w.begin_index, 0u);
    EXPECT_EQ(w.attr.array_length_field_size, 0u);
    EXPECT_EQ(w.attr.vector_length_field_size, 4u);
    EXPECT_EQ(w.attr.struct_length_field_size, 4u);
    EXPECT_EQ(w.attr.string_length_field_size, 4u);
    EXPECT_EQ(w.attr.union_length_field_size, 4u);
    EXPECT_EQ(w.attr.alignment, 1u);
    EXPECT_EQ(w.attr.byte_order, 0u);
    EXPECT_EQ(w.attr.union_type_field_size, 4u);
    EXPECT_EQ(w.attr.string_utf, 0u);
    EXPECT_TRUE(w.attr.dynamic_flag);
    EXPECT_EQ(w.attr.length_field_value, 0u);
    EXPECT_EQ(w.attr.length_field_read, 0u);
    const ZQSomeIPExtendAttr b = r.get_begin_extend_attr(nullptr);
    EXPECT_EQ(b.array_length_field_size, 0u);
    EXPECT_EQ(b.union_length_field_size, 4u);
    EXPECT_EQ(r.get_last_error(), 0u);
    EXPECT_TRUE(r.is_empty());
}

TEST_F(ReaderCore, ConstructorRecordAndByteOrder)
{
    ZQSomeIPExtendAttr a = make_attr(1, 2, 8, 1);
    a.union_length_field_size = 1;
    a.length_field_value = 77;
    Reader r(&a);
    const ZQSomeIPInternalAttr w = r.get_write_attr(nullptr);
    EXPECT_EQ(w.attr.byte_order, 1u);
    EXPECT_EQ(w.attr.union_length_field_size, 1u);
    EXPECT_EQ(w.attr.alignment, 8u);
    EXPECT_EQ(w.attr.string_utf, 1u);
    EXPECT_EQ(w.attr.length_field_value, 0u);  // counters are not kept
    ASSERT_EQ(r.from_buffer(Bytes{0x04, 0x03, 0x02, 0x01}), 0u);
    uint32_t v = 0;
    EXPECT_EQ(r.read(v), 0u);
    EXPECT_EQ(v, 0x01020304u);
    EXPECT_EQ(r.get_write_attr(nullptr).begin_index, 4u);
}

TEST_F(ReaderCore, BigEndianPrimitives)
{
    Reader r(nullptr);
    const Bytes data{0x12, 0x34, 0xFF, 0xFE, 0x01, 0x02, 0x03, 0x04, 0xFF, 0xFF, 0xFF, 0xFD,
                     0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0xFF, 0xFF, 0xFF, 0xFF,
                     0xFF, 0xFF, 0xFF, 0xFC, 0x3F, 0xC0, 0x00, 0x00, 0xC0, 0x04, 0x00, 0x00,
                     0x00, 0x00, 0x00, 0x00, 0x80, 0x7F, 0x41};
    ASSERT_EQ(r.from_buffer(data), 0u);
    uint16_t u16 = 0;
    int16_t i16 = 0;
    uint32_t u32 = 0;
    int32_t i32 = 0;
    uint64_t u64 = 0;
    int64_t i64 = 0;
    float f = 0;
    double d = 0;
    int8_t i8 = 0;
    uint8_t u8 = 0;
    char c = 0;
    EXPECT_EQ(r.read(u16), 0u);
    EXPECT_EQ(u16, 0x1234);
    EXPECT_EQ(r.read(i16), 0u);
    EXPECT_EQ(i16, -2);
    EXPECT_EQ(r.read(u32), 0u);
    EXPECT_EQ(u32, 0x01020304u);
    EXPECT_EQ(r.read(i32), 0u);
    EXPECT_EQ(i32, -3);
    EXPECT_EQ(r.read(u64), 0u);
    EXPECT_EQ(u64, 0x0102030405060708ull);
    EXPECT_EQ(r.read(i64), 0u);
    EXPECT_EQ(i64, -4);
    EXPECT_EQ(r.read(f), 0u);
    EXPECT_EQ(f, 1.5f);
    EXPECT_EQ(r.read(d), 0u);
    EXPECT_EQ(d, -2.5);
    EXPECT_EQ(r.read(i8), 0u);
    EXPECT_EQ(i8, -128);
    EXPECT_EQ(r.read(u8), 0u);
    EXPECT_EQ(u8, 0x7F);
    EXPECT_EQ(r.read(c), 0u);
    EXPECT_EQ(c, 'A');
    EXPECT_TRUE(r.is_empty());
    EXPECT_EQ(r.get_index(), data.size());
}

TEST_F(ReaderCore, LittleEndianByRecordAndSticky)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0x34, 0x12, 0x00, 0x00, 0xC0, 0x3F, 0x78, 0x56}), 0u);
    const ZQSomeIPExtendAttr le = make_attr(1);
    uint16_t u16 = 0;
    float f = 0;
    EXPECT_EQ(r.read(u16, &le), 0u);
    EXPECT_EQ(u16, 0x1234);
    EXPECT_EQ(r.read(f, &le), 0u);
    EXPECT_EQ(f, 1.5f);
    // At top level without a record the byte order last set stays in force.
    EXPECT_EQ(r.get_write_attr(nullptr).attr.byte_order, 1u);
    EXPECT_EQ(r.read(u16), 0u);
    EXPECT_EQ(u16, 0x5678);
}

TEST_F(ReaderCore, FloatImagesAreReversedBitForBit)
{
    // A signalling NaN pattern must come through unchanged in both orders.
    Reader be(nullptr);
    ASSERT_EQ(be.from_buffer(Bytes{0x7F, 0x80, 0x00, 0x01, 0x7F, 0xF0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}), 0u);
    float f = 0;
    double d = 0;
    ASSERT_EQ(be.read(f), 0u);
    ASSERT_EQ(be.read(d), 0u);
    uint32_t fb = 0;
    uint64_t db = 0;
    memcpy(&fb, &f, 4);
    memcpy(&db, &d, 8);
    EXPECT_EQ(fb, 0x7F800001u);
    EXPECT_EQ(db, 0x7FF0000000000001ull);

    const ZQSomeIPExtendAttr le = make_attr(1);
    Reader r(&le);
    ASSERT_EQ(r.from_buffer(Bytes{0x01, 0x00, 0x80, 0x7F}), 0u);
    ASSERT_EQ(r.read(f), 0u);
    memcpy(&fb, &f, 4);
    EXPECT_EQ(fb, 0x7F800001u);
}

TEST_F(ReaderCore, BoolTakesLowestBit)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0x01, 0x03, 0x02, 0xFE, 0xFF, 0x00}), 0u);
    const bool expected[] = {true, true, false, false, true, false};
    for (bool e : expected) {
        bool b = !e;
        ASSERT_EQ(r.read(b), 0u);
        EXPECT_EQ(b, e);
    }
}

TEST_F(ReaderCore, TruncatedReadFailsWithoutMoving)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0xAA, 0xBB, 0xCC}), 0u);
    uint16_t v = 0x5555;
    ASSERT_EQ(r.read(v), 0u);
    EXPECT_EQ(r.read(v), 1u);
    EXPECT_EQ(v, 0xAABB);
    EXPECT_EQ(r.get_index(), 2u);
    EXPECT_EQ(r.get_last_error(), 1u);
    EXPECT_TRUE(logged("parameters error or out of memory, m_index:[2], size:[2], m_size:[3]"));
    uint64_t w = 0;
    EXPECT_EQ(r.read(w), 1u);
    uint8_t b = 0;
    EXPECT_EQ(r.read(b), 0u);
    EXPECT_EQ(r.read(b), 1u);
    EXPECT_TRUE(r.is_empty());
}

TEST_F(ReaderCore, EmptyReaderFailsEveryRead)
{
    Reader r(nullptr);
    uint32_t v = 0;
    bool b = false;
    double d = 0;
    EXPECT_EQ(r.read(v), 1u);
    EXPECT_EQ(r.read(b), 1u);
    EXPECT_EQ(r.read(d), 1u);
    std::string s;
    EXPECT_EQ(r.read(s, 0), 1u);
    EXPECT_EQ(r.struct_data_begin(nullptr), 1u);
    EXPECT_EQ(r.get_last_error(), 1u);
}

TEST_F(ReaderCore, ReadPayloadDoesNotStoreItsCode)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{1, 2}), 0u);
    uint8_t out[4] = {};
    EXPECT_EQ(r.read_payload(out, 3), 1u);
    EXPECT_EQ(r.read_payload(nullptr, 1), 1u);
    EXPECT_EQ(r.get_last_error(), 0u);
    EXPECT_EQ(r.read_payload(out, 2), 0u);
    EXPECT_EQ(out[1], 2);
    EXPECT_EQ(r.read_payload(out, 0), 0u);  // zero bytes at the very end are fine
}

TEST_F(ReaderCore, ReadDataFieldSizes)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0x81, 0x12, 0x34, 0x01, 0x02, 0x03, 0x04, 0x09}), 0u);
    uint32_t v = 0;
    EXPECT_EQ(r.read_data(1, &v), 0u);
    EXPECT_EQ(v, 0x81u);
    EXPECT_EQ(r.read_length_field(2, &v), 0u);
    EXPECT_EQ(v, 0x1234u);
    EXPECT_EQ(r.read_type_field(4, &v), 0u);
    EXPECT_EQ(v, 0x01020304u);
    EXPECT_EQ(r.read_data(3, &v), 1u);
    EXPECT_EQ(r.read_data(0, &v), 1u);
    EXPECT_TRUE(logged("length is 0"));
    EXPECT_EQ(r.read_data(1, nullptr), 1u);
    EXPECT_EQ(r.read_length_field(1, nullptr), 1u);
    EXPECT_TRUE(logged("parameters error, size is null"));
    EXPECT_EQ(r.read_type_field(1, nullptr), 1u);
    EXPECT_TRUE(logged("parameters error, type is null"));
    EXPECT_EQ(r.get_index(), 7u);
    EXPECT_EQ(r.get_last_error(), 0u);
}

TEST_F(ReaderCore, ReadEnum)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0x07, 0x01, 0x02, 0x00, 0x00, 0x01, 0x00}), 0u);
    uint32_t e = 99;
    EXPECT_EQ(r.read_enum(e, 1), 0u);
    EXPECT_EQ(e, 7u);
    EXPECT_EQ(r.read_enum(e, 2), 0u);
    EXPECT_EQ(e, 0x0102u);
    EXPECT_EQ(r.read_enum(e, 4), 0u);
    EXPECT_EQ(e, 0x0100u);
    r.set_error_code(2);
    EXPECT_EQ(r.read_enum(e, 3), 1u);
    EXPECT_TRUE(logged("enum size:[3] error"));
    EXPECT_EQ(r.get_last_error(), 2u);
    EXPECT_EQ(e, 0x0100u);
    EXPECT_EQ(r.read_enum(e, 4), 1u);  // truncated: the read itself stores its code
    EXPECT_EQ(r.get_last_error(), 1u);
}

TEST_F(ReaderCore, FromBufferForms)
{
    Reader r(nullptr);
    EXPECT_EQ(r.from_buffer(nullptr, 5), 1u);
    EXPECT_TRUE(logged("parameters error, buffer is null or size is 0"));
    const uint8_t one = 1;
    EXPECT_EQ(r.from_buffer(&one, 0), 1u);
    EXPECT_EQ(r.get_last_error(), 0u);  // the pointer form does not store
    const Bytes empty;
    EXPECT_EQ(r.from_buffer(empty), 1u);
    EXPECT_EQ(r.get_last_error(), 1u);  // the vector form does
    const Bytes two{1, 2};
    EXPECT_EQ(r.from_buffer(two), 0u);
    EXPECT_EQ(r.get_size(), 2u);
    Bytes moved;
    EXPECT_EQ(r.from_buffer(std::move(moved)), 0u);
    EXPECT_TRUE(r.is_empty());
    EXPECT_EQ(r.get_size(), 0u);
}

TEST_F(ReaderCore, FromBufferKeepsPositionUntilClear)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{1, 2, 3}), 0u);
    uint16_t v = 0;
    ASSERT_EQ(r.read(v), 0u);
    ASSERT_EQ(r.from_buffer(Bytes{9, 8, 7, 6}), 0u);
    uint8_t b = 0;
    ASSERT_EQ(r.read(b), 0u);
    EXPECT_EQ(b, 7);
    r.set_error_code(3);
    EXPECT_TRUE(r.clear());
    EXPECT_EQ(r.get_index(), 0u);
    EXPECT_EQ(r.get_last_error(), 3u);
    ASSERT_EQ(r.read(b), 0u);
    EXPECT_EQ(b, 9);
}

TEST_F(ReaderCore, LengthFieldSizeAndValueQueries)
{
    Reader r(nullptr);
    EXPECT_EQ(r.get_length_field_size(nullptr), 0u);
    EXPECT_TRUE(logged("attr null"));
    ZQSomeIPInternalAttr f;
    f.attr = make_attr(0, 2);
    f.attr.array_length_field_size = 1;
    f.attr.string_length_field_size = 4;
    for (uint32_t t : {1u, 2u, 3u, 4u, 5u, 0u, 6u}) {
        f.type = t;
        const uint32_t expected = t == 1 ? 1 : t == 2 ? 4 : (t >= 3 && t <= 5) ? 2 : 0;
        EXPECT_EQ(r.get_length_field_size(&f), expected) << t;
    }
    EXPECT_EQ(r.get_length_field_value(), 0u);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 9, 0, 0, 0, 2, 0xAA, 0xBB}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    EXPECT_EQ(r.get_length_field_value(), 9u);  // the outermost frame's
    EXPECT_EQ(r.get_begin_index(), 4u);         // the innermost frame's
    uint32_t tag = 5;
    EXPECT_EQ(r.tlv_data_begin(nullptr, tag), 0u);
    EXPECT_EQ(tag, 5u);
}

// ------------------------------------------------------------------------------------------------
// Containers

TEST_F(ReaderContainers, DataEndWithNothingOpen)
{
    Reader r(nullptr);
    EXPECT_EQ(r.data_end(), 2u);
    EXPECT_EQ(r.get_last_error(), 2u);
}

TEST_F(ReaderContainers, FullStructRefusesWithoutMoving)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 4, 0x00, 0x01, 0x00, 0x02, 0x00, 0x03}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    uint16_t a = 0;
    uint16_t b = 0;
    EXPECT_EQ(r.read(a), 0u);
    EXPECT_EQ(r.read(b), 0u);
    EXPECT_EQ(b, 2);
    uint16_t c = 0x7777;
    EXPECT_EQ(r.read(c), 3u);
    EXPECT_EQ(c, 0x7777);
    EXPECT_EQ(r.get_index(), 8u);
    EXPECT_EQ(r.get_last_error(), 3u);
    std::string s;
    EXPECT_EQ(r.read(s, 0), 3u);
    EXPECT_EQ(r.struct_data_begin(nullptr), 3u);  // no new member either
    uint8_t* block = nullptr;
    uint32_t size = 1;
    EXPECT_EQ(r.read(&block, &size), 3u);
    uint8_t raw[1];
    EXPECT_EQ(r.read(raw, 1), 3u);
    EXPECT_EQ(r.get_index(), 8u);
    EXPECT_EQ(r.data_end(), 0u);  // exactly full is fine
    EXPECT_EQ(r.read(c), 0u);
    EXPECT_EQ(c, 3);
}

TEST_F(ReaderContainers, StructOfSixBytes)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 6, 0, 0, 0, 1, 0, 2, 0xEE}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    uint32_t a = 0;
    uint16_t b = 0;
    EXPECT_EQ(r.read(a), 0u);
    EXPECT_EQ(r.read(b), 0u);
    EXPECT_EQ(r.read(b), 3u);
    EXPECT_EQ(r.data_end(), 0u);
    EXPECT_EQ(r.data_end(), 2u);
}

TEST_F(ReaderContainers, OverrunReadFailsAndFrameCountersFollowTheAlgorithm)
{
    // Struct of length 6 whose members need 8 bytes: the overrunning read fails with 1 while
    // accounting (m_index has moved, the counter has not), so data_end finds 4 of 6 bytes read.
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 6, 0, 0, 0, 1, 0, 0, 0, 2}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    uint32_t a = 0;
    EXPECT_EQ(r.read(a), 0u);
    uint32_t b = 0xDEAD;
    EXPECT_EQ(r.read(b), 1u);
    EXPECT_EQ(b, 0xDEADu);
    EXPECT_EQ(r.get_last_error(), 1u);
    EXPECT_EQ(r.get_index(), 12u);  // no rollback
    EXPECT_EQ(r.data_end(), 0u);
    EXPECT_EQ(r.data_end(), 2u);
}

TEST_F(ReaderContainers, FramesAboveTheFailingOneKeepTheirUpdate)
{
    // outer struct: length 10; inner struct: length 8. Inner length field (4) + two uint32 (8) overrun
    // the outer one on the second read; the inner frame, above it, has already counted those bytes.
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 10, 0, 0, 0, 8, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    uint32_t v = 0;
    EXPECT_EQ(r.read(v), 0u);
    EXPECT_EQ(r.read(v), 1u);
    EXPECT_EQ(r.read(v), 3u);  // inner frame counted 8 of 8
    EXPECT_EQ(r.data_end(), 0u);
    EXPECT_EQ(r.modify_length_field_read(2), 0u);  // outer frame still at 8 of 10
    EXPECT_EQ(r.check_length_field(), 3u);
    EXPECT_EQ(r.modify_length_field_read(1), 1u);
    EXPECT_EQ(r.data_end(), 0u);
}

TEST_F(ReaderContainers, CheckAndModifyWithoutFrames)
{
    Reader r(nullptr);
    EXPECT_EQ(r.check_length_field(), 0u);
    EXPECT_EQ(r.modify_length_field_read(0xFFFFFFFFu), 0u);
}

TEST_F(ReaderContainers, HugeCountDoesNotWrapTheAccounting)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 8, 1, 2, 3, 4}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    ASSERT_EQ(r.modify_length_field_read(4), 0u);
    EXPECT_EQ(r.modify_length_field_read(0xFFFFFFFEu), 1u);
    EXPECT_EQ(r.check_length_field(), 0u);
}

TEST_F(ReaderContainers, UnreadBytesAreNotSkipped)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 10, 0, 0, 0, 1, 9, 9, 9, 9, 9, 9}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    uint32_t v = 0;
    ASSERT_EQ(r.read(v), 0u);
    EXPECT_EQ(r.data_end(), 0u);
    EXPECT_EQ(r.get_index(), 8u);
}

TEST_F(ReaderContainers, StructWithoutLengthField)
{
    const ZQSomeIPExtendAttr a = make_attr(0, 0);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{0, 1, 0, 2}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    uint16_t v = 0;
    EXPECT_EQ(r.read(v), 0u);
    EXPECT_EQ(r.read(v), 0u);
    EXPECT_EQ(v, 2);
    EXPECT_EQ(r.check_length_field(), 0u);
    EXPECT_EQ(r.data_end(), 0u);
}

TEST_F(ReaderContainers, LengthFieldSizesOneTwoFourAndLittleEndian)
{
    for (uint32_t lfs : {1u, 2u, 4u}) {
        for (uint32_t order : {0u, 1u}) {
            const ZQSomeIPExtendAttr a = make_attr(order, lfs);
            Reader r(&a);
            Bytes data(lfs, 0);
            data[order == 0 ? lfs - 1 : 0] = 2;
            data.push_back(0xAB);
            data.push_back(0xCD);
            data.push_back(0xEF);
            ASSERT_EQ(r.from_buffer(data), 0u);
            ASSERT_EQ(r.struct_data_begin(nullptr), 0u) << lfs << " " << order;
            EXPECT_EQ(r.get_length_field_value(), 2u);
            uint16_t v = 0;
            EXPECT_EQ(r.read(v), 0u);
            EXPECT_EQ(v, order == 0 ? 0xABCD : 0xCDAB);
            uint8_t b = 0;
            EXPECT_EQ(r.read(b), 3u);
            EXPECT_EQ(r.data_end(), 0u);
            EXPECT_EQ(r.read(b), 0u);
        }
    }
}

TEST_F(ReaderContainers, BadLengthFieldSizePushesNothing)
{
    ZQSomeIPExtendAttr a = make_attr(0, 3);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 0, 0, 0}), 0u);
    EXPECT_EQ(r.array_data_begin(nullptr), 1u);
    EXPECT_EQ(r.get_last_error(), 1u);
    EXPECT_EQ(r.get_index(), 0u);
    EXPECT_EQ(r.data_end(), 2u);
}

TEST_F(ReaderContainers, TruncatedLengthFieldPushesNothing)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0}), 0u);
    EXPECT_EQ(r.vector_data_begin(nullptr), 1u);
    EXPECT_EQ(r.data_end(), 2u);
}

TEST_F(ReaderContainers, UnionLayoutWithPadding)
{
    // length 8 | selector 2 | uint16 0x1234 | six zero bytes | next element
    const ZQSomeIPExtendAttr a = make_attr(0, 4, 8);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 8, 0, 0, 0, 2, 0x12, 0x34, 0, 0, 0, 0, 0, 0, 0x5A}), 0u);
    uint32_t type = 0;
    ASSERT_EQ(r.union_data_begin(nullptr, type), 0u);
    EXPECT_EQ(type, 2u);
    uint16_t v = 0;
    ASSERT_EQ(r.read(v), 0u);
    EXPECT_EQ(v, 0x1234);
    EXPECT_EQ(r.get_index(), 16u);  // the pad is skipped right after the member
    EXPECT_EQ(r.check_length_field(), 3u);
    EXPECT_EQ(r.data_end(), 0u);
    uint8_t next = 0;
    ASSERT_EQ(r.read(next), 0u);
    EXPECT_EQ(next, 0x5A);
}

TEST_F(ReaderContainers, UnionTypeFieldSizes)
{
    for (uint32_t tfs : {0u, 1u, 2u}) {
        ZQSomeIPExtendAttr a = make_attr(1, 2);
        a.union_type_field_size = tfs;
        Reader r(&a);
        Bytes data{1, 0};
        if (tfs == 1) {
            data.push_back(7);
        } else if (tfs == 2) {
            data.push_back(7);
            data.push_back(0);
        }
        data.push_back(0x42);
        ASSERT_EQ(r.from_buffer(data), 0u);
        uint32_t type = 99;
        ASSERT_EQ(r.union_data_begin(nullptr, type), 0u);
        EXPECT_EQ(type, tfs == 0 ? 99u : 7u);
        uint8_t v = 0;
        EXPECT_EQ(r.read(v), 0u);
        EXPECT_EQ(v, 0x42);
        EXPECT_EQ(r.data_end(), 0u);
    }
}

TEST_F(ReaderContainers, UnionTypeFieldFailureKeepsLengthFieldConsumed)
{
    ZQSomeIPExtendAttr a = make_attr(0, 4);
    a.union_type_field_size = 3;
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 1, 0, 0, 0, 0}), 0u);
    uint32_t type = 0;
    EXPECT_EQ(r.union_data_begin(nullptr, type), 1u);
    EXPECT_EQ(r.get_index(), 4u);
    EXPECT_EQ(r.data_end(), 2u);
}

TEST_F(ReaderContainers, NestedUnionPadAfterInnerContainerEnds)
{
    // union (align 4, no length/type fields) holding a struct of 1 byte: the union pad follows data_end.
    ZQSomeIPExtendAttr a = make_attr(0, 0, 4);
    a.union_type_field_size = 0;
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{0x11, 0, 0, 0, 0x22}), 0u);
    uint32_t type = 0;
    ASSERT_EQ(r.union_data_begin(nullptr, type), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    uint8_t v = 0;
    ASSERT_EQ(r.read(v), 0u);
    ASSERT_EQ(r.data_end(), 0u);
    EXPECT_EQ(r.get_index(), 4u);
    ASSERT_EQ(r.data_end(), 0u);
    ASSERT_EQ(r.read(v), 0u);
    EXPECT_EQ(v, 0x22);
}

TEST_F(ReaderContainers, VectorEndAlignsNextMemberOfStruct)
{
    // struct (align 4) { vector<uint8>{1,2,3}; uint32 } : 4 + 4 + 3 = 11 -> one pad byte.
    const ZQSomeIPExtendAttr a = make_attr(0, 4, 4);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 16, 0, 0, 0, 3, 1, 2, 3, 0xFF, 0, 0, 0, 9, 0, 0, 0, 8}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
    uint8_t b = 0;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(r.read(b), 0u);
    }
    EXPECT_EQ(r.read(b), 3u);
    ASSERT_EQ(r.data_end(), 0u);
    uint32_t v = 0;
    ASSERT_EQ(r.read(v), 0u);
    EXPECT_EQ(v, 9u);
    ASSERT_EQ(r.read(v), 0u);  // the flag is consumed in a struct: no second pad
    EXPECT_EQ(v, 8u);
    EXPECT_EQ(r.data_end(), 0u);
}

TEST_F(ReaderContainers, VectorEndAtTopLevelAlignsFromByteZero)
{
    const ZQSomeIPExtendAttr a = make_attr(0, 1, 4);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{2, 0xA1, 0xA2, 0xFF, 0x00, 0x07, 0x01, 0x42}), 0u);
    ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
    std::vector<uint8_t> items;
    ASSERT_EQ(r.read(items, 0), 0u);
    EXPECT_EQ(items, (Bytes{0xA1, 0xA2}));
    ASSERT_EQ(r.data_end(), 0u);
    // A container at top level never skips the pad ...
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    EXPECT_EQ(r.get_begin_index(), 3u);
    uint8_t b = 0;
    ASSERT_EQ(r.read(b), 0u);
    EXPECT_EQ(b, 0x00);
    ASSERT_EQ(r.data_end(), 0u);
    // ... but the pending flag stays for the next primitive: offset 5 -> 8 is out of the buffer.
    uint16_t v = 0;
    EXPECT_EQ(r.read(v), 1u);
}

TEST_F(ReaderContainers, ArrayOfVectorsAlignsEveryLaterVector)
{
    // array (no length field, align 4) of vector<uint8> with 1-byte length fields:
    // [1, a] pad pad [1, b] pad pad [0]
    ZQSomeIPExtendAttr a = make_attr(0, 1, 4);
    a.array_length_field_size = 0;
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{1, 0xAA, 0xFF, 0xFF, 1, 0xBB, 0xFF, 0xFF, 0}), 0u);
    ASSERT_EQ(r.array_data_begin(nullptr), 0u);
    const Bytes expected[] = {{0xAA}, {0xBB}};
    for (const Bytes& e : expected) {
        ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
        Bytes got{0x99};
        ASSERT_EQ(r.read(got, 0), 0u);
        EXPECT_EQ(got, e);
        ASSERT_EQ(r.data_end(), 0u);
    }
    // An empty vector is a full container: its block read refuses with 3 and hands out nothing.
    ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
    EXPECT_EQ(r.get_begin_index(), 8u);
    Bytes got{0x99};
    EXPECT_EQ(r.read(got, 0), 3u);
    EXPECT_EQ(got, Bytes{0x99});
    ASSERT_EQ(r.data_end(), 0u);
    EXPECT_EQ(r.data_end(), 0u);
    EXPECT_TRUE(r.is_empty());
}

TEST_F(ReaderContainers, BlockReadForms)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 3, 0x80, 0x01, 0x7F, 0, 0, 0, 2, 5, 6}), 0u);
    ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
    std::vector<int8_t> s;
    ASSERT_EQ(r.read(s, 99), 0u);  // the length field wins over the caller's size
    EXPECT_EQ(s, (std::vector<int8_t>{-128, 1, 127}));
    ASSERT_EQ(r.data_end(), 0u);
    ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
    uint8_t* data = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(r.read(&data, &size), 0u);
    ASSERT_EQ(size, 2u);
    EXPECT_EQ(data[0], 5);
    EXPECT_EQ(data[1], 6);
    ASSERT_EQ(r.data_end(), 0u);
}

TEST_F(ReaderContainers, BlockReadWithoutLengthField)
{
    ZQSomeIPExtendAttr a = make_attr(0, 0);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{1, 2, 3}), 0u);
    ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
    Bytes out{7};
    EXPECT_EQ(r.read(out, 0), 1u);
    EXPECT_TRUE(logged("read array without length field and size is 0, error."));
    EXPECT_EQ(out, Bytes{7});
    EXPECT_EQ(r.get_last_error(), 1u);
    EXPECT_EQ(r.read(out, 2), 0u);
    EXPECT_EQ(out, (Bytes{1, 2}));
    EXPECT_EQ(r.read(out, 2), 1u);  // only one byte left
    EXPECT_TRUE(logged("parameters error or out of memory, m_index:[2], size:[2], m_size:[3]"));
    EXPECT_EQ(out, (Bytes{1, 2}));
}

TEST_F(ReaderContainers, BlockReadArgumentErrors)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 1, 1}), 0u);
    uint8_t* data = nullptr;
    uint32_t size = 1;
    EXPECT_EQ(r.read(&data, &size), 1u);
    EXPECT_TRUE(logged("m_attr_list is empty"));
    Bytes out;
    EXPECT_EQ(r.read(out, 1), 1u);
    ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
    EXPECT_EQ(r.read(nullptr, &size), 1u);
    EXPECT_EQ(r.read(&data, nullptr), 1u);
    EXPECT_TRUE(logged("parameters error, data or size is null"));
    EXPECT_EQ(r.get_last_error(), 1u);
    EXPECT_EQ(r.get_index(), 4u);
}

TEST_F(ReaderContainers, BlockReadLengthBeyondBufferIsRefused)
{
    for (uint32_t claimed : {4u, 100u, 0xFFFFFFFFu, 0xFFFFFFFCu}) {
        Reader r(nullptr);
        Bytes data{static_cast<uint8_t>(claimed >> 24), static_cast<uint8_t>(claimed >> 16),
                   static_cast<uint8_t>(claimed >> 8), static_cast<uint8_t>(claimed), 1, 2, 3};
        ASSERT_EQ(r.from_buffer(data), 0u);
        ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
        uint8_t* block = nullptr;
        uint32_t size = 0;
        EXPECT_EQ(r.read(&block, &size), 1u) << claimed;
        EXPECT_EQ(block, nullptr);
        EXPECT_EQ(r.get_index(), 4u);
        Bytes out{5};
        EXPECT_EQ(r.read(out, 0), 1u);
        EXPECT_EQ(out, Bytes{5});
    }
}

TEST_F(ReaderContainers, BlockReadInsideUnionSkipsUnionPadAfterwards)
{
    // union (length 4 bytes: 8, type 1, align 4) { vector<uint8> (1-byte length) {a, b} } pad 1
    ZQSomeIPExtendAttr ua = make_attr(0, 4, 4);
    ZQSomeIPExtendAttr va = make_attr(0, 1, 4);
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 4, 0, 0, 0, 1, 2, 0xA, 0xB, 0, 0x77}), 0u);
    uint32_t type = 0;
    ASSERT_EQ(r.union_data_begin(&ua, type), 0u);
    ASSERT_EQ(r.vector_data_begin(&va), 0u);
    Bytes out;
    ASSERT_EQ(r.read(out, 0), 0u);
    EXPECT_EQ(out, (Bytes{0xA, 0xB}));
    // The pad skip after the block consults the vector's own flag, which is clear: the union pad
    // is skipped when the vector ends, as the writer writes it.
    EXPECT_EQ(r.get_index(), 11u);
    ASSERT_EQ(r.data_end(), 0u);
    EXPECT_EQ(r.get_index(), 12u);
    ASSERT_EQ(r.data_end(), 0u);
    uint8_t b = 0;
    ASSERT_EQ(r.read(b), 0u);
    EXPECT_EQ(b, 0x77);
}

TEST_F(ReaderContainers, RawCopy)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 3, 7, 8, 9, 1}), 0u);
    uint8_t out[4] = {0, 0, 0, 0};
    EXPECT_EQ(r.read(out, 2), 1u);
    EXPECT_TRUE(logged("m_attr_list is empty"));
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    EXPECT_EQ(r.read(static_cast<uint8_t*>(nullptr), 2), 1u);
    EXPECT_TRUE(logged("parameters error, data is null"));
    EXPECT_EQ(r.read(out, 2), 0u);
    EXPECT_EQ(out[0], 7);
    EXPECT_EQ(out[1], 8);
    EXPECT_EQ(r.read(out, 2), 1u);  // container overrun while accounting
    EXPECT_EQ(r.get_index(), 8u);
    EXPECT_EQ(r.read(out, 1), 1u);  // past the buffer
    EXPECT_TRUE(logged("parameters error or out of memory, m_index:[8], size:[1], m_size:[8]"));
    EXPECT_EQ(r.read(out, 0xFFFFFFFFu), 1u);
}

TEST_F(ReaderContainers, AlignmentSkipPastTheEndFailsCleanly)
{
    // A top-level vector ends at offset 5; with alignment 8 the skip moves m_index to 8 > m_size 6.
    const ZQSomeIPExtendAttr a = make_attr(0, 4, 8);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 1, 0x11, 0x22}), 0u);
    ASSERT_EQ(r.vector_data_begin(nullptr), 0u);
    uint8_t b = 0;
    ASSERT_EQ(r.read(b), 0u);
    ASSERT_EQ(r.data_end(), 0u);
    EXPECT_EQ(r.read(b), 1u);
    EXPECT_EQ(r.get_index(), 8u);
    EXPECT_TRUE(r.is_empty());
    EXPECT_TRUE(logged("parameters error or out of memory, m_index:[8], size:[1], m_size:[6]"));
    EXPECT_EQ(r.read(b), 1u);
    uint32_t v = 0;
    EXPECT_EQ(r.read(v), 1u);
    uint8_t raw[1];
    std::string s;
    EXPECT_EQ(r.read(s, 0), 1u);
    EXPECT_EQ(r.struct_data_begin(nullptr), 1u);
    // A container without length field opens; its contents cannot be read.
    ZQSomeIPExtendAttr nolen = make_attr(0, 0);
    ASSERT_EQ(r.array_data_begin(&nolen), 0u);
    EXPECT_EQ(r.read(raw, 1), 1u);
    Bytes out;
    EXPECT_EQ(r.read(out, 1), 1u);
    uint8_t* block = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(r.read(&block, &size), 1u);
    EXPECT_EQ(r.read(s, 4, &nolen), 1u);
    EXPECT_TRUE(logged("Out of memory, m_index:[8], read_size:[4], m_size:[6]"));
    EXPECT_EQ(r.data_end(), 0u);
}

TEST_F(ReaderContainers, ExplicitRecordOverridesInheritance)
{
    // Outer struct big endian with 4-byte length; inner struct little endian with 2-byte length.
    ZQSomeIPExtendAttr inner = make_attr(1, 2);
    inner.length_field_read = 50;  // the counter starts at 0 whatever the record says
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 6, 4, 0, 0x34, 0x12, 0x78, 0x56}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    ASSERT_EQ(r.struct_data_begin(&inner), 0u);
    uint16_t v = 0;
    ASSERT_EQ(r.read(v), 0u);
    EXPECT_EQ(v, 0x1234);
    ASSERT_EQ(r.read(v), 0u);
    EXPECT_EQ(v, 0x5678);
    EXPECT_EQ(r.read(v), 3u);
    ASSERT_EQ(r.data_end(), 0u);
    EXPECT_EQ(r.read(v), 3u);
    ASSERT_EQ(r.data_end(), 0u);
}

// ------------------------------------------------------------------------------------------------
// Strings

// `length` < 0: the body's size.
Bytes with_length(const Bytes& body, uint32_t lfs = 4, uint32_t order = 0, int64_t length = -1)
{
    const uint32_t n = length < 0 ? static_cast<uint32_t>(body.size()) : static_cast<uint32_t>(length);
    Bytes out;
    for (uint32_t i = 0; i < lfs; ++i) {
        const uint32_t shift = order == 0 ? 8 * (lfs - 1 - i) : 8 * i;
        out.push_back(static_cast<uint8_t>(n >> shift));
    }
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

TEST_F(ReaderStrings, Utf8WithLengthField)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 8, 0xEF, 0xBB, 0xBF, 'A', 'B', 'C', 'D', 0}), 0u);
    std::string s;
    ASSERT_EQ(r.read(s, 0), 0u);
    EXPECT_EQ(s, "ABCD");
    EXPECT_EQ(r.get_index(), 12u);
}

TEST_F(ReaderStrings, Utf8MissingTerminator)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 7, 0xEF, 0xBB, 0xBF, 'A', 'B', 'C', 'D'}), 0u);
    std::string s = "keep";
    EXPECT_EQ(r.read(s, 0), 1u);
    EXPECT_TRUE(logged("string does not end with '\\0'"));
    EXPECT_EQ(s, "keep");
    EXPECT_EQ(r.get_index(), 4u);
    EXPECT_EQ(r.get_last_error(), 1u);
}

TEST_F(ReaderStrings, Utf8EmbeddedZeroEndsValue)
{
    const ZQSomeIPExtendAttr a = make_attr(0, 0);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{0xEF, 0xBB, 0xBF, 0x41, 0x00, 0x42, 0x00, 0x99}), 0u);
    std::string s;
    ASSERT_EQ(r.read(s, 7), 0u);
    EXPECT_EQ(s, "A");
    EXPECT_EQ(r.get_index(), 7u);
}

TEST_F(ReaderStrings, Utf8BadBom)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(with_length(Bytes{0xEF, 0xBB, 0xBE, 'x', 0})), 0u);
    std::string s;
    EXPECT_EQ(r.read(s, 0), 1u);
    EXPECT_TRUE(logged("string bom is not utf8"));
    EXPECT_EQ(r.get_index(), 4u);
}

TEST_F(ReaderStrings, Utf8ShortLengthsAreBadBoms)
{
    // Lengths below mark plus terminator; the bytes after the string would look like a valid end.
    for (uint32_t len : {0u, 1u, 2u, 3u}) {
        g_messages.clear();
        Reader r(nullptr);
        Bytes body{0xEF, 0xBB, 0xBF, 0x00};
        ASSERT_EQ(r.from_buffer(with_length(body, 4, 0, len)), 0u);
        std::string s = "keep";
        EXPECT_EQ(r.read(s, 0), 1u) << len;
        EXPECT_TRUE(logged("string bom is not utf8")) << len;
        EXPECT_EQ(s, "keep");
        EXPECT_EQ(r.get_index(), 4u);
    }
    // The same at the very end of the buffer: nothing outside it is looked at.
    for (uint32_t len : {0u, 1u, 2u, 3u}) {
        const ZQSomeIPExtendAttr a = make_attr(0, 0);
        Reader r(&a);
        const Bytes body{0xEF, 0xBB, 0xBF};
        ASSERT_EQ(r.from_buffer(body.data(), len == 0 ? 1 : len), 0u);
        std::string s;
        EXPECT_EQ(r.read(s, len), 1u);
    }
}

TEST_F(ReaderStrings, EmptyUtf8String)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 4, 0xEF, 0xBB, 0xBF, 0}), 0u);
    std::string s = "x";
    ASSERT_EQ(r.read(s, 0), 0u);
    EXPECT_EQ(s, "");
    EXPECT_TRUE(r.is_empty());
}

TEST_F(ReaderStrings, LengthBeyondBuffer)
{
    for (uint32_t len : {9u, 0xFFFFFFFFu, 0xFFFFFFFCu}) {
        g_messages.clear();
        Reader r(nullptr);
        ASSERT_EQ(r.from_buffer(with_length(Bytes{0xEF, 0xBB, 0xBF, 'a', 0}, 4, 0, len)), 0u);
        std::string s;
        EXPECT_EQ(r.read(s, 0), 1u);
        EXPECT_TRUE(logged("Out of memory, m_index:[4], read_size:[" + std::to_string(static_cast<int>(len)) +
                           "], m_size:[9]"));
        EXPECT_EQ(r.get_index(), 4u);
    }
}

TEST_F(ReaderStrings, TruncatedLengthField)
{
    Reader r(nullptr);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0}), 0u);
    std::string s;
    EXPECT_EQ(r.read(s, 0), 1u);
    EXPECT_EQ(r.get_last_error(), 1u);
    EXPECT_EQ(r.get_index(), 0u);
}

TEST_F(ReaderStrings, Utf16BigAndLittleEndian)
{
    {
        const ZQSomeIPExtendAttr a = make_attr(0, 4, 1, 1);
        Reader r(&a);
        ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 8, 0xFE, 0xFF, 0, 'H', 0, 'i', 0, 0}), 0u);
        std::string s;
        ASSERT_EQ(r.read(s, 0), 0u);
        EXPECT_EQ(s, "Hi");
        EXPECT_TRUE(r.is_empty());
    }
    {
        const ZQSomeIPExtendAttr a = make_attr(1, 4, 1, 1);
        Reader r(&a);
        ASSERT_EQ(r.from_buffer(Bytes{8, 0, 0, 0, 0xFF, 0xFE, 'H', 0, 'i', 0, 0, 0}), 0u);
        std::string s;
        ASSERT_EQ(r.read(s, 0), 0u);
        EXPECT_EQ(s, "Hi");
    }
}

TEST_F(ReaderStrings, Utf16SurrogatesAndEmbeddedZero)
{
    const ZQSomeIPExtendAttr a = make_attr(0, 2, 1, 1);
    Reader r(&a);
    // U+1F600, U+0000, U+00E9, U+20AC
    ASSERT_EQ(r.from_buffer(with_length(Bytes{0xFE, 0xFF, 0xD8, 0x3D, 0xDE, 0x00, 0, 0, 0x00, 0xE9, 0x20, 0xAC, 0, 0},
                                        2)),
              0u);
    std::string s;
    ASSERT_EQ(r.read(s, 0), 0u);
    EXPECT_EQ(s, std::string("\xF0\x9F\x98\x80\0\xC3\xA9\xE2\x82\xAC", 10));
}

TEST_F(ReaderStrings, Utf16OddLengthLeavesLastByte)
{
    const ZQSomeIPExtendAttr a = make_attr(0, 4, 1, 1);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 9, 0xFE, 0xFF, 0, 'O', 0, 'K', 0, 0, 0x5C}), 0u);
    std::string s;
    ASSERT_EQ(r.read(s, 0), 0u);
    EXPECT_EQ(s, "OK");
    EXPECT_EQ(r.get_index(), 12u);
    uint8_t next = 0;
    ASSERT_EQ(r.read(next), 0u);
    EXPECT_EQ(next, 0x5C);
}

TEST_F(ReaderStrings, Utf16WrongBom)
{
    {
        const ZQSomeIPExtendAttr a = make_attr(0, 4, 1, 1);
        Reader r(&a);
        ASSERT_EQ(r.from_buffer(with_length(Bytes{0xFF, 0xFE, 'a', 0, 0, 0})), 0u);
        std::string s;
        EXPECT_EQ(r.read(s, 0), 1u);
        EXPECT_TRUE(logged("string bom is not UTF16BE"));
    }
    {
        const ZQSomeIPExtendAttr a = make_attr(1, 4, 1, 1);
        Reader r(&a);
        ASSERT_EQ(r.from_buffer(with_length(Bytes{0xFE, 0xFF, 0, 'a', 0, 0}, 4, 1)), 0u);
        std::string s;
        EXPECT_EQ(r.read(s, 0), 1u);
        EXPECT_TRUE(logged("string bom is not UTF16LE"));
    }
}

TEST_F(ReaderStrings, Utf16TerminatorCheckedBeforeBom)
{
    const ZQSomeIPExtendAttr a = make_attr(0, 4, 1, 1);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(with_length(Bytes{0xFF, 0xFE, 0, 'a', 0, 1})), 0u);
    std::string s = "keep";
    EXPECT_EQ(r.read(s, 0), 1u);
    EXPECT_TRUE(logged("string does not end with '\\0\\0'"));
    EXPECT_FALSE(logged("string bom is not UTF16BE"));
    EXPECT_EQ(s, "keep");
    EXPECT_EQ(r.get_index(), 4u);
}

TEST_F(ReaderStrings, Utf16ShortLengthsAreBadBoms)
{
    for (uint32_t order : {0u, 1u}) {
        for (uint32_t len : {0u, 1u, 2u, 3u}) {
            g_messages.clear();
            const ZQSomeIPExtendAttr a = make_attr(order, 4, 1, 1);
            Reader r(&a);
            const Bytes body = order == 0 ? Bytes{0xFE, 0xFF, 0, 0} : Bytes{0xFF, 0xFE, 0, 0};
            ASSERT_EQ(r.from_buffer(with_length(body, 4, order, len)), 0u);
            std::string s;
            EXPECT_EQ(r.read(s, 0), 1u);
            EXPECT_TRUE(logged(order == 0 ? "string bom is not UTF16BE" : "string bom is not UTF16LE"));
        }
    }
}

TEST_F(ReaderStrings, UnpairedSurrogatesThrow)
{
    const Bytes bad[] = {
        {0xD8, 0x00},              // lone high at the end
        {0xDC, 0x00, 0x00, 0x41},  // lone low
        {0xD8, 0x00, 0x00, 0x41},  // high followed by a non-low unit
        {0x00, 0x41, 0xD8, 0x3D},  // high at the end after text
        {0xD8, 0x3D, 0xD8, 0x3D, 0xDE, 0x00},  // high, high, low
    };
    for (const Bytes& units : bad) {
        const ZQSomeIPExtendAttr a = make_attr(0, 4, 1, 1);
        Reader r(&a);
        Bytes body{0xFE, 0xFF};
        body.insert(body.end(), units.begin(), units.end());
        body.push_back(0);
        body.push_back(0);
        ASSERT_EQ(r.from_buffer(with_length(body)), 0u);
        std::string s = "keep";
        try {
            r.read(s, 0);
            ADD_FAILURE() << "no exception";
        } catch (const std::range_error& e) {
            EXPECT_STREQ(e.what(), "wstring_convert::to_bytes");
        }
        EXPECT_EQ(s, "keep");
    }
}

// The converter yields what the standard facet yields for well-formed input and throws where it throws.
TEST_F(ReaderStrings, ConverterMatchesStandardFacet)
{
    std::mt19937 rng(12345);
    const char16_t pool[] = {0x0000, 0x0041, 0x007F, 0x0080, 0x07FF, 0x0800, 0xD7FF, 0xE000,
                             0xFFFD, 0xFFFE, 0xFFFF, 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0x1234};
    for (int round = 0; round < 2000; ++round) {
        std::u16string text;
        const int n = static_cast<int>(rng() % 8);
        for (int i = 0; i < n; ++i) {
            text.push_back(rng() % 3 == 0 ? static_cast<char16_t>(rng() & 0xFFFF) : pool[rng() % 16]);
        }
        const bool trailing_high = !text.empty() && text.back() >= 0xD800 && text.back() <= 0xDBFF;
        for (uint32_t order : {0u, 1u}) {
            Bytes body = order == 0 ? Bytes{0xFE, 0xFF} : Bytes{0xFF, 0xFE};
            for (char16_t u : text) {
                if (order == 0) {
                    body.push_back(static_cast<uint8_t>(u >> 8));
                    body.push_back(static_cast<uint8_t>(u));
                } else {
                    body.push_back(static_cast<uint8_t>(u));
                    body.push_back(static_cast<uint8_t>(u >> 8));
                }
            }
            body.push_back(0);
            body.push_back(0);
            const ZQSomeIPExtendAttr a = make_attr(order, 4, 1, 1);
            Reader r(&a);
            ASSERT_EQ(r.from_buffer(with_length(body, 4, order)), 0u);
            std::string mine;
            bool mine_threw = false;
            try {
                ASSERT_EQ(r.read(mine, 0), 0u);
            } catch (const std::range_error&) {
                mine_threw = true;
            }
            std::string theirs;
            bool theirs_threw = false;
            try {
                std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t> cvt;
                theirs = cvt.to_bytes(text);
            } catch (const std::range_error&) {
                theirs_threw = true;
            }
            if (trailing_high) {
                // libstdc++ stops silently before a trailing high surrogate; the reader always throws.
                EXPECT_TRUE(mine_threw);
                continue;
            }
            EXPECT_EQ(mine_threw, theirs_threw);
            if (!mine_threw && !theirs_threw) {
                EXPECT_EQ(mine, theirs);
            }
        }
    }
}

TEST_F(ReaderStrings, DynamicWithoutLengthFieldFailsSilently)
{
    const ZQSomeIPExtendAttr a = make_attr(0, 0);
    Reader r(&a);
    ASSERT_EQ(r.from_buffer(Bytes{0xEF, 0xBB, 0xBF, 0}), 0u);
    std::string s;
    EXPECT_EQ(r.read(s, 4, nullptr, true), 1u);
    EXPECT_TRUE(g_messages.empty());
    EXPECT_EQ(r.get_last_error(), 1u);
    EXPECT_EQ(r.read(s, 4, nullptr, false), 0u);  // fixed string: the caller's length
}

TEST_F(ReaderStrings, LengthFieldIsReadEvenWhenNotDynamic)
{
    for (uint32_t lfs : {1u, 2u, 4u}) {
        for (uint32_t order : {0u, 1u}) {
            const ZQSomeIPExtendAttr a = make_attr(order, lfs);
            Reader r(&a);
            ASSERT_EQ(r.from_buffer(with_length(Bytes{0xEF, 0xBB, 0xBF, 'h', 'i', 0}, lfs, order)), 0u);
            std::string s;
            ASSERT_EQ(r.read(s, 1000, nullptr, false), 0u);
            EXPECT_EQ(s, "hi");
            EXPECT_TRUE(r.is_empty());
        }
    }
}

TEST_F(ReaderStrings, DynamicStringAlignsNextElementAtTopLevel)
{
    const ZQSomeIPExtendAttr a = make_attr(0, 4, 4);
    {
        Reader r(&a);  // 4 + 5 = 9 -> 3 pad bytes
        ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 5, 0xEF, 0xBB, 0xBF, 'x', 0, 0xFF, 0xFF, 0xFF, 0, 0, 0, 1}), 0u);
        std::string s;
        ASSERT_EQ(r.read(s, 0, nullptr, true), 0u);
        uint32_t v = 0;
        ASSERT_EQ(r.read(v), 0u);
        EXPECT_EQ(v, 1u);
    }
    {
        Reader r(&a);  // not dynamic: no pad
        ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 5, 0xEF, 0xBB, 0xBF, 'x', 0, 0, 0, 0, 1}), 0u);
        std::string s;
        ASSERT_EQ(r.read(s, 0, nullptr, false), 0u);
        uint32_t v = 0;
        ASSERT_EQ(r.read(v), 0u);
        EXPECT_EQ(v, 1u);
    }
}

TEST_F(ReaderStrings, DynamicStringAlignsInStructButNotInArray)
{
    ZQSomeIPExtendAttr a = make_attr(0, 1, 4);
    a.array_length_field_size = 0;
    a.struct_length_field_size = 0;
    {
        // struct { string "x" (1 + 5 bytes); uint8 } -> offset 6 -> 2 pad bytes
        Reader r(&a);
        ASSERT_EQ(r.from_buffer(Bytes{5, 0xEF, 0xBB, 0xBF, 'x', 0, 0xFF, 0xFF, 0x42}), 0u);
        ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
        std::string s;
        ASSERT_EQ(r.read(s, 0, nullptr, true), 0u);
        uint8_t v = 0;
        ASSERT_EQ(r.read(v), 0u);
        EXPECT_EQ(v, 0x42);
    }
    {
        Reader r(&a);
        ASSERT_EQ(r.from_buffer(Bytes{5, 0xEF, 0xBB, 0xBF, 'x', 0, 0x42}), 0u);
        ASSERT_EQ(r.array_data_begin(nullptr), 0u);
        std::string s;
        ASSERT_EQ(r.read(s, 0, nullptr, true), 0u);
        uint8_t v = 0;
        ASSERT_EQ(r.read(v), 0u);
        EXPECT_EQ(v, 0x42);
    }
}

TEST_F(ReaderStrings, StringInUnionSkipsPadAfterwards)
{
    ZQSomeIPExtendAttr a = make_attr(0, 1, 4);
    a.union_type_field_size = 1;
    Reader r(&a);
    // union: length 10 | type 3 | string (1 + 6 bytes) | 3 zero pad bytes -> 2 + 7 + 3 = 12
    ASSERT_EQ(r.from_buffer(Bytes{10, 3, 6, 0xEF, 0xBB, 0xBF, 'u', 'v', 0, 0, 0, 0, 0x99}), 0u);
    uint32_t type = 0;
    ASSERT_EQ(r.union_data_begin(nullptr, type), 0u);
    EXPECT_EQ(type, 3u);
    std::string s;
    ASSERT_EQ(r.read(s, 0, nullptr, true), 0u);
    EXPECT_EQ(s, "uv");
    EXPECT_EQ(r.get_index(), 12u);
    ASSERT_EQ(r.data_end(), 0u);
    uint8_t v = 0;
    ASSERT_EQ(r.read(v), 0u);
    EXPECT_EQ(v, 0x99);
}

TEST_F(ReaderStrings, StringOverrunningItsContainer)
{
    Reader r(nullptr);
    // struct of length 6 holding a string of 4 + 5 bytes.
    ASSERT_EQ(r.from_buffer(Bytes{0, 0, 0, 6, 0, 0, 0, 5, 0xEF, 0xBB, 0xBF, 'z', 0}), 0u);
    ASSERT_EQ(r.struct_data_begin(nullptr), 0u);
    std::string s = "keep";
    EXPECT_EQ(r.read(s, 0), 1u);
    EXPECT_EQ(s, "keep");
    EXPECT_EQ(r.get_last_error(), 1u);
}

} // namespace

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
