#include "series.h"

#include <algorithm>

namespace report {

namespace {

void fold(Series::Bucket& into, const Series::Bucket& b)
{
    if (b.count == 0) {
        return;
    }
    if (into.count == 0) {
        into = b;
        return;
    }
    into.count += b.count;
    if (b.min < into.min) {
        into.min = b.min;
        into.min_time = b.min_time;
    }
    if (b.max > into.max) {
        into.max = b.max;
        into.max_time = b.max_time;
    }
}

} // namespace

Series::Series(size_t budget, int64_t first_width) : budget_(std::max<size_t>(budget, 2)), width_(std::max<int64_t>(first_width, 1))
{
}

void Series::add(int64_t time, double value)
{
    time = std::max<int64_t>(time, 0);
    size_t index = static_cast<size_t>(time / width_);
    while (index >= budget_) {
        halve();
        index = static_cast<size_t>(time / width_);
    }
    if (index >= buckets_.size()) {
        buckets_.resize(index + 1);
    }
    Bucket one;
    one.count = 1;
    one.min = one.max = value;
    one.min_time = one.max_time = time;
    fold(buckets_[index], one);
    min_ = count_ == 0 ? value : std::min(min_, value);
    max_ = count_ == 0 ? value : std::max(max_, value);
    last_ = value;
    ++count_;
}

void Series::halve()
{
    for (size_t i = 0; i < buckets_.size(); ++i) {
        if (i % 2 == 0) {
            buckets_[i / 2] = buckets_[i];
        } else {
            fold(buckets_[i / 2], buckets_[i]);
        }
    }
    buckets_.resize((buckets_.size() + 1) / 2);
    width_ *= 2;
}

} // namespace report
