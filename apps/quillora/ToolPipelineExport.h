// The export through the external tools: the plug-in's chapter document,
// ChapterTool to make the podcast from it, AtomicParsley to tag it.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>

#include "host/quilloraPlugin.h"

namespace quillora::app {

// The tools the host ships: "tools" beside the program, else the build's.
std::string auxiliaryToolsFolder();

// Runs the plug-in's createM4AFile to output, waits for the tools' reports
// and tags the result with its setID3Tags; a failure is shown as the
// plug-in's alert. Returns the exit
// status: 0 success, 1 failed export, 2 a tool is missing.
int runToolPipelineExport(quilloraPlugin& plugin, const Value& params, const std::string& output, std::ostream& err);

}  // namespace quillora::app
