#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
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
//
// The history is bounded both in steps and in bytes, because one step can be as large as what
// it changed (an import of thousands of clips): when a new step would pass either bound, the
// oldest steps go first. A step larger than the whole byte bound is not kept at all; the steps
// before it stay undoable, since undo replays over a library that has moved on anyway.
class UndoManager {
public:
    // Enough for any sequence of edits a person makes in a session.
    static constexpr std::size_t maxSteps = 100;
    // Enough for a few hundred ordinary edits or one large paste; an import of a whole history
    // is far beyond it and is simply not undoable.
    static constexpr std::size_t maxBytes = std::size_t{16} << 20;

    struct Limits {
        std::size_t steps = maxSteps;
        std::size_t bytes = maxBytes;
    };

    explicit UndoManager(Database& db);
    UndoManager(Database& db, Limits limits);
    UndoManager(const UndoManager&) = delete;
    UndoManager& operator=(const UndoManager&) = delete;
    ~UndoManager();

    // Opens a group; changes are recorded until `endGroup`. Groups do not nest: an inner
    // group joins the outer one and the outer name wins.
    void beginGroup(std::string actionName);
    // Closes the group and keeps it as the next undo step (nothing is kept when it changed
    // nothing, or more than the byte bound). Clears the redo stack whenever the group changed
    // something, kept or not: what was undone no longer sits on the state it was undone from.
    void endGroup();
    // Closes the group without keeping it (its transaction was rolled back).
    void discardGroup();

    // Whether a group is open: what is written now becomes part of its step.
    bool isRecording() const { return depth_ > 0; }
    bool canUndo() const { return !undoStack_.empty(); }
    bool canRedo() const { return !redoStack_.empty(); }
    std::optional<std::string> undoActionName() const;
    std::optional<std::string> redoActionName() const;

    // Reverts the latest group; returns its name, or nothing when there was none.
    // Throws DatabaseError when the change cannot be applied (the library is left unchanged).
    std::optional<std::string> undo();
    std::optional<std::string> redo();
    void removeAllActions();

    std::size_t undoCount() const { return undoStack_.size(); }
    // The bytes held by the undo and redo steps together.
    std::size_t retainedBytes() const { return retainedBytes_; }

private:
    struct Step {
        std::string actionName;
        std::vector<std::uint8_t> changeset; // the forward change
        std::size_t cost() const { return actionName.size() + changeset.size(); }
    };
    void apply(const std::vector<std::uint8_t>& changeset, bool invert);
    void keep(Step step);
    void clearRedo();

    Database& db_;
    Limits limits_;
    sqlite3_session* session_ = nullptr;
    int depth_ = 0;
    std::string openName_;
    std::deque<Step> undoStack_;
    std::vector<Step> redoStack_;
    std::size_t retainedBytes_ = 0;
};

} // namespace marlune
