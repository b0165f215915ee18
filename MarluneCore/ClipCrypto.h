#pragma once

#include "MarluneCore/Base64.h"
#include "MarluneCore/ContentFingerprint.h"
#include "MarluneCore/SymmetricKey.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// Seals content fields at rest with the library content key and opens them again.
//
// A sealed value is "MRk1", a fresh random 12-byte nonce, the AES-256-GCM ciphertext and its
// 16-byte tag; text fields store the standard base64 text of that. Values are opened with the
// current key first, then with each retired key, so content sealed before a key change still
// reads back.
//
// Opened texts are kept in a cache of at most `cacheCapacity` entries keyed by the stored
// value. The cache has two generations of up to half the capacity each: new entries go into
// the young one; when it is full it becomes the old one and the previous old generation is
// dropped; a hit in the old generation moves the entry back into the young one. That keeps
// whatever is read repeatedly (the visible list) while a one-off scan of the whole history
// cannot grow it past the bound, at a constant cost per read. Only text fields are cached:
// byte fields are the large flavours and are read once.
//
// Not thread-safe, not even for const calls: the cipher contexts, the scratch buffers and the
// cache are reused by every call. Use one instance on one thread (the main thread).
class ClipCrypto {
public:
    static constexpr std::size_t cacheCapacity = 4000;

    explicit ClipCrypto(std::optional<SymmetricKey> current,
                        std::vector<SymmetricKey> retired = {});
    ClipCrypto(const ClipCrypto& other);
    ClipCrypto& operator=(const ClipCrypto& other);
    ClipCrypto(ClipCrypto&&) noexcept;
    ClipCrypto& operator=(ClipCrypto&&) noexcept;
    ~ClipCrypto();

    bool hasKey() const;
    // The key of the clip fingerprints, derived from the current key.
    const FingerprintKey& fingerprintKey() const;

    // Empty text, or any text when there is no key, is stored unchanged.
    std::string sealText(std::string_view plain) const;
    // "" -> ""; a value that is not sealed content (written before sealing existed) -> itself;
    // sealed content -> its plaintext, or nothing when no key opens it.
    std::optional<std::string> readText(std::string_view stored) const;
    // The same for one pass over many values (search): reads into `plain`, reusing its
    // buffer, and adds nothing to the cache, so a scan does not push out what is on screen.
    // False (with `plain` empty) when no key opens the value.
    bool readTextInto(std::string_view stored, std::string& plain) const;

    // Empty input -> empty; no key -> unchanged.
    Bytes sealBytes(std::span<const std::uint8_t> plain) const;
    // Strict: a value not beginning with "MRk1", or a box that does not open, yields nothing.
    std::optional<Bytes> openBytes(std::span<const std::uint8_t> stored) const;
    // Tolerates values written before sealing: not sealed -> itself; sealed -> plaintext or
    // nothing.
    std::optional<Bytes> readBytes(std::span<const std::uint8_t> stored) const;

    // True when the stored text is the base64 form of a sealed value (whether or not it opens).
    static bool isSealedText(std::string_view stored);
    static bool isSealedBytes(std::span<const std::uint8_t> stored);

    std::size_t cachedTextCount() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace marlune
