#include "tool_support.h"

#include <array>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <istream>

#include <CLI/CLI.hpp>

#include "compiled/ZQSomeIPJsonText.h"

namespace someip_json {

namespace {

constexpr int8_t kNotHex = -1;
constexpr int8_t kBlank = -2;

// Digit values, kBlank for the characters that separate bytes, kNotHex for the rest: one lookup per
// character, since stream mode reads every payload through here.
const std::array<int8_t, 256> kHexTable = [] {
    std::array<int8_t, 256> table{};
    table.fill(kNotHex);
    for (int i = 0; i < 10; ++i) {
        table['0' + i] = static_cast<int8_t>(i);
    }
    for (int i = 0; i < 6; ++i) {
        table['a' + i] = table['A' + i] = static_cast<int8_t>(10 + i);
    }
    for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'}) {
        table[static_cast<unsigned char>(c)] = kBlank;
    }
    return table;
}();

int8_t hexValue(char c)
{
    return kHexTable[static_cast<unsigned char>(c)];
}

// Why the blank-separated word around `at` is not a run of bytes.
std::string badHexWord(std::string_view text, size_t at)
{
    size_t start = at;
    while (start > 0 && hexValue(text[start - 1]) != kBlank) {
        --start;
    }
    size_t end = at;
    while (end < text.size() && hexValue(text[end]) != kBlank) {
        ++end;
    }
    const std::string word(text.substr(start, end - start));
    return "invalid hex payload: '" + word + "'" +
           (word.size() % 2 != 0 ? " has an odd number of digits" : " is not hexadecimal");
}

// A CLI11 check that leaves the text as typed (messages quote it) and only refuses what `accept` refuses.
template <typename T>
CLI::Validator textCheck(const std::string& what, bool (*accept)(std::string_view, T&))
{
    return CLI::Validator([what, accept](std::string& text) {
        T value{};
        return accept(text, value) ? std::string() : "invalid " + what + " '" + text + "'";
    }, "");
}

} // namespace

[[noreturn]] void fail(int status, const std::string& message)
{
    throw ToolError{status, message};
}

void addPortOption(CLI::App& app, std::vector<uint16_t>& ports)
{
    app.add_option("--port", ports, "UDP/TCP port carrying SOME/IP (repeatable); default: any port whose "
                                    "datagrams have consistent SOME/IP headers")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

[[noreturn]] void failUsage(const std::string& message)
{
    throw ToolError{kExitUsage, message, true};
}

bool parseId(std::string_view text, int& out)
{
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    // from_chars takes no sign or blank for an unsigned number, so only digits get through.
    unsigned long value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, base);
    if (text.empty() || result.ec != std::errc() || result.ptr != end || value > INT_MAX) {
        return false;
    }
    out = static_cast<int>(value);
    return true;
}

namespace {

const struct {
    const char* name;
    int value;
} kMessageTypes[] = {
    {"request", 0x00}, {"request_no_return", 0x01}, {"notification", 0x02}, {"response", 0x80}, {"error", 0x81},
};

} // namespace

bool parseMessageType(std::string_view text, int& out)
{
    for (const auto& n : kMessageTypes) {
        if (text == n.name) {
            out = n.value;
            return true;
        }
    }
    return parseId(text, out);
}

const char* messageTypeName(int type)
{
    for (const auto& n : kMessageTypes) {
        if (n.value == type) {
            return n.name;
        }
    }
    return nullptr;
}

bool parseHex(std::string_view text, std::vector<uint8_t>& out, std::string& why)
{
    out.resize(text.size() / 2);
    size_t count = 0;
    size_t i = 0;
    while (i < text.size()) {
        const int8_t high = hexValue(text[i]);
        if (high == kBlank) {
            ++i;
            continue;
        }
        // Words start at a blank and advance by two, so a pair never spans two words.
        const int8_t low = i + 1 < text.size() ? hexValue(text[i + 1]) : kBlank;
        if (high < 0 || low < 0) {
            why = badHexWord(text, i);
            return false;
        }
        out[count++] = static_cast<uint8_t>(high << 4 | low);
        i += 2;
    }
    out.resize(count);
    return true;
}

void appendHex(std::string& out, const uint8_t* data, size_t size)
{
    ZQSomeIP::appendHex(out, data, size);
}

void appendJsonString(std::string& out, std::string_view text)
{
    ZQSomeIP::appendJsonString(out, text);
}

void FormatsOptions::define(CLI::App& app, const char* strictAlso)
{
    app.add_option("--formats", formats, "Format description file, or a directory tree of them")
        ->required()
        ->type_name("PATH");
    app.add_option("--log-level", logLevel, "Sets SOMEIPSER_LOG_LEVEL; library lines go to standard error")
        ->check(textCheck("log level", parseId))
        ->type_name("N");
    app.add_flag("--strict", strict,
                 std::string("A broken format file is fatal (by default it is reported and left out)") +
                     (strictAlso != nullptr ? std::string("; ") + strictAlso : std::string()));
}

ZQSomeIP::ZQSomeIPFormatLoadReport FormatsOptions::report(bool list, bool classic,
                                                          std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet>* set)
{
    ZQSomeIP::ZQSomeIPFormatLoadReport report;
    report.list = list;
    ZQSomeIP::ZQSomeIPPlainStatus status;
    auto loaded = ZQSomeIP::ZQSomeIPFormatSet::loadLenient(formats, report, status);
    if (!loaded && report.broken.empty()) {
        fail(kExitUsage, "cannot read format descriptions: " + status.path + ": " + status.message);
    }
    if (!loaded && !classic && !list && report.broken.size() == 1) {
        const auto& only = report.broken.front();  // one file, broken: its problem is the whole story
        fail(kExitFailed, "broken format file " + only.file + ": " + only.message);
    }
    // The classic API loads every file that is JSON; only the others are left out there.
    broken = 0;
    for (const auto& problem : report.broken) {
        if (!classic || !problem.json) {
            ++broken;
            if (list) {
                continue;  // the listing shows them
            }
            std::fprintf(stderr, "someip-json: broken format file %s: %s%s\n", problem.file.c_str(),
                         problem.message.c_str(), strict ? "" : " (left out)");
        }
    }
    if (strict && broken > 0) {
        fail(kExitFailed, std::to_string(broken) + (broken == 1 ? " broken format file" : " broken format files") +
                              " in '" + formats + "' (--strict)");
    }
    if (!loaded && !classic && !list) {
        fail(kExitFailed, "no format file in '" + formats + "' could be loaded");
    }
    if (set != nullptr) {
        *set = std::move(loaded);
    }
    return report;
}

std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet> FormatsOptions::loadSet()
{
    std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet> set;
    report(false, false, &set);
    return set;
}

void FormatsOptions::checkClassic()
{
    report(false, true);
}

std::string brokenNote(size_t broken)
{
    if (broken == 0) {
        return std::string();
    }
    return " (" + std::to_string(broken) + (broken == 1 ? " broken format file" : " broken format files") +
           " left out)";
}

void FormatsOptions::apply() const
{
    int level = 0;
    if (parseId(logLevel, level)) {
        setenv("SOMEIPSER_LOG_LEVEL", std::to_string(level).c_str(), 1);
    }
}

void RouteOptions::define(CLI::App& app)
{
    options[0] = app.add_option("--service", service, "Service ID, decimal or 0x-hexadecimal")
                     ->check(textCheck("service ID", parseId))
                     ->type_name("ID");
    options[1] = app.add_option("--method", method, "Method or event ID, decimal or 0x-hexadecimal")
                     ->check(textCheck("method ID", parseId))
                     ->type_name("ID");
    options[2] = app.add_option("--type", type,
                   "Message type: request, request_no_return, notification, response, error, or a number")
                     ->check(textCheck("message type", parseMessageType))
                     ->type_name("TYPE");
}

bool RouteOptions::given() const
{
    return !service.empty() || !method.empty() || !type.empty();
}

Route RouteOptions::route() const
{
    // Not marked required for CLI11: stream mode names the message on every line instead.
    for (const auto& [text, option] : {std::pair(&service, "service"), {&method, "method"}, {&type, "type"}}) {
        if (text->empty()) {
            failUsage(std::string("missing option '--") + option + "'");
        }
    }
    Route r;
    parseId(service, r.service);
    parseId(method, r.method);
    parseMessageType(type, r.type);
    return r;
}

void PlainStyleOptions::define(CLI::App& app, bool decode)
{
    if (decode) {
        options[0] = app.add_option("--enum-style", enumStyle,
                                    "Enums as their name (the default), value, or both: {\"name\":..,\"value\":..}")
                         ->check(textCheck("enum style", ZQSomeIP::parseEnumStyle))
                         ->type_name("name|value|both");
    }
    options[1] = app.add_option("--scaled", scaled,
                                decode ? "Scaled numbers as the raw value (the default), physical, or both: "
                                         "{\"raw\":..,\"value\":..,\"unit\":..}"
                                       : "Scaled numbers given as the raw value (the default), physical (rounded to "
                                         "the nearest raw value), or both")
                     ->check(textCheck("scaled style", ZQSomeIP::parseScaledStyle))
                     ->type_name("raw|physical|both");
}

ZQSomeIP::ZQSomeIPPlainOptions PlainStyleOptions::apply(bool strict, ZQSomeIP::ZQSomeIPPlainOptions base) const
{
    // The checks have accepted the texts already; an empty one leaves the default.
    ZQSomeIP::parseEnumStyle(enumStyle, base.enumStyle);
    ZQSomeIP::parseScaledStyle(scaled, base.scaled);
    base.strict = strict;
    return base;
}

std::string readAll(std::istream& in)
{
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string readFile(const std::string& path, const std::string& what)
{
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) {
        fail(kExitUsage, "cannot read " + what + " '" + path + "'");
    }
    // Sized once where the size is known: a big description would otherwise grow by doubling.
    const std::streamoff size = in.tellg();
    if (size <= 0) {
        in.seekg(0);
        return readAll(in);
    }
    std::string text(static_cast<size_t>(size), '\0');
    in.seekg(0);
    if (!in.read(&text[0], size)) {
        fail(kExitUsage, "cannot read " + what + " '" + path + "'");
    }
    return text;
}

void writeText(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
        fail(kExitUsage, "cannot write '" + path + "'");
    }
}

} // namespace someip_json
