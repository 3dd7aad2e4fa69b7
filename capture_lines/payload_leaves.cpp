#include "payload_leaves.h"

#include <charconv>
#include <vector>

namespace capture_lines {

namespace {

using Param = ZQSomeIP::ZQSomeIPPlainParam;

class Flattener {
public:
    Flattener(std::string_view json, LeafVisitor& visitor) : scanner_(json), visitor_(visitor) {}

    bool run(const std::vector<Param>& params) { return object(&params, nullptr, 0) && scanner_.atEnd(); }

private:
    // Members are matched to the format by name, in format order (a TLV object may leave some out).
    static const Param* member(const std::vector<Param>* members, std::string_view name, size_t& next)
    {
        if (members == nullptr) {
            return nullptr;
        }
        for (size_t k = next; k < members->size(); ++k) {
            if ((*members)[k].name == name) {
                next = k + 1;
                return &(*members)[k];
            }
        }
        return nullptr;
    }

    void push(std::string_view part, size_t& mark)
    {
        mark = path_.size();
        if (!path_.empty()) {
            path_ += '.';
        }
        path_ += part;
    }

    // `members`: the parameters the object's keys name; `owner`: the parameter the object stands for.
    bool object(const std::vector<Param>* members, const Param* owner, int depth)
    {
        if (!scanner_.take('{')) {
            return false;
        }
        if (scanner_.take('}')) {
            return true;
        }
        size_t next = 0;
        do {
            std::string_view name;
            if (!scanner_.string(scratch_, name) || !scanner_.take(':')) {
                return false;
            }
            const Param* p = member(members, name, next);
            size_t mark = 0;
            push(name, mark);
            if (!value(p != nullptr ? p : owner, p != nullptr, depth + 1)) {
                return false;
            }
            path_.resize(mark);
        } while (scanner_.take(','));
        return scanner_.take('}');
    }

    // `own`: whether `p` is this value's own parameter, or only the one an added object describes.
    bool value(const Param* p, bool own, int depth)
    {
        if (depth > JsonScanner::kMaxDepth) {
            return false;
        }
        Leaf leaf;
        leaf.param = p;
        switch (scanner_.peek()) {
        case '{': {
            const bool members = own && p != nullptr && (p->kind == Param::Structure || p->kind == Param::Union);
            return object(members ? &p->members : nullptr, p, depth);
        }
        case '[':
            if (own && p != nullptr && p->kind == Param::Array && !p->members.empty()) {
                return fixedArray(p->members[0], depth);
            }
            leaf.kind = Leaf::List;
            if (!scanner_.skipValue(leaf.text, depth)) {
                return false;
            }
            break;
        case '"':
            leaf.kind = Leaf::String;
            if (!scanner_.string(scratch_, leaf.text)) {
                return false;
            }
            break;
        case 't':
        case 'f':
            leaf.kind = Leaf::Bool;
            leaf.boolean = scanner_.peek() == 't';
            if (!scanner_.literal(leaf.boolean ? "true" : "false")) {
                return false;
            }
            break;
        case 'n':
            if (!scanner_.literal("null")) {
                return false;
            }
            break;
        default:
            leaf.kind = Leaf::Number;
            if (!scanner_.number(leaf.number)) {
                return false;
            }
        }
        leaf.path = path_;
        visitor_.leaf(leaf);
        return true;
    }

    bool fixedArray(const Param& element, int depth)
    {
        scanner_.take('[');
        if (scanner_.take(']')) {
            return true;
        }
        size_t index = 0;
        char digits[24];
        do {
            const char* end = std::to_chars(digits, digits + sizeof(digits), index++).ptr;
            size_t mark = 0;
            push(std::string_view(digits, static_cast<size_t>(end - digits)), mark);
            if (!value(&element, true, depth + 1)) {
                return false;
            }
            path_.resize(mark);
        } while (scanner_.take(','));
        return scanner_.take(']');
    }

    JsonScanner scanner_;
    LeafVisitor& visitor_;
    std::string path_;
    std::string scratch_;
};

} // namespace

bool flattenPayload(const ZQSomeIP::ZQSomeIPPlainMethod& method, std::string_view json, LeafVisitor& visitor)
{
    return Flattener(json, visitor).run(method.params);
}

} // namespace capture_lines
