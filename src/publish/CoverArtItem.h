// The episode artwork in the podcast itself: a 'covr' item in the iTunes
// item list the plug-in wrote, added through the atom engine after the
// export, as the chapter list is.
#pragma once

#include <filesystem>

namespace quillora::publish {

// The JPEG or PNG picture as the item list's cover, replacing an earlier one.
// Throws PublishError when the file has no item list or cannot be edited.
void addCoverArt(const std::filesystem::path& podcast, const std::filesystem::path& picture);

}  // namespace quillora::publish
