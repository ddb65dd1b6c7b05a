#include "support/ThreadWorker.h"

#include <condition_variable>
#include <exception>

#include "foundation/Log.h"

namespace quillora {

ThreadWorker::ThreadWorker(Task task, std::any argument, DidEnd didEnd, std::shared_ptr<RunLoop> callingLoop)
    : task_(std::move(task)), argument_(std::move(argument)), didEnd_(std::move(didEnd)),
      callingLoop_(std::move(callingLoop))
{
}

ThreadWorker::~ThreadWorker()
{
    // The thread holds a reference to the worker until it ends, so the last
    // release may come from the thread itself.
    if (thread_.joinable()) {
        if (thread_.get_id() == std::this_thread::get_id()) {
            thread_.detach();
        } else {
            thread_.join();
        }
    }
}

std::shared_ptr<ThreadWorker> ThreadWorker::workOn(std::string_view target, std::string_view selector, Task task,
                                                   std::any argument, DidEnd didEnd)
{
    if (!task) {
        logf("\nThreadWorker reports: Target {} does not respond to selector {}.", target, selector);
        return nullptr;
    }
    auto worker = std::shared_ptr<ThreadWorker>(
        new ThreadWorker(std::move(task), std::move(argument), std::move(didEnd), RunLoop::current()));
    worker->thread_ = std::thread([self = worker] { self->startThread(); });
    return worker;
}

namespace {
// Work on the worker's loop must not take the process down with it.
bool runPendingSafely(RunLoop& loop)
{
    try {
        return loop.runPending();
    } catch (const std::exception& failure) {
        logf("ThreadWorker: work on the worker thread ended with an exception: {}", failure.what());
        return true;
    }
}
}  // namespace

void ThreadWorker::startThread()
{
    auto loop = RunLoop::current();
    loop->perform([this] { runPrimaryTask(); });
    endRunLoop_ = false;
    while (!endRunLoop_ && runPendingSafely(*loop)) {}
    // What the task left queued is delivered in the pass that ends the loop.
    while (loop->hasPendingWork()) runPendingSafely(*loop);
    finished_ = true;
}

void ThreadWorker::runPrimaryTask()
{
    std::any result;
    try {
        result = task_(argument_, *this);
    } catch (const std::exception& failure) {
        logf("ThreadWorker: the task ended with an exception: {}", failure.what());
    }
    if (didEnd_) {
        // Delivered on the starting thread; wait until it has run there.
        std::mutex mutex;
        std::condition_variable delivered;
        bool done = false;
        callingLoop_->perform([&] {
            try {
                didEnd_(result);
            } catch (const std::exception& failure) {
                logf("ThreadWorker: the end method ended with an exception: {}", failure.what());
            }
            std::lock_guard lock(mutex);
            done = true;
            delivered.notify_all();
        });
        std::unique_lock lock(mutex);
        delivered.wait(lock, [&] { return done; });
    }
    endRunLoop_ = true;
}

void ThreadWorker::markAsCancelled()
{
    bool expected = false;
    cancelled_.compare_exchange_strong(expected, true);
}

void ThreadWorker::waitUntilFinished()
{
    std::lock_guard lock(joinMutex_);
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

std::string ThreadWorker::description()
{
    return "ThreadWorker v0.7: one task on a thread of its own";
}

}  // namespace quillora
