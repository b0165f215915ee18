#include "MarluneCore/LibraryPaths.h"

#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace marlune {

namespace {

std::optional<std::string> variable(const EnvironmentLookup& environment, std::string_view name) {
    auto value = environment(name);
    if (!value || value->empty()) {
        return std::nullopt;
    }
    return value;
}

std::filesystem::path xdgBase(const EnvironmentLookup& environment, std::string_view name,
                              std::string_view fallbackUnderHome) {
    if (auto value = variable(environment, name); value && value->front() == '/') {
        return *value;
    }
    auto home = variable(environment, "HOME");
    if (!home) {
        throw LibraryPathsError("Cannot find the library: neither " + std::string(name) +
                                " nor HOME is set.");
    }
    return std::filesystem::path(*home) / fallbackUnderHome;
}

} // namespace

LibraryPaths LibraryPaths::resolve(const EnvironmentLookup& environment) {
    if (auto home = variable(environment, "MARLUNE_HOME")) {
        const std::filesystem::path directory(*home);
        return {directory, directory / "settings.json"};
    }
    return {xdgBase(environment, "XDG_DATA_HOME", ".local/share") / "Marlune",
            xdgBase(environment, "XDG_CONFIG_HOME", ".config") / "Marlune" / "settings.json"};
}

EnvironmentLookup LibraryPaths::processEnvironment() {
    return [](std::string_view name) -> std::optional<std::string> {
        const std::string key(name);
        if (const char* value = std::getenv(key.c_str()); value != nullptr && *value != '\0') {
            return std::string(value);
        }
        if (name == "HOME") {
            long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
            std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
            passwd entry{};
            passwd* result = nullptr;
            if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result) == 0 &&
                result != nullptr && result->pw_dir != nullptr) {
                return std::string(result->pw_dir);
            }
        }
        return std::nullopt;
    };
}

void LibraryPaths::createLibraryDirectory() const {
    createPrivateDirectory(libraryDirectory);
}

void createPrivateDirectory(const std::filesystem::path& directory) {
    std::error_code error;
    if (directory.has_parent_path()) {
        std::filesystem::create_directories(directory.parent_path(), error);
        if (error) {
            throw LibraryPathsError("Could not create " + directory.parent_path().string() + ": " +
                                    error.message());
        }
    }
    if (::mkdir(directory.c_str(), 0700) == 0) {
        return;
    }
    if (errno != EEXIST) {
        throw LibraryPathsError("Could not create " + directory.string() + ": " +
                                std::generic_category().message(errno));
    }
    struct stat info {};
    if (::stat(directory.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        throw LibraryPathsError(directory.string() + " exists but is not a directory.");
    }
    // The library holds the content key file and the command-line token.
    if ((info.st_mode & 077) != 0 && ::chmod(directory.c_str(), 0700) != 0) {
        throw LibraryPathsError("Could not make " + directory.string() +
                                " private: " + std::generic_category().message(errno));
    }
}

} // namespace marlune
