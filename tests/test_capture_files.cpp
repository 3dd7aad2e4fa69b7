// Capture files: damage and truncation, opening failures, standard input, progress, and bulk traffic.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <thread>

#include "capture_test_support.h"

namespace {

using namespace capturetest;

Frame message(uint16_t session, uint64_t ts = 0)
{
    return {eth(0x0800, ipv4(udp(30490, 30501, someip(0x12348001, session, 0x02, {0xA1})))), ts};
}
const std::vector<Frame> kThree = {message(1), message(2), message(3)};
const std::vector<std::string> kFirstTwo = {"#1 1234.8001 t02 s1 a1", "#2 1234.8001 t02 s2 a1"};

struct DamageCase {
    const char* name;
    Bytes file;
    std::vector<std::string> lines;
    const char* error;  // a part of the status error
};

TEST(CaptureFiles, DamageEndsReadingAfterWhatCameBefore)
{
    const Bytes pcap = pcapBytes(kEthernet, kThree), ng = pcapngBytes({{kEthernet}}, kThree);
    const size_t pcap_third = pcapBytes(kEthernet, {message(1), message(2)}).size();
    const size_t ng_third = pcapngBytes({{kEthernet}}, {message(1), message(2)}).size();
    const std::vector<DamageCase> cases = {
        {"pcap cut inside a record", slice(pcap, 0, pcap.size() - 10), kFirstTwo, "truncated dump file"},
        {"pcap cut inside a record header", slice(pcap, 0, pcap.size() - 60), kFirstTwo, "truncated dump file"},
        {"pcap record beyond any snaplen", patched(pcap, pcap_third + 8, le(0x7FFFFFFF, 4)), kFirstTwo, "invalid packet capture length"},
        {"pcapng cut inside a block", slice(ng, 0, ng.size() - 10), kFirstTwo, "the file ends inside a block"},
        {"pcapng block length not a multiple of 4", patched(ng, ng_third + 4, le(90, 4)), kFirstTwo, "block length 90 is impossible"},
        {"pcapng trailing length differs", patched(ng, ng.size() - 4, le(8, 4)), kFirstTwo, "trailing block length differs"},
        {"pcapng packet longer than its block", patched(ng, ng_third + 20, le(0x1000, 4)), kFirstTwo, "packet data run past its block"},
        {"pcapng packet on an undescribed interface", patched(ng, ng_third + 8, le(5, 4)), kFirstTwo, "undescribed interface 5"},
    };
    for (const DamageCase& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = tempPath("damaged");
        writeFile(path, c.file);
        const Result r = readAll(path);
        EXPECT_EQ(r.lines, c.lines);
        EXPECT_TRUE(r.status.failed);
        EXPECT_NE(r.status.error.find(c.error), std::string::npos) << r.status.error;
    }
}

TEST(CaptureFiles, OpeningFailsWithAReason)
{
    const std::string text = tempPath("text"), empty = tempPath("empty");
    writeFile(text, Bytes(100, 'x'));
    writeFile(empty, {});
    const std::pair<std::string, const char*> cases[] = {
        {tempPath("missing"), "cannot open"}, {text, "not a pcap or pcapng file"}, {empty, "too short to be a capture file"}};
    for (const auto& [path, reason] : cases) {
        std::string error;
        EXPECT_FALSE(CaptureReader::open(path, {}, error));
        EXPECT_NE(error.find(reason), std::string::npos) << error;
    }
}

// Both formats from a regular file and from a pipe on standard input, with the progress figures.
TEST(CaptureFiles, FilesAndStandardInputReadAlike)
{
    const std::vector<Frame> frames = {message(1, 1000), message(2, 2000)};
    for (const Bytes& file : {pcapBytes(kEthernet, frames), pcapngBytes({{kEthernet}}, frames)}) {
        const std::string path = tempPath("file");
        writeFile(path, file);
        const Result from_file = readAll(path);
        EXPECT_EQ(from_file.lines, kFirstTwo);
        EXPECT_EQ(from_file.bytes_read, file.size());
        EXPECT_EQ(from_file.file_size, file.size());
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        const int saved = dup(0);
        dup2(fds[0], 0);
        close(fds[0]);
        std::thread writer([&] {
            EXPECT_EQ(write(fds[1], file.data(), file.size()), static_cast<ssize_t>(file.size()));
            close(fds[1]);
        });
        const Result from_pipe = readAll("-");
        writer.join();
        dup2(saved, 0);
        close(saved);
        EXPECT_EQ(from_pipe.lines, kFirstTwo);
        EXPECT_EQ(from_pipe.bytes_read, file.size());
        EXPECT_EQ(from_pipe.file_size, 0u);  // unknown
    }
}

// The workload generator's capture (one event a datagram, 1 ms apart), checked message by message
// against its text output.
TEST(CaptureFiles, WorkloadGeneratorCaptureMatchesItsText)
{
    struct stat st {};
    if (stat(SOMEIP_BULK_GENERATOR, &st) != 0 || std::system("python3 -c '' 2>/dev/null") != 0)
        GTEST_SKIP() << "no generator at " SOMEIP_BULK_GENERATOR " or no python3";
    const std::string dir = tempPath("bulk");
    ASSERT_EQ(std::system(("python3 " SOMEIP_BULK_GENERATOR " '" + dir + "' 2000").c_str()), 0);
    const Result r = readAll(dir + "/bulk.pcap");
    std::ifstream text(dir + "/bulk.txt");
    size_t i = 0;
    for (std::string event, hex; text >> event >> hex; ++i) {
        ASSERT_LT(i, r.messages.size());
        ASSERT_EQ(std::to_string(r.messages[i].header.method), event);
        Bytes bytes;
        for (size_t k = 0; k < hex.size(); k += 2) bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(k, 2), nullptr, 16)));
        ASSERT_EQ(r.lines[i].substr(r.lines[i].rfind(' ') + 1), payloadText(bytes));
        ASSERT_EQ(r.messages[i].seconds * 1000 + r.messages[i].nanoseconds / 1000000, 1700000000000 + static_cast<int64_t>(i));
    }
    EXPECT_EQ(std::vector<size_t>({i, r.messages.size()}), std::vector<size_t>({2000, 2000}));
    EXPECT_FALSE(r.status.failed);
    EXPECT_EQ(r.status.stats.errors + r.status.stats.skipped_frames, 0u);
}

}  // namespace
