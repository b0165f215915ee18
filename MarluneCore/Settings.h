#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

namespace marlune {

class SettingsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The user defaults: one JSON object in settings.json. Getters fall back to the given default
// when a key is absent or holds another type. Every setter rewrites the whole file atomically,
// keeping keys this version does not know (written by a newer version, or by hand).
class Settings {
public:
    // A missing file gives empty settings. A file that is not a JSON object is renamed aside to
    // "settings.json.corrupt-<now as 20261121T231500Z>" and empty settings are used, so the
    // user's file is never overwritten. Throws SettingsError when the file cannot be read.
    static Settings load(std::filesystem::path file, std::chrono::system_clock::time_point now);

    bool boolean(std::string_view key, bool fallback) const;
    std::int64_t integer(std::string_view key, std::int64_t fallback) const;
    std::string string(std::string_view key, std::string_view fallback) const;
    // A JSON object.
    nlohmann::json dictionary(std::string_view key, const nlohmann::json& fallback = {}) const;
    bool contains(std::string_view key) const;

    // Each throws SettingsError when the file cannot be written; the settings in memory are
    // then left as they were.
    void setBoolean(std::string_view key, bool value);
    void setInteger(std::string_view key, std::int64_t value);
    void setString(std::string_view key, std::string_view value);
    void setDictionary(std::string_view key, const nlohmann::json& value);
    void remove(std::string_view key);

    const std::filesystem::path& file() const { return file_; }

private:
    Settings(std::filesystem::path file, nlohmann::json values);
    void set(std::string_view key, nlohmann::json value);
    void write(const nlohmann::json& values) const;
    const nlohmann::json* find(std::string_view key) const;

    std::filesystem::path file_;
    nlohmann::json values_;
};

} // namespace marlune
