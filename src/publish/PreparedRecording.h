// The recording the podcast writers are made for, made in the scratch folder
// from whatever recording the user has: one sound track, AAC or ALAC copied
// packet for packet (any other sound decoded and encoded to AAC), the movie
// time scale 600, 8-byte atom headers, 32-bit chunk offsets, no fragments,
// the movie atom first. A recording already in that shape is used as it is.
// The user's file is never changed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "publish/RecordingPlan.h"

namespace quillora::publish {

struct PreparedRecording {
    std::filesystem::path path;  // what the plug-in is handed
    bool asGiven = false;        // the user's own file, already in shape
    double seconds = 0;
    std::uintmax_t bytes = 0;
    std::vector<std::string> notes;  // what was left out or done to it, one line each
};

// Made in scratchFolder; throws RecordingRefused.
PreparedRecording prepareRecording(const std::filesystem::path& recording, const std::filesystem::path& scratchFolder,
                                   const RecordingOptions& options);

}  // namespace quillora::publish
