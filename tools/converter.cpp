#include "converter.h"

#include <exception>

#include <json/json.h>

#include "ZQSomeIPParserAPI.h"
#include "compiled/ZQSomeIPFormatSet.h"

namespace someip_json {

namespace {

// Dependencies' exception texts may span lines; a message here is one line.
std::string oneLine(std::string text)
{
    for (char& c : text) {
        if (c == '\n' || c == '\r') {
            c = ' ';
        }
    }
    while (!text.empty() && text.back() == ' ') {
        text.pop_back();
    }
    return text;
}

// The classic document on one line: whitespace outside strings dropped, everything else kept byte for
// byte. Re-serialising through a JSON library would also do, but could reorder members or reword
// numbers and escapes; this keeps the library's text as it is.
void compactInPlace(std::string& json)
{
    size_t to = 0;
    bool inString = false;
    bool escaped = false;
    for (size_t from = 0; from < json.size(); ++from) {
        const char c = json[from];
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == ' ' || c == '\n' || c == '\r' || c == '\t') {
            continue;
        } else if (c == '"') {
            inString = true;
        }
        json[to++] = c;
    }
    json.resize(to);
}

// The first character that is not blank: '{' opens a plain document, '[' a classic parameter list.
char opening(std::string_view json)
{
    const size_t at = json.find_first_not_of(" \t\r\n");
    return at == std::string_view::npos ? '\0' : json[at];
}

class ClassicConverter : public Converter {
public:
    ClassicConverter(Layout layout, FormatsOptions& formats) : compact_(layout == Layout::Compact)
    {
        loadClassic(api_, formats);
    }

    bool hasFormat(const Route& r) override
    {
        return api_.getMethodFormatbyID(r.service, r.method, r.type, scratch_) == 0;
    }

    bool decode(const Route& r, std::vector<uint8_t>& payload, std::string& json, Failure& failure) override
    {
        try {
            if (api_.deserializebyMethodID(r.service, r.method, r.type, payload, json) != 0) {
                // The library says only that it failed; a lookup tells the two usual reasons apart.
                failure = Failure::of("failed", hasFormat(r) ? "decode failed: the payload does not match the method format"
                                                      : ZQSomeIP::plainUnknownMessageText(r.service, r.method, r.type));
                return false;
            }
        } catch (const std::exception& e) {
            // The library lets errors of its JSON and text conversion dependencies through.
            failure = Failure::of("failed", "conversion failed: " + oneLine(e.what()));
            return false;
        }
        if (compact_) {
            compactInPlace(json);
        }
        return true;
    }

    const std::vector<ZQSomeIP::ZQSomeIPPlainWarning>& warnings() const override { return none_; }

    bool encode(const Route& r, std::string_view json, std::vector<uint8_t>& payload, Failure& failure) override
    {
        scratch_.assign(json.data(), json.size());
        try {
            if (api_.serializebyMethodID(r.service, r.method, r.type, scratch_, payload) != 0) {
                // Checked only once it failed: a second parse of every line would halve the pace.
                Json::Value parsed;
                failure = Failure::of("failed", (!Json::Reader().parse(scratch_, parsed, false) ? "invalid JSON input"
                                          : hasFormat(r) ? "encode failed: the parameter list could not be written"
                                                         : ZQSomeIP::plainUnknownMessageText(r.service, r.method, r.type)) + hint(json));
                return false;
            }
        } catch (const std::exception& e) {
            failure = Failure::of("failed", "conversion failed: " + oneLine(e.what()) + hint(json));
            return false;
        }
        return true;
    }

private:
    static std::string hint(std::string_view json)
    {
        return opening(json) == '{' ? " (the input looks like plain JSON, which is the default: drop --classic)"
                                    : std::string();
    }

    ZQSomeIP::ZQSomeIPParserAPI api_;
    bool compact_;
    std::string scratch_;
    const std::vector<ZQSomeIP::ZQSomeIPPlainWarning> none_;
};

Failure plainFailure(const ZQSomeIP::ZQSomeIPPlainStatus& status)
{
    using ZQSomeIP::ZQSomeIPPlainError;
    Failure f;
    f.code = ZQSomeIP::plainErrorName(status.code);
    f.json = status.toJson();
    f.text = f.code + ": " + status.message;
    // The place, unless the message names it already; a lookup failure has none worth naming.
    if (status.code == ZQSomeIPPlainError::UnknownMessage || status.code == ZQSomeIPPlainError::UnsupportedFormat) {
        return f;
    }
    if (status.path.empty()) {
        f.text += " (at byte " + std::to_string(status.offset) + ")";
    } else if (status.message.find(status.path) == std::string::npos) {
        f.text += " (at " + status.path + ")";
    }
    return f;
}

class PlainConverter : public Converter {
public:
    PlainConverter(Layout layout, FormatsOptions& formats, const ZQSomeIP::ZQSomeIPPlainOptions& options)
        : set_(formats.loadSet()), options_(options)
    {
        options_.pretty = layout == Layout::Pretty;
    }

    bool hasFormat(const Route& r) override { return set_->find(r.service, r.method, r.type) != nullptr; }

    bool decode(const Route& r, std::vector<uint8_t>& payload, std::string& json, Failure& failure) override
    {
        status_ =
            ZQSomeIP::plainDecode(*set_, r.service, r.method, r.type, payload.data(), payload.size(), json, options_);
        if (!status_.ok()) {
            failure = plainFailure(status_);
            return false;
        }
        return true;
    }

    const std::vector<ZQSomeIP::ZQSomeIPPlainWarning>& warnings() const override { return status_.warnings; }

    bool encode(const Route& r, std::string_view json, std::vector<uint8_t>& payload, Failure& failure) override
    {
        const auto status = ZQSomeIP::plainEncode(*set_, r.service, r.method, r.type, json, payload, options_);
        if (!status.ok()) {
            failure = plainFailure(status);
            if (opening(json) == '[' && status.code != ZQSomeIP::ZQSomeIPPlainError::UnknownMessage) {
                failure.text += " (the input looks like the classic parameter-list document: add --classic)";
            }
            return false;
        }
        return true;
    }

private:
    std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet> set_;
    ZQSomeIP::ZQSomeIPPlainOptions options_;
    ZQSomeIP::ZQSomeIPPlainStatus status_;  // of the last decode, whose warnings stay readable
};

} // namespace

std::unique_ptr<Converter> Converter::load(Form form, Layout layout, FormatsOptions& formats,
                                           const ZQSomeIP::ZQSomeIPPlainOptions& plain)
{
    if (form == Form::Plain) {
        return std::make_unique<PlainConverter>(layout, formats, plain);
    }
    return std::make_unique<ClassicConverter>(layout, formats);
}

Failure Failure::of(const std::string& code, const std::string& message)
{
    Failure f;
    f.code = code;
    f.text = message;
    f.json = "{\"code\":";
    appendJsonString(f.json, code);
    f.json += ",\"message\":";
    appendJsonString(f.json, message);
    f.json += '}';
    return f;
}

void loadClassic(ZQSomeIP::ZQSomeIPParserAPI& api, FormatsOptions& formats)
{
    formats.checkClassic();
    if (api.loadFormatJson(formats.formats) != 0) {
        fail(kExitFailed, "no format file in '" + formats.formats + "' could be loaded");
    }
}

std::string warningText(const std::vector<ZQSomeIP::ZQSomeIPPlainWarning>& warnings)
{
    std::string text = "warning: ";
    for (const auto& w : warnings) {
        if (&w != &warnings.front()) {
            text += "; ";
        }
        text += w.message + " (" + std::to_string(w.bytes) + (w.bytes == 1 ? " byte" : " bytes") + " at byte " +
                std::to_string(w.offset) + ")";
    }
    return text;
}

} // namespace someip_json
