#pragma once

#include "MarluneCore/ClipCrypto.h"
#include "MarluneCore/Database.h"
#include "MarluneCore/MainActor.h"
#include "MarluneCore/UndoManager.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace marlune {

class BoardListingCache;

// The one working context over the library: the connection, the content sealer and the undo
// history. Stores are small values over a context; the container owns it. Main thread only.
class ModelContext {
public:
    ModelContext(Database db, ClipCrypto crypto, std::string deviceID);
    ModelContext(const ModelContext&) = delete;
    ModelContext& operator=(const ModelContext&) = delete;
    ~ModelContext();

    Database& db() { return db_; }
    const ClipCrypto& crypto() const { return crypto_; }
    UndoManager& undoManager() { return *undo_; }
    const std::string& deviceID() const { return deviceID_; }
    // The Board sections listed last, kept while nothing is written (see BoardStore::items).
    BoardListingCache& boardListings() { return *boardListings_; }

    // Runs `change` in one transaction recorded as one undo step named `actionName`. Either
    // all of it lands and can be undone at once, or none of it does.
    template <typename Change> decltype(auto) performUndoable(std::string_view actionName,
                                                              Change&& change) {
        MainActor::assertIsolated();
        undo_->beginGroup(std::string(actionName));
        try {
            Database::Transaction tx(db_);
            if constexpr (std::is_void_v<decltype(change())>) {
                change();
                tx.commit();
                undo_->endGroup();
            } else {
                decltype(auto) result = change();
                tx.commit();
                undo_->endGroup();
                return result;
            }
        } catch (...) {
            undo_->discardGroup();
            throw;
        }
    }

private:
    Database db_;
    ClipCrypto crypto_;
    std::unique_ptr<UndoManager> undo_;
    std::string deviceID_;
    std::unique_ptr<BoardListingCache> boardListings_;
};

} // namespace marlune
