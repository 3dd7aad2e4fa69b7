// The plain decoder's fast path: the compiler from a method format to a flat program, the loop that runs
// it over the payload, and the per-method cache (see the header for what it takes and what it leaves).
//
// Why the subset is exact: without alignment the engines never pad, and every byte the reader takes
// counts against each open container with a length field, so the reader's bookkeeping reduces to two
// positions: the end of the innermost such container (a read or a container may not start there: the
// reader calls it full) and the nearest end of any of them or of the payload (no read may pass it).
#include "ZQSomeIPPlainProgram.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <exception>
#include <limits>
#include <type_traits>
#include <vector>

#include "ZQSomeIPJsonText.h"
#include "ZQSomeIPPlainProgramOps.h"
#include "someip/ZQSomeIPPayloadFrameRules.h"
#include "someip/ZQSomeIPPayloadUtf16.h"

namespace ZQSomeIP {

namespace {

using Param = ZQSomeIPPlainParam;
using Rules = ZQSomeIPPayloadFrameRules;
using namespace program;

bool isFieldSize(uint32_t size) { return size == 0 || Rules::is_field_size(size); }

} // namespace

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
        if (p.explicitAttr != explicit_ || ea.alignment > 1) {
            return false;
        }
        switch (p.kind) {
        case Param::String: return string(p, ea, prefix);
        case Param::Structure: return structure(p, ea, prefix, depth);
        case Param::Array:
        case Param::Vector: return list(p, ea, prefix, depth);
        case Param::Union: return false;
        default: break;
        }
        Op& op = program_.ops[add(Code(p.kind), ea, 0, prefix)];
        op.param = &p;
        // A bool is read as a bool whatever else its parameter says.
        op.special = p.kind != Param::Bool && (p.bitfield || !p.enumerators.empty() || p.scaled);
        return true;
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
    program->texts.append(16, '\0');  // literals are copied in blocks of 16 bytes
    return program;
}

// ---------------------------------------------------------------------------------------------------
// Running: false hands the payload to the reference (something failed, or is to be skipped or warned of
// inside the payload); nothing is ever reported from here.

// The text under construction: written through a cursor into the string's own storage, which is kept
// a little longer than what is written and cut to size at the end.
class Out {
public:
    explicit Out(std::string& s) : s_(s) { at(s.size()); }
    ~Out() { s_.resize(size()); }

    void need(size_t n)
    {
        if (static_cast<size_t>(end_ - p_) < n) {
            grow(n);
        }
    }
    // A literal of the program: its texts are padded, so whole 16-byte blocks may be copied.
    void literal(const char* t, size_t n)
    {
        need(n + 16);
        for (size_t i = 0; i < n; i += 16) {
            memcpy(p_ + i, t + i, 16);
        }
        p_ += n;
    }
    void put(char c)
    {
        need(1);
        *p_++ = c;
    }
    char* cursor() { return p_; }
    void advance(char* to) { p_ = to; }
    // Text written by a function that appends to a std::string: into a scratch string, then copied
    // (the output itself would have to be cut to size and lengthened again around every call).
    template <typename Write> void through(Write write)
    {
        scratch_.clear();
        write(scratch_);
        need(scratch_.size());
        memcpy(p_, scratch_.data(), scratch_.size());
        p_ += scratch_.size();
    }

private:
    size_t size() const { return static_cast<size_t>(p_ - s_.data()); }
    __attribute__((noinline)) void grow(size_t n)
    {
        const size_t used = size();
        s_.resize(used + n + 256);
        at(used);
    }
    void at(size_t used)
    {
        p_ = &s_[0] + used;
        end_ = &s_[0] + s_.size();
    }

    std::string& s_;
    std::string scratch_;
    char* p_ = nullptr;
    char* end_ = nullptr;
};

// Decimal integers, as std::to_chars writes them: two digits at a time from a table, a long number cut
// into independent parts of four and eight digits so that their divisions need not wait for each other.
constexpr char kPairs[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                          "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                          "8081828384858687888990919293949596979899";

inline __attribute__((always_inline)) char* pair(char* p, uint32_t v)
{
    memcpy(p, kPairs + 2 * v, 2);
    return p + 2;
}

inline __attribute__((always_inline)) char* fourDigits(char* p, uint32_t v) { return pair(pair(p, v / 100), v % 100); }
inline __attribute__((always_inline)) char* eightDigits(char* p, uint32_t v) { return fourDigits(fourDigits(p, v / 10000), v % 10000); }

// 1 to 4 digits, no leading zeros.
inline __attribute__((always_inline)) char* upTo4(char* p, uint32_t v)
{
    if (v < 100) {
        return v < 10 ? (*p = static_cast<char>('0' + v), p + 1) : pair(p, v);
    }
    const uint32_t hi = v / 100;
    return pair(hi < 10 ? (*p = static_cast<char>('0' + hi), p + 1) : pair(p, hi), v % 100);
}

// 1 to 8 digits, no leading zeros.
inline __attribute__((always_inline)) char* upTo8(char* p, uint32_t v) { return v < 10000 ? upTo4(p, v) : fourDigits(upTo4(p, v / 10000), v % 10000); }

inline __attribute__((always_inline)) char* decimal(char* p, uint64_t v)
{
    constexpr uint64_t k8 = 100000000;
    if (v < k8) {
        return upTo8(p, static_cast<uint32_t>(v));
    }
    if (v < k8 * k8) {
        return eightDigits(upTo8(p, static_cast<uint32_t>(v / k8)), static_cast<uint32_t>(v % k8));
    }
    const uint64_t high = v / k8;  // at most 12 digits
    return eightDigits(eightDigits(upTo4(p, static_cast<uint32_t>(high / k8)), static_cast<uint32_t>(high % k8)),
                       static_cast<uint32_t>(v % k8));
}

template <typename T> char* integer(char* p, T v)
{
    if constexpr (std::is_signed<T>::value) {
        if (v < 0) {
            *p++ = '-';
            return decimal(p, uint64_t(0) - static_cast<uint64_t>(static_cast<int64_t>(v)));
        }
    }
    return decimal(p, static_cast<uint64_t>(v));
}

class Runner {
public:
    Runner(const ZQSomeIPPlainProgram& program, const uint8_t* data, size_t size, const ZQSomeIPPlainOptions& options,
           std::string& out)
        : program_(program), options_(options), data_(data), size_(size), limit_(size), out_(out)
    {
    }

    // Up to the program's end; `pos` is then where the last parameter ended.
    bool run(size_t& pos)
    {
        const Op* ops = program_.ops.data();
        const char* texts = program_.texts.data();
        for (uint32_t pc = 0;;) {
            const Op& op = ops[pc];
            out_.literal(texts + op.text, op.textSize);
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
    struct Frame {          // set by open(): left uninitialised, most programs use few
        size_t content;     // where the content starts, after the length field
        uint32_t length;    // the length field's value
        uint32_t index;     // elements read
        size_t end;         // vectors: where the content ends
        size_t before;      // vectors: where the element being read started
        size_t limit;       // the enclosing limits, given back on closing
        size_t inner;
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
        case Bool: return boolean();
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

    bool boolean()
    {
        if (!room(1)) {
            return false;
        }
        const bool on = (data_[pos_++] & 1u) != 0;  // only the lowest bit counts
        // Padded to the 16 bytes a literal is copied in.
        out_.literal(on ? "true\0\0\0\0\0\0\0\0\0\0\0\0" : "false\0\0\0\0\0\0\0\0\0\0\0", on ? 4 : 5);
        return true;
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
        w = wireOrder(w, op.little);
        T v;
        memcpy(&v, &w, sizeof(v));
        bool reference = op.special;
        if constexpr (std::is_floating_point<T>::value) {
            reference = reference || !std::isfinite(v);
        }
        if (reference) {
            const uint64_t bits = w;
            out_.through([&](std::string& s) { plainBasicText(s, *op.param, options_, bits); });
            return true;
        }
        out_.need(64);
        char* text = out_.cursor();
        std::to_chars_result res{};
        if constexpr (std::is_floating_point<T>::value) {
            res = std::to_chars(text, text + 64, v);
        } else {
            res.ptr = integer(text, v);
        }
        out_.advance(res.ptr);
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
        out_.through([&text](std::string& s) { appendJsonString(s, text); });
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
        out_.through([&text](std::string& s) { appendJsonString(s, text); });
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
            out_.put(',');
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
        out_.put(']');
        ++pc;
        return close(op);
    }

    const ZQSomeIPPlainProgram& program_;
    const ZQSomeIPPlainOptions& options_;
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
    size_t limit_;
    size_t inner_ = std::numeric_limits<size_t>::max();
    Out out_;
    Frame frames_[kMaxDepth];
    size_t depth_ = 0;
};

} // namespace

const ZQSomeIPPlainProgram* program::programOf(const ZQSomeIPPlainMethod& method)
{
    ZQSomeIPPlainProgramCache* cache = method.fastDecoder.cache.get();
    if (cache == nullptr || cache->owner != &method) {
        return nullptr;
    }
    std::call_once(cache->once, [cache] { cache->program = compile(*cache->owner); });
    return cache->program.get();
}

void attachPlainProgram(ZQSomeIPPlainMethod& method)
{
    method.fastDecoder.cache = std::make_shared<ZQSomeIPPlainProgramCache>();
    method.fastDecoder.cache->owner = &method;
}

bool plainProgramDecode(const ZQSomeIPPlainMethod& method, const uint8_t* payload, size_t size, std::string& json,
                        const ZQSomeIPPlainOptions& options, ZQSomeIPPlainStatus& status)
{
    const ZQSomeIPPlainProgram* compiled = options.pretty || size > 0xFFFFFFFFu ? nullptr : programOf(method);
    if (compiled == nullptr) {
        return false;
    }
    // The text is written after what `json` holds, and that is cut away on success or the text on
    // failure (json is written only on success): a caller that reuses its string keeps its buffer. A
    // payload inside that buffer could move when it grows: left to the reference.
    const auto text = reinterpret_cast<uintptr_t>(json.data());
    const auto bytes = reinterpret_cast<uintptr_t>(payload);
    if (size > 0 && bytes < text + json.capacity() && text < bytes + size) {
        return false;
    }
    const size_t mark = json.size();
    bool taken = false;
    try {
        json.reserve(mark + 64 + size * 4);
        size_t end = 0;
        taken = Runner(*compiled, payload, size, options, json).run(end) && end == size;
    } catch (const std::exception&) {
        // out of memory: the reference reports it its own way
    }
    if (!taken) {
        json.resize(mark);
        return false;
    }
    json.erase(0, mark);
    status = ZQSomeIPPlainStatus();
    return true;
}

} // namespace ZQSomeIP
