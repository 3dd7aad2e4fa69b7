// Plain decode: the first byte picks a message of the fixed formats (its top bit asks for pretty
// output), the rest is the payload. Nothing may throw; the result must be the reference decoder's
// (the compiled program stands in for it where it can); what decodes must encode and decode again to
// the same text.
#include "compiled/ZQSomeIPPlainProgram.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace ZQSomeIP;
    if (size == 0) return 0;
    const fuzz::Message& m = fuzz::message(data[0] & 0x7F);
    const ZQSomeIPFormatSet& set = fuzz::fixedPlain(m);
    const ZQSomeIPPlainOptions options{(data[0] & 0x80) != 0};
    std::string json = "<untouched>";
    const ZQSomeIPPlainStatus status = fuzz::plainCall("plainDecode", [&] {
        return plainDecode(set, m.service, m.method, m.type, data + 1, size - 1, json, options);
    });
    fuzz::checkStatus("plainDecode", status);
    if (const ZQSomeIPPlainMethod* method = set.find(m.service, m.method, m.type)) {
        std::string expected = "<untouched>";
        const ZQSomeIPPlainStatus reference = fuzz::plainCall("plainDecodeReference", [&] {
            return plainDecodeReference(*method, data + 1, size - 1, expected, options);
        });
        if (reference.toJson() + reference.warningsJson() + expected != status.toJson() + status.warningsJson() + json) {
            fuzz::finding("plainDecode and the reference decoder disagree", status.toJson() + " " + reference.toJson());
        }
    }
    if (!status.ok() && json != "<untouched>") fuzz::finding("a failed plainDecode wrote its output", status.toJson());
    if (status.ok()) fuzz::plainRoundTrip(set, m, json, options);
    return 0;
}
