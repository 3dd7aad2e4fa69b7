// Helpers shared by the converter, API and round-trip tests.
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <string>
#include <vector>

#include <json/json.h>

#include "someip/zq_someip_log.h"

namespace convtest {

// A directory of scratch files, removed with the object.
struct TempDir {
    std::string path;
    TempDir()
    {
        char name[] = "/tmp/someip_test_XXXXXX";
        path = mkdtemp(name);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    // `file` may name subdirectories; they are made.
    std::string write(const std::string& file, const std::string& text) const
    {
        std::filesystem::create_directories(std::filesystem::path(path + "/" + file).parent_path());
        std::ofstream(path + "/" + file, std::ios::binary) << text;
        return path + "/" + file;
    }
};

inline std::vector<std::string> g_lines;

// Routes every library message into g_lines while it lives.
struct LogCapture {
    LogCapture()
    {
        g_lines.clear();
        setenv("SOMEIPSER_LOG_LEVEL", "1", 1);
        zq_someip_set_logfunc_callback([](int32_t, const char*, const char* message) { g_lines.push_back(message); });
    }
    ~LogCapture() { zq_someip_set_logfunc_callback(nullptr); unsetenv("SOMEIPSER_LOG_LEVEL"); }
    // Messages open with the "[file][line][function]" prefix, so they are matched by their ending.
    static bool has(const std::string& tail)
    {
        return std::any_of(g_lines.begin(), g_lines.end(), [&](const std::string& line) {
            return line.size() >= tail.size() && line.compare(line.size() - tail.size(), tail.size(), tail) == 0; });
    }
};

// "ok", "failed" (a -1 result) or "throws" (a JSON error let through to the caller).
template <class Call> std::string outcome(Call call)
{
    try {
        return call() == 0 ? "ok" : "failed";
    } catch (const Json::LogicError&) {
        return "throws";
    }
}

// Hex text with blanks between byte pairs to bytes, and bytes to lowercase hex without blanks.
inline std::vector<unsigned char> bytes(const std::string& hex)
{
    std::vector<unsigned char> out;
    for (size_t i = hex.find_first_not_of(' '); i != std::string::npos; i = hex.find_first_not_of(' ', i + 2))
        out.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return out;
}

inline std::string hex(const std::vector<unsigned char>& data)
{
    std::string out;
    for (unsigned char b : data) out += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    return out;
}

inline Json::Value parse(const std::string& text)
{
    Json::Value root;
    Json::Reader().parse(text, root, false);
    return root;
}

// Text of a member reached by a path such as "0/SubParams/2/Value" (numbers index arrays); an absent
// member gives "null".
inline std::string at(const Json::Value& node, const std::string& path)
{
    const std::string key = path.substr(0, path.find('/')), rest = path.substr(std::min(path.size(), key.size() + 1));
    const Json::Value& next = key.find_first_not_of("0123456789") == std::string::npos ? node[std::stoi(key)] : node[key];
    return rest.empty() ? (next.isNull() ? "null" : next.asString()) : at(next, rest);
}

} // namespace convtest
