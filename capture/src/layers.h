// The capture reader's layers, a class each. Data flows upward only, every layer writing its records into
// the shared Context:
//
//   LinkLayer -> IpLayer (IPv4, IPv6, fragments) -> TransportLayer (UDP datagrams, TCP streams in order)
//             -> SomeIpLayer (messages cut from datagrams and streams, SOME/IP-TP) -> SdLayer (service discovery)
#ifndef ZQ_SOMEIP_CAPTURE_LAYERS_H
#define ZQ_SOMEIP_CAPTURE_LAYERS_H

#include "reassembly.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {

// ---- service discovery ----

class SdLayer final {
public:
    explicit SdLayer(Context& context) : context_(context) {}
    // Decodes the payload of `m` when it is a service discovery message.
    void attach(Message& m);
    // The frame's records are handed out: their SD messages may be reused.
    void clear() { used_ = 0; }

private:
    Context& context_;
    std::vector<std::unique_ptr<SdMessage>> sds_;
    size_t used_ = 0;
};

// ---- SOME/IP messages and SOME/IP-TP ----

// Where the SOME/IP layer stands in one direction of a TCP stream.
struct StreamCut {
    enum class Mode : uint8_t {
        Deciding,  // no port selection: the first header decides whether the stream is SOME/IP
        Synced,    // at a message boundary (pending: the start of an incomplete message)
        Hunting,   // looking for a plausible header (pending: less than a header of unscanned bytes)
        Stopped,   // not SOME/IP, or the connection has ended: no bytes are taken
    };
    Mode mode = Mode::Deciding;
    std::vector<uint8_t> pending;
    uint64_t pending_at = 0;     // stream offset of pending[0]
    uint64_t skip_from = 0;      // hunting: where the bytes being passed over began
    uint64_t skipped = 0;

    bool following() const { return mode == Mode::Synced || mode == Mode::Hunting; }
};

struct TpMeta {
    uint8_t header[kHeaderSize] = {};  // the first segment's, once it has arrived
    Transport transport = Transport::Udp;
    Endpoint source, destination;
};

class SomeIpLayer final : private Reassembly<TpMeta>::Owner {
public:
    SomeIpLayer(Context& context, SdLayer& sd, const Options& options);
    // The messages of a UDP datagram: `captured` of its `declared` bytes at `d`, at byte `at` of the frame.
    void datagram(const Origin& o, const uint8_t* d, uint32_t captured, uint32_t declared, uint64_t at);
    // One whole message of `total` bytes at `h`; copy: the bytes do not outlive this call.
    void message(const Origin& o, const uint8_t* h, uint64_t total, bool copy);
    void expire(bool at_end) { tp_.expire(at_end); }
    int64_t nextExpiry() const { return tp_.nextExpiry(); }
    // The earliest frame a partial TP message could still be reported at (UINT64_MAX: none).
    uint64_t pendingFrame() const { return tp_.pendingFrame(); }

    // TCP streams: the transport layer hands over each direction's bytes in order; `o` says where the
    // records about the stream come from. A stream is picked up at the start of a connection (at_start),
    // or anywhere in one.
    void streamStart(StreamCut& c, bool at_start) const;
    // `n` bytes at stream offset `position`; stable: they outlive the call.
    void streamBytes(StreamCut& c, const Origin& o, uint64_t position, const uint8_t* d, size_t n, bool stable);
    // `missing` bytes at `position` never arrive (reported as `why`, with what they cost).
    void streamGap(StreamCut& c, const Origin& o, ErrorCode code, uint64_t position, uint32_t missing, const std::string& why);
    // The stream ends for `why`: what is held is reported and given back.
    void streamEnd(StreamCut& c, const Origin& o, ErrorCode code, const char* why);
    // What was held is gone; the next message is looked for from `position` on.
    void streamResume(StreamCut& c, uint64_t position) const;
    void streamStop(StreamCut& c) const { c.mode = StreamCut::Mode::Stopped; }

private:
    void cutPending(StreamCut& c, const Origin& o);
    size_t cutRun(StreamCut& c, const Origin& o, const uint8_t* d, size_t n, bool copy, uint64_t at);
    void tpSegment(const Origin& o, const uint8_t* h, uint64_t total);
    void tpComplete(const Origin& o, Reassembly<TpMeta>::Entry& e);
    void dropped(const Reassembly<TpMeta>::Entry& e, ErrorCode code, uint64_t offset, std::string why, const Seen& at) override;

    Context& context_;
    SdLayer& sd_;
    const bool any_port_;
    const uint32_t max_message_;
    const uint64_t max_length_;  // the largest length field a stream's header may hold
    Reassembly<TpMeta> tp_;
};

// ---- UDP and TCP ----

// An IP payload handed to the transport layer.
struct IpPayload {
    uint8_t family;
    const uint8_t* source;       // addressSize(family) bytes each
    const uint8_t* destination;
    uint8_t proto;
    const uint8_t* data;
    uint32_t captured;           // bytes at `data`
    uint32_t declared;           // bytes the IP layer says there are
    uint64_t at;                 // where `data` lies in the frame, or in the reassembled datagram
};

// One direction of a TCP connection.
struct TcpStream {
    bool have_seq = false;
    bool syn = false;            // a SYN was seen; isn is its sequence number
    bool fin = false;
    uint32_t isn = 0;
    uint32_t next_seq = 0;       // the next byte expected
    uint32_t fin_seq = 0;
    uint64_t position = 0;       // stream offset of next_seq, counting from the first byte seen
    struct Segment {
        uint32_t seq;
        std::vector<uint8_t> data;
        Seen seen;               // the frame that carried it: the messages it ends carry that frame
    };
    std::vector<Segment> early;  // segments ahead of next_seq
    size_t early_bytes = 0;
    size_t held = 0;             // bytes counted against Limits::tcp_bytes
    Endpoint source, destination;
    Seen first, last;
    StreamCut cut;               // the SOME/IP layer's
};

class TransportLayer final {
public:
    TransportLayer(Context& context, SomeIpLayer& someip, const Options& options);
    void packet(const IpPayload& p);
    // Declares the holes held too long (Limits::tcp_hole_timeout_ns) lost.
    void expire();
    int64_t nextExpiry() const;
    // The earliest frame bytes held behind a hole came in (UINT64_MAX: none): messages they end carry it.
    uint64_t pendingFrame() const { return early_frames_.empty() ? UINT64_MAX : *early_frames_.begin(); }
    // The capture has ended: what the streams still hold is reported.
    void flush();

private:
    bool selected(uint16_t a, uint16_t b) const
    {
        return any_port_ || (ports_[a >> 6] >> (a & 63) & 1) || (ports_[b >> 6] >> (b & 63) & 1);
    }
    void tcpSegment(const IpPayload& p);
    TcpStream* stream(const IpPayload& p, bool starts);
    void acknowledged(const IpPayload& p, uint32_t ack);
    uint32_t synchronize(TcpStream& s, uint32_t seq);
    void streamData(TcpStream& s, uint32_t seq, const uint8_t* d, uint32_t n);
    bool holdEarly(TcpStream& s, uint32_t seq, const uint8_t* d, uint32_t n);
    void deliver(TcpStream& s, const Origin& o, const uint8_t* d, size_t n, bool stable);
    void drainEarly(TcpStream& s);
    void dropEarly(TcpStream& s);
    void gap(TcpStream& s, const Origin& o, uint32_t to_seq, ErrorCode code, const std::string& why);
    void holeLost(TcpStream& s, uint32_t to_seq, const char* why);
    void closeIfDone(TcpStream& s);
    void finishStream(TcpStream& s, ErrorCode code, const char* why);
    void account(TcpStream& s);
    bool evictStream(const TcpStream* keep, const char* why, bool holding_only);
    void enforceStreamBudget(TcpStream* keep);
    Origin streamOrigin(const TcpStream& s) const;

    Context& context_;
    SomeIpLayer& someip_;
    const bool any_port_;
    std::vector<uint64_t> ports_;  // one bit a port
    const Limits limits_;
    Endpoint source_, destination_;  // the current packet's, formatted once per flow change
    std::unordered_map<Key, TcpStream, KeyHash> streams_;
    uint64_t stream_bytes_ = 0;
    std::multiset<uint64_t> early_frames_;  // the frames of every stream's held segments
};

// ---- IPv4, IPv6 ----

struct FragmentMeta {
    uint8_t family = 0;
    uint8_t proto = 0;  // the transport protocol (IPv6: from the first fragment's header chain)
    uint8_t source[kAddressSize] = {}, destination[kAddressSize] = {};
};

class IpLayer final : private Reassembly<FragmentMeta>::Owner {
public:
    IpLayer(Context& context, TransportLayer& transport, const Limits& limits);
    // An IPv4 or IPv6 packet: the `n` bytes from byte `at` of the frame.
    void ipv4(const uint8_t* p, uint32_t n, uint64_t at);
    void ipv6(const uint8_t* p, uint32_t n, uint64_t at);
    void expire(bool at_end) { fragments_.expire(at_end); }
    int64_t nextExpiry() const { return fragments_.nextExpiry(); }
    // The earliest frame a partial datagram could still be reported at (UINT64_MAX: none).
    uint64_t pendingFrame() const { return fragments_.pendingFrame(); }

private:
    // The IPv6 header chain at p.data, starting with the header p.proto names. reassembled: p.data is a
    // reassembled datagram, which cannot hold fragments.
    void ipv6Chain(IpPayload p, bool reassembled);
    // A fragment of `p`'s datagram: its payload at byte `offset`; more: others follow it.
    void fragment(const IpPayload& p, uint32_t id, uint32_t offset, bool more);
    const char* fragmentRefused(const IpPayload& p, uint32_t offset, bool more) const;
    Origin origin(uint8_t family, const uint8_t* source, const uint8_t* destination, uint8_t proto);
    void dropped(const Reassembly<FragmentMeta>::Entry& e, ErrorCode code, uint64_t offset, std::string why,
                 const Seen& at) override;

    Context& context_;
    TransportLayer& transport_;
    Endpoint source_, destination_;
    std::vector<uint8_t> datagram_;  // the datagram reassembled in the current frame
    Reassembly<FragmentMeta> fragments_;
};

// ---- link layers ----

class LinkLayer final {
public:
    LinkLayer(Context& context, IpLayer& ip) : context_(context), ip_(ip) {}
    // Finds the IP packet in the frame and hands it on; counts the frame as skipped when there is none.
    void frame(const Frame& f);

private:
    Context& context_;
    IpLayer& ip_;
};

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP

#endif  // ZQ_SOMEIP_CAPTURE_LAYERS_H
