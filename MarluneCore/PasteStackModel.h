#pragma once

#include "MarluneCore/Uuid.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace marlune {

// What a paste-stack entry points at: a clip or a snippet of the library, by id.
struct PasteStackClip {
    Uuid id;
    friend bool operator==(const PasteStackClip&, const PasteStackClip&) = default;
};
struct PasteStackSnippet {
    Uuid id;
    friend bool operator==(const PasteStackSnippet&, const PasteStackSnippet&) = default;
};
using PasteStackEntry = std::variant<PasteStackClip, PasteStackSnippet>;

// The stored form of an entry: {"clip": {"_0": "<UUID>"}} or {"snippet": {"_0": "<UUID>"}}.
nlohmann::json encodePasteStackEntry(const PasteStackEntry& entry);
// Nothing for anything else (another key, a second key, a value that is not a UUID).
std::optional<PasteStackEntry> decodePasteStackEntry(const nlohmann::json& json);
const Uuid& entryID(const PasteStackEntry& entry);
std::string_view entryKind(const PasteStackEntry& entry); // "clip" or "snippet"

struct PasteStackItem {
    Uuid id = Uuid::random(); // a fresh identity per push, so a clip queued twice is two items
    PasteStackEntry entry;
    std::string preview;
    std::string iconName;
};

// The paste stack's queue: at most 20 items, pasted oldest first. After every change the
// whole list of entries (previews are not kept) goes to `writeThrough`; when that throws, the
// change is undone and the error passed on, so that what the caller was told happened is what
// was persisted. Main thread only.
class PasteStackModel {
public:
    static constexpr std::size_t capacity = 20;
    using WriteThrough = std::function<void(const std::vector<PasteStackEntry>&)>;

    WriteThrough writeThrough;

    const std::vector<PasteStackItem>& entries() const { return items_; }
    bool isEmpty() const { return items_.empty(); }
    std::size_t count() const { return items_.size(); }

    // False, with no change, when the stack is full; a push never drops the oldest item.
    bool push(PasteStackEntry entry, std::string preview, std::string iconName);
    // The oldest item; nothing (and no write-through) when empty.
    std::optional<PasteStackItem> popFirst();
    // Removes the item at `position` (0 is the oldest); false when there is none.
    bool remove(std::size_t position);
    // "Clear Paste Stack"; returns how many items were dropped.
    std::size_t clear();

    // Puts back persisted items at start-up, without a write-through.
    void restore(std::vector<PasteStackItem> items);

    // Called after every change (push, pop, removal, clear, restore), after the write-through.
    void observe(std::function<void()> observer) { observers_.push_back(std::move(observer)); }

private:
    void commit(std::vector<PasteStackItem> before);
    void notify();

    std::vector<PasteStackItem> items_;
    std::vector<std::function<void()>> observers_;
};

// The queue's file in the library directory: a JSON array of encoded entries, replaced
// atomically on every change so that a crash leaves either the old queue or the new one.
struct PasteStackFile {
    static constexpr std::string_view fileName = "paste-stack.json";

    // The entries in the file; none when it does not exist. A file that cannot be read as a
    // queue is logged and set aside as "paste-stack.json.corrupt", and the queue starts empty;
    // entries this version cannot read are left out with a warning.
    static std::vector<PasteStackEntry> read(const std::filesystem::path& file);
    // Throws std::system_error when the file cannot be written.
    static void write(const std::filesystem::path& file,
                      const std::vector<PasteStackEntry>& entries);
};

} // namespace marlune
