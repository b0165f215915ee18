#pragma once

#include "MarluneCore/SymmetricKey.h"

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// A content key problem the user has to know about; `what()` is the message to show.
class ContentKeyError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct RetiredContentKey {
    SymmetricKey key;
    std::string retiredAt; // ISO 8601, UTC
};

// The content keys that were replaced, kept so that values sealed under them still open:
// `content-keys-retired.json` in the library directory, mode 0600,
//   {"version": 1, "keys": [{"key": "<base64 of 32 bytes>", "retiredAt": "2026-11-21T23:15:00Z"}]}
// A missing file is an empty archive. A file that cannot be read as such is an error and is
// never rewritten: dropping a key from it would make everything sealed under it unreadable.
class ContentKeyArchive {
public:
    static constexpr std::string_view fileName = "content-keys-retired.json";

    explicit ContentKeyArchive(std::filesystem::path libraryDirectory);

    const std::filesystem::path& path() const { return path_; }

    // Throws ContentKeyError.
    std::vector<RetiredContentKey> load() const;
    std::vector<SymmetricKey> keys() const;
    // Appends the key unless it is already there; false when it was. Throws ContentKeyError.
    bool add(const SymmetricKey& key, std::chrono::system_clock::time_point now) const;

private:
    std::filesystem::path path_;
};

// "2026-11-21T23:15:00Z"
std::string iso8601UTC(std::chrono::system_clock::time_point time);

} // namespace marlune
