#ifndef ZQ_SOMEIP_FORMAT_ANALYZER_H
#define ZQ_SOMEIP_FORMAT_ANALYZER_H

#include <deque>
#include <string>
#include <vector>

#include <json/json.h>

#include "format/ZQSomeIPFormatIndex.h"
#include "format/ZQSomeIPNumberText.h"
#include "someip/ZQSomeIPExport.h"
#include "someip/ZQSomeIPPayloadAttr.h"

namespace ZQSomeIP {

// The format store: loads format description files (one file, or every "*.json" under a directory
// tree; loads are cumulative), finds the method format of a (service, method, message type) triple
// and builds its attribute record. Not thread-safe: lookups write absent keys into the stored documents.
class ZQ_SOMEIP_API ZQSomeIPFormatAnalyzer {
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

    // The same lookup for the fast paths: when the winning match is an indexed one, `method` points at
    // it and `format` is not written (the text is method->styled()); otherwise `method` is null and
    // `format` and `attr` are exactly what getMethodFormatbyIDWithAttr leaves.
    int findMethodFormat(int serviceID, int methodID, int messageType, std::string& format,
                         ZQSomeIPExtendAttr& attr, const ZQSomeIPIndexedMethod*& method);

    // The index is on by default; off, every lookup scans every document (the reference behaviour).
    void setIndexEnabled(bool enabled) { index_enabled = enabled; }

    // Attribute parsing: the rules of format/ZQSomeIPFormatRules.h.
    int convertToLengthFieldSize(const std::string& text);
    int convertToUnionTypeFieldSize(const std::string& text);
    int convertToAlignment(const std::string& text);
    int convertToByteOrder(const std::string& text);
    int convertToCharBit(const std::string& text);
    int parseAttribute(Json::Value& attribute, ZQSomeIPExtendAttr& attr);
    int parseGlobalAttribute(Json::Value& owner, ZQSomeIPExtendAttr& attr);
    ZQSomeIPExtendAttr* getGlobalAttribute();
    // The attributes a lookup match in `service` of `document` applies: the service's "Attribute"
    // object, else the first object of the file's "Attribute" array; false (and `attr` untouched) if
    // neither can be read. Throws where the lookup throws.
    bool readLookupAttributes(const Json::Value& service, const Json::Value& document, ZQSomeIPExtendAttr& attr);

    // Number of loaded documents.
    size_t formatCount() const { return formats.size(); }

private:
    // The scan of one document: its first service with the ID whose member arrays hold the message
    // writes `format` and `attr` and ends the search in this document.
    bool scanDocument(Json::Value& document, int serviceID, int methodID, const ZQSomeIPSearchPlan* plan,
                      std::string& format, ZQSomeIPExtendAttr& attr);

    std::string spare_text;
    std::deque<Json::Value> formats;       // one root per loaded file, in load order; never moved
    ZQSomeIPFormatIndex index;
    bool index_enabled = true;
    ZQSomeIPExtendAttr global_attribute;   // the lookup defaults; never changed
};

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_FORMAT_ANALYZER_H
