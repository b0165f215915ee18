#include "MarluneCore/Schema.h"

#include "MarluneCore/Database.h"

#include <cstdio>
#include <string>

namespace marlune {

namespace {

// Dates are integer microseconds since the Unix epoch. Relationships are foreign keys with
// the delete rules of the record model: cascade where the owner takes its parts with it,
// SET NULL or join-row removal where deleting only detaches.
constexpr std::string_view schemaV1 = R"SQL(
CREATE TABLE Metadata (
    key TEXT PRIMARY KEY NOT NULL,
    value TEXT NOT NULL
);

CREATE TABLE SnippetGroup (
    id TEXT PRIMARY KEY NOT NULL,
    name TEXT NOT NULL DEFAULT '',
    iconSymbol TEXT NOT NULL DEFAULT 'folder',
    colorHex TEXT,
    colorRole TEXT,
    sortIndex INTEGER NOT NULL DEFAULT 0,
    createdAt INTEGER NOT NULL,
    parent_id TEXT REFERENCES SnippetGroup(id) ON DELETE CASCADE
);
CREATE INDEX SnippetGroup_parent ON SnippetGroup(parent_id);

CREATE TABLE Snippet (
    id TEXT PRIMARY KEY NOT NULL,
    title TEXT NOT NULL DEFAULT '',
    keyword TEXT NOT NULL DEFAULT '',
    content TEXT NOT NULL DEFAULT '',
    contentTypeRaw TEXT NOT NULL DEFAULT 'plainText',
    isFavorite INTEGER NOT NULL DEFAULT 0,
    createdAt INTEGER NOT NULL,
    updatedAt INTEGER NOT NULL,
    usageCount INTEGER NOT NULL DEFAULT 0,
    lastUsedAt INTEGER,
    sortIndex INTEGER NOT NULL DEFAULT 0,
    lastFillInValues TEXT,
    deletedAt INTEGER,
    group_id TEXT REFERENCES SnippetGroup(id) ON DELETE SET NULL
);
CREATE INDEX Snippet_keyword ON Snippet(keyword) WHERE deletedAt IS NULL;
CREATE INDEX Snippet_deletedAt ON Snippet(deletedAt);
CREATE INDEX Snippet_group ON Snippet(group_id);
CREATE INDEX Snippet_lastUsedAt ON Snippet(lastUsedAt);
CREATE INDEX Snippet_createdAt ON Snippet(createdAt);

CREATE TABLE Tag (
    id TEXT PRIMARY KEY NOT NULL,
    name TEXT NOT NULL DEFAULT '',
    colorHex TEXT,
    colorRole TEXT,
    createdAt INTEGER NOT NULL
);

CREATE TABLE SnippetTag (
    snippet_id TEXT NOT NULL REFERENCES Snippet(id) ON DELETE CASCADE,
    tag_id TEXT NOT NULL REFERENCES Tag(id) ON DELETE CASCADE,
    PRIMARY KEY (snippet_id, tag_id)
) WITHOUT ROWID;
CREATE INDEX SnippetTag_tag ON SnippetTag(tag_id);

CREATE TABLE Clip (
    id TEXT PRIMARY KEY NOT NULL,
    primaryKindRaw TEXT NOT NULL DEFAULT 'text',
    previewText TEXT NOT NULL DEFAULT '',
    contentHash TEXT NOT NULL DEFAULT '',
    sourceAppBundleID TEXT,
    sourceAppName TEXT,
    createdAt INTEGER NOT NULL,
    isPinned INTEGER NOT NULL DEFAULT 0,
    recopyCount INTEGER NOT NULL DEFAULT 0,
    promotionHandled INTEGER NOT NULL DEFAULT 0,
    sourceDeviceID TEXT,
    lastUsedAt INTEGER,
    deletedAt INTEGER,
    completedAt INTEGER,
    sourceURL TEXT,
    sourceTitle TEXT,
    boardOrder REAL,
    boardPinnedAt INTEGER,
    snoozedUntil INTEGER,
    dueAt INTEGER,
    boardNote TEXT,
    -- How many pinboards and Board sections hold the clip; kept by the ClipPinboard triggers
    -- so the history limit can tell spared clips from an index alone.
    pinboardCount INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX Clip_contentHash ON Clip(contentHash) WHERE deletedAt IS NULL;
CREATE INDEX Clip_recency ON Clip(coalesce(lastUsedAt, createdAt)) WHERE deletedAt IS NULL;
CREATE INDEX Clip_trimmable ON Clip(coalesce(lastUsedAt, createdAt))
    WHERE deletedAt IS NULL AND isPinned = 0 AND pinboardCount = 0;
CREATE INDEX Clip_deletedAt ON Clip(deletedAt) WHERE deletedAt IS NOT NULL;
CREATE INDEX Clip_createdAt ON Clip(createdAt);
CREATE INDEX Clip_lastUsedAt ON Clip(lastUsedAt);
CREATE INDEX Clip_promotion ON Clip(recopyCount) WHERE deletedAt IS NULL AND promotionHandled = 0;

CREATE TABLE Representation (
    id TEXT PRIMARY KEY NOT NULL,
    utTypeIdentifier TEXT NOT NULL DEFAULT '',
    text TEXT,
    createdAt INTEGER NOT NULL,
    position INTEGER NOT NULL DEFAULT 0,
    clip_id TEXT REFERENCES Clip(id) ON DELETE CASCADE
);
CREATE INDEX Representation_clip ON Representation(clip_id, position);

-- Large bytes live outside the representation's row ("data" and "textBlob").
CREATE TABLE RepresentationData (
    representation_id TEXT NOT NULL REFERENCES Representation(id) ON DELETE CASCADE,
    field TEXT NOT NULL CHECK (field IN ('data', 'textBlob')),
    bytes BLOB NOT NULL,
    PRIMARY KEY (representation_id, field)
);

CREATE TABLE Pinboard (
    id TEXT PRIMARY KEY NOT NULL,
    name TEXT NOT NULL DEFAULT '',
    iconSymbol TEXT NOT NULL DEFAULT 'pin',
    colorHex TEXT,
    colorRole TEXT,
    sortIndex INTEGER NOT NULL DEFAULT 0,
    createdAt INTEGER NOT NULL,
    isBoard INTEGER
);

CREATE TABLE ClipPinboard (
    clip_id TEXT NOT NULL REFERENCES Clip(id) ON DELETE CASCADE,
    pinboard_id TEXT NOT NULL REFERENCES Pinboard(id) ON DELETE CASCADE,
    PRIMARY KEY (clip_id, pinboard_id)
) WITHOUT ROWID;
CREATE INDEX ClipPinboard_pinboard ON ClipPinboard(pinboard_id);

CREATE TABLE ClipTag (
    clip_id TEXT NOT NULL REFERENCES Clip(id) ON DELETE CASCADE,
    tag_id TEXT NOT NULL REFERENCES Tag(id) ON DELETE CASCADE,
    PRIMARY KEY (clip_id, tag_id)
) WITHOUT ROWID;
CREATE INDEX ClipTag_tag ON ClipTag(tag_id);

CREATE TABLE Profile (
    id TEXT PRIMARY KEY NOT NULL,
    "values" TEXT NOT NULL DEFAULT ''
);

-- Recomputed rather than incremented, so replaying a recorded change (undo) cannot drift it.
CREATE TRIGGER ClipPinboard_added AFTER INSERT ON ClipPinboard BEGIN
    UPDATE Clip SET pinboardCount = (SELECT count(*) FROM ClipPinboard WHERE clip_id = NEW.clip_id)
    WHERE id = NEW.clip_id;
END;
CREATE TRIGGER ClipPinboard_removed AFTER DELETE ON ClipPinboard BEGIN
    UPDATE Clip SET pinboardCount = (SELECT count(*) FROM ClipPinboard WHERE clip_id = OLD.clip_id)
    WHERE id = OLD.clip_id;
END;

-- The number of clips the history limit may drop, kept by triggers so that checking the limit
-- costs the same at a hundred clips as at a hundred thousand. The table has no primary key on
-- purpose: undo recording skips it, and the triggers keep it right while changes are replayed.
CREATE TABLE ClipCounters (trimmable INTEGER NOT NULL);
INSERT INTO ClipCounters (trimmable) VALUES (0);
CREATE TRIGGER Clip_counted_insert AFTER INSERT ON Clip
WHEN NEW.deletedAt IS NULL AND NEW.isPinned = 0 AND NEW.pinboardCount = 0 BEGIN
    UPDATE ClipCounters SET trimmable = trimmable + 1;
END;
CREATE TRIGGER Clip_counted_delete AFTER DELETE ON Clip
WHEN OLD.deletedAt IS NULL AND OLD.isPinned = 0 AND OLD.pinboardCount = 0 BEGIN
    UPDATE ClipCounters SET trimmable = trimmable - 1;
END;
CREATE TRIGGER Clip_counted_update AFTER UPDATE OF deletedAt, isPinned, pinboardCount ON Clip
WHEN (OLD.deletedAt IS NULL AND OLD.isPinned = 0 AND OLD.pinboardCount = 0)
     IS NOT (NEW.deletedAt IS NULL AND NEW.isPinned = 0 AND NEW.pinboardCount = 0) BEGIN
    UPDATE ClipCounters SET trimmable = trimmable +
        (CASE WHEN NEW.deletedAt IS NULL AND NEW.isPinned = 0 AND NEW.pinboardCount = 0
              THEN 1 ELSE -1 END);
END;
)SQL";

constexpr std::string_view schemaV2Additions = R"SQL(
CREATE TABLE CaptureRule (
    id TEXT PRIMARY KEY NOT NULL,
    bundleID TEXT NOT NULL DEFAULT '',
    appName TEXT,
    isEnabled INTEGER NOT NULL DEFAULT 1,
    createdAt INTEGER NOT NULL
);
CREATE INDEX CaptureRule_bundleID ON CaptureRule(bundleID);
)SQL";

// Indexes added after a schema was frozen, for queries that came later.
constexpr std::string_view queryIndexes = R"SQL(
-- The live items that are done, by completion time: the Board's archive pass, which runs
-- before every listing, reads only the ones old enough instead of every Board item.
CREATE INDEX IF NOT EXISTS Clip_done ON Clip(completedAt, id)
    WHERE completedAt IS NOT NULL AND deletedAt IS NULL;
)SQL";

void recordVersion(Database& db, SchemaVersion version) {
    char buffer[32];
    auto stmt = db.prepare("INSERT INTO Metadata (key, value) VALUES ('schemaVersion', ?1) "
                           "ON CONFLICT(key) DO UPDATE SET value = excluded.value");
    stmt.bind(1, toString(version, buffer));
    stmt.run();
    db.execute("PRAGMA user_version = " + std::to_string(version.major));
}

} // namespace

std::string_view toString(SchemaVersion version, char (&buffer)[32]) {
    const int n = std::snprintf(buffer, sizeof buffer, "%d.%d.%d", version.major, version.minor,
                                version.patch);
    return {buffer, static_cast<std::size_t>(n > 0 ? n : 0)};
}

void MarluneSchemaV1::create(Database& db) {
    Database::Transaction tx(db);
    db.execute("PRAGMA application_id = " + std::to_string(libraryApplicationID));
    db.execute(schemaV1);
    recordVersion(db, version);
    tx.commit();
}

void MarluneSchemaV2::migrateFromV1(Database& db) {
    db.execute(schemaV2Additions);
    recordVersion(db, version);
}

void MarluneMigrationPlan::createCurrent(Database& db) {
    Database::Transaction tx(db);
    MarluneSchemaV1::create(db);
    MarluneSchemaV2::migrateFromV1(db);
    db.execute(queryIndexes);
    tx.commit();
}

void MarluneMigrationPlan::migrate(Database& db, SchemaVersion from) {
    Database::Transaction tx(db);
    if (from < MarluneSchemaV2::version) {
        MarluneSchemaV2::migrateFromV1(db);
    }
    db.execute(queryIndexes);
    tx.commit();
}

void MarluneMigrationPlan::addQueryIndexes(Database& db) {
    // IF NOT EXISTS only reads the schema, so an up-to-date file is not written.
    db.execute(queryIndexes);
}

} // namespace marlune
