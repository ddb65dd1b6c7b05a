// The running program, and the folder it was started from: the plug-ins,
// tools and resources an installed copy ships beside it are looked for there
// first.
#pragma once

#include <filesystem>
#include <optional>

namespace quillora::app {

std::optional<std::filesystem::path> programPath();
std::optional<std::filesystem::path> programFolder();

}  // namespace quillora::app
