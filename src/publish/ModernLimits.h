// The plug-in's limits that a lecture will show when it is exported without
// --modern: one line for each, naming the option that lifts it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace quillora::publish {

struct LectureFacts {
    bool podcast = true;  // an enhanced podcast; false for a .mov
    Value slides = Value::array();
    Value screenshots = Value::array();
    Value tags = Value::dictionary();
    bool links = false;                  // the podcast's link track is written
    std::int64_t recordingDuration = 0;  // in the transitions' units
    double silentStartSeconds = 0;       // the recording's leading empty edit
};

std::vector<std::string> limitsModernLifts(const LectureFacts& lecture);

}  // namespace quillora::publish
