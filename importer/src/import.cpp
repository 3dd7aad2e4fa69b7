// The importer's entry: inputs read and parsed, each given to the reader of its dialect (told by its
// root element unless forced), and the documents and report put together.
#include <fstream>
#include <memory>
#include <sstream>

#include "ZQSomeIPImport.h"
#include "format_builder.h"
#include "readers.h"
#include "xml_input.h"

namespace ZQSomeIP {

namespace {

using import::XmlInput;

bool readFile(const std::string& path, std::string& text, std::string& error)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = path + ": cannot be read";
        return false;
    }
    std::ostringstream s;
    s << in.rdbuf();
    if (in.bad()) {
        error = path + ": cannot be read";
        return false;
    }
    text = s.str();
    return true;
}

}  // namespace

ZQSomeIPImportResult importDescriptions(const std::vector<std::string>& paths, const ZQSomeIPImportOptions& options)
{
    std::vector<ZQSomeIPImportSource> sources;
    for (const std::string& path : paths) {
        ZQSomeIPImportSource s{path, {}};
        ZQSomeIPImportResult failed;
        if (!readFile(path, s.text, failed.error)) {
            return failed;
        }
        sources.push_back(std::move(s));
    }
    return importDescriptions(std::move(sources), options);
}

ZQSomeIPImportResult importDescriptions(std::vector<ZQSomeIPImportSource> sources, const ZQSomeIPImportOptions& options)
{
    const ZQSomeIPImportDialect dialect = options.dialect;
    ZQSomeIPImportResult result;
    if (sources.empty()) {
        result.error = "no description files given";
        return result;
    }
    std::vector<std::unique_ptr<XmlInput>> inputs;
    std::vector<const XmlInput*> fibex, arxml;
    for (ZQSomeIPImportSource& s : sources) {
        std::unique_ptr<XmlInput> in = XmlInput::parse(std::move(s.name), std::move(s.text), result.error);
        if (!in) {
            return result;
        }
        const std::string_view root = import::localName(in->root());
        const bool isFibex = root == "FIBEX", isArxml = root == "AUTOSAR";
        if ((dialect == ZQSomeIPImportDialect::Fibex && !isFibex) || (dialect == ZQSomeIPImportDialect::Arxml && !isArxml) ||
            (!isFibex && !isArxml)) {
            const char* wanted = dialect == ZQSomeIPImportDialect::Fibex   ? "FIBEX"
                                 : dialect == ZQSomeIPImportDialect::Arxml ? "AUTOSAR"
                                                                           : "FIBEX or AUTOSAR";
            result.error = in->name() + ":" + std::to_string(in->line(in->root())) + ": the root element is <" +
                           std::string(in->root().name()) + ">, not " + wanted;
            return result;
        }
        (isFibex ? fibex : arxml).push_back(in.get());
        inputs.push_back(std::move(in));
    }
    import::Report report;
    for (const auto& in : inputs) {
        const size_t bytes = in->notUtf8().bytes;
        if (bytes > 0) {
            report.approximated({in->name(), in->notUtf8().line, ""},
                                bytes == 1 ? std::string("a byte that is not UTF-8 is read as U+FFFD")
                                           : std::to_string(bytes) +
                                                 " bytes that are not UTF-8 (the first on this line) are read as U+FFFD");
        }
    }
    import::FormatBuilder builder(report);
    if (!fibex.empty()) {
        import::readFibex(fibex, builder, report);
    }
    if (!arxml.empty()) {
        import::readArxml(arxml, builder, report);
    }
    // The documents are done with: their memory goes before the output text is put together.
    fibex.clear();
    arxml.clear();
    inputs.clear();
    builder.finish(result, options);
    result.report = std::move(report.data());
    result.ok = true;
    return result;
}

}  // namespace ZQSomeIP
