// Reads arbitrary bytes as a movie, as quillora inspect does: every input
// must end with its contents and problems listed, or as "not a movie",
// in time linear in its size.
#include <cstdint>

#include "MemoryFile.h"
#include "foundation/FileHandle.h"
#include "toolbox/MovieContents.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        quillora::toolbox::readMovieContents(quillora::fuzz::memoryFileWith(data, size));
    } catch (const quillora::toolbox::NotAMovie&) {
    }
    return 0;
}
