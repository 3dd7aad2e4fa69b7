// What every importer test does with a description: import it, compare the documents with the
// expected format file beside it, load them as a format set, and run payloads written by hand from
// the description's wire rules through them both ways.
//   SOMEIP_IMPORT_UPDATE=1 rewrites the expected files from what the importer gives (review the diff).
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ZQSomeIPImport.h"
#include "compiled/ZQSomeIPFormatSet.h"
#include "conv_test_support.h"

namespace importtest {

inline std::string sample(const std::string& relative) { return std::string(SOMEIP_IMPORT_SAMPLES) + "/" + relative; }

inline std::string readText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// A message of the imported description: its payload and its plain JSON.
struct Payload {
    int service, method, type;
    std::string hex;
    std::string json;
};

struct Case {
    std::vector<std::string> inputs;  // relative to tests/import/
    std::string expected;             // the format file expected of them, relative to tests/import/
    std::vector<Payload> payloads;
    std::vector<std::string> reported;  // texts each of which some report entry's reason must contain
};

// Reasons of every report entry, one per line, for messages.
inline std::string reasons(const ZQSomeIP::ZQSomeIPImportReport& r)
{
    std::string out;
    for (const auto* list : {&r.skipped, &r.approximated, &r.unresolved, &r.duplicates}) {
        for (const auto& i : *list) {
            out += i.file + ":" + std::to_string(i.line) + " " + i.path + ": " + i.reason + "\n";
        }
    }
    return out;
}

inline void check(const Case& c)
{
    SCOPED_TRACE(c.expected);
    std::vector<std::string> paths;
    for (const std::string& in : c.inputs) {
        paths.push_back(sample(in));
    }
    ZQSomeIP::ZQSomeIPImportOptions options;
    options.perService = true;
    const ZQSomeIP::ZQSomeIPImportResult r = ZQSomeIP::importDescriptions(paths, options);
    ASSERT_TRUE(r.ok) << r.error;
    const std::string all = reasons(r.report);
    for (const std::string& text : c.reported) {
        EXPECT_NE(all.find(text), std::string::npos) << "not reported: " << text << "\nreport:\n" << all;
    }
    if (c.reported.empty()) {
        EXPECT_EQ(all, "");
    }
    if (getenv("SOMEIP_IMPORT_UPDATE") != nullptr) {
        std::ofstream(sample(c.expected), std::ios::binary) << r.formatText;
    }
    EXPECT_EQ(r.formatText, readText(sample(c.expected)));

    // Documents handed on one by one as they are written are the ones the result would hold.
    std::vector<ZQSomeIP::ZQSomeIPImportFile> handed;
    options.serviceDocument = [&handed](ZQSomeIP::ZQSomeIPImportFile&& f) { handed.push_back(std::move(f)); };
    ZQSomeIP::importDescriptions(paths, options);
    ASSERT_EQ(handed.size(), r.perService.size());
    for (size_t i = 0; i < handed.size(); ++i) {
        EXPECT_EQ(handed[i].name, r.perService[i].name);
        EXPECT_EQ(handed[i].text, r.perService[i].text) << handed[i].name;
    }

    // The documents load, as one file and one per service, and every method compiles.
    convtest::TempDir dir;
    ZQSomeIP::ZQSomeIPPlainStatus status;
    const auto set = ZQSomeIP::ZQSomeIPFormatSet::load(dir.write("all.json", r.formatText), status);
    ASSERT_TRUE(set) << status.toJson();
    for (const ZQSomeIP::ZQSomeIPImportFile& f : r.perService) {
        convtest::TempDir one;
        EXPECT_TRUE(ZQSomeIP::ZQSomeIPFormatSet::load(one.write(f.name, f.text), status)) << f.name << status.toJson();
    }
    for (const Payload& p : c.payloads) {
        SCOPED_TRACE(p.hex);
        const std::vector<uint8_t> bytes = convtest::bytes(p.hex);
        std::string json;
        const auto decoded = ZQSomeIP::plainDecode(*set, p.service, p.method, p.type, bytes.data(), bytes.size(), json);
        EXPECT_EQ(decoded.ok() ? json : decoded.toJson(), p.json);
        std::vector<uint8_t> encoded;
        const auto e = ZQSomeIP::plainEncode(*set, p.service, p.method, p.type, p.json, encoded);
        EXPECT_EQ(e.ok() ? convtest::hex(encoded) : e.toJson(), convtest::hex(bytes));
    }
}

}  // namespace importtest
