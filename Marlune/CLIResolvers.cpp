#include "Marlune/CLIResolvers.h"

#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCore/LibraryQueries.h"
#include "MarluneCore/SnippetStore.h"

#include <algorithm>
#include <array>
#include <functional>
#include <unicode/unistr.h>
#include <vector>

namespace marlune {

namespace {

bool isBlank(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; });
}

void checkBy(const std::optional<std::string>& by, std::initializer_list<std::string_view> allowed,
             std::string_view kind, std::string_view hint) {
    if (!by) {
        return;
    }
    if (std::find(allowed.begin(), allowed.end(), *by) == allowed.end()) {
        throw CLIError(CLIErrorCode::usage,
                       "'" + *by + "' is not a way to name a " + std::string(kind) + ".",
                       std::string(hint));
    }
}

bool allows(const std::optional<std::string>& by, std::string_view attribute) {
    return !by || *by == attribute;
}

// Applies the matching steps in order over candidates of one kind and returns the index of
// the single match. `steps` are predicates over a candidate index; the first step with any
// match decides.
std::size_t resolveIndex(std::string_view kind, std::string_view ref, std::size_t count,
                         const std::vector<std::function<bool(std::size_t)>>& steps) {
    for (const auto& step : steps) {
        std::vector<std::size_t> matches;
        for (std::size_t i = 0; i < count; ++i) {
            if (step(i)) {
                matches.push_back(i);
            }
        }
        if (matches.size() == 1) {
            return matches.front();
        }
        if (matches.size() > 1) {
            throw CLIResolvers::ambiguous(kind, ref, matches.size());
        }
    }
    throw CLIResolvers::notFound(kind, ref);
}

} // namespace

std::string CLIResolvers::foldCase(std::string_view text) {
    auto folded = icu::UnicodeString::fromUTF8(
                      icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())))
                      .foldCase();
    std::string out;
    folded.toUTF8String(out);
    return out;
}

std::string CLIResolvers::requireName(const std::optional<std::string>& name, std::string_view kind) {
    std::string trimmed = name.value_or("");
    const auto first = trimmed.find_first_not_of(" \t\r\n");
    const auto last = trimmed.find_last_not_of(" \t\r\n");
    trimmed = first == std::string::npos ? std::string() : trimmed.substr(first, last - first + 1);
    if (trimmed.empty()) {
        throw CLIError(CLIErrorCode::validation, "A " + std::string(kind) + " needs a name.",
                       "Pass one with --name.");
    }
    return trimmed;
}

std::optional<std::string> CLIResolvers::colorRole(const std::optional<std::string>& role) {
    static constexpr std::array<std::string_view, 7> roles = {"iris",   "plum", "blush", "amber",
                                                              "citron", "sage", "teal"};
    if (!role || role->empty()) {
        return std::nullopt;
    }
    if (std::find(roles.begin(), roles.end(), *role) == roles.end()) {
        throw CLIError(CLIErrorCode::validation, "'" + *role + "' is not a colour role.",
                       "Use iris, plum, blush, amber, citron, sage or teal.");
    }
    return role;
}

bool CLIResolvers::sameName(std::string_view a, std::string_view b) {
    return foldCase(a) == foldCase(b);
}

bool CLIResolvers::nameContains(std::string_view name, std::string_view part) {
    return foldCase(name).find(foldCase(part)) != std::string::npos;
}

void CLIResolvers::requireRef(std::string_view ref, std::string_view message) {
    if (isBlank(ref)) {
        throw CLIError(CLIErrorCode::usage, std::string(message));
    }
}

CLIError CLIResolvers::notFound(std::string_view kind, std::string_view ref) {
    return CLIError(CLIErrorCode::notFound,
                    "No " + std::string(kind) + " matches '" + std::string(ref) + "'.",
                    "List them with `marlune " + std::string(kind) + " list`.");
}

CLIError CLIResolvers::ambiguous(std::string_view kind, std::string_view ref, std::size_t count) {
    return CLIError(CLIErrorCode::ambiguous,
                    "'" + std::string(ref) + "' matches " + std::to_string(count) + " " +
                        std::string(kind) + "s.",
                    "Pass an id, or disambiguate with --by.");
}

Snippet CLIResolvers::snippet(ModelContext& context, std::string_view ref,
                              const std::optional<std::string>& by) {
    requireRef(ref, "A snippet ref is required.");
    checkBy(by, {"keyword", "title", "id"}, "snippet", "Use --by keyword, title or id.");
    const auto names = LibraryQueries::snippetNames(context);
    const auto id = Uuid::parse(ref);
    const std::string folded = foldCase(ref);
    std::vector<std::function<bool(std::size_t)>> steps;
    steps.emplace_back([&](std::size_t i) { return id && names[i].id == *id; });
    if (allows(by, "keyword")) {
        steps.emplace_back([&](std::size_t i) { return foldCase(names[i].keyword) == folded; });
    }
    if (allows(by, "title")) {
        steps.emplace_back([&](std::size_t i) { return foldCase(names[i].title) == folded; });
        steps.emplace_back([&](std::size_t i) {
            return foldCase(names[i].title).find(folded) != std::string::npos;
        });
    }
    const auto index = resolveIndex("snippet", ref, names.size(), steps);
    if (auto found = SnippetStore(context).snippet(names[index].id)) {
        return *found;
    }
    throw notFound("snippet", ref);
}

namespace {

template <class Record>
std::size_t resolveNamed(const std::vector<Record>& records, std::string_view kind,
                         std::string_view ref, const std::optional<std::string>& by) {
    checkBy(by, {"name", "id"}, kind, "Use --by name or --by id.");
    const auto id = Uuid::parse(ref);
    const std::string folded = CLIResolvers::foldCase(ref);
    std::vector<std::function<bool(std::size_t)>> steps;
    steps.emplace_back([&](std::size_t i) { return id && records[i].id == *id; });
    if (allows(by, "name")) {
        steps.emplace_back(
            [&](std::size_t i) { return CLIResolvers::foldCase(records[i].name) == folded; });
        steps.emplace_back([&](std::size_t i) {
            return CLIResolvers::foldCase(records[i].name).find(folded) != std::string::npos;
        });
    }
    return resolveIndex(kind, ref, records.size(), steps);
}

} // namespace

SnippetGroup CLIResolvers::group(ModelContext& context, std::string_view ref,
                                 const std::optional<std::string>& by) {
    requireRef(ref, "A group ref is required.");
    auto groups = SnippetStore(context).groups();
    return groups[resolveNamed(groups, "group", ref, by)];
}

Tag CLIResolvers::tag(ModelContext& context, std::string_view ref,
                      const std::optional<std::string>& by) {
    requireRef(ref, "A tag ref is required.");
    auto tags = SnippetStore(context).tags();
    return tags[resolveNamed(tags, "tag", ref, by)];
}

} // namespace marlune
