#include "ZQSomeIPParserAPI.h"

#include "ZQSomeIPParser.h"
#include "someip/zq_someip_log.h"

namespace ZQSomeIP {

// The Start lines (and the End line of getMethodFormatbyID) print the method ID twice, the first time
// in the slot labelled "serviceID". That layout is kept on purpose; the service ID is not logged.

ZQSomeIPParserAPI::ZQSomeIPParserAPI() : parser(new ZQSomeIPParser())
{
}

ZQSomeIPParserAPI::~ZQSomeIPParserAPI() = default;

int ZQSomeIPParserAPI::loadFormatJson(std::string path)
{
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  loadFormatJson() Start. path:[%s]", path.c_str());
    const int result = parser ? parser->loadFormatJson(path) : -1;
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  loadFormatJson() End");
    return result;
}

int ZQSomeIPParserAPI::serializebyMethodID(int serviceID, int methodID, int messageType, std::string& json,
                                           std::vector<unsigned char>& payload)
{
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  serializebyMethodID() Start. serviceID:[%d], methodID:[%d], messageType:[%d]",
                   methodID, methodID, messageType);
    const int result = parser ? parser->serializebyMethodID(serviceID, methodID, messageType, json, payload) : -1;
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  serializebyMethodID() End");
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  result json:[%s]", json.c_str());
    return result;
}

int ZQSomeIPParserAPI::deserializebyMethodID(int serviceID, int methodID, int messageType,
                                             std::vector<unsigned char>& payload, std::string& json)
{
    ZQ_SOMEIP_LOGD(
        " [%s][%d][%s]  deserializebyMethodID() Start. serviceID:[%d], methodID:[%d], messageType:[%d], jsonStr:[%s]",
        methodID, methodID, messageType, json.c_str());
    const int result = parser ? parser->deserializebyMethodID(serviceID, methodID, messageType, payload, json) : -1;
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  deserializebyMethodID() End");
    return result;
}

int ZQSomeIPParserAPI::getMethodFormatbyID(int serviceID, int methodID, int messageType, std::string& format)
{
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  getMethodFormatbyID() Start. serviceID:[%d], methodID:[%d], messageType:[%d]",
                   methodID, methodID, messageType);
    const int result = parser ? parser->getMethodFormatbyID(serviceID, methodID, messageType, format) : -1;
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  getMethodFormatbyID() End. serviceID:[%d], methodID:[%d], messageType:[%d]:",
                   methodID, methodID, messageType);
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  result json:[%s]", format.c_str());
    return result;
}

} // namespace ZQSomeIP
