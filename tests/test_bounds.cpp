// Work on hostile input stays bounded: counts far beyond any message and directory loops end with the
// ordinary failure instead of running out of memory or time.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "ZQSomeIPParserAPI.h"
#include "conv_test_support.h"

namespace {

const char* const kArrayOfVectors = R"({"Services":[{"ServiceID":"1","Attribute":{"VectorLengthFieldSize":"0",
  "ArrayLengthFieldSize":"0"},"Methods":[{"MethodID":"1","Params":[{"MethodType":"request","ParamsDetails":[
  {"ParamName":"a","ParamType":"ARRAY","Value":"-1","SubParams":{"ParamName":"e","SubParams":[
    {"ParamName":"v","ParamType":"VECTOR","SubParams":[{"ParamName":"x","ParamType":"uint8_t"}]}]}}]}]}]}]})";

using convtest::TempDir;

TEST(Bounds, HugeArrayCountsFailInsteadOfGrowingWithoutEnd)
{
    TempDir dir;
    std::ofstream(dir.path + "/f.json") << kArrayOfVectors;
    ZQSomeIP::ZQSomeIPParserAPI api;
    ASSERT_EQ(api.loadFormatJson(dir.path + "/f.json"), 0);
    convtest::LogCapture log;

    // 2^32 - 1 elements that take no bytes: stopped 65,536 past the payload's one byte.
    std::vector<unsigned char> payload = {0x01};
    std::string json;
    EXPECT_EQ(api.deserializebyMethodID(1, 1, 0, payload, json), -1);
    EXPECT_TRUE(log.has("bytes were left *****"));

    // Padding a one-element list up to 2^32 - 1 copies is refused before any copy is made.
    std::string input = R"([{"ParamName":"a","ParamType":"ARRAY","Value":"-1",
                            "SubParams":[{"ParamName":"x","ParamType":"uint8_t","Value":"1"}]}])";
    std::vector<unsigned char> out;
    EXPECT_EQ(api.serializebyMethodID(1, 1, 0, input, out), -1);
    EXPECT_TRUE(log.has("copies of its first element *****"));

    // A count that the payload can hold is walked as before.
    input = R"([{"ParamName":"a","ParamType":"ARRAY","Value":"3","SubParams":[{"ParamName":"x","ParamType":"uint8_t","Value":"7"}]}])";
    EXPECT_EQ(api.serializebyMethodID(1, 1, 0, input, out), 0);
    EXPECT_EQ(convtest::hex(out), "070707");
}

TEST(Bounds, ADirectoryLinkBackToAnAncestorIsNotFollowed)
{
    TempDir dir;
    std::filesystem::create_directories(dir.path + "/a/b");
    std::ofstream(dir.path + "/a/b/f.json") << kArrayOfVectors;
    std::filesystem::create_directory_symlink(dir.path + "/a", dir.path + "/a/b/up");
    ZQSomeIP::ZQSomeIPParserAPI api;
    convtest::LogCapture log;
    EXPECT_EQ(api.loadFormatJson(dir.path), 0);
    EXPECT_TRUE(log.has("leads back to a directory above it, not followed *****"));
    std::string format;
    EXPECT_EQ(api.getMethodFormatbyID(1, 1, 0, format), 0);
}

} // namespace
