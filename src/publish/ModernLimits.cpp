#include "publish/ModernLimits.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "layout/TextSamples.h"
#include "metadata/ItemAtoms.h"
#include "publish/ScreenshotSlides.h"

namespace quillora::publish {

namespace {

bool beyondASCII(std::string_view text)
{
    return std::ranges::any_of(text, [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

std::string joined(const std::vector<std::string>& names)
{
    return fmt::format("{}", fmt::join(names, ", "));
}

// "1 slide lasts" or "2 slides last".
std::string counted(std::size_t count, std::string_view noun, std::string_view verbOfOne, std::string_view verbOfMany)
{
    return fmt::format("{} {}{} {}", count, noun, count == 1 ? "" : "s", count == 1 ? verbOfOne : verbOfMany);
}

std::vector<std::string> tagsCutShort(const Value& tags)
{
    std::vector<std::string> keys;
    if (auto dictionary = tags.asDictionary()) {
        for (const auto& [key, value] : *dictionary) {
            const std::string* text = value.asString();
            if (text && itemTypeForTagKey(key) && beyondASCII(*text)) keys.push_back(fmt::format("\"{}\"", key));
        }
    }
    return keys;
}

// Slides whose link sample the plug-in times wrong: their length does not
// fit its 16-bit durations.
std::vector<std::string> slidesTooLongForLinks(const Value& slides, std::int64_t recordingDuration)
{
    std::vector<std::string> names;
    const ArrayRef list = slides.asArray();
    if (!list) return names;
    for (std::size_t i = 0; i < list->size(); ++i) {
        const std::int64_t start = (*list)[i].integerForKey("timeValue").value_or(0);
        const std::int64_t end =
            i + 1 < list->size() ? (*list)[i + 1].integerForKey("timeValue").value_or(0) : recordingDuration;
        if (sixteenBitDuration(start, end) != static_cast<std::uint32_t>(end - start)) {
            names.push_back(describeTransition((*list)[i]));
        }
    }
    return names;
}

}  // namespace

std::vector<std::string> limitsModernLifts(const LectureFacts& lecture)
{
    std::vector<std::string> lines;
    if (lecture.podcast) {
        const auto tags = tagsCutShort(lecture.tags);
        if (!tags.empty()) {
            lines.push_back(fmt::format("{} beyond ASCII ({}): the podcast cuts such text short and some players "
                                        "drop it; --modern writes it whole",
                                        counted(tags.size(), "tag", "goes", "go"), joined(tags)));
        }
        const auto slides = lecture.links ? slidesTooLongForLinks(lecture.slides, lecture.recordingDuration)
                                          : std::vector<std::string>{};
        if (!slides.empty()) {
            lines.push_back(fmt::format("{} longer than 54.6 s ({}): players show the links from there on at the "
                                        "wrong times; --modern times them right",
                                        counted(slides.size(), "slide", "lasts", "last"), joined(slides)));
        }
    }
    if (!lecture.podcast && lecture.silentStartSeconds > 0) {
        lines.push_back(fmt::format("the recording starts with {:.2f} s of silence that a .mov leaves out, so its "
                                    "sound plays that much before the slides; --modern puts it back (or publish it "
                                    "as .m4b)",
                                    lecture.silentStartSeconds));
    }
    if (auto screenshots = lecture.screenshots.asArray(); screenshots && !screenshots->empty()) {
        std::vector<std::string> names;
        for (const auto& screenshot : *screenshots) names.push_back(describeTransition(screenshot));
        lines.push_back(fmt::format("{} left out of the chapters and pictures ({}); --modern adds them",
                                    counted(names.size(), "screen shot", "is", "are"), joined(names)));
    }
    return lines;
}

}  // namespace quillora::publish
