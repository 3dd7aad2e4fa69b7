// The output side shared by both readers: services, their methods, events and fields, shared types and
// attributes, gathered as version-2 format JSON and written deterministically; and the report.
//
// Readers describe parameters directly in the version-2 vocabulary (Json::Value objects with
// "ParamName", "ParamType", "SubParams", "Attribute", ...), since that vocabulary is this project's
// neutral model of a payload. What only the builder knows: the attribute keys and their units, the
// entry layout of methods, events and fields, type names that stay unique, and the file layout.
#ifndef ZQ_SOMEIP_IMPORT_FORMAT_BUILDER_H
#define ZQ_SOMEIP_IMPORT_FORMAT_BUILDER_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <json/json.h>

#include "ZQSomeIPImport.h"
#include "xml_input.h"

namespace ZQSomeIP {
namespace import {

// Bounds on what a description may ask for: beyond them an element is skipped and reported.
constexpr int kMaxNesting = 48;                   // type nesting (the format set allows 64 in all)
constexpr uint64_t kMaxArrayElements = 1u << 20;  // elements of one fixed array dimension
constexpr uint64_t kMaxParameters = 500000;       // parameters written for one service

class Report {
public:
    void skipped(const Place& at, const std::string& reason) { add(data_.skipped, at, reason); }
    void approximated(const Place& at, const std::string& reason) { add(data_.approximated, at, reason); }
    void unresolved(const Place& at, const std::string& reason) { add(data_.unresolved, at, reason); }
    void duplicate(const Place& at, const std::string& reason) { add(data_.duplicates, at, reason); }
    ZQSomeIPImportReport& data() { return data_; }

private:
    static void add(std::vector<ZQSomeIPImportIssue>& list, const Place& at, const std::string& reason)
    {
        list.push_back({at.file, at.line, at.path, reason});
    }
    ZQSomeIPImportReport data_;
};

// Serialization attributes in SOME/IP's own terms (sizes in bytes, as both description formats give
// them); written out as the format's keys (sizes in bits). Defaults are SOME/IP's, not the lookup's.
struct Attributes {
    uint32_t arrayLength = 0;   // fixed arrays: no length field
    uint32_t vectorLength = 4;
    uint32_t structLength = 0;  // structures: no length field
    uint32_t stringLength = 4;
    uint32_t unionLength = 4;
    uint32_t unionType = 4;
    uint32_t alignment = 1;     // bytes: 1 none, 2, 4, 8
    bool bigEndian = true;
    bool utf16 = false;

    bool operator==(const Attributes& o) const;
    bool operator!=(const Attributes& o) const { return !(*this == o); }
    // All nine keys.
    Json::Value toJson() const;
    // The keys whose values differ from `inherited` (for an element's "Attribute"); null when none do.
    Json::Value differences(const Attributes& inherited) const;
    // A length or type field size in bytes that the format can express (0, 1, 2, 4).
    static bool fieldSize(uint64_t bytes) { return bytes == 0 || bytes == 1 || bytes == 2 || bytes == 4; }
    static bool alignmentSize(uint64_t bytes) { return bytes == 1 || bytes == 2 || bytes == 4 || bytes == 8; }
};

class FormatBuilder {
public:
    explicit FormatBuilder(Report& report) : report_(report) {}

    // A service to fill; one of the same ID and major version (-1: none) met before is replaced, and
    // the replacement reported at `at`. Returns the service's index for the calls below.
    size_t service(const Place& at, uint16_t id, int majorVersion, const std::string& name, const Attributes& attributes);

    // A parameter list: the parameters, and keys for its "Params" element ("Attribute", "Tlv"). The
    // parameters are either given as JSON in `params` or added one by one with param(), which writes
    // them at once (a big import has tens of thousands, and a JSON object each is most of its cost).
    struct List {
        Json::Value params{Json::arrayValue};
        Json::Value keys{Json::objectValue};
        std::string written;                // param(): held text (see Writer in the .cpp)
        std::vector<std::string> typeRefs;  // param(): the shared types named
    };
    // A parameter that names its type: a basic one inline or a shared type, with keys beside it.
    struct Param {
        std::string name;
        std::string type;
        bool shared = false;
        Json::Value attribute;  // null: none
        bool hasDataId = false;
        uint32_t dataId = 0;
    };
    // Adds `p` to `list`, as params would hold {"Attribute", "DataId", "ParamName", "ParamType", "TypeRef"}.
    static void param(List& list, const Param& p);
    // A method without a response is fire-and-forget.
    void method(size_t service, const std::string& name, uint16_t id, const List& request, const List* response,
                const List* error = nullptr);
    void event(size_t service, const std::string& name, uint16_t id, const List& params);
    // A field's getter (request empty, response the value), setter (request and response the value)
    // and notifier (an event with the value); -1 for the ones it has not.
    void field(size_t service, const std::string& name, int getter, int setter, int notifier, const List& value);

    // A shared type: the name it gets in "Types" (unique; `preferred` when free, else with a suffix).
    // `key` identifies the description element, so that it is defined once, however often used.
    std::string typeName(const std::string& key, const std::string& preferred);
    bool hasType(const std::string& key) const { return typeKeys_.count(key) != 0; }
    void defineType(const std::string& name, Json::Value type);
    // {"ParamName": name, "ParamType": "TYPEREF", "TypeRef": type}
    static Json::Value typeRef(const std::string& name, const std::string& type);

    // Counts and texts (as the options ask). Services in ID order, then major version; entries in ID order.
    void finish(ZQSomeIPImportResult& result, const ZQSomeIPImportOptions& options);

private:
    // Entries are kept as their text from the moment they are added: a big import holds tens of
    // thousands, and their JSON trees would take several times the memory of the text.
    enum Kind { Events, Fields, Methods, kKinds };  // in the order their keys sort
    struct Entry {
        uint32_t order;  // by ID; a field's notifier after its methods
        std::string text;  // held text: its indents as their widths (see Writer in the .cpp)
    };
    struct Service {
        uint16_t id;
        int majorVersion;
        Json::Value head;  // name, ID, version, attributes
        std::vector<Entry> entries[kKinds];
        std::set<std::string> fieldNames;
        std::set<std::string> types;  // named by its entries directly
    };
    // A parameter list in an entry: its direction, its keys, and its parameters written before (a
    // field's value stands in up to four lists, and is written once).
    struct ListText {
        const char* direction;
        const List* list;
        const std::string* params;
    };
    std::string paramsText(size_t service, const List& list);
    void add(size_t service, Kind kind, uint32_t order, const char* nameKey, const std::string& name, const char* idKey,
             uint16_t id, const std::vector<ListText>& lists);
    std::string serviceText(const Service& s) const;
    // A defined type as the documents write it, and the types it refers to directly (by their place in
    // name order): each written once, however many per-service documents it stands in.
    struct TypeText {
        std::string name;
        std::string text;
        std::vector<size_t> refs;
    };
    std::vector<TypeText> typeTexts() const;  // in name order
    // The place of a defined type in name order; `texts.size()` for a name not defined.
    static size_t typeIndex(const std::vector<TypeText>& texts, const std::string& name);
    // The version-2 document of these services, with the types they use.
    std::string document(const std::vector<const Service*>& services, const std::vector<size_t>& types,
                         const std::vector<TypeText>& texts) const;
    // The defined types these services use, directly or through other types, in name order.
    static std::vector<size_t> closure(const std::vector<const Service*>& services, const std::vector<TypeText>& texts);

    Report& report_;
    std::vector<Service> services_;
    std::map<std::string, std::string> typeKeys_;  // description element -> type name
    std::set<std::string> typeNames_;
    Json::Value types_{Json::objectValue};
};

}  // namespace import
}  // namespace ZQSomeIP

#endif
