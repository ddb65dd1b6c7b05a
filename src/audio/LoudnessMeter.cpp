#include "audio/LoudnessMeter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace quillora::audio {

namespace {

// The filter writes its values with three decimals; the true peak, linear,
// is rounded by up to half of the last one.
constexpr double kTruePeakRounding = 0.0005;

}  // namespace

LoudnessMeter::LoudnessMeter(const SampleShape& shape, std::string source)
    : chain_(shape, "ebur128=peak=true:metadata=1", std::move(source))
{
}

void LoudnessMeter::add(AVFrame& frame)
{
    chain_.push(frame, [this](AVFrame& measured) { read(measured); });
}

LoudnessMeasurement LoudnessMeter::finish()
{
    chain_.finish([this](AVFrame& measured) { read(measured); });
    const double peak = truePeak_ > 0 ? truePeak_ + kTruePeakRounding : 0;
    return {integratedLufs_, peak > 0 ? 20 * std::log10(peak) : -HUGE_VAL};
}

// Each frame carries the values so far: the integrated loudness of
// everything before it and the highest true peak of any channel.
void LoudnessMeter::read(const AVFrame& measured)
{
    if (const AVDictionaryEntry* integrated = av_dict_get(measured.metadata, "lavfi.r128.I", nullptr, 0)) {
        integratedLufs_ = std::strtod(integrated->value, nullptr);
    }
    if (const AVDictionaryEntry* peak = av_dict_get(measured.metadata, "lavfi.r128.true_peak", nullptr, 0)) {
        truePeak_ = std::max(truePeak_, std::strtod(peak->value, nullptr));
    }
}

}  // namespace quillora::audio
