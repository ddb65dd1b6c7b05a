// A movie of one sound track of another movie, as an MPEG-4 audio file: the
// shape the podcast writers are made for. The samples are shared with the
// source and copied as they are, never decoded.
#pragma once

#include <filesystem>

#include "toolbox/Movie.h"

namespace quillora::toolbox {

// The track keeps its edits (a leading empty edit included), rescaled to the
// movie time scale given, and takes track ID 1. Written movie atom first,
// with 8-byte atom headers and 32-bit chunk offsets, for a scratch folder
// (not flushed to the disk); false when it cannot be written (nothing is
// left then).
bool writeSoundMovie(const Track& sound, TimeScale movieTimeScale, const std::filesystem::path& path);

}  // namespace quillora::toolbox
