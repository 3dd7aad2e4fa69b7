// The capture reader's state: the frame source, the records of the current frame, and the reassembly
// tables of the IP, TCP and SOME/IP-TP layers.
#ifndef ZQ_SOMEIP_CAPTURE_READER_IMPL_H
#define ZQ_SOMEIP_CAPTURE_READER_IMPL_H

#include <climits>
#include <unordered_map>

#include "capture_internal.h"

namespace ZQSomeIP {
namespace capture {

// t + d, or INT64_MAX when that does not fit.
int64_t saturatingAdd(int64_t t, uint64_t d);

// Where the records being produced come from: a frame's number and time, the flow's endpoints.
struct Origin {
    uint64_t frame = 0;
    int64_t seconds = 0;
    uint32_t nanoseconds = 0;
    uint8_t digits = 6;
    Transport transport = Transport::Udp;
    const Endpoint* source = nullptr;
    const Endpoint* destination = nullptr;
};

// The frame and time a reassembly entry reports with when it is dropped.
struct Seen {
    uint64_t frame = 0;
    int64_t seconds = 0;
    uint32_t nanoseconds = 0;
    uint8_t digits = 6;
    int64_t ns = 0;        // the time as one number, for timeouts and eviction
    uint64_t order = 0;    // creation order: entries dropped together are reported in it
};

struct FragmentEntry {
    detail::PieceSet pieces;
    uint8_t family = 0;
    uint8_t proto = 0;      // the transport protocol (IPv6: from the first fragment's header chain)
    uint8_t source[16] = {}, destination[16] = {};
    Seen first, last;
};

struct TpEntry {
    detail::PieceSet pieces;
    uint8_t header[16] = {};  // the first segment's, when it has arrived
    Transport transport = Transport::Udp;
    Endpoint source, destination;
    Seen first, last;
};

struct TcpStream {
    enum class Mode : uint8_t {
        Deciding,  // no port selection: the first 16 bytes decide whether the stream is SOME/IP
        Synced,    // at a message boundary (pending: the start of an incomplete message)
        Hunting,   // looking for a plausible header (pending: at most 15 unscanned bytes)
        Ignored,   // not SOME/IP
        Closed,    // ended by FIN or RST; later segments are retransmissions
    };
    Mode mode = Mode::Deciding;
    bool have_seq = false;
    bool syn = false;            // a SYN was seen; isn is its sequence number
    bool fin = false;
    uint32_t isn = 0;
    uint32_t next_seq = 0;       // the next byte expected
    uint32_t fin_seq = 0;
    uint64_t position = 0;       // stream offset of next_seq, counting from the first byte seen
    std::vector<uint8_t> pending;
    uint64_t pending_at = 0;     // stream offset of pending[0]
    uint64_t skip_from = 0;      // hunting: where the bytes being passed over began
    uint64_t skipped = 0;
    struct Segment {
        uint32_t seq;
        std::vector<uint8_t> data;
    };
    std::vector<Segment> early;  // segments ahead of next_seq
    size_t early_bytes = 0;
    size_t held = 0;             // bytes counted against Limits::tcp_bytes
    Endpoint source, destination;
    Seen first, last;
};

struct __attribute__((visibility("hidden"))) CaptureReader::Impl {
    Options options;
    bool any_port = true;
    std::vector<uint64_t> ports;  // 65536 bits
    std::unique_ptr<detail::FrameSource> source;
    Status status;
    bool ended = false;

    // Records of the current frame; next() hands them out, then reads the next frame.
    std::vector<Message> queue;
    size_t count = 0, head = 0;
    std::vector<std::vector<uint8_t>> buffers;  // payload copies of the current frame
    size_t buffers_used = 0;
    std::vector<std::unique_ptr<SdMessage>> sds;
    size_t sds_used = 0;

    detail::Frame frame;
    int64_t now_ns = INT64_MIN;  // the latest capture time seen
    uint64_t order = 0;
    int64_t next_expiry = INT64_MAX;
    Endpoint udp_source, udp_destination;  // the current packet's, formatted once per flow change
    Endpoint ip_source, ip_destination;

    std::unordered_map<detail::Key, FragmentEntry, detail::KeyHash> fragments;
    uint64_t fragment_bytes = 0;
    std::vector<uint8_t> datagram;  // the datagram reassembled in the current frame

    std::unordered_map<detail::Key, TcpStream, detail::KeyHash> streams;
    uint64_t stream_bytes = 0;

    std::unordered_map<detail::Key, TpEntry, detail::KeyHash> tp;
    uint64_t tp_bytes = 0;

    // capture_reader.cpp: frames, link and IP layers, timeouts
    void processFrame(const detail::Frame& f);
    void ipv4(const uint8_t* p, uint32_t n, uint64_t at);
    void ipv6(const uint8_t* p, uint32_t n, uint64_t at);
    void ipv6Chain(const uint8_t* src, const uint8_t* dst, uint8_t next, const uint8_t* p, uint32_t captured,
                   uint32_t declared, uint64_t at, bool reassembled);
    void fragment(uint8_t family, const uint8_t* src, const uint8_t* dst, uint32_t id, uint8_t proto, uint32_t offset,
                  bool more, const uint8_t* data, uint32_t captured, uint32_t declared, uint64_t at);
    void dropFragments(std::unordered_map<detail::Key, FragmentEntry, detail::KeyHash>::iterator it, ErrorCode code,
                       uint64_t offset, const std::string& why, bool at_end = false);
    void expireFragments(bool everything);
    void expireTp(bool everything);
    void recomputeExpiry();
    void flush();
    Seen seen();
    Origin ipOrigin(uint8_t family, const uint8_t* src, const uint8_t* dst, uint8_t proto);
    // Records about stored state carry the frame being processed; at the end of the capture (at_end),
    // the last frame that contributed to the state.
    Origin storedOrigin(const Seen& s, Transport t, const Endpoint& src, const Endpoint& dst, bool at_end);

    // streams.cpp: transport layer, SOME/IP messages, TCP streams, SOME/IP-TP
    void transport(uint8_t family, const uint8_t* src, const uint8_t* dst, uint8_t proto, const uint8_t* p,
                   uint32_t captured, uint32_t declared, uint64_t at);
    bool selected(uint16_t a, uint16_t b) const
    {
        return any_port || (ports[a >> 6] >> (a & 63) & 1) || (ports[b >> 6] >> (b & 63) & 1);
    }
    void datagramMessages(const Origin& o, const uint8_t* d, uint32_t captured, uint32_t declared, uint64_t at);
    void message(const Origin& o, const uint8_t* h, uint64_t total, bool copy);
    void serviceDiscovery(Message& m);
    void tpSegment(const Origin& o, const uint8_t* h, uint64_t total);
    void dropTp(std::unordered_map<detail::Key, TpEntry, detail::KeyHash>::iterator it, ErrorCode code, uint64_t offset,
                const std::string& why, bool at_end = false);
    void tcpSegment(uint8_t family, const uint8_t* src, const uint8_t* dst, const uint8_t* tcp, uint32_t captured,
                    uint32_t declared);
    void streamData(TcpStream& s, uint32_t seq, const uint8_t* d, uint32_t n);
    void deliver(TcpStream& s, const uint8_t* d, size_t n, bool stable);
    void parsePending(TcpStream& s);
    size_t parseRun(TcpStream& s, const uint8_t* d, size_t n, bool copy, uint64_t at);
    void drainEarly(TcpStream& s);
    void gap(TcpStream& s, uint32_t to_seq, ErrorCode code, const std::string& why);
    void finishStream(TcpStream& s, ErrorCode code, const char* why);
    void account(TcpStream& s);
    bool evictStream(const TcpStream* keep, const char* why, bool holding_only);
    void enforceStreamBudget(TcpStream* keep);
    Origin streamOrigin(const TcpStream& s);

    // records
    Message& push(const Origin& o);
    Message& error(const Origin& o, ErrorCode code, uint64_t offset, std::string text);
    std::vector<uint8_t>& buffer();
};

}  // namespace capture
}  // namespace ZQSomeIP

#endif  // ZQ_SOMEIP_CAPTURE_READER_IMPL_H
