#include "capture_command.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "ZQSomeIPCapture.h"
#include "converter.h"

namespace someip_json {

namespace {

namespace cap = ZQSomeIP::capture;
using Clock = std::chrono::steady_clock;

void appendNumber(std::string& out, uint64_t v)
{
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof(digits), v).ptr);
}

// "offer-service" -> "offer_service": the line's words are JSON-friendly identifiers.
void appendWord(std::string& out, const char* word)
{
    out += '"';
    for (const char* p = word; *p != '\0'; ++p) {
        out += *p == '-' ? '_' : *p;
    }
    out += '"';
}

void appendMember(std::string& out, const char* key, uint64_t v)
{
    out += ",\"";
    out += key;
    out += "\":";
    appendNumber(out, v);
}

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
        app.add_flag("--classic", classic_, "Payloads in the library's classic form, on one line")->excludes(plain);
        app.add_flag("--quiet", quiet_, "No progress line on standard error");
        app.footer("Exit status: 0 success, 1 a failed load or a damaged capture, 2 bad arguments or unreadable "
                   "files.");
    }

    int run() override
    {
        formats_.apply();
        filter();
        converter_ = Converter::load(classic_ ? Form::Classic : Form::Plain, Layout::Compact, formats_.formats);
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
        file_ = files_.size() > 1 ? file : std::string();
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

    void time(std::string& out, const cap::Message& m)
    {
        if (m.seconds != cached_second_ || time_text_.empty()) {
            cached_second_ = m.seconds;
            const time_t t = static_cast<time_t>(m.seconds);
            struct tm parts;
            gmtime_r(&t, &parts);
            char text[32];
            strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &parts);
            time_text_ = text;
        }
        out += ",\"time\":\"";
        out += time_text_;
        // The fraction with as many digits as the file records.
        const uint32_t digits = m.time_digits > 9 ? 9 : m.time_digits;
        if (digits > 0) {
            char fraction[10];
            uint32_t value = m.nanoseconds;
            for (int i = 8; i >= 0; --i) {
                fraction[i] = static_cast<char>('0' + value % 10);
                value /= 10;
            }
            out += '.';
            out.append(fraction, digits);
        }
        out += "Z\"";
    }

    void header(std::string& out, const cap::Header& h)
    {
        appendMember(out, "service", h.service);
        appendMember(out, "method", h.method);
        appendMember(out, "length", h.length);
        appendMember(out, "client", h.client);
        appendMember(out, "session", h.session);
        appendMember(out, "protocol_version", h.protocol_version);
        appendMember(out, "interface_version", h.interface_version);
        appendMember(out, "message_type", h.message_type);
        appendMember(out, "return_code", h.return_code);
    }

    void sd(std::string& out, const cap::SdMessage& s)
    {
        out += ",\"sd\":{\"flags\":";
        appendNumber(out, s.flags);
        out += ",\"entries\":[";
        for (size_t i = 0; i < s.entries.size(); ++i) {
            const cap::SdEntry& e = s.entries[i];
            out += i ? ",{\"type\":" : "{\"type\":";
            appendWord(out, e.name());
            appendMember(out, "service", e.service);
            appendMember(out, "instance", e.instance);
            appendMember(out, "major", e.major);
            if (e.type == 0x00 || e.type == 0x01) {
                appendMember(out, "minor", e.minor);
            } else {
                appendMember(out, "eventgroup", e.eventgroup);
                appendMember(out, "counter", e.counter);
            }
            appendMember(out, "ttl", e.ttl);
            out += ",\"options\":[";
            for (size_t k = 0; k < e.options.size(); ++k) {
                if (k > 0) {
                    out += ',';
                }
                if (e.options[k] < s.options.size()) {
                    option(out, s.options[e.options[k]]);
                } else {
                    out += "null";
                }
            }
            out += "]}";
        }
        out += "]}";
    }

    void option(std::string& out, const cap::SdOption& o)
    {
        out += "{\"type\":";
        appendWord(out, o.name());
        if (o.endpoint.family != 0) {
            out += ",\"endpoint\":";
            appendJsonString(out, o.endpoint.text());
            out += ",\"protocol\":";
            out += o.l4_protocol == 0x06 ? "\"tcp\"" : o.l4_protocol == 0x11 ? "\"udp\"" : "null";
        } else if (o.type == 0x01) {
            out += ",\"items\":[";
            for (size_t i = 0; i < o.config.size(); ++i) {
                if (i > 0) {
                    out += ',';
                }
                appendJsonString(out, o.config[i]);
            }
            out += ']';
        } else if (o.type == 0x02) {
            appendMember(out, "priority", o.priority);
            appendMember(out, "weight", o.weight);
        }
        out += '}';
    }

    void line(const cap::Message& m)
    {
        std::string& out = line_;
        out.assign("{\"frame\":");
        appendNumber(out, m.frame);
        if (!file_.empty()) {
            out += ",\"file\":";
            appendJsonString(out, file_);
        }
        time(out, m);
        out += ",\"src\":";
        appendJsonString(out, m.source.text());
        out += ",\"dst\":";
        appendJsonString(out, m.destination.text());
        out += m.transport == cap::Transport::Tcp ? ",\"transport\":\"tcp\"" : ",\"transport\":\"udp\"";
        if (m.has_header) {
            header(out, m.header);
        }
        if (m.tp_segments > 0) {
            appendMember(out, "tp_segments", m.tp_segments);
        }
        if (!m.ok()) {
            out += ",\"error\":{\"code\":";
            appendWord(out, cap::errorName(m.error));
            appendMember(out, "offset", m.error_offset);
            out += ",\"message\":";
            appendJsonString(out, m.error_text);
            out += '}';
            if (m.payload_size > 0) {
                out += ",\"raw\":\"";
                appendHex(out, m.payload, m.payload_size);
                out += '"';
            }
            ++failed_[cap::errorName(m.error)];
        } else if (m.sd != nullptr) {
            sd(out, *m.sd);
            ++decoded_;
        } else {
            const Route route{m.header.service, m.header.method, m.header.message_type};
            payload_.assign(m.payload, m.payload + m.payload_size);
            Failure failure;
            if (converter_->decode(route, payload_, json_, failure)) {
                out += ",\"payload\":";
                out += json_;
                ++decoded_;
            } else {
                out += ",\"error\":";
                out += failure.json;
                out += ",\"raw\":\"";
                appendHex(out, m.payload, m.payload_size);
                out += '"';
                ++failed_[failure.code];
                if (failure.code == "unknown_message" || !converter_->hasFormat(route)) {
                    ++unknown_[(static_cast<uint32_t>(route.service) << 16) | static_cast<uint32_t>(route.method)];
                }
            }
        }
        out += "}\n";
        fwrite(out.data(), 1, out.size(), stdout);
        ++lines_;
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
        frames_ += s.frames;
        messages_ += s.messages;
        for (size_t i = 1; i < cap::kErrorCodeCount; ++i) {
            (void)i;  // capture-level errors are counted from the lines written
        }
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

    std::unique_ptr<Converter> converter_;
    std::string file_;
    std::string line_, json_;
    std::vector<uint8_t> payload_;
    int64_t cached_second_ = 0;
    std::string time_text_;
    bool progress_ = false;
    uint64_t tick_ = 0;
    Clock::time_point started_;
    double last_progress_ = 0;
    uint64_t frames_ = 0, messages_ = 0, lines_ = 0, decoded_ = 0;
    std::map<std::string, uint64_t> failed_;
    std::map<uint32_t, uint64_t> unknown_;
};

} // namespace

std::unique_ptr<Subcommand> makeCaptureCommand()
{
    return std::make_unique<CaptureCommand>();
}

} // namespace someip_json
