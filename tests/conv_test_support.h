// Helpers shared by the converter, API, round-trip and tool tests.
#ifndef CONV_TEST_SUPPORT_H
#define CONV_TEST_SUPPORT_H

#include <cstdlib>
#include <string>
#include <vector>

#include <json/json.h>

#include "someip/zq_someip_log.h"

namespace convtest {

inline std::vector<std::string>& logLines()
{
    static std::vector<std::string> lines;
    return lines;
}

inline void captureLog(int32_t, const char*, const char* message)
{
    logLines().push_back(message);
}

// Routes every library message into logLines() while it lives.
struct LogCapture {
    LogCapture()
    {
        logLines().clear();
        setenv("SOMEIPSER_LOG_LEVEL", "1", 1);
        zq_someip_set_logfunc_callback(captureLog);
    }
    ~LogCapture()
    {
        zq_someip_set_logfunc_callback(nullptr);
        unsetenv("SOMEIPSER_LOG_LEVEL");
    }
    // Messages open with the "[file][line][function]" prefix, so they are matched by their ending.
    static bool has(const std::string& tail)
    {
        for (const std::string& line : logLines()) {
            if (line.size() >= tail.size() && line.compare(line.size() - tail.size(), tail.size(), tail) == 0) {
                return true;
            }
        }
        return false;
    }
};

// Hex text (blanks ignored) to bytes, and back in lowercase without separators.
inline std::vector<unsigned char> bytes(const std::string& hex)
{
    std::string digits;
    for (char c : hex) {
        if (c != ' ') {
            digits.push_back(c);
        }
    }
    std::vector<unsigned char> out;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        out.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return out;
}

inline std::string hex(const std::vector<unsigned char>& data)
{
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char b : data) {
        out += digits[b >> 4];
        out += digits[b & 15];
    }
    return out;
}

inline Json::Value parse(const std::string& text)
{
    Json::Value root;
    Json::Reader().parse(text, root, false);
    return root;
}

// Member of a parsed document by a path such as "0/SubParams/2/Value" (numbers index arrays).
inline std::string at(const Json::Value& doc, const std::string& path)
{
    const Json::Value* node = &doc;
    size_t start = 0;
    while (start <= path.size()) {
        const size_t slash = path.find('/', start);
        const std::string key = path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (!key.empty() && key.find_first_not_of("0123456789") == std::string::npos) {
            node = &(*node)[static_cast<Json::ArrayIndex>(std::stoul(key))];
        } else {
            node = &(*node)[key];
        }
        if (slash == std::string::npos) {
            break;
        }
        start = slash + 1;
    }
    return node->isString() ? node->asString() : node->toStyledString();
}

} // namespace convtest

#endif // CONV_TEST_SUPPORT_H
