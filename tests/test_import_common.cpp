// What the importer does whatever the dialect: inputs that are not descriptions at all fail as a whole
// with the file and line named; text that is not UTF-8; the report's own form.
#include <gtest/gtest.h>

#include "ZQSomeIPImport.h"
#include "import_test_support.h"

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

// Written JSON shows each byte that is not UTF-8 as U+FFFD, so names must be told apart by what will be
// written: the bytes are read as U+FFFD, and two names apart only there are two members of one name.
TEST(Import, TextThatIsNotUtf8IsReadAsTheReplacementCharacter)
{
    const std::string basics = importtest::readText(importtest::sample("fibex/basics.xml"));
    const auto renamed = [&](const std::string& temp, const std::string& mode, const std::string& declaration) {
        std::string t = basics;
        t.replace(t.find("<ho:SHORT-NAME>temp<"), 20, "<ho:SHORT-NAME>" + temp + "<");
        t.replace(t.find("<ho:SHORT-NAME>mode<"), 20, "<ho:SHORT-NAME>" + mode + "<");
        t.replace(0, t.find("?>") + 2, declaration);
        return t;
    };
    const std::string utf8 = R"(<?xml version="1.0" encoding="UTF-8"?>)";
    const struct {
        const char* what;
        std::string text;
        const char* written;   // in the format document
        const char* reported;  // in some report entry, "" for an empty report
    } cases[] = {
        {"Latin-1 under a UTF-8 declaration", renamed("temp\xB0", "mode", utf8), R"("ParamName": "temp\ufffd")",
         "basics.xml:67 : a byte that is not UTF-8 is read as U+FFFD"},
        {"names apart only in such bytes", renamed("t\xB0", "t\xB1", utf8), R"("ServiceName": "Seat")",
         "a second member named \"t\xEF\xBF\xBD\""},
        {"a cut sequence and a surrogate", renamed("t\xE2\x82", "\xED\xA0\x80", utf8), R"("ParamName": "t\ufffd\ufffd")",
         "5 bytes that are not UTF-8 (the first on this line) are read as U+FFFD"},
        {"Latin-1 declared", renamed("temp\xB0", "mode", R"(<?xml version="1.0" encoding="ISO-8859-1"?>)"),
         R"("ParamName": "temp\u00b0")", ""},
        {"UTF-8 throughout", renamed("temp\xC2\xB0", "mode", utf8), R"("ParamName": "temp\u00b0")", ""},
    };
    for (const auto& c : cases) {
        const auto r = ZQSomeIP::importDescriptions(std::vector<ZQSomeIPImportSource>{{"basics.xml", c.text}});
        ASSERT_TRUE(r.ok) << c.what << ": " << r.error;
        EXPECT_NE(r.formatText.find(c.written), std::string::npos) << c.what << "\n" << r.formatText;
        const std::string reasons = importtest::reasons(r.report);
        if (*c.reported == '\0') {
            EXPECT_EQ(reasons, "") << c.what;
        } else {
            EXPECT_NE(reasons.find(c.reported), std::string::npos) << c.what << "\n" << reasons;
        }
    }

    // The parser converts UTF-32 unchecked, so a unit that is no character refuses the file.
    std::string utf32("<\0\0\0a\0\0\0\0\0\x11\0/\0\0\0>\0\0\0", 20);
    const auto r = ZQSomeIP::importDescriptions(std::vector<ZQSomeIPImportSource>{{"wide.xml", utf32}});
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, "wide.xml: not well-formed XML (the UTF-32 unit at byte 8 is no character)");
}

}  // namespace
