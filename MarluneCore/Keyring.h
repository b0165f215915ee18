#pragma once

#include <string>
#include <string_view>
#include <variant>

namespace marlune {

struct KeyringFound {
    std::string secret;
};
struct KeyringNotFound {};
// No keyring answered (no Secret Service, locked and not unlocked, refused); `reason` is for
// the log and never holds a secret.
struct KeyringUnavailable {
    std::string reason;
};
using KeyringLookup = std::variant<KeyringFound, KeyringNotFound, KeyringUnavailable>;

struct KeyringDone {};
using KeyringChange = std::variant<KeyringDone, KeyringUnavailable>;

// The user's keyring as the core sees it: text secrets stored under an item name. The
// desktop backend lives in Platform; tests use tests/support/FakeKeyring.h.
class Keyring {
public:
    virtual ~Keyring() = default;

    virtual KeyringLookup lookup(std::string_view item) = 0;
    // Creates or replaces the item; `label` is what the user sees in their keyring manager.
    virtual KeyringChange store(std::string_view item, std::string_view label,
                                std::string_view secret) = 0;
    // Deleting an item that does not exist succeeds.
    virtual KeyringChange remove(std::string_view item) = 0;
};

} // namespace marlune
