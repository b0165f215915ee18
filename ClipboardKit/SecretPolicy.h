#pragma once

namespace marlune {

// What the user asked the history to leave out. `skipLikelySecrets` covers API keys, access
// tokens, private keys and card numbers; one-time codes have their own switch because some
// users want to paste a code again a minute later.
struct SecretPolicy {
    bool skipLikelySecrets = true;
    bool skipOneTimeCodes = true;

    friend bool operator==(const SecretPolicy&, const SecretPolicy&) = default;
};

} // namespace marlune
