// The run-length records of the 'stts' and 'stsc' tables, as both the
// readers and the writers of sample tables hold them.
#pragma once

#include <cstdint>

namespace quillora {

struct TimeToSampleRun {
    std::uint32_t count = 0;
    std::uint32_t duration = 0;
};
struct SampleToChunkRun {
    std::uint32_t firstChunk = 0;
    std::uint32_t samplesPerChunk = 0;
    std::uint32_t descriptionIndex = 1;
};

}  // namespace quillora
