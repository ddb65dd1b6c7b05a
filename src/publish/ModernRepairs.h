// What `quillora export --modern` mends in the file the plug-in wrote, in
// the scratch folder before it is staged. The plug-in keeps writing its own
// bytes; these repairs lift its limits for listeners' players.
//
// An enhanced podcast gets all of them: the tags whole in UTF-8, the link
// samples timed in 32 bits, the link text's colours as given in a text box
// the size of its track, the chapter list ('chpl'), and honest headers
// (dates of the export, the next track ID, the picture track's size, the
// text tracks' media durations). A chapterized movie (.mov) gets the headers,
// and its sound's silent start back where the recording has it.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>

#include "foundation/Value.h"
#include "layout/ColorData.h"

namespace quillora::publish {

struct ModernInputs {
    bool podcast = true;            // an enhanced podcast; false for a .mov
    Value slides = Value::array();  // the transitions the plug-in was given (screen shots merged in)
    Value tags = Value::dictionary();
    std::optional<ColorComponents> textColor;  // "textTrackFontColor"
    std::optional<ColorComponents> backgroundColor;
    double silentStartSeconds = 0;  // the recording's leading empty edit, which a .mov leaves out
    Date exportTime = std::chrono::system_clock::now();
};

// Throws PublishError, with the cause, when the file is not a movie or
// cannot be read or written.
void applyModernRepairs(const std::filesystem::path& path, const ModernInputs& inputs);

}  // namespace quillora::publish
