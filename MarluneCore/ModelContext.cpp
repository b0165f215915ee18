#include "MarluneCore/ModelContext.h"

#include "MarluneCore/BoardListingCache.h"

namespace marlune {

ModelContext::ModelContext(Database db, ClipCrypto crypto, std::string deviceID)
    : db_(std::move(db)), crypto_(std::move(crypto)), undo_(std::make_unique<UndoManager>(db_)),
      deviceID_(std::move(deviceID)), boardListings_(std::make_unique<BoardListingCache>()) {}

ModelContext::~ModelContext() = default;

} // namespace marlune
