#ifndef ZQ_SOMEIP_PARSER_API_H
#define ZQ_SOMEIP_PARSER_API_H

#include <memory>
#include <string>
#include <vector>

#include "someip/ZQSomeIPExport.h"

namespace ZQSomeIP {

class ZQSomeIPParser;

// The host's entry point. Load format description files once, then convert payloads one at a time.
// Every operation returns 0 on success and a non-zero code (normally -1) on failure. One instance
// serves one thread at a time; separate instances may serve separate threads.
class ZQ_SOMEIP_API ZQSomeIPParserAPI {
public:
    ZQSomeIPParserAPI();
    ~ZQSomeIPParserAPI();

    ZQSomeIPParserAPI(const ZQSomeIPParserAPI&) = delete;
    ZQSomeIPParserAPI& operator=(const ZQSomeIPParserAPI&) = delete;

    // A format description file, or a directory tree searched for "*.json" files. Loads add up.
    int loadFormatJson(std::string path);
    // Parameter list with values (JSON text) to payload bytes.
    int serializebyMethodID(int serviceID, int methodID, int messageType, std::string& json,
                            std::vector<unsigned char>& payload);
    // Payload bytes to the method format with every "Value" filled in.
    int deserializebyMethodID(int serviceID, int methodID, int messageType, std::vector<unsigned char>& payload,
                              std::string& json);
    // The method format (styled JSON text of the parameter list) of a message.
    int getMethodFormatbyID(int serviceID, int methodID, int messageType, std::string& format);

private:
    std::unique_ptr<ZQSomeIPParser> parser;
};

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_PARSER_API_H
