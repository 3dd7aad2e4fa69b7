#include "readers.h"

namespace ZQSomeIP {
namespace import {

void readArxml(const std::vector<const XmlInput*>&, FormatBuilder&, Report&) {}

}  // namespace import
}  // namespace ZQSomeIP
