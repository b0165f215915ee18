#pragma once

#include "Marlune/HotKeys.h"
#include "Platform/X11Connection.h"

#include <map>
#include <memory>
#include <string_view>
#include <variant>
#include <vector>

namespace marlune {

// Global shortcuts as passive key grabs on the root window, one for each combination of Caps
// Lock and Num Lock, which would otherwise make the shortcut fail while either is on. A grab
// that another client already holds is refused by the server with BadAccess: the shortcut is
// reported taken and none of its grabs is kept.
//
// Like the watcher it has a connection of its own; the application watches `fileDescriptor()`
// and calls `processPendingEvents()` on the main thread.
class X11HotKeys : public HotKeys {
public:
    static std::variant<std::unique_ptr<X11HotKeys>, X11Unavailable>
    open(std::string_view display = {});

    X11HotKeys(X11Connection connection, std::int32_t keyboardId);
    ~X11HotKeys() override;

    HotKeyRegistration registerHotKey(const KeyChord& chord) override;
    void unregisterHotKey(HotKeyId id) override;
    void setHandler(Handler handler) override;

    int fileDescriptor() const { return connection_.fileDescriptor(); }
    // False once the connection is lost.
    bool processPendingEvents();

private:
    struct Grab {
        std::uint8_t keycode;
        std::uint16_t modifiers;
    };
    struct Registration {
        std::vector<std::uint8_t> keycodes;
        std::uint16_t modifiers;
        std::vector<Grab> grabs;
    };

    std::uint16_t numLockMask();
    std::vector<std::uint8_t> keycodesFor(std::uint32_t keysym);
    void release(const std::vector<Grab>& grabs);

    X11Connection connection_;
    std::int32_t keyboardId_;
    std::map<HotKeyId, Registration> registrations_;
    HotKeyId nextId_ = 1;
    Handler handler_;
};

} // namespace marlune
