#include "MarluneCore/Base64.h"
#include "MarluneCore/ContentKeyArchive.h"
#include "MarluneCore/ContentKeyProvider.h"
#include "MarluneCore/DeviceIdentity.h"
#include "MarluneCore/Log.h"
#include "support/FakeKeyring.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace marlune {
namespace {

using std::chrono::system_clock;
const system_clock::time_point kNow =
    system_clock::from_time_t(1'795'302'900); // 2026-11-21T23:15:00Z

std::string keyText(const SymmetricKey& key) {
    return base64Encode(key.bytes());
}

mode_t modeOf(const std::filesystem::path& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777;
}

// Collects what the crypto logger writes, so a test can check the one line it expects.
class LogCapture {
public:
    LogCapture()
        : previous_(
              Logger::setSink([this](std::string_view category, LogLevel, std::string_view line) {
                  if (category == logs::crypto.category()) {
                      lines.emplace_back(line);
                  }
              })) {}
    ~LogCapture() { Logger::setSink(std::move(previous_)); }
    std::vector<std::string> lines;

private:
    Logger::Sink previous_;
};

class ContentKeyProviderTest : public ::testing::Test {
protected:
    std::filesystem::path keyFile() const { return dir / "content-key"; }
    ContentKeys load(Keyring* ring) { return ContentKeyProvider(ring, dir.path()).load(kNow); }
    // As Marlune writes it: private to the user.
    void writeKeyFile(const std::string& text) {
        test::writeFileBytes(keyFile(), text);
        ::chmod(keyFile().c_str(), 0600);
    }
    std::optional<std::string> keyringSecret() const {
        const auto it = keyring.items.find(ContentKeyProvider::itemName);
        return it == keyring.items.end() ? std::nullopt : std::optional(it->second.secret);
    }

    test::TempDir dir;
    test::FakeKeyring keyring;
};

TEST_F(ContentKeyProviderTest, FirstStartWithKeyringStoresANewKeyThere) {
    const auto keys = load(&keyring);
    EXPECT_EQ(keys.source, ContentKeySource::keyringCreated);
    EXPECT_EQ(keyringSecret(), keyText(keys.current));
    EXPECT_EQ(keyring.items.begin()->second.label, ContentKeyProvider::itemLabel);
    EXPECT_FALSE(std::filesystem::exists(keyFile()));
    // The next start finds the same key.
    const auto again = load(&keyring);
    EXPECT_EQ(again.source, ContentKeySource::keyring);
    EXPECT_EQ(again.current, keys.current);
}

TEST_F(ContentKeyProviderTest, WithoutKeyringTheKeyFileIsPrivateFromTheStartAndLoggedOnce) {
    keyring.unavailable = true;
    LogCapture log;
    const auto keys = load(&keyring);
    EXPECT_EQ(keys.source, ContentKeySource::fileCreated);
    EXPECT_EQ(modeOf(keyFile()), 0600u);
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_NE(log.lines[0].find("because no Secret Service answered"), std::string::npos);
    EXPECT_EQ(log.lines[0].find(keyText(keys.current)), std::string::npos);

    const auto again = load(nullptr);
    EXPECT_EQ(again.source, ContentKeySource::file);
    EXPECT_EQ(again.current, keys.current);
    // Nothing but the key file was left behind by its creation.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()),
                            std::filesystem::directory_iterator()),
              1);
}

TEST_F(ContentKeyProviderTest, KeyFileMovesIntoTheKeyringOnceOneAnswers) {
    const auto fileKey = SymmetricKey::random();
    writeKeyFile(keyText(fileKey) + "\n");
    const auto keys = load(&keyring);
    EXPECT_EQ(keys.source, ContentKeySource::keyringMigrated);
    EXPECT_EQ(keys.current, fileKey);
    EXPECT_EQ(keyringSecret(), keyText(fileKey));
    EXPECT_FALSE(std::filesystem::exists(keyFile()));
}

TEST_F(ContentKeyProviderTest, KeyFileStaysWhenTheKeyringRefusesToStoreIt) {
    const auto fileKey = SymmetricKey::random();
    writeKeyFile(keyText(fileKey));
    keyring.failStores = true;
    const auto keys = load(&keyring);
    EXPECT_EQ(keys.source, ContentKeySource::file);
    EXPECT_EQ(keys.current, fileKey);
    EXPECT_TRUE(std::filesystem::exists(keyFile()));
}

TEST_F(ContentKeyProviderTest, DifferingFileKeyIsRetiredNotLost) {
    const auto keyringKey = SymmetricKey::random();
    const auto fileKey = SymmetricKey::random();
    keyring.items[std::string(ContentKeyProvider::itemName)] = {"label", keyText(keyringKey)};
    writeKeyFile(keyText(fileKey));

    const auto keys = load(&keyring);
    EXPECT_EQ(keys.source, ContentKeySource::keyring);
    EXPECT_EQ(keys.current, keyringKey);
    ASSERT_EQ(keys.retired.size(), 1u);
    EXPECT_EQ(keys.retired[0], fileKey);
    EXPECT_FALSE(std::filesystem::exists(keyFile()));
    const auto archived = ContentKeyArchive(dir.path()).load();
    ASSERT_EQ(archived.size(), 1u);
    EXPECT_EQ(archived[0].retiredAt, "2026-11-21T23:15:00Z");
    EXPECT_EQ(modeOf(dir / "content-keys-retired.json"), 0600u);
    // Retired keys come back on every later start.
    EXPECT_EQ(load(&keyring).retired.size(), 1u);
}

TEST_F(ContentKeyProviderTest, MalformedKeyIsRefusedAndLeftInPlace) {
    struct Row {
        const char* what;
        bool inKeyring;
        std::string text;
    };
    const Row rows[] = {
        {"short file", false, base64Encode(Bytes(31, 1))},
        {"long file", false, base64Encode(Bytes(33, 1))},
        {"not base64 file", false, "this is not a key"},
        {"empty file", false, ""},
        {"short keyring item", true, base64Encode(Bytes(16, 1))},
        {"raw bytes in keyring", true, std::string(32, 'k')},
    };
    for (const auto& row : rows) {
        test::TempDir fresh;
        test::FakeKeyring ring;
        if (row.inKeyring) {
            ring.items[std::string(ContentKeyProvider::itemName)] = {"label", row.text};
        } else {
            test::writeFileBytes(fresh / "content-key", row.text);
            ring.unavailable = true;
        }
        EXPECT_THROW(ContentKeyProvider(&ring, fresh.path()).load(kNow), ContentKeyError)
            << row.what;
        if (row.inKeyring) {
            EXPECT_EQ(ring.items.begin()->second.secret, row.text) << row.what;
        } else {
            const auto bytes = test::readFileBytes(fresh / "content-key");
            EXPECT_EQ(std::string(bytes.begin(), bytes.end()), row.text) << row.what;
        }
    }
}

TEST_F(ContentKeyProviderTest, KeyFileOthersCanReadOrThatIsNotAFileIsRefusedUntouched) {
    const auto key = SymmetricKey::random();
    struct Row {
        const char* what;
        mode_t mode;
        bool link;
        const char* says;
    };
    const Row rows[] = {
        {"readable by the group", 0640, false, "has mode 0640"},
        {"writable by anyone", 0606, false, "has mode 0606"},
        {"a link to a key elsewhere", 0600, true, "is not a file of yours"},
    };
    for (const auto& row : rows) {
        test::TempDir fresh;
        const auto file = fresh / "content-key";
        if (row.link) {
            test::writeFileBytes(fresh / "elsewhere", keyText(key));
            ::chmod((fresh / "elsewhere").c_str(), 0600);
            std::filesystem::create_symlink(fresh / "elsewhere", file);
        } else {
            test::writeFileBytes(file, keyText(key));
            ::chmod(file.c_str(), row.mode);
        }
        try {
            ContentKeyProvider(nullptr, fresh.path()).load(kNow);
            ADD_FAILURE() << row.what << ": accepted";
        } catch (const ContentKeyError& error) {
            EXPECT_NE(std::string(error.what()).find(row.says), std::string::npos)
                << row.what << ": " << error.what();
        }
        if (!row.link) {
            EXPECT_EQ(modeOf(file), row.mode) << row.what << ": left as it was";
        }
    }
}

TEST_F(ContentKeyProviderTest, RawThirtyTwoByteFileIsNotAccepted) {
    // The file format is base64 text; a bare binary key would be a different writer's mistake
    // and must not be read as something else.
    writeKeyFile(std::string(32, 'A'));
    EXPECT_THROW(load(nullptr), ContentKeyError);
}

TEST(ContentKeyArchive, MissingFileIsEmptyAndCorruptFileIsRefusedUntouched) {
    test::TempDir dir;
    const ContentKeyArchive archive(dir.path());
    EXPECT_TRUE(archive.load().empty());

    const std::string corrupt[] = {
        "{not json",
        "[]",
        R"({"version":1})",
        R"({"version":1,"keys":[{"key":"AAAA","retiredAt":"2026-01-01T00:00:00Z"}]})",
        R"({"version":1,"keys":[{"retiredAt":"2026-01-01T00:00:00Z"}]})",
        R"({"version":2,"keys":[]})",
    };
    for (const auto& text : corrupt) {
        test::writeFileBytes(archive.path(), text);
        EXPECT_THROW(archive.load(), ContentKeyError) << text;
        EXPECT_THROW(archive.add(SymmetricKey::random(), kNow), ContentKeyError) << text;
        const auto bytes = test::readFileBytes(archive.path());
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), text);
    }
}

TEST(ContentKeyArchive, AddingKeepsEarlierKeysAndIgnoresDuplicates) {
    test::TempDir dir;
    const ContentKeyArchive archive(dir.path());
    const auto first = SymmetricKey::random();
    const auto second = SymmetricKey::random();
    EXPECT_TRUE(archive.add(first, kNow));
    EXPECT_TRUE(archive.add(second, kNow + std::chrono::hours(1)));
    EXPECT_FALSE(archive.add(first, kNow + std::chrono::hours(2)));
    const auto keys = archive.load();
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys[0].key, first);
    EXPECT_EQ(keys[1].key, second);
    EXPECT_EQ(keys[1].retiredAt, "2026-11-22T00:15:00Z");
}

TEST(DeviceIdentity, HashesTheTrimmedMachineIDWithAnApplicationPrefix) {
    const auto id = DeviceIdentity::fromMachineID("0123456789abcdef0123456789abcdef\n");
    EXPECT_EQ(id, "06d584ba0d40bd11a5bab098d712b806bf750098b0965bde2380744066e91f22");
    EXPECT_EQ(id, DeviceIdentity::fromMachineID("  0123456789abcdef0123456789abcdef"));
    EXPECT_NE(id, DeviceIdentity::fromMachineID("0123456789abcdef0123456789abcdee"));
    EXPECT_FALSE(DeviceIdentity::fromMachineID(" \n"));
}

} // namespace
} // namespace marlune
