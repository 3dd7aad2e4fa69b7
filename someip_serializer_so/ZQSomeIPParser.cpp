#include "ZQSomeIPParser.h"

#include "compiled/ZQSomeIPFastDecoder.h"
#include "compiled/ZQSomeIPFastEncoder.h"
#include "someip/zq_someip_log.h"

namespace ZQSomeIP {

ZQSomeIPParser::ZQSomeIPParser() : analyzer(nullptr), serializer(nullptr), deserializer(nullptr)
{
    analyzer.reset(new ZQSomeIPFormatAnalyzer());
}

ZQSomeIPParser::~ZQSomeIPParser()
{
    serializer.reset();
    deserializer.reset();
    analyzer.reset();
}

int ZQSomeIPParser::loadFormatJson(std::string path)
{
    if (!analyzer) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** loadFormatJson() error : ZQSomeIPFormatAnalyzer is NULL!!! *****");
        return -1;
    }
    return analyzer->loadFormatJson(path);
}

int ZQSomeIPParser::getMethodFormatbyIDWithAttr(int serviceID, int methodID, int messageType, std::string& format,
                                                ZQSomeIPExtendAttr& attr)
{
    if (!analyzer) {
        ZQ_SOMEIP_LOGE(
            " [%s][%d][%s]  ***** getMethodFormatbyIDWithAttr() error : ZQSomeIPFormatAnalyzer is NULL!!! *****");
        return -1;
    }
    return analyzer->getMethodFormatbyIDWithAttr(serviceID, methodID, messageType, format, attr);
}

int ZQSomeIPParser::getMethodFormatbyID(int serviceID, int methodID, int messageType, std::string& format)
{
    if (!analyzer) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** getMethodFormatbyID() error : ZQSomeIPFormatAnalyzer is NULL!!! *****");
        return -1;
    }
    // Same lookup as the attribute-returning form; the attributes found are not needed here. A fresh
    // record holds the defaults every lookup starts from.
    ZQSomeIPExtendAttr attr;
    return analyzer->getMethodFormatbyIDWithAttr(serviceID, methodID, messageType, format, attr);
}

void ZQSomeIPParser::setFastPathEnabled(bool enabled)
{
    fast_path = enabled;
    if (analyzer) {
        analyzer->setIndexEnabled(enabled);
    }
}

Inner_someipSerializer* ZQSomeIPParser::getSerializer(ZQSomeIPExtendAttr& attr)
{
    if (serializer) {
        serializer->setExtendAttr(attr);
    } else {
        serializer.reset(new Inner_someipSerializer(attr));
    }
    return serializer.get();
}

Inner_someipDeserializer* ZQSomeIPParser::getDeserializer(ZQSomeIPExtendAttr& attr)
{
    if (deserializer) {
        deserializer->setExtendAttr(attr);
    } else {
        deserializer.reset(new Inner_someipDeserializer(attr));
    }
    return deserializer.get();
}

int ZQSomeIPParser::serializebyMethodID(int serviceID, int methodID, int messageType, std::string& json,
                                        std::vector<unsigned char>& payload)
{
    ZQSomeIPExtendAttr attr;  // the lookup defaults; the format's "Attribute" objects change what they name
    std::string format;
    const ZQSomeIPIndexedMethod* method = nullptr;
    const int found = analyzer ? analyzer->findMethodFormat(serviceID, methodID, messageType, format, attr, method)
                               : getMethodFormatbyIDWithAttr(serviceID, methodID, messageType, format, attr);
    if (found != 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** serializebyMethodID() End : Find Format Failed *****");
        return found;
    }
    // The encoder reads only the attributes of the format; the fast one writes no log lines.
    if (fast_path && !zq_someip_log_enabled() && fastEncode(attr, json, payload)) {
        return 0;
    }
    if (method != nullptr) {
        format = method->styled();
    }
    return getSerializer(attr)->serialize(payload, json, format);
}

int ZQSomeIPParser::deserializebyMethodID(int serviceID, int methodID, int messageType,
                                          std::vector<unsigned char>& payload, std::string& json)
{
    ZQSomeIPExtendAttr attr;  // the lookup defaults; the format's "Attribute" objects change what they name
    std::string format;
    const ZQSomeIPIndexedMethod* method = nullptr;
    const int found = analyzer ? analyzer->findMethodFormat(serviceID, methodID, messageType, format, attr, method)
                               : getMethodFormatbyIDWithAttr(serviceID, methodID, messageType, format, attr);
    if (found != 0) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** deserializebyMethodID() End : Find Format Failed *****");
        return found;
    }
    // The fast decoder writes no log lines, so it serves only while logging is off.
    if (method != nullptr) {
        const ZQSomeIPCompiledFormat* compiled = fast_path && !zq_someip_log_enabled() ? ZQSomeIPCompiledFormat::of(*method) : nullptr;
        if (compiled != nullptr && fastDecode(*compiled, attr, payload, json)) {
            return 0;
        }
        format = method->styled();
    }
    return getDeserializer(attr)->deserialize(payload, json, format);
}

} // namespace ZQSomeIP
