#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "someip/zq_someip_log.h"

namespace {

struct Captured {
    int32_t level;
    std::string tag;
    std::string message;
};
std::vector<Captured> g_captured;

void capture(int32_t level, const char* tag, const char* message)
{
    g_captured.push_back({level, tag, message});
}

class LogTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_captured.clear();
        zq_someip_set_logfunc_callback(nullptr);
        unsetenv("SOMEIPSER_LOG_LEVEL");
    }
    void TearDown() override
    {
        zq_someip_set_logfunc_callback(nullptr);
        unsetenv("SOMEIPSER_LOG_LEVEL");
    }

    // Prints one line of each of the levels 1..4 with the variable set to `value` and returns stdout.
    static std::string printed_with(const char* value)
    {
        if (value) {
            setenv("SOMEIPSER_LOG_LEVEL", value, 1);
        } else {
            unsetenv("SOMEIPSER_LOG_LEVEL");
        }
        testing::internal::CaptureStdout();
        zq_someip_log_output(1, "DSOMEIP_DEBUG", "debug-line");
        zq_someip_log_output(2, "ISOMEIP_INFO", "info-line");
        zq_someip_log_output(3, "WSOMEIP_WARNING", "warning-line");
        zq_someip_log_output(4, "ESOMEIP_ERROR", "error-line");
        zq_someip_log_output(5, "XSOMEIP", "level5-line");
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }
};

bool has(const std::string& text, const char* needle)
{
    return text.find(needle) != std::string::npos;
}

} // namespace

TEST_F(LogTest, LevelFilterOnStandardOutput)
{
    struct Case {
        const char* value;
        bool debug, info, warning, error;
    };
    const Case cases[] = {
        {nullptr, false, false, false, false}, {"0", false, false, false, false},
        {"", false, false, false, false},      {"abc", false, false, false, false},
        {"1", false, false, false, false},     {"-1", false, false, false, false},
        {"2", false, false, false, true},      {"3", false, false, true, true},
        {"3xyz", false, false, true, true},    {"4", false, true, true, true},
        {"5", true, true, true, true},         {"99", true, true, true, true},
    };
    for (const Case& c : cases) {
        const std::string out = printed_with(c.value);
        SCOPED_TRACE(c.value ? c.value : "(unset)");
        EXPECT_EQ(has(out, "debug-line"), c.debug);
        EXPECT_EQ(has(out, "info-line"), c.info);
        EXPECT_EQ(has(out, "warning-line"), c.warning);
        EXPECT_EQ(has(out, "error-line"), c.error);
        EXPECT_FALSE(has(out, "level5-line"));
    }
}

TEST_F(LogTest, PrintedLineLayout)
{
    const std::string out = printed_with("5");
    // Errors are red and the colour reset follows the newline.
    const size_t red = out.find("\033[;31m[PID:");
    ASSERT_NE(red, std::string::npos);
    EXPECT_NE(out.find("ESOMEIP_ERROR error-line\n\033[0m"), std::string::npos);

    const std::string pid = "[PID:" + std::to_string(getpid()) + " TID:";
    const size_t debug = out.find(pid);
    ASSERT_EQ(debug, 0u) << out;
    const size_t close = out.find("] ", debug);
    ASSERT_NE(close, std::string::npos);
    // "YYYYMMDD hh:mm:ss.<ms>" then the tag and the message.
    const std::string rest = out.substr(close + 2, out.find('\n') - close - 2);
    ASSERT_GE(rest.size(), 20u);
    for (int i : {0, 1, 2, 3, 4, 5, 6, 7, 9, 10, 12, 13, 15, 16}) {
        EXPECT_TRUE(isdigit(static_cast<unsigned char>(rest[i]))) << rest;
    }
    EXPECT_EQ(rest[8], ' ');
    EXPECT_EQ(rest[11], ':');
    EXPECT_EQ(rest[17], '.');
    EXPECT_TRUE(has(rest, " DSOMEIP_DEBUG debug-line")) << rest;
}

TEST_F(LogTest, CallbackReceivesEveryLevelOnceGateIsOpen)
{
    zq_someip_set_logfunc_callback(capture);
    EXPECT_EQ(g_logfunc, &capture);

    setenv("SOMEIPSER_LOG_LEVEL", "1", 1);
    testing::internal::CaptureStdout();
    zq_someip_log_output(1, "DSOMEIP_DEBUG", "[%s][%d]", "x", 7);
    zq_someip_log_output(0, "T", "zero");
    zq_someip_log_output(9, "T", "nine");
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    ASSERT_EQ(g_captured.size(), 3u);
    EXPECT_EQ(g_captured[0].level, 1);
    EXPECT_EQ(g_captured[0].tag, "DSOMEIP_DEBUG");
    EXPECT_EQ(g_captured[0].message, "[x][7]");
    EXPECT_EQ(g_captured[2].message, "nine");

    // Closed gate, null tag or null format: nothing reaches the callback.
    g_captured.clear();
    setenv("SOMEIPSER_LOG_LEVEL", "0", 1);
    zq_someip_log_output(4, "ESOMEIP_ERROR", "gated");
    unsetenv("SOMEIPSER_LOG_LEVEL");
    zq_someip_log_output(4, "ESOMEIP_ERROR", "unset");
    setenv("SOMEIPSER_LOG_LEVEL", "5", 1);
    zq_someip_log_output(4, nullptr, "no tag");
    zq_someip_log_output(4, "ESOMEIP_ERROR", nullptr);
    EXPECT_TRUE(g_captured.empty());

    // Removing the callback restores printing.
    zq_someip_set_logfunc_callback(nullptr);
    testing::internal::CaptureStdout();
    zq_someip_log_output(4, "ESOMEIP_ERROR", "printed again");
    fflush(stdout);
    EXPECT_TRUE(has(testing::internal::GetCapturedStdout(), "printed again"));
}

TEST_F(LogTest, LongMessagesAreCutTo1023Characters)
{
    zq_someip_set_logfunc_callback(capture);
    setenv("SOMEIPSER_LOG_LEVEL", "1", 1);
    const std::string longText(3000, 'x');
    zq_someip_log_output(1, "DSOMEIP_DEBUG", "%s", longText.c_str());
    ASSERT_EQ(g_captured.size(), 1u);
    EXPECT_EQ(g_captured[0].message, std::string(1023, 'x'));
}

TEST_F(LogTest, MacroSuppliesFileLineAndFunction)
{
    zq_someip_set_logfunc_callback(capture);
    setenv("SOMEIPSER_LOG_LEVEL", "5", 1);
    const int line = __LINE__ + 1;
    ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** value %d *****", 42);
    ASSERT_EQ(g_captured.size(), 1u);
    EXPECT_EQ(g_captured[0].level, 4);
    EXPECT_EQ(g_captured[0].tag, "ESOMEIP_ERROR");
    const std::string expected =
        std::string(" [") + __FILE__ + "][" + std::to_string(line) + "][TestBody]  ***** value 42 *****";
    EXPECT_EQ(g_captured[0].message, expected);
}
