#pragma once

#include <filesystem>
#include <iosfwd>

namespace quillora::app {

// Exports a movie's sound track as a handheld-player movie (.m4v). The
// result is written beside the output under a temporary name and renamed
// onto it only when the export succeeded; returns the exit status. The
// export's log lines are shown when it fails, or always when verbose.
int runExportDeviceCommand(const std::filesystem::path& movie, const std::filesystem::path& output, bool cleanAperture,
                           bool verbose, std::ostream& out, std::ostream& err);

}  // namespace quillora::app
