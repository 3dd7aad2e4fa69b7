// The plain decoder's fast path: the compiler from a method format to a flat program, the loop that runs
// it over the payload, and the per-method cache (see the header for what it takes and what it leaves).
//
// Why the subset is exact: without alignment the engines never pad, and every byte the reader takes
// counts against each open container with a length field, so the reader's bookkeeping reduces to two
// positions: the end of the innermost such container (a read or a container may not start there: the
// reader calls it full) and the nearest end of any of them or of the payload (no read may pass it).
#include "ZQSomeIPPlainProgram.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <exception>
#include <limits>
#include <type_traits>
#include <vector>

#include "ZQSomeIPJsonText.h"
#include "someip/ZQSomeIPPayloadFrameRules.h"
#include "someip/ZQSomeIPPayloadUtf16.h"

namespace ZQSomeIP {

namespace {

using Param = ZQSomeIPPlainParam;
using Rules = ZQSomeIPPayloadFrameRules;

// The basic codes keep the order of ZQSomeIPPlainParam::Kind, so a basic kind is its own code.
enum Code : uint8_t {
    Bool, U8, U16, U32, U64, I8, I16, I32, I64, F32, F64,
    Utf8, Utf16, StructOpen, StructClose, ArrayOpen, ArrayNext, VectorOpen, VectorNext, Done,
};
static_assert(Code::F64 == Code(Param::Double) && Code::I8 == Code(Param::Int8), "basic codes follow the kinds");

struct Op {
    Code code = Done;
    bool little = false;    // byte order of the value, or of the length field
    uint8_t lfs = 0;        // length field size of a string or container (0, 1, 2 or 4)
    uint32_t text = 0;      // the literal written before the op: where it starts in the program's texts
    uint32_t textSize = 0;
    uint32_t jump = 0;      // open ops: their closing op; ArrayNext, VectorNext: the element's first op
    uint32_t count = 0;     // arrays: the elements; vectors: the fewest allowed
    uint32_t maxCount = 0;  // vectors: the most allowed
};

// Open containers a program may nest; deeper formats stay with the reference.
constexpr size_t kMaxDepth = 32;

bool isFieldSize(uint32_t size) { return size == 0 || Rules::is_field_size(size); }

} // namespace

class ZQSomeIPPlainProgram {
public:
    std::vector<Op> ops;
    std::string texts;
};

ZQSomeIPPlainProgramCache::~ZQSomeIPPlainProgramCache() = default;

namespace {

// ---------------------------------------------------------------------------------------------------
// Compiling: false for anything the program does not read exactly as the reference does.

class Compiler {
public:
    explicit Compiler(ZQSomeIPPlainProgram& program) : program_(program) {}

    bool method(const ZQSomeIPPlainMethod& m)
    {
        // Version-1 elements inherit the method's attributes, version-2 ones carry their own; a mix
        // would read the byte order the reader happens to hold.
        explicit_ = m.version2;
        if (!m.unsupported.empty() || m.tlv || m.attr.alignment > 1) {
            return false;
        }
        std::string prefix = "{";
        for (const Param& p : m.params) {
            if (!param(p, m.attr, prefix + p.key, 0)) {
                return false;
            }
            prefix = ",";
        }
        add(Done, m.attr, 0, m.params.empty() ? "{}" : "}");
        return true;
    }

private:
    bool param(const Param& p, const ZQSomeIPExtendAttr& parent, const std::string& prefix, size_t depth)
    {
        const ZQSomeIPExtendAttr& ea = p.explicitAttr ? p.attr : parent;
        if (p.explicitAttr != explicit_ || ea.alignment > 1 || p.bitfield || !p.enumerators.empty() || p.scaled) {
            return false;
        }
        switch (p.kind) {
        case Param::String: return string(p, ea, prefix);
        case Param::Structure: return structure(p, ea, prefix, depth);
        case Param::Array:
        case Param::Vector: return list(p, ea, prefix, depth);
        case Param::Union: return false;
        default: add(Code(p.kind), ea, 0, prefix); return true;
        }
    }

    bool string(const Param& p, const ZQSomeIPExtendAttr& ea, const std::string& prefix)
    {
        // A string without a length field never reads; strings of their own rules are byte blocks.
        if (plainOwnStringRules(p, ea) || !Rules::is_field_size(ea.string_length_field_size)) {
            return false;
        }
        add(ea.string_utf == ZQ_SOMEIP_PAYLOAD_STRING_UTF16 ? Utf16 : Utf8, ea, ea.string_length_field_size, prefix);
        return true;
    }

    bool structure(const Param& p, const ZQSomeIPExtendAttr& ea, const std::string& prefix, size_t depth)
    {
        if (p.tlv || depth >= kMaxDepth || !isFieldSize(ea.struct_length_field_size)) {
            return false;
        }
        const size_t open = add(StructOpen, ea, ea.struct_length_field_size, prefix + "{");
        std::string key = "";
        for (const Param& m : p.members) {
            if (!param(m, ea, key + m.key, depth + 1)) {
                return false;
            }
            key = ",";
        }
        program_.ops[open].jump = static_cast<uint32_t>(add(StructClose, ea, ea.struct_length_field_size, "}"));
        return true;
    }

    bool list(const Param& p, const ZQSomeIPExtendAttr& ea, const std::string& prefix, size_t depth)
    {
        const bool array = p.kind == Param::Array;
        const uint32_t lfs = array ? ea.array_length_field_size : ea.vector_length_field_size;
        if (p.members.size() != 1 || depth >= kMaxDepth || !isFieldSize(lfs)) {
            return false;
        }
        const size_t open = add(array ? ArrayOpen : VectorOpen, ea, lfs, prefix + "[");
        const uint32_t first = static_cast<uint32_t>(program_.ops.size());
        if (!param(p.members[0], ea, "", depth + 1)) {
            return false;
        }
        const size_t next = add(array ? ArrayNext : VectorNext, ea, lfs, "");
        for (const size_t at : {open, next}) {
            program_.ops[at].count = array ? p.count : p.minCount;
            program_.ops[at].maxCount = p.maxCount;
        }
        program_.ops[open].jump = static_cast<uint32_t>(next);
        program_.ops[next].jump = first;
        return true;
    }

    size_t add(Code code, const ZQSomeIPExtendAttr& ea, uint32_t lfs, const std::string& text)
    {
        Op op;
        op.code = code;
        op.little = ea.byte_order == ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN;
        op.lfs = static_cast<uint8_t>(lfs);
        op.text = static_cast<uint32_t>(program_.texts.size());
        op.textSize = static_cast<uint32_t>(text.size());
        program_.texts += text;
        program_.ops.push_back(op);
        return program_.ops.size() - 1;
    }

    ZQSomeIPPlainProgram& program_;
    bool explicit_ = false;
};

std::unique_ptr<const ZQSomeIPPlainProgram> compile(const ZQSomeIPPlainMethod& method)
{
    auto program = std::make_unique<ZQSomeIPPlainProgram>();
    if (!Compiler(*program).method(method) || program->texts.size() > std::numeric_limits<uint32_t>::max()) {
        return nullptr;
    }
    return program;
}

// ---------------------------------------------------------------------------------------------------
// Running: false hands the payload to the reference (something failed, or is to be skipped or warned of
// inside the payload); nothing is ever reported from here.

template <size_t N> struct Word;
template <> struct Word<1> { using type = uint8_t; };
template <> struct Word<2> { using type = uint16_t; };
template <> struct Word<4> { using type = uint32_t; };
template <> struct Word<8> { using type = uint64_t; };

template <typename W> W fromWire(W w, bool little)
{
    if constexpr (sizeof(W) == 1) {
        return w;
    } else {
        return little ? w : sizeof(W) == 2 ? W(__builtin_bswap16(uint16_t(w)))
                                           : sizeof(W) == 4 ? W(__builtin_bswap32(uint32_t(w))) : W(__builtin_bswap64(w));
    }
}

class Runner {
public:
    Runner(const ZQSomeIPPlainProgram& program, const uint8_t* data, size_t size, std::string& out)
        : program_(program), data_(data), size_(size), limit_(size), out_(out)
    {
    }

    // Up to the program's end; `pos` is then where the last parameter ended.
    bool run(size_t& pos)
    {
        const Op* ops = program_.ops.data();
        const char* texts = program_.texts.data();
        for (uint32_t pc = 0;;) {
            const Op& op = ops[pc];
            out_.append(texts + op.text, op.textSize);
            if (op.code <= F64) {
                if (!basic(op)) {
                    return false;
                }
                ++pc;
                continue;
            }
            bool ok = true;
            switch (op.code) {
            case Utf8:
            case Utf16: ok = string(op); ++pc; break;
            case StructOpen:
            case ArrayOpen:
            case VectorOpen: ok = open(op, pc); break;
            case StructClose: ok = close(op); ++pc; break;
            case ArrayNext:
            case VectorNext: ok = next(op, pc); break;
            default: pos = pos_; return true;
            }
            if (!ok) {
                return false;
            }
        }
    }

private:
    struct Frame {
        size_t content = 0;  // where the content starts, after the length field
        uint32_t length = 0; // the length field's value
        uint32_t index = 0;  // elements read
        size_t end = 0;      // vectors: where the content ends
        size_t before = 0;   // vectors: where the element being read started
        size_t limit = 0;    // the enclosing limits, given back on closing
        size_t inner = 0;
    };

    // Whether a value of `n` bytes may be read here: the innermost container with a length field is
    // not used up yet, and no container or the payload ends inside the value.
    bool room(size_t n) const { return pos_ < inner_ && n <= limit_ - pos_; }

    uint32_t peek(size_t at, uint32_t lfs, bool little) const
    {
        uint32_t v = 0;
        for (uint32_t i = 0; i < lfs; ++i) {
            const uint32_t b = data_[at + i];
            v = little ? v | (b << (8 * i)) : (v << 8) | b;
        }
        return v;
    }

    bool basic(const Op& op)
    {
        switch (op.code) {
        case Bool:
            if (!room(1)) {
                return false;
            }
            out_ += (data_[pos_++] & 1u) != 0 ? "true" : "false";  // only the lowest bit counts
            return true;
        case U8: return number<uint8_t>(op);
        case U16: return number<uint16_t>(op);
        case U32: return number<uint32_t>(op);
        case U64: return number<uint64_t>(op);
        case I8: return number<int8_t>(op);
        case I16: return number<int16_t>(op);
        case I32: return number<int32_t>(op);
        case I64: return number<int64_t>(op);
        case F32: return number<float>(op);
        default: return number<double>(op);
        }
    }

    template <typename T> bool number(const Op& op)
    {
        using W = typename Word<sizeof(T)>::type;
        if (!room(sizeof(T))) {
            return false;
        }
        W w;
        memcpy(&w, data_ + pos_, sizeof(w));
        pos_ += sizeof(w);
        w = fromWire(w, op.little);
        T v;
        memcpy(&v, &w, sizeof(v));
        char text[64];
        std::to_chars_result res{};
        if constexpr (std::is_floating_point<T>::value) {
            if (!std::isfinite(v)) {
                return false;  // spelled by the reference
            }
            res = std::to_chars(text, text + sizeof(text), v);
        } else {
            res = std::to_chars(text, text + sizeof(text), v + 0);
        }
        out_.append(text, static_cast<size_t>(res.ptr - text));
        return true;
    }

    bool string(const Op& op)
    {
        if (!room(op.lfs)) {
            return false;
        }
        const uint32_t length = peek(pos_, op.lfs, op.little);
        const size_t at = pos_ + op.lfs;
        if (length > limit_ - at) {
            return false;
        }
        if (!(op.code == Utf8 ? utf8(data_ + at, length) : utf16(data_ + at, length, op.little))) {
            return false;
        }
        pos_ = at + length;
        return true;
    }

    // Mark, text, one zero: nothing else passes the reference.
    bool utf8(const uint8_t* s, uint32_t n)
    {
        if (n < 4 || memcmp(s, BOM_UTF8, sizeof(BOM_UTF8)) != 0 || s[n - 1] != 0) {
            return false;
        }
        const std::string_view text(reinterpret_cast<const char*>(s + 3), n - 4);
        if (memchr(text.data(), 0, text.size()) != nullptr || !plainValidUtf8(text)) {
            return false;
        }
        appendJsonString(out_, text);
        return true;
    }

    // Mark, units, a zero unit; converted as the reference converts them, and held to the same checks.
    bool utf16(const uint8_t* s, uint32_t n, bool little)
    {
        if (n % 2 != 0 || n < 4 || s[n - 2] != 0 || s[n - 1] != 0 ||
            memcmp(s, little ? BOM_UTF16LE : BOM_UTF16BE, 2) != 0) {
            return false;
        }
        std::u16string units((n - 4) / 2, u'\0');
        for (size_t k = 0; k < units.size(); ++k) {
            const uint32_t b0 = s[2 + 2 * k];
            const uint32_t b1 = s[3 + 2 * k];
            units[k] = static_cast<char16_t>(little ? (b0 | (b1 << 8)) : ((b0 << 8) | b1));
            if (units[k] == 0) {
                return false;
            }
        }
        std::string text;
        try {
            text = zq_someip_utf16_to_utf8(units);
        } catch (const std::exception&) {
            return false;
        }
        if (4 + 2 * plainUtf16Units(text) != n || !plainValidUtf8(text)) {
            return false;
        }
        appendJsonString(out_, text);
        return true;
    }

    bool open(const Op& op, uint32_t& pc)
    {
        if (pos_ >= inner_) {
            return false;
        }
        Frame& f = frames_[depth_++];
        f.limit = limit_;
        f.inner = inner_;
        f.index = 0;
        f.length = 0;
        const size_t begin = pos_;
        if (op.lfs > 0) {
            if (op.lfs > limit_ - pos_) {
                return false;
            }
            f.length = peek(pos_, op.lfs, op.little);
            pos_ += op.lfs;
            inner_ = pos_ + f.length;
            limit_ = std::min(limit_, inner_);
        }
        f.content = pos_;
        if (op.code == StructOpen) {
            ++pc;
            return true;
        }
        if (op.code == ArrayOpen) {
            // The reference's bound on elements that could take no bytes.
            if (op.count > (size_ - pos_) + (uint64_t{1} << 16)) {
                return false;
            }
            return op.count == 0 ? endList(op, pc = op.jump) : (++pc, true);
        }
        f.end = begin + op.lfs + f.length;
        if (f.end > size_) {
            return false;
        }
        f.before = pos_;
        return pos_ >= f.end ? endList(op, pc = op.jump) : (++pc, true);
    }

    // The content must be what the length field says (a struct with more goes to the reference, which
    // skips and warns).
    bool close(const Op& op)
    {
        const Frame& f = frames_[--depth_];
        if (op.lfs > 0 && pos_ - f.content != f.length) {
            return false;
        }
        limit_ = f.limit;
        inner_ = f.inner;
        return true;
    }

    // After an element: the next one, or the list's end.
    bool next(const Op& op, uint32_t& pc)
    {
        Frame& f = frames_[depth_ - 1];
        if (op.code == VectorNext && pos_ == f.before) {
            return false;  // elements that take no bytes never use the content up
        }
        ++f.index;
        const bool more = op.code == ArrayNext ? f.index < op.count : pos_ < f.end;
        if (more) {
            out_ += ',';
            f.before = pos_;
            pc = op.jump;
            return true;
        }
        return endList(op, pc);
    }

    // `pc` is the list's closing op.
    bool endList(const Op& op, uint32_t& pc)
    {
        const Frame& f = frames_[depth_ - 1];
        if (op.code != ArrayOpen && op.code != ArrayNext && (f.index < op.count || f.index > op.maxCount)) {
            return false;
        }
        out_ += ']';
        ++pc;
        return close(op);
    }

    const ZQSomeIPPlainProgram& program_;
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
    size_t limit_;
    size_t inner_ = std::numeric_limits<size_t>::max();
    std::string& out_;
    std::array<Frame, kMaxDepth> frames_;
    size_t depth_ = 0;
};

const ZQSomeIPPlainProgram* programOf(const ZQSomeIPPlainMethod& method)
{
    ZQSomeIPPlainProgramCache* cache = method.fastDecoder.get();
    if (cache == nullptr || cache->owner != &method) {
        return nullptr;
    }
    std::call_once(cache->once, [cache] { cache->program = compile(*cache->owner); });
    return cache->program.get();
}

} // namespace

void attachPlainProgram(ZQSomeIPPlainMethod& method)
{
    method.fastDecoder = std::make_shared<ZQSomeIPPlainProgramCache>();
    method.fastDecoder->owner = &method;
}

bool plainProgramDecode(const ZQSomeIPPlainMethod& method, const uint8_t* payload, size_t size, std::string& json,
                        const ZQSomeIPPlainOptions& options, ZQSomeIPPlainStatus& status)
{
    const ZQSomeIPPlainProgram* program = options.pretty || size > 0xFFFFFFFFu ? nullptr : programOf(method);
    if (program == nullptr) {
        return false;
    }
    // The text is built apart (json is written only on success); the buffers trade places afterwards,
    // so a caller that reuses its string does not allocate for every message. Bytes after the last
    // parameter (a warning, or an error when strict) are left to the reference as well.
    thread_local std::string text;
    text.clear();
    size_t end = 0;
    try {
        if (!Runner(*program, payload, size, text).run(end) || end != size) {
            return false;
        }
    } catch (const std::exception&) {
        return false;  // out of memory: the reference reports it its own way
    }
    json.swap(text);
    status = ZQSomeIPPlainStatus();
    return true;
}

} // namespace ZQSomeIP
