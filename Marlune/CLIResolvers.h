#pragma once

#include "MarluneCLIProtocol/CLIErrorPayload.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// Turns the reference a user typed on the command line into one live library record. The
// first of these that matches anything decides: the record's id; the exact name, letter case
// aside (for snippets the keyword, then the title); a part of the name (for snippets of the
// title). One match is the answer, none is E_NOT_FOUND, several E_AMBIGUOUS; `by` narrows the
// attribute ("keyword", "title" or "id" for snippets, "name" or "id" for groups and tags).
struct CLIResolvers {
    static Snippet snippet(ModelContext& context, std::string_view ref,
                           const std::optional<std::string>& by = std::nullopt);
    static SnippetGroup group(ModelContext& context, std::string_view ref,
                              const std::optional<std::string>& by = std::nullopt);
    static Tag tag(ModelContext& context, std::string_view ref,
                   const std::optional<std::string>& by = std::nullopt);

    // Refuses an empty or blank reference before anything is looked up, with `message`
    // ("A group ref is required.").
    static void requireRef(std::string_view ref, std::string_view message);
    // A name given with --name, trimmed; a blank one is refused ("A group needs a name.").
    static std::string requireName(const std::optional<std::string>& name, std::string_view kind);
    // A colour role given on the command line: nothing for an empty one, which clears the
    // colour, else one of the seven roles.
    static std::optional<std::string> colorRole(const std::optional<std::string>& role);

    static CLIError notFound(std::string_view kind, std::string_view ref);
    static CLIError ambiguous(std::string_view kind, std::string_view ref, std::size_t count);

    // Names compared as the resolvers compare them: by Unicode case folding, so "ÉMILE" and
    // "émile" are one name. Searches and uniqueness checks use the same rule.
    static std::string foldCase(std::string_view text);
    static bool sameName(std::string_view a, std::string_view b);
    static bool nameContains(std::string_view name, std::string_view part);
};

} // namespace marlune
