// The capture reader: frames in, records out; the link and IP layers, fragment reassembly and timeouts.
#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "reader_impl.h"

namespace ZQSomeIP {
namespace capture {

using detail::be16;
using detail::be32;

namespace {

enum class Net { V4, V6, Other, Unsupported };

// Finds the IP header of a frame (its offset in `at`). Other: no IP inside, or the link header is cut.
Net findNetwork(uint32_t link, const uint8_t* d, uint32_t n, uint32_t& at)
{
    uint16_t type = 0;
    switch (link) {
    case detail::kLinkEthernet:
        if (n < 14) return Net::Other;
        type = be16(d + 12), at = 14;
        break;
    case detail::kLinkSll:
        if (n < 16) return Net::Other;
        type = be16(d + 14), at = 16;
        break;
    case detail::kLinkSll2:
        if (n < 20) return Net::Other;
        type = be16(d), at = 20;
        break;
    case detail::kLinkRaw: case detail::kLinkRawDlt12: case detail::kLinkRawDlt14:
        at = 0;
        return n == 0 ? Net::Other : d[0] >> 4 == 4 ? Net::V4 : d[0] >> 4 == 6 ? Net::V6 : Net::Other;
    case detail::kLinkIpv4:
        return at = 0, Net::V4;
    case detail::kLinkIpv6:
        return at = 0, Net::V6;
    case detail::kLinkNull: case detail::kLinkLoop: {
        // The address family in the writer's byte order (loopback: network order).
        if (n < 4) return Net::Other;
        uint32_t family = uint32_t{d[0]} | uint32_t{d[1]} << 8 | uint32_t{d[2]} << 16 | uint32_t{d[3]} << 24;
        if (family > 0xFFFF) family = __builtin_bswap32(family);
        at = 4;
        if (family == 2) return Net::V4;
        return family == 10 || family == 24 || family == 28 || family == 30 ? Net::V6 : Net::Other;
    }
    default:
        return Net::Unsupported;
    }
    while (type == 0x8100 || type == 0x88A8 || type == 0x9100) {  // VLAN tags, stacked for QinQ
        if (n - at < 4) return Net::Other;
        type = be16(d + at + 2);
        at += 4;
    }
    return type == 0x0800 ? Net::V4 : type == 0x86DD ? Net::V6 : Net::Other;
}

}  // namespace

int64_t saturatingAdd(int64_t t, uint64_t d)
{
    int64_t r = 0;
    return __builtin_add_overflow(t, static_cast<int64_t>(std::min<uint64_t>(d, INT64_MAX)), &r) ? INT64_MAX : r;
}

namespace {

int64_t toNs(int64_t seconds, uint32_t nanoseconds)
{
    int64_t ns = 0;
    if (__builtin_mul_overflow(seconds, int64_t{1000000000}, &ns) || __builtin_add_overflow(ns, int64_t{nanoseconds}, &ns))
        return seconds < 0 ? INT64_MIN : INT64_MAX;
    return ns;
}

bool expired(int64_t since, uint64_t timeout, int64_t now) { return saturatingAdd(since, timeout) <= now; }

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

}  // namespace

// ---- records ----

Message& CaptureReader::Impl::push(const Origin& o)
{
    if (count == queue.size()) queue.emplace_back();
    Message& m = queue[count++];
    m.frame = o.frame;
    m.seconds = o.seconds;
    m.nanoseconds = o.nanoseconds;
    m.time_digits = o.digits;
    m.transport = o.transport;
    m.source = *o.source;
    m.destination = *o.destination;
    m.has_header = false;
    m.header = Header{};
    m.payload = nullptr;
    m.payload_size = 0;
    m.tp_segments = 0;
    m.sd = nullptr;
    m.error = ErrorCode::None;
    m.error_offset = 0;
    m.error_text.clear();
    return m;
}

Message& CaptureReader::Impl::error(const Origin& o, ErrorCode code, uint64_t offset, std::string why)
{
    Message& m = push(o);
    m.error = code;
    m.error_offset = offset;
    m.error_text = std::move(why);
    ++status.stats.errors;
    ++status.stats.errors_by_code[static_cast<size_t>(code)];
    return m;
}

std::vector<uint8_t>& CaptureReader::Impl::buffer()
{
    if (buffers_used == buffers.size()) buffers.emplace_back();
    std::vector<uint8_t>& b = buffers[buffers_used++];
    if (b.capacity() > (4u << 20)) std::vector<uint8_t>().swap(b);  // do not keep a huge one for small copies
    b.clear();
    return b;
}

Seen CaptureReader::Impl::seen()
{
    return Seen{frame.number, frame.seconds, frame.nanoseconds, frame.time_digits,
                toNs(frame.seconds, frame.nanoseconds), 0};
}

Origin CaptureReader::Impl::ipOrigin(uint8_t family, const uint8_t* src, const uint8_t* dst, uint8_t proto)
{
    detail::setEndpoint(ip_source, family, src, 0, false);
    detail::setEndpoint(ip_destination, family, dst, 0, false);
    return Origin{frame.number, frame.seconds, frame.nanoseconds, frame.time_digits,
                  proto == 6 ? Transport::Tcp : Transport::Udp, &ip_source, &ip_destination};
}

Origin CaptureReader::Impl::storedOrigin(const Seen& s, Transport t, const Endpoint& src, const Endpoint& dst, bool at_end)
{
    if (!at_end) return Origin{frame.number, frame.seconds, frame.nanoseconds, frame.time_digits, t, &src, &dst};
    return Origin{s.frame, s.seconds, s.nanoseconds, s.digits, t, &src, &dst};
}

// ---- frames, link and IP ----

void CaptureReader::Impl::processFrame(const detail::Frame& f)
{
    frame = f;
    Statistics& st = status.stats;
    ++st.frames;
    st.bytes += f.captured;
    if (f.captured < f.original) ++st.cut_frames;
    now_ns = std::max(now_ns, toNs(f.seconds, f.nanoseconds));
    if (now_ns >= next_expiry) {
        expireFragments(false);
        expireTp(false);
        recomputeExpiry();
    }
    uint32_t at = 0;
    switch (findNetwork(f.link_type, f.data, f.captured, at)) {
    case Net::V4: ipv4(f.data + at, f.captured - at, at); break;
    case Net::V6: ipv6(f.data + at, f.captured - at, at); break;
    case Net::Other: ++st.skipped_frames; break;
    case Net::Unsupported: ++st.skipped_frames, ++st.unsupported_link_frames; break;
    }
}

void CaptureReader::Impl::ipv4(const uint8_t* p, uint32_t n, uint64_t at)
{
    const bool cut = frame.captured < frame.original;
    static const uint8_t none[16] = {};
    if (n < 20) {
        if (cut) ++status.stats.skipped_frames;
        else error(ipOrigin(0, none, none, 0), ErrorCode::IpMalformed, at, text("IPv4 header needs 20 bytes, the frame has %u", n));
        return;
    }
    const uint32_t ihl = (p[0] & 0x0Fu) * 4;
    uint32_t total = be16(p + 2);
    if (total == 0) total = n;  // left 0 by segmentation offload
    const char* wrong = p[0] >> 4 != 4        ? "version is not 4"
                        : ihl < 20               ? "header length below 20 bytes"
                        : total < ihl            ? "total length below the header length"
                        : total > n && !cut      ? "total length runs past the frame"
                                                 : nullptr;
    if (wrong) {
        error(ipOrigin(4, p + 12, p + 16, p[9]), ErrorCode::IpMalformed, at,
              text("IPv4 %s (header %u, total %u, %u bytes captured)", wrong, ihl, be16(p + 2), n));
        return;
    }
    if (ihl > n) {  // the header itself cut by the snaplen
        ++status.stats.skipped_frames;
        return;
    }
    const uint32_t captured = std::min(n, total);
    const uint16_t flags = be16(p + 6);
    const uint32_t offset = (flags & 0x1FFFu) * 8;
    if (offset != 0 || (flags & 0x2000) != 0) {
        fragment(4, p + 12, p + 16, be16(p + 4), p[9], offset, (flags & 0x2000) != 0, p + ihl, captured - ihl, total - ihl,
                 at + ihl);
    } else {
        transport(4, p + 12, p + 16, p[9], p + ihl, captured - ihl, total - ihl, at + ihl);
    }
}

void CaptureReader::Impl::ipv6(const uint8_t* p, uint32_t n, uint64_t at)
{
    const bool cut = frame.captured < frame.original;
    static const uint8_t none[16] = {};
    if (n < 40 || p[0] >> 4 != 6) {
        if (n < 40 && cut) ++status.stats.skipped_frames;
        else error(ipOrigin(0, none, none, 0), ErrorCode::IpMalformed, at,
                   text(n < 40 ? "IPv6 header needs 40 bytes, the frame has %u" : "IPv6 version is not 6 (%u bytes)", n));
        return;
    }
    uint32_t length = be16(p + 4);
    if (length == 0) length = n - 40;  // jumbogram or segmentation offload: the frame tells
    if (length > n - 40 && !cut) {
        error(ipOrigin(6, p + 8, p + 24, p[6]), ErrorCode::IpMalformed, at,
              text("IPv6 payload length %u runs past the %u bytes in the frame", length, n - 40));
        return;
    }
    ipv6Chain(p + 8, p + 24, p[6], p + 40, std::min(n - 40, length), length, at + 40, false);
}

void CaptureReader::Impl::ipv6Chain(const uint8_t* src, const uint8_t* dst, uint8_t next, const uint8_t* q,
                                    uint32_t captured, uint32_t declared, uint64_t at, bool reassembled)
{
    uint32_t off = 0;
    for (;;) {
        switch (next) {
        case 0: case 43: case 51: case 60: case 139: case 140: {  // extension headers with a length byte
            if (declared - off < 2) break;
            if (captured - off < 2) return void(++status.stats.skipped_frames);
            const uint32_t len = next == 51 ? (q[off + 1] + 2u) * 4 : (q[off + 1] + 1u) * 8;
            if (len > declared - off) break;
            if (len > captured - off) return void(++status.stats.skipped_frames);
            next = q[off];
            off += len;
            continue;
        }
        case 44: {  // fragment header
            if (reassembled || declared - off < 8) break;
            if (captured - off < 8) return void(++status.stats.skipped_frames);
            const uint16_t fo = be16(q + off + 2);
            const uint8_t inner = q[off];
            const uint32_t id = be32(q + off + 4);
            off += 8;
            if ((fo & 0xFFF9) == 0) {  // atomic fragment: the whole datagram
                next = inner;
                continue;
            }
            return fragment(6, src, dst, id, inner, fo & 0xFFF8u, (fo & 1) != 0, q + off, captured - off, declared - off,
                            at + off);
        }
        default:
            return transport(6, src, dst, next, q + off, captured - off, declared - off, at + off);
        }
        error(ipOrigin(6, src, dst, next), ErrorCode::IpMalformed, at + off,
              text(reassembled && next == 44 ? "IPv6 fragment header inside a reassembled datagram"
                                             : "IPv6 extension header %u runs past the payload", next));
        return;
    }
}

void CaptureReader::Impl::fragment(uint8_t family, const uint8_t* src, const uint8_t* dst, uint32_t id, uint8_t proto,
                                   uint32_t offset, bool more, const uint8_t* data, uint32_t captured,
                                   uint32_t declared, uint64_t at)
{
    detail::Key key;
    const uint8_t head[2] = {family, family == 4 ? proto : uint8_t{0}};
    detail::keyPut(key, 0, head, 2);
    detail::keyPut(key, 4, &id, 4);
    detail::keyPut(key, 8, src, family == 4 ? 4 : 16);
    detail::keyPut(key, 24, dst, family == 4 ? 4 : 16);
    auto it = fragments.find(key);
    const char* refused = captured < declared               ? "fragment cut by the snaplen; its datagram cannot be reassembled"
                          : more && declared % 8 != 0       ? "inner fragment length is not a multiple of 8"
                          : uint64_t{offset} + declared > 65535 ? "fragment reaches past the 65535 bytes of a datagram"
                                                                : nullptr;
    if (refused) {
        if (it != fragments.end()) {
            fragment_bytes -= it->second.pieces.held();
            fragments.erase(it);
        }
        error(ipOrigin(family, src, dst, proto), captured < declared ? ErrorCode::FrameCut : ErrorCode::IpFragmentInvalid, at,
              text("%s (offset %u, %u bytes)", refused, offset, declared));
        return;
    }
    if (it == fragments.end()) {
        if (fragments.size() >= options.limits.ip_datagrams) {
            auto oldest = std::min_element(fragments.begin(), fragments.end(),
                                           [](const auto& a, const auto& b) { return a.second.first.order < b.second.first.order; });
            if (oldest != fragments.end())
                dropFragments(oldest, ErrorCode::ReassemblyLimit, oldest->second.pieces.firstMissing(),
                              text("more than %u datagrams in reassembly; the oldest is dropped", options.limits.ip_datagrams));
        }
        it = fragments.emplace(key, FragmentEntry{}).first;
        FragmentEntry& e = it->second;
        e.family = family;
        std::memcpy(e.source, src, family == 4 ? 4 : 16);
        std::memcpy(e.destination, dst, family == 4 ? 4 : 16);
        e.first = seen();
        e.first.order = ++order;
        next_expiry = std::min(next_expiry, saturatingAdd(e.first.ns, options.limits.ip_timeout_ns));
    }
    FragmentEntry& e = it->second;
    e.last = seen();
    const size_t before = e.pieces.held();
    switch (e.pieces.add(offset, data, declared, !more, options.limits.ip_pieces)) {
    case detail::PieceSet::Add::Added: break;
    case detail::PieceSet::Add::Duplicate: ++status.stats.duplicates; return;
    case detail::PieceSet::Add::Overlap:
        return dropFragments(it, ErrorCode::IpFragmentOverlap, offset,
                             text("fragment at bytes %u..%u overlaps bytes already held with other content", offset, offset + declared));
    case detail::PieceSet::Add::EndConflict:
        return dropFragments(it, ErrorCode::IpFragmentOverlap, offset,
                             text("fragments disagree on where the datagram ends (this one: offset %u, %u bytes%s)", offset,
                                  declared, more ? "" : ", last"));
    case detail::PieceSet::Add::TooManyPieces:
        return dropFragments(it, ErrorCode::ReassemblyLimit, offset,
                             text("more than %u separate pieces in one datagram", options.limits.ip_pieces));
    }
    if (offset == 0) e.proto = proto;
    fragment_bytes += e.pieces.held() - before;
    if (e.pieces.complete()) {
        fragment_bytes -= e.pieces.held();
        datagram.swap(e.pieces.bytes());
        const uint32_t size = e.pieces.end();
        const uint8_t inner = e.proto;
        fragments.erase(it);
        if (family == 4) transport(4, src, dst, inner, datagram.data(), size, size, 0);
        else ipv6Chain(src, dst, inner, datagram.data(), size, size, 0, true);
        return;
    }
    while (fragment_bytes > options.limits.ip_bytes && !fragments.empty()) {
        auto oldest = std::min_element(fragments.begin(), fragments.end(),
                                       [](const auto& a, const auto& b) { return a.second.first.order < b.second.first.order; });
        dropFragments(oldest, ErrorCode::ReassemblyLimit, oldest->second.pieces.firstMissing(),
                      text("fragment buffers above %llu bytes; the oldest datagram is dropped",
                           static_cast<unsigned long long>(options.limits.ip_bytes)));
    }
}

void CaptureReader::Impl::dropFragments(std::unordered_map<detail::Key, FragmentEntry, detail::KeyHash>::iterator it,
                                        ErrorCode code, uint64_t offset, const std::string& why, bool at_end)
{
    FragmentEntry& e = it->second;
    detail::setEndpoint(ip_source, e.family, e.source, 0, false);
    detail::setEndpoint(ip_destination, e.family, e.destination, 0, false);
    error(storedOrigin(e.last, e.proto == 6 ? Transport::Tcp : Transport::Udp, ip_source, ip_destination, at_end), code,
          offset, why);
    fragment_bytes -= e.pieces.held();
    fragments.erase(it);
}

template <typename Map, typename Drop>
static void dropExpired(Map& map, bool everything, uint64_t timeout, int64_t now, Drop drop)
{
    std::vector<typename Map::iterator> gone;
    for (auto it = map.begin(); it != map.end(); ++it)
        if (everything || expired(it->second.first.ns, timeout, now)) gone.push_back(it);
    std::sort(gone.begin(), gone.end(), [](const auto& a, const auto& b) { return a->second.first.order < b->second.first.order; });
    for (auto it : gone) drop(it);
}

void CaptureReader::Impl::expireFragments(bool everything)
{
    dropExpired(fragments, everything, options.limits.ip_timeout_ns, now_ns, [&](auto it) {
        const detail::PieceSet& p = it->second.pieces;
        const char* when = everything ? "the capture ended" : "timed out";
        dropFragments(it, ErrorCode::IpFragmentsMissing, p.firstMissing(),
                      p.haveLast() ? text("%s with bytes from %u of %u missing (%u fragments held)", when, p.firstMissing(),
                                          p.end(), p.pieces())
                                   : text("%s before the last fragment arrived (%u fragments, %u bytes held)", when,
                                          p.pieces(), p.covered()),
                      everything);
    });
}

void CaptureReader::Impl::expireTp(bool everything)
{
    dropExpired(tp, everything, options.limits.tp_timeout_ns, now_ns, [&](auto it) {
        const detail::PieceSet& p = it->second.pieces;
        const char* when = everything ? "the capture ended" : "timed out";
        dropTp(it, ErrorCode::TpMissingSegments, p.firstMissing(),
               p.haveLast() ? text("%s with bytes from %u of %u missing (%u segments held)", when, p.firstMissing(), p.end(),
                                   p.pieces())
                            : text("%s before the last segment arrived (%u segments, %u bytes held)", when, p.pieces(),
                                   p.covered()),
               everything);
    });
}

void CaptureReader::Impl::recomputeExpiry()
{
    next_expiry = INT64_MAX;
    for (const auto& f : fragments) next_expiry = std::min(next_expiry, saturatingAdd(f.second.first.ns, options.limits.ip_timeout_ns));
    for (const auto& t : tp) next_expiry = std::min(next_expiry, saturatingAdd(t.second.first.ns, options.limits.tp_timeout_ns));
}

void CaptureReader::Impl::flush()
{
    expireFragments(true);
    std::vector<TcpStream*> open;
    for (auto& s : streams) open.push_back(&s.second);
    std::sort(open.begin(), open.end(), [](const TcpStream* a, const TcpStream* b) { return a->first.order < b->first.order; });
    for (TcpStream* s : open) {
        while (!s->early.empty()) {
            uint32_t first = s->early[0].seq;
            for (const auto& g : s->early)
                if (static_cast<int32_t>(g.seq - first) < 0) first = g.seq;
            gap(*s, first, ErrorCode::TcpGap, "never captured before the capture ended");
            drainEarly(*s);
        }
        finishStream(*s, ErrorCode::TcpIncomplete, "the capture ended");
    }
    streams.clear();
    stream_bytes = 0;
    expireTp(true);
}

// ---- public face ----

CaptureReader::CaptureReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
CaptureReader::~CaptureReader() = default;

std::unique_ptr<CaptureReader> CaptureReader::open(const std::string& path, const Options& options, std::string& error)
{
    auto source = detail::openFrameSource(path, error);
    if (!source) return nullptr;
    auto impl = std::make_unique<Impl>();
    impl->options = options;
    impl->source = std::move(source);
    impl->any_port = options.ports.empty();
    impl->ports.assign(65536 / 64, 0);
    for (uint16_t p : options.ports) impl->ports[p >> 6] |= uint64_t{1} << (p & 63);
    return std::unique_ptr<CaptureReader>(new CaptureReader(std::move(impl)));
}

bool CaptureReader::next(Message& out)
{
    Impl& i = *impl_;
    while (i.head == i.count) {
        if (i.ended) return false;
        i.count = i.head = 0;
        i.buffers_used = i.sds_used = 0;
        detail::Frame f;
        const int r = i.source->next(f);
        if (r == 1) {
            i.processFrame(f);
            continue;
        }
        if (r < 0) {
            i.status.failed = true;
            i.status.error = i.source->error();
        }
        i.flush();
        i.ended = true;
    }
    out = i.queue[i.head++];
    return true;
}

const Status& CaptureReader::status() const { return impl_->status; }
uint64_t CaptureReader::bytesRead() const { return impl_->source->bytesRead(); }
uint64_t CaptureReader::fileSize() const { return impl_->source->fileSize(); }

}  // namespace capture
}  // namespace ZQSomeIP
