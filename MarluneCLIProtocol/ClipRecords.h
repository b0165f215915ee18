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

// A reply carries its result as Base64 of the result's JSON, where bytes are Base64 again: a
// byte of a flavour costs 16/9 bytes of the 16 MiB frame. A clip's reply carries its flavours
// whole up to `clipInlineBytes` in all; a larger flavour travels in pieces of `clipPieceBytes`.
inline constexpr std::int64_t clipInlineBytes = std::int64_t{4} << 20;
inline constexpr std::int64_t clipPieceBytes = std::int64_t{6} << 20;

// Clips, the paste stack and the Trash.

struct SourceAppDTO {
    std::optional<std::string> name;
    std::optional<std::string> bundleID;

    static constexpr auto fields() {
        return std::tuple{cliField("name", &SourceAppDTO::name),
                          cliField("bundleID", &SourceAppDTO::bundleID)};
    }
    friend bool operator==(const SourceAppDTO&, const SourceAppDTO&) = default;
};

struct RepresentationDTO {
    std::string utType;
    bool hasText = false;
    std::optional<std::string> textPreview;
    std::optional<std::int64_t> byteSize;
    std::optional<std::string> text;
    std::optional<std::string> dataBase64;

    static constexpr auto fields() {
        return std::tuple{cliField("utType", &RepresentationDTO::utType),
                          cliField("hasText", &RepresentationDTO::hasText),
                          cliField("textPreview", &RepresentationDTO::textPreview),
                          cliField("byteSize", &RepresentationDTO::byteSize),
                          cliField("text", &RepresentationDTO::text),
                          cliField("dataBase64", &RepresentationDTO::dataBase64)};
    }
    friend bool operator==(const RepresentationDTO&, const RepresentationDTO&) = default;
};

// `score`, `matchType` and `matchedIn` are set on search hits only.
struct ClipDTO {
    std::string id;
    std::string primaryKind;
    std::string previewText;
    std::optional<std::string> bestText;
    std::string contentHash;
    std::optional<SourceAppDTO> sourceApp;
    std::string createdAt;
    bool isPinned = false;
    std::int64_t recopyCount = 0;
    bool promotionHandled = false;
    std::vector<RepresentationDTO> representations;
    std::vector<PinboardRefDTO> pinboards;
    std::vector<TagRefDTO> tags;
    std::optional<double> score;
    std::optional<std::string> matchType;
    std::optional<std::string> matchedIn;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &ClipDTO::id),
                          cliField("primaryKind", &ClipDTO::primaryKind),
                          cliField("previewText", &ClipDTO::previewText),
                          cliField("bestText", &ClipDTO::bestText),
                          cliField("contentHash", &ClipDTO::contentHash),
                          cliField("sourceApp", &ClipDTO::sourceApp),
                          cliField("createdAt", &ClipDTO::createdAt),
                          cliField("isPinned", &ClipDTO::isPinned),
                          cliField("recopyCount", &ClipDTO::recopyCount),
                          cliField("promotionHandled", &ClipDTO::promotionHandled),
                          cliField("representations", &ClipDTO::representations),
                          cliField("pinboards", &ClipDTO::pinboards),
                          cliField("tags", &ClipDTO::tags),
                          cliField("score", &ClipDTO::score),
                          cliField("matchType", &ClipDTO::matchType),
                          cliField("matchedIn", &ClipDTO::matchedIn)};
    }
    friend bool operator==(const ClipDTO&, const ClipDTO&) = default;
};

struct ClipCopyArgs {
    std::string ref;
    std::optional<std::string> by;
    std::optional<std::string> representation;
    std::optional<std::string> transform;
    std::optional<std::string> into;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &ClipCopyArgs::ref), cliField("by", &ClipCopyArgs::by),
                          cliField("representation", &ClipCopyArgs::representation),
                          cliField("transform", &ClipCopyArgs::transform),
                          cliField("into", &ClipCopyArgs::into)};
    }
    friend bool operator==(const ClipCopyArgs&, const ClipCopyArgs&) = default;
};

struct ClipActionResultDTO {
    std::string clipId;
    std::optional<std::string> representation;
    std::optional<std::string> transform;
    std::int64_t bytes = 0;
    bool copied = false;
    bool pasted = false;
    std::optional<PasteTargetDTO> pasteTarget;
    std::optional<std::string> text;

    static constexpr auto fields() {
        return std::tuple{cliField("clipId", &ClipActionResultDTO::clipId),
                          cliField("representation", &ClipActionResultDTO::representation),
                          cliField("transform", &ClipActionResultDTO::transform),
                          cliField("bytes", &ClipActionResultDTO::bytes),
                          cliField("copied", &ClipActionResultDTO::copied),
                          cliField("pasted", &ClipActionResultDTO::pasted),
                          cliField("pasteTarget", &ClipActionResultDTO::pasteTarget),
                          cliField("text", &ClipActionResultDTO::text)};
    }
    friend bool operator==(const ClipActionResultDTO&, const ClipActionResultDTO&) = default;
};

struct ClipPasteStackArgs {
    std::vector<std::string> refs;
    std::optional<std::string> by;
    std::optional<std::string> transform;
    std::optional<std::string> into;

    static constexpr auto fields() {
        return std::tuple{cliField("refs", &ClipPasteStackArgs::refs),
                          cliField("by", &ClipPasteStackArgs::by),
                          cliField("transform", &ClipPasteStackArgs::transform),
                          cliField("into", &ClipPasteStackArgs::into)};
    }
    friend bool operator==(const ClipPasteStackArgs&, const ClipPasteStackArgs&) = default;
};

struct ClipPasteStackResultDTO {
    std::vector<std::string> clipIds;
    std::int64_t pastedCount = 0;
    bool copiedFallback = false;
    std::optional<PasteTargetDTO> pasteTarget;
    std::int64_t bytes = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("clipIds", &ClipPasteStackResultDTO::clipIds),
                          cliField("pastedCount", &ClipPasteStackResultDTO::pastedCount),
                          cliField("copiedFallback", &ClipPasteStackResultDTO::copiedFallback),
                          cliField("pasteTarget", &ClipPasteStackResultDTO::pasteTarget),
                          cliField("bytes", &ClipPasteStackResultDTO::bytes)};
    }
    friend bool operator==(const ClipPasteStackResultDTO&,
                           const ClipPasteStackResultDTO&) = default;
};

struct ClipPromoteArgs {
    std::string ref;
    std::optional<std::string> by;
    std::optional<std::string> keyword;
    std::optional<std::string> title;
    std::optional<std::string> groupRef;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &ClipPromoteArgs::ref),
                          cliField("by", &ClipPromoteArgs::by),
                          cliField("keyword", &ClipPromoteArgs::keyword),
                          cliField("title", &ClipPromoteArgs::title),
                          cliField("groupRef", &ClipPromoteArgs::groupRef)};
    }
    friend bool operator==(const ClipPromoteArgs&, const ClipPromoteArgs&) = default;
};

struct ClipPurgeArgs {
    std::optional<std::int64_t> keepLast;
    std::optional<std::string> olderThan;
    bool dryRun = false;

    static constexpr auto fields() {
        return std::tuple{cliField("keepLast", &ClipPurgeArgs::keepLast),
                          cliField("olderThan", &ClipPurgeArgs::olderThan),
                          cliField("dryRun", &ClipPurgeArgs::dryRun)};
    }
    friend bool operator==(const ClipPurgeArgs&, const ClipPurgeArgs&) = default;
};

struct StackItemDTO {
    std::int64_t position = 0;
    std::string kind;
    std::string id;
    std::string preview;

    static constexpr auto fields() {
        return std::tuple{cliField("position", &StackItemDTO::position),
                          cliField("kind", &StackItemDTO::kind), cliField("id", &StackItemDTO::id),
                          cliField("preview", &StackItemDTO::preview)};
    }
    friend bool operator==(const StackItemDTO&, const StackItemDTO&) = default;
};

struct StackPushArgs {
    std::vector<std::string> refs;
    bool snippet = false;
    std::optional<std::string> by;

    static constexpr auto fields() {
        return std::tuple{cliField("refs", &StackPushArgs::refs),
                          cliField("snippet", &StackPushArgs::snippet),
                          cliField("by", &StackPushArgs::by)};
    }
    friend bool operator==(const StackPushArgs&, const StackPushArgs&) = default;
};

struct StackPushResultDTO {
    std::vector<StackItemDTO> pushed;
    std::int64_t dropped = 0;
    std::int64_t count = 0;
    std::int64_t capacity = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("pushed", &StackPushResultDTO::pushed),
                          cliField("dropped", &StackPushResultDTO::dropped),
                          cliField("count", &StackPushResultDTO::count),
                          cliField("capacity", &StackPushResultDTO::capacity)};
    }
    friend bool operator==(const StackPushResultDTO&, const StackPushResultDTO&) = default;
};

struct StackListResultDTO {
    std::vector<StackItemDTO> items;
    std::int64_t count = 0;
    std::int64_t capacity = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("items", &StackListResultDTO::items),
                          cliField("count", &StackListResultDTO::count),
                          cliField("capacity", &StackListResultDTO::capacity)};
    }
    friend bool operator==(const StackListResultDTO&, const StackListResultDTO&) = default;
};

struct StackPopResultDTO {
    std::optional<StackItemDTO> item;
    std::int64_t remaining = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("item", &StackPopResultDTO::item),
                          cliField("remaining", &StackPopResultDTO::remaining)};
    }
    friend bool operator==(const StackPopResultDTO&, const StackPopResultDTO&) = default;
};

struct StackPasteArgs {
    std::optional<std::string> into;

    static constexpr auto fields() { return std::tuple{cliField("into", &StackPasteArgs::into)}; }
    friend bool operator==(const StackPasteArgs&, const StackPasteArgs&) = default;
};

struct StackPasteResultDTO {
    std::int64_t pastedCount = 0;
    bool copiedFallback = false;
    std::optional<PasteTargetDTO> pasteTarget;

    static constexpr auto fields() {
        return std::tuple{cliField("pastedCount", &StackPasteResultDTO::pastedCount),
                          cliField("copiedFallback", &StackPasteResultDTO::copiedFallback),
                          cliField("pasteTarget", &StackPasteResultDTO::pasteTarget)};
    }
    friend bool operator==(const StackPasteResultDTO&, const StackPasteResultDTO&) = default;
};

struct StackClearResultDTO {
    std::int64_t cleared = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("cleared", &StackClearResultDTO::cleared)};
    }
    friend bool operator==(const StackClearResultDTO&, const StackClearResultDTO&) = default;
};

struct TrashListArgs {
    std::int64_t limit = 0;
    std::int64_t offset = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("limit", &TrashListArgs::limit),
                          cliField("offset", &TrashListArgs::offset)};
    }
    friend bool operator==(const TrashListArgs&, const TrashListArgs&) = default;
};

struct TrashItemDTO {
    std::string id;
    std::string kind;
    std::string label;
    std::string deletedAt;
    std::int64_t daysLeft = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &TrashItemDTO::id), cliField("kind", &TrashItemDTO::kind),
                          cliField("label", &TrashItemDTO::label),
                          cliField("deletedAt", &TrashItemDTO::deletedAt),
                          cliField("daysLeft", &TrashItemDTO::daysLeft)};
    }
    friend bool operator==(const TrashItemDTO&, const TrashItemDTO&) = default;
};

struct TrashRestoreArgs {
    std::string ref;

    static constexpr auto fields() { return std::tuple{cliField("ref", &TrashRestoreArgs::ref)}; }
    friend bool operator==(const TrashRestoreArgs&, const TrashRestoreArgs&) = default;
};

struct TrashEmptyArgs {
    bool dryRun = false;

    static constexpr auto fields() {
        return std::tuple{cliField("dryRun", &TrashEmptyArgs::dryRun)};
    }
    friend bool operator==(const TrashEmptyArgs&, const TrashEmptyArgs&) = default;
};

} // namespace marlune
