// An audio editor's label track as text: one label a line, start, end and
// text separated by tabs, times in seconds. A label over a frequency range
// is followed by a line beginning with a backslash that holds the range.
#include <fmt/format.h>

#include "publish/ChapterFormats.h"
#include "publish/ChapterTimes.h"

namespace quillora::publish {

namespace {

constexpr std::string_view kExpectedLabel =
    "a label: start and end in seconds and the label, separated by tabs (such as 320.5<TAB>320.5<TAB>Title)";

}  // namespace

std::vector<PlacedMark> readAudacityLabels(const ChapterText& text)
{
    std::vector<PlacedMark> marks;
    for (std::size_t number = 1; number <= text.lineCount(); ++number) {
        const std::string_view line = text.line(number);
        if (isBlank(line) || line.starts_with('\\')) continue;
        const std::size_t firstTab = line.find('\t');
        if (firstTab == std::string_view::npos) text.refuse(number, kExpectedLabel);
        const std::size_t secondTab = line.find('\t', firstTab + 1);
        const auto start = decimalSeconds(line.substr(0, firstTab));
        const auto end = decimalSeconds(line.substr(firstTab + 1, secondTab - firstTab - 1));
        if (!start || !end) text.refuse(number, kExpectedLabel);
        if (*end < *start) text.refuse(number, "an end time that is not before the start time");
        const std::string_view label = secondTab == std::string_view::npos ? "" : line.substr(secondTab + 1);
        marks.push_back({ChapterMark{*start, std::string(label), {}, {}}, fmt::format("line {}", number)});
    }
    return marks;
}

}  // namespace quillora::publish
