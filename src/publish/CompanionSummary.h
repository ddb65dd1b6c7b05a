// What each companion beside a podcast holds, so that a lecturer sees what
// every app will show: chapters, pictures and links per file.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillora::publish {

struct CompanionSummary {
    std::filesystem::path file;
    std::size_t chapters = 0;
    std::size_t pictures = 0;
    std::size_t links = 0;
    std::optional<std::string> problem;  // when it cannot be read
};

// The companions found beside file (named after it, as the export names
// them): its JSON and WebVTT chapters, its MP3 and web page.
std::vector<CompanionSummary> summarizeCompanions(const std::filesystem::path& file);

}  // namespace quillora::publish
