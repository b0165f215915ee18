#pragma once

#include "Marlune/KeyboardWatcher.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct xkb_context;
struct xkb_keymap;
struct xkb_state;
struct xkb_compose_table;
struct xkb_compose_state;

namespace marlune {

// The keyboard state as the X server reports it in an XKB state notification.
struct XkbStateMask {
    std::uint32_t depressedMods = 0;
    std::uint32_t latchedMods = 0;
    std::uint32_t lockedMods = 0;
    std::int32_t baseGroup = 0;
    std::int32_t latchedGroup = 0;
    std::int32_t lockedGroup = 0;
};

// Turns key codes into what the user typed, with the user's keymap, the current modifiers and
// layout, and the locale's compose sequences (dead keys, the Compose key). It needs no display:
// a keymap compiled from layout names works the same as the one fetched from the X server.
//
// Where the state comes from is fixed at construction. Against a live server the server is the
// truth (layout switches by other clients, sticky keys), so the state follows `updateMask` and
// key presses only read it. Offline, the presses and releases themselves drive the state.
class XkbKeymapTranslator {
public:
    enum class StateSource { keys, server };

    // Compiles a keymap with the "evdev" rules and the "pc105" model. Nothing when the names do
    // not compile. An empty `composeLocale` turns compose sequences off.
    static std::unique_ptr<XkbKeymapTranslator>
    fromNames(std::string_view layout, std::string_view variant, std::string_view options,
              std::string_view composeLocale, StateSource source = StateSource::keys);
    static std::unique_ptr<XkbKeymapTranslator> fromKeymapText(std::string_view keymapText,
                                                               std::string_view composeLocale);

    // Adopts one reference to each of `keymap` and `state` (from the server).
    XkbKeymapTranslator(xkb_keymap* keymap, xkb_state* state, StateSource source,
                        std::string_view composeLocale);
    XkbKeymapTranslator(const XkbKeymapTranslator&) = delete;
    XkbKeymapTranslator& operator=(const XkbKeymapTranslator&) = delete;
    ~XkbKeymapTranslator();

    // The locale whose compose sequences apply: LC_ALL, LC_CTYPE or LANG, with C and POSIX read
    // as C.UTF-8 so that dead keys still compose.
    static std::string composeLocaleFromEnvironment();

    // What a press of `keycode` typed, if anything. A dead key or the first keys of a compose
    // sequence type nothing yet; a sequence that goes wrong types nothing, as the input
    // methods of X clients do.
    std::optional<KeyboardEvent> keyPressed(std::uint32_t keycode);
    // Only modifier keys report their release.
    std::optional<KeyboardEvent> keyReleased(std::uint32_t keycode);

    // The server's state; true when the effective layout changed.
    bool updateMask(const XkbStateMask& mask);
    // Adopts a new keymap and its state (a keymap reload); a pending compose sequence is dropped.
    void replaceKeymap(xkb_keymap* keymap, xkb_state* state);
    void resetCompose();

    std::uint32_t layoutIndex() const;
    // The key code of an XKB key name ("AC01" is the key right of Caps Lock).
    std::optional<std::uint32_t> keycodeByName(std::string_view keyName) const;
    xkb_keymap* keymap() const { return keymap_; }

private:
    KeyModifiers activeModifiers() const;
    void cacheModifierIndices();

    StateSource source_;
    xkb_context* context_ = nullptr;
    xkb_keymap* keymap_ = nullptr;
    xkb_state* state_ = nullptr;
    xkb_compose_table* composeTable_ = nullptr;
    xkb_compose_state* composeState_ = nullptr;
    std::uint32_t shiftIndex_ = 0;
    std::uint32_t controlIndex_ = 0;
    std::uint32_t altIndex_ = 0;
    std::uint32_t superIndex_ = 0;
};

} // namespace marlune
