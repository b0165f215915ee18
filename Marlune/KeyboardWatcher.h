#pragma once

#include "Marlune/KeyChord.h"

#include <cstdint>
#include <functional>
#include <string>
#include <variant>

namespace marlune {

// Keys that type no text but matter to whoever keeps the typed buffer (the inline suggestion
// uses the navigation keys; any other key or shortcut means the caret may have moved).
enum class NamedKey {
    other,
    returnKey,
    keypadEnter,
    tab,
    escape,
    left,
    right,
    up,
    down,
    home,
    end,
    pageUp,
    pageDown,
    deleteForward,
};

enum class ModifierKey {
    leftShift,
    rightShift,
    leftControl,
    rightControl,
    leftAlt,
    rightAlt,
    leftSuper,
    rightSuper
};

namespace keyboard {
// One key press of the user's that typed `text` (a dead key and the key after it arrive as
// one event with the composed text). The text is wiped when the event is freed.
struct TextTyped {
    std::string text;
    std::uint32_t keysym = 0;
    KeyModifiers modifiers;

    TextTyped() = default;
    TextTyped(std::string typed, std::uint32_t sym, KeyModifiers mods)
        : text(std::move(typed)), keysym(sym), modifiers(mods) {}
    TextTyped(const TextTyped&) = default;
    TextTyped& operator=(const TextTyped&) = default;
    ~TextTyped() {
        volatile char* bytes = text.data();
        for (std::size_t i = 0; i < text.size(); ++i) {
            bytes[i] = 0;
        }
    }
    friend bool operator==(const TextTyped&, const TextTyped&) = default;
};
struct BackspacePressed {
    KeyModifiers modifiers;
    friend bool operator==(const BackspacePressed&, const BackspacePressed&) = default;
};
// A key that typed nothing: navigation, function keys, and any key held with Control, Alt or
// Super (a shortcut, whatever its letter).
struct KeyPressed {
    NamedKey key = NamedKey::other;
    std::uint32_t keysym = 0;
    KeyModifiers modifiers;
    friend bool operator==(const KeyPressed&, const KeyPressed&) = default;
};
// A modifier key on its own, pressed or released: double taps are seen here.
struct ModifierChanged {
    ModifierKey key = ModifierKey::leftShift;
    bool pressed = false;
    friend bool operator==(const ModifierChanged&, const ModifierChanged&) = default;
};
// A mouse button (not the wheel): the caret may now stand anywhere.
struct MouseClicked {
    friend bool operator==(const MouseClicked&, const MouseClicked&) = default;
};
// Another window became active.
struct FocusChanged {
    friend bool operator==(const FocusChanged&, const FocusChanged&) = default;
};
// The layout in use changed (a switch between layouts, or a new keymap); typing goes on
// with the new one.
struct LayoutChanged {
    friend bool operator==(const LayoutChanged&, const LayoutChanged&) = default;
};
} // namespace keyboard

using KeyboardEvent =
    std::variant<keyboard::TextTyped, keyboard::BackspacePressed, keyboard::KeyPressed,
                 keyboard::ModifierChanged, keyboard::MouseClicked, keyboard::FocusChanged,
                 keyboard::LayoutChanged>;

// The user's keyboard across the whole session. Keys the application injected itself are never
// reported. The handler runs on the thread that drives the watcher (the main thread).
class KeyboardWatcher {
public:
    using Handler = std::function<void(const KeyboardEvent&)>;

    virtual ~KeyboardWatcher() = default;
    virtual void setHandler(Handler handler) = 0;
};

} // namespace marlune
