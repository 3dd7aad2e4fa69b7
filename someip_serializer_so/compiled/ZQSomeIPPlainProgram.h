// The plain codec's fast paths. Owns the compiler that turns a method format into a flat program (ops
// with their JSON keys and punctuation, widths, byte order and length field sizes worked out once), the
// loops that run a program straight over the payload bytes (decode) or over the JSON text (encode,
// ZQSomeIPPlainProgramEncode.cpp), and the per-method cache the format set attaches. The reference
// decoder and encoder in ZQSomeIPPlainCodec.cpp stay the authority: a program is built only for formats
// whose every rule it handles exactly as the reference does, and an input on which it meets anything
// unusual (an error, bytes to skip, text it is unsure of) goes back to the reference whole, so results,
// statuses and messages are always the reference's own. Not an installed header.
#ifndef ZQ_SOMEIP_PLAIN_PROGRAM_H
#define ZQ_SOMEIP_PLAIN_PROGRAM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "ZQSomeIPPlainCodec.h"

namespace ZQSomeIP {

class ZQSomeIPPlainProgram;

// The program of one method the format set owns, compiled on the first decode or encode. Copies of a method do
// not carry it (ZQSomeIPPlainProgramSlot), and only the method at `owner` uses it all the same.
struct ZQSomeIPPlainProgramCache {
    const ZQSomeIPPlainMethod* owner = nullptr;
    std::once_flag once;
    std::unique_ptr<const ZQSomeIPPlainProgram> program;  // null: the format is left to the reference
    ~ZQSomeIPPlainProgramCache();
};

// Gives a method of the format set (at its final address) an empty cache.
void attachPlainProgram(ZQSomeIPPlainMethod& method);

// Decodes with the method's program: true when the program took the payload (then `json` and `status`
// hold the result, exactly as the reference would give it), false when the reference has to decode it
// (nothing written). Pretty output is always left to the reference.
ZQ_SOMEIP_API bool plainProgramDecode(const ZQSomeIPPlainMethod& method, const uint8_t* payload, size_t size,
                                      std::string& json, const ZQSomeIPPlainOptions& options,
                                      ZQSomeIPPlainStatus& status);

// The reference decoder alone (ZQSomeIPPlainCodec.cpp), for the benchmark and the agreement test.
ZQ_SOMEIP_API ZQSomeIPPlainStatus plainDecodeReference(const ZQSomeIPPlainMethod& method, const uint8_t* payload,
                                                       size_t size, std::string& json,
                                                       const ZQSomeIPPlainOptions& options);

// Encodes with the method's program: true when the program took the text (then `payload` and `status`
// hold the result, exactly as the reference would give it), false when the reference has to encode it
// (nothing written). Options only matter to parameters the program leaves to the reference.
ZQ_SOMEIP_API bool plainProgramEncode(const ZQSomeIPPlainMethod& method, std::string_view json,
                                      std::vector<uint8_t>& payload, ZQSomeIPPlainStatus& status);

// The reference encoder alone (ZQSomeIPPlainCodec.cpp), for the benchmark and the agreement test.
ZQ_SOMEIP_API ZQSomeIPPlainStatus plainEncodeReference(const ZQSomeIPPlainMethod& method, std::string_view json,
                                                       std::vector<uint8_t>& payload,
                                                       const ZQSomeIPPlainOptions& options);

// Writes a basic value of a parameter with enumerators, bit fields or a scale, or a non-finite float,
// as the reference decoder writes it (defined in ZQSomeIPPlainCodec.cpp); `bits` holds the value's
// bytes in host order.
void plainBasicText(std::string& out, const ZQSomeIPPlainParam& p, const ZQSomeIPPlainOptions& options,
                    uint64_t bits);

// The largest length a length field of `fieldSize` bytes (1, 2 or 4) holds: a longer string, struct or
// list fails to encode (defined in ZQSomeIPPlainCodec.cpp).
uint64_t plainLengthCapacity(uint32_t fieldSize);

// Rules both decoders apply to strings (defined in ZQSomeIPPlainCodec.cpp): whether a string is read
// as a byte block by the codec's own rules rather than by the engine's, and what valid text is.
bool plainOwnStringRules(const ZQSomeIPPlainParam& p, const ZQSomeIPExtendAttr& a);
bool plainValidUtf8(std::string_view s);
size_t plainUtf16Units(std::string_view s);  // UTF-16 code units valid UTF-8 text becomes

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_PLAIN_PROGRAM_H
