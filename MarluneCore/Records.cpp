#include "MarluneCore/Records.h"

#include <array>
#include <utility>

namespace marlune {

namespace {
constexpr std::array<std::pair<ClipKind, std::string_view>, 6> clipKinds{{
    {ClipKind::text, "text"},
    {ClipKind::richText, "richText"},
    {ClipKind::url, "url"},
    {ClipKind::image, "image"},
    {ClipKind::file, "file"},
    {ClipKind::color, "color"},
}};
constexpr std::array<std::pair<SnippetContentType, std::string_view>, 3> contentTypes{{
    {SnippetContentType::plainText, "plainText"},
    {SnippetContentType::markdown, "markdown"},
    {SnippetContentType::richText, "richText"},
}};
} // namespace

std::string_view rawValue(ClipKind kind) {
    for (const auto& [value, raw] : clipKinds) {
        if (value == kind) {
            return raw;
        }
    }
    return "text";
}

std::string_view rawValue(SnippetContentType type) {
    for (const auto& [value, raw] : contentTypes) {
        if (value == type) {
            return raw;
        }
    }
    return "plainText";
}

std::optional<ClipKind> clipKindFromRaw(std::string_view raw) {
    for (const auto& [value, name] : clipKinds) {
        if (name == raw) {
            return value;
        }
    }
    return std::nullopt;
}

std::optional<SnippetContentType> snippetContentTypeFromRaw(std::string_view raw) {
    for (const auto& [value, name] : contentTypes) {
        if (name == raw) {
            return value;
        }
    }
    return std::nullopt;
}

} // namespace marlune
