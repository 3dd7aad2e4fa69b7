// Replays inputs through a fuzz target without libFuzzer: every regular file named on the command line,
// and every regular file inside each directory named (in name order). A finding aborts, so a run that
// returns 0 replayed them all cleanly.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_directory(argv[i])) {
            std::vector<fs::path> files;
            for (const auto& entry : fs::directory_iterator(argv[i]))
                if (entry.is_regular_file()) files.push_back(entry.path());
            std::sort(files.begin(), files.end());
            inputs.insert(inputs.end(), files.begin(), files.end());
        } else if (fs::is_regular_file(argv[i])) {
            inputs.emplace_back(argv[i]);
        } else {
            std::fprintf(stderr, "%s: no such file or directory\n", argv[i]);
            return 2;
        }
    }
    for (const fs::path& input : inputs) {
        std::ifstream file(input, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        // A copy of exactly the input's size, so that reading past it shows under AddressSanitizer.
        std::vector<uint8_t> data(bytes.begin(), bytes.end());
        static uint8_t none;
        LLVMFuzzerTestOneInput(data.empty() ? &none : data.data(), data.size());
    }
    std::printf("replayed %zu inputs\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
