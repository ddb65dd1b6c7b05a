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

// An array of transition records (JSON or property list), each checked as
// InputChecks says: times that increase within the recording, texts a
// sample can hold, a picture at "imagePath" (relative paths are taken from
// the file's folder) that the image library can read. The pictures are then
// copied into pictureFolder, so the user's own files are never rewritten,
// and each record's "imagePath" names its copy; a turned photo's copy is
// upright, a picture far larger than the frame is reduced.
struct Transitions {
    Value records;
    std::vector<std::filesystem::path> pictures;  // the user's own files, in record order
    std::vector<std::string> warnings;            // what the export will do otherwise than asked
    std::optional<double> largestFrame;           // the most the resizer's frame can be, from these pictures
};
Transitions readTransitions(const std::filesystem::path& path, const std::filesystem::path& pictureFolder,
                            std::uint64_t recordingDuration, const TransitionRules& rules);

// A dictionary of tag names to text.
Value readTags(const std::filesystem::path& path);

// Preferences; a colour given as text (a CSS name, #RGB, #RGBA, #RRGGBB or
// #RRGGBBAA) becomes the colour data the writers read; anything that is no
// colour is refused, naming the key.
UserDefaults readDefaults(const std::filesystem::path& path);

}  // namespace quillora::app
