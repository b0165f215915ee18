#pragma once

#include "Marlune/Scheduler.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>

namespace marlune::test {

// A scheduler on a clock that only moves when the test says so. `advance` runs every task that
// falls due, earliest first (ties in the order they were scheduled), including tasks that the
// running tasks schedule within the same span, and leaves `now` at the end of the span.
class ManualScheduler : public Scheduler {
public:
    TaskID after(std::chrono::milliseconds delay, std::function<void()> task) override {
        const TaskID id = nextID++;
        tasks.emplace(id, Entry{now + std::max(delay, std::chrono::milliseconds(0)),
                                std::chrono::milliseconds(0), std::move(task)});
        return id;
    }

    TaskID every(std::chrono::milliseconds interval, std::function<void()> task) override {
        const TaskID id = nextID++;
        const auto period = std::max(interval, std::chrono::milliseconds(1));
        tasks.emplace(id, Entry{now + period, period, std::move(task)});
        return id;
    }

    void cancel(TaskID id) override { tasks.erase(id); }

    // Moves the clock forward by `span`, running what falls due on the way.
    void advance(std::chrono::milliseconds span) {
        const auto end = now + span;
        while (true) {
            auto due = tasks.end();
            for (auto it = tasks.begin(); it != tasks.end(); ++it) {
                if (it->second.at <= end &&
                    (due == tasks.end() || it->second.at < due->second.at)) {
                    due = it;
                }
            }
            if (due == tasks.end()) {
                break;
            }
            now = due->second.at;
            const TaskID id = due->first;
            auto task = due->second.task;
            if (due->second.period.count() > 0) {
                due->second.at += due->second.period;
            } else {
                tasks.erase(due);
            }
            ++ran;
            task();
            (void)id;
        }
        now = end;
    }
    void advance(std::int64_t milliseconds) { advance(std::chrono::milliseconds(milliseconds)); }

    // Runs everything pending (one-shot tasks only; repeating tasks would never end).
    void runAllOnce(std::chrono::milliseconds limit = std::chrono::hours(1)) { advance(limit); }

    std::size_t pending() const { return tasks.size(); }
    bool isPending(TaskID id) const { return tasks.count(id) != 0; }

    std::chrono::milliseconds now{0};
    int ran = 0;

private:
    struct Entry {
        std::chrono::milliseconds at;
        std::chrono::milliseconds period;
        std::function<void()> task;
    };
    // Ordered by id, so among tasks due at the same moment the earlier-scheduled runs first.
    std::map<TaskID, Entry> tasks;
    TaskID nextID = 1;
};

} // namespace marlune::test
