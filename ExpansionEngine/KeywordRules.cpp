#include "ExpansionEngine/KeywordRules.h"

#include "ExpansionEngine/Graphemes.h"

namespace marlune {

std::optional<KeywordRules::Refusal> KeywordRules::check(std::string_view keyword,
                                                         std::string_view prefix) {
    if (keyword.empty()) {
        return std::nullopt;
    }
    for (std::size_t end = keyword.size(); end > 0;) {
        char32_t codePoint = 0;
        end = Graphemes::previousCodePoint(keyword, end, codePoint);
        if (Graphemes::isWhitespace(codePoint)) {
            return Refusal{Problem::whitespace, "A keyword can't contain spaces.",
                           "Typed text is split at spaces, so such a keyword would never expand."};
        }
    }
    if (!prefix.empty() && keyword.find(prefix) != std::string_view::npos) {
        return Refusal{Problem::containsPrefix,
                       "A keyword can't contain the keyword prefix '" + std::string(prefix) + "'.",
                       "Typed text after a second prefix never expands; pick another keyword."};
    }
    const std::string typed = std::string(prefix.empty() ? ";" : prefix) + std::string(keyword);
    const std::size_t start = prefix.empty() ? 1 : prefix.size();
    if (!Graphemes::isBoundary(typed, start)) {
        return Refusal{Problem::leadingCombiningMark,
                       "A keyword can't start with a combining mark.",
                       "It would join the prefix into one character, so the keyword would never "
                       "be seen typed."};
    }
    return std::nullopt;
}

KeywordRules::Refusal KeywordRules::refusalForPrefixOnly(std::string_view prefix) {
    return Refusal{Problem::onlyPrefix,
                   "A keyword can't be only the keyword prefix '" + std::string(prefix) + "'.",
                   "Put the keyword after the prefix, such as " + std::string(prefix) + "sig."};
}

} // namespace marlune
