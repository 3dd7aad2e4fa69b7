#include <gtest/gtest.h>

#include "ZQSomeIPParserAPI.h"
#include "conv_test_support.h"

using namespace convtest;

namespace {

// Parameter lists with values. Element names do not matter: the decoded document is compared by
// its leaf values and by what it encodes to. Values are written the way the decoder prints them.
const char* const kBasics = R"([{"ParamType":"bool","Value":"true"}, {"ParamType":"uint8_t","Value":"255"},
  {"ParamType":"int8_t","Value":"-128"}, {"ParamType":"uint16_t","Value":"65535"}, {"ParamType":"int16_t","Value":"-32768"},
  {"ParamType":"uint32_t","Value":"4294967295"}, {"ParamType":"int32_t","Value":"-2147483648"},
  {"ParamType":"uint64_t","Value":"18446744073709551615"}, {"ParamType":"int64_t","Value":"-9223372036854775808"},
  {"ParamType":"float","Value":"-1024.125000"}, {"ParamType":"double","Value":"12345.678901"}])";

const char* const kStruct = R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"STRING","Value":"Hello, world"},
  {"ParamType":"bool","Value":"false"}, {"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint8_t","Value":"7"},
    {"ParamName":"a","ParamType":"ARRAY","Value":"3","SubParams":[{"ParamType":"int16_t","Value":"-1"},
      {"ParamType":"int16_t","Value":"2"}, {"ParamType":"int16_t","Value":"-3"}]}]},
  {"ParamName":"v","ParamType":"VECTOR","SubParams":[{"ParamType":"uint32_t","Value":"1"}, {"ParamType":"uint32_t","Value":"2"}]},
  {"ParamType":"uint16_t","Value":"513"}, {"ParamType":"double","Value":"-0.500000"}]}, {"ParamType":"uint8_t","Value":"9"}])";

// Strings inside a vector: decodable only in UTF-8 (the vector's content is accounted in UTF-8 sizes).
const char* const kVectors = R"([{"ParamName":"recs","ParamType":"VECTOR","SubParams":[
    {"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint32_t","Value":"1"},{"ParamType":"STRING","Value":"one"}]},
    {"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint32_t","Value":"2"},{"ParamType":"STRING","Value":"two"}]}]},
  {"ParamType":"uint8_t","Value":"5"}, {"ParamName":"bytes","ParamType":"VECTOR","SubParams":[{"ParamType":"uint8_t","Value":"1"},
    {"ParamType":"uint8_t","Value":"2"}, {"ParamType":"uint8_t","Value":"3"}]}, {"ParamType":"uint8_t","Value":"6"},
  {"ParamType":"STRUCTURE","SubParams":[{"ParamName":"rows","ParamType":"ARRAY","Value":"2","SubParams":[
    {"ParamName":"row","ParamType":"VECTOR","SubParams":[{"ParamType":"int16_t","Value":"-1"},{"ParamType":"int16_t","Value":"1"}]},
    {"ParamName":"row","ParamType":"VECTOR","SubParams":[{"ParamType":"int16_t","Value":"300"}]}]}]}])";

// The method format of a parameter list: values dropped (but array counts), arrays and vectors described
// by their first element (`firstOnly`). An array in the nested form is taken as it stands.
Json::Value formatOf(const Json::Value& list, bool firstOnly = false)
{
    Json::Value format(Json::arrayValue);
    for (Json::ArrayIndex i = 0; i < list.size() && (i == 0 || !firstOnly); ++i) {
        Json::Value& p = format.append(list[i]);
        if (list[i]["SubParams"].isArray()) p["SubParams"] = formatOf(list[i]["SubParams"], p["ParamType"] != "STRUCTURE");
        if (p["ParamType"] != "ARRAY") p.removeMember("Value");
    }
    return format;
}

// Values of the basic parameters in document order.
std::vector<std::string> leaves(const Json::Value& list, std::vector<std::string> out = {})
{
    for (const Json::Value& p : list)
        if (p["SubParams"].isArray()) out = leaves(p["SubParams"], out);
        else out.push_back(p["Value"].asString());
    return out;
}

// Length field sizes: "0", "8", "16", "32", or "mixed" (16-bit ones, none for structs and arrays).
Json::Value attribute(const std::string& lengths, int align, const char* encoding = "UTF8", bool little = false)
{
    Json::Value a;
    a["ArrayLengthFieldSize"] = a["StructLengthFieldSize"] = lengths == "mixed" ? "0" : lengths;
    a["VectorLengthFieldSize"] = a["StringLengthFieldSize"] = a["UnionLengthFieldSize"] = lengths == "mixed" ? "16" : lengths;
    a["DataAlignment"] = std::to_string(align);
    a["ByteOrderEnum"] = little ? "BYTE_ORDER_LITTLE_ENDIAN" : "BYTE_ORDER_BIG_ENDIAN";
    a["StringEncoding"] = encoding;
    return a;
}

// `list` is encoded; the method format is made from it unless `format` is given. `payload`: what encoding
// writes, and what is decoded; null: whatever encoding wrote. `outcomes`: "encode/decode/encode again", each
// "ok", "failed" or "throws"; encoding the decoded document again, done when decoding succeeds, gives "same"
// or "differs" (payload) when it succeeds. `leaves`: of the decoded document, when given.
struct Row {
    Json::Value attribute;
    std::string list;
    const char *payload, *outcomes;
    std::vector<std::string> leaves = {};
    const char* format = nullptr;
};

// Loads a service per row (row i as service i + 1, method 1) and encodes, decodes and encodes again.
void run(const std::vector<Row>& rows)
{
    Json::Value root;
    for (const Row& row : rows) {
        Json::Value& service = root["Services"].append(parse(R"({"Methods":[{"MethodID":"1","Params":[{"MethodType":"request"}]}]})"));
        service["ServiceID"] = root["Services"].size();
        service["Attribute"] = row.attribute;
        service["Methods"][0]["Params"][0]["ParamsDetails"] = formatOf(parse(row.format ? row.format : row.list));
    }
    ZQSomeIP::ZQSomeIPParserAPI api;
    ASSERT_EQ(api.loadFormatJson(TempDir().write("formats.json", root.toStyledString())), 0);
    for (int id = 1; id <= static_cast<int>(rows.size()); ++id) {
        const Row& row = rows[id - 1];
        SCOPED_TRACE(row.attribute.toStyledString() + row.list);
        std::string list = row.list, json;
        std::vector<unsigned char> written;
        std::string outcomes = outcome([&] { return api.serializebyMethodID(id, 1, 0, list, written); });
        std::vector<unsigned char> payload = row.payload ? bytes(row.payload) : written;
        EXPECT_TRUE(outcomes != "ok" || hex(written) == hex(payload)) << hex(written);
        outcomes += "/" + outcome([&] { return api.deserializebyMethodID(id, 1, 0, payload, json); });
        if (outcomes.compare(outcomes.find('/'), std::string::npos, "/ok") == 0) {  // decoded
            const std::string encoded = outcome([&] { return api.serializebyMethodID(id, 1, 0, json, written); });
            outcomes += "/" + (encoded != "ok" ? encoded : hex(written) == hex(payload) ? "same" : "differs");
        }
        EXPECT_EQ(outcomes, row.outcomes);
        EXPECT_TRUE(row.leaves.empty() || leaves(parse(json)) == row.leaves) << json;
    }
}

} // namespace

TEST(RoundTrip, DecodedDocumentEncodesToTheSamePayload)
{
    std::vector<Row> rows;
    for (int i = 0; i < 2 * 4 * 4 * 5; ++i) {  // every byte order, length field size, alignment and content
        // Basics and the structure in UTF-8 and UTF-16; strings in vectors decode only in UTF-8.
        const char* const list = i % 5 < 2 ? kBasics : i % 5 < 4 ? kStruct : kVectors;
        const std::string lengths = i / 20 % 4 == 3 ? "mixed" : std::to_string(8 << i / 20 % 4);
        rows.push_back({attribute(lengths, 8 << i / 5 % 4, i % 5 % 2 ? "UTF16" : "UTF8", i >= 80), list, nullptr, "ok/ok/same",
                        leaves(parse(list))});
    }
    run(rows);
}

// Where the two directions do not meet, and what each does with the two forms of ARRAY.
TEST(RoundTrip, PinnedBreaksAndArrayForms)
{
    const Json::Value plain = attribute("32", 8), bare = attribute("0", 8);
    const std::string flat = R"({"ParamType":"ARRAY","Value":"2","SubParams":[{"ParamType":"uint8_t","Value":"1"}]})";
    const std::string nested = R"({"ParamName":"a","ParamType":"ARRAY","Value":"3",
        "SubParams":{"ParamName":"e","SubParams":[{"ParamType":"uint8_t","Value":"1"}]}})";
    run({
        // UTF-16 strings in a vector are accounted as UTF-8.
        {attribute("32", 8, "UTF16"), kVectors, nullptr, "ok/failed"},
        // Top-level strings are written with a 4-byte length field whatever the format says.
        {attribute("16", 8), R"([{"ParamType":"STRING","Value":"ab"}])", "00000006 efbbbf616200", "ok/failed"},
        // A string without length field cannot be read back.
        {bare, R"([{"ParamType":"STRUCTURE","SubParams":[{"ParamType":"STRING","Value":"ab"}]}])", "efbbbf616200", "ok/failed"},
        // A vector without length field reads as empty; the next value takes its first byte.
        {bare, R"([{"ParamType":"VECTOR","SubParams":[{"ParamType":"uint8_t","Value":"1"},{"ParamType":"uint8_t","Value":"2"}]},
             {"ParamType":"uint8_t","Value":"9"}])", "0102 09", "ok/ok/differs", {"", "1"}},
        // An empty vector keeps its description, which encodes as one element.
        {plain, R"([{"ParamType":"VECTOR","SubParams":[]},{"ParamType":"uint8_t","Value":"9"}])", "00000000 09", "ok/ok/differs",
         {"", "9"}, R"([{"ParamType":"VECTOR","SubParams":[{"ParamType":"uint8_t"}]},{"ParamType":"uint8_t"}])"},
        // After a top-level vector, a top-level container ends the writer's alignment but not the reader's.
        {attribute("32", 32), R"([{"ParamType":"VECTOR","SubParams":[{"ParamType":"uint8_t","Value":"1"}]},
             {"ParamType":"STRUCTURE","SubParams":[{"ParamType":"uint8_t","Value":"2"}]}, {"ParamType":"uint8_t","Value":"3"}])",
         "00000001 01 00000001 02 03", "ok/failed"},
        // The flat form of ARRAY is written anywhere but read only inside a structure; the nested form is
        // read at the top level and directly in a vector (one element per member of the nested object,
        // whatever "Value" says) and never written.
        {plain, "[" + flat + "]", "00000002 0101", "ok/throws"},
        {plain, "[" + nested + "]", "00000003 010101", "throws/ok/throws"},
        {plain, R"([{"ParamType":"STRUCTURE","SubParams":[)" + flat + "]}]", "00000006 00000002 0101", "ok/ok/same", {"1", "1"}},
        {plain, R"([{"ParamType":"STRUCTURE","SubParams":[)" + nested + "]}]", "00000007 00000003 010101", "throws/throws"},
        {plain, R"([{"ParamType":"VECTOR","SubParams":[)" + flat + "]}]", "00000006 00000002 0101", "ok/throws"},
        {plain, R"([{"ParamType":"VECTOR","SubParams":[)" + nested + "]}]", "00000006 00000002 0101", "throws/ok/throws"},
    });
}
