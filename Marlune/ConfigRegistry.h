#pragma once

#include "MarluneCLIProtocol/CLIJSONValue.h"
#include "MarluneCore/Settings.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace marlune {

enum class ConfigType { boolean, integer, string, dictionary };

std::string_view rawValue(ConfigType type);

// One setting the application reads from the user defaults. Dictionaries travel as their
// compact JSON text, since a configuration value on the wire is a scalar.
struct ConfigSetting {
    std::string_view key;
    ConfigType type = ConfigType::boolean;
    CLIJSONValue defaultValue;
    // Read once at start-up, so a change shows only after the application is started again.
    bool requiresRelaunch = false;
    // State the application keeps for itself; listed only on request and never set by hand.
    bool internal = false;
    // The sentence refusing a value of the right type, or nothing when it is acceptable.
    std::optional<std::string> (*check)(const CLIJSONValue& value) = nullptr;
};

// Why a typed value was not accepted: a whole sentence and, where it helps, what to type.
struct ConfigRefusal {
    std::string message;
    std::optional<std::string> hint;
};

// Every setting of the application, with its type, default and rule: what "config" lists,
// reads and changes.
struct ConfigRegistry {
    static const std::vector<ConfigSetting>& settings();
    static const ConfigSetting* find(std::string_view key);

    // The value in force: the stored one when it has the setting's type and passes its rule,
    // otherwise the default (as the application itself falls back when it reads the key).
    static CLIJSONValue read(const ConfigSetting& setting, const Settings& settings);

    // The value typed on the command line, converted to the setting's type and checked.
    static std::variant<CLIJSONValue, ConfigRefusal> parse(const ConfigSetting& setting,
                                                           std::string_view text);

    // Stores a value that `parse` produced. Throws SettingsError when the file can't be written.
    static void write(const ConfigSetting& setting, const CLIJSONValue& value, Settings& settings);
};

} // namespace marlune
