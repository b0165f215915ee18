#include "MarluneCore/ContentFingerprint.h"

#include <openssl/evp.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace marlune {

namespace {

struct DigestDeleter {
    void operator()(EVP_MD_CTX* ctx) const { EVP_MD_CTX_free(ctx); }
};

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
    std::string hexDigest() {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
        unsigned int length = 0;
        EVP_DigestFinal_ex(ctx_.get(), digest.data(), &length);
        static constexpr char hex[] = "0123456789abcdef";
        std::string out;
        out.reserve(length * 2);
        for (unsigned int i = 0; i < length; ++i) {
            out.push_back(hex[digest[i] >> 4U]);
            out.push_back(hex[digest[i] & 0x0fU]);
        }
        return out;
    }

private:
    std::unique_ptr<EVP_MD_CTX, DigestDeleter> ctx_;
};

} // namespace

std::string ContentFingerprint::compute(std::string_view kindRaw,
                                        std::span<const FingerprintPart> parts) {
    static constexpr char domain[] = "marlune-clip-v1";
    Sha256 hash;
    hash.update(domain, sizeof(domain)); // includes the terminating zero byte
    hash.updateFramed(kindRaw.data(), kindRaw.size());
    hash.updateLength(parts.size());
    for (const auto& part : parts) {
        hash.updateFramed(part.type.data(), part.type.size());
        hash.updateFramed(part.bytes.data(), part.bytes.size());
    }
    return hash.hexDigest();
}

std::string sha256Hex(std::span<const std::uint8_t> bytes) {
    Sha256 hash;
    hash.update(bytes.data(), bytes.size());
    return hash.hexDigest();
}

} // namespace marlune
