// The formats subcommand: what a format tree holds (services, their methods, events and fields with the
// message types they serve, the file of each) and which of its files are broken.
#ifndef SOMEIP_JSON_FORMATS_COMMAND_H
#define SOMEIP_JSON_FORMATS_COMMAND_H

#include <memory>

#include "tool_support.h"

namespace someip_json {

std::unique_ptr<Subcommand> makeFormatsCommand();

} // namespace someip_json

#endif // SOMEIP_JSON_FORMATS_COMMAND_H
