#include "capture_lines.h"

#include <charconv>
#include <ctime>

#include "compiled/ZQSomeIPJsonText.h"

namespace capture_lines {

namespace {

namespace cap = ZQSomeIP::capture;
using ZQSomeIP::appendHex;
using ZQSomeIP::appendJsonString;

void appendNumber(std::string& out, uint64_t v)
{
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof(digits), v).ptr);
}

bool emptyErrorReply(const cap::Header& h, size_t payloadSize)
{
    return payloadSize == 0 && (h.message_type & 0xDF) == 0x81;
}

// "offer-service" -> "offer_service": the line's words are JSON-friendly identifiers.
void appendWord(std::string& out, const char* word)
{
    out += '"';
    for (const char* p = word; *p != '\0'; ++p) {
        out += *p == '-' ? '_' : *p;
    }
    out += '"';
}

void appendMember(std::string& out, const char* key, uint64_t v)
{
    out += ",\"";
    out += key;
    out += "\":";
    appendNumber(out, v);
}

void appendHeader(std::string& out, const cap::Header& h)
{
    appendMember(out, "service", h.service);
    appendMember(out, "method", h.method);
    appendMember(out, "length", h.length);
    appendMember(out, "client", h.client);
    appendMember(out, "session", h.session);
    appendMember(out, "protocol_version", h.protocol_version);
    appendMember(out, "interface_version", h.interface_version);
    appendMember(out, "message_type", h.message_type);
    appendMember(out, "return_code", h.return_code);
}

void appendOption(std::string& out, const cap::SdOption& o)
{
    out += "{\"type\":";
    appendWord(out, o.name());
    if (o.endpoint.family != 0) {
        out += ",\"endpoint\":";
        appendJsonString(out, o.endpoint.text());
        out += ",\"protocol\":";
        out += o.l4_protocol == 0x06 ? "\"tcp\"" : o.l4_protocol == 0x11 ? "\"udp\"" : "null";
    } else if (o.type == 0x01) {
        out += ",\"items\":[";
        for (size_t i = 0; i < o.config.size(); ++i) {
            if (i > 0) {
                out += ',';
            }
            appendJsonString(out, o.config[i]);
        }
        out += ']';
    } else if (o.type == 0x02) {
        appendMember(out, "priority", o.priority);
        appendMember(out, "weight", o.weight);
    }
    out += '}';
}

// Entries with their options resolved in place; an index past the option array is null.
void appendSd(std::string& out, const cap::SdMessage& s)
{
    out += ",\"sd\":{\"flags\":";
    appendNumber(out, s.flags);
    out += ",\"entries\":[";
    for (size_t i = 0; i < s.entries.size(); ++i) {
        const cap::SdEntry& e = s.entries[i];
        out += i ? ",{\"type\":" : "{\"type\":";
        appendWord(out, e.name());
        appendMember(out, "service", e.service);
        appendMember(out, "instance", e.instance);
        appendMember(out, "major", e.major);
        if (e.type == 0x00 || e.type == 0x01) {
            appendMember(out, "minor", e.minor);
        } else {
            appendMember(out, "eventgroup", e.eventgroup);
            appendMember(out, "counter", e.counter);
        }
        appendMember(out, "ttl", e.ttl);
        out += ",\"options\":[";
        for (size_t k = 0; k < e.options.size(); ++k) {
            if (k > 0) {
                out += ',';
            }
            if (e.options[k] < s.options.size()) {
                appendOption(out, s.options[e.options[k]]);
            } else {
                out += "null";
            }
        }
        out += "]}";
    }
    out += "]}";
}

} // namespace

PlainPayloadDecoder::PlainPayloadDecoder(const ZQSomeIP::ZQSomeIPFormatSet& formats,
                                         const ZQSomeIP::ZQSomeIPPlainOptions& options)
    : formats_(formats), options_(options)
{
    options_.pretty = false;
}

bool PlainPayloadDecoder::decode(const cap::Header& header, const uint8_t* payload, size_t size,
                                 DecodedPayload& decoded, PayloadFailure& failure)
{
    // Found once, with the interface version, so that the names and the decode come from one format.
    method_ = formats_.find(header.service, header.method, header.message_type, header.interface_version);
    ZQSomeIP::ZQSomeIPPlainStatus status;
    if (method_ != nullptr) {
        status = ZQSomeIP::plainDecode(*method_, payload, size, decoded.json, options_);
    } else if (formats_.find(header.service, header.method, header.message_type) == nullptr) {
        // Unknown whatever the version: the codec's own lookup says so in its words.
        status = ZQSomeIP::plainDecode(formats_, header.service, header.method, header.message_type, payload, size,
                                       decoded.json, options_);
    } else {
        status.code = ZQSomeIP::ZQSomeIPPlainError::UnknownMessage;
        status.message = ZQSomeIP::plainUnknownMessageText(header.service, header.method, header.message_type,
                                                           header.interface_version);
    }
    if (status.ok()) {
        decoded.warnings.clear();
        if (!status.warnings.empty()) {
            decoded.warnings = status.warningsJson();
        }
        return true;
    }
    failure.json = status.toJson();
    failure.code = ZQSomeIP::plainErrorName(status.code);
    failure.unknown = status.code == ZQSomeIP::ZQSomeIPPlainError::UnknownMessage;
    return false;
}

std::string_view PlainPayloadDecoder::serviceName() const
{
    return method_ != nullptr ? std::string_view(method_->serviceName) : std::string_view();
}

std::string_view PlainPayloadDecoder::methodName() const
{
    return method_ != nullptr ? std::string_view(method_->methodName) : std::string_view();
}

void CaptureLineWriter::appendNames(std::string& out)
{
    const std::string_view service = decoder_.serviceName(), method = decoder_.methodName();
    if (!service.empty()) {
        out += ",\"service_name\":";
        appendJsonString(out, service);
    }
    if (!method.empty()) {
        out += ",\"method_name\":";
        appendJsonString(out, method);
    }
}

void CaptureLineWriter::appendTime(std::string& out, const CapturePart& m)
{
    // Captures hold runs of frames within one second: the calendar part is worked out once per second.
    if (m.seconds != cached_second_ || time_text_.empty()) {
        cached_second_ = m.seconds;
        const time_t t = static_cast<time_t>(m.seconds);
        struct tm parts;
        gmtime_r(&t, &parts);
        char text[32];
        strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &parts);
        time_text_ = text;
    }
    out += ",\"time\":\"";
    out += time_text_;
    // The fraction with as many digits as the file records.
    const uint32_t digits = m.time_digits > 9 ? 9 : m.time_digits;
    if (digits > 0) {
        char fraction[10];
        uint32_t value = m.nanoseconds;
        for (int i = 8; i >= 0; --i) {
            fraction[i] = static_cast<char>('0' + value % 10);
            value /= 10;
        }
        out += '.';
        out.append(fraction, digits);
    }
    out += "Z\"";
}

CaptureLineWriter::CapturePart CaptureLineWriter::capturePart(const cap::Message& m)
{
    CapturePart p;
    p.frame = m.frame;
    p.seconds = m.seconds;
    p.nanoseconds = m.nanoseconds;
    p.time_digits = m.time_digits;
    p.transport = m.transport;
    p.source = m.source;
    p.destination = m.destination;
    p.has_header = m.has_header;
    p.header = m.header;
    p.tp_segments = m.tp_segments;
    return p;
}

void CaptureLineWriter::appendCapturePart(const CapturePart& m, std::string& out)
{
    out += "{\"frame\":";
    appendNumber(out, m.frame);
    if (!file_.empty()) {
        out += ",\"file\":";
        appendJsonString(out, file_);
    }
    appendTime(out, m);
    out += ",\"src\":";
    appendJsonString(out, m.source.text());
    out += ",\"dst\":";
    appendJsonString(out, m.destination.text());
    out += m.transport == cap::Transport::Tcp ? ",\"transport\":\"tcp\"" : ",\"transport\":\"udp\"";
    if (m.has_header) {
        appendHeader(out, m.header);
    }
    if (m.tp_segments > 0) {
        appendMember(out, "tp_segments", m.tp_segments);
    }
}

bool CaptureLineWriter::appendCapture(const cap::Message& m, std::string& out, LineOutcome& outcome)
{
    outcome = LineOutcome();
    appendCapturePart(capturePart(m), out);
    if (!m.ok()) {
        out += ",\"error\":{\"code\":";
        appendWord(out, cap::errorName(m.error));
        appendMember(out, "offset", m.error_offset);
        out += ",\"message\":";
        appendJsonString(out, m.error_text);
        out += '}';
        if (m.payload_size > 0) {
            out += ",\"raw\":\"";
            appendHex(out, m.payload, m.payload_size);
            out += '"';
        }
        outcome.failure = cap::errorName(m.error);
    } else if (m.sd != nullptr) {
        appendSd(out, *m.sd);
        outcome.decoded = true;
    } else {
        return true;  // pending(m)
    }
    out += '}';
    return false;
}

LineOutcome CaptureLineWriter::appendPayload(const cap::Header& header, const uint8_t* payload, size_t size,
                                             std::string& out)
{
    LineOutcome outcome;
    if (decoder_.decode(header, payload, size, decoded_, failure_)) {
        out += ",\"payload\":";
        out += decoded_.json;
        if (!decoded_.warnings.empty()) {
            out += ",\"warnings\":";
            out += decoded_.warnings;
            outcome.warned = true;
        }
        outcome.decoded = true;
        appendNames(out);
    } else if (emptyErrorReply(header, size)) {
        // The usual error reply on real networks: a return code and nothing else. Without an "error"
        // format that takes an empty payload, the line simply has no payload.
        outcome.decoded = true;
        appendNames(out);
    } else {
        out += ",\"error\":";
        out += failure_.json;
        out += ",\"raw\":\"";
        appendHex(out, payload, size);
        out += '"';
        outcome.failure = failure_.code;
        outcome.unknown_message = failure_.unknown;
        appendNames(out);
    }
    out += '}';
    return outcome;
}

LineOutcome CaptureLineWriter::append(const cap::Message& m, std::string& out)
{
    LineOutcome outcome;
    if (appendCapture(m, out, outcome)) {
        outcome = appendPayload(m.header, m.payload, m.payload_size, out);
    }
    return outcome;
}

} // namespace capture_lines
