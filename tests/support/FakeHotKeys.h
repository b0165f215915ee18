#pragma once

#include "Marlune/HotKeys.h"

#include <map>
#include <optional>
#include <string>

namespace marlune::test {

// Global shortcuts without a display: records what is registered, and `press` plays the
// handler as the X server would. `taken` makes registrations fail as if another application
// held the shortcut.
class FakeHotKeys : public HotKeys {
public:
    HotKeyRegistration registerHotKey(const KeyChord& chord) override {
        if (taken) {
            return HotKeyTaken{*taken};
        }
        const HotKeyId id = nextID++;
        registered[id] = chord;
        ++registrations;
        return HotKeyRegistered{id};
    }
    void unregisterHotKey(HotKeyId id) override { registered.erase(id); }
    void setHandler(Handler h) override { handler = std::move(h); }

    bool isRegistered(const KeyChord& chord) const {
        for (const auto& [id, registeredChord] : registered) {
            if (registeredChord == chord) {
                return true;
            }
        }
        return false;
    }
    // Presses `chord`: only a registered chord reaches the handler.
    bool press(const KeyChord& chord) {
        for (const auto& [id, registeredChord] : registered) {
            if (registeredChord == chord && handler) {
                handler(id);
                return true;
            }
        }
        return false;
    }

    std::map<HotKeyId, KeyChord> registered;
    Handler handler;
    std::optional<std::string> taken;
    HotKeyId nextID = 1;
    int registrations = 0;
};

} // namespace marlune::test
