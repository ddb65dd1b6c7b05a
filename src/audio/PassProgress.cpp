#include "audio/PassProgress.h"

#include <algorithm>

namespace quillora::audio {

namespace {

constexpr double kReportStep = 0.005;

}  // namespace

void PassProgress::beginPass(double share)
{
    passStart_ += passShare_;
    passShare_ = share;
    report(0);
}

void PassProgress::report(double fractionOfPass)
{
    const double fraction = std::min(passStart_ + passShare_ * std::clamp(fractionOfPass, 0.0, 1.0), 1.0);
    if (fraction >= reported_ + kReportStep) deliver(fraction);
}

void PassProgress::finish()
{
    if (reported_ < 1) deliver(1);
}

void PassProgress::deliver(double fraction)
{
    reported_ = fraction;
    if (callback_) callback_(fraction);
}

}  // namespace quillora::audio
