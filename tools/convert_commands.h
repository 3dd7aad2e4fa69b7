// The conversion subcommands: format (print a method format), decode and encode.
#ifndef SOMEIP_JSON_CONVERT_COMMANDS_H
#define SOMEIP_JSON_CONVERT_COMMANDS_H

#include <memory>

#include "tool_support.h"

namespace someip_json {

std::unique_ptr<Subcommand> makeFormatCommand();
std::unique_ptr<Subcommand> makeDecodeCommand();
std::unique_ptr<Subcommand> makeEncodeCommand();

} // namespace someip_json

#endif // SOMEIP_JSON_CONVERT_COMMANDS_H
