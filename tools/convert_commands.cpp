#include "convert_commands.h"

#include <iostream>

#include <CLI/CLI.hpp>
#include <json/json.h>

#include "ZQSomeIPParserAPI.h"
#include "converter.h"
#include "stream.h"

namespace someip_json {

namespace {

// What every subcommand about one named message shares.
class MessageCommand : public Subcommand {
protected:
    static std::string noFormat(const Route& r)
    {
        return ZQSomeIP::plainUnknownMessageText(r.service, r.method, r.type);
    }

    FormatsOptions formats_;
    RouteOptions route_;
};

class FormatCommand : public MessageCommand {
public:
    const char* name() const override { return "format"; }
    const char* summary() const override { return "Print the method format (parameter list) of a message"; }

    void define(CLI::App& app) override
    {
        formats_.define(app);
        route_.define(app);
        app.footer("Exit status: 0 success, 1 no format for the message, 2 bad arguments or unreadable formats; "
                   "see docs/cli.md.");
    }

    int run() override
    {
        formats_.apply();
        const Route r = route_.route();
        ZQSomeIP::ZQSomeIPParserAPI api;
        loadClassic(api, formats_);
        std::string format;
        if (api.getMethodFormatbyID(r.service, r.method, r.type, format) != 0) {
            fail(kExitFailed, noFormat(r));
        }
        std::cout << format;
        std::cout.flush();
        return std::cout ? kExitOk : kExitFailed;
    }
};

// decode and encode: the same options but for where the single input comes from.
class ConvertCommand : public MessageCommand {
public:
    explicit ConvertCommand(Direction direction) : direction_(direction) {}

    const char* name() const override { return direction_ == Direction::Decode ? "decode" : "encode"; }
    const char* summary() const override
    {
        return direction_ == Direction::Decode ? "Convert a payload (hex text) to JSON"
                                               : "Convert JSON to a payload (hex text)";
    }

    void define(CLI::App& app) override
    {
        const bool decode = direction_ == Direction::Decode;
        formats_.define(app, decode ? "plain decoding also refuses bytes the format does not know "
                                      "(trailing_bytes, length_mismatch) instead of skipping them with a warning"
                                    : nullptr);
        route_.define(app);
        if (decode) {
            input_ = app.add_option("--payload", payload_,
                                    "Payload as hex text, blanks between bytes allowed; default: standard input");
            input_->type_name("HEX");
        } else {
            input_ = app.add_option("--json", jsonFile_, "File holding the JSON document; default: standard input");
            input_->type_name("FILE");
        }
        CLI::Option* plain = app.add_flag("--plain", "Plain JSON: {\"name\":value,...}, strictly checked (the default)");
        CLI::Option* classic = app.add_flag("--classic", classic_, "The library's parameter-list documents");
        plain->excludes(classic);
        style_.define(app, decode);
        for (CLI::Option* o : style_.options) {
            if (o != nullptr) {
                o->excludes(classic);
            }
        }
        const char* const noLayout = "Accepted as decode takes it; encode writes hex";
        CLI::Option* compact =
            app.add_flag("--compact", compact_, decode ? "JSON on one line (plain JSON's default)" : noLayout);
        const char* const prettyHelp = "Plain JSON indented, one member per line (classic is styled unless --compact)";
        CLI::Option* pretty = app.add_flag("--pretty", pretty_, decode ? prettyHelp : noLayout);
        compact->excludes(pretty);
        const std::string streamHelp = "One message per line of FILE (- for standard input): SERVICE METHOD TYPE ";
        stream_ = app.add_option("--stream", streamFile_, streamHelp + (decode ? "HEX" : "JSON"));
        stream_->type_name("FILE");
        // Stream lines name their messages, and come out one per line.
        stream_->excludes(input_);
        stream_->excludes(pretty);
        for (CLI::Option* o : route_.options) {
            stream_->excludes(o);
        }
        app.footer(std::string("Stream mode loads the formats once and writes one line per message: ") +
                   (decode ? "compact JSON" : "lowercase hex") +
                   ",\nor {\"error\":{\"code\":...,\"message\":...}} for a message that failed, then a summary on "
                   "standard error.\nBlank lines and lines opening with # are skipped.\n" +
                   (decode ? "Bytes a plain decode skips are reported on standard error, one line per message "
                             "(with its line number in a stream);\nthey do not change the exit status.\n"
                           : "") +
                   "Exit status: 0 success, 1 a failed conversion (of any message of a stream), 2 bad arguments\n"
                   "or unreadable input, 130/143 interrupted (a stream, by SIGINT/SIGTERM; 141 when the reader\n"
                   "of the output went away); --allow-failures turns 1 into 0; see docs/cli.md.");
    }

    int run() override
    {
        formats_.apply();
        const Form form = classic_ ? Form::Classic : Form::Plain;
        const auto options = style_.apply(formats_.strict);
        const Layout layout = pretty_ ? Layout::Pretty : compact_ ? Layout::Compact : Layout::Default;
        if (stream_->count() > 0) {
            // A stream's lines are one message each, so its JSON is always compact.
            const auto converter = Converter::load(form, Layout::Compact, formats_, options);
            return runStream(*converter, direction_, streamFile_, formats_.broken);
        }
        const Route r = route_.route();
        return direction_ == Direction::Decode ? decode(r, form, layout, options) : encode(r, form, options);
    }

private:
    int decode(const Route& r, Form form, Layout layout, const ZQSomeIP::ZQSomeIPPlainOptions& options)
    {
        // The input is read before the library is touched, so that input errors are reported as such.
        std::string text = payload_;
        if (input_->count() == 0) {
            text = readAll(std::cin);
            refuseSeveralPayloads(text);
        }
        std::vector<uint8_t> payload;
        std::string why;
        if (!parseHex(text, payload, why)) {
            fail(kExitUsage, why);
        }
        const auto converter = Converter::load(form, layout, formats_, options);
        if (form == Form::Classic && !converter->hasFormat(r)) {
            fail(kExitFailed, noFormat(r));
        }
        std::string json;
        Failure failure;
        if (!converter->decode(r, payload, json, failure)) {
            fail(kExitFailed, failure.text);
        }
        if (!converter->warnings().empty()) {
            std::cerr << "someip-json: " << warningText(converter->warnings()) << "\n";
        }
        if (json.empty() || json.back() != '\n') {
            json += '\n';
        }
        return print(json);
    }

    int encode(const Route& r, Form form, const ZQSomeIP::ZQSomeIPPlainOptions& options)
    {
        const std::string json = input_->count() == 0 ? readAll(std::cin) : readFile(jsonFile_, "JSON file");
        if (form == Form::Classic) {
            // The classic writer says only that it failed; bad JSON is the user's to fix, so say so.
            Json::Value parsed;
            Json::Reader reader;
            if (!reader.parse(json, parsed, false)) {
                fail(kExitUsage, "invalid JSON input");
            }
        }
        const auto converter = Converter::load(form, Layout::Default, formats_, options);
        if (form == Form::Classic && !converter->hasFormat(r)) {
            fail(kExitFailed, noFormat(r));
        }
        std::vector<uint8_t> payload;
        Failure failure;
        if (!converter->encode(r, json, payload, failure)) {
            fail(kExitFailed, failure.text);
        }
        std::string hex;
        appendHex(hex, payload.data(), payload.size());
        return print(hex + '\n');
    }

    // Several non-blank lines are several payloads; joining them into one would decode garbage.
    static void refuseSeveralPayloads(const std::string& text)
    {
        size_t payloads = 0;
        size_t start = 0;
        while (start <= text.size()) {
            size_t end = text.find('\n', start);
            if (end == std::string::npos) {
                end = text.size();
            }
            if (text.find_first_not_of(" \t\r\v\f", start) < end) {
                ++payloads;
            }
            start = end + 1;
        }
        if (payloads > 1) {
            fail(kExitUsage, "standard input holds " + std::to_string(payloads) +
                                 " payloads (non-blank lines) but decode takes one; for one message per line use "
                                 "--stream - with lines \"SERVICE METHOD TYPE HEX\"");
        }
    }

    static int print(const std::string& text)
    {
        std::cout << text;
        std::cout.flush();
        return std::cout ? kExitOk : kExitFailed;
    }

    Direction direction_;
    PlainStyleOptions style_;
    std::string payload_;
    std::string jsonFile_;
    std::string streamFile_;
    bool classic_ = false;
    bool compact_ = false;
    bool pretty_ = false;
    CLI::Option* input_ = nullptr;  // --payload or --json
    CLI::Option* stream_ = nullptr;
};

} // namespace

std::unique_ptr<Subcommand> makeFormatCommand()
{
    return std::make_unique<FormatCommand>();
}

std::unique_ptr<Subcommand> makeDecodeCommand()
{
    return std::make_unique<ConvertCommand>(Direction::Decode);
}

std::unique_ptr<Subcommand> makeEncodeCommand()
{
    return std::make_unique<ConvertCommand>(Direction::Encode);
}

} // namespace someip_json
