// NAME.chapters.vtt: the chapters as WebVTT cues, for a web player's
// <track kind="chapters">.
#pragma once

#include <filesystem>

#include "publish/PublishedLecture.h"

namespace quillora::publish {

// "WEBVTT", then one numbered cue per chapter from its start to its end, its
// text the title. Writes everything or throws PublishError.
void writeWebVtt(const PublishedLecture& lecture, const std::filesystem::path& vttPath);

}  // namespace quillora::publish
