// Chapters as a web video's chapter track gives them: a "WEBVTT" header,
// then cues separated by blank lines, each an optional identifier, a timing
// line ("00:00:00.000 --> 00:05:20.500", settings after it) and the title.
#include <fmt/format.h>

#include <array>
#include <utility>

#include "publish/ChapterFileReaders.h"
#include "publish/ClockTime.h"

namespace quillora::publish {

namespace {

constexpr std::string_view kArrow = "-->";
constexpr std::string_view kExpectedTiming = "a cue timing such as 00:05:20.000 --> 00:06:00.000";

// The character references cue text may hold, and what they stand for.
constexpr std::array<std::pair<std::string_view, std::string_view>, 6> kReferences{{{"&amp;", "&"},
                                                                                    {"&lt;", "<"},
                                                                                    {"&gt;", ">"},
                                                                                    {"&nbsp;", "\xC2\xA0"},
                                                                                    {"&lrm;", "\xE2\x80\x8E"},
                                                                                    {"&rlm;", "\xE2\x80\x8F"}}};

bool isBlockOf(std::string_view line, std::string_view keyword)
{
    return line.starts_with(keyword) &&
           (line.size() == keyword.size() || line[keyword.size()] == ' ' || line[keyword.size()] == '\t');
}

// Cue text without its markup (<b>, <v Speaker>, <00:01.000>), references replaced.
std::string plainText(std::string_view cue)
{
    std::string plain;
    while (!cue.empty()) {
        if (cue.front() == '<') {
            const std::size_t close = cue.find('>');
            cue.remove_prefix(close == std::string_view::npos ? cue.size() : close + 1);
            continue;
        }
        bool replaced = false;
        for (const auto& [reference, character] : kReferences) {
            if (!cue.starts_with(reference)) continue;
            plain += character;
            cue.remove_prefix(reference.size());
            replaced = true;
            break;
        }
        if (replaced) continue;
        plain += cue.front();
        cue.remove_prefix(1);
    }
    return plain;
}

double cueStart(const ChapterText& text, std::size_t number)
{
    std::string_view timing = trimmed(text.line(number));
    const auto start = takeClockTime(timing);
    timing = trimmed(timing);
    if (!start || !timing.starts_with(kArrow)) text.refuse(number, kExpectedTiming);
    timing = trimmed(timing.substr(kArrow.size()));
    if (!takeClockTime(timing) || !(timing.empty() || timing.front() == ' ' || timing.front() == '\t')) {
        text.refuse(number, kExpectedTiming);
    }
    return *start;
}

}  // namespace

bool isWebVttSignature(std::string_view line)
{
    return isBlockOf(line, "WEBVTT");
}

std::vector<PlacedMark> readWebVttChapters(const ChapterText& text)
{
    std::vector<PlacedMark> marks;
    const std::size_t last = text.lineCount();
    // The header block: the signature line and any header lines after it.
    std::size_t number = 1;
    while (number <= last && isBlank(text.line(number))) ++number;
    ++number;
    while (number <= last && !isBlank(text.line(number)) && text.line(number).find(kArrow) == std::string_view::npos) {
        ++number;
    }
    while (number <= last) {
        if (isBlank(text.line(number))) {
            ++number;
            continue;
        }
        std::size_t end = number;
        while (end + 1 <= last && !isBlank(text.line(end + 1))) ++end;
        const std::string_view first = text.line(number);
        if (isBlockOf(first, "NOTE") || isBlockOf(first, "STYLE") || isBlockOf(first, "REGION")) {
            number = end + 1;
            continue;
        }
        // A line before the timing is the cue's identifier.
        const std::size_t timing = first.find(kArrow) != std::string_view::npos ? number : number + 1;
        if (timing > end) text.refuse(timing, kExpectedTiming);
        const double start = cueStart(text, timing);
        std::string title;
        for (std::size_t line = timing + 1; line <= end; ++line) {
            if (!title.empty()) title += ' ';
            title += trimmed(text.line(line));
        }
        marks.push_back({ChapterMark{start, plainText(title), {}, {}}, fmt::format("line {}", timing)});
        number = end + 1;
    }
    return marks;
}

}  // namespace quillora::publish
