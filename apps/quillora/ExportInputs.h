// The export command's input files, read and checked before any work starts:
// a malformed file is a clear message naming the file and the problem.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "InputChecks.h"
#include "foundation/UserDefaults.h"
#include "foundation/Value.h"

namespace quillora::app {

class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A JSON or property-list file; what names it in the messages ("The tags
// file") when it is missing or cannot be read.
Value readInputFile(const std::filesystem::path& path, std::string_view what);

// The lecturer's slides apart from the records: a deck (a PDF or a folder
// of pictures) whose slide N goes with record N, or with the records that
// slidesFor ("1-3,5,7-") lists.
struct SlideChoice {
    std::optional<std::filesystem::path> deck;
    std::optional<std::string> slidesFor;
};

// Transition records, each checked as InputChecks says: times that increase
// within the recording, texts a sample can hold, a picture at "imagePath"
// (relative paths are taken from the file's folder; "deck.pdf#page=3" names
// a page) that the image library can read. PDF pages are drawn into
// pictureFolder, and the other pictures copied there, so the user's own
// files are never rewritten; each record's "imagePath" names its copy (a
// turned photo's copy is upright, a picture far larger than the frame is
// reduced).
// Records none of which has a picture make a lecture without pictures.
struct Transitions {
    Value records;
    std::vector<std::filesystem::path> pictures;  // the user's own files, in record order
    std::vector<std::string> warnings;            // what the export will do otherwise than asked
    std::optional<double> largestFrame;           // the most the resizer's frame can be, from these pictures
    bool pictured = true;                         // false: no record has a picture
};

// From a JSON array or property list of transition records.
Transitions readTransitions(const std::filesystem::path& path, const std::filesystem::path& pictureFolder,
                            std::uint64_t recordingDuration, const TransitionRules& rules,
                            const SlideChoice& slides = {});

// From a chapter file of any format readChapterMarks knows. Marks that fall
// on the same 1/600 s are refused, naming both; a mark without a picture
// among marks with pictures shows the picture before it (the first picture,
// before the first).
Transitions readChapters(const std::filesystem::path& path, const std::filesystem::path& pictureFolder,
                         std::uint64_t recordingDuration, const TransitionRules& rules, const SlideChoice& slides = {});

// A dictionary of tag names to text.
Value readTags(const std::filesystem::path& path);

// Preferences; a colour given as text (a CSS name, #RGB, #RGBA, #RRGGBB or
// #RRGGBBAA) becomes the colour data the writers read; anything that is no
// colour is refused, naming the key.
UserDefaults readDefaults(const std::filesystem::path& path);

}  // namespace quillora::app
