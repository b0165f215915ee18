#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// Keywords that the matcher could never see typed, refused wherever a keyword enters the
// library (the command line, imports) rather than saved to sit silent.
struct KeywordRules {
    enum class Problem {
        // Nothing after the prefix: the prefix alone never expands.
        onlyPrefix,
        // Typed text is split into tokens at every Unicode whitespace character.
        whitespace,
        // The first character would join the prefix into one (a combining accent, a
        // variation selector, a skin tone), so the prefix is never a character of its own.
        leadingCombiningMark,
        // Typed text after a second prefix is a new keyword.
        containsPrefix,
    };

    struct Refusal {
        Problem problem;
        std::string message;
        std::string hint;
    };

    // `keyword` as stored, without the prefix; `typed` is what the user gave, for the message.
    // An empty keyword is "no keyword" and passes; `onlyPrefix` is the caller's to detect,
    // since only it knows whether the prefix was stripped (see `refusalForPrefixOnly`).
    static std::optional<Refusal> check(std::string_view keyword, std::string_view prefix);
    static Refusal refusalForPrefixOnly(std::string_view prefix);
};

} // namespace marlune
