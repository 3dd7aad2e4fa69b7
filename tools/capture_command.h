// The capture subcommand: recorded traffic (pcap, pcapng) to JSON lines, one per SOME/IP message.
#ifndef SOMEIP_JSON_CAPTURE_COMMAND_H
#define SOMEIP_JSON_CAPTURE_COMMAND_H

#include <memory>

#include "tool_support.h"

namespace someip_json {

std::unique_ptr<Subcommand> makeCaptureCommand();

} // namespace someip_json

#endif // SOMEIP_JSON_CAPTURE_COMMAND_H
