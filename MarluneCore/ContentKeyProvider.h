#pragma once

#include "MarluneCore/ContentKeyArchive.h"
#include "MarluneCore/Keyring.h"
#include "MarluneCore/SymmetricKey.h"

#include <chrono>
#include <filesystem>
#include <string_view>
#include <vector>

namespace marlune {

enum class ContentKeySource {
    keyring,         // the keyring item
    keyringCreated,  // made now and stored in the keyring
    keyringMigrated, // moved now from the content-key file into the keyring
    file,            // the content-key file, because no keyring took the key
    fileCreated,     // made now and kept in a new content-key file
};

struct ContentKeys {
    SymmetricKey current;
    std::vector<SymmetricKey> retired;
    ContentKeySource source;
};

// Finds the library's content key, making it on first use.
//
// The key belongs in the user's keyring. A desktop without a Secret Service (headless, CI)
// keeps it in the file `content-key` (base64 text, mode 0600) in the library directory
// instead, and the next start that finds a keyring moves it there. A key that is present but
// malformed is an error, never replaced: a new key would make the whole library unreadable.
class ContentKeyProvider {
public:
    static constexpr std::string_view itemName = "org.marlune.Marlune.content-key";
    static constexpr std::string_view itemLabel = "Marlune content key";
    static constexpr std::string_view fileName = "content-key";

    // `keyring` may be null (no keyring at all); it must outlive the provider.
    ContentKeyProvider(Keyring* keyring, std::filesystem::path libraryDirectory);

    // Throws ContentKeyError with the message to show.
    ContentKeys load(std::chrono::system_clock::time_point now);

private:
    ContentKeys fromFile(std::optional<SymmetricKey> fileKey, std::string_view reason);
    ContentKeys finish(SymmetricKey current, ContentKeySource source) const;
    bool storeInKeyring(const SymmetricKey& key);
    std::optional<SymmetricKey> readKeyFile() const;
    bool createKeyFile(const SymmetricKey& key) const;
    void removeKeyFile() const;

    Keyring* keyring_;
    std::filesystem::path directory_;
    std::filesystem::path keyFile_;
};

} // namespace marlune
