#include "QuickTimePlugin/TextTrackAttributes.h"

namespace quillora {

Value textTrackAttributes(const UserDefaults& defaults)
{
    auto objectOrNull = [&](std::string_view key) {
        const Value* value = defaults.objectForKey(key);
        return value ? *value : Value();
    };
    auto dataOrNull = [&](std::string_view key) {
        auto data = defaults.dataForKey(key);
        return data ? Value(*data) : Value();
    };
    return Value::dictionary({{"textTrackFontFace", objectOrNull("textTrackFontFace")},
                              {"textTrackFontSize", objectOrNull("textTrackFontSize")},
                              {"textTrackFontColorData", dataOrNull("textTrackFontColor")},
                              {"textTrackBackgroundColorData", dataOrNull("textTrackBackgroundColor")}});
}

}  // namespace quillora
