#include "ZQSomeIPFormatAnalyzer.h"

#include <fstream>

#include "format/ZQSomeIPFormatRules.h"
#include "format/ZQSomeIPNumberText.h"
#include "someip/zq_someip_log.h"

namespace ZQSomeIP {

namespace {

// The first "Params" entry of the first entry with the wanted ID whose "MethodType" matches, or null.
Json::Value* findParams(Json::Value& entries, const ZQSomeIPSearchPlan& plan, int methodID)
{
    const Json::ArrayIndex count = entries.size();
    for (Json::ArrayIndex j = 0; j < count; ++j) {
        Json::Value& entry = entries[j];
        if (StringToNum<int>(entry[plan.idKey].asString()) != methodID) {
            continue;
        }
        Json::Value& params = entry["Params"];
        const Json::ArrayIndex paramCount = params.size();
        for (Json::ArrayIndex k = 0; k < paramCount; ++k) {
            if (params[k]["MethodType"].asString() == plan.methodType) {
                return &params[k];
            }
        }
    }
    return nullptr;
}

// What a successful attribute parse writes: the nine encoding fields, never the frame counters.
void copyEncodingFields(const ZQSomeIPExtendAttr& from, ZQSomeIPExtendAttr& to)
{
    to.array_length_field_size = from.array_length_field_size;
    to.vector_length_field_size = from.vector_length_field_size;
    to.struct_length_field_size = from.struct_length_field_size;
    to.string_length_field_size = from.string_length_field_size;
    to.union_length_field_size = from.union_length_field_size;
    to.alignment = from.alignment;
    to.byte_order = from.byte_order;
    to.union_type_field_size = from.union_type_field_size;
    to.string_utf = from.string_utf;
}

} // namespace

ZQSomeIPFormatAnalyzer::ZQSomeIPFormatAnalyzer() = default;

ZQSomeIPFormatAnalyzer::~ZQSomeIPFormatAnalyzer() = default;

int ZQSomeIPFormatAnalyzer::loadFormatJson(std::string path)
{
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** loadFormatJson() start. path = [%s] *****", path.c_str());
    const int type = pathType(path);
    if (type == -1) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** loadFormatJson() faild. Path is not dir or file. *****");
        return -1;
    }

    int result = -1;
    if (type == 0) {
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** loadFormatJson(). Path is file. *****");
        result = loadFormatJsonFile_Inner(path);
    } else if (type == 1) {
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** loadFormatJson(). Path is dir. *****");
        result = loadFormatJsonDir_Inner(path);
    }

    if (formats.empty()) {
        result = -1;
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** loadFormatJson() faild. No json file loaded. *****");
    }
    return result;
}

int ZQSomeIPFormatAnalyzer::pathType(std::string path)
{
    return FormatRules::pathType(path);
}

bool ZQSomeIPFormatAnalyzer::isFormatFile(std::string name)
{
    return FormatRules::isFormatFile(name);
}

int ZQSomeIPFormatAnalyzer::loadFormatJsonFile_Inner(std::string path)
{
    std::ifstream file(path.c_str(), std::ios::in | std::ios::binary);
    if (!file.is_open()) {
        return -1;
    }
    Json::Reader reader;
    Json::Value root;
    if (!reader.parse(file, root, true)) {
        ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** loadFormatJsonFile_Inner() file [%s] parse failed. *****",
                       path.c_str());
        return -1;
    }
    formats.push_back(std::move(root));
    index.addDocument(formats.back(), formats.size() - 1,
                      [this](const Json::Value& service, const Json::Value& document, ZQSomeIPExtendAttr& attr) {
                          return readLookupAttributes(service, document, attr);
                      });
    return 0;
}

int ZQSomeIPFormatAnalyzer::loadFormatJsonDir_Inner(std::string path)
{
    std::vector<std::string> files;
    recureFormatFiles(path, files);
    if (files.empty()) {
        return -1;
    }
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** loadFormatJsonDir_Inner(). Json Fiels count : %d. *****",
                   static_cast<int>(files.size()));
    for (const std::string& file : files) {
        loadFormatJsonFile_Inner(file);
    }
    return 0;
}

void ZQSomeIPFormatAnalyzer::recureFormatFiles(std::string dir, std::vector<std::string>& files)
{
    FormatRules::recureFormatFiles(dir, files);
}

bool ZQSomeIPFormatAnalyzer::scanDocument(Json::Value& document, int serviceID, int methodID,
                                          const ZQSomeIPSearchPlan* plan, std::string& format,
                                          ZQSomeIPExtendAttr& attr)
{
    Json::Value& services = document["Services"];
    const Json::ArrayIndex serviceCount = services.size();
    if (serviceCount < 1) {
        return false;
    }
    for (Json::ArrayIndex i = 0; i < serviceCount; ++i) {
        Json::Value& service = services[i];
        if (StringToNum<int>(service["ServiceID"].asString()) != serviceID) {
            continue;
        }
        // The sizes are taken (and absent keys so added) whatever the message type.
        service["Methods"].size();
        service["Events"].size();
        service["Fields"].size();
        if (plan == nullptr) {
            continue;
        }
        Json::Value* params = nullptr;
        for (const char* arrayName : plan->arrays) {
            if (arrayName != nullptr && params == nullptr) {
                params = findParams(service[arrayName], *plan, methodID);
            }
        }
        if (params == nullptr) {
            continue;
        }
        format = Json::Value((*params)["ParamsDetails"]).toStyledString();
        Json::Value serviceAttribute = service.get("Attribute", Json::Value());
        if (parseAttribute(serviceAttribute, attr) == -1) {
            parseGlobalAttribute(document, attr);
        }
        return true;
    }
    return false;
}

int ZQSomeIPFormatAnalyzer::findMethodFormat(int serviceID, int methodID, int messageType, std::string& format,
                                             ZQSomeIPExtendAttr& attr, const ZQSomeIPIndexedMethod*& method)
{
    ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** getMethodFormatbyID(). Formats Cnt is %d",
                   static_cast<int>(formats.size()));
    method = nullptr;
    if (formats.empty()) {
        return -1;
    }

    int result = -1;
    ZQSomeIPSearchPlan plan;
    const bool searchable = searchPlanFor(messageType, plan);
    // Every document is searched and the last match wins: a later file overrides an earlier one.
    if (!index_enabled) {
        for (Json::Value& document : formats) {
            if (scanDocument(document, serviceID, methodID, searchable ? &plan : nullptr, format, attr)) {
                result = 0;
            }
        }
    } else {
        for (const ZQSomeIPFormatIndex::Segment& segment : index.segments()) {
            if (segment.scanned) {
                // The scan writes its matches as it goes: an indexed match before it is written out first,
                // so that an exception thrown further on leaves the same text behind.
                if (method != nullptr) {
                    format = method->styled();
                    method = nullptr;
                }
                if (scanDocument(formats[segment.document], serviceID, methodID, searchable ? &plan : nullptr,
                                 format, attr)) {
                    result = 0;
                }
                continue;
            }
            const ZQSomeIPFormatIndex::Slot* slot =
                searchable ? ZQSomeIPFormatIndex::find(segment, serviceID, methodID, plan.kind) : nullptr;
            if (slot != nullptr) {
                method = slot->method;
                if (slot->attr != nullptr) {
                    copyEncodingFields(*slot->attr, attr);
                }
                result = 0;
            }
        }
    }

    if (result == 0) {
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** getMethodFormatbyID() end. result is %s", "Successful");
    } else {
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** getMethodFormatbyID() end. result is %s", "Failed");
        result = -1;
    }
    return result;
}

int ZQSomeIPFormatAnalyzer::getMethodFormatbyIDWithAttr(int serviceID, int methodID, int messageType,
                                                        std::string& format, ZQSomeIPExtendAttr& attr)
{
    const ZQSomeIPIndexedMethod* method = nullptr;
    const int result = findMethodFormat(serviceID, methodID, messageType, format, attr, method);
    if (method != nullptr) {
        format = method->styled();
    }
    return result;
}

int ZQSomeIPFormatAnalyzer::getMethodFormatbyID(int serviceID, int methodID, int messageType,
                                                std::string& format)
{
    ZQSomeIPExtendAttr scratch;
    return getMethodFormatbyIDWithAttr(serviceID, methodID, messageType, format, scratch);
}

int ZQSomeIPFormatAnalyzer::convertToLengthFieldSize(const std::string& text)
{
    return FormatRules::lengthFieldSize(text);
}

int ZQSomeIPFormatAnalyzer::convertToUnionTypeFieldSize(const std::string& text)
{
    return FormatRules::unionTypeFieldSize(text);
}

int ZQSomeIPFormatAnalyzer::convertToAlignment(const std::string& text)
{
    return FormatRules::alignment(text);
}

int ZQSomeIPFormatAnalyzer::convertToByteOrder(const std::string& text)
{
    return FormatRules::byteOrder(text);
}

int ZQSomeIPFormatAnalyzer::convertToCharBit(const std::string& text)
{
    return FormatRules::charBit(text);
}

int ZQSomeIPFormatAnalyzer::parseAttribute(Json::Value& attribute, ZQSomeIPExtendAttr& attr)
{
    return FormatRules::parseAttribute(attribute, attr);
}

int ZQSomeIPFormatAnalyzer::parseGlobalAttribute(Json::Value& owner, ZQSomeIPExtendAttr& attr)
{
    return FormatRules::parseGlobalAttribute(owner, attr);
}

bool ZQSomeIPFormatAnalyzer::readLookupAttributes(const Json::Value& service, const Json::Value& document,
                                                  ZQSomeIPExtendAttr& attr)
{
    return FormatRules::readLookupAttributes(service, document, attr);
}

ZQSomeIPExtendAttr* ZQSomeIPFormatAnalyzer::getGlobalAttribute()
{
    return &global_attribute;
}

} // namespace ZQSomeIP
