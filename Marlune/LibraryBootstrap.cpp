#include "Marlune/LibraryBootstrap.h"

#include "MarluneCore/ClipStore.h"
#include "MarluneCore/DeviceIdentity.h"
#include "MarluneCore/LibraryResealer.h"
#include "MarluneCore/Resealer.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/TrashPolicy.h"

namespace marlune {

OpenedLibrary openLibrary(const EnvironmentLookup& environment, Keyring* keyring,
                          std::chrono::system_clock::time_point now) {
    OpenedLibrary opened;
    opened.paths = LibraryPaths::resolve(environment);
    createPrivateDirectory(opened.paths.libraryDirectory);
    createPrivateDirectory(opened.paths.settingsFile.parent_path());
    opened.settings =
        std::make_unique<Settings>(Settings::load(opened.paths.settingsFile, now));

    ContentKeys keys = ContentKeyProvider(keyring, opened.paths.libraryDirectory).load(now);
    opened.keySource = keys.source;

    ContainerChoices choices;
    if (opened.settings->boolean("iCloudSyncEnabled", false)) {
        logs::app.warning("iCloudSyncEnabled is on, but mirroring to the cloud is not available "
                          "on Linux; the library stays on this device.");
    }
    const std::string device = DeviceIdentity::current().value_or(std::string());
    opened.container = MarluneStore::makeContainer(choices, opened.paths.libraryDirectory,
                                                   ClipCrypto(keys.current, keys.retired), device);
    // A library sealed under a key that is not here reads as empty text everywhere, and the
    // first edit would write that over the ciphertext: it is not opened at all.
    if (LibraryResealer::checkKeys(opened.container->mainContext(), 8).keyMissing()) {
        const auto& directory = opened.paths.libraryDirectory;
        if (keys.source == ContentKeySource::fileCreated) {
            // Made at this start, with nothing sealed under it: it would only stand in the way
            // of the key file the user brings back.
            std::error_code ignored;
            std::filesystem::remove(directory / ContentKeyProvider::fileName, ignored);
        }
        throw ContentKeyError(
            "The library in " + directory.string() +
            " was sealed with a content key that is not here: neither the keyring item " +
            std::string(ContentKeyProvider::itemName) + ", the file " +
            (directory / ContentKeyProvider::fileName).string() +
            " nor a retired key in content-keys-retired.json opens it. Nothing was changed. Put "
            "the original key back (restore the keyring item, or copy the saved content-key file "
            "into the library folder) and start Marlune again; to start a new library instead, "
            "move " + directory.string() + " aside first.");
    }
    if (!keys.retired.empty()) {
        // Content sealed under an older key still opens; moving it now lets the old keys go
        // unused. A failure here is not fatal: the values keep opening with the retired keys.
        try {
            const auto moved = LibraryResealer::resealAll(
                opened.container->mainContext(), Resealer(keys.retired, keys.current));
            if (moved > 0) {
                logs::crypto.info("Moved " + std::to_string(moved) +
                                  " sealed values to the current content key.");
            }
        } catch (const std::exception& error) {
            logs::crypto.warning(std::string("Could not move sealed values to the current "
                                             "content key: ") +
                                 error.what());
        }
    }
    LiveModelContainer::publish(opened.container);
    return opened;
}

std::int64_t runMaintenance(ModelContext& context, const Settings& settings, Date now) {
    std::int64_t removed = TrashPolicy::purgeExpired(context, now);
    removed += ClipStore(context, ClipStoreSettings::read(settings)).purge(now);
    return removed;
}

std::string containerFailureMessage(const std::exception& error) {
    return std::string("Failed to create Marlune model container: ") + error.what();
}

} // namespace marlune
