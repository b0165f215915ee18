#include "MarluneCore/Settings.h"

#include "MarluneCore/AtomicFile.h"
#include "MarluneCore/LibraryPaths.h"
#include "MarluneCore/Log.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <sys/stat.h>
#include <system_error>

namespace marlune {

namespace {

std::string compactUTC(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y%m%dT%H%M%SZ", &utc);
    return buffer;
}

bool pathTaken(const std::filesystem::path& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

// Moves the unreadable file out of the way without ever replacing another file.
std::filesystem::path setAside(const std::filesystem::path& file,
                               std::chrono::system_clock::time_point now) {
    const std::string base = file.string() + ".corrupt-" + compactUTC(now);
    std::filesystem::path target = base;
    for (int n = 1; pathTaken(target); ++n) {
        target = base + "-" + std::to_string(n);
    }
    if (::rename(file.c_str(), target.c_str()) != 0) {
        throw SettingsError("The settings file " + file.string() +
                            " is not valid and could not be moved aside: " +
                            std::generic_category().message(errno));
    }
    return target;
}

} // namespace

Settings::Settings(std::filesystem::path file, nlohmann::json values)
    : file_(std::move(file)), values_(std::move(values)) {}

Settings Settings::load(std::filesystem::path file, std::chrono::system_clock::time_point now) {
    std::optional<std::string> text;
    try {
        text = readFileIfExists(file);
    } catch (const std::system_error& error) {
        throw SettingsError("The settings could not be read: " + std::string(error.what()));
    }
    if (!text) {
        return Settings(std::move(file), nlohmann::json::object());
    }
    auto values = nlohmann::json::parse(*text, nullptr, false);
    if (!values.is_discarded() && values.is_object()) {
        return Settings(std::move(file), std::move(values));
    }
    const auto aside = setAside(file, now);
    logs::settings.warning("The settings file was not a JSON object; it was moved to " +
                           aside.string() + " and the default settings are used.");
    return Settings(std::move(file), nlohmann::json::object());
}

const nlohmann::json* Settings::find(std::string_view key) const {
    const auto it = values_.find(key);
    return it == values_.end() ? nullptr : &*it;
}

bool Settings::contains(std::string_view key) const {
    return find(key) != nullptr;
}

bool Settings::boolean(std::string_view key, bool fallback) const {
    const auto* value = find(key);
    return value && value->is_boolean() ? value->get<bool>() : fallback;
}

std::int64_t Settings::integer(std::string_view key, std::int64_t fallback) const {
    const auto* value = find(key);
    if (value == nullptr) {
        return fallback;
    }
    if (value->is_number_unsigned()) {
        const auto n = value->get<std::uint64_t>();
        return n <= static_cast<std::uint64_t>(INT64_MAX) ? static_cast<std::int64_t>(n) : fallback;
    }
    return value->is_number_integer() ? value->get<std::int64_t>() : fallback;
}

std::string Settings::string(std::string_view key, std::string_view fallback) const {
    const auto* value = find(key);
    return value && value->is_string() ? value->get<std::string>() : std::string(fallback);
}

nlohmann::json Settings::dictionary(std::string_view key, const nlohmann::json& fallback) const {
    const auto* value = find(key);
    if (value && value->is_object()) {
        return *value;
    }
    return fallback.is_null() ? nlohmann::json::object() : fallback;
}

void Settings::setBoolean(std::string_view key, bool value) {
    set(key, value);
}
void Settings::setInteger(std::string_view key, std::int64_t value) {
    set(key, value);
}
void Settings::setString(std::string_view key, std::string_view value) {
    set(key, std::string(value));
}
void Settings::setDictionary(std::string_view key, const nlohmann::json& value) {
    if (!value.is_object()) {
        throw SettingsError("The setting " + std::string(key) + " must be a dictionary.");
    }
    set(key, value);
}

void Settings::remove(std::string_view key) {
    if (!contains(key)) {
        return;
    }
    nlohmann::json next = values_;
    next.erase(std::string(key));
    write(next);
    values_ = std::move(next);
}

void Settings::set(std::string_view key, nlohmann::json value) {
    nlohmann::json next = values_;
    next[std::string(key)] = std::move(value);
    write(next);
    values_ = std::move(next);
}

void Settings::write(const nlohmann::json& values) const {
    try {
        if (file_.has_parent_path()) {
            createPrivateDirectory(file_.parent_path());
        }
        // Invalid UTF-8 in a string is replaced rather than failing the whole write.
        writeFileAtomically(
            file_, values.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n",
            0600);
    } catch (const std::system_error& error) {
        throw SettingsError("The settings could not be saved: " + std::string(error.what()));
    } catch (const LibraryPathsError& error) {
        throw SettingsError("The settings could not be saved: " + std::string(error.what()));
    }
}

} // namespace marlune
