#pragma once

#include "MarluneCore/ContentKeyProvider.h"
#include "MarluneCore/Database.h"
#include "MarluneCore/Date.h"
#include "MarluneCore/Keyring.h"
#include "MarluneCore/LibraryPaths.h"
#include "MarluneCore/MarluneStore.h"
#include "MarluneCore/Settings.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

namespace marlune {

// Everything the application opens at start, in order: where the library lives, the
// settings, the content key, and the store itself, with what its first reads found.
struct OpenedLibrary {
    LibraryPaths paths;
    std::unique_ptr<Settings> settings;
    ContentKeySource keySource = ContentKeySource::file;
    std::shared_ptr<ModelContainer> container;
    std::size_t snippetCount = 0;
    std::int64_t clipCount = 0;

    std::filesystem::path storeFile() const;
};

// Opens the user's library and reads it through once as start-up needs it (the key check, the
// snippets, the clip count) before anything is written. Throws MarluneStoreError (a damaged
// page met by those reads included), ContentKeyError, LibraryPathsError or another
// std::runtime_error whose message is for the user.
OpenedLibrary openLibrary(const EnvironmentLookup& environment, Keyring* keyring,
                          std::chrono::system_clock::time_point now);

// Starting a new library on purpose: renames the library folder to "<folder> (set aside <date
// and time>)", untouched, with its key file if it has one, and answers the new name; nothing
// (an empty path) when there is no library there. Throws std::filesystem::filesystem_error.
std::filesystem::path setLibraryAside(const EnvironmentLookup& environment,
                                      std::chrono::system_clock::time_point now);

// Runs a later step of start-up on the opened library. A damaged page SQLite meets in it ends
// start-up with the same damaged-library error as a damaged header at open does, so that the
// user reads one message whichever page is damaged; any other failure passes through.
template <class Step> decltype(auto) atStartup(const OpenedLibrary& library, Step&& step) {
    try {
        return std::forward<Step>(step)();
    } catch (const DatabaseError& error) {
        if (error.isDamage()) {
            throw MarluneStoreError::damaged(library.storeFile(), error);
        }
        throw;
    }
}

// A step of start-up that Marlune can go on without: its failure is logged after `what` and
// start-up continues. A damaged library is not such a failure (see `atStartup`).
void tolerateAtStartup(const OpenedLibrary& library, std::string_view what,
                       const std::function<void()>& step);

// The routine upkeep the application runs at start and then periodically: the Trash purge
// and the clip history's age purge. Returns how many records were removed.
std::int64_t runMaintenance(ModelContext& context, const Settings& settings, Date now);

// The line written when the library cannot be opened, or start-up cannot go on with it.
std::string containerFailureMessage(const std::exception& error);

// The line logged for a failure: its message, and for a store failure the detail behind it.
std::string describeFailure(const std::exception& error);

} // namespace marlune
