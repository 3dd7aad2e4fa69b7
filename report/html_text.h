// The page writer's small pieces, shared by the tables (report_html.cpp) and the charts
// (report_charts.cpp): numbers, times and names as the page shows them.
#ifndef SOMEIP_REPORT_HTML_TEXT_H
#define SOMEIP_REPORT_HTML_TEXT_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "report_model.h"

namespace report {
namespace html {

void count(std::string& out, uint64_t v);
// Up to `digits` significant digits, no exponent for everyday magnitudes.
void real(std::string& out, double v, int digits = 6);
// A coordinate: one decimal.
void coord(std::string& out, double v);
// "0x1234"
void hexId(std::string& out, uint32_t v, int width = 4);
// Nanoseconds since the epoch as "2023-11-14 22:13:20.000000 UTC".
void utc(std::string& out, int64_t ns);
// Nanoseconds as seconds with three decimals.
void seconds(std::string& out, int64_t ns);
// "request", "notification", ..., or the number in hex.
std::string messageType(uint8_t type);
// "BulkService (0x1234)" or "0x1234".
std::string serviceLabel(uint16_t service, const std::string& name);

} // namespace html

// The charts (inline SVG), each appended to `out`.
void appendRateChart(std::string& out, const Report& report, const std::map<uint16_t, std::string>& names);
void appendSdTimeline(std::string& out, const Report& report, const std::map<uint16_t, std::string>& names);
void appendSignalPlot(std::string& out, const Report& report, const Signal& signal);

} // namespace report

#endif // SOMEIP_REPORT_HTML_TEXT_H
