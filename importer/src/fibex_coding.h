// What a FIBEX coding (fx:CODING with its ho:CODED-TYPE and ho:COMPU-METHODS) says about a value on
// the wire, in the version-2 vocabulary: a basic number, a string, or a bit field, and the conversion
// of the raw value (a scale, named values, named bits). Kept apart from the reader because it is the
// one place where the coded-type vocabulary (base data types, categories, encodings, terminations)
// is interpreted.
#ifndef ZQ_SOMEIP_IMPORT_FIBEX_CODING_H
#define ZQ_SOMEIP_IMPORT_FIBEX_CODING_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <json/json.h>

#include "format_builder.h"
#include "xml_input.h"

namespace ZQSomeIP {
namespace import {

struct FibexCoding {
    enum Kind { Number, String, Bitfield, Unsupported } kind = Unsupported;
    std::string reason;  // Unsupported: why, for the report

    // Number and Bitfield: "uint8_t" ... "double", "bool".
    std::string paramType;
    Json::Value scale;        // {"Factor","Offset"[,"Unit"]} or null
    Json::Value enumerators;  // [{"Name","Value"[,"ValueEnd"]}] or null
    Json::Value bits;         // Bitfield: [{"Name","Bit"}]
    std::string approximation;  // set when something was left out (a scaling the format cannot state)

    // String.
    bool fixed = false;
    uint64_t fixedBytes = 0;
    std::optional<uint32_t> lengthBytes;  // the length field the coding names (leading-length strings)
    bool utf16 = false;
    std::optional<bool> utf16LittleEndian;
    std::optional<bool> terminator;
};

// Reads `coding` (an fx:CODING element). `bitLength` is the use site's utilization bit length, which
// overrides the coded type's. `unit` resolves a ho:UNIT-REF to its display name (empty when unknown).
FibexCoding readFibexCoding(pugi::xml_node coding, std::optional<uint64_t> bitLength,
                            const std::function<std::string(const std::string&)>& unit);

// "true"/"1" or "false"/"0"; nullopt for anything else (an absent element included).
std::optional<bool> fibexBool(const std::string& text);

// A decimal integer with an optional sign, within int64 or uint64.
bool parseInteger(const std::string& text, Json::Value& out);

// Whether every "Value" and "ValueEnd" of `enumerators` fits the integer type ("uint8_t" ... "int64_t").
bool enumeratorsFit(const Json::Value& enumerators, const std::string& paramType);

}  // namespace import
}  // namespace ZQSomeIP

#endif
