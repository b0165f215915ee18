#include "AppUI/QtScheduler.h"

#include <QTimer>
#include <algorithm>
#include <utility>

namespace marlune {

QtScheduler::~QtScheduler() {
    for (auto& [id, timer] : timers_) {
        delete timer;
    }
}

Scheduler::TaskID QtScheduler::after(std::chrono::milliseconds delay, std::function<void()> task) {
    return schedule(delay, false, std::move(task));
}

Scheduler::TaskID QtScheduler::every(std::chrono::milliseconds interval,
                                     std::function<void()> task) {
    return schedule(std::max(interval, std::chrono::milliseconds(1)), true, std::move(task));
}

Scheduler::TaskID QtScheduler::schedule(std::chrono::milliseconds delay, bool repeat,
                                        std::function<void()> task) {
    const TaskID id = nextID_++;
    auto* timer = new QTimer();
    timer->setTimerType(Qt::PreciseTimer);
    timer->setSingleShot(!repeat);
    timer->setInterval(std::max(delay, std::chrono::milliseconds(0)));
    QObject::connect(timer, &QTimer::timeout, timer, [this, id, repeat, task = std::move(task)] {
        if (!repeat) {
            // Forgotten before it runs, so that the task may schedule or cancel freely.
            cancel(id);
        }
        task();
    });
    timers_.emplace(id, timer);
    timer->start();
    return id;
}

void QtScheduler::cancel(TaskID id) {
    const auto it = timers_.find(id);
    if (it == timers_.end()) {
        return;
    }
    // The timer may be the one whose timeout is running right now: delete it from the loop.
    it->second->stop();
    it->second->deleteLater();
    timers_.erase(it);
}

} // namespace marlune
