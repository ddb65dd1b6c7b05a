#include "publish/WebVtt.h"

#include <fmt/format.h>

#include <algorithm>

#include "publish/ClockTime.h"
#include "publish/StagedOutput.h"
#include "publish/TextEscaping.h"

namespace quillora::publish {

namespace {

// A cue's text ends at the first blank line, so a title keeps to one line.
std::string oneLine(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

}  // namespace

void writeWebVtt(const PublishedLecture& lecture, const std::filesystem::path& vttPath)
{
    std::string text = "WEBVTT\n";
    for (std::size_t i = 0; i < lecture.chapters.size(); ++i) {
        const auto& chapter = lecture.chapters[i];
        text += fmt::format("\n{}\n{} --> {}\n{}\n", i + 1, clockTime(chapter.start),
                            clockTime(std::max(chapter.end, chapter.start)), escapeMarkup(oneLine(chapter.title)));
    }
    writeWholeFile(vttPath, text);
}

}  // namespace quillora::publish
