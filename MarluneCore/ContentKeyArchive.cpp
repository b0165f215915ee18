#include "MarluneCore/ContentKeyArchive.h"

#include "MarluneCore/AtomicFile.h"
#include "MarluneCore/Base64.h"

#include <ctime>
#include <nlohmann/json.hpp>
#include <openssl/crypto.h>
#include <system_error>

namespace marlune {

namespace {

constexpr int kVersion = 1;

[[noreturn]] void damaged(const std::filesystem::path& path, std::string_view detail) {
    throw ContentKeyError("The retired content keys file " + path.string() + " is damaged (" +
                          std::string(detail) +
                          "). It was left as it is; restore it from a backup, or move it aside to "
                          "give up the content sealed under those keys.");
}

void wipe(std::string& text) {
    OPENSSL_cleanse(text.data(), text.size());
}

std::vector<RetiredContentKey> parse(const std::string& text, const std::filesystem::path& path) {
    const auto document = nlohmann::json::parse(text, nullptr, false);
    if (document.is_discarded() || !document.is_object()) {
        damaged(path, "not a JSON object");
    }
    const auto version = document.find("version");
    if (version == document.end() || !version->is_number_integer()) {
        damaged(path, "no version");
    }
    if (version->get<std::int64_t>() != kVersion) {
        throw ContentKeyError("The retired content keys file " + path.string() +
                              " was written by a newer version of Marlune (format " +
                              version->dump() + ") and cannot be read by this one.");
    }
    const auto keys = document.find("keys");
    if (keys == document.end() || !keys->is_array()) {
        damaged(path, "no key list");
    }
    std::vector<RetiredContentKey> result;
    for (const auto& entry : *keys) {
        const auto key = entry.is_object() ? entry.find("key") : entry.end();
        const auto retiredAt = entry.is_object() ? entry.find("retiredAt") : entry.end();
        if (!entry.is_object() || key == entry.end() || !key->is_string() ||
            retiredAt == entry.end() || !retiredAt->is_string()) {
            damaged(path, "an entry without key or retiredAt");
        }
        auto bytes = base64Decode(key->get_ref<const std::string&>());
        auto symmetric = bytes ? SymmetricKey::fromBytes(*bytes) : std::nullopt;
        if (bytes) {
            OPENSSL_cleanse(bytes->data(), bytes->size());
        }
        if (!symmetric) {
            damaged(path, "a key that is not 32 bytes of base64");
        }
        result.push_back({*symmetric, retiredAt->get<std::string>()});
    }
    return result;
}

} // namespace

std::string iso8601UTC(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return buffer;
}

ContentKeyArchive::ContentKeyArchive(std::filesystem::path libraryDirectory)
    : path_(std::move(libraryDirectory) / fileName) {}

std::vector<RetiredContentKey> ContentKeyArchive::load() const {
    std::optional<std::string> text;
    try {
        text = readFileIfExists(path_);
    } catch (const std::system_error& error) {
        throw ContentKeyError("The retired content keys file could not be read: " +
                              std::string(error.what()));
    }
    if (!text) {
        return {};
    }
    try {
        auto keys = parse(*text, path_);
        wipe(*text);
        return keys;
    } catch (...) {
        wipe(*text);
        throw;
    }
}

std::vector<SymmetricKey> ContentKeyArchive::keys() const {
    std::vector<SymmetricKey> keys;
    for (auto& entry : load()) {
        keys.push_back(entry.key);
    }
    return keys;
}

bool ContentKeyArchive::add(const SymmetricKey& key,
                            std::chrono::system_clock::time_point now) const {
    auto entries = load();
    for (const auto& entry : entries) {
        if (entry.key == key) {
            return false;
        }
    }
    entries.push_back({key, iso8601UTC(now)});

    nlohmann::json list = nlohmann::json::array();
    for (const auto& entry : entries) {
        list.push_back({{"key", base64Encode(entry.key.bytes())}, {"retiredAt", entry.retiredAt}});
    }
    nlohmann::json document = {{"version", kVersion}, {"keys", std::move(list)}};
    std::string text = document.dump(2) + "\n";
    for (auto& item : document["keys"]) {
        wipe(item["key"].get_ref<std::string&>());
    }
    try {
        writeFileAtomically(path_, text, 0600);
    } catch (const std::system_error& error) {
        wipe(text);
        throw ContentKeyError("The retired content keys file could not be written: " +
                              std::string(error.what()));
    }
    wipe(text);
    return true;
}

} // namespace marlune
