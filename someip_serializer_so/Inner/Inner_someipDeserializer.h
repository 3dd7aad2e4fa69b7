#ifndef INNER_SOMEIP_DESERIALIZER_H
#define INNER_SOMEIP_DESERIALIZER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <json/json.h>

#include "someip/ZQSomeIPPayloadAttr.h"
#include "someip/ZQSomeIPPayloadDeserializerGeneral.h"

namespace ZQSomeIP {

// SOME/IP payload bytes to JSON: walks the method format over the payload and fills a "Value" into
// every parameter, expanding arrays and vectors into one element per item read.
class ZQ_SOMEIP_API Inner_someipDeserializer {
public:
    explicit Inner_someipDeserializer(ZQSomeIPExtendAttr& attr);
    ~Inner_someipDeserializer();

    Inner_someipDeserializer(const Inner_someipDeserializer&) = delete;
    Inner_someipDeserializer& operator=(const Inner_someipDeserializer&) = delete;

    void setExtendAttr(ZQSomeIPExtendAttr& attr);

    // 0 on success, -1 on failure. An unparsable `format` leaves `json` untouched; otherwise `json`
    // receives the (possibly partially) filled document.
    int deserialize(std::vector<unsigned char>& payload, std::string& json, std::string& format);

    std::string NumToString(const int& n);

    uint32_t deserialize_main(Json::Value& params, uint32_t& remaining);
    uint32_t deserialize_struct(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& params, uint32_t& remaining);
    uint32_t deserialize_array(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& arr, uint32_t& remaining,
                               uint32_t& count);
    uint32_t deserialize_vector(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& vec, uint32_t& remaining,
                                uint32_t& count);
    uint32_t deserialize_basic(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& param, uint32_t& remaining);

private:
    // The four container walkers share one element step; which one runs decides the names in the
    // messages and where an array's description is found.
    enum class Walker { Main, Struct, Array, Vector };
    static const char* walkerName(Walker walker);

    uint32_t deserialize_element(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& p, uint32_t& remaining,
                                 Walker walker);
    // Members of the top level or of a struct, in iteration order.
    uint32_t deserialize_members(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& params, uint32_t& remaining,
                                 Walker walker);
    // Takes the vector's block from `r` and decodes it with an engine of its own.
    uint32_t deserialize_vector_content(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& p, uint32_t& remaining,
                                        Walker walker);
    // Rebuilds container["SubParams"] as one filled, numbered copy of its first entry per element read,
    // until `done()` says stop (checked after each element).
    template <typename Done>
    uint32_t expandElements(ZQSomeIPPayloadDeserializerGeneral* r, Json::Value& container, uint32_t& remaining,
                            Walker walker, int& read, Done done);

    std::unique_ptr<ZQSomeIPPayloadDeserializerGeneral> engine;
    ZQSomeIPExtendAttr extend_attr;
};

} // namespace ZQSomeIP

#endif // INNER_SOMEIP_DESERIALIZER_H
