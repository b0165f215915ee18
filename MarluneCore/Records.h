#pragma once

#include "MarluneCore/Date.h"
#include "MarluneCore/Uuid.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// The library's records as values. The stores read and write them; fields that are sealed at
// rest hold their plain values here and are sealed on the way into the store.

enum class ClipKind { text, richText, url, image, file, color };
enum class SnippetContentType { plainText, markdown, richText };

std::string_view rawValue(ClipKind kind);
std::string_view rawValue(SnippetContentType type);
std::optional<ClipKind> clipKindFromRaw(std::string_view raw);
std::optional<SnippetContentType> snippetContentTypeFromRaw(std::string_view raw);

struct Snippet {
    Uuid id = Uuid::random();
    std::string title;
    std::string keyword;
    std::string content; // sealed at rest (column "content")
    SnippetContentType contentType = SnippetContentType::plainText;
    bool isFavorite = false;
    Date createdAt{};
    Date updatedAt{};
    std::int64_t usageCount = 0;
    std::optional<Date> lastUsedAt;
    std::int64_t sortIndex = 0;
    // The values last entered in the snippet's fill-in form, by field name; sealed at rest.
    std::optional<std::map<std::string, std::string>> lastFillInValues;
    std::optional<Date> deletedAt;
    std::optional<Uuid> groupID;
    std::vector<Uuid> tagIDs;
    // The stored body could not be opened (sealed under a key that is not here, or damaged).
    // `content` is then empty and means nothing: the snippet must not be expanded or pasted.
    // An update keeps the stored body unless it is given new, non-empty content; clearing
    // this flag as well lets an update store an empty body over it.
    bool contentUnreadable = false;
    // The same for the stored fill-in values: `lastFillInValues` is then none, and an update
    // keeps the stored values unless it is given some.
    bool lastFillInValuesUnreadable = false;

    static Snippet make(Date now) {
        Snippet snippet;
        snippet.createdAt = now;
        snippet.updatedAt = now;
        return snippet;
    }
    bool isLive() const { return !deletedAt.has_value(); }
};

struct SnippetGroup {
    Uuid id = Uuid::random();
    std::string name;
    std::string iconSymbol = "folder";
    std::optional<std::string> colorHex;
    std::optional<std::string> colorRole;
    std::int64_t sortIndex = 0;
    Date createdAt{};
    std::optional<Uuid> parentID;

    static SnippetGroup make(Date now) {
        SnippetGroup group;
        group.createdAt = now;
        return group;
    }
};

struct Tag {
    Uuid id = Uuid::random();
    std::string name;
    std::optional<std::string> colorHex;
    std::optional<std::string> colorRole;
    Date createdAt{};

    static Tag make(Date now) {
        Tag tag;
        tag.createdAt = now;
        return tag;
    }
};

struct Representation {
    Uuid id = Uuid::random();
    std::string utTypeIdentifier;
    // Sealed; in the row (column "text") unless longer than ClipStore::inlineTextLimit, when
    // it is stored as the flavour's text blob instead and read back here all the same.
    std::optional<std::string> text;
    std::optional<std::vector<std::uint8_t>> data; // sealed, stored outside the row
    // A long text handed over as bytes: sealed, stored outside the row, read back in `text`
    // when the flavour has no text of its own in the row.
    std::optional<std::vector<std::uint8_t>> textBlob;
    Date createdAt{};
};

struct Clip {
    Uuid id = Uuid::random();
    ClipKind primaryKind = ClipKind::text;
    std::string previewText; // sealed (column "previewText")
    std::string contentHash;
    std::optional<std::string> sourceAppBundleID;
    std::optional<std::string> sourceAppName;
    Date createdAt{};
    bool isPinned = false;
    std::int64_t recopyCount = 0;
    bool promotionHandled = false;
    std::optional<std::string> sourceDeviceID;
    std::optional<Date> lastUsedAt;
    std::optional<Date> deletedAt;
    std::optional<Date> completedAt;
    std::optional<std::string> sourceURL;
    std::optional<std::string> sourceTitle;
    std::optional<double> boardOrder;
    std::optional<Date> boardPinnedAt;
    std::optional<Date> snoozedUntil;
    std::optional<Date> dueAt;
    std::optional<std::string> boardNote; // sealed (column "boardNote")

    static Clip make(Date now) {
        Clip clip;
        clip.createdAt = now;
        return clip;
    }
    bool isLive() const { return !deletedAt.has_value(); }
    // The clip's recency: when it was last copied, or captured when never since.
    Date recency() const { return lastUsedAt.value_or(createdAt); }
};

struct Pinboard {
    Uuid id = Uuid::random();
    std::string name;
    std::string iconSymbol = "pin";
    std::optional<std::string> colorHex;
    std::optional<std::string> colorRole;
    std::int64_t sortIndex = 0;
    Date createdAt{};
    std::optional<bool> isBoard;

    static Pinboard make(Date now) {
        Pinboard pinboard;
        pinboard.createdAt = now;
        return pinboard;
    }
};

struct Profile {
    Uuid id = Uuid::random();
    std::map<std::string, std::string> values; // column "values", sealed
    // The stored values did not open with the content key here: they read as none, and are
    // never written over by a change made on top of that.
    bool valuesUnreadable = false;
};

struct CaptureRule {
    Uuid id = Uuid::random();
    std::string bundleID;
    std::optional<std::string> appName;
    bool isEnabled = true;
    Date createdAt{};

    static CaptureRule make(Date now) {
        CaptureRule rule;
        rule.createdAt = now;
        return rule;
    }
};

} // namespace marlune
