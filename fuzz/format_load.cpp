// Format loading: the input up to its first NUL byte is a format description file; after the NUL come
// the service (2 bytes, big endian), the method (2 bytes), the message type (1 byte) and a payload.
// The file is loaded by the classic API on both roads and as a plain format set; the message is looked
// up and its payload decoded (and encoded again) by every road that loaded it.
#include <cstring>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace ZQSomeIP;
    const uint8_t* nul = static_cast<const uint8_t*>(std::memchr(data, 0, size));
    const size_t text = nul ? static_cast<size_t>(nul - data) : size;
    const std::string path = fuzz::scratchFile("format.json", data, text);
    uint8_t tail[5] = {0x12, 0x34, 0x00, 0x01, 0x00};  // 0x1234 method 1 request when nothing follows
    const size_t rest = nul ? size - text - 1 : 0;
    std::memcpy(tail, nul ? nul + 1 : tail, std::min<size_t>(rest, 5));
    const fuzz::Message m = {tail[0] << 8 | tail[1], tail[2] << 8 | tail[3], tail[4]};
    const fuzz::Bytes payload(data + size - (rest > 5 ? rest - 5 : 0), data + size);

    ZQSomeIPParserAPI api;
    ZQSomeIPParser reference;
    reference.setFastPathEnabled(false);
    auto load = [&](auto& parser) { return fuzz::classicCall("loadFormatJson", [&] { return parser.loadFormatJson(path); }); };
    const std::string loaded = load(api);
    fuzz::agree("loadFormatJson", loaded, load(reference));
    if (loaded == "rc 0") {
        for (int type : {m.type, 0x00, 0x02, 0x80}) {
            auto lookup = [&](auto& parser) {
                std::string format = "<untouched>";
                return fuzz::classicCall("getMethodFormatbyID", [&] {
                           return parser.getMethodFormatbyID(m.service, m.method, type, format);
                       }) + "\nformat: " + format;
            };
            fuzz::agree("getMethodFormatbyID", lookup(api), lookup(reference));
        }
        const std::string json = fuzz::classicDecode(api, reference, m, payload);
        fuzz::Bytes again;
        if (!json.empty()) fuzz::classicEncode(api, reference, m, json, again);
    }

    ZQSomeIPPlainStatus status;
    const auto set = fuzz::plainCall("ZQSomeIPFormatSet::load", [&] { return ZQSomeIPFormatSet::load(path, status); });
    fuzz::checkStatus("ZQSomeIPFormatSet::load", status);
    if (!set != !status.ok()) fuzz::finding("a format set load whose status disagrees with its result", status.toJson());
    if (set) {
        std::string json;
        status = fuzz::plainCall("plainDecode", [&] {
            return plainDecode(*set, m.service, m.method, m.type, payload.data(), payload.size(), json);
        });
        fuzz::checkStatus("plainDecode", status);
        if (status.ok()) fuzz::plainRoundTrip(*set, m, json, {});
    }
    return 0;
}
