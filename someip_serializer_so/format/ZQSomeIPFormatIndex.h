// The format store's constant-time lookup over loaded documents (see ZQSomeIPFormatIndex below).
#ifndef ZQ_SOMEIP_FORMAT_INDEX_H
#define ZQ_SOMEIP_FORMAT_INDEX_H

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <json/json.h>

#include "ZQSomeIPFormatRules.h"
#include "someip/ZQSomeIPExport.h"
#include "someip/ZQSomeIPPayloadAttr.h"

namespace ZQSomeIP {

// Derived by compiled/ from an indexed format and kept with it; the index never looks inside.
class ZQSomeIPCompiledFormat;

// One method format found in a loaded document: where its "ParamsDetails" lives, the attributes the
// lookup applies with it (if the service or its file has any), and what is derived from it on first use.
class ZQ_SOMEIP_API ZQSomeIPIndexedMethod {
public:
    ZQSomeIPIndexedMethod(const Json::Value* details, bool hasAttr, const ZQSomeIPExtendAttr& attr)
        : details_(details), has_attr_(hasAttr), attr_(attr)
    {
    }

    bool hasAttr() const { return has_attr_; }
    // The "ParamsDetails" value in its document; null when the entry has none.
    const Json::Value* details() const { return details_; }
    const ZQSomeIPExtendAttr& attr() const { return attr_; }

    // Where the match stands: its service, its method, event or field, and its "Params" entry.
    void setOrigin(const Json::Value* service, const Json::Value* entry, const Json::Value* params)
    {
        service_ = service;
        entry_ = entry;
        params_ = params;
    }
    const Json::Value* service() const { return service_; }
    const Json::Value* entry() const { return entry_; }
    const Json::Value* params() const { return params_; }

    // The styled text of "ParamsDetails", rendered once.
    const std::string& styled() const;
    // Where the fast paths keep the compiled form of this format once they have tried to make it
    // (ZQSomeIPCompiledFormat::of): a null format after a try means the format is left to the reference.
    struct CompiledSlot {
        bool tried = false;
        std::shared_ptr<const ZQSomeIPCompiledFormat> format;
    };
    CompiledSlot& compiledSlot() const { return compiled_; }

private:
    const Json::Value* details_;  // null: the entry had no "ParamsDetails"
    const Json::Value* service_ = nullptr;
    const Json::Value* entry_ = nullptr;
    const Json::Value* params_ = nullptr;
    bool has_attr_;
    ZQSomeIPExtendAttr attr_;
    mutable bool rendered_ = false;
    mutable std::string styled_;
    mutable CompiledSlot compiled_;
};

// Constant-time lookup over the loaded documents. Consecutive documents of a regular shape are
// merged into one table that already holds what a scan over them would end with: the last match's
// method and the last attributes any match carried. A document whose shape would make the scan throw
// or mutate it in a way that shows (a root that is not an object, a "Services" that is an object, an
// entry that is not an object, attribute values that cannot be read as text, ...) gets a segment of its
// own and is scanned at every lookup, so that the same exception or result appears at the same call.
class ZQSomeIPFormatIndex {
public:
    struct Slot {
        const ZQSomeIPIndexedMethod* method = nullptr;  // the last document's match
        const ZQSomeIPExtendAttr* attr = nullptr;       // the last attributes carried by a match, if any
    };
    struct Segment {
        bool scanned = false;         // an irregular document: run the scan over it
        size_t document = 0;          // its position among the loaded documents
        std::unordered_map<uint64_t, Slot> table;
    };

    // The attributes a match in `service` of `document` brings, as the lookup reads them; false if
    // it brings none. May throw, which marks the document irregular.
    using AttributeReader =
        std::function<bool(const Json::Value& service, const Json::Value& document, ZQSomeIPExtendAttr& attr)>;

    // `document` must stay at the same address, unchanged, for the life of the index.
    void addDocument(const Json::Value& document, size_t position, const AttributeReader& readAttr);

    const std::vector<Segment>& segments() const { return segments_; }
    static const Slot* find(const Segment& segment, int serviceID, int methodID, ZQSomeIPSearchKind kind);
    static uint64_t key(int serviceID, int methodID, ZQSomeIPSearchKind kind);

private:
    // Fills `found` with the first match of every key in document order; false if the document is irregular.
    bool collect(const Json::Value& document, const AttributeReader& readAttr,
                 std::unordered_map<uint64_t, const ZQSomeIPIndexedMethod*>& found);
    bool collectService(const Json::Value& document, const Json::Value& service, const AttributeReader& readAttr,
                        std::unordered_map<uint64_t, const ZQSomeIPIndexedMethod*>& found);

    std::vector<Segment> segments_;
    std::deque<ZQSomeIPIndexedMethod> methods_;  // stable addresses for the slots
};

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_FORMAT_INDEX_H
