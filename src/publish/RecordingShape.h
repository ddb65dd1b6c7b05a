// What a recording must look like for the podcast writers to edit it as it
// is: one sound track the toolbox copies packet for packet, in the movie
// time scale the atom-built tracks count in, with the atoms the 32-bit
// engine reads.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "toolbox/Movie.h"

namespace quillora::publish {

// The time scale of the tracks the podcast writers build, and so of the
// prepared recording's movie: transition times are 1/600 s.
inline constexpr toolbox::TimeScale kPodcastTimeScale = 600;

// The sound's coding as its first sample description says: the four-character
// format ('mp4a', 'alac', 'samr', 'lpcm', ...).
std::uint32_t soundFormat(const toolbox::Media& media);

// AAC (an 'mp4a' description whose decoder configuration names MPEG-4 or
// MPEG-2 AAC) or ALAC: sound copied as it is, never encoded again.
bool isCopiedSound(const toolbox::Media& media);

// Why the file cannot be handed to the podcast writers as it is (the first
// reason found), or nothing when it can: its one track is sound, copied as
// it is, with a track ID the new tracks leave free; the movie time scale is
// 600; every atom has an 8-byte header and its true size; the chunk offsets
// are 32-bit; no fragments; no movie-level or header-less metadata.
std::optional<std::string> reasonToRewrite(const std::filesystem::path& path, const toolbox::Movie& movie);

}  // namespace quillora::publish
