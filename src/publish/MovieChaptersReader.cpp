// A published MPEG-4 or QuickTime file keeps its chapters when it is
// published again: those of its chapter track, which players show, or else
// those of the chapter list that some editors write alone.
#include <fmt/format.h>

#include "foundation/FileHandle.h"
#include "foundation/Log.h"
#include "publish/ChapterFileReaders.h"
#include "toolbox/MovieContents.h"

namespace quillora::publish {

std::vector<PlacedMark> readMovieChapters(const std::filesystem::path& file)
{
    toolbox::MovieContents contents;
    try {
        contents = toolbox::readMovieContents(file);
    } catch (const toolbox::NotAMovie& failure) {
        throw ChapterMarksError(
            fmt::format("{} looks like an MPEG-4 file but cannot be read as one: {}", file.string(), failure.what()));
    } catch (const FileError& failure) {
        throw ChapterMarksError(fmt::format("{} cannot be read: {}", file.string(), failure.what()));
    }
    for (const auto& problem : contents.problems) logf("{}: {}", file.string(), problem);
    const bool fromTrack = !contents.chapters.samples.empty();
    const auto& chapters = fromTrack ? contents.chapters.samples : contents.chapterList;
    if (chapters.empty()) {
        throw ChapterMarksError(fmt::format(
            "{} is an MPEG-4 file without chapters: it has neither a chapter track nor a chapter list", file.string()));
    }
    std::vector<PlacedMark> marks;
    for (const auto& chapter : chapters) {
        ChapterMark mark{chapter.start, chapter.text, {}, {}};
        if (!chapter.url.empty()) mark.url = chapter.url;
        marks.push_back(
            {std::move(mark), fmt::format("{} {}", fromTrack ? "chapter" : "chapter list entry", marks.size() + 1)});
    }
    return marks;
}

}  // namespace quillora::publish
