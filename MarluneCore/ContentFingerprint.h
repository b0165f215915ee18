#pragma once

#include "MarluneCore/Records.h"
#include "MarluneCore/SymmetricKey.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace marlune {

// One pasteboard flavour as the fingerprint sees it: its uniform type identifier and bytes.
struct FingerprintPart {
    std::string_view type;
    std::span<const std::uint8_t> bytes;
};

// The key of the clip fingerprints, derived from the library content key, so that whoever
// holds the store file but not the key cannot test a guess (a copied PIN) against a stored
// fingerprint. A new content key gives new fingerprints, which is why the stored ones are
// recomputed when the key changes (LibraryResealer::refreshFingerprints). The bytes are wiped
// when the value dies.
class FingerprintKey {
public:
    // HMAC-SHA-256 of this label under the content key.
    static constexpr std::string_view label = "marlune-clip-fingerprint-v2";

    static FingerprintKey derive(const SymmetricKey& contentKey);
    // A library without a content key keeps its content in plain text; fingerprints that hid
    // it would hide nothing, so they use a fixed key.
    static FingerprintKey withoutContentKey();

    // Names the key without revealing it (an HMAC of a fixed text under it, in hex), so the
    // library can record which key its fingerprints were made under.
    const std::string& identifier() const { return identifier_; }
    std::span<const std::uint8_t, SymmetricKey::size> bytes() const { return key_.bytes(); }

private:
    explicit FingerprintKey(SymmetricKey key);
    SymmetricKey key_;
    std::string identifier_;
};

// The duplicate key of a clip (`Clip.contentHash`): lowercase hex HMAC-SHA-256 under the
// fingerprint key over
//   "marlune-clip-v2" 0x00, then the kind, the number of parts, and for each part in
//   pasteboard order its type and its bytes,
// every string and byte run preceded by its length as a 64-bit big-endian integer, so that
// no two different inputs can be framed into the same byte stream. Two copies fingerprint
// alike exactly when they have the same kind and the same flavours with the same bytes in the
// same order; the source application and the time do not take part.
struct ContentFingerprint {
    static std::string compute(const FingerprintKey& key, std::string_view kindRaw,
                               std::span<const FingerprintPart> parts);
    // The fingerprint of a clip's flavours as the store holds them: each flavour counts with
    // its bytes, else its long text, else its text.
    static std::string of(const FingerprintKey& key, ClipKind kind,
                          std::span<const Representation> representations);
};

// Lowercase hex SHA-256 of a byte run (used where a stable digest is all that is needed).
std::string sha256Hex(std::span<const std::uint8_t> bytes);

} // namespace marlune
