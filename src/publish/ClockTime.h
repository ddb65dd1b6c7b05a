// Seconds as "HH:MM:SS.mmm", the clock form of the text companions, and
// clock times read back from chapter lists.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillora::publish {

// Rounded to the nearest millisecond; negative times read as zero, and the
// hours take more digits past 99 rather than wrapping.
std::string clockTime(double seconds);

// A clock time at the front of the text: hours optional, minutes and seconds
// of two digits after a colon, a decimal fraction optional ("1:02:03.500",
// "05:20", "5:20.5"). On success the text is advanced past it.
std::optional<double> takeClockTime(std::string_view& text);

}  // namespace quillora::publish
