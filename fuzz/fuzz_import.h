// What the import targets share: the input imported as one or two descriptions (split at the first
// NUL byte), whatever it holds; an error for what is not a description of the dialect, else documents
// and a report, never a crash or an exception. What is written loads as a format set, and every message
// format in it can be used by the plain codec.
#pragma once

#include <cstring>
#include <sstream>

#include "ZQSomeIPImport.h"
#include "fuzz_support.h"

namespace fuzz {

namespace importcheck {

inline int messageType(const std::string& direction)
{
    return direction == "request" ? 0x00 : direction == "response" ? 0x80 : direction == "event" ? 0x02 : 0x81;
}

// Each entry's formats, tried on an empty payload: any answer but "unsupported format" will do.
inline void checkUsable(const ZQSomeIP::ZQSomeIPFormatSet& set, const Json::Value& document, const std::string& text)
{
    for (const Json::Value& service : document["Services"]) {
        const int id = std::stoi(service["ServiceID"].asString());
        for (const char* list : {"Methods", "Events", "Fields"}) {
            for (const Json::Value& entry : service[list]) {
                const int method = std::stoi(entry.get("MethodID", entry.get("EventID", "0")).asString());
                for (const Json::Value& params : entry["Params"]) {
                    std::string json;
                    const ZQSomeIP::ZQSomeIPPlainStatus status = fuzz::plainCall("plainDecode", [&] {
                        return ZQSomeIP::plainDecode(set, id, method, messageType(params["MethodType"].asString()), nullptr, 0, json);
                    });
                    fuzz::checkStatus("plainDecode", status);
                    if (status.code == ZQSomeIP::ZQSomeIPPlainError::UnsupportedFormat) {
                        fuzz::finding("an imported format the plain codec cannot use", status.toJson() + "\n" + text);
                    }
                }
            }
        }
    }
}

}  // namespace importcheck

// The input is one description, or two split at the first NUL byte (references cross files).
inline int importOne(const uint8_t* data, size_t size, ZQSomeIP::ZQSomeIPImportDialect dialect)
{
    using namespace ZQSomeIP;
    const char* text = reinterpret_cast<const char*>(data);
    const void* nul = std::memchr(data, 0, size);
    const size_t first = nul ? static_cast<size_t>(static_cast<const uint8_t*>(nul) - data) : size;
    std::vector<ZQSomeIPImportSource> sources{{"a.xml", std::string(text, first)}};
    if (nul) {
        sources.push_back({"b.xml", std::string(text + first + 1, size - first - 1)});
    }
    ZQSomeIPImportResult r;
    ZQSomeIPImportOptions options;
    options.dialect = dialect;
    try {
        r = importDescriptions(std::move(sources), options);
    } catch (const std::exception& e) {
        fuzz::finding("importDescriptions threw", e.what());
    }
    if (!r.ok) {
        if (r.error.empty()) fuzz::finding("an import failed without saying why");
        return 0;
    }
    ZQSomeIPPlainStatus status;
    const std::string path = fuzz::scratchFile("imported.json", reinterpret_cast<const uint8_t*>(r.formatText.data()), r.formatText.size());
    const auto set = fuzz::plainCall("ZQSomeIPFormatSet::load", [&] { return ZQSomeIPFormatSet::load(path, status); });
    if (!set) fuzz::finding("an imported document does not load", status.toJson() + "\n" + r.formatText);
    Json::Value document;
    Json::CharReaderBuilder reader;
    std::string errors;
    std::istringstream in(r.formatText);
    if (!Json::parseFromStream(reader, in, &document, &errors)) fuzz::finding("an imported document is not JSON", errors);
    importcheck::checkUsable(*set, document, r.formatText);
    return 0;
}

}  // namespace fuzz
