// The report subcommand: captures to one self-contained HTML page (counts, rates, service discovery,
// signal plots, failing messages).
#ifndef SOMEIP_JSON_REPORT_COMMAND_H
#define SOMEIP_JSON_REPORT_COMMAND_H

#include <memory>

#include "tool_support.h"

namespace someip_json {

std::unique_ptr<Subcommand> makeReportCommand();

} // namespace someip_json

#endif // SOMEIP_JSON_REPORT_COMMAND_H
