#pragma once

#include <filesystem>
#include <ostream>

namespace quillora::app {

// Prints what a published file holds (tracks, chapters, pictures, links,
// notes, tags); returns the process exit status: 0, 1 for a file that is
// not a movie or cannot be read, 2 when parts of it are damaged.
int runInspectCommand(const std::filesystem::path& path, std::ostream& out, std::ostream& err);

}  // namespace quillora::app
