#include "foundation/WriteFailures.h"

#include <mutex>

namespace quillora {

namespace {

std::mutex& sinkMutex()
{
    static std::mutex mutex;
    return mutex;
}

WriteFailureSink& installedSink()
{
    static WriteFailureSink sink;
    return sink;
}

}  // namespace

WriteFailureSink setWriteFailureSink(WriteFailureSink sink)
{
    std::lock_guard lock(sinkMutex());
    std::swap(installedSink(), sink);
    return sink;
}

void reportWriteFailure(const std::filesystem::path& path, int error)
{
    // Called outside the lock: a sink may end the process, or replace itself.
    WriteFailureSink sink;
    {
        std::lock_guard lock(sinkMutex());
        sink = installedSink();
    }
    if (sink) sink(path, error);
}

}  // namespace quillora
