#include "MarluneCore/Resealer.h"

#include <openssl/crypto.h>

namespace marlune {

namespace {

ClipCrypto openerOf(std::vector<SymmetricKey> keys) {
    if (keys.empty()) {
        return ClipCrypto(std::nullopt);
    }
    SymmetricKey first = keys.front();
    keys.erase(keys.begin());
    return ClipCrypto(std::move(first), std::move(keys));
}

} // namespace

Resealer::Resealer(std::vector<SymmetricKey> retired, SymmetricKey current)
    : current_(std::move(current)), retired_(openerOf(std::move(retired))) {}

std::optional<Bytes> Resealer::resealBytes(std::span<const std::uint8_t> stored) const {
    if (!ClipCrypto::isSealedBytes(stored) || current_.openBytes(stored)) {
        return std::nullopt;
    }
    auto plain = retired_.openBytes(stored);
    if (!plain) {
        return std::nullopt;
    }
    Bytes resealed = current_.sealBytes(*plain);
    OPENSSL_cleanse(plain->data(), plain->size());
    return resealed;
}

std::optional<std::string> Resealer::resealText(std::string_view stored) const {
    if (!ClipCrypto::isSealedText(stored)) {
        return std::nullopt;
    }
    const auto sealed = base64Decode(stored);
    auto resealed = resealBytes(*sealed);
    if (!resealed) {
        return std::nullopt;
    }
    return base64Encode(*resealed);
}

} // namespace marlune
