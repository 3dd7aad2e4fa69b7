#include "Inner_someipSerializer.h"

#include <utility>

#include "ZQSomeIPFormatAnalyzer.h"
#include "Inner_someipExtendAttrLog.h"
#include "someip/zq_someip_log.h"

namespace ZQSomeIP {

namespace {

const unsigned int kWalkFailed = 0xFFFFFFFFu;

// Which walker is running: the shared element dispatch logs under the walker's name and names it in
// its messages.
const char* const kMain = "serialize_main";
const char* const kStruct = "serialize_struct";
const char* const kArray = "serialize_array";
const char* const kVector = "serialize_vector";

// A container that could not even be opened ends the walk at once: the walker that tried to open it
// does not add its "exit with Error occurred." line.
const unsigned int kBeginFailed = 0xFFFFFFFEu;

// The most elements a short fixed array is padded with (a million: fixed arrays of real messages
// hold tens to thousands).
const unsigned int kMaxArrayPadding = 1u << 20;

} // namespace

Inner_someipSerializer::Inner_someipSerializer(ZQSomeIPExtendAttr& attr) : engine(nullptr), extend_attr()
{
    setExtendAttr(attr);
}

Inner_someipSerializer::~Inner_someipSerializer() = default;

void Inner_someipSerializer::setExtendAttr(ZQSomeIPExtendAttr& attr)
{
    if (&attr != &extend_attr) {
        extend_attr = attr;
    }
    ZQ_SOMEIP_LOG_EXTEND_ATTR(extend_attr);
}

int Inner_someipSerializer::serialize(std::vector<uint8_t>& out, std::string& jsonStr, std::string& format)
{
    (void)format;  // the method format acts only through the attributes set beforehand
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize() : serialize Start *****");

    // A request left behind by an exception is simply replaced (and freed) here.
    engine.reset(new ZQSomeIPPayloadSerializerGeneral(&extend_attr));

    int result = -1;
    {
        Json::Value root(Json::objectValue);
        Json::Reader reader;
        if (!reader.parse(jsonStr, root, true)) {
            ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** serialize() : jsonStr parse failed!!! *****");
        } else {
            unsigned int nesting = 0;
            result = (serialize_main(root, nesting) == 0) ? 0 : -1;
            // Also on failure: the caller gets the bytes written before the failing element.
            std::vector<uint8_t> written = std::move(engine->to_buffer());
            out.swap(written);
        }
    }
    engine.reset();

    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize() : serialize end. result = %d *****", result);
    return result;
}

unsigned int Inner_someipSerializer::serialize_element(ZQSomeIPPayloadSerializerGeneral* writer,
                                                       Json::Value& element, unsigned int& nesting, const char* walker)
{
    Json::Value& type = element["ParamType"];
    unsigned int status = 0;
    if (type == "STRUCTURE") {
        if (writer->struct_data_begin(nullptr) != 0) {
            ZQ_SOMEIP_LOGE_IN(walker, " [%s][%d][%s]  ***** %s() struct_data_begin failed *****", walker);
            return kBeginFailed;
        }
        status = serialize_struct(writer, element["SubParams"], nesting);
        writer->data_end();
    } else if (type == "ARRAY") {
        if (writer->array_data_begin(nullptr) != 0) {
            ZQ_SOMEIP_LOGE_IN(walker, " [%s][%d][%s]  ***** %s() array_data_begin failed *****", walker);
            return kBeginFailed;
        }
        unsigned int count = StringToNum<unsigned int>(element["Value"].asString());
        status = serialize_array(writer, element["SubParams"], nesting, count);
        writer->data_end();
    } else if (type == "VECTOR") {
        if (writer->vector_data_begin(nullptr) != 0) {
            ZQ_SOMEIP_LOGE_IN(walker, " [%s][%d][%s]  ***** %s() vector_data_begin failed *****", walker);
            return kBeginFailed;
        }
        unsigned int counter = 0;
        status = serialize_vector(writer, element["SubParams"], nesting, counter);
        writer->data_end();
    } else {
        status = serialize_basic(writer, element, nesting);
    }
    return status;
}

unsigned int Inner_someipSerializer::serialize_elements(ZQSomeIPPayloadSerializerGeneral* writer, Json::Value& list,
                                                        unsigned int& nesting, const char* walker,
                                                        unsigned int* elementCount)
{
    for (Json::Value& element : list) {
        const unsigned int status = serialize_element(writer, element, nesting, walker);
        if (elementCount) {
            ++*elementCount;
        }
        if (status == kBeginFailed) {
            return kWalkFailed;
        }
        if (status == kWalkFailed) {
            ZQ_SOMEIP_LOGE_IN(walker, " [%s][%d][%s]  ***** %s() exit with Error occurred. *****", walker);
            return kWalkFailed;
        }
    }
    return 0;
}

unsigned int Inner_someipSerializer::serialize_main(Json::Value& root, unsigned int& nesting)
{
    if (root.size() == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** serialize_main() ERROR!!! jsonStr size == 0 *****");
        return kWalkFailed;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize_main() Start jsonStr size = %d *****",
                   static_cast<int>(root.size()));
    if (serialize_elements(engine.get(), root, nesting, kMain, nullptr) != 0) {
        return kWalkFailed;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize_main() end. *****");
    return 0;
}

unsigned int Inner_someipSerializer::serialize_struct(ZQSomeIPPayloadSerializerGeneral* writer, Json::Value& subParams,
                                                      unsigned int& nesting)
{
    if (subParams.size() == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** serialize_struct() ERROR!!! jsonStr size == 0 *****");
        return kWalkFailed;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize_struct() Start jsonStr size = %d *****",
                   static_cast<int>(subParams.size()));
    if (serialize_elements(writer, subParams, nesting, kStruct, nullptr) != 0) {
        return kWalkFailed;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize_struct() end. *****");
    return 0;
}

unsigned int Inner_someipSerializer::serialize_array(ZQSomeIPPayloadSerializerGeneral* writer, Json::Value& subParams,
                                                     unsigned int& nesting, unsigned int& expectedCount)
{
    if (subParams.size() == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** serialize_array() ERROR!!! jsonStr size == 0 *****");
        return kWalkFailed;
    }
    if (expectedCount == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** serialize_array() ERROR!!! Array size == 0 *****");
        return kWalkFailed;
    }
    if (subParams.size() != expectedCount) {
        ZQ_SOMEIP_LOGW(
            " [%s][%d][%s]  ***** serialize_array() Warning!!! Array size mismatch. Actual :%d, Expected :%d *****",
            static_cast<int>(subParams.size()), static_cast<int>(expectedCount));
        // A short list is filled up with copies of its first element; a long one is written whole.
        // The copies are bounded: a count far beyond any real message (such as "-1", read as 2^32 - 1)
        // would otherwise exhaust memory.
        if (expectedCount - subParams.size() > kMaxArrayPadding && subParams.size() < expectedCount) {
            ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** serialize_array() ERROR!!! Array size %u needs more than %u "
                           "copies of its first element *****",
                           expectedCount, kMaxArrayPadding);
            return kWalkFailed;
        }
        if (subParams.size() < expectedCount) {
            const Json::Value first = *subParams.begin();
            while (subParams.size() < expectedCount) {
                subParams.append(first);
            }
        }
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize_array() Start jsonStr size = %d *****",
                   static_cast<int>(subParams.size()));
    if (serialize_elements(writer, subParams, nesting, kArray, nullptr) != 0) {
        return kWalkFailed;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize_array() end. *****");
    return 0;
}

unsigned int Inner_someipSerializer::serialize_vector(ZQSomeIPPayloadSerializerGeneral* writer, Json::Value& subParams,
                                                      unsigned int& nesting, unsigned int& elementCount)
{
    if (subParams.size() == 0) {
        // An empty vector is valid: the caller opened the container and closes it empty.
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize_vector() ERROR!!! jsonStr size == 0 *****");
        return 0;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize_vector() Start jsonStr size = %d *****",
                   static_cast<int>(subParams.size()));
    if (serialize_elements(writer, subParams, nesting, kVector, &elementCount) != 0) {
        return kWalkFailed;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** serialize_vector() end. Vector Count  = %d *****",
                   static_cast<int>(elementCount));
    return 0;
}

unsigned int Inner_someipSerializer::serialize_basic(ZQSomeIPPayloadSerializerGeneral* writer, Json::Value& param,
                                                     unsigned int& nesting)
{
    (void)nesting;
    if (param.size() == 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** serialize_basic() ERROR!!! jsonStr size == 0 *****");
        return kWalkFailed;
    }
    const std::string value = param["Value"].asString();
    const std::string number = value.empty() ? std::string("0") : value;
    const std::string type = param["ParamType"].asString();

    // 8-bit values are read as 16-bit numbers and cut to their low byte ("300" is 44).
    uint32_t rc = 0;
    if (type == "bool") {
        rc = writer->write(number == "true", nullptr);
    } else if (type == "uint32_t") {
        rc = writer->write(StringToNum<unsigned int>(number), nullptr);
    } else if (type == "uint8_t") {
        rc = writer->write(static_cast<unsigned char>(StringToNum<short>(number)), nullptr);
    } else if (type == "STRING") {
        rc = writer->write(value, nullptr, false);
    } else if (type == "float") {
        rc = writer->write(StringToNum<float>(number), nullptr);
    } else if (type == "double") {
        rc = writer->write(StringToNum<double>(number), nullptr);
    } else if (type == "int8_t") {
        rc = writer->write(static_cast<signed char>(StringToNum<short>(number)), nullptr);
    } else if (type == "int16_t") {
        rc = writer->write(StringToNum<short>(number), nullptr);
    } else if (type == "int32_t") {
        rc = writer->write(StringToNum<int>(number), nullptr);
    } else if (type == "int64_t") {
        rc = writer->write(StringToNum<long>(number), nullptr);
    } else if (type == "uint16_t") {
        rc = writer->write(StringToNum<unsigned short>(number), nullptr);
    } else if (type == "uint64_t") {
        rc = writer->write(StringToNum<unsigned long>(number), nullptr);
    } else {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** serialize_basic() type error = %s *****", type.c_str());
        return kWalkFailed;
    }
    if (rc != 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** serialize_basic() write_basic failed: %s *****", type.c_str());
        return kWalkFailed;
    }
    return 0;
}

} // namespace ZQSomeIP
