// Version-2 formats against payloads written by hand from the protocol's rules, read and written both
// ways: unions, TLV, enums, bit fields, fixed strings, string options, vector bounds, scaling,
// per-element attributes and shared types; load errors; and the forward compatibility every format
// gets (skipped bytes reported as warnings, errors again under strict decoding).
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "compiled/ZQSomeIPFormatSet.h"
#include "conv_test_support.h"

namespace {

using namespace ZQSomeIP;
using Bytes = std::vector<uint8_t>;
using E = ZQSomeIPPlainError;

// Goldens are easier to read with every field spelled out: big endian, no struct or array length
// fields, 8-bit vector and string lengths, a 16-bit union length and an 8-bit union type field.
const char* const kBigEndian = R"({"ByteOrderEnum":"BYTE_ORDER_BIG_ENDIAN","StructLengthFieldSize":"0",
  "ArrayLengthFieldSize":"0","VectorLengthFieldSize":"8","StringLengthFieldSize":"8","UnionLengthFieldSize":"16",
  "UnionTypeSelectorFieldSize":"8"})";

// One service (0x1234) with one event (1) whose parameter list is `params`. The JSON objects are
// merged into their places: `attribute` over kBigEndian in the service's "Attribute", `entry` into the
// Params[k] entry, `service` into the service, `root` into the file.
struct Format {
    std::string params;
    std::string attribute = "{}";
    std::string entry = "{}";
    std::string service = "{}";
    std::string root = "{}";
    Json::Value version = 2;  // "FormatVersion"; null: a version-1 file
};

std::string fileText(const Format& f)
{
    using convtest::parse;
    Json::Value root = parse(f.root), service = parse(f.service), entry = parse(f.entry), attr = parse(kBigEndian);
    const Json::Value over = parse(f.attribute);
    for (const std::string& key : over.getMemberNames()) attr[key] = over[key];
    if (!f.version.isNull()) root["FormatVersion"] = f.version;
    service["ServiceID"] = "4660";
    service["Attribute"] = attr;
    entry["MethodType"] = "event";
    entry["ParamsDetails"] = parse(f.params);
    service["Events"][0]["EventID"] = "1";
    service["Events"][0]["Params"][0] = entry;
    root["Services"][0] = service;
    return root.toStyledString();
}

// Each format in a file of its own, so that a load error can name it.
std::shared_ptr<const ZQSomeIPFormatSet> tryLoad(const Format& f, ZQSomeIPPlainStatus& status, std::string& file)
{
    static convtest::TempDir dir;
    static int files = 0;
    file = dir.write("format" + std::to_string(files++) + ".json", fileText(f));
    return ZQSomeIPFormatSet::load(file, status);
}

std::shared_ptr<const ZQSomeIPFormatSet> load(const Format& f)
{
    ZQSomeIPPlainStatus status;
    std::string file;
    auto set = tryLoad(f, status, file);
    EXPECT_TRUE(status.ok()) << status.toJson() << "\n" << fileText(f);
    return set;
}

struct Outcome {
    ZQSomeIPPlainStatus status;
    std::string text;  // decode: the JSON; encode: the payload in hex
};

Outcome decode(const ZQSomeIPFormatSet& set, const std::string& wire, const ZQSomeIPPlainOptions& options = {})
{
    const Bytes payload = convtest::bytes(wire);
    Outcome o;
    o.status = plainDecode(set, 0x1234, 1, 2, payload.data(), payload.size(), o.text, options);
    return o;
}

Outcome encode(const ZQSomeIPFormatSet& set, const std::string& input, const ZQSomeIPPlainOptions& options = {})
{
    Bytes payload;
    Outcome o{plainEncode(set, 0x1234, 1, 2, input, payload, options), ""};
    o.text = convtest::hex(payload);
    return o;
}

ZQSomeIPPlainOptions styled(ZQSomeIPEnumStyle enums, ZQSomeIPScaledStyle scaled = ZQSomeIPScaledStyle::Raw)
{
    ZQSomeIPPlainOptions o;
    o.enumStyle = enums;
    o.scaled = scaled;
    return o;
}

enum class Way { Both, Decode, Encode };

// A payload and its plain form: decoding the one gives the other, encoding the other gives the one
// (or only one direction where the rules allow several payloads for one value).
struct Golden {
    const char* what;
    Format format;
    std::string wire;
    std::string json;
    Way way = Way::Both;
    ZQSomeIPPlainOptions options = {};
};

void expectGoldens(const std::vector<Golden>& rows)
{
    for (const Golden& g : rows) {
        SCOPED_TRACE(g.what);
        const auto set = load(g.format);
        if (!set) continue;
        if (g.way != Way::Encode) {
            const Outcome d = decode(*set, g.wire, g.options);
            EXPECT_EQ(d.status.ok() ? d.text : d.status.toJson(), g.json) << g.wire;
            EXPECT_EQ(d.status.warningsJson(), "[]");
        }
        if (g.way != Way::Decode) {
            const Outcome e = encode(*set, g.json, g.options);
            EXPECT_EQ(e.status.ok() ? e.text : e.status.toJson(), convtest::hex(convtest::bytes(g.wire))) << g.json;
        }
    }
}

// A payload or a JSON input that fails, with the code and where: the byte offset of a decode, the
// JSON path of an encode (empty: not pinned).
struct Failure {
    const char* what;
    Format format;
    Way way;
    std::string input;
    E code;  // Ok: any error
    std::string where;
    ZQSomeIPPlainOptions options = {};
};

void expectFailures(const std::vector<Failure>& rows)
{
    for (const Failure& f : rows) {
        SCOPED_TRACE(f.what);
        const auto set = load(f.format);
        if (!set) continue;
        const Outcome o = f.way == Way::Decode ? decode(*set, f.input, f.options) : encode(*set, f.input, f.options);
        EXPECT_FALSE(o.status.ok()) << f.input << " gave " << o.text;
        if (f.code != E::Ok) {
            EXPECT_STREQ(plainErrorName(o.status.code), plainErrorName(f.code)) << f.input << ": " << o.status.toJson();
        }
        if (!f.where.empty()) {
            EXPECT_EQ(f.way == Way::Decode ? std::to_string(o.status.offset) : o.status.path, f.where) << o.status.toJson();
        }
        EXPECT_FALSE(o.status.message.empty());
    }
}

// ---- unions ------------------------------------------------------------------------------------------

std::string unionOf(const std::string& keys)
{
    return R"([{"ParamName":"u","ParamType":"UNION",)" + keys + R"("SubParams":[
      {"ParamName":"a","ParamType":"uint8_t","Selector":1},{"ParamName":"b","ParamType":"uint32_t","Selector":2},
      {"ParamName":"s","ParamType":"STRING","Selector":3}]}])";
}

TEST(FormatV2, Unions)
{
    const std::string plain = unionOf(""), nullable = unionOf(R"("AllowNull":true,)");
    const std::string padded = unionOf(R"("MaxLength":4,)"), paddedNullable = unionOf(R"("MaxLength":4,"AllowNull":true,)");
    const std::string wide = R"({"UnionLengthFieldSize":"32","UnionTypeSelectorFieldSize":"32","DataAlignment":"32"})";
    const std::string noLength = R"({"UnionLengthFieldSize":"0"})";
    expectGoldens({
        {"32-bit fields, 32-bit alignment: the member padded", {plain, wide}, "00000004 00000001 2a000000", R"({"u":{"a":42}})"},
        {"32-bit fields, the wide member", {plain, wide}, "00000004 00000002 01020304", R"({"u":{"b":16909060}})"},
        {"32-bit fields, a string member padded", {plain, wide}, "00000008 00000003 06 efbbbf 6869 00 00", R"({"u":{"s":"hi"}})"},
        {"length first by default", {plain}, "0001 01 2a", R"({"u":{"a":42}})"},
        {"type first", {plain, R"({"UnionFieldOrder":"TYPE_FIRST"})"}, "01 0001 2a", R"({"u":{"a":42}})"},
        {"little endian fields", {plain, R"({"ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN","UnionTypeSelectorFieldSize":"16"})"},
         "0100 0100 2a", R"({"u":{"a":42}})"},
        {"no length field: padded to MaxLength", {padded, noLength}, "01 2a000000", R"({"u":{"a":42}})"},
        {"no length field: the member filling MaxLength", {padded, noLength}, "02 01020304", R"({"u":{"b":16909060}})"},
        {"no length field: a string member padded", {unionOf(R"("MaxLength":8,)"), noLength}, "03 06 efbbbf 6869 00 00",
         R"({"u":{"s":"hi"}})"},
        {"null: length 0 and type 0", {nullable}, "0000 00", R"({"u":null})"},
        {"null, type first", {nullable, R"({"UnionFieldOrder":"TYPE_FIRST"})"}, "00 0000", R"({"u":null})"},
        {"null without length field: MaxLength zeros", {paddedNullable, noLength}, "00 00000000", R"({"u":null})"},
        {"padding inside the length is skipped", {plain}, "0003 01 2a0000", R"({"u":{"a":42}})", Way::Decode},
    });
    expectFailures({
        {"selector of no member", {plain}, Way::Decode, "0001 09 2a", E::UnknownSelector, "0"},
        {"selector 0 without AllowNull", {plain}, Way::Decode, "0000 00", E::UnknownSelector, "0"},
        {"member past the length", {plain}, Way::Decode, "0002 02 01020304", E::LengthMismatch, "3"},
        {"no member given", {plain}, Way::Encode, R"({"u":{}})", E::WrongCount, "$.u"},
        {"two members given", {plain}, Way::Encode, R"({"u":{"a":1,"b":2}})", E::WrongCount, "$.u"},
        {"unknown member", {plain}, Way::Encode, R"({"u":{"c":1}})", E::UnknownMember, "$.u"},
        {"null without AllowNull", {plain}, Way::Encode, R"({"u":null})", E::WrongType, "$.u"},
    });
}

// ---- TLV ---------------------------------------------------------------------------------------------

const char* const kTlvPair = R"([{"ParamName":"n","ParamType":"uint16_t","DataId":1},
                                  {"ParamName":"s","ParamType":"STRING","DataId":2}])";
const char* const kTlvList = R"({"Tlv":true})";
const char* const kHi = R"({"n":4660,"s":"hi"})";

TEST(FormatV2, Tlv)
{
    const Format list{kTlvPair, "{}", kTlvList};
    const auto tlv = [](const std::string& attribute, const std::string& memberAttribute = "") {
        return Format{R"([{"ParamName":"t","ParamType":"STRUCTURE","Tlv":true,)" + attribute +
                      R"("SubParams":[{"ParamName":"n","ParamType":"uint16_t","DataId":1)" + memberAttribute + "}]}]"};
    };
    const char* const complexMembers = R"([
      {"ParamName":"c","ParamType":"STRUCTURE","DataId":3,"SubParams":[{"ParamName":"x","ParamType":"uint8_t"},
        {"ParamName":"y","ParamType":"uint16_t"}]},
      {"ParamName":"a","ParamType":"ARRAY","Value":"2","DataId":4,"SubParams":[{"ParamName":"e","ParamType":"uint8_t"}]},
      {"ParamName":"v","ParamType":"VECTOR","DataId":5,"SubParams":[{"ParamName":"e","ParamType":"uint16_t"}]},
      {"ParamName":"u","ParamType":"UNION","DataId":6,"SubParams":[{"ParamName":"a","ParamType":"uint8_t","Selector":1}]},
      {"ParamName":"e","ParamType":"ENUM","BaseType":"uint16_t","DataId":7,"Enumerators":[{"Name":"GO","Value":3}]},
      {"ParamName":"f","ParamType":"BITFIELD","BaseType":"uint32_t","DataId":8,"Bits":[{"Name":"lo","Bit":0},{"Name":"hi","Bit":2}]},
      {"ParamName":"d","ParamType":"double","DataId":9},
      {"ParamName":"b","ParamType":"bool","DataId":10}])";
    expectGoldens({
        {"wire type 6: a 16-bit string length", {kTlvPair, R"({"StringLengthFieldSize":"16"})", kTlvList},
         "1001 1234 6002 0006 efbbbf 6869 00", kHi},
        {"wire type 5: an 8-bit string length", list, "1001 1234 5002 06 efbbbf 6869 00", kHi},
        {"wire type 6 read whatever the configured size", list, "1001 1234 6002 0006 efbbbf 6869 00", kHi, Way::Decode},
        {"wire type 7 read", list, "1001 1234 7002 00000006 efbbbf 6869 00", kHi, Way::Decode},
        {"wire type 4 read with the configured size", list, "1001 1234 4002 06 efbbbf 6869 00", kHi, Way::Decode},
        {"static: wire type 4, 16-bit string length",
         {kTlvPair, R"({"DynamicLengthFieldSize":false,"StringLengthFieldSize":"16"})", kTlvList},
         "1001 1234 4002 0006 efbbbf 6869 00", kHi},
        {"static: wire type 4, 32-bit string length (the key as text)",
         {kTlvPair, R"({"DynamicLengthFieldSize":"false","StringLengthFieldSize":"32"})", kTlvList},
         "1001 1234 4002 00000006 efbbbf 6869 00", kHi},
        {"static with no configured length: wire types 5..7 after all",
         {kTlvPair, R"({"DynamicLengthFieldSize":false,"StringLengthFieldSize":"0"})", kTlvList},
         "1001 1234 5002 06 efbbbf 6869 00", kHi},
        {"members in any order", list, "5002 06 efbbbf 6869 00 1001 1234", kHi, Way::Decode},
        {"static: a union's TLV length counts its type field",
         {R"([{"ParamName":"u","ParamType":"UNION","DataId":6,"SubParams":[{"ParamName":"a","ParamType":"uint8_t","Selector":1}]}])",
          R"({"DynamicLengthFieldSize":false})", kTlvList},
         "4006 0002 01 2a", R"({"u":{"a":42}})"},
        {"little endian tags and lengths", {kTlvPair, "{}", R"({"Tlv":true,"Attribute":{"ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN"}})"},
         "0110 3412 0250 06 efbbbf 6869 00", kHi},
        {"optional member dropped",
         {R"([{"ParamName":"n","ParamType":"uint16_t","DataId":1},{"ParamName":"s","ParamType":"STRING","DataId":2,"Optional":true}])",
          "{}", kTlvList},
         "1001 1234", R"({"n":4660})"},
        {"a TLV structure inside its length field",
         {R"([{"ParamName":"t","ParamType":"STRUCTURE","Tlv":true,"Attribute":{"StructLengthFieldSize":"16"},"SubParams":)" +
          std::string(kTlvPair) + "}]"},
         "000d 1001 1234 5002 06 efbbbf 6869 00", R"({"t":{"n":4660,"s":"hi"}})"},
        {"complex members: one length each (the TLV one, the configured size or the smallest); a union keeps its type field; basic ones by width",
         {complexMembers, "{}", kTlvList},
         "5003 03 01 0002  5004 02 0102  5005 04 0001 0002  6006 0002 01 2a  1007 0003  2008 00000005"
         "  3009 3ff0000000000000  000a 01",
         R"({"c":{"x":1,"y":2},"a":[1,2],"v":[1,2],"u":{"a":42},"e":"GO","f":{"lo":true,"hi":true,"$raw":5},"d":1,"b":true})"},
    });
    expectFailures({
        {"unknown ID of wire type 4", list, Way::Decode, "400a 0000 1001 1234 5002 06 efbbbf686900", E::UnskippableMember, "0"},
        {"a basic member with a length wire type", list, Way::Decode, "5001 02 1234 5002 06 efbbbf686900", E::WireTypeMismatch, "0"},
        {"a 16-bit member as 8 bits", list, Way::Decode, "0001 12 5002 06 efbbbf686900", E::WireTypeMismatch, "0"},
        {"a string as a basic value", list, Way::Decode, "1001 1234 1002 6869", E::WireTypeMismatch, "4"},
        {"mandatory member absent", list, Way::Decode, "5002 06 efbbbf686900", E::MissingMember, ""},
        {"cut inside a value", list, Way::Decode, "1001 12", E::Truncated, "2"},
        {"length beyond the data", list, Way::Decode, "1001 1234 5002 09 efbbbf686900", E::LengthBeyondData, "6"},
        {"encode without a mandatory member", list, Way::Encode, R"({"s":"hi"})", E::MissingMember, "$.n"},
        {"encode an unknown member", list, Way::Encode, R"({"n":1,"s":"","x":1})", E::UnknownMember, "$"},
        // A TLV structure the codec cannot serve leaves its method unusable.
        {"TLV structure without length field", tlv(""), Way::Decode, "0004 1001 0001", E::UnsupportedFormat, ""},
        {"alignment inside a TLV structure", tlv(R"("Attribute":{"StructLengthFieldSize":"16","DataAlignment":"32"},)"),
         Way::Decode, "0004 1001 0001", E::UnsupportedFormat, ""},
        {"a TLV member of another byte order",
         tlv(R"("Attribute":{"StructLengthFieldSize":"16"},)", R"(,"Attribute":{"ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN"})"),
         Way::Decode, "0004 1001 0001", E::UnsupportedFormat, ""},
    });
}

// ---- enums and bit fields ------------------------------------------------------------------------------

TEST(FormatV2, Enums)
{
    const Format f{R"([
      {"ParamName":"g","ParamType":"ENUM","BaseType":"uint8_t","Enumerators":[{"Name":"PARK","Value":0},
        {"Name":"DRIVE","Value":"3"},{"Name":"SPARE","Value":10,"ValueEnd":20}]},
      {"ParamName":"t","ParamType":"ENUM","BaseType":"int16_t","Enumerators":[{"Name":"LOW","Value":-2}]},
      {"ParamName":"w","ParamType":"uint16_t","Enumerators":[{"Name":"INVALID","Value":"65535"}]}])"};
    const auto byName = styled(ZQSomeIPEnumStyle::Name), byValue = styled(ZQSomeIPEnumStyle::Value);
    const auto both = styled(ZQSomeIPEnumStyle::Both);
    const auto int8Enum = [](const std::string& value) {
        return Format{R"([{"ParamName":"g","ParamType":"ENUM","BaseType":"int8_t","Enumerators":[{"Name":"X","Value":)" + value + "}]}]"};
    };
    expectGoldens({
        {"names", f, "03 fffe ffff", R"({"g":"DRIVE","t":"LOW","w":"INVALID"})", Way::Both, byName},
        {"values", f, "03 fffe ffff", R"({"g":3,"t":-2,"w":65535})", Way::Both, byValue},
        {"both", f, "03 fffe ffff",
         R"({"g":{"name":"DRIVE","value":3},"t":{"name":"LOW","value":-2},"w":{"name":"INVALID","value":65535}})", Way::Both, both},
        {"a range by name, values without one", f, "0f 0005 0001", R"({"g":"SPARE","t":5,"w":1})", Way::Decode, byName},
        {"a range and unnamed values, both", f, "0f 0005 0001",
         R"({"g":{"name":"SPARE","value":15},"t":{"name":null,"value":5},"w":{"name":null,"value":1}})", Way::Both, both},
        {"a range's name encodes as its first value", f, "0a 0005 0001", R"({"g":"SPARE","t":5,"w":1})", Way::Encode},
        {"mixed forms in", f, "03 fffe ffff", R"({"g":{"name":"DRIVE"},"t":{"value":-2},"w":"INVALID"})", Way::Encode},
        {"FormatVersion as text is the same version", {f.params, "{}", "{}", "{}", "{}", "2"}, "03 fffe ffff",
         R"({"g":"DRIVE","t":"LOW","w":"INVALID"})"},
    });
    expectFailures({
        {"unknown name", f, Way::Encode, R"({"g":"REVERSE","t":0,"w":0})", E::UnknownName, "$.g"},
        {"unknown name of a plain integer", f, Way::Encode, R"({"g":0,"t":0,"w":"VALID"})", E::UnknownName, "$.w"},
        {"name and value disagree", f, Way::Encode, R"({"g":{"name":"DRIVE","value":4},"t":0,"w":0})", E::Ok, "$.g"},
        {"value beyond the base type", f, Way::Encode, R"({"g":256,"t":0,"w":0})", E::OutOfRange, "$.g"},
        {"neither name nor number", f, Way::Encode, R"({"g":true,"t":0,"w":0})", E::WrongType, "$.g"},
        // An enumerator just outside its signed base type leaves the method unusable.
        {"enumerator above int8_t", int8Enum("128"), Way::Decode, "00", E::UnsupportedFormat, ""},
        {"enumerator below int8_t", int8Enum("-129"), Way::Decode, "00", E::UnsupportedFormat, ""},
    });
}

TEST(FormatV2, BitFields)
{
    const Format f{R"([
      {"ParamName":"f","ParamType":"BITFIELD","BaseType":"uint8_t","Bits":[{"Name":"on","Bit":0},
        {"Name":"mode","Bit":1,"Width":3},
        {"Name":"gear","Bit":4,"Width":2,"Enumerators":[{"Name":"P","Value":0},{"Name":"D","Value":1},{"Name":"R","Value":2}]}]},
      {"ParamName":"h","ParamType":"BITFIELD","BaseType":"uint16_t","Bits":[{"Name":"top","Bit":15}]}])"};
    expectGoldens({
        {"every field and the raw value", f, "13 8000",
         R"({"f":{"on":true,"mode":1,"gear":"D","$raw":19},"h":{"top":true,"$raw":32768}})"},
        {"unnamed bits show in $raw only", f, "c0 0001",
         R"({"f":{"on":false,"mode":0,"gear":"P","$raw":192},"h":{"top":false,"$raw":1}})"},
        {"a field value without a name", f, "30 0000", R"({"f":{"on":false,"mode":0,"gear":3,"$raw":48},"h":{"top":false,"$raw":0}})"},
        {"enumerated fields in both styles", f, "13 8000",
         R"({"f":{"on":true,"mode":1,"gear":{"name":"D","value":1},"$raw":19},"h":{"top":true,"$raw":32768}})", Way::Both,
         styled(ZQSomeIPEnumStyle::Both)},
        {"a subset of fields, the rest 0", f, "04 0000", R"({"f":{"mode":2},"h":{}})", Way::Encode},
        {"$raw alone", f, "d3 0001", R"({"f":{"$raw":211},"h":{"$raw":1}})", Way::Encode},
        {"fields and $raw agreeing", f, "21 8000", R"({"f":{"gear":"R","on":true,"$raw":33},"h":{"top":true}})", Way::Encode},
    });
    expectFailures({
        {"fields and $raw disagreeing", f, Way::Encode, R"({"f":{"on":false,"$raw":1},"h":{}})", E::OutOfRange, "$.f"},
        {"a value too wide for its field", f, Way::Encode, R"({"f":{"mode":8},"h":{}})", E::OutOfRange, "$.f.mode"},
        {"an unknown field", f, Way::Encode, R"({"f":{"x":true},"h":{}})", E::UnknownMember, "$.f"},
        {"an unknown field value name", f, Way::Encode, R"({"f":{"gear":"N"},"h":{}})", E::UnknownName, "$.f.gear"},
    });
}

// ---- strings, vectors, scaling ----------------------------------------------------------------------------

TEST(FormatV2, StringsAndVectorBounds)
{
    const Format fixed{R"([{"ParamName":"s","ParamType":"STRING","FixedLength":8},{"ParamName":"n","ParamType":"uint8_t"}])"};
    const Format bare{R"([{"ParamName":"s","ParamType":"STRING","FixedLength":4,
                          "Attribute":{"StringBom":false,"StringTerminator":"false"}}])"};
    const Format fixed16{R"([{"ParamName":"s","ParamType":"STRING","FixedLength":8,"Attribute":{"StringEncoding":"UTF16"}}])"};
    const Format dynamic{R"([{"ParamName":"a","ParamType":"STRING","Attribute":{"StringBom":false}},
      {"ParamName":"b","ParamType":"STRING","Attribute":{"StringTerminator":false}},
      {"ParamName":"c","ParamType":"STRING","Attribute":{"StringBom":"false","StringTerminator":false}}])"};
    const std::string utf16 = R"([{"ParamName":"a","ParamType":"STRING"},
      {"ParamName":"b","ParamType":"STRING","Attribute":{"StringUtf16ByteOrder":"BYTE_ORDER_BIG_ENDIAN"}},
      {"ParamName":"c","ParamType":"STRING","Attribute":{"StringUtf16ByteOrder":"BYTE_ORDER_LITTLE_ENDIAN"}}])";
    const Format bounded{R"([{"ParamName":"v","ParamType":"VECTOR","MinCount":1,"MaxCount":2,
                             "SubParams":[{"ParamName":"e","ParamType":"uint8_t"}]}])"};
    expectGoldens({
        {"fixed: zero filled", fixed, "efbbbf 6869 00 0000 07", R"({"s":"hi","n":7})"},
        {"fixed: exactly full", fixed, "efbbbf 68656c6c 00 07", R"({"s":"hell","n":7})"},
        {"fixed: empty", fixed, "efbbbf 00 00000000 07", R"({"s":"","n":7})"},
        {"fixed without mark and terminator", bare, "6869 0000", R"({"s":"hi"})"},
        {"fixed without terminator, full", bare, "61626364", R"({"s":"abcd"})"},
        {"fixed UTF-16", fixed16, "feff 0068 0069 0000", R"({"s":"hi"})"},
        {"dynamic without mark, terminator, both", dynamic, "03 6869 00  05 efbbbf 6869  02 6869", R"({"a":"hi","b":"hi","c":"hi"})"},
        {"dynamic without mark, terminator, both: empty", dynamic, "01 00  03 efbbbf  00", R"({"a":"","b":"","c":""})"},
        {"UTF-16 order: big endian service",
         {utf16, R"({"StringEncoding":"UTF16","StringLengthFieldSize":"16"})"},
         "0008 feff 0068 0069 0000  0008 feff 0068 0069 0000  0008 fffe 6800 6900 0000", R"({"a":"hi","b":"hi","c":"hi"})"},
        {"UTF-16 order: little endian service",
         {utf16, R"({"StringEncoding":"UTF16","StringLengthFieldSize":"16","ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN"})"},
         "0800 fffe 6800 6900 0000  0800 feff 0068 0069 0000  0800 fffe 6800 6900 0000", R"({"a":"hi","b":"hi","c":"hi"})"},
        {"vector at its minimum", bounded, "01 07", R"({"v":[7]})"},
        {"vector at its maximum", bounded, "02 0708", R"({"v":[7,8]})"},
    });
    expectFailures({
        {"fixed: too long", fixed, Way::Encode, R"({"s":"hello","n":7})", E::TooLong, "$.s"},
        {"fixed without terminator: too long", bare, Way::Encode, R"({"s":"abcde"})", E::TooLong, "$.s"},
        {"fixed: no mark", fixed, Way::Decode, "414243 6869 00 00 07", E::BadString, "0"},
        {"no terminator: a zero inside still is one", dynamic, Way::Decode, "03 6869 00  05 efbbbf 6869  02 0069", E::BadString, "10"},
        {"vector under its minimum", bounded, Way::Decode, "00", E::WrongCount, "0"},
        {"vector over its maximum", bounded, Way::Decode, "03 070809", E::WrongCount, "0"},
        {"vector under its minimum", bounded, Way::Encode, R"({"v":[]})", E::WrongCount, "$.v"},
        {"vector over its maximum", bounded, Way::Encode, R"({"v":[1,2,3]})", E::WrongCount, "$.v"},
    });
}

TEST(FormatV2, ScaledNumbers)
{
    const Format f{R"([{"ParamName":"t","ParamType":"uint8_t","Scale":{"Factor":0.5,"Offset":-40,"Unit":"degC"}},
                       {"ParamName":"d","ParamType":"float","Scale":{"Factor":2}}])"};
    const auto raw = styled(ZQSomeIPEnumStyle::Name, ZQSomeIPScaledStyle::Raw);
    const auto physical = styled(ZQSomeIPEnumStyle::Name, ZQSomeIPScaledStyle::Physical);
    const auto both = styled(ZQSomeIPEnumStyle::Name, ZQSomeIPScaledStyle::Both);
    expectGoldens({
        {"raw", f, "82 3fc00000", R"({"t":130,"d":1.5})", Way::Both, raw},
        {"physical", f, "82 3fc00000", R"({"t":25,"d":3})", Way::Both, physical},
        {"both, no unit where the format has none", f, "82 3fc00000",
         R"({"t":{"raw":130,"value":25,"unit":"degC"},"d":{"raw":1.5,"value":3}})", Way::Both, both},
        {"physical rounds down to the nearest raw", f, "82 3fc00000", R"({"t":25.2,"d":3})", Way::Encode, physical},
        {"physical rounds up to the nearest raw", f, "83 3fc00000", R"({"t":25.3,"d":3})", Way::Encode, physical},
        {"physical at both ends", f, "00 00000000", R"({"t":-40,"d":0})", Way::Encode, physical},
        {"physical at both ends", f, "ff 00000000", R"({"t":87.5,"d":0})", Way::Encode, physical},
        {"objects in any style: raw first, else value", f, "82 3fc00000", R"({"t":{"raw":130,"value":99},"d":{"value":3}})",
         Way::Encode, raw},
    });
    expectFailures({
        {"physical above the raw range", f, Way::Encode, R"({"t":88,"d":3})", E::OutOfRange, "$.t", physical},
        {"physical below the raw range", f, Way::Encode, R"({"t":-40.5,"d":3})", E::OutOfRange, "$.t", physical},
    });
}

// ---- attributes per element, shared types ---------------------------------------------------------------

TEST(FormatV2, AttributesPerElement)
{
    const char* const little = R"({"ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN"})";
    expectGoldens({
        {"a big-endian structure in a little-endian service, inherited by its children",
         {R"([{"ParamName":"s","ParamType":"STRUCTURE","Attribute":{"ByteOrderEnum":"BYTE_ORDER_BIG_ENDIAN"},"SubParams":[
               {"ParamName":"a","ParamType":"uint16_t"},
               {"ParamName":"in","ParamType":"STRUCTURE","SubParams":[{"ParamName":"b","ParamType":"uint32_t"}]}]},
             {"ParamName":"c","ParamType":"uint16_t"}])", little},
         "0001 00000002 0300", R"({"s":{"a":1,"in":{"b":2}},"c":3})"},
        {"a 16-bit length field on one vector only",
         {R"([{"ParamName":"v","ParamType":"VECTOR","Attribute":{"VectorLengthFieldSize":"16"},
               "SubParams":[{"ParamName":"e","ParamType":"uint8_t"}]},
             {"ParamName":"w","ParamType":"VECTOR","SubParams":[{"ParamName":"e","ParamType":"uint8_t"}]}])"},
         "0001 01 01 02", R"({"v":[1],"w":[2]})"},
        {"a child overrides one key and keeps the others",
         {R"([{"ParamName":"s","ParamType":"STRUCTURE","Attribute":{"StringLengthFieldSize":"16"},"SubParams":[
               {"ParamName":"a","ParamType":"STRING"},
               {"ParamName":"in","ParamType":"STRUCTURE","Attribute":{"ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN"},
                "SubParams":[{"ParamName":"b","ParamType":"STRING"}]}]}])"},
         "0006 efbbbf 6869 00  0600 efbbbf 6869 00", R"({"s":{"a":"hi","in":{"b":"hi"}}})"},
        {"a length field on one structure", {R"([{"ParamName":"s","ParamType":"STRUCTURE",
           "Attribute":{"StructLengthFieldSize":"8"},"SubParams":[{"ParamName":"x","ParamType":"uint8_t"}]}])"},
         "01 05", R"({"s":{"x":5}})"},
        {"Params[k] Attribute: its byte order", {R"([{"ParamName":"n","ParamType":"uint16_t"}])", "{}", R"({"Attribute":)" +
           std::string(little) + "}"}, "0100", R"({"n":1})"},
        {"Params[k] Attribute: one key over the service's", {R"([{"ParamName":"v","ParamType":"VECTOR",
           "SubParams":[{"ParamName":"e","ParamType":"uint16_t"}]}])", "{}", R"({"Attribute":{"VectorLengthFieldSize":"16"}})"},
         "0002 0001", R"({"v":[1]})"},
    });
}

const char* const kFileTypes = R"({"Types":{
  "Pair":{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"x","ParamType":"int8_t"},{"ParamName":"y","ParamType":"int8_t"}]},
  "Point":{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"x","ParamType":"int8_t"},{"ParamName":"y","ParamType":"int8_t"}]},
  "Inner":{"ParamType":"uint8_t"},
  "Outer":{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"in","ParamType":"TYPEREF","TypeRef":"Inner"}]},
  "Speed":{"ParamType":"TYPEREF","TypeRef":"Raw"},
  "Raw":{"ParamType":"TYPEREF","TypeRef":"Word"},
  "Word":{"ParamType":"uint16_t","Enumerators":[{"Name":"NONE","Value":0}]},
  "List":{"ParamType":"VECTOR","Attribute":{"VectorLengthFieldSize":"16"},"SubParams":[{"ParamName":"e","ParamType":"uint16_t"}]}}})";
const char* const kServiceTypes = R"({"Types":{
  "Point":{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"x","ParamType":"int16_t"}]},
  "Inner":{"ParamType":"uint16_t"},
  "Wrap":{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"p","ParamType":"TYPEREF","TypeRef":"Pair"}]}}})";

TEST(FormatV2, SharedTypes)
{
    expectGoldens({
        {"file and service types: shadowing, scopes, chains, use-site keys",
         {R"([{"ParamName":"a","ParamType":"TYPEREF","TypeRef":"Pair"},
             {"ParamName":"p","ParamType":"TYPEREF","TypeRef":"Point"},
             {"ParamName":"o","ParamType":"TYPEREF","TypeRef":"Outer"},
             {"ParamName":"i","ParamType":"TYPEREF","TypeRef":"Inner"},
             {"ParamName":"sp","ParamType":"TYPEREF","TypeRef":"Speed"},
             {"ParamName":"l","ParamType":"TYPEREF","TypeRef":"List","Attribute":{"ByteOrderEnum":"BYTE_ORDER_LITTLE_ENDIAN"}},
             {"ParamName":"w","ParamType":"TYPEREF","TypeRef":"Wrap"},
             {"ParamName":"t","ParamType":"TYPEREF","TypeRef":"Inner","Scale":{"Factor":2}}])",
          "{}", "{}", kServiceTypes, kFileTypes},
         // Pair (file); Point (the service's, 16 bits); Outer.in (the file's Inner, 8 bits: a file type sees
         // file types only); Inner (the service's, 16 bits); Speed -> Raw -> Word; List with its 16-bit
         // length field and the use site's byte order; Wrap (service) holding Pair (file); Inner scaled there
         "01 02  0003  07  0008  0000  0200 0100  05 06  0009",
         R"({"a":{"x":1,"y":2},"p":{"x":3},"o":{"in":7},"i":8,"sp":"NONE","l":[1],"w":{"p":{"x":5,"y":6}},"t":18})", Way::Both,
         styled(ZQSomeIPEnumStyle::Name, ZQSomeIPScaledStyle::Physical)},
        {"a use site's DataId in a TLV list",
         {R"([{"ParamName":"n","ParamType":"TYPEREF","TypeRef":"Speed","DataId":1}])", "{}", kTlvList, "{}", kFileTypes},
         "1001 0000", R"({"n":"NONE"})"},
    });
}

TEST(FormatV2, LoadErrorsNameTheFileAndTheType)
{
    const struct {
        const char* what;
        Format format;
        const char* named;  // in the message besides the file
    } cases[] = {
        {"a cycle through two types",
         {R"([{"ParamName":"x","ParamType":"TYPEREF","TypeRef":"LoopA"}])", "{}", "{}", "{}",
          R"({"Types":{"LoopA":{"ParamType":"TYPEREF","TypeRef":"LoopB"},
              "LoopB":{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"m","ParamType":"TYPEREF","TypeRef":"LoopA"}]}}})"},
         "Loop"},
        {"a structure holding itself",
         {R"([{"ParamName":"x","ParamType":"TYPEREF","TypeRef":"Selfish"}])", "{}", "{}",
          R"({"Types":{"Selfish":{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"m","ParamType":"TYPEREF","TypeRef":"Selfish"}]}}})"},
         "Selfish"},
        {"an unknown name", {R"([{"ParamName":"x","ParamType":"TYPEREF","TypeRef":"Missing"}])"}, "Missing"},
        {"a file type using a service type",
         {R"([{"ParamName":"x","ParamType":"TYPEREF","TypeRef":"FileLevel"}])", "{}", "{}",
          R"({"Types":{"ServiceOnly":{"ParamType":"uint8_t"}}})",
          R"({"Types":{"FileLevel":{"ParamType":"STRUCTURE","SubParams":[{"ParamName":"m","ParamType":"TYPEREF","TypeRef":"ServiceOnly"}]}}})"},
         "ServiceOnly"},
        {"a later format version", {R"([{"ParamName":"x","ParamType":"uint8_t"}])", "{}", "{}", "{}", "{}", 3}, "FormatVersion"},
    };
    for (const auto& c : cases) {
        ZQSomeIPPlainStatus status;
        std::string file;
        EXPECT_EQ(tryLoad(c.format, status, file), nullptr) << c.what;
        EXPECT_STREQ(plainErrorName(status.code), "bad_format_file") << c.what;
        EXPECT_EQ(status.path, file) << c.what;
        EXPECT_NE(status.message.find(c.named), std::string::npos) << c.what << ": " << status.message;
    }
}

// ---- names, versions, error entries ------------------------------------------------------------------------

TEST(FormatV2, NamesVersionsAndErrorEntries)
{
    const std::string u8 = R"([{"ParamName":"n","ParamType":"uint8_t"}])";
    const std::string u16 = R"([{"ParamName":"n","ParamType":"uint16_t"}])";
    auto service = [](const std::string& name, const std::string& version, const std::string& params) {
        return R"({"ServiceName":")" + name + R"(","ServiceID":"4660",)" + version + R"("Methods":[{"MethodName":"Get",
          "MethodID":"1","Params":[{"MethodType":"request","ParamsDetails":[]},
          {"MethodType":"response","ParamsDetails":)" + params + R"(},
          {"MethodType":"error","ParamsDetails":[{"ParamName":"reason","ParamType":"uint32_t"}]}]}]})";
    };
    convtest::TempDir dir;
    const std::string file = dir.write("versions.json", R"({"FormatVersion":2,"Attribute":[)" + std::string(kBigEndian) +
                                                             R"(],"Services":[)" + service("Old", R"("MajorVersion":1,)", u8) +
                                                             "," + service("New", R"("MajorVersion":2,)", u16) + "," +
                                                             service("Any", "", u8) + "]}");
    ZQSomeIPPlainStatus status;
    const auto set = ZQSomeIPFormatSet::load(file, status);
    ASSERT_TRUE(set) << status.toJson();
    const struct {
        int interfaceVersion;
        const char* service;  // whose format serves it
    } cases[] = {{1, "Old"}, {2, "New"}, {3, "Any"}};
    for (const auto& c : cases) {
        const ZQSomeIPPlainMethod* m = set->find(0x1234, 1, 0x80, c.interfaceVersion);
        ASSERT_NE(m, nullptr) << c.interfaceVersion;
        EXPECT_EQ(m->serviceName, c.service);
        EXPECT_EQ(m->methodName, "Get");
    }
    // An error response (0x81) takes the "error" entry's format, not the response's.
    const Bytes reason = convtest::bytes("00000007");
    std::string json;
    ASSERT_TRUE(plainDecode(*set->find(0x1234, 1, 0x81, 2), reason.data(), reason.size(), json).ok());
    EXPECT_EQ(json, R"({"reason":7})");
}

// ---- forward compatibility --------------------------------------------------------------------------------

// Skipped bytes are warnings: bytes a newer peer may have added (errors again under strict decoding), and
// TLV members of unknown or repeated IDs (skipped under strict decoding too: that is the TLV rule).
TEST(FormatV2, SkippedBytesAreWarnings)
{
    const Json::Value v1;  // these rules hold for version-1 files too
    const struct {
        const char* what;
        Format format;
        std::string wire, json;
        std::vector<std::pair<size_t, size_t>> skipped;  // offset, bytes
        E strictCode;  // Ok: the same result under strict decoding
        size_t strictOffset = 0;
    } cases[] = {
        {"an appended parameter", {R"([{"ParamName":"a","ParamType":"uint8_t"}])", "{}", "{}", "{}", "{}", v1},
         "07 0102", R"({"a":7})", {{1, 2}}, E::TrailingBytes, 1},
        {"a longer structure",
         {R"([{"ParamName":"s","ParamType":"STRUCTURE","SubParams":[{"ParamName":"x","ParamType":"uint8_t"}]},
              {"ParamName":"b","ParamType":"uint8_t"}])", R"({"StructLengthFieldSize":"8"})", "{}", "{}", "{}", v1},
         "03 05 aabb 09", R"({"s":{"x":5},"b":9})", {{2, 2}}, E::LengthMismatch, 0},
        {"a longer structure in a vector of a version-2 file",
         {R"([{"ParamName":"v","ParamType":"VECTOR","SubParams":[{"ParamName":"s","ParamType":"STRUCTURE",
              "Attribute":{"StructLengthFieldSize":"8"},"SubParams":[{"ParamName":"x","ParamType":"uint8_t"}]}]}])"},
         "06 02 05 aa  02 06 bb", R"({"v":[{"x":5},{"x":6}]})", {{3, 1}, {6, 1}}, E::LengthMismatch, 1},
        {"a fixed string filled with spaces", {R"([{"ParamName":"s","ParamType":"STRING","FixedLength":8}])"},
         "efbbbf 6869 00 2020", R"({"s":"hi"})", {{0, 8}}, E::BadString, 0},
        {"TLV: an unknown ID of each skippable wire type", {kTlvPair, "{}", kTlvList},
         "1001 1234  0003 ff  1004 ffff  2005 ffffffff  3006 ffffffffffffffff  5007 02 abcd  6008 0001 ab  7009 00000000"
         "  5002 06 efbbbf 6869 00",
         kHi, {{4, 3}, {7, 4}, {11, 6}, {17, 10}, {27, 5}, {32, 5}, {37, 6}}, E::Ok},
        {"TLV: a repeated ID, the first kept", {kTlvPair, "{}", kTlvList},
         "1001 1234  1001 5678  5002 06 efbbbf 6869 00  5002 06 efbbbf 6162 00", kHi, {{4, 4}, {17, 9}}, E::Ok},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const auto set = load(c.format);
        ASSERT_TRUE(set);
        for (const bool strict : {false, true}) {
            SCOPED_TRACE(strict ? "strict" : "lenient");
            ZQSomeIPPlainOptions options;
            options.strict = strict;
            const Outcome d = decode(*set, c.wire, options);
            if (strict && c.strictCode != E::Ok) {
                EXPECT_STREQ(plainErrorName(d.status.code), plainErrorName(c.strictCode));
                EXPECT_EQ(d.status.offset, c.strictOffset);
                EXPECT_EQ(d.text, "");
                continue;
            }
            ASSERT_TRUE(d.status.ok()) << d.status.toJson();
            EXPECT_EQ(d.text, c.json);
            ASSERT_EQ(d.status.warnings.size(), c.skipped.size()) << d.status.warningsJson();
            for (size_t i = 0; i < c.skipped.size(); ++i) {
                EXPECT_EQ(d.status.warnings[i].offset, c.skipped[i].first) << i;
                EXPECT_EQ(d.status.warnings[i].bytes, c.skipped[i].second) << i;
                EXPECT_FALSE(d.status.warnings[i].message.empty());
            }
        }
    }
}

} // namespace
