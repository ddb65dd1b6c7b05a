#include "StandardLanguages.h"

#include <cstdlib>
#include <string>

namespace quillora::app {

namespace {

// "fr_CA.UTF-8" gives "fr-CA"; the C and POSIX locales name no language.
std::string languageOfLocale(std::string locale)
{
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX") return "";
    for (char& c : locale) {
        if (c == '_') c = '-';
    }
    return locale;
}

}  // namespace

UserDefaults withPreferredLanguages(UserDefaults defaults)
{
    if (defaults.objectForKey("AppleLanguages")) return defaults;
    std::string language;
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value && *value) {
            language = languageOfLocale(value);
            break;
        }
    }
    defaults.set("AppleLanguages", Value::array({Value(language.empty() ? "en" : language)}));
    return defaults;
}

}  // namespace quillora::app
