#include "Inner_someipDeserializer.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "ZQSomeIPFormatAnalyzer.h"
#include "Inner_someipExtendAttrLog.h"
#include "someip/zq_someip_log.h"

namespace ZQSomeIP {

namespace {

const uint32_t kWalkFailed = 0xFFFFFFFFu;

// How many elements of a fixed array may take no payload bytes at all (empty vectors without a
// length field): far more than a real message has (fixed arrays hold tens to thousands).
const uint64_t kMaxEmptyElements = 1u << 16;

// How a value appears in its read line: "%d" and "%u" take an int-sized argument, so the 64-bit
// values show their low 32 bits there ("Value" keeps all of them); "%f" takes a double.
int shown(bool v) { return v; }
int shown(int8_t v) { return v; }
int shown(int16_t v) { return v; }
int shown(int32_t v) { return v; }
int shown(int64_t v) { return static_cast<int>(v); }
unsigned shown(uint8_t v) { return v; }
unsigned shown(uint16_t v) { return v; }
unsigned shown(uint32_t v) { return v; }
unsigned shown(uint64_t v) { return static_cast<unsigned>(v); }
double shown(float v) { return v; }
double shown(double v) { return v; }

// The "Value" text: "true"/"false", or the standard decimal conversion (six decimals for float/double).
std::string valueText(bool v) { return v ? "true" : "false"; }
template <typename T>
std::string valueText(T v)
{
    return std::to_string(v);
}

// Reads one basic value; on success logs its read line and hands out its "Value" text.
template <typename T>
uint32_t readBasic(ZQSomeIPPayloadDeserializerGeneral* r, const char* line, std::string& text)
{
    T v{};
    const uint32_t rc = r->read(v, nullptr);
    if (rc == 0) {
        ZQ_SOMEIP_LOGD_IN("deserialize_basic", line, shown(v));
        text = valueText(v);
    }
    return rc;
}

// A bool or number of the type `type` names: the reader's result, the value's text and the bytes it
// takes. False when `type` names none of them.
bool readNumber(ZQSomeIPPayloadDeserializerGeneral* r, const std::string& type, std::string& text, uint32_t& used,
                uint32_t& rc)
{
    if (type == "bool") {
        rc = readBasic<bool>(r, " [%s][%d][%s]  ***** deserialize_basic: read bool deserializer : %d *****", text);
        used = 1;
    } else if (type == "uint32_t") {
        rc = readBasic<uint32_t>(r, " [%s][%d][%s]  ***** deserialize_basic: read uint32_t deserializer : %u *****", text);
        used = 4;
    } else if (type == "uint8_t") {
        rc = readBasic<uint8_t>(r, " [%s][%d][%s]  ***** deserialize_basic: read uint8_t deserializer : %u *****", text);
        used = 1;
    } else if (type == "float") {
        rc = readBasic<float>(r, " [%s][%d][%s]  ***** deserialize_basic: read float deserializer : %f *****", text);
        used = 4;
    } else if (type == "double") {
        rc = readBasic<double>(r, " [%s][%d][%s]  ***** deserialize_basic: read double deserializer : %f *****", text);
        used = 8;
    } else if (type == "int8_t") {
        rc = readBasic<int8_t>(r, " [%s][%d][%s]  ***** deserialize_basic: read int8_t deserializer : %d *****", text);
        used = 1;
    } else if (type == "int16_t") {
        rc = readBasic<int16_t>(r, " [%s][%d][%s]  ***** deserialize_basic: read int16_t deserializer : %d *****", text);
        used = 2;
    } else if (type == "int32_t") {
        rc = readBasic<int32_t>(r, " [%s][%d][%s]  ***** deserialize_basic: read int32_t deserializer : %d *****", text);
        used = 4;
    } else if (type == "int64_t") {
        rc = readBasic<int64_t>(r, " [%s][%d][%s]  ***** deserialize_basic: read int64_t deserializer : %d *****", text);
        used = 8;
    } else if (type == "uint16_t") {
        rc = readBasic<uint16_t>(r, " [%s][%d][%s]  ***** deserialize_basic: read uint16_t deserializer : %u *****", text);
        used = 2;
    } else if (type == "uint64_t") {
        rc = readBasic<uint64_t>(r, " [%s][%d][%s]  ***** deserialize_basic: read uint64_t deserializer : %u *****", text);
        used = 8;
    } else {
        return false;
    }
    return true;
}

} // namespace

const char* Inner_someipDeserializer::walkerName(Walker walker)
{
    switch (walker) {
    case Walker::Main: return "deserialize_main";
    case Walker::Struct: return "deserialize_struct";
    case Walker::Array: return "deserialize_array";
    case Walker::Vector: return "deserialize_vector";
    }
    return "";
}

Inner_someipDeserializer::Inner_someipDeserializer(ZQSomeIPExtendAttr& attr) : engine(nullptr), extend_attr()
{
    setExtendAttr(attr);
}

Inner_someipDeserializer::~Inner_someipDeserializer() = default;

void Inner_someipDeserializer::setExtendAttr(ZQSomeIPExtendAttr& attr)
{
    if (&attr != &extend_attr) {
        extend_attr = attr;
    }
    ZQ_SOMEIP_LOG_EXTEND_ATTR(extend_attr);
}

std::string Inner_someipDeserializer::NumToString(const int& n)
{
    char text[100] = {0};
    snprintf(text, sizeof(text), "%d", n);
    return std::string(text);
}

int Inner_someipDeserializer::deserialize(std::vector<unsigned char>& payload, std::string& json, std::string& format)
{
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** deserialize() : deserialize Start *****");

    // A request left behind by an exception is simply replaced (and freed) here.
    engine.reset(new ZQSomeIPPayloadDeserializerGeneral(&extend_attr));

    int result = -1;
    {
        Json::Value root(Json::objectValue);
        Json::Reader reader;
        if (!reader.parse(format, root, true)) {
            ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** deserialize() : jsonStr parse failed!!! *****");
        } else {
            // An empty payload is not refused here: the walk reports it.
            engine->from_buffer(payload);
            uint32_t remaining = static_cast<uint32_t>(payload.size());
            result = (deserialize_main(root, remaining) == 0) ? 0 : -1;
            // Also on failure: the caller gets the values read before the failing element.
            json = root.toStyledString();
        }
    }
    engine.reset();

    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** deserialize() : deserialize End. result = %d *****", result);
    return result;
}

uint32_t Inner_someipDeserializer::deserialize_vector_content(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& p,
                                                               uint32_t& remaining, Walker walker)
{
    uint8_t* data = nullptr;
    uint32_t len = 0;
    // The result is deliberately not examined: a vector without a length field reads as empty.
    r->read(&data, &len, nullptr);
    // The length line of a vector inside a vector carries the top-level walker's name.
    ZQ_SOMEIP_LOGD_IN(walkerName(walker), " [%s][%d][%s]  ***** %s() vector_Element length is %d *****",
                      walkerName(walker == Walker::Vector ? Walker::Main : walker), static_cast<int>(len));
    remaining -= len;

    // The content is decoded in isolation by an engine of its own. Only a block the reader actually
    // handed out is copied: a refused read (for instance a length beyond the payload) leaves the
    // content empty, so decoding it fails instead of looking outside the payload.
    std::vector<uint8_t> content;
    if (data != nullptr) {
        content.assign(data, data + len);
    }
    ZQSomeIPPayloadDeserializerGeneral inner(&extend_attr);
    inner.from_buffer(std::move(content));
    uint32_t count = 0;
    return deserialize_vector(&inner, p, len, count);
}

uint32_t Inner_someipDeserializer::deserialize_element(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& p,
                                                        uint32_t& remaining, Walker walker)
{
    const char* name = walkerName(walker);
    Json::Value& type = p["ParamType"];
    uint32_t status = 0;
    if (type == "STRUCTURE") {
        if (r->struct_data_begin(nullptr) != 0) {
            ZQ_SOMEIP_LOGE_IN(name, " [%s][%d][%s]  ***** %s() struct_data_begin failed *****", name);
            return kWalkFailed;
        }
        remaining -= extend_attr.struct_length_field_size;
        status = deserialize_struct(r, p["SubParams"], remaining);
        r->data_end();
    } else if (type == "ARRAY") {
        if (r->array_data_begin(nullptr) != 0) {
            ZQ_SOMEIP_LOGE_IN(name, " [%s][%d][%s]  ***** %s() array_data_begin failed *****", name);
            return kWalkFailed;
        }
        remaining -= extend_attr.array_length_field_size;
        // Where the array's description lives depends on the walker: at top level and directly in a
        // vector its "SubParams" is handed on, inside a struct or an array the parameter itself.
        uint32_t count = 0;
        if (walker == Walker::Vector) {
            count = p["SubParams"].size();
            status = deserialize_array(r, p["SubParams"], remaining, count);
        } else {
            count = StringToNum<unsigned int>(p["Value"].asString());
            Json::Value& described = (walker == Walker::Main) ? p["SubParams"] : p;
            status = deserialize_array(r, described, remaining, count);
        }
        r->data_end();
    } else if (type == "VECTOR") {
        if (r->vector_data_begin(nullptr) != 0) {
            ZQ_SOMEIP_LOGE_IN(name, " [%s][%d][%s]  ***** %s() vector_data_begin failed *****", name);
            return kWalkFailed;
        }
        remaining -= extend_attr.vector_length_field_size;
        status = deserialize_vector_content(r, p, remaining, walker);
        r->data_end();
    } else {
        status = deserialize_basic(r, p, remaining);
    }
    if (status == kWalkFailed) {
        ZQ_SOMEIP_LOGE_IN(name, " [%s][%d][%s]  ***** %s() exit with Error occurred *****", name);
    }
    return status;
}

uint32_t Inner_someipDeserializer::deserialize_members(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& params,
                                                        uint32_t& remaining, Walker walker)
{
    const char* name = walkerName(walker);
    if (params.size() == 0) {
        ZQ_SOMEIP_LOGE_IN(name, " [%s][%d][%s]  ***** %s() ERROR!!! formatjson size == 0 *****", name);
        return kWalkFailed;
    }
    if (remaining == 0) {
        ZQ_SOMEIP_LOGE_IN(name, " [%s][%d][%s]  ***** %s() ERROR!!! remain payload Length == 0 *****", name);
        return kWalkFailed;
    }
    ZQ_SOMEIP_LOGD_IN(name, " [%s][%d][%s]  ***** %s() Start. payloadLength = %d *****", name,
                      static_cast<int>(remaining));
    for (Json::Value& p : params) {
        if (deserialize_element(r, p, remaining, walker) == kWalkFailed) {
            return kWalkFailed;
        }
    }
    ZQ_SOMEIP_LOGD_IN(name, " [%s][%d][%s]  ***** %s() end. *****", name);
    return 0;
}

uint32_t Inner_someipDeserializer::deserialize_main(Json::Value& params, uint32_t& remaining)
{
    return deserialize_members(engine.get(), params, remaining, Walker::Main);
}

uint32_t Inner_someipDeserializer::deserialize_struct(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& params,
                                                       uint32_t& remaining)
{
    return deserialize_members(r, params, remaining, Walker::Struct);
}

template <typename Done>
uint32_t Inner_someipDeserializer::expandElements(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& container,
                                                  uint32_t& remaining, Walker walker, int& read, Done done)
{
    // One template serves every element: what element i leaves in it (values, expanded members, its
    // new name) is what element i+1 starts from.
    Json::Value element = container["SubParams"][0];
    Json::Value& elements = container["SubParams"];
    elements.clear();
    const std::string name = container["ParamName"].asString();
    read = 0;
    do {
        if (deserialize_element(r, element, remaining, walker) == kWalkFailed) {
            return kWalkFailed;
        }
        element["ParamName"] = name + "_" + NumToString(read);
        elements.append(element);
        ++read;
    } while (!done());
    return 0;
}

uint32_t Inner_someipDeserializer::deserialize_array(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& arr,
                                                      uint32_t& remaining, uint32_t& count)
{
    if (arr.size() == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** deserialize_array() ERROR!!! formatjson size == 0 *****");
        return kWalkFailed;
    }
    if (count == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** deserialize_array() ERROR!!! array Length == 0 *****");
        return kWalkFailed;
    }
    if (remaining == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** deserialize_array() ERROR!!! remain payload Length == 0 *****");
        return kWalkFailed;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** deserialize_array() Start. payloadLength = %d *****",
                   static_cast<int>(remaining));
    // Every element but an empty one takes at least a byte: more elements than the bytes left plus
    // 65,536 empty ones (a count such as "-1", read as 2^32 - 1) could only be walked without end.
    const uint32_t left = r->get_index() < r->get_size() ? r->get_size() - r->get_index() : 0;
    const uint64_t budget = static_cast<uint64_t>(left) + kMaxEmptyElements;
    uint64_t walked = 0;
    int read = 0;
    uint32_t status = expandElements(r, arr, remaining, Walker::Array, read,
                                     [&count, &walked, budget]() { return --count == 0 || ++walked >= budget; });
    if (status == kWalkFailed) {
        return kWalkFailed;
    }
    if (count != 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** deserialize_array() ERROR!!! %d elements walked, %u more declared, "
                       "%u bytes were left *****",
                       read, count, left);
        return kWalkFailed;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** deserialize_array() end. Array Cnt = %d *****", read);
    return 0;
}

uint32_t Inner_someipDeserializer::deserialize_vector(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& vec,
                                                       uint32_t& remaining, uint32_t& count)
{
    if (vec.size() == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** deserialize_vector() ERROR!!! formatjson size == 0 *****");
        return kWalkFailed;
    }
    if (remaining == 0) {
        // An empty vector is a success; its description stays as it was.
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** deserialize_vector() Return!!! Vector payload Length == 0 *****");
        return 0;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** deserialize_vector() Start. payloadLength = %d *****",
                   static_cast<int>(remaining));
    int read = 0;
    uint32_t status =
        expandElements(r, vec, remaining, Walker::Vector, read, [&remaining]() { return remaining == 0; });
    if (status == kWalkFailed) {
        return kWalkFailed;
    }
    count = static_cast<uint32_t>(read);
    vec["Value"] = NumToString(read);
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** deserialize_vector() end. Vector Cnt = %d *****", read);
    return 0;
}

uint32_t Inner_someipDeserializer::deserialize_basic(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& param,
                                                      uint32_t& remaining)
{
    if (param.size() == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** deserialize_basic() ERROR!!! formatjson size == 0 *****");
        return kWalkFailed;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** deserialize_basic() Start. payloadLength = %d *****",
                   static_cast<int>(remaining));
    const std::string type = param["ParamType"].asString();
    std::string text;
    uint32_t used = 0;  // payload bytes the value is taken to occupy
    uint32_t rc = 0;
    if (type == "STRING") {
        if ((rc = r->read(text, 0, nullptr, false)) == 0) {
            ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** deserialize_basic: read string deserializer : %s *****", text.c_str());
            // Accounted as a UTF-8 string with its mark and terminator, up to the first zero byte,
            // whatever the encoding on the wire.
            used = extend_attr.string_length_field_size + 4 + static_cast<uint32_t>(strlen(text.c_str()));
        }
    } else if (!readNumber(r, type, text, used, rc)) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** deserialize_basic() type error = %s *****", type.c_str());
        return kWalkFailed;
    }
    if (rc != 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** deserialize_basic() read failed: %s *****", type.c_str());
        return kWalkFailed;
    }
    param["Value"] = text;
    remaining -= used;
    return 0;
}

} // namespace ZQSomeIP
