#pragma once

#include "Marlune/Scheduler.h"

#include <QObject>
#include <map>

class QTimer;

namespace marlune {

// Scheduler over the Qt event loop of the main thread. Timers are precise: the capture
// service's tick after a change is meant to land just past the settle time, and a coarse timer
// may fire up to 5% early.
class QtScheduler : public Scheduler {
public:
    QtScheduler() = default;
    ~QtScheduler() override;
    QtScheduler(const QtScheduler&) = delete;
    QtScheduler& operator=(const QtScheduler&) = delete;

    TaskID after(std::chrono::milliseconds delay, std::function<void()> task) override;
    TaskID every(std::chrono::milliseconds interval, std::function<void()> task) override;
    void cancel(TaskID id) override;

private:
    TaskID schedule(std::chrono::milliseconds delay, bool repeat, std::function<void()> task);

    std::map<TaskID, QTimer*> timers_;
    TaskID nextID_ = 1;
};

} // namespace marlune
