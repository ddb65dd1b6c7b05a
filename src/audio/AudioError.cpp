#include "audio/AudioError.h"

extern "C" {
#include <libavutil/error.h>
}

namespace quillora::audio {

std::string ffmpegErrorText(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    if (av_strerror(code, text, sizeof(text)) < 0) return "error " + std::to_string(code);
    return text;
}

}  // namespace quillora::audio
