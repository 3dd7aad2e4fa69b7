// What the plain codec's compiled program is made of, shared by the loop that decodes with it
// (ZQSomeIPPlainProgram.cpp, which also compiles and caches it) and the loop that encodes with it
// (ZQSomeIPPlainProgramEncode.cpp). One program serves both directions: its literals are the text the
// decoder writes around the values, which is the text the encoder expects to read. Not an installed
// header.
#ifndef ZQ_SOMEIP_PLAIN_PROGRAM_OPS_H
#define ZQ_SOMEIP_PLAIN_PROGRAM_OPS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ZQSomeIPFormatSet.h"

namespace ZQSomeIP {
namespace program {

// The basic codes keep the order of ZQSomeIPPlainParam::Kind, so a basic kind is its own code.
enum Code : uint8_t {
    Bool, U8, U16, U32, U64, I8, I16, I32, I64, F32, F64,
    Utf8, Utf16, StructOpen, StructClose, ArrayOpen, ArrayNext, VectorOpen, VectorNext, Done,
};
static_assert(Code::F64 == Code(ZQSomeIPPlainParam::Double) && Code::I8 == Code(ZQSomeIPPlainParam::Int8),
              "basic codes follow the kinds");

struct Op {
    Code code = Done;
    bool little = false;    // byte order of the value, or of the length field
    uint8_t lfs = 0;        // length field size of a string or container (0, 1, 2 or 4)
    uint32_t text = 0;      // the literal written before the op: where it starts in the program's texts
    uint32_t textSize = 0;
    uint32_t jump = 0;      // open ops: their closing op; ArrayNext, VectorNext: the element's first op
    uint32_t count = 0;     // arrays: the elements; vectors: the fewest allowed
    uint32_t maxCount = 0;  // vectors: the most allowed
    bool special = false;   // numbers with enumerators, bit fields or a scale: written by the reference's rules
    const ZQSomeIPPlainParam* param = nullptr;  // basic values: their parameter (the method outlives the program)
};

// Open containers a program may nest; deeper formats stay with the reference.
constexpr size_t kMaxDepth = 32;

template <size_t N> struct Word;
template <> struct Word<1> { using type = uint8_t; };
template <> struct Word<2> { using type = uint16_t; };
template <> struct Word<4> { using type = uint32_t; };
template <> struct Word<8> { using type = uint64_t; };

// A word between host order and the wire's (either way: the swap is its own inverse).
template <typename W> W wireOrder(W w, bool little)
{
    if constexpr (sizeof(W) == 1) {
        return w;
    } else {
        return little ? w : sizeof(W) == 2 ? W(__builtin_bswap16(uint16_t(w)))
                                           : sizeof(W) == 4 ? W(__builtin_bswap32(uint32_t(w))) : W(__builtin_bswap64(w));
    }
}

} // namespace program

class ZQSomeIPPlainProgram {
public:
    std::vector<program::Op> ops;
    std::string texts;  // padded with 16 zero bytes: literals may be read in blocks of 16
};

namespace program {

// The program of a method, compiled on its first use and kept by the format set; null when the format
// is left to the reference (in both directions), or the method is not the format set's own.
const ZQSomeIPPlainProgram* programOf(const ZQSomeIPPlainMethod& method);

} // namespace program
} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_PLAIN_PROGRAM_OPS_H
