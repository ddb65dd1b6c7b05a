// Chapters as show notes and chapter tools list them, one a line: a clock
// time, perhaps in brackets, then the title, perhaps after a dash.
#include <array>

#include <fmt/format.h>

#include "publish/ChapterFileReaders.h"
#include "publish/ClockTime.h"

namespace quillora::publish {

namespace {

constexpr std::string_view kExpectedTime = "a time such as 05:20 or 1:02:03.500 before the title";
// Hyphen, en dash, em dash.
constexpr std::array<std::string_view, 3> kDashes{"-", "\xE2\x80\x93", "\xE2\x80\x94"};

bool startsWithBlank(std::string_view text)
{
    return text.starts_with(' ') || text.starts_with('\t');
}

// A dash that stands alone between the time and the title is no part of the title.
std::string_view withoutDash(std::string_view title)
{
    for (std::string_view dash : kDashes) {
        if (!title.starts_with(dash)) continue;
        const std::string_view after = title.substr(dash.size());
        if (after.empty() || startsWithBlank(after)) return trimmed(after);
    }
    return title;
}

}  // namespace

bool isTimestampLine(std::string_view line)
{
    line = trimmed(line);
    if (line.starts_with('[')) line.remove_prefix(1);
    return takeClockTime(line).has_value();
}

std::vector<PlacedMark> readTimestampList(const ChapterText& text)
{
    std::vector<PlacedMark> marks;
    for (std::size_t number = 1; number <= text.lineCount(); ++number) {
        std::string_view rest = trimmed(text.line(number));
        if (rest.empty()) continue;
        const bool bracketed = rest.starts_with('[');
        if (bracketed) rest.remove_prefix(1);
        const auto start = takeClockTime(rest);
        if (!start) text.refuse(number, kExpectedTime);
        if (bracketed) {
            if (!rest.starts_with(']')) text.refuse(number, "a ']' after the time");
            rest.remove_prefix(1);
        }
        if (!rest.empty() && !startsWithBlank(rest) && withoutDash(rest) == rest) {
            text.refuse(number, "a blank between the time and the title");
        }
        marks.push_back(
            {ChapterMark{*start, std::string(withoutDash(trimmed(rest))), {}, {}}, fmt::format("line {}", number)});
    }
    return marks;
}

}  // namespace quillora::publish
