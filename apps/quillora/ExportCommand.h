#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace quillora::app {

struct ExportOptions {
    std::filesystem::path recording;
    std::optional<std::filesystem::path> transitions;
    std::optional<std::filesystem::path> screenshots;
    std::optional<std::filesystem::path> tags;
    std::optional<std::filesystem::path> defaults;
    std::optional<std::string> format;
    std::optional<std::filesystem::path> templateFile;
    std::optional<std::filesystem::path> scratch;
    std::optional<std::filesystem::path> output;
    bool verbose = false;
    bool keepScratch = false;
    std::vector<std::filesystem::path> pluginFolders;
    std::string pipeline = "in-place";  // or "tools"
};

// The exit statuses of quillora's commands.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailed = 1;   // the export (or the file read) failed
inline constexpr int kExitRefused = 2;  // bad usage or an input refused before any work

// Exports a recording through the QuickTime plug-in module; returns the
// process exit status.
int runExportCommand(const ExportOptions& options, std::istream& in, std::ostream& out, std::ostream& err);

}  // namespace quillora::app
