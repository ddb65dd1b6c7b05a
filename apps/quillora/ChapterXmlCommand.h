#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>

namespace quillora::app {

struct ChapterXmlOptions {
    std::filesystem::path recording;
    std::filesystem::path transitions;
    std::optional<std::filesystem::path> defaults;
};

// Prints the chapter document of a lecture, the one the external chapter
// tool reads. Returns the exit status (0, or 2 for a refused input).
int runChapterXmlCommand(const ChapterXmlOptions& options, std::ostream& out, std::ostream& err);

}  // namespace quillora::app
