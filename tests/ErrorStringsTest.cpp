// The host's strings table: its file format, its lookups and the table the
// process installs.
#include <gtest/gtest.h>

#include <thread>

#include "TestSupport.h"
#include "foundation/PropertyList.h"
#include "host/ErrorStrings.h"

using namespace quillora;

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
    const auto sourceFolder = test::fixture("").parent_path().parent_path().parent_path();
    auto table = ErrorStrings::fromFile(sourceFolder / "resources/errorStrings.strings");
    for (const char* reason :
         {"Could not add chapters", "Could not add the images", "Could not add metadata.",
          "Could not create the new movie file.", "Could not find source file", "could not create the XML file",
          "Could not create the podcast file", "Could not generate m4b file"}) {
        const std::string key(reason);
        EXPECT_NE(table.lookup(key), key) << reason;
        EXPECT_NE(table.lookup(key + "-recovery"), key + "-recovery") << reason;
        EXPECT_NE(table.lookup(key + "-recoveryOption1"), key + "-recoveryOption1") << reason;
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
    auto previous = ErrorStrings::errorStrings();
    ErrorStrings::setErrorStrings(nullptr);
    EXPECT_EQ(ErrorStrings::errorStrings()->lookup("Could not add chapters"), "Could not add chapters");

    ErrorStrings::setErrorStrings(std::make_shared<ErrorStrings>(ErrorStrings::fromText("\"k\" = \"first\";")));
    auto held = ErrorStrings::errorStrings();
    std::thread installer([] {
        ErrorStrings::setErrorStrings(std::make_shared<ErrorStrings>(ErrorStrings::fromText("\"k\" = \"second\";")));
    });
    installer.join();
    EXPECT_EQ(held->lookup("k"), "first");
    EXPECT_EQ(ErrorStrings::errorStrings()->lookup("k"), "second");
    ErrorStrings::setErrorStrings(previous);
}
