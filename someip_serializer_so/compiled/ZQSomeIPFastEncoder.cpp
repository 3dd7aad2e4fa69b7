#include "ZQSomeIPFastEncoder.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <limits>
#include <type_traits>

#include "ZQSomeIPFormatAnalyzer.h"
#include "ZQSomeIPLightJson.h"
#include "someip/ZQSomeIPPayloadSerializerGeneral.h"

namespace ZQSomeIP {

namespace {

using Json = ZQSomeIPLightJson;
using Writer = ZQSomeIPPayloadSerializerGeneral;

// The number StringToNum<T> reads from `text`, computed directly when the text is a plain decimal
// of a size that cannot overflow T; anything else goes through StringToNum itself.
template <typename T>
T number(const std::string& text)
{
    const char* p = text.c_str();
    if constexpr (std::is_floating_point<T>::value) {
        // digits, optionally one point and more digits: the stream hands exactly this to strtod.
        const char* q = p + (*p == '-');
        size_t digits = 0;
        while (*q >= '0' && *q <= '9') {
            ++q;
            ++digits;
        }
        if (digits > 0 && *q == '.') {
            ++q;
            while (*q >= '0' && *q <= '9') {
                ++q;
                ++digits;
            }
        }
        if (digits == 0 || *q != '\0' || digits > 40) {
            return StringToNum<T>(text);
        }
        errno = 0;
        char* end = nullptr;
        const T v = std::is_same<T, float>::value ? static_cast<T>(strtof(p, &end)) : static_cast<T>(strtod(p, &end));
        if (errno != 0 || end != q || !std::isfinite(v)) {
            return StringToNum<T>(text);
        }
        return v;
    } else {
        const bool negative = *p == '-';
        if (negative && std::is_unsigned<T>::value) {
            return StringToNum<T>(text);
        }
        const char* q = p + negative;
        // Digits that always fit: 4 for 16 bits, 9 for 32; 64-bit values are checked against the limit.
        const size_t fit = sizeof(T) == 2 ? 4 : sizeof(T) == 4 ? 9 : 20;
        uint64_t v = 0;
        size_t n = 0;
        bool overflow = false;
        while (q[n] >= '0' && q[n] <= '9') {
            overflow |= __builtin_mul_overflow(v, 10u, &v);
            overflow |= __builtin_add_overflow(v, static_cast<uint64_t>(q[n] - '0'), &v);
            ++n;
        }
        const uint64_t limit = std::is_signed<T>::value ? static_cast<uint64_t>(std::numeric_limits<T>::max()) + negative
                                                        : static_cast<uint64_t>(std::numeric_limits<T>::max());
        if (n == 0 || n > fit || q[n] != '\0' || overflow || v > limit) {
            return StringToNum<T>(text);
        }
        return negative ? static_cast<T>(0 - v) : static_cast<T>(v);
    }
}

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
            rc = w_.write(number<unsigned int>(n), nullptr);
        } else if (type == "uint8_t") {
            rc = w_.write(static_cast<unsigned char>(number<short>(n)), nullptr);
        } else if (type == "STRING") {
            rc = w_.write(value_, nullptr, false);
        } else if (type == "float") {
            rc = w_.write(number<float>(n), nullptr);
        } else if (type == "double") {
            rc = w_.write(number<double>(n), nullptr);
        } else if (type == "int8_t") {
            rc = w_.write(static_cast<signed char>(number<short>(n)), nullptr);
        } else if (type == "int16_t") {
            rc = w_.write(number<short>(n), nullptr);
        } else if (type == "int32_t") {
            rc = w_.write(number<int>(n), nullptr);
        } else if (type == "int64_t") {
            rc = w_.write(number<long>(n), nullptr);
        } else if (type == "uint16_t") {
            rc = w_.write(number<unsigned short>(n), nullptr);
        } else if (type == "uint64_t") {
            rc = w_.write(number<unsigned long>(n), nullptr);
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
