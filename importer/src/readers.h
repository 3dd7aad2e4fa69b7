// The two description readers. Each takes every input of its dialect at once, since references cross
// files, and describes what it finds to the builder; what it cannot take goes to the report with its
// place. Neither fails as a whole: a broken element is skipped, the rest imported.
#ifndef ZQ_SOMEIP_IMPORT_READERS_H
#define ZQ_SOMEIP_IMPORT_READERS_H

#include <vector>

#include "format_builder.h"
#include "xml_input.h"

namespace ZQSomeIP {
namespace import {

// FIBEX 4 (root element FIBEX, namespaces fx: and ho:).
void readFibex(const std::vector<const XmlInput*>& inputs, FormatBuilder& out, Report& report);
// AUTOSAR ARXML (root element AUTOSAR, any schema from R19-11 on).
void readArxml(const std::vector<const XmlInput*>& inputs, FormatBuilder& out, Report& report);

}  // namespace import
}  // namespace ZQSomeIP

#endif
