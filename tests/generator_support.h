// What the generated tests share: seeds and counts from the environment, random choices, JSON text
// without blanks, and strings that need escaping or are not ASCII.
#pragma once

#include <json/json.h>

#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <random>
#include <string>

namespace gen {

// A number from the environment (decimal or 0x hex), or `fallback` when it is not set.
inline unsigned long envNumber(const char* name, unsigned long fallback)
{
    const char* text = getenv(name);
    return text != nullptr && *text != '\0' ? strtoul(text, nullptr, 0) : fallback;
}

template <class Rng> size_t below(Rng& rng, size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); }
template <class Rng> bool chance(Rng& rng, size_t percent) { return below(rng, 100) < percent; }
template <class T, class Rng> T pick(Rng& rng, std::initializer_list<T> items) { return items.begin()[below(rng, items.size())]; }

// Compact JSON text; doubles with every digit they need to read back the same.
inline std::string compact(const Json::Value& v)
{
    Json::StreamWriterBuilder b;
    b["indentation"] = "";
    b["precision"] = 17;
    return Json::writeString(b, v);
}

// Up to four pieces: quotes, backslashes, control characters, two- to four-byte UTF-8.
template <class Rng> std::string randomText(Rng& rng)
{
    const char* pieces[] = {"a", "Z", " ", "\"", "\\", "\n", "\x01", "é", "日本", "😀", "x"};
    std::string s;
    for (size_t n = below(rng, 5); n > 0; --n) s += pieces[below(rng, std::size(pieces))];
    return s;
}

}  // namespace gen
