// Piece collection for IP fragments and SOME/IP-TP segments, and the words their tables report with.
#include "reassembly.h"

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

std::string pieceRefused(const ReassemblyRules& r, PieceSet::Add why, const Piece& p)
{
    switch (why) {
    case PieceSet::Add::Overlap:
        return text("%s at bytes %u..%u overlaps bytes already held with other content", r.piece, p.offset, p.offset + p.size);
    case PieceSet::Add::EndConflict:
        return text("%ss disagree on where the %s ends (this one: offset %u, %u bytes%s)", r.piece, r.whole, p.offset, p.size,
                    p.last ? ", last" : "");
    default:
        return text("more than %u separate pieces in one %s", r.max_pieces, r.whole);
    }
}

std::string tooManyWholes(const ReassemblyRules& r)
{
    return text("more than %u %ss in reassembly; the oldest is dropped", r.max_wholes, r.whole);
}

std::string tooManyBytes(const ReassemblyRules& r)
{
    return text("%s buffers above %llu bytes; the oldest %s is dropped", r.piece, ull(r.max_bytes), r.whole);
}

std::string wholeMissing(const ReassemblyRules& r, const PieceSet& p, bool at_end)
{
    const char* when = at_end ? "the capture ended" : "timed out";
    if (p.haveLast())
        return text("%s with bytes from %u of %u missing (%u %ss held)", when, p.firstMissing(), p.end(), p.pieces(), r.piece);
    return text("%s before the last %s arrived (%u %ss, %u bytes held)", when, r.piece, p.pieces(), r.piece, p.covered());
}

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP
