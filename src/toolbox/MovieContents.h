// What a lecturer checks in a published file, read from its atoms without
// the editing engine: the tracks, the chapters, the slide pictures, the
// links, the notes and the tags. Damaged tables are reported, never trusted.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace quillora::toolbox {

class NotAMovie : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct TrackSummary {
    std::uint32_t trackID = 0;
    std::uint32_t handlerType = 0;
    std::uint32_t sampleCount = 0;
    double seconds = 0;
};

// A chapter, a link or a note: one sample of a text track.
struct TimedText {
    double start = 0;  // seconds
    double duration = 0;
    std::string text;
    std::string url;  // links only
};

struct TextTrackContents {
    std::uint32_t trackID = 0;  // 0 when the file has no such track
    std::vector<TimedText> samples;
};

struct PictureTrack {
    std::uint32_t trackID = 0;
    std::uint32_t format = 0;  // 'jpeg', 'png ', ...
    std::uint32_t count = 0;
    std::uint16_t width = 0;
    std::uint16_t height = 0;
};

struct TagItem {
    std::uint32_t type = 0;  // '©nam', 'tvsh', ...; 0 for a movie's own ('mdta') items
    std::string value;
    std::string key;  // the reverse-DNS name of an 'mdta' item
};

struct MovieContents {
    std::uint32_t timeScale = 0;
    double seconds = 0;
    std::vector<TrackSummary> tracks;
    TextTrackContents chapters;  // the text track the first track's 'chap' reference names
    std::vector<TimedText> chapterList;  // 'chpl' in the movie's user data (starts and names only)
    std::vector<PictureTrack> pictures;
    TextTrackContents links;  // a text track whose samples carry 'href' atoms
    TextTrackContents notes;  // any other text track
    std::vector<TagItem> tags;
    std::vector<std::string> problems;
};

// Throws NotAMovie for a file without a movie header, FileError when the
// file cannot be read.
MovieContents readMovieContents(const std::filesystem::path& path);

}  // namespace quillora::toolbox
