#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace marlune {

// Timers on the main thread. The application's implementation sits on the event loop; tests
// use a manual clock that runs due tasks when told to advance.
class Scheduler {
public:
    using TaskID = std::uint64_t;
    virtual ~Scheduler() = default;

    // Runs `task` once on the main thread after `delay`.
    virtual TaskID after(std::chrono::milliseconds delay, std::function<void()> task) = 0;
    // Runs `task` on the main thread every `interval` until cancelled.
    virtual TaskID every(std::chrono::milliseconds interval, std::function<void()> task) = 0;
    virtual void cancel(TaskID id) = 0;
};

} // namespace marlune
