// UDP datagrams and TCP byte streams cut into SOME/IP messages; SOME/IP-TP segments put back together.
#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "reader_impl.h"

namespace ZQSomeIP {
namespace capture {

using detail::be16;
using detail::be32;
using detail::HeaderCheck;
using Impl = CaptureReader::Impl;

namespace {

enum : uint8_t { kFin = 0x01, kSyn = 0x02, kRst = 0x04 };

// Out-of-order segments held per stream direction: each is searched when the stream advances.
constexpr size_t kMaxEarlySegments = 256;
// A stream buffer this large after a big message is given back rather than kept for small ones.
constexpr size_t kKeepCapacity = 64 * 1024;
constexpr size_t kNotFound = static_cast<size_t>(-1);

std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string text(const char* format, ...)
{
    char buf[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    return buf;
}

unsigned long long ull(uint64_t v) { return v; }

// The first offset in [0, n) holding a plausible header: consistent, and followed by another consistent
// header wherever the data reach that far.
size_t hunt(const uint8_t* d, size_t n, uint64_t max_length)
{
    for (size_t i = 0; n >= 16 && i <= n - 16; ++i) {
        if (detail::checkHeader(d + i, max_length) != HeaderCheck::Ok) continue;
        const uint64_t total = 8 + uint64_t{be32(d + i + 4)};
        if (total <= n - i && n - i - total >= 16 && detail::checkHeader(d + i + total, max_length) != HeaderCheck::Ok)
            continue;
        return i;
    }
    return kNotFound;
}

bool magicCookie(const uint8_t* h, uint64_t total)
{
    const uint32_t id = be32(h);
    return total == 16 && (id == 0xFFFF0000u || id == 0xFFFF8000u) && be32(h + 8) == 0xDEADBEEFu;
}

void setCached(Endpoint& e, uint8_t family, const uint8_t* address, uint16_t port)
{
    if (e.family != family || e.port != port || std::memcmp(e.address, address, family == 4 ? 4 : 16) != 0)
        detail::setEndpoint(e, family, address, port, true);
}

}  // namespace

// ---- transport ----

void Impl::transport(uint8_t family, const uint8_t* src, const uint8_t* dst, uint8_t proto, const uint8_t* p,
                     uint32_t captured, uint32_t declared, uint64_t at)
{
    const uint32_t header = proto == 17 ? 8 : 20;
    if ((proto != 17 && proto != 6) || captured < header || !selected(be16(p), be16(p + 2))) {
        ++status.stats.skipped_frames;
        return;
    }
    const Transport t = proto == 17 ? Transport::Udp : Transport::Tcp;
    setCached(udp_source, family, src, be16(p));
    setCached(udp_destination, family, dst, be16(p + 2));
    const Origin o{frame.number, frame.seconds, frame.nanoseconds, frame.time_digits, t, &udp_source, &udp_destination};
    if (proto == 17) {
        const uint32_t length = be16(p + 4);
        if (length < 8 || length > declared) {
            error(o, ErrorCode::TransportMalformed, at + 4, text("UDP length %u, the IP layer carries %u bytes", length, declared));
            return;
        }
        datagramMessages(o, p + 8, std::min(captured, length) - 8, length - 8, at + 8);
        return;
    }
    const uint32_t doff = (p[12] >> 4) * 4u;
    if (doff < 20 || doff > declared) {
        error(o, ErrorCode::TransportMalformed, at + 12, text("TCP header length %u, the IP layer carries %u bytes", doff, declared));
        return;
    }
    tcpSegment(family, src, dst, p, captured, declared);
}

// ---- SOME/IP messages ----

void Impl::datagramMessages(const Origin& o, const uint8_t* d, uint32_t captured, uint32_t declared, uint64_t at)
{
    for (uint32_t pos = 0; pos < declared;) {
        const uint32_t left = declared - pos, have = captured > pos ? captured - pos : 0;
        const uint8_t* h = d + pos;
        if (left < 16) {
            if (pos == 0) ++status.stats.skipped_frames;
            else error(o, ErrorCode::TrailingBytes, at + pos, text("%u bytes after the last message", left));
            return;
        }
        if (have < 16) {
            if (pos == 0 && any_port) ++status.stats.skipped_frames;
            else error(o, ErrorCode::FrameCut, at + pos, text("header at offset %u cut by the snaplen (%u of 16 bytes)", pos, have));
            return;
        }
        const HeaderCheck c = detail::checkHeader(h, UINT32_MAX);
        const uint64_t total = 8 + uint64_t{be32(h + 4)};
        if (c != HeaderCheck::Ok || (total > left && pos == 0 && any_port)) {
            if (pos == 0) {
                ++status.stats.skipped_frames;
                return;
            }
            Message& m = error(o, ErrorCode::BadHeader, at + pos, text("header at offset %u: %s", pos, detail::headerCheckText(c)));
            detail::readHeader(h, m.header);
            m.has_header = true;
            return;
        }
        if (total > left || total > have) {
            Message& m = total > left
                ? error(o, ErrorCode::RunsPastDatagram, at + pos,
                        text("message of %llu bytes at offset %u runs past the datagram's %u bytes", ull(total), pos, declared))
                : error(o, ErrorCode::FrameCut, at + pos,
                        text("message of %llu bytes at offset %u cut by the snaplen after %u bytes", ull(total), pos, have));
            detail::readHeader(h, m.header);
            m.has_header = true;
            return;
        }
        message(o, h, total, false);
        pos += static_cast<uint32_t>(total);
    }
}

void Impl::message(const Origin& o, const uint8_t* h, uint64_t total, bool copy)
{
    if (magicCookie(h, total)) {
        ++status.stats.magic_cookies;
        return;
    }
    if (h[14] & 0x20) {
        tpSegment(o, h, total);
        return;
    }
    Message& m = push(o);
    detail::readHeader(h, m.header);
    m.has_header = true;
    m.payload = h + 16;
    m.payload_size = static_cast<size_t>(total - 16);
    if (copy) {
        std::vector<uint8_t>& b = buffer();
        b.assign(m.payload, m.payload + m.payload_size);
        m.payload = b.data();
    }
    ++status.stats.messages;
    serviceDiscovery(m);
}

void Impl::serviceDiscovery(Message& m)
{
    if (m.header.service != 0xFFFF || m.header.method != 0x8100) return;
    if (sds_used == sds.size()) sds.push_back(std::make_unique<SdMessage>());
    SdMessage& sd = *sds[sds_used++];
    ++status.stats.sd_messages;
    m.sd = &sd;
    if (!decodeServiceDiscovery(m.payload, m.payload_size, sd)) {
        m.error = ErrorCode::SdMalformed;
        m.error_offset = sd.error_offset;
        m.error_text = sd.error;
        ++status.stats.errors;
        ++status.stats.errors_by_code[static_cast<size_t>(ErrorCode::SdMalformed)];
    }
}

// ---- SOME/IP-TP ----

void Impl::tpSegment(const Origin& o, const uint8_t* h, uint64_t total)
{
    const uint32_t word = be32(h + 16);
    const uint32_t offset = word & 0xFFFFFFF0u;
    const bool more = (word & 1) != 0;
    const uint32_t size = static_cast<uint32_t>(total - 20);
    detail::Key key;
    const uint8_t head[2] = {static_cast<uint8_t>(o.transport), o.source->family};
    detail::keyPut(key, 0, head, 2);
    detail::keyPut(key, 2, &o.source->port, 2);
    detail::keyPut(key, 4, &o.destination->port, 2);
    detail::keyPut(key, 6, h, 4);      // service, method
    detail::keyPut(key, 10, h + 8, 4); // client, session
    detail::keyPut(key, 16, o.source->address, 16);
    detail::keyPut(key, 32, o.destination->address, 16);
    auto it = tp.find(key);
    const char* refused = more && size % 16 != 0 ? "segment length is not a multiple of 16 though more segments follow"
                          : uint64_t{offset} + size > options.limits.max_message ? "segment reaches past the largest message accepted"
                                                                                 : nullptr;
    if (refused) {
        if (it != tp.end()) {
            tp_bytes -= it->second.pieces.held();
            tp.erase(it);
        }
        Message& m = error(o, ErrorCode::TpInvalid, offset, text("%s (offset %u, %u bytes)", refused, offset, size));
        detail::readHeader(h, m.header);
        m.has_header = true;
        return;
    }
    if (it == tp.end()) {
        if (tp.size() >= options.limits.tp_messages) {
            auto oldest = std::min_element(tp.begin(), tp.end(),
                                           [](const auto& a, const auto& b) { return a.second.first.order < b.second.first.order; });
            if (oldest != tp.end())
                dropTp(oldest, ErrorCode::ReassemblyLimit, oldest->second.pieces.firstMissing(),
                       text("more than %u messages in reassembly; the oldest is dropped", options.limits.tp_messages));
        }
        it = tp.emplace(key, TpEntry{}).first;
        TpEntry& e = it->second;
        e.transport = o.transport;
        e.source = *o.source;
        e.destination = *o.destination;
        e.first = seen();
        e.first.order = ++order;
        std::memcpy(e.header, h, 16);
        next_expiry = std::min(next_expiry, saturatingAdd(e.first.ns, options.limits.tp_timeout_ns));
    }
    TpEntry& e = it->second;
    e.last = seen();
    const size_t before = e.pieces.held();
    switch (e.pieces.add(offset, h + 20, size, !more, options.limits.tp_pieces)) {
    case detail::PieceSet::Add::Added: break;
    case detail::PieceSet::Add::Duplicate: ++status.stats.duplicates; return;
    case detail::PieceSet::Add::Overlap:
        return dropTp(it, ErrorCode::TpOverlap, offset,
                      text("segment at bytes %u..%u overlaps bytes already held with other content", offset, offset + size));
    case detail::PieceSet::Add::EndConflict:
        return dropTp(it, ErrorCode::TpOverlap, offset,
                      text("segments disagree on where the message ends (this one: offset %u, %u bytes%s)", offset, size,
                           more ? "" : ", last"));
    case detail::PieceSet::Add::TooManyPieces:
        return dropTp(it, ErrorCode::ReassemblyLimit, offset, text("more than %u separate pieces in one message", options.limits.tp_pieces));
    }
    ++status.stats.tp_segments;
    if (offset == 0) std::memcpy(e.header, h, 16);
    tp_bytes += e.pieces.held() - before;
    if (e.pieces.complete()) {
        tp_bytes -= e.pieces.held();
        Message& m = push(o);
        detail::readHeader(e.header, m.header);
        m.header.message_type &= static_cast<uint8_t>(~0x20);
        m.header.length = 8 + e.pieces.end();
        m.has_header = true;
        std::vector<uint8_t>& b = buffer();
        b.swap(e.pieces.bytes());
        b.resize(e.pieces.end());
        m.payload = b.data();
        m.payload_size = b.size();
        m.tp_segments = e.pieces.pieces();
        tp.erase(it);
        ++status.stats.messages;
        serviceDiscovery(m);
        return;
    }
    while (tp_bytes > options.limits.tp_bytes && !tp.empty()) {
        auto oldest = std::min_element(tp.begin(), tp.end(),
                                       [](const auto& a, const auto& b) { return a.second.first.order < b.second.first.order; });
        dropTp(oldest, ErrorCode::ReassemblyLimit, oldest->second.pieces.firstMissing(),
               text("segment buffers above %llu bytes; the oldest message is dropped", ull(options.limits.tp_bytes)));
    }
}

void Impl::dropTp(std::unordered_map<detail::Key, TpEntry, detail::KeyHash>::iterator it, ErrorCode code, uint64_t offset,
                  const std::string& why, bool at_end)
{
    TpEntry& e = it->second;
    Message& m = error(storedOrigin(e.last, e.transport, e.source, e.destination, at_end), code, offset, why);
    detail::readHeader(e.header, m.header);
    m.has_header = true;
    tp_bytes -= e.pieces.held();
    tp.erase(it);
}

// ---- TCP ----

Origin Impl::streamOrigin(const TcpStream& s)
{
    return storedOrigin(s.last, Transport::Tcp, s.source, s.destination, true);
}

void Impl::tcpSegment(uint8_t family, const uint8_t* src, const uint8_t* dst, const uint8_t* p, uint32_t captured,
                      uint32_t declared)
{
    const uint32_t doff = (p[12] >> 4) * 4u;
    const uint8_t flags = p[13];
    const uint32_t length = declared - doff;
    const uint32_t have = captured > doff ? captured - doff : 0;
    detail::Key key;
    detail::keyPut(key, 0, &family, 1);
    detail::keyPut(key, 2, p, 4);  // both ports
    detail::keyPut(key, 16, src, family == 4 ? 4 : 16);
    detail::keyPut(key, 32, dst, family == 4 ? 4 : 16);
    auto it = streams.find(key);
    if (it == streams.end()) {
        if (length == 0 && !(flags & kSyn)) {
            ++status.stats.skipped_frames;
            return;
        }
        if (streams.size() >= options.limits.tcp_streams) evictStream(nullptr, "more streams than the limit", false);
        it = streams.emplace(key, TcpStream{}).first;
        TcpStream& s = it->second;
        s.mode = any_port ? TcpStream::Mode::Deciding : TcpStream::Mode::Hunting;
        s.source = udp_source;
        s.destination = udp_destination;
        s.first = seen();
        s.first.order = ++order;
    }
    TcpStream& s = it->second;
    s.last = seen();
    uint32_t seq = be32(p + 4);
    if (flags & kSyn) {
        if (!(s.syn && s.isn == seq)) {  // not a repeated SYN: a (new) connection starts here
            if (s.mode == TcpStream::Mode::Synced || s.mode == TcpStream::Mode::Hunting)
                finishStream(s, ErrorCode::TcpIncomplete, "a new connection started on the same ports");
            s.mode = any_port ? TcpStream::Mode::Deciding : TcpStream::Mode::Synced;
            s.syn = true;
            s.isn = seq;
            s.have_seq = true;
            s.next_seq = seq + 1;
            s.position = 0;
            s.fin = false;
        }
        ++seq;
    }
    if (s.mode == TcpStream::Mode::Ignored || s.mode == TcpStream::Mode::Closed) {
        ++status.stats.skipped_frames;
        return;
    }
    if (flags & kRst) {
        finishStream(s, ErrorCode::TcpIncomplete, "the connection was reset");
        s.mode = TcpStream::Mode::Closed;
        account(s);
        return;
    }
    if (!s.have_seq) {
        s.have_seq = true;
        s.next_seq = seq;
        s.skip_from = 0;
    }
    if (have > 0) streamData(s, seq, p + doff, have);
    if (have < length && seq + have == s.next_seq)
        gap(s, seq + length, ErrorCode::FrameCut, "cut by the snaplen");
    if (length == 0 && !(flags & (kSyn | kFin))) ++status.stats.skipped_frames;
    if (flags & kFin) {
        s.fin = true;
        s.fin_seq = seq + length;
    }
    if (s.fin && s.next_seq == s.fin_seq && s.early.empty()) {
        finishStream(s, ErrorCode::TcpIncomplete, "the connection was closed");
        s.mode = TcpStream::Mode::Closed;
    }
    account(s);
    enforceStreamBudget(&s);
}

void Impl::streamData(TcpStream& s, uint32_t seq, const uint8_t* d, uint32_t n)
{
    for (;;) {
        const int32_t rel = static_cast<int32_t>(seq - s.next_seq);
        if (rel <= 0) {
            const uint32_t old = static_cast<uint32_t>(-static_cast<int64_t>(rel));
            if (old >= n) {
                ++status.stats.duplicates;
                return;
            }
            deliver(s, d + old, n - old, true);
            s.next_seq += n - old;
            s.position += n - old;
            drainEarly(s);
            return;
        }
        const uint32_t window = options.limits.tcp_window;
        if (uint64_t{static_cast<uint32_t>(rel)} + n <= window && s.early_bytes + n <= window && s.early.size() < kMaxEarlySegments) {
            for (const auto& g : s.early) {
                if (g.seq == seq && g.data.size() >= n) {
                    ++status.stats.duplicates;
                    return;
                }
            }
            s.early.push_back({seq, std::vector<uint8_t>(d, d + n)});
            s.early_bytes += n;
            return;
        }
        // Too far ahead to wait for what lies between: the bytes before the earliest held segment are lost.
        uint32_t first = seq;
        for (const auto& g : s.early)
            if (static_cast<int32_t>(g.seq - first) < 0) first = g.seq;
        gap(s, first, ErrorCode::TcpGap, "never captured");
        drainEarly(s);
    }
}

void Impl::drainEarly(TcpStream& s)
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
        const uint64_t old = static_cast<uint64_t>(-static_cast<int64_t>(rel));
        if (old < g.data.size()) {
            const size_t n = g.data.size() - static_cast<size_t>(old);
            deliver(s, g.data.data() + old, n, false);
            s.next_seq += static_cast<uint32_t>(n);
            s.position += n;
        } else {
            ++status.stats.duplicates;
        }
        i = 0;  // the stream moved on: segments passed over before may fit now
    }
}

void Impl::gap(TcpStream& s, uint32_t to_seq, ErrorCode code, const std::string& why)
{
    const uint32_t missing = to_seq - s.next_seq;
    if (s.mode == TcpStream::Mode::Synced || s.mode == TcpStream::Mode::Hunting) {
        std::string t = text("%u bytes %s at stream offset %llu", missing, why.c_str(), ull(s.position));
        if (s.mode == TcpStream::Mode::Synced && !s.pending.empty())
            t += text("; the message begun at offset %llu is lost", ull(s.pending_at));
        else if (s.mode == TcpStream::Mode::Hunting && s.skipped + s.pending.size() > 0)
            t += text("; %llu bytes before it held no plausible header", ull(s.skipped + s.pending.size()));
        error(streamOrigin(s), code, s.position, t);
        s.mode = TcpStream::Mode::Hunting;
    } else if (s.mode == TcpStream::Mode::Deciding) {
        s.mode = TcpStream::Mode::Ignored;  // the start was never seen whole: nothing to decide on
    }
    s.pending.clear();
    s.skipped = 0;
    s.next_seq = to_seq;
    s.position += missing;
    s.skip_from = s.position;
}

void Impl::deliver(TcpStream& s, const uint8_t* d, size_t n, bool stable)
{
    if (s.mode == TcpStream::Mode::Ignored || s.mode == TcpStream::Mode::Closed) return;
    if (s.pending.empty()) {
        s.pending_at = s.position;
        if (s.mode == TcpStream::Mode::Synced) {
            const size_t used = parseRun(s, d, n, !stable, s.position);
            d += used;
            n -= used;
            s.pending_at += used;
            if (n == 0) return;
        }
    }
    s.pending.insert(s.pending.end(), d, d + n);
    parsePending(s);
}

void Impl::parsePending(TcpStream& s)
{
    std::vector<uint8_t>& b = s.pending;
    const uint64_t max = options.limits.max_message > 8 ? options.limits.max_message - 8 : 0;
    size_t pos = 0;
    for (;;) {
        if (s.mode == TcpStream::Mode::Deciding) {
            if (b.size() - pos < 16) break;
            if (detail::checkHeader(b.data() + pos, max) != HeaderCheck::Ok) {
                s.mode = TcpStream::Mode::Ignored;
                pos = b.size();
                break;
            }
            s.mode = TcpStream::Mode::Synced;
        }
        if (s.mode == TcpStream::Mode::Hunting) {
            const size_t found = hunt(b.data() + pos, b.size() - pos, max);
            if (found == kNotFound) {
                const size_t keep = std::min<size_t>(15, b.size() - pos);
                s.skipped += b.size() - pos - keep;
                pos = b.size() - keep;
                break;
            }
            s.skipped += found;
            pos += found;
            if (s.skipped > 0)
                error(streamOrigin(s), ErrorCode::TcpSkipped, s.skip_from,
                      text("%llu bytes passed over to a plausible header at stream offset %llu", ull(s.skipped),
                           ull(s.pending_at + pos)));
            s.skipped = 0;
            s.mode = TcpStream::Mode::Synced;
        }
        if (s.mode != TcpStream::Mode::Synced) break;
        pos += parseRun(s, b.data() + pos, b.size() - pos, true, s.pending_at + pos);
        if (s.mode == TcpStream::Mode::Synced) break;  // the rest is an incomplete message
    }
    b.erase(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(pos));
    s.pending_at += pos;
    if (b.empty() && b.capacity() > kKeepCapacity) std::vector<uint8_t>().swap(b);
}

size_t Impl::parseRun(TcpStream& s, const uint8_t* d, size_t n, bool copy, uint64_t at)
{
    const uint64_t max = options.limits.max_message > 8 ? options.limits.max_message - 8 : 0;
    size_t pos = 0;
    while (n - pos >= 16) {
        const uint8_t* h = d + pos;
        const HeaderCheck c = detail::checkHeader(h, max);
        if (c != HeaderCheck::Ok) {
            Message& m = error(streamOrigin(s), ErrorCode::BadHeader, at + pos,
                               text("header at stream offset %llu: %s", ull(at + pos), detail::headerCheckText(c)));
            detail::readHeader(h, m.header);
            m.has_header = true;
            s.mode = TcpStream::Mode::Hunting;
            s.skip_from = at + pos + 1;
            s.skipped = 0;
            return pos + 1;
        }
        const uint64_t total = 8 + uint64_t{be32(h + 4)};
        if (total > n - pos) break;
        message(streamOrigin(s), h, total, copy);
        pos += static_cast<size_t>(total);
    }
    return pos;
}

void Impl::finishStream(TcpStream& s, ErrorCode code, const char* why)
{
    const Origin o = streamOrigin(s);
    if (s.mode == TcpStream::Mode::Synced && !s.pending.empty()) {
        Message& m = s.pending.size() >= 16
            ? error(o, code, s.pending_at,
                    text("%s inside a message: %zu of %llu bytes arrived", why, s.pending.size(), ull(8 + uint64_t{be32(s.pending.data() + 4)})))
            : error(o, code, s.pending_at, text("%s inside a message header (%zu bytes)", why, s.pending.size()));
        if (s.pending.size() >= 16) {
            detail::readHeader(s.pending.data(), m.header);
            m.has_header = true;
        }
    } else if (s.mode == TcpStream::Mode::Hunting && s.skipped + s.pending.size() > 0) {
        error(o, ErrorCode::TcpSkipped, s.skip_from,
              text("%llu bytes without a plausible header before %s", ull(s.skipped + s.pending.size()), why));
    }
    if (s.early_bytes > 0 && (s.mode == TcpStream::Mode::Synced || s.mode == TcpStream::Mode::Hunting))
        error(o, code, s.position, text("%s with %zu bytes held out of order", why, s.early_bytes));
    std::vector<uint8_t>().swap(s.pending);
    s.early.clear();
    s.early_bytes = 0;
    s.skipped = 0;
}

void Impl::account(TcpStream& s)
{
    const size_t held = s.pending.capacity() + s.early_bytes;
    stream_bytes = stream_bytes - s.held + held;
    s.held = held;
}

bool Impl::evictStream(const TcpStream* keep, const char* why, bool holding_only)
{
    auto victim = streams.end();
    for (auto it = streams.begin(); it != streams.end(); ++it) {
        const TcpStream& s = it->second;
        if (&s == keep || (holding_only && s.held == 0)) continue;
        if (victim == streams.end() || s.last.ns < victim->second.last.ns ||
            (s.last.ns == victim->second.last.ns && s.first.order < victim->second.first.order))
            victim = it;
    }
    if (victim == streams.end()) return false;
    victim->second.last = seen();  // reported with the frame that forced it out
    finishStream(victim->second, ErrorCode::ReassemblyLimit, why);
    stream_bytes -= victim->second.held;
    streams.erase(victim);
    return true;
}

void Impl::enforceStreamBudget(TcpStream* keep)
{
    static const char* const why = "stream buffers above the limit";
    while (stream_bytes > options.limits.tcp_bytes) {
        if (evictStream(keep, why, true)) continue;
        if (keep) {  // this stream alone is over: what it holds goes
            finishStream(*keep, ErrorCode::ReassemblyLimit, why);
            if (keep->mode == TcpStream::Mode::Synced) keep->mode = TcpStream::Mode::Hunting;
            keep->skip_from = keep->position;
            account(*keep);
        }
        break;
    }
}

}  // namespace capture
}  // namespace ZQSomeIP
