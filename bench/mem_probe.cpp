// Peak memory of one large decode. Writes a format with a single VECTOR of uint8_t (32-bit length
// field), builds a payload of N elements, decodes it once and prints the output text size, the peak
// resident set size and their ratio. One decode per process, since the peak never comes down.
//   usage: someip_mem_probe [--reference] [N=1000000]
// The format file goes to SOMEIP_BENCH_TMP (default /tmp) and is removed after loading.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "ZQSomeIPParser.h"

namespace {

long long peakRssBytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<long long>(usage.ru_maxrss) * 1024;  // Linux reports kilobytes
}

} // namespace

int main(int argc, char** argv)
{
    bool fast = true;
    unsigned long count = 1000000;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--reference") == 0) {
            fast = false;
        } else {
            count = std::strtoul(argv[i], nullptr, 10);
        }
    }

    const char* tmp = std::getenv("SOMEIP_BENCH_TMP");
    const std::string path = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/someip_mem_probe_" +
                             std::to_string(getpid()) + ".json";
    std::ofstream(path) << R"({"Services":[{"ServiceID":"4660","Attribute":{"VectorLengthFieldSize":"32",)"
                           R"("ByteOrderEnum":"BYTE_ORDER_BIG_ENDIAN"},"Events":[{"EventID":"32769","Params":[)"
                           R"({"MethodType":"event","ParamsDetails":[{"ParamName":"data","ParamType":"VECTOR",)"
                           R"("SubParams":[{"ParamName":"b","ParamType":"uint8_t"}]}]}]}]}]})"
                        << '\n';

    unsetenv("SOMEIPSER_LOG_LEVEL");
    ZQSomeIP::ZQSomeIPParser parser;
    parser.setFastPathEnabled(fast);
    const int loaded = parser.loadFormatJson(path);
    std::remove(path.c_str());
    if (loaded != 0) {
        std::fprintf(stderr, "mem_probe: format did not load\n");
        return 1;
    }

    // Length field (big endian, in bytes) followed by the elements.
    std::vector<unsigned char> payload(4 + count);
    for (int i = 0; i < 4; ++i) {
        payload[i] = static_cast<unsigned char>(count >> (24 - 8 * i));
    }
    for (unsigned long i = 0; i < count; ++i) {
        payload[4 + i] = static_cast<unsigned char>(i * 31);
    }

    const long long baseline = peakRssBytes();
    std::string json;
    if (parser.deserializebyMethodID(4660, 32769, 0x02, payload, json) != 0) {
        std::fprintf(stderr, "mem_probe: decode failed\n");
        return 1;
    }
    const long long peak = peakRssBytes();

    std::printf("path %s\nelements %lu\noutput_bytes %zu\nbaseline_rss_bytes %lld\npeak_rss_bytes %lld\n"
                "peak_over_output %.3f\n",
                fast ? "fast" : "reference", count, json.size(), baseline, peak,
                json.empty() ? 0.0 : static_cast<double>(peak) / static_cast<double>(json.size()));
    return 0;
}
