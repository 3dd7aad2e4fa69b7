#include "ZQSomeIPFormatAnalyzer.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

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
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        return -1;
    }
    // Single bits, not the file-type field as a whole: block devices and sockets share the directory
    // bit and count as directories, which hosts have come to rely on.
    if (info.st_mode & 0x4000) {
        return 1;
    }
    if (info.st_mode & 0x8000) {
        return 0;
    }
    return -1;
}

bool ZQSomeIPFormatAnalyzer::isFormatFile(std::string name)
{
    static const std::string suffix = ".json";
    if (name.length() <= 4) {
        return false;
    }
    const size_t found = name.rfind(suffix);
    return found != std::string::npos && found == name.length() - suffix.length();
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
    std::vector<std::pair<unsigned long, unsigned long>> ancestors;
    recureFormatFiles(dir, files, ancestors);
}

void ZQSomeIPFormatAnalyzer::recureFormatFiles(const std::string& dir, std::vector<std::string>& files,
                                               std::vector<std::pair<unsigned long, unsigned long>>& ancestors)
{
    struct stat info;
    if (stat(dir.c_str(), &info) == 0) {
        const std::pair<unsigned long, unsigned long> self(info.st_dev, info.st_ino);
        if (std::find(ancestors.begin(), ancestors.end(), self) != ancestors.end()) {
            ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** recureFormatFiles() [%s] leads back to a directory above it, not "
                           "followed *****",
                           dir.c_str());
            return;
        }
        ancestors.push_back(self);
    } else {
        ancestors.emplace_back(0, 0);
    }
    DIR* handle = opendir(dir.c_str());
    if (handle != nullptr) {
        while (struct dirent* entry = readdir(handle)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..") {
                continue;
            }
            const std::string full = dir + "/" + name;
            const int type = pathType(full);
            if (type == 0 && isFormatFile(name)) {
                files.push_back(full);
            } else if (type == 1) {
                recureFormatFiles(full, files, ancestors);
            }
        }
        closedir(handle);
    }
    ancestors.pop_back();
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
    // The format states sizes in bits, the engines want bytes.
    if (text == "0") {
        return 0;
    }
    if (text == "8") {
        return 1;
    }
    if (text == "16") {
        return 2;
    }
    return 4;
}

int ZQSomeIPFormatAnalyzer::convertToUnionTypeFieldSize(const std::string& text)
{
    // Same table as the length fields today; a function of its own so that the two may diverge.
    return convertToLengthFieldSize(text);
}

int ZQSomeIPFormatAnalyzer::convertToAlignment(const std::string& text)
{
    if (text == "16") {
        return ZQ_SOMEIP_PAYLOAD_ALIGNMENT_16BIT;
    }
    if (text == "32") {
        return ZQ_SOMEIP_PAYLOAD_ALIGNMENT_32BIT;
    }
    if (text == "64") {
        return ZQ_SOMEIP_PAYLOAD_ALIGNMENT_64BIT;
    }
    return ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE;
}

int ZQSomeIPFormatAnalyzer::convertToByteOrder(const std::string& text)
{
    return text == "BYTE_ORDER_BIG_ENDIAN" ? ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_BIG_ENDIAN
                                           : ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN;
}

int ZQSomeIPFormatAnalyzer::convertToCharBit(const std::string& text)
{
    return text == "UTF16" ? ZQ_SOMEIP_PAYLOAD_STRING_UTF16 : ZQ_SOMEIP_PAYLOAD_STRING_UTF8;
}

int ZQSomeIPFormatAnalyzer::parseAttribute(Json::Value& attribute, ZQSomeIPExtendAttr& attr)
{
    if (!attribute.isObject()) {
        return -1;
    }
    auto text = [&attribute](const char* key) { return attribute.get(key, "").asString(); };
    const std::string array = text("ArrayLengthFieldSize");
    const std::string vector = text("VectorLengthFieldSize");
    const std::string structure = text("StructLengthFieldSize");
    const std::string string = text("StringLengthFieldSize");
    const std::string unionSize = text("UnionLengthFieldSize");
    const std::string alignment = text("DataAlignment");
    const std::string byteOrder = text("ByteOrderEnum");
    const std::string unionType = text("UnionTypeSelectorFieldSize");
    const std::string encoding = text("StringEncoding");

    attr.array_length_field_size = convertToLengthFieldSize(array);
    attr.vector_length_field_size = convertToLengthFieldSize(vector);
    attr.struct_length_field_size = convertToLengthFieldSize(structure);
    attr.string_length_field_size = convertToLengthFieldSize(string);
    attr.union_length_field_size = convertToLengthFieldSize(unionSize);
    attr.alignment = convertToAlignment(alignment);
    attr.byte_order = convertToByteOrder(byteOrder);
    attr.union_type_field_size = convertToUnionTypeFieldSize(unionType);
    attr.string_utf = convertToCharBit(encoding);
    return 0;
}

int ZQSomeIPFormatAnalyzer::parseGlobalAttribute(Json::Value& owner, ZQSomeIPExtendAttr& attr)
{
    if (!owner.isObject()) {
        return -1;
    }
    const Json::Value global = owner.get("Attribute", Json::Value());
    if (!global.isArray() || global.empty()) {
        return -1;
    }
    Json::Value first = global[0];
    return parseAttribute(first, attr);
}

bool ZQSomeIPFormatAnalyzer::readLookupAttributes(const Json::Value& service, const Json::Value& document,
                                                  ZQSomeIPExtendAttr& attr)
{
    Json::Value serviceAttribute = service.get("Attribute", Json::Value());
    if (parseAttribute(serviceAttribute, attr) == 0) {
        return true;
    }
    // Only read: the global attribute parser takes its owner by reference.
    return parseGlobalAttribute(const_cast<Json::Value&>(document), attr) == 0;
}

ZQSomeIPExtendAttr* ZQSomeIPFormatAnalyzer::getGlobalAttribute()
{
    return &global_attribute;
}

} // namespace ZQSomeIP
