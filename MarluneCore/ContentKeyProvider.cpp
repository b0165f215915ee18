#include "MarluneCore/ContentKeyProvider.h"

#include "MarluneCore/AtomicFile.h"
#include "MarluneCore/Base64.h"
#include "MarluneCore/Log.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace marlune {

namespace {

// Wipes a string holding key material when it goes out of scope.
struct WipeOnExit {
    std::string& text;
    ~WipeOnExit() { OPENSSL_cleanse(text.data(), text.size()); }
};

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view space = " \t\r\n";
    const auto first = text.find_first_not_of(space);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}

// The key as base64 text, as it is stored in the keyring and the file.
std::optional<SymmetricKey> decodeKeyText(std::string_view text) {
    auto bytes = base64Decode(trimmed(text));
    if (!bytes) {
        return std::nullopt;
    }
    auto key = SymmetricKey::fromBytes(*bytes);
    OPENSSL_cleanse(bytes->data(), bytes->size());
    return key;
}

std::string encodeKey(const SymmetricKey& key) {
    return base64Encode(key.bytes());
}

[[noreturn]] void ioFailure(std::string_view what, const std::filesystem::path& path, int error) {
    throw ContentKeyError(std::string(what) + " " + path.string() + ": " +
                          std::generic_category().message(error));
}

} // namespace

ContentKeyProvider::ContentKeyProvider(Keyring* keyring, std::filesystem::path libraryDirectory)
    : keyring_(keyring), directory_(std::move(libraryDirectory)), keyFile_(directory_ / fileName) {}

ContentKeys ContentKeyProvider::load(std::chrono::system_clock::time_point now) {
    std::optional<SymmetricKey> fileKey = readKeyFile();
    if (keyring_ == nullptr) {
        return fromFile(std::move(fileKey), "no keyring support");
    }

    auto answer = keyring_->lookup(itemName);
    if (auto* unavailable = std::get_if<KeyringUnavailable>(&answer)) {
        return fromFile(std::move(fileKey), unavailable->reason);
    }
    if (auto* found = std::get_if<KeyringFound>(&answer)) {
        WipeOnExit wipe{found->secret};
        auto key = decodeKeyText(found->secret);
        if (!key) {
            throw ContentKeyError(
                "The content key in the keyring (item " + std::string(itemName) +
                ") is malformed: it is not 32 bytes of base64. It was left as it is; restore it "
                "in the keyring manager, or delete the item to start a new library key.");
        }
        if (fileKey) {
            // The library ran without a keyring at some point and made its own key while the
            // keyring already held one. The keyring key stays current; what was sealed under the
            // file key stays readable through the archive.
            if (!(*fileKey == *key)) {
                ContentKeyArchive(directory_).add(*fileKey, now);
                logs::crypto.info("The content key file " + keyFile_.string() +
                                  " held a different key than the keyring; it was kept as a "
                                  "retired key.");
            }
            removeKeyFile();
        }
        return finish(*key, ContentKeySource::keyring);
    }

    // The keyring answers but has no key yet.
    if (fileKey) {
        if (!storeInKeyring(*fileKey)) {
            return fromFile(std::move(fileKey), "the keyring did not store the key");
        }
        removeKeyFile();
        logs::crypto.info("The content key was moved from " + keyFile_.string() +
                          " into the keyring.");
        return finish(*fileKey, ContentKeySource::keyringMigrated);
    }
    SymmetricKey key = SymmetricKey::random();
    if (!storeInKeyring(key)) {
        return fromFile(std::nullopt, "the keyring did not store the key");
    }
    return finish(key, ContentKeySource::keyringCreated);
}

ContentKeys ContentKeyProvider::fromFile(std::optional<SymmetricKey> fileKey,
                                         std::string_view reason) {
    logs::crypto.info("The content key is kept in " + keyFile_.string() +
                      " because no Secret Service answered (" + std::string(reason) + ").");
    if (fileKey) {
        return finish(*fileKey, ContentKeySource::file);
    }
    SymmetricKey key = SymmetricKey::random();
    if (createKeyFile(key)) {
        return finish(key, ContentKeySource::fileCreated);
    }
    // Another process made the file between our read and our create: its key wins.
    auto theirs = readKeyFile();
    if (!theirs) {
        throw ContentKeyError("The content key file " + keyFile_.string() +
                              " vanished while it was being created.");
    }
    return finish(*theirs, ContentKeySource::file);
}

ContentKeys ContentKeyProvider::finish(SymmetricKey current, ContentKeySource source) const {
    std::vector<SymmetricKey> retired;
    for (auto& key : ContentKeyArchive(directory_).keys()) {
        if (!(key == current)) {
            retired.push_back(key);
        }
    }
    return {std::move(current), std::move(retired), source};
}

bool ContentKeyProvider::storeInKeyring(const SymmetricKey& key) {
    std::string secret = encodeKey(key);
    WipeOnExit wipeSecret{secret};
    if (!std::holds_alternative<KeyringDone>(keyring_->store(itemName, itemLabel, secret))) {
        return false;
    }
    // Only a key that reads back intact may replace the file copy.
    auto answer = keyring_->lookup(itemName);
    auto* found = std::get_if<KeyringFound>(&answer);
    if (found == nullptr) {
        return false;
    }
    WipeOnExit wipeFound{found->secret};
    const auto readBack = decodeKeyText(found->secret);
    return readBack && *readBack == key;
}

std::optional<SymmetricKey> ContentKeyProvider::readKeyFile() const {
    std::optional<std::string> text;
    try {
        text = readFileIfExists(keyFile_);
    } catch (const std::system_error& error) {
        throw ContentKeyError("The content key file could not be read: " +
                              std::string(error.what()));
    }
    if (!text) {
        return std::nullopt;
    }
    WipeOnExit wipe{*text};
    auto key = decodeKeyText(*text);
    if (!key) {
        throw ContentKeyError("The content key file " + keyFile_.string() +
                              " is malformed: it does not hold a 32-byte key in base64. It was "
                              "left as it is; restore it from a backup, or move it aside to "
                              "start a new library key.");
    }
    // A key file someone else could have written, or can read, is not ours to trust: another
    // user could have planted it in a loose folder to read what is sealed from then on.
    struct stat info {};
    if (::lstat(keyFile_.c_str(), &info) != 0) {
        ioFailure("Could not check the content key file", keyFile_, errno);
    }
    if (!S_ISREG(info.st_mode) || info.st_uid != ::getuid()) {
        throw ContentKeyError("The content key file " + keyFile_.string() +
                              " is not a file of yours, so Marlune will not use it. Remove it, "
                              "or put your own key file in its place, and start Marlune again.");
    }
    if ((info.st_mode & 077) != 0) {
        char mode[8];
        std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(info.st_mode & 07777));
        throw ContentKeyError("The content key file " + keyFile_.string() + " has mode " + mode +
                              ", so other users can read or change it; Marlune will not use it. "
                              "Make it private with: chmod 600 " +
                              keyFile_.string());
    }
    return key;
}

bool ContentKeyProvider::createKeyFile(const SymmetricKey& key) const {
    // Written under a temporary name and linked into place, so the file is either absent or
    // complete: a half-written key file would read as malformed and block every later start.
    // mkstemp opens with O_CREAT|O_EXCL and mode 0600, so no one else can ever read it.
    std::string temporary = (directory_ / ".content-key.tmp-XXXXXX").string();
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) {
        ioFailure("Could not create the content key file in", directory_, errno);
    }
    std::string text = encodeKey(key) + "\n";
    WipeOnExit wipe{text};
    const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const int writeError = errno;
    const bool synced = written && ::fsync(fd) == 0;
    ::close(fd);
    if (!synced) {
        ::unlink(temporary.c_str());
        ioFailure("Could not write the content key file", temporary, written ? errno : writeError);
    }
    const int linked = ::link(temporary.c_str(), keyFile_.c_str());
    const int linkError = errno;
    ::unlink(temporary.c_str());
    if (linked != 0) {
        if (linkError == EEXIST) {
            return false;
        }
        ioFailure("Could not create the content key file", keyFile_, linkError);
    }
    const int dir = ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

void ContentKeyProvider::removeKeyFile() const {
    if (::unlink(keyFile_.c_str()) != 0 && errno != ENOENT) {
        // Harmless: the keyring holds the key now, and the next start tries again.
        logs::crypto.warning("Could not remove " + keyFile_.string() + ": " +
                             std::generic_category().message(errno));
    }
}

} // namespace marlune
