#include "MarluneCore/Base64.h"
#include "MarluneCore/ClipCrypto.h"
#include "MarluneCore/Resealer.h"

#include <gtest/gtest.h>
#include <set>

namespace marlune {
namespace {

Bytes bytesOf(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

TEST(Base64, RoundTripsEveryLengthAroundAGroup) {
    for (std::size_t n = 0; n < 70; ++n) {
        Bytes data(n);
        for (std::size_t i = 0; i < n; ++i) {
            data[i] = static_cast<std::uint8_t>(i * 37 + 11);
        }
        const auto text = base64Encode(data);
        EXPECT_EQ(text.size(), base64EncodedLength(n));
        EXPECT_EQ(base64Decode(text), data) << "length " << n;
    }
}

TEST(Base64, KnownVectorsAndRejectedTexts) {
    struct Row {
        std::string_view text;
        std::optional<std::string_view> decoded;
    };
    const Row rows[] = {
        {"", ""},
        {"Zg==", "f"},
        {"Zm8=", "fo"},
        {"Zm9v", "foo"},
        {"Zm9vYmFy", "foobar"},
        {"+/+/", "\xfb\xff\xbf"},
        {"Zm9", std::nullopt},      // not a multiple of four
        {"Zm9v\n", std::nullopt},   // whitespace is not skipped
        {"Zm-v", std::nullopt},     // URL-safe alphabet is another format
        {"Z===", std::nullopt},     // three pad characters
        {"=m9v", std::nullopt},     // padding at the start
        {"Zg==Zm9v", std::nullopt}, // padding in the middle
        {"Zh==", std::nullopt},     // non-zero bits under the padding
        {"Zm9=", std::nullopt},     // same, one pad character
        {"Zm9v\xc3\xa9==", std::nullopt},
    };
    for (const auto& row : rows) {
        const auto decoded = base64Decode(row.text);
        if (row.decoded) {
            ASSERT_TRUE(decoded) << row.text;
            EXPECT_EQ(*decoded, bytesOf(*row.decoded)) << row.text;
        } else {
            EXPECT_FALSE(decoded) << row.text;
        }
    }
}

TEST(ClipCrypto, SealedTextIsBase64OfMagicNonceCiphertextAndTag) {
    const ClipCrypto crypto(SymmetricKey::random());
    const auto sealed = crypto.sealText("abc");
    const auto decoded = base64Decode(sealed);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->size(), 4u + 12u + 3u + 16u);
    EXPECT_EQ(std::string(decoded->begin(), decoded->begin() + 4), "MRk1");
    EXPECT_TRUE(ClipCrypto::isSealedText(sealed));
}

TEST(ClipCrypto, EverySealUsesAFreshNonce) {
    const ClipCrypto crypto(SymmetricKey::random());
    std::set<Bytes> nonces;
    for (int i = 0; i < 200; ++i) {
        const auto sealed = crypto.sealBytes(bytesOf("same content"));
        nonces.emplace(sealed.begin() + 4, sealed.begin() + 16);
    }
    EXPECT_EQ(nonces.size(), 200u);
}

TEST(ClipCrypto, EmptyTextAndTextWithoutKeyAreStoredUnchanged) {
    const ClipCrypto keyed(SymmetricKey::random());
    const ClipCrypto keyless(std::nullopt);
    EXPECT_FALSE(keyless.hasKey());
    EXPECT_EQ(keyed.sealText(""), "");
    EXPECT_EQ(keyless.sealText("hello"), "hello");
    EXPECT_EQ(keyless.readText("hello"), "hello");
    EXPECT_EQ(keyed.sealBytes({}), Bytes{});
    EXPECT_EQ(keyless.sealBytes(bytesOf("raw")), bytesOf("raw"));
    EXPECT_EQ(keyed.readText(""), "");
}

TEST(ClipCrypto, RoundTripsTextAndBytes) {
    const ClipCrypto crypto(SymmetricKey::random());
    const std::string texts[] = {"a", "Grüße aus Köln — 東京 🙂 and a combining e\xcc\x81",
                                 std::string(100'000, 'x'), std::string("nul\0inside", 10)};
    for (const auto& text : texts) {
        const auto sealed = crypto.sealText(text);
        EXPECT_NE(sealed, text);
        EXPECT_EQ(crypto.readText(sealed), text);
    }
    Bytes binary(4096);
    for (std::size_t i = 0; i < binary.size(); ++i) {
        binary[i] = static_cast<std::uint8_t>(i);
    }
    const auto sealed = crypto.sealBytes(binary);
    EXPECT_EQ(crypto.openBytes(sealed), binary);
    EXPECT_EQ(crypto.readBytes(sealed), binary);
}

TEST(ClipCrypto, WrongKeyOrDamagedBoxYieldsNothing) {
    const ClipCrypto crypto(SymmetricKey::random());
    const ClipCrypto stranger(SymmetricKey::random());
    const Bytes sealed = crypto.sealBytes(bytesOf("the secret body"));
    ASSERT_EQ(sealed.size(), 4u + 12 + 15 + 16);

    EXPECT_FALSE(stranger.openBytes(sealed));
    EXPECT_FALSE(stranger.readText(base64Encode(sealed)));

    struct Damage {
        const char* what;
        std::size_t offset;
    };
    for (const Damage& damage : {Damage{"nonce", 4}, Damage{"nonce end", 15},
                                 Damage{"ciphertext", 20}, Damage{"tag", sealed.size() - 1}}) {
        Bytes bad = sealed;
        bad[damage.offset] ^= 0x01;
        EXPECT_FALSE(crypto.openBytes(bad)) << damage.what;
        EXPECT_FALSE(crypto.readBytes(bad)) << damage.what;
        EXPECT_FALSE(crypto.readText(base64Encode(bad))) << damage.what;
    }
    for (std::size_t cut : {std::size_t{1}, std::size_t{16}, sealed.size() - 4 - 1}) {
        const Bytes truncated(sealed.begin(), sealed.end() - static_cast<std::ptrdiff_t>(cut));
        EXPECT_FALSE(crypto.openBytes(truncated)) << "cut " << cut;
    }
    // A magic that is not ours is not sealed content, whatever follows.
    Bytes otherMagic = sealed;
    otherMagic[3] = '2';
    EXPECT_FALSE(crypto.openBytes(otherMagic));
}

TEST(ClipCrypto, KeylessStoreCannotOpenSealedValues) {
    const ClipCrypto crypto(SymmetricKey::random());
    const ClipCrypto keyless(std::nullopt);
    const auto sealedText = crypto.sealText("hidden");
    EXPECT_FALSE(keyless.readText(sealedText));
    EXPECT_FALSE(keyless.openBytes(crypto.sealBytes(bytesOf("hidden"))));
}

TEST(ClipCrypto, ValuesWrittenBeforeSealingReadBackAsThemselves) {
    const ClipCrypto crypto(SymmetricKey::random());
    const std::string_view legacyTexts[] = {
        "plain old text",
        "TVJrMQ==",                                     // base64 of the bare magic: too short
        "TVJrMAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA", // decodes to "MRk0...": not our magic
        "TVJrM not base64 at all, just text that starts alike",
    };
    for (auto text : legacyTexts) {
        EXPECT_EQ(crypto.readText(text), std::string(text)) << text;
        EXPECT_FALSE(ClipCrypto::isSealedText(text)) << text;
    }
    EXPECT_EQ(crypto.readBytes(bytesOf("\x89PNG....")), bytesOf("\x89PNG...."));
    // The strict rule for byte fields: anything without the magic is refused.
    EXPECT_FALSE(crypto.openBytes(bytesOf("\x89PNG....")));
    EXPECT_FALSE(crypto.openBytes({}));
}

TEST(ClipCrypto, RetiredKeysStillOpenOldValues) {
    const auto oldKey = SymmetricKey::random();
    const auto olderKey = SymmetricKey::random();
    const auto newKey = SymmetricKey::random();
    const auto oldText = ClipCrypto(oldKey).sealText("from last year");
    const auto olderBytes = ClipCrypto(olderKey).sealBytes(bytesOf("from before"));

    const ClipCrypto crypto(newKey, {oldKey, olderKey});
    EXPECT_EQ(crypto.readText(oldText), "from last year");
    EXPECT_EQ(crypto.openBytes(olderBytes), bytesOf("from before"));
    // New content is sealed under the current key only.
    EXPECT_EQ(ClipCrypto(newKey).readText(crypto.sealText("new")), "new");
}

TEST(Resealer, MovesOnlyValuesThatOpenWithARetiredKey) {
    const auto oldKey = SymmetricKey::random();
    const auto newKey = SymmetricKey::random();
    const ClipCrypto oldCrypto(oldKey);
    const ClipCrypto newOnly(newKey);
    const Resealer resealer({oldKey}, newKey);

    const auto oldText = oldCrypto.sealText("moved text");
    const auto movedText = resealer.resealText(oldText);
    ASSERT_TRUE(movedText);
    EXPECT_EQ(newOnly.readText(*movedText), "moved text");

    const auto oldBytes = oldCrypto.sealBytes(bytesOf("moved bytes"));
    const auto movedBytes = resealer.resealBytes(oldBytes);
    ASSERT_TRUE(movedBytes);
    EXPECT_EQ(newOnly.openBytes(*movedBytes), bytesOf("moved bytes"));

    // Nothing to do: already current, not sealed, or opens with no key at all.
    EXPECT_FALSE(resealer.resealText(newOnly.sealText("current")));
    EXPECT_FALSE(resealer.resealText("legacy plain text"));
    EXPECT_FALSE(resealer.resealText(""));
    EXPECT_FALSE(resealer.resealText(ClipCrypto(SymmetricKey::random()).sealText("lost")));
    EXPECT_FALSE(resealer.resealBytes(bytesOf("legacy bytes")));
    Bytes damaged = oldBytes;
    damaged.back() ^= 0x80;
    EXPECT_FALSE(resealer.resealBytes(damaged));
}

TEST(ClipCrypto, CacheNeverHoldsMoreThanItsBound) {
    const ClipCrypto crypto(SymmetricKey::random());
    std::vector<std::string> sealed;
    for (int i = 0; i < 9000; ++i) {
        sealed.push_back(crypto.sealText("clip " + std::to_string(i)));
    }
    for (int i = 0; i < 9000; ++i) {
        ASSERT_EQ(crypto.readText(sealed[i]), "clip " + std::to_string(i));
        ASSERT_LE(crypto.cachedTextCount(), ClipCrypto::cacheCapacity);
    }
    EXPECT_GE(crypto.cachedTextCount(), ClipCrypto::cacheCapacity / 2);
    // An entry read again and again survives a long scan of other values, and hits still
    // return the right plaintext.
    for (int i = 0; i < 9000; ++i) {
        ASSERT_EQ(crypto.readText(sealed[0]), "clip 0");
        ASSERT_EQ(crypto.readText(sealed[i]), "clip " + std::to_string(i));
    }
    EXPECT_LE(crypto.cachedTextCount(), ClipCrypto::cacheCapacity);
}

TEST(ClipCrypto, ScanReadsLikeReadTextWithoutFillingTheCache) {
    const ClipCrypto crypto(SymmetricKey::random());
    const auto sealed = crypto.sealText("scanned");
    const auto foreign = ClipCrypto(SymmetricKey::random()).sealText("foreign");
    std::string plain = "left over from the previous value";
    EXPECT_TRUE(crypto.readTextInto(sealed, plain));
    EXPECT_EQ(plain, "scanned");
    EXPECT_TRUE(crypto.readTextInto("legacy", plain));
    EXPECT_EQ(plain, "legacy");
    EXPECT_TRUE(crypto.readTextInto("", plain));
    EXPECT_EQ(plain, "");
    EXPECT_FALSE(crypto.readTextInto(foreign, plain));
    EXPECT_EQ(plain, ""); // no unauthenticated plaintext leaks out
    EXPECT_EQ(crypto.cachedTextCount(), 0u);
    // A value already cached is served from there.
    ASSERT_EQ(crypto.readText(sealed), "scanned");
    EXPECT_TRUE(crypto.readTextInto(sealed, plain));
    EXPECT_EQ(plain, "scanned");
    EXPECT_EQ(crypto.cachedTextCount(), 1u);
}

} // namespace
} // namespace marlune
