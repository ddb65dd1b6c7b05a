#include "publish/ChapterMarks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <optional>

#include "QuickTimePlugin/TransitionKeys.h"
#include "foundation/FourCC.h"
#include "foundation/PropertyList.h"
#include "publish/ChapterFileReaders.h"
#include "publish/ClockTime.h"

namespace quillora::publish {

namespace {

// The recording's time units, as transitions give them.
constexpr double kTransitionTimeScale = 600;
// A chapter file of text is a few kilobytes; anything this large is something else.
constexpr std::uintmax_t kLargestTextFile = 16 * 1024 * 1024;
// The atoms an MPEG-4 or QuickTime file may begin with.
constexpr std::array<std::uint32_t, 7> kFirstAtoms{atom::ftyp,     atom::moov,     atom::mdat,    atom::free,
                                                   fourCC("skip"), fourCC("wide"), fourCC("pnot")};

enum class TextFormat { AudacityLabels, TimestampList, WebVtt, ChaptersJson, FFmpegMetadata };

[[noreturn]] void refuseFormat(const std::filesystem::path& file)
{
    throw ChapterMarksError(fmt::format("{} is not a chapter file this program reads: give Audacity labels, a "
                                        "timestamp list, WebVTT, Podcasting 2.0 JSON chapters, an FFmpeg metadata "
                                        "file or an MPEG-4 file with chapters",
                                        file.string()));
}

std::string readHead(const std::filesystem::path& file, std::size_t length)
{
    std::ifstream in(file, std::ios::binary);
    std::string head(length, '\0');
    in.read(head.data(), static_cast<std::streamsize>(length));
    head.resize(static_cast<std::size_t>(in.gcount()));
    return head;
}

bool looksLikeMovie(std::string_view head)
{
    if (head.size() < 8) return false;
    const auto type = readU32BE(reinterpret_cast<const std::uint8_t*>(head.data() + 4));
    return std::find(kFirstAtoms.begin(), kFirstAtoms.end(), type) != kFirstAtoms.end();
}

// Told by the first line that is not blank.
std::optional<TextFormat> textFormatOf(const ChapterText& text)
{
    if (text.text().find('\0') != std::string_view::npos) return std::nullopt;
    for (std::size_t number = 1; number <= text.lineCount(); ++number) {
        const std::string_view line = text.line(number);
        if (isBlank(line)) continue;
        if (line.starts_with(";FFMETADATA")) return TextFormat::FFmpegMetadata;
        if (isWebVttSignature(line)) return TextFormat::WebVtt;
        if (trimmed(line).starts_with('{')) return TextFormat::ChaptersJson;
        if (isAudacityLabel(line)) return TextFormat::AudacityLabels;
        if (isTimestampLine(line)) return TextFormat::TimestampList;
        return std::nullopt;
    }
    return std::nullopt;
}

std::vector<PlacedMark> readTextChapters(const std::filesystem::path& file)
{
    if (std::filesystem::file_size(file) > kLargestTextFile) refuseFormat(file);
    std::string content;
    try {
        const Bytes bytes = readWholeFile(file);
        content.assign(bytes.begin(), bytes.end());
    } catch (const std::exception& failure) {
        throw ChapterMarksError(fmt::format("The chapter file {} cannot be read: {}", file.string(), failure.what()));
    }
    const ChapterText text(file, std::move(content));
    const auto format = textFormatOf(text);
    if (!format) refuseFormat(file);
    text.requireUTF8();
    switch (*format) {
    case TextFormat::AudacityLabels:
        return readAudacityLabels(text);
    case TextFormat::TimestampList:
        return readTimestampList(text);
    case TextFormat::WebVtt:
        return readWebVttChapters(text);
    case TextFormat::ChaptersJson:
        return readChaptersJson(text);
    case TextFormat::FFmpegMetadata:
        return readFFmpegMetadataChapters(text);
    }
    refuseFormat(file);
}

// Sorted by start; a start before the recording or one that two marks share is refused.
std::vector<ChapterMark> orderedMarks(std::vector<PlacedMark> placed, const std::filesystem::path& file)
{
    for (const auto& [mark, place] : placed) {
        if (!std::isfinite(mark.start)) {
            throw ChapterMarksError(fmt::format("{}, {}: expected a time in seconds", file.string(), place));
        }
        if (mark.start < 0) {
            throw ChapterMarksError(fmt::format("{}, {}: the chapter starts before the recording ({:.3f} s); give "
                                                "a time of 0 or later",
                                                file.string(), place, mark.start));
        }
    }
    std::stable_sort(placed.begin(), placed.end(),
                     [](const PlacedMark& a, const PlacedMark& b) { return a.mark.start < b.mark.start; });
    const auto same = std::adjacent_find(placed.begin(), placed.end(), [](const PlacedMark& a, const PlacedMark& b) {
        return a.mark.start == b.mark.start;
    });
    if (same != placed.end()) {
        throw ChapterMarksError(
            fmt::format("{}, {} and {}: two chapters start at {}; give each chapter a time of its own", file.string(),
                        same->place, std::next(same)->place, clockTime(same->mark.start)));
    }
    std::vector<ChapterMark> marks;
    marks.reserve(placed.size());
    for (auto& entry : placed) marks.push_back(std::move(entry.mark));
    return marks;
}

// Rounded to the nearest unit; a time past what the units can hold is kept
// at the largest, which the transition checks then refuse by name.
std::int64_t timeValueOf(double seconds)
{
    constexpr double kLargest = 0x1p63 - 1024;  // the largest double below 2^63
    const double units = std::round(seconds * kTransitionTimeScale);
    return static_cast<std::int64_t>(std::clamp(std::isnan(units) ? 0.0 : units, -kLargest, kLargest));
}

}  // namespace

std::vector<ChapterMark> readChapterMarks(const std::filesystem::path& file)
{
    if (!std::filesystem::is_regular_file(file)) {
        throw ChapterMarksError(fmt::format("The chapter file {} does not exist", file.string()));
    }
    auto placed = looksLikeMovie(readHead(file, 8)) ? readMovieChapters(file) : readTextChapters(file);
    return orderedMarks(std::move(placed), file);
}

Value transitionsFromChapterMarks(const std::vector<ChapterMark>& marks)
{
    Array records;
    records.reserve(marks.size());
    for (const auto& mark : marks) {
        Value record = Value::dictionary({{"timeValue", timeValueOf(mark.start)}, {"slideTitle", mark.title}});
        if (mark.url) {
            record.asDictionary()->set(QRTransitionLinkURLKey,
                                       Value::dictionary({{"title", mark.title}, {"url", *mark.url}}));
        }
        if (mark.picture) record.asDictionary()->set(QRTransitionImagePathKey, mark.picture->string());
        records.push_back(std::move(record));
    }
    return Value::array(std::move(records));
}

}  // namespace quillora::publish
