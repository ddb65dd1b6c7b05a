#include "audio/FFmpegLog.h"

#include <cstdarg>
#include <mutex>
#include <string>

extern "C" {
#include <libavutil/log.h>
}

#include "foundation/Log.h"

namespace quillora::audio {

namespace {

void forwardToLog(void* object, int level, const char* format, va_list arguments)
{
    // Informational chatter stays out; what FFmpeg warns about is worth a line.
    if (level > AV_LOG_WARNING) return;
    // FFmpeg tracks per call whether a line is starting, to prefix it with the
    // component's name; calls may come from any thread.
    thread_local int printPrefix = 1;
    char line[1024];
    av_log_format_line2(object, level, format, arguments, line, sizeof(line), &printPrefix);
    std::string text(line);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    if (!text.empty()) logLine("FFmpeg: " + text);
}

}  // namespace

void sendFFmpegMessagesToLog()
{
    static std::once_flag installed;
    std::call_once(installed, [] { av_log_set_callback(forwardToLog); });
}

}  // namespace quillora::audio
