#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "ZQSomeIPFormatAnalyzer.h"
#include "conv_test_support.h"

using namespace ZQSomeIP;

namespace {

std::vector<std::string> g_lines;

void collect(int32_t, const char*, const char* message)
{
    g_lines.push_back(message);
}

// Collects log lines through the callback and builds scratch format trees.
class FormatStoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_lines.clear();
        setenv("SOMEIPSER_LOG_LEVEL", "5", 1);
        zq_someip_set_logfunc_callback(collect);
    }
    void TearDown() override
    {
        zq_someip_set_logfunc_callback(nullptr);
        unsetenv("SOMEIPSER_LOG_LEVEL");
    }

    std::string write(const std::string& relative, const std::string& content)
    {
        std::filesystem::create_directories(std::filesystem::path(root + "/" + relative).parent_path());
        return dir.write(relative, content);
    }

    static int logged(const std::string& text)
    {
        int count = 0;
        for (const std::string& line : g_lines) {
            count += line.find(text) != std::string::npos ? 1 : 0;
        }
        return count;
    }

    convtest::TempDir dir;
    const std::string& root = dir.path;
};

// One service with a method (request and response), an event and a field (set, get, notify); each
// message has one parameter named after `tag` so that a test can tell which entry a lookup found.
std::string serviceFile(const std::string& serviceId, const std::string& tag, const std::string& serviceAttr = "",
                        const std::string& fileAttr = "")
{
    const auto message = [&tag](const char* type, const char* name) {
        return std::string("{\"MethodType\": \"") + type + "\", \"ParamsDetails\": [{\"ParamName\": \"" + tag + "_" +
               name + "\"}]}";
    };
    return "{" + (fileAttr.empty() ? "" : "\"Attribute\": " + fileAttr + ",") + "\"Services\": [{\"ServiceID\": " +
           serviceId + "," + (serviceAttr.empty() ? "" : "\"Attribute\": " + serviceAttr + ",") +
           "\"Methods\": [{\"MethodID\": \"1\", \"Params\": [" + message("request", "req") + "," +
           message("response", "resp") + "]}]," + "\"Events\": [{\"EventID\": \"32769\", \"Params\": [" +
           message("event", "event") + "]}]," + "\"Fields\": [{\"MethodID\": \"7\", \"EventID\": \"32770\", \"Params\": [" +
           message("request", "set") + "," + message("response", "get") + "," + message("event", "notify") + "]}]}]}";
}

std::string foundName(const std::string& format)
{
    Json::Value value;
    if (!Json::Reader().parse(format, value) || !value.isArray() || value.empty()) {
        return "<" + format + ">";
    }
    return value[0]["ParamName"].asString();
}

} // namespace

TEST_F(FormatStoreTest, LoadsDirectoryTreeBySuffixAndAddsUp)
{
    const std::string file = serviceFile("\"1\"", "t");
    for (const char* name : {"a/x.json", "a/b/y.json", "a/b/readme.txt", "a/.hidden.json", "a/b/data.JSON",
                             "a/c/x.json.bak", "a/c/d/.json"}) {
        write(name, file);
    }
    ZQSomeIPFormatAnalyzer store;
    EXPECT_EQ(store.loadFormatJson(root + "/a"), 0);
    EXPECT_EQ(store.formatCount(), 4u);  // x, y, .hidden and the file named ".json" itself
    EXPECT_EQ(logged("]  ***** loadFormatJsonDir_Inner(). Json Fiels count : 4. *****"), 1);
    EXPECT_EQ(logged("]  ***** loadFormatJson(). Path is dir. *****"), 1);
    EXPECT_EQ(logged("]  ***** loadFormatJson() start. path = [" + root + "/a] *****"), 1);

    // The suffix rule applies only to the walk; loads add up, the same tree twice is stored twice.
    EXPECT_EQ(store.loadFormatJson(root + "/a/b/data.JSON"), 0);
    EXPECT_EQ(logged("]  ***** loadFormatJson(). Path is file. *****"), 1);
    EXPECT_EQ(store.loadFormatJson(root + "/a"), 0);
    EXPECT_EQ(store.formatCount(), 9u);

    // Once something is loaded a directory of bad files still answers 0; a bad file -1; nothing is lost.
    write("bad/only.json", "{");
    EXPECT_EQ(store.loadFormatJson(root + "/bad"), 0);
    EXPECT_EQ(store.loadFormatJson(root + "/bad/only.json"), -1);
    EXPECT_EQ(logged("No json file loaded"), 0);
    EXPECT_EQ(store.formatCount(), 9u);
}

TEST_F(FormatStoreTest, LoadFailuresOnAnEmptyStore)
{
    const std::string empty = write("empty.json", "");
    const std::string brace = write("brace.json", "{");
    write("bad/only.json", "[1,");
    write("nothing/readme.txt", "x");
    const std::string notDirOrFile = "]  ***** loadFormatJson() faild. Path is not dir or file. *****";
    const std::pair<std::string, std::string> cases[] = {
        {root + "/missing", notDirOrFile},
        {"/dev/null", notDirOrFile},  // character device: neither type bit
        {empty, "]  ***** loadFormatJsonFile_Inner() file [" + empty + "] parse failed. *****"},
        {brace, "]  ***** loadFormatJsonFile_Inner() file [" + brace + "] parse failed. *****"},
        {root + "/bad", "]  ***** loadFormatJsonFile_Inner() file [" + root + "/bad/only.json] parse failed. *****"},
        {root + "/nothing", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        g_lines.clear();
        ZQSomeIPFormatAnalyzer store;
        EXPECT_EQ(store.loadFormatJson(c.first), -1);
        EXPECT_EQ(logged(c.second), c.second.empty() ? static_cast<int>(g_lines.size()) : 1);
        // A path that is neither file nor directory returns before the "nothing loaded" check.
        EXPECT_EQ(logged("]  ***** loadFormatJson() faild. No json file loaded. *****"), c.second == notDirOrFile ? 0 : 1);
    }
}

TEST_F(FormatStoreTest, LookupByMessageType)
{
    ZQSomeIPFormatAnalyzer store;
    std::string format = "untouched";
    EXPECT_EQ(store.getMethodFormatbyID(0x1234, 1, 0, format), -1);
    EXPECT_EQ(g_lines.size(), 1u);  // only the count line when nothing is loaded
    EXPECT_EQ(logged("]  ***** getMethodFormatbyID(). Formats Cnt is 0"), 1);
    ASSERT_EQ(store.loadFormatJson(write("s.json", serviceFile("\"4660\"", "m"))), 0);

    const struct {
        int service, method, messageType;
        const char* found;  // null: not found
    } cases[] = {
        {0x1234, 1, 0x00, "m_req"},      {0x1234, 1, 0x01, "m_req"},     {0x1234, 1, 0x80, "m_resp"},
        {0x1234, 1, 0x81, "m_resp"},     {0x1234, 1, 0x02, nullptr},     {0x1234, 32769, 0x02, "m_event"},
        {0x1234, 32769, 0x00, nullptr},  {0x1234, 7, 0x00, "m_set"},     {0x1234, 7, 0x80, "m_get"},
        {0x1234, 7, 0x01, nullptr},      {0x1234, 32770, 0x02, "m_notify"}, {0x1234, 1, 0x03, nullptr},
        {0x1234, 1, -1, nullptr},        {0x1234, 2, 0x00, nullptr},     {0x1235, 1, 0x00, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.method) + "/" + std::to_string(c.messageType));
        g_lines.clear();
        format = "untouched";
        ZQSomeIPExtendAttr attr;
        attr.alignment = 77;
        const int result = store.getMethodFormatbyIDWithAttr(c.service, c.method, c.messageType, format, attr);
        EXPECT_EQ(logged("]  ***** getMethodFormatbyID(). Formats Cnt is 1"), 1);
        EXPECT_EQ(logged(std::string("]  ***** getMethodFormatbyID() end. result is ") +
                         (c.found ? "Successful" : "Failed")), 1);
        EXPECT_EQ(result, c.found ? 0 : -1);
        EXPECT_EQ(foundName(format), c.found ? c.found : "<untouched>");
        EXPECT_EQ(attr.alignment, 77u);  // no "Attribute" anywhere: the record stays as it came in
    }

    // The text is the styled rendering of "ParamsDetails", the same through both lookups.
    std::string withAttr;
    ZQSomeIPExtendAttr attr;
    ASSERT_EQ(store.getMethodFormatbyIDWithAttr(0x1234, 1, 0, withAttr, attr), 0);
    ASSERT_EQ(store.getMethodFormatbyID(0x1234, 1, 0, format), 0);
    Json::Value expected(Json::arrayValue);
    expected[0]["ParamName"] = "m_req";
    EXPECT_EQ(withAttr, expected.toStyledString());
    EXPECT_EQ(format, withAttr);
}

TEST_F(FormatStoreTest, FirstMatchInAFileLastMatchingFileWins)
{
    // Entries may share an ID: the first whose "Params" has the wanted type answers.
    const std::string shared = R"({"Services": [
        {"ServiceID": "9", "Methods": [
            {"MethodID": "1", "Params": [{"MethodType": "request", "ParamsDetails": [{"ParamName": "a"}]}]},
            {"MethodID": "1", "Params": [{"MethodType": "response", "ParamsDetails": [{"ParamName": "b"}]}]}]},
        {"ServiceID": "9", "Methods": [
            {"MethodID": "1", "Params": [{"MethodType": "request", "ParamsDetails": [{"ParamName": "c"}]}]}]}]})";
    ZQSomeIPFormatAnalyzer store;
    ASSERT_EQ(store.loadFormatJson(write("shared.json", shared)), 0);
    std::string format;
    ASSERT_EQ(store.getMethodFormatbyID(9, 1, 0, format), 0);
    EXPECT_EQ(foundName(format), "a");
    ASSERT_EQ(store.getMethodFormatbyID(9, 1, 0x80, format), 0);
    EXPECT_EQ(foundName(format), "b");

    // A later file overrides the format; its attributes apply on top of the earlier file's.
    ASSERT_EQ(store.loadFormatJson(write("1.json", serviceFile("\"9\"", "first", "{\"DataAlignment\": \"64\"}"))), 0);
    ASSERT_EQ(store.loadFormatJson(write("2.json", serviceFile("\"9\"", "second"))), 0);
    ZQSomeIPExtendAttr attr;
    ASSERT_EQ(store.getMethodFormatbyIDWithAttr(9, 1, 0x80, format, attr), 0);
    EXPECT_EQ(foundName(format), "second_resp");
    EXPECT_EQ(attr.alignment, 8u);
}

TEST_F(FormatStoreTest, AttributesComeFromServiceThenFile)
{
    const std::string fileAttr = R"([{"DataAlignment": "32", "ByteOrderEnum": "BYTE_ORDER_BIG_ENDIAN"},
                                     {"DataAlignment": "64"}])";
    const struct {
        const char* name;
        std::string serviceAttr, fileAttr;
        uint32_t alignment, byteOrder, structSize;
    } cases[] = {
        {"service object wins", "{\"StructLengthFieldSize\": 16}", fileAttr, 1, 1, 2},
        {"empty service object resets", "{}", fileAttr, 1, 1, 4},
        {"no service attribute: file's first element", "", fileAttr, 4, 0, 4},
        {"service attribute not an object", "[{\"DataAlignment\": \"16\"}]", fileAttr, 4, 0, 4},
        {"file attribute as object is ignored", "", "{\"DataAlignment\": \"32\"}", 99, 99, 99},
        {"empty file array is ignored", "", "[]", 99, 99, 99},
        {"first file element not an object", "", "[\"x\"]", 99, 99, 99},
        {"neither", "", "", 99, 99, 99},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ZQSomeIPFormatAnalyzer store;
        ASSERT_EQ(store.loadFormatJson(write("attr.json", serviceFile("\"1\"", "m", c.serviceAttr, c.fileAttr))), 0);
        ZQSomeIPExtendAttr attr;
        attr.alignment = attr.byte_order = attr.struct_length_field_size = 99;
        std::string format;
        ASSERT_EQ(store.getMethodFormatbyIDWithAttr(1, 1, 0, format, attr), 0);
        EXPECT_EQ(attr.alignment, c.alignment);
        EXPECT_EQ(attr.byte_order, c.byteOrder);
        EXPECT_EQ(attr.struct_length_field_size, c.structSize);
    }
}

TEST(FormatAttributeTest, ConverterTablesAndRecordFields)
{
    ZQSomeIPFormatAnalyzer a;
    // Text in, code out, for every converter: {text, length/selector size, alignment, byte order, encoding}.
    const struct {
        const char* text;
        int size, alignment, order, encoding;
    } rows[] = {
        {"0", 0, 1, 1, 0},   {"8", 1, 1, 1, 0},   {"16", 2, 2, 1, 0}, {"32", 4, 4, 1, 0}, {"64", 4, 8, 1, 0},
        {"", 4, 1, 1, 0},    {" 8", 4, 1, 1, 0},  {"128", 4, 1, 1, 0}, {"UTF16", 4, 1, 1, 1}, {"utf16", 4, 1, 1, 0},
        {"BYTE_ORDER_BIG_ENDIAN", 4, 1, 0, 0}, {"byte_order_big_endian", 4, 1, 1, 0},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(std::vector<int>({a.convertToLengthFieldSize(r.text), a.convertToUnionTypeFieldSize(r.text),
                                    a.convertToAlignment(r.text), a.convertToByteOrder(r.text),
                                    a.convertToCharBit(r.text)}),
                  std::vector<int>({r.size, r.size, r.alignment, r.order, r.encoding}))
            << r.text;
    }

    // Each key lands in its own field; numbers are read through their text; other fields stay.
    Json::Value object;
    ASSERT_TRUE(Json::Reader().parse(R"({"ArrayLengthFieldSize": "8", "VectorLengthFieldSize": 16,
        "StructLengthFieldSize": "0", "UnionLengthFieldSize": "16", "DataAlignment": "64",
        "ByteOrderEnum": "BYTE_ORDER_BIG_ENDIAN", "UnionTypeSelectorFieldSize": "8", "StringEncoding": "UTF16"})",
                                     object));
    ZQSomeIPExtendAttr attr;
    attr.dynamic_flag = false;
    ASSERT_EQ(a.parseAttribute(object, attr), 0);
    EXPECT_EQ(std::vector<uint32_t>({attr.array_length_field_size, attr.vector_length_field_size,
                                     attr.struct_length_field_size, attr.string_length_field_size,
                                     attr.union_length_field_size, attr.alignment, attr.byte_order,
                                     attr.union_type_field_size, attr.string_utf}),
              std::vector<uint32_t>({1, 2, 0, 4, 2, 8, 0, 1, 1}));
    EXPECT_FALSE(attr.dynamic_flag);

    Json::Value notObject(Json::arrayValue);
    EXPECT_EQ(a.parseAttribute(notObject, attr), -1);
    EXPECT_EQ(attr.alignment, 8u);
    EXPECT_EQ(a.getGlobalAttribute()->struct_length_field_size, 4u);
    EXPECT_EQ(a.getGlobalAttribute()->byte_order, 1u);
}
