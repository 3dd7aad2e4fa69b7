// What every someip-json subcommand shares: how errors travel to main, the subcommand interface, and
// the readers for the texts a user types (IDs, message types, hex).
#ifndef SOMEIP_JSON_TOOL_SUPPORT_H
#define SOMEIP_JSON_TOOL_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "compiled/ZQSomeIPFormatSet.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace someip_json {

// One rule for every command: 0 everything converted; 1 some messages or files failed (--allow-failures
// turns this into 0); 2 bad arguments or unreadable input.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
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
// The name parseMessageType reads for `type`, or null for a type without one.
const char* messageTypeName(int type);
// Pairs of hex digits, either case; blanks may separate bytes but not split one. Replaces `out`; on
// bad text returns false with `why` set.
bool parseHex(std::string_view text, std::vector<uint8_t>& out, std::string& why);
void appendHex(std::string& out, const uint8_t* data, size_t size);
// `text` as a JSON string, quotes included.
void appendJsonString(std::string& out, std::string_view text);

// Options every subcommand that reads format descriptions takes, and the loading of the tree they name.
// A tree loads leniently: each broken file is reported once on standard error (file, line, column) and
// left out, the good files serve; --strict makes a broken file fatal (status 1). A path that names no
// format file is unreadable input (status 2).
struct FormatsOptions {
    std::string formats;
    std::string logLevel;
    bool strict = false;
    size_t broken = 0;  // broken files reported by the last load, for summaries

    // `strictAlso`: what else --strict means for the command (null: nothing else).
    void define(CLI::App& app, const char* strictAlso = nullptr);
    // Sets SOMEIPSER_LOG_LEVEL when --log-level was given; library lines then go to standard error.
    void apply() const;
    // The plain format set of the tree.
    std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet> loadSet();
    // For commands that load through the classic API: reports the files it leaves out (those that are
    // not JSON), with --strict fatal. The classic API then loads the tree itself.
    void checkClassic();
    // What a lenient load found; with `list`, the services too, and broken files are left to the
    // caller to show (an empty set is no error then).
    ZQSomeIP::ZQSomeIPFormatLoadReport report(bool list, bool classic,
                                              std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet>* set = nullptr);
};
// " (N broken format files left out)" for a summary line, or nothing.
std::string brokenNote(size_t broken);

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

// --enum-style and --scaled: how the plain form writes enums and scaled numbers. Encoding reads every
// enum form, so it takes --scaled alone.
struct PlainStyleOptions {
    std::string enumStyle;
    std::string scaled;
    CLI::Option* options[2] = {};  // as defined (null when not), for other options to exclude them

    void define(CLI::App& app, bool decode);
    // The codec's options for what was given; pretty stays as in `base`, strict is `strict` (decoding
    // refuses bytes the format does not know).
    ZQSomeIP::ZQSomeIPPlainOptions apply(bool strict, ZQSomeIP::ZQSomeIPPlainOptions base = {}) const;
};


std::string readAll(std::istream& in);
std::string readFile(const std::string& path, const std::string& what);
// Replaces the file's content with `text`; a failed write is a usage error naming the file.
void writeText(const std::string& path, const std::string& text);

} // namespace someip_json

#endif // SOMEIP_JSON_TOOL_SUPPORT_H
