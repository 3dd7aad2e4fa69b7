// Reading back the compact JSON this library writes (plain decode results, capture lines) without a
// document in between: a cursor with the few lexing steps such text needs, and a walk that hands each
// value to a visitor as it is read. Consumers build their own values from it (Python objects, table
// columns, plotted signals) without parsing the text a second time in another language.
//
// The text is expected to be well-formed; anything else ends the walk with false, never a read outside
// the text. Nesting is bounded (kMaxDepth) so that hostile text cannot exhaust the stack.
#ifndef SOMEIP_CAPTURE_LINES_JSON_SCAN_H
#define SOMEIP_CAPTURE_LINES_JSON_SCAN_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace capture_lines {

// A JSON number as the writer wrote it: an integer that fits 64 bits keeps every digit.
struct JsonNumber {
    enum Kind : uint8_t { Int, UInt, Real } kind = Int;
    int64_t i = 0;   // Int (also any non-negative integer up to INT64_MAX)
    uint64_t u = 0;  // UInt: above INT64_MAX
    double d = 0;    // Real, and the value of every kind as a double
};

class JsonScanner {
public:
    static constexpr int kMaxDepth = 512;

    explicit JsonScanner(std::string_view text) : text_(text) {}

    size_t position() const { return at_; }
    bool atEnd() { skipBlanks(); return at_ >= text_.size(); }
    // The next significant character ('\0' at the end).
    char peek() { skipBlanks(); return at_ < text_.size() ? text_[at_] : '\0'; }
    // Takes `c` when it comes next.
    bool take(char c);
    // Takes the literal (true, false, null) when it comes next.
    bool literal(std::string_view word);
    // A string's content with escapes decoded: a view into the text when it has none, else into `scratch`.
    bool string(std::string& scratch, std::string_view& out);
    bool number(JsonNumber& out);
    // Passes over one value of any kind; `span` is its text.
    bool skipValue(std::string_view& span, int depth = 0);

private:
    void skipBlanks()
    {
        while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\n' || text_[at_] == '\r' || text_[at_] == '\t')) {
            ++at_;
        }
    }
    bool unescape(size_t begin, std::string& scratch);
    bool hex4(uint32_t& unit);

    std::string_view text_;
    size_t at_ = 0;
    std::string skipScratch_;  // strings passed over by skipValue
};

// What a walk finds, in text order. Keys come before their member's value.
class JsonVisitor {
public:
    virtual ~JsonVisitor() = default;
    virtual void beginObject() = 0;
    virtual void key(std::string_view name) = 0;
    virtual void endObject() = 0;
    virtual void beginArray() = 0;
    virtual void endArray() = 0;
    virtual void number(const JsonNumber& n) = 0;
    virtual void string(std::string_view s) = 0;
    virtual void boolean(bool b) = 0;
    virtual void null() = 0;
};

// One value (and nothing after it but blanks). False when the text is not that.
bool walkJson(std::string_view text, JsonVisitor& visitor);
// One value at the scanner's position.
bool walkValue(JsonScanner& scanner, JsonVisitor& visitor, std::string& scratch, int depth = 0);

} // namespace capture_lines

#endif // SOMEIP_CAPTURE_LINES_JSON_SCAN_H
