// The link track as players should read it: each sample lasting until the
// next slide in 32 bits (the plug-in keeps only 16, so a slide longer than
// 54.6 s puts every later link at the wrong time), and its timed-text
// description with the colours as given and a text box the size of the track.
#pragma once

#include <optional>

#include "foundation/FileHandle.h"
#include "foundation/Value.h"
#include "layout/ColorData.h"
#include "publish/MovieHeaderAtoms.h"

namespace quillora::publish {

// slides: the transitions the plug-in was given. A link track whose sample
// count is not the number of slides is left as it is (and logged).
void timeLinkSamples(FileHandle& file, const TrackNodes& linkTrack, const Value& slides);

// Colours left out stay black on transparent, as the plug-in writes them.
void styleLinkText(FileHandle& file, const TrackNodes& linkTrack, const std::optional<ColorComponents>& textColor,
                   const std::optional<ColorComponents>& backgroundColor);

}  // namespace quillora::publish
