// Helpers for the capture reader tests: packets built layer by layer, pcap and pcapng files written from
// them, and every yielded record described in one line so tables can list what they expect.
#pragma once

#include <arpa/inet.h>
#include <unistd.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "ZQSomeIPCapture.h"

namespace capturetest {

using namespace ZQSomeIP::capture;
using Bytes = std::vector<uint8_t>;

inline Bytes& operator+=(Bytes& a, const Bytes& b) { return a.insert(a.end(), b.begin(), b.end()), a; }
inline Bytes operator+(Bytes a, const Bytes& b) { return a += b; }
inline Bytes be(uint64_t v, int n)
{
    Bytes out;
    for (int i = n - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(v >> 8 * i));
    return out;
}
inline Bytes le(uint64_t v, int n)
{
    Bytes out = be(v, n);
    return std::reverse(out.begin(), out.end()), out;
}
inline Bytes pattern(size_t n, uint8_t seed = 0)
{
    Bytes out(n);
    for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(i * 7 + seed);
    return out;
}
inline Bytes slice(const Bytes& b, size_t from, size_t to) { return Bytes(b.begin() + from, b.begin() + to); }
inline Bytes patched(Bytes b, size_t at, const Bytes& with) { return std::copy(with.begin(), with.end(), b.begin() + at), b; }

// ---- SOME/IP: id = service << 16 | method, req = client << 16 | session ----
inline Bytes someip(uint32_t id, uint32_t req, uint8_t type, const Bytes& payload, uint8_t rc = 0, int length_skew = 0)
{
    return be(id, 4) + be(8 + payload.size() + length_skew, 4) + be(req, 4) + Bytes{1, 1, type, rc} + payload;
}
inline Bytes tpSegment(uint32_t id, uint32_t req, uint32_t offset, bool more, const Bytes& data)
{
    return someip(id, req, 0x22, be(offset | (more ? 1 : 0), 4) + data);
}

// ---- transport, network, link ----
enum : uint8_t { kFin = 1, kSyn = 2, kRst = 4, kAck = 0x10 };
inline Bytes udp(uint16_t sp, uint16_t dp, const Bytes& p, int length_skew = 0)
{
    return be(sp, 2) + be(dp, 2) + be(8 + p.size() + length_skew, 2) + be(0, 2) + p;
}
inline Bytes tcp(uint16_t sp, uint16_t dp, uint32_t seq, uint8_t flags, const Bytes& p, uint32_t ack = 0)
{
    return be(sp, 2) + be(dp, 2) + be(seq, 4) + be(ack, 4) + Bytes{0x50, flags, 0xFF, 0xFF, 0, 0, 0, 0} + p;
}
inline Bytes addr(int family, const char* text)
{
    Bytes out(family == 4 ? 4 : 16);
    return inet_pton(family == 4 ? AF_INET : AF_INET6, text, out.data()), out;
}
struct V4 {
    uint8_t proto = 17;
    uint16_t id = 0;
    uint16_t offset = 0;  // bytes
    bool more = false;
    const char* src = "10.0.0.1";
    const char* dst = "10.0.0.2";
};
inline Bytes ipv4(const Bytes& payload, const V4& o = {})
{
    return Bytes{0x45, 0} + be(20 + payload.size(), 2) + be(o.id, 2) + be(o.offset / 8 | (o.more ? 0x2000 : 0), 2) +
           Bytes{64, o.proto, 0, 0} + addr(4, o.src) + addr(4, o.dst) + payload;
}
inline Bytes ipv6(uint8_t next, const Bytes& payload, const char* src = "fe80::1", const char* dst = "fe80::2")
{
    return Bytes{0x60, 0, 0, 0} + be(payload.size(), 2) + Bytes{next, 64} + addr(6, src) + addr(6, dst) + payload;
}
// Ethernet; each tag protocol ID in `tags` is written with VLAN ID 100.
inline Bytes eth(uint16_t type, const Bytes& p, const std::vector<uint16_t>& tags = {})
{
    Bytes out = Bytes{2, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 1};
    for (uint16_t t : tags) out += be(t, 2) + be(100, 2);
    return out + be(type, 2) + p;
}
enum : uint32_t { kEthernet = 1, kRaw = 101, kSll = 113, kSll2 = 276, kIpv4Link = 228, kIpv6Link = 229, kNull = 0 };

// ---- files ----
struct Frame {
    Bytes data;
    uint64_t ts = 0;        // in the file's (pcapng: the interface's) units
    uint32_t iface = 0;     // pcapng only
    uint32_t original = 0;  // 0: data.size(); more: the frame was cut to data
};
inline Frame cutFrame(Frame f, size_t drop)
{
    f.original = static_cast<uint32_t>(f.data.size());
    return f.data.resize(f.data.size() - drop), f;
}

inline std::string tempPath(const std::string& name)
{
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    // The process ID keeps two runs of the suite on one machine (two checkouts, say) apart.
    return testing::TempDir() + "capture_" + std::to_string(getpid()) + "_" + info->test_suite_name() + "_" +
           info->name() + "_" + name;
}
inline void writeFile(const std::string& path, const Bytes& b)
{
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}
inline Bytes pcapBytes(uint32_t link, const std::vector<Frame>& frames, bool nano = false)
{
    Bytes out = le(nano ? 0xA1B23C4D : 0xA1B2C3D4, 4) + le(2, 2) + le(4, 2) + le(0, 8) + le(262144, 4) + le(link, 4);
    const uint64_t unit = nano ? 1000000000 : 1000000;
    for (const Frame& f : frames)
        out += le(f.ts / unit, 4) + le(f.ts % unit, 4) + le(f.data.size(), 4) + le(f.original ? f.original : f.data.size(), 4) + f.data;
    return out;
}
struct Interface {
    uint32_t link;
    uint8_t tsresol = 6;   // if_tsresol as written
    int64_t tsoffset = 0;  // if_tsoffset, seconds
};
inline Bytes pcapngBytes(const std::vector<Interface>& ifaces, const std::vector<Frame>& frames, bool big = false)
{
    auto u = [big](uint64_t v, int n) { return big ? be(v, n) : le(v, n); };
    auto block = [&](uint32_t type, Bytes body) {
        body.resize((body.size() + 3) & ~size_t{3});
        return u(type, 4) + u(body.size() + 12, 4) + body + u(body.size() + 12, 4);
    };
    Bytes out = block(0x0A0D0D0A, u(0x1A2B3C4D, 4) + u(1, 2) + u(0, 2) + u(~0ull, 8));
    for (const Interface& i : ifaces)
        out += block(1, u(i.link, 2) + u(0, 4 + 2) + u(9, 2) + u(1, 2) + Bytes{i.tsresol, 0, 0, 0} + u(14, 2) + u(8, 2) +
                            u(static_cast<uint64_t>(i.tsoffset), 8) + u(0, 4));
    for (const Frame& f : frames)
        out += block(6, u(f.iface, 4) + u(f.ts >> 32, 4) + u(f.ts & 0xFFFFFFFF, 4) + u(f.data.size(), 4) +
                            u(f.original ? f.original : f.data.size(), 4) + f.data);
    return out;
}

// ---- reading ----

// Payloads up to 16 bytes in hex, longer ones as "<size>B:<checksum>".
inline std::string payloadText(const uint8_t* p, size_t n)
{
    char buf[32];
    std::string out;
    uint32_t h = 2166136261u;
    for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 16777619u, std::snprintf(buf, sizeof buf, "%02x", p[i]), out += buf;
    if (n <= 16) return out;
    std::snprintf(buf, sizeof buf, "%zuB:%08x", n, h);
    return buf;
}
inline std::string payloadText(const Bytes& b) { return payloadText(b.data(), b.size()); }
// "#frame service.method t<type> s<session> <payload>", " tp<n>" for reassembled TP messages; errors
// "#frame !<name>@<offset>", then the bytes they carry.
inline std::string describe(const Message& m)
{
    char buf[96];
    if (!m.ok()) {
        std::snprintf(buf, sizeof buf, "#%llu !%s@%llu", static_cast<unsigned long long>(m.frame), errorName(m.error),
                      static_cast<unsigned long long>(m.error_offset));
        return buf + (m.payload_size > 0 ? " " + payloadText(m.payload, m.payload_size) : std::string());
    }
    std::snprintf(buf, sizeof buf, "#%llu %04x.%04x t%02x s%u ", static_cast<unsigned long long>(m.frame), m.header.service,
                  m.header.method, m.header.message_type, m.header.session);
    return buf + payloadText(m.payload, m.payload_size) + (m.tp_segments ? " tp" + std::to_string(m.tp_segments) : "");
}

struct Result {
    std::vector<std::string> lines;
    std::vector<std::string> flows;  // "udp 10.0.0.1:30490>10.0.0.2:30490" per record
    std::vector<Message> messages;   // payload and sd pointers cleared (they do not outlive the reader)
    Status status;
    uint64_t bytes_read = 0, file_size = 0;
    std::string open_error;
};
// Reads everything; every message yielded without error must have a length field matching its payload.
inline Result readAll(const std::string& path, const Options& options = {})
{
    Result r;
    auto reader = CaptureReader::open(path, options, r.open_error);
    for (Message m; reader && reader->next(m);) {
        if (m.ok()) { EXPECT_EQ(m.payload_size + 8, m.header.length) << describe(m); }
        r.lines.push_back(describe(m));
        r.flows.push_back((m.transport == Transport::Udp ? "udp " : "tcp ") + std::string(m.source.text()) + ">" +
                          std::string(m.destination.text()));
        m.payload = nullptr, m.sd = nullptr;
        r.messages.push_back(m);
    }
    if (reader) r.status = reader->status(), r.bytes_read = reader->bytesRead(), r.file_size = reader->fileSize();
    return r;
}
inline Result readPcap(uint32_t link, const std::vector<Frame>& frames, const Options& options = {}, bool nano = false)
{
    const std::string path = tempPath("in.pcap");
    writeFile(path, pcapBytes(link, frames, nano));
    return readAll(path, options);
}

}  // namespace capturetest
