// The chapter document a host writes for ChapterTool, read back as the
// transition records our track writers take.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>

#include "foundation/Value.h"

namespace quillora::chaptertool {

class DocumentError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One transition record per "chapter": "timeValue" (its "starttime" in the
// time scale), "slideTitle" (a chapter without a title is a build step of
// the slide before and keeps its title), "imagePath" (percent escapes
// undone) and, when the chapter has a link, "linkURL" {"title", "url"}.
// Throws DocumentError naming what is wrong.
Value readChapterDocument(const std::filesystem::path& path, std::uint32_t timeScale);

}  // namespace quillora::chaptertool
