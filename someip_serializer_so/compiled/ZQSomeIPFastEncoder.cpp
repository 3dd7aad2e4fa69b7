#include "ZQSomeIPFastEncoder.h"

#include <exception>

#include "ZQSomeIPLightJson.h"
#include "format/ZQSomeIPNumberText.h"
#include "someip/ZQSomeIPPayloadSerializerGeneral.h"

namespace ZQSomeIP {

namespace {

using Json = ZQSomeIPLightJson;
using Writer = ZQSomeIPPayloadSerializerGeneral;

class Walk {
public:
    Walk(const Json& doc, Writer& writer) : doc_(doc), w_(writer) {}

    // A list the reference walks: an array of elements. Objects (walked in key order) are left to it.
    bool list(const Json::Node& items)
    {
        if (items.type != Json::Type::Array) {
            return false;
        }
        for (uint32_t i = 0; i < items.count; ++i) {
            if (!element(doc_.node(doc_.item(items, i)))) {
                return false;
            }
        }
        return true;
    }

private:
    // The text a value reads as; false where the reference would throw.
    static bool text(const Json::Node* v, std::string& out)
    {
        if (v == nullptr || v->type == Json::Type::Null) {
            out.clear();
        } else if (v->type == Json::Type::Bool) {
            out = v->flag ? "true" : "false";
        } else if (v->type == Json::Type::String || v->type == Json::Type::Number) {
            out.assign(v->text.data(), v->text.size());
        } else {
            return false;
        }
        return true;
    }

    bool element(const Json::Node& e)
    {
        if (e.type != Json::Type::Object) {
            return false;
        }
        const Json::Node* type = doc_.find(e, "ParamType");
        if (type == nullptr || type->type != Json::Type::String) {
            return false;
        }
        const std::string_view t = type->text;
        const Json::Node* sub = doc_.find(e, "SubParams");
        if (t == "STRUCTURE") {
            if (w_.struct_data_begin(nullptr) != 0 || sub == nullptr || sub->type != Json::Type::Array ||
                sub->count == 0 || !list(*sub)) {
                return false;
            }
            w_.data_end();
            return true;
        }
        if (t == "ARRAY") {
            std::string value;
            if (w_.array_data_begin(nullptr) != 0 || !text(doc_.find(e, "Value"), value) || sub == nullptr ||
                sub->type != Json::Type::Array || sub->count == 0) {
                return false;
            }
            // A count that differs is padded or warned about by the reference.
            if (StringToNum<unsigned int>(value) != sub->count || !list(*sub)) {
                return false;
            }
            w_.data_end();
            return true;
        }
        if (t == "VECTOR") {
            if (w_.vector_data_begin(nullptr) != 0) {
                return false;
            }
            // Anything but a list or an object has no elements: an empty vector.
            if (sub != nullptr && sub->type == Json::Type::Object) {
                return false;
            }
            if (sub != nullptr && sub->type == Json::Type::Array && !list(*sub)) {
                return false;
            }
            w_.data_end();
            return true;
        }
        return basic(t, doc_.find(e, "Value"));
    }

    bool basic(std::string_view type, const Json::Node* valueNode)
    {
        if (!text(valueNode, value_)) {
            return false;
        }
        number_ = value_.empty() ? "0" : value_;
        const std::string& n = number_;
        uint32_t rc = 0;
        if (type == "bool") {
            rc = w_.write(n == "true", nullptr);
        } else if (type == "uint32_t") {
            rc = w_.write(quickStringToNum<unsigned int>(n), nullptr);
        } else if (type == "uint8_t") {
            rc = w_.write(static_cast<unsigned char>(quickStringToNum<short>(n)), nullptr);
        } else if (type == "STRING") {
            rc = w_.write(value_, nullptr, false);
        } else if (type == "float") {
            rc = w_.write(quickStringToNum<float>(n), nullptr);
        } else if (type == "double") {
            rc = w_.write(quickStringToNum<double>(n), nullptr);
        } else if (type == "int8_t") {
            rc = w_.write(static_cast<signed char>(quickStringToNum<short>(n)), nullptr);
        } else if (type == "int16_t") {
            rc = w_.write(quickStringToNum<short>(n), nullptr);
        } else if (type == "int32_t") {
            rc = w_.write(quickStringToNum<int>(n), nullptr);
        } else if (type == "int64_t") {
            rc = w_.write(quickStringToNum<long>(n), nullptr);
        } else if (type == "uint16_t") {
            rc = w_.write(quickStringToNum<unsigned short>(n), nullptr);
        } else if (type == "uint64_t") {
            rc = w_.write(quickStringToNum<unsigned long>(n), nullptr);
        } else {
            return false;
        }
        return rc == 0;
    }

    const Json& doc_;
    Writer& w_;
    std::string value_;   // the "Value" text of the basic parameter at hand
    std::string number_;  // the same, "0" when empty
};

} // namespace

bool fastEncode(const ZQSomeIPExtendAttr& attr, const std::string& json, std::vector<unsigned char>& payload)
{
    try {
        // One reader per thread keeps its storage from call to call.
        thread_local Json doc;
        if (!doc.parse(json) || doc.root().count == 0) {
            return false;
        }
        ZQSomeIPExtendAttr record = attr;
        Writer writer(&record);
        Walk walk(doc, writer);
        if (!walk.list(doc.root())) {
            return false;
        }
        std::vector<unsigned char> written = std::move(writer.to_buffer());
        payload.swap(written);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace ZQSomeIP
