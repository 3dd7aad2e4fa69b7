// someip-json: converts SOME/IP payloads between hex text and JSON on the command line.
//
//   someip-json format --formats PATH --service ID --method ID --type TYPE
//   someip-json formats PATH [--json]
//   someip-json decode --formats PATH --service ID --method ID --type TYPE [--payload HEX] [--classic] [--pretty]
//   someip-json encode --formats PATH --service ID --method ID --type TYPE [--json FILE] [--classic]
//   someip-json decode|encode --formats PATH --stream FILE [--classic]
//   someip-json capture FILE... --formats PATH [--port N] [--service ID] [--method ID] [--type TYPE] [--limit N]
//   someip-json import FILE... -o OUT [--fibex|--arxml] [--report FILE] [--strict]
//   someip-json report FILE... --formats PATH -o OUT.html [--port N] [--signal S.M.PATH] [--max-signals N]
//
// Plain decoding (the default of decode, its stream, capture) also takes [--enum-style name|value|both]
// [--scaled raw|physical|both]; plain encoding takes [--scaled raw|physical|both]. Every command that
// reads formats takes --strict (a broken format file is fatal).
//
// Results go to standard output; every error is one line on standard error. Exit status, for every
// command: 0 everything converted, 1 some messages or files failed (0 with --allow-failures), 2 bad
// command line or unreadable input; capture, import, report and the stream modes stop cleanly on SIGINT
// (130), SIGTERM (143) and SIGPIPE (141).
//
// This file only wires the subcommands to the command line; each lives behind the Subcommand interface.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "ZQSomeIPVersion.h"
#include "capture_command.h"
#include "convert_commands.h"
#include "formats_command.h"
#include "import_command.h"
#include "interrupts.h"
#include "report_command.h"
#include "someip/zq_someip_log.h"
#include "tool_support.h"

namespace {

using namespace someip_json;

// Library lines go to standard error so that standard output carries only the result. The callback
// receives everything that passes the variable's gate; the per-level thresholds of the library's own
// printing are applied here.
void logToStderr(int32_t level, const char* tag, const char* message)
{
    const char* value = getenv("SOMEIPSER_LOG_LEVEL");
    const long threshold = value ? strtol(value, nullptr, 10) : 0;
    static const std::map<int32_t, long> minimum = {{1, 5}, {2, 4}, {3, 3}, {4, 2}};
    const auto needed = minimum.find(level);
    if (needed != minimum.end() && threshold >= needed->second) {
        fprintf(stderr, "%s %s\n", tag, message);
    }
}

void printError(const std::string& message)
{
    std::cerr << "someip-json: " << message << "\n";
}

// Runs the command given; what escapes it becomes one error line and an exit status. Status 1 (some
// messages or files failed) becomes 0 when the command was given --allow-failures.
int runParsed(const std::vector<std::unique_ptr<Subcommand>>& commands, const std::vector<CLI::App*>& parsers)
{
    int status = kExitOk;
    bool allowFailures = false;
    try {
        for (size_t i = 0; i < commands.size(); ++i) {
            if (parsers[i]->parsed()) {
                allowFailures = parsers[i]->get_option("--allow-failures")->count() > 0;
                status = commands[i]->run();
            }
        }
    } catch (const ToolError& e) {
        printError(e.message + (e.usage ? " (see --help)" : ""));
        status = e.status;
    } catch (const std::exception& e) {
        // The library lets errors of its JSON and text conversion dependencies through.
        std::string what = e.what();
        for (char& c : what) {
            if (c == '\n' || c == '\r') {
                c = ' ';
            }
        }
        printError("conversion failed: " + what);
        status = kExitFailed;
    }
    return status == kExitFailed && allowFailures ? kExitOk : status;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Converts SOME/IP payloads between hex text and JSON, as format description files describe them.",
                 "someip-json");
    app.set_version_flag("--version", "someip-json " SOMEIP_PARSER_VAQ_VERSION_STRING);
    app.require_subcommand(1);
    // An option given twice takes its last value, as scripts that append to a command line expect.
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);

    std::vector<std::unique_ptr<Subcommand>> commands;
    commands.push_back(makeFormatCommand());
    commands.push_back(makeFormatsCommand());
    commands.push_back(makeDecodeCommand());
    commands.push_back(makeEncodeCommand());
    commands.push_back(makeCaptureCommand());
    commands.push_back(makeImportCommand());
    commands.push_back(makeReportCommand());

    std::vector<CLI::App*> parsers;
    for (const auto& command : commands) {
        CLI::App* sub = app.add_subcommand(command->name(), command->summary());
        command->define(*sub);
        sub->add_flag("--allow-failures", "Exit 0 even when messages or files failed (status 1 otherwise), for "
                                          "exploratory runs");
        parsers.push_back(sub);
    }
    // Set after the subcommands are added, which would otherwise inherit it.
    app.footer("Run someip-json COMMAND --help for the options of a command.");

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);  // --help or --version
    } catch (const CLI::ParseError& e) {
        // CLI11 reports a mistyped command as a missing one; name it instead.
        std::string message = e.what();
        if (app.get_subcommands().empty() && argc > 1 && argv[1][0] != '-') {
            message = std::string("unknown command '") + argv[1] + "'";
        }
        printError(message + " (see --help)");
        return kExitUsage;
    }

    zq_someip_set_logfunc_callback(logToStderr);
    // A command stopped by a signal ends with the signal's status, whatever it found before.
    const int status = exitStatus(runParsed(commands, parsers));
    zq_someip_set_logfunc_callback(nullptr);
    return status;
}
