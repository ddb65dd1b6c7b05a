// The host's side of preparing a recording: the progress display while it
// is encoded, one line for each thing left out or done to it, and a refusal
// as an input error.
#pragma once

#include <filesystem>
#include <iosfwd>

#include "publish/PreparedRecording.h"

namespace quillora::app {

// The recording the plug-in is handed (the user's own when it is in shape,
// else one made in the scratch folder). Throws InputError.
std::filesystem::path prepareRecordingInScratch(const std::filesystem::path& recording,
                                                const publish::RecordingOptions& options,
                                                const std::filesystem::path& scratch, std::ostream& out, bool verbose);

}  // namespace quillora::app
