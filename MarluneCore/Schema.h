#pragma once

#include <string_view>

namespace marlune {

class Database;

// A schema version as recorded in the library file ("1.0.0", "2.0.0").
struct SchemaVersion {
    int major = 0;
    int minor = 0;
    int patch = 0;
    friend auto operator<=>(const SchemaVersion&, const SchemaVersion&) = default;
};

// The first schema: snippets, clips with their representations, groups, pinboards, tags and
// the profile. Frozen: a file written by it must keep opening.
struct MarluneSchemaV1 {
    static constexpr SchemaVersion version{1, 0, 0};
    static void create(Database& db);
};

// The current schema: the first one plus per-application capture rules.
struct MarluneSchemaV2 {
    static constexpr SchemaVersion version{2, 0, 0};
    static void migrateFromV1(Database& db);
};

// Brings a library file up to the current schema, one additive step at a time.
struct MarluneMigrationPlan {
    static constexpr SchemaVersion current = MarluneSchemaV2::version;
    // Creates the current schema in an empty database.
    static void createCurrent(Database& db);
    // Migrates a database recorded at `from` (older than current) in one transaction.
    static void migrate(Database& db, SchemaVersion from);
    // Adds the query indexes a file lacks. They hold no data of their own and change no record,
    // so they are not part of a schema version: a build that does not know them opens the file
    // all the same and keeps them up to date. Run on every library that is opened; costs a
    // look at the schema when nothing is missing.
    static void addQueryIndexes(Database& db);
};

// Recorded in the SQLite header so a library file is recognisable without reading a table.
inline constexpr int libraryApplicationID = 0x4D524C4E; // "MRLN"

std::string_view toString(SchemaVersion version, char (&buffer)[32]);

} // namespace marlune
