// A value over time in bounded memory: at most `budget` buckets of equal width, each keeping the
// smallest and the largest value that fell into it (with their times) and how many did. When a value
// lands past the last bucket, neighbouring buckets are merged pairwise and the width doubles, as often
// as needed; spikes survive any amount of merging, since a bucket's extremes are kept, never averaged.
#ifndef SOMEIP_REPORT_SERIES_H
#define SOMEIP_REPORT_SERIES_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace report {

class Series {
public:
    struct Bucket {
        uint64_t count = 0;
        double min = 0, max = 0;
        int64_t min_time = 0, max_time = 0;  // nanoseconds after the series' origin
    };

    // `first_width`: the width of a bucket (nanoseconds) before any merge.
    explicit Series(size_t budget = 2048, int64_t first_width = 1000);

    // `time`: nanoseconds after the origin (earlier times count as the origin).
    void add(int64_t time, double value);

    int64_t width() const { return width_; }
    // Bucket i covers [i * width, (i + 1) * width); buckets nobody fell into have count 0.
    const std::vector<Bucket>& buckets() const { return buckets_; }
    uint64_t count() const { return count_; }
    double min() const { return min_; }
    double max() const { return max_; }
    double last() const { return last_; }

private:
    void halve();

    size_t budget_;
    int64_t width_;
    std::vector<Bucket> buckets_;
    uint64_t count_ = 0;
    double min_ = 0, max_ = 0, last_ = 0;
};

} // namespace report

#endif // SOMEIP_REPORT_SERIES_H
