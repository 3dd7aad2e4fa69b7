#ifndef ZQ_SOMEIP_FORMAT_SET_H
#define ZQ_SOMEIP_FORMAT_SET_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "someip/ZQSomeIPExport.h"
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
    UnknownSelector,    // a union selector no member of the union carries
    UnknownName,        // an enumerator or union member name the format does not have
    WireTypeMismatch,   // a TLV member whose tag names another wire type than its declared type takes
    UnskippableMember,  // a TLV member of an unknown data ID with wire type 4 (its length is unknown)
};
ZQ_SOMEIP_API const char* plainErrorName(ZQSomeIPPlainError code);

// Bytes a successful decode skipped because the format does not know them: bytes inside a struct's
// length field after its known members, bytes after the last parameter, TLV members of unknown data
// IDs. Receivers skip these by the protocol's rules (a newer peer may append them); `strict` decoding
// turns the first two into errors instead.
struct ZQSomeIPPlainWarning {
    size_t offset = 0;    // where the skipped bytes start in the payload
    size_t bytes = 0;     // how many were skipped
    std::string message;  // one line, naming the parameter where there is one
};

// The result of a plain operation: a code, where (decode: byte offset in the payload; encode: a JSON
// path such as $.waypoints[1].x; loading: the file, with line and column), and one line of text.
struct ZQ_SOMEIP_API ZQSomeIPPlainStatus {
    ZQSomeIPPlainError code = ZQSomeIPPlainError::Ok;
    size_t offset = 0;     // decode errors
    std::string path;      // encode errors; the file for loading errors
    std::string message;   // one line, naming the parameter where there is one
    std::vector<ZQSomeIPPlainWarning> warnings;  // decode: what was skipped (success only)

    bool ok() const { return code == ZQSomeIPPlainError::Ok; }
    // `{"code":"...","offset":N,"message":"..."}` (path instead of offset for encode and loading).
    std::string toJson() const;
    // `[{"offset":N,"bytes":N,"message":"..."},...]`, or `[]` without warnings.
    std::string warningsJson() const;
};

// A name for one raw value of an integer, or for a range of them ("ValueEnd"). Values are kept as
// the 64 bits of the integer (two's complement for signed types).
struct ZQSomeIPPlainEnumerator {
    std::string name;
    uint64_t first = 0;
    uint64_t last = 0;
};

// One named field of a bit field: `width` bits from bit `bit` (0 = least significant).
struct ZQSomeIPPlainBit {
    std::string name;
    std::string key;  // the name as a JSON key with its colon
    uint32_t bit = 0;
    uint32_t width = 1;
    std::vector<ZQSomeIPPlainEnumerator> enumerators;
};

// physical = raw * factor + offset
struct ZQSomeIPPlainScale {
    double factor = 1;
    double offset = 0;
    std::string unit;
};

// One parameter of a method format, as the plain codec walks it. Everything after `members` is set
// by version-2 format files only; its defaults describe a version-1 parameter.
struct ZQSomeIPPlainParam {
    enum Kind : uint8_t {
        Bool, UInt8, UInt16, UInt32, UInt64, Int8, Int16, Int32, Int64, Float, Double, String,
        Structure, Array, Vector, Union,
    };
    Kind kind = Bool;
    std::string name;
    std::string key;                          // the name as a JSON key with its colon: "name":
    uint32_t count = 0;                       // fixed arrays
    std::vector<ZQSomeIPPlainParam> members;  // structure or union members, or the one element of an array or vector

    // Attributes of this element. Version-1 formats leave the engines to inherit them (`explicitAttr`
    // false); version-2 formats resolve them per element and hand them to every engine call.
    bool explicitAttr = false;
    ZQSomeIPExtendAttr attr;
    bool unionTypeFirst = false;          // UnionFieldOrder TYPE_FIRST: the selector before the length
    bool dynamicLengthFieldSize = true;   // TLV: complex members take wire types 5..7 (smallest that fits)
    bool stringBom = true;                // strings: a byte order mark leads the text
    bool stringTerminator = true;         // strings: a zero (two for UTF-16) ends the text
    uint32_t stringUtf16ByteOrder = 0;    // ZQSomeIPPayloadByteOrder of UTF-16 text (defaults to attr.byte_order)

    uint32_t fixedLength = 0;             // strings: bytes on the wire, no length field (0: a dynamic string)
    uint32_t minCount = 0;                // vectors: elements allowed, both ways
    uint32_t maxCount = UINT32_MAX;
    bool bitfield = false;                // an unsigned integer shown as named bits
    std::vector<ZQSomeIPPlainBit> bits;
    std::vector<ZQSomeIPPlainEnumerator> enumerators;  // integers (and enums): names of raw values
    bool scaled = false;                  // numbers: a physical value is `scale` of the raw one
    ZQSomeIPPlainScale scale;
    bool tlv = false;                     // structures: members tagged by their data IDs
    int32_t dataId = -1;                  // members of a TLV structure: 0..4095
    bool optional = false;                // members of a TLV structure: may be absent
    uint32_t selector = 0;                // union members
    bool allowNull = false;               // unions: selector 0 means no member (JSON null)
    uint32_t maxLength = 0;               // unions without a length field: the member area's size
};

struct ZQSomeIPPlainProgramCache;

// Where the format set keeps the decoder's compiled form of a method it owns (built on first use).
// Copies start empty: a copy of a method may be changed by its holder, and then decodes as a method
// built by hand does, only without the compiled form.
class ZQSomeIPPlainProgramSlot {
public:
    ZQSomeIPPlainProgramSlot() = default;
    ZQSomeIPPlainProgramSlot(const ZQSomeIPPlainProgramSlot&) {}
    ZQSomeIPPlainProgramSlot& operator=(const ZQSomeIPPlainProgramSlot&)
    {
        cache.reset();
        return *this;
    }
    std::shared_ptr<ZQSomeIPPlainProgramCache> cache;
};

// A method format ready for the plain codec: its parameters and the attributes its service gives.
struct ZQSomeIPPlainMethod {
    std::vector<ZQSomeIPPlainParam> params;
    ZQSomeIPExtendAttr attr;
    std::string unsupported;  // non-empty: why this format cannot be used
    // Version-2 formats: the attributes of the parameter list (Params[k] "Attribute" over the
    // service's), and whether the list is TLV-encoded (Params[k] "Tlv"; its members carry data IDs).
    bool version2 = false;
    bool tlv = false;
    ZQSomeIPPlainParam list;  // the list's attributes and string rules (kind Structure, no members)
    // Names the format gives (empty when it gives none): "ServiceName", and "MethodName",
    // "EventName" or "FieldName" of the entry.
    std::string serviceName;
    std::string methodName;
    int majorVersion = -1;    // the service's "MajorVersion", -1 when it has none
    ZQSomeIPPlainProgramSlot fastDecoder;  // set by the format set for its own methods
};

// A format file a lenient load left out, and why.
struct ZQSomeIPFormatFileProblem {
    std::string file;
    std::string message;  // one line; "line L, column C: ..." where the file is not JSON
    bool json = false;    // the file is JSON (the classic API loads it all the same; the plain set cannot use it)
};

// One method, event or field entry of a format file, as a listing of a format tree shows it.
struct ZQSomeIPFormatEntry {
    std::string kind;  // "method", "event" or "field"
    int id = 0;        // its "MethodID" ("EventID" for events)
    std::string name;  // its "MethodName", "EventName" or "FieldName"
    // A message type a lookup finds the entry for, and the ID it is found under (a field's notification
    // goes by its "EventID").
    struct Lookup {
        int messageType = 0;
        int id = 0;
    };
    std::vector<Lookup> lookups;  // in the order 0x00, 0x01, 0x02, 0x80, 0x81
};

// One service of a format file, with its entries.
struct ZQSomeIPFormatService {
    std::string file;
    int id = 0;
    std::string name;       // "ServiceName"
    int majorVersion = -1;  // version-2 files' "MajorVersion" (0..255), -1 when it has none
    std::vector<ZQSomeIPFormatEntry> entries;
};

// What a lenient load read and left out; `services` is filled only when `list` is set.
struct ZQSomeIPFormatLoadReport {
    bool list = false;
    std::vector<std::string> files;                 // loaded, in load order
    std::vector<ZQSomeIPFormatFileProblem> broken;  // left out, in load order
    std::vector<ZQSomeIPFormatService> services;    // of the loaded files, in file order
};

// A shared, immutable set of method formats. Loaded once from a format description file or a
// directory tree of them (the same files as the classic API, and a lookup finds the same method
// format and attributes), then used read-only: any number of threads may decode and encode with
// one set at the same time. Loading is strict where the classic API is lenient: a file that is not
// JSON fails the load with its name, line and column, and so does a file whose shape would make
// lookups throw (a root that is not an object, a "Services" that is not an array, ...).
class ZQ_SOMEIP_API ZQSomeIPFormatSet {
public:
    static std::shared_ptr<const ZQSomeIPFormatSet> load(const std::string& path, ZQSomeIPPlainStatus& status);
    // Loads what it can: a file that fails load() is left out and reported in `report`, the rest serve.
    // Null with `status` when the path names no format file or no file loads.
    static std::shared_ptr<const ZQSomeIPFormatSet> loadLenient(const std::string& path,
                                                                ZQSomeIPFormatLoadReport& report,
                                                                ZQSomeIPPlainStatus& status);
    // One format document given as text (an importer's output, say); `name` stands for its file in messages.
    static std::shared_ptr<const ZQSomeIPFormatSet> loadText(const std::string& text, const std::string& name,
                                                             ZQSomeIPPlainStatus& status);

    // The method format of a message, or null. Message type 0x81 (error) takes the entry whose
    // "MethodType" is "error" where there is one, else the response's. With an interface version
    // (0..255) and several services of one ID, the service whose "MajorVersion" equals it is taken
    // first, then one without a "MajorVersion"; -1 takes what the classic lookup takes.
    const ZQSomeIPPlainMethod* find(int serviceID, int methodID, int messageType, int interfaceVersion = -1) const;
    size_t methodCount() const { return methods_.size(); }

    using Table = std::unordered_map<uint64_t, std::shared_ptr<const ZQSomeIPPlainMethod>>;

private:
    using Reader = std::function<bool(const std::string& file, std::string& text, ZQSomeIPPlainStatus& status)>;
    // Null report: the first broken file fails the load.
    static std::shared_ptr<const ZQSomeIPFormatSet> build(const std::vector<std::string>& files, const Reader& read,
                                                          ZQSomeIPFormatLoadReport* report, ZQSomeIPPlainStatus& status);
    static std::shared_ptr<const ZQSomeIPFormatSet> loadPath(const std::string& path, ZQSomeIPFormatLoadReport* report,
                                                             ZQSomeIPPlainStatus& status);

    Table methods_;                // what the classic lookup finds
    Table errors_;                 // "MethodType": "error" entries, by their response key
    Table unversioned_;            // the last match among services without a "MajorVersion"
    std::unordered_map<uint64_t, Table> versioned_;  // by major version
};

} // namespace ZQSomeIP

// Hosts have always found the codec's functions through this header; they stay reachable from here.
#include "ZQSomeIPPlainCodec.h"

#endif // ZQ_SOMEIP_FORMAT_SET_H
