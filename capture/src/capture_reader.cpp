// The capture reader: frames in, records out. The layers do the work (layers.h); the reader feeds them
// frame by frame, times out what they keep, and empties them when the capture ends.
#include "layers.h"

namespace ZQSomeIP {
namespace capture {

using detail::Context;

struct __attribute__((visibility("hidden"))) CaptureReader::Impl {
    Impl(const Options& o, std::unique_ptr<detail::FrameSource> s)
        : options(o), source(std::move(s)), context(status, options.limits), sd(context), someip(context, sd, options),
          transport(context, someip, options), ip(context, transport, options.limits), link(context, ip)
    {
    }

    void frame(const detail::Frame& f)
    {
        if (context.startFrame(f)) {
            ip.expire(false);
            transport.expire();
            someip.expire(false);
            context.setExpiry(std::min({ip.nextExpiry(), transport.nextExpiry(), someip.nextExpiry()}));
        }
        link.frame(f);
        context.settle(std::min({ip.pendingFrame(), transport.pendingFrame(), someip.pendingFrame()}));
    }

    // The capture has ended: whatever is still kept is reported, lowest layer first.
    void flush()
    {
        ip.expire(true);
        transport.flush();
        someip.expire(true);
        context.settle(UINT64_MAX);
    }

    // No further frame is to be read: stopped, or as many frames read as asked for.
    bool enough() const
    {
        return stop.load(std::memory_order_relaxed) ||
               (options.max_frames != 0 && status.stats.frames >= options.max_frames);
    }

    const Options options;
    std::unique_ptr<detail::FrameSource> source;  // set once; null only while a live reader is opened
    Status status;
    bool ended = false;
    std::atomic<bool> stop{false};

    Context context;
    detail::SdLayer sd;
    detail::SomeIpLayer someip;
    detail::TransportLayer transport;
    detail::IpLayer ip;
    detail::LinkLayer link;
};

CaptureReader::CaptureReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
CaptureReader::~CaptureReader() = default;

std::unique_ptr<CaptureReader> CaptureReader::open(const std::string& path, const Options& options, std::string& error)
{
    auto impl = std::make_unique<Impl>(options, nullptr);
    impl->source = detail::openFrameSource(path, impl->stop, error);
    if (impl->source && !options.filter.empty())
        impl->source = detail::filterFrames(std::move(impl->source), options.filter, error);
    if (!impl->source) return nullptr;
    return std::unique_ptr<CaptureReader>(new CaptureReader(std::move(impl)));
}

std::unique_ptr<CaptureReader> CaptureReader::openLive(const std::string& interface, const Options& options,
                                                       std::string& error)
{
    auto impl = std::make_unique<Impl>(options, nullptr);
    impl->source = detail::openLiveSource(interface, options.filter, impl->stop, error);
    if (!impl->source) return nullptr;
    return std::unique_ptr<CaptureReader>(new CaptureReader(std::move(impl)));
}

void CaptureReader::stop() { impl_->stop.store(true, std::memory_order_relaxed); }

bool CaptureReader::next(Message& out)
{
    Impl& i = *impl_;
    while (!i.context.take(out)) {
        if (i.ended) return false;
        i.context.clear();
        i.sd.clear();
        detail::Frame f;
        const int r = i.enough() ? 0 : i.source->next(f);
        if (r == 1) {
            i.frame(f);
            continue;
        }
        // A read cut short by stop() may leave a frame unfinished: that is the stop, not damage.
        if (r < 0 && !i.stop.load(std::memory_order_relaxed)) {
            i.status.failed = true;
            i.status.error = i.source->error();
        }
        i.flush();
        i.ended = true;
    }
    return true;
}

const Status& CaptureReader::status() const { return impl_->status; }
uint64_t CaptureReader::bytesRead() const { return impl_->source->bytesRead(); }
uint64_t CaptureReader::fileSize() const { return impl_->source->fileSize(); }

}  // namespace capture
}  // namespace ZQSomeIP
