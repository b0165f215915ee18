#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace marlune {

struct FillInField {
    struct Choice {
        std::vector<std::string> options;
        friend bool operator==(const Choice&, const Choice&) = default;
    };
    struct MultiChoice {
        std::vector<std::string> options;
        friend bool operator==(const MultiChoice&, const MultiChoice&) = default;
    };
    struct Text {
        friend bool operator==(const Text&, const Text&) = default;
    };
    struct Date {
        friend bool operator==(const Date&, const Date&) = default;
    };
    using Kind = std::variant<Choice, MultiChoice, Text, Date>;

    std::string name;
    Kind kind = Text{};
    std::optional<std::string> defaultValue;

    friend bool operator==(const FillInField&, const FillInField&) = default;
};

// The separator between the chosen options of a multiple-choice answer. Options are split at
// "," when parsed, so no option can contain this and the joined answer splits back exactly.
inline constexpr std::string_view kMultiChoiceSeparator = ", ";

} // namespace marlune
