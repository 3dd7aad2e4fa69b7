// Plain decode and encode over the payload engines: the reader and the writer apply the wire rules
// (attributes, alignment, length fields, byte order) exactly as the classic converters do, so a
// value reads the same through either API; this file adds the plain JSON form and the strict checks.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <locale.h>

#include "ZQSomeIPFormatSet.h"
#include "ZQSomeIPJsonText.h"
#include "ZQSomeIPLightJson.h"
#include "someip/ZQSomeIPPayloadDeserializerGeneral.h"
#include "someip/ZQSomeIPPayloadSerializerGeneral.h"

namespace ZQSomeIP {

namespace {

using Param = ZQSomeIPPlainParam;
using Error = ZQSomeIPPlainError;
using Reader = ZQSomeIPPayloadDeserializerGeneral;
using Writer = ZQSomeIPPayloadSerializerGeneral;
using Json = ZQSomeIPLightJson;

const char* const kKindNames[] = {"bool", "uint8_t", "uint16_t", "uint32_t", "uint64_t", "int8_t", "int16_t",
                                  "int32_t", "int64_t", "float", "double", "string", "struct", "array", "vector"};

uint32_t lengthFieldSize(Param::Kind kind, const ZQSomeIPExtendAttr& a)
{
    switch (kind) {
    case Param::Structure: return a.struct_length_field_size;
    case Param::Array: return a.array_length_field_size;
    case Param::Vector: return a.vector_length_field_size;
    case Param::String: return a.string_length_field_size;
    default: return 0;
    }
}

uint64_t lengthCapacity(uint32_t fieldSize)
{
    return fieldSize == 1 ? 0xFFu : fieldSize == 2 ? 0xFFFFu : 0xFFFFFFFFu;
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

bool validUtf8(const std::string& s)
{
    size_t i = 0;
    while (i < s.size()) {
        const auto c = static_cast<unsigned char>(s[i]);
        size_t n = 0;
        uint32_t cp = 0;
        if (c < 0x80) {
            ++i;
            continue;
        } else if ((c & 0xE0) == 0xC0) {
            n = 1;
            cp = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            n = 2;
            cp = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            n = 3;
            cp = c & 0x07;
        } else {
            return false;
        }
        if (i + n >= s.size()) {
            return false;
        }
        for (size_t k = 1; k <= n; ++k) {
            const auto d = static_cast<unsigned char>(s[i + k]);
            if ((d & 0xC0) != 0x80) {
                return false;
            }
            cp = (cp << 6) | (d & 0x3F);
        }
        const uint32_t least[] = {0, 0x80, 0x800, 0x10000};
        if (cp < least[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            return false;
        }
        i += n + 1;
    }
    return true;
}

// UTF-16 code units the text becomes (it is valid UTF-8).
size_t utf16Units(const std::string& s)
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

locale_t cLocale()
{
    static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return c;
}

// Where the walk is, kept as a stack of names and indices and spelled out only for a message.
class Where {
public:
    Where() { parts_.reserve(16); }
    void push(const std::string& name) { parts_.push_back({&name, 0}); }
    void push(uint32_t index) { parts_.push_back({nullptr, index}); }
    void pop() { parts_.pop_back(); }
    // "a.b[2].c", with `root` in front ("$" for JSON paths; nothing for decode messages).
    std::string text(const char* root) const
    {
        std::string out = root;
        for (const Part& part : parts_) {
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
    std::vector<Part> parts_;
};

// ---------------------------------------------------------------------------------------------------
// Decode

class Decoder {
public:
    Decoder(const ZQSomeIPExtendAttr& attr, const uint8_t* data, bool pretty, std::string& out,
            ZQSomeIPPlainStatus& status)
        : attr_(attr), data_(data), pretty_(pretty), out_(out), status_(status)
    {
    }

    bool object(Reader& r, size_t base, const std::vector<Param>& members, int depth)
    {
        out_ += '{';
        for (size_t i = 0; i < members.size(); ++i) {
            if (i > 0) {
                out_ += ',';
            }
            newline(depth + 1);
            out_ += members[i].key;
            if (pretty_) {
                out_ += ' ';
            }
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

    template <typename T>
    bool number(Reader& r, size_t base, const Param& p)
    {
        const size_t at = r.get_index();
        T v{};
        if (r.read(v, nullptr) != 0) {
            return basicFailed(r, base, at, sizeof(T), p);
        }
        char text[64];
        std::to_chars_result res{};
        if constexpr (std::is_floating_point<T>::value) {
            if (!std::isfinite(v)) {
                nonFinite(v);
                return true;
            }
            res = std::to_chars(text, text + sizeof(text), v);
        } else {
            res = std::to_chars(text, text + sizeof(text), v + 0);
        }
        out_.append(text, static_cast<size_t>(res.ptr - text));
        return true;
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

    bool basicFailed(Reader& r, size_t base, size_t at, size_t width, const Param& p)
    {
        const std::string what = std::string(kKindNames[p.kind]);
        if (r.get_index() + width > r.get_size() || at + width > r.get_size()) {
            return fail(Error::Truncated, base + at, "the payload ends inside this " + what);
        }
        return fail(Error::LengthMismatch, base + at, "this " + what + " runs past its container's length field");
    }

    bool string(Reader& r, size_t base)
    {
        const size_t at = r.get_index();
        const uint32_t lfs = attr_.string_length_field_size;
        std::string text;
        if (r.read(text, 0, nullptr, false) != 0) {
            const size_t now = r.get_index();
            if (now < at + lfs || now > r.get_size()) {
                return fail(Error::Truncated, base + at, "the payload ends inside this string's length field");
            }
            const uint32_t length = peekLength(data_ + base, now - lfs, lfs, attr_);
            if (length > r.get_size() - now) {
                return fail(Error::LengthBeyondData, base + now - lfs,
                            "the string's length field says " + std::to_string(length) + " bytes, " +
                                std::to_string(r.get_size() - now) + " remain");
            }
            return fail(Error::BadString, base + at, "not a string: byte order mark or terminator missing");
        }
        // Where the length field was: after at most 7 bytes of alignment padding.
        const size_t end = r.get_index();
        const size_t expected = attr_.string_utf == ZQ_SOMEIP_PAYLOAD_STRING_UTF16 ? 4 + 2 * utf16Units(text)
                                                                                   : 4 + text.size();
        for (size_t pad = 0; pad < 8 && at + pad + lfs <= end; ++pad) {
            const uint32_t length = peekLength(data_ + base, at + pad, lfs, attr_);
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
        if (!validUtf8(text)) {
            return fail(Error::BadString, base + at, "the string is not valid UTF-8");
        }
        // UTF-16 text keeps zero units that stand before the terminator; a reader would stop there.
        if (text.find('\0') != std::string::npos) {
            return fail(Error::BadString, base + at, "the string holds a zero before its end");
        }
        appendJsonString(out_, text);
        return true;
    }

    // A container's content must be exactly what its length field says: unread bytes would be taken
    // for the next parameter.
    bool closeContainer(Reader& r, size_t base, const Param& p)
    {
        const uint32_t lfs = lengthFieldSize(p.kind, attr_);
        if (lfs > 0) {
            const size_t begin = r.get_begin_index();
            const uint32_t length = peekLength(data_ + base, begin, lfs, attr_);
            const size_t used = r.get_index() - begin - lfs;
            if (used != length) {
                return fail(Error::LengthMismatch, base + begin,
                            "the length field says " + std::to_string(length) + " bytes, the content takes " +
                                std::to_string(used));
            }
        }
        r.data_end();
        return true;
    }

    bool openContainer(Reader& r, size_t base, const Param& p, uint32_t code)
    {
        if (code == 0) {
            return true;
        }
        const size_t at = r.get_index();
        const uint32_t lfs = lengthFieldSize(p.kind, attr_);
        if (at + lfs > r.get_size()) {
            return fail(Error::Truncated, base + at, "the payload ends inside this " + std::string(kKindNames[p.kind]) +
                                                         "'s length field");
        }
        return fail(Error::LengthMismatch, base + at, "this " + std::string(kKindNames[p.kind]) +
                                                          " runs past its container's length field");
    }

    bool value(Reader& r, size_t base, const Param& p, int depth)
    {
        // The writer opens a top-level container without padding and so drops a pending "align the
        // next element" (left by a string or vector before it); the reader would keep it for the
        // next value. Dropped here as well, so that both directions agree on where values lie.
        if (depth == 1 && p.kind >= Param::Structure) {
            r.calc_size(ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE, 0);
        }
        switch (p.kind) {
        case Param::Bool: {
            const size_t at = r.get_index();
            bool v = false;
            if (r.read(v, nullptr) != 0) {
                return basicFailed(r, base, at, 1, p);
            }
            out_ += v ? "true" : "false";
            return true;
        }
        case Param::UInt8: return number<uint8_t>(r, base, p);
        case Param::UInt16: return number<uint16_t>(r, base, p);
        case Param::UInt32: return number<uint32_t>(r, base, p);
        case Param::UInt64: return number<uint64_t>(r, base, p);
        case Param::Int8: return number<int8_t>(r, base, p);
        case Param::Int16: return number<int16_t>(r, base, p);
        case Param::Int32: return number<int32_t>(r, base, p);
        case Param::Int64: return number<int64_t>(r, base, p);
        case Param::Float: return number<float>(r, base, p);
        case Param::Double: return number<double>(r, base, p);
        case Param::String: return string(r, base);
        case Param::Structure:
            return openContainer(r, base, p, r.struct_data_begin(nullptr)) && object(r, base, p.members, depth) &&
                   closeContainer(r, base, p);
        case Param::Array: {
            if (!openContainer(r, base, p, r.array_data_begin(nullptr))) {
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
            return closeContainer(r, base, p);
        }
        case Param::Vector: {
            if (!openContainer(r, base, p, r.vector_data_begin(nullptr))) {
                return false;
            }
            // Elements are read in place, until the content the length field announces is used up:
            // padding inside the vector then counts from where the writer counts it.
            const size_t begin = r.get_begin_index();
            const uint32_t lfs = attr_.vector_length_field_size;
            const uint32_t length = peekLength(data_ + base, begin, lfs, attr_);
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
            listEnd(i, depth);
            return closeContainer(r, base, p);
        }
        case Param::Union:
            break;
        }
        return false;
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
    std::string& out_;
    ZQSomeIPPlainStatus& status_;
    Where where_;
};

// ---------------------------------------------------------------------------------------------------
// Encode

class Encoder {
public:
    Encoder(const ZQSomeIPExtendAttr& attr, const Json& doc, Writer& w, ZQSomeIPPlainStatus& status)
        : attr_(attr), doc_(doc), w_(w), status_(status)
    {
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
    bool write(const Json::Node& v)
    {
        T x{};
        if (!integer(v, x)) {
            return false;
        }
        return written(w_.write(x, nullptr));
    }

    bool written(uint32_t code)
    {
        return code == 0 || fail(Error::OutOfRange, "could not be written");
    }

    bool string(const Json::Node& v, int depth)
    {
        if (v.type != Json::Type::String) {
            return fail(Error::WrongType, "expects a string");
        }
        const std::string text(v.text);
        if (!validUtf8(text)) {
            return fail(Error::BadString, "is not valid UTF-8");
        }
        // Readers take a zero for the terminator, so what follows it would be lost.
        if (text.find('\0') != std::string::npos) {
            return fail(Error::BadString, "holds a zero character, which ends a string on the wire");
        }
        const uint64_t length = attr_.string_utf == ZQ_SOMEIP_PAYLOAD_STRING_UTF16 ? 4 + 2 * utf16Units(text)
                                                                                 : 4 + text.size();
        if (length > lengthCapacity(attr_.string_length_field_size)) {
            return fail(Error::TooLong, "is longer than its length field can express");
        }
        // At the top level the writer would use its own defaults for strings; the service's are
        // what the reader applies there.
        return written(w_.write(text, depth == 1 ? &attr_ : nullptr, false));
    }

    bool close(const Param& p)
    {
        const uint32_t lfs = lengthFieldSize(p.kind, attr_);
        const uint64_t length = w_.to_buffer().size() - w_.get_begin_index() - lfs;
        if (lfs > 0 && length > lengthCapacity(lfs)) {
            return fail(Error::TooLong, "is longer than its length field can express");
        }
        return written(w_.data_end());
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

    bool value(const Json::Node& v, const Param& p, int depth)
    {
        switch (p.kind) {
        case Param::Bool:
            if (v.type != Json::Type::Bool) {
                return fail(Error::WrongType, "expects true or false");
            }
            return written(w_.write(v.flag, nullptr));
        case Param::UInt8: return write<unsigned char>(v);
        case Param::UInt16: return write<unsigned short>(v);
        case Param::UInt32: return write<unsigned int>(v);
        case Param::UInt64: return write<unsigned long>(v);
        case Param::Int8: return write<signed char>(v);
        case Param::Int16: return write<short>(v);
        case Param::Int32: return write<int>(v);
        case Param::Int64: return write<long>(v);
        case Param::Float: {
            float x = 0;
            return floating(v, x) && written(w_.write(x, nullptr));
        }
        case Param::Double: {
            double x = 0;
            return floating(v, x) && written(w_.write(x, nullptr));
        }
        case Param::String: return string(v, depth);
        case Param::Structure:
            if (v.type != Json::Type::Object) {
                return fail(Error::WrongType, "expects an object");
            }
            return written(w_.struct_data_begin(nullptr)) && object(v, p.members, depth + 1) && close(p);
        case Param::Array:
        case Param::Vector:
            if (v.type != Json::Type::Array) {
                return fail(Error::WrongType, "expects an array");
            }
            if (p.kind == Param::Array && v.count != p.count) {
                return fail(Error::WrongCount, "has " + std::to_string(v.count) + " elements, the format declares " +
                                                   std::to_string(p.count));
            }
            return written(p.kind == Param::Array ? w_.array_data_begin(nullptr) : w_.vector_data_begin(nullptr)) &&
                   list(v, p, depth + 1) && close(p);
        case Param::Union:
            break;
        }
        return false;
    }

    const ZQSomeIPExtendAttr& attr_;
    const Json& doc_;
    Writer& w_;
    ZQSomeIPPlainStatus& status_;
    Where where_;
};

const ZQSomeIPPlainMethod* method(const ZQSomeIPFormatSet& formats, int serviceID, int methodID, int messageType,
                                  ZQSomeIPPlainStatus& status)
{
    const ZQSomeIPPlainMethod* m = formats.find(serviceID, methodID, messageType);
    if (m == nullptr) {
        status.code = Error::UnknownMessage;
        status.message = "no format for service " + std::to_string(serviceID) + ", method " + std::to_string(methodID) +
                         ", message type " + std::to_string(messageType);
    } else if (!m->unsupported.empty()) {
        status.code = Error::UnsupportedFormat;
        status.message = m->unsupported;
        m = nullptr;
    }
    return m;
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

ZQSomeIPPlainStatus plainDecode(const ZQSomeIPPlainMethod& method, const uint8_t* payload, size_t size,
                                std::string& json, const ZQSomeIPPlainOptions& options)
{
    ZQSomeIPPlainStatus status;
    if (!method.unsupported.empty()) {
        status.code = Error::UnsupportedFormat;
        status.message = method.unsupported;
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
    Decoder decoder(m->attr, payload, options.pretty, out, status);
    try {
        ZQSomeIPExtendAttr attr = m->attr;
        Reader reader(&attr);
        if (size > 0) {
            reader.from_buffer(payload, static_cast<uint32_t>(size));
        }
        if (!decoder.object(reader, 0, m->params, 0)) {
            return status;
        }
        if (reader.get_index() < size) {
            decoder.fail(Error::TrailingBytes, reader.get_index(),
                         std::to_string(size - reader.get_index()) + " bytes after the last parameter");
            status.message = "payload: " + std::to_string(size - reader.get_index()) + " bytes after the last parameter";
            return status;
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

ZQSomeIPPlainStatus plainEncode(const ZQSomeIPPlainMethod& method, std::string_view json,
                                std::vector<uint8_t>& payload, const ZQSomeIPPlainOptions& options)
{
    ZQSomeIPPlainStatus status;
    if (!method.unsupported.empty()) {
        status.code = Error::UnsupportedFormat;
        status.message = method.unsupported;
        return status;
    }
    const ZQSomeIPPlainMethod* m = &method;
    (void)options;
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
        Encoder encoder(m->attr, doc, writer, status);
        if (!encoder.object(doc.root(), m->params, 1)) {
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

} // namespace ZQSomeIP
