// The exit statuses of quillora's commands.
#pragma once

namespace quillora::app {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailed = 1;   // the export (or the file read) failed
inline constexpr int kExitRefused = 2;  // bad usage or an input refused before any work

}  // namespace quillora::app
