// Opening a media file for its sound, and choosing the sound stream to read,
// with the refusals a user can act on.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "audio/FFmpegPointers.h"

namespace quillora::audio {

// Opens the file and reads its streams' parameters; throws AudioError when
// FFmpeg cannot read it (missing, unreadable, not media).
InputFormatPointer openMediaFile(const std::filesystem::path& path);

// The codec's name, or its tag when FFmpeg does not know the codec.
std::string describeCodec(const AVCodecParameters& parameters);

// The stream to decode: the one asked for (FFmpeg's numbering), else the first
// audio stream FFmpeg can decode. Throws AudioError when the asked stream is
// not sound, or when no sound in the file can be decoded.
AVStream* chooseSoundStream(const AVFormatContext& file, const std::filesystem::path& path,
                            std::optional<int> streamIndex);

}  // namespace quillora::audio
