// Fast paths against the reference converters, measured in the same run (argument fast:1 / fast:0):
//   BM_BulkDecode, BM_BulkEncode  the bulk workload, one message per iteration, cycling through it
//   BM_PlainDecode[Reference]     plain compact decode of the bulk workload: compiled program / present decoder
//   BM_PlainEncode[Reference]     plain encode of that text back to the payloads: compiled program / present encoder
//   BM_PlainConstructs*           plain decode and encode of a generated workload of every version-2 construct
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
#include <random>
#include <string>
#include <vector>

#include "ZQSomeIPParser.h"
#include "compiled/ZQSomeIPFormatSet.h"
#include "compiled/ZQSomeIPPlainProgram.h"

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

// One message an iteration, the workload's messages in turn; a step that fails ends the run.
template <typename Step>
void eachMessage(benchmark::State& state, size_t count, const char* failure, Step step)
{
    size_t next = 0;
    for (auto _ : state) {
        if (!step(next)) {
            state.SkipWithError(failure);
            break;
        }
        next = next + 1 == count ? 0 : next + 1;
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// Plain decode of every bulk message by `decode(set, message, json)`.
template <typename Decode>
void plainDecodeEach(benchmark::State& state, Decode decode)
{
    std::vector<Message>& messages = bulkMessages();
    auto set = bulkFormatSet();
    if (messages.empty() || set == nullptr) {
        state.SkipWithError("set SOMEIP_BULK_DIR (bulk.txt) and SOMEIP_BULK_FORMAT (bulk.json)");
        return;
    }
    std::string json;
    eachMessage(state, messages.size(), "plain decode failed", [&](size_t i) {
        const bool ok = decode(*set, messages[i], json);
        benchmark::DoNotOptimize(json.data());
        return ok;
    });
}

void BM_PlainDecode(benchmark::State& state)
{
    plainDecodeEach(state, [](const ZQSomeIP::ZQSomeIPFormatSet& set, const Message& m, std::string& json) {
        return ZQSomeIP::plainDecode(set, kBulkService, m.event, kNotification, m.payload.data(), m.payload.size(), json)
            .ok();
    });
}
BENCHMARK(BM_PlainDecode);

// The same with the decoder the compiled program stands in for: the reference it falls back to.
void BM_PlainDecodeReference(benchmark::State& state)
{
    plainDecodeEach(state, [](const ZQSomeIP::ZQSomeIPFormatSet& set, const Message& m, std::string& json) {
        const ZQSomeIP::ZQSomeIPPlainMethod* method = set.find(kBulkService, m.event, kNotification);
        return method != nullptr && ZQSomeIP::plainDecodeReference(*method, m.payload.data(), m.payload.size(), json,
                                                                   ZQSomeIP::ZQSomeIPPlainOptions())
                                        .ok();
    });
}
BENCHMARK(BM_PlainDecodeReference);

// Plain encode of the decoded text of every bulk message by `encode(set, message, text, payload)`.
template <typename Encode>
void plainEncodeEach(benchmark::State& state, Encode encode)
{
    std::vector<Message>& messages = bulkMessages();
    std::vector<std::string>& inputs = plainInputs();
    auto set = bulkFormatSet();
    if (inputs.empty() || set == nullptr) {
        state.SkipWithError("set SOMEIP_BULK_DIR (bulk.txt) and SOMEIP_BULK_FORMAT (bulk.json)");
        return;
    }
    std::vector<uint8_t> payload;
    eachMessage(state, inputs.size(), "plain encode failed", [&](size_t i) {
        const bool ok = encode(*set, messages[i], inputs[i], payload);
        benchmark::DoNotOptimize(payload.data());
        return ok;
    });
}

void BM_PlainEncode(benchmark::State& state)
{
    plainEncodeEach(state, [](const ZQSomeIP::ZQSomeIPFormatSet& set, const Message& m, const std::string& json,
                              std::vector<uint8_t>& payload) {
        return ZQSomeIP::plainEncode(set, kBulkService, m.event, kNotification, json, payload).ok();
    });
}
BENCHMARK(BM_PlainEncode);

// The same with the encoder the compiled program stands in for: the reference it falls back to.
void BM_PlainEncodeReference(benchmark::State& state)
{
    plainEncodeEach(state, [](const ZQSomeIP::ZQSomeIPFormatSet& set, const Message& m, const std::string& json,
                              std::vector<uint8_t>& payload) {
        const ZQSomeIP::ZQSomeIPPlainMethod* method = set.find(kBulkService, m.event, kNotification);
        return method != nullptr &&
               ZQSomeIP::plainEncodeReference(*method, json, payload, ZQSomeIP::ZQSomeIPPlainOptions()).ok();
    });
}
BENCHMARK(BM_PlainEncodeReference);

// Every construct of the version-2 format in one service: unions of each layout (length first, type
// first, padded to MaxLength with a null), a TLV parameter list and TLV structures with optional members,
// enums with a range, bit fields with enumerators, scaling, fixed, BOM-less, terminator-less and UTF-16
// strings, bounded vectors, per-element byte orders and length sizes, and a chain of shared types.
constexpr int kConstructService = 259;
constexpr char kConstructFormat[] = R"(
{"FormatVersion":2,"Types":{"Celsius":{"ParamType":"int16_t","Scale":{"Factor":0.1,"Offset":-40,"Unit":"degC"}},
"Reading":{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"sensor","ParamType":"uint8_t"},
{"ParamName":"temp","ParamType":"TYPEREF","TypeRef":"Celsius"}]}},"Services":[{"ServiceName":"Constructs",
"ServiceID":"259","Attribute":{"ByteOrderEnum":"BYTE_ORDER_BIG_ENDIAN","DataAlignment":"0",
"StructLengthFieldSize":"0","StringLengthFieldSize":"16","VectorLengthFieldSize":"16",
"ArrayLengthFieldSize":"0","UnionLengthFieldSize":"32","UnionTypeSelectorFieldSize":"32"},
"Types":{"Readings":{"ParamType":"VECTOR","MinCount":1,"MaxCount":4,"SubParams":[{"ParamName":"r",
"ParamType":"TYPEREF","TypeRef":"Reading"}]},"Gear":{"ParamType":"ENUM","BaseType":"uint8_t",
"Enumerators":[{"Name":"PARK","Value":0},{"Name":"DRIVE","Value":3},{"Name":"SPORT","Value":"10",
"ValueEnd":"19"}]}},"Methods":[{"MethodName":"Unions","MethodID":"1","Params":[{"MethodType":"request",
"Attribute":{"DataAlignment":"32"},"ParamsDetails":[{"ParamName":"lengthFirst","ParamType":"UNION",
"SubParams":[{"ParamName":"small","ParamType":"uint8_t","Selector":1},{"ParamName":"text","ParamType":"STRING",
"Selector":2},{"ParamName":"reading","ParamType":"TYPEREF","TypeRef":"Reading","Selector":3}]},
{"ParamName":"typeFirst","ParamType":"UNION","Attribute":{"UnionFieldOrder":"TYPE_FIRST",
"UnionLengthFieldSize":"16","UnionTypeSelectorFieldSize":"8","ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN"},
"SubParams":[{"ParamName":"word","ParamType":"uint32_t","Selector":1},{"ParamName":"values",
"ParamType":"VECTOR","Selector":7,"SubParams":[{"ParamName":"v","ParamType":"uint16_t"}]}]},
{"ParamName":"boxed","ParamType":"UNION","AllowNull":true,"MaxLength":8,"Attribute":{"UnionLengthFieldSize":"0",
"UnionTypeSelectorFieldSize":"16","DataAlignment":"0"},"SubParams":[{"ParamName":"flag","ParamType":"bool",
"Selector":1},{"ParamName":"big","ParamType":"uint64_t","Selector":2},{"ParamName":"tag","ParamType":"STRING",
"FixedLength":6,"Selector":3}]}]}]},{"MethodName":"Records","MethodID":"2","Params":[{"MethodType":"request",
"Tlv":true,"ParamsDetails":[{"ParamName":"id","ParamType":"uint16_t","DataId":1},{"ParamName":"name",
"ParamType":"STRING","DataId":2,"Optional":true},{"ParamName":"gear","ParamType":"TYPEREF","TypeRef":"Gear",
"DataId":3,"Optional":true},{"ParamName":"readings","ParamType":"TYPEREF","TypeRef":"Readings","DataId":4,
"Attribute":{"DynamicLengthFieldSize":false}},{"ParamName":"detail","ParamType":"STRUCTURE","Tlv":true,
"DataId":5,"Optional":true,"Attribute":{"StructLengthFieldSize":"16"},"SubParams":[{"ParamName":"code",
"ParamType":"uint32_t","DataId":10},{"ParamName":"ratio","ParamType":"double","DataId":11,"Optional":true}]}]},
{"MethodType":"response","ParamsDetails":[{"ParamName":"status","ParamType":"STRUCTURE","Tlv":true,
"Attribute":{"StructLengthFieldSize":"32","ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN"},
"SubParams":[{"ParamName":"ok","ParamType":"bool","DataId":1},{"ParamName":"note","ParamType":"STRING",
"DataId":2,"Optional":true},{"ParamName":"fixed","ParamType":"ARRAY","Value":"2","DataId":3,"Optional":true,
"SubParams":[{"ParamName":"e","ParamType":"uint8_t"}]}]}]}]},{"MethodName":"Values","MethodID":"3",
"Params":[{"MethodType":"request","ParamsDetails":[{"ParamName":"gear","ParamType":"TYPEREF","TypeRef":"Gear"},
{"ParamName":"mode","ParamType":"uint16_t","Enumerators":[{"Name":"OFF","Value":0},{"Name":"ON","Value":1}]},
{"ParamName":"lamps","ParamType":"BITFIELD","BaseType":"uint16_t","Bits":[{"Name":"left","Bit":0},
{"Name":"right","Bit":1},{"Name":"level","Bit":4,"Width":3,"Enumerators":[{"Name":"DIM","Value":1},
{"Name":"FULL","Value":7}]},{"Name":"wide","Bit":8,"Width":8}]},{"ParamName":"inside","ParamType":"TYPEREF",
"TypeRef":"Celsius","Attribute":{"ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN"}},{"ParamName":"speed",
"ParamType":"float","Scale":{"Factor":3.6,"Offset":0}},{"ParamName":"vin","ParamType":"STRING",
"FixedLength":12},{"ParamName":"plain","ParamType":"STRING","Attribute":{"StringBom":false,
"StringTerminator":"false"}},{"ParamName":"wide","ParamType":"STRING","Attribute":{"StringEncoding":"UTF16",
"StringUtf16ByteOrder":"BYTE_ORDER_LITTLE_ENDIAN","StringLengthFieldSize":"8"}},{"ParamName":"wideFixed",
"ParamType":"STRING","FixedLength":10,"Attribute":{"StringEncoding":"UTF16","StringBom":false}},
{"ParamName":"readings","ParamType":"TYPEREF","TypeRef":"Readings","Attribute":{"VectorLengthFieldSize":"32",
"ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN"}},{"ParamName":"pair","ParamType":"ARRAY","Value":"2",
"Attribute":{"ArrayLengthFieldSize":"8","DataAlignment":"16"},"SubParams":[{"ParamName":"g",
"ParamType":"TYPEREF","TypeRef":"Gear"}]}]}]}]}]}
)";

struct PlainMessage {
    int method = 0, type = 0;
    std::vector<uint8_t> payload;
    std::string json;  // what plain decode makes of the payload: the encode input
};

// Deterministic values: the same workload on every run and every standard library.
class Values {
public:
    unsigned below(unsigned n) { return static_cast<unsigned>(rng_() % n); }
    bool coin() { return below(2) == 1; }
    // Letters, 1 to maxLength of them; with a step, step * k + 2 of them (k < 4): a UTF-8 string with its
    // length field, BOM and terminator then fills whole 32-bit units. Strings in a padded union member and
    // empty strings without BOM and terminator do not decode back yet; this workload measures speed.
    std::string text(unsigned maxLength, unsigned step = 0)
    {
        std::string s(step != 0 ? step * below(4) + 2 : 1 + below(maxLength), ' ');
        for (char& c : s) c = static_cast<char>('a' + below(26));
        return s;
    }
    std::string reading() { return R"({"sensor":)" + std::to_string(below(256)) + R"(,"temp":)" + std::to_string(int(below(1400)) - 400) + "}"; }
    std::string readings()
    {
        std::string s = "[" + reading();
        for (unsigned n = below(4); n > 0; --n) s += "," + reading();
        return s + "]";
    }
    std::string gear()
    {
        static const char* const names[] = {"\"PARK\"", "\"DRIVE\"", "\"SPORT\"", "14"};
        return names[below(4)];
    }

private:
    std::mt19937 rng_{20240611};
};

std::string constructsDocument(int method, int type, Values& v)
{
    std::string d;
    if (method == 1) {
        const unsigned first = v.below(3), boxed = v.below(4);
        d = R"({"lengthFirst":)";
        d += first == 0 ? R"({"small":)" + std::to_string(v.below(256)) + "}"
             : first == 1 ? R"({"text":")" + v.text(2, 4) + "\"}"
                          : R"({"reading":)" + v.reading() + "}";
        if (v.coin()) {
            d += R"(,"typeFirst":{"word":)" + std::to_string(v.below(1u << 31)) + "}";
        } else {
            d += R"(,"typeFirst":{"values":[)";
            for (unsigned n = v.below(8); n > 0; --n) d += std::to_string(v.below(65536)) + (n > 1 ? "," : "");
            d += "]}";
        }
        d += R"(,"boxed":)";
        d += boxed == 0 ? "null"
             : boxed == 1 ? R"({"flag":true})"
             : boxed == 2 ? R"({"big":)" + std::to_string(uint64_t(v.below(1u << 31)) << 32) + "}"
                          : R"({"tag":")" + v.text(2) + "\"}";
        return d + "}";
    }
    if (method == 2 && type == 0x80) {
        d = R"({"status":{"ok":)" + std::string(v.coin() ? "true" : "false");
        if (v.coin()) d += R"(,"note":")" + v.text(24) + "\"";
        if (v.coin()) d += R"(,"fixed":[)" + std::to_string(v.below(256)) + "," + std::to_string(v.below(256)) + "]";
        return d + "}}";
    }
    if (method == 2) {
        d = R"({"id":)" + std::to_string(v.below(65536));
        if (v.coin()) d += R"(,"name":")" + v.text(24) + "\"";
        if (v.coin()) d += R"(,"gear":)" + v.gear();
        d += R"(,"readings":)" + v.readings();
        if (v.coin()) {
            d += R"(,"detail":{"code":)" + std::to_string(v.below(1u << 31));
            if (v.coin()) d += R"(,"ratio":)" + std::to_string(v.below(1000)) + ".25";
            d += "}";
        }
        return d + "}";
    }
    d = R"({"gear":)" + v.gear() + R"(,"mode":)" + (v.coin() ? "\"ON\"" : "0");
    d += R"(,"lamps":{"left":)" + std::string(v.coin() ? "true" : "false") + R"(,"level":)" +
         std::to_string(v.below(8)) + R"(,"wide":)" + std::to_string(v.below(256)) + "}";
    d += R"(,"inside":)" + std::to_string(int(v.below(1400)) - 400) + R"(,"speed":)" + std::to_string(v.below(200)) + ".5";
    d += R"(,"vin":")" + v.text(8) + R"(","plain":")" + v.text(20) + R"(","wide":"\u00e9)" + v.text(10) + "\u20ac\"";
    d += R"(,"wideFixed":")" + v.text(4) + R"(","readings":)" + v.readings() + R"(,"pair":[)" + v.gear() + "," + v.gear() + "]}";
    return d;
}

std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet> constructsFormatSet()
{
    static std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet> set = [] {
        const std::string path = env("SOMEIP_BENCH_TMP", "/tmp") + "/someip_bench_constructs.json";
        std::ofstream(path) << kConstructFormat;
        ZQSomeIP::ZQSomeIPPlainStatus status;
        return ZQSomeIP::ZQSomeIPFormatSet::load(path, status);
    }();
    return set;
}

// The generated documents, encoded; empty when any of them fails to encode or decode, which the
// benchmarks report.
std::vector<PlainMessage>& constructMessages()
{
    static std::vector<PlainMessage> messages = [] {
        constexpr int kCount = 4000;
        static const int kinds[][2] = {{1, 0x00}, {2, 0x00}, {2, 0x80}, {3, 0x00}};
        std::vector<PlainMessage> made;
        auto set = constructsFormatSet();
        Values values;
        for (int i = 0; set != nullptr && i < kCount; ++i) {
            PlainMessage m;
            m.method = kinds[i % 4][0];
            m.type = kinds[i % 4][1];
            const std::string document = constructsDocument(m.method, m.type, values);
            if (!ZQSomeIP::plainEncode(*set, kConstructService, m.method, m.type, document, m.payload).ok() ||
                !ZQSomeIP::plainDecode(*set, kConstructService, m.method, m.type, m.payload.data(), m.payload.size(), m.json)
                     .ok()) {
                return std::vector<PlainMessage>();
            }
            made.push_back(std::move(m));
        }
        return made;
    }();
    return messages;
}

void BM_PlainConstructsDecode(benchmark::State& state)
{
    const std::vector<PlainMessage>& messages = constructMessages();
    if (messages.empty()) {
        state.SkipWithError("the constructs workload did not load, encode or decode");
        return;
    }
    auto set = constructsFormatSet();
    std::string json;
    eachMessage(state, messages.size(), "plain decode failed", [&](size_t i) {
        const PlainMessage& m = messages[i];
        const bool ok =
            ZQSomeIP::plainDecode(*set, kConstructService, m.method, m.type, m.payload.data(), m.payload.size(), json).ok();
        benchmark::DoNotOptimize(json.data());
        return ok;
    });
}
BENCHMARK(BM_PlainConstructsDecode);

void BM_PlainConstructsEncode(benchmark::State& state)
{
    const std::vector<PlainMessage>& messages = constructMessages();
    if (messages.empty()) {
        state.SkipWithError("the constructs workload did not load, encode or decode");
        return;
    }
    auto set = constructsFormatSet();
    std::vector<uint8_t> payload;
    eachMessage(state, messages.size(), "plain encode failed", [&](size_t i) {
        const PlainMessage& m = messages[i];
        const bool ok = ZQSomeIP::plainEncode(*set, kConstructService, m.method, m.type, m.json, payload).ok();
        benchmark::DoNotOptimize(payload.data());
        return ok;
    });
}
BENCHMARK(BM_PlainConstructsEncode);

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
