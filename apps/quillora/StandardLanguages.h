// The host's standard defaults always name the user's languages
// ("AppleLanguages"): from the defaults file when it has them, else from the
// locale of the environment, else English.
#pragma once

#include "foundation/UserDefaults.h"

namespace quillora::app {

// Adds "AppleLanguages" when the defaults lack it; returns the defaults.
UserDefaults withPreferredLanguages(UserDefaults defaults);

}  // namespace quillora::app
