// The cover a recording already carries, to start the episode artwork from.
#pragma once

#include <filesystem>
#include <optional>

namespace quillora::publish {

// The 'covr' item of an MPEG-4 file's iTunes metadata (moov/udta/meta/ilst),
// written as outputStem plus ".jpg", ".png" or ".bmp" by its kind. Returns
// the file written, or nothing when the recording has no such picture.
// Throws PublishError when the recording cannot be read or the file written.
std::optional<std::filesystem::path> extractRecordingCover(const std::filesystem::path& recording,
                                                           const std::filesystem::path& outputStem);

}  // namespace quillora::publish
