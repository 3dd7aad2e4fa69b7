// someip-json: converts SOME/IP payloads between hex text and JSON on the command line.
//
//   someip-json format --formats PATH --service ID --method ID --type TYPE
//   someip-json decode --formats PATH --service ID --method ID --type TYPE [--payload HEX]
//   someip-json encode --formats PATH --service ID --method ID --type TYPE [--json FILE]
//
// Results go to standard output; every error is one line on standard error. Exit status: 0 success,
// 1 the conversion (or loading, or lookup) failed, 2 bad command line or unreadable input.

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <json/json.h>

#include "ZQSomeIPParserAPI.h"
#include "someip/zq_someip_log.h"

namespace {

const int kExitFailed = 1;
const int kExitUsage = 2;

const char* const kUsage =
    "usage: someip-json format|decode|encode --formats PATH --service ID --method ID --type TYPE\n"
    "                   [--payload HEX] [--json FILE] [--log-level N]\n"
    "  ID          decimal or 0x-prefixed hexadecimal\n"
    "  TYPE        a number, or request, request_no_return, notification, response, error\n"
    "  --payload   decode: payload as hex text (blanks between bytes allowed); default: standard input\n"
    "  --json      encode: file holding the parameter list with values; default: standard input\n"
    "  --log-level sets SOMEIPSER_LOG_LEVEL (library lines go to standard error)\n";

// Thrown for anything the user has to fix; carries the one line that is printed.
struct ToolError {
    int status;
    std::string message;
};

[[noreturn]] void fail(int status, const std::string& message)
{
    throw ToolError{status, message};
}

// Decimal, or hexadecimal with a 0x prefix; the whole text must be the number, within 0..INT_MAX.
bool parseNumber(const std::string& text, int& out)
{
    if (text.empty() || text[0] == '-' || text[0] == '+' || isspace(static_cast<unsigned char>(text[0]))) {
        return false;
    }
    int base = 10;
    std::string digits = text;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        digits = text.substr(2);
    }
    if (digits.empty() || isspace(static_cast<unsigned char>(digits[0])) || digits[0] == '-' || digits[0] == '+') {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const long value = strtol(digits.c_str(), &end, base);
    if (errno != 0 || *end != '\0' || value < 0 || value > INT_MAX) {
        return false;
    }
    out = static_cast<int>(value);
    return true;
}

int parseMessageType(const std::string& text)
{
    static const std::map<std::string, int> names = {
        {"request", 0x00}, {"request_no_return", 0x01}, {"notification", 0x02}, {"response", 0x80}, {"error", 0x81},
    };
    const auto named = names.find(text);
    if (named != names.end()) {
        return named->second;
    }
    int value = 0;
    if (!parseNumber(text, value)) {
        fail(kExitUsage, "invalid message type '" + text + "'");
    }
    return value;
}

// Pairs of hex digits; blanks may separate bytes but not split one.
std::vector<unsigned char> parseHex(const std::string& text)
{
    std::vector<unsigned char> bytes;
    std::istringstream words(text);
    std::string word;
    while (words >> word) {
        if (word.size() % 2 != 0) {
            fail(kExitUsage, "invalid hex payload: '" + word + "' has an odd number of digits");
        }
        for (size_t i = 0; i < word.size(); i += 2) {
            if (!isxdigit(static_cast<unsigned char>(word[i])) || !isxdigit(static_cast<unsigned char>(word[i + 1]))) {
                fail(kExitUsage, "invalid hex payload: '" + word + "' is not hexadecimal");
            }
            bytes.push_back(static_cast<unsigned char>(std::stoul(word.substr(i, 2), nullptr, 16)));
        }
    }
    return bytes;
}

std::string toHex(const std::vector<unsigned char>& bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (unsigned char b : bytes) {
        text.push_back(digits[b >> 4]);
        text.push_back(digits[b & 0x0F]);
    }
    return text;
}

std::string readAll(std::istream& in)
{
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fail(kExitUsage, "cannot read JSON file '" + path + "'");
    }
    return readAll(in);
}

// Library lines go to standard error so that standard output carries only the result. The callback
// receives everything that passes the variable's gate; the per-level thresholds of the library's own
// printing are applied here.
void logToStderr(int32_t level, const char* tag, const char* message)
{
    const char* value = getenv("SOMEIPSER_LOG_LEVEL");
    const long threshold = value ? strtol(value, nullptr, 10) : 0;
    static const std::map<int32_t, long> minimum = {{1, 5}, {2, 4}, {3, 3}, {4, 2}};
    const auto needed = minimum.find(level);
    if (needed != minimum.end() && threshold >= needed->second) {
        fprintf(stderr, "%s %s\n", tag, message);
    }
}

struct Options {
    std::string command;
    std::map<std::string, std::string> values;
};

Options parseArguments(int argc, char** argv)
{
    static const char* const known[] = {"formats", "service", "method", "type", "payload", "json", "log-level"};
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg.compare(0, 2, "--") != 0) {
            if (!options.command.empty()) {
                fail(kExitUsage, "unexpected argument '" + arg + "'");
            }
            options.command = arg;
            continue;
        }
        std::string name = arg.substr(2);
        std::string value;
        const size_t eq = name.find('=');
        if (eq != std::string::npos) {
            value = name.substr(eq + 1);
            name = name.substr(0, eq);
        } else if (i + 1 < argc) {
            value = argv[++i];
        } else {
            fail(kExitUsage, "option '--" + name + "' needs a value");
        }
        bool isKnown = false;
        for (const char* k : known) {
            isKnown = isKnown || name == k;
        }
        if (!isKnown) {
            fail(kExitUsage, "unknown option '--" + name + "'");
        }
        options.values[name] = value;
    }
    if (options.command != "format" && options.command != "decode" && options.command != "encode") {
        fail(kExitUsage, options.command.empty() ? "missing command (format, decode or encode)"
                                                 : "unknown command '" + options.command + "'");
    }
    for (const char* required : {"formats", "service", "method", "type"}) {
        if (options.values.count(required) == 0) {
            fail(kExitUsage, std::string("missing option '--") + required + "'");
        }
    }
    return options;
}

int run(int argc, char** argv)
{
    const Options options = parseArguments(argc, argv);
    const auto& v = options.values;
    int service = 0;
    int method = 0;
    if (!parseNumber(v.at("service"), service)) {
        fail(kExitUsage, "invalid service ID '" + v.at("service") + "'");
    }
    if (!parseNumber(v.at("method"), method)) {
        fail(kExitUsage, "invalid method ID '" + v.at("method") + "'");
    }
    const int type = parseMessageType(v.at("type"));
    if (v.count("log-level")) {
        int level = 0;
        if (!parseNumber(v.at("log-level"), level)) {
            fail(kExitUsage, "invalid log level '" + v.at("log-level") + "'");
        }
        setenv("SOMEIPSER_LOG_LEVEL", std::to_string(level).c_str(), 1);
    }
    // Read the input before touching the library, so that input errors are reported as such.
    std::vector<unsigned char> payload;
    std::string json;
    if (options.command == "decode") {
        payload = parseHex(v.count("payload") ? v.at("payload") : readAll(std::cin));
    } else if (options.command == "encode") {
        json = v.count("json") ? readFile(v.at("json")) : readAll(std::cin);
        Json::Value parsed;
        Json::Reader reader;
        if (!reader.parse(json, parsed, false)) {
            fail(kExitUsage, "invalid JSON input");
        }
    }

    zq_someip_set_logfunc_callback(logToStderr);
    ZQSomeIP::ZQSomeIPParserAPI api;
    if (api.loadFormatJson(v.at("formats")) != 0) {
        fail(kExitFailed, "cannot load format descriptions from '" + v.at("formats") + "'");
    }
    std::string format;
    if (api.getMethodFormatbyID(service, method, type, format) != 0) {
        fail(kExitFailed, "no format for service " + v.at("service") + ", method " + v.at("method") + ", type " +
                              v.at("type"));
    }
    if (options.command == "format") {
        std::cout << format;
    } else if (options.command == "decode") {
        std::string filled;
        if (api.deserializebyMethodID(service, method, type, payload, filled) != 0) {
            fail(kExitFailed, "decode failed: the payload does not match the method format");
        }
        std::cout << filled;
    } else {
        std::vector<unsigned char> bytes;
        if (api.serializebyMethodID(service, method, type, json, bytes) != 0) {
            fail(kExitFailed, "encode failed: the parameter list could not be written");
        }
        std::cout << toHex(bytes) << "\n";
    }
    std::cout.flush();
    return std::cout ? 0 : kExitFailed;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        std::cout << kUsage;
        return 0;
    }
    int status = 0;
    try {
        status = run(argc, argv);
    } catch (const ToolError& e) {
        std::cerr << "someip-json: " << e.message << (e.status == kExitUsage ? " (see --help)" : "") << "\n";
        status = e.status;
    } catch (const std::exception& e) {
        // The library lets errors of its JSON and text conversion dependencies through.
        std::string what = e.what();
        for (char& c : what) {
            if (c == '\n' || c == '\r') {
                c = ' ';
            }
        }
        std::cerr << "someip-json: conversion failed: " << what << "\n";
        status = kExitFailed;
    }
    zq_someip_set_logfunc_callback(nullptr);
    return status;
}
