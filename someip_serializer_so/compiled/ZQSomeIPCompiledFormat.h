#ifndef ZQ_SOMEIP_COMPILED_FORMAT_H
#define ZQ_SOMEIP_COMPILED_FORMAT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "someip/ZQSomeIPExport.h"

namespace ZQSomeIP {

class ZQSomeIPIndexedMethod;

enum class ZQSomeIPParamKind : uint8_t {
    Bool, UInt8, UInt16, UInt32, UInt64, Int8, Int16, Int32, Int64, Float, Double, String,
    Structure, Array, Vector,
};

// One member of a parameter object as the decoder's output shows it. The writer orders members by
// key, so the keys of a node are kept in that order with everything static already rendered.
struct ZQSomeIPCompiledKey {
    enum Role : uint8_t {
        Static,     // carried from the format unchanged
        Name,       // "ParamName" of an element: replaced by "<container name>_<index>"
        Value,      // "Value": filled in by the decoder (basic values, vector counts)
        SubParams,  // the member list, or the element list of a container
    };
    Role role = Static;
    std::string head;       // the quoted key followed by " : "
    std::string text;       // the rendered value the format gives this key, if it has it
    bool original = false;  // the format has this key (a filled-in "Value" may be new)
};

// A parameter description made ready for the walk: what to read, and the text around every value.
struct ZQSomeIPCompiledNode {
    ZQSomeIPParamKind kind = ZQSomeIPParamKind::Bool;
    std::vector<ZQSomeIPCompiledKey> keys;
    std::vector<ZQSomeIPCompiledNode> children;  // struct members, or the one element description
    std::string name;                            // containers: the base of the element names
    bool plain_name = false;                     // the name needs no escaping in a JSON string
    uint32_t count = 0;                          // fixed arrays: the element count
    // A top-level array keeps its element description in an object of its own, rendered in place
    // of the array's "SubParams" with these keys (its element list among them).
    bool described = false;
    std::vector<ZQSomeIPCompiledKey> described_keys;
};

// A method format compiled for the fast decoder and encoder. Only formats whose decoded text the
// fast decoder reproduces exactly are compiled: a parameter list of objects with the known types,
// scalar extra members, no comments, arrays and vectors with exactly one element description and no
// array or vector inside an element (where the reference reuses what the previous element left).
// Anything else is left to the reference converters.
class ZQSomeIPCompiledFormat {
public:
    // `styled` is the method format text as the lookup returns it. Null when not compilable.
    // Exported for the tests that check which formats compile; not part of the installed interface.
    ZQ_SOMEIP_API static std::shared_ptr<const ZQSomeIPCompiledFormat> compile(const std::string& styled);

    // The compiled form of an indexed method format, made on first use and kept in the method's slot;
    // null when the format uses something the fast paths do not reproduce.
    ZQ_SOMEIP_API static const ZQSomeIPCompiledFormat* of(const ZQSomeIPIndexedMethod& method);

    const std::vector<ZQSomeIPCompiledNode>& params() const { return params_; }

private:
    std::vector<ZQSomeIPCompiledNode> params_;
};

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_COMPILED_FORMAT_H
