#ifndef ZQ_SOMEIP_PAYLOAD_SERIALIZER_GENERAL_H
#define ZQ_SOMEIP_PAYLOAD_SERIALIZER_GENERAL_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ZQSomeIPPayloadAttr.h"
#include "ZQSomeIPPayloadUtilsByteOrder.h"

// Builds one SOME/IP payload in memory, element by element. Every write returns 0 or an error code of
// ZQSomeIPPayloadErrorCode and keeps a non-zero result as the last error. A null attribute record
// means "the attributes in force": the innermost container's, or the defaults at top level.
class ZQ_SOMEIP_API ZQSomeIPPayloadSerializerGeneral {
public:
    explicit ZQSomeIPPayloadSerializerGeneral(const ZQSomeIPExtendAttr* attr = nullptr);
    virtual ~ZQSomeIPPayloadSerializerGeneral();

    ZQSomeIPPayloadSerializerGeneral(const ZQSomeIPPayloadSerializerGeneral&) = delete;
    ZQSomeIPPayloadSerializerGeneral& operator=(const ZQSomeIPPayloadSerializerGeneral&) = delete;

    // Primitives.
    uint32_t write(bool value, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(unsigned char value, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(signed char value, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(unsigned short value, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(short value, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(unsigned int value, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(int value, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(unsigned long value, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(long value, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(float value, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(double value, const ZQSomeIPExtendAttr* attr = nullptr);

    // Raw byte blocks, no byte order applied.
    uint32_t write(const unsigned char* data, unsigned int len, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(const signed char* data, unsigned int len, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(const std::vector<unsigned char>& data, const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t write(const std::vector<signed char>& data, const ZQSomeIPExtendAttr* attr = nullptr);

    // Enumeration stored in the low `size` (1, 2 or 4) bytes.
    uint32_t write_enum(unsigned int value, unsigned int size, const ZQSomeIPExtendAttr* attr = nullptr);

    // Strings arrive as UTF-8; `dynamic` marks a variable-length string (needs a length field, and the
    // element after it is aligned).
    // A string literal given without its other arguments converts to bool, not to text: pass a
    // std::string.
    uint32_t write(const std::string& text, const ZQSomeIPExtendAttr* attr = nullptr, bool dynamic = false);

    // Containers: begin reserves the length field (and writes a union's selector), data_end back-patches.
    uint32_t struct_data_begin(const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t array_data_begin(const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t vector_data_begin(const ZQSomeIPExtendAttr* attr = nullptr);
    uint32_t union_data_begin(const ZQSomeIPExtendAttr* attr, unsigned int selector);
    uint32_t tlv_data_begin(const ZQSomeIPExtendAttr* attr, unsigned int tag);  // unsupported: no-op
    uint32_t data_end();

    bool prepare_or_check(unsigned int size);
    std::vector<unsigned char>& to_buffer();
    bool clear();
    uint32_t set_error_code(uint32_t code);
    uint32_t get_last_error() const;

    // Attribute and position rules, public so that hosts and tests can inspect the writer's state.
    ZQSomeIPInternalAttr get_write_attr(const ZQSomeIPExtendAttr* attr) const;
    ZQSomeIPExtendAttr get_begin_extend_attr(const ZQSomeIPExtendAttr* attr) const;
    uint32_t get_begin_index() const;
    uint32_t calc_size(uint32_t alignment, uint32_t begin_index);
    uint32_t write_union_padding(const ZQSomeIPInternalAttr* frame);

private:
    // Shared paths of the typed writes: one byte (no byte order), a converted number, a container begin.
    uint32_t write_byte(unsigned char value, const ZQSomeIPExtendAttr* attr);
    template <typename Wire, typename Convert>
    uint32_t write_number(Wire value, const ZQSomeIPExtendAttr* attr, Convert convert);
    uint32_t place_value(const unsigned char* bytes, uint32_t len, const ZQSomeIPInternalAttr& a);
    uint32_t begin_container(uint32_t type, const ZQSomeIPExtendAttr* attr, unsigned int selector);
    uint32_t fail(uint32_t code);  // stores and returns a non-zero result

    uint32_t write_string(const std::string& text, const ZQSomeIPInternalAttr& a, bool dynamic);
    void write_payload(const unsigned char* bytes, uint32_t len);
    void update_payload(uint32_t index, const unsigned char* bytes, uint32_t len);
    uint32_t write_data(uint32_t size, uint32_t value);
    uint32_t write_length_field(uint32_t size);
    uint32_t write_type_field(uint32_t size, uint32_t value);
    void write_padding(uint32_t count, unsigned char byte);

    // The writer's own attributes, taken from the construction record; the byte order lives in
    // byte_order_util.
    ZQSomeIPExtendAttr attributes;
    std::unique_ptr<ZQSomeIPPayloadUtilsByteOrder> byte_order_util;

    uint32_t position;   // bytes written so far
    bool need_align;     // top-level counterpart of a frame's need_align
    std::vector<unsigned char> buffer;
    uint32_t error_code;
    std::vector<ZQSomeIPInternalAttr> frames;  // open containers, innermost last
};

#endif // ZQ_SOMEIP_PAYLOAD_SERIALIZER_GENERAL_H
