// The movie's headers told as they are: the movie and the tracks the export
// made dated at the export, the next track ID past the last track, the
// picture track as large as its pictures, the text tracks' media durations
// readable (big-endian, the sum of their samples).
#pragma once

#include "foundation/FileHandle.h"
#include "foundation/Value.h"
#include "publish/MovieHeaderAtoms.h"

namespace quillora::publish {

// Overwrites header fields in place; nothing moves.
void writeHonestHeaders(FileHandle& file, const MovieNodes& movie, Date exportTime);

}  // namespace quillora::publish
