// ARXML data types and serialization properties, written as version-2 parameters and shared types.
#ifndef ZQ_SOMEIP_IMPORT_ARXML_TYPES_H
#define ZQ_SOMEIP_IMPORT_ARXML_TYPES_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "arxml_index.h"

namespace ZQSomeIP {
namespace import {

// What one set of SOME/IP transformation properties says, each setting only where it is given, so
// that it can be laid over whatever an element inherits. Sizes in bytes, as the description has them.
struct SerializationProps {
    bool ok = true;  // false: a value the format cannot express (reported once, where the props stand)
    std::optional<uint32_t> arrayLength, stringLength, structLength, unionLength, unionType, alignment;
    std::optional<bool> bigEndian, utf16, dynamicLengthFieldSize, legacyStrings;

    static SerializationProps read(const PathIndex& index, const Element& props, Report& report);
    Attributes over(Attributes a) const;
    // The element's "Attribute": the keys in which `mine` differs from `inherited`, and the settings
    // only the element's own keys can say (legacy strings, TLV length field sizes when `tlv`).
    Json::Value attribute(const Attributes& mine, const Attributes& inherited, bool tlv) const;
};

// Per-element overrides: the props for a data prototype (an argument, event or field: its root) as a
// whole (target empty) or for a member somewhere inside its type (target: the member's path).
struct Override {
    std::string_view target;  // paths: views into the index
    const SerializationProps* props;
};
using Overrides = std::map<std::string_view, std::vector<Override>>;

class TypeWriter {
public:
    // Where a data prototype stands: the attributes of its parameter list, its path (for overrides), and
    // the TLV data IDs in force (element path -> data ID; the key names the sets, since a type's members
    // carry different IDs under different sets).
    struct Use {
        Attributes list;
        const SerializationProps* listProps = nullptr;
        std::string_view root;
        const std::map<std::string_view, uint32_t>* dataIds = nullptr;
        std::string tlvKey;
    };

    TypeWriter(const PathIndex& index, FormatBuilder& out, Report& report, const Overrides& overrides)
        : index_(index), out_(out), report_(report), overrides_(overrides)
    {
    }

    // The parameter a data prototype (VARIABLE-DATA-PROTOTYPE, ARGUMENT-DATA-PROTOTYPE, FIELD) writes, by
    // its TYPE-TREF; false when it cannot be written (the cause reported where it stands).
    // Its "DataId" is the caller's to set.
    bool prototype(const Element& proto, const Use& use, FormatBuilder::Param& out);

private:
    // What a parameter of a named type says of it: out.type and out.shared.
    bool named(const Element& type, const Use& use, int depth, FormatBuilder::Param& out);
    bool body(const Element& type, const Use& use, int depth, Json::Value& out);
    bool member(const Element& element, const Use& use, int depth, Json::Value& out);
    bool members(const std::vector<Element>& list, const Use& use, int depth, Json::Value& out);
    bool array(const Element& type, const Use& use, int depth, Json::Value& out);
    // body() by category: a number (with its compu method), a structure, a union or variant, a map.
    bool value(const Element& type, const Use& use, int depth, Json::Value& out);
    bool structure(const Element& type, const Use& use, int depth, Json::Value& out);
    bool variant(const Element& type, const Use& use, int depth, Json::Value& out);
    bool map(const Element& type, const Use& use, int depth, Json::Value& out);
    bool scalar(const Element& type, const Use& use, int depth, std::string& basic);
    bool compu(const Element& method, const std::string& basic, Json::Value& out);
    bool enumerator(pugi::xml_node scale, pugi::xml_node vt, const std::string& basic, Json::Value& out);
    bool rational(const Element& method, pugi::xml_node coeffs, Json::Value& scale);
    Element referenced(const Element& type);
    std::vector<Element> templateArguments(const Element& type) const;
    std::vector<Element> subElements(const Element& type) const;
    bool overrideAttribute(const Element& at, std::string_view path, const Use& use, Json::Value& attribute);
    bool fail(const Element& at, const std::string& reason);

    const PathIndex& index_;
    FormatBuilder& out_;
    Report& report_;
    const Overrides& overrides_;
    struct SharedType {
        std::string name;  // empty: it cannot be written
        bool overridden;   // it holds a member's override
    };
    std::map<std::string, SharedType> done_;  // by element path and context
    const SharedType& define(const Element& type, const Use& use, int depth, std::string_view path);
    size_t overridesApplied_ = 0;
    std::set<const void*> open_;  // types being written: met again, they form a cycle
};

// The reference inside SW-DATA-DEF-PROPS (-> VARIANTS -> CONDITIONAL) of that name.
pugi::xml_node definitionProperty(pugi::xml_node owner, std::string_view name);

}  // namespace import
}  // namespace ZQSomeIP

#endif
