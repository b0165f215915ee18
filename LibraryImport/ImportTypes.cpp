#include "LibraryImport/ImportTypes.h"

#include <array>
#include <utility>

namespace marlune {

namespace {

constexpr std::array<std::pair<ImportFormat, std::string_view>, 5> kRaw = {{
    {ImportFormat::marlune, "marlune"},
    {ImportFormat::espanso, "espanso"},
    {ImportFormat::textexpander, "textexpander"},
    {ImportFormat::raycast, "raycast"},
    {ImportFormat::alfred, "alfred"},
}};

} // namespace

std::string_view rawValue(ImportFormat format) {
    for (const auto& [candidate, raw] : kRaw) {
        if (candidate == format) {
            return raw;
        }
    }
    return "marlune";
}

std::optional<ImportFormat> importFormatFromRaw(std::string_view raw) {
    for (const auto& [format, name] : kRaw) {
        if (name == raw) {
            return format;
        }
    }
    return std::nullopt;
}

std::string_view displayName(ImportFormat format) {
    switch (format) {
    case ImportFormat::marlune:
        return "Marlune";
    case ImportFormat::espanso:
        return "espanso";
    case ImportFormat::textexpander:
        return "TextExpander";
    case ImportFormat::raycast:
        return "Raycast";
    case ImportFormat::alfred:
        return "Alfred";
    }
    return "Marlune";
}

std::string ImportError::message() const {
    const std::string name(displayName(format));
    switch (kind) {
    case Kind::invalidFile: {
        if (format == ImportFormat::espanso) {
            return "Not a valid espanso YAML file: " + reason;
        }
        if (format == ImportFormat::marlune) {
            return "That file isn't a valid Marlune export.";
        }
        std::string sentence = "That isn't a valid " + name + " file: " + reason;
        if (!sentence.ends_with('.')) {
            sentence += '.';
        }
        return sentence;
    }
    case Kind::noSnippets:
        if (format == ImportFormat::espanso) {
            return "No importable matches found (empty `matches:` list, or all skipped).";
        }
        return "No snippets to import in that " + name + " file.";
    case Kind::needsCLI:
        return name + " libraries import from Terminal: marlune data import <file> --format " +
               std::string(rawValue(format));
    case Kind::unrecognized:
        return "Marlune doesn't recognize that file. It imports Marlune backups, TextExpander "
               "(.csv or .textexpander), Raycast (.json) and Alfred (.alfredsnippets) snippets.";
    case Kind::notText:
        return "That file isn't readable text (UTF-8).";
    }
    return {};
}

} // namespace marlune
