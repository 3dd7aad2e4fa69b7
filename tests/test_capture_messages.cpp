// Capture reader: SOME/IP messages in UDP datagrams (the SOME/IP rule, length checks, snaplen cuts) and
// SOME/IP-TP reassembly.
#include <algorithm>

#include "capture_test_support.h"

namespace {

using namespace capturetest;

const Bytes kA = someip(0x12348001, 0x00010001, 0x02, {0xA1});
const Bytes kB = someip(0x12348002, 0x00010002, 0x00, {0xB1, 0xB2});
const Bytes kC = someip(0x12340003, 0x00010003, 0x80, {});
const char* const kLineA = "#1 1234.8001 t02 s1 a1";
const char* const kLineB = "#1 1234.8002 t00 s2 b1b2";

Frame datagram(const Bytes& payload, uint64_t ts = 0) { return {eth(0x0800, ipv4(udp(30490, 30501, payload))), ts}; }

struct DatagramCase {
    const char* name;
    Bytes payload;                   // UDP payload; it starts at byte 42 of the frame
    std::vector<std::string> lines;
    std::vector<uint16_t> ports = {};
    uint32_t cut_to = 0;             // captured bytes, when the frame is cut
};

TEST(CaptureMessages, DatagramsFollowTheSomeIpRule)
{
    Bytes bad_version = kB;
    bad_version[12] = 2;
    const Bytes cookie = someip(0xFFFF0000, 0xDEADBEEF, 0x01, {});
    const std::vector<DatagramCase> cases = {
        {"three messages", kA + kB + kC, {kLineA, kLineB, "#1 1234.0003 t80 s3 "}},
        {"second runs past the datagram", kA + someip(0x12348002, 0x10002, 0, {1, 2}, 0, 10), {kLineA, "#1 !someip-runs-past-datagram@59"}},
        {"bytes after the last message", kA + Bytes(5, 0), {kLineA, "#1 !someip-trailing-bytes@59"}},
        {"second header inconsistent", kA + bad_version, {kLineA, "#1 !someip-bad-header@59"}},
        {"first header: version 2", bad_version + kA, {}},
        {"first header: unknown type", someip(0x12348001, 0x10001, 0x03, {1}), {}},
        {"first header: return code out of range", someip(0x12348001, 0x10001, 0x02, {1}, 0x5F), {}},
        {"return code at the top of its range", someip(0x12348001, 0x10001, 0x02, {0xA1}, 0x5E), {kLineA}},
        {"first header: TP flag without TP header", someip(0x12348001, 0x10001, 0x22, {1, 2}), {}},
        {"first runs past, any port", someip(0x12348001, 0x10001, 2, {1}, 0, 4), {}},
        {"first runs past, port selected", someip(0x12348001, 0x10001, 2, {1}, 0, 4), {"#1 !someip-runs-past-datagram@42"}, {30501}},
        {"port not selected", kA, {}, {1234}},
        {"magic cookie skipped", cookie + kA, {kLineA}},
        {"snaplen cut in the second header", kA + kB, {kLineA, "#1 !frame-cut@59 123480020000000a0001"}, {}, 42 + 17 + 10},
        {"snaplen cut in the second payload", kA + kB, {kLineA, "#1 !frame-cut@59 b1"}, {}, 42 + 17 + 17},
        {"snaplen cut in the first header, any port", kA, {}, {}, 42 + 8},
        {"snaplen cut in the first header, port selected", kA, {"#1 !frame-cut@42 1234800100000009"}, {30490}, 42 + 8},
    };
    for (const DatagramCase& c : cases) {
        SCOPED_TRACE(c.name);
        Frame f = datagram(c.payload);
        if (c.cut_to) f = cutFrame(f, f.data.size() - c.cut_to);
        Options o;
        o.ports = c.ports;
        const Result r = readPcap(kEthernet, {f}, o);
        EXPECT_EQ(r.lines, c.lines);
        EXPECT_EQ(r.status.stats.skipped_frames, c.lines.empty() ? 1u : 0u);
        EXPECT_EQ(r.status.stats.magic_cookies, c.payload == cookie + kA ? 1u : 0u);
        EXPECT_EQ(r.status.stats.errors, static_cast<uint64_t>(std::count_if(
                                             r.lines.begin(), r.lines.end(), [](const std::string& l) { return l.find('!') != std::string::npos; })));
    }
}

// ---- SOME/IP-TP ----

const Bytes kWhole = pattern(48);
Bytes piece(uint32_t offset, bool more, uint16_t session = 1) { return tpSegment(0x12348001, session, offset, more, slice(kWhole, offset, offset + 16)); }

struct TpCase {
    const char* name;
    std::vector<Frame> frames;
    std::vector<std::string> lines;
    Limits limits = {};
};

TEST(CaptureMessages, TpSegmentsAreReassembled)
{
    Limits one;  // one message in reassembly, of at most 40 bytes
    one.tp_messages = 1;
    one.max_message = 40;
    Limits few_bytes, one_piece;
    few_bytes.tp_bytes = 24;  // one 16-byte segment fits, two do not
    one_piece.tp_pieces = 1;  // a message held as one byte range at most
    Limits waiting;  // one record may wait for an unfinished message
    waiting.reorder_records = 1;
    const std::string whole = payloadText(kWhole);
    const Bytes other = tpSegment(0x12348001, 1, 0, true, pattern(32, 9));
    const std::vector<TpCase> cases = {
        {"in order", {datagram(piece(0, true)), datagram(piece(16, true)), datagram(piece(32, false))}, {"#3 1234.8001 t02 s1 " + whole + " tp3"}},
        {"out of order", {datagram(piece(32, false)), datagram(piece(0, true)), datagram(piece(16, true))}, {"#3 1234.8001 t02 s1 " + whole + " tp3"}},
        {"repeated segment", {datagram(piece(0, true)), datagram(piece(0, true)), datagram(piece(16, true)), datagram(piece(32, false))},
         {"#4 1234.8001 t02 s1 " + whole + " tp3"}},
        {"reserved bits of the TP word ignored", {datagram(tpSegment(0x12348001, 1, 0x0E, true, slice(kWhole, 0, 16))), datagram(piece(16, true)),
                                                 datagram(piece(32, false))}, {"#3 1234.8001 t02 s1 " + whole + " tp3"}},
        {"two sessions interleaved", {datagram(piece(0, true, 1)), datagram(piece(0, true, 2)), datagram(piece(16, false, 1)), datagram(piece(16, false, 2))},
         {"#3 1234.8001 t02 s1 " + payloadText(slice(kWhole, 0, 32)) + " tp2", "#4 1234.8001 t02 s2 " + payloadText(slice(kWhole, 0, 32)) + " tp2"}},
        // An unfinished message is reported at its first segment's frame, in frame order.
        {"gap until the capture ends", {datagram(piece(0, true)), datagram(piece(32, false))}, {"#1 !tp-missing-segments@16"}},
        {"gap until the timeout", {datagram(piece(0, true)), datagram(piece(32, false), 1000000), datagram(kA, 6000000)},
         {"#1 !tp-missing-segments@16", "#3 1234.8001 t02 s1 a1"}},
        {"unfinished, reported before later messages", {datagram(piece(0, true)), datagram(kA), datagram(piece(32, false))},
         {"#1 !tp-missing-segments@16", "#2 1234.8001 t02 s1 a1"}},
        {"waiting records bounded: the oldest goes first", {datagram(piece(0, true)), datagram(kA), datagram(kA)},
         {"#2 1234.8001 t02 s1 a1", "#1 !tp-missing-segments@16", "#3 1234.8001 t02 s1 a1"}, waiting},
        {"overlap with other bytes", {datagram(piece(0, true)), datagram(other)}, {"#2 !tp-overlap@0"}},
        {"inner segment not 16-aligned", {datagram(tpSegment(0x12348001, 1, 0, true, pattern(20)))}, {"#1 !tp-invalid@0"}},
        {"segments disagree on the end", {datagram(piece(32, false)), datagram(tpSegment(0x12348001, 1, 48, false, pattern(16)))}, {"#2 !tp-overlap@48"}},
        {"in flight and size limited", {datagram(piece(0, true, 1)), datagram(piece(0, true, 2)), datagram(piece(32, false, 2))},
         {"#2 !reassembly-limit@16", "#3 !tp-invalid@32"}, one},
        {"bytes in flight limited", {datagram(piece(0, true, 1)), datagram(piece(0, true, 2)), datagram(piece(16, true, 2))},
         {"#2 !reassembly-limit@16", "#3 !reassembly-limit@32"}, few_bytes},
        {"pieces per message limited", {datagram(piece(0, true)), datagram(piece(32, false)), datagram(piece(16, true))},
         {"#2 !reassembly-limit@32", "#3 !tp-missing-segments@0"}, one_piece},
    };
    for (const TpCase& c : cases) {
        SCOPED_TRACE(c.name);
        Options o;
        o.limits = c.limits;
        EXPECT_EQ(readPcap(kEthernet, c.frames, o).lines, c.lines);
    }
}

}  // namespace
