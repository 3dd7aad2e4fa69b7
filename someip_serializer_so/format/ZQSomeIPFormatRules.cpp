#include "ZQSomeIPFormatRules.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "someip/zq_someip_log.h"

namespace ZQSomeIP {

namespace {

const int kMessageTypeRequest = 0x00;
const int kMessageTypeRequestNoReturn = 0x01;
const int kMessageTypeNotification = 0x02;
const int kMessageTypeResponse = 0x80;

using Ancestors = std::vector<std::pair<unsigned long, unsigned long>>;

// Walks `dir`; `ancestors` identifies (device, inode) the directories above it, so that a link back to
// one of them is not followed round and round.
void recureFormatFiles(const std::string& dir, std::vector<std::string>& files, Ancestors& ancestors)
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
            const int type = FormatRules::pathType(full);
            if (type == 0 && FormatRules::isFormatFile(name)) {
                files.push_back(full);
            } else if (type == 1) {
                recureFormatFiles(full, files, ancestors);
            }
        }
        closedir(handle);
    }
    ancestors.pop_back();
}

} // namespace

const ZQSomeIPSearchPlan kSearchPlans[4] = {
    {ZQSomeIPSearchKind::Request, {"Methods", "Fields"}, "MethodID", "request"},
    {ZQSomeIPSearchKind::RequestNoReturn, {"Methods", nullptr}, "MethodID", "request"},
    {ZQSomeIPSearchKind::Notification, {"Events", "Fields"}, "EventID", "event"},
    {ZQSomeIPSearchKind::Response, {"Methods", "Fields"}, "MethodID", "response"},
};

bool searchPlanFor(int messageType, ZQSomeIPSearchPlan& plan)
{
    if (messageType == kMessageTypeRequest) {
        plan = kSearchPlans[0];
    } else if (messageType == kMessageTypeRequestNoReturn) {
        plan = kSearchPlans[1];
    } else if (messageType == kMessageTypeNotification) {
        plan = kSearchPlans[2];
    } else if (static_cast<unsigned>(messageType - kMessageTypeResponse) <= 1) {  // response and error
        plan = kSearchPlans[3];
    } else {
        return false;
    }
    return true;
}

namespace FormatRules {

int pathType(const std::string& path)
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

bool isFormatFile(const std::string& name)
{
    static const std::string suffix = ".json";
    if (name.length() <= 4) {
        return false;
    }
    const size_t found = name.rfind(suffix);
    return found != std::string::npos && found == name.length() - suffix.length();
}

void recureFormatFiles(const std::string& dir, std::vector<std::string>& files)
{
    Ancestors ancestors;
    ZQSomeIP::recureFormatFiles(dir, files, ancestors);
}

const AttributeKey kAttributeKeys[9] = {
    {"ArrayLengthFieldSize", &ZQSomeIPExtendAttr::array_length_field_size, lengthFieldSize},
    {"VectorLengthFieldSize", &ZQSomeIPExtendAttr::vector_length_field_size, lengthFieldSize},
    {"StructLengthFieldSize", &ZQSomeIPExtendAttr::struct_length_field_size, lengthFieldSize},
    {"StringLengthFieldSize", &ZQSomeIPExtendAttr::string_length_field_size, lengthFieldSize},
    {"UnionLengthFieldSize", &ZQSomeIPExtendAttr::union_length_field_size, lengthFieldSize},
    {"DataAlignment", &ZQSomeIPExtendAttr::alignment, alignment},
    {"ByteOrderEnum", &ZQSomeIPExtendAttr::byte_order, byteOrder},
    {"UnionTypeSelectorFieldSize", &ZQSomeIPExtendAttr::union_type_field_size, unionTypeFieldSize},
    {"StringEncoding", &ZQSomeIPExtendAttr::string_utf, charBit},
};

int lengthFieldSize(const std::string& text)
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

int unionTypeFieldSize(const std::string& text)
{
    // Same table as the length fields today; a function of its own so that the two may diverge.
    return lengthFieldSize(text);
}

int alignment(const std::string& text)
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

int byteOrder(const std::string& text)
{
    return text == "BYTE_ORDER_BIG_ENDIAN" ? ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_BIG_ENDIAN
                                           : ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN;
}

int charBit(const std::string& text)
{
    return text == "UTF16" ? ZQ_SOMEIP_PAYLOAD_STRING_UTF16 : ZQ_SOMEIP_PAYLOAD_STRING_UTF8;
}

int parseAttribute(const Json::Value& attribute, ZQSomeIPExtendAttr& attr)
{
    if (!attribute.isObject()) {
        return -1;
    }
    // Every text is read before anything is written: a value that cannot be read leaves `attr` whole.
    std::string texts[9];
    for (size_t k = 0; k < 9; ++k) {
        texts[k] = attribute.get(kAttributeKeys[k].key, "").asString();
    }
    for (size_t k = 0; k < 9; ++k) {
        attr.*kAttributeKeys[k].field = static_cast<uint32_t>(kAttributeKeys[k].value(texts[k]));
    }
    return 0;
}

int parseGlobalAttribute(const Json::Value& owner, ZQSomeIPExtendAttr& attr)
{
    if (!owner.isObject()) {
        return -1;
    }
    const Json::Value global = owner.get("Attribute", Json::Value());
    if (!global.isArray() || global.empty()) {
        return -1;
    }
    return parseAttribute(global[0], attr);
}

bool readLookupAttributes(const Json::Value& service, const Json::Value& document, ZQSomeIPExtendAttr& attr)
{
    if (parseAttribute(service.get("Attribute", Json::Value()), attr) == 0) {
        return true;
    }
    return parseGlobalAttribute(document, attr) == 0;
}

} // namespace FormatRules

} // namespace ZQSomeIP
