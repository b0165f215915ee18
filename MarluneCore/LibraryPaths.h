#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace marlune {

class LibraryPathsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads one environment variable; a variable that is set but empty counts as unset.
using EnvironmentLookup = std::function<std::optional<std::string>(std::string_view name)>;

// Where the library and the settings live:
//   library directory  $MARLUNE_HOME, else ${XDG_DATA_HOME:-$HOME/.local/share}/Marlune
//   settings file      $MARLUNE_HOME/settings.json, else
//                      ${XDG_CONFIG_HOME:-$HOME/.config}/Marlune/settings.json
// XDG variables holding a relative path are ignored, as the base directory rules ask.
struct LibraryPaths {
    std::filesystem::path libraryDirectory;
    std::filesystem::path settingsFile;

    // Throws LibraryPathsError when neither the variables nor HOME say where to go.
    static LibraryPaths resolve(const EnvironmentLookup& environment);

    // The process environment, with HOME taken from the password database when unset.
    static EnvironmentLookup processEnvironment();

    // See createPrivateDirectory.
    void createLibraryDirectory() const;
};

// Creates `directory` (and missing parents) with mode 0700 for the last component, and
// tightens an existing one that others can reach to 0700. Throws LibraryPathsError.
void createPrivateDirectory(const std::filesystem::path& directory);

} // namespace marlune
