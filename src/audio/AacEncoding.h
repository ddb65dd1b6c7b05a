// A recording's sound as AAC-LC in an MPEG-4 audio file (.m4a) with one sound
// track, made with libavcodec's own AAC encoder.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "audio/ProgressCallback.h"

namespace quillora::audio {

struct AacSettings {
    // The stream to encode, as FFmpeg numbers the file's streams; none: the
    // first sound stream FFmpeg can decode.
    std::optional<int> streamIndex;
    // Bits per second; none: 64 kbit/s mono, 96 kbit/s stereo.
    std::optional<std::int64_t> bitrate;
    // Integrated loudness to bring the sound to (LUFS, e.g. -16), its true
    // peak kept under -1 dBTP; measured in a first pass.
    std::optional<double> targetLoudness;
};

// More than two channels are mixed down to stereo; the sample rate is kept
// when AAC takes it, else made 48000 or 44100 Hz. Memory stays flat however
// long the recording is. Throws AudioError naming the file and the cause;
// the output is then left as it was, with no partial file.
void encodeAac(const std::filesystem::path& input, const std::filesystem::path& output, const AacSettings& settings,
               const ProgressCallback& progress = {});

}  // namespace quillora::audio
