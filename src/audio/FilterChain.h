// A chain of libavfilter's audio filters, in FFmpeg's filter syntax
// ("volume=6dB,alimiter=limit=0.8"), that takes frames of one shape and
// gives frames of the same shape.
#pragma once

#include <string>

#include "audio/SampleShape.h"

namespace quillora::audio {

class FilterChain {
public:
    // `source` names the input in messages.
    FilterChain(const SampleShape& shape, const std::string& filters, std::string source);

    // Filters the frame (the chain takes its own reference) and hands over
    // whatever the chain has ready.
    void push(AVFrame& frame, const FrameTaker& take);
    // Ends the input and hands over what the filters still hold.
    void finish(const FrameTaker& take);

private:
    void pull(const FrameTaker& take);
    [[noreturn]] void fail(const char* doing, int status) const;

    std::string filters_;
    std::string source_;
    FilterGraphPointer graph_;
    AVFilterContext* input_ = nullptr;
    AVFilterContext* output_ = nullptr;
    FramePointer filtered_;
};

}  // namespace quillora::audio
