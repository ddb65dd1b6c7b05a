// Runs one long task on a thread of its own and hands the task's result to an
// end function on the thread that started it. The worker thread has a run
// loop for as long as the task lasts; work the task queued there (a file
// handle's data-available notification, say) is delivered after the end
// function has run, in the pass that ends the loop.
#pragma once

#include <any>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "foundation/RunLoop.h"

namespace quillora {

class ThreadWorker : public std::enable_shared_from_this<ThreadWorker> {
public:
    // The task gets its argument and the worker, so it can ask cancelled().
    using Task = std::function<std::any(const std::any& argument, ThreadWorker& worker)>;
    using DidEnd = std::function<void(const std::any& result)>;

    // Starts task on a new thread. didEnd (may be empty) runs with the task's
    // result on the calling thread's run loop, which the caller must keep
    // running. An empty task is refused with a log line naming the target
    // and the selector, and no thread is made.
    static std::shared_ptr<ThreadWorker> workOn(std::string_view target, std::string_view selector, Task task,
                                                std::any argument, DidEnd didEnd);
    ~ThreadWorker();

    // One-way and never blocks.
    void markAsCancelled();
    bool cancelled() const { return cancelled_.load(); }

    // True once the worker thread's run loop has ended.
    bool finished() const { return finished_.load(); }
    // Blocks until the worker thread has ended.
    void waitUntilFinished();

    static std::string description();

private:
    ThreadWorker(Task task, std::any argument, DidEnd didEnd, std::shared_ptr<RunLoop> callingLoop);
    void startThread();
    void runPrimaryTask();

    Task task_;
    std::any argument_;
    DidEnd didEnd_;
    std::shared_ptr<RunLoop> callingLoop_;
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> finished_{false};
    bool endRunLoop_ = false;
    std::thread thread_;
    std::mutex joinMutex_;
};

}  // namespace quillora
