#pragma once

#include "Marlune/KeyChord.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>

namespace marlune {

namespace keyinjection {
struct Backspaces {
    std::int64_t count = 0;
    friend bool operator==(const Backspaces&, const Backspaces&) = default;
};
// The paste shortcut of the target window (or any other chord).
struct PressChord {
    KeyChord chord;
    friend bool operator==(const PressChord&, const PressChord&) = default;
};
struct CaretLeft {
    std::int64_t count = 0;
    friend bool operator==(const CaretLeft&, const CaretLeft&) = default;
};
struct CaretRight {
    std::int64_t count = 0;
    friend bool operator==(const CaretRight&, const CaretRight&) = default;
};
// Shift+Left: selects the characters before the caret, whole, whatever they are made of.
struct SelectLeft {
    std::int64_t count = 0;
    friend bool operator==(const SelectLeft&, const SelectLeft&) = default;
};
// Types the text key by key, for windows that refuse a paste from synthetic keys. The text is
// wiped when the step is freed.
struct TypeText {
    std::string text;

    TypeText() = default;
    explicit TypeText(std::string typed) : text(std::move(typed)) {}
    TypeText(const TypeText&) = default;
    TypeText& operator=(const TypeText&) = default;
    ~TypeText() {
        volatile char* bytes = text.data();
        for (std::size_t i = 0; i < text.size(); ++i) {
            bytes[i] = 0;
        }
    }
    friend bool operator==(const TypeText&, const TypeText&) = default;
};
} // namespace keyinjection

using KeyInjection =
    std::variant<keyinjection::Backspaces, keyinjection::PressChord, keyinjection::CaretLeft,
                 keyinjection::CaretRight, keyinjection::TypeText, keyinjection::SelectLeft>;

struct InjectionDone {
    friend bool operator==(const InjectionDone&, const InjectionDone&) = default;
};
struct InjectionFailed {
    std::string message;
    friend bool operator==(const InjectionFailed&, const InjectionFailed&) = default;
};
using InjectionOutcome = std::variant<InjectionDone, InjectionFailed>;

// Synthetic key presses into whatever window has the keyboard focus. Each call posts one step
// at once; the pauses between steps belong to the caller, as does waiting until
// `heldModifiers()` is empty so that a modifier the user still holds does not turn a
// BackSpace or the paste into another shortcut.
class KeyInjector {
public:
    virtual ~KeyInjector() = default;

    virtual InjectionOutcome inject(const KeyInjection& step) = 0;
    // The shortcut modifiers physically held right now (Caps Lock and Num Lock do not count).
    virtual KeyModifiers heldModifiers() = 0;
    // Whether a key other than a modifier is down. A BackSpace we send while the user's own is
    // still down merges with it on the core keyboard (one press is taken as a repeat and
    // the user's release is lost), so commits wait for the keys to come up.
    virtual bool keyHeld() { return false; }

    // Holds the user's keys back for the span of a commit. From `holdKeys()` until
    // `releaseKeys()` no window receives the keys the user types, while the steps injected
    // meanwhile still reach the focused window; `releaseKeys()` then sends the held keys on,
    // in the order they were typed, each exactly once. False when the keyboard cannot be held
    // (another client holds it): a commit must then delete nothing, since the keys typed on
    // would land in the middle of it.
    virtual bool holdKeys() { return false; }
    // Returns how many key events were sent on.
    virtual std::size_t releaseKeys() { return 0; }
    // Whether a key the user pressed during the hold is still down. Sent on while still down,
    // its press would meet the key already down (one keyboard for the typist and for us, or
    // the core keyboard that merges them) and be dropped, so the release waits for it.
    virtual bool heldKeyStillDown() { return false; }
    // Sends on the held key events up to and including the `keyPresses`-th press of a key that
    // is not a modifier, and goes on holding the rest: a keyword typed in full while a commit
    // was under way can then be expanded before the keys after it reach the window.
    virtual void sendOnHeldKeys(std::size_t keyPresses) { (void)keyPresses; }
};

} // namespace marlune
