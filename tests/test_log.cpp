#include <gtest/gtest.h>

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "someip/zq_someip_log.h"

namespace {

std::vector<std::string> g_messages;

void capture(int32_t level, const char* tag, const char* message)
{
    g_messages.push_back(std::to_string(level) + "|" + tag + "|" + message);
}

void setLevel(const char* value)
{
    value ? setenv("SOMEIPSER_LOG_LEVEL", value, 1) : unsetenv("SOMEIPSER_LOG_LEVEL");
}

class LogTest : public ::testing::Test {
protected:
    void SetUp() override { g_messages.clear(); }
    void TearDown() override
    {
        zq_someip_set_logfunc_callback(nullptr);
        setLevel(nullptr);
    }

    // One line of each level 1..5 with the variable set to `value`; what reached standard output.
    static std::string printedWith(const char* value)
    {
        setLevel(value);
        testing::internal::CaptureStdout();
        for (int level = 1; level <= 5; ++level) {
            zq_someip_log_output(level, "TAG", "line-%d", level);
        }
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }
};

} // namespace

TEST_F(LogTest, LevelFilterOnStandardOutput)
{
    // Which of the levels 1..5 are printed, as a string of 0/1.
    const std::pair<const char*, const char*> cases[] = {
        {nullptr, "00000"}, {"0", "00000"}, {"", "00000"}, {"abc", "00000"}, {"1", "00000"}, {"-1", "00000"},
        {"2", "00010"},     {"3", "00110"}, {"3xyz", "00110"}, {"4", "01110"}, {"5", "11110"}, {"99", "11110"},
    };
    for (const auto& c : cases) {
        const std::string out = printedWith(c.first);
        std::string printed;
        for (int level = 1; level <= 5; ++level) {
            printed += out.find("TAG line-" + std::to_string(level)) != std::string::npos ? '1' : '0';
        }
        EXPECT_EQ(printed, c.second) << (c.first ? c.first : "(unset)");
    }
}

TEST_F(LogTest, PrintedLineLayout)
{
    const std::string out = printedWith("5");
    // Errors are red, the colour reset stands after the newline.
    EXPECT_NE(out.find("\033[;31m[PID:"), std::string::npos);
    EXPECT_NE(out.find(" TAG line-4\n\033[0m"), std::string::npos);

    // "[PID:p TID:t] YYYYMMDD hh:mm:ss.<ms> TAG message"
    const std::string first = out.substr(0, out.find('\n'));
    const std::string head = "[PID:" + std::to_string(getpid()) + " TID:";
    ASSERT_EQ(first.compare(0, head.size(), head), 0) << first;
    const std::string rest = first.substr(first.find("] ") + 2);
    const std::string shape = "dddddddd dd:dd:dd.";
    ASSERT_GT(rest.size(), shape.size());
    for (size_t i = 0; i < shape.size(); ++i) {
        EXPECT_TRUE(shape[i] == 'd' ? isdigit(static_cast<unsigned char>(rest[i])) != 0 : rest[i] == shape[i]) << rest;
    }
    EXPECT_EQ(rest.substr(rest.size() - 11), " TAG line-1");
}

TEST_F(LogTest, CallbackTakesEveryLevelOnceTheGateIsOpen)
{
    zq_someip_set_logfunc_callback(capture);
    EXPECT_EQ(g_logfunc, &capture);
    const std::string out = printedWith("1");
    EXPECT_EQ(out, "");
    EXPECT_EQ(g_messages, (std::vector<std::string>{"1|TAG|line-1", "2|TAG|line-2", "3|TAG|line-3", "4|TAG|line-4",
                                                     "5|TAG|line-5"}));

    // A closed gate, a null tag or a null format: nothing reaches the callback.
    g_messages.clear();
    printedWith("0");
    printedWith(nullptr);
    setLevel("5");
    zq_someip_log_output(4, nullptr, "no tag");
    zq_someip_log_output(4, "TAG", nullptr);
    EXPECT_TRUE(g_messages.empty());

    // Messages are cut to 1023 characters.
    const std::string longText(3000, 'x');
    zq_someip_log_output(1, "TAG", "%s", longText.c_str());
    ASSERT_EQ(g_messages.size(), 1u);
    EXPECT_EQ(g_messages[0], "1|TAG|" + std::string(1023, 'x'));

    // Removing the callback restores printing.
    zq_someip_set_logfunc_callback(nullptr);
    EXPECT_NE(printedWith("2").find("line-4"), std::string::npos);
}

TEST_F(LogTest, MacrosSupplyFileLineAndFunction)
{
    zq_someip_set_logfunc_callback(capture);
    setLevel("5");
    const int line = __LINE__ + 1;
    ZQ_SOMEIP_LOGE(" [%s][%d][%s]  ***** value %d *****", 42);
    ZQ_SOMEIP_LOGD_IN("walker", " [%s][%d][%s]  x");
    ASSERT_EQ(g_messages.size(), 2u);
    EXPECT_EQ(g_messages[0], "4|ESOMEIP_ERROR| [" + std::string(__FILE__) + "][" + std::to_string(line) +
                                 "][TestBody]  ***** value 42 *****");
    EXPECT_EQ(g_messages[1].substr(0, 16), "1|DSOMEIP_DEBUG|");
    EXPECT_NE(g_messages[1].find("][walker]  x"), std::string::npos);
}
