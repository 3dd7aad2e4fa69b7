// A decoded payload as flat leaves: what a table of one message's values over time, or a plot of one
// signal, is made of. Paths join member names with dots; the elements of a fixed array are numbered
// ("wheels.0.pressure"); a vector, whose length varies from message to message, is one leaf holding its
// whole JSON array. Objects the decode style adds (an enumerator's {"name","value"}, a scaled number's
// {"raw","value","unit"}, a bit field's members and "$raw", a union's chosen member) flatten like members.
#ifndef SOMEIP_CAPTURE_LINES_PAYLOAD_LEAVES_H
#define SOMEIP_CAPTURE_LINES_PAYLOAD_LEAVES_H

#include <string>
#include <string_view>

#include "compiled/ZQSomeIPFormatSet.h"
#include "json_scan.h"

namespace capture_lines {

struct Leaf {
    enum Kind : uint8_t { Number, String, Bool, Null, List } kind = Null;
    std::string_view path;
    JsonNumber number;        // Number
    std::string_view text;    // String: its content; List: the array's JSON text
    bool boolean = false;     // Bool
    // The parameter the value belongs to (for the added objects above: the parameter they describe);
    // null when the format does not say.
    const ZQSomeIP::ZQSomeIPPlainParam* param = nullptr;
};

class LeafVisitor {
public:
    virtual ~LeafVisitor() = default;
    // `leaf` and the views in it are valid during the call only.
    virtual void leaf(const Leaf& leaf) = 0;
};

// Walks the compact JSON a plain decode of `method` wrote. False when the text is not such JSON (the
// leaves before the fault have been visited).
bool flattenPayload(const ZQSomeIP::ZQSomeIPPlainMethod& method, std::string_view json, LeafVisitor& visitor);

} // namespace capture_lines

#endif // SOMEIP_CAPTURE_LINES_PAYLOAD_LEAVES_H
