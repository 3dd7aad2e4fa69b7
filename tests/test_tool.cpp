#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>

namespace {

// Runs the tool with `args` (shell words) and `input` on standard input; gives its exit status (-1 when
// it did not exit) and what it printed. File names are unique per process: ctest runs tests in parallel.
int runTool(const std::string& args, const std::string& input, std::string& out, std::string& err)
{
    const std::string base = ::testing::TempDir() + "someip_tool_" + std::to_string(getpid()) + ".";
    std::ofstream(base + "in") << input;
    unsetenv("SOMEIPSER_LOG_LEVEL");
    const int raw = std::system((SOMEIP_TOOL_PATH " " + args + " <" + base + "in >" + base + "out 2>" + base + "err").c_str());
    std::ifstream outFile(base + "out"), errFile(base + "err");
    std::getline(outFile, out, '\0');
    std::getline(errFile, err, '\0');
    for (const char* suffix : {"in", "out", "err"}) {
        std::remove((base + suffix).c_str());
    }
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

} // namespace

// Run in order; a null input is the previous run's standard output.
TEST(Tool, DecodesEncodesAndReportsErrors)
{
    if (std::string(SOMEIP_TOOL_PATH).empty()) {
        GTEST_SKIP() << "someip-json is not built";
    }
    const std::string formats = std::string("--formats ") + SOMEIP_EXAMPLES_DIR;
    const std::string route = formats + " --service 0x1234 --method 2 --type response";
    const char* const payload = "070000001400080064000000ceffffff0800ecffffff2c010000ffff00004841\n";
    const char* const decoded = "\"Value\" : \"12.500000\"";
    const struct {
        std::string args;
        const char* input;
        int status;
        const char* out;  // printed on standard output, or null for nothing
        const char* err;  // same, on standard error
    } cases[] = {
        {"decode " + route + " --payload '07 00 00 00 14 00 08 00 64 00 00 00 CE FF FF FF 08 00 EC FF FF FF "
                             "2C 01 00 00 FF FF 00 00 48 41'", "", 0, decoded, nullptr},
        // Library lines go to standard error and leave the document on standard output clean for encoding.
        {"decode " + route + " --log-level 5", payload, 0, decoded, "DSOMEIP_DEBUG"},
        {"encode " + route, nullptr, 0, payload, nullptr},
        {"frobnicate " + route, "", 2, nullptr, "unknown command 'frobnicate'"},
        {"decode --formats x --service 1 --method 1", "", 2, nullptr, "missing option '--type'"},
        {"decode --formats x --service 0xZZ --method 1 --type 0", "", 2, nullptr, "invalid service ID '0xZZ'"},
        {"decode " + route + " --payload '01 0g'", "", 2, nullptr, "invalid hex payload"},
        {"encode " + route, "{", 2, nullptr, "invalid JSON input"},
        {"format --formats /nonexistent --service 1 --method 1 --type 0", "", 1, nullptr, "cannot load format descriptions"},
        {"decode " + formats + " --service 0x1234 --method 9 --type 0 --payload 00", "", 1, nullptr, "no format"},
        {"decode " + route + " --payload 0700000014", "", 1, nullptr, "decode failed"},
        // The writer takes only the flat array form: the library's exception is reported, not left to abort.
        {"encode " + formats + " --service 4661 --method 2 --type 0x80",
         R"([{"ParamType":"ARRAY","Value":"1","SubParams":{"ParamName":"b","SubParams":[]}}])", 1, nullptr, "conversion failed"},
    };
    std::string previous;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        std::string out, err;
        EXPECT_EQ(runTool(c.args, c.input ? c.input : previous, out, err), c.status);
        for (const auto& [text, expected] : {std::pair(out, c.out), std::pair(err, c.err)}) {
            EXPECT_TRUE(expected ? text.find(expected) != std::string::npos : text.empty()) << text;
        }
        // Errors, and only errors, come as one line opening with the tool's name.
        EXPECT_EQ(err.rfind("someip-json: ", 0) == 0 && err.find('\n') == err.size() - 1, c.status != 0) << err;
        previous = out;
    }
}
