// Helpers shared by the payload writer, reader and engine round-trip tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "someip/ZQSomeIPPayloadAttr.h"
#include "someip/zq_someip_log.h"

namespace enginetest {

using Bytes = std::vector<uint8_t>;

// "00 0a | FF" -> {0x00, 0x0A, 0xFF}; '|' only groups fields for the eye.
inline Bytes hex(const std::string& text)
{
    Bytes out;
    std::istringstream in(text);
    for (std::string t; in >> t;) {
        if (t != "|") out.push_back(static_cast<uint8_t>(std::stoul(t, nullptr, 16)));
    }
    return out;
}

inline Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// `value` in `size` bytes, big endian for order 0, little endian for order 1.
inline Bytes field(uint32_t size, uint64_t value, uint32_t order)
{
    Bytes out;
    for (uint32_t i = 0; i < size; ++i) out.push_back(static_cast<uint8_t>(value >> 8 * (order ? i : size - 1 - i)));
    return out;
}

// Attributes spelled by name, from big endian, no alignment, 4-byte length and selector fields and
// UTF-8: Attr().little().align(8).lengths(2).utf16().selector(1).
struct Attr {
    ZQSomeIPExtendAttr a{4, 4, 4, 4, 4, 1, ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_BIG_ENDIAN, 4, ZQ_SOMEIP_PAYLOAD_STRING_UTF8};

    Attr& order(uint32_t byte_order) { a.byte_order = byte_order; return *this; }  // 0 big, 1 little endian
    Attr& little() { return order(ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN); }
    Attr& align(uint32_t bytes) { a.alignment = bytes; return *this; }
    // Every length field (arrays, vectors, structs, strings, unions).
    Attr& lengths(uint32_t bytes)
    {
        a.array_length_field_size = a.vector_length_field_size = a.struct_length_field_size = bytes;
        a.string_length_field_size = a.union_length_field_size = bytes;
        return *this;
    }
    Attr& arrayLength(uint32_t bytes) { a.array_length_field_size = bytes; return *this; }
    Attr& structLength(uint32_t bytes) { a.struct_length_field_size = bytes; return *this; }
    Attr& stringLength(uint32_t bytes) { a.string_length_field_size = bytes; return *this; }
    Attr& selector(uint32_t bytes) { a.union_type_field_size = bytes; return *this; }
    Attr& utf16(bool on = true) { a.string_utf = on ? ZQ_SOMEIP_PAYLOAD_STRING_UTF16 : ZQ_SOMEIP_PAYLOAD_STRING_UTF8; return *this; }
    operator ZQSomeIPExtendAttr() const { return a; }
};

// Routes the error lines into `errors` instead of standard output while a test runs.
class EngineTest : public ::testing::Test {
protected:
    static inline std::vector<std::string> errors;

    void SetUp() override
    {
        errors.clear();
        setenv("SOMEIPSER_LOG_LEVEL", "1", 1);
        zq_someip_set_logfunc_callback(capture);
    }
    void TearDown() override
    {
        zq_someip_set_logfunc_callback(nullptr);
        unsetenv("SOMEIPSER_LOG_LEVEL");
    }
    // An error line of the form " [<source>][<line>][<function>]  <text>".
    static bool logged(const std::string& source, const std::string& text)
    {
        const std::string tail = "]  " + text;
        return std::any_of(errors.begin(), errors.end(), [&](const std::string& m) {
            return m.rfind(" [", 0) == 0 && m.find(source + "][") != std::string::npos && m.size() > tail.size() &&
                   m.compare(m.size() - tail.size(), tail.size(), tail) == 0;
        });
    }
    static void capture(int32_t level, const char* tag, const char* message)
    {
        if (level == ZQ_SOMEIP_LEVEL_ERROR && std::string(tag) == "ESOMEIP_ERROR") errors.push_back(message);
    }
};

} // namespace enginetest
