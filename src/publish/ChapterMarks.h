// A lecturer's chapter marks from outside the lecture host: an audio
// editor's labels, a list of timestamps, a subtitle-style chapter file, a
// podcast's JSON chapters, an ffmpeg metadata file or a published MPEG-4
// file. The format is told from the content, so a file's extension never
// matters.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace quillora::publish {

class ChapterMarksError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct ChapterMark {
    double start = 0;   // seconds from the start of the recording
    std::string title;  // may be empty: the export names blank titles
    std::optional<std::string> url;
    std::optional<std::filesystem::path> picture;  // a local file, made absolute
};

// The marks sorted by start. Throws ChapterMarksError for a file of no known
// format, a line that cannot be read (with its number and what was expected
// there), a negative start or two marks at the same start. A picture on the
// web cannot be fetched: it is logged and left out.
std::vector<ChapterMark> readChapterMarks(const std::filesystem::path& file);

// The transition records the export reads: "timeValue" in the recording's
// 1/600 s, "slideTitle", "linkURL" {"title", "url"} for a mark with a link
// and "imagePath" for one with a picture.
Value transitionsFromChapterMarks(const std::vector<ChapterMark>& marks);

}  // namespace quillora::publish
