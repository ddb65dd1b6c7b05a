// Screen shots handed to the plug-in as slides, so that they become chapters
// with their pictures: the plug-in draws screen shots but puts only slides
// in its tracks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace quillora::publish {

struct MergedSlides {
    Value slides = Value::array();     // slides and screen shots, by time
    std::vector<std::string> leftOut;  // screen shots no track can take, said why
};

// A transition as a message names it: its title, or its time.
std::string describeTransition(const Value& transition);

// Merged by "timeValue". A screen shot at the time of a slide or of another
// screen shot, or not before the end of the recording (recordingDuration,
// in the same units), would last no time and is left out.
MergedSlides mergeScreenshotsIntoSlides(const Value& slides, const Value& screenshots, std::int64_t recordingDuration);

}  // namespace quillora::publish
