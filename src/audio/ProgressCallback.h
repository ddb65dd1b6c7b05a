// How far a long sound job has got: a fraction from 0 to 1 of the whole job,
// called now and then (not per frame), never going backwards, 1 at the end.
#pragma once

#include <functional>

namespace quillora::audio {

using ProgressCallback = std::function<void(double fraction)>;

}  // namespace quillora::audio
