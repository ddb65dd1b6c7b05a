// The filters that bring a measured sound to a target integrated loudness
// without letting its true peak pass -1 dBTP: a gain, and a lookahead limiter
// when the gain would push peaks past that ceiling.
#pragma once

#include <string>

#include "audio/LoudnessMeter.h"

namespace quillora::audio {

inline constexpr double kTruePeakCeilingDbtp = -1.0;

// In FilterChain's syntax; empty when the sound is at the target already, or
// when nothing in it is loud enough to measure (silence is left silent).
std::string loudnessCorrectionFilters(const LoudnessMeasurement& measured, double targetLufs);

}  // namespace quillora::audio
