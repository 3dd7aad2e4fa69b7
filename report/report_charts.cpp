// The report's charts as inline SVG: message rates per service, the service discovery timeline and
// one small plot per signal. Paths are drawn from the series' buckets as they are (each bucket's
// minimum and maximum in time order), so a page never holds more points than the buckets allow.
#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "html_text.h"
#include "report_html.h"

namespace report {

namespace {

using Point = std::pair<double, double>;  // seconds after the origin, value

const char* const kPalette[] = {"#1f77b4", "#ff7f0e", "#2ca02c", "#d62728", "#9467bd",
                                "#8c564b", "#e377c2", "#7f7f7f", "#bcbd22", "#17becf"};
constexpr size_t kPaletteSize = sizeof(kPalette) / sizeof(kPalette[0]);
constexpr size_t kMaxLanes = 200;  // SD timeline lanes drawn

// Maps data to a drawing area; a flat range is widened so that it still has a height.
struct Frame {
    double x0 = 0, x1 = 1, y0 = 0, y1 = 1;
    double left = 0, top = 0, width = 100, height = 100;

    void fit()
    {
        if (!(x1 > x0)) {
            x1 = x0 + 1;
        }
        if (!(y1 > y0)) {
            const double pad = y0 == 0 ? 1 : std::fabs(y0) * 0.5;
            y0 -= pad;
            y1 += pad;
        }
    }
    double px(double x) const { return left + (x - x0) / (x1 - x0) * width; }
    double py(double y) const { return top + height - (y - y0) / (y1 - y0) * height; }
};

double toSeconds(int64_t ns)
{
    return static_cast<double>(ns) / 1e9;
}

double duration(const Report& report)
{
    return toSeconds(report.summary.last - report.origin);
}

// A signal's buckets as points: each bucket's extremes in the order they happened.
std::vector<Point> extremes(const Series& series)
{
    std::vector<Point> points;
    for (const Series::Bucket& b : series.buckets()) {
        if (b.count == 0) {
            continue;
        }
        Point low{toSeconds(b.min_time), b.min}, high{toSeconds(b.max_time), b.max};
        if (b.min_time > b.max_time) {
            std::swap(low, high);
        }
        points.push_back(low);
        if (high != low) {
            points.push_back(high);
        }
    }
    return points;
}

// Messages per second in each bucket, at the bucket's middle (the bucket the capture ends in reaches past
// its end, so its rate reads low).
std::vector<Point> rates(const Series& series)
{
    std::vector<Point> points;
    const double width = toSeconds(series.width());
    const std::vector<Series::Bucket>& buckets = series.buckets();
    for (size_t i = 0; i < buckets.size(); ++i) {
        points.emplace_back((static_cast<double>(i) + 0.5) * width, static_cast<double>(buckets[i].count) / width);
    }
    return points;
}

// Lane labels stay within the timeline's margin (cut at a character, not inside one).
std::string shortened(std::string text, size_t most)
{
    if (text.size() <= most) {
        return text;
    }
    size_t cut = most - 1;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) {
        --cut;
    }
    return text.substr(0, cut) + "\u2026";
}

void appendPath(std::string& out, const Frame& f, const std::vector<Point>& points, bool step, const char* color)
{
    if (points.empty()) {
        return;
    }
    out += "<path fill=\"none\" stroke-width=\"1.2\" stroke=\"";
    out += color;
    out += "\" d=\"M";
    html::coord(out, f.px(points[0].first));
    out += ' ';
    html::coord(out, f.py(points[0].second));
    for (size_t i = 1; i < points.size(); ++i) {
        out += step ? "H" : "L";
        html::coord(out, f.px(points[i].first));
        out += step ? "V" : " ";
        html::coord(out, f.py(points[i].second));
    }
    if (points.size() == 1) {
        out += "h1";  // a lone point still shows
    }
    out += "\"/>";
}

void appendText(std::string& out, double x, double y, const char* anchor, const std::string& text)
{
    out += "<text x=\"";
    html::coord(out, x);
    out += "\" y=\"";
    html::coord(out, y);
    out += "\" text-anchor=\"";
    out += anchor;
    out += "\">";
    appendEscaped(out, text);
    out += "</text>";
}

std::string realText(double v, int digits = 4)
{
    std::string s;
    html::real(s, v, digits);
    return s;
}

// Axes with a few labelled ticks.
void appendAxes(std::string& out, const Frame& f, bool y_labels)
{
    out += "<g class=\"axis\"><path d=\"M";
    html::coord(out, f.left);
    out += ' ';
    html::coord(out, f.top);
    out += "V";
    html::coord(out, f.top + f.height);
    out += "H";
    html::coord(out, f.left + f.width);
    out += "\"/>";
    for (int i = 0; i <= 4; ++i) {
        const double x = f.x0 + (f.x1 - f.x0) * i / 4;
        appendText(out, f.px(x), f.top + f.height + 14, "middle", realText(x) + " s");
        if (y_labels) {
            const double y = f.y0 + (f.y1 - f.y0) * i / 4;
            appendText(out, f.left - 4, f.py(y) + 4, "end", realText(y));
        }
    }
    out += "</g>";
}

void appendSvgOpen(std::string& out, const char* cls, double width, double height)
{
    out += "<svg class=\"";
    out += cls;
    out += "\" xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 ";
    html::coord(out, width);
    out += ' ';
    html::coord(out, height);
    out += "\" width=\"";
    html::coord(out, width);
    out += "\" height=\"";
    html::coord(out, height);
    out += "\">";
}

void appendLegend(std::string& out, const std::vector<std::string>& labels)
{
    out += "<div class=\"legend\">";
    for (size_t i = 0; i < labels.size(); ++i) {
        out += "<span><i style=\"background:";
        out += kPalette[i % kPaletteSize];
        out += "\"></i>";
        appendEscaped(out, labels[i]);
        out += "</span>";
    }
    out += "</div>";
}

} // namespace

void appendRateChart(std::string& out, const Report& report, const std::map<uint16_t, std::string>& names)
{
    Frame f;
    f.left = 70, f.top = 10, f.width = 840, f.height = 220;
    f.x1 = duration(report);
    std::vector<std::vector<Point>> lines;
    std::vector<std::string> labels;
    for (const ServiceRate& r : report.rates) {
        lines.push_back(rates(r.series));
        for (const Point& p : lines.back()) {
            f.y1 = std::max(f.y1, p.second);
        }
        const auto name = names.find(r.service);
        labels.push_back(r.others ? std::string("other services")
                                  : html::serviceLabel(r.service, name != names.end() ? name->second : std::string()));
    }
    f.fit();
    appendSvgOpen(out, "rates", 930, 260);
    appendAxes(out, f, true);
    for (size_t i = 0; i < lines.size(); ++i) {
        appendPath(out, f, lines[i], false, kPalette[i % kPaletteSize]);
    }
    out += "</svg>";
    appendLegend(out, labels);
}

void appendSignalPlot(std::string& out, const Report& report, const Signal& signal)
{
    const Series& s = signal.series;
    Frame f;
    f.left = 56, f.top = 6, f.width = 250, f.height = 90;
    f.x1 = duration(report);
    f.y0 = s.min();
    f.y1 = s.max();
    f.fit();
    appendSvgOpen(out, "signal", 320, 118);
    appendAxes(out, f, false);
    appendText(out, f.left - 4, f.top + 8, "end", realText(f.y1, 3));
    appendText(out, f.left - 4, f.top + f.height, "end", realText(f.y0, 3));
    appendPath(out, f, extremes(s), signal.step, kPalette[0]);
    out += "</svg>";
}

namespace {

// One SD run as a bar (it lasted: repeated entries, or a TTL) or a tick (a stop, a nack, a find).
void appendRun(std::string& out, const Frame& f, double lane_top, const SdRun& run)
{
    const bool stop = run.ttl == 0;
    const bool upper = run.type == 0x00 || run.type == 0x01;  // service entries above, eventgroups below
    const char* color = stop ? "#d62728" : run.type == 0x00 ? "#7f7f7f" : run.type == 0x01 ? "#2ca02c"
                                         : run.type == 0x06 ? "#1f77b4" : "#17becf";
    double end = toSeconds(run.last);
    if (!stop && run.type != 0x00) {
        end += run.ttl == 0xFFFFFF ? f.x1 : static_cast<double>(run.ttl);
    }
    const double x = f.px(std::max(0.0, toSeconds(run.first)));  // records before the first one's time
    const double width = std::max(2.0, f.px(std::min(end, f.x1)) - x);
    out += "<rect x=\"";
    html::coord(out, x);
    out += "\" y=\"";
    html::coord(out, lane_top + (upper ? 2 : 11));
    out += "\" width=\"";
    html::coord(out, stop || run.type == 0x00 ? 2.0 : width);
    out += "\" height=\"8\" fill=\"";
    out += color;
    out += "\"><title>";
    std::string tip = run.name + ", TTL " + std::to_string(run.ttl) + ", from " + run.source + ", " +
                      std::to_string(run.count) + "x";
    if (run.type >= 0x04) {
        tip += ", eventgroup " + std::to_string(run.eventgroup);
    }
    appendEscaped(out, tip);
    out += "</title></rect>";
}

} // namespace

void appendSdTimeline(std::string& out, const Report& report, const std::map<uint16_t, std::string>& names)
{
    const size_t lanes = std::min(report.sd.size(), kMaxLanes);
    constexpr double kLane = 22;
    Frame f;
    f.left = 200, f.top = 4, f.width = 710, f.height = kLane * static_cast<double>(lanes);
    f.x1 = duration(report);
    f.fit();
    // Runs are kept in capture time; the frame counts from the origin.
    const int64_t origin = report.origin;
    appendSvgOpen(out, "sd", 930, f.height + 26);
    appendAxes(out, f, false);
    for (size_t i = 0; i < lanes; ++i) {
        const SdInstance& instance = report.sd[i];
        const double top = f.top + kLane * static_cast<double>(i);
        const auto name = names.find(instance.service);
        std::string label = html::serviceLabel(instance.service, name != names.end() ? name->second : std::string());
        std::string id;
        html::hexId(id, instance.instance);
        appendText(out, f.left - 6, top + 15, "end", shortened(label, 24) + " / " + id);
        for (SdRun run : instance.runs) {
            run.first -= origin;
            run.last -= origin;
            appendRun(out, f, top, run);
        }
    }
    out += "</svg>";
}

} // namespace report
