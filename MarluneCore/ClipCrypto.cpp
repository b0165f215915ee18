#include "MarluneCore/ClipCrypto.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <stdexcept>
#include <unordered_map>

namespace marlune {

namespace {

constexpr std::uint8_t kMagic[4] = {'M', 'R', 'k', '1'};
constexpr std::size_t kMagicSize = sizeof kMagic;
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kOverhead = kMagicSize + kNonceSize + kTagSize;

// Every sealed text begins with the base64 of "MRk1" followed by a nonce byte: "TVJr" encodes
// "MRk" and the next character carries the six high bits of '1'. Checking this first keeps
// legacy plain text away from the decoder.
constexpr std::string_view kSealedTextPrefix = "TVJrM";

bool hasMagic(std::span<const std::uint8_t> bytes) {
    return bytes.size() >= kMagicSize && std::memcmp(bytes.data(), kMagic, kMagicSize) == 0;
}

bool looksLikeSealedText(std::string_view stored) {
    return stored.size() >= base64EncodedLength(kOverhead) && stored.size() % 4 == 0 &&
           stored.starts_with(kSealedTextPrefix);
}

struct CipherContextFree {
    void operator()(EVP_CIPHER_CTX* ctx) const { EVP_CIPHER_CTX_free(ctx); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, CipherContextFree>;

[[noreturn]] void cryptoFailure(const char* what) {
    throw std::runtime_error(std::string("Content sealing failed: ") + what);
}

// A key with its AES key schedule set up once; each use sets only the nonce.
struct KeyContext {
    KeyContext(const SymmetricKey& k, bool encrypt) : key(k), ctx(EVP_CIPHER_CTX_new()) {
        if (!ctx) {
            cryptoFailure("no cipher context");
        }
        const int ok = encrypt ? EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr,
                                                    key.bytes().data(), nullptr)
                               : EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr,
                                                    key.bytes().data(), nullptr);
        if (ok != 1) {
            cryptoFailure("cipher setup");
        }
    }
    SymmetricKey key;
    CipherContext ctx;
};

// Opens the box after the magic (nonce, ciphertext, tag) into `out`; false when it does not open.
bool openBox(EVP_CIPHER_CTX* ctx, std::span<const std::uint8_t> box, std::uint8_t* out) {
    const std::uint8_t* nonce = box.data();
    const std::uint8_t* cipher = box.data() + kNonceSize;
    const int cipherSize = static_cast<int>(box.size() - kNonceSize - kTagSize);
    const std::uint8_t* tag = box.data() + box.size() - kTagSize;
    int written = 0;
    int finalWritten = 0;
    if (EVP_DecryptInit_ex(ctx, nullptr, nullptr, nullptr, nonce) != 1) {
        return false;
    }
    if (cipherSize > 0 && EVP_DecryptUpdate(ctx, out, &written, cipher, cipherSize) != 1) {
        return false;
    }
    if (EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_TAG, static_cast<int>(kTagSize),
                            const_cast<std::uint8_t*>(tag)) != 1) {
        return false;
    }
    return EVP_DecryptFinal_ex(ctx, out + written, &finalWritten) == 1;
}

// Cache keys are sealed texts whose last 24 characters encode the random GCM tag, so mixing
// those few words spreads them as well as hashing the whole text would, at a fraction of the
// cost; equality still compares the whole text.
struct StringHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const {
        if (s.size() < 24) {
            return std::hash<std::string_view>{}(s);
        }
        std::uint64_t words[3];
        std::memcpy(words, s.data() + s.size() - sizeof words, sizeof words);
        std::uint64_t h = s.size() * 0x9E3779B97F4A7C15ull;
        for (std::uint64_t word : words) {
            h = (h ^ word) * 0xBF58476D1CE4E5B9ull;
            h ^= h >> 31;
        }
        return static_cast<std::size_t>(h);
    }
};
using TextCache = std::unordered_map<std::string, std::string, StringHash, std::equal_to<>>;

} // namespace

class ClipCrypto::Impl {
public:
    Impl(std::optional<SymmetricKey> current, std::vector<SymmetricKey> retired)
        : current_(current), retired_(std::move(retired)),
          fingerprintKey_(current ? FingerprintKey::derive(*current)
                                  : FingerprintKey::withoutContentKey()) {
        if (current) {
            sealer_.emplace(*current, true);
            openers_.emplace_back(*current, false);
            for (const auto& key : retired_) {
                openers_.emplace_back(key, false);
            }
        }
        // Without a current key nothing is ever sealed, and values sealed before still need
        // a key the store cannot reach, so there is nothing to open with either.
    }

    ~Impl() { wipe(); }

    bool hasKey() const { return sealer_.has_value(); }

    Bytes seal(std::span<const std::uint8_t> plain) {
        Bytes out(kOverhead + plain.size());
        std::memcpy(out.data(), kMagic, kMagicSize);
        std::uint8_t* nonce = out.data() + kMagicSize;
        std::uint8_t* cipher = nonce + kNonceSize;
        std::uint8_t* tag = cipher + plain.size();
        if (RAND_bytes(nonce, static_cast<int>(kNonceSize)) != 1) {
            cryptoFailure("no random nonce");
        }
        EVP_CIPHER_CTX* ctx = sealer_->ctx.get();
        int written = 0;
        int finalWritten = 0;
        if (EVP_EncryptInit_ex(ctx, nullptr, nullptr, nullptr, nonce) != 1 ||
            (!plain.empty() && EVP_EncryptUpdate(ctx, cipher, &written, plain.data(),
                                                 static_cast<int>(plain.size())) != 1) ||
            EVP_EncryptFinal_ex(ctx, cipher + written, &finalWritten) != 1 ||
            EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_GET_TAG, static_cast<int>(kTagSize), tag) != 1) {
            cryptoFailure("encryption");
        }
        return out;
    }

    // `sealed` includes the magic; the caller has checked it and the minimum size.
    bool open(std::span<const std::uint8_t> sealed, std::uint8_t* out) {
        const auto box = sealed.subspan(kMagicSize);
        for (auto& opener : openers_) {
            if (openBox(opener.ctx.get(), box, out)) {
                return true;
            }
        }
        return false;
    }

    // Opens a value that looks sealed into `plain`; false when no key opens it. A hit in the
    // cache is copied; otherwise the result is remembered only when `rememberResult` is set.
    bool readText(std::string_view stored, std::string& plain, bool rememberResult) {
        if (const std::string* cached = findCached(stored)) {
            plain.assign(*cached);
            return true;
        }
        if (!base64DecodeInto(stored, scratch_) || scratch_.size() < kOverhead ||
            !hasMagic(scratch_)) {
            // Plain text that merely starts like a sealed value.
            plain.assign(stored);
            return true;
        }
        if (openers_.empty()) {
            return false;
        }
        plain.resize(scratch_.size() - kOverhead);
        if (!open(scratch_, reinterpret_cast<std::uint8_t*>(plain.data()))) {
            // GCM decrypts before it checks the tag: never hand out text that failed it.
            OPENSSL_cleanse(plain.data(), plain.size());
            plain.clear();
            return false;
        }
        if (rememberResult) {
            remember(stored, plain);
        }
        return true;
    }

    std::size_t cachedCount() const { return young_.size() + old_.size(); }

    const std::optional<SymmetricKey>& current() const { return current_; }
    const std::vector<SymmetricKey>& retired() const { return retired_; }
    const FingerprintKey& fingerprintKey() const { return fingerprintKey_; }

private:
    static constexpr std::size_t kGeneration = cacheCapacity / 2;

    const std::string* findCached(std::string_view stored) {
        if (auto it = young_.find(stored); it != young_.end()) {
            return &it->second;
        }
        auto it = old_.find(stored);
        if (it == old_.end()) {
            return nullptr;
        }
        auto node = old_.extract(it);
        rotateIfFull();
        return &young_.insert(std::move(node)).position->second;
    }

    void remember(std::string_view stored, const std::string& plain) {
        rotateIfFull();
        young_.emplace(std::string(stored), plain);
    }

    void rotateIfFull() {
        if (young_.size() >= kGeneration) {
            wipe(old_);
            old_ = std::move(young_);
            young_.clear();
        }
    }

    // The cache holds user content: not key material, but still better not left in freed
    // memory. (The scratch buffer only ever holds sealed bytes.)
    static void wipe(TextCache& cache) {
        for (auto& entry : cache) {
            OPENSSL_cleanse(entry.second.data(), entry.second.size());
        }
    }

    void wipe() {
        wipe(young_);
        wipe(old_);
    }

    std::optional<SymmetricKey> current_;
    std::vector<SymmetricKey> retired_;
    FingerprintKey fingerprintKey_;
    std::optional<KeyContext> sealer_;
    std::vector<KeyContext> openers_;
    Bytes scratch_;
    TextCache young_;
    TextCache old_;
};

ClipCrypto::ClipCrypto(std::optional<SymmetricKey> current, std::vector<SymmetricKey> retired)
    : impl_(std::make_unique<Impl>(std::move(current), std::move(retired))) {}

ClipCrypto::ClipCrypto(const ClipCrypto& other)
    : impl_(std::make_unique<Impl>(other.impl_->current(), other.impl_->retired())) {}

ClipCrypto& ClipCrypto::operator=(const ClipCrypto& other) {
    if (this != &other) {
        impl_ = std::make_unique<Impl>(other.impl_->current(), other.impl_->retired());
    }
    return *this;
}

ClipCrypto::ClipCrypto(ClipCrypto&&) noexcept = default;
ClipCrypto& ClipCrypto::operator=(ClipCrypto&&) noexcept = default;
ClipCrypto::~ClipCrypto() = default;

bool ClipCrypto::hasKey() const {
    return impl_->hasKey();
}

const FingerprintKey& ClipCrypto::fingerprintKey() const {
    return impl_->fingerprintKey();
}

std::string ClipCrypto::sealText(std::string_view plain) const {
    if (plain.empty() || !impl_->hasKey()) {
        return std::string(plain);
    }
    const Bytes sealed =
        impl_->seal({reinterpret_cast<const std::uint8_t*>(plain.data()), plain.size()});
    return base64Encode(sealed);
}

std::optional<std::string> ClipCrypto::readText(std::string_view stored) const {
    if (!looksLikeSealedText(stored)) {
        return std::string(stored);
    }
    std::string plain;
    if (!impl_->readText(stored, plain, true)) {
        return std::nullopt;
    }
    return plain;
}

bool ClipCrypto::readTextInto(std::string_view stored, std::string& plain) const {
    if (!looksLikeSealedText(stored)) {
        plain.assign(stored);
        return true;
    }
    return impl_->readText(stored, plain, false);
}

Bytes ClipCrypto::sealBytes(std::span<const std::uint8_t> plain) const {
    if (plain.empty() || !impl_->hasKey()) {
        return Bytes(plain.begin(), plain.end());
    }
    return impl_->seal(plain);
}

std::optional<Bytes> ClipCrypto::openBytes(std::span<const std::uint8_t> stored) const {
    if (stored.size() < kOverhead || !hasMagic(stored) || !impl_->hasKey()) {
        return std::nullopt;
    }
    Bytes plain(stored.size() - kOverhead);
    if (!impl_->open(stored, plain.data())) {
        return std::nullopt;
    }
    return plain;
}

std::optional<Bytes> ClipCrypto::readBytes(std::span<const std::uint8_t> stored) const {
    if (!hasMagic(stored)) {
        return Bytes(stored.begin(), stored.end());
    }
    return openBytes(stored);
}

bool ClipCrypto::isSealedText(std::string_view stored) {
    if (!looksLikeSealedText(stored)) {
        return false;
    }
    const auto bytes = base64Decode(stored);
    return bytes && isSealedBytes(*bytes);
}

bool ClipCrypto::isSealedBytes(std::span<const std::uint8_t> stored) {
    return stored.size() >= kOverhead && hasMagic(stored);
}

std::size_t ClipCrypto::cachedTextCount() const {
    return impl_->cachedCount();
}

} // namespace marlune
