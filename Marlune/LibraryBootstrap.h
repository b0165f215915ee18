#pragma once

#include "MarluneCore/ContentKeyProvider.h"
#include "MarluneCore/Date.h"
#include "MarluneCore/Keyring.h"
#include "MarluneCore/LibraryPaths.h"
#include "MarluneCore/MarluneStore.h"
#include "MarluneCore/Settings.h"

#include <chrono>
#include <memory>

namespace marlune {

// Everything the application opens at start, in order: where the library lives, the
// settings, the content key, and the store itself.
struct OpenedLibrary {
    LibraryPaths paths;
    std::unique_ptr<Settings> settings;
    ContentKeySource keySource = ContentKeySource::file;
    std::shared_ptr<ModelContainer> container;
};

// Opens the user's library. `keyring` may be null (no Secret Service). Throws
// MarluneStoreError, LibraryPathsError or std::runtime_error with a message for the user.
OpenedLibrary openLibrary(const EnvironmentLookup& environment, Keyring* keyring,
                          std::chrono::system_clock::time_point now);

// The routine upkeep the application runs at start and then periodically: the Trash purge
// and the clip history's age purge. Returns how many records were removed.
std::int64_t runMaintenance(ModelContext& context, const Settings& settings, Date now);

// The line written when the library cannot be opened.
std::string containerFailureMessage(const std::exception& error);

} // namespace marlune
