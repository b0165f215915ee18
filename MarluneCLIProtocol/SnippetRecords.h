#pragma once

#include "MarluneCLIProtocol/CLIRecordCodec.h"
#include "MarluneCLIProtocol/CommonRecords.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace marlune {

// Snippets and their expansion from the command line.

// `content` is the template text in plain; `contentType` is "plainText", "richText" or
// "markdown".
struct SnippetDTO {
    std::string id;
    std::string title;
    std::string keyword;
    std::optional<std::string> keywordTrigger;
    std::string content;
    std::string contentType;
    bool isFavorite = false;
    std::string createdAt;
    std::string updatedAt;
    std::int64_t usageCount = 0;
    std::optional<std::string> lastUsedAt;
    std::optional<GroupRefDTO> group;
    std::vector<TagRefDTO> tags;
    std::int64_t fillInCount = 0;
    bool hasAI = false;
    std::optional<std::string> matchType;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &SnippetDTO::id),
                          cliField("title", &SnippetDTO::title),
                          cliField("keyword", &SnippetDTO::keyword),
                          cliField("keywordTrigger", &SnippetDTO::keywordTrigger),
                          cliField("content", &SnippetDTO::content),
                          cliField("contentType", &SnippetDTO::contentType),
                          cliField("isFavorite", &SnippetDTO::isFavorite),
                          cliField("createdAt", &SnippetDTO::createdAt),
                          cliField("updatedAt", &SnippetDTO::updatedAt),
                          cliField("usageCount", &SnippetDTO::usageCount),
                          cliField("lastUsedAt", &SnippetDTO::lastUsedAt),
                          cliField("group", &SnippetDTO::group),
                          cliField("tags", &SnippetDTO::tags),
                          cliField("fillInCount", &SnippetDTO::fillInCount),
                          cliField("hasAI", &SnippetDTO::hasAI),
                          cliField("matchType", &SnippetDTO::matchType)};
    }
    friend bool operator==(const SnippetDTO&, const SnippetDTO&) = default;
};

struct SnippetCreateArgs {
    std::string title;
    std::optional<std::string> keyword;
    std::optional<std::string> content;
    std::optional<std::string> contentType;
    std::optional<std::string> groupRef;
    std::vector<std::string> tagRefs;
    bool favorite = false;
    bool validate = false;
    bool unique = false;

    static constexpr auto fields() {
        return std::tuple{cliField("title", &SnippetCreateArgs::title),
                          cliField("keyword", &SnippetCreateArgs::keyword),
                          cliField("content", &SnippetCreateArgs::content),
                          cliField("contentType", &SnippetCreateArgs::contentType),
                          cliField("groupRef", &SnippetCreateArgs::groupRef),
                          cliField("tagRefs", &SnippetCreateArgs::tagRefs),
                          cliField("favorite", &SnippetCreateArgs::favorite),
                          cliField("validate", &SnippetCreateArgs::validate),
                          cliField("unique", &SnippetCreateArgs::unique)};
    }
    friend bool operator==(const SnippetCreateArgs&, const SnippetCreateArgs&) = default;
};

struct SnippetUpdateArgs {
    std::string ref;
    std::optional<std::string> by;
    std::optional<std::string> title;
    std::optional<std::string> keyword;
    std::optional<std::string> content;
    std::optional<std::string> contentType;
    std::optional<std::string> groupRef;
    bool ungroup = false;
    std::vector<std::string> addTagRefs;
    std::vector<std::string> removeTagRefs;
    std::optional<bool> favorite;
    bool validate = false;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &SnippetUpdateArgs::ref),
                          cliField("by", &SnippetUpdateArgs::by),
                          cliField("title", &SnippetUpdateArgs::title),
                          cliField("keyword", &SnippetUpdateArgs::keyword),
                          cliField("content", &SnippetUpdateArgs::content),
                          cliField("contentType", &SnippetUpdateArgs::contentType),
                          cliField("groupRef", &SnippetUpdateArgs::groupRef),
                          cliField("ungroup", &SnippetUpdateArgs::ungroup),
                          cliField("addTagRefs", &SnippetUpdateArgs::addTagRefs),
                          cliField("removeTagRefs", &SnippetUpdateArgs::removeTagRefs),
                          cliField("favorite", &SnippetUpdateArgs::favorite),
                          cliField("validate", &SnippetUpdateArgs::validate)};
    }
    friend bool operator==(const SnippetUpdateArgs&, const SnippetUpdateArgs&) = default;
};

struct SnippetDuplicateArgs {
    std::string ref;
    std::optional<std::string> by;
    std::optional<std::string> title;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &SnippetDuplicateArgs::ref),
                          cliField("by", &SnippetDuplicateArgs::by),
                          cliField("title", &SnippetDuplicateArgs::title)};
    }
    friend bool operator==(const SnippetDuplicateArgs&, const SnippetDuplicateArgs&) = default;
};

struct SnippetMoveArgs {
    std::string ref;
    std::optional<std::string> by;
    std::optional<std::string> groupRef;
    bool ungroup = false;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &SnippetMoveArgs::ref),
                          cliField("by", &SnippetMoveArgs::by),
                          cliField("groupRef", &SnippetMoveArgs::groupRef),
                          cliField("ungroup", &SnippetMoveArgs::ungroup)};
    }
    friend bool operator==(const SnippetMoveArgs&, const SnippetMoveArgs&) = default;
};

struct FavoriteArgs {
    std::string ref;
    std::optional<std::string> by;
    bool favorite = false;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &FavoriteArgs::ref), cliField("by", &FavoriteArgs::by),
                          cliField("favorite", &FavoriteArgs::favorite)};
    }
    friend bool operator==(const FavoriteArgs&, const FavoriteArgs&) = default;
};

// `fills` answers fill-in fields by name; `vars` stands in for profile variables.
struct ExpandArgs {
    std::string ref;
    std::optional<std::string> by;
    std::map<std::string, std::string> fills;
    std::map<std::string, std::string> vars;
    std::optional<std::string> clipboard;
    bool noClipboard = false;
    std::optional<std::string> selection;
    std::optional<std::string> now;
    std::optional<std::string> timezone;
    std::optional<std::string> locale;
    std::optional<std::int64_t> seed;
    std::optional<std::int64_t> counterStart;
    bool noAI = false;
    bool strictAI = false;
    bool strictFills = false;
    bool listFills = false;
    bool paste = false;
    bool copy = false;
    std::optional<std::string> into;
    std::optional<bool> recordUsage;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &ExpandArgs::ref),
                          cliField("by", &ExpandArgs::by),
                          cliField("fills", &ExpandArgs::fills),
                          cliField("vars", &ExpandArgs::vars),
                          cliField("clipboard", &ExpandArgs::clipboard),
                          cliField("noClipboard", &ExpandArgs::noClipboard),
                          cliField("selection", &ExpandArgs::selection),
                          cliField("now", &ExpandArgs::now),
                          cliField("timezone", &ExpandArgs::timezone),
                          cliField("locale", &ExpandArgs::locale),
                          cliField("seed", &ExpandArgs::seed),
                          cliField("counterStart", &ExpandArgs::counterStart),
                          cliField("noAI", &ExpandArgs::noAI),
                          cliField("strictAI", &ExpandArgs::strictAI),
                          cliField("strictFills", &ExpandArgs::strictFills),
                          cliField("listFills", &ExpandArgs::listFills),
                          cliField("paste", &ExpandArgs::paste),
                          cliField("copy", &ExpandArgs::copy),
                          cliField("into", &ExpandArgs::into),
                          cliField("recordUsage", &ExpandArgs::recordUsage)};
    }
    friend bool operator==(const ExpandArgs&, const ExpandArgs&) = default;
};

struct FillDTO {
    std::string name;
    std::string kind;
    std::optional<std::vector<std::string>> options;
    std::optional<std::string> defaultValue;
    std::optional<std::string> value;
    bool filled = false;

    static constexpr auto fields() {
        return std::tuple{
            cliField("name", &FillDTO::name),       cliField("kind", &FillDTO::kind),
            cliField("options", &FillDTO::options), cliField("default", &FillDTO::defaultValue),
            cliField("value", &FillDTO::value),     cliField("filled", &FillDTO::filled)};
    }
    friend bool operator==(const FillDTO&, const FillDTO&) = default;
};

struct AIRequestDTO {
    std::string id;
    std::string prompt;
    std::string input;
    std::string tier;
    bool resolved = false;
    bool usedFallback = false;
    std::optional<std::string> value;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &AIRequestDTO::id),
                          cliField("prompt", &AIRequestDTO::prompt),
                          cliField("input", &AIRequestDTO::input),
                          cliField("tier", &AIRequestDTO::tier),
                          cliField("resolved", &AIRequestDTO::resolved),
                          cliField("usedFallback", &AIRequestDTO::usedFallback),
                          cliField("value", &AIRequestDTO::value)};
    }
    friend bool operator==(const AIRequestDTO&, const AIRequestDTO&) = default;
};

struct ExpandActionsDTO {
    bool stdOut = false;
    bool copied = false;
    bool pasted = false;
    std::optional<PasteTargetDTO> pasteTarget;

    static constexpr auto fields() {
        return std::tuple{cliField("stdout", &ExpandActionsDTO::stdOut),
                          cliField("copied", &ExpandActionsDTO::copied),
                          cliField("pasted", &ExpandActionsDTO::pasted),
                          cliField("pasteTarget", &ExpandActionsDTO::pasteTarget)};
    }
    friend bool operator==(const ExpandActionsDTO&, const ExpandActionsDTO&) = default;
};

struct ExpandResultDTO {
    std::string snippetId;
    std::string keyword;
    std::string title;
    std::optional<std::string> text;
    std::optional<std::int64_t> cursorOffset;
    std::vector<FillDTO> fills;
    std::vector<std::string> unresolvedFills;
    std::vector<AIRequestDTO> ai;
    ExpandActionsDTO actions;
    bool usageRecorded = false;

    static constexpr auto fields() {
        return std::tuple{cliField("snippetId", &ExpandResultDTO::snippetId),
                          cliField("keyword", &ExpandResultDTO::keyword),
                          cliField("title", &ExpandResultDTO::title),
                          cliField("text", &ExpandResultDTO::text),
                          cliField("cursorOffset", &ExpandResultDTO::cursorOffset),
                          cliField("fills", &ExpandResultDTO::fills),
                          cliField("unresolvedFills", &ExpandResultDTO::unresolvedFills),
                          cliField("ai", &ExpandResultDTO::ai),
                          cliField("actions", &ExpandResultDTO::actions),
                          cliField("usageRecorded", &ExpandResultDTO::usageRecorded)};
    }
    friend bool operator==(const ExpandResultDTO&, const ExpandResultDTO&) = default;
};

} // namespace marlune
