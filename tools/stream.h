// Stream mode: one message per input line, one line out per message, formats loaded once.
#ifndef SOMEIP_JSON_STREAM_H
#define SOMEIP_JSON_STREAM_H

#include <string>

#include "converter.h"

namespace someip_json {

enum class Direction { Decode, Encode };

// Reads `input` ("-": standard input) line by line: "SERVICE METHOD TYPE HEX" to decode, "SERVICE METHOD
// TYPE JSON" to encode; blank lines and lines opening with # are skipped. Writes compact JSON (decode)
// or lowercase hex (encode) per message, or {"error":{...}} for a message that failed, and a summary
// on standard error. What a decode skipped goes to standard error, one line per message with its
// line number, and is counted in the summary. Returns kExitFailed when any message failed.
int runStream(Converter& converter, Direction direction, const std::string& input, size_t brokenFormats = 0);

} // namespace someip_json

#endif // SOMEIP_JSON_STREAM_H
