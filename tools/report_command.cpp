#include "report_command.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "ZQSomeIPCapture.h"
#include "converter.h"
#include "interrupts.h"
#include "report_html.h"
#include "report_model.h"

namespace someip_json {

namespace {

namespace cap = ZQSomeIP::capture;
using Clock = std::chrono::steady_clock;

// SERVICE.METHOD.PATH: the first two by ID (as parseId reads it) or by name; the path keeps its dots.
report::SignalChoice parseSignal(const std::string& text)
{
    const size_t first = text.find('.');
    const size_t second = first == std::string::npos ? first : text.find('.', first + 1);
    if (second == std::string::npos || first == 0 || second == first + 1 || second + 1 == text.size()) {
        failUsage("--signal: expected SERVICE.METHOD.PATH, got '" + text + "'");
    }
    report::SignalChoice c;
    const std::string service = text.substr(0, first), method = text.substr(first + 1, second - first - 1);
    if (!parseId(service, c.service_id)) {
        c.service_id = -1;
        c.service_name = service;
    }
    if (!parseId(method, c.method_id)) {
        c.method_id = -1;
        c.method_name = method;
    }
    c.path = text.substr(second + 1);
    return c;
}

class ReportCommand : public Subcommand {
public:
    const char* name() const override { return "report"; }
    const char* summary() const override
    {
        return "Summarise pcap or pcapng captures in one self-contained HTML page";
    }

    void define(CLI::App& app) override
    {
        app.add_option("files", files_, "Capture files (pcap or pcapng); - for standard input")->required();
        formats_.define(app);
        app.add_option("-o,--output", output_, "The HTML file to write")->required()->type_name("FILE");
        addPortOption(app, ports_);
        app.add_option("--signal", signals_, "Plot this value: SERVICE.METHOD.PATH, service and method by ID or "
                                             "name (repeatable); default: every numeric value")
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        app.add_option("--max-signals", max_signals_, "Plot at most this many values (default 50)");
        app.add_flag("--quiet", quiet_, "No summary line on standard error");
        app.footer("Exit status: 0 success, 1 a damaged capture or messages that failed to decode (the report is "
                   "written all the same), 2 bad arguments or unreadable files, 130/143 interrupted (SIGINT/SIGTERM); "
                   "--allow-failures turns 1 into 0; see docs/cli.md.");
    }

    int run() override
    {
        catchInterrupts();
        formats_.apply();
        report::ReportOptions options;
        for (const std::string& s : signals_) {
            options.signals.push_back(parseSignal(s));
        }
        options.max_signals = max_signals_;
        const auto set = formats_.loadSet();
        const Clock::time_point started = Clock::now();
        report::ReportBuilder builder(*set, options);
        bool damaged = false;
        // Interrupted, the report covers what was read by then.
        for (size_t i = 0; i < files_.size() && !interrupted(); ++i) {
            damaged |= !read(files_[i], builder);
        }
        std::string page;
        report::writeHtml(builder.report(), page);
        writeText(output_, page);
        for (size_t i = 0; i < signals_.size(); ++i) {
            if (!builder.report().choices_matched[i]) {
                fprintf(stderr, "someip-json: warning: --signal %s: no such value in the decoded messages\n",
                        signals_[i].c_str());
            }
        }
        if (!quiet_) {
            summary(builder.report(), std::chrono::duration<double>(Clock::now() - started).count());
        }
        const report::Summary& s = builder.report().summary;
        return damaged || s.records > s.decoded ? kExitFailed : kExitOk;
    }

private:
    // False when the capture is damaged (what came before the damage is in the report).
    bool read(const std::string& file, report::ReportBuilder& builder)
    {
        cap::Options options;
        options.ports = ports_;
        const auto reader = openCapture(file, options);
        if (reader == nullptr) {
            return true;  // interrupted before the capture began
        }
        const StopOnInterrupt stop(*reader);
        cap::Message m;
        while (!interrupted() && reader->next(m)) {
            builder.add(m);
        }
        builder.addFile(file, reader->status());
        if (reader->status().failed) {
            fprintf(stderr, "someip-json: %s: %s\n", file.c_str(), reader->status().error.c_str());
            return false;
        }
        return true;
    }

    void summary(const report::Report& r, double elapsed) const
    {
        const report::Summary& s = r.summary;
        // Records are the messages and the capture's error records (a TCP hole, missing fragments), as
        // capture's lines are: what is decoded or failed adds up to them.
        fprintf(stderr, "someip-json: report: %llu SOME/IP messages, %llu records, %llu decoded, %llu failed, "
                        "%zu signals in %.2f s; written to %s%s%s\n",
                static_cast<unsigned long long>(s.stats.messages), static_cast<unsigned long long>(s.records),
                static_cast<unsigned long long>(s.decoded),
                static_cast<unsigned long long>(s.records - s.decoded), r.signals.size(), elapsed, output_.c_str(),
                brokenNote(formats_.broken).c_str(), interruptNote().c_str());
    }

    FormatsOptions formats_;
    std::vector<std::string> files_;
    std::string output_;
    std::vector<uint16_t> ports_;
    std::vector<std::string> signals_;
    size_t max_signals_ = 50;
    bool quiet_ = false;
};

} // namespace

std::unique_ptr<Subcommand> makeReportCommand()
{
    return std::make_unique<ReportCommand>();
}

} // namespace someip_json
