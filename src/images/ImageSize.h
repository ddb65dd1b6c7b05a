// The size of a picture in points, as a page-layout program sees it:
// pixels scaled by 72 over the picture's resolution.
#pragma once

#include <filesystem>
#include <optional>

namespace quillora {

struct PointSize {
    int width = 0;
    int height = 0;
};

// Rounded to whole points; 72 dpi when the file states no resolution. The
// resizer's pictures state 72 dpi, so for them this is the size in pixels.
// Nothing when the picture cannot be read.
std::optional<PointSize> imageSizeInPoints(const std::filesystem::path& path);

}  // namespace quillora
