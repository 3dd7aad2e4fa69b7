#ifndef ZQ_SOMEIP_PAYLOAD_UTILS_BYTE_ORDER_H
#define ZQ_SOMEIP_PAYLOAD_UTILS_BYTE_ORDER_H

#include <cstdint>

#include "ZQSomeIPExport.h"
#include "ZQSomeIPPayloadAttr.h"

// Converts host numbers to the payload's byte order and back (the conversions are their own inverse).
// The host is taken to be little endian; the network order is switched before every number an engine
// reads or writes.
class ZQ_SOMEIP_API ZQSomeIPPayloadUtilsByteOrder {
public:
    ZQSomeIPPayloadUtilsByteOrder();

    uint32_t set_network_byte_order(ZQSomeIPPayloadByteOrder order);
    ZQSomeIPPayloadByteOrder get_host_byte_order() const { return host_byte_order; }
    ZQSomeIPPayloadByteOrder get_network_byte_order() const { return network_byte_order; }

    // Host to big endian, whatever the network order.
    uint16_t host_to_big_endian_16(uint16_t v) const { return hton16(v); }
    uint32_t host_to_big_endian_32(uint32_t v) const { return hton32(v); }
    // Host to (and from) the network order currently set.
    uint16_t to_wire_16(uint16_t v) const { return wire16(v); }
    uint32_t to_wire_32(uint32_t v) const { return wire32(v); }
    uint64_t to_wire_64(uint64_t v) const { return wire64(v); }
    float to_wire_float(float v) const { return wire_float(v); }
    double to_wire_double(double v) const { return wire_double(v); }

private:
    void configure(ZQSomeIPPayloadByteOrder order);

    uint16_t (*hton16)(uint16_t);
    uint32_t (*hton32)(uint32_t);
    uint16_t (*wire16)(uint16_t);
    uint32_t (*wire32)(uint32_t);
    uint64_t (*wire64)(uint64_t);
    float (*wire_float)(float);
    double (*wire_double)(double);
    ZQSomeIPPayloadByteOrder host_byte_order;
    ZQSomeIPPayloadByteOrder network_byte_order;
};

#endif // ZQ_SOMEIP_PAYLOAD_UTILS_BYTE_ORDER_H
