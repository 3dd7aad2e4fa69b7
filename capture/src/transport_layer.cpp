// UDP datagrams handed on whole; TCP byte streams put in order, for the SOME/IP layer to cut into messages.
#include "layers.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {

namespace {

// UDP header: ports, length, checksum.
constexpr uint32_t kUdpHeader = 8, kUdpLengthAt = 4;
// TCP header (without options): ports, sequence number, ..., the header length and the flags.
constexpr uint32_t kTcpHeader = 20, kTcpSeqAt = 4, kTcpAckAt = 8, kTcpHeaderLengthAt = 12, kTcpFlagsAt = 13;
enum : uint8_t { kFin = 0x01, kSyn = 0x02, kRst = 0x04, kAck = 0x10 };

// Out-of-order segments held per stream direction: each is searched when the stream advances.
constexpr size_t kMaxEarlySegments = 256;

void setCached(Endpoint& e, uint8_t family, const uint8_t* address, uint16_t port)
{
    if (e.family != family || e.port != port || std::memcmp(e.address, address, addressSize(family)) != 0)
        setEndpoint(e, family, address, port, true);
}

// The sequence number, from `from` and the stream's early segments, that comes first.
uint32_t earliest(const TcpStream& s, uint32_t from)
{
    for (const auto& g : s.early)
        if (static_cast<int32_t>(g.seq - from) < 0) from = g.seq;
    return from;
}

// The key of the stream from `source`:`ports[0..1]` to `destination`:`ports[2..3]`.
Key streamKey(uint8_t family, const uint8_t* source, const uint8_t* destination, const uint8_t* source_port,
              const uint8_t* destination_port)
{
    Key key = addressKey(source, destination, addressSize(family));
    keyPut(key, 0, &family, 1);
    keyPut(key, 2, source_port, 2);
    keyPut(key, 4, destination_port, 2);
    return key;
}

}  // namespace

TransportLayer::TransportLayer(Context& context, SomeIpLayer& someip, const Options& options)
    : context_(context), someip_(someip), any_port_(options.ports.empty()), ports_(65536 / 64, 0), limits_(options.limits)
{
    for (uint16_t p : options.ports) ports_[p >> 6] |= uint64_t{1} << (p & 63);
}

// ---- UDP and the way in ----

void TransportLayer::packet(const IpPayload& p)
{
    const uint8_t* d = p.data;
    const uint32_t header = p.proto == kProtoUdp ? kUdpHeader : kTcpHeader;
    if ((p.proto != kProtoUdp && p.proto != kProtoTcp) || p.captured < header || !selected(be16(d), be16(d + 2))) {
        ++context_.stats().skipped_frames;
        return;
    }
    setCached(source_, p.family, p.source, be16(d));
    setCached(destination_, p.family, p.destination, be16(d + 2));
    const Origin o = context_.here(p.proto == kProtoUdp ? Transport::Udp : Transport::Tcp, source_, destination_);
    if (p.proto == kProtoUdp) {
        const uint32_t length = be16(d + kUdpLengthAt);
        if (length < kUdpHeader || length > p.declared) {
            context_.error(o, ErrorCode::TransportMalformed, p.at + kUdpLengthAt,
                           text("UDP length %u, the IP layer carries %u bytes", length, p.declared));
            return;
        }
        someip_.datagram(o, d + kUdpHeader, std::min(p.captured, length) - kUdpHeader, length - kUdpHeader, p.at + kUdpHeader);
        return;
    }
    const uint32_t doff = (d[kTcpHeaderLengthAt] >> 4) * 4u;
    if (doff < kTcpHeader || doff > p.declared) {
        context_.error(o, ErrorCode::TransportMalformed, p.at + kTcpHeaderLengthAt,
                       text("TCP header length %u, the IP layer carries %u bytes", doff, p.declared));
        return;
    }
    tcpSegment(p);
}

// ---- TCP segments ----

Origin TransportLayer::streamOrigin(const TcpStream& s) const
{
    return context_.at(s.last, Transport::Tcp, s.source, s.destination);
}

void TransportLayer::tcpSegment(const IpPayload& p)
{
    const uint32_t doff = (p.data[kTcpHeaderLengthAt] >> 4) * 4u;
    const uint8_t flags = p.data[kTcpFlagsAt];
    const uint32_t length = p.declared - doff;
    const uint32_t have = p.captured > doff ? p.captured - doff : 0;
    if ((flags & kAck) && !early_frames_.empty()) acknowledged(p, be32(p.data + kTcpAckAt));
    TcpStream* found = stream(p, length != 0 || (flags & kSyn));
    if (!found) return;
    TcpStream& s = *found;
    s.last = context_.seen();
    uint32_t seq = be32(p.data + kTcpSeqAt);
    if (flags & kSyn) seq = synchronize(s, seq);
    if (s.cut.mode == StreamCut::Mode::Stopped) {
        ++context_.stats().skipped_frames;
        return;
    }
    if (flags & kRst) {
        finishStream(s, ErrorCode::TcpIncomplete, "the connection was reset");
        someip_.streamStop(s.cut);
        account(s);
        return;
    }
    if (!s.have_seq) {
        s.have_seq = true;
        s.next_seq = seq;
    }
    if (have > 0) streamData(s, seq, p.data + doff, have);
    if (have < length && seq + have == s.next_seq)
        gap(s, streamOrigin(s), seq + length, ErrorCode::FrameCut, "cut by the snaplen");
    if (length == 0 && !(flags & (kSyn | kFin))) ++context_.stats().skipped_frames;
    if (flags & kFin) {
        s.fin = true;
        s.fin_seq = seq + length;
    }
    closeIfDone(s);
    account(s);
    enforceStreamBudget(&s);
}

void TransportLayer::closeIfDone(TcpStream& s)
{
    if (s.fin && s.next_seq == s.fin_seq && s.early.empty()) {
        finishStream(s, ErrorCode::TcpIncomplete, "the connection was closed");
        someip_.streamStop(s.cut);
    }
}

// The peer acknowledges the other direction's bytes up to `ack`: those of them never captured were sent
// and will not come again, so the hole they leave is lost now rather than at the timeout.
void TransportLayer::acknowledged(const IpPayload& p, uint32_t ack)
{
    auto it = streams_.find(streamKey(p.family, p.destination, p.source, p.data + 2, p.data));
    if (it == streams_.end() || it->second.early.empty()) return;
    TcpStream& s = it->second;
    if (static_cast<int32_t>(ack - s.next_seq) <= 0) return;
    const uint32_t hole_end = earliest(s, s.early[0].seq);
    holeLost(s, static_cast<int32_t>(ack - hole_end) >= 0 ? hole_end : ack, "never captured, acknowledged by the peer,");
}

// The bytes up to `to_seq` are declared lost in the frame being read; what was held behind them moves on.
void TransportLayer::holeLost(TcpStream& s, uint32_t to_seq, const char* why)
{
    gap(s, context_.here(Transport::Tcp, s.source, s.destination), to_seq, ErrorCode::TcpGap, why);
    drainEarly(s);
    closeIfDone(s);
    account(s);
}

void TransportLayer::expire()
{
    if (early_frames_.empty()) return;
    const auto due = [&](const TcpStream& s) {
        int64_t since = INT64_MAX;
        for (const auto& g : s.early) since = std::min(since, g.seen.ns);
        return !s.early.empty() && saturatingAdd(since, limits_.tcp_hole_timeout_ns) <= context_.now();
    };
    std::vector<TcpStream*> holding;
    for (auto& e : streams_)
        if (due(e.second)) holding.push_back(&e.second);
    std::sort(holding.begin(), holding.end(), [](const TcpStream* a, const TcpStream* b) { return a->first.order < b->first.order; });
    for (TcpStream* s : holding)
        while (due(*s)) holeLost(*s, earliest(*s, s->early[0].seq), "never captured within the hole timeout");
}

int64_t TransportLayer::nextExpiry() const
{
    int64_t at = INT64_MAX;
    if (early_frames_.empty()) return at;
    for (const auto& e : streams_)
        for (const auto& g : e.second.early) at = std::min(at, saturatingAdd(g.seen.ns, limits_.tcp_hole_timeout_ns));
    return at;
}

TcpStream* TransportLayer::stream(const IpPayload& p, bool starts)
{
    const Key key = streamKey(p.family, p.source, p.destination, p.data, p.data + 2);
    auto it = streams_.find(key);
    if (it != streams_.end()) return &it->second;
    if (!starts) {  // nothing to follow: no data, no connection starting
        ++context_.stats().skipped_frames;
        return nullptr;
    }
    if (streams_.size() >= limits_.tcp_streams) evictStream(nullptr, "more streams than the limit", false);
    TcpStream& s = streams_.emplace(key, TcpStream{}).first->second;
    someip_.streamStart(s.cut, false);
    s.source = source_;
    s.destination = destination_;
    s.first = context_.created();
    return &s;
}

// A SYN with sequence number `seq`; returns the number of the first data byte.
uint32_t TransportLayer::synchronize(TcpStream& s, uint32_t seq)
{
    if (s.syn && s.isn == seq) return seq + 1;  // a repeated SYN
    // A (new) connection starts here.
    if (s.cut.following()) finishStream(s, ErrorCode::TcpIncomplete, "a new connection started on the same ports");
    someip_.streamStart(s.cut, true);
    s.syn = true;
    s.isn = seq;
    s.have_seq = true;
    s.next_seq = seq + 1;
    s.position = 0;
    s.fin = false;
    return seq + 1;
}

// ---- bytes in order ----

void TransportLayer::streamData(TcpStream& s, uint32_t seq, const uint8_t* d, uint32_t n)
{
    for (;;) {
        const int32_t rel = static_cast<int32_t>(seq - s.next_seq);
        if (rel <= 0) {
            const uint32_t old = static_cast<uint32_t>(-static_cast<int64_t>(rel));
            if (old >= n) {
                ++context_.stats().duplicates;
                return;
            }
            deliver(s, streamOrigin(s), d + old, n - old, true);
            s.next_seq += n - old;
            s.position += n - old;
            drainEarly(s);
            return;
        }
        if (holdEarly(s, seq, d, n)) return;
        // Too far ahead to wait for what lies between: the bytes before the earliest held segment are lost.
        gap(s, streamOrigin(s), earliest(s, seq), ErrorCode::TcpGap, "never captured");
        drainEarly(s);
    }
}

// Keeps a segment ahead of the stream when the window has room for it; true when it is kept (or repeats one
// kept).
bool TransportLayer::holdEarly(TcpStream& s, uint32_t seq, const uint8_t* d, uint32_t n)
{
    const uint64_t ahead = seq - s.next_seq;
    const uint32_t window = limits_.tcp_window;
    if (ahead + n > window || s.early_bytes + n > window || s.early.size() >= kMaxEarlySegments) return false;
    for (const auto& g : s.early) {
        if (g.seq == seq && g.data.size() >= n) {
            ++context_.stats().duplicates;
            return true;
        }
    }
    const Seen seen = context_.seen();
    context_.expiresAt(saturatingAdd(seen.ns, limits_.tcp_hole_timeout_ns));
    s.early.push_back({seq, std::vector<uint8_t>(d, d + n), seen});
    s.early_bytes += n;
    early_frames_.insert(seen.frame);
    return true;
}

void TransportLayer::drainEarly(TcpStream& s)
{
    for (size_t i = 0; i < s.early.size();) {
        const int32_t rel = static_cast<int32_t>(s.early[i].seq - s.next_seq);
        if (rel > 0) {
            ++i;
            continue;
        }
        TcpStream::Segment g = std::move(s.early[i]);
        s.early.erase(s.early.begin() + static_cast<std::ptrdiff_t>(i));
        s.early_bytes -= g.data.size();
        early_frames_.erase(early_frames_.find(g.seen.frame));
        const uint64_t old = static_cast<uint64_t>(-static_cast<int64_t>(rel));
        if (old < g.data.size()) {
            const size_t n = g.data.size() - static_cast<size_t>(old);
            deliver(s, context_.at(g.seen, Transport::Tcp, s.source, s.destination), g.data.data() + old, n, false);
            s.next_seq += static_cast<uint32_t>(n);
            s.position += n;
        } else {
            ++context_.stats().duplicates;
        }
        i = 0;  // the stream moved on: segments passed over before may fit now
    }
}

void TransportLayer::dropEarly(TcpStream& s)
{
    for (const auto& g : s.early) early_frames_.erase(early_frames_.find(g.seen.frame));
    s.early.clear();
    s.early_bytes = 0;
}

void TransportLayer::gap(TcpStream& s, const Origin& o, uint32_t to_seq, ErrorCode code, const std::string& why)
{
    const uint32_t missing = to_seq - s.next_seq;
    someip_.streamGap(s.cut, o, code, s.position, missing, why);
    s.next_seq = to_seq;
    s.position += missing;
}

void TransportLayer::deliver(TcpStream& s, const Origin& o, const uint8_t* d, size_t n, bool stable)
{
    someip_.streamBytes(s.cut, o, s.position, d, n, stable);
}

// ---- ends and bounds ----

void TransportLayer::finishStream(TcpStream& s, ErrorCode code, const char* why)
{
    const Origin o = streamOrigin(s);
    someip_.streamEnd(s.cut, o, code, why);
    if (s.early_bytes > 0 && s.cut.following())
        context_.error(o, code, s.position, text("%s with %zu bytes held out of order", why, s.early_bytes));
    dropEarly(s);
}

void TransportLayer::account(TcpStream& s)
{
    const size_t held = s.cut.pending.capacity() + s.early_bytes;
    stream_bytes_ = stream_bytes_ - s.held + held;
    s.held = held;
}

bool TransportLayer::evictStream(const TcpStream* keep, const char* why, bool holding_only)
{
    auto victim = streams_.end();
    for (auto it = streams_.begin(); it != streams_.end(); ++it) {
        const TcpStream& s = it->second;
        if (&s == keep || (holding_only && s.held == 0)) continue;
        if (victim == streams_.end() || s.last.ns < victim->second.last.ns ||
            (s.last.ns == victim->second.last.ns && s.first.order < victim->second.first.order))
            victim = it;
    }
    if (victim == streams_.end()) return false;
    victim->second.last = context_.seen();  // reported with the frame that forced it out
    finishStream(victim->second, ErrorCode::ReassemblyLimit, why);
    stream_bytes_ -= victim->second.held;
    streams_.erase(victim);
    return true;
}

void TransportLayer::enforceStreamBudget(TcpStream* keep)
{
    static const char* const why = "stream buffers above the limit";
    while (stream_bytes_ > limits_.tcp_bytes) {
        if (evictStream(keep, why, true)) continue;
        if (keep) {  // this stream alone is over: what it holds goes
            finishStream(*keep, ErrorCode::ReassemblyLimit, why);
            someip_.streamResume(keep->cut, keep->position);
            account(*keep);
        }
        break;
    }
}

void TransportLayer::flush()
{
    std::vector<TcpStream*> open;
    for (auto& s : streams_) open.push_back(&s.second);
    std::sort(open.begin(), open.end(), [](const TcpStream* a, const TcpStream* b) { return a->first.order < b->first.order; });
    for (TcpStream* s : open) {
        while (!s->early.empty()) {
            gap(*s, streamOrigin(*s), earliest(*s, s->early[0].seq), ErrorCode::TcpGap, "never captured before the capture ended");
            drainEarly(*s);
        }
        finishStream(*s, ErrorCode::TcpIncomplete, "the capture ended");
    }
    streams_.clear();
    stream_bytes_ = 0;
    early_frames_.clear();
}

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP
