// The episode artwork: a square JPEG that podcast directories take.
#pragma once

#include <filesystem>

namespace quillora::publish {

// The picture's centre square (upright by its orientation tag), in sRGB at
// quality 90. Its side is the square's own, brought up to 1400 pixels when
// smaller and down to 3000 when larger: directories refuse artwork outside
// those bounds, and a slightly soft cover beats a refused one. Transparent
// parts are laid on white. Writes everything or throws PublishError.
void makeCover(const std::filesystem::path& sourcePicture, const std::filesystem::path& outputJpeg);

}  // namespace quillora::publish
