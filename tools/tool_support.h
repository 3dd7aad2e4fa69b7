// What every someip-json subcommand shares: how errors travel to main, the subcommand interface, and
// the readers for the texts a user types (IDs, message types, hex).
#ifndef SOMEIP_JSON_TOOL_SUPPORT_H
#define SOMEIP_JSON_TOOL_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "compiled/ZQSomeIPFormatSet.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace someip_json {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;  // loading, lookup or conversion failed
constexpr int kExitUsage = 2;   // bad command line or unreadable input
// Stopped by a signal (interrupts.h), as the shell reports a process the signal ended: 128 + its number.
constexpr int kExitInterrupted = 130;  // SIGINT
constexpr int kExitOutputGone = 141;   // SIGPIPE: the reader of standard output went away
constexpr int kExitTerminated = 143;   // SIGTERM

// Thrown for anything the user has to fix; main prints the message as one line.
struct ToolError {
    int status;
    std::string message;
    bool usage = false;  // a mistake on the command line: the message points at --help
};

// Input that cannot be read or written, or that the command cannot take: the message says which.
[[noreturn]] void fail(int status, const std::string& message);

// --port of the commands that read captures: the UDP/TCP ports carrying SOME/IP (repeatable).
void addPortOption(CLI::App& app, std::vector<uint16_t>& ports);
// A mistake on the command line (exit status 2): the message points at --help.
[[noreturn]] void failUsage(const std::string& message);

// One subcommand of the tool. main gives it its own CLI::App to declare options on, and calls run()
// once the command line parsed cleanly. A new subcommand is a new class and one line in main's list.
class Subcommand {
public:
    virtual ~Subcommand() = default;
    virtual const char* name() const = 0;
    virtual const char* summary() const = 0;
    virtual void define(CLI::App& app) = 0;
    // The exit status; errors the user has to fix are thrown as ToolError.
    virtual int run() = 0;
};

// Which message a payload belongs to.
struct Route {
    int service = 0;
    int method = 0;
    int type = 0;
};

// Decimal, or hexadecimal with a 0x prefix; the whole text must be the number, within 0..INT_MAX.
bool parseId(std::string_view text, int& out);
// A number as parseId reads it, or request, request_no_return, notification, response, error.
bool parseMessageType(std::string_view text, int& out);
// Pairs of hex digits, either case; blanks may separate bytes but not split one. Replaces `out`; on
// bad text returns false with `why` set.
bool parseHex(std::string_view text, std::vector<uint8_t>& out, std::string& why);
void appendHex(std::string& out, const uint8_t* data, size_t size);
// `text` as a JSON string, quotes included.
void appendJsonString(std::string& out, std::string_view text);

// Options every subcommand that reads format descriptions takes.
struct FormatsOptions {
    std::string formats;
    std::string logLevel;

    void define(CLI::App& app);
    // Sets SOMEIPSER_LOG_LEVEL when --log-level was given; library lines then go to standard error.
    void apply() const;
};

// --service, --method and --type as given (the texts are kept for messages).
struct RouteOptions {
    std::string service;
    std::string method;
    std::string type;
    CLI::Option* options[3] = {};  // as defined, for other options to exclude them

    void define(CLI::App& app);
    bool given() const;
    // The route; a missing option is a usage error.
    Route route() const;
};

// --enum-style, --scaled and --strict: how the plain form writes enums and scaled numbers and whether
// it refuses bytes the format does not know. Encoding reads every enum form and never skips, so it
// takes --scaled alone.
struct PlainStyleOptions {
    std::string enumStyle;
    std::string scaled;
    bool strict = false;
    CLI::Option* options[3] = {};  // as defined (null when not), for other options to exclude or need them

    void define(CLI::App& app, bool decode);
    // The codec's options for what was given; pretty stays as in `base`.
    ZQSomeIP::ZQSomeIPPlainOptions apply(ZQSomeIP::ZQSomeIPPlainOptions base = {}) const;
};

std::string readAll(std::istream& in);
std::string readFile(const std::string& path, const std::string& what);
// Replaces the file's content with `text`; a failed write is a usage error naming the file.
void writeText(const std::string& path, const std::string& text);

} // namespace someip_json

#endif // SOMEIP_JSON_TOOL_SUPPORT_H
