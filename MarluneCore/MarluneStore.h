#pragma once

#include "MarluneCore/ClipCrypto.h"
#include "MarluneCore/Database.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Schema.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace marlune {

// Why the library could not be opened. Every case leaves an existing file untouched.
class MarluneStoreError : public std::runtime_error {
public:
    enum class Kind {
        appGroupUnavailable,    // there is no shared app-group container on this system
        cloudMirrorUnavailable, // mirroring to the cloud is not offered here
        notADatabase,           // the file is not an SQLite database
        damaged,                // truncated or unreadable
        notALibrary,            // an SQLite database of some other program
        newerSchema,            // written by a newer Marlune
        cannotOpen,             // permissions, disk, locking
    };

    MarluneStoreError(Kind kind, std::string message, std::string detail = {})
        : std::runtime_error(std::move(message)), kind_(kind), detail_(std::move(detail)) {}

    static MarluneStoreError appGroupUnavailable(std::string_view groupIdentifier);
    // The library file is damaged; `why` completes "is damaged (...)".
    static MarluneStoreError damaged(const std::filesystem::path& file, std::string_view why);
    // SQLite met a damaged page of the library file while reading it. Its report, which names
    // the statement, is logged rather than shown.
    static MarluneStoreError damaged(const std::filesystem::path& file,
                                     const DatabaseError& report);

    Kind kind() const { return kind_; }
    // For appGroupUnavailable the group identifier; for newerSchema the file's version.
    const std::string& detail() const { return detail_; }

private:
    Kind kind_;
    std::string detail_;
};

// The three choices the process makes once when it builds its store.
struct ContainerChoices {
    bool inMemory = false;
    bool appGroup = false;
    bool cloudKit = false;
};

// The process's one store: its file (none in memory), the choices it was built with and
// the main context every service, the command-line server and automation share.
class ModelContainer {
public:
    ModelContainer(ContainerChoices choices, std::optional<std::filesystem::path> storeURL,
                   std::unique_ptr<ModelContext> context)
        : choices_(choices), storeURL_(std::move(storeURL)), context_(std::move(context)) {}

    const ContainerChoices& choices() const { return choices_; }
    const std::optional<std::filesystem::path>& storeURL() const { return storeURL_; }
    ModelContext& mainContext() { return *context_; }

private:
    ContainerChoices choices_;
    std::optional<std::filesystem::path> storeURL_;
    std::unique_ptr<ModelContext> context_;
};

struct MarluneStore {
    static constexpr std::string_view appGroupIdentifier = "group.org.marlune.Marlune";
    static constexpr std::string_view storeFileName = "Marlune.store";

    // Reads a caller makes of a freshly opened library before anything is written to it.
    using FirstReads = std::function<void(ModelContext&)>;

    // Builds the container: in memory, or `Marlune.store` in `libraryDirectory` (created 0700
    // when missing), created or migrated to the current schema. Logs the choices it built with.
    // `readFirst` runs before the file is first written (only a migration writes sooner); a
    // damaged page it meets is reported as a damaged library, and the file is left as it was.
    static std::unique_ptr<ModelContainer>
    makeContainer(ContainerChoices choices, const std::filesystem::path& libraryDirectory,
                  ClipCrypto crypto, std::string deviceID, const FirstReads& readFirst = {});

    // The schema version recorded in a library file, read without changing the file.
    static SchemaVersion schemaVersionOf(const std::filesystem::path& storeFile);

    // Whether the library was ever mirrored to the cloud: the mirror leaves bookkeeping tables
    // whose names begin with ANSCK. Opens the file read-only.
    static bool wasMirroredToCloud(const std::filesystem::path& storeFile);
};

// Holds the process's live container so code that is not handed one (the command-line server,
// desktop automation) reaches the same store.
class LiveModelContainer {
public:
    static void publish(std::shared_ptr<ModelContainer> container);
    static std::shared_ptr<ModelContainer> current();
};

} // namespace marlune
