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
    std::string out, err;
};

// Runs the tool with `args` (shell words) and `input` on standard input. File names are unique per
// process, as ctest may run the tests of this file in parallel.
ToolRun runTool(const std::string& args, const std::string& input = "")
{
    const std::string base = ::testing::TempDir() + "someip_tool_" + std::to_string(getpid());
    std::ofstream(base + ".in") << input;
    unsetenv("SOMEIPSER_LOG_LEVEL");
    const int raw = std::system((std::string(SOMEIP_TOOL_PATH) + " " + args + " <" + base + ".in >" + base +
                                 ".out 2>" + base + ".err").c_str());
    ToolRun run{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, "", ""};
    for (std::string* text : {&run.out, &run.err}) {
        const std::string path = base + (text == &run.out ? ".out" : ".err");
        std::stringstream content;
        content << std::ifstream(path).rdbuf();
        *text = content.str();
        std::remove(path.c_str());
    }
    std::remove((base + ".in").c_str());
    return run;
}

const std::string kFormats = std::string("--formats ") + SOMEIP_EXAMPLES_DIR;
const std::string kRoute = kFormats + " --service 0x1234 --method 2 --type response";
const char* const kRouteHex = "070000001400080064000000ceffffff0800ecffffff2c010000ffff00004841";

} // namespace

TEST(Tool, DecodeThenEncodeGivesThePayloadBack)
{
    if (std::string(SOMEIP_TOOL_PATH).empty()) {
        GTEST_SKIP() << "someip-json is not built";
    }
    const ToolRun decoded =
        runTool("decode " + kRoute + " --payload '07 00 00 00 14 00 08 00 64 00 00 00 CE FF FF FF 08 00 EC FF FF FF "
                                     "2C 01 00 00 FF FF 00 00 48 41'");
    ASSERT_EQ(decoded.status, 0) << decoded.err;
    EXPECT_NE(decoded.out.find("\"Value\" : \"12.500000\""), std::string::npos);
    EXPECT_EQ(decoded.err, "");
    // Payload from standard input; library lines go to standard error and leave the result clean.
    const ToolRun logged = runTool("decode " + kRoute + " --log-level 5", kRouteHex);
    EXPECT_EQ(logged.out, decoded.out);
    EXPECT_NE(logged.err.find("DSOMEIP_DEBUG"), std::string::npos);
    const ToolRun encoded = runTool("encode " + kRoute, decoded.out);
    EXPECT_EQ(encoded.status, 0);
    EXPECT_EQ(encoded.out, std::string(kRouteHex) + "\n");
}

TEST(Tool, ErrorsAreOneLineOnStandardError)
{
    if (std::string(SOMEIP_TOOL_PATH).empty()) {
        GTEST_SKIP() << "someip-json is not built";
    }
    const std::string bands = kFormats + " --service 4661 --method 2 --type 0x80";
    struct Case {
        std::string args, input;
        int status;
        const char* message;
    };
    const Case cases[] = {
        {"frobnicate " + kRoute, "", 2, "unknown command 'frobnicate'"},
        {"decode --formats x --service 1 --method 1", "", 2, "missing option '--type'"},
        {"decode --formats x --service 0xZZ --method 1 --type 0", "", 2, "invalid service ID '0xZZ'"},
        {"decode " + kRoute + " --payload '01 0g'", "", 2, "invalid hex payload"},
        {"encode " + kRoute, "{", 2, "invalid JSON input"},
        {"format --formats /nonexistent --service 1 --method 1 --type 0", "", 1, "cannot load format descriptions"},
        {"decode " + kFormats + " --service 0x1234 --method 9 --type 0 --payload 00", "", 1, "no format"},
        {"decode " + kRoute + " --payload 0700000014", "", 1, "decode failed"},
        // The writer takes only the flat array form: the library's exception is reported, not left to abort.
        {"encode " + bands, R"([{"ParamType":"ARRAY","Value":"1","SubParams":{"ParamName":"b","SubParams":[]}}])", 1,
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
