#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>

namespace marlune::test {

// Stands in for the application's event loop: tasks posted from other threads run on the
// test's own (main) thread while it waits for something.
class MainQueue {
public:
    void post(std::function<void()> task) {
        {
            std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        ready_.notify_one();
    }

    // Runs posted tasks until `future` is ready.
    template <typename T> T runUntil(std::future<T>& future) {
        while (future.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready) {
            std::function<void()> task;
            {
                std::unique_lock lock(mutex_);
                ready_.wait_for(lock, std::chrono::milliseconds(5), [&] { return !tasks_.empty(); });
                if (tasks_.empty()) {
                    continue;
                }
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            task();
        }
        return future.get();
    }

private:
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::function<void()>> tasks_;
};

} // namespace marlune::test
