#pragma once

#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace marlune {

// The Board: sections, items and the commands over them. Item ids may be given as prefixes.

struct BoardShowArgs {
    std::optional<std::string> section;

    static constexpr auto fields() {
        return std::tuple{cliField("section", &BoardShowArgs::section)};
    }
    friend bool operator==(const BoardShowArgs&, const BoardShowArgs&) = default;
};

struct BoardUseArgs {
    std::string ref;
    bool create = false;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &BoardUseArgs::ref),
                          cliField("create", &BoardUseArgs::create)};
    }
    friend bool operator==(const BoardUseArgs&, const BoardUseArgs&) = default;
};

struct BoardListArgs {
    std::optional<std::string> section;
    bool all = false;
    std::optional<bool> done;
    std::optional<std::string> tag;
    std::optional<std::string> type;
    bool snoozed = false;

    static constexpr auto fields() {
        return std::tuple{cliField("section", &BoardListArgs::section),
                          cliField("all", &BoardListArgs::all),
                          cliField("done", &BoardListArgs::done),
                          cliField("tag", &BoardListArgs::tag),
                          cliField("type", &BoardListArgs::type),
                          cliField("snoozed", &BoardListArgs::snoozed)};
    }
    friend bool operator==(const BoardListArgs&, const BoardListArgs&) = default;
};

// `from` names the agent that adds the item; it shows as "Agent: " + the name.
struct BoardAddArgs {
    std::string text;
    std::optional<std::string> section;
    std::optional<std::string> from;

    static constexpr auto fields() {
        return std::tuple{cliField("text", &BoardAddArgs::text),
                          cliField("section", &BoardAddArgs::section),
                          cliField("from", &BoardAddArgs::from)};
    }
    friend bool operator==(const BoardAddArgs&, const BoardAddArgs&) = default;
};

struct BoardCaptureArgs {
    bool choose = false;

    static constexpr auto fields() {
        return std::tuple{cliField("choose", &BoardCaptureArgs::choose)};
    }
    friend bool operator==(const BoardCaptureArgs&, const BoardCaptureArgs&) = default;
};

struct BoardItemsArgs {
    std::vector<std::string> ids;

    static constexpr auto fields() { return std::tuple{cliField("ids", &BoardItemsArgs::ids)}; }
    friend bool operator==(const BoardItemsArgs&, const BoardItemsArgs&) = default;
};

struct BoardNextArgs {
    std::optional<std::string> section;

    static constexpr auto fields() {
        return std::tuple{cliField("section", &BoardNextArgs::section)};
    }
    friend bool operator==(const BoardNextArgs&, const BoardNextArgs&) = default;
};

struct BoardCopyArgs {
    std::vector<std::string> ids;
    bool list = false;
    bool markdown = false;

    static constexpr auto fields() {
        return std::tuple{cliField("ids", &BoardCopyArgs::ids),
                          cliField("list", &BoardCopyArgs::list),
                          cliField("markdown", &BoardCopyArgs::markdown)};
    }
    friend bool operator==(const BoardCopyArgs&, const BoardCopyArgs&) = default;
};

struct BoardFileArgs {
    std::vector<std::string> ids;
    std::string to;

    static constexpr auto fields() {
        return std::tuple{cliField("ids", &BoardFileArgs::ids), cliField("to", &BoardFileArgs::to)};
    }
    friend bool operator==(const BoardFileArgs&, const BoardFileArgs&) = default;
};

struct BoardSnoozeArgs {
    std::vector<std::string> ids;
    std::string until;

    static constexpr auto fields() {
        return std::tuple{cliField("ids", &BoardSnoozeArgs::ids),
                          cliField("until", &BoardSnoozeArgs::until)};
    }
    friend bool operator==(const BoardSnoozeArgs&, const BoardSnoozeArgs&) = default;
};

struct BoardDueArgs {
    std::vector<std::string> ids;
    std::optional<std::string> at;

    static constexpr auto fields() {
        return std::tuple{cliField("ids", &BoardDueArgs::ids), cliField("at", &BoardDueArgs::at)};
    }
    friend bool operator==(const BoardDueArgs&, const BoardDueArgs&) = default;
};

struct BoardNoteArgs {
    std::string id;
    std::optional<std::string> text;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &BoardNoteArgs::id),
                          cliField("text", &BoardNoteArgs::text)};
    }
    friend bool operator==(const BoardNoteArgs&, const BoardNoteArgs&) = default;
};

struct BoardMoveArgs {
    std::string id;
    std::optional<std::string> before;
    std::optional<std::string> after;
    std::optional<std::string> position;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &BoardMoveArgs::id),
                          cliField("before", &BoardMoveArgs::before),
                          cliField("after", &BoardMoveArgs::after),
                          cliField("position", &BoardMoveArgs::position)};
    }
    friend bool operator==(const BoardMoveArgs&, const BoardMoveArgs&) = default;
};

struct BoardClearArgs {
    std::optional<std::string> section;

    static constexpr auto fields() {
        return std::tuple{cliField("section", &BoardClearArgs::section)};
    }
    friend bool operator==(const BoardClearArgs&, const BoardClearArgs&) = default;
};

struct BoardSearchArgs {
    std::string query;
    bool history = false;
    std::optional<std::int64_t> limit;

    static constexpr auto fields() {
        return std::tuple{cliField("query", &BoardSearchArgs::query),
                          cliField("history", &BoardSearchArgs::history),
                          cliField("limit", &BoardSearchArgs::limit)};
    }
    friend bool operator==(const BoardSearchArgs&, const BoardSearchArgs&) = default;
};

struct BoardExportArgs {
    std::optional<std::string> section;
    bool all = false;
    std::optional<std::string> dir;
    bool obsidian = false;
    bool force = false;

    static constexpr auto fields() {
        return std::tuple{cliField("section", &BoardExportArgs::section),
                          cliField("all", &BoardExportArgs::all),
                          cliField("dir", &BoardExportArgs::dir),
                          cliField("obsidian", &BoardExportArgs::obsidian),
                          cliField("force", &BoardExportArgs::force)};
    }
    friend bool operator==(const BoardExportArgs&, const BoardExportArgs&) = default;
};

struct BoardTransformArgs {
    std::vector<std::string> ids;
    std::string style;
    std::optional<std::string> to;

    static constexpr auto fields() {
        return std::tuple{cliField("ids", &BoardTransformArgs::ids),
                          cliField("style", &BoardTransformArgs::style),
                          cliField("to", &BoardTransformArgs::to)};
    }
    friend bool operator==(const BoardTransformArgs&, const BoardTransformArgs&) = default;
};

struct BoardTagArgs {
    std::vector<std::string> ids;
    std::vector<std::string> add;
    std::vector<std::string> remove;
    bool suggest = false;

    static constexpr auto fields() {
        return std::tuple{cliField("ids", &BoardTagArgs::ids), cliField("add", &BoardTagArgs::add),
                          cliField("remove", &BoardTagArgs::remove),
                          cliField("suggest", &BoardTagArgs::suggest)};
    }
    friend bool operator==(const BoardTagArgs&, const BoardTagArgs&) = default;
};

struct BoardAskArgs {
    std::string question;
    std::optional<std::string> section;
    bool all = false;
    std::int64_t topK = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("question", &BoardAskArgs::question),
                          cliField("section", &BoardAskArgs::section),
                          cliField("all", &BoardAskArgs::all),
                          cliField("topK", &BoardAskArgs::topK)};
    }
    friend bool operator==(const BoardAskArgs&, const BoardAskArgs&) = default;
};

struct BoardItemDTO {
    std::string id;
    std::string text;
    std::string kind;
    bool isDone = false;
    std::optional<std::string> completedAt;
    std::string createdAt;
    std::string sectionID;
    std::string sectionName;
    std::optional<std::string> sourceApp;
    std::optional<std::string> sourceTitle;
    std::optional<std::string> sourceURL;
    std::vector<std::string> tags;
    std::optional<bool> pinned;
    std::optional<std::string> dueAt;
    std::optional<std::string> snoozedUntil;
    std::optional<std::string> note;
    std::optional<std::string> aiTitle;
    std::optional<bool> bumped;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &BoardItemDTO::id),
                          cliField("text", &BoardItemDTO::text),
                          cliField("kind", &BoardItemDTO::kind),
                          cliField("isDone", &BoardItemDTO::isDone),
                          cliField("completedAt", &BoardItemDTO::completedAt),
                          cliField("createdAt", &BoardItemDTO::createdAt),
                          cliField("sectionID", &BoardItemDTO::sectionID),
                          cliField("sectionName", &BoardItemDTO::sectionName),
                          cliField("sourceApp", &BoardItemDTO::sourceApp),
                          cliField("sourceTitle", &BoardItemDTO::sourceTitle),
                          cliField("sourceURL", &BoardItemDTO::sourceURL),
                          cliField("tags", &BoardItemDTO::tags),
                          cliField("pinned", &BoardItemDTO::pinned),
                          cliField("dueAt", &BoardItemDTO::dueAt),
                          cliField("snoozedUntil", &BoardItemDTO::snoozedUntil),
                          cliField("note", &BoardItemDTO::note),
                          cliField("aiTitle", &BoardItemDTO::aiTitle),
                          cliField("bumped", &BoardItemDTO::bumped)};
    }
    friend bool operator==(const BoardItemDTO&, const BoardItemDTO&) = default;
};

struct BoardSectionDTO {
    std::string id;
    std::string name;
    std::int64_t itemCount = 0;
    std::int64_t doneCount = 0;
    bool isActive = false;
    std::int64_t sortIndex = 0;
    std::optional<std::string> symbol;
    std::optional<std::string> colorRole;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &BoardSectionDTO::id),
                          cliField("name", &BoardSectionDTO::name),
                          cliField("itemCount", &BoardSectionDTO::itemCount),
                          cliField("doneCount", &BoardSectionDTO::doneCount),
                          cliField("isActive", &BoardSectionDTO::isActive),
                          cliField("sortIndex", &BoardSectionDTO::sortIndex),
                          cliField("symbol", &BoardSectionDTO::symbol),
                          cliField("colorRole", &BoardSectionDTO::colorRole)};
    }
    friend bool operator==(const BoardSectionDTO&, const BoardSectionDTO&) = default;
};

struct BoardMutationResultDTO {
    std::string action;
    std::int64_t count = 0;
    std::vector<std::string> ids;

    static constexpr auto fields() {
        return std::tuple{cliField("action", &BoardMutationResultDTO::action),
                          cliField("count", &BoardMutationResultDTO::count),
                          cliField("ids", &BoardMutationResultDTO::ids)};
    }
    friend bool operator==(const BoardMutationResultDTO&, const BoardMutationResultDTO&) = default;
};

struct BoardCopyResultDTO {
    std::int64_t count = 0;
    bool asList = false;
    bool markdown = false;
    std::string text;

    static constexpr auto fields() {
        return std::tuple{cliField("count", &BoardCopyResultDTO::count),
                          cliField("asList", &BoardCopyResultDTO::asList),
                          cliField("markdown", &BoardCopyResultDTO::markdown),
                          cliField("text", &BoardCopyResultDTO::text)};
    }
    friend bool operator==(const BoardCopyResultDTO&, const BoardCopyResultDTO&) = default;
};

struct BoardSearchHitDTO {
    BoardItemDTO item;
    bool onBoard = false;

    static constexpr auto fields() {
        return std::tuple{cliField("item", &BoardSearchHitDTO::item),
                          cliField("onBoard", &BoardSearchHitDTO::onBoard)};
    }
    friend bool operator==(const BoardSearchHitDTO&, const BoardSearchHitDTO&) = default;
};

struct BoardExportResultDTO {
    std::vector<std::string> files;
    std::int64_t attachments = 0;
    bool obsidian = false;

    static constexpr auto fields() {
        return std::tuple{cliField("files", &BoardExportResultDTO::files),
                          cliField("attachments", &BoardExportResultDTO::attachments),
                          cliField("obsidian", &BoardExportResultDTO::obsidian)};
    }
    friend bool operator==(const BoardExportResultDTO&, const BoardExportResultDTO&) = default;
};

struct BoardTagSuggestionDTO {
    std::string id;
    std::vector<std::string> tags;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &BoardTagSuggestionDTO::id),
                          cliField("tags", &BoardTagSuggestionDTO::tags)};
    }
    friend bool operator==(const BoardTagSuggestionDTO&, const BoardTagSuggestionDTO&) = default;
};

} // namespace marlune
