#include "ZQSomeIPFastDecoder.h"

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

// How a node is shown: filled in by this walk, or as the format describes it (an empty vector
// keeps its description untouched).
enum class Mode { Filled, Original };

class Walk {
public:
    Walk(const ZQSomeIPExtendAttr& attr, std::string& out) : attr_(attr), out_(out) {}

    // The top-level list, as the root array of the document.
    bool root(Reader& r, const std::vector<Node>& params, uint32_t remaining)
    {
        if (remaining == 0) {
            return false;
        }
        out_ += '[';
        for (size_t i = 0; i < params.size(); ++i) {
            if (i > 0) {
                out_ += ',';
            }
            newline(1);
            if (!param(r, params[i], remaining, 1, nullptr, 0)) {
                return false;
            }
        }
        out_ += "\n]\n";
        return true;
    }

private:
    void newline(int depth)
    {
        out_ += '\n';
        out_.append(static_cast<size_t>(depth), kIndent);
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
        value_ = '"';
        value_ += std::to_string(v);
        value_ += '"';
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
            value_ = v ? "\"true\"" : "\"false\"";
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
            value_ = Json::valueToQuotedString(text.c_str());
            return true;
        }
        default:
            return false;
        }
    }

    void elementName(const Node& container, int index)
    {
        if (container.plain_name) {
            out_ += '"';
            out_ += container.name;
            out_ += '_';
            out_ += std::to_string(index);
            out_ += '"';
        } else {
            out_ += Json::valueToQuotedString((container.name + "_" + std::to_string(index)).c_str());
        }
    }

    // The object of node `n` with `keys`; the element list of a container is walked where its key
    // comes. A basic node's value has been read already (value_).
    bool object(Reader& r, const Node& n, const std::vector<Key>& keys, uint32_t& remaining, int depth,
                const Node* element, int index, Mode mode)
    {
        std::string value;
        if (mode == Mode::Filled && n.kind < Kind::Structure) {
            value.swap(value_);
        }
        out_ += '{';
        bool first = true;
        for (const Key& key : keys) {
            const bool shown = mode == Mode::Filled ? (key.role != Key::Name || element != nullptr || key.original)
                                                     : key.original;
            if (!shown) {
                continue;
            }
            if (!first) {
                out_ += ',';
            }
            first = false;
            newline(depth + 1);
            out_ += key.head;
            if (mode == Mode::Original || key.role == Key::Static) {
                if (key.role != Key::SubParams) {
                    out_ += key.text;
                    continue;
                }
            }
            switch (key.role) {
            case Key::Name:
                if (element != nullptr) {
                    elementName(*element, index);
                } else {
                    out_ += key.text;
                }
                break;
            case Key::Value:
                if (n.kind == Kind::Vector) {
                    out_ += '"';
                    out_ += std::to_string(count_);
                    out_ += '"';
                } else {
                    out_ += value;
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
        out_ += '}';
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
        out_ += '[';
        if (n.kind == Kind::Structure) {
            if (mode == Mode::Filled && remaining == 0) {
                return false;
            }
            for (size_t i = 0; i < n.children.size(); ++i) {
                if (i > 0) {
                    out_ += ',';
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
                    out_ += ',';
                }
                newline(depth + 1);
                if (!param(r, n.children[0], remaining, depth + 1, &n, static_cast<int>(i))) {
                    return false;
                }
            }
        } else {
            // A vector: elements until its content is used up (the count is what the reader made of it).
            uint32_t read = 0;
            do {
                if (read > 0) {
                    out_ += ',';
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
        out_ += ']';
        return true;
    }

    void original(const Node& n, int depth)
    {
        uint32_t unused = 0;
        Reader none(&attr_);
        object(none, n, n.keys, unused, depth, nullptr, 0, Mode::Original);
    }

    const ZQSomeIPExtendAttr& attr_;
    std::string& out_;
    std::string value_;      // the rendered value of the basic parameter just read
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
        Walk walk(record, out);
        if (!walk.root(reader, format.params(), static_cast<uint32_t>(payload.size()))) {
            return false;
        }
        json = std::move(out);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace ZQSomeIP
