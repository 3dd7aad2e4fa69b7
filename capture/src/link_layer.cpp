// Link layers: Ethernet with 802.1Q/QinQ tags, Linux cooked v1/v2, raw IP, loopback.
#include "layers.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {

namespace {

enum class Net { V4, V6, Other, Unsupported };

// Link header sizes, and where each names the protocol it carries.
constexpr uint32_t kEthernetHeader = 14, kEthernetType = 12;
constexpr uint32_t kSllHeader = 16, kSllType = 14;
constexpr uint32_t kSll2Header = 20, kSll2Type = 0;
constexpr uint32_t kLoopbackHeader = 4;
constexpr uint32_t kVlanTag = 4;  // a tag's own type follows its two bytes of tag control

enum : uint16_t { kEtherIpv4 = 0x0800, kEtherIpv6 = 0x86DD, kEtherVlan = 0x8100, kEtherQinQ = 0x88A8, kEtherQinQOld = 0x9100 };
// Address families in loopback headers: IPv4 everywhere, IPv6 as Linux, the BSDs and macOS number it.
enum : uint32_t { kFamilyIpv4 = 2, kFamilyIpv6Linux = 10, kFamilyIpv6Bsd = 24, kFamilyIpv6FreeBsd = 28, kFamilyIpv6Darwin = 30 };

Net byVersion(const uint8_t* d, uint32_t n)
{
    return n == 0 ? Net::Other : d[0] >> 4 == 4 ? Net::V4 : d[0] >> 4 == 6 ? Net::V6 : Net::Other;
}

Net byLoopbackFamily(const uint8_t* d, uint32_t n)
{
    // The address family in the writer's byte order (loopback: network order).
    if (n < kLoopbackHeader) return Net::Other;
    uint32_t family = uint32_t{d[0]} | uint32_t{d[1]} << 8 | uint32_t{d[2]} << 16 | uint32_t{d[3]} << 24;
    if (family > 0xFFFF) family = __builtin_bswap32(family);
    if (family == kFamilyIpv4) return Net::V4;
    return family == kFamilyIpv6Linux || family == kFamilyIpv6Bsd || family == kFamilyIpv6FreeBsd ||
                   family == kFamilyIpv6Darwin
               ? Net::V6
               : Net::Other;
}

Net byEtherType(const uint8_t* d, uint32_t n, uint16_t type, uint32_t& at)
{
    while (type == kEtherVlan || type == kEtherQinQ || type == kEtherQinQOld) {  // stacked for QinQ
        if (n - at < kVlanTag) return Net::Other;
        type = be16(d + at + 2);
        at += kVlanTag;
    }
    return type == kEtherIpv4 ? Net::V4 : type == kEtherIpv6 ? Net::V6 : Net::Other;
}

// Finds the IP header of a frame (its offset in `at`). Other: no IP inside, or the link header is cut.
Net findNetwork(uint32_t link, const uint8_t* d, uint32_t n, uint32_t& at)
{
    at = 0;
    switch (link) {
    case kLinkEthernet:
        if (n < kEthernetHeader) return Net::Other;
        return at = kEthernetHeader, byEtherType(d, n, be16(d + kEthernetType), at);
    case kLinkSll:
        if (n < kSllHeader) return Net::Other;
        return at = kSllHeader, byEtherType(d, n, be16(d + kSllType), at);
    case kLinkSll2:
        if (n < kSll2Header) return Net::Other;
        return at = kSll2Header, byEtherType(d, n, be16(d + kSll2Type), at);
    case kLinkRaw: case kLinkRawDlt12: case kLinkRawDlt14:
        return byVersion(d, n);
    case kLinkIpv4:
        return Net::V4;
    case kLinkIpv6:
        return Net::V6;
    case kLinkNull: case kLinkLoop:
        at = kLoopbackHeader;
        return byLoopbackFamily(d, n);
    default:
        return Net::Unsupported;
    }
}

}  // namespace

void LinkLayer::frame(const Frame& f)
{
    Statistics& st = context_.stats();
    uint32_t at = 0;
    switch (findNetwork(f.link_type, f.data, f.captured, at)) {
    case Net::V4: ip_.ipv4(f.data + at, f.captured - at, at); break;
    case Net::V6: ip_.ipv6(f.data + at, f.captured - at, at); break;
    case Net::Other: ++st.skipped_frames; break;
    case Net::Unsupported: ++st.skipped_frames, ++st.unsupported_link_frames; break;
    }
}

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP
