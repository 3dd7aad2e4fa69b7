// Fast paths against the reference converters, measured in the same run (argument fast:1 / fast:0):
//   BM_BulkDecode, BM_BulkEncode  the bulk workload, one message per iteration, cycling through it
//   BM_Lookup                     decode of the last service of a 10,000-service file vs a 1-service file
//   BM_Load                       loadFormatJson of the 10,000-service file (first_decode:1 adds one decode,
//                                 so an index built lazily on first use is not left out)
// Environment:
//   SOMEIP_BULK_DIR     directory holding bulk.txt ("<event id> <payload hex>" per line)
//   SOMEIP_BULK_FORMAT  the format description of that workload (bulk.json)
//   SOMEIP_BENCH_TMP    where the generated formats are written (default /tmp)
// bench/run.sh sets them and prints the summary. Compare figures as ratios within one run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "ZQSomeIPParser.h"
#include "compiled/ZQSomeIPFormatSet.h"

using ZQSomeIP::ZQSomeIPParser;

namespace {

constexpr int kBulkService = 4660;
constexpr int kNotification = 0x02;
constexpr int kManyServices = 10000;
constexpr int kLookupEvent = 32769;

struct Message {
    int event = 0;
    std::vector<unsigned char> payload;
};

std::string env(const char* name, const char* fallback = "")
{
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

int nibble(char c)
{
    return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
}

std::unique_ptr<ZQSomeIPParser> makeParser(const std::string& formatPath, bool fast)
{
    auto parser = std::make_unique<ZQSomeIPParser>();
    parser->setFastPathEnabled(fast);
    if (parser->loadFormatJson(formatPath) != 0) {
        return nullptr;
    }
    return parser;
}

// The workload, read once: event IDs and payload bytes. Empty when SOMEIP_BULK_DIR is unset or unreadable.
std::vector<Message>& bulkMessages()
{
    static std::vector<Message> messages = [] {
        std::vector<Message> loaded;
        std::ifstream in(env("SOMEIP_BULK_DIR") + "/bulk.txt");
        Message message;
        std::string hex;
        while (in >> message.event >> hex) {
            message.payload.resize(hex.size() / 2);
            for (size_t i = 0; i < message.payload.size(); ++i) {
                message.payload[i] = static_cast<unsigned char>(nibble(hex[2 * i]) << 4 | nibble(hex[2 * i + 1]));
            }
            loaded.push_back(message);
        }
        return loaded;
    }();
    return messages;
}

// The reference decode of every workload message: the documents both encoders are given.
std::vector<std::string>& encodeInputs()
{
    static std::vector<std::string> inputs = [] {
        std::vector<std::string> decoded;
        auto parser = makeParser(env("SOMEIP_BULK_FORMAT"), false);
        if (parser == nullptr) {
            return decoded;
        }
        for (Message& message : bulkMessages()) {
            decoded.emplace_back();
            if (parser->deserializebyMethodID(kBulkService, message.event, kNotification, message.payload,
                                              decoded.back()) != 0) {
                decoded.clear();
                break;
            }
        }
        return decoded;
    }();
    return inputs;
}

// How many of the first messages the fast path converts differently from the reference path: a speed-up
// only counts if the results agree. Reported as the counter "mismatches" of the fast variants.
constexpr size_t kAgreementSample = 1000;

double decodeMismatches(ZQSomeIPParser& fast)
{
    std::vector<Message>& messages = bulkMessages();
    const std::vector<std::string>& expected = encodeInputs();
    std::string json;
    double count = 0;
    for (size_t i = 0; i < std::min(kAgreementSample, expected.size()); ++i) {
        json.clear();
        const int rc = fast.deserializebyMethodID(kBulkService, messages[i].event, kNotification,
                                                  messages[i].payload, json);
        count += rc != 0 || json != expected[i];
    }
    return count;
}

double encodeMismatches(ZQSomeIPParser& fast)
{
    auto reference = makeParser(env("SOMEIP_BULK_FORMAT"), false);
    std::vector<unsigned char> expected, actual;
    double count = 0;
    for (size_t i = 0; i < std::min(kAgreementSample, encodeInputs().size()); ++i) {
        const int event = bulkMessages()[i].event;
        std::string text = encodeInputs()[i];  // the converters take the text by reference; keep the input intact
        const int referenceRc = reference->serializebyMethodID(kBulkService, event, kNotification, text, expected);
        text = encodeInputs()[i];
        const int fastRc = fast.serializebyMethodID(kBulkService, event, kNotification, text, actual);
        count += referenceRc != fastRc || expected != actual;
    }
    return count;
}

// Decode and encode run over the same messages in the same order whichever path is measured, so the
// two see the same mix of payload sizes (the mix is uniform along the file).
void BM_BulkDecode(benchmark::State& state)
{
    std::vector<Message>& messages = bulkMessages();
    auto parser = makeParser(env("SOMEIP_BULK_FORMAT"), state.range(0) != 0);
    if (messages.empty() || parser == nullptr) {
        state.SkipWithError("set SOMEIP_BULK_DIR (bulk.txt) and SOMEIP_BULK_FORMAT (bulk.json)");
        return;
    }
    if (state.range(0) != 0) {
        state.counters["mismatches"] = decodeMismatches(*parser);
    }
    std::string json;
    size_t next = 0;
    int64_t bytes = 0;
    for (auto _ : state) {
        Message& message = messages[next];
        if (parser->deserializebyMethodID(kBulkService, message.event, kNotification, message.payload, json) != 0) {
            state.SkipWithError("decode failed");
            break;
        }
        benchmark::DoNotOptimize(json.data());
        bytes += static_cast<int64_t>(message.payload.size());
        next = next + 1 == messages.size() ? 0 : next + 1;
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_BulkDecode)->ArgName("fast")->Arg(0)->Arg(1);

void BM_BulkEncode(benchmark::State& state)
{
    std::vector<Message>& messages = bulkMessages();
    std::vector<std::string>& inputs = encodeInputs();
    auto parser = makeParser(env("SOMEIP_BULK_FORMAT"), state.range(0) != 0);
    if (inputs.empty() || parser == nullptr) {
        state.SkipWithError("no encode inputs: set SOMEIP_BULK_DIR and SOMEIP_BULK_FORMAT");
        return;
    }
    if (state.range(0) != 0) {
        state.counters["mismatches"] = encodeMismatches(*parser);
    }
    std::vector<unsigned char> payload;
    size_t next = 0;
    for (auto _ : state) {
        if (parser->serializebyMethodID(kBulkService, messages[next].event, kNotification, inputs[next], payload) !=
            0) {
            state.SkipWithError("encode failed");
            break;
        }
        benchmark::DoNotOptimize(payload.data());
        next = next + 1 == inputs.size() ? 0 : next + 1;
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_BulkEncode)->ArgName("fast")->Arg(0)->Arg(1);

// The plain form over one shared format set: decode compact JSON, and encode it back.
std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet> bulkFormatSet()
{
    static std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet> set = [] {
        ZQSomeIP::ZQSomeIPPlainStatus status;
        return ZQSomeIP::ZQSomeIPFormatSet::load(env("SOMEIP_BULK_FORMAT"), status);
    }();
    return set;
}

std::vector<std::string>& plainInputs()
{
    static std::vector<std::string> inputs = [] {
        std::vector<std::string> all;
        if (auto set = bulkFormatSet()) {
            for (const Message& m : bulkMessages()) {
                std::string json;
                ZQSomeIP::plainDecode(*set, kBulkService, m.event, kNotification, m.payload.data(), m.payload.size(), json);
                all.push_back(json);
            }
        }
        return all;
    }();
    return inputs;
}

void BM_PlainDecode(benchmark::State& state)
{
    std::vector<Message>& messages = bulkMessages();
    auto set = bulkFormatSet();
    if (messages.empty() || set == nullptr) {
        state.SkipWithError("set SOMEIP_BULK_DIR (bulk.txt) and SOMEIP_BULK_FORMAT (bulk.json)");
        return;
    }
    std::string json;
    size_t next = 0;
    for (auto _ : state) {
        const Message& m = messages[next];
        if (!ZQSomeIP::plainDecode(*set, kBulkService, m.event, kNotification, m.payload.data(), m.payload.size(), json)
                 .ok()) {
            state.SkipWithError("plain decode failed");
            break;
        }
        benchmark::DoNotOptimize(json.data());
        next = next + 1 == messages.size() ? 0 : next + 1;
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_PlainDecode);

void BM_PlainEncode(benchmark::State& state)
{
    std::vector<Message>& messages = bulkMessages();
    std::vector<std::string>& inputs = plainInputs();
    auto set = bulkFormatSet();
    if (inputs.empty() || set == nullptr) {
        state.SkipWithError("set SOMEIP_BULK_DIR (bulk.txt) and SOMEIP_BULK_FORMAT (bulk.json)");
        return;
    }
    std::vector<uint8_t> payload;
    size_t next = 0;
    for (auto _ : state) {
        if (!ZQSomeIP::plainEncode(*set, kBulkService, messages[next].event, kNotification, inputs[next], payload).ok()) {
            state.SkipWithError("plain encode failed");
            break;
        }
        benchmark::DoNotOptimize(payload.data());
        next = next + 1 == inputs.size() ? 0 : next + 1;
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_PlainEncode);

// A format file of services first..last (decimal IDs), each with one event of four basic values.
std::string writeServices(int first, int last)
{
    const std::string path = env("SOMEIP_BENCH_TMP", "/tmp") + "/someip_bench_services_" +
                             std::to_string(last - first + 1) + ".json";
    std::ofstream out(path);
    out << "{\"Services\":[";
    for (int id = first; id <= last; ++id) {
        out << (id == first ? "" : ",") << "{\"ServiceName\":\"S" << id << "\",\"ServiceID\":\"" << id
            << "\",\"Attribute\":{\"ByteOrderEnum\":\"BYTE_ORDER_BIG_ENDIAN\"},\"Events\":[{\"EventID\":\""
            << kLookupEvent << "\",\"Params\":[{\"MethodType\":\"event\",\"ParamsDetails\":["
            << "{\"ParamName\":\"a\",\"ParamType\":\"uint8_t\"},{\"ParamName\":\"b\",\"ParamType\":\"uint16_t\"},"
            << "{\"ParamName\":\"c\",\"ParamType\":\"uint32_t\"},{\"ParamName\":\"d\",\"ParamType\":\"float\"}"
            << "]}]}]}";
    }
    out << "]}\n";
    return path;
}

// Both files end with service kManyServices, so the decoded message and its format are the same.
const std::string& servicesFile(int count)
{
    static const std::string one = writeServices(kManyServices, kManyServices);
    static const std::string many = writeServices(1, kManyServices);
    return count == 1 ? one : many;
}

void BM_Lookup(benchmark::State& state)
{
    auto parser = makeParser(servicesFile(static_cast<int>(state.range(0))), state.range(1) != 0);
    std::vector<unsigned char> payload = {0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x03, 0x3f, 0xc0, 0x00, 0x00};
    std::string json;
    if (parser == nullptr ||
        parser->deserializebyMethodID(kManyServices, kLookupEvent, kNotification, payload, json) != 0) {
        state.SkipWithError("lookup format did not load or decode");
        return;
    }
    for (auto _ : state) {
        parser->deserializebyMethodID(kManyServices, kLookupEvent, kNotification, payload, json);
        benchmark::DoNotOptimize(json.data());
    }
}
BENCHMARK(BM_Lookup)->ArgNames({"services", "fast"})->ArgsProduct({{1, kManyServices}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

void BM_Load(benchmark::State& state)
{
    const std::string& path = servicesFile(kManyServices);
    const bool fast = state.range(0) != 0;
    std::vector<unsigned char> payload = {0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x03, 0x3f, 0xc0, 0x00, 0x00};
    std::string json;
    for (auto _ : state) {
        state.PauseTiming();
        auto parser = std::make_unique<ZQSomeIPParser>();
        parser->setFastPathEnabled(fast);
        state.ResumeTiming();
        int rc = parser->loadFormatJson(path);
        if (rc == 0 && state.range(1) != 0) {
            rc = parser->deserializebyMethodID(kManyServices, kLookupEvent, kNotification, payload, json);
        }
        state.PauseTiming();
        parser.reset();  // tearing the store down is not part of loading it
        state.ResumeTiming();
        if (rc != 0) {
            state.SkipWithError("load failed");
            break;
        }
    }
}
// A load takes about 0.1 s: a longer minimum time keeps the count of iterations behind each figure near ten.
BENCHMARK(BM_Load)->ArgNames({"fast", "first_decode"})->ArgsProduct({{0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond)->MinTime(1.0);

} // namespace

BENCHMARK_MAIN();
