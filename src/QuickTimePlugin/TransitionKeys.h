// The keys of a transition record that the plug-in publishes, and the
// "application" value that marks a screen shot.
#pragma once

namespace quillora {

inline constexpr const char* QRTransitionImagePathKey = "imagePath";
inline constexpr const char* QRTransitionLinkURLKey = "linkURL";
inline constexpr const char* QRTransitionApplicationKey = "application";
inline constexpr const char* QRScreenshotApplicationName = "screenshot";

}  // namespace quillora
