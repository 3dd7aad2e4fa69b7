// SOME/IP messages: headers checked, datagrams cut into messages, SOME/IP-TP segments put back together.
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

bool magicCookie(const uint8_t* h, uint64_t total)
{
    const uint32_t id = be32(h);
    return total == kHeaderSize && (id == kCookieClientId || id == kCookieServerId) && be32(h + 8) == kCookieRequestId;
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
      tp_(context, *this, tpRules(options.limits))
{
}

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
            if (pos == 0 && any_port_) ++context_.stats().skipped_frames;
            else context_.error(o, ErrorCode::FrameCut, at + pos, text("header at offset %u cut by the snaplen (%u of 16 bytes)", pos, have));
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
            context_.headerError(o, ErrorCode::FrameCut, at + pos,
                                 text("message of %llu bytes at offset %u cut by the snaplen after %u bytes", ull(total), pos, have), h);
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
    tp_.add(key, Piece{offset, h + kHeaderSize + kTpHeaderSize, size, !more}, start, added,
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

void SomeIpLayer::dropped(const Reassembly<TpMeta>::Entry& e, ErrorCode code, uint64_t offset, std::string why, bool at_end)
{
    context_.headerError(context_.stored(e.last, e.meta.transport, e.meta.source, e.meta.destination, at_end), code, offset,
                         std::move(why), e.meta.header);
}

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP
