#pragma once

#include <filesystem>
#include <ostream>

namespace quillora::app {

// Prints the atom tree of a file; returns the process exit status.
int runAtomsCommand(const std::filesystem::path& path, std::ostream& out, std::ostream& err);

}  // namespace quillora::app
