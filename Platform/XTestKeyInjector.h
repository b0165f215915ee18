#pragma once

#include "Marlune/KeyInjector.h"
#include "Platform/InjectionLedger.h"
#include "Platform/X11Connection.h"

#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <variant>
#include <vector>

struct xkb_keymap;
struct xkb_state;

namespace marlune {

// Key presses through the XTest extension, into whichever window has the keyboard focus, with
// the keys of the layout in use at that moment. Each event sent is written to the shared
// InjectionLedger first, so that the keyboard watcher knows it for ours.
//
// Holding keys is an active grab of the keyboard on this connection: the user's key events
// come to us instead of the focused window, in the order typed, and are sent on through XTest
// when the hold ends. XTest events are subject to the grab like any other, so each step lets
// go of the grab, sends its events and takes the grab again in one batch of requests; the
// server handles a client's requests in order and delivers the injected events before it
// reads the next request, so ours reach the window and the user's stay with us, but for a
// key that arrives in the few microseconds the batch takes.
//
// A character that no key of the layout types is put on a spare key code for the moment it
// is typed, and the spare key codes are cleared again at the end of the step. A client that
// reads its events only after that would see nothing for those characters; the xterm path that
// needs typing rarely meets characters outside the layout.
class XTestKeyInjector : public KeyInjector {
public:
    static std::variant<std::unique_ptr<XTestKeyInjector>, X11Unavailable>
    open(std::shared_ptr<InjectionLedger> ledger, std::string_view display = {});

    XTestKeyInjector(X11Connection connection, std::shared_ptr<InjectionLedger> ledger,
                     std::int32_t keyboardId);
    ~XTestKeyInjector() override;

    InjectionOutcome inject(const KeyInjection& step) override;
    KeyModifiers heldModifiers() override;
    bool keyHeld() override;
    bool holdKeys() override;
    std::size_t releaseKeys() override;
    bool heldKeyStillDown() override;
    void sendOnHeldKeys(std::size_t keyPresses) override;

private:
    struct KeyStroke {
        std::uint32_t keycode = 0;
        std::vector<std::uint32_t> modifierKeys;
    };

    bool loadKeymap();
    void releaseKeymap();
    std::optional<std::uint32_t> modifierKey(std::uint32_t keysym) const;
    std::optional<KeyStroke> strokeFor(std::uint32_t keysym) const;
    std::optional<KeyStroke> strokeForChord(const KeyChord& chord) const;
    std::optional<std::uint32_t> spareKeycode(std::uint32_t keysym);
    void restoreSpareKeycodes();
    void send(std::uint32_t keycode, bool press);
    void letGo(std::uint32_t keycode);
    void tap(const KeyStroke& stroke);
    InjectionOutcome repeat(std::uint32_t keysym, std::int64_t count);
    InjectionOutcome chord(const KeyChord& chord);
    InjectionOutcome repeatChord(const KeyChord& chord, std::int64_t count);
    InjectionOutcome type(std::string_view text);
    InjectionOutcome finish();
    bool grab();
    void takeHeldEvents(std::vector<std::pair<std::uint8_t, bool>>& into);
    bool isModifierKey(std::uint32_t keycode) const;
    // Sends one held event on, unless it is the release of a key whose press reached the
    // window before the hold.
    bool sendOnHeld(std::uint8_t keycode, bool press);

    X11Connection connection_;
    std::shared_ptr<InjectionLedger> ledger_;
    std::int32_t keyboardId_;
    xkb_keymap* keymap_ = nullptr;
    xkb_state* state_ = nullptr;
    std::vector<std::uint32_t> spareKeycodes_;
    std::vector<std::uint32_t> sparesInUse_;
    bool holding_ = false;
    bool ungrabbed_ = false;
    // The user's key events that came to us during the hold, in order.
    std::vector<std::pair<std::uint8_t, bool>> held_;
    // Keys whose held press was sent on and whose release was not yet.
    std::set<std::uint8_t> sentDown_;
};

} // namespace marlune
