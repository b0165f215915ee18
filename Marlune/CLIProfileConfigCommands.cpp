#include "Marlune/CLIListener.h"
#include "Marlune/ConfigRegistry.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/SystemRecords.h"
#include "MarluneCore/ProfileStore.h"

namespace marlune {

namespace {

// --- profile ----------------------------------------------------------------------------

std::string profileKeyArg(const std::string& key) {
    if (key.find_first_not_of(" \t\r\n") == std::string::npos) {
        throw CLIError(CLIErrorCode::usage, "A profile key is required.");
    }
    return key;
}

CLIError noProfileVariable(const std::string& key) {
    return CLIError(CLIErrorCode::notFound, "No profile variable is named '" + key + "'.",
                    "List them with `marlune profile list`.");
}

std::vector<ProfileVarDTO> listProfile(const EmptyArgs&, CLICall& call) {
    std::vector<ProfileVarDTO> vars;
    for (const auto& [key, value] : ProfileStore(call.context()).profile().values) {
        vars.push_back({key, value});
    }
    return vars;
}

ProfileVarDTO getProfileVar(const KeyArgs& args, CLICall& call) {
    const auto key = profileKeyArg(args.key);
    const auto values = ProfileStore(call.context()).profile().values;
    const auto it = values.find(key);
    if (it == values.end()) {
        throw noProfileVariable(key);
    }
    return {key, it->second};
}

ProfileVarDTO setProfileVar(const ProfileSetArgs& args, CLICall& call) {
    const auto key = profileKeyArg(args.key);
    ProfileStore store(call.context());
    auto values = store.profile().values;
    values[key] = args.value;
    store.setValues(values);
    return {key, args.value};
}

DeleteResultDTO unsetProfileVar(const KeyArgs& args, CLICall& call) {
    const auto key = profileKeyArg(args.key);
    ProfileStore store(call.context());
    auto values = store.profile().values;
    if (values.erase(key) == 0) {
        throw noProfileVariable(key);
    }
    store.setValues(values);
    return {1, false, {key}};
}

// --- config -----------------------------------------------------------------------------

const ConfigSetting& settingArg(const std::string& key) {
    if (const auto* setting = ConfigRegistry::find(key)) {
        return *setting;
    }
    throw CLIError(CLIErrorCode::notFound, "Unknown setting '" + key + "'.",
                   "List keys with `marlune config list`.");
}

const ConfigSetting& changeableSettingArg(const std::string& key) {
    const auto& setting = settingArg(key);
    if (setting.internal) {
        throw CLIError(CLIErrorCode::validation,
                       "'" + key + "' is kept by Marlune itself and can't be changed by hand.");
    }
    return setting;
}

ConfigEntryDTO entry(const ConfigSetting& setting, const Settings& settings) {
    return {std::string(setting.key), ConfigRegistry::read(setting, settings),
            std::string(rawValue(setting.type)), setting.requiresRelaunch};
}

std::vector<ConfigEntryDTO> listConfig(const ConfigGetArgs& args, CLICall& call) {
    if (args.key) {
        return {entry(settingArg(*args.key), call.settings())};
    }
    std::vector<ConfigEntryDTO> entries;
    for (const auto& setting : ConfigRegistry::settings()) {
        if (!setting.internal || args.includeInternal) {
            entries.push_back(entry(setting, call.settings()));
        }
    }
    return entries;
}

ConfigEntryDTO getConfig(const ConfigGetArgs& args, CLICall& call) {
    if (!args.key || args.key->empty()) {
        throw CLIError(CLIErrorCode::usage, "A setting key is required.",
                       "List keys with `marlune config list`.");
    }
    return entry(settingArg(*args.key), call.settings());
}

ConfigSetResultDTO setConfig(const ConfigSetArgs& args, CLICall& call) {
    const auto& setting = changeableSettingArg(args.key);
    auto parsed = ConfigRegistry::parse(setting, args.value);
    if (auto* refusal = std::get_if<ConfigRefusal>(&parsed)) {
        throw CLIError(CLIErrorCode::validation, std::move(refusal->message),
                       std::move(refusal->hint));
    }
    const auto previous = ConfigRegistry::read(setting, call.settings());
    const auto& value = std::get<CLIJSONValue>(parsed);
    ConfigRegistry::write(setting, value, call.settings());
    return {args.key, value, previous, std::string(rawValue(setting.type)),
            setting.requiresRelaunch};
}

// Unsetting returns the setting to its default, which is what the application then reads.
ConfigSetResultDTO unsetConfig(const KeyArgs& args, CLICall& call) {
    const auto& setting = changeableSettingArg(args.key);
    const auto previous = ConfigRegistry::read(setting, call.settings());
    call.settings().remove(setting.key);
    return {args.key, setting.defaultValue, previous, std::string(rawValue(setting.type)),
            setting.requiresRelaunch};
}

} // namespace

void registerProfileAndConfigCommands(CLIListener& listener) {
    namespace N = CLICommandName;
    listener.addTyped<EmptyArgs>(std::string(N::profileList), listProfile);
    listener.addTyped<KeyArgs>(std::string(N::profileGet), getProfileVar);
    listener.addTyped<ProfileSetArgs>(std::string(N::profileSet), setProfileVar);
    listener.addTyped<KeyArgs>(std::string(N::profileUnset), unsetProfileVar);
    listener.addTyped<ConfigGetArgs>(std::string(N::configList), listConfig);
    listener.addTyped<ConfigGetArgs>(std::string(N::configGet), getConfig);
    listener.addTyped<ConfigSetArgs>(std::string(N::configSet), setConfig);
    listener.addTyped<KeyArgs>(std::string(N::configUnset), unsetConfig);
}

} // namespace marlune
