// A per-thread queue of work that its thread runs. Other threads hand work
// to a thread through its run loop; the thread runs it in order when it next
// runs its loop.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace quillora {

class RunLoop {
public:
    // The calling thread's run loop, made on first use. Hold the pointer to
    // hand work to that thread from elsewhere.
    static std::shared_ptr<RunLoop> current();

    // Queues work for this loop's thread; safe from any thread.
    void perform(std::function<void()> work);

    // Runs what is queued now, and what that work queues in turn, until the
    // queue is empty. Returns whether anything ran.
    bool runPending();

    // Waits up to timeout for work, then runs what is queued. Returns whether
    // anything ran.
    bool runOnce(std::chrono::milliseconds timeout);

    bool hasPendingWork() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<std::function<void()>> queue_;
};

}  // namespace quillora
