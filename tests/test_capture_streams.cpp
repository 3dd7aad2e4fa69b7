// Capture reader: IPv4/IPv6 fragment reassembly and TCP stream reassembly.
#include "capture_test_support.h"

namespace {

using namespace capturetest;

struct StreamCase {
    const char* name;
    std::vector<Frame> frames;
    std::vector<std::string> lines;
    std::vector<uint16_t> ports = {};
    Limits limits = {};
};

Result run(const StreamCase& c)
{
    Options o;
    o.ports = c.ports;
    o.limits = c.limits;
    return readPcap(kEthernet, c.frames, o);
}

// ---- IP fragments: one 64-byte UDP datagram cut at 24 and 48 ----

const Bytes kBody = pattern(40);
const Bytes kDatagram = udp(30490, 30501, someip(0x12348001, 0x00010001, 0x02, kBody));
const std::string kWhole = "1234.8001 t02 s1 " + payloadText(kBody);

Frame v4(uint32_t from, uint32_t to, uint16_t id = 7, uint64_t ts = 0, const Bytes& data = kDatagram)
{
    return {eth(0x0800, ipv4(slice(data, from, to), V4{17, id, static_cast<uint16_t>(from), to < data.size()})), ts};
}
Frame v6(uint32_t from, uint32_t to)
{
    const Bytes header = Bytes{17, 0} + be(from | (to < kDatagram.size() ? 1 : 0), 2) + be(0x01020304, 4);
    return {eth(0x86DD, ipv6(44, header + slice(kDatagram, from, to)))};
}

TEST(CaptureStreams, FragmentsAreReassembled)
{
    Limits one, few_bytes, one_piece;
    one.ip_datagrams = 1;
    few_bytes.ip_bytes = 64;   // one whole datagram: the oldest partial one goes to make room
    one_piece.ip_pieces = 1;   // a datagram held as one byte range at most
    const std::vector<StreamCase> cases = {
        {"in order", {v4(0, 24), v4(24, 48), v4(48, 64)}, {"#3 " + kWhole}},
        {"reverse order", {v4(48, 64), v4(24, 48), v4(0, 24)}, {"#3 " + kWhole}},
        {"repeated fragment", {v4(0, 24), v4(0, 24), v4(24, 48), v4(48, 64)}, {"#4 " + kWhole}},
        {"ipv6, out of order", {v6(24, 48), v6(0, 24), v6(48, 64)}, {"#3 " + kWhole}},
        {"same range, other bytes", {v4(0, 24), v4(0, 24, 7, 0, pattern(64, 5))}, {"#2 !ip-fragment-overlap@0"}},
        {"partial overlap", {v4(0, 24), v4(16, 32)}, {"#2 !ip-fragment-overlap@16"}},
        // Missing fragments are reported at the frame of the datagram's first one, in frame order.
        {"missing until the capture ends", {v4(0, 24), v4(48, 64)}, {"#1 !ip-fragments-missing@24"}},
        {"missing, reported before later datagrams", {v4(0, 24), v4(0, 24, 8), v4(24, 48, 8), v4(48, 64, 8)},
         {"#1 !ip-fragments-missing@24", "#4 " + kWhole}},
        {"missing until the timeout", {v4(0, 24), v4(24, 48, 7, 31000000)}, {"#1 !ip-fragments-missing@24", "#2 !ip-fragments-missing@0"}},
        {"inner fragment not a multiple of 8", {v4(0, 20)}, {"#1 !ip-fragment-invalid@34"}},
        {"fragment cut by the snaplen", {cutFrame(v4(0, 24), 8)}, {"#1 !frame-cut@34 771a7725004000001234800100000030"}},
        {"datagrams in flight limited", {v4(0, 24, 1), v4(0, 24, 2), v4(24, 48, 2), v4(48, 64, 2)},
         {"#2 !reassembly-limit@24", "#4 " + kWhole}, {}, one},
        {"bytes in flight limited", {v4(0, 24, 1), v4(0, 24, 2), v4(24, 48, 2), v4(48, 64, 2)},
         {"#3 !reassembly-limit@24", "#4 " + kWhole}, {}, few_bytes},
        {"pieces per datagram limited", {v4(0, 24), v4(48, 64), v4(24, 48)},
         {"#2 !reassembly-limit@48", "#3 !ip-fragments-missing@0"}, {}, one_piece},
    };
    for (const StreamCase& c : cases) {
        SCOPED_TRACE(c.name);
        const Result r = run(c);
        EXPECT_EQ(r.lines, c.lines);
        if (std::string(c.name) == "ipv6, out of order") { EXPECT_EQ(r.flows[0], "udp [fe80::1]:30490>[fe80::2]:30501"); }
        if (std::string(c.name) == "repeated fragment") { EXPECT_EQ(r.status.stats.duplicates, 1u); }
    }
}

// ---- TCP: three messages of 17, 18 and 46 bytes in one direction, first byte at sequence 1001 ----

const Bytes kA = someip(0x12348001, 0x00010001, 0x02, {0xA1});
const Bytes kB = someip(0x12348002, 0x00010002, 0x02, {0xB1, 0xB2});
const Bytes kC = someip(0x12348003, 0x00010003, 0x02, pattern(30));
const Bytes kStream = kA + kB + kC;

Frame seg(uint32_t from, uint32_t to, uint8_t flags = kAck, const Bytes& data = kStream)
{
    return {eth(0x0800, ipv4(tcp(40000, 30490, 1001 + from, flags, slice(data, from, to)), V4{6}))};
}
const Frame kSynFrame = {eth(0x0800, ipv4(tcp(40000, 30490, 1000, kSyn, {}), V4{6}))};
const Frame kOtherSyn = {eth(0x0800, ipv4(tcp(40001, 30490, 1000, kSyn, {}), V4{6}))};
// The receiver's acknowledgement of the stream's bytes up to `upto`, at time `ts` (microseconds).
Frame ackOf(uint32_t upto, uint64_t ts = 0)
{
    V4 back{6};
    back.src = "10.0.0.2";
    back.dst = "10.0.0.1";
    return {eth(0x0800, ipv4(tcp(30490, 40000, 5001, kAck, {}, 1001 + upto), back)), ts};
}
std::string line(int frame, int which)
{
    const char* const text[] = {"1234.8001 t02 s1 a1", "1234.8002 t02 s2 b1b2", nullptr};
    return "#" + std::to_string(frame) + " " + (which < 2 ? text[which] : "1234.8003 t02 s3 " + payloadText(pattern(30)));
}

TEST(CaptureStreams, TcpStreamsAreReassembled)
{
    Limits narrow, small, short_messages, one_stream;
    narrow.tcp_window = 32;
    one_stream.tcp_streams = 1;
    small.tcp_bytes = 100;             // a 208-byte message cannot be held
    short_messages.max_message = 150;  // a 166-byte message is not a plausible header
    const Bytes garbage(16, 0xEE), fake = someip(0x11112222, 1, 0x02, {});
    const Bytes broken = kA + garbage + kB, big = someip(0x12348001, 0x10001, 0x02, pattern(192));
    const std::vector<StreamCase> cases = {
        {"split across segments", {kSynFrame, seg(0, 10), seg(10, 50), seg(50, 81)}, {line(3, 0), line(3, 1), line(4, 2)}},
        {"packed in one segment", {kSynFrame, seg(0, 81)}, {line(2, 0), line(2, 1), line(2, 2)}},
        // Each message carries the frame of its last byte; lines come in frame order.
        {"reverse order", {kSynFrame, seg(50, 81), seg(20, 50), seg(0, 20)}, {line(2, 2), line(3, 1), line(4, 0)}},
        // A hole (B's end lost) is declared once acknowledged, or after Limits::tcp_hole_timeout_ns (an
        // acknowledgement short of it declares nothing); C keeps its own frame.
        {"hole declared by the peer's acknowledgement", {kSynFrame, seg(0, 20), seg(35, 60), seg(60, 81), ackOf(81)},
         {line(2, 0), line(4, 2), "#5 !tcp-gap@20"}},
        {"hole declared at the timeout", {kSynFrame, seg(0, 20), seg(35, 60), seg(60, 81), ackOf(20, 500000), ackOf(20, 1500000)},
         {line(2, 0), line(4, 2), "#6 !tcp-gap@20"}},
        {"segment cut by the snaplen", {kSynFrame, cutFrame(seg(0, 81), 20)}, {line(2, 0), line(2, 1), "#2 !frame-cut@61"}},
        {"retransmitted", {kSynFrame, seg(0, 50), seg(0, 50), seg(50, 81)}, {line(2, 0), line(2, 1), line(4, 2)}},
        {"overlapping retransmission", {kSynFrame, seg(0, 30), seg(20, 81)}, {line(2, 0), line(3, 1), line(3, 2)}},
        {"gap beyond the window", {kSynFrame, seg(0, 20), seg(35, 81)}, {line(2, 0), "#3 !tcp-gap@20", line(3, 2)}, {}, narrow},
        {"gap left when the capture ends", {kSynFrame, seg(0, 20), seg(35, 81)}, {line(2, 0), "#3 !tcp-gap@20", line(3, 2)}},
        {"picked up mid-stream, port selected", {seg(5, 81)}, {"#1 !tcp-skipped@0", line(1, 1), line(1, 2)}, {30490}},
        {"picked up mid-stream, header split while searching", {seg(5, 20), seg(20, 81)}, {"#2 !tcp-skipped@0", line(2, 1), line(2, 2)}, {30490}},
        {"picked up mid-stream, a header not followed by another is passed over", {seg(0, 50, kAck, fake + garbage + kB)},
         {"#1 !tcp-skipped@0", "#1 1234.8002 t02 s2 b1b2"}, {30490}},
        {"picked up mid-stream, any port", {seg(5, 81)}, {}},
        {"port selected, stream opens with a bad header", {kSynFrame, seg(0, 33, kAck, garbage + kA)},
         {"#2 !someip-bad-header@0", "#2 !tcp-skipped@1", line(2, 0)}, {30490}},
        {"repeated SYN", {kSynFrame, seg(0, 10), kSynFrame, seg(10, 81)}, {line(4, 0), line(4, 1), line(4, 2)}},
        {"ethernet padding after a segment", {{eth(0x0800, ipv4(tcp(40000, 30490, 1001, kAck, kStream), V4{6}) + Bytes(6, 0))}},
         {line(1, 0), line(1, 1), line(1, 2)}},
        {"closed inside a message; later bytes ignored", {kSynFrame, seg(0, 40, kAck | kFin), seg(40, 81)}, {line(2, 0), line(2, 1), "#2 !tcp-incomplete@35"}},
        {"reset inside a message", {kSynFrame, seg(0, 40), seg(40, 40, kRst)}, {line(2, 0), line(2, 1), "#3 !tcp-incomplete@35"}},
        {"inconsistent header, then resynchronised", {kSynFrame, seg(0, 51, kAck, broken)},
         {line(2, 0), "#2 !someip-bad-header@17", "#2 !tcp-skipped@18", line(2, 1)}},
        {"message beyond the buffer limit", {kSynFrame, seg(0, 120, kAck, big), seg(120, 208, kAck, big)},
         {"#2 !reassembly-limit@0", "#3 !tcp-skipped@120"}, {}, small},
        {"message beyond the size limit", {kSynFrame, seg(0, 183, kAck, kA + someip(0x12348002, 0x10002, 0x02, pattern(150)))},
         {line(2, 0), "#2 !someip-bad-header@17", "#2 !tcp-skipped@18"}, {}, short_messages},
        {"streams limited: the least recently used goes, with what it held", {kSynFrame, seg(0, 20), seg(35, 81), kOtherSyn},
         {line(2, 0), "#4 !reassembly-limit@17", "#4 !reassembly-limit@20"}, {}, one_stream},
    };
    for (const StreamCase& c : cases) {
        SCOPED_TRACE(c.name);
        const Result r = run(c);
        EXPECT_EQ(r.lines, c.lines);
        for (const std::string& flow : r.flows) EXPECT_EQ(flow, "tcp 10.0.0.1:40000>10.0.0.2:30490");
        if (std::string(c.name) == "retransmitted") { EXPECT_EQ(r.status.stats.duplicates, 1u); }
    }
}

// The buffer limit counts every connection's bytes together.
TEST(CaptureStreams, TcpBufferLimitSpansConnections)
{
    Limits small;
    small.tcp_bytes = 100;
    const Bytes big = someip(0x12348001, 0x10001, 0x02, pattern(192));
    const Frame other_syn = {eth(0x0800, ipv4(tcp(40001, 30490, 1000, kSyn, {}), V4{6}))};
    const Frame other = {eth(0x0800, ipv4(tcp(40001, 30490, 1001, kAck, slice(big, 0, 60)), V4{6}))};
    const StreamCase two = {"", {kSynFrame, seg(0, 60, kAck, big), other_syn, other}, {"#4 !reassembly-limit@0", "#4 !tcp-incomplete@0"}, {}, small};
    const Result r = run(two);
    EXPECT_EQ(r.lines, two.lines);
    EXPECT_EQ(r.flows, (std::vector<std::string>{"tcp 10.0.0.1:40000>10.0.0.2:30490", "tcp 10.0.0.1:40001>10.0.0.2:30490"}));
}

}  // namespace
