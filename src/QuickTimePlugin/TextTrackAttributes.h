// The text-track attributes the link and notes tracks are written with,
// from the preferences: "textTrackFontFace", "textTrackFontSize",
// "textTrackFontColorData" and "textTrackBackgroundColorData".
#pragma once

#include "foundation/UserDefaults.h"
#include "foundation/Value.h"

namespace quillora {

Value textTrackAttributes(const UserDefaults& defaults);

}  // namespace quillora
