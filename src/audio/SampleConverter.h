// Turns decoded frames, whatever their sample format, rate and channel layout,
// into one shape through libswresample; more than two channels are mixed down
// by its default matrix. The converted frames are numbered in samples of the
// target rate from 0. A change of the decoded form mid-stream finishes the
// old conversion and starts a new one.
#pragma once

#include <cstdint>
#include <string>

#include "audio/SampleShape.h"

namespace quillora::audio {

class SampleConverter {
public:
    // `source` names the input in messages.
    SampleConverter(const SampleShape& target, std::string source);
    ~SampleConverter();
    SampleConverter(const SampleConverter&) = delete;
    SampleConverter& operator=(const SampleConverter&) = delete;

    void convert(const AVFrame& decoded, const FrameTaker& take);
    // Hands over what the resampler still holds.
    void finish(const FrameTaker& take);

private:
    void start(const AVFrame& decoded, const AVChannelLayout& layout);
    // Converts `count` samples (none: flushes) and hands over the result.
    int run(const std::uint8_t** input, int count, const FrameTaker& take);
    void reserve(int samples);

    SampleShape target_;
    std::string source_;
    ResamplerPointer resampler_;
    AVChannelLayout sourceLayout_{};
    int sourceRate_ = 0;
    int sourceFormat_ = AV_SAMPLE_FMT_NONE;
    FramePointer converted_;
    int capacity_ = 0;
    std::int64_t nextPts_ = 0;
};

}  // namespace quillora::audio
