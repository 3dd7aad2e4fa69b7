#include "format_builder.h"

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <sstream>

namespace ZQSomeIP {
namespace import {

namespace {

std::string bits(uint32_t bytes) { return std::to_string(bytes * 8); }

Json::Value list(const char* direction, const FormatBuilder::List& l)
{
    Json::Value element = l.keys;
    element["MethodType"] = direction;
    element["ParamsDetails"] = l.params;
    return element;
}

uint64_t idOf(const Json::Value& entry, const char* key)
{
    return entry.isMember(key) ? std::stoull(entry[key].asString()) : 0;
}

void sortEntries(Json::Value& entries, const char* key, const char* otherKey)
{
    std::vector<Json::Value> sorted(entries.begin(), entries.end());
    // Stable: a field's getter, setter and notifier keep the order they were added in.
    std::stable_sort(sorted.begin(), sorted.end(), [key, otherKey](const Json::Value& a, const Json::Value& b) {
        const uint64_t ka = a.isMember(key) ? idOf(a, key) : 0x10000 + idOf(a, otherKey);
        const uint64_t kb = b.isMember(key) ? idOf(b, key) : 0x10000 + idOf(b, otherKey);
        return ka < kb;
    });
    entries = Json::Value(Json::arrayValue);
    for (Json::Value& e : sorted) {
        entries.append(std::move(e));
    }
}

// Pretty JSON, two blanks an indent, members in key order: written straight into one string, since a
// big import writes tens of megabytes and the library's stream writer copies through an ostream.
void write(std::string& out, const Json::Value& v, size_t indent)
{
    switch (v.type()) {
    case Json::objectValue:
    case Json::arrayValue: {
        const bool object = v.isObject();
        if (v.empty()) {
            out += object ? "{}" : "[]";
            return;
        }
        out += object ? '{' : '[';
        bool first = true;
        for (auto it = v.begin(); it != v.end(); ++it) {
            out += first ? "\n" : ",\n";
            first = false;
            out.append(indent + 2, ' ');
            if (object) {
                out += Json::valueToQuotedString(it.name().c_str());
                out += ": ";
            }
            write(out, *it, indent + 2);
        }
        out += '\n';
        out.append(indent, ' ');
        out += object ? '}' : ']';
        return;
    }
    case Json::stringValue: {
        const char* begin = nullptr;
        const char* end = nullptr;
        v.getString(&begin, &end);
        out += Json::valueToQuotedString(std::string(begin, end).c_str());
        return;
    }
    case Json::intValue: out += std::to_string(v.asLargestInt()); return;
    case Json::uintValue: out += std::to_string(v.asLargestUInt()); return;
    case Json::realValue: out += Json::valueToString(v.asDouble()); return;
    case Json::booleanValue: out += v.asBool() ? "true" : "false"; return;
    case Json::nullValue: out += "null"; return;
    }
}

std::string fileName(const Json::Value& service)
{
    char id[8];
    snprintf(id, sizeof(id), "%04x", static_cast<unsigned>(std::stoul(service["ServiceID"].asString())));
    std::string name = std::string("0x") + id;
    if (service.isMember("MajorVersion")) {
        name += "_v" + std::to_string(service["MajorVersion"].asInt());
    }
    std::string label = service["ServiceName"].asString();
    for (char& c : label) {
        if (!isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') {
            c = '_';
        }
    }
    return name + (label.empty() ? "" : "_" + label.substr(0, 64)) + ".json";
}

}  // namespace

bool Attributes::operator==(const Attributes& o) const
{
    return arrayLength == o.arrayLength && vectorLength == o.vectorLength && structLength == o.structLength &&
           stringLength == o.stringLength && unionLength == o.unionLength && unionType == o.unionType &&
           alignment == o.alignment && bigEndian == o.bigEndian && utf16 == o.utf16;
}

Json::Value Attributes::toJson() const
{
    Json::Value a(Json::objectValue);
    a["ArrayLengthFieldSize"] = bits(arrayLength);
    a["VectorLengthFieldSize"] = bits(vectorLength);
    a["StructLengthFieldSize"] = bits(structLength);
    a["StringLengthFieldSize"] = bits(stringLength);
    a["UnionLengthFieldSize"] = bits(unionLength);
    a["UnionTypeSelectorFieldSize"] = bits(unionType);
    a["DataAlignment"] = bits(alignment);
    a["ByteOrderEnum"] = bigEndian ? "BYTE_ORDER_BIG_ENDIAN" : "BYTE_ORDER_LITTLE_ENDIAN";
    a["StringEncoding"] = utf16 ? "UTF16" : "UTF8";
    return a;
}

Json::Value Attributes::differences(const Attributes& inherited) const
{
    const Json::Value mine = toJson(), theirs = inherited.toJson();
    Json::Value d(Json::nullValue);
    for (const std::string& key : mine.getMemberNames()) {
        if (mine[key] != theirs[key]) {
            d[key] = mine[key];
        }
    }
    return d;
}

size_t FormatBuilder::service(const Place& at, uint16_t id, int majorVersion, const std::string& name,
                              const Attributes& attributes)
{
    Json::Value s(Json::objectValue);
    s["ServiceName"] = name;
    s["ServiceID"] = std::to_string(id);
    if (majorVersion >= 0) {
        s["MajorVersion"] = majorVersion;
    }
    s["Attribute"] = attributes.toJson();
    s["Methods"] = Json::Value(Json::arrayValue);
    s["Events"] = Json::Value(Json::arrayValue);
    s["Fields"] = Json::Value(Json::arrayValue);
    for (size_t i = 0; i < services_.size(); ++i) {
        if (services_[i].id == id && services_[i].majorVersion == majorVersion) {
            report_.duplicate(at, "service " + std::to_string(id) + " (\"" + services_[i].json["ServiceName"].asString() +
                                      "\") is described again; the later description replaces it");
            services_[i].json = std::move(s);
            return i;
        }
    }
    services_.push_back({id, majorVersion, std::move(s)});
    return services_.size() - 1;
}

void FormatBuilder::method(size_t service, const std::string& name, uint16_t id, const List& request, const List* response,
                           const List* error)
{
    Json::Value m(Json::objectValue);
    m["MethodName"] = name;
    m["MethodID"] = std::to_string(id);
    m["Params"].append(list("request", request));
    if (response != nullptr) {
        m["Params"].append(list("response", *response));
    }
    if (error != nullptr) {
        m["Params"].append(list("error", *error));
    }
    services_[service].json["Methods"].append(std::move(m));
}

void FormatBuilder::event(size_t service, const std::string& name, uint16_t id, const List& params)
{
    Json::Value e(Json::objectValue);
    e["EventName"] = name;
    e["EventID"] = std::to_string(id);
    e["Params"].append(list("event", params));
    services_[service].json["Events"].append(std::move(e));
}

void FormatBuilder::field(size_t service, const std::string& name, int getter, int setter, int notifier, const List& value)
{
    Json::Value& fields = services_[service].json["Fields"];
    const List none;
    // One entry per role: the lookup tells them apart by ID, and each has its own message layouts.
    auto add = [&](const char* idKey, int id, std::initializer_list<std::pair<const char*, const List*>> lists) {
        if (id < 0) {
            return;
        }
        Json::Value f(Json::objectValue);
        f["FieldName"] = name;
        f[idKey] = std::to_string(id);
        for (const auto& l : lists) {
            f["Params"].append(list(l.first, *l.second));
        }
        fields.append(std::move(f));
    };
    add("MethodID", getter, {{"request", &none}, {"response", &value}});
    add("MethodID", setter, {{"request", &value}, {"response", &value}});
    add("EventID", notifier, {{"event", &value}});
}

std::string FormatBuilder::typeName(const std::string& key, const std::string& preferred)
{
    const auto known = typeKeys_.find(key);
    if (known != typeKeys_.end()) {
        return known->second;
    }
    std::string base = preferred.empty() ? "Type" : preferred;
    std::string name = base;
    for (int n = 2; typeNames_.count(name) != 0; ++n) {
        name = base + "_" + std::to_string(n);
    }
    typeNames_.insert(name);
    typeKeys_[key] = name;
    return name;
}

void FormatBuilder::defineType(const std::string& name, Json::Value type) { types_[name] = std::move(type); }

Json::Value FormatBuilder::typeRef(const std::string& name, const std::string& type)
{
    Json::Value p(Json::objectValue);
    p["ParamName"] = name;
    p["ParamType"] = "TYPEREF";
    p["TypeRef"] = type;
    return p;
}

void FormatBuilder::usedTypes(const Json::Value& value, std::set<std::string>& names) const
{
    if (value.isObject()) {
        const Json::Value* ref = value.find("TypeRef", "TypeRef" + 7);
        if (ref != nullptr && ref->isString() && value["ParamType"] == "TYPEREF") {
            const std::string name = ref->asString();
            if (names.insert(name).second && types_.isMember(name)) {
                usedTypes(types_[name], names);
            }
        }
    }
    if (value.isObject() || value.isArray()) {
        for (const Json::Value& v : value) {
            usedTypes(v, names);
        }
    }
}

std::string FormatBuilder::document(const std::vector<const Service*>& services, const std::set<std::string>* types) const
{
    // The members in key order, as the document would list them: FormatVersion, Services, Types.
    std::string out = "{\n  \"FormatVersion\": 2,\n  \"Services\": [";
    for (size_t i = 0; i < services.size(); ++i) {
        out += i == 0 ? "\n    " : ",\n    ";
        write(out, services[i]->json, 4);
    }
    out += services.empty() ? "]" : "\n  ]";
    const bool anyTypes = types == nullptr ? !types_.empty() : !types->empty();
    if (anyTypes) {
        out += ",\n  \"Types\": {";
        bool first = true;
        for (auto it = types_.begin(); it != types_.end(); ++it) {
            if (types != nullptr && types->count(it.name()) == 0) {
                continue;
            }
            out += first ? "\n    " : ",\n    ";
            first = false;
            out += Json::valueToQuotedString(it.name().c_str());
            out += ": ";
            write(out, *it, 4);
        }
        out += "\n  }";
    }
    out += "\n}\n";
    return out;
}

void FormatBuilder::finish(ZQSomeIPImportResult& result, bool perService)
{
    std::vector<const Service*> order;
    for (Service& s : services_) {
        sortEntries(s.json["Methods"], "MethodID", "MethodID");
        sortEntries(s.json["Events"], "EventID", "EventID");
        sortEntries(s.json["Fields"], "MethodID", "EventID");
        for (const char* key : {"Methods", "Events", "Fields"}) {
            if (s.json[key].empty()) {
                s.json.removeMember(key);
            }
        }
        order.push_back(&s);
    }
    std::stable_sort(order.begin(), order.end(), [](const Service* a, const Service* b) {
        return a->id != b->id ? a->id < b->id : a->majorVersion < b->majorVersion;
    });
    ZQSomeIPImportReport& r = report_.data();
    r.services = order.size();
    for (const Service* s : order) {
        r.methods += s->json["Methods"].size();
        r.events += s->json["Events"].size();
        std::set<std::string> fieldNames;
        for (const Json::Value& f : s->json["Fields"]) {
            fieldNames.insert(f["FieldName"].asString());
        }
        r.fields += fieldNames.size();
        if (perService) {
            std::set<std::string> names;
            usedTypes(s->json, names);
            result.perService.push_back({fileName(s->json), document({s}, &names)});
        }
    }
    // The types some service uses: one left behind by an element skipped later is not written.
    std::set<std::string> used;
    for (const Service* s : order) {
        usedTypes(s->json, used);
    }
    r.types = static_cast<size_t>(std::count_if(used.begin(), used.end(), [this](const std::string& n) { return types_.isMember(n); }));
    result.formatText = document(order, &used);
}

}  // namespace import
}  // namespace ZQSomeIP

namespace ZQSomeIP {

std::string ZQSomeIPImportReport::toJson() const
{
    Json::Value r(Json::objectValue);
    r["services"] = static_cast<Json::UInt64>(services);
    r["methods"] = static_cast<Json::UInt64>(methods);
    r["events"] = static_cast<Json::UInt64>(events);
    r["fields"] = static_cast<Json::UInt64>(fields);
    r["types"] = static_cast<Json::UInt64>(types);
    const std::pair<const char*, const std::vector<ZQSomeIPImportIssue>*> lists[] = {
        {"skipped", &skipped}, {"approximated", &approximated}, {"unresolved", &unresolved}, {"duplicates", &duplicates}};
    for (const auto& l : lists) {
        Json::Value& out = r[l.first] = Json::Value(Json::arrayValue);
        for (const ZQSomeIPImportIssue& i : *l.second) {
            Json::Value issue(Json::objectValue);
            issue["file"] = i.file;
            issue["line"] = static_cast<Json::UInt64>(i.line);
            issue["path"] = i.path;
            issue["reason"] = i.reason;
            out.append(std::move(issue));
        }
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, r);
}

std::string ZQSomeIPImportReport::summary() const
{
    std::ostringstream s;
    s << services << " services, " << methods << " methods, " << events << " events, " << fields << " fields, " << types
      << " types; " << skipped.size() << " skipped, " << approximated.size() << " approximated, " << unresolved.size()
      << " unresolved, " << duplicates.size() << " duplicates";
    return s.str();
}

}  // namespace ZQSomeIP
