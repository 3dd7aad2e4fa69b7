// IPv4 and IPv6 (extension headers passed over), and their fragments put back together.
#include "layers.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {

namespace {

// IPv4: the header (without options) and its fields.
constexpr uint32_t kIpv4Header = 20;
constexpr uint32_t kIpv4TotalLength = 2, kIpv4Id = 4, kIpv4Flags = 6, kIpv4Protocol = 9, kIpv4Source = 12,
                   kIpv4Destination = 16;
constexpr uint16_t kIpv4MoreFragments = 0x2000, kIpv4OffsetMask = 0x1FFF;
// IPv6: the fixed header and its fields.
constexpr uint32_t kIpv6Header = 40;
constexpr uint32_t kIpv6PayloadLength = 4, kIpv6NextHeader = 6, kIpv6Source = 8, kIpv6Destination = 24;
// IPv6 extension headers: the fragment header, and the smallest of those with a length byte.
constexpr uint8_t kIpv6Fragment = 44, kIpv6Auth = 51;
constexpr uint32_t kIpv6FragmentHeader = 8, kIpv6ExtensionHead = 2;
constexpr uint16_t kIpv6OffsetMask = 0xFFF8, kIpv6MoreFragments = 1;
// Fragments carry their offset in 8-byte units, and all but the last a whole number of them.
constexpr uint32_t kFragmentUnit = 8;
constexpr uint64_t kMaxDatagram = 65535;

const uint8_t kNoAddress[kAddressSize] = {};

bool hasLengthByte(uint8_t next)
{
    switch (next) {
    case 0: case 43: case 60: case 139: case 140: case kIpv6Auth: return true;
    default: return false;
    }
}

void advance(IpPayload& p, uint32_t n)
{
    p.data += n;
    p.captured -= n;
    p.declared -= n;
    p.at += n;
}

ReassemblyRules fragmentRules(const Limits& l)
{
    return {"fragment", "datagram", ErrorCode::IpFragmentOverlap, ErrorCode::IpFragmentsMissing,
            l.ip_datagrams, l.ip_bytes, l.ip_pieces, l.ip_timeout_ns};
}

}  // namespace

IpLayer::IpLayer(Context& context, TransportLayer& transport, const Limits& limits)
    : context_(context), transport_(transport), fragments_(context, *this, fragmentRules(limits))
{
}

Origin IpLayer::origin(uint8_t family, const uint8_t* source, const uint8_t* destination, uint8_t proto)
{
    setEndpoint(source_, family, source, 0, false);
    setEndpoint(destination_, family, destination, 0, false);
    return context_.here(proto == kProtoTcp ? Transport::Tcp : Transport::Udp, source_, destination_);
}

void IpLayer::ipv4(const uint8_t* p, uint32_t n, uint64_t at)
{
    if (n < kIpv4Header) {
        if (context_.frameCut()) ++context_.stats().skipped_frames;
        else context_.error(origin(0, kNoAddress, kNoAddress, 0), ErrorCode::IpMalformed, at,
                            text("IPv4 header needs 20 bytes, the frame has %u", n));
        return;
    }
    const uint32_t ihl = (p[0] & 0x0Fu) * 4;
    uint32_t total = be16(p + kIpv4TotalLength);
    if (total == 0) total = n;  // left 0 by segmentation offload
    const char* wrong = p[0] >> 4 != 4                          ? "version is not 4"
                        : ihl < kIpv4Header                      ? "header length below 20 bytes"
                        : total < ihl                            ? "total length below the header length"
                        : total > n && !context_.frameCut()      ? "total length runs past the frame"
                                                                 : nullptr;
    if (wrong) {
        context_.error(origin(4, p + kIpv4Source, p + kIpv4Destination, p[kIpv4Protocol]), ErrorCode::IpMalformed, at,
                       text("IPv4 %s (header %u, total %u, %u bytes captured)", wrong, ihl, be16(p + kIpv4TotalLength), n));
        return;
    }
    if (ihl > n) {  // the header itself cut by the snaplen
        ++context_.stats().skipped_frames;
        return;
    }
    const IpPayload payload{4, p + kIpv4Source, p + kIpv4Destination, p[kIpv4Protocol], p + ihl, std::min(n, total) - ihl,
                            total - ihl, at + ihl};
    const uint16_t flags = be16(p + kIpv4Flags);
    const uint32_t offset = (flags & kIpv4OffsetMask) * kFragmentUnit;
    if (offset != 0 || (flags & kIpv4MoreFragments) != 0)
        fragment(payload, be16(p + kIpv4Id), offset, (flags & kIpv4MoreFragments) != 0);
    else
        transport_.packet(payload);
}

void IpLayer::ipv6(const uint8_t* p, uint32_t n, uint64_t at)
{
    if (n < kIpv6Header || p[0] >> 4 != 6) {
        if (n < kIpv6Header && context_.frameCut()) ++context_.stats().skipped_frames;
        else context_.error(origin(0, kNoAddress, kNoAddress, 0), ErrorCode::IpMalformed, at,
                            text(n < kIpv6Header ? "IPv6 header needs 40 bytes, the frame has %u" : "IPv6 version is not 6 (%u bytes)", n));
        return;
    }
    const uint32_t room = n - kIpv6Header;
    uint32_t length = be16(p + kIpv6PayloadLength);
    if (length == 0) length = room;  // jumbogram or segmentation offload: the frame tells
    if (length > room && !context_.frameCut()) {
        context_.error(origin(6, p + kIpv6Source, p + kIpv6Destination, p[kIpv6NextHeader]), ErrorCode::IpMalformed, at,
                       text("IPv6 payload length %u runs past the %u bytes in the frame", length, room));
        return;
    }
    ipv6Chain({6, p + kIpv6Source, p + kIpv6Destination, p[kIpv6NextHeader], p + kIpv6Header, std::min(room, length),
               length, at + kIpv6Header},
              false);
}

void IpLayer::ipv6Chain(IpPayload p, bool reassembled)
{
    for (;;) {
        if (hasLengthByte(p.proto)) {
            if (p.declared < kIpv6ExtensionHead) break;
            if (p.captured < kIpv6ExtensionHead) return void(++context_.stats().skipped_frames);
            // The authentication header counts its length in 4-byte units less two, the others in 8-byte
            // units less one.
            const uint32_t len = p.proto == kIpv6Auth ? (p.data[1] + 2u) * 4 : (p.data[1] + 1u) * 8;
            if (len > p.declared) break;
            if (len > p.captured) return void(++context_.stats().skipped_frames);
            p.proto = p.data[0];
            advance(p, len);
            continue;
        }
        if (p.proto != kIpv6Fragment) return transport_.packet(p);
        if (reassembled || p.declared < kIpv6FragmentHeader) break;
        if (p.captured < kIpv6FragmentHeader) return void(++context_.stats().skipped_frames);
        const uint16_t fo = be16(p.data + 2);
        const uint32_t id = be32(p.data + 4);
        p.proto = p.data[0];
        advance(p, kIpv6FragmentHeader);
        const bool more = (fo & kIpv6MoreFragments) != 0;
        const uint32_t offset = fo & kIpv6OffsetMask;
        if (offset != 0 || more) return fragment(p, id, offset, more);
        // an atomic fragment: the whole datagram
    }
    context_.error(origin(6, p.source, p.destination, p.proto), ErrorCode::IpMalformed, p.at,
                   text(reassembled && p.proto == kIpv6Fragment ? "IPv6 fragment header inside a reassembled datagram"
                                                               : "IPv6 extension header %u runs past the payload",
                        p.proto));
}

const char* IpLayer::fragmentRefused(const IpPayload& p, uint32_t offset, bool more) const
{
    if (p.captured < p.declared) return "fragment cut by the snaplen; its datagram cannot be reassembled";
    if (more && p.declared % kFragmentUnit != 0) return "inner fragment length is not a multiple of 8";
    if (uint64_t{offset} + p.declared > kMaxDatagram) return "fragment reaches past the 65535 bytes of a datagram";
    return nullptr;
}

void IpLayer::fragment(const IpPayload& p, uint32_t id, uint32_t offset, bool more)
{
    const size_t size = addressSize(p.family);
    Key key = addressKey(p.source, p.destination, size);
    const uint8_t head[2] = {p.family, p.family == 4 ? p.proto : uint8_t{0}};
    keyPut(key, 0, head, 2);
    keyPut(key, 4, &id, 4);
    if (const char* refused = fragmentRefused(p, offset, more)) {
        fragments_.discard(key);
        const bool cut = p.captured < p.declared;
        Message& m = context_.error(origin(p.family, p.source, p.destination, p.proto),
                                    cut ? ErrorCode::FrameCut : ErrorCode::IpFragmentInvalid, p.at,
                                    text("%s (offset %u, %u bytes)", refused, offset, p.declared));
        if (cut) {
            m.payload = p.data;  // what was captured of the fragment
            m.payload_size = p.captured;
        }
        return;
    }
    IpPayload whole{p.family, p.source, p.destination, 0, nullptr, 0, 0, 0};
    const auto start = [&](FragmentMeta& m) {
        m.family = p.family;
        std::memcpy(m.source, p.source, size);
        std::memcpy(m.destination, p.destination, size);
    };
    const auto added = [&](Reassembly<FragmentMeta>::Entry& e) {
        if (offset == 0) e.meta.proto = p.proto;
    };
    const auto complete = [&](Reassembly<FragmentMeta>::Entry& e) {
        datagram_.swap(e.pieces.bytes());
        whole.proto = e.meta.proto;
        whole.captured = whole.declared = e.pieces.end();
    };
    if (!fragments_.add(key, Piece{offset, p.data, p.declared, !more}, context_.seen(), start, added, complete)) return;
    whole.data = datagram_.data();
    if (p.family == 4) transport_.packet(whole);
    else ipv6Chain(whole, true);
}

void IpLayer::dropped(const Reassembly<FragmentMeta>::Entry& e, ErrorCode code, uint64_t offset, std::string why, const Seen& at)
{
    setEndpoint(source_, e.meta.family, e.meta.source, 0, false);
    setEndpoint(destination_, e.meta.family, e.meta.destination, 0, false);
    context_.error(context_.at(at, e.meta.proto == kProtoTcp ? Transport::Tcp : Transport::Udp, source_, destination_), code,
                   offset, std::move(why));
}

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP
