// Capture files: classic pcap through libpcap, pcapng block by block, from a path or standard input.
#include <arpa/inet.h>
#include <fcntl.h>
#include <pcap/pcap.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "capture_internal.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {
namespace {

// Buffered reads from a file descriptor, counting what was taken. When the descriptor can keep a read
// waiting (`waits`: a pipe, a terminal), input is waited for in steps that look at `stop`, and ends once it
// is set: an idle producer must not keep a stopped reader from ending.
class ByteSource {
public:
    ByteSource(int fd, bool owned, bool waits, const std::atomic<bool>& stop)
        : fd_(fd), owned_(owned), waits_(waits), stop_(stop), buf_(kBuffer)
    {
    }
    ~ByteSource()
    {
        if (owned_) ::close(fd_);
    }
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    // Copies `n` bytes; fewer only at the end of the input or after a read error (failed()).
    size_t read(void* out, size_t n)
    {
        size_t done = 0;
        while (done < n) {
            if (pos_ == end_ && !fill()) break;
            const size_t take = std::min(n - done, end_ - pos_);
            std::memcpy(static_cast<uint8_t*>(out) + done, buf_.data() + pos_, take);
            pos_ += take;
            done += take;
        }
        consumed_ += done;
        return done;
    }
    // Passes over `n` bytes; fewer only at the end of the input or after a read error.
    uint64_t skip(uint64_t n)
    {
        uint64_t done = 0;
        while (done < n) {
            if (pos_ == end_ && !fill()) break;
            const size_t take = static_cast<size_t>(std::min<uint64_t>(n - done, end_ - pos_));
            pos_ += take;
            done += take;
        }
        consumed_ += done;
        return done;
    }
    // Up to `n` bytes, as many as one read gives.
    size_t readSome(void* out, size_t n)
    {
        if (pos_ == end_ && !fill()) return 0;
        const size_t take = std::min(n, end_ - pos_);
        std::memcpy(out, buf_.data() + pos_, take);
        pos_ += take;
        consumed_ += take;
        return take;
    }
    // Makes the next `n` bytes (at most the buffer's size) readable at `at` without taking them; false when
    // the input ends first.
    bool peek(size_t n, const uint8_t*& at)
    {
        if (end_ - pos_ < n) {
            std::memmove(buf_.data(), buf_.data() + pos_, end_ - pos_);
            end_ -= pos_;
            pos_ = 0;
            while (end_ < n) {
                if (!ready()) return false;
                const ssize_t got = ::read(fd_, buf_.data() + end_, buf_.size() - end_);
                if (got > 0) {
                    end_ += static_cast<size_t>(got);
                    pulled_ += static_cast<uint64_t>(got);
                } else if (got == 0 || errno != EINTR) {
                    if (got < 0) errno_ = errno;
                    return false;
                }
            }
        }
        at = buf_.data() + pos_;
        return true;
    }
    uint64_t consumed() const { return consumed_; }
    uint64_t pulled() const { return pulled_; }
    bool failed() const { return errno_ != 0; }
    const char* failure() const { return std::strerror(errno_); }

private:
    // Buffers big enough that a frame rarely straddles two reads.
    static constexpr size_t kBuffer = 256 * 1024;

    bool fill()
    {
        if (errno_ != 0) return false;
        for (;;) {
            if (!ready()) return false;
            const ssize_t got = ::read(fd_, buf_.data(), buf_.size());
            if (got > 0) {
                pos_ = 0;
                end_ = static_cast<size_t>(got);
                pulled_ += end_;
                return true;
            }
            if (got == 0) return false;
            if (errno != EINTR) {
                errno_ = errno;
                return false;
            }
        }
    }

    // Whether a read will not wait for long; false once stopped.
    bool ready() const
    {
        while (waits_ && !stop_.load(std::memory_order_relaxed)) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, kPollMs) > 0) return true;
        }
        return !stop_.load(std::memory_order_relaxed);
    }

    int fd_;
    bool owned_;
    bool waits_;
    const std::atomic<bool>& stop_;
    std::vector<uint8_t> buf_;
    size_t pos_ = 0, end_ = 0;
    uint64_t consumed_ = 0, pulled_ = 0;
    int errno_ = 0;
};

// ---- classic pcap, through libpcap ----

ssize_t cookieRead(void* cookie, char* out, size_t n)
{
    auto* in = static_cast<ByteSource*>(cookie);
    const size_t got = in->readSome(out, n);
    return got == 0 && in->failed() ? -1 : static_cast<ssize_t>(got);
}

class PcapSource : public FrameSource {
public:
    // Either `path` names a regular file, or `stream` (nothing taken yet) is read through a stdio cookie.
    static std::unique_ptr<PcapSource> open(const std::string& path, std::unique_ptr<ByteSource> stream,
                                            uint8_t digits, uint64_t size, std::string& error)
    {
        std::unique_ptr<PcapSource> s(new PcapSource);
        char errbuf[PCAP_ERRBUF_SIZE] = {};
        if (stream) {
            FILE* f = fopencookie(stream.get(), "r", cookie_io_functions_t{cookieRead, nullptr, nullptr, nullptr});
            if (!f) {
                error = std::string("cannot read ") + path + ": " + std::strerror(errno);
                return nullptr;
            }
            s->pcap_ = pcap_fopen_offline_with_tstamp_precision(f, PCAP_TSTAMP_PRECISION_NANO, errbuf);
            if (!s->pcap_) std::fclose(f);
        } else {
            s->pcap_ = pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, errbuf);
        }
        if (!s->pcap_) {
            error = path + ": " + errbuf;
            return nullptr;
        }
        s->stream_ = std::move(stream);
        s->digits_ = digits;
        s->file_size_ = size;
        const int dlt = pcap_datalink(s->pcap_);
        s->link_ = dlt < 0 ? 0xFFFFFFFFu : static_cast<uint32_t>(dlt);
        return s;
    }
    ~PcapSource() override
    {
        if (pcap_) pcap_close(pcap_);  // closes the stdio stream; the cookie's source is freed after
    }

    int next(Frame& f) override
    {
        pcap_pkthdr* h = nullptr;
        const u_char* d = nullptr;
        const int r = pcap_next_ex(pcap_, &h, &d);
        if (r == 1) {
            f.number = ++number_;
            f.seconds = h->ts.tv_sec;
            f.nanoseconds = static_cast<uint32_t>(h->ts.tv_usec);
            f.time_digits = digits_;
            f.link_type = link_;
            f.data = d;
            f.captured = h->caplen;
            f.original = h->len;
            return 1;
        }
        if (r == PCAP_ERROR_BREAK) return 0;
        error_ = "capture damaged after frame " + std::to_string(number_) + ": " + pcap_geterr(pcap_);
        return -1;
    }

    uint64_t bytesRead() const override
    {
        if (stream_) return stream_->pulled();
        const long at = std::ftell(pcap_file(pcap_));
        return at < 0 ? 0 : static_cast<uint64_t>(at);
    }

private:
    PcapSource() = default;
    pcap_t* pcap_ = nullptr;
    std::unique_ptr<ByteSource> stream_;
    uint32_t link_ = 0;
    uint8_t digits_ = 6;
    uint64_t number_ = 0;
};

// ---- pcapng ----

class PcapngSource : public FrameSource {
public:
    PcapngSource(std::unique_ptr<ByteSource> in, uint64_t size) : in_(std::move(in)) { file_size_ = size; }

    int next(Frame& f) override
    {
        for (;;) {
            const uint64_t at = in_->consumed();
            uint32_t type = 0, body = 0;
            int r = readBlock(at, type, body);
            if (r == 1) r = useBlock(at, type, body, f);
            if (r != kNoFrame) return r;
        }
    }

    uint64_t bytesRead() const override { return in_->consumed(); }

private:
    enum : uint32_t {
        kSectionHeader = 0x0A0D0D0A, kInterface = 1, kObsoletePacket = 2, kSimplePacket = 3, kEnhancedPacket = 6,
    };
    // Larger than any frame a capture tool writes (256 KiB), small enough to allocate on a corrupt length.
    static constexpr uint32_t kMaxBlock = 16u << 20;
    // Every description costs memory; a file asking for more is not a real capture.
    static constexpr size_t kMaxInterfaces = 65536;

    struct Interface {
        uint32_t link = 0;
        uint32_t snaplen = 0;
        bool binary = false;   // resolution 2^-exponent instead of 10^-exponent
        uint8_t exponent = 6;
        uint8_t digits = 6;
        int64_t offset = 0;    // seconds added to every timestamp
    };

    // next()'s results, and one for a block that yields no frame.
    static constexpr int kNoFrame = 2;

    // Reads the block at `at`: its body and trailing length into block_ when it is of a wanted type
    // (1), or passes over it (kNoFrame); 0 at the clean end of the file, -1 when it is damaged.
    int readBlock(uint64_t at, uint32_t& type, uint32_t& body)
    {
        uint8_t head[12];
        const size_t got = in_->read(head, 8);
        if (got == 0 && !in_->failed()) return 0;
        if (got < 8) return damaged(at, "the file ends inside a block header");
        // The section header's type reads the same in both orders; other blocks follow their section's.
        type = le32(head) == kSectionHeader ? kSectionHeader : u32(head);
        size_t have = 0;                   // body bytes already read
        if (type == kSectionHeader) {
            if (in_->read(head + 8, 4) < 4) return damaged(at, "the file ends inside a section header");
            const uint32_t mark = le32(head + 8);
            if (mark != 0x1A2B3C4Du && mark != 0x4D3C2B1Au) return damaged(at, "unknown byte-order mark");
            big_ = mark == 0x4D3C2B1Au;
            have = 4;
        } else if (!in_section_) {
            return damaged(at, "a block before the first section header");
        }
        const uint32_t total = u32(head + 4);
        if (total < (type == kSectionHeader ? 28u : 12u) || total % 4 != 0)
            return damaged(at, "block length " + std::to_string(total) + " is impossible");
        body = total - 12;
        const bool wanted = type == kSectionHeader || type == kInterface || type == kEnhancedPacket ||
                            type == kSimplePacket || type == kObsoletePacket;
        if (!wanted) return in_->skip(body + 4ull) < body + 4ull ? truncated(at) : kNoFrame;
        if (total > kMaxBlock)
            return damaged(at, "a " + std::to_string(total) + "-byte block, more than the 16 MiB accepted");
        block_.resize(body + 4);
        std::memcpy(block_.data(), head + 8, have);
        if (in_->read(block_.data() + have, body + 4 - have) < body + 4 - have) return truncated(at);
        if (u32(block_.data() + body) != total)
            return damaged(at, "trailing block length differs from the leading one");
        return 1;
    }

    // The block read into block_: a frame (1), or what it says about those to come (kNoFrame), or -1.
    int useBlock(uint64_t at, uint32_t type, uint32_t body, Frame& f)
    {
        const uint8_t* b = block_.data();
        switch (type) {
        case kSectionHeader:
            if (u16(b + 4) != 1) return damaged(at, "section version " + std::to_string(u16(b + 4)) + " is not 1");
            in_section_ = true;
            interfaces_.clear();
            return kNoFrame;
        case kInterface:
            if (body < 8) return damaged(at, "interface description too short");
            if (interfaces_.size() >= kMaxInterfaces) return damaged(at, "more than 65536 interfaces");
            if (!addInterface(b, body)) return damaged(at, "an interface option runs past its block");
            return kNoFrame;
        case kEnhancedPacket:
        case kObsoletePacket: {
            if (body < 20) return damaged(at, "packet block too short");
            const uint32_t id = type == kEnhancedPacket ? u32(b) : u16(b);
            const uint32_t cap = u32(b + 12);
            if (cap > body - 20) return damaged(at, "packet data run past its block");
            if (id >= interfaces_.size()) return damaged(at, "packet on undescribed interface " + std::to_string(id));
            const Interface& i = interfaces_[id];
            stamp(i, uint64_t{u32(b + 4)} << 32 | u32(b + 8), f);
            return frame(i, b + 20, cap, u32(b + 16), f);
        }
        default: {  // kSimplePacket
            if (body < 4) return damaged(at, "simple packet block too short");
            if (interfaces_.empty()) return damaged(at, "packet before any interface description");
            const Interface& i = interfaces_[0];
            uint32_t cap = std::min(u32(b), body - 4);
            if (i.snaplen != 0) cap = std::min(cap, i.snaplen);
            f.seconds = 0;
            f.nanoseconds = 0;
            f.time_digits = i.digits;
            return frame(i, b + 4, cap, u32(b), f);
        }
        }
    }

    static uint32_t le32(const uint8_t* p) { return uint32_t{p[3]} << 24 | uint32_t{p[2]} << 16 | uint32_t{p[1]} << 8 | p[0]; }
    uint32_t u32(const uint8_t* p) const { return big_ ? be32(p) : le32(p); }
    uint16_t u16(const uint8_t* p) const { return big_ ? be16(p) : static_cast<uint16_t>(p[1] << 8 | p[0]); }

    bool addInterface(const uint8_t* b, uint32_t body)
    {
        Interface i;
        i.link = u16(b);
        i.snaplen = u32(b + 4);
        for (uint32_t pos = 8; body - pos >= 4;) {
            const uint16_t code = u16(b + pos), len = u16(b + pos + 2);
            pos += 4;
            if (len > body - pos) return false;
            if (code == 0) break;
            const uint8_t* v = b + pos;
            if (code == 9 && len >= 1) {  // if_tsresol
                i.binary = (v[0] & 0x80) != 0;
                i.exponent = v[0] & 0x7F;
                const unsigned d = i.binary ? (i.exponent * 30103u + 99999u) / 100000u : i.exponent;
                i.digits = static_cast<uint8_t>(std::min(d, 9u));
            } else if (code == 14 && len == 8) {  // if_tsoffset
                const uint64_t hi = u32(v), lo = u32(v + 4);
                i.offset = static_cast<int64_t>(big_ ? hi << 32 | lo : lo << 32 | hi);
            }
            pos += std::min<uint32_t>((len + 3u) & ~3u, body - pos);
        }
        interfaces_.push_back(i);
        return true;
    }

    static void stamp(const Interface& i, uint64_t ts, Frame& f)
    {
        uint64_t sec = 0, ns = 0;
        if (i.binary) {
            const unsigned e = i.exponent;
            const unsigned __int128 scaled = static_cast<unsigned __int128>(e < 64 ? ts & ((1ull << e) - 1) : ts) * 1000000000u;
            sec = e < 64 ? ts >> e : 0;
            ns = static_cast<uint64_t>(scaled >> e);
        } else {
            uint64_t p10[20] = {1};
            for (int k = 1; k < 20; ++k) p10[k] = p10[k - 1] * 10;
            const unsigned e = i.exponent;
            if (e < 20) {
                sec = ts / p10[e];
                const uint64_t rem = ts % p10[e];
                ns = e <= 9 ? rem * p10[9 - e] : rem / p10[e - 9];
            } else {
                ns = e - 9 < 20 ? ts / p10[e - 9] : 0;
            }
        }
        int64_t s = 0;
        if (sec > static_cast<uint64_t>(INT64_MAX) || __builtin_add_overflow(static_cast<int64_t>(sec), i.offset, &s))
            s = INT64_MAX;
        f.seconds = s;
        f.nanoseconds = static_cast<uint32_t>(ns);
        f.time_digits = i.digits;
    }

    int frame(const Interface& i, const uint8_t* data, uint32_t cap, uint32_t orig, Frame& f)
    {
        f.number = ++number_;
        f.link_type = i.link;
        f.data = data;
        f.captured = cap;
        f.original = std::max(orig, cap);
        return 1;
    }

    int damaged(uint64_t at, const std::string& what)
    {
        error_ = "capture damaged at byte " + std::to_string(at) + " (after frame " + std::to_string(number_) + "): " + what;
        return -1;
    }
    int truncated(uint64_t at)
    {
        return damaged(at, in_->failed() ? std::string("read error: ") + in_->failure() : "the file ends inside a block");
    }

    std::unique_ptr<ByteSource> in_;
    std::vector<uint8_t> block_;
    std::vector<Interface> interfaces_;
    bool big_ = false;
    bool in_section_ = false;
    uint64_t number_ = 0;
};

}  // namespace

std::unique_ptr<FrameSource> openFrameSource(const std::string& path, const std::atomic<bool>& stop, std::string& error)
{
    const bool stdin_ = path == "-";
    const std::string name = stdin_ ? "standard input" : path;
    const int fd = stdin_ ? 0 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error = "cannot open " + name + ": " + std::strerror(errno);
        return nullptr;
    }
    struct stat st {};
    const bool regular = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    const uint64_t size = regular ? static_cast<uint64_t>(st.st_size) : 0;
    auto in = std::make_unique<ByteSource>(fd, !stdin_, !regular, stop);

    const uint8_t* m = nullptr;
    if (!in->peek(4, m)) {
        error = name + (in->failed() ? std::string(": ") + in->failure() : ": too short to be a capture file");
        return nullptr;
    }
    const uint32_t magic = uint32_t{m[0]} | uint32_t{m[1]} << 8 | uint32_t{m[2]} << 16 | uint32_t{m[3]} << 24;
    const auto either = [magic](uint32_t v) { return magic == v || magic == __builtin_bswap32(v); };
    if (magic == 0x0A0D0D0Au) {
        return std::make_unique<PcapngSource>(std::move(in), size);
    }
    if (!either(0xA1B2C3D4u) && !either(0xA1B23C4Du) && !either(0xA1B2CD34u)) {
        error = name + ": not a pcap or pcapng file";
        return nullptr;
    }
    const uint8_t digits = either(0xA1B23C4Du) ? 9 : 6;
    if (regular && !stdin_) {
        in.reset();  // libpcap opens the file itself
        return PcapSource::open(path, nullptr, digits, size, error);
    }
    return PcapSource::open(name, std::move(in), digits, size, error);
}

void setEndpoint(Endpoint& e, uint8_t family, const uint8_t* address, uint16_t port, bool with_port)
{
    e.family = family;
    e.port = port;
    char* out = e.text_data;
    if (family == 4) {
        std::memcpy(e.address, address, 4);
        std::memset(e.address + 4, 0, 12);
        for (int i = 0; i < 4; ++i) {
            unsigned v = address[i];
            if (v >= 100) *out++ = static_cast<char>('0' + v / 100), v %= 100, *out++ = static_cast<char>('0' + v / 10);
            else if (v >= 10) *out++ = static_cast<char>('0' + v / 10);
            *out++ = static_cast<char>('0' + v % 10);
            if (i < 3) *out++ = '.';
        }
    } else if (family == 6) {
        std::memcpy(e.address, address, 16);
        if (with_port) *out++ = '[';
        inet_ntop(AF_INET6, address, out, 46);
        out += std::strlen(out);
        if (with_port) *out++ = ']';
    } else {
        std::memset(e.address, 0, 16);
    }
    if (family != 0 && with_port) out += std::snprintf(out, 7, ":%u", port);
    *out = '\0';
    e.text_size = static_cast<uint8_t>(out - e.text_data);
}

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP
