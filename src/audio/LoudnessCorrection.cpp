#include "audio/LoudnessCorrection.h"

#include <fmt/format.h>

#include <cmath>

namespace quillora::audio {

namespace {

// Below this, R 128's absolute gate has let nothing through.
constexpr double kGateLufs = -69.95;
// A gain this small is not worth a pass through a filter.
constexpr double kNegligibleGainDb = 0.05;
// The limiter watches sample values; the peaks between samples and the
// encoder's own error at sharp attacks (a good half decibel for AAC at 64
// kbit/s) need room below the ceiling.
constexpr double kLimiterHeadroomDb = 1.5;

}  // namespace

std::string loudnessCorrectionFilters(const LoudnessMeasurement& measured, double targetLufs)
{
    if (measured.integratedLufs < kGateLufs) return "";
    const double gainDb = targetLufs - measured.integratedLufs;
    if (std::abs(gainDb) < kNegligibleGainDb) return "";
    std::string filters = fmt::format("volume={:.2f}dB:precision=float", gainDb);
    if (measured.truePeakDbtp + gainDb > kTruePeakCeilingDbtp) {
        const double limit = std::pow(10.0, (kTruePeakCeilingDbtp - kLimiterHeadroomDb) / 20);
        // latency=true keeps the sound in place instead of delaying it by the lookahead.
        filters += fmt::format(",alimiter=limit={:.4f}:level=false:latency=true", limit);
    }
    return filters;
}

}  // namespace quillora::audio
