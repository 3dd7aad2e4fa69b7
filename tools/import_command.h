// The import subcommand: FIBEX 4 and AUTOSAR ARXML descriptions to version-2 format files.
#ifndef SOMEIP_JSON_IMPORT_COMMAND_H
#define SOMEIP_JSON_IMPORT_COMMAND_H

#include <memory>

#include "tool_support.h"

namespace someip_json {

std::unique_ptr<Subcommand> makeImportCommand();

} // namespace someip_json

#endif // SOMEIP_JSON_IMPORT_COMMAND_H
