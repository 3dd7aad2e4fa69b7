#include "ZQSomeIPPayloadUtilsByteOrder.h"

#include <cstring>

namespace {

template <typename T>
T identity(T v)
{
    return v;
}

uint16_t swap16(uint16_t v) { return __builtin_bswap16(v); }
uint32_t swap32(uint32_t v) { return __builtin_bswap32(v); }
uint64_t swap64(uint64_t v) { return __builtin_bswap64(v); }

// Floating point values are reversed as their IEEE-754 image, never converted numerically.
float swap_float(float v)
{
    uint32_t bits;
    memcpy(&bits, &v, sizeof(bits));
    bits = __builtin_bswap32(bits);
    memcpy(&v, &bits, sizeof(v));
    return v;
}

double swap_double(double v)
{
    uint64_t bits;
    memcpy(&bits, &v, sizeof(bits));
    bits = __builtin_bswap64(bits);
    memcpy(&v, &bits, sizeof(v));
    return v;
}

} // namespace

ZQSomeIPPayloadUtilsByteOrder::ZQSomeIPPayloadUtilsByteOrder()
    : hton16(identity<uint16_t>), hton32(identity<uint32_t>), wire16(identity<uint16_t>),
      wire32(identity<uint32_t>), wire64(identity<uint64_t>), wire_float(identity<float>),
      wire_double(identity<double>), host_byte_order(ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN),
      network_byte_order(ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_BIG_ENDIAN)
{
    configure(ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_BIG_ENDIAN);
}

uint32_t ZQSomeIPPayloadUtilsByteOrder::set_network_byte_order(ZQSomeIPPayloadByteOrder order)
{
    // The engines set the order before every number; most of the time it is the one in force.
    if (order != network_byte_order) {
        configure(order);
    }
    return 0;
}

void ZQSomeIPPayloadUtilsByteOrder::configure(ZQSomeIPPayloadByteOrder order)
{
    const bool host_little = host_byte_order == ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN;
    hton16 = host_little ? swap16 : identity<uint16_t>;
    hton32 = host_little ? swap32 : identity<uint32_t>;

    const bool same = order == host_byte_order;
    wire16 = same ? identity<uint16_t> : swap16;
    wire32 = same ? identity<uint32_t> : swap32;
    wire64 = same ? identity<uint64_t> : swap64;
    wire_float = same ? identity<float> : swap_float;
    wire_double = same ? identity<double> : swap_double;
    network_byte_order = order;
}
