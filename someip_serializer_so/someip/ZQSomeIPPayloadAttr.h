#ifndef ZQ_SOMEIP_PAYLOAD_ATTR_H
#define ZQ_SOMEIP_PAYLOAD_ATTR_H

#include <cstdint>

// Byte order of numbers and length fields on the wire. The host is taken to be little endian.
enum ZQSomeIPPayloadByteOrder : uint32_t {
    ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_BIG_ENDIAN = 0,    // network order, the wire default
    ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN = 1,
};

// Alignment in bytes; 1 means none. The engines divide by it, so 0 must never reach them.
enum ZQSomeIPPayloadAlignment : uint32_t {
    ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE = 1,
    ZQ_SOMEIP_PAYLOAD_ALIGNMENT_16BIT = 2,
    ZQ_SOMEIP_PAYLOAD_ALIGNMENT_32BIT = 4,
    ZQ_SOMEIP_PAYLOAD_ALIGNMENT_64BIT = 8,
};

// Results of the payload engines.
enum ZQSomeIPPayloadErrorCode : uint32_t {
    ZQ_SOMEIP_PAYLOAD_OK = 0,
    ZQ_SOMEIP_PAYLOAD_ERROR = 1,           // bad size, bad length, bad attribute, conversion failure, truncated data
    ZQ_SOMEIP_PAYLOAD_MISUSE = 2,          // container ended with none open, null or empty byte block
    ZQ_SOMEIP_PAYLOAD_CONTAINER_FULL = 3,  // reader: the innermost length-delimited container is used up
};

// String encodings of ZQSomeIPExtendAttr::string_utf: 1 is UTF-16, anything else UTF-8.
enum ZQSomeIPPayloadStringEncoding : uint32_t {
    ZQ_SOMEIP_PAYLOAD_STRING_UTF8 = 0,
    ZQ_SOMEIP_PAYLOAD_STRING_UTF16 = 1,
};

// Container kinds of a frame (ZQSomeIPInternalAttr::type). No string frame is ever pushed: the code
// only selects the string length field size where a size is chosen by type.
enum ZQSomeIPPayloadContainerType : uint32_t {
    ZQ_SOMEIP_CONTAINER_NONE = 0,
    ZQ_SOMEIP_CONTAINER_ARRAY = 1,
    ZQ_SOMEIP_CONTAINER_STRING = 2,
    ZQ_SOMEIP_CONTAINER_STRUCT = 3,
    ZQ_SOMEIP_CONTAINER_UNION = 4,
    ZQ_SOMEIP_CONTAINER_VECTOR = 5,
};

inline constexpr unsigned char BOM_UTF8[3] = {0xEF, 0xBB, 0xBF};
inline constexpr unsigned char BOM_UTF16LE[2] = {0xFF, 0xFE};
inline constexpr unsigned char BOM_UTF16BE[2] = {0xFE, 0xFF};

// How the payloads of one method format are encoded. The defaults are those of a fresh record, which
// are also the values a method lookup starts from.
struct ZQSomeIPExtendAttr {
    uint32_t array_length_field_size = 4;   // bytes of the length field before a fixed array: 0, 1, 2 or 4
    uint32_t vector_length_field_size = 4;  // same, for a dynamic array
    uint32_t struct_length_field_size = 4;  // same, for a struct
    uint32_t string_length_field_size = 4;  // same, for a string
    uint32_t union_length_field_size = 4;   // same, for a union
    uint32_t alignment = ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE;             // ZQSomeIPPayloadAlignment
    uint32_t byte_order = ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN;  // ZQSomeIPPayloadByteOrder
    uint32_t union_type_field_size = 4;     // bytes of the union type selector: 0, 1, 2 or 4
    uint32_t string_utf = ZQ_SOMEIP_PAYLOAD_STRING_UTF8;               // 1 = UTF-16, else UTF-8
    bool dynamic_flag = true;               // carried into every frame; not consulted when writing
    uint32_t length_field_value = 0;        // reader frames: value of the container's length field
    uint32_t length_field_read = 0;         // reader frames: bytes read inside the container so far
};

// One open container of an engine, and the shape of the attributes in force for one element.
struct ZQSomeIPInternalAttr {
    uint32_t type = ZQ_SOMEIP_CONTAINER_NONE;  // ZQSomeIPPayloadContainerType
    ZQSomeIPExtendAttr attr;
    uint32_t begin_index = 0;                  // where the container (its length field) starts
    bool need_align = false;                   // a dynamic element just ended: align the next one
};

#endif // ZQ_SOMEIP_PAYLOAD_ATTR_H
