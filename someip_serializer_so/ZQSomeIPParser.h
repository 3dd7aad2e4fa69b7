#ifndef ZQ_SOMEIP_PARSER_H
#define ZQ_SOMEIP_PARSER_H

#include <memory>
#include <string>
#include <vector>

#include "ZQSomeIPFormatAnalyzer.h"
#include "Inner/Inner_someipDeserializer.h"
#include "Inner/Inner_someipSerializer.h"
#include "someip/ZQSomeIPPayloadAttr.h"

namespace ZQSomeIP {

// Joins the format store to the two converters. The converters are made on first use and re-armed
// with the attributes of every request's method format. One parser serves one thread at a time.
class ZQ_SOMEIP_API ZQSomeIPParser {
public:
    ZQSomeIPParser();
    ~ZQSomeIPParser();

    ZQSomeIPParser(const ZQSomeIPParser&) = delete;
    ZQSomeIPParser& operator=(const ZQSomeIPParser&) = delete;

    int loadFormatJson(std::string path);
    int getMethodFormatbyIDWithAttr(int serviceID, int methodID, int messageType, std::string& format,
                                    ZQSomeIPExtendAttr& attr);
    int getMethodFormatbyID(int serviceID, int methodID, int messageType, std::string& format);
    Inner_someipSerializer* getSerializer(ZQSomeIPExtendAttr& attr);
    Inner_someipDeserializer* getDeserializer(ZQSomeIPExtendAttr& attr);
    int serializebyMethodID(int serviceID, int methodID, int messageType, std::string& json,
                            std::vector<unsigned char>& payload);
    int deserializebyMethodID(int serviceID, int methodID, int messageType, std::vector<unsigned char>& payload,
                              std::string& json);

    // The compiled fast paths (format index, direct decode and encode) are on by default and give the
    // same results as the reference converters. Turning them off runs only the reference path, which
    // is what the agreement tests and the benchmarks compare against.
    void setFastPathEnabled(bool enabled);
    bool fastPathEnabled() const { return fast_path; }

private:
    std::unique_ptr<ZQSomeIPFormatAnalyzer> analyzer;
    std::unique_ptr<Inner_someipSerializer> serializer;
    std::unique_ptr<Inner_someipDeserializer> deserializer;
    bool fast_path = true;
};

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_PARSER_H
