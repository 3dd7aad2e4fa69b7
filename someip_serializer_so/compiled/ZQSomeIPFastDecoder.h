#ifndef ZQ_SOMEIP_FAST_DECODER_H
#define ZQ_SOMEIP_FAST_DECODER_H

#include <cstdint>
#include <string>
#include <vector>

#include "ZQSomeIPCompiledFormat.h"
#include "someip/ZQSomeIPPayloadAttr.h"

namespace ZQSomeIP {

// Payload to the styled JSON text of the reference decoder, straight from a compiled format: the
// same reader engine makes the same reads in the same order, and the text is written as it goes
// instead of through a document. It only answers when it is sure: a decode the reference would fail
// (whose partial document the reference alone produces), a string the text writer would need to
// treat specially, or any exception, make it return false with `json` untouched, and the caller
// then runs the reference decoder.
bool fastDecode(const ZQSomeIPCompiledFormat& format, const ZQSomeIPExtendAttr& attr,
                const std::vector<unsigned char>& payload, std::string& json);

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_FAST_DECODER_H
