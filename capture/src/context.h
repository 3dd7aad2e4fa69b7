// What every layer of the capture reader shares: the frame being read, the capture clock the reassembly
// tables time out by, and the records the frame yields.
#ifndef ZQ_SOMEIP_CAPTURE_CONTEXT_H
#define ZQ_SOMEIP_CAPTURE_CONTEXT_H

#include <algorithm>
#include <climits>
#include <deque>

#include "capture_internal.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {

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

// The frame and time a piece of kept state reports with when it is dropped.
struct Seen {
    uint64_t frame = 0;
    int64_t seconds = 0;
    uint32_t nanoseconds = 0;
    uint8_t digits = 6;
    int64_t ns = 0;        // the time as one number, for timeouts and eviction
    uint64_t order = 0;    // creation order: entries dropped together are reported in it
};

class Context {
public:
    Context(Status& status, const Limits& limits)
        : status_(status), max_held_(limits.reorder_records), max_held_bytes_(limits.reorder_bytes)
    {
    }

    // ---- the frame and the clock ----
    // Takes the next frame; true when kept state is due to time out.
    bool startFrame(const Frame& f);
    const Frame& frame() const { return frame_; }
    bool frameCut() const { return frame_.captured < frame_.original; }
    int64_t now() const { return now_ns_; }
    // The current frame, for state created or touched now.
    Seen seen() const;
    // The current frame, numbered for state created now.
    Seen created()
    {
        Seen s = seen();
        s.order = ++order_;
        return s;
    }
    // Kept state created now times out at `at`; setExpiry() when the earliest is known again.
    void expiresAt(int64_t at) { next_expiry_ = std::min(next_expiry_, at); }
    void setExpiry(int64_t at) { next_expiry_ = at; }

    // The frame and time of `o`, for state kept from it.
    Seen seenAt(const Origin& o) const;
    // Records about the current frame.
    Origin here(Transport t, const Endpoint& source, const Endpoint& destination) const;
    // Records about kept state, carrying the frame `s` names.
    Origin at(const Seen& s, Transport t, const Endpoint& source, const Endpoint& destination) const;

    // ---- the records ----
    Statistics& stats() { return status_.stats; }
    Message& push(const Origin& o);
    Message& error(const Origin& o, ErrorCode code, uint64_t offset, std::string text);
    // An error about the message whose header is at `h`.
    Message& headerError(const Origin& o, ErrorCode code, uint64_t offset, std::string text, const uint8_t* h);
    // A payload copy that lives as long as the frame's records.
    std::vector<uint8_t>& buffer();

    // The frame's records are all produced; kept state could still produce records for frames from
    // `horizon` on (UINT64_MAX: none). Records up to the horizon are handed out in frame order, the others
    // wait (copied) until it moves past them or a reorder bound makes the oldest go anyway.
    void settle(uint64_t horizon)
    {
        if (held_.empty() && (count_ == 0 || (count_ == 1 && queue_[0].frame <= horizon))) return;  // the usual case
        reorder(horizon);
    }
    // The records handed out, one by one.
    bool take(Message& out)
    {
        if (head_ == count_) return (front_out_ || ready_ > 0) && takeHeld(out);
        out = queue_[head_++];
        return true;
    }
    void clear() { count_ = head_ = buffers_used_ = 0; }

private:
    // A record waiting for its turn, with copies of what it points to.
    struct Held {
        Message m;
        std::vector<uint8_t> payload;
        std::unique_ptr<SdMessage> sd;
    };
    bool inOrderUpTo(uint64_t horizon) const;
    void reorder(uint64_t horizon);
    void hold(Message& m);
    bool takeHeld(Message& out);

    Status& status_;
    Frame frame_;
    int64_t now_ns_ = INT64_MIN;  // the latest capture time seen
    uint64_t order_ = 0;
    int64_t next_expiry_ = INT64_MAX;

    std::vector<Message> queue_;
    size_t count_ = 0, head_ = 0;
    std::vector<std::vector<uint8_t>> buffers_;
    size_t buffers_used_ = 0;

    std::deque<Held> held_;   // in frame order; the first ready_ go out
    size_t ready_ = 0;
    bool front_out_ = false;  // held_.front() was handed out and goes with the next take()
    uint64_t held_bytes_ = 0;
    const uint64_t max_held_, max_held_bytes_;
};

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP

#endif  // ZQ_SOMEIP_CAPTURE_CONTEXT_H
