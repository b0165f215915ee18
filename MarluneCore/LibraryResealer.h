#pragma once

#include <cstdint>
#include <string_view>

namespace marlune {

class ClipCrypto;
class Database;
class FingerprintKey;
class ModelContext;
class Resealer;

// After the content key changes, moves every sealed value of the library that still opens
// only with a retired key to the current key, in one transaction. Values that are not sealed,
// already current, or that no key opens are left exactly as they are.
//
// The clip fingerprints are keyed by the content key too (see FingerprintKey), so they are
// made afresh under the current key in the same transaction.
struct LibraryResealer {
    // Returns how many stored values were rewritten (fingerprints not counted).
    static std::int64_t resealAll(ModelContext& context, const Resealer& resealer);

    // Where the library records which fingerprint key its fingerprints were made under (the
    // key's identifier, in Metadata). Libraries from before fingerprints were keyed lack it.
    static constexpr std::string_view fingerprintKeyMetadata = "clipFingerprintKey";
    static bool fingerprintsUseKey(Database& db, const FingerprintKey& key);
    // Unless the fingerprints already use `crypto`'s fingerprint key: recomputes every clip's
    // fingerprint under it from the clip's flavours opened with `crypto`, in one transaction,
    // and records the key. A clip with a flavour that does not open keeps its fingerprint: a
    // fingerprint of what could be read would be wrong, and a later copy merely makes a new
    // clip. Returns how many fingerprints changed.
    static std::int64_t refreshFingerprints(Database& db, const ClipCrypto& crypto);

    // The first `perColumn` sealed values of every sealed column, tried with the context's
    // keys: a library whose sealed values all fail to open was sealed under a key that is not
    // here, and must not be used (an edit would write empty text over the ciphertext).
    struct KeyCheck {
        std::int64_t sealed = 0;
        std::int64_t opened = 0;
        bool keyMissing() const { return sealed > 0 && opened == 0; }
    };
    static KeyCheck checkKeys(ModelContext& context, std::int64_t perColumn);
};

} // namespace marlune
