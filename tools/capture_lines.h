// One JSON line per record of the capture reader: what `someip-json capture` writes, and what the Python
// module's read_capture yields once parsed. Both go through CaptureLineWriter, so the two cannot drift
// apart.
//
//   {"frame":N[,"file":...],"time":"...Z","src":...,"dst":...,"transport":"udp"|"tcp",
//    [header members][,"tp_segments":N], then one of
//    "payload":<decoded payload> | "sd":{...} | "error":{...}[,"raw":"<hex payload>"]}
//
// How a payload is decoded is up to a PayloadDecoder: the plain form over a format set is here; the tool
// adds its classic form.
#ifndef SOMEIP_CAPTURE_LINES_H
#define SOMEIP_CAPTURE_LINES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ZQSomeIPCapture.h"
#include "compiled/ZQSomeIPFormatSet.h"

namespace someip_json {

// A payload that did not decode.
struct PayloadFailure {
    std::string json;      // the error object: {"code":"...","offset" or "path":...,"message":"..."}
    std::string code;      // its code, for tallies
    bool unknown = false;  // no format is loaded for the message
};

class PayloadDecoder {
public:
    virtual ~PayloadDecoder() = default;
    // On success `json` holds the payload as JSON on one line (replaced); on failure `failure` says why.
    virtual bool decode(int service, int method, int type, const uint8_t* payload, size_t size, std::string& json,
                        PayloadFailure& failure) = 0;
};

// The plain form (ZQSomeIPFormatSet, compact). The set must outlive the decoder. Safe to use from one
// thread at a time; separate decoders over one set may run on separate threads.
class PlainPayloadDecoder : public PayloadDecoder {
public:
    explicit PlainPayloadDecoder(const ZQSomeIP::ZQSomeIPFormatSet& formats) : formats_(formats) {}
    bool decode(int service, int method, int type, const uint8_t* payload, size_t size, std::string& json,
                PayloadFailure& failure) override;

private:
    const ZQSomeIP::ZQSomeIPFormatSet& formats_;
};

// What one line reported, for a caller's counts.
struct LineOutcome {
    bool decoded = false;          // a decoded payload, or a service discovery message
    std::string_view failure;      // otherwise the code: the capture error's name (frame-cut, ...) or the
                                   // payload failure's code; valid until the next append()
    bool unknown_message = false;  // the payload failed because no format is loaded for it
};

class CaptureLineWriter {
public:
    // The decoder must outlive the writer.
    explicit CaptureLineWriter(PayloadDecoder& decoder) : decoder_(decoder) {}

    // Lines carry a "file" member with this name; empty (the default): no such member.
    void setFile(std::string file) { file_ = std::move(file); }

    // Appends the line for `m` to `out`, without a line end.
    LineOutcome append(const ZQSomeIP::capture::Message& m, std::string& out);

private:
    void appendTime(std::string& out, const ZQSomeIP::capture::Message& m);

    PayloadDecoder& decoder_;
    std::string file_;
    std::string json_;
    PayloadFailure failure_;
    int64_t cached_second_ = 0;
    std::string time_text_;
};

} // namespace someip_json

#endif // SOMEIP_CAPTURE_LINES_H
