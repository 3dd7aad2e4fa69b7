#include "ZQSomeIPPayloadDeserializerGeneral.h"

#include <cstring>
#include <stdexcept>

#include "ZQSomeIPPayloadFrameRules.h"
#include "ZQSomeIPPayloadUtf16.h"
#include "zq_someip_log.h"

namespace {

using Rules = ZQSomeIPPayloadFrameRules;

// True when `count` bytes starting at `index` lie inside a buffer of `size` bytes. Computed in 64 bits
// so that neither a huge count nor an index already past the end (after an alignment skip) can wrap.
bool fits(uint32_t index, uint32_t count, uint32_t size)
{
    return static_cast<uint64_t>(index) + count <= size;
}

// UTF-16 code units (`bytes` holds `count` bytes, two per unit, in the given order) to UTF-8, by the
// standard converter (U+0000 kept, no byte order mark written; what it refuses throws std::range_error
// "wstring_convert::to_bytes", which leaves through the caller).
std::string utf16_to_utf8(const uint8_t* bytes, uint32_t count, bool little_endian)
{
    std::u16string units(count / 2, u'\0');
    for (uint32_t i = 0; i < count / 2; ++i) {
        const uint32_t b0 = bytes[2 * i];
        const uint32_t b1 = bytes[2 * i + 1];
        units[i] = static_cast<char16_t>(little_endian ? (b0 | (b1 << 8)) : ((b0 << 8) | b1));
    }
    return zq_someip_utf16_to_utf8(units);
}

// The length field that sizes a block: that of the array or vector it is read from; other containers
// have none for it.
uint32_t block_length_field_size(const ZQSomeIPInternalAttr& top)
{
    if (top.type == ZQ_SOMEIP_CONTAINER_ARRAY) {
        return top.attr.array_length_field_size;
    }
    if (top.type == ZQ_SOMEIP_CONTAINER_VECTOR) {
        return top.attr.vector_length_field_size;
    }
    return 0;
}

} // namespace

ZQSomeIPPayloadDeserializerGeneral::ZQSomeIPPayloadDeserializerGeneral(const ZQSomeIPExtendAttr* attr)
    : attributes(Rules::engine_attributes(attr)), m_byte_order(new ZQSomeIPPayloadUtilsByteOrder()), m_size(0),
      m_index(0), m_align_pending(false), m_error_code(ZQ_SOMEIP_PAYLOAD_OK)
{
    Rules::apply_byte_order(*m_byte_order, attributes.byte_order);
}

ZQSomeIPPayloadDeserializerGeneral::~ZQSomeIPPayloadDeserializerGeneral() = default;

// ---------------------------------------------------------------------------------------------------
// Loading and state

uint32_t ZQSomeIPPayloadDeserializerGeneral::from_buffer(const uint8_t* data, uint32_t size)
{
    if (data == nullptr || size == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  parameters error, buffer is null or size is 0");
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    m_buffer.assign(data, data + size);
    m_size = size;
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::from_buffer(const std::vector<uint8_t>& data)
{
    const uint32_t code = from_buffer(data.data(), static_cast<uint32_t>(data.size()));
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
    }
    return code;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::from_buffer(std::vector<uint8_t>&& data)
{
    m_buffer = std::move(data);
    m_size = static_cast<uint32_t>(m_buffer.size());
    return ZQ_SOMEIP_PAYLOAD_OK;
}

bool ZQSomeIPPayloadDeserializerGeneral::is_empty() const { return m_index >= m_size; }

bool ZQSomeIPPayloadDeserializerGeneral::clear()
{
    m_index = 0;
    m_align_pending = false;
    return true;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::set_error_code(uint32_t code)
{
    m_error_code = code;
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::get_last_error() const { return m_error_code; }

bool ZQSomeIPPayloadDeserializerGeneral::prepare_or_check(uint32_t /*size*/) { return true; }

uint32_t ZQSomeIPPayloadDeserializerGeneral::get_length_field_value() const
{
    // The outermost frame on purpose (see the header).
    return m_attr_list.empty() ? 0 : m_attr_list.front().attr.length_field_value;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::get_begin_index() const { return Rules::begin_index(m_attr_list); }

uint32_t ZQSomeIPPayloadDeserializerGeneral::get_length_field_size(const ZQSomeIPInternalAttr* frame) const
{
    if (frame == nullptr) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  attr null");
        return 0;
    }
    return Rules::length_field_size(*frame);
}

ZQSomeIPInternalAttr ZQSomeIPPayloadDeserializerGeneral::get_write_attr(const ZQSomeIPExtendAttr* attr) const
{
    return Rules::current_attr(m_attr_list, attr, Rules::with_current_byte_order(attributes, *m_byte_order),
                               m_index);
}

ZQSomeIPExtendAttr ZQSomeIPPayloadDeserializerGeneral::get_begin_extend_attr(const ZQSomeIPExtendAttr* attr) const
{
    return Rules::begin_attr(m_attr_list, attr, Rules::with_current_byte_order(attributes, *m_byte_order));
}

// ---------------------------------------------------------------------------------------------------
// Building blocks

uint32_t ZQSomeIPPayloadDeserializerGeneral::read_payload(void* out, uint32_t size)
{
    if (out == nullptr || !fits(m_index, size, m_size)) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  parameters error or out of memory, m_index:[%d], size:[%d], m_size:[%d]",
                       static_cast<int>(m_index), static_cast<int>(size), static_cast<int>(m_size));
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    if (size > 0) {
        memcpy(out, m_buffer.data() + m_index, size);
    }
    m_index += size;
    return modify_length_field_read(size);
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::read_data(uint32_t size, uint32_t* out)
{
    if (out == nullptr) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  parameters error, size is null");
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    if (size == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  length is 0");
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    uint32_t code = ZQ_SOMEIP_PAYLOAD_OK;
    switch (size) {
    case 1: {
        uint8_t v = 0;
        code = read_payload(&v, 1);
        if (code == ZQ_SOMEIP_PAYLOAD_OK) {
            *out = v;
        }
        break;
    }
    case 2: {
        uint16_t v = 0;
        code = read_payload(&v, 2);
        if (code == ZQ_SOMEIP_PAYLOAD_OK) {
            *out = static_cast<uint32_t>(m_byte_order->to_wire_16(v)) & 0xFFFFu;
        }
        break;
    }
    case 4: {
        uint32_t v = 0;
        code = read_payload(&v, 4);
        if (code == ZQ_SOMEIP_PAYLOAD_OK) {
            *out = m_byte_order->to_wire_32(v);
        }
        break;
    }
    default:
        code = ZQ_SOMEIP_PAYLOAD_ERROR;
        break;
    }
    return code;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::read_length_field(uint32_t size, uint32_t* out)
{
    if (out == nullptr) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  parameters error, size is null");
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    return read_data(size, out);
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::read_type_field(uint32_t size, uint32_t* out)
{
    if (out == nullptr) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  parameters error, type is null");
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    return read_data(size, out);
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::calc_size(uint32_t align, uint32_t begin)
{
    if (!Rules::align_flag(m_attr_list, m_align_pending)) {
        return ZQ_SOMEIP_PAYLOAD_OK;
    }
    // The pad itself is never checked against m_size: m_index may pass the end here, and the next
    // bounded read fails instead.
    const uint32_t pad = Rules::align_padding(m_index - begin, align, true);
    if (pad != 0) {
        m_index += pad;
        const uint32_t code = modify_length_field_read(pad);
        if (code != ZQ_SOMEIP_PAYLOAD_OK) {
            return code;
        }
    }
    Rules::consume_align_flag(m_attr_list, m_align_pending);
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::check_length_field() const
{
    for (auto it = m_attr_list.rbegin(); it != m_attr_list.rend(); ++it) {
        if (static_cast<int32_t>(it->type) < 1 || Rules::length_field_size(*it) == 0) {
            continue;
        }
        if (it->attr.length_field_value < it->attr.length_field_read) {
            return ZQ_SOMEIP_PAYLOAD_ERROR;
        }
        if (it->attr.length_field_value == it->attr.length_field_read) {
            return ZQ_SOMEIP_PAYLOAD_CONTAINER_FULL;
        }
        return ZQ_SOMEIP_PAYLOAD_OK;
    }
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::modify_length_field_read(uint32_t n)
{
    for (auto it = m_attr_list.rbegin(); it != m_attr_list.rend(); ++it) {
        if (static_cast<int32_t>(it->type) < 1 || Rules::length_field_size(*it) == 0) {
            continue;
        }
        // 64-bit sum: a huge n must not wrap around and pass the check.
        if (static_cast<uint64_t>(it->attr.length_field_read) + n > it->attr.length_field_value) {
            return ZQ_SOMEIP_PAYLOAD_ERROR;  // frames above this one keep their update, no rollback
        }
        it->attr.length_field_read += n;
    }
    return ZQ_SOMEIP_PAYLOAD_OK;
}

// ---------------------------------------------------------------------------------------------------
// Primitives

template <typename U>
uint32_t ZQSomeIPPayloadDeserializerGeneral::read_raw(U& raw, const ZQSomeIPExtendAttr* attr, uint32_t& byte_order)
{
    if (!prepare_or_check(sizeof(U))) {
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    uint32_t code = check_length_field();
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
        return code;
    }
    const ZQSomeIPInternalAttr a = get_write_attr(attr);
    U value{};
    if (Rules::top_is(m_attr_list, ZQ_SOMEIP_CONTAINER_UNION)) {
        code = read_payload(&value, sizeof(U));
        if (code == ZQ_SOMEIP_PAYLOAD_OK) {
            code = calc_size(a.attr.alignment, get_begin_index());
        }
    } else {
        code = calc_size(a.attr.alignment, get_begin_index());
        if (code == ZQ_SOMEIP_PAYLOAD_OK) {
            code = read_payload(&value, sizeof(U));
        }
    }
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
        return code;
    }
    raw = value;
    byte_order = a.attr.byte_order;
    return ZQ_SOMEIP_PAYLOAD_OK;
}

namespace {

// The unsigned integer that carries a value of N bytes from the wire, and its conversion to the host.
template <size_t N> struct WireWord;
template <> struct WireWord<1> { using type = uint8_t; };
template <> struct WireWord<2> { using type = uint16_t; };
template <> struct WireWord<4> { using type = uint32_t; };
template <> struct WireWord<8> { using type = uint64_t; };

uint8_t to_host(const ZQSomeIPPayloadUtilsByteOrder&, uint8_t v) { return v; }
uint16_t to_host(const ZQSomeIPPayloadUtilsByteOrder& u, uint16_t v) { return u.to_wire_16(v); }
uint32_t to_host(const ZQSomeIPPayloadUtilsByteOrder& u, uint32_t v) { return u.to_wire_32(v); }
uint64_t to_host(const ZQSomeIPPayloadUtilsByteOrder& u, uint64_t v) { return u.to_wire_64(v); }

} // namespace

// Every primitive is read as an unsigned word of its width and its bits copied into place: signed
// values are reinterpreted, floating point values taken as their IEEE-754 image (never converted
// numerically, so not even a signalling NaN pattern is touched). Single bytes leave the byte order alone.
template <typename Out>
uint32_t ZQSomeIPPayloadDeserializerGeneral::read_number(Out& out, const ZQSomeIPExtendAttr* attr)
{
    using Word = typename WireWord<sizeof(Out)>::type;
    Word raw = 0;
    uint32_t order = 0;
    const uint32_t code = read_raw(raw, attr, order);
    if (code == ZQ_SOMEIP_PAYLOAD_OK) {
        if (sizeof(Word) > 1) {
            Rules::apply_byte_order(*m_byte_order, order);
        }
        const Word bits = to_host(*m_byte_order, raw);
        memcpy(&out, &bits, sizeof(out));
    }
    return code;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::read(bool& out, const ZQSomeIPExtendAttr* attr)
{
    uint8_t v = 0;
    const uint32_t code = read_number(v, attr);
    if (code == ZQ_SOMEIP_PAYLOAD_OK) {
        out = (v & 0x01u) != 0;  // only the lowest bit counts
    }
    return code;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::read(char& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }
uint32_t ZQSomeIPPayloadDeserializerGeneral::read(int8_t& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }
uint32_t ZQSomeIPPayloadDeserializerGeneral::read(uint8_t& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }
uint32_t ZQSomeIPPayloadDeserializerGeneral::read(int16_t& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }
uint32_t ZQSomeIPPayloadDeserializerGeneral::read(uint16_t& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }
uint32_t ZQSomeIPPayloadDeserializerGeneral::read(int32_t& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }
uint32_t ZQSomeIPPayloadDeserializerGeneral::read(uint32_t& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }
uint32_t ZQSomeIPPayloadDeserializerGeneral::read(int64_t& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }
uint32_t ZQSomeIPPayloadDeserializerGeneral::read(uint64_t& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }
uint32_t ZQSomeIPPayloadDeserializerGeneral::read(float& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }
uint32_t ZQSomeIPPayloadDeserializerGeneral::read(double& out, const ZQSomeIPExtendAttr* attr) { return read_number(out, attr); }

uint32_t ZQSomeIPPayloadDeserializerGeneral::read_enum(uint32_t& out, uint32_t size, const ZQSomeIPExtendAttr* attr)
{
    uint32_t code = ZQ_SOMEIP_PAYLOAD_OK;
    switch (size) {
    case 1: {
        uint8_t v = 0;
        code = read(v, attr);
        if (code == ZQ_SOMEIP_PAYLOAD_OK) {
            out = v;
        }
        break;
    }
    case 2: {
        uint16_t v = 0;
        code = read(v, attr);
        if (code == ZQ_SOMEIP_PAYLOAD_OK) {
            out = v;
        }
        break;
    }
    case 4:
        code = read(out, attr);
        break;
    default:
        // Not stored in m_error_code, as designed.
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  enum size:[%d] error", static_cast<int>(size));
        code = ZQ_SOMEIP_PAYLOAD_ERROR;
        break;
    }
    return code;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::read(uint8_t* out, uint32_t len, const ZQSomeIPExtendAttr* /*attr*/)
{
    if (m_attr_list.empty()) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  m_attr_list is empty");
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    if (out == nullptr) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  parameters error, data is null");
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    uint32_t code = check_length_field();
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
        return code;
    }
    // Not bounded by the original design; never copy from outside the buffer.
    if (!fits(m_index, len, m_size)) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  parameters error or out of memory, m_index:[%d], size:[%d], m_size:[%d]",
                       static_cast<int>(m_index), static_cast<int>(len), static_cast<int>(m_size));
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    if (len > 0) {
        memcpy(out, m_buffer.data() + m_index, len);
    }
    m_index += len;
    code = modify_length_field_read(len);
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
    }
    return code;
}

// ---------------------------------------------------------------------------------------------------
// Containers

uint32_t ZQSomeIPPayloadDeserializerGeneral::begin_container(uint32_t type, const ZQSomeIPExtendAttr* attr,
                                                             uint32_t* union_type)
{
    if (!prepare_or_check(0)) {
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    uint32_t code = check_length_field();
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
        return code;
    }
    if (!m_attr_list.empty()) {
        const ZQSomeIPInternalAttr& top = m_attr_list.back();
        code = calc_size(top.attr.alignment, top.begin_index);
        if (code != ZQ_SOMEIP_PAYLOAD_OK) {
            m_error_code = code;
            return code;
        }
    }

    ZQSomeIPInternalAttr frame;
    frame.type = type;
    frame.attr = get_begin_extend_attr(attr);
    frame.attr.length_field_read = 0;
    frame.begin_index = m_index;  // before the length field
    frame.need_align = type == ZQ_SOMEIP_CONTAINER_UNION && frame.attr.alignment > 1;

    Rules::apply_byte_order(*m_byte_order, frame.attr.byte_order);

    // The length and type fields count against the enclosing frames only: the frame is not pushed yet.
    const uint32_t lfs = Rules::length_field_size(frame);
    if (static_cast<int32_t>(lfs) > 0) {
        code = read_length_field(lfs, &frame.attr.length_field_value);
        if (code != ZQ_SOMEIP_PAYLOAD_OK) {
            m_error_code = code;
            return code;
        }
    }
    if (type == ZQ_SOMEIP_CONTAINER_UNION && static_cast<int32_t>(frame.attr.union_type_field_size) > 0) {
        code = read_type_field(frame.attr.union_type_field_size, union_type);
        if (code != ZQ_SOMEIP_PAYLOAD_OK) {
            m_error_code = code;
            return code;
        }
    }
    m_attr_list.push_back(frame);
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::struct_data_begin(const ZQSomeIPExtendAttr* attr)
{
    return begin_container(ZQ_SOMEIP_CONTAINER_STRUCT, attr, nullptr);
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::array_data_begin(const ZQSomeIPExtendAttr* attr)
{
    return begin_container(ZQ_SOMEIP_CONTAINER_ARRAY, attr, nullptr);
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::vector_data_begin(const ZQSomeIPExtendAttr* attr)
{
    return begin_container(ZQ_SOMEIP_CONTAINER_VECTOR, attr, nullptr);
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::union_data_begin(const ZQSomeIPExtendAttr* attr, uint32_t& type)
{
    return begin_container(ZQ_SOMEIP_CONTAINER_UNION, attr, &type);
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::tlv_data_begin(const ZQSomeIPExtendAttr* /*attr*/, uint32_t& /*tag*/)
{
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::data_end()
{
    if (m_attr_list.empty()) {
        m_error_code = ZQ_SOMEIP_PAYLOAD_MISUSE;
        return ZQ_SOMEIP_PAYLOAD_MISUSE;
    }
    if (check_length_field() == ZQ_SOMEIP_PAYLOAD_ERROR) {
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;  // overrun container: the frame stays
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    if (m_attr_list.back().type == ZQ_SOMEIP_CONTAINER_VECTOR) {
        Rules::mark_after_vector(m_attr_list, m_align_pending);
    }
    // Unread bytes of the container are not skipped.
    m_attr_list.pop_back();
    if (Rules::top_is(m_attr_list, ZQ_SOMEIP_CONTAINER_UNION)) {
        const ZQSomeIPInternalAttr& u = m_attr_list.back();
        const uint32_t code = calc_size(u.attr.alignment, u.begin_index);
        if (code != ZQ_SOMEIP_PAYLOAD_OK) {
            m_error_code = code;
            return code;
        }
    }
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::read(uint8_t** data, uint32_t* size, const ZQSomeIPExtendAttr* attr)
{
    if (m_attr_list.empty()) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  m_attr_list is empty");
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    if (data == nullptr || size == nullptr) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  parameters error, data or size is null");
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    uint32_t code = check_length_field();
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
        return code;
    }
    const ZQSomeIPInternalAttr a = get_write_attr(attr);

    // The container's own length field decides the length.
    const ZQSomeIPInternalAttr& top = m_attr_list.back();
    const uint32_t lfs = block_length_field_size(top);
    Rules::apply_byte_order(*m_byte_order, a.attr.byte_order);
    if (static_cast<int32_t>(lfs) > 0) {
        *size = top.attr.length_field_value;
    } else if (*size == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  read array without length field and size is 0, error.");
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    const uint32_t count = *size;

    // Inside a union the block is taken first and the union's pad skipped after it; elsewhere the
    // pad (alignment of the enclosing container, 1 at the outermost level) is skipped first.
    const ZQSomeIPInternalAttr* below = Rules::below_top(m_attr_list);
    const bool in_union = below != nullptr && below->type == ZQ_SOMEIP_CONTAINER_UNION;
    if (!in_union) {
        const uint32_t align = below != nullptr ? below->attr.alignment
                                                : static_cast<uint32_t>(ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE);
        code = calc_size(align, top.begin_index);
        if (code != ZQ_SOMEIP_PAYLOAD_OK) {
            m_error_code = code;
            return code;
        }
    }
    // Not bounded by the original design: never hand out a block that leaves the buffer.
    if (!fits(m_index, count, m_size)) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  parameters error or out of memory, m_index:[%d], size:[%d], m_size:[%d]",
                       static_cast<int>(m_index), static_cast<int>(count), static_cast<int>(m_size));
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    *data = m_buffer.data() + m_index;
    m_index += count;
    code = modify_length_field_read(count);
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
    }
    if (in_union) {
        // A failed accounting above is stored only; the result is that of the union pad skip.
        code = calc_size(below->attr.alignment, below->begin_index);
        if (code != ZQ_SOMEIP_PAYLOAD_OK) {
            m_error_code = code;
        }
    }
    return code;
}

template <typename B>
uint32_t ZQSomeIPPayloadDeserializerGeneral::read_block_into(std::vector<B>& out, uint32_t len,
                                                             const ZQSomeIPExtendAttr* attr)
{
    uint8_t* data = nullptr;
    uint32_t size = len;
    const uint32_t code = read(&data, &size, attr);
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
    }
    // The block is handed out only when it lies inside the buffer; without it there is nothing to copy.
    if (data != nullptr) {
        out.resize(size);
        if (size > 0) {
            memcpy(out.data(), data, size);
        }
    }
    return code;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::read(std::vector<uint8_t>& out, uint32_t len, const ZQSomeIPExtendAttr* attr)
{
    return read_block_into(out, len, attr);
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::read(std::vector<int8_t>& out, uint32_t len, const ZQSomeIPExtendAttr* attr)
{
    return read_block_into(out, len, attr);
}

// ---------------------------------------------------------------------------------------------------
// Strings

uint32_t ZQSomeIPPayloadDeserializerGeneral::read(std::string& out, uint32_t len, const ZQSomeIPExtendAttr* attr,
                                                  bool dynamic)
{
    if (!prepare_or_check(len)) {
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    uint32_t code = check_length_field();
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
        return code;
    }
    ZQSomeIPInternalAttr a = get_write_attr(attr);
    if (dynamic && a.attr.string_length_field_size == 0) {
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;  // a dynamic string needs a length field; no message
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    if (Rules::top_is(m_attr_list, ZQ_SOMEIP_CONTAINER_UNION)) {
        code = read_string(out, len, a, dynamic);
        if (code != ZQ_SOMEIP_PAYLOAD_OK) {
            return code;  // stored by read_string
        }
        code = calc_size(a.attr.alignment, get_begin_index());
        if (code != ZQ_SOMEIP_PAYLOAD_OK) {
            m_error_code = code;
        }
        return code;
    }
    code = calc_size(a.attr.alignment, get_begin_index());
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;
        return code;
    }
    code = read_string(out, len, a, dynamic);
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        return code;
    }
    if (dynamic) {
        Rules::mark_after_dynamic_string(m_attr_list, m_align_pending);
    }
    return ZQ_SOMEIP_PAYLOAD_OK;
}

uint32_t ZQSomeIPPayloadDeserializerGeneral::read_string(std::string& out, uint32_t len, ZQSomeIPInternalAttr& a,
                                                         bool /*dynamic*/)
{
    Rules::apply_byte_order(*m_byte_order, a.attr.byte_order);

    uint32_t length = len;
    if (a.attr.string_length_field_size != 0) {
        const uint32_t code = read_length_field(a.attr.string_length_field_size, &length);
        if (code != ZQ_SOMEIP_PAYLOAD_OK) {
            m_error_code = code;
            return code;
        }
    }
    if (!fits(m_index, length, m_size)) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  Out of memory, m_index:[%d], read_size:[%d], m_size:[%d]",
                       static_cast<int>(m_index), static_cast<int>(length), static_cast<int>(m_size));
        m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
        return ZQ_SOMEIP_PAYLOAD_ERROR;
    }
    const uint8_t* p = m_buffer.data() + m_index;
    std::string value;

    if (a.attr.string_utf != ZQ_SOMEIP_PAYLOAD_STRING_UTF16) {
        // Shorter than mark plus terminator: rejected as a bad mark rather than looking outside it.
        if (length < sizeof(BOM_UTF8) + 1 || memcmp(p, BOM_UTF8, sizeof(BOM_UTF8)) != 0) {
            ZQ_SOMEIP_LOGE(" [%s][%d][%s]  string bom is not utf8");
            m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
            return ZQ_SOMEIP_PAYLOAD_ERROR;
        }
        if (p[length - 1] != 0) {
            ZQ_SOMEIP_LOGE(" [%s][%d][%s]  string does not end with '\\0'");
            m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
            return ZQ_SOMEIP_PAYLOAD_ERROR;
        }
        // An embedded zero ends the value; p[length - 1] is zero, so the search always stops inside.
        const uint8_t* text = p + sizeof(BOM_UTF8);
        const void* zero = memchr(text, 0, length - sizeof(BOM_UTF8));
        value.assign(reinterpret_cast<const char*>(text), static_cast<const uint8_t*>(zero) - text);
    } else {
        if (length % 2 != 0) {
            --length;  // the odd last byte is neither checked nor consumed, as designed
        }
        const bool little = m_byte_order->get_network_byte_order() == ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN;
        const bool short_string = length < sizeof(BOM_UTF16LE) + 2;
        if (!short_string && (p[length - 2] != 0 || p[length - 1] != 0)) {
            ZQ_SOMEIP_LOGE(" [%s][%d][%s]  string does not end with '\\0\\0'");
            m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
            return ZQ_SOMEIP_PAYLOAD_ERROR;
        }
        if (little) {
            if (short_string || memcmp(p, BOM_UTF16LE, sizeof(BOM_UTF16LE)) != 0) {
                ZQ_SOMEIP_LOGE(" [%s][%d][%s]  string bom is not UTF16LE");
                m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
                return ZQ_SOMEIP_PAYLOAD_ERROR;
            }
        } else if (short_string || memcmp(p, BOM_UTF16BE, sizeof(BOM_UTF16BE)) != 0) {
            ZQ_SOMEIP_LOGE(" [%s][%d][%s]  string bom is not UTF16BE");
            m_error_code = ZQ_SOMEIP_PAYLOAD_ERROR;
            return ZQ_SOMEIP_PAYLOAD_ERROR;
        }
        // May throw std::range_error on an unpaired surrogate; it leaves through the caller.
        value = utf16_to_utf8(p + sizeof(BOM_UTF16LE), length - 4, little);
    }

    m_index += length;
    const uint32_t code = modify_length_field_read(length);
    if (code != ZQ_SOMEIP_PAYLOAD_OK) {
        m_error_code = code;  // out stays unchanged on every failure
        return code;
    }
    out.swap(value);
    return ZQ_SOMEIP_PAYLOAD_OK;
}
