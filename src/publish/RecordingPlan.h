// What is done to a recording before the podcast writers see it, decided
// from the file alone and before any work: the sound track published, the
// tracks left out, and whether the sound is used as it is, rewritten around
// its own samples or encoded. Every refusal of a recording is made here, so
// a recording that cannot be published costs nothing to refuse.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "toolbox/Movie.h"

namespace quillora::publish {

// A recording that cannot be prepared; the message gives the cause and the
// way out.
class RecordingRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Offsets and sizes in the podcast's atoms are signed 32-bit numbers.
inline constexpr std::uintmax_t kLargestRecording = (std::uintmax_t{1} << 31) - 1;

struct RecordingOptions {
    std::optional<std::uint32_t> audioTrack;  // the sound track's ID; none: the first enabled one
    std::optional<std::int64_t> bitrate;      // bits per second of encoded sound
    std::optional<double> loudness;           // integrated loudness to encode at (LUFS)
};

enum class RecordingTreatment {
    asGiven,    // already in shape: the user's own file is handed on
    rewritten,  // the sound track's samples copied into a movie of the podcast's shape
    encoded,    // the sound decoded and encoded to AAC
};

struct RecordingPlan {
    std::unique_ptr<toolbox::Movie> movie;  // none: not a movie, sound of another kind (MP3, WAV, Ogg...)
    const toolbox::Track* sound = nullptr;  // the track published, one of movie's
    std::optional<int> streamIndex;         // FFmpeg's number for that track, when it is encoded
    RecordingTreatment treatment = RecordingTreatment::encoded;
    std::vector<std::string> notes;  // what is left out or done to it, one line each
};

// Throws RecordingRefused.
RecordingPlan planRecording(const std::filesystem::path& recording, const RecordingOptions& options);

}  // namespace quillora::publish
