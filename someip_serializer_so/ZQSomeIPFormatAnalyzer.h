#ifndef ZQ_SOMEIP_FORMAT_ANALYZER_H
#define ZQ_SOMEIP_FORMAT_ANALYZER_H

#include <sstream>
#include <string>
#include <vector>

#include <json/json.h>

#include "someip/ZQSomeIPPayloadAttr.h"

namespace ZQSomeIP {

// Reads a number of type T from text with an input string stream, and nothing else: decimal only,
// leading blanks skipped, reading stops at the first character that cannot continue the number,
// out-of-range values saturate, "-1" wraps for unsigned types. The stream's state is deliberately not
// examined. The result starts out as the text's length, which is what text made only of blanks yields
// (the stream leaves the value alone when it finds nothing to read).
template <typename T>
T StringToNum(const std::string& text)
{
    std::istringstream stream(text);
    T number = static_cast<T>(text.length());
    stream >> number;
    return number;
}

// The format store: loads format description files (one file, or every "*.json" under a directory
// tree; loads are cumulative), finds the method format of a (service, method, message type) triple
// and builds its attribute record. Not thread-safe: lookups write absent keys into the stored documents.
class ZQSomeIPFormatAnalyzer {
public:
    ZQSomeIPFormatAnalyzer();
    ~ZQSomeIPFormatAnalyzer();

    // Loading.
    int loadFormatJson(std::string path);
    int pathType(std::string path);
    bool isFormatFile(std::string name);
    int loadFormatJsonFile_Inner(std::string path);
    int loadFormatJsonDir_Inner(std::string path);
    void recureFormatFiles(std::string dir, std::vector<std::string>& files);

    // Lookup. On success `format` holds the styled "ParamsDetails" text and `attr` the attributes of the
    // service (or of the file); on failure neither is touched. The last loaded match wins.
    int getMethodFormatbyIDWithAttr(int serviceID, int methodID, int messageType, std::string& format,
                                    ZQSomeIPExtendAttr& attr);
    int getMethodFormatbyID(int serviceID, int methodID, int messageType, std::string& format);

    // Attribute parsing.
    int convertToLengthFieldSize(const std::string& text);
    int convertToUnionTypeFieldSize(const std::string& text);
    int convertToAlignment(const std::string& text);
    int convertToByteOrder(const std::string& text);
    int convertToCharBit(const std::string& text);
    int parseAttribute(Json::Value& attribute, ZQSomeIPExtendAttr& attr);
    int parseGlobalAttribute(Json::Value& owner, ZQSomeIPExtendAttr& attr);
    ZQSomeIPExtendAttr* getGlobalAttribute();

    // Number of loaded documents.
    size_t formatCount() const { return formats.size(); }

private:
    std::string spare_text;
    std::vector<Json::Value> formats;      // one root per loaded file, in load order
    ZQSomeIPExtendAttr global_attribute;   // the lookup defaults; never changed
};

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_FORMAT_ANALYZER_H
