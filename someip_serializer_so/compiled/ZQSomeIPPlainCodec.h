// The plain JSON codec: payloads to plain, typed JSON and back, over a ZQSomeIPFormatSet, with located
// errors (ZQSomeIPPlainStatus). Thread-safe over one shared format set.
#ifndef ZQ_SOMEIP_PLAIN_CODEC_H
#define ZQ_SOMEIP_PLAIN_CODEC_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ZQSomeIPFormatSet.h"
#include "someip/ZQSomeIPExport.h"

namespace ZQSomeIP {

// How enumerated integers are written by decode (encode accepts all three forms).
enum class ZQSomeIPEnumStyle : uint8_t {
    Name,   // the enumerator's name, or the integer when the value has none
    Value,  // the integer
    Both,   // {"name":"DRIVE","value":3} (name null when the value has none)
};
// How scaled numbers are written by decode and read by encode.
enum class ZQSomeIPScaledStyle : uint8_t {
    Raw,       // the raw wire value
    Physical,  // raw * factor + offset (encode rounds back to the nearest raw value)
    Both,      // {"raw":65,"value":25.0,"unit":"degC"} (encode takes "raw" if present, else "value")
};
// "name" | "value" | "both", and "raw" | "physical" | "both"; false for any other text.
ZQ_SOMEIP_API bool parseEnumStyle(std::string_view text, ZQSomeIPEnumStyle& style);
ZQ_SOMEIP_API bool parseScaledStyle(std::string_view text, ZQSomeIPScaledStyle& style);

// Options of the plain codec.
struct ZQSomeIPPlainOptions {
    bool pretty = false;  // indented by two blanks, one member per line; compact otherwise
    // Decode: bytes the format does not know (after the last parameter, inside a struct's length
    // field after its known members) fail as trailing_bytes / length_mismatch instead of being
    // skipped with a warning.
    bool strict = false;
    ZQSomeIPEnumStyle enumStyle = ZQSomeIPEnumStyle::Name;
    ZQSomeIPScaledStyle scaled = ZQSomeIPScaledStyle::Raw;
};

// Payload -> plain JSON: {"routeId":7,"waypoints":[{"x":100,"y":-50}],"lengthKm":12.5}. Members in
// format order; arrays and vectors as JSON arrays of their elements' values; integers exact; bool as
// true/false; float and double as the shortest text that reads back to the same bits, non-finite
// values as the strings "NaN", "Infinity", "-Infinity" (a NaN other than the default quiet one as
// "NaN:0x" and its bits in hex); strings as JSON strings. `json` is written only on success.
ZQ_SOMEIP_API ZQSomeIPPlainStatus plainDecode(const ZQSomeIPFormatSet& formats, int serviceID, int methodID,
                                              int messageType, const uint8_t* payload, size_t size,
                                              std::string& json,
                                              const ZQSomeIPPlainOptions& options = ZQSomeIPPlainOptions());
// The same with a method format found beforehand (by find() with an interface version, say).
ZQ_SOMEIP_API ZQSomeIPPlainStatus plainDecode(const ZQSomeIPPlainMethod& method, const uint8_t* payload,
                                              size_t size, std::string& json,
                                              const ZQSomeIPPlainOptions& options = ZQSomeIPPlainOptions());

// Plain JSON -> payload, strictly: every member present with the right JSON type and in range, no
// unknown members, fixed arrays of their declared count, vectors as long as their JSON array, no
// string, vector or struct longer than its length field can express. `payload` is written only on
// success.
ZQ_SOMEIP_API ZQSomeIPPlainStatus plainEncode(const ZQSomeIPFormatSet& formats, int serviceID, int methodID,
                                              int messageType, std::string_view json, std::vector<uint8_t>& payload,
                                              const ZQSomeIPPlainOptions& options = ZQSomeIPPlainOptions());
ZQ_SOMEIP_API ZQSomeIPPlainStatus plainEncode(const ZQSomeIPPlainMethod& method, std::string_view json,
                                              std::vector<uint8_t>& payload,
                                              const ZQSomeIPPlainOptions& options = ZQSomeIPPlainOptions());

// "no format for service 4660 (0x1234), method 2 (0x0002), message type 128 (0x80)", and " at interface
// version N" when one is given: the words every unknown_message error uses. IDs in decimal and hex, as
// format files and traces write them.
ZQ_SOMEIP_API std::string plainUnknownMessageText(int serviceID, int methodID, int messageType,
                                                  int interfaceVersion = -1);

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_PLAIN_CODEC_H
