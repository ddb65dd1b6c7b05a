// The host's strings table (its file format, its lookups, the table the
// process installs) and the error records made with it.
#include <gtest/gtest.h>

#include <thread>

#include "QuickTimePlugin/ErrorCreation.h"
#include "TestSupport.h"
#include "foundation/PropertyList.h"
#include "host/ErrorStrings.h"

using namespace quillora;

namespace {

// Installs a table for one test and puts the previous one back.
struct InstalledStrings {
    std::shared_ptr<const ErrorStrings> previous = ErrorStrings::errorStrings();
    explicit InstalledStrings(std::string_view text)
    {
        ErrorStrings::setErrorStrings(std::make_shared<ErrorStrings>(ErrorStrings::fromText(text)));
    }
    ~InstalledStrings() { ErrorStrings::setErrorStrings(previous); }
};

constexpr std::string_view kTable = R"(
"Could not add chapters" = "Chapters failed.";
"Could not add chapters-recovery" = "Check the titles.";
"Could not add chapters-recoveryOption1" = "OK";
"Could not add chapters-recoveryOption2" = "Help";
"Could not add chapters-recoveryOption3" = "Quit";
"gap" = "Gap.";
"gap-recoveryOption1" = "First";
"gap-recoveryOption3" = "Third";
"write-recovery" = "Nothing at %@ (see %@).";
"event-recovery" = "The other program did not answer";
"empty" = "";
)";

}  // namespace

TEST(ErrorStrings, ReadsEntriesCommentsAndEscapes)
{
    auto table = ErrorStrings::fromText("\xEF\xBB\xBF/* header\n   over two lines */\n"
                                        "\"plain\" = \"Plain text.\";\n"
                                        "// a line comment with \"quotes\" = \"no\";\n"
                                        "\"escaped\"=\"say \\\"hi\\\"\\\\ now\\nnext\\tend\";"
                                        "  \"spread\"\n  =\n  \"over lines\"  ;\n"
                                        "\"plain\" = \"Later wins.\";\n"
                                        "\"unicode \xC2\xA9\" = \"\xC3\xA9t\xC3\xA9\";\n");
    EXPECT_EQ(table.size(), 4u);
    EXPECT_EQ(table.lookup("plain"), "Later wins.");
    EXPECT_EQ(table.lookup("escaped"), "say \"hi\"\\ now\nnext\tend");
    EXPECT_EQ(table.lookup("spread"), "over lines");
    EXPECT_EQ(table.lookup("unicode \xC2\xA9"), "\xC3\xA9t\xC3\xA9");
    EXPECT_EQ(table.lookup("a line comment with \"quotes\""), "a line comment with \"quotes\"");
    EXPECT_EQ(table.lookup("absent"), "absent");
}

TEST(ErrorStrings, RefusesMalformedTextNamingTheLine)
{
    auto messageFor = [](std::string_view text) {
        try {
            ErrorStrings::fromText(text);
        } catch (const FormatError& error) {
            return std::string(error.what());
        }
        return std::string("accepted");
    };
    EXPECT_NE(messageFor("\"a\" = \"b\";\n\"c\" = \"d\"\n").find("line 3: expected ';'"), std::string::npos);
    EXPECT_NE(messageFor("\"a\" \"b\";").find("line 1: expected '='"), std::string::npos);
    EXPECT_NE(messageFor("\n\n\"a\" = \"b").find("line 3: a quoted string is not closed"), std::string::npos);
    EXPECT_NE(messageFor("/* open\n").find("comment is not closed"), std::string::npos);
    EXPECT_NE(messageFor("\"a\" = \"\\x\";").find("unknown escape"), std::string::npos);
    EXPECT_NE(messageFor("a = \"b\";").find("expected a quoted string"), std::string::npos);
}

TEST(ErrorStrings, ShippedTableHasTextsForEveryExportReason)
{
    const auto table = ErrorStrings::fromFile(test::fixture("").parent_path().parent_path().parent_path() /
                                              "resources/errorStrings.strings");
    for (const char* reason :
         {"Could not add chapters", "Could not add the images", "Could not add metadata.",
          "Could not create the new movie file.", "Could not find source file", "could not create the XML file",
          "Could not create the podcast file", "Could not generate m4b file"}) {
        for (const char* suffix : {"", "-recovery", "-recoveryOption1"}) {
            const std::string key = std::string(reason) + suffix;
            EXPECT_NE(table.lookup(key), key);
        }
    }
    for (const char* fileReason : {"could not create the XML file", "Could not create the podcast file"}) {
        const std::string suggestion = table.lookup(std::string(fileReason) + "-recovery");
        const auto first = suggestion.find("%@");
        EXPECT_NE(first, std::string::npos) << fileReason;
        EXPECT_EQ(suggestion.find("%@", first + 2), std::string::npos) << fileReason;
    }
}

TEST(ErrorStrings, ProcessTableStartsEmptyAndOutlivesItsReplacement)
{
    InstalledStrings first("\"k\" = \"first\";");
    auto held = ErrorStrings::errorStrings();
    ErrorStrings::setErrorStrings(nullptr);
    EXPECT_EQ(ErrorStrings::errorStrings()->lookup("k"), "k");
    std::thread([] {
        ErrorStrings::setErrorStrings(std::make_shared<ErrorStrings>(ErrorStrings::fromText("\"k\" = \"second\";")));
    }).join();
    EXPECT_EQ(held->lookup("k"), "first");
    EXPECT_EQ(ErrorStrings::errorStrings()->lookup("k"), "second");
}

TEST(ErrorCreation, TextsComeFromTheInstalledTableAndThePlaceholderIsFilledByGroup)
{
    InstalledStrings strings(kTable);
    auto full = errorWithException(NamedException("qtPluginChapFromTransErr", "Could not add chapters"));
    EXPECT_EQ(full.domain, "qtPluginChapFromTransErr");
    EXPECT_EQ(full.code, 0);
    EXPECT_EQ(full.localizedDescription(), "Chapters failed.");
    EXPECT_EQ(full.localizedRecoverySuggestion(), "Check the titles.");
    EXPECT_EQ(full.localizedRecoveryOptions(), (std::vector<std::string>{"OK", "Help", "Quit"}));

    auto absent = errorWithName(QuilloraErrors::qtPluginMetadataFromValuesErr, "Could not add metadata.", Value());
    EXPECT_EQ(absent.localizedDescription(), "Could not add metadata.");
    EXPECT_EQ(absent.userInfo.asDictionary()->size(), 1u);

    auto gap = errorWithName(QuilloraErrors::serverError, "gap", Value());
    EXPECT_EQ(gap.localizedRecoveryOptions(), std::vector<std::string>{"First"});

    auto empty = errorWithName(QuilloraErrors::serverError, "empty", Value());
    EXPECT_FALSE(empty.userInfo.get(kLocalizedDescriptionKey));

    const auto info = Value::dictionary({{"filePath", "/tmp/out.xml"},
                                         {"address", "http://example.org/feed"},
                                         {"importError", "bad header"},
                                         {"errorStringKey", "-1712"}});
    // Only the first placeholder is filled; another group's key, or no value, leaves the text alone.
    auto suggestion = [](const char* group, const char* reason, const Value& userInfo) {
        return errorWithName(group, reason, userInfo).localizedRecoverySuggestion();
    };
    EXPECT_EQ(suggestion("fileManipulationError", "write", info), "Nothing at /tmp/out.xml (see %@).");
    EXPECT_EQ(suggestion("podcastMigration", "write", info), "Nothing at http://example.org/feed (see %@).");
    EXPECT_EQ(suggestion("importError", "write", info), "Nothing at bad header (see %@).");
    EXPECT_EQ(suggestion("AppleEventErrors", "event", info), "The other program did not answer (-1712)");
    EXPECT_EQ(suggestion("fileManipulationError", "write", Value::dictionary({{"address", "x"}})),
              "Nothing at %@ (see %@).");
    EXPECT_EQ(suggestion("serverError", "write", info), "Nothing at %@ (see %@).");
    EXPECT_EQ(suggestion("AppleEventErrors", "event", Value()), "The other program did not answer");

    // The caller's user info never reaches the record.
    auto record = errorWithException(NamedException("fileManipulationError", "write", info));
    EXPECT_FALSE(record.userInfo.get("filePath"));
    EXPECT_EQ(record.userInfo.asDictionary()->size(), 2u);
}
