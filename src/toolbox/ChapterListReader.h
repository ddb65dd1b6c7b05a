// The chapter list ('chpl' in the movie's user data) that audio editors and
// ffmpeg write beside, or instead of, a chapter track: each chapter's start
// in 100-nanosecond units and its UTF-8 name.
#pragma once

#include <string>
#include <vector>

#include "foundation/FileHandle.h"
#include "toolbox/AtomTree.h"
#include "toolbox/MovieContents.h"

namespace quillora::toolbox {

// The list's chapters in stored order; the list keeps no lengths, so each
// duration is 0. Empty when the movie has no list; a list cut short gives
// the chapters read before the cut and a line in problems.
std::vector<TimedText> readChapterList(FileHandle& file, const AtomTree& tree, std::vector<std::string>& problems);

}  // namespace quillora::toolbox
