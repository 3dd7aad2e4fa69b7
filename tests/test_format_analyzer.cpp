#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "ZQSomeIPFormatAnalyzer.h"
#include "someip/zq_someip_log.h"

using namespace ZQSomeIP;

namespace {

std::vector<std::string> g_lines;

void collect(int32_t, const char*, const char* message)
{
    g_lines.push_back(message);
}

// Collects log lines through the callback for the duration of a test and builds scratch directories.
class FormatStoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_lines.clear();
        setenv("SOMEIPSER_LOG_LEVEL", "5", 1);
        zq_someip_set_logfunc_callback(collect);
        char pattern[] = "/tmp/someip_formats_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root = pattern;
    }
    void TearDown() override
    {
        zq_someip_set_logfunc_callback(nullptr);
        unsetenv("SOMEIPSER_LOG_LEVEL");
        const std::string command = "rm -rf '" + root + "'";
        EXPECT_EQ(system(command.c_str()), 0);
    }

    std::string write(const std::string& relative, const std::string& content)
    {
        const std::string path = root + "/" + relative;
        const std::string dir = path.substr(0, path.rfind('/'));
        const std::string command = "mkdir -p '" + dir + "'";
        EXPECT_EQ(system(command.c_str()), 0);
        std::ofstream(path) << content;
        return path;
    }

    // Number of collected lines that contain `text`.
    static int logged(const std::string& text)
    {
        int count = 0;
        for (const std::string& line : g_lines) {
            count += line.find(text) != std::string::npos ? 1 : 0;
        }
        return count;
    }

    std::string root;
};

// A file with one service whose method `method` has a request and a response described by a single
// parameter named `tag`, so that tests can tell which file and entry a lookup found.
std::string serviceFile(const std::string& serviceId, int method, const std::string& tag,
                        const std::string& serviceAttribute = "", const std::string& fileAttribute = "")
{
    std::string text = "{";
    if (!fileAttribute.empty()) {
        text += "\"Attribute\": " + fileAttribute + ",";
    }
    text += "\"Services\": [{\"ServiceID\": " + serviceId + ",";
    if (!serviceAttribute.empty()) {
        text += "\"Attribute\": " + serviceAttribute + ",";
    }
    const std::string id = "\"" + std::to_string(method) + "\"";
    text += "\"Methods\": [{\"MethodID\": " + id + ", \"Params\": ["
            "{\"MethodType\": \"request\", \"ParamsDetails\": [{\"ParamName\": \"" + tag + "_req\"}]},"
            "{\"MethodType\": \"response\", \"ParamsDetails\": [{\"ParamName\": \"" + tag + "_resp\"}]}]}],"
            "\"Events\": [{\"EventID\": \"32769\", \"Params\": ["
            "{\"MethodType\": \"event\", \"ParamsDetails\": [{\"ParamName\": \"" + tag + "_event\"}]}]}],"
            "\"Fields\": [{\"MethodID\": \"7\", \"EventID\": \"32770\", \"Params\": ["
            "{\"MethodType\": \"request\", \"ParamsDetails\": [{\"ParamName\": \"" + tag + "_set\"}]},"
            "{\"MethodType\": \"response\", \"ParamsDetails\": [{\"ParamName\": \"" + tag + "_get\"}]},"
            "{\"MethodType\": \"event\", \"ParamsDetails\": [{\"ParamName\": \"" + tag + "_notify\"}]}]}]"
            "}]}";
    return text;
}

// The "ParamName" of the single parameter of a found method format.
std::string foundName(const std::string& format)
{
    Json::Value value;
    Json::Reader reader;
    if (!reader.parse(format, value) || !value.isArray() || value.empty()) {
        return "<" + format + ">";
    }
    return value[0]["ParamName"].asString();
}

} // namespace

TEST_F(FormatStoreTest, LoadsDirectoryTreeBySuffix)
{
    const std::string file = serviceFile("\"1\"", 1, "t");
    write("a/x.json", file);
    write("a/b/y.json", file);
    write("a/b/readme.txt", file);
    write("a/.hidden.json", file);
    write("a/b/data.JSON", file);
    write("a/c/x.json.bak", file);
    write("a/c/d/.json", file);

    ZQSomeIPFormatAnalyzer store;
    EXPECT_EQ(store.loadFormatJson(root + "/a"), 0);
    EXPECT_EQ(store.formatCount(), 4u);  // x, y, .hidden and the file named ".json" itself
    EXPECT_EQ(logged("]  ***** loadFormatJsonDir_Inner(). Json Fiels count : 4. *****"), 1);
    EXPECT_EQ(logged("]  ***** loadFormatJson(). Path is dir. *****"), 1);
    EXPECT_EQ(logged("]  ***** loadFormatJson() start. path = [" + root + "/a] *****"), 1);

    // The suffix rule applies only to the walk: a file named by its own path is loaded.
    EXPECT_EQ(store.loadFormatJson(root + "/a/b/data.JSON"), 0);
    EXPECT_EQ(store.formatCount(), 5u);
    EXPECT_EQ(logged("]  ***** loadFormatJson(). Path is file. *****"), 1);

    // Loads add up; the same tree again doubles the store.
    EXPECT_EQ(store.loadFormatJson(root + "/a"), 0);
    EXPECT_EQ(store.formatCount(), 9u);
}

TEST_F(FormatStoreTest, LoadFailuresAndTheirMessages)
{
    const std::string empty = write("empty.json", "");
    const std::string brace = write("brace.json", "{");
    write("bad/only.json", "[1,");
    write("nothing/readme.txt", "x");

    struct Case {
        std::string path;
        int result;
        std::string message;  // empty: no message of its own
    };
    const Case cases[] = {
        {root + "/missing", -1, "]  ***** loadFormatJson() faild. Path is not dir or file. *****"},
        {empty, -1, "parse failed. *****"},
        {brace, -1, "]  ***** loadFormatJsonFile_Inner() file [" + brace + "] parse failed. *****"},
        {root + "/nothing", -1, ""},
        {root + "/bad", -1, "]  ***** loadFormatJsonFile_Inner() file [" + root + "/bad/only.json] parse failed. *****"},
        {"/dev/null", -1, "]  ***** loadFormatJson() faild. Path is not dir or file. *****"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        g_lines.clear();
        ZQSomeIPFormatAnalyzer store;
        EXPECT_EQ(store.loadFormatJson(c.path), c.result);
        if (!c.message.empty()) {
            EXPECT_EQ(logged(c.message), 1);
        }
        // A missing path returns before the "nothing loaded" check.
        const bool missing = c.message.find("not dir or file") != std::string::npos;
        EXPECT_EQ(logged("]  ***** loadFormatJson() faild. No json file loaded. *****"), missing ? 0 : 1);
        EXPECT_EQ(store.formatCount(), 0u);
    }
}

TEST_F(FormatStoreTest, FailedLoadsKeepWhatWasLoaded)
{
    const std::string good = write("good.json", serviceFile("\"1\"", 1, "t"));
    write("bad/only.json", "{");
    ZQSomeIPFormatAnalyzer store;
    ASSERT_EQ(store.loadFormatJson(good), 0);
    g_lines.clear();
    // A directory whose files all fail still answers 0 once something is loaded; a bad file -1.
    EXPECT_EQ(store.loadFormatJson(root + "/bad"), 0);
    EXPECT_EQ(store.loadFormatJson(root + "/bad/only.json"), -1);
    EXPECT_EQ(store.loadFormatJson(root + "/nope"), -1);
    EXPECT_EQ(logged("No json file loaded"), 0);
    EXPECT_EQ(store.formatCount(), 1u);
}

TEST_F(FormatStoreTest, PathTypeAndSuffixRule)
{
    ZQSomeIPFormatAnalyzer store;
    const std::string file = write("f.json", "{}");
    EXPECT_EQ(store.pathType(file), 0);
    EXPECT_EQ(store.pathType(root), 1);
    EXPECT_EQ(store.pathType(root + "/none"), -1);
    EXPECT_EQ(store.pathType("/dev/null"), -1);  // character device: neither bit

    const std::pair<const char*, bool> names[] = {
        {"x.json", true}, {".json", true}, {"json", false}, {"a.JSON", false},
        {"x.json.bak", false}, {"x.json.json", true}, {"", false}, {"abcd", false},
    };
    for (const auto& n : names) {
        EXPECT_EQ(store.isFormatFile(n.first), n.second) << n.first;
    }
}

TEST_F(FormatStoreTest, LookupByMessageType)
{
    ZQSomeIPFormatAnalyzer store;
    ASSERT_EQ(store.loadFormatJson(write("s.json", serviceFile("\"4660\"", 1, "m"))), 0);

    struct Case {
        int method;
        int messageType;
        const char* found;  // null: not found
    };
    const Case cases[] = {
        {1, 0x00, "m_req"},     {1, 0x01, "m_req"},      {1, 0x80, "m_resp"},   {1, 0x81, "m_resp"},
        {1, 0x02, nullptr},     {32769, 0x02, "m_event"}, {32769, 0x00, nullptr},
        {7, 0x00, "m_set"},     {7, 0x80, "m_get"},      {7, 0x81, "m_get"},    {7, 0x01, nullptr},
        {32770, 0x02, "m_notify"}, {1, 0x03, nullptr},   {1, -1, nullptr},      {2, 0x00, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.method) + "/" + std::to_string(c.messageType));
        g_lines.clear();
        std::string format = "untouched";
        ZQSomeIPExtendAttr attr;
        attr.alignment = 77;
        const int result = store.getMethodFormatbyIDWithAttr(0x1234, c.method, c.messageType, format, attr);
        EXPECT_EQ(logged("]  ***** getMethodFormatbyID(). Formats Cnt is 1"), 1);
        if (c.found) {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(foundName(format), c.found);
            EXPECT_EQ(logged("]  ***** getMethodFormatbyID() end. result is Successful"), 1);
        } else {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(format, "untouched");
            EXPECT_EQ(attr.alignment, 77u);
            EXPECT_EQ(logged("]  ***** getMethodFormatbyID() end. result is Failed"), 1);
        }
    }
    // Wrong service.
    std::string format;
    EXPECT_EQ(store.getMethodFormatbyID(0x1235, 1, 0, format), -1);
}

TEST_F(FormatStoreTest, LookupOnEmptyStoreLogsOnlyTheCount)
{
    ZQSomeIPFormatAnalyzer store;
    std::string format;
    EXPECT_EQ(store.getMethodFormatbyID(1, 1, 0, format), -1);
    ASSERT_EQ(g_lines.size(), 1u);
    EXPECT_EQ(logged("]  ***** getMethodFormatbyID(). Formats Cnt is 0"), 1);
}

TEST_F(FormatStoreTest, FormatTextIsStyledParamsDetails)
{
    ZQSomeIPFormatAnalyzer store;
    ASSERT_EQ(store.loadFormatJson(write("s.json", serviceFile("\"1\"", 1, "m"))), 0);
    std::string format;
    ZQSomeIPExtendAttr attr;
    ASSERT_EQ(store.getMethodFormatbyIDWithAttr(1, 1, 0, format, attr), 0);
    Json::Value expected(Json::arrayValue);
    expected[0]["ParamName"] = "m_req";
    EXPECT_EQ(format, expected.toStyledString());

    std::string plain;
    ASSERT_EQ(store.getMethodFormatbyID(1, 1, 0, plain), 0);
    EXPECT_EQ(plain, format);
}

TEST_F(FormatStoreTest, ServiceIdIsReadAsDecimalText)
{
    struct Case {
        const char* id;
        int matches;
    };
    const Case cases[] = {
        {"\"4660\"", 4660}, {"4660", 4660}, {"\"0x1234\"", 0}, {"\"12abc\"", 12},
        {"\"abc\"", 0},     {"\" \"", 1},   {"\"   \"", 3},   {"\"\"", 0},  {"\" 42\"", 42},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.id);
        ZQSomeIPFormatAnalyzer store;
        ASSERT_EQ(store.loadFormatJson(write("id.json", serviceFile(c.id, 1, "m"))), 0);
        std::string format;
        EXPECT_EQ(store.getMethodFormatbyID(c.matches, 1, 0, format), 0);
        EXPECT_EQ(store.getMethodFormatbyID(c.matches + 1000, 1, 0, format), -1);
    }
    // No "ServiceID" at all matches service 0.
    ZQSomeIPFormatAnalyzer store;
    ASSERT_EQ(store.loadFormatJson(write("none.json",
        "{\"Services\":[{\"Methods\":[{\"MethodID\":\"1\",\"Params\":[{\"MethodType\":\"request\","
        "\"ParamsDetails\":[]}]}]}]}")), 0);
    std::string format;
    EXPECT_EQ(store.getMethodFormatbyID(0, 1, 0, format), 0);
}

TEST_F(FormatStoreTest, LastLoadedFileWins)
{
    ZQSomeIPFormatAnalyzer store;
    ASSERT_EQ(store.loadFormatJson(write("1.json", serviceFile("\"5\"", 1, "first", "{\"DataAlignment\": \"64\"}"))), 0);
    ASSERT_EQ(store.loadFormatJson(write("2.json", serviceFile("\"5\"", 1, "second"))), 0);
    ASSERT_EQ(store.loadFormatJson(write("3.json", serviceFile("\"6\"", 1, "other"))), 0);

    std::string format;
    ZQSomeIPExtendAttr attr;
    ASSERT_EQ(store.getMethodFormatbyIDWithAttr(5, 1, 0x80, format, attr), 0);
    EXPECT_EQ(foundName(format), "second_resp");
    // The later file has no attributes of its own, so the earlier file's stay in the record.
    EXPECT_EQ(attr.alignment, 8u);
}

TEST_F(FormatStoreTest, FirstMatchWithinOneFile)
{
    // Two entries share a method ID; the first has no "response", so the second answers that type.
    const std::string text = R"({"Services": [
        {"ServiceID": "9", "Methods": [
            {"MethodID": "1", "Params": [{"MethodType": "request", "ParamsDetails": [{"ParamName": "a"}]}]},
            {"MethodID": "1", "Params": [{"MethodType": "response", "ParamsDetails": [{"ParamName": "b"}]},
                                         {"MethodType": "request", "ParamsDetails": [{"ParamName": "c"}]}]}]},
        {"ServiceID": "9", "Methods": [
            {"MethodID": "1", "Params": [{"MethodType": "request", "ParamsDetails": [{"ParamName": "d"}]},
                                         {"MethodType": "event", "ParamsDetails": [{"ParamName": "e"}]}]}]}]})";
    ZQSomeIPFormatAnalyzer store;
    ASSERT_EQ(store.loadFormatJson(write("two.json", text)), 0);
    std::string format;
    ASSERT_EQ(store.getMethodFormatbyID(9, 1, 0, format), 0);
    EXPECT_EQ(foundName(format), "a");
    ASSERT_EQ(store.getMethodFormatbyID(9, 1, 0x80, format), 0);
    EXPECT_EQ(foundName(format), "b");
    // "event" entries of methods are never looked at.
    EXPECT_EQ(store.getMethodFormatbyID(9, 1, 2, format), -1);
}

TEST_F(FormatStoreTest, AttributesComeFromServiceThenFile)
{
    const std::string fileAttr = "[{\"DataAlignment\": \"32\", \"ByteOrderEnum\": \"BYTE_ORDER_BIG_ENDIAN\"},"
                                 " {\"DataAlignment\": \"64\"}]";
    struct Case {
        const char* name;
        std::string serviceAttr;
        std::string fileAttr;
        uint32_t alignment;
        uint32_t byteOrder;
        uint32_t structSize;
    };
    const Case cases[] = {
        {"service object wins", "{\"StructLengthFieldSize\": 16}", fileAttr, 1, 1, 2},
        {"empty service object resets", "{}", fileAttr, 1, 1, 4},
        {"no service attribute: file's first element", "", fileAttr, 4, 0, 4},
        {"service attribute not an object", "[{\"DataAlignment\": \"16\"}]", fileAttr, 4, 0, 4},
        {"file attribute as object is ignored", "", "{\"DataAlignment\": \"32\"}", 99, 99, 99},
        {"empty file array is ignored", "", "[]", 99, 99, 99},
        {"neither", "", "", 99, 99, 99},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ZQSomeIPFormatAnalyzer store;
        ASSERT_EQ(store.loadFormatJson(write("attr.json", serviceFile("\"1\"", 1, "m", c.serviceAttr, c.fileAttr))), 0);
        ZQSomeIPExtendAttr attr;
        attr.alignment = attr.byte_order = attr.struct_length_field_size = 99;
        std::string format;
        ASSERT_EQ(store.getMethodFormatbyIDWithAttr(1, 1, 0, format, attr), 0);
        EXPECT_EQ(attr.alignment, c.alignment);
        EXPECT_EQ(attr.byte_order, c.byteOrder);
        EXPECT_EQ(attr.struct_length_field_size, c.structSize);
    }
}

TEST(FormatAttributeTest, ConverterTables)
{
    ZQSomeIPFormatAnalyzer a;
    const std::pair<const char*, int> lengths[] = {
        {"0", 0}, {"8", 1}, {"16", 2}, {"32", 4}, {"", 4}, {"64", 4}, {"24", 4}, {" 8", 4},
    };
    for (const auto& l : lengths) {
        EXPECT_EQ(a.convertToLengthFieldSize(l.first), l.second) << l.first;
        EXPECT_EQ(a.convertToUnionTypeFieldSize(l.first), l.second) << l.first;
    }
    const std::pair<const char*, int> alignments[] = {
        {"16", 2}, {"32", 4}, {"64", 8}, {"8", 1}, {"0", 1}, {"", 1}, {"128", 1},
    };
    for (const auto& l : alignments) {
        EXPECT_EQ(a.convertToAlignment(l.first), l.second) << l.first;
    }
    EXPECT_EQ(a.convertToByteOrder("BYTE_ORDER_BIG_ENDIAN"), 0);
    for (const char* other : {"BYTE_ORDER_LITTLE_ENDIAN", "byte_order_big_endian", ""}) {
        EXPECT_EQ(a.convertToByteOrder(other), 1) << other;
    }
    EXPECT_EQ(a.convertToCharBit("UTF16"), 1);
    for (const char* other : {"utf16", "UTF16BE", "UTF16LE", "UTF8", ""}) {
        EXPECT_EQ(a.convertToCharBit(other), 0) << other;
    }
}

TEST(FormatAttributeTest, ParseAttributeObject)
{
    ZQSomeIPFormatAnalyzer a;
    Json::Value object;
    Json::Reader().parse(R"({"ArrayLengthFieldSize": "8", "VectorLengthFieldSize": 16,
        "StructLengthFieldSize": "0", "StringLengthFieldSize": "32", "DataAlignment": "64",
        "ByteOrderEnum": "BYTE_ORDER_BIG_ENDIAN", "UnionTypeSelectorFieldSize": "16",
        "StringEncoding": "UTF16", "Unknown": "x"})", object);
    ZQSomeIPExtendAttr attr;
    attr.dynamic_flag = false;
    attr.length_field_value = 5;
    ASSERT_EQ(a.parseAttribute(object, attr), 0);
    EXPECT_EQ(attr.array_length_field_size, 1u);
    EXPECT_EQ(attr.vector_length_field_size, 2u);
    EXPECT_EQ(attr.struct_length_field_size, 0u);
    EXPECT_EQ(attr.string_length_field_size, 4u);
    EXPECT_EQ(attr.union_length_field_size, 4u);  // missing key
    EXPECT_EQ(attr.alignment, 8u);
    EXPECT_EQ(attr.byte_order, 0u);
    EXPECT_EQ(attr.union_type_field_size, 2u);
    EXPECT_EQ(attr.string_utf, 1u);
    EXPECT_FALSE(attr.dynamic_flag);           // the record's other fields are left alone
    EXPECT_EQ(attr.length_field_value, 5u);

    // Not an object: rejected, record untouched. An empty object resets all nine fields.
    for (Json::Value bad : {Json::Value(Json::arrayValue), Json::Value("x"), Json::Value()}) {
        EXPECT_EQ(a.parseAttribute(bad, attr), -1);
        EXPECT_EQ(attr.alignment, 8u);
    }
    Json::Value empty(Json::objectValue);
    ASSERT_EQ(a.parseAttribute(empty, attr), 0);
    const ZQSomeIPExtendAttr defaults;
    EXPECT_EQ(attr.array_length_field_size, defaults.array_length_field_size);
    EXPECT_EQ(attr.alignment, defaults.alignment);
    EXPECT_EQ(attr.byte_order, defaults.byte_order);
    EXPECT_EQ(attr.string_utf, defaults.string_utf);

    // The global record holds the lookup defaults.
    const ZQSomeIPExtendAttr* global = a.getGlobalAttribute();
    ASSERT_NE(global, nullptr);
    EXPECT_EQ(global->struct_length_field_size, 4u);
    EXPECT_EQ(global->byte_order, 1u);
    EXPECT_EQ(global->alignment, 1u);
}

TEST(FormatAttributeTest, ParseGlobalAttributeTakesFirstArrayElement)
{
    ZQSomeIPFormatAnalyzer a;
    struct Case {
        const char* owner;
        int result;
        uint32_t alignment;
    };
    const Case cases[] = {
        {R"({"Attribute": [{"DataAlignment": "32"}, {"DataAlignment": "64"}]})", 0, 4},
        {R"({"Attribute": {"DataAlignment": "32"}})", -1, 99},
        {R"({"Attribute": []})", -1, 99},
        {R"({"Attribute": ["text"]})", -1, 99},
        {R"({"Other": 1})", -1, 99},
        {R"([{"Attribute": [{}]}])", -1, 99},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.owner);
        Json::Value owner;
        ASSERT_TRUE(Json::Reader().parse(c.owner, owner));
        ZQSomeIPExtendAttr attr;
        attr.alignment = 99;
        EXPECT_EQ(a.parseGlobalAttribute(owner, attr), c.result);
        EXPECT_EQ(attr.alignment, c.alignment);
    }
}

TEST(StringToNumTest, StreamRules)
{
    EXPECT_EQ(StringToNum<int>("4660"), 4660);
    EXPECT_EQ(StringToNum<int>("  42"), 42);
    EXPECT_EQ(StringToNum<int>("12abc"), 12);
    EXPECT_EQ(StringToNum<int>("0x10"), 0);
    EXPECT_EQ(StringToNum<int>("abc"), 0);
    EXPECT_EQ(StringToNum<int>(""), 0);
    EXPECT_EQ(StringToNum<int>(" "), 1);       // blanks only: the text's length survives
    EXPECT_EQ(StringToNum<int>("    "), 4);
    EXPECT_EQ(StringToNum<int>("-17"), -17);
    EXPECT_EQ(StringToNum<int>("+8"), 8);
    EXPECT_EQ(StringToNum<int>("99999999999"), 2147483647);
    EXPECT_EQ(StringToNum<int>("-99999999999"), -2147483647 - 1);
    EXPECT_EQ(StringToNum<unsigned int>("-1"), 4294967295u);
    EXPECT_EQ(StringToNum<unsigned int>("4294967296"), 4294967295u);
    EXPECT_EQ(StringToNum<short>("40000"), 32767);
    EXPECT_EQ(StringToNum<short>("-40000"), -32768);
    EXPECT_EQ(StringToNum<unsigned short>("65535"), 65535);
    EXPECT_EQ(StringToNum<unsigned long>("18446744073709551615"), 18446744073709551615ul);
    EXPECT_EQ(StringToNum<unsigned long>("-1"), 18446744073709551615ul);
}

TEST_F(FormatStoreTest, ExampleTreeAttributes)
{
    ZQSomeIPFormatAnalyzer store;
    ASSERT_EQ(store.loadFormatJson(SOMEIP_EXAMPLES_DIR), 0);
    EXPECT_EQ(store.formatCount(), 3u);

    struct Case {
        int service, method, type;
        uint32_t lengthSize, alignment, byteOrder, stringUtf, structSize;
    };
    const Case cases[] = {
        {0x1234, 1, 0x00, 2, 4, 1, 0, 2},      // service attribute: little endian, 16-bit fields
        {0x1234, 32770, 0x02, 2, 4, 1, 0, 2},  // field notification
        {0x1235, 1, 0x80, 4, 1, 0, 1, 4},      // UTF-16, big endian; numeric ServiceID
        {0x1236, 1, 0x80, 1, 1, 0, 0, 0},      // no service attribute: the file's array stands in
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.service);
        ZQSomeIPExtendAttr attr;
        std::string format;
        ASSERT_EQ(store.getMethodFormatbyIDWithAttr(c.service, c.method, c.type, format, attr), 0);
        EXPECT_EQ(attr.string_length_field_size, c.lengthSize);
        EXPECT_EQ(attr.alignment, c.alignment);
        EXPECT_EQ(attr.byte_order, c.byteOrder);
        EXPECT_EQ(attr.string_utf, c.stringUtf);
        EXPECT_EQ(attr.struct_length_field_size, c.structSize);
    }
    std::string format;
    EXPECT_EQ(store.getMethodFormatbyID(0x1236, 2, 0x01, format), 0);   // request without return
    EXPECT_EQ(store.getMethodFormatbyID(0x1236, 2, 0x80, format), -1);  // it has no response
}
