// What format description documents mean, as every reader of them applies it, with no state of its
// own: which files a path names, where a message type is looked for in a service, and the attribute
// keys with the values their texts stand for. The format store (ZQSomeIPFormatAnalyzer), its index and
// the plain format set in compiled/ all read documents through these rules; this folder includes
// neither of them.
#ifndef ZQ_SOMEIP_FORMAT_RULES_H
#define ZQ_SOMEIP_FORMAT_RULES_H

#include <cstdint>
#include <string>
#include <vector>

#include <json/json.h>

#include "someip/ZQSomeIPPayloadAttr.h"

namespace ZQSomeIP {

// Where a message type is looked for in a service: up to two member arrays, searched in order, the
// key that holds the ID of their entries, and the "MethodType" word of the wanted "Params" entry.
// Message types outside the four kinds are never found.
enum class ZQSomeIPSearchKind : int { Request = 0, RequestNoReturn = 1, Notification = 2, Response = 3 };
struct ZQSomeIPSearchPlan {
    ZQSomeIPSearchKind kind;
    const char* arrays[2];
    const char* idKey;
    const char* methodType;
};
bool searchPlanFor(int messageType, ZQSomeIPSearchPlan& plan);
// The four plans, in the order of ZQSomeIPSearchKind.
extern const ZQSomeIPSearchPlan kSearchPlans[4];

namespace FormatRules {

// Format files: 0 for a file, 1 for a directory, -1 for neither (or nothing there).
int pathType(const std::string& path);
// A format file's name ends in ".json" (and has something before it).
bool isFormatFile(const std::string& name);
// Appends every format file below `dir` (links back to a directory above are not followed).
void recureFormatFiles(const std::string& dir, std::vector<std::string>& files);

// One encoding attribute: its key in an "Attribute" object, the record field it sets and what its
// text stands for. The nine keys in the order the lookup reads them.
struct AttributeKey {
    const char* key;
    uint32_t ZQSomeIPExtendAttr::*field;
    int (*value)(const std::string& text);
};
extern const AttributeKey kAttributeKeys[9];

// Attribute texts to engine values: sizes are stated in bits ("0", "8", "16", anything else 32),
// alignment in bits ("16", "32", "64", anything else none), byte order and encoding by name.
int lengthFieldSize(const std::string& text);
int unionTypeFieldSize(const std::string& text);
int alignment(const std::string& text);
int byteOrder(const std::string& text);
int charBit(const std::string& text);

// The nine encoding fields from an "Attribute" object (a key absent reads as ""); -1 and `attr`
// untouched when `attribute` is not an object. Throws where a value cannot be read as text, before
// anything is written.
int parseAttribute(const Json::Value& attribute, ZQSomeIPExtendAttr& attr);
// The same from the first object of `owner`'s "Attribute" array (the file's attributes).
int parseGlobalAttribute(const Json::Value& owner, ZQSomeIPExtendAttr& attr);
// The attributes a lookup match in `service` of `document` applies: the service's "Attribute"
// object, else the file's; false (and `attr` untouched) if neither can be read.
bool readLookupAttributes(const Json::Value& service, const Json::Value& document, ZQSomeIPExtendAttr& attr);

} // namespace FormatRules

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_FORMAT_RULES_H
