#include "formats_command.h"

#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace someip_json {

namespace {

using ZQSomeIP::ZQSomeIPFormatEntry;
using ZQSomeIP::ZQSomeIPFormatService;

std::string hexId(int id, int digits)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%0*x", digits, static_cast<unsigned>(id));
    return text;
}

class FormatsCommand : public Subcommand {
public:
    const char* name() const override { return "formats"; }
    const char* summary() const override { return "List what a format tree holds, and its broken files"; }

    void define(CLI::App& app) override
    {
        app.add_option("path", formats_.formats, "Format description file, or a directory tree of them")
            ->required()
            ->type_name("PATH");
        app.add_flag("--json", json_, "One JSON document instead of text");
        app.footer("Exit status: 0 every file loads, 1 some files are broken (listed), 2 no format file there.");
    }

    int run() override
    {
        const auto report = formats_.report(true, false);
        std::string out = json_ ? asJson(report) : asText(report);
        fwrite(out.data(), 1, out.size(), stdout);
        if (fflush(stdout) != 0) {
            fail(kExitFailed, "cannot write standard output");
        }
        return report.broken.empty() ? kExitOk : kExitFailed;
    }

private:
    static std::string asText(const ZQSomeIP::ZQSomeIPFormatLoadReport& report)
    {
        std::string out;
        const std::string* file = nullptr;
        for (const ZQSomeIPFormatService& s : report.services) {
            if (file == nullptr || *file != s.file) {
                file = &s.file;
                out += s.file + "\n";
            }
            out += "  service " + hexId(s.id, 4) + " (" + std::to_string(s.id) + ")";
            out += s.name.empty() ? "" : " " + s.name;
            out += s.majorVersion < 0 ? "" : ", major version " + std::to_string(s.majorVersion);
            out += "\n";
            for (const ZQSomeIPFormatEntry& e : s.entries) {
                out += "    " + e.kind + " " + hexId(e.id, 4) + " (" + std::to_string(e.id) + ")";
                out += (e.name.empty() ? "" : " " + e.name) + ":";
                const char* separator = " ";
                for (const ZQSomeIPFormatEntry::Lookup& l : e.lookups) {
                    out += separator + std::string(messageTypeName(l.messageType)) + " " + hexId(l.messageType, 2);
                    // A field's notification is found by its event ID.
                    out += l.id == e.id ? "" : " at " + hexId(l.id, 4) + " (" + std::to_string(l.id) + ")";
                    separator = ", ";
                }
                out += "\n";
            }
        }
        for (const auto& b : report.broken) {
            out += b.file + ": broken: " + b.message + "\n";
        }
        out += std::to_string(report.files.size()) + (report.files.size() == 1 ? " file, " : " files, ") +
               std::to_string(report.services.size()) + (report.services.size() == 1 ? " service, " : " services, ") +
               std::to_string(report.broken.size()) + " broken\n";
        return out;
    }

    static std::string asJson(const ZQSomeIP::ZQSomeIPFormatLoadReport& report)
    {
        std::string out = "{\"files\":[";
        for (const std::string& f : report.files) {
            out += &f == &report.files.front() ? "" : ",";
            appendJsonString(out, f);
        }
        out += "],\"services\":[";
        for (const ZQSomeIPFormatService& s : report.services) {
            out += &s == &report.services.front() ? "{\"file\":" : ",{\"file\":";
            appendJsonString(out, s.file);
            out += ",\"id\":" + std::to_string(s.id) + ",\"id_hex\":\"" + hexId(s.id, 4) + "\",\"name\":";
            appendJsonString(out, s.name);
            out += s.majorVersion < 0 ? "" : ",\"major_version\":" + std::to_string(s.majorVersion);
            out += ",\"entries\":[";
            for (const ZQSomeIPFormatEntry& e : s.entries) {
                out += &e == &s.entries.front() ? "{" : ",{";
                out += "\"kind\":\"" + e.kind + "\",\"id\":" + std::to_string(e.id) + ",\"id_hex\":\"" + hexId(e.id, 4) +
                       "\",\"name\":";
                appendJsonString(out, e.name);
                out += ",\"message_types\":[";
                for (const ZQSomeIPFormatEntry::Lookup& l : e.lookups) {
                    out += &l == &e.lookups.front() ? "{\"name\":\"" : ",{\"name\":\"";
                    out += std::string(messageTypeName(l.messageType)) + "\",\"type\":" + std::to_string(l.messageType) +
                           ",\"id\":" + std::to_string(l.id) + ",\"id_hex\":\"" + hexId(l.id, 4) + "\"}";
                }
                out += "]}";
            }
            out += "]}";
        }
        out += "],\"broken\":[";
        for (const auto& b : report.broken) {
            out += &b == &report.broken.front() ? "{\"file\":" : ",{\"file\":";
            appendJsonString(out, b.file);
            out += ",\"message\":";
            appendJsonString(out, b.message);
            out += "}";
        }
        out += "]}\n";
        return out;
    }

    FormatsOptions formats_;
    bool json_ = false;
};

} // namespace

std::unique_ptr<Subcommand> makeFormatsCommand()
{
    return std::make_unique<FormatsCommand>();
}

} // namespace someip_json
