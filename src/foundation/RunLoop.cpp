#include "foundation/RunLoop.h"

namespace quillora {

std::shared_ptr<RunLoop> RunLoop::current()
{
    thread_local std::shared_ptr<RunLoop> loop = std::make_shared<RunLoop>();
    return loop;
}

void RunLoop::perform(std::function<void()> work)
{
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(work));
    }
    arrived_.notify_all();
}

bool RunLoop::runPending()
{
    bool ran = false;
    for (;;) {
        std::function<void()> work;
        {
            std::lock_guard lock(mutex_);
            if (queue_.empty()) return ran;
            work = std::move(queue_.front());
            queue_.pop_front();
        }
        work();
        ran = true;
    }
}

bool RunLoop::runOnce(std::chrono::milliseconds timeout)
{
    {
        std::unique_lock lock(mutex_);
        arrived_.wait_for(lock, timeout, [this] { return !queue_.empty(); });
    }
    return runPending();
}

bool RunLoop::hasPendingWork() const
{
    std::lock_guard lock(mutex_);
    return !queue_.empty();
}

}  // namespace quillora
