// Capture reader: SOME/IP messages out of recorded traffic (pcap and pcapng files).
//
//   frames -> link (Ethernet + VLAN tags, Linux cooked v1/v2, raw IP, loopback)
//          -> IPv4 / IPv6 (fragments reassembled) -> UDP / TCP (streams reassembled)
//          -> SOME/IP header -> SOME/IP-TP reassembly | service discovery -> Message
//
// Usage:
//   std::string error;
//   auto reader = ZQSomeIP::capture::CaptureReader::open("trace.pcapng", {}, error);
//   if (!reader) { /* error says why */ }
//   ZQSomeIP::capture::Message m;
//   while (reader->next(m)) { if (m.ok()) { /* m.header, m.payload */ } else { /* m.error, m.error_text */ } }
//   if (reader->status().failed) { /* the file is damaged: reader->status().error */ }
// CaptureReader::openLive reads a network interface the same way.
//
// Which UDP datagrams and TCP streams count as SOME/IP:
//   * The port selection must match the source or the destination port (an empty selection matches all).
//   * The first header must be consistent: length >= 8 (>= 12 with the TP flag, room for the TP header),
//     protocol version 1, message type 0x00, 0x01, 0x02, 0x80 or 0x81, optionally with the TP flag 0x20,
//     return code <= 0x5E (the defined range).
//   * UDP, empty selection: the first message must also fit inside the datagram's UDP length; with an
//     explicit selection, a first message running past its datagram is reported as an error instead.
//   * TCP: each direction of a connection is a byte stream. With an empty selection a stream counts only
//     when its first captured bytes are a consistent header (no SOME/IP is guessed inside arbitrary
//     streams); with an explicit selection a stream picked up in the middle is searched for a plausible
//     header (reported as "tcp-skipped" with the number of bytes passed over). On TCP the length must
//     also stay within Limits::max_message.
//   After the first message, every further header is checked the same way; one that fails, or a message
//   that runs past its datagram, is reported and the rest of that datagram is not guessed at. Magic
//   cookies (message ID 0xFFFF0000 / 0xFFFF8000, request ID 0xDEADBEEF) are counted, not yielded.
//
// The reader is single-threaded; separate readers may run on separate threads.
#ifndef ZQ_SOMEIP_CAPTURE_H
#define ZQ_SOMEIP_CAPTURE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#define ZQ_CAPTURE_API __attribute__((visibility("default")))

namespace ZQSomeIP {
namespace capture {

// Why a record is an error. errorName() gives each a stable short name for output and statistics.
enum class ErrorCode : uint8_t {
    None = 0,
    FrameCut,            // frame-cut: the frame was cut (snaplen) before the message or datagram ended
    IpMalformed,         // ip-malformed: IPv4/IPv6 header lengths disagree with each other or the frame
    IpFragmentOverlap,   // ip-fragment-overlap: fragments overlap with other bytes, or disagree on the end
    IpFragmentInvalid,   // ip-fragment-invalid: a fragment past 65535 bytes, or an inner one not 8-aligned
    IpFragmentsMissing,  // ip-fragments-missing: timed out, or the capture ended, before the datagram was whole
    TransportMalformed,  // transport-malformed: UDP length or TCP header length disagrees with the IP length
    TcpGap,              // tcp-gap: stream bytes never captured; a message being assembled is lost with them
    TcpSkipped,          // tcp-skipped: bytes passed over while looking for a plausible header
    TcpIncomplete,       // tcp-incomplete: the stream ended (FIN, RST, capture end) inside a message
    BadHeader,           // someip-bad-header: a header after the first one fails the consistency checks
    RunsPastDatagram,    // someip-runs-past-datagram: the length field reaches past the datagram
    TrailingBytes,       // someip-trailing-bytes: 1..15 bytes left after the last message of a datagram
    TpInvalid,           // tp-invalid: a segment too short, not 16-aligned though more follow, or too large
    TpOverlap,           // tp-overlap: segments overlap with other bytes, or disagree on the end
    TpMissingSegments,   // tp-missing-segments: timed out, or the capture ended, before the message was whole
    SdMalformed,         // sd-malformed: the service discovery payload does not decode (message still yielded)
    ReassemblyLimit,     // reassembly-limit: fragments, stream bytes or TP segments dropped to stay in bounds
    Count
};
constexpr size_t kErrorCodeCount = static_cast<size_t>(ErrorCode::Count);
ZQ_CAPTURE_API const char* errorName(ErrorCode code);

enum class Transport : uint8_t { Udp, Tcp };

// An address and port with its text form: "10.0.0.1:30490", "[fe80::1]:30490"; without a port when the
// record is about IP only ("10.0.0.1", "fe80::1"); empty when unknown.
struct Endpoint {
    uint8_t family = 0;        // 4, 6, or 0 when unknown
    uint8_t address[16] = {};  // network order; IPv4 in the first four bytes
    uint16_t port = 0;
    uint8_t text_size = 0;
    char text_data[56] = {};   // NUL-terminated
    std::string_view text() const { return {text_data, text_size}; }
};

// The 16-byte SOME/IP header as read (host order).
struct Header {
    uint16_t service = 0;
    uint16_t method = 0;       // method or event ID
    uint32_t length = 0;       // bytes from the request ID to the end: 8 + payload
    uint16_t client = 0;
    uint16_t session = 0;
    uint8_t protocol_version = 0;
    uint8_t interface_version = 0;
    uint8_t message_type = 0;
    uint8_t return_code = 0;
};

struct SdMessage;

// One yielded record: a SOME/IP message, or an error with as much context as is known.
struct Message {
    uint64_t frame = 0;            // 1-based number of the frame that carried the message's last byte (on TCP,
                                   // bytes held behind a hole keep their own frame, not the one that released
                                   // them) or showed the error. Missing IP fragments and TP segments: the frame
                                   // of the first piece held. tcp-gap: the frame that declared the hole (see
                                   // Limits::tcp_hole_timeout_ns). TCP losses found when the capture ends: the
                                   // stream's last frame
    int64_t seconds = 0;           // capture time of that frame
    uint32_t nanoseconds = 0;
    uint8_t time_digits = 6;       // decimal places the file records (6: microseconds, 9: nanoseconds)
    Transport transport = Transport::Udp;
    Endpoint source;
    Endpoint destination;
    bool has_header = false;       // header holds a message's header (always for a message without error)
    Header header;                 // for a reassembled TP message: the first segment's, TP flag cleared,
                                   // length = 8 + the whole payload
    const uint8_t* payload = nullptr;  // after the 16-byte header (after the TP header for segments);
    size_t payload_size = 0;           // valid until the next call of next(). frame-cut errors: what was
                                       // captured (of the payload when the header is whole, else of the
                                       // header; of the fragment for IP fragments); other errors: none
    uint32_t tp_segments = 0;      // SOME/IP-TP segments the message was put together from; 0 when not TP
    const SdMessage* sd = nullptr; // service discovery messages: the decoded payload, valid until next()
    ErrorCode error = ErrorCode::None;
    uint64_t error_offset = 0;     // where the problem lies: a byte of the frame for frame-level errors, of
                                   // the reassembled IP datagram for fragment errors, of the byte stream for
                                   // TCP errors, of the SOME/IP payload for SD and TP errors
    std::string error_text;        // one line
    bool ok() const { return error == ErrorCode::None; }
};

// Bounds on the state kept for reassembly: hostile or damaged captures cannot make the reader hold more.
// Whatever is dropped to stay within them is reported (reassembly-limit or the layer's missing-data code).
struct Limits {
    // IP fragments. A datagram is at most 64 KiB; the count and byte bounds cap how many may be in flight
    // when a capture holds many partial ones. The timeout (capture time) follows the common 30 s host default.
    uint32_t ip_datagrams = 1024;
    uint64_t ip_bytes = 16u << 20;
    uint32_t ip_pieces = 1024;        // separate byte ranges per datagram (tiny fragments otherwise cost a lot)
    uint64_t ip_timeout_ns = 30000000000ull;
    // TCP. Streams are evicted least recently used; a stream that holds out-of-order bytes beyond the window
    // declares the bytes before them lost (captures drop packets; waiting forever is not an option).
    uint32_t tcp_streams = 4096;
    uint32_t tcp_window = 1u << 20;
    uint64_t tcp_bytes = 64u << 20;   // all stream buffers together
    // A hole in a stream (bytes never captured while later ones were) is declared lost as soon as the peer
    // acknowledges bytes at or beyond it (they were delivered, the capture missed them), or at the latest
    // this long (capture time) after the first byte held behind it arrived.
    uint64_t tcp_hole_timeout_ns = 1000000000ull;
    // The largest SOME/IP message accepted from a TCP stream or TP reassembly: a bigger length on TCP is
    // not a plausible header, a bigger TP message is not reassembled.
    uint32_t max_message = 16u << 20;
    // SOME/IP-TP. Segments of one message are sent back to back, so a short timeout suffices.
    uint32_t tp_messages = 256;
    uint64_t tp_bytes = 16u << 20;
    uint32_t tp_pieces = 1024;
    uint64_t tp_timeout_ns = 5000000000ull;
    // Records are yielded in frame order. While kept state (bytes held behind a TCP hole, a partial IP
    // datagram, a partial TP message) could still yield a record for an earlier frame, the records of later
    // frames wait, copied. Past these bounds the oldest waiting records are yielded anyway, and a record for
    // an earlier frame may then follow them (counted in Statistics::out_of_order).
    uint32_t reorder_records = 65536;
    uint64_t reorder_bytes = 64u << 20;   // their payloads
};

struct Options {
    std::vector<uint16_t> ports;   // UDP/TCP ports that carry SOME/IP; empty: all (see the heuristic above)
    Limits limits;
    // A capture filter (the BPF expression language of libpcap); empty: every frame. Frames it rejects are
    // neither read nor counted, as on a live interface where the kernel drops them; frame numbers stay
    // those of the file.
    std::string filter;
    // Read no more than this many frames (after the filter); 0: no bound.
    uint64_t max_frames = 0;
};

struct Statistics {
    uint64_t frames = 0;           // records read from the file
    uint64_t bytes = 0;            // their captured bytes
    uint64_t cut_frames = 0;       // frames captured shorter than they were on the wire
    uint64_t unsupported_link_frames = 0;  // link types the reader does not decode
    uint64_t skipped_frames = 0;   // frames carrying no SOME/IP by the rules above (not IP, not UDP/TCP,
                                   // outside the port selection, failing the first-header checks)
    uint64_t messages = 0;         // messages yielded, sd-malformed ones included (a reassembled TP message counts once)
    uint64_t tp_segments = 0;      // TP segments accepted
    uint64_t sd_messages = 0;
    uint64_t magic_cookies = 0;
    uint64_t duplicates = 0;       // retransmitted TCP segments, repeated fragments and TP segments, ignored
    uint64_t errors = 0;           // error records yielded
    uint64_t out_of_order = 0;     // records yielded ahead of their turn to stay within Limits::reorder_*
    std::array<uint64_t, kErrorCodeCount> errors_by_code{};
};

struct Status {
    Statistics stats;
    bool failed = false;           // the file is damaged or truncated; reading ended there
    std::string error;             // why, one line
};

class ZQ_CAPTURE_API CaptureReader {
public:
    // Opens a pcap or pcapng file, or standard input for "-". Returns null, with `error` set, when the file
    // cannot be opened or does not start like a capture.
    static std::unique_ptr<CaptureReader> open(const std::string& path, const Options& options, std::string& error);
    // Captures live from a network interface ("lo", "eth0"), without promiscuous mode, frames handed
    // over as they arrive. Reading goes on until stop() or Options::max_frames; fileSize() is 0 and
    // bytesRead() counts captured bytes. Null, with `error` set, when the interface cannot be opened
    // (capturing needs the privilege to do so) or the filter is invalid.
    static std::unique_ptr<CaptureReader> openLive(const std::string& interface, const Options& options,
                                                   std::string& error);
    ~CaptureReader();
    CaptureReader(const CaptureReader&) = delete;
    CaptureReader& operator=(const CaptureReader&) = delete;

    // Fills `out` with the next message or error record. Returns false when there are no more: at the end of
    // the capture (incomplete reassemblies reported first), or where the file is damaged, after everything
    // before the damage was yielded (status().failed then says so). `out.payload` and `out.sd` stay valid
    // until the next call.
    // Records come in frame order (Message::frame; records of one frame in the order they were found),
    // except past the reorder bounds (Limits::reorder_records) and for TCP streams still open when the
    // capture ends: what those still held is reported last, with the stream's last frame.
    bool next(Message& out);

    // Ends the reading: no frame after the one being read is taken, what is kept is reported, then next()
    // returns false. Safe to call from a signal handler or another thread (a live reader, or one waiting
    // for input on a pipe or terminal, notices within a tenth of a second; a frame a stopped read leaves
    // unfinished is no damage).
    void stop();

    const Status& status() const;
    uint64_t bytesRead() const;    // bytes taken from the file so far (read-ahead included), for progress
    uint64_t fileSize() const;     // 0 when unknown (standard input, a pipe)

    struct Impl;
private:
    explicit CaptureReader(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

// ---- Service discovery (service 0xFFFF, method 0x8100) ----

struct SdEntry {
    uint8_t type = 0;              // 0x00 find service, 0x01 offer service, 0x06 subscribe eventgroup,
                                   // 0x07 subscribe eventgroup ack; others are kept as read
    uint8_t index1 = 0, index2 = 0, count1 = 0, count2 = 0;  // option runs as written
    uint16_t service = 0;
    uint16_t instance = 0;
    uint8_t major = 0;
    uint32_t ttl = 0;              // 24 bits; 0 turns an offer into a stop-offer, a subscribe into a
                                   // stop-subscribe and an ack into a nack
    uint32_t minor = 0;            // service entries
    uint16_t eventgroup = 0;       // eventgroup entries
    uint8_t counter = 0;           // eventgroup entries, 4 bits
    std::vector<uint16_t> options; // indexes into SdMessage::options: the first run, then the second
    // "find-service", "offer-service", "stop-offer-service", "subscribe-eventgroup",
    // "stop-subscribe-eventgroup", "subscribe-eventgroup-ack", "subscribe-eventgroup-nack", "unknown"
    ZQ_CAPTURE_API const char* name() const;
};

struct SdOption {
    uint8_t type = 0;              // 0x01 configuration, 0x02 load balancing, 0x04/0x06 IPv4/IPv6 endpoint,
                                   // 0x14/0x16 multicast, 0x24/0x26 SD endpoint; others are kept as read
    bool discardable = false;
    uint16_t length = 0;           // as written: the bytes after the type byte
    Endpoint endpoint;             // endpoint, multicast and SD endpoint options
    uint8_t l4_protocol = 0;       // 0x06 TCP, 0x11 UDP
    std::vector<std::string> config;  // configuration items ("key=value" or "key") in order
    uint16_t priority = 0, weight = 0;  // load balancing
    // "configuration", "load-balancing", "ipv4-endpoint", "ipv6-endpoint", "ipv4-multicast",
    // "ipv6-multicast", "ipv4-sd-endpoint", "ipv6-sd-endpoint", "unknown"
    ZQ_CAPTURE_API const char* name() const;
};

struct SdMessage {
    uint8_t flags = 0;             // 0x80 reboot, 0x40 unicast
    std::vector<SdEntry> entries;
    std::vector<SdOption> options;
    bool ok = true;                // false: decoding stopped at error_offset; what was read before is kept
    size_t error_offset = 0;       // byte of the SD payload
    std::string error;
    bool reboot() const { return (flags & 0x80) != 0; }
    bool unicast() const { return (flags & 0x40) != 0; }
};

// Decodes an SD payload (the bytes after the 16-byte SOME/IP header). Entries whose option runs point past
// the option array, options that run past their array or have the wrong size for their type, and arrays
// that run past the payload make the result not ok.
ZQ_CAPTURE_API SdMessage decodeServiceDiscovery(const uint8_t* payload, size_t size);
// The same into `out`, reusing its storage. Returns out.ok.
ZQ_CAPTURE_API bool decodeServiceDiscovery(const uint8_t* payload, size_t size, SdMessage& out);

}  // namespace capture
}  // namespace ZQSomeIP

#endif  // ZQ_SOMEIP_CAPTURE_H
