#ifndef ZQ_SOMEIP_PLAIN_FORMAT_H
#define ZQ_SOMEIP_PLAIN_FORMAT_H

// Turns the JSON of a version-2 format file into the parameter descriptions the plain codec walks:
// shared types resolved, attributes resolved per element, the new types and keys read and checked.
// Version-1 files are compiled by the format set itself, exactly as before; nothing here reaches
// the classic API.

#include <string>

#include <json/json.h>

#include "ZQSomeIPFormatSet.h"

namespace ZQSomeIP {

// The kind a "ParamType" (or an ENUM's or BITFIELD's "BaseType") names; false for any other text.
bool plainParamKind(const std::string& name, ZQSomeIPPlainParam::Kind& kind);

// The version a document declares: 1 without "FormatVersion"; -1 (with `why`) when the key holds
// something this library cannot read, a newer version included.
int plainFormatVersion(const Json::Value& document, std::string& why);

class ZQSomeIPPlainFormatCompiler {
public:
    // `document` must outlive the compiler. Attribute texts are read by the lookup's rules.
    explicit ZQSomeIPPlainFormatCompiler(const Json::Value& document);

    // Every shared type of the document (file level and each service's) must resolve: false with
    // `why` naming the type when one refers to an unknown name or contains itself.
    bool checkTypes(std::string& why);

    // Compiles one "Params" entry of `service` (`entry` is its method, event or field) with the
    // attributes the lookup gives it. A format the plain codec cannot use leaves `method.unsupported`
    // set; a broken type reference makes it return false with `why` (the load fails).
    bool compile(const Json::Value& service, const Json::Value& params, const ZQSomeIPExtendAttr& lookupAttr,
                 ZQSomeIPPlainMethod& method, std::string& why);

private:
    struct Context;
    bool param(const Json::Value& item, const Context& parent, ZQSomeIPPlainParam& p, std::string& why);
    bool list(const Json::Value& list, const Context& parent, std::vector<ZQSomeIPPlainParam>& out, std::string& why);
    bool resolve(const Json::Value& item, Json::Value& resolved, Context& scope, std::string& why);
    bool attributes(const Json::Value& object, Context& c, std::string& why);
    static void takeAttributes(const Context& c, ZQSomeIPPlainParam& p);
    // The keys of each compound kind; `c` is the compound's own context, `parentInTlv` whether it
    // is itself a member of a TLV structure.
    bool structure(const Json::Value& item, const Context& c, bool parentInTlv, ZQSomeIPPlainParam& p, std::string& why);
    bool sequence(const Json::Value& item, const Context& c, bool parentInTlv, ZQSomeIPPlainParam& p, std::string& why);
    bool unionParam(const Json::Value& item, const Context& c, bool parentInTlv, ZQSomeIPPlainParam& p,
                    std::string& why);

    const Json::Value& document_;
    const Json::Value* serviceTypes_ = nullptr;
    std::string broken_;     // a type reference that fails the load
    size_t budget_ = 0;      // parameters left to compile for the current method
};

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_PLAIN_FORMAT_H
