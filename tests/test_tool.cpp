#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

std::string slurp(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Runs the tool with `args` (shell words) and `input` on standard input.
ToolRun runTool(const std::string& args, const std::string& input = "")
{
    // Unique per process: ctest may run the tests of this file in parallel.
    const std::string dir = ::testing::TempDir() + "someip_tool_" + std::to_string(getpid()) + "_";
    std::ofstream(dir + "tool_in") << input;
    const std::string command = std::string(SOMEIP_TOOL_PATH) + " " + args + " <" + dir + "tool_in >" + dir +
                                "tool_out 2>" + dir + "tool_err";
    const int raw = std::system(command.c_str());
    ToolRun run{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(dir + "tool_out"), slurp(dir + "tool_err")};
    for (const char* name : {"tool_in", "tool_out", "tool_err"}) {
        std::remove((dir + name).c_str());
    }
    return run;
}

const std::string kRoute = std::string("--formats ") + SOMEIP_EXAMPLES_DIR + " --service 0x1234 --method 2 --type response";
const char* const kRoutePayload = "07 00 00 00 14 00 08 00 64 00 00 00 CE FF FF FF 08 00 EC FF FF FF 2C 01 00 00 FF FF 00 00 48 41";
const char* const kRouteHex = "070000001400080064000000ceffffff0800ecffffff2c010000ffff00004841";

class Tool : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (std::string(SOMEIP_TOOL_PATH).empty()) {
            GTEST_SKIP() << "someip-json is not built";
        }
        unsetenv("SOMEIPSER_LOG_LEVEL");
    }
};

} // namespace

TEST_F(Tool, DecodeThenEncodeGivesThePayloadBack)
{
    const ToolRun decoded = runTool("decode " + kRoute + " --payload '" + kRoutePayload + "'");
    ASSERT_EQ(decoded.status, 0) << decoded.err;
    EXPECT_NE(decoded.out.find("\"Value\" : \"12.500000\""), std::string::npos);
    EXPECT_EQ(decoded.err, "");
    // Payload from standard input in lower case, JSON from standard input.
    EXPECT_EQ(runTool("decode " + kRoute, "07000000 1400 0800 64000000 ceffffff 0800 ecffffff 2c010000 ffff 00004841\n").out,
              decoded.out);
    // Library lines go to standard error, so the result stays clean.
    const ToolRun logged = runTool("decode " + kRoute + " --log-level 5 --payload '" + kRoutePayload + "'");
    EXPECT_EQ(logged.out, decoded.out);
    EXPECT_NE(logged.err.find("DSOMEIP_DEBUG"), std::string::npos);
    const ToolRun encoded = runTool("encode " + kRoute, decoded.out);
    EXPECT_EQ(encoded.status, 0);
    EXPECT_EQ(encoded.out, std::string(kRouteHex) + "\n");
    EXPECT_NE(runTool("format " + kRoute).out.find("\"lengthKm\""), std::string::npos);
}

TEST_F(Tool, ErrorsAreOneLineOnStandardError)
{
    const std::string nested = std::string("--formats ") + SOMEIP_EXAMPLES_DIR + " --service 4661 --method 2 --type 0x80";
    struct Case {
        std::string args;
        std::string input;
        int status;
        const char* message;
    };
    const Case cases[] = {
        {"frobnicate " + kRoute, "", 2, "unknown command 'frobnicate'"},
        {"decode --formats x --service 1 --method 1", "", 2, "missing option '--type'"},
        {"decode " + kRoute + " --bogus 1", "", 2, "unknown option '--bogus'"},
        {"decode --formats x --service 0xZZ --method 1 --type 0", "", 2, "invalid service ID '0xZZ'"},
        {"decode --formats x --service 1 --method 1 --type reply", "", 2, "invalid message type 'reply'"},
        {"decode " + kRoute + " --payload 0g", "", 2, "invalid hex payload"},
        {"decode " + kRoute + " --payload 123", "", 2, "odd number of digits"},
        {"encode " + kRoute, "{", 2, "invalid JSON input"},
        {"encode " + kRoute + " --json /nonexistent/x.json", "", 2, "cannot read JSON file"},
        {"format --formats /nonexistent --service 1 --method 1 --type 0", "", 1, "cannot load format descriptions"},
        {"decode --formats " SOMEIP_EXAMPLES_DIR " --service 0x1234 --method 9 --type 0 --payload 00", "", 1, "no format"},
        {"decode " + kRoute + " --payload 0700000014", "", 1, "decode failed"},
        {"encode " + kRoute, R"([{"ParamType":"nope"}])", 1, "encode failed"},
        // The writer takes only the flat array form; the library's exception is reported, not thrown on.
        {"encode " + nested, R"([{"ParamType":"ARRAY","Value":"2","SubParams":{"ParamName":"b","SubParams":[]}}])", 1,
         "conversion failed"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const ToolRun run = runTool(c.args, c.input);
        EXPECT_EQ(run.status, c.status);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.find("someip-json: "), 0u) << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
    }
}
