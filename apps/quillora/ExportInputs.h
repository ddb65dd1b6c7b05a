// The export command's input files, read and checked before any work starts:
// a malformed file is a clear message naming the file and the problem.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include "foundation/UserDefaults.h"
#include "foundation/Value.h"

namespace quillora::app {

class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An array of transition records (JSON or property list). Every record needs
// an integer "timeValue" and an existing picture at "imagePath" (relative
// paths are taken from the file's folder); the pictures are copied into
// pictureFolder, so the user's own files are never rewritten, and each
// record's "imagePath" names its copy.
Value readTransitions(const std::filesystem::path& path, const std::filesystem::path& pictureFolder);

// A dictionary of tag names to text.
Value readTags(const std::filesystem::path& path);

// Preferences; a colour given as text ("#RRGGBB" or "#RRGGBBAA") becomes the
// colour data the writers read.
UserDefaults readDefaults(const std::filesystem::path& path);

// Checks that the recording is a movie the toolbox can open.
void checkRecording(const std::filesystem::path& path);

}  // namespace quillora::app
