// ffmpeg's metadata file: ";FFMETADATA1", global key=value lines, then
// [STREAM] and [CHAPTER] sections. A backslash takes the next character as
// it is ('=', ';', '#', '\\' or the line end, which continues the value on
// the next line); lines that begin with ';' or '#' are comments.
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <optional>

#include "publish/ChapterFileReaders.h"

namespace quillora::publish {

namespace {

// ffmpeg's own time base when a chapter gives none.
constexpr std::int64_t kDefaultTimeBaseDenominator = 1'000'000'000;

struct LogicalLine {
    std::size_t number = 0;  // of its first line in the file
    std::string text;
};

bool endsInEscape(std::string_view line)
{
    std::size_t backslashes = 0;
    while (backslashes < line.size() && line[line.size() - 1 - backslashes] == '\\') ++backslashes;
    return backslashes % 2 == 1;
}

// Joins each line that ends in an escaped line end with the next; the escape stays for unescaping.
std::vector<LogicalLine> logicalLines(const ChapterText& text)
{
    std::vector<LogicalLine> lines;
    bool continued = false;
    for (std::size_t number = 1; number <= text.lineCount(); ++number) {
        const std::string_view line = text.line(number);
        if (continued) {
            lines.back().text.append("\n").append(line);
        } else {
            lines.push_back({number, std::string(line)});
        }
        continued = endsInEscape(line);
    }
    return lines;
}

struct Entry {
    std::string key;
    std::string value;
};

// The key and the value, unescaped; nothing without an unescaped '='.
std::optional<Entry> entryOf(std::string_view line)
{
    Entry entry;
    bool inValue = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        std::string& part = inValue ? entry.value : entry.key;
        if (line[i] == '\\' && i + 1 < line.size()) {
            part += line[++i];
        } else if (line[i] == '=' && !inValue) {
            inValue = true;
        } else {
            part += line[i];
        }
    }
    if (!inValue) return std::nullopt;
    return entry;
}

std::optional<std::int64_t> wholeNumber(std::string_view text)
{
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

// Keys other than the chapter's own three are looked up as ffmpeg does, in any case.
bool sameLetter(char a, char b)
{
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

struct Chapter {
    std::size_t number = 0;  // the line of its [CHAPTER]
    std::int64_t numerator = 1;
    std::int64_t denominator = kDefaultTimeBaseDenominator;
    std::optional<std::int64_t> start;
    std::string title;
};

void readChapterEntry(const ChapterText& text, const LogicalLine& line, Chapter& chapter)
{
    const auto entry = entryOf(line.text);
    if (!entry) text.refuse(line.number, "key=value, such as title=Introduction");
    if (entry->key == "TIMEBASE") {
        const std::size_t slash = entry->value.find('/');
        const auto numerator = wholeNumber(std::string_view(entry->value).substr(0, slash));
        const auto denominator =
            slash == std::string::npos ? std::nullopt : wholeNumber(std::string_view(entry->value).substr(slash + 1));
        if (!numerator || !denominator || *numerator <= 0 || *denominator <= 0) {
            text.refuse(line.number, "TIMEBASE=num/den, such as TIMEBASE=1/1000 for milliseconds");
        }
        chapter.numerator = *numerator;
        chapter.denominator = *denominator;
    } else if (entry->key == "START") {
        chapter.start = wholeNumber(entry->value);
        if (!chapter.start) text.refuse(line.number, "START=a whole number of time-base units");
    } else if (std::ranges::equal(entry->key, std::string_view("title"), sameLetter)) {
        chapter.title = entry->value;
    }
}

}  // namespace

std::vector<PlacedMark> readFFmpegMetadataChapters(const ChapterText& text)
{
    std::vector<Chapter> chapters;
    bool inChapter = false;
    for (const LogicalLine& line : logicalLines(text)) {
        if (line.text.empty() || line.text.front() == ';' || line.text.front() == '#') continue;
        const std::string_view section = trimmed(line.text);
        if (section.starts_with('[') && section.ends_with(']')) {
            inChapter = section == "[CHAPTER]";
            if (inChapter) {
                chapters.emplace_back();
                chapters.back().number = line.number;
            }
        } else if (inChapter) {
            readChapterEntry(text, line, chapters.back());
        }
    }
    std::vector<PlacedMark> marks;
    for (const Chapter& chapter : chapters) {
        if (!chapter.start) text.refuse(chapter.number, "a START= line in this chapter");
        const double start = static_cast<double>(*chapter.start) * static_cast<double>(chapter.numerator) /
                             static_cast<double>(chapter.denominator);
        marks.push_back({ChapterMark{start, chapter.title, {}, {}}, fmt::format("line {}", chapter.number)});
    }
    return marks;
}

}  // namespace quillora::publish
