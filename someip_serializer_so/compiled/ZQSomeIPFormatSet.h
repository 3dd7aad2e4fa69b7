#ifndef ZQ_SOMEIP_FORMAT_SET_H
#define ZQ_SOMEIP_FORMAT_SET_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "someip/ZQSomeIPPayloadAttr.h"

namespace ZQSomeIP {

// What went wrong in the plain API, as a code a program can branch on. Names (for JSON and messages)
// come from plainErrorName().
enum class ZQSomeIPPlainError : int {
    Ok = 0,
    UnknownMessage,     // no format for the (service, method, message type)
    UnsupportedFormat,  // the method's format cannot be used by the plain codec (the message says why)
    Truncated,          // the payload ends inside a value
    LengthBeyondData,   // a length field announces more bytes than its container or the payload holds
    LengthMismatch,     // a container's content does not add up to its length field
    BadString,          // string without its byte order mark or terminator, invalid UTF-8/UTF-16, or a zero inside
    TrailingBytes,      // payload bytes after the last parameter
    BadJson,            // encode input that is not JSON
    WrongType,          // a JSON value of the wrong kind for its parameter
    OutOfRange,         // a number its parameter's type cannot hold
    MissingMember,      // a parameter absent from the JSON object
    UnknownMember,      // a JSON member the format does not have (or has once only)
    WrongCount,         // a fixed array with another number of elements than declared
    TooLong,            // a string, vector or struct longer than its length field can express
    FileError,          // a format file or directory that cannot be read
    BadFormatFile,      // a format file that is not JSON (file, line, column) or cannot serve lookups
};
const char* plainErrorName(ZQSomeIPPlainError code);

// The result of a plain operation: a code, where (decode: byte offset in the payload; encode: a JSON
// path such as $.waypoints[1].x; loading: the file, with line and column), and one line of text.
struct ZQSomeIPPlainStatus {
    ZQSomeIPPlainError code = ZQSomeIPPlainError::Ok;
    size_t offset = 0;     // decode errors
    std::string path;      // encode errors; the file for loading errors
    std::string message;   // one line, naming the parameter where there is one

    bool ok() const { return code == ZQSomeIPPlainError::Ok; }
    // `{"code":"...","offset":N,"message":"..."}` (path instead of offset for encode and loading).
    std::string toJson() const;
};

// One parameter of a method format, as the plain codec walks it.
struct ZQSomeIPPlainParam {
    enum Kind : uint8_t {
        Bool, UInt8, UInt16, UInt32, UInt64, Int8, Int16, Int32, Int64, Float, Double, String,
        Structure, Array, Vector,
    };
    Kind kind = Bool;
    std::string name;
    std::string key;                          // the name as a JSON key with its colon: "name":
    uint32_t count = 0;                       // fixed arrays
    std::vector<ZQSomeIPPlainParam> members;  // structure members, or the one element of an array or vector
};

// A method format ready for the plain codec: its parameters and the attributes its service gives.
struct ZQSomeIPPlainMethod {
    std::vector<ZQSomeIPPlainParam> params;
    ZQSomeIPExtendAttr attr;
    std::string unsupported;  // non-empty: why this format cannot be used
};

// A shared, immutable set of method formats. Loaded once from a format description file or a
// directory tree of them (the same files as the classic API, and a lookup finds the same method
// format and attributes), then used read-only: any number of threads may decode and encode with
// one set at the same time. Loading is strict where the classic API is lenient: a file that is not
// JSON fails the load with its name, line and column, and so does a file whose shape would make
// lookups throw (a root that is not an object, a "Services" that is not an array, ...).
class ZQSomeIPFormatSet {
public:
    static std::shared_ptr<const ZQSomeIPFormatSet> load(const std::string& path, ZQSomeIPPlainStatus& status);

    // The method format of a message, or null.
    const ZQSomeIPPlainMethod* find(int serviceID, int methodID, int messageType) const;
    size_t methodCount() const { return methods_.size(); }

private:
    std::unordered_map<uint64_t, std::shared_ptr<const ZQSomeIPPlainMethod>> methods_;
};

// Options of the plain JSON text written by plainDecode.
struct ZQSomeIPPlainOptions {
    bool pretty = false;  // indented by two blanks, one member per line; compact otherwise
};

// Payload -> plain JSON: {"routeId":7,"waypoints":[{"x":100,"y":-50}],"lengthKm":12.5}. Members in
// format order; arrays and vectors as JSON arrays of their elements' values; integers exact; bool as
// true/false; float and double as the shortest text that reads back to the same bits, non-finite
// values as the strings "NaN", "Infinity", "-Infinity" (a NaN other than the default quiet one as
// "NaN:0x" and its bits in hex); strings as JSON strings. `json` is written only on success.
ZQSomeIPPlainStatus plainDecode(const ZQSomeIPFormatSet& formats, int serviceID, int methodID, int messageType,
                                const uint8_t* payload, size_t size, std::string& json,
                                const ZQSomeIPPlainOptions& options = ZQSomeIPPlainOptions());

// Plain JSON -> payload, strictly: every member present with the right JSON type and in range, no
// unknown members, fixed arrays of their declared count, vectors as long as their JSON array, no
// string, vector or struct longer than its length field can express. `payload` is written only on
// success.
ZQSomeIPPlainStatus plainEncode(const ZQSomeIPFormatSet& formats, int serviceID, int methodID, int messageType,
                                std::string_view json, std::vector<uint8_t>& payload);

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_FORMAT_SET_H
