#include "MarluneCore/ContentFingerprint.h"

#include <array>
#include <memory>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <stdexcept>
#include <vector>

namespace marlune {

namespace {

struct DigestDeleter {
    void operator()(EVP_MD_CTX* ctx) const { EVP_MD_CTX_free(ctx); }
};

struct MacDeleter {
    void operator()(EVP_MAC_CTX* ctx) const { EVP_MAC_CTX_free(ctx); }
};

std::string hex(std::span<const unsigned char> bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const unsigned char byte : bytes) {
        out.push_back(digits[byte >> 4U]);
        out.push_back(digits[byte & 0x0fU]);
    }
    return out;
}

class Sha256 {
public:
    Sha256() : ctx_(EVP_MD_CTX_new()) {
        if (!ctx_ || EVP_DigestInit_ex(ctx_.get(), EVP_sha256(), nullptr) != 1) {
            throw std::runtime_error("SHA-256 is not available");
        }
    }
    void update(const void* data, std::size_t size) {
        if (size > 0) {
            EVP_DigestUpdate(ctx_.get(), data, size);
        }
    }
    std::string hexDigest() {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
        unsigned int length = 0;
        EVP_DigestFinal_ex(ctx_.get(), digest.data(), &length);
        return hex({digest.data(), length});
    }

private:
    std::unique_ptr<EVP_MD_CTX, DigestDeleter> ctx_;
};

// HMAC-SHA-256 with the framing of the fingerprint.
class HmacSha256 {
public:
    explicit HmacSha256(std::span<const std::uint8_t> key) {
        // Fetched once: looking the algorithm up costs more than hashing a short text.
        static EVP_MAC* const mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
        ctx_.reset(mac != nullptr ? EVP_MAC_CTX_new(mac) : nullptr);
        char digest[] = "SHA256";
        const OSSL_PARAM params[] = {
            OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
            OSSL_PARAM_construct_end()};
        if (!ctx_ || EVP_MAC_init(ctx_.get(), key.data(), key.size(), params) != 1) {
            throw std::runtime_error("HMAC-SHA-256 is not available");
        }
    }
    void update(const void* data, std::size_t size) {
        if (size > 0) {
            EVP_MAC_update(ctx_.get(), static_cast<const unsigned char*>(data), size);
        }
    }
    void updateLength(std::uint64_t length) {
        std::array<std::uint8_t, 8> be{};
        for (int i = 7; i >= 0; --i) {
            be[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(length & 0xffU);
            length >>= 8U;
        }
        update(be.data(), be.size());
    }
    void updateFramed(const void* data, std::size_t size) {
        updateLength(size);
        update(data, size);
    }
    std::array<std::uint8_t, 32> finish() {
        std::array<std::uint8_t, 32> out{};
        std::size_t length = 0;
        if (EVP_MAC_final(ctx_.get(), out.data(), &length, out.size()) != 1 ||
            length != out.size()) {
            throw std::runtime_error("HMAC-SHA-256 failed");
        }
        return out;
    }

private:
    std::unique_ptr<EVP_MAC_CTX, MacDeleter> ctx_;
};

} // namespace

FingerprintKey FingerprintKey::derive(const SymmetricKey& contentKey) {
    HmacSha256 mac(contentKey.bytes());
    mac.update(label.data(), label.size());
    auto derived = mac.finish();
    auto key = SymmetricKey::fromBytes(derived);
    OPENSSL_cleanse(derived.data(), derived.size());
    return FingerprintKey(std::move(*key));
}

FingerprintKey FingerprintKey::withoutContentKey() {
    std::array<std::uint8_t, SymmetricKey::size> zero{};
    return FingerprintKey(*SymmetricKey::fromBytes(zero));
}

FingerprintKey::FingerprintKey(SymmetricKey key) : key_(std::move(key)) {
    static constexpr std::string_view text = "marlune-clip-fingerprint-key-id";
    HmacSha256 mac(key_.bytes());
    mac.update(text.data(), text.size());
    const auto digest = mac.finish();
    identifier_ = hex(std::span(digest).first(16));
}

std::string ContentFingerprint::compute(const FingerprintKey& key, std::string_view kindRaw,
                                        std::span<const FingerprintPart> parts) {
    static constexpr char domain[] = "marlune-clip-v2";
    HmacSha256 mac(key.bytes());
    mac.update(domain, sizeof(domain)); // includes the terminating zero byte
    mac.updateFramed(kindRaw.data(), kindRaw.size());
    mac.updateLength(parts.size());
    for (const auto& part : parts) {
        mac.updateFramed(part.type.data(), part.type.size());
        mac.updateFramed(part.bytes.data(), part.bytes.size());
    }
    const auto digest = mac.finish();
    return hex(digest);
}

std::string ContentFingerprint::of(const FingerprintKey& key, ClipKind kind,
                                   std::span<const Representation> representations) {
    std::vector<FingerprintPart> parts;
    parts.reserve(representations.size());
    for (const auto& rep : representations) {
        std::span<const std::uint8_t> bytes;
        if (rep.data) {
            bytes = *rep.data;
        } else if (rep.textBlob) {
            bytes = *rep.textBlob;
        } else if (rep.text) {
            bytes = {reinterpret_cast<const std::uint8_t*>(rep.text->data()), rep.text->size()};
        }
        parts.push_back({rep.utTypeIdentifier, bytes});
    }
    return compute(key, rawValue(kind), parts);
}

std::string sha256Hex(std::span<const std::uint8_t> bytes) {
    Sha256 hash;
    hash.update(bytes.data(), bytes.size());
    return hash.hexDigest();
}

} // namespace marlune
