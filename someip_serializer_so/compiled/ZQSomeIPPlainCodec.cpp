// Plain decode and encode over the payload engines: the reader and the writer apply the wire rules
// (attributes, alignment, length fields, byte order) exactly as the classic converters do, so a
// value reads the same through either API; this file adds the plain JSON form and the strict checks.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <locale.h>

#include "ZQSomeIPPlainCodec.h"
#include "ZQSomeIPJsonText.h"
#include "ZQSomeIPLightJson.h"
#include "ZQSomeIPPlainProgram.h"
#include "ZQSomeIPUtf8.h"
#include "someip/ZQSomeIPPayloadDeserializerGeneral.h"
#include "someip/ZQSomeIPPayloadSerializerGeneral.h"
#include "someip/ZQSomeIPPayloadUtf16.h"

namespace ZQSomeIP {

namespace {

using Param = ZQSomeIPPlainParam;
using Error = ZQSomeIPPlainError;
using Reader = ZQSomeIPPayloadDeserializerGeneral;
using Writer = ZQSomeIPPayloadSerializerGeneral;
using Json = ZQSomeIPLightJson;

const char* const kKindNames[] = {"bool", "uint8_t", "uint16_t", "uint32_t", "uint64_t", "int8_t", "int16_t",
                                  "int32_t", "int64_t", "float", "double", "string", "struct", "array", "vector",
                                  "union"};

uint32_t* lengthFieldSizeOf(Param::Kind kind, ZQSomeIPExtendAttr& a)
{
    switch (kind) {
    case Param::Structure: return &a.struct_length_field_size;
    case Param::Array: return &a.array_length_field_size;
    case Param::Vector: return &a.vector_length_field_size;
    case Param::String: return &a.string_length_field_size;
    case Param::Union: return &a.union_length_field_size;
    default: return nullptr;
    }
}

uint32_t lengthFieldSize(Param::Kind kind, const ZQSomeIPExtendAttr& a)
{
    const uint32_t* size = lengthFieldSizeOf(kind, const_cast<ZQSomeIPExtendAttr&>(a));
    return size == nullptr ? 0 : *size;
}

bool isBasic(const Param& p) { return p.kind <= Param::Double; }

// The array frame a string of its own rules travels in (see ownStringRules): outside TLV a fixed
// string has no length field; inside, the TLV one stands in the string's length field size.
ZQSomeIPExtendAttr blockFrame(const Param& p, const ZQSomeIPExtendAttr& ea, bool tlvMember)
{
    ZQSomeIPExtendAttr block = ea;
    block.array_length_field_size = p.fixedLength > 0 && !tlvMember ? 0 : ea.string_length_field_size;
    return block;
}

// Bytes that bring `offset` to a multiple of `alignment` (in bytes; 1 means none).
size_t alignPadding(size_t offset, uint32_t alignment)
{
    return alignment <= 1 ? 0 : (alignment - offset % alignment) % alignment;
}

// The engines' union frame pads after every value and before every container inside it, each engine
// in its own way; a union has one member, padded once after it. So the frame is opened without
// alignment and the codec pads the member itself.
ZQSomeIPExtendAttr unionFrame(const ZQSomeIPExtendAttr& ea)
{
    ZQSomeIPExtendAttr u = ea;
    u.alignment = ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE;
    return u;
}

// Bytes of a basic value: its TLV wire type is the power of two.
uint32_t basicWidth(Param::Kind k)
{
    switch (k) {
    case Param::Bool: case Param::UInt8: case Param::Int8: return 1;
    case Param::UInt16: case Param::Int16: return 2;
    case Param::UInt32: case Param::Int32: case Param::Float: return 4;
    default: return 8;
    }
}

uint32_t wireTypeOfWidth(uint32_t width) { return width == 1 ? 0 : width == 2 ? 1 : width == 4 ? 2 : 3; }

// The length field size TLV wire types 5, 6 and 7 name.
uint32_t lengthFieldSizeOfWireType(uint32_t wireType) { return wireType == 5 ? 1u : wireType == 6 ? 2u : 4u; }


// The enumerator naming a raw value (64-bit image; signed types compare as signed), or null.
const ZQSomeIPPlainEnumerator* enumeratorOf(const std::vector<ZQSomeIPPlainEnumerator>& list, uint64_t raw, bool isSigned)
{
    for (const ZQSomeIPPlainEnumerator& e : list) {
        const bool in = isSigned ? static_cast<int64_t>(raw) >= static_cast<int64_t>(e.first) &&
                                       static_cast<int64_t>(raw) <= static_cast<int64_t>(e.last)
                                 : raw >= e.first && raw <= e.last;
        if (in) {
            return &e;
        }
    }
    return nullptr;
}

const ZQSomeIPPlainEnumerator* enumeratorNamed(const std::vector<ZQSomeIPPlainEnumerator>& list, std::string_view name)
{
    for (const ZQSomeIPPlainEnumerator& e : list) {
        if (e.name == name) {
            return &e;
        }
    }
    return nullptr;
}

uint64_t fieldMask(uint32_t width) { return width >= 64 ? ~uint64_t(0) : (uint64_t(1) << width) - 1; }

void appendNumber(std::string& out, uint64_t raw, bool isSigned)
{
    char text[32];
    const auto res = isSigned ? std::to_chars(text, text + sizeof(text), static_cast<int64_t>(raw))
                              : std::to_chars(text, text + sizeof(text), raw);
    out.append(text, static_cast<size_t>(res.ptr - text));
}

// A length field of `size` bytes at `at`, in the attributes' byte order.
uint32_t peekLength(const uint8_t* data, size_t at, uint32_t size, const ZQSomeIPExtendAttr& a)
{
    uint32_t v = 0;
    for (uint32_t i = 0; i < size; ++i) {
        const uint32_t b = data[at + i];
        v = a.byte_order == ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN ? v | (b << (8 * i)) : (v << 8) | b;
    }
    return v;
}

} // namespace

uint64_t plainLengthCapacity(uint32_t fieldSize)
{
    return fieldSize == 1 ? 0xFFu : fieldSize == 2 ? 0xFFFFu : 0xFFFFFFFFu;
}

// Strings that the engines' string rules do not describe: a fixed length, no byte order mark or
// terminator, or UTF-16 in another order than the element's numbers. They travel as a byte block
// (inside a length-delimited container) that this file reads and writes itself.
bool plainOwnStringRules(const ZQSomeIPPlainParam& p, const ZQSomeIPExtendAttr& a)
{
    return p.explicitAttr && (p.fixedLength > 0 || !p.stringBom || !p.stringTerminator ||
           (a.string_utf == ZQ_SOMEIP_PAYLOAD_STRING_UTF16 && p.stringUtf16ByteOrder != a.byte_order));
}

bool plainValidUtf8(std::string_view s) { return utf8ValidPrefix(s) == s.size(); }

size_t plainUtf16Units(std::string_view s)
{
    size_t units = 0;
    for (const char c : s) {
        const auto u = static_cast<unsigned char>(c);
        if ((u & 0xC0) != 0x80) {
            units += (u >= 0xF0) ? 2 : 1;
        }
    }
    return units;
}

namespace {

locale_t cLocale()
{
    static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return c;
}

// Where the walk is, kept as a stack of names and indices and spelled out only for a message. Every
// value pushes and pops a part, so the stack only grows its storage and never gives it back.
class Where {
public:
    Where() : parts_(16) {}
    void push(const std::string& name) { put({&name, 0}); }
    void push(uint32_t index) { put({nullptr, index}); }
    void pop() { --depth_; }
    // "a.b[2].c", with `root` in front ("$" for JSON paths; nothing for decode messages).
    std::string text(const char* root) const
    {
        std::string out = root;
        for (size_t i = 0; i < depth_; ++i) {
            const Part& part = parts_[i];
            if (part.name == nullptr) {
                out += '[' + std::to_string(part.index) + ']';
            } else {
                if (!out.empty()) {
                    out += '.';
                }
                out += *part.name;
            }
        }
        return out;
    }

private:
    struct Part {
        const std::string* name;
        uint32_t index;
    };
    void put(Part part)
    {
        if (depth_ == parts_.size()) {
            grow();
        }
        parts_[depth_++] = part;
    }
    __attribute__((noinline)) void grow() { parts_.resize(parts_.size() * 2); }
    std::vector<Part> parts_;
    size_t depth_ = 0;
};

// How a basic value of a parameter with enumerators, bit fields or a scale, or a non-finite float, is
// written: shared by the decoder and (through plainBasicText) the compiled program.
class NumberText {
public:
    NumberText(std::string& out, const ZQSomeIPPlainOptions& options) : out_(out), options_(options) {}

    // Enumerated, bit field and scaled numbers. Kept out of line: most numbers are plain, and the
    // number readers stay small enough to be inlined where values are dispatched.
    template <typename T>
    __attribute__((noinline)) bool special(const Param& p, T v)
    {
        if constexpr (std::is_floating_point<T>::value) {
            scaledValue(p, static_cast<double>(v), [this, v] { raw(v); });
        } else {
            using Wide = typename std::conditional<std::is_signed<T>::value, int64_t, uint64_t>::type;
            const uint64_t bits = static_cast<uint64_t>(static_cast<Wide>(v));
            constexpr bool isSigned = std::is_signed<T>::value;
            if (p.bitfield) {
                out_ += '{';
                for (const ZQSomeIPPlainBit& b : p.bits) {
                    out_ += b.key;
                    const uint64_t field = (bits >> b.bit) & fieldMask(b.width);
                    if (!b.enumerators.empty()) {
                        enumerated(b.enumerators, field, false, [this, field] { appendNumber(out_, field, false); });
                    } else if (b.width == 1) {
                        out_ += field != 0 ? "true" : "false";
                    } else {
                        appendNumber(out_, field, false);
                    }
                    out_ += ',';
                }
                out_ += "\"$raw\":";
                appendNumber(out_, bits, false);
                out_ += '}';
                return true;
            }
            auto number = [this, &p, bits] {
                if (p.scaled) {
                    const double x = isSigned ? static_cast<double>(static_cast<int64_t>(bits)) : static_cast<double>(bits);
                    scaledValue(p, x, [this, bits] { appendNumber(out_, bits, isSigned); });
                } else {
                    appendNumber(out_, bits, isSigned);
                }
            };
            if (!p.enumerators.empty()) {
                enumerated(p.enumerators, bits, isSigned, number);
            } else {
                number();
            }
        }
        return true;
    }

    template <typename T>
    void raw(T v)
    {
        if (!std::isfinite(v)) {
            nonFinite(v);
            return;
        }
        char text[64];
        const auto res = std::to_chars(text, text + sizeof(text), v);
        out_.append(text, static_cast<size_t>(res.ptr - text));
    }

    template <typename Number>
    void enumerated(const std::vector<ZQSomeIPPlainEnumerator>& list, uint64_t bits, bool isSigned, Number number)
    {
        const ZQSomeIPPlainEnumerator* e = enumeratorOf(list, bits, isSigned);
        switch (options_.enumStyle) {
        case ZQSomeIPEnumStyle::Value:
            number();
            return;
        case ZQSomeIPEnumStyle::Name:
            if (e != nullptr) {
                appendJsonString(out_, e->name);
            } else {
                number();
            }
            return;
        case ZQSomeIPEnumStyle::Both:
            out_ += "{\"name\":";
            if (e != nullptr) {
                appendJsonString(out_, e->name);
            } else {
                out_ += "null";
            }
            out_ += ",\"value\":";
            number();
            out_ += '}';
            return;
        }
    }

    template <typename Raw>
    void scaledValue(const Param& p, double x, Raw rawText)
    {
        if (!p.scaled || options_.scaled == ZQSomeIPScaledStyle::Raw) {
            rawText();
            return;
        }
        const double physical = x * p.scale.factor + p.scale.offset;
        if (options_.scaled == ZQSomeIPScaledStyle::Physical) {
            raw(physical);
            return;
        }
        out_ += "{\"raw\":";
        rawText();
        out_ += ",\"value\":";
        raw(physical);
        if (!p.scale.unit.empty()) {
            out_ += ",\"unit\":";
            appendJsonString(out_, p.scale.unit);
        }
        out_ += '}';
    }

    template <typename T>
    void nonFinite(T v)
    {
        if (std::isinf(v)) {
            out_ += v > 0 ? "\"Infinity\"" : "\"-Infinity\"";
            return;
        }
        using Bits = typename std::conditional<sizeof(T) == 4, uint32_t, uint64_t>::type;
        Bits bits = 0;
        memcpy(&bits, &v, sizeof(bits));
        const Bits quiet = sizeof(T) == 4 ? Bits(0x7FC00000u) : Bits(0x7FF8000000000000ull);
        if (bits == quiet) {
            out_ += "\"NaN\"";
            return;
        }
        char hex[32];
        const auto res = std::to_chars(hex, hex + sizeof(hex), bits, 16);
        out_ += "\"NaN:0x";
        out_.append(hex, static_cast<size_t>(res.ptr - hex));
        out_ += '"';
    }

private:
    std::string& out_;
    const ZQSomeIPPlainOptions& options_;
};

template <typename T> void basicText(NumberText& text, const Param& p, uint64_t bits)
{
    T v;
    memcpy(&v, &bits, sizeof(v));  // the low bytes: the host is little endian, as the engines take it
    if (p.bitfield || !p.enumerators.empty() || p.scaled) {
        text.special(p, v);
    } else if constexpr (std::is_floating_point<T>::value) {
        text.nonFinite(v);
    }
}

} // namespace

void plainBasicText(std::string& out, const ZQSomeIPPlainParam& p, const ZQSomeIPPlainOptions& options, uint64_t bits)
{
    NumberText text(out, options);
    switch (p.kind) {
    case Param::UInt8: return basicText<uint8_t>(text, p, bits);
    case Param::UInt16: return basicText<uint16_t>(text, p, bits);
    case Param::UInt32: return basicText<uint32_t>(text, p, bits);
    case Param::UInt64: return basicText<uint64_t>(text, p, bits);
    case Param::Int8: return basicText<int8_t>(text, p, bits);
    case Param::Int16: return basicText<int16_t>(text, p, bits);
    case Param::Int32: return basicText<int32_t>(text, p, bits);
    case Param::Int64: return basicText<int64_t>(text, p, bits);
    case Param::Float: return basicText<float>(text, p, bits);
    case Param::Double: return basicText<double>(text, p, bits);
    default: return;
    }
}

namespace {

// ---------------------------------------------------------------------------------------------------
// Decode

class Decoder {
public:
    Decoder(const ZQSomeIPExtendAttr& attr, const uint8_t* data, const ZQSomeIPPlainOptions& options, std::string& out,
            ZQSomeIPPlainStatus& status)
        : attr_(attr), data_(data), pretty_(options.pretty), options_(options), out_(out), status_(status)
    {
    }

    // A parameter list whose members are tagged by data IDs, up to `end`.
    bool tlvObject(Reader& r, size_t base, const std::vector<Param>& members, const ZQSomeIPExtendAttr& container,
                   size_t end, int depth)
    {
        std::vector<std::string> texts(members.size());
        std::vector<bool> present(members.size(), false);
        while (r.get_index() < end) {
            const size_t at = r.get_index();
            if (end - at < 2) {
                return fail(Error::LengthMismatch, base + at, "a TLV tag is cut by its container's end");
            }
            uint16_t tag = 0;
            if (r.read(tag, &container) != 0) {
                return fail(Error::Truncated, base + at, "the payload ends inside a TLV tag");
            }
            const uint32_t wireType = (tag >> 12) & 7u;
            const uint32_t id = tag & 0xFFFu;
            size_t k = 0;
            while (k < members.size() && members[k].dataId != static_cast<int32_t>(id)) {
                ++k;
            }
            if (k == members.size() || present[k]) {
                const Param* repeated = k == members.size() ? nullptr : &members[k];
                if (!skipTlvMember(r, base, at, wireType, id, repeated, container, end)) {
                    return false;
                }
                continue;
            }
            const size_t mark = out_.size();
            if (!readTlvMember(r, base, at, wireType, members[k], depth)) {
                return false;
            }
            texts[k] = out_.substr(mark);
            out_.resize(mark);
            present[k] = true;
        }
        if (r.get_index() > end) {
            return fail(Error::LengthMismatch, base + end, "a TLV member runs past its container's end");
        }
        return tlvObjectText(base, members, texts, present, end, depth);
    }

    void warn(size_t offset, size_t bytes, const std::string& what)
    {
        const std::string place = where_.text("");
        status_.warnings.push_back({offset, bytes, (place.empty() ? std::string("payload") : place) + ": " + what});
    }

    bool object(Reader& r, size_t base, const std::vector<Param>& members, int depth)
    {
        out_ += '{';
        for (size_t i = 0; i < members.size(); ++i) {
            if (i > 0) {
                out_ += ',';
            }
            memberKey(members[i].key, depth + 1);
            where_.push(members[i].name);
            if (!value(r, base, members[i], depth + 1)) {
                return false;
            }
            where_.pop();
        }
        if (!members.empty()) {
            newline(depth);
        }
        out_ += '}';
        return true;
    }

    bool fail(Error code, size_t offset, const std::string& what)
    {
        status_.code = code;
        status_.offset = offset;
        const std::string place = where_.text("");
        status_.message = (place.empty() ? std::string("payload") : place) + ": " + what;
        return false;
    }

private:
    void newline(int depth)
    {
        if (pretty_) {
            out_ += '\n';
            out_.append(static_cast<size_t>(depth) * 2, ' ');
        }
    }

    // A member's key (with its colon), on a line of its own when pretty.
    void memberKey(const std::string& key, int depth)
    {
        newline(depth);
        out_ += key;
        if (pretty_) {
            out_ += ' ';
        }
    }

    // The length field size a TLV member's wire type 4 stands for.
    static uint32_t configuredSize(const Param& m) { return lengthFieldSize(m.kind, m.attr); }

    // Receivers skip what they do not know, by the length the wire type gives. `repeated`: the member
    // whose data ID came again, null for an unknown data ID.
    bool skipTlvMember(Reader& r, size_t base, size_t at, uint32_t wireType, uint32_t id, const Param* repeated,
                       const ZQSomeIPExtendAttr& container, size_t end)
    {
        uint64_t size = 0;
        if (wireType < 4) {
            size = uint64_t(1) << wireType;
        } else {
            const uint32_t lfs = wireType == 4 ? (repeated == nullptr ? 0 : configuredSize(*repeated))
                                               : lengthFieldSizeOfWireType(wireType);
            if (lfs == 0) {
                return fail(Error::UnskippableMember, base + at,
                            "TLV member with the unknown data ID " + std::to_string(id) +
                                " has wire type 4, whose length field size is not known");
            }
            if (r.get_index() + lfs > r.get_size()) {
                return fail(Error::Truncated, base + r.get_index(), "the payload ends inside a TLV length field");
            }
            size = lfs + uint64_t(peekLength(data_ + base, r.get_index(), lfs, container));
        }
        if (r.get_index() + size > end) {
            return fail(Error::LengthBeyondData, base + at,
                        "TLV member with data ID " + std::to_string(id) + " runs past its container's end");
        }
        if (!skip(r, base, static_cast<uint32_t>(size))) {
            return false;
        }
        warn(base + at, static_cast<size_t>(size) + 2,
             std::string(repeated == nullptr ? "unknown" : "repeated") + " TLV member with data ID " +
                 std::to_string(id) + " skipped");
        return true;
    }

    // A member the format knows, after its tag: the wire type must carry its kind, and a complex
    // member's length field takes the size the wire type names.
    bool readTlvMember(Reader& r, size_t base, size_t at, uint32_t wireType, const Param& m, int depth)
    {
        ZQSomeIPExtendAttr own = m.attr;
        if (isBasic(m)) {
            if (wireType != wireTypeOfWidth(basicWidth(m.kind))) {
                where_.push(m.name);
                return fail(Error::WireTypeMismatch, base + at,
                            "wire type " + std::to_string(wireType) + " does not carry a " + kKindNames[m.kind]);
            }
        } else {
            const uint32_t lfs = wireType == 4 ? configuredSize(m) : wireType >= 5 ? lengthFieldSizeOfWireType(wireType) : 0u;
            if (lfs == 0) {
                where_.push(m.name);
                return fail(Error::WireTypeMismatch, base + at,
                            "wire type " + std::to_string(wireType) + " does not carry a " + kKindNames[m.kind] +
                                (wireType == 4 ? " without a configured length field size" : ""));
            }
            *lengthFieldSizeOf(m.kind, own) = lfs;
        }
        where_.push(m.name);
        if (!value(r, base, m, depth + 1, isBasic(m) ? nullptr : &own)) {
            return false;
        }
        where_.pop();
        return true;
    }

    // The members read, in format order, from their texts; a mandatory one that did not come fails.
    bool tlvObjectText(size_t base, const std::vector<Param>& members, const std::vector<std::string>& texts,
                       const std::vector<bool>& present, size_t end, int depth)
    {
        out_ += '{';
        bool first = true;
        for (size_t k = 0; k < members.size(); ++k) {
            if (!present[k]) {
                if (!members[k].optional) {
                    where_.push(members[k].name);
                    return fail(Error::MissingMember, base + end,
                                "the mandatory TLV member with data ID " + std::to_string(members[k].dataId) +
                                    " is missing");
                }
                continue;
            }
            if (!first) {
                out_ += ',';
            }
            first = false;
            memberKey(members[k].key, depth + 1);
            out_ += texts[k];
        }
        if (!first) {
            newline(depth);
        }
        out_ += '}';
        return true;
    }

    // Skips `n` bytes inside the open container.
    bool skip(Reader& r, size_t base, uint32_t n)
    {
        uint8_t scratch[256];
        while (n > 0) {
            const uint32_t step = std::min<uint32_t>(n, sizeof(scratch));
            const size_t at = r.get_index();
            if (r.read(scratch, step, nullptr) != 0) {
                return fail(Error::Truncated, base + at, "the payload ends inside bytes to skip");
            }
            n -= step;
        }
        return true;
    }

    template <typename T>
    bool number(Reader& r, size_t base, const Param& p, const ZQSomeIPExtendAttr* a)
    {
        const size_t at = r.get_index();
        T v{};
        if (r.read(v, a) != 0) {
            return basicFailed(r, base, at, sizeof(T), p);
        }
        if (p.bitfield || !p.enumerators.empty() || p.scaled) {
            return NumberText(out_, options_).special(p, v);
        }
        char text[64];
        std::to_chars_result res{};
        if constexpr (std::is_floating_point<T>::value) {
            if (!std::isfinite(v)) {
                NumberText(out_, options_).nonFinite(v);
                return true;
            }
            res = std::to_chars(text, text + sizeof(text), v);
        } else {
            res = std::to_chars(text, text + sizeof(text), v + 0);
        }
        out_.append(text, static_cast<size_t>(res.ptr - text));
        return true;
    }

    bool basicFailed(Reader& r, size_t base, size_t at, size_t width, const Param& p)
    {
        const std::string what = std::string(kKindNames[p.kind]);
        // A read that failed on the payload's end leaves the index before the value (after any
        // padding); one that overran its container's length field has taken the value's bytes.
        const size_t now = r.get_index();
        if (at + width > r.get_size() || (now < at + width && now + width > r.get_size())) {
            return fail(Error::Truncated, base + at, "the payload ends inside this " + what);
        }
        return fail(Error::LengthMismatch, base + at, "this " + what + " runs past its container's length field");
    }

    bool string(Reader& r, size_t base, const ZQSomeIPExtendAttr& ea, const ZQSomeIPExtendAttr* a)
    {
        const size_t at = r.get_index();
        const uint32_t lfs = ea.string_length_field_size;
        std::string text;
        if (r.read(text, 0, a, false) != 0) {
            const size_t now = r.get_index();
            if (now < at + lfs || now > r.get_size()) {
                return fail(Error::Truncated, base + at, "the payload ends inside this string's length field");
            }
            const uint32_t length = peekLength(data_ + base, now - lfs, lfs, ea);
            if (length > r.get_size() - now) {
                return fail(Error::LengthBeyondData, base + now - lfs,
                            "the string's length field says " + std::to_string(length) + " bytes, " +
                                std::to_string(r.get_size() - now) + " remain");
            }
            return fail(Error::BadString, base + at, "not a string: byte order mark or terminator missing");
        }
        // Where the length field was: after at most 7 bytes of alignment padding.
        const size_t end = r.get_index();
        const size_t expected = ea.string_utf == ZQ_SOMEIP_PAYLOAD_STRING_UTF16 ? 4 + 2 * plainUtf16Units(text)
                                                                                 : 4 + text.size();
        for (size_t pad = 0; pad < 8 && at + pad + lfs <= end; ++pad) {
            const uint32_t length = peekLength(data_ + base, at + pad, lfs, ea);
            if (at + pad + lfs + length == end) {
                if (length != expected) {
                    return fail(Error::BadString, base + at, "the string holds a zero, or a unit that does not convert, before its end");
                }
                break;
            }
            if (length % 2 == 1 && at + pad + lfs + length - 1 == end) {
                return fail(Error::BadString, base + at, "a UTF-16 string of an odd number of bytes");
            }
        }
        if (!plainValidUtf8(text)) {
            return fail(Error::BadString, base + at, "the string is not valid UTF-8");
        }
        // UTF-16 text keeps zero units that stand before the terminator; a reader would stop there.
        if (text.find('\0') != std::string::npos) {
            return fail(Error::BadString, base + at, "the string holds a zero before its end");
        }
        appendJsonString(out_, text);
        return true;
    }

    // A string as a byte block in an array frame: a fixed one of its declared size (or of the TLV
    // length), a dynamic one behind the string's length field. An array, not a vector: a string
    // leaves no alignment pending after it, as the engines' own strings do not.
    bool ownString(Reader& r, size_t base, const Param& p, const ZQSomeIPExtendAttr& ea, bool tlvMember)
    {
        const bool fixed = p.fixedLength > 0;
        const ZQSomeIPExtendAttr block = blockFrame(p, ea, tlvMember);
        const size_t at = r.get_index();
        const uint32_t lfs = block.array_length_field_size;
        const uint32_t code = r.array_data_begin(&block);
        if (code != 0) {
            if (at + lfs > r.get_size()) {
                return fail(Error::Truncated, base + at, "the payload ends inside this string's length field");
            }
            return fail(Error::LengthMismatch, base + at, "this string runs past its container's length field");
        }
        uint8_t* bytes = nullptr;
        uint32_t size = p.fixedLength;
        const size_t begin = r.get_index();
        if (lfs > 0) {
            size = peekLength(data_ + base, begin - lfs, lfs, block);
            if (size > r.get_size() - begin) {
                return fail(Error::LengthBeyondData, base + begin - lfs,
                            "the string's length field says " + std::to_string(size) + " bytes, " +
                                std::to_string(r.get_size() - begin) + " remain");
            }
        }
        // An empty block is not read: the engine takes a full container as overrun.
        static const uint8_t kNone = 0;
        if (size == 0) {
            bytes = const_cast<uint8_t*>(&kNone);
        } else if (r.read(&bytes, &size, &block) != 0 || bytes == nullptr) {
            if (begin + size > r.get_size()) {
                return fail(Error::Truncated, base + begin, "the payload ends inside this string");
            }
            return fail(Error::LengthMismatch, base + begin, "this string runs past its container's length field");
        }
        std::string text;
        std::string why;
        if (!stringFromBytes(bytes, size, p, ea, text, why)) {
            return fail(Error::BadString, base + at, why);
        }
        if (fixed && !filledWithZeros(bytes, size, text, p, ea)) {
            const std::string what = "the fixed string's fill after its text holds bytes other than zero";
            if (options_.strict) {
                return fail(Error::BadString, base + at, what);
            }
            warn(base + at, size, what);
        }
        appendJsonString(out_, text);
        r.data_end();
        return true;
    }

    // After a fixed string's text (and terminator) only zeros are expected; senders that fill with
    // something else still give a readable text.
    static bool filledWithZeros(const uint8_t* d, size_t n, const std::string& text, const Param& p,
                                const ZQSomeIPExtendAttr& ea)
    {
        const bool utf16 = ea.string_utf == ZQ_SOMEIP_PAYLOAD_STRING_UTF16;
        const size_t mark = p.stringBom ? (utf16 ? 2 : 3) : 0;
        const size_t textBytes = utf16 ? 2 * plainUtf16Units(text) : text.size();
        for (size_t i = mark + textBytes; i < n; ++i) {
            if (d[i] != 0) {
                return false;
            }
        }
        return true;
    }

    static bool stringFromBytes(const uint8_t* d, size_t n, const Param& p, const ZQSomeIPExtendAttr& ea,
                                std::string& text, std::string& why)
    {
        const bool utf16 = ea.string_utf == ZQ_SOMEIP_PAYLOAD_STRING_UTF16;
        const bool little = p.stringUtf16ByteOrder == ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN;
        size_t i = 0;
        if (p.stringBom) {
            const uint8_t* mark = utf16 ? (little ? BOM_UTF16LE : BOM_UTF16BE) : BOM_UTF8;
            const size_t markSize = utf16 ? 2 : 3;
            if (n < markSize || memcmp(d, mark, markSize) != 0) {
                why = "the string's byte order mark is missing";
                return false;
            }
            i = markSize;
        }
        const size_t unit = utf16 ? 2 : 1;
        size_t end = i;
        while (end + unit <= n && (d[end] != 0 || (utf16 && d[end + 1] != 0))) {
            end += unit;
        }
        const bool terminated = end + unit <= n;
        if (!terminated && end != n) {
            why = "a UTF-16 string of an odd number of bytes";
            return false;
        }
        if (p.stringTerminator && !terminated) {
            why = "the string's terminator is missing";
            return false;
        }
        // Only a fixed string may hold bytes after its text (its zero fill); a dynamic one ends there.
        if (terminated && p.fixedLength == 0 && end + (p.stringTerminator ? unit : 0) != n) {
            why = "the string holds a zero before its end";
            return false;
        }
        if (!utf16) {
            text.assign(reinterpret_cast<const char*>(d + i), end - i);
            if (!plainValidUtf8(text)) {
                why = "the string is not valid UTF-8";
                return false;
            }
            return true;
        }
        std::u16string units((end - i) / 2, u'\0');
        for (size_t k = 0; k < units.size(); ++k) {
            const uint32_t b0 = d[i + 2 * k];
            const uint32_t b1 = d[i + 2 * k + 1];
            units[k] = static_cast<char16_t>(little ? (b0 | (b1 << 8)) : ((b0 << 8) | b1));
        }
        text = zq_someip_utf16_to_utf8(units);  // throws on an unpaired surrogate, reported by the caller
        return true;
    }

    // A container's content must be exactly what its length field says: unread bytes would be taken
    // for the next parameter. A struct may hold more than the format knows (a newer peer appended
    // members): those bytes are skipped with a warning unless decoding is strict.
    bool closeContainer(Reader& r, size_t base, const Param& p, const ZQSomeIPExtendAttr& ea)
    {
        const uint32_t lfs = lengthFieldSize(p.kind, ea);
        if (lfs > 0) {
            const size_t begin = r.get_begin_index();
            const uint32_t length = peekLength(data_ + base, begin, lfs, ea);
            const size_t used = r.get_index() - begin - lfs;
            if (used < length && p.kind == Param::Structure && !options_.strict) {
                const size_t at = r.get_index();
                if (!skip(r, base, static_cast<uint32_t>(length - used))) {
                    return false;
                }
                warn(base + at, length - used,
                     std::to_string(length - used) + " bytes after the known members skipped");
            } else if (used != length) {
                return fail(Error::LengthMismatch, base + begin,
                            "the length field says " + std::to_string(length) + " bytes, the content takes " +
                                std::to_string(used));
            }
        }
        r.data_end();
        return true;
    }

    bool openContainer(Reader& r, size_t base, const Param& p, uint32_t code, const ZQSomeIPExtendAttr& ea)
    {
        if (code == 0) {
            return true;
        }
        const size_t at = r.get_index();
        const uint32_t lfs = lengthFieldSize(p.kind, ea);
        if (at + lfs > r.get_size()) {
            return fail(Error::Truncated, base + at, "the payload ends inside this " + std::string(kKindNames[p.kind]) +
                                                         "'s length field");
        }
        return fail(Error::LengthMismatch, base + at, "this " + std::string(kKindNames[p.kind]) +
                                                          " runs past its container's length field");
    }

    // `over`: attributes that stand for the parameter's own (a TLV member's length field size).
    bool value(Reader& r, size_t base, const Param& p, int depth, const ZQSomeIPExtendAttr* over = nullptr)
    {
        const ZQSomeIPExtendAttr& ea = over != nullptr ? *over : p.explicitAttr ? p.attr : attr_;
        const ZQSomeIPExtendAttr* a = over != nullptr || p.explicitAttr ? &ea : nullptr;
        // The writer opens a top-level container without padding and so drops a pending "align the
        // next element" (left by a string or vector before it); the reader would keep it for the
        // next value. Dropped here as well, so that both directions agree on where values lie.
        if (depth == 1 && (p.kind >= Param::Structure || (p.kind == Param::String && plainOwnStringRules(p, ea)))) {
            r.calc_size(ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE, 0);
        }
        switch (p.kind) {
        case Param::Bool: {
            const size_t at = r.get_index();
            bool v = false;
            if (r.read(v, a) != 0) {
                return basicFailed(r, base, at, 1, p);
            }
            out_ += v ? "true" : "false";
            return true;
        }
        case Param::UInt8: return number<uint8_t>(r, base, p, a);
        case Param::UInt16: return number<uint16_t>(r, base, p, a);
        case Param::UInt32: return number<uint32_t>(r, base, p, a);
        case Param::UInt64: return number<uint64_t>(r, base, p, a);
        case Param::Int8: return number<int8_t>(r, base, p, a);
        case Param::Int16: return number<int16_t>(r, base, p, a);
        case Param::Int32: return number<int32_t>(r, base, p, a);
        case Param::Int64: return number<int64_t>(r, base, p, a);
        case Param::Float: return number<float>(r, base, p, a);
        case Param::Double: return number<double>(r, base, p, a);
        case Param::String: return plainOwnStringRules(p, ea) ? ownString(r, base, p, ea, over != nullptr) : string(r, base, ea, a);
        case Param::Structure: return structValue(r, base, p, depth, ea, a);
        case Param::Union: return unionValue(r, base, p, depth, ea, over != nullptr);
        case Param::Array: return arrayValue(r, base, p, depth, ea, a);
        case Param::Vector: return vectorValue(r, base, p, depth, ea, a);
        }
        return false;
    }

    bool structValue(Reader& r, size_t base, const Param& p, int depth, const ZQSomeIPExtendAttr& ea,
                     const ZQSomeIPExtendAttr* a)
    {
        if (!openContainer(r, base, p, r.struct_data_begin(a), ea)) {
            return false;
        }
        if (p.tlv) {
            const size_t begin = r.get_begin_index();
            const uint32_t lfs = ea.struct_length_field_size;
            const size_t end = begin + lfs + peekLength(data_ + base, begin, lfs, ea);
            if (end > r.get_size()) {
                return fail(Error::LengthBeyondData, base + begin,
                            "the struct's length field says more bytes than remain");
            }
            return tlvObject(r, base, p.members, ea, end, depth) && closeContainer(r, base, p, ea);
        }
        return object(r, base, p.members, depth) && closeContainer(r, base, p, ea);
    }

    bool arrayValue(Reader& r, size_t base, const Param& p, int depth, const ZQSomeIPExtendAttr& ea,
                    const ZQSomeIPExtendAttr* a)
    {
        if (!openContainer(r, base, p, r.array_data_begin(a), ea)) {
            return false;
        }
        // Every element but an empty one takes at least a byte, so a count beyond the bytes left
        // plus 65,536 empty elements (as the classic decoder allows) could only produce text
        // without end.
        const uint64_t left = r.get_index() < r.get_size() ? r.get_size() - r.get_index() : 0;
        if (p.count > left + (uint64_t{1} << 16)) {
            return fail(Error::Truncated, base + r.get_index(),
                        "the array declares " + std::to_string(p.count) + " elements, more than the " +
                            std::to_string(left) + " bytes left can hold");
        }
        out_ += '[';
        for (uint32_t i = 0; i < p.count; ++i) {
            if (!element(r, base, p, i, depth)) {
                return false;
            }
        }
        listEnd(p.count, depth);
        return closeContainer(r, base, p, ea);
    }

    bool vectorValue(Reader& r, size_t base, const Param& p, int depth, const ZQSomeIPExtendAttr& ea,
                     const ZQSomeIPExtendAttr* a)
    {
        if (!openContainer(r, base, p, r.vector_data_begin(a), ea)) {
            return false;
        }
        // Elements are read in place, until the content the length field announces is used up:
        // padding inside the vector then counts from where the writer counts it.
        const size_t begin = r.get_begin_index();
        const uint32_t lfs = ea.vector_length_field_size;
        const uint32_t length = peekLength(data_ + base, begin, lfs, ea);
        const size_t end = begin + lfs + static_cast<size_t>(length);
        if (end > r.get_size()) {
            return fail(Error::LengthBeyondData, base + begin,
                        "the vector's length field says " + std::to_string(length) + " bytes, " +
                            std::to_string(r.get_size() - begin - lfs) + " remain");
        }
        out_ += '[';
        uint32_t i = 0;
        while (r.get_index() < end) {
            const size_t before = r.get_index();
            if (!element(r, base, p, i++, depth)) {
                return false;
            }
            // An element that takes no bytes (a structure without members) would never use the
            // content up.
            if (r.get_index() == before) {
                return fail(Error::LengthMismatch, base + before,
                            "the vector's elements take no bytes, so its content is never used up");
            }
        }
        if (i < p.minCount || i > p.maxCount) {
            return fail(Error::WrongCount, base + begin,
                        "the vector holds " + std::to_string(i) + " elements, the format allows " +
                            std::to_string(p.minCount) + " to " + std::to_string(p.maxCount));
        }
        listEnd(i, depth);
        return closeContainer(r, base, p, ea);
    }

    // [length][selector] (or [selector][length]) member, padding; without a length field the member
    // area is padded to MaxLength. Inside TLV the TLV length stands first and counts the selector too,
    // so that a receiver that does not know the member can skip it.
    bool unionValue(Reader& r, size_t base, const Param& p, int depth, const ZQSomeIPExtendAttr& ea, bool tlvMember)
    {
        ZQSomeIPExtendAttr u = unionFrame(ea);
        const size_t at = r.get_index();
        const uint32_t typeSize = ea.union_type_field_size;
        uint32_t selector = 0;
        const bool typeFirst = p.unionTypeFirst && !tlvMember;
        if (typeFirst) {
            if (r.read_enum(selector, typeSize, &ea) != 0) {
                return fail(Error::Truncated, base + at, "the payload ends inside this union's type field");
            }
            u.union_type_field_size = 0;
        }
        const size_t typeEnd = r.get_index();
        uint32_t ignored = 0;
        const uint32_t code = r.union_data_begin(&u, typeFirst ? ignored : selector);
        if (code != 0) {
            if (r.get_index() + lengthFieldSize(Param::Union, u) + u.union_type_field_size > r.get_size()) {
                return fail(Error::Truncated, base + r.get_index(),
                            "the payload ends inside this union's length or type field");
            }
            return fail(Error::LengthMismatch, base + r.get_index(), "this union runs past its container's length field");
        }
        const size_t begin = r.get_begin_index();
        const size_t start = typeFirst ? typeEnd - typeSize : begin;
        const uint32_t lfs = u.union_length_field_size;
        const size_t memberStart = begin + lfs + u.union_type_field_size;
        size_t length = lfs > 0 ? peekLength(data_ + base, begin, lfs, u) : p.maxLength;
        if (tlvMember) {
            if (length < typeSize) {
                return fail(Error::LengthMismatch, base + begin, "the TLV length is shorter than the union's type field");
            }
            length -= typeSize;
        }
        if (memberStart + length > r.get_size()) {
            return fail(Error::LengthBeyondData, base + begin,
                        "the union's member area of " + std::to_string(length) + " bytes runs past the payload");
        }
        if (!unionMember(r, base, p, selector, at, depth)) {
            return false;
        }
        const size_t used = r.get_index() - memberStart;
        if (used > length) {
            return fail(Error::LengthMismatch, base + memberStart,
                        "the member takes " + std::to_string(used) + " bytes, the union holds " + std::to_string(length));
        }
        // What the length field holds after the member is padding (or a longer member of a newer
        // peer): skipped. Without a length field the area is MaxLength bytes, then padded.
        size_t rest = length - used;
        if (lfs == 0) {
            rest += alignPadding(memberStart + length - start, ea.alignment);
        }
        if (!skip(r, base, static_cast<uint32_t>(rest))) {
            return false;
        }
        r.data_end();
        return true;
    }

    // The member the selector names, as an object of that one member; null where the union allows it.
    bool unionMember(Reader& r, size_t base, const Param& p, uint32_t selector, size_t at, int depth)
    {
        const Param* member = nullptr;
        for (const Param& m : p.members) {
            if (m.selector == selector) {
                member = &m;
            }
        }
        if (selector == 0 && p.allowNull) {
            out_ += "null";
            return true;
        }
        if (member == nullptr) {
            return fail(Error::UnknownSelector, base + at,
                        "the selector " + std::to_string(selector) + " names no member of this union");
        }
        out_ += '{';
        memberKey(member->key, depth + 1);
        where_.push(member->name);
        if (!value(r, base, *member, depth + 1)) {
            return false;
        }
        where_.pop();
        newline(depth);
        out_ += '}';
        return true;
    }

    bool element(Reader& r, size_t base, const Param& p, uint32_t i, int depth)
    {
        if (i > 0) {
            out_ += ',';
        }
        newline(depth + 1);
        where_.push(i);
        if (!value(r, base, p.members[0], depth + 1)) {
            return false;
        }
        where_.pop();
        return true;
    }

    void listEnd(uint32_t count, int depth)
    {
        if (count > 0) {
            newline(depth);
        }
        out_ += ']';
    }

    const ZQSomeIPExtendAttr& attr_;
    const uint8_t* data_;
    bool pretty_;
    const ZQSomeIPPlainOptions& options_;
    std::string& out_;
    ZQSomeIPPlainStatus& status_;
    Where where_;
};

// ---------------------------------------------------------------------------------------------------
// Encode

class Encoder {
public:
    Encoder(const ZQSomeIPExtendAttr& attr, const Json& doc, Writer& w, const ZQSomeIPPlainOptions& options,
            ZQSomeIPPlainStatus& status)
        : attr_(attr), doc_(doc), w_(&w), options_(options), status_(status)
    {
    }

    // Members tagged by data IDs, in format order; absent optional members are left out.
    bool tlvObject(const Json::Node& v, const std::vector<Param>& members, const ZQSomeIPExtendAttr& container, int depth)
    {
        if (v.type != Json::Type::Object) {
            return fail(Error::WrongType, "expects an object");
        }
        if (!unknownMembers(v, members)) {
            return false;
        }
        for (const Param& m : members) {
            const Json::Node* child = nullptr;
            for (uint32_t k = 0; k < v.count && child == nullptr; ++k) {
                if (doc_.member(v, k).key == m.name) {
                    child = &doc_.node(doc_.member(v, k).value);
                }
            }
            where_.push(m.name);
            if (child == nullptr) {
                if (m.optional) {
                    where_.pop();
                    continue;
                }
                return fail(Error::MissingMember, "is missing");
            }
            const uint32_t id = static_cast<uint32_t>(m.dataId);
            if (isBasic(m)) {
                const uint16_t tag = static_cast<uint16_t>((wireTypeOfWidth(basicWidth(m.kind)) << 12) | id);
                if (!written(w_->write(static_cast<unsigned short>(tag), &container)) || !value(*child, m, depth)) {
                    return false;
                }
            } else if (!tlvComplex(*child, m, container, depth)) {
                return false;
            }
            where_.pop();
        }
        return true;
    }

    // A complex member: written apart with a 32-bit length field, then placed behind a length field
    // of the size configured for its kind, named by wire type 4 when sizes are static and by 5..7 when
    // they are dynamic; with no configured size, the smallest of 5..7 its length fits. The TLV length
    // counts everything after it (a union's type field too).
    bool tlvComplex(const Json::Node& v, const Param& m, const ZQSomeIPExtendAttr& container, int depth)
    {
        const uint32_t configured = lengthFieldSize(m.kind, m.attr);
        const bool fixedSize = !m.dynamicLengthFieldSize && configured > 0;
        ZQSomeIPExtendAttr own = m.attr;
        *lengthFieldSizeOf(m.kind, own) = 4;
        ZQSomeIPExtendAttr scratchAttr = own;
        Writer scratch(&scratchAttr);
        Writer* outer = w_;
        w_ = &scratch;
        const bool ok = value(v, m, depth, &own);
        w_ = outer;
        if (!ok) {
            return false;
        }
        const std::vector<unsigned char>& bytes = scratch.to_buffer();
        const uint32_t length = static_cast<uint32_t>(bytes.size() - 4);
        const uint32_t size = configured > 0 ? configured : length <= 0xFFu ? 1 : length <= 0xFFFFu ? 2 : 4;
        if (length > plainLengthCapacity(size)) {
            return fail(Error::TooLong, "is longer than its length field can express");
        }
        const uint32_t wireType = fixedSize ? 4u : size == 1 ? 5u : size == 2 ? 6u : 7u;
        const uint16_t tag = static_cast<uint16_t>((wireType << 12) | static_cast<uint32_t>(m.dataId));
        bool placed = written(w_->write(static_cast<unsigned short>(tag), &container));
        if (placed && size == 1) {
            placed = written(w_->write(static_cast<unsigned char>(length), &container));
        } else if (placed && size == 2) {
            placed = written(w_->write(static_cast<unsigned short>(length), &container));
        } else if (placed) {
            placed = written(w_->write(static_cast<unsigned int>(length), &container));
        }
        return placed && (length == 0 || written(w_->write(bytes.data() + 4, length, &container)));
    }

    bool object(const Json::Node& v, const std::vector<Param>& members, int depth)
    {
        if (v.type != Json::Type::Object) {
            return fail(Error::WrongType, "expects an object");
        }
        // Each parameter takes its member, looked for where it usually is (the same position) first.
        uint32_t matched = 0;
        for (size_t i = 0; i < members.size(); ++i) {
            const Param& p = members[i];
            const Json::Node* child = nullptr;
            if (i < v.count && doc_.member(v, static_cast<uint32_t>(i)).key == p.name) {
                child = &doc_.node(doc_.member(v, static_cast<uint32_t>(i)).value);
            } else {
                for (uint32_t k = 0; k < v.count && child == nullptr; ++k) {
                    if (doc_.member(v, k).key == p.name) {
                        child = &doc_.node(doc_.member(v, k).value);
                    }
                }
            }
            if (child == nullptr) {
                // A member the format does not have is the better report than the one it misses.
                if (!unknownMembers(v, members)) {
                    return false;
                }
                where_.push(p.name);
                return fail(Error::MissingMember, "is missing");
            }
            ++matched;
            where_.push(p.name);
            if (!value(*child, p, depth)) {
                return false;
            }
            where_.pop();
        }
        return matched == v.count || unknownMembers(v, members);
    }

    // False (with the report) if a member names no parameter or names one twice.
    bool unknownMembers(const Json::Node& v, const std::vector<Param>& members)
    {
        for (uint32_t i = 0; i < v.count; ++i) {
            const Json::Member& m = doc_.member(v, i);
            const auto known = std::find_if(members.begin(), members.end(),
                                            [&m](const Param& p) { return m.key == p.name; });
            if (known == members.end()) {
                return fail(Error::UnknownMember, "has no parameter \"" + std::string(m.key) + "\"");
            }
            for (uint32_t j = 0; j < i; ++j) {
                if (doc_.member(v, j).key == m.key) {
                    return fail(Error::UnknownMember, "names \"" + std::string(m.key) + "\" twice");
                }
            }
        }
        return true;
    }

    bool fail(Error code, const std::string& what)
    {
        status_.code = code;
        status_.path = where_.text("$");
        status_.message = status_.path + " " + what;
        return false;
    }

private:
    template <typename T>
    bool integer(const Json::Node& v, T& out)
    {
        if (v.type != Json::Type::Number || v.text.find_first_of(".eE") != std::string_view::npos) {
            return fail(Error::WrongType, "expects an integer");
        }
        const char* first = v.text.data();
        const auto res = std::from_chars(first, first + v.text.size(), out);
        if (res.ec != std::errc() || res.ptr != first + v.text.size()) {
            return fail(Error::OutOfRange, "is out of range for its type");
        }
        return true;
    }

    template <typename T>
    bool floating(const Json::Node& v, T& out)
    {
        if (v.type == Json::Type::String) {
            return special(v.text, out);
        }
        if (v.type != Json::Type::Number) {
            return fail(Error::WrongType, "expects a number");
        }
        const std::string text(v.text);
        errno = 0;
        char* end = nullptr;
        out = sizeof(T) == 4 ? static_cast<T>(strtof_l(text.c_str(), &end, cLocale()))
                             : static_cast<T>(strtod_l(text.c_str(), &end, cLocale()));
        if (std::isinf(out)) {
            return fail(Error::OutOfRange, "is out of range for its type");
        }
        return true;
    }

    template <typename T>
    bool special(std::string_view text, T& out)
    {
        using Bits = typename std::conditional<sizeof(T) == 4, uint32_t, uint64_t>::type;
        if (text == "Infinity" || text == "-Infinity") {
            out = text[0] == '-' ? -std::numeric_limits<T>::infinity() : std::numeric_limits<T>::infinity();
            return true;
        }
        Bits bits = sizeof(T) == 4 ? Bits(0x7FC00000u) : Bits(0x7FF8000000000000ull);
        if (text.rfind("NaN:0x", 0) == 0) {
            const auto res = std::from_chars(text.data() + 6, text.data() + text.size(), bits, 16);
            if (res.ec != std::errc() || res.ptr != text.data() + text.size()) {
                return fail(Error::WrongType, "is not a number");
            }
        } else if (text != "NaN") {
            return fail(Error::WrongType, "expects a number (or \"NaN\", \"Infinity\", \"-Infinity\")");
        }
        memcpy(&out, &bits, sizeof(out));
        if (!std::isnan(out)) {
            return fail(Error::OutOfRange, "names bits that are not a NaN");
        }
        return true;
    }

    template <typename T>
    bool write(const Json::Node& v, const Param& p, const ZQSomeIPExtendAttr* a)
    {
        T x{};
        if (p.bitfield) {
            uint64_t bits = 0;
            if (!bitfield(v, p, bits)) {
                return false;
            }
            x = static_cast<T>(bits);
        } else if (!p.enumerators.empty() && (v.type == Json::Type::String || v.type == Json::Type::Object)) {
            if (!enumerated(v, p.enumerators, x)) {
                return false;
            }
        } else if (p.scaled && (v.type == Json::Type::Object || options_.scaled == ZQSomeIPScaledStyle::Physical)) {
            if (!scaledInput(v, p, x)) {
                return false;
            }
        } else if (!integer(v, x)) {
            return false;
        }
        return written(w_->write(x, a));
    }

    // A name, or {"name": ..., "value": ...} (either or both, agreeing).
    template <typename T>
    bool enumerated(const Json::Node& v, const std::vector<ZQSomeIPPlainEnumerator>& enumerators, T& out)
    {
        const Json::Node* name = &v;
        const Json::Node* number = nullptr;
        if (v.type == Json::Type::Object) {
            name = nullptr;
            for (uint32_t k = 0; k < v.count; ++k) {
                const Json::Member& m = doc_.member(v, k);
                if (m.key == "name" && doc_.node(m.value).type != Json::Type::Null) {
                    name = &doc_.node(m.value);
                } else if (m.key == "value") {
                    number = &doc_.node(m.value);
                } else if (m.key != "name") {
                    return fail(Error::UnknownMember, "has no member \"" + std::string(m.key) + "\"");
                }
            }
            if (name == nullptr && number == nullptr) {
                return fail(Error::MissingMember, "needs \"name\" or \"value\"");
            }
        }
        if (number != nullptr) {
            if (!integer(*number, out)) {
                return false;
            }
        }
        if (name != nullptr) {
            if (name->type != Json::Type::String) {
                return fail(Error::WrongType, "expects an enumerator name");
            }
            const ZQSomeIPPlainEnumerator* e = enumeratorNamed(enumerators, name->text);
            if (e == nullptr) {
                return fail(Error::UnknownName, "has no enumerator named \"" + std::string(name->text) + "\"");
            }
            using Wide = typename std::conditional<std::is_signed<T>::value, int64_t, uint64_t>::type;
            const uint64_t bits = static_cast<uint64_t>(static_cast<Wide>(out));
            if (number != nullptr && enumeratorOf(enumerators, bits, std::is_signed<T>::value) != e) {
                return fail(Error::OutOfRange, "names \"" + e->name + "\" and a value it does not stand for");
            }
            if (number == nullptr) {
                out = static_cast<T>(static_cast<Wide>(e->first));
            }
        }
        return true;
    }

    // A physical number (or {"raw": ...} / {"value": ...}) to the nearest raw value.
    template <typename T>
    bool scaledInput(const Json::Node& v, const Param& p, T& out)
    {
        const Json::Node* raw = nullptr;
        const Json::Node* physical = &v;
        if (v.type == Json::Type::Object) {
            physical = nullptr;
            for (uint32_t k = 0; k < v.count; ++k) {
                const Json::Member& m = doc_.member(v, k);
                if (m.key == "raw") {
                    raw = &doc_.node(m.value);
                } else if (m.key == "value") {
                    physical = &doc_.node(m.value);
                } else if (m.key != "unit") {
                    return fail(Error::UnknownMember, "has no member \"" + std::string(m.key) + "\"");
                }
            }
            if (raw != nullptr) {
                if constexpr (std::is_floating_point<T>::value) {
                    return floating(*raw, out);
                } else {
                    return integer(*raw, out);
                }
            }
            if (physical == nullptr) {
                return fail(Error::MissingMember, "needs \"raw\" or \"value\"");
            }
        }
        double x = 0;
        if (!floating(*physical, x)) {
            return false;
        }
        const long double r = (static_cast<long double>(x) - p.scale.offset) / p.scale.factor;
        if constexpr (std::is_floating_point<T>::value) {
            if (!std::isfinite(static_cast<double>(r)) || std::fabs(static_cast<double>(r)) > std::numeric_limits<T>::max()) {
                return fail(Error::OutOfRange, "is out of range for its type once scaled");
            }
            out = static_cast<T>(r);
        } else {
            const long double n = std::nearbyint(r);
            if (!(n >= static_cast<long double>(std::numeric_limits<T>::min()) &&
                  n <= static_cast<long double>(std::numeric_limits<T>::max()))) {
                return fail(Error::OutOfRange, "is out of range for its type once scaled");
            }
            out = static_cast<T>(n);
        }
        return true;
    }

    // {"name": true, "wide": 3, "$raw": 19}: any subset of named fields, $raw, or both agreeing.
    bool bitfield(const Json::Node& v, const Param& p, uint64_t& out)
    {
        if (v.type != Json::Type::Object) {
            return fail(Error::WrongType, "expects an object of named bits");
        }
        const uint64_t all = fieldMask(basicWidth(p.kind) * 8);
        uint64_t composed = 0;
        uint64_t given = 0;
        bool hasRaw = false;
        uint64_t raw = 0;
        for (uint32_t k = 0; k < v.count; ++k) {
            const Json::Member& m = doc_.member(v, k);
            const Json::Node& n = doc_.node(m.value);
            for (uint32_t j = 0; j < k; ++j) {
                if (doc_.member(v, j).key == m.key) {
                    return fail(Error::UnknownMember, "names \"" + std::string(m.key) + "\" twice");
                }
            }
            if (m.key == "$raw") {
                if (!integer(n, raw)) {
                    return false;
                }
                if ((raw & ~all) != 0) {
                    return fail(Error::OutOfRange, "has a $raw wider than its type");
                }
                hasRaw = true;
                continue;
            }
            const ZQSomeIPPlainBit* bit = nullptr;
            for (const ZQSomeIPPlainBit& b : p.bits) {
                if (b.name == m.key) {
                    bit = &b;
                }
            }
            if (bit == nullptr) {
                return fail(Error::UnknownMember, "has no bit named \"" + std::string(m.key) + "\"");
            }
            uint64_t field = 0;
            where_.push(bit->name);
            if (n.type == Json::Type::Bool) {
                field = n.flag ? 1 : 0;
            } else if (!bit->enumerators.empty() && (n.type == Json::Type::String || n.type == Json::Type::Object)) {
                if (!enumerated(n, bit->enumerators, field)) {
                    return false;
                }
            } else if (!integer(n, field)) {
                return false;
            }
            if ((field & ~fieldMask(bit->width)) != 0) {
                return fail(Error::OutOfRange, "is wider than its " + std::to_string(bit->width) + " bits");
            }
            where_.pop();
            composed |= field << bit->bit;
            given |= fieldMask(bit->width) << bit->bit;
        }
        if (hasRaw && (raw & given) != composed) {
            return fail(Error::OutOfRange, "has named bits that disagree with $raw");
        }
        out = hasRaw ? raw : composed;
        return true;
    }

    bool written(uint32_t code)
    {
        return code == 0 || fail(Error::OutOfRange, "could not be written");
    }

    bool string(const Json::Node& v, int depth, const Param& p, const ZQSomeIPExtendAttr& ea, const ZQSomeIPExtendAttr* a,
                bool tlvMember)
    {
        if (v.type != Json::Type::String) {
            return fail(Error::WrongType, "expects a string");
        }
        const std::string text(v.text);
        if (!plainValidUtf8(text)) {
            return fail(Error::BadString, "is not valid UTF-8");
        }
        // Readers take a zero for the terminator, so what follows it would be lost.
        if (text.find('\0') != std::string::npos) {
            return fail(Error::BadString, "holds a zero character, which ends a string on the wire");
        }
        if (plainOwnStringRules(p, ea)) {
            return ownString(text, p, ea, tlvMember);
        }
        const uint64_t length = ea.string_utf == ZQ_SOMEIP_PAYLOAD_STRING_UTF16 ? 4 + 2 * plainUtf16Units(text)
                                                                               : 4 + text.size();
        if (length > plainLengthCapacity(ea.string_length_field_size)) {
            return fail(Error::TooLong, "is longer than its length field can express");
        }
        // At the top level the writer would use its own defaults for strings; the service's are
        // what the reader applies there.
        return written(w_->write(text, a != nullptr ? a : depth == 1 ? &attr_ : nullptr, false));
    }

    // The byte block of a string the engines' rules do not describe (see the decoder's twin).
    bool ownString(const std::string& text, const Param& p, const ZQSomeIPExtendAttr& ea, bool tlvMember)
    {
        const bool utf16 = ea.string_utf == ZQ_SOMEIP_PAYLOAD_STRING_UTF16;
        const bool little = p.stringUtf16ByteOrder == ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN;
        std::vector<unsigned char> bytes;
        if (p.stringBom) {
            const uint8_t* mark = utf16 ? (little ? BOM_UTF16LE : BOM_UTF16BE) : BOM_UTF8;
            bytes.insert(bytes.end(), mark, mark + (utf16 ? 2 : 3));
        }
        if (utf16) {
            for (const char16_t unit : zq_someip_utf8_to_utf16(text)) {
                const auto high = static_cast<unsigned char>(unit >> 8);
                const auto low = static_cast<unsigned char>(unit & 0xFF);
                bytes.push_back(little ? low : high);
                bytes.push_back(little ? high : low);
            }
        } else {
            bytes.insert(bytes.end(), text.begin(), text.end());
        }
        if (p.stringTerminator) {
            bytes.insert(bytes.end(), utf16 ? 2 : 1, 0);
        }
        if (p.fixedLength > 0) {
            if (bytes.size() > p.fixedLength) {
                return fail(Error::TooLong, "takes " + std::to_string(bytes.size()) + " bytes, the string's fixed length is " +
                                                std::to_string(p.fixedLength));
            }
            bytes.resize(p.fixedLength, 0);
        }
        const ZQSomeIPExtendAttr block = blockFrame(p, ea, tlvMember);
        const uint32_t lfs = block.array_length_field_size;
        if (lfs > 0 && bytes.size() > plainLengthCapacity(lfs)) {
            return fail(Error::TooLong, "is longer than its length field can express");
        }
        const uint32_t begun = w_->array_data_begin(&block);
        return written(begun) && (bytes.empty() || written(w_->write(bytes.data(), static_cast<unsigned>(bytes.size()), &block))) &&
               written(w_->data_end());
    }

    bool close(const Param& p, const ZQSomeIPExtendAttr& ea)
    {
        const uint32_t lfs = lengthFieldSize(p.kind, ea);
        const uint64_t length = w_->to_buffer().size() - w_->get_begin_index() - lfs;
        if (lfs > 0 && length > plainLengthCapacity(lfs)) {
            return fail(Error::TooLong, "is longer than its length field can express");
        }
        return written(w_->data_end());
    }

    bool list(const Json::Node& v, const Param& p, int depth)
    {
        for (uint32_t i = 0; i < v.count; ++i) {
            where_.push(i);
            if (!value(doc_.node(doc_.item(v, i)), p.members[0], depth)) {
                return false;
            }
            where_.pop();
        }
        return true;
    }

    template <typename T>
    bool floatValue(const Json::Node& v, const Param& p, const ZQSomeIPExtendAttr* a)
    {
        T x = 0;
        const bool ok = p.scaled && (v.type == Json::Type::Object || options_.scaled == ZQSomeIPScaledStyle::Physical)
                            ? scaledInput(v, p, x)
                            : floating(v, x);
        return ok && written(w_->write(x, a));
    }

    // `over`: attributes that stand for the parameter's own (a TLV member's length field size).
    bool value(const Json::Node& v, const Param& p, int depth, const ZQSomeIPExtendAttr* over = nullptr)
    {
        const ZQSomeIPExtendAttr& ea = over != nullptr ? *over : p.explicitAttr ? p.attr : attr_;
        const ZQSomeIPExtendAttr* a = over != nullptr || p.explicitAttr ? &ea : nullptr;
        // A union whose type field comes first opens no container before it: at the top level the
        // pending alignment is dropped as for any container, which is what the reader does there.
        if (depth == 1 && p.kind == Param::Union) {
            w_->calc_size(ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE, 0);
        }
        switch (p.kind) {
        case Param::Bool:
            if (v.type != Json::Type::Bool) {
                return fail(Error::WrongType, "expects true or false");
            }
            return written(w_->write(v.flag, a));
        case Param::UInt8: return write<unsigned char>(v, p, a);
        case Param::UInt16: return write<unsigned short>(v, p, a);
        case Param::UInt32: return write<unsigned int>(v, p, a);
        case Param::UInt64: return write<unsigned long>(v, p, a);
        case Param::Int8: return write<signed char>(v, p, a);
        case Param::Int16: return write<short>(v, p, a);
        case Param::Int32: return write<int>(v, p, a);
        case Param::Int64: return write<long>(v, p, a);
        case Param::Float: return floatValue<float>(v, p, a);
        case Param::Double: return floatValue<double>(v, p, a);
        case Param::String: return string(v, depth, p, ea, a, over != nullptr);
        case Param::Structure:
            if (v.type != Json::Type::Object) {
                return fail(Error::WrongType, "expects an object");
            }
            if (!written(w_->struct_data_begin(a))) {
                return false;
            }
            return (p.tlv ? tlvObject(v, p.members, ea, depth + 1) : object(v, p.members, depth + 1)) && close(p, ea);
        case Param::Array:
        case Param::Vector:
            if (v.type != Json::Type::Array) {
                return fail(Error::WrongType, "expects an array");
            }
            if (p.kind == Param::Array && v.count != p.count) {
                return fail(Error::WrongCount, "has " + std::to_string(v.count) + " elements, the format declares " +
                                                   std::to_string(p.count));
            }
            if (p.kind == Param::Vector && (v.count < p.minCount || v.count > p.maxCount)) {
                return fail(Error::WrongCount, "has " + std::to_string(v.count) + " elements, the format allows " +
                                                   std::to_string(p.minCount) + " to " + std::to_string(p.maxCount));
            }
            return written(p.kind == Param::Array ? w_->array_data_begin(a) : w_->vector_data_begin(a)) &&
                   list(v, p, depth + 1) && close(p, ea);
        case Param::Union: return unionValue(v, p, depth, ea, over != nullptr);
        }
        return false;
    }

    // The member a union's object names and its value; both stay null for a null the union allows.
    bool unionMember(const Json::Node& v, const Param& p, const Param*& member, const Json::Node*& child)
    {
        if (v.type == Json::Type::Null) {
            if (!p.allowNull) {
                return fail(Error::WrongType, "expects an object of one member (null only where the union allows it)");
            }
            return true;
        }
        if (v.type != Json::Type::Object) {
            return fail(Error::WrongType, "expects an object of one member");
        }
        if (v.count != 1) {
            return fail(Error::WrongCount, "has " + std::to_string(v.count) + " members, a union takes exactly one");
        }
        const Json::Member& m = doc_.member(v, 0);
        for (const Param& candidate : p.members) {
            if (candidate.name == m.key) {
                member = &candidate;
            }
        }
        if (member == nullptr) {
            return fail(Error::UnknownMember, "has no member \"" + std::string(m.key) + "\"");
        }
        child = &doc_.node(m.value);
        return true;
    }

    bool unionValue(const Json::Node& v, const Param& p, int depth, const ZQSomeIPExtendAttr& ea, bool tlvMember)
    {
        const Param* member = nullptr;
        const Json::Node* child = nullptr;
        if (!unionMember(v, p, member, child)) {
            return false;
        }
        const uint32_t selector = member != nullptr ? member->selector : 0;
        ZQSomeIPExtendAttr u = unionFrame(ea);
        const bool typeFirst = p.unionTypeFirst && !tlvMember;
        size_t start = 0;
        if (typeFirst) {
            if (!written(w_->write_enum(selector, u.union_type_field_size, &ea))) {
                return false;
            }
            start = w_->to_buffer().size() - u.union_type_field_size;
            u.union_type_field_size = 0;
        }
        if (!written(w_->union_data_begin(&u, selector))) {
            return false;
        }
        if (!typeFirst) {
            start = w_->get_begin_index();
        }
        const size_t memberStart = w_->get_begin_index() + u.union_length_field_size + u.union_type_field_size;
        if (member != nullptr) {
            where_.push(member->name);
            if (!value(*child, *member, depth + 1)) {
                return false;
            }
            where_.pop();
        }
        size_t fill = 0;
        if (u.union_length_field_size == 0) {
            const size_t used = w_->to_buffer().size() - memberStart;
            if (used > p.maxLength) {
                return fail(Error::TooLong, "takes " + std::to_string(used) + " bytes, the union holds " +
                                                std::to_string(p.maxLength));
            }
            fill = p.maxLength - used;
        }
        fill += alignPadding(w_->to_buffer().size() + fill - start, ea.alignment);
        const std::vector<unsigned char> zeros(fill, 0);
        if (!zeros.empty() && !written(w_->write(zeros.data(), static_cast<unsigned>(zeros.size()), &u))) {
            return false;
        }
        Param closing;
        closing.kind = Param::Union;
        return close(closing, u);
    }

    const ZQSomeIPExtendAttr& attr_;
    const Json& doc_;
    Writer* w_;
    const ZQSomeIPPlainOptions& options_;
    ZQSomeIPPlainStatus& status_;
    Where where_;
};

const ZQSomeIPPlainMethod* method(const ZQSomeIPFormatSet& formats, int serviceID, int methodID, int messageType,
                                  ZQSomeIPPlainStatus& status)
{
    const ZQSomeIPPlainMethod* m = formats.find(serviceID, methodID, messageType);
    if (m == nullptr) {
        status.code = Error::UnknownMessage;
        status.message = plainUnknownMessageText(serviceID, methodID, messageType);
    }
    return m;
}

// A format the plain codec cannot use fails every call with the reason found when it was loaded.
bool usable(const ZQSomeIPPlainMethod& method, ZQSomeIPPlainStatus& status)
{
    if (method.unsupported.empty()) {
        return true;
    }
    status.code = Error::UnsupportedFormat;
    status.message = method.unsupported;
    return false;
}

} // namespace

ZQSomeIPPlainStatus plainDecode(const ZQSomeIPFormatSet& formats, int serviceID, int methodID, int messageType,
                                const uint8_t* payload, size_t size, std::string& json,
                                const ZQSomeIPPlainOptions& options)
{
    ZQSomeIPPlainStatus status;
    const ZQSomeIPPlainMethod* m = method(formats, serviceID, methodID, messageType, status);
    if (m == nullptr) {
        return status;
    }
    return plainDecode(*m, payload, size, json, options);
}

// The compiled program where it is sure of the result, the reference decoder otherwise.
ZQSomeIPPlainStatus plainDecode(const ZQSomeIPPlainMethod& method, const uint8_t* payload, size_t size,
                                std::string& json, const ZQSomeIPPlainOptions& options)
{
    ZQSomeIPPlainStatus status;
    if (plainProgramDecode(method, payload, size, json, options, status)) {
        return status;
    }
    return plainDecodeReference(method, payload, size, json, options);
}

ZQSomeIPPlainStatus plainDecodeReference(const ZQSomeIPPlainMethod& method, const uint8_t* payload, size_t size,
                                         std::string& json, const ZQSomeIPPlainOptions& options)
{
    ZQSomeIPPlainStatus status;
    if (!usable(method, status)) {
        return status;
    }
    const ZQSomeIPPlainMethod* m = &method;
    if (size > 0xFFFFFFFFu) {
        status.code = Error::LengthBeyondData;
        status.message = "payload: larger than 4 GiB";
        return status;
    }
    std::string out;
    out.reserve(64 + size * 4);  // the text of a payload is a few times its size
    Decoder decoder(m->attr, payload, options, out, status);
    try {
        ZQSomeIPExtendAttr attr = m->attr;
        Reader reader(&attr);
        if (size > 0) {
            reader.from_buffer(payload, static_cast<uint32_t>(size));
        }
        if (m->tlv) {
            // The list as a structure without a length field: it ends with the payload.
            if (reader.struct_data_begin(&m->list.attr) != 0 ||
                !decoder.tlvObject(reader, 0, m->params, m->list.attr, size, 0)) {
                return status;
            }
            reader.data_end();
        } else if (!decoder.object(reader, 0, m->params, 0)) {
            return status;
        }
        if (reader.get_index() < size) {
            const std::string what = std::to_string(size - reader.get_index()) + " bytes after the last parameter";
            if (options.strict) {
                decoder.fail(Error::TrailingBytes, reader.get_index(), what);
                status.message = "payload: " + what;
                return status;
            }
            status.warnings.push_back({reader.get_index(), size - reader.get_index(), "payload: " + what + " skipped"});
        }
    } catch (const std::exception&) {
        // The reader throws only on UTF-16 text that does not convert.
        status.code = Error::BadString;
        status.message = "a UTF-16 string with an unpaired surrogate";
        return status;
    }
    if (options.pretty) {
        out += '\n';
    }
    json = std::move(out);
    return status;
}

ZQSomeIPPlainStatus plainEncode(const ZQSomeIPFormatSet& formats, int serviceID, int methodID, int messageType,
                                std::string_view json, std::vector<uint8_t>& payload,
                                const ZQSomeIPPlainOptions& options)
{
    ZQSomeIPPlainStatus status;
    const ZQSomeIPPlainMethod* m = method(formats, serviceID, methodID, messageType, status);
    if (m == nullptr) {
        return status;
    }
    return plainEncode(*m, json, payload, options);
}

// The compiled program where it is sure of the result, the reference encoder otherwise.
ZQSomeIPPlainStatus plainEncode(const ZQSomeIPPlainMethod& method, std::string_view json,
                                std::vector<uint8_t>& payload, const ZQSomeIPPlainOptions& options)
{
    ZQSomeIPPlainStatus status;
    if (plainProgramEncode(method, json, payload, status)) {
        return status;
    }
    return plainEncodeReference(method, json, payload, options);
}

ZQSomeIPPlainStatus plainEncodeReference(const ZQSomeIPPlainMethod& method, std::string_view json,
                                         std::vector<uint8_t>& payload, const ZQSomeIPPlainOptions& options)
{
    ZQSomeIPPlainStatus status;
    if (!usable(method, status)) {
        return status;
    }
    const ZQSomeIPPlainMethod* m = &method;
    thread_local Json doc;
    if (!doc.parse(json, Json::Grammar::Standard)) {
        status.code = Error::BadJson;
        status.path = "$";
        status.message = "not JSON (reading stopped at byte " + std::to_string(doc.errorOffset()) + ")";
        return status;
    }
    try {
        ZQSomeIPExtendAttr attr = m->attr;
        Writer writer(&attr);
        Encoder encoder(m->attr, doc, writer, options, status);
        if (m->tlv ? !encoder.tlvObject(doc.root(), m->params, m->list.attr, 1)
                   : !encoder.object(doc.root(), m->params, 1)) {
            return status;
        }
        payload.swap(writer.to_buffer());
    } catch (const std::exception&) {
        status.code = Error::BadString;
        status.path = "$";
        status.message = "$ holds text the UTF-16 conversion refuses";
    }
    return status;
}

std::string plainUnknownMessageText(int serviceID, int methodID, int messageType, int interfaceVersion)
{
    const auto id = [](int value, int digits) {
        char hex[16];
        std::snprintf(hex, sizeof(hex), "0x%0*x", digits, static_cast<unsigned>(value));
        return std::to_string(value) + " (" + hex + ")";
    };
    return "no format for service " + id(serviceID, 4) + ", method " + id(methodID, 4) + ", message type " +
           id(messageType, 2) +
           (interfaceVersion < 0 ? std::string() : " at interface version " + std::to_string(interfaceVersion));
}

} // namespace ZQSomeIP
