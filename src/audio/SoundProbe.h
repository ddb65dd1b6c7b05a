// What a media file holds in the way of sound, as FFmpeg reads it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillora::audio {

struct SoundStreamInfo {
    int index = 0;  // FFmpeg's numbering of the file's streams, all kinds counted
    std::string codecName;
    int channels = 0;
    int sampleRate = 0;
    std::optional<double> durationSeconds;
    bool decodable = false;  // this FFmpeg has a decoder for the codec
};

struct SoundInfo {
    std::vector<SoundStreamInfo> streams;   // the audio streams only, in file order
    std::optional<double> durationSeconds;  // the file's
};

// Throws AudioError when the file cannot be read as media, has no audio
// stream, or none whose codec FFmpeg can decode.
SoundInfo probeSound(const std::filesystem::path& path);

}  // namespace quillora::audio
