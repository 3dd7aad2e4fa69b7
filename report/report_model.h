// What a capture report shows, gathered in one pass over the capture's records with bounded memory:
//
//   capture record -> format lookup + plain decode (capture_lines) -> leaves -> counts, series, samples
//
// ReportBuilder takes the records one by one (and each file's reader statistics); Report is the
// result, which report_html.h turns into a page. Every series is a Series (min/max buckets); the
// tables that grow with the capture's variety (message kinds, services, SD runs, error samples)
// are capped, and what the caps leave out is counted.
#ifndef SOMEIP_REPORT_REPORT_MODEL_H
#define SOMEIP_REPORT_REPORT_MODEL_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "ZQSomeIPCapture.h"
#include "capture_lines.h"
#include "compiled/ZQSomeIPFormatSet.h"
#include "series.h"

namespace report {

// One --signal choice: SERVICE.METHOD.PATH, the first two by ID or by the name the format gives.
struct SignalChoice {
    int service_id = -1;        // -1: match service_name instead
    std::string service_name;
    int method_id = -1;         // -1: match method_name instead
    std::string method_name;
    std::string path;           // a leaf's dotted path
};

struct ReportOptions {
    std::vector<SignalChoice> signals;  // empty: every numeric leaf
    size_t max_signals = 50;
    size_t points = 2048;               // buckets per signal (each draws its min and its max)
    size_t rate_points = 256;           // buckets per rate line (fewer: each is a count, smoother wider)
    size_t samples_per_reason = 5;      // failing messages kept per reason
    size_t max_rows = 10000;            // message kinds tabulated
    size_t max_services = 64;           // services with a rate line of their own
    size_t max_sd_instances = 1000;     // service instances on the SD timeline
    size_t max_sd_runs = 500;           // SD runs kept per service instance
};

// One (service, method, message type) as seen in the capture.
struct MessageRow {
    uint16_t service = 0, method = 0;
    uint8_t type = 0;
    std::string service_name, method_name;
    bool known = false;          // a format was found for some of its messages
    bool sd = false;             // service discovery
    uint64_t count = 0, failures = 0;
    uint64_t sized = 0, size_min = 0, size_max = 0, size_sum = 0;  // payload bytes of messages read whole
    int64_t first = 0, last = 0;  // capture time, nanoseconds since the epoch
};

// Consecutive SD entries of one kind for one service instance, from one sender, merged while each
// arrives within the previous one's TTL (a cyclic offer is one run).
struct SdRun {
    uint8_t type = 0;            // SdEntry::type
    std::string name;            // SdEntry::name(): offer-service, stop-offer-service, ...
    uint16_t eventgroup = 0;     // eventgroup entries
    uint8_t major = 0;
    uint32_t ttl = 0;            // seconds; 0xFFFFFF: until further notice
    std::string source;
    int64_t first = 0, last = 0;
    uint64_t count = 0;
};

struct SdInstance {
    uint16_t service = 0, instance = 0;
    std::vector<SdRun> runs;
    uint64_t dropped = 0;        // entries past the cap on runs
};

struct Signal {
    uint16_t service = 0, method = 0;
    uint8_t type = 0;
    std::string service_name, method_name, path;
    bool step = false;           // an enum or a bool: drawn as steps
    Series series;
};

struct ErrorSample {
    uint64_t frame = 0;
    int64_t time = 0;
    bool has_header = false;
    ZQSomeIP::capture::Header header;
    std::string text;            // why, one line (the capture's error text or the decode's error object)
    std::string hex;             // the payload, cut to kSampleBytes
    size_t size = 0;             // the whole payload's size
};

struct ServiceRate {
    uint16_t service = 0;
    bool others = false;         // the services past max_services together
    Series series;               // one value per message: bucket counts are the rate
};

struct Summary {
    std::vector<std::string> files;
    std::vector<std::string> damaged;         // "file: why" for files whose reading stopped early
    ZQSomeIP::capture::Statistics stats;      // summed over the files
    uint64_t records = 0, decoded = 0, warned = 0;
    std::map<std::string, uint64_t> failed;   // by reason: capture error names and payload failure codes
    bool timed = false;                       // first and last are set
    int64_t first = 0, last = 0;              // capture time of the first and last record
};

struct Report {
    Summary summary;
    std::vector<MessageRow> rows;             // in order of first appearance
    uint64_t rows_dropped = 0;                // messages of kinds past max_rows
    std::vector<ServiceRate> rates;           // the last one is "other services" when services overflowed
    std::vector<SdInstance> sd;
    uint64_t sd_dropped = 0;                  // entries of service instances past max_sd_instances
    std::vector<Signal> signals;
    uint64_t signals_dropped = 0;             // further numeric leaves not plotted (the cap)
    std::vector<bool> choices_matched;        // per ReportOptions::signals: whether it named a value seen
    std::map<std::string, std::vector<ErrorSample>> samples;
    int64_t origin = 0;                       // what series times count from: the first record's time
};

// The service names the formats give, from the message rows (the first name seen for each service).
std::map<uint16_t, std::string> serviceNames(const Report& report);

constexpr size_t kSampleBytes = 256;

class ReportBuilder {
public:
    // The set must outlive the builder.
    ReportBuilder(const ZQSomeIP::ZQSomeIPFormatSet& formats, ReportOptions options);
    ~ReportBuilder();

    void add(const ZQSomeIP::capture::Message& m);
    // After a file's records: its name and how its reading ended.
    void addFile(const std::string& name, const ZQSomeIP::capture::Status& status);

    const Report& report() const { return report_; }

private:
    struct RowState;
    class LeafSink;

    RowState* row(const ZQSomeIP::capture::Message& m);
    void count(const ZQSomeIP::capture::Message& m, RowState* row);
    void decodePayload(const ZQSomeIP::capture::Message& m, RowState* row);
    void failure(const ZQSomeIP::capture::Message& m, RowState* row, const std::string& reason, const std::string& text);
    void rate(const ZQSomeIP::capture::Message& m);
    void serviceDiscovery(const ZQSomeIP::capture::Message& m);
    void resolveChoices(RowState& row);
    int signalFor(RowState& row, std::string_view path, bool step);
    bool chosen(const RowState& row, std::string_view path);
    int64_t sinceOrigin(const ZQSomeIP::capture::Message& m) const;

    ReportOptions options_;
    capture_lines::PlainPayloadDecoder decoder_;
    capture_lines::DecodedPayload decoded_;
    capture_lines::PayloadFailure failure_;
    std::unique_ptr<LeafSink> sink_;
    Report report_;
    std::unordered_map<uint64_t, std::unique_ptr<RowState>> states_;  // service << 24 | method << 8 | type
    std::unordered_map<uint16_t, size_t> rate_index_;
    std::map<uint32_t, size_t> sd_index_;     // service << 16 | instance
    size_t sd_runs_ = 0;
};

} // namespace report

#endif // SOMEIP_REPORT_REPORT_MODEL_H
