// Seconds as "HH:MM:SS.mmm", the clock form of the text companions.
#pragma once

#include <string>

namespace quillora::publish {

// Rounded to the nearest millisecond; negative times read as zero, and the
// hours take more digits past 99 rather than wrapping.
std::string clockTime(double seconds);

}  // namespace quillora::publish
