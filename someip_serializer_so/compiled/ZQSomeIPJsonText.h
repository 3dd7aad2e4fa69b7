#ifndef ZQ_SOMEIP_JSON_TEXT_H
#define ZQ_SOMEIP_JSON_TEXT_H

#include <string>
#include <string_view>

namespace ZQSomeIP {

// Appends `text` as a JSON string, quotes included: quote and backslash escaped, control characters
// as \n, \t, ... or \u00XX, everything else (UTF-8 included) as it is. The plain codec, its error
// reports and the tool's lines all write strings this way.
void appendJsonString(std::string& out, std::string_view text);

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_JSON_TEXT_H
