// Capture lines made on several threads and written in capture order. The reader's thread writes each
// line's capture part and copies the payload; worker threads, each with a decoder of its own, decode the
// payloads of whole batches; the reader's thread writes finished batches in the order they were made.
// A bounded number of batches is in flight, so memory stays flat however long the capture.
#ifndef SOMEIP_JSON_CAPTURE_PIPELINE_H
#define SOMEIP_JSON_CAPTURE_PIPELINE_H

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "capture_lines.h"

namespace someip_json {

// What the lines reported, for the summary.
struct LineTally {
    uint64_t decoded = 0, warned = 0;
    std::map<std::string, uint64_t> failed;   // by failure code
    std::map<uint32_t, uint64_t> unknown;     // service << 16 | method of messages without a format

    void add(const capture_lines::LineOutcome& outcome, const ZQSomeIP::capture::Header& header);
    void merge(const LineTally& other);
};

class LinePipeline {
public:
    using DecoderFactory = std::function<std::unique_ptr<capture_lines::PayloadDecoder>()>;

    // `jobs` worker threads, each with a decoder from `make`; lines go to `out`, tallies into `tally`.
    LinePipeline(unsigned jobs, const DecoderFactory& make, FILE* out, LineTally& tally);
    ~LinePipeline();
    LinePipeline(const LinePipeline&) = delete;
    LinePipeline& operator=(const LinePipeline&) = delete;

    // Lines carry a "file" member with this name (CaptureLineWriter::setFile). Only between files.
    void setFile(const std::string& file);
    // Queues the line for `m` (its payload and SD pointers are not kept).
    void add(const ZQSomeIP::capture::Message& m);
    // Writes every line queued so far.
    void drain();

private:
    // A line whose payload is to be decoded is written wholly by a worker, from its capture part;
    // the others (errors, service discovery) are written by the reading thread into Batch::heads.
    struct Item {
        size_t head_end = 0;     // end of its text in Batch::heads
        size_t payload_end = 0;  // end of its payload in Batch::payloads
        bool pending = false;    // the payload is still to be decoded
        capture_lines::CaptureLineWriter::CapturePart part;  // of a pending line
        capture_lines::LineOutcome outcome;  // of a line without payload to decode
    };
    struct Batch {
        std::vector<Item> items;
        std::string heads;
        std::vector<uint8_t> payloads;
        std::string file;        // of every line of the batch
        std::string text;        // the finished lines
        LineTally tally;
        bool done = false;
    };

    void submit();
    void writeFront(bool wait);
    void work(capture_lines::PayloadDecoder& decoder);
    static void finish(Batch& batch, capture_lines::CaptureLineWriter& writer);

    std::unique_ptr<capture_lines::PayloadDecoder> head_decoder_;  // never decodes: the capture parts only
    capture_lines::CaptureLineWriter head_;
    FILE* out_;
    LineTally& tally_;
    std::unique_ptr<Batch> filling_;
    std::string file_;
    std::vector<std::unique_ptr<Batch>> spare_;

    std::mutex mutex_;
    std::condition_variable work_ready_, batch_done_;
    std::deque<std::unique_ptr<Batch>> in_flight_;  // capture order
    std::deque<Batch*> queued_;                     // not yet taken by a worker
    bool stopping_ = false;
    size_t max_in_flight_;
    std::vector<std::thread> workers_;
};

} // namespace someip_json

#endif // SOMEIP_JSON_CAPTURE_PIPELINE_H
