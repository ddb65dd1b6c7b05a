// The wall-clock side of a recording: the stretches of recording between
// pauses (start, stop, start, stop...) and the date of each slide change.
// A host that kept no dates gets them made from the recording itself.
#pragma once

#include <cstdint>
#include <filesystem>

#include "foundation/Value.h"

namespace quillora {

// One stretch as long as the recording, ending when the file was last written.
Value startStopDatesForRecording(const Date& end, double durationSeconds);

// Gives every transition without a "date" the date its "timeValue" (in the
// recording's time scale, pauses left out) falls on within the stretches.
void addMissingTransitionDates(const Value& transitions, const Value& startStopRecordingDates, std::uint32_t timeScale);

}  // namespace quillora
