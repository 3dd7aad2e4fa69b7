// A host program: loads a format tree, decodes one payload both ways (classic and plain JSON) and prints
// the library version. Exit status 0 only when every step gave what the README promises.
#include <cstdio>
#include <string>
#include <vector>

#include "ZQSomeIPParserAPI.h"
#include "ZQSomeIPVersion.h"
#include "compiled/ZQSomeIPFormatSet.h"
#include "someip/zq_someip_log.h"
#ifdef CONSUMER_WITH_CAPTURE
#include "ZQSomeIPCapture.h"
#endif

static int fail(const std::string& what) {
    std::fprintf(stderr, "consumer: %s\n", what.c_str());
    return 1;
}

int main(int argc, char** argv) {
    if (argc != 2) return fail("usage: consumer FORMATS_DIR");
    zq_someip_set_logfunc_callback(nullptr);

    // Navigation.GetRoute response: route 7, two waypoints, 12.5 km.
    std::vector<unsigned char> payload = {0x07, 0x00, 0x00, 0x00, 0x14, 0x00, 0x08, 0x00, 0x64, 0x00, 0x00,
                                          0x00, 0xCE, 0xFF, 0xFF, 0xFF, 0x08, 0x00, 0xEC, 0xFF, 0xFF, 0xFF,
                                          0x2C, 0x01, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00, 0x48, 0x41};

    ZQSomeIP::ZQSomeIPParserAPI api;
    if (api.loadFormatJson(argv[1]) != 0) return fail("cannot load " + std::string(argv[1]));
    std::string classic;
    if (api.deserializebyMethodID(0x1234, 2, 0x80, payload, classic) != 0) return fail("classic decode failed");
    if (classic.find("\"12.500000\"") == std::string::npos) return fail("classic decode gave " + classic);

    ZQSomeIP::ZQSomeIPPlainStatus status;
    auto formats = ZQSomeIP::ZQSomeIPFormatSet::load(argv[1], status);
    if (!formats) return fail(status.toJson());
    std::string plain;
    status = ZQSomeIP::plainDecode(*formats, 0x1234, 2, 0x80, payload.data(), payload.size(), plain);
    const std::string expected = R"({"routeId":7,"waypoints":[{"x":100,"y":-50},{"x":-20,"y":300}],"lengthKm":12.5})";
    if (!status.ok() || plain != expected) return fail("plain decode gave " + status.toJson() + " " + plain);

#ifdef CONSUMER_WITH_CAPTURE
    std::string error;
    if (ZQSomeIP::capture::CaptureReader::open(std::string(argv[1]) + "/no such capture.pcap", {}, error) ||
        error.empty())
        return fail("the capture reader opened a file that does not exist");
#endif

    std::printf("someip_parser_vaq %s (%d.%d.%d): %s\n", SOMEIP_PARSER_VAQ_VERSION_STRING,
                SOMEIP_PARSER_VAQ_VERSION_MAJOR, SOMEIP_PARSER_VAQ_VERSION_MINOR, SOMEIP_PARSER_VAQ_VERSION_PATCH,
                plain.c_str());
    return 0;
}
