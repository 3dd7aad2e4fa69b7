#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

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

const char* const kPayload = "070000001400080064000000ceffffff0800ecffffff2c010000ffff00004841";
const char* const kPlain = R"({"routeId":7,"waypoints":[{"x":100,"y":-50},{"x":-20,"y":300}],"lengthKm":12.5})";

std::string examples()
{
    return std::string("--formats ") + SOMEIP_EXAMPLES_DIR;
}

std::string examplesRoute()
{
    return examples() + " --service 0x1234 --method 2 --type response";
}

std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

class Tool : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (std::string(SOMEIP_TOOL_PATH).empty()) {
            GTEST_SKIP() << "someip-json is not built";
        }
    }
};

} // namespace

TEST_F(Tool, HelpOfEveryCommandAndVersion)
{
    const struct {
        std::string args;
        std::vector<std::string> mentions;  // each must appear on standard output
        std::vector<std::string> absent;
    } cases[] = {
        {"--help", {"format", "decode", "encode", "--version"}, {}},
        {"format --help", {"--formats", "--service", "--method", "--type", "--log-level"}, {"--stream", "--plain"}},
        {"decode --help", {"--payload", "--plain", "--classic", "--compact", "--pretty", "--stream"}, {"--json"}},
        {"encode --help", {"--json", "--plain", "--classic", "--stream"}, {"--payload"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        std::string out, err;
        EXPECT_EQ(runTool(c.args, "", out, err), 0);
        EXPECT_EQ(err, "");
        for (const std::string& m : c.mentions) {
            EXPECT_NE(out.find(m), std::string::npos) << m << " in:\n" << out;
        }
        for (const std::string& a : c.absent) {
            EXPECT_EQ(out.find(a), std::string::npos) << a << " in:\n" << out;
        }
    }
    std::string out, err;
    EXPECT_EQ(runTool("--version", "", out, err), 0);
    EXPECT_TRUE(std::regex_match(out, std::regex("someip-json [0-9]+\\.[0-9]+\\.[0-9]+\n"))) << out;
}

// Both end with status 2, but only a mistake on the command line points at --help.
TEST_F(Tool, OnlyUsageErrorsPointAtHelp)
{
    const struct {
        std::string args;
        bool hint;
    } cases[] = {
        {"decode --service 1 --method 1 --type request --payload 00", true},  // --formats missing
        {"capture x.pcap --formats x --service zz", true},
        {"decode --formats " SOMEIP_EXAMPLES_DIR " --stream /nonexistent", false},
        {"capture /nonexistent.pcap --formats " SOMEIP_EXAMPLES_DIR, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        std::string out, err;
        EXPECT_EQ(runTool(c.args, "", out, err), 2);
        EXPECT_EQ(err.find("(see --help)") != std::string::npos, c.hint) << err;
    }
}

// Run in order: a document written is read back by the next run.
TEST_F(Tool, ConvertsAndReportsErrors)
{
    const std::string badFormats = ::testing::TempDir() + "someip_tool_bad_" + std::to_string(getpid()) + ".json";
    std::ofstream(badFormats) << "{\n  \"Services\": [\n    {]\n}\n";
    const std::string formats = examples(), route = examplesRoute();
    const std::string plainLine = std::string(kPlain) + "\n", payloadLine = std::string(kPayload) + "\n";
    const char* const decoded = "\"Value\" : \"12.500000\"";
    const struct {
        std::string args;
        std::optional<std::string> input;  // none: the previous run's standard output
        int status;
        std::string out;  // standard output must contain it; empty: standard output stays empty
        std::string err;  // the same, on standard error
    } cases[] = {
        {"decode " + route + " --payload '07 00 00 00 14 00 08 00 64 00 00 00 CE FF FF FF 08 00 EC FF FF FF "
                             "2C 01 00 00 FF FF 00 00 48 41' --classic", "", 0, decoded, ""},
        // Library lines go to standard error and leave the document on standard output clean for encoding.
        {"decode " + route + " --classic --log-level 5", payloadLine, 0, decoded, "DSOMEIP_DEBUG"},
        {"encode " + route + " --classic", std::nullopt, 0, payloadLine, ""},
        // Plain is the default; --plain says so.
        {"decode " + route + " --payload " + kPayload, "", 0, plainLine, ""},
        {"encode " + route + " --plain", std::nullopt, 0, payloadLine, ""},
        {"decode " + route + " --plain --pretty --payload " + kPayload, "", 0,
         "{\n  \"routeId\": 7,\n  \"waypoints\": [\n", ""},
        {"encode " + route + " --plain", std::nullopt, 0, payloadLine, ""},
        // Classic compact: the styled document on one line, which the classic encoder still reads.
        {"decode " + route + " --classic --compact --payload " + kPayload, "", 0,
         R"("ParamType":"float","Value":"12.500000"}])" "\n", ""},
        {"encode " + route + " --classic", std::nullopt, 0, payloadLine, ""},
        // Blanks and escapes inside strings survive the compaction.
        {"decode " + formats + " --service 4661 --method 32769 --type notification --classic --compact --payload "
         "0000001cfeff00540077006f002000200077006f0072006400730022007100000000000000000001ffffffffffffffff",
         "", 0, R"({"ParamName":"title","ParamType":"STRING","Value":"Two  words\"q"},)", ""},
        {"frobnicate " + route, "", 2, "", "unknown command 'frobnicate'"},
        {"decode --formats x --service 1 --method 1", "", 2, "", "missing option '--type'"},
        {"decode --formats x --service 0xZZ --method 1 --type 0", "", 2, "", "invalid service ID '0xZZ'"},
        {"decode " + route + " --payload '01 0g'", "", 2, "", "invalid hex payload"},
        {"encode " + route + " --classic", "{", 2, "", "invalid JSON input"},
        {"format --formats /nonexistent --service 1 --method 1 --type 0", "", 2, "",
         "cannot read format descriptions: /nonexistent: not a file or directory"},
        {"decode " + formats + " --service 0x1234 --method 9 --type 0 --classic --payload 00", "", 1, "",
         "no format for service 4660 (0x1234), method 9 (0x0009), message type 0 (0x00)"},
        {"decode " + route + " --classic --payload 0700000014", "", 1, "", "decode failed"},
        {"decode " + route + " --classic --payload 0700000014 --allow-failures", "", 0, "", "decode failed"},
        // The writer takes only the flat array form: the library's exception is reported, not left to abort.
        {"encode " + formats + " --service 4661 --method 2 --type 0x80 --classic",
         R"([{"ParamType":"ARRAY","Value":"1","SubParams":{"ParamName":"b","SubParams":[]}}])", 1, "", "conversion failed"},
        // Plain errors: code, message and place.
        {"decode " + route + " --plain --payload 0700", "", 1, "", "someip-json: truncated: "},
        {"encode " + route + " --plain", R"({"routeId":7})", 1, "", "someip-json: missing_member: "},
        {"encode " + route + " --plain", "[1,", 1, "", "someip-json: bad_json: "},
        {"decode " + formats + " --service 0x1234 --method 9 --type 0 --plain --payload 00", "", 1, "",
         "someip-json: unknown_message: no format for service 4660 (0x1234), method 9 (0x0009), message type 0 (0x00)"},
        {"decode --formats " + badFormats + " --service 1 --method 1 --type 0 --plain --payload 00", "", 1, "",
         "someip-json: broken format file " + badFormats + ": line 3, column 6: "},
        // Input of the other form says which option reads it.
        {"encode " + route, R"([{"ParamName":"routeId","ParamType":"uint32_t","Value":"7"}])", 1, "",
         "(the input looks like the classic parameter-list document: add --classic)"},
        {"encode " + route + " --classic", plainLine, 1, "", "(the input looks like plain JSON, which is the default: drop --classic)"},
        {"decode " + route + " --plain --classic --payload 00", "", 2, "", "--plain excludes --classic"},
        {"decode " + formats + " --stream - --pretty", "", 2, "", "--pretty excludes --stream"},
        {"decode " + formats + " --stream - --service 1", "", 2, "", "--service excludes --stream"},
        // Standard input holds one payload, blanks aside; several lines are several payloads: refused, not joined.
        {"decode " + route + " --plain", "\n\n" + payloadLine + " \n", 0, plainLine, ""},
        {"decode " + route + " --plain",
         "07 00 00 00 14 00\t08 00 64 00 00 00 ce ff ff ff 08 00 ec ff ff ff 2c 01 00 00 ff ff 00 00 48 41", 0, plainLine, ""},
        {"decode " + route + " --plain", payloadLine + "\n" + payloadLine, 2, "", "standard input holds 2 payloads"},
        {"decode " + route + " --plain", payloadLine + "0700\n", 2, "", "--stream -"},
    };
    std::string previous;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        std::string out, err;
        EXPECT_EQ(runTool(c.args, c.input ? *c.input : previous, out, err), c.status);
        for (const auto& [text, expected] : {std::pair(out, c.out), std::pair(err, c.err)}) {
            EXPECT_TRUE(expected.empty() ? text.empty() : text.find(expected) != std::string::npos) << text;
        }
        // Errors, and only errors, come as one line opening with the tool's name.
        const bool failed = c.status != 0 || c.args.find("--allow-failures") != std::string::npos;
        EXPECT_EQ(err.rfind("someip-json: ", 0) == 0 && err.find('\n') == err.size() - 1, failed) << err;
        previous = out;
    }
    std::remove(badFormats.c_str());
}

// One line out per message, a failed message an error line of its own, the summary on standard error.
TEST_F(Tool, StreamMode)
{
    const std::string good = std::string("4660 2 response ") + kPayload + "\n";
    const std::string plainGood = std::string("0x1234 0x2 0x80 ") + kPlain + "\n";
    const struct {
        const char* what;
        std::string args;
        std::string input;
        int status;
        std::vector<std::string> lines;  // each a prefix of its line of standard output
        const char* summary;             // on standard error
    } cases[] = {
        {"plain decode, a short payload in the middle", "decode --plain",
         "# route replies\n" + good + "\n0x1234 2 0x80 0700\n" + good, 1,
         {kPlain, R"({"error":{"code":"truncated","offset":0,"message":")", kPlain},
         "3 lines, 2 succeeded, 1 failed (truncated: 1); first failure on line 4"},
        {"classic decode, the same", "decode --classic --compact",
         good + "4660 2 response 0700\n" + good, 1,
         {R"([{"ParamName":"routeId","ParamType":"uint32_t","Value":"7"},)",
          R"({"error":{"code":"failed","message":"decode failed: )", "[{"},
         "3 lines, 2 succeeded, 1 failed (failed: 1); first failure on line 2"},
        {"plain encode, a member missing in the middle", "encode --plain",
         plainGood + R"(4660 2 response {"routeId":7})" "\n" + plainGood, 1,
         {kPayload, R"({"error":{"code":"missing_member","path":"$.waypoints","message":")", kPayload},
         "3 lines, 2 succeeded, 1 failed (missing_member: 1); first failure on line 2"},
        {"classic encode, JSON that is not a parameter list", "encode --classic",
         R"(4660 2 response [{"ParamName":"routeId","ParamType":"uint32_t","Value":"7"}])" "\n4660 2 response {\n", 1,
         {"07000000", R"({"error":{"code":"failed","message":")"},
         "2 lines, 1 succeeded, 1 failed (failed: 1); first failure on line 2"},
        {"lines that name no message", "decode --plain",
         "4660 2\n4660 2 answer 00\n4660 2 response 0g\n" + good, 1,
         {R"({"error":{"code":"bad_input","message":"expected SERVICE METHOD TYPE HEX"}})",
          R"({"error":{"code":"bad_input","message":"invalid message type 'answer'"}})",
          R"({"error":{"code":"bad_input","message":"invalid hex payload: '0g' is not hexadecimal"}})", kPlain},
         "4 lines, 1 succeeded, 3 failed (bad_input: 3); first failure on line 1"},
        {"every line converts", "decode --plain", good + good, 0, {kPlain, kPlain}, "2 lines, 2 succeeded, 0 failed\n"},
        {"nothing to convert", "encode", "\n# empty\n", 0, {}, "0 lines, 0 succeeded, 0 failed\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::string out, err;
        EXPECT_EQ(runTool(c.args + " " + examples() + " --stream -", c.input, out, err), c.status);
        const std::vector<std::string> lines = splitLines(out);
        ASSERT_EQ(lines.size(), c.lines.size()) << out;
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i].rfind(c.lines[i], 0), 0u) << "line " << i << ": " << lines[i];
        }
        EXPECT_EQ(err.rfind("someip-json: stream: ", 0), 0u) << err;
        EXPECT_NE(err.find(c.summary), std::string::npos) << err;
    }
}

namespace {

// A version-2 format: service 4660 at interface versions 1 and 2, event 32769 with an enumerated and a
// scaled member at version 1 (payload 03 41: AUTO, 22.5 degC).
const char* const kVersionedFormats = R"({"FormatVersion": 2, "Services": [
  {"ServiceName": "Climate", "ServiceID": "4660", "MajorVersion": 1, "Events": [{"EventName": "Cabin",
   "EventID": "32769", "Params": [{"MethodType": "event", "ParamsDetails": [
     {"ParamName": "mode", "ParamType": "uint8_t", "Enumerators": [{"Name": "AUTO", "Value": 3}]},
     {"ParamName": "temp", "ParamType": "uint8_t", "Scale": {"Factor": 0.5, "Offset": -10, "Unit": "degC"}}]}]}]},
  {"ServiceName": "Climate", "ServiceID": "4660", "MajorVersion": 2, "Events": [{"EventName": "CabinV2",
   "EventID": "32769", "Params": [{"MethodType": "event", "ParamsDetails": [
     {"ParamName": "mode", "ParamType": "uint8_t"}]}]}]}]})";

struct Capture {
    int interfaceVersion;
    std::string payload;  // bytes
    uint32_t method = 32769;
};

// A pcap of raw IPv4/UDP datagrams, each one notification of service 4660, sessions counting from 1.
std::string pcapOf(const std::vector<Capture>& messages)
{
    std::string out;
    const auto put = [&out](uint64_t v, int n, bool big) {
        for (int i = 0; i < n; ++i) {
            out += static_cast<char>(v >> 8 * (big ? n - 1 - i : i));
        }
    };
    put(0xA1B2C3D4, 4, false), put(2, 2, false), put(4, 2, false), put(0, 8, false), put(65535, 4, false);
    put(101, 4, false);  // raw IP
    uint32_t session = 0;
    for (const Capture& m : messages) {
        const uint64_t size = m.payload.size(), ip = 20 + 8 + 16 + size;
        put(1700000000, 4, false), put(0, 4, false), put(ip, 4, false), put(ip, 4, false);
        put(0x45000000 | ip, 4, true), put(0, 4, true), put(0x40110000, 4, true), put(0x0a000001, 4, true);
        put(0x0a000002, 4, true), put(30490u << 16 | 30490u, 4, true), put((8 + 16 + size) << 16, 4, true);
        put(0x12340000 | m.method, 4, true), put(8 + size, 4, true), put(++session, 4, true);
        put(0x01000200u | static_cast<uint64_t>(m.interfaceVersion) << 16, 4, true);
        out += m.payload;
    }
    return out;
}

} // namespace

// The plain styles reach the codec both ways; skipped bytes are reported beside the value, never in it.
TEST_F(Tool, PlainStylesStrictAndWarnings)
{
    const std::string file = ::testing::TempDir() + "someip_tool_styles_" + std::to_string(getpid()) + ".json";
    std::ofstream(file) << kVersionedFormats;
    const std::string formats = " --formats " + file, route = formats + " --service 4660 --method 32769 --type 2";
    const char* const plain = R"({"mode":"AUTO","temp":65})" "\n";
    const struct {
        std::string args;
        std::string input;
        int status;
        std::string out;               // standard output, exactly
        std::vector<std::string> err;  // each on standard error; none: standard error stays empty
    } cases[] = {
        {"decode" + route + " --plain --payload 0341", "", 0, plain, {}},
        {"decode" + route + " --plain --enum-style both --scaled both --payload 0341", "", 0,
         R"({"mode":{"name":"AUTO","value":3},"temp":{"raw":65,"value":22.5,"unit":"degC"}})" "\n", {}},
        {"decode" + route + " --plain --enum-style value --scaled physical --payload 0341", "", 0,
         R"({"mode":3,"temp":22.5})" "\n", {}},
        {"encode" + route + " --plain --scaled physical", R"({"mode":"AUTO","temp":22.5})", 0, "0341\n", {}},
        {"decode" + route + " --plain --payload 034107", "", 0, plain, {"someip-json: warning: ", "(1 byte at byte 2)"}},
        {"decode" + route + " --plain --strict --payload 034107", "", 1, "", {"someip-json: trailing_bytes: "}},
        {"decode --plain --stream -" + formats, "4660 32769 2 0341\n4660 32769 2 034107\n", 0,
         std::string(plain) + plain, {"someip-json: line 2: warning: ", "0 failed; warnings: 1 (first on line 2)"}},
        {"decode" + route + " --classic --scaled raw --payload 0341", "", 2, "", {"excludes"}},
        {"decode" + route + " --plain --enum-style names --payload 0341", "", 2, "", {"invalid enum style 'names'"}},
        {"encode" + route + " --plain --scaled kelvin", "{}", 2, "", {"invalid scaled style 'kelvin'"}},
        {"capture x.pcap" + formats + " --classic --scaled raw", "", 2, "", {"excludes"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        std::string out, err;
        EXPECT_EQ(runTool(c.args, c.input, out, err), c.status);
        EXPECT_EQ(out, c.out);
        EXPECT_EQ(err.empty(), c.err.empty()) << err;
        for (const std::string& part : c.err) {
            EXPECT_NE(err.find(part), std::string::npos) << part << " in: " << err;
        }
    }
    std::remove(file.c_str());
}

// A broken file in a format tree is reported and left out, the good files serve; --strict makes it
// fatal. The classic API loads every file that is JSON, so only the others are reported there.
TEST_F(Tool, PartialFormatTreesAndTheirListing)
{
    const std::string dir = ::testing::TempDir() + "someip_tool_tree_" + std::to_string(getpid());
    ASSERT_EQ(system(("rm -rf " + dir + " && mkdir -p " + dir).c_str()), 0);
    std::ofstream(dir + "/climate.json") << kVersionedFormats;
    std::ofstream(dir + "/cut.json") << "{\n  \"Services\": [\n";      // not JSON
    std::ofstream(dir + "/future.json") << R"({"FormatVersion": 9, "Services": []})";  // JSON of a later version
    const std::string route = " --formats " + dir + " --service 4660 --method 32769 --type 2";
    const std::string cut = "broken format file " + dir + "/cut.json: line 3, column 1: ";
    const std::string future = "broken format file " + dir + "/future.json: ";
    const struct {
        std::string args;
        std::string input;
        int status;
        std::vector<std::string> out;  // each a part of standard output
        std::vector<std::string> err;  // each a part of standard error
        std::string notErr;            // must not be on standard error
    } cases[] = {
        {"decode" + route + " --payload 0341", "", 0, {R"({"mode":"AUTO","temp":65})"}, {cut, future, "(left out)"}, ""},
        {"decode" + route + " --strict --payload 0341", "", 1, {}, {cut, "2 broken format files in '"}, ""},
        {"decode" + route + " --classic --payload 0341", "", 0, {"\"ParamName\""}, {cut}, "future.json"},
        {"decode --stream - --formats " + dir, "4660 32769 2 0341\n", 0, {}, {"1 succeeded, 0 failed (2 broken format files left out)"}, ""},
        {"formats " + dir, "", 1,
         {"/climate.json\n  service 0x1234 (4660) Climate, major version 1\n    event 0x8001 (32769) Cabin: notification 0x02\n",
          dir + "/cut.json: broken: line 3", "1 file, 2 services, 2 broken\n"}, {}, "broken format file"},
        {"formats " + dir + " --json --allow-failures", "", 0,
         {R"("id":4660,"id_hex":"0x1234","name":"Climate","major_version":2,"entries":[{"kind":"event","id":32769,)"
          R"("id_hex":"0x8001","name":"CabinV2","message_types":[{"name":"notification","type":2,"id":32769,"id_hex":"0x8001"}]}]})", "cut.json\",\"message\":"}, {}, ""},
        {"formats " + dir + "/absent", "", 2, {}, {"cannot read format descriptions: "}, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        std::string out, err;
        EXPECT_EQ(runTool(c.args, c.input, out, err), c.status) << err;
        for (const std::string& part : c.out) {
            EXPECT_NE(out.find(part), std::string::npos) << part << " in: " << out;
        }
        for (const std::string& part : c.err) {
            EXPECT_NE(err.find(part), std::string::npos) << part << " in: " << err;
        }
        EXPECT_TRUE(c.notErr.empty() || err.find(c.notErr) == std::string::npos) << err;
    }
    ASSERT_EQ(system(("rm -rf " + dir).c_str()), 0);
}

// Capture lines: every message with its header, named by the format its interface version finds, its
// payload in the chosen style with warnings beside it, or its error; selection; damaged and absent captures.
TEST_F(Tool, CaptureToJsonLines)
{
    const std::string base = ::testing::TempDir() + "someip_tool_capture_" + std::to_string(getpid());
    const std::string pcap = pcapOf({{1, "\x03\x41\x07"}, {2, "\x05"}, {7, "\x05"}, {1, "\x03\x41", 32770}});
    std::ofstream(base + ".json") << kVersionedFormats;
    std::ofstream(base + ".pcap", std::ios::binary) << pcap;
    std::ofstream(base + "_cut.pcap", std::ios::binary) << pcap.substr(0, pcap.size() - 1);
    const std::string formats = " --formats " + base + ".json", capture = "capture " + base + ".pcap" + formats;
    const char* const unknown = R"("error":{"code":"unknown_message","offset":0,"message":"no format for service 4660 (0x1234), )";
    const char* const v2 = R"("payload":{"mode":5},"service_name":"Climate","method_name":"CabinV2"})";
    const struct {
        std::string args;
        int status;
        std::vector<std::string> lines;  // a part of each line of standard output
        std::string err;                 // a part of standard error
    } cases[] = {
        // Lines that failed (unknown messages included) make the status 1.
        {capture, 1,
         {R"({"frame":1,"time":"2023-11-14T22:13:20.000000Z","src":"10.0.0.1:30490","dst":"10.0.0.2:30490",)"
          R"("transport":"udp","service":4660,"method":32769,"length":11,"client":0,"session":1,"protocol_version":1,)"
          R"("interface_version":1,"message_type":2,"return_code":0,"payload":{"mode":"AUTO","temp":65},)"
          R"("warnings":[{"offset":2,"bytes":1,"message":")",
          v2, R"("interface_version":7,"message_type":2,"return_code":0,"error":{"code":"unknown_message",)",
          R"("method":32770,)"},
         "4 SOME/IP messages, 4 lines, 2 decoded, 2 failed"},
        {capture + " --quiet --enum-style value --scaled both", 1,
         {R"("payload":{"mode":3,"temp":{"raw":65,"value":22.5,"unit":"degC"}},"warnings":[)", v2, unknown, unknown}, ""},
        // The names of a message whose payload failed.
        {capture + " --strict", 1, {R"("raw":"034107","service_name":"Climate","method_name":"Cabin"})", v2, unknown, unknown},
         "1 decoded, 3 failed"},
        {capture + " --method 32769 --limit 2", 0, {R"("session":1,)", R"("session":2,)"}, "2 lines"},
        {capture + " --classic --limit 1", 0, {R"("payload":[{"Enumerators":[{"Name":"AUTO","Value":3}],"ParamName":"mode",)"}, ""},
        {"capture " + base + ".pcap --formats " SOMEIP_EXAMPLES_DIR "/media --allow-failures", 0,
         {unknown, unknown, unknown, unknown},
         "unknown service 0x1234 method 0x8002"},
        {"capture " + base + "_cut.pcap" + formats, 1, {R"({"frame":1,)", v2, unknown}, "_cut.pcap: "},
        {"capture " + base + "_absent.pcap" + formats, 2, {}, "_absent.pcap"},
        {capture + " --filter 'udp port 30490' --count 2", 0, {R"("session":1,)", R"("session":2,)"}, "2 frames"},
        {capture + " --filter 'udp port 9'", 0, {}, "0 frames"},
        {capture + " --filter 'udp port'", 2, {}, "filter 'udp port': "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        std::string out, err;
        EXPECT_EQ(runTool(c.args, "", out, err), c.status) << err;
        const std::vector<std::string> lines = splitLines(out);
        ASSERT_EQ(lines.size(), c.lines.size()) << out;
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_NE(lines[i].find(c.lines[i]), std::string::npos) << c.lines[i] << " in: " << lines[i];
        }
        EXPECT_NE(err.find(c.err), std::string::npos) << err;
    }
    for (const char* suffix : {".json", ".pcap", "_cut.pcap"}) {
        std::remove((base + suffix).c_str());
    }
}

namespace {

// The summary without its timing ("in 0.01 s (400 lines/s)"), which differs from run to run.
std::string untimed(const std::string& err)
{
    return std::regex_replace(err, std::regex(" in [0-9.]+ s \\([0-9]+ lines/s\\)"), "");
}

} // namespace

// Several jobs write what one job writes, byte for byte, in capture order: across batches, with --limit,
// over two files, up to the damage in a cut capture.
TEST_F(Tool, CaptureJobsThreadsWriteWhatOneJobWrites)
{
    const std::string base = ::testing::TempDir() + "someip_tool_jobs_" + std::to_string(getpid());
    std::vector<Capture> messages;
    for (int i = 0; i < 3000; ++i) {  // decoded, decoded with warnings, unknown version, unknown method
        const Capture kinds[] = {{2, "\x05"}, {1, "\x03\x41\x07"}, {7, "\x05"}, {1, "\x03\x41", 32770}};
        messages.push_back(kinds[i * 7 % 4]);
    }
    const std::string pcap = pcapOf(messages);
    std::ofstream(base + ".json") << kVersionedFormats;
    std::ofstream(base + ".pcap", std::ios::binary) << pcap;
    std::ofstream(base + "_cut.pcap", std::ios::binary) << pcap.substr(0, pcap.size() * 2 / 3);
    const std::string capture = "capture --formats " + base + ".json --quiet ";
    for (const std::string& args : {base + ".pcap", base + ".pcap --limit 1234", base + ".pcap " + base + "_cut.pcap",
                                    base + "_cut.pcap --service 0x1234 --method 0x8001"}) {
        SCOPED_TRACE(args);
        std::string one, one_err, many, many_err;
        const int status = runTool(capture + args + " --jobs 1", "", one, one_err);
        EXPECT_EQ(runTool(capture + args + " --jobs 3", "", many, many_err), status);
        EXPECT_GT(one.size(), 100000u);
        EXPECT_TRUE(one == many) << "the outputs differ";
        EXPECT_EQ(untimed(many_err), untimed(one_err));
    }
    for (const char* suffix : {".json", ".pcap", "_cut.pcap"}) {
        std::remove((base + suffix).c_str());
    }
}

namespace {

// SOME/IP notifications over UDP to a port of the loopback interface that a socket of ours holds.
class LoopbackSender {
public:
    LoopbackSender()
    {
        fd_ = socket(AF_INET, SOCK_DGRAM, 0);
        to_.sin_family = AF_INET;
        to_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(to_);
        bind(fd_, reinterpret_cast<const sockaddr*>(&to_), sizeof(to_));
        getsockname(fd_, reinterpret_cast<sockaddr*>(&to_), &size);
    }
    ~LoopbackSender() { close(fd_); }
    uint16_t port() const { return ntohs(to_.sin_port); }
    // Event 0x8001 of service 0x1234, interface version 1, payload 03 41: {"mode":"AUTO","temp":65}.
    void send(uint16_t session)
    {
        const uint8_t m[] = {0x12, 0x34, 0x80, 0x01, 0, 0, 0, 10, 0, 0, static_cast<uint8_t>(session >> 8),
                             static_cast<uint8_t>(session), 1, 1, 2, 0, 0x03, 0x41};
        sendto(fd_, m, sizeof(m), 0, reinterpret_cast<const sockaddr*>(&to_), sizeof(to_));
    }
    // The first of several SOME/IP-TP segments of that event (16 bytes at offset 0, more to come).
    void sendFirstSegment(uint16_t session)
    {
        uint8_t m[8 + 8 + 4 + 16] = {0x12, 0x34, 0x80, 0x01, 0, 0, 0, 28, 0, 0, static_cast<uint8_t>(session >> 8),
                                     static_cast<uint8_t>(session), 1, 1, 0x22, 0, 0, 0, 0, 0x01};
        sendto(fd_, m, sizeof(m), 0, reinterpret_cast<const sockaddr*>(&to_), sizeof(to_));
    }

private:
    int fd_ = -1;
    sockaddr_in to_{};
};

// The tool started with `args`, standard output and error into files, as a process of its own.
pid_t startTool(const std::string& args, const std::string& out, const std::string& err)
{
    const std::string command = "exec " SOMEIP_TOOL_PATH " " + args + " >" + out + " 2>" + err;
    const pid_t pid = fork();
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    return pid;
}

std::string fileText(const std::string& path)
{
    std::string text;
    std::ifstream in(path);
    std::getline(in, text, '\0');
    return text;
}

// Sends a notification every 20 ms until the tool has exited or `ready` says so (at most 10 s);
// gives the tool's exit status once it has exited (-1 if it did not exit normally).
int feedTool(pid_t pid, LoopbackSender& sender, const std::function<bool()>& ready, bool wait_exit)
{
    int raw = 0;
    for (uint16_t session = 1; session <= 500; ++session) {
        if (waitpid(pid, &raw, WNOHANG) == pid) {
            return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        }
        if (ready && ready()) {
            break;
        }
        sender.send(session);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (!wait_exit) {
        return -2;
    }
    waitpid(pid, &raw, 0);
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

} // namespace

// A live capture on the loopback interface: traffic the test sends itself, lines as they come, ended by
// --count, by SIGINT (what reassembly held and the summary still written, status 130) and by --duration.
TEST_F(Tool, CaptureLiveInterface)
{
    const std::string base = ::testing::TempDir() + "someip_tool_live_" + std::to_string(getpid());
    std::ofstream(base + ".json") << kVersionedFormats;
    LoopbackSender sender;
    const std::string capture = "capture --interface lo --formats " + base + ".json --filter 'udp port " +
                                std::to_string(sender.port()) + "' ";
    const std::string out = base + ".out", err = base + ".err";
    const char* const decoded = R"("src":"127.0.0.1:)";

    int status = feedTool(startTool(capture + "--count 3 --duration 20", out, err), sender, nullptr, true);
    const std::string opened = fileText(err);
    if (status == 2 && (opened.find("ermission") != std::string::npos || opened.find("not permitted") != std::string::npos)) {
        GTEST_SKIP() << "no permission to capture on lo: " << opened;
    }
    ASSERT_EQ(status, 0) << opened;
    std::vector<std::string> lines = splitLines(fileText(out));
    ASSERT_EQ(lines.size(), 3u) << fileText(out);
    for (const std::string& line : lines) {
        EXPECT_NE(line.find(decoded), std::string::npos) << line;
        EXPECT_NE(line.find(R"("payload":{"mode":"AUTO","temp":65},"service_name":"Climate")"), std::string::npos) << line;
    }
    EXPECT_NE(opened.find("capture: 3 frames, 3 SOME/IP messages, 3 lines, 3 decoded"), std::string::npos) << opened;

    // Lines are written as they come: the first one is there while the capture goes on.
    std::remove(out.c_str());
    const pid_t pid = startTool(capture + "--duration 20", out, err);
    EXPECT_EQ(feedTool(pid, sender, [&] { return fileText(out).find('\n') != std::string::npos; }, false), -2);
    // A signal is how a live capture usually ends: what reassembly holds is reported, as after --duration.
    sender.sendFirstSegment(998);
    sender.sendFirstSegment(999);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(pid, SIGINT);
    int raw = 0;
    waitpid(pid, &raw, 0);
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 130);
    EXPECT_NE(fileText(out).find(decoded), std::string::npos);
    for (const char* session : {R"("session":998,)", R"("session":999,)"}) {
        const std::string text = fileText(out), line = text.substr(std::min(text.find(session), text.size()));
        EXPECT_NE(line.find(R"("code":"tp_missing_segments")"), std::string::npos) << session << "\n" << text;
    }
    EXPECT_NE(fileText(err).find(" decoded, 2 failed"), std::string::npos) << fileText(err);
    EXPECT_NE(fileText(err).find("; interrupted (SIGINT)"), std::string::npos) << fileText(err);

    const auto started = std::chrono::steady_clock::now();
    LoopbackSender quiet;  // nothing is sent to its port
    std::string none, summary;
    status = runTool("capture --interface lo --formats " + base + ".json --duration 0.3 --filter 'udp port " +
                         std::to_string(quiet.port()) + "'", "", none, summary);
    EXPECT_EQ(status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    EXPECT_EQ(none, "");
    EXPECT_NE(summary.find("capture: 0 frames"), std::string::npos) << summary;
    for (const char* suffix : {".json", ".out", ".err"}) {
        std::remove((base + suffix).c_str());
    }
}

namespace {

// Whether `line` is one whole JSON value: brackets balance outside strings and close at its end.
bool wholeJson(const std::string& line)
{
    int depth = 0;
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quoted) {
            i += c == '\\' ? 1 : 0;
            quoted = c != '"';
        } else if (c == '"') {
            quoted = true;
        } else if (c == '{' || c == '[') {
            ++depth;
        } else if ((c == '}' || c == ']') && --depth < 0) {
            return false;
        }
    }
    return !quoted && depth == 0 && !line.empty() && (line.back() == '}' || line.back() == ']');
}

// The tool with standard input and output on pipes of the test's (`in`, `out`), standard error into `err`.
pid_t startPiped(const std::string& args, const std::string& err, int& in, int& out)
{
    const std::string command = "exec " SOMEIP_TOOL_PATH " " + args + " 2>" + err;
    int toTool[2], fromTool[2];
    if (pipe2(toTool, O_CLOEXEC) != 0 || pipe2(fromTool, O_CLOEXEC) != 0) {
        return -1;
    }
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(toTool[0], STDIN_FILENO);
        dup2(fromTool[1], STDOUT_FILENO);
        signal(SIGPIPE, SIG_DFL);
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(toTool[0]);
    close(fromTool[1]);
    in = toTool[1];
    out = fromTool[0];
    return pid;
}

// Adds what `fd` has to `text`, waiting up to `ms` for it; false once the output has ended.
bool readSome(int fd, std::string& text, int ms)
{
    char block[1 << 16];
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, ms) <= 0) {
        return true;
    }
    const ssize_t got = read(fd, block, sizeof(block));
    text.append(block, static_cast<size_t>(std::max<ssize_t>(got, 0)));
    return got > 0;
}

// Reads `fd` into `text` until it holds `lines` lines or the output ends; false after 60 s.
bool readLines(int fd, std::string& text, size_t lines)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) < lines && readSome(fd, text, 100)) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
    }
    return true;
}

// Reads what the process writes to `fd` until it sits waiting for input (asleep and writing nothing for
// a tenth of a second); false after 60 s.
bool waitsIdle(pid_t pid, int fd, std::string& text)
{
    for (int i = 0, asleep = 0; i < 3000; ++i) {
        const size_t before = text.size();
        readSome(fd, text, 20);
        const std::string stat = fileText("/proc/" + std::to_string(pid) + "/stat");
        const size_t name_end = stat.rfind(") ");
        const bool sleeping = name_end != std::string::npos && stat.compare(name_end + 2, 1, "S") == 0;
        asleep = sleeping && text.size() == before ? asleep + 1 : 0;
        if (asleep == 5) {
            return true;
        }
    }
    return false;
}

// The wait status of `pid` once it has ended; killed (and a failure) when that takes a minute.
int waitEnded(pid_t pid)
{
    int raw = 0, waited = 0;
    while (waitpid(pid, &raw, WNOHANG) == 0 && ++waited < 6000) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (waited == 6000) {
        ADD_FAILURE() << "the tool did not end";
        kill(pid, SIGKILL);
        waitpid(pid, &raw, 0);
    }
    return raw;
}

} // namespace

// SIGINT, SIGTERM and SIGPIPE end a capture or a stream decode through pipes cleanly: busy with an
// endless input, or waiting for input that does not come. The output ends on a whole line, as many as the
// summary counts, the summary says why it stopped, and the status is the shell's for the signal.
TEST_F(Tool, InterruptsEndCleanlyThreads)
{
    const std::string base = ::testing::TempDir() + "someip_tool_signal_" + std::to_string(getpid());
    std::ofstream(base + ".json") << kVersionedFormats;
    const std::string pcap = pcapOf({{1, "\x03\x41"}}), head = pcap.substr(0, 24), frame = pcap.substr(24);
    const std::string capture = "capture - --formats " + base + ".json ";
    const std::string stream = "decode --stream - " + examples();
    const std::string message = std::string("0x1234 2 response ") + kPayload + "\n";
    const struct {
        std::string args;
        std::string head, record;  // fed once, then again and again
        size_t records;            // 0: without end; else that many, then the input stays open and idle
        int signal;                // SIGPIPE: the test closes the output after three lines
        int status;
    } cases[] = {
        {capture + "--jobs 1", head, frame, 0, SIGINT, 130},
        {capture + "--jobs 3", head, frame, 0, SIGTERM, 143},
        {capture + "--jobs 3", head, frame, 2000, SIGINT, 130},
        {capture + "--jobs 3", head, frame, 0, SIGPIPE, 141},
        {stream, "", message, 0, SIGTERM, 143},
        {stream, "", message, 2000, SIGINT, 130},
        {stream, "", message, 0, SIGPIPE, 141},
    };
    const auto ignored = signal(SIGPIPE, SIG_IGN);  // the feeder's writes fail once the tool has gone
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args + (c.records != 0 ? " (input idle)" : "") + " signal " + std::to_string(c.signal));
        int in = -1, out = -1;
        const pid_t pid = startPiped(c.args, base + ".err", in, out);
        ASSERT_GT(pid, 0);
        std::atomic<bool> done{false};
        EXPECT_EQ(write(in, c.head.data(), c.head.size()), static_cast<ssize_t>(c.head.size()));
        std::thread feeder([&] {
            std::string chunk;
            for (size_t n = 0; n < (c.records != 0 ? c.records : 64); ++n) {
                chunk += c.record;
            }
            // Fed until the tool has gone (the write fails) or, idle, once; the input stays open till then.
            bool fed = true;
            do {
                for (size_t at = 0; fed && at < chunk.size();) {
                    const ssize_t put = write(in, chunk.data() + at, chunk.size() - at);
                    fed = put > 0;
                    at += fed ? static_cast<size_t>(put) : 0;
                }
            } while (fed && c.records == 0 && !done);
            while (!done) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            close(in);
        });
        std::string text;
        if (c.records != 0) {
            EXPECT_TRUE(waitsIdle(pid, out, text));
        } else {
            EXPECT_TRUE(readLines(out, text, 3));
        }
        if (c.signal == SIGPIPE) {
            close(out);
        } else {
            kill(pid, c.signal);
            EXPECT_TRUE(readLines(out, text, SIZE_MAX)) << "the output did not end";
            close(out);
        }
        const int raw = waitEnded(pid);
        done = true;
        feeder.join();
        EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == c.status) << raw;
        const std::string err = fileText(base + ".err");
        std::smatch counted;
        ASSERT_TRUE(std::regex_search(err, counted, std::regex("someip-json: [a-z]+: [^\n]*?([0-9]+) lines?,"))) << err;
        for (const std::string& line : splitLines(err)) {
            EXPECT_TRUE(line.rfind("someip-json: ", 0) != 0 || line.rfind(counted[0], 0) == 0) << line;
        }
        const std::string why = c.signal == SIGPIPE ? "; stopped: standard output was closed"
                                                    : c.signal == SIGINT ? "; interrupted (SIGINT)" : "; interrupted (SIGTERM)";
        EXPECT_NE(err.find(why), std::string::npos) << err;
        if (c.signal == SIGPIPE) {
            continue;
        }
        const std::vector<std::string> lines = splitLines(text);
        EXPECT_TRUE(text.empty() || text.back() == '\n');
        EXPECT_EQ(std::to_string(lines.size()), counted[1].str()) << err;
        if (c.records != 0) {
            EXPECT_EQ(lines.size(), c.records) << "every line made before the wait is written";
        }
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(), wholeJson), static_cast<long>(lines.size()));
    }
    signal(SIGPIPE, ignored);

    // A named pipe given by path that no writer opens: the wait for one ends on an interrupt as well.
    const std::string fifo = base + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int in = -1, out = -1;
    const pid_t pid = startPiped("decode --stream " + fifo + " " + examples(), base + ".err", in, out);
    ASSERT_GT(pid, 0);
    std::string text;
    EXPECT_TRUE(waitsIdle(pid, out, text));
    kill(pid, SIGINT);
    const int raw = waitEnded(pid);
    close(in);
    close(out);
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 130) << raw;
    EXPECT_EQ(fileText(base + ".err"), "someip-json: stream: 0 lines, 0 succeeded, 0 failed; interrupted (SIGINT)\n");
    for (const char* suffix : {".json", ".err", ".fifo"}) {
        std::remove((base + suffix).c_str());
    }
}
