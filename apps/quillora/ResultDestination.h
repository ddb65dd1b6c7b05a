// The user's destination is replaced only by a finished export. The plug-in
// writes its result to a staging path in the scratch folder (it copies the
// working file there even after a failure); only when the export succeeded
// is that file moved onto the destination, in one rename.
#pragma once

#include <filesystem>

namespace quillora::app {

class ResultDestination {
public:
    ResultDestination(std::filesystem::path destination, const std::filesystem::path& scratchFolder);

    const std::filesystem::path& destination() const { return destination_; }
    // Where the plug-in is told to write.
    const std::filesystem::path& staged() const { return staged_; }

    // Moves the staged file onto the destination atomically: a rename on the
    // same file system, else a copy to a temporary name beside the
    // destination, flushed to disk, then renamed. Throws
    // std::filesystem::filesystem_error or FileError, with the system's
    // cause; the destination is then as it was.
    void deliver() const;

private:
    std::filesystem::path destination_;
    std::filesystem::path staged_;
};

}  // namespace quillora::app
