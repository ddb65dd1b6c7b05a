#include "publish/ModernOutput.h"

#include "foundation/FourCC.h"
#include "foundation/UserDefaults.h"
#include "publish/ModernLimits.h"
#include "publish/ScreenshotSlides.h"
#include "toolbox/Movie.h"
#include "toolbox/Toolbox.h"

namespace quillora::publish {

namespace {

std::optional<ColorComponents> colorPreference(const UserDefaults& defaults, std::string_view key)
{
    auto data = defaults.dataForKey(key);
    return data ? colorComponentsFromData(*data) : std::nullopt;
}

struct RecordingTimes {
    std::int64_t duration = 0;  // as the plug-in reads it for its tracks
    double silentStartSeconds = 0;
};

RecordingTimes recordingTimes(const HostContext& context)
{
    auto recording = toolbox::Movie::movieWithFile(context.tempFileRecordingPath);
    if (!recording) return {};
    RecordingTimes times{static_cast<std::int32_t>(recording->duration())};
    const toolbox::Track* sound = recording->trackOfMediaType(fourCC("soun"));
    if (sound && recording->timeScale() > 0) {
        times.silentStartSeconds = static_cast<double>(toolbox::GetTrackOffset(sound)) / recording->timeScale();
    }
    return times;
}

}  // namespace

ModernOutput prepareModernOutput(HostContext& context, const Value& params, bool requested)
{
    const UserDefaults defaults = UserDefaults::standardUserDefaults();
    const bool podcast = params.stringForKey("format") != ".mov";
    const Value* tags = params.get("tags");
    ModernOutput output;
    const RecordingTimes recording = recordingTimes(context);
    if (!requested && !defaults.boolForKey("modernOutput")) {
        LectureFacts lecture{podcast,
                             context.slideTransitions,
                             context.screenshotTransitions,
                             tags && tags->isDictionary() ? *tags : Value::dictionary(),
                             defaults.boolForKey("supportForURL"),
                             recording.duration,
                             recording.silentStartSeconds};
        output.notes = limitsModernLifts(lecture);
        return output;
    }

    MergedSlides merged =
        mergeScreenshotsIntoSlides(context.slideTransitions, context.screenshotTransitions, recording.duration);
    context.slideTransitions = merged.slides;
    context.screenshotTransitions = Value::array();
    output.notes = std::move(merged.leftOut);

    ModernInputs inputs;
    inputs.podcast = podcast;
    inputs.slides = merged.slides;
    if (tags && tags->isDictionary()) inputs.tags = *tags;
    inputs.textColor = colorPreference(defaults, "textTrackFontColor");
    inputs.backgroundColor = colorPreference(defaults, "textTrackBackgroundColor");
    inputs.silentStartSeconds = recording.silentStartSeconds;
    output.repairs = std::move(inputs);
    return output;
}

}  // namespace quillora::publish
