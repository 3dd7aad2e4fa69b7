// Conversion throughput. Run: ./build/bench/someip_bench
// Compare figures as ratios within one run; the machines are shared and noisy.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ZQSomeIPParserAPI.h"
#include "someip/ZQSomeIPPayloadDeserializerGeneral.h"
#include "someip/ZQSomeIPPayloadSerializerGeneral.h"

using ZQSomeIP::ZQSomeIPParserAPI;

namespace {

// A response of GetRoute (service 0x1234, method 2) with `waypoints` points, as a parameter list.
std::string routeJson(int waypoints)
{
    std::string points;
    for (int i = 0; i < waypoints; ++i) {
        points += std::string(i ? "," : "") +
                  "{\"ParamType\":\"STRUCTURE\",\"SubParams\":[{\"ParamType\":\"int32_t\",\"Value\":\"" +
                  std::to_string(i * 10) + "\"},{\"ParamType\":\"int32_t\",\"Value\":\"" + std::to_string(-i) +
                  "\"}]}";
    }
    return "[{\"ParamType\":\"uint32_t\",\"Value\":\"7\"},{\"ParamType\":\"VECTOR\",\"SubParams\":[" + points +
           "]},{\"ParamType\":\"float\",\"Value\":\"12.5\"}]";
}

ZQSomeIPParserAPI& api()
{
    static ZQSomeIPParserAPI* instance = [] {
        unsetenv("SOMEIPSER_LOG_LEVEL");
        auto* created = new ZQSomeIPParserAPI();
        created->loadFormatJson(SOMEIP_EXAMPLES_DIR);
        return created;
    }();
    return *instance;
}

void BM_SerializeRoute(benchmark::State& state)
{
    std::string json = routeJson(static_cast<int>(state.range(0)));
    std::vector<unsigned char> payload;
    for (auto _ : state) {
        if (api().serializebyMethodID(0x1234, 2, 0x80, json, payload) != 0) {
            state.SkipWithError("serialize failed");
            break;
        }
        benchmark::DoNotOptimize(payload.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(payload.size()));
}
BENCHMARK(BM_SerializeRoute)->Arg(1)->Arg(16)->Arg(256);

void BM_DeserializeRoute(benchmark::State& state)
{
    std::string json = routeJson(static_cast<int>(state.range(0)));
    std::vector<unsigned char> payload;
    api().serializebyMethodID(0x1234, 2, 0x80, json, payload);
    std::string out;
    for (auto _ : state) {
        if (api().deserializebyMethodID(0x1234, 2, 0x80, payload, out) != 0) {
            state.SkipWithError("deserialize failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(payload.size()));
}
BENCHMARK(BM_DeserializeRoute)->Arg(1)->Arg(16)->Arg(256);

// The engines alone, without JSON: a struct of primitives and a string, written and read back.
void BM_EngineRoundTrip(benchmark::State& state)
{
    ZQSomeIPExtendAttr attr;
    attr.alignment = 4;
    for (auto _ : state) {
        ZQSomeIPPayloadSerializerGeneral writer(&attr);
        writer.struct_data_begin();
        for (uint32_t i = 0; i < 32; ++i) {
            writer.write(i);
        }
        writer.write(std::string("benchmark text"), nullptr, true);
        writer.data_end();
        ZQSomeIPPayloadDeserializerGeneral reader(&attr);
        reader.from_buffer(writer.to_buffer());
        reader.struct_data_begin();
        uint32_t value = 0;
        for (uint32_t i = 0; i < 32; ++i) {
            reader.read(value);
        }
        std::string text;
        reader.read(text, 0, nullptr, true);
        reader.data_end();
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_EngineRoundTrip);

} // namespace

BENCHMARK_MAIN();
