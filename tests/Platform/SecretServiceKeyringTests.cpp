#include "MarluneCore/ContentKeyProvider.h"
#include "Platform/SecretServiceKeyring.h"
#include "support/TempDir.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <openssl/rand.h>
#include <optional>
#include <sys/types.h>

namespace marlune {
namespace {

std::string uniqueItemName() {
    unsigned char random[6];
    RAND_bytes(random, sizeof random);
    std::string name = "org.marlune.Marlune.test.";
    for (unsigned char byte : random) {
        name += "0123456789abcdef"[byte >> 4];
        name += "0123456789abcdef"[byte & 15];
    }
    return name;
}

// These run against a real Secret Service: scripts/test-session.sh starts a throwaway
// gnome-keyring-daemon and sets MARLUNE_TEST_KEYRING. Anywhere else they skip, so that a
// developer's own keyring is never written to.
class RealKeyringTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("MARLUNE_TEST_KEYRING") == nullptr) {
            GTEST_SKIP() << "MARLUNE_TEST_KEYRING is not set; run under scripts/test-session.sh";
        }
        const auto probe = keyring.lookup("org.marlune.Marlune.probe");
        if (const auto* unavailable = std::get_if<KeyringUnavailable>(&probe)) {
            GTEST_SKIP() << "no Secret Service answered: " << unavailable->reason;
        }
    }

    SecretServiceKeyring keyring;
};

TEST_F(RealKeyringTest, StoresLooksUpReplacesAndDeletesAnItem) {
    const std::string item = uniqueItemName();
    EXPECT_TRUE(std::holds_alternative<KeyringNotFound>(keyring.lookup(item)));

    ASSERT_TRUE(std::holds_alternative<KeyringDone>(keyring.store(item, "Marlune test", "first")));
    auto found = keyring.lookup(item);
    ASSERT_TRUE(std::holds_alternative<KeyringFound>(found));
    EXPECT_EQ(std::get<KeyringFound>(found).secret, "first");

    ASSERT_TRUE(std::holds_alternative<KeyringDone>(keyring.store(item, "Marlune test", "second")));
    found = keyring.lookup(item);
    ASSERT_TRUE(std::holds_alternative<KeyringFound>(found));
    EXPECT_EQ(std::get<KeyringFound>(found).secret, "second");

    // Items are told apart by name: another item is not affected.
    EXPECT_TRUE(std::holds_alternative<KeyringNotFound>(keyring.lookup(item + ".other")));

    EXPECT_TRUE(std::holds_alternative<KeyringDone>(keyring.remove(item)));
    EXPECT_TRUE(std::holds_alternative<KeyringNotFound>(keyring.lookup(item)));
    EXPECT_TRUE(std::holds_alternative<KeyringDone>(keyring.remove(item)));
}

TEST_F(RealKeyringTest, ContentKeyProviderMovesAFileKeyIntoTheKeyringAndFindsItAgain) {
    const auto item = ContentKeyProvider::itemName;
    ASSERT_TRUE(std::holds_alternative<KeyringDone>(keyring.remove(item)));
    const auto now = std::chrono::system_clock::now();

    test::TempDir headless;
    const auto fileKeys = ContentKeyProvider(nullptr, headless.path()).load(now);
    ASSERT_EQ(fileKeys.source, ContentKeySource::fileCreated);

    const auto migrated = ContentKeyProvider(&keyring, headless.path()).load(now);
    EXPECT_EQ(migrated.source, ContentKeySource::keyringMigrated);
    EXPECT_EQ(migrated.current, fileKeys.current);
    EXPECT_FALSE(std::filesystem::exists(headless / "content-key"));

    const auto again = ContentKeyProvider(&keyring, headless.path()).load(now);
    EXPECT_EQ(again.source, ContentKeySource::keyring);
    EXPECT_EQ(again.current, fileKeys.current);

    EXPECT_TRUE(std::holds_alternative<KeyringDone>(keyring.remove(item)));
    test::TempDir fresh;
    EXPECT_EQ(ContentKeyProvider(&keyring, fresh.path()).load(now).source,
              ContentKeySource::keyringCreated);
    EXPECT_TRUE(std::holds_alternative<KeyringDone>(keyring.remove(item)));
}

// Runs in a freshly started copy of the test binary (death-test machinery), so the changed
// environment and the process-wide bus connection of GLib never leak into other tests.
// Exits 0 when the keyring answered "unavailable" within a few seconds.
[[noreturn]] void lookupExpectingUnavailable() {
    const auto start = std::chrono::steady_clock::now();
    SecretServiceKeyring keyring;
    const auto answer = keyring.lookup("org.marlune.Marlune.probe");
    const auto elapsed = std::chrono::steady_clock::now() - start;
    if (const auto* unavailable = std::get_if<KeyringUnavailable>(&answer)) {
        std::fprintf(stderr, "unavailable: %s\n", unavailable->reason.c_str());
        std::exit(elapsed < std::chrono::seconds(5) ? 0 : 2);
    }
    std::exit(1);
}

class NoSecretServiceTest : public ::testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(NoSecretServiceTest, AnswersUnavailablePromptlyWithoutASessionBus) {
    EXPECT_EXIT(
        {
            ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
            ::unsetenv("XDG_RUNTIME_DIR");
            lookupExpectingUnavailable();
        },
        ::testing::ExitedWithCode(0), "no D-Bus session bus");
    EXPECT_EXIT(
        {
            ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/marlune-bus", 1);
            lookupExpectingUnavailable();
        },
        ::testing::ExitedWithCode(0), "cannot connect");
}

// A private bus with no service directories, so nothing can be activated on it; stopped by
// its process id when the value dies.
class PrivateBus {
public:
    PrivateBus() {
        std::ofstream(dir_ / "bus.conf")
            << R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=)"
            << dir_.path().string() << R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";
        const std::string command = "dbus-daemon --config-file=" + (dir_ / "bus.conf").string() +
                                    " --fork --print-address=1 --print-pid=1 2>/dev/null";
        FILE* daemon = ::popen(command.c_str(), "r");
        if (daemon == nullptr) {
            return;
        }
        char address[512] = {};
        long pid = 0;
        if (std::fgets(address, sizeof address, daemon) != nullptr &&
            std::fscanf(daemon, "%ld", &pid) == 1 && pid > 0) {
            pid_ = static_cast<pid_t>(pid);
            address_ = address;
            address_.erase(address_.find_last_not_of("\r\n") + 1);
        }
        ::pclose(daemon);
    }
    ~PrivateBus() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
        }
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& address() const { return address_; }

private:
    test::TempDir dir_;
    pid_t pid_ = 0;
    std::string address_;
};

TEST_F(NoSecretServiceTest, AnswersUnavailablePromptlyOnABusWithoutTheService) {
    // The death-test child runs this body again from the start; it must reuse the parent's
    // bus rather than start (and inherit the pipes of) one of its own.
    constexpr const char* kAddressVariable = "MARLUNE_TEST_PRIVATE_BUS";
    std::optional<PrivateBus> bus;
    if (std::getenv(kAddressVariable) == nullptr) {
        bus.emplace();
        if (bus->address().empty()) {
            GTEST_SKIP() << "dbus-daemon could not be started";
        }
        ::setenv(kAddressVariable, bus->address().c_str(), 1);
    }
    EXPECT_EXIT(
        {
            ::setenv("DBUS_SESSION_BUS_ADDRESS", std::getenv(kAddressVariable), 1);
            lookupExpectingUnavailable();
        },
        ::testing::ExitedWithCode(0), "no Secret Service");
    ::unsetenv(kAddressVariable);
}

} // namespace
} // namespace marlune
