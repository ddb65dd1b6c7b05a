// Measures a sound's EBU R 128 integrated loudness and true peak as its
// frames go by, through libavfilter's ebur128 filter.
#pragma once

#include <string>

#include "audio/FilterChain.h"

namespace quillora::audio {

struct LoudnessMeasurement {
    double integratedLufs = 0;  // -70 (the gate) or below: nothing loud enough to count
    double truePeakDbtp = 0;
};

class LoudnessMeter {
public:
    LoudnessMeter(const SampleShape& shape, std::string source);

    void add(AVFrame& frame);
    LoudnessMeasurement finish();

private:
    void read(const AVFrame& measured);

    FilterChain chain_;
    double integratedLufs_ = -70;
    double truePeak_ = 0;  // linear
};

}  // namespace quillora::audio
