// Classic decode: the first byte picks a message of the fixed formats, the rest is its payload. The
// host's road (the facade, fast paths on) and the reference converters must agree on every input.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) return 0;
    fuzz::ClassicPair& classic = fuzz::fixedClassic();
    const fuzz::Message& m = fuzz::message(data[0]);
    const std::string json = fuzz::classicDecode(classic.api, classic.reference, m, fuzz::Bytes(data + 1, data + size));
    // A decoded document is a valid encode input as far as exceptions go (round trips have known limits).
    fuzz::Bytes payload;
    if (!json.empty()) fuzz::classicEncode(classic.api, classic.reference, m, json, payload);
    return 0;
}
