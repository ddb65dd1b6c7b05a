// How the hyperlink and notes tracks draw their text, read from the
// text-track attributes dictionary.
#pragma once

#include <cstdint>
#include <string>

#include "foundation/Value.h"
#include "layout/ColorData.h"

namespace quillora {

struct TextStyle {
    std::string fontName;
    std::int64_t fontSize = 0;
    ColorComponents textColor;        // all zero when no colour is given
    ColorComponents backgroundColor;  // likewise: black on transparent
};

// "textTrackFontFace", "textTrackFontSize" (a number, or a numeric string),
// "textTrackFontColorData", "textTrackBackgroundColorData".
TextStyle textStyleFromAttributes(const Value& attributes);

}  // namespace quillora
