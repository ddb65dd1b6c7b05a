#include "QuickTimePlugin/ErrorCreation.h"

#include <array>
#include <optional>
#include <string>

#include "host/ErrorStrings.h"

namespace quillora {

namespace {

// The suggestion used as a format with one argument: its first "%@" is
// replaced; a suggestion without one stays as it is.
std::string formatWithArgument(const std::string& format, const std::string& argument)
{
    const auto placeholder = format.find("%@");
    if (placeholder == std::string::npos) return format;
    return format.substr(0, placeholder) + argument + format.substr(placeholder + 2);
}

// Which user-info value fills the suggestion of which error group.
struct PlaceholderRule {
    std::string_view name;
    std::string_view userInfoKey;
};
constexpr std::array kPlaceholderRules{
    PlaceholderRule{QuilloraErrors::fileManipulationError, kErrorFilePathKey},
    PlaceholderRule{QuilloraErrors::podcastMigration, kErrorAddressKey},
    PlaceholderRule{QuilloraErrors::importError, kErrorImportErrorKey},
};

std::string recoverySuggestion(std::string suggestion, std::string_view name, const Value& userInfo)
{
    if (name == QuilloraErrors::appleEventErrors) {
        if (auto key = userInfo.stringForKey(kErrorStringKey)) return suggestion + " (" + *key + ")";
        return suggestion;
    }
    for (const auto& rule : kPlaceholderRules) {
        if (name != rule.name) continue;
        if (auto argument = userInfo.stringForKey(rule.userInfoKey)) return formatWithArgument(suggestion, *argument);
    }
    return suggestion;
}

// A text of the table, or nothing when the lookup only gave the key back.
std::optional<std::string> foundText(const ErrorStrings& table, const std::string& key)
{
    std::string text = table.lookup(key);
    if (text == key) return std::nullopt;
    return text;
}

}  // namespace

ErrorRecord errorWithName(std::string_view name, std::string_view reason, const Value& userInfo)
{
    const auto table = ErrorStrings::errorStrings();
    const std::string reasonKey(reason);
    auto details = Value::dictionary();
    auto entries = details.asDictionary();

    if (std::string description = table->lookup(reasonKey); !description.empty()) {
        entries->set(kLocalizedDescriptionKey, description);
    }
    if (auto suggestion = foundText(*table, reasonKey + "-recovery")) {
        entries->set(kLocalizedRecoverySuggestionKey, recoverySuggestion(std::move(*suggestion), name, userInfo));
    }
    Array options;
    for (const char* suffix : {"-recoveryOption1", "-recoveryOption2", "-recoveryOption3"}) {
        auto option = foundText(*table, reasonKey + suffix);
        if (!option) break;
        options.emplace_back(std::move(*option));
    }
    if (!options.empty()) entries->set(kLocalizedRecoveryOptionsKey, Value::array(std::move(options)));

    return ErrorRecord{std::string(name), 0, details};
}

ErrorRecord errorWithException(const NamedException& exception)
{
    return errorWithName(exception.name(), exception.reason(), exception.userInfo());
}

NamedException noSlidePictureException()
{
    return NamedException(std::string(QuilloraErrors::qtPluginImageResizeErr), "Could not resize the images");
}

}  // namespace quillora
