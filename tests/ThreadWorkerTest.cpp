// The worker thread: where the task, its end and its queued work run, and a
// worker that is refused, cancelled, thrown out of or left without an end.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "foundation/Log.h"
#include "foundation/RunLoop.h"
#include "support/ThreadWorker.h"

namespace quillora {
namespace {

// Runs the calling thread's loop until the worker has ended (or a time-out).
void runUntilFinished(ThreadWorker& worker)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!worker.finished() && std::chrono::steady_clock::now() < deadline) {
        RunLoop::current()->runOnce(std::chrono::milliseconds(10));
    }
    worker.waitUntilFinished();
}

TEST(ThreadWorker, EndRunsOnTheStartingThreadAfterTheTaskAndBeforeQueuedWorkOfTheTask)
{
    const auto mainThread = std::this_thread::get_id();
    std::vector<std::string> order;
    std::mutex mutex;
    auto note = [&](std::string what) {
        std::lock_guard lock(mutex);
        order.push_back(std::move(what) + (std::this_thread::get_id() == mainThread ? " on main" : " on worker"));
    };
    int received = 0;
    auto worker = ThreadWorker::workOn(
        "target", "task:",
        [&](const std::any& argument, ThreadWorker&) -> std::any {
            // Like a data-available notification asked for during the task.
            RunLoop::current()->perform([&] { note("queued"); });
            note("task");
            return std::any_cast<int>(argument) * 2;
        },
        21,
        [&](const std::any& result) {
            received = std::any_cast<int>(result);
            note("end");
        });
    ASSERT_NE(worker, nullptr);
    runUntilFinished(*worker);
    EXPECT_EQ(received, 42);
    EXPECT_EQ(order, (std::vector<std::string>{"task on worker", "end on main", "queued on worker"}));
}

TEST(ThreadWorker, RefusesAMissingTaskAndEndsWhatIsCancelledThrowsOrHasNoEnd)
{
    CapturedLog log;
    EXPECT_EQ(ThreadWorker::workOn("plugin", "beginExport:", nullptr, {}, nullptr), nullptr);
    EXPECT_TRUE(log.contains("ThreadWorker reports: Target plugin does not respond to selector beginExport:."));

    std::promise<void> release;
    std::atomic<bool> sawCancel{false};
    bool emptyResult = false;
    auto worker = ThreadWorker::workOn(
        "target", "task:",
        [&, cancelledYet = release.get_future().share()](const std::any&, ThreadWorker& self) -> std::any {
            cancelledYet.wait();
            sawCancel = self.cancelled();
            throw std::runtime_error("boom");
        },
        {}, [&](const std::any& result) { emptyResult = !result.has_value(); });
    ASSERT_NE(worker, nullptr);
    worker->markAsCancelled();
    worker->markAsCancelled();
    EXPECT_TRUE(worker->cancelled());
    release.set_value();
    runUntilFinished(*worker);
    EXPECT_TRUE(sawCancel);
    EXPECT_TRUE(emptyResult);

    // Without an end the result is dropped and the worker still ends.
    auto endless = ThreadWorker::workOn(
        "target", "task:", [](const std::any&, ThreadWorker&) { return std::any(1); }, {}, nullptr);
    runUntilFinished(*endless);
}

}  // namespace
}  // namespace quillora
