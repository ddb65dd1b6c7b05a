// Error records made from names and reasons with the host's strings table.
#include <gtest/gtest.h>

#include "QuickTimePlugin/ErrorCreation.h"
#include "host/ErrorStrings.h"

using namespace quillora;

namespace {

// Installs a table for one test and puts the previous one back.
class InstalledStrings {
public:
    explicit InstalledStrings(std::string_view text) : previous_(ErrorStrings::errorStrings())
    {
        ErrorStrings::setErrorStrings(std::make_shared<ErrorStrings>(ErrorStrings::fromText(text)));
    }
    ~InstalledStrings() { ErrorStrings::setErrorStrings(previous_); }

private:
    std::shared_ptr<const ErrorStrings> previous_;
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
"write" = "Cannot write.";
"write-recovery" = "Nothing at %@ (see %@).";
"event" = "Event failed.";
"event-recovery" = "The other program did not answer";
"empty" = "";
)";

}  // namespace

TEST(ErrorCreation, TextsComeFromTheInstalledTable)
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
}

TEST(ErrorCreation, RecoveryPlaceholdersAreFilledByGroup)
{
    InstalledStrings strings(kTable);
    const auto info = Value::dictionary({{"filePath", "/tmp/out.xml"},
                                         {"address", "http://example.org/feed"},
                                         {"importError", "bad header"},
                                         {"errorStringKey", "-1712"}});
    EXPECT_EQ(errorWithName("fileManipulationError", "write", info).localizedRecoverySuggestion(),
              "Nothing at /tmp/out.xml (see %@).");
    EXPECT_EQ(errorWithName("podcastMigration", "write", info).localizedRecoverySuggestion(),
              "Nothing at http://example.org/feed (see %@).");
    EXPECT_EQ(errorWithName("importError", "write", info).localizedRecoverySuggestion(),
              "Nothing at bad header (see %@).");
    EXPECT_EQ(errorWithName("AppleEventErrors", "event", info).localizedRecoverySuggestion(),
              "The other program did not answer (-1712)");

    // The value of another group's key, or no value, leaves the text alone.
    EXPECT_EQ(errorWithName("fileManipulationError", "write", Value::dictionary({{"address", "x"}}))
                  .localizedRecoverySuggestion(),
              "Nothing at %@ (see %@).");
    EXPECT_EQ(errorWithName("serverError", "write", info).localizedRecoverySuggestion(), "Nothing at %@ (see %@).");
    EXPECT_EQ(errorWithName("AppleEventErrors", "event", Value()).localizedRecoverySuggestion(),
              "The other program did not answer");

    // The caller's user info never reaches the record.
    auto record = errorWithException(NamedException("fileManipulationError", "write", info));
    EXPECT_FALSE(record.userInfo.get("filePath"));
    EXPECT_EQ(record.userInfo.asDictionary()->size(), 2u);
}
