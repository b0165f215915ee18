#include "Marlune/LibraryBootstrap.h"

#include "MarluneCore/ClipStore.h"
#include "MarluneCore/DeviceIdentity.h"
#include "MarluneCore/LibraryResealer.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/Resealer.h"
#include "MarluneCore/SnippetStore.h"
#include "MarluneCore/TrashPolicy.h"

#include <ctime>

namespace marlune {

std::filesystem::path OpenedLibrary::storeFile() const {
    if (container && container->storeURL()) {
        return *container->storeURL();
    }
    return paths.libraryDirectory / MarluneStore::storeFileName;
}

namespace {

// A library sealed under a key that is not here reads as empty text everywhere, and the
// first edit would write that over the ciphertext: it is not opened at all.
void refuseMissingKey(ModelContext& context, const ContentKeys& keys,
                      const std::filesystem::path& directory) {
    if (!LibraryResealer::checkKeys(context, 8).keyMissing()) {
        return;
    }
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
        "run `marlune-app --start-new-library`, which keeps this one aside, untouched.");
}

} // namespace

OpenedLibrary openLibrary(const EnvironmentLookup& environment, Keyring* keyring,
                          std::chrono::system_clock::time_point now) {
    OpenedLibrary opened;
    opened.paths = LibraryPaths::resolve(environment);
    createPrivateDirectory(opened.paths.libraryDirectory);
    createPrivateDirectory(opened.paths.settingsFile.parent_path());
    opened.settings = std::make_unique<Settings>(Settings::load(opened.paths.settingsFile, now));

    ContentKeys keys = ContentKeyProvider(keyring, opened.paths.libraryDirectory).load(now);
    opened.keySource = keys.source;

    ContainerChoices choices;
    if (opened.settings->boolean("iCloudSyncEnabled", false)) {
        logs::app.warning("iCloudSyncEnabled is on, but mirroring to the cloud is not available "
                          "on Linux; the library stays on this device.");
    }
    const std::string device = DeviceIdentity::current().value_or(std::string());
    // Everything start-up reads, read before the first write: a damaged page among them is
    // found while the file is still exactly as the user left it.
    auto readFirst = [&](ModelContext& context) {
        refuseMissingKey(context, keys, opened.paths.libraryDirectory);
        opened.snippetCount = SnippetStore(context).list(SnippetSortMode::manual).size();
        opened.clipCount =
            ClipStore(context, ClipStoreSettings::read(*opened.settings)).liveCount();
    };
    opened.container =
        MarluneStore::makeContainer(choices, opened.paths.libraryDirectory,
                                    ClipCrypto(keys.current, keys.retired), device, readFirst);
    if (!keys.retired.empty()) {
        // Content sealed under an older key still opens; moving it now lets the old keys go
        // unused. A failure here is not fatal: the values keep opening with the retired keys.
        tolerateAtStartup(opened, "Could not move sealed values to the current content key: ", [&] {
            const auto moved = LibraryResealer::resealAll(opened.container->mainContext(),
                                                          Resealer(keys.retired, keys.current));
            if (moved > 0) {
                logs::crypto.info("Moved " + std::to_string(moved) +
                                  " sealed values to the current content key.");
            }
        });
    }
    // Fingerprints made under another key (an older library, or one whose key was rotated
    // elsewhere) would no longer find their duplicates.
    tolerateAtStartup(opened, "Could not refresh the clip fingerprints: ", [&] {
        auto& context = opened.container->mainContext();
        const auto refreshed = LibraryResealer::refreshFingerprints(context.db(), context.crypto());
        if (refreshed > 0) {
            logs::crypto.info("Recomputed " + std::to_string(refreshed) +
                              " clip fingerprints under the current content key.");
        }
    });
    LiveModelContainer::publish(opened.container);
    return opened;
}

std::filesystem::path setLibraryAside(const EnvironmentLookup& environment,
                                      std::chrono::system_clock::time_point now) {
    const auto directory = LibraryPaths::resolve(environment).libraryDirectory;
    if (!std::filesystem::exists(directory / MarluneStore::storeFileName)) {
        return {};
    }
    const auto seconds = std::chrono::system_clock::to_time_t(now);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H%M%S", &local);
    auto aside = directory;
    aside += std::string(" (set aside ") + stamp + ")";
    std::filesystem::rename(directory, aside);
    return aside;
}

void tolerateAtStartup(const OpenedLibrary& library, std::string_view what,
                       const std::function<void()>& step) {
    try {
        atStartup(library, step);
    } catch (const MarluneStoreError&) {
        throw;
    } catch (const std::exception& error) {
        logs::app.error(std::string(what) + describeFailure(error));
    }
}

std::int64_t runMaintenance(ModelContext& context, const Settings& settings, Date now) {
    std::int64_t removed = TrashPolicy::purgeExpired(context, now);
    removed += ClipStore(context, ClipStoreSettings::read(settings)).purge(now);
    return removed;
}

std::string containerFailureMessage(const std::exception& error) {
    return std::string("Failed to create Marlune model container: ") + error.what();
}

std::string describeFailure(const std::exception& error) {
    std::string line = error.what();
    if (const auto* store = dynamic_cast<const DatabaseError*>(&error)) {
        line += " (" + store->detail() + ")";
    }
    return line;
}

} // namespace marlune
