#pragma once

#include "Marlune/ActiveWindowInfo.h"
#include "Platform/X11Connection.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace marlune {

// The window manager's _NET_ACTIVE_WINDOW, or without a window manager that says so, the
// top-level window that holds the input focus. Its WM_CLASS class part, _NET_WM_NAME (WM_NAME
// when absent) and _NET_WM_PID.
class X11ActiveWindow : public ActiveWindowInfo {
public:
    static std::variant<std::unique_ptr<X11ActiveWindow>, X11Unavailable>
    open(std::string_view display = {});

    explicit X11ActiveWindow(X11Connection connection);

    std::optional<ActiveWindow> activeWindow() override;

    // The window that has the keyboard focus now, to give it back after a window of ours
    // (the fill-in form) took it: without a window manager nobody else would.
    std::uint32_t inputFocus();
    void restoreInputFocus(std::uint32_t window);

    // Brings the top-level window whose class or instance name (case-insensitive) or title is
    // `application` to the front and gives it the focus; a message for the user when none is
    // open.
    std::optional<std::string> activate(std::string_view application);

private:
    std::uint32_t focusedTopLevel();

    X11Connection connection_;
    std::uint32_t netActiveWindow_;
    std::uint32_t netWmName_;
    std::uint32_t netWmPid_;
    std::uint32_t utf8String_;
};

} // namespace marlune
