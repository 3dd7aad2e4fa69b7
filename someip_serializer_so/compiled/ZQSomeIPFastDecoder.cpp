#include "ZQSomeIPFastDecoder.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <exception>
#include <utility>

#include <json/json.h>

#include "someip/ZQSomeIPPayloadDeserializerGeneral.h"

namespace ZQSomeIP {

namespace {

using Reader = ZQSomeIPPayloadDeserializerGeneral;
using Key = ZQSomeIPCompiledKey;
using Node = ZQSomeIPCompiledNode;
using Kind = ZQSomeIPParamKind;

const char kIndent = '\t';  // the styled writer indents with one tab per level

// Text is gathered in a small block and handed to the result string a block at a time: most pieces
// are a few bytes, and the result then grows by whole blocks (its pages are touched only once written).
class TextOut {
public:
    explicit TextOut(std::string& out) : out_(out) {}
    ~TextOut() { flush(); }

    void put(char c)
    {
        if (used_ == sizeof(block_)) {
            flush();
        }
        block_[used_++] = c;
    }
    void put(const char* text, size_t len)
    {
        if (len > sizeof(block_) - used_) {
            flush();
            if (len > sizeof(block_)) {
                out_.append(text, len);
                return;
            }
        }
        memcpy(block_ + used_, text, len);
        used_ += len;
    }
    void put(const std::string& text) { put(text.data(), text.size()); }
    void repeat(char c, size_t count)
    {
        while (count-- > 0) {
            put(c);
        }
    }
    // Room for about `more` further bytes, claimed at once so that a long element list does not
    // make the result grow (and be copied) step by step. Pages are only touched once written.
    void reserve(size_t more)
    {
        if (out_.capacity() - out_.size() < used_ + more) {
            out_.reserve(out_.size() + used_ + more);
        }
    }
    void flush()
    {
        out_.append(block_, used_);
        used_ = 0;
    }

private:
    std::string& out_;
    char block_[16384];
    size_t used_ = 0;
};

// The "Value" text of a number, as std::to_string writes it: decimal integers, and "%f" (six
// decimals) for float and double, which to_chars reproduces digit for digit for finite values.
template <typename T>
void numberText(T v, std::string& text)
{
    char digits[400];
    std::to_chars_result r;
    if constexpr (std::is_floating_point<T>::value) {
        if (!std::isfinite(v)) {
            text = std::to_string(v);
            return;
        }
        r = std::to_chars(digits, digits + sizeof(digits), static_cast<double>(v), std::chars_format::fixed, 6);
    } else {
        r = std::to_chars(digits, digits + sizeof(digits), v + 0);  // 8-bit values print as numbers
    }
    text.assign(digits, r.ptr);
}

// Text the writer copies between quotes unchanged: printable ASCII other than quote and backslash.
bool plain(const std::string& text)
{
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u >= 0x7F || c == '"' || c == '\\') {
            return false;
        }
    }
    return true;
}

// How a node is shown: filled in by this walk, or as the format describes it (an empty vector
// keeps its description untouched).
enum class Mode { Filled, Original };

class Walk {
public:
    Walk(const ZQSomeIPExtendAttr& attr, TextOut& out) : attr_(attr), out_(out) {}

    // The top-level list, as the root array of the document.
    bool root(Reader& r, const std::vector<Node>& params, uint32_t remaining)
    {
        if (remaining == 0) {
            return false;
        }
        out_.put('[');
        for (size_t i = 0; i < params.size(); ++i) {
            if (i > 0) {
                out_.put(',');
            }
            newline(1);
            if (!param(r, params[i], remaining, 1, nullptr, 0)) {
                return false;
            }
        }
        out_.put("\n]\n", 3);
        return true;
    }

private:
    void newline(int depth)
    {
        out_.put('\n');
        out_.repeat(kIndent, static_cast<size_t>(depth));
    }

    // One filled parameter object at `depth`. `element` names the container it is element `index` of.
    bool param(Reader& r, const Node& n, uint32_t& remaining, int depth, const Node* element, int index)
    {
        switch (n.kind) {
        case Kind::Structure: {
            if (r.struct_data_begin(nullptr) != 0) {
                return false;
            }
            remaining -= attr_.struct_length_field_size;
            if (!object(r, n, n.keys, remaining, depth, element, index, Mode::Filled)) {
                return false;
            }
            r.data_end();
            return true;
        }
        case Kind::Array: {
            if (r.array_data_begin(nullptr) != 0) {
                return false;
            }
            remaining -= attr_.array_length_field_size;
            if (remaining == 0) {
                return false;
            }
            if (!object(r, n, n.keys, remaining, depth, element, index, Mode::Filled)) {
                return false;
            }
            r.data_end();
            return true;
        }
        case Kind::Vector:
            return vector(r, n, remaining, depth, element, index);
        default:
            return basic(r, n, remaining, depth, element, index);
        }
    }

    bool vector(Reader& r, const Node& n, uint32_t& remaining, int depth, const Node* element, int index)
    {
        if (r.vector_data_begin(nullptr) != 0) {
            return false;
        }
        remaining -= attr_.vector_length_field_size;
        uint8_t* data = nullptr;
        uint32_t len = 0;
        r.read(&data, &len, nullptr);  // as the reference: no length field reads as empty
        remaining -= len;
        std::vector<uint8_t> content;
        if (data != nullptr) {
            content.assign(data, data + len);
        }
        Reader inner(&attr_);
        inner.from_buffer(std::move(content));
        count_ = 0;
        if (!object(inner, n, n.keys, len, depth, element, index, len == 0 ? Mode::Original : Mode::Filled)) {
            return false;
        }
        r.data_end();
        return true;
    }

    bool basic(Reader& r, const Node& n, uint32_t& remaining, int depth, const Node* element, int index)
    {
        uint32_t used = 0;
        if (!readBasic(r, n.kind, used)) {
            return false;
        }
        remaining -= used;
        return object(r, n, n.keys, remaining, depth, element, index, Mode::Filled);
    }

    template <typename T>
    bool readNumber(Reader& r, uint32_t& used)
    {
        T v{};
        if (r.read(v, nullptr) != 0) {
            return false;
        }
        used = sizeof(T);
        numberText(v, value_);
        quoted_ = false;
        return true;
    }

    bool readBasic(Reader& r, Kind kind, uint32_t& used)
    {
        switch (kind) {
        case Kind::Bool: {
            bool v = false;
            if (r.read(v, nullptr) != 0) {
                return false;
            }
            used = 1;
            value_ = v ? "true" : "false";
            quoted_ = false;
            return true;
        }
        case Kind::UInt8: return readNumber<uint8_t>(r, used);
        case Kind::UInt16: return readNumber<uint16_t>(r, used);
        case Kind::UInt32: return readNumber<uint32_t>(r, used);
        case Kind::UInt64: return readNumber<uint64_t>(r, used);
        case Kind::Int8: return readNumber<int8_t>(r, used);
        case Kind::Int16: return readNumber<int16_t>(r, used);
        case Kind::Int32: return readNumber<int32_t>(r, used);
        case Kind::Int64: return readNumber<int64_t>(r, used);
        case Kind::Float: return readNumber<float>(r, used);
        case Kind::Double: return readNumber<double>(r, used);
        case Kind::String: {
            std::string text;
            if (r.read(text, 0, nullptr, false) != 0) {
                return false;
            }
            // The text writer stops a C string at a zero; the document keeps it. Left to the reference.
            if (text.find('\0') != std::string::npos) {
                return false;
            }
            used = attr_.string_length_field_size + 4 + static_cast<uint32_t>(text.size());
            quoted_ = !plain(text);
            value_ = quoted_ ? Json::valueToQuotedString(text.c_str()) : std::move(text);
            return true;
        }
        default:
            return false;
        }
    }

    void elementName(const Node& container, int index)
    {
        char digits[16];
        const char* end = std::to_chars(digits, digits + sizeof(digits), index).ptr;
        if (container.plain_name) {
            out_.put('"');
            out_.put(container.name);
            out_.put('_');
            out_.put(digits, static_cast<size_t>(end - digits));
            out_.put('"');
        } else {
            out_.put(Json::valueToQuotedString((container.name + "_" + std::string(static_cast<const char*>(digits), end)).c_str()));
        }
    }

    // The object of node `n` with `keys`; the element list of a container is walked where its key
    // comes. A basic node's value has been read already (value_).
    bool object(Reader& r, const Node& n, const std::vector<Key>& keys, uint32_t& remaining, int depth,
                const Node* element, int index, Mode mode)
    {
        out_.put('{');
        bool first = true;
        for (const Key& key : keys) {
            const bool shown = mode == Mode::Filled ? (key.role != Key::Name || element != nullptr || key.original)
                                                     : key.original;
            if (!shown) {
                continue;
            }
            if (!first) {
                out_.put(',');
            }
            first = false;
            newline(depth + 1);
            out_.put(key.head);
            if (mode == Mode::Original || key.role == Key::Static) {
                if (key.role != Key::SubParams) {
                    out_.put(key.text);
                    continue;
                }
            }
            switch (key.role) {
            case Key::Name:
                if (element != nullptr) {
                    elementName(*element, index);
                } else {
                    out_.put(key.text);
                }
                break;
            case Key::Value:
                if (n.kind == Kind::Vector) {
                    numberText(count_, value_);
                    quoted_ = false;
                }
                // Numbers and words need no escaping; text that does comes quoted already.
                if (!quoted_) {
                    out_.put('"');
                }
                out_.put(value_);
                if (!quoted_) {
                    out_.put('"');
                }
                break;
            case Key::SubParams:
                if (!subParams(r, n, &keys == &n.described_keys, remaining, depth + 1, mode)) {
                    return false;
                }
                break;
            default:
                break;
            }
        }
        newline(depth);
        out_.put('}');
        return true;
    }

    // The value of a "SubParams" key of node `n`, at member depth `depth`.
    bool subParams(Reader& r, const Node& n, bool inDescription, uint32_t& remaining, int depth, Mode mode)
    {
        // Arrays and objects as member values open on a line of their own, at the member's indent.
        newline(depth);
        if (n.kind == Kind::Array && n.described && !inDescription) {
            return object(r, n, n.described_keys, remaining, depth, nullptr, 0, mode);
        }
        out_.put('[');
        if (n.kind == Kind::Structure) {
            if (mode == Mode::Filled && remaining == 0) {
                return false;
            }
            for (size_t i = 0; i < n.children.size(); ++i) {
                if (i > 0) {
                    out_.put(',');
                }
                newline(depth + 1);
                if (mode == Mode::Original) {
                    original(n.children[i], depth + 1);
                } else if (!param(r, n.children[i], remaining, depth + 1, nullptr, 0)) {
                    return false;
                }
            }
        } else if (mode == Mode::Original) {
            newline(depth + 1);
            original(n.children[0], depth + 1);
        } else if (n.kind == Kind::Array) {
            for (uint32_t i = 0; i < n.count; ++i) {
                if (i > 0) {
                    out_.put(',');
                }
                newline(depth + 1);
                if (!param(r, n.children[0], remaining, depth + 1, &n, static_cast<int>(i))) {
                    return false;
                }
            }
        } else {
            // A vector: elements until its content is used up (the count is what the reader made of it).
            reserveElements(n.children[0], r.get_size(), depth + 1);  // the bytes the reader holds, not what a length field claims
            uint32_t read = 0;
            do {
                if (read > 0) {
                    out_.put(',');
                }
                newline(depth + 1);
                if (!param(r, n.children[0], remaining, depth + 1, &n, static_cast<int>(read))) {
                    return false;
                }
                ++read;
            } while (remaining != 0);
            count_ = read;
        }
        newline(depth);
        out_.put(']');
        return true;
    }

    // An upper estimate of the text of the elements `bytes` of content hold, for basic elements of a
    // fixed width (the content the reader holds bounds their number; the payload bounds the content).
    void reserveElements(const Node& element, uint32_t bytes, int depth)
    {
        static const uint32_t kWidth[] = {1, 1, 2, 4, 8, 1, 2, 4, 8, 4, 8};
        if (element.kind >= Kind::String) {
            return;
        }
        size_t text = 40 + 2 * static_cast<size_t>(depth + 1);  // name suffix, value, braces, indents
        for (const Key& key : element.keys) {
            text += key.head.size() + key.text.size() + static_cast<size_t>(depth) + 4;
        }
        out_.reserve(static_cast<size_t>(bytes / kWidth[static_cast<int>(element.kind)]) * text);
    }

    void original(const Node& n, int depth)
    {
        uint32_t unused = 0;
        Reader none(&attr_);
        object(none, n, n.keys, unused, depth, nullptr, 0, Mode::Original);
    }

    const ZQSomeIPExtendAttr& attr_;
    TextOut& out_;
    std::string value_;      // the value of the basic parameter just read (or the vector's count)
    bool quoted_ = false;    // value_ carries its quotes and escapes already
    uint32_t count_ = 0;     // elements of the vector just walked
};

} // namespace

bool fastDecode(const ZQSomeIPCompiledFormat& format, const ZQSomeIPExtendAttr& attr,
                const std::vector<unsigned char>& payload, std::string& json)
{
    try {
        ZQSomeIPExtendAttr record = attr;
        Reader reader(&record);
        reader.from_buffer(payload);
        std::string out;
        {
            TextOut text(out);
            Walk walk(record, text);
            if (!walk.root(reader, format.params(), static_cast<uint32_t>(payload.size()))) {
                return false;
            }
        }
        json = std::move(out);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace ZQSomeIP
