#pragma once

#include "Marlune/KeyChord.h"

#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// Shortcuts as people write them: "Ctrl+Shift+V", "Shift+Insert", "alt+f2". Modifier names are
// Ctrl (Control), Shift, Alt (Meta) and Super (Win); the key is a letter, a digit or an X key name.
class KeyChordText {
public:
    static std::optional<KeyChord> parse(std::string_view text);
    // Modifiers in the order Ctrl, Alt, Shift, Super; letters in capitals ("Ctrl+Alt+B").
    static std::string describe(const KeyChord& chord);
};

} // namespace marlune
