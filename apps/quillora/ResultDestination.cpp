#include "ResultDestination.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "foundation/FileHandle.h"

namespace quillora::app {

namespace {

constexpr const char* kStagingFolder = "result";

[[noreturn]] void fail(const std::string& what, const std::filesystem::path& path, int error)
{
    throw std::filesystem::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

void synchronize(const std::filesystem::path& path, int flags)
{
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
    if (fd < 0) fail("cannot open to flush", path, errno);
    const bool flushed = ::fsync(fd) == 0;
    const int error = errno;
    ::close(fd);
    if (!flushed) fail("cannot flush to disk", path, error);
}

}  // namespace

ResultDestination::ResultDestination(std::filesystem::path destination, const std::filesystem::path& scratchFolder)
    : destination_(std::move(destination))
{
    const auto folder = scratchFolder / kStagingFolder;
    std::filesystem::create_directories(folder);
    staged_ = folder / destination_.filename();
    std::filesystem::remove(staged_);
}

void ResultDestination::deliver() const
{
    synchronize(staged_, O_RDONLY);
    if (::rename(staged_.c_str(), destination_.c_str()) == 0) {
        synchronize(destination_.parent_path(), O_RDONLY | O_DIRECTORY);
        return;
    }
    if (errno != EXDEV) fail("cannot move the export onto", destination_, errno);

    // Another file system: the copy gets a name of its own beside the
    // destination, so the destination changes only in the final rename.
    std::string pattern = (destination_.parent_path() / ("." + destination_.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) fail("cannot make a file beside", destination_, errno);
    ::close(fd);
    const std::filesystem::path temporary = pattern;
    try {
        // The file layer's copy keeps the system's cause of a failed write
        // ("No space left on device"); the library's reports a short copy as
        // an input/output error.
        FileHandle::copyFile(staged_, temporary);
        synchronize(temporary, O_RDONLY);
        if (::rename(temporary.c_str(), destination_.c_str()) != 0) fail("cannot rename onto", destination_, errno);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(temporary, ignored);
        throw;
    }
    synchronize(destination_.parent_path(), O_RDONLY | O_DIRECTORY);
    std::filesystem::remove(staged_);
}

}  // namespace quillora::app
