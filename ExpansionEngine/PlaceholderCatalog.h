#pragma once

#include <optional>
#include <string_view>

namespace marlune {

enum class PlaceholderKind {
    cursor,
    clipboard,
    selection,
    date,
    time,
    counter,
    random,
    textField,
    choiceField,
    multiChoiceField,
    dateField,
    snippet,
    variable,
    link,
    ai,
};

// The placeholder types the renderer understands, with their spellings ("counter" and
// "increment" are one kind).
struct PlaceholderCatalog {
    static std::optional<PlaceholderKind> kind(std::string_view type);
    static bool isKnown(std::string_view type) { return kind(type).has_value(); }
    static bool isFillIn(PlaceholderKind kind);
};

} // namespace marlune
