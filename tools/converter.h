// The two JSON forms the tool reads and writes, behind one interface so that a single conversion and
// a stream of them share the code:
//   classic  the library's parameter-list documents (ZQSomeIPParserAPI)
//   plain    {"name":value,...} documents of a shared format set (ZQSomeIPFormatSet)
#ifndef SOMEIP_JSON_CONVERTER_H
#define SOMEIP_JSON_CONVERTER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ZQSomeIPParserAPI.h"
#include "compiled/ZQSomeIPFormatSet.h"
#include "tool_support.h"

namespace someip_json {

enum class Form { Classic, Plain };

// How decoded JSON is laid out. Plain text is compact unless pretty; classic text is the library's
// styled document unless compact, which puts that document on one line.
enum class Layout { Default, Compact, Pretty };

// One failed conversion.
struct Failure {
    std::string json;  // the error object of a stream line: {"code":"...",...,"message":"..."}
    std::string text;  // one line for standard error, without the tool's name
    std::string code;  // for the stream summary

    // A failure that has only a code and a message (no offset or path).
    static Failure of(const std::string& code, const std::string& message);
};

class Converter {
public:
    virtual ~Converter() = default;

    // Loads the format tree once, as FormatsOptions loads it (broken files reported). `plain` (but its
    // pretty, which `layout` decides) applies to the plain form; the classic form has no such options.
    static std::unique_ptr<Converter> load(Form form, Layout layout, FormatsOptions& formats,
                                           const ZQSomeIP::ZQSomeIPPlainOptions& plain = {});

    // Whether a format for the message is loaded.
    virtual bool hasFormat(const Route& route) = 0;
    // Payload -> JSON text in `json` (replaced; no line end after compact text).
    virtual bool decode(const Route& route, std::vector<uint8_t>& payload, std::string& json, Failure& failure) = 0;
    // What the last successful decode skipped (bytes the format does not know); the classic form
    // never skips.
    virtual const std::vector<ZQSomeIP::ZQSomeIPPlainWarning>& warnings() const = 0;
    // JSON text -> payload in `payload` (replaced).
    virtual bool encode(const Route& route, std::string_view json, std::vector<uint8_t>& payload,
                        Failure& failure) = 0;
};

// The library's classic API with the tree loaded (FormatsOptions::checkClassic reports broken files).
void loadClassic(ZQSomeIP::ZQSomeIPParserAPI& api, FormatsOptions& formats);

// One line for standard error about what one decode skipped (every warning of the message), without
// the tool's name or a line end.
std::string warningText(const std::vector<ZQSomeIP::ZQSomeIPPlainWarning>& warnings);

} // namespace someip_json

#endif // SOMEIP_JSON_CONVERTER_H
