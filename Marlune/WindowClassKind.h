#pragma once

#include <string_view>

namespace marlune {

// What kind of text client a window is, told by the class part of its WM_CLASS. Terminals keep
// Ctrl+C and Ctrl+V for the program running in them, so copying and pasting there take other
// shortcuts, and two classic terminals have ways of their own.
enum class WindowClassKind {
    ordinary,
    // Ctrl+Shift+C and Ctrl+Shift+V.
    terminal,
    // rxvt-unicode: Ctrl+Alt+C and Ctrl+Alt+V.
    rxvtUnicode,
    // xterm: no copy shortcut (a selection is PRIMARY at once), and pastes from synthetic
    // keys are refused, so text is typed.
    xterm,
};

WindowClassKind windowClassKind(std::string_view wmClass);

} // namespace marlune
