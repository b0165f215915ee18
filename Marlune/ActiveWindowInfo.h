#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace marlune {

struct ActiveWindow {
    // The class part of WM_CLASS ("firefox", "Gnome-terminal"), which stands where other
    // systems have an application's bundle identifier.
    std::string bundleIdentifier;
    std::string title;
    std::optional<std::int64_t> pid;

    friend bool operator==(const ActiveWindow&, const ActiveWindow&) = default;
};

// The window that receives typing: the target of an expansion and the source of a copy.
class ActiveWindowInfo {
public:
    virtual ~ActiveWindowInfo() = default;
    // Nothing when no window is active (the desktop, or a display without a window manager
    // and no focused window).
    virtual std::optional<ActiveWindow> activeWindow() = 0;
};

} // namespace marlune
