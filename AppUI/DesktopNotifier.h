#pragma once

#include "Marlune/Notifier.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace marlune {

// Notices through the session's notification service (org.freedesktop.Notifications on the
// session bus). Without one the notice goes to the log, so nothing the user should know is lost.
class DesktopNotifier : public Notifier {
public:
    static constexpr std::string_view kService = "org.freedesktop.Notifications";
    static constexpr std::string_view kPath = "/org/freedesktop/Notifications";

    void suggestSnippet(std::string_view message, std::string_view phrase) override;

    // Shows one notification; returns its id, or 0 when no service took it.
    std::uint32_t notify(const std::string& summary, const std::string& body,
                         const std::string& icon = "accessories-text-editor");
};

} // namespace marlune
