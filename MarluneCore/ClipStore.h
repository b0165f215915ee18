#pragma once

#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

class Settings;

// The history settings the clip store reads.
struct ClipStoreSettings {
    static constexpr std::int64_t defaultMaxUnpinnedHistory = 1000;

    std::int64_t maxUnpinnedHistory = defaultMaxUnpinnedHistory;
    bool unlimitedHistory = false;
    std::int64_t clipRetentionDays = 0; // below 1: no age purge

    // Reads `maxUnpinnedHistory`, `unlimitedHistory` and `clipRetentionDays`; a history limit
    // below 1 is rejected (logged) and the default used instead.
    static ClipStoreSettings read(const Settings& settings);
};

// What a capture hands to the store.
struct NewClip {
    ClipKind kind = ClipKind::text;
    std::string previewText;
    // The content fingerprint; computed from the kind and representations when empty.
    std::string contentHash;
    std::vector<Representation> representations;
    std::optional<std::string> sourceAppBundleID;
    std::optional<std::string> sourceAppName;
};

// Which live clips a listing shows.
struct ClipFilter {
    std::optional<ClipKind> kind;
    bool pinnedOnly = false;
};

// A search hit: the clip and where the text was found ("preview" or "text").
struct ClipMatch {
    Clip clip;
    std::string matchedIn;
};

// The one way captured clipboard content enters the library and leaves it again by age.
// A small value over the main context; every operation runs on the main thread.
//
// Clips spared by the history limit and the age purge: pinned clips, clips on a pinboard or
// a Board section, and clips in the Trash (the Trash keeps its own 30-day promise).
class ClipStore {
public:
    // Texts longer than this are stored outside the representation's row (as its sealed
    // `textBlob`) and read back as text: a row holding a long text would be read by every scan
    // of the table, though only search and the flavour itself need it.
    static constexpr std::size_t inlineTextLimit = std::size_t{64} << 10;

    ClipStore(ModelContext& context, ClipStoreSettings settings)
        : context_(context), settings_(settings) {}

    // Inserts the clip, or bumps the live clip with the same content fingerprint (recency to
    // now, one more re-copy). Returns the live clip that now holds the content. A fingerprint
    // handed in must be made under the context's fingerprint key.
    Clip record(const NewClip& clip, Date now);
    // Drops the unspared clips beyond the history limit, oldest recency first. Returns how many.
    std::int64_t trim();
    // Deletes unspared clips whose recency is older than the retention. Returns how many.
    std::int64_t purge(Date now);
    // The capture path: record, then trim, then purge.
    Clip capture(const NewClip& clip, Date now);

    // Live clips copied `threshold` times or more whose promotion was not handled yet.
    std::vector<Clip> promotionCandidates(std::int64_t threshold);
    void markPromotionHandled(const Uuid& clipID);
    // The Board note of a clip; none removes it.
    void setBoardNote(const Uuid& clipID, const std::optional<std::string>& note);

    std::optional<Clip> clip(const Uuid& id);
    // Live clips, most recent first.
    std::vector<Clip> recent(std::size_t limit, std::size_t offset = 0);
    // Live clips whose preview text contains `needle` (ASCII letters compared without case),
    // most recent first, at most `limit`.
    std::vector<Clip> search(std::string_view needle, std::size_t limit);
    // In pasteboard order; a text stored outside the row comes back in `text`. A flavour that
    // no key opens comes back without its content.
    std::vector<Representation> representations(const Uuid& clipID);

    // Live clips passing `filter`, most recent first, and how many there are in all.
    std::vector<Clip> recent(const ClipFilter& filter, std::size_t limit, std::size_t offset);
    std::int64_t count(const ClipFilter& filter);
    // Live clips whose preview, or the text of one of their flavours, contains `needle`
    // (ASCII letters compared without case), most recent first.
    std::vector<ClipMatch> searchAll(std::string_view needle, const ClipFilter& filter);
    // Live clips whose id starts with `prefix` (any case), at most `limit`.
    std::vector<Uuid> idsWithPrefix(std::string_view prefix, std::size_t limit);
    // The pinboards (and Board sections) and tags that hold a clip: id and name.
    std::vector<std::pair<Uuid, std::string>> pinboardsOf(const Uuid& clipID);
    std::vector<std::pair<Uuid, std::string>> tagsOf(const Uuid& clipID);
    std::int64_t liveCount();
    // Clips the history limit may drop (live, unpinned, on no pinboard).
    std::int64_t trimmableCount();

    const ClipStoreSettings& settings() const { return settings_; }

    // Puts `reps` in place of every flavour the clip had (its fingerprint is the caller's).
    void replaceRepresentations(const Uuid& clipID, const std::vector<Representation>& reps,
                                Date now);

private:
    void insertRepresentations(const Uuid& clipID, const std::vector<Representation>& reps,
                               Date now);

    ModelContext& context_;
    ClipStoreSettings settings_;
};

// Reads a Clip from a row selected with `clipColumns`, opening its sealed fields. A list that
// shows some other text for the clip can leave the preview unread (`previewText` stays empty),
// which saves opening one sealed value per row.
inline constexpr std::string_view clipColumns =
    "id, primaryKindRaw, previewText, contentHash, sourceAppBundleID, sourceAppName, createdAt, "
    "isPinned, recopyCount, promotionHandled, sourceDeviceID, lastUsedAt, deletedAt, "
    "completedAt, sourceURL, sourceTitle, boardOrder, boardPinnedAt, snoozedUntil, dueAt, "
    "boardNote";
// The column of the sealed preview in `clipColumns`, for a caller that opens it itself.
inline constexpr int clipPreviewColumn = 2;
enum class ClipPreview { open, unread };
Clip readClipRow(const Statement& row, const ClipCrypto& crypto,
                 ClipPreview preview = ClipPreview::open);

// A clip's flavours opened, and whether every sealed value among them opened.
struct StoredRepresentations {
    std::vector<Representation> representations;
    bool allOpened = true;
};
StoredRepresentations readRepresentations(Database& db, const ClipCrypto& crypto,
                                          const Uuid& clipID);

// Every text of every flavour, for a search that opens them all: rows of clip id, the sealed
// text of the row (or null), and the sealed long text (or null), in storage order.
inline constexpr std::string_view representationTextsSQL =
    "SELECT clip_id, text, NULL FROM Representation NOT INDEXED WHERE text IS NOT NULL "
    "UNION ALL SELECT r.clip_id, NULL, d.bytes FROM RepresentationData d "
    "JOIN Representation r ON r.id = d.representation_id WHERE d.field = 'textBlob'";
// Opens the text of a row of `representationTextsSQL` into `plain`; false when no key does.
bool readRepresentationText(const Statement& row, const ClipCrypto& crypto, std::string& plain);

} // namespace marlune
