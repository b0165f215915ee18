#pragma once

#include "MarluneCore/ClipStore.h"
#include "MarluneCore/Date.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

class Settings;

// The Board's words and keys, exactly as the user and the settings file see them.
namespace BoardConstants {
inline constexpr std::string_view defaultSectionName = "Inbox";
inline constexpr std::string_view defaultSectionSymbol = "tray";
inline constexpr std::string_view composerSourceApp = "Marlune";
inline constexpr std::string_view drawingSourceApp = "Marlune Drawing";
inline constexpr std::string_view agentPrefix = "Agent: ";
inline constexpr std::string_view emptyText = "Nothing to add: the text is empty.";
inline constexpr std::string_view secretRefused = "Looks like a secret — not added";
inline constexpr std::string_view mergeRefused = "Merge needs two or more text items.";
inline constexpr std::string_view removedToast = "Removed from Board";
inline constexpr std::string_view deleteSectionConfirmation = "Delete this section?";
inline constexpr std::string_view archivePinboardName = "Board Archive";
inline constexpr std::string_view archivePinboardSymbol = "archivebox";
inline constexpr std::string_view plainTextType = "public.utf8-plain-text";
inline constexpr std::string_view fileURLType = "public.file-url";
// Colour roles a section may take.
inline constexpr std::string_view colorRoles[] = {"iris",   "plum", "blush", "amber",
                                                  "citron", "sage", "teal"};
} // namespace BoardConstants

namespace BoardSettingKeys {
inline constexpr std::string_view activeSectionID = "board.activeSectionID";
inline constexpr std::string_view sectionMemoryEnabled = "board.sectionMemoryEnabled";
inline constexpr std::string_view sectionMemory = "board.sectionMemory";
inline constexpr std::string_view membershipBackfilled = "board.membershipBackfilled";
inline constexpr std::string_view autoArchiveDays = "board.autoArchiveDays";
inline constexpr std::string_view doneCollapsed = "board.doneCollapsed";
inline constexpr std::string_view doubleTapEnabled = "board.doubleTapEnabled";
inline constexpr std::string_view captureSound = "board.captureSound";
inline constexpr std::string_view menuBarPulse = "board.menuBarPulse";
inline constexpr std::string_view aiSuggestionsEnabled = "board.aiSuggestionsEnabled";
inline constexpr std::string_view provenanceEnabled = "board.provenanceEnabled";
inline constexpr std::string_view ocrEnabled = "board.ocrEnabled";
inline constexpr std::string_view exportDirectory = "board.exportDirectory";
inline constexpr std::string_view obsidianVaultOverride = "board.obsidianVaultOverride";
} // namespace BoardSettingKeys

// A refused Board operation, with the sentence to show and, often, the next step.
class BoardError : public std::runtime_error {
public:
    enum class Kind { invalid, notFound, refused, likelySecret };
    BoardError(Kind kind, const std::string& message, std::optional<std::string> hint = {})
        : std::runtime_error(message), kind_(kind), hint_(std::move(hint)) {}
    Kind kind() const { return kind_; }
    const std::optional<std::string>& hint() const { return hint_; }

private:
    Kind kind_;
    std::optional<std::string> hint_;
};

// One item as a list shows it: the clip, its text and the section it is listed in.
struct BoardItem {
    Clip clip;
    std::string text; // the first plain-text flavour, else the preview
    Uuid sectionID;
    std::string sectionName;
    std::vector<std::string> tags;
};

struct BoardSectionSummary {
    Pinboard section;
    std::int64_t itemCount = 0; // live items, snoozed and done included
    std::int64_t doneCount = 0;
};

// A membership taken away by a removal, kept so that undo can put it back.
struct BoardMembership {
    Uuid clipID;
    Uuid sectionID;
    std::optional<double> boardOrder;
    friend bool operator==(const BoardMembership&, const BoardMembership&) = default;
};

// The one place that reads and writes the Board fields of clips and the Board sections (the
// pinboards whose `isBoard` is true). A plain value over the main context, made afresh for each
// operation. Every change is one named undo step; `changed` is called after each one so that
// reminders and views follow. Main thread only.
class BoardStore {
public:
    enum class CaptureOutcome { added, bumped };
    // Whether a text looks like a secret (the clipboard's secret detector; the store cannot
    // see it from here).
    using SecretCheck = std::function<bool(std::string_view)>;

    struct AddResult {
        Clip clip;
        CaptureOutcome outcome = CaptureOutcome::added;
        Pinboard section;
    };

    // What a capture or an add hands over besides the content.
    struct Source {
        std::optional<std::string> appName;
        std::optional<std::string> appBundleID;
        std::optional<std::string> url;
        std::optional<std::string> title;
    };

    struct ListFilter {
        bool includeOpen = true;
        bool includeDone = true;
        bool snoozedOnly = false;    // otherwise snoozed items are left out
        bool includeSnoozed = false; // snoozed or not, as reference resolution needs
        std::optional<std::string> tag;
        std::optional<ClipKind> kind;
    };

    BoardStore(ModelContext& context, Settings& settings, SecretCheck secretCheck = {},
               std::function<void()> changed = {});

    // Sections, by sort index. The active one is the stored id's, else the first, the "Inbox"
    // section being created first when the Board has none.
    std::vector<Pinboard> sections();
    std::vector<BoardSectionSummary> sectionSummaries();
    Pinboard activeSection(Date now);
    // The same without making one: reads never write, so a Board without sections lists none.
    std::optional<Pinboard> activeSectionIfAny();
    void setActiveSection(const Uuid& section);
    // Names compared without regard to case.
    std::optional<Pinboard> sectionNamed(std::string_view name);
    std::optional<Pinboard> section(const Uuid& id);
    Pinboard createSection(std::string_view name, Date now);
    // The section for a name, created when missing.
    Pinboard sectionForName(std::string_view name, Date now);

    // Items of a section in list order (pinned, open, done), snoozed ones left out unless asked.
    // The whole listing of the last sections listed is kept by the context until something is
    // written to the library, so listing one again costs a copy of the items shown.
    std::vector<BoardItem> items(const Pinboard& section, Date now, const ListFilter& filter);
    std::vector<BoardItem> items(const Pinboard& section, Date now);
    // Every live clip that is a member of some Board section, with its first section.
    std::vector<BoardItem> allItems(Date now, const ListFilter& filter);
    std::optional<BoardItem> item(const Uuid& clipID);
    bool isOnBoard(const Uuid& clipID);
    // Full text of a clip: its first plain-text flavour, else the preview.
    std::string text(const Clip& clip);
    std::vector<Uuid> itemIDsWithPrefix(std::string_view prefix, std::size_t limit);

    // Adds typed text (trimmed) as a new item at the top of `section`; text equal to an item
    // of the section bumps that item instead. Refuses empty text and likely secrets.
    AddResult addText(std::string_view text, const Pinboard& section, const Source& source,
                      Date now);
    // Captured content: the library's clip for it is recorded (or found), then bumped if it is
    // already in the section and placed there otherwise. A bumped item that was done is
    // reopened.
    AddResult capture(const NewClip& content, const Pinboard& section, const Source& source,
                      Date now);

    void setDone(const std::vector<Uuid>& ids, bool done, Date now);
    void setPinned(const std::vector<Uuid>& ids, bool pinned, Date now);
    void snooze(const std::vector<Uuid>& ids, Date until);
    void wake(const std::vector<Uuid>& ids);
    void setDue(const std::vector<Uuid>& ids, std::optional<Date> at);
    void setNote(const Uuid& id, const std::optional<std::string>& note);
    // A new key between the two neighbours (`before` ends up below the item, `after` above).
    void move(const Uuid& id, const std::optional<Uuid>& before, const std::optional<Uuid>& after,
              Date now);
    // Takes items off the Board: every Board membership goes, the clips stay in the history.
    std::vector<BoardMembership> removeSelection(const std::vector<Uuid>& ids);
    void restoreMemberships(const std::vector<BoardMembership>& memberships);
    void trashSelection(const std::vector<Uuid>& ids, Date now);
    // Takes the done items of a section off the Board; returns their ids.
    std::vector<Uuid> clearCompleted(const Pinboard& section);
    // Moves items into another section (out of every other one), each placed at the top.
    void moveSelection(const std::vector<Uuid>& ids, const Pinboard& to);
    // Files items out of the Board into an ordinary pinboard; a Board section is refused.
    void fileSelection(const std::vector<Uuid>& ids, const Pinboard& target);
    void rewrite(const Uuid& id, std::string_view text, Date now);
    // Joins two or more text items, in the order given, into the first; the others are taken
    // off the Board. Returns the joined item.
    Clip mergeSelection(const std::vector<Uuid>& ids, Date now);
    void setTag(std::string_view name, bool present, const std::vector<Uuid>& ids, Date now);
    void customize(const Uuid& section, std::optional<std::string> name,
                   std::optional<std::string> symbol, std::optional<std::string> role);
    void deleteSection(const Uuid& section);
    // Adds files as file or image items of `section`.
    std::vector<Clip> importFiles(const std::vector<std::filesystem::path>& files,
                                  const Pinboard& section, Date now);
    // Adds an existing clip to a section, placed by the ordering rule.
    void pinExisting(const Uuid& clipID, const Pinboard& section);

    // Ordinary pinboards (not Board sections) by name.
    std::optional<Pinboard> pinboardNamed(std::string_view name);
    Pinboard createPinboard(std::string_view name, std::string_view symbol, Date now);

private:
    void appendItems(const Pinboard& section, Date now, const ListFilter& filter,
                     std::vector<BoardItem>& out);
    void readItems(const Pinboard& section, Date now, const ListFilter& filter,
                   std::vector<BoardItem>& out);
    std::optional<Clip> clip(const Uuid& id);
    std::vector<Clip> existing(const std::vector<Uuid>& ids);
    std::vector<Clip> sectionClips(const Uuid& section);
    void place(const Clip& clip, const Uuid& section);
    std::optional<double> largestKey(const Uuid& section, const Uuid& excluding);
    void insertSection(const Pinboard& section);
    void notify();
    AddResult into(const Clip& stored, const Pinboard& section, const Source& source, Date now,
                   bool recordSource);

    ModelContext& context_;
    Settings& settings_;
    SecretCheck secretCheck_;
    std::function<void()> changed_;
};

// Pinboard rows, for the Board's passes that read them.
Pinboard readPinboardRow(const Statement& row);
inline constexpr std::string_view pinboardColumns =
    "id, name, iconSymbol, colorHex, colorRole, sortIndex, createdAt, isBoard";
// Case-folded text for name comparison.
std::string boardFoldCase(std::string_view text);

} // namespace marlune
