// Reassembly, one component for IP fragments and SOME/IP-TP segments alike: a bounded table of wholes
// (datagrams, messages) being put together from pieces that arrive at byte offsets in any order.
#ifndef ZQ_SOMEIP_CAPTURE_REASSEMBLY_H
#define ZQ_SOMEIP_CAPTURE_REASSEMBLY_H

#include <algorithm>
#include <set>
#include <unordered_map>

#include "context.h"

namespace ZQSomeIP {
namespace capture {
namespace detail {

// Bytes of one whole gathered from its pieces.
class PieceSet {
public:
    enum class Add { Added, Duplicate, Overlap, EndConflict, TooManyPieces };

    // Adds `size` bytes at `offset`; `last` marks the piece that ends the whole. The caller has checked
    // offset + size against its own maximum. Anything but Added leaves the set as it was: a piece that lies
    // inside bytes already held and repeats them is a Duplicate; any other overlap, or a disagreement about
    // where the whole ends, is refused.
    Add add(uint32_t offset, const uint8_t* data, uint32_t size, bool last, uint32_t max_pieces);

    bool complete() const
    {
        return have_last_ && (end_ == 0 || (ranges_.size() == 1 && ranges_[0].first == 0 && ranges_[0].second == end_));
    }
    bool haveLast() const { return have_last_; }
    uint32_t end() const { return end_; }
    uint32_t pieces() const { return pieces_; }
    size_t held() const { return data_.capacity(); }
    uint32_t firstMissing() const { return ranges_.empty() || ranges_[0].first != 0 ? 0 : ranges_[0].second; }
    uint32_t covered() const;
    // The whole, once complete; the caller may take the vector.
    std::vector<uint8_t>& bytes() { return data_; }

private:
    std::vector<uint8_t> data_;
    std::vector<std::pair<uint32_t, uint32_t>> ranges_;  // sorted, disjoint, not touching
    uint32_t end_ = 0;
    uint32_t pieces_ = 0;
    bool have_last_ = false;
};

// What a table holds, how much of it, and the words its reports use.
struct ReassemblyRules {
    const char* piece;   // "fragment", "segment"
    const char* whole;   // "datagram", "message"
    ErrorCode overlap;   // pieces that contradict each other
    ErrorCode missing;   // the timeout, or the end of the capture, came first
    uint32_t max_wholes;
    uint64_t max_bytes;
    uint32_t max_pieces;  // separate byte ranges per whole
    uint64_t timeout_ns;  // capture time from a whole's first piece
};

struct Piece {
    uint32_t offset;
    const uint8_t* data;
    uint32_t size;
    bool last;
};

// Report texts, the same for every table.
std::string pieceRefused(const ReassemblyRules& r, PieceSet::Add why, const Piece& p);
std::string tooManyWholes(const ReassemblyRules& r);
std::string tooManyBytes(const ReassemblyRules& r);
std::string wholeMissing(const ReassemblyRules& r, const PieceSet& p, bool at_end);

// Everything dropped to stay within the rules, or because its pieces contradict each other, is reported
// through the owner, which knows what its layer says about a whole (addresses, header). Meta is that
// knowledge, kept with each whole.
template <typename Meta>
class Reassembly {
public:
    struct Entry {
        PieceSet pieces;
        Meta meta;
        Seen first;  // the first piece's frame
    };
    class Owner {
    public:
        // Writes the error record for `e`, which is dropped, carrying the frame `at`.
        virtual void dropped(const Entry& e, ErrorCode code, uint64_t offset, std::string why, const Seen& at) = 0;

    protected:
        ~Owner() = default;
    };

    Reassembly(Context& context, Owner& owner, const ReassemblyRules& rules) : context_(context), owner_(owner), rules_(rules) {}

    // Forgets the whole of `key`, if any, without a report: its layer reports why.
    void discard(const Key& key)
    {
        auto it = map_.find(key);
        if (it == map_.end()) return;
        forget(it);
    }

    // Adds a piece, which arrived in the frame `at`, to the whole of `key`. start(meta) describes a whole
    // seen for the first time; added(entry) follows every piece taken; complete(entry) receives a finished
    // whole, which is then forgotten. True when the whole was completed.
    template <typename Start, typename Added, typename Complete>
    bool add(const Key& key, const Piece& piece, const Seen& at, Start start, Added added, Complete complete)
    {
        auto it = map_.find(key);
        if (it == map_.end()) {
            it = open(key, at);
            start(it->second.meta);
        }
        Entry& e = it->second;
        const size_t before = e.pieces.held();
        const PieceSet::Add result = e.pieces.add(piece.offset, piece.data, piece.size, piece.last, rules_.max_pieces);
        if (result == PieceSet::Add::Duplicate) {
            ++context_.stats().duplicates;
            return false;
        }
        if (result != PieceSet::Add::Added) {
            const ErrorCode code = result == PieceSet::Add::TooManyPieces ? ErrorCode::ReassemblyLimit : rules_.overlap;
            drop(it, code, piece.offset, pieceRefused(rules_, result, piece));
            return false;
        }
        added(e);
        bytes_ += e.pieces.held() - before;
        if (e.pieces.complete()) {
            complete(e);
            forget(it);
            return true;
        }
        while (bytes_ > rules_.max_bytes && !map_.empty()) dropOldest(tooManyBytes(rules_));
        return false;
    }

    // Drops the wholes past their timeout, or all of them when the capture has ended, oldest first.
    void expire(bool at_end)
    {
        std::vector<Iterator> gone;
        for (auto it = map_.begin(); it != map_.end(); ++it)
            if (at_end || saturatingAdd(it->second.first.ns, rules_.timeout_ns) <= context_.now()) gone.push_back(it);
        std::sort(gone.begin(), gone.end(), [](const auto& a, const auto& b) { return a->second.first.order < b->second.first.order; });
        // Reported at the frame of the first piece: where the whole began to be missed.
        for (auto it : gone)
            drop(it, rules_.missing, it->second.pieces.firstMissing(), wholeMissing(rules_, it->second.pieces, at_end), &it->second.first);
    }

    // The earliest frame a kept whole could still be reported at; UINT64_MAX when there is none.
    uint64_t pendingFrame() const { return frames_.empty() ? UINT64_MAX : *frames_.begin(); }

    // When the earliest whole times out; INT64_MAX when there is none.
    int64_t nextExpiry() const
    {
        int64_t at = INT64_MAX;
        for (const auto& e : map_) at = std::min(at, saturatingAdd(e.second.first.ns, rules_.timeout_ns));
        return at;
    }

private:
    using Map = std::unordered_map<Key, Entry, KeyHash>;
    using Iterator = typename Map::iterator;

    Iterator open(const Key& key, const Seen& at)
    {
        if (map_.size() >= rules_.max_wholes && !map_.empty()) dropOldest(tooManyWholes(rules_));
        const Iterator it = map_.emplace(key, Entry{}).first;
        it->second.first = at;
        it->second.first.order = context_.created().order;
        frames_.insert(at.frame);
        context_.expiresAt(saturatingAdd(it->second.first.ns, rules_.timeout_ns));
        return it;
    }

    void dropOldest(std::string why)
    {
        auto oldest = std::min_element(map_.begin(), map_.end(),
                                       [](const auto& a, const auto& b) { return a.second.first.order < b.second.first.order; });
        drop(oldest, ErrorCode::ReassemblyLimit, oldest->second.pieces.firstMissing(), std::move(why));
    }

    // Reported at `at`, or at the frame being read.
    void drop(Iterator it, ErrorCode code, uint64_t offset, std::string why, const Seen* at = nullptr)
    {
        owner_.dropped(it->second, code, offset, std::move(why), at ? *at : context_.seen());
        forget(it);
    }

    void forget(Iterator it)
    {
        bytes_ -= it->second.pieces.held();
        frames_.erase(frames_.find(it->second.first.frame));
        map_.erase(it);
    }

    Context& context_;
    Owner& owner_;
    const ReassemblyRules rules_;
    Map map_;
    std::multiset<uint64_t> frames_;  // the wholes' first frames
    uint64_t bytes_ = 0;
};

}  // namespace detail
}  // namespace capture
}  // namespace ZQSomeIP

#endif  // ZQ_SOMEIP_CAPTURE_REASSEMBLY_H
