#pragma once

#include "Marlune/KeyboardWatcher.h"
#include "Platform/InjectionLedger.h"
#include "Platform/X11Connection.h"
#include "Platform/XkbKeymapTranslator.h"

#include <memory>
#include <set>
#include <string_view>
#include <variant>

namespace marlune {

// The session's keyboard through XInput2 raw events on the root window, which every client may
// receive whatever window has the focus, translated with the server's XKB keymap and state.
// It also reports mouse clicks (not the wheel), changes of the active window and of the layout.
//
// It has a connection of its own: the application watches `fileDescriptor()` for input and
// then calls `processPendingEvents()`, on the main thread. Key events that the application
// injected itself (see InjectionLedger) are not reported.
class X11KeyboardWatcher : public KeyboardWatcher {
public:
    static std::variant<std::unique_ptr<X11KeyboardWatcher>, X11Unavailable>
    open(std::shared_ptr<InjectionLedger> ledger, std::string_view display = {},
         std::string_view composeLocale = {});

    X11KeyboardWatcher(X11Connection connection, std::shared_ptr<InjectionLedger> ledger,
                       std::unique_ptr<XkbKeymapTranslator> translator, std::int32_t keyboardId,
                       std::uint8_t xkbEventBase, std::uint8_t xinputOpcode,
                       std::uint32_t activeWindowAtom);
    ~X11KeyboardWatcher() override;

    void setHandler(Handler handler) override;
    int fileDescriptor() const { return connection_.fileDescriptor(); }
    // Handles every event already received without blocking. False once the connection is
    // lost: the display closed, and the watcher will report nothing more.
    bool processPendingEvents();
    // Blocks until the server has handled everything sent so far and then handles what came
    // (for tests and for a caller that has just injected keys).
    bool syncAndProcess();

private:
    void handle(const void* event);
    void handleRawEvent(const void* event);
    void handleXkbEvent(const void* event);
    void refreshXTestDevices();
    void reloadKeymap();
    void deliver(const KeyboardEvent& event);

    X11Connection connection_;
    std::shared_ptr<InjectionLedger> ledger_;
    std::unique_ptr<XkbKeymapTranslator> translator_;
    std::int32_t keyboardId_;
    std::uint8_t xkbEventBase_;
    std::uint8_t xinputOpcode_;
    std::uint32_t activeWindowAtom_;
    std::set<std::uint16_t> xtestDevices_;
    Handler handler_;
};

} // namespace marlune
