// The exit statuses of quillora's commands.
#pragma once

namespace quillora::app {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailed = 1;   // the export (or the file read) failed
inline constexpr int kExitRefused = 2;  // bad usage or an input refused before any work
// An export stopped by a signal: 128 + the signal, as a shell reports a
// program the signal ended.
inline constexpr int kExitHangUp = 129;       // the terminal was closed
inline constexpr int kExitInterrupted = 130;  // Ctrl-C
inline constexpr int kExitPipeClosed = 141;   // the reader of the output has gone
inline constexpr int kExitTerminated = 143;   // asked to stop

}  // namespace quillora::app
