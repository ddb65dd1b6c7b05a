// The samples a fragmented file adds to its tracks after their sample
// tables, as recorders write them while they record (a browser, a streaming
// tool): each 'moof' atom holds a 'traf' per track, whose 'trun' runs place
// samples in the media data, with the defaults of the track's 'trex' (in the
// movie atom's 'mvex') and of the fragment's own header 'tfhd'.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "foundation/FileHandle.h"
#include "toolbox/AtomTree.h"
#include "toolbox/SampleTable.h"

namespace quillora::toolbox {

// True when the file has movie fragments.
bool hasFragments(const AtomTree& tree);

// Every sample the fragments give the track, in file order, up to maximum;
// the times count on from firstTime. Fragments that cannot be read, and
// samples past maximum, are reported in problems.
void forEachFragmentSample(FileHandle& file, const AtomTree& tree, std::uint32_t trackID, std::uint64_t firstTime,
                           std::vector<std::string>& problems, std::uint64_t maximum,
                           const std::function<void(const SampleLocation&)>& visit);

}  // namespace quillora::toolbox
