#include "MarluneCore/SymmetricKey.h"

#include <algorithm>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <stdexcept>

namespace marlune {

SymmetricKey SymmetricKey::random() {
    SymmetricKey key;
    if (RAND_bytes(key.bytes_.data(), static_cast<int>(key.bytes_.size())) != 1) {
        // Without a working random source no key may be made at all: a predictable key
        // would seal the library with nothing.
        throw std::runtime_error("The system random number generator failed.");
    }
    return key;
}

std::optional<SymmetricKey> SymmetricKey::fromBytes(std::span<const std::uint8_t> bytes) {
    if (bytes.size() != size) {
        return std::nullopt;
    }
    SymmetricKey key;
    std::copy(bytes.begin(), bytes.end(), key.bytes_.begin());
    return key;
}

SymmetricKey::~SymmetricKey() {
    OPENSSL_cleanse(bytes_.data(), bytes_.size());
}

bool operator==(const SymmetricKey& a, const SymmetricKey& b) {
    return CRYPTO_memcmp(a.bytes_.data(), b.bytes_.data(), SymmetricKey::size) == 0;
}

} // namespace marlune
