#pragma once

#include <cstdint>

namespace marlune {

// The modifiers that make a key a shortcut rather than typing. AltGr and Lock are not here:
// they only change which character a key types.
struct KeyModifiers {
    bool shift = false;
    bool control = false;
    bool alt = false;
    bool super = false;

    bool any() const { return shift || control || alt || super; }
    friend bool operator==(const KeyModifiers&, const KeyModifiers&) = default;
};

// A key with its modifiers, named by keysym (X11 keysym values: 0x76 is "v", 0xff63 Insert), so
// that the choice of physical key is left to whoever presses it with the current layout.
struct KeyChord {
    KeyModifiers modifiers;
    std::uint32_t keysym = 0;

    friend bool operator==(const KeyChord&, const KeyChord&) = default;
};

} // namespace marlune
