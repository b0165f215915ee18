#pragma once

#include "MarluneCore/Keyring.h"

#include <map>
#include <string>

namespace marlune::test {

// An in-memory keyring. `unavailable` makes every call answer as a desktop without a Secret
// Service would; `failStores` makes only writes fail (a keyring that answers lookups but
// refuses to save, e.g. a dismissed unlock prompt).
class FakeKeyring : public Keyring {
public:
    struct Item {
        std::string label;
        std::string secret;
    };

    KeyringLookup lookup(std::string_view item) override {
        ++lookups;
        if (unavailable) {
            return KeyringUnavailable{"fake keyring switched off"};
        }
        const auto it = items.find(std::string(item));
        if (it == items.end()) {
            return KeyringNotFound{};
        }
        return KeyringFound{it->second.secret};
    }

    KeyringChange store(std::string_view item, std::string_view label,
                        std::string_view secret) override {
        if (unavailable || failStores) {
            return KeyringUnavailable{"fake keyring switched off"};
        }
        items[std::string(item)] = {std::string(label), std::string(secret)};
        return KeyringDone{};
    }

    KeyringChange remove(std::string_view item) override {
        if (unavailable) {
            return KeyringUnavailable{"fake keyring switched off"};
        }
        items.erase(std::string(item));
        return KeyringDone{};
    }

    bool unavailable = false;
    bool failStores = false;
    int lookups = 0;
    std::map<std::string, Item, std::less<>> items;
};

} // namespace marlune::test
