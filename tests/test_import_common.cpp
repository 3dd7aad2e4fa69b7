// What the importer does whatever the dialect: inputs that are not descriptions at all fail as a whole
// with the file and line named; the report's own form.
#include <gtest/gtest.h>

#include "ZQSomeIPImport.h"

namespace {

using ZQSomeIP::ZQSomeIPImportDialect;
using ZQSomeIP::ZQSomeIPImportSource;

TEST(Import, InputsThatAreNotDescriptionsFailAsAWhole)
{
    const struct {
        const char* what;
        std::string text;
        ZQSomeIPImportDialect dialect;
        const char* error;  // the error begins with it
    } cases[] = {
        {"not XML", "{\"Services\": []}", ZQSomeIPImportDialect::Auto, "in.xml:1: not well-formed XML"},
        {"cut short", "<AUTOSAR>\n<AR-PACKAGES>\n<AR-PACKAGE>", ZQSomeIPImportDialect::Auto, "in.xml:3: not well-formed XML"},
        {"another root", "<?xml version=\"1.0\"?>\n<project/>", ZQSomeIPImportDialect::Auto,
         "in.xml:2: the root element is <project>, not FIBEX or AUTOSAR"},
        {"forced dialect", "<fx:FIBEX xmlns:fx=\"x\"/>", ZQSomeIPImportDialect::Arxml,
         "in.xml:1: the root element is <fx:FIBEX>, not AUTOSAR"},
    };
    for (const auto& c : cases) {
        ZQSomeIP::ZQSomeIPImportOptions options;
        options.dialect = c.dialect;
        const auto r = ZQSomeIP::importDescriptions(std::vector<ZQSomeIPImportSource>{{"in.xml", c.text}}, options);
        EXPECT_FALSE(r.ok) << c.what;
        EXPECT_EQ(r.error.rfind(c.error, 0), 0u) << c.what << ": " << r.error;
    }
    const auto missing = ZQSomeIP::importDescriptions(std::vector<std::string>{"/nonexistent/x.arxml"});
    EXPECT_FALSE(missing.ok);
    EXPECT_EQ(missing.error, "/nonexistent/x.arxml: cannot be read");
}

TEST(Import, AnEmptyDescriptionGivesAnEmptyDocumentAndReport)
{
    const auto r = ZQSomeIP::importDescriptions(std::vector<ZQSomeIPImportSource>{{"empty.arxml", "<AUTOSAR/>"}});
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.formatText, "{\n  \"FormatVersion\": 2,\n  \"Services\": []\n}\n");
    EXPECT_TRUE(r.perService.empty());
    EXPECT_EQ(r.report.summary(), "0 services, 0 methods, 0 events, 0 fields, 0 types; 0 skipped, 0 approximated, "
                                  "0 unresolved, 0 duplicates");
    EXPECT_EQ(r.report.toJson(), R"({"approximated":[],"duplicates":[],"event_groups":0,"events":0,"fields":0,"methods":0,)"
                                 R"("services":0,"skipped":[],"types":0,"unresolved":[]})");
}

}  // namespace
