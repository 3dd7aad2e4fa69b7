// Capture reading: the input is a pcap or pcapng file, read to its end twice (every port with the
// default bounds; one selected port with tiny bounds, so that reassembly runs into them), and decoded
// as a service discovery payload. Nothing may throw; every message must be consistent with its header.
#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>
#include <typeinfo>

#include "ZQSomeIPCapture.h"
#include "fuzz_common.h"

namespace {

using fuzz::finding;

void readAll(const std::string& path, const ZQSomeIP::capture::Options& options)
{
    using namespace ZQSomeIP::capture;
    std::string error;
    auto reader = CaptureReader::open(path, options, error);
    if (!reader) {
        if (error.empty()) finding("open failed without saying why");
        return;
    }
    uint64_t records = 0;
    for (Message m; reader->next(m);) {
        if (++records > 1000000) finding("more than a million records out of one small file");
        if (m.ok()) {
            if (!m.has_header || m.payload_size + 8 != m.header.length) finding("a message whose length field does not match its payload");
            if (m.payload_size > 0 && m.payload == nullptr) finding("a message without its payload bytes");
            if (m.payload_size > 0) (void)(m.payload[0] + m.payload[m.payload_size - 1]);  // readable, for ASan
        } else if (m.error_text.empty() || m.error >= ErrorCode::Count) {
            finding(std::string("an error record without text or with an unknown code: ") + errorName(m.error));
        }
    }
    const Status& status = reader->status();
    if (status.failed && status.error.empty()) finding("a failed read without saying why");
    // A malformed service discovery message is yielded once and counted both as a message and as an error.
    const uint64_t counted = status.stats.messages + status.stats.errors -
                             status.stats.errors_by_code[static_cast<size_t>(ErrorCode::SdMalformed)];
    if (counted != records) finding("the statistics do not count the records yielded");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace ZQSomeIP::capture;
    try {
        const std::string path = fuzz::scratchFile("capture", data, size);
        readAll(path, Options());
        Options tight;
        tight.ports = {30490};
        Limits& l = tight.limits;
        l.ip_datagrams = l.ip_pieces = l.tcp_streams = l.tp_messages = l.tp_pieces = 4;
        l.ip_bytes = l.tp_bytes = l.max_message = 4096;
        l.tcp_window = 2048, l.tcp_bytes = 8192;
        l.ip_timeout_ns = l.tp_timeout_ns = 1000000000ull;
        readAll(path, tight);
        SdMessage sd;
        decodeServiceDiscovery(data, size, sd);
        if (!sd.ok && sd.error.empty()) finding("a service discovery error without text");
    } catch (const std::exception& e) {
        finding(std::string("the capture reader threw ") + typeid(e).name() + ": " + e.what());
    } catch (...) {
        finding("the capture reader threw something that is not a std::exception");
    }
    return 0;
}
