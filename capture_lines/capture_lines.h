// The capture lines: one JSON line per record of the capture reader. What `someip-json capture` writes,
// and what the Python module's read_capture yields once parsed; both go through CaptureLineWriter, so the
// two cannot drift apart. Data flows one way: capture record -> format lookup -> codec -> text.
//
//   {"frame":N[,"file":...],"time":"...Z","src":...,"dst":...,"transport":"udp"|"tcp",
//    [header members][,"tp_segments":N], then one of
//    "payload":<decoded payload>[,"warnings":[...]] | "sd":{...} | "error":{...}[,"raw":"<hex payload>"],
//    then [,"service_name":...][,"method_name":...]}
//
// An error reply (message type 0x81) with an empty payload is not a failure: its line has the "error"
// format's value as payload where one takes an empty payload, else no payload member.
// Warnings list the bytes a decode skipped. The names are those of the format found for the message
// (with its interface version), whether its payload decoded or not; they come last so that lines of
// formats without names and of formats with them differ only in their tails.
//
// How a payload is decoded is up to a PayloadDecoder: the plain form over a format set is here; the tool
// adds its classic form.
#ifndef SOMEIP_CAPTURE_LINES_CAPTURE_LINES_H
#define SOMEIP_CAPTURE_LINES_CAPTURE_LINES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ZQSomeIPCapture.h"
#include "compiled/ZQSomeIPFormatSet.h"

namespace capture_lines {

// A payload that did not decode.
struct PayloadFailure {
    std::string json;      // the error object: {"code":"...","offset" or "path":...,"message":"..."}
    std::string code;      // its code, for tallies
    bool unknown = false;  // no format is loaded for the message
};

// A payload that decoded, and what its format says about the message.
struct DecodedPayload {
    std::string json;      // the payload as JSON on one line
    std::string warnings;  // a JSON array of the bytes the decode skipped; empty when it skipped none
};

class PayloadDecoder {
public:
    virtual ~PayloadDecoder() = default;
    // On success `decoded` holds the payload (replaced); on failure `failure` says why. `header` names
    // the message: service, method, message type and interface version.
    virtual bool decode(const ZQSomeIP::capture::Header& header, const uint8_t* payload, size_t size,
                        DecodedPayload& decoded, PayloadFailure& failure) = 0;
    // The names the format of the last message decoded gives (found even when its payload failed);
    // empty when it gives none.
    virtual std::string_view serviceName() const { return {}; }
    virtual std::string_view methodName() const { return {}; }
};

// The plain form (ZQSomeIPFormatSet, compact), the format found with the message's interface version.
// The set must outlive the decoder. Safe to use from one thread at a time; separate decoders over one
// set may run on separate threads.
class PlainPayloadDecoder : public PayloadDecoder {
public:
    // `options.pretty` is ignored: a line holds its payload on one line.
    explicit PlainPayloadDecoder(const ZQSomeIP::ZQSomeIPFormatSet& formats,
                                 const ZQSomeIP::ZQSomeIPPlainOptions& options = {});
    bool decode(const ZQSomeIP::capture::Header& header, const uint8_t* payload, size_t size,
                DecodedPayload& decoded, PayloadFailure& failure) override;
    std::string_view serviceName() const override;
    std::string_view methodName() const override;
    // The format of the last message decoded (found even when its payload failed); null when unknown.
    const ZQSomeIP::ZQSomeIPPlainMethod* method() const { return method_; }

private:
    const ZQSomeIP::ZQSomeIPFormatSet& formats_;
    ZQSomeIP::ZQSomeIPPlainOptions options_;
    const ZQSomeIP::ZQSomeIPPlainMethod* method_ = nullptr;  // of the last message; null when unknown
};

// What one line reported, for a caller's counts.
struct LineOutcome {
    bool decoded = false;          // a decoded payload, or a service discovery message
    std::string_view failure;      // otherwise the code: the capture error's name (frame-cut, ...) or the
                                   // payload failure's code; valid until the next append() or appendPayload()
    bool unknown_message = false;  // the payload failed because no format is loaded for it
    bool warned = false;           // the payload decoded with bytes skipped
};

class CaptureLineWriter {
public:
    // The decoder must outlive the writer.
    explicit CaptureLineWriter(PayloadDecoder& decoder) : decoder_(decoder) {}

    // Lines carry a "file" member with this name; empty (the default): no such member.
    void setFile(std::string file) { file_ = std::move(file); }

    // Appends the line for `m` to `out`, without a line end.
    LineOutcome append(const ZQSomeIP::capture::Message& m, std::string& out);

    // append() in two steps, so that the payload can be decoded elsewhere (by another writer, on another
    // thread) than where the capture record is read: appendCapture writes the line up to its payload and
    // returns true when the payload is still to be decoded; appendPayload, given the message's header and
    // payload, then ends the line. When appendCapture returns false the line is whole and `outcome` says
    // what it reported.
    bool appendCapture(const ZQSomeIP::capture::Message& m, std::string& out, LineOutcome& outcome);
    LineOutcome appendPayload(const ZQSomeIP::capture::Header& header, const uint8_t* payload, size_t size,
                              std::string& out);

    // The members appendCapture writes before a message's error, service discovery entries or payload,
    // held by value: a message whose payload is to be decoded (`pending`) can have its whole line written
    // on another thread than the one reading the capture.
    struct CapturePart {
        uint64_t frame = 0;
        int64_t seconds = 0;
        uint32_t nanoseconds = 0;
        uint8_t time_digits = 6;
        ZQSomeIP::capture::Transport transport = ZQSomeIP::capture::Transport::Udp;
        ZQSomeIP::capture::Endpoint source;
        ZQSomeIP::capture::Endpoint destination;
        bool has_header = false;
        ZQSomeIP::capture::Header header;
        uint32_t tp_segments = 0;
    };
    static CapturePart capturePart(const ZQSomeIP::capture::Message& m);
    // Whether appendCapture would leave the payload of `m` to appendPayload.
    static bool pending(const ZQSomeIP::capture::Message& m) { return m.ok() && m.sd == nullptr; }
    // The line's opening "{" and the members of `part` (the "file" member as setFile gave it).
    void appendCapturePart(const CapturePart& part, std::string& out);

private:
    void appendTime(std::string& out, const CapturePart& part);
    void appendNames(std::string& out);

    PayloadDecoder& decoder_;
    std::string file_;
    DecodedPayload decoded_;
    PayloadFailure failure_;
    int64_t cached_second_ = 0;
    std::string time_text_;
};

} // namespace capture_lines

#endif // SOMEIP_CAPTURE_LINES_CAPTURE_LINES_H
