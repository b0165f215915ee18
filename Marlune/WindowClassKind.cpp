#include "Marlune/WindowClassKind.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>

namespace marlune {

WindowClassKind windowClassKind(std::string_view wmClass) {
    std::string lower(wmClass);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower == "xterm" || lower == "uxterm") {
        return WindowClassKind::xterm;
    }
    if (lower.starts_with("urxvt")) {
        return WindowClassKind::rxvtUnicode;
    }
    static constexpr std::array<std::string_view, 8> terminals{
        "terminal", "kitty", "alacritty", "konsole", "tilix", "terminator", "wezterm", "foot"};
    const bool terminal = std::any_of(terminals.begin(), terminals.end(), [&](auto name) {
        return lower.find(name) != std::string::npos;
    });
    return terminal ? WindowClassKind::terminal : WindowClassKind::ordinary;
}

} // namespace marlune
