#include "report_model.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "compiled/ZQSomeIPJsonText.h"
#include "payload_leaves.h"

namespace report {

namespace {

namespace cap = ZQSomeIP::capture;
using capture_lines::Leaf;
using ZQSomeIP::ZQSomeIPPlainParam;

constexpr uint32_t kTtlForever = 0xFFFFFF;
constexpr int64_t kSecond = 1000000000;
// SD runs looked back on for one to continue: entries of one instance interleave (offer, subscribe,
// ack), but only a few kinds at a time.
constexpr size_t kRunLookBack = 8;

int64_t timeOf(const cap::Message& m)
{
    return m.seconds * kSecond + static_cast<int64_t>(m.nanoseconds);
}

bool matches(int id, const std::string& name, uint16_t value, const std::string& actual)
{
    return id >= 0 ? id == value : !name.empty() && name == actual;
}

// Whether an entry continues a run: same kind, sender and TTL, within the TTL of the run's last entry.
bool continues(const SdRun& run, const cap::SdEntry& e, std::string_view source, int64_t time)
{
    if (run.type != e.type || run.ttl != e.ttl || run.eventgroup != e.eventgroup || run.major != e.major ||
        run.source != source) {
        return false;
    }
    const int64_t within = e.ttl == kTtlForever ? std::numeric_limits<int64_t>::max() / 2
                                                : std::max<int64_t>(e.ttl, 1) * kSecond;
    return time - run.last <= within;
}

SdRun* recentRun(SdInstance& instance, const cap::SdEntry& e, std::string_view source, int64_t time)
{
    const size_t n = instance.runs.size();
    for (size_t k = n; k > 0 && k + kRunLookBack > n; --k) {
        if (continues(instance.runs[k - 1], e, source, time)) {
            return &instance.runs[k - 1];
        }
    }
    return nullptr;
}

void addStatistics(cap::Statistics& into, const cap::Statistics& s)
{
    into.frames += s.frames;
    into.bytes += s.bytes;
    into.cut_frames += s.cut_frames;
    into.unsupported_link_frames += s.unsupported_link_frames;
    into.skipped_frames += s.skipped_frames;
    into.messages += s.messages;
    into.tp_segments += s.tp_segments;
    into.sd_messages += s.sd_messages;
    into.magic_cookies += s.magic_cookies;
    into.duplicates += s.duplicates;
    into.out_of_order += s.out_of_order;
    into.errors += s.errors;
    for (size_t i = 0; i < cap::kErrorCodeCount; ++i) {
        into.errors_by_code[i] += s.errors_by_code[i];
    }
}

ZQSomeIP::ZQSomeIPPlainOptions decodeOptions()
{
    // Enums as their numbers, scaled numbers as physical values: what a plot of a signal wants.
    ZQSomeIP::ZQSomeIPPlainOptions options;
    options.enumStyle = ZQSomeIP::ZQSomeIPEnumStyle::Value;
    options.scaled = ZQSomeIP::ZQSomeIPScaledStyle::Physical;
    return options;
}

} // namespace

struct ReportBuilder::RowState {
    size_t row = 0;
    bool resolved = false;                        // choices looked at (once the format is known)
    std::vector<const SignalChoice*> choices;     // those naming this row's service and method
    std::unordered_map<std::string, int> slots;   // leaf path -> signal index; -1: not plotted
    std::vector<std::pair<std::string, int>> order;  // the last message's numeric leaves, in order
    size_t position = 0;
};

// Hands a decoded payload's numeric leaves to their signals. Messages of one kind usually have the
// same leaves in the same order, so each leaf first tries the previous message's leaf at its position.
class ReportBuilder::LeafSink : public capture_lines::LeafVisitor {
public:
    explicit LeafSink(ReportBuilder& builder) : builder_(builder) {}

    void start(RowState& row, int64_t time)
    {
        row_ = &row;
        time_ = time;
        row.position = 0;
    }

    void leaf(const Leaf& leaf) override
    {
        if (leaf.kind != Leaf::Number && leaf.kind != Leaf::Bool) {
            return;
        }
        RowState& row = *row_;
        const size_t at = row.position++;
        int slot = 0;
        if (at < row.order.size() && row.order[at].first == leaf.path) {
            slot = row.order[at].second;
        } else {
            const bool step = leaf.kind == Leaf::Bool ||
                              (leaf.param != nullptr && (!leaf.param->enumerators.empty() ||
                                                         leaf.param->kind == ZQSomeIPPlainParam::Bool));
            slot = builder_.signalFor(row, leaf.path, step);
            if (at < row.order.size()) {
                row.order[at] = {std::string(leaf.path), slot};
            } else {
                row.order.emplace_back(std::string(leaf.path), slot);
            }
        }
        const double value = leaf.kind == Leaf::Bool ? (leaf.boolean ? 1.0 : 0.0) : leaf.number.d;
        if (slot >= 0 && std::isfinite(value)) {  // NaN and infinities have no place on an axis
            builder_.report_.signals[static_cast<size_t>(slot)].series.add(time_, value);
        }
    }

private:
    ReportBuilder& builder_;
    RowState* row_ = nullptr;
    int64_t time_ = 0;
};

ReportBuilder::ReportBuilder(const ZQSomeIP::ZQSomeIPFormatSet& formats, ReportOptions options)
    : options_(std::move(options)), decoder_(formats, decodeOptions()), sink_(std::make_unique<LeafSink>(*this))
{
    report_.choices_matched.assign(options_.signals.size(), false);
}

ReportBuilder::~ReportBuilder() = default;

int64_t ReportBuilder::sinceOrigin(const cap::Message& m) const
{
    return timeOf(m) - report_.origin;
}

void ReportBuilder::add(const cap::Message& m)
{
    Summary& s = report_.summary;
    const int64_t t = timeOf(m);
    if (!s.timed) {
        s.timed = true;
        s.first = s.last = report_.origin = t;
    }
    s.first = std::min(s.first, t);
    s.last = std::max(s.last, t);
    ++s.records;
    RowState* row = m.has_header ? this->row(m) : nullptr;
    if (m.has_header) {
        count(m, row);
    }
    if (m.sd != nullptr) {
        serviceDiscovery(m);
    }
    if (!m.ok()) {
        failure(m, row, cap::errorName(m.error), m.error_text);
    } else if (m.sd != nullptr) {
        ++s.decoded;
    } else {
        decodePayload(m, row);
    }
    if (m.has_header) {
        rate(m);
    }
}

void ReportBuilder::addFile(const std::string& name, const cap::Status& status)
{
    Summary& s = report_.summary;
    s.files.push_back(name);
    if (status.failed) {
        s.damaged.push_back(name + ": " + status.error);
    }
    addStatistics(s.stats, status.stats);
}

ReportBuilder::RowState* ReportBuilder::row(const cap::Message& m)
{
    const cap::Header& h = m.header;
    const uint64_t key = static_cast<uint64_t>(h.service) << 24 | static_cast<uint64_t>(h.method) << 8 | h.message_type;
    auto found = states_.find(key);
    if (found != states_.end()) {
        return found->second.get();
    }
    if (report_.rows.size() >= options_.max_rows) {
        ++report_.rows_dropped;
        return nullptr;
    }
    auto state = std::make_unique<RowState>();
    state->row = report_.rows.size();
    MessageRow r;
    r.service = h.service;
    r.method = h.method;
    r.type = h.message_type;
    r.first = r.last = timeOf(m);
    report_.rows.push_back(std::move(r));
    return states_.emplace(key, std::move(state)).first->second.get();
}

void ReportBuilder::count(const cap::Message& m, RowState* row)
{
    if (row == nullptr) {
        return;
    }
    MessageRow& r = report_.rows[row->row];
    const int64_t t = timeOf(m);
    ++r.count;
    if (m.sd != nullptr) {
        r.sd = r.known = true;  // whether or not the first one decoded
    }
    r.first = std::min(r.first, t);
    r.last = std::max(r.last, t);
    if (m.ok()) {
        const uint64_t size = m.payload_size;
        r.size_min = r.sized == 0 ? size : std::min(r.size_min, size);
        r.size_max = std::max(r.size_max, size);
        r.size_sum += size;
        ++r.sized;
    }
}

void ReportBuilder::decodePayload(const cap::Message& m, RowState* row)
{
    Summary& s = report_.summary;
    const bool ok = decoder_.decode(m.header, m.payload, m.payload_size, decoded_, failure_);
    const ZQSomeIP::ZQSomeIPPlainMethod* method = decoder_.method();
    if (row != nullptr && method != nullptr) {
        MessageRow& r = report_.rows[row->row];
        r.known = true;
        if (r.service_name.empty() && r.method_name.empty()) {
            r.service_name = method->serviceName;
            r.method_name = method->methodName;
        }
        resolveChoices(*row);
    }
    if (!ok) {
        failure(m, row, failure_.code, failure_.json);
        return;
    }
    ++s.decoded;
    s.warned += decoded_.warnings.empty() ? 0 : 1;
    if (row != nullptr && method != nullptr) {
        sink_->start(*row, sinceOrigin(m));
        capture_lines::flattenPayload(*method, decoded_.json, *sink_);
    }
}

void ReportBuilder::failure(const cap::Message& m, RowState* row, const std::string& reason, const std::string& text)
{
    ++report_.summary.failed[reason];
    if (row != nullptr) {
        ++report_.rows[row->row].failures;
    }
    std::vector<ErrorSample>& samples = report_.samples[reason];
    if (samples.size() >= options_.samples_per_reason) {
        return;
    }
    ErrorSample sample;
    sample.frame = m.frame;
    sample.time = timeOf(m);
    sample.has_header = m.has_header;
    sample.header = m.header;
    sample.text = text;
    sample.size = m.payload_size;
    ZQSomeIP::appendHex(sample.hex, m.payload, std::min(m.payload_size, kSampleBytes));
    samples.push_back(std::move(sample));
}

void ReportBuilder::rate(const cap::Message& m)
{
    const uint16_t service = m.header.service;
    auto found = rate_index_.find(service);
    size_t index = 0;
    if (found != rate_index_.end()) {
        index = found->second;
    } else {
        std::vector<ServiceRate>& rates = report_.rates;
        const bool full = rates.size() >= options_.max_services;
        if (!full || rates.empty() || !rates.back().others) {
            ServiceRate r{service, full, Series(options_.rate_points)};
            rates.push_back(std::move(r));
        }
        index = rates.size() - 1;
        rate_index_.emplace(service, index);
    }
    report_.rates[index].series.add(sinceOrigin(m), 1);
}

void ReportBuilder::serviceDiscovery(const cap::Message& m)
{
    const int64_t t = timeOf(m);
    const std::string_view source = m.source.text();
    for (const cap::SdEntry& e : m.sd->entries) {
        const uint32_t key = static_cast<uint32_t>(e.service) << 16 | e.instance;
        auto found = sd_index_.find(key);
        if (found == sd_index_.end() && report_.sd.size() >= options_.max_sd_instances) {
            ++report_.sd_dropped;
            continue;
        }
        if (found == sd_index_.end()) {
            found = sd_index_.emplace(key, report_.sd.size()).first;
            report_.sd.push_back(SdInstance{e.service, e.instance, {}, 0});
        }
        SdInstance& instance = report_.sd[found->second];
        if (SdRun* run = recentRun(instance, e, source, t)) {
            run->last = t;
            ++run->count;
        } else if (instance.runs.size() >= options_.max_sd_runs) {
            ++instance.dropped;
        } else {
            instance.runs.push_back(SdRun{e.type, e.name(), e.eventgroup, e.major, e.ttl, std::string(source), t, t, 1});
        }
    }
}

void ReportBuilder::resolveChoices(RowState& row)
{
    if (row.resolved) {
        return;
    }
    row.resolved = true;
    const MessageRow& r = report_.rows[row.row];
    for (const SignalChoice& c : options_.signals) {
        if (matches(c.service_id, c.service_name, r.service, r.service_name) &&
            matches(c.method_id, c.method_name, r.method, r.method_name)) {
            row.choices.push_back(&c);
        }
    }
}

bool ReportBuilder::chosen(const RowState& row, std::string_view path)
{
    if (options_.signals.empty()) {
        return true;
    }
    bool any = false;
    for (const SignalChoice* c : row.choices) {
        if (c->path == path) {
            report_.choices_matched[static_cast<size_t>(c - options_.signals.data())] = true;
            any = true;
        }
    }
    return any;
}

int ReportBuilder::signalFor(RowState& row, std::string_view path, bool step)
{
    const std::string key(path);
    auto found = row.slots.find(key);
    if (found != row.slots.end()) {
        return found->second;
    }
    int slot = -1;
    if (chosen(row, path)) {
        if (report_.signals.size() < options_.max_signals) {
            const MessageRow& r = report_.rows[row.row];
            slot = static_cast<int>(report_.signals.size());
            report_.signals.push_back(
                Signal{r.service, r.method, r.type, r.service_name, r.method_name, key, step, Series(options_.points)});
        } else {
            ++report_.signals_dropped;
        }
    }
    row.slots.emplace(key, slot);
    return slot;
}

std::map<uint16_t, std::string> serviceNames(const Report& report)
{
    std::map<uint16_t, std::string> names;
    for (const MessageRow& r : report.rows) {
        if (!r.service_name.empty()) {
            names.emplace(r.service, r.service_name);
        }
    }
    return names;
}

} // namespace report
