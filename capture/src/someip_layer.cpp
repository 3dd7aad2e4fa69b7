// SOME/IP messages: headers checked, datagrams and TCP streams cut into messages, SOME/IP-TP segments put
// back together.
#include "layers.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {

namespace {

// Header fields after the length.
constexpr uint32_t kProtocolVersionAt = 12, kMessageTypeAt = 14, kReturnCodeAt = 15;
constexpr uint8_t kMaxReturnCode = 0x5E;
// The SOME/IP-TP header after the SOME/IP one: the segment's offset in its message, in units of
// kTpUnit bytes, and a flag saying more segments follow. Every segment but the last holds whole units.
constexpr uint32_t kTpHeaderSize = 4;
constexpr uint32_t kTpUnit = 16;
constexpr uint32_t kTpOffsetMask = ~(kTpUnit - 1), kTpMoreSegments = 1;
// The magic cookies: message IDs of either direction, and their fixed request ID.
constexpr uint32_t kCookieClientId = 0xFFFF0000u, kCookieServerId = 0xFFFF8000u, kCookieRequestId = 0xDEADBEEFu;

// A stream buffer this large after a big message is given back rather than kept for small ones.
constexpr size_t kKeepCapacity = 64 * 1024;
constexpr size_t kNotFound = static_cast<size_t>(-1);

bool magicCookie(const uint8_t* h, uint64_t total)
{
    const uint32_t id = be32(h);
    return total == kHeaderSize && (id == kCookieClientId || id == kCookieServerId) && be32(h + 8) == kCookieRequestId;
}

// The first offset in [0, n) holding a plausible header: consistent, and followed by another consistent
// header wherever the data reach that far.
size_t hunt(const uint8_t* d, size_t n, uint64_t max_length)
{
    for (size_t i = 0; n >= kHeaderSize && i <= n - kHeaderSize; ++i) {
        if (checkHeader(d + i, max_length) != HeaderCheck::Ok) continue;
        const uint64_t total = messageSize(d + i);
        if (total <= n - i && n - i - total >= kHeaderSize && checkHeader(d + i + total, max_length) != HeaderCheck::Ok)
            continue;
        return i;
    }
    return kNotFound;
}

ReassemblyRules tpRules(const Limits& l)
{
    return {"segment", "message", ErrorCode::TpOverlap, ErrorCode::TpMissingSegments,
            l.tp_messages, l.tp_bytes, l.tp_pieces, l.tp_timeout_ns};
}

}  // namespace

HeaderCheck checkHeader(const uint8_t* h, uint64_t max_length)
{
    const uint32_t length = be32(h + 4);
    const uint8_t type = h[kMessageTypeAt];
    switch (type & ~kTpFlag) {
    case 0x00: case 0x01: case 0x02: case 0x80: case 0x81: break;
    default: return HeaderCheck::Type;
    }
    if (h[kProtocolVersionAt] != 1) return HeaderCheck::Version;
    // The length covers the rest of the header, and the TP header of a segment.
    if (length < kHeaderSize - kLengthCountsFrom + ((type & kTpFlag) ? kTpHeaderSize : 0)) return HeaderCheck::ShortLength;
    if (h[kReturnCodeAt] > kMaxReturnCode) return HeaderCheck::ReturnCode;
    if (length > max_length) return HeaderCheck::TooLong;
    return HeaderCheck::Ok;
}

const char* headerCheckText(HeaderCheck c)
{
    switch (c) {
    case HeaderCheck::Ok: return "consistent";
    case HeaderCheck::ShortLength: return "length field too small for the header";
    case HeaderCheck::Version: return "protocol version is not 1";
    case HeaderCheck::Type: return "unknown message type";
    case HeaderCheck::ReturnCode: return "return code above 0x5E";
    case HeaderCheck::TooLong: return "length field above the accepted maximum";
    }
    return "?";
}

void readHeader(const uint8_t* h, Header& out)
{
    out.service = be16(h);
    out.method = be16(h + 2);
    out.length = be32(h + 4);
    out.client = be16(h + 8);
    out.session = be16(h + 10);
    out.protocol_version = h[kProtocolVersionAt];
    out.interface_version = h[13];
    out.message_type = h[kMessageTypeAt];
    out.return_code = h[kReturnCodeAt];
}

SomeIpLayer::SomeIpLayer(Context& context, SdLayer& sd, const Options& options)
    : context_(context), sd_(sd), any_port_(options.ports.empty()), max_message_(options.limits.max_message),
      max_length_(max_message_ > kLengthCountsFrom ? max_message_ - kLengthCountsFrom : 0),
      tp_(context, *this, tpRules(options.limits))
{
}

// ---- UDP datagrams ----

void SomeIpLayer::datagram(const Origin& o, const uint8_t* d, uint32_t captured, uint32_t declared, uint64_t at)
{
    for (uint32_t pos = 0; pos < declared;) {
        const uint32_t left = declared - pos, have = captured > pos ? captured - pos : 0;
        const uint8_t* h = d + pos;
        if (left < kHeaderSize) {
            if (pos == 0) ++context_.stats().skipped_frames;
            else context_.error(o, ErrorCode::TrailingBytes, at + pos, text("%u bytes after the last message", left));
            return;
        }
        if (have < kHeaderSize) {
            if (pos == 0 && any_port_) {
                ++context_.stats().skipped_frames;
            } else {
                Message& m = context_.error(o, ErrorCode::FrameCut, at + pos,
                                            text("header at offset %u cut by the snaplen (%u of 16 bytes)", pos, have));
                m.payload = h;  // what was captured of the header
                m.payload_size = have;
            }
            return;
        }
        const HeaderCheck c = checkHeader(h, UINT32_MAX);
        const uint64_t total = messageSize(h);
        if (c != HeaderCheck::Ok || (total > left && pos == 0 && any_port_)) {
            if (pos == 0) ++context_.stats().skipped_frames;
            else context_.headerError(o, ErrorCode::BadHeader, at + pos, text("header at offset %u: %s", pos, headerCheckText(c)), h);
            return;
        }
        if (total > left) {
            context_.headerError(o, ErrorCode::RunsPastDatagram, at + pos,
                                 text("message of %llu bytes at offset %u runs past the datagram's %u bytes", ull(total), pos, declared), h);
            return;
        }
        if (total > have) {
            Message& m = context_.headerError(o, ErrorCode::FrameCut, at + pos,
                                              text("message of %llu bytes at offset %u cut by the snaplen after %u bytes", ull(total), pos, have), h);
            m.payload = h + kHeaderSize;  // what was captured of the payload
            m.payload_size = have - kHeaderSize;
            return;
        }
        message(o, h, total, false);
        pos += static_cast<uint32_t>(total);
    }
}

void SomeIpLayer::message(const Origin& o, const uint8_t* h, uint64_t total, bool copy)
{
    if (magicCookie(h, total)) {
        ++context_.stats().magic_cookies;
        return;
    }
    if (h[kMessageTypeAt] & kTpFlag) {
        tpSegment(o, h, total);
        return;
    }
    Message& m = context_.push(o);
    readHeader(h, m.header);
    m.has_header = true;
    m.payload = h + kHeaderSize;
    m.payload_size = static_cast<size_t>(total - kHeaderSize);
    if (copy) {
        std::vector<uint8_t>& b = context_.buffer();
        b.assign(m.payload, m.payload + m.payload_size);
        m.payload = b.data();
    }
    ++context_.stats().messages;
    sd_.attach(m);
}

// ---- TCP streams ----

void SomeIpLayer::streamStart(StreamCut& c, bool at_start) const
{
    c.mode = any_port_ ? StreamCut::Mode::Deciding : at_start ? StreamCut::Mode::Synced : StreamCut::Mode::Hunting;
}

void SomeIpLayer::streamBytes(StreamCut& c, const Origin& o, uint64_t position, const uint8_t* d, size_t n, bool stable)
{
    if (c.mode == StreamCut::Mode::Stopped) return;
    if (c.pending.empty()) {
        c.pending_at = position;
        if (c.mode == StreamCut::Mode::Synced) {
            const size_t used = cutRun(c, o, d, n, !stable, position);
            d += used;
            n -= used;
            c.pending_at += used;
            if (n == 0) return;
        }
    }
    c.pending.insert(c.pending.end(), d, d + n);
    cutPending(c, o);
}

void SomeIpLayer::cutPending(StreamCut& c, const Origin& o)
{
    std::vector<uint8_t>& b = c.pending;
    size_t pos = 0;
    for (;;) {
        if (c.mode == StreamCut::Mode::Deciding) {
            if (b.size() - pos < kHeaderSize) break;
            if (checkHeader(b.data() + pos, max_length_) != HeaderCheck::Ok) {
                c.mode = StreamCut::Mode::Stopped;
                pos = b.size();
                break;
            }
            c.mode = StreamCut::Mode::Synced;
        }
        if (c.mode == StreamCut::Mode::Hunting) {
            const size_t found = hunt(b.data() + pos, b.size() - pos, max_length_);
            if (found == kNotFound) {  // what could still begin a header stays
                const size_t keep = std::min<size_t>(kHeaderSize - 1, b.size() - pos);
                c.skipped += b.size() - pos - keep;
                pos = b.size() - keep;
                break;
            }
            c.skipped += found;
            pos += found;
            if (c.skipped > 0)
                context_.error(o, ErrorCode::TcpSkipped, c.skip_from,
                               text("%llu bytes passed over to a plausible header at stream offset %llu", ull(c.skipped),
                                    ull(c.pending_at + pos)));
            c.skipped = 0;
            c.mode = StreamCut::Mode::Synced;
        }
        if (c.mode != StreamCut::Mode::Synced) break;
        pos += cutRun(c, o, b.data() + pos, b.size() - pos, true, c.pending_at + pos);
        if (c.mode == StreamCut::Mode::Synced) break;  // the rest is an incomplete message
    }
    b.erase(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(pos));
    c.pending_at += pos;
    if (b.empty() && b.capacity() > kKeepCapacity) std::vector<uint8_t>().swap(b);
}

size_t SomeIpLayer::cutRun(StreamCut& c, const Origin& o, const uint8_t* d, size_t n, bool copy, uint64_t at)
{
    size_t pos = 0;
    while (n - pos >= kHeaderSize) {
        const uint8_t* h = d + pos;
        const HeaderCheck check = checkHeader(h, max_length_);
        if (check != HeaderCheck::Ok) {
            context_.headerError(o, ErrorCode::BadHeader, at + pos,
                                 text("header at stream offset %llu: %s", ull(at + pos), headerCheckText(check)), h);
            c.mode = StreamCut::Mode::Hunting;
            c.skip_from = at + pos + 1;
            c.skipped = 0;
            return pos + 1;
        }
        const uint64_t total = messageSize(h);
        if (total > n - pos) break;
        message(o, h, total, copy);
        pos += static_cast<size_t>(total);
    }
    return pos;
}

void SomeIpLayer::streamGap(StreamCut& c, const Origin& o, ErrorCode code, uint64_t position, uint32_t missing,
                            const std::string& why)
{
    if (c.following()) {
        std::string t = text("%u bytes %s at stream offset %llu", missing, why.c_str(), ull(position));
        if (c.mode == StreamCut::Mode::Synced && !c.pending.empty())
            t += text("; the message begun at offset %llu is lost", ull(c.pending_at));
        else if (c.mode == StreamCut::Mode::Hunting && c.skipped + c.pending.size() > 0)
            t += text("; %llu bytes before it held no plausible header", ull(c.skipped + c.pending.size()));
        context_.error(o, code, position, t);
        c.mode = StreamCut::Mode::Hunting;
    } else if (c.mode == StreamCut::Mode::Deciding) {
        c.mode = StreamCut::Mode::Stopped;  // the start was never seen whole: nothing to decide on
    }
    c.pending.clear();
    c.skipped = 0;
    c.skip_from = position + missing;
}

void SomeIpLayer::streamEnd(StreamCut& c, const Origin& o, ErrorCode code, const char* why)
{
    const size_t pending = c.pending.size();
    if (c.mode == StreamCut::Mode::Synced && pending >= kHeaderSize) {
        context_.headerError(o, code, c.pending_at,
                             text("%s inside a message: %zu of %llu bytes arrived", why, pending, ull(messageSize(c.pending.data()))),
                             c.pending.data());
    } else if (c.mode == StreamCut::Mode::Synced && pending > 0) {
        context_.error(o, code, c.pending_at, text("%s inside a message header (%zu bytes)", why, pending));
    } else if (c.mode == StreamCut::Mode::Hunting && c.skipped + pending > 0) {
        context_.error(o, ErrorCode::TcpSkipped, c.skip_from,
                       text("%llu bytes without a plausible header before %s", ull(c.skipped + pending), why));
    }
    std::vector<uint8_t>().swap(c.pending);
    c.skipped = 0;
}

void SomeIpLayer::streamResume(StreamCut& c, uint64_t position) const
{
    if (c.mode == StreamCut::Mode::Synced) c.mode = StreamCut::Mode::Hunting;
    c.skip_from = position;
}

// ---- SOME/IP-TP ----

void SomeIpLayer::tpSegment(const Origin& o, const uint8_t* h, uint64_t total)
{
    const uint32_t word = be32(h + kHeaderSize);
    const uint32_t offset = word & kTpOffsetMask;
    const bool more = (word & kTpMoreSegments) != 0;
    const uint32_t size = static_cast<uint32_t>(total - kHeaderSize - kTpHeaderSize);
    // A message's segments share transport, endpoints, message ID and request ID.
    Key key = addressKey(o.source->address, o.destination->address, kAddressSize);
    const uint8_t head[2] = {static_cast<uint8_t>(o.transport), o.source->family};
    keyPut(key, 0, head, 2);
    keyPut(key, 2, &o.source->port, 2);
    keyPut(key, 4, &o.destination->port, 2);
    keyPut(key, 6, h, 4);       // service, method
    keyPut(key, 10, h + 8, 4);  // client, session
    const char* refused = more && size % kTpUnit != 0 ? "segment length is not a multiple of 16 though more segments follow"
                          : uint64_t{offset} + size > max_message_ ? "segment reaches past the largest message accepted"
                                                                   : nullptr;
    if (refused) {
        tp_.discard(key);
        context_.headerError(o, ErrorCode::TpInvalid, offset, text("%s (offset %u, %u bytes)", refused, offset, size), h);
        return;
    }
    const auto start = [&](TpMeta& m) {
        m.transport = o.transport;
        m.source = *o.source;
        m.destination = *o.destination;
        std::memcpy(m.header, h, kHeaderSize);
    };
    const auto added = [&](Reassembly<TpMeta>::Entry& e) {
        ++context_.stats().tp_segments;
        if (offset == 0) std::memcpy(e.meta.header, h, kHeaderSize);
    };
    tp_.add(key, Piece{offset, h + kHeaderSize + kTpHeaderSize, size, !more}, context_.seenAt(o), start, added,
            [&](Reassembly<TpMeta>::Entry& e) { tpComplete(o, e); });
}

void SomeIpLayer::tpComplete(const Origin& o, Reassembly<TpMeta>::Entry& e)
{
    Message& m = context_.push(o);
    readHeader(e.meta.header, m.header);
    m.header.message_type &= static_cast<uint8_t>(~kTpFlag);
    m.header.length = kLengthCountsFrom + e.pieces.end();
    m.has_header = true;
    std::vector<uint8_t>& b = context_.buffer();
    b.swap(e.pieces.bytes());
    b.resize(e.pieces.end());
    m.payload = b.data();
    m.payload_size = b.size();
    m.tp_segments = e.pieces.pieces();
    ++context_.stats().messages;
    sd_.attach(m);
}

void SomeIpLayer::dropped(const Reassembly<TpMeta>::Entry& e, ErrorCode code, uint64_t offset, std::string why, const Seen& at)
{
    context_.headerError(context_.at(at, e.meta.transport, e.meta.source, e.meta.destination), code, offset, std::move(why),
                         e.meta.header);
}

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP
