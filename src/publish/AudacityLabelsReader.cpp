// An audio editor's label track as text: one label a line, start, end and
// text separated by tabs, times in seconds. A label over a frequency range
// is followed by a line beginning with a backslash that holds the range.
#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <optional>

#include "publish/ChapterFileReaders.h"

namespace quillora::publish {

namespace {

constexpr std::string_view kExpectedLabel =
    "a label: start and end in seconds and the label, separated by tabs (such as 320.5<TAB>320.5<TAB>Title)";

// The whole text as a decimal number of seconds ("320.500000", "-1.5"), as
// written regardless of the locale.
std::optional<double> decimalSeconds(std::string_view text)
{
    double seconds = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), seconds, std::chars_format::fixed);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(seconds)) return std::nullopt;
    return seconds;
}

struct Label {
    double start = 0;
    double end = 0;
    std::string_view text;
};

std::optional<Label> labelOf(std::string_view line)
{
    const std::size_t firstTab = line.find('\t');
    if (firstTab == std::string_view::npos) return std::nullopt;
    const std::size_t secondTab = line.find('\t', firstTab + 1);
    const auto start = decimalSeconds(line.substr(0, firstTab));
    const auto end = decimalSeconds(line.substr(firstTab + 1, secondTab - firstTab - 1));
    if (!start || !end) return std::nullopt;
    return Label{*start, *end, secondTab == std::string_view::npos ? "" : line.substr(secondTab + 1)};
}

}  // namespace

bool isAudacityLabel(std::string_view line)
{
    return labelOf(line).has_value();
}

std::vector<PlacedMark> readAudacityLabels(const ChapterText& text)
{
    std::vector<PlacedMark> marks;
    for (std::size_t number = 1; number <= text.lineCount(); ++number) {
        const std::string_view line = text.line(number);
        if (isBlank(line) || line.starts_with('\\')) continue;
        const auto label = labelOf(line);
        if (!label) text.refuse(number, kExpectedLabel);
        if (label->end < label->start) text.refuse(number, "an end time that is not before the start time");
        marks.push_back({ChapterMark{label->start, std::string(label->text), {}, {}}, fmt::format("line {}", number)});
    }
    return marks;
}

}  // namespace quillora::publish
