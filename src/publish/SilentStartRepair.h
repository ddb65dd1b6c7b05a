// A chapterized movie's sound put back where the recording has it. The movie
// writer copies a recording's sound from the end of its silent start (a
// leading empty edit), so in the .mov the sound plays that much before the
// slides; the repair puts the empty edit back before the sound's edits and
// lengthens the sound track and the movie by it.
#pragma once

#include "foundation/FileHandle.h"

namespace quillora::publish {

// Nothing is done without a sound track with an edit list (version 0).
// Throws PublishError when the movie cannot be edited.
void restoreSilentStart(FileHandle& file, double seconds);

}  // namespace quillora::publish
