#include "MarluneCore/MarluneStore.h"

#include "MarluneCore/Log.h"

#include <array>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sqlite3.h>
#include <sys/stat.h>
#include <system_error>

namespace marlune {

namespace fs = std::filesystem;

MarluneStoreError MarluneStoreError::appGroupUnavailable(std::string_view groupIdentifier) {
    return {Kind::appGroupUnavailable,
            "The shared app-group container \"" + std::string(groupIdentifier) +
                "\" is not available on this system.",
            std::string(groupIdentifier)};
}

MarluneStoreError MarluneStoreError::damaged(const fs::path& file, std::string_view why) {
    return {Kind::damaged,
            "The library file " + file.string() + " is damaged (" + std::string(why) +
                "). It was left untouched; restore it from a backup or move it aside to start "
                "a new library."};
}

MarluneStoreError MarluneStoreError::damaged(const fs::path& file, const DatabaseError& report) {
    logs::store.error("SQLite reports damage in " + file.string() + ": " + report.detail());
    return damaged(file, "part of it cannot be read");
}

namespace {

std::uint32_t readBE32(const unsigned char* p) {
    return (std::uint32_t{p[0]} << 24U) | (std::uint32_t{p[1]} << 16U) |
           (std::uint32_t{p[2]} << 8U) | std::uint32_t{p[3]};
}

// Checks the file's SQLite header before SQLite touches it, so a file that is not ours, or
// was cut short, is refused rather than "repaired" by the first write.
void validateHeader(const fs::path& file) {
    std::error_code ec;
    const auto size = fs::file_size(file, ec);
    if (ec) {
        throw MarluneStoreError(MarluneStoreError::Kind::cannotOpen,
                                "Cannot read the library file " + file.string() + ": " +
                                    ec.message() + ".");
    }
    std::array<unsigned char, 100> header{};
    std::ifstream in(file, std::ios::binary);
    in.read(reinterpret_cast<char*>(header.data()), header.size());
    const auto got = static_cast<std::size_t>(in.gcount());
    static constexpr char magic[] = "SQLite format 3"; // 16 bytes with its terminating zero
    if (size == 0) {
        throw MarluneStoreError::damaged(file, "the file is empty");
    }
    if (got < sizeof magic || std::memcmp(header.data(), magic, sizeof magic) != 0) {
        throw MarluneStoreError(MarluneStoreError::Kind::notADatabase,
                                "The library file " + file.string() +
                                    " is not a Marlune library (it is not an SQLite database). It "
                                    "was left untouched.");
    }
    if (got < header.size()) {
        throw MarluneStoreError::damaged(file, "the file ends inside its header");
    }
    std::uint32_t pageSize = (std::uint32_t{header[16]} << 8U) | header[17];
    if (pageSize == 1) {
        pageSize = 65536;
    }
    if (pageSize < 512 || (pageSize & (pageSize - 1)) != 0) {
        throw MarluneStoreError::damaged(file, "its header names an impossible page size");
    }
    if (size % pageSize != 0) {
        throw MarluneStoreError::damaged(file, "it is not a whole number of pages long");
    }
    // The header's page count is trustworthy when its "valid for" stamp matches the change
    // counter; a shorter file than that was truncated.
    const std::uint32_t changeCounter = readBE32(&header[24]);
    const std::uint32_t pages = readBE32(&header[28]);
    const std::uint32_t validFor = readBE32(&header[92]);
    if (pages != 0 && changeCounter == validFor &&
        static_cast<std::uint64_t>(pages) * pageSize > size) {
        throw MarluneStoreError::damaged(
            file, "it is " + std::to_string(size) + " bytes long but its header says " +
                      std::to_string(static_cast<std::uint64_t>(pages) * pageSize));
    }
}

MarluneStoreError cannotOpen(const fs::path& file, const DatabaseError& error) {
    logs::store.error("Cannot open " + file.string() + ": " + error.detail());
    const bool unopenable = (error.code() & 0xff) == SQLITE_CANTOPEN;
    return {MarluneStoreError::Kind::cannotOpen,
            "The library file " + file.string() + " could not be opened. " +
                (unopenable ? std::string("Check that you may read and write it and the folder "
                                          "that holds it.")
                            : std::string(error.what()))};
}

std::optional<SchemaVersion> parseVersion(std::string_view text) {
    SchemaVersion v;
    if (std::sscanf(std::string(text).c_str(), "%d.%d.%d", &v.major, &v.minor, &v.patch) != 3) {
        return std::nullopt;
    }
    return v;
}

// Reads the recorded schema version without writing anything.
SchemaVersion readVersion(Database& db, const fs::path& file) {
    try {
        auto app = db.prepare("PRAGMA application_id");
        app.step();
        const auto applicationID = app.int64(0);
        auto hasMetadata =
            db.prepare("SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = "
                       "'Metadata'");
        hasMetadata.step();
        if (hasMetadata.int64(0) == 0 || applicationID != libraryApplicationID) {
            throw MarluneStoreError(MarluneStoreError::Kind::notALibrary,
                                    "The file " + file.string() +
                                        " is an SQLite database but not a Marlune library. It "
                                        "was left untouched.");
        }
        auto stmt = db.prepare("SELECT value FROM Metadata WHERE key = 'schemaVersion'");
        if (!stmt.step()) {
            throw MarluneStoreError::damaged(file, "it records no schema version");
        }
        const auto text = stmt.text(0);
        auto version = parseVersion(text);
        if (!version) {
            throw MarluneStoreError::damaged(file,
                                             "its schema version \"" + text + "\" is unreadable");
        }
        return *version;
    } catch (const DatabaseError& error) {
        if (error.isDamage()) {
            throw MarluneStoreError::damaged(file, error);
        }
        throw cannotOpen(file, error);
    }
}

// Settings of this connection only: none of them writes to the file.
void configure(Database& db, bool onDisk) {
    if (onDisk) {
        db.execute("PRAGMA synchronous = FULL");
        // 32 MiB of page cache keeps the indexes of a large history resident, so an insert
        // costs about the same at a hundred thousand clips as at a thousand.
        db.execute("PRAGMA cache_size = -32768");
        // Reads of large histories map the file instead of copying every page through read().
        db.execute("PRAGMA mmap_size = 268435456");
    }
    db.execute("PRAGMA foreign_keys = ON");
    db.execute("PRAGMA temp_store = MEMORY");
}

// A new library is built beside its final name and renamed into place, so a crash while
// creating it never leaves an empty or half-built Marlune.store behind.
Database createLibraryFile(const fs::path& file) {
    const fs::path building = file.string() + ".new";
    std::error_code ignored;
    fs::remove(building, ignored);
    {
        Database db = Database::open(building, Database::OpenMode::readWriteCreate);
        db.execute("PRAGMA journal_mode = DELETE");
        MarluneMigrationPlan::createCurrent(db);
    }
    // SQLite gives its -wal and -shm files the database file's mode.
    ::chmod(building.c_str(), 0600);
    fs::rename(building, file);
    return Database::open(file, Database::OpenMode::readWrite);
}

std::string describeChoices(const ContainerChoices& c) {
    auto b = [](bool v) { return v ? "true" : "false"; };
    return std::string("Model container built (cloudKit: ") + b(c.cloudKit) +
           ", appGroup: " + b(c.appGroup) + ", inMemory: " + b(c.inMemory) + ")";
}

} // namespace

std::unique_ptr<ModelContainer> MarluneStore::makeContainer(ContainerChoices choices,
                                                            const fs::path& libraryDirectory,
                                                            ClipCrypto crypto, std::string deviceID,
                                                            const FirstReads& readFirst) {
    MainActor::assertIsolated();
    if (choices.appGroup) {
        throw MarluneStoreError::appGroupUnavailable(appGroupIdentifier);
    }
    if (choices.cloudKit) {
        throw MarluneStoreError(MarluneStoreError::Kind::cloudMirrorUnavailable,
                                "Mirroring the library to the cloud is not available on Linux "
                                "yet. Turn off iCloudSyncEnabled to open the library on this "
                                "device only.");
    }

    std::optional<fs::path> storeURL;
    Database db = [&] {
        if (choices.inMemory) {
            Database memory = Database::openInMemory();
            MarluneMigrationPlan::createCurrent(memory);
            return memory;
        }
        std::error_code ec;
        fs::create_directories(libraryDirectory, ec);
        if (ec) {
            throw MarluneStoreError(MarluneStoreError::Kind::cannotOpen,
                                    "Cannot create the library folder " +
                                        libraryDirectory.string() + ": " + ec.message() + ".");
        }
        ::chmod(libraryDirectory.c_str(), 0700);
        const fs::path file = libraryDirectory / storeFileName;
        storeURL = file;
        if (!fs::exists(file)) {
            return createLibraryFile(file);
        }
        validateHeader(file);
        Database existing = [&] {
            try {
                return Database::open(file, Database::OpenMode::readWrite);
            } catch (const DatabaseError& error) {
                throw cannotOpen(file, error);
            }
        }();
        const SchemaVersion version = readVersion(existing, file);
        if (version.major > MarluneMigrationPlan::current.major ||
            version > MarluneMigrationPlan::current) {
            char buffer[32];
            const std::string text(toString(version, buffer));
            throw MarluneStoreError(MarluneStoreError::Kind::newerSchema,
                                    "The library file " + file.string() +
                                        " was written by a newer version of Marlune (schema " +
                                        text +
                                        "). Update Marlune to open it; the file was left "
                                        "untouched.",
                                    text);
        }
        try {
            if (version < MarluneMigrationPlan::current) {
                MarluneMigrationPlan::migrate(existing, version);
            }
            MarluneMigrationPlan::addQueryIndexes(existing);
        } catch (const DatabaseError& error) {
            if (error.isDamage()) {
                throw MarluneStoreError::damaged(file, error);
            }
            throw;
        }
        return existing;
    }();
    configure(db, !choices.inMemory);

    auto context =
        std::make_unique<ModelContext>(std::move(db), std::move(crypto), std::move(deviceID));
    if (readFirst) {
        try {
            readFirst(*context);
        } catch (const DatabaseError& error) {
            if (storeURL && error.isDamage()) {
                throw MarluneStoreError::damaged(*storeURL, error);
            }
            throw;
        }
    }
    if (!choices.inMemory) {
        // Switching a file kept with a rollback journal rewrites its header, so it waits until
        // the first reads have found the file sound.
        context->db().execute("PRAGMA journal_mode = WAL");
    }
    logs::store.info(describeChoices(choices));
    return std::make_unique<ModelContainer>(choices, std::move(storeURL), std::move(context));
}

SchemaVersion MarluneStore::schemaVersionOf(const fs::path& storeFile) {
    validateHeader(storeFile);
    Database db = Database::open(storeFile, Database::OpenMode::readOnly);
    return readVersion(db, storeFile);
}

bool MarluneStore::wasMirroredToCloud(const fs::path& storeFile) {
    Database db = Database::open(storeFile, Database::OpenMode::readOnly);
    auto stmt =
        db.prepare("SELECT count(*) FROM sqlite_master WHERE type='table' AND name LIKE 'ANSCK%'");
    return stmt.step() && stmt.int64(0) > 0;
}

namespace {
std::mutex liveMutex;
std::shared_ptr<ModelContainer> liveContainer;
} // namespace

void LiveModelContainer::publish(std::shared_ptr<ModelContainer> container) {
    std::lock_guard lock(liveMutex);
    liveContainer = std::move(container);
}

std::shared_ptr<ModelContainer> LiveModelContainer::current() {
    std::lock_guard lock(liveMutex);
    return liveContainer;
}

} // namespace marlune
