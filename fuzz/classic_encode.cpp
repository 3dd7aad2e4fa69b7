// Classic encode: the first byte picks a message of the fixed formats, the rest is the JSON parameter
// list. Both roads must agree; a payload that encodes is decoded again on both.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) return 0;
    fuzz::ClassicPair& classic = fuzz::fixedClassic();
    const fuzz::Message& m = fuzz::message(data[0]);
    fuzz::Bytes payload;
    if (fuzz::classicEncode(classic.api, classic.reference, m, std::string(data + 1, data + size), payload))
        fuzz::classicDecode(classic.api, classic.reference, m, payload);
    return 0;
}
