// A lecture without pictures keeps its chapters. The plug-in draws a
// lecture's pictures before it writes any track and gives up on the
// chapters of one that has none, so the host gives it no slides and adds
// the chapter track, with "supportForURL" the link track and with
// "addChapterList" the chapter list, to the file it made, under the track IDs the plug-in gives them (2 and 4, no 3).
#pragma once

#include <filesystem>

#include "foundation/Value.h"

namespace quillora::publish {

// records: the checked transition records ("timeValue", "slideTitle",
// "linkURL"); recording: the prepared recording, whose duration the chapter
// track spans. Throws PublishError.
void addChaptersWithoutPictures(const std::filesystem::path& podcast, const Value& records,
                                const std::filesystem::path& recording, const std::filesystem::path& scratch);

}  // namespace quillora::publish
