// What every fuzz target needs: how a finding is reported, and a scratch file for inputs that the code
// under test reads from a path.
#pragma once

#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace fuzz {

// A finding prints one line saying what broke and calls abort(), so libFuzzer keeps the input and the
// replay runner fails its test.
[[noreturn]] inline void finding(const std::string& what, const std::string& detail = "")
{
    std::fprintf(stderr, "FINDING: %s\n%s\n", what.c_str(), detail.c_str());
    std::fflush(stderr);
    std::abort();
}

// A file in this process's scratch directory (in memory where /dev/shm exists), written anew with `data`
// on every call. The old file is removed first: rewriting one in place makes some file systems flush it
// to disk on every close.
inline std::string scratchFile(const char* name, const uint8_t* data, size_t size)
{
    static const std::string dir = [] {
        char pattern[] = "/dev/shm/someip_fuzz_XXXXXX";
        char fallback[] = "/tmp/someip_fuzz_XXXXXX";
        const char* made = mkdtemp(pattern);
        if (made == nullptr) made = mkdtemp(fallback);
        if (made == nullptr) finding("mkdtemp failed");
        static std::string path = made;
        std::atexit([] { std::error_code ignored; std::filesystem::remove_all(path, ignored); });
        return path;
    }();
    const std::string path = dir + "/" + name;
    std::remove(path.c_str());
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    return path;
}

}  // namespace fuzz
