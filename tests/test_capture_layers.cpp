// Capture reader: link layers, IPv4/IPv6 headers, timestamps and the fields of a yielded message.
#include "capture_test_support.h"

namespace {

using namespace capturetest;

const Bytes kMsg = someip(0x12348001, 0x00010002, 0x02, {0xAA, 0xBB});
const char* const kLine = "#1 1234.8001 t02 s2 aabb";
const Bytes kUdp = udp(30490, 30501, kMsg);
const Bytes kSllAddress(8, 0x02);

struct LinkCase {
    const char* name;
    uint32_t link;
    Bytes frame;
    std::vector<std::string> lines;
    const char* flow;
    uint64_t skipped = 0;  // frames counted as carrying no SOME/IP
};

TEST(CaptureLayers, EachLinkTypeLeadsToTheMessage)
{
    const Bytes hop_by_hop = {51, 0, 1, 4, 0, 0, 0, 0}, destination_options = {17, 0, 1, 4, 0, 0, 0, 0};
    const Bytes authentication = Bytes{60, 4, 0, 0} + Bytes(20, 0xA5);  // 24 bytes: its length counts 4-byte words
    const char* v4 = "udp 10.0.0.1:30490>10.0.0.2:30501";
    const char* v6 = "udp [fe80::1]:30490>[fe80::2]:30501";
    const std::vector<LinkCase> cases = {
        {"ethernet", kEthernet, eth(0x0800, ipv4(kUdp)), {kLine}, v4},
        {"802.1Q tag", kEthernet, eth(0x0800, ipv4(kUdp), {0x8100}), {kLine}, v4},
        {"QinQ tags", kEthernet, eth(0x0800, ipv4(kUdp), {0x88A8, 0x8100}), {kLine}, v4},
        {"0x9100 tag", kEthernet, eth(0x0800, ipv4(kUdp), {0x9100}), {kLine}, v4},
        {"ethernet padding after the datagram", kEthernet, eth(0x0800, ipv4(kUdp) + Bytes(6, 0xEE)), {kLine}, v4},
        {"linux cooked v1", kSll, Bytes{0, 0, 0, 1, 0, 6} + kSllAddress + be(0x0800, 2) + ipv4(kUdp), {kLine}, v4},
        {"linux cooked v2", kSll2, be(0x0800, 2) + be(0, 2) + be(3, 4) + be(1, 2) + Bytes{0, 6} + kSllAddress + ipv4(kUdp),
         {kLine}, v4},
        {"raw ip", kRaw, ipv4(kUdp), {kLine}, v4},
        {"ipv4 link type", kIpv4Link, ipv4(kUdp), {kLine}, v4},
        {"loopback", kNull, le(2, 4) + ipv4(kUdp), {kLine}, v4},
        {"ipv6 extension headers", kIpv6Link, ipv6(0, hop_by_hop + authentication + destination_options + kUdp), {kLine}, v6},
        {"ipv4 total length 0 (segmentation offload)", kRaw, patched(ipv4(kUdp), 2, {0, 0}), {kLine}, v4},
        {"ipv6 atomic fragment", kEthernet, eth(0x86DD, ipv6(44, Bytes{17, 0, 0, 0, 0, 0, 0, 9} + kUdp)), {kLine}, v6},
        {"arp", kEthernet, eth(0x0806, Bytes(28, 0)), {}, v4, 1},
        {"icmp", kEthernet, eth(0x0800, ipv4(Bytes(8, 0), V4{1})), {}, v4, 1},
        {"unsupported link type", 147, ipv4(kUdp), {}, v4, 1},
        {"ipv4 total length past the frame", kEthernet, slice(eth(0x0800, ipv4(kUdp)), 0, 50), {"#1 !ip-malformed@14"}, "udp 10.0.0.1>10.0.0.2"},
        {"udp length past the datagram", kEthernet, eth(0x0800, ipv4(udp(30490, 30501, kMsg, 4))), {"#1 !transport-malformed@38"}, v4},
        {"ipv6 extension header past the payload", kIpv6Link, ipv6(60, Bytes{17, 4, 0, 0, 0, 0, 0, 0} + kUdp),
         {"#1 !ip-malformed@40"}, "udp fe80::1>fe80::2"},
    };
    for (const LinkCase& c : cases) {
        SCOPED_TRACE(c.name);
        const Result r = readPcap(c.link, {{c.frame}});
        EXPECT_EQ(r.lines, c.lines);
        for (const std::string& flow : r.flows) EXPECT_EQ(flow, c.flow);
        EXPECT_EQ(r.status.stats.skipped_frames, c.skipped);
        EXPECT_EQ(r.status.stats.unsupported_link_frames, c.link == 147 ? 1u : 0u);
        EXPECT_FALSE(r.status.failed);
    }
}

TEST(CaptureLayers, MessageCarriesEveryHeaderFieldTimeAndEndpoint)
{
    const Bytes msg = be(0x1234, 2) + be(0x0001, 2) + be(11, 4) + be(0xBEEF, 2) + be(0x0102, 2) + Bytes{1, 7, 0x80, 0x05, 1, 2, 3};
    const Result r = readPcap(kEthernet, {{eth(0x0800, ipv4(udp(30490, 40001, msg), V4{17, 0, 0, false, "192.168.10.254", "10.0.0.2"})),
                                           1700000000123456789ull}}, {}, true);
    ASSERT_EQ(r.lines, std::vector<std::string>{"#1 1234.0001 t80 s258 010203"});
    const Message& m = r.messages[0];
    const Header& h = m.header;
    EXPECT_EQ(std::vector<uint64_t>({h.service, h.method, h.length, h.client, h.session, h.protocol_version, h.interface_version,
                                     h.message_type, h.return_code, m.tp_segments}),
              std::vector<uint64_t>({0x1234, 0x0001, 11, 0xBEEF, 0x0102, 1, 7, 0x80, 0x05, 0}));
    EXPECT_EQ(std::vector<int64_t>({m.seconds, m.nanoseconds, m.time_digits, m.source.family, m.source.port}),
              std::vector<int64_t>({1700000000, 123456789, 9, 4, 30490}));
    EXPECT_EQ(Bytes(m.source.address, m.source.address + 4), addr(4, "192.168.10.254"));
    EXPECT_EQ(r.flows[0], "udp 192.168.10.254:30490>10.0.0.2:40001");
    const Statistics& st = r.status.stats;
    EXPECT_EQ(std::vector<uint64_t>({st.frames, st.bytes, st.messages, st.errors, st.skipped_frames}),
              std::vector<uint64_t>({1, 14 + 20 + 8 + msg.size(), 1, 0, 0}));
}

// One pcapng file, three interfaces with their own link types and timestamp resolutions, in either byte order.
TEST(CaptureLayers, PcapngInterfacesKeepTheirLinkTypesAndResolutions)
{
    const std::vector<Interface> ifaces = {{kEthernet, 6}, {kSll2, 9}, {kIpv6Link, 0x80 | 10, 100}};
    const std::vector<Frame> frames = {
        {eth(0x0800, ipv4(kUdp)), 1700000000123456ull, 0},
        {be(0x0800, 2) + be(0, 2) + be(3, 4) + be(1, 2) + Bytes{0, 6} + kSllAddress + ipv4(kUdp), 1700000000123456789ull, 1},
        {ipv6(17, kUdp), (5ull << 10) | 512, 2},
    };
    struct Expect { int64_t seconds; uint32_t nanoseconds; uint8_t digits; };
    const Expect times[] = {{1700000000, 123456000, 6}, {1700000000, 123456789, 9}, {105, 500000000, 4}};
    for (bool big : {false, true}) {
        SCOPED_TRACE(big ? "big endian section" : "little endian section");
        const std::string path = tempPath(big ? "be.pcapng" : "le.pcapng");
        writeFile(path, pcapngBytes(ifaces, frames, big));
        const Result r = readAll(path);
        EXPECT_EQ(r.lines, (std::vector<std::string>{kLine, "#2 1234.8001 t02 s2 aabb", "#3 1234.8001 t02 s2 aabb"}));
        ASSERT_EQ(r.messages.size(), 3u);
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(r.messages[i].seconds, times[i].seconds);
            EXPECT_EQ(r.messages[i].nanoseconds, times[i].nanoseconds);
            EXPECT_EQ(r.messages[i].time_digits, times[i].digits);
        }
        EXPECT_EQ(r.flows[2], "udp [fe80::1]:30490>[fe80::2]:30501");
        EXPECT_FALSE(r.status.failed) << r.status.error;
    }
}

}  // namespace
