// The plain encoder's fast path: the method's compiled program (the one the decoder runs) run over the
// JSON text in one pass, straight to the payload bytes.
//
// The program's literals are the text the decoder writes around the values, so a document in that
// form (members in format order, compact or with blanks between tokens) is read by comparing it with
// them. Anything else -- another member order, a missing or unknown member, an escape in a string, a
// number its type does not hold, a value of the wrong kind, text after the document, anything that
// would fail -- hands the whole call to the reference encoder, which then gives its own result. So
// every payload written here is one the reference writes from the same text: without alignment the
// writer never pads, and a payload is the values' bytes with each length field patched on closing.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <exception>
#include <type_traits>

#include "ZQSomeIPPlainProgram.h"
#include "ZQSomeIPPlainProgramOps.h"
#include "someip/ZQSomeIPPayloadUtf16.h"

namespace ZQSomeIP {

namespace {

using namespace program;

// Text longer than this is left to the reference: its payload (at most a few times the text) stays
// far below the 4 GiB the writer counts in.
constexpr size_t kMaxText = size_t(1) << 28;

// The thread's payload buffer is kept for the next call up to this size.
constexpr size_t kKeptBuffer = size_t(1) << 20;

bool blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// The payload under construction, in a buffer of the thread's that only grows.
class Bytes {
public:
    explicit Bytes(std::vector<uint8_t>& buffer) : buffer_(buffer) { at(0); }

    size_t size() const { return static_cast<size_t>(p_ - buffer_.data()); }
    uint8_t* reserve(size_t n)
    {
        if (static_cast<size_t>(end_ - p_) < n) {
            grow(n);
        }
        uint8_t* out = p_;
        p_ += n;
        return out;
    }
    void put(const void* data, size_t n) { memcpy(reserve(n), data, n); }
    uint8_t* written(size_t offset) { return buffer_.data() + offset; }

private:
    __attribute__((noinline)) void grow(size_t n)
    {
        const size_t used = size();
        buffer_.resize(std::max(buffer_.size() * 2, used + n + 256));
        at(used);
    }
    void at(size_t used)
    {
        p_ = buffer_.data() + used;
        end_ = buffer_.data() + buffer_.size();
    }

    std::vector<uint8_t>& buffer_;
    uint8_t* p_ = nullptr;
    uint8_t* end_ = nullptr;
};

// A length field of `lfs` bytes holding `value`, in the given byte order.
void putField(uint8_t* out, uint32_t lfs, uint32_t value, bool little)
{
    if (lfs == 1) {
        *out = static_cast<uint8_t>(value);
    } else if (lfs == 2) {
        const uint16_t w = wireOrder(static_cast<uint16_t>(value), little);
        memcpy(out, &w, 2);
    } else {
        const uint32_t w = wireOrder(value, little);
        memcpy(out, &w, 4);
    }
}

class Runner {
public:
    Runner(const ZQSomeIPPlainProgram& program, std::string_view json, std::vector<uint8_t>& buffer)
        : program_(program), p_(json.data()), end_(json.data() + json.size()), out_(buffer)
    {
    }

    // The whole text, up to the program's end and the blanks after it; `size` is then the payload's.
    bool run(size_t& size)
    {
        const Op* ops = program_.ops.data();
        for (uint32_t pc = 0;;) {
            const Op& op = ops[pc];
            if (!literal(program_.texts.data() + op.text, op.textSize)) {
                return false;
            }
            bool ok = true;
            switch (op.code) {
            case Bool: ok = boolean(); ++pc; break;
            case U8: ok = value<uint8_t>(op); ++pc; break;
            case U16: ok = value<uint16_t>(op); ++pc; break;
            case U32: ok = value<uint32_t>(op); ++pc; break;
            case U64: ok = value<uint64_t>(op); ++pc; break;
            case I8: ok = value<int8_t>(op); ++pc; break;
            case I16: ok = value<int16_t>(op); ++pc; break;
            case I32: ok = value<int32_t>(op); ++pc; break;
            case I64: ok = value<int64_t>(op); ++pc; break;
            case F32: ok = value<float>(op); ++pc; break;
            case F64: ok = value<double>(op); ++pc; break;
            case Utf8:
            case Utf16: ok = string(op); ++pc; break;
            case StructOpen: open(op); ++pc; break;
            case StructClose: ok = close(op); ++pc; break;
            case ArrayOpen:
            case VectorOpen: ok = openList(op, pc); break;
            case ArrayNext:
            case VectorNext: ok = next(op, pc); break;
            case Done: size = out_.size(); return skipBlanks() == end_;
            }
            if (!ok) {
                return false;
            }
        }
    }

private:
    struct Frame {
        size_t start;    // where the container starts in the payload (its length field, if any)
        uint32_t count;  // lists: the elements read
    };

    const char* skipBlanks()
    {
        while (p_ != end_ && blank(*p_)) {
            ++p_;
        }
        return p_;
    }

    // The literal as the decoder writes it, or with blanks between its tokens.
    bool literal(const char* t, size_t n)
    {
        const size_t left = static_cast<size_t>(end_ - p_);
        if (left >= n + 16 ? same(t, n) : left >= n && memcmp(p_, t, n) == 0) {
            p_ += n;
            return true;
        }
        bool inString = false;
        for (size_t i = 0; i < n; ++i) {
            if (!inString) {
                skipBlanks();
            }
            if (p_ == end_ || *p_ != t[i]) {
                return false;
            }
            if (t[i] == '\\' && inString) {  // an escape in a key: its next character is taken as it is
                if (++i == n || ++p_ == end_ || *p_ != t[i]) {
                    return false;
                }
            } else if (t[i] == '"') {
                inString = !inString;
            }
            ++p_;
        }
        return true;
    }

    // The next `n` bytes of the text equal the literal `t`, compared in blocks of 16 (the program's
    // texts are padded for it; the caller makes sure the text has 16 bytes more than `n`).
    bool same(const char* t, size_t n) const
    {
        for (size_t i = 0;; i += 16) {
            unsigned __int128 a, b;
            memcpy(&a, p_ + i, 16);
            memcpy(&b, t + i, 16);
            const size_t left = n - i;
            if (left <= 16) {
                const unsigned __int128 mask = left == 16 ? ~(unsigned __int128)0 : ((unsigned __int128)1 << (8 * left)) - 1;
                return ((a ^ b) & mask) == 0;
            }
            if (a != b) {
                return false;
            }
        }
    }

    bool word(const char* w, size_t n)
    {
        if (static_cast<size_t>(end_ - p_) < n || memcmp(p_, w, n) != 0) {
            return false;
        }
        p_ += n;
        return true;
    }

    bool boolean()
    {
        skipBlanks();
        const bool on = word("true", 4);
        if (!on && !word("false", 5)) {
            return false;
        }
        *out_.reserve(1) = on ? 1 : 0;
        return true;
    }

    template <typename T> void put(T v, bool little)
    {
        typename Word<sizeof(T)>::type w;
        memcpy(&w, &v, sizeof(w));
        w = wireOrder(w, little);
        out_.put(&w, sizeof(w));
    }

    // A JSON number from `p_` (skipped), with a fraction or exponent only where `fractions` allows one.
    bool number(bool fractions)
    {
        const auto digits = [this] {
            const char* start = p_;
            while (p_ != end_ && *p_ >= '0' && *p_ <= '9') {
                ++p_;
            }
            return static_cast<size_t>(p_ - start);
        };
        if (p_ != end_ && *p_ == '-') {
            ++p_;
        }
        const char* integral = p_;
        const size_t n = digits();
        if (n == 0 || (n > 1 && *integral == '0')) {
            return false;
        }
        if (p_ != end_ && *p_ == '.') {
            ++p_;
            if (!fractions || digits() == 0) {
                return false;
            }
        }
        if (p_ != end_ && (*p_ == 'e' || *p_ == 'E')) {
            ++p_;
            if (p_ != end_ && (*p_ == '+' || *p_ == '-')) {
                ++p_;
            }
            if (!fractions || digits() == 0) {
                return false;
            }
        }
        return true;
    }

    // A number its type holds: integers written as such, floats as a finite value (from_chars rounds
    // as strtod does; what it calls out of range is left to the reference). A special parameter
    // (enumerators, bit fields, a scale) is left to the reference whole.
    template <typename T> bool value(const Op& op)
    {
        constexpr bool floating = std::is_floating_point<T>::value;
        const char* first = skipBlanks();
        if (op.special || !number(floating)) {
            return false;
        }
        T v{};
        const auto res = std::from_chars(first, p_, v);
        if (res.ec != std::errc() || res.ptr != p_) {
            return false;
        }
        if constexpr (floating) {
            if (!std::isfinite(v)) {
                return false;
            }
        }
        put(v, op.little);
        return true;
    }

    // A string without escapes: mark, text, terminator, behind its length field.
    bool string(const Op& op)
    {
        skipBlanks();
        if (p_ == end_ || *p_ != '"') {
            return false;
        }
        const char* first = ++p_;
        while (p_ != end_ && *p_ != '"' && *p_ != '\\' && *p_ != '\0') {
            ++p_;
        }
        if (p_ == end_ || *p_ != '"') {
            return false;
        }
        const std::string_view text(first, static_cast<size_t>(p_ - first));
        ++p_;
        if (!plainValidUtf8(text)) {
            return false;
        }
        if (op.code == Utf16) {
            return utf16(op, text);
        }
        if (4 + uint64_t(text.size()) > plainLengthCapacity(op.lfs)) {
            return false;
        }
        uint8_t* at = out_.reserve(op.lfs + 3 + text.size() + 1);
        putField(at, op.lfs, static_cast<uint32_t>(4 + text.size()), op.little);
        memcpy(at + op.lfs, BOM_UTF8, 3);
        memcpy(at + op.lfs + 3, text.data(), text.size());
        at[op.lfs + 3 + text.size()] = 0;
        return true;
    }

    bool utf16(const Op& op, std::string_view text)
    {
        std::u16string units;
        try {
            units = zq_someip_utf8_to_utf16(std::string(text));
        } catch (const std::exception&) {
            return false;
        }
        const uint64_t length = 4 + 2 * uint64_t(units.size());
        if (length > plainLengthCapacity(op.lfs)) {
            return false;
        }
        uint8_t* at = out_.reserve(op.lfs + length);
        putField(at, op.lfs, static_cast<uint32_t>(length), op.little);
        at += op.lfs;
        memcpy(at, op.little ? BOM_UTF16LE : BOM_UTF16BE, 2);
        at += 2;
        for (const char16_t unit : units) {
            const uint16_t w = wireOrder(static_cast<uint16_t>(unit), op.little);
            memcpy(at, &w, 2);
            at += 2;
        }
        at[0] = at[1] = 0;
        return true;
    }

    void open(const Op& op)
    {
        Frame& f = frames_[depth_++];
        f.start = out_.size();
        f.count = 0;
        out_.reserve(op.lfs);
    }

    // The length field, if any: what the content came to, if it fits.
    bool close(const Op& op)
    {
        const Frame& f = frames_[--depth_];
        if (op.lfs == 0) {
            return true;
        }
        const uint64_t length = out_.size() - f.start - op.lfs;
        if (length > plainLengthCapacity(op.lfs)) {
            return false;
        }
        putField(out_.written(f.start), op.lfs, static_cast<uint32_t>(length), op.little);
        return true;
    }

    bool openList(const Op& op, uint32_t& pc)
    {
        open(op);
        if (skipBlanks() != end_ && *p_ == ']') {
            ++p_;
            return endList(op, pc = op.jump);
        }
        ++pc;
        return true;
    }

    // After an element: the next one, or the list's end.
    bool next(const Op& op, uint32_t& pc)
    {
        Frame& f = frames_[depth_ - 1];
        ++f.count;
        if (skipBlanks() == end_) {
            return false;
        }
        if (*p_ == ',') {
            ++p_;
            pc = op.jump;
            return true;
        }
        if (*p_ != ']') {
            return false;
        }
        ++p_;
        return endList(op, pc);
    }

    // `pc` is the list's closing op.
    bool endList(const Op& op, uint32_t& pc)
    {
        const uint32_t count = frames_[depth_ - 1].count;
        const bool array = op.code == ArrayOpen || op.code == ArrayNext;
        if (array ? count != op.count : count < op.count || count > op.maxCount) {
            return false;
        }
        ++pc;
        return close(op);
    }

    const ZQSomeIPPlainProgram& program_;
    const char* p_;
    const char* end_;
    Bytes out_;
    Frame frames_[kMaxDepth];
    size_t depth_ = 0;
};

} // namespace

bool plainProgramEncode(const ZQSomeIPPlainMethod& method, std::string_view json, std::vector<uint8_t>& payload,
                        ZQSomeIPPlainStatus& status)
{
    const ZQSomeIPPlainProgram* compiled = json.size() > kMaxText ? nullptr : programOf(method);
    if (compiled == nullptr) {
        return false;
    }
    thread_local std::vector<uint8_t> buffer;
    size_t size = 0;
    bool taken = false;
    try {
        taken = Runner(*compiled, json, buffer).run(size);
        if (taken) {
            payload.assign(buffer.data(), buffer.data() + size);  // leaves `payload` as it was if it throws
        }
    } catch (const std::exception&) {
        taken = false;  // out of memory: the reference reports it its own way
    }
    if (buffer.size() > kKeptBuffer) {
        std::vector<uint8_t>().swap(buffer);
    }
    if (taken) {
        status = ZQSomeIPPlainStatus();
    }
    return taken;
}

} // namespace ZQSomeIP
