#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace marlune {

// A placeholder as written between "{@" and "@}": its kind and its parameters, each kept
// exactly as written ("format=long").
struct Placeholder {
    std::string type;
    std::vector<std::string> parameters;

    // The value of the first parameter whose key (the part before its first "=") is `key`.
    std::optional<std::string_view> parameter(std::string_view key) const;
    // "options=" split at ","; each option is trimmed of surrounding whitespace and empty
    // options are dropped, so "Small, Medium," offers two choices.
    std::vector<std::string> options() const;

    friend bool operator==(const Placeholder&, const Placeholder&) = default;
};

struct TextToken {
    std::string text;
    friend bool operator==(const TextToken&, const TextToken&) = default;
};

using Token = std::variant<TextToken, Placeholder>;

struct SnippetParser {
    // Splits a body into literal runs and placeholders. A "{@" with no "@}" after it is kept
    // as literal text, so a half-typed template inserts what the user wrote.
    static std::vector<Token> parse(std::string_view body);
};

} // namespace marlune
