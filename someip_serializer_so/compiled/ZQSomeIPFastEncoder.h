#ifndef ZQ_SOMEIP_FAST_ENCODER_H
#define ZQ_SOMEIP_FAST_ENCODER_H

#include <string>
#include <vector>

#include "someip/ZQSomeIPPayloadAttr.h"

namespace ZQSomeIP {

// Parameter list (classic JSON text) to payload bytes, as the reference encoder makes them: the same
// writer engine receives the same writes in the same order, but the text is read by a small reader
// and numbers are converted without a stream where their form is plain. It only answers when it is
// sure: text outside the small reader's subset, an object where a list is walked, an array whose
// element count differs from its "Value", any failure (whose partial payload the reference alone
// produces) or exception make it return false with `payload` untouched, and the caller then runs the
// reference encoder.
bool fastEncode(const ZQSomeIPExtendAttr& attr, const std::string& json, std::vector<unsigned char>& payload);

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_FAST_ENCODER_H
