#include "capture_command.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "ZQSomeIPCapture.h"
#include "capture_lines.h"
#include "converter.h"

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
        app.add_option("files", files_, "Capture files (pcap or pcapng); - for standard input")->required();
        formats_.define(app);
        app.add_option("--port", ports_, "UDP/TCP port carrying SOME/IP (repeatable); default: any port whose "
                                         "datagrams have consistent SOME/IP headers")
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
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
        app.footer("Exit status: 0 success, 1 a failed load or a damaged capture, 2 bad arguments or unreadable "
                   "files.");
    }

    int run() override
    {
        formats_.apply();
        filter();
        if (classic_) {
            converter_ = Converter::load(Form::Classic, Layout::Compact, formats_.formats);
            decoder_ = std::make_unique<ConverterDecoder>(*converter_);
        } else {
            set_ = loadFormatSet(formats_.formats);
            decoder_ = std::make_unique<PlainPayloadDecoder>(*set_, style_.apply());
        }
        writer_ = std::make_unique<CaptureLineWriter>(*decoder_);
        static char buffer[1 << 16];
        setvbuf(stdout, buffer, _IOFBF, sizeof(buffer));
        progress_ = !quiet_ && isatty(STDERR_FILENO) != 0;
        started_ = Clock::now();
        bool damaged = false;
        for (const std::string& file : files_) {
            if (limit_ != 0 && lines_ >= limit_) {
                break;
            }
            damaged |= !read(file);
        }
        fflush(stdout);
        summary();
        return damaged ? kExitFailed : kExitOk;
    }

private:
    struct Filter {
        bool on = false;
        int value = 0;
    };

    void filter()
    {
        if (!service_.empty() && !parseId(service_, service_filter_.value)) {
            fail(kExitUsage, "--service: invalid service ID '" + service_ + "'");
        }
        if (!method_.empty() && !parseId(method_, method_filter_.value)) {
            fail(kExitUsage, "--method: invalid method ID '" + method_ + "'");
        }
        if (!type_.empty() && !parseMessageType(type_, type_filter_.value)) {
            fail(kExitUsage, "--type: invalid message type '" + type_ + "'");
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

    // False when the capture is damaged (everything before the damage has been written).
    bool read(const std::string& file)
    {
        std::string error;
        cap::Options options;
        options.ports = ports_;
        auto reader = cap::CaptureReader::open(file, options, error);
        if (reader == nullptr) {
            fail(kExitUsage, file + ": " + error);
        }
        writer_->setFile(files_.size() > 1 ? file : std::string());
        cap::Message m;
        while (reader->next(m)) {
            if (selected(m)) {
                line(m);
                if (limit_ != 0 && lines_ >= limit_) {
                    break;
                }
            }
            if (progress_ && (++tick_ & 0x3FF) == 0) {
                showProgress(*reader);
            }
        }
        if (progress_) {
            fputs("\r\033[K", stderr);
        }
        add(reader->status().stats);
        if (reader->status().failed) {
            fflush(stdout);
            fprintf(stderr, "someip-json: %s: %s\n", file.c_str(), reader->status().error.c_str());
            return false;
        }
        return true;
    }

    void line(const cap::Message& m)
    {
        line_.clear();
        const LineOutcome outcome = writer_->append(m, line_);
        line_ += '\n';
        fwrite(line_.data(), 1, line_.size(), stdout);
        ++lines_;
        if (outcome.decoded) {
            ++decoded_;
            warned_ += outcome.warned ? 1 : 0;
            return;
        }
        ++failed_[std::string(outcome.failure)];
        if (outcome.unknown_message) {
            ++unknown_[(static_cast<uint32_t>(m.header.service) << 16) | static_cast<uint32_t>(m.header.method)];
        }
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
    }

    void summary()
    {
        const double elapsed = std::chrono::duration<double>(Clock::now() - started_).count();
        fprintf(stderr, "someip-json: capture: %llu frames, %llu SOME/IP messages, %llu lines, %llu decoded, %llu "
                        "failed in %.2f s (%.0f lines/s)\n",
                static_cast<unsigned long long>(frames_), static_cast<unsigned long long>(messages_),
                static_cast<unsigned long long>(lines_), static_cast<unsigned long long>(decoded_),
                static_cast<unsigned long long>(lines_ - decoded_), elapsed,
                elapsed > 0 ? static_cast<double>(lines_) / elapsed : 0.0);
        if (warned_ > 0) {
            fprintf(stderr, "  decoded with warnings (bytes skipped): %llu\n", static_cast<unsigned long long>(warned_));
        }
        for (const auto& reason : failed_) {
            fprintf(stderr, "  failed, %s: %llu\n", reason.first.c_str(), static_cast<unsigned long long>(reason.second));
        }
        std::vector<std::pair<uint64_t, uint32_t>> unknown;
        for (const auto& pair : unknown_) {
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
    bool classic_ = false;
    bool quiet_ = false;
    PlainStyleOptions style_;

    std::unique_ptr<Converter> converter_;                       // classic form
    std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet> set_;     // plain form
    std::unique_ptr<PayloadDecoder> decoder_;
    std::unique_ptr<CaptureLineWriter> writer_;
    std::string line_;
    bool progress_ = false;
    uint64_t tick_ = 0;
    Clock::time_point started_;
    double last_progress_ = 0;
    uint64_t frames_ = 0, messages_ = 0, lines_ = 0, decoded_ = 0, warned_ = 0;
    std::map<std::string, uint64_t> failed_;
    std::map<uint32_t, uint64_t> unknown_;
};

} // namespace

std::unique_ptr<Subcommand> makeCaptureCommand()
{
    return std::make_unique<CaptureCommand>();
}

} // namespace someip_json
