// Reads arbitrary bytes as a transitions, tags or preferences file: JSON, an
// XML or a binary property list. Any input must end in a value or a
// FormatError, never a crash, a hang or a stack overflow.
#include <cstdint>

#include "MemoryFile.h"
#include "foundation/PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        quillora::readValueFile(quillora::fuzz::memoryFileWith(data, size));
    } catch (const quillora::FormatError&) {
    }
    return 0;
}
