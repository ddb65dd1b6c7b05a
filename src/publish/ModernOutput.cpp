#include "publish/ModernOutput.h"

#include "foundation/UserDefaults.h"
#include "publish/ModernLimits.h"
#include "publish/ScreenshotSlides.h"
#include "toolbox/Movie.h"

namespace quillora::publish {

namespace {

std::optional<ColorComponents> colorPreference(const UserDefaults& defaults, std::string_view key)
{
    auto data = defaults.dataForKey(key);
    return data ? colorComponentsFromData(*data) : std::nullopt;
}

// The recording's length as the plug-in reads it for its tracks.
std::int64_t recordingDuration(const HostContext& context)
{
    auto recording = toolbox::Movie::movieWithFile(context.tempFileRecordingPath);
    return recording ? static_cast<std::int32_t>(recording->duration()) : 0;
}

}  // namespace

ModernOutput prepareModernOutput(HostContext& context, const Value& params, bool requested)
{
    const UserDefaults defaults = UserDefaults::standardUserDefaults();
    const bool podcast = params.stringForKey("format") != ".mov";
    const Value* tags = params.get("tags");
    ModernOutput output;
    if (!requested && !defaults.boolForKey("modernOutput")) {
        LectureFacts lecture{podcast,
                             context.slideTransitions,
                             context.screenshotTransitions,
                             tags && tags->isDictionary() ? *tags : Value::dictionary(),
                             defaults.boolForKey("supportForURL"),
                             recordingDuration(context)};
        output.notes = limitsModernLifts(lecture);
        return output;
    }

    MergedSlides merged =
        mergeScreenshotsIntoSlides(context.slideTransitions, context.screenshotTransitions, recordingDuration(context));
    context.slideTransitions = merged.slides;
    context.screenshotTransitions = Value::array();
    output.notes = std::move(merged.leftOut);

    ModernInputs inputs;
    inputs.podcast = podcast;
    inputs.slides = merged.slides;
    if (tags && tags->isDictionary()) inputs.tags = *tags;
    inputs.textColor = colorPreference(defaults, "textTrackFontColor");
    inputs.backgroundColor = colorPreference(defaults, "textTrackBackgroundColor");
    output.repairs = std::move(inputs);
    return output;
}

}  // namespace quillora::publish
