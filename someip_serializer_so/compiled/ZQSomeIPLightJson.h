#ifndef ZQ_SOMEIP_LIGHT_JSON_H
#define ZQ_SOMEIP_LIGHT_JSON_H

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace ZQSomeIP {

// A small JSON reader for the fast encoder and the plain codec. It accepts only text on which the library's JSON reader
// (comments allowed, trailing text ignored, duplicate keys merged, large numbers read as doubles)
// is certain to build the same document: plain JSON with integers of at most 18 digits, distinct keys
// in every object, no comments, nothing but blanks after the root, and bounded nesting. Anything
// else is refused, and the caller leaves the text to that reader.
class ZQSomeIPLightJson {
public:
    enum class Type : uint8_t { Null, Bool, Number, String, Array, Object };

    struct Node {
        Type type = Type::Null;
        bool flag = false;      // Bool
        std::string_view text;  // String: the decoded text; Number: its decimal form as the reader prints it
        uint32_t first = 0;     // Array, Object: where its items or members start
        uint32_t count = 0;     // Array, Object: how many there are
    };
    struct Member {
        std::string_view key;
        uint32_t value = 0;     // node index
    };

    // What is accepted. Classic: the subset above. Standard: any JSON text, numbers kept as their
    // literal text (fractions, exponents, any size), repeated keys kept for the caller to judge.
    enum class Grammar { Classic, Standard };

    // False if the text is outside the accepted grammar (or not JSON at all); errorOffset() then
    // tells where reading stopped. The nodes refer into `text`, which must outlive them. An instance
    // may be reused; its storage is kept.
    bool parse(std::string_view text, Grammar grammar = Grammar::Classic);
    size_t errorOffset() const { return static_cast<size_t>(p_ - begin_); }

    const Node& root() const { return nodes_[0]; }
    const Node& node(uint32_t index) const { return nodes_[index]; }
    // Array items (node indices) and object members, in document order.
    uint32_t item(const Node& array, uint32_t i) const { return items_[array.first + i]; }
    const Member& member(const Node& object, uint32_t i) const { return members_[object.first + i]; }
    // The member `key` of an object, or null.
    const Node* find(const Node& object, const char* key) const;

private:
    bool value(uint32_t index, int depth);
    bool container(uint32_t index, int depth, bool object);
    bool children(int depth, bool object, char close);
    bool store(uint32_t index, size_t base, bool object);
    bool string(std::string_view& out);
    bool number(std::string_view& out);
    void blanks();

    const char* begin_ = nullptr;
    const char* p_ = nullptr;
    const char* end_ = nullptr;
    Grammar grammar_ = Grammar::Classic;
    std::vector<Node> nodes_;
    std::vector<uint32_t> items_;
    std::vector<Member> members_;
    std::vector<Member> open_;         // children of the containers being read, innermost last
    std::deque<std::string> decoded_;  // text that differs from the input (escapes, number forms)
};

} // namespace ZQSomeIP

#endif // ZQ_SOMEIP_LIGHT_JSON_H
