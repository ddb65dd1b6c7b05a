// The times chapter files write, as seconds.
#pragma once

#include <optional>
#include <string_view>

namespace quillora::publish {

// A clock time at the front of the text: hours optional, minutes and seconds
// of two digits after a colon, a decimal fraction optional ("1:02:03.500",
// "05:20", "5:20.5"). On success the text is advanced past it.
std::optional<double> takeClockTime(std::string_view& text);

// The whole text as a decimal number of seconds ("320.500000", "-1.5"), as
// written regardless of the locale.
std::optional<double> decimalSeconds(std::string_view text);

}  // namespace quillora::publish
