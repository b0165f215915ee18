#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct sqlite3_session;

namespace marlune {

class Database;

// Undo and redo for the library. Each undoable change is one named group: every row it
// touched, including rows removed by cascades, is recorded as an SQLite changeset while the
// group is open, and undoing applies the inverted changeset, so one Undo reverts a whole
// batch however many records it changed.
class UndoManager {
public:
    explicit UndoManager(Database& db);
    UndoManager(const UndoManager&) = delete;
    UndoManager& operator=(const UndoManager&) = delete;
    ~UndoManager();

    // Opens a group; changes are recorded until `endGroup`. Groups do not nest: an inner
    // group joins the outer one and the outer name wins.
    void beginGroup(std::string actionName);
    // Closes the group and keeps it as the next undo step (nothing is kept when it changed
    // nothing). Clears the redo stack.
    void endGroup();
    // Closes the group without keeping it (its transaction was rolled back).
    void discardGroup();

    bool canUndo() const { return !undoStack_.empty(); }
    bool canRedo() const { return !redoStack_.empty(); }
    std::optional<std::string> undoActionName() const;
    std::optional<std::string> redoActionName() const;

    // Reverts the latest group; returns its name, or nothing when there was none.
    // Throws DatabaseError when the change cannot be applied (the library is left unchanged).
    std::optional<std::string> undo();
    std::optional<std::string> redo();
    void removeAllActions();

    std::size_t levelsOfUndo = 100;

private:
    struct Step {
        std::string actionName;
        std::vector<std::uint8_t> changeset; // the forward change
    };
    void apply(const std::vector<std::uint8_t>& changeset, bool invert);

    Database& db_;
    sqlite3_session* session_ = nullptr;
    int depth_ = 0;
    std::string openName_;
    std::vector<Step> undoStack_;
    std::vector<Step> redoStack_;
};

} // namespace marlune
