#include "MarluneCore/Database.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/MarluneStore.h"
#include "MarluneCore/SnippetStore.h"
#include "support/DamagedLibrary.h"
#include "support/LibraryFixture.h"

#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sqlite3.h>

namespace marlune {
namespace {

using test::Library;
using test::TempDir;
using test::testNow;
namespace fs = std::filesystem;

std::unique_ptr<ModelContainer> openAt(const fs::path& dir, const SymmetricKey& key) {
    return MarluneStore::makeContainer({}, dir, ClipCrypto(key), "test-device");
}

TEST(StoreOpening, FileWrittenUnderFirstSchemaOpensMigratedWithEmptyCaptureRules) {
    TempDir dir;
    const auto key = SymmetricKey::random();
    const fs::path file = dir / "Marlune.store";
    const auto id = Uuid::random();
    {
        Database db = Database::open(file, Database::OpenMode::readWriteCreate);
        MarluneSchemaV1::create(db);
        db.prepare("INSERT INTO Snippet (id, title, keyword, content, createdAt, updatedAt) "
                   "VALUES (?1, 'Sig', ';sig', 'plain before sealing', 1, 1)")
            .bind(1, id.string())
            .run();
    }
    ASSERT_EQ(MarluneStore::schemaVersionOf(file), (SchemaVersion{1, 0, 0}));

    auto container = openAt(dir.path(), key);
    auto& db = container->mainContext().db();
    auto rules = db.prepare("SELECT count(*) FROM CaptureRule");
    ASSERT_TRUE(rules.step());
    EXPECT_EQ(rules.int64(0), 0);
    SnippetStore snippets(container->mainContext());
    auto snippet = snippets.liveSnippet(";sig");
    ASSERT_TRUE(snippet);
    EXPECT_EQ(snippet->id, id);
    EXPECT_EQ(snippet->content, "plain before sealing"); // unsealed legacy text reads as itself
    container.reset();
    EXPECT_EQ(MarluneStore::schemaVersionOf(file), (SchemaVersion{2, 0, 0}));
}

TEST(StoreOpening, ReopeningKeepsRecordsAndDoesNotMigrateAgain) {
    TempDir dir;
    const auto key = SymmetricKey::random();
    {
        auto container = openAt(dir.path(), key);
        SnippetStore(container->mainContext())
            .create(
                [] {
                    Snippet s = Snippet::make(testNow());
                    s.keyword = ";addr";
                    s.content = "1 Harbour Lane";
                    return s;
                }(),
                testNow());
    }
    auto container = openAt(dir.path(), key);
    auto found = SnippetStore(container->mainContext()).liveSnippet(";addr");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->content, "1 Harbour Lane");
}

struct BadFileCase {
    const char* name;
    std::function<void(const fs::path&)> make;
    MarluneStoreError::Kind expected;
};

class StoreOpeningRefuses : public ::testing::TestWithParam<BadFileCase> {};

TEST_P(StoreOpeningRefuses, BadFileIsRefusedAndLeftByteForByteUntouched) {
    TempDir dir;
    const fs::path file = dir / "Marlune.store";
    GetParam().make(file);
    const auto before = test::readFileBytes(file);
    try {
        openAt(dir.path(), SymmetricKey::random());
        FAIL() << "opened a bad library file";
    } catch (const MarluneStoreError& error) {
        EXPECT_EQ(error.kind(), GetParam().expected) << error.what();
        EXPECT_NE(std::string(error.what()).find(file.string()), std::string::npos)
            << "the message names the file: " << error.what();
        EXPECT_NE(std::string(error.what()).find("untouched"), std::string::npos);
    }
    EXPECT_EQ(test::readFileBytes(file), before);
    EXPECT_FALSE(fs::exists(dir / "Marlune.store-wal"));
}

void makeValidLibrary(const fs::path& file, const SymmetricKey& key = SymmetricKey::random()) {
    {
        auto container = openAt(file.parent_path(), key);
        for (int i = 0; i < 200; ++i) {
            SnippetStore(container->mainContext())
                .create(
                    [&] {
                        Snippet s = Snippet::make(testNow());
                        s.keyword = ";k" + std::to_string(i);
                        s.content = std::string(500, 'x');
                        return s;
                    }(),
                    testNow());
        }
    }
    // Fold the write-ahead log into the file so the file alone is the library.
    Database db = Database::open(file, Database::OpenMode::readWrite);
    db.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    db.execute("PRAGMA journal_mode = DELETE");
}

INSTANTIATE_TEST_SUITE_P(
    BadFiles, StoreOpeningRefuses,
    ::testing::Values(
        BadFileCase{"Empty", [](const fs::path& f) { test::writeFileBytes(f, ""); },
                    MarluneStoreError::Kind::damaged},
        BadFileCase{"PlainText",
                    [](const fs::path& f) { test::writeFileBytes(f, "my shopping list\n"); },
                    MarluneStoreError::Kind::notADatabase},
        BadFileCase{"HeaderOnlyHalf",
                    [](const fs::path& f) {
                        test::writeFileBytes(f, std::string("SQLite format 3\0abc", 19));
                    },
                    MarluneStoreError::Kind::damaged},
        BadFileCase{"TruncatedLibrary",
                    [](const fs::path& f) {
                        makeValidLibrary(f);
                        fs::resize_file(f, fs::file_size(f) / 2 / 4096 * 4096);
                    },
                    MarluneStoreError::Kind::damaged},
        BadFileCase{"CutMidPage",
                    [](const fs::path& f) {
                        makeValidLibrary(f);
                        fs::resize_file(f, fs::file_size(f) - 100);
                    },
                    MarluneStoreError::Kind::damaged},
        BadFileCase{"OtherProgramsDatabase",
                    [](const fs::path& f) {
                        Database db = Database::open(f, Database::OpenMode::readWriteCreate);
                        db.execute("CREATE TABLE notes (body TEXT)");
                    },
                    MarluneStoreError::Kind::notALibrary},
        BadFileCase{"NewerSchema",
                    [](const fs::path& f) {
                        makeValidLibrary(f);
                        Database db = Database::open(f, Database::OpenMode::readWrite);
                        db.execute(
                            "UPDATE Metadata SET value = '3.0.0' WHERE key = 'schemaVersion'");
                    },
                    MarluneStoreError::Kind::newerSchema}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(StoreOpening, UnavailableChoicesFailWithTheirOwnErrors) {
    TempDir dir;
    try {
        MarluneStore::makeContainer({.inMemory = false, .appGroup = true, .cloudKit = false},
                                    dir.path(), ClipCrypto(std::nullopt), "d");
        FAIL();
    } catch (const MarluneStoreError& error) {
        EXPECT_EQ(error.kind(), MarluneStoreError::Kind::appGroupUnavailable);
        EXPECT_EQ(error.detail(), MarluneStore::appGroupIdentifier);
    }
    try {
        MarluneStore::makeContainer({.inMemory = false, .appGroup = false, .cloudKit = true},
                                    dir.path(), ClipCrypto(std::nullopt), "d");
        FAIL();
    } catch (const MarluneStoreError& error) {
        EXPECT_EQ(error.kind(), MarluneStoreError::Kind::cloudMirrorUnavailable);
    }
    EXPECT_FALSE(fs::exists(dir / "Marlune.store")) << "a refused choice must not create a file";
}

TEST(StoreOpening, LogsTheChoicesItBuiltWith) {
    std::vector<std::string> lines;
    auto old = Logger::setSink(
        [&](std::string_view, LogLevel, std::string_view line) { lines.emplace_back(line); });
    { Library library; }
    Logger::setSink(old);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(),
              "[Marlune] Model container built (cloudKit: false, appGroup: false, inMemory: true)");
}

TEST(StoreOpening, CloudMirrorProbeCountsBookkeepingTables) {
    TempDir dir;
    const fs::path file = dir / "Marlune.store";
    { openAt(dir.path(), SymmetricKey::random()); }
    EXPECT_FALSE(MarluneStore::wasMirroredToCloud(file));
    {
        Database db = Database::open(file, Database::OpenMode::readWrite);
        db.execute("CREATE TABLE ANSCKRECORDMETADATA (x)");
    }
    EXPECT_TRUE(MarluneStore::wasMirroredToCloud(file));
}

TEST(StoreOpening, LibraryDirectoryIsPrivate) {
    TempDir dir;
    const fs::path library = dir / "nested" / "Marlune";
    MarluneStore::makeContainer({}, library, ClipCrypto(std::nullopt), "d");
    EXPECT_EQ(fs::status(library).permissions() & fs::perms::all, fs::perms::owner_all);
    EXPECT_EQ(fs::status(library / "Marlune.store").permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
}

TEST(DatabaseErrorMessages, EachFailureCodeGivesASentenceSayingWhatToDo) {
    using Access = DatabaseError::Access;
    struct Row {
        int code;
        Access access;
        std::string expected;
    };
    const std::string damaged = "The library is damaged: part of its file cannot be read. Restore "
                                "the library from a backup, or move it aside to start a new one.";
    const std::string busy =
        "The library is busy: another program is using it. Try again in a moment.";
    const std::vector<Row> rows = {
        {SQLITE_FULL, Access::writing,
         "The library could not be saved because the disk is full. Free some space on the disk "
         "and try again."},
        {SQLITE_FULL, Access::reading,
         "The library could not be read because the disk is full. Free some space on the disk "
         "and try again."},
        {SQLITE_IOERR_WRITE, Access::writing,
         "The library could not be saved because of a disk error. Check the disk, then try "
         "again."},
        {SQLITE_IOERR_READ, Access::reading,
         "The library could not be read because of a disk error. Check the disk, then try "
         "again."},
        {SQLITE_IOERR_NOMEM, Access::reading,
         "The library could not be read because there was not enough memory. Close some "
         "programs and try again."},
        {SQLITE_CORRUPT, Access::reading, damaged},
        {SQLITE_CORRUPT_INDEX, Access::writing, damaged},
        {SQLITE_NOTADB, Access::reading, damaged},
        {SQLITE_BUSY, Access::writing, busy},
        {SQLITE_BUSY_SNAPSHOT, Access::reading, busy},
        {SQLITE_LOCKED, Access::writing, busy},
        {SQLITE_READONLY, Access::writing,
         "The library could not be saved because its file is read-only. Check the permissions "
         "of the library folder and the files in it."},
        {SQLITE_CANTOPEN, Access::reading,
         "The library file could not be opened. Check that the library folder exists and that "
         "you may read and write the files in it."},
        {SQLITE_TOOBIG, Access::writing,
         "The item is too large for the library to store. Make it smaller and try again."},
        {SQLITE_ERROR, Access::reading,
         "The library could not be read because of an unexpected error. Try again; if it keeps "
         "happening, Marlune's log has the details."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(sqlite3_errstr(row.code));
        EXPECT_EQ(DatabaseError::userMessage(row.code, row.access), row.expected);
        EXPECT_EQ(DatabaseError(row.code, "detail", row.access).isDamage(),
                  row.expected == damaged);
        EXPECT_EQ(DatabaseError(row.code, "detail", row.access).isBusy(), row.expected == busy);
    }
}

TEST(DatabaseErrorMessages, FailedStatementKeepsItsSQLForTheLogOnly) {
    Database db = Database::openInMemory();
    db.execute("CREATE TABLE t (x INTEGER NOT NULL)");
    try {
        db.prepare("INSERT INTO t (x) VALUES (NULL)").run();
        FAIL() << "a NOT NULL column took NULL";
    } catch (const DatabaseError& error) {
        EXPECT_EQ(std::string(error.what()).find("INSERT"), std::string::npos) << error.what();
        EXPECT_NE(error.detail().find("INSERT INTO t"), std::string::npos) << error.detail();
        EXPECT_NE(error.detail().find("NOT NULL constraint failed"), std::string::npos);
    }
    // A savepoint released on a connection that can no longer write (as on a full disk).
    db.execute("PRAGMA query_only = 1");
    try {
        Database::Transaction tx(db);
        db.execute("INSERT INTO t (x) VALUES (1)");
        tx.commit();
        FAIL() << "wrote with writes refused";
    } catch (const DatabaseError& error) {
        EXPECT_EQ(std::string(error.what()).find("marlune_sp"), std::string::npos) << error.what();
        EXPECT_NE(error.detail().find("(in: INSERT INTO t"), std::string::npos) << error.detail();
    }
}

TEST(StoreOpening, DamagedSnippetPageIsRefusedBeforeTheFirstWrite) {
    TempDir dir;
    const fs::path file = dir / "Marlune.store";
    const auto key = SymmetricKey::random();
    makeValidLibrary(file,
                     key); // left with a rollback journal, so opening would rewrite its header
    test::damageTablePage(file, "Snippet", test::TablePage::lastLeaf);
    const auto before = test::readFileBytes(file);
    try {
        MarluneStore::makeContainer(
            {}, dir.path(), ClipCrypto(key), "test-device",
            [](ModelContext& context) { SnippetStore(context).list(SnippetSortMode::manual); });
        FAIL() << "opened a library with a damaged page";
    } catch (const MarluneStoreError& error) {
        EXPECT_EQ(error.kind(), MarluneStoreError::Kind::damaged);
        EXPECT_EQ(std::string(error.what()),
                  "The library file " + file.string() +
                      " is damaged (part of it cannot be read). It was left untouched; restore "
                      "it from a backup or move it aside to start a new library.");
    }
    EXPECT_EQ(test::readFileBytes(file), before);
}

TEST(MainActorDeathTest, StoreCallFromAnotherThreadStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Library library;
    EXPECT_DEATH(
        {
            std::thread worker(
                [&] { SnippetStore(library.context()).list(SnippetSortMode::manual); });
            worker.join();
        },
        "must run on the main thread");
}

} // namespace
} // namespace marlune
