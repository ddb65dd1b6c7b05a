#pragma once

#include <filesystem>
#include <iosfwd>
#include <vector>

namespace quillora::app {

// Lists the plug-ins found with their titles and descriptions.
int runPluginsCommand(const std::vector<std::filesystem::path>& folders, std::ostream& out, std::ostream& err);

}  // namespace quillora::app
