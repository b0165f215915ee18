#pragma once

#include "Marlune/Scheduler.h"
#include "MarluneCore/Date.h"
#include "MarluneCore/ModelContext.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// One notification request: shown once, at `fireAt`.
struct ReminderRequest {
    std::string identifier;
    std::string threadIdentifier;
    std::string title;
    std::string body;
    Date fireAt{};
    friend bool operator==(const ReminderRequest&, const ReminderRequest&) = default;
};

// Where reminders wait until they are due, and are shown.
class ReminderCenter {
public:
    virtual ~ReminderCenter() = default;
    // Schedules a request (replacing one with the same identifier); the refusal's message when
    // the request cannot be scheduled.
    virtual std::optional<std::string> add(const ReminderRequest& request) = 0;
    // Removes pending requests and withdraws delivered notifications with these identifiers.
    virtual void remove(const std::vector<std::string>& identifiers) = 0;
    virtual std::vector<ReminderRequest> pending() = 0;
    // Identifiers of notifications shown and not yet withdrawn.
    virtual std::vector<std::string> delivered() = 0;
};

// The desktop's notification service (org.freedesktop.Notifications): show and withdraw.
class DesktopNotifications {
public:
    virtual ~DesktopNotifications() = default;
    // The notification's id, or the error the service answered with.
    struct Shown {
        std::optional<std::uint32_t> id;
        std::optional<std::string> error;
    };
    virtual Shown notify(std::string_view title, std::string_view body,
                         std::string_view category) = 0;
    virtual void close(std::uint32_t id) = 0;
};

// The notification service has no schedule of its own, so the application keeps one: each
// pending request waits on a timer and is shown when it falls due. Long waits are taken in
// steps of at most a day, so a timer never holds a delay too long for the event loop and a
// clock that jumps is checked again. Main thread only.
class ScheduledReminderCenter : public ReminderCenter {
public:
    static constexpr std::chrono::milliseconds longestWait{86'400'000};

    ScheduledReminderCenter(DesktopNotifications& notifications, Scheduler& scheduler,
                            std::function<Date()> clock);
    ~ScheduledReminderCenter() override;

    std::optional<std::string> add(const ReminderRequest& request) override;
    void remove(const std::vector<std::string>& identifiers) override;
    std::vector<ReminderRequest> pending() override;
    std::vector<std::string> delivered() override;

private:
    void arm(const std::string& identifier);
    void fire(const std::string& identifier);

    struct Waiting {
        ReminderRequest request;
        Scheduler::TaskID timer = 0;
    };
    DesktopNotifications& notifications_;
    Scheduler& scheduler_;
    std::function<Date()> clock_;
    std::map<std::string, Waiting> waiting_;
    std::map<std::string, std::uint32_t> delivered_;
};

// Board due dates as reminders: one pending request per open Board item whose due date lies
// in the future, identified by "board.due." and the item's id. `reconcile` runs after every
// Board change and at start-up: requests of items that no longer qualify (done, removed,
// trashed, due date cleared or past) are removed, missing ones added, and one whose time or
// text changed is replaced. A notification already shown is withdrawn once its item is done,
// off the Board or without a due date.
class BoardReminders {
public:
    static constexpr std::string_view identifierPrefix = "board.due.";
    static constexpr std::string_view threadIdentifier = "board.due";
    static constexpr std::string_view title = "Due on your Board";
    // The body is the item's text, cut to a notification's length.
    static constexpr std::size_t bodyLength = 200;

    BoardReminders(ReminderCenter& center, ModelContext& context);

    struct Outcome {
        std::int64_t added = 0;
        std::int64_t removed = 0;
        std::int64_t refused = 0;
    };
    Outcome reconcile(Date now);

    // The requests that should be pending now.
    std::vector<ReminderRequest> wanted(Date now);

private:
    ReminderCenter& center_;
    ModelContext& context_;
};

} // namespace marlune
