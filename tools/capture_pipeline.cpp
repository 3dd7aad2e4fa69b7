#include "capture_pipeline.h"

namespace someip_json {

namespace {

// A batch is handed on when it holds this many lines or this many bytes of capture parts and payloads
// (a few large reassembled messages must not make a batch huge).
constexpr size_t kBatchLines = 512;
constexpr size_t kBatchBytes = 1u << 20;

} // namespace

void LineTally::add(const capture_lines::LineOutcome& outcome, const ZQSomeIP::capture::Header& header)
{
    if (outcome.decoded) {
        ++decoded;
        warned += outcome.warned ? 1 : 0;
        return;
    }
    ++failed[std::string(outcome.failure)];
    if (outcome.unknown_message) {
        ++unknown[(static_cast<uint32_t>(header.service) << 16) | static_cast<uint32_t>(header.method)];
    }
}

void LineTally::merge(const LineTally& other)
{
    decoded += other.decoded;
    warned += other.warned;
    for (const auto& pair : other.failed) {
        failed[pair.first] += pair.second;
    }
    for (const auto& pair : other.unknown) {
        unknown[pair.first] += pair.second;
    }
}

LinePipeline::LinePipeline(unsigned jobs, const DecoderFactory& make, FILE* out, LineTally& tally)
    : head_decoder_(make()), head_(*head_decoder_), out_(out), tally_(tally), filling_(std::make_unique<Batch>()),
      max_in_flight_(2 * static_cast<size_t>(jobs) + 2)
{
    for (unsigned i = 0; i < jobs; ++i) {
        // Each worker owns its decoder: decoders are not shared between threads.
        workers_.emplace_back([this, decoder = std::shared_ptr<capture_lines::PayloadDecoder>(make())] {
            work(*decoder);
        });
    }
}

LinePipeline::~LinePipeline()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    work_ready_.notify_all();
    for (std::thread& t : workers_) {
        t.join();
    }
}

void LinePipeline::setFile(const std::string& file)
{
    // A batch's lines share one file name.
    if (!filling_->items.empty()) {
        submit();
    }
    file_ = file;
    filling_->file = file;
    head_.setFile(file);
}

void LinePipeline::add(const ZQSomeIP::capture::Message& m)
{
    Batch& b = *filling_;
    Item item;
    item.pending = capture_lines::CaptureLineWriter::pending(m);
    if (item.pending) {
        item.part = capture_lines::CaptureLineWriter::capturePart(m);
    } else {
        item.part.header = m.header;
        head_.appendCapture(m, b.heads, item.outcome);
    }
    item.head_end = b.heads.size();
    if (item.pending) {
        b.payloads.insert(b.payloads.end(), m.payload, m.payload + m.payload_size);
    }
    item.payload_end = b.payloads.size();
    b.items.push_back(item);
    if (b.items.size() >= kBatchLines || b.heads.size() + b.payloads.size() >= kBatchBytes) {
        submit();
    }
}

void LinePipeline::submit()
{
    std::unique_ptr<Batch> next;
    if (!spare_.empty()) {
        next = std::move(spare_.back());
        spare_.pop_back();
    } else {
        next = std::make_unique<Batch>();
    }
    std::swap(next, filling_);
    filling_->file = file_;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        queued_.push_back(next.get());
        in_flight_.push_back(std::move(next));
    }
    work_ready_.notify_one();
    // Write what is finished; wait for the oldest batch when too many are in flight.
    for (;;) {
        std::unique_lock<std::mutex> lock(mutex_);
        const bool full = in_flight_.size() >= max_in_flight_;
        if (in_flight_.empty() || (!full && !in_flight_.front()->done)) {
            return;
        }
        lock.unlock();
        writeFront(full);
    }
}

// Writes the oldest batch in flight, once it is done (waiting for it when `wait`, else only if done).
void LinePipeline::writeFront(bool wait)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (wait) {
        batch_done_.wait(lock, [this] { return in_flight_.front()->done; });
    } else if (!in_flight_.front()->done) {
        return;
    }
    std::unique_ptr<Batch> b = std::move(in_flight_.front());
    in_flight_.pop_front();
    lock.unlock();
    fwrite(b->text.data(), 1, b->text.size(), out_);
    tally_.merge(b->tally);
    b->items.clear();
    b->heads.clear();
    b->payloads.clear();
    b->text.clear();
    b->tally = LineTally();
    b->done = false;
    spare_.push_back(std::move(b));
}

void LinePipeline::drain()
{
    if (!filling_->items.empty()) {
        submit();
    }
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (in_flight_.empty()) {
                return;
            }
        }
        writeFront(true);
    }
}

void LinePipeline::work(capture_lines::PayloadDecoder& decoder)
{
    capture_lines::CaptureLineWriter writer(decoder);
    for (;;) {
        Batch* b = nullptr;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            work_ready_.wait(lock, [this] { return stopping_ || !queued_.empty(); });
            if (queued_.empty()) {
                return;
            }
            b = queued_.front();
            queued_.pop_front();
        }
        finish(*b, writer);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            b->done = true;
        }
        batch_done_.notify_one();
    }
}

// The batch's lines: each capture part, ended by its decoded payload where one is pending.
void LinePipeline::finish(Batch& b, capture_lines::CaptureLineWriter& writer)
{
    writer.setFile(b.file);
    size_t head = 0, payload = 0;
    for (const Item& item : b.items) {
        b.text.append(b.heads, head, item.head_end - head);
        capture_lines::LineOutcome outcome = item.outcome;
        if (item.pending) {
            writer.appendCapturePart(item.part, b.text);
            outcome = writer.appendPayload(item.part.header, b.payloads.data() + payload, item.payload_end - payload,
                                           b.text);
        }
        b.text += '\n';
        b.tally.add(outcome, item.part.header);
        head = item.head_end;
        payload = item.payload_end;
    }
}

} // namespace someip_json
