// A job's progress made of passes over the sound, each taking its share of
// the whole: reports go to the callback when they moved by half a percent,
// never backwards, and 1 once at the end.
#pragma once

#include "audio/ProgressCallback.h"

namespace quillora::audio {

class PassProgress {
public:
    explicit PassProgress(const ProgressCallback& callback) : callback_(callback) {}

    // The next pass begins where the last ended and covers `share` of the job.
    void beginPass(double share);
    void report(double fractionOfPass);
    void finish();

private:
    void deliver(double fraction);

    const ProgressCallback& callback_;
    double passStart_ = 0;
    double passShare_ = 0;
    double reported_ = -1;
};

}  // namespace quillora::audio
