#pragma once

#include "Marlune/BoardReminders.h"
#include "Marlune/Notifier.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace marlune {

// Notices through the session's notification service (org.freedesktop.Notifications on the
// session bus). Without one the notice goes to the log, so nothing the user should know is lost.
class DesktopNotifier : public Notifier, public DesktopNotifications {
public:
    static constexpr std::string_view kService = "org.freedesktop.Notifications";
    static constexpr std::string_view kPath = "/org/freedesktop/Notifications";

    void suggestSnippet(std::string_view message, std::string_view phrase) override;

    Shown notify(std::string_view title, std::string_view body,
                 std::string_view category) override;
    void close(std::uint32_t id) override;
};

} // namespace marlune
