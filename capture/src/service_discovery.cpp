// Service discovery: payloads decoded (flags, the entries array, the options array, and each entry's
// options), and the reader's SD messages recognised and decoded into reused storage.
#include "layers.h"

namespace ZQSomeIP {
namespace capture {

using detail::be16;
using detail::be32;

namespace {

// Reads the options array [pos, end). Returns false with the failure recorded in `out`.
bool readOptions(const uint8_t* p, size_t pos, size_t end, SdMessage& out)
{
    auto fail = [&out](size_t at, std::string what) {
        out.ok = false;
        out.error_offset = at;
        out.error = std::move(what);
        return false;
    };
    while (pos < end) {
        if (end - pos < 4) return fail(pos, "option header runs past the options array");
        const uint16_t len = be16(p + pos);
        if (len < 1) return fail(pos, "option length 0 leaves no room for its flags byte");
        if (len > end - pos - 3)
            return fail(pos, "option of " + std::to_string(len) + " bytes runs past the options array");
        SdOption& o = out.options.emplace_back();
        o.type = p[pos + 2];
        o.length = len;
        o.discardable = (p[pos + 3] & 0x80) != 0;
        const uint8_t* v = p + pos + 4;
        const size_t n = len - 1u;
        auto sized = [&](size_t want) {
            return n == want ? true
                             : fail(pos, std::string(o.name()) + " option holds " + std::to_string(n) + " bytes, not " +
                                             std::to_string(want));
        };
        switch (o.type) {
        case 0x01:
            for (size_t i = 0; i < n && v[i] != 0; i += 1u + v[i]) {
                if (v[i] > n - i - 1) return fail(pos + 4 + i, "configuration item runs past its option");
                o.config.emplace_back(reinterpret_cast<const char*>(v + i + 1), v[i]);
            }
            break;
        case 0x02:
            if (!sized(4)) return false;
            o.priority = be16(v);
            o.weight = be16(v + 2);
            break;
        case 0x04: case 0x14: case 0x24:
            if (!sized(8)) return false;
            detail::setEndpoint(o.endpoint, 4, v, be16(v + 6), true);
            o.l4_protocol = v[5];
            break;
        case 0x06: case 0x16: case 0x26:
            if (!sized(20)) return false;
            detail::setEndpoint(o.endpoint, 6, v, be16(v + 18), true);
            o.l4_protocol = v[17];
            break;
        default:
            break;
        }
        pos += 3u + len;
    }
    return true;
}

}  // namespace

bool decodeServiceDiscovery(const uint8_t* p, size_t size, SdMessage& out)
{
    out.flags = 0;
    out.entries.clear();
    out.options.clear();
    out.ok = true;
    out.error_offset = 0;
    out.error.clear();
    auto fail = [&out](size_t at, std::string what) {
        out.ok = false;
        out.error_offset = at;
        out.error = std::move(what);
        return false;
    };
    if (size < 12) return fail(0, "payload of " + std::to_string(size) + " bytes, less than flags and two array lengths");
    out.flags = p[0];
    const uint32_t entries = be32(p + 4);
    if (entries % 16 != 0) return fail(4, "entries array length " + std::to_string(entries) + " is not a multiple of 16");
    if (entries > size - 12) return fail(4, "entries array of " + std::to_string(entries) + " bytes runs past the payload");
    for (size_t at = 8; at < 8 + size_t{entries}; at += 16) {
        const uint8_t* e = p + at;
        SdEntry& s = out.entries.emplace_back();
        s.type = e[0];
        s.index1 = e[1];
        s.index2 = e[2];
        s.count1 = e[3] >> 4;
        s.count2 = e[3] & 0x0F;
        s.service = be16(e + 4);
        s.instance = be16(e + 6);
        s.major = e[8];
        s.ttl = be32(e + 8) & 0xFFFFFF;
        if (s.type < 0x04) {  // service entries
            s.minor = be32(e + 12);
        } else {              // eventgroup entries
            s.counter = e[13] & 0x0F;
            s.eventgroup = be16(e + 14);
        }
    }
    const size_t at = 8 + size_t{entries};
    const uint32_t options = be32(p + at);
    if (options > size - at - 4)
        return fail(at, "options array of " + std::to_string(options) + " bytes runs past the payload");
    if (!readOptions(p, at + 4, at + 4 + options, out)) return false;
    for (size_t i = 0; i < out.entries.size(); ++i) {
        SdEntry& s = out.entries[i];
        const struct { uint8_t index, count; size_t at; } runs[2] = {{s.index1, s.count1, 9 + 16 * i}, {s.index2, s.count2, 10 + 16 * i}};
        for (const auto& run : runs) {
            if (run.count != 0 && size_t{run.index} + run.count > out.options.size())
                return fail(run.at, "entry " + std::to_string(i) + " refers to options " + std::to_string(run.index) + ".." +
                                        std::to_string(run.index + run.count - 1) + " of " + std::to_string(out.options.size()));
            for (uint16_t k = 0; k < run.count; ++k) s.options.push_back(static_cast<uint16_t>(run.index + k));
        }
    }
    return true;
}

SdMessage decodeServiceDiscovery(const uint8_t* payload, size_t size)
{
    SdMessage m;
    decodeServiceDiscovery(payload, size, m);
    return m;
}

namespace detail {

namespace {

// The message ID of service discovery.
constexpr uint16_t kSdService = 0xFFFF, kSdMethod = 0x8100;

}  // namespace

void SdLayer::attach(Message& m)
{
    if (m.header.service != kSdService || m.header.method != kSdMethod) return;
    if (used_ == sds_.size()) sds_.push_back(std::make_unique<SdMessage>());
    SdMessage& sd = *sds_[used_++];
    Statistics& st = context_.stats();
    ++st.sd_messages;
    m.sd = &sd;
    if (!decodeServiceDiscovery(m.payload, m.payload_size, sd)) {
        m.error = ErrorCode::SdMalformed;
        m.error_offset = sd.error_offset;
        m.error_text = sd.error;
        ++st.errors;
        ++st.errors_by_code[static_cast<size_t>(ErrorCode::SdMalformed)];
    }
}

}  // namespace detail

const char* SdEntry::name() const
{
    switch (type) {
    case 0x00: return "find-service";
    case 0x01: return ttl ? "offer-service" : "stop-offer-service";
    case 0x06: return ttl ? "subscribe-eventgroup" : "stop-subscribe-eventgroup";
    case 0x07: return ttl ? "subscribe-eventgroup-ack" : "subscribe-eventgroup-nack";
    default: return "unknown";
    }
}

const char* SdOption::name() const
{
    switch (type) {
    case 0x01: return "configuration";
    case 0x02: return "load-balancing";
    case 0x04: return "ipv4-endpoint";
    case 0x06: return "ipv6-endpoint";
    case 0x14: return "ipv4-multicast";
    case 0x16: return "ipv6-multicast";
    case 0x24: return "ipv4-sd-endpoint";
    case 0x26: return "ipv6-sd-endpoint";
    default: return "unknown";
    }
}

}  // namespace capture
}  // namespace ZQSomeIP
