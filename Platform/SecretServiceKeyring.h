#pragma once

#include "MarluneCore/Keyring.h"

#include <chrono>

namespace marlune {

// The user's keyring through the Secret Service (GNOME Keyring, KWallet, KeePassXC) with
// libsecret. Items use the schema "org.marlune.Marlune" with one attribute, "item", holding
// the item name.
//
// Before each call it checks that a session bus exists and that org.freedesktop.secrets has
// an owner (or can be started) within `timeout`, so a headless session answers
// KeyringUnavailable promptly instead of waiting for D-Bus time-outs or autolaunching a bus.
// A locked keyring may still show the desktop's unlock prompt, which waits for the user; an
// item that stays locked answers KeyringUnavailable, never KeyringNotFound, so that nobody
// makes a new key over it. Main thread only.
class SecretServiceKeyring : public Keyring {
public:
    explicit SecretServiceKeyring(
        std::chrono::milliseconds timeout = std::chrono::milliseconds(2000));

    KeyringLookup lookup(std::string_view item) override;
    KeyringChange store(std::string_view item, std::string_view label,
                        std::string_view secret) override;
    KeyringChange remove(std::string_view item) override;

private:
    std::chrono::milliseconds timeout_;
};

} // namespace marlune
