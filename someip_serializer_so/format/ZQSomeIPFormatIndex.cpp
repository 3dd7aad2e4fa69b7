#include "ZQSomeIPFormatIndex.h"

#include <stdexcept>

#include "ZQSomeIPNumberText.h"

namespace ZQSomeIP {

namespace {

// A value the scan would index by position: arrays, and anything of size 0 (which it never indexes).
// A non-empty object would make the scan's positional access throw.
bool positional(const Json::Value& v)
{
    return !v.isObject() || v.empty();
}

// Null members are turned into empty objects by the scan's keyed access; other non-objects throw.
bool keyed(const Json::Value& v)
{
    return v.isObject() || v.isNull();
}

// The ID the scan reads from `owner[key]`; throws where the scan throws.
int idOf(const Json::Value& owner, const char* key)
{
    return quickStringToNum<int>(owner.isObject() ? owner.get(key, Json::Value()).asString() : std::string());
}

} // namespace

const std::string& ZQSomeIPIndexedMethod::styled() const
{
    if (!rendered_) {
        styled_ = details_ ? details_->toStyledString() : Json::Value().toStyledString();
        rendered_ = true;
    }
    return styled_;
}

uint64_t ZQSomeIPFormatIndex::key(int serviceID, int methodID, ZQSomeIPSearchKind kind)
{
    return (static_cast<uint64_t>(static_cast<uint32_t>(serviceID)) << 34) |
           (static_cast<uint64_t>(static_cast<uint32_t>(methodID)) << 2) | static_cast<uint64_t>(kind);
}

const ZQSomeIPFormatIndex::Slot* ZQSomeIPFormatIndex::find(const Segment& segment, int serviceID, int methodID,
                                                           ZQSomeIPSearchKind kind)
{
    const auto it = segment.table.find(key(serviceID, methodID, kind));
    return it == segment.table.end() ? nullptr : &it->second;
}

bool ZQSomeIPFormatIndex::collect(const Json::Value& document, const AttributeReader& readAttr,
                                  std::unordered_map<uint64_t, const ZQSomeIPIndexedMethod*>& found)
{
    if (!keyed(document)) {
        return false;
    }
    const Json::Value& services = document.isObject() ? document["Services"] : Json::Value::nullSingleton();
    if (!positional(services)) {
        return false;
    }
    const Json::ArrayIndex serviceCount = services.isArray() ? services.size() : 0;
    for (Json::ArrayIndex i = 0; i < serviceCount; ++i) {
        if (!collectService(document, services[i], readAttr, found)) {
            return false;
        }
    }
    return true;
}

bool ZQSomeIPFormatIndex::collectService(const Json::Value& document, const Json::Value& service,
                                         const AttributeReader& readAttr,
                                         std::unordered_map<uint64_t, const ZQSomeIPIndexedMethod*>& found)
{
    if (!keyed(service)) {
        return false;
    }
    const int serviceID = idOf(service, "ServiceID");
    if (!service.isObject()) {
        return true;  // an empty service: matches ID 0 and holds nothing
    }
    for (const char* arrayName : {"Methods", "Events", "Fields"}) {
        if (!positional(service[arrayName])) {
            return false;
        }
    }
    bool attrRead = false;
    bool hasAttr = false;
    ZQSomeIPExtendAttr attr;
    for (const ZQSomeIPSearchPlan& plan : kSearchPlans) {
        for (const char* arrayName : plan.arrays) {
            if (arrayName == nullptr || !service[arrayName].isArray()) {
                continue;
            }
            for (const Json::Value& entry : service[arrayName]) {
                if (!keyed(entry)) {
                    return false;
                }
                const int methodID = idOf(entry, plan.idKey);
                const Json::Value& params = entry.isObject() ? entry["Params"] : Json::Value::nullSingleton();
                if (!positional(params)) {
                    return false;
                }
                if (!params.isArray()) {
                    continue;
                }
                for (const Json::Value& param : params) {
                    if (!keyed(param)) {
                        return false;
                    }
                    if (!param.isObject() || param.get("MethodType", Json::Value()).asString() != plan.methodType) {
                        continue;
                    }
                    const uint64_t k = key(serviceID, methodID, plan.kind);
                    if (found.count(k) != 0) {
                        continue;  // an earlier service or entry of this document wins
                    }
                    if (!attrRead) {
                        hasAttr = readAttr(service, document, attr);
                        attrRead = true;
                    }
                    const Json::Value* details = param.isMember("ParamsDetails") ? &param["ParamsDetails"] : nullptr;
                    methods_.emplace_back(details, hasAttr, attr);
                    methods_.back().setOrigin(&service, &entry, &param);
                    found.emplace(k, &methods_.back());
                }
            }
        }
    }
    return true;
}

void ZQSomeIPFormatIndex::addDocument(const Json::Value& document, size_t position, const AttributeReader& readAttr)
{
    std::unordered_map<uint64_t, const ZQSomeIPIndexedMethod*> found;
    const size_t kept = methods_.size();
    bool regular = false;
    try {
        regular = collect(document, readAttr, found);
    } catch (const std::exception&) {
        regular = false;
    }
    if (!regular) {
        while (methods_.size() > kept) {
            methods_.pop_back();
        }
        Segment segment;
        segment.scanned = true;
        segment.document = position;
        segments_.push_back(std::move(segment));
        return;
    }
    if (segments_.empty() || segments_.back().scanned) {
        segments_.emplace_back();
        segments_.back().document = position;
    }
    auto& table = segments_.back().table;
    for (const auto& match : found) {
        Slot& slot = table[match.first];
        slot.method = match.second;
        if (match.second->hasAttr()) {
            slot.attr = &match.second->attr();
        }
    }
}

} // namespace ZQSomeIP
