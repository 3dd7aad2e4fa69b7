#ifndef ZQ_SOMEIP_PAYLOAD_DESERIALIZER_GENERAL_H
#define ZQ_SOMEIP_PAYLOAD_DESERIALIZER_GENERAL_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ZQSomeIPPayloadAttr.h"
#include "ZQSomeIPPayloadUtilsByteOrder.h"

// Reads one SOME/IP payload back: primitives, containers and strings in the wire encoding that
// ZQSomeIPPayloadSerializerGeneral writes, with bounds checks and length accounting over every open
// length-delimited container. Every operation returns 0 or a ZQSomeIPPayloadErrorCode. A failed
// reader is left where the failing step stopped and should be discarded.
class ZQ_SOMEIP_API ZQSomeIPPayloadDeserializerGeneral {
public:
    explicit ZQSomeIPPayloadDeserializerGeneral(const ZQSomeIPExtendAttr* attr = nullptr);
    virtual ~ZQSomeIPPayloadDeserializerGeneral();

    ZQSomeIPPayloadDeserializerGeneral(const ZQSomeIPPayloadDeserializerGeneral&) = delete;
    ZQSomeIPPayloadDeserializerGeneral& operator=(const ZQSomeIPPayloadDeserializerGeneral&) = delete;

    // Loading the payload. from_buffer does not reset the read position: call clear() for that.
    uint32_t from_buffer(const uint8_t* data, uint32_t size);
    uint32_t from_buffer(const std::vector<uint8_t>& data);
    uint32_t from_buffer(std::vector<uint8_t>&& data);
    bool is_empty() const;
    bool clear();

    uint32_t set_error_code(uint32_t code);
    uint32_t get_last_error() const;
    bool prepare_or_check(uint32_t size);

    uint32_t get_length_field_value() const;  // outermost open container's length field value
    uint32_t get_begin_index() const;
    uint32_t get_length_field_size(const ZQSomeIPInternalAttr* frame) const;
    ZQSomeIPInternalAttr get_write_attr(const ZQSomeIPExtendAttr* attr) const;
    ZQSomeIPExtendAttr get_begin_extend_attr(const ZQSomeIPExtendAttr* attr) const;

    // Primitives.
    uint32_t read(bool& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(char& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(int8_t& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(uint8_t& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(int16_t& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(uint16_t& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(int32_t& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(uint32_t& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(int64_t& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(uint64_t& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(float& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(double& out, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read_enum(uint32_t& out, uint32_t size, const ZQSomeIPExtendAttr* attr = nullptr);

    // Raw copy of `len` bytes inside an open container.
    uint32_t read(uint8_t* out, uint32_t len, const ZQSomeIPExtendAttr* attr = nullptr);

    // Containers.
    uint32_t struct_data_begin(const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t array_data_begin(const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t vector_data_begin(const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t union_data_begin(const ZQSomeIPExtendAttr* attr, uint32_t& type);
    uint32_t tlv_data_begin(const ZQSomeIPExtendAttr* attr, uint32_t& tag);  // unsupported: no-op
    uint32_t data_end();

    // Whole content of the innermost array or vector. `*data` points into the reader's buffer and is
    // valid while the buffer is unchanged; `*size` is the length field's value, or the caller's size
    // when the container has no length field.
    uint32_t read(uint8_t** data, uint32_t* size, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(std::vector<uint8_t>& out, uint32_t len, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t read(std::vector<int8_t>& out, uint32_t len, const ZQSomeIPExtendAttr* attr = nullptr);

    // Strings, returned as UTF-8. `len` is used when no string length field is configured.
    uint32_t read(std::string& out, uint32_t len, const ZQSomeIPExtendAttr* attr = nullptr, bool dynamic = false);

    // Building blocks, public for inspection and tests.
    uint32_t read_payload(void* out, uint32_t size);
    uint32_t read_data(uint32_t size, uint32_t* out);
    uint32_t read_length_field(uint32_t size, uint32_t* out);
    uint32_t read_type_field(uint32_t size, uint32_t* out);
    uint32_t calc_size(uint32_t align, uint32_t begin);
    uint32_t check_length_field() const;
    uint32_t modify_length_field_read(uint32_t n);

    uint32_t get_index() const { return m_index; }
    uint32_t get_size() const { return m_size; }

private:
    // Shared step of the primitive reads: checks, alignment skip and the raw (unconverted) bytes; on
    // success also hands back the byte order the value is to be converted from.
    template <typename U>
    uint32_t read_raw(U& raw, const ZQSomeIPExtendAttr* attr, uint32_t& byte_order);
    template <typename Out>
    uint32_t read_number(Out& out, const ZQSomeIPExtendAttr* attr);
    // Shared step of the four begin calls; `union_type` receives a union's type field.
    uint32_t begin_container(uint32_t type, const ZQSomeIPExtendAttr* attr, uint32_t* union_type);
    template <typename B>
    uint32_t read_block_into(std::vector<B>& out, uint32_t len, const ZQSomeIPExtendAttr* attr);
    uint32_t read_string(std::string& out, uint32_t len, ZQSomeIPInternalAttr& a, bool dynamic);

    // Default attributes, taken from the construction record; the byte order lives in m_byte_order.
    ZQSomeIPExtendAttr attributes;

    std::unique_ptr<ZQSomeIPPayloadUtilsByteOrder> m_byte_order;
    std::vector<uint8_t> m_buffer;
    uint32_t m_size;
    uint32_t m_index;
    bool m_align_pending;
    uint32_t m_error_code;
    std::vector<ZQSomeIPInternalAttr> m_attr_list;  // open containers, innermost last
};

#endif // ZQ_SOMEIP_PAYLOAD_DESERIALIZER_GENERAL_H
