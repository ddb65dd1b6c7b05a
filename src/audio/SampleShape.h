// The form of the samples one stage hands the next: sample format, rate and
// channel count (1 or 2, in FFmpeg's default layout for that count).
#pragma once

#include <functional>

#include "audio/FFmpegPointers.h"

namespace quillora::audio {

struct SampleShape {
    AVSampleFormat format = AV_SAMPLE_FMT_FLTP;
    int sampleRate = 0;
    int channels = 0;

    AVChannelLayout layout() const
    {
        AVChannelLayout made{};
        av_channel_layout_default(&made, channels);
        return made;
    }
};

// Where a stage hands its frames. The frame stays the stage's: a taker that
// keeps samples copies them or takes a reference.
using FrameTaker = std::function<void(AVFrame& frame)>;

}  // namespace quillora::audio
