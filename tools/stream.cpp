#include "stream.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "interrupts.h"

namespace someip_json {

namespace {

// Output is gathered and written in blocks: a write per line would cost more than many conversions.
constexpr size_t kFlushAt = 1 << 16;

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

std::string_view trim(std::string_view text)
{
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// Takes the next blank-separated word off the front of `rest`.
std::string_view nextWord(std::string_view& rest)
{
    size_t end = 0;
    while (end < rest.size() && !isBlank(rest[end])) {
        ++end;
    }
    const std::string_view word = rest.substr(0, end);
    rest = trim(rest.substr(end));
    return word;
}

void writeOut(std::string& out)
{
    // Once the reader has gone, the output is dropped quietly: the interrupt ends the stream.
    if (!out.empty() && std::fwrite(out.data(), 1, out.size(), stdout) != out.size() && !outputGone()) {
        fail(kExitFailed, "cannot write standard output");
    }
    out.clear();
}

// What one stream line needs, kept across lines so that their buffers are reused.
class LineConverter {
public:
    LineConverter(Converter& converter, Direction direction) : converter_(converter), direction_(direction) {}

    // Converts one message line and appends its output line to `out`; false when it failed.
    bool convert(std::string_view line, std::string& out, Failure& failure)
    {
        const char* const shape =
            direction_ == Direction::Decode ? "SERVICE METHOD TYPE HEX" : "SERVICE METHOD TYPE JSON";
        Route route;
        const std::string_view service = nextWord(line);
        const std::string_view method = nextWord(line);
        const std::string_view type = nextWord(line);
        if (type.empty()) {
            failure = Failure::of("bad_input", std::string("expected ") + shape);
            return false;
        }
        if (!parseId(service, route.service)) {
            failure = Failure::of("bad_input", "invalid service ID '" + std::string(service) + "'");
            return false;
        }
        if (!parseId(method, route.method)) {
            failure = Failure::of("bad_input", "invalid method ID '" + std::string(method) + "'");
            return false;
        }
        if (!parseMessageType(type, route.type)) {
            failure = Failure::of("bad_input", "invalid message type '" + std::string(type) + "'");
            return false;
        }
        if (direction_ == Direction::Decode) {
            if (!parseHex(line, payload_, why_)) {
                failure = Failure::of("bad_input", why_);
                return false;
            }
            if (!converter_.decode(route, payload_, json_, failure)) {
                return false;
            }
            out += json_;
        } else {
            if (!converter_.encode(route, line, payload_, failure)) {
                return false;
            }
            appendHex(out, payload_.data(), payload_.size());
        }
        out += '\n';
        return true;
    }

private:
    Converter& converter_;
    Direction direction_;
    std::vector<uint8_t> payload_;
    std::string json_;
    std::string why_;
};

struct Summary {
    size_t lines = 0;
    size_t failed = 0;
    size_t firstFailedLine = 0;
    std::map<std::string, size_t> byCode;
    size_t warned = 0;  // messages that converted with skipped bytes
    size_t firstWarnedLine = 0;
    size_t brokenFormats = 0;

    void print() const
    {
        std::string text = "someip-json: stream: " + std::to_string(lines) + (lines == 1 ? " line, " : " lines, ") +
                           std::to_string(lines - failed) + " succeeded, " + std::to_string(failed) + " failed";
        if (failed > 0) {
            const char* separator = " (";
            for (const auto& [code, count] : byCode) {
                text += separator + code + ": " + std::to_string(count);
                separator = ", ";
            }
            text += "); first failure on line " + std::to_string(firstFailedLine);
        }
        if (warned > 0) {
            text += "; warnings: " + std::to_string(warned) + " (first on line " + std::to_string(firstWarnedLine) +
                    ")";
        }
        std::fprintf(stderr, "%s%s%s\n", text.c_str(), brokenNote(brokenFormats).c_str(), interruptNote().c_str());
    }
};

} // namespace

int runStream(Converter& converter, Direction direction, const std::string& input, size_t brokenFormats)
{
    catchInterrupts();
    // Standard input or a named pipe may wait for a producer as long as it likes: an interrupt still ends
    // the wait.
    std::FILE* const file = input == "-" ? interruptibleInput(STDIN_FILENO) : openInterruptible(input);
    const auto close = [](std::FILE* f) { std::fclose(f); };
    const std::unique_ptr<std::FILE, decltype(close)> in(file, close);
    if (!in) {
        fail(kExitUsage, "cannot read stream file '" + input + "'");
    }
    LineConverter lines(converter, direction);
    Summary summary;
    summary.brokenFormats = brokenFormats;
    std::string out;
    out.reserve(kFlushAt * 2);
    Failure failure;
    // getline keeps one buffer for every line, whatever its length.
    char* raw = nullptr;
    size_t capacity = 0;
    const auto release = [](char** buffer) { std::free(*buffer); };
    const std::unique_ptr<char*, decltype(release)> owner(&raw, release);
    size_t number = 0;
    ssize_t length = 0;
    while ((length = getline(&raw, &capacity, in.get())) >= 0 && !interrupted()) {
        ++number;
        const std::string_view line = trim(std::string_view(raw, static_cast<size_t>(length)));
        if (line.empty() || line.front() == '#') {
            continue;
        }
        ++summary.lines;
        if (!lines.convert(line, out, failure)) {
            out += "{\"error\":";
            out += failure.json;
            out += "}\n";
            if (summary.failed++ == 0) {
                summary.firstFailedLine = number;
            }
            ++summary.byCode[failure.code];
        } else if (direction == Direction::Decode && !converter.warnings().empty()) {
            // Beside the output, never in it: the line stays the value alone.
            std::fprintf(stderr, "someip-json: line %zu: %s\n", number, warningText(converter.warnings()).c_str());
            if (summary.warned++ == 0) {
                summary.firstWarnedLine = number;
            }
        }
        if (out.size() >= kFlushAt) {
            writeOut(out);
        }
    }
    writeOut(out);
    if (std::fflush(stdout) != 0 && !outputGone()) {
        fail(kExitFailed, "cannot write standard output");
    }
    if (std::ferror(in.get()) != 0) {
        fail(kExitUsage, "cannot read stream file '" + input + "' to its end");
    }
    summary.print();
    return summary.failed == 0 ? kExitOk : kExitFailed;
}

} // namespace someip_json
