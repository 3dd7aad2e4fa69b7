// Piece collection for IP fragments and SOME/IP-TP segments, and the SOME/IP header checks.
#include <algorithm>

#include "capture_internal.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {

PieceSet::Add PieceSet::add(uint32_t offset, const uint8_t* data, uint32_t size, bool last, uint32_t max_pieces)
{
    const uint32_t stop = offset + size;
    for (const auto& r : ranges_) {
        if (offset < r.second && stop > r.first) {
            const bool inside = offset >= r.first && stop <= r.second;
            const bool same_end = !last || (have_last_ && end_ == stop);
            if (inside && same_end && std::memcmp(data_.data() + offset, data, size) == 0) return Add::Duplicate;
            return Add::Overlap;
        }
    }
    if (have_last_ && (stop > end_ || (last && stop != end_))) return Add::EndConflict;
    if (last && !ranges_.empty() && ranges_.back().second > stop) return Add::EndConflict;
    if (size > 0) {
        auto next = std::find_if(ranges_.begin(), ranges_.end(), [&](const auto& r) { return r.first > offset; });
        const bool join_prev = next != ranges_.begin() && std::prev(next)->second == offset;
        const bool join_next = next != ranges_.end() && next->first == stop;
        if (join_prev && join_next) {
            std::prev(next)->second = next->second;
            ranges_.erase(next);
        } else if (join_prev) {
            std::prev(next)->second = stop;
        } else if (join_next) {
            next->first = offset;
        } else {
            if (ranges_.size() >= max_pieces) return Add::TooManyPieces;
            ranges_.insert(next, {offset, stop});
        }
        if (data_.size() < stop) data_.resize(stop);
        std::memcpy(data_.data() + offset, data, size);
    }
    if (last) {
        have_last_ = true;
        end_ = stop;
    }
    ++pieces_;
    return Add::Added;
}

uint32_t PieceSet::covered() const
{
    uint32_t n = 0;
    for (const auto& r : ranges_) n += r.second - r.first;
    return n;
}

HeaderCheck checkHeader(const uint8_t* h, uint64_t max_length)
{
    const uint32_t length = be32(h + 4);
    const uint8_t type = h[14];
    switch (type & ~0x20) {
    case 0x00: case 0x01: case 0x02: case 0x80: case 0x81: break;
    default: return HeaderCheck::Type;
    }
    if (h[12] != 1) return HeaderCheck::Version;
    if (length < ((type & 0x20) ? 12u : 8u)) return HeaderCheck::ShortLength;
    if (h[15] > 0x5E) return HeaderCheck::ReturnCode;
    if (length > max_length) return HeaderCheck::TooLong;
    return HeaderCheck::Ok;
}

const char* headerCheckText(HeaderCheck c)
{
    switch (c) {
    case HeaderCheck::Ok: return "consistent";
    case HeaderCheck::ShortLength: return "length field too small for the header";
    case HeaderCheck::Version: return "protocol version is not 1";
    case HeaderCheck::Type: return "unknown message type";
    case HeaderCheck::ReturnCode: return "return code above 0x5E";
    case HeaderCheck::TooLong: return "length field above the accepted maximum";
    }
    return "?";
}

void readHeader(const uint8_t* h, Header& out)
{
    out.service = be16(h);
    out.method = be16(h + 2);
    out.length = be32(h + 4);
    out.client = be16(h + 8);
    out.session = be16(h + 10);
    out.protocol_version = h[12];
    out.interface_version = h[13];
    out.message_type = h[14];
    out.return_code = h[15];
}

}  // namespace detail

const char* errorName(ErrorCode code)
{
    static const char* const names[kErrorCodeCount] = {
        "none", "frame-cut", "ip-malformed", "ip-fragment-overlap", "ip-fragment-invalid", "ip-fragments-missing",
        "transport-malformed", "tcp-gap", "tcp-skipped", "tcp-incomplete", "someip-bad-header",
        "someip-runs-past-datagram", "someip-trailing-bytes", "tp-invalid", "tp-overlap", "tp-missing-segments",
        "sd-malformed", "reassembly-limit",
    };
    const size_t i = static_cast<size_t>(code);
    return i < kErrorCodeCount ? names[i] : "unknown";
}

}  // namespace capture
}  // namespace ZQSomeIP
