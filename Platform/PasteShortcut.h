#pragma once

#include "Marlune/KeyChord.h"

#include <map>
#include <string>
#include <string_view>
#include <variant>

namespace marlune {

struct PasteByChord {
    KeyChord chord;
    friend bool operator==(const PasteByChord&, const PasteByChord&) = default;
};
// The window ignores pastes from synthetic keys, so the text is typed instead.
struct PasteByTyping {
    friend bool operator==(const PasteByTyping&, const PasteByTyping&) = default;
};
using PasteMethod = std::variant<PasteByChord, PasteByTyping>;

// How an expansion pastes into a window, chosen by the class part of its WM_CLASS.
//
// `overrides` is the user's `pasteShortcutOverrides`: a pattern over the class ("*term*",
// "Emacs"; case-insensitive, "*" and "?" as wildcards, matched against the whole class) to a
// shortcut ("Ctrl+Shift+V", "Shift+Insert") or "type". Where several patterns match, the
// longest wins; an override whose shortcut does not parse is ignored. Without an override:
// type for xterm, Ctrl+Alt+V for URxvt, Ctrl+Shift+V for terminals, Ctrl+V elsewhere.
class PasteShortcut {
public:
    static PasteMethod
    forWindowClass(std::string_view wmClass,
                   const std::map<std::string, std::string, std::less<>>& overrides);
    // Case-insensitive glob match of the whole text.
    static bool classMatches(std::string_view pattern, std::string_view wmClass);
};

} // namespace marlune
