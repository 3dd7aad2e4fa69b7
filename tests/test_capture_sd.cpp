// Service discovery: entries, options, each entry's options resolved, malformed payloads reported.
#include "capture_test_support.h"

namespace {

using namespace capturetest;

Bytes entry(uint8_t type, uint8_t runs_at, uint8_t counts, uint16_t instance, uint32_t ttl, uint32_t tail)
{
    return Bytes{type, static_cast<uint8_t>(runs_at >> 4), static_cast<uint8_t>(runs_at & 15), counts} + be(0x1234, 2) +
           be(instance, 2) + Bytes{1} + be(ttl, 3) + be(tail, 4);
}
Bytes option(uint8_t type, const Bytes& body) { return be(body.size() + 1, 2) + Bytes{type, 0} + body; }
Bytes endpoint(uint8_t type, int family, const char* a, uint16_t port) { return option(type, addr(family, a) + Bytes{0, 0x11} + be(port, 2)); }
Bytes sd(const Bytes& entries, const Bytes& options, uint8_t flags = 0xC0)
{
    return Bytes{flags, 0, 0, 0} + be(entries.size(), 4) + entries + be(options.size(), 4) + options;
}

std::string describe(const SdMessage& m)
{
    char buf[96];
    std::snprintf(buf, sizeof buf, "%02x", m.flags);
    std::string out = buf;
    for (const SdEntry& e : m.entries) {
        std::snprintf(buf, sizeof buf, " | %s %04x:%04x v%u", e.name(), e.service, e.instance, e.major);
        out += buf;
        if (e.type < 4) std::snprintf(buf, sizeof buf, ".%u ttl%u [", e.minor, e.ttl);
        else std::snprintf(buf, sizeof buf, " eg%u c%u ttl%u [", e.eventgroup, e.counter, e.ttl);
        out += buf;
        for (const uint16_t& i : e.options) out += std::to_string(i) + (&i == &e.options.back() ? "" : ",");
        out += "]";
    }
    for (const SdOption& o : m.options) {
        out += std::string(" | ") + o.name() + " ";
        if (o.endpoint.family) out += std::string(o.endpoint.text()) + "/" + std::to_string(o.l4_protocol);
        for (const std::string& c : o.config) out += c + (&c == &o.config.back() ? "" : ",");
        if (o.type == 0x02) out += std::to_string(o.priority) + "/" + std::to_string(o.weight);
    }
    return out;
}

struct SdCase {
    const char* name;
    Bytes payload;
    std::string text;       // the decoded message, or the error's beginning
    size_t error_at = 0;    // when text is an error
    bool ok = true;
};

TEST(CaptureSd, EntriesAndOptionsDecode)
{
    const Bytes v4 = endpoint(0x04, 4, "10.0.0.1", 30509);
    const Bytes config = option(0x01, Bytes{5, 'a', 'b', 'c', '=', '1', 1, 'x', 0});
    const std::vector<SdCase> cases = {
        {"offer with an endpoint", sd(entry(0x01, 0x00, 0x10, 1, 3, 16), v4),
         "c0 | offer-service 1234:0001 v1.16 ttl3 [0] | ipv4-endpoint 10.0.0.1:30509/17"},
        {"stop offer", sd(entry(0x01, 0x00, 0x10, 1, 0, 16), v4), "c0 | stop-offer-service 1234:0001 v1.16 ttl0 [0] | ipv4-endpoint 10.0.0.1:30509/17"},
        {"find", sd(entry(0x00, 0, 0, 0xFFFF, 0xFFFFFF, 0xFFFFFFFF), {}, 0x80), "80 | find-service 1234:ffff v1.4294967295 ttl16777215 []"},
        {"subscribe with two option runs", sd(entry(0x06, 0x01, 0x11, 1, 3, 0x00020005),
                                              endpoint(0x06, 6, "fe80::5", 40000) + endpoint(0x14, 4, "239.0.0.1", 30490)),
         "c0 | subscribe-eventgroup 1234:0001 v1 eg5 c2 ttl3 [0,1] | ipv6-endpoint [fe80::5]:40000/17 | ipv4-multicast 239.0.0.1:30490/17"},
        {"stop subscribe, ack, nack", sd(entry(0x06, 0, 0, 1, 0, 5) + entry(0x07, 0, 0, 1, 3, 5) + entry(0x07, 0, 0, 1, 0, 5), {}),
         "c0 | stop-subscribe-eventgroup 1234:0001 v1 eg5 c0 ttl0 [] | subscribe-eventgroup-ack 1234:0001 v1 eg5 c0 ttl3 [] | "
         "subscribe-eventgroup-nack 1234:0001 v1 eg5 c0 ttl0 []"},
        {"configuration, load balancing, SD endpoints", sd(entry(0x01, 0x00, 0x40, 1, 3, 0),
                                                          config + option(0x02, be(1, 2) + be(200, 2)) + endpoint(0x24, 4, "10.0.0.9", 30490) +
                                                              endpoint(0x26, 6, "fe80::9", 30490)),
         "c0 | offer-service 1234:0001 v1.0 ttl3 [0,1,2,3] | configuration abc=1,x | load-balancing 1/200 | "
         "ipv4-sd-endpoint 10.0.0.9:30490/17 | ipv6-sd-endpoint [fe80::9]:30490/17"},
        {"shorter than flags and lengths", Bytes(8, 0), "payload of 8 bytes", 0, false},
        {"entries not a multiple of 16", Bytes{0, 0, 0, 0} + be(8, 4) + Bytes(8, 0) + be(0, 4), "entries array length 8", 4, false},
        {"entries past the payload", Bytes{0, 0, 0, 0} + be(32, 4) + Bytes(16, 0) + be(0, 4), "entries array of 32 bytes", 4, false},
        {"options past the payload", Bytes{0, 0, 0, 0} + be(0, 4) + be(20, 4) + Bytes(4, 0), "options array of 20 bytes", 8, false},
        {"option index out of range", sd(entry(0x01, 0x10, 0x10, 1, 3, 0), v4), "entry 0 refers to options 1..1 of 1", 9, false},
        {"endpoint of the wrong size", sd({}, option(0x04, Bytes(7, 0))), "ipv4-endpoint option holds 7 bytes, not 8", 12, false},
        {"configuration item past its option", sd({}, option(0x01, Bytes{9, 'a'})), "configuration item runs past", 16, false},
        {"option length 0", sd({}, Bytes{0, 0, 1, 0}), "option length 0", 12, false},
    };
    for (const SdCase& c : cases) {
        SCOPED_TRACE(c.name);
        const SdMessage m = decodeServiceDiscovery(c.payload.data(), c.payload.size());
        EXPECT_EQ(m.ok, c.ok);
        if (c.ok) {
            EXPECT_EQ(describe(m), c.text);
        } else {
            EXPECT_EQ(m.error.rfind(c.text, 0), 0u) << m.error;
            EXPECT_EQ(m.error_offset, c.error_at);
        }
    }
}

// The reader decodes SD messages on its own; a malformed one is still yielded, as an error with its header.
TEST(CaptureSd, ReaderAttachesTheDecodedPayload)
{
    const Bytes offer = sd(entry(0x01, 0x00, 0x10, 1, 3, 16), endpoint(0x04, 4, "10.0.0.1", 30509));
    const Bytes broken = Bytes{0, 0, 0, 0} + be(8, 4) + Bytes(8, 0) + be(0, 4);
    const std::string path = tempPath("sd.pcap");
    writeFile(path, pcapBytes(kEthernet, {{eth(0x0800, ipv4(udp(30490, 30490, someip(0xFFFF8100, 0x00000001, 0x02, offer))))},
                                          {eth(0x0800, ipv4(udp(30490, 30490, someip(0xFFFF8100, 0x00000002, 0x02, broken))))}}));
    std::string error;
    auto reader = CaptureReader::open(path, {}, error);
    ASSERT_TRUE(reader) << error;
    Message m;
    ASSERT_TRUE(reader->next(m));
    ASSERT_TRUE(m.ok() && m.sd);
    EXPECT_EQ(describe(*m.sd), "c0 | offer-service 1234:0001 v1.16 ttl3 [0] | ipv4-endpoint 10.0.0.1:30509/17");
    ASSERT_TRUE(reader->next(m));
    EXPECT_EQ(capturetest::describe(m), "#2 !sd-malformed@4 20B:72a3cd6d");  // the payload stays
    EXPECT_TRUE(m.has_header && m.sd && !m.sd->ok);
    EXPECT_EQ(m.header.session, 2);
    EXPECT_FALSE(reader->next(m));
    EXPECT_EQ(reader->status().stats.sd_messages, 2u);
    EXPECT_EQ(reader->status().stats.errors_by_code[static_cast<size_t>(ErrorCode::SdMalformed)], 1u);
}

}  // namespace
