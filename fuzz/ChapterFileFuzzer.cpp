// Reads arbitrary bytes as a lecturer's chapter file, of whatever format its
// content suggests: every input must end in marks or a ChapterMarksError,
// never a crash or a hang.
#include <cstdint>

#include "MemoryFile.h"
#include "foundation/Log.h"
#include "publish/ChapterMarks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The readers log what they leave out; thousands of runs a second need no log.
    static const bool silenced = (quillora::setLogSink([](std::string_view) {}), true);
    (void)silenced;
    try {
        quillora::publish::readChapterMarks(quillora::fuzz::memoryFileWith(data, size));
    } catch (const quillora::publish::ChapterMarksError&) {
    }
    return 0;
}
