#include "ZQSomeIPLightJson.h"

#include <cstring>

#include "ZQSomeIPJsonText.h"

namespace ZQSomeIP {

namespace {

// Far below the library reader's own limit, far above any parameter list.
const int kMaxDepth = 256;

int hexDigit(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// Four hex digits at `p`, as one UTF-16 unit.
bool hexUnit(const char*& p, const char* end, uint32_t& u)
{
    if (end - p < 4) {
        return false;
    }
    u = 0;
    for (int i = 0; i < 4; ++i) {
        const int d = hexDigit(p[i]);
        if (d < 0) {
            return false;
        }
        u = (u << 4) | static_cast<uint32_t>(d);
    }
    p += 4;
    return true;
}

// The digits of a unicode escape at `p`: one unit, or a high surrogate and its escaped low one, as UTF-8.
bool unicodeEscape(const char*& p, const char* end, std::string& text)
{
    uint32_t cp = 0;
    if (!hexUnit(p, end, cp)) {
        return false;
    }
    if (cp >= 0xD800 && cp <= 0xDBFF) {
        uint32_t low = 0;
        if (end - p < 2 || p[0] != '\\' || p[1] != 'u') {
            return false;
        }
        p += 2;
        if (!hexUnit(p, end, low) || low < 0xDC00 || low > 0xDFFF) {
            return false;
        }
        cp = 0x10000 + ((cp & 0x3FF) << 10) + (low & 0x3FF);
    } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
        return false;  // a lone low surrogate: left to the reader
    }
    appendUtf8(text, cp);
    return true;
}

// The escape at `p` (its backslash and what follows), appended to `text` decoded.
bool escape(const char*& p, const char* end, std::string& text)
{
    if (end - p < 2) {
        return false;
    }
    const char c = p[1];
    p += 2;
    switch (c) {
    case '"': text += '"'; return true;
    case '\\': text += '\\'; return true;
    case '/': text += '/'; return true;
    case 'b': text += '\b'; return true;
    case 'f': text += '\f'; return true;
    case 'n': text += '\n'; return true;
    case 'r': text += '\r'; return true;
    case 't': text += '\t'; return true;
    case 'u': return unicodeEscape(p, end, text);
    default: return false;
    }
}

} // namespace

void ZQSomeIPLightJson::blanks()
{
    while (p_ < end_ && (*p_ == ' ' || *p_ == '\t' || *p_ == '\n' || *p_ == '\r')) {
        ++p_;
    }
}

bool ZQSomeIPLightJson::parse(std::string_view text, Grammar grammar)
{
    grammar_ = grammar;
    begin_ = text.data();
    p_ = begin_;
    end_ = p_ + text.size();
    nodes_.clear();
    items_.clear();
    members_.clear();
    open_.clear();
    decoded_.clear();
    nodes_.emplace_back();
    blanks();
    if (!value(0, 0)) {
        return false;
    }
    blanks();
    return p_ == end_;
}

const ZQSomeIPLightJson::Node* ZQSomeIPLightJson::find(const Node& object, const char* key) const
{
    for (uint32_t i = 0; i < object.count; ++i) {
        const Member& m = members_[object.first + i];
        if (m.key == key) {
            return &nodes_[m.value];
        }
    }
    return nullptr;
}

bool ZQSomeIPLightJson::string(std::string_view& out)
{
    ++p_;  // the opening quote
    const char* start = p_;
    while (p_ < end_ && *p_ != '"' && *p_ != '\\') {
        ++p_;
    }
    if (p_ == end_) {
        return false;
    }
    if (*p_ == '"') {
        out = std::string_view(start, static_cast<size_t>(p_ - start));
        ++p_;
        return true;
    }
    // Escapes: decoded into storage of its own.
    decoded_.emplace_back(start, static_cast<size_t>(p_ - start));
    std::string& text = decoded_.back();
    while (p_ < end_) {
        const char* run = p_;
        while (p_ < end_ && *p_ != '"' && *p_ != '\\') {
            ++p_;
        }
        text.append(run, static_cast<size_t>(p_ - run));
        if (p_ == end_) {
            return false;
        }
        if (*p_ == '"') {
            ++p_;
            out = text;
            return true;
        }
        if (!escape(p_, end_, text)) {
            return false;
        }
    }
    return false;
}

bool ZQSomeIPLightJson::number(std::string_view& out)
{
    const char* start = p_;
    const bool negative = *p_ == '-';
    if (negative) {
        ++p_;
    }
    const char* digits = p_;
    while (p_ < end_ && *p_ >= '0' && *p_ <= '9') {
        ++p_;
    }
    const size_t count = static_cast<size_t>(p_ - digits);
    if (grammar_ == Grammar::Standard) {
        // The literal, checked against the JSON number grammar.
        if (count == 0 || (count > 1 && *digits == '0')) {
            return false;
        }
        if (p_ < end_ && *p_ == '.') {
            const char* fraction = ++p_;
            while (p_ < end_ && *p_ >= '0' && *p_ <= '9') {
                ++p_;
            }
            if (p_ == fraction) {
                return false;
            }
        }
        if (p_ < end_ && (*p_ == 'e' || *p_ == 'E')) {
            ++p_;
            if (p_ < end_ && (*p_ == '+' || *p_ == '-')) {
                ++p_;
            }
            const char* exponent = p_;
            while (p_ < end_ && *p_ >= '0' && *p_ <= '9') {
                ++p_;
            }
            if (p_ == exponent) {
                return false;
            }
        }
        out = std::string_view(start, static_cast<size_t>(p_ - start));
        return true;
    }
    // Fractions, exponents and integers that might not fit 64 bits are read as doubles by the reader.
    if (count == 0 || count > 18 || (p_ < end_ && (*p_ == '.' || *p_ == 'e' || *p_ == 'E'))) {
        return false;
    }
    // The reader prints the integer's value: no leading zeros, no minus zero.
    const char* significant = digits;
    while (significant + 1 < p_ && *significant == '0') {
        ++significant;
    }
    const bool zero = p_ - significant == 1 && *significant == '0';
    if (significant == digits && !(negative && zero)) {
        out = std::string_view(start, static_cast<size_t>(p_ - start));
        return true;
    }
    decoded_.emplace_back(negative && !zero ? "-" : "");
    decoded_.back().append(significant, static_cast<size_t>(p_ - significant));
    out = decoded_.back();
    return true;
}

bool ZQSomeIPLightJson::container(uint32_t index, int depth, bool object)
{
    const char close = object ? '}' : ']';
    ++p_;
    const size_t base = open_.size();
    blanks();
    if (p_ < end_ && *p_ == close) {
        ++p_;
    } else if (!children(depth, object, close)) {
        return false;
    }
    return store(index, base, object);
}

// The members or items of a container that is not empty, through its closing bracket, onto open_.
bool ZQSomeIPLightJson::children(int depth, bool object, char close)
{
    for (;;) {
        blanks();
        Member child;
        if (object) {
            if (p_ == end_ || *p_ != '"' || !string(child.key)) {
                return false;
            }
            blanks();
            if (p_ == end_ || *p_ != ':') {
                return false;
            }
            ++p_;
            blanks();
        }
        child.value = static_cast<uint32_t>(nodes_.size());
        nodes_.emplace_back();
        if (!value(child.value, depth + 1)) {
            return false;
        }
        open_.push_back(child);
        blanks();
        if (p_ == end_) {
            return false;
        }
        if (*p_ == ',') {
            ++p_;
            continue;
        }
        if (*p_ != close) {
            return false;
        }
        ++p_;
        return true;
    }
}

// Moves the container's children from open_ (from `base` on) to where node `index` finds them.
bool ZQSomeIPLightJson::store(uint32_t index, size_t base, bool object)
{
    Node& node = nodes_[index];
    node.count = static_cast<uint32_t>(open_.size() - base);
    if (object) {
        node.type = Type::Object;
        node.first = static_cast<uint32_t>(members_.size());
        // The reader keeps one member per key; merging is left to it.
        for (size_t i = grammar_ == Grammar::Classic ? base : open_.size(); i < open_.size(); ++i) {
            for (size_t j = base; j < i; ++j) {
                if (open_[i].key == open_[j].key) {
                    return false;
                }
            }
        }
        members_.insert(members_.end(), open_.begin() + static_cast<std::ptrdiff_t>(base), open_.end());
    } else {
        node.type = Type::Array;
        node.first = static_cast<uint32_t>(items_.size());
        for (size_t i = base; i < open_.size(); ++i) {
            items_.push_back(open_[i].value);
        }
    }
    open_.resize(base);
    return true;
}

bool ZQSomeIPLightJson::value(uint32_t index, int depth)
{
    if (p_ == end_ || depth > kMaxDepth) {
        return false;
    }
    const char c = *p_;
    if (c == '{' || c == '[') {
        return container(index, depth, c == '{');
    }
    Node& node = nodes_[index];
    if (c == '"') {
        node.type = Type::String;
        return string(node.text);
    }
    if (c == '-' || (c >= '0' && c <= '9')) {
        node.type = Type::Number;
        return number(node.text);
    }
    auto word = [this](const char* w) {
        const size_t n = strlen(w);
        if (static_cast<size_t>(end_ - p_) < n || memcmp(p_, w, n) != 0) {
            return false;
        }
        p_ += n;
        return true;
    };
    if (word("true")) {
        node.type = Type::Bool;
        node.flag = true;
        return true;
    }
    if (word("false")) {
        node.type = Type::Bool;
        return true;
    }
    if (word("null")) {
        node.type = Type::Null;
        return true;
    }
    return false;
}

} // namespace ZQSomeIP
