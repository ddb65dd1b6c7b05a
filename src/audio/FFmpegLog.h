// FFmpeg's own warnings and errors go to the program's log instead of
// straight to standard error, where they would break a host's progress line.
#pragma once

namespace quillora::audio {

// Installs the forwarding for the whole process, once; later calls do nothing.
void sendFFmpegMessagesToLog();

}  // namespace quillora::audio
