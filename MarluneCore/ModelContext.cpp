#include "MarluneCore/ModelContext.h"

namespace marlune {

ModelContext::ModelContext(Database db, ClipCrypto crypto, std::string deviceID)
    : db_(std::move(db)), crypto_(std::move(crypto)), undo_(std::make_unique<UndoManager>(db_)),
      deviceID_(std::move(deviceID)) {}

} // namespace marlune
