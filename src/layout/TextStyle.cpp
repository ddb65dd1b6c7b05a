#include "layout/TextStyle.h"

#include <charconv>

namespace quillora {

namespace {

std::int64_t fontSizeOf(const Value* size)
{
    if (!size) return 0;
    if (auto number = size->asInteger()) return *number;
    if (const std::string* text = size->asString()) {
        // A numeric string counts by its leading number, truncated; 0 when there is none.
        std::size_t start = text->find_first_not_of(" \t");
        if (start == std::string::npos) return 0;
        double value = 0;
        std::from_chars(text->data() + start, text->data() + text->size(), value);
        return static_cast<std::int64_t>(value);
    }
    return 0;
}

ColorComponents colorOf(const Value* data)
{
    if (!data || !data->asData()) return {};
    return colorComponentsFromData(*data->asData()).value_or(ColorComponents{});
}

}  // namespace

TextStyle textStyleFromAttributes(const Value& attributes)
{
    TextStyle style;
    style.fontName = attributes.stringForKey("textTrackFontFace").value_or("");
    style.fontSize = fontSizeOf(attributes.get("textTrackFontSize"));
    style.textColor = colorOf(attributes.get("textTrackFontColorData"));
    style.backgroundColor = colorOf(attributes.get("textTrackBackgroundColorData"));
    return style;
}

}  // namespace quillora
