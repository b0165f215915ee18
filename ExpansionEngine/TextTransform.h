#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace marlune {

enum class TextTransform {
    jsonPretty,
    jsonMinify,
    upper,
    lower,
    title,
    snake,
    kebab,
    slug,
    singleLine,
    base64,
    base64Decode,
    stripTracking,
    markdownToPlain,
};

std::string_view rawValue(TextTransform transform);
std::optional<TextTransform> textTransformFromRaw(std::string_view raw);

// Applies a transform to UTF-8 text. Input that a transform cannot read (invalid JSON,
// invalid Base64, Base64 that does not decode to UTF-8 text) comes back unchanged, because a
// paste of the original beats a paste of nothing.
std::string applyTextTransform(TextTransform transform, std::string_view text);

} // namespace marlune
