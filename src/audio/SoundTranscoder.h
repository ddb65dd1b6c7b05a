// The decoding, conversion and encoding shared by every output format: a
// stream of a media file decoded frame by frame, converted to the encoder's
// form (two channels at most), optionally brought to a target loudness after
// a first pass that measures it, and encoded into a new file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "audio/ProgressCallback.h"
#include "audio/SoundWriter.h"

namespace quillora::audio {

struct TranscodeRequest {
    EncoderChoice encoding;
    std::optional<int> streamIndex;
    std::int64_t monoBitrate = 0;          // bits per second, for one channel stored
    std::int64_t stereoBitrate = 0;        // for two
    std::optional<std::int64_t> bitrate;   // overrides both
    std::optional<double> targetLoudness;  // LUFS
};

void transcodeSound(const std::filesystem::path& input, const std::filesystem::path& output,
                    const TranscodeRequest& request, const ProgressCallback& progress);

}  // namespace quillora::audio
