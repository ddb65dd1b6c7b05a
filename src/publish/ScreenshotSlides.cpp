#include "publish/ScreenshotSlides.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "layout/TextSamples.h"
#include "layout/TrackAtoms.h"

namespace quillora::publish {

namespace {

std::int64_t startOf(const Value& transition)
{
    return transition.integerForKey("timeValue").value_or(0);
}

}  // namespace

std::string describeTransition(const Value& transition)
{
    const ChapterTitle title = chapterTitle(transition, 0);
    if (title.given) return fmt::format("\"{}\"", title.text);
    return fmt::format("at {:.1f} s", static_cast<double>(startOf(transition)) / kMediaTimeScale);
}

MergedSlides mergeScreenshotsIntoSlides(const Value& slides, const Value& screenshots, std::int64_t recordingDuration)
{
    MergedSlides merged;
    Array all;
    std::set<std::int64_t> taken;
    if (auto list = slides.asArray()) {
        for (const auto& slide : *list) {
            all.push_back(slide);
            taken.insert(startOf(slide));
        }
    }
    if (auto list = screenshots.asArray()) {
        for (const Value& screenshot : *list) {
            const std::int64_t start = startOf(screenshot);
            const std::string name = describeTransition(screenshot);
            if (start < 0 || start >= recordingDuration) {
                merged.leftOut.push_back(fmt::format("The screen shot {} is not within the recording; it is left "
                                                     "out of the chapters",
                                                     name));
            } else if (!taken.insert(start).second) {
                merged.leftOut.push_back(fmt::format("The screen shot {} starts with another slide; it is left "
                                                     "out of the chapters",
                                                     name));
            } else {
                all.push_back(screenshot);
            }
        }
    }
    std::stable_sort(all.begin(), all.end(), [](const Value& a, const Value& b) { return startOf(a) < startOf(b); });
    merged.slides = Value::array(std::move(all));
    return merged;
}

}  // namespace quillora::publish
