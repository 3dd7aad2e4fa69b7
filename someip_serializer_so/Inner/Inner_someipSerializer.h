#ifndef INNER_SOMEIP_SERIALIZER_H
#define INNER_SOMEIP_SERIALIZER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <json/json.h>

#include "someip/ZQSomeIPPayloadAttr.h"
#include "someip/ZQSomeIPPayloadSerializerGeneral.h"

namespace ZQSomeIP {

// JSON parameter list (types and values) to SOME/IP payload bytes, under one attribute record.
// The JSON is self-describing; the method format acts only through the attributes.
class ZQ_SOMEIP_API Inner_someipSerializer {
public:
    explicit Inner_someipSerializer(ZQSomeIPExtendAttr& attr);
    ~Inner_someipSerializer();

    Inner_someipSerializer(const Inner_someipSerializer&) = delete;
    Inner_someipSerializer& operator=(const Inner_someipSerializer&) = delete;

    void setExtendAttr(ZQSomeIPExtendAttr& attr);

    // 0 on success, -1 on failure. A JSON parse failure leaves `out` untouched; a failed walk hands out
    // the bytes written before the failing element. `format` is not read.
    int serialize(std::vector<uint8_t>& out, std::string& jsonStr, std::string& format);

    unsigned int serialize_main(Json::Value& root, unsigned int& nesting);
    unsigned int serialize_struct(ZQSomeIPPayloadSerializerGeneral* engine, Json::Value& subParams,
                                  unsigned int& nesting);
    unsigned int serialize_array(ZQSomeIPPayloadSerializerGeneral* engine, Json::Value& subParams,
                                 unsigned int& nesting, unsigned int& expectedCount);
    unsigned int serialize_vector(ZQSomeIPPayloadSerializerGeneral* engine, Json::Value& subParams,
                                  unsigned int& nesting, unsigned int& elementCount);
    unsigned int serialize_basic(ZQSomeIPPayloadSerializerGeneral* engine, Json::Value& param,
                                 unsigned int& nesting);

private:
    // The element dispatch shared by the four walkers; `walker` names the caller in its messages.
    unsigned int serialize_element(ZQSomeIPPayloadSerializerGeneral* writer, Json::Value& element,
                                   unsigned int& nesting, const char* walker);
    // Dispatches every element of `list` in iteration order and stops at the first failure;
    // `elementCount`, if given, counts every element attempted.
    unsigned int serialize_elements(ZQSomeIPPayloadSerializerGeneral* writer, Json::Value& list,
                                    unsigned int& nesting, const char* walker, unsigned int* elementCount);

    std::unique_ptr<ZQSomeIPPayloadSerializerGeneral> engine;
    ZQSomeIPExtendAttr extend_attr;
};

} // namespace ZQSomeIP

#endif // INNER_SOMEIP_SERIALIZER_H
