#include "fibex_coding.h"

#include <cmath>
#include <vector>

namespace ZQSomeIP {
namespace import {

namespace {

// The width a base data type implies when the coded type gives no bit length.
unsigned baseWidth(const std::string& base)
{
    static const std::pair<const char*, unsigned> widths[] = {
        {"A_UINT8", 8},  {"A_INT8", 8},   {"A_UINT16", 16},  {"A_INT16", 16},   {"A_UINT32", 32}, {"A_INT32", 32},
        {"A_UINT64", 64}, {"A_INT64", 64}, {"A_FLOAT32", 32}, {"A_FLOAT64", 64}, {"A_BOOLEAN", 8}, {"A_BITFIELD", 0}};
    for (const auto& w : widths) {
        if (base == w.first) {
            return w.second;
        }
    }
    return 0;
}

// The coded type's encoding; exporters put it in an attribute or, less often, a child element.
std::string codedProperty(pugi::xml_node codedType, const char* name)
{
    const std::string a = attribute(codedType, name);
    return a.empty() ? childText(codedType, name) : a;
}

std::vector<pugi::xml_node> compuScales(pugi::xml_node compu)
{
    std::vector<pugi::xml_node> scales;
    forChildren(child(child(compu, "COMPU-INTERNAL-TO-PHYS"), "COMPU-SCALES"), "COMPU-SCALE",
                [&](pugi::xml_node s) { scales.push_back(s); });
    return scales;
}

// A limit of a compu scale as an integer; exporters write "3" as well as "3.0".
bool limitInteger(const std::string& text, Json::Value& out)
{
    if (parseInteger(text, out)) {
        return true;
    }
    double d = 0;
    if (!parseNumber(text, d) || d != std::floor(d) || std::fabs(d) > 9007199254740992.0) {
        return false;
    }
    out = d < 0 ? Json::Value(static_cast<Json::Int64>(d)) : Json::Value(static_cast<Json::UInt64>(d));
    return true;
}

// A LINEAR method's one rational function, v0 + v1 * x over a constant denominator, as factor and
// offset; false with `why` when it is not that or its quotients are not exact doubles.
bool linearScale(pugi::xml_node compu, Json::Value& scale, std::string& why)
{
    const std::vector<pugi::xml_node> scales = compuScales(compu);
    if (scales.size() != 1) {
        why = "a linear conversion in " + std::to_string(scales.size()) + " pieces";
        return false;
    }
    const pugi::xml_node coeffs = child(scales[0], "COMPU-RATIONAL-COEFFS");
    std::vector<double> num, den;
    for (auto* list : {&num, &den}) {
        bool ok = true;
        forChildren(child(coeffs, list == &num ? "COMPU-NUMERATOR" : "COMPU-DENOMINATOR"), "V", [&](pugi::xml_node v) {
            double d = 0;
            ok = ok && parseNumber(text(v), d);
            list->push_back(d);
        });
        if (!ok) {
            why = "a linear conversion whose coefficients are not numbers";
            return false;
        }
    }
    if (den.empty()) {
        den.push_back(1);
    }
    if (num.size() != 2 || den.size() != 1 || den[0] == 0 || num[1] == 0) {
        why = "a conversion that is not linear";
        return false;
    }
    const double factor = num[1] / den[0], offset = num[0] / den[0];
    // The format states a factor and an offset: a quotient that a double cannot hold exactly
    // (1/3) would scale every value slightly wrong.
    if (std::fma(factor, den[0], -num[1]) != 0 || std::fma(offset, den[0], -num[0]) != 0) {
        why = "a linear conversion whose factor or offset has no exact decimal form";
        return false;
    }
    scale = Json::Value(Json::objectValue);
    scale["Factor"] = factor;
    scale["Offset"] = offset;
    return true;
}

bool textTable(pugi::xml_node compu, Json::Value& enumerators)
{
    enumerators = Json::Value(Json::arrayValue);
    for (pugi::xml_node s : compuScales(compu)) {
        Json::Value e(Json::objectValue), lower, upper;
        e["Name"] = childText(child(s, "COMPU-CONST"), "VT");
        const std::string upperText = childText(s, "UPPER-LIMIT");
        if (e["Name"].asString().empty() || !limitInteger(childText(s, "LOWER-LIMIT"), lower) ||
            !limitInteger(upperText.empty() ? childText(s, "LOWER-LIMIT") : upperText, upper)) {
            return false;
        }
        e["Value"] = lower;
        if (upper != lower) {
            e["ValueEnd"] = upper;
        }
        enumerators.append(std::move(e));
    }
    return !enumerators.empty();
}

// Named single bits of a BITFIELD-TEXTTABLE: each scale names the bit its value (or mask) sets.
// Scales for several bits at once are left out, and so reported.
void bitNames(pugi::xml_node compu, unsigned width, FibexCoding& c)
{
    c.bits = Json::Value(Json::arrayValue);
    uint64_t used = 0;
    size_t dropped = 0;
    for (pugi::xml_node s : compuScales(compu)) {
        Json::Value v;
        const std::string mask = childText(s, "MASK");
        uint64_t bitMask = 0;
        const bool valued = limitInteger(childText(s, "LOWER-LIMIT"), v) && v.isConvertibleTo(Json::uintValue);
        if (!mask.empty() ? !parseUnsigned(mask, UINT64_MAX, bitMask) : !valued) {
            ++dropped;
            continue;
        }
        if (mask.empty()) {
            bitMask = v.asUInt64();
        }
        const std::string name = childText(child(s, "COMPU-CONST"), "VT");
        const bool single = bitMask != 0 && (bitMask & (bitMask - 1)) == 0;
        const unsigned bit = single ? static_cast<unsigned>(__builtin_ctzll(bitMask)) : 0;
        // With a mask, the value must set the bit: a value of 0 under a mask names the bit cleared.
        if (!single || bit >= width || (used & bitMask) != 0 || name.empty() || (!mask.empty() && valued && v.asUInt64() != bitMask)) {
            ++dropped;
            continue;
        }
        used |= bitMask;
        Json::Value b(Json::objectValue);
        b["Name"] = name;
        b["Bit"] = bit;
        c.bits.append(std::move(b));
    }
    if (dropped != 0) {
        c.approximation = std::to_string(dropped) + " bit field entries that name no single bit are left out";
    }
}

void readString(pugi::xml_node ct, const std::string& base, std::optional<uint64_t> bits, FibexCoding& c)
{
    c.kind = FibexCoding::String;
    const std::string category = codedProperty(ct, "CATEGORY");
    const std::string encoding = codedProperty(ct, "ENCODING");
    const std::string termination = codedProperty(ct, "TERMINATION");
    if (category == "STANDARD-LENGTH-TYPE") {
        if (!bits || *bits == 0 || *bits % 8 != 0 || *bits / 8 > (1u << 24)) {
            c.kind = FibexCoding::Unsupported;
            c.reason = "a fixed-length string without a byte-sized length in bits";
            return;
        }
        c.fixed = true;
        c.fixedBytes = *bits / 8;
    } else if (category == "LEADING-LENGTH-INFO-TYPE") {
        uint64_t lengthBits = 0;
        const std::string given = childText(ct, "BIT-LENGTH");
        if (!given.empty()) {
            if (!parseUnsigned(given, 64, lengthBits) || lengthBits % 8 != 0 || lengthBits == 0 ||
                !Attributes::fieldSize(lengthBits / 8)) {
                c.kind = FibexCoding::Unsupported;
                c.reason = "a string length field of " + given + " bits (the format has 8, 16 and 32)";
                return;
            }
            c.lengthBytes = static_cast<uint32_t>(lengthBits / 8);
        }
    } else if (category != "MIN-MAX-LENGTH-TYPE") {
        c.kind = FibexCoding::Unsupported;
        c.reason = "a string of category \"" + category + "\" (the format has fixed strings and strings after a length field)";
        return;
    }
    if (encoding == "UTF-16" || encoding == "UCS-2" || encoding == "UTF-16BE") {
        c.utf16 = true;
        if (encoding == "UTF-16BE") {
            c.utf16LittleEndian = false;
        }
    } else if (encoding == "UTF-16LE") {
        c.utf16 = true;
        c.utf16LittleEndian = true;
    } else if (encoding == "ISO-8859-1" || encoding == "ASCII" || (encoding.empty() && base == "A_ASCIISTRING")) {
        c.approximation = "an ASCII string is written as UTF-8 (the same for 7-bit text)";
    } else if (!encoding.empty() && encoding != "UTF-8" && encoding != "UTF8") {
        c.kind = FibexCoding::Unsupported;
        c.reason = "a string encoded in " + encoding + " (the format has UTF-8 and UTF-16)";
        return;
    }
    if (termination == "ZERO") {
        c.terminator = true;
    } else if (termination == "NONE") {
        c.terminator = false;
    } else if (!termination.empty()) {
        c.kind = FibexCoding::Unsupported;
        c.reason = "a string terminated by " + termination + " (the format has a zero terminator or none)";
    }
}

}  // namespace

std::optional<bool> fibexBool(const std::string& t)
{
    if (t == "true" || t == "1") {
        return true;
    }
    if (t == "false" || t == "0") {
        return false;
    }
    return std::nullopt;
}

bool parseInteger(const std::string& t, Json::Value& out)
{
    uint64_t magnitude = 0;
    if (!t.empty() && t[0] == '-') {
        if (!parseUnsigned(std::string_view(t).substr(1), uint64_t(INT64_MAX) + 1, magnitude)) {
            return false;
        }
        out = Json::Value(static_cast<Json::Int64>(0 - magnitude));
        return true;
    }
    if (!parseUnsigned(t, UINT64_MAX, magnitude)) {
        return false;
    }
    out = Json::Value(static_cast<Json::UInt64>(magnitude));
    return true;
}

bool enumeratorsFit(const Json::Value& enumerators, const std::string& paramType)
{
    const bool isSigned = paramType[0] == 'i';
    const unsigned width = static_cast<unsigned>(std::stoul(paramType.substr(isSigned ? 3 : 4)));
    for (const Json::Value& e : enumerators) {
        for (const char* key : {"Value", "ValueEnd"}) {
            const Json::Value& v = e[key];
            if (v.isNull()) {
                continue;
            }
            if (v.isInt64() && v.asInt64() < 0) {
                if (!isSigned || (width < 64 && v.asInt64() < -(int64_t(1) << (width - 1)))) {
                    return false;
                }
            } else if (v.asUInt64() > (isSigned ? (uint64_t(1) << (width - 1)) - 1 : width == 64 ? UINT64_MAX : (uint64_t(1) << width) - 1)) {
                return false;
            }
        }
    }
    return true;
}

namespace {

// The basic type of a coded number: its encoding (given, or told by its base data type) and width.
// False, with the reason, for what the format has no type for.
bool numberType(pugi::xml_node ct, const std::string& base, std::optional<uint64_t> bits, std::string& encoding,
                FibexCoding& c)
{
    encoding = codedProperty(ct, "ENCODING");
    if (encoding.empty()) {
        encoding = base.rfind("A_UINT", 0) == 0 || base == "A_BITFIELD" ? "UNSIGNED"
                   : base.rfind("A_INT", 0) == 0                       ? "SIGNED"
                   : base.rfind("A_FLOAT", 0) == 0                     ? "IEEE-FLOATING-TYPE"
                   : base == "A_BOOLEAN"                               ? "BOOLEAN"
                                                                       : "";
    }
    const unsigned width = bits ? static_cast<unsigned>(*bits) : 0;
    const bool byteSized = width == 8 || width == 16 || width == 32 || width == 64;
    if (encoding == "UNSIGNED" || encoding == "SIGNED" || encoding == "2C") {
        if (!byteSized) {
            c.reason = "a " + std::to_string(width) + "-bit integer (the format has 8, 16, 32 and 64 bits)";
            return false;
        }
        c.paramType = (encoding == "UNSIGNED" ? "uint" : "int") + std::to_string(width) + "_t";
    } else if (encoding == "IEEE-FLOATING-TYPE" && (width == 32 || width == 64)) {
        c.paramType = width == 32 ? "float" : "double";
    } else if (encoding == "BOOLEAN" && (width == 8 || !bits)) {
        c.paramType = "bool";
    } else {
        c.reason = "a coded type of base \"" + base + "\", encoding \"" + encoding + "\" and " + std::to_string(width) +
                   " bits (the format has byte-sized integers, floats and bool)";
        return false;
    }
    return true;
}

// What the compu method makes of a number: bit names, a scale or named values; what the format cannot
// state is left out and said.
void conversion(pugi::xml_node compu, const std::string& base, const std::string& encoding, unsigned width,
                const std::function<std::string(const std::string&)>& unit, FibexCoding& c)
{
    const std::string method = childText(compu, "CATEGORY");
    const bool integer = c.paramType.find("int") != std::string::npos;
    if (base == "A_BITFIELD" || method == "BITFIELD-TEXTTABLE") {
        if (encoding != "UNSIGNED") {
            c.kind = FibexCoding::Unsupported;
            c.reason = "a bit field that is not unsigned";
            return;
        }
        c.kind = FibexCoding::Bitfield;
        bitNames(compu, width, c);
    } else if (method == "LINEAR") {
        std::string why;
        if (linearScale(compu, c.scale, why)) {
            const std::string u = unit(attribute(child(compu, "UNIT-REF"), "ID-REF"));
            if (!u.empty()) {
                c.scale["Unit"] = u;
            }
        } else {
            c.approximation = why + " is left out: the value is written raw";
        }
    } else if (method == "TEXTTABLE" && integer) {
        if (!textTable(compu, c.enumerators) || !enumeratorsFit(c.enumerators, c.paramType)) {
            c.enumerators = Json::Value();
            c.approximation = "named values are left out: one has no name, no integer value or one beyond " + c.paramType;
        }
    } else if (!method.empty() && method != "IDENTICAL") {
        c.approximation = "the " + method + " conversion is left out (the format states linear scalings and named values): the value is written raw";
    }
}

}  // namespace

FibexCoding readFibexCoding(pugi::xml_node coding, std::optional<uint64_t> bitLength,
                            const std::function<std::string(const std::string&)>& unit)
{
    FibexCoding c;
    const pugi::xml_node ct = child(coding, "CODED-TYPE");
    const std::string base = codedProperty(ct, "BASE-DATA-TYPE");
    std::optional<uint64_t> bits = bitLength;
    const std::string givenBits = childText(ct, "BIT-LENGTH");
    uint64_t b = 0;
    if (!bits && !givenBits.empty()) {
        if (!parseUnsigned(givenBits, 1u << 30, b)) {
            c.reason = "a bit length \"" + givenBits + "\" that is not a number";
            return c;
        }
        bits = b;
    }
    if (base == "A_UNICODE2STRING" || base == "A_ASCIISTRING" || base == "A_UTF8STRING") {
        readString(ct, base, bits, c);
        return c;
    }
    if (!bits && baseWidth(base) != 0) {
        bits = baseWidth(base);
    }
    std::string encoding;
    if (!numberType(ct, base, bits, encoding, c)) {
        return c;
    }
    c.kind = FibexCoding::Number;
    conversion(child(child(coding, "COMPU-METHODS"), "COMPU-METHOD"), base, encoding,
               bits ? static_cast<unsigned>(*bits) : 0, unit, c);
    return c;
}

}  // namespace import
}  // namespace ZQSomeIP
