#include <gtest/gtest.h>

#include <chrono>
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
    const auto starter = std::this_thread::get_id();
    std::vector<std::string> order;
    std::mutex mutex;
    auto note = [&](std::string what) {
        std::lock_guard lock(mutex);
        order.push_back(std::move(what));
    };
    std::thread::id taskThread, endThread, queuedThread;
    int received = 0;

    auto worker = ThreadWorker::workOn(
        "target", "task:",
        [&](const std::any& argument, ThreadWorker&) -> std::any {
            taskThread = std::this_thread::get_id();
            // Like a data-available notification asked for during the task.
            RunLoop::current()->perform([&] {
                queuedThread = std::this_thread::get_id();
                note("queued");
            });
            note("task");
            return std::any_cast<int>(argument) * 2;
        },
        21,
        [&](const std::any& result) {
            endThread = std::this_thread::get_id();
            received = std::any_cast<int>(result);
            note("end");
        });
    ASSERT_NE(worker, nullptr);
    runUntilFinished(*worker);

    EXPECT_EQ(received, 42);
    EXPECT_EQ(endThread, starter);
    EXPECT_NE(taskThread, starter);
    EXPECT_EQ(queuedThread, taskThread);
    EXPECT_EQ(order, (std::vector<std::string>{"task", "end", "queued"}));
}

TEST(ThreadWorker, RefusesAMissingTaskRunsWithoutAnEndAndCancelsWithoutBlocking)
{
    CapturedLog log;
    EXPECT_EQ(ThreadWorker::workOn("plugin", "beginExport:", nullptr, {}, nullptr), nullptr);
    EXPECT_TRUE(log.contains("ThreadWorker reports: Target plugin does not respond to selector beginExport:."));

    std::atomic<bool> sawCancel{false};
    std::atomic<bool> release{false};
    auto worker = ThreadWorker::workOn(
        "target", "task:",
        [&](const std::any&, ThreadWorker& self) -> std::any {
            while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            sawCancel = self.cancelled();
            return {};
        },
        {}, nullptr);
    ASSERT_NE(worker, nullptr);
    worker->markAsCancelled();
    worker->markAsCancelled();
    EXPECT_TRUE(worker->cancelled());
    release = true;
    runUntilFinished(*worker);
    EXPECT_TRUE(sawCancel);
    EXPECT_TRUE(worker->finished());
}

TEST(ThreadWorker, ATaskThatThrowsStillEndsWithAnEmptyResult)
{
    bool ended = false;
    bool emptyResult = false;
    auto worker = ThreadWorker::workOn(
        "target", "task:", [](const std::any&, ThreadWorker&) -> std::any { throw std::runtime_error("boom"); }, {},
        [&](const std::any& result) {
            ended = true;
            emptyResult = !result.has_value();
        });
    runUntilFinished(*worker);
    EXPECT_TRUE(ended);
    EXPECT_TRUE(emptyResult);
}

}  // namespace
}  // namespace quillora
