// The state the capture reader's layers share: frame, clock and records.
#include "context.h"

#include <cstdarg>
#include <cstdio>

namespace ZQSomeIP {
namespace capture {
namespace detail {

namespace {

int64_t toNs(int64_t seconds, uint32_t nanoseconds)
{
    int64_t ns = 0;
    if (__builtin_mul_overflow(seconds, int64_t{1000000000}, &ns) || __builtin_add_overflow(ns, int64_t{nanoseconds}, &ns))
        return seconds < 0 ? INT64_MIN : INT64_MAX;
    return ns;
}

// A payload copy buffer this large is given back rather than kept for small copies.
constexpr size_t kKeepBuffer = 4u << 20;

}  // namespace

std::string text(const char* format, ...)
{
    char buf[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    return buf;
}

int64_t saturatingAdd(int64_t t, uint64_t d)
{
    int64_t r = 0;
    return __builtin_add_overflow(t, static_cast<int64_t>(std::min<uint64_t>(d, INT64_MAX)), &r) ? INT64_MAX : r;
}

bool Context::startFrame(const Frame& f)
{
    frame_ = f;
    Statistics& st = status_.stats;
    ++st.frames;
    st.bytes += f.captured;
    if (f.captured < f.original) ++st.cut_frames;
    now_ns_ = std::max(now_ns_, toNs(f.seconds, f.nanoseconds));
    return now_ns_ >= next_expiry_;
}

Seen Context::seen() const
{
    return Seen{frame_.number, frame_.seconds, frame_.nanoseconds, frame_.time_digits, toNs(frame_.seconds, frame_.nanoseconds), 0};
}

Origin Context::here(Transport t, const Endpoint& source, const Endpoint& destination) const
{
    return Origin{frame_.number, frame_.seconds, frame_.nanoseconds, frame_.time_digits, t, &source, &destination};
}

Seen Context::seenAt(const Origin& o) const
{
    return Seen{o.frame, o.seconds, o.nanoseconds, o.digits, toNs(o.seconds, o.nanoseconds), 0};
}

Origin Context::at(const Seen& s, Transport t, const Endpoint& source, const Endpoint& destination) const
{
    return Origin{s.frame, s.seconds, s.nanoseconds, s.digits, t, &source, &destination};
}

Message& Context::push(const Origin& o)
{
    if (count_ == queue_.size()) queue_.emplace_back();
    Message& m = queue_[count_++];
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

Message& Context::error(const Origin& o, ErrorCode code, uint64_t offset, std::string why)
{
    Message& m = push(o);
    m.error = code;
    m.error_offset = offset;
    m.error_text = std::move(why);
    ++status_.stats.errors;
    ++status_.stats.errors_by_code[static_cast<size_t>(code)];
    return m;
}

Message& Context::headerError(const Origin& o, ErrorCode code, uint64_t offset, std::string why, const uint8_t* h)
{
    Message& m = error(o, code, offset, std::move(why));
    readHeader(h, m.header);
    m.has_header = true;
    return m;
}

std::vector<uint8_t>& Context::buffer()
{
    if (buffers_used_ == buffers_.size()) buffers_.emplace_back();
    std::vector<uint8_t>& b = buffers_[buffers_used_++];
    if (b.capacity() > kKeepBuffer) std::vector<uint8_t>().swap(b);
    b.clear();
    return b;
}

bool Context::inOrderUpTo(uint64_t horizon) const
{
    for (size_t i = 0; i < count_; ++i)
        if (queue_[i].frame > horizon || (i > 0 && queue_[i].frame < queue_[i - 1].frame)) return false;
    return true;
}

void Context::hold(Message& m)
{
    static const uint8_t nothing = 0;
    Held h;
    h.payload.assign(m.payload, m.payload + m.payload_size);
    if (m.sd) h.sd = std::make_unique<SdMessage>(*m.sd);
    h.m = std::move(m);
    // The copy's bytes do not move with the record; an empty payload keeps a pointer when it had one.
    if (h.m.payload) h.m.payload = h.payload.empty() ? &nothing : h.payload.data();
    held_bytes_ += h.payload.size();
    // After every record of the same frame or earlier: records of one frame keep the order they came in.
    const auto it = std::upper_bound(held_.begin() + static_cast<std::ptrdiff_t>(ready_), held_.end(), h.m.frame,
                                     [](uint64_t f, const Held& x) { return f < x.m.frame; });
    held_.insert(it, std::move(h));
}

void Context::reorder(uint64_t horizon)
{
    // Nothing waits and nothing could come before these records: they go out as they are, uncopied.
    if (held_.empty() && inOrderUpTo(horizon)) return;
    for (size_t i = head_; i < count_; ++i) hold(queue_[i]);
    head_ = count_ = 0;
    // The bounds are on what waits: a record counts until it is ready to go.
    for (; ready_ < held_.size() && held_[ready_].m.frame <= horizon; ++ready_) held_bytes_ -= held_[ready_].payload.size();
    for (; ready_ < held_.size() && (held_.size() - ready_ > max_held_ || held_bytes_ > max_held_bytes_); ++ready_) {
        held_bytes_ -= held_[ready_].payload.size();
        ++status_.stats.out_of_order;
    }
}

bool Context::takeHeld(Message& out)
{
    if (front_out_) {
        held_.pop_front();
        front_out_ = false;
    }
    if (ready_ == 0) return false;
    --ready_;
    const Held& h = held_.front();
    out = h.m;
    out.sd = h.sd.get();
    front_out_ = true;
    return true;
}

}  // namespace detail

const char* errorName(ErrorCode code)
{
    static const char* const names[kErrorCodeCount] = {
        "none", "frame-cut", "ip-malformed", "ip-fragment-overlap", "ip-fragment-invalid", "ip-fragments-missing",
        "transport-malformed", "tcp-gap", "tcp-skipped", "tcp-incomplete", "someip-bad-header",
        "someip-runs-past-datagram", "someip-trailing-bytes", "tp-invalid", "tp-overlap", "tp-missing-segments",
        "sd-malformed", "reassembly-limit",
    };
    const size_t i = static_cast<size_t>(code);
    return i < kErrorCodeCount ? names[i] : "unknown";
}

}  // namespace capture
}  // namespace ZQSomeIP
