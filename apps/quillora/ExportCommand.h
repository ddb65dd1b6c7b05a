#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "ExitStatus.h"

namespace quillora::app {

struct ExportOptions {
    std::filesystem::path recording;
    std::optional<std::filesystem::path> transitions;
    std::optional<std::filesystem::path> chapters;  // marks in any chapter format, instead of transitions
    std::optional<std::filesystem::path> slides;    // a PDF or a folder of pictures for the transitions or chapters
    std::optional<std::string> slidesFor;           // which slide each of them takes: "1-3,5,7-"
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
    // How the recording is prepared: which sound track, and for sound that
    // is encoded, its bit rate and loudness.
    std::optional<std::uint32_t> audioTrack;
    std::optional<std::int64_t> bitrate;
    std::optional<double> loudness;
    // Companions beside the output ("chapters-json", "webvtt", "web", "mp3"),
    // where they are published, and the episode artwork.
    std::vector<std::string> also;
    std::string baseUrl;
    std::optional<std::filesystem::path> cover;
    bool modern = false;  // repair the plug-in's result (also the preference "modernOutput")
};

// Exports a recording through the QuickTime plug-in module; returns the
// process exit status.
int runExportCommand(const ExportOptions& options, std::istream& in, std::ostream& out, std::ostream& err);

}  // namespace quillora::app
