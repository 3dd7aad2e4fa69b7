#include "ZQSomeIPCompiledFormat.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <json/json.h>

#include "format/ZQSomeIPFormatIndex.h"
#include "format/ZQSomeIPNumberText.h"

namespace ZQSomeIP {

namespace {

struct TypeName {
    const char* text;
    ZQSomeIPParamKind kind;
};
const TypeName kTypes[] = {
    {"bool", ZQSomeIPParamKind::Bool},       {"uint8_t", ZQSomeIPParamKind::UInt8},
    {"uint16_t", ZQSomeIPParamKind::UInt16}, {"uint32_t", ZQSomeIPParamKind::UInt32},
    {"uint64_t", ZQSomeIPParamKind::UInt64}, {"int8_t", ZQSomeIPParamKind::Int8},
    {"int16_t", ZQSomeIPParamKind::Int16},   {"int32_t", ZQSomeIPParamKind::Int32},
    {"int64_t", ZQSomeIPParamKind::Int64},   {"float", ZQSomeIPParamKind::Float},
    {"double", ZQSomeIPParamKind::Double},   {"STRING", ZQSomeIPParamKind::String},
    {"STRUCTURE", ZQSomeIPParamKind::Structure}, {"ARRAY", ZQSomeIPParamKind::Array},
    {"VECTOR", ZQSomeIPParamKind::Vector},
};

// Where a parameter sits decides where the reference walk looks for an array's description.
enum class Place { TopLevel, Member, Element };

// Thrown inside the compiler for anything it does not reproduce; compile() turns it into null.
struct NotCompilable {};

void require(bool condition)
{
    if (!condition) {
        throw NotCompilable();
    }
}

bool hasComment(const Json::Value& v)
{
    return v.hasComment(Json::commentBefore) || v.hasComment(Json::commentAfterOnSameLine) ||
           v.hasComment(Json::commentAfter);
}

bool isScalar(const Json::Value& v)
{
    return !v.isArray() && !v.isObject();
}

std::string quoted(const std::string& text)
{
    require(text.find('\0') == std::string::npos);
    return Json::valueToQuotedString(text.c_str());
}

// A scalar rendered as the styled writer renders it inside a document.
std::string rendered(const Json::Value& v)
{
    require(isScalar(v) && !hasComment(v));
    std::string text = v.toStyledString();
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

bool plainText(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7F && c != '"' && c != '\\';
    });
}

ZQSomeIPCompiledKey keyOf(const std::string& name, ZQSomeIPCompiledKey::Role role)
{
    ZQSomeIPCompiledKey key;
    key.role = role;
    key.head = quoted(name) + " : ";
    return key;
}

void sortKeys(std::vector<std::pair<std::string, ZQSomeIPCompiledKey>>& named, std::vector<ZQSomeIPCompiledKey>& out)
{
    // The writer's member order: byte-wise comparison of the keys.
    std::sort(named.begin(), named.end(),
              [](const std::pair<std::string, ZQSomeIPCompiledKey>& a,
                 const std::pair<std::string, ZQSomeIPCompiledKey>& b) { return a.first < b.first; });
    for (auto& entry : named) {
        out.push_back(std::move(entry.second));
    }
}

ZQSomeIPCompiledNode compileParam(const Json::Value& p, Place place, bool inElement, bool isElement);

// The single element description of an array or vector.
ZQSomeIPCompiledNode compileElement(const Json::Value& list)
{
    require(list.isArray() && list.size() == 1 && !hasComment(list));
    return compileParam(list[0], Place::Element, true, true);
}

std::string containerName(const Json::Value& owner)
{
    const Json::Value& name = owner["ParamName"];
    require(name.isString());
    return name.asString();
}

ZQSomeIPParamKind kindOf(const Json::Value& p)
{
    const Json::Value& type = p["ParamType"];
    require(type.isString() && !hasComment(type));
    const std::string typeText = type.asString();
    const auto found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                    [&typeText](const TypeName& t) { return typeText == t.text; });
    require(found != std::end(kTypes));
    return found->kind;
}

// A key the format has; `renderedKey` also keeps its value as the writer renders it.
ZQSomeIPCompiledKey originalKey(const std::string& name, ZQSomeIPCompiledKey::Role role)
{
    ZQSomeIPCompiledKey key = keyOf(name, role);
    key.original = true;
    return key;
}

ZQSomeIPCompiledKey renderedKey(const std::string& name, ZQSomeIPCompiledKey::Role role, const Json::Value& v)
{
    ZQSomeIPCompiledKey key = keyOf(name, role);
    key.text = rendered(v);
    key.original = true;
    return key;
}

// The keys of the parameter object, in the writer's order, with those the decoder adds.
void compileKeys(const Json::Value& p, bool isElement, ZQSomeIPCompiledNode& node)
{
    const bool basic = node.kind < ZQSomeIPParamKind::Structure;
    const bool valued = basic || node.kind == ZQSomeIPParamKind::Vector;
    std::vector<std::pair<std::string, ZQSomeIPCompiledKey>> named;
    bool hasValue = false;
    for (const std::string& member : p.getMemberNames()) {
        const Json::Value& v = p[member];
        ZQSomeIPCompiledKey key;
        if (member == "SubParams" && !basic) {
            key = originalKey(member, ZQSomeIPCompiledKey::SubParams);
        } else if (member == "ParamName" && isElement) {
            key = renderedKey(member, ZQSomeIPCompiledKey::Name, v);
        } else if (member == "Value" && valued) {
            key = renderedKey(member, ZQSomeIPCompiledKey::Value, v);
            hasValue = true;
        } else {
            key = renderedKey(member, ZQSomeIPCompiledKey::Static, v);
        }
        named.emplace_back(member, std::move(key));
    }
    // Filled in by the decoder even where the format has none.
    if (!hasValue && valued) {
        named.emplace_back("Value", keyOf("Value", ZQSomeIPCompiledKey::Value));
    }
    if (isElement && !p.isMember("ParamName")) {
        named.emplace_back("ParamName", keyOf("ParamName", ZQSomeIPCompiledKey::Name));
    }
    sortKeys(named, node.keys);
}

// A top-level array's description object: its own name names the elements, its list holds the element.
void compileDescription(const Json::Value& sub, ZQSomeIPCompiledNode& node)
{
    require(sub.isObject());
    node.described = true;
    node.name = containerName(sub);
    std::vector<std::pair<std::string, ZQSomeIPCompiledKey>> described;
    for (const std::string& member : sub.getMemberNames()) {
        if (member == "SubParams") {
            described.emplace_back(member, originalKey(member, ZQSomeIPCompiledKey::SubParams));
            node.children.push_back(compileElement(sub[member]));
        } else {
            described.emplace_back(member, renderedKey(member, ZQSomeIPCompiledKey::Static, sub[member]));
        }
    }
    require(node.children.size() == 1);
    sortKeys(described, node.described_keys);
}

ZQSomeIPCompiledNode compileParam(const Json::Value& p, Place place, bool inElement, bool isElement)
{
    require(p.isObject() && !p.empty() && !hasComment(p));
    ZQSomeIPCompiledNode node;
    node.kind = kindOf(p);
    const bool container = node.kind == ZQSomeIPParamKind::Array || node.kind == ZQSomeIPParamKind::Vector;
    // What a previous element leaves in a nested array or vector shows in the next one; not reproduced.
    require(!(container && inElement && !isElement) && !(container && isElement));
    compileKeys(p, isElement, node);

    if (node.kind < ZQSomeIPParamKind::Structure) {
        return node;
    }
    const Json::Value& sub = p["SubParams"];
    require(!hasComment(sub));
    if (node.kind == ZQSomeIPParamKind::Structure) {
        require(sub.isArray() && !sub.empty());
        for (const Json::Value& member : sub) {
            node.children.push_back(compileParam(member, Place::Member, inElement, false));
        }
        return node;
    }
    if (node.kind == ZQSomeIPParamKind::Vector) {
        node.name = containerName(p);
        node.children.push_back(compileElement(sub));
    } else {
        const Json::Value& value = p["Value"];
        require(isScalar(value));
        node.count = StringToNum<unsigned int>(value.asString());
        require(node.count != 0);
        if (place == Place::TopLevel) {
            compileDescription(sub, node);
        } else {
            require(place == Place::Member);
            node.name = containerName(p);
            node.children.push_back(compileElement(sub));
        }
    }
    node.plain_name = plainText(node.name);
    return node;
}

} // namespace

std::shared_ptr<const ZQSomeIPCompiledFormat> ZQSomeIPCompiledFormat::compile(const std::string& styled)
{
    Json::Value root;
    Json::Reader reader;
    try {
        if (!reader.parse(styled, root, true) || !root.isArray() || root.empty() || hasComment(root)) {
            return nullptr;
        }
        auto format = std::make_shared<ZQSomeIPCompiledFormat>();
        for (const Json::Value& p : root) {
            format->params_.push_back(compileParam(p, Place::TopLevel, false, false));
        }
        return format;
    } catch (const NotCompilable&) {
        return nullptr;
    } catch (const std::exception&) {
        return nullptr;
    }
}

const ZQSomeIPCompiledFormat* ZQSomeIPCompiledFormat::of(const ZQSomeIPIndexedMethod& method)
{
    ZQSomeIPIndexedMethod::CompiledSlot& slot = method.compiledSlot();
    if (!slot.tried) {
        slot.format = compile(method.styled());
        slot.tried = true;
    }
    return slot.format.get();
}

} // namespace ZQSomeIP
