// A recording's sound as MP3, made with LAME through libavcodec, with the
// Xing/LAME header that tells players its exact length and no ID3 tag (the
// tags are written afterwards, by the metadata writer).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "audio/ProgressCallback.h"

namespace quillora::audio {

struct Mp3Settings {
    // As FFmpeg numbers the file's streams; none: the first decodable sound stream.
    std::optional<int> streamIndex;
    // Bits per second; none: 64 kbit/s mono, 128 kbit/s stereo.
    std::optional<std::int64_t> bitrate;
};

// Channels, sample rate, memory and errors as for encodeAac.
void encodeMp3(const std::filesystem::path& input, const std::filesystem::path& output, const Mp3Settings& settings,
               const ProgressCallback& progress = {});

}  // namespace quillora::audio
