#include "ZQSomeIPPayloadSerializerGeneral.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "ZQSomeIPPayloadFrameRules.h"
#include "ZQSomeIPPayloadUtf16.h"
#include "zq_someip_log.h"

using Rules = ZQSomeIPPayloadFrameRules;

namespace {

constexpr uint32_t kReservedBytes = 4096;


// Bytes of a length, type or selector field of `size` bytes in the utility's current network order:
// 1 is the low byte as is, 2 and 4 go through the 16- and 32-bit wire conversions (a value too large
// for the field is cut to its low bytes). False for any other size.
bool encode_field(const ZQSomeIPPayloadUtilsByteOrder& util, uint32_t size, uint32_t value, unsigned char* out)
{
    switch (size) {
    case 1:
        out[0] = static_cast<unsigned char>(value);
        return true;
    case 2: {
        const uint16_t wire = util.to_wire_16(static_cast<uint16_t>(value));
        memcpy(out, &wire, sizeof(wire));
        return true;
    }
    case 4: {
        const uint32_t wire = util.to_wire_32(value);
        memcpy(out, &wire, sizeof(wire));
        return true;
    }
    default:
        return false;
    }
}

} // namespace

ZQSomeIPPayloadSerializerGeneral::ZQSomeIPPayloadSerializerGeneral(const ZQSomeIPExtendAttr* attr)
    : attributes(Rules::engine_attributes(attr)), byte_order_util(new ZQSomeIPPayloadUtilsByteOrder()), position(0),
      need_align(false), error_code(ZQ_SOMEIP_PAYLOAD_OK)
{
    Rules::apply_byte_order(*byte_order_util, attributes.byte_order);
    buffer.reserve(kReservedBytes);
}

ZQSomeIPPayloadSerializerGeneral::~ZQSomeIPPayloadSerializerGeneral() = default;

uint32_t ZQSomeIPPayloadSerializerGeneral::fail(uint32_t code)
{
    error_code = code;
    return code;
}

// ---- attributes and alignment -------------------------------------------------------------------

ZQSomeIPInternalAttr ZQSomeIPPayloadSerializerGeneral::get_write_attr(const ZQSomeIPExtendAttr* attr) const
{
    // Top level without a record: fixed record defaults, only alignment and byte order are the writer's.
    ZQSomeIPExtendAttr top_level;
    top_level.alignment = attributes.alignment;
    top_level.byte_order = byte_order_util->get_network_byte_order();
    return Rules::current_attr(frames, attr, top_level, position);
}

ZQSomeIPExtendAttr ZQSomeIPPayloadSerializerGeneral::get_begin_extend_attr(const ZQSomeIPExtendAttr* attr) const
{
    return Rules::begin_attr(frames, attr, Rules::with_current_byte_order(attributes, *byte_order_util));
}

uint32_t ZQSomeIPPayloadSerializerGeneral::get_begin_index() const
{
    return Rules::begin_index(frames);
}

// Pads with 0xFF after a dynamic element; always returns 0.
uint32_t ZQSomeIPPayloadSerializerGeneral::calc_size(uint32_t alignment_bytes, uint32_t begin_index)
{
    if (!Rules::align_flag(frames, need_align)) {
        return 0;
    }
    write_padding(Rules::align_padding(position - begin_index, alignment_bytes), 0xFF);
    Rules::consume_align_flag(frames, need_align);
    return 0;
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write_union_padding(const ZQSomeIPInternalAttr* frame)
{
    if (!frame) {
        ZQ_SOMEIP_LOGE("[%s][%d][%s]  write_attr is null");
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    write_padding(Rules::align_padding(position - frame->begin_index, frame->attr.alignment), 0x00);
    return ZQ_SOMEIP_PAYLOAD_OK;
}

// ---- buffer -------------------------------------------------------------------------------------

void ZQSomeIPPayloadSerializerGeneral::write_payload(const unsigned char* bytes, uint32_t len)
{
    // `position` equals the buffer size in normal use; never insert past the end.
    const size_t at = std::min<size_t>(position, buffer.size());
    buffer.insert(buffer.begin() + static_cast<std::ptrdiff_t>(at), bytes, bytes + len);
    position = static_cast<uint32_t>(at) + len;
}

void ZQSomeIPPayloadSerializerGeneral::update_payload(uint32_t index, const unsigned char* bytes, uint32_t len)
{
    // Overwrites in place only: a range that does not lie inside the buffer is left alone.
    if (index > buffer.size() || len > buffer.size() - index) {
        return;
    }
    std::copy(bytes, bytes + len, buffer.begin() + index);
}

void ZQSomeIPPayloadSerializerGeneral::write_padding(uint32_t count, unsigned char byte)
{
    if (count == 0) {
        return;
    }
    const size_t at = std::min<size_t>(position, buffer.size());
    buffer.insert(buffer.begin() + static_cast<std::ptrdiff_t>(at), count, byte);
    position = static_cast<uint32_t>(at) + count;
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write_data(uint32_t size, uint32_t value)
{
    unsigned char bytes[4];
    if (!encode_field(*byte_order_util, size, value, bytes)) {
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    write_payload(bytes, size);
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write_length_field(uint32_t size)
{
    return write_data(size, 0);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write_type_field(uint32_t size, uint32_t value)
{
    return write_data(size, value);
}

bool ZQSomeIPPayloadSerializerGeneral::prepare_or_check(unsigned int /*size*/)
{
    return true;
}

std::vector<unsigned char>& ZQSomeIPPayloadSerializerGeneral::to_buffer()
{
    return buffer;
}

bool ZQSomeIPPayloadSerializerGeneral::clear()
{
    position = 0;
    need_align = false;
    buffer.clear();
    return true;
}

uint32_t ZQSomeIPPayloadSerializerGeneral::set_error_code(uint32_t code)
{
    error_code = code;
    return 0;
}

uint32_t ZQSomeIPPayloadSerializerGeneral::get_last_error() const
{
    return error_code;
}

// ---- primitives ---------------------------------------------------------------------------------

// Inside a union a value is written as is and followed by 0x00 padding; elsewhere it is preceded by
// the 0xFF alignment owed to a dynamic element written just before.
uint32_t ZQSomeIPPayloadSerializerGeneral::place_value(const unsigned char* bytes, uint32_t len,
                                                       const ZQSomeIPInternalAttr& a)
{
    if (Rules::top_is(frames, ZQ_SOMEIP_CONTAINER_UNION)) {
        write_payload(bytes, len);
        if (write_union_padding(Rules::top(frames)) != ZQ_SOMEIP_PAYLOAD_OK) {
            return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
        }
        return ZQ_SOMEIP_PAYLOAD_OK;
    }
    calc_size(a.attr.alignment, get_begin_index());
    write_payload(bytes, len);
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write_byte(unsigned char value, const ZQSomeIPExtendAttr* attr)
{
    if (!prepare_or_check(1)) {
        return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
    }
    return place_value(&value, 1, get_write_attr(attr));
}

template <typename Wire, typename Convert>
uint32_t ZQSomeIPPayloadSerializerGeneral::write_number(Wire value, const ZQSomeIPExtendAttr* attr, Convert convert)
{
    if (!prepare_or_check(sizeof(Wire))) {
        return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
    }
    const ZQSomeIPInternalAttr a = get_write_attr(attr);
    Rules::apply_byte_order(*byte_order_util, a.attr.byte_order);
    const Wire wire = convert(*byte_order_util, value);
    unsigned char bytes[sizeof(Wire)];
    memcpy(bytes, &wire, sizeof(Wire));
    return place_value(bytes, sizeof(Wire), a);
}

namespace {
const auto wire16 = [](const ZQSomeIPPayloadUtilsByteOrder& u, uint16_t v) { return u.to_wire_16(v); };
const auto wire32 = [](const ZQSomeIPPayloadUtilsByteOrder& u, uint32_t v) { return u.to_wire_32(v); };
const auto wire64 = [](const ZQSomeIPPayloadUtilsByteOrder& u, uint64_t v) { return u.to_wire_64(v); };
const auto wire_float = [](const ZQSomeIPPayloadUtilsByteOrder& u, float v) { return u.to_wire_float(v); };
const auto wire_double = [](const ZQSomeIPPayloadUtilsByteOrder& u, double v) { return u.to_wire_double(v); };
} // namespace

uint32_t ZQSomeIPPayloadSerializerGeneral::write(bool value, const ZQSomeIPExtendAttr* attr)
{
    return write_byte(value ? 1 : 0, attr);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(unsigned char value, const ZQSomeIPExtendAttr* attr)
{
    return write_byte(value, attr);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(signed char value, const ZQSomeIPExtendAttr* attr)
{
    return write_byte(static_cast<unsigned char>(value), attr);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(unsigned short value, const ZQSomeIPExtendAttr* attr)
{
    return write_number(static_cast<uint16_t>(value), attr, wire16);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(short value, const ZQSomeIPExtendAttr* attr)
{
    return write_number(static_cast<uint16_t>(value), attr, wire16);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(unsigned int value, const ZQSomeIPExtendAttr* attr)
{
    return write_number(static_cast<uint32_t>(value), attr, wire32);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(int value, const ZQSomeIPExtendAttr* attr)
{
    return write_number(static_cast<uint32_t>(value), attr, wire32);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(unsigned long value, const ZQSomeIPExtendAttr* attr)
{
    return write_number(static_cast<uint64_t>(value), attr, wire64);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(long value, const ZQSomeIPExtendAttr* attr)
{
    return write_number(static_cast<uint64_t>(value), attr, wire64);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(float value, const ZQSomeIPExtendAttr* attr)
{
    return write_number(value, attr, wire_float);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(double value, const ZQSomeIPExtendAttr* attr)
{
    return write_number(value, attr, wire_double);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write_enum(unsigned int value, unsigned int size,
                                                      const ZQSomeIPExtendAttr* attr)
{
    switch (size) {
    case 1: return write(static_cast<unsigned char>(value), attr);
    case 2: return write(static_cast<unsigned short>(value), attr);
    case 4: return write(static_cast<unsigned int>(value), attr);
    default:
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  enum size:[%d] error", static_cast<int>(size));
        return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
    }
}

// ---- byte blocks --------------------------------------------------------------------------------

uint32_t ZQSomeIPPayloadSerializerGeneral::write(const unsigned char* data, unsigned int len,
                                                 const ZQSomeIPExtendAttr* attr)
{
    if (!prepare_or_check(len)) {
        return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
    }
    if (!data || len == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  serialize array is null");
        return fail(ZQ_SOMEIP_PAYLOAD_MISUSE);
    }
    const ZQSomeIPInternalAttr a = get_write_attr(attr);
    const ZQSomeIPInternalAttr* below = Rules::below_top(frames);
    if (below && below->type == ZQ_SOMEIP_CONTAINER_UNION) {
        write_payload(data, len);
        return ZQ_SOMEIP_PAYLOAD_OK;
    }
    calc_size(a.attr.alignment, get_begin_index());
    write_payload(data, len);
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(const signed char* data, unsigned int len,
                                                 const ZQSomeIPExtendAttr* attr)
{
    return write(reinterpret_cast<const unsigned char*>(data), len, attr);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(const std::vector<unsigned char>& data,
                                                 const ZQSomeIPExtendAttr* attr)
{
    return write(data.empty() ? nullptr : data.data(), static_cast<unsigned int>(data.size()), attr);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::write(const std::vector<signed char>& data,
                                                 const ZQSomeIPExtendAttr* attr)
{
    return write(data.empty() ? nullptr : data.data(), static_cast<unsigned int>(data.size()), attr);
}

// ---- strings ------------------------------------------------------------------------------------

uint32_t ZQSomeIPPayloadSerializerGeneral::write(const std::string& text, const ZQSomeIPExtendAttr* attr,
                                                 bool dynamic)
{
    if (!prepare_or_check(static_cast<unsigned int>(text.size()))) {
        return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
    }
    const ZQSomeIPInternalAttr a = get_write_attr(attr);
    if (Rules::top_is(frames, ZQ_SOMEIP_CONTAINER_UNION)) {
        const uint32_t result = write_string(text, a, dynamic);
        if (result != ZQ_SOMEIP_PAYLOAD_OK) {
            return fail(result);
        }
        if (write_union_padding(Rules::top(frames)) != ZQ_SOMEIP_PAYLOAD_OK) {
            return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
        }
        return ZQ_SOMEIP_PAYLOAD_OK;
    }
    calc_size(a.attr.alignment, get_begin_index());
    const uint32_t result = write_string(text, a, dynamic);
    if (result != ZQ_SOMEIP_PAYLOAD_OK) {
        return fail(result);
    }
    if (dynamic) {
        Rules::mark_after_dynamic_string(frames, need_align);
    }
    return ZQ_SOMEIP_PAYLOAD_OK;
}

// [length field] BOM text terminator; the length counts everything after the length field.
uint32_t ZQSomeIPPayloadSerializerGeneral::write_string(const std::string& text, const ZQSomeIPInternalAttr& a,
                                                        bool dynamic)
{
    Rules::apply_byte_order(*byte_order_util, a.attr.byte_order);
    const uint32_t length_size = a.attr.string_length_field_size;
    if (length_size == 0 && dynamic) {
        return ZQ_SOMEIP_PAYLOAD_ERROR;  // a dynamic string needs its length field
    }
    const uint32_t start = position;
    if (length_size > 0 && write_length_field(length_size) != ZQ_SOMEIP_PAYLOAD_OK) {
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }

    if (a.attr.string_utf != ZQ_SOMEIP_PAYLOAD_STRING_UTF16) {
        static const unsigned char terminator8[1] = {0x00};
        write_payload(BOM_UTF8, sizeof(BOM_UTF8));
        write_payload(reinterpret_cast<const unsigned char*>(text.data()), static_cast<uint32_t>(text.size()));
        write_payload(terminator8, sizeof(terminator8));
    } else {
        static const unsigned char terminator16[2] = {0x00, 0x00};
        const bool little = a.attr.byte_order == ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN;
        write_payload(little ? BOM_UTF16LE : BOM_UTF16BE, 2);
        const std::u16string units = zq_someip_utf8_to_utf16(text);  // throws std::range_error on what the converter refuses
        std::vector<unsigned char> bytes;
        bytes.reserve(units.size() * 2);
        for (const char16_t unit : units) {
            const unsigned char high = static_cast<unsigned char>(unit >> 8);
            const unsigned char low = static_cast<unsigned char>(unit & 0xFF);
            bytes.push_back(little ? low : high);
            bytes.push_back(little ? high : low);
        }
        if (!bytes.empty()) {
            write_payload(bytes.data(), static_cast<uint32_t>(bytes.size()));
        }
        write_payload(terminator16, sizeof(terminator16));
    }

    if (length_size == 0) {
        return ZQ_SOMEIP_PAYLOAD_OK;
    }
    const int32_t length = static_cast<int32_t>(position - start - length_size);
    if (length < 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  length_field value:[%d], error", length);
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    unsigned char field[4];
    encode_field(*byte_order_util, length_size, static_cast<uint32_t>(length), field);
    update_payload(start, field, length_size);
    return ZQ_SOMEIP_PAYLOAD_OK;
}

// ---- containers ---------------------------------------------------------------------------------

uint32_t ZQSomeIPPayloadSerializerGeneral::begin_container(uint32_t type, const ZQSomeIPExtendAttr* attr,
                                                           unsigned int selector)
{
    ZQSomeIPInternalAttr frame;
    frame.type = type;
    frame.attr = get_begin_extend_attr(attr);
    const uint32_t length_size = Rules::length_field_size(frame);
    const bool is_union = type == ZQ_SOMEIP_CONTAINER_UNION;
    if (!prepare_or_check(length_size + (is_union ? frame.attr.union_type_field_size : 0))) {
        return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
    }

    // Align the container's start within the enclosing one (at top level only the flag is cleared).
    const ZQSomeIPInternalAttr* outer = Rules::top(frames);
    calc_size(outer ? outer->attr.alignment : ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE, outer ? outer->begin_index : 0);

    frame.begin_index = position;
    frame.need_align = is_union && frame.attr.alignment > 1;
    Rules::apply_byte_order(*byte_order_util, frame.attr.byte_order);
    if (length_size > 0 && write_length_field(length_size) != ZQ_SOMEIP_PAYLOAD_OK) {
        return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
    }
    if (is_union && frame.attr.union_type_field_size > 0 &&
        write_type_field(frame.attr.union_type_field_size, selector) != ZQ_SOMEIP_PAYLOAD_OK) {
        return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
    }
    frames.push_back(frame);
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadSerializerGeneral::struct_data_begin(const ZQSomeIPExtendAttr* attr)
{
    return begin_container(ZQ_SOMEIP_CONTAINER_STRUCT, attr, 0);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::array_data_begin(const ZQSomeIPExtendAttr* attr)
{
    return begin_container(ZQ_SOMEIP_CONTAINER_ARRAY, attr, 0);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::vector_data_begin(const ZQSomeIPExtendAttr* attr)
{
    return begin_container(ZQ_SOMEIP_CONTAINER_VECTOR, attr, 0);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::union_data_begin(const ZQSomeIPExtendAttr* attr, unsigned int selector)
{
    return begin_container(ZQ_SOMEIP_CONTAINER_UNION, attr, selector);
}

uint32_t ZQSomeIPPayloadSerializerGeneral::tlv_data_begin(const ZQSomeIPExtendAttr* /*attr*/, unsigned int /*tag*/)
{
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadSerializerGeneral::data_end()
{
    if (frames.empty()) {
        return fail(ZQ_SOMEIP_PAYLOAD_MISUSE);
    }
    const ZQSomeIPInternalAttr frame = frames.back();
    uint32_t length_size = 0;
    switch (frame.type) {
    case ZQ_SOMEIP_CONTAINER_ARRAY:
    case ZQ_SOMEIP_CONTAINER_STRUCT:
    case ZQ_SOMEIP_CONTAINER_UNION:
    case ZQ_SOMEIP_CONTAINER_VECTOR:
        length_size = Rules::length_field_size(frame);
        break;
    default:
        break;  // unknown kind: popped without patching
    }
    if (frame.type == ZQ_SOMEIP_CONTAINER_VECTOR) {
        Rules::mark_after_vector(frames, need_align);
    }

    if (length_size > 0) {
        uint32_t header = length_size;
        if (frame.type == ZQ_SOMEIP_CONTAINER_UNION) {
            header += frame.attr.union_type_field_size;
        }
        const int32_t length = static_cast<int32_t>(position - frame.begin_index - header);
        if (length < 0) {
            ZQ_SOMEIP_LOGE(" [%s][%d][%s]  length_field value:[%d], error", length);
            return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
        }
        Rules::apply_byte_order(*byte_order_util, frame.attr.byte_order);
        unsigned char field[4];
        if (encode_field(*byte_order_util, length_size, static_cast<uint32_t>(length), field)) {
            update_payload(frame.begin_index, field, length_size);
        }
    }

    frames.pop_back();
    if (Rules::top_is(frames, ZQ_SOMEIP_CONTAINER_UNION) &&
        write_union_padding(Rules::top(frames)) != ZQ_SOMEIP_PAYLOAD_OK) {
        return fail(ZQ_SOMEIP_PAYLOAD_ERROR);
    }
    return ZQ_SOMEIP_PAYLOAD_OK;
}
