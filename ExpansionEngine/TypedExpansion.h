#pragma once

#include "ExpansionEngine/ExpansionContext.h"
#include "ExpansionEngine/FillInField.h"
#include "ExpansionEngine/InjectionStep.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace marlune {

// The keyword matcher: from what the user just typed to what the service should do. It keeps
// no state and never fails; anything odd is `None` and the keystroke passes through.
struct TypedExpansion {
    struct Commit {
        std::string keyword;    // without the prefix
        std::string typedToken; // prefix + keyword
        std::int64_t deleteCount = 0;
        std::string text;
        std::int64_t cursorBack = 0;
        std::int64_t keystrokesSaved = 0;
        std::vector<InjectionStep> steps;

        friend bool operator==(const Commit&, const Commit&) = default;
    };

    struct FillInRequest {
        std::string keyword;
        std::string typedToken;
        std::int64_t deleteCount = 0;
        std::string content; // the body as stored, rendered again once answered
        std::vector<FillInField> fields;

        friend bool operator==(const FillInRequest&, const FillInRequest&) = default;
    };

    struct None {
        friend bool operator==(const None&, const None&) = default;
    };

    using Decision = std::variant<Commit, FillInRequest, None>;

    // `text` is what ends at the caret after the keystroke, `baseline` the same before it.
    // Runs on every key-down: it allocates nothing until `lookup` finds a keyword.
    static Decision decide(std::optional<std::string_view> text,
                           std::optional<std::string_view> baseline, std::string_view prefix,
                           bool enabled, const SnippetLookup& lookup,
                           const ExpansionContext& context);

    // The commit once the form is answered (`context.fillInValues`). The keyword is deleted
    // only if it still stands in front of the caret (`preCaret`): if the user moved or edited
    // while the form was open, deleting could eat text that is not the keyword.
    static Commit commitFillIn(const FillInRequest& request,
                               std::optional<std::string_view> preCaret,
                               const ExpansionContext& context);
};

} // namespace marlune
