// Importer: format description files out of the interface descriptions engineers receive, FIBEX 4
// and AUTOSAR ARXML.
//
//   description files -> XML documents -> reader (FIBEX or ARXML) -> version-2 format document + report
//
// Usage:
//   ZQSomeIP::ZQSomeIPImportResult r = ZQSomeIP::importDescriptions({"body.arxml", "deploy.arxml"});
//   if (!r.ok) { /* r.error names the file, line and element */ }
//   write r.formatText (one document), or r.perService (one document each), and r.report.toJson()
//
// The documents are deterministic (the same input gives the same bytes), state all nine attribute
// keys on every service, and keep the names of services, methods, events and fields. What the format
// cannot express is left out and reported, never approximated silently. The importer does not load
// the documents itself: they are for the format set (ZQSomeIPFormatSet) to read.
#ifndef ZQ_SOMEIP_IMPORT_H
#define ZQ_SOMEIP_IMPORT_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#define ZQ_IMPORT_API __attribute__((visibility("default")))

namespace ZQSomeIP {

enum class ZQSomeIPImportDialect { Auto, Fibex, Arxml };

// One element that was left out or changed, unresolved reference or duplicate, and where it stands.
struct ZQSomeIPImportIssue {
    std::string file;
    size_t line = 0;     // 1-based; 0 when unknown
    std::string path;    // short-name path of the element ("/Body/Seat/Adjust")
    std::string reason;
};

struct ZQ_IMPORT_API ZQSomeIPImportReport {
    size_t services = 0, methods = 0, events = 0, fields = 0, types = 0;
    // Read and checked but not written: format files have no place for service discovery's groups.
    size_t eventGroups = 0;
    std::vector<ZQSomeIPImportIssue> skipped;       // left out: the format cannot say it, or it is broken
    std::vector<ZQSomeIPImportIssue> approximated;  // written, but not exactly as described
    std::vector<ZQSomeIPImportIssue> unresolved;    // references that lead nowhere
    std::vector<ZQSomeIPImportIssue> duplicates;    // a later definition replaced an earlier one

    bool leftAnythingOut() const { return !skipped.empty() || !approximated.empty() || !unresolved.empty(); }
    // {"services":N,...,"skipped":[{"file","line","path","reason"}...],...}
    std::string toJson() const;
    // "12 services, 40 methods, ...; 2 skipped, 0 approximated, 1 unresolved, 0 duplicates"
    std::string summary() const;
};

struct ZQSomeIPImportFile {
    std::string name;  // a file name for the document ("0x1234_Seat.json")
    std::string text;
};

struct ZQSomeIPImportResult {
    bool ok = false;
    std::string error;  // when !ok: an input that could not be read at all (not XML, wrong root, ...)
    std::string formatText;                     // every service in one version-2 document
    std::vector<ZQSomeIPImportFile> perService;  // with options.perService: one document per service
    ZQSomeIPImportReport report;
};

// An input in memory (standard input, a test): `name` stands for the file in messages.
struct ZQSomeIPImportSource {
    std::string name;
    std::string text;
};

struct ZQSomeIPImportOptions {
    ZQSomeIPImportDialect dialect = ZQSomeIPImportDialect::Auto;
    bool perService = false;  // also write one document per service (each with the types it uses)
    // With perService: each service's document handed here as soon as it is written, instead of kept in
    // result.perService, and no formatText put together. A big import's documents together take several
    // times its input; handed on one at a time, only one of them is held.
    std::function<void(ZQSomeIPImportFile&&)> serviceDocument;
};

ZQ_IMPORT_API ZQSomeIPImportResult importDescriptions(const std::vector<std::string>& paths,
                                                      const ZQSomeIPImportOptions& options = {});
ZQ_IMPORT_API ZQSomeIPImportResult importDescriptions(std::vector<ZQSomeIPImportSource> sources,
                                                      const ZQSomeIPImportOptions& options = {});

}  // namespace ZQSomeIP

#endif  // ZQ_SOMEIP_IMPORT_H
