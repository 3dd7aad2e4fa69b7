#include "ZQSomeIPFormatSet.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include <json/json.h>

#include "ZQSomeIPJsonText.h"
#include "ZQSomeIPPlainProgram.h"
#include "ZQSomeIPPlainFormat.h"
#include "format/ZQSomeIPFormatIndex.h"
#include "format/ZQSomeIPFormatRules.h"
#include "format/ZQSomeIPNumberText.h"

namespace ZQSomeIP {

namespace {

using Param = ZQSomeIPPlainParam;

const char* const kErrorNames[] = {
    "ok", "unknown_message", "unsupported_format", "truncated", "length_beyond_data", "length_mismatch",
    "bad_string", "trailing_bytes", "bad_json", "wrong_type", "out_of_range", "missing_member",
    "unknown_member", "wrong_count", "too_long", "file_error", "bad_format_file", "unknown_selector",
    "unknown_name", "wire_type_mismatch", "unskippable_member",
};

// Compiles one parameter list; false with `why` set when the plain codec cannot use it.
bool compileList(const Json::Value& list, const ZQSomeIPExtendAttr& attr, std::vector<Param>& out, std::string& why);

bool compileElement(const Json::Value& sub, const ZQSomeIPExtendAttr& attr, Param& p, std::string& why)
{
    // A fixed array's element may be described directly, or inside an object of its own (the form
    // the classic decoder expects at the top level); both read the same here.
    const Json::Value& list = sub.isObject() ? sub["SubParams"] : sub;
    if (!list.isArray() || list.empty()) {
        why = "parameter \"" + p.name + "\" has no element description";
        return false;
    }
    Json::Value element(Json::arrayValue);
    element.append(list[0]);
    return compileList(element, attr, p.members, why);
}

bool compileList(const Json::Value& list, const ZQSomeIPExtendAttr& attr, std::vector<Param>& out, std::string& why)
{
    if (!list.isArray()) {
        why = "the parameter list is not an array";
        return false;
    }
    std::set<std::string> names;
    for (const Json::Value& item : list) {
        if (!item.isObject() || !item["ParamName"].isString() || !item["ParamType"].isString()) {
            why = "a parameter without a \"ParamName\" and \"ParamType\" text";
            return false;
        }
        Param p;
        p.name = item["ParamName"].asString();
        const std::string type = item["ParamType"].asString();
        // Unions exist only in version-2 files.
        Param::Kind kind = Param::Bool;
        if (!plainParamKind(type, kind) || kind == Param::Union) {
            why = "parameter \"" + p.name + "\" has the unknown type \"" + type + "\"";
            return false;
        }
        if (!names.insert(p.name).second) {
            why = "two parameters are named \"" + p.name + "\"";
            return false;
        }
        p.kind = kind;
        appendJsonString(p.key, p.name);
        p.key += ':';
        const Json::Value& sub = item["SubParams"];
        if (p.kind == Param::String && attr.string_length_field_size == 0) {
            why = "string \"" + p.name + "\" has no length field (its service's StringLengthFieldSize is 0)";
            return false;
        }
        if (p.kind == Param::Structure) {
            if (!sub.isNull() && !compileList(sub, attr, p.members, why)) {
                return false;
            }
        } else if (p.kind == Param::Array) {
            const Json::Value& count = item["Value"];
            if (count.isArray() || count.isObject()) {
                why = "array \"" + p.name + "\" has no element count";
                return false;
            }
            p.count = StringToNum<unsigned int>(count.asString());
            if (!compileElement(sub, attr, p, why)) {
                return false;
            }
        } else if (p.kind == Param::Vector) {
            if (attr.vector_length_field_size == 0) {
                why = "vector \"" + p.name + "\" has no length field (its service's VectorLengthFieldSize is 0)";
                return false;
            }
            if (!compileElement(sub, attr, p, why)) {
                return false;
            }
        }
        out.push_back(std::move(p));
    }
    return true;
}

// Line and column (both from 1) of a byte offset in `text`.
void lineAndColumn(const std::string& text, size_t offset, size_t& line, size_t& column)
{
    line = 1;
    column = 1;
    for (size_t i = 0; i < offset && i < text.size(); ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
}

ZQSomeIPPlainStatus loadError(ZQSomeIPPlainError code, const std::string& file, const std::string& message)
{
    ZQSomeIPPlainStatus status;
    status.code = code;
    status.path = file;
    status.message = message;
    return status;
}

const char* textOf(const Json::Value& owner, const char* key)
{
    const Json::Value& v = owner.isObject() ? owner[key] : Json::Value::nullSingleton();
    return v.isString() ? v.asCString() : "";
}

// A format file's text as a document and its format version; false with `status` set when it is not
// JSON or names no version this library reads.
bool parseDocument(const std::string& file, const std::string& text, Json::Value& root, int& version,
                   ZQSomeIPPlainStatus& status)
{
    Json::Reader reader;
    bool parsed = false;
    try {
        parsed = reader.parse(text, root, false);
    } catch (const std::exception& e) {
        status = loadError(ZQSomeIPPlainError::BadFormatFile, file, e.what());
        return false;
    }
    if (!parsed) {
        const auto errors = reader.getStructuredErrors();
        size_t line = 0, column = 0;
        lineAndColumn(text, errors.empty() ? 0 : static_cast<size_t>(errors.front().offset_start), line, column);
        std::string why = errors.empty() ? "not JSON" : errors.front().message;
        status = loadError(ZQSomeIPPlainError::BadFormatFile, file,
                           "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + why);
        return false;
    }
    std::string why;
    version = plainFormatVersion(root, why);
    if (version < 0) {
        status = loadError(ZQSomeIPPlainError::BadFormatFile, file, why);
        return false;
    }
    return true;
}

// A version-2 service's "MajorVersion" (0..255), or -1.
int majorVersionOf(const Json::Value& service, int version)
{
    const Json::Value& major = service.isObject() ? service["MajorVersion"] : Json::Value::nullSingleton();
    return version == 2 && major.isIntegral() && major.asInt64() >= 0 && major.asInt64() <= 255 ? major.asInt() : -1;
}

int idOf(const Json::Value& owner, const char* key)
{
    return quickStringToNum<int>(owner.get(key, Json::Value()).asString());
}

// Compiles the method formats of the loaded documents, each "Params" entry once.
class Builder {
public:
    Builder(const std::deque<Json::Value>& documents, const std::vector<int>& versions)
        : documents_(documents), versions_(versions)
    {
        for (size_t d = 0; d < documents_.size(); ++d) {
            const Json::Value& services = documents_[d].isObject() ? documents_[d]["Services"] : Json::Value::nullSingleton();
            if (services.isArray()) {
                for (const Json::Value& service : services) {
                    documentOf_[&service] = d;
                }
            }
        }
    }

    // False (with `why` and `failedDocument`) when a version-2 type reference breaks the load.
    bool method(const Json::Value* service, const Json::Value* entry, const Json::Value* params,
                const Json::Value* details, const ZQSomeIPExtendAttr& attr,
                std::shared_ptr<const ZQSomeIPPlainMethod>& out)
    {
        const auto cached = cache_.find(params);
        if (cached != cache_.end() && params != nullptr) {
            out = cached->second;
            return true;
        }
        auto method = std::make_shared<ZQSomeIPPlainMethod>();
        method->attr = attr;
        const size_t document = documentOf(service);
        if (document < versions_.size() && versions_[document] == 2 && service != nullptr && params != nullptr) {
            ZQSomeIPPlainFormatCompiler compiler(documents_[document]);
            if (!compiler.compile(*service, *params, attr, *method, why)) {
                failedDocument = document;
                return false;
            }
        } else if (details == nullptr) {
            method->unsupported = "the format has no \"ParamsDetails\"";
        } else if (!compileList(*details, method->attr, method->params, method->unsupported)) {
            method->params.clear();
        }
        if (service != nullptr) {
            method->serviceName = textOf(*service, "ServiceName");
            method->majorVersion = majorVersionOf(*service, document < versions_.size() ? versions_[document] : 0);
        }
        if (entry != nullptr) {
            for (const char* key : {"MethodName", "EventName", "FieldName"}) {
                if (method->methodName.empty()) {
                    method->methodName = textOf(*entry, key);
                }
            }
        }
        attachPlainProgram(*method);
        out = method;
        if (params != nullptr) {
            cache_[params] = method;
        }
        return true;
    }

    // The plain form of every method the lookup index finds.
    bool indexed(const ZQSomeIPFormatIndex& index, ZQSomeIPFormatSet::Table& methods)
    {
        for (const ZQSomeIPFormatIndex::Segment& segment : index.segments()) {
            for (const auto& entry : segment.table) {
                const ZQSomeIPIndexedMethod& found = *entry.second.method;
                ZQSomeIPExtendAttr attr;  // read into a fresh record: the lookup defaults elsewhere
                if (entry.second.attr != nullptr) {
                    attr = *entry.second.attr;
                }
                std::shared_ptr<const ZQSomeIPPlainMethod> compiled;
                if (!method(found.service(), found.entry(), found.params(), found.details(), attr, compiled)) {
                    return false;
                }
                methods[entry.first] = std::move(compiled);
            }
        }
        return true;
    }

    // Walks the documents as the lookup does (first match in a document, last document wins):
    // `extras` true: error entries and services with a "MajorVersion" of version-2 documents;
    // false: the services without a version.
    bool walk(bool extras, ZQSomeIPFormatSet::Table& errors, std::unordered_map<uint64_t, ZQSomeIPFormatSet::Table>& versioned,
              ZQSomeIPFormatSet::Table& unversioned)
    {
        Tables out{errors, versioned, unversioned};
        for (size_t d = 0; d < documents_.size(); ++d) {
            if (extras && versions_[d] != 2) {
                continue;
            }
            const Json::Value& services = documents_[d].isObject() ? documents_[d]["Services"] : Json::Value::nullSingleton();
            if (!services.isArray()) {
                continue;
            }
            std::set<std::pair<int, uint64_t>> seen;  // (version, key) found earlier in this document
            for (const Json::Value& service : services) {
                if (service.isObject() && !walkService(d, service, extras, seen, out)) {
                    return false;
                }
            }
        }
        return true;
    }

    std::string why;
    size_t failedDocument = 0;

private:
    struct Tables {
        ZQSomeIPFormatSet::Table& errors;
        std::unordered_map<uint64_t, ZQSomeIPFormatSet::Table>& versioned;
        ZQSomeIPFormatSet::Table& unversioned;
    };

    // The entries of one service of document `d` that the walk takes (see walk()).
    bool walkService(size_t d, const Json::Value& service, bool extras, std::set<std::pair<int, uint64_t>>& seen,
                     Tables& out)
    {
        const int serviceID = idOf(service, "ServiceID");
        const Json::Value& major = service["MajorVersion"];
        const bool hasVersion = versions_[d] == 2 && major.isIntegral();
        if (!extras && hasVersion) {
            return true;
        }
        ZQSomeIPExtendAttr attr;
        FormatRules::readLookupAttributes(service, documents_[d], attr);
        for (const int type : {0x00, 0x01, 0x02, 0x80, 0x81}) {
            ZQSomeIPSearchPlan plan;
            searchPlanFor(type, plan);
            const bool error = type == 0x81;
            if ((extras && !error && !hasVersion) || (!extras && error)) {
                continue;
            }
            const char* word = error ? "error" : plan.methodType;
            for (const char* array : plan.arrays) {
                if (array == nullptr || !service[array].isArray()) {
                    continue;
                }
                for (const Json::Value& entry : service[array]) {
                    const Json::Value& list = entry.isObject() ? entry["Params"] : Json::Value::nullSingleton();
                    if (!list.isArray()) {
                        continue;
                    }
                    const int methodID = idOf(entry, plan.idKey);
                    for (const Json::Value& params : list) {
                        if (!params.isObject() || params.get("MethodType", Json::Value()).asString() != word) {
                            continue;
                        }
                        const uint64_t key = ZQSomeIPFormatIndex::key(serviceID, methodID, plan.kind);
                        const int version = hasVersion && !error ? major.asInt() : -1;
                        if (seen.insert({error ? -2 : version, key}).second &&
                            !file(service, entry, params, attr, key, error, version, out)) {
                            return false;
                        }
                    }
                }
            }
        }
        return true;
    }

    // Files the plain form of `params` under `key`: as an error entry, a versioned service's entry,
    // or (a negative version) an unversioned one.
    bool file(const Json::Value& service, const Json::Value& entry, const Json::Value& params,
              const ZQSomeIPExtendAttr& attr, uint64_t key, bool error, int version, Tables& out)
    {
        std::shared_ptr<const ZQSomeIPPlainMethod> found;
        const Json::Value* details = params.isMember("ParamsDetails") ? &params["ParamsDetails"] : nullptr;
        if (!method(&service, &entry, &params, details, attr, found)) {
            return false;
        }
        if (error) {
            out.errors[key] = found;
        } else if (version >= 0) {
            out.versioned[static_cast<uint64_t>(version)][key] = found;
        } else {
            out.unversioned[key] = found;
        }
        return true;
    }

    size_t documentOf(const Json::Value* service) const
    {
        const auto it = documentOf_.find(service);
        return it == documentOf_.end() ? documents_.size() : it->second;
    }

    const std::deque<Json::Value>& documents_;
    const std::vector<int>& versions_;
    std::unordered_map<const Json::Value*, std::shared_ptr<const ZQSomeIPPlainMethod>> cache_;
    std::unordered_map<const Json::Value*, size_t> documentOf_;
};

} // namespace

const char* plainErrorName(ZQSomeIPPlainError code)
{
    const auto index = static_cast<size_t>(code);
    return index < std::size(kErrorNames) ? kErrorNames[index] : "unknown_error";
}

std::string ZQSomeIPPlainStatus::toJson() const
{
    std::string out = "{\"code\":\"";
    out += plainErrorName(code);
    out += "\",";
    if (path.empty()) {
        out += "\"offset\":" + std::to_string(offset);
    } else {
        out += "\"path\":";
        appendJsonString(out, path);
    }
    out += ",\"message\":";
    appendJsonString(out, message);
    out += '}';
    return out;
}

std::string ZQSomeIPPlainStatus::warningsJson() const
{
    std::string out = "[";
    for (const ZQSomeIPPlainWarning& w : warnings) {
        if (out.size() > 1) {
            out += ',';
        }
        out += "{\"offset\":" + std::to_string(w.offset) + ",\"bytes\":" + std::to_string(w.bytes) + ",\"message\":";
        appendJsonString(out, w.message);
        out += '}';
    }
    out += ']';
    return out;
}

namespace {
// `names` in the order of the style's values.
template <typename Style, size_t N>
bool styleNamed(std::string_view text, const char* const (&names)[N], Style& style)
{
    for (size_t i = 0; i < N; ++i) {
        if (text == names[i]) {
            style = static_cast<Style>(i);
            return true;
        }
    }
    return false;
}
} // namespace

bool parseEnumStyle(std::string_view text, ZQSomeIPEnumStyle& style)
{
    static const char* const kNames[] = {"name", "value", "both"};
    return styleNamed(text, kNames, style);
}

bool parseScaledStyle(std::string_view text, ZQSomeIPScaledStyle& style)
{
    static const char* const kNames[] = {"raw", "physical", "both"};
    return styleNamed(text, kNames, style);
}

std::shared_ptr<const ZQSomeIPFormatSet> ZQSomeIPFormatSet::load(const std::string& path, ZQSomeIPPlainStatus& status)
{
    return loadPath(path, nullptr, status);
}

std::shared_ptr<const ZQSomeIPFormatSet> ZQSomeIPFormatSet::loadLenient(const std::string& path,
                                                                        ZQSomeIPFormatLoadReport& report,
                                                                        ZQSomeIPPlainStatus& status)
{
    const bool list = report.list;
    report = ZQSomeIPFormatLoadReport();
    report.list = list;
    return loadPath(path, &report, status);
}

std::shared_ptr<const ZQSomeIPFormatSet> ZQSomeIPFormatSet::loadPath(const std::string& path,
                                                                     ZQSomeIPFormatLoadReport* report,
                                                                     ZQSomeIPPlainStatus& status)
{
    status = ZQSomeIPPlainStatus();
    // The classic loader's rules decide which files a path names.
    std::vector<std::string> files;
    const int type = FormatRules::pathType(path);
    if (type == 0) {
        files.push_back(path);
    } else if (type == 1) {
        FormatRules::recureFormatFiles(path, files);
    } else {
        status = loadError(ZQSomeIPPlainError::FileError, path, "not a file or directory");
        return nullptr;
    }
    if (files.empty()) {
        status = loadError(ZQSomeIPPlainError::FileError, path, "no format file (*.json) in this directory tree");
        return nullptr;
    }
    auto set = build(files, [](const std::string& file, std::string& text, ZQSomeIPPlainStatus& failed) {
        std::ifstream stream(file, std::ios::in | std::ios::binary);
        text.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
        if (!stream.good() && !stream.eof()) {
            failed = loadError(ZQSomeIPPlainError::FileError, file, "cannot be read");
            return false;
        }
        return true;
    }, report, status);
    if (!set && report != nullptr && status.ok()) {
        status = loadError(ZQSomeIPPlainError::BadFormatFile, path,
                           files.size() == 1 ? "the format file is broken" : "every format file is broken");
    }
    return set;
}

std::shared_ptr<const ZQSomeIPFormatSet> ZQSomeIPFormatSet::loadText(const std::string& text, const std::string& name,
                                                                     ZQSomeIPPlainStatus& status)
{
    status = ZQSomeIPPlainStatus();
    return build({name}, [&text](const std::string&, std::string& out, ZQSomeIPPlainStatus&) {
        out = text;
        return true;
    }, nullptr, status);
}

namespace {

// The message types a lookup finds `entry` of the member array `array` for, by the search plans every
// lookup follows (error entries are read from version-2 files only).
std::vector<ZQSomeIPFormatEntry::Lookup> lookupsOf(const Json::Value& entry, const char* array, int version)
{
    std::vector<ZQSomeIPFormatEntry::Lookup> out;
    const Json::Value& params = entry["Params"];
    for (const int type : {0x00, 0x01, 0x02, 0x80, 0x81}) {
        ZQSomeIPSearchPlan plan;
        searchPlanFor(type, plan);
        const bool searched = std::any_of(std::begin(plan.arrays), std::end(plan.arrays), [array](const char* a) {
            return a != nullptr && std::strcmp(a, array) == 0;
        });
        const char* word = type == 0x81 ? "error" : plan.methodType;
        if (!searched || (type == 0x81 && version != 2) || !params.isArray()) {
            continue;
        }
        for (const Json::Value& p : params) {
            if (p.isObject() && p.get("MethodType", Json::Value()).asString() == word) {
                out.push_back({type, idOf(entry, plan.idKey)});
                break;
            }
        }
    }
    return out;
}

// What a loaded file holds, as a listing shows it: every service and entry in file order, IDs read
// as the lookup reads them.
void listServices(const Json::Value& document, int version, const std::string& file,
                  std::vector<ZQSomeIPFormatService>& out)
{
    const Json::Value& services = document.isObject() ? document["Services"] : Json::Value::nullSingleton();
    if (!services.isArray()) {
        return;
    }
    static const struct {
        const char* array;
        const char* kind;
        const char* idKey;
        const char* nameKey;
    } kArrays[] = {{"Methods", "method", "MethodID", "MethodName"},
                   {"Events", "event", "EventID", "EventName"},
                   {"Fields", "field", "MethodID", "FieldName"}};
    for (const Json::Value& service : services) {
        if (!service.isObject()) {
            continue;
        }
        ZQSomeIPFormatService listed;
        listed.file = file;
        listed.id = idOf(service, "ServiceID");
        listed.name = textOf(service, "ServiceName");
        listed.majorVersion = majorVersionOf(service, version);
        for (const auto& a : kArrays) {
            const Json::Value& entries = service[a.array];
            for (Json::ArrayIndex i = 0; entries.isArray() && i < entries.size(); ++i) {
                if (entries[i].isObject()) {
                    listed.entries.push_back(
                        {a.kind, idOf(entries[i], a.idKey), textOf(entries[i], a.nameKey), lookupsOf(entries[i], a.array, version)});
                }
            }
        }
        out.push_back(std::move(listed));
    }
}

// The documents of a load, in file order, with the lookup index over them.
struct LoadedDocuments {
    std::deque<Json::Value> documents;
    std::vector<int> versions;
    std::vector<std::string> names;
    ZQSomeIPFormatIndex index;

    void indexAgain()
    {
        index = ZQSomeIPFormatIndex();
        for (size_t d = 0; d < documents.size(); ++d) {
            index.addDocument(documents[d], d, FormatRules::readLookupAttributes);
        }
    }
    void drop(size_t d)
    {
        documents.erase(documents.begin() + static_cast<std::ptrdiff_t>(d));
        versions.erase(versions.begin() + static_cast<std::ptrdiff_t>(d));
        names.erase(names.begin() + static_cast<std::ptrdiff_t>(d));
        indexAgain();
    }
};

// Reads, parses and indexes every file; a file broken on its own (unreadable, not JSON, types that do
// not resolve, a shape lookups cannot serve) goes to `broken`, which says whether the load goes on.
template <typename Reader, typename Broken>
bool readDocuments(const std::vector<std::string>& files, const Reader& read, const Broken& broken,
                   LoadedDocuments& out)
{
    std::string text;
    for (const std::string& file : files) {
        Json::Value root;
        int version = 0;
        ZQSomeIPPlainStatus failed;
        if (!read(file, text, failed) || !parseDocument(file, text, root, version, failed)) {
            const bool json = failed.code == ZQSomeIPPlainError::BadFormatFile && failed.message.rfind("line ", 0) != 0;
            if (!broken(std::move(failed), json)) {
                return false;
            }
            continue;
        }
        std::string why;
        if (version == 2 && !ZQSomeIPPlainFormatCompiler(root).checkTypes(why)) {
            if (!broken(loadError(ZQSomeIPPlainError::BadFormatFile, file, why), true)) {
                return false;
            }
            continue;
        }
        out.documents.push_back(std::move(root));
        out.index.addDocument(out.documents.back(), out.documents.size() - 1, FormatRules::readLookupAttributes);
        if (out.index.segments().back().scanned) {
            if (!broken(loadError(ZQSomeIPPlainError::BadFormatFile, file,
                                  "cannot serve lookups: its root, \"Services\", service, entry or \"Attribute\" "
                                  "values are not of the kinds a format file holds"),
                        true)) {
                return false;
            }
            out.documents.pop_back();
            out.indexAgain();
            continue;
        }
        out.versions.push_back(version);
        out.names.push_back(file);
    }
    return true;
}

} // namespace

std::shared_ptr<const ZQSomeIPFormatSet> ZQSomeIPFormatSet::build(const std::vector<std::string>& files,
                                                                  const Reader& read, ZQSomeIPFormatLoadReport* report,
                                                                  ZQSomeIPPlainStatus& status)
{
    // A broken file fails the load, or is left out of a lenient one.
    const auto broken = [report, &status](ZQSomeIPPlainStatus&& why, bool json) {
        if (report == nullptr) {
            status = std::move(why);
            return false;
        }
        report->broken.push_back({why.path, why.message, json});
        return true;
    };
    LoadedDocuments loaded;
    if (!readDocuments(files, read, broken, loaded)) {
        return nullptr;
    }
    // A file whose types break a method is left out of a lenient load and the rest built again; each
    // round leaves out one file, so this ends.
    while (!loaded.documents.empty()) {
        auto set = std::make_shared<ZQSomeIPFormatSet>();
        Builder builder(loaded.documents, loaded.versions);
        // Error entries and versioned services of version-2 files; the unversioned services are needed
        // only when some service carries a version.
        if (builder.indexed(loaded.index, set->methods_) &&
            builder.walk(true, set->errors_, set->versioned_, set->unversioned_) &&
            (set->versioned_.empty() || builder.walk(false, set->errors_, set->versioned_, set->unversioned_))) {
            if (report != nullptr) {
                report->files = loaded.names;
                for (size_t d = 0; report->list && d < loaded.documents.size(); ++d) {
                    listServices(loaded.documents[d], loaded.versions[d], loaded.names[d], report->services);
                }
            }
            return set;
        }
        const size_t d = builder.failedDocument;
        if (!broken(loadError(ZQSomeIPPlainError::BadFormatFile, loaded.names[d], builder.why), true)) {
            return nullptr;
        }
        loaded.drop(d);
    }
    return nullptr;
}

const ZQSomeIPPlainMethod* ZQSomeIPFormatSet::find(int serviceID, int methodID, int messageType,
                                                   int interfaceVersion) const
{
    ZQSomeIPSearchPlan plan;
    if (!searchPlanFor(messageType, plan)) {
        return nullptr;
    }
    const uint64_t key = ZQSomeIPFormatIndex::key(serviceID, methodID, plan.kind);
    auto in = [key](const Table& table) -> const ZQSomeIPPlainMethod* {
        const auto it = table.find(key);
        return it == table.end() ? nullptr : it->second.get();
    };
    if (messageType == 0x81) {
        if (const ZQSomeIPPlainMethod* error = in(errors_)) {
            return error;
        }
    }
    if (interfaceVersion >= 0 && !versioned_.empty()) {
        const auto version = versioned_.find(static_cast<uint64_t>(interfaceVersion));
        if (version != versioned_.end()) {
            if (const ZQSomeIPPlainMethod* exact = in(version->second)) {
                return exact;
            }
        }
        return in(unversioned_);
    }
    return in(methods_);
}

} // namespace ZQSomeIP
