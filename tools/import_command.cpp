#include "import_command.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "ZQSomeIPImport.h"
#include "compiled/ZQSomeIPFormatSet.h"
#include "interrupts.h"

namespace someip_json {

namespace {

namespace fs = std::filesystem;

// Inputs from this size on get a progress line on a terminal: reading them takes a noticeable moment.
constexpr size_t kLargeInput = 16u << 20;

// A written document loads: what the importer writes is for the format set to read.
void checkLoads(const std::string& path)
{
    ZQSomeIP::ZQSomeIPPlainStatus status;
    if (!ZQSomeIP::ZQSomeIPFormatSet::load(path, status)) {
        fail(kExitFailed, "the imported document '" + path + "' does not load: " + status.message);
    }
}

// Standard input to its end, or up to an interrupt.
std::string readStandardInput()
{
    const auto close = [](FILE* f) { fclose(f); };
    const std::unique_ptr<FILE, decltype(close)> in(interruptibleInput(STDIN_FILENO), close);
    std::string text;
    char block[1 << 16];
    size_t got = 0;
    while (in && (got = fread(block, 1, sizeof block, in.get())) > 0) {
        text.append(block, got);
    }
    return text;
}

class ImportCommand : public Subcommand {
public:
    const char* name() const override { return "import"; }
    const char* summary() const override
    {
        return "Write version-2 format files for FIBEX 4 or AUTOSAR ARXML descriptions";
    }

    void define(CLI::App& app) override
    {
        app.add_option("files", files_, "Description files (FIBEX or ARXML, told by the root element); - for "
                                        "standard input")
            ->required();
        app.add_option("-o,--output", output_, "FILE.json: one document; a directory: one document per service; "
                                               "-: one document on standard output")
            ->required();
        auto* fibex = app.add_flag("--fibex", fibex_, "Read every input as FIBEX");
        app.add_flag("--arxml", arxml_, "Read every input as ARXML")->excludes(fibex);
        app.add_option("--report", report_, "Write the report (counts, and every element skipped, approximated, "
                                             "unresolved or duplicated, with file, line and path) as JSON to FILE");
        app.add_flag("--strict", strict_, "Exit with status 1 when anything was skipped, approximated or unresolved");
        app.add_flag("--quiet", quiet_, "No progress line on standard error");
        app.add_flag("--check", check_, "Load every written document back as a format set (slower; the importer's "
                                         "own tests do this for every rule)");
        app.footer("A summary line goes to standard error. Exit status: 0 success, 1 an input that is no "
                   "description or (--strict) something left out, 2 bad arguments or unreadable files, 130/143 "
                   "interrupted (SIGINT/SIGTERM); --allow-failures turns 1 into 0; see docs/cli.md.");
    }

    int run() override
    {
        catchInterrupts();
        std::vector<ZQSomeIP::ZQSomeIPImportSource> sources;
        size_t bytes = 0;
        for (const std::string& file : files_) {
            std::string text = file == "-" ? readStandardInput() : readFile(file, "description file");
            if (interrupted()) {
                std::cerr << "import: nothing imported" << interruptNote() << "\n";
                return kExitOk;
            }
            bytes += text.size();
            sources.push_back({file == "-" ? "<stdin>" : file, std::move(text)});
        }
        const bool progress = !quiet_ && bytes >= kLargeInput && isatty(STDERR_FILENO);
        if (progress) {
            fprintf(stderr, "import: reading %zu MB in %zu files...", bytes >> 20, sources.size());
            fflush(stderr);
        }
        ZQSomeIP::ZQSomeIPImportOptions options;
        options.dialect = fibex_ ? ZQSomeIP::ZQSomeIPImportDialect::Fibex
                          : arxml_ ? ZQSomeIP::ZQSomeIPImportDialect::Arxml
                                   : ZQSomeIP::ZQSomeIPImportDialect::Auto;
        options.perService = !oneDocument();
        if (options.perService) {
            // Each document written as it comes: held until the end, a big import's would take several
            // times its input.
            options.serviceDocument = [this](ZQSomeIP::ZQSomeIPImportFile&& f) { writeService(f); };
        }
        const ZQSomeIP::ZQSomeIPImportResult result = ZQSomeIP::importDescriptions(std::move(sources), options);
        if (progress) {
            fprintf(stderr, "\n");
        }
        if (!result.ok) {
            fail(kExitFailed, result.error);
        }
        if (interrupted()) {
            // What was written before it stays; nothing more is.
            std::cerr << "import: " << result.report.summary() << interruptNote() << ", nothing written after it\n";
            return kExitOk;
        }
        write(result);
        if (!report_.empty()) {
            writeText(report_, result.report.toJson() + "\n");
        }
        std::cerr << "import: " << result.report.summary() << "\n";
        return strict_ && result.report.leftAnythingOut() ? kExitFailed : kExitOk;
    }

private:
    bool oneDocument() const
    {
        return output_ == "-" || (fs::path(output_).extension() == ".json" && !fs::is_directory(output_));
    }

    void check(const std::string& path) const
    {
        if (check_) {
            checkLoads(path);
        }
    }

    void write(const ZQSomeIP::ZQSomeIPImportResult& result)
    {
        if (output_ == "-") {
            std::cout << result.formatText;
            return;
        }
        if (oneDocument()) {
            writeText(output_, result.formatText);
            check(output_);
            return;
        }
        // No service: the directory is still made, empty.
        makeDirectory();
    }

    void makeDirectory()
    {
        if (madeDirectory_) {
            return;
        }
        std::error_code error;
        fs::create_directories(output_, error);
        if (!fs::is_directory(output_)) {
            fail(kExitUsage, "cannot create the directory '" + output_ + "'");
        }
        madeDirectory_ = true;
    }

    void writeService(const ZQSomeIP::ZQSomeIPImportFile& f)
    {
        if (interrupted()) {
            return;
        }
        makeDirectory();
        const std::string path = (fs::path(output_) / f.name).string();
        writeText(path, f.text);
        check(path);
    }

    std::vector<std::string> files_;
    std::string output_;
    std::string report_;
    bool fibex_ = false;
    bool arxml_ = false;
    bool strict_ = false;
    bool quiet_ = false;
    bool check_ = false;
    bool madeDirectory_ = false;
};

} // namespace

std::unique_ptr<Subcommand> makeImportCommand() { return std::make_unique<ImportCommand>(); }

} // namespace someip_json
