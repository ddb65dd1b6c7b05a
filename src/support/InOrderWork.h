// Work on several threads whose results are used in order on the calling
// thread: make(i) runs for every i below count on `threads` threads, and
// use(i, result) is called for i = 0, 1, 2... as if everything had run in
// turn. At most `window` results wait ahead of the one being used, so memory
// does not grow with count. mustFollow(i), when it names an earlier index,
// holds make(i) back until that index has been used (its result in place).
#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace quillora {

template <typename Result>
void forEachInOrder(std::size_t count, unsigned threads, std::size_t window,
                    const std::function<std::optional<std::size_t>(std::size_t)>& mustFollow,
                    const std::function<Result(std::size_t)>& make, const std::function<void(std::size_t, Result)>& use)
{
    std::mutex mutex;
    std::condition_variable changed;
    std::size_t next = 0;
    std::size_t used = 0;
    bool stopped = false;
    std::vector<std::optional<Result>> results(count);
    std::vector<std::exception_ptr> failures(count);

    auto mayStart = [&] {
        if (stopped || next >= count) return true;
        const auto earlier = mustFollow(next);
        return next < used + window && (!earlier || *earlier < used);
    };
    auto work = [&] {
        for (;;) {
            std::unique_lock lock(mutex);
            changed.wait(lock, mayStart);
            if (stopped || next >= count) return;
            const std::size_t i = next++;
            lock.unlock();
            std::optional<Result> result;
            std::exception_ptr failure;
            try {
                result.emplace(make(i));
            } catch (...) {
                failure = std::current_exception();
            }
            lock.lock();
            results[i] = std::move(result);
            failures[i] = failure;
            changed.notify_all();
        }
    };
    std::vector<std::jthread> workers;
    for (unsigned t = 0; t < std::max(1u, threads); ++t) workers.emplace_back(work);

    std::exception_ptr failure;
    try {
        for (std::size_t i = 0; i < count; ++i) {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return results[i].has_value() || failures[i]; });
            if (failures[i]) std::rethrow_exception(failures[i]);
            Result result = std::move(*results[i]);
            results[i].reset();
            lock.unlock();
            use(i, std::move(result));
            lock.lock();
            used = i + 1;
            changed.notify_all();
        }
    } catch (...) {
        failure = std::current_exception();
    }
    {
        std::lock_guard lock(mutex);
        stopped = true;
        changed.notify_all();
    }
    workers.clear();  // joins
    if (failure) std::rethrow_exception(failure);
}

}  // namespace quillora
