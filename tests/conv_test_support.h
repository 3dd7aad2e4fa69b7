// Helpers shared by the converter, API, round-trip and tool tests.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <json/json.h>

#include "someip/zq_someip_log.h"

namespace convtest {

inline std::vector<std::string> g_lines;
inline void captureLog(int32_t, const char*, const char* message) { g_lines.push_back(message); }

// Routes every library message into g_lines while it lives.
struct LogCapture {
    LogCapture()
    {
        g_lines.clear();
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
        for (const std::string& line : g_lines) {
            if (line.size() >= tail.size() && line.compare(line.size() - tail.size(), tail.size(), tail) == 0) {
                return true;
            }
        }
        return false;
    }
};

// Hex text (blanks ignored) to bytes, and bytes to lowercase hex without separators.
inline std::vector<unsigned char> bytes(std::string hex)
{
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    std::vector<unsigned char> out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        out.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return out;
}

inline std::string hex(const std::vector<unsigned char>& data)
{
    std::string out;
    for (unsigned char b : data) {
        out += "0123456789abcdef"[b >> 4];
        out += "0123456789abcdef"[b & 15];
    }
    return out;
}

inline Json::Value parse(const std::string& text)
{
    Json::Value root;
    Json::Reader().parse(text, root, false);
    return root;
}

// Text of a member reached by a path such as "0/SubParams/2/Value" (digits index arrays); an absent
// member gives "null".
inline std::string at(const Json::Value& doc, const std::string& path)
{
    const Json::Value* node = &doc;
    std::string key;
    std::istringstream keys(path);
    while (std::getline(keys, key, '/')) {
        node = isdigit(static_cast<unsigned char>(key[0])) ? &(*node)[std::stoi(key)] : &(*node)[key];
    }
    return node->isNull() ? "null" : node->asString();
}

} // namespace convtest
