#include "Marlune/ConfigRegistry.h"

#include "MarluneCore/Uuid.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace marlune {

namespace {

const std::string* stringOf(const CLIJSONValue& value) {
    return std::get_if<std::string>(&value.value);
}

std::int64_t integerOf(const CLIJSONValue& value) {
    const auto* i = std::get_if<std::int64_t>(&value.value);
    return i ? *i : 0;
}

std::optional<std::string> checkKeywordPrefix(const CLIJSONValue& value) {
    const auto* text = stringOf(value);
    const auto unicode = icu::UnicodeString::fromUTF8(icu::StringPiece(
        text ? text->data() : "", text ? static_cast<std::int32_t>(text->size()) : 0));
    // The matcher splits typed text at white space and takes the keyword after the prefix,
    // so a letter, a digit, a space or a control character could never work as one.
    if (unicode.countChar32() == 1) {
        const UChar32 c = unicode.char32At(0);
        if (!u_isalnum(c) && !u_isUWhiteSpace(c) && !u_iscntrl(c) && c != 0xFFFD) {
            return std::nullopt;
        }
    }
    return "keywordPrefix must be a single non-alphanumeric character.";
}

std::optional<std::string> checkHistoryLimit(const CLIJSONValue& value) {
    if (integerOf(value) >= 1) {
        return std::nullopt;
    }
    return "maxUnpinnedHistory must be at least 1.";
}

std::optional<std::string> checkRetention(const CLIJSONValue& value) {
    if (integerOf(value) >= 0) {
        return std::nullopt;
    }
    return "clipRetentionDays must be 0 (keep clips of any age) or a number of days.";
}

std::optional<std::string> checkArchiveDays(const CLIJSONValue& value) {
    if (integerOf(value) >= 0) {
        return std::nullopt;
    }
    return "board.autoArchiveDays must be 0 (never archive) or a number of days.";
}

std::optional<std::string> checkCaptureSound(const CLIJSONValue& value) {
    const auto* text = stringOf(value);
    if (text && (*text == "off" || *text == "pop" || *text == "tink")) {
        return std::nullopt;
    }
    return "board.captureSound must be off, pop or tink.";
}

std::optional<std::string> checkSectionID(const CLIJSONValue& value) {
    const auto* text = stringOf(value);
    if (text && (text->empty() || Uuid::parse(*text))) {
        return std::nullopt;
    }
    return "board.activeSectionID must be the id of a Board section.";
}

// Requests must stay on this machine: only a loopback host is accepted.
std::optional<std::string> checkAIEndpoint(const CLIJSONValue& value) {
    const auto* text = stringOf(value);
    if (text && text->empty()) {
        return std::nullopt;
    }
    if (text) {
        for (std::string_view scheme : {"http://", "https://"}) {
            if (!text->starts_with(scheme)) {
                continue;
            }
            std::string_view rest = std::string_view(*text).substr(scheme.size());
            for (std::string_view host : {"localhost", "127.0.0.1", "[::1]"}) {
                if (rest.starts_with(host) &&
                    (rest.size() == host.size() || rest[host.size()] == ':' ||
                     rest[host.size()] == '/')) {
                    return std::nullopt;
                }
            }
        }
    }
    return "ai.endpoint must be an address on this machine (localhost, 127.0.0.1 or [::1]).";
}

std::optional<std::string> checkShortcutOverrides(const CLIJSONValue& value) {
    const auto* text = stringOf(value);
    const auto json = nlohmann::json::parse(text ? *text : "", nullptr, false);
    if (json.is_object() && std::all_of(json.begin(), json.end(), [](const auto& shortcut) {
            return shortcut.is_string();
        })) {
        return std::nullopt;
    }
    return "pasteShortcutOverrides must map window classes to shortcuts, such as "
           "{\"*term*\": \"Ctrl+Shift+V\"}.";
}

std::optional<std::string> checkObject(const CLIJSONValue& value) {
    const auto* text = stringOf(value);
    if (nlohmann::json::parse(text ? *text : "", nullptr, false).is_object()) {
        return std::nullopt;
    }
    return "The value must be a JSON object.";
}

ConfigSetting boolean(std::string_view key, bool fallback, bool relaunch = false,
                      bool internal = false) {
    return {key, ConfigType::boolean, CLIJSONValue::boolean(fallback), relaunch, internal};
}

ConfigSetting integer(std::string_view key, std::int64_t fallback,
                      std::optional<std::string> (*check)(const CLIJSONValue&)) {
    return {key, ConfigType::integer, CLIJSONValue::integer(fallback), false, false, check};
}

ConfigSetting string(std::string_view key, std::string fallback,
                     std::optional<std::string> (*check)(const CLIJSONValue&) = nullptr,
                     bool internal = false) {
    return {key,   ConfigType::string, CLIJSONValue::string(std::move(fallback)),
            false, internal,           check};
}

ConfigSetting dictionary(std::string_view key,
                         std::optional<std::string> (*check)(const CLIJSONValue&),
                         bool internal = false) {
    return {key, ConfigType::dictionary, CLIJSONValue::string("{}"), false, internal, check};
}

std::optional<bool> parseBoolean(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) {
        return static_cast<char>(c | (c >= 'A' && c <= 'Z' ? 0x20 : 0));
    });
    if (lower == "true" || lower == "yes" || lower == "on" || lower == "1") {
        return true;
    }
    if (lower == "false" || lower == "no" || lower == "off" || lower == "0") {
        return false;
    }
    return std::nullopt;
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
    }
    std::int64_t value = 0;
    const auto* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (text.empty() || ec != std::errc() || ptr != end) {
        return std::nullopt;
    }
    return value;
}

} // namespace

std::string_view rawValue(ConfigType type) {
    switch (type) {
    case ConfigType::boolean:
        return "boolean";
    case ConfigType::integer:
        return "integer";
    case ConfigType::string:
        return "string";
    case ConfigType::dictionary:
        return "dictionary";
    }
    return "string";
}

const std::vector<ConfigSetting>& ConfigRegistry::settings() {
    static const std::vector<ConfigSetting> all = [] {
        std::vector<ConfigSetting> s;
        s.push_back(string("keywordPrefix", ";", checkKeywordPrefix));
        s.push_back(integer("maxUnpinnedHistory", 1000, checkHistoryLimit));
        s.push_back(boolean("unlimitedHistory", false));
        s.push_back(integer("clipRetentionDays", 0, checkRetention));
        // The library's store is built once per process, with or without the mirror.
        s.push_back(boolean("iCloudSyncEnabled", false, true));
        s.push_back(boolean("skipLikelySecrets", true));
        s.push_back(boolean("skipOneTimeCodes", true));
        s.push_back(boolean("smartFieldDetection", false));
        s.push_back(dictionary("pasteShortcutOverrides", checkShortcutOverrides));
        // The socket server takes its peer policy when it starts.
        s.push_back(boolean("cliRequireBundledTool", true, true));
        s.push_back(string("ai.endpoint", "", checkAIEndpoint));
        s.push_back(boolean("mainWindowWasOpen", false, false, true));
        s.push_back(string("board.activeSectionID", "", checkSectionID, true));
        s.push_back(boolean("board.sectionMemoryEnabled", false));
        s.push_back(dictionary("board.sectionMemory", checkObject, true));
        s.push_back(boolean("board.membershipBackfilled", false, false, true));
        s.push_back(integer("board.autoArchiveDays", 7, checkArchiveDays));
        s.push_back(boolean("board.doneCollapsed", false));
        s.push_back(boolean("board.doubleTapEnabled", false));
        s.push_back(string("board.captureSound", "pop", checkCaptureSound));
        s.push_back(boolean("board.menuBarPulse", true));
        s.push_back(boolean("board.aiSuggestionsEnabled", false));
        s.push_back(boolean("board.provenanceEnabled", true));
        s.push_back(boolean("board.ocrEnabled", true));
        s.push_back(string("board.exportDirectory", ""));
        s.push_back(string("board.obsidianVaultOverride", ""));
        return s;
    }();
    return all;
}

const ConfigSetting* ConfigRegistry::find(std::string_view key) {
    const auto& all = settings();
    const auto it =
        std::find_if(all.begin(), all.end(), [&](const ConfigSetting& s) { return s.key == key; });
    return it == all.end() ? nullptr : &*it;
}

CLIJSONValue ConfigRegistry::read(const ConfigSetting& setting, const Settings& settings) {
    if (!settings.contains(setting.key)) {
        return setting.defaultValue;
    }
    CLIJSONValue value;
    switch (setting.type) {
    case ConfigType::boolean:
        value = CLIJSONValue::boolean(
            settings.boolean(setting.key, std::get<bool>(setting.defaultValue.value)));
        break;
    case ConfigType::integer:
        value = CLIJSONValue::integer(
            settings.integer(setting.key, std::get<std::int64_t>(setting.defaultValue.value)));
        break;
    case ConfigType::string:
        value = CLIJSONValue::string(
            settings.string(setting.key, std::get<std::string>(setting.defaultValue.value)));
        break;
    case ConfigType::dictionary:
        value =
            CLIJSONValue::string(settings.dictionary(setting.key, nlohmann::json::object()).dump());
        break;
    }
    if (setting.check && setting.check(value)) {
        return setting.defaultValue;
    }
    return value;
}

std::variant<CLIJSONValue, ConfigRefusal> ConfigRegistry::parse(const ConfigSetting& setting,
                                                                std::string_view text) {
    const std::string key(setting.key);
    CLIJSONValue value;
    switch (setting.type) {
    case ConfigType::boolean: {
        const auto parsed = parseBoolean(text);
        if (!parsed) {
            return ConfigRefusal{key + " takes true or false, not '" + std::string(text) + "'.",
                                 std::nullopt};
        }
        value = CLIJSONValue::boolean(*parsed);
        break;
    }
    case ConfigType::integer: {
        const auto parsed = parseInteger(text);
        if (!parsed) {
            return ConfigRefusal{key + " takes a whole number, not '" + std::string(text) + "'.",
                                 std::nullopt};
        }
        value = CLIJSONValue::integer(*parsed);
        break;
    }
    case ConfigType::string:
        value = CLIJSONValue::string(std::string(text));
        break;
    case ConfigType::dictionary: {
        const auto json = nlohmann::json::parse(text, nullptr, false);
        if (!json.is_object()) {
            return ConfigRefusal{key + " takes a JSON object, not '" + std::string(text) + "'.",
                                 "Quote it for the shell, e.g. '{\"name\": \"value\"}'."};
        }
        value = CLIJSONValue::string(json.dump());
        break;
    }
    }
    if (setting.check) {
        if (auto refusal = setting.check(value)) {
            return ConfigRefusal{std::move(*refusal), std::nullopt};
        }
    }
    return value;
}

void ConfigRegistry::write(const ConfigSetting& setting, const CLIJSONValue& value,
                           Settings& settings) {
    switch (setting.type) {
    case ConfigType::boolean:
        settings.setBoolean(setting.key, std::get<bool>(value.value));
        break;
    case ConfigType::integer:
        settings.setInteger(setting.key, std::get<std::int64_t>(value.value));
        break;
    case ConfigType::string:
        settings.setString(setting.key, std::get<std::string>(value.value));
        break;
    case ConfigType::dictionary:
        settings.setDictionary(setting.key,
                               nlohmann::json::parse(std::get<std::string>(value.value)));
        break;
    }
}

} // namespace marlune
