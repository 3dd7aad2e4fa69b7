// Building blocks shared by the capture reader's layers. Not installed; nothing here is exported.
#ifndef ZQ_SOMEIP_CAPTURE_INTERNAL_H
#define ZQ_SOMEIP_CAPTURE_INTERNAL_H

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ZQSomeIPCapture.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {

inline uint16_t be16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
inline uint32_t be32(const uint8_t* p)
{
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

// One line of a record's text, printf-style (at most 255 characters).
std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));
inline unsigned long long ull(uint64_t v) { return v; }

// ---- Frames ----

// Link types as capture files name them (LINKTYPE_*); the DLT values libpcap hands out for raw IP are
// accepted too.
enum : uint32_t {
    kLinkNull = 0, kLinkEthernet = 1, kLinkRawDlt12 = 12, kLinkRawDlt14 = 14, kLinkRaw = 101,
    kLinkLoop = 108, kLinkSll = 113, kLinkIpv4 = 228, kLinkIpv6 = 229, kLinkSll2 = 276,
};

struct Frame {
    uint64_t number = 0;
    int64_t seconds = 0;
    uint32_t nanoseconds = 0;
    uint8_t time_digits = 6;
    uint32_t link_type = 0;
    const uint8_t* data = nullptr;  // valid until the next read
    uint32_t captured = 0;
    uint32_t original = 0;
};

// A capture file read frame by frame.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    // 1: `frame` filled; 0: clean end; -1: the file is damaged or truncated (error() says how).
    virtual int next(Frame& frame) = 0;
    virtual uint64_t bytesRead() const = 0;
    uint64_t fileSize() const { return file_size_; }
    const std::string& error() const { return error_; }

protected:
    uint64_t file_size_ = 0;
    std::string error_;
};

// How long a wait for input goes before it looks at the stop flag again (a signal wakes it sooner).
constexpr int kPollMs = 100;

// Opens `path` ("-": standard input). Classic pcap goes through libpcap; pcapng is read block by block
// here, since libpcap neither says which interface a packet came from nor accepts interfaces of different
// link types in one file. Null with `error` set when the file cannot be opened or is no capture. Input
// that can keep a read waiting (a pipe, a terminal) is waited for, and ends once `stop` is set.
std::unique_ptr<FrameSource> openFrameSource(const std::string& path, const std::atomic<bool>& stop,
                                             std::string& error);
// A live interface, frames handed over as they arrive; its next() gives 0 once `stop` is set.
std::unique_ptr<FrameSource> openLiveSource(const std::string& interface, const std::string& filter,
                                            const std::atomic<bool>& stop, std::string& error);
// `source` passing on only the frames `filter` accepts. Null, with `error` set, when it does not compile.
std::unique_ptr<FrameSource> filterFrames(std::unique_ptr<FrameSource> source, const std::string& filter,
                                          std::string& error);

// ---- Addresses ----

// IP protocol numbers of the transports the reader follows.
enum : uint8_t { kProtoTcp = 6, kProtoUdp = 17 };

// Address bytes: an IPv6 address; an IPv4 one takes the first four (Endpoint::address holds either).
constexpr size_t kAddressSize = 16;
inline size_t addressSize(uint8_t family) { return family == 4 ? 4 : kAddressSize; }

void setEndpoint(Endpoint& e, uint8_t family, const uint8_t* address, uint16_t port, bool with_port);

// A fixed-size flow or reassembly key: bytes compared and hashed as six words. Every key holds its
// layer's own fields in the first kKeyFieldsSize bytes, then the source and the destination address.
struct Key {
    uint64_t w[6] = {};
    bool operator==(const Key& o) const { return std::memcmp(w, o.w, sizeof w) == 0; }
};
struct KeyHash {
    size_t operator()(const Key& k) const
    {
        uint64_t h = 0x9E3779B97F4A7C15ull;
        for (uint64_t v : k.w) h = (h ^ v) * 0xFF51AFD7ED558CCDull, h ^= h >> 32;
        return static_cast<size_t>(h);
    }
};
// Writes `size` bytes at byte `at` of the key (at + size <= 48).
inline void keyPut(Key& k, size_t at, const void* bytes, size_t size)
{
    std::memcpy(reinterpret_cast<uint8_t*>(k.w) + at, bytes, size);
}
constexpr size_t kKeyFieldsSize = 16;
// A key with the flow's addresses (`size` bytes each) in place; the layer adds its fields.
inline Key addressKey(const uint8_t* source, const uint8_t* destination, size_t size)
{
    Key k;
    keyPut(k, kKeyFieldsSize, source, size);
    keyPut(k, kKeyFieldsSize + kAddressSize, destination, size);
    return k;
}

// ---- SOME/IP header checks ----

// The header: message ID, length, request ID, then protocol version, interface version, message type and
// return code. The length field counts the bytes from the request ID on.
constexpr uint32_t kHeaderSize = 16;
constexpr uint32_t kLengthCountsFrom = 8;
constexpr uint8_t kTpFlag = 0x20;  // in the message type: a SOME/IP-TP segment
// The whole message's size by its length field.
inline uint64_t messageSize(const uint8_t* h) { return kLengthCountsFrom + uint64_t{be32(h + 4)}; }

enum class HeaderCheck { Ok, ShortLength, Version, Type, ReturnCode, TooLong };
// Checks the kHeaderSize bytes at `h` for consistency; `max_length` bounds the length field.
HeaderCheck checkHeader(const uint8_t* h, uint64_t max_length);
const char* headerCheckText(HeaderCheck c);
void readHeader(const uint8_t* h, Header& out);

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP

#endif  // ZQ_SOMEIP_CAPTURE_INTERNAL_H
