// The one exception the sound layer throws. Its message names the file, says
// what is wrong and what to do, and carries FFmpeg's own cause when there is one.
#pragma once

#include <stdexcept>
#include <string>

namespace quillora::audio {

class AudioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// FFmpeg's text for one of its error codes ("No space left on device").
std::string ffmpegErrorText(int code);

}  // namespace quillora::audio
