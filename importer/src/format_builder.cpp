#include "format_builder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <sstream>

namespace ZQSomeIP {
namespace import {

namespace {

// Where an entry's parts stand in the document: the entry itself, and the elements of its "Params".
constexpr size_t kEntryIndent = 8;
constexpr size_t kListIndent = 12;

std::string bits(uint32_t bytes) { return std::to_string(bytes * 8); }

// A string quoted as the JSON library quotes it. Nearly everything an import writes (keys, names, type
// names) needs no escape and is copied as it is, without the library's two allocations per string.
void quoted(std::string& out, const char* begin, const char* end)
{
    // What the library escapes: quotes, backslashes, control characters and all of UTF-8 beyond ASCII.
    static const auto kEscaped = [] {
        std::array<bool, 256> t{};
        for (int c = 0; c < 256; ++c) {
            t[c] = c < 0x20 || c >= 0x80 || c == '"' || c == '\\';
        }
        return t;
    }();
    const char* p = begin;
    while (p != end && !kEscaped[static_cast<unsigned char>(*p)]) {
        ++p;
    }
    if (p == end) {
        out += '"';
        out.append(begin, end);
        out += '"';
        return;
    }
    // The library takes a C string: whatever follows a NUL never shows, here neither.
    out += Json::valueToQuotedString(std::string(begin, std::find(p, end, '\0')).c_str());
}

void quoted(std::string& out, const std::string& s) { quoted(out, s.data(), s.data() + s.size()); }

// An object member written in key order among its siblings: a value, or text written before at its depth.
struct Member {
    std::string key;
    const Json::Value* value;
    const std::string* text;
};

// Pretty JSON, two blanks an indent, members in key order: written straight into one string, since a
// big import writes tens of megabytes and the library's stream writer copies through an ostream.
//
// Entries are held from the moment they are added until the end, and half of their text would be the
// blanks that indent it: held text has each line break followed by its indent's width instead (7 bits
// a byte, the last byte below 128), and withIndents() puts the blanks in when the document is written.
// A line break stands nowhere else in written JSON, since strings escape control characters.
class Writer {
public:
    // The names of the types the text refers to ("TypeRef") go to `types`, when given.
    Writer(std::string& out, bool held, std::set<std::string>* types = nullptr) : out_(out), held_(held), types_(types) {}

    // A line break and the indent of the next line.
    void line(size_t indent)
    {
        out_ += '\n';
        if (!held_) {
            out_.append(indent, ' ');
            return;
        }
        for (;; indent >>= 7) {
            if (indent < 0x80) {
                out_ += static_cast<char>(indent);
                return;
            }
            out_ += static_cast<char>(0x80 | (indent & 0x7F));
        }
    }

    void value(const Json::Value& v, size_t indent)
    {
        switch (v.type()) {
        case Json::objectValue:
        case Json::arrayValue: {
            const bool object = v.isObject();
            if (v.empty()) {
                out_ += object ? "{}" : "[]";
                return;
            }
            out_ += object ? '{' : '[';
            bool first = true;
            for (auto it = v.begin(); it != v.end(); ++it) {
                if (!first) {
                    out_ += ',';
                }
                first = false;
                line(indent + 2);
                if (object) {
                    const char* end = nullptr;
                    const char* name = it.memberName(&end);
                    quoted(out_, name, end);
                    out_ += ": ";
                    if (types_ != nullptr && end - name == 7 && std::memcmp(name, "TypeRef", 7) == 0 && it->isString()) {
                        types_->insert(it->asString());
                    }
                }
                value(*it, indent + 2);
            }
            line(indent);
            out_ += object ? '}' : ']';
            return;
        }
        case Json::stringValue: {
            const char* begin = nullptr;
            const char* end = nullptr;
            v.getString(&begin, &end);
            quoted(out_, begin, end);
            return;
        }
        case Json::intValue: out_ += std::to_string(v.asLargestInt()); return;
        case Json::uintValue: out_ += std::to_string(v.asLargestUInt()); return;
        case Json::realValue: out_ += Json::valueToString(v.asDouble()); return;
        case Json::booleanValue: out_ += v.asBool() ? "true" : "false"; return;
        case Json::nullValue: out_ += "null"; return;
        }
    }

    // An object of members put together here; text given for a member was written at its depth.
    void object(std::vector<Member>& members, size_t indent)
    {
        // The order of a JSON object's members: bytewise, as the library's map keeps them.
        std::sort(members.begin(), members.end(), [](const Member& a, const Member& b) { return a.key < b.key; });
        out_ += '{';
        for (size_t i = 0; i < members.size(); ++i) {
            if (i != 0) {
                out_ += ',';
            }
            line(indent + 2);
            quoted(out_, members[i].key);
            out_ += ": ";
            if (members[i].value != nullptr) {
                value(*members[i].value, indent + 2);
            } else {
                out_ += *members[i].text;
            }
        }
        line(indent);
        out_ += '}';
    }

private:
    std::string& out_;
    const bool held_;
    std::set<std::string>* types_;
};

void write(std::string& out, const Json::Value& v, size_t indent) { Writer(out, false).value(v, indent); }

// Held text (see Writer) with its indents as blanks.
void withIndents(std::string& out, const std::string& text)
{
    const char* p = text.data();
    const char* const end = p + text.size();
    while (p != end) {
        const char* brk = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
        if (brk == nullptr) {
            out.append(p, end);
            return;
        }
        out.append(p, brk + 1);
        size_t width = 0;
        int shift = 0;
        for (p = brk + 1; p != end && shift < 64; shift += 7) {
            const auto b = static_cast<unsigned char>(*p++);
            width |= static_cast<size_t>(b & 0x7F) << shift;
            if (b < 0x80) {
                break;
            }
        }
        out.append(width, ' ');
    }
}

std::string fileName(uint16_t serviceId, int majorVersion, std::string label)
{
    char id[8];
    snprintf(id, sizeof(id), "%04x", static_cast<unsigned>(serviceId));
    std::string name = std::string("0x") + id;
    if (majorVersion >= 0) {
        name += "_v" + std::to_string(majorVersion);
    }
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
    Service s{id, majorVersion, Json::Value(Json::objectValue), {}, {}, {}};
    s.head["ServiceName"] = name;
    s.head["ServiceID"] = std::to_string(id);
    if (majorVersion >= 0) {
        s.head["MajorVersion"] = majorVersion;
    }
    s.head["Attribute"] = attributes.toJson();
    for (size_t i = 0; i < services_.size(); ++i) {
        if (services_[i].id == id && services_[i].majorVersion == majorVersion) {
            report_.duplicate(at, "service " + std::to_string(id) + " (\"" + services_[i].head["ServiceName"].asString() +
                                      "\") is described again; the later description replaces it");
            services_[i] = std::move(s);
            return i;
        }
    }
    services_.push_back(std::move(s));
    return services_.size() - 1;
}

std::string FormatBuilder::paramsText(size_t service, const List& list)
{
    std::string text;
    Writer w(text, true, &services_[service].types);
    if (list.written.empty()) {
        w.value(list.params, kListIndent + 2);
        return text;
    }
    services_[service].types.insert(list.typeRefs.begin(), list.typeRefs.end());
    text.reserve(list.written.size() + 4);
    text += '[';
    text += list.written;
    w.line(kListIndent + 2);
    text += ']';
    return text;
}

void FormatBuilder::param(List& list, const Param& p)
{
    // Written as Writer::value writes the same object, an element of the list's array.
    constexpr size_t indent = kListIndent + 4;
    std::string& out = list.written;
    Writer w(out, true);
    if (!out.empty()) {
        out += ',';
    }
    w.line(indent);
    out += '{';
    if (!p.attribute.isNull()) {
        w.line(indent + 2);
        out += "\"Attribute\": ";
        w.value(p.attribute, indent + 2);
        out += ',';
    }
    if (p.hasDataId) {
        w.line(indent + 2);
        out += "\"DataId\": ";
        out += std::to_string(p.dataId);
        out += ',';
    }
    w.line(indent + 2);
    out += "\"ParamName\": ";
    quoted(out, p.name);
    out += ',';
    w.line(indent + 2);
    out += "\"ParamType\": ";
    if (p.shared) {
        out += "\"TYPEREF\",";
        w.line(indent + 2);
        out += "\"TypeRef\": ";
        list.typeRefs.push_back(p.type);
    }
    quoted(out, p.type);
    w.line(indent);
    out += '}';
}

void FormatBuilder::add(size_t service, Kind kind, uint32_t order, const char* nameKey, const std::string& name,
                        const char* idKey, uint16_t id, const std::vector<ListText>& lists)
{
    Service& s = services_[service];
    std::string params = "[";
    Writer p(params, true, &s.types);
    for (const ListText& l : lists) {
        if (params.size() != 1) {
            params += ',';
        }
        p.line(kListIndent);
        // The list's own keys, then those of the entry, which win over a key of the same name.
        const Json::Value direction(l.direction);
        std::vector<Member> members;
        for (auto it = l.list->keys.begin(); it != l.list->keys.end(); ++it) {
            std::string key = it.name();
            if (key != "MethodType" && key != "ParamsDetails") {
                members.push_back({std::move(key), &*it, nullptr});
            }
        }
        members.push_back({"MethodType", &direction, nullptr});
        members.push_back({"ParamsDetails", nullptr, l.params});
        p.object(members, kListIndent);
    }
    p.line(kListIndent - 2);
    params += ']';
    const Json::Value nameValue(name), idValue(std::to_string(id));
    std::vector<Member> members = {{nameKey, &nameValue, nullptr}, {idKey, &idValue, nullptr}, {"Params", nullptr, &params}};
    std::string text;
    Writer(text, true, &s.types).object(members, kEntryIndent);
    // Tens of thousands of entries are held until the end: without the slack of their growth.
    text.shrink_to_fit();
    s.entries[kind].push_back({order, std::move(text)});
}

void FormatBuilder::method(size_t service, const std::string& name, uint16_t id, const List& request, const List* response,
                           const List* error)
{
    const std::string requestText = paramsText(service, request);
    const std::string responseText = response != nullptr ? paramsText(service, *response) : std::string();
    const std::string errorText = error != nullptr ? paramsText(service, *error) : std::string();
    std::vector<ListText> lists = {{"request", &request, &requestText}};
    if (response != nullptr) {
        lists.push_back({"response", response, &responseText});
    }
    if (error != nullptr) {
        lists.push_back({"error", error, &errorText});
    }
    add(service, Methods, id, "MethodName", name, "MethodID", id, lists);
}

void FormatBuilder::event(size_t service, const std::string& name, uint16_t id, const List& params)
{
    const std::string text = paramsText(service, params);
    add(service, Events, id, "EventName", name, "EventID", id, {{"event", &params, &text}});
}

void FormatBuilder::field(size_t service, const std::string& name, int getter, int setter, int notifier, const List& value)
{
    const List none;
    services_[service].fieldNames.insert(name);
    // The value's parameters are written once, for the up to four lists it stands in.
    const std::string noneText = paramsText(service, none), valueText = paramsText(service, value);
    // One entry per role: the lookup tells them apart by ID, and each has its own message layouts.
    if (getter >= 0) {
        add(service, Fields, static_cast<uint32_t>(getter), "FieldName", name, "MethodID", static_cast<uint16_t>(getter),
            {{"request", &none, &noneText}, {"response", &value, &valueText}});
    }
    if (setter >= 0) {
        add(service, Fields, static_cast<uint32_t>(setter), "FieldName", name, "MethodID", static_cast<uint16_t>(setter),
            {{"request", &value, &valueText}, {"response", &value, &valueText}});
    }
    if (notifier >= 0) {
        add(service, Fields, 0x10000u + static_cast<uint32_t>(notifier), "FieldName", name, "EventID",
            static_cast<uint16_t>(notifier), {{"event", &value, &valueText}});
    }
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
    // Keys as static strings: the library keeps them without a copy, for one of the most made objects.
    static const Json::StaticString kName("ParamName"), kType("ParamType"), kRef("TypeRef"), kTyperef("TYPEREF");
    Json::Value p(Json::objectValue);
    p[kName] = name;
    p[kType] = kTyperef;
    p[kRef] = type;
    return p;
}

std::vector<FormatBuilder::TypeText> FormatBuilder::typeTexts() const
{
    std::vector<TypeText> texts;
    std::vector<std::set<std::string>> refs;
    for (auto it = types_.begin(); it != types_.end(); ++it) {
        texts.push_back({it.name(), std::string(), {}});
    }
    // The library keeps members in bytewise order already; sorted here so as not to depend on it.
    std::sort(texts.begin(), texts.end(), [](const TypeText& a, const TypeText& b) { return a.name < b.name; });
    for (TypeText& t : texts) {
        std::set<std::string> names;
        Writer(t.text, false, &names).value(types_[t.name], 4);
        for (const std::string& n : names) {
            const size_t i = typeIndex(texts, n);
            if (i != texts.size()) {
                t.refs.push_back(i);
            }
        }
    }
    return texts;
}

std::vector<size_t> FormatBuilder::closure(const std::vector<const Service*>& services, const std::vector<TypeText>& texts)
{
    std::vector<char> used(texts.size(), 0);
    std::vector<size_t> todo;
    for (const Service* s : services) {
        for (const std::string& name : s->types) {
            todo.push_back(typeIndex(texts, name));
        }
    }
    // Each type is walked once, however many services use it.
    while (!todo.empty()) {
        const size_t i = todo.back();
        todo.pop_back();
        if (i == texts.size() || used[i]) {
            continue;
        }
        used[i] = 1;
        todo.insert(todo.end(), texts[i].refs.begin(), texts[i].refs.end());
    }
    std::vector<size_t> out;
    for (size_t i = 0; i < used.size(); ++i) {
        if (used[i]) {
            out.push_back(i);
        }
    }
    return out;
}

size_t FormatBuilder::typeIndex(const std::vector<TypeText>& texts, const std::string& name)
{
    const auto at = std::lower_bound(texts.begin(), texts.end(), name,
                                     [](const TypeText& t, const std::string& n) { return t.name < n; });
    return at != texts.end() && at->name == name ? static_cast<size_t>(at - texts.begin()) : texts.size();
}

std::string FormatBuilder::serviceText(const Service& s) const
{
    // The members in key order, as a JSON object lists them: the head's, with the entry lists in place.
    static const char* const kEntryKeys[kKinds] = {"Events", "Fields", "Methods"};
    std::string out = "{";
    bool first = true;
    auto member = [&](const std::string& key) {
        out += first ? "\n      " : ",\n      ";
        first = false;
        quoted(out, key);
        out += ": ";
    };
    std::vector<std::string> keys = s.head.getMemberNames();
    for (const char* k : kEntryKeys) {
        keys.push_back(k);
    }
    std::sort(keys.begin(), keys.end());
    for (const std::string& key : keys) {
        const auto kind = std::find_if(std::begin(kEntryKeys), std::end(kEntryKeys), [&key](const char* k) { return key == k; });
        if (kind == std::end(kEntryKeys)) {
            member(key);
            write(out, s.head[key], 6);
            continue;
        }
        std::vector<const Entry*> entries;
        for (const Entry& e : s.entries[kind - std::begin(kEntryKeys)]) {
            entries.push_back(&e);
        }
        if (entries.empty()) {
            continue;
        }
        // Stable: a field's getter and setter keep the order they were added in.
        std::stable_sort(entries.begin(), entries.end(), [](const Entry* a, const Entry* b) { return a->order < b->order; });
        member(key);
        out += '[';
        for (size_t i = 0; i < entries.size(); ++i) {
            out += i == 0 ? "\n        " : ",\n        ";
            withIndents(out, entries[i]->text);
        }
        out += "\n      ]";
    }
    out += "\n    }";
    return out;
}

std::string FormatBuilder::document(const std::vector<const Service*>& services, const std::vector<size_t>& types,
                                   const std::vector<TypeText>& texts) const
{
    // The members in key order, as the document would list them: FormatVersion, Services, Types.
    std::string out = "{\n  \"FormatVersion\": 2,\n  \"Services\": [";
    for (size_t i = 0; i < services.size(); ++i) {
        out += i == 0 ? "\n    " : ",\n    ";
        out += serviceText(*services[i]);
    }
    out += services.empty() ? "]" : "\n  ]";
    bool first = true;
    for (const size_t i : types) {
        out += first ? ",\n  \"Types\": {\n    " : ",\n    ";
        first = false;
        quoted(out, texts[i].name);
        out += ": ";
        out += texts[i].text;
    }
    out += first ? "\n}\n" : "\n  }\n}\n";
    return out;
}

void FormatBuilder::finish(ZQSomeIPImportResult& result, const ZQSomeIPImportOptions& options)
{
    std::vector<const Service*> order;
    for (const Service& s : services_) {
        order.push_back(&s);
    }
    std::stable_sort(order.begin(), order.end(), [](const Service* a, const Service* b) {
        return a->id != b->id ? a->id < b->id : a->majorVersion < b->majorVersion;
    });
    const std::vector<TypeText> texts = typeTexts();
    ZQSomeIPImportReport& r = report_.data();
    r.services = order.size();
    for (const Service* s : order) {
        r.methods += s->entries[Methods].size();
        r.events += s->entries[Events].size();
        r.fields += s->fieldNames.size();
        if (options.perService) {
            ZQSomeIPImportFile file{fileName(s->id, s->majorVersion, s->head["ServiceName"].asString()), document({s}, closure({s}, texts), texts)};
            if (options.serviceDocument) {
                options.serviceDocument(std::move(file));
            } else {
                result.perService.push_back(std::move(file));
            }
        }
    }
    if (options.perService && options.serviceDocument) {
        r.types = closure(order, texts).size();
        return;
    }
    // The types the services use, and the types those use in turn. One left behind by an element
    // skipped later is not written.
    const std::vector<size_t> types = closure(order, texts);
    r.types = types.size();
    result.formatText = document(order, types, texts);
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
    r["event_groups"] = static_cast<Json::UInt64>(eventGroups);
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
