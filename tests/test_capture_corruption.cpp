// A small capture holding every layer, cut at every byte and with single bits flipped: reading always
// ends; a cut between records reads cleanly and a cut inside one is reported as damage; every message
// yielded is consistent with its header (readAll checks), and every error says why.
#include "capture_test_support.h"

namespace {

using namespace capturetest;

// Every layer: a datagram holding a response and service discovery; a TCP stream (VLAN tagged) of two
// messages, its segments out of order; a datagram in IPv4 and in IPv6 fragments; a SOME/IP-TP message
// in two segments, the last first.
std::vector<Frame> smallCapture()
{
    const Bytes stream = someip(0x12348001, 1, 2, pattern(12)) + someip(0x12340002, 2, 0, pattern(6)), whole = pattern(32);
    const Bytes fragmented = udp(30490, 30501, someip(0x12348003, 3, 2, pattern(24)));
    const Bytes sd = Bytes{0xC0, 0, 0, 0} + be(16, 4) + Bytes{1, 0, 0, 0x10, 0x12, 0x34, 0, 1, 1, 0, 0, 3, 0, 0, 0, 0} + be(12, 4) +
                     be(9, 2) + Bytes{4, 0} + addr(4, "10.0.0.1") + Bytes{0, 17} + be(30509, 2);
    auto tcpFrame = [](uint32_t seq, uint8_t flags, const Bytes& p) {
        return Frame{eth(0x0800, ipv4(tcp(40000, 30490, seq, flags, p), V4{6}), {0x8100})};
    };
    auto tp = [&](uint32_t offset, bool more) {
        return Frame{eth(0x0800, ipv4(udp(30490, 30490, tpSegment(0x12348001, 1, offset, more, slice(whole, offset, offset + 16)))))};
    };
    return {
        {eth(0x0800, ipv4(udp(30490, 30490, someip(0x12340001, 1, 0x80, pattern(4)) + someip(0xFFFF8100, 1, 2, sd))))},
        tcpFrame(1000, kSyn, {}), tcpFrame(1021, kAck, slice(stream, 20, stream.size())), tcpFrame(1001, kAck, slice(stream, 0, 20)),
        {eth(0x0800, ipv4(slice(fragmented, 16, fragmented.size()), V4{17, 9, 16, false}))},
        {eth(0x0800, ipv4(slice(fragmented, 0, 16), V4{17, 9, 0, true}))},
        {eth(0x86DD, ipv6(44, Bytes{17, 0, 0, 1, 0, 0, 0, 5} + slice(fragmented, 0, 16)))},
        {eth(0x86DD, ipv6(44, Bytes{17, 0, 0, 16, 0, 0, 0, 5} + slice(fragmented, 16, fragmented.size())))},
        tp(16, false), tp(0, true),
    };
}

// Offsets where a record (pcap: the file header, then each record; pcapng: each block) ends.
std::vector<size_t> recordEnds(const Bytes& file, bool pcapng)
{
    auto le32 = [&](size_t at) { return uint32_t(file[at]) | file[at + 1] << 8 | file[at + 2] << 16 | uint32_t(file[at + 3]) << 24; };
    std::vector<size_t> ends = {pcapng ? le32(4) : 24};
    while (ends.back() < file.size()) ends.push_back(ends.back() + (pcapng ? le32(ends.back() + 4) : 16 + le32(ends.back() + 8)));
    return ends;
}

// Removed first: rewriting a file in place makes some file systems flush it on every close.
void rewrite(const std::string& path, const Bytes& data)
{
    std::remove(path.c_str());
    writeFile(path, data);
}

TEST(CaptureCorruption, EveryCutAndBitFlipsEndCleanly)
{
    const std::vector<Frame> frames = smallCapture();
    for (const bool pcapng : {false, true}) {
        SCOPED_TRACE(pcapng ? "pcapng" : "pcap");
        const Bytes file = pcapng ? pcapngBytes({{kEthernet}}, frames) : pcapBytes(kEthernet, frames);
        const std::string path = tempPath("corrupt");
        writeFile(path, file);
        ASSERT_EQ(readAll(path).lines.size(), 7u);  // control: the intact capture gives every message
        const std::vector<size_t> ends = recordEnds(file, pcapng);
        ASSERT_EQ(ends.back(), file.size());

        for (size_t n = 0; n < file.size(); ++n) {
            rewrite(path, slice(file, 0, n));
            const Result r = readAll(path);
            const bool between = std::find(ends.begin(), ends.end(), n) != ends.end();
            if (n < ends.front()) {
                EXPECT_TRUE(!r.open_error.empty() || r.status.failed) << "cut at " << n;
            } else {
                EXPECT_TRUE(r.open_error.empty()) << "cut at " << n << ": " << r.open_error;
                EXPECT_EQ(r.status.failed, !between) << "cut at " << n << ": " << r.status.error;
            }
        }
        // Two bits of each byte: the top one (length fields turn huge) and one that moves along.
        for (size_t bit = 0; bit < 8 * file.size(); ++bit) {
            if (bit % 8 != 7 && bit % 8 != bit / 8 % 7) continue;
            Bytes flipped = file;
            flipped[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
            rewrite(path, flipped);
            const Result r = readAll(path);
            EXPECT_LE(r.lines.size(), 16u) << "bit " << bit;
            EXPECT_TRUE(!r.status.failed || !r.status.error.empty()) << "bit " << bit;
            for (const Message& m : r.messages) EXPECT_TRUE(m.ok() || !m.error_text.empty()) << "bit " << bit;
        }
    }
}

}  // namespace
