#include "foundation/Progress.h"

#include <atomic>
#include <mutex>

namespace quillora {

namespace {

struct ProgressState {
    std::mutex mutex;
    ProgressSink sink;
    std::string stage;
    ProgressUnit countedUnit = ProgressUnit::none;
    std::int64_t counted = 0;
    std::int64_t countTotal = 0;
};

ProgressState& state()
{
    static ProgressState progress;
    return progress;
}

std::atomic<bool> sinkInstalled{false};

// Called with the state's mutex held, so reports reach the sink one at a
// time and in the order they were made.
void deliver(ProgressState& progress, ProgressUnit unit, std::int64_t done, std::int64_t total)
{
    if (progress.sink) progress.sink(ProgressReport{progress.stage, unit, done, total});
}

}  // namespace

ProgressSink setProgressSink(ProgressSink sink)
{
    ProgressState& progress = state();
    std::lock_guard lock(progress.mutex);
    sinkInstalled = static_cast<bool>(sink);
    std::swap(progress.sink, sink);
    return sink;
}

void beginProgressStage(std::string_view stage)
{
    ProgressState& progress = state();
    std::lock_guard lock(progress.mutex);
    progress.stage = stage;
    deliver(progress, ProgressUnit::none, 0, 0);
}

void reportProgress(ProgressUnit unit, std::int64_t done, std::int64_t total)
{
    if (!sinkInstalled.load(std::memory_order_relaxed)) return;
    ProgressState& progress = state();
    std::lock_guard lock(progress.mutex);
    deliver(progress, unit, done, total);
}

void startCountingProgress(ProgressUnit unit, std::int64_t total)
{
    ProgressState& progress = state();
    std::lock_guard lock(progress.mutex);
    progress.countedUnit = unit;
    progress.counted = 0;
    progress.countTotal = total;
    deliver(progress, unit, 0, total);
}

void countProgress()
{
    ProgressState& progress = state();
    std::lock_guard lock(progress.mutex);
    deliver(progress, progress.countedUnit, ++progress.counted, progress.countTotal);
}

}  // namespace quillora
