#ifndef ZQ_SOMEIP_JSON_TEXT_H
#define ZQ_SOMEIP_JSON_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "someip/ZQSomeIPExport.h"

namespace ZQSomeIP {

// Appends `text` as a JSON string, quotes included: quote and backslash escaped, control characters
// as \n, \t, ... or \u00XX, everything else (UTF-8 included) as it is. The plain codec, its error
// reports and the tool's lines all write strings this way.
ZQ_SOMEIP_API void appendJsonString(std::string& out, std::string_view text);

// Appends `size` bytes as lowercase hex, two digits a byte, nothing between: how payloads are shown.
ZQ_SOMEIP_API void appendHex(std::string& out, const uint8_t* data, size_t size);

// Appends one code point (up to U+10FFFF) as UTF-8: what a JSON reader writes for a \u escape.
ZQ_SOMEIP_API void appendUtf8(std::string& out, uint32_t codePoint);

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_JSON_TEXT_H
