// The reader of each chapter-file format. Each returns the marks in the
// file's order, each with where it stands in the file for the messages of
// the checks made on all of them together.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "publish/ChapterMarks.h"
#include "publish/ChapterText.h"

namespace quillora::publish {

struct PlacedMark {
    ChapterMark mark;
    std::string place;  // "line 7", "chapter 3"
};

// Whether a line is one of the format's, for telling the formats apart.
bool isAudacityLabel(std::string_view line);
bool isTimestampLine(std::string_view line);
bool isWebVttSignature(std::string_view line);

// start<TAB>end<TAB>label lines in seconds; spectral lines ("\...") skipped.
std::vector<PlacedMark> readAudacityLabels(const ChapterText& text);
// "00:05:20.500 Title", "[05:20] Title", "05:20 - Title", ...
std::vector<PlacedMark> readTimestampList(const ChapterText& text);
// "WEBVTT", then cues whose text is the title.
std::vector<PlacedMark> readWebVttChapters(const ChapterText& text);
// {"version": ..., "chapters": [{"startTime", "title", "img", "url"}, ...]}
std::vector<PlacedMark> readChaptersJson(const ChapterText& text);
// ";FFMETADATA1", then [CHAPTER] sections.
std::vector<PlacedMark> readFFmpegMetadataChapters(const ChapterText& text);
// The chapter track of an MPEG-4 or QuickTime file, else its chapter list.
std::vector<PlacedMark> readMovieChapters(const std::filesystem::path& file);

}  // namespace quillora::publish
