// Plain encode: the first byte picks a message of the fixed formats, the rest is the plain JSON. Nothing
// may throw; the result must be the reference encoder's (the compiled program stands in for it where it
// can); what encodes must decode, and that document must encode to the same payload. The document
// spells enums as integers: a name alone loses a value inside a named range (it encodes as the range's
// first value), so only the integer is sure to encode back to the same bytes.
#include "compiled/ZQSomeIPPlainProgram.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace ZQSomeIP;
    if (size == 0) return 0;
    const fuzz::Message& m = fuzz::message(data[0]);
    const ZQSomeIPFormatSet& set = fuzz::fixedPlain(m);
    std::vector<uint8_t> payload = {0xDE, 0xAD};
    const std::string_view json(reinterpret_cast<const char*>(data + 1), size - 1);
    ZQSomeIPPlainStatus status = fuzz::plainCall("plainEncode", [&] { return plainEncode(set, m.service, m.method, m.type, json, payload); });
    fuzz::checkStatus("plainEncode", status);
    if (const ZQSomeIPPlainMethod* method = set.find(m.service, m.method, m.type)) {
        std::vector<uint8_t> expected = {0xDE, 0xAD};
        const ZQSomeIPPlainStatus reference = fuzz::plainCall("plainEncodeReference", [&] {
            return plainEncodeReference(*method, json, expected, ZQSomeIPPlainOptions());
        });
        if (reference.toJson() + fuzz::hex(expected) != status.toJson() + fuzz::hex(payload)) {
            fuzz::finding("plainEncode and the reference encoder disagree", status.toJson() + " " + reference.toJson());
        }
    }
    if (!status.ok()) {
        if (payload != std::vector<uint8_t>{0xDE, 0xAD}) fuzz::finding("a failed plainEncode wrote its output", status.toJson());
        return 0;
    }
    ZQSomeIPPlainOptions integers;
    integers.enumStyle = ZQSomeIPEnumStyle::Value;
    std::string decoded;
    status = fuzz::plainCall("plainDecode", [&] {
        return plainDecode(set, m.service, m.method, m.type, payload.data(), payload.size(), decoded, integers);
    });
    fuzz::checkStatus("plainDecode", status);
    if (!status.ok()) fuzz::finding("an encoded payload does not decode", fuzz::hex(payload) + "\n" + status.toJson());
    if (fuzz::plainRoundTrip(set, m, decoded, integers) != payload)
        fuzz::finding("the decoded document encodes to another payload", std::string(json) + "\n" + fuzz::hex(payload));
    return 0;
}
