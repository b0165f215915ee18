#define SQLITE_ENABLE_SESSION 1
#define SQLITE_ENABLE_PREUPDATE_HOOK 1
#include "MarluneCore/UndoManager.h"

#include "MarluneCore/Database.h"
#include "MarluneCore/MainActor.h"

#include <sqlite3.h>

namespace marlune {

UndoManager::UndoManager(Database& db) : UndoManager(db, Limits{}) {}

UndoManager::UndoManager(Database& db, Limits limits) : db_(db), limits_(limits) {}

UndoManager::~UndoManager() {
    if (session_ != nullptr) {
        sqlite3session_delete(session_);
    }
}

void UndoManager::beginGroup(std::string actionName) {
    MainActor::assertIsolated();
    if (depth_++ > 0) {
        return;
    }
    openName_ = std::move(actionName);
    const int rc = sqlite3session_create(db_.handle(), "main", &session_);
    if (rc != SQLITE_OK) {
        depth_ = 0;
        throw DatabaseError(rc, "Cannot record the change for undo.");
    }
    // Lets `endGroup` learn the size of the change without building it, so that a change too
    // large to keep never costs its own size in memory a second time.
    int trackSize = 1;
    sqlite3session_object_config(session_, SQLITE_SESSION_OBJCONFIG_SIZE, &trackSize);
    // Every table with a primary key; the counter table has none and is kept by triggers.
    sqlite3session_attach(session_, nullptr);
}

void UndoManager::endGroup() {
    if (depth_ == 0 || --depth_ > 0) {
        return;
    }
    if (sqlite3session_isempty(session_) != 0) {
        sqlite3session_delete(session_);
        session_ = nullptr;
        return;
    }
    if (static_cast<std::size_t>(sqlite3session_changeset_size(session_)) + openName_.size() >
        limits_.bytes) {
        sqlite3session_delete(session_);
        session_ = nullptr;
        clearRedo();
        return;
    }
    int size = 0;
    void* data = nullptr;
    const int rc = sqlite3session_changeset(session_, &size, &data);
    sqlite3session_delete(session_);
    session_ = nullptr;
    if (rc != SQLITE_OK) {
        sqlite3_free(data);
        throw DatabaseError(rc, "Cannot record the change for undo.");
    }
    if (size > 0) {
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        clearRedo();
        keep({std::move(openName_), {bytes, bytes + size}});
    }
    sqlite3_free(data);
}

void UndoManager::keep(Step step) {
    if (step.cost() > limits_.bytes) {
        return;
    }
    retainedBytes_ += step.cost();
    undoStack_.push_back(std::move(step));
    while (undoStack_.size() > limits_.steps || retainedBytes_ > limits_.bytes) {
        retainedBytes_ -= undoStack_.front().cost();
        undoStack_.pop_front();
    }
}

void UndoManager::clearRedo() {
    for (const auto& step : redoStack_) {
        retainedBytes_ -= step.cost();
    }
    redoStack_.clear();
}

void UndoManager::discardGroup() {
    if (depth_ == 0 || --depth_ > 0) {
        return;
    }
    sqlite3session_delete(session_);
    session_ = nullptr;
}

std::optional<std::string> UndoManager::undoActionName() const {
    if (undoStack_.empty()) {
        return std::nullopt;
    }
    return undoStack_.back().actionName;
}

std::optional<std::string> UndoManager::redoActionName() const {
    if (redoStack_.empty()) {
        return std::nullopt;
    }
    return redoStack_.back().actionName;
}

namespace {

// Replaying a recorded change over a library that has moved on since: rows already gone are
// skipped, and rows whose values were changed since (including counters kept by triggers)
// take the recorded values, so the result is the state before the group.
int resolveConflict(void*, int conflict, sqlite3_changeset_iter*) {
    switch (conflict) {
    case SQLITE_CHANGESET_DATA:
        return SQLITE_CHANGESET_REPLACE;
    case SQLITE_CHANGESET_NOTFOUND:
        return SQLITE_CHANGESET_OMIT;
    case SQLITE_CHANGESET_CONFLICT:
        return SQLITE_CHANGESET_OMIT;
    default:
        return SQLITE_CHANGESET_ABORT;
    }
}

} // namespace

void UndoManager::apply(const std::vector<std::uint8_t>& changeset, bool invert) {
    std::vector<std::uint8_t> bytes = changeset;
    if (invert) {
        int size = 0;
        void* inverted = nullptr;
        const int rc =
            sqlite3changeset_invert(static_cast<int>(changeset.size()),
                                    const_cast<std::uint8_t*>(changeset.data()), &size, &inverted);
        if (rc != SQLITE_OK) {
            throw DatabaseError(rc, "Cannot undo the change.");
        }
        const auto* begin = static_cast<const std::uint8_t*>(inverted);
        bytes.assign(begin, begin + size);
        sqlite3_free(inverted);
    }
    const int rc = sqlite3changeset_apply(db_.handle(), static_cast<int>(bytes.size()),
                                          bytes.data(), nullptr, resolveConflict, nullptr);
    if (rc != SQLITE_OK) {
        throw DatabaseError(rc, std::string("Cannot apply the change: ") +
                                    sqlite3_errmsg(db_.handle()));
    }
}

std::optional<std::string> UndoManager::undo() {
    MainActor::assertIsolated();
    if (undoStack_.empty() || depth_ > 0) {
        return std::nullopt;
    }
    apply(undoStack_.back().changeset, true);
    redoStack_.push_back(std::move(undoStack_.back()));
    undoStack_.pop_back();
    return redoStack_.back().actionName;
}

std::optional<std::string> UndoManager::redo() {
    MainActor::assertIsolated();
    if (redoStack_.empty() || depth_ > 0) {
        return std::nullopt;
    }
    apply(redoStack_.back().changeset, false);
    undoStack_.push_back(std::move(redoStack_.back()));
    redoStack_.pop_back();
    return undoStack_.back().actionName;
}

void UndoManager::removeAllActions() {
    undoStack_.clear();
    redoStack_.clear();
    retainedBytes_ = 0;
}

} // namespace marlune
