// Live interfaces through libpcap, and capture filters over any frame source.
#include <pcap/pcap.h>
#include <poll.h>

#include <map>

#include "capture_internal.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {
namespace {

constexpr int kSnapLength = 262144;

// Compiles `filter` for frames of `link` (with its link headers). False with `error` set when it does not.
bool compileFilter(const std::string& filter, uint32_t link, bpf_program& program, std::string& error)
{
    // Files name raw IP by its file link type; libpcap's compiler knows it by its own number.
    pcap_t* dead = pcap_open_dead(link == kLinkRaw ? DLT_RAW : static_cast<int>(link), kSnapLength);
    if (dead == nullptr) {
        error = "cannot compile the filter";
        return false;
    }
    const bool ok = pcap_compile(dead, &program, filter.c_str(), 1, PCAP_NETMASK_UNKNOWN) == 0;
    if (!ok) error = std::string("filter '") + filter + "': " + pcap_geterr(dead);
    pcap_close(dead);
    return ok;
}

class LiveSource : public FrameSource {
public:
    LiveSource(pcap_t* pcap, uint8_t digits, const std::atomic<bool>& stop) : pcap_(pcap), digits_(digits), stop_(stop)
    {
        const int dlt = pcap_datalink(pcap_);
        link_ = dlt < 0 ? 0xFFFFFFFFu : static_cast<uint32_t>(dlt);
    }
    ~LiveSource() override { pcap_close(pcap_); }

    int next(Frame& f) override
    {
        while (!stop_.load(std::memory_order_relaxed)) {
            pcap_pkthdr* h = nullptr;
            const u_char* d = nullptr;
            const int r = pcap_next_ex(pcap_, &h, &d);
            if (r == 1) {
                f = Frame{++number_, h->ts.tv_sec, static_cast<uint32_t>(h->ts.tv_usec), digits_, link_, d, h->caplen, h->len};
                bytes_ += h->caplen;
                return 1;
            }
            if (r == PCAP_ERROR_BREAK) return 0;
            if (r != 0) {
                error_ = std::string("capture failed after frame ") + std::to_string(number_) + ": " + pcap_geterr(pcap_);
                return -1;
            }
            // Nothing yet (non-blocking): wait for the interface, a signal or the next look at the flag.
            pollfd p{pcap_get_selectable_fd(pcap_), POLLIN, 0};
            ::poll(&p, 1, kPollMs);
        }
        return 0;
    }

    uint64_t bytesRead() const override { return bytes_; }

private:
    pcap_t* pcap_;
    uint8_t digits_;
    const std::atomic<bool>& stop_;
    uint32_t link_ = 0;
    uint64_t number_ = 0, bytes_ = 0;
};

// Configures and activates `p`; false with `error` set when the interface refuses.
bool activate(pcap_t* p, const std::string& interface, const std::string& filter, uint8_t& digits, std::string& error)
{
    pcap_set_snaplen(p, kSnapLength);
    pcap_set_immediate_mode(p, 1);  // frames as they come: a test bench watches the lines live
    digits = pcap_set_tstamp_precision(p, PCAP_TSTAMP_PRECISION_NANO) == 0 ? 9 : 6;
    const int r = pcap_activate(p);
    if (r < 0) {
        error = interface + ": " + (r == PCAP_ERROR ? pcap_geterr(p) : pcap_statustostr(r));
        if (r == PCAP_ERROR_PERM_DENIED || r == PCAP_ERROR_NO_SUCH_DEVICE) error += std::string(" (") + pcap_geterr(p) + ")";
        return false;
    }
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    if (pcap_setnonblock(p, 1, errbuf) != 0 || pcap_get_selectable_fd(p) < 0) {
        error = interface + ": cannot read without blocking: " + errbuf;
        return false;
    }
    if (filter.empty()) return true;
    bpf_program program{};
    if (pcap_compile(p, &program, filter.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0) {
        error = std::string("filter '") + filter + "': " + pcap_geterr(p);
        return false;
    }
    const bool set = pcap_setfilter(p, &program) == 0;
    if (!set) error = interface + ": cannot set the filter: " + pcap_geterr(p);
    pcap_freecode(&program);
    return set;
}

// Frames of another source that pass a filter, compiled once per link type as they appear.
class FilteredSource : public FrameSource {
public:
    FilteredSource(std::unique_ptr<FrameSource> source, std::string filter) : source_(std::move(source)), filter_(std::move(filter)) {}
    ~FilteredSource() override
    {
        for (auto& entry : programs_) pcap_freecode(&entry.second.program);
    }

    // Checks that the filter compiles at all (for Ethernet, what most captures hold).
    bool check(std::string& error) { return program(kLinkEthernet, error) != nullptr; }

    int next(Frame& f) override
    {
        for (;;) {
            const int r = source_->next(f);
            if (r != 1) {
                error_ = source_->error();
                return r;
            }
            std::string ignored;
            const bpf_program* p = program(f.link_type, ignored);
            pcap_pkthdr h{};
            h.caplen = f.captured;
            h.len = f.original;
            // A filter that does not apply to a link type (ether host on raw IP) passes none of its frames.
            if (p != nullptr && pcap_offline_filter(p, &h, f.data) != 0) return 1;
        }
    }

    uint64_t bytesRead() const override { return source_->bytesRead(); }

private:
    struct Compiled {
        bool ok = false;
        bpf_program program{};
    };

    const bpf_program* program(uint32_t link, std::string& error)
    {
        auto found = programs_.find(link);
        if (found == programs_.end()) {
            found = programs_.emplace(link, Compiled()).first;
            found->second.ok = compileFilter(filter_, link, found->second.program, error);
        }
        return found->second.ok ? &found->second.program : nullptr;
    }

    std::unique_ptr<FrameSource> source_;
    std::string filter_;
    std::map<uint32_t, Compiled> programs_;
};

}  // namespace

std::unique_ptr<FrameSource> openLiveSource(const std::string& interface, const std::string& filter,
                                            const std::atomic<bool>& stop, std::string& error)
{
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    pcap_t* p = pcap_create(interface.c_str(), errbuf);
    if (p == nullptr) {
        error = interface + ": " + errbuf;
        return nullptr;
    }
    uint8_t digits = 6;
    if (!activate(p, interface, filter, digits, error)) {
        pcap_close(p);
        return nullptr;
    }
    return std::make_unique<LiveSource>(p, digits, stop);
}

std::unique_ptr<FrameSource> filterFrames(std::unique_ptr<FrameSource> source, const std::string& filter, std::string& error)
{
    auto filtered = std::make_unique<FilteredSource>(std::move(source), filter);
    if (!filtered->check(error)) return nullptr;
    return filtered;
}

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP
