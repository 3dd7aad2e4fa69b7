#include "readers.h"

namespace ZQSomeIP {
namespace import {

void readFibex(const std::vector<const XmlInput*>&, FormatBuilder&, Report&) {}

}  // namespace import
}  // namespace ZQSomeIP
