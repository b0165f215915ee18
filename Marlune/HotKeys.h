#pragma once

#include "Marlune/KeyChord.h"

#include <cstdint>
#include <functional>
#include <string>
#include <variant>

namespace marlune {

using HotKeyId = std::uint32_t;

struct HotKeyRegistered {
    HotKeyId id = 0;
    friend bool operator==(const HotKeyRegistered&, const HotKeyRegistered&) = default;
};
// Another application holds the shortcut; `message` is for the user.
struct HotKeyTaken {
    std::string message;
    friend bool operator==(const HotKeyTaken&, const HotKeyTaken&) = default;
};
// No key of the current keyboard types the chord's key; `message` is for the user.
struct HotKeyUnavailable {
    std::string message;
    friend bool operator==(const HotKeyUnavailable&, const HotKeyUnavailable&) = default;
};
using HotKeyRegistration = std::variant<HotKeyRegistered, HotKeyTaken, HotKeyUnavailable>;

// Global shortcuts that work whichever window has the focus, and whatever the state of Caps
// Lock and Num Lock.
class HotKeys {
public:
    using Handler = std::function<void(HotKeyId)>;

    virtual ~HotKeys() = default;
    virtual HotKeyRegistration registerHotKey(const KeyChord& chord) = 0;
    // Unknown or already removed identifiers are ignored.
    virtual void unregisterHotKey(HotKeyId id) = 0;
    virtual void setHandler(Handler handler) = 0;
};

} // namespace marlune
