#include "capture_command.h"

#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "ZQSomeIPCapture.h"
#include "capture_lines.h"
#include "capture_pipeline.h"
#include "converter.h"
#include "interrupts.h"

namespace someip_json {

namespace {

namespace cap = ZQSomeIP::capture;
using Clock = std::chrono::steady_clock;
using capture_lines::CaptureLineWriter;
using capture_lines::DecodedPayload;
using capture_lines::LineOutcome;
using capture_lines::PayloadDecoder;
using capture_lines::PayloadFailure;
using capture_lines::PlainPayloadDecoder;

// The end of --duration: the live reader stops as on an interrupt, but the capture has ended normally,
// with what the reader holds reported.
void stopAtAlarm()
{
    struct sigaction action {};
    action.sa_handler = [](int) { stopReader(); };
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;  // as for interrupts (interrupts.cpp): the live reader's wait ends anyway
    sigaction(SIGALRM, &action, nullptr);
}

// The tool's classic converter as the lines' payload decoder (the plain form has its own).
class ConverterDecoder : public PayloadDecoder {
public:
    explicit ConverterDecoder(Converter& converter) : converter_(converter) {}

    bool decode(const cap::Header& header, const uint8_t* payload, size_t size, DecodedPayload& decoded,
                PayloadFailure& failure) override
    {
        const Route route{header.service, header.method, header.message_type};
        payload_.assign(payload, payload + size);
        Failure f;
        if (converter_.decode(route, payload_, decoded.json, f)) {
            decoded.warnings.clear();
            return true;
        }
        failure.json = std::move(f.json);
        failure.code = std::move(f.code);
        failure.unknown = failure.code == "unknown_message" || !converter_.hasFormat(route);
        return false;
    }

private:
    Converter& converter_;
    std::vector<uint8_t> payload_;
};

class CaptureCommand : public Subcommand {
public:
    const char* name() const override { return "capture"; }
    const char* summary() const override
    {
        return "Decode the SOME/IP messages of pcap or pcapng captures into JSON lines";
    }

    void define(CLI::App& app) override
    {
        CLI::Option* files = app.add_option("files", files_, "Capture files (pcap or pcapng); - for standard input");
        app.add_option("--interface", interface_, "Capture live from this network interface instead of files "
                                                  "(needs the privilege to capture)")
            ->excludes(files);
        app.add_option("--filter", capture_filter_, "Only frames this capture filter (libpcap's BPF expressions, "
                                                    "e.g. 'udp port 30490') accepts");
        app.add_option("--count", count_, "Stop after this many frames (after --filter)");
        app.add_option("--duration", duration_, "With --interface: stop after this many seconds")
            ->check(CLI::PositiveNumber);
        app.add_option("--jobs", jobs_, "Threads decoding payloads (default: the number of cores); lines stay in "
                                        "capture order. --classic and --interface decode on one thread")
            ->check(CLI::Range(1u, 1024u));
        app.parse_complete_callback([this] {
            if (files_.empty() && interface_.empty()) {
                throw CLI::RequiredError("files");
            }
            if (duration_ > 0 && interface_.empty()) {
                throw CLI::ValidationError("--duration", "needs --interface");
            }
        });
        formats_.define(app, "plain decoding also refuses bytes the format does not know");
        addPortOption(app, ports_);
        app.add_option("--service", service_, "Only messages of this service ID");
        app.add_option("--method", method_, "Only messages of this method or event ID");
        app.add_option("--type", type_, "Only messages of this message type (number or name)");
        app.add_option("--limit", limit_, "Stop after this many lines");
        auto* plain = app.add_flag("--plain", "Payloads in the plain JSON form (the default)");
        auto* classic = app.add_flag("--classic", classic_, "Payloads in the library's classic form, on one line");
        classic->excludes(plain);
        style_.define(app, true);
        for (CLI::Option* o : style_.options) {
            o->excludes(classic);
        }
        app.add_flag("--quiet", quiet_, "No progress line on standard error");
        app.footer("Exit status: 0 success, 1 a damaged capture or lines that failed to decode (unknown messages "
                   "included), 2 bad arguments or unreadable files, 130/143 interrupted (SIGINT/SIGTERM; 141 "
                   "when the reader of the output went away); --allow-failures turns 1 into 0; see docs/cli.md.");
    }

    int run() override
    {
        catchInterrupts();
        formats_.apply();
        filter();
        if (classic_) {
            converter_ = Converter::load(Form::Classic, Layout::Compact, formats_);
            decoder_ = std::make_unique<ConverterDecoder>(*converter_);
        } else {
            set_ = formats_.loadSet();
            plain_options_ = style_.apply(formats_.strict);
            decoder_ = std::make_unique<PlainPayloadDecoder>(*set_, plain_options_);
        }
        writer_ = std::make_unique<CaptureLineWriter>(*decoder_);
        const bool live = !interface_.empty();
        static char buffer[1 << 16];
        // Live lines are written as they come; file lines in large blocks.
        setvbuf(stdout, buffer, live ? _IOLBF : _IOFBF, sizeof(buffer));
        startPipeline(live);
        progress_ = !quiet_ && isatty(STDERR_FILENO) != 0;
        started_ = Clock::now();
        bool damaged = false;
        if (live) {
            damaged = !readLive();
        }
        for (const std::string& file : files_) {
            if ((limit_ != 0 && lines_ >= limit_) || interrupted()) {
                break;
            }
            damaged |= !read(file);
        }
        pipeline_.reset();
        fflush(stdout);
        summary();
        return damaged || lines_ > tally_.decoded ? kExitFailed : kExitOk;
    }

private:
    struct Filter {
        bool on = false;
        int value = 0;
    };

    void filter()
    {
        if (!service_.empty() && !parseId(service_, service_filter_.value)) {
            failUsage("--service: invalid service ID '" + service_ + "'");
        }
        if (!method_.empty() && !parseId(method_, method_filter_.value)) {
            failUsage("--method: invalid method ID '" + method_ + "'");
        }
        if (!type_.empty() && !parseMessageType(type_, type_filter_.value)) {
            failUsage("--type: invalid message type '" + type_ + "'");
        }
        service_filter_.on = !service_.empty();
        method_filter_.on = !method_.empty();
        type_filter_.on = !type_.empty();
    }

    bool selected(const cap::Message& m) const
    {
        if (!m.has_header) {
            return !service_filter_.on && !method_filter_.on && !type_filter_.on;
        }
        return (!service_filter_.on || m.header.service == service_filter_.value) &&
               (!method_filter_.on || m.header.method == method_filter_.value) &&
               (!type_filter_.on || m.header.message_type == type_filter_.value);
    }

    // Payloads are decoded on worker threads unless one job is asked for. The classic converter is not
    // safe to share between threads, and live traffic is written line by line as it comes.
    void startPipeline(bool live)
    {
        const unsigned jobs = jobs_ != 0 ? jobs_ : std::max(1u, std::thread::hardware_concurrency());
        if (jobs <= 1 || classic_ || live) {
            return;
        }
        const InterruptsHeld held;  // the workers leave interrupts to the reading thread
        pipeline_ = std::make_unique<someip_json::LinePipeline>(
            jobs, [this] { return std::make_unique<PlainPayloadDecoder>(*set_, plain_options_); }, stdout, tally_);
    }

    cap::Options readerOptions() const
    {
        cap::Options options;
        options.ports = ports_;
        options.filter = capture_filter_;
        options.max_frames = count_;
        return options;
    }

    // False when the capture is damaged (everything before the damage has been written).
    bool read(const std::string& file)
    {
        const auto reader = openCapture(file, readerOptions());
        if (reader == nullptr) {
            return true;  // interrupted before the capture began
        }
        const std::string name = files_.size() > 1 ? file : std::string();
        writer_->setFile(name);
        if (pipeline_) {
            pipeline_->setFile(name);
        }
        const StopOnInterrupt stop(*reader);
        return consume(*reader, file);
    }

    bool readLive()
    {
        std::string error;
        auto reader = cap::CaptureReader::openLive(interface_, readerOptions(), error);
        if (reader == nullptr) {
            fail(kExitUsage, error);
        }
        const StopOnInterrupt stop(*reader);
        if (duration_ > 0) {
            stopAtAlarm();
            itimerval timer{};
            timer.it_value.tv_sec = static_cast<time_t>(duration_);
            timer.it_value.tv_usec = static_cast<suseconds_t>((duration_ - static_cast<double>(timer.it_value.tv_sec)) * 1e6);
            setitimer(ITIMER_REAL, &timer, nullptr);
        }
        return consume(*reader, interface_, true);
    }

    // A live capture has no end but the one its user gives it, a signal as much as --duration: what
    // reassembly still holds then is reported (the stopped reader only yields that, so it is quick). A
    // file or pipe a signal cuts short is left there, its held pieces are no losses.
    bool consume(cap::CaptureReader& reader, const std::string& name, bool live = false)
    {
        cap::Message m;
        while ((live || !interrupted()) && reader.next(m)) {
            if (selected(m)) {
                line(m);
                if (limit_ != 0 && lines_ >= limit_) {
                    break;
                }
            }
            if (progress_ && (++tick_ & 0x3FF) == 0) {
                showProgress(reader);
            }
        }
        if (progress_) {
            // Cleared at the end; kept after an interrupt, with the summary below it.
            fputs(interrupted() ? "\n" : "\r\033[K", stderr);
        }
        if (pipeline_) {
            pipeline_->drain();
        }
        add(reader.status().stats);
        if (reader.status().failed) {
            fflush(stdout);
            fprintf(stderr, "someip-json: %s: %s\n", name.c_str(), reader.status().error.c_str());
            return false;
        }
        return true;
    }

    void line(const cap::Message& m)
    {
        ++lines_;
        if (pipeline_) {
            pipeline_->add(m);
            return;
        }
        line_.clear();
        const LineOutcome outcome = writer_->append(m, line_);
        line_ += '\n';
        fwrite(line_.data(), 1, line_.size(), stdout);
        tally_.add(outcome, m.header);
    }

    void showProgress(const cap::CaptureReader& reader)
    {
        const double elapsed = std::chrono::duration<double>(Clock::now() - started_).count();
        if (elapsed - last_progress_ < 0.25) {
            return;
        }
        last_progress_ = elapsed;
        const double rate = elapsed > 0 ? static_cast<double>(lines_) / elapsed : 0;
        const uint64_t size = reader.fileSize(), done = reader.bytesRead();
        if (size > 0 && done > 0) {
            const double left = elapsed * static_cast<double>(size - std::min(size, done)) / static_cast<double>(done);
            fprintf(stderr, "\r\033[K%.1f/%.1f MB, %llu messages, %.0f messages/s, %.0f s left", done / 1e6,
                    size / 1e6, static_cast<unsigned long long>(lines_), rate, left);
        } else {
            fprintf(stderr, "\r\033[K%.1f MB, %llu messages, %.0f messages/s", done / 1e6,
                    static_cast<unsigned long long>(lines_), rate);
        }
    }

    void add(const cap::Statistics& s)
    {
        // Capture-level errors are counted from the lines written, with the payload failures.
        frames_ += s.frames;
        messages_ += s.messages;
        cookies_ += s.magic_cookies;
    }

    void summary()
    {
        const double elapsed = std::chrono::duration<double>(Clock::now() - started_).count();
        fprintf(stderr, "someip-json: capture: %llu frames, %llu SOME/IP messages, %llu lines, %llu decoded, %llu "
                        "failed in %.2f s (%.0f lines/s)%s%s\n",
                static_cast<unsigned long long>(frames_), static_cast<unsigned long long>(messages_),
                static_cast<unsigned long long>(lines_), static_cast<unsigned long long>(tally_.decoded),
                static_cast<unsigned long long>(lines_ - tally_.decoded), elapsed,
                elapsed > 0 ? static_cast<double>(lines_) / elapsed : 0.0, brokenNote(formats_.broken).c_str(),
                interruptNote().c_str());
        if (tally_.warned > 0) {
            fprintf(stderr, "  decoded with warnings (bytes skipped): %llu\n", static_cast<unsigned long long>(tally_.warned));
        }
        if (cookies_ > 0) {
            fprintf(stderr, "  magic cookies (counted, not written): %llu\n", static_cast<unsigned long long>(cookies_));
        }
        for (const auto& reason : tally_.failed) {
            fprintf(stderr, "  failed, %s: %llu\n", reason.first.c_str(), static_cast<unsigned long long>(reason.second));
        }
        std::vector<std::pair<uint64_t, uint32_t>> unknown;
        for (const auto& pair : tally_.unknown) {
            unknown.emplace_back(pair.second, pair.first);
        }
        std::sort(unknown.begin(), unknown.end(), [](const auto& a, const auto& b) {
            return a.first != b.first ? a.first > b.first : a.second < b.second;
        });
        for (size_t i = 0; i < unknown.size() && i < 10; ++i) {
            fprintf(stderr, "  unknown service 0x%04x method 0x%04x: %llu\n", unknown[i].second >> 16,
                    unknown[i].second & 0xFFFF, static_cast<unsigned long long>(unknown[i].first));
        }
    }

    FormatsOptions formats_;
    std::vector<std::string> files_;
    std::vector<uint16_t> ports_;
    std::string service_, method_, type_;
    Filter service_filter_, method_filter_, type_filter_;
    uint64_t limit_ = 0;
    std::string interface_, capture_filter_;
    uint64_t count_ = 0;
    double duration_ = 0;
    unsigned jobs_ = 0;
    bool classic_ = false;
    bool quiet_ = false;
    PlainStyleOptions style_;

    std::unique_ptr<Converter> converter_;                       // classic form
    std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet> set_;     // plain form
    ZQSomeIP::ZQSomeIPPlainOptions plain_options_;
    std::unique_ptr<PayloadDecoder> decoder_;
    std::unique_ptr<CaptureLineWriter> writer_;
    std::unique_ptr<someip_json::LinePipeline> pipeline_;       // several jobs
    std::string line_;
    bool progress_ = false;
    uint64_t tick_ = 0;
    Clock::time_point started_;
    double last_progress_ = 0;
    uint64_t frames_ = 0, messages_ = 0, lines_ = 0, cookies_ = 0;
    someip_json::LineTally tally_;
};

} // namespace

std::unique_ptr<Subcommand> makeCaptureCommand()
{
    return std::make_unique<CaptureCommand>();
}

} // namespace someip_json
