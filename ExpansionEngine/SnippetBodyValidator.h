#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace marlune {

// Checks a body for the editor without rendering it: no clock, clipboard or other snippet is
// consulted.
struct SnippetBodyValidator {
    struct UnknownType {
        std::string type;
        friend bool operator==(const UnknownType&, const UnknownType&) = default;
    };
    // A choice or multiple-choice field offering nothing; the payload is the field's type.
    struct EmptyOptions {
        std::string type;
        friend bool operator==(const EmptyOptions&, const EmptyOptions&) = default;
    };
    // "{@" or "@}" left over after parsing: a placeholder that was never closed or opened.
    struct MalformedResidue {
        friend bool operator==(const MalformedResidue&, const MalformedResidue&) = default;
    };
    using Issue = std::variant<UnknownType, EmptyOptions, MalformedResidue>;

    struct Result {
        std::vector<Issue> issues;
        std::int64_t fillInCount = 0; // distinct fill-in fields, by name
    };

    static Result validate(std::string_view body);
};

} // namespace marlune
